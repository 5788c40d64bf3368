"""Laser lines in frames of a camera."""

from __future__ import annotations

import math
import os
from collections.abc import Iterator, Mapping, Sequence
from dataclasses import dataclass
from typing import Any, Literal, NamedTuple

import numpy as np
from numpy.typing import NDArray

from planex import _core
from planex._paths import Path, _absolute, readable
from planex.functions import _choice, _threads
from planex.records import SensorTraits, require_whole

Method = Literal["fir", "cog"]
Choice = Literal["strongest", "first", "last"] | tuple[Literal["nearest"], int]
Layer = Literal["intensity", "width", "quality", "deviation"]

_METHODS = {"fir": 0, "cog": 1}
_CHOICES = {"strongest": 0, "first": 1, "last": 2}
_LAYERS = ("intensity", "width", "quality", "deviation")
_BLOCK_BYTES = 64 << 20


@dataclass(frozen=True, eq=False)
class LineImage:
    """Where the laser line is in frames, as :func:`extract_lines` gives it: a row a frame.

    ``planex.calibrate(model, lines.range, lines.sensor)`` makes points of it.

    Attributes
    ----------
    range : ndarray of uint16, frames x columns
        The row of the line times ``places_per_row``, rounded; 0 where there is none.
    sensor : SensorTraits
        Where on the sensor columns and values of the range lie.
    places_per_row : int
        Values a row of the frames: 64 for frames of up to 1024 rows.
    intensity : ndarray of uint8 or uint16, as the frames, or None
        The mean level over the line; 0 without a line, as the two others.
    width : ndarray of uint16, or None
        At half height, in 1/64 rows.
    quality : ndarray of uint8, or None
        16 to 255: how far the line outshines others in its column. Below that, why there is none:
        1 nothing, 2 cut by the border, 3 too wide, 4 too narrow, 5 no middle.
    deviation : ndarray of uint16, or None
        Standard deviation of the row by noise, in 1/1024 rows.

    Examples
    --------
    >>> frames = np.zeros((1, 40, 3), np.uint8)
    >>> frames[0, 18:21, :2] = [[80, 80], [200, 200], [80, 80]]
    >>> lines = planex.extract_lines(frames, line_width=2)
    >>> lines.range, lines.rows
    (array([[1216, 1216,    0]], dtype=uint16), array([[19., 19., nan]], dtype=float32))
    """

    range: NDArray[np.uint16]
    sensor: SensorTraits
    places_per_row: int
    intensity: NDArray[Any] | None = None
    width: NDArray[np.uint16] | None = None
    quality: NDArray[np.uint8] | None = None
    deviation: NDArray[np.uint16] | None = None

    @property
    def rows(self) -> NDArray[np.float32]:
        """The rows of the frames in which the line is, exactly as stored; NaN where there is none."""
        rows = self.range / np.float32(self.places_per_row)
        rows[self.mask] = np.nan
        return rows

    @property
    def mask(self) -> NDArray[np.bool_]:
        """True where there is no line."""
        mask: NDArray[np.bool_] = self.range == 0
        return mask


class _Settings(NamedTuple):
    """What the extension takes."""

    method: int
    line_width: float
    threshold: float
    full_scale: float
    choice: int
    nearest_row: int
    first_row: int
    end_row: int
    minimum_width: float
    maximum_width: float
    gain: float
    read_noise: float


def _chosen(choice: Any) -> tuple[int, int]:
    """The rule, and the row of "nearest"."""
    if isinstance(choice, tuple) and len(choice) == 2 and choice[0] == "nearest":
        require_whole("row of choice", choice[1], 0, 32766)
        return 3, int(choice[1])
    if isinstance(choice, str) and choice in _CHOICES:
        return _CHOICES[choice], 0
    raise ValueError(
        f"choice is {choice!r}; it must be one of {', '.join(_CHOICES)}, or ('nearest', row)"
    )


def _band(rows: tuple[int, int] | None) -> tuple[int, int]:
    if rows is None:
        return 0, 0
    first, end = rows
    require_whole("first row", first, 0, 32766)
    require_whole("end of rows", end, int(first) + 1, 32767)
    return int(first), int(end)


