"""A Debian system of its own in a folder, with nothing in it but its base: made by debootstrap from the
mirror that this machine's apt uses, and kept as an archive so that a second one is quick."""

import os
import pathlib
import shutil
import subprocess
import tempfile

AS_ROOT = [] if os.geteuid() == 0 else ["sudo"]
ENVIRONMENT = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL": "C.UTF-8", "HOME": "/root",
               "DEBIAN_FRONTEND": "noninteractive",
               **{name: value for name, value in os.environ.items() if name in ("http_proxy", "https_proxy")}}


def run(*command, **options):
    result = subprocess.run([str(part) for part in command], capture_output=True, text=True,
                            stdin=options.pop("stdin", subprocess.DEVNULL), **options)
    if result.returncode != 0:
        raise AssertionError(f"{command}: {result.returncode}\n{result.stdout}{result.stderr}")
    return result.stdout


def release():
    lines = pathlib.Path("/etc/os-release").read_text().splitlines()
    return dict(line.split("=", 1) for line in lines if "=" in line)["VERSION_CODENAME"]


def sources():
    """What apt knows of this release: [(address, suite)]; the release itself first."""
    targets = run("apt-get", "indextargets", "--format", "$(REPO_URI) $(RELEASE) $(ORIGIN) $(COMPONENT)",
                  "Created-By: Packages").splitlines()
    found = dict.fromkeys(tuple(line.split()[:2]) for line in targets
                          if line.split()[2:] == ["Debian", "main"] and line.split()[1].startswith(release()))
    return sorted(found, key=lambda one: one[1] != release())


def proxies():
    text = run("apt-config", "dump", "Acquire::http::Proxy", "Acquire::https::Proxy")
    return "".join(line + "\n" for line in text.splitlines() if '""' not in line)


class CleanRoot:
    """Use as a context manager. `cache` is a folder that stays."""

    def __init__(self, cache):
        self.cache = pathlib.Path(cache)
        self.cache.mkdir(parents=True, exist_ok=True)
        self.archive = self.cache / f"{release()}.tar"
        self.debs = self.cache / "debs"

    def __enter__(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="korvane-root-"))
        try:
            if not self.archive.exists():
                self._make_archive()
            run(*AS_ROOT, "tar", "-xf", self.archive, "-C", self.folder)
            run(*AS_ROOT, "chmod", "755", self.folder)  # a temporary folder is its maker's only
            self._connect()
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        run(*AS_ROOT, "rm", "-rf", "--one-file-system", self.folder)

    def _make_archive(self):
        (address, suite), *_ = sources()
        environment = {name: value for name, value in ENVIRONMENT.items() if name.endswith("_proxy")}
        for line in proxies().splitlines():
            environment["http_proxy"] = line.split('"')[1]
        run(*AS_ROOT, "env", *(f"{name}={value}" for name, value in environment.items()), "debootstrap",
            "--variant=minbase", suite, self.folder, address)
        run(*AS_ROOT, "chroot", self.folder, "apt-get", "clean")
        unfinished = self.archive.with_suffix(".new")
        run(*AS_ROOT, "tar", "-cf", unfinished, "-C", self.folder, ".")
        unfinished.rename(self.archive)
        run(*AS_ROOT, "rm", "-rf", "--one-file-system", self.folder)
        self.folder.mkdir()

    def _connect(self):
        """The network and the mirrors of this machine; no package starts a service."""
        self.write("etc/apt/sources.list", "".join(f"deb {address} {suite} main\n" for address, suite in sources()))
        self.write("etc/apt/apt.conf.d/proxy", proxies())
        self.write("etc/resolv.conf", pathlib.Path("/etc/resolv.conf").read_text())
        self.write("etc/hosts", pathlib.Path("/etc/hosts").read_text())
        self.write("usr/sbin/policy-rc.d", "#!/bin/sh\nexit 101\n", "755")
        # Nobody needs this system after a crash.
        self.write("etc/dpkg/dpkg.cfg.d/unsafe-io", "force-unsafe-io\n")

    def write(self, path, text, mode="644"):
        with tempfile.NamedTemporaryFile("w") as file:
            file.write(text)
            file.flush()
            run(*AS_ROOT, "install", "-m", mode, file.name, self.folder / path)

    def run(self, *command, user=None, environment=None, text=None):
        settings = {**ENVIRONMENT, **(environment or {})}
        given = subprocess.PIPE if text is not None else subprocess.DEVNULL
        inside = ["chroot", *([f"--userspec={user}:{user}"] if user else []), str(self.folder), "/usr/bin/env", "-i",
                  *(f"{name}={value}" for name, value in settings.items()), *map(str, command)]
        options = {"input": text} if text is not None else {"stdin": given}
        result = subprocess.run([*AS_ROOT, *inside], capture_output=True, text=True, **options)
        if result.returncode != 0:
            raise AssertionError(f"{command}: {result.returncode}\n{result.stdout}{result.stderr}")
        return result.stdout

    def start(self, *command, user, environment):
        settings = {**ENVIRONMENT, **environment}
        return subprocess.Popen([*AS_ROOT, "chroot", f"--userspec={user}:{user}", str(self.folder), "/usr/bin/env",
                                 "-i", *(f"{name}={value}" for name, value in settings.items()), *map(str, command)],
                                stdout=subprocess.PIPE, text=True)

    def install(self, *packages):
        """By apt, with everything that they depend on; what was fetched is kept for the next time."""
        inside = self.folder / "var/cache/apt/archives"
        if self.debs.exists():
            run(*AS_ROOT, "cp", "-r", f"{self.debs}/.", inside)
        self.run("apt-get", "update")
        self.run("apt-get", "install", "-y", "--no-install-recommends", "-o", "APT::Keep-Downloaded-Packages=true",
                 *packages)
        self.debs.mkdir(exist_ok=True)
        for deb in inside.glob("*.deb"):
            if not (self.debs / deb.name).exists():
                shutil.copy(deb, self.debs / deb.name)

    def exists(self, path):
        return subprocess.run([*AS_ROOT, "test", "-e", self.folder / path]).returncode == 0
