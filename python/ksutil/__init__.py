"""Seismic data processing: databases, events, waveforms, mechanisms, travel times."""

from ._ksutil import Error, __version__

__all__ = ["Error", "__version__"]
