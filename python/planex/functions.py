"""Plain functions on NumPy arrays. Arrays are used where they lie, and never copied."""

from __future__ import annotations

import contextlib
import operator
import threading
from collections.abc import Iterator
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

_limits = threading.local()


class Points(NamedTuple):
    """Calibrated points: float32, NaN where nothing was measured."""

    x: NDArray[np.float32]
    z: NDArray[np.float32]


class AlignedPoints(NamedTuple):
    """Points in the aligned system: float32, NaN where nothing was measured."""

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

    Of blocks within each other, and an argument ``threads``, the smallest counts. No result
    depends on it.
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
    """Turns a range image into world X and Z.

    :param range_image: profiles x columns, of uint8, uint16, uint32, uint64, float32 or float64.
        0 in an integer image, and what is not above 0 in a floating one, is no measurement.
        Profiles may lie apart, as in ``scan[::4, 100:900]``.
    :param sensor: where on the sensor it lies
    :param aligned: map on into the aligned plane, where the model is aligned
    :param precision: of the arithmetic; results are float32
    :param out: two float32 arrays of its shape, C-contiguous, that receive X and Z
    :param threads: at most so many
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
    """Carries calibrated points into the aligned system.

    :param x, z: profiles x columns, float32 or float64; x may be one profile that serves all
    :param y: position along the scan, one float64 a profile
    :param aligned: whether they were calibrated with ``aligned=True``
    :param out: three float32 arrays of the shape of z
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
    intensity: NDArray[Any] | None = None,
    intensity_limits: tuple[int, int] | None = None,
    missing: float = float("nan"),
    dtype: DTypeLike = np.float32,
    out: NDArray[Any] | None = None,
    out_intensity: NDArray[np.uint8] | None = None,
    y_scale: float | None = None,
    y_origin: float = 0.0,
    threads: int | None = None,
) -> HeightMap:
    """Resamples calibrated points onto the columns of a height map, profile by profile.

    :param x, z: profiles x columns, float32 or float64; NaN is no point
    :param mode: what a cell that several points cover gets; ``"darkest"`` and ``"brightest"``
        choose by intensity
    :param intensity: of each point, uint8 or uint16; those of 16 bits are spread over 8 bits
        between ``intensity_limits``, without them those of the whole array
    :param missing: height of a cell without a point
    :param dtype: float32 for heights in world units, uint16 for levels of the grid, 0 for none
    :param out, out_intensity: arrays that receive them, profiles x grid.columns
    :param y_scale, y_origin: what profiles stand for, kept in the result. Without a scale rows are
        counted
    """
    _require("grid", grid, Grid)
    levels = _is_levels(dtype)
    heights, intensities = _core.rectify(
        x,
        z,
        grid,
        _choice("mode", mode, _MODES),
        intensity,
        _limit_pair(intensity_limits),
        missing,
        levels,
        out,
        out_intensity,
        _threads(threads),
    )
    missing_value = 0 if levels else missing
    y_axis = _y_axis(y_scale, y_origin)
    return HeightMap(heights, grid, intensities, missing_value, **y_axis)


def height_map(
    model: Model,
    range_image: NDArray[Any],
    sensor: SensorTraits,
    grid: Grid | None = None,
    *,
    aligned: bool = False,
    precision: Precision = "single",
    mode: Mode = "mean",
    intensity: NDArray[Any] | None = None,
    intensity_limits: tuple[int, int] | None = None,
    missing: float = float("nan"),
    dtype: DTypeLike = np.float32,
    out: NDArray[Any] | None = None,
    out_intensity: NDArray[np.uint8] | None = None,
    y_scale: float | None = None,
    y_origin: float = 0.0,
    threads: int | None = None,
) -> HeightMap:
    """A height map from a range image: :func:`calibrate`, then :func:`rectify`, the same bits.

    It goes by blocks of profiles, so that X and Z never exist as a whole. Without a grid it is
    ``bounds(model, sensor, columns).grid()``; that is in calibrated coordinates, so ``aligned``
    needs a grid. What else there is stands at the two functions.
    """
    _require("sensor", sensor, SensorTraits)
    native = _native(model)
    if grid is None:
        if aligned:
            raise TypeError("aligned=True needs a grid, in aligned coordinates")
        grid = bounds(model, sensor, np.shape(range_image)[-1]).grid()
    _require("grid", grid, Grid)
    levels = _is_levels(dtype)
    heights, intensities = _core.height_map(
        native,
        range_image,
        sensor,
        bool(aligned),
        _choice("precision", precision, _PRECISIONS),
        grid,
        _choice("mode", mode, _MODES),
        intensity,
        _limit_pair(intensity_limits),
        missing,
        levels,
        out,
        out_intensity,
        _threads(threads),
    )
    missing_value = 0 if levels else missing
    y_axis = _y_axis(y_scale, y_origin)
    return HeightMap(heights, grid, intensities, missing_value, **y_axis, aligned=bool(aligned))


def bounds(model: Model, sensor: SensorTraits, columns: int) -> Bounds:
    """What images of so many columns, of a sensor region, can show of the laser plane."""
    _require("sensor", sensor, SensorTraits)
    x_min, x_max, z_min, z_max, a, b = _core.bounds(_native(model), sensor, columns)
    return Bounds((x_min, x_max), (z_min, z_max), Splat(a, b), columns)


def intensity_limits(intensity: NDArray[np.uint16]) -> tuple[int, int]:
    """The smallest and the largest of 16-bit intensities, as :func:`rectify` takes them."""
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

    :param points: (..., 2), sensor column and row or X and Z; or (..., 3), with the profile index
        or Y in the middle. float32 or float64, C-contiguous.
    :param y_offset, y_scale: Y = y_scale * profile + y_offset
    :param out: receives them; ``points`` itself is allowed
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
    """The outline of a rectangle in another system, 4 (supersampling + 1) points."""
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
    """Points on the surface of the box with two opposite corners, in another system."""
    way = _choice("source", source, _SYSTEMS), _choice("target", target, _SYSTEMS)
    return _core.map_box(_native(model), low, high, *way, y_offset, y_scale, supersampling)
