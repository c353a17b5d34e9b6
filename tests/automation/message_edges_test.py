"""What the awkward places of a mail become, as a page sees them."""

import binascii
import os
import unittest

from pop3_server import Pop3Server
from site_fixture import SiteTest, error_of, korvane, message


def parts(*texts):
    return "".join("--b\r\n" + text + "\r\n" for text in texts) + "--b--\r\n"


MIXED = ("Content-Type: multipart/mixed; boundary=b",)


class Awkward(SiteTest):
    def open_all(self, *messages):
        """Each as a page opens it, in the order given."""
        self.server = Pop3Server(messages)
        self.server.__enter__()
        self.addCleanup(self.server.__exit__)
        self.site.add_account(5, self.server.port, default=True)
        self.web = self.site.web()
        self.web.GetListMessagesInBox(1, bDownloadHeaderOnly=False, bFirstDownload=True)
        ids = [row[0] for row in self.site.sql("SELECT id_mail FROM mail ORDER BY id_mail")]
        return [self.web.GetMessage(id) for id in ids]

    def open_one(self, text):
        opened, = self.open_all(text)
        return opened

    def text_of(self, opened, alternative=0, form=0):
        text = korvane.Ref("")
        self.assertTrue(opened.MessageBody(text, alternative, form), error_of(opened))
        return text.value


class Headers(Awkward):
    def test_a_text_without_an_empty_line_is_taken_as_header_only(self):
        opened = self.open_one(b"From: a@example.com\r\nSubject: all header\r\nnothing else")
        self.assertEqual((opened.Subject(0), self.text_of(opened)), ("all header", ""))

    def test_nothing_behind_the_colon_is_an_empty_subject_and_a_leading_colon_is_ignored(self):
        opened = self.open_one(b"From: a@example.com\r\n: nothing\r\nSubject:\r\n\r\nx\r\n")
        self.assertEqual(opened.Subject(0), "")

    def test_of_two_received_lines_the_first_counts_and_of_two_subjects_the_second(self):
        opened = self.open_one(b"Received: by b; Tue, 5 Mar 2002 10:20:30 +0000\r\n"
                               b"Received: by a; Mon, 4 Mar 2002 10:20:30 +0000\r\n"
                               b"Subject: one\r\nSubject: two\r\n\r\nx\r\n")
        self.assertEqual((opened.Subject(0), opened.ReceivedDate), ("two", "05/03/2002 10:20:30"))

    def test_a_name_in_capitals_with_a_space_before_the_colon_is_recognised(self):
        self.assertEqual(self.open_one(b"SUBJECT :  loud  \r\n\r\nx\r\n").Subject(0), "loud")

    def test_a_q_word_with_underscores_decodes_whatever_its_charset_says(self):
        self.assertEqual(self.open_one(message("=?nonsense?Q?two_words?=")).Subject(0), "two words")

    def test_two_b_words_are_joined_without_their_space_and_text_in_front_is_kept(self):
        opened = self.open_one(message("Re: =?utf-8?B?b25l?= =?utf-8?B?dHdv?="))
        self.assertEqual(opened.Subject(0), "Re: onetwo")

    def test_another_encoding_and_a_word_without_its_end_are_unchanged(self):
        first, second = self.open_all(message("=?utf-8?X?one?="), message("=?utf-8?Q?two"))
        self.assertEqual([first.Subject(0), second.Subject(0)], ["=?utf-8?X?one?=", "=?utf-8?Q?two"])

    def test_a_quoted_name_that_holds_a_comma_stays_one(self):
        opened = self.open_one(message(to='"Doe, Jane" <jane@example.com>, b@example.com'))
        self.assertEqual(opened.MessageToAddress, "jane@example.com, b@example.com")
        self.assertEqual(opened.MessageToName.count(","), 2)

    def test_an_empty_group_adds_nothing(self):
        opened = self.open_one(message(to="undisclosed-recipients:;"))
        self.assertEqual((opened.MessageToName, opened.MessageToAddress), ("", ""))

    def test_a_bare_sender_address_is_name_and_address_and_an_unusable_one_is_empty(self):
        bare, none = self.open_all(message(sender="ann@example.com"), message("b", sender="<>"))
        self.assertEqual((bare.FromName, bare.FromMailAddress), ("ann@example.com",) * 2)
        self.assertEqual((none.FromName, none.FromMailAddress), ("", ""))


