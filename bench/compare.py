#!/usr/bin/python3
"""Measures planex beside what one would write instead, interleaved in one run.

    bench/compare.py [--build DIR] [--json FILE] [--rounds N]

Two sources, one table: the benchmark programs (scalar loops and copies in the same binary, in
random interleaving) and this process, which calls the library through its C interface and NumPy,
SciPy, OpenCV and GMT in turn. Results of the peers are compared with ours before anything is
timed. All on one thread; medians; a peer that is not installed is named in the table.
"""

import argparse
import collections
import ctypes
import json
import os
import pathlib
import platform
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

os.environ["OMP_NUM_THREADS"] = os.environ["OPENBLAS_NUM_THREADS"] = "1"

import numpy as np  # noqa: E402: the thread counts above are read on import

try:
    import cv2
    cv2.setNumThreads(1)
except ImportError:
    cv2 = None
try:
    import scipy.stats
except ImportError:
    scipy = None

WIDTH, HEIGHT = 2560, 1000
Row = collections.namedtuple("Row", "work ours peer unit ours_time peer_time ratio")

# ----- the benchmark programs -----

# work, our benchmark, what it is compared with; time of the peer / our time is the ratio
PAIRS = [
    ("calibrate", "calibrate/flat_avx512", "scalar/flat"),
    ("calibrate, sheet curve", "calibrate/sheet_avx512", "scalar/sheet"),
    ("calibrate, AVX2", "calibrate/flat_avx2", "scalar/flat"),
    ("calibrate, sheet curve, AVX2", "calibrate/sheet_avx2", "scalar/sheet"),
    ("calibrate, baseline", "calibrate/flat_baseline", "scalar/flat"),
    ("calibrate, uncached", "calibrate/flat_uncached", "copyBytes/uncached"),
    ("calibrate, sheet curve, uncached", "calibrate/sheet_uncached", "copyBytes/uncached"),
    ("calibrate, Eigen rows", "calibrate/flat_avx512", "eigenRows/flat"),
    ("calibrate, two threads", "calibrate/flat_two_threads/real_time", "calibrate/flat_avx512"),
    ("align FLOAT32, uncached", "align/uncached", "copyBytes/align_uncached"),
] + [
    (f"mapPoints {name}", f"mapPoints/{key}_avx512", f"scalar/{key}")
    for name, key in [("forward", "forward"), ("forward, sheet curve", "forward_sheet"),
                      ("inverse", "inverse"), ("inverse, sheet curve", "inverse_sheet")]
] + [
    (f"rectify {mode}, half-width {w}", f"rectify/{mode}/{w}", f"scalar/{mode}/{w}")
    for mode in ["LOWEST", "HIGHEST", "MEAN", "LOWEST_intensity", "HIGHEST_intensity",
                 "DARKEST_intensity", "BRIGHTEST_intensity", "MEAN_intensity"] for w in (1, 15)
] + [
    ("read a model document", "readModel/region_200", "parseOnly/region_200"),
]


def run_benchmarks(build, repetitions):
    """Medians of the seconds per item, or per call, of every benchmark."""
    medians = {}
    for program in sorted((build / "bench").glob("planex_*_bench")):
        output = subprocess.run(
            [program, "--benchmark_format=json", "--benchmark_min_time=0.05",
             f"--benchmark_repetitions={repetitions}", "--benchmark_enable_random_interleaving=true"],
            check=True, capture_output=True, text=True).stdout
        times = collections.defaultdict(list)
        for run in json.loads(output)["benchmarks"]:
            if run["run_type"] != "iteration":
                continue
            rate = run.get("items_per_second")
            times[run["run_name"]].append(1e9 / rate if rate else run["real_time"])
        for name, values in times.items():
            medians[f"{program.name}:{name}"] = statistics.median(values)
    return medians


def benchmark_rows(build, repetitions):
    medians = run_benchmarks(build, repetitions)
    for work, ours, peer in PAIRS:
        for program in {name.split(":")[0] for name in medians}:
            a, b = medians.get(f"{program}:{ours}"), medians.get(f"{program}:{peer}")
            if a and b:
                yield Row(work, ours, peer, "ns", a, b, b / a)


# ----- this process -----

