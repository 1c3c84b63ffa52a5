"""One item across the listed units: its name, limits in its plot, and values that are no numbers."""

from __future__ import annotations

from typing import Any

import qon_ats
from qon_ats import UUT, Assertion
from qon_atsui.texts import displayable
from qon_companions.i18n import _

ALL_CELLS = "all"  # the engine's own word in the filter


class ItemAnalysis(qon_ats.TestDataViewerPanel):
    """The engine's analysis, told about and kept in step with what is selected."""

    __test__ = False

    def __init__(self, *args: Any, **keywords: Any) -> None:
        self._item: str | None = None  # the name of what is analysed
        self._is_following = False
        super().__init__(*args, **keywords)
        self._name_nothing()

    # The selection.

    def _TestDataViewerPanel__on_select_test_item(self, _event: Any) -> None:
        if self._is_following:
            return
        rows = self.ui_assertions.GetSelectedRows()
        items = self._selected_items()
        if rows and rows[0] < len(items):
            self.analyse(items[rows[0]].name)
        elif rows:
            self.forget_item()

    def on_view_uut_detail(self, event: Any) -> None:
        """Of another unit the same item is selected, so that units can be compared."""
        super().on_view_uut_detail(event)
        if self._item is None:
            return
        names = [item.name for item in self._selected_items()]
        if self._item not in names:
            self.forget_item()
            return
        row = names.index(self._item)
        grid = self.ui_assertions
        self._is_following = True
        try:
            grid.SelectRow(row)
            grid.SetGridCursor(row, 0)
            grid.MakeCellVisible(row, 0)
        finally:
            self._is_following = False

    def on_cell_filter_changed(self, event: Any) -> None:
        super().on_cell_filter_changed(event)
        self._name_nothing()

    def clear(self) -> None:
        super().clear()
        self._TestDataViewerPanel__clear_single_item_info()
        self._name_nothing()

    def _selected_items(self) -> list[Assertion]:
        uut: UUT | None = self._TestDataViewerPanel__get_selected_uut()[0]
        return list(uut.assertions) if uut is not None else []

    # The analysis.

    def forget_item(self) -> None:
        """Nothing is selected: no figures, no plot."""
        if self._item is not None:
            self._TestDataViewerPanel__clear_single_item_info()
            self._plot.clear()
            self._plot.draw()
        self._name_nothing()

    def _name_nothing(self) -> None:
        self._item = None
        self._say("", _("Select a unit, then one of its items."))

    def analyse(self, name: str) -> None:
        """Figures and plot of the item of this name, in all listed units."""
        self._item = name
        found = self._TestDataViewerPanel__get_all_assertions_by_name(name)
        note = _("Listed values: {count}").format(count=len(found))
        try:
            self._show_figures(name, found)
        except (TypeError, ValueError, OverflowError):
            numbers = [item for item in found if _has_number(item)]
            self._show_figures(name, numbers)
            self._count_verdicts(found)
            text = _(
                "Listed values: {count}, {others} of them without a number: these count for the yield only"
            )
            note = text.format(count=len(found), others=len(found) - len(numbers))
        self._say(name, note)

    def _TestDataViewerPanel__get_all_assertions_by_name(self, name: str) -> list[Assertion]:
        """Units of earlier runs find theirs faster than by going through all of them."""
        chosen = self.ui_cell_filter.GetStringSelection()
        listed = [uut for uut in self.get_uut_list() if chosen in (ALL_CELLS, str(uut.cell_number))]
        if not any(hasattr(uut, "assertions_named") for uut in listed):
            found: list[Assertion] = super()._TestDataViewerPanel__get_all_assertions_by_name(name)
            return found
        found = []
        for uut in listed:
            named = getattr(uut, "assertions_named", None)
            found += named(name) if named else [one for one in list(uut.assertions) if one.name == name]
        return found

    def _show_figures(self, name: str, items: list[Assertion]) -> None:
        plot = self._plot
        plot.before_drawing = lambda axes: _complete(axes, name, items)
        try:
            self._TestDataViewerPanel__analyze_single_test_item(items)
        finally:
            plot.before_drawing = None

    def _count_verdicts(self, items: list[Assertion]) -> None:
        ok, ng = sum(item.is_ok() for item in items), sum(item.is_ng() for item in items)
        self.ui_single_item_ok_count.SetValue(str(ok))
        self.ui_single_item_ng_count.SetValue(str(ng))
        self.ui_single_item_yield.SetValue(f"{ok / (ok + ng) * 100:.2f}%" if ok + ng else "")

    @property
    def _plot(self) -> Any:
        return self._TestDataViewerPanel__matplot_panel

    def _say(self, name: str, note: str) -> None:
        """Where the layout has places for it."""
        for field, text in (("ui_single_item_name", name), ("ui_single_item_note", note)):
            if hasattr(self, field):
                getattr(self, field).SetValue(displayable(text))


def _complete(axes: Any, name: str, items: list[Assertion]) -> None:
    from qon_atsui.viewer.item_plot import complete  # matplotlib takes half a second to import

    if not axes.get_lines():
        return
    unit = items[-1].get_unit()
    title = displayable(f"{name} [{unit}]" if unit else name)
    complete(axes, title, [item.lower for item in items], [item.upper for item in items])


def _has_number(item: Assertion) -> bool:
    try:
        float(item.value)
    except (TypeError, ValueError, OverflowError):
        return False
    return True
