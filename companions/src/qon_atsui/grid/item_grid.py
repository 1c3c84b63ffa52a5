"""The grid of a unit's items: numbers are shortened for the eye, titles come in the operator's language."""

from __future__ import annotations

from collections.abc import Sequence

from qon_atsui.columns import item_titles
from qon_atsui.grid.numbers import DIGITS, digits_for, is_long_float, shortened
from qon_atsui.grid.record_grid import RecordGrid
from qon_atsui.grid.row_store import RowStore
from qon_atsui.grid.table import StoreTable

_TEXTS = ("name", "unit", "result")  # columns without numbers
_JUDGED = ("value", "lower", "upper")  # columns whose numbers are compared with each other


class ItemTable(StoreTable):
    """The store keeps what was measured; only what is drawn is shortened."""

    def __init__(self, store: RowStore) -> None:
        super().__init__(store)
        self.texts: set[tuple[int, int]] = set()  # cells that hold no number although they look like one
        self.titles: list[str] = []  # shown instead of those that were told
        self._known = item_titles()

    def GetColLabelValue(self, col: int) -> str:
        told = self.told_title(col)
        return self.titles[col] if col < len(self.titles) else self._known.get(told.lower(), told)

    def shown(self, row: int, col: int) -> str:
        text = self.store.text(row, col)
        title = self.told_title(col).lower()
        if title in _TEXTS or (row, col) in self.texts or not is_long_float(text):
            return super().shown(row, col)
        return shortened(text, self._digits(row) if title in _JUDGED else DIGITS)

    def _digits(self, row: int) -> int:
        columns = {self.told_title(col).lower(): col for col in range(self.store.columns)}
        value, lower, upper = (
            self.store.text(row, columns[title]) if title in columns else "" for title in _JUDGED
        )
        return digits_for(value, lower, upper)


class ItemGrid(RecordGrid):
    """A record grid whose columns are known by the titles the engine told."""

    table_type = ItemTable
    _table: ItemTable

    def GetColLabelValue(self, col: int) -> str:
        """As it was told; `show_titles` and the language change only what is seen."""
        return self._table.told_title(col)

    def show_titles(self, titles: Sequence[str]) -> None:
        """Texts over the columns, from the first one on."""
        self._table.titles = list(titles)
        self._columns.refit()
        self.ForceRefresh()

    def keep_whole(self, row: int, column: int) -> None:
        """The cell holds a text, whatever it looks like."""
        self._table.texts.add((row, column))

    def DeleteRows(self, pos: int = 0, numRows: int = 1, updateLabels: bool = True) -> bool:
        deleted = super().DeleteRows(pos, numRows, updateLabels)
        self._table.texts = {
            (row if row < pos else row - numRows, column)
            for row, column in self._table.texts
            if not pos <= row < pos + numRows
        }
        return deleted