def _wanted(layers: Sequence[str], out: Mapping[str, Any] | None) -> dict[str, Any]:
    """What is to be made, and the arrays for it."""
    if isinstance(layers, str):
        raise TypeError(f"layers must be a sequence, such as ({layers!r},)")
    for layer in layers:
        if layer not in _LAYERS:
            raise ValueError(f"layers has {layer!r}; there are {', '.join(_LAYERS)}")
    wanted: dict[str, Any] = dict.fromkeys(("range", *layers))
    if out is None:
        return wanted
    if not isinstance(out, Mapping):
        raise TypeError(f"out must be a mapping of names to arrays, not {type(out).__name__}")
    for name, array in out.items():
        if name not in wanted:
            raise ValueError(f"out has {name!r}, which is neither 'range' nor one of layers")
        wanted[name] = array
    return wanted


def _sensor(place: tuple[float, float, float, float], columns: int, rows: int) -> SensorTraits:
    if not (all(math.isfinite(value) for value in place) and place[0] and place[2]):
        raise ValueError("scales must be finite and not 0, origins finite")
    return SensorTraits(*_core.line_region(place, columns, rows))


def extract_lines(
    frames: NDArray[Any],
    *,
    method: Method = "fir",
    line_width: float = 5,
    threshold: float | None = None,
    full_scale: float | None = None,
    choice: Choice = "strongest",
    rows: tuple[int, int] | None = None,
    minimum_width: float = 1.2,
    maximum_width: float | None = None,
    gain: float = 0.0,
    read_noise: float | None = None,
    dark: NDArray[Any] | None = None,
    transpose: bool = False,
    layers: Sequence[Layer] = ("intensity", "quality"),
    scale_x: float = 1.0,
    origin_x: float = 0.0,
    scale_z: float = 1.0,
    origin_z: float = 0.0,
    out: Mapping[str, NDArray[Any]] | None = None,
    threads: int | None = None,
) -> LineImage:
    """Finds the laser line in every column of frames of a camera.

    Parameters
    ----------
    frames : ndarray of uint8 or uint16, frames x rows x columns, or rows x columns
        Pixels of a row lie side by side; rows and frames may lie apart, as in
        ``frames[::2, 100:500]``. Levels of 16-bit frames count from 0, whatever bits are used.
    method : {"fir", "cog"}
        "fir": zero crossing of a derivative filter. "cog": centre of gravity, better under speckle.
    line_width : float
        Of the line at half height, in rows: 1 to 60. One that is twice or half as wide is found,
        too, a little less precisely.
    threshold : float, optional
        Levels by which a line outshines what is above and below it, on the mean of 1.3 line widths;
        without it 4 % of ``full_scale``.
    full_scale : float, optional
        The greatest level; 4095 for 12 bits in uint16. Without it that of the type. Lines that
        reach it are clipped, and located by their flanks.
    choice : {"strongest", "first", "last"} or ("nearest", row)
        Which line of several in a column; the first has the smallest row.
    rows : tuple of two ints, optional
        The first row that is searched, and that behind the last.
    minimum_width, maximum_width : float
        Narrower and wider lines are none, in rows; without a maximum 4 line widths.
    gain : float
        Variance of shot noise in levels^2 a level, for the deviation.
    read_noise : float, optional
        Standard deviation of a dark pixel in levels, for the deviation, which needs it.
    dark : ndarray, rows x columns, optional
        A frame without the laser, of the type of the frames: taken off each, not below 0.
    transpose : bool
        The line runs along the columns of the frames: columns and rows are exchanged, also in
        ``rows`` and ``scale_x`` and the like.
    layers : sequence of {"intensity", "width", "quality", "deviation"}
        What is made beside the range; each costs a little.
    scale_x, origin_x, scale_z, origin_z : float
        Where the frames lie on the sensor: sensor columns a column, the sensor column of the first
        one, and rows likewise. For cameras that read out a part, or bin pixels.
    out : mapping of names to ndarrays, optional
        C-contiguous arrays for "range" and layers, which receive them: frames x columns.
    threads : int, optional
        At most so many; no result depends on it. A dark frame and ``transpose`` are prepared on one.

    Returns
    -------
    LineImage
        A row a frame.

    Raises
    ------
    Error
        The library refuses a setting.
    TypeError, ValueError
        An array is of another type, shape or layout; nothing has been written.

    Examples
    --------
    >>> frames = np.zeros((2, 1024, 2560), np.uint8)
    >>> frames[:, 500:503] = np.array([90, 180, 90])[:, None]
    >>> lines = planex.extract_lines(frames, line_width=3)
    >>> lines.rows[1, 7], lines.sensor.scale_z, lines.quality.min()
    (501.0, 0.015625, 255)
    >>> model = planex.Model.from_file("camera.json")
    >>> x, z = planex.calibrate(model, lines.range, lines.sensor)
    """
    wanted = _wanted(layers, out)
    if "deviation" in wanted and read_noise is None:
        raise ValueError("the deviation needs read_noise, and gain for shot noise")
    for name, value in (("threshold", threshold), ("full_scale", full_scale)):
        if value is not None and not value > 0:
            raise ValueError(f"{name} must be above 0, not {value}")
    settings = _Settings(
        _choice("method", method, _METHODS),
        line_width,
        threshold or 0,
        full_scale or 0,
        *_chosen(choice),
        *_band(rows),
        minimum_width,
        maximum_width or 0,
        gain,
        read_noise or 0,
    )
    shape = np.shape(frames)[-2:]
    height, width = (shape if not transpose else shape[::-1]) if len(shape) == 2 else (1, 1)
    height, width = min(height, 32767), min(width, 2**31 - 1)
    sensor = _sensor((scale_x, origin_x, scale_z, origin_z), width, height)
    made = _core.extract_lines(frames, settings, dark, bool(transpose), wanted, _threads(threads))
    return LineImage(
        made["range"],
        sensor,
        _core.line_places_per_row(height),
        made.get("intensity"),
        made.get("width"),
        made.get("quality"),
        made.get("deviation"),
    )


