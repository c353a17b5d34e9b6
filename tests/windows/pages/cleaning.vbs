'#include start.vbs
' BackgroundClean after enough was deleted.
Dim oWeb, oPage, i, nBefore

Set oWeb = NewWeb
Test.Check oWeb.BackgroundClean, "a user without mail is left alone"
Test.Equal oWeb.GetLastError & " " & oWeb.GetLastErrorDesc, "0 XXX", "success leaves 0 and XXX"
Set oPage = oWeb.GetListMessagesInBox(1, , False, , , , , ORDER_ASC)
Test.Equal oPage.Count, CLng(3), "three messages are brought in whole"
nBefore = Len(Test.ReadFile(sFolder & "\messages\7_Messaggi.dat"))
Test.Check nBefore > 6000000, "they fill the message file: " & nBefore
Test.Check oWeb.DeleteMessage(oPage.ItemIndex(1).Id & "," & oPage.ItemIndex(2).Id), "two are deleted"
Test.Check oWeb.BackgroundClean, "the file is compacted"
Test.Equal oWeb.GetLastError, CLng(0), "without an error"
Test.Check Len(Test.ReadFile(sFolder & "\messages\7_Messaggi.dat")) < 2000, "it holds the third one only"
Test.Check Not Test.FileExists(sFolder & "\messages\7_Messaggi_tmp.dat"), "the new file took its place"
Test.Check Not Test.FileExists(sFolder & "\messages\7_Messaggi_cpy.dat"), "the old one is gone"
Test.Equal TextOf(oWeb.GetMessage(oPage.ItemIndex(3).Id), 1), "small", "the third one opens"
Set oPage = oWeb.GetListMessagesInBox(1)
Test.Equal Subjects(oPage), "m3", "what was compacted away does not come back"
