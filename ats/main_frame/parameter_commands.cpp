// parameter_commands.cpp - editing, reloading and saving the test parameters directory.
#include "main_frame/main_frame.hpp"
#include "module/errors.hpp"
#include "module/fields.hpp"
#include "module/imports.hpp"
#include "module/shown_dialog.hpp"

namespace ats {
namespace {

constexpr char kReloadFailed[] = "参数重新加载失败：";
constexpr char kReloaded[] = "参数重新加载完成";
constexpr char kNoDirectory[] = "程序未提供有效的参数存储路径，保存操作无法执行。";
constexpr char kNothingLoaded[] = "尚未加载有效参数，保存操作无法执行。";
constexpr char kSaved[] = "参数保存成功。";

// Reports a failure to the operator; true when the parameters are fresh.
bool reload_or_report(nb::handle self) {
    try {
        self.attr("reload_app_config")();
        return true;
    } catch (nb::python_error& error) {
        if (!is_exception(error)) throw;
        const HandledException handled(error, "reload_app_config", __LINE__);
        imported<"MB">().attr("Error")(nb::str(kReloadFailed) + handled.text());
        return false;
    }
}

}  // namespace

nb::object reload_app_config(nb::handle self, const Arguments&) {
    const nb::object directory = field<"_ATSFrame__app_config_dir">(self);
    set_field<"_ATSFrame__app_config">(self, imported<"ParameterDirectory">().attr("load")(directory));
    return nb::none();
}

nb::object on_edit_test_parameters(nb::handle self, const Arguments&) {
    ShownDialog dialog(imported<"_ParaEditorDlg">()(
        nb::arg("parent") = self, nb::arg("path") = field<"_ATSFrame__app_config_dir">(self)));
    dialog.show();
    dialog.destroy();
    reload_or_report(self);
    return nb::none();
}

nb::object on_reload_test_parameters(nb::handle self, const Arguments&) {
    if (reload_or_report(self)) imported<"MB">().attr("Notice")(kReloaded);
    return nb::none();
}

nb::object on_save_test_parameters(nb::handle self, const Arguments&) {
    const nb::object directory = field<"_ATSFrame__app_config_dir">(self);
    const nb::object parameters = self.attr("app_config");
    if (!truth(directory)) {
        imported<"MB">().attr("Error")(kNoDirectory);
    } else if (parameters.is_none()) {
        imported<"MB">().attr("Error")(kNothingLoaded);
    } else {
        parameters.attr("save")(directory);
        imported<"MB">().attr("Notice")(kSaved);
    }
    return nb::none();
}

}  // namespace ats
