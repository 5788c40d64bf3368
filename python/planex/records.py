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

    Attributes
    ----------
    width, height : int
        Of the region, in sensor pixels, 0 to 65535.
    scale_x, origin_x, scale_z, origin_z : float
        In pixels. A negative scale says that the region extends towards smaller coordinates.

    Examples
    --------
    >>> planex.SensorTraits(640, 1024, origin_x=960.0).scale_z  # sixteenths of a row
    0.0625
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
        """The whole sensor of a model, in pixels.

        Examples
        --------
        >>> planex.SensorTraits.full(planex.Model.from_file("camera.json")).width
        2560
        """
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
    """How wide a point is spread over columns: c (a z + b), in the length unit.

    Attributes
    ----------
    a, b : float
        Give the distance of neighbouring points at height z.
    c : float
        A factor on it; 0 puts each point into one cell.

    Examples
    --------
    >>> planex.Splat(0.0, 0.1)
    Splat(a=0.0, b=0.1, c=1.0)
    """

    a: float
    b: float
    c: float = 1.0


@dataclass(frozen=True)
class Grid:
    """The cells of a height map, and what columns and levels stand for.

        x = x_scale * column + x_origin,   z = z_scale * level + z_origin

    Attributes
    ----------
    columns : int
        1 to 2^20.
    x_scale, x_origin, z_scale, z_origin : float
        In the length unit; scales are not negative.
    splat : Splat
        How wide points are spread.

    Examples
    --------
    >>> planex.Grid(100, 0.5, -25.0, 0.001, 0.0, planex.Splat(0, 0)).columns
    100
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

        Parameters
        ----------
        x, z : tuple of two floats
            In the length unit.
        columns : int
            2 to 2^20.
        splat : Splat
            How wide points are spread.
        levels : int
            3 to 65536.

        Examples
        --------
        >>> grid = planex.Grid.from_limits((0, 10), (0, 1), 11, splat=planex.Splat(0, 0))
        >>> grid.x_scale, grid.x_origin
        (1.0, 0.0)
        """
        require_whole("columns", columns, 2, _MOST_COLUMNS)
        require_whole("levels", levels, 3, LEVELS)
        x_scale, x_origin = _core.sample_axis(*x, columns)
        z_scale, z_origin = _core.level_axis(*z, levels)
        return cls(columns, x_scale, x_origin, z_scale, z_origin, splat)


@dataclass(frozen=True)
class Bounds:
    """The part of the laser plane that a sensor region sees, and how wide its points lie apart.

    Attributes
    ----------
    x, z : tuple of two floats
        Least and most, in the length unit.
    splat : Splat
        Distance of neighbouring points.
    image_columns : int
        Of the images that were asked for.

    Examples
    --------
    >>> bounds = planex.Bounds((0.0, 9.0), (0.0, 5.0), planex.Splat(0.0, 0.1), 10)
    >>> bounds.grid().x_scale
    1.0
    """

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

        Parameters
        ----------
        columns : int, optional
            Without it, and without ``pixel_size``, those of the image.
        pixel_size : float, optional
            The distance of columns, in the length unit.
        x, z : tuple of two floats, optional
            Limits, in the length unit.
        c : float
            The factor on the width of points.

        Returns
        -------
        Grid

        Raises
        ------
        TypeError
            ``columns`` and ``pixel_size`` are both given.
        ValueError
            There is no extent, or too many columns.

        Examples
        --------
        >>> bounds = planex.Bounds((0.0, 9.0), (0.0, 5.0), planex.Splat(0.0, 0.1), 10)
        >>> bounds.grid(pixel_size=0.5, x=(2.0, 4.0)).columns
        4
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
    """A rectangle in the plane.

    Attributes
    ----------
    center : tuple of two floats
        In the units of its system: pixels, or the length unit.
    width, height : float
        Of the sides.
    rotation : float
        About the centre, in radians.

    Examples
    --------
    >>> planex.Rectangle((0.0, 0.0), 4.0, 2.0).rotation
    0.0
    """

    center: tuple[float, float]
    width: float
    height: float
    rotation: float = 0.0
