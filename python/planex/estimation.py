"""Models from measured points or scans of a target, and how well they are known."""

from __future__ import annotations

import logging
import math
import os
from collections.abc import Mapping, Sequence
from dataclasses import dataclass
from typing import Any, Literal, NamedTuple, Union

import numpy as np
from numpy.typing import ArrayLike, NDArray

from planex import _core
from planex._paths import readable, writable
from planex.model import Model
from planex.records import SensorTraits, require_whole

Verdict = Literal["good", "doubtful", "bad"]
_VERDICTS: tuple[Verdict, ...] = ("good", "doubtful", "bad")

#: A range image, or sensor columns and rows.
Scan = Union[NDArray[Any], tuple[ArrayLike, ArrayLike]]
Up = Literal["with-rows", "against-rows"]
Right = Literal["with-columns", "against-columns"]

_MOST_DRIFT = 0.25  # sensor rows


class PlaceCovariance(NamedTuple):
    """Covariances of places in the laser plane, as :class:`MapUncertainty` gives them.

    Attributes
    ----------
    xx, xz, zz : ndarray of float64
        Of X, of X with Z, of Z, in squared length units; ``np.sqrt(zz)`` is the standard
        uncertainty of Z.

    Examples
    --------
    >>> planex.PlaceCovariance(*np.float64([4, 1, 9])).zz ** 0.5
    3.0
    """

    xx: NDArray[np.float64]
    xz: NDArray[np.float64]
    zz: NDArray[np.float64]


class Finding(NamedTuple):
    """A reason to doubt an estimated model.

    Attributes
    ----------
    level : {"doubtful", "bad"}
    code : str
        One word, such as "residual"; the guide lists them.
    text : str
        A sentence.

    Examples
    --------
    >>> print(planex.Finding("doubtful", "support", "Less than half was measured.").code)
    support
    """

    level: Verdict
    code: str
    text: str


class ScanFit(NamedTuple):
    """How the points of a scan fit an estimated model.

    Attributes
    ----------
    name : str
    given, used : int
        Points, and those of them that were not left out.
    rms : float
        Of the distances of those used, in the length unit.
    left_out : int
        Of a target: those near its corners, or beside it.
    is_found : bool
        Of a target: whether it was found in the scan.
    x, z, angle : float
        Of a target: where it stands, and its angle in radians; NaN of points.
    held_out : float
        Of a target: residuals as the other scans predict them, over their uncertainty; 0 where
        the scan is too short to tell.
    pixels, residuals : ndarray of float64, n x 2, or None
        Of a target: columns and rows of the sensor, and from where the model puts each of them to
        the edge, in X and Z; NaN where it was left out.

    Examples
    --------
    >>> planex.ScanFit("stage", 200, 198, 0.005).name
    'stage'
    """

    name: str
    given: int
    used: int
    rms: float
    left_out: int = 0
    is_found: bool = True
    x: float = math.nan
    z: float = math.nan
    angle: float = math.nan
    held_out: float = math.nan
    pixels: NDArray[np.float64] | None = None
    residuals: NDArray[np.float64] | None = None


class TargetStretch(NamedTuple):
    """By which part a target is wider than its description says, if heights are what it says.

    Attributes
    ----------
    stretch : float
    deviation : float
        Its standard uncertainty.

    Examples
    --------
    >>> planex.TargetStretch(2e-4, 1e-4).stretch
    0.0002
    """

    stretch: float
    deviation: float


class PlannedScan(NamedTuple):
    """A scan of a target that is worth taking.

    Attributes
    ----------
    x, z, angle : float
        Where the target's origin stands in the calibrated system, and its angle in radians.
    largest_95 : float
        The longest half axis of a 95 % ellipse over the sensor's middle nine tenths, with the
        scans up to this one.

    Examples
    --------
    >>> planex.PlannedScan(0.0, 12.5, -0.17, 0.02).z
    12.5
    """

    x: float
    z: float
    angle: float
    largest_95: float


