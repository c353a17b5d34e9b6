"""The same claims over a real server: Dovecot holds the mailbox, Python is the page."""

import unittest

from dovecot import Dovecot
from site_fixture import HERE, SiteTest, error_of, korvane, message

ASC = 0


def dated(n, **fields):
    return message(fields.pop("subject", "m%d" % n), received="Tue, 5 Mar 2002 10:%02d:00 +0000" % n,
                   message_id="<%d@example.com>" % n, **fields)


class RealServer(SiteTest):
    """25 messages on the server; account 5 is the user's default."""

    def setUp(self):
        super().setUp()
        self.server = Dovecot(["ann", "bob"])
        self.server.__enter__()
        self.addCleanup(self.server.__exit__)
        for n in range(1, 26):
            self.server.deliver("ann", dated(n, body="text of %d\r\n.dots\r\n" % n))
        self.site.add_account(5, self.server.port, default=True)
        self.web = self.site.web()

    def text_of(self, opened):
        text = korvane.Ref("")
        self.assertTrue(opened.MessageBody(text, 1, 0), error_of(opened))
        return text.value

    def basic(self):
        basic = korvane.create("BasicInterface")
        basic.MailServer, basic.ServerPort, basic.Username, basic.Password = HERE, self.server.port, "ann", "secret"
        self.assertTrue(basic.Init(), error_of(basic))
        return basic


class Store(RealServer):
    def test_a_first_synchronisation_stores_all_and_a_second_none(self):
        for whole in (False, True):
            for _ in range(2):
                page = self.web.GetListMessagesInBox(1, bDownloadHeaderOnly=not whole)
                self.assertEqual((error_of(self.web), page.Count), ((0, ""), 25))

    def test_an_account_verifies_and_a_wrong_password_is_1203(self):
        self.assertTrue(self.web.VerifyAccount())
        self.web.Password = "wrong"
        self.assertFalse(self.web.VerifyAccount())
        self.assertEqual(self.web.GetLastError, 1203)
        self.assertTrue(self.web.GetLastErrorDesc.startswith("-ERR"))

    def test_opening_a_header_only_message_fetches_stores_and_deletes_it_on_the_server(self):
        number = self.web.GetListMessagesInBox(1).ItemIndex(1).Id
        opened = self.web.GetMessage(number, bDeleteMessageOnMailServer=True)
        self.assertEqual((opened.Subject(0), opened.IdOnServer, self.web.GetLastError), ("m25", -100, 0))
        self.assertEqual(self.text_of(opened), "text of 25\r\n.dots")
        self.assertEqual(len(self.server.held("ann")), 24)
        self.server.__exit__()
        self.assertEqual(self.text_of(self.web.GetMessage(number)), "text of 25\r\n.dots")

    def test_a_whole_download_that_deletes_leaves_the_server_empty_and_the_box_full(self):
        page = self.web.GetListMessagesInBox(1, bDownloadHeaderOnly=False, bDeleteMessageOnMailServer=True)
        self.assertEqual((page.Count, error_of(self.web), len(self.server.held("ann"))), (25, (0, ""), 0))
        self.assertEqual(self.site.sql("SELECT DISTINCT IdSulServer FROM mail"), [(-100,)])

    def test_deleting_here_on_the_server_and_on_both(self):
        ids = [m.Id for m in self.web.GetListMessagesInBox(1, modMailOrderDirection=ASC)]
        self.assertTrue(self.web.DeleteMessage(ids[0], korvane.EDelType.DEL_TYPE_LOCALE))
        self.assertTrue(self.web.DeleteMessage("%d,%d" % (ids[1], ids[2]), korvane.EDelType.DEL_TYPE_SERVER))
        self.assertTrue(self.web.DeleteMessage("%d , %d" % (ids[3], ids[4])))
        self.assertEqual((self.web.GetListMessagesInBox(1).Count, len(self.server.held("ann"))), (22, 21))

    def test_a_message_that_left_the_server_counts_as_deleted_there(self):
        ids = [m.Id for m in self.web.GetListMessagesInBox(1, modMailOrderDirection=ASC)]
        basic = self.basic()
        self.assertTrue(basic.DeleteMessage(1))
        self.assertTrue(basic.Finish())
        self.assertTrue(self.web.DeleteMessage(ids[0]))
        self.assertEqual((error_of(self.web), len(self.server.held("ann"))), ((0, ""), 24))

    def test_all_accounts_are_synchronised_and_the_one_before_is_loaded_again(self):
        self.server.deliver("bob", dated(40, subject="for bob"))
        self.site.add_account(6, self.server.port, username="bob")
        self.assertEqual(self.web.GetListMessagesInBox(1, -100).Count, 26)
        self.assertEqual((error_of(self.web), self.web.Username), ((0, ""), "ann"))

    def test_a_server_that_went_away_yields_the_stored_messages(self):
        self.web.GetListMessagesInBox(1)
        self.server.__exit__()
        page = self.web.GetListMessagesInBox(1)
        self.assertEqual((page.Count, error_of(self.web)), (25, (1093, "XXX")))


class Reduced(RealServer):
    def test_pages_hold_the_newest_first(self):
        basic, pages, mails = self.basic(), korvane.Ref(0), korvane.Ref(0)
        basic.MailListPageSize = 10
        for number, expected in ((1, range(25, 15, -1)), (2, range(15, 5, -1)), (3, range(5, 0, -1)), (4, ())):
            page = basic.GetListMessagesInBox(1, number, pages, mails)
            self.assertEqual([m.Subject(0) for m in page], ["m%d" % n for n in expected])
            self.assertEqual((pages.value, mails.value), (3, 25))

    def test_the_unique_id_guards_reading_and_deleting(self):
        basic = self.basic()
        uid = basic.GetListMessagesInBox(1).Item(7).MessageUIDL
        self.assertEqual(basic.GetMessageUIDL(7, uid).Subject(0), "m7")
        self.assertIsNone(basic.GetMessageUIDL(8, uid))
        self.assertEqual(error_of(basic), (1065, "XXX"))
        self.assertFalse(basic.DeleteMessageUIDL(8, uid))
        self.assertTrue(basic.DeleteMessageUIDL(7, uid))
        self.assertTrue(basic.Finish())
        self.assertEqual(len(self.server.held("ann")), 24)

    def test_dropping_the_facade_without_finish_still_sends_quit(self):
        basic = self.basic()
        self.assertTrue(basic.DeleteMessage(3))
        del basic
        self.assertEqual(len(self.server.held("ann")), 24, "only QUIT makes a deletion final")

    def test_a_number_that_is_not_there_is_the_servers_refusal(self):
        basic = self.basic()
        self.assertIsNone(basic.GetMessage(99))
        self.assertEqual(basic.GetLastError, 1205)
        self.assertFalse(basic.DeleteMessage(99))
        self.assertEqual(basic.GetLastError, 1206)


if __name__ == "__main__":
    unittest.main()
