// cell_lookups.cpp - telling the engine's own properties from a subclass's.
#include "engine/cell_lookups.hpp"

#include "module/fields.hpp"

namespace ats {
namespace {

PyObject* own_assertion_configs = nullptr;
PyObject* own_cell_config = nullptr;

// A property is a data descriptor: an instance attribute of the same name cannot stand before it.
nb::object read_property(nb::handle cell, PyObject* property_name, PyObject* own, PyObject* field_name) {
    if (_PyType_Lookup(Py_TYPE(cell.ptr()), property_name) == own) return own_field(cell, field_name);
    return nb::steal(nb::detail::raise_if_null(PyObject_GetAttr(cell.ptr(), property_name)));
}

}  // namespace

nb::object own_field(nb::handle cell, PyObject* key) {
    PyObject* dict = instance_dict(cell);
    if (PyObject* value = dict ? PyDict_GetItemWithError(dict, key) : nullptr) return nb::borrow(value);
    if (PyErr_Occurred()) throw nb::python_error();
    return nb::steal(nb::detail::raise_if_null(PyObject_GetAttr(cell.ptr(), key)));
}

nb::object assertion_configs_of(nb::handle cell) {
    return read_property(cell, name<"assertion_configs">(), own_assertion_configs,
                         name<"_assertion_configs">());
}

nb::object cell_config_of(nb::handle cell) {
    return read_property(cell, name<"cell_config">(), own_cell_config, name<"_CellBase__cell_config">());
}

nb::object configured(nb::handle cell, PyObject* key, PyObject* default_value) {
    const nb::object config = cell_config_of(cell);
    PyObject* arguments[] = {config.ptr(), key, default_value};
    return nb::steal(nb::detail::raise_if_null(
        PyObject_VectorcallMethod(name<"get">(), arguments, 3 | PY_VECTORCALL_ARGUMENTS_OFFSET, nullptr)));
}

void remember_cell_properties(nb::handle cell_base) {
    PyTypeObject* type = reinterpret_cast<PyTypeObject*>(cell_base.ptr());
    own_assertion_configs = _PyType_Lookup(type, name<"assertion_configs">());
    own_cell_config = _PyType_Lookup(type, name<"cell_config">());
}

}  // namespace ats
