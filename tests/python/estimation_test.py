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


def test_documents_that_state_nothing(found, tmp_path):
    path = tmp_path / "model.json"
    found.model.to_file(path)
    with pytest.raises(planex.DocumentError, match="model.json: states no uncertainty"):
        planex.MapUncertainty.from_file(path)
    path.write_text(found.to_json().replace('"FocalLength": ', '"FocalLength": 9'))
    with pytest.raises(planex.DocumentError, match="belongs to another map"):
        planex.MapUncertainty.from_file(path)
