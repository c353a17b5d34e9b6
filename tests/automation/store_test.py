"""Synchronising, listing, opening, deleting, composing and cleaning, through Python."""

import os
import pathlib
import unittest

from pop3_server import Pop3Server
from site_fixture import HERE, SiteTest, error_of, korvane, message

ASC, DESC = 0, 1


def dated(n, **fields):
    """Message n, received n minutes past ten."""
    return message(fields.pop("subject", "m%d" % n), received="Tue, 5 Mar 2002 10:%02d:00 +0000" % n, **fields)


MIXED = ("Content-Type: multipart/mixed; boundary=\"b\"",)


def two_reports():
    part = "--b\r\nContent-Type: application/pdf; name=report.pdf\r\n\r\n%s\r\n"
    return "--b\r\n\r\ntext\r\n" + part % "first" + part % "second" + "--b--\r\n"


class Synchronising(SiteTest):
    def web_over(self, server, **account):
        self.site.add_account(5, server.port, default=True, **account)
        return self.site.web()

    def test_minus_1_lists_without_contacting_a_server_or_touching_the_bookkeeping(self):
        with Pop3Server([dated(1)]) as server:
            web = self.web_over(server)
            self.assertEqual(web.GetListMessagesInBox(1, -1).Count, 0)
            self.assertEqual((server.sessions, self.site.sql("SELECT COUNT(*) FROM ultimi_scaricamenti")[0][0]), (0, 0))

    def test_a_first_synchronisation_stores_all_and_a_second_none(self):
        with Pop3Server([dated(n) for n in range(1, 8)]) as server:
            web = self.web_over(server)
            for _ in range(2):
                page = web.GetListMessagesInBox(1, bDownloadHeaderOnly=False, bFirstDownload=True)
                self.assertEqual((web.GetLastError, page.Count), (0, 7))
            self.assertEqual(server.count("RETR"), 7)

    def test_a_second_run_after_a_declared_first_download_asks_for_one_header_only(self):
        with Pop3Server([dated(n) for n in range(1, 8)]) as server:
            web = self.web_over(server)
            web.GetListMessagesInBox(1, bFirstDownload=True)
            server.commands.clear()
            web.GetListMessagesInBox(1)
            self.assertEqual(server.count("TOP"), 1)

    def test_without_a_declaration_the_row_starts_at_the_year_1_and_every_message_is_looked_up(self):
        with Pop3Server([dated(1)], replies={"TOP": b"-ERR later\r\n"}) as server:
            web = self.web_over(server)
            page = web.GetListMessagesInBox(1)
            self.assertEqual((web.GetLastError, page.Count), (1068, 0))
            (time, error), = self.site.sql("SELECT Data, Error FROM ultimi_scaricamenti")
            self.assertIn("0001-01-01", time)
            self.assertNotEqual(error, 0)

    def test_a_server_that_cannot_be_reached_yields_the_stored_messages_and_the_clients_error(self):
        server = Pop3Server([dated(1)])
        with server:
            web = self.web_over(server)
            web.GetListMessagesInBox(1)
        page = web.GetListMessagesInBox(1)
        self.assertEqual((page.Count, error_of(web)), (1, (1093, "XXX")))

    def test_all_accounts_are_synchronised_and_the_account_before_is_loaded_again(self):
        with Pop3Server([dated(1)]) as one, Pop3Server([dated(2)]) as two:
            self.site.add_account(5, one.port, default=True)
            self.site.add_account(6, two.port)
            web = self.site.web()
            self.assertEqual(web.GetListMessagesInBox(1, -100).Count, 2)
            self.assertEqual((web.GetLastError, web.ServerPort), (0, one.port))
            self.assertEqual(sorted(self.site.sql("SELECT id_server FROM mail")), [(5,), (6,)])

    def test_one_given_account_is_synchronised_and_an_unknown_one_is_1035(self):
        with Pop3Server([dated(1)]) as one, Pop3Server([dated(2)]) as two:
            self.site.add_account(5, one.port, default=True)
            self.site.add_account(6, two.port)
            web = self.site.web()
            self.assertEqual(web.GetListMessagesInBox(1, 6).Count, 1)
            self.assertEqual((one.sessions, two.sessions, web.ServerPort), (0, 1, one.port))
            self.assertEqual(web.GetListMessagesInBox(1, 99).Count, 1)
            self.assertEqual(error_of(web), (1035, "XXX"))

    def test_messages_deleted_on_the_server_after_storing_are_marked_with_minus_100(self):
        with Pop3Server([dated(1), dated(2)]) as server:
            web = self.web_over(server)
            page = web.GetListMessagesInBox(1, bDownloadHeaderOnly=False, bDeleteMessageOnMailServer=True)
            self.assertEqual((page.Count, web.GetLastError), (2, 0))
            self.assertEqual(self.site.sql("SELECT DISTINCT IdSulServer FROM mail"), [(-100,)])
        self.assertEqual(server.messages, [])

    def test_two_users_messages_never_share_an_id(self):
        with Pop3Server([dated(1), dated(2)]) as server:
            self.site.add_account(5, server.port, user=7, default=True)
            self.site.add_account(6, server.port, user=8, default=True)
            for user in (7, 8):
                self.site.web(user).GetListMessagesInBox(1)
            self.assertEqual(sorted(self.site.sql("SELECT id_mail FROM mail")), [(1,), (2,), (3,), (4,)])


