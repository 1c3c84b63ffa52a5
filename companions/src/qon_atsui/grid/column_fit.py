"""Column widths that use the width there is, in the proportions the engine wished."""

from __future__ import annotations

import wx
import wx.grid

# Short texts by their nature: where room is scarce, these give some of their width to the others.
_MODEST = {"Unit": 0.4, "Result": 0.5}


class ColumnFit:
    """Fits a grid's columns after every change of its size, until the operator drags one himself."""

    def __init__(self, grid: wx.grid.Grid) -> None:
        self._grid = grid
        self._wishes: dict[int, int] = {}
        self._always: dict[int, str] = {}
        self._dragged = False
        self._fitted_for: tuple[int, ...] = ()
        self._due = False
        grid.GetGridWindow().Bind(wx.EVT_SIZE, self._on_size)
        grid.Bind(wx.grid.EVT_GRID_COL_SIZE, self._on_drag)

    def wish(self, column: int, width: int, always: str = "") -> None:
        """A share of the width there is; the text `always` has room in any case."""
        self._wishes[column] = max(1, width)
        self._always[column] = always
        self.refit()

    def refit(self) -> None:
        if not self._due:
            self._due = True
            wx.CallAfter(self._fit)

    def _on_size(self, event: wx.SizeEvent) -> None:
        event.Skip()
        self.refit()

    def _on_drag(self, event: wx.grid.GridSizeEvent) -> None:
        event.Skip()
        self._dragged = True

    def _fit(self) -> None:
        self._due = False
        grid = self._grid
        if not grid or self._dragged or not self._wishes:
            return
        count = grid.GetNumberCols()
        room = grid.GetGridWindow().GetClientSize().width
        needed = [self._needed(column) for column in range(count)]
        wishes = [max(self._wishes.get(column, 80), 1) for column in range(count)]
        if sum(wishes) > 1.5 * room:
            wishes = [int(w * _MODEST.get(grid.GetColLabelValue(i), 1)) for i, w in enumerate(wishes)]
        key = (room, *needed, *wishes)
        if room < 50 or key == self._fitted_for:
            return
        self._fitted_for = key
        grid.BeginBatch()
        for column, width in enumerate(shares(room, wishes, needed)):
            wx.grid.Grid.SetColSize(grid, column, width)
        grid.EndBatch()

    def _needed(self, column: int) -> int:
        grid = self._grid
        title = wx.grid.Grid.GetColLabelValue(grid, column)  # as it is shown
        width = grid.GetFullTextExtent(title, grid.GetLabelFont())[0] + 8
        always = f" {self._always.get(column, '')} "  # with the room at its sides
        return int(max(width, grid.GetFullTextExtent(always, grid.GetDefaultCellFont())[0] + 6))


def shares(room: int, wishes: list[int], needed: list[int]) -> list[int]:
    """Widths in the wished proportions, none below what its title needs, together as wide as the room."""
    fixed: dict[int, int] = {}
    while True:
        free = [index for index in range(len(wishes)) if index not in fixed]
        left = room - sum(fixed.values())
        total = sum(wishes[index] for index in free)
        short = [index for index in free if left * wishes[index] / max(1, total) < needed[index]]
        if not short:
            break
        fixed.update((index, needed[index]) for index in short)
    widths = [fixed.get(index, int(left * wish / max(1, total))) for index, wish in enumerate(wishes)]
    if free:
        widths[free[0]] += max(0, room - sum(widths))
    return widths
