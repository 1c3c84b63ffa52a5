// assertion.hpp - one judged measurement: layout and what the engine calls without the interpreter.
#pragma once

#include <cstdint>

#include "module/record_types.hpp"
#include "records/native_type.hpp"

namespace ats {

// `unset`: the record's `__init__` was not called.
enum class Verdict : std::uint8_t { unset = 0, tbd = 1, ok = 2, ng = 3 };

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
    static_assert(sizeof(std::uintptr_t) == sizeof(PyObject*));
    static_assert(alignof(PyObject) > kMask, "the flags need three bits that no object's address uses");
    std::uintptr_t word_;
};

// A float, or any other object.
union Scalar {
    PyObject* object;
    double number;
};

// A station records millions of assertions: flags lie in spare bits of references and a float value, as most
// are, in the record itself, which keeps a record in the allocator's 96-byte class with nothing beside it.
// The duration of the step is rarely set and lives in the instance dictionary.
struct Assertion {
    PyObject_HEAD
    PyObject* name;
    Scalar value;
    TaggedReference lower;
    PyObject* upper;
    TaggedReference unit;
    Scalar assert_time;  // seconds since the epoch; whatever was given
    PyObject* dict;
    PyObject* weakrefs;

    Verdict verdict() const { return static_cast<Verdict>(unit.flags(kVerdict)); }
    void set_verdict(Verdict verdict) { unit.set_flags(kVerdict, static_cast<std::uintptr_t>(verdict)); }
    bool report_needed() const { return !unit.flags(kNoReport); }
    bool has_report_flag() const { return lower.flags(kReportKnown) != 0; }
    void set_report_needed(bool needed) {
        unit.set_flags(kNoReport, needed ? 0 : kNoReport);
        lower.set_flags(kReportKnown, kReportKnown);
    }
    void forget_report_needed() { lower.set_flags(kReportKnown, 0); }

    bool value_is_number() const { return lower.flags(kValueNumber) != 0; }
    // Null where it is a number in the record itself.
    PyObject* value_object() const { return held_object(value, kValueNumber); }
    PyObject* time_object() const { return held_object(assert_time, kTimeNumber); }
    nb::object get_value() const { return get(value, kValueNumber); }
    nb::object get_assert_time() const { return get(assert_time, kTimeNumber); }
    void set_value(nb::handle new_value) { set(value, kValueNumber, new_value); }
    void set_assert_time(nb::handle new_time) { set(assert_time, kTimeNumber, new_time); }
    void set_assert_time(double seconds) {
        PyObject* old = time_object();
        assert_time.number = seconds;
        lower.set_flags(kTimeNumber, kTimeNumber);
        Py_XDECREF(old);
    }

  private:
    static constexpr std::uintptr_t kVerdict = 3, kNoReport = 4;                          // of `unit`
    static constexpr std::uintptr_t kValueNumber = 1, kTimeNumber = 2, kReportKnown = 4;  // of `lower`

    PyObject* held_object(const Scalar& scalar, std::uintptr_t number) const {
        return lower.flags(number) ? nullptr : scalar.object;
    }
    nb::object get(const Scalar& scalar, std::uintptr_t number) const;
    void set(Scalar& scalar, std::uintptr_t number, nb::handle content);
};

static_assert(sizeof(Assertion) == 80, "with the collector's 16 bytes this is the allocator's 96-byte class");

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

// Tells the collector of a record that may have become part of a reference cycle.
void track_if_needed(PyObject* assertion);

// TypeError unless `assertion` has all these methods; `function` is going to call them.
void demand_methods(nb::handle assertion, const char* function, std::initializer_list<PyObject*> methods);

// Whether calling the class `Assertion` would do no more than `new_assertion` does.
bool makes_plain_assertions();

// The following honour what subclasses, tests and applications put in the place of the record's own methods
// and properties, be it in the class or on one object.
bool is_ok(nb::handle assertion);
bool is_ng(nb::handle assertion);
bool is_tbd(nb::handle assertion);
bool lacks_unit(nb::handle assertion);  // `assertion.get_unit()` gives None
void set_unit(nb::handle assertion, nb::handle unit);
nb::object name_of(nb::handle assertion);
nb::object value_of(nb::handle assertion);

// What the property `name` would give, borrowed and not yet an object's own; null where it must be asked.
PyObject* own_name_of(PyObject* assertion);

// The verdict words as they stand on the class now: an application may replace them.
nb::object verdict_word(Verdict verdict);

void init_assertion(nb::module_& module);

}  // namespace ats
