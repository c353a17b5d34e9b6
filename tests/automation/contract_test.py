"""The contract for scripts: how members are found, arguments passed and mistakes told."""

import gc
import inspect
import pathlib
import re
import subprocess
import sys
import unittest

from site_fixture import ROOT, Site, SiteTest, error_of, korvane, message
from pop3_server import Pop3Server


class Creation(unittest.TestCase):
    def test_a_freshly_created_object_reports_number_0_and_no_text(self):
        for name in ("BossObject", "WebInterface", "BasicInterface"):
            with self.subTest(name):
                self.assertEqual(error_of(korvane.create(name)), (0, ""))

    def test_only_the_three_published_names_can_be_created(self):
        for name in ("MailMessage", "MailMessages", "MailUser", "Connection", "webinterface", "", "x" * 500):
            with self.subTest(name), self.assertRaises(ValueError):
                korvane.create(name)

    def test_classes_cannot_be_made_around_create(self):
        with self.assertRaises(TypeError):
            type(korvane.create("BossObject"))()

    def test_connect_refuses_what_is_no_database(self):
        with self.assertRaises(korvane.AutomationError):
            korvane.connect("nonsense")
        with self.assertRaises(TypeError):
            korvane.connect(5)

    def test_the_objects_are_given_back_when_python_drops_them(self):
        from korvane._library import library
        gc.collect()
        before = library.korvane_live_objects()
        things = [korvane.create("WebInterface") for _ in range(10)]
        self.assertEqual(library.korvane_live_objects(), before + 10)
        del things
        gc.collect()
        self.assertEqual(library.korvane_live_objects(), before)


class Members(unittest.TestCase):
    def setUp(self):
        self.web = korvane.create("WebInterface")

    def test_a_wrong_member_name_is_an_attribute_error(self):
        for act in (lambda: self.web.Nothing, lambda: self.web.init, lambda: setattr(self.web, "Nothing", 1)):
            with self.assertRaises(AttributeError):
                act()

    def test_a_read_only_property_cannot_be_written_nor_a_write_only_one_read(self):
        with self.assertRaises(AttributeError):
            self.web.Version = "x"
        with self.assertRaises(AttributeError):
            self.web.ConnDataBase
        with self.assertRaises(AttributeError):
            self.web.GetLastError = 5

    def test_properties_hold_what_was_written(self):
        for name, value in (("Username", "ann"), ("Password", "p'w\"\\"), ("MailServer", "pop.example.com"),
                            ("ServerPort", 995), ("ServerTimeout", 1234), ("UserId", 7), ("MailListPageSize", 10)):
            setattr(self.web, name, value)
            self.assertEqual(getattr(self.web, name), value)

    def test_text_beyond_ascii_and_nuls_survive(self):
        for text in ("Città", "日本語", "a\0b", "", "\U0001f600"):
            self.web.Username = text
            self.assertEqual(self.web.Username, text)

    def test_a_text_converts_to_a_number_as_automation_does(self):
        self.web.ServerPort = "12"
        self.assertEqual(self.web.ServerPort, 12)
        for wrong in ("abc", "", "12abc", "99999999999", 2**31, -2**31 - 1, 2**70, None, [1], object(), 1e10):
            with self.subTest(wrong), self.assertRaises(TypeError):
                self.web.ServerPort = wrong
        self.assertEqual(self.web.ServerPort, 12)

    def test_a_number_converts_to_text(self):
        self.web.Username = 12
        self.assertEqual(self.web.Username, "12")

    def test_the_versions_are_published_literals(self):
        self.assertEqual(self.web.Version, "Database")
        self.assertEqual(korvane.create("BasicInterface").Version, "SMS")

    def test_a_new_facade_has_the_published_starting_values(self):
        self.assertEqual((self.web.UserId, self.web.ServerPort, self.web.ServerTimeout), (-100, 110, -1))

    def test_the_enumerations_have_their_published_members(self):
        self.assertEqual(korvane.EMailOrder.ORDER_NAME_TO, 4)
        self.assertEqual(korvane.EDelType.DEL_TYPE_LOCALE_SERVER, 2)
        self.assertEqual(korvane.EEntitySubType["external_Body"], 18)

    def test_help_shows_the_real_members_parameters_and_defaults(self):
        signature = inspect.signature(type(self.web).GetListMessagesInBox)
        defaults = {p.name: p.default for p in signature.parameters.values() if p.default is not p.empty}
        self.assertEqual(defaults, {
            "lServerId": -10, "bDownloadHeaderOnly": True, "bDeleteMessageOnMailServer": False,
            "sMsgSeparator": "", "bFirstDownload": False, "moMailOrder": 0, "modMailOrderDirection": 1,
            "lPageNum": -1, "lTotPages": 0, "lTotMails": 0, "modOrderDataDirection": 1})
        import pydoc
        text = pydoc.plain(pydoc.render_doc(self.web))
        for wanted in ("GetListMessagesInBox", "lAccountId: int = -100", "MailListPageSize", "BackgroundClean"):
            self.assertIn(wanted, text)

    def test_every_published_member_is_there(self):
        name = None
        published = (pathlib.Path(__file__).parent / "published_interface.txt").read_text()
        from korvane._objects import _CLASSES
        seen = 0
        for line in published.splitlines():
            if line.startswith("class "):
                name = line.split()[1]
            elif match := re.match(r"(get|let|call) (\w+)\(", line):
                self.assertTrue(hasattr(_CLASSES[name], match[2]), f"{name}.{match[2]}")
                seen += 1
        self.assertGreater(seen, 140)


