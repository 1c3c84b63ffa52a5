// recording.hpp - the engine's assertion operations, as the class table names them.
#pragma once

#include "module/method.hpp"

namespace ats {

nb::object append_method(nb::handle self, const Arguments& args);
nb::object assert_with_limits_method(nb::handle self, const Arguments& args);
nb::object assert_with_result_method(nb::handle self, const Arguments& args);
nb::object assert_with_percent_limits_method(nb::handle self, const Arguments& args);
nb::object try_limits_method(nb::handle self, const Arguments& args);

}  // namespace ats
