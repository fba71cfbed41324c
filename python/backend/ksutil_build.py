"""ksutil_build: builds a wheel of the Python module with CMake, without a network.

The hooks of PEP 517 and 660, on the standard library alone.  The wheel holds the
extension, the shared library beside it and, where it is built, the store for PostgreSQL
servers; its other libraries are those of the system.

Settings (pip install -C NAME=VALUE .):
  build-dir   where CMake builds; by default a folder that is removed afterwards
  cmake-args  further arguments of cmake, separated by blanks
  jobs        how many compilers run at once; by default one for each processor
"""

from __future__ import annotations

import base64
import contextlib
import hashlib
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import sysconfig
import tarfile
import tempfile
import zipfile
from collections.abc import Iterator
from typing import Optional, Union

Settings = Optional[dict[str, Union[str, list[str]]]]

SOURCE = pathlib.Path(__file__).resolve().parents[2]
EPOCH = (1980, 1, 1, 0, 0, 0)  # of files in a wheel, so that equal builds are equal


def get_requires_for_build_wheel(config_settings: Settings = None) -> list[str]:
    return []


def get_requires_for_build_editable(config_settings: Settings = None) -> list[str]:
    return []


def get_requires_for_build_sdist(config_settings: Settings = None) -> list[str]:
    return []


def prepare_metadata_for_build_wheel(
    metadata_directory: str, config_settings: Settings = None
) -> str:
    folder = pathlib.Path(metadata_directory, _info())
    folder.mkdir()
    (folder / "METADATA").write_bytes(_metadata())
    return folder.name


def prepare_metadata_for_build_editable(
    metadata_directory: str, config_settings: Settings = None
) -> str:
    return prepare_metadata_for_build_wheel(metadata_directory, config_settings)


def build_wheel(
    wheel_directory: str,
    config_settings: Settings = None,
    metadata_directory: str | None = None,
) -> str:
    with _built(config_settings) as build:
        return _write_wheel(wheel_directory, _files_of(build, SOURCE / "python/ksutil"))


def build_editable(
    wheel_directory: str,
    config_settings: Settings = None,
    metadata_directory: str | None = None,
) -> str:
    """A wheel that names the folder of a build which stays (build-dir, build/python)."""
    settings = dict(config_settings or {})
    settings.setdefault("build-dir", str(SOURCE / "build" / "editable"))
    with _built(settings) as build:
        path = f"{build / 'python'}\n".encode()
        return _write_wheel(wheel_directory, {"ksutil_editable.pth": path})


def build_sdist(sdist_directory: str, config_settings: Settings = None) -> str:
    """An archive of the files that git knows."""
    listed = subprocess.run(
        ["git", "ls-files", "-z"], cwd=SOURCE, check=True, stdout=subprocess.PIPE
    ).stdout
    base = f"ksutil-{_version()}"
    name = f"{base}.tar.gz"
    with tarfile.open(os.path.join(sdist_directory, name), "w:gz") as archive:
        for path in sorted(filter(None, os.fsdecode(listed).split("\0"))):
            archive.add(SOURCE / path, f"{base}/{path}", recursive=False)
        with tempfile.TemporaryDirectory() as folder:
            info = pathlib.Path(folder, "PKG-INFO")
            info.write_bytes(_metadata())
            archive.add(info, f"{base}/PKG-INFO")
    return name


def _version() -> str:
    """The version of the library, which core/version.h tells."""
    text = (SOURCE / "core/version.h").read_text()
    parts = re.findall(
        r"^#define KSUTIL_VERSION_(?:MAJOR|MINOR|PATCH) (\d+)$", text, re.MULTILINE
    )
    return ".".join(parts)


