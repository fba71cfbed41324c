"""database: databases of CSS tables as numpy columns, rows and pandas frames.

Nulls: an integer column with nulls is a masked array, a real or time column has NaN,
a text column has None; a single value that is null is None.
"""

from __future__ import annotations

import html
import os
import warnings
from collections.abc import Iterable, Iterator, Mapping
from types import TracebackType
from typing import Any, NamedTuple, Union, overload

import numpy as np
import numpy.typing as npt

from . import _ksutil, _optional, bridges, exchange
from ._input import column_input, rows_input
from .times import datetime64, ma

Value = Union[int, float, str, None]

_FIRST_WINDOW, _LARGEST_WINDOW = 256, 16384  # rows that an iteration reads at once
_SHOWN_ROWS = 10


class UnreadableWarning(UserWarning):
    """Records of a table hold values that cannot be read; Database.verify() lists them."""


class Field(NamedTuple):
    """A field of a table: its name, kind, width in characters, null and meaning.

    kind is integer, real, text, time, date (a load date) or day (YYYYDDD).
    """

    name: str
    kind: str
    width: int
    null: str
    meaning: str


class Finding(NamedTuple):
    """A problem that Database.verify found.

    record  the number of the record, None for the table as a whole
    total   how many problems of this kind the table has, those not listed included
    """

    table: str
    kind: str
    record: int | None
    text: str
    total: int


class Row(Mapping[str, Value]):
    """The values of one record, by the names of the fields; never changes.

    row["lat"] and row.lat are the same; nulls are None.
    """

    __slots__ = ("_names", "_values", "_tables", "_stored")

    def __init__(
        self,
        names: dict[str, int],
        values: tuple[Value, ...],
        tables: tuple[str, ...],
        stored: tuple[int, bytes] | None,
    ) -> None:
        self._names = names
        self._values = values
        self._tables = tables
        self._stored = stored

    @property
    def record(self) -> int | None:
        """The number of the record in its table; None for a record of a join."""
        return None if self._stored is None else self._stored[0]

    def __getitem__(self, name: str) -> Value:
        return self._values[self._names[name]]

    def __getattr__(self, name: str) -> Value:
        if not name.startswith("__") and name in self._names:
            return self._values[self._names[name]]
        raise AttributeError(f"the row has no field '{name}'")

    def __iter__(self) -> Iterator[str]:
        return iter(self._names)

    def __len__(self) -> int:
        return len(self._names)

    def as_dict(self) -> dict[str, Value]:
        """The values in a new dictionary."""
        return dict(self)

    def __dir__(self) -> list[str]:
        return [*super().__dir__(), *self._names]

    def __repr__(self) -> str:
        shown = ", ".join(f"{name}={value!r}" for name, value in self.items())
        return f"<Row of {'+'.join(self._tables)}: {shown}>"


