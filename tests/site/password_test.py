"""Accounts whose password the site does not keep, and looking at the server with any account."""

import html
import re
import time
import unittest

from mail_site import Dovecot, MailSite, Visitor, sample


class PasswordsThatAreNotKept(unittest.TestCase):
    """Ann's first account keeps none; her second, Bob's mailbox, does."""

    @classmethod
    def setUpClass(cls):
        cls.server = cls.enterClassContext(Dovecot(["ann", "bob"]))
        cls.server.deliver("bob", sample("real/010_plain_short.eml"))
        cls.site = MailSite()
        cls.site.add_user(1, "ann")
        cls.site = cls.enterClassContext(cls.site)
        cls.ann = Visitor(cls.site)
        cls.ann.sign_in("ann")
        cls.ann.post("/accounts/add", server="127.0.0.1", port=cls.server.port, username="ann", ask="1")
        cls.ann.post("/accounts/add", server="127.0.0.1", port=cls.server.port, username="bob", password="secret")
        assert "password not kept" in cls.ann.get("/accounts").text

    def deliver(self):
        self.server.deliver("ann", sample("real/010_plain_short.eml").replace(
            b"Message-ID: <", f"Message-ID: <{time.monotonic_ns()}.".encode()))

    def held_in_files(self, text):
        return [path for path in self.site.folder.rglob("*") if path.is_file() and text in path.read_bytes()]

    def test_are_asked_for_when_mail_is_fetched_and_the_choices_come_back(self):
        self.deliver()
        answer = self.ann.post("/fetch", which="1", what="whole", delete="1")
        self.assertEqual(answer.status, 200)
        self.assertIn('name="password_1"', answer.text)
        self.assertNotIn('name="password_2"', answer.text)
        for field, value in (("which", "1"), ("what", "whole"), ("delete", "1")):
            self.assertIn(f'name="{field}" value="{value}"', answer.text)
        self.ann.fetch(which="1", password_1="secret")
        self.assertIn("new message", self.ann.get("/box/1").text)

    def test_are_asked_for_again_the_next_time(self):
        self.ann.fetch(which="all", password_1="secret")
        self.assertIn('name="password_1"', self.ann.post("/fetch", which="all", what="headers").text)

    def test_that_are_wrong_are_told_and_keep_no_other_account_from_being_fetched(self):
        self.ann.fetch(which="all", password_1="not hers")
        page = self.ann.get("/box/1").text
        self.assertIn("could not be fetched completely", page)
        self.assertIn("ann at", page)
        self.assertNotIn("bob at pop3://127.0.0.1:", page)

    def test_are_never_taken_from_an_address_and_never_given_to_another_account(self):
        self.assertIn('name="password_1"', self.ann.get("/peek?account=1&password_1=secret").text)
        self.ann.fetch(which="2", password_1="secret")
        self.assertNotIn("could not be fetched", self.ann.get("/box/1").text)

    def test_are_kept_nowhere(self):
        self.server.deliver("ann", sample("real/010_plain_short.eml"))
        self.ann.post("/accounts/change", account="1", server="127.0.0.1", port=self.server.port, username="ann",
                      ask="1", password="NeverWritten-7341")
        self.ann.fetch(which="1", password_1="NeverWritten-7341")
        self.ann.post("/accounts/verify", account="1", password_1="NeverWritten-7341")
        self.assertEqual(self.held_in_files(b"NeverWritten-7341"), [])
        self.assertNotIn("NeverWritten-7341", self.ann.get("/accounts?edit=1").text)

    def test_are_asked_for_when_an_account_is_verified(self):
        self.assertIn('name="password_1"', self.ann.post("/accounts/verify", account="1").text)
        self.ann.post("/accounts/verify", account="1", password_1="secret")
        self.assertIn("The account works", self.ann.get("/accounts").text)
        self.ann.post("/accounts/verify", account="1", password_1="wrong")
        self.assertIn("does not work", self.ann.get("/accounts").text)

    def test_are_asked_for_when_a_header_is_opened_and_when_a_message_goes_from_the_server(self):
        self.ann.fetch(which="1", password_1="secret")
        known = set(re.findall(r'/message/(\d+)"', self.ann.get("/box/1?size=200").text))
        self.server.deliver("ann", sample("real/010_plain_short.eml").replace(b"Subject: ", b"Subject: Asked, "))
        self.ann.fetch(which="1", what="headers", password_1="secret")
        (number,) = set(re.findall(r'/message/(\d+)"', self.ann.get("/box/1?size=200").text)) - known
        path = f"/message/{number}"
        self.assertIn('name="password_1"', self.ann.get(path).text)
        self.assertEqual(self.ann.post(path, password_1="wrong").status, 502)
        self.assertEqual(self.ann.post(path, password_1="secret").location, path)
        self.assertIn("Asked, ", self.ann.get(path).text)
        held = len(self.server.held("ann"))
        self.assertIn('name="password_1"', self.ann.post("/delete", id=number, where="server").text)
        self.assertEqual(len(self.server.held("ann")), held)
        self.ann.post("/delete", id=number, where="server", password_1="secret")
        self.assertEqual(len(self.server.held("ann")), held - 1)
        self.assertIn("Asked, ", self.ann.get(path).text)

    def test_are_not_asked_for_when_a_message_is_deleted_here(self):
        self.deliver()
        self.ann.fetch(which="1", password_1="secret")
        number = next(iter(self.ann.messages().values()))
        self.assertEqual(self.ann.post("/delete", id=str(number), where="here").status, 303)
        self.assertIn("deleted here", self.ann.get("/box/1").text)

    def test_are_needed_to_look_at_the_server_and_another_account_is_looked_at_without(self):
        self.deliver()
        self.assertIn('name="password_1"', self.ann.get("/peek?account=1").text)
        page = self.ann.post("/peek", account="1", password_1="secret").text
        self.assertIn("messages, page 1", page)
        link = html.unescape(re.search(r'href="(/peek/\d+\?[^"]+)"', page).group(1))
        self.assertIn("account=1", link)
        self.assertIn('name="password_1"', self.ann.get(link).text)
        path, _, query = link.partition("?")
        fields = dict(one.split("=") for one in query.split("&"))
        self.assertIn("Delete on the server", self.ann.post(path, password_1="secret", **fields).text)
        self.assertIn("1 messages, page 1", self.ann.get("/peek?account=2").text)

    def test_have_to_be_given_to_be_kept_from_now_on(self):
        self.ann.post("/accounts/add", server="127.0.0.1", port=self.server.port, username="ann", ask="1")
        number = max(re.findall(r"edit=(\d+)", self.ann.get("/accounts").text))
        form = {"account": number, "server": "127.0.0.1", "port": self.server.port, "username": "ann"}
        self.assertEqual(self.ann.post("/accounts/change", **form).status, 400)
        self.ann.post("/accounts/change", password="secret", **form)
        self.assertIn("The account works", self.ann.get("/accounts").text)
        self.ann.fetch(which=number)
        self.assertNotIn("could not be fetched", self.ann.get("/box/1").text)
        self.ann.post("/accounts/remove", account=number)


