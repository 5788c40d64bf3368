"""Usage: large_scan_test.py PLANEX SCAN. A scan larger than memory: the simulated one over and
over, in bounded memory, with outputs beyond 4 GB. Needs some 7 GB on the disk of $TMPDIR, and
minutes."""
import pathlib
import resource
import sys
import tempfile

import numpy as np
import scans
from osgeo import gdal

PLANEX, SCAN = sys.argv[1], pathlib.Path(sys.argv[2])
WIDTH, PROFILES, COPIES = 2560, 1000, 150
MOST_MEMORY = 300e6
gdal.UseExceptions()


def repeat(name, path):
    data = (SCAN / name).read_bytes()
    begin = data.index(b"\n", 15) + 1  # of the pixels
    with open(path, "wb") as file:
        file.write(data[:begin].replace(b" 1000\n", b" %d\n" % (COPIES * PROFILES)))
        for _ in range(COPIES):
            file.write(data[begin:])


def check_periodic(path):
    """Every copy of the scan gives what the first one gives."""
    image = gdal.Open(str(path))
    assert image.RasterYSize == COPIES * PROFILES
    first = image.ReadAsArray(0, 0, WIDTH, PROFILES)
    assert (np.nan_to_num(first) != 0).mean() > 0.5
    for row in range(PROFILES, COPIES * PROFILES, PROFILES):
        np.testing.assert_array_equal(image.ReadAsArray(0, row, WIDTH, PROFILES), first)


with tempfile.TemporaryDirectory() as name:
    folder = pathlib.Path(name)
    image, intensity = folder / "range.pgm", folder / "intensity.pgm"
    repeat("range.pgm", image)
    repeat("intensity.pgm", intensity)
    for command, output, *options in (
            ("rectify", "map.tif", "--intensity", intensity, "--preview", folder / "preview.png"),
            ("rectify", "map.png"),
            ("calibrate", "points.ply"),
            ("calibrate", "big.tif", "--aligned")):
        path = folder / output
        scans.run(PLANEX, command, SCAN / "model.json", image, "-o", path, "-q",
                  "--origin-z", "160", "--y-scale", "0", *options)
        memory = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss * 1024  # the most so far
        print(f"{output}: {path.stat().st_size / 1e9:.2f} GB, {memory / 1e6:.0f} MB of memory")
        assert memory < MOST_MEMORY
        if output != "points.ply":
            check_periodic(path)
        if output == "big.tif":
            assert path.open("rb").read(4) == b"II+\0", "not a BigTIFF"
        path.unlink()
