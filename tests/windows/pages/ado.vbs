'#include start.vbs
' The tests' own database objects, without the component.
Dim oConn, oRows, nNumber, sSource, nFound

Sub Raised(nWanted, sClaim)
  nNumber = Err.Number
  Err.Clear
  Test.Equal Hex(nNumber), Hex(nWanted), sClaim
End Sub

Set oConn = CreateObject("ADODB.Connection")
Test.Equal oConn.State, CLng(0), "a connection begins closed"
oConn.Open sConnect
Test.Equal oConn.State, CLng(1), "and opens"
Set oRows = CreateObject("ADODB.Recordset")
oRows.CursorLocation = 2
oRows.CursorType = 2
oRows.LockType = 3
Set oRows.ActiveConnection = oConn
oRows.Open "select * from testdata where idtestdata = 1"
Test.Equal oRows.State, CLng(1), "a recordset opens"
Test.Equal TypeName(oRows.Fields("DATA3").Value), "Date", "a date column is a date, its name in any case"
Test.Equal Day(oRows("data3")), Day(#2002-03-22#), "a field's value is its default, and fields are a recordset's"
Test.Equal oRows.Fields.Item(0).Name, "idtestdata", "fields by number"
oRows.Fields("data1") = "03/04/2002"
oRows.Update
Test.Equal Day(oRows("data1")) & "." & Month(oRows("data1")), "3.4", "a text is read day first"
oRows("data1") = #2002-04-05 10:11:12#
oRows.Update
Test.Equal Hour(oRows("data1")) & ":" & Second(oRows("data1")), "10:12", "a date goes in as it is"
oRows("data1") = "01/01/0001 00:00:00"
oRows.Update
oRows.Close
oRows.Open
Test.Equal oRows("data1").Value, "01/01/0001 00:00:00", "the year 1 is a text"
oRows("data1") = Null
oRows.Update
Test.Check IsNull(oRows("data1").Value), "null"
oRows.Close

oRows.Open "mail", oConn, 2, 3
Test.Check oRows.EOF And oRows.BOF, "a table without rows"
oRows.AddNew
oRows("id_mail") = 17
oRows("id_utente") = "7"
oRows("Letto") = True
oRows("oggetto") = "città 'Ж' 😀 \"
oRows("destinatario") = String(20000, "ж")
oRows.Update
Test.Check Not oRows.EOF, "a new row is the current one"
oRows.AddNew
oRows("id_mail") = 18
oRows("id_utente") = 7
oRows.Update
oRows.AddNew
oRows("id_mail") = 19
oRows.CancelUpdate
oRows.Close
oRows.Open "SELECT TOP 5 * FROM mail WHERE id_utente=7AND Cancellata=0 ORDER BY id_mail", oConn, 2, 3
Test.Equal oRows.RecordCount, CLng(2), "TOP, a number run into a word and a boolean are understood"
Test.Equal oRows("oggetto").Value, "città 'Ж' 😀 \", "letters, quotes and a backslash"
Test.Equal Len(oRows("destinatario").Value), CLng(20000), "a long text"
Test.Equal oRows("Letto").Value, True, "a truth value"
Test.Equal oRows("id_mail").Value, CLng(17), "a number"
Test.Check IsNull(oRows("mittente").Value), "what was not assigned is null"
oRows.MoveLast
Test.Equal oRows("id_mail").Value, CLng(18), "MoveLast"
oRows.MovePrevious
Test.Equal oRows("id_mail").Value, CLng(17), "MovePrevious"
oRows.Move 1
Test.Equal oRows("id_mail").Value, CLng(18), "Move"
oRows.Move -1
oRows.MoveNext
oRows.MoveNext
Test.Check oRows.EOF, "MoveNext to the end"
On Error Resume Next
oRows.MoveNext
Raised &HBCD, "MoveNext behind the end is 3021"
nFound = oRows("id_mail").Value
Raised &HBCD, "a value behind the end is 3021"
oRows.MoveFirst
Set nFound = oRows.Fields("nobody")
Raised &HCC1, "a field that is not there is 3265"
Set nFound = oRows.Fields(99)
Raised &HCC1, "nor one of that number"
oRows("data") = "no date"
Raised &H80040E21, "a text that is no date is refused"
oRows.CancelUpdate
oRows.Open "mail"
Raised &HE79, "an open recordset does not open again"
oConn.Execute "UPDATE mail SET oggetto='other' WHERE id_mail=17"
oRows("oggetto") = "mine"
oRows.Update
Raised &H80040E38, "a row that somebody else changed is not overwritten"
oRows.CancelUpdate
oRows.Close
oRows.MoveNext
Raised &HE78, "a closed recordset does not move"
oRows.Open "mail", oConn, 2, 3
oRows.AddNew
oRows("id_mail") = 17
oRows("id_utente") = 7
oRows.Update
Raised &H80040E2F, "an identifier that is taken is refused"
oRows.CancelUpdate
oRows.Close
Set oRows = oConn.Execute("SELEC 1")
Raised &H80040E14, "what is no statement is refused"
Set oRows = oConn.Execute("SELECT 1 FROM nowhere")
Raised &H80040E37, "a table that is not there"
Set oRows = oConn.Execute("SELECT 'a")
Raised &H80040E14, "a quote without an end"
Set oRows = oConn.Execute("SELECT MAX(id_mail) FROM mail WHERE oggetto='other'")
Test.Equal oRows(0).Value, CLng(17), "the connection runs a query"
oRows("x") = 5
Test.Check Err.Number <> 0, "its rows are for reading"
Err.Clear
Set oRows = oConn.Execute("DELETE FROM mail WHERE id_utente=7", nFound)
Test.Equal nFound, CLng(2), "the connection counts what a statement changed"
Test.Equal oRows.State, CLng(0), "and gives a closed recordset"
oConn.Close
oRows.Open "mail", oConn
Test.Check Err.Number <> 0, "a closed connection opens nothing"
Err.Clear
