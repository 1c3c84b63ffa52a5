// class_table.hpp - classes declared as tables: one line per method or property.
#pragma once

#include <span>

#include "module/method.hpp"

namespace ats {

struct Member {
    enum class Form { method, abstract_method, static_method, property };
    Form form;
    const char* signature;  // of a property: its name
    Body body;
    const char* setter = nullptr;  // the setter's parameter, as in "value: str"
    Body set = nullptr;
};

consteval const char* checked(const char* signature) {
    if (const char* fault = signature_check::fault_of(signature)) throw fault;
    return signature;
}

consteval Member method(const char* signature, Body body) {
    return {Member::Form::method, checked(signature), body};
}
consteval Member abstract_method(const char* signature, Body body) {
    return {Member::Form::abstract_method, checked(signature), body};
}
consteval Member static_method(const char* signature, Body body) {
    return {Member::Form::static_method, checked(signature), body};
}
constexpr Member property(const char* attribute, Body get) {
    return {Member::Form::property, attribute, get};
}
consteval Member property(const char* attribute, Body get, const char* setter, Body set) {
    if (const char* fault = signature_check::fault_of_parameters(setter)) throw fault;
    return {Member::Form::property, attribute, get, setter, set};
}

// Builds a Python class whose methods are native.  The metaclass follows from the bases, so that window
// classes and abstract classes come out as they would from a class statement.  `constants` are class
// attributes.
nb::object make_class(nb::module_& module, const char* class_name, nb::tuple bases,
                      std::span<const Member> members, nb::dict constants = {});

// The same, and publishes the class in `module`.
nb::object build_class(nb::module_& module, const char* class_name, nb::tuple bases,
                       std::span<const Member> members, nb::dict constants = {});

// Adds methods and properties to a native type and publishes it.  `constants` become class attributes.
void publish_type(nb::module_& module, PyTypeObject* type, const char* class_name,
                  std::span<const Member> members, nb::dict constants = {});

}  // namespace ats
