// loose_verdict.cpp - reading "ok", "Yes", b"pass", 1 and the like as true.
#include "script_api/loose_verdict.hpp"

namespace ats {
namespace {

bool is_true_letter(Py_UCS4 letter) {
    constexpr char32_t kLetters[] = U"TYPOtypo";
    for (const char32_t each : kLetters)
        if (each && each == letter) return true;
    return false;
}

}  // namespace

bool loosely_true(nb::handle value) {
    PyObject* object = value.ptr();
    if (PyBool_Check(object)) return object == Py_True;
    if (PyUnicode_Check(object)) {
        if (PyUnicode_GetLength(object) == 0) return false;
        return is_true_letter(PyUnicode_ReadChar(object, 0));
    }
    if (PyBytes_Check(object)) {
        if (PyBytes_GET_SIZE(object) == 0) return false;
        return is_true_letter(static_cast<unsigned char>(PyBytes_AS_STRING(object)[0]));
    }
    const nb::int_ zero(0);
    const nb::object unequal = nb::steal(or_raise(PyObject_RichCompare(object, zero.ptr(), Py_NE)));
    const int truth = PyObject_IsTrue(unequal.ptr());
    if (truth < 0) throw nb::python_error();
    return truth == 1;
}

}  // namespace ats
