"""The nine figures of one test item, with a place below them for the plot."""

from __future__ import annotations

import wx
from qon_companions.i18n import _

from qon_atsui import palette, sizing
from qon_atsui.fields import ValueLabel, caption
from qon_atsui.grid.numbers import shortened

Figure = tuple[str, str, str]  # field, caption, what it is
_IN_A_ROW = 3


def _figures() -> tuple[Figure, ...]:
    return (
        ("ok_count", "OK", _("How many of the listed values are OK")),
        ("ng_count", "NG", _("How many of the listed values are NG")),
        ("yield", _("Yield"), _("Share of OK among the judged values")),
        ("min", _("Minimum"), _("Smallest value")),
        ("max", _("Maximum"), _("Largest value")),
        ("middle", _("Middle"), _("Middle of the sorted values; of an even number the upper of the two")),
        ("average", _("Average"), _("Arithmetic mean")),
        ("std_deviation", _("Std. deviation"), _("Standard deviation of all listed values (divided by n)")),
        ("variance", _("Variance"), _("Variance of all listed values (divided by n)")),
    )


class FigureField(wx.TextCtrl):
    """A read-only number, shortened for the eye; it is answered, copied and shown in the tool tip whole."""

    def __init__(self, parent: wx.Window, hint: str) -> None:
        super().__init__(parent, style=wx.TE_READONLY)
        self._hint = hint
        self._whole = ""
        self.SetFont(sizing.font(10.0, bold=True))
        self.SetMinSize(wx.Size(self.FromDIP(70), -1))
        self.SetToolTip(hint)
        self.Bind(wx.EVT_TEXT_COPY, self._on_copy)

    def SetValue(self, value: str) -> None:
        self._whole = value
        super().SetValue(shortened(value))
        self.SetToolTip(f"{value}\n{self._hint}" if value else self._hint)

    def GetValue(self) -> str:
        return self._whole

    def _on_copy(self, event: wx.ClipboardTextEvent) -> None:
        if self.GetStringSelection() != super().GetValue() or not wx.TheClipboard.Open():
            event.Skip()  # a part of it, as in any field
            return
        wx.TheClipboard.SetData(wx.TextDataObject(self._whole))
        wx.TheClipboard.Close()


class ItemFigures(wx.Panel):
    """What is analysed, the fields by name in `fields`; the engine adds its plot to `column`."""

    def __init__(self, parent: wx.Window) -> None:
        super().__init__(parent)
        self.SetBackgroundColour(palette.SURFACE)
        self.fields: dict[str, FigureField] = {}
        self.name = self._line(12.0, bold=True)
        self.note = self._line(10.0)
        self.note.paint_as(palette.MUTED)
        self.column = wx.BoxSizer(wx.VERTICAL)
        self.column.Add(self.name, 0, wx.EXPAND | wx.LEFT | wx.RIGHT | wx.TOP, 8)
        self.column.Add(self.note, 0, wx.EXPAND | wx.LEFT | wx.RIGHT, 8)
        self.column.Add(self._table(), 0, wx.EXPAND | wx.ALL, 8)
        self.SetSizer(self.column)

    def _line(self, points: float, bold: bool = False) -> ValueLabel:
        line = ValueLabel(self)
        line.SetFont(sizing.font(points, bold))
        line.SetMinSize(wx.Size(-1, sizing.line_height(points, bold) + 2))
        return line

    def _table(self) -> wx.FlexGridSizer:
        """Captions above their fields, which are as wide as they can be."""
        table = wx.FlexGridSizer(_IN_A_ROW, 4, 8)
        for column in range(_IN_A_ROW):
            table.AddGrowableCol(column, 1)
        for name, title, hint in _figures():
            self.fields[name] = FigureField(self, hint)
            both = wx.BoxSizer(wx.VERTICAL)
            both.AddStretchSpacer()  # captions of different scripts differ in height
            both.Add(caption(self, title))
            both.Add(self.fields[name], 0, wx.EXPAND)
            table.Add(both, 1, wx.EXPAND)
        return table


def figures_guide(parent: wx.Window) -> wx.Panel:
    """A page that says what each figure means and where it comes from."""
    panel = wx.Panel(parent)
    panel.SetBackgroundColour(palette.SURFACE)
    table = wx.FlexGridSizer(2, 8, 14)
    for _name, title, meaning in _figures():
        label = wx.StaticText(panel, label=title)
        label.SetFont(sizing.font(10.0, bold=True))
        table.Add(label)
        table.Add(wx.StaticText(panel, label=meaning))
    note = _("Select a unit, then one of its items: the figures cover that item in all listed units.")
    head = wx.StaticText(panel, label=note)
    column = wx.BoxSizer(wx.VERTICAL)
    column.Add(head, 0, wx.EXPAND | wx.ALL, 12)
    column.Add(table, 0, wx.LEFT | wx.RIGHT, 12)
    panel.SetSizer(column)
    return panel
