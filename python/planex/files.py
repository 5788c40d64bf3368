"""Files: range images and intensities, their sidecars, and points."""

from __future__ import annotations

import math
import os
from typing import Any, NamedTuple

import numpy as np
from numpy.typing import NDArray

from planex import _core
from planex._paths import Path, readable, writable
from planex.errors import ImageError
from planex.model import Model
from planex.records import SensorTraits, require_whole


class ImageFile:
    """A range image, or intensities, in a file whose rows are read when they are asked for.

    PNG, TIFF, binary PGM and NPY are told apart by their first bytes. They hold uint8 or uint16;
    TIFF and NPY uint32 and float32, too. Slices are rows, as in an array:

    >>> import numpy as np, planex
    >>> np.save("scan.npy", np.arange(12, dtype=np.uint16).reshape(4, 3))
    >>> file = planex.ImageFile("scan.npy")
    >>> file.shape, file.dtype
    ((4, 3), dtype('uint16'))
    >>> file[1:3]
    array([[3, 4, 5],
           [6, 7, 8]], dtype=uint16)

    Threads may read one file side by side. Pickling takes the path along, and opens the file
    anew.

    Parameters
    ----------
    path : str or os.PathLike
        The file. There is no name for standard input.

    Raises
    ------
    FileNotFoundError, PermissionError, IsADirectoryError
        As Python's own ``open``.
    ImageError
        The file is no such image, damaged, or cut off.
    """

    def __init__(self, path: Path) -> None:
        self._path = readable(path)
        self._native = _core.ImageFile(os.fsencode(self._path))
        self._dtype = np.dtype(self._native.type_name)

    @property
    def path(self) -> str:
        """The absolute path of the file."""
        return self._path

    @property
    def shape(self) -> tuple[int, int]:
        """Rows (profiles) and columns."""
        return self._native.shape

    @property
    def dtype(self) -> np.dtype[Any]:
        """uint8, uint16, uint32 or float32, in native byte order."""
        return self._dtype

    def read(self, rows: slice = slice(None), out: NDArray[Any] | None = None) -> NDArray[Any]:
        """Reads rows.

        Parameters
        ----------
        rows : slice
            Which, as of an array, side by side.
        out : numpy.ndarray, optional
            Receives them: of their shape and type, C-contiguous.

        Returns
        -------
        numpy.ndarray
            ``out``, or an array of its own, rows x columns.

        Raises
        ------
        ImageError
            The file turns out damaged or cut off.
        """
        if not isinstance(rows, slice):
            raise TypeError(f"rows must be a slice, not {type(rows).__name__}")
        first, end, step = rows.indices(self.shape[0])
        if step != 1:
            raise TypeError(f"rows must be a slice of step 1, not {step}")
        return self._native.read(first, max(end - first, 0), out)

    def __getitem__(self, rows: slice) -> NDArray[Any]:
        return self.read(rows)

    def __reduce__(self) -> tuple[Any, ...]:
        return type(self), (self._path,)

    def __repr__(self) -> str:
        rows, columns = self.shape
        return f"<planex.ImageFile {self._path!r} {rows} x {columns} {self._dtype}>"


def read_image(path: Path, rows: slice = slice(None)) -> NDArray[Any]:
    """Reads a range image, or intensities, from a file; :class:`ImageFile` says of which kinds.

    Parameters
    ----------
    path : str or os.PathLike
        The file.
    rows : slice
        Which of its rows.

    Returns
    -------
    numpy.ndarray
        rows x columns of uint8, uint16, uint32 or float32, as stored.

    Examples
    --------
    >>> import numpy as np, planex
    >>> np.save("scan.npy", np.arange(12, dtype=np.uint16).reshape(4, 3))
    >>> planex.read_image("scan.npy", slice(-1, None))
    array([[ 9, 10, 11]], dtype=uint16)
    """
    return ImageFile(path).read(rows)


class Sidecar(NamedTuple):
    """What the JSON file beside a range image says of it, as :func:`read_sidecar` gives it.

    Examples
    --------
    >>> import planex
    >>> with open("scan.png.json", "w") as file:
    ...     count = file.write('{"rows": {"scaleY": 0.5, "originY": -1.0}}')
    >>> planex.read_sidecar("scan.png.json").y(3).tolist()
    [-1.0, -0.5, 0.0]
    """

    #: where on the sensor it lies; None where the file says nothing of it
    sensor: SensorTraits | None
    #: distance of neighbouring rows, in the unit of the model; None where nobody said
    y_scale: float | None
    #: Y of row 0
    y_origin: float
    #: the file with the Y of every row, where there is one
    positions: str | None
    #: the file itself
    path: str

    def y(self, rows: int) -> NDArray[np.float64]:
        """The Y of each row of an image of so many, as :func:`planex.align` takes it.

        Rows are counted where the file does not say how far they are apart.

        Raises
        ------
        ImageError
            The file of positions has another count, or lines that are no number.
        """
        require_whole("rows", rows, 0, 2**31 - 1)
        return _core.row_positions(os.fsencode(self.path), rows)


