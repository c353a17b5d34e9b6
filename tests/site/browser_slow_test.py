"""The mail site in a headless Chromium, against a real POP3 server: browser.js does what a person
does, on a desktop, on a phone and without scripts, and opens the mail that means harm. Its
screenshots lie in <build>/site-screenshots."""

import os
import shutil
import subprocess
import sys
import unittest

from mail_site import BUILD, ROOT, Dovecot, MailSite, closed_port, sample, samples


def install_browser_driver():
    """What package.json names, in the build folder: nothing is installed into the sources."""
    folder = BUILD / "site-browser"
    folder.mkdir(exist_ok=True)
    wanted = (ROOT / "tests" / "site" / "package.json").read_bytes()
    installed = folder / "package.json"
    if not (folder / "node_modules").exists() or installed.read_bytes() != wanted:
        installed.write_bytes(wanted)
        subprocess.run(["npm", "install", "--no-audit", "--no-fund", "--silent"], cwd=folder, check=True)
    return folder / "node_modules"


class InABrowser(unittest.TestCase):
    def test_a_person_can_do_everything_and_a_mail_can_do_nothing(self):
        modules = install_browser_driver()
        shots = BUILD / "site-screenshots"
        shutil.rmtree(shots, ignore_errors=True)
        shots.mkdir()
        with Dovecot(["ann", "bob", "maria"]) as server:
            for path in [*samples("hostile"), *samples("quirky"), *samples("real")]:
                server.deliver("ann", path.read_bytes())
            server.deliver("bob", sample("real/010_plain_short.eml"))
            for path in [*samples("real"), *samples("quirky")]:
                server.deliver("maria", path.read_bytes())
            site = MailSite()
            site.add_user(1, "ann")
            site.add_account(server.port)
            site.add_user(2, "maria")
            site.add_account(server.port, 2, "maria")
            site.sync(2)
            if sys.argv[1:]:
                site.sync()  # the check that gets mail may be left out
            with site:
                result = subprocess.run(
                    ["node", ROOT / "tests/site/browser.js", *sys.argv[1:2]], timeout=800,
                    env={**os.environ, "NODE_PATH": str(modules), "SITE": site.url, "SHOTS": str(shots),
                         "POP3_PORT": str(server.port), "CLOSED_PORT": str(closed_port()),
                         "HOSTILE": str(len(samples("hostile")))})
                self.assertTrue(site.runs(), "the site ended")
        self.assertEqual(result.returncode, 0)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
