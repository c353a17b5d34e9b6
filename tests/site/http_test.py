"""The mail site over plain HTTP: what holds for every answer, and what a person who means harm meets."""

import concurrent.futures
import email
import re
import socket
import threading
import time
import unittest

from mail_site import Dovecot, MailSite, Visitor, closed_port, sample, samples
from pop3_server import Pop3Server  # where mail_site found Dovecot


class Served(unittest.TestCase):
    """One site for all who change nothing that another looks at."""

    @classmethod
    def setUpClass(cls):
        if hasattr(Served, "site"):
            return
        cls = Served
        cls.server = unittest.enterModuleContext(Dovecot(["ann", "bob"]))
        for path in [*samples("hostile"), *samples("real")[:6]]:
            cls.server.deliver("ann", path.read_bytes())
        cls.server.deliver("bob", sample("real/010_plain_short.eml"))
        site = MailSite()
        for number, name in ((1, "ann"), (2, "bob")):
            site.add_user(number, name)
            site.add_account(cls.server.port, number, name)
        cls.site = unittest.enterModuleContext(site)
        cls.ann, cls.bob = Visitor(site), Visitor(site)
        for person, name in ((cls.ann, "ann"), (cls.bob, "bob")):
            assert person.sign_in(name).location == "/box/1"
            person.fetch()
        cls.hers = cls.ann.messages()
        cls.his = cls.bob.messages()

    def pages(self):
        hers = self.hers["hostile script"]
        return ["/box/1", "/box/3", f"/message/{hers}", f"/message/{hers}?format=plain", "/compose",
                f"/compose?reply={hers}", f"/compose?forward={hers}", "/accounts", "/maintenance", "/peek"]


class EveryAnswer(Served):
    def test_carries_the_headers_that_keep_a_page_its_own(self):
        for path in [*self.pages(), "/static/site.js", "/nowhere", "/message/999999"]:
            with self.subTest(path):
                headers = self.ann.get(path).headers
                policy = headers["Content-Security-Policy"]
                for part in ("default-src 'none'", "script-src 'self'", "frame-ancestors 'none'",
                             "base-uri 'none'", "form-action 'self'"):
                    self.assertIn(part, policy)
                self.assertNotIn("unsafe", policy)
                self.assertEqual(headers["X-Content-Type-Options"], "nosniff")
                self.assertEqual(headers["Referrer-Policy"], "same-origin")

    def test_of_a_page_is_not_kept_by_caches(self):
        for path in self.pages():
            self.assertEqual(self.ann.get(path).headers["Cache-Control"], "no-store")

    def test_is_sent_as_it_is_because_compressing_took_longer_than_making_it(self):
        for path in ("/box/1", "/static/style.css"):
            answer = self.ann.get(path, Accept_Encoding="br, gzip, deflate")
            self.assertIsNone(answer.headers["Content-Encoding"])
            self.assertEqual(len(answer.body), int(answer.headers["Content-Length"]))

    def test_holds_no_markup_of_a_mail(self):
        for path in [*self.pages(), f"/message/{next(i for s, i in self.hers.items() if '<b>bold' in s)}"]:
            with self.subTest(path):
                page = self.ann.get(path).text
                self.assertNotIn("<script>new", page)
                self.assertNotIn("<b>bold", page)
                self.assertNotIn("<img src=x", page)
                self.assertNotRegex(page, r"<img src=.?http://127")

    def test_the_file_name_of_a_mail_cannot_leave_its_attribute(self):
        page = self.ann.get(f"/message/{self.hers['hostile file name']}").text
        self.assertIn("&lt;img src=x", page)

    def test_the_frame_of_a_mail_runs_nothing_and_sends_nothing(self):
        headers = self.ann.get(f"/message/{self.hers['hostile script']}/body").headers
        policy = headers["Content-Security-Policy"]
        for part in ("default-src 'none'", "form-action 'none'", "base-uri 'none'",
                     "sandbox allow-popups allow-popups-to-escape-sandbox", "img-src 'self' data:;"):
            self.assertIn(part, policy)
        self.assertNotIn("script-src", policy)
        self.assertNotIn("allow-same-origin", policy)
        self.assertNotIn("allow-scripts", policy)
        self.assertEqual(headers["Referrer-Policy"], "no-referrer")


