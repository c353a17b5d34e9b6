"""A site whose tables are its own: other declared types, no primary keys, a table where ours is a view,
none of the additional tables."""

import sqlite3
import unittest

from pop3_server import Pop3Server
from site_fixture import SiteTest, error_of, korvane, message

KINDS = (("BOOLEAN", "DATETIME", "PRIMARY KEY", "2002-03-22 00:00:00"), ("INTEGER", "TEXT", "", "22/03/2002"),
         ("BIT", "TIMESTAMP", "", "2002-03-22"), ("SMALLINT", "DATE", "NOT NULL PRIMARY KEY", "22/03/2002 00:00:00"))


class OwnTables(SiteTest):
    def make_tables(self, boolean, date, key, day):
        self.site.database.unlink(missing_ok=True)
        with sqlite3.connect(self.site.database) as plain:
            plain.execute(
                "CREATE TABLE Query1_account (id_utente INTEGER, Id_account_email INTEGER, Id_account_email_utenti INTEGER, "
                "Account_default INTEGER, Nome_server TEXT, Porta_server INTEGER, Time_out_server INTEGER, "
                "Username_server TEXT, Password_server TEXT, caso INTEGER)")
        database = korvane.connect(self.site.url)
        database.Execute(
            f"CREATE TABLE mail (id_mail INTEGER {key}, id_utente INTEGER, id_server INTEGER, id_cartella INTEGER, Letto {boolean}, "
            f"mittente VARCHAR(255), destinatario TEXT, data {date}, oggetto VARCHAR(150), dimensione INTEGER, campo_received TEXT, "
            f"campo_MessageId VARCHAR(255), allegati {boolean}, body_scaricato INTEGER, IdSulServer INTEGER, DataDownload TEXT, "
            f"Cancellata {boolean}, DwnldCorrettoFAQ {boolean})")
        database.Execute(f"CREATE TABLE ultimi_scaricamenti (Id_scaricamento INTEGER {key}, id_utente INTEGER, id_server INTEGER, "
                         f"Data {date}, Error {boolean})")
        database.Execute(f"CREATE TABLE Pulizia (id_pulizia INTEGER {key}, id_utente INTEGER, dim_msg_canc_file INTEGER)")
        database.Execute(f"CREATE TABLE testdata (idtestdata INTEGER {key}, data1 {date}, data3 {date})")
        database.Execute(f"INSERT INTO testdata (idtestdata, data1, data3) VALUES (1, '{day}', '{day}')")
        return database

    def test_a_site_with_tables_of_its_own_uses_everything(self):
        for kinds in KINDS:
            with self.subTest(kinds), Pop3Server(
                    [message("s%02d" % n, received="Tue, 5 Mar 2002 10:%02d:00 +0000" % n) for n in range(1, 31)]) as server:
                database = self.make_tables(*kinds)
                database.Execute(f"INSERT INTO Query1_account VALUES (7, 5, 50, 50, '127.0.0.1', {server.port}, 3000, 'ann', 'secret', 0)")
                self.use_everything(database)

    def use_everything(self, database):
        boss = self.site.boss()
        self.assertTrue(boss.Init2(database))
        self.assertEqual(boss.IsEnglishDate, -1)
        web = korvane.create("WebInterface")
        web.ConnDataBase, web.UserId = database, 7
        self.assertTrue(web.Init(boss), error_of(web))
        pages, mails = korvane.Ref(0), korvane.Ref(0)
        page = web.GetListMessagesInBox(1, bDownloadHeaderOnly=False, lPageNum=2, lTotPages=pages, lTotMails=mails)
        self.assertEqual((error_of(web), pages.value, mails.value), ((0, ""), 2, 30))
        self.assertEqual([m.Subject(0) for m in page], ["s05", "s04", "s03", "s02", "s01"])
        self.assertEqual(page.ItemIndex(1).ReceivedDate, "05/03/2002 10:05:00")
        self.assertEqual(web.GetMessage(1).Subject(0), "s01")
        self.assertTrue(web.DeleteMessage("1,2", korvane.EDelType.DEL_TYPE_LOCALE), error_of(web))
        self.assertEqual(web.GetListMessagesInBox(1).Count, 28)
        new = web.NewMessage()
        new.NM_Subject, new.NM_From = "draft", "a@example.com"
        self.assertTrue(new.NM_Save(database), error_of(new))
        self.assertEqual(web.GetListMessagesInBox(3, -1).ItemIndex(1).Subject(0), "draft")
        database.Execute("UPDATE Pulizia SET dim_msg_canc_file=9999999")
        self.assertTrue(web.BackgroundClean(), error_of(web))
        self.assertEqual(web.GetMessage(3).Subject(0), "s03")


if __name__ == "__main__":
    unittest.main()
