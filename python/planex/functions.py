"""Plain functions on NumPy arrays. Arrays are used where they lie, and never copied."""

from __future__ import annotations

import contextlib
import operator
import threading
from collections.abc import Iterator, Mapping
from dataclasses import dataclass
from typing import Any, Literal, NamedTuple

import numpy as np
from numpy.typing import DTypeLike, NDArray

from planex import _core
from planex.heights import HeightMap
from planex.model import Model
from planex.records import Bounds, Grid, Rectangle, SensorTraits, Splat, require_whole

System = Literal["pixel", "calibrated", "aligned"]
Precision = Literal["single", "double"]
Mode = Literal["mean", "lowest", "highest", "darkest", "brightest"]

_SYSTEMS = {"pixel": 0, "calibrated": 1, "aligned": 2}
_PRECISIONS = {"single": False, "double": True}
_MODES = {"mean": 0, "lowest": 1, "highest": 2, "darkest": 3, "brightest": 4}

#: Intensities of each point: one array, or several by their names.
Intensities = NDArray[Any] | Mapping[str, NDArray[Any]]
Limits = tuple[int, int] | Mapping[str, tuple[int, int]]

_limits = threading.local()


class Points(NamedTuple):
    """Calibrated points, as :func:`calibrate` gives them.

    Attributes
    ----------
    x, z : ndarray of float32, profiles x columns
        In the laser plane, in the model's length unit; NaN where nothing was measured.

    Examples
    --------
    >>> x, z = planex.Points(np.float32([[1.0]]), np.float32([[np.nan]]))
    >>> np.isnan(z)
    array([[ True]])
    """

    x: NDArray[np.float32]
    z: NDArray[np.float32]


class AlignedPoints(NamedTuple):
    """Points in the aligned system, as :func:`align` gives them.

    Attributes
    ----------
    x, y, z : ndarray of float32, profiles x columns
        In the model's length unit; NaN where nothing was measured.

    Examples
    --------
    >>> x, y, z = planex.AlignedPoints(*np.zeros((3, 1, 1), np.float32))
    """

    x: NDArray[np.float32]
    y: NDArray[np.float32]
    z: NDArray[np.float32]


def _choice(name: str, value: Any, choices: dict[str, Any]) -> Any:
    try:
        return choices[value]
    except (KeyError, TypeError):
        raise ValueError(f"{name} is {value!r}; it must be one of {', '.join(choices)}") from None


def _native(model: Model) -> _core.Model:
    _require("model", model, Model)
    return model._native


def _require(name: str, value: object, kind: type) -> None:
    if not isinstance(value, kind):
        raise TypeError(f"{name} must be a planex.{kind.__name__}, not {type(value).__name__}")


def _threads(threads: int | None) -> int:
    """The limit of a call, 0 for none: the smallest of the argument's and those of the blocks."""
    outer: int = getattr(_limits, "threads", 0)
    if threads is None:
        return outer
    own = min(operator.index(threads), 2**31 - 1)
    if own < 1:
        raise ValueError(f"threads must be 1 or more, not {own}")
    return min(own, outer) if outer else own


@contextlib.contextmanager
def thread_limit(threads: int) -> Iterator[None]:
    """Calls of this Python thread within the block use at most so many threads.

    No result depends on it. It changes nothing outside this thread, nor settings of OpenMP.

    Parameters
    ----------
    threads : int
        1 or more. Of blocks within each other, and an argument ``threads``, the smallest counts.

    Raises
    ------
    ValueError
        ``threads`` is below 1.

    Examples
    --------
    >>> model = planex.Model.from_file("camera.json")
    >>> scan = np.full((100, 2560), 8000, np.uint16)
    >>> with planex.thread_limit(1):
    ...     points = planex.calibrate(model, scan, planex.SensorTraits.full(model))
    """
    outer = getattr(_limits, "threads", 0)
    _limits.threads = _threads(threads)
    try:
        yield
    finally:
        _limits.threads = outer


