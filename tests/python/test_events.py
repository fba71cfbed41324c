"""Events: what a server shows, what it tells, and what it survives.

A monitor runs for months and is stopped by Ctrl-C, by close() in a callback or by the end
of the program: none of these may hang or lose a change without a word.
"""

import copy
import gc
import math
import os
import pathlib
import subprocess
import sys
import textwrap
import threading
import time
from collections.abc import Callable, Iterator

import numpy as np
import pytest

import ksutil

Copied = Callable[[str], pathlib.Path]


@pytest.fixture
def ridge(copied: Copied) -> pathlib.Path:
    """One event, 17, with two origins, three magnitudes and two arrivals."""
    return copied("ridge")


@pytest.fixture
def august(copied: Copied) -> pathlib.Path:
    """467 events with one origin each."""
    return copied("aug2015")


@pytest.fixture
def server(ridge: pathlib.Path) -> Iterator[ksutil.EventServer]:
    with ksutil.EventServer(ridge, interval=0) as opened:
        yield opened


def run_python(
    code: str, *arguments: object, timeout: float = 60
) -> subprocess.CompletedProcess[str]:
    return subprocess.run(
        [sys.executable, "-c", textwrap.dedent(code), *map(str, arguments)],
        capture_output=True,
        text=True,
        timeout=timeout,
    )


def add_events(server: ksutil.EventServer, count: int) -> list[int]:
    """Adds events with an origin each, as another program would; their evids."""
    evids = []
    for _ in range(count):
        evid, orid = server.next_id("evid"), server.next_id("orid")
        place = {"lat": 1.5, "lon": -2.5, "depth": 3.0, "time": 1.5e9 + evid}
        server.append("origin", orid=orid, evid=evid, **place)
        server.append("event", evid=evid, prefor=orid, evname=f"e{evid}")
        evids.append(evid)
    return evids


# --- what a server shows ---


def test_event_has_the_fields_of_its_preferred_records(
    server: ksutil.EventServer,
) -> None:
    event = server[17]
    assert (event.evid, event.prefor, event.evname) == (17, 171, "Ridge")
    assert (event.lat, event.depth, event.time) == (35.7695, 8.0, 1562383193.04)
    assert (event.magnitude, event.magtype, event.sdobs) == (7.1, "mw", 0.52)
    assert event.mb is None and event.commid is None and event.mrr is None
    first, second = event.origins
    assert (first.orid, first.magnitude, first.preferred) == (170, 6.5, False)
    assert first.sdobs is None and second.sdobs == 0.52
    assert event.preferred_origin == second
    assert event.preferred_moment is None
    assert [m.magtype for m in second.magnitudes] == ["mw", "ml"]
    assert second.preferred_magnitude.uncertainty == 0.05
    with pytest.raises(AttributeError, match="nosuch"):
        event.nosuch
    assert "lat" in dir(event) and "origins" in dir(event)
    assert copy.copy(event.as_dict())["origins"][1]["nass"] == 12


def test_arrivals_are_asked_for_when_they_are_wanted(
    server: ksutil.EventServer,
) -> None:
    event = server[17]
    assert not event.expanded
    assert [a.sta for a in event.associations] == ["TIN", "CWC"]
    association = event.associations[0]
    assert association.phase == "P" and association.defining is True
    assert association.time == 1562383196.29 and association.site.lat == 37.05
    assert [row.iphase for row in event.arrivals] == ["P", "P"]
    assert event.arrivals[1]["sta"] == "CWC"
    assert event.origins[0].associations == ()
    whole = event.expand()
    assert whole.expanded and len(whole.as_dict()["origins"][1]["associations"]) == 2
    assert server.expanded(17) == whole


