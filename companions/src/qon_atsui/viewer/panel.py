"""The layout of the test data viewer."""

from __future__ import annotations

import wx
from qon_companions.i18n import _

from qon_atsui import palette, sizing
from qon_atsui.columns import item_columns, unit_columns
from qon_atsui.fields import caption
from qon_atsui.grid.item_grid import ItemGrid
from qon_atsui.grid.record_grid import RecordGrid
from qon_atsui.handlers import bind, is_offered, relay
from qon_atsui.icons import window_icon
from qon_atsui.splitter import RatioSplitter
from qon_atsui.viewer.item_figures import ItemFigures, figures_guide
from qon_atsui.viewer.unit_list import CellFilter, Listing, UnitGrid

_SIZE = (1100, 700)  # DIP; less on a smaller screen
ALL_CELLS = "all"  # the engine's own word, compared with by it


class TestDataViewerPanel(wx.Panel):
    """Creates the viewer's `ui_*` widgets and binds its `on_*` handlers."""

    __test__ = False  # the name is no test class
    # The engine takes a row's number for the place in the whole list: then only the whole list can be saved from.
    ui_saves_filtered = False

    def __init__(self, parent: wx.Window) -> None:
        wx.Panel.__init__(self, parent)
        self.SetBackgroundColour(palette.CANVAS)
        size = self.FromDIP(wx.Size(*_SIZE))
        size.DecTo(wx.Display(0).GetClientArea().GetSize() - self.FromDIP(wx.Size(40, 80)))
        self.SetMinSize(size)
        self._ui_listing = Listing()
        column = wx.BoxSizer(wx.VERTICAL)
        column.Add(self._ui_command_row(), 0, wx.EXPAND | wx.ALL, 6)
        column.Add(self._ui_splitters(), 1, wx.EXPAND | wx.LEFT | wx.RIGHT | wx.BOTTOM, 6)
        self.SetSizer(column)
        wx.GetTopLevelParent(self).Bind(wx.EVT_SHOW, self._ui_on_show)

    def _ui_on_show(self, event: wx.ShowEvent) -> None:
        """The list gets the keyboard."""
        event.Skip()
        if event.IsShown() and self:
            self.ui_history.SetFocus()

    def _ui_command_row(self) -> wx.BoxSizer:
        row = wx.BoxSizer(wx.HORIZONTAL)
        row.Add(caption(self, _("Ce&ll")), 0, wx.ALIGN_CENTRE_VERTICAL | wx.RIGHT, 6)
        self.ui_cell_filter = CellFilter(self, [ALL_CELLS], self._ui_listing)
        self.ui_cell_filter.SetToolTip(_("List the units of all cells or of one"))
        self.ui_cell_filter.SetMinSize(wx.Size(self.FromDIP(90), -1))
        self.ui_cell_filter.Bind(wx.EVT_CHOICE, self._ui_on_choice)
        row.Add(self.ui_cell_filter, 0, wx.ALIGN_CENTRE_VERTICAL | wx.RIGHT, 12)
        self.ui_save_report = self._ui_button(
            "on_save_single_uut_test_data",
            _("&Save report\u2026"),
            _("Save the selected unit's results as a workbook"),
        )
        row.Add(self.ui_save_report, 0, wx.RIGHT, 6)
        for handler, label, hint in (
            ("on_export_data", _("&Export list\u2026"), _("Write all listed units to a file")),
            ("on_import_data", _("&Import list\u2026"), _("Read units from a file")),
        ):
            if is_offered(self, handler):
                row.Add(self._ui_button(handler, label, hint), 0, wx.RIGHT, 6)
        row.AddStretchSpacer()
        row.Add(self._ui_button("on_clear_data", _("&Clear\u2026"), _("Empty the list; asks first")), 0)
        return row

    def _ui_button(self, handler: str, label: str, hint: str) -> wx.Button:
        button = wx.Button(self, label=label)
        button.SetToolTip(hint)
        bind(self, button, wx.EVT_BUTTON, handler)
        return button

    def _ui_on_choice(self, event: wx.CommandEvent) -> None:
        self.ui_cell_filter.refresh_copy()
        self.ui_save_report.Enable(self.ui_saves_filtered or self.ui_cell_filter.GetSelection() == 0)
        relay(self, "on_cell_filter_changed")(event)

    def _ui_splitters(self) -> wx.SplitterWindow:
        """Units above their assertions at the left, the analysis of one item at the right."""
        across = RatioSplitter(self, 0.58)
        down = RatioSplitter(across, 0.5)
        units, self.ui_history = self._ui_titled(down, _("Tested units"), self._ui_unit_grid)
        items, self.ui_assertions = self._ui_titled(down, _("Items of the selected unit"), self._ui_item_grid)
        analysis = self._ui_analysis(across)
        down.SplitHorizontally(units, items)
        across.SplitVertically(down, analysis)
        return across

    @staticmethod
    def _ui_titled(parent: wx.Window, title: str, make: object) -> tuple[wx.Panel, RecordGrid]:
        panel = wx.Panel(parent)
        panel.SetBackgroundColour(palette.CANVAS)
        grid = make(panel)  # type: ignore[operator]
        grid.use_points(10.0)
        column = wx.BoxSizer(wx.VERTICAL)
        column.Add(caption(panel, title), 0, wx.ALL, 3)
        column.Add(grid, 1, wx.EXPAND)
        panel.SetSizer(column)
        return panel, grid

    def _ui_unit_grid(self, parent: wx.Window) -> UnitGrid:
        return UnitGrid(parent, unit_columns(), self._ui_listing)

    def _ui_item_grid(self, parent: wx.Window) -> ItemGrid:
        return ItemGrid(parent, item_columns())

    def _ui_analysis(self, parent: wx.Window) -> wx.Notebook:
        notebook = wx.Notebook(parent)
        figures = ItemFigures(notebook)
        for name, field in figures.fields.items():
            setattr(self, f"ui_single_item_{name}", field)
        self.ui_single_item_name = figures.name
        self.ui_single_item_note = figures.note
        self.ui_statistics_and_analyze_panel = figures
        self.ui_statistics_and_analyze_sizer = figures.column
        notebook.AddPage(figures, _("Item analysis"))
        notebook.AddPage(figures_guide(notebook), _("About the figures"))
        self.ui_statistics_analizer = notebook
        bind(self, notebook, wx.EVT_NOTEBOOK_PAGE_CHANGED, "on_refresh_statistics_analizer")
        return notebook


