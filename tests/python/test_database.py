"""Databases: what is read must be what the files hold, and what is written must be whole,
checked, and seen by the programs of the library."""

import gc
import pathlib
import shutil
import subprocess
import sys
import threading
import warnings
from collections.abc import Callable, Iterator

import numpy as np
import pytest

import ksutil

Copied = Callable[[str], pathlib.Path]


@pytest.fixture
def db(database: pathlib.Path) -> Iterator[ksutil.Database]:
    with ksutil.Database(database, "r+") as opened:
        yield opened


def file_lines(database: pathlib.Path, table: str) -> list[str]:
    return pathlib.Path(f"{database}.{table}").read_text().splitlines()


# Reading


def test_columns_are_what_the_file_has(
    db: ksutil.Database, database: pathlib.Path
) -> None:
    lines = file_lines(database, "origin")
    columns = db["origin"].columns("lat", "lon", "orid", "auth")
    assert len(columns["lat"]) == len(lines) == len(db["origin"]) == 104
    np.testing.assert_array_equal(columns["lat"], [float(line.split()[0]) for line in lines])
    np.testing.assert_array_equal(columns["lon"], [float(line.split()[1]) for line in lines])
    assert columns["lat"].dtype == np.float64 and columns["orid"].dtype == np.int64
    auth = {name: i for i, name in enumerate(db["origin"].fields)}["auth"]
    assert db["origin"].fields[auth] == "auth"
    assert all(text in line for text, line in zip(columns["auth"], lines))


def test_nulls_follow_one_rule(copied: Copied) -> None:
    with ksutil.create_database(copied("ueb/ueb_test").parent / "new") as db:
        table = db["origin"]
        table.append(orid=1, lat=1.5, lon=2.0, time=10.0, ml=3.5, auth="me", evid=7)
        table.append(orid=2, lat=1.6, lon=2.0, time=11.0)
        columns = table.columns("ml", "evid", "auth", "orid")
        assert np.isnan(columns["ml"][1]) and columns["ml"][0] == 3.5
        assert isinstance(columns["evid"], np.ma.MaskedArray)
        assert columns["evid"].mask.tolist() == [False, True]
        assert columns["auth"].tolist() == ["me", None]
        assert not isinstance(columns["orid"], np.ma.MaskedArray)
        row = table[1]
        assert (row.ml, row.evid, row["auth"], row.orid) == (None, None, None, 2)


def test_times_as_dates(db: ksutil.Database) -> None:
    seconds = db["origin"].column("time")
    dates = db["origin"].column("time", datetime=True)
    assert seconds.dtype == np.float64 and dates.dtype == np.dtype("datetime64[us]")
    assert str(dates[0]).startswith("2010-05-20T")
    np.testing.assert_allclose(ksutil.epoch_seconds(dates), seconds, atol=1e-6)
    assert np.isnat(ksutil.datetime64([np.nan, 1.0])).tolist() == [True, False]
    assert ksutil.datetime64(-0.5) == np.datetime64("1969-12-31T23:59:59.500")


def test_views_choose_sort_join_and_group(db: ksutil.Database) -> None:
    origin = db["origin"]
    mb = origin.column("mb")
    chosen = origin.where("mb >= 4")
    assert len(chosen) == int((mb >= 4).sum()) > 0
    assert chosen.records().tolist() == np.flatnonzero(mb >= 4).tolist()
    best = chosen.sort("mb", reverse=True)
    np.testing.assert_array_equal(best["mb"], np.sort(mb[mb >= 4])[::-1])
    joined = db.join("origin", "event")
    assert joined.tables == ("origin", "event")
    assert "event.evid" in joined.fields and "event.lddate" in joined.fields
    np.testing.assert_array_equal(joined["evid"], joined["event.evid"])
    assoc = origin.join(db["assoc"], "orid")
    groups = assoc.sort("orid").group("orid")
    counts = dict(zip(groups["orid"].tolist(), groups.sizes.tolist()))
    orids, numbers = np.unique(assoc["orid"], return_counts=True)
    assert counts == dict(zip(orids.tolist(), numbers.tolist()))
    first = next(groups.members())
    assert len(set(first["orid"].tolist())) == 1 and len(first) == groups.sizes[0]
    assert len(origin.where("mb > 100")) == 0
    assert origin.where("mb > 100").columns("lat", "auth")["lat"].shape == (0,)


