"""What the two DLLs of this build export and import: exports_check.py OBJDUMP"""

import os
import pathlib
import re
import subprocess
import sys
import unittest

SOURCE = pathlib.Path(os.environ["KORVANE_SOURCE_DIR"])
BIN = pathlib.Path(os.environ["KORVANE_BINARY_DIR"]) / "bin"
OBJDUMP = sys.argv.pop(1)
ON_X86 = "i686" in OBJDUMP


def tables(library):
    """The exported names and the DLLs that are needed, in lower case."""
    text = subprocess.run([OBJDUMP, "-p", BIN / library], check=True, capture_output=True, text=True).stdout
    names = text.partition("[Ordinal/Name Pointer] Table")[2].partition("\n\n")[0]
    return (set(re.findall(r"^\s*\[ *\d+\] (?:\+base\[ *\d+\] +[0-9a-f]+ )?(\S+)$", names, re.M)),
            {name.lower() for name in re.findall(r"DLL Name: (\S+)", text)})


class Exports(unittest.TestCase):
    def test_the_companion_exports_its_functions_by_their_bare_names(self):
        header = (SOURCE / "include" / "Tarsel_MailConversions.h").read_text()
        declared = set(re.findall(r"\b(MP\w+|Base64Decode|QuotedPrintableDecode|UUDecode|UTF8Decode|"
                                  r"NumCharReqPlusForConvTextToHTML|ConvTextToHTML)\(", header))
        self.assertEqual(len(declared), 10)
        self.assertEqual(tables("Tarsel_MailConversions.dll")[0], declared)

    def test_the_server_exports_what_registration_and_automation_ask_for(self):
        self.assertEqual(tables("Korvane_beta1.dll")[0],
                         {"DllCanUnloadNow", "DllGetClassObject", "DllRegisterServer", "DllUnregisterServer"})

    def test_nothing_is_needed_but_windows_and_the_companion(self):
        windows = {"advapi32.dll", "crypt32.dll", "kernel32.dll", "msvcrt.dll", "ole32.dll", "oleaut32.dll",
                   "secur32.dll", "user32.dll", "ws2_32.dll", "bcrypt.dll", "ntdll.dll", "shell32.dll"}
        self.assertLessEqual(tables("Tarsel_MailConversions.dll")[1], windows)
        needed = tables("Korvane_beta1.dll")[1]
        self.assertLessEqual(needed, windows | {"tarsel_mailconversions.dll"})
        self.assertIn("tarsel_mailconversions.dll", needed)

    def test_both_are_for_the_processor_of_this_build(self):
        for library in ("Tarsel_MailConversions.dll", "Korvane_beta1.dll"):
            text = subprocess.run([OBJDUMP, "-f", BIN / library], check=True, capture_output=True, text=True).stdout
            self.assertIn("file format pei-i386" if ON_X86 else "file format pei-x86-64", text)


class ExportsOnX86(unittest.TestCase):
    def test_a_function_removes_the_arguments_that_its_import_says(self):
        text = (SOURCE / "cmake" / "companion_imports_x86.def").read_text()
        promised = set(re.findall(r"^(\w+@\d+)$", text, re.M))
        exported = tables("Tarsel_MailConversions.dll")[0]
        self.assertEqual({name.split("@")[0] for name in promised}, exported)
        text = subprocess.run([OBJDUMP.replace("objdump", "nm"), BIN / "Tarsel_MailConversions.dll"], check=True,
                              capture_output=True, text=True).stdout
        defined = set(re.findall(r" T _(\w+@\d+)$", text, re.M))
        self.assertEqual({name for name in defined if name.split("@")[0] in exported}, promised)


if not ON_X86:
    del ExportsOnX86  # elsewhere callers remove the arguments themselves


if __name__ == "__main__":
    unittest.main()
