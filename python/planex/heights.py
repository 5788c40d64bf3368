"""Height maps."""

from __future__ import annotations

import math
from dataclasses import dataclass
from typing import Any

import numpy as np
from numpy.typing import NDArray

from planex import _core
from planex.records import Grid

_masked: Any = np.ma.MaskedArray  # NumPy has no types for it


@dataclass(frozen=True, eq=False)
class HeightMap:
    """Heights over a regular grid: a row a profile, a column a place along the laser line."""

    #: rows x columns: float32 heights in world units, or uint16 levels of the grid
    z: NDArray[Any]
    grid: Grid
    #: uint8, as large as z, where the points had intensities
    intensity: NDArray[np.uint8] | None = None
    #: what a cell without a point holds; 0 in levels
    missing: float = math.nan
    y_scale: float = 1.0
    y_origin: float = 0.0
    unit: str = "mm"

    @property
    def x(self) -> NDArray[np.float64]:
        """Of the columns, in world units."""
        return self.grid.x_origin + self.grid.x_scale * np.arange(self.z.shape[1])

    @property
    def y(self) -> NDArray[np.float64]:
        """Of the rows."""
        return self.y_origin + self.y_scale * np.arange(self.z.shape[0])

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

    def to_xarray(self) -> Any:
        """An xarray.DataArray over y and x that shares the heights."""
        import xarray

        return xarray.DataArray(
            self.heights(),
            dims=("y", "x"),
            coords={"y": self.y, "x": self.x},
            name="z",
            attrs={"units": self.unit},
        )

    def plot(self, ax: Any = None, **options: Any) -> Any:
        """Draws the heights with Matplotlib, cells in their places; the Axes.

        Options go to ``Axes.imshow``.
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
        ax.set_ylabel("Y")
        ax.figure.colorbar(image, ax=ax, label=f"Z ({self.unit})")
        return ax