def test_slices_rows_and_iteration_agree(db: ksutil.Database) -> None:
    view = db["arrival"].sort("time")
    times = view.column("time")
    assert [row.time for row in view] == times.tolist()
    np.testing.assert_array_equal(view[10:20]["time"], times[10:20])
    np.testing.assert_array_equal(view[::-3]["time"], times[::-3])
    assert [row.time for row in view[5:1:-2]] == times[5:1:-2].tolist()
    assert view[-1].time == times[-1] == view[10:][-1].time
    with pytest.raises(IndexError):
        view[len(view)]
    row = view[3]
    assert row.as_dict() == dict(row) and row.record == view.records()[3]
    with pytest.raises(KeyError):
        row["nofield"]
    with pytest.raises(AttributeError):
        row.nofield
    with pytest.raises(AttributeError):
        row.time = 5  # type: ignore[misc]


def test_iteration_of_many_windows(copied: Copied) -> None:
    with ksutil.create_database(copied("ueb/ueb_test").parent / "many") as db:
        count = 40000
        db["site"].append_rows(
            {"sta": [f"S{i}" for i in range(count)], "ondate": 2015001, "lat": np.arange(count) % 90}
        )
        assert [row.sta for row in db["site"]] == [f"S{i}" for i in range(count)]
        view = db["site"].sort("-lat", "sta")
        assert [row.lat for row in view] == view["lat"].tolist()


def test_expressions_as_columns(db: ksutil.Database) -> None:
    columns = db["origin"].columns("mb + 1", "mb >= 4", "depth")
    mb = db["origin"]["mb"]
    np.testing.assert_allclose(columns["mb + 1"], mb + 1)
    assert columns["mb >= 4"].dtype == bool
    np.testing.assert_array_equal(columns["mb >= 4"], mb >= 4)


def test_pandas_frames(db: ksutil.Database) -> None:
    pandas = pytest.importorskip("pandas")
    frame = db["origin"].to_pandas("orid", "time", "mb", "auth", datetime=True)
    assert list(frame.columns) == ["orid", "time", "mb", "auth"] and len(frame) == 104
    assert str(frame["time"].dtype).startswith("datetime64")
    whole = db["assoc"].to_pandas()
    assert list(whole.columns) == list(db["assoc"].fields)
    nulls = db["origin"].to_pandas("grn")
    assert nulls["grn"].dtype in (pandas.Int64Dtype(), np.dtype("int64"))


def test_unreadable_values_are_null_with_a_warning(database: pathlib.Path) -> None:
    path = pathlib.Path(f"{database}.origin")
    content = bytearray(path.read_bytes())
    content[0:9] = b"  broken "
    path.write_bytes(content)
    with ksutil.Database(database) as db:
        with pytest.warns(ksutil.UnreadableWarning, match="origin: 1 records"):
            lat = db["origin"].column("lat")
        assert len(lat) == 104 and np.isnan(lat[0]) and not np.isnan(lat[1])
        with warnings.catch_warnings():
            warnings.simplefilter("error")
            db["origin"].column("lon")
            with pytest.raises(ksutil.UnreadableWarning):
                db["origin"].where("lat > 0")
        findings = db.verify()
    assert any(f.table == "origin" and f.record == 0 and "lat" in f.text for f in findings)


# Errors


def test_errors_have_the_library_s_message(tmp_path: pathlib.Path) -> None:
    with pytest.raises(ksutil.Error, match="nowhere") as caught:
        ksutil.Database(tmp_path / "nowhere")
    assert not str(caught.value).endswith("\n")


def test_wrong_names_and_arguments(db: ksutil.Database) -> None:
    with pytest.raises(KeyError, match="nosuch"):
        db["nosuch"]
    with pytest.raises(KeyError, match="nosuch"):
        db["origin"].column("nosuch")
    with pytest.raises(KeyError):
        db["origin"].column("event.evid")
    with pytest.raises(ksutil.Error, match="position"):
        db["origin"].column("lat +* 3")
    with pytest.raises(ksutil.Error):
        db["origin"].where("nosuch > 3")
    with pytest.raises(ksutil.Error):
        db["origin"].sort("nosuch")
    with pytest.raises(TypeError):
        db["origin"].where(3)  # type: ignore[arg-type]
    with pytest.raises(ValueError, match="mode"):
        ksutil.Database(db.path, "w")
    with pytest.raises(ValueError):
        db["origin"].join(ksutil.Database(db.path)["event"])
    with pytest.raises(ksutil.Error):
        db["origin"].join(db["origin"])


