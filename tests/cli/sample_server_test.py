"""The sample server, through Python's own POP3 client."""

import poplib
import unittest

from command_line import BIN, CommandLineTest

import subprocess


class SampleServer(CommandLineTest):
    def login(self, server, user="maria", password="garden"):
        client = poplib.POP3("127.0.0.1", server.port, timeout=20)
        self.addCleanup(client.close)
        client.user(user)
        client.pass_(password)
        return client

    def test_messages_come_in_the_order_of_their_names_with_cr_lf(self):
        self.put("2", "second")
        self.put("1", "first")
        client = self.login(self.serve())
        count, size = client.stat()
        self.assertEqual(count, 2)
        _, lines, octets = client.retr(1)
        self.assertIn(b"Subject: first", lines)
        sizes = [int(line.split()[1]) for line in client.list()[1]]
        self.assertEqual(sum(sizes), size)
        self.assertEqual(octets, sizes[0])

    def test_lines_that_start_with_a_dot_arrive_whole(self):
        self.put("1", body=".\n..\n.x\nlast line without an end")
        _, lines, _ = self.login(self.serve()).retr(1)
        self.assertEqual(lines[-4:], [b".", b"..", b".x", b"last line without an end"])

    def test_top_gives_the_header_and_the_lines_asked_for(self):
        self.put("1", body="one\ntwo\nthree\n")
        client = self.login(self.serve())
        self.assertEqual(client.top(1, 0)[1][-1], b"")
        self.assertEqual(client.top(1, 2)[1][-3:], [b"", b"one", b"two"])

    def test_deletions_count_after_quit_and_the_files_stay(self):
        self.put_many(3)
        server = self.serve()
        client = self.login(server)
        client.dele(2)
        self.assertEqual(client.stat()[0], 2)
        self.assertRaises(poplib.error_proto, client.retr, 2)
        client.close()  # no QUIT: nothing is deleted
        client = self.login(server)
        self.assertEqual(client.stat()[0], 3)
        client.dele(2)
        client.quit()
        client = self.login(server)
        self.assertEqual([line.split()[0] for line in client.list()[1]], [b"1", b"2"])
        self.assertEqual(len(list(self.mail.iterdir())), 3)

    def test_rset_takes_deletions_back(self):
        self.put_many(1)
        client = self.login(self.serve())
        client.dele(1)
        client.rset()
        self.assertEqual(client.stat()[0], 1)

    def test_unique_ids_stay_the_same_when_other_messages_go(self):
        self.put_many(3)
        server = self.serve()
        before = self.login(server).uidl()[1]
        (self.mail / "001").unlink()
        after = self.login(server).uidl()[1]
        self.assertEqual([line.split()[1] for line in before][1:],
                         [line.split()[1] for line in after])
        self.assertEqual(len({line.split()[1] for line in before}), 3)

    def test_users_have_their_own_folders_and_passwords(self):
        self.put_many(1)
        (self.folder / "empty").mkdir()
        server = self.serve(f"maria:garden:{self.mail}", f"anna:two words:{self.folder}/empty")
        self.assertEqual(self.login(server).stat()[0], 1)
        self.assertEqual(self.login(server, "anna", "two words").stat()[0], 0)
        self.assertRaises(poplib.error_proto, self.login, server, "anna", "garden")
        self.assertRaises(poplib.error_proto, self.login, server, "nobody", "garden")

    def test_nothing_but_login_is_answered_before_it(self):
        self.put_many(1)
        client = poplib.POP3("127.0.0.1", self.serve().port, timeout=20)
        self.addCleanup(client.close)
        self.assertRaises(poplib.error_proto, client.stat)
        self.assertIn("TOP", client.capa())

    def test_numbers_out_of_range_are_refused(self):
        self.put_many(1)
        client = self.login(self.serve())
        for number in (0, 2, -1, "x", 99999999999999999999):
            self.assertRaises(poplib.error_proto, client.retr, number)
        self.assertRaises(poplib.error_proto, client.top, 1, "x")

    def test_a_mailbox_that_is_not_written_right_is_refused(self):
        for mailbox in ("maria", "maria:garden", ":x:y", "maria:garden:"):
            result = subprocess.run([BIN / "korvane-sample-server", mailbox], capture_output=True,
                                    timeout=20)
            self.assertEqual(result.returncode, 2, mailbox)


if __name__ == "__main__":
    unittest.main()
