"""Everything about one parameter, below the table: nothing is cut off here, and all of it can be copied."""

from __future__ import annotations

from typing import TYPE_CHECKING

import wx
from qon_companions.fonts import font
from qon_companions.i18n import _
from qon_companions.parameters import typed

if TYPE_CHECKING:
    from qon_companions.parameters import Parameter
    from qon_paratree import ParameterNode

_PROBLEM_INK = "#8E1620"


class DetailView(wx.Panel):
    """Name and limits, the value as a whole, and what is wrong with it."""

    def __init__(self, parent: wx.Window) -> None:
        super().__init__(parent)
        self._heading = wx.StaticText(self, style=wx.ST_ELLIPSIZE_END)
        self._heading.SetFont(font(11.0, bold=True))
        self._limits = wx.StaticText(self, style=wx.ST_ELLIPSIZE_END)
        self._limits.SetFont(font(10.5))
        self.problem = wx.StaticText(self, style=wx.ST_ELLIPSIZE_END)
        self.problem.SetFont(font(11.0, bold=True))
        self.problem.SetForegroundColour(wx.Colour(_PROBLEM_INK))
        self._value = wx.TextCtrl(self, style=wx.TE_MULTILINE | wx.TE_READONLY)
        self._value.SetMinSize(self.FromDIP(wx.Size(-1, 64)))
        column = wx.BoxSizer(wx.VERTICAL)
        gap = self.FromDIP(4)
        for window in (self._heading, self._limits, self._value, self.problem):
            column.Add(window, 1 if window is self._value else 0, wx.EXPAND | wx.TOP, gap)
        self.SetSizer(column)

    def show(self, node: ParameterNode | None, text: str, problem: str) -> None:
        """`text` is what stands in the field, `problem` why it is not accepted or cannot be changed."""
        parameter = node.parameter if node else None
        heading = f"{node.path}    {parameter.desc}" if node and parameter else _("No parameter")
        self._set(self._heading, heading)
        self._set(self._limits, _limits(parameter) if parameter else "")
        self._set(self.problem, problem)
        if self._value.GetValue() != text:
            self._value.ChangeValue(text)

    @staticmethod
    def _set(label: wx.StaticText, text: str) -> None:
        if label.GetLabelText() != text:
            label.SetLabelText(text)
            label.SetToolTip(text or None)


def _limits(parameter: Parameter) -> str:
    low, up = (typed.to_text(parameter.kind, limit) for limit in (parameter.low, parameter.up))
    unit = f" {parameter.unit}" if parameter.unit else ""
    if low and up:
        text = _("allowed: {low} to {up}{unit}").format(low=low, up=up, unit=unit)
    elif low:
        text = _("allowed: {low}{unit} or more").format(low=low, unit=unit)
    elif up:
        text = _("allowed: {up}{unit} or less").format(up=up, unit=unit)
    else:
        text = _("no limits") + (f", {parameter.unit}" if parameter.unit else "")
    return _("type {type}; {limits}").format(type=parameter.type, limits=text)