def calibrate(
    model: Model,
    range_image: NDArray[Any],
    sensor: SensorTraits,
    *,
    aligned: bool = False,
    precision: Precision = "single",
    out: tuple[NDArray[np.float32], NDArray[np.float32]] | None = None,
    threads: int | None = None,
) -> Points:
    """Turns a range image into X and Z of the laser plane.

    Parameters
    ----------
    model : Model
        Calibrated.
    range_image : ndarray, profiles x columns
        Places of the laser on the sensor, of uint8, uint16, uint32, uint64, float32 or float64.
        0 in an integer image, and what is not above 0 in a floating one, is no measurement.
        Profiles may lie apart, as in ``scan[::4, 100:900]``.
    sensor : SensorTraits
        What columns and values are on the sensor, in pixels.
    aligned : bool
        Go on through skew and pose into the aligned plane, where the model is aligned.
    precision : {"single", "double"}
        Of the arithmetic; results are float32.
    out : tuple of two ndarrays, optional
        float32 of the shape of ``range_image``, C-contiguous, that receive X and Z. They share no
        memory with it.
    threads : int, optional
        At most so many; no result depends on it.

    Returns
    -------
    Points
        ``out``, or two arrays of the shape of ``range_image``: calibrated coordinates (aligned ones
        with ``aligned=True``), in the model's length unit. NaN where nothing was measured.

    Raises
    ------
    Error
        The library refuses the model, or the region lies outside its sensor.
    TypeError, ValueError
        An array is of another type, shape or layout; nothing has been written.

    Examples
    --------
    >>> model = planex.Model.from_file("camera.json")
    >>> scan = np.full((3, 2560), 8000, np.uint16)  # row 500 of the sensor, in sixteenths
    >>> scan[1, 7] = 0
    >>> x, z = planex.calibrate(model, scan, planex.SensorTraits.full(model))
    >>> x.shape, z.dtype, np.argwhere(np.isnan(z))
    ((3, 2560), dtype('float32'), array([[1, 7]]))
    >>> print(f"{x[0, 1280]:.2f} {z[0, 1280]:.2f}")
    0.05 10.33
    """
    _require("sensor", sensor, SensorTraits)
    x, z = (None, None) if out is None else out
    return Points._make(
        _core.calibrate(
            _native(model),
            range_image,
            sensor,
            bool(aligned),
            _choice("precision", precision, _PRECISIONS),
            x,
            z,
            _threads(threads),
        )
    )


def align(
    model: Model,
    x: NDArray[Any],
    z: NDArray[Any],
    y: NDArray[np.float64],
    *,
    aligned: bool = False,
    out: tuple[NDArray[np.float32], NDArray[np.float32], NDArray[np.float32]] | None = None,
    threads: int | None = None,
) -> AlignedPoints:
    """Carries calibrated points into the aligned system, through skew and pose of the model.

    Parameters
    ----------
    model : Model
        Aligned.
    x, z : ndarray of float32 or float64, profiles x columns
        Calibrated coordinates; NaN is no point. x may be one profile, 1 x columns, that serves all.
    y : ndarray of float64, one a profile
        Position along the scan, in the length unit.
    aligned : bool
        Whether x and z were calibrated with ``aligned=True``.
    out : tuple of three ndarrays, optional
        float32 of the shape of z, C-contiguous, that receive X, Y and Z.
    threads : int, optional
        At most so many.

    Returns
    -------
    AlignedPoints
        ``out``, or three arrays of the shape of z.

    Raises
    ------
    Error
        The library refuses the model.
    TypeError, ValueError
        An array is of another type, shape or layout; nothing has been written.

    Examples
    --------
    >>> model = planex.Model.from_file("camera.json")
    >>> scan = np.full((3, 2560), 8000, np.uint16)
    >>> x, z = planex.calibrate(model, scan, planex.SensorTraits.full(model))
    >>> aligned = planex.align(model, x, z, np.array([0.0, 0.2, 0.4]))
    >>> aligned.y.shape, aligned.y.dtype
    ((3, 2560), dtype('float32'))
    """
    outputs = (None, None, None) if out is None else out
    return AlignedPoints._make(
        _core.align(_native(model), x, z, y, bool(aligned), *outputs, _threads(threads))
    )


