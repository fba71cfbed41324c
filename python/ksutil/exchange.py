"""exchange: brings catalogues, stations and waveforms into databases, and out of them."""

from __future__ import annotations

import contextlib
import os
import shutil
import stat
import tempfile
import weakref
from collections.abc import Iterator, Mapping, Sequence
from dataclasses import dataclass, field
from typing import TYPE_CHECKING, Any, Protocol, Union, overload

from . import _ksutil

if TYPE_CHECKING:
    from .database import Database

Path = Union[str, "os.PathLike[str]"]
Source = Union[Path, bytes, bytearray, memoryview]


class _HasPath(Protocol):
    @property
    def path(self) -> str: ...


DatabaseLike = Union[Path, _HasPath]

_ENDINGS = {
    ".stationxml": "stationxml",
    ".csv": "csv",
    ".jsonl": "jsonl",
    ".ndjson": "jsonl",
    ".geojson": "geojson",
    ".json": "geojson",
    ".kml": "kml",
    ".quakeml": "quakeml",
    ".qml": "quakeml",
    ".xml": "quakeml",
    ".isf": "isf",
    ".fdsn": "fdsn",
}


@dataclass(frozen=True)
class ExchangeReport:
    """What an import or an export did, and what it left out.

    kind           "events", "stations" or "waveforms"
    counts         "added", "updated", "unchanged", "written" and the like, by name
    refused        records that could not be used, refusals the first 1000 of them:
                   (line, or file, and reason)
    without_place  values that the other side has no place for, with their counts
    """

    kind: str
    counts: Mapping[str, int]
    refused: int = 0
    refusals: Sequence[tuple[int | str, str]] = ()
    without_place: Mapping[str, int] = field(default_factory=dict)

    def __getattr__(self, name: str) -> int:
        counts = self.__dict__.get("counts", {})
        if name not in counts:
            raise AttributeError(f"the report of {self.kind} has no count '{name}'")
        return int(counts[name])

    def __repr__(self) -> str:
        texts = [f"{count} {name}" for name, count in self.counts.items() if count]
        if self.refused:
            texts.append(f"{self.refused} refused")
        if self.without_place:
            texts.append(f"{sum(self.without_place.values())} values without a place")
        return f"<ksutil.ExchangeReport {self.kind}: {', '.join(texts) or 'nothing'}>"


def _report(facts: dict[str, Any]) -> ExchangeReport:
    named = ("kind", "refused", "refusals", "without_place")
    return ExchangeReport(
        kind=facts["kind"],
        counts={name: facts[name] for name in facts if name not in named},
        refused=facts.get("refused", 0),
        refusals=tuple(facts.get("refusals", ())),
        without_place=facts.get("without_place", {}),
    )


def path_of_database(database: DatabaseLike) -> str:
    """The path of a Database, or a path as a text."""
    if isinstance(database, (str, os.PathLike)):
        return os.fspath(database)
    path: str = database.path
    return path


def formats() -> list[dict[str, Any]]:
    """The exchange formats: dicts with word, name, reads, writes and stations."""
    return _ksutil.exchange_formats()


def import_catalog(
    database: DatabaseLike,
    source: Source,
    *,
    format: str | None = None,
    after: float | None = None,
    before: float | None = None,
    min_magnitude: float | None = None,
    keep_origins: bool = False,
    strict: bool = False,
    dry_run: bool = False,
) -> ExchangeReport:
    """Brings a database up to date with a catalogue of events or stations, in one step.

    source         path or bytes
    format         a word of formats(); None: the content tells
    after, before  only events with after <= origin time < before, epoch seconds
    min_magnitude  only events of this magnitude and above
    keep_origins   a revised solution becomes a further origin, and the preferred one
    strict         Error, and nothing imported, when anything is refused or has no place
    dry_run        only counts what would be done

    An event that is imported again is updated and keeps its ids.
    """
    facts = _ksutil.exchange_import(
        path_of_database(database),
        source,
        format,
        after,
        before,
        min_magnitude,
        keep_origins,
        strict,
        dry_run,
    )
    return _report(facts)


def import_waveforms(
    database: DatabaseLike,
    source: Path,
    *,
    strict: bool = False,
    dry_run: bool = False,
) -> ExchangeReport:
    """Enters the miniSEED and SAC files of a folder, or one file, into a database."""
    return _report(
        _ksutil.exchange_import_waveforms(
            path_of_database(database), source, strict, dry_run
        )
    )