class Attachments(Served):
    def files(self, subject):
        message = self.hers[subject]
        return [self.ann.get(path) for path in
                dict.fromkeys(re.findall(rf'/message/{message}/attachment/-?\d+', self.ann.get(f"/message/{message}").text))]

    def test_are_downloads_that_run_nothing(self):
        answers = self.files("hostile picture")
        self.assertGreaterEqual(len(answers), 2)
        for answer in answers:
            self.assertEqual(answer.status, 200)
            self.assertEqual(answer.headers["Content-Type"], "application/octet-stream")
            self.assertEqual(answer.headers["X-Content-Type-Options"], "nosniff")
            self.assertTrue(answer.headers["Content-Disposition"].startswith("attachment;"))
            self.assertIn("sandbox", answer.headers["Content-Security-Policy"])

    def test_that_only_claim_to_be_pictures_are_downloads_also_where_a_picture_is_asked_for(self):
        message = self.hers["hostile picture"]
        for path in re.findall(rf'/message/{message}/attachment/-?\d+', self.ann.get(f"/message/{message}").text):
            answer = self.ann.get(path + "?inline=1")
            self.assertEqual(answer.headers["Content-Type"], "application/octet-stream")
            self.assertTrue(answer.headers["Content-Disposition"].startswith("attachment;"))

    def test_cannot_split_the_header_by_their_file_name(self):
        answers = self.files("hostile file name")
        self.assertEqual(len(answers), 3)
        for answer in answers:
            self.assertEqual(answer.status, 200)
            self.assertIsNone(answer.headers["Set-Cookie"])
            disposition = answer.headers["Content-Disposition"]
            self.assertRegex(disposition, r'^attachment; filename="[\w.-]*"; filename\*=UTF-8\'\'[\w.%-]*$')
            self.assertNotIn("/", disposition)
        self.assertIn(b"harmless", [answer.body.strip() for answer in answers])

    def test_hold_the_bytes_that_were_sent(self):
        bodies = [answer.body for answer in self.files("hostile file name")]
        self.assertIn(b"harmless", bodies)


class SavedMessages(Served):
    def test_are_read_again_as_what_they_were(self):
        answer = self.ann.get(f"/message/{self.hers['hostile picture']}/source")
        self.assertEqual(answer.headers["Content-Type"], "message/rfc822")
        self.assertIn('filename="hostile_picture.eml"', answer.headers["Content-Disposition"])
        saved = email.message_from_bytes(answer.body)
        sent = email.message_from_bytes(sample("hostile/mime_sniffing.eml"))
        self.assertEqual(saved["Subject"], sent["Subject"])
        self.assertEqual({part.get_filename(): part.get_payload(decode=True) for part in saved.walk()
                          if part.get_filename()},
                         {part.get_filename(): part.get_payload(decode=True) for part in sent.walk()
                          if part.get_filename()})

    def test_cannot_be_had_by_others(self):
        self.assertEqual(self.bob.get(f"/message/{self.hers['hostile picture']}/source").status, 404)

    def test_cannot_split_the_header_by_their_subject(self):
        number = next(number for subject, number in self.hers.items() if "<b>bold" in subject)
        disposition = self.ann.get(f"/message/{number}/source").headers["Content-Disposition"]
        self.assertRegex(disposition, r'^attachment; filename="[\w.-]*"; filename\*=UTF-8\'\'[\w.%-]*$')


class ForeignThings(Served):
    def test_need_a_login(self):
        stranger = Visitor(self.site)
        for path in self.pages():
            self.assertEqual(stranger.get(path).location, "/sign-in")

    def test_cannot_be_read(self):
        hers = self.hers["hostile picture"]
        for path in (f"/message/{hers}", f"/message/{hers}/body", f"/message/{hers}/attachment/1",
                     f"/message/{hers}/attachment/2", f"/compose?reply={hers}", f"/compose?edit={hers}"):
            with self.subTest(path):
                answer = self.bob.get(path)
                self.assertEqual(answer.status, 404)
                self.assertNotIn("hostile", answer.text)

    def test_cannot_be_deleted(self):
        hers = self.hers["hostile script"]
        for where in ("here", "server", "both"):
            self.bob.post("/delete", id=str(hers), where=where)
        self.assertIn("hostile script", self.ann.messages())

    def test_cannot_be_brought_back(self):
        hers = self.hers["hostile base"]
        self.ann.post("/delete", id=str(hers), where="here")
        self.bob.post("/undo", ids=str(hers))
        self.assertNotIn("hostile base", self.ann.messages())
        self.ann.post("/undo", ids=str(hers))
        self.assertIn("hostile base", self.ann.messages())

    def test_files_cannot_be_taken_along(self):
        answer = self.bob.post("/compose", subject="mine", source=str(self.hers["hostile picture"]), taken="1")
        self.assertEqual(answer.status, 404)

    def test_accounts_cannot_be_changed(self):
        for what in ("change", "remove", "default", "ahead", "verify"):
            answer = self.bob.post(f"/accounts/{what}", account="1", server="evil.example", port="110",
                                   username="x", password="y")
            self.assertEqual(answer.status, 404, what)
        self.assertIn("127.0.0.1", self.ann.get("/accounts").text)

    def test_messages_that_do_not_exist_look_the_same(self):
        foreign = self.bob.get(f"/message/{self.hers['hostile script']}")
        absent = self.bob.get("/message/2000000000")
        clean = lambda page: re.sub(r'value="[0-9a-f]{48}"', "", page)  # noqa: E731
        self.assertEqual(clean(foreign.text), clean(absent.text))


