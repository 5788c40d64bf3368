import json
import os
import pathlib
import pickle
import signal
import subprocess
import threading

import numpy
import pytest

import planex


def noise(dtype, rows=70, columns=33):
    values = numpy.random.default_rng(3).integers(0, 2**32, (rows, columns), dtype=numpy.uint32)
    return (values / 7).astype("f4") if dtype == "f4" else values.astype(dtype)


def stored(path, image, **options):
    if path.suffix == ".npy":
        numpy.save(path, image)
    elif path.suffix == ".pgm":
        path.write_bytes(b"P5 %d %d %d\n" % (*image.shape[::-1], numpy.iinfo(image.dtype).max)
                         + image.astype(image.dtype.newbyteorder(">")).tobytes())
    else:
        grid = planex.Grid(image.shape[1], 1.0, 0.0, 1.0, 0.0, planex.Splat(0.0, 0.0))
        planex.HeightMap(image, grid).save(path, overwrite=True, **options)
    return path


@pytest.mark.parametrize("ending, dtype", [
    ("pgm", "u1"), ("pgm", "u2"), ("png", "u2"), ("tif", "u2"), ("tif", "f4"), ("npy", "u1"),
    ("npy", "u4"), ("npy", ">u2"), ("npy", "f4")])
def test_files_are_read_as_arrays_are_sliced(tmp_path, ending, dtype):
    image = noise(dtype)
    file = planex.ImageFile(stored(tmp_path / f"a.{ending}", image))
    file = pickle.loads(pickle.dumps(file))
    assert file.shape == image.shape and file.dtype == image.dtype.newbyteorder("=")
    out = numpy.empty((3, 33), file.dtype)
    assert file.read(slice(60, 63), out) is out and numpy.array_equal(out, image[60:63])
    for rows in (slice(None), slice(5, 9), slice(-3, 99), slice(9, 5), slice(80, 99), slice(4)):
        got = file[rows]
        assert got.dtype == file.dtype and got.flags.owndata and got.flags.aligned
        assert numpy.array_equal(got, image[rows]) and got.shape == image[rows].shape


