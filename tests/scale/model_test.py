"""The model of large sites: its arithmetic, its queues, and what it predicts beside what was measured."""

import json
import math
import os
import pathlib
import subprocess
import sys
import unittest

ROOT = pathlib.Path(os.environ.get("KORVANE_SOURCE_DIR", pathlib.Path(__file__).resolve().parents[2]))
sys.path.insert(0, str(ROOT / "bench" / "scale"))

import queues  # noqa: E402
import site_model  # noqa: E402

MEASURED = json.loads((ROOT / "bench/scale/measured.json").read_text())
ENGINES = ("sqlite", "postgresql", "mariadb", "galera")


class Queues(unittest.TestCase):
    def test_one_server_makes_as_many_wait_as_it_is_busy(self):
        self.assertAlmostEqual(queues.erlang_c(1, 0.3), 0.3)

    def test_of_two_servers_half_busy_a_third_waits(self):
        self.assertAlmostEqual(queues.erlang_c(2, 1.0), 1 / 3)

    def test_beyond_their_capacity_all_wait_without_end(self):
        self.assertEqual(queues.erlang_c(4, 4.0), 1.0)
        self.assertEqual(queues.wait_percentile(4, 5.0, 1.0, 0.99), math.inf)

    def test_the_wait_of_one_server_falls_off_exponentially(self):
        # P(wait > t) = busy * exp(-(1 - busy) t / service)
        self.assertAlmostEqual(queues.wait_percentile(1, 0.5, 1.0, 0.99), math.log(0.5 / 0.01) / 0.5)

    def test_servers_are_as_few_as_keep_both_promises(self):
        busy = queues.servers_needed(100, 0.01, 0.5, math.inf)
        self.assertEqual(busy, 2)
        quick = queues.servers_needed(100, 0.01, 0.5, 0.001)
        self.assertLessEqual(queues.wait_percentile(quick, 100, 0.01, 0.99), 0.001)
        self.assertGreater(queues.wait_percentile(quick - 1, 100, 0.01, 0.99), 0.001)

    def test_the_simulated_lock_agrees_with_the_formula_for_a_constant_hold(self):
        waits = queues.simulate_lock(70, lambda _: 0.01, 200_000)
        expected = queues.mean_wait_of_one(70, 0.01, 0.01 ** 2)
        self.assertAlmostEqual(sum(waits) / len(waits) / expected, 1, delta=0.1)

    def test_the_simulated_lock_agrees_with_the_formula_for_a_hold_that_varies(self):
        waits = queues.simulate_lock(60, lambda source: source.expovariate(100), 200_000)
        expected = queues.mean_wait_of_one(60, 0.01, 2 * 0.01 ** 2)
        self.assertAlmostEqual(sum(waits) / len(waits) / expected, 1, delta=0.1)

    def test_a_lock_that_cannot_keep_up_makes_the_last_wait_longest(self):
        waits = queues.simulate_lock(200, lambda _: 0.01, 10_000)
        # After 10,000 arrivals at twice its rate it is 50 seconds behind.
        self.assertAlmostEqual(waits[-1], 50, delta=3)

    def test_one_node_never_repeats_a_transaction(self):
        for rate in (None, 50):
            found = queues.simulate_writers(1, 0.005, rate, 2_000)
            self.assertEqual(found["attempts"], 1)
            self.assertEqual(found["given_up"], 0)

    def test_nodes_that_seldom_write_seldom_meet(self):
        # Two transactions of 5 ms meet another node's within 10 ms: 2/3 of a rate of 1 a second.
        found = queues.simulate_writers(3, 0.005, 1, 20_000)
        self.assertAlmostEqual(found["attempts"] - 1, 0.005 * 2 / 3, delta=0.002)

    def test_more_writing_means_more_attempts(self):
        attempts = [queues.simulate_writers(3, 0.005, rate, 10_000)["attempts"] for rate in (1, 10, 50, 100)]
        self.assertEqual(attempts, sorted(attempts))


