// frame.cpp - the class ATSFrame: construction and what belongs to the window as a whole.
#include "main_frame/main_frame.hpp"
#include "module/errors.hpp"
#include "module/fields.hpp"
#include "module/imports.hpp"
#include "records/assertion.hpp"

namespace ats {
namespace {

constexpr char kTitle[] = "Veltrano自动化测试系统";

nb::object window_title(nb::handle title) {
    if (!truth(title)) return nb::str(kTitle);
    if (truth(title.attr("startswith")("@"))) {
        return nb::steal(or_raise(PyUnicode_Substring(title.ptr(), 1, PyUnicode_GetLength(title.ptr()))));
    }
    return nb::str(kTitle) + nb::str(" - ") + nb::borrow(title);
}

struct Grid {
    nb::object cell_count;
    nb::object column_count;
};

// An error that leads whoever wrote the workbook to the row that is wrong.
[[noreturn]] void raise_for_key(PyObject* type, nb::handle file, const char* key, nb::handle value,
                                const char* needed) {
    raise_formatted(type, "\"%S\", sheet \"main\": \"%s\" must be %s, not %R.", file.ptr(), key, needed,
                    value.ptr());
}

nb::object count_of(nb::handle book, nb::handle file, const char* key) {
    const nb::object count = book.attr("get")(key, 1);
    constexpr char needed[] = "a whole number from 0 on";
    if (!PyIndex_Check(count.ptr())) raise_for_key(PyExc_TypeError, file, key, count, needed);
    if (count < nb::int_(0)) raise_for_key(PyExc_ValueError, file, key, count, needed);
    return count;
}

Grid read_main_sheet(nb::handle self, nb::handle book, nb::handle file) {
    const auto get = book.attr("get");
    set_field<"_mop_block_ticker">(self, get("mop_block_ticker", true));
    if (!truth(get("show_toolbar", false))) self.attr("ui_toolbar").attr("Hide")();
    if (!truth(get("show_statistics_panel", true))) self.attr("ui_statistics_panel").attr("Hide")();
    Grid grid{count_of(book, file, "cell_count"), count_of(book, file, "column_count")};
    if (grid.cell_count < grid.column_count) grid.column_count = grid.cell_count;
    return grid;
}

void build_cells(nb::handle self, nb::handle book, const Grid& grid) {
    const nb::object wx = python_module<"wx">();
    const nb::object panel = self.attr("ui_cell_panel");
    nb::list cells;
    set_field<"_cells">(self, cells);
    for (nb::handle index : nb::borrow(reinterpret_cast<PyObject*>(&PyRange_Type))(grid.cell_count))
        cells.append(own_name<"Cell">()(panel, self, index + nb::int_(1), book));
    const nb::object sizer = wx.attr("GridSizer")(0, grid.column_count, 0, 0);
    for (nb::handle cell : cells) {
        sizer.attr("Add")(cell, 1, wx.attr("EXPAND") | wx.attr("ALL"));
        self.attr("Bind")(own_name<"EVT_STATISTICS_UPDATE_EVENT">(),
                          self.attr("_update_statistics_event_handler"), cell);
    }
    panel.attr("SetSizer")(sizer);
    sizer.attr("Fit")(panel);
    imported<"window_fit_layout">()(self, nb::arg("maximize") = true);
}

void load_parameters(nb::handle self, nb::handle directory) {
    set_field<"_ATSFrame__app_config_dir">(self, directory);
    set_field<"_ATSFrame__app_config">(self, nb::none());
    if (!directory.is_none() && truth(python_module<"os">().attr("path").attr("exists")(directory)))
        set_field<"_ATSFrame__app_config">(self, imported<"ParameterDirectory">().attr("load")(directory));
}

void arm_timers(nb::handle self, nb::handle book, nb::handle file) {
    self.attr("ui_initializer_trigger").attr("StartOnce")(0);
    set_field<"_in_ticker">(self, nb::bool_(false));
    const nb::object run = book.attr("get")("run_ticker", false);
    const nb::object interval = book.attr("get")("ticker_interval", 100);
    set_field<"_run_ticker">(self, run);
    set_field<"_ticker_interval">(self, interval);
    if (!truth(run)) return;
    if (!PyNumber_Check(interval.ptr()))
        raise_for_key(PyExc_TypeError, file, "ticker_interval", interval, "a number of milliseconds");
    if (interval > nb::int_(0)) self.attr("ui_ticker_timer").attr("StartOnce")(interval);
}

nb::object init(nb::handle self, const Arguments& args) {
    own_name<"_Frame">().attr("__init__")(self, args[0]);
    set_field<"_manual_module">(self, nb::none());
    const nb::object book = imported<"BookParameters">()(args[2]);
    book.attr("load_sheet")("main");
    const Grid grid = read_main_sheet(self, book, args[2]);
    self.attr("SetTitle")(window_title(args[1]));
    const nb::object threading = python_module<"threading">();
    set_field<"_ticker_locker">(self, threading.attr("Lock")());
    set_field<"_ticker_lock_count">(self, nb::int_(0));
    build_cells(self, book, grid);
    load_parameters(self, args[3]);
    const nb::object debug = book.attr("get")("startup_in_debug_mode", false);
    set_field<"_in_debug_mode">(self, debug);
    if (truth(debug)) self.attr("ui_in_debug_mode").attr("Check")(true);
    arm_timers(self, book, args[2]);
    set_field<"_statistics">(self, own_name<"Statistics">()());
    set_field<"_frame_thread">(self, threading.attr("current_thread")());
    set_field<"_shared_objs">(self, nb::dict());
    set_field<"_ATSFrame__test_data_viewer">(self, own_name<"TestDataViewerFrame">()(self));
    const nb::object cell_start = imported<"Callback">()();
    set_field<"_ATSFrame__cell_start_event">(self, cell_start);
    cell_start.attr("subscribe")(self.attr("_ATSFrame__on_start_cell_text"));
    return nb::none();
}

template <Literal L>
nb::object get(nb::handle self, const Arguments&) {
    return field<L>(self);
}

nb::object nothing(nb::handle, const Arguments&) { return nb::none(); }

nb::object assertion_class() { return nb::borrow(reinterpret_cast<PyObject*>(record_types.assertion)); }

nb::object ok_str(nb::handle, const Arguments&) { return verdict_word(Verdict::ok); }
nb::object ng_str(nb::handle, const Arguments&) { return verdict_word(Verdict::ng); }

nb::object set_ok_str(nb::handle self, const Arguments& args) {
    nb::setattr(assertion_class(), "OK_STR", args[0]);
    self.attr("ui_ok_count_label").attr("SetLabel")(args[0]);
    return nb::none();
}

nb::object set_ng_str(nb::handle self, const Arguments& args) {
    nb::setattr(assertion_class(), "NG_STR", args[0]);
    self.attr("ui_ng_count_label").attr("SetLabel")(args[0]);
    return nb::none();
}

nb::object set_shared_obj(nb::handle self, const Arguments& args) {
    field<"_shared_objs">(self)[args[0]] = args[1];
    return nb::none();
}

nb::object get_shared_obj(nb::handle self, const Arguments& args) {
    return field<"_shared_objs">(self)[args[0]];
}

nb::object is_in_ui_thread(nb::handle self, const Arguments&) {
    return nb::bool_(python_module<"threading">().attr("current_thread")().is(field<"_frame_thread">(self)));
}

nb::object on_change_debug_mode(nb::handle self, const Arguments&) {
    set_field<"_in_debug_mode">(self, self.attr("ui_in_debug_mode").attr("IsChecked")());
    return nb::none();
}

nb::object on_show_test_data_window(nb::handle self, const Arguments&) {
    field<"_ATSFrame__test_data_viewer">(self).attr("Show")();
    return nb::none();
}

constexpr Member kMembers[] = {
    method("__init__(parent = None, title = '', config_file = _default_ats_config_path, "
           "app_config_dir: str? = 'app_config')",
           init),
    // cells
    property("cells", get<"_cells">),
    method("get_cell(index: int = 0)", get_cell),
    method("get_cell_count()", get_cell_count),
    method("start_cell(cell_number: int, serial_number: str = '')", start_cell),
    method("is_running(cell_number = None)", is_running),
    property("cell_start_event", get<"_ATSFrame__cell_start_event">),
    method("_ATSFrame__on_start_cell_text(cell)", on_start_cell_text),
    method("on_start_all(event)", on_start_all),
    method("on_abort_all(event)", on_abort_all),
    // totals
    method("_update_statistics_event_handler(event)", update_statistics_event_handler),
    method("clear_statistics()", clear_frame_statistics),
    method("on_clear_statistics(event)", on_clear_statistics),
    property("ok_str", ok_str, "value: str", set_ok_str),
    property("ng_str", ng_str, "value: str", set_ng_str),
    // what scripts reach through their cell
    method("set_shared_obj(name: str, obj)", set_shared_obj),
    method("get_shared_obj(name: str)", get_shared_obj),
    method("is_in_ui_thread()", is_in_ui_thread),
    method("is_in_debug_mode()", get<"_in_debug_mode">),
    method("on_change_debug_mode(event)", on_change_debug_mode),
    method("on_show_test_data_window(event)", on_show_test_data_window),
    // start-up and closing
    method("startup_initializer()", nothing),
    method("exit_finalizer()", nothing),
    method("on_trigger_initializer(event)", on_trigger_initializer),
    method("on_close_app(event)", on_close_app),
    // ticker
    method("ticker_function()", ticker_function),
    method("start_ticker(interval)", start_ticker),
    method("stop_ticker()", stop_ticker),
    method("on_start_ticker(event)", on_start_ticker),
    method("on_ticker_timer_event(event)", on_ticker_timer_event),
    method("block_ticker(timeout: float = -1.0)", block_ticker),
    method("unblock_ticker()", unblock_ticker),
    method("is_ticker_blocked()", is_ticker_blocked),
    method("ticker_blocker(timeout = -1)", ticker_blocker),
    // test parameters
    property("app_config", get<"_ATSFrame__app_config">),
    method("reload_app_config()", reload_app_config),
    method("on_edit_test_parameters(event)", on_edit_test_parameters),
    method("on_reload_test_parameters(event)", on_reload_test_parameters),
    method("on_save_test_parameters(event)", on_save_test_parameters),
    method("on_export_assertion_config(event)", on_export_assertion_config),
    // dialogs
    method("on_show_manual_operation_dialog(event)", on_show_manual_operation_dialog),
    method("on_show_about_dialog(event)", on_show_about_dialog),
};

}  // namespace

void init_frame(nb::module_& module) {
    nb::dict constants;
    constants["TickerBlocker"] = make_ticker_blocker_class(module);
    build_class(module, "ATSFrame", nb::make_tuple(imported<"_Frame">()), kMembers, constants);
}

}  // namespace ats
