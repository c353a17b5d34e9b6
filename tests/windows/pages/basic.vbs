'#include start.vbs
' BasicInterface against a real server that holds 25 messages.
Dim oBasic, oPage, nPages, nMails, sUnique, oMessage, sText

Function NewBasic()
  Set NewBasic = CreateObject("Korvane_beta1.BasicInterface")
  NewBasic.MailServer = "127.0.0.1"
  NewBasic.ServerPort = Test.Argument(5)
  NewBasic.Username = "ann"
  NewBasic.Password = "secret"
End Function

Set oBasic = NewBasic
Test.Equal oBasic.MailServer & oBasic.Username & oBasic.Password, "127.0.0.1annsecret", "what was assigned is read"
Test.Check oBasic.Init(False), "Init(False) asks no server"
Test.Check oBasic.GetMessage(1) Is Nothing, "without a session there is no message"
Test.Check oBasic.GetLastError <> 0, "which is the client's error: " & oBasic.GetLastError
Test.Check oBasic.Finish, "Finish without a session is true"

Set oBasic = NewBasic
Test.Check oBasic.Init, "Init connects and logs in"
NoError oBasic, "which leaves no error"
Test.Equal oBasic.ServerTimeout, CLng(7000), "the time-out is 7000"
oBasic.MailListPageSize = 10
Set oPage = oBasic.GetListMessagesInBox(1, 2, nPages, nMails)
Test.Equal Subjects(oPage), "m15 m14 m13 m12 m11 m10 m9 m8 m7 m6", "page 2 holds messages 15 to 6"
Test.Equal nPages & " " & nMails, "3 25", "pages and messages"
Set oPage = oBasic.GetListMessagesInBox(1)
Test.Equal oPage.Count, CLng(25), "all headers"
sUnique = oPage.Item(7).MessageUIDL
Test.Check Len(sUnique) > 0, "a header has its unique id"
Set oMessage = oBasic.GetMessage(7)
Test.Check oMessage.MessageBody(sText, 1, 0), "a message has its text"
Test.Equal sText, "text of 7" & vbCrLf & ".dots", "which is whole"
Test.Equal oBasic.GetMessageUIDL(7, sUnique).Subject(0), "m7", "the unique id that fits"
Test.Check oBasic.GetMessageUIDL(8, sUnique) Is Nothing, "the unique id that does not fit gives no message"
HasError oBasic, 1065, "it is 1065"
Test.Check Not oBasic.DeleteMessageUIDL(8, sUnique), "nor is anything deleted by it"
Test.Check oBasic.DeleteMessageUIDL(7, sUnique), "the one that fits deletes"
Test.Check oBasic.DeleteMessage("9"), "and so does a number, as a text"
Test.Check Not oBasic.DeleteMessage(99), "but not one that is not there"
Test.Check Left(oBasic.GetLastErrorDesc, 4) = "-ERR", "which the server says: " & oBasic.GetLastError
Test.Check oBasic.Finish, "Finish ends the session"

Set oBasic = NewBasic
Test.Check oBasic.Init, "a second session"
Test.Equal oBasic.GetListMessagesInBox(1).Count, CLng(23), "two are gone"
Test.Check oBasic.DeleteMessage(1), "a third is deleted"
Set oBasic = Nothing
Set oBasic = NewBasic
Test.Check oBasic.Init, "a third session"
Test.Equal oBasic.GetListMessagesInBox(1).Count, CLng(22), "a facade that is dropped without Finish sends QUIT"
oBasic.Finish
oBasic.Password = "wrong"
Test.Check Not oBasic.Init, "a wrong password"
Test.Equal oBasic.GetLastError, CLng(1203), "is 1203"