class LookingAtTheServer(unittest.TestCase):
    def test_is_for_any_account_of_the_user_and_for_nobody_elses(self):
        with Dovecot(["ann", "bob", "eve"]) as server:
            server.deliver("ann", sample("real/010_plain_short.eml"))
            for _ in range(2):
                server.deliver("bob", sample("real/010_plain_short.eml"))
            site = MailSite()
            for number, name in ((1, "ann"), (2, "eve")):
                site.add_user(number, name)
            for user, name in ((1, "ann"), (1, "bob"), (2, "eve")):
                site.add_account(server.port, user, name)
            with site:
                ann, eve = Visitor(site), Visitor(site)
                ann.sign_in("ann")
                eve.sign_in("eve")
                self.assertIn("1 messages, page 1", ann.get("/peek").text)
                page = ann.get("/peek?account=2").text
                self.assertIn("2 messages, page 1", page)
                self.assertIn('value="2" selected', page)
                link = html.unescape(re.search(r'href="(/peek/\d+\?[^"]+)"', page).group(1))
                uid = re.search(r"uid=([^&]+)", link).group(1)
                self.assertEqual(ann.get(link).status, 200)
                self.assertEqual(eve.get("/peek?account=2").status, 404)
                self.assertEqual(eve.get(link).status, 404)
                ann.post(link.split("?")[0] + "/delete", uid=uid, account="2")
                self.assertEqual(len(server.held("bob")), 1)
                self.assertEqual(len(server.held("ann")), 1)


if __name__ == "__main__":
    unittest.main()
