"""The station's log: all standard loggers, those of the cells included, into one file that does not grow for ever."""

import contextlib
import logging
import logging.handlers
import os
from collections.abc import Iterator
from pathlib import Path

import wx

from .crash_file import crash_file

MAX_BYTES = 5_000_000
KEPT_FILES = 5
FORMAT = "%(asctime)s %(levelname)-8s [%(threadName)s] %(name)s: %(message)s"
_WX_LEVELS = {
    wx.LOG_FatalError: logging.CRITICAL,
    wx.LOG_Error: logging.ERROR,
    wx.LOG_Warning: logging.WARNING,
}


@contextlib.contextmanager
def logging_to(path: str | os.PathLike[str], level: int) -> Iterator[None]:
    """Log into the file; OSError, naming it, when that is not possible."""
    file = Path(path).absolute()
    file.parent.mkdir(parents=True, exist_ok=True)
    handler = logging.handlers.RotatingFileHandler(
        file, maxBytes=MAX_BYTES, backupCount=KEPT_FILES, encoding="utf-8"
    )
    handler.setFormatter(logging.Formatter(FORMAT))
    root = logging.getLogger()
    root_level = root.level
    root.addHandler(handler)
    root.setLevel(min(level, root_level or level))
    try:
        with crash_file(file.with_name(f"{file.stem}-crash.log")):
            yield
    finally:
        root.setLevel(root_level)
        root.removeHandler(handler)
        handler.close()


class _WxLog(wx.Log):
    """wx opens a modal box for each of its warnings by default."""

    def DoLogRecord(self, level: int, text: str, _info: wx.LogRecordInfo) -> None:
        logging.getLogger("wx").log(_WX_LEVELS.get(level, logging.INFO), text)


@contextlib.contextmanager
def logging_of_wx() -> Iterator[None]:
    """The messages of wx go to the logger "wx"."""
    before = wx.Log.SetActiveTarget(_WxLog())
    try:
        yield
    finally:
        wx.Log.SetActiveTarget(before)
