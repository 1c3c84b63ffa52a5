"""The unit that a station keeps: how its run ended, and nothing that changes afterwards."""

import logging
import threading
import time
import weakref
from collections.abc import Callable
from functools import partial
from typing import Any

from qon_ats import UUT, Assertion, CellBase
from qon_handy import Callback

from .outcome import Kind, Outcome

log = logging.getLogger(__name__)


class StationUnit(UUT):
    """A unit under test whose record is final once its run has ended, however it ended.

    scanned_serial_number: as it was given at the start; the script may set another one while it runs.
    script, limits_file: absolute paths, "" for none.  limits_revision: a fingerprint of the limits as loaded.
    ended_event: called once with this unit when its outcome is final, in the test thread.
    """

    def __init__(self, serial_number: str | None = "", cell_number: int = 1) -> None:
        super().__init__(serial_number, cell_number)
        self.scanned_serial_number = serial_number or ""
        self.script = ""
        self.limits_file = ""
        self.limits_revision = ""
        self.ended_event = Callback()
        self._cell: weakref.ref[CellBase] | None = None
        self._aborted: weakref.WeakMethod[Callable[[], Outcome | None]] | None = None
        self._began = time.monotonic()
        self._took: float | None = None
        self._is_closed = False
        self._test_thread = 0  # its identification; 0: no cell runs this unit
        self._expected: Outcome | None = None  # known in the test thread, not yet final
        self._final: Outcome | None = None

    @property
    def outcome(self) -> Outcome | None:
        """How the run ended; None while it runs.  The listeners of `run_ended` know it a little earlier."""
        return self._final or (self._expected if self._is_own_thread() else None)

    @property
    def cell(self) -> CellBase | None:
        """The cell that tests it, as long as there is one."""
        return self._cell() if self._cell is not None else None

    @property
    def duration(self) -> float:
        """Seconds from the start to the end of the run, cleanup included, or to now; no clock change shows in it."""
        return time.monotonic() - self._began if self._took is None else self._took

    def __getstate__(self) -> dict[str, Any]:
        """A copy is a record of its own: neither cell nor subscribers, and its clock stands."""
        state = super().__getstate__()
        for name in ("append_assertion", "ended_event"):
            state.pop(name, None)
        return {**state, "_cell": None, "_aborted": None, "_test_thread": 0, "_took": self.duration}

    def __setstate__(self, state: dict[str, Any]) -> None:
        super().__setstate__(state)
        self.ended_event = Callback()
        self._seal()

    # What the cell tells.

    def begun(
        self, cell: CellBase, script: str, aborted: "weakref.WeakMethod[Callable[[], Outcome | None]]"
    ) -> None:
        """A cell is about to run this unit; `aborted` tells whether an abort has been asked for."""
        self._cell = weakref.ref(cell)
        self._aborted = aborted
        self.script = script
        self._test_thread = -1

    def in_thread(self) -> None:
        """The calling thread is the one that tests it."""
        self._test_thread = threading.get_ident()

    def expect(self, outcome: Outcome) -> None:
        """How the run will have ended, if nothing comes between."""
        self._expected = outcome

    def close(self) -> None:
        """Nothing is measured any more: from now on everything but the outcome stands still."""
        if self._is_closed:
            return
        self._took = time.monotonic() - self._began
        if not self.done and not getattr(self, "_end_given", False):
            self._store("end_time", time.time())
        self._is_closed = True
        self._seal()

    def finish(self, outcome: Outcome) -> None:
        """The outcome is final, too."""
        self.close()
        self._final = self._expected = outcome
        self.ended_event(self)

    def _seal(self) -> None:
        """An attribute of the ended unit alone: while a test runs nothing stands in the way of a measurement."""
        if self._is_closed:
            label = self.serial_number or "this unit"
            self.append_assertion = partial(_refuse_assertion, label)  # type: ignore[method-assign]

    # What the engine, the windows and scripts ask.

    @property
    def serial_number(self) -> str | None:
        """The serial number; final once the run has ended, what is set then is ignored."""
        return super().serial_number

    @serial_number.setter
    def serial_number(self, value: str) -> None:
        if self._is_open("serial_number", value):
            self._store("serial_number", value)

    @property
    def cell_number(self) -> int:
        """The number of the cell that tests it, from 1; final once the run has ended."""
        return super().cell_number

    @cell_number.setter
    def cell_number(self, value: int) -> None:
        if self._is_open("cell_number", value):
            self._store("cell_number", value)

    @property
    def end_time(self) -> float:
        """When the test ended, seconds since the epoch; the current time while it runs."""
        return super().end_time

    @end_time.setter
    def end_time(self, value: float) -> None:
        if self._is_open("end_time", value):
            self._store("end_time", value)
            self._end_given = True

    @property
    def done(self) -> bool:
        """Whether the test came to its end; a run that ended by an exception never does."""
        return super().done

    @done.setter
    def done(self, value: bool) -> None:
        if not self._is_open("done", value):
            return
        aborted = self._aborted() if self._aborted is not None else None
        if value and aborted is not None:  # listeners of the done event must not read OK
            self._expected = self._expected or aborted()
        self._store("done", value)

    @property
    def summer(self) -> str:
        """The verdict: NG from the first NG on, OK when the run has ended so, TBD in all other cases.

        In its own test thread a unit that is done reads OK before the run has ended: what the script has found.
        """
        outcome = self.outcome
        if outcome is None:
            return Assertion.TBD_STR if self._is_hidden() and not self.is_ng else super().summer
        words = {Kind.OK: Assertion.OK_STR, Kind.NG: Assertion.NG_STR}
        return words.get(outcome.kind, Assertion.TBD_STR)

    @property
    def is_ok(self) -> bool:
        """Whether the run ended OK; in its own test thread also before, as soon as the unit is done without an NG."""
        outcome = self.outcome
        return outcome.kind is Kind.OK if outcome else super().is_ok and not self._is_hidden()

    def first_ng_item_name(self) -> str:
        """The name of the first NG measurement; for a run without a verdict "aborted", "exception", "interrupted"."""
        outcome = self.outcome
        if outcome is not None and not outcome.kind.is_verdict:
            return str(outcome.kind).lower()
        return super().first_ng_item_name()

    def _store(self, name: str, value: Any) -> None:
        vars(UUT)[name].__set__(self, value)

    def _is_own_thread(self) -> bool:
        return self._test_thread == threading.get_ident()

    def _is_hidden(self) -> bool:
        """Whether a cell has yet to decide, and the caller has to wait for that."""
        return bool(self._test_thread) and not self._is_own_thread()

    def _is_open(self, name: str, value: Any) -> bool:
        if not self._is_closed:
            return True
        log.debug(
            "%s = %r is ignored: the run of %s has ended.", name, value, self.serial_number or "the unit"
        )
        return False


def _refuse_assertion(label: str, assertion: Assertion) -> None:
    raise ValueError(f"The run of {label} has ended; {assertion!r} could not be added.")
