' Lists the newest page of a user's inbox, as a page of a site does: no server is asked.
' On an ASP page CreateObject is Server.CreateObject and WScript.Echo is Response.Write.
Option Explicit
Const lInstallation = 1
Const lUser = 1 ' a site knows who is signed in
Dim oBoss, oConn, oWeb, oMessages, oMessage, lPages, lMails

Sub Fail(oObject)
  WScript.Echo "error " & oObject.GetLastError & " " & oObject.GetLastErrorDesc
  WScript.Quit 1
End Sub

Set oBoss = CreateObject("Korvane_beta1.BossObject")
If Not oBoss.Init(lInstallation) Then Fail oBoss
Set oConn = CreateObject("ADODB.Connection")
oConn.Open oBoss.DbConnectionString
oBoss.Init2 oConn

Set oWeb = CreateObject("Korvane_beta1.WebInterface")
oWeb.ConnDataBase = oConn
oWeb.UserId = lUser
If Not oWeb.Init(oBoss) Then Fail oWeb

lPages = 0
lMails = 0
Set oMessages = oWeb.GetListMessagesInBox(1, -1, True, False, "", False, 0, 1, 1, lPages, lMails)
If oWeb.GetLastError <> 0 Then Fail oWeb
WScript.Echo lMails & " messages on " & lPages & " pages"
For Each oMessage In oMessages
  WScript.Echo oMessage.Id & "  " & oMessage.FromName & "  " & oMessage.Subject(0)
Next
