// versions.cpp - versions of dictionaries where the interpreter reports changes instead of counting them.
#include "module/versions.hpp"

#if PY_VERSION_HEX >= 0x030C0000

namespace ats {
namespace {

// A dictionary that loses its place to another one gets a new version when it is asked for again.
struct Place {
    PyObject* dict;
    std::uint64_t version;
};

constexpr std::size_t kPlaces = 256;
Place places[kPlaces];
std::uint64_t last_version = 0;

Place& place_of(PyObject* dict) {
    constexpr int kAlignment = 4;  // bits that are equal in all addresses
    return places[(reinterpret_cast<std::uintptr_t>(dict) >> kAlignment) % kPlaces];
}

// Called before each change, and before the dictionary is freed.
int forget(PyDict_WatchEvent, PyObject* dict, PyObject*, PyObject*) {
    Place& place = place_of(dict);
    if (place.dict == dict) place.dict = nullptr;
    return 0;
}

bool watch(PyObject* dict) {
    if (!cpython_private::hold_own_values(dict)) return false;
    static const int watcher = PyDict_AddWatcher(forget);
    if (watcher >= 0 && PyDict_Watch(watcher, dict) == 0) return true;
    PyErr_Clear();  // all watchers are taken
    return false;
}

}  // namespace

std::uint64_t dict_version(PyObject* dict) {
    Place& place = place_of(dict);
    if (place.dict == dict) return place.version;
    if (!watch(dict)) return 0;
    place = {dict, ++last_version};
    return place.version;
}

}  // namespace ats

#endif
