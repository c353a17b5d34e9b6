"""The zip for one architecture, and the type library inside its server read from the file: so it can be
looked at where the library itself cannot run."""

import os
import pathlib
import re
import struct
import subprocess
import tempfile
import unittest
import zipfile

SOURCE = pathlib.Path(os.environ["KORVANE_SOURCE_DIR"])
BUILD = pathlib.Path(os.environ["KORVANE_BINARY_DIR"])
PRESET = BUILD.name
X86 = PRESET == "mingw32"
PROMISED = SOURCE / "tests" / "automation" / "published_interface.txt"


class TypeLibrary:
    """As much of the file's layout as the members take."""

    INTERFACE, COCLASS = (3, 4), 5

    def __init__(self, data):
        self.data = data
        self.count = self.word(0x20)
        directory = 0x54 + 4 * self.count
        self.types, self.names, self.values = (self.word(directory + 16 * place) for place in (0, 7, 11))

    def word(self, at):
        return struct.unpack_from("<I", self.data, at)[0]

    def half(self, at):
        return struct.unpack_from("<H", self.data, at)[0]

    def name(self, offset):
        if offset == 0xFFFFFFFF:
            return ""
        at = self.names + offset
        return self.data[at + 12:at + 12 + (self.word(at + 8) & 0xFF)].decode("ascii")

    def all_types(self):
        for number in range(self.count):
            at = self.types + 100 * number
            yield self.word(at) & 0xF, self.name(self.word(at + 0x34)), self.word(at + 0x30), at

    def default(self, packed):
        """Type and number: small ones are packed, others stand among the values."""
        if packed == 0xFFFFFFFF:
            return None
        if packed & 0x80000000:
            return (packed >> 26) & 0x1F, packed & 0x3FFFFFF
        return self.half(self.values + packed), struct.unpack_from("<i", self.data, self.values + packed + 2)[0]

    def members(self, type_at):
        """Kind, name, slot offset and parameters of each function, in the order of the slots."""
        start = self.word(type_at + 4)
        count = self.word(type_at + 0x18) & 0xFFFF
        names_at = start + 4 + self.word(start) + 4 * count
        at = start + 4
        for number in range(count):
            length, parameters, flags = self.half(at), self.half(at + 0x14), self.word(at + 0x10)
            kind = {1: "call", 2: "get", 4: "let"}[(flags >> 3) & 0xF]
            of_parameters = []
            for place in range(parameters):
                parameter_at = at + length - 12 * (parameters - place)
                default = None
                if flags & 0x1000:
                    default = self.default(self.word(at + length - 16 * parameters + 4 * place))
                of_parameters.append((self.name(self.word(parameter_at + 4)), self.word(parameter_at + 8), default))
            yield kind, self.name(self.word(names_at + 4 * number)), self.half(at + 0x0C) & 0xFFFC, of_parameters
            at += length


def promised():
    """Class -> (creatable, [(kind, name, [(parameter, default)])])"""
    classes, members = {}, None
    for line in PROMISED.read_text().splitlines():
        head = re.fullmatch(r"class (\w+) (creatable|handed-out)", line)
        member = re.fullmatch(r"(get|let|call) (\w+)\((.*)\)(?: -> \w+)?", line)
        if head:
            members = []
            classes[head[1]] = (head[2] == "creatable", members)
        elif member:
            parameters = []
            for text in filter(None, member[3].split(", ")):
                name, kind, default = re.fullmatch(r"(\w+): (\w+)(?: = (\S+))?(?: !)?", text).groups()
                parameters.append((name, default and default_of(kind, default)))
            members.append((member[1], member[2], parameters))
    return classes


def default_of(kind, default):
    """The type and the number of a default; an empty text is one of address 0."""
    if kind == "bool":
        return 11, 0xFFFF if default == "true" else 0
    if kind == "string":
        return 8, 0
    return 3, int(default)


