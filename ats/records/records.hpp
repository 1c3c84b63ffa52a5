// records.hpp - registration of the records, in the order the entry point calls them.
#pragma once

#include "module/names.hpp"

namespace ats {

void init_control(nb::module_& module);
void init_assertion(nb::module_& module);
void init_uut(nb::module_& module);
void init_statistics(nb::module_& module);
void init_test_item(nb::module_& module);

}  // namespace ats
