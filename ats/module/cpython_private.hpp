// cpython_private.hpp - what the system uses of CPython beyond its documented interface, in this one place.
#pragma once

#include <Python.h>
#include <frameobject.h>

#include <cstdint>

namespace ats::cpython_private {

// The newest minor version that this was tried with is 3.14.  In a later one nothing is taken for unchanged:
// everything is looked up at each use, which is slower and as right.
#define QON_KNOWS_VERSIONS (PY_VERSION_HEX < 0x030F0000)

// Changes with every assignment to the type or a base of it, and no two types share one; 0: not known.
inline unsigned type_version([[maybe_unused]] const PyTypeObject* type) {
#if QON_KNOWS_VERSIONS
    return type->tp_version_tag;
#else
    return 0;
#endif
}

#if PY_VERSION_HEX < 0x030C0000
// Changes with every assignment in the dictionary, and no two dictionaries share one.  Later interpreters
// have a documented way: see module/versions.cpp.
inline std::uint64_t dict_version(PyObject* dict) {
    return reinterpret_cast<PyDictObject*>(dict)->ma_version_tag;
}
#endif

// From 3.13 on the values of an instance dictionary lie in its object at first, where an assignment to an
// attribute reaches no watcher of the dictionary.  Taking an item out moves them into the dictionary for
// good.
inline bool hold_own_values([[maybe_unused]] PyObject* dict) {
#if PY_VERSION_HEX >= 0x030D0000
    if (reinterpret_cast<PyDictObject*>(dict)->ma_values) {
        PyObject* type = reinterpret_cast<PyObject*>(&PyDict_Type);
        PyObject* last = PyObject_CallMethod(type, "popitem", "O", dict);
        const bool is_back =
            last && PyDict_SetItem(dict, PyTuple_GET_ITEM(last, 0), PyTuple_GET_ITEM(last, 1)) == 0;
        Py_XDECREF(last);
        if (!is_back || reinterpret_cast<PyDictObject*>(dict)->ma_values) {
            PyErr_Clear();  // an empty one
            return false;
        }
    }
#endif
    return true;
}

// What `type.attribute` is found as on the type or its bases; borrowed, null without an error.
inline PyObject* type_lookup(PyTypeObject* type, PyObject* attribute) {
    return _PyType_Lookup(type, attribute);
}

// A frame that never runs, for an entry of a traceback.
inline PyFrameObject* new_frame(PyCodeObject* code, PyObject* globals) {
    return PyFrame_New(PyThreadState_Get(), code, globals, nullptr);
}

// The place of the instance dictionary; null for an object that cannot have one.
inline PyObject** dict_place(PyObject* object) { return _PyObject_GetDictPtr(object); }

}  // namespace ats::cpython_private

// Around the body of a `tp_dealloc` whose objects may hold each other in long chains: ends them one by one
// where they would overflow the stack.  From 3.14 on the interpreter does so by itself.
#if PY_VERSION_HEX < 0x030E0000
#define QON_TRASHCAN_BEGIN(object, dealloc) Py_TRASHCAN_BEGIN(object, dealloc)
#define QON_TRASHCAN_END Py_TRASHCAN_END
#else
#define QON_TRASHCAN_BEGIN(object, dealloc) \
    do {                                    \
    } while (0)
#define QON_TRASHCAN_END \
    do {                 \
    } while (0)
#endif
