// A page in JScript: objects, an Enumerator, errors.
var boss = new ActiveXObject("Korvane_beta1.BossObject");
Test.Check(boss.Init(Test.Argument(1)), "the settings are read");
var connection = new ActiveXObject("ADODB.Connection");
connection.Open(boss.DbConnectionString);
Test.Check(boss.Init2(connection), "the date order is found");

var web = new ActiveXObject("Korvane_beta1.WebInterface");
web.ConnDataBase = connection;
web.UserId = 7;
Test.Check(web.Init(boss), "the facade is ready");
var page = web.GetListMessagesInBox(1);
Test.Equal(web.GetLastError, 0, "getting mail leaves no error");
Test.Equal(page.Count, 25, "the whole box is listed");

web.MailListPageSize = 10;
page = web.GetListMessagesInBox(1, -1, true, false, "", false, 0, 1, 1);
var subjects = "";
for (var e = new Enumerator(page); !e.atEnd(); e.moveNext()) subjects += " " + e.item().Subject(0);
Test.Equal(subjects, " m25 m24 m23 m22 m21 m20 m19 m18 m17 m16", "an Enumerator walks newest first");
var again = "";
for (var i = 1; i <= page.Count; ++i) again += " " + page.ItemIndex(i).Subject(0);
Test.Equal(again, subjects, "ItemIndex gives the same");
Test.Equal(page.Item(page.ItemIndex(2).Id).Subject(0), "m24", "Item finds a message by its Id");
Test.Check(page.ItemIndex(11) === null, "a position behind the end is null");
Test.Equal(page.ItemIndex(1).Letto, false, "a truth value");

var empty = web.GetListMessagesInBox(9, -1);
var walked = 0;
for (var none = new Enumerator(empty); !none.atEnd(); none.moveNext()) ++walked;
Test.Equal(walked, 0, "an Enumerator over nothing ends at once");

function raised(operation) {
  try {
    operation();
  } catch (fault) {
    return (fault.number & 0xFFFF) + " " + fault.description;
  }
  return "nothing";
}
var bare = new ActiveXObject("Korvane_beta1.WebInterface");
Test.Equal(raised(function () { bare.GetMessage(1); }), "1500 Oggetto non inizializzato", "the guard of WebInterface");
var basic = new ActiveXObject("Korvane_beta1.BasicInterface");
Test.Equal(raised(function () { basic.GetMessage(1); }), "1499 Oggetto non inizializzato", "the guard of BasicInterface");
Test.Equal(raised(function () { web.NoSuchMember(); }).substr(0, 3), "438", "a member that is not there");
Test.Check(raised(function () { web.UserId = "seven"; }) != "nothing", "a text that is no number");
Test.Check(raised(function () { web.UserId = {}; }) != "nothing", "an object of the script's");
Test.Equal(raised(function () { new ActiveXObject("Korvane_beta1.MailMessage"); }) == "nothing", false, "a message cannot be created");
web.UserId = 7;

var message = web.NewMessage();
message.NM_Subject = "citt\u00e0 \u0416 \u6f22 \ud83d\ude00";
Test.Check(message.NM_Save(connection), "a message is saved");
Test.Equal(web.GetListMessagesInBox(3, -1).ItemIndex(1).Subject(0), "citt\u00e0 \u0416 \u6f22 \ud83d\ude00", "letters beyond the code page");
Test.Check(web.GetMessage(message.Id) !== null, "it opens");
Test.Check(web.GetMessage(4711) === null, "one that is not there is null");
Test.Equal(web.GetLastError, 1001, "which is 1001");
Test.Check(web.DeleteMessage(message.Id), "it is deleted");