class Package(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        made = subprocess.run([SOURCE / "scripts" / "windows_zip", PRESET], check=True, capture_output=True, text=True)
        cls.path = pathlib.Path(made.stdout.strip())
        cls.zip = zipfile.ZipFile(cls.path)

    def read(self, name):
        return self.zip.read(name).decode("ascii")

    def test_it_holds_what_an_installation_needs_and_nothing_else(self):
        self.assertRegex(self.path.name, r"^Korvane_beta1-[0-9.]+-%s\.zip$" % ("x86" if X86 else "x64"))
        files = {name for name in self.zip.namelist() if not name.endswith("/")}
        self.assertEqual(files, {"Korvane_beta1.dll", "Tarsel_MailConversions.dll", "register.cmd", "settings.reg",
                                 "readme.txt", "schema/sqlite.sql", "schema/postgresql.sql", "schema/mariadb.sql"})

    def test_the_libraries_are_those_of_this_build_and_processor(self):
        for name in ("Korvane_beta1.dll", "Tarsel_MailConversions.dll"):
            data = self.zip.read(name)
            self.assertEqual(data, (BUILD / "bin" / name).read_bytes())
            header = struct.unpack_from("<I", data, 0x3C)[0]
            self.assertEqual(data[header:header + 4], b"PE\0\0")
            self.assertEqual(struct.unpack_from("<H", data, header + 4)[0], 0x14C if X86 else 0x8664)

    def test_the_settings_are_all_those_that_are_read(self):
        settings = self.read("settings.reg")
        self.assertTrue(settings.startswith("Windows Registry Editor Version 5.00\r\n"))
        self.assertEqual(set(re.findall(r'^"(\w+)"=', settings, re.MULTILINE)),
                         {"PathAtcmts", "PathAtcmtsInvio", "URLAtcmts", "PathMessages", "PathLog",
                          "PathBackgrDownloader", "DbConnectionString", "ServerTimeout", "DebugMode"})

    def test_what_is_opened_there_has_its_line_ends(self):
        for name in ("register.cmd", "settings.reg", "readme.txt", "schema/sqlite.sql"):
            data = self.zip.read(name)
            self.assertGreater(data.count(b"\r\n"), 5, name)
            self.assertEqual(data.count(b"\n"), data.count(b"\r\n"), name)
        self.assertNotIn("@", self.read("register.cmd").replace("@echo", ""))

    if not X86:  # Wine here is for x64.
        def test_it_registers_where_it_is_unpacked_and_takes_that_back(self):
            with tempfile.TemporaryDirectory(prefix="korvane zip ") as folder:
                self.zip.extractall(folder)
                place = "Z:" + folder.replace("/", "\\")

                def run(*command):
                    return subprocess.run([SOURCE / "tests" / "windows" / "wine", BUILD, *command], cwd=folder, text=True,
                                          capture_output=True, stdin=subprocess.DEVNULL, timeout=120)

                key = r"HKCR\CLSID\{18bc6d11-8091-5ced-a630-4246b86b4145}\InprocServer32"
                self.assertEqual(run("cmd", "/c", "register.cmd").returncode, 0)
                self.assertIn(place + "\\Korvane_beta1.dll", run("reg", "query", key, "/ve").stdout)
                self.assertEqual(run("cmd", "/c", "register.cmd /u").returncode, 0)
                self.assertNotEqual(run("reg", "query", key, "/ve").returncode, 0)
                pathlib.Path(folder, "Korvane_beta1.dll").write_bytes(b"none")
                self.assertNotEqual(run("cmd", "/c", "register.cmd").returncode, 0)


class TypeLibraryInTheServer(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.data = (BUILD / "automation" / "com" / "type_library" / "Korvane_beta1.tlb").read_bytes()
        cls.library = TypeLibrary(cls.data)

    def test_the_server_holds_it(self):
        self.assertEqual(self.data[:4], b"MSFT")
        self.assertIn(self.data, (BUILD / "bin" / "Korvane_beta1.dll").read_bytes())

    def test_it_is_for_this_processor(self):
        self.assertEqual(self.library.word(0x14) & 0xF, 1 if X86 else 3)

    def test_its_classes_are_the_promised_ones_and_only_the_creatable_ones_can_be_created(self):
        found = {name: bool(flags & 2) for kind, name, flags, _ in self.library.all_types() if kind == 5}
        self.assertEqual(found, {name: creatable for name, (creatable, _) in promised().items()})

    def test_its_members_are_the_promised_ones_slot_by_slot(self):
        size = 4 if X86 else 8
        compared = 0
        interfaces = {name: at for kind, name, _, at in self.library.all_types() if kind in TypeLibrary.INTERFACE}
        wanted_classes = promised()
        self.assertEqual(set(interfaces), {"_" + name for name in wanted_classes})
        for class_name, (_, wanted) in wanted_classes.items():
            found = list(self.library.members(interfaces["_" + class_name]))
            self.assertEqual(len(found), len(wanted), class_name)
            for slot, ((kind, name, offset, parameters), (wanted_kind, wanted_name, wanted_parameters)) in enumerate(
                    zip(found, wanted)):
                what = "%s.%s" % (class_name, wanted_name)
                self.assertEqual((kind, name, offset), (wanted_kind, wanted_name, (7 + slot) * size), what)
                taken = [one for one in parameters if not one[1] & 8]
                self.assertEqual(len(taken), len(wanted_parameters), what)
                for (parameter, flags, default), (wanted_parameter, wanted_default) in zip(taken, wanted_parameters):
                    if kind != "let":
                        self.assertEqual(parameter, wanted_parameter, what)
                    self.assertEqual(flags & 3, 3, what + ": in and out")
                    self.assertEqual(default, wanted_default, what + "." + wanted_parameter)
                    self.assertEqual(bool(flags & 0x10), wanted_default is not None, what)
                compared += 1
        self.assertGreater(compared, 140)


if __name__ == "__main__":
    unittest.main()