def read_frames(
    *paths: Path, raw: str | None = None, first: int = 0, block: int | None = None
) -> Iterator[NDArray[Any]]:
    """Reads frames from files, some at a time, for :func:`extract_lines`.

    Parameters
    ----------
    *paths : str or os.PathLike
        Folders of images, in natural order (frame_2 before frame_10); images (PNG, PGM, TIFF, NPY);
        TIFF with a page a frame; PGM one behind the other; raw data.
    raw : str, optional
        What files are that have no headings: "2560x1024:mono8", or mono10, mono12, mono16, mono10p,
        mono12p.
    first : int
        Frames that are passed over.
    block : int, optional
        Frames at a time, the last block may have less; without it some 64 MB.

    Returns
    -------
    iterator of ndarrays
        Each frames x rows x columns, uint8 or uint16, an array of its own.

    Raises
    ------
    FileNotFoundError
        There is no such file.
    ImageError
        The files are no frames; or, when one is reached, it is unlike the first or cut off.

    Examples
    --------
    >>> frames = np.zeros((5, 40, 30), np.uint8)
    >>> frames.tofile("frames.raw")
    >>> [part.shape for part in planex.read_frames("frames.raw", raw="30x40:mono8", block=3)]
    [(3, 40, 30), (2, 40, 30)]
    """
    if not paths:
        raise TypeError("read_frames() takes at least one path")
    require_whole("first", first, 0, 2**62)
    if block is not None:
        require_whole("block", block, 1, 1 << 20)
    # Folders are listed by the library, and pipes opened once.
    names = [readable(p) if os.path.isfile(p) else (os.stat(p), _absolute(p))[1] for p in paths]
    reader = _core.FrameReader([os.fsencode(name) for name in names], raw or "")
    reader.skip(int(first))
    most = int(block or max(_BLOCK_BYTES // reader.frame_bytes, 1))

    def blocks() -> Iterator[NDArray[Any]]:
        while len(frames := reader.read(most)):
            yield frames

    return blocks()
