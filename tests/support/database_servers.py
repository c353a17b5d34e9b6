"""Database servers of the tests' own, each on a socket in a folder of its own."""

import getpass
import glob
import os
import pathlib
import shutil
import subprocess
import tempfile
import time


class DatabaseServer:
    """A server of the tests' own, on a socket in a folder of its own."""

    durable = False  # True: a commit is on the disk when it is answered

    def __init__(self, user):
        self.folder = tempfile.mkdtemp()
        self.user = user if os.geteuid() == 0 else getpass.getuser()
        shutil.chown(self.folder, self.user)
        self.made = 0

    def run(self, *command, **more):
        with open(os.path.join(self.folder, "log"), "ab") as log:
            subprocess.run(command, check=True, user=self.user, stdin=subprocess.DEVNULL,
                           stdout=log, stderr=log, cwd="/", **more)

    def start(self, *command):
        with open(os.path.join(self.folder, "log"), "ab") as log:
            self.process = subprocess.Popen(command, user=self.user, stdin=subprocess.DEVNULL,
                                            stdout=log, stderr=log, cwd="/")
        deadline = time.time() + 60
        while True:
            try:
                return self.sql(self.first, "SELECT 1")
            except subprocess.CalledProcessError:
                if time.time() > deadline or self.process.poll() is not None:
                    raise RuntimeError(pathlib.Path(self.folder, "log").read_text()) from None
                time.sleep(0.2)

    def stop(self):
        self.process.terminate()
        self.process.wait()
        shutil.rmtree(self.folder)

    def new_database(self):
        self.made += 1
        name = f"korvane{self.made}"
        self.sql(self.first, f"CREATE DATABASE {name}")
        return name


class Postgresql(DatabaseServer):
    first = "postgres"
    true = "TRUE"

    def __init__(self):
        super().__init__("postgres")
        self.programs = sorted(glob.glob("/usr/lib/postgresql/*/bin"))[-1]
        data = self.folder + "/data"
        self.run(self.programs + "/initdb", "--no-sync", "--auth=trust", "--username=korvane",
                 "--encoding=UTF8", "--locale=C.UTF-8", "--pgdata=" + data)
        self.start(self.programs + "/postgres", "-D", data, "-k", self.folder, "-c",
                   "listen_addresses=", "-c", f"fsync={'on' if self.durable else 'off'}")

    def url(self, database):
        return f"postgresql://korvane@/{database}?host={self.folder}"

    def sql(self, database, statement):
        return subprocess.run([self.programs + "/psql", "-h", self.folder, "-U", "korvane", "-At",
                               "-v", "ON_ERROR_STOP=1", "-c", statement, database], check=True,
                              text=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout


class PostgresqlThroughOdbc(Postgresql):
    def url(self, database):
        return (f"odbc:Driver=PostgreSQL Unicode;Servername={self.folder};Port=5432;"
                f"Database={database};Username=korvane")


class Mariadb(DatabaseServer):
    first = "mysql"
    true = "-1"

    def __init__(self):
        super().__init__("mysql")
        data = self.folder + "/data"
        # A server that starts deletes the temporary tables it finds: each has a folder for its own.
        temporary = "--tmpdir=" + self.folder
        self.run("/usr/bin/mariadb-install-db", "--no-defaults", "--skip-test-db",
                 "--skip-name-resolve", "--auth-root-authentication-method=normal",
                 "--datadir=" + data, temporary, "--innodb-log-file-size=4M")
        self.start("/usr/sbin/mariadbd", "--no-defaults", "--datadir=" + data, temporary,
                   "--skip-networking",
                   "--socket=" + self.socket(),
                   f"--innodb-flush-log-at-trx-commit={1 if self.durable else 0}",
                   "--innodb-log-file-size=4M", "--innodb-buffer-pool-size=64M")

    def socket(self):
        return self.folder + "/socket"

    def url(self, database):
        return f"mysql://root@localhost/{database}?socket={self.socket()}"

    def sql(self, database, statement):
        return subprocess.run(["/usr/bin/mariadb", "--no-defaults", "-S", self.socket(), "-u",
                               "root", "-N", "-B", "-e", statement, database], check=True,
                              text=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout


class MariadbThroughOdbc(Mariadb):
    def url(self, database):
        return f"odbc:Driver=MariaDB Unicode;SOCKET={self.socket()};Database={database};UID=root"