class Rows:
    """Records of a table or view, in order: all of a View, or a slice of it."""

    def __init__(
        self,
        core: _ksutil.View,
        records: range | None,
        seen: _ksutil.SeenRows | None = None,
    ) -> None:
        self._core = core
        self._range = records
        self._seen = seen  # what Table.update and remove compare the rows with
        if seen is None and records is not None:
            start, count, _ = _span(records)
            self._seen = core.see(start, start + count)

    def _records(self) -> range:
        return range(self._core.count()) if self._range is None else self._range

    @property
    def tables(self) -> tuple[str, ...]:
        """The names of the stored tables behind the records."""
        return tuple(self._core.tables)

    @property
    def fields(self) -> tuple[str, ...]:
        """The names of the fields; one that an earlier table has too is "table.field"."""
        return tuple(self._core.fields())

    def describe(self) -> list[Field]:
        """The fields with their kinds, widths, nulls and meanings."""
        return [Field(*each) for each in self._core.describe()]

    def __len__(self) -> int:
        return len(self._records())

    @overload
    def __getitem__(self, key: int) -> Row: ...

    @overload
    def __getitem__(self, key: slice) -> Rows: ...

    @overload
    def __getitem__(self, key: str) -> npt.NDArray[Any]: ...

    def __getitem__(self, key: int | slice | str) -> Row | Rows | npt.NDArray[Any]:
        """view[3] is a Row, view[10:20] are Rows, view["lat"] is a column."""
        if isinstance(key, str):
            return self.column(key)
        if isinstance(key, slice):
            return Rows(self._core, self._records()[key], self._seen)
        record = self._records()[key]
        found = self._read_rows(self.fields, range(record, record + 1))
        if not found:
            raise IndexError("the table has fewer records now")
        return found[0]

    def __iter__(self) -> Iterator[Row]:
        records, names = self._records(), self.fields
        size, done = _FIRST_WINDOW, 0
        while done < len(records):
            window = self._read_rows(names, records[done : done + size])
            yield from window
            if not window:
                return  # rows were removed meanwhile
            done += size
            size = min(2 * size, _LARGEST_WINDOW)

    def _read_rows(self, names: tuple[str, ...], records: range) -> list[Row]:
        start, count, step = _span(records)
        values, stored, bad = self._core.rows(list(names), start, count)
        _warn_of_unreadable(bad, self.tables)
        places = {name: place for place, name in enumerate(names)}
        rows = [
            Row(places, each, self.tables, None if stored is None else stored[i])
            for i, each in enumerate(values)
        ]
        return rows if step is None else rows[step]

    def columns(
        self, *names: str, datetime: bool = False
    ) -> dict[str, npt.NDArray[Any]]:
        """Reads fields of all records as numpy arrays, by name.

        names     fields, "lat" or "origin.lat", or expressions over fields,
                  "ml + 0.2"; all fields when none is given
        datetime  gives times as datetime64[us] instead of float64 epoch seconds

        Each array has the shape [len(self)]: int64, masked where there are nulls;
        float64 with NaN for nulls; objects, str or None, for texts; bool for
        conditions, False for nulls.  A value that cannot be read is a null, with an
        UnreadableWarning.
        """
        start, count, step = _span(self._range)
        arrays, times, bad = self._core.columns(
            list(names) if names else self._core.fields(), start, count
        )
        _warn_of_unreadable(bad, self.tables)
        if step is not None:
            arrays = {name: array[step] for name, array in arrays.items()}
        if datetime:
            for name in times:
                arrays[name] = datetime64(arrays[name])
        return arrays

    def column(self, name: str, *, datetime: bool = False) -> npt.NDArray[Any]:
        """Reads one field, or an expression, of all records; see columns."""
        return self.columns(name, datetime=datetime)[name]

    def to_pandas(self, *names: str, datetime: bool = False) -> Any:
        """Gives a pandas.DataFrame with a column for each field; see columns.

        Integers with nulls have pandas' type Int64.
        """
        pandas = _optional.pandas()

        frame = {}
        for name, array in self.columns(*names, datetime=datetime).items():
            if isinstance(array, np.ma.MaskedArray):
                frame[name] = pandas.arrays.IntegerArray(
                    ma.getdata(array), ma.getmaskarray(array)
                )
            else:
                frame[name] = array
        return pandas.DataFrame(frame)

    def __repr__(self) -> str:
        name = type(self).__name__
        try:
            return f"<{name} of {'+'.join(self.tables)}: {len(self)} rows>"
        except _ksutil.Error:
            return f"<{name} of {'+'.join(self.tables)}: closed>"

    def _repr_html_(self) -> str:
        def cells(tag: str, values: Iterable[Any]) -> str:
            return "".join(
                f"<{tag}>{'' if each is None else html.escape(str(each))}</{tag}>"
                for each in values
            )

        rows = "".join(
            f"<tr>{cells('td', row.values())}</tr>" for row in self[:_SHOWN_ROWS]
        )
        return (
            f"<table><thead><tr>{cells('th', self.fields)}</tr></thead>"
            f"<tbody>{rows}</tbody></table><p>{html.escape(repr(self)[1:-1])}</p>"
        )


