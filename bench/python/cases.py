"""cases: what a module of cases gives to compare.

A module has a function cases(folder, size) that yields Case objects; each side is called
with nothing and its time is measured.  The first side is the one of ksutil.
"""

from __future__ import annotations

from collections.abc import Callable
from dataclasses import dataclass, field


@dataclass
class Case:
    """name: of the figures, with "_" and the name of the side behind it."""

    name: str
    sides: dict[str, Callable[[], object]]
    once: set[str] = field(default_factory=set)  # slow sides, measured in one round
