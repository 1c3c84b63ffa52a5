"""The cell's log page: text appended at any rate, the newest line in view."""

from __future__ import annotations

from collections.abc import Callable

import wx
import wx.stc

from qon_atsui import palette, sizing
from qon_atsui.texts import displayable

# Characters shown; older lines leave the page.  Whoever needs them all writes a log file.
CAP = 2_000_000
_KEEP = CAP * 3 // 4  # after a cut, so that cutting is rare


class LogView(wx.stc.StyledTextCtrl):
    """A read-only text field.  Texts appended during one turn of the event loop are written together."""

    def __init__(self, parent: wx.Window) -> None:
        super().__init__(parent, style=wx.BORDER_NONE)
        self._pending: list[str] = []
        self._due = False
        self.changed: Callable[[], None] | None = None
        self.SetUndoCollection(False)
        self.SetCodePage(wx.stc.STC_CP_UTF8)
        for margin in range(3):
            self.SetMarginWidth(margin, 0)
        self.SetMargins(4, 4)
        self.SetScrollWidth(1)
        self.SetScrollWidthTracking(True)
        self.SetCaretWidth(0)
        self.SetSelBackground(True, palette.ACCENT_SOFT)
        self.use_points(10.0)
        self.SetReadOnly(True)
        self.Bind(wx.EVT_KEY_DOWN, self._on_key)

    def use_points(self, points: float) -> None:
        self.StyleSetFont(wx.stc.STC_STYLE_DEFAULT, sizing.font(points, fixed=True))
        self.StyleSetForeground(wx.stc.STC_STYLE_DEFAULT, palette.INK)
        self.StyleSetBackground(wx.stc.STC_STYLE_DEFAULT, palette.SURFACE)
        self.StyleClearAll()

    def AppendText(self, text: str) -> None:
        self._pending.append(text)
        if not self._due:
            self._due = True
            wx.CallAfter(self._flush_if_alive)

    def SetValue(self, text: str) -> None:
        self._pending.clear()
        self.SetReadOnly(False)
        super().SetValue(displayable(text[-CAP:], CAP))
        self.SetReadOnly(True)

    Clear = ClearAll = lambda self: self.SetValue("")

    def GetValue(self) -> str:
        self.flush()
        return str(super().GetValue())

    def _flush_if_alive(self) -> None:
        if self:
            self.flush()

    def flush(self) -> None:
        """Write what is pending; the view follows unless the operator scrolled up."""
        self._due = False
        if not self._pending:
            return
        text = displayable("".join(self._pending)[-CAP:], CAP)
        self._pending.clear()
        follow = not self.IsShownOnScreen() or self._at_end()
        self.SetReadOnly(False)
        super().AppendText(text)
        self._cut()
        self.SetReadOnly(True)
        if follow:
            self.ScrollToEnd()
        if self.changed is not None:
            self.changed()

    def last_exception(self) -> str:
        """The line of the newest traceback that names the exception, or "" when there is none."""
        _before, header, traceback = self.GetValue().rpartition("Traceback (most recent call last):\n")
        lines = traceback.splitlines() if header else []
        return next((line for line in lines if line.strip() and not line.startswith(" ")), "")

    def _at_end(self) -> bool:
        return bool(self.GetFirstVisibleLine() + self.LinesOnScreen() >= self.GetLineCount() - 1)

    def _cut(self) -> None:
        length = self.GetTextLength()
        if length > CAP:
            line = self.LineFromPosition(length - _KEEP)
            self.DeleteRange(0, self.PositionFromLine(line))

    def _on_key(self, event: wx.KeyEvent) -> None:
        """Tab leaves the field: the keyboard gets no further otherwise."""
        if event.GetKeyCode() == wx.WXK_TAB and not event.ControlDown():
            flags = wx.NavigationKeyEvent.IsBackward if event.ShiftDown() else wx.NavigationKeyEvent.IsForward
            self.Navigate(flags)
        else:
            event.Skip()
