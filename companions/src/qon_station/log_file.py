"""The station's log: all standard loggers, those of the cells included, into one file that does not grow for ever."""

import contextlib
import logging
import logging.handlers
import os
import sys
import time
from collections.abc import Iterator
from pathlib import Path

import wx
from qon_companions import notices
from qon_companions.i18n import _

from .crash_file import crash_file
from .run_log import run_files

MAX_BYTES = 5_000_000
KEPT_FILES = 20
_LOOK_SECONDS = 1.0
FORMAT = "%(asctime)s %(levelname)-8s [%(threadName)s] %(name)s: %(message)s"
_WX_LEVELS = {
    wx.LOG_FatalError: logging.CRITICAL,
    wx.LOG_Error: logging.ERROR,
    wx.LOG_Warning: logging.WARNING,
}


class OnceFormatter(logging.Formatter):
    """The text of a record is made once for all files that it goes to."""

    def format(self, record: logging.LogRecord) -> str:
        text = record.__dict__.get("station_text")
        if text is None:
            text = record.__dict__["station_text"] = super().format(record)
        return str(text)


class StationLog(logging.handlers.RotatingFileHandler):
    """A file that the operator hears of when it can no longer be written, and again when it can.

    A file that was deleted or moved away is made again.
    """

    _failed = False
    _looked = 0.0

    def emit(self, record: logging.LogRecord) -> None:
        now = time.monotonic()
        if self._failed or now > self._looked + _LOOK_SECONDS:
            self._looked = now
            self._reopen_when_gone()
        self._failing = False
        super().emit(record)
        if self._failed and not self._failing:
            self._failed = False
            notices.withdraw("log")

    def handleError(self, record: logging.LogRecord) -> None:
        """Called by `emit` while it handles what went wrong."""
        self._failing = True
        if not self._failed:
            self._failed = True
            text = _("The log {file} cannot be written: {reason}")
            notices.post("log", text.format(file=self.baseFilename, reason=sys.exc_info()[1]))

    def _reopen_when_gone(self) -> None:
        with contextlib.suppress(OSError):
            if self.stream is not None:
                there = os.stat(self.baseFilename)
                if os.path.samestat(there, os.fstat(self.stream.fileno())):
                    return
        with contextlib.suppress(OSError, ValueError):
            stream, self.stream = self.stream, None
            os.makedirs(os.path.dirname(self.baseFilename), exist_ok=True)
            if stream is not None:
                stream.close()


@contextlib.contextmanager
def logging_to(path: str | os.PathLike[str], level: int) -> Iterator[None]:
    """Log into the file; OSError, naming it, when that is not possible."""
    file = Path(path).absolute()
    file.parent.mkdir(parents=True, exist_ok=True)
    handler = StationLog(
        file, maxBytes=MAX_BYTES, backupCount=KEPT_FILES, encoding="utf-8", errors="backslashreplace"
    )
    formatter = OnceFormatter(FORMAT)
    handler.setFormatter(formatter)
    root = logging.getLogger()
    root_level = root.level
    root.addHandler(handler)
    root.setLevel(min(level, root_level or level))
    try:
        runs = run_files(file.parent / "runs", formatter)
        with crash_file(file.with_name(f"{file.stem}-crash.log")), runs:
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
