"""One store, two builds: the same mailbox makes the same files here and under Windows, and each build
reads what the other wrote."""

import os
import re
import sys
import unittest

from prefix import HERE, SOURCE, windows_path
from run_page import run_script
from windows_site import KEY, USER, Dovecot, Site, message

# The preset dev builds this system's library.
os.environ.setdefault("KORVANE_LIBRARY", str(SOURCE / "build" / "dev" / "lib" / "libkorvane.so"))
sys.path.insert(0, str(SOURCE / "automation" / "python"))
import korvane  # noqa: E402


def corpus():
    """The mail that other tests parse."""
    files = sorted(path for folder in ("real", "quirky", "malformed", "hostile")
                   for path in (SOURCE / "tests" / "mail" / folder).iterdir())
    return [path.read_bytes() for path in files if path.suffix == ".eml"]


def comparable(dump, site):
    """Without what differs by the rules: the path of a uuencoded file, and in names on disk the
    characters that Windows refuses."""
    for folder in (windows_path(site.folder / "attachments") + "\\", str(site.folder / "attachments") + "/"):
        dump = dump.replace(folder, "")

    def stored(line):
        first, last = line[0].rsplit("|", 1)
        return first + "|" + re.sub('[<>:"|?*]', "_", last)
    return re.sub(r"^Attachment=.*$", stored, dump, flags=re.M)


class Linux:
    """The same pages by this system's library."""

    def __init__(self, site):
        lines = ["Windows Registry Editor Version 5.00", "", "[%s]" % (KEY % 1)]
        for name, value in site.settings.items():
            if isinstance(value, int):
                lines.append('"%s"=dword:%08x' % (name, value))
            else:
                lines.append('"%s"="%s"' % (name, value.replace("Z:", "").replace("\\", "/")))
        (site.folder / "registry.reg").write_text("\r\n".join(lines) + "\r\n")
        os.environ["KORVANE_REGISTRY"] = str(site.folder / "registry.reg")
        boss = korvane.create("BossObject")
        assert boss.Init(1), boss.GetLastError
        connection = korvane.connect("sqlite://" + str(site.database))
        boss.Init2(connection)
        self.web = korvane.create("WebInterface")
        self.web.ConnDataBase = connection
        self.web.UserId = USER
        assert self.web.Init(boss), self.web.GetLastError

    def sync(self):
        self.web.GetListMessagesInBox(1, bDownloadHeaderOnly=False, bFirstDownload=True)
        assert self.web.GetLastError == 0, self.web.GetLastError

    def dump(self, first, last):
        lines = []

        def show(name, *values):
            lines.append(name + "=" + "|".join(map(str, values)) + "\n")
        for number in range(first, last + 1):
            m = self.web.GetMessage(number)
            show("Message", "%d %d" % (number, self.web.GetLastError))
            if m is None:
                continue
            show("OriginalHeader", m.OriginalHeader)
            show("ReturnPath", m.ReturnPath, m.ReturnPathAddress)
            show("ReplyTo", m.ReplyTo, m.ReplyToName, m.ReplyToAddress)
            show("From", m.From, m.FromName, m.FromMailAddress)
            show("Sender", m.Sender, m.SenderName, m.SenderAddress)
            show("Dates", m.SendDate)
            show("To", m.MessageTo, m.MessageToName, m.MessageToAddress)
            show("CC", m.CC, m.CC_Name, m.CC_Address)
            show("BCC", m.BCC, m.BCC_Name, m.BCC_Address)
            show("Ids", m.MessageID, m.InReplyTo, m.References)
            show("Words", m.Keywords, m.Comments, m.Encrypted)
            show("Received", m.Received)
            show("Subject", m.Subject(0), m.Subject(1), m.Subject(2))
            show("Size", m.Size)
            for kind in range(3):
                for form in range(3):
                    text = korvane.Ref("")
                    m.MessageBody(text, kind, form)
                    show("Body %d%d %d" % (kind, form, m.GetLastError), text.value)
            for attachment in m.GetAttachments():
                show("Attachment", attachment.Id, attachment.Name, attachment.NameOnServer)
        return "".join(lines)


