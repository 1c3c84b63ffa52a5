// imports.cpp - the table of imported names.
#include "module/imports.hpp"

#include <ctime>
#include <stdexcept>
#include <string>

#include "module/versions.hpp"

namespace ats {
namespace {

Import kImports[] = {
    {"_Frame", "qon_atsui", "Frame"},
    {"_CellUIBase", "qon_atsui", "Cell"},
    {"TickerExceptionDialog", "qon_atsui", "TickerExceptionDialog"},
    {"AboutDialog", "qon_atsui", "AboutDialog"},
    {"ManualDlg", "qon_atsui", "ManualOperationDialog"},
    {"_TestDataViewerFrame", "qon_atsui", "TestDataViewerFrame"},
    {"_TestDataViewerPanel", "qon_atsui", "TestDataViewerPanel"},
    {"BookParameters", "qon_testparameters", "BookParameters"},
    {"SheetParameters", "qon_testparameters", "SheetParameters"},
    {"Parameter", "qon_testparameters", "Parameter"},
    {"MB", "qon_wxtools", "MB"},
    {"TrueOrFalseDialog", "qon_wxtools", "TrueOrFalseDialog"},
    {"window_fit_layout", "qon_wxtools", "window_fit_layout"},
    {"_ParaEditorDlg", "qon_wxtools", "ParameterTreeDialog"},
    {"Callback", "qon_handy", "Callback"},
    {"_format_exception", "qon_handy", "format_exception"},
    {"_timestamp", "qon_handy", "timestamp"},
    {"_timestamp_as_filename", "qon_handy", "timestamp_as_filename"},
    {"_MatplotPanel", "qon_matplot", "MatplotPanel"},
    {"ParameterDirectory", "qon_paratree", "ParameterDirectory"},
    {"input_integer", "qon_touch", "input_integer"},
    {"_Book", "openpyxl", "Workbook"},
    {"load_workbook", "openpyxl", "load_workbook"},
};

// Modules whose functions are looked up on them at each call.
constexpr const char* kModules[] = {"wx",      "wx.grid",  "threading", "queue", "importlib",
                                    "logging", "datetime", "time",      "os",    "sys",
                                    "math",    "numpy",    "builtins"};

PyObject* own_namespace = nullptr;
PyObject* time_namespace = nullptr;
PyObject* original_time_module = nullptr;
PyObject* original_clock = nullptr;

// The windows come from the system's package where pip has none; the siblings may be the maker's own.
const char* where_to_get(const std::string& module) {
    if (module.starts_with("wx")) return "install Debian's package python3-wxgtk4.0, or wxPython with pip";
    if (module.starts_with("qon_")) return "install qon-ats-companions, or put the maker's own on the path";
    return "install it with pip";
}

// One line for whoever starts the application; an error inside a module that is there is passed on.
nb::object import_needed(const char* module) {
    try {
        return nb::module_::import_(module);
    } catch (const nb::python_error& error) {
        if (!error.matches(PyExc_ModuleNotFoundError) || !error.value().attr("name").equal(nb::str(module)))
            throw;
    }
    const std::string name = module;
    throw std::runtime_error("qon_ats needs the module \"" + name +
                             "\", which this Python does not have: " + where_to_get(name) + ".");
}

}  // namespace

nb::handle module_namespace() { return own_namespace; }

void import_names(nb::module_& module) {
    own_namespace = module.attr("__dict__").ptr();
    Py_INCREF(own_namespace);
    for (const char* module_name : kModules) {
        const nb::object imported_module = import_needed(module_name);
        const std::string text = module_name;
        if (text.find('.') == std::string::npos) nb::setattr(module, module_name, imported_module);
    }
    original_time_module = python_module<"time">().release().ptr();
    time_namespace = PyModule_GetDict(original_time_module);
    original_clock = PyObject_GetAttrString(original_time_module, "time");
    for (Import& import : kImports) {
        nb::object source = import_needed(import.module);
        nb::object original = source.attr(import.attribute);
        nb::setattr(module, import.name, original);
        import.interned_name = PyUnicode_InternFromString(import.name);
        import.interned_attribute = PyUnicode_InternFromString(import.attribute);
        import.source = source.release().ptr();
        import.original = original.release().ptr();
    }
}

const Import& find_import(std::string_view name) {
    for (const Import& import : kImports)
        if (name == import.name) return import;
    throw std::logic_error("not an imported name: " + std::string(name));
}

nb::object resolve(const Import& import) {
    PyObject* here = PyDict_GetItemWithError(own_namespace, import.interned_name);
    if (!here && PyErr_Occurred()) throw nb::python_error();
    if (here && here != import.original) return nb::borrow(here);
    return nb::steal(nb::detail::raise_if_null(PyObject_GetAttr(import.source, import.interned_attribute)));
}

namespace {

// Nobody put another clock in the place of `time.time`, neither here nor there.
bool clock_is_original() {
    static std::uint64_t own_version = 0, time_version = 0;  // of the namespaces when it was so
    if (own_version && time_version && dict_version(own_namespace) == own_version &&
        dict_version(time_namespace) == time_version)
        return true;
    own_version = dict_version(own_namespace);
    time_version = dict_version(time_namespace);
    const bool original = PyDict_GetItem(own_namespace, name<"time">()) == original_time_module &&
                          PyDict_GetItem(time_namespace, name<"time">()) == original_clock;
    if (!original) own_version = 0;
    return original;
}

}  // namespace

double now() {
    if (clock_is_original()) {
        timespec clock{};
        ::timespec_get(&clock, TIME_UTC);
        // As time.time() rounds, so that times taken by both compare as they were taken.
        return static_cast<double>(clock.tv_sec * 1'000'000'000LL + clock.tv_nsec) / 1e9;
    }
    return nb::cast<double>(nb::float_(python_module<"time">().attr("time")()));
}

}  // namespace ats
