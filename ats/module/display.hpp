// display.hpp - how times, counters and rows are shown.  GUI thread.
#pragma once

#include "module/names.hpp"

namespace ats {

// Local date and time to the second with one blank between; `seconds` since the epoch.
nb::object local_time(nb::handle seconds);

// Writes the counters of `statistics` into the window's three fields.
void show_counters(nb::handle window, nb::handle statistics);

// Removes all rows of a grid; a grid without rows is not touched.
void delete_all_rows(nb::handle grid);

}  // namespace ats
