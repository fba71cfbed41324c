"""bridges: exchange with ObsPy, through formats that both sides read.

ObsPy is imported when a function needs it.  Events travel as QuakeML, stations as
StationXML, waveforms as miniSEED.
"""

from __future__ import annotations

import io
from collections.abc import Iterable
from typing import Any

import numpy as np

from . import _optional
from ._ksutil import DataSet, Series, read_miniseed
from .exchange import (
    DatabaseLike,
    ExchangeReport,
    export_catalog,
    import_catalog,
)


def utcdatetime(seconds: float) -> Any:
    """Epoch seconds as an obspy.UTCDateTime."""
    return _optional.obspy().UTCDateTime(float(seconds))


def epoch_of_utcdatetime(time: Any) -> float:
    """Epoch seconds of an obspy.UTCDateTime."""
    return float(time.timestamp)


def database_to_obspy(
    database: DatabaseLike, what: str = "events", **selection: Any
) -> Any:
    """The events of a database as an obspy Catalog, or its stations as an Inventory.

    what       "events" or "stations"
    selection  of events: arguments of export_catalog()
    """
    obspy = _optional.obspy()
    if what == "events":
        content = export_catalog(database, format="quakeml", **selection)
        return obspy.read_events(io.BytesIO(content), format="QUAKEML")
    if what == "stations":
        content = export_catalog(database, format="stationxml")
        return obspy.read_inventory(io.BytesIO(content), format="STATIONXML")
    raise ValueError(f"what is 'events' or 'stations', not {what!r}")


def database_from_obspy(
    database: DatabaseLike, objects: Any, **options: Any
) -> ExchangeReport:
    """Brings a database up to date with an obspy Catalog, Event or Inventory.

    options  of import_catalog()
    """
    obspy = _optional.obspy()
    content = io.BytesIO()
    if hasattr(objects, "networks"):
        objects.write(content, format="STATIONXML")
        word = "stationxml"
    else:
        if not hasattr(objects, "events") and hasattr(objects, "origins"):
            objects = obspy.core.event.Catalog(events=[objects])
        objects.write(content, format="QUAKEML")
        word = "quakeml"
    return import_catalog(database, content.getvalue(), format=word, **options)


def series_to_obspy(series: Series) -> Any:
    """A series as an obspy Stream: a Trace for each piece between gaps."""
    return series_list_to_obspy([series])


def series_list_to_obspy(traces: Iterable[Series]) -> Any:
    """Several series as one obspy Stream."""
    obspy = _optional.obspy()
    content = b"".join(series.to_miniseed() for series in traces)
    if not content:
        return obspy.Stream()
    return obspy.read(io.BytesIO(content), format="MSEED")


def dataset_to_obspy(dataset: DataSet) -> Any:
    """All channels of a data set as an obspy Stream of counts."""
    return series_list_to_obspy(
        dataset.read(channel) for channel in range(len(dataset))
    )


def series_from_obspy(stream: Any) -> list[Series]:
    """The pieces of an obspy Stream or Trace as a list of series.

    Masked samples of a Trace split it.  Integers of 64 bits, which miniSEED lacks, travel
    as those of 32 bits where they fit, else as floats.
    """
    _optional.obspy()
    stream = stream.copy().split()
    for trace in getattr(stream, "traces", ()):
        if trace.data.dtype.kind in "iu" and trace.data.dtype.itemsize == 8:
            fits = bool(np.all(np.abs(trace.data) < 2**31))
            trace.data = trace.data.astype(np.int32 if fits else np.float64)
    content = io.BytesIO()
    stream.write(content, format="MSEED")
    return read_miniseed(content.getvalue())


def has_obspy() -> bool:
    """Whether ObsPy can be imported."""
    try:
        _optional.obspy()
    except ImportError:
        return False
    return True


__all__ = [
    "database_from_obspy",
    "database_to_obspy",
    "dataset_to_obspy",
    "epoch_of_utcdatetime",
    "has_obspy",
    "series_from_obspy",
    "series_list_to_obspy",
    "series_to_obspy",
    "utcdatetime",
]
