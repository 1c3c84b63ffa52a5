"""Start checks that need time: asked in threads of their own, each for as long as it was given."""

import threading
import time
from collections.abc import Callable, Sequence
from typing import Any

from qon_companions.i18n import _

from .hooks import Check

_lock = threading.Lock()
_unanswered: set[tuple[Any, int]] = set()  # checks that still wait in vain, by the cell they were asked for


def ask_all(
    checks: Sequence[Check], cell: Any, serial_number: str, answered: Callable[[str], object]
) -> None:
    """Ask all at once; `answered` gets the words that refuse the start, or "", in another thread."""
    questions = [_Question(check, cell, serial_number) for check in checks]

    def wait() -> None:
        answered(next(filter(None, [question.words() for question in questions]), ""))

    threading.Thread(target=wait, name="start checks", daemon=True).start()


class _Question:
    """One check, asked; its thread is left alone when it does not answer: nothing can end it."""

    def __init__(self, check: Check, cell: Any, serial_number: str) -> None:
        self._check = check
        self._answer: str | None = None
        self._came = threading.Event()
        self._end = time.monotonic() + (check.timeout or 0.0)
        self._key = (check.ask, cell.cell_number)
        with _lock:
            self._asked = self._key not in _unanswered
            _unanswered.add(self._key)
        if self._asked:
            ask = threading.Thread(
                target=self._ask, args=(cell, serial_number), name="start check", daemon=True
            )
            ask.start()

    def _ask(self, cell: Any, serial_number: str) -> None:
        try:
            self._answer = self._check.words(cell, serial_number)
        finally:
            with _lock:
                _unanswered.discard(self._key)
            self._came.set()

    def words(self) -> str:
        if not self._asked:
            return self._check.unanswered(_("it has not answered the question before"))
        self._came.wait(max(0.0, self._end - time.monotonic()))
        if self._answer is None:
            reason = _("no answer within {seconds:g} s").format(seconds=self._check.timeout or 0.0)
            return self._check.unanswered(reason)
        return self._answer
