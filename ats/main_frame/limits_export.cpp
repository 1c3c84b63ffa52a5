// limits_export.cpp - the items of a cell's last test as a new limits workbook.
#include "main_frame/main_frame.hpp"
#include "module/errors.hpp"
#include "module/fields.hpp"
#include "module/imports.hpp"
#include "module/shown_dialog.hpp"

namespace ats {
namespace {

constexpr char kNoCell[] =
    "要导出测试项设置参数，必须要有一个测试工位（Cell），并且执行了测试（最好执行了完整的全部测试内容）。";
constexpr char kAskCell[] = "请输入测试工位号（Cell Number）:";
constexpr char kNoTest[] = "要导出测试项设置参数，必须要先执行一次测试，最好是执行了完整的、全部的测试内容。";
constexpr char kAskFile[] = "请输入设置参数保存的文件名";
constexpr char kSaveFailed[] = "保存测试项参数设置到文件时发生异常：";
constexpr char kSaved[] = "保存测试项参数设置成功。";
constexpr const char* kTitles[] = {"Test Item Name", "Default Value", "Lower Limit", "Upper Limit",
                                   "Unit",           "Variable Name", "Type"};
constexpr const char* kFields[] = {"desc", "value", "low", "up", "unit", "name", "type"};

// None when the operator gave no cell number.
nb::object choose_cell(nb::handle self) {
    const nb::object cells = field<"_cells">(self);
    nb::object number = nb::int_(1);
    if (nb::len(cells) > 1)
        number = imported<"input_integer">()(nb::arg("minimum") = 1, nb::arg("maximum") = nb::len(cells),
                                             nb::arg("message") = kAskCell);
    const bool chosen =
        PyLong_Check(number.ptr()) && number > nb::int_(0) && !(number > nb::int_(nb::len(cells)));
    return chosen ? nb::object(cells[number - nb::int_(1)]) : nb::none();
}

// None when the operator closed the dialog.
nb::object choose_file(nb::handle self, nb::handle cell) {
    const nb::object wx = python_module<"wx">();
    const nb::object os_path = python_module<"os">().attr("path");
    nb::object proposed =
        cell.attr("cell_config").attr("get")("assertion_config_file", nb::arg("default") = "limits.xlsx");
    if (proposed.is_none()) proposed = nb::str("limits.xlsx");
    nb::object directory = os_path.attr("dirname")(proposed);
    if (!truth(directory)) directory = nb::str(".");
    ShownDialog dialog(wx.attr("FileDialog")(
        self, kAskFile, nb::arg("defaultFile") = os_path.attr("basename")(proposed),
        nb::arg("defaultDir") = directory, nb::arg("wildcard") = "Excel File(*.xlsx)|*.xlsx",
        nb::arg("style") = wx.attr("FD_SAVE") | wx.attr("FD_OVERWRITE_PROMPT")));
    const nb::object answer = dialog.show();
    nb::object path = dialog.get().attr("GetPath")();
    dialog.destroy();
    return answer.equal(wx.attr("ID_OK")) ? path : nb::none();
}

nb::object workbook_of(nb::handle configs) {
    nb::object book = imported<"_Book">()();
    const nb::object sheet = book.attr("active");
    const auto write = [&](std::size_t row, std::size_t column, nb::handle value) {
        nb::setattr(sheet.attr("cell")(row, column), "value", value);
    };
    std::size_t column = 0;
    for (const char* title : kTitles) write(1, ++column, nb::str(title));
    std::size_t row = 1;
    for (nb::handle config : configs) {
        ++row;
        column = 0;
        for (const char* each : kFields) write(row, ++column, nb::object(config.attr(each)));
    }
    return book;
}

}  // namespace

nb::object on_export_assertion_config(nb::handle self, const Arguments&) {
    const nb::object message_box = imported<"MB">();
    if (nb::len(field<"_cells">(self)) == 0) {
        message_box.attr("Error")(kNoCell);
        return nb::none();
    }
    const nb::object cell = choose_cell(self);
    if (cell.is_none()) return nb::none();
    if (nb::object(cell.attr("uut")).is_none()) {
        message_box.attr("Error")(kNoTest);
        return nb::none();
    }
    const nb::object path = choose_file(self, cell);
    if (path.is_none()) return nb::none();
    const nb::object configs = cell.attr("export_assertion_config")();
    try {
        workbook_of(configs).attr("save")(path);
    } catch (nb::python_error& error) {
        if (!is_exception(error)) throw;
        const HandledException handled(error, "on_export_assertion_config", __LINE__);
        message_box.attr("Error")(nb::str(kSaveFailed) + handled.text());
        return nb::none();
    }
    message_box.attr("Notice")(kSaved);
    return nb::none();
}

}  // namespace ats
