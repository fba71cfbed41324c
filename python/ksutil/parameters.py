"""parameters: reads, edits and writes parameter files as texts, lists and dictionaries."""

from __future__ import annotations

import os
import re
from collections.abc import Iterator, Mapping, MutableMapping, Sequence
from typing import Any, NamedTuple, Union

from . import _ksutil

Parameter = Union[str, list[Any], dict[str, Any]]

_PLAIN_KEY = re.compile(r"[\w.+/:,=-]+", re.ASCII)
_PLAIN_TEXT = re.compile(r"[\w.+/:,=-]+( +[\w.+/:,=-]+)*", re.ASCII)


class Violation(NamedTuple):
    """A value that breaks a constraint; line is 0 for one that an edit has made."""

    file: str
    line: int
    path: str
    text: str


class ParameterFile(MutableMapping[str, Parameter]):
    """A parameter file as a mapping of paths to values.

    path    the file; for a name without a slash and with search=True the files of that
            name in the directories of KSUTIL_PF_PATH, merged.  None is an empty file

    A path is a key, or keys and items of tables in turn: pf["map.lines[2].c"].  A key
    that holds dots, brackets or quotes stands in quotes.  Values are str, list (a table)
    and dict (an array); all texts are str.  What a path gives is a copy: pf[path] =
    value changes the file.  An edit keeps all other lines with their comments.
    """

    def __init__(
        self, path: str | os.PathLike[str] | None = None, *, search: bool = False
    ) -> None:
        self._core = _ksutil.Parameters()
        self._path = None if path is None else os.fspath(path)
        if self._path is not None:
            self._core.read(self._path, search)

    @classmethod
    def from_text(cls, text: str, name: str = "") -> ParameterFile:
        """The file of a text; name stands for it in messages."""
        made = cls()
        made._core.read_text(text, name)
        return made

    @classmethod
    def from_dict(cls, values: Mapping[str, Any]) -> ParameterFile:
        """A new file with nested dictionaries, lists and values; see assign."""
        made = cls()
        made.assign(values)
        return made

    @property
    def path(self) -> str | None:
        """The path that it was read from, None for one that was not."""
        return self._path

    @property
    def text(self) -> str:
        """The whole file as write writes it."""
        return self._core.text()

    def as_dict(self) -> dict[str, Any]:
        """The whole file as nested dictionaries and lists of str."""
        values = self._core.get("")
        assert isinstance(values, dict)
        return values

    def write(self, path: str | os.PathLike[str] | None = None) -> None:
        """Writes the file, by default where it was read from.

        A whole new file takes the place of the old one, whose mode it gets.
        """
        target = self._path if path is None else os.fspath(path)
        if target is None:
            raise ValueError("the file has no path; give one")
        self._core.write(target)

    def assign(self, values: Mapping[str, Any]) -> None:
        """Gives the file these contents; what is equal already stays as it is written.

        values  nested mappings, sequences and str; numbers are written as Python shows
                them, True and False as yes and no, None as an empty text
        """
        self._assign("", values)

    def _assign(self, path: str, values: Mapping[str, Any]) -> None:
        present = self._core.get(path)
        assert isinstance(present, dict)
        for key in present:
            if key not in values:
                self._core.remove(_below(path, key))
        for key, value in values.items():
            below = _below(path, key)
            old = present.get(key)
            if isinstance(old, dict) and old and isinstance(value, Mapping):
                self._assign(below, value)
            elif old is None or old != _normal(value):
                self[below] = value

    def __getitem__(self, path: str) -> Parameter:
        return self._core.get(path)

    def __setitem__(self, path: str, value: Any) -> None:
        normal = _normal(value)
        if isinstance(normal, str):
            self._core.set(path, normal, False)
        else:
            self._core.set(path, _block(normal), True)

    def __delitem__(self, path: str) -> None:
        self._core.remove(path)

    def insert(self, path: str, value: Any) -> None:
        """Adds a key that is not there, or an item before the one of that index.

        The index after the last one appends: pf.insert("magnitudes[3]", "mww").
        """
        normal = _normal(value)
        if isinstance(normal, str):
            self._core.insert(path, normal, False)
        else:
            self._core.insert(path, _block(normal), True)

    def __contains__(self, path: object) -> bool:
        return isinstance(path, str) and self._core.has(path)

    def __iter__(self) -> Iterator[str]:
        """The keys of the file, in the order written."""
        return iter(self.as_dict())

    def __len__(self) -> int:
        return len(self.as_dict())

    def merge(
        self, later: ParameterFile, *, append: bool = False, keep: bool = False
    ) -> None:
        """Merges a later file into this one, with its comments.

        append  puts the items of later tables after the earlier ones
        keep    takes absent entries only
        """
        self._core.merge(later._core, (1 if append else 0) | (2 if keep else 0))

    def format(self) -> None:
        """Lays the file out anew; values and comments stay."""
        self._core.format()

    def where(self, path: str) -> tuple[str, int]:
        """File and line in which a value was read; line 0 for one of an edit."""
        return self._core.where(path)

    def check(self, constraints: ParameterFile) -> list[Violation]:
        """Checks the file against constraints; [] when it keeps them."""
        return [Violation(*each) for each in self._core.check(constraints._core)]

    def __repr__(self) -> str:
        return f"<ParameterFile {self._path!r}: {len(self)} keys>"


def _normal(value: Any, depth: int = 0) -> Parameter:
    """A value as str, list and dict, as it will be read again."""
    if depth > 64:
        raise ValueError("values are nested at most 64 deep")
    if isinstance(value, str):
        return value
    if value is None:
        return ""
    if isinstance(value, bool):
        return "yes" if value else "no"
    if isinstance(value, Mapping):
        for key in value:
            if not isinstance(key, str):
                raise TypeError(f"keys are str, not {key!r}")
        return {key: _normal(each, depth + 1) for key, each in value.items()}
    if isinstance(value, Sequence) and not isinstance(value, (bytes, bytearray)):
        return [_normal(each, depth + 1) for each in value]
    if hasattr(value, "tolist"):
        return _normal(value.tolist(), depth + 1)  # of numpy
    if isinstance(value, (int, float)):
        return repr(value)
    raise TypeError(f"no parameter: {value!r}")


def _word(text: str, plain: re.Pattern[str]) -> str:
    return text if plain.fullmatch(text) else _quoted(text)


def _quoted(text: str) -> str:
    text = text.replace("\\", "\\\\").replace('"', '\\"')
    text = text.replace("\n", "\\n").replace("\t", "\\t").replace("\r", "\\r")
    return f'"{text}"'


def _block(value: Parameter, indent: str = "") -> str:
    if isinstance(value, str):
        return _word(value, _PLAIN_TEXT)
    below = indent + "  "
    if isinstance(value, list):
        lines = [below + _block(each, below) for each in value]
        return "\n".join(["&Tbl{", *lines, indent + "}"])
    lines = [
        f"{below}{_word(key, _PLAIN_KEY)} {_block(each, below)}"
        for key, each in value.items()
    ]
    return "\n".join(["&Arr{", *lines, indent + "}"])


def _below(path: str, key: str) -> str:
    """The path of a key of the array at a path."""
    if not re.fullmatch(r"[^\s.\[\]\"\\]+", key):
        key = _quoted(key)
    return f"{path}.{key}" if path else key
