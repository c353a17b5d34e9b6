"""korvane sync, against the sample server."""

import unittest

from command_line import HERE, SAMPLES, SOURCE, CommandLineTest


class Sync(CommandLineTest):
    def setUp(self):
        super().setUp()
        self.init()

    def new(self, *arguments, **options):
        accounts = self.korvane("sync", "--json", *arguments, **options).json()["accounts"]
        return [account["new"] for account in accounts]

    def test_the_first_run_stores_everything_and_looks_nothing_up_twice(self):
        self.put_many(5)
        server = self.serve()
        self.add_account(server)
        self.assertIn("5 new messages", self.korvane("sync").out)
        commands = server.commands()
        self.assertEqual(sum(c.startswith("RETR") for c in commands), 5)
        self.assertEqual(commands[-1], "QUIT")
        self.assertEqual(len(self.subjects()), 5)

    def test_the_second_run_asks_for_one_header_and_stores_nothing(self):
        self.put_many(5)
        server = self.serve()
        self.add_account(server)
        self.korvane("sync")
        server.commands()
        self.assertEqual(self.new(), [0])
        self.assertEqual(server.commands(), ["USER maria", "PASS ***", "STAT", "TOP 5 0",
                                             "LIST 5", "UIDL 5", "QUIT"])

    def test_new_mail_is_stored_and_only_that(self):
        self.put_many(3)
        server = self.serve()
        self.add_account(server)
        self.korvane("sync")
        server.commands()
        self.put("zzz", "the new one", "Tue, 4 Mar 2025 08:00:00 +0000")
        self.assertEqual(self.new(), [1])
        fetched = [c for c in server.commands() if c.startswith("RETR")]
        # Reading ahead, a few more may have been asked for in vain.
        self.assertEqual(fetched[:1] if "+ahead" in HERE else fetched, ["RETR 4"])
        self.assertEqual(self.subjects()[0], "the new one")

    def test_the_sample_messages_all_arrive_and_none_twice(self):
        folders = f"{SOURCE}/tests/mail/real,{SOURCE}/tests/mail/quirky"
        self.add_account(self.serve(f"maria:garden:{folders}"))
        count = len(SAMPLES) + len(list((SOURCE / "tests/mail/quirky").glob("*.eml")))
        self.assertEqual(self.new(), [count])
        self.assertEqual(self.new(), [0])
        self.assertEqual(self.new("--deep"), [0])
        self.assertEqual(self.new(), [0])

    def test_messages_without_times_do_not_come_twice(self):
        for name in ("a", "b", "c"):
            self.put(name, name, "not a date")
        self.add_account(self.serve())
        self.assertEqual(self.new(), [3])
        self.assertEqual(self.new(), [0])

    def test_headers_only_fetches_no_body(self):
        self.put_many(3)
        server = self.serve()
        self.add_account(server)
        self.assertEqual(self.new("--headers"), [3])
        self.assertFalse([c for c in server.commands() if c.startswith("RETR")])
        self.assertEqual(self.new("--headers"), [0])

    def test_delete_on_server_deletes_what_was_stored(self):
        self.put_many(3)
        server = self.serve()
        self.add_account(server)
        self.assertEqual(self.new("--delete-on-server"), [3])
        self.assertEqual(sum(c.startswith("DELE") for c in server.commands()), 3)
        self.assertEqual(self.new(), [0])
        self.assertEqual(len(self.subjects()), 3)

    def test_headers_only_and_delete_on_server_exclude_each_other(self):
        self.korvane("sync", "--headers", "--delete-on-server", status=2)

    def test_all_accounts_are_done_and_each_is_told(self):
        self.put_many(2)
        server = self.serve(f"maria:garden:{self.mail}", f"anna:hill:{self.mail}")
        self.add_account(server)
        self.add_account(server, username="anna", password="hill")
        self.assertEqual(self.new(), [2])
        self.assertEqual(self.new("--all"), [0, 2])
        self.assertEqual(self.new("--account", 2), [0])

    def test_one_account_that_fails_does_not_stop_the_others(self):
        self.put_many(2)
        server = self.serve(f"maria:garden:{self.mail}", f"anna:hill:{self.mail}")
        self.add_account(server, password="wrong")
        self.add_account(server, username="anna", password="hill")
        first, second = self.korvane("sync", "--all", "--json", status=7).json()["accounts"]
        self.assertEqual(first["error"]["number"], 1203)
        self.assertEqual(second["new"], 2)

    def test_a_server_that_is_away_is_status_6_and_the_box_can_still_be_listed(self):
        self.put_many(2)
        server = self.serve()
        self.add_account(server)
        self.korvane("sync")
        server.stop()
        result = self.korvane("sync", status=6)
        self.assertIn("error 1093", result.err)
        self.assertIn("check the host", result.err)
        self.assertEqual(len(self.subjects()), 2)

    def test_after_a_failed_run_the_next_one_completes(self):
        self.put_many(4)
        server = self.serve()
        self.add_account(server)
        self.korvane("sync")
        self.put("x", "later", "Tue, 4 Mar 2025 08:00:00 +0000")
        server.stop()
        self.korvane("sync", status=6)
        again = self.serve(port=server.port)
        self.assertEqual(self.new(), [1])
        self.assertEqual(again.commands()[-1], "QUIT")

    def test_no_account_is_status_5(self):
        self.korvane("sync", status=5)
        self.korvane("sync", "--account", 4, status=5)
        self.korvane("sync", "--account", 4, "--all", status=2)

    def test_a_message_file_that_cannot_be_written_is_status_9_and_the_headers_are_there(self):
        self.put_many(2)
        server = self.serve()
        self.add_account(server)
        (self.folder / "store/messages/1_Messaggi.dat").mkdir()
        result = self.korvane("sync", "--delete-on-server", status=9)
        self.assertIn("2 of them without their content", result.err)
        self.assertEqual(len(self.subjects()), 2)
        self.assertFalse([c for c in server.commands() if c.startswith("DELE")])

    def test_a_terminal_shows_the_progress_and_a_log_does_not(self):
        self.put_many(12)
        self.add_account(self.serve())
        shown = self.on_terminal("sync")
        self.assertEqual(shown.status, 0)
        self.assertIn("12/12  12 new", shown.out)
        self.assertIn("12/12  stored", shown.out)
        self.assertIn("12 new messages", shown.out)
        log = self.korvane("sync")
        self.assertNotIn("\r", log.out + log.err)
        self.assertEqual(len(log.out.splitlines()), 1)

    def test_a_password_that_is_not_kept_comes_from_outside(self):
        self.put_many(1)
        self.add_account(self.serve(), "--ask-password")
        self.assertEqual(self.new(environment={"KORVANE_PASSWORD": "garden"}), [1])


if __name__ == "__main__":
    unittest.main()
