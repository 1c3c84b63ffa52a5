"""The test data viewer of a station: rows that follow each outcome, reports that tell the whole run."""

import logging
import os
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
from .item_analysis import ItemAnalysis
from .item_rows import ItemRows
from .report import ReportPath
from .unit import StationUnit

log = logging.getLogger(__name__)


class StationViewerPanel(ItemRows, ItemAnalysis):
    """The engine's panel for units that a station keeps."""

    __test__ = False
    ui_saves_filtered = True
    _folder = ""  # where a report was saved last

    def __init__(self, *args: Any, **keywords: Any) -> None:
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