class TestDataViewerFrame(wx.Frame):
    """The window around the viewer's panel, which the engine creates."""

    __test__ = False

    def __init__(self, parent: wx.Window | None) -> None:
        wx.Frame.__init__(self, parent, size=wx.Size(*_SIZE))
        self.SetBackgroundColour(palette.CANVAS)
        self.SetFont(sizing.font(10.0))
        self.SetIcon(window_icon())
        self.ui_root_sizer = wx.BoxSizer(wx.VERTICAL)
        self.SetSizer(self.ui_root_sizer)
        self.Bind(wx.EVT_CLOSE, relay(self, "on_close_window", otherwise=wx.Event.Skip))
        self._ui_close_id = wx.NewIdRef()
        self.Bind(wx.EVT_MENU, lambda _event: self.Close(), id=self._ui_close_id)
        keys = [(wx.ACCEL_CTRL, ord("W")), (wx.ACCEL_NORMAL, wx.WXK_ESCAPE)]
        self.SetAcceleratorTable(wx.AcceleratorTable([(*key, self._ui_close_id) for key in keys]))

    def Show(self, show: bool = True) -> bool:
        """Asked for again it comes to the front, wherever it was."""
        changed = bool(super().Show(show))
        if show:
            if self.IsIconized():
                self.Iconize(False)
            self.Raise()
        return changed
