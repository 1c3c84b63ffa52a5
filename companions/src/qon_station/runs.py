"""What surrounds each run of the engine: its hooks, its outcome, its leftovers.  No window is needed for it.

The engine's own steps stay as they are; this class puts something before and behind them.
"""

import logging
import os
import threading
import traceback
import weakref
from collections.abc import Sequence
from dataclasses import dataclass
from typing import Any

import qon_ats
from qon_companions import notices
from qon_companions.i18n import _

from . import script_file
from .asking import ask_all
from .hooks import Check, Happening, before_run, happened, run_ended, start_checks
from .leftovers import EndedCell, left_threads
from .limits_file import fingerprint
from .outcome import Kind, NotRecorded, Outcome
from .unit import StationUnit

LISTENER_SECONDS = 5.0  # that listeners have for a run that was over when the process ends

log = logging.getLogger(__name__)


@dataclass(eq=False)
class Run:
    """One run of a cell, from the start of its thread to the moment the cell has done."""

    unit: StationUnit
    script: str
    refused: BaseException | None = None  # why the script must not begin
    is_loading: bool = False  # the engine is about to load the script
    abort_reason: str | None = None
    is_interrupted: bool = False  # it was aborted because the station closes
    runner: qon_ats.CellRunnerBase | None = None
    outcome: Outcome | None = None  # decided, perhaps not told to everybody yet
    is_over: bool = False


@dataclass
class Asking:
    """A start that waits for the answers of its checks."""

    serial_number: str | None
    is_given_up: bool = False


