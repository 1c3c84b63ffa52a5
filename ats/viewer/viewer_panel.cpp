// viewer_panel.cpp - the class TestDataViewerPanel: construction and table.
#include "module/fields.hpp"
#include "module/imports.hpp"
#include "viewer/viewer.hpp"

namespace ats {
namespace {

constexpr char kNotImplemented[] = "This function has not been implemented yet.";

nb::object init(nb::handle self, const Arguments& args) {
    own_name<"_TestDataViewerPanel">().attr("__init__")(self, args[0]);
    const nb::object wx = python_module<"wx">();
    const nb::object plot = imported<"_MatplotPanel">()(self.attr("ui_statistics_and_analyze_panel"));
    set_field<"_TestDataViewerPanel__matplot_panel">(self, plot);
    self.attr("ui_statistics_and_analyze_sizer").attr("Add")(plot, 1, wx.attr("EXPAND") | wx.attr("ALL"), 5);
    const nb::object grid_module = wx.attr("grid");
    const nb::object whole_rows = grid_module.attr("Grid").attr("SelectRows");
    const nb::object cell_selected = grid_module.attr("EVT_GRID_SELECT_CELL");
    self.attr("ui_history").attr("SetSelectionMode")(whole_rows);
    self.attr("ui_assertions").attr("SetSelectionMode")(whole_rows);
    self.attr("ui_history").attr("Bind")(cell_selected, self.attr("on_view_uut_detail"));
    self.attr("ui_assertions")
        .attr("Bind")(cell_selected, self.attr("_TestDataViewerPanel__on_select_test_item"));
    set_field<"_uut_list">(self, nb::list());
    return nb::none();
}

nb::object get_uut_list(nb::handle self, const Arguments&) { return field<"_uut_list">(self); }

// The pages of the analysis recompute nothing when they are turned.
nb::object on_refresh_statistics_analizer(nb::handle self, const Arguments&) {
    self.attr("ui_statistics_analizer").attr("GetSelection")();
    return nb::none();
}

nb::object tell_not_implemented(nb::handle, const Arguments&) {
    imported<"MB">().attr("Notice")("Sorry", kNotImplemented);
    return nb::none();
}

constexpr Member kMembers[] = {
    method("__init__(parent)", init),
    // the list of units
    method("get_uut_list()", get_uut_list),
    method("append(uut)", append_uut),
    method("extend(uuts)", extend_uuts),
    method("clear()", clear_viewer),
    method("on_clear_data(event)", on_clear_data),
    method("on_cell_filter_changed(event)", on_cell_filter_changed),
    method("_update_uut_summer(uut, row: int)", update_uut_summer),
    method("_uut_done_event_handler(uut)", uut_done_event_handler),
    // one unit
    method("_TestDataViewerPanel__get_selected_uut()", get_selected_uut),
    method("on_view_uut_detail(event)", on_view_uut_detail),
    method("_show_an_assertion(assertion)", show_viewer_assertion),
    method("on_save_single_uut_test_data(event)", on_save_single_uut_test_data),
    static_method("_TestDataViewerPanel__generate_test_report(uut, filename: str)", generate_test_report),
    // one item across units
    method("_TestDataViewerPanel__on_select_test_item(_event)", on_select_test_item),
    method("_TestDataViewerPanel__get_all_assertions_by_name(name: str)", get_all_assertions_by_name),
    method("_TestDataViewerPanel__clear_single_item_info()", clear_single_item_info),
    method("_TestDataViewerPanel__analyze_single_test_item(assertions)", analyze_single_test_item),
    method("on_refresh_statistics_analizer(event)", on_refresh_statistics_analizer),
    // commands without a function
    method("on_export_data(event)", tell_not_implemented),
    method("on_import_data(event)", tell_not_implemented),
};

}  // namespace

void init_viewer_panel(nb::module_& module) {
    build_class(module, "TestDataViewerPanel", nb::make_tuple(imported<"_TestDataViewerPanel">()), kMembers);
}

}  // namespace ats
