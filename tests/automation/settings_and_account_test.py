"""Settings, accounts and the facades' preconditions, through Python."""

import sqlite3
import unittest

from pop3_server import Pop3Server
from site_fixture import SiteTest, error_of, korvane, message


class Settings(SiteTest):
    def boss(self):
        return korvane.create("BossObject")

    def test_init_of_0_and_of_minus_5_return_false_and_leave_error_0(self):
        boss = self.boss()
        for number in (0, -5):
            self.assertFalse(boss.Init(number))
            self.assertEqual(error_of(boss), (0, ""))

    def test_a_key_in_which_only_debugmode_is_missing_initialises_with_debugmode_0(self):
        self.site.write_settings(without=["DebugMode"])
        boss = self.boss()
        self.assertTrue(boss.Init(1))
        self.assertEqual(boss.DebugMode, 0)

    def test_a_key_without_urlatcmts_fails_with_1045_and_keeps_what_was_read_before_it(self):
        self.site.write_settings(without=["URLAtcmts"])
        boss = self.boss()
        self.assertFalse(boss.Init(1))
        self.assertEqual(error_of(boss), (1045, "XXX"))
        self.assertEqual(boss.PathAtcmts, self.site.settings["PathAtcmts"])
        self.assertEqual(boss.PathAtcmtsInvio, self.site.settings["PathAtcmtsInvio"])
        self.assertEqual(boss.PathMessages, "")

    def test_each_missing_value_has_its_number(self):
        for name, number in (("PathAtcmts", 1044), ("PathAtcmtsInvio", 1046), ("URLAtcmts", 1045),
                             ("PathMessages", 1047), ("PathLog", 1047), ("PathBackgrDownloader", 1047),
                             ("DbConnectionString", 1047), ("ServerTimeout", 1048)):
            with self.subTest(name):
                self.site.write_settings(without=[name])
                boss = self.boss()
                self.assertFalse(boss.Init(1))
                self.assertEqual(error_of(boss), (number, "XXX"))

    def test_an_installation_that_is_not_there_is_1043(self):
        boss = self.boss()
        self.assertFalse(boss.Init(2))
        self.assertEqual(error_of(boss), (1043, "XXX"))
        self.assertEqual(boss.KorvaneId, 2)

    def test_a_later_failing_init_does_not_take_initialisation_back(self):
        boss = self.boss()
        self.assertTrue(boss.Init(1))
        self.assertTrue(boss.Init(2))
        self.assertEqual(boss.GetLastError, 1043)

    def test_before_a_successful_read_the_time_out_is_0(self):
        self.assertEqual(self.boss().ServerTimeout, 0)

    def test_an_empty_value_reads_as_no_text(self):
        self.site.write_settings(PathLog="")
        boss = self.boss()
        self.assertTrue(boss.Init(1))
        self.assertEqual(boss.PathLog, "")

    def test_a_value_of_1023_characters_reads_whole_and_one_of_1024_fails(self):
        self.site.write_settings(PathLog="x" * 1023)
        boss = self.boss()
        self.assertTrue(boss.Init(1))
        self.assertEqual(boss.PathLog, "x" * 1023)
        self.site.write_settings(PathLog="x" * 1024)
        boss = self.boss()
        self.assertFalse(boss.Init(1))
        self.assertEqual((boss.GetLastError, boss.PathLog), (1047, ""))

    def test_init2_finds_that_the_database_writes_the_day_first(self):
        boss = self.boss()
        self.assertTrue(boss.Init2(korvane.connect(self.site.url)))
        self.assertEqual(boss.IsEnglishDate, -1)

    def test_init2_finds_that_the_database_writes_the_month_first(self):
        boss = self.boss()
        self.assertTrue(boss.Init2(korvane.connect(self.site.url + "?dates=month-first")))
        self.assertEqual(boss.IsEnglishDate, 1)


