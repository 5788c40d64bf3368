"""The functions of planex on Dask arrays: scans longer than memory, on threads or on machines.

    scan = planex.dask.open_image("scan.tif")
    heights = planex.dask.height_map(model, scan, sensor, grid, mode="highest")
    planex.dask.to_zarr(heights, "heights.zarr")

Everything is lazy, and every block is whole profiles. The bits are those of :mod:`planex` on the
whole array, whatever the blocks and the scheduler. A block is computed on one thread: Dask divides
the work.
"""

from __future__ import annotations

import math
import os
from dataclasses import dataclass, replace
from typing import Any, NamedTuple

import dask.array
import numpy as np
from dask.array.core import Array
from dask.graph_manipulation import clone
from numpy.typing import DTypeLike, NDArray

import planex
from planex import _core
from planex.functions import Mode, Precision, _limit_pair, _require, _y_axis
from planex.heights import PlacedMap
from planex.model import Model
from planex.records import Grid, SensorTraits, require_whole

_dask: Any = dask  # most of it has no annotations
_da: Any = dask.array

#: Of a block that is read, unless its rows are given.
_BLOCK_BYTES = 32 << 20


class Points(NamedTuple):
    """Calibrated points, as :class:`planex.Points` in blocks."""

    x: Array
    z: Array


class AlignedPoints(NamedTuple):
    """Points in the aligned system, as :class:`planex.AlignedPoints` in blocks."""

    x: Array
    y: Array
    z: Array


@dataclass(frozen=True, eq=False)
class HeightMap(PlacedMap):
    """A height map whose cells are computed when they are asked for.

    The fields are those of :class:`planex.HeightMap`, ``z`` and ``intensity`` being Dask arrays.

    Examples
    --------
    >>> heights = planex.dask.height_map(model, scan, sensor)
    >>> heights[100:200].compute().z.shape
    (100, 2560)
    """

    z: Array
    grid: Grid
    intensity: Array | None = None
    missing: float = math.nan
    y_scale: float = 1.0
    y_origin: float = 0.0
    unit: str = "mm"
    y_unit: str | None = None
    aligned: bool = False

    @property
    def mask(self) -> Array:
        """True where no point fell into a cell."""
        missing = self.z.dtype.type(self.missing)
        empty: Array = _da.isnan(self.z) if math.isnan(missing) else self.z == missing
        return empty

    def __getitem__(self, rows: slice) -> HeightMap:
        """The map of a range of rows."""
        if not isinstance(rows, slice):
            raise TypeError(f"a height map is indexed by a slice of rows, not {rows!r}")
        first, _, step = rows.indices(self.z.shape[0])
        return replace(
            self,
            z=self.z[rows],
            intensity=None if self.intensity is None else self.intensity[rows],
            y_scale=self.y_scale * step,
            y_origin=self.y_origin + self.y_scale * first,
        )

    def heights(self) -> Array:
        """Heights in world units: z itself, or the heights of its levels, NaN for none."""
        if self.z.dtype != np.uint16:
            return self.z
        axis = dict(scale=self.grid.z_scale, origin=self.grid.z_origin)
        return _blockwise(_world_heights, np.float32, self.z, "ij", **axis)

    def compute(self, **options: Any) -> planex.HeightMap:
        """The map in memory. Options go to ``dask.compute``, ``scheduler=`` for one."""
        z, intensity = _dask.compute(self.z, self.intensity, **options)
        intensity = None if intensity is None else _in_place(intensity)
        return planex.HeightMap(**{**vars(self), "z": _in_place(z), "intensity": intensity})


@dataclass(frozen=True)
class _Call:
    """What the blocks of a call have in common: one key of its graph, which each worker gets once.

    The calibrated region, the larger part of a model by far, stays at home: nothing computes
    with it.
    """

    model: Model
    options: dict[str, Any]

    def key(self) -> Any:
        return _dask.delayed(self, name="planex-call-" + _dask.base.tokenize(self), traverse=False)


