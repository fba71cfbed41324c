"""figures: pictures of the objects of the library, for notebooks and files."""

from __future__ import annotations

from collections.abc import Iterable, Sequence
from typing import Any

import numpy as np

from ._ksutil import (
    DataSet,
    Figure,
    Grid,
    History,
    Response,
    Sac,
    Series,
    Vector,
)

_TRACE = "#1f4073"
_PICK = "#cc1f1f"

Markers = Iterable[tuple[float, str]]


def _add_markers(figure: Figure, markers: Markers) -> None:
    for time, label in markers:
        figure.marker(time, label, colour=_PICK)


def _add_trace(figure: Figure, series: Series, title: str, ylabel: str) -> None:
    figure.panel(title, ylabel=ylabel, xscale="time")
    figure.line(
        series.data, start=series.time, step=series.dt, colour=_TRACE, width=0.8
    )


def _name(series: Series) -> str:
    if series.sta or series.chan:
        codes = (series.net, series.sta, series.loc, series.chan)
        return ".".join(codes if series.net or series.loc else codes[1::2])
    return series.name


def series_figure(
    series: Series,
    *,
    title: str | None = None,
    ylabel: str = "counts",
    markers: Markers = (),
    width: float = 900.0,
) -> Figure:
    """A seismogram; markers are pairs of an epoch time and a text, such as picks."""
    return traces_figure(
        [series], title=title, ylabel=ylabel, markers=markers, width=width
    )


def traces_figure(
    traces: Sequence[Series],
    *,
    title: str | None = None,
    ylabel: str = "counts",
    markers: Markers = (),
    width: float = 900.0,
) -> Figure:
    """Several seismograms, one under the other, over the same time."""
    if not traces:
        raise ValueError("no traces")
    markers = list(markers)
    alone = len(traces) == 1
    if title is None:
        title = _name(traces[0]) if alone else ""
    figure = Figure(title, width=width, shared_x=not alone)
    for number, series in enumerate(traces):
        label = ylabel if number == len(traces) // 2 else ""
        _add_trace(figure, series, "" if alone else _name(series), label)
        _add_markers(figure, markers)
    return figure


def dataset_figure(
    dataset: DataSet,
    channels: Iterable[Any] | None = None,
    *,
    title: str = "",
    motion: str | None = None,
    corners: tuple[float, float, float, float] | None = None,
    markers: Markers = (),
    width: float = 900.0,
) -> Figure:
    """The traces of a data set, one under the other.

    channels  which ones; None: all
    motion    "D", "V" or "A" draws ground motion, with the pre-filter `corners` (Hz)
    """
    chosen = range(len(dataset)) if channels is None else channels
    units = {None: "counts", "D": "m", "V": "m/s", "A": "m/s\N{SUPERSCRIPT TWO}"}
    if motion not in units:
        raise ValueError(f"motion must be 'D', 'V' or 'A', not {motion!r}")
    traces = [
        (
            dataset.read(channel)
            if motion is None
            else dataset.ground_motion(channel, motion=motion, corners=corners)
        )
        for channel in chosen
    ]
    return traces_figure(
        traces, title=title, ylabel=units[motion], markers=markers, width=width
    )


def sac_figure(sac: Sac, *, title: str | None = None, width: float = 900.0) -> Figure:
    """A seismogram with the times that its header marks: A, F, T0 to T9 and O."""
    figure = series_figure(sac.to_series(), title=title, ylabel="", width=width)
    begin, b = sac.time, sac.B
    if begin is None or b is None:
        return figure
    for name in ("O", "A", "F", *(f"T{i}" for i in range(10))):
        offset = getattr(sac, name)
        if offset is not None:
            label = getattr(sac, f"K{name}", None) or name
            figure.marker(begin - b + offset, str(label).strip(), colour=_PICK)
    return figure


def vector_figure(
    vector: Vector,
    *,
    title: str | None = None,
    xlabel: str = "",
    ylabel: str = "",
    xscale: str = "linear",
    yscale: str = "linear",
    points: bool = False,
    width: float = 900.0,
) -> Figure:
    """The columns of a vector as lines over x, or as points."""
    figure = Figure(vector.name if title is None else title, width=width)
    figure.panel(xlabel=xlabel, ylabel=ylabel, xscale=xscale, yscale=yscale)
    columns = vector.y.reshape(len(vector), -1)
    for number in range(columns.shape[1]):
        name = f"y{number}" if columns.shape[1] > 1 else ""
        if points:
            figure.points(vector.x, columns[:, number], name=name)
        else:
            figure.line(columns[:, number], vector.x, name=name)
    return figure


def history_figure(
    history: History,
    *,
    title: str | None = None,
    ylabel: str = "",
    width: float = 900.0,
) -> Figure:
    """The values of a history over time."""
    times, values = history.points()
    figure = Figure(history.name if title is None else title, width=width)
    figure.panel(ylabel=ylabel, xscale="time")
    figure.line(values, times)
    return figure


