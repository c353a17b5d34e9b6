"""The command line over TLS: a relay with a certificate of its own stands before the sample server."""

import socket
import ssl
import subprocess
import threading
import unittest

from command_line import CommandLineTest


class Relay:
    """Takes TLS connections on a free port and passes the bytes on in plain text."""

    def __init__(self, folder, name, target):
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2",
                        "-keyout", folder / "key.pem", "-out", folder / "certificate.pem",
                        "-subj", f"/CN={name}", "-addext", f"subjectAltName=DNS:{name}"],
                       check=True, capture_output=True)
        self.context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        self.context.load_cert_chain(folder / "certificate.pem", folder / "key.pem")
        self.target = target
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        while True:
            try:
                client, _ = self.listener.accept()
            except OSError:
                return
            threading.Thread(target=self.relay, args=[client], daemon=True).start()

    def relay(self, client):
        try:
            with self.context.wrap_socket(client, server_side=True) as outer, \
                    socket.create_connection(("127.0.0.1", self.target)) as inner:
                inner.settimeout(30)
                outer.settimeout(30)
                outer.sendall(inner.recv(65536))  # the greeting
                while command := outer.recv(65536):
                    inner.sendall(command)
                    # Everything that the reply brings; the sample server sends it at once.
                    inner.settimeout(30)
                    block = inner.recv(65536)
                    while block:
                        outer.sendall(block)
                        inner.settimeout(0.05)
                        try:
                            block = inner.recv(65536)
                        except TimeoutError:
                            break
        except OSError:
            pass

    def close(self):
        self.listener.close()


class Tls(CommandLineTest):
    def setUp(self):
        super().setUp()
        self.init()
        self.put_many(2)
        self.server = self.serve()

    def relay(self, name):
        relay = Relay(self.folder, name, self.server.port)
        self.addCleanup(relay.close)
        return relay

    def add(self, scheme, relay):
        self.korvane("account", "add", "--server", f"{scheme}://localhost", "--port", relay.port,
                     "--username", "maria", input="garden\n")

    def trusting(self):
        return {"SSL_CERT_FILE": str(self.folder / "certificate.pem")}

    def test_mail_comes_over_an_encrypted_session(self):
        self.add("pop3s", self.relay("localhost"))
        result = self.korvane("sync", environment=self.trusting())
        self.assertIn("2 new messages", result.out)

    def test_a_certificate_that_nobody_vouches_for_is_status_6_and_no_password_is_sent(self):
        self.add("pop3s", self.relay("localhost"))
        result = self.korvane("sync", status=6)
        self.assertIn("error 1093", result.err)
        self.assertIn("certificate", result.err)
        self.assertEqual(self.server.commands(), [])

    def test_a_certificate_for_another_name_is_refused(self):
        self.add("pop3s", self.relay("elsewhere.example.org"))
        self.korvane("sync", environment=self.trusting(), status=6)
        self.assertEqual(self.server.commands(), [])

    def test_the_form_for_test_servers_does_not_check_and_says_so(self):
        self.add("pop3s-insecure", self.relay("elsewhere.example.org"))
        result = self.korvane("sync")
        self.assertIn("2 new messages", result.out)
        self.assertIn("certificate", result.err)


if __name__ == "__main__":
    unittest.main()
