"""Range images and intensities in files."""

from __future__ import annotations

import errno
import os
import stat
from typing import Any, Union

import numpy as np
from numpy.typing import NDArray

from planex import _core

Path = Union[str, "os.PathLike[str]"]


def _require_file(path: Path) -> str:
    """Raises what Python's own open() does for a file that cannot be read, but waits for no pipe.

    The result is an absolute path, so that "-" is the name of a file, too.
    """
    descriptor = os.open(path, os.O_RDONLY | os.O_NONBLOCK | os.O_CLOEXEC)
    try:
        if stat.S_ISDIR(os.fstat(descriptor).st_mode):
            raise IsADirectoryError(errno.EISDIR, os.strerror(errno.EISDIR), os.fspath(path))
    finally:
        os.close(descriptor)
    return os.path.abspath(os.fspath(path))


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

    Threads may read one file; they take turns, and those that read side by side open it for
    themselves. Pickling takes the path along, and opens the file anew.

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
        self._path = _require_file(path)
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
