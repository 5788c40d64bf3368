import numpy
import pytest
from conftest import ESTIMATES, ROOT

import planex


@pytest.fixture(scope="module")
def measured(model):
    """Points of a stage and of a gauge block, one of them wrong."""
    random = numpy.random.default_rng(5)
    pixels = random.uniform((2, 2), (2557, 1021), (300, 2))
    x, z = planex.map_points(model, pixels, "pixel", "calibrated").T.copy()
    x[200:] = numpy.nan
    z[17] += 3
    noisy = pixels + random.normal(0, 0.05, pixels.shape)
    return {"u": noisy[:, 0], "v": noisy[:, 1], "x": x, "z": z}


@pytest.fixture(scope="module")
def found(measured):
    if not ESTIMATES:
        with pytest.raises(planex.Error, match="build it with libceres-dev installed"):
            planex.MapUncertainty.from_file(ROOT / "examples/models/simulated_camera.json")
        pytest.skip("built without estimation")
    return planex.estimate(**measured, sensor_size=(2560, 1024),
                           scan=["stage"] * 200 + ["block"] * 100)


def test_what_is_known_of_a_model(model, measured, found, tmp_path):
    assert found.verdict == "good" and found.sentence.startswith("Good: over 9")
    assert found.noise == pytest.approx(0.05, rel=0.2)
    assert numpy.flatnonzero(~found.used).tolist() == [17]
    assert [fit[:3] for fit in found.scans] == [("stage", 200, 199), ("block", 100, 100)]
    u, v = numpy.meshgrid(numpy.linspace(100, 2400, 9), numpy.linspace(100, 900, 5))
    xx, xz, zz = found.uncertainty(u, v)
    off = planex.map_points(found.model, numpy.stack([u, v], -1), "pixel", "calibrated")
    off -= planex.map_points(model, numpy.stack([u, v], -1), "pixel", "calibrated")
    assert (off[..., 0]**2 < 16 * xx).all() and (off[..., 1]**2 < 16 * zz).all()
    assert (xz**2 < xx * zz).all() and found.uncertainty.is_measured(u, v).sum() > 40
    assert not found.uncertainty.is_measured(-1, 500)
    assert found.uncertainty(1280, v).zz.shape == v.shape
    path = tmp_path / "model.json"
    found.to_file(path)
    read = planex.MapUncertainty.from_file(path)
    assert all(numpy.array_equal(a, b) for a, b in zip(read(u, v), (xx, xz, zz)))
    assert (read.sensor_size, read.frame, read.noise) == ((2560, 1024), "fixed", found.noise)
    assert (read.largest_95, read.measured) == (found.largest_95, found.measured)
    assert planex.Model.from_file(path) == found.model
    with pytest.raises(FileExistsError):
        found.to_file(path)


@pytest.mark.parametrize("change, text", [
    (lambda m: m["u"].__setitem__(3, 1e6), "point 3 lies off the sensor of 2560 x 1024 pixels"),
    (lambda m: m.update({name: m[name][:7] for name in "uvxz"}), "needs 12 points or more"),
    (lambda m: m.update(z=m["z"][:7]), r"z has the shape \(7,\)"),
    (lambda m: m.update(sigma=numpy.zeros(300)), "not above 0"),
    (lambda m: m.update(scan=["a"]), r"scan has the shape \(1,\)"),
    (lambda m: m.update(sensor_size=(1, 7)), "from 2 to 65535"),
])
def test_refusals(measured, found, change, text):
    arguments = {name: values.copy() for name, values in measured.items()}
    arguments["sensor_size"] = 2560, 1024
    change(arguments)
    with pytest.raises(ValueError, match=text):
        planex.estimate(**arguments)


@pytest.fixture(scope="module")
def saw(found):
    return planex.Target([(5 * i - 85, 4 * (i % 2)) for i in range(35)], 0.002)


