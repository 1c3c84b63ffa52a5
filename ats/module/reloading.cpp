// reloading.cpp - making sure that what runs is what stands in the file.
#include "module/reloading.hpp"

#include "module/errors.hpp"
#include "module/fields.hpp"
#include "module/imports.hpp"
#include "module/scope_guard.hpp"

namespace ats {

void drop_stale_bytecode(nb::handle source) {
    const nb::object os = python_module<"os">();
    try {
        const nb::object bytecode = nb::module_::import_("importlib.util").attr("cache_from_source")(source);
        const nb::object written = os.attr("stat")(bytecode).attr("st_mtime_ns");
        const nb::object edited = os.attr("stat")(source).attr("st_mtime_ns");
        if (written <= edited) os.attr("remove")(bytecode);
    } catch (const nb::python_error& error) {
        // No source, no bytecode, or a read-only place: the import itself tells what matters.
        if (!is_exception(error)) throw;
    }
}

namespace {

PyObject* locks = nullptr;  // by module name; lives as long as the process

// Cells that share a script load it in their test threads at the same moment.  importlib is not made for
// that: a reload fails while another one has the module out of sys.modules for an instant, or returns it half
// executed.  Whoever holds the lock of a module's name runs its code, so there is one for each name, and the
// same thread may come again.
nb::object lock_of(nb::handle module_name) {
    nb::dict made;
    if (!locks) locks = made.release().ptr();
    const nb::object fresh = python_module<"threading">().attr("RLock")();
    PyObject* const lock = PyDict_SetDefault(locks, module_name.ptr(), fresh.ptr());
    if (!lock) throw nb::python_error();
    return nb::borrow(lock);
}

// Two threads that forget the same finders at once raise KeyError.
nb::object importlib_with_fresh_caches() {
    nb::object importlib = python_module<"importlib">();
    const auto turn = enter(lock_of(nb::none()));
    if (nb::hasattr(importlib, "invalidate_caches")) importlib.attr("invalidate_caches")();
    return importlib;
}

}  // namespace

nb::object import_module(nb::handle module_name) {
    const auto turn = enter(lock_of(module_name));
    const nb::object importlib = importlib_with_fresh_caches();
    return importlib.attr("import_module")(module_name);
}

nb::object reload_module(nb::handle module) {
    const auto turn = enter(lock_of(nb::object(nb::getattr(module, "__name__", nb::none()))));
    const nb::object source = nb::getattr(module, "__file__", nb::none());
    if (!source.is_none()) drop_stale_bytecode(source);
    return importlib_with_fresh_caches().attr("reload")(module);
}

}  // namespace ats
