// loading.cpp - the script file as a module, and the runner class in it.
#include "engine/engine.hpp"
#include "engine/run.hpp"
#include "module/errors.hpp"
#include "module/fields.hpp"
#include "module/imports.hpp"
#include "module/reloading.hpp"

namespace ats {
namespace {

constexpr char kNoClass[] = "Class \"%S\" not found in script \"%S\".";
constexpr char kWrongClass[] = "Class \"%S\" is not derived from CellRunnerBase.";

nb::object import_script(nb::handle script) {
    const nb::object os_path = python_module<"os">().attr("path");
    const nb::object directory = os_path.attr("dirname")(script);
    const nb::object module_name = nb::object(os_path.attr("basename")(script).attr("split")("."))[0];
    const nb::object search_path = python_module<"sys">().attr("path");
    if (!contains(search_path, directory)) search_path.attr("append")(directory);
    drop_stale_bytecode(script);
    return import_module(module_name);
}

// The cell's script module, imported at its first run and reloaded before the others.
void bring_up_to_date(nb::handle cell, nb::handle script) {
    const nb::object loaded = field<"_cell_runner_module">(cell);
    if (loaded.is_none())
        set_field<"_cell_runner_module">(cell, import_script(script));
    else if (truth(nb::object(cell.attr("cell_config")).attr("get")("reload_cell_runner", true)))
        set_field<"_cell_runner_module">(cell, reload_module(loaded));
}

// An import error names a module; the note under it names the file, for whoever has to mend it.
void tell_script(const nb::python_error& error, nb::handle script) {
    const bool exists = truth(nb::module_::import_("os.path").attr("exists")(script));
    const char* text = exists ? "The test script \"{}\" could not be loaded; mend it and start again."
                              : "The test script \"{}\" does not exist; mend the key \"script\" of the cell.";
    error.value().attr("add_note")(nb::str(text).attr("format")(script));
}

nb::object find_runner_class(nb::handle cell, nb::handle script) {
    const nb::object class_name = cell.attr("runner_class_name");
    try {
        bring_up_to_date(cell, script);
    } catch (const nb::python_error& error) {
        tell_script(error, script);
        throw;
    }
    const nb::object module = field<"_cell_runner_module">(cell);
    if (!nb::hasattr(module, class_name))
        raise_formatted(PyExc_ValueError, kNoClass, class_name.ptr(), script.ptr());
    nb::object runner_class = nb::getattr(module, class_name);
    const int derived = PyObject_IsSubclass(runner_class.ptr(), own_name<"CellRunnerBase">().ptr());
    if (derived < 0) throw nb::python_error();
    if (!derived) raise_formatted(PyExc_TypeError, kWrongClass, class_name.ptr());
    return runner_class;
}

}  // namespace

// The traceback tells the step, as it does for an error inside the script.
nb::object load_runner_class(nb::handle cell, nb::handle script) {
    try {
        return find_runner_class(cell, script);
    } catch (nb::python_error& error) {
        error.restore();
        add_traceback_entry("_load_runner_class", __LINE__);
        throw nb::python_error();
    }
}

}  // namespace ats
