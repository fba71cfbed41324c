"""_interpreter: refuses the package in subinterpreters, which its extension cannot serve.

An extension that shares its types between interpreters takes the wrong interpreter's lock,
and waits for ever.
"""

import ctypes


def _address(function: str) -> int:
    prototype = ctypes.PYFUNCTYPE(ctypes.c_void_p)
    return prototype((function, ctypes.pythonapi))() or 0


if _address("PyInterpreterState_Get") != _address("PyInterpreterState_Main"):
    raise ImportError("ksutil works in the main interpreter of a process only")