class Listing(SiteTest):
    def setUp(self):
        super().setUp()
        self.server = Pop3Server([dated(n, subject="s%02d" % (50 - n)) for n in range(1, 26)])
        self.server.__enter__()
        self.addCleanup(self.server.__exit__)
        self.site.add_account(5, self.server.port, default=True)
        self.web = self.site.web()
        self.web.GetListMessagesInBox(1, bFirstDownload=True)
        self.web.MailListPageSize = 10

    def page(self, number, **options):
        pages, mails = korvane.Ref(0), korvane.Ref(0)
        page = self.web.GetListMessagesInBox(1, -1, lPageNum=number, lTotPages=pages, lTotMails=mails, **options)
        return page, pages.value, mails.value

    def test_page_3_of_25_rows_holds_rows_21_to_25(self):
        page, pages, mails = self.page(3)
        self.assertEqual((pages, mails, page.Count), (3, 25, 5))
        self.assertEqual([m.Subject(0) for m in page], ["s%02d" % (50 - n) for n in range(5, 0, -1)])

    def test_pages_in_every_order_and_direction_are_the_box_in_that_order(self):
        for order in (0, 1, 2, 3, 4, 99):
            for direction in (ASC, DESC):
                options = {"moMailOrder": order, "modMailOrderDirection": direction}
                whole = [m.Id for m in self.web.GetListMessagesInBox(1, -1, **options)]
                paged = [m.Id for number in (1, 2, 3) for m in self.page(number, **options)[0]]
                with self.subTest(**options):
                    self.assertEqual(len(set(whole)), 25)
                    self.assertEqual(paged, whole)

    def test_minus_1_is_the_whole_box_with_the_count_and_leaves_the_pages_untouched(self):
        pages, mails = korvane.Ref(77), korvane.Ref(0)
        page = self.web.GetListMessagesInBox(1, -1, lTotPages=pages, lTotMails=mails)
        self.assertEqual((page.Count, mails.value, pages.value), (25, 25, 77))

    def test_a_page_out_of_range_is_an_empty_page_and_the_listing_error(self):
        for number in (0, 4, -2, 2**31 - 1):
            page, _, mails = self.page(number)
            self.assertEqual((page.Count, mails, error_of(self.web)), (0, 25, (1007, "XXX")))
            self.assertEqual(page.GetLastError, 1089)

    def test_page_1_of_an_empty_box_is_empty_without_error_and_page_2_is_1089(self):
        self.assertEqual((self.web.GetListMessagesInBox(9, -1, lPageNum=1).Count, self.web.GetLastError), (0, 0))
        page = self.web.GetListMessagesInBox(9, -1, lPageNum=2)
        self.assertEqual((page.GetLastError, self.web.GetLastError), (1089, 1007))

    def test_a_page_size_of_0_or_less_is_an_error_never_a_crash(self):
        for size in (0, -1, -2**31):
            self.web.MailListPageSize = size
            self.page(1)
            self.assertEqual(self.web.GetLastError, 1007)

    def test_item_finds_the_message_whose_id_is_its_key(self):
        page, _, _ = self.page(1)
        third = page.ItemIndex(3)
        self.assertEqual(page.Item(third.Id).Subject(0), third.Subject(0))

    def test_an_apostrophe_lists_as_it_was_sent(self):
        self.server.messages.append(dated(40, subject="L'ora dell'\"aperitivo\"", sender="\"O'Hara\" <o'hara@example.com>"))
        self.web.GetListMessagesInBox(1)
        first = self.page(1)[0].ItemIndex(1)
        self.assertEqual((first.Subject(0), first.FromName, first.FromMailAddress),
                         ("L'ora dell'\"aperitivo\"", "O'Hara", "o'hara@example.com"))


