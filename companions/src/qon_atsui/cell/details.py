"""The details window of a cell that is too small to show its notebook."""

from __future__ import annotations

import wx
from qon_companions.i18n import _

from qon_atsui import palette, sizing
from qon_atsui.cell.pages import CellPages

_SMALLEST = (520, 380)  # DIP


class DetailsWindow(wx.Frame):
    """Borrows the cell's notebook while it is open and gives it back when it is closed."""

    def __init__(self, cell: wx.Window, pages: CellPages, name: str) -> None:
        title = _("{cell} \u2013 details").format(cell=name)
        super().__init__(cell, title=title, style=wx.DEFAULT_FRAME_STYLE | wx.FRAME_FLOAT_ON_PARENT)
        self.SetBackgroundColour(palette.SURFACE)
        self._cell = cell
        self._pages = pages
        column = wx.BoxSizer(wx.VERTICAL)
        column.Add(self._head(title), 0, wx.EXPAND | wx.ALL, 5)
        pages.Reparent(self)
        column.Add(pages, 1, wx.EXPAND)
        self.SetSizer(column)
        pages.Show()
        self.Bind(wx.EVT_CLOSE, self._on_close)
        self.Bind(wx.EVT_CHAR_HOOK, self._on_char)
        self.SetSize(self._place())
        self.Show()
        pages.SetFocus()

    def _head(self, title: str) -> wx.BoxSizer:
        """Title and way out, also where no window manager draws them."""
        row = wx.BoxSizer(wx.HORIZONTAL)
        label = wx.StaticText(self, label=title)
        label.SetFont(sizing.font(12.0, bold=True))
        close = wx.Button(self, wx.ID_CLOSE, _("&Close"))
        close.SetToolTip(_("Close this window (Escape)"))
        close.Bind(wx.EVT_BUTTON, self._on_close)
        row.Add(label, 1, wx.ALIGN_CENTRE_VERTICAL | wx.LEFT, 5)
        row.Add(close)
        return row

    def _place(self) -> wx.Rect:
        """Beside the cell, where there is more room; the cell itself stays in view."""
        area = wx.GetTopLevelParent(self._cell).GetScreenRect()
        cell = self._cell.GetScreenRect()
        smallest = self.FromDIP(wx.Size(*_SMALLEST))
        before, behind = cell.x - area.x, area.GetRight() - cell.GetRight()
        width = max(smallest.width, min(max(before, behind), int(area.width * 0.65)))
        height = max(smallest.height, int(area.height * 0.65))
        x = cell.GetRight() + 1 if behind >= before else cell.x - width
        y = min(cell.y, area.GetBottom() - height)
        return wx.Rect(max(area.x, x), max(area.y, y), width, height)

    def give_back(self) -> None:
        """The notebook returns to its cell; the window goes."""
        self.GetSizer().Detach(self._pages)
        self._pages.Reparent(self._cell)
        self._pages.Hide()
        self.Destroy()

    def _on_close(self, _event: wx.Event) -> None:
        self._cell._ui_close_details()

    def _on_char(self, event: wx.KeyEvent) -> None:
        if event.GetKeyCode() == wx.WXK_ESCAPE:
            self._cell._ui_close_details()
        else:
            event.Skip()
