// script_api.hpp - registration of what a test script sees.
#pragma once

#include "module/names.hpp"

namespace ats {

void init_user_calls(nb::module_& module);
void init_runner(nb::module_& module);

}  // namespace ats