class Arguments(SiteTest):
    def test_too_many_too_few_twice_and_unknown_arguments_are_type_errors(self):
        boss = korvane.create("BossObject")
        for wrong in (lambda: boss.Init(), lambda: boss.Init(1, 2), lambda: boss.Init(1, lKorvaneId=1),
                      lambda: boss.Init(nonsense=1)):
            with self.assertRaises(TypeError):
                wrong()

    def test_arguments_go_by_their_published_names(self):
        boss = korvane.create("BossObject")
        self.assertTrue(boss.Init(lKorvaneId=1))
        self.assertEqual(boss.KorvaneId, 1)

    def test_a_wrong_object_is_an_error_never_a_crash(self):
        web = korvane.create("WebInterface")
        web.UserId = 7
        web.ConnDataBase = korvane.connect(self.site.url)
        for wrong in (web, korvane.create("BasicInterface"), korvane.connect(self.site.url), 5, "boss", 1.5):
            with self.subTest(repr(wrong)), self.assertRaises(TypeError):
                web.Init(wrong)
        for wrong in (web, self.site.boss(), 5, "sqlite"):
            with self.subTest(repr(wrong)), self.assertRaises(TypeError):
                web.ConnDataBase = wrong

    def test_a_connection_taken_away_after_init_is_an_error_never_a_crash(self):
        web = korvane.create("WebInterface")
        web.UserId = 7
        web.ConnDataBase = korvane.connect(self.site.url)
        self.assertTrue(web.Init(self.site.boss(), -10))
        web.ConnDataBase = None
        with self.assertRaises(korvane.AutomationError):
            web.BackgroundClean()
        self.assertIsNotNone(web.GetListMessagesInBox(1, -1))
        self.assertEqual(error_of(web), (0, ""))

    def test_no_object_for_the_settings_is_error_1084(self):
        web = korvane.create("WebInterface")
        web.UserId = 7
        web.ConnDataBase = korvane.connect(self.site.url)
        self.assertFalse(web.Init(None))
        self.assertEqual(error_of(web), (1084, "XXX"))

    def test_omitted_parameters_take_exactly_the_published_defaults(self):
        self.site.add_account(5, 1, default=True)
        self.site.add_account(6, 2)
        web = korvane.create("WebInterface")
        web.ConnDataBase = korvane.connect(self.site.url)
        web.UserId = 7
        self.assertTrue(web.Init(self.site.boss()))       # -100: the default account, number 5
        self.assertEqual(web.ServerPort, 1)
        web.MailServer, web.ServerPort = "127.0.0.1", 9   # VerifyAccount with none is -10: as it stands
        self.assertFalse(web.VerifyAccount())
        self.assertEqual((error_of(web), web.ServerPort), ((1093, "XXX"), 9))

    def test_a_released_object_is_refused(self):
        from korvane import _library
        web = korvane.create("WebInterface")
        handle = web._handle
        self.assertEqual(_library.library.korvane_release(handle), _library.OK)
        self.assertEqual(_library.library.korvane_release(handle), _library.BAD_OBJECT)
        with self.assertRaises(ValueError):
            web.Version
        object.__setattr__(web, "_handle", 0)

    def test_a_forged_handle_is_refused(self):
        web = korvane.create("WebInterface")
        real = web._handle
        for forged in (0, 1, 2**64 - 1, real + 1, real ^ (1 << 40)):
            object.__setattr__(web, "_handle", forged)
            with self.subTest(forged), self.assertRaises(ValueError):
                web.Version
        object.__setattr__(web, "_handle", real)

    def test_the_connection_answers_to_its_three_names(self):
        rows = korvane.connect(self.site.url).Execute("SELECT COUNT(*) AS NumMail FROM mail WHERE id_utente=1AND Cancellata=0")
        self.assertFalse(rows.EOF)
        self.assertEqual(rows.Fields("nummail"), 0)
        self.assertEqual(rows.Fields("NumMail").Value, 0)
        rows.MoveNext()
        self.assertTrue(rows.EOF)

    def test_a_bad_statement_is_an_automation_error(self):
        with self.assertRaises(korvane.AutomationError):
            korvane.connect(self.site.url).Execute("SELECT * FROM there_is_none")