class Planex:
    """The C interface, as far as it is needed here."""

    class SensorTraits(ctypes.Structure):
        _fields_ = [(n, ctypes.c_double) for n in ("scaleX", "originX", "scaleZ", "originZ")] + [
            ("width", ctypes.c_uint16), ("height", ctypes.c_uint16)]

    class ImageSize(ctypes.Structure):
        _fields_ = [("width", ctypes.c_uint16), ("height", ctypes.c_uint16)]

    class WorldRangeTraits(ctypes.Structure):
        _fields_ = [("xMin", ctypes.c_double), ("xMax", ctypes.c_double), ("xCount", ctypes.c_uint32),
                    ("yMin", ctypes.c_double), ("yMax", ctypes.c_double), ("yCount", ctypes.c_uint32),
                    ("zMin", ctypes.c_double), ("zMax", ctypes.c_double),
                    ("zLevels", ctypes.c_uint32)]

    class SplatSettings(ctypes.Structure):
        _fields_ = [(n, ctypes.c_double) for n in ("splatA", "splatB", "splatC")]

    def __init__(self, path):
        self.lib = ctypes.CDLL(str(path))
        for name in ("createModelFromJson", "createCalibrationFilter", "applyCalibration",
                     "createRectificationFilter", "rectify"):
            getattr(self.lib, name).restype = ctypes.c_bool

    def handle(self, function, *arguments):
        value = ctypes.c_uint32()
        if not function(*arguments, ctypes.byref(value)):
            sys.exit("the library refused an argument")
        return value

    def calibration(self, document):
        model = self.handle(self.lib.createModelFromJson, document.encode())
        traits = self.SensorTraits(1, 0, 1 / 16, 0, WIDTH, HEIGHT)
        return self.handle(self.lib.createCalibrationFilter, model, traits,
                           self.ImageSize(WIDTH, HEIGHT), 0x011000B8)

    def rectification(self, mode, grid):
        return self.handle(self.lib.createRectificationFilter, mode, grid,
                           self.ImageSize(WIDTH, HEIGHT), ctypes.c_uint64(0), None,
                           self.SplatSettings(0, 0, 1), ctypes.c_float(np.nan))


CAMERA = {
    "f": 4100.0, "cx": 1271.0, "cy": 492.0,
    "c": [-0.11, 0.04, 0.013, 0.002, -0.0017, 0.02, -0.04],
    "h": [[110, -3, 12], [2, 140, 300], [-0.02, 0.31, 1.01]],
}


def document():
    data = {
        "FileVersion": 1, "CurrentState": "CALIBRATED", "SkewMode": "XZ_IN_LIGHT_PLANE",
        "CalibrationError": 0.01, "CalibrationErrorMax": 0.02, "AlignmentError": 0,
        "AlignmentErrorMax": 0, "FocalLength": CAMERA["f"],
        "SensorSize": {"x": WIDTH, "y": HEIGHT}, "LensCenter": {"x": CAMERA["cx"], "y": CAMERA["cy"]},
        "Skew": {"x": 0, "y": 1, "z": 0}, "Homography": CAMERA["h"],
        "Pose": np.eye(4).tolist(), "LensCoefficients": CAMERA["c"],
    }
    return json.dumps({"class": "Image.Planex.Model", "data": data})


def numpy_calibrate(samples, dtype):
    """The formulas as whole-image expressions."""
    f, cx, cy = (dtype(CAMERA[k]) for k in ("f", "cx", "cy"))
    c = [dtype(v) for v in CAMERA["c"]]
    h = np.array(CAMERA["h"], dtype)
    x = ((np.arange(WIDTH, dtype=dtype) - cx) / f)[None, :]
    y = (samples.astype(dtype) / dtype(16) - cy) / f
    r2 = x * x + y * y
    radial = 1 + r2 * (c[0] + r2 * (c[1] + r2 * c[2]))
    xd = x * radial + 2 * c[3] * x * y + c[4] * (r2 + 2 * x * x) + c[5] * r2
    yd = y * radial + c[3] * (r2 + 2 * y * y) + 2 * c[4] * x * y + c[6] * r2
    w = h[2, 0] * xd + h[2, 1] * yd + h[2, 2]
    xw = (h[0, 0] * xd + h[0, 1] * yd + h[0, 2]) / w
    zw = (h[1, 0] * xd + h[1, 1] * yd + h[1, 2]) / w
    missing = samples == 0
    xw[missing] = zw[missing] = np.nan
    return xw.astype(np.float32), zw.astype(np.float32)


