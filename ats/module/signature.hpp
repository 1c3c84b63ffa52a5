// signature.hpp - a Python signature written as text, and the check of a call's arguments against it.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "module/names.hpp"
#include "module/signature_check.hpp"

namespace ats {

// What an annotation demands of an argument.  `float` takes any real number and hands over a Python float.
// With `!` behind it, it hands over what was given.
enum class Kind { any, text, integer, boolean, real, real_as_given };

struct Parameter {
    nb::object name;
    nb::object default_value;  // null: the argument is required
    Kind kind = Kind::any;
    bool none_ok = false;
    std::string annotation;
};

// The arguments of one call, in the order of the signature; `*args` and `**kwargs` come as tuple and dict.
class Arguments {
  public:
    nb::handle operator[](std::size_t index) const { return values_[index]; }
    bool is_none(std::size_t index) const { return values_[index] == Py_None; }

  private:
    friend class Signature;
    std::array<PyObject*, kMaxParameters> values_{};
    std::array<nb::object, kMaxOwned> owned_;  // converted numbers, the collected tuple and dict
    std::size_t owned_count_ = 0;

    void own(std::size_t index, nb::object value);
};

// Text form: `append(assertion: Assertion, stop_if_ng: bool = None, category = "all")`.  A `?` behind a type
// lets None in; a parameter whose default is None takes None anyway.  The receiver is not listed.
class Signature {
  public:
    // `scope`: the names that defaults may use, as the module's own namespace.
    Signature(std::string_view text, nb::handle scope);

    const std::string& function_name() const { return function_name_; }
    nb::object as_inspect_signature(bool with_self) const;
    nb::object annotations() const;  // types by name, as a function has them

    // Binds and checks; throws nb::python_error with a TypeError set.
    void bind(PyObject* const* args, std::size_t count, PyObject* kwnames, Arguments& bound) const;

    int traverse(visitproc visit, void* arg) const;

  private:
    void parse_parameter(std::string_view text, nb::handle scope);
    void bind_keywords(PyObject* const* values, PyObject* kwnames, Arguments& bound) const;
    void collect_rest(PyObject* const* args, std::size_t count, Arguments& bound) const;
    void check(std::size_t index, Arguments& bound) const;
    [[noreturn]] void refuse(std::size_t index, nb::handle value) const;

    std::string function_name_;
    std::vector<Parameter> parameters_;
    std::size_t positional_ = 0;  // without *args and **kwargs
    int rest_ = -1;               // index of *args
    int keyword_rest_ = -1;       // index of **kwargs
};

}  // namespace ats
