"""Live events: a server that keeps the events of a database current."""

from __future__ import annotations

import atexit
import os
import threading
import warnings
import weakref
from collections.abc import Callable, Iterable, Iterator
from types import TracebackType
from typing import Any

from . import _ksutil
from ._ksutil import (
    Association,
    Change,
    Changes,
    Detection,
    Event,
    EventList,
    EventQuery,
    EventStream,
    Magnitude,
    Moment,
    Origin,
    StationMagnitude,
    TableRow,
)

__all__ = [
    "Association",
    "Change",
    "Changes",
    "Detection",
    "Event",
    "EventList",
    "EventQuery",
    "EventServer",
    "EventStream",
    "Magnitude",
    "Moment",
    "Origin",
    "StationMagnitude",
    "TableRow",
    "events",
]

_Record = Event | Origin | Magnitude | StationMagnitude | Moment | Association
_Rule = str | tuple[str] | tuple[str, float, float]


def _rule_text(rule: _Rule) -> str:
    words = [rule] if isinstance(rule, str) else [str(word) for word in rule]
    text = " ".join(words)
    if not text.strip() or any(mark in text for mark in "{}\n\r#"):
        raise ValueError(f"not a rule for magnitudes: {rule!r}")
    return text


def _rules_text(rules: Iterable[_Rule] | None) -> str:
    """The rules as text of a parameter file; empty for None."""
    if rules is None:
        return ""
    if isinstance(rules, str):
        rules = [rules]
    lines = [_rule_text(rule) for rule in rules]
    return "\n".join(["preferred_magnitudes &Tbl{", *lines, "}", ""])


class _Callbacks:
    """The callbacks of a server; does not keep the server."""

    def __init__(self, changes: Changes) -> None:
        self.changes = changes
        self.functions: list[Callable[[Change], object]] = []
        self.thread: threading.Thread | None = None
        self.handed_over = False  # whether the thread leaves the changes to run()
        self.over = False

    def deliver(self, change: Change, thrown: type[BaseException]) -> None:
        """Calls all functions; reports the exceptions of the kind `thrown`."""
        for function in tuple(self.functions):
            if self.over:
                return
            if function not in self.functions:
                continue  # an earlier one has taken it out
            try:
                function(change)
            except thrown as error:
                _ksutil._report(function, error)

    def start(self) -> None:
        self.handed_over = False
        self.thread = threading.Thread(
            target=self._deliver_all, name="ksutil events", daemon=True
        )
        _dispatchers.add(self)
        self.thread.start()

    def _deliver_all(self) -> None:
        while not (self.handed_over or self.over):
            change = self.changes.get(timeout=0.2)
            if change is not None:
                self.deliver(change, BaseException)
            elif self.changes.closed:
                return

    def join(self, timeout: float | None = None) -> None:
        """Waits for the thread, unless this is the thread."""
        thread = self.thread
        if thread is not None and thread is not threading.current_thread():
            thread.join(timeout)


_dispatchers: weakref.WeakSet[_Callbacks] = weakref.WeakSet()


@atexit.register
def _end_all() -> None:
    """Ends the servers and streams that are left, while Python still runs."""
    dispatchers = list(_dispatchers)
    for callbacks in dispatchers:
        callbacks.over = True
    _ksutil._close_all()
    for callbacks in dispatchers:
        callbacks.join(2.0)


