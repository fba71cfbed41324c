"""Seismic moment tensors and double couples."""

from __future__ import annotations

import math
from collections.abc import Iterator, Mapping
from typing import Any, NamedTuple

import numpy as np
import numpy.typing as npt

from . import _ksutil
from ._ksutil import Figure
from .figures import mechanism_figure
from .traveltimes import _shaped, _spread

__all__ = [
    "MomentTensor",
    "NodalPlane",
    "Parts",
    "PrincipalAxes",
    "PrincipalAxis",
    "Radiation",
    "magnitude_of_moment",
    "moment_of_magnitude",
]

_Floats = npt.NDArray[np.float64]
_Six = tuple[float, float, float, float, float, float]

_NAMES = ("mrr", "mtt", "mpp", "mrt", "mrp", "mtp")
_HEMISPHERES = {"lower": 0, "upper": 1}
_PROJECTIONS = {"equal-area": 0, "stereographic": 1}


class PrincipalAxis(NamedTuple):
    """A principal axis: which of its two directions points down."""

    value: float
    """Eigenvalue, N m."""
    plunge: float
    """Degrees down from horizontal, 0 to 90."""
    azimuth: float
    """Of the end that points down, degrees clockwise from north, [0, 360)."""


class PrincipalAxes(NamedTuple):
    """The axes of tension, null and pressure, by descending eigenvalue."""

    t: PrincipalAxis
    n: PrincipalAxis
    p: PrincipalAxis


class NodalPlane(NamedTuple):
    """A nodal plane of a double couple, in degrees."""

    strike: float
    """[0, 360), clockwise from north; the plane dips to its right."""
    dip: float
    """From horizontal, 0 to 90."""
    rake: float
    """(-180, 180], in the plane from the strike, positive up-dip."""


class Parts(NamedTuple):
    """Shares of a tensor in percent; |iso| + |clvd| + dc = 100."""

    iso: float
    dc: float
    clvd: float


class Radiation(NamedTuple):
    """Far-field radiation in N m; each field has the shape of the angles."""

    p: Any
    sv: Any
    sh: Any


def magnitude_of_moment(moment: float) -> float:
    """Mw of a moment in N m above 0: (log10 moment - 9.1) / 1.5."""
    return _ksutil._moment_magnitude(moment)


def moment_of_magnitude(mw: float) -> float:
    """The moment in N m of a moment magnitude."""
    return _ksutil._moment_of_magnitude(mw)


def _view(hemisphere: str, projection: str) -> tuple[int, int]:
    if hemisphere not in _HEMISPHERES:
        raise ValueError("hemisphere must be 'lower' or 'upper'")
    if projection not in _PROJECTIONS:
        raise ValueError("projection must be 'equal-area' or 'stereographic'")
    return _HEMISPHERES[hemisphere], _PROJECTIONS[projection]


