"""Four users in four processes do 2,000 operations at random over one database and a real Dovecot,
and a model says what every listing must show. The same with fewer on every other engine."""

import multiprocessing
import os
import pathlib
import random
import shutil
import subprocess
import sys
import tempfile
import traceback
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "support"))

from database_servers import Mariadb, MariadbThroughOdbc, Postgresql, PostgresqlThroughOdbc
from dovecot import Dovecot
from site_fixture import Site, SiteTest, error_of, korvane, message

OPERATIONS = 500
FEWER_OPERATIONS = 100
USERS = ("ann", "bob", "carol", "dan")
INBOX, SENT = 1, 3


class Model:
    """What one user's boxes and server hold."""

    def __init__(self):
        self.on_server = {}  # subject -> message id header, in the order of delivery
        self.rows = {}       # subject -> dict: box, id, whole, server, deleted


class User:
    """One user's random walk. Every operation checks what it left."""

    def __init__(self, site, dovecot, name, number, seed, operations):
        self.site, self.dovecot, self.name, self.number = site, dovecot, name, number
        self.operations = operations
        self.random = random.Random(seed)
        self.model = Model()
        self.made = 0
        self.log, self.note, self.step = [], "", 0

    def run(self):
        operations = ((self.deliver, 5), (self.synchronise, 5), (self.look, 6), (self.open, 4),
                      (self.delete, 4), (self.compose, 2), (self.clean, 1))
        self.synchronise()
        for self.step in range(self.operations):
            operation = self.random.choices([o for o, _ in operations], [w for _, w in operations])[0]
            operation()
            self.log.append((self.step, operation.__name__, self.note))
            self.note = ""
        self.synchronise()
        self.look_at_everything(INBOX)
        self.look_at_everything(SENT)

    # The operations

    def deliver(self):
        for _ in range(self.random.randint(1, 4)):
            self.made += 1
            subject = f"{self.name} {self.made:05d} l'oggetto"
            minutes = self.made
            body = self.random.choice(["short\r\n", "line of text\r\n" * 300, "x" * 9000 + "\r\n", ".dots\r\n..\r\n"])
            self.dovecot.deliver(self.name, message(
                subject, sender=f"\"Sender {self.random.randint(1, 9)}\" <s@example.com>", body=body,
                received="Tue, 5 Mar 2002 %02d:%02d:%02d +0000" % (minutes // 3600, minutes // 60 % 60, minutes % 60),
                message_id=f"<{self.name}.{self.made}@example.com>"))
            self.model.on_server[subject] = True

    def synchronise(self):
        whole = self.random.random() < 0.5
        remove = whole and self.random.random() < 0.3
        self.note = f"whole={whole} remove={remove}"
        web = self.site.web(self.number)
        page = web.GetListMessagesInBox(INBOX, -10, bDownloadHeaderOnly=not whole, bDeleteMessageOnMailServer=remove)
        assert web.GetLastError == 0, error_of(web)
        for subject in list(self.model.on_server):
            if subject not in self.model.rows:
                self.model.rows[subject] = {"box": INBOX, "id": None, "whole": whole, "server": not remove, "deleted": False}
                if remove:
                    del self.model.on_server[subject]
        self.compare(page, INBOX)

    def look(self):
        box = self.random.choice((INBOX, INBOX, SENT))
        expected = self.visible(box)
        web = self.site.web(self.number)
        web.MailListPageSize = size = self.random.randint(1, 12)
        pages, mails = korvane.Ref(0), korvane.Ref(0)
        last = max(1, -(-len(expected) // size))
        number = self.random.randint(1, last)
        page = web.GetListMessagesInBox(box, -1, moMailOrder=2, modMailOrderDirection=0, lPageNum=number,
                                        lTotPages=pages, lTotMails=mails)
        assert web.GetLastError == 0, error_of(web)
        assert mails.value == len(expected), (mails.value, len(expected))
        assert [m.Subject(0) for m in page] == sorted(expected)[(number - 1) * size:number * size]

    def look_at_everything(self, box):
        page = self.site.web(self.number).GetListMessagesInBox(box, -1)
        self.compare(page, box)

    def open(self):
        subject = self.pick()
        if subject is None:
            return
        row = self.model.rows[subject]
        web = self.site.web(self.number)
        opened = web.GetMessage(row["id"])
        if not row["whole"] and not row["server"]:
            assert opened is None and web.GetLastError == 1003, error_of(web)
            return
        assert opened is not None, (subject, row, error_of(web))
        row["whole"] = True
        assert opened.Subject(0) == subject
        text = korvane.Ref("")
        assert opened.MessageBody(text, 1, 0), error_of(opened)
        assert text.value.strip(), subject

    def delete(self):
        chosen = [s for s in (self.pick(), self.pick()) if s]
        if not chosen:
            return
        kind = self.random.choice(list(korvane.EDelType))
        web = self.site.web(self.number)
        done = web.DeleteMessage(",".join(str(self.model.rows[s]["id"]) for s in set(chosen)), kind)
        assert done, error_of(web)
        self.note = f"{kind.name} {sorted(set(chosen))}"
        for subject in set(chosen):
            row = self.model.rows[subject]
            if kind != korvane.EDelType.DEL_TYPE_LOCALE:
                row["server"] = False
                self.model.on_server.pop(subject, None)
            if kind != korvane.EDelType.DEL_TYPE_SERVER:
                row["deleted"] = True

    def compose(self):
        self.made += 1
        subject = f"{self.name} {self.made:05d} draft"
        new = self.site.web(self.number).NewMessage()
        new.NM_From, new.NM_MessageTo, new.NM_Subject, new.NM_MessageBody = "me@example.com", "you@example.org", subject, "text"
        assert new.NM_Save(korvane.connect(self.site.url)), error_of(new)
        self.model.rows[subject] = {"box": SENT, "id": new.Id, "whole": True, "server": False, "deleted": False}

    def clean(self):
        # Little mail is dead here, so the count is raised to where a compaction starts.
        connection = korvane.connect(self.site.url)
        connection.Execute("UPDATE Pulizia SET dim_msg_canc_file=4000000 WHERE id_utente=%d" % self.number)
        web = self.site.web(self.number)
        assert web.BackgroundClean(), error_of(web)

    # What they share

    def visible(self, box):
        return [s for s, row in self.model.rows.items() if row["box"] == box and not row["deleted"]]

    def pick(self):
        known = [s for s in self.visible(INBOX) + self.visible(SENT) if self.model.rows[s]["id"]]
        return self.random.choice(known) if known else None

    def compare(self, page, box):
        listed, expected = sorted(m.Subject(0) for m in page), sorted(self.visible(box))
        assert listed == expected, (
            f"lost: {[(s, self.model.rows[s]) for s in expected if s not in listed]}, "
            f"come back or doubled: {[s for s in listed if s not in expected or listed.count(s) > 1]}")
        for listed in page:
            self.model.rows[listed.Subject(0)]["id"] = listed.Id


def walk(site, dovecot, name, number, seed, operations, outcome):
    user = User(site, dovecot, name, number, seed, operations)
    try:
        user.run()
        outcome.put((name, None))
    except BaseException:
        steps = "\n".join(f"  {step} {operation} {note}" for step, operation, note in user.log[-40:])
        outcome.put((name, f"{traceback.format_exc()}in step {user.step}, after\n{steps}"))


class DatabaseSite(Site):
    """An installation over the empty database at a URL."""

    def __init__(self, url):
        super().__init__()
        self.url = self.settings["DbConnectionString"] = url
        subprocess.run([pathlib.Path(os.environ["KORVANE_BIN"], "korvane"), "init", "--database", url,
                        "--dir", self.folder], check=True, stdout=subprocess.DEVNULL)
        self.write_settings()

    def add_account(self, account, port, user, username, time_out, default=True):
        connection = korvane.connect(self.url)
        for statement in (
                "INSERT INTO account_email (Id_account_email, Nome_server, Porta_server, Time_out_server, "
                f"Username_server, Password_server, caso) VALUES ({account}, '127.0.0.1', {port}, {time_out}, "
                f"'{username}', 'secret', 0)",
                "INSERT INTO account_email_utenti (Id_account_email_utenti, id_utente, Id_account_email) "
                f"VALUES ({account}, {user}, {account})",
                f"INSERT INTO utenti (id_utente, Account_default) VALUES ({user}, {account})"):
            connection.Execute(statement)


class Walks:
    """Four walks at once over an installation."""

    def walk_at_random(self, site, operations):
        seed = int(os.environ.get("KORVANE_SOAK_SEED", "20261"))
        with Dovecot(USERS) as dovecot:
            for number, name in enumerate(USERS, 1):
                site.add_account(number, dovecot.port, user=number, default=True, username=name, time_out=30_000)
            context = multiprocessing.get_context("fork")
            outcome = context.Queue()
            walks = [context.Process(target=walk, args=(site, dovecot, name, number, seed + number, operations,
                                                        outcome))
                     for number, name in enumerate(USERS, 1)]
            for one in walks:
                one.start()
            results = dict(outcome.get(timeout=600) for _ in walks)
            for one in walks:
                one.join(30)
            for name, fault in results.items():
                self.assertIsNone(fault, f"{name} (seed {seed}):\n{fault}")
            for name in USERS:
                subjects = [m for m in dovecot.held(name)]
                self.assertEqual(len(subjects), len(set(subjects)), "the server holds each message once")


class Soak(Walks, SiteTest):
    def test_2000_random_operations_by_four_users_leave_what_the_model_says(self):
        self.walk_at_random(self.site, OPERATIONS)


class SoakOnOtherEngines(Walks, unittest.TestCase):
    def walk_on(self, url):
        site = DatabaseSite(url)
        self.addCleanup(site.remove)
        self.walk_at_random(site, FEWER_OPERATIONS)

    def walk_on_server(self, engine):
        server = engine()
        self.addCleanup(server.stop)
        self.walk_on(server.url(server.new_database()))

    def test_random_operations_on_postgresql(self):
        self.walk_on_server(Postgresql)

    def test_random_operations_on_mariadb(self):
        self.walk_on_server(Mariadb)

    def test_random_operations_on_postgresql_through_odbc(self):
        self.walk_on_server(PostgresqlThroughOdbc)

    def test_random_operations_on_mariadb_through_odbc(self):
        self.walk_on_server(MariadbThroughOdbc)

    def test_random_operations_on_sqlite_through_odbc(self):
        folder = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, folder, ignore_errors=True)
        self.walk_on(f"odbc:Driver=SQLite3;Database={folder}/mail.db")


if __name__ == "__main__":
    unittest.main()
