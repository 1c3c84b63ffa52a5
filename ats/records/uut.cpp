// uut.cpp - the record of one unit under test.
#include "records/uut.hpp"

#include "module/errors.hpp"
#include "module/imports.hpp"
#include "module/kept.hpp"

namespace ats {
namespace {

constexpr char kNoWayBack[] = "Once an UUT is done, it could not be converted to not done.";
constexpr char kNoAssertion[] = "At least one assertion is needed when an UUT is done.";
constexpr char kAlreadyDone[] = "UUT has done, no assertion could be added.";
constexpr char kStillTbd[] = "Assertion \"%U\" is still in \"TBD\" state.";

Uut* as_uut(nb::handle self) { return reinterpret_cast<Uut*>(self.ptr()); }

nb::object init(nb::handle self, const Arguments& args) {
    Uut* uut = as_uut(self);
    uut->begin_time = now();
    uut->end_time = 0.0;
    assign(uut->serial_number, args[0]);
    uut->done = false;
    assign(uut->assertions, nb::list());
    assign(uut->done_event, imported<"Callback">()());
    assign(uut->cell_number, args[1]);
    return nb::none();
}

// A copy keeps the elements alive should the list change while an override runs.
nb::object assertions_of(nb::handle self) { return read(as_uut(self)->assertions); }

template <class Predicate>
nb::object first_assertion(nb::handle self, Predicate matches) {
    const nb::object list = assertions_of(self);
    if (!PyList_Check(list.ptr())) return nb::none();
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(list.ptr()); ++i) {
        nb::object assertion = nb::borrow(PyList_GET_ITEM(list.ptr(), i));
        if (matches(assertion)) return assertion;
    }
    return nb::none();
}

// The interpreter lock serialises appends with each other and with `done`: nothing here runs Python code
// between the check and the append.
nb::object append(nb::handle self, const Arguments& args) {
    const Uut* uut = as_uut(self);
    if (uut->done) raise(PyExc_ValueError, kAlreadyDone);
    if (!uut->assertions || PyList_Append(uut->assertions, args[0].ptr()) < 0) throw nb::python_error();
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
    return nb::bool_(as_uut(self)->done && first_assertion(self, is_ng).is_none());
}

nb::object summer(nb::handle self, const Arguments&) {
    if (PyObject_IsTrue(nb::object(self.attr("is_ng")).ptr()) == 1) return verdict_word(Verdict::ng);
    const nb::object list = assertions_of(self);
    const bool any = PyList_Check(list.ptr()) && PyList_GET_SIZE(list.ptr()) > 0;
    return verdict_word(any && as_uut(self)->done ? Verdict::ok : Verdict::tbd);
}

nb::object set_done(nb::handle self, const Arguments& args) {
    Uut* uut = as_uut(self);
    if (args[0].ptr() != Py_True) {
        if (uut->done) raise(PyExc_ValueError, kNoWayBack);
        return nb::none();
    }
    if (!uut->assertions || PyList_GET_SIZE(uut->assertions) == 0) raise(PyExc_ValueError, kNoAssertion);
    if (uut->done) return nb::none();
    const nb::object open = first_assertion(self, is_tbd);
    if (!open.is_none()) raise_formatted(PyExc_ValueError, kStillTbd, nb::str(name_of(open)).ptr());
    uut->done = true;
    uut->end_time = now();
    self.attr("done_event")(self);
    return nb::none();
}

nb::object end_time(nb::handle self, const Arguments&) {
    const double stored = as_uut(self)->end_time;
    return nb::float_(stored == 0.0 ? now() : stored);
}

nb::object set_end_time(nb::handle self, const Arguments& args) {
    as_uut(self)->end_time = PyFloat_AS_DOUBLE(args[0].ptr());
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

nb::object serial_number(nb::handle self, const Arguments&) { return read(as_uut(self)->serial_number); }
nb::object cell_number(nb::handle self, const Arguments&) { return read(as_uut(self)->cell_number); }
nb::object done_event(nb::handle self, const Arguments&) { return read(as_uut(self)->done_event); }
nb::object assertions(nb::handle self, const Arguments&) { return assertions_of(self); }
nb::object begin_time(nb::handle self, const Arguments&) { return nb::float_(as_uut(self)->begin_time); }
nb::object done(nb::handle self, const Arguments&) { return nb::bool_(as_uut(self)->done); }

nb::object set_serial_number(nb::handle self, const Arguments& args) {
    assign(as_uut(self)->serial_number, args[0]);
    return nb::none();
}

nb::object set_cell_number(nb::handle self, const Arguments& args) {
    assign(as_uut(self)->cell_number, args[0]);
    return nb::none();
}

nb::object represent(nb::handle self, const Arguments&) {
    return nb::str("<UUT {!r} cell {} {}>")
        .attr("format")(self.attr("serial_number"), self.attr("cell_number"), self.attr("summer"));
}

constexpr Member kMembers[] = {
    method("__init__(serial_number: str? = '', cell_number: int = 1)", init),
    method("__repr__()", represent),
    property("cell_number", cell_number, "value: int", set_cell_number),
    property("done_event", done_event),
    property("begin_time", begin_time),
    property("serial_number", serial_number, "value: str", set_serial_number),
    property("end_time", end_time, "time: float", set_end_time),
    property("assertions", assertions),
    property("done", done, "value: bool", set_done),
    property("elapse", elapse),
    property("is_ok", is_ok_property),
    property("is_ng", is_ng_property),
    property("summer", summer),
    method("append_assertion(assertion: Assertion)", append),
    method("first_ng_item_name()", first_ng_item_name),
    property("first_ng", first_ng),
    method("get_assertion_by_name(name: str)", get_assertion_by_name),
};

}  // namespace

void append_assertion(nb::handle uut, nb::handle assertion) {
    if (!is_native<"append_assertion", append>(uut, record_types.uut)) {
        uut.attr("append_assertion")(assertion);
        return;
    }
    if (as_uut(uut)->done) raise(PyExc_ValueError, kAlreadyDone);
    if (PyList_Append(as_uut(uut)->assertions, assertion.ptr()) < 0) throw nb::python_error();
}

nb::object assertions_of_unit(nb::handle uut) {
    if (is_native_property<"assertions", assertions>(uut, record_types.uut)) return assertions_of(uut);
    return uut.attr("assertions");
}

void init_uut(nb::module_& module) {
    record_types.uut = NativeType<Uut>::make("qon_ats.UUT");
    publish_type(module, record_types.uut, "UUT", kMembers);
}

}  // namespace ats
