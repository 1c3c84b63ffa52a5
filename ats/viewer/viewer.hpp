// viewer.hpp - the pieces of the test data viewer, a file each; and its registration.
#pragma once

#include "module/class_table.hpp"

namespace ats {

// The cell filter: every unit, or those of one cell.
class CellFilter {
  public:
    explicit CellFilter(nb::handle text);
    bool admits(nb::handle uut) const;
    bool everything() const { return everything_; }

  private:
    bool everything_;
    nb::object cell_number_;
};

nb::object filter_text(nb::handle panel);

// unit_list.cpp
nb::object append_uut(nb::handle self, const Arguments& args);
nb::object extend_uuts(nb::handle self, const Arguments& args);
nb::object clear_viewer(nb::handle self, const Arguments& args);
nb::object on_clear_data(nb::handle self, const Arguments& args);
nb::object on_cell_filter_changed(nb::handle self, const Arguments& args);
nb::object update_uut_summer(nb::handle self, const Arguments& args);
nb::object uut_done_event_handler(nb::handle self, const Arguments& args);

// unit_detail.cpp
nb::object get_selected_uut(nb::handle self, const Arguments& args);
nb::object on_view_uut_detail(nb::handle self, const Arguments& args);
nb::object show_viewer_assertion(nb::handle self, const Arguments& args);

// item_analysis.cpp
nb::object on_select_test_item(nb::handle self, const Arguments& args);
nb::object get_all_assertions_by_name(nb::handle self, const Arguments& args);
nb::object clear_single_item_info(nb::handle self, const Arguments& args);
nb::object analyze_single_test_item(nb::handle self, const Arguments& args);

// unit_report.cpp
nb::object on_save_single_uut_test_data(nb::handle self, const Arguments& args);
nb::object generate_test_report(nb::handle, const Arguments& args);

void init_viewer_panel(nb::module_& module);
void init_viewer_frame(nb::module_& module);

}  // namespace ats
