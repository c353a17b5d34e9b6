"""korvane show, attachments, delete, compose and object-model."""

import sqlite3
import unittest

from command_line import CommandLineTest

RELATED = """Received: from a by b; Mon, 3 Mar 2025 08:00:00 +0000
From: Anna <anna@example.com>
To: maria@example.org
Subject: with {name}
Message-ID: <{id}@example.com>
Content-Type: multipart/mixed; boundary=b

--b
Content-Type: multipart/alternative; boundary=c

--c

plain & simple
--c
Content-Type: text/html

<p>rich</p>
--c--
--b
Content-Type: application/octet-stream
Content-Disposition: attachment; filename="{name}"
Content-Transfer-Encoding: base64

AAECAwQ=
--b--
"""


class WithMessages(CommandLineTest):
    def setUp(self):
        super().setUp()
        self.init()

    def fill(self, *sync):
        self.server = self.serve()
        self.add_account(self.server)
        self.korvane("sync", *sync)

    def put_file(self, name, attachment):
        (self.mail / name).write_text(RELATED.format(name=attachment, id=name), encoding="utf-8")

    def database(self):
        connection = sqlite3.connect(self.folder / "store" / "mail.db")
        self.addCleanup(connection.close)
        return connection

    def cell(self, id, column):
        return self.database().execute(f"SELECT {column} FROM mail WHERE id_mail=?", (id,)).fetchone()[0]


class Show(WithMessages):
    def test_a_message_is_shown_with_its_fields_text_and_attachments(self):
        self.put_file("1", "a b.bin")
        self.fill()
        out = self.korvane("show", 1).out
        for line in ("anna@example.com", "Subject:  with a b.bin", "plain & simple",
                     "Attached: a b.bin, 5 bytes, /attachments/1_1_"):
            self.assertIn(line, out)
        self.assertIn("a%20b.bin", out)

    def test_the_formats_and_alternatives(self):
        self.put_file("1", "a.bin")
        self.fill()
        text = lambda *more: self.korvane("show", 1, "--json", *more).json()["text"]
        self.assertEqual(text(), "plain & simple")
        self.assertIn("<pre>plain &amp; simple</pre>", text("--format", "html").lower())
        self.assertIn("plain &amp; simple", text("--format", "bare"))
        self.assertNotIn("<pre>", text("--format", "bare").lower())
        self.assertEqual(text("--alternative", "html"), "<p>rich</p>")
        self.assertEqual(text("--alternative", "any"), "plain & simple")
        self.korvane("show", 1, "--format", "morse", status=2)

    def test_the_full_header_is_the_one_that_came(self):
        self.put("1")
        self.fill()
        self.assertIn("Message-ID: <1@example.com>", self.korvane("show", 1, "--full-header").out)

    def test_a_header_alone_is_fetched_when_it_is_shown(self):
        self.put("1", body="the whole text\n")
        self.fill("--headers")
        self.assertEqual(self.cell(1, "body_scaricato"), -1)
        self.assertIn("the whole text", self.korvane("show", 1).out)
        self.assertEqual(self.cell(1, "body_scaricato"), 1)

    def test_a_message_of_somebody_else_or_none_is_status_10(self):
        self.put("1")
        self.fill()
        self.korvane("show", 99, status=10)
        self.korvane("show", 1, "--user", 2, status=10)
        self.korvane("show", "one", status=2)

    def test_a_text_cannot_control_the_terminal(self):
        self.put("1", body="red \x1b[31m bell \x07\ttab\n")
        self.fill()
        out = self.korvane("show", 1).out
        self.assertNotIn("\x1b", out)
        self.assertNotIn("\x07", out)
        self.assertIn("\ttab", out)


class Attachments(WithMessages):
    def test_files_are_saved_with_their_content(self):
        self.put_file("1", "report.bin")
        self.fill()
        self.korvane("attachments", 1, "--save-to", self.folder / "out")
        self.assertEqual((self.folder / "out/report.bin").read_bytes(), b"\0\1\2\3\4")

    def test_nothing_is_overwritten(self):
        self.put_file("1", "report.bin")
        self.fill()
        (self.folder / "out").mkdir()
        (self.folder / "out/report.bin").write_text("mine")
        (self.folder / "out/report (2).bin").symlink_to(self.folder / "elsewhere")
        result = self.korvane("attachments", 1, "--save-to", self.folder / "out", "--json").json()
        self.assertEqual((self.folder / "out/report.bin").read_text(), "mine")
        self.assertFalse((self.folder / "elsewhere").exists())
        self.assertTrue(result["attachments"][0]["saved"].endswith("report (3).bin"))

    def test_no_name_leaves_the_folder(self):
        names = ["../../evil", "/etc/passwd", "..", "..\\\\win.ini", ".bashrc", "a\u202etxt.exe",
                 "-rf", "x" * 400, "C:evil", "=?utf-8?Q?a=00b=0Ac?="]
        for i, name in enumerate(names):
            self.put_file(str(i + 1), name)
        self.fill()
        out = self.folder / "deep" / "out"
        for i in range(len(names)):
            self.korvane("attachments", i + 1, "--save-to", out)
        saved = list(out.iterdir())
        self.assertEqual(len(saved), len(names))
        for path in saved:
            self.assertRegex(path.name, r"^[^./\\-]")
            self.assertEqual(path.read_bytes(), b"\0\1\2\3\4")
        self.assertEqual([p.name for p in (self.folder / "deep").iterdir()], ["out"])

    def test_a_folder_that_cannot_be_made_is_status_9(self):
        self.put_file("1", "a.bin")
        self.fill()
        (self.folder / "file").write_text("")
        err = self.korvane("attachments", 1, "--save-to", self.folder / "file", status=9).err
        self.assertIn("is no folder", err)

    def test_a_folder_that_takes_no_files_is_status_9(self):
        self.put_file("1", "a.bin")
        self.fill()
        err = self.korvane("attachments", 1, "--save-to", "/proc/self", status=9).err
        self.assertIn("/proc/self/a.bin", err)

    def test_a_missing_file_is_said(self):
        self.put_file("1", "a.bin")
        self.fill()
        for path in (self.folder / "store/attachments").iterdir():
            path.unlink()
        self.assertIn("is missing", self.korvane("attachments", 1, status=9).err)

    def test_a_message_without_attachments(self):
        self.put("1")
        self.fill()
        self.assertIn("has no attachments", self.korvane("attachments", 1).out)


