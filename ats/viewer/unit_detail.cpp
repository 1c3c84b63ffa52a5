// unit_detail.cpp - the selected unit and its assertions.
#include "module/display.hpp"
#include "module/fields.hpp"
#include "module/imports.hpp"
#include "records/assertion.hpp"
#include "viewer/viewer.hpp"

namespace ats {
namespace {

constexpr const char* kResultTitle = "Result";

nb::object nothing_selected() { return nb::make_tuple(nb::none(), -1); }

}  // namespace

nb::object get_selected_uut(nb::handle self, const Arguments&) {
    const nb::object rows = self.attr("ui_history").attr("GetSelectedRows")();
    if (nb::len(rows) != 1) return nothing_selected();
    const nb::object row = rows[0];
    const nb::object uuts = field<"_uut_list">(self);
    const CellFilter filter(filter_text(self));
    if (filter.everything()) return nb::make_tuple(uuts[row], row);
    Py_ssize_t left = nb::cast<Py_ssize_t>(row);
    for (nb::handle uut : nb::list(uuts))
        if (filter.admits(uut) && left-- == 0) return nb::make_tuple(uut, row);
    return nothing_selected();
}

nb::object on_view_uut_detail(nb::handle self, const Arguments&) {
    const nb::object selected = self.attr("_TestDataViewerPanel__get_selected_uut")();
    const nb::object uut = selected[0];
    if (uut.is_none()) return nb::none();
    self.attr("_update_uut_summer")(uut, selected[1]);
    delete_all_rows(self.attr("ui_assertions"));
    // The unit may still be tested: a copy, for the list grows meanwhile.
    for (nb::handle assertion : nb::list(nb::object(uut.attr("assertions"))))
        self.attr("_show_an_assertion")(assertion);
    return nb::none();
}

nb::object show_viewer_assertion(nb::handle self, const Arguments& args) {
    const nb::object grid = self.attr("ui_assertions");
    grid.attr("AppendRows")();
    const nb::object row = grid.attr("GetNumberRows")() - nb::int_(1);
    std::size_t col = 0, result_col = 0;
    for (nb::handle column : own_name<"_DefaultColumnInfo">()) {
        const nb::object title = column[0];
        if (title.equal(nb::str(kResultTitle))) result_col = col;
        const nb::object getter = nb::str("get_") + nb::object(title.attr("lower")());
        grid.attr("SetCellValue")(row, col, nb::str(args[0].attr(getter)()));
        ++col;
    }
    if (is_ng(args[0])) grid.attr("SetCellBackgroundColour")(row, result_col, "red");
    return nb::none();
}

}  // namespace ats