def test_what_was_taken_outlives_the_server(ridge: pathlib.Path) -> None:
    with ksutil.EventServer(ridge, interval=0) as server:
        events, event, query = server.events, server[17], server.query("depth * 2")
    assert server.closed and repr(server).endswith("closed)")
    assert event.lat == 35.7695 and events[0] == event
    assert query(event) == 16.0 and query(event.origins[0]) == 5.0
    assert events.columns("orid")["orid"].tolist() == [171]
    assert len(events.where("magnitude > 7")) == 1
    with pytest.raises(ksutil.Error, match="closed"):
        event.associations
    with pytest.raises(ksutil.Error, match="closed"):
        server.events


def test_columns_are_the_fields_of_all_events(august: pathlib.Path) -> None:
    with ksutil.EventServer(august, interval=0) as server:
        events = server.events
        columns = events.columns("evid", "lat", "mb", "evname", "nass", "mbid", "time")
        assert columns["evid"].dtype == np.int64
        assert columns["evid"].tolist() == events.evids.tolist()
        assert columns["lat"].tolist() == [event.lat for event in events]
        has_mb = np.array([event.mb is not None for event in events])
        assert 0 < has_mb.sum() < len(events)
        assert (np.isnan(columns["mb"]) == ~has_mb).all()
        assert columns["mb"][has_mb].tolist() == [e.mb for e in events if e.mb]
        assert (np.ma.getmaskarray(columns["mbid"]) == ~has_mb).all()
        assert columns["nass"].mask.all() and columns["nass"].dtype == np.int64
        assert columns["evname"].tolist() == [event.evname for event in events]
        moments = events.column("time", datetime=True)
        assert moments.dtype == "datetime64[us]"
        assert moments[0] == np.datetime64("2015-08-01T00:23:01.590")
        distances = events.column("distance(lat, lon, 0, 0)")
        expected = ksutil.distance_azimuth(columns["lat"], events.column("lon"), 0, 0)
        assert np.allclose(distances, expected[0])
        frame = events.to_pandas(datetime=True)
        assert frame.shape == (len(events), 7) and frame["time"].dtype.kind == "M"
        assert events.to_pandas("mbid")["mbid"].isna().tolist() == (~has_mb).tolist()
        with pytest.raises(ksutil.Error, match="position"):
            events.column("nosuchfield")
        with pytest.raises(TypeError):
            events.columns(3)  # type: ignore[arg-type]


def test_choices_sort_and_slice_like_sequences(august: pathlib.Path) -> None:
    with ksutil.EventServer(august, interval=0) as server:
        events = server.events
        values = [event.magnitude for event in events]
        large = server.where("magnitude >= 6")
        assert [e.magnitude for e in large] == [v for v in values if v and v >= 6]
        by_size = large.sorted("magnitude", reverse=True)
        sizes = [event.magnitude for event in by_size]
        assert sizes == sorted(sizes, reverse=True) and len(sizes) == len(large)
        assert by_size.evids.tolist() == [event.evid for event in by_size]
        assert by_size[-1] == by_size[len(by_size) - 1]
        assert [e.evid for e in by_size[1:5:2]] == [by_size[1].evid, by_size[3].evid]
        assert by_size.index(by_size[2].evid) == 2
        assert by_size.event(by_size[2].evid) == by_size[2]
        assert by_size[0] in by_size and by_size[0].evid in large
        assert 10**12 not in large and "x" not in large and 10**30 not in large
        assert large.evids[0] in large
        assert len(large.where("magnitude < 6")) == 0
        assert large.where("magnitude < 6").column("lat").shape == (0,)
        for wrong, error in [(10**6, IndexError), ("x", TypeError), (10**30, IndexError)]:
            with pytest.raises(error):
                events[wrong]
        with pytest.raises(ValueError):
            events.index(10**12)
        with pytest.raises(KeyError):
            server[10**12]
        with pytest.raises(ksutil.Error, match="text"):
            events.where("magtype")
        with pytest.raises(ksutil.Error):
            events.sorted("magnitude >")
        assert "<table>" in events._repr_html_() and "<b>lat" in str(
            events[0].origins[0]._repr_html_()
        )