@dataclass(init=False, frozen=True, eq=False)
class Target:
    """The section of a machined target: straight edges from corner to corner, the material below.

    Attributes
    ----------
    profile : ndarray of float64, n x 2
        X and Z of 2 to 128 corners from left to right.
    tolerance : float
        Standard uncertainty of a corner, in X and in Z.
    scale_tolerance : float
        That of the whole, relative; temperature, for one.
    margin : float
        What is left out on either side of a corner, since corners are round and lines are broad.

    Raises
    ------
    Error
        This is no target; or planex was built without estimation.
    ValueError
        ``profile`` has another shape.

    Examples
    --------
    >>> saw = planex.Target([[0, 0], [5, 4], [10, 0], [15, 4], [20, 0]], 0.003)
    >>> saw.profile.shape, saw.margin
    ((5, 2), 0.5)
    """

    profile: NDArray[np.float64]
    tolerance: float
    scale_tolerance: float = 0.0
    margin: float = 0.5

    def __init__(
        self,
        profile: ArrayLike,
        tolerance: float,
        scale_tolerance: float = 0.0,
        margin: float = 0.5,
    ) -> None:
        corners = np.array(profile, dtype=np.float64, order="C")
        if corners.ndim != 2 or corners.shape[1] != 2:
            raise ValueError(f"profile has the shape {corners.shape}; it must be (n, 2), X and Z")
        corners.flags.writeable = False
        object.__setattr__(self, "profile", corners)
        object.__setattr__(self, "tolerance", float(tolerance))
        object.__setattr__(self, "scale_tolerance", float(scale_tolerance))
        object.__setattr__(self, "margin", float(margin))
        _core.require_target(self._numbers())

    def _numbers(self) -> tuple[NDArray[np.float64], float, float, float]:
        return self.profile, self.tolerance, self.scale_tolerance, self.margin

    @classmethod
    def from_file(cls, path: str | os.PathLike[str]) -> Target:
        """Reads the JSON file that ``planex estimate --target`` takes.

        Raises
        ------
        DocumentError
            The file describes no target.
        OSError
            The file cannot be read.

        Examples
        --------
        >>> with open("saw.json", "w") as file:
        ...     count = file.write('{"profile": [[0, 0], [5, 4], [10, 0]], "tolerance": 0.003}')
        >>> planex.Target.from_file("saw.json").tolerance
        0.003
        """
        return cls(*_core.read_target(os.fsencode(readable(path))))


class MapUncertainty:
    """How well the way from the sensor to the laser plane is known.

    Calling it gives the covariance at places of the sensor. Objects never change, and may be used
    on several threads.

    Examples
    --------
    >>> model = planex.Model.from_file("camera.json")
    >>> u, v = (a.ravel() for a in np.meshgrid(np.linspace(5, 2550, 20), np.linspace(5, 1015, 12)))
    >>> x, z = planex.map_points(model, np.stack([u, v], -1), "pixel", "calibrated").T
    >>> found = planex.estimate(u, v, x, z, sensor_size=model.sensor_size, noise=0.05)
    >>> found.to_file("estimated.json")
    >>> uncertainty = planex.MapUncertainty.from_file("estimated.json")
    >>> np.array_equal(uncertainty(u, v).zz, found.uncertainty(u, v).zz)
    True
    """

    __slots__ = ("_native",)
    _native: _core.MapUncertainty

    def __init__(self) -> None:
        raise TypeError("a MapUncertainty comes from planex.estimate() or from_file()")

    @classmethod
    def _of(cls, native: _core.MapUncertainty) -> MapUncertainty:
        made = cls.__new__(cls)
        made._native = native
        return made

    @classmethod
    def from_file(cls, path: str | os.PathLike[str]) -> MapUncertainty:
        """What the document of an estimated model states.

        Raises
        ------
        DocumentError
            The document states none, or one that is damaged or of another model.
        Error
            planex was built without estimation.
        OSError
            The file cannot be read.
        """
        with open(path, "rb") as file:
            return cls._of(_core.uncertainty_in(file.read(), os.fsencode(path)))

    @property
    def sensor_size(self) -> tuple[int, int]:
        """Columns and rows."""
        columns, rows = _core.uncertainty_facts(self._native)[:2]
        return columns, rows

    @property
    def frame(self) -> str:
        """Of the covariance: "fixed", or "rigid" where only a motion of all places is unknown."""
        return _core.uncertainty_facts(self._native)[2]

    @property
    def noise(self) -> float:
        """Standard deviation of a pixel, in pixels."""
        return _core.uncertainty_facts(self._native)[3]

    @property
    def measured(self) -> float:
        """The part of the sensor that was measured."""
        return _core.uncertainty_facts(self._native)[4]

    @property
    def largest_95(self) -> float:
        """The longest half axis of a 95 % ellipse in that part."""
        return _core.uncertainty_facts(self._native)[5]

    def __call__(self, u: ArrayLike, v: ArrayLike) -> PlaceCovariance:
        """The covariance at places of the sensor.

        Parameters
        ----------
        u, v : array_like
            Columns and rows, with fractions, broadcast to one shape.

        Returns
        -------
        PlaceCovariance
            Arrays of that shape; NaN or infinite where the model has no place.
        """
        pixels, shape = _pairs(u, v)
        return PlaceCovariance._make(
            part.reshape(shape) for part in _core.covariances_at(self._native, pixels)
        )

    def is_measured(self, u: ArrayLike, v: ArrayLike) -> NDArray[np.bool_]:
        """Whether places lie in the convex hull of the pixels that were measured."""
        pixels, shape = _pairs(u, v)
        return _core.is_measured(self._native, pixels).reshape(shape)

    def __repr__(self) -> str:
        return f"<planex.MapUncertainty {self.largest_95:.2g} over {100 * self.measured:.0f} %>"


