"""The model of a laser-line triangulation camera."""

from __future__ import annotations

import enum
import os
import sys
from dataclasses import dataclass, fields
from typing import Any, NoReturn

import numpy as np
from numpy.typing import NDArray

from planex import _core
from planex._html import table
from planex._paths import writable
from planex.records import require_whole


class State(enum.IntEnum):
    """How far a model is calibrated.

    Examples
    --------
    >>> planex.Model.from_file("camera.json").state.name
    'CALIBRATED_ALIGNED_3D'
    """

    UNCALIBRATED = 0
    CALIBRATED = 1
    CALIBRATED_ALIGNED_2D = 2
    CALIBRATED_ALIGNED_3D = 3
    ALIGNED_2D = 4
    ALIGNED_3D = 5


class SkewMode(enum.IntEnum):
    """Which directions of the calibrated plane were measured in the light plane.

    Examples
    --------
    >>> planex.SkewMode(0).name
    'XZ_IN_LIGHT_PLANE'
    """

    XZ_IN_LIGHT_PLANE = 0
    Z_NOT_IN_LIGHT_PLANE = 1
    XZ_NOT_IN_LIGHT_PLANE = 2


@dataclass(frozen=True, eq=False)
class Region:
    """Where in the laser plane the calibration was supported by points: rows along z.

    Attributes
    ----------
    point_count : ndarray of int32, rows x columns
        Of each cell; read-only, as all.
    average_residual_x, average_residual_z : ndarray of float32, rows x columns
        In the length unit.
    maximum_residual_x, maximum_residual_z : ndarray of float32, rows x columns
        In the length unit.
    origin : tuple of two floats
        X and Z of the centre of cell (0, 0).
    cell_size : tuple of two floats
        Distance of columns along X, and of rows along Z.

    Examples
    --------
    >>> planex.Model.from_file("camera.json").region is None  # it was made without one
    True
    >>> zero = np.zeros((2, 3), np.float32)
    >>> region = planex.Region(np.ones((2, 3), np.int32), zero, zero, zero, zero, (-1.0, 7.0),
    ...                        (0.5, 2.0))
    >>> region.x, region.z
    (array([-1. , -0.5,  0. ]), array([7., 9.]))
    >>> planex.Model(region=region).region.point_count.sum()
    6
    """

    point_count: NDArray[np.int32]
    average_residual_x: NDArray[np.float32]
    average_residual_z: NDArray[np.float32]
    maximum_residual_x: NDArray[np.float32]
    maximum_residual_z: NDArray[np.float32]
    origin: tuple[float, float]
    cell_size: tuple[float, float]

    @property
    def x(self) -> NDArray[np.float64]:
        """Coordinates of the cells' centres along the columns."""
        return self.origin[0] + self.cell_size[0] * np.arange(self.point_count.shape[1])

    @property
    def z(self) -> NDArray[np.float64]:
        """Coordinates of the cells' centres along the rows."""
        return self.origin[1] + self.cell_size[1] * np.arange(self.point_count.shape[0])


@dataclass(frozen=True)
class Fault:
    """Something wrong with a model: the member of its document, and what is wrong with it.

    Examples
    --------
    >>> print(planex.Fault("data.FocalLength", "is not finite"))
    data.FocalLength: is not finite
    """

    path: str
    text: str

    def __str__(self) -> str:
        return f"{self.path}: {self.text}"


#: Shapes of the fields that are arrays.
_SHAPES: dict[str, tuple[tuple[int, ...], ...]] = {
    "lens_center": ((2,),),
    "lens_coefficients": ((7,),),
    "skew": ((3,),),
    "homography": ((3, 3),),
    "pose": ((4, 4),),
    "sheet_curve": ((0,), (6,)),
}
_INT32 = (-(2**31), 2**31 - 1)
_NUMBERS = (
    "calibration_error",
    "calibration_error_max",
    "alignment_error",
    "alignment_error_max",
    "focal_length",
)


def _checked(name: str, value: Any) -> Any:
    """A field as the extension takes it."""
    if name == "state":
        return int(State(value))
    if name == "skew_mode":
        return int(SkewMode(value))
    if name == "file_version":
        require_whole(name, value, *_INT32)
        return int(value)
    if name in _NUMBERS:
        return float(value)
    if name == "sensor_size":
        width, height = value
        require_whole("sensor width", width, *_INT32)
        require_whole("sensor height", height, *_INT32)
        return int(width), int(height)
    if name == "region":
        if value is None:
            return None
        if not isinstance(value, Region):
            raise TypeError(f"region must be a planex.Region or None, not {type(value).__name__}")
        (x, z), (dx, dz) = value.origin, value.cell_size
        places = tuple(float(number) for number in (x, z, dx, dz))
        return tuple(getattr(value, field.name) for field in fields(Region)[:5]) + places
    if name not in _SHAPES:
        raise TypeError(f"a model has no field {name!r}")
    array = np.asarray(value, dtype=np.float64)
    if array.shape not in _SHAPES[name]:
        shapes = " or ".join(map(str, _SHAPES[name]))
        raise ValueError(f"{name} has the shape {array.shape}; it must be {shapes}")
    return array