def test_settings_reach_the_server(august: pathlib.Path) -> None:
    with ksutil.EventServer(august, interval=0, max_events=10) as server:
        assert len(server) == 10
        first = ksutil.EventServer(august, interval=0).events[0]
        assert first.evid not in server and server.get(first.evid) is None
        assert server.expanded(first.evid).evid == first.evid
    with ksutil.EventServer(
        august, interval=0, preferred_magnitudes=["mb", ("mw", 0.0, 9.0)]
    ) as server:
        types = {event.magtype for event in server if event.mb is not None}
        assert types == {"mb"}
    for wrong in ({"interval": -1.0}, {"interval": math.nan}, {"queue": 0}):
        with pytest.raises(ValueError):
            ksutil.EventServer(august, **wrong)  # type: ignore[arg-type]
    with pytest.raises(ValueError, match="rule"):
        ksutil.EventServer(august, preferred_magnitudes=["mw }\nx"])


def test_failures_are_exceptions_with_the_library_s_message(
    tmp_path: pathlib.Path,
) -> None:
    with pytest.raises(ksutil.Error, match="nothing_here"):
        ksutil.EventServer(tmp_path / "nothing_here")
    with pytest.raises(ksutil.Error, match="nothing_here"):
        ksutil.events(tmp_path / "nothing_here")
    with pytest.raises(TypeError):
        ksutil.EventServer(5)  # type: ignore[arg-type]


def test_unreadable_values_are_nulls_with_a_warning(ridge: pathlib.Path) -> None:
    origins = ridge.with_name("ridge.origin")
    text = origins.read_text()
    origins.write_text(text.replace("-117.5993", "-117.xx93"))
    with ksutil.EventServer(ridge, interval=0) as server:
        with pytest.warns(ksutil.UnreadableWarning, match="1 events"):
            assert np.isnan(server.columns("lon")["lon"]).all()
        with pytest.raises(ksutil.Error, match="xx93"):
            server[17].lon


# --- reading without a server ---


def test_stream_gives_the_events_of_a_server(august: pathlib.Path) -> None:
    with ksutil.EventServer(august, interval=0) as server:
        assert list(ksutil.events(august)) == list(server.events)
        large = [event.evid for event in ksutil.events(august, "magnitude >= 6")]
        assert large == server.where("magnitude >= 6").evids.tolist()
    stream = ksutil.events(august)
    first = next(stream)
    stream.close()
    stream.close()
    assert list(stream) == [] and first.lat == 38.7369
    with pytest.raises(ksutil.Error, match="position"):
        ksutil.events(august, "magnitude >")
    with pytest.raises(ksutil.Error, match="text"):
        list(ksutil.events(august, "magtype"))


def test_stream_expands_events_on_request(ridge: pathlib.Path) -> None:
    (event,) = ksutil.events(ridge, "nassociations == 2", expand=True)
    assert [row.sta for row in event.arrivals] == ["TIN", "CWC"]
    (event,) = ksutil.events(ridge)
    with pytest.raises(ksutil.Error, match="no open server"):
        event.arrivals


# --- changes ---


