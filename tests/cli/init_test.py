"""korvane init."""

import sqlite3
import stat
import unittest

from command_line import CommandLineTest


class Init(CommandLineTest):
    def test_it_makes_settings_folders_and_tables_for_their_owner_only(self):
        self.init()
        text = self.registry.read_text()
        self.assertTrue(text.startswith("Windows Registry Editor Version 5.00"))
        self.assertIn(r"\SOFTWARE\Tarsel_IS_App\KorvaneMulti\Korvane1\KorvaneDll]", text)
        store = self.folder / "store"
        for path in [self.registry, store / "mail.db"]:
            self.assertEqual(stat.S_IMODE(path.stat().st_mode), 0o600, path)
        for name in ["attachments", "outgoing", "messages", "log", "downloads"]:
            self.assertEqual(stat.S_IMODE((store / name).stat().st_mode), 0o700, name)
        self.assertIn("0 messages", self.korvane("list").out)

    def test_a_second_run_keeps_what_is_set(self):
        self.init()
        text = self.registry.read_text().replace('"DebugMode"=dword:00000000',
                                                 '"DebugMode"=dword:00000001')
        self.registry.write_text(text, newline="")
        self.korvane("init", "--attachments-url", "https://mail.example.org/files")
        text = self.registry.read_text()
        self.assertIn('"DebugMode"=dword:00000001', text)
        self.assertIn('"URLAtcmts"="https://mail.example.org/files"', text)
        self.assertIn(str(self.folder / "store" / "messages"), text)

    def test_a_dry_run_prints_the_statements_and_makes_nothing(self):
        plan = self.korvane("init", "--dry-run", "--dir", self.folder / "store", "--json").json()
        self.assertEqual((plan["schema"], plan["needed"]), (0, 3))
        self.assertTrue(any("CREATE TABLE IF NOT EXISTS mail " in s for s in plan["statements"]))
        self.assertFalse((self.folder / "store").exists())
        self.assertFalse(self.registry.exists())
        self.init()
        self.assertIn("nothing to do", self.korvane("init", "--dry-run").out)

    def test_older_tables_are_brought_up_to_date_and_newer_ones_left_alone(self):
        self.init()
        with sqlite3.connect(self.folder / "store" / "mail.db") as database:
            database.execute("DELETE FROM schema_version WHERE version>1")
            database.execute("DROP TABLE conteggi_non_letti")
            for trigger in ("nuova", "tolta", "cambiata"):
                database.execute("DROP TRIGGER mail_non_letta_" + trigger)
            database.execute("INSERT INTO mail (id_mail, id_utente) VALUES (5, 1)")
        self.assertEqual(self.korvane("init", "--dry-run", "--json").json()["schema"], 1)
        self.assertIn("version 1", self.korvane("check", status=None).out)
        self.korvane("init")
        with sqlite3.connect(self.folder / "store" / "mail.db") as database:
            self.assertEqual(database.execute("SELECT numero FROM conteggi_non_letti").fetchall(), [(1,)])
            database.execute("INSERT INTO schema_version VALUES (99)")
        self.assertIn("newer", self.korvane("init", status=4).err)
        self.assertIn("newer", self.korvane("init", "--dry-run", status=4).err)

    def test_installations_have_settings_of_their_own(self):
        self.init()
        self.korvane("init", "--instance", 2, "--dir", self.folder / "other")
        self.assertTrue((self.folder / "other/mail.db").exists())
        self.korvane("list", "--instance", 2)
        self.korvane("list", "--instance", 3, status=3)

    def test_a_folder_with_odd_characters_in_its_name_works(self):
        self.korvane("init", "--dir", self.folder / "50% là giù?#&")
        self.assertTrue((self.folder / "50% là giù?#&" / "mail.db").exists())

    def test_the_database_can_be_named_on_the_standard_input(self):
        self.korvane("init", "--dir", self.folder / "store", "--database", "-",
                     input=f"sqlite://{self.folder}/elsewhere.db\n")
        self.assertTrue((self.folder / "elsewhere.db").exists())

    def test_a_database_that_cannot_be_opened_is_status_4(self):
        result = self.korvane("init", "--dir", self.folder, "--database", "oracle://x/y", status=4)
        self.assertIn("the engine is not one of", result.err)

    def test_settings_that_cannot_be_written_are_status_3_or_9(self):
        blocked = self.folder / "a file"
        blocked.write_text("")
        result = self.korvane("init", "--registry", blocked / "x/registry.reg", status=9)
        self.assertIn(str(blocked), result.err)

    def test_without_settings_every_command_is_status_3_with_number_and_advice(self):
        for command in (["list"], ["sync"], ["account", "list"]):
            result = self.korvane(*command, status=3)
            self.assertIn("error 1043", result.err)
            self.assertIn("korvane init", result.err)

    def test_a_database_without_tables_is_status_4(self):
        self.init()
        (self.folder / "store/mail.db").write_bytes(b"")
        self.assertIn("korvane init", self.korvane("list", status=4).err)


if __name__ == "__main__":
    unittest.main()
