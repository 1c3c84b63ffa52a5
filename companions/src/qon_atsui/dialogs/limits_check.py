"""What does not fit between the scripts' last tests and their limits, as a list."""

from __future__ import annotations

from collections.abc import Iterable
from typing import Any

import wx
from qon_companions import limits_check
from qon_companions.i18n import _

from qon_atsui.dialogs.parts import button_row, heading
from qon_atsui.fields import caption

_SIZE = (900, 420)  # DIP
_WIDTHS = (90, 220, 560)


class LimitsCheckDialog(wx.Dialog):
    """One row for each finding; cells in their order."""

    def __init__(self, parent: wx.Window | None, cells: Iterable[Any]) -> None:
        style = wx.DEFAULT_DIALOG_STYLE | wx.RESIZE_BORDER
        wx.Dialog.__init__(self, parent, title=_("Limits check"), style=style)
        self.list = wx.ListCtrl(self, style=wx.LC_REPORT | wx.LC_SINGLE_SEL)
        for column, (title, width) in enumerate(
            zip((_("Cell"), _("Item"), _("Finding")), _WIDTHS, strict=True)
        ):
            self.list.InsertColumn(column, title, width=self.FromDIP(width))
        self.list.SetMinSize(self.FromDIP(wx.Size(*_SIZE)))
        for row in (row for cell in cells for row in rows_of(cell)):
            self.list.Append(row)
        column = wx.BoxSizer(wx.VERTICAL)
        head = _("What does not fit between the scripts' last tests and the limits workbooks")
        column.Add(heading(self, head), 0, wx.ALL, 12)
        column.Add(self.list, 1, wx.EXPAND | wx.LEFT | wx.RIGHT, 12)
        hint = _("The same stands in the log of each run; limits workbooks are read when the station starts.")
        column.Add(caption(self, hint), 0, wx.ALL, 12)
        row = button_row(
            self,
            (wx.ID_OK, _("&Close"), _("Close this window")),
            (wx.ID_COPY, _("&Copy all"), _("Copy the list as text")),
        )
        column.Add(row, 0, wx.EXPAND | wx.LEFT | wx.RIGHT | wx.BOTTOM, 12)
        self.SetEscapeId(wx.ID_OK)
        self.Bind(wx.EVT_BUTTON, lambda event: self._copy(), id=wx.ID_COPY)
        self.SetSizerAndFit(column)
        self.CentreOnParent()

    def texts(self) -> list[list[str]]:
        """The rows as they stand there."""
        columns = range(len(_WIDTHS))
        return [
            [self.list.GetItemText(row, each) for each in columns] for row in range(self.list.GetItemCount())
        ]

    def _copy(self) -> None:
        if wx.TheClipboard.Open():
            text = "\n".join("\t".join(row) for row in self.texts())
            wx.TheClipboard.SetData(wx.TextDataObject(text))
            wx.TheClipboard.Flush()
            wx.TheClipboard.Close()


def rows_of(cell: Any) -> list[tuple[str, str, str]]:
    """What is to be said of the cell's last test."""
    name = cell.get_cell_name()
    if cell.uut is None:
        return [(name, "", _("No test since the start."))]
    rows = [(name, finding.item, str(finding)) for finding in limits_check.of_cell(cell)]
    if not limits_check.ran_to_its_end(cell):
        text = _("The last test did not come to its end: rows that it did not reach are not judged.")
        return [*rows, (name, "", text)]
    return rows or [(name, "", _("Limits and script fit."))]