def test_reader_follows_another_process(ridge: pathlib.Path) -> None:
    writer = """
        import sys, ksutil
        with ksutil.EventServer(sys.argv[1], interval=0) as server:
            evid, orid = server.next_id("evid"), server.next_id("orid")
            server.append("origin", orid=orid, evid=evid, lat=1.5, lon=2.5, time=2e9)
            server.append("event", evid=evid, prefor=orid)
            print(evid)
            sys.stdout.flush()
            sys.stdin.readline()
            server.refresh()
            server.update(server[evid].preferred_origin, depth=33.0)
    """
    with ksutil.EventServer(ridge, interval=0.05) as server:
        with server.changes(timeout=30) as changes:
            process = subprocess.Popen(
                [sys.executable, "-c", textwrap.dedent(writer), str(ridge)],
                stdin=subprocess.PIPE,
                stdout=subprocess.PIPE,
                text=True,
            )
            assert process.stdout is not None and process.stdin is not None
            evid = int(process.stdout.readline())
            change = next(changes)
            assert (change.kind, change.evid) == ("new", evid)
            assert change.event is not None and change.event.lat == 1.5
            process.stdin.write("go on\n")
            process.stdin.close()
            change = next(changes)
            assert (change.kind, change.evid) == ("changed", evid)
            assert change.event is not None and change.event.depth == 33.0
            assert process.wait(60) == 0
            rows = ridge.with_name("ridge.event").read_text().splitlines(True)
            ridge.with_name("ridge.event").write_text("".join(rows[:1]))
            change = next(changes)
            assert (change.kind, change.evid) == ("removed", evid)
            assert change.event is None
        assert list(changes) == []


def test_refresh_shows_what_was_written_before(server: ksutil.EventServer) -> None:
    before = server.events
    (evid,) = add_events(server, 1)
    assert evid not in server
    server.refresh()
    assert server[evid].evname == f"e{evid}" and evid not in before
    assert server.most_recent == server[17] and server.last_modified == server[evid]
    server.refresh(force=True)


def test_lost_changes_are_told(ridge: pathlib.Path) -> None:
    with ksutil.EventServer(ridge, interval=0, queue=5) as server:
        changes = server.changes(timeout=0)
        evids = add_events(server, 20)
        server.refresh()
        assert len(changes) == 6
        told = list(changes)
        assert (told[0].kind, told[0].lost, told[0].evid) == ("overflow", 15, None)
        assert [change.evid for change in told[1:]] == evids[15:]
        assert list(changes) == []


def test_changes_end_by_time_and_by_close(server: ksutil.EventServer) -> None:
    assert server.changes().get(timeout=0.01) is None
    for wrong, error in [(math.nan, ValueError), ("soon", TypeError)]:
        with pytest.raises(error):
            server.changes(timeout=wrong)  # type: ignore[arg-type]
    changes = server.changes()
    add_events(server, 1)
    server.refresh()
    waiting = server.changes()
    ended = threading.Thread(target=list, args=(waiting,))
    ended.start()
    server.close()
    ended.join(30)
    assert not ended.is_alive()
    assert [change.kind for change in changes] == ["new"] and changes.closed


# --- callbacks ---


def test_callback_that_raises_is_reported_and_the_others_go_on(
    server: ksutil.EventServer, monkeypatch: pytest.MonkeyPatch
) -> None:
    reported: list[object] = []
    monkeypatch.setattr(
        sys, "unraisablehook", lambda args: reported.append(args.exc_value)
    )
    told: list[int | None] = []
    arrived = threading.Semaphore(0)

    @server.on_change
    def fail(change: ksutil.Change) -> None:
        raise KeyError(change.evid)

    @server.on_change
    def note(change: ksutil.Change) -> None:
        told.append(change.evid)
        arrived.release()

    evids = add_events(server, 2)
    server.refresh()
    assert all(arrived.acquire(timeout=30) for _ in evids)
    assert told == evids
    assert [str(error) for error in reported] == [str(KeyError(e)) for e in evids]
    server.off_change(fail)
    server.off_change(note)
    with pytest.raises(ValueError):
        server.off_change(note)


@pytest.mark.parametrize("way", ["thread", "run"])
def test_callback_may_call_anything_and_close(ridge: pathlib.Path, way: str) -> None:
    server = ksutil.EventServer(ridge, interval=0)
    found: list[object] = []
    closed = threading.Event()

    def look(change: ksutil.Change) -> None:
        assert change.event is not None
        found.append(len(change.event.associations))
        server.refresh()
        found.append(len(server.events))
        found.append(server.subset("netmag", "magnitude >= 7")[0].magtype)
        server.off_change(look)
        server.close()
        server.close()
        closed.set()

    server.on_change(look)
    add_events(server, 2)
    server.refresh()
    if way == "run":
        server.run()
    assert closed.wait(30) and server.closed
    assert found == [0, 3, "mw"]


