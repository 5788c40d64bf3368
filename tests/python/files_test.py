import os
import pickle
import threading
import zlib

import numpy
import pytest

import planex


def noise(dtype, rows=70, columns=33):
    values = numpy.random.default_rng(3).integers(0, 2**32, (rows, columns), dtype=numpy.uint32)
    return (values / 7).astype("f4") if dtype == "f4" else values.astype(dtype)


def pgm(image):
    most = numpy.iinfo(image.dtype).max
    return b"P5 %d %d %d\n" % (*image.shape[::-1], most) + image.astype(image.dtype.newbyteorder(
        ">")).tobytes()


def png(image):
    rows = image.astype(image.dtype.newbyteorder(">"))
    lines = b"".join(b"\0" + row.tobytes() for row in rows)
    size = numpy.array(image.shape[::-1], ">u4").tobytes()
    chunks = {b"IHDR": size + bytes([8 * image.itemsize, 0, 0, 0, 0]),
              b"IDAT": zlib.compress(lines), b"IEND": b""}
    number = lambda value: value.to_bytes(4, "big")
    return b"\x89PNG\r\n\x1a\n" + b"".join(
        number(len(data)) + name + data + number(zlib.crc32(name + data))
        for name, data in chunks.items())


def tiff(image):
    kind = 3 if image.dtype.kind == "f" else 1
    tags = [(256, image.shape[1]), (257, image.shape[0]), (258, 8 * image.itemsize), (259, 1),
            (262, 1), (273, 8), (277, 1), (278, image.shape[0]), (279, image.nbytes), (339, kind)]
    listed = numpy.array([(tag, 4, 1, value) for tag, value in tags], "<u2,<u2,<u4,<u4").tobytes()
    return (b"II*\0" + (8 + image.nbytes).to_bytes(4, "little") + image.tobytes()
            + len(tags).to_bytes(2, "little") + listed + bytes(4))


WRITERS = {"pgm": pgm, "png": png, "tif": tiff}


def stored(path, image):
    if path.suffix == ".npy":
        numpy.save(path, image)
    else:
        path.write_bytes(WRITERS[path.suffix[1:]](image))
    return path


@pytest.mark.parametrize("ending, dtype", [
    ("pgm", "u1"), ("pgm", "u2"), ("png", "u1"), ("png", "u2"), ("tif", "u1"), ("tif", "u2"),
    ("tif", "u4"), ("tif", "f4"), ("npy", "u1"), ("npy", "u2"), ("npy", "u4"), ("npy", "f4"),
    ("npy", ">u2")])
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
        stored(tmp_path / "a.png", image).rename(name)
        assert numpy.array_equal(planex.read_image(name, slice(1, 3)), image[1:3])
    (tmp_path / os.fsdecode(b"\xfe.png")).write_bytes(b"P5")
    with pytest.raises(planex.ImageError, match=os.fsdecode(b"\xfe")):
        planex.ImageFile(os.fsdecode(b"\xfe.png"))


@pytest.mark.parametrize("prepare, error, text", [
    (lambda p: p / "none", FileNotFoundError, "none"),
    (lambda p: p, IsADirectoryError, "directory"),
    (lambda p: p / "a.npy" / "b", NotADirectoryError, "a.npy/b"),
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
    (lambda f: f[::-1], TypeError, "step 1, not -1"),
    (lambda f: f[1:3, 2:4], TypeError, "not tuple"),
    (lambda f: f.read(slice(2), numpy.empty((3, 33), "u2")), ValueError, r"it must be \(2, 33\)"),
    (lambda f: f.read(slice(2), numpy.empty((2, 33), "u1")), TypeError, "has the type uint8"),
    (lambda f: f.read(slice(2), numpy.empty((33, 2), "u2").T), ValueError, "not C-contiguous"),
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


@pytest.mark.parametrize("ending", ["png", "tif"])
def test_threads_and_children_share_a_file(tmp_path, ending):
    image = noise("u2", 600, 500)
    file = planex.ImageFile(stored(tmp_path / f"a.{ending}", image))
    file[:300]
    good = []

    def work(seed):
        for first in numpy.random.default_rng(seed).integers(0, 600, 40):
            good.append(numpy.array_equal(file[first:first + 9], image[first:first + 9]))
        good.append(True)

    child = os.fork()
    workers = [threading.Thread(target=work, args=(seed,)) for seed in range(1 if child == 0 else 3)]
    for worker in workers:
        worker.start()
    for worker in workers:
        worker.join()
    if child == 0:
        os._exit(0 if len(good) == 41 and all(good) else 1)
    assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 0
    assert len(good) == 123 and all(good)
