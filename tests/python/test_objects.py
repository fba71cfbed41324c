"""Vectors, series, grids and histories: values, shapes, and memory that Python shows.

A fault in the ownership of memory crashes a notebook hours later; a fault in shapes or
gaps is a wrong figure that nobody notices.
"""

import copy
import gc
import os
import pathlib
import signal
import subprocess
import sys
import threading
import weakref

import numpy as np
import pytest

import ksutil


def ramp(n: int = 100, **codes: str) -> ksutil.Series:
    return ksutil.Series(np.arange(n, dtype=float), 1000.0, 20.0, **codes)


class TestSeries:
    def test_masked_and_missing_samples_become_gaps(self) -> None:
        values = np.ma.MaskedArray([1.0, 2, 3, 4, 5, 6], mask=[0, 1, 0, 0, 0, 0])
        values[3] = np.nan
        values[5] = -np.inf
        series = ksutil.Series(values, 0.0, 1.0)
        assert series.gaps == [(1.0, 1.0), (3.0, 3.0), (5.0, 5.0)]
        assert np.ma.getmaskarray(series.samples).tolist() == [0, 1, 0, 1, 0, 1]
        assert series.samples.compressed().tolist() == [1.0, 3.0, 5.0]
        assert series.extremes() == (1.0, 5.0)
        assert series.fill() == 2  # the gap at the end has one neighbour only
        assert series.data[:5].tolist() == [1.0, 2.0, 3.0, 4.0, 5.0]

    def test_without_gaps_the_samples_are_a_plain_array(self) -> None:
        assert type(ramp().samples) is np.ndarray

    def test_arrays_show_the_memory_and_changes_in_place(self) -> None:
        series = ramp()
        data = series.data
        assert data.base is not None and not data.flags.writeable
        series.gain(2.0)
        assert data[3] == 6.0
        edited = series.edit()
        edited[0] = 7.0
        assert data[0] == 7.0
        with pytest.raises(ValueError):
            data[0] = 1.0

    def test_arrays_outlive_the_series_and_the_tag_ends_with_the_last(self) -> None:
        series = ramp(200000)
        part = series.data[10:20]
        masked = series.samples
        del series
        gc.collect()
        fresh = [ramp(200000) for _ in range(20)]  # would take the memory again
        assert part.tolist() == list(range(10, 20))
        assert masked[-1] == 199999.0
        assert all(each.data[5] == 5.0 for each in fresh)

    def test_evaluation_is_linear_and_nan_beside_gaps_and_outside(self) -> None:
        series = ksutil.Series([0.0, 10.0, np.nan, 30.0], 100.0, 2.0)
        at = np.array([[100.0, 100.25, 100.5], [100.75, 99.0, np.nan]])
        values = series.evaluate(at)
        assert values.shape == (2, 3)
        np.testing.assert_allclose(values[0], [0.0, 5.0, 10.0])
        assert np.isnan(values[1]).all()

    def test_window_includes_both_ends(self) -> None:
        part = ramp().window(1000.5, 1001.0)
        assert part.time == 1000.5 and part.endtime == 1001.0
        assert part.data.tolist() == list(range(10, 21))
        assert len(ramp().window(2000.0)) == 0

    def test_a_band_pass_keeps_the_band_and_takes_the_rest(self) -> None:
        t = np.arange(4000) / 100.0
        slow, fast = np.sin(2 * np.pi * 0.2 * t), np.sin(2 * np.pi * 5.0 * t)
        series = ksutil.Series(slow + fast, 0.0, 100.0)
        assert series.filter(low=1.0, high=20.0, zero_phase=True) is series
        middle = slice(1000, 3000)
        np.testing.assert_allclose(series.data[middle], fast[middle], atol=2e-3)

    def test_a_rate_that_dt_cannot_hold_comes_back_as_given(self) -> None:
        for rate in (40.0, 0.1, 3.0, 19.98, 1e-4):
            assert ksutil.Series([0.0], 0.0, rate).samprate == rate

    def test_a_series_without_samples_has_no_extremes(self) -> None:
        assert ksutil.Series([], 0.0, 1.0).extremes() is None

    def test_copies_have_their_own_samples(self) -> None:
        series = ramp(net="XX", sta="AAA", chan="BHZ")
        for other in (series.copy(), copy.copy(series), copy.deepcopy(series)):
            other.gain(0.0)
            assert other.sta == "AAA" and other.tag != series.tag
        assert series.data[9] == 9.0

    @pytest.mark.parametrize(
        ("samples", "error"),
        [
            ("text", TypeError),
            (["a", "b"], TypeError),
            ([1 + 2j], TypeError),
            (np.array([None, 1]), TypeError),
            ([[1.0, 2.0]], ValueError),
            (3.0, ValueError),
            (np.zeros(3, dtype="datetime64[s]"), TypeError),
        ],
    )
    def test_what_are_not_samples_is_refused(self, samples: object, error: type) -> None:
        with pytest.raises(error):
            ksutil.Series(samples, 0.0, 1.0)  # type: ignore[arg-type]

    @pytest.mark.parametrize("rate", [0.0, -1.0, np.nan, np.inf])
    def test_a_rate_that_makes_no_sense_is_an_error_of_the_library(
        self, rate: float
    ) -> None:
        with pytest.raises(ksutil.Error, match="ksvector2_create_tsamp"):
            ksutil.Series([1.0], 0.0, rate)

    def test_layouts_of_numpy_give_the_same_samples(self) -> None:
        base = np.arange(20, dtype=">i4")
        for values in (base[::2], base[::-1], base.astype("f4")[5:], base.astype("u1")):
            series = ksutil.Series(values, 0.0, 1.0)
            assert series.data.tolist() == values.tolist()

    def test_resampling_keeps_a_slow_wave(self) -> None:
        t = np.arange(2000) / 100.0
        series = ksutil.Series(np.sin(2 * np.pi * 0.5 * t), 0.0, 100.0)
        slow = series.resample(20.0)
        assert slow.samprate == 20.0 and len(slow) == 400
        expected = np.sin(2 * np.pi * 0.5 * slow.times())
        np.testing.assert_allclose(slow.data[40:-40], expected[40:-40], atol=1e-3)

    def test_miniseed_comes_back_with_codes_gaps_and_counts(self) -> None:
        if not ksutil.miniseed_available():
            pytest.skip("built without libmseed")
        values = np.arange(5000.0)
        values[2000:2100] = np.nan
        series = ksutil.Series(
            values, 1.5e9, 100.0, net="XX", sta="ABCD", loc="00", chan="HHZ"
        )
        first, second = ksutil.read_miniseed(series.to_miniseed())
        assert (first.net, first.sta, first.loc, first.chan) == (
            "XX",
            "ABCD",
            "00",
            "HHZ",
        )
        assert (len(first), len(second)) == (2000, 2900)
        assert second.time == pytest.approx(1.5e9 + 21.0, abs=1e-5)
        assert second.data[0] == 2100.0


