// item_names.cpp - a small table of the names seen lately.
#include "records/item_names.hpp"

namespace ats {
namespace {

// Bounded: a name that comes into a taken place takes it over, so unique names cannot make the table grow.
constexpr std::size_t kPlaces = 4096;
PyObject* names[kPlaces];

}  // namespace

PyObject* shared_item_name(PyObject* name) {
    if (!PyUnicode_CheckExact(name)) return Py_NewRef(name);
    const Py_hash_t hash = PyObject_Hash(name);
    if (hash == -1) throw nb::python_error();
    PyObject*& place = names[static_cast<std::size_t>(hash) % kPlaces];
    if (place == name) return Py_NewRef(name);
    if (place && PyObject_Hash(place) == hash && PyUnicode_Compare(place, name) == 0) return Py_NewRef(place);
    PyObject* old = place;
    place = Py_NewRef(name);
    Py_XDECREF(old);
    return Py_NewRef(name);
}

}  // namespace ats