def _error_text(typical: float, most: float) -> str:
    return "not set" if typical == sys.float_info.max else f"{typical:g}, at most {most:g}"


class Model:
    """A camera model: a value that never changes.

    Models are equal when all their bits are, can be keys of a dictionary, be pickled and be used
    on several threads at once. ``Model(focal_length=6400, ...)`` is a new one,
    :meth:`replace` a changed copy.

    Parameters
    ----------
    **fields
        Any of the properties below by name; others have the values of a new model.

    Examples
    --------
    >>> model = planex.Model.from_file("camera.json")
    >>> model
    <planex.Model CALIBRATED_ALIGNED_3D 2560 x 1024, focal length 6400>
    >>> longer = model.replace(focal_length=6500.0)
    >>> longer == model, longer.replace(focal_length=6400.0) == model
    (False, True)
    """

    __slots__ = ("_native", "_bits")
    _native: _core.Model
    _bits: tuple[bytes, bytes] | None

    def __init__(self, **fields: Any) -> None:
        self._set(_core.Model())
        if fields:
            self._set(self.replace(**fields)._native)

    def _set(self, native: _core.Model) -> None:
        object.__setattr__(self, "_native", native)
        object.__setattr__(self, "_bits", None)

    @classmethod
    def _of(cls, native: _core.Model) -> Model:
        model = cls.__new__(cls)
        model._set(native)
        return model

    @classmethod
    def from_json(cls, text: str | bytes, *, recover: bool = False) -> Model:
        """The model of a document.

        Parameters
        ----------
        text : str or bytes
        recover : bool
            Take a damaged document, too, if its sensor size is whole: the rule of the C interface.
            Members behind the damage have the values of a new model; a warning in :mod:`logging`
            says so.

        Raises
        ------
        DocumentError
            The text is no model document, with the place of its first fault.

        Examples
        --------
        >>> model = planex.Model.from_file("camera.json")
        >>> planex.Model.from_json(model.to_json()) == model
        True
        """
        return cls._of(_core.from_json(text, "the text", recover))

    @classmethod
    def from_file(cls, path: str | os.PathLike[str], *, recover: bool = False) -> Model:
        """The model of a document in a file; see :meth:`from_json`.

        Raises
        ------
        DocumentError
            The text is no model document.
        OSError
            The file cannot be read.
        """
        with open(path, "rb") as file:
            return cls._of(_core.from_json(file.read(), os.fsencode(path), recover))

    def to_json(self, *, indent: bool = True) -> str:
        """A document that gives the same model.

        Raises
        ------
        DocumentError
            A number is not finite: JSON has no form for it.
        """
        return _core.to_json(self._native, indent)

    def to_file(self, path: str | os.PathLike[str], *, overwrite: bool = False) -> None:
        """Writes the document. A file that is there is replaced when the new one is complete.

        Raises
        ------
        FileExistsError
            There is a file of that name, and no ``overwrite``.
        Error
            The file cannot be written, or a number is not finite.
        """
        _core.write_model(self._native, os.fsencode(writable(path, overwrite)))

    def check(self) -> list[Fault]:
        """All that is wrong with what the numbers mean together.

        Returns
        -------
        list of Fault
            What the command ``planex check`` finds; nothing for a sound model.

        Examples
        --------
        >>> planex.Model.from_file("camera.json").check()
        []
        >>> for fault in planex.Model.from_file("camera.json").replace(focal_length=-1.0).check():
        ...     print(fault)
        data.FocalLength: is -1; expected above 0
        """
        unusable = [
            Fault("data." + name.title().replace("_", ""), "is not finite")
            for name in (*_NUMBERS, *_SHAPES)
            if not np.isfinite(getattr(self, name)).all()
        ]
        if unusable:
            return unusable
        return [Fault(path, text) for path, text in _core.faults_of(self._native)]

    def replace(self, **fields: Any) -> Model:
        """A copy with other values of these fields.

        Parameters
        ----------
        **fields
            Properties by name; arrays of their shapes. ``region=None`` leaves the region out.

        Raises
        ------
        TypeError, ValueError
            There is no such field, or a value is of another type, shape or range.
        """
        checked = {name: _checked(name, value) for name, value in fields.items()}
        return self._of(_core.replaced(self._native, checked))

    def mirror(self, *, x: float | None = None, z: float | None = None) -> Model:
        """A copy whose laser plane is mirrored at the line X = x, or Z = z, or both.

        The homography changes; a sheet curve stays as it is.

        Parameters
        ----------
        x, z : float, optional
            In the length unit.

        Raises
        ------
        Error
            A number is not finite.
        """
        return self._of(
            _core.mirrored(self._native, x is not None, x or 0.0, z is not None, z or 0.0)
        )

    @property
    def file_version(self) -> int:
        """Of the document that was read, and that is written."""
        return self._native.file_version

    @property
    def state(self) -> State:
        """How far it is calibrated."""
        return State(self._native.state)

    @property
    def skew_mode(self) -> SkewMode:
        """How the skew enters the pose."""
        return SkewMode(self._native.skew_mode)

    @property
    def calibration_error(self) -> float:
        """What the calibration left over; the largest float where nobody has set it."""
        return self._native.calibration_error

    @property
    def calibration_error_max(self) -> float:
        """Its maximum."""
        return self._native.calibration_error_max

    @property
    def alignment_error(self) -> float:
        """What the alignment left over."""
        return self._native.alignment_error

    @property
    def alignment_error_max(self) -> float:
        """Its maximum."""
        return self._native.alignment_error_max

    @property
    def focal_length(self) -> float:
        """In pixels."""
        return self._native.focal_length

    @property
    def sensor_size(self) -> tuple[int, int]:
        """Width and height in pixels."""
        return self._native.sensor_size

    @property
    def lens_center(self) -> NDArray[np.float64]:
        """In pixels; negative where it was never set."""
        return self._native.lens_center

    @property
    def lens_coefficients(self) -> NDArray[np.float64]:
        """Seven: three radial, two tangential, two Scheimpflug."""
        return self._native.lens_coefficients

    @property
    def skew(self) -> NDArray[np.float64]:
        """The scan direction, three numbers."""
        return self._native.skew

    @property
    def homography(self) -> NDArray[np.float64]:
        """3 x 3, from the undistorted sensor to the laser plane."""
        return self._native.homography

    @property
    def pose(self) -> NDArray[np.float64]:
        """4 x 4, from calibrated to aligned coordinates."""
        return self._native.pose

    @property
    def sheet_curve(self) -> NDArray[np.float64]:
        """How the laser sheet departs from a plane: none or six numbers."""
        return self._native.sheet_curve

    @property
    def region(self) -> Region | None:
        """Where the calibration was supported by points, and its residuals there."""
        parts = self._native.region
        if parts is None:
            return None
        return Region(*parts)

    def _all_bits(self) -> tuple[bytes, bytes]:
        if self._bits is None:
            object.__setattr__(self, "_bits", _core.bits_of(self._native))
        assert self._bits is not None
        return self._bits

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, Model):
            return NotImplemented
        return self._native is other._native or self._all_bits() == other._all_bits()

    def __hash__(self) -> int:
        return hash(self._all_bits())

    def __reduce__(self) -> tuple[Any, ...]:
        return _from_bits, self._all_bits()

    def __dask_tokenize__(self) -> tuple[str, bytes, bytes]:
        return "planex.Model", *self._all_bits()

    def __copy__(self) -> Model:
        return self

    def __deepcopy__(self, memo: object) -> Model:
        return self

    def __setattr__(self, name: str, value: object) -> NoReturn:
        raise AttributeError(f"a model never changes; use model.replace({name}=...)")

    def __delattr__(self, name: str) -> NoReturn:
        raise AttributeError("a model never changes")

    def _state_name(self) -> str:
        state = self._native.state
        return State(state).name if state in State._value2member_map_ else str(state)

    def __repr__(self) -> str:
        width, height = self.sensor_size
        focal = f"focal length {self.focal_length:g}"
        return f"<planex.Model {self._state_name()} {width} x {height}, {focal}>"

    def _repr_html_(self) -> str:
        region = self.region
        return table(
            "planex.Model",
            {
                "state": self._state_name(),
                "sensor": "{} x {} pixels".format(*self.sensor_size),
                "focal length": f"{self.focal_length:g} pixels",
                "lens centre": "{:g}, {:g}".format(*self.lens_center),
                "calibration error": _error_text(
                    self.calibration_error, self.calibration_error_max
                ),
                "alignment error": _error_text(self.alignment_error, self.alignment_error_max),
                "sheet curve": "yes" if self.sheet_curve.size else "no",
                "region": "none" if region is None else "{} x {}".format(*region.point_count.shape),
            },
        )


def _from_bits(fields: bytes, region: bytes) -> Model:
    return Model._of(_core.from_bits(fields, region))
