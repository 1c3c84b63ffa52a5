// manual_operation.cpp - the dialog for driving the station's equipment by hand, and the about box.
#include "main_frame/main_frame.hpp"
#include "module/errors.hpp"
#include "module/fields.hpp"
#include "module/imports.hpp"
#include "module/reloading.hpp"
#include "module/scope_guard.hpp"
#include "module/shown_dialog.hpp"

namespace ats {
namespace {

// The application's dialog class as its file stands now; None when there is no such module or class.
nb::object user_dialog_class(nb::handle self) {
    const nb::object loaded = field<"_manual_module">(self);
    try {
        if (loaded.is_none())
            set_field<"_manual_module">(self, import_module(nb::str("manual_operation_dialog")));
        else
            reload_module(loaded);
    } catch (const nb::python_error& error) {
        if (!error.matches(PyExc_ModuleNotFoundError)) throw;
        return nb::none();
    }
    nb::object found = nb::getattr(field<"_manual_module">(self), "ManualOperationDialog", nb::none());
    if (!PyType_Check(found.ptr())) return nb::none();
    const int suits =
        PyObject_IsSubclass(found.ptr(), nb::object(python_module<"wx">().attr("Dialog")).ptr());
    if (suits < 0) throw nb::python_error();
    return suits ? found : nb::none();
}

void show_and_destroy(nb::object dialog) {
    ShownDialog shown(std::move(dialog));
    shown.show();
    shown.destroy();
}

nb::object init(nb::handle self, const Arguments& args) {
    own_name<"ManualDlg">().attr("__init__")(self, args[0]);
    if (!args[1].equal(nb::str(""))) self.attr("ui_message").attr("SetValue")(args[1]);
    return nb::none();
}

constexpr Member kDialog[] = {
    method("__init__(parent, message = '')", init),
};

}  // namespace

nb::object on_show_manual_operation_dialog(nb::handle self, const Arguments&) {
    const bool blocks = flag<"_mop_block_ticker">(self);
    if (blocks) self.attr("block_ticker")();
    const ScopeGuard unblock([&]() noexcept {
        if (blocks) call_quietly(self, name<"unblock_ticker">());
    });
    nb::object dialog_class = user_dialog_class(self);
    if (dialog_class.is_none()) dialog_class = own_name<"ManualOperationDialog">();
    show_and_destroy(dialog_class(self));
    return nb::none();
}

nb::object on_show_about_dialog(nb::handle self, const Arguments&) {
    show_and_destroy(imported<"AboutDialog">()(self));
    return nb::none();
}

void init_manual_operation_dialog(nb::module_& module) {
    build_class(module, "ManualOperationDialog", nb::make_tuple(own_name<"ManualDlg">()), kDialog);
}

}  // namespace ats
