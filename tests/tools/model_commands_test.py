"""Usage: model_commands_test.py PLANEX LIBPLANEX. What a transcript cannot show of the commands on
models: damaged documents by the dozen, the C interface as a witness, pictures, interruptions."""
import copy
import ctypes
import json
import os
import pathlib
import pty
import select
import signal
import struct
import subprocess
import sys
import tempfile
import time
import unittest
import xml.etree.ElementTree

import documents

PLANEX, LIBRARY = sys.argv[1:3]
EXAMPLE = documents.example()
REGION = documents.with_region(EXAMPLE)


def run(*arguments, stdin=""):
    return subprocess.run([PLANEX, *map(str, arguments)], input=stdin, capture_output=True,
                          text=True)


def edited(*path, value, document=EXAMPLE):
    """The document with one value replaced; None removes it."""
    document = copy.deepcopy(document)
    owner = document["data"]
    for key in path[:-1]:
        owner = owner[key]
    if value is None:
        del owner[path[-1]]
    else:
        owner[path[-1]] = value
    return json.dumps(document)


def text_with(old, new):
    text = json.dumps(EXAMPLE)
    assert old in text
    return text.replace(old, new, 1)


IMAGE = ("data", "Data")
OTHER_SIZE = documents.image("float32", [0.0] * 6, 3)
LOST_IMAGE = copy.deepcopy(REGION)
LOST_IMAGE["data"]["CalibratedRegion"]["PointCount"] = None
LARGE_MEANS = copy.deepcopy(REGION["data"]["CalibratedRegion"]["MaximumResidualZ"])
NEGATIVE_COUNT = documents.image("int32", [-1] * 160, 16, origin=(-37.5, -17.5), pixel=(5, 5))

NO_LENS = json.loads(edited("LensCenter", value={"x": -1, "y": -1}))

# A document, and where its fault is said to be; "" for none.
FAULTS = {
    "sound": (json.dumps(EXAMPLE), ""),
    "sound region": (json.dumps(REGION), ""),
    "uncalibrated": (edited("CurrentState", value="UNCALIBRATED"), ""),
    "only aligned": (edited("CurrentState", value="ALIGNED_3D", document=NO_LENS), ""),
    "no JSON": ("{", "document"),
    "no object": ("[1]", "document"),
    "cut off": (json.dumps(EXAMPLE)[:-1], "document"),
    "text behind the end": (json.dumps(EXAMPLE) + " x", "document"),
    "NUL behind the end": (json.dumps(EXAMPLE) + "\0", "document"),
    "other class": (text_with("Image.Planex.Model", "Image"), "class"),
    "missing member": (edited("FocalLength", value=None), "data.FocalLength"),
    "missing version 2 member": (edited("SheetCurve", value=None), "data.SheetCurve"),
    "unknown member": (edited("Focus", value=1), "data.Focus"),
    "member twice": (text_with('"Pose"', '"FocalLength": 1, "Pose"'), "data.FocalLength"),
    "other case": (text_with('"FocalLength"', '"focalLength"'), "data.FocalLength"),
    "unknown version": (edited("FileVersion", value=3), "data.FileVersion"),
    "unknown state": (edited("CurrentState", value="calibrated"), "data.CurrentState"),
    "unknown skew mode": (edited("SkewMode", value=0), "data.SkewMode"),
    "negative error": (edited("AlignmentError", value=-1), "data.AlignmentError"),
    "mean above maximum": (edited("CalibrationErrorMax", value=0.001), "data.CalibrationErrorMax"),
    "focal length 0": (edited("FocalLength", value=0), "data.FocalLength"),
    "infinite": (text_with("6400", "1e999"), "data.FocalLength"),
    "text for a number": (edited("LensCenter", "x", value="1"), "data.LensCenter.x"),
    "fraction of a pixel": (edited("SensorSize", "x", value=9.5), "data.SensorSize.x"),
    "sensor without size": (edited("SensorSize", "y", value=0), "data.SensorSize.y"),
    "lens centre never set": (edited("LensCenter", value={"x": -1, "y": -1}), "data.LensCenter"),
    "scan within the plane": (edited("Skew", "y", value=0), "data.Skew"),
    "ragged matrix": (edited("Homography", 1, value=[1, 2]), "data.Homography[1]"),
    "text in a matrix": (edited("Pose", 2, 3, value="0"), "data.Pose[2][3]"),
    "singular homography": (edited("Homography", 2, value=[0, 0, 0]), "data.Homography"),
    "horizon at the border": (edited("Homography", 2, value=[0, 13.0, 1]), "data.Homography"),
    "stretching pose": (edited("Pose", 1, 1, value=2), "data.Pose"),
    "singular pose": (edited("Pose", 2, 2, value=0), "data.Pose"),
    "six lens terms": (edited("LensCoefficients", value=[0] * 6), "data.LensCoefficients"),
    "lens that folds": (edited("LensCoefficients", 0, value=-8.2), "data.LensCoefficients"),
    "five sheet terms": (edited("SheetCurve", value=[0] * 5), "data.SheetCurve"),
    "sheet that folds": (edited("SheetCurve", value=[0, 0.5, 0, 0.9, 0, 0]), "data.SheetCurve"),
    "lost image": (json.dumps(LOST_IMAGE), "data.CalibratedRegion"),
    "image of another size": (edited("CalibratedRegion", "AverageResidualX", value=OTHER_SIZE,
                                     document=REGION), "data.CalibratedRegion.AverageResidualX"),
    "image of another type": (edited("CalibratedRegion", "PointCount", *IMAGE, "ImageType",
                                     value="float32", document=REGION),
                              "data.CalibratedRegion.PointCount.data.Data.ImageType"),
    "pixels cut off": (edited("CalibratedRegion", "PointCount", *IMAGE, "Pixels", "data", value="AAAA",
                              document=REGION),
                       "data.CalibratedRegion.PointCount.data.Data.Pixels.data"),
    "negative count": (edited("CalibratedRegion", "PointCount", value=NEGATIVE_COUNT,
                              document=REGION), "data.CalibratedRegion.PointCount"),
    "mean above the maximum": (edited("CalibratedRegion", "AverageResidualX", value=LARGE_MEANS,
                                      document=REGION), "data.CalibratedRegion.MaximumResidualX"),
}


