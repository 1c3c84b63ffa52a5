// statistics_display.cpp - the cell's OK and NG counters on its panel, and their report to the frame.
#include "cell_panel/cell_panel.hpp"
#include "module/display.hpp"
#include "module/fields.hpp"
#include "module/imports.hpp"

namespace ats {

nb::object clear_statistics(nb::handle self, const Arguments&) {
    field<"_statistics">(self).attr("clear")();
    self.attr("_show_statistics")();
    delete_all_rows(self.attr("ui_history_grid"));
    return nb::none();
}

nb::object show_statistics(nb::handle self, const Arguments&) {
    show_counters(self, field<"_statistics">(self));
    return nb::none();
}

// A command event: it travels up to the frame, whose handler has run when this returns.
nb::object update_statistics(nb::handle self, const Arguments& args) {
    field<"_statistics">(self).attr("increase")(args[0]);
    const nb::object event = own_name<"StatisticsUpdateEvent">()(own_name<"_EVT_STATISTICS_UPDATE_EVENT">(),
                                                                 self.attr("GetId")(), args[0]);
    self.attr("GetEventHandler")().attr("ProcessEvent")(event);
    return nb::none();
}

}  // namespace ats
