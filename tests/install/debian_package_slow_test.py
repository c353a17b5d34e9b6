"""The Debian packages, built and installed by apt in a clean system: they bring everything that they
need, and with them mail is set up, fetched, listed and served. Removing them leaves the mail alone."""

import os
import pathlib
import re
import subprocess
import sys
import unittest
import urllib.request

SOURCE = pathlib.Path(os.environ["KORVANE_SOURCE_DIR"])
BUILD = pathlib.Path(os.environ["KORVANE_BINARY_DIR"])
sys.path.insert(0, str(pathlib.Path(__file__).parent))

from clean_root import CleanRoot, run  # noqa: E402

PACKAGES = ("korvane", "korvane-site", "libkorvane-dev", "libkorvane0", "python3-korvane")
STORE = "/var/lib/korvane"

LISTING = """
import korvane
boss = korvane.create("BossObject")
assert boss.Init(1), boss.GetLastError
web = korvane.create("WebInterface")
web.ConnDataBase = korvane.connect(boss.DbConnectionString)
web.UserId = 1
assert web.Init(boss), web.GetLastError
for message in web.GetListMessagesInBox(1, -1, lPageNum=1):
    print(message.Id, message.Subject(0))
"""


class InACleanSystem(unittest.TestCase):
    """The tests run in the order of their names: each goes on where the one before it ended."""

    @classmethod
    def setUpClass(cls):
        cls.debs = [pathlib.Path(line) for line in run(SOURCE / "scripts/package").split()]
        cls.debs = [SOURCE / deb for deb in cls.debs]
        cls.root = cls.enterClassContext(CleanRoot(SOURCE / "build/package/clean-root"))
        for deb in cls.debs:
            run("cp", deb, cls.root.folder / "tmp")
        cls.root.install("man-db", *(f"/tmp/{deb.name}" for deb in cls.debs))
        mailbox = f"maria:garden:{SOURCE}/tests/mail/real"
        cls.server = subprocess.Popen([BUILD / "bin/korvane-sample-server", mailbox], stdout=subprocess.PIPE, text=True)
        cls.port = re.search(r"port (\d+)", cls.server.stdout.readline()).group(1)
        cls.addClassCleanup(cls.end_server)

    @classmethod
    def end_server(cls):
        cls.server.kill()
        cls.server.wait()
        cls.server.stdout.close()

    def as_korvane(self, *command, **options):
        return self.root.run(*command, user="korvane", **options)

    def test_1_every_package_is_there_with_what_it_needs(self):
        self.assertEqual(sorted(deb.name.split("_")[0] for deb in self.debs), list(PACKAGES))
        for package in PACKAGES:
            state = self.root.run("dpkg-query", "-W", "-f=${db:Status-Status} ${Depends}", package)
            self.assertTrue(state.startswith("installed "), state)
        needed = self.root.run("dpkg-query", "-W", "-f=${Depends}", "libkorvane0")
        for library in ("libsqlite3-0", "libpq5", "libmariadb3", "libodbc2", "libssl3", "libstdc++6"):
            self.assertRegex(needed, rf"\b{re.escape(library)} ")
        self.assertIn("korvane", self.root.run("getent", "passwd", "korvane"))

    def test_1_the_system_is_told_of_the_libraries_by_a_trigger_alone(self):
        control = {path.name for path in (self.root.folder / "var/lib/dpkg/info").glob("libkorvane0:*.*")}
        control |= {path.name for path in (self.root.folder / "var/lib/dpkg/info").glob("libkorvane0.*")}
        parts = {name.rsplit(".", 1)[1] for name in control}
        self.assertIn("triggers", parts)
        self.assertFalse(parts & {"preinst", "postinst", "prerm", "postrm"}, parts)
        self.assertIn("libkorvane.so.0", self.root.run("ldconfig", "-p"))

    def test_1_no_file_knows_where_it_was_built(self):
        files = self.root.run("dpkg", "-L", *PACKAGES).splitlines()
        for name in files:
            path = self.root.folder / name.lstrip("/")
            if path.is_file() and not path.is_symlink():
                self.assertNotIn(str(SOURCE).encode(), path.read_bytes(), name)

    def test_1_the_programs_say_what_they_are(self):
        self.assertRegex(self.root.run("korvane", "--version"), r"\d+\.\d+\.\d+")
        self.assertIn("sync", self.root.run("korvane", "--help"))
        self.assertIn("serve", self.root.run("korvane-site", "--help"))

    def test_1_the_manual_pages_are_found_and_set(self):
        for section, page in (("1", "korvane"), ("8", "korvane-site")):
            text = self.root.run("man", section, page, environment={"MANWIDTH": "100", "MAN_KEEP_FORMATTING": ""})
            self.assertIn("COMMANDS", text)
            self.assertIn("SEE ALSO", text)
        self.assertIn("local copies", self.root.run("whatis", "korvane"))

    def test_2_an_installation_is_made_and_mail_is_fetched(self):
        self.as_korvane("korvane", "init", "--dir", STORE)
        self.as_korvane("korvane", "account", "add", "--server", "pop3://127.0.0.1", "--port", self.port,
                        "--username", "maria", "--password-file", "-", text="garden\n")
        self.as_korvane("korvane", "sync")
        count = len(list((SOURCE / "tests/mail/real").glob("*.eml")))
        self.assertIn(f"{count} messages", self.as_korvane("korvane", "list"))
        self.assertIn("everything is well", self.as_korvane("korvane", "check"))

    def test_3_python_lists_it(self):
        lines = self.as_korvane("python3", "-c", LISTING).splitlines()
        self.assertEqual(len(lines), 25)
        self.assertTrue(any("barca" in line for line in lines))

    def test_3_the_site_serves_it(self):
        self.as_korvane("korvane-site", "user", "1", "maria", text="garden\n")
        site = self.root.start("korvane-site", "serve", "--port", "0", user="korvane", environment={})
        try:
            address = re.search(r"http://\S+", site.stdout.readline()).group(0)
            with urllib.request.urlopen(address + "sign-in", timeout=60) as answer:
                self.assertIn('name="password"', answer.read().decode())
            with urllib.request.urlopen(address + "static/style.css", timeout=60) as answer:
                self.assertEqual(answer.status, 200)
        finally:
            site.terminate()
            site.wait(20)
            site.stdout.close()

    def test_3_the_unit_and_the_sample_of_a_proxy_are_there(self):
        unit = (self.root.folder / "usr/lib/systemd/system/korvane-site.service").read_text()
        program = re.search(r"ExecStart=(\S+)", unit).group(1)
        self.assertTrue(self.root.exists(program.lstrip("/")))
        self.assertTrue(self.root.exists("usr/share/doc/korvane-site/examples/nginx.conf"))

    def test_4_a_purge_leaves_the_mail_and_nothing_else(self):
        held = self.root.run("find", STORE, "-type", "f").splitlines()
        self.assertTrue(any(name.endswith("_Messaggi.dat") for name in held), held)
        owned = [name for name in self.root.run("dpkg", "-L", *PACKAGES).splitlines() if "korvane" in name.lower()]
        self.root.run("apt-get", "purge", "-y", *PACKAGES)
        self.assertEqual(self.root.run("find", STORE, "-type", "f").splitlines(), held)
        self.assertFalse(self.root.exists("etc/korvane"))
        self.assertEqual([name for name in owned if self.root.exists(name.lstrip("/"))], [])


if __name__ == "__main__":
    unittest.main()