@pytest.fixture(scope="module")
def saw_scans(model, saw):
    """Columns and rows, at four heights and tilted either way; the last one has spikes."""
    edge = numpy.arange(-85, 85, 0.7)
    edge = edge + 1j * numpy.interp(edge, *saw.profile.T)
    scans = {}
    for i in range(8):
        turned = edge * numpy.exp(0.2j * (-1)**i) + 1j * (14 * (i // 2) - 20)
        places = numpy.stack([turned.real, turned.imag], -1)
        pixels = planex.map_points(model, places, "calibrated", "pixel")
        scans[f"s{i}"] = pixels[((pixels > 1) & (pixels < (2558, 1000))).all(-1)].T.copy()
    scans["s7"][1, 40:44] += 20
    return scans


def estimate_saw(scans, saw, **changes):
    return planex.estimate_from_scans(scans, saw, **{
        "sensor_size": (2560, 1024), "up": "with-rows", "right": "with-columns", "noise": 0.05,
        **changes})


def test_scans_of_a_target(model, saw, saw_scans):
    found = estimate_saw({name: tuple(scan) for name, scan in saw_scans.items()}, saw)
    assert (found.verdict, found.is_frame_free, len(found.stretches)) == ("good", True, 1)
    assert abs(found.stretches[0].stretch) < 3 * found.stretches[0].deviation
    assert len(found.used) == sum(fit.given for fit in found.scans)
    assert found.used.sum() == sum(fit.used for fit in found.scans)
    last = found.scans[7]
    assert last.name == "s7" and last.is_found and numpy.array_equal(last.pixels.T, saw_scans["s7"])
    assert last.angle - found.scans[0].angle == pytest.approx(-0.4, abs=0.01)
    moved = last.x - found.scans[1].x + 1j * (last.z - found.scans[1].z)
    # Along its teeth, that all look the same, nobody knows.
    across = (moved * numpy.exp(-1j * last.angle)).imag
    assert across == pytest.approx(42 * numpy.cos(0.2), abs=0.1)
    kept = ~numpy.isnan(last.residuals[:, 0])
    assert (~kept).sum() == last.left_out > 9
    spikes = numpy.isin(numpy.arange(last.given), range(40, 44))
    assert not found.used[-last.given:][spikes].any() and kept[spikes].any()
    assert numpy.array_equal(found.used[-last.given:], kept & ~spikes)
    off = numpy.hypot(*last.residuals.T)
    assert off[kept & spikes].min() > 0.5 > 0.01 > off[kept & ~spikes].max()


def test_plans(saw, saw_scans):
    scans = {name: tuple(saw_scans[name]) for name in ("s0", "s1", "s2")}
    few = estimate_saw(scans, saw)
    plan = planex.plan_scans(few.model, saw, 4, noise=0.05)
    assert few.next_scan.z > max(scan.z for scan in few.scans)  # there nothing was measured
    assert f"Z = {few.next_scan.z:.1f} mm" in few.advice
    poses = {scan[:3] for scan in plan.scans}
    assert len(plan.scans) == 4 and len(poses) > 1
    assert plan.uncertainty.largest_95 == plan.scans[3].largest_95 < plan.scans[0].largest_95
    other = planex.plan_scans(few.model, saw, 4, noise=0.5, turn=0)
    assert other.scans[3].largest_95 > 2 * plan.scans[3].largest_95
    tiny = planex.Target([[0, 0], [1, 0.5]], 0.002)
    with pytest.raises(planex.Error, match="the target is not seen over a quarter"):
        planex.plan_scans(few.model, tiny)
    for wrong in {"count": 65}, {"noise": 0}, {"turn": float("nan")}:
        with pytest.raises(ValueError, match=next(iter(wrong))):
            planex.plan_scans(few.model, saw, **wrong)


def test_scans_as_range_images(saw, saw_scans, caplog):
    """Rows are medians: as many spikes above as below, and less than half of them missing."""
    sensor = planex.SensorTraits(2560, 1000, scale_z=0.5, origin_z=-10.0)
    images, tuples = [], []
    for u, v in saw_scans.values():
        columns = numpy.unique(u.astype(int))
        rows = numpy.float32(numpy.interp(columns, u, v))
        image = numpy.zeros((6, 2560), numpy.float32)
        image[:, columns] = (rows + 10) * 2 + numpy.float32([[0], [-9], [0], [0], [9], [0]])
        image[2, columns[::3]] = 0
        images.append(image)
        tuples.append((columns, image[0, columns] * 0.5 - 10.0))
    found = estimate_saw(images, saw, sensor=sensor)
    assert found.model == estimate_saw(tuples, saw).model and found.scans[3].name == "3"
    assert not caplog.records
    images[4][3:] += 3 * (images[4][3:] > 0)
    estimate_saw(images, saw, sensor=sensor)
    assert [record.message for record in caplog.records] == [
        "scans['4']: its rows drift by 1.5 sensor rows; did the target move?"]


@pytest.mark.parametrize("change, error, text", [
    ({"scans": {"a": numpy.ones((3, 9), "u2")}}, ValueError, r"scans\['a'\] is an array: say with"),
    ({"scans": [numpy.ones((3, 9))], "sensor": planex.SensorTraits(9, 9)}, TypeError, "float64"),
    ({"scans": [numpy.ones((0, 9), "u2")], "sensor": planex.SensorTraits(9, 9)}, planex.Error,
     "is empty"),
    ({"scans": [7]}, TypeError, r"scans\['0'\] must be a tuple"),
    ({"scans": [([1, 2], [3])]}, ValueError, r"scans\['0'\]: v has the shape"),
    ({"scans": []}, planex.Error, "."),
    ({"scans": {"a": ([5] * 20, [5] * 19 + [2000])}}, planex.Error,
     "scan 'a', point 19 lies off the sensor"),
    ({"saw": [[0, 0], [1, 1]]}, TypeError, "planex.Target"),
    ({"up": "up"}, ValueError, "up is 'up'; it must be one of with-rows, against-rows"),
    ({"turn": -1}, planex.Error, "."),
])
def test_refused_scans(saw, saw_scans, change, error, text):
    with pytest.raises(error, match=text):
        estimate_saw(**{"scans": {name: tuple(v) for name, v in saw_scans.items()}, "saw": saw,
                        **change})


@pytest.mark.parametrize("text, error", [
    ("[[1, 0], [0, 0]]", "the target has a corner 2 whose x is less"),
    ("[[1, 0], [2]]", r"saw.json: profile\[1\] is not \[x, z\]"),
])
def test_refused_targets(found, tmp_path, text, error):
    (tmp_path / "saw.json").write_text(f'{{"profile": {text}, "tolerance": 0.01}}')
    with pytest.raises(planex.Error, match=error):
        planex.Target.from_file(tmp_path / "saw.json")
    with pytest.raises(FileNotFoundError):
        planex.Target.from_file(tmp_path / "other.json")
    with pytest.raises(ValueError, match=r"must be \(n, 2\)"):
        planex.Target([1, 2], 0.01)


def test_documents_that_state_nothing(found, tmp_path):
    path = tmp_path / "model.json"
    found.model.to_file(path)
    with pytest.raises(planex.DocumentError, match="model.json: states no uncertainty"):
        planex.MapUncertainty.from_file(path)
    path.write_text(found.to_json().replace('"FocalLength": ', '"FocalLength": 9'))
    with pytest.raises(planex.DocumentError, match="belongs to another map"):
        planex.MapUncertainty.from_file(path)