class View(Rows):
    """Records of a table or of several joined ones, chosen and put in order.

    Which records these are is settled when the view is made; their values are read
    when they are used.  A view lives as long as its Database is open.
    """

    def where(self, condition: str) -> View:
        """The records for which an expression is true; a null is not true."""
        return self._derived(*self._core.subset(condition))

    subset = where

    def sort(self, *keys: str, reverse: bool = False, unique: bool = False) -> View:
        """The records in the order of fields or expressions, nulls first.

        reverse  puts the greatest first
        unique   keeps the first of records with equal keys
        """
        if not keys:
            raise TypeError("sort needs at least one field")
        return self._derived(*self._core.sort(list(keys), reverse, unique))

    def join(
        self,
        other: View,
        on: str | Iterable[str] | None = None,
        *,
        left: Iterable[str] | None = None,
        right: Iterable[str] | None = None,
    ) -> View:
        """Each record with each record of another view that matches it.

        on           fields that are equal on both sides; by default the keys that the
                     tables share
        left, right  what is compared, item by item: fields, expressions, or ranges
                     "time::endtime", which match when they overlap
        """
        if on is not None:
            if left is not None or right is not None:
                raise TypeError("give on, or left and right")
            left = right = [on] if isinstance(on, str) else list(on)
        core = self._core.join(
            other._core,
            None if left is None else list(left),
            None if right is None else list(right),
        )
        return self._derived(*core)

    def group(self, *keys: str) -> Groups:
        """The runs of neighbours with equal fields or expressions.

        Sort by the keys first to have one group for each value.
        """
        if not keys:
            raise TypeError("group needs at least one field")
        core, left_out = self._core.group(list(keys))
        _warn_of_unreadable(left_out, self.tables)
        return Groups(core, self._core)

    def records(self, table: str | None = None) -> npt.NDArray[np.int64]:
        """The numbers of the records in a stored table, [len(self)]."""
        return self._core.records(self.tables[0] if table is None else table)

    @staticmethod
    def _derived(core: _ksutil.View, left_out: int) -> View:
        _warn_of_unreadable(left_out, core.tables)
        return View(core, None)


class Groups(View):
    """One record for each group, the first of it; made by View.group."""

    def __init__(self, core: _ksutil.View, source: _ksutil.View) -> None:
        super().__init__(core, None)
        self._source = source

    @property
    def ranges(self) -> npt.NDArray[np.int64]:
        """Start and end (one beyond) of each group in the grouped view, [n, 2]."""
        return self._core.group_ranges()

    @property
    def sizes(self) -> npt.NDArray[np.int64]:
        """The number of records in each group, [n]."""
        ranges = self.ranges
        return ranges[:, 1] - ranges[:, 0]

    def members(self) -> Iterator[Rows]:
        """The records of each group."""
        seen = self._core.see(0, 0)
        for start, end in self.ranges:
            yield Rows(self._source, range(int(start), int(end)), seen)


