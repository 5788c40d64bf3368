"""Usage: read_back_test.py READER PLANEX WHOLE_SCAN. Reads what the command writes with programs of
others: gdal, PIL, numpy or open3d. Status 77: the reader is not installed."""
import struct
import sys
import tempfile

import scans
from scans import HEIGHT, MODEL, SENSOR, WIDTH, Y

READER, PLANEX, WHOLE_SCAN = sys.argv[1:]
try:
    import numpy as np
    if READER == "gdal":
        from osgeo import gdal
        gdal.UseExceptions()
    elif READER == "PIL":
        from PIL import Image
    elif READER == "open3d":
        import open3d
except ImportError as error:
    print(f"skipped: {READER} cannot be imported: {error}")
    sys.exit(77)

# A file, how it is made, and what should be in it.
POINTS, ALIGNED = ["x.f32", "z.f32"], ["xa.f32", "ya.f32", "za.f32"]
MODES = ["mean", "lowest", "highest", "darkest", "brightest"]
FILES = {
    "map.png": ("rectify --intensity", "mean_levels.u16"),
    "map_intensity.png": (None, "mean_grey.u8"),
    "small.tif": ("rectify --compress deflate --intensity", "mean_levels.u16"),
    "small_intensity.tif": (None, "mean_grey.u8"),
    "part.tif": ("rectify --rows 11:30 --intensity", "mean_levels.u16"),
    "part_intensity.tif": (None, "mean_grey.u8"),
    "nodata.tif": ("rectify --float --nodata -9999 --compress deflate", "mean_heights.f32"),
    "points.tif": ("calibrate", POINTS),
    "zstd.tif": ("calibrate --compress zstd", POINTS),
    "aligned.tif": ("calibrate --aligned", ALIGNED),
    "points.npy": ("calibrate", POINTS),
    "part.npy": ("calibrate --rows 11:30", POINTS),
    "aligned.npy": ("calibrate --aligned", ALIGNED),
    "aligned.ply": ("calibrate --aligned", ALIGNED),
    "points.ply": ("calibrate --intensity", POINTS),
    "aligned.pcd": ("calibrate --intensity --aligned", ALIGNED),
    "kept.pcd": ("calibrate --drop-missing --intensity", None),
    "kept.csv": ("calibrate --intensity", None),
    "kept.las": ("calibrate --intensity", None),
    "mesh.ply": ("calibrate --mesh 2", None),
}
for mode in MODES:
    FILES[f"{mode}.tif"] = (f"rectify --mode {mode} --intensity", f"{mode}_levels.u16")
    FILES[f"{mode}_intensity.tif"] = (None, f"{mode}_grey.u8")
    FILES[f"{mode}_float.tif"] = (f"rectify --float --mode {mode} --intensity",
                                  f"{mode}_heights.f32")
# The files that a reader takes, and how.
TIFFS = [name for name in FILES if name.endswith(".tif")]
READERS = {
    "gdal": (TIFFS + ["map.png"], lambda path: gdal.Open(path).ReadAsArray()),
    "PIL": (["map.png", "map_intensity.png", "small_intensity.tif"],
            lambda path: np.asarray(Image.open(path))),
    "numpy": (["points.npy", "part.npy", "aligned.npy", "aligned.ply"],
              lambda path: np.moveaxis(open_points(path), 2, 0)),
    "open3d": (["aligned.pcd"], lambda path: open_cloud(path)[0]),
}


def wanted(names):
    def layer(name):
        kind = {"f32": "<f4", "u16": "<u2", "u8": "u1"}[name.split(".")[1]]
        return np.fromfile(folder / name, kind).reshape(HEIGHT, WIDTH)
    return layer(names) if isinstance(names, str) else np.stack([layer(name) for name in names])


def open_points(path):
    if path.endswith(".npy"):
        return np.load(path)
    data = np.fromfile(path, "u1")[-12 * WIDTH * HEIGHT:]  # behind the header
    return data.view("<f4").reshape(HEIGHT, WIDTH, 3)