class Exchange(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.stack = [Site().__enter__(), Site().__enter__()]
        cls.here, cls.there = cls.stack
        with Dovecot() as server:
            mail = [message("città %d" % n, minute=n, body="due righe\r\nЖ\r\n") for n in range(3)] + corpus()
            for one in mail:
                server.deliver("ann", one)
            for site in cls.stack:
                site.settings["ServerTimeout"] = 10000
                site.add_account(5, server.port, default=True)
            cls.count = len(mail)
            cls.there.instance += 1
            cls.instance = cls.there.write_settings()
            cls.here_instance = cls.here.write_settings()
            cls.windows_dump = cls.by_windows(cls.instance, cls.there, "sync")
            cls.linux = Linux(cls.here)
            cls.linux.sync()
            cls.linux_dump = cls.linux.dump(1, cls.count)

    @classmethod
    def tearDownClass(cls):
        for site in cls.stack:
            site.__exit__()

    @classmethod
    def by_windows(cls, instance, site, sync="no"):
        status, output = run_script(site, HERE / "exchange" / "dump.vbs", instance, site.connection_string,
                                    USER, 1, cls.count, sync)
        assert status == 0, output[-2000:]
        return output[output.index("Message="):output.rindex("\n", 0, -1) + 1]

    def assert_same(self, left, left_site, right, right_site):
        left, right = comparable(left, left_site), comparable(right, right_site)
        if left == right:
            return
        left, right = left.split("\n"), right.split("\n")
        for n, (one, other) in enumerate(zip(left, right)):
            if one != other:
                message = next(line for line in reversed(left[:n + 1]) if line.startswith("Message="))
                self.fail("%s, line %d:\n%r\n%r" % (message, n, one[:500], other[:500]))
        self.fail("%d lines and %d" % (len(left), len(right)))

    def test_the_corpus_is_there_and_opens(self):
        self.assertGreater(self.count, 90)
        self.assertEqual(self.linux_dump.count("\nMessage=") + 1, self.count)

    def records(self, site):
        """The records of the message file by their messages, without those that hold the time of the
        download, a path or a name that differs."""
        data = site.files("messages")["7_Messaggi.dat"]
        rows = site.sql("SELECT body_scaricato, id_mail, data > date('now', '-1 day') FROM mail ORDER BY 1")
        ends = [row[0] for row in rows[1:]] + [len(data) + 1]
        return {number: data[begin - 1:end - 1] for (begin, number, undated), end in zip(rows, ends)
                if not undated and b"attachments" not in data[begin - 1:end - 1]
                and not re.search(rb"_script[>_]\.html", data[begin - 1:end - 1])}

    def test_the_same_mailbox_makes_the_same_records_byte_for_byte(self):
        here, there = self.records(self.here), self.records(self.there)
        self.assertGreater(len(here), 75)
        self.assertEqual(list(here), list(there))
        for number in here:
            self.assertEqual(here[number], there[number], number)

    def test_the_same_mailbox_makes_the_same_attachment_files(self):
        here, there = self.here.files("attachments"), self.there.files("attachments")
        self.assertGreater(len(here), 20)
        self.assertEqual(sorted(here.values()), sorted(there.values()))

    def test_the_same_mailbox_makes_the_same_rows(self):
        # A message without a time of its own has the time of the download.
        rows = "SELECT id_mail, mittente, destinatario, oggetto, " \
            "CASE WHEN data < date('now', '-1 day') THEN data END, dimensione, campo_received, " \
            "campo_MessageId, body_scaricato > 0, IdSulServer, DwnldCorrettoFAQ FROM mail"
        self.assertEqual(self.here.sql(rows), self.there.sql(rows))

    def test_both_builds_show_the_same(self):
        self.assert_same(self.windows_dump, self.there, self.linux_dump, self.here)

    def test_a_store_that_was_written_here_is_read_under_windows(self):
        self.assert_same(self.by_windows(self.here_instance, self.here), self.here, self.linux_dump, self.here)

    def test_a_store_that_was_written_under_windows_is_read_here(self):
        self.assert_same(Linux(self.there).dump(1, self.count), self.there, self.windows_dump, self.there)


if __name__ == "__main__":
    unittest.main()