class MomentTensor:
    """A seismic moment tensor in N m: r up, t south, p east.  It never changes.

    Directions that a tensor does not determine, such as the planes of one with equal
    eigenvalues, are one of the possible answers, always the same.
    """

    __slots__ = ("_m",)

    def __init__(
        self,
        mrr: float,
        mtt: float,
        mpp: float,
        mrt: float,
        mrp: float,
        mtp: float,
    ) -> None:
        self._m: _Six = (
            float(mrr),
            float(mtt),
            float(mpp),
            float(mrt),
            float(mrp),
            float(mtp),
        )
        _ksutil._moment_scalar(self._m)  # refuses what is not a tensor

    @classmethod
    def from_planes(
        cls,
        strike: float,
        dip: float,
        rake: float,
        *,
        moment: float | None = None,
        mw: float | None = None,
    ) -> MomentTensor:
        """The tensor of a double couple; angles in degrees.

        moment  N m, 0 or above; or mw instead; without both 1 N m
        """
        if moment is not None and mw is not None:
            raise ValueError("give moment or mw, not both")
        if mw is not None:
            moment = moment_of_magnitude(mw)
        scale = 1.0 if moment is None else moment
        return cls(*_ksutil._moment_from_plane(strike, dip, rake, scale))

    @classmethod
    def from_ned(
        cls, mxx: float, myy: float, mzz: float, mxy: float, mxz: float, myz: float
    ) -> MomentTensor:
        """From the system x north, y east, z down."""
        return cls(*_ksutil._moment_from_ned((mxx, myy, mzz, mxy, mxz, myz)))

    @classmethod
    def from_row(cls, row: Any) -> MomentTensor:
        """From a row of mt: a mapping or an object with the fields mrr to mtp.

        ValueError when one of them is null.
        """
        if isinstance(row, Mapping):
            values = [row[name] for name in _NAMES]
        else:
            values = [getattr(row, name) for name in _NAMES]
        if any(value is None or not math.isfinite(value) for value in values):
            raise ValueError("the row has no tensor")
        return cls(*values)

    @property
    def mrr(self) -> float:
        """Element rr, N m."""
        return self._m[0]

    @property
    def mtt(self) -> float:
        """Element tt, N m."""
        return self._m[1]

    @property
    def mpp(self) -> float:
        """Element pp, N m."""
        return self._m[2]

    @property
    def mrt(self) -> float:
        """Element rt, N m."""
        return self._m[3]

    @property
    def mrp(self) -> float:
        """Element rp, N m."""
        return self._m[4]

    @property
    def mtp(self) -> float:
        """Element tp, N m."""
        return self._m[5]

    def __iter__(self) -> Iterator[float]:
        return iter(self._m)

    def figure(self, **options: Any) -> Figure:
        """A picture of the focal sphere; see ksutil.figures.mechanism_figure."""
        return mechanism_figure(self._m, **options)

    def _repr_svg_(self) -> str:
        return self.figure()._repr_svg_()

    def __eq__(self, other: object) -> bool:
        return isinstance(other, MomentTensor) and self._m == other._m

    def __hash__(self) -> int:
        return hash(self._m)

    def __reduce__(self) -> tuple[type[MomentTensor], _Six]:
        return type(self), self._m

    def __repr__(self) -> str:
        values = ", ".join(f"{n}={v:.6g}" for n, v in zip(_NAMES, self._m))
        return f"MomentTensor({values})"

    def as_dict(self) -> dict[str, float]:
        """The six elements by name."""
        return dict(zip(_NAMES, self._m))

    @property
    def matrix(self) -> _Floats:
        """The tensor as an array [3, 3] in the order r, t, p."""
        rr, tt, pp, rt, rp, tp = self._m
        return np.array([[rr, rt, rp], [rt, tt, tp], [rp, tp, pp]])

    @property
    def ned(self) -> _Six:
        """mxx, myy, mzz, mxy, mxz, myz in the system x north, y east, z down."""
        return _ksutil._moment_to_ned(self._m)

    @property
    def moment(self) -> float:
        """Scalar moment, N m."""
        return _ksutil._moment_scalar(self._m)

    @property
    def dc_moment(self) -> float:
        """Moment of the best double couple, N m."""
        return _ksutil._moment_dc_scalar(self._m)

    @property
    def mw(self) -> float:
        """Moment magnitude; Error for a moment of 0."""
        return magnitude_of_moment(self.moment)

    @property
    def eigen(self) -> tuple[_Floats, _Floats]:
        """Eigenvalues [3], descending, and the unit vectors [3, 3] in r, t, p."""
        return _ksutil._moment_eigen(self._m)

    @property
    def axes(self) -> PrincipalAxes:
        """The axes T, N and P."""
        found = _ksutil._moment_axes(self._m)
        return PrincipalAxes(*(PrincipalAxis(*axis) for axis in found))

    @property
    def planes(self) -> tuple[NodalPlane, NodalPlane]:
        """Nodal planes of the best double couple, the one that dips less first.

        Error for a tensor whose eigenvalues are all equal.
        """
        first, second = _ksutil._moment_planes(self._m)
        return NodalPlane(*first), NodalPlane(*second)

    @property
    def parts(self) -> Parts:
        """Isotropic, double-couple and CLVD shares in percent."""
        return Parts(*_ksutil._moment_parts(self._m))

    def rotation(self, other: MomentTensor) -> float:
        """Least angle that turns the axes into those of another tensor, degrees."""
        return _ksutil._moment_rotation(self._m, other._m)

    def radiation(
        self, azimuth: npt.ArrayLike, takeoff: npt.ArrayLike
    ) -> Radiation:
        """Far-field radiation along rays, N m.

        azimuth  degrees clockwise from north
        takeoff  degrees from straight down, 0 to 180
        The arguments are broadcast; NaN where an angle is outside its range.  P is
        positive away from the source, SV where the take-off angle grows, SH
        clockwise seen from above.
        """
        (azimuths, takeoffs), shape = _spread(azimuth, takeoff)
        found = _ksutil._moment_radiation(self._m, azimuths, takeoffs)
        return Radiation(*(_shaped(values, shape) for values in found))

    def nodal_lines(
        self, hemisphere: str = "lower", projection: str = "equal-area"
    ) -> list[_Floats]:
        """Where the tensor radiates no P: pieces [n, 2] on the unit disk.

        x is east, y is north.  hemisphere: "lower" or "upper"; projection:
        "equal-area" or "stereographic".
        """
        return _ksutil._moment_nodal_lines(self._m, *_view(hemisphere, projection))

    def dc_nodal_lines(
        self, hemisphere: str = "lower", projection: str = "equal-area"
    ) -> list[_Floats]:
        """The two nodal planes of the best double couple; see nodal_lines."""
        return _ksutil._moment_dc_nodal_lines(self._m, *_view(hemisphere, projection))

    def outline(
        self, hemisphere: str = "lower", projection: str = "equal-area"
    ) -> list[_Floats]:
        """Edge of the area with compressional first motion: closed pieces [n, 2].

        A piece inside another one is a hole.  See nodal_lines.
        """
        return _ksutil._moment_outline(self._m, *_view(hemisphere, projection))

    @staticmethod
    def project(
        azimuth: npt.ArrayLike,
        plunge: npt.ArrayLike,
        hemisphere: str = "lower",
        projection: str = "equal-area",
    ) -> tuple[Any, Any]:
        """x (east) and y (north) on the unit disk of directions in degrees.

        plunge  -90 to 90, positive down; NaN for angles outside their range
        """
        (azimuths, plunges), shape = _spread(azimuth, plunge)
        x, y = _ksutil._moment_project(
            azimuths, plunges, *_view(hemisphere, projection)
        )
        return _shaped(x, shape), _shaped(y, shape)
