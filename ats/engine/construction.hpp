// construction.hpp - building a cell from its configuration.
#pragma once

#include "module/method.hpp"

namespace ats {

nb::object construct_cell(nb::handle self, const Arguments& args);
nb::object reset_state(nb::handle self, const Arguments& args);

// Limits by item name from the first sheet of a workbook.
nb::object load_assertion_configs(nb::handle filename);
nb::object load_assertion_configs_method(nb::handle, const Arguments& args);
nb::object set_assertion_config_file(nb::handle self, const Arguments& args);
nb::object export_assertion_config(nb::handle self, const Arguments& args);

}  // namespace ats
