"""Usage: whole_scan_test.py PLANEX WHOLE_SCAN. Whether calibrate and rectify give what single calls
of the library give for the whole image, whatever blocks, rows and threads they are asked for."""
import json
import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import unittest
from array import array

import scans
from scans import HEIGHT, MODEL, SENSOR, WIDTH, Y

PLANEX, WHOLE_SCAN = sys.argv.pop(1), sys.argv.pop(1)
MODES = ["mean", "lowest", "highest", "darkest", "brightest"]
BLOCKS = [["--block", "1", "--threads", "1"], ["--block", "7", "--threads", "2"],
          ["--block", "1000", "--threads", "7"]]


class WholeScan(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = scans.write_scan(folder.name)
        self.intensity = ["--intensity", self.folder / "intensity.pgm"]

    def expect(self, mode="mean"):
        subprocess.run([WHOLE_SCAN, MODEL, self.folder / "range.pgm",
                        self.folder / "intensity.pgm", self.folder, str(MODES.index(mode))],
                       check=True)

    def wanted(self, *names):
        """The expected arrays, their numbers next to each other."""
        arrays = []
        for name in names:
            data = (self.folder / name).read_bytes()
            size = {"f32": 4, "u16": 2, "u8": 1}[name.split(".")[1]]
            arrays.append([data[i:i + size] for i in range(0, len(data), size)])
        return b"".join(b"".join(record) for record in zip(*arrays))

    def run_command(self, command, output, *arguments):
        output = self.folder / output
        scans.run(PLANEX, command, MODEL, self.folder / "range.pgm", "-o", output, "--force", "-q",
                  *SENSOR, *Y, *arguments)
        return output.read_bytes()

    def test_points(self):
        self.expect()
        cases = {"npy": ([], ["x.f32", "z.f32"]),
                 "aligned npy": (["--aligned"], ["xa.f32", "ya.f32", "za.f32"]),
                 "aligned ply": (["--aligned"], ["xa.f32", "ya.f32", "za.f32"])}
        for name, (arguments, arrays) in cases.items():
            for block in BLOCKS:
                with self.subTest(case=name, block=block):
                    data = self.run_command("calibrate", "points." + name.split()[-1], *arguments,
                                            *block)
                    wanted = self.wanted(*arrays)
                    self.assertEqual(data[-len(wanted):], wanted)

    def test_positions_from_a_file(self):
        positions = self.folder / "y.txt"
        positions.write_text("".join(f"{0.5 * row + 3}\n" for row in range(HEIGHT)))
        whole = self.run_command("calibrate", "points.ply")
        scans.run(PLANEX, "calibrate", MODEL, self.folder / "range.pgm", "-o",
                  self.folder / "file.ply", *SENSOR, "--y-file", positions)
        self.assertEqual((self.folder / "file.ply").read_bytes(), whole)
        positions.write_text("1\n2\n")
        error = scans.run(PLANEX, "calibrate", MODEL, self.folder / "range.pgm", "-o",
                          self.folder / "no.ply", *SENSOR, "--y-file", positions, status=1)
        self.assertIn("holds 2 positions for the 45 rows", error)

    def test_height_maps(self):
        for mode in MODES:
            self.expect(mode)
            for block in BLOCKS:
                with self.subTest(mode=mode, block=block):
                    arguments = ["--mode", mode, *self.intensity, *block]
                    # libtiff puts the strips of a file one behind the other.
                    levels = self.run_command("rectify", "map.tif", *arguments)
                    self.assertEqual(levels[8:][:2 * WIDTH * HEIGHT], self.wanted("levels.u16"))
                    grey = (self.folder / "map_intensity.tif").read_bytes()
                    self.assertEqual(grey[8:][:WIDTH * HEIGHT], self.wanted("grey.u8"))
                    heights = self.run_command("rectify", "map.tif", "--float", *arguments)
                    self.assertEqual(heights[8:][:4 * WIDTH * HEIGHT], self.wanted("heights.f32"))

    def test_every_file_is_the_same_for_all_blocks(self):
        self.run_command("rectify", "map.png", *self.intensity, *self.intensity, "--preview",
                         self.folder / "preview.png")
        self.run_command("calibrate", "points.pcd", *self.intensity)
        self.run_command("calibrate", "points.tif", "--aligned")
        before = {path: path.read_bytes() for path in self.folder.iterdir()}
        self.assertIn(self.folder / "map_intensity2.png", before)
        for block in BLOCKS:
            self.run_command("rectify", "map.png", *self.intensity, *self.intensity, "--preview",
                             self.folder / "preview.png", *block)
            self.run_command("calibrate", "points.pcd", *self.intensity, *block)
            self.run_command("calibrate", "points.tif", "--aligned", *block)
            for path, data in before.items():
                self.assertEqual(path.read_bytes(), data, f"{path} {block}")

    def test_some_rows_are_those_of_the_whole(self):
        self.expect()
        first, end = 11, 30
        rows = ["--rows", f"{first}:{end}"]
        points = self.run_command("calibrate", "points.npy", *rows)
        wanted = self.wanted("x.f32", "z.f32")[first * WIDTH * 8:end * WIDTH * 8]
        self.assertEqual(points[-len(wanted):], wanted)
        self.run_command("rectify", "map.tif", *self.intensity, *rows)
        grey = (self.folder / "map_intensity.tif").read_bytes()
        wanted = self.wanted("grey.u8")[first * WIDTH:end * WIDTH]
        self.assertEqual(grey[8:][:len(wanted)], wanted)
        self.assertEqual(json.loads((self.folder / "map.tif.json").read_text())["transform"]
                         ["originY"], 3 + 0.5 * first)

    def test_grids(self):
        for arguments, columns, scale in ((["--columns", "80"], 80, None),
                                          (["--pixel-size", "1/4"], None, 0.25),
                                          (["--pixel-size", "0.5", "--x-range", "-10:20"], 60, 0.5)):
            self.run_command("rectify", "map.tif", *arguments)
            grid = json.loads((self.folder / "map.tif.json").read_text())
            self.assertEqual(grid["columns"], columns or grid["columns"])
            self.assertEqual(grid["transform"]["scaleX"], scale or grid["transform"]["scaleX"])

    def test_usage(self):
        image, out = self.folder / "range.pgm", self.folder / "out"
        for status, command, output, *arguments in (
                (2, "calibrate", "out.xyz"), (2, "rectify", "out.npy"),
                (2, "calibrate", "out.npy", *self.intensity),
                (2, "rectify", "out.png", "--mode", "darkest"),
                (2, "rectify", "out.png", "--mode", "median"),
                (2, "rectify", "out.png", "--float"), (2, "rectify", "out.tif", "--nodata", "1"),
                (2, "rectify", "out.png", "--columns", "5", "--pixel-size", "1"),
                (2, "rectify", "out.png", "--preview", self.folder / "out.png"),
                (2, "rectify", "out.png", "--preview", self.folder / "out.jpg"),
                (1, "rectify", "out.png", *self.intensity, "--preview",
                 self.folder / "out_intensity.png"),
                (2, "calibrate", "out.ply", "--unit", "mm\nproperty float w"),
                (2, "rectify", "out.png", "--pixel-size", "0"),
                (2, "rectify", "out.png", "--z-range", "3:2"),
                (2, "rectify", "out.png", "--rows", "44:46"), (2, "rectify", "out.png", "--rows", "5"),
                (1, "rectify", "out.png", "--scale-x", "32"),
                (1, "rectify", "out.png", "--origin-z", "2000"),
                (1, "rectify", "out.png", "--intensity", MODEL)):
            with self.subTest(command=command, output=output, arguments=arguments):
                sensor = [] if status == 1 else SENSOR
                error = scans.run(PLANEX, command, MODEL, image, "-o", self.folder / output,
                                  *sensor, *arguments, status=status)
                self.assertEqual(error.count("\n"), 1, error)
                self.assertEqual(list(self.folder.glob("out*")), [], out)

    def test_sensor_beside_the_image(self):
        whole = self.run_command("rectify", "map.tif")
        (self.folder / "range.pgm.json").write_text(json.dumps({"sensor": {
            "scaleX": 16, "originX": 8, "scaleZ": 1 / 16, "originZ": 160, "height": 704}}))
        scans.run(PLANEX, "rectify", MODEL, self.folder / "range.pgm", "-o",
                  self.folder / "other.tif", *Y)
        self.assertEqual((self.folder / "other.tif").read_bytes(), whole)

    def test_sidecars_are_utf8_whatever_the_names(self):
        image = os.fsencode(self.folder) + b"/sc\xe4n \xc3\xa4 \xed\xa0\x80.pgm"
        os.rename(self.folder / "range.pgm", image)
        for unit, status in ((b"\xb5m", 2), ("µm".encode(), 0)):
            done = subprocess.run([PLANEX, "rectify", MODEL, image, "-o", self.folder / "map.tif",
                                   "--unit", unit, *SENSOR], capture_output=True)
            self.assertEqual(done.returncode, status, done.stderr)
        told = json.loads((self.folder / "map.tif.json").read_bytes().decode())
        self.assertEqual(told["unit"], "µm")
        self.assertEqual(told["range"], f"{self.folder}/sc?n ä ???.pgm")

    def test_interrupt_leaves_nothing(self):
        scan = self.folder / "long.pgm"
        with open(scan, "wb") as file:  # sparse: nothing was measured
            file.write(b"P5\n2560 400000\n65535\n")
            file.truncate(file.tell() + 2 * 2560 * 400000)
        before = set(self.folder.iterdir())
        running = subprocess.Popen([PLANEX, "rectify", MODEL, scan, "-o", self.folder / "out.tif"])
        while not list(self.folder.glob("out.tif.*")):
            self.assertIsNone(running.poll())
        running.send_signal(signal.SIGINT)
        self.assertEqual(running.wait(), -signal.SIGINT)
        self.assertEqual(set(self.folder.iterdir()), before)

    def test_force(self):
        self.run_command("rectify", "map.png")
        before = (self.folder / "map.png").read_bytes()
        arguments = [MODEL, self.folder / "range.pgm", "-o", self.folder / "map.png", *SENSOR]
        error = scans.run(PLANEX, "rectify", *arguments, "--mode", "lowest", status=1)
        self.assertIn("--force", error)
        self.assertEqual((self.folder / "map.png").read_bytes(), before)
        scans.run(PLANEX, "rectify", *arguments, "--mode", "lowest", "--force")
        self.assertNotEqual((self.folder / "map.png").read_bytes(), before)


unittest.main()
