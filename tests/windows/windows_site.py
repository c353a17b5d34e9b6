"""An installation for the pages: settings in the registry, a database, folders, mail servers."""

import os
import pathlib
import shutil
import sqlite3
import sys
import tempfile

import prefix
from prefix import SOURCE, windows_path

sys.path.insert(0, str(SOURCE / "tests" / "automation"))
from dovecot import Dovecot  # noqa: E402,F401  (the pages' mail server; pages and tests take it here)

KEY = r"HKEY_LOCAL_MACHINE\SOFTWARE\Tarsel_IS_App\KorvaneMulti\Korvane%d\KorvaneDll"
USER = 7


def message(subject="Hello", sender="Ann <ann@example.com>", to="bob@example.org", body="Hi\r\n",
            minute=20, received=True, extra=()):
    """A message as a server stores it; its time is 5 March 2002, 10:00 and so many minutes."""
    lines = []
    if received:
        lines.append("Received: from a.example by b.example; Tue, 5 Mar 2002 10:%02d:00 +0000" % minute)
    lines += ["From: " + sender, "To: " + to, "Subject: " + subject,
              "Date: Tue, 5 Mar 2002 09:%02d:00 +0000" % minute,
              "Message-ID: <%d.%s@example.com>" % (minute, abs(hash(subject))), *extra]
    return ("\r\n".join(lines) + "\r\n\r\n" + body).encode()


class Site:
    """The settings have an instance number of their own, so that tests can run side by side."""

    def __init__(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="korvane-windows-"))
        self.instance = os.getpid()
        self.database = self.folder / "mail.db"
        with sqlite3.connect(self.database) as connection:
            connection.executescript((SOURCE / "schema" / "sqlite.sql").read_text())
        for name in ("attachments", "outgoing", "messages", "log"):
            (self.folder / name).mkdir()
        self.connection_string = "Driver=SQLite3;Database=%s;Timeout=10000" % self.database
        self.settings = {
            "PathAtcmts": windows_path(self.folder / "attachments"),
            "PathAtcmtsInvio": windows_path(self.folder / "outgoing"),
            "URLAtcmts": "https://mail.example.com/files",
            "PathMessages": windows_path(self.folder / "messages"),
            "PathLog": windows_path(self.folder / "log"),
            "PathBackgrDownloader": windows_path(self.folder / "log"),
            "DbConnectionString": self.connection_string,
            "ServerTimeout": 3000,
            "DebugMode": 1,
        }
        self.instances = []

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.instances:
            prefix.import_registry("Windows Registry Editor Version 5.00\n\n" + "".join(
                "[-%s]\n" % (KEY % instance).rpartition("\\")[0] for instance in self.instances),
                self.folder)
        shutil.rmtree(self.folder, ignore_errors=True)

    def write_settings(self, instance=None, without=(), **changed):
        """Puts an instance into the registry; its number."""
        return self.write_several([(instance, without, changed)])[0]

    def write_several(self, wanted):
        """Several instances by one import: (number or None, values left out, values changed)."""
        lines, numbers = ["Windows Registry Editor Version 5.00", ""], []
        for instance, without, changed in wanted:
            number = instance or self.instance + 100_000 * len(self.instances)
            self.instances.append(number)
            numbers.append(number)
            lines.append("[%s]" % (KEY % number))
            for name, value in {**self.settings, **changed}.items():
                if name not in without:
                    text = ("dword:%08x" % value if isinstance(value, int)
                            else '"%s"' % value.replace("\\", "\\\\").replace('"', '\\"'))
                    lines.append('"%s"=%s' % (name, text))
            lines.append("")
        prefix.import_registry("\n".join(lines), self.folder)
        return numbers

    def sql(self, statement, *values):
        with sqlite3.connect(self.database) as connection:
            return connection.execute(statement, values).fetchall()

    def add_account(self, account, port, user=USER, default=False, caso=0, password="secret",
                    username="ann", host="127.0.0.1"):
        """One row of the view, through the tables behind it."""
        self.sql("INSERT INTO account_email (Id_account_email, Nome_server, Porta_server, Time_out_server, "
                 "Username_server, Password_server, caso) VALUES (?,?,?,10000,?,?,?)",
                 account, host, port, username, password, caso)
        self.sql("INSERT INTO account_email_utenti (Id_account_email_utenti, id_utente, Id_account_email) "
                 "VALUES (?,?,?)", 100 + account, user, account)
        self.sql("INSERT OR IGNORE INTO utenti (id_utente) VALUES (?)", user)
        if default:
            self.sql("UPDATE utenti SET Account_default=? WHERE id_utente=?", 100 + account, user)

    def files(self, name):
        """The files of one of the folders, by name."""
        return {path.name: path.read_bytes() for path in (self.folder / name).iterdir()}

    def log(self):
        path = self.folder / "log" / "korvane_debug.log"
        return path.read_text() if path.exists() else ""