def _call(model: Model, **options: Any) -> Any:
    return _Call(model.replace(region=None), options).key()


def _meta(dtype: DTypeLike, dimensions: int = 2) -> NDArray[Any]:
    return np.empty((0,) * dimensions, dtype)


def _blockwise(function: Any, dtype: DTypeLike, *arguments: Any, **options: Any) -> Array:
    """An array whose blocks the function makes of those of the arguments."""
    name = "planex" + function.__name__
    blocks: Array = _da.blockwise(
        function, "ij", *arguments, token=name, meta=_meta(dtype), concatenate=True, **options
    )
    return blocks


def _rechunk(array: Any, chunks: Any) -> Array:
    result: Array = array.rechunk(chunks)
    return result


def _require_blocks(name: str, array: Any, function: str, dimensions: int = 2) -> Array:
    """Checks what a graph can tell, so that it need not run to be refused."""
    if isinstance(array, np.ndarray):
        raise TypeError(
            f"{name} is a numpy.ndarray, which planex.{function} takes; "
            f"here pass dask.array.from_array({name}, chunks=...)"
        )
    if not isinstance(array, Array):
        kind = type(array)
        remedy = f"{name}.data" if hasattr(array, "data") else "a dask.array.Array"
        raise TypeError(f"{name} is a {kind.__module__}.{kind.__qualname__}; pass {remedy}")
    if isinstance(array._meta, np.ma.MaskedArray):
        raise TypeError(f"{name} has masked blocks; pass dask.array.ma.filled({name}, 0)")
    if not isinstance(array._meta, np.ndarray):
        raise TypeError(f"{name} has blocks of {type(array._meta).__qualname__}, not numpy.ndarray")
    if array.ndim != dimensions:
        wanted = "two dimensions, profiles and columns" if dimensions == 2 else "one dimension"
        raise ValueError(f"{name} has {array.ndim} dimensions; it must have {wanted}")
    if any(math.isnan(size) for sizes in array.chunks for size in sizes):
        raise ValueError(
            f"{name} has blocks of unknown size; call {name}.compute_chunk_sizes() before"
        )
    if dimensions == 2 and array.numblocks[1] > 1:
        raise ValueError(
            f"{name} is cut along its columns, but a block is whole profiles; "
            f"pass {name}.rechunk({{1: -1}})"
        )
    return array


def _sample(array: Array) -> NDArray[Any]:
    """A profile of its type: what planex refuses in it, it refuses in all."""
    return np.zeros((1, *array.shape[1:]), array.dtype)


def _in_place(block: NDArray[Any]) -> NDArray[Any]:
    """Blocks from the network may begin at any address, those of a view lie apart."""
    return np.require(block, requirements=["C", "A"])


def _part(parts: tuple[NDArray[Any], ...], index: int) -> NDArray[Any]:
    return parts[index]


def _parts(whole: Array, *dtypes: DTypeLike) -> list[Array]:
    """The arrays whose blocks a task gives together."""
    return [_blockwise(_part, dtype, whole, "ij", index=i) for i, dtype in enumerate(dtypes)]


def _calibrate_block(call: _Call, range_image: NDArray[Any]) -> tuple[NDArray[np.float32], ...]:
    return planex.calibrate(call.model, _in_place(range_image), threads=1, **call.options)


def _align_block(
    call: _Call, x: NDArray[Any], z: NDArray[Any], y: NDArray[Any]
) -> tuple[NDArray[np.float32], ...]:
    arrays = _in_place(x), _in_place(z), _in_place(y)
    return planex.align(call.model, *arrays, threads=1, **call.options)


def _map_block(
    call: _Call,
    range_image: NDArray[Any],
    intensity: NDArray[Any] | None,
    limits: NDArray[np.uint16] | None,
) -> Any:
    options = call.options
    if limits is not None:
        options = {**options, "intensity_limits": tuple(limits.tolist())}
    if intensity is None:
        return planex.height_map(call.model, _in_place(range_image), threads=1, **options).z
    intensity = _in_place(intensity)
    heights = planex.height_map(
        call.model, _in_place(range_image), intensity=intensity, threads=1, **options
    )
    return heights.z, heights.intensity


