"""Nothing grows over the runs of a station with windows, and the collector finds every cycle.

QON_GROWTH_RUNS sets the number of runs.
"""

import gc
import json
import math
import os
import sys
import weakref
from collections import Counter
from collections.abc import Iterable
from itertools import pairwise
from pathlib import Path
from typing import Any

import wx
from qon_companions.boxes import turns
from station import Answers, Station
from support import pump, python

RUNS = int(os.environ.get("QON_GROWTH_RUNS", "96"))
PERIODS = 3  # what is lost run by run grows in each of them
SLACK = {"objects": 12, "memory blocks": 30, "resident KiB": 1024}
SLACK |= dict.fromkeys(("threads", "files", "windows", "timers", "posted events"), 0)
if "asan" in os.environ.get("LD_PRELOAD", ""):
    del SLACK["resident KiB"]  # freed memory is kept back
CELLS = 8
CLEAR_AFTER = 4  # rounds
LAP = CELLS * CLEAR_AFTER  # runs

# Whatever may leave something behind: a cycle through the runner's fresh class, the cell, the frame, a closure and
# a record; every end of a run; posted calls, a thread, an exception with its frames, a dialog.
BODY = """
import weakref
self.cycle = lambda: (self, cell, self.frame_noumenon, meet)
for index in range(20):
    self.assert_limits(f"V{index}", 1.5, 1, 2, "V", category="power")
self.uut.assertions[0].runner = self
self.uut.runner = self.uut.assertions
self.uut.done_event.subscribe(lambda uut: self.cycle)
self.call_user_function_no_wait(meet.notes.append, self.call_user_function(len, "x"))
self.print("第一步")
self.set_prompt("Fit the board")
thread = threading.Thread(target=self.append_ok, args=("helper", 1))
thread.start()
thread.join(60)
self.get_shared_obj("seen").extend(map(weakref.ref, (self, type(self), self.uut, self.uut.assertions[0])))
end = (self.get_shared_obj("rounds")[0] + cell.cell_number) % 8
if end == 0: self.ask_true_or_false("LED lit?")
if end == 1: self.append_ng("bad", 1)
if end == 2: self.abort("why")
if end == 3: raise OSError("the meter does not answer")
if end == 4: self.done()
"""


class Subject:
    """A station in a process of its own."""

    def __init__(self, folder: str) -> None:
        turns.PAUSE_SECONDS = 0.0
        self.app = wx.App(False)
        self.station = Station(Path(folder))
        self.frame = self.station(*[BODY] * CELLS)
        self.seen: list[weakref.ref[Any]] = []
        self.rounds = [0]
        self.frame.set_shared_obj("seen", self.seen)
        self.frame.set_shared_obj("rounds", self.rounds)

    def run(self, laps: int) -> None:
        """A round of all cells after the other; at the end of each lap what they recorded is forgotten."""
        answers = Answers(lambda dialog: dialog.EndModal(wx.ID_OK))
        with answers:
            for _ in range(laps * CLEAR_AFTER):
                self.rounds[0] += 1
                self.frame.on_start_all(None)
                pump(self.have_ended)
                if self.rounds[0] % CLEAR_AFTER == 0:
                    self.frame.clear_statistics()
        answers._timer.Unbind(wx.EVT_TIMER)  # else the timer keeps them, and they the dialogs
        for meeting in self.station.meetings.values():
            meeting.notes.clear()

    def have_ended(self) -> bool:
        rows = (self.rounds[0] - 1) % CLEAR_AFTER + 1
        return all(cell.ui_history_grid.GetNumberRows() == rows for cell in self.frame.cells)

    def figures(self) -> str:
        self.alive()
        objects = gc.get_objects()
        kinds = Counter(f"object {type(each).__name__}" for each in objects)
        return json.dumps(kinds | {
            "objects": len(objects),
            "memory blocks": sys.getallocatedblocks(),
            "threads": len(os.listdir("/proc/self/task")),
            "files": len(os.listdir("/proc/self/fd")),
            "windows": self.count_windows(wx.GetTopLevelWindows()),
            "timers": sum(issubclass(type(each), wx.Timer | wx.PyTimer) for each in objects),
            "posted events": sum(issubclass(type(each), wx.PyEvent) for each in objects),
            "resident KiB": int(Path("/proc/self/statm").read_text().split()[1]) * os.sysconf("SC_PAGE_SIZE") // 1024,
        })  # fmt: skip

    def count_windows(self, windows: Iterable[wx.Window]) -> int:
        """The native ones, whether or not Python knows them."""
        return sum(1 + self.count_windows(each.GetChildren()) for each in windows)

    def alive(self) -> int:
        """How much of all that ran is still there."""
        gc.collect()
        self.seen[:] = [ref for ref in self.seen if ref() is not None]
        return len(self.seen)

    def go(self) -> None:
        self.seen.extend(map(weakref.ref, (self.frame, *self.frame.cells)))
        self.station.close()
        del self.station, self.frame
        for name in [name for name in sys.modules if name.startswith("script_")]:
            del sys.modules[name]


def main(folder: str, runs: int) -> None:
    subject = Subject(folder)
    subject.run(2)
    figures = [subject.figures()]  # as text, which is one object
    for _ in range(PERIODS):
        subject.run(math.ceil(runs / LAP / PERIODS))
        figures.append(subject.figures())
    alive = subject.alive()
    subject.go()
    print(json.dumps({"figures": figures, "alive": alive, "left": subject.alive()}))


def test_nothing_grows_and_every_cycle_is_collected(tmp_path: Path) -> None:
    program = f"import test_growth; test_growth.main({str(tmp_path)!r}, {RUNS})"
    done = python("-c", program, cwd=Path(__file__).parent, timeout=100 + RUNS)
    assert done.returncode == 0, done.stderr
    result = json.loads(done.stdout)
    figures = [Counter(json.loads(each)) for each in result["figures"]]
    steps = list(pairwise(figures))
    grown = Counter({name: min(after[name] - before[name] for before, after in steps) for name in figures[-1]})
    print({name: [each[name] for each in figures] for name in SLACK})
    for name, most in SLACK.items():
        assert grown[name] <= most, +grown
    assert result["alive"] <= 4 * CELLS and result["left"] == 0  # each cell keeps its last run
