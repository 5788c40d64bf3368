#!/usr/bin/python3
"""Measures with a model that was estimated from scans of a target, and compares with the truth.

    measure_with_own_model.py SCAN MODEL

SCAN is the folder that simulate_scan fills: range.pgm and its sidecar, truth.txt, and model.json,
which only the comparison reads. Fails where something is farther off than MODEL states.

The frame of MODEL is that in which the target was scanned, so the scan is levelled by the plate,
and its X begins at the highest step, whose place on the gauge is known.
"""

import pathlib
import sys

import numpy as np

import planex

COVERAGE = 1.96  # of standard deviations: 95 %

folder, own = pathlib.Path(sys.argv[1]), sys.argv[2]
model = planex.Model.from_file(own)
uncertainty = planex.MapUncertainty.from_file(own)
scan = planex.read_image(folder / "range.pgm")
beside = planex.read_sidecar(folder / "range.pgm")
sensor = beside.sensor
y = beside.y(scan.shape[0])[:, np.newaxis]

steps = []
for line in (folder / "truth.txt").read_text().splitlines():
    kind, name, true, *region = line.split()
    if kind == "step" and name.startswith("step_"):
        steps.append((name, float(true), [float(limit) for limit in region[:4]]))

# Places in the laser plane, turned so that the plate in front of the gauge is level and at 0.
x, z = (part.astype(np.float64) for part in planex.calibrate(model, scan, sensor))
plate = (y < 10) & np.isfinite(z)
slope, offset = np.polyfit(x[plate], z[plate], 1)
length = np.hypot(1, slope)
x, height = (x + slope * (z - offset)) / length, (z - slope * x - offset) / length

# The middle of the highest step stands where the drawing has it.
_, highest, (x_min, x_max, y_min, y_max) = max(steps, key=lambda step: step[1])
top = x[(y > y_min) & (y < y_max) & (height > highest - 2)]
x += 0.5 * (x_min + x_max) - 0.5 * (top.min() + top.max())


def standard_uncertainties(where):
    """Of heights at the pixels of the scan that `where` names, at most a thousand of them."""
    profile, column = np.nonzero(where)
    some = slice(None, None, len(profile) // 1000 + 1)
    profile, column = profile[some], column[some]
    values = scan[profile, column]
    u = sensor.scale_x * column + sensor.origin_x
    v = sensor.scale_z * values + sensor.origin_z
    return x[profile, column], np.sqrt(uncertainty(u, v).zz)


failed = False
plate_x, plate_u = standard_uncertainties(plate)
print(f"{'':12} true [mm]  measured [mm]  deviation [um]  stated, 95 % [um]")
for name, true, (x_min, x_max, y_min, y_max) in steps:
    on_step = (x > x_min) & (x < x_max) & (y > y_min) & (y < y_max)
    measured = float(np.nanmean(height[on_step]))
    # A step is its height less that of the line through the plate, a weighted sum of places. How
    # their errors go together is not asked for: this is the most that it can be.
    step_x, step_u = standard_uncertainties(on_step)
    from_mean = plate_x - plate_x.mean()
    reach = step_x.mean() - plate_x.mean()
    weights = 1 / len(plate_x) + reach * from_mean / (from_mean**2).sum()
    stated = COVERAGE * (step_u.mean() + (abs(weights) * plate_u).sum())
    deviation = measured - true
    failed = failed or abs(deviation) > stated
    print(f"{name:12} {true:9.3f} {measured:14.4f} {1e3 * deviation:+15.1f} {1e3 * stated:18.1f}")

# The map over the sensor beside the true one, after the motion that brings them nearest.
columns, rows = model.sensor_size
u, v = np.meshgrid(np.linspace(0, columns - 1, 129), np.linspace(0, rows - 1, 65))
measured = uncertainty.is_measured(u, v)
pixels = np.stack([u[measured], v[measured]], axis=-1)
truth = planex.Model.from_file(folder / "model.json")
p, q = (planex.map_points(m, pixels, "pixel", "calibrated") @ [1, 1j] for m in (model, truth))
p, q = p - p.mean(), q - q.mean()
turn = np.vdot(p, q)
distance = abs(q - p * turn / abs(turn))
rms = np.sqrt(np.mean(distance**2))
covariance = uncertainty(*pixels.T)
stated = np.sqrt(np.mean(covariance.xx + covariance.zz))
print(f"the map over {uncertainty.measured:.0%} of the sensor, beside the true one:")
print(f"off by {1e3 * rms:11.1f} um rms, {1e3 * distance.max():.1f} at most")
print(f"stated {1e3 * stated:11.1f} um rms, {1e3 * uncertainty.largest_95:.1f} at most (95 %)")
sys.exit(int(failed))
