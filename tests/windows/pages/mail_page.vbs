' A page as the site's pages are: 25 messages were brought in before it.
Set oBoss = CreateObject("Korvane_beta1.BossObject")
Test.Check oBoss.Init(CLng(Test.Argument(1))), "the settings are read"

Set oConn = CreateObject("ADODB.Connection")
oConn.Open oBoss.DbConnectionString

Set oWeb = CreateObject("Korvane_beta1.WebInterface")
oWeb.ConnDataBase = oConn
oWeb.UserId = 7
Test.Check oWeb.Init(oBoss), "the facade is ready"
Set oPage = oWeb.GetListMessagesInBox(1)
Test.Equal oWeb.GetLastError, CLng(0), "getting mail leaves no error"
Test.Equal oPage.Count, CLng(25), "the whole box is listed"

oWeb.MailListPageSize = 10
Set oPage = oWeb.GetListMessagesInBox(1, -1, , , , , , , 1, nPages, nMails)
Test.Equal nPages, CLng(3), "the number of pages is in the page's variable"
Test.Equal nMails, CLng(25), "the number of messages is in the page's variable"
Test.Equal oPage.Count, CLng(10), "the first page holds 10 messages"
For i = 1 To oPage.Count
  Set oMessage = oPage.ItemIndex(i)
  sShown = sShown & " " & oMessage.Subject(0)
Next
Test.Equal sShown, " m25 m24 m23 m22 m21 m20 m19 m18 m17 m16", "they come by ItemIndex, newest first"
For Each oMessage In oPage
  sWalked = sWalked & " " & oMessage.Subject(0)
Next
Test.Equal sWalked, sShown, "For Each walks in the same order"
Set oMessage = oPage.ItemIndex(1)
Test.Equal oMessage.FromName, "Ann", "the sender's name"
Test.Equal oMessage.FromMailAddress, "ann@example.com", "the sender's address"
Test.Check oWeb.Finish, "Finish is true"

' An operation of a facade that was never initialised.
Set oBare = CreateObject("Korvane_beta1.WebInterface")
On Error Resume Next
oBare.GetMessage 1
nNumber = Err.Number
sSource = Err.Source
sDescription = Err.Description
On Error GoTo 0
Test.Equal nNumber, CLng(1500), "Err.Number of the guard is 1500"
Test.Equal sSource, "WebInterface", "Err.Source is the class"
Test.Equal sDescription, "Oggetto non inizializzato", "Err.Description is the published text"
Test.Equal oBare.GetLastError, CLng(0), "the object's own error is 0 afterwards"
Test.Equal oBare.GetLastErrorDesc, "", "and its text is empty"
