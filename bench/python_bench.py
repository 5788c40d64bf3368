#!/usr/bin/python3
"""Measures the Python package beside the C interface and beside NumPy, OpenCV, SciPy and GMT.

    bench/python_bench.py [--build DIR] [--rounds N] [--update]

All in one run, interleaved. Times are processor time on one processor: of calls the least, beside
others the median. Scaling is that of two threads with threads=1 on two processors, elapsed time
less what a thread waited for a processor, so that other processes count little. What the peers
compute is compared with ours before anything is timed. --update puts the tables into
docs/python.md.
"""

import argparse
import os
import pathlib
import subprocess
import sys
import tempfile
import threading
import time

import compare  # sets the thread counts that NumPy reads on import
import numpy as np
from contests import all_contests, line_frame, range_image
from interface import HEIGHT, WIDTH, Planex, WorldRangeTraits, document

NAMES = {"applyCalibration": "calibrate", "extractLines": "extract_lines",
         "mapPoints inverse": "map_points, to pixels",
         "mapPoints inverse, sheet curve": "map_points, to pixels, sheet curve"}


class Package:
    """The package in the place of interface.Planex."""

    MODES = {Planex.LOWEST: "lowest", Planex.MEAN: "mean"}

    def __init__(self):
        self.planex = __import__("planex")
        self.model = self.planex.Model.from_json(document())
        self.sensor = self.planex.SensorTraits(WIDTH, HEIGHT)
        self.points = self

    def calibration(self, samples, x, z):
        return lambda: self.planex.calibrate(self.model, samples, self.sensor, out=(x, z))

    def rectification(self, mode, grid, x, z, out):
        cells = self.planex.Grid.from_limits(
            (grid.xMin, grid.xMax), (grid.zMin, grid.zMax), grid.xCount, levels=grid.zLevels,
            splat=self.planex.Splat(0, 0))
        return lambda: self.planex.rectify(x, z, cells, mode=self.MODES[mode], out=out)

    def extraction(self, frame, lines):
        return lambda: self.planex.extract_lines(frame, layers=("intensity", "width"), out=lines)

    def set_camera(self, lens, homography, sheet, pixels):
        self.camera = self.model.replace(lens_coefficients=lens, homography=homography,
                                         sheet_curve=sheet)
        self.pixels, self.result = pixels, np.empty_like(pixels)
        self.plane = self.planex.map_points(self.camera, pixels, "pixel", "calibrated")

    def mapForward(self):
        self.planex.map_points(self.camera, self.pixels, "pixel", "calibrated", out=self.result)

    def mapInverse(self):
        self.planex.map_points(self.camera, self.plane, "calibrated", "pixel", out=self.result)

    def mapped(self, count):
        return self.result[:count].copy()


def least(rounds, *calls):
    """The least processor time of each, in turn."""
    times = [float("inf")] * len(calls)
    for _ in range(rounds):
        for i, call in enumerate(calls):
            start = time.process_time()
            call()
            times[i] = min(times[i], time.process_time() - start)
    return times


def table(title, *rows):
    rows = [title, ["---"] * len(title), *rows]
    return "\n".join("| " + " | ".join(row) + " |" for row in rows)


def profile_rows(native, package, rounds):
    """One profile a call: what Python adds to the C call."""
    count = 2000
    for columns in (1, 256, WIDTH):
        profile = range_image(np.random.default_rng(1))[:1, :columns].copy()
        x, z, ours_x, ours_z = np.empty((4, 1, columns), np.float32)
        again = native.calibrations(profile, x, z)
        ours = package.calibration(profile, ours_x, ours_z)

        def loop():
            for _ in range(count):
                ours()

        c, python = (t / count * 1e6 for t in least(10 * rounds, lambda: again(count), loop))
        require_equal((x, z), (ours_x, ours_z))
        yield f"{columns}", f"{c:.2f}", f"{python:.2f}", f"{python - c:.2f}"


def image_rows(native, package, rounds):
    samples = range_image(np.random.default_rng(1))
    x, z, ours_x, ours_z = np.empty((4, HEIGHT, WIDTH), np.float32)
    calls = native.calibration(samples, x, z), package.calibration(samples, ours_x, ours_z)
    yield image_row("calibrate", least(15 * rounds, *calls), samples.size)
    require_equal((x, z), (ours_x, ours_z))
    grid = compare_grid(x, z)
    out, ours = np.empty((2, HEIGHT, WIDTH), np.float32)
    calls = (native.rectification(native.LOWEST, grid, x, z, out),
             package.rectification(native.LOWEST, grid, x, z, ours))
    yield image_row("rectify", least(15 * rounds, *calls), samples.size)
    require_equal([out], [ours])


def compare_grid(x, z):
    span = lambda a: (float(np.nanmin(a)), float(np.nanmax(a)))
    return WorldRangeTraits(*span(x), WIDTH, 0, HEIGHT - 1, HEIGHT, *span(z), 65536)


def image_row(work, times, pixels):
    c, python = (t / pixels * 1e9 for t in times)
    return work, f"{c:.3f}", f"{python:.3f}", f"{python / c:.3f}"


def require_equal(ours, theirs):
    if any(a.tobytes() != b.tobytes() for a, b in zip(ours, theirs)):
        sys.exit("the package and the C interface disagree")


