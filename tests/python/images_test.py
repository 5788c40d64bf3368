import ctypes
import gc
import signal
import sys
import threading
import time
import tracemalloc

import numpy
import pytest
from hypothesis import given, settings, strategies

import planex

FLOAT = numpy.float32
GRID = planex.Grid(40, 0.5, -10.0, 0.01, -0.01, planex.Splat(0.0, 0.1))


def bits(*arrays):
    return [None if a is None else a.tobytes() for a in arrays]


NUMBERS = strategies.floats(-0.1, 0.1)


@settings(max_examples=40)
@given(strategies.lists(NUMBERS, min_size=8, max_size=8), strategies.sampled_from("BHILfd"),
       strategies.tuples(*[strategies.integers(1, 3)] * 2), strategies.integers(0, 9))
def test_calibration_is_its_formula_on_any_view(model, near, code, steps, origin):
    homography = numpy.append(near, 0.0).reshape(3, 3) + numpy.eye(3)
    plain = planex.Model(sensor_size=(600, 600), lens_center=(90, 110), focal_length=800,
                         homography=homography, state=1)
    image = (numpy.arange(33 * 40).reshape(33, 40) % 101).astype(numpy.dtype(code))
    view = image[::steps[0], origin:origin + 20]
    sensor = planex.SensorTraits(500, 500, scale_x=steps[1], origin_x=origin, scale_z=0.5)
    x, z = planex.calibrate(plain, view, sensor, precision="double")
    u = (numpy.arange(20) * steps[1] + origin - 90) / 800
    v = (view * 0.5 - 110) / 800
    h = numpy.einsum("ij,jrc->irc", homography, [u + 0 * v, v, 1 + 0 * v])
    h[:, view == 0] = numpy.nan
    numpy.testing.assert_allclose(x, h[0] / h[2], rtol=1e-6, atol=1e-7)
    numpy.testing.assert_allclose(z, h[1] / h[2], rtol=1e-6, atol=1e-7)
    single = planex.calibrate(plain, view, sensor, threads=1)
    assert bits(*single) == bits(*planex.calibrate(plain, view.copy(), sensor, threads=7))
    numpy.testing.assert_allclose(single.x, x, rtol=1e-3, atol=1e-5)


@settings(max_examples=40)
@given(strategies.integers(0, 2**32 - 1), strategies.sampled_from(["lowest", "highest"]))
def test_rectification_is_its_formula(seed, mode):
    random = numpy.random.default_rng(seed)
    x, z = random.uniform(-12, 12, (2, 5, 60))
    z[random.random(z.shape) < 0.2] = numpy.nan
    grid = planex.Grid(40, 0.5, -10.0, 0.01, -0.01, planex.Splat(0, 0))
    got = planex.rectify(x, z, grid, mode=mode, dtype=numpy.uint16)
    want = numpy.zeros((5, 40), numpy.uint16)
    column = numpy.floor((x + 10.0) / 0.5 + 0.5)
    level = numpy.trunc((z + 0.01) / 0.01)
    with numpy.errstate(invalid="ignore"):
        used = numpy.argwhere((column >= 0) & (column < 40) & (level >= 1) & (level <= 65535))
    better = min if mode == "lowest" else max
    for row, point in used:
        cell = row, int(column[row, point])
        new = int(level[row, point])
        want[cell] = new if want[cell] == 0 else better(want[cell], new)
    assert numpy.array_equal(got.z, want)
    assert numpy.array_equal(got.mask, want == 0)
    heights = numpy.where(want == 0, numpy.nan, want * 0.01 - 0.01)
    numpy.testing.assert_allclose(got.heights(), heights, rtol=1e-5, atol=1e-5)
    direct = planex.rectify(x.astype(FLOAT), z.astype(FLOAT), grid, mode=mode)
    levels = planex.rectify(x.astype(FLOAT), z.astype(FLOAT), grid, mode=mode, dtype="u2")
    assert bits(direct.z) == bits(levels.heights())


