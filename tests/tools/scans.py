"""Small scans as files, and runs of the command on them, for the tests of the command.

Usage: scans.py FILE [NAME=JSON]... writes the range image with these arguments of save(), as
another dtype or with another shape.

Usage: scans.py points TEXT ARRAY.npy TYPE COLUMNS writes columns of a text below its heading.

Usage: scans.py frames FRAMES.pgm COUNT [DARK.pgm] writes frames with a line that climbs, and a ramp of
light in all of them.

Usage: scans.py uncertain MODEL SENSOR.tif OUTPUT UNCERTAINTY.tif... prints how far the uncertainties
of points (OUTPUT.tif.json) or of a map in floats are from those of the sensor."""
import json
import pathlib
import struct
import subprocess
import sys
import zlib

import numpy as np
import tifffile
from PIL import Image

MODEL = pathlib.Path(__file__).resolve().parents[2] / "examples/models/simulated_camera.json"
WIDTH, HEIGHT = 159, 45
# What whole_scan.cc takes for granted.
SENSOR = ["--scale-x", "16", "--origin-x", "8", "--origin-z", "160", "--sensor-height", "704"]
Y = ["--y-scale", "0.5", "--y-offset", "3"]


def run(command, *arguments):
    subprocess.run([command, *map(str, arguments)], check=True)


