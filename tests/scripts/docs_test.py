"""The pages of the documentation show the examples as they are."""

import pathlib
import re
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
SHOWN = re.compile(r"\[(examples/[^\]]+)\]\(\.\./\1\)[^\n]*\n\n```\w+\n(.*?)^```$", re.DOTALL | re.MULTILINE)


class PageAuthors(unittest.TestCase):
    def test_the_same_page_in_three_languages_is_what_lies_in_examples(self):
        shown = SHOWN.findall((ROOT / "docs/for_page_authors.md").read_text(encoding="utf-8"))
        self.assertEqual([name for name, _ in shown], ["examples/cpp/list_page.cpp", "examples/python/list_page.py",
                                                       "examples/vbscript/list.vbs"])
        for name, text in shown:
            self.assertEqual(text, (ROOT / name).read_text(encoding="utf-8"), name)


if __name__ == "__main__":
    unittest.main()
