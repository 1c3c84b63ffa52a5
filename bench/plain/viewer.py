"""The test data viewer: listed units and the analysis of one test item across them."""

from datetime import datetime
from typing import Any

import numpy
import qon_atsui
import wx
import wx.grid
from qon_wxtools import MB, window_fit_layout

from .plot import MatplotPanel
from .records import DEFAULT_COLUMN_INFO, UUT, Assertion

FIELDS = ("ok_count", "ng_count", "yield", "max", "min", "middle", "average", "variance", "std_deviation")


class TestDataViewerPanel(qon_atsui.TestDataViewerPanel):
    def __init__(self, parent: wx.Window) -> None:
        qon_atsui.TestDataViewerPanel.__init__(self, parent)
        self._matplot_panel = MatplotPanel(self.ui_statistics_and_analyze_panel)
        sizer = self.ui_statistics_and_analyze_sizer
        sizer.Add(self._matplot_panel, 1, wx.EXPAND | wx.ALL, 5)
        self.ui_history.SetSelectionMode(wx.grid.Grid.SelectRows)
        self.ui_assertions.SetSelectionMode(wx.grid.Grid.SelectRows)
        self.ui_history.Bind(wx.grid.EVT_GRID_SELECT_CELL, self.on_view_uut_detail)
        self.ui_assertions.Bind(wx.grid.EVT_GRID_SELECT_CELL, self._on_select_test_item)
        self._uut_list: list[UUT] = []

    def get_uut_list(self) -> list[UUT]:
        return self._uut_list

    def _filter(self) -> str:
        return self.ui_cell_filter.GetStringSelection()

    def _shown(self, cell_filter: str) -> list[UUT]:
        if cell_filter == "all":
            return self._uut_list
        number = int(cell_filter)
        return [uut for uut in self._uut_list if uut.cell_number == number]

    def append(self, uut: UUT) -> None:
        self._uut_list.append(uut)
        cell = str(uut.cell_number)
        if self._filter() in ("all", cell):
            row = self.ui_history.GetNumberRows()
            self.ui_history.AppendRows()
            self._update_uut_summer(uut, row)
        uut.done_event.subscribe(self._uut_done_event_handler)
        if cell not in self.ui_cell_filter.GetItems():
            self.ui_cell_filter.Append(cell)

    def extend(self, uuts: list[UUT]) -> None:
        for uut in uuts:
            self.append(uut)

    def clear(self) -> None:
        self._delete_rows(self.ui_assertions)
        self._delete_rows(self.ui_history)
        self._uut_list.clear()
        self._matplot_panel.clear()
        self._matplot_panel.draw()

    @staticmethod
    def _delete_rows(grid: wx.grid.Grid) -> None:
        if grid.GetNumberRows() > 0:
            grid.DeleteRows(0, grid.GetNumberRows())

    def _update_uut_summer(self, uut: UUT, row: int) -> None:
        begin = datetime.fromtimestamp(uut.begin_time).isoformat(" ")[:19]
        end = datetime.fromtimestamp(uut.end_time).isoformat(" ")[:19]
        summer = uut.summer
        values = (begin, end, uut.serial_number, summer, uut.first_ng_item_name())
        for column, value in enumerate(values):
            self.ui_history.SetCellValue(row, column, value)
        index = (Assertion.TBD_STR, Assertion.OK_STR, Assertion.NG_STR).index(summer)
        self.ui_history.SetCellBackgroundColour(row, 3, ("white", "green", "red")[index])

    def _uut_done_event_handler(self, uut: UUT) -> None:
        cell_filter = self._filter()
        if uut in self._uut_list and cell_filter in ("all", str(uut.cell_number)):
            self._update_uut_summer(uut, self._shown(cell_filter).index(uut))

    def on_cell_filter_changed(self, event: wx.CommandEvent) -> None:
        self._delete_rows(self.ui_assertions)
        self._delete_rows(self.ui_history)
        self._clear_single_item_info()
        self._matplot_panel.clear()
        self._matplot_panel.draw()
        for row, uut in enumerate(self._shown(event.GetString())):
            self.ui_history.AppendRows()
            self._update_uut_summer(uut, row)

    def _selected_uut(self) -> tuple[UUT | None, int]:
        rows = self.ui_history.GetSelectedRows()
        shown = self._shown(self._filter())
        if len(rows) != 1 or rows[0] >= len(shown):
            return None, -1
        return shown[rows[0]], rows[0]

    def on_view_uut_detail(self, event: wx.grid.GridEvent) -> None:
        uut, row = self._selected_uut()
        if uut is None:
            return
        self._update_uut_summer(uut, row)
        self._delete_rows(self.ui_assertions)
        for assertion in uut.assertions:
            self._show_an_assertion(assertion)

    def _show_an_assertion(self, assertion: Assertion) -> None:
        self.ui_assertions.AppendRows()
        row = self.ui_assertions.GetNumberRows() - 1
        for column, (title, _width) in enumerate(DEFAULT_COLUMN_INFO):
            text = str(getattr(assertion, f"get_{title.lower()}")())
            self.ui_assertions.SetCellValue(row, column, text)
        if assertion.is_ng():
            self.ui_assertions.SetCellBackgroundColour(row, 5, "red")

    def _on_select_test_item(self, event: wx.grid.GridEvent) -> None:
        rows = self.ui_assertions.GetSelectedRows()
        if rows:
            uut, _ = self._selected_uut()
            name = uut.assertions[rows[0]].name
            self._analyze_single_test_item(self._all_assertions_by_name(name))

    def _all_assertions_by_name(self, name: str) -> list[Assertion]:
        shown = self._shown(self._filter())
        return [assertion for uut in shown for assertion in uut.assertions if assertion.name == name]

    def _set(self, field: str, text: str) -> None:
        getattr(self, f"ui_single_item_{field}").SetValue(text)

    def _clear_single_item_info(self) -> None:
        for field in FIELDS:
            self._set(field, "")

    def _analyze_single_test_item(self, assertions: list[Assertion]) -> None:
        self._clear_single_item_info()
        ok_count = ng_count = 0
        values = []
        for assertion in assertions:
            values.append(float(assertion.value))
            if assertion.is_ok():
                ok_count += 1
            if assertion.is_ng():
                ng_count += 1
        self._set("ok_count", str(ok_count))
        self._set("ng_count", str(ng_count))
        total = ok_count + ng_count
        if total > 0:
            self._set("yield", f"{ok_count / total * 100:.2f}%")
            self._show_figures(values)
        else:
            self._matplot_panel.clear()
        self._matplot_panel.draw()

    def _show_figures(self, values: list[float]) -> None:
        ordered = numpy.array(values)
        ordered.sort()
        self._set("max", str(ordered[-1]))
        self._set("min", str(ordered[0]))
        self._set("middle", str(ordered[len(ordered) // 2]))
        self._set("average", str(ordered.mean()))
        self._set("variance", str(ordered.var()))
        self._set("std_deviation", str(ordered.std()))
        _figure, axes = self._matplot_panel.subplots()
        axes.plot(numpy.arange(len(values)), values)

    def on_clear_data(self, event: wx.Event) -> None:
        if MB.Confirm("Are you sure to clear all datas?") == wx.YES:
            self.clear()

    def _nothing(self, event: wx.Event) -> None:
        """Commands that no benchmark uses."""

    on_refresh_statistics_analizer = on_export_data = on_import_data = on_save_single_uut_test_data = _nothing


class TestDataViewerFrame(qon_atsui.TestDataViewerFrame):
    def __init__(
        self, parent: wx.Window, title: str = "测试数据历史纪录", viewer_class: Any = TestDataViewerPanel
    ) -> None:
        qon_atsui.TestDataViewerFrame.__init__(self, parent)
        self.SetTitle(title)
        self.test_data_viewer_panel = viewer_class(self)
        self.ui_root_sizer.Add(self.test_data_viewer_panel, 1, wx.EXPAND | wx.ALL, 0)
        window_fit_layout(self)

    def on_close_window(self, event: wx.CloseEvent) -> None:
        self.Hide()

    def append(self, uut: UUT) -> None:
        self.test_data_viewer_panel.append(uut)

    def clear(self) -> None:
        self.test_data_viewer_panel.clear()
