"""The script host: a claim that fails, an error that nobody caught and a page that claims nothing are
failures, and say why."""

import pathlib
import tempfile
import unittest

import prefix
from prefix import BIN, windows_path
from run_page import claims_of


class ScriptHost(unittest.TestCase):
    def run_text(self, text, name="page.vbs", *arguments, **others):
        with tempfile.TemporaryDirectory() as folder:
            for path, content in {name: text, **others}.items():
                (pathlib.Path(folder) / path).write_text(content)
            return prefix.run(BIN / "script_host.exe", windows_path(pathlib.Path(folder) / name), *arguments)

    def test_claims_that_hold_are_listed_and_the_status_is_0(self):
        self.assertEqual(self.run_text('Test.Check 1 = 1, "città Ж 😀"\nTest.Equal "a", "a", "b"'),
                         (0, "ok    città Ж 😀\nok    b\n2 claims hold, 0 do not\n"))

    def test_a_claim_that_fails_is_shown_with_both_values(self):
        status, output = self.run_text('Test.Equal 5, "5", "five"\nTest.Check True, "more"')
        self.assertEqual(status, 1)
        self.assertIn("FAIL  five: number [5] instead of text [5]\nok    more\n", output)

    def test_a_page_without_a_claim_fails(self):
        self.assertEqual(self.run_text("x = 1"), (1, "0 claims hold, 0 do not\n"))

    def test_an_error_that_nobody_caught_ends_the_page_with_its_line_and_number(self):
        status, output = self.run_text('Test.Check True, "a"\nx = CLng("b")\nTest.Check True, "c"')
        self.assertEqual(status, 1)
        self.assertIn("FAIL  line 2: error 800A000D (13)", output)
        self.assertNotIn("c\n", output.replace("claims", ""))

    def test_a_page_that_is_no_script_fails(self):
        status, output = self.run_text("If Then Else\n")
        self.assertEqual(status, 1)
        self.assertIn("FAIL  ", output)

    def test_jscript_too(self):
        status, output = self.run_text('Test.Check(true, "a");\nthrow new Error(77, "mine");', "page.js")
        self.assertEqual(status, 1)
        self.assertIn("FAIL  line 2: error", output)
        self.assertIn("mine", output)

    def test_an_included_file_comes_first_and_the_lines_keep_their_numbers(self):
        status, output = self.run_text("'#include start.vbs\nTest.Check Double(2) = 4, \"twice\"\nx = 1 / 0",
                                       **{"start.vbs": "Function Double(n)\nDouble = 2 * n\nEnd Function\n"})
        self.assertEqual(status, 1)
        self.assertIn("ok    twice\nFAIL  line 3: error", output)

    def test_arguments_reach_the_page(self):
        status, output = self.run_text('Test.Equal Test.Argument(2), "Ж b", "second"', "page.vbs", "a", "Ж b")
        self.assertEqual((status, output), (0, "ok    second\n1 claims hold, 0 do not\n"))

    def test_a_file_that_is_not_there_is_a_failure(self):
        self.assertEqual(prefix.run(BIN / "script_host.exe", "Z:\\nowhere.vbs")[0], 1)

    def test_the_claims_that_have_to_be_made_are_found_in_a_page(self):
        with tempfile.TemporaryDirectory() as folder:
            page = pathlib.Path(folder) / "page.vbs"
            page.write_text('Test.Check a, "one"\n  Test.Check b, "inside"\nHasError o, 5, "two ""q"""\n'
                            'Test.Equal a, b, "three: " & c\n')
            self.assertEqual(claims_of(page), ["one", 'two "q"'])


if __name__ == "__main__":
    unittest.main()
