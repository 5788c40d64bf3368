"""Usage: camera_test.py PLANEX SERVER [TEST...]. Frames of cameras on the loopback of a network of
our own, where that may be made."""
import contextlib
import ctypes
import fcntl
import json
import os
import pathlib
import re
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time
import unittest

import numpy as np
from PIL import Image

import genicam

PLANEX, SERVER, *CHOSEN = sys.argv[1:]
CAMERA, SMALL = "camera:127.0.0.1", ["--region", "64x32", "--rate", "200"]
CLONE_NEWUSER, CLONE_NEWNET, SIOCSIFFLAGS, IFF_UP = 0x10000000, 0x40000000, 0x8914, 1


def make_network():
    libc = ctypes.CDLL(None, use_errno=True)
    if libc.unshare(CLONE_NEWNET) and libc.unshare(CLONE_NEWUSER | CLONE_NEWNET):
        print("skipped: no network of its own can be made:", os.strerror(ctypes.get_errno()))
        sys.exit(77)
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as any_socket:
        fcntl.ioctl(any_socket, SIOCSIFFLAGS, struct.pack("16sh14x", b"lo", IFF_UP))


def sent(number, size, width=64):
    """The bytes of a frame: see camera_server.cc."""
    i = np.arange(size)
    line = 200 - 5 * abs(8 * (i // width) - 64 - (2 * (i % width) + 3 * number) % 128)
    data = (np.maximum(line, 0) + (13 * i + 7 * number) % 16).astype("u1")
    data[:2] = number & 255, number >> 8
    return data


def unpacked(data, bits):
    if bits in (8, 16):
        return data.view(f"<u{bits // 8}")
    ones = np.unpackbits(data, bitorder="little").reshape(-1, bits).astype(int)
    return (ones << np.arange(bits)).sum(axis=1)


class Camera(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        (self.folder / "camera.xml").write_text(genicam.DOCUMENT)
        self.start()

    def start(self, *command):
        command = command or (SERVER, self.folder / "camera.xml", "0")
        self.server = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.assertEqual(self.server.stdout.readline(), "ready\n")
        self.addCleanup(self.end, self.server)

    def end(self, server):
        server.stdin.close()
        server.wait()
        server.stdout.close()

    def open(self, output, *options):
        command = [PLANEX, "grab", CAMERA, "-o", self.folder / output, *options]
        return subprocess.Popen(list(map(str, command)), stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, text=True)

    def grab(self, output, *options, status=0):
        child = self.open(output, *options)
        text, error = child.communicate()
        self.assertEqual(child.returncode, status, error)
        return text if status == 0 else error

    def wait_for(self, child, size=200_000):
        """Until it has written so much."""
        end = time.monotonic() + 20
        while True:
            self.assertIsNone(child.poll())
            self.assertLess(time.monotonic(), end)
            for file in pathlib.Path(f"/proc/{child.pid}/fd").iterdir():
                with contextlib.suppress(FileNotFoundError):  # closed in between
                    if "deleted" in os.readlink(file) and file.stat().st_size > size:
                        return
            time.sleep(0.01)

    def check_frames(self, frames, lost=()):
        """Frames of bytes follow each other, and those that are lost are 0. Gives their numbers."""
        flat, width = np.array(frames).reshape(len(frames), -1), frames[0].shape[1]
        first = min(set(range(len(flat))) - set(lost))
        start = int(flat[first, 0]) + 256 * int(flat[first, 1]) - first
        for i, frame in enumerate(flat):
            wanted = sent(start + i, frame.size, width) if i not in lost else np.zeros(frame.size, "u1")
            self.assertTrue(np.array_equal(frame, wanted), f"frame {i}")

    def raw(self, name, shape=(32, 64)):
        return np.fromfile(self.folder / name, "u1").reshape(-1, *shape)

    def sidecar(self, name):
        return json.loads((self.folder / f"{name}.json").read_text())

    def test_frames_are_those_that_were_sent(self):
        self.grab("wrap.raw", "-n", 300, "--region", "64x32", "--rate", 500)  # from 65300 on
        self.check_frames(self.raw("wrap.raw"))
        self.assertEqual(self.sidecar("wrap.raw")["frames"], {"count": 300, "lost": 0})
        for name, bits in (("Mono16", 16), ("Mono12p", 12), ("Mono10p", 10)):
            self.grab("deep.raw", "-fn", 3, *SMALL, "--set", f"PixelFormat={name}")
            frames = np.fromfile(self.folder / "deep.raw", "<u2").reshape(3, -1)
            start = next(k for k in range(65536)
                         if np.array_equal(unpacked(sent(k, 256 * bits), bits), frames[0]))
            for i, frame in enumerate(frames):
                np.testing.assert_array_equal(unpacked(sent(start + i, 256 * bits), bits), frame)
        self.grab("pages.tif", "-n", 4, *SMALL, "--set", "PixelFormat=Mono8")
        with Image.open(self.folder / "pages.tif") as pages:
            frames = []
            for page in range(pages.n_frames):
                pages.seek(page)
                frames.append(np.asarray(pages))
        self.assertEqual(len(frames), 4)
        self.check_frames(frames)

    def test_ranges_are_rows(self):
        self.grab("range.npy", "-n", 3, *SMALL, "--set", "PixelFormat=Coord3D_C16", "--set",
                  "BinningHorizontal=2")
        rows = np.load(self.folder / "range.npy").reshape(96, 64)
        wanted = np.concatenate([sent(int(rows[0, 0]) + i, 4096).view("<u2") for i in range(3)])
        invalid = wanted == 0x0104
        self.assertTrue(invalid.any())
        np.testing.assert_array_equal(rows.ravel(), np.where(invalid, 0, wanted))
        told = self.sidecar("range.npy")
        self.assertEqual(told["content"], "range image")
        self.assertEqual(told["sensor"], {
            "scaleX": 2, "originX": 0.5, "scaleZ": 0.03125, "originZ": 100, "width": 128,
            "height": 2048})
        self.assertIn("must end in .tif, .png or .npy", self.grab("range.pgm", status=2))
        self.assertIn("Height=1", self.grab("y.tif", "--y-from", "time:1", status=2))

    def test_chunks_times_and_parts(self):
        self.end(self.server)
        self.start(sys.executable, "-B", pathlib.Path(__file__).with_name("gige_camera.py"),
                   self.folder / "camera.xml")
        self.grab("a.raw", "-n", 20, "--y-from", "chunk:EncoderValue:0.5")  # longer than 16 bits
        first = self.raw("a.raw", (4, 64))[:, 0, 0]
        np.testing.assert_array_equal(first, (first[0] + np.arange(20)) % 256)
        y = np.loadtxt(self.folder / "a_y.txt")
        self.assertGreater(y[-1], 1.5 * 65535)
        np.testing.assert_array_equal(y / 1.5 % 256, first)
        self.assertEqual(self.sidecar("a.raw")["rows"], {"positions": "a_y.txt"})
        self.grab("b.raw", "-n", 5, "--y-from", "time:8")  # a frame every 1/128 s
        np.testing.assert_array_equal(np.loadtxt(self.folder / "b_y.txt"), np.arange(5) / 16)
        self.grab("range.npy", "-n", 5, "--set", "PixelFormat=Coord3D_C16")
        rows = np.load(self.folder / "range.npy").reshape(5, -1)
        wanted = (rows[:, :1].astype(int) + np.arange(256)) % 256
        np.testing.assert_array_equal(rows, wanted)
        np.testing.assert_array_equal(np.diff(rows[:, 0].astype(int)) % 256, 1)
        intensity = np.load(self.folder / "range_intensity.npy")
        self.assertEqual(intensity.dtype, "u1")
        np.testing.assert_array_equal(intensity.reshape(5, -1), wanted)

    def test_live_extraction_is_that_of_files(self):
        np.concatenate([sent(k, 2048) for k in range(120)]).tofile(self.folder / "frames.raw")
        found = {}
        for name, source in (("files", [self.folder / "frames.raw", "--raw", "64x32:mono8"]),
                             ("live", [CAMERA, "-n", 60, *SMALL])):
            images = [self.folder / f"{name}{i}.npy" for i in range(3)]
            subprocess.check_call(map(str, [
                PLANEX, "extract", "-q", *source, "-o", images[0], "--intensity", images[1],
                "--quality", images[2]]))
            found[name] = np.concatenate([np.load(image).reshape(-1, 64) for image in images], 1)
        self.assertGreater((found["files"][:, :64] > 0).mean(), 0.9)
        self.assertTrue(any(np.array_equal(found["files"][k:k + 60], found["live"])
                            for k in range(60)))
        subprocess.check_call(map(str, [
            PLANEX, "extract", "-q", CAMERA, "-n", 2, *SMALL, "--set", "PixelFormat=Mono12p", "-o",
            self.folder / "deep.npy"]))
        self.assertEqual(self.sidecar("deep.npy")["extraction"]["threshold"], 4095 / 25)

    def test_sidecar_tells_where_frames_lie(self):
        self.grab("a.raw", "-n", 1, "--set", "BinningHorizontal=2", "--set", "DecimationVertical=3",
                  "--set", "ReverseX=true", "--region", "64x32+100+10")
        told = self.sidecar("a.raw")
        self.assertEqual(told["sensor"], {
            "scaleX": -2, "originX": 2047 - 200.5, "scaleZ": 3, "originZ": 30, "width": 128,
            "height": 96})
        self.assertEqual(told["camera"]["features"],
                         {"BinningHorizontal": "2", "DecimationVertical": "3", "ReverseX": "true"})
        self.assertEqual(told["camera"]["serial"], "Test1")

    def test_lost_frames(self):
        self.end(self.server)
        self.start(SERVER, self.folder / "camera.xml", "0.02")
        text = self.grab("mark.raw", "-n", 200, *SMALL)
        lost = self.sidecar("mark.raw")["frames"]["lostNumbers"]
        self.assertGreater(len(lost), 0)
        self.assertIn(f"200 frames of 64 x 32 pixels, {len(lost)} lost", text)
        self.check_frames(self.raw("mark.raw"), lost)
        self.grab("skip.raw", "-n", 200, *SMALL, "--lost", "skip")
        numbers = [int(frame[0, 0]) + 256 * int(frame[0, 1]) for frame in self.raw("skip.raw")]
        self.assertEqual(numbers[-1] - numbers[0] - 199, self.sidecar("skip.raw")["camera"]["lost"])
        error = self.grab("fail.raw", *SMALL, "--lost", "fail", status=1)
        kept = self.raw("fail.raw")
        self.assertRegex(error, rf"planex: {CAMERA}: \d+ frames are lost behind frame {len(kept)};")
        self.check_frames(kept)

    def test_a_late_reader_loses_frames_and_knows_which(self):
        child = self.open("late.raw", "-n", 400, "--region", "512x64", "--rate", 200, "--buffers", 2)
        self.wait_for(child)
        child.send_signal(signal.SIGSTOP)
        time.sleep(1)
        child.send_signal(signal.SIGCONT)
        child.communicate()
        self.assertEqual(child.returncode, 0)
        lost = self.sidecar("late.raw")["frames"]["lostNumbers"]
        self.assertGreater(len(lost), 0)
        self.check_frames(self.raw("late.raw", (64, 512)), lost)

    def test_what_was_recorded_stays(self):
        for number, status, error in (
                (signal.SIGINT, 0, ""), (signal.SIGTERM, 0, ""),
                (None, 1, r"(no frame came for 1 seconds|does not answer any longer).*; what came "
                          "before is kept")):
            child = self.open("kept.raw", *SMALL, "-f", "--timeout", 1)
            self.wait_for(child)
            if number:
                child.send_signal(number)
            else:
                self.server.kill()
            text, said = child.communicate()
            self.assertEqual(child.returncode, status, said)
            self.assertRegex(said, f"^planex: {CAMERA}: {error}\n$" if error else "^$")
            frames = self.raw("kept.raw")
            self.assertGreater(len(frames), 90)
            self.assertIn(f"{len(frames)} frames", text)
            self.check_frames(frames)

    def test_a_second_signal_removes_it(self):
        child = self.open("gone.raw", *SMALL)
        self.wait_for(child)
        for number in (signal.SIGSTOP, signal.SIGINT, signal.SIGTERM, signal.SIGCONT):
            child.send_signal(number)
        child.communicate()
        self.assertIn(-child.returncode, (signal.SIGINT, signal.SIGTERM))
        self.assertEqual([path.name for path in self.folder.iterdir()], ["camera.xml"])

    def test_refusals(self):
        for options, error in (
                (["--set", "Foo=3"], "has no feature Foo; its manual tells how it calls them"),
                (["--set", "SensorWidth=3"], "does not let SensorWidth be set"),
                (["--set", "Width=99999"], "Width takes whole numbers from 8 to 2048, not 99999"),
                (["--region", "-8x4"], None), (["--region", "64x4+2"], None),
                (["--set", "Width=12"], "Width takes 8 and what is multiples of 8 above, not 12"),
                (["--set", "ReverseX=yes"], "ReverseX takes true or false, not yes"),
                (["--set", "PixelFormat=Mono9"], "PixelFormat takes Mono8, Mono16, Mono10p, .*, not "
                                                 "Mono9"),
                (["--rate", "5000"], "takes a frame rate from 0.1 to 1000, not 5000"),
                (["--trigger", "Line1"], "is triggered by Line0, Software, not Line1"),
                (["--y-from", "chunk:Counter:1"], r"has no chunk Counter \(.*\)"),
                (["--y-from", "chunk:EncoderValue:1"],
                 "sends no ChunkEncoderValue with its frames"),
                (["--y-from", "time"], None),
                (["--set", "PixelFormat=RGB8"], "sends RGB8; set PixelFormat to Mono8, .*"),
                (["--set", "PixelFormat=Coord3D_C16", "--set", "Scan3dDistanceUnit=Millimeter"],
                 "sends values that it has calibrated itself, in the unit Millimeter, to which no "
                 "model applies; .*")):
            with self.subTest(options=options):
                text = self.grab("none.raw", "-n", 1, *options, status=1 if error else 2)
                self.assertRegex(text, f"^planex: {CAMERA}: {error}\n$" if error else "^planex: --")
        self.grab("first.raw", "-n", 1, *SMALL, "--set", "PixelFormat=Mono8")
        self.assertIn("exists", self.grab("first.raw", "-n", 1, status=1))
        child = self.open("second.raw", *SMALL)
        self.wait_for(child)
        self.assertIn("is controlled by another program", self.grab("third.raw", status=1))
        found = json.loads(subprocess.check_output([PLANEX, "cameras", "--json"]))["cameras"]
        self.assertEqual([(camera["serial"], camera["address"]) for camera in found],
                         [("Test1", "127.0.0.1")])
        child.terminate()
        child.communicate()
        self.assertRegex(
            self.grab("none.raw", "--trigger", "Software", "--timeout", 0.3, status=1),
            f"^planex: {CAMERA}: no frame came for 0.3 seconds\n$")
        self.assertEqual(list(self.folder.glob("none*")), [])


make_network()
signal.signal(signal.SIGINT, signal.default_int_handler)  # children do not ignore it either
outcome = unittest.main(argv=[sys.argv[0], *CHOSEN], exit=False, verbosity=2).result
sys.exit(77 if outcome.skipped else not outcome.wasSuccessful())
