"""Starts by the operator's hand: what is scanned, or typed with Enter, is looked at before the cell gets it."""

from __future__ import annotations

import time
import weakref
from dataclasses import dataclass, field
from typing import TYPE_CHECKING

import wx
from qon_companions.i18n import _
from qon_wxtools import TrueOrFalseDialog

from qon_atsui.keys import NumberRules

if TYPE_CHECKING:
    from qon_atsui.cell.panel import Cell

AGAIN_SECONDS = 60.0


@dataclass
class ScannedNumbers:
    """The numbers that were scanned within the last minute, of all cells of a window."""

    _seen: dict[str, tuple[float, str]] = field(default_factory=dict)

    def note(self, number: str, cell: str) -> None:
        now = time.monotonic()
        self._seen = {key: seen for key, seen in self._seen.items() if now - seen[0] < AGAIN_SECONDS}
        self._seen[number] = (now, cell)

    def seconds_since(self, number: str) -> tuple[int, str] | None:
        """How long ago it was scanned, and for which cell."""
        seen = self._seen.get(number)
        if seen is None or time.monotonic() - seen[0] >= AGAIN_SECONDS:
            return None
        return max(1, round(time.monotonic() - seen[0])), seen[1]


_numbers: weakref.WeakKeyDictionary[wx.Window, ScannedNumbers] = weakref.WeakKeyDictionary()


class Starts:
    """Says whether a cell may start with a number; asks where it is not sure."""

    def __init__(self, cell: Cell, rules: NumberRules) -> None:
        self._cell = cell
        self.rules = rules
        self.asking = False  # a question before a start is open
        self.ng_was_seen = True

    def refusal(self, number: str) -> str:
        """Words for the operator when this can never be the number of a unit here."""
        if not number and not self.rules.allow_empty:
            return _("Scan or type the serial number first.")
        if not self.rules.fits(number):
            return _("\u201c{number}\u201d is no serial number of this cell.").format(number=number)
        return ""

    def may_start(self, number: str, scanned: bool) -> bool:
        """After a question the cell may not be ready any more."""
        number = number.strip()
        words = self.refusal(number)
        if words:
            self._cell._ui_tell(words)
            return False
        before = self._seen_before(number, scanned)
        if scanned:
            self._note(number)
        self.asking = True
        try:
            agreed = self._ng_is_away() and self._wants(before)
        finally:
            self.asking = False
        return agreed and bool(self._cell) and bool(self._cell.ui_serial_number.IsThisEnabled())

    def _note(self, number: str) -> None:
        top = wx.GetTopLevelParent(self._cell)
        _numbers.setdefault(top, ScannedNumbers()).note(number, self._cell._ui_title())

    def unseen_ng(self) -> str:
        """In cells that have it on an NG stays on the band until somebody says where the unit went."""
        if not self.rules.acknowledge_ng or self.ng_was_seen:
            return ""
        text = _("Unit {number} failed (NG): take it to the place for NG units.")
        return text.format(number=self._cell._ui_unit_number())

    def _ng_is_away(self) -> bool:
        words = self.unseen_ng()
        self.ng_was_seen = not words or self._ask(words, _("It is there"), _("Not yet"))
        return self.ng_was_seen

    def _seen_before(self, number: str, scanned: bool) -> str:
        """A question about a number that was scanned before; "" when there is nothing to ask."""
        if not number:
            return ""
        for other in self._cell.GetParent().GetChildren():
            if other is not self._cell and getattr(other, "_ui_tested_number", str)() == number:
                text = _("{number} is being tested in {cell}. Test it here, too?")
                return text.format(number=number, cell=other._ui_title())
        numbers = _numbers.get(wx.GetTopLevelParent(self._cell))
        seen = numbers.seconds_since(number) if scanned and numbers is not None else None
        if seen is None:
            return ""
        text = _("{number} was scanned {seconds} s ago ({cell}). Test it again?")
        return text.format(number=number, seconds=seen[0], cell=seen[1])

    def _wants(self, question: str) -> bool:
        return not question or self._ask(question, _("Test it"), _("Do not test"))

    def _ask(self, question: str, yes: str, no: str) -> bool:
        box = TrueOrFalseDialog(self._cell, self._cell._ui_title(), question, yes, no)
        try:
            return bool(box.ShowModal() == wx.ID_OK)
        finally:
            box.Destroy()
