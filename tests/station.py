"""Whole stations for tests: the real frame of a real workbook, scripts in real test threads, an operator."""

import threading
import time
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from pathlib import Path
from textwrap import dedent
from typing import Any, Self
from unittest import mock

import qon_ats
import wx
import wx.grid
from support import PATIENCE, click, pump, pump_for, scan, script_text, write_book, write_script

LATER = "later"
FIGURES = ("ok_count", "ng_count", "yield", "max", "min", "middle", "average", "variance", "std_deviation")
COLOURS = ("white", "green", "red", "cyan", "yellow", "gray")
BEGIN = "cell, meet = self.noumenon, self.get_shared_obj('meetings')[self.cell_number]\n"


def named(colour: wx.Colour) -> str:
    """The name of a state colour."""
    return next((name for name in COLOURS if colour == wx.Colour(name)), str(colour))


def texts(grid: wx.grid.Grid) -> list[list[str]]:
    columns = range(grid.GetNumberCols())
    return [[grid.GetCellValue(row, col) for col in columns] for row in range(grid.GetNumberRows())]


def colours(grid: wx.grid.Grid, row: int) -> list[str]:
    return [named(grid.GetCellBackgroundColour(row, col)) for col in range(grid.GetNumberCols())]


def prompt(cell: qon_ats.Cell) -> tuple[str, str]:
    return cell.ui_prompt.GetLabel(), named(cell.ui_prompt.GetBackgroundColour())


def counters(owner: qon_ats.Cell | qon_ats.ATSFrame) -> list[str]:
    return [field.GetValue() for field in (owner.ui_ok_count, owner.ui_ng_count, owner.ui_ok_percent)]


def unit(serial_number: str, cell: int = 1, *items: qon_ats.Assertion, done: bool = True) -> qon_ats.UUT:
    """A unit with these items, else with one that passed."""
    uut = qon_ats.UUT(serial_number, cell)
    for item in items or (qon_ats.Assertion("a", 1),):
        uut.append_assertion(item)
    uut.done = done
    return uut


def choose(panel: qon_ats.TestDataViewerPanel, text: str) -> None:
    """The operator chooses a cell, or "all"."""
    panel.ui_cell_filter.SetStringSelection(text)
    event = wx.CommandEvent(wx.wxEVT_CHOICE, panel.ui_cell_filter.GetId())
    event.SetString(text)
    panel.ui_cell_filter.ProcessEvent(event)


