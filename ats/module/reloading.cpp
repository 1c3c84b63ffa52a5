// reloading.cpp - making sure that what runs is what stands in the file.
#include "module/reloading.hpp"

#include "module/errors.hpp"
#include "module/fields.hpp"
#include "module/imports.hpp"

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

nb::object importlib_with_fresh_caches() {
    nb::object importlib = python_module<"importlib">();
    if (nb::hasattr(importlib, "invalidate_caches")) importlib.attr("invalidate_caches")();
    return importlib;
}

}  // namespace

nb::object import_module(nb::handle module_name) {
    const nb::object importlib = importlib_with_fresh_caches();
    return importlib.attr("import_module")(module_name);
}

nb::object reload_module(nb::handle module) {
    const nb::object source = nb::getattr(module, "__file__", nb::none());
    if (!source.is_none()) drop_stale_bytecode(source);
    return importlib_with_fresh_caches().attr("reload")(module);
}

}  // namespace ats
