// imports.hpp - names of other modules, looked up where a user can replace them, at the moment of the call.
#pragma once

#include <string_view>

#include "module/names.hpp"

namespace ats {

// One name that `qon_ats` has from a sibling module or library.
struct Import {
    const char* name;       // under which it stands in the namespace of qon_ats
    const char* module;     // where it comes from
    const char* attribute;  // its name there
    PyObject* interned_name = nullptr;
    PyObject* interned_attribute = nullptr;
    PyObject* source = nullptr;    // the module object
    PyObject* original = nullptr;  // what was imported
};

// Imports everything and puts the names into the module's namespace.
void import_names(nb::module_& module);

// The namespace of qon_ats; borrowed, lives as long as the process.
nb::handle module_namespace();

const Import& find_import(std::string_view name);

// What stands for the name now: a replacement in qon_ats wins, then a replacement in the module of origin.
nb::object resolve(const Import& import);

template <Literal L>
nb::object imported() {
    static const Import& import = find_import(L.text);
    return resolve(import);
}

// What stands in the namespace of qon_ats now under a name of its own: a class, a constant.
template <Literal L>
nb::object own_name() {
    return nb::borrow(module_namespace()[nb::handle(name<L>())]);
}

// A module that stands there under its own name: wx, time, os, threading and the like.
template <Literal L>
nb::object python_module() {
    return own_name<L>();
}

// `time.time()`: seconds since the epoch.
double now();

// `wx.CallAfter(function, ...)`: the GUI thread calls it from its event loop.
template <class... Args>
void call_after(const nb::object& function, Args&&... args) {
    python_module<"wx">().attr("CallAfter")(function, std::forward<Args>(args)...);
}

}  // namespace ats