def import_row(folder, rounds):
    """Milliseconds, each in an interpreter of its own, of the user's and the system's time."""
    def seconds(names):
        code = f"import time; start = time.process_time(); import {names}; " \
               "print(time.process_time() - start)"
        return float(subprocess.run(
            [sys.executable, "-c", code], check=True, capture_output=True, text=True,
            env={**os.environ, "PYTHONPATH": str(folder)}).stdout)

    numpy, both = (min(1e3 * seconds(n) for _ in range(3 * rounds)) for n in ("numpy", "planex"))
    return f"{numpy:.0f}", f"{both:.0f}", f"{both - numpy:.0f}"


# ----- two threads -----

def waited():
    """Seconds that this thread has waited for a processor."""
    with open("/proc/thread-self/schedstat", encoding="ascii") as file:
        return int(file.read().split()[1]) * 1e-9


def span_of(work):
    start, before = time.perf_counter(), waited()
    work()
    return time.perf_counter() - start - (waited() - before)


def side_by_side(works):
    """The longest of them, each on a thread, from when all threads are there."""
    starts, spans = [], []
    ready = threading.Barrier(len(works), lambda: starts.append(time.perf_counter()))

    def run(work):
        before = waited()
        ready.wait()
        work()
        spans.append(time.perf_counter() - starts[0] - (waited() - before))

    threads = [threading.Thread(target=run, args=(work,)) for work in works]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    return max(spans)


def scaling_rows(package, rounds):
    planex, model, sensor = package.planex, package.model, package.sensor
    samples = range_image(np.random.default_rng(1))
    x, z = planex.calibrate(model, samples, sensor)
    grid = planex.bounds(model, sensor, WIDTH).grid()

    def calibrate():
        out = np.empty((2, HEIGHT, WIDTH), np.float32)
        return lambda: [planex.calibrate(model, samples, sensor, out=tuple(out), threads=1)
                        for _ in range(20)]

    def rectify():
        out = np.empty((HEIGHT, WIDTH), np.float32)
        return lambda: [planex.rectify(x, z, grid, mode="lowest", out=out, threads=1)
                        for _ in range(10)]

    def map_points():
        points = np.random.default_rng(2).uniform((0, 0), (WIDTH, HEIGHT), (1 << 20, 2))
        out = np.empty_like(points)
        return lambda: [planex.map_points(model, points, "pixel", "calibrated", out=out)
                        for _ in range(10)]

    def profiles():
        out = np.empty((2, 1, WIDTH), np.float32)
        return lambda: [planex.calibrate(model, samples[:1], sensor, out=tuple(out), threads=1)
                        for _ in range(10000)]

    def extract_lines():
        frames = np.stack(2 * [line_frame(np.random.default_rng(7))[0]])
        return lambda: [planex.extract_lines(frames, threads=1) for _ in range(10)]

    def pure_python():
        return lambda: sum(range(3000000))

    for name, make in (("calibrate", calibrate), ("rectify", rectify), ("map_points", map_points),
                       ("extract_lines", extract_lines),
                       ("calibrate, one profile a call", profiles),
                       ("a loop in Python, which cannot", pure_python)):
        works = make(), make()
        for work in works:
            work()
        alone = together = float("inf")
        for _ in range(rounds):
            alone = min(alone, *(span_of(work) for work in works))
            together = min(together, side_by_side(works))
        yield name, f"{2 * alone / together:.2f}"


# ----- the run -----

def report(options, folder):
    rounds, processors = options.rounds, compare.CPUS
    started = os.getloadavg()[0]
    os.sched_setaffinity(0, processors[-1:])
    native, package = Planex(options.build), Package()
    parts = [
        "One profile a call, uint16, `out=` given, microseconds:", table(
            ("columns", "`applyCalibration`, C", "`planex.calibrate`", "beyond it"),
            *profile_rows(native, package, rounds)),
        f"Images of {WIDTH} x {HEIGHT}, `out=` given, nanoseconds a pixel:", table(
            ("", "C", "Python", "ratio"), *image_rows(native, package, rounds)),
        "Import, milliseconds:", table(("numpy", "planex", "beyond it"),
                                       import_row(options.build / "python", rounds))]
    times, contests = compare.Times(), list(all_contests(package, folder))
    for _ in range(rounds):
        for contest in contests:
            contest.run(times)
    rows = [compare.contest_row(times, c, n) for c in contests for n in c.calls if n != "planex"]
    rows = [row._replace(work=NAMES.get(row.work, row.work)) for row in rows if row.theirs]
    if len(processors) > 1:
        os.sched_setaffinity(0, processors)
        parts += ["Two Python threads with `threads=1`, work done in the time of one:", table(
            ("", "times"), *scaling_rows(package, rounds))]
    heading = (f"{compare.machine()}, NumPy {np.__version__}, load average {started:.1f} before "
               f"and {os.getloadavg()[0]:.1f} after.")
    beside = compare.table(f"Beside what one would write instead, a pixel or point, medians of "
                           f"{rounds}:", rows)
    return "\n\n".join([heading, *parts, beside])


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    root = pathlib.Path(__file__).resolve().parent.parent
    parser.add_argument("--build", type=pathlib.Path, default=root / "build" / "release")
    parser.add_argument("--rounds", type=int, default=7)
    parser.add_argument("--update", action="store_true", help="write the tables of the page")
    options = parser.parse_args()
    if not (options.build / "python" / "planex").is_dir():
        sys.exit("no package built there: cmake --preset release -DPLANEX_BUILD_PYTHON=ON && "
                 "cmake --build --preset release")
    sys.path.insert(0, str(options.build / "python"))
    with tempfile.TemporaryDirectory() as folder:
        text = report(options, folder)
    print(text)
    if options.update:
        compare.put(root / "docs" / "python.md", text, "python_bench.py")


if __name__ == "__main__":
    main()
