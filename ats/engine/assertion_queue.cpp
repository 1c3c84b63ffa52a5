// assertion_queue.cpp - a queue.Queue whose put is native while nobody contends for it.
#include "engine/assertion_queue.hpp"

#include "engine/engine.hpp"
#include "module/errors.hpp"
#include "module/fields.hpp"
#include "module/imports.hpp"
#include "records/native_type.hpp"

namespace ats {
namespace {

// The fields of a queue.Queue that a put needs, held natively; the class offers them as the usual attributes,
// so that the inherited methods, and users, read and write the same.
struct QueueParts {
    PyObject_HEAD
    PyObject* items;   // `queue`
    PyObject* append;  // bound method of the items
    PyObject* mutex;
    PyObject* locked;     // bound method of the mutex
    PyObject* not_empty;  // condition
    PyObject* waiters;    // of that condition; null where it has no such list
    PyObject* max_size;
    PyObject* is_shut_down;
    Py_ssize_t unfinished_tasks;
    PyObject* dict;
    PyObject* weakrefs;

    static constexpr char kName[] = "_AssertionQueue";
    static constexpr Field<QueueParts> kFields[] = {
        {"queue", &QueueParts::items},         {nullptr, &QueueParts::append},
        {"mutex", &QueueParts::mutex},         {nullptr, &QueueParts::locked},
        {"not_empty", &QueueParts::not_empty}, {nullptr, &QueueParts::waiters},
        {"maxsize", &QueueParts::max_size},    {"is_shutdown", &QueueParts::is_shut_down},
    };
};

PyTypeObject* queue_class = nullptr;

QueueParts* parts(nb::handle queue) { return reinterpret_cast<QueueParts*>(queue.ptr()); }

// A bound method with one argument, or none where it is null; those of the interpreter's own types directly.
nb::object call_bound(PyObject* bound, PyObject* argument = nullptr) {
    if (PyCFunction_CheckExact(bound) && PyCFunction_GET_FLAGS(bound) == (argument ? METH_O : METH_NOARGS))
        return nb::steal(or_raise(PyCFunction_GET_FUNCTION(bound)(PyCFunction_GET_SELF(bound), argument)));
    PyObject* result = argument ? PyObject_CallOneArg(bound, argument) : PyObject_CallNoArgs(bound);
    return nb::steal(or_raise(result));
}

bool is_locked(const QueueParts* queue) { return call_bound(queue->locked).ptr() != Py_False; }

bool is_unbounded(const QueueParts* queue) {
    return queue->max_size && PyLong_CheckExact(queue->max_size) && PyLong_AsLong(queue->max_size) == 0;
}

Py_ssize_t waiting(const QueueParts* queue) {
    const Py_ssize_t count = PyObject_Size(queue->waiters);
    if (count < 0) throw nb::python_error();
    return count;
}

// Whether `store` may do what Queue.put does between taking and releasing its lock.  The interpreter lock
// stands in for it: with the mutex free no thread is inside the queue, and nothing here lets another one run.
// False where a waiting consumer must be woken or anything is not as a plain queue has it.
bool is_free(const QueueParts* queue) {
    if (!queue->waiters || !queue->locked || !queue->append || !is_unbounded(queue)) return false;
    if (queue->is_shut_down && queue->is_shut_down != Py_False) return false;
    return waiting(queue) == 0 && !is_locked(queue);
}

void store(QueueParts* queue, PyObject* item) {
    call_bound(queue->append, item);
    ++queue->unfinished_tasks;
}

PyObject* original_put = nullptr;    // of queue.Queue
PyObject* original_store = nullptr;  // its `_put`, which a put calls

bool is_base_native_in(PyTypeObject* type) {
    const nb::object base = python_module<"queue">().attr("Queue");
    return type == queue_class && base.attr("put").is(original_put) &&
           cpython_private::type_lookup(type, name<"_put">()) == original_store;
}

// Whether what the put of a plain queue would call is as the library has it.
bool is_base_native(nb::handle queue) {
    static KeptOfType<bool> kept;
    return kept.of(Py_TYPE(queue.ptr()), is_base_native_in) && !has_in_dict(queue.ptr(), name<"_put">());
}

nb::object put_method(nb::handle self, const Arguments& args) {
    if (is_base_native(self) && is_free(parts(self)))
        store(parts(self), args[0].ptr());
    else
        python_module<"queue">().attr("Queue").attr("put")(self, args[0], args[1], args[2]);
    return nb::none();
}

template <PyObject* QueueParts::* part>
nb::object get(nb::handle self, const Arguments&) {
    return NativeType<QueueParts>::need<part>(self);
}

template <PyObject* QueueParts::* part>
nb::object set(nb::handle self, const Arguments& args) {
    assign(parts(self)->*part, args[0]);
    return nb::none();
}

// Keeps the bound method that a put calls beside the object that it is of.
template <PyObject* QueueParts::* part, PyObject* QueueParts::* bound_method, Literal L>
nb::object set_with(nb::handle self, const Arguments& args) {
    assign(parts(self)->*part, args[0]);
    assign(parts(self)->*bound_method, field<L>(args[0]));
    return nb::none();
}

nb::object set_not_empty(nb::handle self, const Arguments& args) {
    assign(parts(self)->not_empty, args[0]);
    const nb::object waiters = nb::getattr(args[0], "_waiters", nb::handle());
    Py_CLEAR(parts(self)->waiters);
    if (waiters.is_valid()) parts(self)->waiters = Py_NewRef(waiters.ptr());
    return nb::none();
}

nb::object unfinished_tasks(nb::handle self, const Arguments&) {
    return nb::int_(parts(self)->unfinished_tasks);
}

nb::object set_unfinished_tasks(nb::handle self, const Arguments& args) {
    parts(self)->unfinished_tasks = nb::cast<Py_ssize_t>(args[0]);
    return nb::none();
}

constexpr Member kParts[] = {
    property("queue", get<&QueueParts::items>, "value",
             set_with<&QueueParts::items, &QueueParts::append, "append">),
    property("mutex", get<&QueueParts::mutex>, "value",
             set_with<&QueueParts::mutex, &QueueParts::locked, "locked">),
    property("not_empty", get<&QueueParts::not_empty>, "value", set_not_empty),
    property("maxsize", get<&QueueParts::max_size>, "value", set<&QueueParts::max_size>),
    property("is_shutdown", get<&QueueParts::is_shut_down>, "value", set<&QueueParts::is_shut_down>),
    property("unfinished_tasks", unfinished_tasks, "value: int", set_unfinished_tasks),
};

constexpr Member kQueue[] = {
    method("put(item, block = True, timeout = None)", put_method),
};

// Whether `queue.put(item)` comes down to the method of this class.
bool is_put_native(nb::handle queue) {
    static KeptOfObject<bool> kept;
    return kept.of(queue.ptr(), [](PyObject* object) {
        return is_base_native(object) && is_native<"put", put_method>(object);
    });
}

}  // namespace

nb::object new_assertion_queue() { return nb::handle(reinterpret_cast<PyObject*>(queue_class))(); }

bool takes_directly(nb::handle queue) { return is_put_native(queue) && is_free(parts(queue)); }

void put_directly(nb::handle queue, nb::handle item) { store(parts(queue), item.ptr()); }

void put(nb::handle queue, nb::handle item) {
    if (takes_directly(queue))
        put_directly(queue, item);
    else
        nb::steal(or_raise(PyObject_CallMethodOneArg(queue.ptr(), name<"put">(), item.ptr())));
}

void init_assertion_queue(nb::module_& module) {
    PyTypeObject* parts_type = NativeType<QueueParts>::make("qon_ats._QueueParts");
    publish_type(module, parts_type, "_QueueParts", kParts);
    const nb::object queue = python_module<"queue">().attr("Queue");
    original_put = nb::object(queue.attr("put")).release().ptr();
    original_store = nb::object(queue.attr("_put")).release().ptr();
    const nb::tuple bases = nb::make_tuple(nb::handle(reinterpret_cast<PyObject*>(parts_type)), queue);
    queue_class = reinterpret_cast<PyTypeObject*>(
        build_class(module, "_AssertionQueue", bases, kQueue).release().ptr());
}

}  // namespace ats
