// cell_lookups.hpp - a cell's fields and properties, read fast where no subclass stands in between.
#pragma once

#include "module/names.hpp"

namespace ats {

// The fields that recording uses; kept beside the cell's dictionary while nothing is assigned to the cell.
nb::object unit_of_run(nb::handle cell);
nb::object queue_of(nb::handle cell);
nb::object categories_of(nb::handle cell);

// The properties `assertion_configs` and `cell_config`, overrides honoured.
nb::object assertion_configs_of(nb::handle cell);
nb::object cell_config_of(nb::handle cell);

// `cell.cell_config.get(key, default)`: read at each use, for a script may change its configuration.
nb::object configured(nb::handle cell, PyObject* key, PyObject* default_value);

// Remembers the engine's own properties, to tell them from overrides.
void remember_cell_properties(nb::handle cell_base);

}  // namespace ats