class Forms(Served):
    def test_reading_ahead_is_switched_on_and_off(self):
        self.ann.post("/accounts/ahead", account="1", on="1")
        page = self.ann.get("/accounts").text
        self.assertIn("Fetch one by one", page)
        self.assertNotIn("+ahead", page)
        self.ann.post("/accounts/ahead", account="1")
        self.assertIn("Fetch faster", self.ann.get("/accounts").text)

    def test_without_the_secret_of_the_login_are_refused(self):
        hers = self.hers["hostile script"]
        for path in ("/fetch", "/delete", "/undo", "/compose", "/accounts/add", "/accounts/remove",
                     "/maintenance/compact", "/peek/1/delete", "/sign-out"):
            for secret in (False, "", self.bob.csrf()):
                with self.subTest(path, secret=secret):
                    answer = self.ann.post(path, csrf=secret, id=str(hers), where="here")
                    self.assertEqual(answer.status, 403)
        self.assertIn("hostile script", self.ann.messages())

    def test_of_another_site_are_refused(self):
        answer = self.ann.post("/delete", id="1", where="here", headers={"Origin": "https://evil.example"})
        self.assertEqual(answer.status, 403)
        stranger = Visitor(self.site)
        answer = stranger.request("POST", "/sign-in", "name=ann&password=secret",
                                  Content_Type="application/x-www-form-urlencoded", Origin="null")
        self.assertEqual(answer.status, 403)

    def test_lead_back_to_this_site_only(self):
        for back in ("//evil.example/", "https://evil.example/", "/box/1\r\nX: y", "/box/\\evil"):
            self.assertEqual(self.ann.post("/delete", back=back).location, "/box/1")

    def test_with_a_number_that_is_none_are_refused(self):
        for number in ("1 OR 1=1", "-1", "9999999999", "x"):
            self.assertEqual(self.ann.post("/delete", id=number, where="here").status, 400)

    def test_that_are_too_large_are_refused(self):
        self.assertEqual(self.ann.request("POST", "/compose", b"x" * (33 << 20),
                                          Content_Type="application/x-www-form-urlencoded").status, 413)

    def test_with_a_multipart_header_that_never_ends_harm_nobody(self):
        body = b"--b\r\nContent-Disposition: form-data; name=\"" + b"a" * 200_000 + b"\"\r\n\r\nx\r\n--b--\r\n"
        try:
            self.ann.request("POST", "/compose", body, Content_Type="multipart/form-data; boundary=b")
        except OSError:
            pass
        self.assertTrue(self.site.runs())
        self.assertEqual(self.ann.get("/box/1").status, 200)

    def test_with_a_statement_in_them_reach_no_statement(self):
        for name in ("ann' --", "ann'; DROP TABLE mail; --", "\\' OR 1=1 --"):
            self.assertEqual(Visitor(self.site).sign_in(name).status, 401)


class PicturesInTheFrame(Served):
    def test_need_a_signature(self):
        for path in ("/frame-file/" + "0" * 40 + "/1/1_1_1.png", "/frame-file/00/1/1_1_1.png",
                     "/frame-file/" + "0" * 40 + "/1/../../etc/passwd",
                     "/frame-file/" + "0" * 40 + "/1/..%2f..%2fmail.db"):
            self.assertEqual(Visitor(self.site).get(path).status, 404)

    def test_have_an_address_that_holds_for_one_file_only(self):
        related = [re.search(r"/frame-file/(?!0000)[^\"' >]+", self.ann.get(f"/message/{number}/body").text)
                   for number in self.hers.values()]
        address = next(found.group(0) for found in related if found)
        self.assertEqual(Visitor(self.site).get(address).status, 200)
        self.assertEqual(Visitor(self.site).get(address + "x").status, 404)
        self.assertEqual(Visitor(self.site).get(address.replace("/1/", "/2/")).status, 404)