def _limit_pair(limits: tuple[int, int] | None) -> tuple[int, int] | None:
    if limits is None:
        return None
    least, most = limits
    for value in (least, most):
        require_whole("intensity limit", value, 0, 65535)
    return int(least), int(most)


@dataclass(frozen=True)
class _Channel:
    """Intensities that are rectified: what the extension takes."""

    name: str
    array: Any
    limits: tuple[int, int] | None
    out: Any


def _channels(intensity: Any, limits: Any, out: Any) -> tuple[_Channel, ...]:
    if not isinstance(intensity, Mapping):
        if intensity is None:
            if out is not None:
                raise ValueError("out_intensity needs an intensity")
            return ()
        return (_Channel("intensity", intensity, _limit_pair(limits), out),)
    for name, given in (("intensity_limits", limits), ("out_intensity", out)):
        if given is None:
            continue
        if not isinstance(given, Mapping):
            raise TypeError(f"{name} must be a mapping, as intensity is")
        unknown = [key for key in given if key not in intensity]
        if unknown:
            raise ValueError(f"{name} has {unknown[0]!r}, which intensity has not")
    return tuple(
        _Channel(
            f"intensity[{key!r}]", array, _limit_pair((limits or {}).get(key)), (out or {}).get(key)
        )
        for key, array in intensity.items()
    )


def _target(
    out: Any, into: Any, dtype: DTypeLike, channels: tuple[_Channel, ...]
) -> tuple[bool, bool, Any]:
    """Whether levels are wanted, whether they are merged, and the array for them."""
    if into is None:
        return _is_levels(dtype), False, out
    if out is not None:
        raise ValueError("into is the result; it leaves no place for out")
    if len(channels) > 1:
        raise ValueError("into takes one intensity")
    if channels and channels[0].out is None:
        raise ValueError("into needs out_intensity, the intensities of the map")
    return True, True, into


def _named(intensity: Any, rectified: list[NDArray[np.uint8]]) -> Any:
    """Results in the form of the intensities that were given."""
    if isinstance(intensity, Mapping):
        return dict(zip(intensity, rectified))
    return rectified[0] if rectified else None


def _is_levels(dtype: DTypeLike) -> bool:
    kind = np.dtype(dtype)
    if kind not in (np.dtype(np.float32), np.dtype(np.uint16)):
        raise TypeError(f"dtype must be float32 (heights) or uint16 (levels), not {kind}")
    return kind == np.uint16


def _y_axis(scale: float | None, origin: float) -> dict[str, Any]:
    """The fields of a map whose rows lie so; they are counted where nobody said how."""
    return {
        "y_scale": 1.0 if scale is None else scale,
        "y_origin": origin,
        "y_unit": "rows" if scale is None else None,
    }


