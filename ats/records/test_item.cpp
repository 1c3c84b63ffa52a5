// test_item.cpp - one step of a test, for scripts that organise their tests as a list of items.
#include "records/native_type.hpp"
#include "records/records.hpp"

namespace ats {
namespace {

// Written once at construction; the loop over items, retries included, belongs to the script.
struct TestItem {
    PyObject_HEAD
    PyObject* name;
    PyObject* assertion;
    PyObject* test_func;
    PyObject* before_test;
    PyObject* after_test;
    PyObject* retry_count;
    PyObject* retry_interval;  // seconds
    PyObject* dict;
    PyObject* weakrefs;

    static constexpr char kName[] = "TestItem";
    static constexpr Field<TestItem> kFields[] = {
        {"_TestItem__name", &TestItem::name},
        {"_TestItem__assertion", &TestItem::assertion},
        {"_TestItem__test_func", &TestItem::test_func},
        {"_TestItem__before_test", &TestItem::before_test},
        {"_TestItem__after_test", &TestItem::after_test},
        {"_TestItem__retry_count", &TestItem::retry_count},
        {"_TestItem__retry_interval", &TestItem::retry_interval},
    };
};

using Type = NativeType<TestItem>;

nb::object init(nb::handle self, const Arguments& args) {
    std::size_t i = 0;
    for (const Field<TestItem>& field : TestItem::kFields)
        assign(Type::cast(self.ptr())->*field.slot, args[i++]);
    return nb::none();
}

template <PyObject* TestItem::* slot>
nb::object get(nb::handle self, const Arguments&) {
    return Type::need<slot>(self);
}

constexpr Member kMembers[] = {
    method("__init__(name: str, assertion, test_func, before_test = None, after_test = None, "
           "retry_count: int = 0, retry_interval: float = 0.0)",
           init),
    method("__getstate__()", Type::get_state),
    method("__setstate__(state)", Type::set_state),
    property("name", get<&TestItem::name>),
    property("assertion", get<&TestItem::assertion>),
    property("test_func", get<&TestItem::test_func>),
    property("before_test", get<&TestItem::before_test>),
    property("after_test", get<&TestItem::after_test>),
    property("retry_count", get<&TestItem::retry_count>),
    property("retry_interval", get<&TestItem::retry_interval>),
};

}  // namespace

void init_test_item(nb::module_& module) {
    publish_type(module, Type::make("qon_ats.TestItem"), "TestItem", kMembers);
}

}  // namespace ats
