"""Eight cells under random load: scripts do all that scripts may do, an operator interferes at any point, and
everything is counted apart from the station's own records.
"""

import random
import time
import traceback
from collections import Counter
from typing import Any
from unittest import mock

import qon_ats
import wx
from qon_companions.boxes import TextBox
from qon_station.collecting import GuiCollector
from soak_script import POINTS, Ledger
from station import Answers, Station, texts
from support import pump, unique_name, write_book, write_script

CELLS = 8
CLEAR_AFTER = 100  # units, then the operator clears the statistics and with them the viewer
STUCK_SECONDS = 60.0
SCRIPT = "import soak_script\n\n\nclass CellRunner(soak_script.Runner):\n    pass\n"
ACTIONS = ("abort", "pause", "pause abort", "pause resume", "abort pause", "Close", "Close abort", "start")


class Soak:
    """The operator: starts, interrupts, resumes, answers, clears and keeps the books.  GUI thread."""

    def __init__(self, station: Station, size: int, interruptions: float = 0.1, seed: int = 1) -> None:
        """Units of about so many measurements; a share of them is interrupted at a point of their run."""
        self.size, self.interruptions, self.chance = size, interruptions, random.Random(seed)
        self.totals: Counter[str] = Counter()
        self.counted: Counter[Any] = Counter()  # since the statistics were cleared
        self.units: list[qon_ats.UUT] = []  # likewise
        self.fault: BaseException | None = None
        script = write_script(station.folder, SCRIPT, unique_name())
        sheet = {"script": str(script), "show_debug_shell": False}
        write_book(station.book, {"main": {"cell_count": CELLS, "column_count": 4}, "cell1": sheet})
        self.frame = station.use(station.build())
        self.viewer = self.frame._ATSFrame__test_data_viewer
        self.ran: list[int] = []
        self.frame.set_shared_obj("ran", self.ran)
        self.frame.cell_start_event.subscribe(self.note_start)
        for cell in self.frame.cells:
            cell.ledger, cell.uut_type = None, self.make_unit_type(cell)

    @staticmethod
    def make_unit_type(cell: qon_ats.Cell, base: type[qon_ats.UUT] = qon_ats.UUT) -> type[qon_ats.UUT]:
        class Unit(base):
            def __init__(self, **arguments: Any) -> None:
                """After the last run's flags are reset and before the thread starts."""
                super().__init__(**arguments)
                if cell.ledger.point == POINTS[0]:
                    cell.ledger.interrupt()

        return Unit

    def soak(self, target: int, what: str = "measurements") -> Counter[str]:
        """Until so many are counted of what is asked for."""
        self.target, self.what, timer = target, what, wx.Timer()
        timer.Bind(wx.EVT_TIMER, self.look)
        timer.Start(15)  # milliseconds
        with mock.patch.object(wx, "MessageBox", return_value=wx.NO) as closing, Answers(self.answer), GuiCollector():
            pump(self.is_over, float("inf"))
        timer.Stop()
        pump(lambda: len(self.ran) >= self.totals["post"], what="everything posted has run")
        self.check_station()
        return self.totals + Counter({"refused closes": closing.call_count})

    def is_over(self) -> bool:
        if self.fault:
            raise self.fault
        return self.totals[self.what] >= self.target and all(cell.ledger is None for cell in self.frame.cells)

    def look(self, _event: wx.TimerEvent) -> None:
        if self.fault:
            return
        try:
            for cell in self.frame.cells:
                self.attend(cell, cell.ledger)
            if len(self.units) >= CLEAR_AFTER:
                self.clear()
        except BaseException as error:  # noqa: BLE001 - told at once too: a dialog's loop may not end
            self.fault = error
            traceback.print_exception(error)

    def attend(self, cell: qon_ats.Cell, ledger: Ledger | None) -> None:
        if ledger is None:
            if self.totals[self.what] < self.target:
                self.start(cell)
        elif time.monotonic() - ledger.since > STUCK_SECONDS:
            raise AssertionError(f"{cell.name} does not come back: {ledger}")
        elif not ledger.begun:
            pass  # its start is on the way
        elif cell.is_ready():
            self.audit(cell, ledger)
        elif ledger.end == "SystemExit":  # that leaves the cell busy, the rest of the items on their way
            if not cell._test_thread.is_alive() and cell._assertion_queue.empty():
                self.audit(cell, ledger)
                cell.reset_state()
        elif cell.is_paused():
            self.totals["resumes"] += 1
            cell.handle_start_request("resumes")
        elif self.chance.random() < 0.005:
            self.interrupt(cell, ledger)

    def start(self, cell: qon_ats.Cell) -> None:
        point = self.chance.choice(POINTS) if self.chance.random() < self.interruptions else "never"
        size, queued = self.chance.randrange(1, 2 * self.size), cell._assertion_queue.unfinished_tasks
        ledger = cell.ledger = Ledger(self.chance.getrandbits(40), size, point, queued)
        ledger.interrupt = lambda: self.interrupt(cell, ledger, point)
        self.frame.start_cell(cell.cell_number, f"SN{ledger.seed}")

    def note_start(self, cell: qon_ats.Cell) -> None:
        cell.ledger.begun = True
        self.units.append(cell.uut)

    def interrupt(self, cell: qon_ats.Cell, ledger: Ledger, point: str = "any") -> None:
        if cell.ledger is not ledger or not cell.is_running():
            return  # the run was over sooner
        actions = self.chance.choice(ACTIONS)
        self.totals.update(("interruptions", f"at {point}", f"to {actions}"))
        ledger.aborted = ledger.aborted or "abort" in actions
        for action in actions.split():
            getattr(self.frame if action == "Close" else cell, action)()

    def answer(self, dialog: wx.Dialog) -> None:
        number, yes = dialog.GetTitle().removeprefix("Cell "), self.chance.random() < 0.5
        if number.isdecimal():
            typed = isinstance(dialog, TextBox)
            if typed:
                dialog.entry.SetValue("typed")
            self.frame.cells[int(number) - 1].ledger.answer = ("typed" if yes else None) if typed else yes
        dialog.EndModal(wx.ID_OK if yes else wx.ID_CANCEL)

    def clear(self) -> None:
        self.check_counters()
        self.frame.clear_statistics()
        self.counted.clear()
        self.units.clear()

    # The books.

    def audit(self, cell: qon_ats.Cell, ledger: Ledger) -> None:
        """A run has ended: what the station kept of it against what its script and the operator counted."""
        uut, items, did = cell.uut, ledger.items, ledger.did
        done, verdict, shown = ledger.outcome()
        rows = [cell.ui_assertions.GetCellValue(row, 0) for row in range(cell.ui_assertions.GetNumberRows())]
        in_order = sorted if items["HELPER"] else list  # two threads record and queue each in an order of its own
        kept: dict[str, tuple[Any, Any]] = {
            "records": (len(uut.assertions), items["measurements"]),
            "queued": (cell._assertion_queue.unfinished_tasks - ledger.queued_before, items["measurements"]),
            "rows": (in_order(rows), in_order(item.name for item in uut.assertions)),
            "all": (Counter(map(id, cell.get_assertions())), Counter(map(id, uut.assertions))),
            "NG": (sum(item.is_ng() for item in uut.assertions), items["NG"]),
            "NG items": (len(cell._ng_items), items["NG"]),
            "cleanups": (did["cleaned"], did["built"]),
            "built": (did["built"], ledger.end != "constructor"),
            "unit": ((uut.done, did["told"], uut.summer), (done, done, verdict)),
        }
        for name in ("power", "signal", "HELPER", "LATE"):
            kept[name] = (len(cell.get_assertions(name)), items[name])
        if ledger.end != "SystemExit":
            history = cell.ui_history_grid
            kept["history"] = (history.GetCellValue(history.GetNumberRows() - 1, 3), shown)
            panel = (cell.ui_start.GetLabel(), cell._test_thread, cell.ui_serial_number.IsEnabled())
            kept["panel"] = (panel, ("Start", None, True))
            self.counted[cell, shown == "OK"] += shown in ("OK", "NG", "TBD")
        wrong = {what: pair for what, pair in kept.items() if pair[0] != pair[1]}
        error = cell._exception_object and traceback.format_exception(cell._exception_object)
        assert not wrong, f"unit {uut.serial_number} of {cell.name}: {wrong}; {ledger}; {error}"
        self.totals.update(items + did)
        self.totals.update(("units", f"ended: {ledger.end}", f"shown: {shown}"))
        cell.ledger = None

    def check_counters(self) -> None:
        """No run is over that was not audited."""
        for ok, get in ((True, qon_ats.Statistics.get_ok), (False, qon_ats.Statistics.get_ng)):
            expected = [self.counted[cell, ok] for cell in self.frame.cells]
            assert [get(cell._statistics) for cell in self.frame.cells] == expected
            assert get(self.frame._statistics) == sum(expected)

    def check_station(self) -> None:
        """All runs are over and everything posted has run."""
        self.check_counters()
        assert len(self.ran) == self.totals["post"]
        units = self.viewer.get_uut_list()  # one that began just before a clearing may have come in after it
        early = len(units) - len(self.units)
        assert units[early:] == self.units and 0 <= early <= CELLS
        for uut, row in zip(units, texts(self.viewer.test_data_viewer_panel.ui_history), strict=True):
            assert row[3] == uut.summer or not uut.done