class Check(unittest.TestCase):
    def test_names_the_member(self):
        for name, (text, path) in FAULTS.items():
            with self.subTest(name):
                done = run("check", "-", stdin=text)
                lines = [line for line in done.stdout.splitlines() if "recovery" not in line]
                self.assertEqual(done.returncode, 1 if path else 0, done.stdout)
                if path:
                    prefix = f"standard input: {path}: "
                    self.assertTrue(lines and all(line.startswith(prefix) for line in lines), lines)

    def test_tells_of_recovery_only_where_the_c_interface_recovers(self):
        for name, recovered in {"six lens terms": True, "missing member": False, "cut off": False,
                                "unknown member": False}.items():
            done = run("check", "-", stdin=FAULTS[name][0])
            self.assertEqual("recovery check" in done.stdout, recovered, name)


class Bounds(unittest.TestCase):
    def test_are_those_of_the_c_interface(self):
        if LIBRARY == "none":
            self.skipTest("a library with a sanitizer cannot be loaded")

        def record(fields):
            return type("Record", (ctypes.Structure,), {"_fields_": fields})

        double, u16, u32 = ctypes.c_double, ctypes.c_uint16, ctypes.c_uint32
        traits = record([(n, double) for n in ("scaleX", "originX", "scaleZ", "originZ")]
                        + [("width", u16), ("height", u16)])
        size = record([("width", u16), ("height", u16)])
        world = record([("xMin", double), ("xMax", double), ("xCount", u32), ("yMin", double),
                        ("yMax", double), ("yCount", u32), ("zMin", double), ("zMax", double),
                        ("zLevels", u32)])
        splat = record([(n, double) for n in ("splatA", "splatB", "splatC")])
        library = ctypes.CDLL(LIBRARY)
        library.calculateCalibrationBounds.argtypes = [u32, traits, size, ctypes.c_void_p,
                                                       ctypes.c_void_p]
        handle, box, spread = u32(), world(), splat()
        library.createModelFromJson(json.dumps(EXAMPLE).encode(), ctypes.byref(handle))
        library.calculateCalibrationBounds.restype = ctypes.c_bool
        self.assertTrue(library.calculateCalibrationBounds(
            handle, traits(2, 100, 1 / 8, 50, 1600, 900), size(800, 7), ctypes.addressof(box),
            ctypes.addressof(spread)))
        told = json.loads(run("bounds", documents.EXAMPLE, "--json", "--scale-x", 2, "--origin-x",
                              100, "--scale-z", "1/8", "--origin-z", 50, "--sensor-width", 1600,
                              "--sensor-height", 900).stdout)
        for key, value in told["bounds"].items():
            self.assertEqual(value, getattr(box, key), key)
        for key, value in told["splat"].items():
            self.assertEqual(value, getattr(spread, key), key)


