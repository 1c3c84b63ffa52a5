"""The stacks of all threads when the interpreter itself crashes, which no logger can tell any more.

Nothing but the stacks can be written in that moment; so each start of the station writes a dated line before them, and
the start after a crash adds the time at which the file was last written.
"""

import contextlib
import faulthandler
import os
import time
from collections.abc import Iterator
from pathlib import Path

from .hooks import closing

_STARTED = "== The station was started "
_CRASHED = "== It crashed "


@contextlib.contextmanager
def crash_file(file: Path) -> Iterator[None]:
    """While it is open, a crash is written to the file; a clean end leaves no trace in it."""
    if faulthandler.is_enabled():
        yield
        return
    _date_the_last(file)
    with file.open("ab") as stream:
        begin = stream.tell()
        stream.write(f"{_STARTED}{_words(time.time())}, process {os.getpid()}\n".encode())
        stream.flush()
        empty = stream.tell()
        faulthandler.enable(stream)

        def leave() -> None:
            faulthandler.disable()
            if os.fstat(stream.fileno()).st_size == empty:
                stream.truncate(begin)

        closing.subscribe(leave)
        try:
            yield
        finally:
            if closing.unsubscribe(leave):
                leave()


def _date_the_last(file: Path) -> None:
    """The line behind what the last crash has written; a start that no crash followed is taken out again."""
    try:
        text, changed = file.read_bytes(), file.stat().st_mtime
    except OSError:
        return
    lines = text.splitlines(keepends=True)
    if not lines or lines[-1].startswith(_CRASHED.encode()):
        return
    if lines[-1].startswith(_STARTED.encode()):
        file.write_bytes(b"".join(lines[:-1]))
        return
    with file.open("ab") as stream:
        stream.write(f"{_CRASHED}{_words(changed)}\n".encode())


def _words(seconds: float) -> str:
    return time.strftime("%Y-%m-%d %H:%M:%S", time.localtime(seconds))
