"""What compare.py measures with the benchmark programs."""

import collections

# How a ratio reads.
FASTER, COST = "{:.1f} x faster", "{:.2f} x its time"

# What is measured: the work, our benchmark, what it stands beside, that benchmark, and how the
# ratio reads.
Pair = collections.namedtuple("Pair", "work ours beside peer kind")
SCALAR, COPY = "scalar loop", "copy of the same bytes"
PAIRS = [
    Pair(work, f"calibrate/{ours}", SCALAR, f"scalar/{peer}", FASTER)
    for work, ours, peer in [
        ("calibrate", "flat_avx512", "flat"),
        ("calibrate, AVX2", "flat_avx2", "flat"),
        ("calibrate, baseline", "flat_baseline", "flat"),
        ("calibrate, sheet curve", "sheet_avx512", "sheet"),
        ("calibrate, sheet curve, AVX2", "sheet_avx2", "sheet"),
        ("calibrate, sheet curve, baseline", "sheet_baseline", "sheet")]
] + [Pair(*p) for p in [
    ("calibrate", "calibrate/flat_avx512", "Eigen rows, -O3 -march=native", "eigenRows/flat",
     FASTER),
    ("calibrate, sheet curve", "calibrate/sheet_avx512", "Eigen rows, -O3 -march=native",
     "eigenRows/sheet", FASTER),
    ("calibrate, uncached", "calibrate/flat_uncached", COPY, "copyBytes/uncached", COST),
    ("calibrate, sheet curve, uncached", "calibrate/sheet_uncached", COPY, "copyBytes/uncached",
     COST),
    ("calibrate, two threads", "calibrate/flat_two_threads/real_time", "one thread",
     "calibrate/flat_avx512", FASTER),
    ("align", "align/physical_avx512", SCALAR, "scalar/physical", FASTER),
    ("align scaled values", "align/scaled_avx512", SCALAR, "scalar/scaled", FASTER),
    ("align, uncached", "align/physical_uncached", COPY, "copyBytes/align_uncached", COST),
    ("align scaled values, uncached", "align/scaled_uncached", COPY, "copyBytes/align_uncached",
     COST),
]] + [
    Pair(f"mapPoints {name}", f"mapPoints/{key}_avx512", SCALAR, f"scalar/{key}", FASTER)
    for name, key in [("forward", "forward"), ("forward, sheet curve", "forward_sheet"),
                      ("inverse", "inverse"), ("inverse, sheet curve", "inverse_sheet")]
]
READ = "reading the frame once"
PAIRS += [
    Pair(f"extract{name}", f"extractBytes/{ours}", READ, "readOnce/1024", COST)
    for name, ours in [
        ("", "strongest_Avx512_1024"), (", AVX2", "strongest_Avx2_1024"),
        (", baseline", "strongest_Baseline_1024"), (", any rule, with quality", "any_Avx512_1024"),
        (", centre of gravity", "gravity")]
] + [Pair("extract, two threads", "extractBytes/two_threads/real_time", "one thread",
          "extractBytes/strongest_Avx512_1024", FASTER)]
MODES = ["LOWEST", "HIGHEST", "MEAN", "LOWEST_intensity", "HIGHEST_intensity", "DARKEST_intensity",
         "BRIGHTEST_intensity", "MEAN_intensity"]
PAIRS += [
    Pair(f"rectify {mode.replace('_', ' with ')}", f"rectify/{mode}/1", SCALAR,
         f"scalar/{mode}/1", FASTER) for mode in MODES
] + [
    Pair(f"rectify {mode.replace('_', ' with ')}, half-width 15", f"rectify/{mode}/15",
         "half-width 1", f"rectify/{mode}/1", COST) for mode in MODES
] + [Pair(*p) for p in [
    ("applyCalibration, one profile a call", "calibrateCalls/profiles", "whole image",
     "calibrateCalls/image", COST),
    ("rectify, one profile a call", "rectifyCalls/profiles", "whole image", "rectifyCalls/image",
     COST),
    ("applyCalibration, all threads", "calibrateCalls/image_all_threads/real_time", "one thread",
     "calibrateCalls/image", FASTER),
    ("rectify, all threads", "rectifyCalls/image_all_threads/real_time", "one thread",
     "rectifyCalls/image", FASTER),
    ("look a model up", "lookUpModel", "-", None, None),
    ("copy a model", "copyModel/region_200", "-", None, None),
    ("read a model of 1 MB", "readModel/region_200", "cJSON_Parse alone", "parseOnly/region_200",
     COST),
    ("createModelFromJson, 1 MB", "createModel/region_200", "cJSON_Parse alone",
     "parseOnly/region_200", COST),
    ("createJsonFromModel, 1 MB", "exportModel/region_200", "-", None, None),
]]
SCALE = [
    Pair(f"{call}, {name} M pixels", f"{call}/{height}", "1 M pixels", f"{call}/250", COST)
    for call in ("applyCalibration", "rectify")
    for name, height in (("10", 2500), ("100", 25000), ("250", 61035))
]
# What a reader decides by, as (work, beside).
DECISIVE = {
    ("calibrate", SCALAR), ("calibrate, uncached", COPY), ("applyCalibration", "NumPy float64"),
    ("applyCalibration", "OpenCV, strips of rows"), ("applyCalibration, all threads", "one thread"),
    ("rectify LOWEST", SCALAR), ("rectify MEAN, half-width 0", "NumPy bincount"),
    ("mapPoints inverse", "OpenCV undistortPoints"), ("extract", READ),
    ("extractLines", "NumPy centre of gravity"), ("rectify, one profile a call", "whole image"),
    ("applyCalibration, 100 M pixels (+0.0 MB)", "1 M pixels"),
}
