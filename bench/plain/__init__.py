"""The station in plain Python: the yardstick of the benchmarks.

The same checks, records, queue and overridable methods as the native module, written straightforwardly.
"""

from .engine import CellBase
from .frame import ATSFrame
from .panel import Cell
from .records import UUT, Assertion, Statistics, StatisticsUpdateEvent
from .script_api import CallUserFunctionInfo, CellRunnerBase
from .viewer import TestDataViewerFrame, TestDataViewerPanel

__all__ = [
    "UUT",
    "ATSFrame",
    "Assertion",
    "CallUserFunctionInfo",
    "Cell",
    "CellBase",
    "CellRunnerBase",
    "Statistics",
    "StatisticsUpdateEvent",
    "TestDataViewerFrame",
    "TestDataViewerPanel",
]
