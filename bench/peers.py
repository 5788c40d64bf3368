"""What one would write instead of planex, with NumPy, SciPy, OpenCV and GMT."""

import resource
import subprocess

import numpy as np

from interface import CAMERA, FRAME_ROWS, HEIGHT, WIDTH

try:
    import cv2
    cv2.setNumThreads(1)
except ImportError:
    cv2 = None
try:
    import scipy.stats
except ImportError:
    scipy = None


# ----- calibration -----

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


class OpencvCalibration:
    """Float matrices, the lens terms factored as g = radial + 2 c3 y + 2 c4 x, in strips of rows
    that stay in the cache, all buffers made beforehand."""

    ROWS = 40

    def __init__(self):
        c = CAMERA["c"]
        strip = lambda v: np.tile(v.astype(np.float32), (self.ROWS, 1))
        x = (np.arange(WIDTH) - CAMERA["cx"]) / CAMERA["f"]
        self.x, self.xx, self.column_term = strip(x), strip(x * x), strip(1 + 2 * c[4] * x)
        self.nan = np.full((self.ROWS, WIDTH), np.nan, np.float32)
        self.buffers = [np.empty((self.ROWS, WIDTH), np.float32) for _ in range(5)]
        self.mask = np.empty((self.ROWS, WIDTH), np.uint8)
        self.out = np.empty((2, HEIGHT, WIDTH), np.float32)

    def __call__(self, samples):
        for row in range(0, HEIGHT, self.ROWS):
            self.strip(samples[row:row + self.ROWS], *self.out[:, row:row + self.ROWS])
        return self.out

    def strip(self, samples, xw, zw):
        f, cy, c, h = CAMERA["f"], CAMERA["cy"], CAMERA["c"], CAMERA["h"]
        y, r2, g, a, b = self.buffers
        cv2.addWeighted(samples, 1 / (16 * f), samples, 0, -cy / f, y, cv2.CV_32F)
        cv2.multiply(y, y, r2)
        cv2.add(r2, self.xx, r2)
        cv2.addWeighted(r2, c[2], r2, 0, c[1], g)
        cv2.multiply(g, r2, g)
        cv2.add(g, c[0], g)
        cv2.multiply(g, r2, g)
        cv2.scaleAdd(y, 2 * c[3], g, g)
        cv2.add(g, self.column_term, g)
        cv2.multiply(self.x, g, a)
        cv2.scaleAdd(r2, c[4] + c[5], a, a)
        cv2.multiply(y, g, b)
        cv2.scaleAdd(r2, c[3] + c[6], b, b)
        cv2.addWeighted(a, h[2][0], b, h[2][1], h[2][2], g)
        cv2.addWeighted(a, h[0][0], b, h[0][1], h[0][2], xw)
        cv2.addWeighted(a, h[1][0], b, h[1][1], h[1][2], zw)
        cv2.divide(xw, g, xw)
        cv2.divide(zw, g, zw)
        cv2.compare(samples, 0, cv2.CMP_EQ, self.mask)
        cv2.copyTo(self.nan, self.mask, xw)
        cv2.copyTo(self.nan, self.mask, zw)


def opencv_perspective(samples):
    """Whole float matrices as one writes them down, the projection by perspectiveTransform."""
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


# ----- rectification: a height level for each cell, 0 without points -----

def levels_of(grid):
    """Factor and offset from Z to height levels."""
    step = (grid.zMax - grid.zMin) / (grid.zLevels - 2)
    return np.float32(1 / step), np.float32(1 - grid.zMin / step)


def cells_of(x, z, grid):
    """Cell number and height level of every point that has both."""
    scale, offset = levels_of(grid)
    height = z * scale + offset
    column = (x - np.float32(grid.xMin)) * np.float32((grid.xCount - 1) / (grid.xMax - grid.xMin))
    used = (column > -0.5) & (column < grid.xCount - 0.5) & (height >= 1) & (height < 65536)
    row, _ = np.nonzero(used)
    return row * grid.xCount + (column[used] + np.float32(0.5)).astype(np.int64), height[used]


def numpy_minimum(x, z, grid):
    cells, heights = cells_of(x, z, grid)
    lowest = np.full(grid.xCount * HEIGHT, 65536, np.float32)
    np.minimum.at(lowest, cells, heights)
    lowest[lowest == 65536] = 0
    return lowest


def numpy_sort(x, z, grid):
    cells, heights = cells_of(x, z, grid)
    keys = np.sort((cells << 16) | heights.astype(np.int64))
    cells = keys >> 16
    first = np.r_[True, cells[1:] != cells[:-1]]
    lowest = np.zeros(grid.xCount * HEIGHT, np.float32)
    lowest[cells[first]] = keys[first] & 0xFFFF
    return lowest


