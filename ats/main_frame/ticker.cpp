// ticker.cpp - the station's periodic job: ticks in the GUI thread, blocks from any thread.
#include <limits>

#include "main_frame/main_frame.hpp"
#include "module/errors.hpp"
#include "module/fields.hpp"
#include "module/imports.hpp"
#include "module/scope_guard.hpp"
#include "module/shown_dialog.hpp"

namespace ats {
namespace {

constexpr char kNoInterval[] =
    "Set a applicable ticker interval in file \"ats_config.xlsx\".\n\t\t\tIt must be greater than "
    "0.\n\t\t\tAfter "
    "setting the interval parameter, you must restart this application to apply it.";
constexpr char kTimeout[] = "Wait for ticker ending timeout.";
constexpr double kPollPeriod = 0.05;  // seconds

// The lock that guards the block count; another thread may hold it only for a moment.
auto locked_count(nb::handle frame) { return enter(field<"_ticker_locker">(frame)); }

// Marks the tick in progress; blockers wait for its end, however the tick ends.
auto tick_in_progress(nb::handle frame) {
    set_field<"_in_ticker">(frame, Py_True);
    return ScopeGuard([frame]() noexcept {
        if (PyObject_SetAttr(frame.ptr(), name<"_in_ticker">(), Py_False) < 0)
            PyErr_WriteUnraisable(frame.ptr());
    });
}

void arm(nb::handle self) { self.attr("ui_ticker_timer").attr("StartOnce")(field<"_ticker_interval">(self)); }

// Shows what went wrong; true when the operator lets the ticker go on.
bool operator_continues(nb::handle self) {
    ShownDialog dialog(imported<"TickerExceptionDialog">()(self));
    dialog.get().attr("ui_exception_trace").attr("SetValue")(formatted_exception(1));
    const nb::object answer = dialog.show();
    dialog.destroy();
    return answer.equal(python_module<"wx">().attr("ID_OK"));
}

nb::object init_blocker(nb::handle self, const Arguments& args) {
    set_field<"_frame">(self, args[0]);
    set_field<"_timeout">(self, args[1]);
    return nb::none();
}

nb::object enter_blocker(nb::handle self, const Arguments&) {
    field<"_frame">(self).attr("block_ticker")(field<"_timeout">(self));
    return nb::none();
}

nb::object exit_blocker(nb::handle self, const Arguments&) {
    field<"_frame">(self).attr("unblock_ticker")();
    return nb::none();
}

constexpr Member kBlocker[] = {
    method("__init__(frame, timeout = -1)", init_blocker),
    method("__enter__()", enter_blocker),
    method("__exit__(exc_type, exc_val, exc_tb)", exit_blocker),
};

}  // namespace

// The frame's own job: none, so the ticker switches itself off.
nb::object ticker_function(nb::handle self, const Arguments&) {
    set_field<"_run_ticker">(self, nb::bool_(false));
    return nb::none();
}

nb::object start_ticker(nb::handle self, const Arguments& args) {
    if (!(nb::borrow(args[0]) > nb::int_(0))) return nb::none();
    set_field<"_run_ticker">(self, nb::bool_(true));
    set_field<"_ticker_interval">(self, args[0]);
    call_after(self.attr("ui_ticker_timer").attr("StartOnce"), args[0]);
    return nb::none();
}

nb::object stop_ticker(nb::handle self, const Arguments&) {
    set_field<"_run_ticker">(self, nb::bool_(false));
    return nb::none();
}

nb::object on_start_ticker(nb::handle self, const Arguments&) {
    if (field<"_ticker_interval">(self) > nb::int_(0)) {
        set_field<"_run_ticker">(self, nb::bool_(true));
        arm(self);
    } else {
        imported<"MB">().attr("Error")(kNoInterval);
    }
    return nb::none();
}

// One-shot and armed only when the job has returned: ticks never overlap.
nb::object on_ticker_timer_event(nb::handle self, const Arguments&) {
    if (!flag<"_run_ticker">(self)) return nb::none();
    if (truth(self.attr("is_ticker_blocked")())) {
        arm(self);
        return nb::none();
    }
    const auto ticking = tick_in_progress(self);
    try {
        self.attr("ticker_function")();
    } catch (nb::python_error& error) {
        if (!is_exception(error)) throw;
        const HandledException handled(error, "on_ticker_timer_event", __LINE__);
        if (operator_continues(self)) arm(self);
        return nb::none();
    }
    arm(self);
    return nb::none();
}

// The count is raised before the wait, so the wait has to outlast only a tick that had already begun.
nb::object block_ticker(nb::handle self, const Arguments& args) {
    {
        const auto lock = locked_count(self);
        set_field<"_ticker_lock_count">(self, field<"_ticker_lock_count">(self) + nb::int_(1));
    }
    const double timeout = PyFloat_AS_DOUBLE(args[0].ptr());
    const double deadline = timeout > 0.0 ? now() + timeout : std::numeric_limits<double>::infinity();
    try {
        while (flag<"_in_ticker">(self) && now() <= deadline)
            python_module<"time">().attr("sleep")(kPollPeriod);
    } catch (const nb::python_error&) {
        self.attr("unblock_ticker")();  // who did not get the block does not give it back
        throw;
    }
    if (flag<"_in_ticker">(self)) {
        self.attr("unblock_ticker")();
        raise(PyExc_TimeoutError, kTimeout);
    }
    return nb::none();
}

nb::object unblock_ticker(nb::handle self, const Arguments&) {
    const auto lock = locked_count(self);
    const nb::object count = field<"_ticker_lock_count">(self);
    if (count > nb::int_(0)) set_field<"_ticker_lock_count">(self, count - nb::int_(1));
    return nb::none();
}

nb::object is_ticker_blocked(nb::handle self, const Arguments&) {
    const auto lock = locked_count(self);
    return nb::bool_(field<"_ticker_lock_count">(self) > nb::int_(0));
}

nb::object ticker_blocker(nb::handle self, const Arguments& args) {
    return own_name<"ATSFrame">().attr("TickerBlocker")(self, args[0]);
}

nb::object make_ticker_blocker_class(nb::module_& module) {
    nb::dict constants;
    constants["__qualname__"] = "ATSFrame.TickerBlocker";
    const nb::tuple bases = nb::make_tuple(nb::handle(reinterpret_cast<PyObject*>(&PyBaseObject_Type)));
    return make_class(module, "TickerBlocker", bases, kBlocker, constants);
}

}  // namespace ats
