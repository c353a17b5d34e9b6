"""korvane export and import."""

import email
import email.policy
import mailbox
import re
import resource
import signal
import subprocess
import unittest

from command_line import BIN, SOURCE, CommandLineTest

FORMATS = ("mbox", "eml", "maildir")


class Archive(CommandLineTest):
    def setUp(self):
        super().setUp()
        self.init()

    def fill(self, *folders):
        self.add_account(self.serve("maria:garden:" + ",".join(str(f) for f in folders or [self.mail])))
        self.korvane("sync")

    def contents(self, *options):
        """What can be seen of every message of a box."""
        listing = self.korvane("list", "--page-size", 1000, "--json", *options).json()["items"]
        messages = []
        for item in listing:
            shown = self.korvane("show", item["id"], "--json", "--alternative", "any").json()
            messages.append((shown["subject"], shown["from"], shown["to"], shown["cc"],
                             shown["message_id"], shown["date"],
                             re.sub(r"/attachments/1_\d+_", "/attachments/1_N_", shown["text"]),
                             [(a["name"], a["size"]) for a in shown["attachments"]]))
        return sorted(messages)

    def test_every_format_gives_the_same_messages_back(self):
        self.mail.rmdir()
        self.mail.mkdir()
        self.put("1", "Città", body=">From quoted\nFrom the start\n.dot\n..\n\n\n")
        (self.folder / "att").write_bytes(bytes(range(256)) * 300)
        self.fill(self.mail, SOURCE / "tests/mail/real")
        self.korvane("compose", "--from", "Città <a@example.org>", "--to", "b@example.org",
                     "--subject", "composed", "--box", 1, "--attach", self.folder / "att",
                     "--date", "05/03/2025 09:08:07", input="text\n")
        before = self.contents()
        self.assertGreater(len(before), 40)
        for format in FORMATS:
            place = self.folder / format
            self.korvane("export", place, "--format", format, "--box", 1)
            box = {"mbox": 11, "eml": 12, "maildir": 13}[format]
            result = self.korvane("import", place, "--box", box, "--again", "--json").json()
            self.assertEqual(result, {"imported": len(before), "duplicates": 0})
            after = self.contents("--box", box)
            self.assertEqual(after, before)

    def test_what_others_read_in_an_export(self):
        self.put("1", "=?utf-8?Q?Perch=C3=A9?=", body="From here\n>From there\n")
        self.put("2", "second")
        self.fill()
        self.korvane("export", self.folder / "box")
        box = mailbox.mbox(self.folder / "box")
        subjects = [str(email.header.make_header(email.header.decode_header(m["Subject"])))
                    for m in box]
        box.close()
        self.assertEqual(subjects, ["Perché", "second"])
        raw = (self.folder / "box").read_bytes()
        self.assertNotIn(b"\r", raw)
        self.korvane("export", self.folder / "dir", "--format", "maildir")
        self.assertEqual(len(mailbox.Maildir(self.folder / "dir", create=False)), 2)
        self.korvane("export", self.folder / "eml", "--format", "eml")
        message = email.message_from_bytes((self.folder / "eml/1.eml").read_bytes(),
                                           policy=email.policy.default)
        self.assertEqual(message.get_content().splitlines(), ["From here", ">From there"])

    def test_duplicates_are_not_imported_twice(self):
        self.put_many(3)
        self.fill()
        self.korvane("compose", "--subject", "no identifier", "--box", 1, input="text\n")
        self.korvane("export", self.folder / "box")
        self.assertEqual(self.korvane("import", self.folder / "box", "--json").json(),
                         {"imported": 0, "duplicates": 4})
        self.assertEqual(self.korvane("import", self.folder / "box", "--again", "--json").json(),
                         {"imported": 4, "duplicates": 0})
        twice = (self.folder / "box").read_bytes() * 2
        (self.folder / "twice").write_bytes(twice)
        self.assertEqual(
            self.korvane("import", "--user", 2, self.folder / "twice", "--json").json(),
            {"imported": 4, "duplicates": 4})

    def test_read_messages_stay_read(self):
        self.put_many(2)
        self.fill()
        self.korvane("show", 1)
        for format in ("mbox", "maildir"):
            place = self.folder / format
            self.korvane("export", place, "--format", format)
            user = {"mbox": 2, "maildir": 3}[format]
            self.korvane("import", place, "--user", user)
            listing = self.korvane("list", "--user", user, "--json").json()["items"]
            self.assertEqual({i["subject"]: i["read"] for i in listing},
                             {"number 001": True, "number 002": False})
            header = self.korvane("show", listing[1]["id"], "--user", user, "--full-header").out
            self.assertNotIn("Status:", header)

    def test_headers_alone_are_left_out_unless_they_are_fetched(self):
        self.put_many(2)
        self.add_account(self.serve())
        self.korvane("sync", "--headers")
        self.assertEqual(self.korvane("export", self.folder / "a", "--json").json(),
                         {"exported": 0, "headers_only": 2})
        self.assertEqual(self.korvane("export", self.folder / "b", "--fetch", "--json").json(),
                         {"exported": 2, "headers_only": 0})

    def test_some_messages_or_one_box(self):
        self.put_many(3)
        self.fill()
        self.korvane("export", self.folder / "a", 2)
        self.assertIn("number 002", (self.folder / "a").read_text())
        self.assertEqual(self.korvane("export", self.folder / "b", "--box", 9, "--json").json(),
                         {"exported": 0, "headers_only": 0})
        self.korvane("export", self.folder / "c", 99, status=10)

    def test_an_export_overwrites_nothing(self):
        (self.folder / "box").write_text("mine")
        self.korvane("export", self.folder / "box", status=9)
        self.assertEqual((self.folder / "box").read_text(), "mine")

    def short_of_space(self, *arguments, bytes):
        """Runs the program where no file may grow beyond `bytes`, as on a disk that is full."""
        def limit():
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            resource.setrlimit(resource.RLIMIT_FSIZE, (bytes, bytes))
        return subprocess.run([BIN / "korvane", *map(str, arguments)], env=self.environment(),
                              preexec_fn=limit, capture_output=True, text=True)

    def test_an_export_to_a_full_disk_is_status_9_and_leaves_no_half_file(self):
        self.put("1", body=("x" * 70 + "\n") * 5000)
        self.fill()
        for format in FORMATS:
            place = self.folder / format
            result = self.short_of_space("export", place, "--format", format, bytes=100_000)
            self.assertEqual(result.returncode, 9, result.stderr)
            self.assertIn("File too large", result.stderr)
            files = [path for path in place.rglob("*") if path.is_file()] if place.is_dir() else []
            self.assertEqual(files, [])
            self.assertFalse(place.is_file())

    def test_an_import_to_a_full_disk_is_status_9_and_leaves_nothing(self):
        with open(self.folder / "box", "w") as box:
            box.write("From x\nSubject: large\n\n" + ("x" * 70 + "\n") * 50_000)
        self.korvane("list")
        result = self.short_of_space("import", self.folder / "box", bytes=1_000_000)
        self.assertEqual(result.returncode, 9, result.stderr)
        self.assertIn("cannot be written", result.stderr)
        self.assertEqual(self.subjects(), [])
        self.assertEqual((self.folder / "store/messages/1_Messaggi.dat").stat().st_size, 0)
        self.korvane("check")

    def test_what_is_no_archive_is_refused(self):
        (self.folder / "text").write_text("hello\nFrom me\n")
        self.assertIn("no mbox", self.korvane("import", self.folder / "text", status=9).err)
        (self.folder / "empty").mkdir()
        self.korvane("import", self.folder / "empty", status=10)
        self.korvane("import", self.folder / "nowhere", status=10)
        (self.folder / "nothing").write_text("")
        self.assertEqual(self.korvane("import", self.folder / "nothing", "--json").json(),
                         {"imported": 0, "duplicates": 0})

    def test_binary_noise_is_taken_as_it_is_or_refused_never_a_crash(self):
        noise = bytes((i * 7919 + i // 3) % 256 for i in range(100_000))
        (self.folder / "noise.eml").write_bytes(noise)
        (self.folder / "noise.mbox").write_bytes(b"From x\n" + noise + b"\n\nFrom y\n" + noise)
        (self.folder / "nul").write_bytes(b"From x\nSubject: \0\n\n\0\0\n")
        self.korvane("import", self.folder / "noise.eml")
        self.korvane("import", self.folder / "noise.mbox")
        self.korvane("import", self.folder / "nul")
        self.korvane("export", self.folder / "again")

    def test_what_came_before_a_fault_stays(self):
        self.put_many(2)
        self.fill()
        self.korvane("export", self.folder / "box")
        result = self.korvane("import", "--user", 2, self.folder / "box", self.folder / "nowhere",
                              "--json", status=10).json()
        self.assertEqual(result["imported"], 2)
        self.assertEqual(len(self.subjects("--user", 2)), 2)

    def test_a_progress_line_stands_on_a_terminal(self):
        self.put_many(3)
        self.fill()
        shown = self.on_terminal("export", self.folder / "box")
        self.assertIn("Export  [", shown.out)


if __name__ == "__main__":
    unittest.main()
