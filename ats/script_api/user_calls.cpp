// user_calls.cpp - one function call handed from a test thread to the GUI thread.
#include "module/class_table.hpp"
#include "module/errors.hpp"
#include "module/fields.hpp"
#include "module/imports.hpp"
#include "script_api/script_api.hpp"

namespace ats {
namespace {

constexpr char kNotWaitable[] = "Not a waitable object";

nb::object init(nb::handle self, const Arguments& args) {
    set_field<"function">(self, args[0]);
    set_field<"arg">(self, args[2]);
    set_field<"kwarg">(self, args[3]);
    set_field<"event">(self, truth(args[1]) ? python_module<"threading">().attr("Event")() : nb::none());
    set_field<"result">(self, nb::none());
    return nb::none();
}

// Runs in the GUI thread.  An exception goes to its event loop and leaves the waiting thread waiting: callers
// that must not hang hand over functions that do not raise.
nb::object run(nb::handle self, const Arguments&) {
    const nb::object keywords = field<"kwarg">(self);
    if (!PyMapping_Check(keywords.ptr()) || !nb::hasattr(keywords, "keys"))
        raise_formatted(PyExc_TypeError, "argument after ** must be a mapping, not %s",
                        Py_TYPE(keywords.ptr())->tp_name);
    const nb::tuple positional = nb::tuple(field<"arg">(self));
    nb::dict plain;
    plain.update(keywords);
    set_field<"result">(
        self,
        nb::steal(or_raise(PyObject_Call(field<"function">(self).ptr(), positional.ptr(), plain.ptr()))));
    const nb::object event = field<"event">(self);
    if (!event.is_none()) event.attr("set")();
    return nb::none();
}

nb::object wait(nb::handle self, const Arguments&) {
    const nb::object event = field<"event">(self);
    if (event.is_none()) raise(PyExc_TypeError, kNotWaitable);
    event.attr("wait")();
    return nb::none();
}

constexpr Member kMembers[] = {
    method("__init__(function, wait: bool, *args, **kwargs)", init),
    method("__call__()", run),
    method("wait()", wait),
};

}  // namespace

void init_user_calls(nb::module_& module) {
    const nb::tuple bases = nb::make_tuple(nb::handle(reinterpret_cast<PyObject*>(&PyBaseObject_Type)));
    build_class(module, "CallUserFunctionInfo", bases, kMembers);
}

}  // namespace ats
