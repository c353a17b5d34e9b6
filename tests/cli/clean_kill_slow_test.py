"""A kill at any moment of korvane clean, then korvane check --repair: no live record is lost."""

import random
import shutil
import signal
import subprocess
import time
import unittest

from command_line import BIN, CommandLineTest

KILLS = 60
MESSAGES = 30
DEAD = range(1, 25)


class CleanKilled(CommandLineTest):
    def contents(self):
        """Every live message as its export says it."""
        place = self.folder / "export"
        self.korvane("export", place, "--format", "eml")
        contents = {path.name: path.read_bytes() for path in place.iterdir()}
        shutil.rmtree(place)
        return contents

    def start(self):
        return subprocess.Popen([BIN / "korvane", "clean"], env=self.environment(),
                                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def restore(self):
        shutil.rmtree(self.folder / "store")
        shutil.copytree(self.folder / "kept", self.folder / "store")

    def test_no_live_record_is_lost(self):
        self.init()
        noise = random.Random(7)
        with open(self.folder / "box", "w") as box:
            for i in range(1, MESSAGES + 1):
                lines = "".join(f"{noise.getrandbits(280):070x}\n" for _ in range(4000))
                box.write(f"From x\nMessage-ID: <{i}@x>\nSubject: number {i}\n\n{lines}\n")
        self.korvane("import", self.folder / "box")
        self.korvane("delete", *DEAD, "--local")
        before = self.contents()
        self.assertEqual(len(before), MESSAGES - len(DEAD))
        shutil.copytree(self.folder / "store", self.folder / "kept")

        begin = time.monotonic()
        self.assertEqual(self.start().wait(), 0)
        whole = time.monotonic() - begin
        self.assertEqual(self.contents(), before)
        moments = random.Random(11)
        killed = interrupted = 0
        for _ in range(KILLS):
            self.restore()
            process = self.start()
            time.sleep(moments.uniform(0, whole))
            process.kill()
            killed += process.wait() == -signal.SIGKILL
            left = {path.name for path in (self.folder / "store/messages").iterdir()}
            interrupted += bool(left & {"1_Messaggi_tmp.dat", "1_Messaggi_cpy.dat"})
            self.korvane("check", "--repair")
            self.korvane("check")
            self.assertEqual(self.contents(), before)
            # And it can be done after all.
            self.korvane("clean")
            self.assertEqual(self.contents(), before)
        print(f"{killed} of {KILLS} killed, {interrupted} with files of the compaction left, "
              f"a whole run takes {whole * 1000:.0f} ms")
        self.assertGreater(killed, KILLS // 3)
        self.assertGreater(interrupted, 0)


if __name__ == "__main__":
    unittest.main()
