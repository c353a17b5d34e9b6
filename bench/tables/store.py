"""The message file: a compaction beside cp of the same bytes, and the memory of a large message."""
import os
import subprocess
import tempfile
import time

import _bench

PROGRAM = os.path.join(os.environ["KORVANE_BENCH_BIN"], "store_bench")


def measured(*arguments):
    with tempfile.TemporaryDirectory() as folder:
        output = subprocess.run([PROGRAM, arguments[0], folder, *arguments[1:]], check=True,
                                stdout=subprocess.PIPE).stdout.split()
        return [float(number) for number in output], copied_by_cp(folder)


def copied_by_cp(folder):
    """Seconds that cp takes for the compacted file, alone and with the bytes put on the disk."""
    source = os.path.join(folder, "7_Messaggi.dat")
    if not os.path.exists(source):
        return None
    start = time.perf_counter()
    subprocess.run(["cp", "--reflink=never", source, source + ".copy"], check=True)
    plain = time.perf_counter() - start
    subprocess.run(["sync", source + ".copy"], check=True)
    return plain, time.perf_counter() - start


rows = []
for record in ("4000", "40000", "1000000"):
    best, best_cp = None, None
    for _ in range(3):
        numbers, cp = measured("compaction", "400", record)
        best = numbers if best is None else [min(pair) for pair in zip(best, numbers)]
        best_cp = cp if best_cp is None else [min(pair) for pair in zip(best_cp, cp)]
    size, copied, _, whole = best
    speed, cp_speed = size / copied / 1e6, size / best_cp[0] / 1e6
    rows.append([f"records of {int(record) // 1000} KB", f"{speed:.0f}", f"{cp_speed:.0f}",
                 f"{speed / cp_speed:.2f}", f"{size / whole / 1e6:.0f}",
                 f"{size / best_cp[1] / 1e6:.0f}",
                 "reached" if speed >= 0.7 * cp_speed else "below 0.7 x cp"])
_bench.table("Compaction of 400 MB of which 300 MB live (MB/s; the best of three)",
             ["file", "copy", "cp", "x cp", "all of it, on disk", "cp and sync", "aim"], rows)

rows = []
for kind in ("base64", "quoted-printable", "plain"):
    (size, peak, seconds), _ = measured("memory", "100", kind)
    rows.append([kind, f"{size / 1e6:.0f}", f"{peak / 1e6:.0f}", f"{peak / size:.2f}",
                 f"{seconds:.2f}", "reached" if peak < 2.5 * size else "above 2.5 x"])
_bench.table("Taking in and storing one message of 100 MB",
             ["body", "MB", "peak MB", "x its size", "seconds", "aim"], rows)
