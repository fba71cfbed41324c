"""Exchange formats in and out of databases, and the bridge to ObsPy.

The stand-in for ObsPy holds bytes: what a user's ObsPy would be given is read back here
by readers that know nothing of the bridge.
"""

import io
import os
import pathlib
import signal
import subprocess
import sys
import xml.etree.ElementTree as ElementTree
from collections.abc import Callable, Iterator
from typing import Any

import numpy as np
import pytest

import ksutil

STAND_IN = pathlib.Path(__file__).parent / "stand_in"
CSV = (
    b"time,latitude,longitude,depth,mag,magType,nst,gap,dmin,rms,net,id,updated,place,"
    b"type\n"
    b"2015-08-01T00:23:01.590Z,33.5,-116.5,10.5,2.5,ml,20,50,0.1,0.2,ci,ci1,"
    b"2015-08-02T00:00:00Z,somewhere,earthquake\n"
    b"2015-08-03T10:00:00.000Z,34.5,-117.5,5,3.5,ml,20,50,0.1,0.2,ci,ci2,"
    b"2015-08-04T00:00:00Z,elsewhere,earthquake\n"
)


@pytest.fixture
def bulletin(copied: Callable[[str], pathlib.Path]) -> pathlib.Path:
    return copied("bulletin/kaikoura.xml")


@pytest.fixture
def obspy(monkeypatch: pytest.MonkeyPatch) -> Iterator[Any]:
    """The stand-in under the name obspy."""
    for name in [each for each in sys.modules if each.split(".")[0] == "obspy"]:
        monkeypatch.delitem(sys.modules, name)
    monkeypatch.syspath_prepend(str(STAND_IN))
    import obspy

    yield obspy
    sys.modules.pop("obspy", None)


def count(content: bytes, element: str) -> int:
    root = ElementTree.fromstring(content)
    return sum(1 for each in root.iter() if each.tag.split("}")[-1] == element)