class PosePlan(NamedTuple):
    """What scans of a target would tell; :func:`plan_scans` gives it.

    Attributes
    ----------
    scans : tuple of PlannedScan
        The most useful one first.
    uncertainty : MapUncertainty
        With all of them.

    Examples
    --------
    >>> planex.PosePlan._fields
    ('scans', 'uncertainty')
    """

    scans: tuple[PlannedScan, ...]
    uncertainty: MapUncertainty


@dataclass(frozen=True, eq=False)
class Estimation:
    """A model and what is known about it.

    :func:`estimate` and :func:`estimate_from_scans` give it.

    Attributes
    ----------
    model : Model
    uncertainty : MapUncertainty
        Of its map from the sensor to the laser plane; ``uncertainty(u, v)`` evaluates it.
    verdict : {"good", "doubtful", "bad"}
    sentence : str
        The verdict with the uncertainty, for people.
    findings : tuple of Finding
        Reasons to doubt the model.
    noise : float
        Standard deviation of a pixel, in pixels.
    rms, largest : float
        Of the distances of the points used, in the length unit.
    largest_95 : float
        The longest half axis of a 95 % ellipse in the measured area.
    measured : float
        The part of the sensor that was measured.
    correlation : float
        By which the covariance of independent residuals was multiplied.
    held_out : float
        Residuals predicted from elsewhere over their uncertainty; near 1 is right.
    scans : tuple of ScanFit
    used : ndarray of bool
        Which points were not left out, in the shape of u; of scans, one behind the other.
    stretches : tuple of TargetStretch
        Of the target, if there is one.
    is_frame_free : bool
        Whether nothing but targets says where the frame is: then it is that of one of their
        poses, and the uncertainty that of shapes.
    next_scan : PlannedScan or None
        The further scan of the target that would say most. None without a target, nor where the
        model is bad by more than its uncertainty.
    advice : str
        The same as a sentence; empty where there is none.

    Examples
    --------
    See :func:`estimate`:

    >>> planex.Estimation.__name__
    'Estimation'
    """

    model: Model
    uncertainty: MapUncertainty
    verdict: Verdict
    sentence: str
    findings: tuple[Finding, ...]
    noise: float
    rms: float
    largest: float
    largest_95: float
    measured: float
    correlation: float
    held_out: float
    scans: tuple[ScanFit, ...]
    used: NDArray[np.bool_]
    stretches: tuple[TargetStretch, ...] = ()
    is_frame_free: bool = False
    next_scan: PlannedScan | None = None
    advice: str = ""

    def to_json(self, *, indent: bool = True) -> str:
        """The document of the model, with its uncertainty.

        ``Model.from_json`` reads it, as any reader of models does; ``model.to_json()`` is the
        document without.
        """
        return _core.estimation_to_json(self.model._native, self.uncertainty._native, indent)

    def to_file(self, path: str | os.PathLike[str], *, overwrite: bool = False) -> None:
        """Writes that document.

        Raises
        ------
        FileExistsError
            There is a file of that name, and no ``overwrite``.
        OSError
            The file cannot be written.
        """
        text = self.to_json() + "\r\n"
        name = writable(path, overwrite)
        with open(name, "wb" if overwrite else "xb") as file:
            file.write(text.encode())


def _pairs(u: ArrayLike, v: ArrayLike) -> tuple[NDArray[np.float64], tuple[int, ...]]:
    columns, rows = np.broadcast_arrays(
        np.asarray(u, dtype=np.float64), np.asarray(v, dtype=np.float64)
    )
    return np.stack([columns.ravel(), rows.ravel()], axis=-1), columns.shape


