"""./start as a person uses it: typed at a terminal, and ended there with Ctrl-C."""

import os
import pathlib
import pty
import re
import select
import shutil
import signal
import socket
import subprocess
import tempfile
import time
import unittest
import urllib.request

ROOT = pathlib.Path(__file__).resolve().parents[2]
CTRL_C = b"\x03"


def processes_below(folder):
    """Those whose working folder is this one: everything that ./start starts there."""
    found = []
    for process in pathlib.Path("/proc").iterdir():
        try:
            if process.name.isdigit() and os.readlink(process / "cwd") == str(folder):
                found.append((process / "cmdline").read_bytes().replace(b"\0", b" ").decode())
        except OSError:
            pass
    return found


class Start(unittest.TestCase):
    """In a copy of the sources whose build folder is this one's: what is built is used again, and
    ./run/ is its own."""

    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="korvane-start-")).resolve()
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        # The program finds its sources beside it, so that the folder looks like the checkout.
        for entry in ROOT.iterdir():
            if entry.name not in ("run", "start", "scripts", ".git"):
                (self.folder / entry.name).symlink_to(entry)
        shutil.copytree(ROOT / "scripts", self.folder / "scripts")
        shutil.copy(ROOT / "start", self.folder)
        # What was built is not built again under another name of the same folder.
        steps = self.folder / "scripts/steps.sh"
        steps.write_text(steps.read_text() + '\nbuild() { echo "built before"; }\n')
        # In the real one, as ./start does it.
        subprocess.run(["bash", "-c", ". scripts/steps.sh &&"
                        " build package korvane_cli korvane-sample-server korvane-site"],
                       cwd=ROOT, check=True, stdout=subprocess.DEVNULL, stdin=subprocess.DEVNULL)

    def read_until(self, terminal, pattern, seconds):
        text, end = "", time.monotonic() + seconds
        while not re.search(pattern, text):
            ready, _, _ = select.select([terminal], [], [], max(0, end - time.monotonic()))
            self.assertTrue(ready, f"{pattern} did not come:\n{text}")
            try:
                text += os.read(terminal, 65536).decode(errors="replace")
            except OSError:  # the other end is closed
                break
        return text

    def test_ends_with_a_typed_ctrl_c_and_leaves_nothing_running(self):
        process, terminal = pty.fork()
        if process == 0:
            os.chdir(self.folder)
            os.execv("./start", ["./start"])
        self.addCleanup(os.close, terminal)
        text = self.read_until(terminal, r"Password +garden", 600)
        address = re.search(r"Open +(http://\S+)", text)
        self.assertTrue(address, text)
        with urllib.request.urlopen(address.group(1), timeout=60) as answer:
            self.assertIn("Sign in", answer.read().decode())
        self.assertTrue(any("korvane-site" in one for one in processes_below(self.folder)))

        os.write(terminal, CTRL_C)
        self.read_until(terminal, r"(?!)", 120)  # until it closes the terminal
        deadline = time.monotonic() + 60
        ended = (0, 0)
        while ended[0] == 0 and time.monotonic() < deadline:
            ended = os.waitpid(process, os.WNOHANG)
            time.sleep(0.05)
        if ended[0] == 0:
            os.kill(process, signal.SIGKILL)
            os.waitpid(process, 0)
        self.assertEqual(ended[0], process, "it goes on")
        self.assertEqual(os.waitstatus_to_exitcode(ended[1]), 130)
        self.assertEqual(processes_below(self.folder), [])
        host, port = re.search(r"//([\d.]+):(\d+)", address.group(1)).groups()
        mail_port = int((self.folder / "run/port").read_text())
        for one in (int(port), mail_port):
            with socket.socket() as probe:
                probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
                probe.bind((host, one))


if __name__ == "__main__":
    unittest.main()