class Opening(SiteTest):
    def open_one(self, text, full=True):
        self.server = Pop3Server([text])
        self.server.__enter__()
        self.addCleanup(self.server.__exit__)
        self.site.add_account(5, self.server.port, default=True)
        self.web = self.site.web()
        self.id = self.web.GetListMessagesInBox(1, bDownloadHeaderOnly=not full).ItemIndex(1).Id
        return self.web.GetMessage(self.id)

    def text_of(self, opened, alternative=2, form=0):
        text = korvane.Ref("")
        self.assertTrue(opened.MessageBody(text, alternative, form), error_of(opened))
        return text.value

    def test_a_message_that_is_not_there_or_another_users_is_1001(self):
        self.open_one(message())
        for number in (99, 0, -1, 2**31 - 1):
            self.assertIsNone(self.web.GetMessage(number))
            self.assertEqual(error_of(self.web), (1001, "XXX"))
        self.web.UserId = 8
        self.assertIsNone(self.web.GetMessage(self.id))
        self.assertEqual(self.web.GetLastError, 1001)

    def test_opening_a_header_only_message_stores_it_deletes_it_and_a_second_opening_asks_no_server(self):
        with Pop3Server([message(body="the text\r\n")]) as server:
            self.site.add_account(5, server.port, default=True)
            web = self.site.web()
            number = web.GetListMessagesInBox(1).ItemIndex(1).Id
            opened = web.GetMessage(number, bDeleteMessageOnMailServer=True)
            self.assertEqual((opened.IdOnServer, web.GetLastError), (-100, 0))
            self.assertEqual(self.site.sql("SELECT IdSulServer, body_scaricato FROM mail"), [(-100, 1)])
            sessions = server.sessions
            self.assertEqual(self.text_of(web.GetMessage(number)).strip(), "the text")
            self.assertEqual(server.sessions, sessions)
        self.assertEqual(server.messages, [])

    def test_a_header_only_message_that_left_the_server_is_1003_or_not_found(self):
        self.open_one(message(), full=False)
        self.site.sql("UPDATE mail SET body_scaricato = -1, IdSulServer = -100")
        self.assertIsNone(self.web.GetMessage(self.id))
        self.assertEqual(error_of(self.web), (1003, "XXX"))
        self.site.sql("UPDATE mail SET IdSulServer = 1")
        self.server.messages.clear()
        self.assertIsNone(self.web.GetMessage(self.id))
        self.assertEqual(error_of(self.web), (1066, "XXX"))
        self.server.messages.append(message("Another"))
        self.assertIsNone(self.web.GetMessage(self.id))
        self.assertEqual(error_of(self.web), (1065, "XXX"))

    def test_opening_marks_a_message_read_and_a_second_opening_changes_nothing_more(self):
        self.open_one(message())
        self.assertNotEqual(self.site.sql("SELECT Letto FROM mail"), [(0,)])
        before = self.site.sql("SELECT * FROM mail")
        self.web.GetMessage(self.id)
        self.assertEqual(self.site.sql("SELECT * FROM mail"), before)
        self.assertTrue(self.web.GetListMessagesInBox(1, -1).ItemIndex(1).Letto)

    def test_a_record_that_cannot_be_read_is_1057(self):
        self.open_one(message())
        os.truncate(self.site.folder / "messages" / "7_Messaggi.dat", 20)
        self.assertIsNone(self.web.GetMessage(self.id))
        self.assertEqual(error_of(self.web), (1057, "XXX"))

    def test_two_parts_of_one_name_are_stored_apart_under_the_users_and_the_messages_numbers(self):
        opened = self.open_one(message(body=two_reports(), extra=MIXED))
        attachments = opened.GetAttachments()
        self.assertEqual([a.Name for a in attachments], ["report.pdf", "report.pdf"])
        names = [a.NameOnServer for a in attachments]
        self.assertEqual(names, ["7_%d_%d_report.pdf" % (self.id, a.Id) for a in attachments])
        contents = [(self.site.folder / "attachments" / name).read_bytes() for name in names]
        self.assertEqual(contents, [b"first", b"second"])
        self.assertEqual(attachments.Item(attachments.ItemIndex(2).Id).NameOnServer, names[1])
        self.assertIsNone(attachments.Item(99))
        self.assertEqual(attachments.GetLastError, 5)

    def test_opening_twice_leaves_the_same_files(self):
        self.open_one(message(body=two_reports(), extra=MIXED))
        folder = self.site.folder / "attachments"
        before = {path.name: path.read_bytes() for path in folder.iterdir()}
        self.web.GetMessage(self.id)
        self.assertEqual({path.name: path.read_bytes() for path in folder.iterdir()}, before)

    def test_a_related_image_is_not_listed_but_its_file_is_there_and_the_html_points_at_it(self):
        body = ("--b\r\nContent-Type: text/html\r\n\r\n<p><img src=\"cid:logo@x\"></p>\r\n"
                "--b\r\nContent-Type: image/gif; name=logo.gif\r\nContent-ID: <logo@x>\r\n\r\nGIF89a\r\n--b--\r\n")
        opened = self.open_one(message(body=body, extra=("Content-Type: multipart/related; boundary=b",)))
        self.assertEqual(len(opened.GetAttachments()), 0)
        names = os.listdir(self.site.folder / "attachments")
        self.assertEqual(len(names), 1)
        self.assertIn('src="https://mail.example.com/files/%s"' % names[0], self.text_of(opened))

    def test_the_wanted_alternative_is_shown(self):
        body = "--b\r\n\r\nplain\r\n--b\r\nContent-Type: text/html\r\n\r\n<b>html</b>\r\n--b--\r\n"
        opened = self.open_one(message(body=body, extra=("Content-Type: multipart/alternative; boundary=b",)))
        self.assertEqual(self.text_of(opened, 2), "<b>html</b>")
        self.assertEqual(self.text_of(opened, 1), "plain")
        self.assertEqual(self.text_of(opened, 0), "plain")
        self.assertEqual(self.text_of(opened, 1, 1), "<pre>plain</pre>")

    def test_a_message_of_images_only_is_1060_and_shows_nothing(self):
        body = "--b\r\nContent-Type: image/gif\r\n\r\nGIF89a\r\n--b--\r\n"
        opened = self.open_one(message(body=body, extra=MIXED))
        text = korvane.Ref("before")
        self.assertFalse(opened.MessageBody(text))
        self.assertEqual((text.value, error_of(opened)), ("", (1060, "XXX")))

    def test_a_strictly_wanted_kind_that_a_text_is_not_is_1087_or_1088(self):
        opened = self.open_one(message())
        text = korvane.Ref("")
        self.assertFalse(opened.MessageBody(text, 2, 0, True))
        self.assertEqual(error_of(opened), (1088, "XXX"))
        self.assertTrue(opened.MessageBody(text, 1, 0, True))

    def test_the_original_header_is_text_even_where_the_sender_sent_bare_bytes(self):
        opened = self.open_one(message().replace(b"Hello", b"Citt\xe0"))
        self.assertIn("Subject: Città\r\n", opened.OriginalHeader)
        self.assertEqual(opened.Subject(0), "Città")

    def test_subject_1_is_html_and_every_other_form_is_raw(self):
        opened = self.open_one(message("a < b"))
        self.assertEqual([opened.Subject(n) for n in (0, 1, 2, 99)], ["a < b", "a &lt; b", "a < b", "a < b"])
        self.assertEqual(opened.Subject(), "a &lt; b")

    def test_a_message_from_a_listing_has_no_text_yet(self):
        self.open_one(message())
        listed = self.web.GetListMessagesInBox(1, -1).ItemIndex(1)
        self.assertEqual(self.text_of(listed), "")

    def test_the_header_alone_of_a_message_that_is_no_text_is_1059(self):
        self.open_one(message(extra=("Content-Type: image/gif",)))
        basic = korvane.create("BasicInterface")
        basic.MailServer, basic.ServerPort, basic.Username, basic.Password = HERE, self.server.port, "ann", "secret"
        self.assertTrue(basic.Init())
        header = basic.GetListMessagesInBox(1).ItemIndex(1)
        text = korvane.Ref("before")
        self.assertFalse(header.MessageBody(text))
        self.assertEqual((text.value, error_of(header)), ("", (1059, "XXX")))

    def test_encoded_words_are_decoded_in_every_form(self):
        for encoded in ("=?UTF-8?Q?Citt=C3=A0?=", "=?iso-8859-1?Q?Citt=E0?=", "=?utf-8?B?Q2l0dMOg?="):
            with self.subTest(encoded):
                self.setUp()
                self.assertEqual(self.open_one(message(encoded)).Subject(0), "Città")


