"""Expressions on arrays: the same values as on the rows of a table."""

import pathlib
import threading

import numpy as np
import pytest

import ksutil


def test_arrays_give_what_the_rows_give(database: pathlib.Path) -> None:
    with ksutil.Database(database) as db:
        origin = db["origin"]
        columns = origin.columns()
        for text in (
            "mb >= 4 && depth < 30",
            "mb * 2 + ndef",
            "auth =~ '.*[a-m].*' || lat > 0",
            "time + 60",
            "orid % 7",
            "time > '2010-05-20T21:00:00'",
            "auth",
            "lat",
        ):
            expression = ksutil.Expression(text)
            from_arrays = expression.evaluate(columns)
            from_rows = expression.evaluate(origin)
            assert from_arrays.dtype == from_rows.dtype
            np.testing.assert_array_equal(
                np.ma.filled(np.ma.asarray(from_arrays), 0),
                np.ma.filled(np.ma.asarray(from_rows), 0),
            )


def test_types_shapes_and_nulls() -> None:
    expression = ksutil.Expression("ml >= 4 && depth < 30")
    assert expression.names == ("ml", "depth")
    ml = np.array([[3.0, 4.0], [np.nan, 5.0]])
    assert expression.evaluate({"ml": ml, "depth": 10}).tolist() == [[False, True], [False, True]]
    assert expression.evaluate({"ml": 4.5, "depth": 10.0}) is True
    assert ksutil.Expression("ml + 1").evaluate({"ml": None}) is None
    whole = ksutil.Expression("evid + 1").evaluate({"evid": np.ma.masked_equal([1, -1, 3], -1)})
    assert whole.tolist() == [2, None, 4] and whole.dtype == np.int64
    texts = ksutil.Expression("sta").evaluate({"sta": ["A", None, "C"]})
    assert texts.tolist() == ["A", None, "C"]
    assert ksutil.Expression("sta == 'A'").evaluate({"sta": np.array(["A", "B"])}).tolist() == [True, False]
    late = ksutil.Expression("time > '2015-08-01'")
    dates = np.array(["2015-07-31", "2015-08-02", "NaT"], dtype="datetime64[D]")
    assert late.evaluate({"time": dates}).tolist() == [False, True, False]
    assert late.evaluate({"time": [0, 1500000000]}).tolist() == [False, True]
    both = ksutil.Expression("a && b").evaluate({"a": np.array([True, True]), "b": np.array([True, False])})
    assert both.tolist() == [True, False]
    assert ksutil.Expression("1 + 2").evaluate({}) == 3
    empty = expression.evaluate({"ml": np.zeros(0), "depth": np.zeros(0)})
    assert empty.dtype == bool and empty.shape == (0,)


def test_names_of_several_types() -> None:
    columns = {
        "sta": ["AA", "B"], "ml": [5.0, 5.0], "auth": ["x", "x"], "time": [0.0, 0.0],
        "chan": ["BHZ", "BHZ"], "lat": [1.0, 1.0], "net": ["N", "N"], "flag": [True, True],
    }
    text = "sta =~ 'A.*' && ml > 4 && auth == 'x'"
    expression = ksutil.Expression(text)
    assert expression.names == ("sta", "ml", "auth")
    assert expression.evaluate(columns).tolist() == [True, False]
    text += " && time < '2015-01-01' && chan =~ 'B.*' && lat > 0 && net == 'N' && flag"
    for _ in range(2):
        assert ksutil.Expression(text).evaluate(columns).tolist() == [True, False]
    with pytest.raises(KeyError, match="flag"):
        ksutil.Expression(text).evaluate({**{k: v for k, v in columns.items() if k != "flag"}})


@pytest.mark.parametrize("text", ["", "ml >", "ml + (3", "'open", "f(", "ml ?? 3", "(" * 500])
def test_faults_are_found_when_made(text: str) -> None:
    with pytest.raises(ksutil.Error, match="position"):
        ksutil.Expression(text)


def test_wrong_columns() -> None:
    expression = ksutil.Expression("a + b")
    with pytest.raises(KeyError, match="'b'"):
        expression.evaluate({"a": [1.0]})
    with pytest.raises(ValueError):
        expression.evaluate({"a": [1.0, 2.0], "b": [1.0, 2.0, 3.0]})
    with pytest.raises(ksutil.Error, match="position"):
        expression.evaluate({"a": ["x"], "b": [1.0]})
    with pytest.raises(TypeError):
        expression.evaluate({"a": [object()], "b": [1.0]})
    with pytest.raises(ksutil.Error, match="element 1"):
        ksutil.Expression("time > t").evaluate(
            {"time": [1.0, 2.0], "t": ["2015-08-01", "no date"]}
        )


def test_one_expression_in_many_threads() -> None:
    expression = ksutil.Expression("x * 2 > y")
    x, y = np.arange(100000.0), np.full(100000, 500.0)
    results: list[int] = []
    threads = [
        threading.Thread(target=lambda: results.append(int(expression.evaluate({"x": x, "y": y}).sum())))
        for _ in range(6)
    ]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert results == [100000 - 251] * 6