def grid_figure(
    grid: Grid,
    frame: int = 0,
    *,
    title: str | None = None,
    xlabel: str = "",
    ylabel: str = "",
    label: str = "",
    diverging: bool = False,
    width: float = 900.0,
) -> Figure:
    """One frame of a grid as coloured cells."""
    figure = Figure(grid.name if title is None else title, width=width)
    figure.panel(xlabel=xlabel or grid.xname, ylabel=ylabel)
    values = grid.values[frame]
    figure.mesh(grid.x, grid.y, values, label=label, diverging=diverging)
    return figure


def response_figure(
    response: Response,
    *,
    motion: str | None = None,
    low: float = 0.001,
    high: float = 100.0,
    title: str = "",
    width: float = 900.0,
) -> Figure:
    """Amplitude and phase over frequency.

    motion     "D", "V" or "A": the response to ground motion; None: to the input's unit
    low, high  Hz
    """
    if not 0.0 < low < high:
        raise ValueError("low and high must be above 0, and ascend")
    frequencies = np.geomspace(low, high, 800)
    if motion is None:
        values = response.evaluate(frequencies)
        unit = f"{response.output_unit} / ({response.input_unit})"
    else:
        values = response.ground(frequencies, motion)
        unit = "counts / (" + {"D": "m", "V": "m/s", "A": "m/s^2"}[motion] + ")"
    phases = np.degrees(np.angle(values))
    return _curves(frequencies, np.abs(values), phases, unit, title, width)


def channel_response_figure(
    dataset: DataSet,
    channel: Any = 0,
    *,
    motion: str = "V",
    low: float = 0.001,
    high: float = 100.0,
    title: str | None = None,
    width: float = 900.0,
) -> Figure:
    """Amplitude and phase of a channel of a data set, with its calibration.

    motion     "D", "V" or "A": the response to ground motion
    low, high  Hz
    """
    curve = dataset.response_curve(channel, motion=motion, low=low, high=high, n=800)
    unit = "counts / (" + {"D": "m", "V": "m/s", "A": "m/s^2"}[motion] + ")"
    if title is None:
        facts = dataset[channel]
        title = f"{facts.sta}.{facts.chan}"
    return _curves(*curve, unit, title, width)


def _curves(
    frequencies: Any,
    amplitudes: Any,
    phases: Any,
    unit: str,
    title: str,
    width: float,
) -> Figure:
    figure = Figure(title, width=width, shared_x=True)
    figure.panel(
        xlabel="frequency (Hz)",
        ylabel=f"amplitude ({unit})",
        xscale="log",
        yscale="log",
    )
    figure.line(amplitudes, frequencies, colour=_TRACE)
    figure.panel(xlabel="frequency (Hz)", ylabel="phase (degrees)", xscale="log")
    figure.line(phases, frequencies, colour=_TRACE)
    return figure


def mechanism_figure(
    tensor: Sequence[float],
    *,
    title: str = "",
    size: float = 240.0,
    fill: str | None = None,
    upper: bool = False,
    planes: bool = True,
    axes: bool = True,
) -> Figure:
    """The focal sphere of a moment tensor: mrr, mtt, mpp, mrt, mrp, mtp in N m.

    size  diameter in pixels; further arguments as of Figure.mechanism
    """
    figure = Figure(title, width=size + 60.0)
    figure.panel(bare=True, xlim=(-1.0, 1.0), ylim=(-1.0, 1.0), height=size + 20.0)
    figure.mechanism(
        tuple(tensor), size=size, fill=fill, upper=upper, planes=planes, axes=axes
    )
    return figure


def event_map(
    lons: Any,
    lats: Any,
    magnitudes: Any = None,
    *,
    stations: tuple[Any, Any] | None = None,
    title: str = "",
    projection: str = "plate-carree",
    extent: tuple[float, float, float, float] | None = None,
    width: float = 900.0,
) -> Figure:
    """Epicentres on a map with coast lines.

    lons, lats   arrays [n], degrees
    magnitudes   [n], sizes of the symbols; None: one size
    stations     (lons, lats) of triangles
    extent       (west, east, south, north)
    """
    figure = Figure(title, width=width)
    figure.map(projection=projection, extent=extent)
    if stations is not None:
        figure.points(
            stations[0],
            stations[1],
            symbol="triangle",
            size=8.0,
            colour="#555555",
            name="stations",
        )
    if magnitudes is None:
        sizes: Any = 6.0
    else:
        if hasattr(magnitudes, "filled"):
            magnitudes = magnitudes.filled(np.nan)
        known = np.nan_to_num(np.asarray(magnitudes, dtype=float), nan=0.0)
        sizes = 3.0 + 2.0 * np.clip(known, 0.0, 9.0)
    figure.points(lons, lats, size=sizes, colour=_PICK, name="events")
    return figure
