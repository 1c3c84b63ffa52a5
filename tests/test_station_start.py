"""The start of a station application: exit codes, explanations, the log file, uncaught faults, the collector."""

import gc
import subprocess
import sys
import threading
import weakref
from pathlib import Path
from types import SimpleNamespace
from typing import Any

import pytest
import qon_station
import wx
from qon_companions.boxes import keys
from qon_station import collecting
from qon_station.fault_window import FaultWindow
from qon_station.faults import Faults, Hooks
from station import dialogs
from support import click, has_focus, inside, point, press, pump, pump_for, python, shown, words

pytestmark = pytest.mark.usefixtures("english")

# A whole application: a frame whose timer raises, a thread that raises, a logger of a cell.
APPLICATION = """
import logging, sys, threading, wx
import qon_station

class Station(wx.Frame):
    def __init__(self):
        super().__init__(None, title="Station")
        wx.LogWarning("a warning of wx")
        logging.getLogger("Cell 1").info("工位 1 is ready")
        self.ticks, self.timer = 0, wx.Timer(self)
        self.Bind(wx.EVT_TIMER, self.on_timer, self.timer)
        thread = threading.Thread(target=lambda: {}["no meter"], name="reader")
        wx.CallAfter(thread.start)
        wx.CallAfter(self.timer.Start, 5)

    def on_timer(self, event):
        self.ticks += 1
        windows = [w for w in wx.GetTopLevelWindows() if w is not self and w.IsShown()]
        if self.ticks > 10 and windows and windows[0].list.GetItemCount() == 2:
            counts = [windows[0].list.GetItemText(row) for row in range(2)]
            if "1" in counts and max(map(int, counts)) > 10:
                self.timer.Stop()  # the frame lives on for a moment after Close
                print(type(windows[0]).__name__, flush=True)
                return self.Close()
        raise ValueError("nothing measured")

sys.exit(qon_station.run(Station, log_file=sys.argv[1]))
"""


def run_application(log_file: Path, **environment: str) -> subprocess.CompletedProcess[str]:
    return python("-c", APPLICATION, str(log_file), **environment)


def test_a_station_logs_reports_each_kind_of_fault_once_and_goes_on(app: wx.App, tmp_path: Path) -> None:
    log_file = tmp_path / "log" / "station.log"
    done = run_application(log_file)
    assert (done.returncode, done.stdout) == (0, "FaultWindow\n"), done.stderr
    text = log_file.read_text(encoding="utf-8")
    assert "Cell 1: 工位 1 is ready" in text and "wx: a warning of wx" in text
    assert "Uncaught in reader:" in text and "KeyError: 'no meter'" in text
    assert text.count("Traceback") == 2 and "10 times now: ValueError('nothing measured')" in text
    assert done.stderr.count("ValueError: nothing measured") == 1, "the console is flooded"


def test_without_a_display_there_is_one_clear_line(tmp_path: Path) -> None:
    done = run_application(tmp_path / "station.log", DISPLAY="", WAYLAND_DISPLAY="")
    assert done.returncode == 1
    assert "The station cannot start" in done.stderr and "Traceback" not in done.stderr


def missing_file() -> Any:
    return open("/nowhere/ats_config.xlsx")


def missing_module() -> Any:
    import no_such_driver.bench  # noqa: F401


def missing_key() -> Any:
    return {"main": 1}["cell1"]


def syntax_error() -> Any:
    compile("a = 1\ndef run(:\n", "script.py", "exec")


# What keeps the frame from being built, and what is told.
FAILURES: dict[Any, list[str]] = {
    missing_file: ["/nowhere/ats_config.xlsx", "No such file", "test_station_start.py, line"],
    missing_module: ["no_such_driver", "not installed", "no_such_driver.py beside"],
    syntax_error: ["script.py, line 2", "def run(:", "Correct it"],
    missing_key: ["no entry 'cell1'", "in missing_key"],
    int: ["returned 0, not a window"],
}


