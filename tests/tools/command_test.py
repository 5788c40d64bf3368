"""Usage: command_test.py PLANEX [CLASS]. What a transcript cannot show of the command: that its
files do not depend on blocks, threads and how the image is stored; what signals leave behind;
progress."""
import contextlib
import json
import os
import pathlib
import pty
import re
import select
import signal
import subprocess
import sys
import tempfile
import time
import unittest

import numpy as np
from PIL import Image

import documents
import scans
from scans import MODEL, SENSOR, Y

PLANEX = sys.argv.pop(1)
BLOCKS = [["--block", "1", "--threads", "1"], ["--block", "7", "--threads", "2"],
          ["--block", "1000", "--threads", "7"]]
# The same pixels, however they are stored.
FORMATS = [("png", {}), ("tif", {}), ("tif", {"rowsperstrip": 8}), ("tif", {"byteorder": ">"}),
           ("tif", {"bigtiff": True}), ("tif", {"compression": "zlib"}),
           ("tif", {"compression": "zlib", "byteorder": ">", "rowsperstrip": 8}),
           ("png", {"interlaced": True}), ("npy", {}), ("npy", {"byteorder": ">"}),
           ("tif", {"tile": (16, 32)}),
           ("tif", {"tile": (16, 64), "byteorder": ">", "compression": "zlib", "predictor": True})]


