"""The layout of the main frame: menus, tool bar, the cells' panel, totals, status bar, timers."""

from __future__ import annotations

import wx
from qon_companions import posted_calls
from qon_companions.fonts import font
from qon_companions.i18n import _

from qon_atsui import palette, sizing
from qon_atsui.cell.panel import Cell
from qon_atsui.cell.serial_entry import SerialEntry, marked_entry, next_entry, settle_focus
from qon_atsui.dialogs.limits_check import LimitsCheckDialog
from qon_atsui.fields import ValueLabel
from qon_atsui.frame.commands import CommandBars
from qon_atsui.frame.scan_desk import ScanDesk
from qon_atsui.frame.status import StatusBar
from qon_atsui.frame.totals import TotalsPanel
from qon_atsui.handlers import relay
from qon_atsui.icons import window_icon
from qon_atsui.timers import OneShotTimer

_FIRST_SIZE = (1180, 820)  # DIP, before it is maximised
_SMALLEST = (640, 480)
_DEBUG_POINTS = 14.0


class Frame(wx.Frame):
    """Creates the frame's `ui_*` widgets and binds its `on_*` handlers; the engine fills in the cells."""

    def __init__(self, parent: wx.Window | None = None) -> None:
        posted_calls.install()
        wx.Frame.__init__(self, parent, size=wx.Size(*_FIRST_SIZE))
        self.SetMinSize(self.FromDIP(wx.Size(*_SMALLEST)))
        self.SetBackgroundColour(palette.CANVAS)
        self.SetIcon(window_icon())
        bars = CommandBars(self)
        self.ui_toolbar = bars.tool_bar
        self.ui_in_debug_mode = bars.menu_items["on_change_debug_mode"]
        self.SetStatusBar(StatusBar(self))
        self._ui_is_new = True
        self._ui_desk = ScanDesk(self)
        self._ui_create()
        self.ui_initializer_trigger = OneShotTimer(self, "on_trigger_initializer")
        self.ui_ticker_timer = OneShotTimer(self, "on_ticker_timer_event")
        self._ui_abort_all_id = bars.menu_items["on_abort_all"].GetId()
        self.ui_in_debug_mode.changed = self._ui_show_debug_mode
        self.Bind(wx.EVT_MENU, self._ui_on_debug_mode, self.ui_in_debug_mode)
        self.Bind(wx.EVT_MENU, self._ui_on_abort_all, id=self._ui_abort_all_id)
        self.Bind(wx.EVT_ACTIVATE, self._ui_on_activate)
        self.Bind(wx.EVT_CLOSE, relay(self, "on_close_app", otherwise=wx.Event.Skip))

    def _ui_create(self) -> None:
        self.ui_cell_panel = wx.ScrolledWindow(self)
        self.ui_cell_panel.SetScrollRate(10, 10)  # bars appear only when the cells' smallest sizes do not fit
        self.ui_cell_panel.SetBackgroundColour(palette.CANVAS)
        totals = TotalsPanel(self)
        self.ui_statistics_panel = totals
        self.ui_ok_count, self.ui_ok_count_label = totals.ok, totals.ok_label
        self.ui_ng_count, self.ui_ng_count_label = totals.ng, totals.ng_label
        self.ui_ok_percent = totals.share
        self._ui_debug_mode = ValueLabel(
            self, _("DEBUG MODE: tests stop at their debug pauses (F12 ends it)"), wx.ALIGN_CENTRE_HORIZONTAL
        )
        self._ui_debug_mode.SetFont(font(_DEBUG_POINTS, bold=True))
        self._ui_debug_mode.paint_as(palette.SURFACE, palette.INK)
        self._ui_debug_mode.SetMinSize(wx.Size(-1, sizing.line_height(_DEBUG_POINTS, bold=True) + 8))
        self._ui_debug_mode.Hide()
        column = wx.BoxSizer(wx.VERTICAL)
        column.Add(self._ui_debug_mode, 0, wx.EXPAND)
        column.Add(self.ui_cell_panel, 1, wx.EXPAND | wx.ALL, 2)
        column.Add(totals, 0, wx.EXPAND)
        self.SetSizer(column)

    def _ui_on_activate(self, event: wx.ActivateEvent) -> None:
        """Back from another window: an entry may have asked for the keyboard meanwhile."""
        event.Skip()
        if event.GetActive():
            wx.CallAfter(self._ui_settle)

    def _ui_settle(self) -> None:
        """A new station waits for a scanner at its first entry."""
        if not self or settle_focus(self) or not self._ui_is_new:
            return
        self._ui_is_new = False
        entry = marked_entry(self)
        if entry is not None and not isinstance(wx.Window.FindFocus(), SerialEntry):
            entry.SetFocus()

    def _ui_on_debug_mode(self, event: wx.CommandEvent) -> None:
        event.Skip()
        self._ui_show_debug_mode(event.IsChecked())

    def _ui_show_debug_mode(self, on: bool) -> None:
        self._ui_debug_mode.Show(on)
        self.Layout()

    def _ui_on_abort_all(self, event: wx.CommandEvent) -> None:
        for cell in self.ui_cell_panel.GetChildren():
            if isinstance(cell, Cell):
                cell._ui_on_abort(event)

    def _ui_abort_all(self) -> None:
        """As if its command were chosen."""
        self.ProcessEvent(wx.CommandEvent(wx.wxEVT_MENU, self._ui_abort_all_id))

    def _ui_next_cell(self, _event: wx.CommandEvent) -> None:
        next_entry(self)

    def _ui_ask_session(self, _event: wx.CommandEvent) -> None:
        self._ui_desk.shift.ask()

    def _ui_check_limits(self, _event: wx.CommandEvent) -> None:
        cells = [cell for cell in self.ui_cell_panel.GetChildren() if isinstance(cell, Cell)]
        dialog = LimitsCheckDialog(self, cells)
        try:
            dialog.ShowModal()
        finally:
            dialog.Destroy()

    def _ui_exit(self, _event: wx.CommandEvent) -> None:
        self.Close()
