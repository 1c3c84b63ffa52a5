// unit_report.cpp - the report workbook of one unit.
#include "module/fields.hpp"
#include "module/imports.hpp"
#include "module/shown_dialog.hpp"
#include "viewer/viewer.hpp"

namespace ats {
namespace {

constexpr char kSelectOne[] = "Please select one and only one UUT first.";
constexpr const char* kTitles[] = {"Test Item Name", "Value", "Limit Low", "Limit Up", "Unit", "Result"};
constexpr const char* kGetters[] = {"get_name",  "get_value", "get_lower",
                                    "get_upper", "get_unit",  "get_result"};
constexpr int kTitleRow = 4;

nb::object proposed_file(nb::handle uut) {
    nb::object stem = uut.attr("serial_number");
    if (stem.is_none() || stem.equal(nb::str("")))
        stem = imported<"_timestamp_as_filename">()(uut.attr("begin_time"));
    return nb::str("%s.xlsx").attr("__mod__")(nb::make_tuple(stem));
}

void write(nb::handle sheet, int row, int column, nb::handle value) {
    nb::setattr(sheet.attr("cell")(row, column), "value", value);
}

nb::object line(const char* format, nb::handle value) {
    return nb::str(format).attr("__mod__")(nb::make_tuple(value));
}

}  // namespace

// The selected row indexes the whole list, whatever the cell filter shows.
nb::object on_save_single_uut_test_data(nb::handle self, const Arguments&) {
    const nb::object rows = self.attr("ui_history").attr("GetSelectedRows")();
    if (nb::len(rows) != 1) {
        imported<"MB">().attr("Notice")(kSelectOne);
        return nb::none();
    }
    const nb::object uut = field<"_uut_list">(self)[nb::object(rows[0])];
    const nb::object wx = python_module<"wx">();
    ShownDialog dialog(wx.attr("FileDialog")(
        self, nb::arg("message") = "Give a file name to save", nb::arg("defaultDir") = "",
        nb::arg("defaultFile") = proposed_file(uut), nb::arg("wildcard") = "Excel File(*.xlsx)|*.xlsx",
        nb::arg("style") = wx.attr("FD_SAVE") | wx.attr("FD_OVERWRITE_PROMPT")));
    const bool confirmed = dialog.show().equal(wx.attr("ID_OK"));
    const nb::object path = confirmed ? nb::object(dialog.get().attr("GetPath")()) : nb::none();
    dialog.destroy();
    if (confirmed)
        own_name<"TestDataViewerPanel">().attr("_TestDataViewerPanel__generate_test_report")(uut, path);
    return nb::none();
}

nb::object generate_test_report(nb::handle, const Arguments& args) {
    const nb::handle uut = args[0];
    const nb::object book = imported<"_Book">()();
    const nb::object sheet = book.attr("active");
    const nb::object timestamp = imported<"_timestamp">();
    write(sheet, 1, 1, line("Begin : %s", timestamp(uut.attr("begin_time"))));
    write(sheet, 2, 1, line("End   : %s", timestamp(uut.attr("end_time"))));
    write(sheet, 3, 1, line("Result: %s", uut.attr("summer")));
    int column = 0;
    for (const char* title : kTitles) write(sheet, kTitleRow, ++column, nb::str(title));
    int row = kTitleRow;
    for (nb::handle assertion : nb::list(nb::object(uut.attr("assertions")))) {
        ++row;
        column = 0;
        for (const char* getter : kGetters) write(sheet, row, ++column, nb::object(assertion.attr(getter)()));
    }
    book.attr("save")(args[1]);
    return nb::none();
}

}  // namespace ats
