"""Usage: read_back_test.py READER PLANEX WHOLE_SCAN. Reads what the command writes with programs of
others: tifffile, gdal, cv2, PIL, numpy or open3d. Status 77: the reader is not installed."""
import pathlib
import subprocess
import sys
import tempfile
import unittest

import scans
from scans import HEIGHT, MODEL, SENSOR, WIDTH, Y

READER, PLANEX, WHOLE_SCAN = (sys.argv.pop(1) for _ in range(3))
try:
    import numpy as np
    if READER == "gdal":
        from osgeo import gdal
        gdal.UseExceptions()
    elif READER == "PIL":
        from PIL import Image
    elif READER == "open3d":
        import open3d
    else:
        __import__(READER)
except ImportError as error:
    print(f"skipped: {READER} cannot be imported: {error}")
    sys.exit(77)


class Folder(unittest.TestCase):
    """Files of the command, and the arrays that should be in them."""

    @classmethod
    def setUpClass(cls):
        cls.temporary = tempfile.TemporaryDirectory()
        cls.folder = scans.write_scan(cls.temporary.name)
        intensity = cls.folder / "intensity.pgm"
        subprocess.run([WHOLE_SCAN, MODEL, cls.folder / "range.pgm", intensity, cls.folder, "0"],
                       check=True)
        for name, arguments in {
                "rectify map.png": ["--intensity", intensity],
                "rectify map.tif": ["--intensity", intensity],
                "rectify float.tif": ["--float", "--rows", "10:"],
                "rectify nodata.tif": ["--float", "--nodata", "-9999"],
                "calibrate points.tif": [], "calibrate points.npy": [],
                "calibrate aligned.tif": ["--aligned"], "calibrate aligned.npy": ["--aligned"],
                "calibrate points.ply": ["--intensity", intensity],
                "calibrate aligned.pcd": ["--intensity", intensity, "--aligned"]}.items():
            command, output = name.split()
            scans.run(PLANEX, command, MODEL, cls.folder / "range.pgm", "-o", cls.folder / output,
                      "-q", "--unit", "\u00b5m", *SENSOR, *Y, *arguments)

    @classmethod
    def tearDownClass(cls):
        cls.temporary.cleanup()

    def path(self, name):
        return str(self.folder / name)

    def wanted(self, *names):
        kinds = {"f32": "<f4", "u16": "<u2", "u8": "u1"}
        layers = [np.fromfile(self.folder / name, kinds[name.split(".")[1]]).reshape(HEIGHT, WIDTH)
                  for name in names]
        return layers[0] if len(layers) == 1 else np.stack(layers)

    def compare(self, found, wanted):
        self.assertEqual(found.dtype, wanted.dtype)
        np.testing.assert_array_equal(found, wanted)  # missing cells, too: NaN equals NaN

    def compare_maps(self, read):
        self.assertGreater((self.wanted("levels.u16") > 0).mean(), 0.5)
        self.compare(read("map.tif"), self.wanted("levels.u16"))
        self.compare(read("map_intensity.tif"), self.wanted("grey.u8"))
        self.compare(read("float.tif"), self.wanted("heights.f32")[10:])
        heights = self.wanted("heights.f32")
        self.compare(read("nodata.tif"), np.where(np.isnan(heights), np.float32(-9999), heights))

    def compare_layers(self, read):
        self.compare(read("points.tif"), self.wanted("x.f32", "z.f32"))
        self.compare(read("aligned.tif"), self.wanted("xa.f32", "ya.f32", "za.f32"))


@unittest.skipUnless(READER == "tifffile", "another reader")
class Tifffile(Folder):
    def test_values(self):
        import tifffile
        self.compare_maps(lambda name: tifffile.imread(self.path(name)))
        self.compare_layers(lambda name: tifffile.imread(self.path(name)))


