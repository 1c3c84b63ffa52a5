// run.cpp - one run: from the start request to the done flag.
#include "engine/run.hpp"

#include <exception>

#include "engine/engine.hpp"
#include "module/errors.hpp"
#include "module/fields.hpp"
#include "module/imports.hpp"
#include "records/control.hpp"

namespace ats {
namespace {

constexpr char kDoneElsewhere[] =
    "\"done\" method must be call in Cell testing thread, not it's sub thread or any others.";

void print_exception(nb::handle self, int skip_level) {
    const nb::object lines = imported<"_format_exception">()(nb::arg("skip_level") = skip_level);
    self.attr("print")(nb::str("").attr("join")(lines), nb::arg("end") = "");
}

// How a run that did not return normally ends; what is not an Exception passes through.
void end_by_exception(nb::handle self, nb::python_error& error) {
    if (error.matches(control.abort) || error.matches(control.ng)) {
        HandledException handled(error, "_do_run_script", __LINE__);
        set_field<"_result_description">(self, handled.text());
        self.attr("_make_uut_done")();
    } else if (error.matches(control.done)) {
        HandledException handled(error, "_do_run_script", __LINE__);
        self.attr("_make_uut_done")();
    } else if (is_exception(error)) {
        HandledException handled(error, "_do_run_script", __LINE__);
        print_exception(self, 1);
        set_field<"_exception_object">(self, handled.value());
    } else {
        throw;
    }
}

void run_protected(nb::handle self, nb::handle script, nb::object& runner) {
    try {
        runner = load_runner_class(self, script)();
        runner.attr("run")();
        nb::setattr(field<"_CellBase__uut">(self), "done", nb::bool_(true));
    } catch (nb::python_error& error) {
        end_by_exception(self, error);
    }
}

void clean_up(nb::handle runner) {
    try {
        runner.attr("cleanup")();
    } catch (nb::python_error& error) {
        if (!is_exception(error)) throw;
        HandledException handled(error, "_do_run_script", __LINE__);
        imported<"MB">().attr("Error")(nb::str("Cleanup fail: ") + handled.text() + nb::str("."));
    }
}

// The unit and the thread of a run.  A run that cannot even begin leaves the cell ready for the next attempt.
void begin_run(nb::handle self, nb::handle serial_number, nb::handle script) {
    try {
        set_field<"_start_time">(self, nb::float_(now()));
        set_field<"uut">(self, self.attr("uut_type")(nb::arg("serial_number") = serial_number,
                                                     nb::arg("cell_number") = self.attr("cell_number")));
        self.attr("_run_script")(script);
    } catch (const nb::python_error&) {
        set_field<"running_state">(self, field<"CellStateStop">(self));
        throw;
    }
}

}  // namespace

bool in_test_thread(nb::handle cell) {
    return python_module<"threading">().attr("current_thread")().is(field<"_test_thread">(cell));
}

nb::object start(nb::handle self, const Arguments& args) {
    if (!truth(self.attr("is_running")())) self.attr("handle_start_request")(args[0]);
    return nb::none();
}

nb::object handle_start_request(nb::handle self, const Arguments& args) {
    if (truth(self.attr("is_ready")()))
        self.attr("do_start")(args[0]);
    else if (truth(self.attr("is_paused")()))
        self.attr("resume")();
    return nb::none();
}

nb::object do_start(nb::handle self, const Arguments& args) {
    if (!args.is_none(0)) self.attr("set_serial_number")(args[0]);
    const nb::object script = self.attr("script");
    self.attr("clear_last_test_data")();
    self.attr("reset_state")();
    set_field<"running_state">(self, field<"CellStateBusy">(self));
    begin_run(self, args[0], script);
    return nb::none();
}

nb::object run_script(nb::handle self, const Arguments& args) {
    const nb::object thread = python_module<"threading">().attr("Thread")(
        nb::arg("target") = self.attr("_do_run_script"), nb::arg("args") = nb::make_tuple(args[0]));
    nb::setattr(thread, "daemon", nb::bool_(false));
    set_field<"_test_thread">(self, thread);
    thread.attr("start")();
    return nb::none();
}

// Runs in the test thread.  Cleanup follows whatever became of the run; the done flag is set unless something
// that is not an Exception (a script's sys.exit) is on its way out of the thread.
nb::object do_run_script(nb::handle self, const Arguments& args) {
    nb::setattr(python_module<"threading">().attr("current_thread")(), "cell_proxy", self);
    nb::object runner;
    std::exception_ptr leaving;
    try {
        run_protected(self, args[0], runner);
    } catch (const nb::python_error&) {
        leaving = std::current_exception();
    }
    if (runner.is_valid() && !runner.is_none()) clean_up(runner);
    if (leaving) std::rethrow_exception(leaving);
    set_field<"_CellBase__done_flag">(self, nb::bool_(true));
    return nb::none();
}

nb::object make_uut_done(nb::handle self, const Arguments&) {
    try {
        nb::setattr(field<"_CellBase__uut">(self), "done", nb::bool_(true));
    } catch (nb::python_error& error) {
        if (!is_exception(error)) throw;
        HandledException handled(error, "_make_uut_done", __LINE__);
        print_exception(self, 0);
    }
    return nb::none();
}

nb::object done(nb::handle self, const Arguments&) {
    if (!in_test_thread(self)) raise(PyExc_RuntimeError, kDoneElsewhere);
    raise_done();
}

}  // namespace ats