class WebInit(SiteTest):
    def test_init_before_userid_and_without_a_connection_reports_1086_not_1085(self):
        web = korvane.create("WebInterface")
        self.assertFalse(web.Init(self.site.boss()))
        self.assertEqual(error_of(web), (1086, "XXX"))

    def test_init_without_a_connection_is_1085(self):
        web = korvane.create("WebInterface")
        web.UserId = 7
        self.assertFalse(web.Init(self.site.boss()))
        self.assertEqual(error_of(web), (1085, "XXX"))

    def test_init_with_settings_that_were_not_read_is_1084(self):
        web = korvane.create("WebInterface")
        web.UserId = 7
        web.ConnDataBase = korvane.connect(self.site.url)
        self.assertFalse(web.Init(korvane.create("BossObject")))
        self.assertEqual(error_of(web), (1084, "XXX"))

    def test_a_user_without_a_default_account_fails_with_1035(self):
        self.site.add_account(5, 1)
        web = korvane.create("WebInterface")
        web.UserId = 7
        web.ConnDataBase = korvane.connect(self.site.url)
        self.assertFalse(web.Init(self.site.boss()))
        self.assertEqual(error_of(web), (1035, "XXX"))
        self.assertTrue(web.Init(self.site.boss(), -10))

    def test_the_page_size_is_25_after_init_whatever_was_set_before(self):
        self.site.add_account(5, 1, default=True)
        web = korvane.create("WebInterface")
        web.UserId, web.MailListPageSize = 7, 3
        web.ConnDataBase = korvane.connect(self.site.url)
        self.assertTrue(web.Init(self.site.boss()))
        self.assertEqual(web.MailListPageSize, 25)

    def test_init_without_an_account_takes_the_settings_time_out_only_when_none_was_set(self):
        for given, expected in ((None, 3000), (50, 50)):
            web = korvane.create("WebInterface")
            web.UserId = 7
            if given:
                web.ServerTimeout = given
            web.ConnDataBase = korvane.connect(self.site.url)
            self.assertTrue(web.Init(self.site.boss(), -10))
            self.assertEqual(web.ServerTimeout, expected)

    def test_userid_written_after_init_reaches_the_account(self):
        with Pop3Server([message()]) as server:
            self.site.add_account(5, server.port, user=7, default=True)
            web = self.site.web(7)
            web.GetListMessagesInBox(1)
            self.assertEqual(web.GetListMessagesInBox(1, -1).Count, 1)
            web.UserId = 8
            self.assertEqual(web.GetListMessagesInBox(1, -1).Count, 0)

    def test_finish_returns_true_and_clears_the_error(self):
        web = korvane.create("WebInterface")
        web.Init(None)
        self.assertTrue(web.Finish())
        self.assertEqual(error_of(web), (0, ""))


class Verifying(SiteTest):
    def test_verifying_account_5_leaves_the_current_account_7_loaded(self):
        with Pop3Server() as five, Pop3Server() as seven:
            self.site.add_account(5, five.port)
            self.site.add_account(7, seven.port, default=True)
            web = self.site.web()
            self.assertTrue(web.VerifyAccount(5))
            self.assertEqual((five.sessions, seven.sessions), (1, 0))
            self.assertEqual(web.ServerPort, seven.port)
            self.assertEqual(five.commands, ["USER ann", "PASS", "QUIT"])

    def test_verifying_an_account_that_does_not_exist_is_1035_and_keeps_the_current_one(self):
        self.site.add_account(7, 1, default=True)
        web = self.site.web()
        self.assertFalse(web.VerifyAccount(99))
        self.assertEqual((error_of(web), web.ServerPort), ((1035, "XXX"), 1))

    def test_a_wrong_password_is_1203_with_the_servers_line(self):
        with Pop3Server(password="another") as server:
            self.site.add_account(7, server.port, default=True)
            web = self.site.web()
            self.assertFalse(web.VerifyAccount())
            self.assertEqual(web.GetLastError, 1203)
            self.assertTrue(web.GetLastErrorDesc.startswith("-ERR wrong password"))
            self.assertNotIn("secret", web.GetLastErrorDesc)

    def test_a_server_that_refuses_is_1093(self):
        self.site.add_account(7, 1, default=True)
        web = self.site.web()
        self.assertFalse(web.VerifyAccount())
        self.assertEqual(error_of(web), (1093, "XXX"))

    def test_an_account_of_kind_2_takes_the_pages_password_and_one_of_kind_0_the_stored_one(self):
        with Pop3Server(password="from the page") as server:
            self.site.add_account(5, server.port, default=True, caso=2, password="stored")
            self.site.add_account(6, server.port, caso=0, password="stored")
            web = korvane.create("WebInterface")
            web.UserId, web.Password = 7, "from the page"
            web.ConnDataBase = korvane.connect(self.site.url)
            self.assertTrue(web.Init(self.site.boss()))
            self.assertTrue(web.VerifyAccount())
            self.assertFalse(web.VerifyAccount(6))
            self.assertEqual(web.GetLastError, 1203)
            self.assertTrue(web.VerifyAccount(), "account 5 must have the page's password again")

    def test_an_account_of_kind_1_without_a_password_of_the_page_sends_nothing(self):
        with Pop3Server() as server:
            self.site.add_account(5, server.port, default=True, caso=1)
            web = self.site.web()
            self.assertFalse(web.VerifyAccount())
            self.assertEqual((error_of(web), server.commands), ((1093, "XXX"), []))

    def test_a_user_name_with_a_line_break_sends_nothing(self):
        with Pop3Server() as server:
            self.site.add_account(5, server.port, default=True, username="ann\r\nDELE 1")
            web = self.site.web()
            self.assertFalse(web.VerifyAccount())
            self.assertEqual((error_of(web), server.commands), ((1093, "XXX"), []))


