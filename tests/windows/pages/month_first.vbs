'#include start.vbs
' The same, where the user's locale writes the month first.
Dim oBoss, oWeb, oPage
Set oBoss = NewBoss
Test.Check oBoss.Init2(NewConnection), "Init2 is true"
Test.Equal oBoss.IsEnglishDate, CLng(1), "a database that writes the month first is 1"
Set oWeb = NewWeb
Set oPage = oWeb.GetListMessagesInBox(1)
NoError oWeb, "mail is got"
Test.Equal Subjects(oPage), "m25 m24 m23 m22 m21 m20 m19 m18 m17 m16 m15 m14 m13 m12 m11 m10 m9 m8 m7 m6 m5 m4 m3 m2 m1", _
  "the listing runs by date"
Test.Equal Left(oPage.ItemIndex(1).ReceivedDate, 10), "05/03/2002", "a message's date is day first all the same"
Set oPage = oWeb.GetListMessagesInBox(1)
Test.Equal oPage.Count, CLng(25), "a second run brings nothing twice"