def _world_heights(levels: NDArray[np.uint16], scale: float, origin: float) -> NDArray[np.float32]:
    return _core.world_heights(_in_place(levels), scale, origin, math.nan)


@dataclass(frozen=True)
class _Source:
    """An image by its path. Each task opens it for itself, on whichever machine it runs."""

    path: str
    shape: tuple[int, int]
    dtype: np.dtype[Any]

    @staticmethod
    def reader(path: str) -> Any:
        """What has a shape and a dtype, and gives its rows."""
        if not os.path.isdir(path):
            return planex.ImageFile(path)
        import zarr  # type: ignore[import]

        try:
            return zarr.open_array(path, mode="r")
        except ValueError as error:
            raise planex.ImageError(f"{path} is no Zarr array: {error}") from None

    def __getitem__(self, index: tuple[slice, ...]) -> NDArray[Any]:
        reader = self.reader(self.path)
        if reader.shape != self.shape or reader.dtype != self.dtype:
            raise planex.ImageError(
                f"{self.path} is {reader.shape} {reader.dtype} here, "
                f"but was {self.shape} {self.dtype} where the graph was made"
            )
        block: NDArray[Any] = reader[index[0]]
        return block


def _read(source: _Source, index: tuple[slice, ...]) -> NDArray[Any]:
    return source[index]


def _version(path: str) -> tuple[int, ...]:
    status = os.stat(path)
    return status.st_mtime_ns, status.st_size, status.st_ino


