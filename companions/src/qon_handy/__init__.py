"""Small helpers that every part of a station uses: event listeners, exception texts, times as text."""

from .callback import Callback
from .texts import format_exception, timestamp, timestamp_as_filename

__all__ = ["Callback", "format_exception", "timestamp", "timestamp_as_filename"]
