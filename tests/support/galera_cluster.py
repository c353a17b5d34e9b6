"""A Galera cluster of the tests' own: three nodes in a temporary folder. Where the machine allows it
each has a network namespace of its own, so that the network between them can be cut; elsewhere they
are on the loopback interface, and a node is told to cut itself off.

Nothing outlives the test: every server dies with the process that started it."""

import contextlib
import ctypes
import getpass
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import time

from free_port import free_port

PROVIDER = "/usr/lib/galera/libgalera_smm.so"
INSIDE = "KORVANE_INSIDE_NAMESPACE"
HUB = "10.77.0.1"


def enter_namespace():
    """Runs the test again inside a network namespace of its own, where that is allowed."""
    if INSIDE in os.environ:
        return
    probe = ("ip link set lo up && ip link add name hub type bridge && "
             "ip link add name node1 type veth peer name eth0")
    if os.geteuid() == 0 and subprocess.run(["unshare", "-n", "sh", "-c", probe], check=False,
                                            stdout=subprocess.DEVNULL,
                                            stderr=subprocess.DEVNULL).returncode == 0:
        os.environ[INSIDE] = "1"
        os.execvp("unshare", ["unshare", "-n", sys.executable, *sys.argv])
    os.environ[INSIDE] = ""


def in_namespace():
    return bool(os.environ.get(INSIDE))


def die_with_parent():
    ctypes.CDLL(None).prctl(1, signal.SIGKILL)


def ip(*arguments, pid=None):
    inside = ["nsenter", f"--net=/proc/{pid}/ns/net"] if pid else []
    subprocess.run([*inside, "ip", *arguments], check=True)


class Node:
    def __init__(self, folder, number):
        self.number = number
        self.folder = folder / f"node{number}"
        self.data = self.folder / "data"
        self.data.mkdir(parents=True)
        self.port, self.base, self.ist, self.sst = (free_port() for _ in range(4))
        self.address, self.holder, self.process = "127.0.0.1", None, None
        if in_namespace():
            self.address = f"10.77.0.{10 + number}"
            self.holder = subprocess.Popen(["unshare", "-n", "sh", "-c", "echo; exec sleep 3600"],
                                           stdout=subprocess.PIPE, preexec_fn=die_with_parent)
            self.holder.stdout.readline()
            ip("link", "add", "name", f"node{number}", "type", "veth", "peer", "name", "eth0", "netns",
               str(self.holder.pid))
            ip("link", "set", f"node{number}", "master", "hub", "up")
            for command in (["addr", "add", self.address + "/24", "dev", "eth0"],
                            ["link", "set", "lo", "up"], ["link", "set", "eth0", "up"]):
                ip(*command, pid=self.holder.pid)

    @property
    def log(self):
        return self.folder / "log"

    @property
    def socket(self):
        return self.folder / "socket"


