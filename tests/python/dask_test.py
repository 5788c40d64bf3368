import doctest
import pathlib
import pickle
import subprocess
import sys

import numpy
import pytest
from hypothesis import given, settings, strategies

import planex
from models_test import with_region

dask = pytest.importorskip("dask")
da = pytest.importorskip("dask.array")
zarr = pytest.importorskip("zarr")
import planex.dask  # noqa: E402

ROWS = 60
CHUNKS = strategies.lists(strategies.integers(0, ROWS), max_size=6).map(
    lambda cuts: tuple(numpy.diff([0, *sorted(cuts), ROWS]).tolist()))


def bits(*arrays):
    return [None if a is None else (a.dtype, a.shape, a.tobytes()) for a in arrays]


def cut(array, rows):
    return da.from_array(array, chunks=(rows, *array.shape[1:]))


@settings(max_examples=60)
@given(CHUNKS, CHUNKS, strategies.sampled_from([None, numpy.uint8, numpy.uint16]),
       strategies.sampled_from(["f4", "u2"]), strategies.booleans(),
       strategies.sampled_from([0, 100, 100]),
       strategies.sampled_from([lambda b: numpy.frombuffer(b"\0" + b.tobytes(), b.dtype, offset=1)
                                .reshape(b.shape), numpy.asfortranarray, numpy.asarray]))
