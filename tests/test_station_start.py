"""The start of a station application: exit codes, explanations, the log file, and faults that nobody caught."""

import os
import subprocess
import sys
import textwrap
import threading
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import pytest
import qon_station
import wx
from dialogs import Operator, box, click, press, texts
from qon_companions.boxes.keys import GUARD_SECONDS
from qon_station.fault_window import FaultWindow
from qon_station.faults import Faults, Hooks
from support import pump, pump_for

# A whole application: a frame whose timer raises each 20 ms, a thread that raises, a logger of a cell.
APPLICATION = """
    import logging, sys, threading, wx
    import qon_station

    class Station(wx.Frame):
        def __init__(self):
            super().__init__(None, title="Station")
            wx.LogWarning("a warning of wx")
            logging.getLogger("Cell 1").info("工位 1 is ready")
            self.timer = wx.Timer(self)
            self.Bind(wx.EVT_TIMER, self.on_timer, self.timer)
            self.timer.Start(20)
            thread = threading.Thread(target=lambda: {}["no meter"], name="reader")
            wx.CallAfter(thread.start)
            wx.CallLater(1200, self.end)

        def on_timer(self, event):
            raise ValueError("nothing measured")

        def end(self):
            shown = [w for w in wx.GetTopLevelWindows() if w is not self and w.IsShown()]
            kinds = shown[0].list.GetItemCount()
            counts = [int(shown[0].list.GetItemText(row)) for row in range(kinds)]
            print([type(w).__name__ for w in shown], kinds, max(counts))
            self.Close()

    sys.exit(qon_station.run(Station, log_file=sys.argv[1]))
"""


@pytest.fixture(autouse=True)
def english(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setenv("QON_LANG", "en")


def run_application(folder: Path, log_file: Path, **environment: str) -> subprocess.CompletedProcess[str]:
    program = folder / "station.py"
    program.write_text(textwrap.dedent(APPLICATION), encoding="utf-8")
    return subprocess.run(
        [sys.executable, program, log_file],
        env=os.environ | environment,
        capture_output=True,
        text=True,
        timeout=60,
        check=False,
    )


def test_a_station_logs_reports_each_kind_of_fault_once_and_goes_on(app: wx.App, tmp_path: Path) -> None:
    log_file = tmp_path / "log" / "station.log"
    done = run_application(tmp_path, log_file)
    assert done.returncode == 0, done.stderr
    window, kinds, count = done.stdout.replace("'", "").split(" ")[0], *done.stdout.split()[1:]
    assert window == "[FaultWindow]" and kinds == "2" and int(count) > 10
    text = log_file.read_text(encoding="utf-8")
    assert "Cell 1: 工位 1 is ready" in text and "wx: a warning of wx" in text
    assert "Uncaught in reader:" in text and "KeyError: 'no meter'" in text
    assert text.count("Traceback") == 2 and "10 times now: ValueError('nothing measured')" in text
    assert done.stderr.count("ValueError: nothing measured") == 1, "the console is flooded"


def test_without_a_display_there_is_one_clear_line(tmp_path: Path) -> None:
    done = run_application(tmp_path, tmp_path / "station.log", DISPLAY="", WAYLAND_DISPLAY="")
    assert done.returncode == 1
    assert "The station cannot start" in done.stderr and "Traceback" not in done.stderr


# What keeps the frame from being built.


def missing_file() -> Any:
    return open("/nowhere/ats_config.xlsx")


def missing_module() -> Any:
    import no_such_driver.bench  # noqa: F401


def syntax_error() -> Any:
    compile("a = 1\ndef run(:\n", "script.py", "exec")


def missing_key() -> Any:
    return {"main": 1}["cell1"]


def no_window() -> Any:
    return 5


def too_strange() -> Any:
    raise RuntimeError


@pytest.mark.parametrize(
    ("factory", "told"),
    [
        (missing_file, ["/nowhere/ats_config.xlsx", "No such file", "test_station_start.py, line"]),
        (missing_module, ["no_such_driver", "not installed", "no_such_driver.py beside"]),
        (syntax_error, ["script.py, line 2", "def run(:", "Correct it"]),
        (missing_key, ["no entry 'cell1'", "in missing_key"]),
        (no_window, ["returned 5, not a window"]),
        (too_strange, ["RuntimeError", "in too_strange"]),
    ],
)
def test_a_start_that_fails_tells_the_cause_and_ends_with_1(
    app: wx.App, capsys: pytest.CaptureFixture[str], factory: Any, told: list[str]
) -> None:
    def build() -> Any:
        wx.Frame(None).Show()  # half of a station
        return factory()

    def operate() -> Iterator[Any]:
        yield box
        shown = texts(box())
        assert all(part in shown for part in ("The station cannot start", *told)), shown
        assert "Traceback" in shown and "Traceback" in box().message  # for whoever mends it, to be copied
        yield GUARD_SECONDS
        press(box(), wx.WXK_RETURN)

    with Operator(operate):
        assert qon_station.run(build, log_file=None) == 1
    pump(lambda: not wx.GetTopLevelWindows(), what="the half-built windows go")
    console = " ".join(capsys.readouterr().err.split())
    assert all(part in console for part in told)


# Faults.


def test_a_thread_s_fault_names_its_cell_and_exits_are_no_faults(
    app: wx.App, monkeypatch: pytest.MonkeyPatch
) -> None:
    class Cell:
        def get_cell_name(self) -> str:
            return "Cell 7"

    monkeypatch.setattr(threading, "excepthook", lambda args: None)  # the console
    faults = Faults()
    with Hooks(faults):
        for target in (missing_key, sys.exit):
            thread = threading.Thread(target=target)
            thread.cell_proxy = Cell()
            thread.start()
            thread.join(5.0)
    assert [(fault.where, fault.count) for fault in faults.list()] == [("Cell 7", 1)]


def raise_in(function: Any) -> Exception:
    try:
        function()
    except Exception as error:  # noqa: BLE001 - what it raised is wanted
        return error
    raise AssertionError


def test_the_fault_window_leaves_the_keyboard_where_it_is_and_comes_back_for_news(app: wx.App) -> None:
    frame = wx.Frame(None, size=wx.Size(700, 500))
    serial = wx.TextCtrl(frame)
    frame.Show()
    serial.SetFocus()
    pump(serial.HasFocus)
    faults = Faults()
    window = FaultWindow(frame, faults)
    faults.changed = window.refresh

    faults.add(raise_in(missing_file), "Cell 1")
    pump(lambda: window.list.GetItemCount() == 1)
    assert window.IsShown() and serial.HasFocus()
    assert (
        "/nowhere/ats_config.xlsx" in window.details.GetValue() and "Traceback" in window.details.GetValue()
    )
    window.Close()
    for _ in range(1000):
        faults.add(raise_in(missing_file), "Cell 1")
    pump(lambda: window.list.GetItemText(0) == "1001")
    assert not window.IsShown(), "the same fault again is no news"
    faults.add(raise_in(missing_key), "Cell 2")
    pump(lambda: window.IsShown() and window.list.GetItemCount() == 2)
    click(
        next(
            child for child in window.GetChildren()[0].GetChildren() if child.GetLabel() == "&Empty the list"
        )
    )
    pump(lambda: not window.IsShown())
    assert not faults.list()
    frame.Destroy()
    pump_for(0.4)  # a refresh that is still due finds no window
