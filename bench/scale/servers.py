"""Database servers as a site would run them, durable, in folders of their own; how to read what they did."""

import os
import pathlib
import re
import socket
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests" / "support"))

from database_servers import DatabaseServer, Mariadb, Postgresql  # noqa: E402

TICK = os.sysconf("SC_CLK_TCK")


def free_ports(count):
    sockets = [socket.create_server(("127.0.0.1", 0)) for _ in range(count)]
    ports = [one.getsockname()[1] for one in sockets]
    for one in sockets:
        one.close()
    return ports


def processor_seconds(process):
    """What a process and its children, those that ended too, have used of the processor."""
    def fields(number):
        text = pathlib.Path(f"/proc/{number}/stat").read_text()
        return text[text.rindex(")") + 2:].split()

    own = fields(process)
    ticks = sum(map(int, own[11:15]))
    for other in pathlib.Path("/proc").iterdir():
        if other.name.isdigit():
            try:
                of = fields(other.name)
            except OSError:
                continue
            if int(of[1]) == process:
                ticks += int(of[11]) + int(of[12])
    return ticks / TICK


class DurablePostgresql(Postgresql):
    durable = True

    def counters(self, database):
        text = self.sql(database, "SELECT pg_stat_clear_snapshot(), xact_commit, (SELECT wal_bytes FROM pg_stat_wal),"
                        f" pg_database_size('{database}') FROM pg_stat_database WHERE datname='{database}'")
        commits, log, size = text.strip().split("|")[1:]
        return {"commits": float(commits), "log_bytes": float(log), "size": float(size),
                "processor": processor_seconds(self.process.pid)}

    def settle(self):
        # A backend tells what it did when it is idle for a second, or ends.
        time.sleep(1.2)
        self.sql(self.first, "CHECKPOINT")

    def connections(self, database):
        return int(self.sql(self.first, f"SELECT count(*) FROM pg_stat_activity WHERE datname='{database}'"))


class DurableMariadb(Mariadb):
    durable = True
    options = ("--innodb-log-file-size=96M", "--innodb-buffer-pool-size=256M")

    def start(self, *command):
        return super().start(*command, *self.options)

    def status(self, *names):
        rows = self.sql(self.first, "SHOW GLOBAL STATUS").splitlines()
        values = dict(row.split("\t")[:2] for row in rows if "\t" in row)
        return [float(values[name]) for name in names]

    def counters(self, database):
        questions, commits, log = self.status("Questions", "Com_commit", "Innodb_os_log_written")
        folder = pathlib.Path(self.folder, "data", database)
        return {"statements": questions, "commits": commits, "log_bytes": log,
                "size": float(sum(one.stat().st_size for one in folder.iterdir())),
                "processor": processor_seconds(self.process.pid)}

    def settle(self):
        pass

    def connections(self, database):
        return int(self.sql(self.first, "SELECT count(*) FROM information_schema.processlist"
                            f" WHERE db='{database}'"))


class GaleraNode(DurableMariadb):
    """One node of a cluster on the loopback; `group` are the ports of all nodes."""

    def __init__(self, number, group, first):
        self.number, self.group = number, group
        port, incremental, state = free_ports(3)
        provider = (f"gmcast.listen_addr=tcp://127.0.0.1:{group[number]};ist.recv_addr=127.0.0.1:{incremental};"
                    f"base_port={group[number]}")
        self.options += (
            "--wsrep-on=ON", "--wsrep-provider=/usr/lib/galera/libgalera_smm.so", "--binlog-format=ROW",
            "--innodb-autoinc-lock-mode=2", "--wsrep-sst-method=rsync", "--wsrep-node-address=127.0.0.1",
            f"--wsrep-sst-receive-address=127.0.0.1:{state}", f"--wsrep-provider-options={provider}",
            "--wsrep-cluster-address=gcomm://" + ",".join(f"127.0.0.1:{one}" for one in group),
            "--bind-address=127.0.0.1", f"--port={port}", *(["--wsrep-new-cluster"] if first else []))
        super().__init__()

    def start(self, *command):
        answer = super().start(*(part for part in command if part != "--skip-networking"))
        deadline = time.time() + 60
        while "Synced" not in self.sql(self.first, "SHOW STATUS LIKE 'wsrep_local_state_comment'"):
            if time.time() > deadline:
                raise RuntimeError(pathlib.Path(self.folder, "log").read_text()[-3000:])
            time.sleep(0.2)
        return answer

    def refused(self):
        """Write sets that failed their certification here, and transactions that gave way to another node's."""
        return sum(self.status("wsrep_local_cert_failures", "wsrep_local_bf_aborts"))
