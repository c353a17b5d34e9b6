'#include start.vbs
' GetMessage: texts, attachments that become files, letters beyond the code page.
Dim oWeb, oPage, oMessage, oOpened, oAttachments, oAttachment, sText, vTexts(1), i

Function Find(sSubject)
  Dim oEach
  For Each oEach In oWeb.GetListMessagesInBox(1, -1)
    If oEach.Subject(0) = sSubject Then
      Set Find = oWeb.GetMessage(oEach.Id)
      Exit Function
    End If
  Next
  Test.Fail "there is no message " & sSubject
End Function

Set oWeb = NewWeb
Set oPage = oWeb.GetListMessagesInBox(1)
NoError oWeb, "headers are brought in"

Set oMessage = Find("plain")
NoError oWeb, "a message is fetched from its server when it is opened"
Test.Equal oMessage.IdOnServer, CLng(1), "its number on the server"
Test.Check oMessage.MessageBody(sText, 1, 0), "its text is there"
Test.Equal sText, "first line" & vbCrLf & ".a dot" & vbCrLf & "a < b", "the text goes into a variable that holds nothing yet"
Test.Check oMessage.MessageBody(vTexts(1), 1, 1), "and as HTML"
Test.Equal vTexts(1), "<pre>first line<br>.a dot<br>a &lt; b</pre>", "the text goes into an element of an array"
sText = 12
Test.Check oMessage.MessageBody(sText, 1, 2), "and without a block"
Test.Equal sText, "first line<br>.a dot<br>a &lt; b", "the text takes the place of a number"
Test.Check oMessage.MessageBody(sText), "all that may be left out is left out"
Test.Equal sText, "<pre>first line<br>.a dot<br>a &lt; b</pre>", "and is HTML then"
Test.Check Not oMessage.MessageBody(sText, 2, 0, True), "HTML alone is not there"
HasError oMessage, 1088, "HTML alone where there is none is 1088"
Test.Equal oWeb.GetListMessagesInBox(1, -1, , , , , ORDER_DATA, ORDER_ASC).ItemIndex(1).Letto, True, "an opened message is read"

Set oMessage = Find("Città Ж漢 😀")
Test.Equal oMessage.Subject(0), "Città Ж漢 😀", "letters beyond the code page in a subject"
Test.Equal oMessage.FromName, "Жанна d'Arc", "letters beyond the code page in a name"
Test.Equal TextOf(oMessage, 1), "Привет, città, 漢字 😀", "letters beyond the code page in a text"
Test.Equal Len(oMessage.Subject(0)), CLng(11), "a letter beyond 16 bits is a pair"

Set oMessage = Find("two files")
Set oAttachments = oMessage.GetAttachments
Test.Equal oAttachments.Count, CLng(2), "both attachments are there"
i = 0
For Each oAttachment In oAttachments
  i = i + 1
  Test.Equal oAttachment.Name, "résumé.pdf", "attachment " & i & " has the sender's name"
  Test.Check Test.FileExists(sFolder & "\attachments\" & oAttachment.NameOnServer), "attachment " & i & " is a file: " & oAttachment.NameOnServer
Next
Test.Equal Test.ReadFile(sFolder & "\attachments\" & oAttachments.ItemIndex(1).NameOnServer), "first", "the first file's content"
Test.Equal Test.ReadFile(sFolder & "\attachments\" & oAttachments.ItemIndex(2).NameOnServer), "second", "the second file's content"
Test.Equal oAttachments.Item(oAttachments.ItemIndex(2).Id).NameOnServer, oAttachments.ItemIndex(2).NameOnServer, "Item finds an attachment by its Id"
Test.Check oAttachments.Item(99) Is Nothing, "an attachment that is not there is no object"
Test.Check Find("two files").ExistAttachments, "a listing says so, once it was opened"

Set oMessage = Find("picture")
Test.Equal oMessage.GetAttachments.Count, CLng(0), "a picture that the text shows is not listed"
Test.Check InStr(TextOf(oMessage, 2), "src=""https://mail.example.com/files/") > 0, "but the text points at its file"

Set oMessage = Find("bad name")
Set oAttachments = oMessage.GetAttachments
Test.Equal oAttachments.ItemIndex(1).Name, "b?c*.txt", "a name that Windows refuses is shown as it came"
Test.Check Test.FileExists(sFolder & "\attachments\" & oAttachments.ItemIndex(1).NameOnServer), "its file has another: " & oAttachments.ItemIndex(1).NameOnServer
Test.Equal oAttachments.ItemIndex(2).Name, "con.txt", "a name of a device is shown as it came"
Test.Equal Test.ReadFile(sFolder & "\attachments\" & oAttachments.ItemIndex(2).NameOnServer), "device", "and its file is a file"

Set oMessage = Find("uuencoded")
Test.Equal oMessage.GetAttachments.Count, CLng(1), "a uuencoded file is an attachment"
Test.Equal oMessage.GetAttachments.ItemIndex(1).Name, "run.txt", "with its name"
Test.Equal Test.ReadFile(oMessage.GetAttachments.ItemIndex(1).NameOnServer), "#!/bin/sh", "NameOnServer is the whole path of its file"

For Each i In Array(0, -1, 999, 2147483647)
  Test.Check oWeb.GetMessage(i) Is Nothing, "message " & i & " is no object"
  HasError oWeb, 1001, "message " & i & " is 1001"
Next
Test.Equal oWeb.GetMessage("1").Id, CLng(1), "a number may be a text"

For Each oOpened In oWeb.GetListMessagesInBox(1, -1)
  If oOpened.Subject(0) = "last" Then i = oOpened.Id
Next
Set oOpened = oWeb.GetMessage(i, True)
NoError oWeb, "a message is fetched and deleted on its server"
Test.Equal oOpened.IdOnServer, CLng(-100), "it has no number there any more"
Test.Equal TextOf(oWeb.GetMessage(i), 1), "kept here", "but is here"

oWeb.UserId = 8
Test.Check oWeb.GetMessage(1) Is Nothing, "UserId assigned after Init reaches the account"
HasError oWeb, 1001, "another user's message is 1001"