def open_image(path: str | os.PathLike[str], *, rows: int | None = None) -> Array:
    """A range image, or intensities, in a file, to be read block by block.

    Parameters
    ----------
    path : str or os.PathLike
        A TIFF, NPY, binary PGM or PNG, or the folder of a Zarr array. Tasks read it where they
        run, so workers of other machines need it under the same absolute path.
    rows : int, optional
        Profiles of a block. Without it there are some 32 MB in one, and whole chunks of Zarr. PNG
        can only be read from its first row on, and is refused in more than one block.

    Returns
    -------
    dask.array.Array
        Profiles x columns.

    Raises
    ------
    FileNotFoundError
        There is no such file; if only a worker lacks it, when it is computed.
    planex.ImageError
        The file is no such image, damaged, or cut off.

    Examples
    --------
    >>> numpy.save("scan.npy", numpy.arange(12, dtype=numpy.uint16).reshape(4, 3))
    >>> planex.dask.open_image("scan.npy", rows=3).chunks
    ((3, 1), (3,))
    """
    name = os.path.abspath(os.fspath(path))
    reader = _Source.reader(name)
    if len(reader.shape) != 2:
        raise ValueError(f"{name} has {len(reader.shape)} dimensions; an image has two")
    height, width = reader.shape
    source = _Source(name, (height, width), np.dtype(reader.dtype))
    if rows is None:
        step = reader.chunks[0] if hasattr(reader, "chunks") else 1
        row_bytes = max(width * source.dtype.itemsize, 1)
        rows = max(_BLOCK_BYTES // (row_bytes * step), 1) * step
    else:
        require_whole("rows", rows, 1, 2**31 - 1)
    if rows < height and not os.path.isdir(name):
        with open(name, "rb") as file:
            if file.read(4) == b"\x89PNG":
                raise ValueError(
                    f"{name} is a PNG, which is read from its first row on: pass rows={height}, "
                    "or convert it to an uncompressed TIFF, NPY or Zarr"
                )
    image: Array = _da.from_array(
        source,
        chunks=(min(rows, max(height, 1)), -1),
        name="planex-open_image-" + _dask.base.tokenize(source, _version(name), rows),
        getitem=_read,
        inline_array=True,
        meta=_meta(source.dtype),
    )
    return image


def _even(array: Array) -> Array:
    """In blocks of one height, but for the last: chunks of Zarr, which tasks write apart."""
    heights = array.chunks[0]
    even = len(set(heights[:-1])) < 2 and heights[-1] <= heights[0]
    return array if even else _rechunk(array, {0: max(heights)})


def to_zarr(
    heights: HeightMap,
    path: str | os.PathLike[str],
    *,
    overwrite: bool = False,
    compute: bool = True,
    **options: Any,
) -> Any:
    """Writes a height map as a Zarr group, block by block and side by side.

    It has the arrays ``z``, ``x`` and ``y``, and ``intensity`` where there is one.
    ``xarray.open_zarr`` reads it: cells without a height become NaN, levels heights.

    Parameters
    ----------
    heights : HeightMap
        What to write.
    path : str or os.PathLike
        A folder that all workers see.
    overwrite : bool
        Replace a group that is there.
    compute : bool
        Write it. Otherwise the result is a ``dask.delayed.Delayed`` that does when it is computed.
    **options
        Go to ``dask.compute``, ``scheduler=`` for one.

    Raises
    ------
    FileExistsError
        There is something at the path, and ``overwrite`` does not allow to replace it.

    Examples
    --------
    >>> import xarray
    >>> heights = planex.dask.height_map(model, scan, sensor, y_scale=0.2)
    >>> planex.dask.to_zarr(heights, "heights.zarr", scheduler="threads")
    >>> xarray.open_zarr("heights.zarr").z.sel(y=slice(0, 1)).shape
    (6, 2560)
    """
    import zarr

    if not isinstance(heights, HeightMap):
        raise TypeError(
            f"heights must be a planex.dask.HeightMap, not {type(heights).__qualname__}"
        )
    name = os.path.abspath(os.fspath(path))
    if os.path.lexists(name):
        if not overwrite:
            raise FileExistsError(f"{name} exists; overwrite=True replaces it")
        if not os.path.exists(os.path.join(name, ".zgroup")):
            raise FileExistsError(f"{name} is no Zarr group; remove it yourself")
    group = zarr.open_group(name, mode="w")
    grid = heights.grid
    levels = heights.z.dtype == np.uint16
    scaling = {"scale_factor": grid.z_scale, "add_offset": grid.z_origin} if levels else {}
    attributes: dict[str, Any] = {"units": heights.unit, **scaling}
    rasters: list[tuple[str, Array, dict[str, Any]]] = [("z", heights.z, attributes)]
    if heights.intensity is not None:
        rasters.append(("intensity", heights.intensity, {}))
    sources, targets = [], []
    for key, array, attributes in rasters:
        array = _even(array)
        target = group.create_dataset(
            key,
            shape=array.shape,
            chunks=tuple(max(size, 1) for size in array.chunksize),
            dtype=array.dtype,
            fill_value=heights.missing if key == "z" else None,
        )
        target.attrs.update(attributes, _ARRAY_DIMENSIONS=["y", "x"])
        sources.append(array)
        targets.append(target)
    y_unit = heights.y_unit or heights.unit
    for key, places, unit in (("x", heights.x, heights.unit), ("y", heights.y, y_unit)):
        axis = group.array(key, places, fill_value=None)
        axis.attrs.update(units=unit, _ARRAY_DIMENSIONS=[key])
    zarr.consolidate_metadata(group.store)
    work = _da.store(sources, targets, lock=False, compute=False)
    if not compute:
        return work
    work.compute(**options)
    return None


def calibrate(
    model: Model,
    range_image: Array,
    sensor: SensorTraits,
    *,
    aligned: bool = False,
    precision: Precision = "single",
) -> Points:
    """Turns a range image into world X and Z, as :func:`planex.calibrate` does.

    Parameters
    ----------
    range_image : dask.array.Array
        Profiles x columns, of uint8, uint16, uint32, uint64, float32 or float64, in blocks of
        whole profiles.

    Returns
    -------
    Points
        ``x`` and ``z``, float32, in the same blocks.

    Raises
    ------
    TypeError, ValueError, planex.Error
        As there, before anything is computed.

    Examples
    --------
    >>> x, z = planex.dask.calibrate(model, scan, sensor)
    >>> float(dask.array.nanmax(z)) < 80
    True
    """
    blocks = _require_blocks("range_image", range_image, "calibrate")
    options: dict[str, Any] = dict(sensor=sensor, aligned=aligned, precision=precision)
    planex.calibrate(model, _sample(blocks), threads=1, **options)
    whole = _blockwise(_calibrate_block, "O", _call(model, **options), None, blocks, "ij")
    return Points._make(_parts(whole, np.float32, np.float32))


def align(
    model: Model, x: Array, z: Array, y: Array, *, aligned: bool = False
) -> AlignedPoints:
    """Carries calibrated points into the aligned system, as :func:`planex.align` does.

    Parameters
    ----------
    x, z : dask.array.Array
        Profiles x columns, float32 or float64; ``x`` may be one profile that serves all.
    y : dask.array.Array
        Position along the scan, one float64 a profile.
    aligned : bool
        Whether they were calibrated with ``aligned=True``.

    Returns
    -------
    AlignedPoints
        ``x``, ``y`` and ``z``, float32.

    Raises
    ------
    TypeError, ValueError, planex.Error
        As there, before anything is computed.

    Examples
    --------
    >>> x, z = planex.dask.calibrate(model, scan, sensor)
    >>> y = 0.2 * dask.array.arange(len(z), chunks=z.chunks[0], dtype=float)
    >>> planex.dask.align(model, x, z, y).y.dtype
    dtype('float32')
    """
    x = _require_blocks("x", x, "align")
    z = _require_blocks("z", z, "align")
    y = _require_blocks("y", y, "align", 1)
    if x.shape not in (z.shape, (1, z.shape[1])) or y.shape != z.shape[:1]:
        raise ValueError(
            f"x, z and y have the shapes {x.shape}, {z.shape} and {y.shape}; "
            "they must be of one size, with one y a profile"
        )
    planex.align(model, _sample(x), _sample(z), _sample(y), aligned=aligned, threads=1)
    if len(x) == len(z):
        x = _rechunk(x, z.chunks)
    y = _rechunk(y, z.chunks[:1])
    call = _call(model, aligned=aligned)
    whole = _blockwise(_align_block, "O", call, None, x, "ij", z, "ij", y, "i")
    return AlignedPoints._make(_parts(whole, np.float32, np.float32, np.float32))


def height_map(
    model: Model,
    range_image: Array,
    sensor: SensorTraits,
    grid: Grid | None = None,
    *,
    aligned: bool = False,
    precision: Precision = "single",
    mode: Mode = "mean",
    intensity: Array | None = None,
    intensity_limits: tuple[int, int] | Array | None = None,
    missing: float = float("nan"),
    dtype: DTypeLike = np.float32,
    y_scale: float | None = None,
    y_origin: float = 0.0,
) -> HeightMap:
    """A height map from a range image, as :func:`planex.height_map` makes it.

    One task makes a block of heights from a block of ranges. Without ``intensity_limits``,
    intensities of 16 bits are read twice: for the limits of the whole scan, and for the map.

    Parameters
    ----------
    range_image, intensity : dask.array.Array
        Profiles x columns, in blocks of whole profiles.
    intensity_limits : pair of int, or dask.array.Array, optional
        Such as :func:`intensity_limits` gives.

    Returns
    -------
    HeightMap
        Its arrays have the blocks of the range image, and the columns of the grid.

    Raises
    ------
    TypeError, ValueError, planex.Error
        As there, before anything is computed.

    Examples
    --------
    >>> grid = planex.bounds(model, sensor, scan.shape[1]).grid(pixel_size=0.1)
    >>> heights = planex.dask.height_map(model, scan, sensor, grid, mode="highest")
    >>> heights.compute(scheduler="threads")
    ... # doctest: +ELLIPSIS
    HeightMap(z=array(...
    """
    blocks = _require_blocks("range_image", range_image, "height_map")
    _require("sensor", sensor, SensorTraits)
    if grid is None and not aligned:
        grid = planex.bounds(model, sensor, blocks.shape[1]).grid()
    options: dict[str, Any] = dict(
        sensor=sensor,
        grid=grid,
        aligned=aligned,
        precision=precision,
        mode=mode,
        missing=missing,
        dtype=np.dtype(dtype),
    )
    limits = None
    if isinstance(intensity_limits, Array):
        if intensity_limits.shape != (2,) or intensity_limits.dtype.kind not in "iu":
            raise ValueError("intensity_limits must be two integers")
        limits = _rechunk(intensity_limits, -1)
    else:
        options["intensity_limits"] = _limit_pair(intensity_limits)
    sample = None
    if intensity is not None:
        intensity = _require_blocks("intensity", intensity, "height_map")
        if intensity.shape != blocks.shape:
            raise ValueError("intensity must have a value for each point")
        intensity = _rechunk(intensity, blocks.chunks)
        sample = _sample(intensity)
        if intensity.dtype == np.uint16 and intensity_limits is None and intensity.size:
            limits = _limits(intensity)
    planex.height_map(model, _sample(blocks), intensity=sample, threads=1, **options)
    assert grid is not None
    call = _call(model, **options)
    whole = _blockwise(
        _map_block,
        dtype if intensity is None else "O",
        *(call, None, blocks, "ij"),
        *(intensity, None if intensity is None else "ij"),
        *(limits, None if limits is None else "k"),
        adjust_chunks={"j": grid.columns},
    )
    z, *rest = [whole] if intensity is None else _parts(whole, dtype, np.uint8)
    intensities = rest[0] if rest else None
    missing_value = 0 if np.dtype(dtype) == np.uint16 else missing
    y_axis = _y_axis(y_scale, y_origin)
    return HeightMap(z, grid, intensities, missing_value, **y_axis, aligned=bool(aligned))


def _limits_of_block(block: NDArray[np.uint16]) -> NDArray[np.uint16]:
    if not block.size:
        return np.array([[65535, 0]], np.uint16)
    return np.array([planex.intensity_limits(_in_place(block))], np.uint16)


def _limits_of_pairs(
    pairs: NDArray[np.uint16], axis: Any = None, keepdims: bool = False
) -> NDArray[np.uint16]:
    limits = np.array([pairs[:, 0].min(), pairs[:, 1].max()], np.uint16)
    return limits[np.newaxis] if keepdims else limits


def _limits(intensity: Array) -> Array:
    # Blocks that were shared with a map would wait in memory until the last of them is read.
    apart = clone(intensity, seed="planex-limits")
    pairs = _blockwise(_limits_of_block, "u2", apart, "ij", adjust_chunks={"i": 1, "j": 2})
    both = _limits_of_pairs, _limits_of_pairs
    limits: Array = _da.reduction(pairs, *both, axis=0, dtype="u2", meta=_meta("u2", 1))
    return limits


def intensity_limits(intensity: Array) -> Array:
    """The smallest and the largest of 16-bit intensities: two numbers, as :func:`height_map` takes.

    Parameters
    ----------
    intensity : dask.array.Array
        Profiles x columns, uint16, in blocks of whole profiles.

    Returns
    -------
    dask.array.Array
        Two numbers.

    Raises
    ------
    TypeError, ValueError
        As :func:`planex.intensity_limits`, and where there are no intensities.

    Examples
    --------
    >>> least, most = planex.dask.intensity_limits(scan).compute()
    >>> least < most
    True
    """
    blocks = _require_blocks("intensity", intensity, "intensity_limits")
    if not blocks.size:
        raise ValueError("intensity is empty and has no limits")
    planex.intensity_limits(_sample(blocks))
    return _limits(blocks)
