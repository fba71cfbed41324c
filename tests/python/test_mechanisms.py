"""Moment tensors: known mechanisms, shapes, and rows of a database."""

import math
import pickle

import numpy as np
import pytest

import ksutil
from ksutil import MomentTensor


@pytest.fixture
def thrust() -> MomentTensor:
    """A thrust on a plane that dips 45 degrees to the east, of 1 N m."""
    return MomentTensor.from_planes(0.0, 45.0, 90.0)


def test_thrust_has_its_axes_planes_and_parts(thrust: MomentTensor) -> None:
    assert thrust.mrr == pytest.approx(1.0) and thrust.mpp == pytest.approx(-1.0)
    assert thrust.axes.t.plunge == pytest.approx(90.0)
    assert thrust.axes.p.plunge == pytest.approx(0.0, abs=1e-6)
    assert thrust.axes.p.azimuth % 180.0 == pytest.approx(90.0)
    first, second = thrust.planes
    assert (first.strike, first.dip, first.rake) == pytest.approx((0, 45, 90), abs=1e-6)
    assert second == pytest.approx((180.0, 45.0, 90.0), abs=1e-6)
    assert thrust.parts == pytest.approx((0.0, 100.0, 0.0), abs=1e-9)
    assert thrust.moment == pytest.approx(1.0) == thrust.dc_moment
    values, vectors = thrust.eigen
    assert values.tolist() == pytest.approx([1, 0, -1], abs=1e-12)
    assert np.allclose(vectors @ thrust.matrix @ vectors.T, np.diag(values))
    assert MomentTensor.from_ned(*thrust.ned) == thrust
    assert thrust.rotation(thrust) == pytest.approx(0.0, abs=1e-5)


def test_magnitude_and_moment() -> None:
    tensor = MomentTensor.from_planes(10, 20, 30, mw=7.1)
    assert tensor.mw == pytest.approx(7.1)
    assert tensor.moment == pytest.approx(10 ** (1.5 * 7.1 + 9.1))
    moment = ksutil.moment_of_magnitude(5.0)
    assert ksutil.magnitude_of_moment(moment) == pytest.approx(5.0)
    with pytest.raises(ValueError):
        MomentTensor.from_planes(0, 0, 0, moment=1.0, mw=1.0)
    with pytest.raises(ksutil.Error):
        MomentTensor(0, 0, 0, 0, 0, 0).mw


def test_explosion_has_no_planes() -> None:
    explosion = MomentTensor(1, 1, 1, 0, 0, 0)
    assert explosion.parts == pytest.approx((100.0, 0.0, 0.0))
    assert explosion.nodal_lines() == [] == explosion.dc_nodal_lines()
    with pytest.raises(ksutil.Error):
        explosion.planes
    (rim,) = explosion.outline()
    assert np.allclose(np.hypot(rim[:, 0], rim[:, 1]), 1.0)


def test_radiation_is_the_tensor_along_the_ray(thrust: MomentTensor) -> None:
    azimuth = np.arange(0.0, 360.0, 30.0)[:, None]
    takeoff = np.array([0.0, 30.0, 90.0, 150.0])
    found = thrust.radiation(azimuth, takeoff)
    assert found.p.shape == (12, 4) == found.sh.shape
    a, i = np.radians(azimuth), np.radians(takeoff)
    ray = np.stack(
        np.broadcast_arrays(-np.cos(i), -np.sin(i) * np.cos(a), np.sin(i) * np.sin(a))
    )
    assert np.allclose(found.p, np.einsum("ixy,ij,jxy->xy", ray, thrust.matrix, ray))
    assert np.isnan(thrust.radiation(0.0, 181.0).p)
    assert isinstance(thrust.radiation(0.0, 0.0).p, float)


def test_curves_lie_on_the_disk_where_p_vanishes() -> None:
    tensor = MomentTensor.from_planes(30.0, 60.0, 40.0)
    lines = tensor.nodal_lines()
    assert len(lines) == 2 and all(line.shape[1] == 2 for line in lines)
    for line in lines:
        radius = np.hypot(line[:, 0], line[:, 1])
        assert radius.max() <= 1.0 + 1e-9
        takeoff = np.degrees(2 * np.arcsin(np.minimum(radius / math.sqrt(2), 1.0)))
        azimuth = np.degrees(np.arctan2(line[:, 0], line[:, 1]))
        assert np.abs(tensor.radiation(azimuth, np.minimum(takeoff, 90)).p).max() < 1e-6
    x, y = MomentTensor.project([0.0, 90.0, 0.0], [0.0, 0.0, 90.0])
    assert x.tolist() == pytest.approx([0, 1, 0], abs=1e-12)
    assert y.tolist() == pytest.approx([1, 0, 0], abs=1e-12)
    assert np.isnan(MomentTensor.project(0.0, 91.0)[0])
    for wrong in ({"hemisphere": "left"}, {"projection": "flat"}):
        with pytest.raises(ValueError):
            tensor.outline(**wrong)


def test_tensor_shows_itself(thrust: MomentTensor) -> None:
    assert thrust._repr_svg_().count("<svg") == 1
    assert "A thrust" in thrust.figure(title="A thrust")._repr_svg_()


def test_wrong_tensors_are_refused() -> None:
    with pytest.raises(ksutil.Error):
        MomentTensor(math.nan, 0, 0, 0, 0, 0)
    with pytest.raises(ksutil.Error):
        MomentTensor(1e200, 0, 0, 0, 0, 0)
    with pytest.raises((TypeError, ValueError)):
        MomentTensor("x", 0, 0, 0, 0, 0)  # type: ignore[arg-type]
    with pytest.raises(ksutil.Error):
        MomentTensor.from_planes(0, 91, 0)
    with pytest.raises(TypeError):
        MomentTensor.from_planes("a", 1, 0)  # type: ignore[arg-type]


def test_tensor_is_a_value(thrust: MomentTensor) -> None:
    assert pickle.loads(pickle.dumps(thrust)) == thrust
    assert MomentTensor(*thrust) == thrust and hash(MomentTensor(*thrust)) == hash(thrust)
    assert MomentTensor.from_row(thrust.as_dict()) == thrust
    assert thrust != 5 and repr(thrust).startswith("MomentTensor(mrr=1")
    with pytest.raises(ValueError, match="no tensor"):
        MomentTensor.from_row({**thrust.as_dict(), "mtp": None})
    with pytest.raises(AttributeError):
        thrust.mrr = 5  # type: ignore[misc]
