"""The way from the command line to the main loop of a station."""

import contextlib
import logging
import os
import sys
from collections.abc import Callable

import wx
from qon_companions.gui_thread import post
from qon_companions.i18n import _, install_locale

from .collecting import GuiCollector
from .ending import Ending, closed_by_signals
from .explain import details, explain
from .fault_window import FaultWindow
from .faults import Faults, Hooks
from .hooks import opened
from .installing import install
from .keys import CELL, misspelt
from .log_file import logging_of_wx, logging_to
from .many_items import watching_items
from .start_failure import show_start_failure

LOG_FILE = os.path.join("log", "station.log")

log = logging.getLogger(__name__)


def run(
    frame_factory: Callable[[], wx.TopLevelWindow],
    log_file: str | os.PathLike[str] | None = LOG_FILE,
    level: int = logging.INFO,
) -> int:
    """Build the main window, show it and run the main loop; returns the process's exit code.

    1 when the window could not be built, after the operator was told why.  Exceptions that nobody catches, in
    the GUI thread or in another one, are listed in a window of their own and written to the log; the station
    goes on.  `log_file` None means no log file.
    """
    app = _application()
    if app is None:
        return 1
    install_locale(app)
    faults = Faults()
    with contextlib.ExitStack() as stack:
        stack.enter_context(Hooks(faults))
        stack.enter_context(logging_of_wx())
        stack.enter_context(GuiCollector())
        _open_log(stack, log_file, level, faults)
        stack.callback(install())
        frame = _built(frame_factory)
        if frame is None:
            return 1
        app.SetTopWindow(frame)
        _report(faults, frame)
        _tell_misspelt_keys(frame)
        frame.Show()
        ending = Ending(frame)
        stack.enter_context(closed_by_signals(ending))
        stack.enter_context(watching_items(frame))
        log.info("The station has started.")
        opened(frame)
        app.MainLoop()
        ending.finish()
    return 0


def _application() -> wx.App | None:
    try:
        return wx.GetApp() or wx.App(False)
    except SystemExit as error:  # this is how wx tells that there is no display
        print(f"The station cannot start: {error}", file=sys.stderr)
        return None


def _open_log(
    stack: contextlib.ExitStack, log_file: str | os.PathLike[str] | None, level: int, faults: Faults
) -> None:
    """A station without a log is better than none; the operator is told."""
    if log_file is None:
        return
    try:
        stack.enter_context(logging_to(log_file, level))
    except OSError as error:
        faults.add(error, _("log file"))


def _built(frame_factory: Callable[[], wx.TopLevelWindow]) -> wx.TopLevelWindow | None:
    try:
        frame = frame_factory()
        if not isinstance(frame, wx.TopLevelWindow):
            raise TypeError(f"The function that builds the main window returned {frame!r}, not a window.")
        return frame
    except Exception as error:  # noqa: BLE001 - whatever it is, the operator has to see it
        log.critical("The station cannot start.\n%s", details(error))
        if sys.stderr is not None:
            print(f"The station cannot start.\n{explain(error)}", file=sys.stderr)
        for window in wx.GetTopLevelWindows():  # what was built so far
            window.Hide()
        show_start_failure(error)
        for window in wx.GetTopLevelWindows():
            window.Destroy()
        return None


def _tell_misspelt_keys(frame: wx.TopLevelWindow) -> None:
    """A key that nobody reads keeps its default without a word."""
    sheets = {cell.cell_config for cell in getattr(frame, "cells", ())}
    for sheet in sheets:
        for name, key in misspelt(sheet, CELL).items():
            log.warning('%s, sheet "%s": no key "%s"; did you mean "%s"?', sheet.file, sheet.name, name, key)


def _report(faults: Faults, frame: wx.TopLevelWindow) -> None:
    """From now on faults are shown, those that happened already too."""
    window = FaultWindow(frame, faults)
    faults.changed = lambda new: post(window.refresh, new)
    if faults.list():
        wx.CallAfter(window.refresh, True)