def test_closed_databases_refuse_politely(database: pathlib.Path) -> None:
    db = ksutil.Database(database)
    view = db["origin"].where("mb > 4")
    iterator = iter(view)
    next(iterator)
    db.close()
    db.close()
    for use in (lambda: len(view), lambda: view["lat"], lambda: db["origin"], view.records):
        with pytest.raises(ksutil.Error, match="closed"):
            use()
    assert "closed" in repr(db) and "closed" in repr(view)
    del view
    gc.collect()


def test_views_outlive_the_database_object(database: pathlib.Path) -> None:
    def view() -> ksutil.View:
        return ksutil.Database(database)["origin"].where("mb > 4").sort("mb")

    kept = view()
    gc.collect()
    assert len(kept["lat"]) == len(kept) > 0
    for _ in range(200):
        view()  # freed views must not take the memory of living ones
    assert kept["mb"].tolist() == sorted(kept["mb"].tolist())


# Writing


def test_append_gives_the_row_with_its_id(db: ksutil.Database) -> None:
    greatest = int(db["origin"]["orid"].max())
    row = db["origin"].append(
        lat=45.5, lon=7.25, depth=3, time="2015-08-01T12:00:00", auth="py", ml=None
    )
    assert row.orid == greatest + 1 == db["origin"][-1].orid
    assert row.jdate == 2015213 and row.time == 1438430400.0
    assert row.lddate is not None and row.ml is None
    assert db.next_id("orid") > greatest + 1
    assert db.verify() == [] or all(f.record != row.record for f in db.verify())


@pytest.mark.parametrize(
    ("values", "error", "text"),
    [
        ({"nosuch": 1}, KeyError, "nosuch"),
        ({"auth": "x" * 16}, ksutil.Error, "auth"),
        ({"auth": "a\nb"}, ksutil.Error, "control"),
        ({"auth": 5}, ksutil.Error, "texts"),
        ({"lat": 1e9}, ksutil.Error, "lat"),
        ({"lat": float("inf")}, ksutil.Error, "lat"),
        ({"lat": "north"}, ksutil.Error, "north"),
        ({"orid": 2.5}, ksutil.Error, "whole"),
        ({"orid": 10**30}, ValueError, "64"),
        ({"lat": True}, TypeError, "bool"),
        ({"lat": object()}, TypeError, "object"),
        ({"lat": [1.0, 2.0]}, TypeError, "append_rows"),
        ({"lat": np.zeros((2, 2))}, ValueError, "dimensions"),
    ],
)
def test_append_refuses_whole(
    db: ksutil.Database,
    database: pathlib.Path,
    values: dict[str, object],
    error: type[Exception],
    text: str,
) -> None:
    before = {p.name: p.read_bytes() for p in database.parent.iterdir() if p.is_file()}
    given: dict[str, object] = {"lat": 1.0, "lon": 2.0, "time": 3.0, "depth": 0.0}
    given.update(values)
    with pytest.raises(error, match=text):
        db["origin"].append(**given)
    for name, content in before.items():
        assert (database.parent / name).read_bytes() == content


def test_duplicate_keys_are_refused_unless_forced(db: ksutil.Database) -> None:
    orid = int(db["origin"]["orid"][5])
    with pytest.raises(ksutil.Error, match=f"orid {orid}"):
        db["origin"].append(orid=orid, lat=0.0, lon=0.0, time=0.0, depth=0.0)
    count = len(db["origin"])
    with pytest.raises(ksutil.Error, match="twice"):
        db["origin"].append_rows(
            {"orid": [900, 900], "lat": 0.0, "lon": 0.0, "time": [1.0, 2.0]}
        )
    assert len(db["origin"]) == count
    db["origin"].append(orid=orid, lat=0.0, lon=0.0, time=0.0, depth=0.0, force=True)
    assert len(db["origin"]) == count + 1


