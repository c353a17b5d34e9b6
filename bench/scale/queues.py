"""Waiting: the formulas that have one, and simulations of what has none."""

import collections
import heapq
import math
import random


def erlang_c(servers, offered):
    """The share of arrivals that wait, of `offered` load (arrivals times service) on so many servers: M/M/c."""
    if offered >= servers:
        return 1.0
    # The blocking of Erlang B, server by server: no factorial, so no overflow.
    blocking = 1.0
    for count in range(1, servers + 1):
        blocking = offered * blocking / (count + offered * blocking)
    return blocking / (1 - offered / servers * (1 - blocking))


def wait_percentile(servers, rate, service, share):
    """The time within which `share` of the arrivals begin to be served: M/M/c."""
    waits = erlang_c(servers, rate * service)
    if waits <= 1 - share:
        return 0.0
    spare = servers / service - rate
    return math.inf if spare <= 0 else math.log(waits / (1 - share)) / spare


def servers_needed(rate, service, busy, wait, share=0.99):
    """The fewest servers that are at most so busy and let `share` of the arrivals begin within `wait` seconds."""
    servers = max(1, math.ceil(rate * service / busy - 1e-9))
    while wait_percentile(servers, rate, service, share) > wait:
        servers += 1
    return servers


def mean_wait_of_one(rate, mean, mean_square):
    """Mean wait for one server that takes its time as it likes: M/G/1 (Pollaczek and Khinchine)."""
    return math.inf if rate * mean >= 1 else rate * mean_square / 2 / (1 - rate * mean)


def simulate_lock(rate, hold, arrivals=50_000, seed=1):
    """Waits, sorted, of users of one lock who come at random and are let in as they came. `hold` draws how long one
    keeps it. Where the lock cannot keep up, the waits grow with the number of arrivals."""
    source = random.Random(seed)
    now = free = 0.0
    waits = []
    for _ in range(arrivals):
        now += source.expovariate(rate)
        begin = max(now, free)
        waits.append(begin - now)
        free = begin + hold(source)
    waits.sort()
    return waits


def at(sorted_values, share):
    return sorted_values[min(len(sorted_values) - 1, int(share * len(sorted_values)))]


# What the store does when it has to give way: so many attempts within so many seconds, after pauses of random length,
# each at most twice as long as the one before.
ATTEMPTS, PATIENCE = 40, 10.0
SHORTEST_PAUSE, FIRST_LONGEST_PAUSE, LONGEST_PAUSE = 0.001, 0.010, 0.250


def simulate_writers(nodes, hold, rate=None, transactions=20_000, seed=1):
    """Transactions on the nodes of a cluster. Each node lets one in at a time; one commits unless another node committed
    since it began, because both then have the same next identifier; who fails pauses and begins again. `rate` are the
    arrivals on all nodes together; without it each node has one writer that never rests.

    Gives the mean number of attempts, the share that gave up, and the transactions a second."""
    source = random.Random(seed)
    committed_at = -math.inf  # the last commit of any node
    # (when, order, node, attempt, since, began); since its first attempt; began is None for one that comes to its node.
    events = []
    waiting = [collections.deque() for _ in range(nodes)]
    busy = [False] * nodes
    order = finished = given_up = attempts = arrived = 0
    now = 0.0

    def add(when, node, attempt, since=None, began=None):
        nonlocal order
        order += 1
        heapq.heappush(events, (when, order, node, attempt, since, began))

    def begin(node, attempt, since):
        nonlocal attempts
        attempts += 1
        busy[node] = True
        add(now + hold, node, attempt, now if since is None else since, now)

    def pause(attempt):
        return source.uniform(SHORTEST_PAUSE, min(FIRST_LONGEST_PAUSE * 2 ** (attempt - 1), LONGEST_PAUSE))

    def arrive():
        nonlocal arrived
        arrived += 1
        add(now + source.expovariate(rate), source.randrange(nodes), 1)

    if rate is None:
        for node in range(nodes):
            add(source.random() * hold, node, 1)
    else:
        arrive()
    while finished < transactions and events:
        now, _, node, attempt, since, began = heapq.heappop(events)
        if began is None:
            if rate is not None and attempt == 1 and arrived < transactions:
                arrive()
            waiting[node].append((attempt, since))
        else:
            busy[node] = False
            if committed_at > began and attempt < ATTEMPTS and now - since < PATIENCE:
                add(now + pause(attempt), node, attempt + 1, since)
            else:
                finished += 1
                given_up += committed_at > began
                committed_at = committed_at if committed_at > began else now
                if rate is None:
                    # A writer that never rests still does not come in step with the others.
                    add(now + source.random() * hold * 0.1, node, 1)
        if waiting[node] and not busy[node]:
            begin(node, *waiting[node].popleft())
    return {"attempts": attempts / max(1, finished), "given_up": given_up / max(1, finished),
            "rate": finished / now if now else 0.0}
