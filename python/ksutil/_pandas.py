"""Pandas, which is imported when a frame is asked for."""

from __future__ import annotations

from typing import TYPE_CHECKING

if TYPE_CHECKING:
    import types


def module() -> types.ModuleType:
    """The module pandas; ImportError that says what to install when it is missing."""
    try:
        import pandas
    except ImportError as error:
        raise ImportError(
            "frames need pandas, which is not installed (Debian: python3-pandas)"
        ) from error
    found: types.ModuleType = pandas
    return found
