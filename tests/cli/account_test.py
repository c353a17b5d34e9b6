"""korvane account."""

import sqlite3
import unittest

from command_line import CommandLineTest


class Accounts(CommandLineTest):
    def setUp(self):
        super().setUp()
        self.init()

    def accounts(self, *arguments):
        return self.korvane("account", "list", "--json", *arguments).json()["accounts"]

    def add(self, *arguments, **options):
        return self.korvane("account", "add", "--server", "pop.example.org", "--username", "maria",
                            *arguments, **{"input": "secret\n", **options})

    def stored_password(self, account=1):
        with sqlite3.connect(self.folder / "store/mail.db") as database:
            return database.execute("SELECT Password_server, caso FROM account_email WHERE "
                                    "Id_account_email=?", [account]).fetchone()

    def test_an_account_is_encrypted_unless_said_otherwise(self):
        self.add()
        self.korvane("account", "add", "--server", "pop3://old.example.org", "--username", "m",
                     input="x\n")
        first, second = self.accounts()
        self.assertEqual((first["port"], first["tls"]), (995, True))
        self.assertEqual((second["port"], second["tls"]), (110, False))

    def test_the_first_account_is_the_default_until_another_is_made_it(self):
        self.add()
        self.add()
        self.assertEqual([a["default"] for a in self.accounts()], [True, False])
        self.korvane("account", "set", 2, "--default")
        self.assertEqual([a["default"] for a in self.accounts()], [False, True])
        self.korvane("account", "remove", 2)
        self.assertEqual([a["default"] for a in self.accounts()], [True])

    def test_users_do_not_see_each_others_accounts(self):
        self.add("--user", 7)
        self.assertEqual(self.accounts(), [])
        self.assertEqual(len(self.accounts("--user", 7)), 1)
        self.korvane("account", "remove", 1, status=5)
        self.korvane("account", "set", 1, "--port", 1, status=5)

    def test_the_password_comes_from_the_standard_input(self):
        self.add(input="a pass word \n")
        self.assertEqual(self.stored_password(), ("a pass word ", 0))

    def test_the_password_comes_from_a_file(self):
        (self.folder / "secret").write_text("from the file\nnot this\n")
        self.add("--password-file", self.folder / "secret")
        self.assertEqual(self.stored_password()[0], "from the file")

    def test_the_password_comes_from_the_environment(self):
        self.add(environment={"KORVANE_PASSWORD": "from outside"})
        self.assertEqual(self.stored_password()[0], "from outside")

    def test_the_password_is_asked_for_on_a_terminal_without_echo(self):
        shown = self.on_terminal("account", "add", "--server", "pop.example.org", "--username",
                                 "maria", answers=["typed secret"])
        self.assertEqual(shown.status, 0, shown.out)
        self.assertIn("Password of maria", shown.out)
        self.assertNotIn("typed secret", shown.out)
        self.assertEqual(self.stored_password()[0], "typed secret")

    def test_no_option_takes_a_password(self):
        self.add("--password", "secret", status=2)

    def test_no_password_at_all_is_a_wrong_command_line(self):
        self.add(input="", status=2)
        self.assertEqual(self.accounts(), [])

    def test_no_output_shows_a_password(self):
        for result in (self.add(), self.korvane("account", "list"),
                       self.korvane("account", "list", "--json")):
            self.assertNotIn("secret", result.out + result.err)

    def test_a_line_break_in_a_name_or_password_is_refused(self):
        self.korvane("account", "add", "--server", "a.example.org", "--username", "m\r\nDELE 1",
                     input="x\n", status=2)
        self.add(environment={"KORVANE_PASSWORD": "x\ny"}, status=2)
        self.assertEqual(self.accounts(), [])

    def test_names_with_quotes_are_kept_as_they_are(self):
        self.korvane("account", "add", "--server", "pop.example.org", "--username",
                     "o'neill\\\"; DROP TABLE mail", input="x'y\n")
        self.assertEqual(self.accounts()[0]["username"], "o'neill\\\"; DROP TABLE mail")
        self.assertEqual(self.stored_password()[0], "x'y")

    def test_an_account_can_be_told_to_ask_for_its_password(self):
        self.add()
        self.korvane("account", "set", 1, "--ask-password")
        self.assertEqual(self.stored_password(), (None, 1))
        self.assertFalse(self.accounts()[0]["password_stored"])

    def test_a_removed_account_leaves_its_messages_and_its_number_is_not_used_again(self):
        self.put_many(3)
        server = self.serve()
        self.add_account(server)
        self.korvane("sync")
        self.korvane("account", "remove", 1)
        self.assertEqual(self.accounts(), [])
        self.assertEqual(len(self.subjects()), 3)
        self.add()
        self.assertEqual(self.accounts()[0]["id"], 2)

    def test_an_account_can_be_added_after_a_message_was_written(self):
        self.korvane("compose", "--to", "bob@example.org", input="hello\n")
        self.add()
        self.assertEqual(self.accounts()[0]["id"], 1)

    def test_verify_logs_in(self):
        self.add_account(self.serve())
        self.assertIn("the login works", self.korvane("account", "verify", 1).out)

    def test_verify_leaves_the_mail_alone(self):
        self.put_many(2)
        server = self.serve()
        self.add_account(server)
        self.korvane("account", "verify")
        self.assertEqual(server.commands(), ["USER maria", "PASS ***", "QUIT", "CAPA", "QUIT"])

    def test_reading_ahead_is_switched_on_and_off(self):
        self.add()
        self.korvane("account", "set", 1, "--read-ahead", "on")
        account = self.accounts()[0]
        self.assertEqual((account["server"], account["read_ahead"], account["tls"]),
                         ("pop3s+ahead://pop.example.org", True, True))
        self.korvane("account", "set", 1, "--read-ahead", "off")
        self.assertEqual(self.accounts()[0]["server"], "pop3s://pop.example.org")
        self.korvane("account", "set", 1, "--read-ahead", "perhaps", status=2)

    def test_verify_says_what_the_server_can_do(self):
        self.add_account(self.serve())
        self.korvane("account", "set", 1, "--read-ahead", "on")
        shown = self.korvane("account", "verify", 1).out
        self.assertIn("does not say that it takes commands ahead", shown)
        self.assertIn("--read-ahead off", shown)

    def test_mail_comes_the_same_when_it_is_read_ahead(self):
        self.put_many(3)
        self.add_account(self.serve())
        self.korvane("account", "set", 1, "--read-ahead", "on")
        self.korvane("sync")
        self.assertEqual(len(self.subjects()), 3)

    def test_a_wrong_password_is_status_7_with_the_servers_words(self):
        self.add_account(self.serve(), password="wrong")
        result = self.korvane("account", "verify", status=7)
        self.assertIn("error 1203", result.err)
        self.assertIn("no such user, or another password", result.err)
        self.assertNotIn("wrong", result.err)

    def test_a_server_that_is_not_there_is_status_6(self):
        server = self.serve()
        self.add_account(server)
        server.stop()
        self.assertIn("error 1093", self.korvane("account", "verify", status=6).err)

    def test_verify_without_any_account_is_status_5(self):
        self.korvane("account", "verify", status=5)
        self.korvane("account", "verify", 3, status=5)

    def test_verify_asks_for_a_password_that_is_not_kept(self):
        self.add_account(self.serve(), "--ask-password")
        self.korvane("account", "verify", input="garden\n")
        self.korvane("account", "verify", input="meadow\n", status=7)
        shown = self.on_terminal("account", "verify", answers=["garden"])
        self.assertIn("the login works", shown.out)

    def test_faults_are_told_apart_in_json_too(self):
        self.add_account(self.serve(), password="wrong")
        account = self.korvane("account", "verify", "--json", status=7).json()["accounts"][0]
        self.assertFalse(account["works"])
        self.assertEqual(account["error"]["number"], 1203)
        self.assertIn("advice", account["error"])


if __name__ == "__main__":
    unittest.main()
