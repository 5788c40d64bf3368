"""Small scans as files, and runs of the command on them, for the tests of the command.

Usage: scans.py FILE [NAME=JSON]... writes the range image with these arguments of save(), as
another dtype or with another shape."""
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


if __name__ == "__main__":
    changes = {name: json.loads(value) for name, value in (x.split("=", 1) for x in sys.argv[2:])}
    shape = changes.pop("shape", (HEIGHT, WIDTH))
    image = range_values().astype(changes.pop("dtype", "u2"))
    save(sys.argv[1], np.resize(image, shape), **changes)