def opencv_calibrate(samples):
    """The lens polynomial in float matrices, the projection by perspectiveTransform."""
    f, cx, cy, c = CAMERA["f"], CAMERA["cx"], CAMERA["cy"], CAMERA["c"]
    x = np.broadcast_to(((np.arange(WIDTH) - cx) / f).astype(np.float32), samples.shape).copy()
    y = cv2.add(cv2.multiply(samples, 1, scale=1 / (16 * f), dtype=cv2.CV_32F), -cy / f)
    xx, yy, xy = cv2.multiply(x, x), cv2.multiply(y, y), cv2.multiply(x, y)
    r2 = cv2.add(xx, yy)
    radial = cv2.add(cv2.multiply(r2, cv2.add(cv2.multiply(
        r2, cv2.add(cv2.multiply(r2, c[2]), c[1])), c[0])), 1.0)
    xd = cv2.addWeighted(cv2.multiply(x, radial), 1, xy, 2 * c[3], 0)
    xd = cv2.addWeighted(xd, 1, r2, c[4] + c[5], 0)
    xd = cv2.addWeighted(xd, 1, xx, 2 * c[4], 0)
    yd = cv2.addWeighted(cv2.multiply(y, radial), 1, xy, 2 * c[4], 0)
    yd = cv2.addWeighted(yd, 1, r2, c[3] + c[6], 0)
    yd = cv2.addWeighted(yd, 1, yy, 2 * c[3], 0)
    world = cv2.perspectiveTransform(cv2.merge([xd, yd]), np.array(CAMERA["h"], np.float64))
    world[samples == 0] = np.nan
    return world[..., 0], world[..., 1]


def check_calibration(name, got, want):
    for a, b in zip(got, want):
        if not np.allclose(a, b, rtol=2e-3, atol=2e-3, equal_nan=True):
            sys.exit(f"{name} disagrees by {np.nanmax(np.abs(a - b))}")


def calibration_contest(planex, samples):
    ours = np.empty((2, HEIGHT, WIDTH), np.float32)
    handle = planex.calibration(document())
    pointer = lambda a: a.ctypes.data_as(ctypes.c_void_p)

    def run():
        planex.lib.applyCalibration(handle, pointer(samples), pointer(ours[0]), pointer(ours[1]))

    run()
    peers = {"NumPy float64": lambda: numpy_calibrate(samples, np.float64),
             "NumPy float32": lambda: numpy_calibrate(samples, np.float32),
             "OpenCV": (lambda: opencv_calibrate(samples)) if cv2 else None}
    for name, peer in peers.items():
        if peer:
            check_calibration(name, peer(), ours)
    return "calibrate", run, peers, ours


def cells_of(ours, grid):
    """Column and quantised height of every point that LOWEST uses, in row-major cells."""
    step = (grid.zMax - grid.zMin) / (grid.zLevels - 2)
    column = (ours[0] - grid.xMin) / ((grid.xMax - grid.xMin) / (grid.xCount - 1))
    height = (ours[1] - (grid.zMin - step)) / step
    with np.errstate(invalid="ignore"):
        column = np.floor(column + 0.5)
        used = (column >= 0) & (column < grid.xCount) & (height >= 1) & (height < 65536)
    rows = np.broadcast_to(np.arange(HEIGHT)[:, None], used.shape)[used]
    return rows * grid.xCount + column[used].astype(np.int64), height[used].astype(np.int64)


def numpy_minimum(ours, grid):
    cells, heights = cells_of(ours, grid)
    lowest = np.full(grid.xCount * HEIGHT, 65536, np.int64)
    np.minimum.at(lowest, cells, heights)
    return lowest


def numpy_sort(ours, grid):
    cells, heights = cells_of(ours, grid)
    order = np.argsort((cells << 16) | heights)
    cells, heights = cells[order], heights[order]
    first = np.r_[True, cells[1:] != cells[:-1]]
    lowest = np.full(grid.xCount * HEIGHT, 65536, np.int64)
    lowest[cells[first]] = heights[first]
    return lowest


