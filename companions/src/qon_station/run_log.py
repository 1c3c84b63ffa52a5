"""One log file for each run, under log/runs/, in a folder a day: what its test thread and its cell said meanwhile."""

import contextlib
import datetime
import logging
import re
import threading
import time
from collections.abc import Iterator
from pathlib import Path
from typing import Any, TextIO

from qon_companions import limits_check, notices
from qon_companions.i18n import _

from .hooks import before_run, closing
from .unit import StationUnit

DEFAULT_DAYS = 90  # key run_log_days
FLUSH_SECONDS = 1.0
_LONGEST_NAME = 60

log = logging.getLogger(__name__)


class RunFile:
    """The file of one run.  Written by its test thread, and by others for its cell's logger."""

    def __init__(self, stream: TextIO) -> None:
        self._stream: TextIO | None = stream
        self._flushed = 0.0

    def write(self, text: str, at_once: bool) -> None:
        if self._stream is None:
            return
        self._stream.write(text + "\n")
        now = time.monotonic()
        if at_once or now > self._flushed + FLUSH_SECONDS:
            self._flushed = now
            self._stream.flush()

    def close(self) -> None:
        stream, self._stream = self._stream, None
        if stream is not None:
            stream.close()


class RunFiles(logging.Handler):
    """Hands each record to the run that it belongs to: by its thread, or by its logger, which is its cell's."""

    def __init__(self, folder: Path) -> None:
        super().__init__()
        self.folder = folder
        self._of_thread: dict[int, RunFile] = {}
        self._of_logger: dict[str, RunFile] = {}
        self._pruned = ""
        self._told: dict[str, list[limits_check.Finding]] = {}

    def emit(self, record: logging.LogRecord) -> None:
        file = self._of_thread.get(record.thread or 0) or self._of_logger.get(record.name)
        if file is None:
            return
        try:
            file.write(self.format(record), record.levelno >= logging.WARNING)
        except Exception as error:  # noqa: BLE001 - whatever it is; the station's log goes on
            self._cannot_write(file, error)

    def begin(self, unit: StationUnit) -> None:
        """In the test thread: open the file and write its first line.  A run goes on without one."""
        cell = unit.cell
        if cell is None:
            return
        file = self._open(unit)
        if file is not None:
            with self._alone():
                self._of_thread[threading.get_ident()] = self._of_logger[cell.name] = file
        unit.ended_event.subscribe(self._end)
        limits = unit.limits_file or "none"
        cell.logger.info("Test of %s begins; script %s, limits %s", _unit(unit), unit.script, limits)
        self._prune(cell.cell_config.get("run_log_days", DEFAULT_DAYS))

    def close(self) -> None:
        for file in {*self._of_thread.values(), *self._of_logger.values()}:
            with contextlib.suppress(OSError):
                file.close()
        super().close()

    def _end(self, unit: StationUnit) -> None:
        """How it ended, what does not fit between script and limits; then the file is closed."""
        cell, outcome = unit.cell, unit.outcome
        if cell is not None:
            level = logging.ERROR if outcome and outcome.kind == "EXCEPTION" else logging.INFO
            count = len(unit.assertions)
            cell.logger.log(
                level, "Test of %s ends: %s, %d items, %.1f s", _unit(unit), outcome, count, unit.duration
            )
            self._tell_limits(cell)
        with self._alone(), contextlib.suppress(OSError):
            file = self._of_thread.pop(threading.get_ident(), None)
            for name in [name for name, each in self._of_logger.items() if each is file]:
                del self._of_logger[name]
            if file is not None:
                file.close()

    @contextlib.contextmanager
    def _alone(self) -> Iterator[None]:
        """No other thread writes meanwhile; the GUI thread does, too, with the cell's logger."""
        self.acquire()
        try:
            yield
        finally:
            self.release()

    def _tell_limits(self, cell: Any) -> None:
        """All when something has changed; the same again would fill the log."""
        findings = limits_check.of_cell(cell)
        if findings and findings == self._told.get(cell.name):
            cell.logger.info("Limits check: %d findings, as in the run before", len(findings))
            return
        self._told[cell.name] = findings
        for finding in findings:
            is_wrong = finding.kind is not limits_check.Kind.NO_LIMIT
            cell.logger.log(logging.WARNING if is_wrong else logging.INFO, "Limits check: %s", finding)

    def _open(self, unit: StationUnit) -> RunFile | None:
        begin = datetime.datetime.fromtimestamp(unit.begin_time)
        day = self.folder / begin.strftime("%Y-%m-%d")
        name = f"{begin:%H%M%S}-cell{unit.cell_number}-{_safe(unit.scanned_serial_number)}"
        try:
            day.mkdir(parents=True, exist_ok=True)
            for number in range(1, 1000):
                path = day / (f"{name}-{number}.log" if number > 1 else f"{name}.log")
                with contextlib.suppress(FileExistsError):
                    return RunFile(path.open("x", encoding="utf-8", errors="backslashreplace"))
        except OSError as error:
            self._tell_fault(error)
        else:
            notices.withdraw("log of runs")
        return None

    def _cannot_write(self, file: RunFile, error: Exception) -> None:
        """The rest of this run is in the station's log alone."""
        with contextlib.suppress(OSError):
            file.close()
        self._tell_fault(error)

    def _tell_fault(self, error: Exception) -> None:
        text = _("The log of this run cannot be written: {reason}").format(reason=error)
        notices.post("log of runs", text)

    def _prune(self, days: Any) -> None:
        """Once a day, beside the test: whole days go."""
        today = datetime.date.today()
        if self._pruned == str(today) or not isinstance(days, int) or days <= 0:
            return
        self._pruned = str(today)
        oldest = today - datetime.timedelta(days=days)
        threading.Thread(target=prune, args=(self.folder, oldest), name="old logs", daemon=True).start()


def prune(folder: Path, oldest: datetime.date) -> None:
    """Delete the log files of days before this one; what is not ours stays."""
    for day in folder.glob("????-??-??"):
        try:
            if datetime.date.fromisoformat(day.name) >= oldest:
                continue
            for file in day.glob("*.log"):
                file.unlink()
            day.rmdir()
        except (ValueError, OSError) as error:
            log.info("Old log files in %s stay: %s", day, error)


@contextlib.contextmanager
def run_files(folder: Path, formatter: logging.Formatter) -> Iterator[None]:
    """While it is open, each run of a station's cells has a file of its own."""
    files = RunFiles(folder)
    files.setFormatter(formatter)
    root = logging.getLogger()
    root.addHandler(files)
    before_run.subscribe(files.begin, first=True)  # a listener that raises ends a run that stands in the log, too
    closing.subscribe(files.close)
    try:
        yield
    finally:
        closing.unsubscribe(files.close)
        before_run.unsubscribe(files.begin)
        root.removeHandler(files)
        files.close()


def _unit(unit: StationUnit) -> str:
    return unit.serial_number or "a unit without a number"


def _safe(text: str) -> str:
    return re.sub(r"[^\w.-]+", "_", text).strip("._")[:_LONGEST_NAME] or "unit"
