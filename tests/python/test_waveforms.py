"""Seismograms, data sets, station views, responses, signals and figures.

The samples of data/mlr are counted and summed here with numpy alone, so that a wrong byte
order, offset or gap cannot agree with itself.
"""

import gc
import os
import pathlib
import signal as signals
import struct
import subprocess
import sys
import threading
import xml.etree.ElementTree as ElementTree
from collections.abc import Callable

import numpy as np
import pytest

import ksutil

START = 1274313600.019  # of the samples of data/mlr


@pytest.fixture
def mlr(copied: Callable[[str], pathlib.Path]) -> pathlib.Path:
    return copied("mlr/mlr")


def raw(mlr: pathlib.Path, offset: int = 0) -> np.ndarray:
    """6000 samples of the file as numpy reads them."""
    return np.fromfile(mlr.parent / "mlr.w", dtype=">i4", count=6000, offset=offset)


class TestSac:
    def seismogram(self) -> ksutil.Sac:
        samples = np.sin(np.arange(500) / 7.0).astype(np.float32)
        return ksutil.Sac(
            samples, time=1.5e9 + 0.25, samprate=50.0, type="V", KSTNM="ABC", stla=12.5
        )

    def test_header_variables_are_attributes_with_none_for_undefined(self) -> None:
        sac = self.seismogram()
        assert (sac.KSTNM, sac.kstnm, sac.STLA) == ("ABC", "ABC", 12.5)
        assert sac.EVLA is None and sac.KEVNM is None and sac.NEVID is None
        assert sac.NPTS == 500 and sac.LEVEN is True
        assert sac.DELTA == pytest.approx(0.02)
        sac.evla, sac.KEVNM, sac.nevid = -33.25, "an event of 16", 17
        assert (sac.EVLA, sac.kevnm, sac.NEVID) == (-33.25, "an event of 16", 17)
        sac.evla = None
        assert sac.time == pytest.approx(1.5e9 + 0.25)
        sac.NZJDAY = None
        assert sac.time is None and ksutil.Sac().time is None
        assert sac.EVLA is None and "EVLA" not in sac.header
        assert sac.header["KEVNM"] == "an event of 16"

    @pytest.mark.parametrize(
        ("name", "value", "error"),
        [
            ("KSTNM", "longer than 8", ValueError),
            ("NEVID", 2**31, ValueError),
            ("NEVID", "text", TypeError),
            ("NEVID", 1.5, TypeError),
            ("STLA", "text", TypeError),
            ("nothing", 1, AttributeError),
        ],
    )
    def test_wrong_values_are_refused(
        self, name: str, value: object, error: type
    ) -> None:
        with pytest.raises(error):
            setattr(self.seismogram(), name, value)
        with pytest.raises(AttributeError, match="no header variable"):
            self.seismogram().absent
        with pytest.raises(TypeError, match="time and samprate"):
            ksutil.Sac([1.0])

    @pytest.mark.parametrize("order", ["little", "big"])
    def test_a_file_of_either_byte_order_has_the_layout_of_the_format(
        self, tmp_path: pathlib.Path, order: str
    ) -> None:
        sac, path = self.seismogram(), tmp_path / "a.sac"
        sac.write(path, byteorder=order)
        content = path.read_bytes()
        sign = {"little": "<", "big": ">"}[order]
        assert len(content) == 632 + 4 * 500
        assert struct.unpack_from(sign + "i", content, 79 * 4) == (500,)  # NPTS
        assert content[440:448] == b"ABC     "
        samples = np.frombuffer(content, dtype=sign + "f4", offset=632)
        assert np.array_equal(samples, sac.data)
        for again in (ksutil.Sac.read(path), ksutil.Sac.read(content)):
            assert np.array_equal(again.data, sac.data)
            assert again.header == sac.header
            assert again.time == pytest.approx(1.5e9 + 0.25, abs=1e-6)

    def test_samples_are_a_view_that_holds_put_data_off(self) -> None:
        sac = self.seismogram()
        data = sac.data
        with pytest.raises(ksutil.Error, match="put_data: an array"):
            sac.put_data([1.0], 0.0, 1.0)
        del sac
        gc.collect()
        assert data.dtype == np.float32 and data[7] == np.float32(np.sin(1.0))

    def test_hostile_files_are_errors(self, tmp_path: pathlib.Path) -> None:
        content = self.seismogram().to_bytes()
        huge = bytearray(content)
        huge[79 * 4 : 80 * 4] = struct.pack("<i", 2**31 - 1)
        cases = (b"", content[:600], content[:-4], bytes(huge), b"x" * 5000)
        for damaged in cases:
            with pytest.raises(ksutil.Error, match="kssac_read"):
                ksutil.Sac.read(damaged)
        with pytest.raises(ksutil.Error):
            ksutil.Sac.read(tmp_path)
        random = np.random.default_rng(3)
        for _ in range(300):
            damaged = bytearray(content)
            for place in random.integers(0, len(content), 12):
                damaged[place] = int(random.integers(0, 256))
            try:
                sac = ksutil.Sac.read(bytes(damaged))
                assert isinstance(sac.header, dict) and len(sac.data) <= 500
            except ksutil.Error:
                pass

    def test_series_there_and_back(self) -> None:
        series = ksutil.Series(
            [1.0, 2.0, 3.0], 1e9, 40.0, net="XX", sta="ABC", loc="00", chan="BHZ"
        )
        sac = ksutil.Sac.from_series(series, type="D")
        assert (sac.KNETWK, sac.KHOLE, sac.KCMPNM) == ("XX", "00", "BHZ")
        again = sac.to_series()
        assert again.samprate == 40.0 and again.data.tolist() == [1.0, 2.0, 3.0]
        assert (again.net, again.loc) == ("XX", "00")
        with pytest.raises(ksutil.Error, match="kssac_get_segment"):
            ksutil.Sac().to_series()

    def test_rows_of_a_database_fill_the_header_and_are_filled(
        self, mlr: pathlib.Path
    ) -> None:
        sac = ksutil.Sac()
        sac.put_rows(mlr, wfid=64587195)
        assert (sac.KSTNM, sac.KCMPNM, sac.NWFID) == ("MLR", "BHZ", 64587195)
        assert sac.STLA == pytest.approx(45.4917) and sac.STEL == pytest.approx(1360.0)
        assert sac.CMPINC == 0.0
        with pytest.raises(ksutil.Error, match="no row of wfdisc with wfid == 1"):
            sac.put_rows(mlr, wfid=1)
        sac.KCMPNM = "BHX"
        sac.get_rows(mlr, wfid=64587195)
        assert (mlr.parent / "mlr.wfdisc").read_text().startswith("MLR    BHX")
        with pytest.raises(TypeError, match="wfid, orid"):
            sac.put_rows(mlr)