def open_cloud(path):
    cloud = open3d.t.io.read_point_cloud(path, remove_nan_points=False,
                                         remove_infinite_points=False)
    points = cloud.point["positions"].numpy().reshape(HEIGHT, WIDTH, 3)
    return np.moveaxis(points, 2, 0), cloud.point["intensity"].numpy().reshape(HEIGHT, WIDTH)


def kept():
    """The points of the rows, and which of them a file without missing points has."""
    x, z = wanted(POINTS)
    y = np.where(np.isnan(z), np.nan, 0.5 * np.arange(HEIGHT)[:, None] + 3).astype("<f4")
    return np.stack([x, y, z], axis=2), ~np.isnan(z)


def expected_triangles(edge):
    points, there = kept()
    index, points = np.cumsum(there).reshape(there.shape) - 1, points.astype("f8")

    def square(p, q):
        square = ((points[p] - points[q]) ** 2).sum()
        return np.inf if np.isnan(square) else square

    for row, column in np.ndindex(HEIGHT - 1, WIDTH - 1):
        a, b, c, d = ((row + i, column + k) for i in (0, 1) for k in (0, 1))
        shorter = square(b, c) <= square(a, d)
        for p, q, r in ((a, c, b), (b, c, d)) if shorter else ((a, c, d), (a, d, b)):
            if max(square(p, q), square(q, r), square(r, p)) <= edge ** 2:
                yield index[p], index[r], index[q]  # counter-clockwise, as Y grows with the rows


def check_numpy():
    points, there = kept()
    points, grey = points[there], scans.intensity_values()[there]
    text = np.loadtxt(folder / "kept.csv", "f4", delimiter=",", skiprows=1)
    np.testing.assert_array_equal(text, np.column_stack([points, grey]))
    las = (folder / "kept.las").read_bytes()
    expect(las[:4] + las[24:26], b"LASF\1\2")
    begin, _, _, size, count = struct.unpack_from("<IIBHI", las, 96)
    numbers = np.array(struct.unpack_from("<12d", las, 131))
    records = np.frombuffer(las[begin:], [("at", "<i4", 3), ("grey", "<u2"), ("rest", "V6")])
    expect((size, count), (20, len(points)))
    found = records["at"] * numbers[:3]
    np.testing.assert_array_less(np.abs(found - points).max(axis=0),
                                 np.spacing(np.abs(points).max(axis=0)) / 4)
    np.testing.assert_allclose(numbers[6:].reshape(3, 2),
                               np.stack([found.max(axis=0), found.min(axis=0)], axis=1))
    np.testing.assert_array_equal(records["grey"], grey)
    header, data = (folder / "mesh.ply").read_bytes().split(b"end_header\n", 1)
    faces = np.frombuffer(data[12 * len(points):], [("corners", "u1"), ("index", "<u4", 3)])
    np.testing.assert_array_equal(np.frombuffer(data, "<f4", 3 * len(points)), points.ravel())
    np.testing.assert_array_equal(faces["index"], list(expected_triangles(2)))
    assert b"element face %d\n" % len(faces) in header


def expect(found, value):
    assert found == value, f"{found}, not {value}"


