// reloading.hpp - importing and reloading modules that people edit while the program runs.
#pragma once

#include "module/names.hpp"

namespace ats {

// Bytecode is recognised as stale by its source's size and time in whole seconds.  A file that was edited
// twice within a second would go on running as it was, so bytecode not younger than its source is removed.
void drop_stale_bytecode(nb::handle source);

// `importlib.import_module(name)`, also when the file appeared a moment ago.
nb::object import_module(nb::handle module_name);

// `importlib.reload(module)`, seeing every edit.
nb::object reload_module(nb::handle module);

}  // namespace ats
