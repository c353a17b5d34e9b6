'#include start.vbs
' What a script sees of the guard, and of its own mistakes.
Dim oWeb, oBasic, oBoss, nNumber, sSource, sDescription, x

Sub Guarded(sOperation, nWanted, sClass)
  Test.Equal nNumber, CLng(nWanted), sOperation & " raises " & nWanted
  Test.Equal sSource & ": " & sDescription, sClass & ": Oggetto non inizializzato", sOperation & " names its class"
End Sub

Set oWeb = CreateObject("Korvane_beta1.WebInterface")
Set oBasic = CreateObject("Korvane_beta1.BasicInterface")
Set oBoss = CreateObject("Korvane_beta1.BossObject")
NoError oWeb, "a new WebInterface reports 0 and no text"
NoError oBasic, "a new BasicInterface reports 0 and no text"
NoError oBoss, "a new BossObject reports 0 and no text"
Test.Equal oWeb.Version, "Database", "the version of WebInterface"
Test.Equal oBasic.Version, "SMS", "the version of BasicInterface"
Test.Equal oWeb.ServerPort & " " & oWeb.ServerTimeout & " " & oWeb.UserId & " " & oWeb.MailListPageSize, _
  "110 -1 -100 0", "the starting values of a facade"

On Error Resume Next
x = oWeb.VerifyAccount
nNumber = Err.Number : sSource = Err.Source : sDescription = Err.Description : Err.Clear
Guarded "VerifyAccount", 1500, "WebInterface"
Set x = oWeb.GetListMessagesInBox(1)
nNumber = Err.Number : sSource = Err.Source : sDescription = Err.Description : Err.Clear
Guarded "GetListMessagesInBox", 1500, "WebInterface"
Set x = oWeb.GetMessage(1)
nNumber = Err.Number : sSource = Err.Source : sDescription = Err.Description : Err.Clear
Guarded "GetMessage", 1500, "WebInterface"
x = oWeb.DeleteMessage(1)
nNumber = Err.Number : sSource = Err.Source : sDescription = Err.Description : Err.Clear
Guarded "DeleteMessage", 1500, "WebInterface"
Set x = oWeb.NewMessage
nNumber = Err.Number : sSource = Err.Source : sDescription = Err.Description : Err.Clear
Guarded "NewMessage", 1500, "WebInterface"
x = oWeb.BackgroundClean
nNumber = Err.Number : sSource = Err.Source : sDescription = Err.Description : Err.Clear
Guarded "BackgroundClean", 1500, "WebInterface"

Set x = oBasic.GetListMessagesInBox(1)
nNumber = Err.Number : sSource = Err.Source : sDescription = Err.Description : Err.Clear
Guarded "GetListMessagesInBox", 1499, "BasicInterface"
Set x = oBasic.GetMessage(1)
nNumber = Err.Number : sSource = Err.Source : sDescription = Err.Description : Err.Clear
Guarded "GetMessage", 1499, "BasicInterface"
Set x = oBasic.GetMessageUIDL(1, "u")
nNumber = Err.Number : sSource = Err.Source : sDescription = Err.Description : Err.Clear
Guarded "GetMessageUIDL", 1499, "BasicInterface"
x = oBasic.DeleteMessage(1)
nNumber = Err.Number : sSource = Err.Source : sDescription = Err.Description : Err.Clear
Guarded "DeleteMessage", 1499, "BasicInterface"
x = oBasic.DeleteMessageUIDL(1, "u")
nNumber = Err.Number : sSource = Err.Source : sDescription = Err.Description : Err.Clear
Guarded "DeleteMessageUIDL", 1499, "BasicInterface"

' An error of the object's own is cleared by the guard.
Test.Check Not oWeb.Init(oBoss), "Init without a user fails"
HasError oWeb, 1086, "without a user and without a connection it is 1086, not 1085"
x = oWeb.VerifyAccount
Test.Equal Err.Number, CLng(1500), "the guard raises after a failed Init"
Err.Clear
NoError oWeb, "the guard cleared the error"
oWeb.UserId = 7
Test.Check Not oWeb.Init(oBoss), "Init without a connection fails"
HasError oWeb, 1085, "without a connection it is 1085"
oWeb.ConnDataBase = NewConnection
Test.Check Not oWeb.Init(oBoss), "Init with settings that were not read fails"
HasError oWeb, 1084, "with settings that were not read it is 1084"
Test.Check Not oWeb.Init(Nothing), "Init without settings fails"
Test.Equal oWeb.GetLastError, CLng(1084), "without settings it is 1084"
Test.Equal Err.Number, CLng(0), "none of them raised"
x = oWeb.Init(oBasic)
Test.Equal Err.Number, CLng(13), "Init with another object is 13"
Err.Clear
x = oWeb.Init(5)
Test.Equal Err.Number, CLng(13), "Init with a number is 13"
Err.Clear
oWeb.ConnDataBase = oBoss
Test.Equal Err.Number, CLng(13), "settings are no connection"
Err.Clear
oWeb.ConnDataBase = CreateObject("ADODB.Recordset")
Test.Equal Err.Number, CLng(13), "nor is a recordset"
Err.Clear
Set oWeb.ConnDataBase = NewConnection
Test.Equal Err.Number, CLng(0), "a connection may be assigned with Set"
Err.Clear
Test.Check oWeb.Finish, "Finish is true"
NoError oWeb, "an operation that succeeds clears the error"

' Mistakes of the script.
x = oWeb.Nothing_of_that_name
Test.Equal Err.Number, CLng(438), "a member that is not there is 438"
Err.Clear
x = oWeb.Finish(1)
Test.Equal Err.Number, CLng(450), "too many arguments are 450"
Err.Clear
x = oWeb.GetMessage
Test.Check Err.Number <> 0 And Err.Number <> 1500, "a missing argument is an error of its own"
Err.Clear
oWeb.UserId = "seven"
Test.Equal Err.Number, CLng(13), "a text that is no number is 13"
Err.Clear
oWeb.UserId = CreateObject("ADODB.Recordset")
Test.Check Err.Number <> 0, "an object that is no number is an error"
Err.Clear
oWeb.UserId = 5000000000
Test.Check Err.Number <> 0, "a number beyond 32 bits is an error"
Err.Clear
Test.Equal oWeb.UserId, CLng(7), "a value that is refused changes nothing"
oWeb.Version = "mine"
Test.Check Err.Number <> 0, "a property for reading only cannot be assigned"
Err.Clear
oBoss.KorvaneId = 5
Test.Check Err.Number <> 0, "nor one of the settings"
Err.Clear
oWeb.ConnDataBase = 5
Test.Equal Err.Number, CLng(13), "a number is no connection"
Err.Clear
Set x = CreateObject("Korvane_beta1.MailMessage")
Test.Check Err.Number <> 0, "a MailMessage cannot be created by name"
Err.Clear
Set x = CreateObject("Korvane_beta1.MailUser")
Test.Check Err.Number <> 0, "nor a MailUser"
Err.Clear
