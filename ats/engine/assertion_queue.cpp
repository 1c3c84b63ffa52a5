// assertion_queue.cpp - a queue.Queue whose put is native while nobody contends for it.
#include "engine/assertion_queue.hpp"

#include "engine/engine.hpp"
#include "module/fields.hpp"
#include "module/imports.hpp"

namespace ats {
namespace {

PyObject* queue_class = nullptr;
PyObject* zero = nullptr;

PyObject* entry(PyObject* dict, PyObject* key) { return PyDict_GetItem(dict, key); }

bool is_locked(PyObject* mutex) {
    const nb::object answer = nb::steal(PyObject_CallMethodNoArgs(mutex, name<"locked">()));
    if (!answer.is_valid()) throw nb::python_error();
    return answer.ptr() != Py_False;
}

// Does what Queue.put does between taking and releasing its lock.  The interpreter lock stands in for it: with
// the mutex free no thread is inside the queue, and nothing here lets another one run.  Returns false, having
// done nothing, where a waiting consumer must be woken or anything is not as a plain queue has it.
bool put_directly(PyObject* dict, PyObject* item) {
    PyObject* mutex = entry(dict, name<"mutex">());
    PyObject* items = entry(dict, name<"queue">());
    PyObject* not_empty = entry(dict, name<"not_empty">());
    PyObject* tasks = entry(dict, name<"unfinished_tasks">());
    if (!mutex || !items || !not_empty || !tasks || entry(dict, name<"maxsize">()) != zero) return false;
    PyObject* shut_down = entry(dict, name<"is_shutdown">());
    if (shut_down && shut_down != Py_False) return false;
    PyObject* condition = instance_dict(not_empty);
    PyObject* waiters = condition ? entry(condition, name<"_waiters">()) : nullptr;
    if (!waiters || PyObject_Size(waiters) != 0 || !PyLong_CheckExact(tasks) || is_locked(mutex)) return false;
    const nb::object count = nb::steal(PyLong_FromSsize_t(PyLong_AsSsize_t(tasks) + 1));
    const nb::object done = nb::steal(PyObject_CallMethodOneArg(items, name<"append">(), item));
    if (!done.is_valid() || !count.is_valid() ||
        PyDict_SetItem(dict, name<"unfinished_tasks">(), count.ptr()) < 0)
        throw nb::python_error();
    return true;
}

void put_as_queue(nb::handle self, nb::handle item, nb::handle block, nb::handle timeout) {
    python_module<"queue">().attr("Queue").attr("put")(self, item, block, timeout);
}

nb::object put_method(nb::handle self, const Arguments& args) {
    PyObject* dict = instance_dict(self);
    if (Py_TYPE(self.ptr()) != reinterpret_cast<PyTypeObject*>(queue_class) || !dict ||
        !put_directly(dict, args[0].ptr()))
        put_as_queue(self, args[0], args[1], args[2]);
    return nb::none();
}

constexpr Member kMembers[] = {
    method("put(item, block = True, timeout = None)", put_method),
};

}  // namespace

nb::object new_assertion_queue() { return nb::handle(queue_class)(); }

void put(nb::handle queue, nb::handle item) {
    if (Py_TYPE(queue.ptr()) == reinterpret_cast<PyTypeObject*>(queue_class)) {
        PyObject* dict = instance_dict(queue);
        if (dict && !entry(dict, name<"put">()) &&
            native_body(_PyType_Lookup(Py_TYPE(queue.ptr()), name<"put">())) == put_method &&
            put_directly(dict, item.ptr()))
            return;
    }
    queue.attr("put")(item);
}

void init_assertion_queue(nb::module_& module) {
    zero = PyLong_FromLong(0);
    const nb::tuple bases = nb::make_tuple(python_module<"queue">().attr("Queue"));
    queue_class = build_class(module, "_AssertionQueue", bases, kMembers).release().ptr();
}

}  // namespace ats
