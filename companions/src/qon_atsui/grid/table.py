"""The wx grid's view of a row store: what a cell says and how it looks."""

from __future__ import annotations

import wx
import wx.grid
from qon_companions.i18n import _

from qon_atsui import palette, sizing
from qon_atsui.grid.row_store import RowStore
from qon_atsui.texts import displayable


def is_number(text: str) -> bool:
    """Whether a text reads as a number, so that it is aligned at the right."""
    first = text[:1]
    if not (first.isdigit() or first in "+-.nNiI") or not text:
        return False
    try:
        float(text)
    except ValueError:
        return False
    return True


class StateCell(wx.grid.GridCellStringRenderer):
    """A coloured cell keeps its colour when its row is selected; lines above and below show the selection."""

    def Draw(
        self,
        grid: wx.grid.Grid,
        attr: wx.grid.GridCellAttr,
        dc: wx.DC,
        rect: wx.Rect,
        row: int,
        col: int,
        isSelected: bool,
    ) -> None:
        super().Draw(grid, attr, dc, rect, row, col, False)
        if isSelected:
            dc.SetPen(wx.Pen(palette.INK, 2))
            for y in (rect.y + 1, rect.y + rect.height - 1):
                dc.DrawLine(rect.x, y, rect.x + rect.width, y)

    def Clone(self) -> StateCell:
        return StateCell()


class StoreTable(wx.grid.GridTableBase):
    """Answers the grid's questions from a `RowStore`.

    `known_rows` is how many rows the grid has been told of; rows appended since are announced in one go.
    """

    def __init__(self, store: RowStore) -> None:
        super().__init__()
        self.store = store
        self.known_rows = 0
        self.points = 10.0
        self._titles: dict[int, str] = {}
        self._looks: dict[tuple[str, bool, bool], wx.grid.GridCellAttr] = {}
        self._numbers: set[int] = set()  # columns of serial numbers

    def forget_looks(self) -> None:
        """After a change of the font size."""
        self._looks.clear()

    # What the grid asks.

    def GetNumberRows(self) -> int:
        return self.known_rows

    def GetNumberCols(self) -> int:
        return self.store.columns

    def IsEmptyCell(self, row: int, col: int) -> bool:
        return row >= len(self.store) or not self.store.text(row, col)

    def GetValue(self, row: int, col: int) -> str:
        """For drawing: with a little room at both sides, which wx's own renderer does not give."""
        return "" if self.IsEmptyCell(row, col) else f" {self.shown(row, col)} "

    def shown(self, row: int, col: int) -> str:
        """What is to be read in the cell."""
        return displayable(self.store.text(row, col))

    def SetValue(self, row: int, col: int, value: str) -> None:
        self.store.set_text(row, col, value)

    def GetColLabelValue(self, col: int) -> str:
        return self.told_title(col)

    def told_title(self, col: int) -> str:
        return self._titles.get(col, "")

    def SetColLabelValue(self, col: int, value: str) -> None:
        self._titles[col] = value
        (self._numbers.add if value == _("Serial number") else self._numbers.discard)(col)

    def GetRowLabelValue(self, row: int) -> str:
        return str(row + 1)

    def GetAttr(self, row: int, col: int, _kind: int) -> wx.grid.GridCellAttr | None:
        if row >= len(self.store):
            return None
        key = (self.store.colour(row, col), is_number(self.store.text(row, col)), col in self._numbers)
        look = self._looks.get(key)
        if look is None:
            look = self._looks[key] = self._look(*key)
        look.IncRef()
        return look

    def _look(self, colour: str, number: bool, serial: bool) -> wx.grid.GridCellAttr:
        look = wx.grid.GridCellAttr()
        if serial:  # such numbers differ at their ends
            look.SetFitMode(wx.grid.GridFitMode.Ellipsize(wx.ELLIPSIZE_MIDDLE))
        shade = palette.shade_of(colour)
        look.SetBackgroundColour(shade.ground)
        look.SetTextColour(shade.ink)
        look.SetFont(sizing.font(self.points, bold=colour != "white"))
        look.SetAlignment(wx.ALIGN_RIGHT if number else wx.ALIGN_LEFT, wx.ALIGN_CENTRE)
        look.SetReadOnly(True)
        if colour != "white":
            look.SetRenderer(StateCell())
        return look