class Deleting(SiteTest):
    def setUp(self):
        super().setUp()
        self.server = Pop3Server([dated(n) for n in range(1, 6)])
        self.server.__enter__()
        self.addCleanup(self.server.__exit__)
        self.site.add_account(5, self.server.port, default=True)
        self.web = self.site.web()
        page = self.web.GetListMessagesInBox(1, bDownloadHeaderOnly=False, modMailOrderDirection=ASC)
        self.ids = [m.Id for m in page]
        self.server.commands.clear()

    def test_no_number_at_all_is_1004(self):
        for ids in ("", None, ",", " ", "abc", "1;DROP TABLE mail", "1,x", "1 2", "0x1", "1.5", True and "--1"):
            with self.subTest(repr(ids)):
                self.assertFalse(self.web.DeleteMessage(ids))
                self.assertEqual(error_of(self.web), (1004, "XXX"))
        self.assertEqual(self.web.GetListMessagesInBox(1, -1).Count, 5)

    def test_a_local_deletion_contacts_no_server_and_counts_the_bytes(self):
        self.assertTrue(self.web.DeleteMessage("%d, %d" % (self.ids[0], self.ids[2]), korvane.EDelType.DEL_TYPE_LOCALE))
        self.assertEqual(self.server.commands, [])
        self.assertEqual(self.web.GetListMessagesInBox(1, -1).Count, 3)
        total, = self.site.sql("SELECT SUM(dimensione) FROM mail WHERE Cancellata <> 0")[0]
        self.assertEqual(self.site.sql("SELECT id_pulizia, id_utente, dim_msg_canc_file FROM Pulizia"), [(1, 7, total)])
        self.site.sql("UPDATE mail SET dimensione = 0 WHERE id_mail = %d" % self.ids[1])
        self.assertTrue(self.web.DeleteMessage(self.ids[1], korvane.EDelType.DEL_TYPE_LOCALE))
        self.assertEqual(self.site.sql("SELECT dim_msg_canc_file FROM Pulizia"), [(total + 15360,)])

    def test_a_deletion_on_the_server_only_keeps_the_message_here(self):
        self.assertTrue(self.web.DeleteMessage(self.ids[4], korvane.EDelType.DEL_TYPE_SERVER))
        self.assertEqual(self.web.GetListMessagesInBox(1, -1).Count, 5)
        self.assertEqual(self.site.sql("SELECT IdSulServer FROM mail WHERE id_mail = %d" % self.ids[4]), [(-100,)])
        self.assertEqual(len(self.server.messages), 4)

    def test_both_is_what_an_omitted_kind_means(self):
        self.assertTrue(self.web.DeleteMessage(",".join(map(str, self.ids))))
        self.assertEqual(self.web.GetListMessagesInBox(1, -1).Count, 0)
        self.assertEqual((len(self.server.messages), self.server.sessions), (0, 2))

    def test_a_message_that_cannot_be_deleted_on_the_server_stays_here_too(self):
        self.server.replies["PASS"] = b"-ERR locked\r\n"
        self.assertFalse(self.web.DeleteMessage(self.ids[0]))
        self.assertEqual(self.web.GetLastError, 1203)
        self.assertEqual(self.web.GetListMessagesInBox(1, -1).Count, 5)

    def test_a_message_that_left_the_server_counts_as_deleted(self):
        del self.server.messages[0]
        self.assertTrue(self.web.DeleteMessage(self.ids[0]))
        self.assertEqual(self.web.GetListMessagesInBox(1, -1).Count, 4)
        self.assertEqual(len(self.server.messages), 4)

    def test_rows_of_another_user_are_passed_over_as_if_absent(self):
        self.web.UserId = 8
        self.assertTrue(self.web.DeleteMessage(self.ids[0], korvane.EDelType.DEL_TYPE_LOCALE))
        self.web.UserId = 7
        self.assertEqual(self.web.GetListMessagesInBox(1, -1).Count, 5)

    def test_a_locally_deleted_message_does_not_come_back(self):
        self.assertTrue(self.web.DeleteMessage(self.ids[4], korvane.EDelType.DEL_TYPE_LOCALE))
        self.assertEqual(self.web.GetListMessagesInBox(1).Count, 4)


