"""The test data viewer of a station: rows that follow each outcome, reports that tell the whole run."""

import logging
import os
from collections.abc import Sequence
from pathlib import Path
from typing import Any

import qon_ats
import qon_handy
import qon_wxtools
import wx
from qon_ats import UUT
from qon_atsui.columns import further_unit_columns
from qon_companions.files import safe_name, with_suffix
from qon_companions.gui_thread import post
from qon_companions.i18n import _

from .explain import explain
from .hooks import Happening, happened
from .item_analysis import ALL_CELLS, ItemAnalysis
from .item_rows import ItemRows
from .report import ReportPath
from .unit import StationUnit

_AT_ONCE = 25  # rows, some milliseconds

log = logging.getLogger(__name__)


class StationViewerPanel(ItemRows, ItemAnalysis):
    """The engine's panel for units that a station keeps."""

    __test__ = False
    ui_saves_filtered = True
    _folder = ""  # where a report was saved last

    def __init__(self, *args: Any, **keywords: Any) -> None:
        self._earlier: list[StationUnit] = []  # units of earlier runs, listed up to `_put`
        self._put = 0
        super().__init__(*args, **keywords)
        first = self.ui_history.GetNumberCols()
        self._further = [
            (column, text_of)
            for column, (_title, _width, text_of) in enumerate(further_unit_columns(), first)
        ]
        for column, (title, width, _text_of) in enumerate(further_unit_columns(), first):
            self.ui_history.AppendCols(1)
            self.ui_history.SetColSize(column, width)
            self.ui_history.SetColLabelValue(column, title)

    def _update_uut_summer(self, uut: UUT, row: int) -> None:
        super()._update_uut_summer(uut, row)
        for column, text_of in self._further:
            self.ui_history.SetCellValue(row, column, text_of(uut))

    def append(self, uut: UUT) -> None:
        super().append(uut)
        if isinstance(uut, StationUnit):
            uut.ended_event.subscribe(self._on_ended)
            if uut.outcome is not None:  # its run was over before anybody listened
                self._refresh(uut)

    def put_before(self, uuts: Sequence[StationUnit]) -> None:
        """List units of earlier runs, which have ended, above those of this session; GUI thread.

        A few at a time, so that the windows go on meanwhile.
        """
        self._earlier, self._put = list(uuts), 0
        known = set(self.ui_cell_filter.GetItems())
        for number in sorted({uut.cell_number for uut in uuts}):
            if str(number) not in known:
                self.ui_cell_filter.Append(str(number))
        self._put_some()

    def _put_some(self) -> None:
        if not self or self._put >= len(self._earlier):
            return
        if len(self._uut_list) > self._put:  # a test has begun meanwhile
            self._put_rest()
            return
        chosen = self.ui_cell_filter.GetStringSelection()
        for uut in self._earlier[self._put : self._put + _AT_ONCE]:
            self._uut_list.append(uut)
            if chosen in (ALL_CELLS, str(uut.cell_number)):
                self.ui_history.AppendRows(1)
                self._update_uut_summer(uut, self.ui_history.GetNumberRows() - 1)
        self._put = len(self._uut_list)
        wx.CallAfter(self._put_some)

    def _put_rest(self) -> None:
        self._uut_list[self._put : self._put] = self._earlier[self._put :]
        self._put = len(self._earlier)
        event = wx.CommandEvent(wx.wxEVT_CHOICE, self.ui_cell_filter.GetId())
        event.SetString(self.ui_cell_filter.GetStringSelection())
        self.on_cell_filter_changed(event)

    def clear(self) -> None:
        super().clear()
        self._earlier = []
        happened(Happening("list cleared"))

    def _uut_done_event_handler(self, uut: UUT) -> None:
        """A unit that is done is not at its end yet: the row waits for the outcome."""
        if not isinstance(uut, StationUnit) or uut.cell is None:
            super()._uut_done_event_handler(uut)

    def _on_ended(self, uut: StationUnit) -> None:
        """In the test thread."""
        post(self._refresh, uut)

    def _refresh(self, uut: StationUnit) -> None:
        super()._uut_done_event_handler(uut)

    def on_save_single_uut_test_data(self, _event: Any) -> None:
        """The report of the unit whose row is selected, whatever the filter shows; told how that went."""
        uut = self._TestDataViewerPanel__get_selected_uut()[0]
        if uut is None:
            qon_wxtools.MB.Notice(_("Please select one and only one UUT first."))
            return
        path = self._ask_for_file(f"{proposed_name(uut)}.xlsx")
        if not path:
            return
        name = uut.serial_number or os.path.basename(path)
        try:
            path = str(with_suffix(Path(path), ".xlsx"))
            self._TestDataViewerPanel__generate_test_report(uut, path)
        except Exception as error:
            log.exception("The report of %s could not be made.", name)
            text = _("The report of {name} could not be saved:\n{reason}")
            qon_wxtools.MB.Error(text.format(name=name, reason=explain(error).what))
        else:
            self._folder = os.path.dirname(path)
            qon_wxtools.MB.Notice(_("The report of {name} was saved:\n{path}").format(name=name, path=path))
        wx.GetTopLevelParent(self).Raise()  # the box belonged to the station's window and brought that to the front

    def _ask_for_file(self, proposed: str) -> str:
        """ "" when the operator gave none."""
        dialog = wx.FileDialog(
            self,
            message=_("Give a file name to save"),
            defaultDir=self._folder,
            defaultFile=proposed,
            wildcard="Excel File(*.xlsx)|*.xlsx",
            style=wx.FD_SAVE | wx.FD_OVERWRITE_PROMPT,
        )
        try:
            return str(dialog.GetPath()) if dialog.ShowModal() == wx.ID_OK else ""
        finally:
            dialog.Destroy()

    @staticmethod
    def _TestDataViewerPanel__generate_test_report(uut: UUT, filename: str) -> None:
        path = ReportPath(filename)
        if isinstance(uut, StationUnit):
            path.unit = uut
        qon_ats_report(uut, path)


def proposed_name(uut: UUT) -> str:
    """The serial number as it can be in a file name; the time where there is none."""
    began = qon_handy.timestamp_as_filename(uut.begin_time)
    return safe_name(uut.serial_number or began, otherwise=began)


# The engine's own, wherever `TestDataViewerPanel` of qon_ats points to later.
qon_ats_report: Any = vars(qon_ats.TestDataViewerPanel)["_TestDataViewerPanel__generate_test_report"].__func__


class StationViewerFrame(qon_ats.TestDataViewerFrame):
    """The engine's window around the panel that stands in qon_ats."""

    __test__ = False

    def __init__(
        self, parent: wx.Window | None, title: str = "", viewer_class: type[wx.Window] | None = None
    ) -> None:
        keywords: dict[str, Any] = {"title": title} if title else {}
        super().__init__(parent, viewer_class=viewer_class or qon_ats.TestDataViewerPanel, **keywords)
