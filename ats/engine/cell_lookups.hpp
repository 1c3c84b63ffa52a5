// cell_lookups.hpp - what recording reads of a cell, fast where nothing stands in between.
#pragma once

#include "module/fields.hpp"

namespace ats {

// Fields are borrowed from the cell's dictionary; null where the class reads them in another way.
struct CellFacts {
    PyObject* unit = nullptr;
    PyObject* queue = nullptr;
    PyObject* categories = nullptr;
    PyObject* limits = nullptr;  // behind the property `assertion_configs`
    PyObject* config = nullptr;  // behind the property `cell_config`
    // Whether these methods are the engine's own.
    bool append = false;
    bool assert_with_limits = false;
    bool assert_with_result = false;
};

CellFacts find_cell_facts(PyObject* cell);

// Kept while nothing is assigned to the cell or its class.  To be read before any Python code runs.
inline const CellFacts& facts_of(nb::handle cell) {
    static KeptOfObject<CellFacts> kept;
    return kept.of(cell.ptr(), find_cell_facts);
}

// The getter of a property that gives the field `L`.
template <Literal L>
nb::object get_field(nb::handle cell, const Arguments&) {
    return field<L>(cell);
}

// These fields, in whatever way the class reads them.
nb::object unit_of_run(nb::handle cell);
nb::object queue_of(nb::handle cell);
nb::object categories_of(nb::handle cell);

// The properties `assertion_configs` and `cell_config`, overrides honoured.
nb::object assertion_configs_of(nb::handle cell);
nb::object cell_config_of(nb::handle cell);

// `cell.cell_config.get(key, default)`: read at each use, for a script may change its configuration.
nb::object configured(nb::handle cell, PyObject* key, PyObject* default_value);

}  // namespace ats