@unittest.skipUnless(READER == "gdal", "another reader")
class Gdal(Folder):
    def test_values(self):
        self.compare_maps(lambda name: gdal.Open(self.path(name)).ReadAsArray())
        self.compare_layers(lambda name: gdal.Open(self.path(name)).ReadAsArray())

    def test_meaning(self):
        data = gdal.Open(self.path("map.tif"))
        x0, dx, _, y0, _, dy = data.GetGeoTransform()
        self.assertEqual((dy, y0), (0.5, 3 - 0.25))  # the edge, not the centre, of the first row
        band = data.GetRasterBand(1)
        self.assertEqual((band.GetNoDataValue(), band.GetUnitType()), (0, "\u00b5m"))
        heights = self.wanted("heights.f32")
        levels = np.where(np.isnan(heights), np.nan, band.ReadAsArray())
        np.testing.assert_allclose(levels * band.GetScale() + band.GetOffset(), heights, atol=1e-5)
        self.assertAlmostEqual(x0 + dx / 2, np.nanmin(self.wanted("x.f32")), delta=5)

        data = gdal.Open(self.path("float.tif"))  # a band does not keep its file open
        self.assertTrue(np.isnan(data.GetRasterBand(1).GetNoDataValue()))
        self.assertEqual(data.GetGeoTransform()[3], 3 + 4.75)
        data = gdal.Open(self.path("nodata.tif"))
        self.assertEqual(data.GetRasterBand(1).GetNoDataValue(), -9999)
        layers = gdal.Open(self.path("aligned.tif"))
        self.assertEqual([layers.GetRasterBand(i).GetDescription() for i in (1, 2, 3)],
                         ["aligned X", "aligned Y", "aligned Z"])


@unittest.skipUnless(READER == "cv2", "another reader")
class OpenCv(Folder):
    def test_values(self):
        import cv2
        read = lambda name: cv2.imread(self.path(name), cv2.IMREAD_UNCHANGED)
        self.compare(read("map.png"), self.wanted("levels.u16"))
        self.compare(read("map_intensity.png"), self.wanted("grey.u8"))
        self.compare(read("map.tif"), self.wanted("levels.u16"))


@unittest.skipUnless(READER == "PIL", "another reader")
class Pillow(Folder):
    def test_values_and_texts(self):
        with Image.open(self.path("map.png")) as image:
            self.compare(np.asarray(image).astype("<u2"), self.wanted("levels.u16"))
            texts = image.text
        self.assertEqual((texts["Unit"], texts["MissingValue"], texts["OriginY"], texts["ScaleY"]),
                         ("\u00b5m", "0", "3", "0.5"))
        heights = self.wanted("heights.f32")
        levels = np.where(np.isnan(heights), np.nan, self.wanted("levels.u16"))
        np.testing.assert_allclose(levels * float(texts["ScaleZ"]) + float(texts["OriginZ"]),
                                   heights, atol=1e-5)
        with Image.open(self.path("map_intensity.png")) as image:
            self.compare(np.asarray(image), self.wanted("grey.u8"))
            self.assertNotIn("MissingValue", image.text)


@unittest.skipUnless(READER == "numpy", "another reader")
class Numpy(Folder):
    def test_values(self):
        for name, layers in (("points.npy", ["x.f32", "z.f32"]),
                             ("aligned.npy", ["xa.f32", "ya.f32", "za.f32"])):
            self.compare(np.moveaxis(np.load(self.path(name)), 2, 0), self.wanted(*layers))


@unittest.skipUnless(READER == "open3d", "another reader")
class Open3d(Folder):
    def read(self, name):
        cloud = open3d.t.io.read_point_cloud(self.path(name), remove_nan_points=False,
                                             remove_infinite_points=False)
        points = cloud.point["positions"].numpy().reshape(HEIGHT, WIDTH, 3)
        return np.moveaxis(points, 2, 0), cloud.point["intensity"].numpy().reshape(HEIGHT, WIDTH)

    def test_values(self):
        intensity = np.array(scans.intensity_values(), "<u2").reshape(HEIGHT, WIDTH)
        points, found = self.read("points.ply")
        x, z = self.wanted("x.f32", "z.f32")
        y = np.where(np.isnan(z), np.nan, 0.5 * np.arange(HEIGHT)[:, None] + 3).astype("<f4")
        self.compare(points, np.stack([x, y, z]))
        np.testing.assert_array_equal(found, intensity)
        points, found = self.read("aligned.pcd")
        self.compare(points, self.wanted("xa.f32", "ya.f32", "za.f32"))
        np.testing.assert_array_equal(found, intensity)


unittest.main()
