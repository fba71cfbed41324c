"""Seismic data processing: databases, events, waveforms, mechanisms, travel times."""

from ._ksutil import Error, __version__
from .database import (
    Database,
    Field,
    Finding,
    Groups,
    Row,
    Rows,
    Table,
    UnreadableWarning,
    View,
    create_database,
    schemas,
)
from .expression import Expression
from .parameters import ParameterFile, Violation
from .times import datetime64, epoch_seconds

__all__ = [
    "Database",
    "Error",
    "Expression",
    "Field",
    "Finding",
    "Groups",
    "ParameterFile",
    "Row",
    "Rows",
    "Table",
    "UnreadableWarning",
    "View",
    "Violation",
    "__version__",
    "create_database",
    "datetime64",
    "epoch_seconds",
    "schemas",
]
