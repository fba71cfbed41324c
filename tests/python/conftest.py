"""conftest: gives the tests writable copies of the shipped data."""

import pathlib
import shutil
from collections.abc import Callable

import pytest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
DATA = SOURCE / "data"


@pytest.fixture
def shipped() -> pathlib.Path:
    """The folder of the shipped data, which tests only read."""
    return DATA


@pytest.fixture
def copied(tmp_path: pathlib.Path) -> Callable[[str], pathlib.Path]:
    """copied("ueb/ueb_test"): the path of a writable copy of a shipped database."""

    def copy(name: str) -> pathlib.Path:
        source = DATA / name
        target = tmp_path / source.name
        if not (tmp_path / source.name).exists():
            shutil.copytree(source.parent, tmp_path, dirs_exist_ok=True)
        return target

    return copy


@pytest.fixture
def database(copied: Callable[[str], pathlib.Path]) -> pathlib.Path:
    """A writable copy of the bulletin data/ueb/ueb_test."""
    return copied("ueb/ueb_test")