class GaleraCluster:
    def __init__(self, nodes=3):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="kgal", dir="/tmp"))
        self.user = "mysql" if os.geteuid() == 0 else getpass.getuser()
        self.nodes = []
        try:
            if in_namespace():
                ip("link", "set", "lo", "up")
                ip("link", "add", "name", "hub", "type", "bridge")
                ip("addr", "add", HUB + "/24", "dev", "hub")
                ip("link", "set", "hub", "up")
            self.nodes = [Node(self.folder, number) for number in range(1, nodes + 1)]
            self.give_away(self.folder)
            self.start_all()
        except BaseException:
            self.stop()
            raise

    def give_away(self, path):
        for one in [path, *path.rglob("*")]:
            shutil.chown(one, self.user)

    def start_all(self):
        first = self.nodes[0]
        with open(first.log, "ab") as log:
            made = subprocess.run(["/usr/bin/mariadb-install-db", "--no-defaults", "--skip-test-db",
                            "--skip-name-resolve", "--auth-root-authentication-method=normal",
                            f"--datadir={first.data}", f"--tmpdir={first.folder}",
                            "--innodb-log-file-size=4M"], check=False,
                           user=self.user, stdin=subprocess.DEVNULL, stdout=log, stderr=log, cwd="/",
                           preexec_fn=die_with_parent)
        if made.returncode != 0:
            raise RuntimeError(first.log.read_text(errors="replace"))
        self.start(first, "--wsrep-new-cluster")
        self.sql(first, "CREATE USER korvane@'%'; GRANT ALL ON *.* TO korvane@'%'")
        for node in self.nodes[1:]:
            self.start(node, wait=False)
            self.wait_until_synchronised(node)

    def start(self, node, *more, wait=True):
        members = ",".join(f"{one.address}:{one.base}" for one in self.nodes)
        options = {
            "base_host": node.address, "base_port": node.base,
            "gmcast.listen_addr": f"tcp://{node.address}:{node.base}",
            "ist.recv_addr": f"{node.address}:{node.ist}",
            "evs.keepalive_period": "PT0.5S", "evs.inactive_check_period": "PT0.5S",
            "evs.suspect_timeout": "PT2S", "evs.inactive_timeout": "PT4S",
            "evs.install_timeout": "PT4S", "gcache.size": "16M", "gcs.fc_limit": "256",
        }
        inside = ["nsenter", f"--net=/proc/{node.holder.pid}/ns/net"] if node.holder else []
        command = [
            *inside, "setpriv", f"--reuid={self.user}", f"--regid={self.user}", "--clear-groups",
            "--pdeathsig=KILL"] if os.geteuid() == 0 else []
        command += [
            # A server that starts deletes the temporary tables it finds.
            "/usr/sbin/mariadbd", "--no-defaults", f"--datadir={node.data}",
            f"--tmpdir={node.folder}",
            f"--socket={node.socket}", f"--port={node.port}", f"--bind-address={node.address}",
            f"--pid-file={node.folder}/pid", "--skip-name-resolve", "--binlog-format=ROW",
            "--innodb-autoinc-lock-mode=2", "--innodb-flush-log-at-trx-commit=0",
            "--innodb-buffer-pool-size=24M", "--innodb-log-file-size=4M", "--performance-schema=OFF",
            "--wsrep-on=ON", f"--wsrep-provider={PROVIDER}", "--wsrep-cluster-name=korvane",
            f"--wsrep-cluster-address=gcomm://{members}", f"--wsrep-node-name=node{node.number}",
            f"--wsrep-node-address={node.address}:{node.base}",
            f"--wsrep-node-incoming-address={node.address}:{node.port}",
            "--wsrep-sst-method=rsync", f"--wsrep-sst-receive-address={node.address}:{node.sst}",
            "--wsrep-provider-options=" + ";".join(f"{k}={v}" for k, v in options.items()), *more]
        with open(node.log, "ab") as log:
            # A group of its own: the programs that copy a node's data are killed with it.
            node.process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                                            cwd="/", start_new_session=True,
                                            preexec_fn=die_with_parent)
        if wait:
            self.wait_for(node, "wsrep_local_state_comment", "Synced")

    def sql(self, node, statement, database="mysql", timeout=60):
        return subprocess.run(["/usr/bin/mariadb", "--no-defaults", "-S", node.socket, "-u", "root",
                               "-N", "-B", "-e", statement, database], check=True, text=True,
                              timeout=timeout, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE).stdout.strip()

    def status(self, node, name):
        try:
            return self.sql(node, f"SHOW STATUS LIKE '{name}'").split("\t", 1)[1]
        except (subprocess.CalledProcessError, subprocess.TimeoutExpired, IndexError):
            return None

    def wait_for(self, node, name, value, seconds=150):
        deadline = time.monotonic() + seconds
        while self.status(node, name) != value:
            if time.monotonic() > deadline or self.is_out(node):
                raise RuntimeError(f"node {node.number}: {name} is {self.status(node, name)}, not {value}: "
                                   + node.log.read_text(errors="replace")[-20000:])
            time.sleep(0.1)

    def is_out(self, node):
        """It has ended, or left the others and does not look for them any more. A node that joins does
        either where the group it joins changes before it has what it lacks."""
        return node.process.poll() is not None or self.status(node, "wsrep_connected") == "OFF"

    def wait_until_synchronised(self, node):
        """A node that is out is started again, as a service is."""
        for _ in range(5):
            try:
                return self.wait_for(node, "wsrep_local_state_comment", "Synced")
            except RuntimeError:
                if not self.is_out(node):
                    raise
            print(f"         node {node.number} is out and is started again", flush=True)
            self.kill(node)
            self.start(node, wait=False)
        return self.wait_for(node, "wsrep_local_state_comment", "Synced")

    def url(self, *nodes, database="korvane"):
        hosts = ",".join(f"{node.address}:{node.port}" for node in nodes)
        return f"mysql://korvane@{hosts}/{database}"

    @contextlib.contextmanager
    def held(self, node, statement):
        """The session that ran a statement stays."""
        with subprocess.Popen(["/usr/bin/mariadb", "--no-defaults", "-S", node.socket, "-u", "root", "-N",
                               "-B", "-n", "-e", statement + "; SELECT 1; SELECT SLEEP(60)"],
                              stdout=subprocess.PIPE, preexec_fn=die_with_parent) as holder:
            try:
                holder.stdout.readline()
                yield
            finally:
                holder.kill()

    @contextlib.contextmanager
    def stands_still(self, node):
        """The node neither answers nor ends."""
        os.kill(node.process.pid, signal.SIGSTOP)
        try:
            yield
        finally:
            os.kill(node.process.pid, signal.SIGCONT)

    def changes(self):
        """When which node had a cluster and when none: what was asked meanwhile no retry can cure."""
        return "\n".join(f"node {node.number}: {line}" for node in self.nodes
                         for line in node.log.read_text(errors="replace").splitlines()
                         if "Server status change" in line or "New COMPONENT" in line)

    def at_work(self):
        """What every node is doing, in its own words."""
        said = ""
        for node in self.nodes:
            try:
                said += f"node {node.number}:\n" + self.sql(node, "SHOW FULL PROCESSLIST") + "\n"
            except (subprocess.CalledProcessError, subprocess.TimeoutExpired):
                said += f"node {node.number} does not say\n"
        return said

    def kill(self, node):
        """As the loss of its machine's power. One that ended by itself leaves the programs that copied
        its data."""
        with contextlib.suppress(ProcessLookupError):
            os.killpg(node.process.pid, signal.SIGKILL)
        node.process.wait()

    def set_cut_off(self, node, cut_off):
        """Cuts one node off from the others, or joins it again; whoever uses the cluster reaches it
        all the time."""
        if not node.holder:
            self.sql(node, f"SET GLOBAL wsrep_provider_options='gmcast.isolate={cut_off:d}'")
            return
        command = "add" if cut_off else "del"
        for other in self.nodes:
            if other is not node:
                ip("route", command, "blackhole", other.address, pid=node.holder.pid)
                ip("route", command, "blackhole", node.address, pid=other.holder.pid)

    def stop(self):
        for node in self.nodes:
            if node.process and node.process.poll() is None:
                self.kill(node)
            if node.holder:
                node.holder.kill()
                node.holder.wait()
                node.holder.stdout.close()
        shutil.rmtree(self.folder, ignore_errors=True)