def read_catalog(
    source: Source,
    *,
    path: Path | None = None,
    schema: str = "css3.0",
    format: str | None = None,
    strict: bool = False,
) -> Database:
    """Reads a catalogue of events or stations into a new database, opened for writing.

    source  path or bytes
    path    of the database; None: a temporary one, which goes with the Database
    schema  of the database
    format  a word of formats(); None: the content tells

    The attribute import_report of the result says what was left out.
    """
    from .database import Database, create_database

    folder = None
    if path is None:
        folder = tempfile.mkdtemp(prefix="ksutil")
        path = os.path.join(folder, "catalog")
    try:
        create_database(path, schema)
        report = import_catalog(path, source, format=format, strict=strict)
        database = Database(path, "r+")
    except BaseException:
        if folder is not None:
            shutil.rmtree(folder, ignore_errors=True)
        raise
    database.import_report = report
    if folder is not None:
        weakref.finalize(database, _remove, folder, os.getpid())
    return database


def _remove(folder: str, process: int) -> None:
    """Removes the folder of a temporary database, unless a fork inherited it."""
    if os.getpid() == process:
        shutil.rmtree(folder, ignore_errors=True)


@overload
def export_catalog(
    database: DatabaseLike,
    target: None = None,
    *,
    format: str | None = None,
    after: float | None = None,
    before: float | None = None,
    min_magnitude: float | None = None,
    evids: Sequence[int] = (),
    where: str = "",
) -> bytes: ...


@overload
def export_catalog(
    database: DatabaseLike,
    target: Path,
    *,
    format: str | None = None,
    after: float | None = None,
    before: float | None = None,
    min_magnitude: float | None = None,
    evids: Sequence[int] = (),
    where: str = "",
) -> ExchangeReport: ...


def export_catalog(
    database: DatabaseLike,
    target: Path | None = None,
    *,
    format: str | None = None,
    after: float | None = None,
    before: float | None = None,
    min_magnitude: float | None = None,
    evids: Sequence[int] = (),
    where: str = "",
) -> bytes | ExchangeReport:
    """Writes the events of a database, in the order of their times, or its stations.

    target         path of a file, which is replaced when the new one is whole; the
                   report of what was left out is given back.  None: gives bytes back
    format         a word of formats(); None: the ending of the path tells
    after, before  only events with after <= origin time < before, epoch seconds
    min_magnitude  only events of this magnitude and above
    evids          only these events; empty: all
    where          only events for whose preferred origin this expression is true
    """
    if format is None and target is not None:
        ending = os.path.splitext(os.fspath(target))[1].lower()
        format = _ENDINGS.get(ending)
    if format is None:
        raise ValueError("format is needed: the name of the file does not tell it")
    name = path_of_database(database)
    choice = (after, before, min_magnitude, list(evids), where)
    if target is None:
        content, _ = _ksutil.exchange_export(name, format, -1, *choice)
        assert content is not None
        return content
    with _replaced(os.fspath(target)) as fd:
        _, facts = _ksutil.exchange_export(name, format, fd, *choice)
    return _report(facts)


@contextlib.contextmanager
def _replaced(path: str) -> Iterator[int]:
    """A descriptor of a new file, which replaces `path` when all has gone well."""
    path = os.path.realpath(path)
    if os.path.exists(path) and not stat.S_ISREG(os.stat(path).st_mode):
        fd = os.open(path, os.O_WRONLY)  # a pipe or a device
        try:
            yield fd
        finally:
            os.close(fd)
        return
    fd, beside = tempfile.mkstemp(
        prefix=os.path.basename(path) + ".", dir=os.path.dirname(path)
    )
    try:
        yield fd
        if os.path.exists(path):
            os.fchmod(fd, stat.S_IMODE(os.stat(path).st_mode))
        else:
            mask = os.umask(0)
            os.umask(mask)
            os.fchmod(fd, 0o666 & ~mask)
        os.fsync(fd)
        os.replace(beside, path)
    except BaseException:
        with contextlib.suppress(OSError):
            os.unlink(beside)
        raise
    finally:
        os.close(fd)