class Basic(unittest.TestCase):
    def basic(self, server, **options):
        basic = korvane.create("BasicInterface")
        basic.MailServer, basic.ServerPort = "127.0.0.1", server.port
        basic.Username, basic.Password, basic.ServerTimeout = "ann", "secret", 2000
        for name, value in options.items():
            setattr(basic, name, value)
        return basic

    def test_init_without_a_connection_does_not_contact_the_server_and_getmessage_finds_no_session(self):
        with Pop3Server([message()]) as server:
            basic = self.basic(server)
            self.assertTrue(basic.Init(False))
            self.assertEqual(server.sessions, 0)
            self.assertIsNone(basic.GetMessage(1))
            self.assertEqual(error_of(basic), (1063, "XXX"))

    def test_a_unique_id_that_does_not_match_returns_no_message_and_reports_the_clients_error(self):
        with Pop3Server([message()]) as server:
            basic = self.basic(server)
            self.assertTrue(basic.Init())
            self.assertIsNone(basic.GetMessageUIDL(1, "another"))
            self.assertEqual(error_of(basic), (1065, "XXX"))
            self.assertFalse(basic.DeleteMessageUIDL(1, "another"))
            self.assertEqual(error_of(basic), (1065, "XXX"))
            self.assertEqual(server.count("RETR") + server.count("DELE"), 0)
            self.assertEqual(basic.GetMessageUIDL(1, server.uid(1)).Subject(0), "Hello")
            self.assertTrue(basic.DeleteMessageUIDL(1, server.uid(1)))

    def test_dropping_a_connected_facade_without_finish_still_sends_quit(self):
        with Pop3Server([message()]) as server:
            basic = self.basic(server)
            self.assertTrue(basic.Init())
            del basic
            self.assertEqual(server.commands[-1], "QUIT")

    def test_finish_sends_quit_and_a_second_finish_does_not_hang(self):
        with Pop3Server([message()]) as server:
            basic = self.basic(server)
            self.assertTrue(basic.Finish(), "nothing to end before Init")
            self.assertTrue(basic.Init())
            self.assertTrue(basic.Finish())
            self.assertEqual(server.commands[-1], "QUIT")
            basic.Finish()
            self.assertEqual(server.count("QUIT"), 1)

    def test_the_time_out_is_7000_unless_the_page_set_one(self):
        with Pop3Server() as server:
            for given, expected in ((None, 7000), (2000, 2000)):
                basic = korvane.create("BasicInterface")
                if given:
                    basic.ServerTimeout = given
                basic.MailServer, basic.ServerPort = "127.0.0.1", server.port
                self.assertTrue(basic.Init(False))
                self.assertEqual(basic.ServerTimeout, expected)

    def test_page_2_of_25_messages_with_a_page_size_of_10_holds_messages_15_down_to_6(self):
        with Pop3Server([message("m%d" % n) for n in range(1, 26)]) as server:
            basic = self.basic(server)
            self.assertTrue(basic.Init())
            basic.MailListPageSize = 10
            pages, mails = korvane.Ref(0), korvane.Ref(0)
            for number, expected in ((1, range(25, 15, -1)), (2, range(15, 5, -1)), (3, range(5, 0, -1)), (4, ())):
                page = basic.GetListMessagesInBox(1, number, pages, mails)
                self.assertEqual([m.Subject(0) for m in page], ["m%d" % n for n in expected])
                self.assertEqual((pages.value, mails.value), (3, 25))
            everything = basic.GetListMessagesInBox(1)
            self.assertEqual(everything.Count, 25)
            self.assertEqual(everything.Item(25).Subject(0), "m25")

    def test_an_empty_mailbox_has_an_empty_page_and_no_pages(self):
        with Pop3Server() as server:
            basic = self.basic(server)
            self.assertTrue(basic.Init())
            pages, mails = korvane.Ref(9), korvane.Ref(9)
            self.assertEqual(basic.GetListMessagesInBox(1, 1, pages, mails).Count, 0)
            self.assertEqual((pages.value, mails.value, basic.GetLastError), (0, 0, 0))

    def test_a_page_size_of_0_is_an_error_never_a_crash(self):
        with Pop3Server([message()]) as server:
            basic = self.basic(server)
            self.assertTrue(basic.Init())
            for size in (0, -1, -2**31):
                basic.MailListPageSize = size
                basic.GetListMessagesInBox(1, 1)
                self.assertNotEqual(basic.GetLastError, 0)

    def test_a_greeting_that_starts_with_a_minus_ends_the_session_with_quit_and_no_error(self):
        with Pop3Server([message()], greeting=b"-ERR busy\r\n") as server:
            basic = self.basic(server)
            self.assertTrue(basic.Init())
            self.assertEqual(error_of(basic), (0, ""))
            self.assertEqual(server.commands, ["QUIT"])
            self.assertIsNone(basic.GetMessage(1))
            self.assertEqual(basic.GetLastError, 1063)

    def test_a_failed_header_leaves_the_page_without_it_and_sets_1067(self):
        with Pop3Server([message("One"), message("Two")], replies={"TOP 2 0": b"-ERR locked\r\n"}) as server:
            basic = self.basic(server)
            self.assertTrue(basic.Init())
            page = basic.GetListMessagesInBox(1)
            self.assertEqual([m.Subject(0) for m in page], ["One"])
            self.assertEqual(error_of(basic), (1067, "XXX"))

    def test_rejections_carry_their_number_and_the_servers_reply(self):
        for line, act, number in (("STAT", lambda b: b.GetListMessagesInBox(1), 1204),
                                  ("RETR", lambda b: b.GetMessage(1), 1205),
                                  ("DELE", lambda b: b.DeleteMessage(1), 1206),
                                  ("UIDL", lambda b: b.GetMessageUIDL(1, "x"), 1210)):
            with self.subTest(line), Pop3Server([message()], replies={line: b"-ERR no " + line.encode() + b"\r\n"}) as server:
                basic = self.basic(server)
                self.assertTrue(basic.Init())
                self.assertFalse(act(basic))
                self.assertEqual(basic.GetLastError, number)
                self.assertTrue(basic.GetLastErrorDesc.startswith("-ERR no " + line))

    def test_uidl_replies_without_their_fields_are_1075_and_1076(self):
        for reply, number in ((b"+OK\r\n", 1075), (b"+OK 1\r\n", 1076)):
            with self.subTest(reply), Pop3Server([message()], replies={"UIDL": reply}) as server:
                basic = self.basic(server)
                self.assertTrue(basic.Init())
                self.assertIsNone(basic.GetMessageUIDL(1, "x"))
                self.assertEqual(error_of(basic), (number, "XXX"))

    def test_a_message_is_built_without_list_and_uidl(self):
        replies = {"LIST": b"-ERR unknown\r\n", "UIDL": b"-ERR unknown\r\n"}
        with Pop3Server([message("One")], replies=replies) as server:
            basic = self.basic(server)
            self.assertTrue(basic.Init())
            opened = basic.GetMessage(1)
            self.assertEqual((opened.Subject(0), opened.Size, opened.MessageUIDL), ("One", 0, ""))

    def test_a_line_that_the_server_sent_with_two_dots_shows_one(self):
        with Pop3Server([message(body=".x\r\n..y\r\n")]) as server:
            basic = self.basic(server)
            self.assertTrue(basic.Init())
            text = korvane.Ref("")
            self.assertTrue(basic.GetMessage(1).MessageBody(text, 1, 0))
            self.assertEqual(text.value.splitlines(), [".x", "..y"])

    def test_a_silent_server_is_1063_within_its_time_out(self):
        with Pop3Server(greeting=b"") as server:
            basic = self.basic(server, ServerTimeout=200)
            self.assertFalse(basic.Init())
            self.assertEqual(error_of(basic), (1063, "XXX"))

    def test_an_additional_init_ends_the_open_session_first(self):
        with Pop3Server([message()]) as server:
            basic = self.basic(server)
            self.assertTrue(basic.Init())
            self.assertTrue(basic.Init())
            self.assertEqual((server.sessions, server.count("QUIT")), (2, 1))


if __name__ == "__main__":
    unittest.main()
