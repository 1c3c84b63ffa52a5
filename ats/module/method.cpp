// method.cpp - the method object: a vectorcall target with a checked signature.
#include "module/method.hpp"

#include <structmember.h>

#include <memory>
#include <new>

#include "module/cpython_private.hpp"
#include "module/docstrings.hpp"
#include "module/errors.hpp"
#include "module/fields.hpp"
#include "module/scope_guard.hpp"

namespace ats {
namespace {

struct MethodObject {
    PyObject_HEAD
    vectorcallfunc vectorcall;
    Body body;
    Signature* signature;
    PyTypeObject* receiver;
    bool takes_self;
    PyObject* dict;  // __name__, __qualname__, __module__, __doc__ and what users add
    PyObject* weakrefs;
};

PyTypeObject* method_type = nullptr;

MethodObject* as_method(PyObject* object) { return reinterpret_cast<MethodObject*>(object); }

void check_receiver(const MethodObject* method, PyObject* self) {
    if (!self) {
        PyErr_Format(PyExc_TypeError, "%s() needs an argument", method->signature->function_name().c_str());
        throw nb::python_error();
    }
    if (method->receiver && !PyObject_TypeCheck(self, method->receiver)) {
        PyErr_Format(PyExc_TypeError, "%s() requires a '%s' object, not '%s'",
                     method->signature->function_name().c_str(), method->receiver->tp_name,
                     Py_TYPE(self)->tp_name);
        throw nb::python_error();
    }
}

// Methods that were put in each other's place may call each other without end.  The interpreter's own count
// differs from version to version, and some of them allow more calls than a stack has room for.
constexpr int kDeepest = 1000;
#ifdef __GNUC__
[[gnu::tls_model("initial-exec")]]
#endif
thread_local int depth = 0;

PyObject* call(PyObject* callable, PyObject* const* args, std::size_t nargsf, PyObject* kwnames) noexcept {
    if (depth >= kDeepest) {
        PyErr_SetString(PyExc_RecursionError, "maximum recursion depth exceeded in a method of qon_ats");
        return nullptr;
    }
    ++depth;
    const ScopeGuard leave([]() noexcept { --depth; });
    const MethodObject* method = as_method(callable);
    std::size_t count = static_cast<std::size_t>(PyVectorcall_NARGS(nargsf));
    try {
        PyObject* self = nullptr;
        if (method->takes_self) {
            self = count ? args[0] : nullptr;
            check_receiver(method, self);
            ++args;
            --count;
        }
        Arguments bound;
        method->signature->bind(args, count, kwnames, bound);
        return method->body(self, bound).release().ptr();
    } catch (nb::python_error& error) {
        error.restore();
        add_traceback_entry(method->signature->function_name().c_str(), 0);
    } catch (const nb::builtin_exception& error) {
        PyErr_SetString(PyExc_TypeError, error.what());
    } catch (const std::bad_alloc&) {
        PyErr_NoMemory();
    } catch (const std::exception& error) {
        PyErr_SetString(PyExc_RuntimeError, error.what());
    }
    return nullptr;
}

PyObject* bind_to_instance(PyObject* method, PyObject* instance, PyObject*) {
    if (!instance || instance == Py_None) return Py_NewRef(method);
    return PyMethod_New(method, instance);
}

int traverse(PyObject* object, visitproc visit, void* arg) {
    Py_VISIT(Py_TYPE(object));
    Py_VISIT(as_method(object)->dict);
    return as_method(object)->signature ? as_method(object)->signature->traverse(visit, arg) : 0;
}

int clear(PyObject* object) {
    Py_CLEAR(as_method(object)->dict);
    return 0;
}

void dealloc(PyObject* object) {
    PyObject_GC_UnTrack(object);
    MethodObject* method = as_method(object);
    if (method->weakrefs) PyObject_ClearWeakRefs(object);
    Py_CLEAR(method->dict);
    delete method->signature;
    PyTypeObject* type = Py_TYPE(object);
    type->tp_free(object);
    Py_DECREF(type);
}

PyObject* represent(PyObject* object) {
    PyObject* dict = as_method(object)->dict;
    PyObject* qualname = dict ? PyDict_GetItemWithError(dict, name<"__qualname__">()) : nullptr;
    if (PyErr_Occurred()) return nullptr;
    return PyUnicode_FromFormat("<function %V at %p>", qualname, "?", static_cast<void*>(object));
}

PyObject* signature_of(PyObject* object, void*) noexcept {
    try {
        const MethodObject* method = as_method(object);
        return method->signature->as_inspect_signature(method->takes_self).release().ptr();
    } catch (nb::python_error& error) {
        error.restore();
        return nullptr;
    }
}

PyObject* annotations_of(PyObject* object, void*) noexcept {
    try {
        return as_method(object)->signature->annotations().release().ptr();
    } catch (nb::python_error& error) {
        error.restore();
        return nullptr;
    }
}

PyMemberDef kMembers[] = {
    {"__vectorcalloffset__", T_PYSSIZET, offsetof(MethodObject, vectorcall), READONLY, nullptr},
    {"__dictoffset__", T_PYSSIZET, offsetof(MethodObject, dict), READONLY, nullptr},
    {"__weaklistoffset__", T_PYSSIZET, offsetof(MethodObject, weakrefs), READONLY, nullptr},
    {nullptr, 0, 0, 0, nullptr},
};

PyGetSetDef kGetSet[] = {
    {"__signature__", signature_of, nullptr, nullptr, nullptr},
    {"__annotations__", annotations_of, nullptr, nullptr, nullptr},
    {"__dict__", PyObject_GenericGetDict, PyObject_GenericSetDict, nullptr, nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

}  // namespace

void init_method_type() {
    PyType_Slot slots[] = {
        {Py_tp_call, reinterpret_cast<void*>(PyVectorcall_Call)},
        {Py_tp_descr_get, reinterpret_cast<void*>(bind_to_instance)},
        {Py_tp_traverse, reinterpret_cast<void*>(traverse)},
        {Py_tp_clear, reinterpret_cast<void*>(clear)},
        {Py_tp_dealloc, reinterpret_cast<void*>(dealloc)},
        {Py_tp_repr, reinterpret_cast<void*>(represent)},
        {Py_tp_members, kMembers},
        {Py_tp_getset, kGetSet},
        {0, nullptr},
    };
    PyType_Spec spec{"qon_ats.native_method", sizeof(MethodObject), 0,
                     Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC | Py_TPFLAGS_HAVE_VECTORCALL |
                         Py_TPFLAGS_METHOD_DESCRIPTOR | Py_TPFLAGS_DISALLOW_INSTANTIATION,
                     slots};
    method_type = reinterpret_cast<PyTypeObject*>(or_raise(PyType_FromSpec(&spec)));
}

nb::object make_method(std::string_view signature, Body body, nb::handle scope, std::string_view class_name,
                       PyTypeObject* receiver, bool takes_self) {
    auto parsed = std::make_unique<Signature>(signature, scope);
    PyObject* object = or_raise(method_type->tp_alloc(method_type, 0));
    nb::object owner = nb::steal(object);
    MethodObject* method = as_method(object);
    method->vectorcall = call;
    method->body = body;
    method->receiver = receiver;
    method->takes_self = takes_self;
    method->signature = parsed.release();
    method->dict = or_raise(PyDict_New());
    const std::string& short_name = method->signature->function_name();
    const std::string qualified_name = std::string(class_name) + "." + short_name;
    nb::handle dict(method->dict);
    dict["__name__"] = nb::str(short_name.c_str());
    dict["__qualname__"] = nb::str(qualified_name.c_str());
    dict["__module__"] = nb::str("qon_ats");
    // A property takes the text over from its getter.
    if (const char* text = find_docstring(qualified_name)) dict["__doc__"] = nb::str(text);
    return owner;
}

Body native_body(PyObject* function) {
    return function && Py_TYPE(function) == method_type ? as_method(function)->body : nullptr;
}

bool reads_attributes_plainly(PyTypeObject* type) {
    PyObject* attribute = name<"__getattribute__">();
    return cpython_private::type_lookup(type, attribute) ==
           cpython_private::type_lookup(&PyBaseObject_Type, attribute);
}

bool is_native_in(PyTypeObject* type, PyObject* attribute, Body body, PyTypeObject* receiver) {
    return native_body(cpython_private::type_lookup(type, attribute)) == body &&
           reads_attributes_plainly(type) && (!receiver || PyType_IsSubtype(type, receiver));
}

bool is_native_property_in(PyTypeObject* type, PyObject* attribute, Body get, PyTypeObject* receiver) {
    PyObject* found = cpython_private::type_lookup(type, attribute);
    if (!found || !Py_IS_TYPE(found, &PyProperty_Type) || !reads_attributes_plainly(type)) return false;
    const nb::object getter = nb::handle(found).attr(nb::handle(name<"fget">()));
    return native_body(getter.ptr()) == get && (!receiver || PyType_IsSubtype(type, receiver));
}

}  // namespace ats
