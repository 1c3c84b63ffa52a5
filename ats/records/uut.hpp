// uut.hpp - one unit under test: layout and what the engine calls without the interpreter.
#pragma once

#include "records/assertion.hpp"

namespace ats {

struct Uut {
    PyObject_HEAD
    PyObject* serial_number;  // str, or None when the run was started without one
    PyObject* assertions;     // list, in order of appending; readers need no lock
    PyObject* done_event;     // Callback of qon_handy
    PyObject* cell_number;
    double begin_time;  // seconds since the epoch
    double end_time;    // 0 while the unit is being tested
    bool done;
    PyObject* dict;
    PyObject* weakrefs;

    static constexpr PyObject* Uut::* kReferences[] = {&Uut::serial_number, &Uut::assertions,
                                                       &Uut::done_event, &Uut::cell_number};
};

// `uut.append_assertion(assertion)`, honouring overrides.
void append_assertion(nb::handle uut, nb::handle assertion);

// `uut.assertions`, honouring overrides.
nb::object assertions_of_unit(nb::handle uut);

void init_uut(nb::module_& module);

}  // namespace ats
