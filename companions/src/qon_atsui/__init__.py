"""Default window layouts of the test station: widgets and the binding of their handlers, no behaviour."""

from qon_atsui.cell.panel import Cell
from qon_atsui.dialogs.about import AboutDialog
from qon_atsui.dialogs.manual_operation import ManualOperationDialog
from qon_atsui.dialogs.ticker_exception import TickerExceptionDialog
from qon_atsui.frame.window import Frame
from qon_atsui.viewer.panel import TestDataViewerFrame, TestDataViewerPanel

__all__ = [
    "AboutDialog",
    "Cell",
    "Frame",
    "ManualOperationDialog",
    "TestDataViewerFrame",
    "TestDataViewerPanel",
    "TickerExceptionDialog",
]
