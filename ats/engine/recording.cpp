// recording.cpp - from a measurement to a judged and recorded assertion; the path every measurement takes.
#include "engine/recording.hpp"

#include "engine/assertion_queue.hpp"
#include "engine/cell_lookups.hpp"
#include "engine/engine.hpp"
#include "module/errors.hpp"
#include "module/fields.hpp"
#include "module/imports.hpp"
#include "records/control.hpp"
#include "records/uut.hpp"

namespace ats {
namespace {

// `configs.get(item_name)`.
nb::object configured_limits(nb::handle configs, PyObject* item_name) {
    if (!PyDict_CheckExact(configs.ptr())) return configs.attr("get")(nb::handle(item_name));
    PyObject* found = find(configs.ptr(), item_name);
    return nb::borrow(found ? found : Py_None);
}

// The limits that reach the assertion: those configured for this very name, None included, else the script's.
struct Limits {
    nb::object lower, upper;
    Limits(nb::handle cell, PyObject* item_name, const Measurement& m)
        : lower(nb::borrow(m.lower)), upper(nb::borrow(m.upper)) {
        const nb::object configs = assertion_configs_of(cell);
        if (configs.is_none()) return;
        const nb::object parameter = configured_limits(configs, item_name);
        if (parameter.is_none()) return;
        lower = slot_field<"low">(parameter);
        upper = slot_field<"up">(parameter);
    }
};

nb::object judged(nb::handle cell, const Judgement& judgement) {
    const Limits limits(cell, judgement.item_name, judgement.measurement);
    Measurement measurement = judgement.measurement;
    measurement.lower = limits.lower.ptr();
    measurement.upper = limits.upper.ptr();
    if (makes_plain_assertions()) return new_assertion(judgement.item_name, measurement);
    return own_name<"Assertion">()(nb::handle(judgement.item_name), nb::handle(measurement.value),
                                   nb::handle(measurement.lower), nb::handle(measurement.upper),
                                   nb::handle(measurement.unit), nb::handle(measurement.result));
}

nb::object record(nb::handle cell, const Judgement& judgement) {
    nb::object assertion = judged(cell, judgement);
    if (facts_of(cell).append)
        append(cell, assertion, judgement.stop_if_ng, judgement.category);
    else
        cell.attr("append")(assertion, nb::handle(judgement.stop_if_ng), nb::handle(judgement.category));
    return assertion;
}

void add_to_category(nb::handle categories, nb::handle category, nb::handle assertion) {
    if (PyDict_CheckExact(categories.ptr())) {
        PyObject* list = PyDict_GetItemWithError(categories.ptr(), category.ptr());
        if (list && PyList_CheckExact(list)) {
            if (PyList_Append(list, assertion.ptr()) < 0) throw nb::python_error();
            return;
        }
        if (!list && PyErr_Occurred()) throw nb::python_error();
    }
    if (!contains(categories, category)) categories[category] = nb::list();
    nb::object(categories[category]).attr("append")(assertion);
}

// The list of the category "all", borrowed; null where there is none, or nothing plain.
PyObject* list_of_all(PyObject* categories) {
    if (!categories || !PyDict_CheckExact(categories)) return nullptr;
    static KeptOfDict<PyObject*> kept;
    return kept.of(categories, [](PyObject* dict) -> PyObject* {
        PyObject* list = find(dict, name<"all">());
        return list && PyList_CheckExact(list) ? list : nullptr;
    });
}

void categorise(nb::handle cell, nb::handle category, nb::handle assertion) {
    const nb::object categories = categories_of(cell);
    const nb::handle all(name<"all">());
    if (PyObject* list = category.is(all) ? list_of_all(categories.ptr()) : nullptr) {
        if (PyList_Append(list, assertion.ptr()) < 0) throw nb::python_error();
        return;
    }
    bool in_all = false;
    if (PyList_Check(category.ptr())) {
        for (nb::handle each : nb::tuple(category)) {  // a copy: adding may run code that changes the list
            add_to_category(categories, each, assertion);
            in_all = in_all || each.equal(all);
        }
    } else if (category.ptr() == all.ptr() || (!category.is_none() && category.equal(all))) {
        // falls through to "all" below
    } else if (!category.is_none()) {
        add_to_category(categories, category, assertion);
    }
    if (!in_all) add_to_category(categories, all, assertion);
}

void demand_hashable(nb::handle name) {
    if (!PyUnicode_CheckExact(name.ptr()) && PyObject_Hash(name.ptr()) == -1) throw nb::python_error();
}

// What could not be recorded whole is refused before anything of it is recorded.
void check_before_recording(nb::handle assertion, nb::handle category) {
    demand_methods(assertion, "append", {name<"get_unit">(), name<"is_ng">(), name<"get_name">()});
    if (PyList_Check(category.ptr()))
        for (nb::handle each : nb::tuple(category)) demand_hashable(each);
    else
        demand_hashable(category);
}

// Unit, queue and category "all" of a cell in which nothing was replaced; false, and nothing done, elsewhere.
// Between looking and doing no Python code runs.
bool file_plainly(nb::handle cell, nb::handle assertion, nb::handle category) {
    if (category.ptr() != name<"all">()) return false;
    const CellFacts& facts = facts_of(cell);
    PyObject* of_unit = facts.unit ? open_list(facts.unit) : nullptr;
    PyObject* of_all = list_of_all(facts.categories);
    if (!of_unit || !of_all || !facts.queue || !takes_directly(facts.queue)) return false;
    const nb::object kept = nb::borrow(of_all);  // a queue of limited length lets go of another assertion
    if (PyList_Append(of_unit, assertion.ptr()) < 0) throw nb::python_error();
    put_directly(facts.queue, assertion);
    if (PyList_Append(of_all, assertion.ptr()) < 0) throw nb::python_error();
    return true;
}

bool stops_at_ng(nb::handle cell, nb::handle stop_if_ng) {
    if (!stop_if_ng.is_none()) return truth(stop_if_ng);
    return truth(configured(cell, name<"stop_if_ng">(), Py_True));
}

Judgement from_limits_call(const Arguments& args) {
    return {args[0].ptr(),
            {args[1].ptr(), args[2].ptr(), args[3].ptr(), args[4].ptr(), args[5].ptr()},
            args[6].ptr(),
            args[7].ptr()};
}

Judgement from_result_call(const Arguments& args) {
    return {args[0].ptr(),
            {args[1].ptr(), args[4].ptr(), args[5].ptr(), args[3].ptr(), args[2].ptr()},
            args[6].ptr(),
            args[7].ptr()};
}

}  // namespace

nb::object append_method(nb::handle self, const Arguments& args) {
    append(self, args[0], args[1], args[2]);
    return nb::none();
}

nb::object assert_with_limits_method(nb::handle self, const Arguments& args) {
    return record(self, from_limits_call(args));
}

nb::object assert_with_result_method(nb::handle self, const Arguments& args) {
    return record(self, from_result_call(args));
}

nb::object try_limits_method(nb::handle self, const Arguments& args) {
    return judged(self, {args[0].ptr(),
                         {args[1].ptr(), args[2].ptr(), args[3].ptr(), args[4].ptr(), args[5].ptr()},
                         nullptr,
                         nullptr});
}

// A negative mean gives a lower bound above the upper one: nothing passes, and the operator sees why.
nb::object assert_with_percent_limits_method(nb::handle self, const Arguments& args) {
    const double mean = PyFloat_AS_DOUBLE(args[2].ptr());
    const double percent = PyFloat_AS_DOUBLE(args[3].ptr());
    const nb::float_ lower((100.0 - percent) * mean / 100.0);
    const nb::float_ upper((100.0 + percent) * mean / 100.0);
    return assert_with_limits(self, {args[0].ptr(),
                                     {args[1].ptr(), lower.ptr(), upper.ptr(), args[4].ptr(), args[5].ptr()},
                                     args[6].ptr(),
                                     args[7].ptr()});
}

nb::object assert_with_limits(nb::handle cell, const Judgement& j) {
    if (facts_of(cell).assert_with_limits) return record(cell, j);
    const Measurement& m = j.measurement;
    return cell.attr("assert_with_limits")(nb::handle(j.item_name), nb::handle(m.value), nb::handle(m.lower),
                                           nb::handle(m.upper), nb::handle(m.unit), nb::handle(m.result),
                                           nb::handle(j.stop_if_ng), nb::handle(j.category));
}

nb::object assert_with_result(nb::handle cell, const Judgement& j) {
    if (facts_of(cell).assert_with_result) return record(cell, j);
    const Measurement& m = j.measurement;
    return cell.attr("assert_with_result")(nb::handle(j.item_name), nb::handle(m.value), nb::handle(m.result),
                                           nb::handle(m.unit), nb::handle(m.lower), nb::handle(m.upper),
                                           nb::handle(j.stop_if_ng), nb::handle(j.category));
}

void append(nb::handle cell, nb::handle assertion, nb::handle stop_if_ng, nb::handle category) {
    check_before_recording(assertion, category);
    if (lacks_unit(assertion)) set_unit(assertion, configured(cell, name<"none_unit">(), name<"">()));
    if (!file_plainly(cell, assertion, category)) {
        append_assertion(unit_of_run(cell), assertion);
        put(queue_of(cell), assertion);
        categorise(cell, category, assertion);
    }
    if (!is_ng(assertion)) return;
    field<"_ng_items">(cell).attr("append")(assertion);
    if (stops_at_ng(cell, stop_if_ng)) raise_ng(name_of(assertion));
}

}  // namespace ats
