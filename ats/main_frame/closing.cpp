// closing.cpp - the application's start-up hook and its end.
#include "main_frame/main_frame.hpp"
#include "module/errors.hpp"
#include "module/fields.hpp"
#include "module/imports.hpp"

namespace ats {
namespace {

constexpr char kStillRunning[] = "Test is still running...\nAre you sure to exit?";

void finalize(nb::handle self) {
    try {
        self.attr("exit_finalizer")();
    } catch (nb::python_error& error) {
        if (!is_exception(error)) throw;
        const HandledException handled(error, "on_close_app", __LINE__);
        imported<"MB">().attr("Error")(nb::str("Exit finalizer function raise exception: ") + handled.text() +
                                       nb::str(". Exit anyway."));
    }
}

// A close that the system forces must not be vetoed: wx asserts.
bool can_veto(nb::handle event) {
    const nb::object close_event = nb::getattr(python_module<"wx">(), "CloseEvent", nb::none());
    if (!PyType_Check(close_event.ptr()) || PyObject_IsInstance(event.ptr(), close_event.ptr()) != 1)
        return true;
    return truth(event.attr("CanVeto")());
}

}  // namespace

nb::object on_trigger_initializer(nb::handle self, const Arguments&) {
    try {
        self.attr("startup_initializer")();
    } catch (nb::python_error& error) {
        if (!is_exception(error)) throw;
        const HandledException handled(error, "on_trigger_initializer", __LINE__);
        imported<"MB">().attr("Error")(formatted_exception(1));
    }
    return nb::none();
}

// The process ends at once: running test threads, open dialogs and cleanups are not waited for.
nb::object on_close_app(nb::handle self, const Arguments& args) {
    const nb::object wx = python_module<"wx">();
    nb::object answer = wx.attr("YES");
    if (truth(self.attr("is_running")()))
        answer = wx.attr("MessageBox")(kStillRunning, "Info",
                                       nb::arg("style") = wx.attr("YES_NO") | wx.attr("ICON_QUESTION"));
    if (answer.equal(wx.attr("YES"))) {
        finalize(self);
        self.attr("Destroy")();
        python_module<"os">().attr("_exit")(0);
    } else if (can_veto(args[0])) {
        args[0].attr("Veto")();
    }
    return nb::none();
}

}  // namespace ats