class TestDataSet:
    def test_samples_are_those_of_the_file(self, mlr: pathlib.Path) -> None:
        with ksutil.DataSet(mlr, chan="BH[ZN]") as data:
            assert [each.chan for each in data.channels] == ["BHN", "BHZ"]
            series = data.read("MLR.BHZ")
            (segment,) = data.segments(("MLR", "BHZ"))
        assert np.array_equal(series.data, raw(mlr))
        assert segment.samples.dtype == np.int32
        assert np.array_equal(segment.samples, raw(mlr))
        assert (series.time, series.samprate) == (START, 40.0)

    def test_what_was_read_outlives_the_data_set(self, mlr: pathlib.Path) -> None:
        data = ksutil.DataSet(mlr)
        samples = data.segments(0)[0].samples
        channel, view = data[0], data.read(0).data
        data.close()
        data.close()
        with pytest.raises(ksutil.Error, match="closed"):
            data.read(0)
        del data
        gc.collect()
        assert channel.chan == "BHE" and channel.lat == pytest.approx(45.4917)
        assert np.array_equal(samples, raw(mlr, 48000))
        assert np.array_equal(view, samples)

    def test_unknown_metadata_is_none(self, mlr: pathlib.Path) -> None:
        (mlr.parent / "mlr.site").unlink()
        with ksutil.DataSet(mlr) as data:
            assert data[0].lat is None and data[0].elev is None and data[0].net is None
            assert "site" in str(data[0].missing)

    def test_channels_by_many_names(self, mlr: pathlib.Path) -> None:
        with ksutil.DataSet(mlr) as data:
            for key in (2, -1, "MLR.BHZ", ("MLR", "BHZ"), data[2], np.int64(2)):
                assert data[key].index == 2
            for key, error in (
                (3, IndexError),
                (10**30, IndexError),
                ("MLR.X", KeyError),
                (1.5, TypeError),
                (("MLR", 2), TypeError),
            ):
                with pytest.raises(error):
                    data[key]  # type: ignore[index]

    def test_a_hole_between_rows_is_a_gap(self, mlr: pathlib.Path) -> None:
        table = mlr.parent / "mlr.wfdisc"
        first = table.read_text().splitlines()[0]
        begin = first.replace("1274313749.994     6000", "1274313624.994     1000")
        later = first.replace(" 1274313600.019  64587195", " 1274313650.019  64587196")
        later = later.replace("1274313749.994     6000", "1274313674.994     1000")
        later = later.replace("         0        -1", "      8000        -1")
        assert len({len(each) for each in (first, begin, later)}) == 1
        table.write_text(begin + "\n" + later + "\n")
        with ksutil.DataSet(mlr) as data:
            series = data.read(0)
        assert len(series) == 3000
        assert series.samples.mask.sum() == 1000
        assert series.samples[:1000].tolist() == raw(mlr)[:1000].tolist()
        assert series.data[2000:].tolist() == raw(mlr)[2000:3000].tolist()

    def test_files_that_fail_are_errors_with_their_names(
        self, mlr: pathlib.Path
    ) -> None:
        os.truncate(mlr.parent / "mlr.w", 30000)
        with ksutil.DataSet(mlr) as data:
            assert len(data.read("MLR.BHZ")) == 6000
            with pytest.raises(ksutil.Error, match="mlr.w"):
                data.read("MLR.BHE")
        with pytest.raises(ksutil.Error):
            ksutil.DataSet(mlr.parent / "nothing")
        with pytest.raises(ksutil.Error):
            ksutil.DataSet(mlr, sta="(")
        with pytest.raises(ValueError, match="go together"):
            ksutil.DataSet(mlr, start=0.0)

    def test_ground_motion_is_counts_over_the_response_in_the_band(
        self, mlr: pathlib.Path
    ) -> None:
        with ksutil.DataSet(mlr) as data:
            corners = (0.5, 1.0, 5.0, 8.0)
            motion = data.ground_motion("MLR.BHZ", motion="V", corners=corners)
            frequencies, amplitudes, _ = data.response_curve(
                "MLR.BHZ", motion="V", low=1.0, high=5.0, n=50
            )
            counts = data.read("MLR.BHZ")
        assert frequencies[[0, -1]].tolist() == pytest.approx([1.0, 5.0])
        band = slice(600, 5400)
        ratio = np.std(counts.filter(low=1.0, high=5.0, zero_phase=True).data[band])
        ratio /= np.std(motion.data[band])
        assert amplitudes.min() * 0.6 < ratio < amplitudes.max() * 1.6

    def test_rotation_keeps_the_energy(self, mlr: pathlib.Path) -> None:
        with ksutil.DataSet(mlr) as data:
            names = ["MLR.BHZ", "MLR.BHN", "MLR.BHE"]
            before = [data.read(name).data for name in names]
            up, radial, transverse = data.rotate(names, 30.0)
        energy = before[1] ** 2 + before[2] ** 2
        np.testing.assert_allclose(up.data, before[0], atol=1e-6 * abs(before[0]).max())
        np.testing.assert_allclose(radial.data**2 + transverse.data**2, energy)
        assert [each.chan for each in (up, radial, transverse)] == ["BHZ", "BHR", "BHT"]

    def test_files_written_are_read_back(
        self, mlr: pathlib.Path, tmp_path: pathlib.Path
    ) -> None:
        folder = tmp_path / "out"
        folder.mkdir()
        with ksutil.DataSet(mlr) as data:
            (path,) = data.write_sac(folder, channel="MLR.BHZ")
            with pytest.raises(ksutil.Error):
                data.write_sac(folder, channel="MLR.BHZ")
            assert data.write_sac(folder, channel="MLR.BHZ", replace=True) == [path]
            assert np.array_equal(ksutil.Sac.read(path).data, raw(mlr))
            if ksutil.miniseed_available():
                paths = data.write_miniseed(folder)
                (series,) = ksutil.read_miniseed(paths[-1])
                assert len(paths) == 3 and np.array_equal(series.data, raw(mlr))

    def test_threads_share_one_data_set(self, mlr: pathlib.Path) -> None:
        expected = raw(mlr).sum()
        wrong: list[object] = []
        with ksutil.DataSet(mlr) as data:

            def read() -> None:
                for _ in range(30):
                    total = data.read("MLR.BHZ").data.sum()
                    if total != expected or len(data.segments("MLR.BHN")) != 1:
                        wrong.append(total)

            threads = [threading.Thread(target=read) for _ in range(4)]
            for thread in threads:
                thread.start()
            for thread in threads:
                thread.join()
        assert not wrong


