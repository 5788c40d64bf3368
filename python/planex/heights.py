"""Height maps."""

from __future__ import annotations

import math
import os
from collections.abc import Mapping
from dataclasses import dataclass
from typing import Any, Literal

import numpy as np
from numpy.typing import NDArray

from planex import _core
from planex._html import table
from planex._paths import Path, readable, writable
from planex.records import Grid, Splat

_COMPRESSIONS = {"deflate": 1, "zstd": 2}

_masked: Any = np.ma.MaskedArray  # NumPy has no types for it


class PlacedMap:
    """What height maps in memory and those in blocks have in common: where their cells lie."""

    z: Any
    grid: Grid
    y_scale: float
    y_origin: float
    unit: str

    def heights(self) -> Any:
        """Heights in world units."""
        raise NotImplementedError

    @property
    def x(self) -> NDArray[np.float64]:
        """Of the columns, in world units."""
        return self.grid.x_origin + self.grid.x_scale * np.arange(self.z.shape[1])

    @property
    def y(self) -> NDArray[np.float64]:
        """Of the rows."""
        return self.y_origin + self.y_scale * np.arange(self.z.shape[0])

    def to_xarray(self) -> Any:
        """An xarray.DataArray over y and x that shares the heights, lazy where they are.

        Returns
        -------
        xarray.DataArray
            float32, named z, NaN or ``missing`` where there is none; the unit stands in ``attrs``.

        Raises
        ------
        ImportError
            There is no xarray.
        """
        import xarray

        return xarray.DataArray(
            self.heights(),
            dims=("y", "x"),
            coords={"y": self.y, "x": self.x},
            name="z",
            attrs={"units": self.unit},
        )


