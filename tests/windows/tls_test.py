"""TLS by the system's own provider: the companion library as a Windows program calls it, against servers
here with certificates made here, and against Dovecot."""

import contextlib
import pathlib
import shutil
import socket
import ssl
import subprocess
import sys
import tempfile
import threading
import unittest
import warnings

from prefix import BIN, SOURCE, WINE, environment, run, windows_path

sys.path.insert(0, str(SOURCE / "tests" / "automation"))
from dovecot import Dovecot  # noqa: E402

CLIENT = BIN / "tls_client.exe"


class Authority:
    """Certificates, of one authority or of themselves."""

    def __init__(self, name):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="ktls"))
        self.name = name
        self._openssl("req", "-x509", *self._key("ca"), "-subj", "/CN=" + name, "-days", "1", "-out", "ca.pem")
        self._openssl("x509", "-in", "ca.pem", "-outform", "der", "-out", "ca.der")

    def _openssl(self, *arguments):
        subprocess.run(["openssl", *arguments], cwd=self.folder, check=True,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    @staticmethod
    def _key(name):
        return ["-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-keyout", name + ".key"]

    def certificate(self, name, alternative_names, days="1"):
        """The paths of a certificate and its key."""
        self._openssl("req", "-new", *self._key(name), "-subj", "/CN=server", "-out", name + ".csr")
        (self.folder / (name + ".ext")).write_text("subjectAltName=%s\n" % alternative_names)
        self._openssl("x509", "-req", "-in", name + ".csr", "-CA", "ca.pem", "-CAkey", "ca.key", "-CAcreateserial",
                      "-days", days, "-extfile", name + ".ext", "-out", name + ".pem")
        return self.folder / (name + ".pem"), self.folder / (name + ".key")

    def trust(self, trusted):
        status, output = run(CLIENT, "trust" if trusted else "distrust", windows_path(self.folder / "ca.der"))
        assert status == 0, output


class Server:
    """Serves one connection by `talk`; without a certificate in plain text."""

    def __init__(self, talk, certificate=None, newest=None):
        self.talk = talk
        self.context = None
        self.spoken = None
        if certificate:
            self.context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
            self.context.load_cert_chain(*certificate)
            if newest:
                self.context.set_ciphers("ALL:@SECLEVEL=0")
                with warnings.catch_warnings():
                    warnings.simplefilter("ignore", DeprecationWarning)
                    self.context.minimum_version = ssl.TLSVersion.TLSv1
                    self.context.maximum_version = newest
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.listener.settimeout(60)
        self.port = self.listener.getsockname()[1]
        self.thread = threading.Thread(target=self._serve)

    def __enter__(self):
        self.thread.start()
        return self

    def __exit__(self, *_):
        self.thread.join()
        self.listener.close()

    def _serve(self):
        with contextlib.suppress(OSError):  # a client that refuses this server ends the connection
            plain, _ = self.listener.accept()
            plain.settimeout(60)
            with plain:
                if not self.context:
                    self.talk(plain)
                    return
                with self.context.wrap_socket(plain, server_side=True) as connection:
                    self.spoken = connection.version()
                    self.talk(connection)


def greet(connection):
    connection.sendall(b"+OK ready\r\n")
    if connection.recv(1000):
        connection.sendall(b"+OK\r\n")
    with contextlib.suppress(OSError):
        connection.unwrap()


def wait_for_the_end(connection):
    while connection.recv(1000):
        pass


def talk_to(host, port, *commands, timeout=8000):
    """The lines that the client prints, "connected" or "refused" first."""
    done = subprocess.run([*WINE, CLIENT, host, str(port), str(timeout)], env=environment(), timeout=120,
                          input="".join(command + "\n" for command in commands).encode(),
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    lines = done.stdout.decode().split("\n")
    return [line.rstrip("\r") for line in lines if line.strip()], done.stderr.decode()


class Tls(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.authority = Authority("Korvane test authority")
        cls.stranger = Authority("Somebody else's authority")
        cls.authority.trust(True)
        cls.good = cls.authority.certificate("good", "DNS:localhost,IP:127.0.0.1")

    @classmethod
    def tearDownClass(cls):
        cls.authority.trust(False)
        for authority in (cls.authority, cls.stranger):
            shutil.rmtree(authority.folder)

    def assert_refused(self, host, certificate):
        with Server(greet, certificate) as server:
            self.assertEqual(talk_to(host, server.port)[0], ["refused"])

    def assert_connects(self, host, certificate):
        with Server(greet, certificate) as server:
            lines, said = talk_to(host, server.port, "receive", "send NOOP", "receive", "all")
        self.assertEqual(lines, ["connected", "11 +OK ready", "6", "5 +OK", "0 0 closed"])
        return said

    def test_a_certificate_of_a_trusted_authority_for_this_name_connects(self):
        said = self.assert_connects("pop3s://localhost", self.good)
        self.assertNotIn("without verifying", said)

    def test_a_certificate_for_the_address_connects(self):
        self.assert_connects("pop3s://127.0.0.1", self.good)

    def test_a_certificate_for_another_name_is_a_failed_connection(self):
        self.assert_refused("pop3s://localhost",
                            self.authority.certificate("name", "DNS:pop.example.org,IP:127.0.0.1"))

    def test_a_certificate_for_another_address_is_a_failed_connection(self):
        self.assert_refused("pop3s://127.0.0.1",
                            self.authority.certificate("address", "DNS:localhost,DNS:127.0.0.1,IP:127.0.0.2"))

    def test_the_authority_of_another_installation_is_not_trusted(self):
        certificate = self.stranger.certificate("strange", "DNS:localhost,IP:127.0.0.1")
        self.assert_refused("pop3s://localhost", certificate)
        self.assert_refused("pop3s://127.0.0.1", certificate)

    def test_a_self_signed_certificate_is_a_failed_connection(self):
        self.assert_refused("pop3s://localhost", (self.stranger.folder / "ca.pem", self.stranger.folder / "ca.key"))

    def test_an_expired_certificate_is_a_failed_connection(self):
        self.assert_refused("pop3s://localhost", self.authority.certificate("old", "DNS:localhost", days="-1"))

    def test_the_insecure_form_accepts_any_certificate_and_says_so_in_one_line(self):
        said = self.assert_connects("pop3s-insecure://localhost", self.stranger.certificate("any", "DNS:else.where"))
        self.assertEqual(said.count("TLS without verifying the server's certificate"), 1)

    def test_version_12_is_spoken_and_nothing_older(self):
        with Server(greet, self.good) as server:
            self.assertEqual(talk_to("pop3s://localhost", server.port)[0], ["connected"])
        self.assertEqual(server.spoken, "TLSv1.2")
        with Server(greet, self.good, ssl.TLSVersion.TLSv1_1) as server:
            self.assertEqual(talk_to("pop3s-insecure://localhost", server.port)[0], ["refused"])

    def test_a_plain_server_is_a_failed_connection(self):
        with Server(lambda plain: (plain.sendall(b"+OK ready\r\n"), wait_for_the_end(plain))) as server:
            self.assertEqual(talk_to("pop3s-insecure://127.0.0.1", server.port)[0], ["refused"])

    def test_a_server_that_never_answers_the_handshake_ends_with_the_time_out(self):
        with Server(wait_for_the_end) as server:
            self.assertEqual(talk_to("pop3s-insecure://127.0.0.1", server.port, timeout=500)[0], ["refused"])

    def test_the_plain_form_speaks_plain_text(self):
        with Server(lambda plain: (plain.sendall(b"+OK plain\r\n"), wait_for_the_end(plain))) as server:
            self.assertEqual(talk_to("pop3://127.0.0.1", server.port, "receive")[0], ["connected", "11 +OK plain"])

    def test_a_long_reply_comes_whole(self):
        text = b"".join(b"line %d of a long reply\r\n" % i for i in range(40_000))
        checksum = 0
        for byte in text:
            checksum = (checksum * 31 + byte) & 0xFFFFFF
        with Server(lambda peer: (peer.sendall(text), peer.unwrap()), self.good) as server:
            lines, _ = talk_to("pop3s://localhost", server.port, "all")
        self.assertEqual(lines, ["connected", "%d %d closed" % (len(text), checksum)])

    def test_a_long_command_goes_out_whole(self):
        got = bytearray()

        def take(connection):
            while not got.endswith(b"\r\n"):
                got.extend(connection.recv(65536))

        with Server(take, self.good) as server:
            lines, _ = talk_to("pop3s://localhost", server.port, "send " + "x" * 300_000)
        self.assertEqual(lines, ["connected", "300002"])
        self.assertEqual(bytes(got), b"x" * 300_000 + b"\r\n")

    def test_a_silent_server_times_out(self):
        with Server(wait_for_the_end, self.good) as server:
            self.assertEqual(talk_to("pop3s://localhost", server.port, "receive", timeout=1500)[0],
                             ["connected", "-1 "])

    def test_a_peer_that_closes_without_a_farewell_is_a_failure(self):
        with Server(lambda peer: peer.sendall(b"+OK\r\n"), self.good) as server:
            lines, _ = talk_to("pop3s://localhost", server.port, "receive", "all")
        self.assertEqual(lines, ["connected", "5 +OK", "0 0 failed"])

    def test_dovecot_is_spoken_to(self):
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            port = probe.getsockname()[1]
        dovecot = Dovecot()
        path = dovecot.folder / "dovecot.conf"
        shutil.copy(self.good[0], dovecot.folder / "good.pem")
        shutil.copy(self.good[1], dovecot.folder / "good.key")
        path.write_text(path.read_text().replace(
            "ssl = no", "ssl = yes\nssl_cert = <{0}/good.pem\nssl_key = <{0}/good.key".format(dovecot.folder)).replace(
            "inet_listener pop3s {\n    port = 0", "inet_listener pop3s {\n    port = %d\n    ssl = yes" % port))
        with dovecot:
            lines, _ = talk_to("pop3s://localhost", port, "receive", "send USER ann", "receive", "send PASS secret",
                               "receive", "send STAT", "receive", "send QUIT", "receive", "all")
        self.assertEqual(lines[0], "connected")
        replies = [line.split(" ", 1)[1] for line in lines[1:-1] if " " in line]
        self.assertEqual([reply[:3] for reply in replies], ["+OK"] * 5)
        self.assertEqual(replies[3], "+OK 0 0")
        self.assertEqual(lines[-1], "0 0 closed")


if __name__ == "__main__":
    unittest.main()