def rectify(
    x: NDArray[Any],
    z: NDArray[Any],
    grid: Grid,
    *,
    mode: Mode = "mean",
    intensity: Intensities | None = None,
    intensity_limits: Limits | None = None,
    missing: float = float("nan"),
    dtype: DTypeLike = np.float32,
    out: NDArray[Any] | None = None,
    out_intensity: NDArray[np.uint8] | Mapping[str, NDArray[np.uint8]] | None = None,
    into: NDArray[np.uint16] | None = None,
    y_scale: float | None = None,
    y_origin: float = 0.0,
    threads: int | None = None,
) -> HeightMap:
    """Resamples points onto the columns of a height map, profile by profile.

    Parameters
    ----------
    x, z : ndarray of float32 or float64, profiles x columns
        Points of one system; NaN is no point.
    grid : Grid
        The cells, in the same coordinates, and how wide a point is spread.
    mode : {"mean", "lowest", "highest", "darkest", "brightest"}
        What a cell that several points cover gets; the last two choose by intensity.
    intensity : ndarray of uint8 or uint16, profiles x columns, or a mapping of names to such, optional
        Of each point. 16 bits are spread over 8 bits between ``intensity_limits``. Of several the
        last one decides about heights in the modes that choose by intensity.
    intensity_limits : tuple of two ints, or a mapping, optional
        Without them those of the whole array, as :func:`intensity_limits` finds them.
    missing : float
        Height of a cell without a point.
    dtype : {float32, uint16}
        Heights in the length unit, or levels of the grid, 0 for none.
    out, out_intensity : ndarray, optional
        Profiles x ``grid.columns``, of ``dtype`` and of uint8, C-contiguous, that receive heights
        and intensities. Several intensities go into a mapping.
    into : ndarray of uint16, optional
        Levels of another map over the same grid, into which the points are merged, in place: its
        cells take part as points do. With an intensity, ``out_intensity`` has those of that map.
    y_scale, y_origin : float
        Y = y_scale * profile + y_origin; kept in the result. Without a scale rows are
        counted.
    threads : int, optional
        At most so many.

    Returns
    -------
    HeightMap
        Profiles x ``grid.columns``, in the system of the points.

    Raises
    ------
    Error
        The library refuses the grid, or a mode that needs intensities has none.
    TypeError, ValueError
        An array is of another type, shape or layout; nothing has been written.

    Examples
    --------
    >>> grid = planex.Grid(4, 1.0, 0.0, 0.001, -0.001, planex.Splat(0, 0))
    >>> x = np.array([[0.1, 2.2, 1.9]])
    >>> z = np.array([[5.0, 6.0, 8.0]])
    >>> planex.rectify(x, z, grid, mode="highest", missing=-1.0).z
    array([[ 5., -1.,  8., -1.]], dtype=float32)
    """
    _require("grid", grid, Grid)
    channels = _channels(intensity, intensity_limits, out_intensity)
    levels, merges, target = _target(out, into, dtype, channels)
    heights, intensities = _core.rectify(
        x,
        z,
        grid,
        _choice("mode", mode, _MODES),
        channels,
        missing,
        levels,
        merges,
        target,
        _threads(threads),
    )
    missing_value = 0 if levels else missing
    y_axis = _y_axis(y_scale, y_origin)
    return HeightMap(heights, grid, _named(intensity, intensities), missing_value, **y_axis)


def height_map(
    model: Model,
    range_image: NDArray[Any],
    sensor: SensorTraits,
    grid: Grid | None = None,
    *,
    aligned: bool = False,
    precision: Precision = "single",
    mode: Mode = "mean",
    intensity: Intensities | None = None,
    intensity_limits: Limits | None = None,
    missing: float = float("nan"),
    dtype: DTypeLike = np.float32,
    out: NDArray[Any] | None = None,
    out_intensity: NDArray[np.uint8] | Mapping[str, NDArray[np.uint8]] | None = None,
    into: NDArray[np.uint16] | None = None,
    y_scale: float | None = None,
    y_origin: float = 0.0,
    threads: int | None = None,
) -> HeightMap:
    """A height map from a range image: :func:`calibrate`, then :func:`rectify`, the same bits.

    It goes by blocks of profiles that stay in the cache, so that X and Z never exist as a whole.
    Parameters that are not listed are those of the two functions.

    Parameters
    ----------
    grid : Grid, optional
        In calibrated coordinates, aligned ones with ``aligned=True``. Without it,
        ``bounds(model, sensor, columns).grid()``, which is calibrated: ``aligned`` needs a grid.

    Returns
    -------
    HeightMap
        Profiles x ``grid.columns``.

    Raises
    ------
    Error, TypeError, ValueError
        As the two functions; nothing has been written.

    Examples
    --------
    >>> model = planex.Model.from_file("camera.json")
    >>> scan = np.full((100, 2560), 8000, np.uint16)
    >>> heights = planex.height_map(model, scan, planex.SensorTraits.full(model), y_scale=0.2)
    >>> heights.z.shape, heights.unit
    ((100, 2560), 'mm')
    """
    _require("sensor", sensor, SensorTraits)
    native = _native(model)
    if grid is None:
        if aligned:
            raise TypeError("aligned=True needs a grid, in aligned coordinates")
        grid = bounds(model, sensor, np.shape(range_image)[-1]).grid()
    _require("grid", grid, Grid)
    channels = _channels(intensity, intensity_limits, out_intensity)
    levels, merges, target = _target(out, into, dtype, channels)
    heights, intensities = _core.height_map(
        native,
        range_image,
        sensor,
        bool(aligned),
        _choice("precision", precision, _PRECISIONS),
        grid,
        _choice("mode", mode, _MODES),
        channels,
        missing,
        levels,
        merges,
        target,
        _threads(threads),
    )
    missing_value = 0 if levels else missing
    y_axis = _y_axis(y_scale, y_origin)
    named = _named(intensity, intensities)
    return HeightMap(heights, grid, named, missing_value, **y_axis, aligned=bool(aligned))


