"""Usage: command_test.py PLANEX WHOLE_SCAN. What a transcript cannot show of the command: that scans
come out as single calls of the library give them, whatever blocks and threads; which files of others
are taken; what is left behind by failures and signals; pictures and progress."""
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
from array import array

import documents
import scans
from scans import HEIGHT, MODEL, SENSOR, WIDTH, Y, pgm, png, tiff

PLANEX, WHOLE_SCAN = sys.argv.pop(1), sys.argv.pop(1)
MODES = ["mean", "lowest", "highest", "darkest", "brightest"]
BLOCKS = [["--block", "1", "--threads", "1"], ["--block", "7", "--threads", "2"],
          ["--block", "1000", "--threads", "7"]]
SHORT = scans.range_values()
BYTES = array("B", (value >> 8 for value in SHORT))
PNG, TIFF, PGM = png(SHORT), tiff(SHORT), pgm(SHORT)


def with_bytes(data, position, replacement):
    return data[:position] + replacement + data[position + len(replacement):]


# The same pixels, however they are stored.
ACCEPTED = {
    16: {"pgm": PGM, "comment": pgm(SHORT, comment=b"# 5 6\n"), "png": PNG, "tiff": TIFF, "one strip": tiff(SHORT, rows_per_strip=45),
         "big endian": tiff(SHORT, order=">"), "deflate": tiff(SHORT, deflate=True),
         "deflate big endian": tiff(SHORT, order=">", deflate=True),
         "one deflate strip": tiff(SHORT, deflate=True, rows_per_strip=45)},
    8: {"pgm": pgm(BYTES), "png": png(BYTES), "tiff": tiff(BYTES),
        "deflate": tiff(BYTES, deflate=True)},
}
REFUSED = {
    "empty": (b"", "is not a PNG"),
    "text": (b"hello, world", "is not a PNG"),
    "ascii greymap": (b"P2\n1 1\n255\n7\n", "is not a PNG"),
    "pgm cut": (PGM[:-1], "where its header announces"),
    "pgm longer": (PGM + b"\n", "where its header announces"),
    "pgm without end of header": (b"P5\n3 2\n255", "no valid PGM header"),
    "pgm maximum": (b"P5\n1 1\n65536\n\0\0", "no valid PGM header"),
    "pgm huge": (b"P5\n1000000 4000000000\n65535\n", "too many"),
    "pgm wide": (b"P5\n4000000000 1\n65535\n", "columns"),
    "pgm overflow": (b"P5\n99999999999999999999 1\n65535\n", "no valid PGM header"),
    "pgm value": (b"P5\n159 1\n9\n" + b"\x0a" * 159, "above the announced maximum"),
    "png header only": (PNG[:33], "damaged"),
    "png cut": (PNG[:-60], "damaged or cut off at row"),
    "png without end": (PNG[:-12], "damaged or cut off at row"),
    "png flipped bit": (with_bytes(PNG, 200, bytes([PNG[200] ^ 4])), "damaged or cut off at row"),
    "png color": (png(BYTES[:159 * 3], width=53, color=2), "no greyscale image"),
    "png interlaced": (png(SHORT, interlace=1), "interlaced"),
    "png announces more": (png(SHORT, height=2000000000), "announces more pixels"),
    "png rows missing": (png(SHORT, height=46), "damaged or cut off at row 45"),
    "tiff cut": (TIFF[:5000], "damaged TIFF"),
    "tiff directory beyond": (TIFF[:4] + struct.pack("<I", 1 << 30), "damaged TIFF"),
    "tiff float": (tiff(SHORT, tag_339=[3]), "no greyscale image"),
    "tiff signed": (tiff(SHORT, tag_339=[2]), "no greyscale image"),
    "tiff color": (tiff(SHORT, tag_277=[3]), "no greyscale image"),
    "tiff inverted": (tiff(SHORT, tag_262=[0]), "no greyscale image"),
    "tiff 32 bits": (tiff(SHORT, tag_258=[32]), "no greyscale image"),
    "tiff tiles": (tiff(SHORT, tag_322=[16], tag_323=[16], tag_324=[8], tag_325=[512]), "tiles"),
    "tiff strip beyond": (tiff(SHORT, tag_273=[8, 1 << 30, 5, 5, 5, 5]), "strip"),
    "tiff short strip": (tiff(SHORT, tag_279=[9, 9, 9, 9, 9, 9]), "strip"),
    "tiff too few strips": (tiff(SHORT, tag_257=[1000000]), "damaged"),
    "tiff huge": (tiff(SHORT, tag_256=[1 << 31], tag_257=[1 << 31]), "damaged TIFF"),
    "tiff damaged strip": (with_bytes(tiff(SHORT, deflate=True), 60, b"\xff" * 40), "cut off at row"),
    "tiff unknown compression": (tiff(SHORT, tag_259=[34712]), "compressed"),
}


