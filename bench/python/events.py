"""events: events as columns beside pandas on the same files, travel times beside a table."""

from __future__ import annotations

import os
import pathlib
from collections.abc import Iterator

import numpy as np
import pandas

import ksutil
from cases import Case

SHIPPED = pathlib.Path(__file__).resolve().parents[2] / "data" / "aug2015"
COLUMNS = ("evid", "time", "lat", "lon", "depth", "ml", "evname")


def write_events(path: str, count: int) -> None:
    """Writes a database of events with one origin each."""
    chance = np.random.default_rng(1)
    ids = np.arange(1, count + 1)
    with ksutil.create_database(path) as db:
        db["origin"].append_rows(
            {
                "orid": ids,
                "evid": ids,
                "lat": chance.uniform(-90, 90, count),
                "lon": chance.uniform(-180, 180, count),
                "depth": chance.uniform(0, 300, count),
                "time": 1.5e9 + 60.0 * ids,
                "ml": chance.uniform(1, 8, count),
            },
            force=True,
        )
        names = np.array([f"e{i}" for i in ids], dtype=object)
        db["event"].append_rows(
            {"evid": ids, "prefor": ids, "evname": names}, force=True
        )


class Merged:
    """The columns as a script makes them: two tables read and merged."""

    def __init__(self, path: str) -> None:
        self.path = path
        with ksutil.Database(path) as db:
            self.places = {name: self.fields(db, name) for name in ("event", "origin")}

    @staticmethod
    def fields(db: ksutil.Database, table: str) -> dict[str, tuple[int, int]]:
        found, at = {}, 0
        for each in db[table].describe():
            found[each.name] = (at, at + each.width)
            at += each.width + 1
        return found

    def read(self, table: str, *names: str) -> pandas.DataFrame:
        return pandas.read_fwf(
            f"{self.path}.{table}",
            colspecs=[self.places[table][name] for name in names],
            names=list(names),
            header=None,
        )

    def __call__(self) -> pandas.DataFrame:
        event = self.read("event", "evid", "evname", "prefor")
        origin = self.read("origin", "lat", "lon", "depth", "time", "orid", "ml")
        frame = event.merge(origin, left_on="prefor", right_on="orid")
        frame.loc[frame["ml"] <= -999.0, "ml"] = np.nan
        return frame


class TimeTable:
    """Times between the four nodes of a grid: what a script has at hand."""

    def __init__(self) -> None:
        distance = np.arange(0.0, 180.25, 0.25)[:, None]
        self.times = ksutil.travel_times(distance, np.arange(0.0, 710.0, 10.0))

    def __call__(self, distance: np.ndarray, depth: np.ndarray) -> np.ndarray:
        x, y = distance / 0.25, depth / 10.0
        i, j = x.astype(int), y.astype(int)
        a, b, t = x - i, y - j, self.times
        upper = (1 - b) * t[i, j] + b * t[i, j + 1]
        return (1 - a) * upper + a * ((1 - b) * t[i + 1, j] + b * t[i + 1, j + 1])


def serve(path: str) -> dict[str, np.ndarray]:
    """Opens a server, as a script does that wants the events once."""
    with ksutil.EventServer(path, interval=0) as server:
        return server.columns(*COLUMNS)


def cases(folder: str, size: int) -> Iterator[Case]:
    made = os.path.join(folder, "events")
    write_events(made, size // 10)
    for name, path in (("EventsShipped", str(SHIPPED)), ("EventsLarge", made)):
        read = Merged(path)
        assert np.array_equal(serve(path)["evid"], read()["evid"].to_numpy())
        yield Case(name, {"Ksutil": lambda p=path: serve(p), "Merged": read})
    with ksutil.EventServer(made, interval=0) as server:
        events, frame = server.events, read()
        yield Case("EventColumns", {"Ksutil": lambda: events.columns(*COLUMNS)})
        yield Case(
            "EventChoice",
            {
                "Ksutil": lambda: events.where("ml > 6 && depth < 50").sorted("ml"),
                "Pandas": lambda: frame[
                    (frame["ml"] > 6) & (frame["depth"] < 50)
                ].sort_values("ml"),
            },
        )
    chance = np.random.default_rng(2)
    distance, depth = chance.uniform(0, 179, size), chance.uniform(0, 690, size)
    table = TimeTable()
    yield Case(
        "TravelTimes",
        {
            "Ksutil": lambda: ksutil.travel_times(distance, depth),
            "TimeTable": lambda: table(distance, depth),
        },
    )
    yield Case(
        "Distances",
        {"Ksutil": lambda: ksutil.distance_azimuth(distance / 2, depth, 10.0, 20.0)},
    )
