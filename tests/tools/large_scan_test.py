"""Usage: large_scan_test.py PLANEX SCAN. Scans larger than memory: the simulated scan over and over,
in bounded memory, with outputs beyond 4 GB. Needs some 6 GB on the disk of $TMPDIR and minutes."""
import pathlib
import subprocess
import sys
import tempfile
import time

import numpy as np
from osgeo import gdal

PLANEX, SCAN = sys.argv[1], pathlib.Path(sys.argv[2])
WIDTH, PROFILES, COPIES, MANY_COPIES = 2560, 1000, 100, 150
MOST_MEMORY = 300e6
gdal.UseExceptions()


def run(folder, command, output, *arguments):
    start = time.monotonic()
    done = subprocess.run(["/usr/bin/time", "-f", "%M", PLANEX, command, SCAN / "model.json",
                           folder / "range.pgm", "-o", folder / output, "-q", "--origin-z", "160",
                           "--y-scale", "0", *arguments],
                          check=True, stderr=subprocess.PIPE, text=True)
    memory = int(done.stderr) * 1024
    size = (folder / output).stat().st_size
    print(f"{command} {output}: {time.monotonic() - start:.1f} s, {size / 1e9:.2f} GB, "
          f"{memory / 1e6:.0f} MB of memory", flush=True)
    assert memory < MOST_MEMORY, memory


def write_scan(path, name, copies):
    data = (SCAN / name).read_bytes()
    header, pixels = data[:data.index(b"\n", 15) + 1], data[data.index(b"\n", 15) + 1:]
    with open(path, "wb") as file:
        file.write(header.replace(b" 1000\n", b" %d\n" % (copies * PROFILES)))
        for _ in range(copies):
            file.write(pixels)


def check_periodic(path, copies):
    """Every copy of the scan gives what the first one gives."""
    image = gdal.Open(str(path))
    assert image.RasterYSize == copies * PROFILES
    first = image.ReadAsArray(0, 0, WIDTH, PROFILES)
    assert (np.nan_to_num(first) != 0).mean() > 0.5
    for copy in range(1, copies):
        np.testing.assert_array_equal(image.ReadAsArray(0, copy * PROFILES, WIDTH, PROFILES), first)


with tempfile.TemporaryDirectory() as name:
    folder = pathlib.Path(name)
    write_scan(folder / "range.pgm", "range.pgm", COPIES)
    write_scan(folder / "intensity.pgm", "intensity.pgm", COPIES)
    run(folder, "rectify", "map.tif", "--intensity", folder / "intensity.pgm", "--preview",
        folder / "preview.png")
    check_periodic(folder / "map.tif", COPIES)
    run(folder, "rectify", "map.png")
    check_periodic(folder / "map.png", COPIES)
    for output in ("points.tif", "points.ply"):
        run(folder, "calibrate", output)
        (folder / output).unlink()

    write_scan(folder / "range.pgm", "range.pgm", MANY_COPIES)
    run(folder, "calibrate", "big.tif", "--aligned")
    with open(folder / "big.tif", "rb") as file:
        assert file.read(4) == b"II+\0", "not a BigTIFF"
    check_periodic(folder / "big.tif", MANY_COPIES)