def test_append_rows_all_or_none(db: ksutil.Database) -> None:
    pandas = pytest.importorskip("pandas")
    frame = pandas.DataFrame(
        {
            "time": pandas.to_datetime(["2015-01-01", "2015-01-02", None]),
            "lat": [1.0, np.nan, 3.0],
            "lon": np.array([1, 2, 3], dtype=np.int16),
            "auth": ["a", None, "c"],
            "evid": pandas.array([1, None, 3], dtype="Int64"),
            "etype": pandas.Series(["qb", "ex", "qb"], dtype="category"),
        }
    )
    count = len(db["origin"])
    records = db["origin"].append_rows(frame)
    assert list(records) == [count, count + 1, count + 2]
    added = db["origin"][count:]
    assert added["auth"].tolist() == ["a", None, "c"]
    assert added["etype"].tolist() == ["qb", "ex", "qb"]
    assert np.isnan(added["lat"]).tolist() == [False, True, False]
    assert added["evid"].tolist() == [1, None, 3]
    assert added["time"].tolist()[:2] == [1420070400.0, 1420156800.0]
    assert np.isnan(added["time"][2]) and added["jdate"].tolist()[2] is None
    assert len(set(added["orid"].tolist())) == 3
    frame.loc[2, "auth"] = "much too long for the field"
    with pytest.raises(ksutil.Error, match="row 2.*auth"):
        db["origin"].append_rows(frame)
    with pytest.raises(ValueError, match="lon"):
        db["origin"].append_rows({"lat": [1.0, 2.0], "lon": [1.0, 2.0, 3.0]})
    assert len(db["origin"]) == count + 3
    assert list(db["origin"].append_rows({"lat": [], "lon": []})) == []


def test_frames_survive_a_round_trip(db: ksutil.Database, tmp_path: pathlib.Path) -> None:
    pytest.importorskip("pandas")
    frame = db["arrival"].to_pandas()
    with ksutil.create_database(tmp_path / "copy", db.schema) as copy:
        copy["arrival"].append_rows(frame, force=True)
        again = copy["arrival"].to_pandas()
    assert frame.equals(again)


def test_update_by_row_record_and_view(db: ksutil.Database) -> None:
    origin = db["origin"]
    row = origin.where("mb >= 4")[0]
    assert row.record is not None
    assert origin.update(row, auth="py", algorithm="locator") == 1
    assert origin[row.record].auth == "py" and origin[row.record].lat == row.lat
    with pytest.raises(ksutil.Error, match="changed since"):
        origin.update(row, auth="again")
    chosen = origin.where("mb >= 4")
    assert origin.update(chosen, ml=np.arange(len(chosen)) / 10) == len(chosen)
    np.testing.assert_allclose(chosen["ml"], np.arange(len(chosen)) / 10)
    assert origin.update([0, np.int64(1)], auth=["one", "two"]) == 2
    assert origin["auth"][:2].tolist() == ["one", "two"]
    loaded = origin[0].lddate
    assert origin.update(0, auth="one") == 0 and origin[0].lddate == loaded
    with pytest.raises(ksutil.Error, match="no record 5000"):
        origin.update([0, 5000], auth="x")
    assert origin[0].auth == "one"
    with pytest.raises(ValueError):
        origin.update(db["event"][0], auth="x")
    with pytest.raises(TypeError):
        origin.update("0", auth="x")
    with pytest.raises(ksutil.Error, match="refer"):
        origin.update(0, orid=99999)


def test_remove_keeps_references(db: ksutil.Database) -> None:
    origin = db["origin"]
    count = len(origin)
    with pytest.raises(ksutil.Error, match="refer"):
        origin.remove(0)
    assert len(origin) == count
    row = origin.append(lat=1.0, lon=1.0, depth=1.0, time=1.0)
    assert origin.remove(row) == 1
    assert len(origin) == count
    second = origin[1].as_dict()
    assert origin.remove(0, force=True) == 1
    assert origin[0].as_dict() == second


@pytest.fixture
def depths(tmp_path: pathlib.Path) -> Iterator[ksutil.Table]:
    """120 origins with the depths 0, 1 .. 119, and the orids 1 .. 120."""
    with ksutil.create_database(tmp_path / "depths") as opened:
        origin = opened["origin"]
        count = 120
        origin.append_rows(
            {
                "orid": np.arange(1, count + 1),
                "lat": np.zeros(count),
                "lon": np.zeros(count),
                "depth": np.arange(float(count)),
                "time": np.arange(float(count)),
            }
        )
        yield origin


