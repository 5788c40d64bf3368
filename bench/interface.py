"""The library as compare.py and python_bench.py call it: the C interface, and mapPoints through a
small module."""

import ctypes
import json
import sys

import numpy as np

WIDTH, HEIGHT = 2560, 1000
FRAME_ROWS = 1024
CAMERA = {
    "f": 4100.0, "cx": 1271.0, "cy": 492.0,
    "c": [-0.11, 0.04, 0.013, 0.002, -0.0017, 0.02, -0.04],
    "h": [[110, -3, 12], [2, 140, 300], [-0.02, 0.31, 1.01]],
}


def document():
    data = {
        "FileVersion": 1, "CurrentState": "CALIBRATED", "SkewMode": "XZ_IN_LIGHT_PLANE",
        "CalibrationError": 0.01, "CalibrationErrorMax": 0.02, "AlignmentError": 0,
        "AlignmentErrorMax": 0, "FocalLength": CAMERA["f"],
        "SensorSize": {"x": WIDTH, "y": HEIGHT},
        "LensCenter": {"x": CAMERA["cx"], "y": CAMERA["cy"]},
        "Skew": {"x": 0, "y": 1, "z": 0}, "Homography": CAMERA["h"],
        "Pose": np.eye(4).tolist(), "LensCoefficients": CAMERA["c"],
    }
    return json.dumps({"class": "Image.Planex.Model", "data": data})


class SensorTraits(ctypes.Structure):
    _fields_ = [(n, ctypes.c_double) for n in ("scaleX", "originX", "scaleZ", "originZ")] + [
        ("width", ctypes.c_uint16), ("height", ctypes.c_uint16)]


class ImageSize(ctypes.Structure):
    _fields_ = [("width", ctypes.c_uint16), ("height", ctypes.c_uint16)]


class WorldRangeTraits(ctypes.Structure):
    _fields_ = [("xMin", ctypes.c_double), ("xMax", ctypes.c_double), ("xCount", ctypes.c_uint32),
                ("yMin", ctypes.c_double), ("yMax", ctypes.c_double), ("yCount", ctypes.c_uint32),
                ("zMin", ctypes.c_double), ("zMax", ctypes.c_double), ("zLevels", ctypes.c_uint32)]


class SplatSettings(ctypes.Structure):
    _fields_ = [(n, ctypes.c_double) for n in ("splatA", "splatB", "splatC")]


def pointer(array):
    return array.ctypes.data_as(ctypes.c_void_p)


class Planex:
    """Images of WIDTH x HEIGHT pixels, calibrated and rectified."""

    LOWEST, MEAN = 2, 0

    def __init__(self, build):
        self.lib = ctypes.CDLL(str(next(build.glob("lib*/**/libplanex.so"))))
        self.points = ctypes.CDLL(str(build / "bench" / "libplanex_peer_points.so"))
        for lib, names in ((self.lib, ("createModelFromJson", "createCalibrationFilter",
                                       "applyCalibration", "createRectificationFilter", "rectify")),
                           (self.points, ("setPixels", "mapForward", "mapInverse",
                                         "extractFrame"))):
            for name in names:
                getattr(lib, name).restype = ctypes.c_bool

    def _handle(self, function, *arguments):
        value = ctypes.c_uint32()
        if not function(*arguments, ctypes.byref(value)):
            sys.exit("the library refused an argument")
        return value

    def calibration(self, samples, x, z):
        """A call that calibrates `samples` into x and z."""
        handle = self._calibration_filter(WIDTH, HEIGHT)
        return lambda: self.lib.applyCalibration(handle, pointer(samples), pointer(x), pointer(z))

    def _calibration_filter(self, columns, rows):
        model = self._handle(self.lib.createModelFromJson, document().encode())
        return self._handle(self.lib.createCalibrationFilter, model,
                            SensorTraits(1, 0, 1 / 16, 0, WIDTH, HEIGHT),
                            ImageSize(columns, rows), 0x01100007)

    def calibrations(self, profile, x, z):
        """A function that calibrates one profile so often, without Python between the calls."""
        handle = self._calibration_filter(profile.size, 1)
        return lambda count: self.points.calibrateAgain(
            handle, pointer(profile), pointer(x), pointer(z), ctypes.c_int(count))

    def rectification(self, mode, grid, x, z, out):
        """A call that writes the height map of x and z, each point to one cell."""
        handle = self._handle(self.lib.createRectificationFilter, mode, grid,
                              ImageSize(WIDTH, HEIGHT), ctypes.c_uint64(0), None,
                              SplatSettings(0, 0, 1), ctypes.c_float(np.nan))
        return lambda: self.lib.rectify(handle, pointer(x), pointer(z), None, pointer(out), None)

    def extraction(self, frame, lines):
        """A call that finds the lines in a frame; range, intensity and width go into `lines`."""
        return lambda: self.points.extractFrame(pointer(frame), WIDTH, len(frame),
                                                *map(pointer, lines.values()))

    def set_camera(self, lens, homography, sheet, pixels):
        """The camera and the sensor positions of the mapping calls."""
        camera = np.array([CAMERA["f"], CAMERA["cx"], CAMERA["cy"], *lens, *np.ravel(homography),
                           *sheet], np.float64)
        self.points.setCamera(pointer(camera), ctypes.c_bool(len(sheet) > 0))
        if not self.points.setPixels(pointer(pixels), ctypes.c_size_t(len(pixels))):
            sys.exit("the library refused a camera")

    def mapped(self, count):
        out = np.empty((count, 2))
        self.points.getResult(pointer(out))
        return out