class InFolder(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = scans.write_scan(folder.name)


class Command(InFolder):
    def run_command(self, command, output, *arguments, image="range.pgm"):
        scans.run(PLANEX, command, MODEL, self.folder / image, "-o", self.folder / output, "-f",
                  "-q", *SENSOR, *Y, *arguments)
        return (self.folder / output).read_bytes()

    def test_every_file_is_the_same_for_all_blocks(self):
        intensity = ["--intensity", self.folder / "intensity.pgm"]

        def run(*block):
            self.run_command("rectify", "map.png", *intensity, *intensity, "--preview",
                             self.folder / "preview.png", *block)
            self.run_command("rectify", "small.tif", "--compress", "deflate", *block)
            self.run_command("rectify", "float.tif", "--float", *intensity, "--fill", 3, *block)
            self.run_command("rectify", "aligned.tif", "--aligned", *intensity, *block)
            self.run_command("calibrate", "points.npy", *block)
            self.run_command("calibrate", "points.ply", "--aligned", *block)
            self.run_command("calibrate", "points.pcd", *intensity, *block)
            self.run_command("calibrate", "points.las", *intensity, *block)
            self.run_command("calibrate", "points.csv", *block)
            self.run_command("calibrate", "mesh.ply", "--mesh", "2", *block)
            self.run_command("calibrate", "points.tif", "--aligned", "--compress", "zstd", *block)
            return {path: re.sub(rb'"command":.*', b"", path.read_bytes())
                    for path in self.folder.iterdir()}

        before = run()
        self.assertIn(self.folder / "map_intensity2.png", before)
        for block in BLOCKS:
            for path, data in run(*block).items():
                self.assertEqual(data, before[path], f"{path} {block}")

    def test_same_pixels_give_same_points(self):
        for values in (scans.range_values(), (scans.range_values() >> 8).astype("u1")):
            def points(name, *part):
                return self.run_command("calibrate", "out.npy", *part, image=f"image.{name}")

            scans.save(self.folder / "image.pgm", values)
            whole, part = points("pgm"), points("pgm", "--rows", "11:30")
            for name, options in FORMATS:
                with self.subTest(dtype=values.dtype, file=name, **options):
                    scans.save(self.folder / f"image.{name}", values, **options)
                    self.assertEqual(points(name, "--block", 7), whole)
                    self.assertEqual(points(name, "--rows", "11:30"), part)

    def test_rows_of_a_map_are_the_nearest(self):
        y = np.cumsum(np.r_[5, np.arange(scans.HEIGHT - 1) ** 2 % 37]) / 8  # some stand still
        for name, positions in (("rise", y), ("fall", -y)):
            np.savetxt(self.folder / "y.txt", positions)
            for output, *options in (["whole.png"], [name + ".png", "--y-file",
                                                     self.folder / "y.txt", "--block", 4]):
                scans.run(PLANEX, "rectify", MODEL, self.folder / "range.pgm", "-fq", "-o",
                          self.folder / output, *SENSOR, *options)
            whole, found = (np.asarray(Image.open(self.folder / file))
                            for file in ("whole.png", name + ".png"))
            wanted = np.linspace(positions[0], positions[-1], scans.HEIGHT)
            distance = np.abs(positions - wanted[:, None])
            empty = distance.min(axis=1) >= abs(wanted[1] - wanted[0])
            self.assertTrue(empty.any())
            np.testing.assert_array_equal(
                found, np.where(empty[:, None], 0, whole[distance.argmin(axis=1)]))

    def test_statistics_are_those_of_numpy(self):
        row, column = np.indices((700, 1600))  # some blocks, far from the origin
        noise = np.random.default_rng(1).exponential(200, row.shape)
        x, y = -3e5 + 0.1 * column, 4e6 - 0.05 * row
        part = (x >= -299990) & (x <= -299950) & (y >= 3999970) & (y <= 3999990)
        empty = (column * 7 + row) % 11 == 0
        for name, kind, gap, level, scale in (("map.png", "u2", [0], 20000, 0.001),
                                              ("map.tif", ">f4", [-9999, np.inf], 0, 1)):
            values = np.where(empty, np.resize(gap, empty.shape), level + 3 * column - 7 * row + noise)
            scans.save(self.folder / name, values.astype(kind))
            (self.folder / f"{name}.json").write_text(json.dumps({
                "content": "height map", "unit": "mm", "columns": 1600, "rows": 700, "missing": gap[0],
                "transform": {"scaleX": 0.1, "originX": -3e5, "scaleY": -0.05, "originY": 4e6,
                              "scaleZ": scale, "originZ": 7000}}))
            for where, options in ((~empty, []), (~empty & part, [
                    "--rect", "-299950,3999970,-299990,3999990"])):
                found = [subprocess.check_output(
                    [PLANEX, "stats", self.folder / name, "--json", "--threads", threads, *options])
                    for threads in "17"]
                self.assertEqual(*found)
                found, z = json.loads(found[0]), scale * values.astype(kind)[where].astype("f8") + 7000
                at = np.stack([x[where], y[where]]) - [[x[where].mean()], [y[where].mean()]]
                b, c = np.linalg.solve(at @ at.T, at @ (z - z.mean()))
                e = z - z.mean() - b * at[0] - c * at[1]
                sq = np.sqrt(np.mean(e ** 2))
                wanted = [z.size, z.min(), z.max(), z.mean(), np.median(z),
                          *np.percentile(z, [1, 5, 25, 75, 95, 99]), b, c,
                          z.mean() - b * x[where].mean() - c * y[where].mean(),
                          np.degrees(np.arctan(c)), sq, np.mean(abs(e)), np.ptp(e), e.max(), -e.min(),
                          np.mean(e ** 3) / sq ** 3, np.mean(e ** 4) / sq ** 4]
                plane = found["plane"]
                np.testing.assert_allclose(
                    [found[key] for key in ("filled", "minimum", "maximum", "mean", "median")]
                    + [*found["percentiles"].values(), plane["b"], plane["c"], plane["a"],
                       plane["tiltY"], *found["roughness"].values()], wanted, rtol=1e-9)

    def unfinished(self, child):
        """What it writes: a file without a name, or where there are none, with a hidden one."""
        for file in pathlib.Path(f"/proc/{child.pid}/fd").iterdir():
            with contextlib.suppress(FileNotFoundError):
                target = file.readlink()
                if target.parent == self.folder and re.search("deleted|planex-", target.name):
                    return file

    def test_a_cell_is_what_its_points_say(self):
        self.run_command("calibrate", "points.npy", "--aligned")
        points = np.load(self.folder / "points.npy").reshape(-1, 3).astype("f8")
        x, y, z = points[~np.isnan(points[:, 2])].T
        for mode, pick in (("mean", "mean"), ("lowest", "min"), ("highest", "max")):
            self.run_command("rectify", "map.npy", "--aligned", "--float", "--splat", 0, "--mode",
                             mode, "--row-size", 2, "--layers", "count,spread,sigma")
            cells = np.load(self.folder / "map.npy")
            at = json.loads((self.folder / "map.npy.json").read_text())["transform"]
            rows = np.rint((y - at["originY"]) / at["scaleY"]).astype(int)
            columns = np.rint((x - at["originX"]) / at["scaleX"]).astype(int)
            self.assertEqual(cells[..., 1].sum(), len(z))
            for row, column in np.argwhere(cells[..., 1] > 0):
                heights = z[(rows == row) & (columns == column)]
                wanted = [getattr(heights, pick)(), len(heights), np.ptp(heights),
                          heights.std(ddof=1) if len(heights) > 1 else np.nan]
                np.testing.assert_allclose(cells[row, column], wanted, rtol=1e-6, atol=1e-6)

    def test_signals_leave_nothing(self):
        scan, output = self.folder / "long.pgm", self.folder / "out.tif"
        with open(scan, "wb") as file:  # sparse: nothing was measured
            file.write(b"P5\n2560 400000\n65535\n")
            file.truncate(file.tell() + 2 * 2560 * 400000)
        before = set(self.folder.iterdir())
        points = ["map", MODEL, "--from", "pixel", "--to", "aligned"]  # waits for them
        for number, size, arguments in ((signal.SIGINT, 4e8, ["calibrate", MODEL, scan]),
                                        (signal.SIGTERM, 0, points), (signal.SIGKILL, 0, points)):
            child = subprocess.Popen([PLANEX, *arguments, "-o", output], stdin=subprocess.PIPE)
            while not (file := self.unfinished(child)) or file.stat().st_size < size:
                self.assertIsNone(child.poll())
            if size:  # of 8 GB, in bounded memory
                with file.open("rb") as written:
                    self.assertEqual(written.read(4), b"II+\0", "not a BigTIFF")
                status = pathlib.Path(f"/proc/{child.pid}/status").read_text()
                self.assertLess(int(re.search(r"VmHWM:\s*(\d+)", status)[1]), 300000)
            child.send_signal(number)
            self.assertEqual(child.wait(), -number)
            child.stdin.close()
            left = [path.name for path in set(self.folder.iterdir()) - before]
            self.assertLessEqual(len(left), number == signal.SIGKILL, left)


class Terminal(InFolder):
    def shown(self, seconds, *options, terminal=True):
        """What stands on standard error when a bar was drawn, or after that time. Nobody waits for
        the four thousand million points."""
        try:
            reader, writer = pty.openpty() if terminal else os.pipe()
        except OSError as error:
            self.skipTest(f"no terminal can be made: {error}")
        large = documents.example()
        large["data"]["SensorSize"] = {"x": 65535, "y": 65535}
        model = self.folder / "large.json"
        model.write_text(json.dumps(large))
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

    def test_progress_is_drawn_on_a_terminal_only(self):
        self.assertRegex(self.shown(60), r"comparing \[#*\.+\] \d+ %, [\d.]+ \w? ?points/s, .* left")
        self.assertEqual(self.shown(2, "--quiet"), "")
        self.assertEqual(self.shown(2, terminal=False), "")


outcome = unittest.main(exit=False).result
sys.exit(77 if outcome.skipped else not outcome.wasSuccessful())
