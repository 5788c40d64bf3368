"""Small records of numbers; like models they are values."""

from __future__ import annotations

import math
import operator
import os
from dataclasses import dataclass
from typing import TYPE_CHECKING, SupportsIndex

from planex import _core
from planex._paths import Path
from planex.errors import ImageError

if TYPE_CHECKING:
    from planex.model import Model

#: Values of a 16-bit height map, 0 (nothing measured) included.
LEVELS = 65536

_MOST_COLUMNS = 1 << 20


def require_whole(name: str, value: object, least: int, most: int) -> None:
    """Integers only, also NumPy's: 2.5 columns, or True, are a slip."""
    if isinstance(value, bool) or not isinstance(value, SupportsIndex):
        raise TypeError(f"{name} must be an int, not {type(value).__name__}")
    value = operator.index(value)
    if not least <= value <= most:
        raise ValueError(f"{name} must be from {least} to {most}, not {value}")


@dataclass(frozen=True)
class SensorTraits:
    """Where on the sensor the columns and values of a range image lie.

    With column and value as they are stored, and in pixels of the sensor,

        u = scale_x * column + origin_x,   v = scale_z * value + origin_z

    ``width`` and ``height`` are those of the region in sensor pixels. A negative scale says that
    the region extends towards smaller coordinates.
    """

    width: int
    height: int
    scale_x: float = 1.0
    origin_x: float = 0.0
    scale_z: float = 1.0 / 16
    origin_z: float = 0.0

    def __post_init__(self) -> None:
        require_whole("width", self.width, 0, 65535)
        require_whole("height", self.height, 0, 65535)

    @classmethod
    def full(cls, model: Model, *, scale_z: float = 1.0 / 16) -> SensorTraits:
        """The whole sensor of a model."""
        width, height = model.sensor_size
        return cls(width, height, scale_z=scale_z)

    @classmethod
    def from_sidecar(cls, path: Path, model: Model | None = None) -> SensorTraits:
        """What the JSON file beside a range image says of the sensor.

        Parameters
        ----------
        path : str or os.PathLike
            The JSON file; :func:`planex.read_sidecar` tells of rows, too.
        model : Model, optional
            Gives the sizes of a region that the file leaves out: up to the edge of the sensor.

        Raises
        ------
        ImageError
            The file is no sidecar, or says too little of the sensor.

        Examples
        --------
        >>> import planex
        >>> with open("scan.png.json", "w") as file:
        ...     count = file.write(
        ...         '{"sensor": {"scaleX": 2, "originX": 9, "scaleZ": 0.5, "originZ": 0}}'
        ...     )
        >>> planex.SensorTraits.from_sidecar("scan.png.json", planex.Model(sensor_size=(99, 77)))
        SensorTraits(width=90, height=77, scale_x=2.0, origin_x=9.0, scale_z=0.5, origin_z=0.0)
        """
        from planex.files import read_sidecar

        sensor = read_sidecar(path, model).sensor
        if sensor is None:
            raise ImageError(f"{os.fspath(path)}: says nothing of the sensor")
        return sensor


@dataclass(frozen=True)
class Splat:
    """How wide a point is spread over columns: c (a z + b), in world units.

    ``a`` and ``b`` give the distance of neighbouring points at height z; ``c`` is a factor on it.
    """

    a: float
    b: float
    c: float = 1.0


@dataclass(frozen=True)
class Grid:
    """The cells of a height map, and what columns and levels stand for.

        x = x_scale * column + x_origin,   z = z_scale * level + z_origin
    """

    columns: int
    x_scale: float
    x_origin: float
    z_scale: float
    z_origin: float
    splat: Splat

    def __post_init__(self) -> None:
        require_whole("columns", self.columns, 1, _MOST_COLUMNS)

    @classmethod
    def from_limits(
        cls,
        x: tuple[float, float],
        z: tuple[float, float],
        columns: int,
        *,
        splat: Splat,
        levels: int = LEVELS,
    ) -> Grid:
        """The grid whose first and last columns stand for the two x.

        Level 1 and the last one stand for the two z; 0 is kept for cells without a height.
        """
        require_whole("columns", columns, 2, _MOST_COLUMNS)
        require_whole("levels", levels, 3, LEVELS)
        x_scale, x_origin = _core.sample_axis(*x, columns)
        z_scale, z_origin = _core.level_axis(*z, levels)
        return cls(columns, x_scale, x_origin, z_scale, z_origin, splat)


@dataclass(frozen=True)
class Bounds:
    """The part of the laser plane that a sensor region sees, and how wide its points lie apart."""

    x: tuple[float, float]
    z: tuple[float, float]
    splat: Splat
    image_columns: int

    def grid(
        self,
        columns: int | None = None,
        *,
        pixel_size: float | None = None,
        x: tuple[float, float] | None = None,
        z: tuple[float, float] | None = None,
        c: float = 1.0,
    ) -> Grid:
        """A grid over these bounds, or over the narrower ``x`` and ``z``.

        Without ``columns`` or ``pixel_size`` it has the columns of the image. ``pixel_size`` is
        the distance of columns in world units. ``c`` is the factor on the width of points.
        """
        if columns is not None and pixel_size is not None:
            raise TypeError("grid() takes columns or pixel_size, not both")
        x = self.x if x is None else x
        z = self.z if z is None else z
        if not all(a < b and math.isfinite(b - a) for a, b in (x, z)):
            raise ValueError(f"no extent to lay a grid over: x {x}, z {z}")
        splat = Splat(self.splat.a, self.splat.b, c)
        if pixel_size is None:
            columns = max(self.image_columns, 2) if columns is None else columns
            return Grid.from_limits(x, z, columns, splat=splat)
        if not pixel_size > 0 or (x[1] - x[0]) / pixel_size > _MOST_COLUMNS:
            raise ValueError(
                f"pixel_size must be above 0 and give at most {_MOST_COLUMNS} columns"
            )
        z_scale, z_origin = _core.level_axis(*z, LEVELS)
        columns = math.ceil((x[1] - x[0]) / pixel_size)
        return Grid(columns, pixel_size, x[0], z_scale, z_origin, splat)


@dataclass(frozen=True)
class Rectangle:
    """A rectangle in the plane: centre, side lengths, and rotation about the centre in radians."""

    center: tuple[float, float]
    width: float
    height: float
    rotation: float = 0.0
