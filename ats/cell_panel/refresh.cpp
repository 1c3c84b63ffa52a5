// refresh.cpp - the one-shot timers of a running test: rows, verdict, history, blinking.  GUI thread.
#include "cell_panel/cell_panel.hpp"
#include "engine/cell_lookups.hpp"
#include "module/display.hpp"
#include "module/fields.hpp"
#include "module/imports.hpp"
#include "records/assertion.hpp"

namespace ats {
namespace {

constexpr int kBlinkPeriod = 1000;  // milliseconds
constexpr int kRowsPerTick = 100;   // so that a burst of measurements cannot freeze the window

// "get_" and the title in small letters.  The few titles there are keep their getter's name.
nb::object getter_name(nb::handle title) {
    constexpr Py_ssize_t kMostTitles = 100;
    static PyObject* const names = nb::dict().release().ptr();
    if (PyUnicode_CheckExact(title.ptr()))
        if (PyObject* known = find(names, title.ptr())) return nb::borrow(known);
    nb::object getter = nb::str("get_") + nb::object(title.attr("lower")());
    const bool keep = PyUnicode_CheckExact(title.ptr()) && PyDict_Size(names) < kMostTitles;
    if (keep && PyDict_SetItem(names, title.ptr(), getter.ptr()) < 0) throw nb::python_error();
    return getter;
}

// Shows queued assertions, at most `limit` of them; a negative limit means all.
void drain_queue(nb::handle self, int limit) {
    const nb::object queue = field<"_assertion_queue">(self);
    for (int shown = 0; shown != limit && !truth(call_method<"empty">(queue)); ++shown)
        call_method<"_show_an_assertion">(self, call_method<"fetch_an_assertion">(self));
}

struct Outcome {
    nb::object result;
    nb::object colour;
};

// Aborted runs and runs ended by an exception are not counted and leave the gauge where it stood.
Outcome decide_outcome(nb::handle self) {
    if (truth(self.attr("is_aborted")())) return {nb::str("Aborted"), nb::str("cyan")};
    if (!field<"_exception_object">(self).is_none()) return {nb::str("Exception Aborted"), nb::str("cyan")};
    const nb::object summer = self.attr("uut").attr("summer");
    const bool ok = truth(self.attr("is_ok")());
    self.attr("ui_gauge").attr("SetValue")(100);
    self.attr("_update_statistics")(ok);  // the layout hears of it and shows the cell's counters
    return {summer, nb::str(ok ? "green" : "red")};
}

void finish_test(nb::handle self) {
    drain_queue(self, -1);
    nb::setattr(self, "running_state", field<"CellStateStop">(self));
    const Outcome outcome = decide_outcome(self);
    const nb::object description = field<"_result_description">(self);
    self.attr("_update_prompt")(description.equal(nb::str("")) ? outcome.result : description,
                                outcome.colour);
    self.attr("_append_to_history")(self.attr("get_serial_number")(), outcome.result, outcome.colour);
    const nb::object entry = self.attr("ui_serial_number");
    entry.attr("Clear")();
    entry.attr("Enable")();
    entry.attr("SetFocus")();
    field<"_test_thread">(self).attr("join")();  // has set the done flag: ends at once
    set_field<"_test_thread">(self, nb::none());
}

void label_start_button(nb::handle self) {
    const char* colour = "green";
    const char* label = "Start";
    if (truth(self.attr("is_busy")())) {
        colour = "yellow";
        label = "Pause";
    } else if (truth(self.attr("is_running")())) {
        colour = "yellow";
        label = "Resume";
    }
    const nb::object button = self.attr("ui_start");
    button.attr("SetBackgroundColour")(colour);
    button.attr("SetLabel")(label);
}

// Hours go on counting after a day.
void show_elapsed_time(nb::handle self) {
    const nb::object t = nb::int_(nb::object(self.attr("get_elapse_time")()));
    const auto over = [&](int seconds) { return nb::object(t.attr("__floordiv__")(seconds)); };
    const auto within = [](const nb::object& count, int base) {
        return nb::object(count.attr("__mod__")(base));
    };
    const nb::object text =
        nb::str("%02d:%02d:%02d")
            .attr("__mod__")(nb::make_tuple(over(3600), within(over(60), 60), within(t, 60)));
    self.attr("ui_elapse_time").attr("SetValue")(text);
}

}  // namespace

nb::object show_an_assertion(nb::handle self, const Arguments& args) {
    const nb::object assertion = nb::borrow(args[0]);
    const nb::object grid = field<"ui_assertions">(self);
    const nb::object row = call_method<"GetNumberRows">(grid);
    call_method<"AppendRows">(grid);
    const nb::object default_columns = field<"DefaultColumnInfo">(own_name<"Cell">());
    const nb::object columns = configured(self, name<"column_info">(), default_columns.ptr());
    const nb::handle colour(is_ng(assertion) ? name<"red">() : name<"white">());
    std::size_t count = 0;
    for (nb::handle column : columns) {
        const nb::int_ col(count++);
        const nb::object getter = getter_name(nb::object(column[nb::int_(0)]));
        PyObject* receiver[] = {assertion.ptr()};
        const nb::object value = nb::steal(nb::detail::raise_if_null(
            PyObject_VectorcallMethod(getter.ptr(), receiver, 1 | PY_VECTORCALL_ARGUMENTS_OFFSET, nullptr)));
        call_method<"SetCellValue">(grid, row, col, nb::str(value));
        call_method<"SetCellBackgroundColour">(grid, row, col, colour);
    }
    call_method<"MakeCellVisible">(grid, row, nb::int_(0));
    return nb::none();
}

nb::object append_to_history(nb::handle self, const Arguments& args) {
    const nb::object begin = local_time(field<"_start_time">(self));
    const nb::object end = local_time(self.attr("uut").attr("end_time"));
    const nb::object grid = self.attr("ui_history_grid");
    const nb::object row = grid.attr("GetNumberRows")();
    grid.attr("AppendRows")();
    const nb::tuple values = nb::make_tuple(begin, end, args[0], args[1], field<"_result_description">(self));
    for (std::size_t col = 0; col < nb::len(values); ++col) grid.attr("SetCellValue")(row, col, values[col]);
    grid.attr("SetCellBackgroundColour")(row, 3, args[2]);
    return nb::none();
}

nb::object on_refresh_timer_event(nb::handle self, const Arguments&) {
    // Asked first: what a test posts while its rows are shown here is handled before the tick that ends it.
    const bool has_done = truth(self.attr("has_done")());
    drain_queue(self, kRowsPerTick);
    if (has_done)
        finish_test(self);
    else
        self.attr("ui_refresh_timer").attr("StartOnce")(kRefreshPeriod);
    label_start_button(self);
    show_elapsed_time(self);
    return nb::none();
}

// A running test flashes its prompt yellow and gray; a paused one stays yellow.
nb::object on_blink_timer_event(nb::handle self, const Arguments&) {
    if (truth(self.attr("has_done")())) return nb::none();
    const bool was_gray = field<"_blink_color">(self).equal(nb::str("gray"));
    const nb::str colour(was_gray || truth(self.attr("is_paused")()) ? "yellow" : "gray");
    set_field<"_blink_color">(self, colour);
    self.attr("_update_prompt")(nb::arg("bg_color") = colour);
    self.attr("ui_blink_timer").attr("StartOnce")(kBlinkPeriod);
    return nb::none();
}

}  // namespace ats
