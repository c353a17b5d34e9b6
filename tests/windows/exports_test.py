"""What the two libraries show to other programs, and what they need of others: read from the files, so
that it holds for processors that this machine is not."""

import os
import pathlib
import re
import subprocess
import sys
import unittest

SOURCE = pathlib.Path(os.environ.get("KORVANE_SOURCE_DIR", pathlib.Path(__file__).resolve().parents[2]))
BIN = pathlib.Path(os.environ.get("KORVANE_BINARY_DIR", SOURCE / "build" / "mingw64")) / "bin"
MINGW = os.environ.get("KORVANE_MINGW", "x86_64-w64-mingw32")
COMPANION = BIN / "Tarsel_MailConversions.dll"
SERVER = BIN / "Korvane_beta1.dll"
OF_WINDOWS = {"kernel32", "msvcrt", "ws2_32", "secur32", "crypt32", "advapi32", "ole32", "oleaut32", "user32",
              "shlwapi"}


def output(tool, *arguments):
    return subprocess.run(["%s-%s" % (MINGW, tool), *map(str, arguments)], check=True, capture_output=True,
                          text=True).stdout


def exports(library):
    table = output("objdump", "-p", library).split("[Ordinal/Name Pointer] Table")[1].split("\n\n")[0]
    return set(re.findall(r"^\s*\[\s*\d+\]\s+(?:\+base\[\s*\d+\]\s+)?(?:[0-9a-f]+ )?(\S+)$", table, re.MULTILINE))


def imports(library):
    names = re.findall(r"DLL Name: (\S+)", output("objdump", "-p", library))
    return {name.lower().removesuffix(".dll") for name in names}


class Exports(unittest.TestCase):
    def test_the_companion_exports_what_its_header_declares_by_bare_names(self):
        header = (SOURCE / "include" / "Tarsel_MailConversions.h").read_text()
        declared = set(re.findall(r"MP_API int32_t MP_CALL (\w+)\(", header))
        self.assertEqual(len(declared), 10)
        self.assertEqual(exports(COMPANION), declared)

    def test_the_server_exports_what_a_registered_server_needs(self):
        self.assertEqual(exports(SERVER), {"DllCanUnloadNow", "DllGetClassObject", "DllRegisterServer",
                                           "DllUnregisterServer"})

    def test_nothing_but_windows_and_each_other_is_needed(self):
        self.assertLessEqual(imports(COMPANION), OF_WINDOWS)
        self.assertIn("ws2_32", imports(COMPANION))
        self.assertLessEqual(imports(SERVER), OF_WINDOWS | {"tarsel_mailconversions"})
        self.assertIn("tarsel_mailconversions", imports(SERVER))

    def test_both_are_for_this_processor(self):
        kind = {"x86_64-w64-mingw32": "pei-x86-64", "i686-w64-mingw32": "pei-i386"}[MINGW]
        for library in (COMPANION, SERVER):
            self.assertIn("file format " + kind, output("objdump", "-f", library))


class ExportsOnX86(unittest.TestCase):
    def test_the_called_function_removes_the_arguments_that_its_import_says(self):
        text = (SOURCE / "cmake" / "companion_imports_x86.def").read_text()
        promised = set(re.findall(r"^(\w+@\d+)$", text, re.MULTILINE))
        self.assertEqual({name.split("@")[0] for name in promised}, exports(COMPANION))
        defined = set(re.findall(r" T _(\w+@\d+)$", output("nm", COMPANION), re.MULTILINE))
        self.assertEqual({name for name in defined if name.split("@")[0] in exports(COMPANION)}, promised)


if not MINGW.startswith("i686"):
    del ExportsOnX86  # elsewhere callers remove the arguments themselves

if __name__ == "__main__":
    unittest.main()
