"""databases: a million origins beside pandas and numpy on the same file."""

from __future__ import annotations

import os
from collections.abc import Iterator

import numpy as np
import pandas

import ksutil
from cases import Case


def write_origins(path: str, count: int) -> None:
    """Writes a database with made-up origins."""
    chance = np.random.default_rng(1)
    with ksutil.create_database(path) as db:
        for start in range(0, count, 100_000):
            n = min(100_000, count - start)
            orid = np.arange(start + 1, start + n + 1)
            db["origin"].append_rows(
                {
                    "lat": chance.uniform(-90, 90, n),
                    "lon": chance.uniform(-180, 180, n),
                    "depth": chance.uniform(0, 600, n),
                    "time": 1e9 + 60.0 * orid + chance.uniform(0, 60, n),
                    "orid": orid,
                    "evid": orid,
                    "ndef": chance.integers(4, 200, n),
                    "mb": np.where(chance.random(n) < 0.3, np.nan, chance.uniform(1, 8, n)),
                    "ml": chance.uniform(0, 7, n),
                    "auth": chance.choice(["net:auto", "net:manual", "me"], n),
                },
                force=True,
            )


def cases(folder: str, size: int) -> Iterator[Case]:
    path = os.path.join(folder, "origins")
    write_origins(path, size)
    db = ksutil.Database(path)
    origin = db["origin"]
    places: dict[str, tuple[int, int]] = {}
    at = 0
    for each in origin.describe():
        places[each.name] = (at, at + each.width)
        at += each.width + 1
    some = ("time", "lat", "lon", "depth", "ml")

    def read_fwf(*names: str) -> pandas.DataFrame:
        return pandas.read_fwf(
            path + ".origin",
            colspecs=[places[name] for name in names],
            names=list(names),
            header=None,
        )

    def genfromtxt() -> object:
        widths = [end - start + 1 for start, end in places.values()]
        order = [list(places).index(name) for name in some]
        return np.genfromtxt(path + ".origin", delimiter=widths, usecols=order)

    yield Case(
        "ColumnsAll",
        {"Ksutil": origin.columns, "ReadFwf": lambda: read_fwf(*places)},
        {"ReadFwf"},
    )
    yield Case(
        "ColumnsFive",
        {
            "Ksutil": lambda: origin.columns(*some),
            "ReadFwf": lambda: read_fwf(*some),
            "Genfromtxt": genfromtxt,
        },
        {"ReadFwf", "Genfromtxt"},
    )
    frame = origin.to_pandas(*some, "auth")
    yield Case(
        "Frame",
        {
            "Ksutil": lambda: origin.to_pandas(*some, "auth"),
            "ReadFwf": lambda: read_fwf(*some, "auth"),
        },
        {"ReadFwf"},
    )
    # The peers have the rows in memory; ours reads them from the file each time.
    yield Case(
        "Subset",
        {
            "Ksutil": lambda: origin.where("ml > 4 && depth < 50")["lat"],
            "Pandas": lambda: frame[(frame["ml"] > 4) & (frame["depth"] < 50)]["lat"],
        },
    )
    yield Case(
        "Sort",
        {
            "Ksutil": lambda: origin.sort("depth")["lat"],
            "Pandas": lambda: frame.sort_values("depth")["lat"],
        },
    )
    strong = ksutil.Expression("ml > 4 && depth < 50")
    arrays = {"ml": frame["ml"].to_numpy(), "depth": frame["depth"].to_numpy()}
    yield Case(
        "Expression",
        {
            "Ksutil": lambda: strong.evaluate(arrays),
            "Numpy": lambda: (arrays["ml"] > 4) & (arrays["depth"] < 50),
        },
    )
    db.close()
