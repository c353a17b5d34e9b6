'#include start.vbs
' The settings of several installations, in the real registry.
Dim oBoss, i, vNumbers, oConn, oRows

Set oBoss = CreateObject("Korvane_beta1.BossObject")
Test.Equal oBoss.ServerTimeout & " " & oBoss.DebugMode & " " & oBoss.IsEnglishDate & " " & oBoss.KorvaneId, _
  "0 0 0 0", "a new object's numbers are 0"
Test.Equal oBoss.PathAtcmts & oBoss.PathAtcmtsInvio & oBoss.URLAtcmts & oBoss.PathMessages & oBoss.PathLog & _
  oBoss.PathBackgrDwnloader & oBoss.DbConnectionString, "", "a new object's texts are empty"
Test.Check Not oBoss.Init(0), "Init(0) is false"
NoError oBoss, "Init(0) leaves no error"
Test.Check Not oBoss.Init(-5), "Init(-5) is false"
NoError oBoss, "Init(-5) leaves no error"
Test.Check Not oBoss.Init(2147483647), "an installation that is not there is refused"
HasError oBoss, 1043, "an installation that is not there is 1043"

Test.Check oBoss.Init(nInstance), "an installation is read"
NoError oBoss, "reading leaves no error"
Test.Equal oBoss.KorvaneId, nInstance, "KorvaneId is the number of the installation"
Test.Equal oBoss.PathAtcmts, sFolder & "\attachments", "PathAtcmts"
Test.Equal oBoss.PathAtcmtsInvio, sFolder & "\outgoing", "PathAtcmtsInvio"
Test.Equal oBoss.URLAtcmts, "https://mail.example.com/files", "URLAtcmts"
Test.Equal oBoss.PathMessages, sFolder & "\messages", "PathMessages"
Test.Equal oBoss.PathLog, sFolder & "\log", "PathLog"
Test.Equal oBoss.PathBackgrDwnloader, sFolder & "\log", "PathBackgrDwnloader comes from PathBackgrDownloader"
Test.Equal oBoss.DbConnectionString, sConnect, "DbConnectionString"
Test.Equal oBoss.ServerTimeout, CLng(3000), "ServerTimeout"
Test.Equal oBoss.DebugMode, CLng(1), "DebugMode"
Test.Check oBoss.Init(0), "a later Init(0) leaves the object initialised"
Test.Check oBoss.Init(2147483647), "a later failing Init does not take initialisation back"
HasError oBoss, 1043, "but its error is there"

' Arguments 5 to 13: installations in which one value is missing, in the order of reading.
vNumbers = Array(1044, 1046, 1045, 1047, 1047, 1047, 1047, 1048)
For i = 0 To 7
  Set oBoss = CreateObject("Korvane_beta1.BossObject")
  Test.Check Not oBoss.Init(CLng(Test.Argument(5 + i))), "without its value " & (i + 1) & " an installation is refused"
  HasError oBoss, vNumbers(i), "without its value " & (i + 1) & " it is " & vNumbers(i)
  If i = 2 Then
    Test.Equal oBoss.PathAtcmts & oBoss.PathAtcmtsInvio & oBoss.PathMessages, _
      sFolder & "\attachments" & sFolder & "\outgoing", "without URLAtcmts the values before it stay, and none behind it is read"
  End If
Next
Set oBoss = CreateObject("Korvane_beta1.BossObject")
Test.Check oBoss.Init(CLng(Test.Argument(13))), "without DebugMode alone an installation is read"
Test.Equal oBoss.DebugMode, CLng(0), "and DebugMode is 0"

' 14: an empty value; 15: 1023 characters; 16: 1024; 17: characters of the code page.
Set oBoss = CreateObject("Korvane_beta1.BossObject")
Test.Check oBoss.Init(CLng(Test.Argument(14))), "a value that is empty is no fault"
Test.Equal oBoss.PathLog, "", "a value that is empty reads as no text"
Set oBoss = CreateObject("Korvane_beta1.BossObject")
Test.Check oBoss.Init(CLng(Test.Argument(15))), "a value of 1023 characters is no fault"
Test.Equal oBoss.PathLog, String(1023, "x"), "a value of 1023 characters reads whole"
Set oBoss = CreateObject("Korvane_beta1.BossObject")
Test.Check Not oBoss.Init(CLng(Test.Argument(16))), "a value of 1024 characters is refused"
HasError oBoss, 1047, "a value of 1024 characters is 1047"
Test.Equal oBoss.PathLog, "", "and reads as no text"
Set oBoss = CreateObject("Korvane_beta1.BossObject")
Test.Check oBoss.Init(CLng(Test.Argument(17))), "a value with letters of the code page is no fault"
Test.Equal oBoss.PathLog, "Z:\posta\città", "a value with letters of the code page reads whole"

' The date order of the database.
Set oConn = NewConnection
Test.Check oBoss.Init2(oConn), "Init2 is true"
NoError oBoss, "Init2 leaves no error"
Test.Equal oBoss.IsEnglishDate, CLng(-1), "a database that writes the day first is -1"
Set oRows = oConn.Execute("SELECT data1 FROM testdata WHERE idtestdata = 1")
Test.Equal Day(oRows("data1").Value) & "." & Month(oRows("data1").Value) & "." & Year(oRows("data1").Value), "3.4.2002", _
  "the probe wrote 3 April"
