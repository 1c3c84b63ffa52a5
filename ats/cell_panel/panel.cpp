// panel.cpp - the class Cell: the on-screen face of one cell, engine and layout joined.
#include "cell_panel/cell_panel.hpp"
#include "engine/engine.hpp"
#include "module/display.hpp"
#include "module/errors.hpp"
#include "module/fields.hpp"
#include "module/imports.hpp"

namespace ats {
namespace {

constexpr char kSerialNumberType[] = "Serial number must be a str object.";
constexpr char kAbortedByOperator[] = "Abort Voluntarily";

nb::object default_columns() { return own_name<"Cell">().attr("DefaultColumnInfo"); }

void add_columns(nb::handle self) {
    const nb::object columns = self.attr("cell_config").attr("get")("column_info", default_columns());
    const nb::object grid = self.attr("ui_assertions");
    const std::size_t count = nb::len(columns);
    for (std::size_t i = 0; i < count; ++i) {
        const nb::object title = columns[i][0];
        const nb::object width = columns[i][1];
        grid.attr("AppendCols")(1);
        grid.attr("SetColSize")(i, width);
        grid.attr("SetColLabelValue")(i, title);
    }
}

nb::object init(nb::handle self, const Arguments& args) {
    cell_base_class().attr("__init__")(self, nb::arg("number") = args[2], nb::arg("cell_config") = args[3]);
    own_name<"_CellUIBase">().attr("__init__")(self, args[0]);
    set_field<"_the_frame">(self, args[1]);
    self.attr("ui_cell_name").attr("SetLabel")(self.attr("name"));
    if (truth(self.attr("cell_config").attr("get")("show_debug_shell", true))) add_debug_shell(self);
    add_columns(self);
    set_field<"_blink_color">(self, nb::str("green"));
    set_field<"_statistics">(self, own_name<"Statistics">()());
    return nb::none();
}

nb::object main_frame(nb::handle self, const Arguments&) { return field<"_the_frame">(self); }

nb::object is_in_debug_mode(nb::handle self, const Arguments&) {
    return self.attr("main_frame").attr("is_in_debug_mode")();
}

nb::object start(nb::handle self, const Arguments& args) {
    if (!truth(self.attr("is_running")())) call_after(self.attr("handle_start_request"), args[0]);
    return nb::none();
}

nb::object do_start(nb::handle self, const Arguments& args) {
    cell_base_class().attr("do_start")(self, args[0]);
    self.attr("ui_serial_number").attr("Disable")();
    self.attr("ui_refresh_timer").attr("StartOnce")(kRefreshPeriod);
    self.attr("_update_prompt")("Running");
    self.attr("on_blink_timer_event")(nb::none());
    field<"_the_frame">(self).attr("cell_start_event")(self);
    return nb::none();
}

nb::object clear_last_test_data(nb::handle self, const Arguments&) {
    self.attr("ui_gauge").attr("SetValue")(0);
    self.attr("ui_test_logger").attr("SetValue")("");
    delete_all_rows(self.attr("ui_assertions"));
    return nb::none();
}

nb::object on_start_cell_test(nb::handle self, const Arguments&) {
    self.attr("handle_start_request")(self.attr("ui_serial_number").attr("GetValue")());
    return nb::none();
}

nb::object on_abort_cell_test(nb::handle self, const Arguments&) {
    self.attr("abort")(kAbortedByOperator);
    return nb::none();
}

nb::object on_browse_script(nb::handle, const Arguments&) { return nb::none(); }

nb::object block_ticker(nb::handle self, const Arguments& args) {
    return field<"_the_frame">(self).attr("block_ticker")(args[0]);
}

nb::object unblock_ticker(nb::handle self, const Arguments&) {
    return field<"_the_frame">(self).attr("unblock_ticker")();
}

nb::object get_serial_number(nb::handle self, const Arguments&) {
    return self.attr("ui_serial_number").attr("GetValue")().attr("strip")();
}

// Any thread: the entry is written by the GUI thread, the record at once.
nb::object set_serial_number(nb::handle self, const Arguments& args) {
    const nb::object value = args.is_none(0) ? nb::object(nb::str("")) : nb::borrow(args[0]);
    if (!PyUnicode_Check(value.ptr())) raise(PyExc_TypeError, kSerialNumberType);
    call_after(self.attr("ui_serial_number").attr("SetValue"), value);
    const nb::object uut = self.attr("uut");
    if (!uut.is_none()) nb::setattr(uut, "serial_number", value);
    return nb::none();
}

nb::object print(nb::handle self, const Arguments& args) {
    nb::object message = args.is_none(0) ? nb::object(nb::str("")) : nb::borrow(args[0]);
    message = nb::steal(or_raise(PyNumber_InPlaceAdd(message.ptr(), args[1].ptr())));
    call_after(self.attr("ui_test_logger").attr("AppendText"), nb::str(message));
    return nb::none();
}

nb::object increase_percentage(nb::handle self, const Arguments& args) {
    call_after(self.attr("_do_increase_percentage"), args[0]);
    return nb::none();
}

nb::object do_increase_percentage(nb::handle self, const Arguments& args) {
    const nb::object gauge = self.attr("ui_gauge");
    nb::object value = gauge.attr("GetValue")() + args[0];
    if (value > nb::int_(100)) value = nb::int_(100);
    gauge.attr("SetValue")(value);
    return nb::none();
}

nb::object update_percentage(nb::handle self, const Arguments& args) {
    nb::object percent = nb::borrow(args[0]);
    if (percent < nb::int_(0)) percent = nb::int_(0);
    if (percent > nb::int_(100)) percent = nb::int_(100);
    call_after(self.attr("ui_gauge").attr("SetValue"), percent);
    return nb::none();
}

nb::object set_prompt(nb::handle self, const Arguments& args) {
    call_after(self.attr("_update_prompt"), args[0], args[1]);
    return nb::none();
}

constexpr Member kMembers[] = {
    method("__init__(parent, the_frame, number: int = 1, cell_config = None)", init),
    property("main_frame", main_frame),
    method("is_in_debug_mode()", is_in_debug_mode),
    // starting and its buttons
    method("start(serial_number: str = '')", start),
    method("do_start(serial_number: str?)", do_start),
    method("clear_last_test_data()", clear_last_test_data),
    method("on_start_cell_test(event)", on_start_cell_test),
    method("on_abort_cell_test(event)", on_abort_cell_test),
    method("on_browse_script(event)", on_browse_script),
    method("block_ticker(timeout: float)", block_ticker),
    method("unblock_ticker()", unblock_ticker),
    // while a test runs
    method("on_refresh_timer_event(event = None)", on_refresh_timer_event),
    method("on_blink_timer_event(event = None)", on_blink_timer_event),
    method("_show_an_assertion(assertion)", show_an_assertion),
    method("_append_to_history(sn: str, result: str, color)", append_to_history),
    // statistics
    method("clear_statistics()", clear_statistics),
    method("_show_statistics()", show_statistics),
    method("_update_statistics(is_ok: bool)", update_statistics),
    // any thread
    method("call_user_function(function, *args, **kwargs)", call_user_function),
    method("call_user_function_delay_wait(function, *args, **kwargs)", call_user_function_delay_wait),
    method("call_user_function_no_wait(function, *args, **kwargs)", call_user_function_no_wait),
    method("ask_true_or_false(question: str, true: str = 'Yes', false: str = 'no')", ask_true_or_false),
    method("_do_ask_true_or_false(*args, **kwargs)", do_ask_true_or_false),
    method("notice_box(message: str)", notice_box),
    method("input_text(prompt: str)", input_text),
    method("_do_input_text(prompt: str, title: str)", do_input_text),
    method("get_serial_number()", get_serial_number),
    method("set_serial_number(value)", set_serial_number),
    method("print(message, end: str = '\\n')", print),
    method("increase_percentage(increment)", increase_percentage),
    method("_do_increase_percentage(increment)", do_increase_percentage),
    method("update_percentage(percent)", update_percentage),
    method("set_prompt(message: str, bg_color = None)", set_prompt),
    method("_update_prompt(prompt: str = None, bg_color = None)", update_prompt),
};

}  // namespace

nb::object update_prompt(nb::handle self, const Arguments& args) {
    const nb::object prompt = self.attr("ui_prompt");
    if (!args.is_none(0)) prompt.attr("SetLabel")(args[0]);
    if (!args.is_none(1)) prompt.attr("SetBackgroundColour")(args[1]);
    prompt.attr("Refresh")();
    return nb::none();
}

void init_cell(nb::module_& module) {
    nb::dict constants;
    constants["DefaultColumnInfo"] = own_name<"_DefaultColumnInfo">();
    build_class(module, "Cell", nb::make_tuple(cell_base_class(), imported<"_CellUIBase">()), kMembers,
                constants);
}

}  // namespace ats
