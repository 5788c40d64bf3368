"""What the functions of planex raise, beside the errors that Python has itself."""

from __future__ import annotations

from typing import Any, Tuple

Record = Tuple[str, int, str]


class Error(ValueError):
    """The library refused; the text says why.

    ``records`` is all that it said meanwhile: (logger, level of :mod:`logging`, text).
    """

    records: tuple[Record, ...]

    def __init__(self, text: str, records: tuple[Record, ...] = ()) -> None:
        super().__init__(text)
        self.records = tuple(records)

    def __reduce__(self) -> tuple[Any, ...]:
        return type(self), (str(self), self.records)


class ImageError(Error):
    """A file, or its sidecar, is not what can be read here, or is damaged or cut off."""


class DocumentError(Error):
    """A text is no model document, or a model cannot be written as one."""
