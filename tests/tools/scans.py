"""Small scans as files, and runs of the command on them, for the tests of the command."""
import pathlib
import struct
import subprocess
import zlib
from array import array

MODEL = pathlib.Path(__file__).resolve().parents[2] / "examples/models/simulated_camera.json"
WIDTH, HEIGHT = 159, 45
# What whole_scan.cc takes for granted.
SENSOR = ["--scale-x", "16", "--origin-x", "8", "--origin-z", "160", "--sensor-height", "704"]
Y = ["--y-scale", "0.5", "--y-offset", "3"]


def run(command, *arguments, status=0):
    """Runs the command; returns what it wrote to standard error."""
    done = subprocess.run([command, *map(str, arguments)], capture_output=True, text=True)
    if done.returncode != status:
        raise AssertionError(f"{arguments}: status {done.returncode}, not {status}: {done.stderr}")
    return done.stderr


def range_values():
    """A roof with a groove, a step from row 20 on, and gaps."""
    values = array("H")
    for row in range(HEIGHT):
        for column in range(WIDTH):
            height = 4000 + 30 * min(column, WIDTH - column) + 7 * row + (row >= 20) * 1500
            missing = (column * 7 + row * 13) % 11 == 0 or 60 <= column < 64
            values.append(0 if missing else height + (column * 31 + row * 17) % 23)
    return values


def intensity_values():
    """The smallest value stands in the first row, the largest in the last."""
    values = array("H", ((i * 7919) % 3000 + 500 for i in range(WIDTH * HEIGHT)))
    values[5], values[-5] = 100, 4711
    return values


def big_endian(values):
    swapped = array(values.typecode, values)
    swapped.byteswap()
    return swapped.tobytes()


def pgm(values, comment=b""):
    maximum = 255 if values.itemsize == 1 else 65535
    return b"P5\n%s%d %d\n%d\n" % (comment, WIDTH, HEIGHT, maximum) + big_endian(values)


def chunk(kind, data):
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))


def png(values, width=WIDTH, color=0, interlace=0, height=None):
    pixels, stride = big_endian(values), width * values.itemsize
    rows = b"".join(b"\0" + pixels[i:i + stride] for i in range(0, len(pixels), stride))
    header = struct.pack(">IIBBBBB", width, height or len(values) // width, 8 * values.itemsize,
                         color, 0, 0, interlace)
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(rows)) + \
        chunk(b"IEND", b"")


def tiff(values, width=WIDTH, rows_per_strip=8, order="<", deflate=False, **changed):
    """A TIFF with strips; `changed` replaces values of tags, as tag_258=32."""
    pixels = values.tobytes() if order == "<" else big_endian(values)
    height, size = len(values) // width, rows_per_strip * width * values.itemsize
    strips = [pixels[i:i + size] for i in range(0, len(pixels), size)]
    if deflate:
        strips = [zlib.compress(strip) for strip in strips]
    body, offsets = b"", []
    for strip in strips:
        offsets.append(8 + len(body))
        body += strip
    tags = {256: [width], 257: [height], 258: [8 * values.itemsize], 259: [8 if deflate else 1],
            262: [1], 273: offsets, 277: [1], 278: [rows_per_strip],
            279: [len(strip) for strip in strips], 339: [1]}
    tags.update({int(name[4:]): value for name, value in changed.items()})
    directory = 8 + len(body)
    data, extra = struct.pack(order + "H", len(tags)), b""
    for tag, numbers in sorted(tags.items()):
        field = struct.pack(f"{order}{len(numbers)}I", *numbers)
        if len(field) > 4:
            field, extra = struct.pack(order + "I", directory + 6 + 12 * len(tags) + len(extra)), \
                extra + field
        data += struct.pack(order + "HHI", tag, 4, len(numbers)) + field
    return (b"II*\0" if order == "<" else b"MM\0*") + struct.pack(order + "I", directory) + body + \
        data + b"\0\0\0\0" + extra


def write_scan(folder):
    """range.pgm and intensity.pgm in the folder."""
    folder = pathlib.Path(folder)
    (folder / "range.pgm").write_bytes(pgm(range_values()))
    (folder / "intensity.pgm").write_bytes(pgm(intensity_values()))
    return folder
