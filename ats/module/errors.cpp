// errors.cpp - handled exceptions and traceback entries.
#include "module/errors.hpp"

#include "module/cpython_private.hpp"
#include "module/imports.hpp"

namespace ats {
namespace {

nb::object take_raised() {
#if PY_VERSION_HEX >= 0x030C0000
    return nb::steal(PyErr_GetRaisedException());
#else
    PyObject *type = nullptr, *value = nullptr, *traceback = nullptr;
    PyErr_Fetch(&type, &value, &traceback);
    PyErr_NormalizeException(&type, &value, &traceback);
    if (traceback) PyException_SetTraceback(value, traceback);
    Py_XDECREF(type);
    Py_XDECREF(traceback);
    return nb::steal(value);
#endif
}

}  // namespace

void add_traceback_entry(const char* function, int line) {
    PyObject *type = nullptr, *value = nullptr, *traceback = nullptr;
    PyErr_Fetch(&type, &value, &traceback);
    const nb::object code =
        nb::steal(reinterpret_cast<PyObject*>(PyCode_NewEmpty("<qon_ats>", function, line)));
    nb::object frame;
    if (code.is_valid())
        frame = nb::steal(reinterpret_cast<PyObject*>(cpython_private::new_frame(
            reinterpret_cast<PyCodeObject*>(code.ptr()), module_namespace().ptr())));
    PyErr_Clear();
    PyErr_Restore(type, value, traceback);
    if (frame.is_valid()) PyTraceBack_Here(reinterpret_cast<PyFrameObject*>(frame.ptr()));
}

void raise(PyObject* type, const char* message) {
    PyErr_SetString(type, message);
    throw nb::python_error();
}

HandledException::HandledException(nb::python_error& error, const char* function, int line) {
    error.restore();
    add_traceback_entry(function, line);
    value_ = take_raised();
    previous_ = nb::steal(PyErr_GetHandledException());
    PyErr_SetHandledException(value_.ptr());
}

HandledException::~HandledException() { PyErr_SetHandledException(previous_.ptr()); }

nb::object formatted_exception(int skip_level) {
    return nb::str("").attr("join")(imported<"_format_exception">()(skip_level));
}

}  // namespace ats