class TestImport:
    def test_a_catalogue_becomes_a_database_that_goes_with_its_object(self) -> None:
        database = ksutil.read_catalog(CSV)
        folder = pathlib.Path(database.path).parent
        report = database.import_report
        assert report is not None and (report.added, report.refused) == (2, 0)
        assert database.table("origin").column("lat").tolist() == [33.5, 34.5]
        with pytest.raises(AttributeError, match="no count 'nothing'"):
            report.nothing
        database.close()
        assert folder.is_dir()
        del database
        assert not folder.exists()

    def test_the_same_again_changes_nothing_and_a_revision_keeps_its_ids(
        self, tmp_path: pathlib.Path
    ) -> None:
        with ksutil.read_catalog(CSV, path=tmp_path / "db") as database:
            evids = database.table("event").column("evid").tolist()
            assert database.import_catalog(CSV).unchanged == 2
            revised = CSV.replace(b",2.5,ml", b",2.75,ml").replace(b"08-02T", b"08-05T")
            assert database.import_catalog(revised, dry_run=True).updated == 1
            assert database.table("origin").column("ml").tolist() == [2.5, 3.5]
            report = database.import_catalog(revised)
            assert (report.updated, report.unchanged) == (1, 1)
            assert database.table("event").column("evid").tolist() == evids
            assert database.table("origin").column("ml").tolist() == [2.75, 3.5]

    def test_choices_and_refusals_are_reported_with_their_lines(
        self, tmp_path: pathlib.Path
    ) -> None:
        ksutil.create_database(tmp_path / "db", "css3.0")
        bad = CSV.replace(b",34.5,", b",94.5,")
        report = ksutil.import_catalog(tmp_path / "db", bad)
        assert report.added == 1 and report.refused == 1
        ((line, reason),) = report.refusals
        assert line == 3 and "94.5" in reason
        with pytest.raises(ksutil.Error, match=r"strict.*line 3"):
            ksutil.import_catalog(tmp_path / "db", bad, strict=True)
        assert ksutil.import_catalog(tmp_path / "db", CSV, min_magnitude=3).left_out == 1

    def test_what_is_not_a_catalogue_is_an_error(self, tmp_path: pathlib.Path) -> None:
        for content in (b"", b"\x00" * 100, b"<quakeml", b"\x1f\x8b\x08 archive"):
            with pytest.raises(ksutil.Error):
                ksutil.read_catalog(content)
        with pytest.raises(ksutil.Error, match="missing.xml"):
            ksutil.read_catalog(tmp_path / "missing.xml")
        with pytest.raises(ValueError, match="no format 'word'"):
            ksutil.read_catalog(CSV, format="word")
        with pytest.raises(ksutil.Error):
            ksutil.import_catalog(tmp_path / "none", CSV)
        assert os.listdir(tmp_path) == []

    def test_a_bulletin_cut_anywhere_is_an_error_and_leaves_no_rows(
        self, bulletin: pathlib.Path
    ) -> None:
        content = bulletin.read_bytes()
        for part in (1, 3, 7, 9):
            with pytest.raises(ksutil.Error):
                ksutil.read_catalog(content[: len(content) * part // 10])

    def test_waveform_files_are_entered_and_read(
        self, copied: Callable[[str], pathlib.Path], tmp_path: pathlib.Path
    ) -> None:
        mlr = copied("mlr/mlr")
        folder = tmp_path / "waveforms"
        folder.mkdir()
        with ksutil.DataSet(mlr) as data:
            data.write_sac(folder)
            expected = data.read("MLR.BHZ").data
        (folder / "readme").write_text("neither")
        ksutil.create_database(tmp_path / "new", "css3.0")
        report = ksutil.import_waveforms(tmp_path / "new", folder)
        assert (report.kind, report.added, report.other_files) == ("waveforms", 3, 1)
        with ksutil.DataSet(tmp_path / "new") as data:
            assert np.array_equal(data.read("MLR.BHZ").data, expected)


class TestExport:
    def test_quakeml_comes_back_with_the_same_events(
        self, database: pathlib.Path
    ) -> None:
        content = ksutil.export_catalog(database, format="quakeml")
        assert isinstance(content, bytes)
        again = ksutil.read_catalog(content, schema="kbcore")
        with ksutil.Database(database) as source:
            joined = source.join("event", "origin").where("orid == prefor")
            before = sorted(joined.column("time").tolist())
        joined = again.join("event", "origin").where("orid == prefor")
        assert count(content, "event") == len(before)
        np.testing.assert_allclose(
            sorted(joined.column("time").tolist()), before, atol=1e-3
        )

    def test_a_file_is_replaced_when_the_new_one_is_whole(
        self, database: pathlib.Path, tmp_path: pathlib.Path
    ) -> None:
        target = tmp_path / "out" / "events.csv"
        target.parent.mkdir()
        target.write_text("old")
        target.chmod(0o640)
        with pytest.raises(ksutil.Error):
            ksutil.export_catalog(database, target, where="nonsense ==")
        with pytest.raises(ksutil.Error):
            ksutil.export_catalog(tmp_path / "none", target)
        assert target.read_text() == "old"
        with ksutil.Database(database) as source:
            report = source.export(target, min_magnitude=3.0)
        lines = target.read_text().splitlines()
        assert report.written == len(lines) - 1 > 0
        assert target.stat().st_mode & 0o777 == 0o640
        assert [each.name for each in target.parent.iterdir()] == ["events.csv"]

    def test_formats_and_arguments(self, database: pathlib.Path) -> None:
        words = {each["word"]: each for each in ksutil.exchange_formats()}
        assert words["quakeml"]["writes"] and words["ndk"]["reads"]
        assert words["stationxml"]["stations"]
        with pytest.raises(ValueError, match="format is needed"):
            ksutil.export_catalog(database)
        with pytest.raises(ValueError, match="no format 'ndk'"):
            ksutil.export_catalog(database, format="ndk")
        with pytest.raises(ValueError, match="conditions on events"):
            ksutil.export_catalog(database, format="stationxml", where="ml > 3")

    def test_a_pipe_that_nobody_reads_ends_with_ctrl_c(
        self, database: pathlib.Path, tmp_path: pathlib.Path
    ) -> None:
        pipe = tmp_path / "pipe.quakeml"
        os.mkfifo(pipe)
        code = (
            "import ksutil, os\n"
            f"fd = os.open({str(pipe)!r}, os.O_RDWR)\n"
            "try:\n"
            "    print('writes', flush=True)\n"
            f"    ksutil.export_catalog({str(database)!r}, {str(pipe)!r})\n"
            "except KeyboardInterrupt:\n"
            "    print('interrupted')\n"
        )
        process = subprocess.Popen([sys.executable, "-c", code], stdout=subprocess.PIPE)
        assert process.stdout is not None
        process.stdout.readline()
        process.send_signal(signal.SIGINT)
        out, _ = process.communicate(timeout=30)
        assert out == b"interrupted\n"


class TestObspy:
    def test_without_obspy_the_error_says_what_is_missing(
        self, database: pathlib.Path, monkeypatch: pytest.MonkeyPatch
    ) -> None:
        monkeypatch.setitem(sys.modules, "obspy", None)
        series = ksutil.Series([1.0], 0.0, 1.0, sta="A", chan="BHZ")
        with ksutil.Database(database) as source:
            for call in (
                source.to_obspy,
                series.to_obspy,
                lambda: ksutil.utcdatetime(0.0),
                lambda: source.from_obspy(None),
            ):
                with pytest.raises(ImportError, match="ObsPy, which is not installed"):
                    call()

    def test_frames_say_that_pandas_is_missing(
        self, database: pathlib.Path, monkeypatch: pytest.MonkeyPatch
    ) -> None:
        monkeypatch.setitem(sys.modules, "pandas", None)
        with ksutil.Database(database) as source:
            with pytest.raises(ImportError, match="pandas, which is not installed"):
                source["origin"].to_pandas()

    def test_importing_ksutil_imports_none_of_the_large_packages(self) -> None:
        code = (
            "import sys, ksutil\n"
            "print([m for m in ('obspy', 'pandas', 'matplotlib') if m in sys.modules])"
        )
        done = subprocess.run(
            [sys.executable, "-c", code], capture_output=True, text=True, check=True
        )
        assert done.stdout == "[]\n"

    def test_events_travel_as_quakeml(self, database: pathlib.Path, obspy: Any) -> None:
        with ksutil.Database(database) as source:
            catalog = source.to_obspy(min_magnitude=3.0)
        assert isinstance(catalog, obspy.Catalog)
        events = count(catalog.content, "event")
        assert events > 0 and b"quakeml/1.2" in catalog.content
        with ksutil.read_catalog(CSV) as target:
            assert target.from_obspy(catalog).added == events

    def test_stations_travel_as_stationxml(
        self, copied: Callable[[str], pathlib.Path], obspy: Any
    ) -> None:
        with ksutil.Database(copied("mlr/mlr")) as source:
            inventory = source.to_obspy("stations")
            with pytest.raises(ValueError, match="'events' or 'stations'"):
                source.to_obspy("picks")
        assert isinstance(inventory, obspy.Inventory)
        assert count(inventory.content, "Channel") == 3
        assert count(inventory.content, "Pole") > 0
        with ksutil.read_catalog(CSV) as target:
            report = target.from_obspy(inventory)
            assert report.kind == "stations" and report.response_files > 0
            assert target.table("sitechan").column("chan").tolist() == [
                "BHE",
                "BHN",
                "BHZ",
            ]

    def test_waveforms_travel_as_miniseed(
        self, copied: Callable[[str], pathlib.Path], obspy: Any
    ) -> None:
        if not ksutil.miniseed_available():
            pytest.skip("built without libmseed")
        with ksutil.DataSet(copied("mlr/mlr")) as data:
            stream = data.to_obspy()
            expected = [data.read(i).data for i in range(3)]
        again = ksutil.Series.from_obspy(stream)
        assert [each.chan for each in again] == ["BHE", "BHN", "BHZ"]
        for series, samples in zip(again, expected):
            assert np.array_equal(series.data, samples)
        assert isinstance(ksutil.series_list_to_obspy([]), obspy.Stream)

    def test_times(self, obspy: Any) -> None:
        time = ksutil.utcdatetime(1.5e9 + 0.25)
        assert isinstance(time, obspy.UTCDateTime)
        assert ksutil.epoch_of_utcdatetime(time) == 1.5e9 + 0.25


def test_with_the_real_obspy(database: pathlib.Path) -> None:
    obspy = pytest.importorskip("obspy")
    with ksutil.Database(database) as source:
        catalog = source.to_obspy()
    assert isinstance(catalog, obspy.core.event.Catalog) and len(catalog) > 0
    with ksutil.read_catalog(CSV) as target:
        assert target.from_obspy(catalog).added == len(catalog)
    series = ksutil.Series(
        np.arange(500.0), 1e9, 20.0, net="XX", sta="ABC", loc="", chan="BHZ"
    )
    stream = series.to_obspy()
    assert len(stream) == 1 and stream[0].id == "XX.ABC..BHZ"
    (again,) = ksutil.series_from_obspy(stream)
    assert np.array_equal(again.data, series.data)
    content = io.BytesIO()
    stream.write(content, format="MSEED")
    assert len(ksutil.read_miniseed(content.getvalue())) == 1
