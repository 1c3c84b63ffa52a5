// run.hpp - starting a run, the run itself in the test thread, and its end.
#pragma once

#include "module/method.hpp"

namespace ats {

nb::object start(nb::handle self, const Arguments& args);
nb::object handle_start_request(nb::handle self, const Arguments& args);
nb::object do_start(nb::handle self, const Arguments& args);
nb::object run_script(nb::handle self, const Arguments& args);
nb::object do_run_script(nb::handle self, const Arguments& args);
nb::object make_uut_done(nb::handle self, const Arguments& args);
nb::object done(nb::handle self, const Arguments& args);

// The runner class of the script, imported or reloaded; called in the test thread.
nb::object load_runner_class(nb::handle cell, nb::handle script);

}  // namespace ats
