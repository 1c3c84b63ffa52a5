// unit_list.cpp - the list of units: one row each, filtered by cell, refreshed when a unit ends.
#include "module/display.hpp"
#include "module/errors.hpp"
#include "module/fields.hpp"
#include "module/imports.hpp"
#include "records/assertion.hpp"
#include "viewer/viewer.hpp"

namespace ats {
namespace {

constexpr char kClearQuestion[] = "Are you sure to clear all datas?";
constexpr const char* kEverything = "all";

void blank_plot(nb::handle self) {
    const nb::object plot = field<"_TestDataViewerPanel__matplot_panel">(self);
    plot.attr("clear")();
    plot.attr("draw")();
}

void delete_rows(nb::handle self) {
    delete_all_rows(self.attr("ui_assertions"));
    delete_all_rows(self.attr("ui_history"));
}

// The row of a unit among those shown, or -1 for one that is not listed (any more).
Py_ssize_t row_of(nb::handle uuts, nb::handle uut, const CellFilter& filter) {
    Py_ssize_t row = 0;
    for (nb::handle each : nb::list(uuts)) {
        if (each.equal(uut)) return row;
        if (filter.admits(each)) ++row;
    }
    return -1;
}

nb::object colour_of(nb::handle summer) {
    const nb::tuple words =
        nb::make_tuple(verdict_word(Verdict::tbd), verdict_word(Verdict::ok), verdict_word(Verdict::ng));
    const nb::object colours = nb::make_tuple("white", "green", "red");
    return colours[nb::object(words.attr("index")(summer))];
}

}  // namespace

CellFilter::CellFilter(nb::handle text) : everything_(text.equal(nb::str(kEverything))) {
    if (!everything_) cell_number_ = nb::steal(PyNumber_Long(text.ptr()));
    if (!everything_ && !cell_number_.is_valid()) throw nb::python_error();
}

bool CellFilter::admits(nb::handle uut) const {
    return everything_ || nb::object(uut.attr("cell_number")).equal(cell_number_);
}

nb::object filter_text(nb::handle panel) { return panel.attr("ui_cell_filter").attr("GetStringSelection")(); }

nb::object append_uut(nb::handle self, const Arguments& args) {
    const nb::handle uut = args[0];
    field<"_uut_list">(self).attr("append")(uut);
    const nb::str cell(nb::object(uut.attr("cell_number")));
    const nb::object shown = filter_text(self);
    const bool listed = shown.equal(nb::str(kEverything)) || shown.equal(cell);
    const auto is_done = [&] { return truth(nb::getattr(uut, "done", nb::bool_(false))); };
    const bool was_done = is_done();
    nb::object row;
    if (listed) {
        const nb::object grid = self.attr("ui_history");
        row = grid.attr("GetNumberRows")();
        grid.attr("AppendRows")();
        self.attr("_update_uut_summer")(uut, row);
    }
    uut.attr("done_event").attr("subscribe")(self.attr("_uut_done_event_handler"));
    // A unit that ended between the writing of its row and the subscription would stay undecided on screen.
    if (listed && !was_done && is_done()) self.attr("_update_uut_summer")(uut, row);
    const nb::object choice = self.attr("ui_cell_filter");
    if (!contains(choice.attr("GetItems")(), cell)) choice.attr("Append")(cell);
    return nb::none();
}

nb::object extend_uuts(nb::handle self, const Arguments& args) {
    for (nb::handle uut : args[0]) self.attr("append")(uut);
    return nb::none();
}

// The filter keeps its items: the cells are still there.
nb::object clear_viewer(nb::handle self, const Arguments&) {
    delete_rows(self);
    field<"_uut_list">(self).attr("clear")();
    blank_plot(self);
    return nb::none();
}

nb::object on_clear_data(nb::handle self, const Arguments&) {
    const nb::object answer = imported<"MB">().attr("Confirm")(kClearQuestion);
    if (answer.equal(python_module<"wx">().attr("YES"))) self.attr("clear")();
    return nb::none();
}

nb::object on_cell_filter_changed(nb::handle self, const Arguments& args) {
    delete_rows(self);
    self.attr("_TestDataViewerPanel__clear_single_item_info")();
    blank_plot(self);
    const CellFilter filter(args[0].attr("GetString")());
    const nb::object grid = self.attr("ui_history");
    Py_ssize_t row = 0;
    for (nb::handle uut : nb::list(field<"_uut_list">(self))) {
        if (!filter.admits(uut)) continue;
        grid.attr("AppendRows")();
        self.attr("_update_uut_summer")(uut, row++);
    }
    return nb::none();
}

nb::object update_uut_summer(nb::handle self, const Arguments& args) {
    const nb::handle uut = args[0];
    const nb::handle row = args[1];
    const nb::object grid = self.attr("ui_history");
    const nb::object summer = uut.attr("summer");
    nb::object serial_number = uut.attr("serial_number");
    if (serial_number.is_none()) serial_number = nb::str("");  // started without one
    const nb::tuple values =
        nb::make_tuple(local_time(uut.attr("begin_time")), local_time(uut.attr("end_time")), serial_number,
                       summer, uut.attr("first_ng_item_name")());
    for (std::size_t col = 0; col < nb::len(values); ++col) grid.attr("SetCellValue")(row, col, values[col]);
    grid.attr("SetCellBackgroundColour")(row, 3, colour_of(summer));
    return nb::none();
}

// Runs in the thread that finished the unit.  A unit that was cleared away meanwhile changes nothing.
nb::object uut_done_event_handler(nb::handle self, const Arguments& args) {
    const nb::handle uut = args[0];
    const nb::object shown = filter_text(self);
    const nb::str cell(nb::object(uut.attr("cell_number")));
    if (!shown.equal(nb::str(kEverything)) && !shown.equal(cell)) return nb::none();
    const Py_ssize_t row = row_of(field<"_uut_list">(self), uut, CellFilter(shown));
    if (row >= 0) self.attr("_update_uut_summer")(uut, row);
    return nb::none();
}

}  // namespace ats
