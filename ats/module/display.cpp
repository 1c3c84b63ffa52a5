// display.cpp - texts for the operator's eyes.
#include "module/display.hpp"

#include "module/fields.hpp"
#include "module/imports.hpp"

namespace ats {

nb::object local_time(nb::handle seconds) {
    const nb::object moment = python_module<"datetime">().attr("datetime").attr("fromtimestamp")(seconds);
    constexpr Py_ssize_t kToTheSecond = 19;
    const nb::object text = moment.attr("isoformat")(" ");
    return nb::steal(or_raise(PyUnicode_Substring(text.ptr(), 0, kToTheSecond)));
}

void show_counters(nb::handle window, nb::handle statistics) {
    window.attr("ui_ok_count").attr("SetValue")(nb::str(nb::object(statistics.attr("get_ok")())));
    window.attr("ui_ng_count").attr("SetValue")(nb::str(nb::object(statistics.attr("get_ng")())));
    const nb::tuple percent = nb::make_tuple(statistics.attr("get_ok_percent")());
    window.attr("ui_ok_percent").attr("SetValue")(nb::str("%.02f%%").attr("__mod__")(percent));
}

void delete_all_rows(nb::handle grid) {
    const nb::object rows = grid.attr("GetNumberRows")();
    if (rows > nb::int_(0)) grid.attr("DeleteRows")(0, rows);
}

}  // namespace ats
