#!/usr/bin/python3
"""Measures planex beside what one would write instead, interleaved in one run.

    bench/compare.py [--build DIR] [--json FILE] [--rounds N] [--scale]

Each round runs the benchmark programs (scalar loops, copies and Eigen) and then, in this process,
the library's C interface and NumPy, SciPy, OpenCV and GMT in turn. What the peers compute is
compared with ours before anything is timed. Times are medians of processor time on one thread,
pinned to one processor; rows that say "threads" are elapsed time. A peer that is not there is
named in the table. --scale adds images up to 250 M pixels, for which it takes 3.5 GB.
"""

import argparse
import collections
import json
import os
import pathlib
import platform
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

os.environ["OMP_NUM_THREADS"] = os.environ["OPENBLAS_NUM_THREADS"] = "1"

import numpy as np  # noqa: E402: the thread counts above are read on import

import peers
from interface import CAMERA, HEIGHT, WIDTH, Planex, WorldRangeTraits
from peers import cv2

FASTER, COST = "{:.1f} x faster", "{:.2f} x its time"

# What is measured: the work, our time, the other's name and time, how the ratio reads.
Pair = collections.namedtuple("Pair", "work ours peer kind")
MODES = ["LOWEST", "HIGHEST", "MEAN", "LOWEST_intensity", "HIGHEST_intensity", "DARKEST_intensity",
         "BRIGHTEST_intensity", "MEAN_intensity"]
PAIRS = [Pair(*p) for p in [
    ("calibrate", "calibrate/flat_avx512", "scalar/flat", FASTER),
    ("calibrate, AVX2", "calibrate/flat_avx2", "scalar/flat", FASTER),
    ("calibrate, baseline", "calibrate/flat_baseline", "scalar/flat", FASTER),
    ("calibrate, sheet curve", "calibrate/sheet_avx512", "scalar/sheet", FASTER),
    ("calibrate, sheet curve, AVX2", "calibrate/sheet_avx2", "scalar/sheet", FASTER),
    ("calibrate, sheet curve, baseline", "calibrate/sheet_baseline", "scalar/sheet", FASTER),
    ("calibrate", "calibrate/flat_avx512", "eigenRows/flat", FASTER),
    ("calibrate, sheet curve", "calibrate/sheet_avx512", "eigenRows/sheet", FASTER),
    ("calibrate, uncached", "calibrate/flat_uncached", "copyBytes/uncached", COST),
    ("calibrate, sheet curve, uncached", "calibrate/sheet_uncached", "copyBytes/uncached", COST),
    ("calibrate, two threads", "calibrate/flat_two_threads/real_time", "calibrate/flat_avx512",
     FASTER),
    ("align", "align/physical_avx512", "scalar/physical", FASTER),
    ("align scaled values", "align/scaled_avx512", "scalar/scaled", FASTER),
    ("align, uncached", "align/physical_uncached", "copyBytes/align_uncached", COST),
    ("align scaled values, uncached", "align/scaled_uncached", "copyBytes/align_uncached", COST),
] + [
    (f"mapPoints {name}", f"mapPoints/{key}_avx512", f"scalar/{key}", FASTER)
    for name, key in [("forward", "forward"), ("forward, sheet curve", "forward_sheet"),
                      ("inverse", "inverse"), ("inverse, sheet curve", "inverse_sheet")]
] + [
    (f"rectify {mode}, half-width 1", f"rectify/{mode}/1", f"scalar/{mode}/1", FASTER)
    for mode in MODES
] + [
    (f"rectify {mode}, half-width 15", f"rectify/{mode}/15", f"rectify/{mode}/1", COST)
    for mode in MODES
] + [
    ("applyCalibration, one profile a call", "calibrateCalls/profiles", "calibrateCalls/image",
     COST),
    ("rectify, one profile a call", "rectifyCalls/profiles", "rectifyCalls/image", COST),
    ("applyCalibration, all threads", "calibrateCalls/image_all_threads/real_time",
     "calibrateCalls/image", FASTER),
    ("rectify, all threads", "rectifyCalls/image_all_threads/real_time", "rectifyCalls/image",
     FASTER),
    ("look a model up", "lookUpModel", None, None),
    ("copy a model", "copyModel/region_200", None, None),
    ("read a model of 1 MB", "readModel/region_200", "parseOnly/region_200", COST),
    ("createModelFromJson, 1 MB", "createModel/region_200", "parseOnly/region_200", COST),
    ("createJsonFromModel, 1 MB", "exportModel/region_200", None, None),
]]
SCALE = [Pair(*p) for p in [
    (f"{call}, {name} M pixels", f"{call}/{height}", f"{call}/250", COST)
    for call in ("applyCalibration", "rectify")
    for name, height in (("10", 2500), ("100", 25000), ("250", 61035))
]]


