#!/usr/bin/python3
"""Measures planex.estimate beside OpenCV's calibrateCamera, on the same points of one plane.

    bench/estimation_bench.py [--build DIR] [--trials N]

Simulated cameras with known truth look at a laser plane: lens, Scheimpflug terms and bent sheet are
as far from ideal as real ones are, and once more the sheet is plane and the lens without
Scheimpflug terms, as that of OpenCV. Both get 800 points with 0.05 pixels of noise; errors are
those of the map from the sensor to the plane, over the whole sensor. OpenCV's stated deviation of
the focal length is compared with how it scatters over noise. Build type Release, and
-DPLANEX_BUILD_PYTHON=ON.
"""

import argparse
import pathlib
import sys
import time

import cv2
import numpy as np

ROOT = pathlib.Path(__file__).parents[1]
COLUMNS, ROWS, POINTS, NOISE = 2560, 1024, 800, 0.05
RADIUS = np.hypot(COLUMNS, ROWS) / 2


class Camera:
    """From the sensor to the plane: lens, projection, sheet; in formulas of its own."""

    def __init__(self, random, is_simple):
        field, angle = random.uniform(60, 200), np.radians(random.uniform(25, 45))
        distance = field * random.uniform(2, 5)
        zoom = COLUMNS * distance / field / RADIUS
        to_sensor = np.array([[zoom, 0, 0], [0, -zoom * np.sin(angle), 0],
                              [0, -np.cos(angle), distance]])
        self.homography = np.linalg.inv(to_sensor)
        self.lens = 0.7 * random.standard_normal(5) * [0.05, 0.015, 0.005, 0.005, 0.005]
        width = field / 2
        scheimpflug = 0.7 * random.standard_normal(2) * 0.01
        sheet = 0.7 * random.standard_normal(3) * [0.5 / width, 0.01 / width, 0.01 / width**2]
        self.scheimpflug = scheimpflug * (not is_simple)
        self.sheet = sheet * (not is_simple)

    def map(self, pixels):
        x = (pixels[:, 0] - (COLUMNS - 1) / 2) / RADIUS
        y = (pixels[:, 1] - (ROWS - 1) / 2) / RADIUS
        k1, k2, k3, p1, p2 = self.lens
        square = x * x + y * y
        radial = 1 + square * (k1 + square * (k2 + square * k3))
        a = x * radial + 2 * p1 * x * y + p2 * (square + 2 * x * x) + self.scheimpflug[0] * square
        b = y * radial + p1 * (square + 2 * y * y) + 2 * p2 * x * y + self.scheimpflug[1] * square
        plane = self.homography @ np.stack([a, b, np.ones_like(a)])
        x, z = plane[:2] / plane[2]
        bent = x * (1 + self.sheet[0] * z)
        return np.stack([x, z + self.sheet[1] * bent**2 + self.sheet[2] * bent**3], axis=1)


def ours(planex, pixels, places, grid):
    found = planex.estimate(*pixels.T, *places.T, sensor_size=(COLUMNS, ROWS))
    system = "aligned" if "ALIGNED" in str(found.model.state) else "calibrated"
    covariance = found.uncertainty(*grid.T)
    return planex.map_points(found.model, grid, "pixel", system), covariance


def opencv(pixels, places, grid):
    """The map by the peer's camera: a ray through the pixel meets the plane."""
    objects = np.column_stack([places, np.zeros(len(places))]).astype(np.float32)
    guess = np.array([[3 * COLUMNS, 0, (COLUMNS - 1) / 2], [0, 3 * COLUMNS, (ROWS - 1) / 2],
                      [0, 0, 1.0]])
    flags = (cv2.CALIB_USE_INTRINSIC_GUESS | cv2.CALIB_FIX_ASPECT_RATIO
             | cv2.CALIB_FIX_PRINCIPAL_POINT)
    rms, matrix, lens, turns, shifts, deviations, *_ = cv2.calibrateCameraExtended(
        [objects], [pixels.astype(np.float32)], (COLUMNS, ROWS), guess, None, flags=flags,
        criteria=(cv2.TERM_CRITERIA_COUNT | cv2.TERM_CRITERIA_EPS, 300, 1e-12))
    rays = cv2.undistortPoints(grid[:, None], matrix, lens)[:, 0]
    turn, shift = cv2.Rodrigues(turns[0])[0], shifts[0]
    to_plane = np.linalg.inv(np.column_stack([turn[:, :2], shift]))
    plane = to_plane @ np.column_stack([rays, np.ones(len(rays))]).T
    return (plane[:2] / plane[2]).T, rms, matrix[0, 0], deviations[1, 0]


def rms_of(errors):
    return 1e3 * np.sqrt((errors**2).sum(axis=1).mean())


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--build", type=pathlib.Path, default=ROOT / "build/release")
    parser.add_argument("--trials", type=int, default=20)
    options = parser.parse_args()
    sys.path.insert(0, str(options.build.resolve() / "python"))
    import planex

    u, v = np.meshgrid(np.linspace(0, COLUMNS - 1, 17), np.linspace(0, ROWS - 1, 9))
    grid = np.column_stack([u.ravel(), v.ravel()])
    print("| camera | planex, map | its 95 % hold | OpenCV, map | its reprojection | its f, scatter "
          "over stated |")
    print("|---|---|---|---|---|---|")
    spent = np.zeros(2)
    for is_simple in (False, True):
        errors, peers, reprojections, held, scatters = [], [], [], [], []
        for trial in range(options.trials):
            random = np.random.default_rng(trial)
            camera = Camera(random, is_simple)
            truth, lengths, stated = camera.map(grid), [], []
            for draw in range(4):
                pixels = random.uniform((0, 0), (COLUMNS - 1, ROWS - 1), (POINTS, 2))
                places = camera.map(pixels)
                seen = pixels + NOISE * random.standard_normal(pixels.shape)
                seen = seen.clip(0, (COLUMNS - 1, ROWS - 1))
                start = time.process_time()
                found, (xx, xz, zz) = ours(planex, seen, places, grid)
                between = time.process_time()
                peer, rms, length, deviation = opencv(seen, places, grid)
                spent += between - start, time.process_time() - between
                x, z = (found - truth).T
                squares = (zz * x * x - 2 * xz * x * z + xx * z * z) / (xx * zz - xz * xz)
                held.append((squares < 5.991).mean())
                errors.append(rms_of(found - truth))
                peers.append(rms_of(peer - truth))
                reprojections.append(rms)
                lengths.append(length)
                stated.append(deviation)
            scatters.append(np.std(lengths, ddof=1) / np.mean(stated))
        name = "plane sheet, lens without Scheimpflug" if is_simple else "Scheimpflug lens, bent sheet"
        print(f"| {name} | {np.median(errors):.2f} um | {np.mean(held):.1%} | "
              f"{np.median(peers):.2f} um | {np.median(reprojections):.3f} pixels | "
              f"{np.median(scatters):.2f} |")
    each = spent / (8 * options.trials)
    print(f"seconds of processor for {POINTS} points: planex {each[0]:.3f}, OpenCV {each[1]:.3f}")


if __name__ == "__main__":
    main()
