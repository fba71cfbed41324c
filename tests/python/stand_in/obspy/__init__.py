"""A stand-in for ObsPy: the documented calls that the bridge uses, holding bytes.

Objects keep the bytes that they were read from and write them again, so that a test sees
what travelled; there is no seismology in it.
"""

from __future__ import annotations

from typing import Any, BinaryIO


class UTCDateTime:
    def __init__(self, timestamp: float) -> None:
        self.timestamp = float(timestamp)


class _Held:
    FORMAT = ""

    def __init__(self, content: bytes) -> None:
        self.content = content

    def write(self, filename: BinaryIO, format: str) -> None:
        assert format == self.FORMAT, format
        filename.write(self.content)


class Catalog(_Held):
    FORMAT = "QUAKEML"
    events: tuple[Any, ...] = ()


class Inventory(_Held):
    FORMAT = "STATIONXML"
    networks: tuple[Any, ...] = ()


class Stream(_Held):
    FORMAT = "MSEED"

    def __init__(self, content: bytes = b"") -> None:
        super().__init__(content)

    def copy(self) -> Stream:
        return Stream(self.content)

    def split(self) -> Stream:
        return self


def _content(source: Any) -> bytes:
    content = source.read()
    assert isinstance(content, bytes)
    return content


def read_events(pathname_or_url: Any, format: str) -> Catalog:
    assert format == "QUAKEML"
    return Catalog(_content(pathname_or_url))


def read_inventory(path_or_file_object: Any, format: str) -> Inventory:
    assert format == "STATIONXML"
    return Inventory(_content(path_or_file_object))


def read(pathname_or_url: Any, format: str) -> Stream:
    assert format == "MSEED"
    return Stream(_content(pathname_or_url))
