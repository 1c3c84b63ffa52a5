// runner.cpp - CellRunnerBase, the base of every test script's class; it forwards to the cell and the frame.
#include "engine/engine.hpp"
#include "module/fields.hpp"
#include "module/imports.hpp"
#include "script_api/loose_verdict.hpp"
#include "script_api/script_api.hpp"

namespace ats {
namespace {

nb::object cell_of(nb::handle self) { return kept_field<"_cell">(self); }
nb::object frame_of(nb::handle self) { return field<"_frame">(self); }

// The runner finds its cell through the test thread that constructs it.
nb::object init(nb::handle self, const Arguments&) {
    const nb::object thread = python_module<"threading">().attr("current_thread")();
    const nb::object cell = thread.attr("cell_proxy");
    set_field<"_cell">(self, cell);
    set_field<"_frame">(self, cell.attr("main_frame"));
    set_field<"_abort_event">(self, nb::none());
    return nb::none();
}

nb::object run(nb::handle self, const Arguments&) {
    self.attr("print")(nb::str("Hello, this is {}.").attr("format")(self.attr("get_cell_name")()));
    return nb::none();
}

nb::object cleanup(nb::handle, const Arguments&) { return nb::none(); }

template <Literal L>
nb::object of_cell(nb::handle self, const Arguments&) {
    return field<L>(cell_of(self));
}

template <Literal L>
nb::object set_of_cell(nb::handle self, const Arguments& args) {
    set_field<L>(cell_of(self), args[0]);
    return nb::none();
}

nb::object noumenon(nb::handle self, const Arguments&) { return cell_of(self); }
nb::object frame_noumenon(nb::handle self, const Arguments&) {
    return self.attr("noumenon").attr("main_frame");
}
nb::object app_config(nb::handle self, const Arguments&) { return frame_of(self).attr("app_config"); }
nb::object abort_event(nb::handle self, const Arguments&) { return field<"_abort_event">(self); }
nb::object cell_name(nb::handle self, const Arguments&) { return cell_of(self).attr("get_cell_name")(); }

// Forwards to the cell's method `L` with the first `count` arguments, positionally.
template <Literal L, std::size_t count = 0>
nb::object to_cell(nb::handle self, const Arguments& args) {
    const nb::object cell = cell_of(self);
    PyObject* values[count + 1] = {cell.ptr()};
    for (std::size_t i = 0; i < count; ++i) values[i + 1] = args[i].ptr();
    return nb::steal(or_raise(
        PyObject_VectorcallMethod(name<L>(), values, (count + 1) | PY_VECTORCALL_ARGUMENTS_OFFSET, nullptr)));
}

template <Literal L>
nb::object user_call(nb::handle self, const Arguments& args) {
    const nb::tuple rest = nb::borrow<nb::tuple>(args[1]);
    const nb::kwargs keywords = nb::borrow<nb::kwargs>(args[2]);
    return cell_of(self).attr(nb::handle(name<L>()))(args[0], *rest, **keywords);
}

nb::object get_shared_obj(nb::handle self, const Arguments& args) {
    return frame_of(self).attr("get_shared_obj")(args[0]);
}

nb::object set_shared_obj(nb::handle self, const Arguments& args) {
    return frame_of(self).attr("set_shared_obj")(args[0], args[1]);
}

nb::object to_bool(nb::handle, const Arguments& args) { return nb::bool_(loosely_true(args[0])); }

nb::object judge(nb::handle self, const Arguments& args, PyObject* lower, PyObject* upper, PyObject* unit,
                 PyObject* stop_if_ng, PyObject* category) {
    return assert_with_limits(
        cell_of(self), {args[0].ptr(), {args[1].ptr(), lower, upper, unit, Py_None}, stop_if_ng, category});
}

nb::object assert_equal(nb::handle self, const Arguments& args) {
    return judge(self, args, args[2].ptr(), args[2].ptr(), args[3].ptr(), args[4].ptr(), args[5].ptr());
}

nb::object assert_limits(nb::handle self, const Arguments& args) {
    return judge(self, args, args[2].ptr(), args[3].ptr(), args[4].ptr(), args[5].ptr(), args[6].ptr());
}

nb::object assert_percent_limits(nb::handle self, const Arguments& args) {
    return cell_of(self).attr("assert_with_percent_limits")(args[0], args[1], args[2], args[3], args[4],
                                                            nb::none(), args[5], args[6]);
}

nb::object conclude(nb::handle self, const Arguments& args, bool ok, std::size_t stop_index) {
    const nb::bool_ result(ok);
    return assert_with_result(cell_of(self), {args[0].ptr(),
                                              {args[1].ptr(), Py_None, Py_None, Py_None, result.ptr()},
                                              args[stop_index].ptr(),
                                              args[stop_index + 1].ptr()});
}

// A subclass may read verdicts its own way.
bool read_verdict(nb::handle value) { return truth(own_name<"CellRunnerBase">().attr("_to_bool")(value)); }

nb::object assert_true(nb::handle self, const Arguments& args) {
    return conclude(self, args, read_verdict(args[1]), 2);
}

nb::object assert_false(nb::handle self, const Arguments& args) {
    return conclude(self, args, !read_verdict(args[1]), 2);
}

nb::object append_ok(nb::handle self, const Arguments& args) { return conclude(self, args, true, 2); }
nb::object append_ng(nb::handle self, const Arguments& args) { return conclude(self, args, false, 2); }

nb::object assert_result(nb::handle self, const Arguments& args) {
    const nb::bool_ result(read_verdict(args[2]));
    return assert_with_result(cell_of(self),
                              {args[0].ptr(),
                               {args[1].ptr(), args[4].ptr(), args[5].ptr(), args[3].ptr(), result.ptr()},
                               args[6].ptr(),
                               args[7].ptr()});
}

constexpr Member kMembers[] = {
    method("__init__()", init),
    abstract_method("run()", run),
    abstract_method("cleanup()", cleanup),
    // what the runner belongs to
    property("cell_config", of_cell<"cell_config">),
    property("assertion_configs", of_cell<"assertion_configs">),
    property("noumenon", noumenon),
    property("frame_noumenon", frame_noumenon),
    property("app_config", app_config),
    property("runner_class_name", of_cell<"runner_class_name">, "value: str",
             set_of_cell<"runner_class_name">),
    property("abort_event", abort_event),
    property("uut", of_cell<"uut">),
    property("cell_name", cell_name),
    property("cell_number", of_cell<"cell_number">),
    property("script", of_cell<"script">, "script_path: str", set_of_cell<"script">),
    method("get_shared_obj(name: str)", get_shared_obj),
    method("set_shared_obj(name: str, obj)", set_shared_obj),
    // the run
    method("no_ng_item()", to_cell<"no_ng_item">),
    method("is_ok()", to_cell<"is_ok">),
    method("get_assertions(category: str = 'all')", to_cell<"get_assertions", 1>),
    method("get_elapse_time()", to_cell<"get_elapse_time">),
    method("append(assertion, stop_if_ng: bool = None)", to_cell<"append", 2>),
    method("update_elapse_begin_time(time: float = None)", to_cell<"update_elapse_begin_time", 1>),
    method("paused()", to_cell<"is_paused">),
    method("pause()", to_cell<"pause">),
    method("debug_pause()", to_cell<"debug_pause">),
    method("abort(description: str = '')", to_cell<"abort", 1>),
    method("check_abort()", to_cell<"check_abort">),
    method("abortable(func)", to_cell<"abortable", 1>),
    method("is_aborted()", to_cell<"is_aborted">),
    method("has_done()", to_cell<"has_done">),
    method("done()", to_cell<"done">),
    method("sleep(seconds: float, check_interval: float = 0.1)", to_cell<"sleep", 2>),
    // the GUI thread and the operator
    method("call_user_function(function, *args, **kwargs)", user_call<"call_user_function">),
    method("call_user_function_delay_wait(function, *args, **kwargs)",
           user_call<"call_user_function_delay_wait">),
    method("call_user_function_no_wait(function, *args, **kwargs)", user_call<"call_user_function_no_wait">),
    method("ask_true_or_false(question: str, true: str = 'Yes', false: str = 'No')",
           to_cell<"ask_true_or_false", 3>),
    method("notice_box(message)", to_cell<"notice_box", 1>),
    method("input_text(prompt)", to_cell<"input_text", 1>),
    method("get_serial_number()", to_cell<"get_serial_number">),
    method("set_serial_number(serial_number: str)", to_cell<"set_serial_number", 1>),
    method("get_cell_name()", to_cell<"get_cell_name">),
    method("print(message, end: str = '\\n')", to_cell<"print", 2>),
    method("debug_print(message, end: str = '\\n')", to_cell<"debug_print", 2>),
    method("update_percentage(percent: float!)", to_cell<"update_percentage", 1>),
    method("increase_percentage(increment: float!)", to_cell<"increase_percentage", 1>),
    method("set_prompt(prompt: str, bg_color = None)", to_cell<"set_prompt", 2>),
    // measurements
    static_method("_to_bool(value)", to_bool),
    method("assert_equal(name: str, value, standard, unit: str = None, stop_if_ng: bool = None, "
           "category: str = 'all')",
           assert_equal),
    method("assert_limits(name: str, value, lower, upper, unit: str = None, stop_if_ng: bool = None, "
           "category: str = 'all')",
           assert_limits),
    method("try_limits(name: str, value, lower, upper, unit: str = '', result = None)",
           to_cell<"try_limits", 6>),
    method("assert_percent_limits(name: str, value: float, mean: float, percent: float, unit: str = None, "
           "stop_if_ng: bool = None, category: str = 'all')",
           assert_percent_limits),
    method("assert_true(name: str, value, stop_if_ng: bool = None, category: str = 'all')", assert_true),
    method("assert_false(name: str, value, stop_if_ng: bool = None, category: str = 'all')", assert_false),
    method("assert_result(name: str, value, result, unit: str = 'N/A', lower = None, upper = None, "
           "stop_if_ng: bool = None, category: str = 'all')",
           assert_result),
    method("append_ok(name: str, value, stop_if_ng: bool = None, category: str = 'all')", append_ok),
    method("append_ng(name: str, value, stop_if_ng: bool = None, category: str = 'all')", append_ng),
};

}  // namespace

void init_runner(nb::module_& module) {
    const nb::object abc = nb::module_::import_("abc").attr("ABC");
    build_class(module, "CellRunnerBase", nb::make_tuple(abc), kMembers);
}

}  // namespace ats
