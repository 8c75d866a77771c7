# SPDX-License-Identifier: MIT
"""libkelo.so in this process: finding it, its exported words, and its lines, which go to `logging`."""
from __future__ import annotations

import atexit
import contextlib
import ctypes
import functools
import logging
import os
import threading
import time
from typing import Any, Iterator

from . import _abi

log = logging.getLogger("kelo")
_levels = {
    _abi.kelo_log_level.ERROR: logging.ERROR,
    _abi.kelo_log_level.NOTICE: logging.INFO,
    _abi.kelo_log_level.DEBUG: logging.DEBUG,
}
_heard = threading.local()
_secrets: list[str] = []


class KeloError(Exception):
    """What the library refuses or can't do, with its reason."""


@functools.lru_cache(maxsize=None)
def library() -> ctypes.CDLL:
    """The loaded library, with the prototypes of every exported call: `kelo.library().kelo_set_gps_on()`.

    It is looked for under the name that $KELO_LIBRARY has, else as libkelo.so.1 where the system looks for
    libraries. A call that the library, older than this package, does not have is an AttributeError. ctypes lets go of
    the interpreter's lock for the time of each call, so one that blocks holds up its own thread alone. From the first
    call on the lines of the library go to the logger "kelo"."""
    name = os.environ.get("KELO_LIBRARY") or f"libkelo.so.{_abi.KELO_VERSION_MAJOR}"
    try:
        lib = ctypes.CDLL(name)
        lib.kelo_version.restype = ctypes.c_char_p
        version = text_of(lib.kelo_version())
    except (OSError, AttributeError) as error:
        raise KeloError(f"no libkelo: {error} (KELO_LIBRARY may name its path)") from error
    if version.split(".")[0] != str(_abi.KELO_VERSION_MAJOR):
        raise KeloError(f"{name} is kelo {version}, and this package is for {_abi.KELO_VERSION_MAJOR}.x")
    for call, (result, arguments) in _abi.FUNCTIONS.items():
        if hasattr(lib, call):
            function = getattr(lib, call)
            function.restype, function.argtypes = result, arguments
    lib.kelo_set_log(_take_line, None)
    lib.kelo_take_message(None, 0, None, 0)  # from now on it puts messages together
    atexit.register(_let_go, lib)
    return lib


def word(name: str) -> Any:
    """An exported word of the library, as a ctypes object: `kelo.word("is_quectel").value = 13`."""
    return _abi.VARIABLES[name].in_dll(library(), name)


def text_of(value: bytes | None) -> str:
    """What modem and network say need not be UTF-8."""
    return (value or b"").decode("utf-8", "replace")


def hide(*secrets: str) -> None:
    """From now on these stand as *** in the lines."""
    _secrets[:] = [secret for secret in secrets if secret]


@contextlib.contextmanager
def heard() -> Iterator[list[str]]:
    """The lines that this thread's calls say meanwhile: why one of them is refused."""
    _heard.lines = []
    try:
        yield _heard.lines
    finally:
        _heard.lines = None


def why(lines: list[str], otherwise: str) -> str:
    return "; ".join(lines) or otherwise


# On any thread, several at once; it lives as long as the process, since a thread may be on its way into it for long.
def _line(level: int, line: bytes | None, _argument: int | None) -> None:
    text = "".join(c if c.isprintable() else repr(c)[1:-1] for c in text_of(line))
    for secret in _secrets:
        text = text.replace(secret, "***")
    lines = getattr(_heard, "lines", None)
    if lines is not None:
        lines.append(text)
    log.log(_levels.get(_abi.kelo_log_level(level), logging.INFO), "%s", text)


_take_line = _abi.kelo_log_handler(_line)


# An interpreter that ends can't be called any more. Who is in the handler by then gets a moment to leave it.
def _let_go(lib: ctypes.CDLL) -> None:
    lib.kelo_set_log(_abi.kelo_log_handler(0), None)
    time.sleep(0.05)
