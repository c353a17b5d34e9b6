'#include start.vbs
' DeleteMessage: here, on the server, on both; one number or several.
Dim oWeb, oPage, i, vIds(11), nNumber

Const DEL_TYPE_SERVER = 0
Const DEL_TYPE_LOCALE = 1
Const DEL_TYPE_LOCALE_SERVER = 2

Set oWeb = NewWeb
Set oPage = oWeb.GetListMessagesInBox(1, , False, , , , , ORDER_ASC)
Test.Equal oPage.Count, CLng(12), "12 messages are brought in whole"
For i = 1 To 12
  vIds(i - 1) = oPage.ItemIndex(i).Id
Next
Test.Check oWeb.DeleteMessage(vIds(0), DEL_TYPE_LOCALE), "one is deleted here"
NoError oWeb, "which leaves no error"
Test.Check oWeb.DeleteMessage(vIds(1), DEL_TYPE_SERVER), "one is deleted on the server"
Test.Check oWeb.DeleteMessage(vIds(2)), "one is deleted on both, which is what an omitted kind means"
Test.Check oWeb.DeleteMessage(vIds(3) & "," & vIds(4)), "two by a text"
Test.Check oWeb.DeleteMessage(" " & vIds(5) & " , " & vIds(6) & " ", "2"), "two by a text with blanks, the kind a text"
Test.Check oWeb.DeleteMessage(CDbl(vIds(7)), CDbl(DEL_TYPE_LOCALE)), "one by floating numbers"
Set oPage = oWeb.GetListMessagesInBox(1, -1, , , , , , ORDER_ASC)
Test.Equal Subjects(oPage), "m2 m9 m10 m11 m12", "what is left here"

Test.Check Not oWeb.DeleteMessage(""), "no number at all is refused"
HasError oWeb, 1004, "no number at all is 1004"
Test.Check Not oWeb.DeleteMessage(Empty), "empty is refused"
Test.Check oWeb.GetLastError <> 0, "with a number"
Test.Check Not oWeb.DeleteMessage("1;DROP TABLE mail"), "a statement is refused"
Test.Check oWeb.GetLastError <> 0, "with a number"
Test.Check Not oWeb.DeleteMessage("1 OR 1=1"), "a condition is refused"
Test.Equal oWeb.GetListMessagesInBox(1, -1).Count, CLng(5), "and nothing was deleted"
On Error Resume Next
i = oWeb.DeleteMessage(oWeb)
nNumber = Err.Number
Err.Clear
On Error GoTo 0
Test.Check nNumber <> 0 Or oWeb.GetLastError <> 0, "an object is refused"
On Error Resume Next
i = oWeb.DeleteMessage(Array(1, 2))
nNumber = Err.Number
Err.Clear
On Error GoTo 0
Test.Check nNumber <> 0 Or oWeb.GetLastError <> 0, "an array is refused"
Test.Equal oWeb.GetListMessagesInBox(1, -1).Count, CLng(5), "and nothing was deleted"

Set oPage = oWeb.GetListMessagesInBox(1)
Test.Equal oPage.Count, CLng(5), "what was deleted here does not come back"