def test_views_and_slices_never_change_other_rows(depths: ksutil.Table) -> None:
    origin = depths

    def refused(rows: object) -> None:
        before = origin["orid"].tolist()
        authors = origin["auth"].tolist()
        for change in (origin.remove, lambda rows: origin.update(rows, auth="x")):
            with pytest.raises(ksutil.Error, match="has changed since it was read"):
                change(rows)
        assert origin["orid"].tolist() == before
        assert origin["auth"].tolist() == authors

    front = origin[1:3]
    nearest, shallow = origin.where("depth < 5"), origin.where("depth < 25")
    d60, parts = origin.where("depth == 60"), shallow.sort("depth", reverse=True)
    behind, groups = origin[100:][5:10:2], list(origin.group("lat").members())
    assert origin.remove(shallow) == 25
    for rows in (d60, parts[:2], parts.where("depth > 30"), front, behind, groups[0]):
        refused(rows)
    assert origin.remove(origin.where("depth == 60")) == 1
    assert 61 not in origin["orid"] and len(origin) == 94
    refused(nearest)

    # Rows that were only appended, or others that were changed, do not matter.
    last, some = origin.where("depth > 110").sort("depth"), origin[10:12]
    everything = origin.where("depth >= 0")
    origin.append(orid=500, lat=0.0, lon=0.0, depth=300.0, time=1.0)
    assert origin.update(0, auth="first") == 1
    assert origin.update(last[:2], auth=["a", "b"]) == 2
    assert origin.where("auth == 'b'")["depth"].tolist() == [112.0]
    refused(everything)
    refused(last)
    assert origin.remove(last[2:]) == 7
    refused(last[2:])
    assert origin.remove(some) == 2
    assert origin.remove(origin) == 86 and len(origin) == 0


def test_views_of_other_databases_and_repeated_records(
    depths: ksutil.Table, db: ksutil.Database
) -> None:
    with pytest.raises(ValueError, match="another Database"):
        depths.remove(db["origin"].where("depth < 5"))
    with pytest.raises(KeyError):
        db["origin"].remove(db["event"].where("evid > 0"))
    assert depths.update([0, 0], auth="once") == 1
    assert depths.update([3, 0, 3], auth=["a", "b", "c"]) == 2
    assert depths["auth"][:4].tolist() == ["b", None, None, "c"]


def test_rows_beside_a_program_that_removes_others(depths: ksutil.Table) -> None:
    path = depths._core.handle.path
    script = """
import sys, ksutil
with ksutil.Database(sys.argv[1], "r+") as db:
    for orid in range(1, 61):
        while True:
            try:
                assert db["origin"].remove(db["origin"].where(f"orid == {orid}")) == 1
                break
            except ksutil.Error as error:
                assert "changed" in str(error), error
"""
    other = subprocess.Popen([sys.executable, "-c", script, path])
    mine = set(range(61, 101))
    while mine:
        orid = mine.pop()
        try:
            assert depths.remove(depths.where(f"orid == {orid}")) == 1
        except ksutil.Error as error:
            assert "changed" in str(error)
            mine.add(orid)
    assert other.wait(120) == 0
    assert depths["orid"].tolist() == list(range(101, 121))


def test_a_reader_is_warned_of_an_interrupted_change(database: pathlib.Path) -> None:
    pathlib.Path(f"{database}.journal").write_text("notes")
    with pytest.warns(UserWarning, match="not a journal of changes"):
        with ksutil.Database(database) as db:
            assert len(db["origin"]) == 104
    with pytest.raises(ksutil.Error, match="not a journal of changes"):
        ksutil.Database(database, "r+")


def test_readers_do_not_write(database: pathlib.Path) -> None:
    with ksutil.Database(database) as db:
        with pytest.raises(ksutil.Error, match="reading"):
            db["origin"].append(lat=0.0, lon=0.0, time=0.0)
        with pytest.raises(ksutil.Error, match="reading"):
            db["origin"].update(0, auth="x")
        with pytest.raises(ksutil.Error, match="reading"):
            db["origin"].remove(0)


def test_other_programs_rows_are_seen(db: ksutil.Database) -> None:
    origin = db["origin"]
    count = len(origin)
    with ksutil.Database(db.path, "r+") as other:
        other["origin"].append(lat=0.0, lon=0.0, depth=0.0, time=0.0, auth="other")
    assert len(origin) == count + 1 and origin[-1].auth == "other"