class TestVector:
    def test_evaluation_interpolates_and_holds_the_ends(self) -> None:
        vector = ksutil.Vector([0.0, 10.0, 20.0], [[0.0, 1.0], [100.0, 2.0], [50.0, 5.0]])
        values = vector.evaluate([[-5.0, 5.0], [15.0, 99.0]])
        assert values.shape == (2, 2, 2)
        assert values[..., 0].tolist() == [[0.0, 50.0], [75.0, 50.0]]
        assert values[..., 1].tolist() == [[1.0, 1.5], [3.5, 5.0]]
        assert np.isnan(ksutil.Vector([0.0, 1.0], [1.0, 2.0]).evaluate(np.nan))

    def test_evaluation_equals_numpy_on_many_points(self) -> None:
        random = np.random.default_rng(7)
        x = np.sort(random.uniform(0.0, 100.0, 500))
        y = random.normal(size=500)
        at = random.uniform(-10.0, 110.0, 5000)
        np.testing.assert_allclose(
            ksutil.Vector(x, y).evaluate(at), np.interp(at, x, y), rtol=1e-9, atol=1e-12
        )

    def test_arrays_are_views_and_outlive_the_vector(self) -> None:
        vector = ksutil.Vector(np.arange(50.0), np.arange(100.0).reshape(50, 2))
        x, y = vector.x, vector.y
        assert x.strides[0] > 8 and y.shape == (50, 2)
        vector.gain(2.0)
        assert y[3].tolist() == [12.0, 14.0]
        del vector
        gc.collect()
        assert x[49] == 49.0 and y[49, 1] == 198.0

    def test_append_is_refused_while_an_array_is_alive(self) -> None:
        vector = ksutil.Vector([1.0], [2.0], labels=["a"])
        x = vector.x
        with pytest.raises(ksutil.Error, match="append: an array shows this memory"):
            vector.append(2.0, 3.0)
        part = x[:1]
        del x
        with pytest.raises(ksutil.Error, match="array"):
            vector.append(2.0, 3.0)
        del part
        for i in range(1000):
            vector.append(2.0 + i, 3.0, label=f"label {i}")
        assert len(vector) == 1001 and vector.labels[1000] == "label 999"
        assert vector.x[-1] == 1001.0 and vector.y[-1] == 3.0

    def test_points_inserted_are_seen_in_x_and_y(self) -> None:
        vector = ksutil.Vector([1.0, 3.0], [10.0, 30.0])
        vector.append(2.0, 20.0, index=1)
        assert vector.x.tolist() == [1.0, 2.0, 3.0]
        assert vector.y.tolist() == [10.0, 20.0, 20.0]  # the library shares this value

    @pytest.mark.parametrize(
        ("x", "y", "error"),
        [
            ([1.0, 2.0], [1.0], ValueError),
            ([[1.0]], [1.0], ValueError),
            ([1.0], [[[1.0]]], ValueError),
            ([1.0], np.zeros((1, 0)), ValueError),
            (["a"], [1.0], TypeError),
        ],
    )
    def test_wrong_shapes_and_types(self, x: object, y: object, error: type) -> None:
        with pytest.raises(error):
            ksutil.Vector(x, y)  # type: ignore[arg-type]

    def test_errors_of_the_library_carry_its_message(self) -> None:
        with pytest.raises(ksutil.Error, match="ksvector_eval"):
            ksutil.Vector([], []).evaluate(1.0)
        with pytest.raises(IndexError):
            ksutil.Vector([1.0], [1.0]).put(1, 0.0, 0.0)
        with pytest.raises(ValueError, match="2 values"):
            ksutil.Vector([1.0], [[1.0, 2.0]]).append(1.0, 2.0)

    def test_tables_and_statistics(self, tmp_path: pathlib.Path) -> None:
        table = tmp_path / "table.txt"
        table.write_text("# x y z\n1 10 5\n2 20 4\n3 30 3\n")
        vector = ksutil.Vector.read(table, [1, 2])
        assert vector.y.tolist() == [[10.0, 5.0], [20.0, 4.0], [30.0, 3.0]]
        low = ksutil.Vector([1.0, 2.0, 3.0], [[0.0, 9.0], [0.0, 9.0], [0.0, 9.0]])
        greatest = ksutil.Vector.stats([vector, low], "max")
        assert greatest.y.tolist() == [[10.0, 9.0], [20.0, 9.0], [30.0, 9.0]]
        with pytest.raises(ksutil.Error):
            ksutil.Vector.read(tmp_path / "missing")


