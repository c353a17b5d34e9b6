"""An installation in a temporary folder, for tests: settings file, database, users and accounts."""

import os
import pathlib
import shutil
import sqlite3
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "automation" / "python"))

import korvane  # noqa: E402  (the package is found through the path above)

# The host of a server here, in the form that the run asks for ("pop3+ahead://").
HERE = os.environ.get("KORVANE_TEST_SCHEME", "") + "127.0.0.1"
KEY = r"HKEY_LOCAL_MACHINE\SOFTWARE\Tarsel_IS_App\KorvaneMulti\Korvane%d\KorvaneDll"


def message(subject="Hello", sender="Ann <ann@example.com>", to="bob@example.org", body="Hi\r\n",
            received="Tue, 5 Mar 2002 10:20:30 +0000", message_id=None, extra=()):
    """A message as a server stores it."""
    lines = []
    if received:
        lines.append("Received: from a.example by b.example; " + received)
    lines += ["From: " + sender, "To: " + to, "Subject: " + subject,
              "Message-ID: " + (message_id or "<%s@example.com>" % abs(hash(subject))), *extra]
    return ("\r\n".join(lines) + "\r\n\r\n" + body).encode()


class Site:
    """The verbs that the tests speak in."""

    def __init__(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="korvane-"))
        self.database = self.folder / "mail.db"
        self.url = "sqlite://" + str(self.database)
        with sqlite3.connect(self.database) as connection:
            connection.executescript((ROOT / "schema" / "sqlite.sql").read_text())
        for name in ("attachments", "outgoing", "messages", "log"):
            (self.folder / name).mkdir()
        self.settings = {
            "PathAtcmts": str(self.folder / "attachments"),
            "PathAtcmtsInvio": str(self.folder / "outgoing"),
            "URLAtcmts": "https://mail.example.com/files",
            "PathMessages": str(self.folder / "messages"),
            "PathLog": str(self.folder / "log"),
            "PathBackgrDownloader": str(self.folder / "log"),
            "DbConnectionString": self.url,
            "ServerTimeout": 3000,
            "DebugMode": 0,
        }
        os.environ["KORVANE_REGISTRY"] = str(self.folder / "registry.reg")
        self.write_settings()

    def remove(self):
        shutil.rmtree(self.folder, ignore_errors=True)

    def write_settings(self, without=(), **changed):
        values = {**self.settings, **changed}
        lines = ["Windows Registry Editor Version 5.00", "", "[%s]" % (KEY % 1)]
        for name, value in values.items():
            if name in without:
                continue
            text = ("dword:%08x" % value if isinstance(value, int)
                    else '"%s"' % value.replace("\\", "\\\\").replace('"', '\\"'))
            lines.append('"%s"=%s' % (name, text))
        (self.folder / "registry.reg").write_text("\r\n".join(lines) + "\r\n")

    def add_account(self, account, port, user=7, default=False, caso=0, password="secret",
                    username="ann", host=HERE, time_out=3000):
        """One row of the view, through the tables behind it."""
        with sqlite3.connect(self.database) as connection:
            connection.execute(
                "INSERT INTO account_email (Id_account_email, Nome_server, Porta_server, "
                "Time_out_server, Username_server, Password_server, caso) VALUES (?,?,?,?,?,?,?)",
                (account, host, port, time_out, username, password, caso))
            link = connection.execute(
                "INSERT INTO account_email_utenti (id_utente, Id_account_email) VALUES (?,?)",
                (user, account)).lastrowid
            connection.execute("INSERT OR IGNORE INTO utenti (id_utente) VALUES (?)", (user,))
            if default:
                connection.execute("UPDATE utenti SET Account_default=? WHERE id_utente=?",
                                   (link, user))

    def sql(self, statement, *values):
        with sqlite3.connect(self.database) as connection:
            return connection.execute(statement, values).fetchall()

    def boss(self):
        boss = korvane.create("BossObject")
        assert boss.Init(1), boss.GetLastError
        return boss

    def web(self, user=7, account=None):
        """A facade that is ready to be used."""
        web = korvane.create("WebInterface")
        web.ConnDataBase = korvane.connect(self.url)
        web.UserId = user
        ready = web.Init(self.boss()) if account is None else web.Init(self.boss(), account)
        assert ready, web.GetLastError
        return web


class SiteTest(unittest.TestCase):
    """A test with an installation of its own."""

    def setUp(self):
        self.site = Site()
        self.addCleanup(self.site.remove)


def error_of(thing):
    return thing.GetLastError, thing.GetLastErrorDesc
