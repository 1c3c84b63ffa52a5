// names.hpp - interned Python strings, made once per name on first use.
#pragma once

#include <nanobind/nanobind.h>

#include <algorithm>
#include <cstddef>

namespace nb = nanobind;

namespace ats {

// What a call of the interpreter has made; null means that it has set an error.
inline PyObject* or_raise(PyObject* made) {
    if (!made) throw nb::python_error();
    return made;
}

template <std::size_t N>
struct Literal {
    char text[N];
    consteval Literal(const char (&source)[N]) {
        std::copy_n(source, N, text);
    }  // NOLINT: implicit on purpose
};

// `name<"uut">()` is the interned string "uut"; it lives as long as the process.
template <Literal L>
PyObject* name() {
    static PyObject* const interned = PyUnicode_InternFromString(L.text);
    return interned;
}

}  // namespace ats