class TestGrid:
    def grid(self) -> ksutil.Grid:
        frames = np.arange(24, dtype=np.float32).reshape(2, 3, 4)
        return ksutil.Grid([0, 1, 2, 3], [10, 20, 30], frames, time=100.0, dt=5.0)

    def test_frames_and_axes_are_views(self) -> None:
        grid = self.grid()
        assert grid.data.shape == (2, 3, 4) and grid.data.dtype == np.float32
        assert grid.data[1, 2, 3] == 23.0
        data, x = grid.data, grid.x
        del grid
        gc.collect()
        assert data[0, 1, 2] == 6.0 and x.tolist() == [0, 1, 2, 3]

    def test_descending_axes_are_turned_with_their_frames(self) -> None:
        grid = ksutil.Grid([1, 0], [0, 1], [[1.0, 2.0], [3.0, 4.0]])
        assert grid.x.tolist() == [0, 1]
        assert grid.data[0].tolist() == [[2.0, 1.0], [4.0, 3.0]]

    def test_evaluation_broadcasts_and_is_nan_off_the_mesh(self) -> None:
        values = self.grid().evaluate([0.0, 1.5, 9.0], [[10.0], [25.0]], frame=1)
        assert values.shape == (2, 3)
        assert values[0, :2].tolist() == [12.0, 13.5]
        assert values[1, :2].tolist() == [18.0, 19.5]
        assert np.isnan(values[:, 2]).all()
        assert self.grid().evaluate(1.4, 24.0, interpolation="block") == 5.0

    def test_masked_nodes_are_gaps_and_come_back_masked(self) -> None:
        frame = np.ma.MaskedArray(np.ones((3, 4)), mask=False)
        frame[1, 1] = np.ma.masked
        grid = ksutil.Grid([0, 1, 2, 3], [10, 20, 30], frame)
        assert grid.values.mask.sum() == 1 and grid.values.mask[0, 1, 1]
        assert np.isnan(grid.evaluate(1.0, 20.0))
        assert grid.extremes() == (1.0, 1.0)

    @pytest.mark.parametrize("change", ["append", "trim", "put", "to_slowness"])
    def test_what_moves_frames_is_refused_under_an_array(self, change: str) -> None:
        grid = self.grid()
        arguments = {
            "append": {"frame": np.zeros((3, 4))},
            "trim": {"keep": 1},
            "put": {"frames": np.zeros((3, 4))},
            "to_slowness": {"depth": 0.0, "axes": "y"},
        }[change]
        shown = grid.data[0]
        with pytest.raises(ksutil.Error, match=f"{change}: an array"):
            getattr(grid, change)(**arguments)
        assert shown[2, 3] == 11.0
        del shown
        getattr(grid, change)(**arguments)

    def test_packets_and_streams_through_a_pipe(self) -> None:
        grid = self.grid()
        grid.params = np.arange(20.0)
        same = ksutil.Grid.from_packet(grid.to_packet())
        assert np.array_equal(same.data, grid.data) and same.params[7] == 7.0
        large = ksutil.Grid(np.arange(300), np.arange(300), np.ones((300, 300)))
        reading, writing = os.pipe()

        def write() -> None:
            with os.fdopen(writing, "wb") as file:
                large.write(file)
                grid.write(file)

        writer = threading.Thread(target=write)
        writer.start()
        first, second = ksutil.Grid.read(reading), ksutil.Grid.read(reading)
        assert ksutil.Grid.read(reading) is None
        writer.join()
        os.close(reading)
        assert first is not None and first.data.sum() == 90000.0
        assert second is not None and np.array_equal(second.data, grid.data)

    def test_damaged_packets_are_errors(self) -> None:
        packet = self.grid().to_packet()
        for damaged in (b"", packet[:-1], packet + b"x", b"\xff" * len(packet)):
            with pytest.raises(ksutil.Error):
                ksutil.Grid.from_packet(damaged)
        reading, writing = os.pipe()
        os.write(writing, b"\xff\xff\xff\x7f" + packet)
        os.close(writing)
        with pytest.raises(ksutil.Error, match="ends within a packet"):
            ksutil.Grid.read(reading)
        os.close(reading)

    def test_shapes_that_do_not_fit(self) -> None:
        grid = self.grid()
        for frames in (np.zeros((4, 3)), np.zeros(12), np.zeros((1, 1, 3, 4))):
            with pytest.raises(ValueError, match="shape"):
                grid.put(frames)
        with pytest.raises(IndexError):
            grid.extremes(frame=2)
        with pytest.raises(ksutil.Error):
            grid.evaluate(0.0, 0.0, frame=7)
        with pytest.raises(ksutil.Error):
            ksutil.Grid([], [], [])


