"""The test cell with its window."""

import time
from collections.abc import Callable
from datetime import datetime
from typing import Any

import qon_atsui
import wx
import wx.py.shell
from qon_wxtools import MB, TrueOrFalseDialog

from .engine import CellBase
from .records import DEFAULT_COLUMN_INFO, STATISTICS_UPDATE_TYPE, Assertion, Statistics, StatisticsUpdateEvent
from .script_api import CallUserFunctionInfo


class Cell(CellBase, qon_atsui.Cell):
    DefaultColumnInfo = DEFAULT_COLUMN_INFO

    def __init__(self, parent: wx.Window, the_frame: Any, number: int = 1, cell_config: Any = None) -> None:
        CellBase.__init__(self, number=number, cell_config=cell_config)
        qon_atsui.Cell.__init__(self, parent)
        self._the_frame = the_frame
        self.ui_cell_name.SetLabel(self.name)
        if self.cell_config.get("show_debug_shell", True):
            shell = wx.py.shell.Shell(self.ui_view_notebook)
            self.ui_view_notebook.AddPage(shell, "Debug Shell")
        column_info = self.cell_config.get("column_info", Cell.DefaultColumnInfo)
        for column, (title, width) in enumerate(column_info):
            self.ui_assertions.AppendCols(1)
            self.ui_assertions.SetColSize(column, width)
            self.ui_assertions.SetColLabelValue(column, title)
        self._blink_color = "green"
        self._statistics = Statistics()

    @property
    def main_frame(self) -> Any:
        return self._the_frame

    def is_in_debug_mode(self) -> bool:
        return self.main_frame.is_in_debug_mode()

    def start(self, serial_number: str = "") -> None:
        if not self.is_running():
            wx.CallAfter(self.handle_start_request, serial_number)

    def do_start(self, serial_number: str | None) -> None:
        CellBase.do_start(self, serial_number)
        self.ui_serial_number.Disable()
        self.ui_refresh_timer.StartOnce(100)
        self._update_prompt("Running")
        self.on_blink_timer_event(None)
        self._the_frame.cell_start_event(self)

    def clear_last_test_data(self) -> None:
        self.ui_gauge.SetValue(0)
        self.ui_test_logger.SetValue("")
        rows = self.ui_assertions.GetNumberRows()
        if rows > 0:
            self.ui_assertions.DeleteRows(0, rows)

    def _update_statistics(self, is_ok: bool) -> None:
        self._statistics.increase(is_ok)
        event = StatisticsUpdateEvent(STATISTICS_UPDATE_TYPE, self.GetId(), is_ok)
        self.GetEventHandler().ProcessEvent(event)

    def _show_statistics(self) -> None:
        self.ui_ok_count.SetValue(str(self._statistics.get_ok()))
        self.ui_ng_count.SetValue(str(self._statistics.get_ng()))
        self.ui_ok_percent.SetValue(f"{self._statistics.get_ok_percent():.2f}%")

    def clear_statistics(self) -> None:
        self._statistics.clear()
        self._show_statistics()
        rows = self.ui_history_grid.GetNumberRows()
        if rows > 0:
            self.ui_history_grid.DeleteRows(0, rows)

    def on_start_cell_test(self, event: wx.Event) -> None:
        self.handle_start_request(self.ui_serial_number.GetValue())

    def on_abort_cell_test(self, event: wx.Event) -> None:
        self.abort("Abort Voluntarily")

    def on_browse_script(self, event: wx.Event) -> None:
        pass

    def _call(self, function: Callable[..., Any], *args: Any, **kwargs: Any) -> Any:
        info = CallUserFunctionInfo(function, True, *args, **kwargs)
        wx.CallAfter(info)
        info.wait()
        return info.result

    call_user_function = _call

    def ask_true_or_false(self, question: str, true: str = "Yes", false: str = "no") -> bool:
        return self._call(self._do_ask_true_or_false, question=question, true=true, false=false)

    def _do_ask_true_or_false(self, *args: Any, **kwargs: Any) -> bool:
        dialog = TrueOrFalseDialog(self, self.get_cell_name(), *args, **kwargs)
        answer = dialog.ShowModal()
        dialog.Destroy()
        return answer == wx.ID_OK

    def notice_box(self, message: str) -> None:
        self._call(MB.Notice, message=message, title=self.get_cell_name())

    def get_serial_number(self) -> str:
        return self.ui_serial_number.GetValue().strip()

    def set_serial_number(self, value: str | None) -> None:
        if value is None:
            value = ""
        if not isinstance(value, str):
            raise TypeError("Serial number must be a str object.")
        wx.CallAfter(self.ui_serial_number.SetValue, value)
        if self.uut is not None:
            self.uut.serial_number = value

    def print(self, message: Any, end: str = "\n") -> None:
        message = ("" if message is None else message) + end
        wx.CallAfter(self.ui_test_logger.AppendText, str(message))

    def update_percentage(self, percent: float) -> None:
        wx.CallAfter(self.ui_gauge.SetValue, max(0, min(100, percent)))

    def set_prompt(self, message: str, bg_color: Any = None) -> None:
        wx.CallAfter(self._update_prompt, message, bg_color)

    def _update_prompt(self, prompt: str | None = None, bg_color: Any = None) -> None:
        if prompt is not None:
            self.ui_prompt.SetLabel(prompt)
        if bg_color is not None:
            self.ui_prompt.SetBackgroundColour(bg_color)
        self.ui_prompt.Refresh()

    def _show_an_assertion(self, assertion: Assertion) -> None:
        grid = self.ui_assertions
        row = grid.GetNumberRows()
        grid.AppendRows()
        color = "red" if assertion.is_ng() else "white"
        column_info = self.cell_config.get("column_info", Cell.DefaultColumnInfo)
        for column, (title, _width) in enumerate(column_info):
            grid.SetCellValue(row, column, str(getattr(assertion, f"get_{title.lower()}")()))
            grid.SetCellBackgroundColour(row, column, color)
        grid.MakeCellVisible(row, 0)

    def on_refresh_timer_event(self, event: wx.Event | None = None) -> None:
        shown = 0
        while not self._assertion_queue.empty() and shown < 100:
            self._show_an_assertion(self.fetch_an_assertion())
            shown += 1
        if self.has_done():
            self._show_end()
        else:
            self.ui_refresh_timer.StartOnce(100)
        if self.is_busy():
            color, label = "yellow", "Pause"
        elif self.is_running():
            color, label = "yellow", "Resume"
        else:
            color, label = "green", "Start"
        self.ui_start.SetBackgroundColour(color)
        self.ui_start.SetLabel(label)
        t = int(self.get_elapse_time())
        self.ui_elapse_time.SetValue(f"{t // 3600:02d}:{t // 60 % 60:02d}:{t % 60:02d}")

    def _show_end(self) -> None:
        while not self._assertion_queue.empty():
            self._show_an_assertion(self.fetch_an_assertion())
        self.running_state = Cell.CellStateStop
        if self.is_aborted():
            result, color = "Aborted", "cyan"
        elif self._exception_object is not None:
            result, color = "Exception Aborted", "cyan"
        else:
            result, color = self.uut.summer, "green" if self.is_ok() else "red"
            self.ui_gauge.SetValue(100)
            self._update_statistics(self.is_ok())
            self._show_statistics()
        self._update_prompt(self._result_description or result, color)
        self._append_to_history(self.get_serial_number(), result, color)
        self.ui_serial_number.Clear()
        self.ui_serial_number.Enable()
        self.ui_serial_number.SetFocus()
        self._test_thread.join()
        self._test_thread = None

    def on_blink_timer_event(self, event: wx.Event | None = None) -> None:
        if self.has_done():
            return
        self._blink_color = "yellow" if self._blink_color == "gray" or self.is_paused() else "gray"
        self._update_prompt(bg_color=self._blink_color)
        self.ui_blink_timer.StartOnce(1000)

    def _append_to_history(self, sn: str, result: str, color: str) -> None:
        begin, end = self._start_time or time.time(), self.uut.end_time
        values = (_local(begin), _local(end), sn, result, self._result_description)
        row = self.ui_history_grid.GetNumberRows()
        self.ui_history_grid.AppendRows()
        for column, value in enumerate(values):
            self.ui_history_grid.SetCellValue(row, column, value)
        self.ui_history_grid.SetCellBackgroundColour(row, 3, color)


def _local(seconds: float) -> str:
    return datetime.fromtimestamp(seconds).isoformat(" ")[:19]
