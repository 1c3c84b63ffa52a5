"""Modal boxes of the companions: one at a time, readable from where the operator stands, safe from scanners."""

from .box import Box
from .turns import TurnDialog, station_window, when_asked

__all__ = ["Box", "TurnDialog", "station_window", "when_asked"]
