// fields.hpp - fields of Python instances, read and written by interned name.
#pragma once

#include "module/names.hpp"

namespace ats {

// A field `__x` of class `C` is written `_C__x`, as the interpreter stores it.
template <Literal L>
nb::object field(nb::handle cell) {
    return nb::steal(nb::detail::raise_if_null(PyObject_GetAttr(cell.ptr(), name<L>())));
}

template <Literal L>
void set_field(nb::handle cell, nb::handle value) {
    if (PyObject_SetAttr(cell.ptr(), name<L>(), value.ptr()) < 0) throw nb::python_error();
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

template <Literal L>
bool flag(nb::handle cell) {
    return truth(field<L>(cell));
}

// The instance dictionary itself, borrowed; for the measurements' path, which cannot pay for attribute
// look-up.
inline PyObject* instance_dict(nb::handle object) {
    PyObject** slot = _PyObject_GetDictPtr(object.ptr());
    return slot ? *slot : nullptr;
}

}  // namespace ats
