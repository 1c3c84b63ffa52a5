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

// Whether the class `type` reads attributes as classes do that do not say otherwise.
bool reads_attributes_plainly(PyTypeObject* type);

// Whether `attribute` of the class `type` is the method with this body: neither overridden nor patched.  A
// class that is not of the native type `receiver`, unless that is null, cannot use the body.
bool is_native_in(PyTypeObject* type, PyObject* attribute, Body body, PyTypeObject* receiver);

// The same for a property and its getter.
bool is_native_property_in(PyTypeObject* type, PyObject* attribute, Body get, PyTypeObject* receiver);

}  // namespace ats
