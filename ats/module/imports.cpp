// imports.cpp - the table of imported names.
#include "module/imports.hpp"

#include <ctime>
#include <stdexcept>
#include <string>

#include "module/errors.hpp"
#include "module/fields.hpp"

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

std::string text_of(nb::handle object) { return nb::str(object).c_str(); }

// "KeyError: 'x' (file, line 3)": what went wrong, and where at the innermost.
std::string described(const nb::python_error& error) {
    std::string text = text_of(error.type().attr("__name__")) + ": " + text_of(error.value());
    nb::object entry = nb::borrow(error.traceback().is_valid() ? error.traceback() : nb::none());
    if (entry.is_none()) return text;
    while (!entry.attr("tb_next").is_none()) entry = entry.attr("tb_next");
    return text + " (" + text_of(entry.attr("tb_frame").attr("f_code").attr("co_filename")) + ", line " +
           text_of(entry.attr("tb_lineno")) + ")";
}

// One line for whoever starts the application: it becomes the text of the ImportError.
nb::object import_needed(const std::string& module) {
    const std::string needed = "qon_ats needs the module \"" + module + "\", ";
    try {
        return nb::module_::import_(module.c_str());
    } catch (const nb::python_error& error) {
        if (!is_exception(error)) throw;
        const bool is_missing = error.matches(PyExc_ModuleNotFoundError) &&
                                error.value().attr("name").equal(nb::str(module.c_str()));
        if (!is_missing) throw std::runtime_error(needed + "whose import fails: " + described(error));
    }
    throw std::runtime_error(needed + "which this Python does not have: " + where_to_get(module) + ".");
}

nb::object needed_name(nb::handle source, const Import& import) {
    if (nb::hasattr(source, import.attribute)) return source.attr(import.attribute);
    const std::string file = text_of(nb::getattr(source, "__file__", nb::str("no file")));
    throw std::runtime_error(std::string("qon_ats needs \"") + import.attribute + "\" of the module \"" +
                             import.module + "\" (" + file + "), which lacks it.");
}

// A plain module `wx` with an attribute `grid` will do.
bool is_there(const std::string& module_name) {
    return module_name == "wx.grid" && nb::hasattr(nb::module_::import_("wx"), "grid");
}

}  // namespace

nb::handle module_namespace() { return own_namespace; }

void import_names(nb::module_& module) {
    own_namespace = module.attr("__dict__").ptr();
    Py_INCREF(own_namespace);
    for (const std::string module_name : kModules) {
        if (is_there(module_name)) continue;
        const nb::object imported_module = import_needed(module_name);
        if (module_name.find('.') == std::string::npos)
            nb::setattr(module, module_name.c_str(), imported_module);
    }
    original_time_module = python_module<"time">().release().ptr();
    time_namespace = PyModule_GetDict(original_time_module);
    original_clock = PyObject_GetAttrString(original_time_module, "time");
    for (Import& import : kImports) {
        nb::object source = import_needed(import.module);
        nb::object original = needed_name(source, import);
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
    PyObject* here = find(own_namespace, import.interned_name);
    if (here && here != import.original) return nb::borrow(here);
    return nb::steal(or_raise(PyObject_GetAttr(import.source, import.interned_attribute)));
}

namespace {

// Nobody put another clock in the place of `time.time`, neither here nor there.
bool clock_is_original() {
    static KeptOfDict<bool> kept;
    const auto is_own = [](PyObject* space) { return find(space, name<"time">()) == original_time_module; };
    const auto is_clock = [](PyObject* space) { return find(space, name<"time">()) == original_clock; };
    return kept.of(own_namespace, is_own) && kept.of(time_namespace, is_clock);
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
