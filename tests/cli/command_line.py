"""What the tests of the command line share: an installation in a folder of its own, the sample
server, and ways to run the program."""

import json
import os
import pathlib
import pty
import re
import select
import subprocess
import tempfile
import time
import unittest

SOURCE = pathlib.Path(os.environ["KORVANE_SOURCE_DIR"])
BIN = pathlib.Path(os.environ["KORVANE_BINARY_DIR"]) / "bin"
# The host of a server here, in the form that the run asks for ("pop3+ahead://").
HERE = os.environ.get("KORVANE_TEST_SCHEME", "pop3://") + "127.0.0.1"
SAMPLES = sorted((SOURCE / "tests/mail/real").glob("*.eml"))


class Server:
    """The sample server over folders, with a log of its dialogue."""

    def __init__(self, *mailboxes, port=0):
        self.log = tempfile.NamedTemporaryFile("w+")
        self.process = subprocess.Popen(
            [BIN / "korvane-sample-server", "--log", "--port", str(port), *map(str, mailboxes)],
            stdout=subprocess.PIPE, stderr=self.log, text=True)
        self.port = int(re.search(r"port (\d+)", self.process.stdout.readline()).group(1))

    def commands(self):
        """The commands since the last call, with their arguments."""
        log = pathlib.Path(self.log.name).read_text(encoding="latin-1")
        lines = [line.split("  ->  ")[0] for line in log.splitlines()]
        fresh, self.seen = lines[getattr(self, "seen", 0):], len(lines)
        return fresh

    def stop(self):
        self.process.kill()
        self.process.wait()
        self.process.stdout.close()
        self.log.close()


class Result:
    def __init__(self, status, out, err):
        self.status, self.out, self.err = status, out, err

    def json(self):
        return json.loads(self.out)


class CommandLineTest(unittest.TestCase):
    def setUp(self):
        self.temporary = tempfile.TemporaryDirectory()
        self.addCleanup(self.temporary.cleanup)
        self.folder = pathlib.Path(self.temporary.name)
        self.registry = self.folder / "registry.reg"
        self.mail = self.folder / "mail"
        self.mail.mkdir()

    def environment(self, **more):
        kept = {name: value for name, value in os.environ.items() if name != "KORVANE_PASSWORD"}
        return {**kept, "KORVANE_REGISTRY": str(self.registry), "TZ": "UTC", **more}

    def korvane(self, *arguments, input="", environment=None, status=0):
        """Runs the program; fails unless it ends with `status` (None: any)."""
        result = subprocess.run([BIN / "korvane", *map(str, arguments)], input=input, text=True,
                                capture_output=True, timeout=120,
                                env=self.environment(**(environment or {})))
        if status is not None:
            self.assertEqual(result.returncode, status, result.stdout + result.stderr)
        return Result(result.returncode, result.stdout, result.stderr)

    def on_terminal(self, *arguments, answers=(), columns=100):
        """Runs the program on a terminal and answers its questions; gives what stood there."""
        pid, terminal = pty.fork()
        if pid == 0:
            os.execve(BIN / "korvane", ["korvane", *map(str, arguments)],
                      self.environment(COLUMNS=str(columns)))
        shown, answers, deadline = b"", list(answers), time.time() + 60
        while time.time() < deadline:
            if select.select([terminal], [], [], 0.1)[0]:
                try:
                    block = os.read(terminal, 65536)
                except OSError:
                    block = b""
                if not block:
                    break
                shown += block
            if answers and shown.rstrip().endswith(b":"):
                time.sleep(0.05)
                os.write(terminal, answers.pop(0).encode() + b"\n")
        _, status = os.waitpid(pid, 0)
        os.close(terminal)
        return Result(os.waitstatus_to_exitcode(status), shown.decode("utf-8", "replace"), "")

    def init(self):
        self.korvane("init", "--dir", self.folder / "store")

    def serve(self, *mailboxes, port=0):
        server = Server(*(mailboxes or [f"maria:garden:{self.mail}"]), port=port)
        self.addCleanup(server.stop)
        return server

    def add_account(self, server, *more, username="maria", password="garden"):
        return self.korvane("account", "add", "--server", HERE, "--port", server.port,
                            "--username", username, *more, input=password + "\n")

    def put(self, name, subject="a subject", received="Mon, 3 Mar 2025 08:00:00 +0000", sender="",
            message_id=None, body="a text\n"):
        """A message in the mailbox."""
        sender = sender or "Anna <anna@example.com>"
        message_id = message_id or f"<{name}@example.com>"
        (self.mail / name).write_text(
            f"Received: from a.example.com by b.example.org; {received}\nMessage-ID: {message_id}\n"
            f"Date: {received}\nFrom: {sender}\nTo: maria@example.org\nSubject: {subject}\n\n{body}")

    def put_many(self, count):
        for i in range(1, count + 1):
            self.put(f"{i:03}", f"number {i:03}", f"Mon, 3 Mar 2025 08:{i // 60:02}:{i % 60:02} +0000")

    def subjects(self, *arguments):
        listing = self.korvane("list", "--json", *arguments).json()
        return [item["subject"] for item in listing["items"]]