class EventServer:
    """The events of a database, kept current in memory.

    Use it with `with`, or call close(); at the end of the program it closes itself.
    Any thread may call any method.

    database              path of the database; reading needs no permission to write
    interval              seconds between its own looks at the database; 0: it looks
                          only in refresh()
    max_events            only the last events of the table; 0: all
    max_expanded          expanded events that it keeps current
    detections            whether it reads the table detection
    until_now             whether the window of detections ends now, not 10 s after
                          the latest event
    preferred_magnitudes  rules in their order: "mw", ("ml", 3.0, 5.0), ...
    queue                 changes that may wait for each reader before some are lost
    """

    def __init__(
        self,
        database: str | os.PathLike[str],
        *,
        interval: float = 2.0,
        max_events: int = 0,
        max_expanded: int = 100,
        detections: bool = True,
        until_now: bool = False,
        preferred_magnitudes: Iterable[_Rule] | None = None,
        queue: int = 100_000,
    ) -> None:
        if not interval >= 0.0:
            raise ValueError("interval must be 0 or above")
        if queue < 1:
            raise ValueError("queue must be 1 or above")
        self._lock = threading.Lock()
        self._callbacks: _Callbacks | None = None
        self._core = _ksutil._EventServer(
            os.fspath(database),
            interval=interval,
            max_events=max_events,
            max_expanded=max_expanded,
            detections=detections,
            until_now=until_now,
            queue=queue,
            preferred_magnitudes=_rules_text(preferred_magnitudes),
        )
        if self._core.news:
            warnings.warn(self._core.news, stacklevel=2)

    def __enter__(self) -> EventServer:
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        traceback: TracebackType | None,
    ) -> None:
        self.close()

    def __del__(self) -> None:
        callbacks = getattr(self, "_callbacks", None)
        if callbacks is not None:
            callbacks.over = True

    def close(self) -> None:
        """Ends the server; may be called by any thread, in a callback, and again.

        Waits for a callback in progress on another thread.  Lists, events and
        queries stay as they are; iterators over changes end.
        """
        callbacks = self._callbacks
        if callbacks is not None:
            callbacks.over = True
        self._core.close()
        if callbacks is not None:
            callbacks.join()

    @property
    def closed(self) -> bool:
        """Whether the server has been closed, or belongs to a parent process."""
        return self._core.closed

    @property
    def database(self) -> str:
        """Path of the database."""
        return self._core.database

    def __repr__(self) -> str:
        state = "closed" if self.closed else f"{len(self)} events"
        return f"EventServer({self.database!r}, {state})"

    # --- events ---

    @property
    def events(self) -> EventList:
        """The events as they are now, in the order of their rows."""
        return self._core.events

    def __len__(self) -> int:
        return len(self._core.events)

    def __bool__(self) -> bool:
        return True

    def __iter__(self) -> Iterator[Event]:
        return iter(self._core.events)

    def __contains__(self, evid: object) -> bool:
        return evid in self._core.events

    def __getitem__(self, evid: int) -> Event:
        """The event with this evid; else KeyError."""
        event = self._core.get(evid)
        if event is None:
            raise KeyError(evid)
        return event

    def get(self, evid: int) -> Event | None:
        """The event with this evid, or None."""
        return self._core.get(evid)

    def expanded(self, evid: int) -> Event:
        """An event with associations, station magnitudes and detections.

        Also one that `max_events` keeps out of the list; Error when there is none.
        """
        return self._core.expanded(evid)

    @property
    def most_recent(self) -> Event | None:
        """The event with the latest time."""
        evid = self._core.most_recent
        return None if evid is None else self._core.get(evid)

    @property
    def last_modified(self) -> Event | None:
        """The event whose rows were written last."""
        evid = self._core.last_modified
        return None if evid is None else self._core.get(evid)

    @property
    def detections(self) -> tuple[Detection, ...]:
        """The detections in the server's window."""
        return self._core.detections

    def query(self, text: str) -> EventQuery:
        """Compiles a query, such as "ml >= 4 && depth < 30"; Error with its place."""
        return self._core.query(text)

    def where(self, query: str) -> EventList:
        """The events for which a query is true."""
        return self.events.where(query)

    def sorted(self, query: str, *, reverse: bool = False) -> EventList:
        """The events in the order of a query; those without a value come first."""
        return self.events.sorted(query, reverse=reverse)

    def columns(
        self,
        *queries: str,
        where: str | None = None,
        datetime: bool = False,
    ) -> dict[str, Any]:
        """Fields or queries on all events, or those that `where` chooses, as arrays.

        See EventList.columns.
        """
        events = self.events if where is None else self.events.where(where)
        return events.columns(*queries, datetime=datetime)

    # --- changes ---

    def refresh(self, force: bool = False) -> None:
        """Reads what was written before the call; `force` reads everything anew.

        Error when the database cannot be read; the list stays as it is then, as it
        does when one of the server's own looks fails.
        """
        self._core.refresh(force)

    def changes(self, timeout: float | None = None) -> Changes:
        """The changes from now on, as an iterator with a queue of its own.

        It ends when no change comes for `timeout` seconds (None: it waits without a
        limit) and when the server is closed, which stays open as long as this lives.
        """
        return self._core.changes(timeout, self)

    def on_change(
        self, function: Callable[[Change], object]
    ) -> Callable[[Change], object]:
        """Calls function(change) for each change from now on; also a decorator.

        Callbacks run one at a time on a thread of the server, or on the one that
        calls run().  They may call any method of the server.  An exception goes to
        sys.unraisablehook, and the server goes on.
        """
        if not callable(function):
            raise TypeError("a callback must be callable")
        with self._lock:
            if self._callbacks is None:
                self._callbacks = _Callbacks(self._core.changes())
            callbacks = self._callbacks
            callbacks.functions.append(function)
            if callbacks.thread is None and not callbacks.handed_over:
                callbacks.start()
        return function

    def off_change(self, function: Callable[[Change], object]) -> None:
        """Calls the function no more; ValueError when it is not a callback."""
        callbacks = self._callbacks
        if callbacks is None:
            raise ValueError("not a callback of the server")
        callbacks.functions.remove(function)

    def run(self, timeout: float | None = None) -> None:
        """Runs the callbacks on this thread until the server is closed.

        With `timeout`, until no change comes for that many seconds.
        """
        with self._lock:
            if self._callbacks is None:
                self._callbacks = _Callbacks(self._core.changes())
            callbacks = self._callbacks
            if callbacks.handed_over or callbacks.thread is threading.current_thread():
                raise RuntimeError("the callbacks run already")
            callbacks.handed_over = True
        try:
            callbacks.join()
            callbacks.thread = None
            while not callbacks.over:
                change = callbacks.changes.get(timeout)
                if change is None:
                    return
                callbacks.deliver(change, Exception)
        finally:
            with self._lock:
                callbacks.handed_over = False
                if callbacks.functions and not callbacks.over:
                    callbacks.start()

    # --- commands ---

    def subset(self, table: str, expression: str) -> list[TableRow]:
        """The rows of a table for which an expression is true."""
        return self._core.subset(table, expression)

    def arrivals(
        self, sta: str = "", chan: str = "", *, tstart: float, tend: float
    ) -> list[TableRow]:
        """The arrivals in a window of epoch seconds, by time.

        sta, chan  shell patterns for the whole code; empty: any
        """
        return self._core.arrivals(sta, chan, tstart, tend)

    def waveforms(
        self,
        sta: str = "",
        chan: str = "",
        *,
        tstart: float,
        tend: float,
        inside: bool = False,
    ) -> list[TableRow]:
        """The rows of wfdisc that overlap a window, or lie inside it; by time."""
        return self._core.waveforms(sta, chan, tstart, tend, inside)

    def site(self, sta: str, time: float) -> TableRow | None:
        """The row of site that was valid for a station at a time, or None."""
        return self._core.site(sta, time)

    def next_id(self, key: str) -> int:
        """The next id of a counter, such as "orid", above all in use."""
        return self._core.next_id(key)

    def append(self, table: str, **values: object) -> int:
        """Adds a row; fields that are not given are null.  The record number."""
        return self._core.append(table, values)

    def update(self, row: TableRow | _Record, **values: object) -> None:
        """Writes fields of a row, or of the row that a record is made of.

        Error when the row has changed since it was read: nothing is written then.
        The server's list has the change after its next refresh.
        """
        stored = row if isinstance(row, TableRow) else row.row
        if stored is None:
            raise ValueError(f"{row!r} is not made of a row")
        self._core.update(stored, values)

    def set_preferred_origin(self, evid: int, orid: int) -> None:
        """Makes one of an event's origins the preferred one, and refreshes."""
        event = self[evid]
        if all(origin.orid != orid for origin in event.origins):
            raise ValueError(f"event {evid} has no origin {orid}")
        self.update(event, prefor=orid)
        self.refresh()


def events(
    database: str | os.PathLike[str], where: str | None = None, *, expand: bool = False
) -> EventStream:
    """Iterates over the events of a database without keeping a list of them.

    where   only the events for which this query is true
    expand  with associations, station magnitudes and detections
    All events are of one state of the database.
    """
    return EventStream(os.fspath(database), where or "", expand)
