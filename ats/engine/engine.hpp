// engine.hpp - what the engine offers to the other folders.
#pragma once

#include "module/class_table.hpp"
#include "records/assertion.hpp"

namespace ats {

// One judgement asked for by a script; limits may be replaced by configured ones.
struct Judgement {
    PyObject* item_name;
    Measurement measurement;
    PyObject* stop_if_ng;  // None: the cell's configuration decides
    PyObject* category;
};

// `cell.assert_with_limits(...)` and `cell.assert_with_result(...)`, without the interpreter where neither is
// overridden.  Returns the recorded assertion; an NG that stops the run leaves as an exception.
nb::object assert_with_limits(nb::handle cell, const Judgement& judgement);
nb::object assert_with_result(nb::handle cell, const Judgement& judgement);

// `cell.append(assertion, stop_if_ng, category)` of the engine itself.
void append(nb::handle cell, nb::handle assertion, nb::handle stop_if_ng, nb::handle category);

bool in_test_thread(nb::handle cell);

nb::object cell_base_class();

void init_assertion_queue(nb::module_& module);
void init_cell_base(nb::module_& module);

}  // namespace ats