class Delete(WithMessages):
    def test_here_only(self):
        self.put_many(2)
        self.fill()
        self.korvane("delete", 1, "--local")
        self.assertEqual(self.subjects(), ["number 002"])
        self.assertNotIn("DELE 1", self.server.commands())

    def test_on_the_server_only(self):
        self.put_many(2)
        self.fill()
        self.server.commands()
        self.korvane("delete", 1, "--server")
        self.assertEqual(len(self.subjects()), 2)
        self.assertEqual(self.cell(1, "IdSulServer"), -100)
        self.assertEqual(len([c for c in self.server.commands() if c.startswith("DELE")]), 1)

    def test_on_both(self):
        self.put_many(3)
        self.fill()
        result = self.korvane("delete", 1, 3, "--both", "--json").json()
        self.assertEqual(result, {"deleted": [1, 3], "left_out": []})
        self.assertEqual(len(self.subjects()), 1)

    def test_what_is_to_stay_here_is_fetched_first(self):
        self.put("1", body="kept text\n")
        self.fill("--headers")
        self.korvane("delete", 1, "--server")
        self.assertEqual(self.cell(1, "IdSulServer"), -100)
        self.server.stop()
        self.assertIn("kept text", self.korvane("show", 1).out)

    def test_what_cannot_be_fetched_is_left_on_the_server(self):
        self.put_many(2)
        self.fill("--headers")
        self.server.stop()
        result = self.korvane("delete", 1, 2, "--server", "--json", status=6).json()
        self.assertEqual([item["id"] for item in result["left_out"]], [1, 2])
        self.assertNotEqual(self.cell(1, "IdSulServer"), -100)

    def test_unknown_messages_are_said_and_the_others_deleted(self):
        self.put_many(2)
        self.fill()
        self.assertIn("no message 77", self.korvane("delete", 77, 2, "--local", status=10).err)
        self.assertEqual(self.subjects(), ["number 001"])

    def test_where_has_to_be_said_once(self):
        self.korvane("delete", 1, status=2)
        self.korvane("delete", 1, "--local", "--both", status=2)


class Compose(WithMessages):
    def test_a_message_is_saved_with_text_and_attachments(self):
        (self.folder / "a file.bin").write_bytes(bytes(range(256)) * 100)
        saved = self.korvane(
            "compose", "--from", "Maria <maria@example.org>", "--to", "Anna <anna@example.com>",
            "--subject", "Città", "--attach", self.folder / "a file.bin", "--json",
            input="first line\nsecond\n").json()
        self.assertEqual(saved, {"id": 1, "box": 3})
        shown = self.korvane("show", 1, "--json").json()
        self.assertEqual(shown["text"], "first line\r\nsecond\r\n")
        self.assertEqual(shown["subject"], "Città")
        self.korvane("attachments", 1, "--save-to", self.folder / "out")
        self.assertEqual((self.folder / "out/a file.bin").read_bytes(), bytes(range(256)) * 100)
        self.assertEqual(self.subjects("--box", 3), ["Città"])

    def test_the_text_may_come_from_a_file_and_go_to_any_box(self):
        (self.folder / "text").write_text("from a file")
        self.korvane("compose", "--subject", "s", "--body", self.folder / "text", "--box", 5)
        self.assertIn("from a file", self.korvane("show", 1).out)
        self.assertEqual(self.subjects("--box", 5), ["s"])

    def test_a_missing_file_saves_nothing(self):
        self.korvane("compose", "--body", self.folder / "nowhere", status=9)
        err = self.korvane("compose", "--attach", self.folder / "nowhere", status=9).err
        self.assertIn("nowhere", err)
        self.korvane("compose", "--attach", self.folder, status=9)
        self.assertEqual(self.subjects("--box", 3), [])

    def test_without_a_place_for_its_attachments_it_is_not_kept(self):
        (self.folder / "a").write_text("x")
        (self.folder / "store/attachments").rmdir()
        self.korvane("compose", "--attach", self.folder / "a", status=9)
        self.assertEqual(self.subjects("--box", 3), [])


class ObjectModel(CommandLineTest):
    def test_it_is_the_page_of_the_documentation_and_json(self):
        self.assertIn("WebInterface", self.korvane("object-model").out)
        model = self.korvane("object-model", "--json").json()
        self.assertIn("BasicInterface", str(model))


if __name__ == "__main__":
    unittest.main()