class Parts(Awkward):
    def test_a_part_without_header_lines_is_plain_text(self):
        opened = self.open_one(message(body=parts("\r\nplain"), extra=MIXED))
        self.assertEqual((self.text_of(opened), opened.GetAttachments().Count), ("plain", 0))

    def test_parts_without_a_name_are_named_after_their_types(self):
        opened = self.open_one(message(extra=MIXED, body=parts(*(
            "Content-Type: %s\r\n\r\nx" % kind for kind in ("image/png", "application/pdf", "foo/bar")))))
        self.assertEqual([a.Name for a in opened.GetAttachments()],
                         ["Image.dat", "AppOctetStream.dat", "AppOctetStream.dat"])

    def test_base64_in_capitals_is_recognised(self):
        opened = self.open_one(message(extra=("Content-Transfer-Encoding: BASE64",), body="SGVsbG8=\r\n"))
        self.assertEqual(self.text_of(opened), "Hello")

    def test_paths_of_every_kind_leave_the_bare_file_name(self):
        names = [r"C:\\dir\\a.txt", "dir/a.txt", "a.txt", "x:y"]
        opened = self.open_one(message(extra=MIXED, body=parts(*(
            'Content-Type: application/x\r\nContent-Disposition: attachment; filename="%s"\r\n\r\nx' % n
            for n in names))))
        self.assertEqual([a.Name for a in opened.GetAttachments()], ["a.txt", "a.txt", "a.txt", "y"])

    def test_a_multipart_without_a_delimiter_or_a_boundary_stays_readable(self):
        first, second = self.open_all(message("1", body="kept\r\n", extra=MIXED),
                                      message("2", body="kept too\r\n", extra=("Content-Type: multipart/mixed",)))
        self.assertIn("kept", self.text_of(first))
        self.assertIn("kept too", self.text_of(second))

    def test_of_two_shown_texts_both_are_appended_and_an_attached_text_is_listed(self):
        opened = self.open_one(message(extra=MIXED, body=parts(
            "\r\none", "\r\ntwo", "Content-Disposition: attachment; filename=t.txt\r\n\r\nthree")))
        text = self.text_of(opened)
        self.assertTrue(text.startswith("one") and text.endswith("two"), text)
        self.assertNotIn("three", text)
        self.assertEqual([a.Name for a in opened.GetAttachments()], ["t.txt"])

    def test_html_is_never_converted_and_enriched_text_is_wrapped_only(self):
        html, rich = self.open_all(message("1", body="<b>x</b>\r\n", extra=("Content-Type: text/html",)),
                                   message("2", body="<bold>x</bold>\r\n", extra=("Content-Type: text/enriched",)))
        self.assertEqual(self.text_of(html, form=1).strip(), "<b>x</b>")
        self.assertRegex(self.text_of(rich, form=1), r"^<pre><bold>x</bold>\s*</pre>$")

    def test_an_equals_sign_is_decoded_and_a_soft_break_joins_lines(self):
        opened = self.open_one(message(extra=("Content-Transfer-Encoding: quoted-printable",),
                                       body="a=3Db, jo=\r\nined\r\n..dot\r\n"))
        self.assertEqual(self.text_of(opened).split("\r\n")[0], "a=b, joined")


