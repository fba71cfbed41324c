"""signal: filters, resamples, rotates and looks at evenly spaced samples in arrays.

Samples are arrays [n]; masked and non-finite elements, and values above 1e30, are gaps.
Results have NaN for gaps.  Arguments are never changed; the GIL is released.
"""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any

import numpy as np
import numpy.typing as npt

from . import _ksutil
from ._ksutil import Response

Samples = npt.NDArray[np.float64]


def filter(
    samples: Any,
    samprate: float,
    *,
    low: float = 0.0,
    high: float = 0.0,
    order: int = 4,
    zero_phase: bool = False,
) -> Samples:
    """Filters samples [n] with a Butterworth filter.

    samprate    Hz
    low, high   corners in Hz: low alone passes what is above it, high alone what is below
                it, both what is between them
    order       1 to 10
    zero_phase  forward and backward, without a phase shift
    """
    return _ksutil.signal_filter(
        samples, samprate, low=low, high=high, order=order, zero_phase=zero_phase
    )


def resample(samples: Any, samprate: float, new_samprate: float) -> Samples:
    """Samples [n] at another rate (Hz), through a windowed sinc without aliasing."""
    return _ksutil.signal_resample(samples, samprate, new_samprate)


def rotate(
    components: Sequence[Any],
    orientations: Sequence[tuple[float, float]],
    seaz: float,
) -> tuple[Samples, Samples, Samples]:
    """Three components [n] each as up, radial and transverse motion (Z, R, T).

    orientations  (hang, vang) of each: degrees clockwise from north, and from upward
    seaz          azimuth of the event at the station, degrees: R points away from it
    """
    return _ksutil.signal_rotate(components, orientations, seaz)


def psd(
    samples: Any, samprate: float, *, piece: int = 4096
) -> tuple[Samples, Samples]:
    """Power spectral density: (frequencies in Hz, density in unit^2/Hz), [piece / 2] each.

    piece  samples of a piece, cut down to a power of two and to n; pieces with gaps are
           left out
    """
    if piece < 16:
        raise ValueError("piece must be 16 or more")
    return _ksutil.signal_spectrum(samples, samprate, piece)


def onsets(
    samples: Any,
    samprate: float,
    *,
    sta: float = 1.0,
    lta: float = 10.0,
    ratio: float = 6.0,
    off: float = 2.0,
) -> tuple[npt.NDArray[np.int64], Samples]:
    """Onsets by the ratio of mean energies: (indices of samples, ratios).

    sta, lta  the short window and the long one before it, s
    ratio     from which on an onset begins
    off       below which the next onset may begin
    """
    return _ksutil.signal_onsets(
        samples, samprate, sta=sta, lta=lta, ratio=ratio, off=off
    )


def remove_response(
    samples: Any,
    samprate: float,
    response: Response,
    *,
    motion: str = "V",
    corners: tuple[float, float, float, float] | None = None,
    water_level: float = 0.0,
    taper: float = 0.05,
) -> Samples:
    """Counts [n] as ground motion: what went into the instrument.

    motion       "D", "V" or "A": m, m/s or m/s^2
    corners      four ascending frequencies (Hz) of a pre-filter, or None
    water_level  dB below the largest response in the pass band; 0: none
    taper        part of the samples at each end that is tapered, 0 to 0.5
    """
    return _ksutil.signal_remove_response(
        samples,
        samprate,
        response,
        motion=motion,
        corners=corners,
        water_level=water_level,
        taper=taper,
    )
