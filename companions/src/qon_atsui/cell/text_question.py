"""A text that a script asks for: it may be scanned, when the scans are for this question."""

from __future__ import annotations

import wx
from qon_companions import scans
from qon_companions.boxes import TextBox
from qon_companions.i18n import _

from qon_atsui.cell.serial_entry import marked_entry


class TextQuestion:
    """Watches the box of a cell's question.

    While a cell is marked the scans are for that one, unless the operator goes to the field, by a click or Tab.
    """

    def __init__(self, box: TextBox, host: wx.Window) -> None:
        self.box = box
        self._host = host
        self._chosen = False
        box.entry.Bind(wx.EVT_LEFT_DOWN, self._on_click)
        box.entry.Bind(wx.EVT_SET_FOCUS, self._on_focus)
        self.tell()

    def wants_scans(self) -> bool:
        return self._chosen or marked_entry(self._host) is None

    def enter(self, text: str) -> None:
        """As typed, with Enter."""
        self.box.entry.SetValue(text)
        self.box.EndModal(wx.ID_OK)

    def tell(self, give_up: bool = False) -> None:
        """Say where the next scan goes."""
        self._chosen = self._chosen and not give_up
        entry = marked_entry(self._host) if self._host else None
        if self.wants_scans() or entry is None:
            self.box.say(_("Scan or type the answer."))
        else:
            words = _("Scans are for {cell}. To scan this answer click into the field.")
            self.box.say(words.format(cell=entry.GetParent()._ui_title()))

    def _on_click(self, event: wx.MouseEvent) -> None:
        event.Skip()
        self._choose()

    def _on_focus(self, event: wx.FocusEvent) -> None:
        event.Skip()
        if scans.tab_was_pressed():
            self._choose()

    def _choose(self) -> None:
        self._chosen = True
        self.tell()
