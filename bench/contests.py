"""What compare.py measures in its own process: the library and its peers in turn."""

import shutil
import sys
import time

import numpy as np

import peers
from interface import CAMERA, FRAME_ROWS, HEIGHT, WIDTH, Planex, WorldRangeTraits
from peers import cv2


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
    contest = MappingContest(planex, "mapPoints inverse", [], inverse, {})
    pixels = np.random.default_rng(2).uniform((0, 0), (WIDTH, HEIGHT), (contest.items, 2))
    forward()
    calibrated = planex.mapped(contest.items)
    inverse()
    check("mapPoints there and back", np.abs(planex.mapped(contest.items) - pixels) < 0.05)
    undistort = cv2 and (
        lambda: cv2.undistortPoints(calibrated[:, None, :], MAP_PLANE, lens, None, sensor))
    if undistort:
        check("cv2.undistortPoints", np.abs(undistort().reshape(-1, 2) - pixels) < 0.05)
    for work, sheet in (("mapPoints inverse", []), ("mapPoints inverse, sheet curve", MAP_SHEET)):
        yield MappingContest(planex, work, sheet, inverse, {"OpenCV undistortPoints": undistort})


def line_frame(random):
    """A line 5 rows wide that rises and falls, over noise: a frame, and its rows."""
    rows = FRAME_ROWS * (0.5 + 0.3 * np.sin(np.arange(WIDTH) / 300))
    levels = 150 * np.exp(-0.5 * ((np.arange(FRAME_ROWS)[:, None] - rows) / 2.12) ** 2)
    levels += random.normal(12, 2, levels.shape)
    return levels.clip(0, 255).astype(np.uint8), rows


def extraction_contest(planex):
    frame, rows = line_frame(np.random.default_rng(7))
    lines = {name: np.zeros((1, WIDTH), dtype) for name, dtype in
             (("range", np.uint16), ("intensity", np.uint8), ("width", np.uint16))}
    ours = planex.extraction(frame, lines)
    others = {"NumPy centre of gravity": lambda: peers.numpy_gravity(frame),
              "NumPy centre of gravity, strips of rows": peers.NumpyGravity(frame),
              "OpenCV derivative by filter2D": cv2 and peers.OpencvDerivative(frame, False),
              "OpenCV derivative by sepFilter2D": cv2 and peers.OpencvDerivative(frame, True)}
    ours()
    check("extractLines", np.abs(lines["range"][0] / 64 - rows) < 0.1)
    for name, peer in others.items():
        if peer:
            check(name, np.abs(peer() - rows) < 0.2)
    return Contest("extractLines", ours, others, frame.size)


def all_contests(planex, folder):
    """Every contest, its results compared."""
    samples = range_image(np.random.default_rng(1))
    x, z = np.empty((2, HEIGHT, WIDTH), np.float32)
    yield calibration_contest(planex, samples, x, z)
    yield from rectification_contests(planex, x, z, folder)
    yield from mapping_contests(planex)
    yield extraction_contest(planex)
