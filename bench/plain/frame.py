"""The main window with its cells."""

import os
import threading
from typing import Any

import qon_atsui
import wx
from qon_handy import Callback, format_exception
from qon_paratree import ParameterDirectory
from qon_testparameters import BookParameters
from qon_wxtools import MB, window_fit_layout

from .panel import Cell
from .records import DEFAULT_CONFIG_PATH, EVT_STATISTICS_UPDATE_EVENT, Statistics, StatisticsUpdateEvent
from .viewer import TestDataViewerFrame

TITLE = "Veltrano自动化测试系统"


class ATSFrame(qon_atsui.Frame):
    def __init__(
        self,
        parent: wx.Window | None = None,
        title: str = "",
        config_file: str = DEFAULT_CONFIG_PATH,
        app_config_dir: str = "app_config",
    ) -> None:
        qon_atsui.Frame.__init__(self, parent)
        self._manual_module = None
        book = BookParameters(config_file)
        book.load_sheet("main")
        self._mop_block_ticker = book.get("mop_block_ticker", True)
        if not book.get("show_toolbar", False):
            self.ui_toolbar.Hide()
        if not book.get("show_statistics_panel", True):
            self.ui_statistics_panel.Hide()
        cell_count = book.get("cell_count", 1)
        column_count = min(book.get("column_count", 1), cell_count)
        self._set_title(title)
        self._ticker_locker = threading.Lock()
        self._ticker_lock_count = 0
        self._cells = [Cell(self.ui_cell_panel, self, i + 1, book) for i in range(cell_count)]
        self._lay_out_cells(column_count)
        self._app_config = ParameterDirectory.load(app_config_dir) if os.path.exists(app_config_dir) else None
        self._in_debug_mode = book.get("startup_in_debug_mode", False)
        if self._in_debug_mode:
            self.ui_in_debug_mode.Check(True)
        self.ui_initializer_trigger.StartOnce(0)
        self._in_ticker = False
        self._run_ticker = book.get("run_ticker", False)
        self._ticker_interval = book.get("ticker_interval", 100)
        if self._run_ticker and self._ticker_interval > 0:
            self.ui_ticker_timer.StartOnce(self._ticker_interval)
        self._statistics = Statistics()
        self._frame_thread = threading.current_thread()
        self._shared_objs: dict[str, Any] = {}
        self._test_data_viewer = TestDataViewerFrame(self)
        self._cell_start_event = Callback()
        self._cell_start_event.subscribe(self._on_cell_start)

    def _set_title(self, title: str) -> None:
        if title == "":
            title = TITLE
        elif title.startswith("@"):
            title = title[1:]
        else:
            title = f"{TITLE} - {title}"
        self.SetTitle(title)

    def _lay_out_cells(self, column_count: int) -> None:
        sizer = wx.GridSizer(0, column_count, 0, 0)
        for cell in self._cells:
            sizer.Add(cell, 1, wx.EXPAND | wx.ALL)
            self.Bind(EVT_STATISTICS_UPDATE_EVENT, self._update_statistics_event_handler, cell)
        self.ui_cell_panel.SetSizer(sizer)
        sizer.Fit(self.ui_cell_panel)
        window_fit_layout(self, maximize=True)

    @property
    def cells(self) -> list[Cell]:
        return self._cells

    @property
    def app_config(self) -> Any:
        return self._app_config

    @property
    def cell_start_event(self) -> Callback:
        return self._cell_start_event

    def is_in_debug_mode(self) -> bool:
        return self._in_debug_mode

    def is_running(self) -> bool:
        return any(cell.is_running() for cell in self._cells)

    def startup_initializer(self) -> None:
        """Hook."""

    def ticker_function(self) -> None:
        self._run_ticker = False

    def _on_cell_start(self, cell: Cell) -> None:
        wx.CallAfter(self._test_data_viewer.append, cell.uut)

    def _update_statistics_event_handler(self, event: StatisticsUpdateEvent | None) -> None:
        if event is not None:
            self._statistics.increase(event.get_result())
        self.ui_ok_count.SetValue(str(self._statistics.get_ok()))
        self.ui_ng_count.SetValue(str(self._statistics.get_ng()))
        self.ui_ok_percent.SetValue(f"{self._statistics.get_ok_percent():.2f}%")

    def on_trigger_initializer(self, event: wx.Event) -> None:
        try:
            self.startup_initializer()
        except Exception:  # noqa: BLE001 - any fault of a hook
            MB.Error("".join(format_exception(1)))

    def on_ticker_timer_event(self, event: wx.Event) -> None:
        if self._run_ticker:
            self.ticker_function()
            self.ui_ticker_timer.StartOnce(self._ticker_interval)

    def on_start_all(self, event: wx.Event) -> None:
        for cell in self._cells:
            cell.start()

    def on_abort_all(self, event: wx.Event) -> None:
        for cell in self._cells:
            cell.abort("Abort Voluntarily")

    def on_show_test_data_window(self, event: wx.Event) -> None:
        self._test_data_viewer.Show()

    def on_close_app(self, event: wx.CloseEvent) -> None:
        self.Destroy()

    def _nothing(self, event: wx.Event) -> None:
        """Commands that no benchmark uses."""

    on_edit_test_parameters = on_reload_test_parameters = on_save_test_parameters = _nothing
    on_export_assertion_config = on_change_debug_mode = on_clear_statistics = on_start_ticker = _nothing
    on_show_manual_operation_dialog = on_show_about_dialog = _nothing
