import base64
import copy
import json
import logging
import math
import os
import pickle

import numpy
import pytest

import planex
from planex import Model


def with_region(model):
    """A document with a region of 2 x 3 cells, as a calibration leaves it."""
    document = json.loads(model.to_json())
    document["data"]["CalibratedRegion"] = json.loads(Model().to_json())["data"]["CalibratedRegion"]
    for index, (name, kind) in enumerate(document["data"]["CalibratedRegion"].items()):
        pixels = numpy.arange(6, dtype="<i4" if index == 0 else "<f4") + 10 * index
        image = kind["data"]
        image["PixelSize"].update(x=0.5, y=2.0)
        image["Origin"].update(x=-1.0, y=7.0)
        image["Data"].update(ImageType="int32" if index == 0 else "float32", Width=3, Height=2)
        image["Data"]["Pixels"].update(numOfElems=6, elemSz=4, endian="little")
        image["Data"]["Pixels"]["data"] = base64.b64encode(pixels.tobytes()).decode()
    return Model.from_json(json.dumps(document))


def test_models_are_values(model):
    odd = model.replace(focal_length=math.nan, skew=(0.0, -0.0, 5e-324), sheet_curve=[1] * 6)
    regional = with_region(model)
    unlike = [Model(), model, odd, odd.replace(skew=(0.0, 0.0, 5e-324)), regional,
              model.replace(lens_center=(1280.0, 512.5)), model.replace(state=1)]
    assert len(set(unlike)) == len(unlike), "each of them is another model"
    for value in unlike:
        for again in (pickle.loads(pickle.dumps(value)), copy.deepcopy(value), value.replace()):
            assert again == value and hash(again) == hash(value)
    assert regional.replace(region=None) == model.replace(region=None)
    assert regional.replace(region=None).replace(region=regional.region) == regional
    region = pickle.loads(pickle.dumps(regional)).region
    assert region.point_count.tolist() == [[0, 1, 2], [3, 4, 5]]
    assert region.average_residual_z[1, 2] == 25 and region.maximum_residual_x[0, 1] == 31
    assert region.x.tolist() == [-1.0, -0.5, 0.0] and region.z.tolist() == [7.0, 9.0]


def test_fields_come_back_and_cannot_be_changed(model):
    fields = dict(state=planex.State.ALIGNED_2D, skew_mode=planex.SkewMode(2), focal_length=0.1,
                  calibration_error=1.5, calibration_error_max=2.5, alignment_error=3.5,
                  alignment_error_max=4.5, sensor_size=(7, 5), lens_center=[1.0, 2.0],
                  lens_coefficients=numpy.arange(7) / 3, skew=[1.0, 2.0, 3.0], file_version=2,
                  homography=numpy.arange(9.0).reshape(3, 3), pose=numpy.arange(16.0).reshape(4, 4),
                  sheet_curve=numpy.arange(6) / 7)
    made = Model(**fields)
    for source in (made, Model.from_json(made.to_json(indent=False).encode())):
        for name, value in fields.items():
            assert numpy.array_equal(getattr(source, name), value), name
    with pytest.raises(AttributeError, match=r"use model.replace\(focal_length="):
        model.focal_length = 1.0
    with pytest.raises(ValueError, match="read-only"):
        model.pose[0, 0] = 1.0
    plane = model.replace(sheet_curve=[])
    mirrored = plane.mirror(x=2.0, z=-3.0)
    before = planex.map_points(plane, numpy.array([[99.0, 77.0]]), "pixel", "calibrated")
    after = planex.map_points(mirrored, numpy.array([[99.0, 77.0]]), "pixel", "calibrated")
    numpy.testing.assert_allclose(after, [4.0, -6.0] - before, rtol=0, atol=1e-9)


