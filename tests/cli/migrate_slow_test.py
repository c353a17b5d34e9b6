"""korvane migrate from every engine to every other, each copy killed at random moments and resumed,
and from a database that is in use."""

import pathlib
import random
import signal
import sqlite3
import subprocess
import sys
import threading
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "support"))

from command_line import BIN, CommandLineTest
from database_servers import Mariadb, Postgresql

MESSAGES = 4000
KILLS = 4
TABLES = ("account_email", "account_email_utenti", "utenti", "mail", "messaggi_eliminati",
          "ultimi_scaricamenti", "Pulizia")


class Migrate(CommandLineTest):
    def setUp(self):
        super().setUp()
        self.init()
        self.first = self.folder / "store" / "mail.db"
        self.random = random.Random(5)
        subjects = ("l''ora \\ Città", "📧 ''quoted'' %", "", "--; DROP", "[x] \"y\"")
        with sqlite3.connect(self.first) as database:
            for i in range(1, MESSAGES + 1):
                database.execute(
                    "INSERT INTO mail (id_mail, id_utente, id_server, id_cartella, Letto, mittente, "
                    "destinatario, data, oggetto, dimensione, campo_received, campo_MessageId, allegati, "
                    "body_scaricato, IdSulServer, DataDownload, Cancellata, DwnldCorrettoFAQ) "
                    "VALUES (?,?,3,1,?,?,?,?,?,?,?,?,0,?,?,'05/03/2002 09:05:07',?,-1)",
                    (i * 3, 1 + i % 4, -(i % 2), f"O''Hara {i}", "r" * (i % 700),
                     "0001-01-01 00:00:00" if i % 9 == 0 else f"2002-03-05 {i % 24:02}:05:07",
                     subjects[i % 5] + f" {i}", i, f"from a by b; {i}", f"<{i}@example.com>",
                     i * 100 if i % 6 else -1, i if i % 3 else -100, -(i % 7 == 0)))
            for i in range(1, 700):
                database.execute(
                    "INSERT INTO messaggi_eliminati (id_eliminato, id_utente, id_server, campo_received, "
                    "campo_MessageId, mittente, oggetto, data, dimensione, DwnldCorrettoFAQ) VALUES "
                    "(?,1,3,'x','<y>','z','l''''ora','2002-03-05 09:05:07',?,0)", (i, i))
            database.execute("INSERT INTO account_email VALUES "
                             "(31,'pop.example.com',110,5000,'ada','it''s \\ secret',NULL)")
            database.execute("INSERT INTO account_email_utenti VALUES (1,7,31)")
            database.execute("INSERT INTO ultimi_scaricamenti VALUES (1,31,7,'0001-01-01 00:00:00',-1)")
            database.execute("INSERT INTO Pulizia VALUES (4,7,99)")

    def contents(self, path):
        with sqlite3.connect(path) as database:
            return {table: database.execute(f"SELECT * FROM {table} ORDER BY 1").fetchall()
                    for table in TABLES}

    def start(self, source, target):
        return subprocess.Popen([BIN / "korvane", "migrate", "--from", source, "--to", target],
                                env=self.environment(), stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                text=True)

    def time_of_a_copy(self):
        begin = time.monotonic()
        self.korvane("migrate", "--from", f"sqlite://{self.first}", "--to", f"sqlite://{self.folder}/timed.db")
        return time.monotonic() - begin

    def copy_with_kills(self, source, target, whole):
        """How many of the runs died, and the rows of mail that the last one found there."""
        killed = 0
        for _ in range(KILLS):
            process = self.start(source, target)
            time.sleep(self.random.uniform(0.02, whole))
            process.kill()
            process.communicate()
            killed += process.returncode == -signal.SIGKILL
        last = self.korvane("migrate", "--from", source, "--to", target, "--json").json()
        mail, = (table for table in last["tables"] if table["table"] == "mail")
        self.assertEqual(mail["there"] + mail["copied"], MESSAGES)
        return killed, mail["there"]

    def test_a_copy_killed_at_any_moment_is_completed_between_all_engines(self):
        postgresql, mariadb = Postgresql(), Mariadb()
        self.addCleanup(postgresql.stop)
        self.addCleanup(mariadb.stop)
        place = {
            "sqlite": lambda: f"sqlite://{self.folder}/{self.random.getrandbits(60)}.db",
            "postgresql": lambda: postgresql.url(postgresql.new_database()),
            "mariadb": lambda: mariadb.url(mariadb.new_database()),
        }
        # Every engine to every other, each copy made of the one before; more of them where none of
        # these was killed inside its rows.
        source, killed, resumed = f"sqlite://{self.first}", 0, 0
        whole = self.time_of_a_copy()
        pairs = ("postgresql", "mariadb", "sqlite", "mariadb", "postgresql", "sqlite")
        for number, engine in enumerate(pairs * 3):
            if number >= len(pairs) and resumed and engine == pairs[0]:
                break
            target = place[engine]()
            died, there = self.copy_with_kills(source, target, whole)
            killed, resumed = killed + died, resumed + (0 < there < MESSAGES)
            source = target
        self.assertEqual(self.contents(source.removeprefix("sqlite://")), self.contents(self.first))
        print(f"{killed} runs killed, {resumed} copies resumed inside their rows")
        self.assertGreater(killed, KILLS)
        self.assertGreater(resumed, 0)

    def test_a_source_in_use_is_found_by_the_check(self):
        target = f"sqlite://{self.folder}/new.db"
        done = threading.Event()

        def write():
            database = sqlite3.connect(self.first, timeout=30)
            change = 0
            while not done.is_set():
                change += 1
                with database:
                    database.execute("UPDATE mail SET oggetto=? WHERE id_mail=3", (f"change {change}",))
                time.sleep(0.001)

        writer = threading.Thread(target=write)
        writer.start()
        process = self.start(f"sqlite://{self.first}", target)
        _, error = process.communicate()
        done.set()
        writer.join()
        self.assertEqual(process.returncode, 4, error)
        self.assertIn("mail, id_mail 3, oggetto", error)
        self.assertIn("in use", error)

    def test_a_row_that_goes_from_the_source_is_found_by_the_check(self):
        target = f"sqlite://{self.folder}/new.db"
        self.korvane("migrate", "--from", f"sqlite://{self.first}", "--to", target)
        with sqlite3.connect(self.first) as database:
            database.execute("DELETE FROM mail WHERE id_mail=600")
            database.execute("INSERT INTO mail (id_mail, id_utente) VALUES (100000, 1)")
        result = self.korvane("migrate", "--from", f"sqlite://{self.first}", "--to", target, status=4)
        self.assertIn("mail, id_mail 603 or 600: only in one of the two", result.err)


if __name__ == "__main__":
    unittest.main()
