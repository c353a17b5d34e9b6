"""A mail site for tests: an installation of its own in a temporary folder, the program serving it,
and a visitor that speaks plain HTTP to it."""

import html
import http.client
import os
import pathlib
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import time
import urllib.parse

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("KORVANE_BINARY_DIR", ROOT / "build" / "dev"))
sys.path.insert(0, str(ROOT / "tests" / "automation"))

from dovecot import Dovecot  # noqa: E402,F401  (found through the path above)


def sample(name):
    return (ROOT / "tests" / "mail" / name).read_bytes()


def samples(folder):
    return sorted((ROOT / "tests" / "mail" / folder).glob("*.eml"))


class MailSite:
    """Use as a context manager. `options` are further arguments of korvane-site serve."""

    def __init__(self, *options, port=0):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="korvane-site-"))
        self.options = ["--port", str(port), *options]
        self.environment = {**os.environ, "KORVANE_REGISTRY": str(self.folder / "registry.reg")}
        self._process = None
        self.command("korvane", "init", "--dir", self.folder)

    def command(self, program, *arguments, text=""):
        return subprocess.run([BUILD / "bin" / program, *map(str, arguments)], input=text, text=True,
                              check=True, env=self.environment, capture_output=True).stdout

    def add_user(self, number, name, password="secret"):
        self.command("korvane-site", "user", number, name, text=password + "\n")

    def add_account(self, port, user=1, username="ann", password="secret"):
        self.command("korvane", "account", "add", "--user", user, "--server", "pop3://127.0.0.1",
                     "--port", port, "--username", username, "--password-file", "-",
                     text=password + "\n")

    def sync(self, user=1, *more):
        self.command("korvane", "sync", "--user", user, *more)

    def __enter__(self):
        self._log = open(self.folder / "site.log", "w")
        self._process = subprocess.Popen(
            [BUILD / "bin" / "korvane-site", "serve", *self.options],
            stdout=subprocess.PIPE, stderr=self._log, text=True, env=self.environment)
        line = self._process.stdout.readline()
        self.url = re.search(r"http://\S+?(?=/?\s*$)", line).group(0)
        self.host, self.port = self.url.removeprefix("http://").split(":")
        return self

    @property
    def process_id(self):
        return self._process.pid

    def runs(self):
        return self._process.poll() is None

    def __exit__(self, *_):
        self._process.terminate()
        try:
            self._process.wait(20)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.wait()
        self._process.stdout.close()
        self._log.close()
        said = (self.folder / "site.log").read_text(errors="replace")
        shutil.rmtree(self.folder, ignore_errors=True)
        # Under a sanitizer this is where its findings show.
        assert self._process.returncode == 0, f"the site ended with {self._process.returncode}:\n{said[-5000:]}"


class Answer:
    def __init__(self, response):
        self.status = response.status
        self.headers = response.headers
        self.body = response.read()

    @property
    def text(self):
        return self.body.decode()

    @property
    def location(self):
        return self.headers.get("Location", "")


class Visitor:
    """A person's program: it keeps the cookie, and nothing else."""

    def __init__(self, site):
        self.site = site
        self.cookie = None

    def request(self, method, path, body=None, **headers):
        connection = http.client.HTTPConnection(self.site.host, int(self.site.port), timeout=30)
        sent = {name.replace("_", "-"): value for name, value in headers.items()}
        if self.cookie:
            sent["Cookie"] = "korvane=" + self.cookie
        connection.request(method, path, body, sent)
        answer = Answer(connection.getresponse())
        connection.close()
        given = answer.headers.get("Set-Cookie", "")
        if given.startswith("korvane="):
            self.cookie = given[len("korvane="):].split(";")[0]
        return answer

    def get(self, path, **headers):
        return self.request("GET", path, **headers)

    # csrf: True sends the right one, False none, a text that text.
    def post(self, path, csrf=True, headers=None, **fields):
        pairs = [(name, one) for name, value in fields.items()
                 for one in (value if isinstance(value, list) else [value])]
        if csrf is not False:
            pairs.append(("csrf", self.csrf() if csrf is True else csrf))
        return self.request("POST", path, urllib.parse.urlencode(pairs),
                            Content_Type="application/x-www-form-urlencoded", **(headers or {}))

    def csrf(self):
        return re.search(r'name="csrf" value="([^"]+)"', self.get("/compose").text).group(1)

    def sign_in(self, name, password="secret"):
        return self.post("/sign-in", csrf=False, name=name, password=password)

    def fetch(self, **options):
        """Gets mail and waits for the end."""
        self.post("/fetch", **{"which": "all", "what": "whole", **options})
        deadline = time.monotonic() + 60
        while '"running":true' in self.get("/progress").text:
            assert time.monotonic() < deadline, "getting mail does not end"
            time.sleep(0.1)

    def messages(self, box=1, query="size=200"):
        """The messages of a box: number by subject, in the order of the page."""
        page = self.get(f"/box/{box}?{query}").text
        found = re.findall(r'<a href="/message/(\d+)">.*?<span class="subject">(.*?)(?:<span|</span>)', page,
                           re.DOTALL)
        return {html.unescape(subject).strip(): int(number) for number, subject in found}


def closed_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]
