' Prints everything that a page can read of a user's messages, in the order of their numbers.
' Arguments: installation, connection string, user, first and last number; "sync" brings mail in first.
Dim oBoss, oConn, oWeb, oMessage, oAttachment, lId, taKind, tfForm, sText

Sub Show(sName, vValue)
  Test.Print sName & "=" & vValue
End Sub

Set oBoss = CreateObject("Korvane_beta1.BossObject")
Test.Check oBoss.Init(Test.Argument(1)), "settings"
Set oConn = CreateObject("ADODB.Connection")
oConn.Open Test.Argument(2)
oBoss.Init2 oConn
Set oWeb = CreateObject("Korvane_beta1.WebInterface")
oWeb.ConnDataBase = oConn
oWeb.UserId = Test.Argument(3)
Test.Check oWeb.Init(oBoss), "facade"
If Test.Argument(6) = "sync" Then oWeb.GetListMessagesInBox 1, , False, , , True
Test.Equal oWeb.GetLastError, CLng(0), "no error"

For lId = CLng(Test.Argument(4)) To CLng(Test.Argument(5))
  Set oMessage = oWeb.GetMessage(lId)
  Show "Message", lId & " " & oWeb.GetLastError
  If Not oMessage Is Nothing Then
    Show "OriginalHeader", oMessage.OriginalHeader
    Show "ReturnPath", oMessage.ReturnPath & "|" & oMessage.ReturnPathAddress
    Show "ReplyTo", oMessage.ReplyTo & "|" & oMessage.ReplyToName & "|" & oMessage.ReplyToAddress
    Show "From", oMessage.From & "|" & oMessage.FromName & "|" & oMessage.FromMailAddress
    Show "Sender", oMessage.Sender & "|" & oMessage.SenderName & "|" & oMessage.SenderAddress
    Show "Dates", oMessage.SendDate
    Show "To", oMessage.MessageTo & "|" & oMessage.MessageToName & "|" & oMessage.MessageToAddress
    Show "CC", oMessage.CC & "|" & oMessage.CC_Name & "|" & oMessage.CC_Address
    Show "BCC", oMessage.BCC & "|" & oMessage.BCC_Name & "|" & oMessage.BCC_Address
    Show "Ids", oMessage.MessageID & "|" & oMessage.InReplyTo & "|" & oMessage.References
    Show "Words", oMessage.Keywords & "|" & oMessage.Comments & "|" & oMessage.Encrypted
    Show "Received", oMessage.Received
    Show "Subject", oMessage.Subject(0) & "|" & oMessage.Subject(1) & "|" & oMessage.Subject(2)
    Show "Size", oMessage.Size
    For taKind = 0 To 2
      For tfForm = 0 To 2
        sText = ""
        oMessage.MessageBody sText, taKind, tfForm
        Show "Body " & taKind & tfForm & " " & oMessage.GetLastError, sText
      Next
    Next
    For Each oAttachment In oMessage.GetAttachments
      Show "Attachment", oAttachment.Id & "|" & oAttachment.Name & "|" & oAttachment.NameOnServer
    Next
  End If
Next
