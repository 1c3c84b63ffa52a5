// main_frame.hpp - the pieces of the application window `ATSFrame`, a file each; and its registration.
#pragma once

#include "module/class_table.hpp"

namespace ats {

// closing.cpp
nb::object on_close_app(nb::handle self, const Arguments& args);
nb::object on_trigger_initializer(nb::handle self, const Arguments& args);

// cells.cpp: asking and commanding the cells
nb::object get_cell(nb::handle self, const Arguments& args);
nb::object get_cell_count(nb::handle self, const Arguments& args);
nb::object start_cell(nb::handle self, const Arguments& args);
nb::object is_running(nb::handle self, const Arguments& args);
nb::object on_start_all(nb::handle self, const Arguments& args);
nb::object on_abort_all(nb::handle self, const Arguments& args);
nb::object on_start_cell_text(nb::handle self, const Arguments& args);
nb::object update_statistics_event_handler(nb::handle self, const Arguments& args);
nb::object clear_frame_statistics(nb::handle self, const Arguments& args);
nb::object on_clear_statistics(nb::handle self, const Arguments& args);

// ticker.cpp
nb::object ticker_function(nb::handle self, const Arguments& args);
nb::object start_ticker(nb::handle self, const Arguments& args);
nb::object stop_ticker(nb::handle self, const Arguments& args);
nb::object on_start_ticker(nb::handle self, const Arguments& args);
nb::object on_ticker_timer_event(nb::handle self, const Arguments& args);
nb::object block_ticker(nb::handle self, const Arguments& args);
nb::object unblock_ticker(nb::handle self, const Arguments& args);
nb::object is_ticker_blocked(nb::handle self, const Arguments& args);
nb::object ticker_blocker(nb::handle self, const Arguments& args);
nb::object make_ticker_blocker_class(nb::module_& module);

// parameter_commands.cpp
nb::object reload_app_config(nb::handle self, const Arguments& args);
nb::object on_edit_test_parameters(nb::handle self, const Arguments& args);
nb::object on_reload_test_parameters(nb::handle self, const Arguments& args);
nb::object on_save_test_parameters(nb::handle self, const Arguments& args);
// limits_export.cpp
nb::object on_export_assertion_config(nb::handle self, const Arguments& args);

// manual_operation.cpp
nb::object on_show_manual_operation_dialog(nb::handle self, const Arguments& args);
nb::object on_show_about_dialog(nb::handle self, const Arguments& args);
void init_manual_operation_dialog(nb::module_& module);

void init_frame(nb::module_& module);

}  // namespace ats