class Cookies(Served):
    def test_are_for_the_server_and_for_this_site_only(self):
        cookie = Visitor(self.site).sign_in("ann").headers["Set-Cookie"]
        self.assertIn("; HttpOnly", cookie)
        self.assertIn("; SameSite=Strict", cookie)
        self.assertNotIn("Secure", cookie)

    def test_end_with_signing_out(self):
        person = Visitor(self.site)
        person.sign_in("ann")
        token = person.cookie
        person.post("/sign-out")
        person.cookie = token
        self.assertEqual(person.get("/box/1").location, "/sign-in")


class BehindTls(unittest.TestCase):
    def test_cookies_are_secure_and_the_brake_counts_what_the_proxy_saw(self):
        site = MailSite("--behind-tls")
        site.add_user(1, "ann")
        with site:
            person = Visitor(site)
            self.assertIn("; Secure", person.sign_in("ann").headers["Set-Cookie"])
            for turn in range(21):
                answer = person.request("POST", "/sign-in", f"name=n{turn}&password=x",
                                        Content_Type="application/x-www-form-urlencoded",
                                        X_Forwarded_For=f"10.0.0.{turn}, 10.1.1.1")
            self.assertEqual(answer.status, 429)
            answer = person.request("POST", "/sign-in", "name=ann&password=secret",
                                    Content_Type="application/x-www-form-urlencoded",
                                    X_Forwarded_For="10.1.1.1, 10.2.2.2")
            self.assertEqual(answer.location, "/box/1")


class ATakenPort(unittest.TestCase):
    def test_is_left_to_who_has_it_and_another_one_is_served(self):
        with MailSite() as first, MailSite(port=first.port) as second:
            self.assertNotEqual(first.port, second.port)
            for site in (first, second):
                self.assertEqual(Visitor(site).get("/sign-in").status, 200)


class TwoAtOnce(unittest.TestCase):
    def test_a_slow_server_of_one_keeps_nobody_from_reading(self):
        with socket.create_server(("127.0.0.1", 0)) as silent, Dovecot(["bob"]) as server:
            server.deliver("bob", sample("real/010_plain_short.eml"))
            site = MailSite()
            for number, name, port in ((1, "ann", silent.getsockname()[1]), (2, "bob", server.port)):
                site.add_user(number, name)
                site.add_account(port, number, name)
            site.command("korvane", "account", "set", 1, "--user", 1, "--timeout", 5000)
            with site:
                ann, bob = Visitor(site), Visitor(site)
                ann.sign_in("ann")
                bob.sign_in("bob")
                ann.post("/fetch", which="all", what="whole")
                begin = time.monotonic()
                self.assertEqual(ann.get("/box/1").status, 200)
                bob.fetch()
                self.assertEqual(len(bob.messages()), 1)
                self.assertIn('"running":true', ann.get("/progress").text)
                self.assertLess(time.monotonic() - begin, 5)
                while '"running":true' in ann.get("/progress").text:
                    time.sleep(0.1)
                self.assertIn("could not be fetched", ann.get("/box/1").text)

    def test_getting_mail_that_ends_while_a_page_is_made_is_told_all_the_same(self):
        asked, go_on = threading.Event(), threading.Event()

        class SlowToGive(Pop3Server):
            def _reply(self, verb, words, deleted):
                if verb == "RETR":
                    asked.set()
                    go_on.wait(30)
                return super()._reply(verb, words, deleted)

        letter = b"Subject: later\r\n\r\nhello\r\n"
        with SlowToGive([letter]) as slow, socket.create_server(("127.0.0.1", 0)) as silent, \
                concurrent.futures.ThreadPoolExecutor() as others:
            site = MailSite()
            site.add_user(1, "ann")
            site.add_account(slow.port)
            site.add_account(silent.getsockname()[1], username="second")
            site.sync(1, "--headers")
            with site:
                ann = Visitor(site)
                ann.sign_in("ann")
                (number,) = ann.messages().values()
                opened = others.submit(ann.get, f"/message/{number}")
                self.assertTrue(asked.wait(20))
                ann.post("/fetch", which="2", what="whole")
                connection, _ = silent.accept()
                page = others.submit(ann.get, "/box/1")
                time.sleep(0.5)  # it waits for the message that is being opened
                connection.close()
                while '"running":true' in ann.get("/progress").text:
                    time.sleep(0.05)
                go_on.set()
                self.assertEqual(opened.result().status, 200)
                said = page.result().text
                if 'id="progress"' in said:  # then its script asks for the page again
                    said = ann.get("/box/1").text
                self.assertIn("could not be fetched", said)