def numpy_bincount(ours, grid):
    cells, heights = cells_of(ours, grid)
    size = grid.xCount * HEIGHT
    with np.errstate(invalid="ignore"):
        return np.bincount(cells, heights, size) / np.bincount(cells, minlength=size)


def scipy_mean(ours, grid):
    cells, heights = cells_of(ours, grid)
    size = grid.xCount * HEIGHT
    return scipy.stats.binned_statistic(cells, heights, "mean", bins=size,
                                        range=(-0.5, size - 0.5)).statistic


def gmt_run(points, grid, folder):
    """Seconds of one xyz2grd -Al over binary points, in cells."""
    start = time.perf_counter()
    subprocess.run(["gmt", "xyz2grd", points, "-bi3d", "-Al", "-r", f"-I1/1",
                    f"-R0/{grid.xCount}/0/{HEIGHT}", f"-G{folder}/out.grd"],
                   check=True, capture_output=True)
    return time.perf_counter() - start


def rectification_contests(planex, ours):
    valid = ~np.isnan(ours[0])
    span = lambda a: (float(np.min(a[valid])), float(np.max(a[valid])))
    grid = planex.WorldRangeTraits(*span(ours[0]), WIDTH, 0, HEIGHT - 1, HEIGHT, *span(ours[1]), 65536)
    out = np.empty((HEIGHT, WIDTH), np.float32)
    pointer = lambda a: a.ctypes.data_as(ctypes.c_void_p)
    for mode, name, peers in [
            (2, "LOWEST", {"np.minimum.at": numpy_minimum, "NumPy sort": numpy_sort}),
            (0, "MEAN", {"NumPy bincount": numpy_bincount,
                         "SciPy binned_statistic": scipy_mean if scipy else None})]:
        handle = planex.rectification(mode, grid)

        def run(handle=handle):
            planex.lib.rectify(handle, pointer(ours[0]), pointer(ours[1]), None, pointer(out), None)

        run()
        step = (grid.zMax - grid.zMin) / (grid.zLevels - 2)
        levels = np.rint((out.astype(np.float64) - grid.zMin) / step + 1)
        for peer_name, peer in peers.items():
            if not peer:
                continue
            theirs = peer(ours, grid).astype(np.float64).reshape(HEIGHT, WIDTH)
            filled = np.isfinite(theirs) & (theirs < 65536)
            # Rounding of columns and of float heights moves a few points by one cell or level.
            agree = np.abs(np.floor(theirs[filled]) - levels[filled]) <= 2
            if np.mean(agree) < 0.999 or np.mean(filled != ~np.isnan(out)) > 1e-3:
                sys.exit(f"{peer_name} disagrees: {np.mean(agree)}, {np.mean(filled != ~np.isnan(out))}")
        yield (f"rectify {name}, half-width 0", run,
               {n: (lambda p=p: p(ours, grid)) if p else None for n, p in peers.items()})


def distortion_contest(rounds):
    """OpenCV's iterative undistortPoints per point: the work of Calibrated to Pixel."""
    if not cv2:
        return None
    points = np.random.default_rng(1).uniform((0, 0), (WIDTH, HEIGHT), (1 << 20, 2))
    matrix = np.array([[CAMERA["f"], 0, CAMERA["cx"]], [0, CAMERA["f"], CAMERA["cy"]], [0, 0, 1]])
    lens = np.array([-0.11, 0.04, 0.002, -0.0017, 0.013])
    times = []
    for _ in range(rounds):
        start = time.perf_counter()
        cv2.undistortPoints(points[:, None, :], matrix, lens)
        times.append(time.perf_counter() - start)
    return statistics.median(times) * 1e9 / len(points)


def contest_rows(work, run, peers, rounds):
    """Interleaves our call with those of the peers."""
    times = collections.defaultdict(list)
    for _ in range(rounds):
        for name, call in {"planex": run, **peers}.items():
            if call:
                start = time.perf_counter()
                call()
                times[name].append(time.perf_counter() - start)
    per_pixel = {n: statistics.median(t) * 1e9 / (WIDTH * HEIGHT) for n, t in times.items()}
    for name in peers:
        theirs = per_pixel.get(name)
        yield Row(work, "planex", name if theirs else f"{name} (not installed)", "ns",
                  per_pixel["planex"], theirs, theirs / per_pixel["planex"] if theirs else None)


