"""What a test thread is at, told to whoever waits for it."""

from __future__ import annotations

import linecache
import os
import sys
import threading
from types import FrameType

from qon_companions.i18n import _


def what_it_waits_for(thread: threading.Thread | None, script: str) -> str:
    """The call of the test script that has not returned yet, "" when there is none."""
    frame = _innermost(thread, script)
    if frame is None:
        return ""
    line = linecache.getline(frame.f_code.co_filename, frame.f_lineno).strip()
    texts = {"call": line or frame.f_code.co_name, "line": frame.f_lineno}
    if frame.f_code.co_name == "cleanup":
        return _("Cleaning up: {call} (line {line})").format(**texts)
    return _("Waits for: {call} (line {line})").format(**texts)


def _innermost(thread: threading.Thread | None, script: str) -> FrameType | None:
    frame = sys._current_frames().get(thread.ident or 0) if thread is not None else None
    while frame is not None and os.path.abspath(frame.f_code.co_filename) != script:
        frame = frame.f_back
    return frame
