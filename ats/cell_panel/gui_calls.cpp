// gui_calls.cpp - calls that a test thread hands to the GUI thread, and the operator's dialogs built on them.
#include "cell_panel/cell_panel.hpp"
#include "module/fields.hpp"
#include "module/imports.hpp"
#include "module/shown_dialog.hpp"

namespace ats {
namespace {

nb::object posted(const Arguments& args, bool wait) {
    const nb::tuple rest = nb::borrow<nb::tuple>(args[1]);
    const nb::kwargs keywords = nb::borrow<nb::kwargs>(args[2]);
    nb::object info = own_name<"CallUserFunctionInfo">()(args[0], wait, *rest, **keywords);
    call_after(info);
    return info;
}

// Posts a call that is complete with its arguments, waits for the GUI thread, returns the function's result.
nb::object result_of(const nb::object& info) {
    call_after(info);
    info.attr("wait")();
    return info.attr("result");
}

bool confirmed(nb::handle answer) { return answer.equal(python_module<"wx">().attr("ID_OK")); }

}  // namespace

nb::object call_user_function(nb::handle, const Arguments& args) {
    const nb::object info = posted(args, true);
    info.attr("wait")();
    return info.attr("result");
}

nb::object call_user_function_delay_wait(nb::handle, const Arguments& args) { return posted(args, true); }

nb::object call_user_function_no_wait(nb::handle, const Arguments& args) {
    posted(args, false);
    return nb::none();
}

nb::object ask_true_or_false(nb::handle self, const Arguments& args) {
    return result_of(own_name<"CallUserFunctionInfo">()(
        self.attr("_do_ask_true_or_false"), true, nb::arg("question") = args[0], nb::arg("true") = args[1],
        nb::arg("false") = args[2]));
}

// A dialog that is closed without an answer counts as a negative one.
nb::object do_ask_true_or_false(nb::handle self, const Arguments& args) {
    const nb::tuple rest = nb::borrow<nb::tuple>(args[0]);
    const nb::kwargs keywords = nb::borrow<nb::kwargs>(args[1]);
    ShownDialog dialog(
        imported<"TrueOrFalseDialog">()(self, self.attr("get_cell_name")(), *rest, **keywords));
    const nb::object answer = dialog.show();
    dialog.destroy();
    return nb::bool_(confirmed(answer));
}

nb::object notice_box(nb::handle self, const Arguments& args) {
    result_of(own_name<"CallUserFunctionInfo">()(imported<"MB">().attr("Notice"), true,
                                                 nb::arg("message") = args[0],
                                                 nb::arg("title") = self.attr("get_cell_name")()));
    return nb::none();
}

nb::object input_text(nb::handle self, const Arguments& args) {
    return result_of(own_name<"CallUserFunctionInfo">()(self.attr("_do_input_text"), true, args[0],
                                                        self.attr("get_cell_name")()));
}

nb::object do_input_text(nb::handle self, const Arguments& args) {
    const nb::object wx = python_module<"wx">();
    const nb::object style = wx.attr("OK") | wx.attr("CANCEL") | wx.attr("CENTRE");
    ShownDialog dialog(wx.attr("TextEntryDialog")(self, nb::arg("message") = args[0],
                                                  nb::arg("caption") = args[1], nb::arg("style") = style));
    const nb::object answer = dialog.show();
    nb::object text = dialog.get().attr("GetValue")();
    dialog.destroy();
    return confirmed(answer) ? text : nb::none();
}

}  // namespace ats
