"""Parameter files: what is written is read again the same, and edits keep the rest."""

import pathlib
import random
from typing import Any

import pytest

import ksutil

TEXT = """\
# The maximum number of events held.
max_events    500            # a comment
author        "J. Doe #2"
magnitudes &Tbl{
  mww   7.0
  ml    -1.0  5.0
}
colors &Arr{
  background  white
  lines &Arr{
    coast     blue
  }
}
"""


def test_nested_values() -> None:
    pf = ksutil.ParameterFile.from_text(TEXT)
    assert pf.as_dict() == {
        "max_events": "500",
        "author": "J. Doe #2",
        "magnitudes": ["mww   7.0", "ml    -1.0  5.0"],
        "colors": {"background": "white", "lines": {"coast": "blue"}},
    }
    assert pf["colors.lines"] == {"coast": "blue"} and pf["magnitudes[1]"].startswith("ml")
    assert list(pf) == ["max_events", "author", "magnitudes", "colors"] and len(pf) == 4
    assert "colors.lines.coast" in pf and "colors.nothing" not in pf and 5 not in pf
    assert pf.get("nothing", "x") == "x"
    with pytest.raises(KeyError):
        pf["nothing"]


def test_edits_keep_comments(tmp_path: pathlib.Path) -> None:
    path = tmp_path / "a.pf"
    path.write_text(TEXT)
    pf = ksutil.ParameterFile(path)
    pf["max_events"] = 600
    pf["colors.lines.coast"] = "dark blue"
    pf.insert("magnitudes[2]", "mb 3.0")
    del pf["author"]
    pf.write()
    lines = path.read_text().splitlines()
    assert lines[:2] == [
        "# The maximum number of events held.",
        "max_events    600            # a comment",
    ]
    assert "author" not in path.read_text()
    again = ksutil.ParameterFile(path)
    assert again["magnitudes"][2] == "mb 3.0" and again["colors.lines.coast"] == "dark blue"
    assert again.where("magnitudes")[1] == 3
    with pytest.raises(KeyError):
        del pf["author"]


def test_assign_changes_what_differs_alone() -> None:
    pf = ksutil.ParameterFile.from_text(TEXT)
    values = pf.as_dict()
    pf.assign(values)
    assert pf.text == TEXT
    values["colors"]["lines"]["coast"] = "red"
    del values["author"]
    values["new"] = {"list": [1, 2.5, None, True, ["a", {"b": "c"}]], "empty": {}}
    pf.assign(values)
    assert "max_events    500            # a comment" in pf.text
    assert pf["new"] == {"list": ["1", "2.5", "", "yes", ["a", {"b": "c"}]], "empty": {}}
    assert pf["colors.lines.coast"] == "red" and "author" not in pf


def random_value(r: random.Random, depth: int) -> Any:
    kind = r.random()
    if depth > 3 or kind < 0.5:
        letters = 'ab #"\\{}&\n\t\r.[]é–|$%\'`'
        return "".join(r.choice(letters) for _ in range(r.randrange(8)))
    if kind < 0.75:
        return [random_value(r, depth + 1) for _ in range(r.randrange(4))]
    return {
        random_value(r, 9) or "k": random_value(r, depth + 1) for _ in range(r.randrange(4))
    }


@pytest.mark.parametrize("seed", range(60))
def test_any_value_survives(seed: int, tmp_path: pathlib.Path) -> None:
    r = random.Random(seed)
    values = {f"key{i}": random_value(r, 0) for i in range(6)}
    values.update({random_value(r, 9) or "k": random_value(r, 1) for i in range(3)})
    pf = ksutil.ParameterFile.from_dict(values)
    assert pf.as_dict() == values
    pf.write(tmp_path / "a.pf")
    assert ksutil.ParameterFile(tmp_path / "a.pf").as_dict() == values
    other = {f"key{i}": random_value(r, 0) for i in range(6)}
    pf.assign(other)
    assert pf.as_dict() == other


def test_constraints_and_merging() -> None:
    pf = ksutil.ParameterFile.from_text("interval fast\n", "mine")
    rules = ksutil.ParameterFile.from_dict(
        {"keys": {"interval": {"type": "real", "required": True}}}
    )
    (violation,) = pf.check(rules)
    assert (violation.path, violation.line) == ("interval", 1)
    later = ksutil.ParameterFile.from_text("interval 2\nname x # new\n")
    pf.merge(later)
    assert pf.as_dict() == {"interval": "2", "name": "x"} and pf.check(rules) != []
    kept = ksutil.ParameterFile.from_text("interval 1\n")
    kept.merge(later, keep=True)
    assert kept["interval"] == "1" and kept["name"] == "x"


def test_errors(tmp_path: pathlib.Path) -> None:
    with pytest.raises(ksutil.Error, match=":1:"):
        ksutil.ParameterFile.from_text('a "open\n', "mine")
    with pytest.raises(ksutil.Error, match="nowhere"):
        ksutil.ParameterFile(tmp_path / "nowhere.pf")
    pf = ksutil.ParameterFile()
    with pytest.raises(ValueError, match="path"):
        pf.write()
    with pytest.raises(TypeError):
        pf["a"] = object()
    with pytest.raises(TypeError):
        pf["a"] = {5: "x"}
    with pytest.raises(ksutil.Error):
        pf["a"] = "nul \0 byte"
    deep: Any = "x"
    for _ in range(100):
        deep = [deep]
    with pytest.raises(ValueError, match="deep"):
        pf["a"] = deep
    loop: list[Any] = []
    loop.append(loop)
    with pytest.raises(ValueError, match="deep"):
        pf["a"] = loop
    assert pf.as_dict() == {} and pf.text == ""


def test_shipped_settings_read(shipped: pathlib.Path) -> None:
    pf = ksutil.ParameterFile(shipped / "settings" / "server.pf")
    assert pf.text == (shipped / "settings" / "server.pf").read_text()
    assert pf.check(ksutil.ParameterFile(shipped / "settings" / "server.rules")) == []
