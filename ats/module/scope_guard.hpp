// scope_guard.hpp - what has to be undone on every way out of a block.
#pragma once

#include <utility>

#include "module/names.hpp"

namespace ats {

// Calls `undo` when the block is left, also by an exception: it must not throw.
template <class Undo>
class [[nodiscard]] ScopeGuard {
  public:
    explicit ScopeGuard(Undo undo) : undo_(std::move(undo)) {}
    ~ScopeGuard() { undo_(); }
    ScopeGuard(const ScopeGuard&) = delete;
    ScopeGuard& operator=(const ScopeGuard&) = delete;

  private:
    Undo undo_;
};

// `object.method()` where nobody is left to hear of a failure: it goes to sys.unraisablehook.
inline void call_quietly(nb::handle object, PyObject* method) noexcept {
    const nb::object done = nb::steal(PyObject_CallMethodNoArgs(object.ptr(), method));
    if (!done.is_valid()) PyErr_WriteUnraisable(object.ptr());
}

// `with manager:` until the guard is gone.
inline auto enter(nb::object manager) {
    manager.attr("__enter__")();
    return ScopeGuard([manager = std::move(manager)]() noexcept {
        PyObject* arguments[] = {manager.ptr(), Py_None, Py_None, Py_None};
        const nb::object left =
            nb::steal(PyObject_VectorcallMethod(name<"__exit__">(), arguments, 4, nullptr));
        if (!left.is_valid()) PyErr_WriteUnraisable(manager.ptr());
    });
}

}  // namespace ats
