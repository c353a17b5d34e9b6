'#include start.vbs
' Several accounts of one user: 5 is the default, 6 is another mailbox, 8 has a wrong password, 9 a
' server that is not there; 10 is of a kind whose password the page gives.
Dim oBoss, oWeb, oPage

Set oWeb = NewWeb
Test.Equal oWeb.Username, "ann", "the default account is loaded"
Test.Check Not oWeb.VerifyAccount(9), "a server that is not there does not verify"
HasError oWeb, 1093, "a server that is not there is 1093"
Test.Check Not oWeb.VerifyAccount(77), "an account that is not there does not verify"
HasError oWeb, 1035, "an account that is not there is 1035"
Test.Check oWeb.VerifyAccount(6), "another account verifies"
NoError oWeb, "and leaves no error"

Set oPage = oWeb.GetListMessagesInBox(1, 6)
Test.Equal Subjects(oPage), "for-bob", "one given account is asked"
Set oPage = oWeb.GetListMessagesInBox(1, -10)
Test.Equal oPage.Count, CLng(26), "the current account is asked"

Test.Check Not oWeb.VerifyAccount(10), "an account of kind 1 has no password of its own"
oWeb.Password = "secret"
Test.Check oWeb.VerifyAccount(10), "it takes the page's"

Set oBoss = NewBoss
Set oWeb = CreateObject("Korvane_beta1.WebInterface")
oWeb.ConnDataBase = NewConnection
oWeb.UserId = lUser
Test.Check oWeb.Init(oBoss, 6), "a facade may begin with any account"
Test.Equal oWeb.Username, "bob", "it is loaded"
Test.Check oWeb.Init(oBoss, -10), "or with none"
Test.Check Not oWeb.Init(oBoss, 77), "but not with one that is not there"
HasError oWeb, 1035, "which is 1035"
oWeb.UserId = 8
Test.Check Not oWeb.Init(oBoss), "a user without a default account cannot begin"
HasError oWeb, 1035, "which is 1035, too"

' A server lets those wait who gave a wrong password, so these come last.
Set oWeb = NewWeb
Test.Check Not oWeb.VerifyAccount(8), "a wrong password does not verify"
Test.Equal oWeb.GetLastError, CLng(1203), "a wrong password is 1203"
Test.Check Left(oWeb.GetLastErrorDesc, 4) = "-ERR", "with the server's own line"
Test.Equal oWeb.Username, "ann", "the account before is loaded again"
oWeb.Password = "wrong"
Test.Check Not oWeb.VerifyAccount(10), "the page's password counts, whatever it is"