class Case(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = scans.write_scan(folder.name)
        self.image, self.out = self.folder / "range.pgm", self.folder / "out"
        self.intensity = ["--intensity", self.folder / "intensity.pgm"]

    def run_command(self, command, output, *arguments, model=MODEL):
        output = self.folder / output
        scans.run(PLANEX, command, model, self.image, "-o", output, "-f", "-q", *SENSOR, *Y,
                  *arguments)
        return output.read_bytes()


class WholeScan(Case):
    def expect(self, mode="mean"):
        subprocess.run([WHOLE_SCAN, MODEL, self.image, self.intensity[1], self.folder,
                        str(MODES.index(mode))], check=True)

    def wanted(self, *names, rows=(0, HEIGHT)):
        """The rows of the expected arrays, their numbers next to each other."""
        arrays = []
        for name in names:
            data = (self.folder / name).read_bytes()
            size = {"f32": 4, "u16": 2, "u8": 1}[name.split(".")[1]]
            cells = range(rows[0] * WIDTH * size, rows[1] * WIDTH * size, size)
            arrays.append([data[i:i + size] for i in cells])
        return b"".join(b"".join(record) for record in zip(*arrays))

    def test_points(self):
        self.expect()
        for output, arguments, arrays in (("points.npy", [], ["x.f32", "z.f32"]),
                                          ("aligned.npy", ["--aligned"], ["xa.f32", "ya.f32", "za.f32"]),
                                          ("aligned.ply", ["--aligned"], ["xa.f32", "ya.f32", "za.f32"])):
            for block in BLOCKS:
                with self.subTest(output=output, block=block):
                    data = self.run_command("calibrate", output, *arguments, *block)
                    wanted = self.wanted(*arrays)
                    self.assertEqual(data[-len(wanted):], wanted)
        part = self.run_command("calibrate", "points.npy", "--rows", "11:30")
        wanted = self.wanted("x.f32", "z.f32", rows=(11, 30))
        self.assertEqual(part[-len(wanted):], wanted)

    def test_height_maps(self):
        def check(output, name, rows=(0, HEIGHT)):  # the strips stand one behind the other
            wanted = self.wanted(name, rows=rows)
            self.assertEqual((self.folder / output).read_bytes()[8:][:len(wanted)], wanted)

        for mode in MODES:
            self.expect(mode)
            for block in BLOCKS:
                with self.subTest(mode=mode, block=block):
                    arguments = ["--mode", mode, *self.intensity, *block]
                    self.run_command("rectify", "map.tif", *arguments)
                    check("map.tif", "levels.u16")
                    check("map_intensity.tif", "grey.u8")
                    self.run_command("rectify", "map.tif", "--float", *arguments)
                    check("map.tif", "heights.f32")
        self.run_command("rectify", "map.tif", "--rows", "11:30", *self.intensity, "--mode", mode)
        check("map_intensity.tif", "grey.u8", (11, 30))

    def test_every_file_is_the_same_for_all_blocks(self):
        def run(*block):
            self.run_command("rectify", "map.png", *self.intensity, *self.intensity, "--preview",
                             self.folder / "preview.png", *block)
            self.run_command("rectify", "small.tif", "--compress", "deflate", *block)
            self.run_command("calibrate", "points.pcd", *self.intensity, *block)
            self.run_command("calibrate", "points.tif", "--aligned", "--compress", "zstd", *block)
            return {path: path.read_bytes() for path in self.folder.iterdir()}

        before = run()
        self.assertIn(self.folder / "map_intensity2.png", before)
        for block in BLOCKS:
            for path, data in run(*block).items():
                self.assertEqual(data, before[path], f"{path} {block}")

    def test_what_stands_beside_the_image(self):
        whole = self.run_command("rectify", "map.tif")
        points = self.run_command("calibrate", "points.ply")
        (self.folder / "range.pgm.json").write_text(json.dumps({"sensor": {
            "scaleX": 16, "originX": 8, "scaleZ": 1 / 16, "originZ": 160, "height": 704}}))
        positions = self.folder / "y.txt"
        positions.write_text("".join(f"{0.5 * row + 3}\n" for row in range(HEIGHT)))
        scans.run(PLANEX, "rectify", MODEL, self.image, "-o", self.out.with_suffix(".tif"), *Y)
        self.assertEqual(self.out.with_suffix(".tif").read_bytes(), whole)
        scans.run(PLANEX, "calibrate", MODEL, self.image, "-o", self.out.with_suffix(".ply"),
                  "--y-file", positions)
        self.assertEqual(self.out.with_suffix(".ply").read_bytes(), points)

    def test_sidecars_are_utf8_whatever_the_names(self):
        image = os.fsencode(self.folder) + b"/sc\xe4n \xc3\xa4 \xed\xa0\x80.pgm"
        os.rename(self.image, image)
        for unit, status in ((b"\xb5m", 2), ("\u00b5m".encode(), 0)):
            done = subprocess.run([PLANEX, "rectify", MODEL, image, "-o", self.folder / "map.tif",
                                   "--unit", unit, *SENSOR], capture_output=True)
            self.assertEqual(done.returncode, status, done.stderr)
        told = json.loads((self.folder / "map.tif.json").read_bytes().decode())
        self.assertEqual(told["unit"], "\u00b5m")
        self.assertEqual(told["range"], f"{self.folder}/sc?n \u00e4 ???.pgm")


class Images(Case):
    def calibrate(self, data, *arguments):
        self.image.write_bytes(data)
        return self.run_command("calibrate", "out.npy", *arguments)

    def test_same_pixels_give_same_points(self):
        for bits, files in ACCEPTED.items():
            whole = self.calibrate(files["pgm"])
            part = self.calibrate(files["pgm"], "--rows", "11:30")
            self.assertGreater(len(whole), WIDTH * HEIGHT * 8)
            for name, data in files.items():
                with self.subTest(bits=bits, file=name):
                    self.assertEqual(self.calibrate(data, "--block", 7), whole)
                    self.assertEqual(self.calibrate(data, "--rows", "11:30"), part)

    def test_refuses(self):
        for name, (data, text) in REFUSED.items():
            with self.subTest(file=name):
                self.image.write_bytes(data)
                error = scans.run(PLANEX, "calibrate", MODEL, self.image, "-o", self.out.with_suffix(
                    ".npy"), *SENSOR, status=1)
                self.assertIn(text, error)
                self.assertTrue(error.startswith(f"planex: {self.image}"), error)
                self.assertEqual(error.count("\n"), 1, error)
                self.assertEqual(list(self.folder.glob("out*")), [])
        for path in (self.folder, "/dev/zero", "missing.png"):
            scans.run(PLANEX, "calibrate", MODEL, path, "-o", "out.npy", status=1)


class Outputs(Case):
    def test_signals_leave_nothing(self):
        scan = self.folder / "long.pgm"
        with open(scan, "wb") as file:  # sparse: nothing was measured
            file.write(b"P5\n2560 400000\n65535\n")
            file.truncate(file.tell() + 2 * 2560 * 400000)
        before = set(self.folder.iterdir())
        points = ["map", MODEL, "--from", "pixel", "--to", "aligned"]  # waits for them
        for number, arguments in ((signal.SIGINT, ["rectify", MODEL, scan]),
                                  (signal.SIGTERM, points)):
            child = subprocess.Popen([PLANEX, *arguments, "-o", self.out.with_suffix(".tif")],
                                     stdin=subprocess.PIPE)
            while not list(self.folder.glob("out.tif.*")):
                self.assertIsNone(child.poll())
            child.send_signal(number)
            self.assertEqual(child.wait(), -number)
            child.stdin.close()
            self.assertEqual(set(self.folder.iterdir()), before)

    def test_failure_leaves_what_was_there(self):
        self.out.write_text("mine")
        before = set(self.folder.iterdir())
        for arguments in ([], ["--force"]):  # with it, the second line is no point
            done = subprocess.run([PLANEX, "map", MODEL, "--from", "pixel", "--to", "aligned", "-o",
                                   self.out, *arguments], input="1,2\nx\n", text=True)
            self.assertEqual(done.returncode, 1)
            self.assertEqual(self.out.read_text(), "mine")
            self.assertEqual(set(self.folder.iterdir()), before)

    def test_force_replaces_the_file_behind_a_link(self):
        target, link = self.folder / "target.json", self.folder / "link.json"
        target.write_text("old")
        target.chmod(0o640)
        link.symlink_to(target)
        scans.run(PLANEX, "convert", MODEL, "-o", link, "-f")
        self.assertTrue(link.is_symlink())
        scans.run(PLANEX, "check", target)
        self.assertEqual(target.stat().st_mode & 0o777, 0o640)

    def test_long_lists_in_blocks(self):
        count = 150000  # more than two blocks
        text = "".join(f"{i % 2560},{i % 1024}\n" for i in range(count))
        for systems in (["--from", "pixel", "--to", "aligned"], ["--from", "aligned", "--to", "pixel"]):
            text = subprocess.run([PLANEX, "map", MODEL, *systems], input=text, text=True,
                                  stdout=subprocess.PIPE, check=True).stdout
        lines = text.splitlines()
        self.assertEqual(len(lines), count)
        for i in list(range(0, count, 997)) + [65535, 65536, count - 1]:
            column, row = map(float, lines[i].split(","))
            # The way back stops when a round changes less than 1e-5 focal lengths, 0.064 pixels.
            self.assertAlmostEqual(column, i % 2560, delta=0.064)
            self.assertAlmostEqual(row, i % 1024, delta=0.064)

    def test_plot(self):
        plain = documents.example()
        for document, height in ((plain, 800), (documents.with_region(plain), 1460)):
            picture, drawing = self.folder / f"{height}.png", self.folder / f"{height}.svg"
            for path in (picture, drawing):
                subprocess.run([PLANEX, "info", "-", "--plot", path], input=json.dumps(document),
                               text=True, stdout=subprocess.DEVNULL, check=True)
            header = picture.read_bytes()[:26]
            self.assertEqual(struct.unpack(">IIBB", header[16:]), (1200, height, 8, 2))
            svg = xml.etree.ElementTree.parse(drawing).getroot()
            self.assertEqual((svg.get("width"), svg.get("height")), ("1200px", f"{height}px"))
            # The border of the sensor; of the calibrated region.
            self.assertIn("stroke:rgb(0%,36.", drawing.read_text())
            self.assertEqual("stroke:rgb(80%,32." in drawing.read_text(), document is not plain)

    def shown(self, seconds, *options, terminal=True):
        """What stands on standard error when a bar was drawn, or after that time. Nobody waits for
        the four thousand million points."""
        reader, writer = pty.openpty() if terminal else os.pipe()
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


unittest.main()