def test_run_takes_the_callbacks_to_the_calling_thread(
    server: ksutil.EventServer,
) -> None:
    threads: list[int] = []
    arrived = threading.Semaphore(0)

    def note(change: ksutil.Change) -> None:
        threads.append(threading.get_ident())
        arrived.release()

    server.on_change(note)
    for on_this in (False, True, False):
        add_events(server, 2)
        server.refresh()
        if on_this:
            server.run(timeout=0.5)
        assert arrived.acquire(timeout=30) and arrived.acquire(timeout=30)
        if on_this:
            add_events(server, 1)
            server.refresh()
            assert arrived.acquire(timeout=30)
    here = threading.get_ident()
    assert [thread == here for thread in threads[:2]] == [False, False]
    assert threads[4] != here and threads[-1] != here


def test_callback_must_not_run_the_callbacks(
    server: ksutil.EventServer, monkeypatch: pytest.MonkeyPatch
) -> None:
    reported: list[BaseException] = []
    told = threading.Event()

    def take(arguments: "sys.UnraisableHookArgs") -> None:
        assert arguments.exc_value is not None
        reported.append(arguments.exc_value)
        told.set()

    monkeypatch.setattr(sys, "unraisablehook", take)
    server.on_change(lambda change: server.run())
    add_events(server, 1)
    server.refresh()
    assert told.wait(30) and "run already" in str(reported[0])


# --- ends ---


@pytest.mark.parametrize(
    "wait",
    [
        "for change in server.changes(): pass",
        "server.changes().get()",
        "server.on_change(print); server.run()",
    ],
)
def test_interrupt_ends_a_wait(ridge: pathlib.Path, wait: str) -> None:
    code = f"""
        import sys, time, ksutil
        server = ksutil.EventServer(sys.argv[1])
        print("waiting", flush=True)
        try:
            {wait}
        except KeyboardInterrupt:
            print(time.time(), flush=True)
    """
    process = subprocess.Popen(
        [sys.executable, "-c", textwrap.dedent(code), str(ridge)],
        stdout=subprocess.PIPE,
        text=True,
    )
    assert process.stdout is not None and process.stdout.readline() == "waiting\n"
    time.sleep(0.2)  # let it begin to wait; an early signal ends it all the same
    sent = time.time()
    process.send_signal(2)
    noticed = float(process.stdout.readline())
    assert process.wait(30) == 0
    assert noticed - sent < 5.0


@pytest.mark.parametrize(
    "left",
    [
        "pass",
        "server.on_change(print)",
        "rest = ksutil.events(sys.argv[1]); next(rest)",
        "threading.Thread(target=server.changes().get, daemon=True).start()",
        "threading.Thread(target=list, args=(server.changes(),), daemon=True).start()",
        "server.me = server; server.on_change(server.get)",
        "sys.exit(0)",
        "kept = server[17].origins; del server",
    ],
)
def test_program_may_end_with_a_live_server(ridge: pathlib.Path, left: str) -> None:
    ended = run_python(
        f"""
        import sys, threading, ksutil
        server = ksutil.EventServer(sys.argv[1], interval=0.01)
        {left}
        """,
        ridge,
    )
    assert (ended.returncode, ended.stderr) == (0, "")


def test_reader_of_changes_keeps_the_server(ridge: pathlib.Path) -> None:
    changes = ksutil.EventServer(ridge, interval=0.01).changes(timeout=0.1)
    gc.collect()
    assert list(changes) == [] and not changes.closed


