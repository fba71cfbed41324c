"""Travel times and distances on arrays: the library's numbers, in numpy's shapes."""

import threading

import numpy as np
import pytest

import ksutil


def test_times_are_those_of_the_published_tables() -> None:
    # IASPEI 1991 tables, surface focus and 100 km; ak135 at the surface
    assert ksutil.travel_times(30.0, 0.0) == pytest.approx(370.4, abs=0.3)
    assert ksutil.travel_times(60.0, 0.0) == pytest.approx(608.1, abs=0.3)
    assert ksutil.travel_times(60.0, 0.0, "S") == pytest.approx(1102.9, abs=0.6)
    assert ksutil.travel_times(60.0, 0.0, model="ak135") == pytest.approx(608, abs=1)
    assert ksutil.travel_times(60.0, 100.0) < ksutil.travel_times(60.0, 0.0)


def test_arguments_are_broadcast() -> None:
    distance = np.linspace(0.0, 180.0, 7)[:, None]
    depth = np.array([0, 35, 700])
    times = ksutil.travel_times(distance, depth)
    assert times.shape == (7, 3) and times.dtype == np.float64
    for i, row in enumerate(distance[:, 0]):
        for j, column in enumerate(depth):
            assert times[i, j] == ksutil.travel_times(row, column)
    assert isinstance(ksutil.travel_times(10, 10), float)
    assert ksutil.travel_times([], 10).shape == (0,)
    turned = np.asfortranarray(np.arange(6.0).reshape(2, 3))[::-1]
    assert (ksutil.travel_times(turned, 0)[0] == ksutil.travel_times([3, 4, 5], 0)).all()
    with pytest.raises(ValueError):
        ksutil.travel_times([1, 2], [1, 2, 3])


def test_there_is_nan_where_there_is_no_arrival() -> None:
    times = ksutil.travel_times([-1, 361, np.nan, 10, 10], [0, 0, 0, 701, -11])
    assert np.isnan(times).all()
    found = ksutil.first_arrivals([10.0, np.nan], 5.0)
    assert found.phase.tolist() == ["Pn", ""] and np.isnan(found.slowness[1])
    assert ksutil.travel_times(190.0, 0.0) == ksutil.travel_times(170.0, 0.0)


def test_slowness_is_the_slope_of_time() -> None:
    distance = np.array([5.0, 40.0, 80.0])
    found = ksutil.first_arrivals(distance, 33.0)
    step = 0.05
    slope = ksutil.travel_times(distance + step, 33.0) - ksutil.travel_times(
        distance - step, 33.0
    )
    assert np.allclose(found.slowness, slope / (2 * step), atol=0.05)
    assert (found.time == ksutil.travel_times(distance, 33.0)).all()


def test_wrong_names_and_types_are_refused() -> None:
    with pytest.raises(ValueError, match="no Earth model 'mars'"):
        ksutil.travel_times(10, 10, "P", "mars")
    with pytest.raises(ValueError, match="phase"):
        ksutil.travel_times(10, 10, "Pn")
    with pytest.raises((TypeError, ValueError)):
        ksutil.travel_times("far", 10)
    with pytest.raises((TypeError, ValueError)):
        ksutil.travel_times([object()], 10)


def test_threads_share_the_tables() -> None:
    expected = ksutil.travel_times(np.linspace(0, 180, 1000), 10.0, "S", "ak135")
    results: list[object] = []

    def work() -> None:
        distance = np.linspace(0, 180, 1000)
        results.append(ksutil.travel_times(distance, 10.0, "S", "ak135"))

    threads = [threading.Thread(target=work) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert all(np.array_equal(result, expected) for result in results)


def test_distances_and_azimuths() -> None:
    distance, azimuth = ksutil.distance_azimuth(0, 0, [0, 90, 0, -1, 0], [90, 0, -90, 0, 0])
    assert distance.tolist() == pytest.approx([90, 90, 90, 1, 0])
    assert azimuth.tolist() == pytest.approx([90, 0, 270, 180, 0])
    distance, azimuth = ksutil.distance_azimuth(10.0, 20.0, -10.0, 200.0)
    assert distance == pytest.approx(180.0) and isinstance(distance, float)
    assert np.isnan(ksutil.distance_azimuth(np.nan, 0, 0, 0)[0])
    assert ksutil.distance_azimuth(np.zeros((3, 1)), 0, np.zeros(4), 1)[0].shape == (3, 4)
