#!/usr/bin/python3
"""From a scan to a labelled map and a plot, with NumPy, xarray and Matplotlib.

    measure_step.py SCAN PLOT.png

SCAN is the folder that simulate_scan fills: model.json, range.pgm and its sidecar.
"""

import pathlib
import sys

import matplotlib

import planex

matplotlib.use("Agg")
folder, picture = pathlib.Path(sys.argv[1]), sys.argv[2]

# The scan: profiles x columns, where on the sensor it was taken, and how far profiles are apart.
model = planex.Model.from_file(folder / "model.json")
scan = planex.read_image(folder / "range.pgm")
beside = planex.read_sidecar(folder / "range.pgm")

# Heights in mm over a grid of 0.1 mm along the laser line, a row a profile.
grid = planex.bounds(model, beside.sensor, scan.shape[1]).grid(pixel_size=0.1)
heights = planex.height_map(model, scan, beside.sensor, grid, mode="highest",
                            y_scale=beside.y_scale, y_origin=beside.y_origin)

# A labelled array: places by their coordinates, missing cells are NaN.
z = heights.to_xarray()
ground = z.sel(x=slice(21, 28), y=slice(20, 80)).median()
step = z.sel(x=slice(-46, -20), y=slice(18, 28)).median()
print(f"{z.sizes['y']} x {z.sizes['x']} cells, {float(z.notnull().mean()):.1%} of them measured")
print(f"highest step of the gauge: {float(step - ground):.4f} mm, simulated with 20 mm")

axes = heights.plot()
axes.set_title("Height map of the simulated scan")
axes.figure.savefig(picture, dpi=120)
