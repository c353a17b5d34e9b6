"""The Windows server's identifiers are the ones that their names give (RFC 9562, version 5)."""

import pathlib
import re
import unittest
import uuid

COM = pathlib.Path(__file__).resolve().parents[2] / "automation" / "com"


class Identifiers(unittest.TestCase):
    def setUp(self):
        self.header = (COM / "identifiers.h").read_text()
        self.namespace = uuid.UUID(self.constant("kNamespace"))

    def constant(self, name):
        return re.search(name + r' = "([^"]+)"', self.header)[1]

    def named(self, name):
        return str(uuid.uuid5(self.namespace, name))

    def test_those_of_the_library_and_of_its_own_objects(self):
        self.assertEqual(self.constant("kLibraryId"), self.named("Korvane_beta1"))
        self.assertEqual(self.constant("kHeldObjectId"), self.named("Korvane_beta1.held object"))

    def test_those_of_every_class_and_interface(self):
        lines = re.findall(r'\{"(\w+)",\s*"([0-9a-f-]+)",\s*"([0-9a-f-]+)"\}', (COM / "identifiers.cpp").read_text())
        self.assertEqual(len(lines), 10)
        for name, class_id, interface_id in lines:
            self.assertEqual(class_id, self.named("Korvane_beta1." + name))
            self.assertEqual(interface_id, self.named("Korvane_beta1._" + name))


if __name__ == "__main__":
    unittest.main()
