"""Three nodes of a Galera cluster, synchronisers on all of them and pages that list, open, delete and
save, against a real Dovecot. Nodes are killed, brought back and cut off meanwhile: no message is
lost, none is stored twice, and no page hears of it."""

import ctypes
import multiprocessing
import os
import pathlib
import random
import signal
import subprocess
import sys
import time
import traceback
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "support"))

from galera_cluster import GaleraCluster, enter_namespace, in_namespace

if __name__ == "__main__":
    enter_namespace()

from dovecot import Dovecot
from site_fixture import Site, error_of, korvane, message

USERS = {number: f"user{number}" for number in range(1, 7)}
INBOX, SENT = 1, 3
PASSWORD = "secret"
FIRST_MAIL = 15
BEGIN = time.monotonic()


def say(*words):
    print(f"{time.monotonic() - BEGIN:6.1f} s ", *words, flush=True)


class ClusterSite(Site):
    """An installation over the cluster: a settings file for each node, which it prefers."""

    def __init__(self, cluster):
        super().__init__()
        self.cluster = cluster
        cluster.sql(cluster.nodes[0], "CREATE DATABASE korvane")
        self.prefer(cluster.nodes[0])
        subprocess.run([pathlib.Path(os.environ["KORVANE_BIN"], "korvane"), "init", "--database",
                        self.url, "--dir", self.folder], check=True, stdout=subprocess.DEVNULL)
        self.settings["DebugMode"] = 1
        self.registries = {}
        for node in cluster.nodes:
            self.prefer(node)
            self.write_settings()
            self.registries[node.number] = self.folder / f"registry{node.number}.reg"
            (self.folder / "registry.reg").rename(self.registries[node.number])
        self.prefer(cluster.nodes[0])
        self.write_settings()

    def prefer(self, node):
        others = [other for other in self.cluster.nodes if other is not node]
        self.url = self.settings["DbConnectionString"] = self.cluster.url(node, *others)

    def add_account(self, number, port, username):
        connection = korvane.connect(self.url)
        for statement in (
                "INSERT INTO account_email (Id_account_email, Nome_server, Porta_server, Time_out_server, "
                f"Username_server, Password_server, caso) VALUES ({number}, '127.0.0.1', {port}, 30000, "
                f"'{username}', '{PASSWORD}', 0)",
                "INSERT INTO account_email_utenti (Id_account_email_utenti, id_utente, Id_account_email) "
                f"VALUES ({number}, {number}, {number})",
                f"INSERT INTO utenti (id_utente, Account_default) VALUES ({number}, {number})"):
            connection.Execute(statement)

    def causes(self):
        """What the system itself noted about faults, in the servers' own words."""
        log = self.folder / "log" / "korvane_debug.log"
        return log.read_text(errors="replace") if log.exists() else ""

    def command(self, node, *arguments):
        return subprocess.run([pathlib.Path(os.environ["KORVANE_BIN"], "korvane"), *map(str, arguments)],
                              env={**os.environ, "KORVANE_REGISTRY": str(self.registries[node.number])},
                              text=True, capture_output=True, timeout=120)


def die_with_parent():
    ctypes.CDLL(None).prctl(1, signal.SIGKILL)


def synchronise(site, node, seed, stop, outcome):
    """A cron job beside one node: one user after the other."""
    die_with_parent()
    chance, runs, faults, longest = random.Random(seed), 0, [], 0.0
    while not stop.is_set():
        begin = time.monotonic()
        what = f"korvane sync, node {node.number}: "
        try:
            run = site.command(node, "sync", "--user", chance.choice(list(USERS)))
            if run.returncode != 0:
                faults.append((round(begin - BEGIN, 1), f"{what}{run.returncode} {run.stderr.strip()}"))
        except subprocess.TimeoutExpired:
            faults.append((round(begin - BEGIN, 1), what + "no end after two minutes; meanwhile\n"
                           + site.cluster.at_work()))
        longest = max(longest, time.monotonic() - begin)
        runs += 1
        stop.wait(0.1)
    outcome.put(("sync", runs, longest, faults, {}))


