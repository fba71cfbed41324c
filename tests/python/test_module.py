"""The module as a whole: it loads, and says which version it is."""

import re

import ksutil


def test_version_is_the_library_s() -> None:
    assert re.fullmatch(r"\d+\.\d+\.\d+", ksutil.__version__)


def test_error_is_a_runtime_error_of_this_module() -> None:
    assert issubclass(ksutil.Error, RuntimeError)
    assert f"{ksutil.Error.__module__}.{ksutil.Error.__qualname__}" == "ksutil.Error"
