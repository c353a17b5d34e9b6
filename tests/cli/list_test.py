"""korvane list and korvane errors."""

import re
import unicodedata
import unittest

from command_line import SOURCE, CommandLineTest


def width(text):
    return sum(0 if unicodedata.combining(c) else 2 if unicodedata.east_asian_width(c) in "WF" else 1
               for c in text)


class List(CommandLineTest):
    def setUp(self):
        super().setUp()
        self.init()

    def fill(self):
        self.add_account(self.serve())
        self.korvane("sync")

    def test_an_empty_box_has_one_page_and_no_messages(self):
        self.assertIn("Box 1, page 1 of 1, 0 messages", self.korvane("list").out)

    def test_pages_count_from_the_newest(self):
        self.put_many(7)
        self.fill()
        first = self.korvane("list", "--page-size", 3, "--json").json()
        self.assertEqual((first["pages"], first["messages"]), (3, 7))
        self.assertEqual(self.subjects("--page-size", 3), ["number 007", "number 006", "number 005"])
        self.assertEqual(self.subjects("--page-size", 3, "--page", 3), ["number 001"])
        self.assertIn("page 3 of 3, 7 messages",
                      self.korvane("list", "--page-size", 3, "--page", 3).out)

    def test_a_page_that_is_not_there_is_status_10(self):
        self.put_many(2)
        self.fill()
        self.assertIn("there is no page 2", self.korvane("list", "--page", 2, status=10).err)
        self.korvane("list", "--page", 0, status=2)
        self.korvane("list", "--page-size", 0, status=2)

    def test_the_orders(self):
        self.put("1", "Zebra", "Mon, 3 Mar 2025 08:00:01 +0000", "Bea <b@example.com>", body="x" * 50)
        self.put("2", "apple", "Mon, 3 Mar 2025 08:00:02 +0000", "Cleo <c@example.com>")
        self.put("3", "Mango", "Mon, 3 Mar 2025 08:00:03 +0000", "Al <a@example.com>", body="y" * 900)
        self.fill()
        self.assertEqual(self.subjects("--order", "date"), ["Mango", "apple", "Zebra"])
        self.assertEqual(self.subjects("--order", "date", "--asc"), ["Zebra", "apple", "Mango"])
        self.assertEqual(self.subjects("--order", "from", "--asc"), ["Mango", "Zebra", "apple"])
        self.assertEqual(self.subjects("--order", "subject", "--asc"), ["apple", "Mango", "Zebra"])
        self.assertEqual(self.subjects("--order", "size"), ["Mango", "Zebra", "apple"])
        self.korvane("list", "--order", "to")
        self.korvane("list", "--order", "colour", status=2)

    def test_no_line_is_wider_than_the_terminal(self):
        self.add_account(self.serve(f"maria:garden:{SOURCE}/tests/mail/real,{SOURCE}/tests/mail/quirky"))
        self.korvane("sync")
        for columns in (60, 80, 140):
            listing = self.korvane("list", "--page-size", 100, environment={"COLUMNS": str(columns)})
            rows = listing.out.splitlines()[:-1]
            self.assertGreater(len(rows), 60)
            for line in rows:
                self.assertLessEqual(width(line), columns, line)

    def test_a_mail_cannot_control_the_terminal(self):
        self.put("1", "=?utf-8?Q?red_=1B[31m_bell=07_turned_=E2=80=AE?=",
                 sender="=?utf-8?Q?evil=1B]0;title=07?= <e@example.com>")
        self.fill()
        output = self.korvane("list").out
        self.assertFalse(re.search("[\x00-\x09\x0b-\x1f\x7f\u202e]", output), repr(output))
        self.assertIn("red", output)

    def test_json_is_utf8_and_says_everything(self):
        self.put("1", "=?utf-8?Q?Citt=C3=A0_\"quoted\"?=", "Mon, 3 Mar 2025 09:30:00 +0100")
        self.fill()
        item, = self.korvane("list", "--json").json()["items"]
        self.assertEqual(item["subject"], 'Città "quoted"')
        self.assertEqual(item["date"], "2025-03-03T08:30:00Z")
        self.assertFalse(item["read"])
        self.assertFalse(item["attachments"])
        self.assertIn("anna@example.com", item["from"])

    def test_boxes_are_apart(self):
        self.put_many(1)
        self.fill()
        self.assertEqual(self.subjects("--box", 3), [])

    def test_unread_messages_and_attachments_are_marked(self):
        self.add_account(self.serve(f"maria:garden:{SOURCE}/tests/mail/real"))
        self.korvane("sync")
        invoice, = [line for line in self.korvane("list", "--page-size", 100).out.splitlines()
                    if "Invoice 2025-017" in line]
        self.assertRegex(invoice, r"^ *\d+  \*  2025-03-06 15:31  .*  \+ +\d")

    def test_errors_explains_a_number(self):
        output = self.korvane("errors", 1203).out
        self.assertIn("the server refused the password", output)
        self.korvane("errors", 4711, status=10)

    def test_errors_lists_every_number(self):
        table = (SOURCE / "src/frame/errors.def").read_text()
        numbers = [int(n) for n in re.findall(r"^KORVANE_ERROR\((\d+)", table, re.M)]
        listed = self.korvane("errors", "--json").json()["errors"]
        self.assertEqual([entry["number"] for entry in listed], numbers)

    def test_a_wrong_command_line_is_status_2(self):
        for arguments in ([], ["nonsense"], ["list", "--nonsense"], ["account"]):
            self.korvane(*arguments, status=2)

    def test_help_and_version_need_no_settings(self):
        self.assertIn("Status: 0 done", self.korvane("--help").out)
        self.assertRegex(self.korvane("--version").out, r"^korvane \d+\.\d+")


if __name__ == "__main__":
    unittest.main()
