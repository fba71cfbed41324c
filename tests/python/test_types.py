"""The types that the package promises are those that it has."""

import importlib.util
import os
import pathlib
import subprocess
import sys

import pytest

import ksutil

SOURCE = pathlib.Path(__file__).resolve().parents[2]
PACKAGE = pathlib.Path(ksutil.__file__).parent

type_checked = pytest.mark.skipif(
    importlib.util.find_spec("mypy") is None or "LD_PRELOAD" in os.environ,
    reason="needs mypy, and an interpreter without a sanitizer",
)


def run(*command: str, path: str = "") -> None:
    ran = subprocess.run(
        command, cwd=SOURCE, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
        env={**os.environ, "MYPYPATH": path},
    )
    assert ran.returncode == 0, ran.stdout


@type_checked
def test_the_package_is_strictly_typed(tmp_path: pathlib.Path) -> None:
    run(sys.executable, "-m", "mypy", "--config-file", "pyproject.toml",
        "--cache-dir", str(tmp_path), "python/ksutil")


@type_checked
def test_the_stubs_are_those_of_the_extension(tmp_path: pathlib.Path) -> None:
    config = tmp_path / "mypy.ini"
    config.write_text(f"[mypy]\ncache_dir = {tmp_path}\n")
    allowed = tmp_path / "allowed"  # metaclass and constructors of pybind11
    allowed.write_text("ksutil\\._ksutil\\.\\w+\nksutil\\._ksutil\\.\\w+\\.__init__\n")
    run(sys.executable, "-m", "mypy.stubtest", "ksutil._ksutil", "--mypy-config-file",
        str(config), "--allowlist", str(allowed), "--ignore-unused-allowlist",
        path=str(PACKAGE.parent))


def test_threads_give_the_lock_back_in_one_way() -> None:
    """Another way than GilReleased ends the process when Python ends meanwhile."""
    users = [
        path.name
        for path in (SOURCE / "python" / "bindings").rglob("*.[ch]*")
        if path.name != "gil.h" and "py::gil_scoped_release" in path.read_text()
    ]
    assert users == []


def test_everything_public_is_documented() -> None:
    missing = []
    for name in ksutil.__all__:
        value = getattr(ksutil, name)
        if name.startswith("__"):
            continue
        if not (value.__doc__ or "").strip():
            missing.append(name)
        if isinstance(value, type):
            for member, each in vars(value).items():
                plain = each.__func__ if isinstance(each, (classmethod, staticmethod)) else each
                if member.startswith("_") or not (callable(plain) or isinstance(plain, property)):
                    continue
                if not (getattr(plain, "__doc__", None) or "").strip():
                    missing.append(f"{name}.{member}")
    assert missing == []