class TestHistory:
    def test_a_full_list_drops_the_oldest(self) -> None:
        history = ksutil.History(3, name="noise")
        history.extend([1.0, 2.0, 3.0, 4.0], [10.0, 20.0, 30.0, 40.0])
        assert history.times.tolist() == [2.0, 3.0, 4.0]
        assert history.evaluate([0.0, 2.5, 9.0]).tolist() == [20.0, 25.0, 40.0]
        assert history.extremes() == (2.0, 4.0, 20.0, 40.0)

    def test_a_file_keeps_the_entries_and_is_unlocked_by_close(
        self, tmp_path: pathlib.Path
    ) -> None:
        path = tmp_path / "noise.history"
        with ksutil.History(5, file=path) as history:
            history.append(1.0, 2.0)
            with pytest.raises(ksutil.Error, match="in use"):
                ksutil.History(5, file=path)
        with pytest.raises(ksutil.Error, match="closed"):
            history.append(2.0, 3.0)
        assert history.closed
        with ksutil.History(5, file=path) as again:
            assert again.values.tolist() == [2.0]

    def test_a_foreign_file_is_refused_and_stays(self, tmp_path: pathlib.Path) -> None:
        path = tmp_path / "foreign"
        path.write_bytes(b"not a history" * 100)
        with pytest.raises(ksutil.Error):
            ksutil.History(5, file=path)
        assert path.read_bytes() == b"not a history" * 100

    def test_no_entries(self) -> None:
        history = ksutil.History(2)
        assert len(history) == 0 and history.times.tolist() == []
        with pytest.raises(ksutil.Error):
            history.evaluate(1.0)
        with pytest.raises(ValueError):
            ksutil.History(0)


