"""The message file: a compaction beside cp of the same bytes, the memory of a large message, and
storing in batches beside one commit a message."""
import os
import statistics
import subprocess
import tempfile

import _bench

PROGRAM = os.path.join(os.environ["KORVANE_BENCH_BIN"], "store_bench")


def measured(*arguments, within=None):
    with tempfile.TemporaryDirectory(dir=within) as folder:
        return subprocess.run([PROGRAM, arguments[0], folder, *arguments[1:]], check=True,
                              stdout=subprocess.PIPE, text=True).stdout.splitlines()


rows = []
for record in ("4000", "40000", "1000000"):
    rounds = []
    for line in measured("compaction", "400", record):
        what, *numbers = line.split()
        if what == "round":
            rounds.append([float(number) for number in numbers])
        else:
            size, live = float(numbers[0]), float(numbers[1])
    copied, read_back, whole, cp, cp_synced = (statistics.median(c) for c in zip(*rounds))
    factor = (live / copied) / (size / cp)
    rows.append([f"records of {int(record) // 1000} KB"] +
                [f"{number / 1e6:.0f}" for number in (live / copied, size / cp, live / read_back,
                                                      live / whole, size / cp_synced)] +
                [f"{factor:.2f}", f"{(live / whole) / (size / cp_synced):.2f}",
                 "reached" if factor >= 0.7 else "below 0.7 x cp"])
_bench.table("Compaction of 400 MB of which 300 MB live, cp of the same file (MB/s of what is "
             "written; medians of nine rounds)",
             ["file", "copy", "cp", "and read back", "and on disk", "cp and sync", "copy : cp",
              "on disk : cp and sync", "aim"], rows)

rows = []
for kind in ("base64", "quoted-printable", "plain"):
    size, peak, seconds = (float(n) for n in measured("memory", "100", kind)[0].split())
    rows.append([kind, f"{size / 1e6:.0f}", f"{peak / 1e6:.0f}", f"{peak / size:.2f}",
                 f"{seconds:.2f}", "reached" if peak < 2.5 * size else "above 2.5 x"])
_bench.table("Taking in and storing one message of 100 MB",
             ["body", "MB", "peak MB", "x its size", "seconds", "aim"], rows)

# Beside the program, for a disk: what a temporary folder lies on may forget everything anyway.
beside = os.path.dirname(PROGRAM)
rates = {batch: statistics.median(float(measured("rows", "2000", batch, within=beside)[0]) for _ in range(5))
         for batch in ("1", "0")}
factor = rates["0"] / rates["1"]
_bench.table("Storing small messages into SQLite with full synchronisation (medians of five rounds)",
             ["commits", "messages/s", "x one a message", "aim"],
             [["one a message", f"{rates['1']:.0f}", "", ""],
              ["as a download does", f"{rates['0']:.0f}", f"{factor:.1f}",
               "reached" if factor >= 5 else "below 5 x"]])