def read_sidecar(path: Path, model: Model | None = None) -> Sidecar:
    """Reads the JSON file beside a range image, IMAGE.json, that says how it was taken.

    Parameters
    ----------
    path : str or os.PathLike
        The JSON file, or the image that it stands beside. That of a height map or of points says
        how their scan was taken.
    model : Model, optional
        Gives the sizes of a region that the file leaves out: up to the edge of the sensor.

    Raises
    ------
    ImageError
        The file is no sidecar; the text names the member. Or it leaves out the sizes, and there
        is no model.

    Examples
    --------
    >>> import planex
    >>> text = '{"sensor": {"scaleX": 1, "originX": 0, "scaleZ": 0.0625, "originZ": 160, ' + (
    ...     '"width": 2560, "height": 704}, "rows": {"scaleY": 0.1}}')
    >>> with open("scan.png.json", "w") as file:
    ...     count = file.write(text)
    >>> sidecar = planex.read_sidecar("scan.png")
    >>> sidecar.sensor.origin_z, sidecar.y_scale, sidecar.y(3).tolist()
    (160.0, 0.1, [0.0, 0.1, 0.2])
    """
    if model is not None and not isinstance(model, Model):
        raise TypeError(f"model must be a planex.Model, not {type(model).__name__}")
    beside = os.fsdecode(path)
    name = readable(beside if beside.endswith(".json") else beside + ".json")
    native = None if model is None else model._native
    numbers, y_scale, y_origin, positions = _core.read_sidecar(os.fsencode(name), native)
    sensor = None
    if numbers is not None:
        width, height, scale_x, origin_x, scale_z, origin_z = numbers
        if width is None or height is None:
            raise ImageError(f"{name}: says nothing of the sizes of its region; pass a model")
        sensor = SensorTraits(int(width), int(height), scale_x, origin_x, scale_z, origin_z)
    return Sidecar(sensor, y_scale, y_origin or 0.0, os.fsdecode(positions) or None, name)


def write_points(
    path: Path,
    x: NDArray[np.float32],
    z: NDArray[np.float32],
    y: NDArray[Any] | None = None,
    *,
    intensity: NDArray[Any] | None = None,
    aligned: bool = False,
    drop_missing: bool = False,
    mesh: float | None = None,
    unit: str = "mm",
    overwrite: bool = False,
) -> None:
    """Writes calibrated or aligned points. The file appears when it is complete, or not at all.

    Parameters
    ----------
    path : str or os.PathLike
        Its ending is the format: ``.ply`` and ``.pcd`` (binary), ``.las``, ``.csv``, ``.xyz`` and
        ``.txt``; ``.tif`` (float32 layers) and ``.npy`` (rows x columns x 2 or 3) hold X and Z,
        and Y where points are aligned.
    x, z : numpy.ndarray
        As :func:`calibrate` gives them: rows x columns of float32, NaN where nothing was measured.
    y : numpy.ndarray, optional
        Along the scan: rows of float64, or as :func:`align` gives it, rows x columns of float32.
        Without it rows are counted.
    intensity : numpy.ndarray, optional
        rows x columns of uint8 or uint16; not for a grid, ``.tif`` or ``.npy``.
    aligned : bool
        Whether the points are in aligned coordinates, which need a y.
    drop_missing : bool
        Leave out points without measurement; ``.las`` and text always do, a grid cannot.
    mesh : float, optional
        Join neighbours to triangles whose edges are no longer, in ``unit``; for a ``.ply``.
    unit : str
        Of all coordinates.
    overwrite : bool
        Replace a file that is there.

    Raises
    ------
    FileExistsError
        There is such a file.
    Error
        The file cannot be written; nothing is left of it.

    Examples
    --------
    >>> import numpy as np, planex
    >>> x, z = np.zeros((2, 3, 4), np.float32)
    >>> planex.write_points("points.csv", x, z, np.array([0.0, 0.1, 0.2]), overwrite=True)
    >>> len(open("points.csv").readlines())  # a heading, and 3 x 4 points
    13
    """
    if mesh is not None and not (mesh > 0 and math.isfinite(mesh)):
        raise ValueError(f"mesh must be above 0, the longest edge of a triangle, not {mesh}")
    if aligned and y is None:
        raise ValueError("aligned points need y, as planex.align gives it")
    if not unit.isprintable():
        raise ValueError(f"unit must be printable, not {unit!r}")
    name = writable(path, overwrite)
    _core.write_points(
        os.fsencode(name),
        x,
        z,
        y,
        intensity,
        bool(aligned),
        bool(drop_missing),
        mesh,
        unit,
        bool(overwrite),
    )