def _column(name: str, values: Any, shape: tuple[int, ...]) -> NDArray[np.float64]:
    array = np.asarray(values, dtype=np.float64)
    if array.shape != shape:
        raise ValueError(f"{name} has the shape {array.shape}; it must be {shape}, as u")
    return array.ravel()


def _groups(scan: ArrayLike | None, shape: tuple[int, ...]) -> tuple[list[str], NDArray[np.int64]]:
    """Names in the order in which they come, and their places for each point."""
    count = int(np.prod(shape))
    if scan is None:
        return ["points"], np.zeros(count, np.int64)
    array = np.asarray(scan)
    if array.shape != shape:
        raise ValueError(f"scan has the shape {array.shape}; it must be {shape}, as u")
    names: dict[str, int] = {}
    places = [names.setdefault(str(name), len(names)) for name in array.ravel().tolist()]
    return list(names), np.array(places, np.int64)


def estimate(
    u: ArrayLike,
    v: ArrayLike,
    x: ArrayLike,
    z: ArrayLike,
    *,
    sensor_size: tuple[int, int],
    scan: ArrayLike | None = None,
    sigma: ArrayLike | None = None,
    point_tolerance: float = 0.0,
    noise: float | None = None,
    focal_length: float | None = None,
    sheet_curve: bool = True,
    needed_uncertainty: float | None = None,
    unit: str = "mm",
) -> Estimation:
    """Estimates a model from places of the laser plane that are known on the sensor, too.

    Other Python threads run meanwhile. The same points give the same bits.

    Parameters
    ----------
    u, v : array_like
        Sensor columns and rows of the points, in pixels.
    x, z : array_like
        Their places in the laser plane; NaN where one of the two is not known. Same shape as u.
    sensor_size : tuple of two ints
        Columns and rows of the sensor.
    scan : array_like of names, optional
        Which measurement each point belongs to: points of one are judged together.
    sigma : array_like, optional
        Standard deviations of the pixels, relative to each other.
    point_tolerance : float
        Standard uncertainty of x and z.
    noise : float, optional
        Standard deviation of a pixel, in pixels; without it, from the residuals.
    focal_length : float, optional
        In pixels, a convention; without it half the diagonal of the sensor.
    sheet_curve : bool
        False takes the laser sheet for a plane.
    needed_uncertainty : float, optional
        At 95 %; beyond it the verdict is bad.
    unit : str
        Of lengths, for texts.

    Returns
    -------
    Estimation
        Also where the verdict is bad: see its findings.

    Raises
    ------
    Error
        No model can be had from such points, with what to do; or planex was built without
        estimation.
    ValueError
        Arrays differ in shape.

    Examples
    --------
    >>> model = planex.Model.from_file("camera.json")
    >>> u, v = np.meshgrid(np.linspace(5, 2550, 20), np.linspace(5, 1015, 12))
    >>> points = planex.map_points(model, np.stack([u, v], -1), "pixel", "calibrated")
    >>> found = planex.estimate(
    ...     u, v, points[..., 0], points[..., 1], sensor_size=model.sensor_size, noise=0.05
    ... )
    >>> found.verdict, found.used.all(), found.scans[0].given
    ('good', True, 240)
    >>> xx, xz, zz = found.uncertainty(u, v)
    >>> zz.shape, bool(np.sqrt(zz).max() < 0.02)
    ((12, 20), True)
    """
    size = _sensor_size(sensor_size)
    shape = np.shape(u)
    measured = {"u": u, "v": v, "x": x, "z": z}
    arrays = {name: _column(name, values, shape) for name, values in measured.items()}
    names, places = _groups(scan, shape)
    found = _core.estimate(
        np.stack([arrays["u"], arrays["v"]], axis=-1),
        np.stack([arrays["x"], arrays["z"]], axis=-1),
        None,
        None if sigma is None else _column("sigma", sigma, shape),
        places,
        names,
        *size,
        _numbers(focal_length, point_tolerance, noise, needed_uncertainty, 0.0),
        (0, 0),
        bool(sheet_curve),
        unit,
    )
    return _estimation(found, tuple(ScanFit(*fit) for fit in found[5]), shape)