class Guard(unittest.TestCase):
    def assert_raises(self, number, source, operation, *arguments):
        with self.assertRaises(korvane.AutomationError) as caught:
            operation(*arguments)
        raised = caught.exception
        self.assertEqual((raised.number, raised.source, raised.description),
                         (number, source, "Oggetto non inizializzato"))

    def test_every_guarded_operation_of_the_web_interface_raises_1500_before_init(self):
        web = korvane.create("WebInterface")
        for operation, arguments in ((web.VerifyAccount, ()), (web.GetListMessagesInBox, (1,)), (web.GetMessage, (1,)),
                                     (web.DeleteMessage, ("1",)), (web.NewMessage, ()), (web.BackgroundClean, ())):
            self.assert_raises(1500, "WebInterface", operation, *arguments)
            self.assertEqual(error_of(web), (0, ""))

    def test_every_guarded_operation_of_the_basic_interface_raises_1499_before_init(self):
        basic = korvane.create("BasicInterface")
        for operation, arguments in ((basic.GetListMessagesInBox, (1,)), (basic.GetMessage, (1,)),
                                     (basic.GetMessageUIDL, (1, "x")), (basic.DeleteMessage, (1,)),
                                     (basic.DeleteMessageUIDL, (1, "x"))):
            self.assert_raises(1499, "BasicInterface", operation, *arguments)
            self.assertEqual(error_of(basic), (0, ""))

    def test_an_error_is_cleared_by_the_guard(self):
        web = korvane.create("WebInterface")
        self.assertFalse(web.Init(None))
        self.assertEqual(web.GetLastError, 1086)
        self.assert_raises(1500, "WebInterface", web.GetMessage, 1)
        self.assertEqual(error_of(web), (0, ""))

    def test_a_failed_operation_followed_by_a_successful_one_reports_0_again(self):
        web = korvane.create("WebInterface")
        self.assertFalse(web.Init(None))
        self.assertNotEqual(web.GetLastError, 0)
        self.assertTrue(web.Finish())
        self.assertEqual(error_of(web), (0, ""))


class Lifetimes(SiteTest):
    def test_a_message_outlives_the_facade_that_made_it(self):
        with Pop3Server([message("One"), message("Two")]) as server:
            self.site.add_account(5, server.port, default=True)
            web = self.site.web()
            page = web.GetListMessagesInBox(1, bDownloadHeaderOnly=False)
            opened = web.GetMessage(page.ItemIndex(1).Id)
            del web, page
            gc.collect()
            self.assertEqual(opened.Subject(0), "Two")
            self.assertIsNotNone(opened.GetAttachments())

    def test_collections_have_a_length_and_are_walked_in_order(self):
        with Pop3Server([message("One"), message("Two"), message("Three")]) as server:
            self.site.add_account(5, server.port, default=True)
            page = self.site.web().GetListMessagesInBox(1, modMailOrderDirection=0, moMailOrder=99)
            self.assertEqual(len(page), 3)
            self.assertEqual([m.Subject(0) for m in page], ["One", "Two", "Three"])
            self.assertEqual([m.Id for m in page], [page.ItemIndex(i).Id for i in (1, 2, 3)])

    def test_a_collection_without_the_member_gives_none_and_error_5_or_9(self):
        self.site.add_account(5, 1, default=True)
        page = self.site.web().GetListMessagesInBox(1, -1)
        self.assertEqual(len(page), 0)
        self.assertIsNone(page.Item(4))
        self.assertEqual(page.GetLastError, 5)
        for position in (0, 1, -1, 2**31 - 1):
            self.assertIsNone(page.ItemIndex(position))
            self.assertEqual(page.GetLastError, 9)


class Loading(unittest.TestCase):
    def test_a_library_that_is_not_there_is_an_import_error_that_says_what_to_do(self):
        done = subprocess.run(
            [sys.executable, "-c", "import korvane"], capture_output=True, text=True,
            env={"KORVANE_LIBRARY": "/nowhere/libkorvane.so", "PYTHONPATH": str(ROOT / "automation" / "python"),
                 "PATH": "/usr/bin:/bin"})
        self.assertNotEqual(done.returncode, 0)
        self.assertIn("ImportError", done.stderr)
        self.assertIn("KORVANE_LIBRARY", done.stderr)


if __name__ == "__main__":
    unittest.main()
