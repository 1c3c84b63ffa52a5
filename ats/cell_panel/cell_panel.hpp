// cell_panel.hpp - the pieces of the panel class `Cell`, a file each; and its registration.
#pragma once

#include "module/class_table.hpp"

namespace ats {

constexpr int kRefreshPeriod = 100;  // milliseconds from tick to tick of a running test

// panel.cpp: construction, start, prompts, progress, log
nb::object update_prompt(nb::handle self, const Arguments& args);

// refresh.cpp: the timers of a running test
nb::object show_an_assertion(nb::handle self, const Arguments& args);
nb::object append_to_history(nb::handle self, const Arguments& args);
nb::object on_refresh_timer_event(nb::handle self, const Arguments& args);
nb::object on_blink_timer_event(nb::handle self, const Arguments& args);

// statistics_display.cpp: the cell's counters
nb::object clear_statistics(nb::handle self, const Arguments& args);
nb::object show_statistics(nb::handle self, const Arguments& args);
nb::object update_statistics(nb::handle self, const Arguments& args);

// gui_calls.cpp: what a test thread hands to the GUI thread
nb::object call_user_function(nb::handle self, const Arguments& args);
nb::object call_user_function_delay_wait(nb::handle self, const Arguments& args);
nb::object call_user_function_no_wait(nb::handle self, const Arguments& args);
nb::object ask_true_or_false(nb::handle self, const Arguments& args);
nb::object do_ask_true_or_false(nb::handle self, const Arguments& args);
nb::object notice_box(nb::handle self, const Arguments& args);
nb::object input_text(nb::handle self, const Arguments& args);
nb::object do_input_text(nb::handle self, const Arguments& args);

// debug_shell.cpp
void add_debug_shell(nb::handle cell);

void init_cell(nb::module_& module);

}  // namespace ats