def estimate_from_scans(
    scans: Mapping[str, Scan] | Sequence[Scan],
    target: Target,
    *,
    sensor_size: tuple[int, int],
    sensor: SensorTraits | None = None,
    up: Up | None = None,
    right: Right | None = None,
    turn: float = 0.5,
    noise: float | None = None,
    focal_length: float | None = None,
    sheet_curve: bool = True,
    needed_uncertainty: float | None = None,
    unit: str = "mm",
) -> Estimation:
    """Estimates a model from scans of a target that stood still, wherever it stood.

    Other Python threads run meanwhile. The same scans give the same bits.

    Parameters
    ----------
    scans : mapping of names, or sequence
        Each a tuple ``(u, v)`` of sensor columns and rows where the target was seen, or a range
        image whose rows all show it at rest: of at most 256 of them the median of each column
        counts, as with the command. Those of a sequence are called "0", "1", ...
    target : Target
        What was scanned.
    sensor_size : tuple of two ints
        Columns and rows of the sensor.
    sensor : SensorTraits, optional
        Where range images lie on the sensor; needed for them.
    up : {"with-rows", "against-rows"}, optional
        Which way Z goes on the sensor, where the target looks the same another way round.
    right : {"with-columns", "against-columns"}, optional
        The same for X.
    turn : float
        Standard uncertainty of how far the target is turned out of the laser plane, in degrees.
    noise, focal_length, sheet_curve, needed_uncertainty, unit
        As of :func:`estimate`.

    Returns
    -------
    Estimation
        Also where the verdict is bad: see its findings. The frame is that of one of the scans.

    Raises
    ------
    Error
        No model can be had from such scans, with what to do; or planex was built without
        estimation.
    TypeError, ValueError
        A scan is neither of the two, or its arrays differ in shape.

    Examples
    --------
    A sawtooth at four heights, tilted either way:

    >>> model = planex.Model.from_file("camera.json")
    >>> corners = np.array([[5.0 * i - 85, 4.0 * (i % 2)] for i in range(35)])
    >>> x = np.arange(-85, 85, 0.7)
    >>> z = np.interp(x, *corners.T)
    >>> scans = []
    >>> for height in -20, -6, 8, 22:
    ...     for t in -0.2, 0.2:
    ...         places = [np.cos(t) * x - np.sin(t) * z, np.sin(t) * x + np.cos(t) * z + height]
    ...         u, v = planex.map_points(model, np.stack(places, -1), "calibrated", "pixel").T
    ...         seen = (u > 0) & (u < 2559) & (v > 0) & (v < 1023)
    ...         scans.append((u[seen], v[seen]))
    >>> found = planex.estimate_from_scans(
    ...     scans,
    ...     planex.Target(corners, 0.002),
    ...     sensor_size=model.sensor_size,
    ...     up="with-rows",
    ...     right="with-columns",
    ...     noise=0.05,
    ... )
    >>> found.verdict, found.is_frame_free, round(found.scans[1].angle - found.scans[0].angle, 2)
    ('good', True, 0.4)
    """
    size = _sensor_size(sensor_size)
    if not isinstance(target, Target):
        raise TypeError(f"target must be a planex.Target, not {type(target).__name__}")
    if not isinstance(scans, Mapping):
        scans = {str(i): scan for i, scan in enumerate(scans)}
    pixels = [_pixels(f"scans[{name!r}]", scan, size, sensor) for name, scan in scans.items()]
    lengths = [len(places) for places in pixels]
    found = _core.estimate(
        np.concatenate([np.empty((0, 2)), *pixels]),
        None,
        target._numbers(),
        None,
        np.repeat(np.arange(len(pixels), dtype=np.int64), lengths),
        [str(name) for name in scans],
        *size,
        _numbers(focal_length, 0.0, noise, needed_uncertainty, turn),
        (
            _way("up", up, ("with-rows", "against-rows")),
            _way("right", right, ("with-columns", "against-columns")),
        ),
        bool(sheet_curve),
        unit,
    )
    residuals = np.split(found[8], np.cumsum(lengths)[:-1])
    fits = (ScanFit(*fit, *both) for fit, *both in zip(found[5], pixels, residuals))
    return _estimation(found, tuple(fits), (sum(lengths),))


