"""A station with its window shown, run to its last verdict, and how late its event loop was meanwhile."""

import threading
import time
from pathlib import Path
from typing import Any

import qon_ats
import wx
from sides import setting, write_book

PERIOD = 0.010  # seconds
COLUMNS = {1: 1, 4: 2, 8: 4, 20: 5, 100: 10}


def without_processor() -> float:
    """Seconds this thread was ready to run and no processor was free; 0 where the system does not tell."""
    statistics = Path(f"/proc/self/task/{threading.get_native_id()}/schedstat")
    return int(statistics.read_text(encoding="ascii").split()[1]) * 1e-9 if statistics.exists() else 0.0


class Lateness(wx.Timer):
    """A 10 ms timer.  Every due time counts, also those that passed while the loop was stuck."""

    def __init__(self) -> None:
        super().__init__()
        self.late: list[float] = []  # seconds
        self._due = 0.0

    def begin(self) -> None:
        self._due = time.perf_counter() + PERIOD
        self.Start(round(PERIOD * 1e3))

    def Notify(self) -> None:
        now = time.perf_counter()
        self.late.append(max(0.0, now - self._due))
        while self._due + PERIOD < now:
            self._due += PERIOD
            self.late.append(now - self._due)
        self._due = now + PERIOD

    def milliseconds(self, percentile: float) -> float:
        ordered = sorted(self.late)
        return ordered[min(len(ordered) - 1, int(len(ordered) * percentile))] * 1e3


class Station:
    """The frame with so many cells, which all run one script."""

    def __init__(self, folder: Path, script: Path, cells: int) -> None:
        main = [setting("cell_count", cells), setting("column_count", COLUMNS.get(cells, 8))]
        book = write_book(folder / "config.xlsx", {"main": main, "cell1": [setting("script", str(script))]})
        self.frame: Any = qon_ats.ATSFrame(None, config_file=book)
        self.cells = self.frame.cells
        self.lateness = Lateness()
        self.began = 0.0
        self.starved = 0.0  # percent of the run in which other processes kept the windows from running

    def run(self, watch: Any = None) -> float:
        """Seconds from the command to the last verdict on the screen; `watch` is called every 10 ms."""
        self._settle()
        self.lateness.begin()
        self.began, starved = time.perf_counter(), without_processor()
        self.frame.on_start_all(None)
        self._loop(lambda: self._all_ended(watch))
        seconds = time.perf_counter() - self.began
        self.lateness.Stop()
        self.starved = (without_processor() - starved) / seconds * 100
        for cell in self.cells:
            if cell._exception_object is not None:
                raise cell._exception_object
        return seconds

    def _all_ended(self, watch: Any) -> bool:
        if watch is not None:
            watch()
        return all(cell.is_ready() and cell.uut is not None for cell in self.cells)

    def _settle(self) -> None:
        """The window stands and is painted before the clock starts."""
        self.frame.Show()
        end = time.perf_counter() + 1.0
        self._loop(lambda: time.perf_counter() > end)

    @staticmethod
    def _loop(done: Any) -> None:
        """Run the event loop until `done()`; asked every 10 ms."""
        app = wx.GetApp()
        asking = wx.Timer()
        asking.Notify = lambda: app.ExitMainLoop() if done() else None
        asking.Start(round(PERIOD * 1e3))
        app.MainLoop()
        asking.Stop()
