#!/usr/bin/python3
"""Compares a height map made from frames with the truth, and with what explains the difference.

    measure_lines.py SCAN LINES MAP

SCAN is the folder that simulate_frames and simulate_scan fill: frames.json and model.json. LINES is
the range image that `planex extract --method cog` made of the frames, MAP the height map of `planex
rectify --float`. Fails where something is farther off, or noisier, than explained.
"""

import json
import math
import pathlib
import sys

import numpy as np

import planex

# The window of the centre of gravity, 2.5 sigma to either side, goes along with every error: light
# that leaves it at one end and enters at the other moves the centre by this much more.
FOLLOWING = 1 / (1 - 2 * 2.5 * math.exp(-(2.5**2) / 2) / math.sqrt(2 * math.pi))

folder, lines, map_file = pathlib.Path(sys.argv[1]), sys.argv[2], sys.argv[3]
frames = json.loads((folder / "frames.json").read_text())
model = planex.Model.from_file(folder / "model.json")
beside = planex.read_sidecar(lines)
sensor = beside.sensor
heights = planex.HeightMap.from_file(map_file)
scan = planex.read_image(lines)

# The standard deviation of one point: in rows, and by the height that a row is there in mm.
sigma, levels = frames["sigma"], frames["levels"]
photons = levels * sigma * math.sqrt(2 * math.pi) / frames["gain"]
in_rows = {
    "speckle": FOLLOWING * frames["speckle"] * math.sqrt(sigma / (4 * math.sqrt(math.pi))),
    "shot noise": FOLLOWING * sigma / math.sqrt(photons),
    "rounding": sensor.scale_z / math.sqrt(12),
}
point_rows = math.hypot(*in_rows.values())

x, z = planex.calibrate(model, scan, sensor)
y = beside.y(scan.shape[0])[:, np.newaxis]


def points_in(region):
    """Which points of the scan lie there."""
    x_min, x_max, y_min, y_max = region
    return (x > x_min) & (x < x_max) & (y > y_min) & (y < y_max)


def noise_in(region):
    """The number of points there, their measured and their explained standard deviation."""
    where = points_in(region)
    u = sensor.scale_x * np.nonzero(where)[1].mean() + sensor.origin_x
    v = sensor.scale_z * scan[where].mean() + sensor.origin_z
    ends = np.array([[u, v - 0.5], [u, v + 0.5]])
    low, high = planex.map_points(model, ends, "pixel", "calibrated")[:, 1]
    return where.sum(), z[where].std(), abs(high - low) * point_rows


def height_of(region):
    """The mean of the map there."""
    x_min, x_max, y_min, y_max = region
    columns = (heights.x > x_min) & (heights.x < x_max)
    rows = (heights.y > y_min) & (heights.y < y_max)
    return float(np.nanmean(heights.z[np.ix_(rows, columns)]))


plate = height_of(frames["plate"])
plate_count, _, plate_noise = noise_in(frames["plate"])
failed = False
print("one point: " + ", ".join(f"{name} {rows:.3f}" for name, rows in in_rows.items())
      + f", together {point_rows:.3f} rows")
print("true [mm]  measured [mm]  deviation [um]  explained [um]   noise [um]  explained [um]")
for step in frames["steps"]:
    measured = height_of(step["region"]) - plate
    count, noise, explained_noise = noise_in(step["region"])
    deviation = measured - step["height"]
    explained = 3 * math.hypot(explained_noise / math.sqrt(count),
                               plate_noise / math.sqrt(plate_count))
    failed = failed or abs(deviation) > explained or noise > 1.1 * explained_noise
    print(f"{step['height']:9.3f} {measured:14.5f} {1e3 * deviation:+15.2f} "
          f"{'+-':>9}{1e3 * explained:.2f} {1e3 * noise:14.1f} {1e3 * explained_noise:15.1f}")
sys.exit(int(failed))