def check_gdal():
    image = gdal.Open(str(folder / "mean.tif"))  # a band does not keep its file open
    x0, dx, _, y0, _, dy = image.GetGeoTransform()
    expect((dy, y0), (0.5, 3 - 0.25))  # the edge, not the centre, of the first row
    band, heights = image.GetRasterBand(1), wanted("mean_heights.f32")
    expect((band.GetNoDataValue(), band.GetUnitType()), (0, "\u00b5m"))
    filled = np.nonzero(~np.isnan(heights).all(axis=0))[0]  # columns that some point fell into
    x = wanted("x.f32")
    np.testing.assert_allclose(x0 + dx * (filled[[0, -1]] + 0.5), [np.nanmin(x), np.nanmax(x)],
                               atol=1.5 * dx)  # a point is spread over its neighbours, too
    levels = np.where(np.isnan(heights), np.nan, band.ReadAsArray())
    np.testing.assert_allclose(levels * band.GetScale() + band.GetOffset(), heights, atol=1e-5)
    image = gdal.Open(str(folder / "mean_float.tif"))
    assert np.isnan(image.GetRasterBand(1).GetNoDataValue())
    image = gdal.Open(str(folder / "nodata.tif"))
    expect(image.GetRasterBand(1).GetNoDataValue(), -9999)
    image = gdal.Open(str(folder / "aligned.tif"))
    expect([image.GetRasterBand(i).GetDescription() for i in (1, 2, 3)],
           ["aligned X", "aligned Y", "aligned Z"])


def check_pil():
    texts, heights = Image.open(folder / "map.png").text, wanted("mean_heights.f32")
    expect([texts[key] for key in ("Unit", "MissingValue", "OriginY", "ScaleY")],
           ["\u00b5m", "0", "3", "0.5"])
    levels = np.where(np.isnan(heights), np.nan, wanted("mean_levels.u16"))
    np.testing.assert_allclose(levels * float(texts["ScaleZ"]) + float(texts["OriginZ"]), heights,
                               atol=1e-5)
    assert "MissingValue" not in Image.open(folder / "map_intensity.png").text


def check_open3d():
    intensity = scans.intensity_values()
    points, found = open_cloud(str(folder / "points.ply"))
    all_points, there = kept()
    np.testing.assert_array_equal(np.moveaxis(points, 0, 2), all_points)
    np.testing.assert_array_equal(found, intensity)
    np.testing.assert_array_equal(open_cloud(str(folder / "aligned.pcd"))[1], intensity)
    cloud = open3d.t.io.read_point_cloud(str(folder / "kept.pcd")).point
    mesh = open3d.io.read_triangle_mesh(str(folder / "mesh.ply"))
    for found in (cloud["positions"].numpy(), np.asarray(mesh.vertices)):
        np.testing.assert_array_equal(found, all_points[there])
    np.testing.assert_array_equal(cloud["intensity"].numpy().ravel(), intensity[there])
    np.testing.assert_array_equal(np.asarray(mesh.triangles), list(expected_triangles(2)))


with tempfile.TemporaryDirectory() as scratch:
    folder = scans.write_scan(scratch)
    scans.run(WHOLE_SCAN, MODEL, folder / "range.pgm", folder / "intensity.pgm", folder)
    for name, (arguments, _) in FILES.items():
        if arguments:
            arguments = arguments.replace("--intensity", f"--intensity {folder}/intensity.pgm")
            command, *options = arguments.split()
            scans.run(PLANEX, command, MODEL, folder / "range.pgm", "-o", folder / name, "-q",
                      "--block", 7, "--unit", "\u00b5m", *SENSOR, *Y, *options)
    assert (wanted("mean_levels.u16") > 0).mean() > 0.5
    names, read = READERS[READER]
    for name in names:
        found, values = read(str(folder / name)), wanted(FILES[name][1])
        if name.startswith("part"):
            values = values[..., 11:30, :]
        if name == "nodata.tif" or name.endswith("_float.tif"):  # levels are floats cut off
            levels = gdal.Open(str(folder / "mean.tif"))
            step = levels.GetRasterBand(1).GetScale()
            found = np.where(found == -9999, np.nan, found)
            np.testing.assert_allclose(found, values + step / 2, rtol=0, atol=step * 0.501)
            continue
        np.testing.assert_array_equal(found, values, name)  # missing cells, too: NaN equals NaN
    {"gdal": check_gdal, "PIL": check_pil, "numpy": check_numpy, "open3d": check_open3d}[READER]()