def bounds(model: Model, sensor: SensorTraits, columns: int) -> Bounds:
    """What images of so many columns, of a sensor region, can show of the laser plane.

    Parameters
    ----------
    model : Model
        Calibrated.
    sensor : SensorTraits
        The region, in pixels.
    columns : int
        Of the range images.

    Returns
    -------
    Bounds
        Ranges of X and Z in calibrated coordinates, and how wide points lie apart.

    Raises
    ------
    Error
        The library refuses model or region.

    Examples
    --------
    >>> model = planex.Model.from_file("camera.json")
    >>> bounds = planex.bounds(model, planex.SensorTraits.full(model), 2560)
    >>> grid = bounds.grid(pixel_size=0.1)
    >>> grid.x_scale, grid.x_origin == bounds.x[0]
    (0.1, True)
    """
    _require("sensor", sensor, SensorTraits)
    x_min, x_max, z_min, z_max, a, b = _core.bounds(_native(model), sensor, columns)
    return Bounds((x_min, x_max), (z_min, z_max), Splat(a, b), columns)


class Difference(NamedTuple):
    """How two models differ over their sensor, as :func:`diff` finds it.

    Attributes
    ----------
    points : int
        Pixels that both models map.
    unmatched : int
        Pixels that only one does.
    rms, largest : float
        Of the distances between the two places of a pixel, in the length unit.
    pixel : tuple of two floats
        Column and row where they are farthest apart.
    a, b : tuple of two floats
        X and Z of its places.

    Examples
    --------
    >>> planex.Difference(1, 0, 0.5, 0.5, (7, 9), (0.0, 1.0), (0.0, 1.5)).largest
    0.5
    """

    points: int
    unmatched: int
    rms: float
    largest: float
    pixel: tuple[float, float]
    a: tuple[float, float]
    b: tuple[float, float]


def diff(a: Model, b: Model, *, aligned: bool = False, step: int | None = None) -> Difference:
    """How far two models differ over the sensor, and where.

    Parameters
    ----------
    a, b : Model
        Of one sensor size.
    aligned : bool
        Compare behind the poses.
    step : int, optional
        Every so many columns and rows are compared; without it all, of large sensors 4 million.

    Returns
    -------
    Difference

    Raises
    ------
    Error
        The sensors differ, or a model maps nothing.

    Examples
    --------
    >>> model = planex.Model.from_file("camera.json")
    >>> moved = model.replace(lens_center=model.lens_center + [0.0, 1.0])
    >>> round(planex.diff(model, moved).rms, 3)  # a row of the sensor, in mm
    0.091
    """
    if step is not None:
        require_whole("step", step, 1, 65535)
    found = _core.compare_models(_native(a), _native(b), bool(aligned), int(step or 0))
    return Difference(*found)


def intensity_limits(intensity: NDArray[np.uint16]) -> tuple[int, int]:
    """The smallest and the largest of 16-bit intensities, as :func:`rectify` takes them.

    Parameters
    ----------
    intensity : ndarray of uint16, profiles x columns

    Returns
    -------
    tuple of two ints

    Raises
    ------
    ValueError
        The array is empty.

    Examples
    --------
    >>> planex.intensity_limits(np.array([[30, 700]], np.uint16))
    (30, 700)
    """
    return _core.intensity_limits(intensity)


