"""korvane migrate."""

import sqlite3
import unittest

from command_line import CommandLineTest


class Migrate(CommandLineTest):
    def setUp(self):
        super().setUp()
        self.init()
        self.old = self.folder / "store" / "mail.db"
        self.new = self.folder / "new.db"
        with sqlite3.connect(self.old) as database:
            for i in range(1, 1101):
                database.execute("INSERT INTO mail (id_mail, id_utente, oggetto, data) VALUES (?, 1, ?, "
                                 "'2002-03-05 09:05:07')", (i, f"l'ora {i}"))

    def migrate(self, *more, **other):
        return self.korvane("migrate", "--from", f"sqlite://{self.old}", "--to",
                            f"odbc:Driver=SQLite3;Database={self.new}", *more, **other)

    def test_an_installation_goes_on_over_its_new_database(self):
        self.assertIn("mail: 1100 rows", self.migrate().out)
        self.korvane("init", "--database", f"sqlite://{self.new}")
        self.old.unlink()
        self.assertIn("1100 messages", self.korvane("list").out)

    def test_a_copy_that_was_broken_off_goes_on(self):
        self.migrate()
        with sqlite3.connect(self.new) as database:
            database.execute("DELETE FROM mail WHERE id_mail>300")
        tables = {table["table"]: table for table in self.migrate("--json").json()["tables"]}
        self.assertEqual((tables["mail"]["there"], tables["mail"]["copied"]), (300, 800))

    def test_a_copy_that_differs_is_no_success(self):
        self.migrate()
        with sqlite3.connect(self.new) as database:
            database.execute("UPDATE mail SET oggetto='x' WHERE id_mail=77")
        self.assertIn("mail, id_mail 77, oggetto", self.migrate(status=4).err)

    def test_what_cannot_be_copied_is_refused(self):
        self.assertIn("the same", self.korvane("migrate", "--from", f"sqlite://{self.old}", "--to",
                                               f"sqlite://{self.old}", status=2).err)
        sqlite3.connect(self.new).close()
        self.new.touch()
        self.assertIn("no tables", self.korvane("migrate", "--from", f"sqlite://{self.new}", "--to",
                                                f"sqlite://{self.old}", status=4).err)
        with sqlite3.connect(self.old) as database:
            database.execute("DELETE FROM schema_version WHERE version>1")
        self.assertIn("version 1", self.migrate(status=4).err)


if __name__ == "__main__":
    unittest.main()