class Times:
    """Seconds by the name of what was run."""

    def __init__(self):
        self.values = collections.defaultdict(list)

    def add(self, name, seconds):
        self.values[name].append(seconds)

    def median(self, name):
        return statistics.median(self.values[name]) if self.values.get(name) else None


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
        output = subprocess.run(
            [self.path, "--benchmark_format=json", f"--benchmark_min_time={min_time}",
             f"--benchmark_filter={pattern}"], check=True, capture_output=True, text=True,
            preexec_fn=lambda: os.sched_setaffinity(0, cpus)).stdout
        for run in json.loads(output)["benchmarks"]:
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
    ours, theirs = times.median(pair.ours), pair.peer and times.median(pair.peer)
    if ours is None:
        return Row(pair.work, None, f"{pair.ours} (not built)", None, None)
    if pair.peer and theirs is None:
        return Row(pair.work, ours, f"{pair.peer} (not built)", None, None)
    return Row(pair.work, ours, pair.peer, theirs, pair.kind)


class Row(collections.namedtuple("Row", "work ours peer theirs kind")):
    """A line of the table; times in seconds, absent ones None."""

    def ratio(self):
        if not self.ours or not self.theirs:
            return None
        return self.theirs / self.ours if self.kind == FASTER else self.ours / self.theirs

    def line(self):
        ratio = self.ratio()
        return " | ".join(["| " + self.work, show(self.ours), self.peer or "-", show(self.theirs),
                           (self.kind.format(ratio) if ratio else "-") + " |"])


def show(seconds):
    if seconds is None:
        return "-"
    for unit, size in (("ms", 1e-3), ("us", 1e-6)):
        if seconds >= size:
            return f"{seconds / size:.2f} {unit}"
    return f"{seconds * 1e9:.3g} ns"


# ----- this process -----

class Contest:
    """One work, done by us and by peers; the times are those of one of `items`."""

    def __init__(self, work, ours, others, items):
        self.work, self.items = work, items
        self.calls = {"planex": ours, **others}

    def run(self, times):
        for name, call in self.calls.items():
            if call is None:
                continue
            call()  # warm
            start = time.process_time()
            seconds = call()
            used = time.process_time() - start
            own_clock = isinstance(seconds, float)
            times.add((self.work, name), (seconds if own_clock else used) / self.items)

    def rows(self, times):
        for name, call in self.calls.items():
            if name != "planex":
                yield Row(self.work, times.median((self.work, "planex")),
                          name if call else f"{name} (not installed)",
                          times.median((self.work, name)), FASTER)


def check(name, close):
    """Peers round differently; a point in a thousand may change its cell or level."""
    share = float(np.mean(close))
    if share < 0.999:
        sys.exit(f"{name} disagrees on {1 - share:.2%}")


def range_image(random):
    """Laser lines of a smooth surface, 12 % missing, in sixteenths of a row."""
    line = 8000 + 3000 * np.sin(np.arange(WIDTH) / 300)
    line = line + 40 * random.standard_normal((HEIGHT, WIDTH))
    return np.where(random.random(line.shape) < 0.12, 0, line).astype(np.uint16)


