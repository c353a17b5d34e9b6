"""./check: what it counts, what it ends with. The programs that it calls are played by others."""

import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
PASSED = "100% tests passed, 0 tests failed out of 12\n"
FAILED = "92% tests passed, 1 tests failed out of 12\n\nThe following tests FAILED:\n"


class Check(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.folder = pathlib.Path(temporary.name)
        shutil.copy(ROOT / "check", self.folder)
        shutil.copytree(ROOT / "scripts", self.folder / "scripts")
        (self.folder / "bin").mkdir()
        self.play("cmake", "exit 0")
        self.play("ctest", f"printf '%s' '{PASSED}'")
        self.play("apt-get", "echo apt was asked; exit 1")
        self.play("dpkg-query", 'shift 2; for name; do echo "$name installed"; done')

    def play(self, name, script):
        path = self.folder / "bin" / name
        path.write_text("#!/bin/bash\n" + script + "\n")
        path.chmod(0o755)

    def play_script(self, name, script):
        path = self.folder / "scripts" / name
        path.write_text("#!/bin/bash\n" + script + "\n")

    def check(self, *arguments):
        result = subprocess.run(
            [self.folder / "check", *arguments], stdin=subprocess.DEVNULL, text=True,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=60,
            env={**os.environ, "PATH": f"{self.folder}/bin:/usr/bin:/bin"})
        self.output = result.stdout
        return result.returncode, result.stdout.splitlines()[-1]

    def test_success_is_counted_and_its_status_is_0(self):
        self.assertEqual(self.check(), (0, "12 passed, 0 failed"))

    def test_nothing_is_asked_of_apt_when_everything_is_installed(self):
        self.check()
        self.assertNotIn("apt was asked", self.output)

    def test_a_package_that_cannot_be_installed_ends_the_run(self):
        self.play("dpkg-query", "exit 1")
        self.play("id", "echo 0")
        self.play("tee", "exit 1")
        status, last = self.check()
        self.assertNotEqual(status, 0)
        self.assertEqual(last, "0 passed, 0 failed")

    def test_a_failed_test_is_counted_and_the_status_is_not_0(self):
        self.play("ctest", f"printf '%s' '{FAILED}'; exit 8")
        self.assertEqual(self.check(), (1, "11 passed, 1 failed"))

    def test_a_runner_that_fails_without_a_count_is_a_failure(self):
        self.play("ctest", "echo no tests were found; exit 8")
        self.assertEqual(self.check(), (1, "0 passed, 0 failed"))
        self.play("ctest", "exit 0")
        self.assertEqual(self.check(), (1, "0 passed, 0 failed"))

    def test_a_runner_that_fails_though_all_passed_is_a_failure(self):
        self.play("ctest", f"printf '%s' '{PASSED}'; exit 1")
        self.assertEqual(self.check()[0], 1)

    def test_a_build_that_fails_ends_the_run(self):
        self.play("cmake", "echo a compiler says no; exit 1")
        status, last = self.check()
        self.assertEqual((status, last), (1, "0 passed, 0 failed"))
        self.assertIn("a compiler says no", self.output)
        self.assertIn("Failed: Build", self.output)

    def prepare_all(self):
        for name in ("fuzz_briefly", "check_format", "tidy", "i386_system"):
            self.play_script(name, "exit 0")
        (self.folder / "bench").mkdir()
        for name in ("start", "bench/build"):
            shutil.copy(self.folder / "scripts/tidy", self.folder / name)

    def test_all_adds_up_the_four_runs_of_the_tests(self):
        self.prepare_all()
        self.assertEqual(self.check("--all"), (0, "48 passed, 0 failed"))

    def test_a_step_that_fails_makes_the_status_of_all(self):
        self.prepare_all()
        for name in ("fuzz_briefly", "check_format", "tidy"):
            self.play_script(name, "exit 3")
            self.assertEqual(self.check("--all"), (1, "48 passed, 0 failed"), name)
            self.play_script(name, "exit 0")
        for name in ("start", "bench/build"):
            (self.folder / name).write_text("#!/bin/bash\nexit 3\n")
            self.assertEqual(self.check("--all"), (1, "48 passed, 0 failed"), name)
            (self.folder / name).write_text("#!/bin/bash\nexit 0\n")

    def test_windows_builds_both_architectures_and_runs_their_tests(self):
        self.play("cmake", "echo \"$*\" >>cmake-was-asked")
        self.play("ctest", f"echo \"asked for $*\"; printf '%s' '{PASSED}'")
        self.assertEqual(self.check("windows"), (0, "24 passed, 0 failed"))
        self.assertIn("--preset mingw64", self.output)
        self.assertIn("--preset mingw32", self.output)
        self.assertNotIn("-R windows", self.output)
        asked = (self.folder / "cmake-was-asked").read_text()
        self.assertIn("--build --preset mingw64", asked)
        self.assertIn("--build --preset mingw32", asked)

    def test_a_windows_build_that_fails_is_a_failure_and_the_other_one_is_tested(self):
        for preset in ("mingw32", "mingw64"):
            self.play("cmake", "case $* in *%s*) exit 1; esac" % preset)
            self.assertEqual(self.check("windows"), (1, "12 passed, 0 failed"))

    def test_without_an_i386_system_the_rest_is_still_run(self):
        self.prepare_all()
        self.play_script("i386_system", "echo no root; exit 1")
        self.assertEqual(self.check("--all"), (0, "48 passed, 0 failed"))
        self.assertIn("not run", self.output)

    def test_an_i386_system_that_cannot_be_made_is_a_failure(self):
        self.prepare_all()
        self.play_script("i386_system", '[ "$1" = --can ]')
        self.assertEqual(self.check("--all"), (1, "48 passed, 0 failed"))

    def test_a_name_runs_the_tests_that_match_it(self):
        self.play("ctest", f"echo \"asked for $*\"; printf '%s' '{PASSED}'")
        self.check("mime.Date")
        self.assertIn("-R mime.Date", self.output)
        self.check()
        self.assertIn("-LE slow", self.output)

    def test_an_unknown_option_is_refused(self):
        self.assertEqual(self.check("--nonsense")[0], 2)


if __name__ == "__main__":
    unittest.main()
