"""The conversions beside memcpy and beside what other libraries offer, on the same inputs."""
import _bench

# what -> (peer that must be beaten, by which factor, wanted share of memcpy). The share is wanted of
# the large inputs: a message of ordinary size stays in the caches, where memcpy is four times as
# fast and no longer says what memory allows.
WANTED = {
    "base64": ("gmime", 1.5, 0.7),
    "quoted_printable_html": ("gmime", 1.0, 0.35),
    "quoted_printable_cyrillic": ("gmime", 1.0, 0.2),
    "text_to_html": ("glib", 2.0, 0.45),
}

results = _bench.run("conversions_bench", "--benchmark_repetitions=5",
                     "--benchmark_report_aggregates_only=true", "--benchmark_min_time=0.1")
groups = {}
for name, entry in results.items():
    what, who, size = name.split("/")[:3]
    groups.setdefault((what, size), {})[who] = _bench.gigabytes(entry)

rows = []
for (what, size), speeds in groups.items():
    ours, memcpy = speeds["korvane"], speeds["memcpy"]
    peer, factor, share = WANTED.get(what, (None, None, None))
    remarks = []
    if peer and ours < factor * speeds[peer]:
        remarks.append(f"below {factor} x {peer}")
    if share and int(size) >= 1 << 20 and ours < share * memcpy:
        remarks.append(f"below {share} x memcpy")
    label = f"{int(size) // 1024} KB" if int(size) < 1 << 20 else f"{int(size) >> 20} MB"
    for who, speed in sorted(speeds.items(), key=lambda pair: -pair[1]):
        rows.append([f"{what}, {label}", who, f"{speed:.2f}", f"{speed / memcpy:.2f}",
                     "" if who == "korvane" else f"{ours / speed:.2f}",
                     "; ".join(remarks) or ("reached" if peer else "") if who == "korvane" else ""])
_bench.table("Conversions (input GB/s; each against memcpy of the same input)",
             ["input", "by", "GB/s", "of memcpy", "korvane is x", "aim"], rows)
