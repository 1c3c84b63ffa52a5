// fields.hpp - fields of Python instances, read and written by interned name.
#pragma once

#include "module/kept.hpp"

namespace ats {

// A field `__x` of class `C` is written `_C__x`, as the interpreter stores it.
template <Literal L>
nb::object field(nb::handle cell) {
    return nb::steal(or_raise(PyObject_GetAttr(cell.ptr(), name<L>())));
}

template <Literal L>
void set_field(nb::handle cell, nb::handle value) {
    if (PyObject_SetAttr(cell.ptr(), name<L>(), value.ptr()) < 0) throw nb::python_error();
}

// The same for an object whose class may keep the field in a slot, as records of other modules do.
template <Literal L>
nb::object slot_field(nb::handle object) {
    static KeptOfType<Py_ssize_t> kept;
    const Py_ssize_t offset =
        kept.of(Py_TYPE(object.ptr()), [](PyTypeObject* type) { return slot_offset(type, name<L>()); });
    PyObject* value = offset ? in_slot(object.ptr(), offset) : nullptr;
    return value ? nb::borrow(value) : field<L>(object);
}

// `object.L(arguments...)`, for calls that are made a million times: by interned name, without a tuple.
template <Literal L, class... Args>
nb::object call_method(nb::handle object, const Args&... arguments) {
    PyObject* values[] = {object.ptr(), nb::handle(arguments).ptr()...};
    return nb::steal(nb::detail::raise_if_null(PyObject_VectorcallMethod(
        name<L>(), values, std::size(values) | PY_VECTORCALL_ARGUMENTS_OFFSET, nullptr)));
}

inline bool truth(nb::handle value) {
    const int result = PyObject_IsTrue(value.ptr());
    if (result < 0) throw nb::python_error();
    return result == 1;
}

inline bool contains(nb::handle container, nb::handle item) {
    const int found = PySequence_Contains(container.ptr(), item.ptr());
    if (found < 0) throw nb::python_error();
    return found == 1;
}

// What a dictionary holds under `key`, borrowed; null: nothing.
inline PyObject* find(PyObject* dict, PyObject* key) {
    PyObject* found = PyDict_GetItemWithError(dict, key);
    if (!found && PyErr_Occurred()) throw nb::python_error();
    return found;
}

template <Literal L>
bool flag(nb::handle cell) {
    return truth(field<L>(cell));
}

// The same for an object that lives long and is read at each measurement.
template <Literal L>
nb::object kept_field(nb::handle object) {
    static KeptOfObject<PyObject*> kept;
    PyObject* value = kept.of(object.ptr(), [](PyObject* o) { return plain_field(o, name<L>()); });
    return value ? nb::borrow(value) : field<L>(object);
}

}  // namespace ats
