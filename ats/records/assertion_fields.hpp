// assertion_fields.hpp - the private fields of an assertion under their Python names, and its state.
#pragma once

#include "module/method.hpp"
#include "records/assertion.hpp"

namespace ats {

// Descriptors for `_Assertion__name` and the others, and `__dict__`; ends with an empty one.
PyGetSetDef* assertion_attributes();

// Readers that refuse a half-built record: its `__init__` was not called.
Verdict need_verdict(nb::handle self);
nb::object need_field(nb::handle self, const nb::object& content, const char* field);

nb::object get_assertion_state(nb::handle self, const Arguments& args);
nb::object set_assertion_state(nb::handle self, const Arguments& args);

}  // namespace ats
