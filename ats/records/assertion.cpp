// assertion.cpp - the assertion record: allocation, fields, the Python class.
#include "records/assertion.hpp"

#include "module/errors.hpp"
#include "module/imports.hpp"
#include "module/kept.hpp"
#include "records/item_names.hpp"
#include "records/judgement.hpp"

namespace ats {
namespace {

bool is_plain_assertion(PyObject* object) { return Py_TYPE(object) == record_types.assertion; }

// Records of plain values cannot take part in a reference cycle, so the collector need not walk them.
bool is_atomic(PyObject* value) {
    if (!value || value == Py_None) return true;
    const PyTypeObject* type = Py_TYPE(value);
    return type == &PyFloat_Type || type == &PyLong_Type || type == &PyUnicode_Type || type == &PyBool_Type ||
           type == &PyBytes_Type;
}

void track_if_needed(PyObject* object) {
    if (PyObject_GC_IsTracked(object)) return;
    const Assertion* a = as_assertion(object);
    if (is_plain_assertion(object) && !a->dict && is_atomic(a->name) && is_atomic(a->value_object()) &&
        is_atomic(a->lower.get()) && is_atomic(a->upper) && is_atomic(a->unit.get()))
        return;
    PyObject_GC_Track(object);
}

PyObject* allocate_plain() {
    Assertion* a = PyObject_GC_New(Assertion, record_types.assertion);
    if (!a) throw std::bad_alloc();
    a->name = a->value.object = a->upper = a->dict = a->weakrefs = nullptr;
    a->lower = a->unit = TaggedReference{};
    a->assert_time = 0.0;
    return reinterpret_cast<PyObject*>(a);
}

PyObject* create(PyTypeObject* type, PyObject*, PyObject*) noexcept {
    if (type != record_types.assertion) return type->tp_alloc(type, 0);
    try {
        return allocate_plain();
    } catch (const std::bad_alloc&) {
        return PyErr_NoMemory();
    }
}

int traverse(PyObject* object, visitproc visit, void* arg) {
    const Assertion* a = as_assertion(object);
    Py_VISIT(Py_TYPE(object));
    Py_VISIT(a->name);
    Py_VISIT(a->value_object());
    Py_VISIT(a->lower.get());
    Py_VISIT(a->upper);
    Py_VISIT(a->unit.get());
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
    Py_CLEAR(a->dict);
    return 0;
}

void dealloc(PyObject* object) {
    PyObject_GC_UnTrack(object);
    if (as_assertion(object)->weakrefs) PyObject_ClearWeakRefs(object);
    clear(object);
    PyTypeObject* type = Py_TYPE(object);
    type->tp_free(object);
    Py_DECREF(type);
}

int set_attribute(PyObject* object, PyObject* attribute, PyObject* value) {
    const int status = PyObject_GenericSetAttr(object, attribute, value);
    track_if_needed(object);
    return status;
}

PyObject* get_dict(PyObject* object, void* context) {
    PyObject* dict = PyObject_GenericGetDict(object, context);
    track_if_needed(object);
    return dict;
}

int set_dict(PyObject* object, PyObject* dict, void* context) {
    const int status = PyObject_GenericSetDict(object, dict, context);
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
    a->assert_time = given(m.assert_time) ? nb::cast<double>(nb::float_(nb::handle(m.assert_time))) : now();
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
    track_if_needed(self.ptr());
    a->assert_time = args.is_none(6) ? now() : nb::cast<double>(nb::float_(args[6]));
    if (is_native<"update", update>(self))
        update_fields(self.ptr(), {args[1].ptr(), args[2].ptr(), args[3].ptr(), args[4].ptr(), args[5].ptr(),
                                   args[6].ptr()});
    else
        self.attr("update")(nb::arg("value") = args[1], nb::arg("lower") = args[2],
                            nb::arg("upper") = args[3], nb::arg("unit") = args[4],
                            nb::arg("result") = args[5], nb::arg("assert_time") = args[6]);
    return nb::none();
}

nb::object or_empty(PyObject* field) {
    return field && field != Py_None ? nb::borrow(field) : nb::object(nb::str(""));
}

Verdict verdict_of(nb::handle self) { return as_assertion(self.ptr())->verdict(); }

nb::object get_name(nb::handle self, const Arguments&) { return read(as_assertion(self.ptr())->name); }
nb::object get_value(nb::handle self, const Arguments&) {
    return or_empty(as_assertion(self.ptr())->get_value().ptr());
}
nb::object get_unit(nb::handle self, const Arguments&) { return read(as_assertion(self.ptr())->unit.get()); }
nb::object lower(nb::handle self, const Arguments&) { return read(as_assertion(self.ptr())->lower.get()); }
nb::object upper(nb::handle self, const Arguments&) { return read(as_assertion(self.ptr())->upper); }
nb::object get_lower(nb::handle self, const Arguments&) {
    return or_empty(as_assertion(self.ptr())->lower.get());
}
nb::object get_upper(nb::handle self, const Arguments&) { return or_empty(as_assertion(self.ptr())->upper); }
nb::object result(nb::handle self, const Arguments&) { return verdict_word(verdict_of(self)); }

// The getters repeat the property that a subclass may have replaced.
nb::object value_by_property(nb::handle self, const Arguments&) { return self.attr("value"); }
nb::object unit_by_property(nb::handle self, const Arguments&) { return self.attr("unit"); }
nb::object name_by_property(nb::handle self, const Arguments&) { return self.attr("name"); }
nb::object result_by_property(nb::handle self, const Arguments&) { return self.attr("result"); }

nb::object get_result_as_bool(nb::handle self, const Arguments&) {
    if (verdict_of(self) == Verdict::tbd) return nb::none();
    return nb::bool_(verdict_of(self) == Verdict::ok);
}

nb::object is_ok_method(nb::handle self, const Arguments&) {
    return nb::bool_(verdict_of(self) == Verdict::ok);
}
nb::object is_ng_method(nb::handle self, const Arguments&) {
    return nb::bool_(verdict_of(self) == Verdict::ng);
}
nb::object is_tbd_method(nb::handle self, const Arguments&) {
    return nb::bool_(verdict_of(self) == Verdict::tbd);
}

nb::object set_unit_method(nb::handle self, const Arguments& args) {
    as_assertion(self.ptr())->unit.assign(args[0]);
    track_if_needed(self.ptr());
    return nb::none();
}

nb::object report_needed(nb::handle self, const Arguments&) {
    return nb::bool_(as_assertion(self.ptr())->report_needed());
}

nb::object set_report_needed(nb::handle self, const Arguments& args) {
    as_assertion(self.ptr())->set_report_needed(args[0].ptr() == Py_True);
    return nb::none();
}

nb::object assert_time(nb::handle self, const Arguments&) {
    return nb::float_(as_assertion(self.ptr())->assert_time);
}

nb::object get_elapse_time(nb::handle self, const Arguments&) {
    PyObject* dict = as_assertion(self.ptr())->dict;
    PyObject* elapse = dict ? PyDict_GetItem(dict, name<"_Assertion__elapse_time">()) : nullptr;
    return read(elapse);
}

nb::object set_elapse_time(nb::handle self, const Arguments& args) {
    if (set_attribute(self.ptr(), name<"_Assertion__elapse_time">(), args[0].ptr()) < 0)
        throw nb::python_error();
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

// Copying and pickling: the fields in the order of the layout, and what users added.
nb::object reduce(nb::handle self, const Arguments&) {
    const Assertion* a = as_assertion(self.ptr());
    const nb::object added = a->dict ? nb::object(nb::borrow(a->dict)) : nb::object(nb::dict());
    const nb::tuple state = nb::make_tuple(
        read(a->name), a->get_value(), read(a->lower.get()), read(a->upper), read(a->unit.get()),
        static_cast<int>(a->verdict()), a->report_needed(), a->assert_time, added);
    return nb::make_tuple(nb::module_::import_("copyreg").attr("__newobj__"), nb::make_tuple(self.type()),
                          state);
}

nb::object set_state(nb::handle self, const Arguments& args) {
    Assertion* a = as_assertion(self.ptr());
    const nb::tuple state = nb::cast<nb::tuple>(args[0]);
    assign(a->name, state[0]);
    a->set_value(nb::object(state[1]));
    a->lower.assign(nb::object(state[2]));
    assign(a->upper, state[3]);
    a->unit.assign(nb::object(state[4]));
    a->set_verdict(static_cast<Verdict>(nb::cast<int>(state[5])));
    a->set_report_needed(nb::cast<bool>(state[6]));
    a->assert_time = nb::cast<double>(state[7]);
    const nb::dict added(state[8]);
    if (nb::len(added) > 0) nb::object(self.attr("__dict__")).attr("update")(added);
    track_if_needed(self.ptr());
    return nb::none();
}

// Nobody put another class in the place of ours.
bool own_class_stands() {
    static std::uint64_t version = 0;  // of the namespace when it was so
    PyObject* space = module_namespace().ptr();
    if (version && dict_version(space) == version) return true;
    PyObject* found = PyDict_GetItemWithError(space, name<"Assertion">());
    if (!found && PyErr_Occurred()) throw nb::python_error();
    const bool stands = found == reinterpret_cast<PyObject*>(record_types.assertion);
    version = stands ? dict_version(space) : 0;
    return stands;
}

constexpr Member kMembers[] = {
    method(
        "__init__(name: str = '', value = None, lower = None, upper = None, unit: str? = '', result = None, "
        "assert_time = None, report_needed: bool = True)",
        init),
    method("__repr__()", represent),
    method("__reduce__()", reduce),
    method("__setstate__(state)", set_state),
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
    property("unit", get_unit, "unit: str?", set_unit_method),
    method("get_unit()", unit_by_property),
    method("set_unit(unit: str?)", set_unit_method),
    method("is_ok()", is_ok_method),
    method("is_ng()", is_ng_method),
    method("is_tbd()", is_tbd_method),
    property("assert_time", assert_time),
    method("set_elapse_time(time)", set_elapse_time),
    method("get_elapse_time()", get_elapse_time),
};

}  // namespace

nb::object Assertion::get_value() const {
    if (value_is_number()) return nb::steal(nb::detail::raise_if_null(PyFloat_FromDouble(value.number)));
    return read(value.object);
}

void Assertion::set_value(nb::handle new_value) {
    PyObject* old = value_object();
    if (new_value.ptr() && PyFloat_CheckExact(new_value.ptr())) {
        value.number = PyFloat_AS_DOUBLE(new_value.ptr());
        lower.set_flags(kNumber, kNumber);
    } else {
        value.object = Py_XNewRef(new_value.ptr());
        lower.set_flags(kNumber, 0);
    }
    Py_XDECREF(old);
}

nb::object new_assertion(PyObject* name, const Measurement& m) {
    PyObject* object = allocate_plain();
    nb::object owner = nb::steal(object);
    Assertion* a = as_assertion(object);
    a->name = shared_item_name(name);
    a->set_value(m.value);
    a->lower.take(Py_XNewRef(m.lower));
    a->upper = Py_XNewRef(m.upper);
    a->unit.take(Py_XNewRef(m.unit));
    track_if_needed(object);
    a->set_verdict(verdict_for(m));
    a->assert_time = now();
    return owner;
}

bool makes_plain_assertions() {
    static KeptOfType<bool> kept;
    const auto find = [](PyTypeObject* type) {
        return is_native_in(type, name<"__init__">(), init, nullptr) &&
               is_native_in(type, name<"update">(), update, nullptr) && type->tp_new == create &&
               type->tp_setattro == set_attribute;
    };
    return kept.of(record_types.assertion, find) && own_class_stands();
}

bool is_ok(nb::handle assertion) {
    if (is_native<"is_ok", is_ok_method>(assertion, record_types.assertion))
        return verdict_of(assertion) == Verdict::ok;
    return nb::cast<bool>(nb::bool_(assertion.attr("is_ok")()));
}

bool is_ng(nb::handle assertion) {
    if (is_native<"is_ng", is_ng_method>(assertion, record_types.assertion))
        return verdict_of(assertion) == Verdict::ng;
    return nb::cast<bool>(nb::bool_(assertion.attr("is_ng")()));
}

bool is_tbd(nb::handle assertion) {
    if (is_native<"is_tbd", is_tbd_method>(assertion, record_types.assertion))
        return verdict_of(assertion) == Verdict::tbd;
    return nb::cast<bool>(nb::bool_(assertion.attr("is_tbd")()));
}

nb::object unit_of(nb::handle assertion) {
    if (is_native<"get_unit", unit_by_property>(assertion, record_types.assertion) &&
        is_native_property<"unit", get_unit>(assertion))
        return read(as_assertion(assertion.ptr())->unit.get());
    return assertion.attr("get_unit")();
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
    return nb::steal(nb::detail::raise_if_null(PyObject_GetAttr(type, key)));
}

void init_assertion(nb::module_& module) {
    static PyMemberDef members[] = {
        {"__dictoffset__", T_PYSSIZET, offsetof(Assertion, dict), READONLY, nullptr},
        {"__weaklistoffset__", T_PYSSIZET, offsetof(Assertion, weakrefs), READONLY, nullptr},
        {nullptr, 0, 0, 0, nullptr},
    };
    static PyGetSetDef attributes[] = {
        {"__dict__", get_dict, set_dict, nullptr, nullptr},
        {nullptr, nullptr, nullptr, nullptr, nullptr},
    };
    PyType_Slot slots[] = {
        {Py_tp_new, reinterpret_cast<void*>(create)},
        {Py_tp_traverse, reinterpret_cast<void*>(traverse)},
        {Py_tp_clear, reinterpret_cast<void*>(clear)},
        {Py_tp_dealloc, reinterpret_cast<void*>(dealloc)},
        {Py_tp_setattro, reinterpret_cast<void*>(set_attribute)},
        {Py_tp_members, members},
        {Py_tp_getset, attributes},
        {0, nullptr},
    };
    PyType_Spec spec{"qon_ats.Assertion", sizeof(Assertion), 0,
                     Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE | Py_TPFLAGS_HAVE_GC, slots};
    record_types.assertion =
        reinterpret_cast<PyTypeObject*>(nb::detail::raise_if_null(PyType_FromSpec(&spec)));
    nb::dict words;
    words["OK_STR"] = "OK";
    words["NG_STR"] = "NG";
    words["TBD_STR"] = "TBD";
    publish_type(module, record_types.assertion, "Assertion", kMembers, words);
}

}  // namespace ats
