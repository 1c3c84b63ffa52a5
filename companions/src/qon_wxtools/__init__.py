"""Message boxes, questions, window fitting and the editor of the test parameters."""

from .fit_layout import window_fit_layout
from .message_box import MB
from .parameter_editor import ParameterTreeDialog
from .true_or_false import TrueOrFalseDialog

__all__ = ["MB", "ParameterTreeDialog", "TrueOrFalseDialog", "window_fit_layout"]
