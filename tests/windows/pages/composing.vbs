'#include start.vbs
' NewMessage and NM_Save; then the messages are opened as any other.
Dim oWeb, oConn, oMessage, oAttachment, oOpened, oPage, sText

Set oWeb = NewWeb
Set oConn = NewConnection
Set oMessage = oWeb.NewMessage
Test.Check Not oMessage Is Nothing, "a new message is made"
oMessage.NM_From = """Élodie Ж"" <elodie@example.com>"
oMessage.NM_MessageTo = "bob@example.org, carl@example.net"
oMessage.NM_CC = "dora@example.org"
oMessage.NM_Subject = "L'été, 漢字 & 😀"
oMessage.NM_MessageBody = "due righe" & vbCrLf & "di città Ж"
oMessage.NM_SendDate = "05/03/2002 10:20:30"
oMessage.NM_Size = "1234"
Set oAttachment = oMessage.NM_NewAttachment
oAttachment.NM_FileName = "C:\somewhere\relazione città.txt"
oConn.AskedFor = ""
Test.Check oMessage.NM_Save(oConn), "it is saved"
Test.Equal Trim(Replace(oConn.AskedFor, "Execute", "")), "", "of the connection only Execute is used"
Test.Check Len(oConn.AskedFor) > 0, "which it is"
NoError oMessage, "saving leaves no error"
Test.Check Left(oAttachment.NameOnServer, Len(sFolder) + 13) = sFolder & "\attachments\", "the attachment has a path"
Test.Equal oMessage.Id, CLng(1), "the first identifier of an empty table is 1"
' The page puts the content there.
Test.WriteFile oAttachment.NameOnServer, "attached"

Set oPage = oWeb.GetListMessagesInBox(3, -1)
Test.Equal oPage.Count, CLng(1), "box 3 is where it goes unless told"
Test.Equal oPage.ItemIndex(1).Subject(0), "L'été, 漢字 & 😀", "it lists with its subject"
Test.Equal oPage.ItemIndex(1).Size, CLng(1234), "and its size"
Set oOpened = oWeb.GetMessage(oMessage.Id)
Test.Equal oOpened.Subject(0), "L'été, 漢字 & 😀", "opened, it has its subject"
Test.Equal oOpened.Subject(1), "L&#39;été, 漢字 &amp; 😀", "and as HTML"
Test.Equal oOpened.FromName & "/" & oOpened.FromMailAddress, "Élodie Ж/elodie@example.com", "its sender"
Test.Equal oOpened.MessageToAddress, "bob@example.org, carl@example.net", "its recipients"
Test.Equal oOpened.CC_Address, "dora@example.org", "its copy"
Test.Equal oOpened.SendDate, "05/03/2002 10:20:30", "its date"
Test.Equal TextOf(oOpened, 1), "due righe" & vbCrLf & "di città Ж", "its text"
Test.Equal oOpened.GetAttachments.Count, CLng(1), "its attachment"
Test.Equal oOpened.GetAttachments.ItemIndex(1).Name, "relazione città.txt", "which has a bare name"
Test.Equal Test.ReadFile(oOpened.GetAttachments.ItemIndex(1).NameOnServer), "attached", "and the page's content"

Set oMessage = oWeb.NewMessage("-- Separator --")
Test.Equal oMessage.MessageSeparator, "-- Separator --", "a separator is kept"
oMessage.NM_Subject = 5
oMessage.NM_MessageBody = Empty
Test.Check oMessage.NM_Save(oConn, 12), "a message for another box is saved"
Test.Equal oWeb.GetListMessagesInBox(12, -1).ItemIndex(1).Subject(0), "5", "a number is a text where a text is wanted"
Test.Check oWeb.DeleteMessage(oMessage.Id), "it is deleted"
Test.Equal oWeb.GetListMessagesInBox(12, -1).Count, CLng(0), "and gone"

Set oMessage = oWeb.NewMessage
Test.Check Not oMessage.NM_Save(Nothing), "without a connection nothing is saved"
Test.Check oMessage.GetLastError <> 0, "which is an error: " & oMessage.GetLastError