class Pages:
    """What one user does on the site, on one node after the other."""

    def __init__(self, site, number, seed):
        self.site, self.number, self.chance = site, number, random.Random(seed)
        self.deleted, self.saved = [], []

    def web(self):
        self.site.prefer(self.chance.choice(self.site.cluster.nodes))
        return self.site.web(self.number)

    def show(self, box=INBOX, page=-1):
        web = self.web()
        listed = web.GetListMessagesInBox(box, -1, lPageNum=page)
        assert web.GetLastError == 0, f"listing: {error_of(web)}"
        return {m.Id: m.Subject(0) for m in listed}

    def open(self):
        listed = self.show()
        if not listed:
            return
        number = self.chance.choice(list(listed))
        web = self.web()
        opened = web.GetMessage(number)
        assert opened is not None and web.GetLastError == 0, f"opening: {error_of(web)}"
        assert opened.Subject(0) == listed[number], (opened.Subject(0), listed[number])
        text = korvane.Ref("")
        assert opened.MessageBody(text, 1, 0) and listed[number] in text.value, text.value

    def delete(self):
        listed = self.show()
        if len(listed) < 5:
            return
        number = self.chance.choice(list(listed))
        web = self.web()
        assert web.DeleteMessage(number, korvane.EDelType.DEL_TYPE_LOCALE), f"deleting: {error_of(web)}"
        self.deleted.append(listed[number])

    def save(self):
        subject = f"draft {len(self.saved)} of {self.number}"
        web = self.web()
        new = web.NewMessage()
        new.NM_From, new.NM_MessageTo = "me@example.com", "you@example.org"
        new.NM_Subject, new.NM_MessageBody = subject, subject
        assert new.NM_Save(korvane.connect(self.site.url)), f"saving: {error_of(new)}"
        self.saved.append(subject)

    def walk(self, stop, outcome):
        die_with_parent()
        done, longest, faults = 0, 0.0, []
        while not stop.is_set():
            begin = time.monotonic()
            try:
                self.chance.choice([self.show, self.show, self.open, self.open, self.delete, self.save])()
            except BaseException:
                faults.append((round(begin - BEGIN, 1), traceback.format_exc(limit=3)))
            longest = max(longest, time.monotonic() - begin)
            done += 1
            stop.wait(self.chance.random() * 0.1)
        outcome.put(("page", done, longest, faults,
                     {self.number: (self.deleted, self.saved)}))


