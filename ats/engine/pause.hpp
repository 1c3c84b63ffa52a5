// pause.hpp - cooperative pause and abort, and the sleep that honours both.
#pragma once

#include "module/method.hpp"

namespace ats {

nb::object is_paused(nb::handle self, const Arguments& args);
nb::object pause(nb::handle self, const Arguments& args);
nb::object resume(nb::handle self, const Arguments& args);
nb::object check_pause(nb::handle self, const Arguments& args);
nb::object abort_run(nb::handle self, const Arguments& args);
nb::object check_abort(nb::handle self, const Arguments& args);
nb::object is_aborted(nb::handle self, const Arguments& args);
nb::object debug_pause(nb::handle self, const Arguments& args);
nb::object sleep(nb::handle self, const Arguments& args);
nb::object pausable(nb::handle self, const Arguments& args);
nb::object abortable(nb::handle self, const Arguments& args);
nb::object call_pausable(nb::handle self, const Arguments& args);
nb::object call_abortable(nb::handle self, const Arguments& args);

}  // namespace ats
