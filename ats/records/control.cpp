// control.cpp - control exceptions of the test thread, and the module's constants.
#include "records/control.hpp"

#include "module/class_table.hpp"
#include "module/imports.hpp"
#include "records/records.hpp"

namespace ats {
namespace {

nb::object exception_base() { return nb::borrow(PyExc_Exception); }

nb::object init_plain(nb::handle self, const Arguments&) {
    exception_base().attr("__init__")(self);
    return nb::none();
}

nb::object init_described(nb::handle self, const Arguments& args) {
    exception_base().attr("__init__")(self, args[0]);
    return nb::none();
}

constexpr Member kPlain[] = {method("__init__()", init_plain)};
constexpr Member kDescribed[] = {method("__init__(description)", init_described)};

}  // namespace

void init_control(nb::module_& module) {
    const nb::tuple bases = nb::make_tuple(exception_base());
    control.done = build_class(module, "_DoneException", bases, kPlain).release().ptr();
    control.abort = build_class(module, "_UserAbortException", bases, kPlain).release().ptr();
    control.ng = build_class(module, "_NGException", bases, kDescribed).release().ptr();

    nb::setattr(module, "_default_ats_config_path", nb::str("ats_config.xlsx"));
    nb::list columns;
    columns.append(nb::make_tuple("Name", 300));
    for (const char* title : {"Value", "Lower", "Upper", "Unit", "Result"})
        columns.append(nb::make_tuple(title, 200));
    nb::setattr(module, "_DefaultColumnInfo", nb::tuple(columns));

    const nb::object wx = python_module<"wx">();
    const nb::object event_type = wx.attr("NewEventType")();
    nb::setattr(module, "_EVT_STATISTICS_UPDATE_EVENT", event_type);
    nb::setattr(module, "EVT_STATISTICS_UPDATE_EVENT", wx.attr("PyEventBinder")(event_type, 1));
}

void raise_done() {
    PyErr_SetNone(control.done);
    throw nb::python_error();
}

void raise_abort() {
    PyErr_SetNone(control.abort);
    throw nb::python_error();
}

void raise_ng(nb::handle item_name) {
    PyErr_SetObject(control.ng, item_name.ptr());
    throw nb::python_error();
}

}  // namespace ats
