"""Nothing recorded is lost and every cell comes back, whatever scripts and operator do.

Long runs: QON_SOAK_MEASUREMENTS in units of about QON_SOAK_UNIT each; QON_INTERRUPTIONS, and a two hundredth of it
closings; QON_SWITCHING_UNITS tested while the threads switch all the time.
"""

import os
import random
import sys
from collections import Counter
from pathlib import Path

import pytest
import qon_ats
import wx
from qon_companions.boxes import turns
from soak import Soak
from soak_script import POINTS
from station import Station

pytest_plugins = ["stationplugin"]

MEASUREMENTS = int(os.environ.get("QON_SOAK_MEASUREMENTS", "8000"))
UNIT = int(os.environ.get("QON_SOAK_UNIT", "60"))
INTERRUPTIONS = int(os.environ.get("QON_INTERRUPTIONS", "120"))
SWITCHING_UNITS = int(os.environ.get("QON_SWITCHING_UNITS", "40"))

# Busy, busy behind a box, paused by itself, sleeping, in a call without check points, over.
BUSY = "if cell.cell_number == 1: self.notice_box('Wait')\nwhile True: self.append_ok('a', 1); self.print('x')"
BODIES = (BUSY, BUSY, "self.pause()", "while True: self.sleep(0.001)", "time.sleep(60)", "self.append_ok('a', 1)")
from support import python


def told(totals: Counter[str]) -> Counter[str]:
    print(*(f"{number:12,}  {name}" for name, number in sorted(totals.items())), sep="\n")
    return totals


def test_the_station_keeps_what_scripts_and_operator_count(station: Station) -> None:
    totals = told(Soak(station, UNIT).soak(MEASUREMENTS))
    for kind in ("ended: returned", "ended: _DoneException", "ended: OSError", "shown: Aborted", "shown: NG", "help"):
        assert totals[kind], f"no {kind}: the load is not what it should be"


def test_cells_come_back_to_ready(station: Station, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(turns, "PAUSE_SECONDS", 0.0)
    totals = told(Soak(station, size=20, interruptions=1.0).soak(INTERRUPTIONS, "interruptions"))
    assert totals["shown: Aborted"] and totals["shown: OK"] and totals["resumes"] and totals["refused closes"]
    for point in POINTS[:-1]:
        assert totals[f"at {point}"], f"none at {point}"


def test_no_deadlock_while_the_threads_switch_all_the_time(station: Station) -> None:
    """The operator gives up when a cell does not come back."""
    interval = sys.getswitchinterval()
    sys.setswitchinterval(1e-6)
    try:
        told(Soak(station, size=60, interruptions=0.5, seed=9).soak(SWITCHING_UNITS, "units"))
    finally:
        sys.setswitchinterval(interval)


class Closing(qon_ats.ATSFrame):
    def exit_finalizer(self) -> None:
        print("finalized", flush=True)


def close_while_running(folder: str, milliseconds: int) -> None:
    """In a process of its own, which this ends."""
    app = wx.App(False)
    frame = Station(Path(folder))(*BODIES, frame_type=Closing)
    wx.MessageBox = lambda *_arguments, **_keywords: wx.YES
    frame.on_start_all(None)
    wx.CallLater(milliseconds, frame.Close)
    app.MainLoop()


def test_closing_ends_the_process_whatever_runs(tmp_path: Path) -> None:
    code = "import sys, test_soak; test_soak.close_while_running(sys.argv[1], int(sys.argv[2]))"
    chance = random.Random(6)
    for _ in range(max(2, INTERRUPTIONS // 200)):
        done = python("-c", code, str(tmp_path), str(chance.randrange(1, 600)), cwd=Path(__file__).parent)
        assert (done.returncode, done.stdout) == (0, "finalized\n"), done.stderr
        assert "Traceback" not in done.stderr and "Fatal" not in done.stderr, done.stderr
