// state.hpp - what all records share: half-built objects, and the state that copies and pickles carry.
#pragma once

#include "module/names.hpp"

namespace ats {

// Stores a new value; the old one goes last, since its destructor may run Python code.
inline void assign(PyObject*& slot, nb::handle value) {
    PyObject* old = slot;
    slot = Py_XNewRef(value.ptr());
    Py_XDECREF(old);
}

// AttributeError: `field` is missing, as after a subclass's `__init__` that did not call the record's.
void set_not_built(PyObject* self, const char* field, const char* record) noexcept;
[[noreturn]] void raise_not_built(nb::handle self, const char* field, const char* record);

// The state given to `__setstate__`: a copy of it, a dict with texts for keys, or TypeError.
nb::dict checked_state(nb::handle state, const char* record);

// What stands under `name`; TypeError where it is missing.
nb::handle needed_in_state(const nb::dict& state, const char* name, const char* record);
nb::object take_from_state(const nb::dict& state, const char* name);

// The attributes that users added, to a state and from what is left of one.
void add_extras(nb::dict& state, PyObject* instance_dict);
void restore_extras(nb::handle self, const nb::dict& rest);

}  // namespace ats