@pytest.mark.parametrize("call, error, text", [
    (lambda m, p: Model.from_json("{"), planex.DocumentError, "Can not parse JSON"),
    (lambda m, p: Model.from_json(m.to_json().replace("6400", "-1")), planex.DocumentError,
     "negative error figure or focal length"),
    (lambda m, p: m.replace(focal_length=math.inf).to_json(), planex.DocumentError, "no form"),
    (lambda m, p: m.replace(homography=numpy.eye(2)), ValueError, r"must be \(3, 3\)"),
    (lambda m, p: m.replace(sheet_curve=[1.0]), ValueError, r"\(0,\) or \(6,\)"),
    (lambda m, p: m.replace(focus=1), TypeError, "no field 'focus'"),
    (lambda m, p: m.replace(sensor_size=(2**31, 1)), ValueError, "sensor width"),
    (lambda m, p: m.replace(state=6), ValueError, "6 is not a valid State"),
    (lambda m, p: m.mirror(x=math.nan), planex.Error, "mirror point is invalid"),
    (lambda m, p: Model.from_file(p / "none"), FileNotFoundError, "none"),
    (lambda m, p: Model.from_file(__file__), planex.DocumentError, "models_test.py is no model"),
    (lambda m, p: [(p / "\udcff").write_text("{"), Model.from_file(p / "\udcff")],
     planex.DocumentError, "\udcff is no model"),
    (lambda m, p: m.to_file(p / "no" / "a.json"), FileNotFoundError, "no"),
    (lambda m, p: [m.to_file(p / "a.json"), m.to_file(p / "a.json")], FileExistsError, "overwrite"),
    (lambda m, p: [os.symlink("x", p / "l"), m.to_file(p / "l", overwrite=True)], planex.Error,
     "cannot be written"),
    (lambda m, p: planex.SensorTraits(65536, 1), ValueError, "from 0 to 65535"),
    (lambda m, p: planex.SensorTraits(1.5, 1), TypeError, "must be an int"),
])
def test_refusals(model, tmp_path, call, error, text):
    with pytest.raises(error, match=text) as caught:
        call(model, tmp_path)
    again = pickle.loads(pickle.dumps(caught.value))
    assert type(again) is error and str(again) == str(caught.value)
    assert getattr(again, "records", ()) == getattr(caught.value, "records", ())


def test_files_and_what_is_worth_knowing(model, tmp_path, caplog):
    path = tmp_path / "model.json"
    model.to_file(path)
    model.replace(file_version=3).to_file(path, overwrite=True)
    caplog.set_level(logging.INFO)
    assert Model.from_file(path).replace(file_version=2) == model
    said = [(record.name, record.levelname) for record in caplog.records]
    assert said == [("planex.Image.Planex.Model", "INFO")]


@pytest.mark.parametrize("fields, faults", [
    (dict(), []),
    (dict(homography=numpy.zeros((3, 3)), pose=2 * numpy.diag([1, 1, 2, 1])),
     ["data.Homography: cannot be inverted",
      "data.Pose: is no similarity: rotation, one scale and translation"]),
    (dict(focal_length=-1.0), ["data.FocalLength: is -1; expected above 0"]),
    (dict(alignment_error_max=math.nan, sheet_curve=[math.inf] * 6),
     ["data.AlignmentErrorMax: is not finite", "data.SheetCurve: is not finite"]),
])
def test_check_names_what_is_wrong(model, fields, faults):
    assert [str(fault) for fault in model.replace(**fields).check()] == faults


def test_recovery_is_asked_for_and_said(model, tmp_path, caplog):
    path = tmp_path / "damaged.json"
    path.write_text(model.to_json().replace("LensCoefficients", "LensCoeff"))
    with pytest.raises(planex.DocumentError, match="damaged.json is no model.*LensCoefficients"):
        Model.from_file(path)
    assert not caplog.records
    assert Model.from_file(path, recover=True).sensor_size == model.sensor_size
    assert [record.levelname for record in caplog.records] == ["WARNING"]
    assert "damaged.json is no model" in caplog.text and "LensCoefficients" in caplog.text
    for text in ('{"class": 1} SensorSize', path.read_text().replace("6400", "-1"),
                 path.read_text() + '"SensorSize": 1, 2'):
        with pytest.raises(planex.DocumentError):
            Model.from_json(text, recover=True)


def test_notebooks_get_escaped_tables(model):
    grid = planex.Grid(3, 1.0, 0.0, 1.0, 0.0, planex.Splat(0, 0))
    heights = planex.HeightMap(numpy.zeros((2, 3), "f4"), grid, unit="<script>\"&")
    page = heights._repr_html_()
    assert "0 to 0 &lt;script&gt;&quot;&amp;" in page and "<script" not in page
    assert "2560 x 1024" in model._repr_html_() and "2 x 3" in with_region(model)._repr_html_()
    assert planex.HeightMap(numpy.zeros((0, 3), "f4"), grid)._repr_html_()


@pytest.mark.parametrize("spoil", [
    lambda fields, region: (fields[:-1], region),
    lambda fields, region: (fields + b"\0", region),
    lambda fields, region: (fields.replace(b"\3\0\0\0\3\0\0\0", b"\xff\xff\xff\x7f" * 2), region),
    lambda fields, region: (fields.replace(b"\3\0\0\0\3\0\0\0", b"\xff" * 8), region),
    lambda fields, region: (fields, region[:-9]),
])
def test_damaged_pickles_are_refused(model, spoil):
    rebuild, bits = model.__reduce__()
    with pytest.raises(ValueError, match="no bits of a model"):
        rebuild(*spoil(*bits))