def calibration_contest(planex, samples, x, z):
    ours = planex.calibration(samples, x, z)
    ours()
    others = {
        "NumPy float64": lambda: peers.numpy_calibrate(samples, np.float64),
        "NumPy float32": lambda: peers.numpy_calibrate(samples, np.float32),
        "OpenCV, strips of rows": None, "OpenCV perspectiveTransform": None,
    }
    if cv2:
        strips = peers.OpencvCalibration()
        others["OpenCV, strips of rows"] = lambda: strips(samples)
        others["OpenCV perspectiveTransform"] = lambda: peers.opencv_perspective(samples)
    for name, peer in others.items():
        for got, want in zip(peer() if peer else (), (x, z)):
            check(name, np.isclose(got, want, rtol=1e-4, atol=1e-3, equal_nan=True))
    return Contest("applyCalibration", ours, others, samples.size)


def rectification_contests(planex, x, z, folder):
    span = lambda a: (float(np.nanmin(a)), float(np.nanmax(a)))
    grid = WorldRangeTraits(*span(x), WIDTH, 0, HEIGHT - 1, HEIGHT, *span(z), 65536)
    scale, offset = peers.levels_of(grid)
    out = np.empty((HEIGHT, WIDTH), np.float32)
    bind = lambda peer: lambda: peer(x, z, grid)
    gmt = peers.GmtLowest(x, z, grid, folder) if shutil.which("gmt") else None
    lowest = {"np.minimum.at": bind(peers.numpy_minimum), "NumPy sort": bind(peers.numpy_sort),
              "GMT xyz2grd, net of start-up": gmt and gmt.seconds}
    mean = {"NumPy bincount": bind(peers.numpy_bincount),
            "SciPy binned_statistic": bind(peers.scipy_mean) if peers.scipy else None}
    for mode, name, others in ((Planex.LOWEST, "LOWEST", lowest), (Planex.MEAN, "MEAN", mean)):
        ours = planex.rectification(mode, grid, x, z, out)
        ours()
        levels = np.where(np.isnan(out), 0, np.rint(out * scale + offset)).ravel()
        for peer_name, peer in others.items():
            if peer:
                got = gmt.result() if gmt and peer == gmt.seconds else peer()
                # Levels come back through float world coordinates, which are coarser.
                check(peer_name, (np.abs(got - levels) <= 3) & ((got == 0) == (levels == 0)))
        yield Contest(f"rectify {name}, half-width 0", ours, others, out.size)


class MappingContest(Contest):
    """mapPoints with a camera of its own, set before each run."""

    def __init__(self, planex, work, sheet, ours, others):
        pixels = np.random.default_rng(2).uniform((0, 0), (WIDTH, HEIGHT), (1 << 18, 2))
        super().__init__(work, ours, others, len(pixels))
        self.set_camera = lambda: planex.set_camera(MAP_LENS, MAP_PLANE, sheet, pixels)
        self.set_camera()

    def run(self, times):
        self.set_camera()
        super().run(times)


# OpenCV's lens has neither Scheimpflug terms nor a perspective of the laser plane.
MAP_LENS = [-0.11, 0.04, 0.013, 0.002, -0.0017, 0, 0]
MAP_PLANE = np.array([[110.0, 0, 12], [0, 140, 300], [0, 0, 1]])
MAP_SHEET = [1.5, 1e-4, 0.02, 1e-4, -2e-5, 3e-7]


