// kept.hpp - facts about classes and objects that are looked up once and hold until somebody assigns.
//
// A measurement may not pay for look-ups whose answer is the same each time.  But whatever a test or an
// application puts in the place of a method, a property or a field must count from that moment on.
#pragma once

#include <Python.h>
#include <structmember.h>

#include "module/method.hpp"
#include "module/versions.hpp"

namespace ats {

inline std::size_t place_of_address(const void* address, std::size_t places) {
    constexpr int kAlignment = 5;  // bits that say little
    return (reinterpret_cast<std::uintptr_t>(address) >> kAlignment) % places;
}

// Facts of a class alone.
template <class Facts>
class KeptOfType {
  public:
    // `find(type)` looks the facts up.
    template <class Find>
    Facts of(PyTypeObject* type, Find find) {
        Place& place = places_[place_of_address(type, kPlaces)];
        if (place.version != 0 && place.type == type && place.version == cpython_private::type_version(type))
            return place.facts;
        const Facts facts = find(type);
        // Looking up gives a type its version.
        place = {type, cpython_private::type_version(type), facts};
        return facts;
    }

  private:
    struct Place {
        PyTypeObject* type = nullptr;
        unsigned version = 0;
        Facts facts{};
    };
    static constexpr std::size_t kPlaces = 8;
    Place places_[kPlaces];
};

// Facts of a dictionary that lives long.  Pointers among them may be borrowed from the dictionary, which
// holds them as long as they are found here.
template <class Facts>
class KeptOfDict {
  public:
    // `find(dict)` looks the facts up.
    template <class Find>
    Facts of(PyObject* dict, Find find) {
        Place& place = places_[place_of_address(dict, kPlaces)];
        const std::uint64_t version = dict_version(dict);
        if (version != 0 && place.version == version) return place.facts;
        const Facts facts = find(dict);
        place = {dict_version(dict) == version ? version : 0, facts};
        return facts;
    }

  private:
    struct Place {
        std::uint64_t version = 0;
        Facts facts{};
    };
    static constexpr std::size_t kPlaces = 64;
    Place places_[kPlaces];
};

// Facts of an object that lives long: of its class and of its dictionary, from which pointers may be
// borrowed.
template <class Facts>
class KeptOfObject {
  public:
    // `find(object)` looks the facts up.  To be read before any Python code runs.
    template <class Find>
    const Facts& of(PyObject* object, Find find) {
        PyTypeObject* type = Py_TYPE(object);
        PyObject* dict = instance_dict(object);
        Place& place = places_[place_of_address(dict ? static_cast<void*>(dict) : type, kPlaces)];
        if (place.state.known() && place.state == state_of(type, dict)) return place.facts;
        const std::uint64_t before = state_of(type, dict).dict_version;
        const Facts facts = find(object);
        const ObjectState state = state_of(Py_TYPE(object), instance_dict(object));
        place = {state.dict_version == before ? state : ObjectState{}, facts};
        return place.facts;
    }

  private:
    struct Place {
        ObjectState state;
        Facts facts{};
    };
    static constexpr std::size_t kPlaces = 64;
    Place places_[kPlaces];
};

inline bool has_in_dict(PyObject* object, PyObject* attribute) {
    PyObject* dict = instance_dict(object);
    const int found = dict ? PyDict_Contains(dict, attribute) : 0;
    if (found < 0) throw nb::python_error();
    return found == 1;
}

// Whether calling `self.L` would run `body` and nothing else: no subclass, no patch and no instance attribute
// in between.  `receiver`: the native type that `body` is for; null where any object will do.
template <Literal L, Body body>
bool is_native(nb::handle self, PyTypeObject* receiver = nullptr) {
    static KeptOfType<bool> kept;
    const auto find = [&](PyTypeObject* type) { return is_native_in(type, name<L>(), body, receiver); };
    return kept.of(Py_TYPE(self.ptr()), find) && !has_in_dict(self.ptr(), name<L>());
}

// The same for a property, before which no instance attribute can stand.
template <Literal L, Body get>
bool is_native_property(nb::handle self, PyTypeObject* receiver = nullptr) {
    static KeptOfType<bool> kept;
    const auto find = [&](PyTypeObject* type) {
        return is_native_property_in(type, name<L>(), get, receiver);
    };
    return kept.of(Py_TYPE(self.ptr()), find);
}

// Where in its objects a class keeps an attribute that is one of its slots; 0 where it is none.
inline Py_ssize_t slot_offset(PyTypeObject* type, PyObject* attribute) {
    PyObject* found = cpython_private::type_lookup(type, attribute);
    if (!found || !Py_IS_TYPE(found, &PyMemberDescr_Type) || !reads_attributes_plainly(type)) return 0;
    const PyMemberDef* member = reinterpret_cast<PyMemberDescrObject*>(found)->d_member;
    return member->type == T_OBJECT_EX ? member->offset : 0;
}

// What lies in a slot, borrowed; null where nothing does.
inline PyObject* in_slot(PyObject* object, Py_ssize_t offset) {
    return *reinterpret_cast<PyObject**>(reinterpret_cast<char*>(object) + offset);
}

// A field in the object's own dictionary, borrowed; null where the class reads it otherwise or it is missing.
inline PyObject* plain_field(PyObject* object, PyObject* attribute) {
    if (!reads_attributes_plainly(Py_TYPE(object))) return nullptr;
    PyObject* in_class = cpython_private::type_lookup(Py_TYPE(object), attribute);
    if (in_class && Py_TYPE(in_class)->tp_descr_set) return nullptr;
    PyObject* dict = instance_dict(object);
    PyObject* value = dict ? PyDict_GetItemWithError(dict, attribute) : nullptr;
    if (!value && PyErr_Occurred()) throw nb::python_error();
    return value;
}

}  // namespace ats
