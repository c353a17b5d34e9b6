"""A mail site of so many users: what they ask for in the busiest hour, what that costs by the measured figures, how
many machines it takes, and what cannot be had by adding machines."""

import dataclasses
import math

import queues

LAST_IDENTIFIER = 2 ** 31 - 1
DAY = 86_400
BATCH = 100  # messages of a download that are stored together, at most


@dataclasses.dataclass(frozen=True)
class Habits:
    """What people do. These are assumptions; everything that is measured is in Costs."""

    active: float = 0.3            # of the users sign in on a day
    messages: float = 20           # a user and day
    message_bytes: float = 60_000  # of one, with what is attached
    kept: float = 2_000            # messages that a user keeps
    polls_active: float = 48       # a user and day: every half hour
    polls_idle: float = 4
    pages: float = 60              # an active user and day
    open_share: float = 0.5        # of the pages show a message, the others a list
    peak: float = 3                # the busiest hour's rate to the day's mean


@dataclasses.dataclass(frozen=True)
class Machines:
    """What a machine has and how much of it is to be used. Assumptions as well."""

    processors: int = 16
    busy: float = 0.6              # of the processors, in the busiest hour
    wait: float = 0.05             # seconds within which 99 of 100 requests get a processor
    memory: float = 64e9
    lock_busy: float = 0.6         # of the time the lock of the identifiers may be held
    network: float = 0.0002        # seconds of a round trip between machines of the site
    mail_server: float = 0.03      # and to the mail servers
    file_sync: float = 0.001       # seconds until the file server has something on its disk
    file_operations: float = 50_000  # a second, of the file server
    database_connections: int = 2_000
    database_disk: float = 8e12
    log_bytes: float = 200e6       # a second, of the database's disk
    years: float = 5               # that the identifiers of a database are to last


@dataclasses.dataclass(frozen=True)
class Costs:
    """What one thing costs on an engine, in seconds and bytes: from bench/scale/measured.json."""

    engine: str
    lock: tuple          # seconds: of a download, and of each message in it
    statements: tuple    # of the same
    local_sync: float    # seconds of an fsync where the lock was measured
    syncs: tuple         # of the store's files, of a download and of each message
    file_operations: tuple
    row: float           # bytes in the database
    record: float        # bytes in the message file beside the message's own
    row_log: float       # bytes of the database's log
    row_processor: float
    poll_processor: float  # of the synchroniser
    poll_seconds: float
    poll_round_trips: float
    poll_database: float
    poll_memory: float
    message_processor: float
    list_site: float
    list_database: float
    open_site: float
    open_database: float
    site_memory: float
    site_connections: int
    one_machine: bool    # the database is a file: everything is on one machine


def costs(measured, engine):
    """The figures of one engine. A cluster's pages, polls and bytes are those of its engine alone."""
    own = measured["engines"][engine]
    base = measured["engines"]["mariadb"] if engine == "galera" else own
    files = measured["engines"]["mariadb"]["file_operations"]
    polls, pages, size = base["polls"], base["pages"], base["bytes"]
    one, none = polls["one_message"], polls["nothing_new"]
    pair = lambda of: (of["fixed"], of["per_message"])  # noqa: E731
    in_process = engine == "sqlite"
    return Costs(
        engine=engine, lock=pair(own["storing"]["lock"]),
        # PostgreSQL begins and takes the lock, MariaDB also gives it back; then a question and a row a message.
        statements=(0, 0) if in_process else (4 if engine != "postgresql" else 3, 2),
        local_sync=own["fsync"], syncs=pair(files["syncs"]), file_operations=pair(files["operations"]),
        row=size["row"], record=size["record_of_1000"] - 1000, row_log=size.get("log_bytes", size["row"] * 2),
        row_processor=size.get("processor", 0.0),
        poll_processor=none["processor"], poll_seconds=none["seconds"], poll_round_trips=none["round_trips"],
        poll_database=none.get("database_processor", 0.0), poll_memory=none["memory"],
        message_processor=max(0.0, one["processor"] - none["processor"]),
        list_site=pages["list"]["processor"], list_database=pages["list"].get("database_processor", 0.0),
        open_site=pages["message"]["processor"], open_database=pages["message"].get("database_processor", 0.0),
        site_memory=pages["memory"], site_connections=pages.get("database_connections", 0), one_machine=in_process)


@dataclasses.dataclass(frozen=True)
class Demand:
    """What the users ask for: a second of the busiest hour."""

    pages: float
    polls: float
    messages: float
    downloads: float     # polls that bring something
    messages_a_day: float

    @property
    def size(self):
        """Messages of a download."""
        return self.messages / self.downloads


def demand(users, habits):
    """Messages come one by one, so a poll finds some or none as a Poisson count says."""
    polls = downloads = 0.0
    for people, each in ((users * habits.active, habits.polls_active), (users * (1 - habits.active), habits.polls_idle)):
        waiting = habits.messages / each
        polls += people * each
        # More than a batch is stored in several; at these sizes that is rare.
        downloads += people * each * max(1 - math.exp(-waiting), waiting / BATCH)
    in_peak = habits.peak / DAY
    return Demand(pages=users * habits.active * habits.pages * in_peak, polls=polls * in_peak,
                  messages=users * habits.messages * in_peak, downloads=downloads * in_peak,
                  messages_a_day=users * habits.messages)


