"""The end of a station: by its window, or by a signal as by its window without asking."""

import contextlib
import faulthandler
import logging
import os
import signal
import socket
import sys
import threading
import time
from collections.abc import Callable, Iterator
from typing import Any

import wx
from qon_companions.i18n import _

from .hooks import closing, start_checks
from .leftovers import place_of
from .runs import StationRuns

CLEANUP_SECONDS = 10.0  # that scripts have for coming to their end when a signal closes the station
REST_SECONDS = (
    10.0  # then, for the application's own end, before the process is ended from outside the windows
)
_TICK_MS = 50
_SIGNALS = [
    getattr(signal, name) for name in ("SIGTERM", "SIGINT", "SIGHUP", "SIGBREAK") if hasattr(signal, name)
]

log = logging.getLogger(__name__)


class Ending:
    """Does once what belongs to the end, whether the engine ends the process or the main loop returns."""

    def __init__(self, frame: Any) -> None:
        self.frame = frame
        self.is_unattended = False  # nobody would answer a box
        self._is_over = False
        finalizer = getattr(frame, "exit_finalizer", None)
        if callable(finalizer):
            frame.exit_finalizer = lambda: self._finalize(finalizer)

    def _finalize(self, finalizer: Callable[[], Any]) -> None:
        try:
            finalizer()
        except Exception:
            log.exception("exit_finalizer failed.")
            if not self.is_unattended:
                raise
        finally:
            self.finish()

    def finish(self) -> None:
        """Runs that are cut off get their outcome; then whoever keeps something open closes it."""
        if self._is_over:
            return
        self._is_over = True
        for cell in _cells(self.frame):
            if isinstance(cell, StationRuns) and cell.give_up(_("The station was closed")):
                log.warning(
                    "%s: the test of %s was cut off.",
                    cell.get_cell_name(),
                    cell.uut and cell.uut.serial_number,
                )
        log.info("The station has ended.")
        closing()


class UnattendedClose:
    """Closes the window as its close command does, but asks nobody: tests are aborted and may clean up first."""

    def __init__(self, ending: Ending, reason: str) -> None:
        self._ending = ending
        self._reason = reason
        self._end = time.monotonic() + CLEANUP_SECONDS
        self._timer = wx.Timer()
        self._timer.Notify = self._look

    def begin(self) -> None:
        """GUI thread."""
        log.warning("%s: the station closes.", self._reason)
        self._ending.is_unattended = True
        start_checks.subscribe(lambda _cell, _serial_number: _("The station closes"))
        stop_ticker = getattr(self._ending.frame, "stop_ticker", None)
        if callable(stop_ticker):
            stop_ticker()
        for cell in _cells(self._ending.frame):  # also one whose start waits for its checks
            if isinstance(cell, StationRuns):
                cell.interrupt(self._reason)
            else:
                cell.abort(self._reason)
        self._timer.Start(_TICK_MS)

    def hurry(self) -> None:
        """A second signal: do not wait for cleanups any more."""
        self._end = time.monotonic()

    def _at_work(self) -> list[Any]:
        cells = _cells(self._ending.frame)
        return [cell for cell in cells if cell._test_thread is not None and cell._test_thread.is_alive()]

    def _look(self) -> None:
        at_work = self._at_work()
        if at_work and time.monotonic() < self._end:
            _dismiss_boxes()
            return
        self._timer.Stop()
        for cell in at_work:
            place = place_of(cell._test_thread) or "?"
            log.error(
                "%s did not end within %g s; it is at %s.", cell.get_cell_name(), CLEANUP_SECONDS, place
            )
        for cell in _cells(self._ending.frame):
            cell.running_state = cell.CellStateStop  # else the window would ask
        self._ending.frame.Close(force=True)


def _cells(frame: Any) -> list[Any]:
    return list(getattr(frame, "cells", ()))


def _dismiss_boxes() -> None:
    """Questions of scripts that nobody will answer; the innermost ends first."""
    for window in wx.GetTopLevelWindows():
        if isinstance(window, wx.Dialog) and window.IsModal():
            window.EndModal(wx.ID_CANCEL)


@contextlib.contextmanager
def closed_by_signals(ending: Ending) -> Iterator[None]:
    """While it is open, SIGTERM, SIGINT and SIGHUP close the station, also while its windows stand still."""
    if threading.current_thread() is not threading.main_thread():
        yield  # signals are the main thread's alone
        return
    ear, mouth = socket.socketpair()
    mouth.setblocking(False)
    before = {number: signal.signal(number, lambda _number, _frame: None) for number in _SIGNALS}
    fd = signal.set_wakeup_fd(mouth.fileno(), warn_on_full_buffer=False)
    threading.Thread(target=_listen, args=(ear, ending), name="signals", daemon=True).start()
    try:
        yield
    finally:
        signal.set_wakeup_fd(fd)
        for number, handler in before.items():
            signal.signal(number, handler)
        mouth.close()


def _listen(ear: socket.socket, ending: Ending) -> None:
    """The interpreter writes the number of each signal, whatever the main thread is doing."""
    close: UnattendedClose | None = None
    with ear:
        while numbers := ear.recv(16):
            asked = [number for number in numbers if number in _SIGNALS]
            if asked and close is None:
                name = signal.Signals(asked[0]).name
                close = UnattendedClose(ending, _("The station is closed ({signal})").format(signal=name))
                wx.CallAfter(close.begin)
                threading.Thread(target=_last_resort, name="last resort", daemon=True).start()
            elif asked and close is not None:
                wx.CallAfter(close.hurry)


def _last_resort() -> None:
    """Windows that stand still cannot close themselves."""
    time.sleep(CLEANUP_SECONDS + REST_SECONDS)
    log.critical("The station did not close in time and is ended.")
    if sys.stderr is not None:
        faulthandler.dump_traceback(all_threads=True)
    logging.shutdown()
    os._exit(1)
