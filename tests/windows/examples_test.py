"""The pages that authors are shown: they run as they stand, under Windows' own script host."""

import re
import unittest

import prefix
from arrangements import numbered
from prefix import SOURCE, windows_path
from windows_site import Dovecot, Site


class Examples(unittest.TestCase):
    def setUp(self):
        self.site = Site().__enter__()
        self.addCleanup(self.site.__exit__)
        server = Dovecot()
        server.__enter__()
        self.addCleanup(server.__exit__)
        numbered(server, 25)
        # The examples are about installation 1.
        self.site.write_settings(1, URLAtcmts="https://mail.example.com")
        for user in (1, 7):
            self.site.add_account(user, server.port, user=user, default=True)

    def run_text(self, text):
        script = self.site.folder / "page.vbs"
        script.write_text(text)
        status, output = prefix.run("cscript", "//nologo", windows_path(script))
        return status, output.replace("\r\n", "\n")

    def page_of_the_documentation(self, **changed):
        text = (SOURCE / "docs" / "windows_automation.md").read_text()
        page, = re.findall(r"```vbscript\n(.*?)```", text, re.S)
        page = page.replace("Response.Write", "WScript.Echo").replace("DSN=mail", self.site.connection_string)
        for old, new in changed.items():
            page = page.replace(old, new)
        return self.run_text(page)

    def test_the_page_of_the_documentation_lists_what_it_brings_in(self):
        status, output = self.page_of_the_documentation()
        self.assertEqual((status, output), (0, "".join("Ann: m%d<br>\n" % n for n in range(25, 0, -1))))

    def test_the_page_of_the_documentation_says_what_is_wrong(self):
        _, output = self.page_of_the_documentation(**{"UserId = 7": "UserId = 8"})
        self.assertIn("error 1035", output)

    def test_the_example_lists_a_page(self):
        self.page_of_the_documentation(**{"UserId = 7": "UserId = 1"})
        status, output = self.run_text((SOURCE / "examples" / "vbscript" / "list.vbs").read_text())
        lines = output.splitlines()
        self.assertEqual((status, len(lines)), (0, 26), output)
        self.assertEqual(lines[:2], ["25 messages on 1 pages", "25  Ann  m25"])


if __name__ == "__main__":
    unittest.main()
