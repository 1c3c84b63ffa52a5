// cell_base.cpp - the class CellBase: its table, its queries and the neutral hooks.
#include "engine/cell_lookups.hpp"
#include "engine/construction.hpp"
#include "engine/engine.hpp"
#include "engine/pause.hpp"
#include "engine/recording.hpp"
#include "engine/run.hpp"
#include "module/errors.hpp"
#include "module/fields.hpp"
#include "module/imports.hpp"

namespace ats {
namespace {

PyObject* cell_base = nullptr;

template <Literal L>
nb::object set(nb::handle self, const Arguments& args) {
    set_field<L>(self, args[0]);
    return nb::none();
}

nb::object nothing(nb::handle, const Arguments&) { return nb::none(); }
nb::object never(nb::handle, const Arguments&) { return nb::bool_(false); }

bool in_state(nb::handle self, nb::handle state) { return field<"running_state">(self).equal(state); }

nb::object is_running(nb::handle self, const Arguments&) {
    return nb::bool_(in_state(self, field<"CellStateBusy">(self)));
}

nb::object is_busy(nb::handle self, const Arguments&) {
    return nb::bool_(in_state(self, field<"CellStateBusy">(self)) && !truth(self.attr("is_paused")()));
}

nb::object is_ready(nb::handle self, const Arguments&) {
    return nb::bool_(in_state(self, field<"CellStateStop">(self)));
}

nb::object is_in_cell_test_thread(nb::handle self, const Arguments&) {
    return nb::bool_(in_test_thread(self));
}

nb::object set_uut_type(nb::handle self, const Arguments& args) {
    const bool fits = PyType_Check(args[0].ptr()) &&
                      PyType_IsSubtype(reinterpret_cast<PyTypeObject*>(args[0].ptr()), record_types.uut);
    if (!fits) {
        PyErr_SetNone(PyExc_AssertionError);
        throw nb::python_error();
    }
    set_field<"_CellBase__uut_type">(self, args[0]);
    return nb::none();
}

nb::object set_script(nb::handle self, const Arguments& args) {
    set_field<"_CellBase__script">(self, python_module<"os">().attr("path").attr("abspath")(args[0]));
    return nb::none();
}

nb::object cell_name(nb::handle self, const Arguments&) {
    return nb::str("Cell %d").attr("__mod__")(field<"_number">(self));
}

nb::object logger(nb::handle self, const Arguments&) {
    return python_module<"logging">().attr("getLogger")(self.attr("name"));
}

nb::object set_serial_number(nb::handle self, const Arguments& args) {
    const nb::object uut = field<"uut">(self);
    if (!uut.is_none()) nb::setattr(uut, "serial_number", args[0]);
    return nb::none();
}

nb::object no_ng_item(nb::handle self, const Arguments&) {
    return nb::bool_(nb::len(field<"_ng_items">(self)) == 0);
}

nb::object is_ok(nb::handle self, const Arguments&) {
    return nb::bool_(truth(field<"uut">(self).attr("is_ok")));
}

nb::object get_assertions(nb::handle self, const Arguments& args) {
    return field<"_assertion_category">(self).attr("setdefault")(args[0], nb::list());
}

nb::object fetch_an_assertion(nb::handle self, const Arguments&) {
    return field<"_assertion_queue">(self).attr("get")();
}

nb::object get_elapse_time(nb::handle self, const Arguments&) {
    const nb::object begin = field<"_start_time">(self);
    if (begin.is_none()) return nb::int_(0);
    if (truth(self.attr("has_done")())) return field<"_CellBase__uut">(self).attr("end_time") - begin;
    return nb::float_(now()) - begin;
}

nb::object update_elapse_begin_time(nb::handle self, const Arguments& args) {
    set_field<"_elapse_begin_time">(self,
                                    args.is_none(0) ? nb::object(nb::float_(now())) : nb::borrow(args[0]));
    return nb::none();
}

nb::object print_message(nb::handle, const Arguments& args) {
    python_module<"builtins">().attr("print")(args[0], nb::arg("end") = args[1]);
    return nb::none();
}

nb::object debug_print(nb::handle self, const Arguments& args) {
    if (truth(self.attr("is_in_debug_mode")())) self.attr("print")(args[0], nb::arg("end") = args[1]);
    return nb::none();
}

constexpr Member kMembers[] = {
    // construction and configuration
    method("__init__(number: int, cell_config)", construct_cell),
    property("uut_type", get_field<"_CellBase__uut_type">, "value", set_uut_type),
    property("uut", get_field<"_CellBase__uut">, "value", set<"_CellBase__uut">),
    property("cell_config", get_field<"_CellBase__cell_config">),
    property("assertion_configs", get_field<"_assertion_configs">),
    property("runner_class_name", get_field<"_CellBase__cell_runner_class_name">, "value",
             set<"_CellBase__cell_runner_class_name">),
    property("script", get_field<"_CellBase__script">, "script_path", set_script),
    static_method("load_assertion_configs(filename: str)", load_assertion_configs_method),
    method("set_assertion_config_file(filename: str?)", set_assertion_config_file),
    method("export_assertion_config()", export_assertion_config),
    // who and what
    property("name", cell_name),
    method("get_cell_name()", cell_name),
    property("cell_number", get_field<"_number">),
    property("logger", logger),
    // states
    property("running_state", get_field<"_state">, "value", set<"_state">),
    method("is_running()", is_running),
    method("is_busy()", is_busy),
    method("is_ready()", is_ready),
    method("has_done()", get_field<"_CellBase__done_flag">),
    method("is_in_cell_test_thread()", is_in_cell_test_thread),
    method("reset_state()", reset_state),
    // a run
    method("start(serial_number: str = '')", start),
    method("handle_start_request(serial_number: str? = '')", handle_start_request),
    method("do_start(serial_number: str?)", do_start),
    method("_run_script(script)", run_script),
    method("_do_run_script(script)", do_run_script),
    method("_make_uut_done()", make_uut_done),
    method("done()", done),
    // pause, abort, sleep
    method("is_paused()", is_paused),
    method("pause()", pause),
    method("resume()", resume),
    method("check_pause()", check_pause),
    method("abort(description: str = '')", abort_run),
    method("check_abort()", check_abort),
    method("is_aborted()", is_aborted),
    method("debug_pause()", debug_pause),
    method("sleep(seconds: float, check_interval: float = 0.1)", sleep),
    method("pausable(func)", pausable),
    method("abortable(func)", abortable),
    method("_call_pausable(func, *args)", call_pausable),
    method("_call_abortable(func, *args)", call_abortable),
    // measurements
    method("append(assertion, stop_if_ng: bool = None, category = 'all')", append_method),
    method("assert_with_limits(name: str, value, lower, upper, unit: str? = 'N/A', result = None, "
           "stop_if_ng: bool = None, category: str? = 'all')",
           assert_with_limits_method),
    method("try_limits(name: str, value, lower, upper, unit: str? = '', result = None)", try_limits_method),
    method("assert_with_percent_limits(name: str, value: float, mean: float, percent: float, "
           "unit: str? = 'N/A', result = None, stop_if_ng: bool = None, category: str? = 'all')",
           assert_with_percent_limits_method),
    method("assert_with_result(name: str, value, result, unit: str = None, lower = None, upper = None, "
           "stop_if_ng: bool = None, category: str? = 'all')",
           assert_with_result_method),
    // what the run has produced
    method("set_serial_number(value: str)", set_serial_number),
    method("no_ng_item()", no_ng_item),
    method("is_ok()", is_ok),
    method("get_assertions(category: str = 'all')", get_assertions),
    method("fetch_an_assertion()", fetch_an_assertion),
    method("get_elapse_time()", get_elapse_time),
    method("update_elapse_begin_time(time: float = None)", update_elapse_begin_time),
    // hooks
    method("clear_last_test_data()", nothing),
    method("is_in_debug_mode()", never),
    method("print(message, end: str = '\\n')", print_message),
    method("debug_print(message, end: str = '\\n')", debug_print),
};

}  // namespace

nb::object cell_base_class() { return nb::borrow(cell_base); }

void init_cell_base(nb::module_& module) {
    nb::dict constants;
    constants["CellStateStop"] = 0;
    constants["CellStateBusy"] = 1;
    const nb::tuple bases = nb::make_tuple(nb::handle(reinterpret_cast<PyObject*>(&PyBaseObject_Type)));
    cell_base = build_class(module, "CellBase", bases, kMembers, constants).release().ptr();
}

}  // namespace ats