def click_row(grid: wx.grid.Grid, row: int) -> None:
    pump_for(0.02)  # the grid hears of its rows
    place = grid.CellToRect(row, 0)
    at = grid.CalcScrolledPosition(place.GetPosition()) + wx.Point(5, place.height // 2)
    click(grid.GetGridWindow(), at)
    pump(lambda: list(grid.GetSelectedRows()) == [row])


def figures(panel: qon_ats.TestDataViewerPanel) -> list[str]:
    return [getattr(panel, f"ui_single_item_{name}").GetValue() for name in FIGURES]


class Meeting:
    """Where a cell's script waits for its test: `meet()` in the script, `arrived` and `go_on` in the test."""

    def __init__(self) -> None:
        self._reached = threading.Event()
        self._go = threading.Event()
        self._over = False
        self.notes: list[Any] = []

    def __call__(self) -> None:
        self._reached.set()
        assert self._go.wait(PATIENCE), "the test did not answer"
        if not self._over:
            self._go.clear()

    def arrived(self, events: bool = True) -> None:
        """Wait for the script, with or without running the event loop meanwhile."""
        if events:
            pump(self._reached.is_set, what="the script comes to its meeting")
        assert self._reached.wait(PATIENCE), "the script did not come to its meeting"
        self._reached.clear()

    def go_on(self, for_good: bool = False) -> None:
        self._over = self._over or for_good
        self._go.set()


class Station:
    """Makes frames in a folder; none of their threads and windows outlives the test."""

    def __init__(self, folder: Path) -> None:
        self.folder = folder
        self.book = folder / "ats_config.xlsx"
        self.frame: qon_ats.ATSFrame | None = None
        self.meetings: dict[int, Meeting] = {}

    def __call__(
        self, *runs: str, cleanup: str = "", main: Any = None, frame_type: Any = qon_ats.ATSFrame, **keys: Any
    ) -> qon_ats.ATSFrame:
        """A frame with a cell for each script body; in it `cell` and `meet` are the cell and its meeting."""
        sheets: dict[str, Any] = {"main": {"cell_count": len(runs) or 1, "column_count": 2, **(main or {})}}
        for number, run in enumerate(runs or ["self.append_ok('item', 1)"], 1):
            script = write_script(self.folder, self.script(run, cleanup))
            sheets[f"cell{number}"] = {"script": str(script), "show_debug_shell": False, **keys}
        write_book(self.book, sheets)
        return self.build(frame_type)

    @staticmethod
    def script(run: str, cleanup: str = "") -> str:
        """The text of a whole script."""
        return script_text(BEGIN + dedent(run), BEGIN + dedent(cleanup))

    def build(self, frame_type: Any = qon_ats.ATSFrame, title: str = "") -> qon_ats.ATSFrame:
        """A frame of the workbook in the folder."""
        return self.use(frame_type(None, title, str(self.book), str(self.folder / "app_config")))

    def use(self, frame: qon_ats.ATSFrame) -> qon_ats.ATSFrame:
        """Show a frame; its cells' scripts find their meetings."""
        self.frame = frame
        self.meetings = {cell.cell_number: Meeting() for cell in frame.cells}
        frame.set_shared_obj("meetings", self.meetings)
        frame.Show()
        pump(frame.IsShownOnScreen)
        return frame

    def type(self, entry: wx.TextCtrl, text: str) -> None:
        """Types a text and Enter, as a scanner does."""
        entry.SetFocus()
        pump(entry.HasFocus)
        scan(text, enter=False)
        pump(lambda: entry.GetValue() == text)
        scan("")

    def finish(self, *cells: qon_ats.Cell) -> None:
        """Let the runs end and the panels show it."""
        for cell in cells or self.frame.cells:
            self.meetings[cell.cell_number].go_on(for_good=True)
            pump(cell.is_ready, what=f"{cell.name} ends")

    def run(self, cell: qon_ats.Cell, serial_number: str = "SN1") -> qon_ats.Cell:
        """One whole run; it may be over before anybody looks."""
        before = cell.uut
        cell.start(serial_number)
        pump(lambda: cell.uut is not before)
        self.finish(cell)
        return cell

    def close(self) -> None:
        """Questions that a failed test left behind are closed, so that its threads can end."""
        with Answers(lambda dialog: dialog.EndModal(wx.ID_CANCEL)):
            for cell in self.frame.cells if self.frame else []:
                thread = cell._test_thread
                cell.abort()
                self.meetings[cell.cell_number].go_on(for_good=True)
                if thread is not None:
                    pump(lambda thread=thread: not thread.is_alive(), what=f"the thread of {cell.name} ends")
            for window in wx.GetTopLevelWindows():
                if window:
                    window.Destroy()
        pump(lambda: not wx.GetTopLevelWindows())


class Answers:
    """While it is open, each modal dialog that comes up is handed to `act`, inside the dialog's own loop.
    An act that answers LATER is called again soon.  What closes the dialog has to be its last word: wx cannot
    end a loop from within another one."""

    def __init__(self, act: Callable[[Any], Any]) -> None:
        self.titles: list[str] = []
        self.parents: list[wx.Window] = []
        self._act = act
        self._seen: list[wx.Dialog] = []
        self._acted = float("inf")
        self._timer = wx.Timer()
        self._timer.Bind(wx.EVT_TIMER, self._on_timer)

    def _on_timer(self, _event: wx.TimerEvent) -> None:
        """The topmost dialog alone: a covered one is out of reach, and wx could not end its loop."""
        try:
            modal = [w for w in wx.GetTopLevelWindows() if isinstance(w, wx.Dialog) and w.IsModal()]
            if modal and modal[-1] not in self._seen:
                self._hand_over(modal[-1])
            assert not modal or time.monotonic() < self._acted + PATIENCE, "a dialog stays open"
        except BaseException:
            for dialog in reversed(self._seen):  # the test is to fail, not to hang
                if dialog and dialog.IsModal():
                    dialog.EndModal(wx.ID_CANCEL)
            raise

    def _hand_over(self, dialog: wx.Dialog) -> None:
        self._seen.append(dialog)
        title, parent = dialog.GetTitle(), dialog.GetParent()
        if self._act(dialog) == LATER:
            self._seen.remove(dialog)
            return
        self._acted = time.monotonic()
        self.titles.append(title)
        self.parents.append(parent)

    def __enter__(self) -> Self:
        self._timer.Start(10)
        return self

    def __exit__(self, *_: object) -> None:
        self._timer.Stop()
        pump(lambda: not any(self._seen), what="the dialogs are destroyed")


@contextmanager
def dialogs(*acts: Callable[[Any], Any]) -> Iterator[None]:
    """Exactly these dialogs come up, one after the other, each handled by its act."""
    left = iter(acts)
    with Answers(lambda dialog: next(left)(dialog)) as came:
        yield
        pump(lambda: len(came.titles) == len(acts), what="all dialogs came up")


@contextmanager
def file_dialog(path: Path | None) -> Iterator[mock.Mock]:
    """Stands for `wx.FileDialog`: answered with a path, or cancelled."""
    dialog = mock.Mock(spec=wx.FileDialog)
    dialog.ShowModal.return_value = wx.ID_CANCEL if path is None else wx.ID_OK
    dialog.GetPath.return_value = str(path or "")
    dialog.GetFilterIndex.return_value = 0
    with mock.patch.object(wx, "FileDialog", return_value=dialog) as asked:
        yield asked
    assert dialog.Destroy.called is asked.called


def save(panel: qon_ats.TestDataViewerPanel, path: Path | None, row: int = 0) -> Any:
    """Save the report of a row: the file name that was proposed."""
    panel.ui_history.SelectRow(row)
    with file_dialog(path) as asked:
        panel.on_save_single_uut_test_data(None)
    asked.assert_called_once_with(
        panel, message="Give a file name to save", defaultDir=mock.ANY, defaultFile=mock.ANY,
        wildcard="Excel File(*.xlsx)|*.xlsx", style=wx.FD_SAVE | wx.FD_OVERWRITE_PROMPT,
    )  # fmt: skip
    return asked.call_args.kwargs["defaultFile"]