def hold(cost, machines, size):
    """Seconds that a download of `size` messages keeps the lock: as measured, with the network and the file server of
    a site of several machines in place of the local ones."""
    def of(pair):
        return pair[0] + pair[1] * size

    if cost.one_machine:
        return of(cost.lock)
    return (of(cost.lock) + of(cost.statements) * machines.network + of(cost.file_operations) * machines.network +
            of(cost.syncs) * max(0.0, machines.file_sync - cost.local_sync))


@dataclasses.dataclass(frozen=True)
class Resource:
    name: str
    used: float          # of what one has: 1 is all that is wanted of it
    machines: int = 0    # as many as are needed, for what grows by adding machines; 0: there is one
    note: str = ""


def resources(users, cost, habits=Habits(), machines=Machines()):
    """Each resource by name."""
    want = demand(users, habits)
    open_rate, list_rate = want.pages * habits.open_share, want.pages * (1 - habits.open_share)
    site_work = list_rate * cost.list_site + open_rate * cost.open_site
    sync_work = want.polls * cost.poll_processor + want.messages * cost.message_processor
    database_work = (list_rate * cost.list_database + open_rate * cost.open_database + want.polls * cost.poll_database +
                     want.messages * cost.row_processor)
    of_node = machines.processors * machines.busy

    def nodes(rate, work):
        processors = queues.servers_needed(rate, work / rate, machines.busy, machines.wait)
        return math.ceil(processors / machines.processors)

    held = hold(cost, machines, want.size)
    poll_seconds = cost.poll_seconds + cost.poll_round_trips * machines.mail_server
    sessions = want.polls * poll_seconds  # at once: Little's law
    site_nodes = nodes(want.pages, site_work)
    sync_nodes = max(nodes(want.polls, sync_work), math.ceil(sessions * cost.poll_memory / machines.memory))
    operations = (want.downloads * cost.file_operations[0] + want.messages * cost.file_operations[1] + open_rate * 4)
    rows = users * habits.kept
    found = [
        Resource("identifiers", want.messages_a_day * 365 * machines.years / LAST_IDENTIFIER,
                 note=f"last {LAST_IDENTIFIER / want.messages_a_day / 365:.3g} years"),
        Resource("lock of the identifiers", want.downloads * held / machines.lock_busy,
                 note=f"{want.downloads:.3g} downloads/s of {want.size:.1f}, {held * 1000:.1f} ms each"),
        Resource("database processor", database_work / of_node),
        Resource("database log", (want.messages * cost.row_log) / machines.log_bytes),
        Resource("database disk", rows * cost.row / machines.database_disk, note=f"{rows * cost.row / 1e9:.3g} GB"),
        Resource("file server", operations / machines.file_operations,
                 note=f"{rows * (habits.message_bytes + cost.record) / 1e12:.3g} TB"),
    ]
    if cost.one_machine:
        found[2] = Resource("the machine's processors", (site_work + sync_work) / of_node)
    else:
        found += [
            Resource("database connections", (site_nodes * cost.site_connections + sessions) / machines.database_connections),
            Resource("site nodes", site_work / of_node / site_nodes, site_nodes),
            Resource("synchronisers", max(sync_work / of_node, sessions * cost.poll_memory / machines.memory) / sync_nodes,
                     sync_nodes, note=f"{sessions:.3g} sessions at once"),
        ]
    return {one.name: one for one in found}


def limits(cost, habits=Habits(), machines=Machines()):
    """How many users each resource carries that there is one of, the least first. All of them grow with the users."""
    base = 1_000_000
    found = [(base / one.used, one.name) for one in resources(base, cost, habits, machines).values()
             if not one.machines and one.used > 0]
    return sorted(found)


def shards(users, cost, habits=Habits(), machines=Machines()):
    """How many installations of their own, each with its database and files, the users have to be divided among."""
    return math.ceil(users / limits(cost, habits, machines)[0][0])


def lock_waits(users, cost, habits=Habits(), machines=Machines(), arrivals=20_000):
    """Waits for the lock in the busiest hour, simulated: downloads come at random, of sizes as they fall."""
    want = demand(users, habits)
    fixed = hold(cost, machines, 0)
    each = hold(cost, machines, 1) - fixed
    # At least one message: a geometric count of the mean.
    none_more = math.log(1 - 1 / want.size)

    def one(source):
        return fixed + each * min(BATCH, 1 + int(math.log(1 - source.random()) / none_more))

    return queues.simulate_lock(want.downloads, one, arrivals)


def predicted_rate(pages, processors):
    """List pages a second of a machine that the site, its database and who asks share: all its processors at work."""
    page = pages["list"]
    return processors / (page["processor"] + page.get("database_processor", 0.0) + page["wrk"])
