"""waveforms: samples, seismograms and envelopes beside numpy on the same files."""

from __future__ import annotations

import os
from collections.abc import Iterator

import numpy as np

import ksutil
from cases import Case

START, RATE, COLUMNS = 1.5e9, 100.0, 1000


def cases(folder: str, size: int) -> Iterator[Case]:
    count = max(10 * size // COLUMNS, 1) * COLUMNS  # 28 hours at 100 Hz for a million
    path, file = os.path.join(folder, "waveforms"), os.path.join(folder, "samples.w")
    samples = np.random.default_rng(1).integers(-30000, 30000, count, dtype=np.int32)
    samples.astype(">i4").tofile(file)
    end = START + (count - 1) / RATE
    with ksutil.create_database(path) as db:
        db["wfdisc"].append(
            sta="ABC",
            chan="HHZ",
            time=START,
            wfid=1,
            endtime=end,
            nsamp=count,
            samprate=RATE,
            calib=1.0,
            datatype="s4",
            dir=".",
            dfile="samples.w",
            foff=0,
        )
    data = ksutil.DataSet(path)
    yield Case(
        "Samples",
        {
            "Ksutil": lambda: data.segments()[0].samples,
            "Fromfile": lambda: np.fromfile(file, ">i4").astype("i4"),
            "Memmap": lambda: np.memmap(file, ">i4", "r").astype("i4"),
        },
    )
    yield Case(
        "SamplesAsFloat64",
        {
            "Ksutil": lambda: data.read().data,
            "Fromfile": lambda: np.fromfile(file, ">i4").astype("f8"),
        },
    )
    sac = os.path.join(folder, "a.sac")
    ksutil.Sac(samples.astype("f4"), time=START, samprate=RATE).write(sac)
    yield Case(
        "SacRead",
        {
            "Ksutil": lambda: ksutil.Sac.read(sac).data,
            "Fromfile": lambda: np.fromfile(sac, "<f4", offset=632),
        },
    )

    def columns(of: object) -> object:
        blocks = np.reshape(of, (COLUMNS, -1))
        return blocks.min(axis=1), blocks.max(axis=1)

    def view() -> ksutil.StationView:
        return ksutil.StationView(
            path, ["ABC.HHZ"], start=START, end=end + 1.0 / RATE, columns=COLUMNS
        )

    def cold() -> object:
        with view() as new:
            return new.envelope()

    yield Case(
        "EnvelopeCold",
        {
            "Ksutil": cold,
            "Fromfile": lambda: columns(np.fromfile(file, ">i4").astype("i4")),
        },
    )
    with view() as warm:
        warm.envelope()
        yield Case(
            "EnvelopeWarm",
            {"Ksutil": warm.envelope, "Numpy": lambda: columns(samples)},
        )
    data.close()