class StationRuns(qon_ats.CellBase):
    """The engine with everything that a station needs around a run; `Cell` of a station derives from it."""

    _run: Run | None = None
    _asking: Asking | None = None

    def __init__(self, *args: Any, **keywords: Any) -> None:
        self._ending = threading.Lock()  # between an abort and the decision how the run ended
        self._limits_file, self._limits_revision = "", ""
        super().__init__(*args, **keywords)
        self.uut_type = StationUnit
        self._note_limits(self.cell_config.get("assertion_config_file", ""))
        self._tell_script()

    @property
    def uut_type(self) -> type[qon_ats.UUT]:
        """The class of the units of coming runs; can be set to a subclass of StationUnit."""
        return super().uut_type

    @uut_type.setter
    def uut_type(self, value: type[qon_ats.UUT]) -> None:
        if not (isinstance(value, type) and issubclass(value, StationUnit)):
            raise TypeError(
                f"The units of a station derive from qon_station.StationUnit, {value!r} does not."
            )
        qon_ats.CellBase.uut_type.__set__(self, value)  # type: ignore[attr-defined]

    @property
    def current_run(self) -> Run | None:
        """The run that goes on; None between two."""
        run = self._run
        return None if run is None or run.is_over else run

    @property
    def station_unit(self) -> StationUnit | None:
        """The unit of the run that goes on; None between two."""
        run = self.current_run
        return None if run is None else run.unit

    def set_assertion_config_file(self, filename: str | None) -> None:
        super().set_assertion_config_file(filename)
        self._note_limits(filename)
        data = {"revision": self._limits_revision}
        happened(Happening("limits", self._limits_file, self.station_unit, self.cell_number, data))

    def _note_limits(self, filename: Any) -> None:
        name = str(filename or "").strip()
        self._limits_file = os.path.abspath(name) if name else ""
        self._limits_revision = fingerprint(self._limits_file) if name else ""

    def _tell_script(self) -> None:
        """When the station starts, and before each run."""
        words = script_file.missing(self.script)
        if words:
            self.logger.error(words)
        notices.post("script", words, self.cell_number, stop=True)

    # The start.

    def may_start(self, serial_number: str) -> str:
        """Words that refuse the start of this unit, "" lets it pass: the checks that answer at once.  To be extended."""
        quick = (check for check in start_checks.checks if check.timeout is None)
        return next(filter(None, (check.words(self, serial_number) for check in quick)), "")

    def do_start(self, serial_number: str | None) -> None:
        if self._asking is not None:
            return
        words = self.may_start(serial_number or "")
        slow = [check for check in start_checks.checks if check.timeout is not None]
        if words:
            self._refuse(serial_number, words)
        elif slow:
            self._asking = Asking(serial_number)
            self._ask(slow, self._asking)
        else:
            super().do_start(serial_number)

    def is_ready(self) -> bool:
        return self._asking is None and super().is_ready()

    def _ask(self, checks: Sequence[Check], asking: Asking) -> None:
        """Without a window there is nothing else to do meanwhile."""
        answers: list[str] = []
        came = threading.Event()

        def answered(words: str) -> None:
            answers.append(words)
            came.set()

        ask_all(checks, self, asking.serial_number or "", answered)
        came.wait()
        self._answered(asking, answers[0])

    def _answered(self, asking: Asking, words: str) -> None:
        """The checks have answered: start, or say why not."""
        self._asking = None
        if words:
            self._refuse(asking.serial_number, words)
        else:
            super().do_start(asking.serial_number)

    def _refuse(self, serial_number: str | None, words: str) -> None:
        self.logger.warning("%s is not started: %s", serial_number or "A unit", words)
        self.show_refusal(serial_number, words)

    def show_refusal(self, serial_number: str | None, words: str) -> None:
        """Hook: the start of this unit was refused."""
        self.print(words)

    # The run.

    def _run_script(self, script: str) -> None:
        unit: Any = self.uut
        unit.begun(self, script, weakref.WeakMethod(self._aborted_so_far))
        unit.limits_file, unit.limits_revision = self._limits_file, self._limits_revision
        self._tell_script()
        self._run = Run(unit, script)
        try:
            super()._run_script(script)
        except BaseException as error:
            self._run.is_over = True
            unit.finish(Outcome(Kind.EXCEPTION, _words(error), _trace(error)))
            raise

    def _do_run_script(self, script: str) -> None:
        run = self._run
        assert run is not None
        threading.current_thread().cell_proxy = self  # type: ignore[attr-defined]
        run.unit.in_thread()
        leaving: BaseException | None = None
        try:
            run.refused = self._prepared(run)
            run.is_loading = True
            super()._do_run_script(script)
        except BaseException as error:
            leaving = error
            raise
        finally:
            self._end(run, leaving)

    @staticmethod
    def _prepared(run: Run) -> BaseException | None:
        """Tell the listeners; what one of them raises is raised where the engine loads the script."""
        try:
            before_run(run.unit)
        except BaseException as error:  # noqa: BLE001 - raised again, so that the run ends as by any exception
            return error
        return None

    @property
    def runner_class_name(self) -> str:
        """The name of the runner class in the script; can be set, for the next run."""
        name = super().runner_class_name
        run = self._run
        if run is not None and run.is_loading and self.is_in_cell_test_thread():
            run.is_loading = False
            if run.refused is not None:
                raise run.refused
            script_file.make_sure(self, run.script, name)
        return name

    @runner_class_name.setter
    def runner_class_name(self, value: str) -> None:
        qon_ats.CellBase.runner_class_name.__set__(self, value)  # type: ignore[attr-defined]

    def pause(self) -> None:
        is_news = self._pause_event.is_set()
        super().pause()
        if is_news:
            happened(Happening("pause", "", self.station_unit, self.cell_number))

    def resume(self) -> None:
        is_news = not self._pause_event.is_set()  # the flag is the test thread's to clear
        super().resume()
        if is_news:
            happened(Happening("resume", "", self.station_unit, self.cell_number))

    # Its end.

    def abort(self, description: str = "") -> None:
        """As the engine's; the text is kept as the reason.  A run whose outcome is decided is not touched any more."""
        if isinstance(description, str):
            with self._ending:
                run = self._run
                if self._asking is not None:
                    self._asking.is_given_up = True
                if run is None or run.outcome is not None:
                    return
                is_news = run.abort_reason is None
                run.abort_reason = run.abort_reason or description
                self._abort_flag = True
            if is_news:
                happened(Happening("abort", description, run.unit, self.cell_number))
        super().abort(description)

    def interrupt(self, reason: str) -> None:
        """Abort because the station closes."""
        run = self.current_run
        if run is not None and run.outcome is None:
            run.is_interrupted = True
        self.abort(reason)

    def give_up(self, reason: str) -> bool:
        """The process ends: the run that goes on is interrupted, and its listeners hear it; False without one."""
        with self._ending:
            run = self.current_run
            told = run is None or run.outcome is not None
            if run is not None and not told:
                run.outcome = Outcome(Kind.INTERRUPTED, run.abort_reason or reason)
        if run is None:
            return False
        if told:  # its listeners are hearing the outcome now
            thread = self._test_thread
            if thread is not None:
                thread.join(LISTENER_SECONDS)
            return False
        outcome = run.outcome
        assert outcome is not None
        run.unit.close()
        run.unit.finish(run_ended(run.unit, outcome))
        return True

    def is_aborted(self) -> bool:
        run = self._run
        if run is None or run.outcome is None or self.is_in_cell_test_thread():
            return super().is_aborted()
        return run.outcome.kind in (Kind.ABORTED, Kind.INTERRUPTED) and self.has_done()

    def has_done(self) -> bool:
        """Whether the run has ended and all listeners of `run_ended` are through.  Any thread."""
        run = self._run
        return (run is None or run.is_over) and super().has_done()

    def _aborted_so_far(self) -> Outcome | None:
        """What a unit that becomes done in this moment has to expect."""
        run = self._run
        if run is None or not self._abort_flag:
            return None
        kind = Kind.INTERRUPTED if run.is_interrupted else Kind.ABORTED
        return Outcome(kind, run.abort_reason or "", _trace(self._exception_object))

    def _end(self, run: Run, leaving: BaseException | None) -> None:
        """In the test thread, behind the engine's own steps; nothing that goes wrong here keeps the cell busy."""
        try:
            run.unit.close()
            self._part(run)
        except Exception:
            self.logger.exception("What the script has left behind could not be looked at.")
        with self._ending:
            if run.outcome is not None:
                return  # it was given up: the process is about to end
            run.outcome = self._decided(run, leaving)
        try:
            self._tell(run, run.outcome)
        except Exception:
            self.logger.exception("The end of the run could not be told to everybody.")
        finally:
            if leaving is not None:
                self._left_by(leaving)
            run.is_over = True

    def _tell(self, run: Run, outcome: Outcome) -> None:
        final = run.outcome = run_ended(run.unit, outcome)
        if final.kind is not outcome.kind and self._exception_object is None:
            self._exception_object = NotRecorded(final.reason)
        if final.reason != outcome.reason or final.kind not in (Kind.OK, Kind.NG):
            self._result_description = final.reason
        run.unit.finish(final)

    def _part(self, run: Run) -> None:
        """The runner loses its cell; threads that go on are named."""
        if run.runner is not None:
            run.runner._cell = EndedCell(self, run.unit, run.script)  # type: ignore[assignment]
        for thread in left_threads(run):
            text = _('The thread "{name}" of this test goes on ({place}); it can record nothing any more.')
            words = text.format(name=thread.name, place=thread.place or "?")
            self.logger.warning("%s: %s", run.unit.serial_number, words)
            self.print(words)
        run.runner = run.refused = None  # no cycles for the collector

    def _decided(self, run: Run, leaving: BaseException | None) -> Outcome:
        try:
            return self._decide(run, leaving)
        except Exception as error:  # noqa: BLE001 - a record of the script's own kind that cannot be asked
            return Outcome(Kind.EXCEPTION, _words(error), _trace(error))

    def _decide(self, run: Run, leaving: BaseException | None) -> Outcome:
        unit, error = run.unit, leaving or self._exception_object
        if leaving is None:
            aborted = self._aborted_so_far()
            if aborted is not None:
                return aborted
        if error is not None:
            return Outcome(Kind.EXCEPTION, _words(error), _trace(error))
        if unit.is_ng:
            return Outcome(Kind.NG, self._result_description or unit.first_ng_item_name())
        if unit.is_ok:
            return Outcome(Kind.OK)
        open_items = [each.get_name() for each in list(unit.assertions) if each.is_tbd()]
        text = _("No verdict for {names}").format(names=", ".join(open_items)) if open_items else ""
        return Outcome(Kind.TBD, text or _("Nothing was measured"))

    def _left_by(self, error: BaseException) -> None:
        """Something that is no Exception has ended the script: the engine keeps the cell busy for good."""
        self.logger.critical("The test thread was ended by %s.", _words(error), exc_info=error)
        self.show_dead_end(_words(error))

    def show_dead_end(self, reason: str) -> None:
        """Hook: the cell cannot be used any more."""
        self.print(_("Restart the station ({reason})").format(reason=reason))


def _words(error: BaseException) -> str:
    """Type and text, on one line."""
    return " ".join(f"{type(error).__name__}: {error}".removesuffix(": ").split())


def _trace(error: BaseException | None) -> str:
    return "".join(traceback.format_exception(error)) if error is not None else ""
