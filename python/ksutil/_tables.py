"""Tables of events for notebooks and pandas."""

from __future__ import annotations

import html
from collections.abc import Sequence
from datetime import datetime, timezone
from typing import TYPE_CHECKING, Any

from . import _optional
from .times import ma

if TYPE_CHECKING:
    from ._ksutil import EventList, Figure

USUAL = ("evid", "time", "lat", "lon", "depth", "magnitude", "magtype")
SHOWN = 20  # rows of a list in a notebook


def _cell(name: str, value: object) -> str:
    if value is None:
        return ""
    if name in ("time", "endtime", "lddate") and isinstance(value, float):
        try:
            moment = datetime.fromtimestamp(value, timezone.utc)
        except (OverflowError, ValueError, OSError):
            return html.escape(repr(value))
        return moment.strftime("%Y-%m-%d %H:%M:%S.%f")[:-3]
    return html.escape(str(value))


def _row(cells: Sequence[str], tag: str = "td") -> str:
    return "<tr>" + "".join(f"<{tag}>{cell}</{tag}>" for cell in cells) + "</tr>"


def record_table(record: Any) -> str:
    """The fields of a record, and how many records are below it, as HTML."""
    rows = []
    for name, value in record.as_dict().items():
        shown = str(len(value)) if isinstance(value, list) else _cell(name, value)
        rows.append(_row([f"<b>{html.escape(name)}</b>", shown]))
    return "<table>" + "".join(rows) + "</table>"


def list_table(events: EventList) -> str:
    """The first events of a list as HTML."""
    rows = [_row(USUAL, "th")]
    for event in events[:SHOWN]:
        rows.append(_row([_cell(name, getattr(event, name)) for name in USUAL]))
    more = len(events) - SHOWN
    end = f"<p>and {more} more</p>" if more > 0 else ""
    return "<table>" + "".join(rows) + "</table>" + end


def map_figure(events: EventList, **options: Any) -> Figure:
    """The events on a map; `options` as of ksutil.figures.event_map."""
    from .figures import event_map

    columns = events.columns("lon", "lat", "magnitude")
    return event_map(columns["lon"], columns["lat"], columns["magnitude"], **options)


def frame(events: EventList, queries: Sequence[str], datetime: bool) -> Any:
    """The columns of a list as a pandas.DataFrame; integers with nulls as Int64."""
    pandas = _optional.pandas()

    columns = {}
    for name, array in events.columns(*(queries or USUAL), datetime=datetime).items():
        if isinstance(array, ma.MaskedArray):
            columns[name] = pandas.arrays.IntegerArray(array.filled(), array.mask)
        else:
            columns[name] = array
    return pandas.DataFrame(columns)
