"""Boxes of the companions: one at a time, readable from where the operator stands, safe from scanners."""

from .box import Box
from .text_box import TextBox
from .turns import TurnDialog, station_window

__all__ = ["Box", "TextBox", "TurnDialog", "station_window"]
