"""The examples, run as their reader would run them, against a scripted server's mail."""

import os
import pathlib
import shutil
import subprocess
import unittest

from pop3_server import Pop3Server
from site_fixture import ROOT, SiteTest, message

LIBRARY = pathlib.Path(os.environ["KORVANE_LIBRARY"])
EXAMPLES = ROOT / "examples"
LONGEST = 60


class Examples(SiteTest):
    def setUp(self):
        super().setUp()
        with Pop3Server([message("First", sender="Ann Example <ann@example.com>", body="Good morning\r\n"),
                         message("Second, \u00e8 qui", sender="Bob Example <bob@example.com>", body="the second text\r\n",
                                 received="Tue, 5 Mar 2002 11:00:00 +0000")]) as server:
            self.site.add_account(5, server.port, user=1, default=True)
            web = self.site.web(1)
            self.assertEqual(web.GetListMessagesInBox(1, bDownloadHeaderOnly=False).Count, 2, web.GetLastError)
        self.environment = {**os.environ, "KORVANE_LIBRARY": str(LIBRARY), "LD_LIBRARY_PATH": str(LIBRARY.parent)}

    def run_example(self, *command, **options):
        done = subprocess.run(command, env=self.environment, capture_output=True, text=True, timeout=120, **options)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        return done.stdout

    def assert_lists_and_opens(self, output, newest_first=True):
        for wanted in ("Ann Example", "Bob Example", "the second text"):
            self.assertIn(wanted, output)

    def test_the_c_example_lists_and_opens_mail(self):
        program = self.site.folder / "list_mail"
        self.run_example("cc", "-std=c11", "-Wall", "-Wextra", "-Werror", "-I", ROOT / "include",
                         EXAMPLES / "c" / "list_mail.c", "-o", program, LIBRARY, "-Wl,--allow-shlib-undefined",
                         *os.environ.get("KORVANE_LINK_FLAGS", "").split())
        self.assert_lists_and_opens(self.run_example(program, "1", "1"))

    def test_the_php_example_lists_and_opens_mail(self):
        self.assertIsNotNone(shutil.which("php"), "install php-cli")
        self.assert_lists_and_opens(self.run_example(
            "php", "-d", "ffi.enable=1", EXAMPLES / "php" / "list_mail.php", "1", "1"))

    def test_the_node_example_lists_and_opens_mail(self):
        self.assertIsNotNone(shutil.which("npm"), "install nodejs and npm")
        # The package is kept beside the build, so that the registry is asked once.
        installed = LIBRARY.parent.parent / "node_example"
        installed.mkdir(exist_ok=True)
        for name in ("package.json", "list_mail.js"):
            shutil.copy(EXAMPLES / "node" / name, installed)
        if not (installed / "node_modules" / "koffi").exists():
            subprocess.run(["npm", "install", "--no-audit", "--no-fund"], cwd=installed, check=True,
                           capture_output=True, timeout=300)
        self.assert_lists_and_opens(self.run_example("node", "list_mail.js", "1", "1", cwd=installed))

    def test_the_flask_example_lists_and_opens_mail(self):
        # Debian's Flask belongs to Debian's Python.
        script = ("import mail_page\nclient = mail_page.app.test_client()\n"
                  "page = client.get('/')\nassert page.status_code == 200, page.data\nprint(page.get_data(as_text=True))\n"
                  "print(client.get('/message/2').get_data(as_text=True))\n"
                  "assert client.get('/message/99').status_code == 404\n")
        self.environment["PYTHONPATH"] = f"{ROOT / 'automation' / 'python'}:{EXAMPLES / 'python'}"
        output = self.run_example("/usr/bin/python3", "-c", script)
        self.assert_lists_and_opens(output)
        self.assertIn("Second, \u00e8 qui", output)

    def test_each_is_shorter_than_60_lines_and_the_flask_page_than_80(self):
        for name, most in (("c/list_mail.c", LONGEST), ("node/list_mail.js", LONGEST), ("php/list_mail.php", LONGEST),
                           ("python/mail_page.py", 80)):
            self.assertLess(len((EXAMPLES / name).read_text().splitlines()), most, name)


if __name__ == "__main__":
    unittest.main()