def test_blocks_give_the_bits_of_the_whole(model, scan, rows, others, kind, dtype, given, columns,
                                                 stored):
    image = scan[:ROWS, 1000:1000 + columns].copy()
    sensor = planex.SensorTraits(100, 1024, origin_x=1000.0)
    darker = 100 * numpy.arange(ROWS, 0, -1, numpy.uint16)[:, None]  # the limits are in two blocks
    grey = None if kind is None else ((image // 3 + darker) // (1 if kind is numpy.uint16 else 90))
    grey = None if kind is None else grey.astype(kind)
    options = dict(mode="highest" if kind is None else "darkest", dtype=dtype, missing=-9.0)
    grid = planex.bounds(model, sensor, 100).grid(pixel_size=0.5)
    want = planex.height_map(model, image, sensor, grid, intensity=grey, **options)

    limited = given and columns and kind is numpy.uint16

    def lazy(**other):
        blocks = cut(image, rows).map_blocks(stored, meta=image[:0])
        colours = None if kind is None else cut(grey, others).map_blocks(stored, meta=grey[:0])
        limits = planex.dask.intensity_limits(colours) if limited else None
        return planex.dask.height_map(model, blocks, sensor, grid, intensity=colours,
                                      intensity_limits=limits, y_scale=2.0, **{**options, **other})

    heights = lazy()
    assert heights.z.chunks == (rows, (grid.columns,))
    got = heights.compute(scheduler="sync")
    assert bits(got.z, got.intensity) == bits(want.z, want.intensity)
    assert bits(heights.heights().compute()) == bits(want.heights())
    assert numpy.array_equal(heights.mask.compute(), want.mask)
    part = heights[20:50:10]
    assert part.y.tolist() == [40, 60, 80] and bits(part.compute().z) == bits(want.z[20:50:10])
    if columns:  # Dask has no lasting names for blocks of nothing
        with dask.config.set({"tokenize.ensure-deterministic": True}):
            assert lazy().z.name == heights.z.name != lazy(missing=-8.0).z.name

    points = planex.calibrate(model, image, sensor)
    blocks = planex.dask.calibrate(model, cut(image, rows), sensor)
    assert bits(*dask.compute(*blocks, scheduler="sync")) == bits(*points)
    y = numpy.arange(ROWS) / 7
    for x in (points.x, points.x[3:4]):
        want = planex.align(model, x, points.z, y)
        apart = cut(x, others if len(x) > 1 else 1)
        got = planex.dask.align(model, apart, blocks.z, cut(y, others))
        assert got.y.chunks == blocks.z.chunks
        assert bits(*dask.compute(*got, scheduler="sync")) == bits(*want)


@pytest.fixture(scope="module")
def files(tmp_path_factory, scan):
    """The scan, and 16-bit intensities of it, in every kind of file."""
    folder = tmp_path_factory.mktemp("scans")
    numpy.save(folder / "grey.npy", scan // 2)
    numpy.save(folder / "a.npy", scan)
    zarr.save_array(folder / "a.zarr", scan, chunks=(70, 900))
    header = b"P5 %d %d 65535\n" % scan.shape[::-1]
    (folder / "a.pgm").write_bytes(header + scan.astype(">u2").tobytes())
    tifffile = pytest.importorskip("tifffile")
    tifffile.imwrite(folder / "a.tif", scan)
    tifffile.imwrite(folder / "packed.tif", scan, compression="zlib", rowsperstrip=9)
    pytest.importorskip("PIL.Image").fromarray(scan).save(folder / "a.png")
    return folder


@pytest.mark.parametrize("name, rows", [("a.npy", 70), ("a.zarr", 32), ("a.pgm", 41), ("a.tif", 99),
                                        ("packed.tif", 31), ("a.png", 300), ("a.tif", None)])
def test_files_are_read_by_blocks(files, scan, name, rows):
    image = planex.dask.open_image(files / name, rows=rows)
    assert image.chunksize[0] == rows or rows is None and image.chunksize[0] == 300
    assert bits(image.compute()) == bits(scan)
    assert bits(image[217:250, ::2].compute()) == bits(scan[217:250, ::2].copy())
    again = planex.dask.open_image(files / name, rows=rows)
    assert again.name == image.name


@pytest.mark.parametrize("scheduler", ["threads", "processes", "cluster"])
def test_schedulers_write_the_same_map(model, sensor, scan, files, tmp_path, scheduler):
    xarray = pytest.importorskip("xarray")
    image, grey = (planex.dask.open_image(files / n, rows=50) for n in ("a.tif", "grey.npy"))
    options = dict(missing=-9.0, y_scale=0.5)
    want = planex.height_map(model, scan, sensor, intensity=scan // 2, **options)
    heights = planex.dask.height_map(model, image, sensor, intensity=grey, **options)
    levels = planex.dask.height_map(model, image[:77], sensor, dtype="u2")
    path, other = tmp_path / "a.zarr", tmp_path / "levels.zarr"
    if scheduler == "cluster":
        distributed = pytest.importorskip("distributed")
        with distributed.LocalCluster(n_workers=2, processes=False, threads_per_worker=1,
                                      dashboard_address=None) as cluster, cluster.get_client():
            planex.dask.to_zarr(heights, path)
            planex.dask.to_zarr(levels, other)
    else:
        with dask.config.set(scheduler=scheduler, num_workers=2):
            planex.dask.to_zarr(heights, path)
            planex.dask.to_zarr(levels, other, compute=False).compute()
    stored = xarray.open_zarr(path, mask_and_scale=False)
    assert bits(stored.z.values, stored.intensity.values) == bits(want.z, want.intensity)
    assert bits(stored.x.values, stored.y.values) == bits(want.x, want.y)
    with xarray.open_zarr(path) as masked:
        assert masked.z.units == "mm" and numpy.array_equal(numpy.isnan(masked.z), want.mask)
    with xarray.open_zarr(other) as world:
        numpy.testing.assert_allclose(world.z, levels.heights().compute(), atol=1e-5)
    assert zarr.open(path)["z"].chunks[0] == 50
    uneven = planex.dask._even(image[20:97])  # tasks do not share a chunk
    assert image[20:97].chunks[0] == (30, 47) and uneven.chunks[0] == (47, 30)
    assert bits(levels.to_xarray().values) == bits(levels.compute().heights())


def test_a_block_is_one_task_and_the_model_one_key(model, sensor, files):
    model = with_region(model)
    image = planex.dask.open_image(files / "a.tif", rows=1)
    graph, = dask.optimize(planex.dask.height_map(model, image, sensor).z)
    tasks = dict(graph.__dask_graph__())
    assert len(tasks) == 301
    held = [task.model for task in tasks.values() if not isinstance(task, tuple)]
    assert held == [model.replace(region=None)] != [model]
    assert dask.base.tokenize(model) == dask.base.tokenize(pickle.loads(pickle.dumps(model)))
    assert dask.base.tokenize(model) != dask.base.tokenize(model.replace(focal_length=1.0))


LAZY = da.ones((4, 8), chunks=(2, 8), dtype="u2")
MASKED = da.ma.masked_array(LAZY, LAZY > 0)
GREY = LAZY.astype("u1")


@pytest.mark.parametrize("call, error, text", [
    (lambda p, m, s: p.calibrate(m, numpy.ones((4, 8)), s), TypeError,
     r"numpy.ndarray, which planex.calibrate takes; here pass dask.array.from_array"),
    (lambda p, m, s: planex.calibrate(m, LAZY, s), TypeError, r"core.Array; .*planex.dask"),
    (lambda p, m, s: p.height_map(m, [[1]], s), TypeError, "is a builtins.list"),
    (lambda p, m, s: p.height_map(m, MASKED, s), TypeError, r"dask.array.ma.filled\(range_image"),
    (lambda p, m, s: p.height_map(m, LAZY[LAZY[:, 0] > 0], s), ValueError, "compute_chunk_sizes"),
    (lambda p, m, s: p.height_map(m, LAZY.rechunk((4, 5)), s), ValueError,
     r"range_image.rechunk\({1: -1}\)"),
    (lambda p, m, s: p.calibrate(m, LAZY[0], s), ValueError, "has 1 dimensions"),
    (lambda p, m, s: p.calibrate(m, LAZY.astype(">u2"), s), TypeError, "range_image has the type"),
    (lambda p, m, s: p.calibrate(m, LAZY.astype("i2"), s), TypeError, "range_image has the type"),
    (lambda p, m, s: p.calibrate(m.replace(focal_length=-1), LAZY, s), planex.Error, "Invalid foc"),
    (lambda p, m, s: p.calibrate("m", LAZY, s), TypeError, "must be a planex.Model"),
    (lambda p, m, s: p.height_map(m, LAZY, s, aligned=True), TypeError, "needs a grid"),
    (lambda p, m, s: p.height_map(m, LAZY, s, mode="darkest"), planex.Error, "Intensity"),
    (lambda p, m, s: p.height_map(m, LAZY, s, intensity=LAZY[:3]), ValueError, "for each point"),
    (lambda p, m, s: p.height_map(m, LAZY, s, intensity=LAZY, intensity_limits=LAZY), ValueError,
     "must be two integers"),
    (lambda p, m, s: p.align(m, LAZY, LAZY, LAZY[:, 0]), TypeError, "x has the type uint16"),
    (lambda p, m, s: p.align(m, LAZY, LAZY, LAZY[:3, 0]), ValueError, "with one y a profile"),
    (lambda p, m, s: p.intensity_limits(GREY), TypeError, "intensity has the type uint8"),
    (lambda p, m, s: p.intensity_limits(LAZY[:0]), ValueError, "empty and has no limits"),
    (lambda p, m, s: p.open_image("none.tif"), FileNotFoundError, "none.tif"),
    (lambda p, m, s: p.open_image(__file__), planex.ImageError, "dask_test.py"),
    (lambda p, m, s: p.open_image("."), planex.ImageError, "is no Zarr array"),
    (lambda p, m, s: p.open_image("a.png", rows=299), ValueError, "pass rows=300, or convert"),
    (lambda p, m, s: p.to_zarr(p.height_map(m, LAZY, s), "a.zarr"), FileExistsError, "overwrite"),
    (lambda p, m, s: p.to_zarr(p.height_map(m, LAZY, s), ".", overwrite=True), FileExistsError,
     "is no Zarr group"),
    (lambda p, m, s: p.to_zarr(LAZY, "b.zarr"), TypeError, "must be a planex.dask.HeightMap"),
])
def test_refusals_come_before_anything_is_computed(model, sensor, files, monkeypatch, call, error,
                                                   text):
    monkeypatch.chdir(files)
    with dask.config.set(scheduler=lambda *a, **k: pytest.fail("computed")):
        with pytest.raises(error, match=text) as caught:
            call(planex.dask, model, sensor)
    assert type(caught.value) is error


def test_workers_without_the_file_name_it(tmp_path, scan):
    path = tmp_path / "scan.npy"
    numpy.save(path, scan)
    image = planex.dask.open_image(path)
    numpy.save(path, scan + 1)
    assert planex.dask.open_image(path).name != image.name
    numpy.save(path, scan[:7])
    with pytest.raises(planex.ImageError, match=r"scan.npy is \(7, 2560\) uint16 here, but was"):
        image.compute()
    path.unlink()
    with pytest.raises(FileNotFoundError, match="scan.npy"):
        image.compute()


def test_examples_run_and_dask_is_imported_on_request(model, sensor, scan, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    names = dict(numpy=numpy, dask=dask, planex=planex, model=model, sensor=sensor,
                 scan=cut(scan, 100))
    failed, tried = doctest.testmod(planex.dask, extraglobs=names)
    assert failed == 0 and tried > 9
    folder = str(pathlib.Path(planex.__file__).parents[1])
    code = "import sys, planex; sys.exit('dask' in sys.modules)"
    subprocess.run([sys.executable, "-B", "-c", code], cwd=folder, check=True)