class TestStationView:
    def test_envelopes_equal_numpy(self, mlr: pathlib.Path) -> None:
        window = (START, START + 150.0)
        with ksutil.StationView(
            mlr, ["MLR.BHZ"], start=window[0], end=window[1], columns=100
        ) as view:
            envelope = view.envelope()
            samples = view.samples("MLR.BHZ")
            assert view.counters()["bytes_read"] > 0
        blocks = raw(mlr).reshape(100, 60)
        assert envelope.state == "complete" and (envelope.here == 1).all()
        assert np.array_equal(envelope.min, blocks.min(axis=1))
        assert np.array_equal(envelope.max, blocks.max(axis=1))
        assert np.array_equal(samples.samples, raw(mlr)) and samples.min is None
        assert samples.times()[-1] == pytest.approx(START + 149.975)

    def test_what_is_not_there_is_masked(self, mlr: pathlib.Path) -> None:
        with ksutil.StationView(mlr, [("MLR", "BHZ"), ("MLR", "NO")]) as view:
            view.set_window(START - 150.0, START + 150.0, 10)
            envelope = view.envelope(0)
            assert envelope.min.mask.tolist() == [True] * 5 + [False] * 5
            assert view.envelope(1).state == "nothing"
            assert view.wait(5.0)

    def test_errors(self, mlr: pathlib.Path) -> None:
        view = ksutil.StationView(mlr, ["MLR.BHZ"])
        with pytest.raises(ksutil.Error, match="ksscv_get"):
            view.envelope()
        with pytest.raises(ksutil.Error, match="ksscv_set_window"):
            view.set_window(1.0, 0.0)
        with pytest.raises(IndexError):
            view.envelope(1)
        with pytest.raises(KeyError):
            view.envelope("MLR.XXX")
        with pytest.raises(ValueError, match="lacks a dot"):
            view.set_channels(["MLR"])
        with pytest.raises(ValueError, match="go together"):
            ksutil.StationView(mlr, start=0.0)
        view.close()
        view.close()
        with pytest.raises(ksutil.Error, match="closed"):
            view.refresh()

    def test_arrays_outlive_the_view(self, mlr: pathlib.Path) -> None:
        view = ksutil.StationView(
            mlr, ["MLR.BHZ"], start=START, end=START + 150.0, columns=6000
        )
        low = view.envelope().min
        view.close()
        del view
        gc.collect()
        assert np.array_equal(low, raw(mlr))

    def test_a_file_that_cannot_be_read_is_told(self, mlr: pathlib.Path) -> None:
        (mlr.parent / "mlr.w").unlink()
        with ksutil.StationView(
            mlr, ["MLR.BHZ"], start=START, end=START + 1.0, columns=5
        ) as view:
            envelope = view.envelope()
        assert envelope.state == "error" and "mlr.w" in envelope.message

    def endless(self, folder: pathlib.Path) -> pathlib.Path:
        """A database with billions of samples, zeros that take no room on the disk."""
        path, count, rows = folder / "endless", 99_000_000, 40
        with open(folder / "endless.w", "wb") as file:
            file.truncate(4 * count)
        begin = np.arange(rows) * 990000.0
        with ksutil.create_database(path) as db:
            db["wfdisc"].append_rows(
                {
                    "sta": ["ABC"] * rows,
                    "chan": ["HHZ"] * rows,
                    "time": begin,
                    "endtime": begin + 990000.0 - 0.01,
                    "wfid": np.arange(1, rows + 1),
                    "nsamp": np.full(rows, count),
                    "samprate": np.full(rows, 100.0),
                    "datatype": ["s4"] * rows,
                    "dir": ["."] * rows,
                    "dfile": ["endless.w"] * rows,
                    "foff": np.zeros(rows, dtype=int),
                },
                force=True,
            )
        return path

    def test_a_close_ends_the_wait_of_another_thread(
        self, tmp_path: pathlib.Path
    ) -> None:
        view = ksutil.StationView(self.endless(tmp_path), ["ABC.HHZ"])
        view.set_window(0.0, 3.96e7, 1000)
        assert not view.wait(0.0)
        assert view.envelope(timeout=0.0).state == "coming"
        ends: list[str] = []

        def wait() -> None:
            try:
                view.envelope()
            except ksutil.Error as error:
                ends.append(str(error))

        thread = threading.Thread(target=wait)
        thread.start()
        view.close()
        thread.join(20.0)
        assert len(ends) == 1 and "clos" in ends[0]

    def test_ctrl_c_ends_a_wait_and_the_program(self, tmp_path: pathlib.Path) -> None:
        code = (
            "import ksutil\n"
            f"view = ksutil.StationView({str(self.endless(tmp_path))!r}, ['ABC.HHZ'])\n"
            "view.set_window(0.0, 3.96e7, 1000)\n"
            "try:\n"
            "    print('waits', flush=True)\n"
            "    view.envelope()\n"
            "except KeyboardInterrupt:\n"
            "    print('interrupted')\n"
        )
        process = subprocess.Popen([sys.executable, "-c", code], stdout=subprocess.PIPE)
        assert process.stdout is not None
        process.stdout.readline()
        process.send_signal(signals.SIGINT)
        out, _ = process.communicate(timeout=30)
        assert (out, process.returncode) == (b"interrupted\n", 0)

    def test_a_forked_child_leaves_the_view_alone(self, mlr: pathlib.Path) -> None:
        view = ksutil.StationView(mlr, ["MLR.BHZ"], start=START, end=START + 9.0)
        # The sanitizers' allocator does not survive a fork amid the work of a thread.
        assert view.envelope().state == "complete"
        child = os.fork()
        if child == 0:
            signals.alarm(20)
            try:
                view.envelope()
                os._exit(1)
            except ksutil.Error as error:
                view.close()
                os._exit(0 if "process that opened it" in str(error) else 2)
        assert os.waitpid(child, 0)[1] == 0
        assert view.envelope().state == "complete"
        view.close()

    def test_an_exit_with_open_views_and_threads_is_quick_and_quiet(
        self, tmp_path: pathlib.Path
    ) -> None:
        code = (
            "import ksutil, threading\n"
            f"v = ksutil.StationView({str(self.endless(tmp_path))!r}, ['ABC.HHZ'])\n"
            "v.set_window(0.0, 3.96e7, 1000)\n"
            "class C: pass\n"
            "c = C(); c.c = c; c.v = v\n"
            "def wait():\n"
            "    try: v.envelope()\n"
            "    except ksutil.Error: pass\n"
            "def filter():\n"
            "    s = ksutil.Series(range(100000), 0.0, 1.0)\n"
            "    while True: s.copy().filter(high=0.2)\n"
            "for work in (wait, filter, filter):\n"
            "    threading.Thread(target=work, daemon=True).start()\n"
        )
        done = subprocess.run(
            [sys.executable, "-c", code], capture_output=True, text=True, timeout=60
        )
        assert (done.returncode, done.stderr) == (0, "")