class Uuencoded(Awkward):
    @staticmethod
    def block(name, data=b"Cat", last="`"):
        line = binascii.b2a_uu(data, backtick=True).decode().strip()
        return "begin 644 %s\r\n%s\r\n%s\r\nend\r\n" % (name, line, last)

    def files_of(self, body):
        opened = self.open_one(message(body=body))
        return opened, [a.Name for a in opened.GetAttachments()]

    def test_a_body_that_starts_with_a_block_holds_a_file(self):
        opened, names = self.files_of(self.block("a.zip") + "after\r\n")
        self.assertEqual(names, ["a.zip"])
        stored = opened.GetAttachments().ItemIndex(1).NameOnServer
        path = stored if os.path.isabs(stored) else self.site.folder / "attachments" / stored
        with open(path, "rb") as file:
            self.assertEqual(file.read(), b"Cat")
        self.assertNotIn("begin", self.text_of(opened))
        self.assertIn("after", self.text_of(opened))

    def test_an_empty_name_is_no_block_and_the_scan_goes_on(self):
        opened, names = self.files_of("x\r\nbegin 644 \r\ny\r\n" + self.block("b.zip"))
        self.assertEqual(names, ["b.zip"])
        self.assertIn("begin 644", self.text_of(opened))

    def test_a_block_whose_last_line_is_no_grave_accent_is_not_recognised(self):
        self.assertEqual(self.files_of("x\r\n" + self.block("c.zip", last=" "))[1], [])

    def test_names_lose_their_path_and_nothing_becomes_a_name_of_its_own(self):
        self.assertEqual(self.files_of("x\r\n" + self.block("C:\\temp\\x.bin") + self.block("\\"))[1],
                         ["x.bin", "Stream.dat"])


class Dates(Awkward):
    def received(self, value):
        return self.open_one(message(received=value)).ReceivedDate

    def test_the_zone_of_a_received_time_is_applied(self):
        self.assertEqual(self.received("Tue, 5 Mar 2002 10:20:30 +0100"), "05/03/2002 09:20:30")

    def test_a_named_zone_is_applied(self):
        self.assertEqual(self.received("Tue, 5 Mar 2002 10:20:30 EST"), "05/03/2002 15:20:30")

    def test_29_february_1900_is_accepted(self):
        self.assertEqual(self.received("29 Feb 1900 1:2:3 +0000"), "29/02/1900 01:02:03")


class Storing(Awkward):
    def test_a_message_whose_record_cannot_be_written_stays_on_the_server_and_has_its_row(self):
        with Pop3Server([message()]) as server:
            self.site.add_account(5, server.port, default=True)
            web = self.site.web()
            (self.site.folder / "messages" / "7_Messaggi.dat").mkdir()
            page = web.GetListMessagesInBox(1, bDownloadHeaderOnly=False, bFirstDownload=True,
                                            bDeleteMessageOnMailServer=True)
            self.assertEqual(page.Count, 1)
            self.assertEqual(self.site.sql("SELECT body_scaricato, IdSulServer FROM mail"), [(-1, 1)])
            self.assertEqual(server.count("DELE"), 0)

    def test_an_interrupted_run_leaves_its_mark_and_the_next_looks_every_message_up(self):
        messages = [message("m%d" % n, received="Tue, 5 Mar 2002 10:%02d:00 +0000" % n) for n in (1, 2, 3)]
        with Pop3Server(messages, replies={"RETR": b"-ERR later\r\n"}) as server:
            self.site.add_account(5, server.port, default=True)
            web = self.site.web()
            web.GetListMessagesInBox(1, bDownloadHeaderOnly=False, bFirstDownload=True)
            self.assertNotEqual(web.GetLastError, 0)
            self.assertNotEqual(self.site.sql("SELECT Error FROM ultimi_scaricamenti"), [(0,)])
            del server.replies["RETR"]
            for asked in (3, 3):
                server.commands.clear()
                page = web.GetListMessagesInBox(1, bDownloadHeaderOnly=False)
                self.assertEqual((web.GetLastError, page.Count, server.count("TOP")), (0, 3, asked))

    def test_an_out_of_range_order_orders_by_number(self):
        self.open_all(*(message(s) for s in ("b", "a", "c")))
        page = self.web.GetListMessagesInBox(1, -1, moMailOrder=99, modMailOrderDirection=0)
        self.assertEqual([m.Id for m in page], sorted(m.Id for m in page))


if __name__ == "__main__":
    unittest.main()
