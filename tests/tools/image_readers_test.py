"""Usage: image_readers_test.py PLANEX. Which image files the command takes, and which it refuses."""
import pathlib
import random
import struct
import subprocess
import sys
import tempfile
import unittest
from array import array

import scans
from scans import MODEL, SENSOR, WIDTH, pgm, png, tiff

PLANEX = sys.argv.pop(1)
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


class ImageReaders(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.image = pathlib.Path(self.folder.name) / "image"
        self.out = pathlib.Path(self.folder.name) / "out.npy"

    def calibrate(self, data, *arguments, status=0):
        self.image.write_bytes(data)
        error = scans.run(PLANEX, "calibrate", MODEL, self.image, "-o", self.out, "--force", "-q",
                          *SENSOR, *arguments, status=status)
        return error if status else self.out.read_bytes()

    def test_same_pixels_give_same_points(self):
        for bits, files in ACCEPTED.items():
            whole = self.calibrate(files["pgm"])
            part = self.calibrate(files["pgm"], "--rows", "11:30")
            self.assertGreater(len(whole), WIDTH * scans.HEIGHT * 8)
            for name, data in files.items():
                with self.subTest(bits=bits, file=name):
                    self.assertEqual(self.calibrate(data, "--block", 7), whole)
                    self.assertEqual(self.calibrate(data, "--rows", "11:30"), part)

    def test_refuses(self):
        for name, (data, text) in REFUSED.items():
            with self.subTest(file=name):
                error = self.calibrate(data, status=1)
                self.assertIn(text, error)
                self.assertTrue(error.startswith(f"planex: {self.image}"), error)
                self.assertEqual(error.count("\n"), 1, error)
                self.assertEqual([p.name for p in self.image.parent.iterdir()], ["image"])

    def test_ends_orderly_whatever_the_bytes(self):
        chance = random.Random(5)
        for _ in range(150):
            data = bytearray(chance.choice([PNG, TIFF, PGM, *ACCEPTED[16].values()]))
            for _ in range(chance.choice([1, 2, 6])):  # headers and directories more than pixels
                near = chance.randrange(300)
                data[chance.choice([near, -near - 1])] = chance.choice([0, 1, 128, 255])
            self.image.write_bytes(data[:chance.choice([len(data), chance.randrange(len(data))])])
            done = subprocess.run([PLANEX, "calibrate", MODEL, self.image, "-o", self.out, "-f",
                                   "-q", *SENSOR], capture_output=True, text=True, timeout=60)
            self.assertIn(done.returncode, (0, 1), done.stderr)
            self.assertEqual(done.stderr.startswith(f"planex: {self.image}: "), done.returncode == 1
                             or "values lie outside" in done.stderr, done.stderr)

    def test_refuses_what_is_no_regular_file(self):
        for path in (self.folder.name, "/dev/zero", self.image):
            scans.run(PLANEX, "calibrate", MODEL, path, "-o", self.out, status=1)


unittest.main()