class TestResponse:
    PAZ = "ZEROS 1\nPOLES 1\n-6.283185307179586 0\nCONSTANT 2.0\n"

    def test_a_pole_and_a_zero(self) -> None:
        response = ksutil.Response.read(self.PAZ.encode())
        assert response.input_unit == "M" and len(response) == 1
        f = np.array([[0.1, 1.0], [10.0, -1.0]])
        values = response.evaluate(f)
        s = 2j * np.pi * f
        expected = 2.0 * s / (s + 2 * np.pi)
        np.testing.assert_allclose(values[0], expected[0])
        assert np.isnan(values[1, 1])
        assert response.stages[0]["poles"].tolist() == [-2 * np.pi]
        velocity = response.ground([1.0], "V")
        np.testing.assert_allclose(velocity, expected[0, 1] / (2j * np.pi))

    def test_files_there_and_back(self, tmp_path: pathlib.Path) -> None:
        response = ksutil.Response.read(self.PAZ.encode())
        response.write(tmp_path / "response")
        again = ksutil.Response.read(tmp_path / "response")
        f = np.geomspace(0.01, 10.0, 30)
        np.testing.assert_allclose(again.evaluate(f), response.evaluate(f), rtol=1e-5)

    def test_errors_name_file_and_line(self, tmp_path: pathlib.Path) -> None:
        bad = tmp_path / "bad"
        bad.write_text("ZEROS 1\nPOLES many\n")
        with pytest.raises(ksutil.Error, match="bad:2"):
            ksutil.Response.read(bad)
        with pytest.raises(ksutil.Error):
            ksutil.Response.read(b"")
        response = ksutil.Response.read(self.PAZ.encode())
        with pytest.raises(ValueError, match="'D', 'V' or 'A'"):
            response.ground([1.0], "X")