def test_ids_verify_and_create(tmp_path: pathlib.Path) -> None:
    with ksutil.create_database(tmp_path / "new") as db:
        assert db.tables == {} and "origin" in db.all_tables
        first = db.next_id("evid", 5)
        assert db.next_id("evid") == first + 5
        with pytest.raises(ValueError):
            db.next_id("evid", 0)
        with pytest.raises(ksutil.Error):
            db.next_id("no such counter at all")
        db["origin"].append(lat=1.0, lon=2.0, time=3.0, evid=first, depth=0.0)
        assert db.tables["origin"] == 1
        findings = db.verify()
        assert db.schema == ksutil.schemas()[0]
    with pytest.raises(ksutil.Error):
        ksutil.create_database(tmp_path / "new")
    assert all(isinstance(f, ksutil.Finding) for f in findings)


# Threads and processes


def test_threads_share_a_database(db: ksutil.Database) -> None:
    failures: list[BaseException] = []
    expected = db["origin"].where("mb >= 4")["mb"].tolist()

    def work() -> None:
        try:
            for _ in range(25):
                assert db["origin"].where("mb >= 4")["mb"].tolist() == expected
                with pytest.raises(ksutil.Error, match="nosuch"):
                    db["origin"].where("nosuch == 1")
        except BaseException as error:  # noqa: B902
            failures.append(error)

    threads = [threading.Thread(target=work) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert failures == []


def test_close_while_others_read(database: pathlib.Path) -> None:
    db = ksutil.Database(database)
    table = db["origin"]
    unexpected: list[BaseException] = []

    def work() -> None:
        try:
            while True:
                table.column("lat")
        except ksutil.Error as error:
            if "closed" not in str(error):
                unexpected.append(error)
        except BaseException as error:  # noqa: B902
            unexpected.append(error)

    threads = [threading.Thread(target=work) for _ in range(3)]
    for thread in threads:
        thread.start()
    db.close()
    for thread in threads:
        thread.join()
    assert unexpected == []


def test_writers_of_two_processes_lose_nothing(database: pathlib.Path) -> None:
    script = (
        "import sys, ksutil\n"
        "with ksutil.Database(sys.argv[1], 'r+') as db:\n"
        "    for i in range(20):\n"
        "        db['origin'].append(lat=1.0, lon=1.0, depth=0.0, time=float(i), auth=sys.argv[2])\n"
    )
    before = len(file_lines(database, "origin"))
    writers = [
        subprocess.Popen([sys.executable, "-c", script, str(database), name])
        for name in ("one", "two")
    ]
    assert [writer.wait() for writer in writers] == [0, 0]
    with ksutil.Database(database) as db:
        origin = db["origin"]
        assert len(origin) == before + 40
        orids = origin["orid"][before:]
        assert len(set(orids.tolist())) == 40
        assert sorted(origin["auth"][before:].tolist()) == ["one"] * 20 + ["two"] * 20


def test_nothing_stays_in_the_register(db: ksutil.Database) -> None:
    """A later failure must not show the messages of earlier ones."""
    for text in ("nosuch1 > 0", "nosuch2 > 0"):
        with pytest.raises(ksutil.Error) as caught:
            db["origin"].where(text)
    assert "nosuch1" not in str(caught.value) and "nosuch2" in str(caught.value)


def test_html_shows_nulls_and_escapes(db: ksutil.Database) -> None:
    db["origin"].update(0, auth="<b>&")
    html = db["origin"]._repr_html_()
    assert "&lt;b&gt;&amp;" in html and html.count("<tr>") == 11
    assert "<td>origin</td><td>104</td>" in db._repr_html_()


def test_ksdb_reads_what_is_written(db: ksutil.Database, tmp_path: pathlib.Path) -> None:
    program = pathlib.Path(ksutil.__file__).parents[2] / "bin" / "ksdb"
    found = shutil.which("ksdb") or (str(program) if program.exists() else None)
    if found is None:
        pytest.skip("ksdb is not built")
    db["origin"].append(lat=45.5, lon=7.25, depth=3.0, time=1.0, auth="py", orid=77777)
    listed = subprocess.run(
        [found, "list", "--where", "orid == 77777", "--fields", "lat,auth", db.path, "origin"],
        stdout=subprocess.PIPE, text=True, check=True,
    ).stdout
    assert "45.5" in listed and "py" in listed
