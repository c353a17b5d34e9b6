"""A scripted POP3 server: it serves the messages it was given, counts what it was asked, and
misbehaves on demand."""

import socket
import threading


class Pop3Server:
    """Use as a context manager. `messages` are bytes with CR LF line ends; `replies` maps a command
    line ("UIDL 2", or a verb) to the bytes to send instead of the proper reply, None to hang up."""

    def __init__(self, messages=(), user="ann", password="secret", replies=None, greeting=b"+OK ready\r\n"):
        self.messages = list(messages)
        self.user, self.password = user, password
        self.replies = dict(replies or {})
        self.greeting = greeting
        self.commands = []
        self.sessions = 0
        self._listener = socket.create_server(("127.0.0.1", 0))
        self.port = self._listener.getsockname()[1]
        self._threads = []
        self._connections = []

    def __enter__(self):
        threading.Thread(target=self._accept, daemon=True).start()
        return self

    def __exit__(self, *_):
        # shutdown wakes the accepting thread; close alone would leave it waiting.
        try:
            self._listener.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass
        self._listener.close()
        for connection in self._connections:
            try:
                connection.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass
        for thread in self._threads:
            thread.join(5)

    def count(self, verb):
        return sum(1 for command in self.commands if command.split(" ")[0] == verb)

    def _accept(self):
        while True:
            try:
                connection, _ = self._listener.accept()
            except OSError:
                return
            self.sessions += 1
            self._connections.append(connection)
            thread = threading.Thread(target=self._serve, args=(connection,), daemon=True)
            self._threads.append(thread)
            thread.start()

    def _serve(self, connection):
        deleted = set()
        with connection, connection.makefile("rb") as lines:
            connection.settimeout(10)
            try:
                connection.sendall(self.greeting)
                for raw in lines:
                    line = raw.decode("latin-1").rstrip("\r\n")
                    verb = line.split(" ")[0]
                    self.commands.append(line if verb != "PASS" else "PASS")
                    if line in self.replies or verb in self.replies:
                        reply = self.replies.get(line, self.replies.get(verb))
                    else:
                        reply = self._reply(verb, line.split(" ")[1:], deleted)
                    if reply is None:
                        return
                    if verb == "QUIT":
                        # Deletions are final only now (RFC 1939 section 6).
                        self.messages = [message for number, message in enumerate(self.messages, 1)
                                         if number not in deleted]
                    connection.sendall(reply)
                    if verb == "QUIT":
                        return
            except OSError:
                return

    def _reply(self, verb, words, deleted):
        if verb == "USER":
            return b"+OK\r\n"
        if verb == "PASS":
            return b"+OK\r\n" if " ".join(words) == self.password else b"-ERR wrong password\r\n"
        alive = [n for n in range(1, len(self.messages) + 1) if n not in deleted]
        if verb == "STAT":
            size = sum(len(self.messages[n - 1]) for n in alive)
            return b"+OK %d %d\r\n" % (len(alive), size)
        if verb == "QUIT":
            return b"+OK bye\r\n"
        number = int(words[0]) if words and words[0].isdigit() else 0
        if number not in alive:
            return b"-ERR no such message\r\n"
        message = self.messages[number - 1]
        if verb == "LIST":
            return b"+OK %d %d\r\n" % (number, len(message))
        if verb == "UIDL":
            return b"+OK %d %s\r\n" % (number, self.uid(number).encode())
        if verb == "TOP":
            return b"+OK\r\n" + self._stuffed(message.partition(b"\r\n\r\n")[0] + b"\r\n\r\n")
        if verb == "RETR":
            return b"+OK\r\n" + self._stuffed(message)
        if verb == "DELE":
            deleted.add(number)
            return b"+OK\r\n"
        return b"-ERR unknown\r\n"

    def uid(self, number):
        """The unique id of a message; it stays with the message when others go."""
        return "uid%08x" % (hash(self.messages[number - 1]) & 0xFFFFFFFF)

    @staticmethod
    def _stuffed(message):
        lines = message.split(b"\r\n")
        stuffed = b"\r\n".join(b"." + line if line.startswith(b".") else line for line in lines)
        return stuffed + (b"" if stuffed.endswith(b"\r\n") else b"\r\n") + b".\r\n"
