"""Model documents for the tests of the command.

Usage: documents.py FILE CHANGE... prints a document with values replaced, data.Skew.y=0, or removed,
data.Pose=."""
import array
import base64
import json
import math
import pathlib
import sys

EXAMPLE = pathlib.Path(__file__).resolve().parents[2] / "examples/models/simulated_camera.json"


def example():
    return json.loads(EXAMPLE.read_text())


def image(kind, values, width, origin=(0, 0), pixel=(1, 1)):
    code = {"int32": "i", "float32": "f"}[kind]
    return {"class": "Image", "data": {
        "PixelSize": {"x": pixel[0], "y": pixel[1], "z": 1},
        "Origin": {"x": origin[0], "y": origin[1], "z": 0},
        "HandleZeroPixels": "Default",
        "Data": {"ImageType": kind, "Width": width, "Height": len(values) // width,
                 "Pixels": {"numOfElems": len(values), "elemSz": 4, "endian": "little",
                            "elemTypes": kind,
                            "data": base64.b64encode(array.array(code, values)).decode()}}}}


def with_region(columns=16, rows=10):
    """A region of X -40 to 40 and Z -20 to 30, with points in all cells but the first."""
    document = example()
    cells = [(c, r) for r in range(rows) for c in range(columns)]
    grid = {"width": columns, "pixel": (80 / columns, 50 / rows),
            "origin": (-40 + 40 / columns, -20 + 25 / rows)}
    count = [0] + [3] * (len(cells) - 1)
    wave = [0.002 * math.sin(0.7 * c + 0.5 * r) for c, r in cells]
    document["data"]["CalibratedRegion"] = {
        "PointCount": image("int32", count, **grid),
        "AverageResidualX": image("float32", wave, **grid),
        "AverageResidualZ": image("float32", [2 * w for w in wave], **grid),
        "MaximumResidualX": image("float32", [abs(w) + 0.001 for w in wave], **grid),
        "MaximumResidualZ": image("float32", [0.0625] * len(cells), **grid)}
    return document


def change(document, text):
    path, value = text.split("=", 1)
    *owners, last = [int(key) if key.isdigit() else key for key in path.split(".")]
    for key in owners:
        document = document[key]
    if value:
        document[last] = json.loads(value)
    else:
        del document[last]


if __name__ == "__main__":
    edited = json.loads(pathlib.Path(sys.argv[1]).read_text())
    for argument in sys.argv[2:]:
        change(edited, argument)
    print(json.dumps(edited), end="")
