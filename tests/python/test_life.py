"""The life of objects: whatever a program forgets, forks or interrupts, nothing crashes."""

import copy
import gc
import os
import pathlib
import pickle
import signal
import subprocess
import sys
import textwrap
import weakref

import pytest

import ksutil


def run(script: str, *arguments: object, **more: object) -> "subprocess.CompletedProcess[str]":
    return subprocess.run(
        [sys.executable, "-X", "faulthandler", "-c", textwrap.dedent(script), *map(str, arguments)],
        text=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=120,
    )


def test_exit_with_everything_open(database: pathlib.Path) -> None:
    ran = run(
        """
        import sys, threading, ksutil
        db = ksutil.Database(sys.argv[1])
        view = db.join("origin", "assoc").sort("time")
        rows = iter(view); next(rows)
        column = view["lat"]
        class Cycle: pass
        cycle = Cycle(); cycle.me, cycle.view, cycle.db = cycle, view, db
        def work():
            while True: db["origin"].columns()
        for _ in range(3): threading.Thread(target=work, daemon=True).start()
        print(len(column))
        """,
        database,
    )
    assert (ran.returncode, ran.stderr) == (0, "") and int(ran.stdout) > 0


def test_cycles_are_collected(database: pathlib.Path) -> None:
    class Cycle:
        pass

    cycle = Cycle()
    cycle.me = cycle  # type: ignore[attr-defined]
    cycle.view = ksutil.Database(database)["origin"].where("mb > 3")  # type: ignore[attr-defined]
    ended = weakref.ref(cycle)
    del cycle
    gc.collect()
    assert ended() is None


def test_arrays_outlive_all(database: pathlib.Path) -> None:
    db = ksutil.Database(database)
    columns = db["origin"].columns()
    before = {name: array.tolist() for name, array in columns.items()}
    db.close()
    del db
    gc.collect()
    for _ in range(20):
        ksutil.Database(database)["origin"].columns()
    assert str(before) == str({name: array.tolist() for name, array in columns.items()})
    columns["lat"][0] = 5.0  # columns are the caller's own


@pytest.mark.skipif(not hasattr(os, "fork"), reason="no fork here")
def test_children_of_a_fork_read_on(database: pathlib.Path) -> None:
    ran = run(
        """
        import os, sys, ksutil
        db = ksutil.Database(sys.argv[1])
        view = db["origin"].where("mb > 3.5")
        expected = view["mb"].tolist()
        for _ in range(5):
            child = os.fork()
            if child == 0:
                good = view["mb"].tolist() == expected
                good = good and ksutil.Database(sys.argv[1])["origin"].where("mb > 3.5")["mb"].tolist() == expected
                db.close()
                os._exit(0 if good else 3)
            assert os.waitpid(child, 0)[1] == 0
        assert view["mb"].tolist() == expected
        """,
        database,
    )
    assert (ran.returncode, ran.stderr) == (0, "")


def test_an_interrupt_between_calls_ends_a_loop(database: pathlib.Path) -> None:
    child = subprocess.Popen(
        [sys.executable, "-c", textwrap.dedent(
            """
            import sys, ksutil
            db = ksutil.Database(sys.argv[1])
            print("ready", flush=True)
            while True:
                db["origin"].sort("time").columns()
            """), str(database)],
        text=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
    )
    assert child.stdout is not None
    assert child.stdout.readline() == "ready\n"
    child.send_signal(signal.SIGINT)
    _, errors = child.communicate(timeout=60)
    assert "KeyboardInterrupt" in errors and child.returncode == -signal.SIGINT


def test_handles_are_not_copied(database: pathlib.Path) -> None:
    db = ksutil.Database(database)
    for each in (db, db["origin"], ksutil.Expression("1"), ksutil.ParameterFile()):
        for copying in (copy.deepcopy, pickle.dumps):
            with pytest.raises(TypeError):
                copying(each)
    row = copy.copy(db["origin"][0])
    assert row == db["origin"][0]


def test_hostile_bytes(tmp_path: pathlib.Path) -> None:
    """Rows of noise are nulls and warnings, or an error; never a crash."""
    import random
    import warnings

    noise = random.Random(5)
    with ksutil.create_database(tmp_path / "noise") as db:
        width = sum(field.width + 1 for field in db["site"].describe())
    for _ in range(30):
        lines = b"".join(
            bytes(noise.choice(b" 0123456789.-eE\xff\x00aZ") for _ in range(width - 1)) + b"\n"
            for _ in range(20)
        )
        (tmp_path / "noise.site").write_bytes(lines[: noise.randrange(len(lines))])
        with warnings.catch_warnings():
            warnings.simplefilter("ignore")
            try:
                with ksutil.Database(tmp_path / "noise", "r+") as db:
                    table = db["site"]
                    for row in table:
                        repr(row)
                    table.columns("sta", "lat", "lat * 2", "ondate + 1")
                    table.where("lat > 0 || sta =~ '.*A'").sort("sta").records()
                    table._repr_html_()
                    db.verify()
                    table.append(sta="X", ondate=2015001)
            except ksutil.Error:
                pass
