"""A PostgreSQL server of the test's own, in a temporary folder, and an installation that uses it."""

import os
import pathlib
import pwd
import shutil
import socket
import subprocess
import tempfile
import time

from prefix import SOURCE
from windows_site import Site


class PostgresqlSite(Site):
    """Use as a context manager, as a Site."""

    def __enter__(self):
        self.server_folder = pathlib.Path(tempfile.mkdtemp(prefix="kpg", dir="/tmp"))
        self._programs = max(pathlib.Path("/usr/lib/postgresql").iterdir()) / "bin"
        # The server does not run as root.
        self._as = {"user": "postgres", "group": "postgres"} if os.geteuid() == 0 else {}
        if self._as:
            os.chown(self.server_folder, pwd.getpwnam("postgres").pw_uid, -1)
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            self.port = probe.getsockname()[1]
        self._run("initdb", "--no-sync", "--auth=trust", "--username=korvane", "--encoding=UTF8",
                  "--locale=C.UTF-8", "--pgdata=" + str(self.server_folder / "data"))
        self._server = subprocess.Popen(
            [self._programs / "postgres", "-D", self.server_folder / "data", "-p", str(self.port), "-k",
             self.server_folder, "-c", "listen_addresses=127.0.0.1", "-c", "fsync=off"],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
            cwd=self.server_folder, **self._as)
        deadline = time.monotonic() + 30
        while subprocess.run([self._programs / "pg_isready", "-q", "-h", "127.0.0.1", "-p", str(self.port)],
                             check=False).returncode != 0:
            if time.monotonic() > deadline:
                raise RuntimeError("PostgreSQL does not start")
            time.sleep(0.1)
        self._psql((SOURCE / "schema" / "postgresql.sql").read_text())
        # Booleans as booleans, and one question of the driver's own less for each statement.
        self.connection_string = (
            "Driver={PostgreSQL Unicode};Servername=127.0.0.1;Port=%d;Database=postgres;UID=korvane;"
            "BoolsAsChar=0;MaxLongVarcharSize=1048576;TextAsLongVarchar=1" % self.port)
        self.settings["DbConnectionString"] = self.connection_string
        return self

    def __exit__(self, *arguments):
        self._server.terminate()
        try:
            self._server.wait(20)
        except subprocess.TimeoutExpired:
            self._server.kill()
        shutil.rmtree(self.server_folder, ignore_errors=True)
        super().__exit__(*arguments)

    def sql(self, statement, *values):
        pieces = statement.replace("INSERT OR IGNORE INTO utenti (id_utente) VALUES (?)",
                                   "INSERT INTO utenti (id_utente) VALUES (?) ON CONFLICT DO NOTHING").split("?")
        quoted = ["'%s'" % str(value).replace("'", "''") for value in values] + [""]
        answer = self._psql("".join(text + value for text, value in zip(pieces, quoted)))
        return [tuple(int(cell) if cell.lstrip("-").isdigit() else cell for cell in line.split("\t"))
                for line in answer.splitlines()]

    def _psql(self, statements):
        return self._run("psql", "-qAtX", "-F", "\t", "-v", "ON_ERROR_STOP=1", "-h", "127.0.0.1", "-p",
                         str(self.port), "-U", "korvane", "postgres", text=statements)

    def _run(self, program, *arguments, text=None):
        done = subprocess.run([self._programs / program, *arguments], input=text or "", text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, cwd=self.server_folder,
                              check=False, **self._as)
        if done.returncode != 0:
            raise RuntimeError("%s: %s" % (program, done.stderr))
        return done.stdout
