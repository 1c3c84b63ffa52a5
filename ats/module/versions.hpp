// versions.hpp - whether a class or a dictionary is still as it was when it was looked at.
#pragma once

#include "module/cpython_private.hpp"

namespace ats {

// A number for the content of a dictionary as it is now; another one after any change.  0: not to be had.
#if PY_VERSION_HEX < 0x030C0000
inline std::uint64_t dict_version(PyObject* dict) { return cpython_private::dict_version(dict); }
#else
std::uint64_t dict_version(PyObject* dict);
#endif

// The instance dictionary, borrowed; null where there is none.
inline PyObject* instance_dict(PyObject* object) {
    const Py_ssize_t offset = Py_TYPE(object)->tp_dictoffset;
    if (offset > 0) return *reinterpret_cast<PyObject**>(reinterpret_cast<char*>(object) + offset);
    if (offset == 0) return nullptr;
    PyObject** place = cpython_private::dict_place(object);
    return place ? *place : nullptr;
}

// The state of an object's class and of its dictionary; unequal states are no proof of a change.
struct ObjectState {
    PyTypeObject* type = nullptr;
    unsigned type_version = 0;
    std::uint64_t dict_version = 0;

    bool known() const { return type_version != 0 && dict_version != 0; }
    bool operator==(const ObjectState&) const = default;
};

inline ObjectState state_of(PyTypeObject* type, PyObject* dict) {
    constexpr std::uint64_t kNoDict = ~std::uint64_t{0};
    return {type, cpython_private::type_version(type), dict ? dict_version(dict) : kNoDict};
}

}  // namespace ats