@pytest.mark.parametrize("dtype", [FLOAT, numpy.uint16])
@pytest.mark.parametrize("kind", [None, numpy.uint8, numpy.uint16])
def test_height_map_is_calibration_and_rectification(model, sensor, scan, kind, dtype):
    intensity = None if kind is None else (scan * 7 % 251 * (1 if kind == numpy.uint8 else 200))
    intensity = None if kind is None else intensity.astype(kind)
    grid = planex.bounds(model, sensor, 2560).grid(pixel_size=0.2)
    options = dict(mode="highest", intensity=intensity, missing=-9.0, dtype=dtype)
    points = planex.calibrate(model, scan, sensor)
    want = planex.rectify(*points, grid, **options)
    got = planex.height_map(model, scan, sensor, grid, threads=2, **options)
    assert bits(got.z, got.intensity) == bits(want.z, want.intensity)
    assert 0.05 < got.mask.mean() < 0.5 and numpy.array_equal(got.mask, got.z == got.missing)
    if kind == numpy.uint16:  # limits of the whole, also where half of it is asked for
        limits = planex.intensity_limits(intensity)
        assert limits == (intensity.min(), intensity.max())
        options.update(intensity=intensity[150:], intensity_limits=limits)
        half = planex.height_map(model, scan[150:], sensor, grid, **options)
        assert bits(half.intensity, half.z) == bits(want.intensity[150:], want.z[150:])