def plan_scans(
    model: Model,
    target: Target,
    count: int = 12,
    *,
    noise: float | None = None,
    turn: float = 0.5,
) -> PosePlan:
    """Tells which scans of a target say most of a camera, before anything is measured.

    Of scans at four heights over the sensor, level and tilted by 5 and by 10 degrees either way,
    one after another that which lowers the mean variance of the map the most. The same pose may
    come twice.

    Parameters
    ----------
    model : Model
        Of a camera such as the one to be calibrated; its own once it is estimated.
    target : Target
    count : int
        Scans, 1 to 64.
    noise : float, optional
        Standard deviation of a pixel, in pixels; without it 0.1.
    turn : float
        Standard uncertainty of how far the target is turned out of the laser plane, in degrees.

    Returns
    -------
    PosePlan

    Raises
    ------
    Error
        The target cannot be seen in any of the poses; or planex was built without estimation.
    ValueError
        ``count``, ``noise`` or ``turn`` is out of range.

    Examples
    --------
    >>> model = planex.Model.from_file("camera.json")
    >>> saw = planex.Target([(5 * i - 85, 4 * (i % 2)) for i in range(35)], 0.002)
    >>> plan = planex.plan_scans(model, saw, 3)
    >>> [f"{abs(np.degrees(scan.angle)):.0f}" for scan in plan.scans]
    ['10', '10', '10']
    >>> plan.uncertainty.largest_95 == plan.scans[-1].largest_95
    True
    """
    if not isinstance(target, Target):
        raise TypeError(f"target must be a planex.Target, not {type(target).__name__}")
    require_whole("count", count, 1, 64)
    if noise is not None and not 0 < noise < math.inf:
        raise ValueError(f"noise is {noise}; it must be above 0")
    if not 0 <= turn < math.inf:
        raise ValueError(f"turn is {turn}; it must be 0 or more")
    scans, uncertainty = _core.plan_scans(
        model._native, target._numbers(), int(count), float(noise or 0), math.radians(turn)
    )
    planned = tuple(PlannedScan(*scan) for scan in scans)
    return PosePlan(planned, MapUncertainty._of(uncertainty))


def _sensor_size(sensor_size: tuple[int, int]) -> tuple[int, int]:
    columns, rows = sensor_size
    for name, size in (("columns", columns), ("rows", rows)):
        require_whole(f"sensor_size {name}", size, 2, 65535)
    return int(columns), int(rows)


def _numbers(
    focal_length: float | None,
    point_tolerance: float,
    noise: float | None,
    needed_uncertainty: float | None,
    turn: float,
) -> list[float]:
    return [
        0.0 if focal_length is None else float(focal_length),
        float(point_tolerance),
        0.0 if noise is None else float(noise),
        np.inf if needed_uncertainty is None else float(needed_uncertainty),
        math.radians(turn),
    ]


def _way(name: str, value: str | None, ways: tuple[str, str]) -> int:
    if value is None:
        return 0
    if value not in ways:
        raise ValueError(f"{name} is {value!r}; it must be one of {', '.join(ways)}")
    return 1 if value == ways[0] else -1


def _pixels(
    name: str, scan: Scan, size: tuple[int, int], sensor: SensorTraits | None
) -> NDArray[np.float64]:
    """Columns and rows, n x 2."""
    if isinstance(scan, np.ndarray):
        if sensor is None:
            raise ValueError(
                f"{name} is an array: say with sensor= where range images lie, or give (u, v)"
            )
        if not isinstance(sensor, SensorTraits):
            raise TypeError(f"sensor must be a planex.SensorTraits, not {type(sensor).__name__}")
        pixels, drift = _core.resting_profile(scan, name, sensor, *size)
        if abs(drift) > _MOST_DRIFT:
            logging.getLogger("planex.estimation").warning(
                "%s: its rows drift by %.3g sensor rows; did the target move?", name, drift
            )
        return pixels
    if not isinstance(scan, (tuple, list)) or len(scan) != 2:
        raise TypeError(f"{name} must be a tuple (u, v) or a range image")
    u = np.asarray(scan[0], dtype=np.float64)
    if u.ndim != 1:
        raise ValueError(f"{name}: u has the shape {u.shape}; it must have one axis")
    return np.stack([u, _column(f"{name}: v", scan[1], u.shape)], axis=-1)


def _estimation(
    found: tuple[Any, ...], scans: tuple[ScanFit, ...], shape: tuple[int, ...]
) -> Estimation:
    model, uncertainty, verdict, sentence, findings, _, figures, used, _, *more = found
    stretches, free, next_scan, advice = more
    noise, rms, largest, largest_95, measured, correlation, held_out = figures
    used.flags.writeable = False
    return Estimation(
        Model._of(model),
        MapUncertainty._of(uncertainty),
        _VERDICTS[verdict],
        sentence,
        tuple(Finding(_VERDICTS[level], code, text) for level, code, text in findings),
        noise,
        rms,
        largest,
        largest_95,
        measured,
        correlation,
        held_out,
        scans,
        used.reshape(shape),
        tuple(TargetStretch._make(stretch) for stretch in stretches),
        free,
        None if next_scan is None else PlannedScan(*next_scan),
        advice,
    )
