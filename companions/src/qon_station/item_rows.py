"""Rows of items, whatever their values do."""

from __future__ import annotations

import logging
from typing import Any

from .sheet_values import told

log = logging.getLogger(__name__)


class ItemRows:
    """Stands before a class that shows assertions in a grid: one that cannot be told is a row all the same."""

    ui_assertions: Any
    _colours_whole_rows = False  # whether an NG item is red in all its cells
    _told_faults: frozenset[tuple[type, type]] = frozenset()

    def _show_an_assertion(self, assertion: Any) -> None:
        grid = self.ui_assertions
        row = grid.GetNumberRows()
        try:
            super()._show_an_assertion(assertion)  # type: ignore[misc]
            value = getattr(assertion, "get_value", None)  # an application's own records may have none
            if value is not None and isinstance(value(), str):
                self._keep_texts(row, assertion)
        except Exception as error:  # noqa: BLE001 - a value may raise anything
            self._log_once(error, assertion)
            if grid.GetNumberRows() == row:
                grid.AppendRows()
            self._write_what_can_be_told(row, assertion)

    def _keep_texts(self, row: int, assertion: Any) -> None:
        """Texts are shown whole, also those that look like numbers."""
        grid = self.ui_assertions
        if not hasattr(grid, "keep_whole"):
            return
        for column in range(grid.GetNumberCols()):
            getter = _getter(assertion, grid.GetColLabelValue(column))
            if isinstance(getter(), str):
                grid.keep_whole(row, column)

    def _write_what_can_be_told(self, row: int, assertion: Any) -> None:
        grid = self.ui_assertions
        is_ng = _safely(lambda: assertion.is_ng(), False)
        for column in range(grid.GetNumberCols()):
            title = grid.GetColLabelValue(column)
            value = _safely(lambda title=title: _getter(assertion, title)(), _UNTOLD)
            grid.SetCellValue(row, column, told(value))
            if is_ng and (self._colours_whole_rows or title == "Result"):
                grid.SetCellBackgroundColour(row, column, "red")
        grid.MakeCellVisible(row, 0)

    def _log_once(self, error: Exception, assertion: Any) -> None:
        """A script may record a million of the same kind."""
        kind = (type(error), type(_safely(lambda: assertion.get_value(), None)))
        if kind not in self._told_faults:
            self._told_faults |= {kind}
            name = told(_safely(lambda: assertion.get_name(), _UNTOLD))
            log.error('Item "%s" cannot be shown as it is.', name, exc_info=error)


class _Untold:
    def __str__(self) -> str:
        return "<...>"


_UNTOLD = _Untold()


def _getter(assertion: Any, title: str) -> Any:
    return getattr(assertion, f"get_{title.lower()}")


def _safely(call: Any, otherwise: Any) -> Any:
    try:
        return call()
    except Exception:  # noqa: BLE001 - a value may raise anything
        return otherwise
