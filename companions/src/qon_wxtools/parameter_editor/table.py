"""The parameters as rows of a table: texts and colours of its cells."""

from __future__ import annotations

from collections.abc import Callable
from typing import TYPE_CHECKING

import wx
import wx.grid
from qon_companions.fonts import font
from qon_companions.i18n import _
from qon_companions.parameters import typed

from .edits import Edits
from .loading import locked

if TYPE_CHECKING:
    from qon_paratree import ParameterNode

VARIABLE, DESCRIPTION, VALUE, LOWER, UPPER, UNIT, TYPE, REMARK = range(8)
WIDTHS = (150, 180, 160, 76, 76, 50, 52, 220)  # DIP
_READ_ONLY, _EDITABLE, _CHANGED, _REFUSED = "#EEF1F4", "#FFFFFF", "#E3ECF7", "#FBE3E4"
_INK, _REFUSED_INK = "#16212C", "#8E1620"
_POINTS = 10.5


class ParameterTable(wx.grid.GridTableBase):
    """Rows are the parameters shown now; only their values can be edited."""

    def __init__(self, edits: Edits) -> None:
        super().__init__()
        self.rows: list[ParameterNode] = []
        self.edits = edits
        self.base = ""  # what is left out in front of the variable names
        self.entered: Callable[[ParameterNode], object] = lambda node: None
        self._locks: dict[ParameterNode, str] = {}
        self._attributes: dict[tuple[str, bool, bool, bool], wx.grid.GridCellAttr] = {}
        self._titles = (
            _("Variable"),
            _("Description"),
            _("Set value"),
            _("Lower"),
            _("Upper"),
            _("Unit"),
            _("Type"),
            _("Remark"),
        )

    def show(self, rows: list[ParameterNode], base: str) -> None:
        """Replace the rows; the grid has to be told how many there are."""
        before, self.rows, self.base = len(self.rows), rows, base
        grid = self.GetView()
        grid.BeginBatch()
        for message, count in (
            (wx.grid.GRIDTABLE_NOTIFY_ROWS_DELETED, before - len(rows)),
            (wx.grid.GRIDTABLE_NOTIFY_ROWS_APPENDED, len(rows) - before),
        ):
            if count > 0:
                where = (len(rows), count) if message == wx.grid.GRIDTABLE_NOTIFY_ROWS_DELETED else (count,)
                grid.ProcessTableMessage(wx.grid.GridTableMessage(self, message, *where))
        grid.ForceRefresh()
        grid.EndBatch()

    def lock(self, node: ParameterNode) -> str:
        """Why the value cannot be changed, "" when it can."""
        if node not in self._locks:
            self._locks[node] = locked(node)
        return self._locks[node]

    def remark(self, node: ParameterNode) -> str:
        """What there is to say about a value, in words."""
        refusal = self.edits.refused.get(node)
        if refusal:
            return f"✗ {refusal.reason}"
        if node.changed:
            return "● " + _("changed, was {value}").format(value=node.stored_text or "–")
        return self.lock(node)

    def GetNumberRows(self) -> int:
        return len(self.rows)

    def GetNumberCols(self) -> int:
        return len(WIDTHS)

    def GetColLabelValue(self, column: int) -> str:
        return self._titles[column]

    def IsEmptyCell(self, row: int, column: int) -> bool:
        return not self.GetValue(row, column)

    def GetValue(self, row: int, column: int) -> str:
        if row >= len(self.rows):
            return ""
        node = self.rows[row]
        parameter = node.parameter
        if column == VALUE:
            return self.edits.shown(node)
        if column == VARIABLE:
            return node.path.removeprefix(self.base)
        if column in (LOWER, UPPER):
            return typed.to_text(parameter.kind, parameter.low if column == LOWER else parameter.up)
        if column == REMARK:
            return self.remark(node)
        return {DESCRIPTION: parameter.desc, UNIT: parameter.unit or "", TYPE: parameter.type}[column]

    def SetValue(self, row: int, _column: int, text: str) -> None:
        """A text was typed into a cell."""
        node = self.rows[row]
        if not self.lock(node):
            self.edits.enter(node, text)
            self.entered(node)

    def GetAttr(self, row: int, column: int, _kind: int) -> wx.grid.GridCellAttr:
        node = self.rows[row] if row < len(self.rows) else None
        number = column in (LOWER, UPPER) or (
            column == VALUE and node is not None and node.parameter.kind in ("int", "float")
        )
        read_only = column != VALUE or self._is_locked(node)
        attribute = self._attribute(self._ground(node, column), number, read_only, column == VARIABLE)
        attribute.IncRef()
        return attribute

    def _is_locked(self, node: ParameterNode | None) -> bool:
        return node is None or bool(self.lock(node))

    def _ground(self, node: ParameterNode | None, column: int) -> str:
        if node is None or column not in (VALUE, REMARK):
            return _READ_ONLY
        if node in self.edits.refused:
            return _REFUSED
        if node.changed:
            return _CHANGED
        return _EDITABLE if column == VALUE and not self._is_locked(node) else _READ_ONLY

    def _attribute(self, ground: str, number: bool, read_only: bool, is_path: bool) -> wx.grid.GridCellAttr:
        key = ground, number, read_only, is_path
        if key not in self._attributes:
            attribute = wx.grid.GridCellAttr()
            attribute.SetBackgroundColour(wx.Colour(ground))
            attribute.SetTextColour(wx.Colour(_REFUSED_INK if ground == _REFUSED else _INK))
            attribute.SetFont(font(_POINTS, bold=ground in (_CHANGED, _REFUSED)))
            attribute.SetAlignment(wx.ALIGN_RIGHT if number else wx.ALIGN_LEFT, wx.ALIGN_CENTRE)
            ellipsis = wx.ELLIPSIZE_START if is_path else wx.ELLIPSIZE_END
            attribute.SetFitMode(wx.grid.GridFitMode.Ellipsize(ellipsis))
            attribute.SetReadOnly(read_only)
            self._attributes[key] = attribute
        return self._attributes[key]
