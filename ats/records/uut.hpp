// uut.hpp - one unit under test: layout and what the engine calls without the interpreter.
#pragma once

#include "records/assertion.hpp"

namespace ats {

PyObject* new_unit_lock();

struct Uut {
    PyObject_HEAD
    PyObject* begin_time;     // seconds since the epoch
    PyObject* end_time;       // 0 while the unit is being tested
    PyObject* serial_number;  // str, or None when the run was started without one
    PyObject* done;
    PyObject* assertions;  // in order of appending; readers need no lock
    PyObject* lock;        // made when somebody asks for it: until then nobody can hold it
    PyObject* done_event;  // Callback of qon_handy
    PyObject* cell_number;
    PyObject* dict;
    PyObject* weakrefs;

    static constexpr char kName[] = "UUT";
    static constexpr Field<Uut> kFields[] = {
        {"_UUT__begin_time", &Uut::begin_time},        {"_UUT__end_time", &Uut::end_time},
        {"_UUT__serial_number", &Uut::serial_number},  {"_UUT__done", &Uut::done},
        {"_UUT__assertions", &Uut::assertions},        {"_UUT__lock", &Uut::lock, false, new_unit_lock},
        {"_UUT__done_event", &Uut::done_event, false}, {"_UUT__cell_number", &Uut::cell_number},
    };
};

// `uut.append_assertion(assertion)`, honouring overrides.
void append_assertion(nb::handle uut, nb::handle assertion);

// The list that `uut.append_assertion(assertion)` would append to and do no more, borrowed; null where it is
// overridden, or the unit takes no assertion.
PyObject* open_list(nb::handle uut);

// `uut.assertions`, honouring overrides.
nb::object assertions_of_unit(nb::handle uut);

void init_uut(nb::module_& module);

}  // namespace ats