class Requests(unittest.TestCase):
    def test_can_come_several_over_one_connection_and_in_any_pieces(self):
        with MailSite() as site:
            with socket.create_connection((site.host, int(site.port)), timeout=10) as connection:
                request = b"GET /sign-in HTTP/1.1\r\nHost: here\r\n\r\n"
                for piece in (request[:7], request[7:20], request[20:] + request + request[:3], request[3:]):
                    connection.sendall(piece)
                    time.sleep(0.05)
                connection.shutdown(socket.SHUT_WR)
                received = b""
                while part := connection.recv(65536):
                    received += part
            self.assertEqual(received.count(b"HTTP/1.1 200 OK"), 3)
            self.assertEqual(received.count(b"</html>"), 3)

    def test_find_the_settings_as_they_are_now(self):
        site = MailSite()
        site.add_user(1, "ann")
        with site:
            ann = Visitor(site)
            ann.sign_in("ann")
            settings = site.folder / "registry.reg"
            settings.rename(site.folder / "elsewhere")
            answer = ann.get("/box/1")
            self.assertEqual(answer.status, 503)
            self.assertIn("settings", answer.text.lower())
            (site.folder / "elsewhere").rename(settings)
            self.assertEqual(ann.get("/box/1").status, 200)


class Guessing(unittest.TestCase):
    def test_is_braked_after_five_tries_at_a_name(self):
        site = MailSite()
        site.add_user(1, "ann")
        with site:
            for _ in range(5):
                self.assertEqual(Visitor(site).sign_in("ann", "wrong").status, 401)
            answer = Visitor(site).sign_in("ann")
            self.assertEqual(answer.status, 429)
            self.assertEqual(answer.headers["Retry-After"], "60")


class Faults(unittest.TestCase):
    def test_of_one_account_leave_the_others_and_the_list(self):
        with Dovecot(["ann"]) as server:
            server.deliver("ann", sample("real/010_plain_short.eml"))
            site = MailSite()
            site.add_user(1, "ann")
            site.add_account(closed_port(), username="nobody")
            site.add_account(server.port)
            with site:
                ann = Visitor(site)
                ann.sign_in("ann")
                ann.fetch()
                page = ann.get("/box/1").text
                self.assertIn("could not be fetched completely", page)
                self.assertIn("nobody at", page)
                self.assertIn('class="message', page)
                self.assertNotIn("could not be fetched", ann.get("/box/1").text)

    def test_a_header_whose_rest_cannot_be_fetched_is_left_on_the_server(self):
        server = Dovecot(["ann"])
        with server:
            server.deliver("ann", sample("real/010_plain_short.eml"))
            site = MailSite()
            site.add_user(1, "ann")
            site.add_account(server.port)
            with site:
                ann = Visitor(site)
                ann.sign_in("ann")
                ann.fetch(what="headers")
                (number,) = ann.messages().values()
                server._process.terminate()
                server._process.wait()
                ann.post("/delete", id=str(number), where="server")
                self.assertIn("left on the server", ann.get("/box/1").text)
                self.assertEqual(len(server.held("ann")), 1)

    def test_a_header_is_fetched_before_its_message_goes_from_the_server(self):
        with Dovecot(["ann"]) as server:
            server.deliver("ann", sample("real/010_plain_short.eml"))
            site = MailSite()
            site.add_user(1, "ann")
            site.add_account(server.port)
            with site:
                ann = Visitor(site)
                ann.sign_in("ann")
                ann.fetch(what="headers")
                (number,) = ann.messages().values()
                ann.post("/delete", id=str(number), where="server")
                self.assertIn("kept here", ann.get("/box/1").text)
                self.assertEqual(server.held("ann"), [])
                self.assertEqual(ann.get(f"/message/{number}").status, 200)

    def test_a_request_that_is_no_http_harms_nobody(self):
        with MailSite() as site:
            for rubbish in (b"\0" * 5000, b"GET /" + b"a" * 100_000 + b" HTTP/1.1\r\n\r\n", b"POST"):
                with socket.create_connection((site.host, int(site.port))) as connection:
                    connection.sendall(rubbish)
            self.assertEqual(Visitor(site).get("/sign-in").status, 200)


if __name__ == "__main__":
    unittest.main()
