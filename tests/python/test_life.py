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
from collections.abc import Callable

import pytest

import ksutil

Copied = Callable[[str], pathlib.Path]


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


@pytest.mark.skipif(not hasattr(os, "fork"), reason="no fork here")
def test_a_fork_waits_for_the_calls_of_other_threads(copied: Copied) -> None:
    """Else the child inherits locks that nobody opens, and waits for ever."""
    ran = run(
        """
        import os, signal, sys, threading, ksutil
        db = ksutil.Database(sys.argv[1])
        data = ksutil.DataSet(sys.argv[2])
        grid = ksutil.Grid(range(300), range(300), [[0.0] * 300] * 300)
        uses = [
            lambda: db["origin"].sort("time").columns(),
            lambda: data.read("MLR.BHZ"),
            lambda: ksutil.DataSet(sys.argv[2]).close(),
            lambda: grid.copy().extremes(),
        ]
        stop = threading.Event()
        def work(use):
            while not stop.is_set(): use()
        threads = [threading.Thread(target=work, args=(use,)) for use in uses * 2]
        for thread in threads: thread.start()
        for _ in range(20):
            child = os.fork()
            if child == 0:
                signal.alarm(20)
                for use in uses: use()
                os._exit(0)
            status = os.waitpid(child, 0)[1]
            if status != 0: break
        stop.set()
        for thread in threads: thread.join()
        sys.exit(status)
        """,
        copied("ueb/ueb_test"),
        copied("mlr/mlr"),
    )
    assert (ran.returncode, ran.stderr) == (0, "")


@pytest.mark.skipif(not hasattr(os, "fork"), reason="no fork here")
def test_a_fork_meets_threads_that_lock_files(tmp_path: pathlib.Path) -> None:
    """Each waiting for a lock of the other, they would stop the program for ever."""
    ran = run(
        """
        import os, sys, threading, ksutil
        stop = threading.Event()
        def work(number):
            while not stop.is_set():
                with ksutil.History(10, file=f"{sys.argv[1]}/{number}") as history:
                    history.append(1.0, 2.0)
        threads = [threading.Thread(target=work, args=(i,)) for i in range(3)]
        for thread in threads: thread.start()
        for _ in range(150):
            child = os.fork()
            if child == 0: os._exit(0)
            assert os.waitpid(child, 0)[1] == 0
        stop.set()
        for thread in threads: thread.join()
        """,
        tmp_path,
    )
    assert (ran.returncode, ran.stderr) == (0, "")


def test_subinterpreters_are_refused() -> None:
    """An import there would wait for ever for the lock of another interpreter."""
    pytest.importorskip("_xxsubinterpreters")
    ran = run(
        """
        import _xxsubinterpreters as interpreters
        def refused():
            code = "import warnings; warnings.simplefilter('ignore'); import ksutil"
            try:
                interpreters.run_string(interpreters.create(), code)
            except interpreters.RunFailedError as error:
                return "main interpreter" in str(error)
        assert refused()
        import ksutil
        assert refused() and ksutil.travel_times(30.0, 0.0) > 0
        """
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


def test_texts_are_never_cut_at_a_null(copied: Copied, tmp_path: pathlib.Path) -> None:
    """What stands before it is another path, or a condition that chooses other rows."""
    path = str(copied("ueb/ueb_test"))
    db = ksutil.Database(path)
    uses: tuple[Callable[[], object], ...] = (
        lambda: ksutil.Database(path + "\0x"),
        lambda: ksutil.DataSet(path + "\0x"),
        lambda: ksutil.EventServer(path + "\0x"),
        lambda: ksutil.events(path + "\0x"),
        lambda: ksutil.create_database(tmp_path / "a\0b"),
        lambda: ksutil.export_catalog(path + "\0x", format="csv"),
        lambda: db["origin"].where("orid == 48836019\0 || 1"),
        lambda: db["origin"].sort("mb\0x"),
        lambda: db.next_id("orid\0x"),
        lambda: ksutil.Vector([1], [1], labels=["a\0b"]),
        lambda: ksutil.Sac(KSTNM="A\0B"),
    )
    for use in uses:
        with pytest.raises(ValueError, match="null"):
            use()
    assert sorted(tmp_path.glob("a*")) == []


def test_bytes_that_are_not_utf8_are_shown(copied: Copied) -> None:
    """Names and messages of files in another encoding must not hide what they name."""
    wave = copied("mlr/mlr")
    for table in ("wfdisc", "sensor", "sitechan"):
        file = pathlib.Path(f"{wave}.{table}")
        file.write_bytes(file.read_bytes().replace(b"MLR    BHZ", b"ML\xe9    BHZ"))
    data = ksutil.DataSet(wave)
    index = [channel.sta for channel in data.channels].index("ML\ufffd")
    series = data.read(index)
    assert series.sta == "ML\ufffd" and data.segments(index)[0].sta == "ML\ufffd"
    for shown in (series, data.channels[index], data.segments(index)[0]):
        assert "ML\ufffd.BHZ" in repr(shown)
    assert "ML\ufffd" in data.figure()._repr_svg_()
    # names that the library cuts within a character
    for name in ("\u00e9" * 50, "x" + "\u00e9" * 50):
        vector = ksutil.Vector([1], [1], name=name)
        assert vector.name == name and repr(vector).endswith("1 y values each>")
        assert repr(ksutil.Grid([0, 1], [0, 1], name=name)).endswith("2 x 2>")
        cut = ksutil.Series([1.0], 0.0, 1.0, name=name)
        assert name.startswith(cut.name.rstrip("\ufffd")) and repr(cut).endswith("Hz>")
    with pytest.raises(ksutil.Error, match="no.where"):
        ksutil.Database(b"/no.where\xe9")  # type: ignore[arg-type]
    with pytest.raises(ksutil.Error, match="position"):
        ksutil.Database(copied("ueb/ueb_test"))["origin"].column("(x" + "\u00e9" * 300)
