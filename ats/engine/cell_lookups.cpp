// cell_lookups.cpp - telling the engine's own properties from a subclass's.
#include "engine/cell_lookups.hpp"

#include "module/fields.hpp"

namespace ats {
namespace {

PyObject* own_assertion_configs = nullptr;
PyObject* own_cell_config = nullptr;

PyObject* find_property(nb::handle cell_base, PyObject* property_name) {
    return cpython_private::type_lookup(reinterpret_cast<PyTypeObject*>(cell_base.ptr()), property_name);
}

// A property is a data descriptor: an instance attribute of the same name cannot stand before it.
PyObject* behind_property(PyObject* cell, PyObject* property_name, PyObject* own, PyObject* field_name) {
    const bool is_own = cpython_private::type_lookup(Py_TYPE(cell), property_name) == own;
    return is_own ? plain_field(cell, field_name) : nullptr;
}

}  // namespace

nb::object unit_of_run(nb::handle cell) { return kept_field<"_CellBase__uut">(cell); }
nb::object queue_of(nb::handle cell) { return kept_field<"_assertion_queue">(cell); }
nb::object categories_of(nb::handle cell) { return kept_field<"_assertion_category">(cell); }

nb::object assertion_configs_of(nb::handle cell) {
    static KeptOfObject<PyObject*> kept;
    PyObject* configs = kept.of(cell.ptr(), [](PyObject* object) {
        return behind_property(object, name<"assertion_configs">(), own_assertion_configs,
                               name<"_assertion_configs">());
    });
    return configs ? nb::borrow(configs) : field<"assertion_configs">(cell);
}

nb::object cell_config_of(nb::handle cell) {
    static KeptOfObject<PyObject*> kept;
    PyObject* config = kept.of(cell.ptr(), [](PyObject* object) {
        return behind_property(object, name<"cell_config">(), own_cell_config,
                               name<"_CellBase__cell_config">());
    });
    return config ? nb::borrow(config) : field<"cell_config">(cell);
}

nb::object configured(nb::handle cell, PyObject* key, PyObject* default_value) {
    const nb::object config = cell_config_of(cell);
    PyObject* arguments[] = {config.ptr(), key, default_value};
    return nb::steal(nb::detail::raise_if_null(
        PyObject_VectorcallMethod(name<"get">(), arguments, 3 | PY_VECTORCALL_ARGUMENTS_OFFSET, nullptr)));
}

void remember_cell_properties(nb::handle cell_base) {
    own_assertion_configs = find_property(cell_base, name<"assertion_configs">());
    own_cell_config = find_property(cell_base, name<"cell_config">());
}

}  // namespace ats
