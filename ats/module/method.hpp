// method.hpp - native functions that behave as Python functions inside a class.
#pragma once

#include "module/signature.hpp"

namespace ats {

// `self` is null for static methods.  Python errors leave as nb::python_error.
using Body = nb::object (*)(nb::handle self, const Arguments& args);

// Makes the type of all methods; once, before any class is built.
void init_method_type();

// A callable that binds as a Python function does: `instance.method` is a `types.MethodType`.
// `receiver`: the native type that `self` must be of, or null where any object will do.
nb::object make_method(std::string_view signature, Body body, nb::handle scope, std::string_view class_name,
                       PyTypeObject* receiver, bool takes_self);

// The body of `function` when it is one of our methods, else null; tells overridden from native.
Body native_body(PyObject* function);

// Whether calling `self.attribute` would run `body`: no subclass, no patch and no instance attribute in
// between.
bool is_native(nb::handle self, PyObject* attribute, Body body);

}  // namespace ats
