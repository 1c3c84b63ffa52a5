// signature.cpp - parsing signature texts; binding and checking the arguments of a call.
#include "module/signature.hpp"

namespace ats {
namespace {

using signature_check::strip;

nb::object evaluate(std::string_view text, nb::handle scope) {
    const std::string source(text);
    return nb::steal<nb::object>(
        or_raise(PyRun_String(source.c_str(), Py_eval_input, scope.ptr(), scope.ptr())));
}

Kind kind_of(std::string_view annotation) {
    if (annotation == "str") return Kind::text;
    if (annotation == "int") return Kind::integer;
    if (annotation == "bool") return Kind::boolean;
    if (annotation == "float") return Kind::real;
    return Kind::real_as_given;  // "float!"; the compiler has refused all others
}

PyTypeObject* type_of(Kind kind) {
    switch (kind) {
        case Kind::text:
            return &PyUnicode_Type;
        case Kind::integer:
            return &PyLong_Type;
        case Kind::boolean:
            return &PyBool_Type;
        default:
            return &PyFloat_Type;
    }
}

nb::object annotation_of(const Parameter& parameter) {
    const nb::object type = nb::borrow(reinterpret_cast<PyObject*>(type_of(parameter.kind)));
    return parameter.none_ok ? type | nb::none() : type;
}

// Most checked arguments are texts.
bool is_plain_text(const Parameter& parameter, PyObject* value) {
    return parameter.kind == Kind::text && PyUnicode_CheckExact(value);
}

bool is_real(PyObject* value) {
    if (PyFloat_Check(value) || PyLong_Check(value)) return true;
    const PyNumberMethods* number = Py_TYPE(value)->tp_as_number;
    return number && (number->nb_float || number->nb_index) && !PyComplex_Check(value);
}

}  // namespace

void Arguments::own(std::size_t index, nb::object value) {
    values_[index] = value.ptr();
    owned_[owned_count_++] = std::move(value);
}

Signature::Signature(std::string_view text, nb::handle scope) {
    const auto open = text.find('(');
    const auto close = text.rfind(')');
    function_name_ = std::string(text.substr(0, open));
    std::string_view rest = strip(text.substr(open + 1, close - open - 1));
    while (!rest.empty()) {
        const auto comma = rest.find(',');
        parse_parameter(strip(rest.substr(0, comma)), scope);
        rest = comma == std::string_view::npos ? std::string_view{} : strip(rest.substr(comma + 1));
    }
}

void Signature::parse_parameter(std::string_view text, nb::handle scope) {
    Parameter parameter;
    const int index = static_cast<int>(parameters_.size());
    if (text.starts_with("**")) {
        keyword_rest_ = index;
        text.remove_prefix(2);
    } else if (text.starts_with("*")) {
        rest_ = index;
        text.remove_prefix(1);
    } else {
        ++positional_;
    }
    if (const auto equals = text.find('='); equals != std::string_view::npos) {
        parameter.default_value = evaluate(strip(text.substr(equals + 1)), scope);
        text = strip(text.substr(0, equals));
    }
    if (const auto colon = text.find(':'); colon != std::string_view::npos) {
        std::string_view annotation = strip(text.substr(colon + 1));
        parameter.none_ok = annotation.ends_with('?') || parameter.default_value.is_none();
        if (annotation.ends_with('?')) annotation.remove_suffix(1);
        parameter.kind = kind_of(annotation);
        parameter.annotation = annotation.substr(0, annotation.find('!'));
        if (parameter.none_ok) parameter.annotation += " | None";
        text = strip(text.substr(0, colon));
    }
    parameter.name = nb::steal(PyUnicode_InternFromString(std::string(text).c_str()));
    parameters_.push_back(std::move(parameter));
}

void Signature::bind(PyObject* const* args, std::size_t count, PyObject* kwnames, Arguments& bound) const {
    const std::size_t direct = std::min(count, positional_);
    for (std::size_t i = 0; i < direct; ++i) bound.values_[i] = args[i];
    if (rest_ >= 0 || keyword_rest_ >= 0 || count > positional_) collect_rest(args, count, bound);
    if (kwnames) bind_keywords(args + count, kwnames, bound);
    for (std::size_t i = 0; i < positional_; ++i) {
        const Parameter& parameter = parameters_[i];
        PyObject*& value = bound.values_[i];
        if (!value) {
            if (!parameter.default_value.is_valid()) {
                PyErr_Format(PyExc_TypeError, "%s() missing required argument '%U'", function_name_.c_str(),
                             parameter.name.ptr());
                throw nb::python_error();
            }
            value = parameter.default_value.ptr();
        } else if (parameter.kind != Kind::any && !is_plain_text(parameter, value)) {
            check(i, bound);
        }
    }
}

void Signature::collect_rest(PyObject* const* args, std::size_t count, Arguments& bound) const {
    const std::size_t extra = count > positional_ ? count - positional_ : 0;
    if (extra && rest_ < 0) {
        PyErr_Format(PyExc_TypeError, "%s() takes at most %zu arguments (%zu given)", function_name_.c_str(),
                     positional_, count);
        throw nb::python_error();
    }
    if (rest_ >= 0) {
        nb::object rest = nb::steal(PyTuple_New(static_cast<Py_ssize_t>(extra)));
        if (!rest.is_valid()) throw nb::python_error();
        for (std::size_t i = 0; i < extra; ++i)
            PyTuple_SET_ITEM(rest.ptr(), static_cast<Py_ssize_t>(i), Py_NewRef(args[positional_ + i]));
        bound.own(static_cast<std::size_t>(rest_), std::move(rest));
    }
    if (keyword_rest_ >= 0) bound.own(static_cast<std::size_t>(keyword_rest_), nb::dict());
}

void Signature::bind_keywords(PyObject* const* values, PyObject* kwnames, Arguments& bound) const {
    const Py_ssize_t count = PyTuple_GET_SIZE(kwnames);
    for (Py_ssize_t k = 0; k < count; ++k) {
        PyObject* key = PyTuple_GET_ITEM(kwnames, k);
        std::size_t i = 0;
        while (i < positional_ && parameters_[i].name.ptr() != key) ++i;
        // Keywords are interned as a rule; a computed one is found by comparing texts.
        for (std::size_t j = 0; i == positional_ && j < positional_; ++j)
            if (PyUnicode_Compare(parameters_[j].name.ptr(), key) == 0) i = j;
        if (i < positional_ && !bound.values_[i]) {
            bound.values_[i] = values[k];
        } else if (i == positional_ && keyword_rest_ >= 0) {
            if (PyDict_SetItem(bound.values_[static_cast<std::size_t>(keyword_rest_)], key, values[k]) < 0)
                throw nb::python_error();
        } else {
            PyErr_Format(PyExc_TypeError,
                         i < positional_ ? "%s() got multiple values for argument '%U'"
                                         : "%s() got an unexpected keyword argument '%U'",
                         function_name_.c_str(), key);
            throw nb::python_error();
        }
    }
}

void Signature::check(std::size_t index, Arguments& bound) const {
    const Parameter& parameter = parameters_[index];
    PyObject* value = bound.values_[index];
    if (value == Py_None && parameter.none_ok) return;
    bool fits = true;
    switch (parameter.kind) {
        case Kind::any:
            break;
        case Kind::text:
            fits = PyUnicode_Check(value);
            break;
        case Kind::integer:
            fits = PyLong_Check(value);
            break;
        case Kind::boolean:
            fits = PyBool_Check(value);
            break;
        case Kind::real_as_given:
            fits = is_real(value);
            break;
        case Kind::real:
            if (PyFloat_CheckExact(value)) return;
            if (!is_real(value)) refuse(index, value);
            bound.own(index, nb::steal(or_raise(PyNumber_Float(value))));
            return;
    }
    if (!fits) refuse(index, value);
}

void Signature::refuse(std::size_t index, nb::handle value) const {
    const Parameter& parameter = parameters_[index];
    PyErr_Format(PyExc_TypeError, "%s() argument '%U' must be %s, not %s", function_name_.c_str(),
                 parameter.name.ptr(), parameter.annotation.c_str(), Py_TYPE(value.ptr())->tp_name);
    throw nb::python_error();
}

nb::object Signature::annotations() const {
    nb::dict types;
    for (const Parameter& parameter : parameters_)
        if (!parameter.annotation.empty()) types[parameter.name] = annotation_of(parameter);
    return types;
}

nb::object Signature::as_inspect_signature(bool with_self) const {
    const nb::module_ inspect = nb::module_::import_("inspect");
    const nb::object make = inspect.attr("Parameter");
    nb::list parameters;
    if (with_self) parameters.append(make("self", make.attr("POSITIONAL_OR_KEYWORD")));
    for (std::size_t i = 0; i < parameters_.size(); ++i) {
        const Parameter& parameter = parameters_[i];
        nb::dict extras;
        if (parameter.default_value.is_valid()) extras["default"] = parameter.default_value;
        if (!parameter.annotation.empty()) extras["annotation"] = annotation_of(parameter);
        const int position = static_cast<int>(i);
        const char* kind = position == rest_           ? "VAR_POSITIONAL"
                           : position == keyword_rest_ ? "VAR_KEYWORD"
                                                       : "POSITIONAL_OR_KEYWORD";
        parameters.append(make(parameter.name, make.attr(kind), **extras));
    }
    return inspect.attr("Signature")(parameters);
}

int Signature::traverse(visitproc visit, void* arg) const {
    for (const Parameter& parameter : parameters_) Py_VISIT(parameter.default_value.ptr());
    return 0;
}

}  // namespace ats
