// pause.cpp - requests come from any thread; the script's thread notices them at its check points.
#include "engine/pause.hpp"

#include <cmath>

#include "engine/engine.hpp"
#include "module/errors.hpp"
#include "module/fields.hpp"
#include "module/imports.hpp"
#include "records/control.hpp"

namespace ats {
namespace {

constexpr char kNotInTestThread[] = "Not in cell test thread.";

bool asks_in_test_thread(nb::handle self) { return truth(self.attr("is_in_cell_test_thread")()); }

// A partial of a bound method: a plain Python object, so the collector sees the function and the cell in it.
nb::object wrap(nb::handle function, nb::object checked_call) {
    const nb::module_ functools = nb::module_::import_("functools");
    const nb::object wrapper = functools.attr("partial")(checked_call, function);
    return functools.attr("update_wrapper")(wrapper, function);
}

void sleep_seconds(double seconds) { python_module<"time">().attr("sleep")(seconds); }

double whole_slices(double ratio) {
    if (std::isnan(ratio)) raise(PyExc_ValueError, "cannot convert float NaN to integer");
    if (std::isinf(ratio)) raise(PyExc_OverflowError, "cannot convert float infinity to integer");
    return std::trunc(ratio);
}

}  // namespace

nb::object is_paused(nb::handle self, const Arguments&) { return field<"_pause_flag">(self); }

nb::object pause(nb::handle self, const Arguments&) {
    field<"_pause_event">(self).attr("clear")();
    set_field<"_pause_flag">(self, nb::bool_(true));
    if (asks_in_test_thread(self)) self.attr("check_abort")();
    return nb::none();
}

// The flag is the paused thread's to clear: the cell shows as paused until the script really goes on.
nb::object resume(nb::handle self, const Arguments&) {
    field<"_pause_event">(self).attr("set")();
    return nb::none();
}

nb::object check_pause(nb::handle self, const Arguments&) {
    if (!truth(self.attr("is_paused")())) return nb::none();
    field<"_pause_event">(self).attr("wait")();
    set_field<"_pause_flag">(self, nb::bool_(false));
    return nb::none();
}

// The event is set after the flag, so a paused thread that wakes sees the abort.
nb::object abort_run(nb::handle self, const Arguments& args) {
    set_field<"_abort_flag">(self, nb::bool_(true));
    set_field<"_result_description">(self, args[0]);
    field<"_pause_event">(self).attr("set")();
    if (asks_in_test_thread(self)) self.attr("check_abort")();
    return nb::none();
}

nb::object check_abort(nb::handle self, const Arguments&) {
    if (!asks_in_test_thread(self)) raise(PyExc_AttributeError, kNotInTestThread);
    self.attr("check_pause")();
    if (flag<"_abort_flag">(self)) raise_abort();
    return nb::none();
}

// Outside the test thread an abort counts once it is complete.
nb::object is_aborted(nb::handle self, const Arguments&) {
    if (asks_in_test_thread(self)) return field<"_abort_flag">(self);
    return nb::bool_(flag<"_abort_flag">(self) && truth(self.attr("has_done")()));
}

nb::object debug_pause(nb::handle self, const Arguments&) {
    if (truth(self.attr("is_in_debug_mode")())) self.attr("pause")();
    return nb::none();
}

nb::object sleep(nb::handle self, const Arguments& args) {
    const double seconds = PyFloat_AS_DOUBLE(args[0].ptr());
    const double interval = PyFloat_AS_DOUBLE(args[1].ptr());
    if (interval == 0.0) raise(PyExc_ZeroDivisionError, "float division");
    const double ratio = seconds / interval;
    if (ratio < 1.0) {
        sleep_seconds(seconds);
        self.attr("check_abort")();
        return nb::none();
    }
    const double begin = now();
    const double end = begin + seconds;
    const double slices_end = begin + interval * whole_slices(ratio);
    while (now() < slices_end) {
        sleep_seconds(interval);
        self.attr("check_abort")();
    }
    if (const double current = now(); current < end) {
        sleep_seconds(end - current);
        self.attr("check_abort")();
    }
    return nb::none();
}

nb::object pausable(nb::handle self, const Arguments& args) {
    return wrap(args[0], self.attr("_call_pausable"));
}

nb::object abortable(nb::handle self, const Arguments& args) {
    return self.attr("pausable")(wrap(args[0], self.attr("_call_abortable")));
}

nb::object call_pausable(nb::handle self, const Arguments& args) {
    self.attr("check_pause")();
    nb::object result = args[0](*nb::borrow<nb::tuple>(args[1]));
    self.attr("check_pause")();
    return result;
}

nb::object call_abortable(nb::handle self, const Arguments& args) {
    self.attr("check_abort")();
    nb::object result = args[0](*nb::borrow<nb::tuple>(args[1]));
    self.attr("check_abort")();
    return result;
}

}  // namespace ats