def peer_rows(build, rounds):
    planex = Planex(next((build / "planex").glob("libplanex.so")))
    random = np.random.default_rng(1)
    # Laser lines of a smooth surface, 12 % missing, in sixteenths of a row.
    line = 8000 + 3000 * np.sin(np.arange(WIDTH) / 300) + 40 * random.standard_normal((HEIGHT, WIDTH))
    samples = np.where(random.random(line.shape) < 0.12, 0, line).astype(np.uint16)
    work, run, peers, ours = calibration_contest(planex, samples)
    yield from contest_rows(work, run, peers, rounds)
    for work, run, peers in rectification_contests(planex, ours):
        yield from contest_rows(work, run, peers, rounds)
        last_run = run
    if shutil.which("gmt"):
        with tempfile.TemporaryDirectory() as folder:
            yield gmt_row(ours, folder, last_run, rounds)
    else:
        yield Row("rectify LOWEST, half-width 0", "planex", "GMT xyz2grd (not installed)", "ns", None,
                  None, None)


def gmt_row(ours, folder, run, rounds):
    grid = Planex.WorldRangeTraits(0, WIDTH - 1, WIDTH, 0, 1, HEIGHT, 0, 1, 65536)
    valid = ~np.isnan(ours[0])
    column = np.broadcast_to(np.arange(WIDTH)[None, :] + 0.5, valid.shape)[valid]
    row = np.broadcast_to(np.arange(HEIGHT)[:, None] + 0.5, valid.shape)[valid]
    every, one = f"{folder}/points.bin", f"{folder}/one.bin"
    np.stack([column, row, ours[1][valid].astype(np.float64)], 1).tofile(every)
    np.array([[0.5, 0.5, 1.0]]).tofile(one)
    theirs, own = [], []
    for _ in range(max(3, rounds // 3)):
        theirs.append(gmt_run(every, grid, folder) - gmt_run(one, grid, folder))
        start = time.perf_counter()
        run()
        own.append(time.perf_counter() - start)
    theirs, own = (statistics.median(t) * 1e9 / (WIDTH * HEIGHT) for t in (theirs, own))
    return Row("rectify, half-width 0", "planex", "GMT xyz2grd, net of start-up", "ns", own, theirs,
               theirs / own)


def machine():
    with open("/proc/cpuinfo", encoding="ascii", errors="replace") as info:
        names = [line.split(":")[1].strip() for line in info if line.startswith("model name")]
    return f"{names[0] if names else platform.machine()}, {time.strftime('%Y-%m-%d')}"


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    root = pathlib.Path(__file__).resolve().parent.parent
    parser.add_argument("--build", type=pathlib.Path, default=root / "build" / "release")
    parser.add_argument("--json", type=pathlib.Path)
    parser.add_argument("--rounds", type=int, default=9)
    options = parser.parse_args()
    rows = list(benchmark_rows(options.build, options.rounds))
    inverse = next((r for r in rows if r.work == "mapPoints inverse"), None)
    opencv = distortion_contest(options.rounds)
    if inverse and opencv:
        rows.append(Row("mapPoints inverse", inverse.ours, "cv2.undistortPoints", "ns",
                        inverse.ours_time, opencv, opencv / inverse.ours_time))
    rows += peer_rows(options.build, options.rounds)
    print(f"{machine()}; one thread unless said, ns a pixel, point or call, medians\n")
    print("| work | planex | compared with | its time | ratio |\n|---|---|---|---|---|")
    show = lambda v, d: "-" if v is None else f"{v:.{d}f}"
    for r in rows:
        print(f"| {r.work} | {show(r.ours_time, 2)} | {r.peer} | {show(r.peer_time, 2)} |"
              f" {show(r.ratio, 1)} |")
    if options.json:
        result = {"machine": machine(), "rows": [r._asdict() for r in rows]}
        options.json.write_text(json.dumps(result, indent=2) + "\n", encoding="utf-8")


if __name__ == "__main__":
    main()
