"""Packages that are imported when a function needs them."""

from __future__ import annotations

import importlib
from typing import TYPE_CHECKING

if TYPE_CHECKING:
    import types


def _module(name: str, message: str) -> types.ModuleType:
    try:
        return importlib.import_module(name)
    except ImportError as error:
        raise ImportError(message) from error


def pandas() -> types.ModuleType:
    """The module pandas; ImportError that says what to install when it is missing."""
    return _module(
        "pandas", "frames need pandas, which is not installed (Debian: python3-pandas)"
    )


def obspy() -> types.ModuleType:
    """ObsPy; ImportError when it is missing."""
    return _module(
        "obspy", "ksutil exchanges with ObsPy, which is not installed (module 'obspy')"
    )
