"""Models from measured points, and how well they are known."""

from __future__ import annotations

import os
from dataclasses import dataclass
from typing import Any, Literal, NamedTuple

import numpy as np
from numpy.typing import ArrayLike, NDArray

from planex import _core
from planex._paths import writable
from planex.model import Model
from planex.records import require_whole

Verdict = Literal["good", "doubtful", "bad"]
_VERDICTS: tuple[Verdict, ...] = ("good", "doubtful", "bad")


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

    Examples
    --------
    >>> planex.ScanFit("stage", 200, 198, 0.005).name
    'stage'
    """

    name: str
    given: int
    used: int
    rms: float


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


@dataclass(frozen=True, eq=False)
class Estimation:
    """A model and what is known about it, as :func:`estimate` gives it.

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
        Which points were not left out, in the shape of u.

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
    columns, rows = sensor_size
    for name, size in (("columns", columns), ("rows", rows)):
        require_whole(f"sensor_size {name}", size, 2, 65535)
    shape = np.shape(u)
    measured = {"u": u, "v": v, "x": x, "z": z}
    arrays = {name: _column(name, values, shape) for name, values in measured.items()}
    names, places = _groups(scan, shape)
    model, uncertainty, verdict, sentence, findings, scans, figures, used = _core.estimate(
        np.stack([arrays["u"], arrays["v"]], axis=-1),
        np.stack([arrays["x"], arrays["z"]], axis=-1),
        None if sigma is None else _column("sigma", sigma, shape),
        places,
        names,
        int(columns),
        int(rows),
        [
            0.0 if focal_length is None else float(focal_length),
            float(point_tolerance),
            0.0 if noise is None else float(noise),
            np.inf if needed_uncertainty is None else float(needed_uncertainty),
        ],
        bool(sheet_curve),
        unit,
    )
    used.flags.writeable = False
    return Estimation(
        Model._of(model),
        MapUncertainty._of(uncertainty),
        _VERDICTS[verdict],
        sentence,
        tuple(Finding(_VERDICTS[level], code, text) for level, code, text in findings),
        *figures,
        tuple(ScanFit._make(fit) for fit in scans),
        used.reshape(shape),
    )
