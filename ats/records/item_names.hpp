// item_names.hpp - one object for the many equal names of a test item.
#pragma once

#include "module/names.hpp"

namespace ats {

// An equal text, as a rule the same object for all assertions of an item: scripts that build names at run
// time would else keep a text per measurement, and looking for an item would have to read all of them.  New
// reference.
PyObject* shared_item_name(PyObject* name);

}  // namespace ats
