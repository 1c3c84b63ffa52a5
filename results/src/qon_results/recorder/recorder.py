"""The recorder in the station: on disk before green, or not green."""

import datetime
import functools
import json
import logging
import os
import threading
import time
import uuid
import weakref
from collections.abc import Callable
from dataclasses import dataclass, replace
from pathlib import Path
from typing import Any

import qon_station
from qon_companions import session
from qon_companions.i18n import _
from qon_station import NotRecorded, Outcome
from qon_station.outcome import Kind

from ..station.history import TOTALS_CLEARED, GoingOn
from ..station.interlock import CHECK_SECONDS, Interlock
from ..station.pseudonym import Pseudonyms
from ..writer import messages
from . import encoding
from .feeding import Feeding
from .sending import Sender
from .settings import Settings
from .setup import SetupReader
from .telling import Telling
from .tracked import Tracked, Unit, begin_message, new_id

OPEN_SECONDS = 2.0  # in which nobody is told that the file is not open: another writer comes
CLOSE_SECONDS = 20.0

log = logging.getLogger(__name__)


class NothingRecordedError(Exception):
    """A run must not begin: nothing of it would be kept."""


@dataclass(frozen=True)
class Description:
    """What a run is: of which product, which step of the process, what for, by whom, out of which batch."""

    product: str = ""
    operation: str = ""
    purpose: str = "production"
    operator: str = ""
    batch: str = ""


