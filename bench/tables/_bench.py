"""Runs a benchmark program and prints aligned tables; what the table scripts share."""
import json
import os
import subprocess


def run(program, *arguments):
    """The benchmarks of one program by name: the medians of its repetitions where it repeats."""
    path = os.path.join(os.environ["KORVANE_BENCH_BIN"], program)
    output = subprocess.run([path, "--benchmark_format=json", *arguments],
                            check=True, stdout=subprocess.PIPE).stdout
    results = {}
    for entry in json.loads(output)["benchmarks"]:
        if entry.get("aggregate_name", "median") == "median":
            results[entry["run_name"]] = entry
    return results


def gigabytes(entry):
    """Input bytes a second, in units of a thousand million."""
    return entry["bytes_per_second"] / 1e9


def table(title, head, rows):
    """Prints a titled table; the first column to the left, the others to the right."""
    cells = [head] + [[str(cell) for cell in row] for row in rows]
    widths = [max(len(row[i]) for row in cells) for i in range(len(head))]
    print(f"\n{title}\n")
    for number, row in enumerate(cells):
        line = [row[0].ljust(widths[0])] + [c.rjust(w) for c, w in zip(row[1:], widths[1:])]
        print("  " + "  ".join(line).rstrip())
        if number == 0:
            print("  " + "  ".join("-" * width for width in widths))