def mapping_contests(planex):
    sensor = np.array([[CAMERA["f"], 0, CAMERA["cx"]], [0, CAMERA["f"], CAMERA["cy"]], [0, 0, 1]])
    c = MAP_LENS
    lens = np.array([c[0], c[1], c[3], c[4], c[2]])
    forward, inverse = planex.points.mapForward, planex.points.mapInverse
    name = "OpenCV projectPoints, with Jacobian"
    contest = MappingContest(planex, "mapPoints forward", [], forward, {name: None})
    pixels = np.random.default_rng(2).uniform((0, 0), (WIDTH, HEIGHT), (contest.items, 2))
    forward()
    calibrated = planex.mapped(contest.items)
    inverse()
    check("mapPoints there and back", np.abs(planex.mapped(contest.items) - pixels) < 0.05)
    if cv2:
        rays = np.c_[(pixels - sensor[:2, 2]) / CAMERA["f"], np.ones(contest.items)]
        zero = np.zeros(3)
        project = lambda: cv2.projectPoints(rays, zero, zero, MAP_PLANE, lens)[0]
        check(name, np.abs(project().reshape(-1, 2) - calibrated) < 1e-6)
        contest.calls[name] = project
    yield contest
    undistort = cv2 and (
        lambda: cv2.undistortPoints(calibrated[:, None, :], MAP_PLANE, lens, None, sensor))
    if undistort:
        check("cv2.undistortPoints", np.abs(undistort().reshape(-1, 2) - pixels) < 0.05)
    for work, sheet in (("mapPoints inverse", []), ("mapPoints inverse, sheet curve", MAP_SHEET)):
        yield MappingContest(planex, work, sheet, inverse, {"OpenCV undistortPoints": undistort})


# ----- the run -----

def measure(options, folder):
    programs = [Program(p, PAIRS) for p in sorted((options.build / "bench").glob("planex_*_bench"))]
    planex = Planex(options.build)
    samples = range_image(np.random.default_rng(1))
    x, z = np.empty((2, HEIGHT, WIDTH), np.float32)
    contests = [calibration_contest(planex, samples, x, z),
                *rectification_contests(planex, x, z, folder), *mapping_contests(planex)]
    times = Times()
    for _ in range(options.rounds):
        for program in programs:
            program.run(times, False, options.min_time)
            if len(CPUS) > 1:
                program.run(times, True, options.min_time)
        for contest in contests:
            contest.run(times)
    rows = [pair_row(times, pair) for pair in PAIRS]
    rows += [row for contest in contests for row in contest.rows(times)]
    return rows + list(scale_rows(options.build) if options.scale else [])


def scale_rows(build):
    times = Times()
    program = Program(build / "bench" / "planex_scale", SCALE)
    for _ in range(3):
        program.run(times, False, 0.3)
    for pair in SCALE:
        extra = times.median(pair.ours + " extra_MB")
        yield pair_row(times, pair._replace(work=f"{pair.work} (+{extra:.1f} MB)"))


def machine():
    with open("/proc/cpuinfo", encoding="ascii", errors="replace") as info:
        facts = dict(re.findall(r"^(model name|cpu family|model)\s*: (.*)$", info.read(), re.M))
    name = facts.get("model name", platform.machine())
    if facts:
        name += f" (family {facts.get('cpu family')}, model {facts.get('model')})"
    return f"{name}, {len(CPUS)} processors, {time.strftime('%Y-%m-%d')}"


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    root = pathlib.Path(__file__).resolve().parent.parent
    parser.add_argument("--build", type=pathlib.Path, default=root / "build" / "release")
    parser.add_argument("--json", type=pathlib.Path)
    parser.add_argument("--rounds", type=int, default=7)
    parser.add_argument("--min-time", type=float, default=0.04, help="seconds a benchmark")
    parser.add_argument("--scale", action="store_true", help="images up to 250 M pixels as well")
    options = parser.parse_args()
    os.sched_setaffinity(0, CPUS[-1:])
    with tempfile.TemporaryDirectory() as folder:
        rows = list(measure(options, folder))
    print(f"{machine()}; times a pixel, point or call, medians of {options.rounds}\n")
    print("| work | planex | beside | its time | planex is |\n|---|---|---|---|---|")
    for row in rows:
        print(row.line())
    if options.json:
        result = {"machine": machine(), "rows": [
            {"work": r.work, "planex_s": r.ours, "beside": r.peer, "its_s": r.theirs,
             "ratio": r.ratio(), "ratio_is": "times faster" if r.kind == FASTER else "cost"}
            for r in rows]}
        options.json.write_text(json.dumps(result, indent=2) + "\n", encoding="utf-8")


if __name__ == "__main__":
    main()
