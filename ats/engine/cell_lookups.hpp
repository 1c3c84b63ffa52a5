// cell_lookups.hpp - a cell's fields and properties, read fast where no subclass stands in between.
#pragma once

#include "module/names.hpp"

namespace ats {

// A field of the cell from its dictionary; falls back to attribute look-up, which tells what is missing.
nb::object own_field(nb::handle cell, PyObject* key);

// The properties `assertion_configs` and `cell_config`, overrides honoured.
nb::object assertion_configs_of(nb::handle cell);
nb::object cell_config_of(nb::handle cell);

// `cell.cell_config.get(key, default)`: read at each use, for a script may change its configuration.
nb::object configured(nb::handle cell, PyObject* key, PyObject* default_value);

// Remembers the engine's own properties, to tell them from overrides.
void remember_cell_properties(nb::handle cell_base);

}  // namespace ats
