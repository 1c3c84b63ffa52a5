"""The widgets of a cell that always stay in view."""

from __future__ import annotations

import wx
from qon_companions.i18n import _

from qon_atsui import palette
from qon_atsui.cell import signs
from qon_atsui.fields import CommandButton, ProgressBar, ValueLabel


class Counter:
    """A caption and the value it names, drawn side by side."""

    def __init__(self, parent: wx.Window, text: str, hint: str) -> None:
        self.caption = ValueLabel(parent, text, wx.ALIGN_RIGHT, hint)
        self.caption.paint_as(palette.MUTED)
        self.value = ValueLabel(parent, "0", wx.ALIGN_LEFT, hint)

    def windows(self) -> tuple[ValueLabel, ValueLabel]:
        return self.caption, self.value


class Head:
    """The head line: which cell, which unit, how long, how far."""

    def __init__(self, parent: wx.Window) -> None:
        self.name = ValueLabel(parent, "", hint=_("Number of this cell"))
        self.serial = ValueLabel(parent, "", hint=_("Serial number of the unit that is or was tested last"))
        self.serial.paint_as(palette.MUTED)
        self.serial.shortened = wx.ELLIPSIZE_MIDDLE  # numbers differ at their ends
        self.elapsed = ValueLabel(parent, "00:00:00", wx.ALIGN_RIGHT, _("Time the test takes or took"))
        self.gauge = ProgressBar(parent)
        self.gauge.SetToolTip(_("Progress of the test"))
        self.percent = ValueLabel(parent, "0 %", wx.ALIGN_RIGHT, _("Progress of the test"))

    def windows(self) -> tuple[wx.Window, ...]:
        return self.name, self.serial, self.elapsed, self.gauge, self.percent


class Totals:
    """The foot line: this cell's counts."""

    def __init__(self, parent: wx.Window) -> None:
        self.ok = Counter(parent, "OK", _("Units of this cell that passed"))
        self.ng = Counter(parent, "NG", _("Units of this cell that failed"))
        self.share = Counter(parent, _("Yield"), _("Share of passed units"))
        self.share.value.SetValue("0.00%")

    def windows(self) -> tuple[wx.Window, ...]:
        return (*self.ok.windows(), *self.ng.windows(), *self.share.windows())


def start_button(parent: wx.Window) -> CommandButton:
    hint = _("Start the test of this unit; resume a paused test (Enter in the entry)")
    words = {signs.START: _("&Start"), signs.PAUSE: _("&Pause"), signs.RESUME: _("&Resume")}
    return CommandButton(parent, signs.START, hint, stands_out=True, words=words)


def abort_button(parent: wx.Window) -> CommandButton:
    button = CommandButton(parent, _("&Abort"), _("Abort the test at its next check point"))
    button.Disable()  # nothing runs yet
    return button


def details_button(parent: wx.Window) -> CommandButton:
    return CommandButton(parent, _("Deta&ils"), _("Show items, history and log of this cell"))


class Nowhere(wx.Window):
    """Has the focus while no control of the cell is to have it: keys press nothing there, and Tab goes on.

    It can have it only when told to: standing first, it would be the window's first choice.
    """

    def __init__(self, parent: wx.Window) -> None:
        super().__init__(parent, size=wx.Size(1, 1))
        self.SetCanFocus(False)
        self.Bind(wx.EVT_KILL_FOCUS, self._on_kill_focus)

    def SetFocus(self) -> None:
        self.SetCanFocus(True)
        super().SetFocus()

    def _on_kill_focus(self, event: wx.FocusEvent) -> None:
        event.Skip()
        self.SetCanFocus(False)
