'#include start.vbs
' Values of every kind that a script can hand over.
Dim oWeb, oMessage, vList(2), nNumber, dWhen

Set oWeb = CreateObject("Korvane_beta1.WebInterface")
oWeb.UserId = "12"
Test.Equal oWeb.UserId, CLng(12), "a number as text"
oWeb.UserId = 12.5
Test.Equal oWeb.UserId, CLng(12), "a half is rounded to even"
oWeb.UserId = 13.5
Test.Equal oWeb.UserId, CLng(14), "a half is rounded to even, upwards too"
oWeb.UserId = True
Test.Equal oWeb.UserId, CLng(-1), "true is -1"
oWeb.UserId = Empty
Test.Equal oWeb.UserId, CLng(0), "empty is 0"
oWeb.UserId = CByte(200)
Test.Equal oWeb.UserId, CLng(200), "a byte"
oWeb.UserId = CSng(7)
Test.Equal oWeb.UserId, CLng(7), "a short floating number"
oWeb.UserId = -2147483648
Test.Equal oWeb.UserId, CLng(-2147483648), "the least number"
vList(1) = 77
oWeb.UserId = vList(1)
Test.Equal oWeb.UserId, CLng(77), "an element of an array"
On Error Resume Next
oWeb.UserId = Null
nNumber = Err.Number
Err.Clear
On Error GoTo 0
Test.Check nNumber <> 0, "null is no number"
Test.Equal oWeb.UserId, CLng(77), "and changes nothing"
oWeb.Username = 5
Test.Equal oWeb.Username, "5", "a number as a text"
oWeb.Username = Empty
Test.Equal oWeb.Username, "", "empty is no text"
oWeb.Username = True
Test.Check Len(oWeb.Username) > 0, "a truth value as a text: " & oWeb.Username
oWeb.Username = "città Ж 漢 😀"
Test.Equal oWeb.Username, "città Ж 漢 😀", "letters beyond the code page"
oWeb.Username = "a" & Chr(0) & "b"
Test.Equal Len(oWeb.Username), CLng(3), "a NUL is a character"
oWeb.Username = String(100000, "x")
Test.Equal Len(oWeb.Username), CLng(100000), "a long text"
Test.Equal TypeName(oWeb.GetLastError), "Long", "GetLastError is a 32-bit number"
Test.Equal TypeName(oWeb.GetLastErrorDesc), "String", "GetLastErrorDesc is a text"
Test.Equal TypeName(oWeb.UserId), "Long", "a 32-bit number is one"
Test.Equal TypeName(oWeb.Finish), "Boolean", "a truth value is one"

Set oWeb = NewWeb
Set oMessage = oWeb.NewMessage
dWhen = #2002-03-05 10:20:30#
oMessage.NM_SendDate = dWhen
Test.Check oMessage.NM_Save(NewConnection), "a date of the script's is taken as a text"
Test.Check Left(oWeb.GetMessage(oMessage.Id).SendDate, 10) = "05/03/2002", "and read by the same locale: " & oWeb.GetMessage(oMessage.Id).SendDate
Test.Check oWeb.GetListMessagesInBox("3", "-1", "True", "False").Count > 0, "arguments as texts"
Test.Check oWeb.GetListMessagesInBox(3, -1, 1, 0).Count > 0, "numbers for truth values"
Test.Check oWeb.GetListMessagesInBox(3, -1, Empty, Empty, Empty).Count > 0, "empty for truth values and texts"
