"""korvane clean and korvane check."""

import os
import sqlite3
import time
import unittest

from command_line import CommandLineTest


class Maintenance(CommandLineTest):
    def setUp(self):
        super().setUp()
        self.init()
        self.store = self.folder / "store"
        self.messages = self.store / "messages" / "1_Messaggi.dat"
        self.attachments = self.store / "attachments"

    def execute(self, statement):
        connection = sqlite3.connect(self.store / "mail.db")
        rows = connection.execute(statement).fetchall()
        connection.commit()
        connection.close()
        return rows

    def fill(self, count=3, body="a text\n", more=""):
        for i in range(1, count + 1):
            self.put(f"{i:03}", f"number {i:03}", f"Mon, 3 Mar 2025 08:00:{i:02} +0000", body=body)
        if more:
            (self.mail / "900").write_text(more)
        self.server = self.serve()
        self.add_account(self.server)
        self.korvane("sync")

    WITH_FILE = ("Received: by x; Mon, 3 Mar 2025 09:00:00 +0000\nMessage-ID: <f@x>\n"
                 "Subject: with a file\nContent-Type: multipart/mixed; boundary=b\n\n--b\n\ntext\n"
                 "--b\nContent-Type: image/gif\nContent-Disposition: attachment; filename=a.gif\n\n"
                 "GIF\n--b--\n")

    def fill_with_dead_bytes(self):
        self.fill(12, "x" * 70 + "\n" + "y" * 70 + "\n" * 2 + ("z" * 70 + "\n") * 7000)
        self.korvane("delete", *range(1, 11), "--local")


class Clean(Maintenance):
    def test_little_dead_is_left(self):
        self.fill()
        self.korvane("delete", 1, "--local")
        result = self.korvane("clean", "--json").json()
        self.assertFalse(result["compacted"])
        self.assertGreater(result["dead"], 0)

    def test_much_dead_is_freed_and_the_rest_stays(self):
        self.fill_with_dead_bytes()
        before = self.messages.stat().st_size
        result = self.korvane("clean", "--json").json()
        self.assertTrue(result["compacted"])
        self.assertEqual(result["freed"], before - self.messages.stat().st_size)
        self.assertEqual(result["dead"], 0)
        self.assertEqual(self.subjects(), ["number 012", "number 011"])
        self.assertIn("z" * 70, self.korvane("show", 12).out)

    def test_the_rows_decide_not_the_count(self):
        self.fill_with_dead_bytes()
        self.assertTrue(self.korvane("clean", "--json").json()["compacted"])
        # The count of dead bytes is never set back; a second run all the same finds nothing to do.
        self.assertFalse(self.korvane("clean", "--json").json()["compacted"])

    def test_a_count_that_was_lost_does_not_stop_it(self):
        self.fill_with_dead_bytes()
        self.execute("DELETE FROM Pulizia")
        self.assertTrue(self.korvane("clean", "--json").json()["compacted"])

    def test_without_a_message_file_there_is_nothing_to_do(self):
        self.assertIn("Nothing to compact", self.korvane("clean").out)

    def test_the_sweep_takes_old_files_without_a_message_only(self):
        self.fill(1, more=self.WITH_FILE)
        kept, = self.attachments.iterdir()
        old = time.time() - 2 * 24 * 3600
        os.utime(kept, (old, old))
        for name, age in (("1_77_1_gone.gif", old), ("1_77_2_young.gif", None),
                          ("2_77_1_anothers.gif", old), ("page.html", old), ("1_2", old),
                          (".korvane_77_1.tmp", old), (".korvane_77_2.tmp", None)):
            path = self.attachments / name
            path.write_text("x")
            if age:
                os.utime(path, (age, age))
        (self.folder / "elsewhere").write_text("x")
        (self.attachments / "1_78_1_link").symlink_to(self.folder / "elsewhere")
        os.utime(self.attachments / "1_78_1_link", (old, old), follow_symlinks=False)
        self.assertEqual(self.korvane("clean", "--sweep", "--json").json()["swept"], 2)
        left = sorted(path.name for path in self.attachments.iterdir())
        self.assertEqual(left, sorted([kept.name, "1_77_2_young.gif", "2_77_1_anothers.gif",
                                       "page.html", "1_2", "1_78_1_link", ".korvane_77_2.tmp"]))