class Composing(SiteTest):
    def setUp(self):
        super().setUp()
        self.site.add_account(5, 1, default=True)
        self.web = self.site.web()
        self.database = korvane.connect(self.site.url)

    def compose(self, **fields):
        new = self.web.NewMessage("<hr>")
        for name, value in {"NM_From": "ann@example.com", "NM_MessageTo": "Bob <bob@example.org>, carol@example.org",
                            "NM_Subject": "Über l'ora", "NM_MessageBody": "Hello\r\nthere", **fields}.items():
            setattr(new, name, value)
        return new

    def test_saving_into_an_empty_table_gives_the_id_1_and_box_3_unless_told(self):
        new = self.compose()
        self.assertTrue(new.NM_Save(self.database), error_of(new))
        self.assertEqual((new.Id, new.IdOnServer), (1, -10))
        self.assertEqual(self.site.sql("SELECT id_mail, id_cartella, id_server, id_utente FROM mail"), [(1, 3, -1, 7)])
        self.assertTrue(self.compose().NM_Save(cnnDataBase=self.database, lIdBoxToSaveIn=8))
        self.assertEqual(self.web.GetListMessagesInBox(8, -1).ItemIndex(1).Id, 2)

    def test_opening_it_again_gives_back_what_was_composed(self):
        new = self.compose(NM_CC="dan@example.org", NM_InReplyTo="<1@x>", NM_Size=123)
        attachment = new.NM_NewAttachment()
        attachment.NM_FileName = "C:\\temp\\plan.txt"
        self.assertEqual((attachment.Id, attachment.Name), (1, "plan.txt"))
        self.assertTrue(new.NM_Save(self.database))
        pathlib.Path(attachment.NameOnServer).write_bytes(b"content")
        again = self.web.GetMessage(new.Id)
        self.assertEqual((again.Subject(0), again.CC, again.InReplyTo, again.Size), ("Über l'ora", "dan@example.org", "<1@x>", 123))
        self.assertEqual((again.FromName, again.FromMailAddress), ("ann@example.com", "ann@example.com"))
        self.assertEqual(again.MessageToAddress, "bob@example.org, carol@example.org")
        text = korvane.Ref("")
        self.assertTrue(again.MessageBody(text, 1, 0))
        self.assertEqual(text.value, "Hello\r\nthere")
        self.assertTrue(again.ExistAttachments)
        stored, = again.GetAttachments()
        self.assertEqual((stored.Name, stored.NameOnServer), ("plan.txt", attachment.NameOnServer))
        self.assertEqual(pathlib.Path(stored.NameOnServer).read_bytes(), b"content")

    def test_a_message_with_a_send_date_lists_with_it(self):
        self.assertTrue(self.compose(NM_SendDate="05/03/2002 10:20:30").NM_Save(self.database))
        listed = self.web.GetListMessagesInBox(3, -1).ItemIndex(1)
        self.assertEqual((listed.SendDate, listed.ReceivedDate), ("05/03/2002 10:20:30",) * 2)

    def test_a_message_without_a_send_date_is_saved_with_the_time_of_its_making(self):
        self.assertTrue(self.compose().NM_Save(self.database))
        listed = self.web.GetListMessagesInBox(3, -1).ItemIndex(1)
        self.assertRegex(listed.SendDate, r"^\d\d/\d\d/20\d\d \d\d:\d\d:\d\d$")

    def test_a_message_that_cannot_be_stored_is_1051_or_1052_and_leaves_no_row(self):
        (self.site.folder / "messages").chmod(0o500)
        self.addCleanup((self.site.folder / "messages").chmod, 0o700)
        if os.geteuid() == 0:  # nobody refuses the superuser a file, so the folder goes
            (self.site.folder / "messages").rename(self.site.folder / "gone")
            (self.site.folder / "messages").write_text("a file in its place")
        new = self.compose()
        self.assertFalse(new.NM_Save(self.database))
        self.assertIn(new.GetLastError, (1051, 1052))
        self.assertEqual(self.site.sql("SELECT COUNT(*) FROM mail"), [(0,)])

    def test_a_locally_saved_message_without_a_record_is_1002(self):
        new = self.compose()
        new.NM_Save(self.database)
        self.site.sql("UPDATE mail SET body_scaricato = -1")
        self.assertIsNone(self.web.GetMessage(new.Id))
        self.assertEqual(error_of(self.web), (1002, "XXX"))

    def test_deleting_a_locally_saved_message_everywhere_performs_the_local_part(self):
        new = self.compose()
        new.NM_Save(self.database)
        self.assertTrue(self.web.DeleteMessage(new.Id))
        self.assertEqual(self.web.GetListMessagesInBox(3, -1).Count, 0)


