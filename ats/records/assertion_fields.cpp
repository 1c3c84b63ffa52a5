// assertion_fields.cpp - private fields by name: read, write, copy and pickle.
#include "records/assertion_fields.hpp"

#include "module/errors.hpp"
#include "module/fields.hpp"
#include "records/state.hpp"

namespace ats {
namespace {

nb::object object_or_null(PyObject* slot) { return nb::borrow(slot); }

nb::object name_field(Assertion* a) { return object_or_null(a->name); }
void set_name_field(Assertion* a, nb::handle value) { assign(a->name, value); }
nb::object value_field(Assertion* a) { return a->get_value(); }
void set_value_field(Assertion* a, nb::handle value) { a->set_value(value); }
nb::object lower_field(Assertion* a) { return object_or_null(a->lower.get()); }
void set_lower_field(Assertion* a, nb::handle value) { a->lower.assign(value); }
nb::object upper_field(Assertion* a) { return object_or_null(a->upper); }
void set_upper_field(Assertion* a, nb::handle value) { assign(a->upper, value); }
nb::object unit_field(Assertion* a) { return object_or_null(a->unit.get()); }
void set_unit_field(Assertion* a, nb::handle value) { a->unit.assign(value); }
nb::object time_field(Assertion* a) { return a->get_assert_time(); }
void set_time_field(Assertion* a, nb::handle value) { a->set_assert_time(value); }

nb::object result_field(Assertion* a) {
    switch (a->verdict()) {
        case Verdict::unset:
            return {};
        case Verdict::tbd:
            return nb::none();
        default:
            return nb::bool_(a->verdict() == Verdict::ok);
    }
}

// The record keeps three verdicts: what is neither None nor a bool counts by its truth.
void set_result_field(Assertion* a, nb::handle value) {
    if (!value.is_valid())
        a->set_verdict(Verdict::unset);
    else if (value.is_none())
        a->set_verdict(Verdict::tbd);
    else
        a->set_verdict(truth(value) ? Verdict::ok : Verdict::ng);
}

nb::object report_field(Assertion* a) {
    return a->has_report_flag() ? nb::object(nb::bool_(a->report_needed())) : nb::object();
}

void set_report_field(Assertion* a, nb::handle value) {
    if (value.is_valid())
        a->set_report_needed(truth(value));
    else
        a->forget_report_needed();
}

struct AssertionField {
    const char* name;
    nb::object (*get)(Assertion*);
    void (*set)(Assertion*, nb::handle);  // null handle: nothing is there any more
};

constexpr AssertionField kFields[] = {
    {"_Assertion__name", name_field, set_name_field},
    {"_Assertion__value", value_field, set_value_field},
    {"_Assertion__lower", lower_field, set_lower_field},
    {"_Assertion__upper", upper_field, set_upper_field},
    {"_Assertion__unit", unit_field, set_unit_field},
    {"_Assertion__result", result_field, set_result_field},
    {"_Assertion__assert_time", time_field, set_time_field},
    {"_Assertion__report_needed", report_field, set_report_field},
};

PyObject* get_field(PyObject* object, void* which) noexcept {
    const auto& field = *static_cast<const AssertionField*>(which);
    try {
        return need_field(object, field.get(as_assertion(object)), field.name).release().ptr();
    } catch (nb::python_error& error) {
        error.restore();
        return nullptr;
    }
}

// Called by the type's own setter of attributes, which then sees whether the collector has to know.
int set_field(PyObject* object, PyObject* value, void* which) noexcept {
    try {
        static_cast<const AssertionField*>(which)->set(as_assertion(object), value);
        return 0;
    } catch (nb::python_error& error) {
        error.restore();
        return -1;
    }
}

// Rarely set: kept in the instance dictionary under the same name.
PyObject* get_elapse(PyObject* object, void*) noexcept {
    PyObject* dict = as_assertion(object)->dict;
    PyObject* elapse = dict ? PyDict_GetItemWithError(dict, name<"_Assertion__elapse_time">()) : nullptr;
    if (!elapse && PyErr_Occurred()) return nullptr;
    return Py_NewRef(elapse ? elapse : Py_None);
}

int set_elapse(PyObject* object, PyObject* value, void*) noexcept {
    const nb::object dict = nb::steal(PyObject_GenericGetDict(object, nullptr));
    if (!dict.is_valid()) return -1;
    PyObject* key = name<"_Assertion__elapse_time">();
    return PyDict_SetItem(dict.ptr(), key, value ? value : Py_None);
}

PyObject* get_dict(PyObject* object, void* context) noexcept {
    PyObject* dict = PyObject_GenericGetDict(object, context);
    track_if_needed(object);
    return dict;
}

}  // namespace

PyGetSetDef* assertion_attributes() {
    static PyGetSetDef attributes[std::size(kFields) + 3] = {
        {"__dict__", get_dict, PyObject_GenericSetDict, nullptr, nullptr},
        {"_Assertion__elapse_time", get_elapse, set_elapse, nullptr, nullptr},
    };
    std::size_t count = 2;
    for (const AssertionField& field : kFields)
        attributes[count++] = {field.name, get_field, set_field, nullptr,
                               const_cast<AssertionField*>(&field)};
    return attributes;
}

nb::object need_field(nb::handle self, const nb::object& content, const char* field) {
    if (!content.is_valid()) raise_not_built(self, field, "Assertion");
    return content;
}

Verdict need_verdict(nb::handle self) {
    const Verdict verdict = as_assertion(self.ptr())->verdict();
    if (verdict == Verdict::unset) raise_not_built(self, "_Assertion__result", "Assertion");
    return verdict;
}

nb::object get_assertion_state(nb::handle self, const Arguments&) {
    nb::dict state;
    add_extras(state, as_assertion(self.ptr())->dict);
    for (const AssertionField& field : kFields)
        state[field.name] = need_field(self, field.get(as_assertion(self.ptr())), field.name);
    return state;
}

nb::object set_assertion_state(nb::handle self, const Arguments& args) {
    const nb::dict state = checked_state(args[0], "Assertion");
    for (const AssertionField& field : kFields) needed_in_state(state, field.name, "Assertion");
    const nb::handle result = needed_in_state(state, "_Assertion__result", "Assertion");
    const nb::handle report = needed_in_state(state, "_Assertion__report_needed", "Assertion");
    if (!result.is_none() && !PyBool_Check(result.ptr()))
        raise_formatted(PyExc_TypeError, "The verdict of an Assertion is True, False or None, not %R.",
                        result.ptr());
    if (!PyBool_Check(report.ptr()))
        raise_formatted(PyExc_TypeError, "\"_Assertion__report_needed\" must be bool, not %R.", report.ptr());
    for (const AssertionField& field : kFields)
        field.set(as_assertion(self.ptr()), take_from_state(state, field.name));
    restore_extras(self, state);
    track_if_needed(self.ptr());
    return nb::none();
}

}  // namespace ats