@pytest.mark.parametrize("dtype", [FLOAT, numpy.uint16])
def test_several_intensities_are_each_alone(model, sensor, scan, dtype):
    grid = planex.bounds(model, sensor, 2560).grid(pixel_size=0.2)
    images = {"near": (scan * 7 % 251).astype(numpy.uint8), "far": scan // 3, "wide": scan[::-1] + 1}
    images = {name: numpy.ascontiguousarray(image) for name, image in images.items()}
    limits, mode = {"wide": (5, 15000)}, "brightest"
    outs = {"far": numpy.zeros((300, grid.columns), numpy.uint8)}
    together = planex.height_map(model, scan, sensor, grid, mode=mode, intensity=images, dtype=dtype,
                                 intensity_limits=limits, out_intensity=outs)
    for name, image in images.items():
        alone = planex.height_map(model, scan, sensor, grid, mode=mode, intensity=image, dtype=dtype,
                                  intensity_limits=limits.get(name))
        assert bits(together.intensity[name]) == bits(alone.intensity)
    assert bits(together.z) == bits(alone.z) and together.intensity["far"] is outs["far"]
    points = planex.calibrate(model, scan, sensor)
    direct = planex.rectify(*points, grid, mode=mode, intensity=images, dtype=dtype,
                            intensity_limits=limits)
    assert bits(direct.z, *direct.intensity.values()) == bits(together.z,
                                                              *together.intensity.values())


def test_maps_are_merged_where_they_lie(model, sensor, scan):
    grid = planex.bounds(model, sensor, 2560).grid(pixel_size=0.2)
    other = numpy.roll(scan, 7, axis=1)
    grey = [(image % 251).astype(numpy.uint8) for image in (scan, other)]
    want = planex.height_map(model, scan, sensor, grid, mode="lowest", dtype="u2")
    more = planex.height_map(model, other, sensor, grid, mode="lowest", dtype="u2")
    least = numpy.where((want.z == 0) | ((more.z > 0) & (more.z < want.z)), more.z, want.z)
    got = planex.height_map(model, other, sensor, grid, mode="lowest", into=want.z)
    assert got.z is want.z and got.missing == 0 and numpy.array_equal(got.z, least)
    bright = [planex.height_map(model, image, sensor, grid, mode="brightest", intensity=i, dtype="u2")
              for image, i in zip((scan, other), grey)]
    greatest = numpy.maximum(bright[0].intensity, bright[1].intensity)
    merged = planex.height_map(model, other, sensor, grid, mode="brightest", intensity=grey[1],
                               into=bright[0].z, out_intensity=bright[0].intensity)
    assert numpy.array_equal(merged.intensity, greatest)


def test_alignment_and_points_agree(model, sensor, scan):
    x, z = planex.calibrate(model, scan[:4, 1000:1100], planex.SensorTraits(100, 1024, 1.0, 1000.0))
    y = numpy.array([-5.0, 0.0, 1.5, 99.0])
    aligned = planex.align(model, x, z, y)
    inputs = numpy.stack([x, y[:, None] + 0 * x, z], -1).astype(float)
    points = planex.map_points(model, inputs, "calibrated", "aligned")
    numpy.testing.assert_allclose(numpy.stack(aligned, -1), points, rtol=0, atol=2e-5)
    assert planex.map_points(model, points, "aligned", "calibrated", out=points) is points
    numpy.testing.assert_allclose(points, inputs, rtol=0, atol=1e-9)
    single = planex.align(model, x[1:2].copy(), z, y)
    assert bits(single.y[1]) == bits(aligned.y[1])
    indices = planex.map_points(model, numpy.array([[7.0, 3.0, 9.0]], FLOAT), "pixel",
                                "calibrated", y_offset=1.0, y_scale=0.5)
    assert indices.dtype == FLOAT and indices[0, 1] == 2.5
    corners = planex.map_rectangle(model, planex.Rectangle((9, 8), 4, 2), "pixel", "calibrated",
                                   supersampling=0)
    pixels = numpy.array([[7.0, 7], [11, 7], [11, 9], [7, 9]])
    numpy.testing.assert_allclose(corners, planex.map_points(model, pixels, "pixel", "calibrated"))
    box = planex.map_box(model, (0, 1, 2), (3, 5, 8), "calibrated", "calibrated", supersampling=1)
    assert box.shape == (26, 3) and box.min(0).tolist() == [0, 1, 2] and box.max(0)[2] == 8


def frames_of_lines(dtype):
    """Bright lines of 4 rows that climb from frame to frame, and fainter ones above."""
    full = numpy.iinfo(dtype).max
    v, u, k = numpy.arange(96)[:, None], numpy.arange(150), numpy.arange(7)[:, None, None]
    line = lambda row, level: level * numpy.exp(-0.5 * ((v - row) / 1.7) ** 2)
    levels = line(60 + k + 9 * numpy.sin(u / 20), 0.7) + line(20 - k + 0 * u, 0.3 * (u > 50))
    noise = numpy.random.default_rng(3).uniform(0.02, 0.05, levels.shape)
    return ((levels + noise) * full).astype(dtype)


@pytest.mark.parametrize("dtype", [numpy.uint8, numpy.uint16])
def test_lines_are_the_same_on_any_view(model, dtype):
    frames = frames_of_lines(dtype)
    layers = dict(layers=("intensity", "width", "quality", "deviation"), gain=0.1, read_noise=1.0)
    every = lambda lines: bits(*(getattr(lines, n) for n in ("range", *layers["layers"])))
    for view in (frames, frames[::-1, 9:90:2, 3:77], frames[3:6, ::3], frames[:, :, :1], frames[4],
                 numpy.broadcast_to(frames[2], (4, 96, 150))):
        want = planex.extract_lines(view.copy(), threads=1, **layers)
        assert every(planex.extract_lines(view, threads=3, **layers)) == every(want)
        turned = numpy.ascontiguousarray(numpy.swapaxes(view, -2, -1))
        assert every(planex.extract_lines(turned, transpose=True, **layers)) == every(want)
    lines = planex.extract_lines(frames, scale_x=2.0, origin_x=30.0, scale_z=-1.5, origin_z=200.0)
    truth = 60 + numpy.arange(7)[:, None] + 9 * numpy.sin(numpy.arange(150) / 20)
    assert abs(lines.rows - truth).max() < 0.2 and not lines.mask.any() and lines.width is None
    pixels = numpy.stack([30.0 + 2 * numpy.arange(150) + 0 * truth, 200.0 - 1.5 * lines.rows], -1)
    points = planex.map_points(model, pixels.copy(), "pixel", "calibrated")
    x, z = planex.calibrate(model, lines.range, lines.sensor, precision="double")
    numpy.testing.assert_allclose(numpy.stack([x, z], -1), points, rtol=0, atol=1e-5)
    dim = planex.extract_lines(frames, choice="first").rows[:, 60:] - 20 + numpy.arange(7)[:, None]
    assert abs(dim).max() < 0.4
    out = {"range": numpy.zeros((7, 150), "u2"), "quality": numpy.zeros((7, 150), "u1")}
    lit = planex.extract_lines(frames, dark=frames[0], out=out, layers=("quality",))
    darkened = numpy.where(frames > frames[0], frames - frames[0], 0).astype(dtype)
    want = planex.extract_lines(darkened)
    assert lit.range is out["range"] and bits(lit.range, out["quality"]) == bits(want.range,
                                                                                 want.quality)
    assert not lit.range[0].any() and (lit.quality[0] == 1).all()


def test_grids():
    bounds = planex.Bounds((-1.0, 3.0), (10.0, 20.0), planex.Splat(0.5, 0.25), 5)
    grid = bounds.grid(c=2.0)
    step = 10 / 65534
    assert grid == planex.Grid(5, 1.0, -1.0, step, 10 - step, planex.Splat(0.5, 0.25, 2))
    assert bounds.grid(pixel_size=0.3, x=(0.0, 1.0)).columns == 4
    heights = planex.HeightMap(numpy.zeros((2, 5), FLOAT), grid, y_scale=2.0, y_origin=3.0)
    assert heights.x.tolist() == [-1, 0, 1, 2, 3] and heights.y.tolist() == [3, 5]
    pytest.importorskip("xarray")
    array = heights.to_xarray()
    assert numpy.shares_memory(array.values, heights.z) and array.sel(x=2.0, y=5.0) == 0
    pytest.importorskip("matplotlib").use("Agg")
    assert heights.plot().get_images()[0].get_extent() == (-1.5, 3.5, 6.0, 2.0)


def test_empty_arrays_give_empty_results(model, sensor):
    for shape in ((0, 40), (6, 0), (0, 0)):
        empty = numpy.empty(shape, numpy.uint16)
        assert planex.calibrate(model, empty, sensor).x.shape == shape
        heights = planex.height_map(model, empty, sensor, GRID, intensity=empty, missing=-1.0)
        assert heights.z.shape == (shape[0], 40) and heights.mask.all()
        assert not heights.intensity.any()
    for shape in ((0, 4, 5), (3, 4, 0), (0, 0, 0)):
        lines = planex.extract_lines(numpy.empty(shape, numpy.uint8))
        assert lines.range.shape == lines.rows.shape == lines.quality.shape == shape[::2]


def swapped(array):
    return array.astype(array.dtype.newbyteorder())


def odd_address(array):
    return numpy.frombuffer(b"\0" + array.tobytes(), array.dtype, offset=1).reshape(array.shape)


@pytest.mark.parametrize("spoil, error, text", [
    (lambda a: a.tolist(), TypeError, "is a list; pass a numpy.ndarray"),
    (lambda a: numpy.ma.MaskedArray(a), TypeError, r"pass range_image.filled\(0\)"),
    (lambda a: a.astype(numpy.int16), TypeError, "has the type int16"),
    (swapped, TypeError, "has the type >u2"),
    (lambda a: a[0], ValueError, "1 dimensions"),
    (odd_address, ValueError, "odd address; pass numpy.ascontiguousarray"),
    (lambda a: a[:, ::2], ValueError, "side by side; pass numpy.ascontiguousarray"),
    (lambda a: a.T, ValueError, "side by side"),
    (lambda a: a[::-1], ValueError, "overlap or run backwards"),
    (lambda a: numpy.broadcast_to(a[:1], (3, 8)), ValueError, "overlap or run backwards"),
    (lambda a: numpy.lib.stride_tricks.sliding_window_view(a[0], 4), ValueError, "overlap"),
])
def test_inputs_that_no_image_has_are_refused(model, sensor, spoil, error, text):
    with pytest.raises(error, match=text):
        planex.calibrate(model, spoil(numpy.ones((4, 8), numpy.uint16)), sensor)


@pytest.mark.parametrize("spoil, error, text", [
    (lambda f: f.tolist(), TypeError, "frames is a list; pass a numpy.ndarray"),
    (lambda f: f.astype(FLOAT), TypeError, "has the type float32; it must be one of uint8, uint16"),
    (lambda f: f[0, 0], ValueError, "1 dimensions; it must have three"),
    (lambda f: odd_address(f.astype("u2")), ValueError, "odd address"),
    (lambda f: f[:, :, ::2], ValueError, "side by side; pass numpy.ascontiguousarray"),
    (lambda f: f[:, ::-1], ValueError, "overlap or run backwards"),
    (lambda f: f[:, :0], planex.Error, "1 to 32767 rows"),
    (lambda f: (f, {"line_width": 61.0}), planex.Error, "line width must be 1 to 60"),
    (lambda f: (f, {"rows": (40, 97)}), planex.Error, "searched rows must be rows of the frame"),
    (lambda f: (f, {"rows": (5, 5)}), ValueError, "end of rows must be from 6"),
    (lambda f: (f, {"line_width": "5"}), TypeError, "number"),
    (lambda f: (f, {"method": "median"}), ValueError, "one of fir, cog"),
    (lambda f: (f, {"choice": ("nearest", -1)}), ValueError, "from 0 to"),
    (lambda f: (f, {"choice": ["nearest", 1]}), ValueError, r"or \('nearest', row\)"),
    (lambda f: (f, {"threshold": 0}), ValueError, "threshold must be above 0"),
    (lambda f: (f, {"scale_z": 0.0}), ValueError, "not 0"),
    (lambda f: (f, {"dark": f[0, :9]}), ValueError, "size of a frame"),
    (lambda f: (f, {"dark": f[0].astype("u2")}), TypeError, "dark has the type uint16"),
    (lambda f: (f, {"layers": ("deviation",)}), ValueError, "needs read_noise"),
    (lambda f: (f, {"layers": ("widths",)}), ValueError, "layers has 'widths'"),
    (lambda f: (f, {"layers": "width"}), TypeError, "must be a sequence"),
    (lambda f: (f, {"out": {"width": f}}), ValueError, "neither 'range' nor one of layers"),
    (lambda f: (f, {"out": {"quality": f[0, :7]}}), ValueError, r"out\['quality'\] shares memory"),
    (lambda f: (f, {"out": {"range": f[0, :6]}}), TypeError, r"out\['range'\] has the type uint8"),
])
def test_frames_and_settings_without_sense_are_refused(spoil, error, text):
    frames = frames_of_lines(numpy.uint8)
    given, options = spoiled if isinstance(spoiled := spoil(frames), tuple) else (spoiled, {})
    with pytest.raises(error, match=text) as caught:
        planex.extract_lines(given, **options)
    assert type(caught.value) is error and bits(frames) == bits(frames_of_lines(numpy.uint8))


STORE = numpy.full(400, 7, FLOAT)


@pytest.mark.parametrize("out, error, text", [
    (lambda x, r: (x, x.astype(float)), TypeError, r"out\[1\] has the type float64"),
    (lambda x, r: (x[:, :7], x), ValueError, r"out\[0\] has the shape \(4, 7\)"),
    (lambda x, r: (x, numpy.full((4, 16), 7, FLOAT)[:, ::2]), ValueError, "not C-contiguous"),
    (lambda x, r: (x, numpy.asfortranarray(x)), ValueError, "not C-contiguous"),
    (lambda x, r: (x, numpy.broadcast_to(x[:1], x.shape)), ValueError, "not C-contiguous"),
    (lambda x, r: (x, numpy.frombuffer(x.tobytes(), FLOAT).reshape(4, 8)), ValueError, "read-only"),
    (lambda x, r: (x, x), ValueError, r"out\[1\] shares memory with out\[0\]"),
    (lambda x, r: (x, r), ValueError, r"out\[1\] shares memory with range_image"),
])
def test_outputs_are_checked_before_the_first_write(model, sensor, out, error, text):
    x, scan = numpy.full((4, 8), 7, FLOAT), numpy.full((4, 8), 7, FLOAT)
    with pytest.raises(error, match=text):
        planex.calibrate(model, scan, sensor, out=out(x, scan))
    assert (x == 7).all() and (scan == 7).all()


ONES = numpy.ones((4, 8))


@pytest.mark.parametrize("call, error, text", [
    (lambda m, s, r: planex.calibrate(m.replace(focal_length=-1), r, s), planex.Error,
     "Invalid focal length."),
    (lambda m, s, r: planex.calibrate(m, r, planex.SensorTraits(2561, 9)), planex.Error,
     "outside the model's sensor of 2560 x 1024"),
    (lambda m, s, r: planex.calibrate("m", r, s), TypeError, "model must be a planex.Model"),
    (lambda m, s, r: planex.calibrate(m, r, (9, 9)), TypeError, "must be a planex.SensorTraits"),
    (lambda m, s, r: planex.calibrate(m, r, s, precision="half"), ValueError, "single, double"),
    (lambda m, s, r: planex.calibrate(m, r, s, threads=0), ValueError, "1 or more"),
    (lambda m, s, r: planex.calibrate(m, r, planex.SensorTraits(9, 9, "1")), TypeError, "number"),
    (lambda m, s, r: planex.align(m, ONES, ONES, numpy.ones(3)), ValueError, r"y has.*\(4,\)"),
    (lambda m, s, r: planex.align(m, ONES[:2], ONES, numpy.ones(4)), ValueError, "size of z"),
    (lambda m, s, r: planex.rectify(ONES, ONES[:3], GRID), ValueError, "of one size"),
    (lambda m, s, r: planex.rectify(ONES, ONES, GRID, mode="darkest"), planex.Error, "Intensity"),
    (lambda m, s, r: planex.rectify(ONES, ONES, GRID, intensity=r[:3]), ValueError, "each point"),
    (lambda m, s, r: planex.rectify(ONES, ONES, GRID, dtype="i2"), TypeError, "float32.*uint16"),
    (lambda m, s, r: planex.rectify(ONES, ONES, GRID, intensity=r, intensity_limits=(0, 65536)),
     ValueError, "from 0 to 65535"),
    (lambda m, s, r: planex.height_map(m, r, s, aligned=True), TypeError, "needs a grid"),
    (lambda m, s, r: planex.height_map(m, r, s, GRID, intensity={"a": r, "b": r[:3]}), ValueError,
     r"intensity\['b'\] must have a value for each point"),
    (lambda m, s, r: planex.height_map(m, r, s, GRID, intensity={"a": r}, intensity_limits=(1, 2)),
     TypeError, "must be a mapping"),
    (lambda m, s, r: planex.height_map(m, r, s, GRID, intensity={"a": r}, out_intensity={"c": r}),
     ValueError, "out_intensity has 'c', which intensity has not"),
    (lambda m, s, r: planex.height_map(m, r, s, GRID, into=ONES), TypeError, "into has the type"),
    (lambda m, s, r: planex.height_map(m, r, s, GRID, into=r, out=r), ValueError, "no place for"),
    (lambda m, s, r: planex.height_map(m, r, s, GRID, into=r, intensity=r), ValueError,
     "needs out_intensity"),
    (lambda m, s, r: planex.height_map(m, r, s, GRID, into=r, intensity={"a": r, "b": r}),
     ValueError, "takes one intensity"),
    (lambda m, s, r: planex.diff(m, m.replace(sensor_size=(9, 9))), planex.Error, "different sizes"),
    (lambda m, s, r: planex.diff(m, m, step=0), ValueError, "step"),
    (lambda m, s, r: planex.map_points(m, ONES, "pixel", "aligned"), ValueError, "last axis"),
    (lambda m, s, r: planex.map_points(m, ONES[:, :2], "pixel", "aligned"), ValueError,
     "pass numpy.ascontiguousarray"),
    (lambda m, s, r: planex.map_points(m, STORE[:8].reshape(4, 2), "pixel", "aligned",
                                       out=STORE[2:10].reshape(4, 2)), ValueError, "a part of its"),
    (lambda m, s, r: planex.map_points(m, ONES, "pixels", "aligned"), ValueError,
     "source is 'pixels'"),
    (lambda m, s, r: planex.bounds(m, planex.SensorTraits(9, 9, scale_z=0.0), 9), planex.Error,
     "too many range values"),
    (lambda m, s, r: planex.Grid(9, -1.0, 0, 1, 0, GRID.splat) and planex.rectify(
        ONES, ONES, planex.Grid(9, -1.0, 0, 1, 0, GRID.splat)), ValueError, "negative scale"),
])
def test_refusals(model, sensor, call, error, text):
    with pytest.raises(error, match=text) as caught:
        call(model, sensor, numpy.ones((4, 8), numpy.uint16))
    assert type(caught.value) is error


def test_threads_have_their_own_messages_limits_and_results(model, sensor, scan):
    want = bits(*planex.calibrate(model, scan, sensor))
    faults = {"Invalid focal length.": model.replace(focal_length=0),
              "Invalid lens center matrix.": model.replace(lens_center=(0, 0))}
    seen = []

    def work(text, broken):
        with planex.thread_limit(1):
            for _ in range(20):
                try:
                    planex.calibrate(broken, scan, sensor)
                except planex.Error as error:
                    seen.append([r[2] for r in error.records] == [text])
                seen.append(bits(*planex.calibrate(model, scan, sensor)) == want)

    workers = [threading.Thread(target=work, args=item) for item in faults.items()]
    for worker in workers:
        worker.start()
    for worker in workers:
        worker.join()
    assert len(seen) == 80 and all(seen)


def test_other_threads_run_meanwhile(model, sensor):
    image = numpy.ones((2000, 2560), numpy.uint8)
    inside, ticks, stop = [False], [0], threading.Event()

    def tick():
        while not stop.is_set():
            ticks[0] += inside[0]
            time.sleep(0.001)

    ticker = threading.Thread(target=tick)
    ticker.start()
    previous = sys.getswitchinterval()
    sys.setswitchinterval(60)  # so that only a call that lets go of the interpreter is interrupted
    try:
        for _ in range(50):
            inside[0] = True
            planex.height_map(model, image, sensor, GRID)
            inside[0] = False
            if ticks[0]:
                break
    finally:
        sys.setswitchinterval(previous)
        stop.set()
        ticker.join()
    assert ticks[0] > 0


def test_signals_are_seen_between_blocks(model, sensor):
    image = numpy.zeros((16000, 2560), numpy.uint8)  # five blocks
    out = numpy.full((16000, 40), 7, FLOAT)

    def interrupt(number, frame):
        raise KeyboardInterrupt

    previous = signal.signal(signal.SIGALRM, interrupt)
    try:
        with pytest.raises(KeyboardInterrupt):
            signal.setitimer(signal.ITIMER_REAL, 0.005)
            planex.height_map(model, image, sensor, GRID, out=out, threads=1)
    finally:
        signal.setitimer(signal.ITIMER_REAL, 0)
        signal.signal(signal.SIGALRM, previous)
    assert (out[-1] == 7).all()


def memory(kind):
    with open("/proc/self/status", encoding="ascii") as file:
        return 1024 * int(next(line for line in file if line.startswith(kind)).split()[1])


def test_nothing_leaks(model, sensor, scan, tmp_path):
    few = scan[:2, :300]
    out = numpy.empty((2, 300), FLOAT), numpy.empty((2, 300), FLOAT)
    broken = model.replace(homography=numpy.full((3, 3), numpy.nan))
    text, path = model.to_json(), tmp_path / "model.json"
    model.to_file(path)
    x, z = planex.calibrate(model, few, sensor)
    rectangle = planex.Rectangle((9, 8), 4, 2)
    way = "calibrated", "aligned"

    def round_trip():
        planex.calibrate(model, few, sensor, out=out)
        planex.align(model, x, z, numpy.zeros(2))
        levels = planex.rectify(x, z, GRID, intensity=few, dtype="u2")
        assert levels.masked().shape == levels.heights().shape
        planex.height_map(model, few, sensor, planex.bounds(model, sensor, 300).grid())
        planex.map_points(model, ONES[:, :3].copy(), *way)
        planex.map_rectangle(model, rectangle, *way)
        planex.map_box(model, (0, 0, 0), (1, 1, 1), *way, supersampling=1)
        planex.intensity_limits(few)
        planex.extract_lines(few, transpose=True, dark=few)
        hash(planex.Model.from_json(text).replace(focal_length=2.0).mirror(x=1.0))
        assert planex.Model.from_file(path).__reduce__() and model.region is None
        for bad in (few.T, model):
            with pytest.raises((TypeError, ValueError)):
                planex.calibrate(broken, bad, sensor)
        with pytest.raises(planex.Error):
            planex.calibrate(model.replace(focal_length=0), few, sensor)
        with pytest.raises(planex.DocumentError):
            planex.Model.from_json(text[:-9])
        assert broken.check()

    def counts():
        gc.collect()  # caught exceptions and the frames they name are cycles
        return [sys.getrefcount(o) for o in (model, few, sensor, x, z, rectangle, GRID, *out)]

    for _ in range(300):
        round_trip()
    before, size = counts(), memory("VmRSS")
    for _ in range(2000):
        round_trip()
    assert counts() == before
    assert memory("VmRSS") - size < 2 << 20


def test_outputs_that_are_given_are_all_that_is_allocated(model, sensor):
    """On four million pixels; NumPy tells tracemalloc of its arrays, the library does not."""
    scan = numpy.random.default_rng(5).integers(1, 16000, (1600, 2560), dtype=numpy.uint16)
    x, z, *aligned = numpy.empty((5, *scan.shape), FLOAT)
    points = numpy.ones((scan.size, 2))
    options = dict(intensity=scan.astype(numpy.uint8), out=numpy.empty((1600, 40), FLOAT),
                   out_intensity=numpy.empty((1600, 40), numpy.uint8))
    for call, most in (
            (lambda: planex.calibrate(model, scan, sensor, out=(x, z)), 200_000),
            (lambda: planex.align(model, x, z, numpy.zeros(1600), out=aligned), 200_000),
            (lambda: planex.rectify(x, z, GRID, **options), 200_000),
            (lambda: planex.extract_lines(scan.reshape(16, 100, 2560), layers=(),
                                          out={"range": scan[:16].copy()}), 1_000_000),
            (lambda: planex.map_points(model, points, "calibrated", "aligned", out=points),
             200_000),
            # X, Z and reduced intensities of half a million pixels at a time, in large pages
            (lambda: planex.height_map(model, scan, sensor, GRID, **options | {"intensity": scan}),
             12_000_000)):
        call()
        ctypes.CDLL(None).malloc_trim(0)  # what a copy in the first call left would hide the next
        with open("/proc/self/clear_refs", "w", encoding="ascii") as peak:
            peak.write("5")
        before = memory("VmHWM")
        tracemalloc.start()
        call()
        told = tracemalloc.get_traced_memory()[1]
        tracemalloc.stop()
        assert told < 200_000 and memory("VmHWM") - before < most
