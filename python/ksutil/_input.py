"""_input: brings values that a user gives into the forms that the library writes."""

from __future__ import annotations

import datetime
import numbers
from collections.abc import Mapping
from typing import Any

import numpy as np

from .times import epoch_seconds, ma

_DATES = (datetime.datetime, np.datetime64)
_NULLS = (type(None), type(ma.masked))


def _is_null(value: Any) -> bool:
    if isinstance(value, _NULLS):
        return True
    name = type(value).__name__
    return name in ("NAType", "NaTType") or (
        isinstance(value, (float, np.floating)) and bool(np.isnan(value))
    )


def _of_objects(name: str, values: list[Any]) -> tuple[Any, ...]:
    """Finds the one type that a list of objects has, nulls apart."""
    known = [value for value in values if not _is_null(value)]
    if all(isinstance(value, str) for value in known):
        return "texts", [None if _is_null(value) else str(value) for value in values]
    if all(isinstance(value, _DATES) for value in known):
        seconds = [
            np.nan if _is_null(value) else epoch_seconds(value) for value in values
        ]
        return "reals", np.array(seconds, dtype=np.float64)
    if any(
        isinstance(value, (bool, np.bool_)) or not isinstance(value, numbers.Real)
        for value in known
    ):
        kinds = sorted({type(value).__name__ for value in known})
        raise TypeError(
            f"'{name}' takes numbers, texts or dates, not {', '.join(kinds)}"
        )
    if all(isinstance(value, numbers.Integral) for value in known):
        mask = np.array([_is_null(value) for value in values], dtype=np.uint8)
        whole = [0 if _is_null(value) else int(value) for value in values]
        if any(abs(value) >= 2**63 for value in whole):
            raise ValueError(f"'{name}' has a number beyond 64 bits")
        return "integers", np.array(whole, dtype=np.int64), mask
    reals = [np.nan if _is_null(value) else float(value) for value in values]
    return "reals", np.array(reals, dtype=np.float64)


def column_input(name: str, value: Any) -> tuple[Any, ...]:
    """Gives a value, or a sequence of values, in the form of the bindings."""
    if isinstance(value, str) or np.ndim(value) == 0 or isinstance(value, _DATES):
        return _of_objects(name, [value])
    if hasattr(value, "dtype") and not isinstance(value.dtype, np.dtype):
        value = value.to_numpy(dtype=object)  # an extension type of pandas
        if any(isinstance(each, datetime.datetime) for each in value):
            value = [None if _is_null(each) else each for each in value]
    mask = None
    if isinstance(value, np.ma.MaskedArray):
        mask = ma.getmaskarray(value)
        value = ma.getdata(value)
    array = np.asarray(value)
    if array.ndim != 1:
        raise ValueError(f"'{name}' has {array.ndim} dimensions instead of 1")
    kind = array.dtype.kind
    if kind in "iu":
        if kind == "u" and array.size and int(array.max()) >= 2**63:
            raise ValueError(f"'{name}' has a number beyond 64 bits")
        return (
            "integers",
            array.astype(np.int64),
            None if mask is None else mask.astype(np.uint8),
        )
    if kind == "M":
        array, kind = np.asarray(epoch_seconds(array)), "f"
    if kind == "f":
        reals = array.astype(np.float64)
        return "reals", reals if mask is None else np.where(mask, np.nan, reals)
    values = array.tolist() if kind != "O" else list(value)
    if mask is not None:
        values = [None if hidden else each for each, hidden in zip(values, mask)]
    return _of_objects(name, values)


def rows_input(values: Any) -> tuple[dict[str, tuple[Any, ...]], int]:
    """Takes a DataFrame or a mapping of columns: the columns and the number of rows."""
    if hasattr(values, "columns") and hasattr(values, "iloc"):
        values = {str(name): values[name] for name in values.columns}
    if not isinstance(values, Mapping):
        raise TypeError("rows are a DataFrame or a mapping of names to columns")
    columns, count = {}, None
    for name, value in values.items():
        column = column_input(name, value)
        columns[name] = column
        if np.ndim(value) == 0 or isinstance(value, str):
            continue  # one value for all rows
        size = len(column[1])
        if count is not None and size != count:
            raise ValueError(f"'{name}' has {size} values for {count} rows")
        count = size
    if count is None:
        count = 1 if columns else 0
    return columns, count
