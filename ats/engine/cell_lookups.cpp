// cell_lookups.cpp - telling the engine's own fields and methods from replaced ones.
#include "engine/cell_lookups.hpp"

#include "engine/recording.hpp"
#include "module/fields.hpp"

namespace ats {
namespace {

// A property is a data descriptor: an instance attribute of the same name cannot stand before it.
template <Literal property_name, Literal field_name>
PyObject* behind_property(PyObject* cell) {
    const bool is_own =
        is_native_property_in(Py_TYPE(cell), name<property_name>(), get_field<field_name>, nullptr);
    return is_own ? plain_field(cell, name<field_name>()) : nullptr;
}

template <PyObject* CellFacts::* fact, Literal attribute>
nb::object kept_or_read(nb::handle cell) {
    PyObject* kept = facts_of(cell).*fact;
    return kept ? nb::borrow(kept) : field<attribute>(cell);
}

// What a configuration's method `get` says that it reads: its attribute `reads` names a slot with a
// dictionary, and the attribute of what is found there.  A plain function alone is believed.
struct Reading {
    Py_ssize_t slot = 0;  // 0: `get` has to be called
    PyObject* attribute = nullptr;
};

Reading find_reading(PyTypeObject* type) {
    PyObject* get = cpython_private::type_lookup(type, name<"get">());
    if (!get || !PyFunction_Check(get)) return {};
    const nb::object reads = nb::getattr(nb::handle(get), "reads", nb::none());
    if (!PyTuple_CheckExact(reads.ptr()) || PyTuple_GET_SIZE(reads.ptr()) != 2) return {};
    return {slot_offset(type, PyTuple_GET_ITEM(reads.ptr(), 0)), PyTuple_GET_ITEM(reads.ptr(), 1)};
}

}  // namespace

CellFacts find_cell_facts(PyObject* cell) {
    CellFacts facts;
    facts.unit = plain_field(cell, name<"_CellBase__uut">());
    facts.queue = plain_field(cell, name<"_assertion_queue">());
    facts.categories = plain_field(cell, name<"_assertion_category">());
    facts.limits = behind_property<"assertion_configs", "_assertion_configs">(cell);
    facts.config = behind_property<"cell_config", "_CellBase__cell_config">(cell);
    facts.append = is_native<"append", append_method>(cell);
    facts.assert_with_limits = is_native<"assert_with_limits", assert_with_limits_method>(cell);
    facts.assert_with_result = is_native<"assert_with_result", assert_with_result_method>(cell);
    return facts;
}

nb::object unit_of_run(nb::handle cell) { return kept_or_read<&CellFacts::unit, "_CellBase__uut">(cell); }
nb::object queue_of(nb::handle cell) { return kept_or_read<&CellFacts::queue, "_assertion_queue">(cell); }
nb::object categories_of(nb::handle cell) {
    return kept_or_read<&CellFacts::categories, "_assertion_category">(cell);
}
nb::object assertion_configs_of(nb::handle cell) {
    return kept_or_read<&CellFacts::limits, "assertion_configs">(cell);
}
nb::object cell_config_of(nb::handle cell) { return kept_or_read<&CellFacts::config, "cell_config">(cell); }

nb::object configured(nb::handle cell, PyObject* key, PyObject* default_value) {
    static KeptOfType<Reading> kept;
    const nb::object config = cell_config_of(cell);
    const Reading reading = kept.of(Py_TYPE(config.ptr()), find_reading);
    PyObject* values = reading.slot ? in_slot(config.ptr(), reading.slot) : nullptr;
    if (!values || !PyDict_CheckExact(values) || has_in_dict(config.ptr(), name<"get">()))
        return config.attr(nb::handle(name<"get">()))(nb::handle(key), nb::handle(default_value));
    PyObject* found = PyDict_GetItemWithError(values, key);
    if (found) return nb::steal(or_raise(PyObject_GetAttr(nb::borrow(found).ptr(), reading.attribute)));
    if (PyErr_Occurred()) throw nb::python_error();
    return nb::borrow(default_value);
}

}  // namespace ats
