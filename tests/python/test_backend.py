"""The backend of pip: a wheel that pip refuses, or that lacks a file, helps nobody."""

import base64
import csv
import hashlib
import io
import pathlib
import sys
import sysconfig
import zipfile

import pytest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(SOURCE / "python" / "backend"))

import ksutil_build  # noqa: E402

import ksutil  # noqa: E402


@pytest.fixture
def build(tmp_path: pathlib.Path) -> pathlib.Path:
    """A folder that looks like a finished build."""
    build = tmp_path / "build"
    extension = build / "python" / "ksutil" / f"_ksutil{sysconfig.get_config_var('EXT_SUFFIX')}"
    for path in (extension, build / "libksutil.so.0.1.0", build / "ksutil" / "store.so"):
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(path.name.encode())
    (build / "libksutil.so.0.1").symlink_to("libksutil.so.0.1.0")
    return build


def test_a_wheel_has_all_files_and_their_digests(
    build: pathlib.Path, tmp_path: pathlib.Path
) -> None:
    files = ksutil_build._files_of(build, SOURCE / "python" / "ksutil")
    name = ksutil_build._write_wheel(str(tmp_path), files)
    version = ksutil.__version__
    assert name.startswith(f"ksutil-{version}-cp{sys.version_info.major}{sys.version_info.minor}-")
    with zipfile.ZipFile(tmp_path / name) as wheel:
        names = set(wheel.namelist())
        record = list(csv.reader(io.StringIO(wheel.read(f"ksutil-{version}.dist-info/RECORD").decode())))
        for path, digest, size in record:
            if not digest:
                continue
            content = wheel.read(path)
            assert int(size) == len(content)
            plain = base64.urlsafe_b64encode(hashlib.sha256(content).digest()).rstrip(b"=")
            assert digest == f"sha256={plain.decode()}"
        metadata = wheel.read(f"ksutil-{version}.dist-info/METADATA").decode()
    assert {path for path, _, _ in record} == names
    assert f"Version: {version}\n" in metadata
    modules = {f"ksutil/{path.name}" for path in (SOURCE / "python" / "ksutil").glob("*.py*")}
    assert modules | {"ksutil/py.typed", "ksutil/libksutil.so.0.1", "ksutil/ksutil/store.so"} <= names


def test_metadata_needs_no_build(tmp_path: pathlib.Path) -> None:
    name = ksutil_build.prepare_metadata_for_build_wheel(str(tmp_path))
    assert (tmp_path / name / "METADATA").read_text().startswith("Metadata-Version: 2.1\nName: ksutil\n")
    assert ksutil_build.get_requires_for_build_wheel() == []


def test_a_failed_build_is_an_error_and_leaves_nothing(
    tmp_path: pathlib.Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    (tmp_path / "bin").mkdir()
    cmake = tmp_path / "bin" / "cmake"
    cmake.write_text("#!/bin/sh\nexit 1\n")
    cmake.chmod(0o755)
    monkeypatch.setenv("PATH", str(tmp_path / "bin"))
    monkeypatch.setattr("tempfile.tempdir", str(tmp_path))
    with pytest.raises(Exception, match="cmake"):
        ksutil_build.build_wheel(str(tmp_path))
    assert sorted(path.name for path in tmp_path.iterdir()) == ["bin"]
