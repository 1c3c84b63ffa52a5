"""Asks who works at the station and on which batch; tests go on beside it, and a badge answers, too."""

from __future__ import annotations

import wx
from qon_companions import session
from qon_companions.gui_thread import post
from qon_companions.i18n import _

from qon_atsui.dialogs.parts import button_row, heading
from qon_atsui.fields import caption


class SessionDialog(wx.Dialog):
    """Not modal; what is left empty stays unknown."""

    def __init__(self, parent: wx.Window | None, operator: bool, batch: bool) -> None:
        wx.Dialog.__init__(self, parent, title=_("Operator and batch"))
        column = wx.BoxSizer(wx.VERTICAL)
        column.Add(heading(self, _("Who works here?") if operator else _("Which batch?")), 0, wx.ALL, 12)
        now = session.current()
        self.ui_operator = self._field(column, _("Operator: scan the badge or type"), now.operator, operator)
        self.ui_batch = self._field(column, _("Batch"), now.batch, batch)
        row = button_row(
            self,
            (wx.ID_OK, _("&OK"), _("Units are recorded with this from now on")),
            (wx.ID_CANCEL, _("&Skip"), _("Leave it as it is")),
        )
        column.Add(row, 0, wx.EXPAND | wx.ALL, 12)
        self.Bind(wx.EVT_BUTTON, self._on_ok, id=wx.ID_OK)
        self.Bind(wx.EVT_BUTTON, lambda _event: self.Destroy(), id=wx.ID_CANCEL)
        self.Bind(wx.EVT_CLOSE, lambda _event: self.Destroy())
        self.Bind(wx.EVT_WINDOW_DESTROY, self._on_destroy)
        self._leave = session.subscribe(lambda _before, after: post(self._changed, after))
        self.SetSizerAndFit(column)
        self.CentreOnParent()
        first = self.ui_operator or self.ui_batch
        if first is not None:
            first.SetFocus()

    def _field(self, column: wx.BoxSizer, title: str, text: str, wanted: bool) -> wx.TextCtrl | None:
        if not wanted:
            return None
        column.Add(caption(self, title), 0, wx.LEFT | wx.RIGHT, 12)
        entry = wx.TextCtrl(self, value=text, size=self.FromDIP(wx.Size(360, -1)))
        column.Add(entry, 0, wx.EXPAND | wx.LEFT | wx.RIGHT | wx.BOTTOM, 12)
        return entry

    def _changed(self, now: session.Session) -> None:
        """A badge was scanned: nothing is left to ask, or the batch alone."""
        if self.ui_operator is None:
            return
        self.ui_operator.ChangeValue(now.operator)
        if self.ui_batch is None:
            self.Destroy()
        else:
            self.ui_batch.SetFocus()

    def take_scan(self, text: str) -> bool:
        """Whether the scan was for a field of this window: for the one that has the keyboard, if one has."""
        entries = [entry for entry in (self.ui_operator, self.ui_batch) if entry is not None]
        focus = wx.Window.FindFocus()
        if focus not in entries:
            return False
        entries[entries.index(focus)].SetValue(text)
        empty = next((entry for entry in entries if not entry.GetValue()), None)
        (empty or self.FindWindow(wx.ID_OK)).SetFocus()
        return True

    def _on_ok(self, _event: wx.CommandEvent) -> None:
        self._leave()
        operator, batch = (
            None if entry is None else entry.GetValue() for entry in (self.ui_operator, self.ui_batch)
        )
        if operator is None or not session.take_badge(operator):  # typed as it stands on the badge
            session.change(operator=operator)
        session.change(batch=batch)
        self.Destroy()

    def _on_destroy(self, event: wx.WindowDestroyEvent) -> None:
        event.Skip()
        if event.GetEventObject() is self:
            self._leave()