class TestSignal:
    def test_onsets_are_where_the_burst_begins(self) -> None:
        random = np.random.default_rng(1)
        samples = random.normal(size=6000)
        samples[4000:4400] *= 30.0
        indices, ratios = ksutil.signal.onsets(samples, 100.0, sta=0.5, lta=10.0)
        assert len(indices) == 1 and 4000 <= indices[0] <= 4060
        assert ratios[0] >= 6.0

    def test_the_integral_of_the_spectrum_is_the_variance(self) -> None:
        samples = np.random.default_rng(2).normal(size=50000)
        f, density = ksutil.signal.psd(samples, 50.0, piece=1024)
        assert len(f) == 512 and density.sum() * f[0] == pytest.approx(1.0, rel=0.05)

    def test_gaps_come_back_as_nan_and_arguments_stay(self) -> None:
        samples = np.sin(np.arange(1000.0))
        samples[300:310] = np.nan
        before = samples.copy()
        filtered = ksutil.signal.filter(samples, 100.0, high=40.0)
        assert np.isnan(filtered[300:310]).all() and not np.isnan(filtered[:300]).any()
        np.testing.assert_array_equal(samples, before)

    def test_rotation_of_arrays(self) -> None:
        north = [np.zeros(5), np.ones(5), np.zeros(5)]
        up, radial, transverse = ksutil.signal.rotate(
            north, [(0.0, 0.0), (0.0, 90.0), (90.0, 90.0)], 180.0
        )
        np.testing.assert_allclose(up, 0.0, atol=1e-12)
        np.testing.assert_allclose(radial, 1.0)
        np.testing.assert_allclose(transverse, 0.0, atol=1e-12)
        with pytest.raises(ksutil.Error):
            ksutil.signal.rotate(north, [(0.0, 0.0)] * 3, 0.0)

    def test_removing_a_response_undoes_it(self) -> None:
        response = ksutil.Response.read(TestResponse.PAZ.encode())
        t = np.arange(8192) / 50.0
        ground = np.sin(2 * np.pi * 1.0 * t)
        gain = response.ground([1.0], "D")[0]
        counts = abs(gain) * np.sin(2 * np.pi * t + np.angle(gain))
        motion = ksutil.signal.remove_response(
            counts, 50.0, response, motion="D", corners=(0.2, 0.4, 5.0, 10.0)
        )
        middle = slice(2000, 6000)
        np.testing.assert_allclose(motion[middle], ground[middle], atol=2e-3)

    @pytest.mark.parametrize(
        ("call", "error"),
        [
            (lambda: ksutil.signal.filter([1.0], 0.0), ValueError),
            (lambda: ksutil.signal.filter([1.0], 10.0, low=6.0), ksutil.Error),
            (lambda: ksutil.signal.filter("abc", 10.0), TypeError),
            (lambda: ksutil.signal.psd([1.0], 1.0), ksutil.Error),
            (lambda: ksutil.signal.psd([1.0], 1.0, piece=-5), ValueError),
            (lambda: ksutil.signal.resample([1.0], 1.0, 1e9), ksutil.Error),
            (lambda: ksutil.signal.onsets([1.0], 1.0, sta=0.0), ValueError),
        ],
    )
    def test_wrong_arguments(self, call: Callable[[], object], error: type) -> None:
        with pytest.raises(error):
            call()


