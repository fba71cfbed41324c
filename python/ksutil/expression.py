"""expression: compiles expressions once and evaluates them on arrays."""

from __future__ import annotations

import functools
from collections.abc import Mapping
from typing import Any

import numpy as np

from . import _ksutil
from ._input import column_input
from .database import Rows
from .times import ma


class Expression:
    """An expression of the library, such as "ml >= 4 && depth < 30".

    text  docs/expressions.md describes the language

    Raises Error with the position of the fault when the text is no expression.  May be
    used by several threads.
    """

    def __init__(self, text: str) -> None:
        self._core = _ksutil.Expression(text)

    @property
    def text(self) -> str:
        """The text as it was given."""
        return self._core.text

    @property
    def names(self) -> tuple[str, ...]:
        """The names whose values it uses, in the order of their first use.

        In a long expression with names of several types the last ones may only be
        known after it has been evaluated.
        """
        return tuple(self._core.names)

    def evaluate(self, columns: Mapping[str, Any] | Rows) -> Any:
        """The values of the expression.

        columns  a mapping of at least its names to arrays, which are broadcast to one
                 shape, or single values; a DataFrame; or a table or view.
                 Nulls are NaN, NaT, None and masked values.  Dates, and numbers under
                 the name of a time field of the schema ("time", "endtime"), are times

        Gives an array of that shape: bool, False for nulls; int64, masked where there
        are nulls; float64 with NaN; or objects, str or None.  Only single values give
        a single value, None for a null.
        """
        if isinstance(columns, Rows):
            return columns.column(f"({self.text})")
        while True:
            values, shape = self._evaluated_on(columns)
            if values is not None:
                break  # else more names have come to light
        if shape == ():
            single = values[0]
            if single is None or single is ma.masked:
                return None
            if isinstance(single, str):
                return single
            return None if single != single else single.item()
        return values.reshape(shape)

    def _evaluated_on(
        self, columns: Mapping[str, Any]
    ) -> tuple[Any, tuple[int, ...]]:
        arrays = []
        for name in self.names:
            if name not in columns:
                raise KeyError(f"no column '{name}' for '{self.text}'")
            arrays.append(_as_array(columns[name]))
        shape = np.broadcast_shapes(*(array.shape for array in arrays))
        count = int(np.prod(shape, dtype=np.int64))
        given = []
        for name, array in zip(self.names, arrays):
            if array.ndim > 0 and array.shape != shape:
                array = np.broadcast_to(array, shape, subok=True)
            given.append(_typed(name, array.reshape(-1)))
        return self._evaluated(given, count), shape

    def _evaluated(self, given: list[tuple[Any, ...]], count: int) -> Any:
        """Columns of nulls alone are numbers, or texts where the expression wants these."""
        empty = [i for i, column in enumerate(given) if column[0] == "nulls"]
        if not empty:
            return self._core.evaluate(given, count)
        for i in empty:
            given[i] = ("reals", np.full(len(given[i][1]), np.nan))
        try:
            return self._core.evaluate(given, count)
        except _ksutil.Error:
            for i in empty:
                given[i] = ("texts", [None] * len(given[i][1]))
            return self._core.evaluate(given, count)

    def __repr__(self) -> str:
        return f"Expression({self.text!r})"


def _as_array(values: Any) -> Any:
    if isinstance(values, np.ma.MaskedArray):
        return values
    if hasattr(values, "dtype") and not isinstance(values.dtype, np.dtype):
        return values.to_numpy(dtype=object)  # an extension type of pandas
    array = np.asarray(values)
    if array.dtype.kind in "US":  # nulls beside texts would become texts
        array = np.asarray(values, dtype=object)
    return array


@functools.lru_cache(maxsize=None)
def _time_fields() -> frozenset[str]:
    return frozenset(_ksutil.time_fields("css3.0"))


def _typed(name: str, array: Any) -> tuple[Any, ...]:
    if array.dtype.kind == "b":
        mask = ma.getmaskarray(array).astype(np.uint8)
        return "booleans", ma.getdata(array).astype(np.int64), mask
    column = column_input(name, array)
    if column[0] == "texts" and all(each is None for each in column[1]):
        return "nulls", column[1]
    if column[0] == "integers" and len(column) == 3 and name in _time_fields():
        hidden = column[2]
        reals = np.asarray(column[1], dtype=np.float64)
        column = ("reals", reals if hidden is None else np.where(hidden, np.nan, reals))
    is_time = array.dtype.kind == "M" or name.rpartition(".")[2] in _time_fields()
    if column[0] == "reals" and is_time:
        return "times", column[1]
    return column