class Table(View):
    """A stored table; len and reads show its rows as they are at that moment."""

    def __init__(self, core: _ksutil.View) -> None:
        super().__init__(core, None)

    @property
    def name(self) -> str:
        """The name of the table."""
        return self.tables[0]

    def append(self, *, force: bool = False, **values: Any) -> Row:
        """Adds a row, with a new id where none is given, and gives it back.

        values  by field: numbers, texts, None for a null; a datetime or a date text
                for a time.  Fields that are not named are null; lddate is now.
        force   adds a row whose key is null or that of another row

        Raises Error when a value does not fit its field or the key is in use.  All
        rows of the table are looked at for the key: add many rows by append_rows.
        """
        columns = {name: column_input(name, value) for name, value in values.items()}
        if any(len(column[1]) != 1 for column in columns.values()):
            raise TypeError("append takes one value for each field; see append_rows")
        return self[_ksutil.append_rows(self._core, columns, 1, force)]

    def append_rows(self, rows: Any, *, force: bool = False) -> range:
        """Adds rows in one step, all or none of them; gives their record numbers.

        rows  a pandas.DataFrame, or a mapping of fields to arrays or lists of one
              length, or single values for all rows; see append
        """
        columns, count = rows_input(rows)
        first = _ksutil.append_rows(self._core, columns, count, force)
        return range(first, first + count)

    def update(self, rows: Any, *, force: bool = False, **values: Any) -> int:
        """Changes fields of rows, all or none of them; gives how many have changed.

        rows    a Row, the number of a record, a sequence of these, or a View of this
                table or a slice.  Error is raised, and nothing done, when one of the
                rows has changed since the Row was read, or the View or slice made
        values  by field, as for append; an array or list has a value for each row, and
                of a record that is named twice the last one counts
        force   allows keys of other rows, and keys that rows of other tables refer to
        """
        if not values:
            raise TypeError("update needs values")
        records, expected = self._chosen(rows)
        columns = {name: column_input(name, value) for name, value in values.items()}
        return _ksutil.update_rows(self._core, records, expected, columns, force)

    def remove(self, rows: Any, *, force: bool = False) -> int:
        """Removes rows, all or none of them; gives how many.

        rows   as for update.  The records behind them get lower numbers
        force  removes rows that rows of other tables refer to, too
        """
        records, expected = self._chosen(rows)
        return _ksutil.remove_rows(self._core, records, expected, force)

    def _chosen(
        self, rows: Any
    ) -> tuple[list[int], list[bytes | None] | tuple[_ksutil.SeenRows | None, int]]:
        """Numbers of records, with what is known of their rows."""
        if isinstance(rows, Rows):
            return self._chosen_of(rows[:] if isinstance(rows, Table) else rows)
        if isinstance(rows, (Row, int, np.integer)):
            rows = [rows]
        records: list[int] = []
        texts: list[bytes | None] = []
        for row in rows:
            if isinstance(row, Row):
                if row._stored is None or row._tables != (self.name,):
                    raise ValueError(f"not a row of {self.name}: {row!r}")
                records.append(row._stored[0])
                texts.append(row._stored[1])
            elif isinstance(row, (int, np.integer)) and not isinstance(row, bool):
                records.append(int(row))
                texts.append(None)
            else:
                raise TypeError("rows are Rows, numbers of records, or a View")
        return records, texts

    def _chosen_of(
        self, rows: Rows
    ) -> tuple[list[int], tuple[_ksutil.SeenRows | None, int]]:
        """The same for a view or a slice."""
        core = rows._core
        if core.handle is not self._core.handle:
            raise ValueError("the rows are those of another Database")
        if rows._range is not None and rows.tables != (self.name,):
            raise ValueError(f"not rows of {self.name}: {rows!r}")
        if core.is_table:
            return list(rows._records()), (rows._seen, 0)
        start, count, step = _span(rows._range)
        numbers = core.records(self.name)
        if count >= 0:
            numbers = numbers[start : start + count]
        if step is not None:
            numbers = numbers[step]
        seen = core.see(0, 0) if rows._seen is None else rows._seen
        return numbers.tolist(), (seen, rows.tables.index(self.name))


