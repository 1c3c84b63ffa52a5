// errors.hpp - raising Python exceptions and handling them as an `except` block does.
#pragma once

#include "module/names.hpp"

namespace ats {

[[noreturn]] void raise(PyObject* type, const char* message);

// For messages with one or two texts; `format` is that of PyErr_Format.
template <class... Args>
[[noreturn]] void raise_formatted(PyObject* type, const char* format, Args... args) {
    PyErr_Format(type, format, args...);
    throw nb::python_error();
}

inline bool is_exception(const nb::python_error& error) { return error.matches(PyExc_Exception); }

// Puts an entry for a native function in front of the traceback of the error that is set.
void add_traceback_entry(const char* function, int line);

// While it lives, `error` is the interpreter's exception being handled, as inside an `except` block, so that
// code that formats "the exception being handled" finds it.  The traceback gets an entry for `function`, the
// native function that handles it, as the outermost one.
class HandledException {
  public:
    HandledException(nb::python_error& error, const char* function, int line);
    ~HandledException();
    HandledException(const HandledException&) = delete;
    HandledException& operator=(const HandledException&) = delete;

    nb::handle value() const { return value_; }
    nb::str text() const { return nb::str(value_); }

  private:
    nb::object value_;
    nb::object previous_;
};

// The lines of the exception being handled, joined to one text; `skip_level` frames are left out.
nb::object formatted_exception(int skip_level);

}  // namespace ats
