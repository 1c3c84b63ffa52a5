// construction.cpp - which sheet configures a cell, and what a new cell holds.
#include "engine/construction.hpp"

#include "engine/assertion_queue.hpp"
#include "engine/engine.hpp"
#include "module/errors.hpp"
#include "module/fields.hpp"
#include "module/imports.hpp"

namespace ats {
namespace {

constexpr char kWrongConfig[] =
    "Argument \"parameter_book\" must be a string for an excel file name, or an object of BookParameters, "
    "or an object of SheetParameters, not a \"%U\".";
constexpr char kNoScript[] =
    "Key \"script\" is missing in the configuration of cell %S: it must name the cell's test script.";

bool is_instance(nb::handle value, nb::handle type) {
    const int answer = PyObject_IsInstance(value.ptr(), type.ptr());
    if (answer < 0) throw nb::python_error();
    return answer == 1;
}

// A cell without a sheet of its own shares the settings of the first cell.
nb::object sheet_of_book(nb::handle book, nb::handle sheet_name) {
    if (truth(book.attr("has_sheet")(sheet_name))) return book.attr("get_sheet_parameters")(sheet_name);
    const nb::str first("cell1");
    try {
        return book.attr("load_sheet")(sheet_name);
    } catch (const nb::python_error& error) {
        if (!error.matches(PyExc_ValueError) || sheet_name.equal(first)) throw;
    }
    try {
        return book.attr("get_sheet_parameters")(first);
    } catch (const nb::python_error& error) {
        if (!is_exception(error)) throw;
    }
    book.attr("load_sheet")(first);
    return book.attr("get_sheet_parameters")(first);
}

nb::object sheet_for(nb::handle config, nb::handle number) {
    nb::object source = nb::borrow(config);
    if (source.is_none()) source = own_name<"_default_ats_config_path">();
    if (PyUnicode_Check(source.ptr())) source = imported<"BookParameters">()(source);
    if (is_instance(source, imported<"BookParameters">()))
        return sheet_of_book(source, nb::object(nb::str("cell%d").attr("__mod__")(number)));
    if (!is_instance(source, imported<"SheetParameters">()))
        raise_formatted(PyExc_TypeError, kWrongConfig, nb::object(source.type().attr("__name__")).ptr());
    return source;
}

void read_configuration(nb::handle self, nb::handle config, nb::handle number) {
    const nb::object script = config.attr("get")("script");
    if (script.is_none()) raise_formatted(PyExc_TypeError, kNoScript, number.ptr());
    set_field<"_CellBase__script">(self, python_module<"os">().attr("path").attr("abspath")(script));
    set_field<"_CellBase__cell_runner_class_name">(self,
                                                   config.attr("get")("runner_class_name", "CellRunner"));
    set_field<"_cell_runner_module">(self, nb::none());
    set_field<"_assertion_configs">(self, nb::none());
    nb::object limits = config.attr("get")("assertion_config_file", nb::none());
    if (limits.is_none()) return;
    limits = limits.attr("strip")();
    if (truth(limits))
        set_field<"_assertion_configs">(self, cell_base_class().attr("load_assertion_configs")(limits));
}

}  // namespace

nb::object construct_cell(nb::handle self, const Arguments& args) {
    const nb::handle number = args[0];
    set_field<"_number">(self, number);
    set_field<"_state">(self, cell_base_class().attr("CellStateStop"));
    set_field<"_CellBase__uut_type">(self, own_name<"UUT">());
    set_field<"_CellBase__uut">(self, nb::none());
    const nb::object config = sheet_for(args[1], number);
    set_field<"_CellBase__cell_config">(self, config);
    read_configuration(self, config, number);
    set_field<"_start_time">(self, nb::none());
    set_field<"_elapse_begin_time">(self, nb::none());
    set_field<"_pause_flag">(self, nb::bool_(false));
    set_field<"_abort_flag">(self, nb::bool_(false));
    set_field<"_CellBase__done_flag">(self, nb::bool_(false));
    set_field<"_result_description">(self, nb::str(""));
    const nb::object running = python_module<"threading">().attr("Event")();
    running.attr("set")();
    set_field<"_pause_event">(self, running);
    set_field<"_exception_object">(self, nb::none());
    set_field<"_ng_items">(self, nb::list());
    set_field<"_test_thread">(self, nb::none());
    set_field<"_assertion_queue">(self, new_assertion_queue());
    nb::dict categories;
    categories["all"] = nb::list();
    set_field<"_assertion_category">(self, categories);
    return nb::none();
}

nb::object reset_state(nb::handle self, const Arguments&) {
    set_field<"running_state">(self, field<"CellStateStop">(self));
    set_field<"_start_time">(self, nb::none());
    set_field<"_elapse_begin_time">(self, nb::none());
    set_field<"_pause_flag">(self, nb::bool_(false));
    set_field<"_abort_flag">(self, nb::bool_(false));
    set_field<"_CellBase__done_flag">(self, nb::bool_(false));
    set_field<"_result_description">(self, nb::str(""));
    set_field<"_exception_object">(self, nb::none());
    field<"_ng_items">(self).attr("clear")();
    const nb::object categories = field<"_assertion_category">(self);
    categories.attr("clear")();
    categories["all"] = nb::list();
    return nb::none();
}

nb::object load_assertion_configs(nb::handle filename) {
    const nb::object workbook = imported<"load_workbook">()(filename, nb::arg("read_only") = true);
    const nb::object book = imported<"BookParameters">()(workbook);
    const nb::object first = nb::object(workbook.attr("sheetnames"))[0];
    book.attr("load_sheet")(first);
    const nb::object sheet = book.attr("get_sheet_parameters")(first);
    nb::dict configs;
    for (nb::handle item : nb::object(sheet.attr("parameter_names")))
        configs[item] = sheet.attr("get_parameter")(item);
    return configs;
}

nb::object load_assertion_configs_method(nb::handle, const Arguments& args) {
    return load_assertion_configs(args[0]);
}

nb::object set_assertion_config_file(nb::handle self, const Arguments& args) {
    nb::object configs = nb::none();
    if (!args.is_none(0) && truth(args[0]))
        configs = cell_base_class().attr("load_assertion_configs")(args[0]);
    set_field<"_assertion_configs">(self, configs);
    return nb::none();
}

nb::object export_assertion_config(nb::handle self, const Arguments&) {
    const nb::object uut = self.attr("uut");
    if (uut.is_none()) {
        PyErr_SetNone(PyExc_AssertionError);
        throw nb::python_error();
    }
    nb::list exported;
    for (nb::handle assertion : nb::object(uut.attr("assertions")))
        exported.append(assertion.attr("export_config")());
    return exported;
}

}  // namespace ats
