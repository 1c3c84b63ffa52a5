// uut.cpp - the record of one unit under test.
#include "records/uut.hpp"

#include "module/errors.hpp"
#include "module/fields.hpp"
#include "module/imports.hpp"
#include "module/kept.hpp"
#include "module/scope_guard.hpp"

namespace ats {
namespace {

constexpr char kNoWayBack[] = "Once an UUT is done, it could not be converted to not done.";
constexpr char kNoAssertion[] = "At least one assertion is needed when an UUT is done.";
constexpr char kAlreadyDone[] = "UUT has done, no assertion could be added.";
constexpr char kStillTbd[] = "Assertion \"%U\" is still in \"TBD\" state.";

using Type = NativeType<Uut>;

Uut* as_uut(nb::handle self) { return reinterpret_cast<Uut*>(self.ptr()); }

nb::object init(nb::handle self, const Arguments& args) {
    Uut* uut = as_uut(self);
    assign(uut->begin_time, nb::float_(now()));
    assign(uut->end_time, nb::int_(0));
    assign(uut->serial_number, args[0]);
    assign(uut->done, nb::bool_(false));
    assign(uut->assertions, nb::list());
    assign(uut->lock, nb::handle());
    assign(uut->done_event, imported<"Callback">()());
    assign(uut->cell_number, args[1]);
    return nb::none();
}

template <PyObject* Uut::* slot>
nb::object get(nb::handle self, const Arguments&) {
    return Type::need<slot>(self);
}

template <PyObject* Uut::* slot>
nb::object set(nb::handle self, const Arguments& args) {
    assign(as_uut(self)->*slot, args[0]);
    return nb::none();
}

bool is_done(nb::handle self) { return truth(Type::need<&Uut::done>(self)); }

nb::object assertions_of(nb::handle self) { return Type::need<&Uut::assertions>(self); }

bool has_assertions(nb::handle self) { return truth(assertions_of(self)); }

// Each element is kept alive while it is asked, and the list may change meanwhile.
template <class Predicate>
nb::object first_assertion(nb::handle self, Predicate matches) {
    const nb::object list = assertions_of(self);
    if (!PyList_CheckExact(list.ptr())) {
        for (nb::handle assertion : list)
            if (matches(nb::borrow(assertion))) return nb::borrow(assertion);
        return nb::none();
    }
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(list.ptr()); ++i) {
        nb::object assertion = nb::borrow(PyList_GET_ITEM(list.ptr(), i));
        if (matches(assertion)) return assertion;
    }
    return nb::none();
}

void append_now(nb::handle self, nb::handle assertion) {
    if (is_done(self)) raise(PyExc_ValueError, kAlreadyDone);
    const nb::object list = assertions_of(self);
    if (!PyList_CheckExact(list.ptr()))
        list.attr("append")(assertion);
    else if (PyList_Append(list.ptr(), assertion.ptr()) < 0)
        throw nb::python_error();
}

// The interpreter lock serialises appends with each other and with `done`: no Python code runs between the
// check and the append.  The unit's own lock counts once somebody has it.
void append_locked(nb::handle self, nb::handle assertion) {
    if (!as_uut(self)->lock) return append_now(self, assertion);
    const auto held = enter(nb::borrow(as_uut(self)->lock));
    append_now(self, assertion);
}

nb::object append(nb::handle self, const Arguments& args) {
    demand_methods(args[0], "append_assertion", {name<"is_ng">()});
    append_locked(self, args[0]);
    return nb::none();
}

nb::object first_ng(nb::handle self, const Arguments&) { return first_assertion(self, is_ng); }

nb::object first_ng_item_name(nb::handle self, const Arguments&) {
    const nb::object assertion = self.attr("first_ng");
    return assertion.is_none() ? nb::object(nb::str("")) : nb::object(assertion.attr("name"));
}

nb::object is_ng_property(nb::handle self, const Arguments&) {
    return nb::bool_(!first_assertion(self, is_ng).is_none());
}

nb::object is_ok_property(nb::handle self, const Arguments&) {
    return nb::bool_(is_done(self) && first_assertion(self, is_ng).is_none());
}

nb::object summer(nb::handle self, const Arguments&) {
    if (truth(nb::object(self.attr("is_ng")))) return verdict_word(Verdict::ng);
    return verdict_word(has_assertions(self) && is_done(self) ? Verdict::ok : Verdict::tbd);
}

nb::object set_done(nb::handle self, const Arguments& args) {
    const bool was_done = is_done(self);
    if (args[0].ptr() != Py_True) {
        if (was_done) raise(PyExc_ValueError, kNoWayBack);
        return nb::none();
    }
    if (!has_assertions(self)) raise(PyExc_ValueError, kNoAssertion);
    if (was_done) return nb::none();
    const nb::object open = first_assertion(self, is_tbd);
    if (!open.is_none()) raise_formatted(PyExc_ValueError, kStillTbd, nb::str(name_of(open)).ptr());
    assign(as_uut(self)->done, nb::bool_(true));
    assign(as_uut(self)->end_time, nb::float_(now()));
    self.attr("done_event")(self);
    return nb::none();
}

nb::object end_time(nb::handle self, const Arguments&) {
    nb::object stored = Type::need<&Uut::end_time>(self);
    return stored.equal(nb::int_(0)) ? nb::object(nb::float_(now())) : stored;
}

// The subscribers stay with the original.
nb::object set_state(nb::handle self, const Arguments& args) {
    Type::set_state(self, args);
    assign(as_uut(self)->done_event, imported<"Callback">()());
    return nb::none();
}

nb::object elapse(nb::handle self, const Arguments&) {
    return self.attr("end_time") - self.attr("begin_time");
}

nb::object get_assertion_by_name(nb::handle self, const Arguments& args) {
    const nb::handle wanted = args[0];
    return first_assertion(self, [&](const nb::object& assertion) {
        PyObject* own = own_name_of(assertion.ptr());
        const nb::object held = own ? nb::borrow(own) : nb::object(assertion.attr("name"));
        const int equal = PyObject_RichCompareBool(held.ptr(), wanted.ptr(), Py_EQ);
        if (equal < 0) throw nb::python_error();
        return equal == 1;
    });
}

nb::object represent(nb::handle self, const Arguments&) {
    return nb::str("<UUT {!r} cell {} {}>")
        .attr("format")(self.attr("serial_number"), self.attr("cell_number"), self.attr("summer"));
}

constexpr Member kMembers[] = {
    method("__init__(serial_number: str? = '', cell_number: int = 1)", init),
    method("__repr__()", represent),
    method("__getstate__()", Type::get_state),
    method("__setstate__(state)", set_state),
    property("cell_number", get<&Uut::cell_number>, "value: int", set<&Uut::cell_number>),
    property("done_event", get<&Uut::done_event>),
    property("begin_time", get<&Uut::begin_time>),
    property("serial_number", get<&Uut::serial_number>, "value: str", set<&Uut::serial_number>),
    property("end_time", end_time, "time: float", set<&Uut::end_time>),
    property("assertions", get<&Uut::assertions>),
    property("done", get<&Uut::done>, "value: bool", set_done),
    property("elapse", elapse),
    property("is_ok", is_ok_property),
    property("is_ng", is_ng_property),
    property("summer", summer),
    method("append_assertion(assertion)", append),
    method("first_ng_item_name()", first_ng_item_name),
    property("first_ng", first_ng),
    method("get_assertion_by_name(name: str)", get_assertion_by_name),
};

}  // namespace

PyObject* new_unit_lock() {
    try {
        return python_module<"threading">().attr("Lock")().release().ptr();
    } catch (nb::python_error& error) {
        error.restore();
        return nullptr;
    }
}

void append_assertion(nb::handle uut, nb::handle assertion) {
    if (is_native<"append_assertion", append>(uut, record_types.uut))
        append_locked(uut, assertion);
    else
        uut.attr("append_assertion")(assertion);
}

PyObject* open_list(nb::handle uut) {
    if (!is_native<"append_assertion", append>(uut, record_types.uut)) return nullptr;
    const Uut* record = as_uut(uut);
    const bool is_open = !record->lock && record->done == Py_False && record->assertions;
    return is_open && PyList_CheckExact(record->assertions) ? record->assertions : nullptr;
}

nb::object assertions_of_unit(nb::handle uut) {
    if (is_native_property<"assertions", get<&Uut::assertions>>(uut, record_types.uut))
        return assertions_of(uut);
    return uut.attr("assertions");
}

void init_uut(nb::module_& module) {
    record_types.uut = Type::make("qon_ats.UUT");
    publish_type(module, record_types.uut, "UUT", kMembers);
}

}  // namespace ats
