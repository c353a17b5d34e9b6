"""The installed package: every header compiles by itself, and the example builds against it through
CMake and through pkg-config and lists what a server holds."""

import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

SOURCE = pathlib.Path(os.environ["KORVANE_SOURCE_DIR"])
BUILD = pathlib.Path(os.environ["KORVANE_BINARY_DIR"])


def run(*command, **options):
    result = subprocess.run([str(part) for part in command], capture_output=True, text=True,
                            **options)
    if result.returncode != 0:
        raise AssertionError(f"{command}: {result.returncode}\n{result.stdout}{result.stderr}")
    return result.stdout


class Package(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.top = pathlib.Path(cls.folder.name)
        first = cls.top / "first"
        run("cmake", "--install", BUILD, "--prefix", first)
        # A package is moved as a whole, and nothing in it may remember where it was.
        cls.prefix = cls.top / "package"
        first.rename(cls.prefix)
        cls.pkgconfig = next(cls.prefix.rglob("korvane.pc")).parent
        cls.server = subprocess.Popen(
            [BUILD / "bin/korvane-sample-server", f"maria:garden:{SOURCE}/tests/mail/real"],
            stdout=subprocess.PIPE, text=True)
        port = re.search(r"port (\d+)", cls.server.stdout.readline()).group(1)
        cls.environment = {**os.environ, "KORVANE_REGISTRY": str(cls.top / "registry.reg"),
                           "KORVANE_PASSWORD": "garden"}
        tool = cls.prefix / "bin/korvane"
        run(tool, "init", "--dir", cls.top / "store", env=cls.environment)
        run(tool, "account", "add", "--server", "pop3://127.0.0.1", "--port", port,
            "--username", "maria", env=cls.environment)

    @classmethod
    def tearDownClass(cls):
        cls.server.kill()
        cls.server.wait()
        cls.server.stdout.close()
        cls.folder.cleanup()

    def assert_lists_the_box(self, program, arguments=(), **environment):
        output = run(program, *arguments, env={**self.environment, **environment})
        count = len(list((SOURCE / "tests/mail/real").glob("*.eml")))
        self.assertIn(f"{count} messages on 2 pages", output)
        self.assertIn("Evviva! La barca è finita", output)

    def test_every_header_compiles_by_itself(self):
        headers = sorted((self.prefix / "include").rglob("*.h"))
        self.assertGreater(len(headers), 20)
        for header in headers:
            run("c++", "-std=c++20", "-Wall", "-Wextra", "-Werror", "-fsyntax-only", "-x", "c++",
                "-I", self.prefix / "include", "-include", header, os.devnull)

    def test_the_example_builds_with_cmake_and_runs(self):
        build = self.top / "with_cmake"
        run("cmake", "-S", SOURCE / "examples/cpp", "-B", build, "-G", "Ninja",
            f"-DCMAKE_PREFIX_PATH={self.prefix}")
        run("cmake", "--build", build)
        self.assert_lists_the_box(build / "sync_and_list")
        self.assert_lists_the_box(build / "list_page")

    def test_the_same_page_in_python_lists_the_box(self):
        run(self.prefix / "bin/korvane", "sync", env=self.environment)
        library = next(self.prefix.rglob("libkorvane.so"))
        package = next(self.prefix.rglob("korvane/__init__.py")).parent.parent
        self.assert_lists_the_box(sys.executable, KORVANE_LIBRARY=str(library), PYTHONPATH=str(package),
                                  arguments=[SOURCE / "examples/python/list_page.py"])

    def test_the_example_builds_with_pkg_config_and_runs(self):
        flags = run("pkg-config", "--cflags", "--libs", "korvane",
                    env={**os.environ, "PKG_CONFIG_PATH": str(self.pkgconfig)}).split()
        program = self.top / "with_pkg_config"
        run("c++", "-std=c++20", SOURCE / "examples/cpp/sync_and_list.cpp", "-o", program, *flags)
        libraries = self.pkgconfig.parent
        self.assert_lists_the_box(program, LD_LIBRARY_PATH=str(libraries))

    def test_the_packages_own_program_finds_its_libraries(self):
        output = run(self.prefix / "bin/korvane", "list", "--json", env=self.environment)
        self.assertIn('"box":1', output)


if __name__ == "__main__":
    unittest.main()
