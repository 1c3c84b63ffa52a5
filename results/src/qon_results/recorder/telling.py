"""What operators are told: why nothing can be recorded, what waits, which units have to be tested again."""

import time
from collections import defaultdict

from qon_companions import notices
from qon_companions.i18n import _

from ..writer.messages import InterruptedUnit
from .sending import Condition
from .settings import Settings

SOURCE, WAITING = "results", "results: waiting"
INTERRUPTED, ELSEWHERE = "results: interrupted", "results: interrupted elsewhere"
_MB = 1 << 20
_SHOWN = 3  # interrupted units a cell


class Telling:
    """Any thread."""

    def __init__(self, settings: Settings) -> None:
        self._settings = settings
        self.cells: set[int] | None = None  # which the station has; None while that is not known
        self._interrupted: dict[int | None, list[InterruptedUnit]] = defaultdict(list)

    def trouble(self, condition: Condition, waits: float) -> str:
        """Why no test may start; "" when one may.  `waits`: seconds since the file should have been open."""
        folder = self._settings.folder
        if condition.failed:
            return _("Results cannot be recorded: {reason}.").format(reason=condition.failed)
        if not condition.opened and waits > 0:
            return _("Results cannot be recorded: the file in {folder} is not open yet.").format(
                folder=folder
            )
        if condition.free is not None and condition.free < self._settings.min_free_mb * _MB:
            text = _(
                "Results cannot be recorded: the disk with {folder} has {free} MB left, {least} MB are needed."
            )
            return text.format(folder=folder, free=condition.free // _MB, least=self._settings.min_free_mb)
        return ""

    def show(self, condition: Condition, trouble: str, waiting: int) -> None:
        """The band of all cells and the status bar."""
        required = self._settings.required
        if trouble and not required:
            trouble = _("{reason} Tests go on without a record.").format(reason=trouble)
        low = condition.free is not None and condition.free < 2 * self._settings.min_free_mb * _MB
        if not trouble and low:
            text = _("Only {free} MB are left for results in {folder}.")
            trouble = text.format(free=(condition.free or 0) // _MB, folder=self._settings.folder)
            notices.post(SOURCE, trouble)
        else:
            notices.post(SOURCE, trouble, stop=bool(trouble) and required)
        text = _("Units waiting to be recorded: {count}").format(count=waiting) if waiting else ""
        notices.status(WAITING, text)

    def interrupted(self, units: list[InterruptedUnit]) -> None:
        """On the bands of their cells; on all of them when the station does not have that cell any more."""
        self._interrupted.clear()
        for unit in units:
            is_here = self.cells is None or unit.cell in self.cells
            self._interrupted[unit.cell if is_here else None].append(unit)
        for cell, found in list(self._interrupted.items()):  # a test may begin meanwhile
            names = ", ".join(self._name(unit, cell is None) for unit in found[-_SHOWN:])
            left = len(found) - _SHOWN
            more = _(" and {count} more, all in Test data (F7)").format(count=left) if left > 0 else ""
            text = _("The station went down during these tests; test again: {units}").format(
                units=names + more
            )
            notices.post(ELSEWHERE if cell is None else INTERRUPTED, text, cell)

    def seen(self, cell: int) -> int:
        """The operator goes on in this cell; returns up to which seal all was seen."""
        found = self._interrupted.pop(cell, []) + self._interrupted.pop(None, [])
        notices.withdraw(INTERRUPTED, cell)
        notices.withdraw(ELSEWHERE)
        left = [unit.seal for units in self._interrupted.values() for unit in units]
        return min(left) - 1 if left else max((unit.seal for unit in found), default=0)

    def silence(self) -> None:
        for source in (SOURCE, INTERRUPTED, ELSEWHERE):
            notices.withdraw(source)
        notices.status(WAITING, "")

    @staticmethod
    def _name(unit: InterruptedUnit, with_cell: bool) -> str:
        begin = time.strftime("%Y-%m-%d %H:%M", time.gmtime(unit.begin_us / 1e6 + unit.utc_offset_s))
        where = f"{_('Cell')} {unit.cell}, " if with_cell else ""
        return f"{unit.serial_number or _('no serial number')} ({where}{begin})"