class Map(unittest.TestCase):
    def test_long_lists_in_blocks(self):
        count = 150000  # more than two blocks
        lines = "".join(f"{i % 2560},{i % 1024}\n" for i in range(count))
        there = run("map", documents.EXAMPLE, "--from", "pixel", "--to", "aligned", stdin=lines)
        back = run("map", documents.EXAMPLE, "--from", "aligned", "--to", "pixel",
                   stdin=there.stdout).stdout.splitlines()
        self.assertEqual(len(back), count)
        for i in list(range(0, count, 997)) + [65535, 65536, count - 1]:
            column, row = map(float, back[i].split(","))
            # The way back stops when a round changes less than 1e-5 focal lengths, 0.064 pixels.
            self.assertAlmostEqual(column, i % 2560, delta=0.064)
            self.assertAlmostEqual(row, i % 1024, delta=0.064)


class Outputs(unittest.TestCase):
    def setUp(self):
        self.scratch = tempfile.TemporaryDirectory()
        self.folder = pathlib.Path(self.scratch.name)
        self.addCleanup(self.scratch.cleanup)

    def test_interruption_leaves_nothing(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            output = self.folder / "out.csv"
            child = subprocess.Popen([PLANEX, "map", documents.EXAMPLE, "--from", "pixel", "--to",
                                      "aligned", "-o", output], stdin=subprocess.PIPE)
            while not list(self.folder.iterdir()):  # it waits for points with its output open
                time.sleep(0.01)
            self.assertNotIn("out.csv", [file.name for file in self.folder.iterdir()])
            child.send_signal(number)
            self.assertEqual(child.wait(), -number)
            child.stdin.close()
            self.assertEqual(list(self.folder.iterdir()), [])

    def test_failure_leaves_what_was_there(self):
        output = self.folder / "out.csv"
        output.write_text("mine")
        for arguments in ([], ["--force"]):  # with it, the second line is no point
            done = run("map", documents.EXAMPLE, "--from", "pixel", "--to", "aligned", "-o", output,
                       *arguments, stdin="1,2\nx\n")
            self.assertEqual(done.returncode, 1)
            self.assertEqual(output.read_text(), "mine")
            self.assertEqual(len(list(self.folder.iterdir())), 1)

    def test_force_replaces_the_file_behind_a_link(self):
        target, link = self.folder / "target.json", self.folder / "link.json"
        target.write_text("old")
        target.chmod(0o640)
        link.symlink_to(target)
        self.assertEqual(run("convert", documents.EXAMPLE, "-o", link, "-f").returncode, 0)
        self.assertTrue(link.is_symlink())
        self.assertEqual(run("check", target).returncode, 0)
        self.assertEqual(target.stat().st_mode & 0o777, 0o640)

    def test_plot(self):
        for document, height in ((EXAMPLE, 800), (REGION, 1460)):
            output, drawing = self.folder / f"{height}.png", self.folder / f"{height}.svg"
            for path in (output, drawing):
                done = run("info", "-", "--plot", path, stdin=json.dumps(document))
                self.assertEqual(done.returncode, 0, done.stderr)
            header = output.read_bytes()[:26]
            self.assertEqual(struct.unpack(">IIBB", header[16:]), (1200, height, 8, 2))
            svg = xml.etree.ElementTree.parse(drawing).getroot()
            self.assertEqual((svg.get("width"), svg.get("height")), ("1200px", f"{height}px"))
            # The border of the sensor; of the calibrated region.
            self.assertIn("stroke:rgb(0%,36.", drawing.read_text())
            self.assertEqual("stroke:rgb(80%,32." in drawing.read_text(), document is REGION)


class Progress(unittest.TestCase):
    """On four thousand million points, which nobody waits for."""

    def shown(self, seconds, *options, terminal=True):
        """What stands on standard error when a bar was drawn, or after that time."""
        reader, writer = pty.openpty() if terminal else os.pipe()
        with tempfile.TemporaryDirectory() as folder:
            model = pathlib.Path(folder) / "large.json"
            model.write_text(edited("SensorSize", value={"x": 65535, "y": 65535}))
            child = subprocess.Popen([PLANEX, "diff", model, model, "--step", "1", *options],
                                     stdout=subprocess.DEVNULL, stderr=writer)
            text, end = "", time.monotonic() + seconds
            while "left" not in text and time.monotonic() < end:
                if select.select([reader], [], [], 0.1)[0]:
                    text += os.read(reader, 4096).decode()
            child.terminate()
            child.wait()
        os.close(reader)
        os.close(writer)
        return text

    def test_is_drawn_on_a_terminal_only(self):
        self.assertRegex(self.shown(60), r"comparing \[#*\.+\] \d+ %, [\d.]+ \w? ?points/s, .* left")
        self.assertEqual(self.shown(2, "--quiet"), "")
        self.assertEqual(self.shown(2, terminal=False), "")


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0]] + sys.argv[3:])
