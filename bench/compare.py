#!/usr/bin/python3
"""Measures planex beside what one would write instead, interleaved in one run.

    bench/compare.py [--build DIR] [--json FILE] [--rounds N] [--scale] [--update]

Each round runs the benchmark programs (scalar loops, copies and Eigen) and then, in this process,
the library's C interface and NumPy, SciPy, OpenCV and GMT in turn. What the peers compute is
compared with ours before anything is timed. Times are medians of processor time on one thread,
pinned to one processor; rows that say "threads" compare the best times, elapsed. A peer that is not there is
named in the table. --scale adds images up to 250 M pixels, for which it takes 3.5 GB. --update
puts the table into docs/performance.md, and the rows that a reader decides by into README.md.
"""

import argparse
import collections
import json
import os
import pathlib
import platform
import re
import statistics
import subprocess
import sys
import tempfile
import time

os.environ["OMP_NUM_THREADS"] = os.environ["OPENBLAS_NUM_THREADS"] = "1"

from contests import all_contests  # NumPy reads the thread counts above on import
from interface import Planex
from pairs import DECISIVE, FASTER, PAIRS, SCALE


class Times:
    """Seconds by the name of what was run."""

    def __init__(self):
        self.values = collections.defaultdict(list)

    def add(self, name, seconds):
        self.values[name].append(seconds)

    def typical(self, name, pick=statistics.median):
        return pick(self.values[name]) if self.values.get(name) else None


# ----- the benchmark programs -----

class Program:
    """Those benchmarks of one program that `pairs` name."""

    def __init__(self, path, pairs):
        names = subprocess.run([path, "--benchmark_list_tests"], check=True, capture_output=True,
                               text=True).stdout.split()
        wanted = {name for pair in pairs for name in (pair.ours, pair.peer)}
        self.path = path
        self.names = [name for name in names if name in wanted]

    def run(self, times, threads, min_time):
        """The benchmarks of one thread on one processor, those of several on all of them."""
        names = [n for n in self.names if n.endswith("_threads/real_time") == threads]
        if not names:
            return
        pattern = "^(" + "|".join(map(re.escape, names)) + ")$"
        cpus = CPUS if threads else CPUS[-1:]
        repetitions = 10 if threads else 1
        output = subprocess.run(
            [self.path, "--benchmark_format=json", f"--benchmark_filter={pattern}",
             f"--benchmark_min_time={min_time / repetitions}",
             f"--benchmark_repetitions={repetitions}"], check=True, capture_output=True, text=True,
            preexec_fn=lambda: os.sched_setaffinity(0, cpus)).stdout
        for run in json.loads(output)["benchmarks"]:
            if run["run_type"] != "iteration":
                continue
            if run.get("error_occurred"):
                sys.exit(f"{run['name']}: {run['error_message']}")
            rate = run.get("items_per_second")
            seconds = 1 / rate if rate else run["cpu_time"] * UNITS[run["time_unit"]]
            times.add(run["name"], seconds)
            if "extra_MB" in run:
                times.add(run["name"] + " extra_MB", run["extra_MB"])


UNITS = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}
CPUS = sorted(os.sched_getaffinity(0))


def pair_row(times, pair):
    # Several threads need all processors for themselves: the best moment counts.
    pick = min if pair.ours.endswith("_threads/real_time") else statistics.median
    ours = times.typical(pair.ours, pick)
    theirs = pair.peer and times.typical(pair.peer, pick)
    absent = " (not run)" if ours is None or (pair.peer and theirs is None) else ""
    return Row(pair.work, ours, pair.beside + absent, theirs, pair.kind)


def contest_row(times, contest, name):
    ours, theirs = (times.typical((contest.work, n)) for n in ("planex", name))
    return Row(contest.work, ours, name if theirs else f"{name} (not installed)", theirs, FASTER)


class Row(collections.namedtuple("Row", "work ours peer theirs kind")):
    """A line of the table; times in seconds, absent ones None."""

    def ratio(self):
        if not self.ours or not self.theirs:
            return None
        return self.theirs / self.ours if self.kind == FASTER else self.ours / self.theirs

    def line(self):
        ratio = self.ratio()
        return " | ".join(["| " + self.work, show(self.ours), self.peer, show(self.theirs),
                           (self.kind.format(ratio) if ratio else "-") + " |"])


