"""Windows for the tests: one Wine prefix in the build folder, with the build's DLLs registered in it.

    prefix.py make | end       what the tests need before the first and after the last

Paths of this system are on Windows' drive Z.
"""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

SOURCE = pathlib.Path(os.environ.get("KORVANE_SOURCE_DIR", pathlib.Path(__file__).resolve().parents[2]))
BUILD = pathlib.Path(os.environ.get("KORVANE_BINARY_DIR", SOURCE / "build" / "mingw64"))
BIN = BUILD / "bin"
PREFIX = BUILD / "prefix"
HERE = pathlib.Path(__file__).resolve().parent
WINE = os.environ.get("KORVANE_WINE", "wine").split()
WINESERVER = os.environ.get("KORVANE_WINESERVER", "wineserver").split()

# Nothing of the desktop; dates day first unless a test asks for them otherwise.
REGISTRY = """Windows Registry Editor Version 5.00

[HKEY_CURRENT_USER\\Control Panel\\International]
"sShortDate"="dd/MM/yyyy"
"iDate"="1"
"""


def windows_path(path):
    return "Z:" + str(path).replace("/", "\\")


def environment():
    plain = {name: value for name, value in os.environ.items() if name not in ("DISPLAY", "LD_PRELOAD")}
    return {**plain, "WINEPREFIX": str(PREFIX), "WINEDEBUG": "-all", "LC_ALL": "C.UTF-8",
            "WINEDLLOVERRIDES": "mscoree,mshtml,winemenubuilder.exe,winedbg.exe=d"}


def run(*command, timeout=120):
    """The status and the output of a Windows program. Now and then Wine does not start one that is
    there, and says so: nothing has run then, and it is asked again."""
    for _ in range(3):
        status, output = run_once(*command, timeout=timeout)
        if not output.startswith("Application could not be started"):
            break
    return status, output


def run_once(*command, timeout):
    # The services that a program starts keep its output open, so that is a file and no pipe.
    with tempfile.TemporaryFile() as output:
        done = subprocess.run([*WINE, *map(str, command)], env=environment(), stdin=subprocess.DEVNULL,
                              timeout=timeout, stdout=output, stderr=subprocess.STDOUT)
        output.seek(0)
        return done.returncode, output.read().decode("utf-8", "replace")


def must_run(*command):
    status, output = run(*command)
    if status != 0:
        raise RuntimeError("%s ended with %d: %s" % (command, status, output))
    return output


def import_registry(text, folder):
    """As an administrator imports a file: UTF-16 with its mark, as the editor writes it."""
    path = pathlib.Path(folder) / "import.reg"
    path.write_bytes(b"\xff\xfe" + text.replace("\n", "\r\n").encode("utf-16-le"))
    must_run("regedit", "/S", windows_path(path))
    path.unlink()


def register(library):
    must_run("regsvr32", "/s", windows_path(library))


def make():
    if not (PREFIX / "system.reg").exists():
        shutil.rmtree(PREFIX, ignore_errors=True)
        BUILD.mkdir(parents=True, exist_ok=True)
        must_run("wineboot", "--init")
    subprocess.Popen([*WINE, str(BIN / "script_host.exe"), "--stay"], env=environment(),
                     stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    import_registry(REGISTRY, BUILD)
    for library in ("test_ado.dll", "Korvane_beta1.dll"):
        register(BIN / library)


def wineserver(*arguments):
    subprocess.run([*WINESERVER, *arguments], env=environment(), check=False)


def end():
    wineserver("-k")
    wineserver("-w")


if __name__ == "__main__":
    {"make": make, "end": end}[sys.argv[1]]()
