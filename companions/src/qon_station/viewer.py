"""The test data viewer of a station: rows that follow each outcome, reports that tell the whole run."""

import logging
from typing import Any

import qon_ats
import wx
from qon_ats import UUT
from qon_companions.gui_thread import post
from qon_companions.i18n import _
from qon_wxtools import MB

from .report import ReportPath
from .unit import StationUnit

log = logging.getLogger(__name__)


class StationViewerPanel(qon_ats.TestDataViewerPanel):
    """The engine's panel for units that a station keeps."""

    __test__ = False

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

    def on_save_single_uut_test_data(self, event: wx.Event) -> None:
        """Every report that could not be saved is told, each time."""
        try:
            super().on_save_single_uut_test_data(event)
        except Exception as error:
            log.exception("The report could not be saved.")
            MB.Error(_("The report could not be saved: {reason}").format(reason=error))

    @staticmethod
    def _TestDataViewerPanel__generate_test_report(uut: UUT, filename: str) -> None:
        path = ReportPath(filename)
        if isinstance(uut, StationUnit):
            path.unit = uut
        qon_ats_report(uut, path)


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