def show(seconds):
    if seconds is None:
        return "-"
    unit, size = next(((u, s) for u, s in UNITS.items() if seconds < 1000 * s), ("s", 1.0))
    value = seconds / size
    return f"{value:.{2 if value < 10 else 1 if value < 100 else 0}f} {unit}"


# ----- the run -----

def measure(options, folder):
    programs = [Program(p, PAIRS) for p in sorted((options.build / "bench").glob("planex_*_bench"))]
    contests = list(all_contests(Planex(options.build), folder))
    times = Times()
    for _ in range(options.rounds):
        for program in programs:
            program.run(times, False, options.min_time)
            if len(CPUS) > 1:
                program.run(times, True, options.min_time)
        for contest in contests:
            contest.run(times)
    rows = [pair_row(times, pair) for pair in PAIRS]
    rows += [contest_row(times, c, name) for c in contests for name in c.calls if name != "planex"]
    return rows + list(scale_rows(options.build) if options.scale else [])


def scale_rows(build):
    times = Times()
    program = Program(build / "bench" / "planex_scale", SCALE)
    for _ in range(3):
        program.run(times, False, 0.3)
    for pair in SCALE:
        extra = times.typical(pair.ours + " extra_MB")
        yield pair_row(times, pair._replace(work=f"{pair.work} (+{extra:.1f} MB)"))


def machine():
    with open("/proc/cpuinfo", encoding="ascii", errors="replace") as info:
        facts = dict(re.findall(r"^(model name|cpu family|model)\s*: (.*)$", info.read(), re.M))
    name = facts.get("model name", platform.machine())
    if facts:
        name += f" (family {facts.get('cpu family')}, model {facts.get('model')})"
    return f"{name}, {len(CPUS)} processors, {time.strftime('%Y-%m-%d')}"


def table(heading, rows):
    lines = [heading, "", "| work | planex | beside | its time | planex is |", "|---|---|---|---|---|"]
    return "\n".join(lines + [row.line() for row in rows])


def put(page, text, program="compare.py"):
    """Replaces what stands between the two comments of a program on a page."""
    writer = pathlib.Path(__file__).resolve().parent.parent / "scripts/write_table.py"
    subprocess.run([writer, page, f"bench/{program}"], input=text, text=True, check=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    root = pathlib.Path(__file__).resolve().parent.parent
    parser.add_argument("--build", type=pathlib.Path, default=root / "build" / "release")
    parser.add_argument("--json", type=pathlib.Path)
    parser.add_argument("--rounds", type=int, default=7)
    parser.add_argument("--min-time", type=float, default=0.04, help="seconds a benchmark")
    parser.add_argument("--scale", action="store_true", help="images up to 250 M pixels as well")
    parser.add_argument("--update", action="store_true", help="write the tables of the pages")
    options = parser.parse_args()
    if not (options.build / "bench").is_dir():
        sys.exit("nothing built there: cmake --preset release && cmake --build --preset release")
    os.sched_setaffinity(0, CPUS[-1:])
    with tempfile.TemporaryDirectory() as folder:
        rows = list(measure(options, folder))
    heading = f"{machine()}. Times a pixel, point or call, medians of {options.rounds}:"
    print(table(heading, rows))
    if options.update:
        put(root / "docs" / "performance.md", table(heading, rows))
        put(root / "README.md", table(heading, [r for r in rows if (r.work, r.peer) in DECISIVE]))
    if options.json:
        result = {"machine": machine(), "rows": [
            {"work": r.work, "planex_s": r.ours, "beside": r.peer, "its_s": r.theirs,
             "ratio": r.ratio(), "ratio_is": r.kind and r.kind.split(maxsplit=1)[1]}
            for r in rows]}
        options.json.write_text(json.dumps(result, indent=2) + "\n", encoding="utf-8")


if __name__ == "__main__":
    main()