class Check(Maintenance):
    def findings(self, *options, status=0):
        result = self.korvane("check", "--json", *options, status=status).json()
        return [(item["finding"], item["repaired"]) for item in result["findings"]]

    def damage(self, id=1):
        position, = self.execute(f"SELECT body_scaricato FROM mail WHERE id_mail={id}")[0]
        with open(self.messages, "r+b") as file:
            file.seek(position - 1)
            file.write(b"\xff" * 12)

    def test_a_good_store_is_well(self):
        self.fill(more=self.WITH_FILE)
        self.assertIn("1 user, 4 messages looked at: everything is well", self.korvane("check").out)

    def test_a_damaged_record_is_found_and_fetched_again(self):
        self.fill()
        self.damage()
        (what, repaired), = self.findings(status=9)
        self.assertIn("message 1: its record cannot be read", what)
        self.assertFalse(repaired)
        self.assertEqual([repaired for _, repaired in self.findings("--repair")], [True])
        self.assertEqual(self.findings(), [])
        item = self.korvane("list", "--json").json()["items"][-1]
        self.assertFalse(item["read"])
        self.assertIn("a text", self.korvane("show", 1).out)

    def test_what_is_no_longer_on_the_server_stays_as_it_is(self):
        self.fill()
        self.damage()
        self.server.stop()
        before = self.execute("SELECT * FROM mail")
        (_, repaired), = self.findings("--repair", status=9)
        self.assertFalse(repaired)
        self.assertEqual(self.execute("SELECT * FROM mail"), before)

    def test_a_missing_attachment_is_found_and_fetched_again(self):
        self.fill(1, more=self.WITH_FILE)
        path, = self.attachments.iterdir()
        path.unlink()
        (what, _), = self.findings(status=9)
        self.assertIn("attachments are missing: a.gif", what)
        self.assertEqual([repaired for _, repaired in self.findings("--repair")], [True])
        self.assertEqual(path.read_bytes(), b"GIF")

    def test_an_interrupted_compaction_is_found_and_undone(self):
        self.fill()
        backup = self.messages.with_name("1_Messaggi_cpy.dat")
        self.messages.rename(backup)
        (what, _), = self.findings(status=9)
        self.assertIn("a compaction was interrupted", what)
        self.assertTrue(backup.exists())
        self.assertEqual([repaired for _, repaired in self.findings("--repair")], [True])
        self.assertFalse(backup.exists())
        self.assertEqual(self.findings(), [])

    def test_a_file_that_a_compaction_left_half_is_removed(self):
        self.fill()
        half = self.messages.with_name("1_Messaggi_tmp.dat")
        half.write_bytes(b"half")
        self.assertEqual(len(self.findings(status=9)), 1)
        self.assertEqual([repaired for _, repaired in self.findings("--repair")], [True])
        self.assertFalse(half.exists())

    def test_an_account_in_doubt_is_settled(self):
        self.fill()
        self.execute("UPDATE ultimi_scaricamenti SET Error=-1")
        (what, _), = self.findings(status=1)
        self.assertIn("account 1: its last download did not come to its end", what)
        self.assertEqual([repaired for _, repaired in self.findings("--repair")], [True])
        self.assertEqual(self.execute("SELECT Error FROM ultimi_scaricamenti"), [(0,)])
        self.assertEqual(len(self.subjects()), 3)

    def test_an_account_whose_server_is_away_is_not_settled(self):
        self.fill()
        self.execute("UPDATE ultimi_scaricamenti SET Error=-1")
        self.server.stop()
        (what, repaired), = self.findings("--repair", status=1)
        self.assertFalse(repaired)
        self.assertIn("error 1093", what)

    def test_every_user_is_looked_at(self):
        self.fill()
        self.korvane("compose", "--user", 5, "--box", 1, input="x")
        self.damage()
        result = self.korvane("check", "--user", 5, "--json", status=9).json()
        self.assertEqual((result["users"], result["messages"]), (2, 4))

    def test_a_missing_folder_is_status_9(self):
        self.attachments.rmdir()
        (what, _), = self.findings(status=9)
        self.assertIn("PathAtcmts", what)

    def test_tables_of_another_version_are_status_4(self):
        self.execute("INSERT INTO schema_version (version) VALUES (99)")
        (what, _), = self.findings(status=4)
        self.assertIn("version 99", what)


if __name__ == "__main__":
    unittest.main()
