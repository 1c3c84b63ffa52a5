// judgement.cpp - the verdict rule.
#include "records/judgement.hpp"

#include "module/errors.hpp"

namespace ats {
namespace {

bool is_limit(PyObject* limit) { return limit && limit != Py_None; }

// A float, or an integer that a double holds exactly: workbooks give 4 for 4.0.
bool exact_double(PyObject* object, double& number) {
    if (PyFloat_CheckExact(object)) {
        number = PyFloat_AS_DOUBLE(object);
        return true;
    }
    if (!PyLong_CheckExact(object)) return false;
    constexpr long long kExact = 1LL << 53;
    int overflow = 0;
    const long long integer = PyLong_AsLongLongAndOverflow(object, &overflow);
    number = static_cast<double>(integer);
    return overflow == 0 && -kExact <= integer && integer <= kExact;
}

bool holds(PyObject* value, PyObject* limit, int operation) {
    double left = 0.0, right = 0.0;
    if (exact_double(value, left) && exact_double(limit, right))
        return operation == Py_GE ? left >= right : left <= right;
    // Not PyObject_RichCompareBool: that takes an object for equal to itself, and a NaN is within no limits.
    const nb::object answer = nb::steal(or_raise(PyObject_RichCompare(value, limit, operation)));
    const int truth = PyObject_IsTrue(answer.ptr());
    if (truth < 0) throw nb::python_error();
    return truth == 1;
}

}  // namespace

Verdict verdict_of_result(nb::handle result) {
    bool ok = false;
    if (PyUnicode_Check(result.ptr())) {
        const nb::object text = result.attr("lower")();
        ok = PyObject_RichCompareBool(text.ptr(), name<"ok">(), Py_EQ) == 1 ||
             PyObject_RichCompareBool(text.ptr(), name<"pass">(), Py_EQ) == 1;
        if (PyErr_Occurred()) throw nb::python_error();
    } else {
        const int truth = PyObject_IsTrue(result.ptr());
        if (truth < 0) throw nb::python_error();
        ok = truth == 1;
    }
    return ok ? Verdict::ok : Verdict::ng;
}

Verdict judge(PyObject* value, PyObject* lower, PyObject* upper) {
    bool ok = true;
    if (is_limit(lower)) ok = holds(value, lower, Py_GE);
    // As `ok and value <= upper` in the script's own language: a value below is not compared again.
    if (ok && is_limit(upper)) ok = holds(value, upper, Py_LE);
    return ok ? Verdict::ok : Verdict::ng;
}

}  // namespace ats
