// native_type.hpp - heap types for records: compact, collected, weak-referenceable, open to subclasses.
#pragma once

#include <Python.h>
#include <structmember.h>

#include <array>

#include "module/class_table.hpp"
#include "module/cpython_private.hpp"
#include "records/state.hpp"

namespace ats {

// One owned reference of a record: its private name in Python and its place.  Null: not set.
template <class T>
struct Field {
    const char* name;  // null: Python code has no access
    PyObject* T::* slot;
    bool kept = true;               // goes into copies and pickles
    PyObject* (*make)() = nullptr;  // what the field holds when it is first asked for
};

// A record struct begins with PyObject_HEAD, has `PyObject* dict` and `PyObject* weakrefs`, tells its Python
// name as kName and its other owned references in `static constexpr Field<T> kFields[]`.
template <class T>
struct NativeType {
    static T* cast(PyObject* object) { return reinterpret_cast<T*>(object); }

    // The content of a field; an object whose `__init__` was not called has none.
    template <PyObject* T::* slot>
    static nb::object need(nb::handle self) {
        if (PyObject* value = cast(self.ptr())->*slot) return nb::borrow(value);
        constexpr const char* name = name_of<slot>();
        raise_not_built(self, name, T::kName);
    }

    static int traverse(PyObject* object, visitproc visit, void* arg) {
        Py_VISIT(Py_TYPE(object));
        Py_VISIT(cast(object)->dict);
        for (const Field<T>& field : T::kFields) Py_VISIT(cast(object)->*field.slot);
        return 0;
    }

    static int clear(PyObject* object) {
        Py_CLEAR(cast(object)->dict);
        for (const Field<T>& field : T::kFields) Py_CLEAR(cast(object)->*field.slot);
        return 0;
    }

    // Records refer to each other in long chains: the trash can keeps their end from overflowing the stack.
    static void dealloc(PyObject* object) {
        PyObject_GC_UnTrack(object);
        QON_TRASHCAN_BEGIN(object, dealloc);
        if (cast(object)->weakrefs) PyObject_ClearWeakRefs(object);
        clear(object);
        PyTypeObject* type = Py_TYPE(object);
        type->tp_free(object);
        Py_DECREF(type);
        QON_TRASHCAN_END;
    }

    // `__new__` is object's: arguments are for `__init__`, which checks them and gives the class its
    // signature.
    static PyTypeObject* make(const char* qualified_name) {
        static PyMemberDef members[] = {
            {"__dictoffset__", T_PYSSIZET, offsetof(T, dict), READONLY, nullptr},
            {"__weaklistoffset__", T_PYSSIZET, offsetof(T, weakrefs), READONLY, nullptr},
            {nullptr, 0, 0, 0, nullptr},
        };
        static auto attributes = make_attributes();
        PyType_Slot slots[] = {
            {Py_tp_traverse, reinterpret_cast<void*>(traverse)},
            {Py_tp_clear, reinterpret_cast<void*>(clear)},
            {Py_tp_dealloc, reinterpret_cast<void*>(dealloc)},
            {Py_tp_members, members},
            {Py_tp_getset, attributes.data()},
            {0, nullptr},
        };
        PyType_Spec spec{qualified_name, sizeof(T), 0,
                         Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE | Py_TPFLAGS_HAVE_GC, slots};
        return reinterpret_cast<PyTypeObject*>(or_raise(PyType_FromSpec(&spec)));
    }

    // For copies and pickles: the fields under their names, and what users added.
    static nb::object get_state(nb::handle self, const Arguments&) {
        nb::dict state;
        add_extras(state, cast(self.ptr())->dict);
        for (const Field<T>& field : T::kFields) {
            if (!field.kept) continue;
            PyObject* value = cast(self.ptr())->*field.slot;
            if (!value) raise_not_built(self, field.name, T::kName);
            state[field.name] = nb::handle(value);
        }
        return state;
    }

    static nb::object set_state(nb::handle self, const Arguments& args) {
        const nb::dict state = checked_state(args[0], T::kName);
        for (const Field<T>& field : T::kFields)
            if (field.kept) needed_in_state(state, field.name, T::kName);
        for (const Field<T>& field : T::kFields)
            if (field.kept) assign(cast(self.ptr())->*field.slot, take_from_state(state, field.name));
        restore_extras(self, state);
        return nb::none();
    }

  private:
    template <PyObject* T::* slot>
    static consteval const char* name_of() {
        for (const Field<T>& field : T::kFields)
            if (field.slot == slot) return field.name;
        throw "no such field";
    }

    static PyObject* get_field(PyObject* object, void* which) {
        const Field<T>& field = *static_cast<const Field<T>*>(which);
        PyObject*& slot = cast(object)->*field.slot;
        if (!slot && field.make) slot = field.make();
        if (!slot && !PyErr_Occurred()) set_not_built(object, field.name, T::kName);
        return Py_XNewRef(slot);
    }

    static int set_field(PyObject* object, PyObject* value, void* which) {
        assign(cast(object)->*static_cast<const Field<T>*>(which)->slot, value);
        return 0;
    }

    static auto make_attributes() {
        std::array<PyGetSetDef, std::size(T::kFields) + 2> attributes{};
        attributes[0] = {"__dict__", PyObject_GenericGetDict, PyObject_GenericSetDict, nullptr, nullptr};
        std::size_t count = 1;
        for (const Field<T>& field : T::kFields)
            if (field.name)
                attributes[count++] = {field.name, get_field, NativeType::set_field, nullptr,
                                       const_cast<Field<T>*>(&field)};
        return attributes;
    }
};

}  // namespace ats