def test_damaged_miniseed_is_never_a_crash() -> None:
    if not ksutil.miniseed_available():
        pytest.skip("built without libmseed")
    good = ksutil.Series(
        np.arange(3000.0) % 77, 1e9, 20.0, sta="ABC", chan="BHZ"
    ).to_miniseed()
    for damaged in (b"", b"no records", good[:300]):
        with pytest.raises(ksutil.Error):
            ksutil.read_miniseed(damaged)
    random = np.random.default_rng(5)
    for _ in range(300):
        damaged = bytearray(good[: int(random.integers(512, len(good)))])
        for place in random.integers(0, len(damaged), 8):
            damaged[place] = int(random.integers(0, 256))
        try:
            pieces = ksutil.read_miniseed(bytes(damaged))
            assert sum(len(each) for each in pieces) < 10_000_000
        except ksutil.Error:
            pass


class TestFigures:
    def texts(self, figure: ksutil.Figure) -> str:
        root = ElementTree.fromstring(figure._repr_svg_())
        return " ".join("".join(each.itertext()) for each in root.iter())

    def test_objects_draw_themselves(
        self, mlr: pathlib.Path, tmp_path: pathlib.Path
    ) -> None:
        with ksutil.DataSet(mlr) as data:
            traces = data.figure(title="Three traces", markers=[(START + 60.0, "Pick")])
            assert "Three traces" in self.texts(traces)
            assert "Pick" in self.texts(traces) and "BHE" in self.texts(traces)
            response = data.response(0).figure(motion="V", title="A response")
            assert "frequency (Hz)" in self.texts(response)
            channel = ksutil.figures.channel_response_figure(data, "MLR.BHZ")
            assert "MLR.BHZ" in self.texts(channel)
            assert "counts / (m/s)" in self.texts(channel)
            series = data.read(0)
        assert "MLR" in self.texts(series.figure())
        sac = ksutil.Sac.from_series(series)
        sac.A, sac.KA = sac.B + 20.0, "IPU0"
        assert "IPU0" in self.texts(sac.figure(title="seismogram"))
        history = ksutil.History(5, name="a history")
        history.extend([0.0, 60.0], [1.0, 2.0])
        assert "a history" in self.texts(history.figure())
        vector = ksutil.Vector([1.0, 2.0], [[1.0, 2.0], [3.0, 4.0]])
        assert "y1" in self.texts(vector.figure())
        grid = ksutil.Grid([0, 1, 2], [0, 1], np.arange(6.0).reshape(2, 3))
        assert "amount" in self.texts(grid.figure(label="amount"))
        tensor = (1e17, -1e17, 0.0, 0.0, 0.0, 0.0)
        ball = ksutil.figures.mechanism_figure(tensor, title="a mechanism")
        assert "a mechanism" in self.texts(ball)
        world = ksutil.figures.event_map([10.0, 20.0], [40.0, 45.0], [4.0, np.nan])
        assert world.svg().startswith("<?xml") or world.svg().startswith("<svg")
        for name in ("a.svg", "a.png", "a.pdf"):
            ball.save(tmp_path / name)
            assert (tmp_path / name).stat().st_size > 500

    def test_errors(self, tmp_path: pathlib.Path) -> None:
        figure = ksutil.Figure("empty")
        with pytest.raises(ksutil.Error):
            figure.svg()
        with pytest.raises(IndexError):
            figure.line([1.0])
        figure.panel()
        with pytest.raises(ValueError, match="same length"):
            figure.line([1.0, 2.0], [1.0])
        with pytest.raises(ValueError, match="not a colour"):
            figure.line([1.0], colour="blueish")
        with pytest.raises(ValueError, match="scale"):
            figure.panel(xscale="cubic")
        with pytest.raises(ksutil.Error):
            figure.mechanism((np.nan,) * 6)
        with pytest.raises(ksutil.Error):
            figure.save(tmp_path / "no" / "such.svg")
        with pytest.raises(ksutil.Error):
            figure.save(tmp_path / "what.tiff")
