// native_type.hpp - heap types for records: compact, collected, weak-referenceable, open to subclasses.
#pragma once

#include <Python.h>
#include <structmember.h>

#include "module/class_table.hpp"

namespace ats {

// A record struct begins with PyObject_HEAD, has `PyObject* dict` and `PyObject* weakrefs`, and names its
// other owned references in `static constexpr PyObject* T::*kReferences[]`.  A null reference reads as None.
template <class T>
struct NativeType {
    static T* cast(PyObject* object) { return reinterpret_cast<T*>(object); }

    static int traverse(PyObject* object, visitproc visit, void* arg) {
        Py_VISIT(Py_TYPE(object));
        Py_VISIT(cast(object)->dict);
        for (auto reference : T::kReferences) Py_VISIT(cast(object)->*reference);
        return 0;
    }

    static int clear(PyObject* object) {
        Py_CLEAR(cast(object)->dict);
        for (auto reference : T::kReferences) Py_CLEAR(cast(object)->*reference);
        return 0;
    }

    static void dealloc(PyObject* object) {
        PyObject_GC_UnTrack(object);
        if (cast(object)->weakrefs) PyObject_ClearWeakRefs(object);
        clear(object);
        PyTypeObject* type = Py_TYPE(object);
        type->tp_free(object);
        Py_DECREF(type);
    }

    // Arguments are for __init__, which checks them.
    static PyObject* create(PyTypeObject* type, PyObject*, PyObject*) { return type->tp_alloc(type, 0); }

    static PyTypeObject* make(const char* qualified_name, newfunc allocate = create) {
        static PyMemberDef members[] = {
            {"__dictoffset__", T_PYSSIZET, offsetof(T, dict), READONLY, nullptr},
            {"__weaklistoffset__", T_PYSSIZET, offsetof(T, weakrefs), READONLY, nullptr},
            {nullptr, 0, 0, 0, nullptr},
        };
        static PyGetSetDef attributes[] = {
            {"__dict__", PyObject_GenericGetDict, PyObject_GenericSetDict, nullptr, nullptr},
            {nullptr, nullptr, nullptr, nullptr, nullptr},
        };
        PyType_Slot slots[] = {
            {Py_tp_new, reinterpret_cast<void*>(allocate)},
            {Py_tp_traverse, reinterpret_cast<void*>(traverse)},
            {Py_tp_clear, reinterpret_cast<void*>(clear)},
            {Py_tp_dealloc, reinterpret_cast<void*>(dealloc)},
            {Py_tp_members, members},
            {Py_tp_getset, attributes},
            {0, nullptr},
        };
        PyType_Spec spec{qualified_name, sizeof(T), 0,
                         Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE | Py_TPFLAGS_HAVE_GC, slots};
        return reinterpret_cast<PyTypeObject*>(nb::detail::raise_if_null(PyType_FromSpec(&spec)));
    }
};

// Stores a new value; the old one goes last, since its destructor may run Python code.
inline void assign(PyObject*& slot, nb::handle value) {
    PyObject* old = slot;
    slot = Py_NewRef(value.ptr());
    Py_XDECREF(old);
}

inline nb::object read(PyObject* slot) { return nb::borrow(slot ? slot : Py_None); }

}  // namespace ats
