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

    static constexpr PyObject* TestItem::* kReferences[] = {
        &TestItem::name,       &TestItem::assertion,   &TestItem::test_func,     &TestItem::before_test,
        &TestItem::after_test, &TestItem::retry_count, &TestItem::retry_interval};
};

nb::object init(nb::handle self, const Arguments& args) {
    TestItem* item = reinterpret_cast<TestItem*>(self.ptr());
    std::size_t i = 0;
    for (auto reference : TestItem::kReferences) assign(item->*reference, args[i++]);
    return nb::none();
}

template <PyObject* TestItem::* field>
nb::object get(nb::handle self, const Arguments&) {
    return read(reinterpret_cast<TestItem*>(self.ptr())->*field);
}

constexpr Member kMembers[] = {
    method("__init__(name: str, assertion, test_func, before_test = None, after_test = None, "
           "retry_count: int = 0, retry_interval: float = 0.0)",
           init),
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
    publish_type(module, NativeType<TestItem>::make("qon_ats.TestItem"), "TestItem", kMembers);
}

}  // namespace ats
