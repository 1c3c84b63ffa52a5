// assertion.hpp - one judged measurement: layout and what the engine calls without the interpreter.
#pragma once

#include <cstdint>

#include "module/record_types.hpp"
#include "records/native_type.hpp"

namespace ats {

enum class Verdict : std::uint8_t { tbd = 0, ok = 1, ng = 2 };

// A reference whose three lowest bits, zero in every object's address, carry the record's flags: it keeps an
// assertion in the allocator's 96-byte class, and a station records millions of them.
class TaggedReference {
  public:
    PyObject* get() const { return reinterpret_cast<PyObject*>(word_ & ~kFlags); }
    void set(PyObject* stolen) { word_ = reinterpret_cast<std::uintptr_t>(stolen) | (word_ & kFlags); }
    Verdict verdict() const { return static_cast<Verdict>(word_ & kVerdict); }
    void set_verdict(Verdict verdict) { word_ = (word_ & ~kVerdict) | static_cast<std::uintptr_t>(verdict); }
    bool report_needed() const { return (word_ & kReport) == 0; }
    void set_report_needed(bool needed) { word_ = needed ? word_ & ~kReport : word_ | kReport; }

  private:
    static constexpr std::uintptr_t kVerdict = 3, kReport = 4, kFlags = 7;
    std::uintptr_t word_;
};

// The duration of the step is rarely set, so it lives in the instance dictionary.
struct Assertion {
    PyObject_HEAD
    PyObject* name;
    PyObject* value;
    PyObject* lower;
    PyObject* upper;
    TaggedReference unit;
    double assert_time;  // seconds since the epoch
    PyObject* dict;
    PyObject* weakrefs;
};

inline Assertion* as_assertion(PyObject* object) { return reinterpret_cast<Assertion*>(object); }
inline bool is_plain_assertion(PyObject* object) { return Py_TYPE(object) == record_types.assertion; }

// The fields of a new assertion or of an update; None or null means: not given.
struct Measurement {
    PyObject* value = nullptr;
    PyObject* lower = nullptr;
    PyObject* upper = nullptr;
    PyObject* unit = nullptr;
    PyObject* result = nullptr;
    PyObject* assert_time = nullptr;
};

// What `Assertion(name, value, lower, upper, unit, result)` makes, without calling through the interpreter.
nb::object new_assertion(PyObject* name, const Measurement& measurement);

// The following honour overrides in subclasses.
bool is_ng(nb::handle assertion);
bool is_tbd(nb::handle assertion);
nb::object unit_of(nb::handle assertion);
void set_unit(nb::handle assertion, nb::handle unit);
nb::object name_of(nb::handle assertion);

// The verdict words as they stand on the class now: an application may replace them.
nb::object verdict_word(Verdict verdict);

void init_assertion(nb::module_& module);

}  // namespace ats
