// record_types.hpp - what argument checks need to know of the record types; records/ sets it.
#pragma once

#include <Python.h>

namespace ats {

struct RecordTypes {
    PyTypeObject* assertion = nullptr;
    PyTypeObject* uut = nullptr;
};

// The native types, set while the module is built; they live as long as the process.
inline RecordTypes record_types;

inline bool is_assertion(PyObject* value) { return PyObject_TypeCheck(value, record_types.assertion); }
inline bool is_uut(PyObject* value) { return PyObject_TypeCheck(value, record_types.uut); }

}  // namespace ats