def test_a_name_is_a_name(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    image = noise("u1")
    for name in ("-", os.fsdecode(b"\xff.png")):
        stored(tmp_path / "a.pgm", image).rename(name)
        assert numpy.array_equal(planex.read_image(name, slice(1, 3)), image[1:3])
    (tmp_path / os.fsdecode(b"\xfe.png")).write_bytes(b"P5")
    with pytest.raises(planex.ImageError, match=os.fsdecode(b"\xfe")):
        planex.ImageFile(os.fsdecode(b"\xfe.png"))


@pytest.mark.parametrize("prepare, error, text", [
    (lambda p: p / "none", FileNotFoundError, "none"),
    (lambda p: p, IsADirectoryError, "directory"),
    (lambda p: os.mkfifo(p / "pipe") or p / "pipe", planex.ImageError, "is not a regular file"),
    (lambda p: __file__, planex.ImageError, "is not a PNG, TIFF, binary PGM or NPY"),
    (lambda p: stored(p / "f.npy", numpy.zeros((2, 2))), planex.ImageError, "'<f8'"),
])
def test_what_cannot_be_opened(tmp_path, prepare, error, text):
    stored(tmp_path / "a.npy", noise("u1"))
    with pytest.raises(error, match=text) as caught:
        planex.ImageFile(prepare(tmp_path))
    assert type(caught.value) is error


@pytest.mark.parametrize("call, error, text", [
    (lambda f: f[1], TypeError, "rows must be a slice, not int"),
    (lambda f: f[1:9:2], TypeError, "step 1, not 2"),
    (lambda f: f[1:3, 2:4], TypeError, "not tuple"),
    (lambda f: f.read(slice(2), numpy.empty((3, 33), "u2")), ValueError, r"it must be \(2, 33\)"),
    (lambda f: f.read(slice(2), numpy.empty((2, 33), "u1")), TypeError, "has the type uint8"),
    (lambda f: f._native.read(69, 2, None), ValueError, "outside"),
])
def test_what_cannot_be_read(tmp_path, call, error, text):
    with pytest.raises(error, match=text):
        call(planex.ImageFile(stored(tmp_path / "a.npy", noise("u2"))))


def test_a_file_with_damage_gives_the_rows_before_it(tmp_path):
    image = noise("u2", 3000, 100)
    path = stored(tmp_path / "a.png", image)
    os.truncate(path, path.stat().st_size // 2)
    file = planex.ImageFile(path)
    for _ in range(2):  # what failed once fails again, and leaves nothing behind
        with pytest.raises(planex.ImageError, match="damaged or cut off at row 1[45]"):
            file[1000:2000]
        with pytest.raises(planex.ImageError, match="damaged or cut off at row 1[45]"):
            file[2000:2001]
        assert numpy.array_equal(file[500:900], image[500:900])
    stored(path, image[:, :50])
    with pytest.raises(planex.ImageError, match="damaged or cut off"):
        file[2999:]
    with pytest.raises(planex.ImageError, match="another size or type; open it again"):
        file[:1]


def test_strips_stand_for_themselves(tmp_path):
    levels = noise("u2", 600, 500)
    path = stored(tmp_path / "a.tif", levels, compress="deflate")  # strips of 262 rows
    data = bytearray(path.read_bytes())
    data[len(data) // 2:len(data) // 2 + 99] = bytes(99)
    path.write_bytes(data)
    file = planex.ImageFile(path)
    for rows in (slice(530, 550), slice(0, 20), slice(599, 600), slice(240, 262), slice(550, 560)):
        assert numpy.array_equal(file[rows], levels[rows])
        with pytest.raises(planex.ImageError, match="damaged or cut off at row"):
            file[500:510]


def places_in(path):
    """Where the descriptors of this process stand in a file."""
    mine = [link.name for link in pathlib.Path("/proc/self/fd").iterdir() if link.exists()
            and link.samefile(path)]
    return [pathlib.Path(f"/proc/self/fdinfo/{name}").read_text().split()[1] for name in mine]


def side_by_side(work, count):
    workers = [threading.Thread(target=work, args=(number,)) for number in range(count)]
    for worker in workers:
        worker.start()
    for worker in workers:
        worker.join()


@pytest.mark.parametrize("ending, options", [("png", {}), ("tif", {"compress": "zstd"})])
def test_threads_and_children_share_a_file(tmp_path, ending, options):
    image = noise("u2", 600, 500)
    path = stored(tmp_path / f"a.{ending}", image, **options)
    file = planex.ImageFile(path)
    file[:300]
    good = []

    def work(seed):
        for first in numpy.random.default_rng(seed).integers(0, 600, 40):
            good.append(numpy.array_equal(file[first:first + 9], image[first:first + 9]))

    side_by_side(work, 3)
    assert len(good) == 120 and all(good)
    before = places_in(path)
    child = os.fork()
    if child == 0:
        os._exit(0 if numpy.array_equal(file[:], image) else 1)
    assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 0
    assert places_in(path) == before != []  # a child that moved them would confuse the parent


COMMAND = pathlib.Path(planex.__file__).parents[2] / "tools/planex"
needs_command = pytest.mark.skipif(not COMMAND.exists(), reason="the command is not built")


def run(*words):
    done = subprocess.run([COMMAND, *map(str, words)], capture_output=True, text=True)
    assert done.returncode == 0, done.stderr
    return done.stdout


@pytest.fixture(scope="module")
def taken(model, sensor, scan, tmp_path_factory):
    """A scan in files, and what Python makes of it."""
    folder = tmp_path_factory.mktemp("taken")
    model.to_file(folder / "model.json")
    image = scan[:70, 1000:1090].copy()
    image[:, 30:60] = 8000 + 40 * numpy.arange(70)[:, None]  # a surface, with triangles
    images = {"range": image, "u1": (image >> 8).astype("u1"), "u2": image ^ 0xFFF}
    for name, values in images.items():
        stored(folder / f"{name}.npy", values)
    where = planex.SensorTraits(90, 1024, 1.0, 1000.0)
    beside = {"scaleX": 1, "originX": 1000, "scaleZ": 1 / 16, "originZ": 0, "width": 90,
              "height": 1024}
    (folder / "range.npy.json").write_text(json.dumps({"sensor": beside}))
    return folder, images, where, planex.calibrate(model, image, where)


@needs_command
@pytest.mark.parametrize("ending, options", [
    ("ply", "--y-scale 0.5"), ("ply", "--intensity u1"), ("ply", "--intensity u2 --drop-missing"),
    ("ply", "--aligned --y-scale -0.5 --mesh 0.7"), ("pcd", "--intensity u2 --y-scale 0.5"),
    ("pcd", "--drop-missing --unit um"), ("las", "--intensity u1 --y-scale 0.1"),
    ("csv", "--intensity u2 --y-scale 0.1"), ("xyz", "--aligned --y-scale 0.1"), ("txt", ""),
    ("tif", "--aligned --y-scale 0.1"), ("TIFF", ""), ("npy", "--aligned --y-scale 0.1"),
    ("npy", "--unit in")])
def test_points_are_those_of_the_command(model, taken, tmp_path, ending, options):
    folder, images, _, (x, z) = taken
    words = options.split()
    value = lambda name: words[words.index(name) + 1] if name in words else None
    intensity = images.get(value("--intensity"))
    words = [folder / f"{word}.npy" if word in images else word for word in words]
    want = tmp_path / f"want.{ending}"
    run("calibrate", folder / "model.json", folder / "range.npy", "-o", want, *words)
    scale, y = value("--y-scale"), None
    if scale:
        y = numpy.arange(70) * float(scale)
    if "--aligned" in words:
        x, y, z = planex.align(model, x, z, y)
    apart = numpy.full((70, 200), 7, "f4")  # profiles may lie apart
    apart[:, 50:140] = z
    planex.write_points(tmp_path / f"got.{ending}", x, apart[:, 50:140], y, intensity=intensity,
                        aligned="--aligned" in words, drop_missing="--drop-missing" in words,
                        mesh=float(value("--mesh") or 0) or None, unit=value("--unit") or "mm")
    assert (tmp_path / f"got.{ending}").read_bytes() == want.read_bytes()


@needs_command
@pytest.mark.parametrize("ending, intensity, y_scale, compress", [
    ("png", "u2", 0.25, None), ("tif", "u1", None, None), ("tif", None, 0.25, "deflate"),
    ("tiff", "u2", 0.25, "zstd"), ("npy", "u2", None, None)])
def test_maps_are_those_of_the_command(model, taken, tmp_path, ending, intensity, y_scale,
                                       compress):
    folder, images, where, _ = taken
    want, got = tmp_path / f"want.{ending}", tmp_path / f"got.{ending}"
    options = ["--intensity", folder / f"{intensity}.npy"] if intensity else []
    options += ["--y-scale", y_scale] if y_scale else []
    options += ["--compress", compress] if compress else []
    run("rectify", folder / "model.json", folder / "range.npy", "-o", want, *options)
    heights = planex.height_map(model, images["range"], where, dtype="u2", y_scale=y_scale,
                                intensity=images.get(intensity))
    heights.save(got, compress=compress)
    for mark in ["", "_intensity"] if intensity else [""]:
        files = [tmp_path / f"{name}{mark}.{ending}" for name in ("want", "got")]
        assert files[0].read_bytes() == files[1].read_bytes()
        told = [json.loads(pathlib.Path(f"{file}.json").read_text()) for file in files]
        same = {key: value for key, value in told[1].items() if key != "made"}
        assert same.items() <= told[0].items() and same["columns"] == 90
        assert told[1]["made"]["splat"] == told[0]["made"]["splat"]
        assert "got" in run("info", files[1])
    assert run("stats", want).replace("want", "got") == run("stats", got)
    again = planex.HeightMap.from_file(want)
    assert again.grid == heights.grid and numpy.array_equal(again.z, heights.z)
    assert again.y_unit == (None if y_scale else "rows")


@needs_command
def test_maps_of_floats_go_round(taken, tmp_path):
    folder = taken[0]
    run("rectify", folder / "model.json", folder / "range.npy", "-o", tmp_path / "a.tif", "--float",
        "--nodata", "-9.1", "--y-scale", "0.25", "--compress", "deflate", "--unit", "in")
    map = planex.HeightMap.from_file(tmp_path / "a.tif")
    assert map.z.dtype == "f4" and 0.01 < map.mask.mean() < 0.9 and map.unit == "in"
    map.save(tmp_path / "b.tif", compress="deflate")
    assert (tmp_path / "a.tif").read_bytes() == (tmp_path / "b.tif").read_bytes()


GRID = planex.Grid(40, 0.5, -10.0, 0.01, -3.0, planex.Splat(0.5, 0.25, 2.0))


@pytest.mark.parametrize("dtype, ending, fields", [
    ("f4", "tif", dict(y_scale=-0.5, y_origin=7.0, unit="\u00b5m")),
    ("f4", "npy", dict(missing=-99.0, y_unit="rows")), ("u2", "npy", dict(missing=0, aligned=True)),
    ("u2", "PNG", dict(missing=0, unit="in"))])
def test_maps_come_back(tmp_path, dtype, ending, fields):
    path = tmp_path / f"a.{ending}"
    wide = noise(dtype, 30, 90)
    map = planex.HeightMap(wide[:, 7:47], GRID, **fields)
    map.save(path)
    again = planex.HeightMap.from_file(path)
    assert numpy.array_equal(again.z, map.z) and again.z.dtype == dtype
    for name in ("grid", "y_scale", "y_origin", "unit", "y_unit", "aligned"):
        assert getattr(again, name) == getattr(map, name), name
    numpy.testing.assert_equal(again.missing, map.missing)
    told = json.loads((tmp_path / f"a.{ending}.json").read_text())
    del told["made"]
    told["transform"]["scaleX"] = 0
    for text, problem in ((json.dumps(told), "scale of X"), ("{", "is not JSON"), (None, "has no")):
        side = tmp_path / f"a.{ending}.json"
        side.unlink() if text is None else side.write_text(text)
        with pytest.raises(planex.ImageError, match=problem):
            planex.HeightMap.from_file(path)


X = numpy.ones((4, 8), "f4")


def save(p, name="a.tif", z=numpy.ones((4, 40), "f4"), grid=GRID, compress=None, **fields):
    planex.HeightMap(z, grid, **fields).save(p / name, compress=compress)


def points(p, name="a.ply", x=X, z=X, *rest, **options):
    planex.write_points(p / name, x, z, *rest, **options)


@pytest.mark.parametrize("call, error, text", [
    (lambda p: points(p, "a.stl"), ValueError, "must end in .ply"),
    (lambda p: points(p, "a.tif", intensity=X.astype("u1")), ValueError, "no place in a .tif"),
    (lambda p: points(p, "a.npy", drop_missing=True), ValueError, "holes"),
    (lambda p: points(p, "a.pcd", mesh=1.0), ValueError, "mesh needs a .ply"),
    (lambda p: points(p, mesh=0.0), ValueError, "mesh must be above 0"),
    (lambda p: points(p, aligned=True), ValueError, "need y"),
    (lambda p: points(p, unit="m\nm"), ValueError, "printable"),
    (lambda p: points(p, x=X.astype("f8")), TypeError, "x has the type float64"),
    (lambda p: points(p, z=X[:3]), ValueError, "z must have the shape of x"),
    (lambda p: points(p, "a.ply", X, X, numpy.ones(3)), ValueError, r"\(4,\), one number"),
    (lambda p: points(p, "a.ply", X, X, numpy.ones(4) * 1e39), ValueError, "row 0.*float32"),
    (lambda p: points(p, intensity=X), TypeError, "intensity has the type float32"),
    (lambda p: points(p, x=X[:0], z=X[:0]), ValueError, "0 rows"),
    (lambda p: points(p, "no/a.ply"), FileNotFoundError, "no"),
    (lambda p: points(p, "there"), FileExistsError, "overwrite=True"),
    (lambda p: points(p, "", overwrite=True), IsADirectoryError, ""),
    (lambda p: save(p, "a.jpg"), ValueError, "must end in .tif"),
    (lambda p: save(p, "a.png"), ValueError, "no place in a .png"),
    (lambda p: save(p, "a.npy", compress="zstd"), ValueError, "compress needs a .tif"),
    (lambda p: save(p, compress="lzw"), ValueError, "deflate, zstd"),
    (lambda p: save(p, z=X), ValueError, "z has 8 columns"),
    (lambda p: save(p, y_scale=0.0), ValueError, "y_scale and y_origin must be finite"),
    (lambda p: save(p, missing=numpy.inf), ValueError, "missing must not"),
    (lambda p: save(p, intensity=X.astype("u1")), ValueError, "intensity must have the shape of z"),
    (lambda p: save(p, "b.tif"), FileExistsError, "b.tif.json exists"),
    (lambda p: save(p, "c.tif", intensity=X.astype("u1")), FileExistsError, "c_intensity.tif ex"),
])
def test_refusals_leave_nothing(tmp_path, call, error, text):
    there = {"there", "b.tif.json", "c_intensity.tif"}
    for name in there:
        (tmp_path / name).touch()
    with pytest.raises(error, match=text) as caught:
        call(tmp_path)
    assert type(caught.value) is error and set(os.listdir(tmp_path)) == there


def test_files_appear_complete_or_not_at_all(tmp_path):
    tall = numpy.ones((3000, 1000), "f4")

    def interrupt(number, frame):
        raise KeyboardInterrupt

    previous = signal.signal(signal.SIGALRM, interrupt)
    try:
        with pytest.raises(KeyboardInterrupt):
            signal.setitimer(signal.ITIMER_REAL, 0.002)
            points(tmp_path, "a.csv", tall, tall)
    finally:
        signal.setitimer(signal.ITIMER_REAL, 0)
        signal.signal(signal.SIGALRM, previous)
    assert os.listdir(tmp_path) == []
    for height in (2, 3):
        points(tmp_path, "a.npy", X * height, X, overwrite=True)
    assert numpy.load(tmp_path / "a.npy")[0, 0].tolist() == [3, 1]
    previous = os.umask(0o27)
    points(tmp_path, "b.npy")
    os.umask(previous)
    assert os.stat(tmp_path / "b.npy").st_mode & 0o777 == 0o640


def test_threads_write_files_of_their_own(tmp_path):
    saved = []

    def work(worker):
        for number in range(20):
            save(tmp_path, f"{worker}_{number}.tif", worker + noise("f4", 50, 40))
            saved.append(planex.HeightMap.from_file(tmp_path / f"{worker}_{number}.tif").z[0, 0])

    side_by_side(work, 4)
    first = noise("f4", 50, 40)[0, 0]
    assert sorted(saved) == sorted(numpy.repeat(numpy.arange(4, dtype="f4") + first, 20))


def test_sidecars(model, tmp_path):
    whole = {"scaleX": 2, "originX": 100, "scaleZ": 0.5, "originZ": 7}
    path = tmp_path / "a.png.json"
    path.write_text(json.dumps({"sensor": whole, "rows": {"positions": "y.txt"}}))
    (tmp_path / "y.txt").write_text("1.5\n-2\n")
    told = planex.read_sidecar(path, model)
    assert told.sensor == planex.SensorTraits(2460, 1017, 2.0, 100.0, 0.5, 7.0)
    assert told.sensor == planex.SensorTraits.from_sidecar(path, model)
    assert told.y_scale is None and told.y(2).tolist() == [1.5, -2]
    with pytest.raises(planex.ImageError, match="pass a model"):
        planex.read_sidecar(path)
    with pytest.raises(planex.ImageError, match="y.txt"):
        told.y(3)
    for text, problem in (("[]", "no JSON object"), ('{"sensor": {"scaleX": "1"}}', "scaleX"),
                          ('{"rows": {"scaleY": 2}}', "says nothing of the sensor")):
        path.write_text(text)
        with pytest.raises(planex.ImageError, match=problem):
            planex.SensorTraits.from_sidecar(path, model)
    assert planex.read_sidecar(path).y(3).tolist() == [0, 2, 4]


@needs_command
@pytest.mark.parametrize("dtype, words, options", [
    ("u1", "", {}),
    ("u2", "--method cog --line-width 4 --pick nearest:20 --bits 12 --gain 0.2 --read-noise 1.5",
     dict(method="cog", line_width=4, choice=("nearest", 20), full_scale=4095, gain=0.2,
          read_noise=1.5)),
    ("u1", "--transpose --band 5:70 --threshold 9.5 --pick last --scale-z 2 --origin-x -4",
     dict(transpose=True, rows=(5, 70), threshold=9.5, choice="last", scale_z=2.0, origin_x=-4.0)),
    ("u2", "--dark dark.npy --bits 12 --min-width 3 --max-width 6.5",
     dict(dark=True, full_scale=4095, minimum_width=3, maximum_width=6.5)),
])
def test_lines_are_those_of_the_command(tmp_path, monkeypatch, dtype, words, options):
    monkeypatch.chdir(tmp_path)
    os.mkdir("frames")
    top = 255 if dtype == "u1" else 4095
    place = numpy.arange(12)[:, None] + 30 + 9 * numpy.sin(numpy.arange(90) / 9)
    v = numpy.arange(80)[:, None]
    one, two = (numpy.exp(-((v - rows[:, None]) / 3) ** 2) for rows in (place, 0.5 * place - 5))
    frames = ((one + 0.6 * two) * 0.9 * top + noise("u1", 12 * 80, 90).reshape(12, 80, 90) % 5)
    frames = (frames.swapaxes(1, 2) if "transpose" in options else frames).astype(dtype, "C")
    for i, frame in enumerate(frames):
        stored(tmp_path / f"frames/frame_{i}.pgm", frame)
    stored(tmp_path / "dark.npy", frames[3] // 2)
    if "dark" in options:
        options = options | {"dark": planex.read_image("dark.npy")}
    layers = ["intensity", "width", "quality"] + ["deviation"] * ("gain" in options)
    files = [f"{layer}.npy" for layer in layers]
    names = ["--widths" if layer == "width" else f"--{layer}" for layer in layers]
    run("extract", "frames", "-o", "range.npy", *sum(zip(names, files), ()), *words.split())
    blocks = list(planex.read_frames("frames", first=1, block=4))
    assert [len(block) for block in blocks] == [4, 4, 3]
    assert numpy.array_equal(numpy.concatenate(blocks), frames[1:])
    lines = planex.extract_lines(frames, layers=layers, **options)
    for name, file in zip(["range", *layers], ["range.npy", *files]):
        assert numpy.array_equal(getattr(lines, name), numpy.load(file)), name
    assert lines.mask.mean() < 0.5
    assert planex.read_sidecar("range.npy").sensor == lines.sensor


@pytest.mark.parametrize("paths, options, error, text", [
    (["none"], {}, FileNotFoundError, "none"),
    ([], {}, TypeError, "at least one path"),
    (["a.npy"], {"block": 0}, ValueError, "block must be from 1"),
    (["a.npy"], {"raw": "33x70:mono9"}, planex.ImageError, "mono9"),
    (["."], {}, planex.ImageError, r"b\.npy: "),
])
def test_frames_that_cannot_be_read(tmp_path, monkeypatch, paths, options, error, text):
    monkeypatch.chdir(tmp_path)
    stored(tmp_path / "a.npy", noise("u1"))
    stored(tmp_path / "b.npy", noise("u2"))
    with pytest.raises(error, match=text):
        list(planex.read_frames(*paths, **options))
