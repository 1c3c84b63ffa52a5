// viewer_frame.cpp - the viewer's window; closing it only hides it, so the data live on.
#include "module/fields.hpp"
#include "module/imports.hpp"
#include "viewer/viewer.hpp"

namespace ats {
namespace {

nb::object init(nb::handle self, const Arguments& args) {
    own_name<"_TestDataViewerFrame">().attr("__init__")(self, args[0]);
    self.attr("SetTitle")(args[1]);
    const nb::object panel = args[2](self);
    set_field<"test_data_viewer_panel">(self, panel);
    const nb::object wx = python_module<"wx">();
    self.attr("ui_root_sizer").attr("Add")(panel, 1, wx.attr("EXPAND") | wx.attr("ALL"), 0);
    imported<"window_fit_layout">()(self);
    return nb::none();
}

nb::object on_close_window(nb::handle self, const Arguments&) {
    self.attr("Hide")();
    return nb::none();
}

nb::object get_uut_list(nb::handle self, const Arguments&) {
    return field<"test_data_viewer_panel">(self).attr("get_uut_list")();
}

nb::object append(nb::handle self, const Arguments& args) {
    return field<"test_data_viewer_panel">(self).attr("append")(args[0]);
}

nb::object extend(nb::handle self, const Arguments& args) {
    return field<"test_data_viewer_panel">(self).attr("extend")(args[0]);
}

nb::object clear(nb::handle self, const Arguments&) {
    return field<"test_data_viewer_panel">(self).attr("clear")();
}

constexpr Member kMembers[] = {
    method("__init__(parent, title: str = '测试数据历史纪录', viewer_class = TestDataViewerPanel)", init),
    method("on_close_window(event)", on_close_window),
    method("get_uut_list()", get_uut_list),
    method("append(uut)", append),
    method("extend(uuts)", extend),
    method("clear()", clear),
};

}  // namespace

void init_viewer_frame(nb::module_& module) {
    build_class(module, "TestDataViewerFrame", nb::make_tuple(imported<"_TestDataViewerFrame">()), kMembers);
}

}  // namespace ats
