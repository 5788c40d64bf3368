"""Usage: demo_scene_test.py PLANEX SCAN. Whether rectify, in its mode mean, recovers the simulated
scene. Status 77: NumPy or tifffile are not installed."""
import json
import pathlib
import subprocess
import sys
import tempfile

try:
    import numpy as np
    import tifffile
except ImportError as error:
    print(f"skipped: {error}")
    sys.exit(77)

PLANEX, SCAN = sys.argv[1], pathlib.Path(sys.argv[2])
RANGE_STEP, REGION_ROWS, FIRST_ROW, PROFILE_SPACING = 1 / 16, 704, 160, 0.1
SENSOR = ["--origin-z", str(FIRST_ROW), "--sensor-height", str(REGION_ROWS)]
ROW_NOISE = np.hypot(0.1, RANGE_STEP / np.sqrt(12))  # of the line, and of its rounding; rows
PLATE = 0.0


def run(*arguments):
    return subprocess.run([PLANEX, *map(str, arguments)], check=True, capture_output=True,
                          text=True).stdout


bounds = json.loads(run("bounds", SCAN / "model.json", *SENSOR, "--json"))
with tempfile.TemporaryDirectory() as folder:
    output = pathlib.Path(folder) / "heights.tif"
    run("rectify", SCAN / "model.json", SCAN / "range.pgm", "-o", output, "--float", *SENSOR,
        "--y-scale", PROFILE_SPACING)
    heights = tifffile.imread(output).astype(float)
    grid = json.loads((pathlib.Path(folder) / "heights.tif.json").read_text())["transform"]

pitch, step = grid["scaleX"], bounds["transform"]["scaleZ"]
x = grid["scaleX"] * np.arange(heights.shape[1]) + grid["originX"]
y = grid["scaleY"] * np.arange(heights.shape[0]) + grid["originY"]
row_height = (bounds["bounds"]["zMax"] - bounds["bounds"]["zMin"]) / REGION_ROWS
noise = ROW_NOISE * row_height  # of one point, in Z
failures = []


def region(limits):
    """The cells of xMin xMax yMin yMax, and their X."""
    columns = np.nonzero((x >= limits[0]) & (x < limits[1]))[0]
    rows = np.nonzero((y >= limits[2]) & (y < limits[3]))[0]
    return heights[rows[0]:rows[-1] + 1, columns[0]:columns[-1] + 1], x[columns]


def half_width(z):
    """Columns to each side of its own that a point at that height is spread over."""
    spacing = bounds["splat"]["splatA"] * z + bounds["splat"]["splatB"]
    return np.round(0.55 * spacing / pitch)


def check_cells(name, cells, truth, slope):
    """Every cell lies within a height step, what the slope makes of the width of a point and of a
    cell, and noise: 5 deviations of one point, as many a cell has more."""
    explained = step + slope * (half_width(truth) + 0.5) * pitch + 5 * noise * (1 + 0.2 * slope)
    off = np.abs(cells - truth)
    print(f"{name}: largest deviation {1e3 * np.nanmax(off):.2f} um, "
          f"{np.nanmax(off / explained):.2f} of what is explained")
    if not np.isfinite(cells).mean() > 0.9 or np.nanmax(off / explained) > 1:
        failures.append(name)


for line in (SCAN / "truth.txt").read_text().splitlines():
    kind, name, truth, *limits = line.split()
    truth, limits = float(truth), [float(limit) for limit in limits]
    cells, columns = region(limits[:4])
    if kind == "step":
        below, _ = region(limits[4:])
        deviation = np.nanmean(cells) - np.nanmean(below) - truth
        expected = 4 * noise * np.sqrt(1 / cells.size + 1 / below.size)
        print(f"{name}: deviation {1e3 * deviation:+.3f} um, explained {1e3 * expected:.3f} um")
        if not abs(deviation) <= expected:
            failures.append(name)
        if name != "groove_depth":
            check_cells(name, cells, np.full(cells.shape[1], PLATE + truth), 0)
            check_cells(name + " plate", below, np.full(below.shape[1], PLATE), 0)
    elif kind == "radius":
        radius, center = truth, 40.0
        across = columns - center
        check_cells("cylinder", cells, radius + np.sqrt(radius**2 - across**2),
                    np.abs(across) / np.sqrt(radius**2 - across**2))

if failures:
    print("not recovered:", ", ".join(failures))
sys.exit(1 if failures else 0)
