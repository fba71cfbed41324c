"""The module as a whole: it loads, and says which version it is."""

import os
import pathlib
import re
import shutil
import subprocess
import sys

import pytest

import ksutil


def test_version_is_the_library_s() -> None:
    assert re.fullmatch(r"\d+\.\d+\.\d+", ksutil.__version__)


def test_error_is_a_runtime_error_of_this_module() -> None:
    assert issubclass(ksutil.Error, RuntimeError)
    assert f"{ksutil.Error.__module__}.{ksutil.Error.__qualname__}" == "ksutil.Error"


@pytest.mark.skipif(shutil.which("c++") is None, reason="no compiler here")
def test_a_library_with_other_types_is_refused(tmp_path: pathlib.Path) -> None:
    """Else objects of one size are used as objects of another."""
    (tmp_path / "other.cpp").write_text(
        "namespace ksutil::events { unsigned long library_type_layouts() { return 5; } }"
    )
    other = tmp_path / "other.so"
    subprocess.run(
        ["c++", "-shared", "-fPIC", "-o", other, tmp_path / "other.cpp"], check=True
    )
    ran = subprocess.run(
        [sys.executable, "-c", "import ksutil"],
        # A sanitizer's runtime, if there is one, has to be the first.
        env={**os.environ, "LD_PRELOAD": f"{os.environ.get('LD_PRELOAD', '')}:{other}"},
        capture_output=True,
        text=True,
    )
    assert ran.returncode == 1 and "build or install both together" in ran.stderr