@pytest.mark.parametrize("factory", FAILURES)
def test_a_start_that_fails_tells_the_cause_and_ends_with_1(
    factory: Any, app: wx.App, capsys: pytest.CaptureFixture[str], monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(keys, "GUARD_SECONDS", 0.0)
    told = ["The station cannot start", *FAILURES[factory]]

    def build() -> Any:
        wx.Frame(None).Show()  # half of a station
        return factory()

    def read(box: Any) -> None:
        assert [part for part in (*told, "Traceback") if part not in words(box)] == []
        assert "Traceback" in box.message  # for whoever mends it, to be copied
        point(box, wx.Point(6, 6))  # the keyboard follows
        pump(lambda: box.IsActive() and wx.Window.FindFocus() is not None, what="the box gets the keyboard")
        pump_for(0.2)  # the half-built window beneath it came up at the same moment
        press(wx.WXK_RETURN, over=box)

    with dialogs(read):
        assert qon_station.run(build, log_file=None) == 1
    pump(lambda: not wx.GetTopLevelWindows(), what="the half-built windows go")
    console = " ".join(capsys.readouterr().err.split())
    assert [part for part in told if part not in console] == []


def test_a_thread_s_fault_names_its_cell_and_exits_are_no_faults(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(threading, "excepthook", lambda args: None)  # the console
    faults = Faults()
    with Hooks(faults):
        for target in (missing_key, sys.exit):
            thread = threading.Thread(target=target)
            thread.cell_proxy = SimpleNamespace(get_cell_name=lambda: "Cell 7")
            thread.start()
            thread.join(60)
    assert [(fault.where, fault.count) for fault in faults.list()] == [("Cell 7", 1)]


def raise_in(function: Any) -> Exception:
    with pytest.raises(Exception) as caught:  # whatever it is
        function()
    return caught.value


def test_the_fault_window_leaves_the_keyboard_where_it_is_and_comes_back_for_news(app: wx.App) -> None:
    with shown(wx.Frame(None, size=wx.Size(700, 500))) as frame:
        serial = wx.TextCtrl(frame)
        serial.SetFocus()
        pump(serial.HasFocus)
        faults = Faults()
        window = FaultWindow(frame, faults)
        faults.changed = window.refresh
        faults.add(raise_in(missing_file), "Cell 1")
        pump(lambda: window.list.GetItemCount() == 1)
        details = window.details.GetValue()
        assert window.IsShown() and has_focus(serial)
        assert "/nowhere/ats_config.xlsx" in details and "Traceback" in details
        window.Close()
        for _ in range(1000):
            faults.add(raise_in(missing_file), "Cell 1")
        pump(lambda: window.list.GetItemText(0) == "1001")
        assert not window.IsShown(), "the same fault again is no news"
        faults.add(raise_in(missing_key), "Cell 2")
        pump(lambda: window.IsShown() and window.list.GetItemCount() == 2)
        click(next(each for each in inside(window) if each.GetLabel() == "&Empty the list"))
        pump(lambda: not window.IsShown())
        assert not faults.list()
    pump_for(0.4)  # a refresh that is still due finds no window


class Cycle:
    def __init__(self) -> None:
        self.me = self


def test_the_gui_thread_collects_for_all_while_it_can(app: wx.App, monkeypatch: pytest.MonkeyPatch) -> None:
    """A test thread would free windows and timers that the GUI thread is at work on."""
    monkeypatch.setattr(collecting, "MOST_NEW", 100_000)
    usual, first, collecting_threads = (700, 10, 10), [], set()
    of_the_tests = gc.get_threshold()
    gc.set_threshold(*usual)

    def note(_phase: str, _info: dict[str, int]) -> None:
        collecting_threads.add(threading.current_thread())

    def make(count: int) -> None:
        for _ in range(count):
            cycle = weakref.ref(Cycle())
            if not first:
                first.append(cycle)

    with collecting.GuiCollector():
        gc.callbacks.append(note)
        hot = threading.Thread(target=make, args=(40_000,))
        hot.start()
        pump(lambda: not hot.is_alive() and not first[0](), what="the GUI thread collects")
        assert collecting_threads == {threading.main_thread()}
        alone = threading.Thread(target=make, args=(150_000,))
        alone.start()
        alone.join(60)
        assert alone in collecting_threads, "memory grows for as long as the GUI thread is busy"
        gc.callbacks.remove(note)
    assert gc.get_threshold() == usual
    gc.set_threshold(*of_the_tests)
