'#include start.vbs
' GetListMessagesInBox against a real server that holds 25 messages.
Dim oWeb, oPage, nPages, nMails, vBoth(1), i, sWhole, sPaged, nOrder, nDirection, vText, vFilled, oOther

Set oWeb = NewWeb
Set oPage = oWeb.GetListMessagesInBox(1, -1)
NoError oWeb, "-1 lists without a server"
Test.Equal oPage.Count, CLng(0), "-1 finds nothing in an empty store"
Test.Check oWeb.VerifyAccount, "the account can log in"

Set oPage = oWeb.GetListMessagesInBox(1, , , , , True)
NoError oWeb, "a first synchronisation leaves no error"
Test.Equal oPage.Count, CLng(25), "a first synchronisation stores all messages"
Set oPage = oWeb.GetListMessagesInBox(1)
NoError oWeb, "a second synchronisation leaves no error"
Test.Equal oPage.Count, CLng(25), "a second synchronisation stores none twice"
Set oPage = oWeb.GetListMessagesInBox(1, -100, False)
Test.Equal oPage.Count, CLng(25), "all accounts: still none twice"

oWeb.MailListPageSize = 10
Set oPage = oWeb.GetListMessagesInBox(1, -1, , , , , , , 2, nPages, nMails)
Test.Equal nPages, CLng(3), "pages go into a variable that holds nothing yet"
Test.Equal nMails, CLng(25), "and so do the messages"
Test.Equal Subjects(oPage), "m15 m14 m13 m12 m11 m10 m9 m8 m7 m6", "page 2 holds messages 15 to 6"
Set oPage = oWeb.GetListMessagesInBox(1, -1, , , , , , , 3, vBoth(0), vBoth(1))
Test.Equal vBoth(0), CLng(3), "pages go into an element of an array"
Test.Equal vBoth(1), CLng(25), "and so do the messages"
Test.Equal Subjects(oPage), "m5 m4 m3 m2 m1", "page 3 holds the last five"
vText = "before"
vFilled = 99
Set oPage = oWeb.GetListMessagesInBox(1, -1, , , , , , , 1, vText, vFilled)
Test.Equal vText, CLng(3), "a text gives way to the number of pages"
Test.Equal vFilled, CLng(25), "a number gives way to the number of messages"
vText = Null
Set vFilled = oWeb
Set oPage = oWeb.GetListMessagesInBox(1, -1, , , , , , , 1, vText, vFilled)
Test.Equal vText, CLng(3), "null gives way"
Test.Equal vFilled, CLng(25), "an object gives way"
Set oPage = oWeb.GetListMessagesInBox(1, -1, , , , , , , 1, 5, nMails + 1)
Test.Equal oPage.Count, CLng(10), "values that are no variables are taken too"
Test.Equal nMails, CLng(25), "and nothing is written to them"
nPages = 77
Set oPage = oWeb.GetListMessagesInBox(1, -1, , , , , , , , nPages, nMails)
Test.Equal nPages, 77, "without a page the number of pages stays untouched"
Test.Equal oPage.Count, CLng(25), "without a page the whole box is listed"

For Each nOrder In Array(0, 1, 2, 3, 4)
  For Each nDirection In Array(0, 1)
    sWhole = Subjects(oWeb.GetListMessagesInBox(1, -1, , , , , nOrder, nDirection))
    sPaged = ""
    For i = 1 To 3
      If i > 1 Then sPaged = sPaged & " "
      sPaged = sPaged & Subjects(oWeb.GetListMessagesInBox(1, -1, , , , , nOrder, nDirection, i))
    Next
    Test.Equal sPaged, sWhole, "order " & nOrder & ", direction " & nDirection & ": the pages are the whole box"
  Next
Next
Test.Equal Subjects(oWeb.GetListMessagesInBox(1, -1, , , , , ORDER_DATA, ORDER_ASC, 1)), _
  "m1 m2 m3 m4 m5 m6 m7 m8 m9 m10", "ascending by date"

For Each i In Array(0, 4, -2, 2147483647)
  Set oPage = oWeb.GetListMessagesInBox(1, -1, , , , , , , i, nPages, nMails)
  Test.Equal oPage.Count & " " & oWeb.GetLastError & " " & oPage.GetLastError, "0 1007 1089", _
    "page " & i & " is empty, an error of the listing"
Next
Set oPage = oWeb.GetListMessagesInBox(9, -1, , , , , , , 1)
Test.Equal oPage.Count & " " & oWeb.GetLastError, "0 0", "page 1 of an empty box is empty without an error"
oWeb.MailListPageSize = 0
Set oPage = oWeb.GetListMessagesInBox(1, -1, , , , , , , 1)
Test.Equal oWeb.GetLastError, CLng(1007), "a page size of 0 is an error"
oWeb.MailListPageSize = 10

Set oPage = oWeb.GetListMessagesInBox(1, -1)
Test.Equal oPage.Item(oPage.ItemIndex(3).Id).Subject(0), "m23", "Item finds a message by its Id"
Test.Equal oPage(oPage.ItemIndex(3).Id).Subject(0), "m23", "Item is what a collection answers with"
Test.Check oPage.ItemIndex(26) Is Nothing, "a position behind the end gives no object"
Test.Equal oPage.GetLastError, CLng(9), "a position behind the end is 9"
Test.Check oPage.Item(999999) Is Nothing, "a key that is not there gives no object"
Test.Equal oPage.GetLastError, CLng(5), "a key that is not there is 5"

' A message outlives everything that made it.
Set oOther = oPage.ItemIndex(1)
Set oPage = Nothing
Set oWeb = Nothing
Test.Equal oOther.Subject(0), "m25", "a message outlives its page and its facade"
Test.Equal oOther.Subject, "m25", "a property's parameter may be left out"
Test.Equal oOther.Letto, False, "a message that nobody opened is not read"
Test.Equal oOther.ReceivedDate, "05/03/2002 10:25:00", "a date is a text, day first"
