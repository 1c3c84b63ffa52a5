// control.hpp - exceptions that carry control flow from a script back to the engine.
#pragma once

#include "module/names.hpp"

namespace ats {

struct ControlExceptions {
    PyObject* done = nullptr;
    PyObject* abort = nullptr;
    PyObject* ng = nullptr;
};

// The classes; they live as long as the process.
inline ControlExceptions control;

[[noreturn]] void raise_done();
[[noreturn]] void raise_abort();
[[noreturn]] void raise_ng(nb::handle item_name);

}  // namespace ats