@contextlib.contextmanager
def _built(config_settings: Settings) -> Iterator[pathlib.Path]:
    """The folder of a build of the extension and what it needs."""
    settings = config_settings or {}
    chosen = settings.get("build-dir")
    folder = str(chosen) if chosen else tempfile.mkdtemp(prefix="ksutil-build-")
    arguments = settings.get("cmake-args", "")
    if isinstance(arguments, list):
        arguments = " ".join(arguments)
    jobs = str(settings.get("jobs") or os.cpu_count() or 1)
    try:
        configure = ["cmake", "-S", str(SOURCE), "-B", folder]
        if shutil.which("ninja"):
            configure += ["-G", "Ninja"]
        configure += [
            "-DCMAKE_BUILD_TYPE=Release",
            "-DKSUTIL_PYTHON=ON",
            f"-DKSUTIL_PYTHON_EXECUTABLE={sys.executable}",
            "-DKSUTIL_PYTHON_RPATH=$ORIGIN",
            "-DKSUTIL_EXAMPLES=OFF",
            "-DKSUTIL_TESTS=OFF",
            "-DKSUTIL_DOCS=OFF",
            "-DKSUTIL_WERROR=OFF",
            *shlex.split(arguments),
        ]
        subprocess.run(configure, check=True)
        subprocess.run(
            ["cmake", "--build", folder, "--parallel", jobs, "--target", "ksutil_python"],
            check=True,
        )
        yield pathlib.Path(folder).resolve()
    finally:
        if not chosen:
            shutil.rmtree(folder, ignore_errors=True)


def _files_of(build: pathlib.Path, package: pathlib.Path) -> dict[str, bytes]:
    """The files of the wheel by their names in it."""
    files = {}
    for path in sorted(package.iterdir()):
        if path.suffix in (".py", ".pyi") or path.name == "py.typed":
            files[f"ksutil/{path.name}"] = path.read_bytes()
    suffix = sysconfig.get_config_var("EXT_SUFFIX")
    for path in (build / "python" / "ksutil").glob(f"_ksutil*{suffix}"):
        files[f"ksutil/{path.name}"] = path.read_bytes()
    # The extension names the library by its soname.
    for path in build.glob("libksutil.so.*"):
        if re.fullmatch(r"libksutil\.so\.\d+\.\d+", path.name):
            files[f"ksutil/{path.name}"] = path.read_bytes()
    for path in (build / "ksutil").glob("*.so"):
        files[f"ksutil/ksutil/{path.name}"] = path.read_bytes()
    files[f"{_info()}/LICENSE"] = (SOURCE / "LICENSE").read_bytes()
    return files


def _info() -> str:
    return f"ksutil-{_version()}.dist-info"


def _metadata() -> bytes:
    lines = [
        "Metadata-Version: 2.1",
        "Name: ksutil",
        f"Version: {_version()}",
        "Summary: Seismic data processing: databases, events, waveforms, travel times",
        "Requires-Python: >=3.9",
        "Requires-Dist: numpy",
        "Description-Content-Type: text/markdown",
        "",
        (SOURCE / "README.md").read_text(),
    ]
    return "\n".join(lines).encode()


def _tag() -> str:
    python = f"cp{sys.version_info.major}{sys.version_info.minor}"
    platform = re.sub(r"[-.]", "_", sysconfig.get_platform())
    return f"{python}-{python}-{platform}"


def _write_wheel(directory: str, files: dict[str, bytes]) -> str:
    info, tag = _info(), _tag()
    files = dict(files)
    files[f"{info}/METADATA"] = _metadata()
    files[f"{info}/WHEEL"] = (
        "Wheel-Version: 1.0\nGenerator: ksutil_build\nRoot-Is-Purelib: false\n"
        f"Tag: {tag}\n"
    ).encode()
    record = ""
    for name, content in files.items():
        digest = base64.urlsafe_b64encode(hashlib.sha256(content).digest())
        record += f"{name},sha256={digest.rstrip(b'=').decode()},{len(content)}\n"
    files[f"{info}/RECORD"] = f"{record}{info}/RECORD,,\n".encode()
    wheel = f"ksutil-{_version()}-{tag}.whl"
    with zipfile.ZipFile(os.path.join(directory, wheel), "w") as archive:
        for name, content in files.items():
            entry = zipfile.ZipInfo(name, EPOCH)
            entry.external_attr = (0o755 if ".so" in name else 0o644) << 16
            archive.writestr(entry, content, zipfile.ZIP_DEFLATED)
    return wheel
