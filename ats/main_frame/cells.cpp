// cells.cpp - the frame's cells: asking them, commanding all of them, summing their counters.
#include "main_frame/main_frame.hpp"
#include "module/display.hpp"
#include "module/fields.hpp"
#include "module/imports.hpp"

namespace ats {
namespace {

constexpr char kClearQuestion[] = "Are you sure to clear statistics data?\nIt's not reversible!";
constexpr char kAbortedByOperator[] = "Abort Voluntarily";

nb::list cells_of(nb::handle self) { return nb::list(field<"_cells">(self)); }

bool is_cell_number(nb::handle self, nb::handle number) {
    return nb::int_(0) < nb::borrow(number) &&
           nb::borrow(number) <= nb::object(self.attr("get_cell_count")());
}

nb::object cell_by_number(nb::handle self, nb::handle number) {
    return field<"_cells">(self)[nb::borrow(number) - nb::int_(1)];
}

bool any_cell_runs(nb::handle self) {
    for (nb::handle cell : cells_of(self))
        if (truth(cell.attr("is_running")())) return true;
    return false;
}

}  // namespace

// A list index from zero, unlike the cell numbers from one.
nb::object get_cell(nb::handle self, const Arguments& args) { return field<"_cells">(self)[args[0]]; }

nb::object get_cell_count(nb::handle self, const Arguments&) {
    return nb::int_(nb::len(field<"_cells">(self)));
}

nb::object start_cell(nb::handle self, const Arguments& args) {
    if (is_cell_number(self, args[0])) cell_by_number(self, args[0]).attr("start")(args[1]);
    return nb::none();
}

// None asks for any cell, 0 for the ticker function.
nb::object is_running(nb::handle self, const Arguments& args) {
    if (args.is_none(0)) return nb::bool_(any_cell_runs(self));
    if (args[0].equal(nb::int_(0))) return field<"_in_ticker">(self);
    if (is_cell_number(self, args[0])) return cell_by_number(self, args[0]).attr("is_running")();
    return nb::bool_(false);
}

nb::object on_start_all(nb::handle self, const Arguments&) {
    for (nb::handle cell : cells_of(self)) cell.attr("start")();
    return nb::none();
}

nb::object on_abort_all(nb::handle self, const Arguments&) {
    for (nb::handle cell : cells_of(self)) cell.attr("abort")(kAbortedByOperator);
    return nb::none();
}

// Any thread: the viewer lists the new unit from the GUI thread.
nb::object on_start_cell_text(nb::handle self, const Arguments& args) {
    call_after(field<"_ATSFrame__test_data_viewer">(self).attr("append"), nb::object(args[0].attr("uut")));
    return nb::none();
}

nb::object update_statistics_event_handler(nb::handle self, const Arguments& args) {
    const nb::object statistics = field<"_statistics">(self);
    if (!args.is_none(0)) statistics.attr("increase")(args[0].attr("get_result")());
    show_counters(self, statistics);
    return nb::none();
}

nb::object clear_frame_statistics(nb::handle self, const Arguments&) {
    for (nb::handle cell : cells_of(self)) cell.attr("clear_statistics")();
    field<"_statistics">(self).attr("clear")();
    field<"_ATSFrame__test_data_viewer">(self).attr("clear")();
    self.attr("_update_statistics_event_handler")(nb::none());
    return nb::none();
}

nb::object on_clear_statistics(nb::handle self, const Arguments&) {
    const nb::object answer = imported<"MB">().attr("Confirm")(kClearQuestion);
    if (answer.equal(python_module<"wx">().attr("YES"))) self.attr("clear_statistics")();
    return nb::none();
}

}  // namespace ats