class Database:
    """An open database.

    path  of its descriptor file, or of its tables without their ending.  A descriptor
          may also name a database on a PostgreSQL server
    mode  "r", or "r+" to write

    A context manager; may be used from any thread.  Tables and views of a closed
    database raise Error.
    """

    #: What read_catalog() brought in; None for a database opened otherwise.
    import_report: exchange.ExchangeReport | None = None

    def __init__(self, path: str | os.PathLike[str], mode: str = "r") -> None:
        self._handle = _ksutil.Handle(os.fspath(path), mode)
        if self._handle.news:
            warnings.warn(self._handle.news, stacklevel=2)

    def __enter__(self) -> Database:
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        trace: TracebackType | None,
    ) -> None:
        self.close()

    def close(self) -> None:
        """Closes the database; a second call does nothing."""
        self._handle.close()

    @property
    def closed(self) -> bool:
        """Whether the database has been closed."""
        return self._handle.closed

    @property
    def path(self) -> str:
        """The path under which it was opened."""
        return self._handle.path

    @property
    def mode(self) -> str:
        """ "r" or "r+"."""
        return self._handle.mode

    @property
    def schema(self) -> str:
        """The name of the schema."""
        return self._handle.schema

    @property
    def store(self) -> str:
        """Where the tables are kept, in words; never a password."""
        return self._handle.store

    @property
    def tables(self) -> dict[str, int]:
        """The tables that have rows, with their numbers of rows."""
        return self._handle.tables(False)

    @property
    def all_tables(self) -> tuple[str, ...]:
        """The names of all tables of the schema."""
        return tuple(self._handle.tables(True))

    def table(self, name: str) -> Table:
        """A table of the schema; KeyError when there is none of that name."""
        return Table(self._handle.table(name))

    def __getitem__(self, name: str) -> Table:
        return self.table(name)

    def join(self, *tables: str) -> View:
        """The tables joined one after another by the keys that they share."""
        if not tables:
            raise TypeError("join needs at least one table")
        view: View = self.table(tables[0])
        for name in tables[1:]:
            view = view.join(self.table(name))
        return view

    def next_id(self, counter: str, count: int = 1) -> int:
        """Takes ids of a counter ("orid", "evid"), above all in use.

        The first of `count` consecutive ids; no other call in any process gets them.
        """
        return self._handle.next_id(counter, count)

    def verify(self, limit: int = 100) -> list[Finding]:
        """Looks for unreadable records, repeated ids, dangling references, bad load
        dates, waveform files that are not there, and the like; [] when all is well.

        limit  how many problems of each kind and table are listed at most
        """
        return [
            Finding(table, kind, None if record < 0 else record, text, count)
            for table, kind, count, problems in _ksutil.verify(self.path, limit)
            for record, text in problems
        ]

    def import_catalog(
        self, source: exchange.Source, **options: Any
    ) -> exchange.ExchangeReport:
        """Brings the database up to date with a catalogue of events or stations.

        source   path or bytes
        options  of ksutil.import_catalog
        """
        return exchange.import_catalog(self, source, **options)

    def import_waveforms(
        self, source: exchange.Path, **options: Any
    ) -> exchange.ExchangeReport:
        """Enters miniSEED and SAC files into the database: a file or a folder."""
        return exchange.import_waveforms(self, source, **options)

    def export(self, target: exchange.Path | None = None, **options: Any) -> Any:
        """Writes events or stations in an exchange format.

        target   path, and gives a report; None: gives bytes
        options  of ksutil.export_catalog
        """
        return exchange.export_catalog(self, target, **options)

    def to_obspy(self, what: str = "events", **selection: Any) -> Any:
        """The events as an obspy Catalog, or the stations as an Inventory.

        what       "events" or "stations"
        selection  of events: options of ksutil.export_catalog
        """
        return bridges.database_to_obspy(self, what, **selection)

    def from_obspy(self, objects: Any, **options: Any) -> exchange.ExchangeReport:
        """Brings the database up to date with an obspy Catalog, Event or Inventory."""
        return bridges.database_from_obspy(self, objects, **options)

    def __repr__(self) -> str:
        state = "closed" if self.closed else f"mode {self.mode!r}"
        return f"<Database {self.path!r}: {state}>"

    def _repr_html_(self) -> str:
        rows = "".join(
            f"<tr><td>{html.escape(name)}</td><td>{count}</td></tr>"
            for name, count in self.tables.items()
        )
        return (
            f"<p>{html.escape(self.path)}</p><table><thead><tr><th>table</th>"
            f"<th>rows</th></tr></thead><tbody>{rows}</tbody></table>"
        )


def create_database(
    path: str | os.PathLike[str], schema: str = "css3.0", *, mode: str = "r+"
) -> Database:
    """Makes an empty database of a schema at a path, and opens it.

    schema  one of ksutil.schemas(), or a schema file of KSUTIL_SCHEMA_PATH
    """
    _ksutil.create_database(os.fspath(path), schema)
    return Database(path, mode)


def schemas() -> list[str]:
    """The names of the built-in schemas, the default one first."""
    return _ksutil.builtin_schemas()


def _span(records: range | None) -> tuple[int, int, slice | None]:
    """Start and count of the records around a range, and what to take of them."""
    if records is None:
        return 0, -1, None
    if len(records) == 0:
        return 0, 0, None
    low, high = min(records[0], records[-1]), max(records[0], records[-1])
    step = None if records.step == 1 else slice(None, None, records.step)
    return low, high - low + 1, step


def _warn_of_unreadable(count: int, tables: Iterable[str]) -> None:
    if count > 0:
        warnings.warn(
            f"{'+'.join(tables)}: {count} records hold values that cannot be read; "
            "see Database.verify()",
            UnreadableWarning,
            stacklevel=4,
        )
