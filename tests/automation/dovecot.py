"""A real Dovecot POP3 server for tests: its own configuration, folder and port, mailboxes that the
test fills."""

import grp
import os
import pathlib
import pwd
import shutil
import socket
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "support"))

from free_port import free_port  # noqa: E402  (found through the path above)


class Dovecot:
    """Use as a context manager. Every user has the password "secret"."""

    def __init__(self, users=("ann",)):
        # Short, because the names of sockets below it are limited to about 100 bytes.
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="kdc", dir="/tmp"))
        self.users = list(users)
        self._process = None
        self._delivered = 0
        root = os.geteuid() == 0
        self._owner = pwd.getpwnam("nobody") if root else pwd.getpwuid(os.geteuid())
        self.port = free_port()
        me = pwd.getpwuid(os.geteuid()).pw_name
        internal = ("default_internal_user = dovecot\ndefault_login_user = dovenull\n" if root else
                    f"default_internal_user = {me}\ndefault_login_user = {me}\n"
                    f"default_internal_group = {grp.getgrgid(os.getegid()).gr_name}\n")
        (self.folder / "dovecot.conf").write_text(f"""
protocols = pop3
listen = 127.0.0.1
base_dir = {self.folder}/run
state_dir = {self.folder}/state
log_path = {self.folder}/log
ssl = no
disable_plaintext_auth = no
auth_mechanisms = plain
mail_location = maildir:{self.folder}/mail/%u
mail_max_userip_connections = 100
first_valid_uid = 1
{internal}
passdb {{
  driver = static
  args = password=secret
}}
userdb {{
  driver = static
  args = uid={self._owner.pw_uid} gid={self._owner.pw_gid} home={self.folder}/mail/%u
}}
service anvil {{
  chroot =
}}
service pop3-login {{
  chroot =
  process_min_avail = 1
  service_count = 0
  inet_listener pop3 {{
    port = {self.port}
  }}
  inet_listener pop3s {{
    port = 0
  }}
}}
""")
        self.folder.chmod(0o755)
        for user in self.users:
            for part in ("cur", "new", "tmp"):
                self._mail(user).joinpath(part).mkdir(parents=True)
        self._give_away(self.folder / "mail")

    def __enter__(self):
        with open(self.folder / "said", "wb") as said:
            # A sanitizer that was loaded before the interpreter is not for the server.
            plain = {name: value for name, value in os.environ.items() if name != "LD_PRELOAD"}
            self._process = subprocess.Popen(["/usr/sbin/dovecot", "-F", "-c", self.folder / "dovecot.conf"],
                                             stdin=subprocess.DEVNULL, stdout=said, stderr=said, env=plain)
        deadline = time.monotonic() + 60
        while True:
            try:
                with socket.create_connection(("127.0.0.1", self.port), 1) as connection:
                    if connection.recv(3) == b"+OK":
                        return self
            except OSError:
                pass
            if time.monotonic() > deadline or self._process.poll() is not None:
                reason = (self.folder / "said").read_text()
                self.__exit__()
                raise RuntimeError("Dovecot does not start: " + reason)
            time.sleep(0.05)

    def __exit__(self, *_):
        self._process.terminate()
        try:
            self._process.wait(10)
        except subprocess.TimeoutExpired:
            self._process.kill()
        shutil.rmtree(self.folder, ignore_errors=True)

    def deliver(self, user, message):
        """Puts one message (bytes) into the user's mailbox, after all earlier ones."""
        self._delivered += 1
        name = "%d.M%06dP%d.test" % (1_000_000_000 + self._delivered, self._delivered, os.getpid())
        waiting = self._mail(user) / "tmp" / name
        waiting.write_bytes(message.replace(b"\r\n", b"\n"))
        self._give_away(waiting)
        waiting.rename(self._mail(user) / "new" / name)

    def held(self, user):
        """The messages that the server holds for a user."""
        return [path.read_bytes() for part in ("cur", "new")
                for path in sorted((self._mail(user) / part).iterdir())]

    def _mail(self, user):
        return self.folder / "mail" / user

    def _give_away(self, path):
        if os.geteuid() == 0:
            for one in [path, *path.rglob("*")]:
                os.chown(one, self._owner.pw_uid, self._owner.pw_gid)