class Galera(unittest.TestCase):
    def setUp(self):
        def give_up(*_):
            raise TimeoutError("the test took too long")
        signal.signal(signal.SIGALRM, give_up)
        signal.alarm(800)
        self.seed = int(os.environ.get("KORVANE_GALERA_SEED", time.time_ns() % 1_000_000))
        self.chance = random.Random(self.seed)
        if in_namespace():
            say("each node has a network namespace of its own, the network between them is cut")
        else:
            say("NETWORK NAMESPACES ARE NOT ALLOWED HERE: a node is told to cut itself off instead")
        say("seed", self.seed)
        self.cluster = GaleraCluster()
        self.addCleanup(self.cluster.stop)
        say("three nodes are synchronised")
        self.site = ClusterSite(self.cluster)
        self.addCleanup(self.site.remove)
        self.addCleanup(self.say_causes)
        self.delivered = {number: [] for number in USERS}

    def say_causes(self):
        causes = self.site.causes()
        say("the debug log:" if causes else "the debug log is empty")
        print(causes, end="", flush=True)
        self.assertNotIn(PASSWORD, causes)

    def deliver(self, dovecot, number):
        subject = f"mail {len(self.delivered[number]) + 1:04} of {number}"
        moment = len(self.delivered[number])
        dovecot.deliver(USERS[number], message(
            subject, body=f"the text of {subject}\r\n" + "x" * 70 + "\r\n",
            received="Tue, 5 Mar 2002 %02d:%02d:%02d +0000" % (moment // 3600, moment // 60 % 60, moment % 60),
            message_id=f"<{moment}.{number}@example.com>"))
        self.delivered[number].append(subject)

    def deliver_for(self, dovecot, seconds):
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            self.deliver(dovecot, self.chance.choice(list(USERS)))
            time.sleep(0.1)

    def test_nodes_that_go_away_lose_nothing_and_no_page_hears_of_it(self):
        nodes = self.cluster.nodes
        with Dovecot(USERS.values()) as dovecot:
            for number, name in USERS.items():
                self.site.add_account(number, dovecot.port, name)
                for _ in range(FIRST_MAIL):
                    self.deliver(dovecot, number)
            self.what_one_node_committed_the_others_show()
            self.a_node_that_lags_behind_is_passed_over()
            self.a_node_that_hangs_is_passed_over()
            self.run_while(dovecot, self.nodes_go_away)
            for number in USERS:
                run = self.site.command(self.chance.choice(nodes), "sync", "--user", number)
                self.assertEqual(run.returncode, 0, run.stderr)
            self.check_store()
            say("no message is lost, none is there twice, every record is whole")
        self.last_of_three()

    def what_one_node_committed_the_others_show(self):
        # Without waiting for it, about every fifth would show an older state.
        writer, reader = (korvane.connect(self.cluster.url(node)) for node in self.cluster.nodes[:2])
        for time_out in range(100, 200):
            writer.Execute(f"UPDATE account_email SET Time_out_server={time_out} WHERE Id_account_email=1")
            rows = reader.Execute("SELECT Time_out_server FROM account_email WHERE Id_account_email=1")
            self.assertEqual(rows.Fields("Time_out_server").Value, time_out)
        writer.Execute("UPDATE account_email SET Time_out_server=30000 WHERE Id_account_email=1")

    def a_node_that_lags_behind_is_passed_over(self):
        # It answers a reading statement with the words for a lock that is not to be had, as one does
        # that is just losing its cluster.
        writer, lagging = self.cluster.nodes[:2]
        page = korvane.connect(self.cluster.url(lagging, writer))
        page.Execute("SELECT Time_out_server FROM account_email WHERE Id_account_email=1")
        self.cluster.sql(lagging, "SET GLOBAL wsrep_provider_options='repl.causal_read_timeout=PT1S'")
        with self.cluster.held(lagging, "FLUSH TABLES WITH READ LOCK"):
            korvane.connect(self.cluster.url(writer)).Execute(
                "UPDATE account_email SET Time_out_server=9001 WHERE Id_account_email=1")
            rows = page.Execute("SELECT Time_out_server FROM account_email WHERE Id_account_email=1")
            self.assertEqual(rows.Fields("Time_out_server").Value, 9001)
            self.assertEqual(self.cluster.status(lagging, "wsrep_ready"), "ON")
        self.cluster.sql(lagging, "SET GLOBAL wsrep_provider_options='repl.causal_read_timeout=PT30S'")

    def a_node_that_hangs_is_passed_over(self):
        hanging, other = self.cluster.nodes[:2]
        # A session that holds the lock under which identifiers are made, and never gives it back.
        page = korvane.connect(self.cluster.url(hanging, other) + "?timeout=1000")
        with self.cluster.held(hanging, "DO GET_LOCK(CONCAT('korvane.', MD5('korvane')), 0)"):
            web = self.site.web(1)
            web.ConnDataBase = page
            self.assertTrue(web.Init(self.site.boss()), error_of(web))
            new = web.NewMessage()
            new.NM_From, new.NM_MessageTo, new.NM_Subject = "me@example.com", "you@example.org", "none"
            new.NM_MessageBody = "saved where the lock is free"
            self.assertTrue(new.NM_Save(page), error_of(new))
            self.assertTrue(web.DeleteMessage(new.Id, korvane.EDelType.DEL_TYPE_LOCALE), error_of(web))
        # The whole node.
        page = korvane.connect(self.cluster.url(hanging, other) + "?answer=1000")
        page.Execute("SELECT COUNT(*) FROM mail")
        with self.cluster.stands_still(hanging):
            self.assertFalse(page.Execute("SELECT * FROM account_email").EOF)
        self.cluster.wait_until_synchronised(hanging)

    def run_while(self, dovecot, what):
        context = multiprocessing.get_context("fork")
        stop, outcome = context.Event(), context.Queue()
        workers = [context.Process(target=synchronise, args=(self.site, node, self.chance.random(), stop,
                                                             outcome))
                   for node in self.cluster.nodes]
        workers += [context.Process(target=Pages(self.site, number, self.chance.random()).walk,
                                    args=(stop, outcome)) for number in USERS]
        try:
            for worker in workers:
                worker.start()
            what(dovecot)
            stop.set()
            results = [outcome.get(timeout=200) for _ in workers]
        finally:
            for worker in workers:
                worker.join(5)
                if worker.is_alive():
                    worker.kill()
        self.changed = {}
        for kind in ("sync", "page"):
            of_kind = [result for result in results if result[0] == kind]
            say(f"{sum(r[1] for r in of_kind)} {kind}s, the longest took {max(r[2] for r in of_kind):.1f} s")
        faults = sorted(fault for result in results for fault in result[3])
        if faults:
            say("when the nodes had a cluster:\n" + self.cluster.changes())
        self.assertEqual(faults, [], "\n".join(f"{moment} s: {what}" for moment, what in faults))
        for result in results:
            self.changed.update(result[4])

    def nodes_go_away(self, dovecot):
        cluster = self.cluster
        self.deliver_for(dovecot, 1 + 3 * self.chance.random())
        lost = self.chance.choice(cluster.nodes)
        cluster.kill(lost)
        say(f"node {lost.number} is killed")
        self.deliver_for(dovecot, 6)
        cluster.start(lost, wait=False)
        self.deliver_for(dovecot, 2)
        cluster.wait_until_synchronised(lost)
        say(f"node {lost.number} is back")
        self.deliver_for(dovecot, 2 + self.chance.random())
        lost = self.chance.choice(cluster.nodes)
        cluster.set_cut_off(lost, True)
        say(f"node {lost.number} is cut off")
        self.deliver_for(dovecot, 8)
        self.assertEqual(cluster.status(lost, "wsrep_cluster_status"), "non-Primary")
        cluster.set_cut_off(lost, False)
        cluster.wait_until_synchronised(lost)
        say(f"node {lost.number} has joined again")
        self.deliver_for(dovecot, 2)

    def check_store(self):
        for number in USERS:
            deleted, saved = self.changed[number]
            pages = Pages(self.site, number, 0)
            self.assertEqual(sorted([*pages.show().values(), *deleted]), self.delivered[number])
            self.assertEqual(sorted(pages.show(SENT).values()), sorted(saved))
            run = self.site.command(self.cluster.nodes[0], "check", "--user", number)
            self.assertEqual(run.returncode, 0, run.stdout + run.stderr)
        statement = "SELECT COUNT(*), COUNT(DISTINCT id_mail), SUM(CRC32(CONCAT_WS(' ', id_mail, id_utente, " \
                    "oggetto, body_scaricato, Letto, Cancellata))) FROM mail"
        self.assertEqual(len({self.cluster.sql(node, "SET SESSION wsrep_sync_wait=1; " + statement, "korvane")
                              for node in self.cluster.nodes}), 1)

    def last_of_three(self):
        """One of three left alone takes nothing, and says so; told to go on, it does."""
        last, *others = self.chance.sample(self.cluster.nodes, 3)
        for node in others:
            self.cluster.kill(node)
        self.cluster.wait_for(last, "wsrep_cluster_status", "non-Primary")
        say(f"nodes {others[0].number} and {others[1].number} are killed, {last.number} is alone")
        begin = time.monotonic()
        run = self.site.command(last, "list", "--user", 1)
        say(f"korvane list: exit status {run.returncode} after {time.monotonic() - begin:.1f} s: "
            f"{run.stderr.strip()}")
        self.assertNotEqual(run.returncode, 0)
        self.assertIn("this node has no cluster", run.stderr)
        self.assertLess(time.monotonic() - begin, 30)
        web = korvane.create("WebInterface")
        web.ConnDataBase, web.UserId = korvane.connect(self.cluster.url(last)), 1
        self.assertFalse(web.Init(self.site.boss()))
        self.assertEqual(web.GetLastError, 1008)
        self.cluster.sql(last, "SET GLOBAL wsrep_provider_options='pc.bootstrap=1'")
        self.cluster.wait_for(last, "wsrep_cluster_status", "Primary")
        run = self.site.command(last, "list", "--user", 1)
        self.assertEqual(run.returncode, 0, run.stderr)
        pages = Pages(self.site, 1, 0)
        pages.save()
        self.assertIn("draft 0 of 1", pages.show(SENT).values())
        say(f"node {last.number} was told that it is the cluster, and takes statements")


if __name__ == "__main__":
    unittest.main()
