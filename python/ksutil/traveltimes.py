"""Travel times of the public Earth models, and distances on the sphere."""

from __future__ import annotations

from typing import Any, NamedTuple

import numpy as np
import numpy.typing as npt

from . import _ksutil

__all__ = ["FirstArrivals", "distance_azimuth", "first_arrivals", "travel_times"]

_Floats = npt.NDArray[np.float64]


class FirstArrivals(NamedTuple):
    """First arrivals; each field has the shape of the arguments.

    time      s after the origin time; NaN where there is none
    slowness  s/degree; NaN where there is none
    phase     name of the phase, such as "Pn"; "" where there is none
    """

    time: Any
    slowness: Any
    phase: Any


def _spread(*arguments: npt.ArrayLike) -> tuple[list[_Floats], tuple[int, ...]]:
    """The arguments as flat arrays of one length, and their common shape."""
    arrays = np.broadcast_arrays(
        *(np.asarray(argument, dtype=np.float64) for argument in arguments)
    )
    flat = [np.ascontiguousarray(array).reshape(-1) for array in arrays]
    return flat, arrays[0].shape


def _shaped(values: npt.NDArray[Any], shape: tuple[int, ...]) -> Any:
    """The values in the shape of the arguments; one value for plain numbers."""
    return values[0] if shape == () else values.reshape(shape)


def travel_times(
    distance: npt.ArrayLike,
    depth: npt.ArrayLike,
    phase: str = "P",
    model: str = "iasp91",
) -> Any:
    """Times of the first arrivals in seconds after the origin time.

    distance  degrees, 0 to 360 (above 180: 360 - distance); any shape
    depth     km, -10 to 700 (above the surface counts as 0); any shape
    phase     "P": the first P-type arrival, "S": the first S-type arrival
    model     "iasp91" or "ak135"

    The arguments are broadcast; the result has their common shape, with NaN where an
    argument is outside its range or NaN.  For a receiver at the surface of a sphere.
    """
    (distances, depths), shape = _spread(distance, depth)
    return _shaped(_ksutil._travel_times(distances, depths, phase, model), shape)


def first_arrivals(
    distance: npt.ArrayLike,
    depth: npt.ArrayLike,
    phase: str = "P",
    model: str = "iasp91",
) -> FirstArrivals:
    """Times, slownesses and names of the first arrivals; see travel_times."""
    (distances, depths), shape = _spread(distance, depth)
    found = _ksutil._first_arrivals(distances, depths, phase, model)
    return FirstArrivals(*(_shaped(values, shape) for values in found))


def distance_azimuth(
    lat1: npt.ArrayLike, lon1: npt.ArrayLike, lat2: npt.ArrayLike, lon2: npt.ArrayLike
) -> tuple[Any, Any]:
    """Distance and azimuth from points 1 to points 2 on a sphere, in degrees.

    All arguments in degrees, north and east positive, of any shapes, which are
    broadcast.  Returns the distances, 0 to 180, and the directions at points 1
    towards points 2, clockwise from north in [0, 360); 0 for points that coincide.
    """
    points, shape = _spread(lat1, lon1, lat2, lon2)
    distances, azimuths = _ksutil._distance_azimuth(*points)
    return _shaped(distances, shape), _shaped(azimuths, shape)
