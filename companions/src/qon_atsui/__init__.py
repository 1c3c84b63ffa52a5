"""Default window layouts of the test station: widgets and the binding of their handlers, no behaviour."""

from qon_atsui.cell import Cell
from qon_atsui.dialogs import AboutDialog, ManualOperationDialog, TickerExceptionDialog
from qon_atsui.frame import Frame
from qon_atsui.viewer import TestDataViewerFrame, TestDataViewerPanel

__all__ = [
    "AboutDialog",
    "Cell",
    "Frame",
    "ManualOperationDialog",
    "TestDataViewerFrame",
    "TestDataViewerPanel",
    "TickerExceptionDialog",
]
