"""Whether the step of the process before this one was OK: asked before each start, in the line's database or here."""

import queue
import threading
import time
from collections.abc import Callable
from pathlib import Path

from qon_companions.i18n import _

import qon_results

from ..records import Outcome, Run
from ..store.base import Filter, moment
from .policy import ALLOW, LOCAL

LINE_SECONDS = 5.0  # that the line's database has for its answer
CHECK_SECONDS = 8.0  # for all of it; then the start is refused
AGAIN_SECONDS = 10.0  # until a line that was away is asked again

Event = Callable[..., None]  # Recorder.event


class Interlock:
    """A slow start check: any number of threads at a time."""

    def __init__(self, path: Path, line: str, offline: str, event: Event) -> None:
        """path: the station's file.  line: the database's address, "" for none.  offline: what holds while it is away."""
        self._path, self._line, self._offline, self._event = path, line, offline, event
        self._away = ""
        self._away_until = 0.0

    def ask(self, cell: int, serial_number: str, needed: str, product: str, purpose: str) -> str:
        """Words that refuse the start, "" when the needed operation was OK."""
        if not serial_number:
            return _("Without a serial number nobody knows whether operation {operation} was OK.").format(
                operation=needed
            )
        words = ""
        wanted = Filter(serial_number=serial_number, operation=needed, purpose=purpose or None)
        runs = _runs(self._path, wanted)
        if self._line:
            try:
                runs += self._runs_of_line(wanted)
            except OSError as error:
                words = self._without_line(cell, serial_number, needed, str(error))
                if self._offline != LOCAL:
                    return words
        words = _judged([run for run in runs if run.serial_number == serial_number], needed, product)
        if words:
            self._event("interlock", words, cell=cell, serial_number=serial_number)
        return words

    def _without_line(self, cell: int, serial_number: str, needed: str, reason: str) -> str:
        """On record in any case; the words refuse the start where nothing else was configured."""
        text = _("The line's database is away: whether operation {operation} was OK is unknown ({reason})")
        text = text.format(operation=needed, reason=reason)
        self._event("interlock", text, cell=cell, serial_number=serial_number, policy=self._offline)
        return "" if self._offline in (ALLOW, LOCAL) else text

    def _runs_of_line(self, wanted: Filter) -> list[Run]:
        """In a thread of its own: a network that swallows everything answers nothing for minutes.  OSError."""
        if time.monotonic() < self._away_until:
            raise OSError(self._away)
        answers: queue.SimpleQueue[list[Run] | Exception] = queue.SimpleQueue()

        def look() -> None:
            try:
                answers.put(_runs(self._line, wanted))
            except Exception as error:  # noqa: BLE001 - raised again in the thread that asks
                answers.put(error)

        threading.Thread(target=look, name="results: interlock", daemon=True).start()
        try:
            answer = answers.get(timeout=LINE_SECONDS)
        except queue.Empty:
            answer = OSError(_("no answer within {seconds:g} s").format(seconds=LINE_SECONDS))
        if isinstance(answer, Exception):
            self._away, self._away_until = str(answer), time.monotonic() + AGAIN_SECONDS
            raise OSError(self._away) from answer
        return answer


def _runs(where: str | Path, wanted: Filter) -> list[Run]:
    with qon_results.open(where) as store:
        return store.runs(wanted, None)


def _judged(runs: list[Run], needed: str, product: str) -> str:
    """The newest run counts; it may be here and not in the line's database yet."""
    of_product = [run for run in runs if not product or run.product == product]
    if not of_product and runs:
        text = _("Operation {operation} was done for product {other}, not for {product}")
        return text.format(operation=needed, other=runs[-1].product or "–", product=product)
    if not of_product:
        return _("Operation {operation} is missing").format(operation=needed)
    last = max(of_product, key=lambda run: run.begin_us)
    if last.outcome == Outcome.OK:
        return ""
    at = moment(last.begin_us, last.utc_offset_s).strftime("%Y-%m-%d %H:%M")
    if last.outcome == Outcome.RUNNING:
        text = _("Operation {operation} is being done since {time}")
        return text.format(operation=needed, time=at)
    text = _("Operation {operation} was {outcome} on {time}")
    return text.format(operation=needed, outcome=last.outcome, time=at)
