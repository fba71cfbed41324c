"""times: converts epoch seconds to and from numpy's dates.

All times of the library are floats: seconds since 1970-01-01T00:00:00 UTC.
"""

from __future__ import annotations

import datetime
from typing import Any

import numpy as np
import numpy.typing as npt

ma: Any = np.ma  # which numpy leaves without types


def datetime64(seconds: npt.ArrayLike) -> Any:
    """Gives epoch seconds as datetime64[us], UTC, rounded to the microsecond.

    seconds  a number, or an array of any shape; NaN and masked values give NaT

    An array gives an array of its shape, a number one datetime64.
    """
    values = ma.filled(ma.asarray(seconds, dtype=np.float64), np.nan)
    known = np.isfinite(values)
    whole = np.floor(np.where(known, values, 0.0))
    micros = np.rint((np.where(known, values, 0.0) - whole) * 1e6)
    dates = (whole * 1e6 + micros).astype("int64").astype("datetime64[us]")
    dates = np.where(known, dates, np.datetime64("NaT", "us"))
    return dates[()]


def epoch_seconds(dates: Any) -> Any:
    """Gives dates as epoch seconds, a float or an array of them.

    dates  a datetime (without a zone it is UTC), a datetime64, a text that numpy
           reads as one, or an array of these; NaT gives NaN
    """
    if isinstance(dates, datetime.datetime):
        if dates.tzinfo is None:
            dates = dates.replace(tzinfo=datetime.timezone.utc)
        return dates.timestamp()
    values = np.asarray(dates)
    if values.dtype == object:
        if values.ndim == 0:
            raise TypeError(f"no date: {dates!r}")
        return np.array([epoch_seconds(each) for each in values.flat]).reshape(
            values.shape
        )
    values = values.astype("datetime64[us]")
    missing = np.isnat(values)
    seconds = np.where(missing, 0, values.astype("int64")) / 1e6
    return np.where(missing, np.nan, seconds)[()]