def numpy_bincount(x, z, grid):
    cells, heights = cells_of(x, z, grid)
    size = grid.xCount * HEIGHT
    return np.bincount(cells, heights, size) / np.maximum(np.bincount(cells, minlength=size), 1)


def scipy_mean(x, z, grid):
    cells, heights = cells_of(x, z, grid)
    size = grid.xCount * HEIGHT
    return np.nan_to_num(scipy.stats.binned_statistic(
        cells, heights, "mean", bins=size, range=(-0.5, size - 0.5)).statistic)


class GmtLowest:
    """gmt xyz2grd over a binary file of points; what one point costs is taken off."""

    def __init__(self, x, z, grid, folder):
        cells, heights = cells_of(x, z, grid)
        points = np.stack([cells % WIDTH + 0.5, HEIGHT - 0.5 - cells // WIDTH, heights], 1)
        self.files = {"all": f"{folder}/points.bin", "one": f"{folder}/one.bin"}
        self.grid = f"{folder}/out.grd"
        points.astype(np.float64).tofile(self.files["all"])
        points[:1].astype(np.float64).tofile(self.files["one"])

    def run(self, which):
        """Seconds of processor time."""
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        subprocess.run(["gmt", "xyz2grd", self.files[which], "-bi3d", "-Al", "-r", "-I1/1",
                        f"-R0/{WIDTH}/0/{HEIGHT}", f"-G{self.grid}=bf"],
                       check=True, capture_output=True, cwd=self.grid.rpartition("/")[0])
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        return after.ru_utime - before.ru_utime + after.ru_stime - before.ru_stime

    def seconds(self):
        return self.run("all") - self.run("one")

    def result(self):
        self.run("all")
        return np.nan_to_num(np.fromfile(self.grid, np.float32)[-WIDTH * HEIGHT:])


# ----- extraction: the row of the brightest line in every column of a frame -----

LEVEL = 40  # what is darker counts for nothing


def numpy_gravity(frame):
    """Whole-frame expressions."""
    weight = np.where(frame > LEVEL, frame - np.float32(LEVEL), 0)
    return (np.arange(FRAME_ROWS, dtype=np.float32) @ weight) / weight.sum(0)


class NumpyGravity:
    """Both sums as one product of matrices, in strips of rows that stay in the cache."""

    ROWS = 32

    def __init__(self, frame):
        self.frame = frame
        self.factors = np.stack([np.arange(FRAME_ROWS), np.ones(FRAME_ROWS)]).astype(np.float32)
        self.above = np.empty((self.ROWS, WIDTH), np.uint8)
        self.weight = np.empty((self.ROWS, WIDTH), np.float32)

    def __call__(self):
        sums = np.zeros((2, WIDTH), np.float32)
        for row in range(0, FRAME_ROWS, self.ROWS):
            np.maximum(self.frame[row:row + self.ROWS], LEVEL, out=self.above)
            np.subtract(self.above, LEVEL, out=self.weight, dtype=np.float32)
            sums += self.factors[:, row:row + self.ROWS] @ self.weight
        return sums[0] / sums[1]


class OpencvDerivative:
    """A smooth derivative along the columns, its greatest value, and the zero behind it."""

    REACH = 9

    def __init__(self, frame, separable):
        k = np.arange(-self.REACH + 1, self.REACH)
        self.taps = (k * (self.REACH**2 - k**2) ** 2 / 1e4).astype(np.float32)[:, None]
        self.frame, self.filtered = frame, np.empty(frame.shape, np.float32)
        self.separable = separable

    def __call__(self):
        options = dict(dst=self.filtered, borderType=cv2.BORDER_REPLICATE)
        if self.separable:
            cv2.sepFilter2D(self.frame, cv2.CV_32F, np.ones(1, np.float32), self.taps, **options)
        else:
            cv2.filter2D(self.frame, cv2.CV_32F, self.taps, **options)
        steepest = cv2.reduceArgMax(self.filtered, 0)[0]
        near = np.minimum(steepest + np.arange(2 * self.REACH)[:, None], FRAME_ROWS - 1)
        slopes = np.take_along_axis(self.filtered, near, 0)
        last = np.argmax(slopes <= 0, 0) - 1
        columns = np.arange(WIDTH)
        before, after = slopes[last, columns], slopes[last + 1, columns]
        return steepest + last + before / (before - after)