def test_a_server_without_threads_is_an_error(ridge: pathlib.Path) -> None:
    """It would open, and never tell a change."""
    ended = run_python(
        """
        import os, resource, shutil, sys, tempfile, ksutil
        with tempfile.TemporaryDirectory() as folder:
            path = shutil.copytree(sys.argv[1], folder + "/data") + "/ridge"
            child = os.fork()
            if child == 0:
                if os.getuid() == 0:  # whom no limit binds
                    os.system(f"chmod -R a+rwX {folder}")
                    os.setuid(65534)
                resource.setrlimit(resource.RLIMIT_NPROC, (0, 0))
                try:
                    ksutil.EventServer(path)
                except ksutil.Error as error:
                    os._exit(0 if "no threads" in str(error) else 3)
                os._exit(4)
            sys.exit(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]))
        """,
        ridge.parent,
    )
    assert (ended.returncode, ended.stderr) == (0, "")


def test_child_of_a_fork_leaves_the_server_to_its_parent(
    ridge: pathlib.Path, august: pathlib.Path
) -> None:
    ended = run_python(
        """
        import os, sys, time, ksutil
        server = ksutil.EventServer(sys.argv[1], interval=0.01)
        events, changes = server.events, server.changes()
        stream = ksutil.events(sys.argv[2])
        next(stream)
        time.sleep(0.1)  # its thread has read ahead, and waits
        server.on_change(print)
        child = os.fork()
        if child == 0:
            assert server.closed and events[0].lat == 35.7695
            assert changes.get() is None and list(changes) == []
            for use in (server.refresh, lambda: server[17], lambda: next(stream)):
                try:
                    use()
                except ksutil.Error as error:
                    assert "process" in str(error)
                else:
                    raise AssertionError(use)
            server.close()
            del server, events, stream
            with ksutil.EventServer(sys.argv[1], interval=0) as own:
                assert len(own) == 1
            sys.exit(7)
        _, status = os.waitpid(child, 0)
        assert os.waitstatus_to_exitcode(status) == 7
        server.refresh()
        assert len(server) == 1
        """,
        ridge,
        august,
    )
    assert (ended.returncode, ended.stderr) == (0, "")


def test_many_servers_leave_nothing_behind(ridge: pathlib.Path) -> None:
    def used() -> tuple[int, int]:
        return len(os.listdir("/proc/self/task")), len(os.listdir("/proc/self/fd"))

    ksutil.EventServer(ridge).close()
    gc.collect()
    before = used()
    for i in range(200):
        server = ksutil.EventServer(ridge, interval=0.001)
        if i % 4 == 0:
            server.on_change(lambda change: None)
        if i % 2 == 0:
            server.close()
    del server
    gc.collect()
    end = time.monotonic() + 30
    while used() > before and time.monotonic() < end:
        time.sleep(0.01)  # the callbacks' threads look now and then
    assert used() <= before


def test_server_may_be_closed_under_its_users(ridge: pathlib.Path) -> None:
    for _ in range(5):
        server = ksutil.EventServer(ridge, interval=0.001)
        failed: list[str] = []
        started = threading.Barrier(6)

        def use(number: int) -> None:
            started.wait()
            calls: list[Callable[[], object]] = [
                lambda: server.refresh(force=True),
                lambda: server[17].arrivals,
                lambda: server.columns("lat", "distance(lat, lon, 0, 0)"),
                lambda: server.sorted("depth").where("depth > 1")[0],
                lambda: server.changes(timeout=0.001).get(0.001),
            ]
            try:
                while True:
                    calls[number]()
                    if server.closed:
                        return
            except ksutil.Error as error:
                failed.append(str(error))

        threads = [threading.Thread(target=use, args=(i,)) for i in range(5)]
        for thread in threads:
            thread.start()
        started.wait()
        time.sleep(0.02)
        closers = [threading.Thread(target=server.close) for _ in range(3)]
        for thread in closers:
            thread.start()
        for thread in threads + closers:
            thread.join(30)
            assert not thread.is_alive()
        assert all("closed" in text or "no open server" in text for text in failed)


