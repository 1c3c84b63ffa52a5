// state.cpp - half-built records; states of copies and pickles.
#include "records/state.hpp"

#include "module/errors.hpp"

namespace ats {

void set_not_built(PyObject* self, const char* field, const char* record) noexcept {
    PyErr_Format(PyExc_AttributeError,
                 "'%s' object has no attribute '%s': %s.__init__() was not called on it",
                 Py_TYPE(self)->tp_name, field, record);
}

void raise_not_built(nb::handle self, const char* field, const char* record) {
    set_not_built(self.ptr(), field, record);
    throw nb::python_error();
}

nb::dict checked_state(nb::handle state, const char* record) {
    if (!PyDict_Check(state.ptr()))
        raise_formatted(PyExc_TypeError, "The state of an object of class %s must be a dict, not %s.", record,
                        Py_TYPE(state.ptr())->tp_name);
    const nb::dict copy = nb::steal<nb::dict>(or_raise(PyDict_Copy(state.ptr())));
    for (auto [key, value] : copy)
        if (!PyUnicode_Check(key.ptr()))
            raise_formatted(PyExc_TypeError,
                            "The state of an object of class %s must have texts for keys, not %R.", record,
                            key.ptr());
    return copy;
}

nb::handle needed_in_state(const nb::dict& state, const char* name, const char* record) {
    PyObject* found = PyDict_GetItemWithError(state.ptr(), nb::str(name).ptr());
    if (!found && PyErr_Occurred()) throw nb::python_error();
    if (!found)
        raise_formatted(PyExc_TypeError, "The state of an object of class %s lacks '%s'.", record, name);
    return found;
}

nb::object take_from_state(const nb::dict& state, const char* name) {
    return nb::object(state.attr("pop")(name));
}

void add_extras(nb::dict& state, PyObject* instance_dict) {
    if (instance_dict && PyDict_Update(state.ptr(), instance_dict) < 0) throw nb::python_error();
}

void restore_extras(nb::handle self, const nb::dict& rest) {
    if (nb::len(rest) == 0) return;
    const nb::object dict = nb::steal(or_raise(PyObject_GenericGetDict(self.ptr(), nullptr)));
    if (PyDict_Update(dict.ptr(), rest.ptr()) < 0) throw nb::python_error();
}

}  // namespace ats
