"""The notebook of a cell: items, history, log (the engine adds the debug shell)."""

from __future__ import annotations

from typing import Any

import wx
from qon_companions.i18n import _

from qon_atsui import palette, sizing
from qon_atsui.cell.log_view import LogView
from qon_atsui.columns import run_columns
from qon_atsui.grid.item_grid import ItemGrid
from qon_atsui.grid.record_grid import RecordGrid

_DEBUG_SHELL = "Debug Shell"  # the engine's title of the page that it adds


class CellPages(wx.Notebook):
    """Lives in the cell when there is room, otherwise in the cell's details window."""

    def __init__(self, parent: wx.Window) -> None:
        super().__init__(parent)
        self.items = ItemGrid(self)
        self.history = RecordGrid(self, run_columns())
        self.history.always_newest = True
        self.log_page = wx.Panel(self)
        self.log = LogView(self.log_page)
        self.browse = wx.Button(self.log_page, label=_("Choos&e script\u2026"), style=wx.BU_EXACTFIT)
        self.browse.SetToolTip(_("Choose the test script of this cell, where the application offers it"))
        column = wx.BoxSizer(wx.VERTICAL)
        column.Add(self.log, 1, wx.EXPAND)
        column.Add(self.browse, 0, wx.ALIGN_RIGHT | wx.ALL, 3)
        self.log_page.SetSizer(column)
        self.log_page.SetBackgroundColour(palette.SURFACE)
        self.AddPage(self.items, _("Items"))
        self.AddPage(self.history, _("History"))
        self.AddPage(self.log_page, _("Log"))

    def AddPage(self, page: wx.Window, text: str, *arguments: Any, **options: Any) -> bool:
        text = _("Debug Shell") if text == _DEBUG_SHELL else text
        return bool(super().AddPage(page, text, *arguments, **options))

    def use_points(self, points: float) -> None:
        """Size of the texts on all pages."""
        self.items.use_points(points)
        self.history.use_points(points)
        self.log.use_points(points)
        self.browse.SetFont(sizing.font(points))
        self.log_page.Layout()

    def last_result(self) -> str:
        """The history's word for the test that ended last."""
        row = self.history.GetNumberRows() - 1
        return self.history.GetCellValue(row, 3) if row >= 0 else ""

    def give_reason(self, reason: str) -> None:
        """Why the test ended that way, where the engine's own description says nothing."""
        row = self.history.GetNumberRows() - 1
        if reason and row >= 0 and not self.history.GetCellValue(row, 4):
            self.history.SetCellValue(row, 4, reason)

    def failed_items(self) -> str:
        """The name of the first NG item, and how many there are besides it."""
        rows = self.items.store.rows_with("red")
        titles = [self.items.GetColLabelValue(column) for column in range(self.items.GetNumberCols())]
        if not rows or "Name" not in titles:
            return ""
        first = self.items.GetCellValue(rows[0], titles.index("Name"))
        return first if len(rows) == 1 else f"{first}  +{len(rows) - 1}"
