// assertion.cpp - the assertion record: allocation, fields, the Python class.
#include "records/assertion.hpp"

#include "module/errors.hpp"
#include "module/fields.hpp"
#include "module/imports.hpp"
#include "module/kept.hpp"
#include "records/assertion_fields.hpp"
#include "records/item_names.hpp"
#include "records/judgement.hpp"

namespace ats {
namespace {

bool is_plain_assertion(PyObject* object) { return Py_TYPE(object) == record_types.assertion; }

// Records of plain values cannot take part in a reference cycle, so the collector need not walk them.
bool is_atomic(PyObject* value) { return !value || !PyType_IS_GC(Py_TYPE(value)); }

// Of the type itself, unknown to the collector; subclasses are allocated, and tracked, as Python does it.
PyObject* allocate(PyTypeObject* type, Py_ssize_t) noexcept {
    Assertion* a = PyObject_GC_New(Assertion, type);
    if (!a) return PyErr_NoMemory();
    a->name = a->value.object = a->upper = a->assert_time.object = a->dict = a->weakrefs = nullptr;
    a->lower = a->unit = TaggedReference{};
    return reinterpret_cast<PyObject*>(a);
}

int traverse(PyObject* object, visitproc visit, void* arg) {
    const Assertion* a = as_assertion(object);
    Py_VISIT(Py_TYPE(object));
    Py_VISIT(a->name);
    Py_VISIT(a->value_object());
    Py_VISIT(a->lower.get());
    Py_VISIT(a->upper);
    Py_VISIT(a->unit.get());
    Py_VISIT(a->time_object());
    Py_VISIT(a->dict);
    return 0;
}

int clear(PyObject* object) {
    Assertion* a = as_assertion(object);
    Py_CLEAR(a->name);
    a->set_value(nb::handle());
    a->lower.assign(nb::handle());
    Py_CLEAR(a->upper);
    a->unit.assign(nb::handle());
    a->set_assert_time(nb::handle());
    Py_CLEAR(a->dict);
    return 0;
}

// Records refer to each other in long chains: the trash can keeps their end from overflowing the stack.
void dealloc(PyObject* object) {
    PyObject_GC_UnTrack(object);
    QON_TRASHCAN_BEGIN(object, dealloc);
    if (as_assertion(object)->weakrefs) PyObject_ClearWeakRefs(object);
    clear(object);
    PyTypeObject* type = Py_TYPE(object);
    type->tp_free(object);
    Py_DECREF(type);
    QON_TRASHCAN_END;
}

int set_attribute(PyObject* object, PyObject* attribute, PyObject* value) {
    const int status = PyObject_GenericSetAttr(object, attribute, value);
    track_if_needed(object);
    return status;
}

bool given(PyObject* argument) { return argument && argument != Py_None; }

// The rule of the record: an explicit result decides, else the limits of this very call.
Verdict verdict_for(const Measurement& m) {
    if (given(m.result)) return verdict_of_result(m.result);
    return given(m.value) ? judge(m.value, m.lower, m.upper) : Verdict::tbd;
}

void update_fields(PyObject* self, const Measurement& m) {
    Assertion* a = as_assertion(self);
    if (given(m.value)) a->set_value(m.value);
    if (given(m.lower)) a->lower.assign(m.lower);
    if (given(m.upper)) assign(a->upper, m.upper);
    if (given(m.unit)) a->unit.assign(m.unit);
    track_if_needed(self);
    a->set_verdict(verdict_for(m));
    if (!given(m.assert_time)) return a->set_assert_time(now());
    a->set_assert_time(m.assert_time);
    track_if_needed(self);
}

nb::object update(nb::handle self, const Arguments& args) {
    update_fields(self.ptr(),
                  {args[0].ptr(), args[1].ptr(), args[2].ptr(), args[3].ptr(), args[4].ptr(), args[5].ptr()});
    return nb::none();
}

nb::object init(nb::handle self, const Arguments& args) {
    Assertion* a = as_assertion(self.ptr());
    assign(a->name, nb::steal(shared_item_name(args[0].ptr())));
    a->set_value(args[1]);
    a->lower.assign(args[2]);
    assign(a->upper, args[3]);
    a->unit.assign(args[4]);
    a->set_verdict(Verdict::tbd);
    a->set_report_needed(args[7].ptr() == Py_True);
    if (args.is_none(6))
        a->set_assert_time(now());
    else
        a->set_assert_time(args[6]);
    track_if_needed(self.ptr());
    if (is_native<"update", update>(self))
        update_fields(self.ptr(), {args[1].ptr(), args[2].ptr(), args[3].ptr(), args[4].ptr(), args[5].ptr(),
                                   args[6].ptr()});
    else
        self.attr("update")(nb::arg("value") = args[1], nb::arg("lower") = args[2],
                            nb::arg("upper") = args[3], nb::arg("unit") = args[4],
                            nb::arg("result") = args[5], nb::arg("assert_time") = args[6]);
    return nb::none();
}

nb::object get_name(nb::handle self, const Arguments&) {
    return need_field(self, nb::borrow(as_assertion(self.ptr())->name), "_Assertion__name");
}
nb::object stored_value(nb::handle self) {
    return need_field(self, as_assertion(self.ptr())->get_value(), "_Assertion__value");
}
nb::object get_unit(nb::handle self, const Arguments&) {
    return need_field(self, nb::borrow(as_assertion(self.ptr())->unit.get()), "_Assertion__unit");
}
nb::object lower(nb::handle self, const Arguments&) {
    return need_field(self, nb::borrow(as_assertion(self.ptr())->lower.get()), "_Assertion__lower");
}
nb::object upper(nb::handle self, const Arguments&) {
    return need_field(self, nb::borrow(as_assertion(self.ptr())->upper), "_Assertion__upper");
}

nb::object or_empty(const nb::object& content) {
    return content.is_none() ? nb::object(nb::str("")) : content;
}

nb::object get_value(nb::handle self, const Arguments&) { return or_empty(stored_value(self)); }
nb::object get_lower(nb::handle self, const Arguments& args) { return or_empty(lower(self, args)); }
nb::object get_upper(nb::handle self, const Arguments& args) { return or_empty(upper(self, args)); }
nb::object result(nb::handle self, const Arguments&) { return verdict_word(need_verdict(self)); }

// The getters repeat the property that a subclass may have replaced.
nb::object value_by_property(nb::handle self, const Arguments&) { return self.attr("value"); }
nb::object unit_by_property(nb::handle self, const Arguments&) { return self.attr("unit"); }
nb::object name_by_property(nb::handle self, const Arguments&) { return self.attr("name"); }
nb::object result_by_property(nb::handle self, const Arguments&) { return self.attr("result"); }

nb::object get_result_as_bool(nb::handle self, const Arguments&) {
    const Verdict verdict = need_verdict(self);
    return verdict == Verdict::tbd ? nb::none() : nb::object(nb::bool_(verdict == Verdict::ok));
}

template <Verdict verdict>
nb::object is(nb::handle self, const Arguments&) {
    return nb::bool_(need_verdict(self) == verdict);
}

nb::object set_unit_method(nb::handle self, const Arguments& args) {
    as_assertion(self.ptr())->unit.assign(args[0]);
    track_if_needed(self.ptr());
    return nb::none();
}

nb::object report_needed(nb::handle self, const Arguments&) {
    return field<"_Assertion__report_needed">(self);
}

nb::object set_report_needed(nb::handle self, const Arguments& args) {
    as_assertion(self.ptr())->set_report_needed(args[0].ptr() == Py_True);
    return nb::none();
}

nb::object assert_time(nb::handle self, const Arguments&) {
    return need_field(self, as_assertion(self.ptr())->get_assert_time(), "_Assertion__assert_time");
}

nb::object get_elapse_time(nb::handle self, const Arguments&) {
    return field<"_Assertion__elapse_time">(self);
}

nb::object set_elapse_time(nb::handle self, const Arguments& args) {
    set_field<"_Assertion__elapse_time">(self, args[0]);
    return nb::none();
}

nb::object export_config(nb::handle self, const Arguments&) {
    const nb::object value = self.attr("value");
    return imported<"Parameter">()(self.attr("name"), self.attr("name"), value, self.attr("lower"),
                                   self.attr("upper"), self.attr("unit"), value.type().attr("__name__"));
}

nb::object represent(nb::handle self, const Arguments&) {
    return nb::str("<Assertion {!r} value={!r} {}>")
        .attr("format")(self.attr("name"), self.attr("value"), self.attr("result"));
}

// Nobody put another class in the place of ours.
bool own_class_stands() {
    static KeptOfDict<bool> kept;
    return kept.of(module_namespace().ptr(), [](PyObject* space) {
        return find(space, name<"Assertion">()) == reinterpret_cast<PyObject*>(record_types.assertion);
    });
}

constexpr Member kMembers[] = {
    method(
        "__init__(name: str = '', value = None, lower = None, upper = None, unit: str? = '', result = None, "
        "assert_time = None, report_needed: bool = True)",
        init),
    method("__repr__()", represent),
    method("__getstate__()", get_assertion_state),
    method("__setstate__(state)", set_assertion_state),
    method("update(value = None, lower = None, upper = None, unit: str = None, result = None, "
           "assert_time = None)",
           update),
    method("export_config()", export_config),
    property("report_needed", report_needed, "value: bool", set_report_needed),
    property("name", get_name),
    method("get_name()", name_by_property),
    property("result", result),
    method("get_result()", result_by_property),
    method("get_result_as_bool()", get_result_as_bool),
    property("value", get_value),
    method("get_value()", value_by_property),
    method("get_lower()", get_lower),
    method("get_upper()", get_upper),
    property("lower", lower),
    property("upper", upper),
    property("unit", get_unit, "unit: str", set_unit_method),
    method("get_unit()", unit_by_property),
    method("set_unit(unit: str)", set_unit_method),
    method("is_ok()", is<Verdict::ok>),
    method("is_ng()", is<Verdict::ng>),
    method("is_tbd()", is<Verdict::tbd>),
    property("assert_time", assert_time),
    method("set_elapse_time(time)", set_elapse_time),
    method("get_elapse_time()", get_elapse_time),
};

}  // namespace

nb::object Assertion::get(const Scalar& scalar, std::uintptr_t number) const {
    if (!lower.flags(number)) return nb::borrow(scalar.object);
    return nb::steal(or_raise(PyFloat_FromDouble(scalar.number)));
}

void Assertion::set(Scalar& scalar, std::uintptr_t number, nb::handle content) {
    PyObject* old = held_object(scalar, number);
    if (content.ptr() && PyFloat_CheckExact(content.ptr())) {
        scalar.number = PyFloat_AS_DOUBLE(content.ptr());
        lower.set_flags(number, number);
    } else {
        scalar.object = Py_XNewRef(content.ptr());
        lower.set_flags(number, 0);
    }
    Py_XDECREF(old);
}

void track_if_needed(PyObject* object) {
    if (PyObject_GC_IsTracked(object)) return;
    Assertion* a = as_assertion(object);
    // Where the interpreter makes a new object's dictionary at once, it goes while nobody has used it.
    if (a->dict && PyDict_GET_SIZE(a->dict) == 0 && Py_REFCNT(a->dict) == 1) Py_CLEAR(a->dict);
    if (is_plain_assertion(object) && !a->dict && is_atomic(a->name) && is_atomic(a->value_object()) &&
        is_atomic(a->lower.get()) && is_atomic(a->upper) && is_atomic(a->unit.get()) &&
        is_atomic(a->time_object()))
        return;
    PyObject_GC_Track(object);
}

void demand_methods(nb::handle assertion, const char* function, std::initializer_list<PyObject*> methods) {
    if (is_assertion(assertion.ptr())) return;
    for (PyObject* method : methods)
        if (!PyCallable_Check(nb::object(nb::getattr(assertion, nb::handle(method), nb::none())).ptr()))
            raise_formatted(PyExc_TypeError, "%s() takes an assertion, or what has its method %U, not %s",
                            function, method, Py_TYPE(assertion.ptr())->tp_name);
}

namespace {
PyObject* reference_or_none(PyObject* content) { return Py_NewRef(content ? content : Py_None); }
}  // namespace

nb::object new_assertion(PyObject* name, const Measurement& m) {
    PyObject* object = or_raise(allocate(record_types.assertion, 0));
    nb::object owner = nb::steal(object);
    Assertion* a = as_assertion(object);
    a->name = shared_item_name(name);
    a->set_value(m.value ? m.value : Py_None);
    a->lower.take(reference_or_none(m.lower));
    a->upper = reference_or_none(m.upper);
    a->unit.take(reference_or_none(m.unit));
    a->set_report_needed(true);
    track_if_needed(object);
    a->set_verdict(verdict_for(m));
    a->set_assert_time(now());
    return owner;
}

bool makes_plain_assertions() {
    static KeptOfType<bool> kept;
    const auto look = [](PyTypeObject* type) {
        return is_native_in(type, name<"__init__">(), init, nullptr) &&
               is_native_in(type, name<"update">(), update, nullptr) &&
               type->tp_new == PyBaseObject_Type.tp_new && type->tp_setattro == set_attribute;
    };
    return kept.of(record_types.assertion, look) && own_class_stands();
}

bool is_ok(nb::handle assertion) {
    if (is_native<"is_ok", is<Verdict::ok>>(assertion, record_types.assertion))
        return need_verdict(assertion) == Verdict::ok;
    return nb::cast<bool>(nb::bool_(assertion.attr("is_ok")()));
}

bool is_ng(nb::handle assertion) {
    if (is_native<"is_ng", is<Verdict::ng>>(assertion, record_types.assertion))
        return need_verdict(assertion) == Verdict::ng;
    return nb::cast<bool>(nb::bool_(assertion.attr("is_ng")()));
}

bool is_tbd(nb::handle assertion) {
    if (is_native<"is_tbd", is<Verdict::tbd>>(assertion, record_types.assertion))
        return need_verdict(assertion) == Verdict::tbd;
    return nb::cast<bool>(nb::bool_(assertion.attr("is_tbd")()));
}

bool lacks_unit(nb::handle assertion) {
    if (is_native<"get_unit", unit_by_property>(assertion, record_types.assertion) &&
        is_native_property<"unit", get_unit>(assertion))
        if (PyObject* unit = as_assertion(assertion.ptr())->unit.get()) return unit == Py_None;
    return nb::object(assertion.attr("get_unit")()).is_none();
}

void set_unit(nb::handle assertion, nb::handle unit) {
    if (PyUnicode_CheckExact(unit.ptr()) &&
        is_native<"set_unit", set_unit_method>(assertion, record_types.assertion))
        as_assertion(assertion.ptr())->unit.assign(unit);
    else
        assertion.attr("set_unit")(unit);
}

nb::object name_of(nb::handle assertion) {
    if (is_native<"get_name", name_by_property>(assertion, record_types.assertion))
        if (PyObject* own = own_name_of(assertion.ptr())) return nb::borrow(own);
    return assertion.attr("get_name")();
}

PyObject* own_name_of(PyObject* assertion) {
    const bool native = is_native_property<"name", get_name>(assertion, record_types.assertion);
    return native ? as_assertion(assertion)->name : nullptr;
}

nb::object value_of(nb::handle assertion) {
    if (is_native_property<"value", get_value>(assertion, record_types.assertion) &&
        as_assertion(assertion.ptr())->value_is_number())
        return as_assertion(assertion.ptr())->get_value();
    return assertion.attr("value");
}

nb::object verdict_word(Verdict verdict) {
    PyObject* key = verdict == Verdict::tbd  ? name<"TBD_STR">()
                    : verdict == Verdict::ok ? name<"OK_STR">()
                                             : name<"NG_STR">();
    PyObject* type = reinterpret_cast<PyObject*>(record_types.assertion);
    return nb::steal(or_raise(PyObject_GetAttr(type, key)));
}

void init_assertion(nb::module_& module) {
    static PyMemberDef members[] = {
        {"__dictoffset__", T_PYSSIZET, offsetof(Assertion, dict), READONLY, nullptr},
        {"__weaklistoffset__", T_PYSSIZET, offsetof(Assertion, weakrefs), READONLY, nullptr},
        {nullptr, 0, 0, 0, nullptr},
    };
    PyType_Slot slots[] = {
        {Py_tp_alloc, reinterpret_cast<void*>(allocate)},
        {Py_tp_traverse, reinterpret_cast<void*>(traverse)},
        {Py_tp_clear, reinterpret_cast<void*>(clear)},
        {Py_tp_dealloc, reinterpret_cast<void*>(dealloc)},
        {Py_tp_setattro, reinterpret_cast<void*>(set_attribute)},
        {Py_tp_members, members},
        {Py_tp_getset, assertion_attributes()},
        {0, nullptr},
    };
    PyType_Spec spec{"qon_ats.Assertion", sizeof(Assertion), 0,
                     Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE | Py_TPFLAGS_HAVE_GC, slots};
    record_types.assertion = reinterpret_cast<PyTypeObject*>(or_raise(PyType_FromSpec(&spec)));
    nb::dict words;
    words["OK_STR"] = "OK";
    words["NG_STR"] = "NG";
    words["TBD_STR"] = "TBD";
    publish_type(module, record_types.assertion, "Assertion", kMembers, words);
}

}  // namespace ats