@dataclass(frozen=True, eq=False)
class HeightMap(PlacedMap):
    """Heights over a regular grid: a row a profile, a column a place along the laser line.

    Attributes
    ----------
    z : ndarray, rows x columns
        float32 heights in the length unit, or uint16 levels of the grid.
    grid : Grid
        What columns and levels stand for.
    intensity : ndarray of uint8, rows x columns, a mapping of names to such, or None
        Where the points had intensities.
    missing : float
        What a cell without a point holds; 0 in levels.
    y_scale, y_origin : float
        Y = y_scale * row + y_origin.
    unit : str
        Of the lengths.
    y_unit : str, optional
        Of y where it is another one: "rows" where nobody said how far they are apart.
    aligned : bool
        Whether the coordinates are aligned ones, and not calibrated.

    Examples
    --------
    >>> grid = planex.Grid(3, 0.5, -0.5, 0.01, 0.0, planex.Splat(0, 0))
    >>> heights = planex.HeightMap(np.float32([[1.0, np.nan, 2.0]]), grid, y_scale=0.2)
    >>> heights.x
    array([-0.5,  0. ,  0.5])
    >>> heights.mask
    array([[False,  True, False]])
    >>> float(heights.masked().mean())
    1.5
    >>> levels = planex.HeightMap(np.uint16([[100, 0, 200]]), grid, missing=0)
    >>> levels.heights()
    array([[ 1., nan,  2.]], dtype=float32)
    """

    z: NDArray[Any]
    grid: Grid
    intensity: NDArray[np.uint8] | Mapping[str, NDArray[np.uint8]] | None = None
    missing: float = math.nan
    y_scale: float = 1.0
    y_origin: float = 0.0
    unit: str = "mm"
    y_unit: str | None = None
    aligned: bool = False

    @classmethod
    def from_file(cls, path: Path) -> HeightMap:
        """Reads a height map that :meth:`save` or ``planex rectify`` wrote.

        Parameters
        ----------
        path : str or os.PathLike
            The raster, with MAP.json beside it, which says what its numbers mean. Of several
            layers the first is read; intensities are a file of their own for :func:`read_image`.

        Returns
        -------
        HeightMap
            uint16 levels or float32 heights, as they are stored. The grid of a map whose file does
            not say how wide points were spread has a splat of no width.

        Raises
        ------
        FileNotFoundError
            There is no such raster.
        ImageError
            It has no MAP.json, or one of them is damaged.
        """
        z, (x_scale, x_origin, z_scale, z_origin), splat, fields = _core.read_map(os.fsencode(readable(path)))
        if z.dtype == np.uint8:
            z = z.astype(np.uint16)
        spread = Splat(0.0, 0.0) if splat is None else Splat(*splat)
        grid = Grid(z.shape[1], x_scale, x_origin, z_scale, z_origin, spread)
        return cls(z, grid, **fields)

    def save(
        self,
        path: Path,
        *,
        overwrite: bool = False,
        compress: Literal["deflate", "zstd"] | None = None,
    ) -> None:
        """Writes the map, and PATH.json that says what its numbers mean.

        They are the files of ``planex rectify``, for the other commands, too; intensities go to
        NAME_intensity, several to NAME_intensity1 and on. All files appear when they are complete.

        Parameters
        ----------
        path : str or os.PathLike
            ``.tif`` or ``.npy``, or for levels ``.png``.
        overwrite : bool
            Replace files that are there.
        compress : {"deflate", "zstd"}, optional
            Of a ``.tif``. A ``.png`` always is compressed.

        Raises
        ------
        FileExistsError
            One of the files exists.
        Error
            A file cannot be written.

        Examples
        --------
        >>> import numpy as np, planex
        >>> grid = planex.Grid(3, 0.5, -1.0, 0.01, 0.0, planex.Splat(0.0, 0.5))
        >>> heights = planex.HeightMap(np.ones((2, 3), np.float32), grid, y_scale=0.1)
        >>> heights.save("heights.tif", compress="deflate", overwrite=True)
        >>> again = planex.HeightMap.from_file("heights.tif")
        >>> again.grid == grid, again.y.tolist()
        (True, [0.0, 0.1])
        """
        from planex.functions import _choice, _threads

        scheme = 0 if compress is None else _choice("compress", compress, _COMPRESSIONS)
        for unit in (self.unit, self.y_unit or ""):
            if not unit.isprintable():
                raise ValueError(f"unit must be printable, not {unit!r}")
        name = writable(path, overwrite)
        dot = name.rfind(".")
        count = 0 if self.intensity is None else 1
        if isinstance(self.intensity, Mapping):
            count = len(self.intensity)
        images = [
            f"{name[:dot]}_intensity{i + 1 if count > 1 else ''}{name[dot:]}" for i in range(count)
        ]
        for image in (name, *images):
            for file in (image, image + ".json"):
                writable(file, overwrite)
        threads = _threads(None) or len(os.sched_getaffinity(0))
        paths = [os.fsencode(image) for image in images]
        _core.write_map(os.fsencode(name), paths, self, scheme, threads, bool(overwrite))

    @property
    def mask(self) -> NDArray[np.bool_]:
        """True where no point fell into a cell."""
        empty = np.isnan(self.z) if math.isnan(self.missing) else self.z == np.float32(self.missing)
        return np.asarray(empty)

    def masked(self) -> Any:
        """The cells with their mask, a numpy.ma.MaskedArray that shares z."""
        return _masked(self.z, self.mask)

    def heights(self) -> NDArray[np.float32]:
        """Heights in world units: z itself, or the heights of its levels, NaN for none."""
        if self.z.dtype != np.uint16:
            return self.z
        return _core.world_heights(self.z, self.grid.z_scale, self.grid.z_origin, math.nan)

    def plot(self, ax: Any = None, **options: Any) -> Any:
        """Draws the heights with Matplotlib, cells in their places.

        Parameters
        ----------
        ax : matplotlib.axes.Axes, optional
            Without it the current ones.
        **options
            Go to ``Axes.imshow``.

        Returns
        -------
        matplotlib.axes.Axes
        """
        if ax is None:
            import matplotlib.pyplot  # type: ignore[import]

            ax = matplotlib.pyplot.gca()
        half_x, half_y = self.grid.x_scale / 2, self.y_scale / 2
        first_x, first_y = self.grid.x_origin - half_x, self.y_origin - half_y
        rows, columns = self.z.shape
        extent = (
            first_x,
            first_x + columns * self.grid.x_scale,
            first_y + rows * self.y_scale,
            first_y,
        )
        options = {"extent": extent, "aspect": "auto", **options}
        image = ax.imshow(_masked(self.heights(), self.mask), **options)
        ax.set_xlabel(f"X ({self.unit})")
        ax.set_ylabel(f"Y ({self.y_unit or self.unit})")
        ax.figure.colorbar(image, ax=ax, label=f"Z ({self.unit})")
        return ax

    def _repr_html_(self) -> str:
        (rows, columns), unit, grid = self.z.shape, self.unit, self.grid
        heights = self.heights()[~self.mask]
        span = "none" if heights.size == 0 else f"{heights.min():g} to {heights.max():g} {unit}"
        last_x = grid.x_origin + (columns - 1) * grid.x_scale
        last_y = self.y_origin + max(rows - 1, 0) * self.y_scale
        return table(
            "planex.HeightMap",
            {
                "shape": f"{rows} x {columns} {self.z.dtype}",
                "x": f"{grid.x_origin:g} to {last_x:g} {unit}, step {grid.x_scale:g}",
                "y": f"{self.y_origin:g} to {last_y:g}, step {self.y_scale:g}",
                "z": span,
                "missing": f"{self.mask.mean() if self.z.size else 0:.1%}",
                "intensity": "no" if self.intensity is None else "yes",
            },
        )
