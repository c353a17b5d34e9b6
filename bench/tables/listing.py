"""A page of a box of 100,000 messages among 1,000,000 beside the same 25 rows by their identifiers."""
import os

import _bench

# Times the rows by their identifiers, with the client library itself. Everything here is one thread
# on cached pages: processor time says the same as the clock, with less noise.
AIM = 20

# A gigabyte that is made once in half a minute; it goes with the build folder.
os.environ.setdefault("KORVANE_BENCH_DATABASE",
                      os.path.join(os.environ["KORVANE_BENCH_BIN"], "..", "listing_bench.db"))
results = _bench.run("listing_bench", "--benchmark_repetitions=5",
                     "--benchmark_report_aggregates_only=true", "--benchmark_min_time=0.1")
rows = []
for name, entry in results.items():
    kind, order, page = name.split("/")[:3]
    if not kind.startswith("Page"):
        continue
    column, where = entry["label"].split(", ")
    client = results[f"RowsByKeyInThePlainClient/{order}/{page}"]["cpu_time"]
    layer = results[f"RowsByKey/{order}/{page}"]["cpu_time"]
    time = entry["cpu_time"]
    date = " (date against)" if kind == "PageDateAgainst" else ""
    rows.append([column + date, where, f"{time:.0f}", f"{client:.0f}", f"{time / client:.1f}",
                 f"{layer:.0f}", f"{time / layer:.1f}",
                 "reached" if time < AIM * client else f"not below {AIM} x"])
_bench.table("Listing a page of 25, with the count (us)",
             ["order", "page", "page", "25 rows, client", "x", "25 rows, layer", "x", "aim"], rows)