class Cleaning(SiteTest):
    def setUp(self):
        super().setUp()
        self.site.add_account(5, 1, default=True)
        self.web = self.site.web()
        self.file = self.site.folder / "messages" / "7_Messaggi.dat"

    def save(self, count, size=20000):
        database, ids = korvane.connect(self.site.url), []
        for n in range(count):
            new = self.web.NewMessage()
            new.NM_Subject, new.NM_MessageBody, new.NM_Size = "m%d" % n, chr(65 + n) * size, size
            self.assertTrue(new.NM_Save(database))
            ids.append(new.Id)
        return ids

    def test_a_user_without_a_row_is_left_alone_and_the_text_is_xxx_on_success(self):
        self.save(2)
        before = self.file.read_bytes()
        self.assertTrue(self.web.BackgroundClean())
        self.assertEqual(error_of(self.web), (0, "XXX"))
        self.assertEqual(self.file.read_bytes(), before)

    def test_exactly_3145728_dead_bytes_do_nothing_and_one_more_compacts(self):
        ids = self.save(6)
        self.web.DeleteMessage("%d,%d,%d" % (ids[0], ids[3], ids[5]), korvane.EDelType.DEL_TYPE_LOCALE)
        before = self.file.read_bytes()
        self.site.sql("UPDATE Pulizia SET dim_msg_canc_file = 3145728")
        self.assertTrue(self.web.BackgroundClean())
        self.assertEqual(self.file.read_bytes(), before)
        self.site.sql("UPDATE Pulizia SET dim_msg_canc_file = 3145729")
        self.assertTrue(self.web.BackgroundClean())
        self.assertLess(self.file.stat().st_size, len(before) * 0.6)
        self.assertEqual(self.site.sql("SELECT COUNT(*) FROM mail WHERE Cancellata <> 0"), [(0,)])
        self.assertEqual(self.site.sql("SELECT dim_msg_canc_file FROM Pulizia"), [(3145729,)])
        self.assertEqual(self.site.sql("SELECT MIN(body_scaricato) FROM mail"), [(1,)])
        for place, kept in enumerate((1, 2, 4)):
            text = korvane.Ref("")
            self.assertTrue(self.web.GetMessage(ids[kept]).MessageBody(text, 1, 0))
            self.assertEqual(text.value, chr(65 + kept) * 20000)
        names = sorted(path.name for path in (self.site.folder / "messages").iterdir())
        self.assertFalse([name for name in names if "_tmp" in name or "_cpy" in name], names)


if __name__ == "__main__":
    unittest.main()
