"""The cell of a station: the engine's panel around runs that are kept."""

from collections.abc import Sequence
from typing import Any

import wx
from qon_companions.i18n import _

from .asking import ask_all
from .hooks import Check
from .item_columns import check_columns, show_titles
from .item_rows import ItemRows
from .runs import Asking, StationRuns
from .telling import Telling

_AGAIN = 100  # milliseconds until the next tick of a run


class StationCell(ItemRows, StationRuns, Telling):
    """Stands for `Cell` of `qon_ats` in a station."""

    _colours_whole_rows = True

    def __init__(self, *args: Any, **keywords: Any) -> None:
        try:
            super().__init__(*args, **keywords)
        except Exception:
            if getattr(self, "cell_config", None) is not None:
                check_columns(self.cell_config)  # says more about columns that are none
            raise
        check_columns(self.cell_config)
        show_titles(self)

    def on_refresh_timer_event(self, event: wx.TimerEvent | None = None) -> None:
        """A row that cannot be shown must not keep the end of the run from being seen."""
        try:
            super().on_refresh_timer_event(event)
        except Exception:
            if self.is_running():
                self.ui_refresh_timer.StartOnce(_AGAIN)
            raise

    def may_start(self, serial_number: str) -> str:
        """What the keys of the cell say about numbers holds for every start, not only for those by hand."""
        refuse = getattr(self, "refuse_number", None)
        return (refuse(serial_number) if refuse is not None else "") or super().may_start(serial_number)

    def _ask(self, checks: Sequence[Check], asking: Asking) -> None:
        """The windows go on; the band tells what the start waits for."""
        text = _("{serial}: asking whether it may start")
        self._update_prompt(text.format(serial=asking.serial_number or _("Unit")), "yellow")
        self._let_abort(True)
        ask_all(
            checks,
            self,
            asking.serial_number or "",
            lambda words: wx.CallAfter(self._answered, asking, words),
        )

    def _answered(self, asking: Asking, words: str) -> None:
        if self:
            self._let_abort(False)  # the layout lets it again when a test runs
            given_up = _("The start was given up.") if asking.is_given_up else ""
            super()._answered(asking, words or given_up)

    def _let_abort(self, possible: bool) -> None:
        button = getattr(self, "ui_abort", None)  # a layout of the maker's own may name it otherwise
        if button is not None:
            button.Enable(possible)

    def _append_to_history(self, sn: str, result: str, color: Any) -> None:
        """The unit's own number, whatever stands in the entry by now."""
        unit = self.uut
        super()._append_to_history(sn if unit is None else unit.serial_number or "", result, color)

    def show_refusal(self, serial_number: str | None, words: str) -> None:
        self._update_prompt(": ".join(part for part in (serial_number, words) if part), "yellow")
        self.ui_serial_number.SelectAll()
        wx.Bell()

    def show_dead_end(self, reason: str) -> None:
        super().show_dead_end(reason)
        wx.CallAfter(self._show_dead_end, reason)

    def _show_dead_end(self, reason: str) -> None:
        words = _("Restart the station ({reason})").format(reason=reason)
        show = getattr(self.ui_prompt, "show_stuck", None)
        if show is not None:
            show(words)
        else:  # a layout of the maker's own
            self._update_prompt(words, "cyan")
