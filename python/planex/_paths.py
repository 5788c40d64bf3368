"""Names of files: what Python's own open() refuses, before the library sees them."""

from __future__ import annotations

import errno
import os
import stat
from typing import Union

Path = Union[str, "os.PathLike[str]"]


def _absolute(path: Path) -> str:
    """The file by a name that means the same elsewhere; "-" is a name like others."""
    return os.path.join(os.getcwd(), os.fsdecode(path))


def _failure(code: int, path: Path) -> OSError:
    return OSError(code, os.strerror(code), os.fspath(path))


def readable(path: Path) -> str:
    """The absolute path of a file that can be opened. No pipe is waited for."""
    descriptor = os.open(path, os.O_RDONLY | os.O_NONBLOCK | os.O_CLOEXEC)
    try:
        if stat.S_ISDIR(os.fstat(descriptor).st_mode):
            raise _failure(errno.EISDIR, path)
    finally:
        os.close(descriptor)
    return _absolute(path)


def writable(path: Path, overwrite: bool) -> str:
    """The absolute path of a file that can be made, or replaced."""
    name = os.fspath(path)
    if os.path.lexists(name):
        if not overwrite:
            raise FileExistsError(f"{name} exists; overwrite=True replaces it")
        if os.path.isdir(name) and not os.path.islink(name):
            raise _failure(errno.EISDIR, path)
    folder = os.path.dirname(name) or "."
    if not stat.S_ISDIR(os.stat(folder).st_mode):
        raise _failure(errno.ENOTDIR, path)
    if not os.access(folder, os.W_OK | os.X_OK):
        raise _failure(errno.EACCES, path)
    return _absolute(path)