def range_values():
    """A roof with a groove, a step from row 20 on, and gaps."""
    row, column = np.indices((HEIGHT, WIDTH))
    height = 4000 + 30 * np.minimum(column, WIDTH - column) + 7 * row + (row >= 20) * 1500
    missing = ((column * 7 + row * 13) % 11 == 0) | (column // 4 == 15)
    return np.where(missing, 0, height + (column * 31 + row * 17) % 23).astype("u2")


def intensity_values():
    """The smallest value stands in the first row, the largest in the last."""
    values = np.arange(WIDTH * HEIGHT) * 7919 % 3000 + 500
    values[[5, -5]] = 100, 4711
    return values.astype("u2").reshape(HEIGHT, WIDTH)


def save(path, values, header=(), tags=(), mode=None, pair=False, **options):
    """A PGM; an NPY; a PNG, interlaced, or one in whose header bytes are replaced; or a TIFF, in which tags are,
    with intensities in another page."""
    path = pathlib.Path(path)
    if path.suffix == ".pgm":
        maximum, pixels = np.iinfo(values.dtype).max, values.astype(values.dtype.newbyteorder(">"))
        path.write_bytes(b"P5\n%d %d\n%d\n" % (*values.shape[::-1], maximum) + pixels.tobytes())
    elif path.suffix == ".npy":
        np.save(path, values.astype(values.dtype.newbyteorder(options.get("byteorder", "="))))
    elif options.get("interlaced"):
        rows = [b"\0" + row.tobytes()
                for y, x, dy, dx in ((0, 0, 8, 8), (0, 4, 8, 8), (4, 0, 8, 4), (0, 2, 4, 4),
                                     (2, 0, 4, 2), (0, 1, 2, 2), (1, 0, 2, 1))
                for row in values.astype(values.dtype.newbyteorder(">"))[y::dy, x::dx]]
        head = struct.pack(">IIBBBBB", *values.shape[::-1], 8 * values.itemsize, 0, 0, 0, 1)
        path.write_bytes(b"\x89PNG\r\n\x1a\n" + b"".join(
            struct.pack(">I", len(data)) + name + data + struct.pack(">I", zlib.crc32(name + data))
            for name, data in ((b"IHDR", head), (b"IDAT", zlib.compress(b"".join(rows))),
                               (b"IEND", b""))))
    elif path.suffix == ".png":
        Image.fromarray(values).convert(mode).save(path, **options)
        data = bytearray(path.read_bytes())
        for position, byte in header:
            data[position] = byte
        data[29:33] = zlib.crc32(data[12:29]).to_bytes(4, "big")
        path.write_bytes(data)
    else:
        tifffile.imwrite(path, values, metadata=None, **options)
        if pair:
            tifffile.imwrite(path, intensity_values(), metadata=None, append=True)
        with tifffile.TiffFile(path, mode="r+b") as file:
            for name, value in tags:
                file.pages[0].tags[name].overwrite(value)


def write_scan(folder):
    """range.pgm and intensity.pgm in the folder."""
    folder = pathlib.Path(folder)
    save(folder / "range.pgm", range_values())
    save(folder / "intensity.pgm", intensity_values())
    return folder


def save_frames(path, count, dark=None):
    """Images of 64 x 48 one behind the other; the line of frame k lies in row 14 + k + column / 8."""
    row, column = np.indices((48, 64))
    ramp = row // 2
    frames = [np.exp(-(row - 14 - k - column / 8)**2 / 8) * 180 + ramp for k in range(count)]
    pathlib.Path(path).write_bytes(b"".join(
        b"P5 64 48 255\n" + frame.astype("u1").tobytes() for frame in frames))
    if dark:
        save(dark, ramp.astype("u1"))


def uncertainty_error(model, sensor, output, uncertainty):
    """The largest, relative; linear between the pixels of the sensor."""
    sensor, found = tifffile.imread(sensor).astype(float), tifffile.imread(uncertainty)
    described = json.loads(pathlib.Path(uncertainty + ".json").read_text())
    turn, z_first = np.eye(2), "transform" in described
    if z_first:
        heights, line = tifffile.imread(output), described["transform"]
        row, column = np.nonzero(~np.isnan(heights))
        text = "".join(f"{line['scaleX'] * c + line['originX']!r},"
                       f"{line['scaleY'] * r + line['originY']!r},{float(heights[r, c])!r}\n"
                       for r, c in zip(row.tolist(), column.tolist()))
        system = described["system"]
        pixels = subprocess.run(["planex", "map", model, "--from", system, "--to", "pixel"],
                                input=text, capture_output=True, text=True, check=True).stdout
        u, _, v = np.array([line.split(",") for line in pixels.splitlines()], float).T
        if system == "aligned":
            pose = json.loads(pathlib.Path(model).read_text())["data"]["Pose"]
            turn = np.array(pose)[np.ix_([0, 2], [0, 2])]
    else:
        region = described["made"]["sensor"]
        row, column = np.nonzero(range_values())
        u = region["scaleX"] * column + region["originX"]
        v = region["scaleZ"] * range_values()[row, column] + region["originZ"]
    assert (~np.isnan(found)).sum() == len(found) * len(row) > 9000
    i, j = (np.clip(place, 0, size - 2).astype(int) for place, size in zip((v, u), sensor.shape[1:]))
    x, z, correlation = sensor
    figures = np.array([[x * x, x * z * correlation], [x * z * correlation, z * z]])
    b, a = v - i, u - j
    covariance = ((1 - a) * (1 - b) * figures[:, :, i, j] + a * (1 - b) * figures[:, :, i, j + 1] +
                  (1 - a) * b * figures[:, :, i + 1, j] + a * b * figures[:, :, i + 1, j + 1])
    turned = np.einsum("ia,abn,jb->ijn", turn, covariance, turn)
    wanted = np.sqrt([turned[1, 1], turned[0, 0]] if z_first else [turned[0, 0], turned[1, 1]])
    known = (u >= 0) & (u <= sensor.shape[2] - 1)  # cells may lie half a point beyond
    return np.abs(found[:2, row, column] / wanted - 1)[:, known].max()


if __name__ == "__main__":
    if sys.argv[1] == "uncertain":
        print(uncertainty_error(*sys.argv[2:]) < 0.007)
        sys.exit()
    if sys.argv[1] == "frames":
        save_frames(sys.argv[2], int(sys.argv[3]), *sys.argv[4:])
        sys.exit()
    if sys.argv[1] == "points":
        rows = np.genfromtxt(sys.argv[2], delimiter=",", skip_header=1)
        np.save(sys.argv[3], rows[:, :int(sys.argv[5])].astype(sys.argv[4]))
        sys.exit()
    changes = {name: json.loads(value) for name, value in (x.split("=", 1) for x in sys.argv[2:])}
    shape = changes.pop("shape", (HEIGHT, WIDTH))
    image = range_values().astype(changes.pop("dtype", "u2"))
    save(sys.argv[1], np.resize(image, shape), **changes)
