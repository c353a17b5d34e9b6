' What the pages begin with: the objects as a page of a site makes them.
Dim nInstance, sConnect, lUser, sFolder
nInstance = CLng(Test.Argument(1))
sConnect = Test.Argument(2)
lUser = CLng(Test.Argument(3))
sFolder = Test.Argument(4)

Const ORDER_DATA = 0
Const ORDER_NAME = 1
Const ORDER_OBJECT = 2
Const ORDER_ASC = 0
Const ORDER_DESC = 1

Function NewBoss()
  Set NewBoss = CreateObject("Korvane_beta1.BossObject")
  If Not NewBoss.Init(nInstance) Then Test.Fail "the settings cannot be read: " & NewBoss.GetLastError
End Function

Function NewConnection()
  Set NewConnection = CreateObject("ADODB.Connection")
  NewConnection.Open sConnect
End Function

Function NewWeb()
  Dim oBoss, oConn
  Set oBoss = NewBoss
  Set oConn = NewConnection
  If Not oBoss.Init2(oConn) Then Test.Fail "the date order cannot be found: " & oBoss.GetLastError
  Set NewWeb = CreateObject("Korvane_beta1.WebInterface")
  NewWeb.ConnDataBase = oConn
  NewWeb.UserId = lUser
  If Not NewWeb.Init(oBoss) Then Test.Fail "Init: " & NewWeb.GetLastError
End Function

Sub NoError(oThing, sClaim)
  Test.Equal oThing.GetLastError & " " & oThing.GetLastErrorDesc, "0 ", sClaim
End Sub

Sub HasError(oThing, nNumber, sClaim)
  Test.Equal oThing.GetLastError & " " & oThing.GetLastErrorDesc, nNumber & " XXX", sClaim
End Sub

' Subjects of a page in its order.
Function Subjects(oPage)
  Dim i
  Subjects = ""
  For i = 1 To oPage.Count
    If i > 1 Then Subjects = Subjects & " "
    Subjects = Subjects & oPage.ItemIndex(i).Subject(0)
  Next
End Function

Function TextOf(oMessage, taKind)
  Dim sText
  If Not oMessage.MessageBody(sText, taKind, 0) Then Test.Fail "MessageBody: " & oMessage.GetLastError
  TextOf = sText
End Function
