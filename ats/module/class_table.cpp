// class_table.cpp - from tables to classes.
#include "module/class_table.hpp"

#include "module/docstrings.hpp"

namespace ats {
namespace {

nb::object make_property(const Member& member, nb::handle scope, const char* class_name,
                         PyTypeObject* receiver) {
    const std::string attribute = member.signature;
    const nb::object get = make_method(attribute + "()", member.body, scope, class_name, receiver, true);
    nb::object set = nb::none();
    if (member.set)
        set =
            make_method(attribute + "(" + member.setter + ")", member.set, scope, class_name, receiver, true);
    return nb::borrow(reinterpret_cast<PyObject*>(&PyProperty_Type))(get, set);
}

std::string attribute_name(const Member& member) {
    const std::string signature = member.signature;
    return signature.substr(0, signature.find('('));
}

nb::object make_member(const Member& member, nb::handle scope, const char* class_name,
                       PyTypeObject* receiver) {
    if (member.form == Member::Form::property) return make_property(member, scope, class_name, receiver);
    const bool is_static = member.form == Member::Form::static_method;
    nb::object function = make_method(member.signature, member.body, scope, class_name,
                                      is_static ? nullptr : receiver, !is_static);
    if (member.form == Member::Form::abstract_method)
        nb::setattr(function, "__isabstractmethod__", nb::bool_(true));
    if (is_static) return nb::steal(or_raise(PyStaticMethod_New(function.ptr())));
    return function;
}

}  // namespace

nb::object make_class(nb::module_& module, const char* class_name, nb::tuple bases,
                      std::span<const Member> members, nb::dict constants) {
    const nb::object prepared = nb::module_::import_("types").attr("prepare_class")(class_name, bases);
    const nb::object metaclass = prepared[0];
    nb::object space = prepared[1];
    space["__module__"] = "qon_ats";
    space["__qualname__"] = class_name;
    space.attr("update")(constants);
    const nb::str qualified_name{nb::object(space["__qualname__"])};  // a nested class gives its own
    if (const char* text = find_docstring(qualified_name.c_str())) space["__doc__"] = text;
    const nb::object scope = module.attr("__dict__");
    for (const Member& member : members)
        space[attribute_name(member).c_str()] = make_member(member, scope, qualified_name.c_str(), nullptr);
    return metaclass(class_name, bases, space);
}

nb::object build_class(nb::module_& module, const char* class_name, nb::tuple bases,
                       std::span<const Member> members, nb::dict constants) {
    nb::object built = make_class(module, class_name, bases, members, constants);
    nb::setattr(module, class_name, built);
    return built;
}

void publish_type(nb::module_& module, PyTypeObject* type, const char* class_name,
                  std::span<const Member> members, nb::dict constants) {
    nb::object built = nb::borrow(reinterpret_cast<PyObject*>(type));
    const nb::object scope = module.attr("__dict__");
    for (const Member& member : members)
        nb::setattr(built, attribute_name(member).c_str(), make_member(member, scope, class_name, type));
    if (const char* text = find_docstring(class_name)) nb::setattr(built, "__doc__", nb::str(text));
    for (auto [key, value] : constants) nb::setattr(built, key, value);
    nb::setattr(module, class_name, built);
}

}  // namespace ats