class Arithmetic(unittest.TestCase):
    def setUp(self):
        self.habits, self.machines = site_model.Habits(), site_model.Machines()

    def test_the_demand_of_ten_million_by_hand(self):
        want = site_model.demand(10_000_000, self.habits)
        self.assertAlmostEqual(want.pages, 10e6 * 0.3 * 60 * 3 / 86400)
        self.assertAlmostEqual(want.polls, 10e6 * (0.3 * 48 + 0.7 * 4) * 3 / 86400)
        self.assertAlmostEqual(want.messages, 10e6 * 20 * 3 / 86400)
        found = 0.3 * 48 * (1 - math.exp(-20 / 48)) + 0.7 * 4 * (1 - math.exp(-20 / 4))
        self.assertAlmostEqual(want.downloads, 10e6 * found * 3 / 86400)

    def test_a_poll_brings_at_least_one_message_or_none(self):
        for polls in (1, 20, 200, 5000):
            want = site_model.demand(1000, site_model.Habits(polls_active=polls, polls_idle=polls))
            self.assertGreaterEqual(want.size, 1)
            self.assertLessEqual(want.downloads, want.polls)

    def test_more_than_a_batch_is_stored_in_several(self):
        want = site_model.demand(1000, site_model.Habits(messages=1000, polls_active=1, polls_idle=1))
        self.assertAlmostEqual(want.size, site_model.BATCH)

    def test_a_site_of_several_machines_keeps_the_lock_longer_by_the_network_and_the_file_server(self):
        cost = site_model.costs(MEASURED, "mariadb")
        near = site_model.Machines(network=0, file_sync=cost.local_sync)
        self.assertAlmostEqual(site_model.hold(cost, near, 3), cost.lock[0] + 3 * cost.lock[1])
        far = site_model.Machines(network=0.001, file_sync=cost.local_sync)
        trips = cost.statements[0] + cost.file_operations[0] + 3 * (cost.statements[1] + cost.file_operations[1])
        self.assertAlmostEqual(site_model.hold(cost, far, 3) - site_model.hold(cost, near, 3), trips * 0.001)
        slow = site_model.Machines(network=0, file_sync=cost.local_sync + 0.01)
        self.assertAlmostEqual(site_model.hold(cost, slow, 3) - site_model.hold(cost, near, 3),
                               (cost.syncs[0] + 3 * cost.syncs[1]) * 0.01)

    def test_everything_there_is_one_of_grows_with_the_users(self):
        for engine in ENGINES:
            cost = site_model.costs(MEASURED, engine)
            one, ten = (site_model.resources(users, cost) for users in (1_000_000, 10_000_000))
            for name in one:
                if not one[name].machines and name != "database connections":
                    self.assertAlmostEqual(ten[name].used, 10 * one[name].used, msg=name)

    def test_the_identifiers_end_when_the_greatest_is_reached(self):
        years = (2 ** 31 - 1) / (1_000_000 * 20) / 365
        found = site_model.resources(1_000_000, site_model.costs(MEASURED, "mariadb"))["identifiers"]
        self.assertAlmostEqual(found.used, self.machines.years / years)

    def test_at_its_limit_a_resource_is_used_up_and_the_least_limit_comes_first(self):
        for engine in ENGINES:
            cost = site_model.costs(MEASURED, engine)
            found = site_model.limits(cost)
            self.assertEqual(found, sorted(found))
            for users, name in found:
                if name != "database connections":
                    self.assertAlmostEqual(site_model.resources(users, cost)[name].used, 1, delta=0.001)

    def test_divided_by_user_every_installation_is_within_its_limits(self):
        for engine in ENGINES:
            cost = site_model.costs(MEASURED, engine)
            number = site_model.shards(10_000_000, cost)
            for one in site_model.resources(10_000_000 // number, cost).values():
                self.assertLessEqual(one.used, 1.0001, one.name)
            before = site_model.resources(10_000_000 // (number - 1), cost).values()
            self.assertGreater(max(one.used for one in before), 1)

    def test_added_machines_keep_what_they_share_below_what_it_may_be(self):
        cost = site_model.costs(MEASURED, "mariadb")
        for users in (10_000, 10_000_000, 100_000_000):
            for one in site_model.resources(users, cost).values():
                if one.machines:
                    self.assertLessEqual(one.used, 1)


class Predictions(unittest.TestCase):
    """From the cost of one thing at a time to the rate of many at once, both measured."""

    def within(self, factor, predicted, measured):
        self.assertLess(predicted, measured * factor)
        self.assertGreater(predicted, measured / factor)

    def test_list_pages_a_second_of_one_node(self):
        for engine in ("sqlite", "postgresql", "mariadb"):
            with self.subTest(engine):
                pages = MEASURED["engines"][engine]["pages"]
                self.within(2, site_model.predicted_rate(pages, MEASURED["machine"]["processors"]),
                            pages["all_at_once"]["rate"])

    def test_downloads_a_second_when_four_processes_store_at_once(self):
        for engine in ENGINES:
            for size in (1, 10):
                with self.subTest(engine, size=size):
                    storing = MEASURED["engines"][engine]["storing"]
                    hold = storing["lock"]["fixed"] + size * storing["lock"]["per_message"]
                    self.within(2, 1 / hold, storing["together"][str(size)]["downloads_a_second"])

    def test_attempts_and_downloads_a_second_of_a_cluster_written_to_on_every_node(self):
        for figures in (MEASURED["engines"]["galera"]["everywhere"][size] for size in ("1", "10")):
            found = queues.simulate_writers(figures["processes"], figures["held"])
            self.within(2, found["rate"], figures["downloads_a_second"])
            self.within(4, found["attempts"] - 1, figures["begun"] - 1)


class Page(unittest.TestCase):
    def test_the_tables_of_the_page_are_the_models(self):
        said = subprocess.run([sys.executable, ROOT / "bench/scale/model"], check=True, text=True,
                              capture_output=True).stdout
        page = (ROOT / "docs/scaling.md").read_text().splitlines()
        lines = [line for line in said.splitlines() if line.startswith("|")]
        self.assertGreater(len(lines), 20)
        for line in lines:
            self.assertIn(line, page)

    def test_an_assumption_can_be_changed_and_an_unknown_one_is_refused(self):
        model = [sys.executable, ROOT / "bench/scale/model", "--engine", "sqlite"]
        changed = subprocess.run([*model, "--set", "messages=40"], check=True, text=True, capture_output=True).stdout
        plain = subprocess.run(model, check=True, text=True, capture_output=True).stdout
        self.assertNotEqual(changed, plain)
        unknown = subprocess.run([*model, "--set", "mesages=40"], text=True, capture_output=True)
        self.assertEqual(unknown.returncode, 2)
        self.assertIn("mesages", unknown.stderr)


if __name__ == "__main__":
    unittest.main()