def test_many_threads_make_use_and_free_objects_of_all_families() -> None:
    failures: list[BaseException] = []

    def work(seed: int) -> None:
        try:
            random = np.random.default_rng(seed)
            kept = []
            for _ in range(150):
                n = int(random.integers(1, 3000))
                series = ramp(n)
                vector = ksutil.Vector(np.arange(n), np.arange(n) * 2.0)
                history = ksutil.History(5)
                history.append(0.0, float(n))
                grid = ksutil.Grid([0, 1], [0, 1], [[0.0, 1.0], [2.0, float(n)]])
                kept.append((series.data, vector.y, grid.data, n))
                assert vector.evaluate(n / 2.0) == pytest.approx(min(n, 2 * (n - 1)))
                assert history.evaluate(3.0) == n
                series.copy().filter(low=1.0)
                if len(kept) > 10:
                    data, y, frame, m = kept.pop(0)
                    assert data[-1] == m - 1 and y[-1] == 2.0 * (m - 1)
                    assert frame[0, 1, 1] == m
        except BaseException as failure:
            failures.append(failure)

    threads = [threading.Thread(target=work, args=(seed,)) for seed in range(6)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert not failures


def test_objects_in_cycles_are_collected() -> None:
    class Holder:
        pass

    holder = Holder()
    holder.self = holder  # type: ignore[attr-defined]
    holder.series = ramp()  # type: ignore[attr-defined]
    holder.data = holder.series.data  # type: ignore[attr-defined]
    gone = weakref.ref(holder)
    del holder
    gc.collect()
    assert gone() is None


def test_a_fork_in_the_middle_of_other_threads_finds_free_locks() -> None:
    stop = threading.Event()

    def filter_all_the_time() -> None:
        series = ramp(20000)
        while not stop.is_set():
            series.copy().filter(low=1.0)

    thread = threading.Thread(target=filter_all_the_time)
    thread.start()
    try:
        for _ in range(10):
            child = os.fork()
            if child == 0:
                signal.alarm(20)
                good = ramp(50).copy().data[7] == 7.0
                os._exit(0 if good else 1)
            _, status = os.waitpid(child, 0)
            assert status == 0
    finally:
        stop.set()
        thread.join()


def run_and_interrupt(code: str) -> subprocess.CompletedProcess[str]:
    """Runs a program, and interrupts it as Ctrl-C does once it has printed a line."""
    process = subprocess.Popen(
        [sys.executable, "-c", code], stdout=subprocess.PIPE, stderr=subprocess.PIPE
    )
    assert process.stdout is not None
    process.stdout.readline()
    process.send_signal(signal.SIGINT)
    out, err = process.communicate(timeout=20)
    return subprocess.CompletedProcess(
        [], process.returncode, out.decode(), err.decode()
    )


def test_a_wait_for_a_grid_ends_with_ctrl_c() -> None:
    done = run_and_interrupt(
        "import os, ksutil\n"
        "reading, writing = os.pipe()\n"
        "try:\n"
        "    print('waits', flush=True)\n"
        "    ksutil.Grid.read(reading)\n"
        "except KeyboardInterrupt:\n"
        "    print('interrupted')\n"
    )
    assert done.stdout == "interrupted\n", done.stderr
    assert done.returncode == 0


def test_exit_with_objects_alive_is_quiet() -> None:
    code = (
        "import ksutil, numpy as np\n"
        "s = ksutil.Series(np.arange(9.0), 0.0, 1.0); d = s.data\n"
        "v = ksutil.Vector([1.0], [1.0]); x = v.x\n"
        "g = ksutil.Grid([0], [0], [[1.0]]); t = g.tag\n"
        "h = ksutil.History(3)\n"
        "class C: pass\n"
        "c = C(); c.c = c; c.s = s; c.h = h\n"
    )
    done = subprocess.run(
        [sys.executable, "-c", code], capture_output=True, text=True, timeout=60
    )
    assert (done.returncode, done.stderr) == (0, "")