def test_changes_begin_while_the_list_is_replaced(shipped: pathlib.Path) -> None:
    with ksutil.EventServer(shipped / "aug2015", interval=0) as server:
        end = time.monotonic() + 1.5

        def refresh() -> None:
            while time.monotonic() < end:
                server.refresh(force=True)

        refresher = threading.Thread(target=refresh)
        refresher.start()
        while time.monotonic() < end:
            server.changes(timeout=0).close()
        refresher.join()
        with server.changes(timeout=0) as changes:
            assert list(changes) == []


# --- writing ---


def test_rows_are_written_and_read_again(server: ksutil.EventServer) -> None:
    server.set_preferred_origin(17, 170)
    assert server[17].prefor == 170 and server[17].lat == 35.8
    with pytest.raises(ValueError, match="no origin 5"):
        server.set_preferred_origin(17, 5)
    event = server[17]
    before = time.time() - 1
    server.update(event, evname="Renamed", commid=None)
    with pytest.raises(ksutil.Error, match="has changed"):
        server.update(event, evname="Again")
    server.refresh()
    assert server[17].evname == "Renamed" and server[17].lddate > before
    row = server.subset("netmag", "magid == 3")[0]
    server.update(row, magnitude=6.6, lddate=5.0)
    row = server.subset("netmag", "magid == 3")[0]
    assert (row.magnitude, row.lddate, row["auth"]) == (6.6, 5.0, None)


def test_updates_of_several_threads_lose_nothing(
    server: ksutil.EventServer,
) -> None:
    """Each adds 1 to a value that it has read, until its row has not changed since."""

    def add() -> None:
        for _ in range(25):
            while True:
                row = server.subset("origin", "orid == 170")[0]
                try:
                    server.update(row, ndef=(row.ndef or 0) + 1)
                    break
                except ksutil.Error as error:
                    assert "has changed" in str(error)

    server.update(server.subset("origin", "orid == 170")[0], ndef=0)
    threads = [threading.Thread(target=add) for _ in range(3)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert server.subset("origin", "orid == 170")[0].ndef == 75


def test_wrong_values_write_nothing(
    server: ksutil.EventServer, ridge: pathlib.Path
) -> None:
    files = {p: p.read_bytes() for p in ridge.parent.glob("ridge.*")}
    event = server[17]
    for values, error in [
        ({"nosuch": 1}, KeyError),
        ({"prefor": 1.5}, TypeError),
        ({"prefor": 10**15}, ksutil.Error),
        ({"prefor": 10**30}, OverflowError),
        ({"evname": 5}, TypeError),
        ({"evname": "a name that is much too long"}, ksutil.Error),
        ({"evname": "two\nlines"}, ksutil.Error),
        ({"lddate": math.nan}, ksutil.Error),
    ]:
        with pytest.raises(error):
            server.update(event, **values)
    with pytest.raises(KeyError):
        server.append("nosuch", evid=1)
    with pytest.raises(ksutil.Error, match="Can't compile 'lat >'"):
        server.subset("origin", "lat >")
    assert {p: p.read_bytes() for p in ridge.parent.glob("ridge.*")} == files


def test_commands_find_rows(server: ksutil.EventServer) -> None:
    arrivals = server.arrivals("T*", tstart=1562383190.0, tend=1562383200.0)
    assert [(row.sta, row.chan, row.table) for row in arrivals] == [
        ("TIN", "BHZ", "arrival")
    ]
    assert server.waveforms(tstart=0.0, tend=2e9) == []
    site = server.site("TIN", 1562383196.0)
    assert site is not None and site.lat == 37.05 and site["refsta"] is None
    assert server.site("XXX", 1562383196.0) is None
    assert set(site) == set(site.as_dict()) and "lat" in site
    assert dict(site)["sta"] == "TIN"
    assert server.detections == ()
