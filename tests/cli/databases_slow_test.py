"""Every command over an installation whose tables are on PostgreSQL, on MariaDB, and behind ODBC."""

import os
import pathlib
import sys
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "support"))

from command_line import CommandLineTest
from database_servers import Mariadb, MariadbThroughOdbc, Postgresql, PostgresqlThroughOdbc

WITH_FILE = """Received: from a by b; Mon, 3 Mar 2025 09:00:00 +0000
From: Anna O'Hara <anna@example.com>
To: maria@example.org
Subject: l'ora =?utf-8?Q?Citt=C3=A0_=F0=9F=93=A7?=
Message-ID: <it's@example.com>
Content-Type: multipart/mixed; boundary=b

--b

plain text
--b
Content-Type: application/octet-stream
Content-Disposition: attachment; filename="a b.bin"
Content-Transfer-Encoding: base64

AAECAwQ=
--b--
"""


class Commands:
    """What is done on each engine."""

    @classmethod
    def setUpClass(cls):
        cls.database_server = cls.engine()

    @classmethod
    def tearDownClass(cls):
        cls.database_server.stop()

    def setUp(self):
        super().setUp()
        self.database = self.database_server.new_database()
        self.store = self.folder / "store"
        self.korvane("init", "--dir", self.store, "--database",
                     self.database_server.url(self.database))
        self.messages = self.store / "messages" / "1_Messaggi.dat"

    def sql(self, statement):
        return self.database_server.sql(self.database, statement).split()

    def fill(self, count, *sync, body="a text\n"):
        for i in range(1, count + 1):
            self.put(f"{i:03}", f"number {i:03}", f"Mon, 3 Mar 2025 08:00:{i:02} +0000", body=body)
        (self.mail / "900").write_text(WITH_FILE)
        self.server = self.serve()
        self.add_account(self.server)
        self.korvane("sync", *sync)

    def test_a_message_is_shown_with_its_fields_text_and_attachments(self):
        self.fill(0, "--headers")
        shown = self.korvane("show", 1, "--json").json()
        self.assertEqual(shown["subject"], "l'ora Città 📧")
        self.assertIn("O'Hara", shown["from"])
        self.assertIn("plain text", shown["text"])
        self.assertEqual([(a["name"], a["size"]) for a in shown["attachments"]], [("a b.bin", 5)])
        self.server.stop()
        self.assertIn("plain text", self.korvane("show", 1).out)
        self.assertTrue(self.korvane("list", "--json").json()["items"][0]["read"])

    def test_attachments_are_saved_with_their_content(self):
        self.fill(1)
        self.korvane("attachments", 2, "--save-to", self.folder / "out")
        self.assertEqual((self.folder / "out/a b.bin").read_bytes(), b"\0\1\2\3\4")

    def test_messages_are_deleted_here_on_the_server_and_on_both(self):
        self.fill(5)
        self.server.commands()
        self.korvane("delete", 1, "--local")
        self.assertEqual(self.server.commands(), [])
        self.korvane("delete", 2, "--server")
        self.assertEqual(self.korvane("delete", 3, 4, "--both", "--json").json(),
                         {"deleted": [3, 4], "left_out": []})
        self.assertEqual(self.sql("SELECT id_mail FROM mail WHERE IdSulServer=-100 ORDER BY 1"),
                         ["2", "3", "4"])
        self.assertEqual(self.subjects()[1:], ["number 005", "number 002"])
        self.assertEqual(len([c for c in self.server.commands() if c.startswith("DELE")]), 3)
        self.assertIn("no message 77", self.korvane("delete", 77, "--local", status=10).err)
        self.korvane("sync")
        self.assertEqual(len(self.subjects()), 3)

    def test_a_message_is_composed_with_text_and_attachments(self):
        (self.folder / "a file.bin").write_bytes(bytes(range(256)) * 100)
        saved = self.korvane(
            "compose", "--from", "Maria O'Hara <maria@example.org>", "--to", "anna@example.com",
            "--subject", "l'ora Città 📧", "--attach", self.folder / "a file.bin", "--json",
            "--date", "05/03/2025 09:08:07", input="first line\nsecond\n").json()
        self.assertEqual(saved, {"id": 1, "box": 3})
        shown = self.korvane("show", 1, "--json").json()
        self.assertEqual((shown["subject"], shown["text"]),
                         ("l'ora Città 📧", "first line\r\nsecond\r\n"))
        self.korvane("attachments", 1, "--save-to", self.folder / "out")
        self.assertEqual((self.folder / "out/a file.bin").read_bytes(), bytes(range(256)) * 100)
        item, = self.korvane("list", "--box", 3, "--json").json()["items"]
        self.assertEqual(item["subject"], "l'ora Città 📧")
        self.assertIn("2025", item["date"])

    def test_a_clean_frees_what_is_dead_and_sweeps_what_is_left_behind(self):
        self.fill(12, body=("z" * 70 + "\n") * 7000)
        self.korvane("delete", *range(1, 11), "--local")
        left = self.store / "attachments" / "1_77_1_gone.gif"
        left.write_text("x")
        os.utime(left, (time.time() - 200_000,) * 2)
        before = self.messages.stat().st_size
        result = self.korvane("clean", "--sweep", "--json").json()
        self.assertTrue(result["compacted"])
        self.assertEqual(result["freed"], before - self.messages.stat().st_size)
        self.assertEqual((result["dead"], result["swept"]), (0, 1))
        self.assertEqual(self.sql("SELECT COUNT(*) FROM mail"), ["3"])
        self.assertEqual(self.sql("SELECT MIN(body_scaricato) FROM mail"), ["1"])
        self.assertIn("z" * 70, self.korvane("show", 12).out)
        self.assertFalse(self.korvane("clean", "--json").json()["compacted"])
        self.korvane("sync")
        self.assertEqual(len(self.subjects()), 3, "what was deleted here does not come back")
        self.korvane("check")

    def test_a_check_finds_what_is_wrong_and_repairs_it(self):
        self.fill(3)
        self.assertIn("everything is well", self.korvane("check").out)
        position, = self.sql("SELECT body_scaricato FROM mail WHERE id_mail=2")
        with open(self.messages, "r+b") as file:
            file.seek(int(position) - 1)
            file.write(b"\xff" * 12)
        picture = next((self.store / "attachments").iterdir())
        picture.unlink()
        self.sql("UPDATE ultimi_scaricamenti SET Error=" + self.database_server.true)
        self.messages.with_name("1_Messaggi_tmp.dat").write_bytes(b"half")
        found = self.korvane("check", "--json", status=None).json()["findings"]
        self.assertEqual(len(found), 4, found)
        repaired = self.korvane("check", "--repair", "--json").json()["findings"]
        self.assertEqual([item["repaired"] for item in repaired], [True] * 4, repaired)
        self.assertEqual(self.korvane("check", "--json").json()["findings"], [])
        self.assertIn("a text", self.korvane("show", 2).out)
        self.assertEqual(picture.read_bytes(), b"\0\1\2\3\4")

    def test_an_interrupted_compaction_is_undone(self):
        self.fill(3)
        self.messages.rename(self.messages.with_name("1_Messaggi_cpy.dat"))
        self.korvane("check", status=9)
        self.korvane("check", "--repair")
        self.assertIn("a text", self.korvane("show", 2).out)

    def test_what_is_exported_is_imported_again_once(self):
        self.fill(3)
        before = sorted(self.subjects())
        for box, format in enumerate(("mbox", "eml", "maildir"), 11):
            place = self.folder / format
            self.korvane("export", place, "--format", format, "--box", 1)
            result = self.korvane("import", place, "--box", box, "--again", "--json").json()
            self.assertEqual(result, {"imported": 4, "duplicates": 0})
            self.assertEqual(sorted(self.subjects("--box", box)), before)
            result = self.korvane("import", place, "--box", box, "--json").json()
            self.assertEqual(result, {"imported": 0, "duplicates": 4})
        shown = self.korvane("show", self.korvane("list", "--box", 11, "--json").json()["items"][0]
                             ["id"], "--json").json()
        self.assertEqual([(a["name"], a["size"]) for a in shown["attachments"]], [("a b.bin", 5)])


class OnPostgresql(Commands, CommandLineTest):
    engine = Postgresql


class OnMariadb(Commands, CommandLineTest):
    engine = Mariadb


class OnPostgresqlThroughOdbc(Commands, CommandLineTest):
    engine = PostgresqlThroughOdbc


class OnMariadbThroughOdbc(Commands, CommandLineTest):
    engine = MariadbThroughOdbc


if __name__ == "__main__":
    unittest.main()
