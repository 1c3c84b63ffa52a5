"""What an application can have done around each run, and asked before it.

qon_station.before_run.subscribe(f)     f(unit), in the test thread, before the script is loaded
qon_station.run_ended.subscribe(f)      f(unit, outcome), in the test thread, after cleanup
qon_station.start_checks.subscribe(f)   f(cell, serial_number) -> words that refuse the start, or ""
qon_station.opened.subscribe(f)         f(frame), in the GUI thread, when the main window is up
qon_station.happened.subscribe(f)       f(happening), in any thread: pauses, aborts, answers, other limits, cleared totals
qon_station.closing.subscribe(f)        f(), in the GUI thread, before the process ends
"""

import logging
import threading
from collections.abc import Callable
from dataclasses import dataclass, field
from typing import Any, Generic, Literal, TypeVar

from qon_companions.i18n import _

from .outcome import NotRecorded, Outcome
from .unit import StationUnit

_F = TypeVar("_F", bound=Callable[..., Any])

log = logging.getLogger(__name__)


def name_of(function: Callable[..., Any]) -> str:
    """How a listener is called in a log."""
    return f"{getattr(function, '__module__', '?')}.{getattr(function, '__qualname__', repr(function))}"


class Hook(Generic[_F]):
    """Listeners in the order of their subscription.  Any thread may subscribe and unsubscribe."""

    def __init__(self) -> None:
        self._lock = threading.Lock()
        self._listeners: tuple[_F, ...] = ()

    def subscribe(self, listener: _F, first: bool = False) -> _F:
        """Call this one, too, `first` or behind those that are there; returns it, to be written as a decorator."""
        if not callable(listener):
            raise TypeError(f"A listener must be callable, not {listener!r}.")
        with self._lock:
            before = self._listeners
            self._listeners = (listener, *before) if first else (*before, listener)
        return listener

    def unsubscribe(self, listener: _F) -> bool:
        """Do not call this one any more; False when it was not subscribed."""
        with self._lock:
            left = list(self._listeners)
            if listener not in left:
                return False
            left.remove(listener)
            self._listeners = tuple(left)
            return True

    @property
    def listeners(self) -> tuple[_F, ...]:
        """The present ones."""
        return self._listeners


class BeforeRun(Hook[Callable[[StationUnit], Any]]):
    """Listeners that a run waits for before its script is loaded; one that raises ends the run as EXCEPTION."""

    def __call__(self, unit: StationUnit) -> None:
        for listener in self._listeners:
            listener(unit)


class RunEnded(Hook[Callable[[StationUnit, Outcome], Any]]):
    """Listeners that hear how each run ended, before the cell says that it has done.

    One that raises is logged and harms no other.  `NotRecorded` changes the outcome: those that were told another one
    before are told again, with the same unit and the outcome that holds.
    """

    def __call__(self, unit: StationUnit, outcome: Outcome) -> Outcome:
        """Tell all; returns the outcome that holds."""
        told: list[tuple[Callable[[StationUnit, Outcome], Any], Outcome]] = []
        final = outcome
        for listener in self._listeners:
            heard, after = final, self._tell(listener, unit, final)
            if after is heard:
                told.append((listener, heard))
            final = after
        for listener, heard in told:
            if heard != final:
                final = self._tell(listener, unit, final)
        return final

    @staticmethod
    def _tell(
        listener: Callable[[StationUnit, Outcome], Any], unit: StationUnit, outcome: Outcome
    ) -> Outcome:
        unit.expect(outcome)
        try:
            listener(unit, outcome)
        except NotRecorded as error:
            log.error(
                "%s: the run of %s was not recorded: %s", name_of(listener), unit.serial_number, error.reason
            )
            return outcome.not_recorded(error.reason)
        except BaseException:
            log.exception("%s failed at the end of the run of %s.", name_of(listener), unit.serial_number)
        return outcome


StartCheck = Callable[[Any, str], str]
Policy = Literal["refuse", "start"]


@dataclass(frozen=True)
class Check:
    """One question before a start; `timeout` None: answered at once, in the GUI thread."""

    ask: StartCheck
    timeout: float | None = None
    without_answer: Policy = "refuse"

    def words(self, cell: Any, serial_number: str) -> str:
        """What refuses the start, "" lets it pass.  A check that raises counts as one without an answer."""
        try:
            return str(self.ask(cell, serial_number) or "")
        except Exception as error:
            log.exception("%s failed when it was asked about %s.", name_of(self.ask), serial_number)
            return self.unanswered(f"{type(error).__name__}: {error}")

    def unanswered(self, reason: str) -> str:
        """What the stated policy makes of a missing answer."""
        if self.without_answer == "start":
            log.warning("%s gave no answer (%s); the unit is started.", name_of(self.ask), reason)
            return ""
        return _("Whether this unit may start could not be found out: {reason}").format(reason=reason)


class StartChecks:
    """Questions asked before each start, whatever starts it; the first words that come back refuse it."""

    def __init__(self) -> None:
        self._lock = threading.Lock()
        self.checks: tuple[Check, ...] = ()

    def subscribe(
        self, ask: StartCheck, timeout: float | None = None, without_answer: Policy = "refuse"
    ) -> StartCheck:
        """Ask this function, too.

        timeout: None for a check that answers at once: it is asked in the GUI thread.  Seconds for one that may take
            longer, such as a database: it is asked in a thread of its own, and the cell shows that it waits.
        without_answer: what holds when it raises or does not answer in time: "refuse" or "start".
        """
        if not callable(ask):
            raise TypeError(f"A start check must be callable, not {ask!r}.")
        if without_answer not in ("refuse", "start"):
            raise ValueError(f'without_answer is {without_answer!r}; "refuse" and "start" are allowed.')
        with self._lock:
            self.checks = (*self.checks, Check(ask, timeout, without_answer))
        return ask

    def unsubscribe(self, ask: StartCheck) -> bool:
        """Do not ask this function any more; False when it was not subscribed."""
        with self._lock:
            left = tuple(check for check in self.checks if check.ask != ask)
            found = len(left) < len(self.checks)
            self.checks = left
            return found


@dataclass(frozen=True)
class Happening:
    """What a record of the station should tell besides its runs.

    kind: "pause", "resume", "abort", "question", "notice", "limits", "totals cleared", "list cleared".
    unit: whose run it belongs to.  cell: its number.  data: what JSON holds.
    """

    kind: str
    text: str = ""
    unit: StationUnit | None = None
    cell: int | None = None
    data: dict[str, Any] = field(default_factory=dict)


class Happened(Hook[Callable[[Happening], Any]]):
    """Listeners that hear what happens around the runs; one that raises is logged."""

    def __call__(self, happening: Happening) -> None:
        for listener in self._listeners:
            try:
                listener(happening)
            except Exception:
                log.exception("%s failed when it was told of %s.", name_of(listener), happening.kind)


class Opened(Hook[Callable[[Any], Any]]):
    """Listeners that get the main window once it is up; one that raises is logged, and the others get it."""

    def __call__(self, frame: Any) -> None:
        for listener in self._listeners:
            try:
                listener(frame)
            except Exception:
                log.exception("%s failed when the station was opened.", name_of(listener))


class Closing(Hook[Callable[[], Any]]):
    """Listeners that are called before the process ends, after the application's `exit_finalizer`."""

    def __call__(self) -> None:
        for listener in self._listeners:
            try:
                listener()
            except Exception:
                log.exception("%s failed when the station was closed.", name_of(listener))


before_run = BeforeRun()
run_ended = RunEnded()
start_checks = StartChecks()
opened = Opened()
happened = Happened()
closing = Closing()
