"""Aborts, pauses, starts and closes at any point of a run: the cell always comes back to ready.

QON_INTERRUPTIONS sets their number (two hundred times the number of processes closed in mid run).
"""

import os
import random
import subprocess
import sys
from pathlib import Path
from typing import Any

import pytest
import qon_ats
import wx
from qon_companions.boxes import turns
from soak import Soak
from soak_script import POINTS
from station import Station

pytest_plugins = ["stationplugin"]

INTERRUPTIONS = int(os.environ.get("QON_INTERRUPTIONS", "120"))

# Busy, busy behind a box, paused by itself, sleeping, in a call without check points, over.
BUSY = "if cell.cell_number == 1: self.notice_box('Wait')\nwhile True: self.append_ok('a', 1); self.print('x')"
BODIES = (BUSY, BUSY, "self.pause()", "while True: self.sleep(0.001)", "time.sleep(60)", "self.append_ok('a', 1)")


def test_cells_come_back_to_ready(station: Station, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(turns, "PAUSE_SECONDS", 0.0)
    totals = Soak(station, size=20, interruptions=1.0).soak(INTERRUPTIONS, "interruptions")
    print(*(f"{number:12,}  {name}" for name, number in sorted(totals.items())), sep="\n")
    assert totals["shown: Aborted"] and totals["shown: OK"] and totals["resumes"] and totals["refused closes"]
    for point in POINTS[:-1]:
        assert totals[f"at {point}"], f"none at {point}"


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
    code = "import sys, test_interruptions as t; t.close_while_running(sys.argv[1], int(sys.argv[2]))"
    chance = random.Random(6)
    for _ in range(max(2, INTERRUPTIONS // 200)):
        command = [sys.executable, "-c", code, str(tmp_path), str(chance.randrange(1, 600))]
        where: dict[str, Any] = {"cwd": Path(__file__).parent, "timeout": 60}
        done = subprocess.run(command, capture_output=True, text=True, check=False, **where)
        assert (done.returncode, done.stdout) == (0, "finalized\n"), done.stderr
        assert "Traceback" not in done.stderr and "Fatal" not in done.stderr, done.stderr