class Recorder:
    """Made by `qon_results.record`.  `operator`, `batch` and `purpose` may be set at any time, for the next runs;
    where they are not, operator and batch are those of `qon_companions.session`.

    `describe` may be replaced: it tells the `Description` of a unit's run, in its test thread.
    """

    def __init__(
        self,
        settings: Settings,
        config: str | os.PathLike[str] | None = None,
        parameters: str | os.PathLike[str] | None = None,
    ) -> None:
        self.settings = settings
        self.operator = ""
        self.batch = ""
        self.purpose = ""
        self.describe: Callable[[Unit], Description] = self.description
        self._setup = SetupReader(config, parameters)
        self._telling = Telling(settings)
        self._sender = Sender(settings, self._states)
        self._feeding = Feeding(self.path, settings.line) if settings.line else None
        self._lock = threading.RLock()
        self._units: dict[int, Tracked] = {}  # the current or last one of each cell
        self._cells: dict[int, weakref.ref[Any]] = {}
        self._shown: list[messages.InterruptedUnit] = []
        self._going_on = GoingOn(
            self.path, settings.history_hours, self._wait_for_past, lambda: self._sender.interrupted
        )
        self._interlock = Interlock(self.path, settings.line, settings.require_operation_offline, self.event)
        self._pseudonyms = Pseudonyms(settings.folder)
        self._closed = threading.Event()
        self._undo: list[Callable[[], Any]] = []

    @property
    def path(self) -> Path:
        """The file."""
        return self._sender.path

    @property
    def trouble(self) -> str:
        """Why nothing can be recorded now, in words for the operator; "" when all is well."""
        condition = self._sender.condition
        return self._telling.trouble(condition, time.monotonic() - condition.since - OPEN_SECONDS)

    @property
    def waiting(self) -> int:
        """Ended units that are not on the disk yet."""
        return self._sender.waiting

    def start(self) -> None:
        """From now on runs are recorded."""
        hooks: list[tuple[Any, Callable[..., Any]]] = [
            (qon_station.before_run, self.before_run),
            (qon_station.run_ended, self.run_ended),
            (qon_station.start_checks, self.may_start),
            (qon_station.happened, self.happened),
            (qon_station.opened, self.opened),
            (qon_station.closing, self.close),
        ]
        if self.settings.history_hours:
            hooks.append((qon_station.opened, self._going_on.opened))
        else:
            self.event(TOTALS_CLEARED, "results_history_hours is 0")
        for hook, listener in hooks:
            hook.subscribe(listener)
            self._undo.append(functools.partial(hook.unsubscribe, listener))
        self._undo.append(session.subscribe(self._session_changed))
        self._sender.start()
        if self._feeding is not None:
            self._feeding.start()
        threading.Thread(target=self._tell, name="results: notices", daemon=True).start()

    def close(self) -> None:
        """Write what is left and end the writer."""
        if self._closed.is_set():
            return
        self._closed.set()
        for undo in self._undo:
            undo()
        if not self._sender.stop(CLOSE_SECONDS) or self._sender.waiting:
            log.critical("%d units were not recorded: %s", self._sender.waiting, self.trouble or "no answer")
        if self._feeding is not None:  # after the last seal
            self._feeding.stop()
        self._telling.silence()

    def wait_until_open(self, seconds: float = 10.0) -> str:
        """Wait for the file; returns why it could not be opened, "" when it is open."""
        condition = self._sender.condition
        with self._sender.changed:
            self._sender.changed.wait_for(lambda: condition.opened or condition.failed, seconds)
        return self.trouble

    def _wait_for_past(self) -> str:
        """Wait for the file as long as the station is there; why it could not be opened."""
        condition = self._sender.condition
        with self._sender.changed:
            self._sender.changed.wait_for(lambda: condition.opened or self._closed.is_set())
        return "" if condition.opened else self.trouble

    # What the station tells.

    def may_start(self, cell: Any, _serial_number: str) -> str:
        """A start check."""
        self._cells[cell.cell_number] = weakref.ref(cell)
        return self.trouble if self.settings.required else ""

    def opened(self, frame: Any) -> None:
        """The window is up: only now it is known whether a cell asks for the operation before."""
        cells = getattr(frame, "cells", ())
        self._telling.cells = {cell.cell_number for cell in cells}
        self._shown = []  # told again, to the cells that are there
        if any(self._of_sheet(cell, "require_operation") for cell in cells):
            qon_station.start_checks.subscribe(self.came_before, timeout=CHECK_SECONDS)
            self._undo.append(functools.partial(qon_station.start_checks.unsubscribe, self.came_before))

    def came_before(self, cell: Any, serial_number: str) -> str:
        """A slow start check: words when the operation before is missing or was not OK."""
        needed = self._of_sheet(cell, "require_operation")
        if not needed:
            return ""
        purpose = self.purpose or self._of_sheet(cell, "purpose")
        product = self._of_sheet(cell, "product")
        return self._interlock.ask(cell.cell_number, serial_number, needed, product, purpose)

    def before_run(self, unit: Unit) -> None:
        """Returns when the begin of the run is on the disk.  Test thread."""
        words = self.trouble
        if words and self.settings.required:
            raise NothingRecordedError(words)
        setup, contents = self._setup.read(unit.script, unit.limits_file)
        described = self.describe(unit)
        described = replace(described, operator=self._kept_name(described.operator))
        begin = begin_message(unit, described, setup)
        tracked = Tracked(unit, begin, contents, self.settings.attachment_mb << 20)
        with self._lock:
            self._units[unit.cell_number] = tracked
        if unit.cell is not None:
            self._cells[unit.cell_number] = weakref.ref(unit.cell)
        self._sender.tell(self._telling.seen(unit.cell_number))
        self._sender.track(tracked)
        if not self._sender.wait(lambda: tracked.begun) and self.settings.required:
            raise NothingRecordedError(self._not_in_time())

    def run_ended(self, unit: Unit, outcome: Outcome) -> None:
        """Returns when the run's seal is on the disk; called again when another listener made it another outcome."""
        tracked = self._of(unit)
        if tracked is None:  # its begin was refused
            if self.settings.required and outcome.kind is not Kind.EXCEPTION:
                raise NotRecorded(self.trouble or _("Results cannot be recorded."))
            return
        with self._lock:
            end = tracked.ended(unit.serial_number, outcome)
            tracked.sealed = False
        self._sender.track(tracked)
        if self._sender.wait(lambda: tracked.sealed):
            return
        reason = self._not_in_time()
        log.error("The run of %s was not recorded in time: %s", unit.serial_number, reason)
        self.event("recorder", reason, unit=unit)
        if not self.settings.required:
            return
        if tracked.sealed and tracked.end is end:  # just now
            return
        tracked.ended(unit.serial_number, outcome.not_recorded(reason))
        self._sender.track(tracked)
        raise NotRecorded(reason)

    def happened(self, happening: qon_station.Happening) -> None:
        """Something that belongs on record beside the runs.  Any thread."""
        unit: Any = happening.unit
        self.event(happening.kind, happening.text, unit=unit, cell=happening.cell, **happening.data)

    def _not_in_time(self) -> str:
        return self.trouble or _("Results cannot be recorded: the disk or the writer does not answer.")

    # What scripts and applications add.

    def attach(self, unit: Unit, name: str, content: bytes | str | os.PathLike[str]) -> None:
        """Keep a file (its path), or bytes, with the unit's run.  ValueError when that is too large, or too late."""
        data = content if isinstance(content, bytes) else Path(content).read_bytes()
        if len(data) > self.settings.attachment_mb << 20:
            text = f"The attachment {name!r} has {len(data)} bytes; {self.settings.attachment_mb} MB are allowed."
            raise ValueError(text + " The key results_attachment_mb changes that.")
        with self._lock:
            tracked = self._open(unit)
            chosen, number = encoding.text(name), 1
            while chosen in tracked.names:
                number += 1
                chosen = f"{encoding.text(name)} ({number})"
            tracked.names.add(chosen)
            tracked.extras.append(messages.Attach(tracked.id, chosen, _now_us(), data))
        self._sender.wake()

    def instrument(
        self, unit: Unit, name: str, identity: str, calibration_due: datetime.date | None = None
    ) -> None:
        """Note with what was measured: its name in the script, what it answers to *IDN?, its calibration's end."""
        due = None if calibration_due is None else calibration_due.strftime("%Y-%m-%d")
        with self._lock:
            tracked = self._open(unit)
            used = messages.UsedInstrument(tracked.id, encoding.text(name), encoding.text(identity), due)
            tracked.extras.append(used)
        self._sender.wake()

    def event(
        self, kind: str, text: str = "", *, unit: Unit | None = None, cell: int | None = None, **data: Any
    ) -> None:
        """Keep that something happened; `data` is whatever JSON holds.  Any thread, returns at once."""
        tracked = None if unit is None else self._of(unit)
        number = unit.cell_number if unit is not None else cell
        us = _now_us()
        body = encoding.text(json.dumps(data, ensure_ascii=False, default=encoding.text))
        run = None if tracked is None else tracked.id
        words = encoding.text(kind), encoding.text(text)
        self._sender.event(messages.Happened(new_id(us), run, number, us, *words, body))

    def run_id(self, unit: Unit) -> uuid.UUID | None:
        """Under which the unit's run is kept."""
        tracked = self._of(unit)
        return None if tracked is None else uuid.UUID(bytes=tracked.id)

    def description(self, unit: Unit) -> Description:
        """By the cell's sheet, then the settings."""
        cell = unit.cell
        return Description(
            self._of_sheet(cell, "product"),
            self._of_sheet(cell, "operation"),
            self.purpose or self._of_sheet(cell, "purpose"),
            self.operator or session.current().operator,
            self.batch or session.current().batch,
        )

    def _kept_name(self, operator: str) -> str:
        return self._pseudonyms.of(operator) if self.settings.operator_pseudonym else operator

    def _session_changed(self, before: session.Session, after: session.Session) -> None:
        """Somebody else works here, or on another batch.  Any thread."""
        if after.operator != before.operator:
            self.event("operator", self._kept_name(after.operator))
        if after.batch != before.batch:
            self.event("batch", after.batch)

    def _of_sheet(self, cell: Any, key: str) -> str:
        """The cell's own word, else the setting of the same name."""
        sheet = getattr(cell, "cell_config", None)
        own = sheet.get(key, "") if sheet is not None else ""
        return str(own or getattr(self.settings, key))

    def _of(self, unit: Unit) -> Tracked | None:
        with self._lock:
            tracked = self._units.get(unit.cell_number)
        return tracked if tracked is not None and tracked.unit is unit else None

    def _open(self, unit: Unit) -> Tracked:
        tracked = self._of(unit)
        if tracked is None or tracked.end is not None:
            raise ValueError(
                f"The run of {unit.serial_number or 'this unit'} is not being recorded (any more)."
            )
        return tracked

    # Twice a second.

    def _tell(self) -> None:
        known = ""
        while not self._closed.wait(0.5):
            sender = self._sender
            try:
                trouble = self.trouble
                if trouble != known:  # on record as soon as the file takes it
                    known = trouble
                    self.event("recorder", trouble or "Results are recorded again.")
                if sender.interrupted is not self._shown:
                    self._shown = sender.interrupted
                    self._telling.interrupted(self._shown)
                self._telling.show(sender.condition, trouble, sender.waiting)
            except Exception:
                log.exception("The operator could not be told about the results.")

    def _states(self) -> list[messages.CellState]:
        """What stands at each cell, for whoever looks from outside.  The recorder's thread."""
        with self._lock:
            units = dict(self._units)
        found = []
        for number in sorted({*units, *self._cells}):
            cell = self._cells[number]() if number in self._cells else None
            found.append(_state(number, cell, units.get(number)))
        return found


def _state(number: int, cell: Any, tracked: Tracked | None) -> messages.CellState:
    now = _now_us()
    if tracked is None:
        return messages.CellState(number, "READY", None, None, now, 0, None, now)
    end, unit = tracked.end, tracked.unit
    state = "READY" if end is not None else "PAUSED" if cell is not None and cell.is_paused() else "TESTING"
    since = tracked.begin.begin_us if end is None else end.end_us
    serial = unit.serial_number
    serial = None if serial is None else encoding.text(serial)
    progress = None if end is not None else getattr(cell, "progress", None)
    return messages.CellState(number, state, tracked.id, serial, since, len(unit.assertions), progress, now)


def _now_us() -> int:
    return time.time_ns() // 1000
