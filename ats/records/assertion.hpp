// assertion.hpp - one judged measurement: layout and what the engine calls without the interpreter.
#pragma once

#include <cstdint>

#include "module/record_types.hpp"
#include "records/native_type.hpp"

namespace ats {

enum class Verdict : std::uint8_t { tbd = 0, ok = 1, ng = 2 };

// A reference whose three lowest bits, zero in every object's address, carry flags of the record.
class TaggedReference {
  public:
    PyObject* get() const { return reinterpret_cast<PyObject*>(word_ & ~kMask); }
    void take(PyObject* stolen) { word_ = reinterpret_cast<std::uintptr_t>(stolen) | (word_ & kMask); }
    void assign(nb::handle value) {
        PyObject* old = get();
        take(Py_XNewRef(value.ptr()));
        Py_XDECREF(old);
    }
    std::uintptr_t flags(std::uintptr_t mask) const { return word_ & mask; }
    void set_flags(std::uintptr_t mask, std::uintptr_t flags) { word_ = (word_ & ~mask) | flags; }

  private:
    static constexpr std::uintptr_t kMask = 7;
    std::uintptr_t word_;
};

// A station records millions of assertions: flags lie in spare bits of references and a float value, as most
// are, in the record itself, which keeps a record in the allocator's 96-byte class with nothing beside it.
// The duration of the step is rarely set and lives in the instance dictionary.
struct Assertion {
    PyObject_HEAD
    PyObject* name;
    union {
        PyObject* object;
        double number;
    } value;  // which one: `lower`'s flag
    TaggedReference lower;
    PyObject* upper;
    TaggedReference unit;
    double assert_time;  // seconds since the epoch
    PyObject* dict;
    PyObject* weakrefs;

    Verdict verdict() const { return static_cast<Verdict>(unit.flags(kVerdict)); }
    void set_verdict(Verdict verdict) { unit.set_flags(kVerdict, static_cast<std::uintptr_t>(verdict)); }
    bool report_needed() const { return !unit.flags(kNoReport); }
    void set_report_needed(bool needed) { unit.set_flags(kNoReport, needed ? 0 : kNoReport); }

    bool value_is_number() const { return lower.flags(kNumber) != 0; }
    PyObject* value_object() const { return value_is_number() ? nullptr : value.object; }
    nb::object get_value() const;
    void set_value(nb::handle new_value);

  private:
    static constexpr std::uintptr_t kVerdict = 3, kNoReport = 4;  // of `unit`
    static constexpr std::uintptr_t kNumber = 1;                  // of `lower`
};

inline Assertion* as_assertion(PyObject* object) { return reinterpret_cast<Assertion*>(object); }

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

// Whether calling the class `Assertion` would do no more than `new_assertion` does.
bool makes_plain_assertions();

// The following honour what subclasses, tests and applications put in the place of the record's own methods
// and properties, be it in the class or on one object.
bool is_ok(nb::handle assertion);
bool is_ng(nb::handle assertion);
bool is_tbd(nb::handle assertion);
nb::object unit_of(nb::handle assertion);
void set_unit(nb::handle assertion, nb::handle unit);
nb::object name_of(nb::handle assertion);
nb::object value_of(nb::handle assertion);

// What the property `name` would give, borrowed and not yet an object's own; null where it must be asked.
PyObject* own_name_of(PyObject* assertion);

// The verdict words as they stand on the class now: an application may replace them.
nb::object verdict_word(Verdict verdict);

void init_assertion(nb::module_& module);

}  // namespace ats