def map_points(
    model: Model,
    points: NDArray[Any],
    source: System,
    target: System,
    *,
    y_offset: float = 0.0,
    y_scale: float = 1.0,
    out: NDArray[Any] | None = None,
) -> NDArray[Any]:
    """Maps points from one coordinate system to another.

    Parameters
    ----------
    model : Model
        Calibrated; for "aligned", aligned.
    points : ndarray of float32 or float64, (..., 2) or (..., 3), C-contiguous
        Sensor column and row in pixels, or X and Z in the length unit; of three, the profile index
        ("pixel") or Y stands in the middle.
    source, target : {"pixel", "calibrated", "aligned"}
        The systems.
    y_offset, y_scale : float
        Y = y_scale * profile + y_offset.
    out : ndarray, optional
        Of the type and shape of ``points``, which itself is allowed.

    Returns
    -------
    ndarray
        ``out``, or an array of the type and shape of ``points``. NaN where a point has no image.

    Raises
    ------
    Error
        The library refuses the model.
    TypeError, ValueError
        An array is of another type, shape or layout; nothing has been written.

    Examples
    --------
    >>> model = planex.Model.from_file("camera.json")
    >>> corners = np.array([[0.0, 0.0], [2559.0, 1023.0]])
    >>> plane = planex.map_points(model, corners, "pixel", "calibrated")
    >>> back = planex.map_points(model, plane, "calibrated", "pixel")
    >>> bool(abs(back - corners).max() < 1e-3)
    True
    """
    way = _choice("source", source, _SYSTEMS), _choice("target", target, _SYSTEMS)
    return _core.map_points(_native(model), points, *way, y_offset, y_scale, out)


def map_rectangle(
    model: Model,
    rectangle: Rectangle,
    source: System,
    target: System,
    *,
    supersampling: int = 20,
) -> NDArray[np.float64]:
    """The outline of a rectangle in another system.

    Parameters
    ----------
    model : Model
    rectangle : Rectangle
        In ``source``.
    source, target : {"pixel", "calibrated", "aligned"}
        The systems.
    supersampling : int
        Points on each side between two corners.

    Returns
    -------
    ndarray of float64, (4 * (supersampling + 1), 2)
        In order along the outline.

    Raises
    ------
    Error
        The library refuses the model.

    Examples
    --------
    >>> model = planex.Model.from_file("camera.json")
    >>> field = planex.Rectangle((1280, 512), 2560, 1024)
    >>> planex.map_rectangle(model, field, "pixel", "calibrated", supersampling=0).shape
    (4, 2)
    """
    _require("rectangle", rectangle, Rectangle)
    way = _choice("source", source, _SYSTEMS), _choice("target", target, _SYSTEMS)
    return _core.map_rectangle(
        _native(model),
        *rectangle.center,
        rectangle.width,
        rectangle.height,
        rectangle.rotation,
        *way,
        supersampling,
    )


def map_box(
    model: Model,
    low: tuple[float, float, float],
    high: tuple[float, float, float],
    source: System,
    target: System,
    *,
    y_offset: float = 0.0,
    y_scale: float = 1.0,
    supersampling: int = 20,
) -> NDArray[np.float64]:
    """Points on the surface of a box in another system.

    Parameters
    ----------
    model : Model
    low, high : tuple of three floats
        Two opposite corners of the box in ``source``: X, Y and Z, or column, profile and row.
    source, target : {"pixel", "calibrated", "aligned"}
        The systems.
    y_offset, y_scale : float
        Y = y_scale * profile + y_offset.
    supersampling : int
        Points on each edge between two corners.

    Returns
    -------
    ndarray of float64, (points, 3)

    Raises
    ------
    Error
        The library refuses the model.

    Examples
    --------
    >>> model = planex.Model.from_file("camera.json")
    >>> box = planex.map_box(model, (0, 0, 0), (1, 2, 3), "calibrated", "aligned", supersampling=0)
    >>> box.shape
    (8, 3)
    """
    way = _choice("source", source, _SYSTEMS), _choice("target", target, _SYSTEMS)
    return _core.map_box(_native(model), low, high, *way, y_offset, y_scale, supersampling)
