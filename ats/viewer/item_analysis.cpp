// item_analysis.cpp - one test item across the listed units.  GUI thread.
#include "module/errors.hpp"
#include "module/fields.hpp"
#include "module/imports.hpp"
#include "records/assertion.hpp"
#include "records/uut.hpp"
#include "viewer/viewer.hpp"

namespace ats {
namespace {

constexpr const char* kFields[] = {
    "ui_single_item_ok_count", "ui_single_item_ng_count", "ui_single_item_yield",
    "ui_single_item_max",      "ui_single_item_min",      "ui_single_item_middle",
    "ui_single_item_average",  "ui_single_item_variance", "ui_single_item_std_deviation"};

void show(nb::handle self, const char* attribute, nb::handle value) {
    self.attr(attribute).attr("SetValue")(nb::str(value));
}

// The list itself, or one made of what a subclass offers.
nb::object assertions_of(nb::handle uut) {
    nb::object offered = assertions_of_unit(uut);
    return PyList_Check(offered.ptr()) ? offered : nb::object(nb::list(offered));
}

// Texts are compared without the interpreter: names of one item are mostly the same object, and different
// ones mostly differ in length or hash.
bool same_text(PyObject* left, PyObject* right) {
    if (left == right) return true;
    if (PyUnicode_GET_LENGTH(left) != PyUnicode_GET_LENGTH(right)) return false;
    return PyObject_Hash(left) == PyObject_Hash(right) && PyUnicode_Compare(left, right) == 0;
}

bool is_named(PyObject* assertion, PyObject* wanted) {
    PyObject* own = own_name_of(assertion);
    if (own && PyUnicode_CheckExact(own) && PyUnicode_CheckExact(wanted)) return same_text(own, wanted);
    return nb::object(nb::handle(assertion).attr("name")).equal(nb::handle(wanted));
}

void fetch_ahead([[maybe_unused]] const void* place) {
#ifdef __GNUC__
    __builtin_prefetch(place);
#endif
}

// Assertions of the name in one unit, in their order; the list may grow while it is walked.  A million
// records lie scattered in memory, so those to come are fetched ahead.
void gather(nb::handle uut, PyObject* wanted, nb::list& found) {
    constexpr Py_ssize_t kAhead = 12;
    const nb::object assertions = assertions_of(uut);

    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(assertions.ptr()); ++i) {
        if (i + kAhead < PyList_GET_SIZE(assertions.ptr()))
            fetch_ahead(PyList_GET_ITEM(assertions.ptr(), i + kAhead));
        const nb::object assertion = nb::borrow(PyList_GET_ITEM(assertions.ptr(), i));
        if (is_named(assertion.ptr(), wanted)) found.append(assertion);
    }
}

nb::object number_of(nb::handle assertion) {
    nb::object value = value_of(assertion);
    if (PyFloat_CheckExact(value.ptr())) return value;
    if (PyUnicode_Check(value.ptr())) return nb::steal(or_raise(PyFloat_FromString(value.ptr())));
    return nb::steal(or_raise(PyNumber_Float(value.ptr())));
}

void show_figures(nb::handle self, nb::handle values) {
    const nb::object sorted = python_module<"numpy">().attr("array")(values);
    sorted.attr("sort")();
    const nb::int_ last(-1), middle(nb::len(values) / 2);
    show(self, "ui_single_item_max", nb::object(sorted[last]));
    show(self, "ui_single_item_min", nb::object(sorted[nb::int_(0)]));
    show(self, "ui_single_item_middle", nb::object(sorted[middle]));
    show(self, "ui_single_item_average", nb::object(sorted.attr("mean")()));
    show(self, "ui_single_item_variance", nb::object(sorted.attr("var")()));
    show(self, "ui_single_item_std_deviation", nb::object(sorted.attr("std")()));
}

void plot_values(nb::handle plot, nb::handle values) {
    const nb::object x = python_module<"numpy">().attr("arange")(nb::len(values));
    const nb::object axes = nb::object(plot.attr("subplots")())[1];
    axes.attr("plot")(x, values);
}

}  // namespace

nb::object on_select_test_item(nb::handle self, const Arguments&) {
    const nb::object rows = self.attr("ui_assertions").attr("GetSelectedRows")();
    if (nb::len(rows) == 0) return nb::none();
    const nb::object uut = nb::object(self.attr("_TestDataViewerPanel__get_selected_uut")())[0];
    const nb::object assertion = nb::object(uut.attr("assertions"))[nb::object(rows[0])];
    self.attr("_TestDataViewerPanel__analyze_single_test_item")(
        self.attr("_TestDataViewerPanel__get_all_assertions_by_name")(assertion.attr("name")));
    return nb::none();
}

nb::object get_all_assertions_by_name(nb::handle self, const Arguments& args) {
    nb::list found;
    const CellFilter filter(filter_text(self));
    for (nb::handle uut : nb::list(field<"_uut_list">(self)))
        if (filter.admits(uut)) gather(uut, args[0].ptr(), found);
    return found;
}

nb::object clear_single_item_info(nb::handle self, const Arguments&) {
    for (const char* attribute : kFields) show(self, attribute, nb::str(""));
    return nb::none();
}

nb::object analyze_single_test_item(nb::handle self, const Arguments& args) {
    self.attr("_TestDataViewerPanel__clear_single_item_info")();
    long long ok_count = 0, ng_count = 0;
    nb::list values;  // in gathering order, as they are plotted
    for (nb::handle assertion : args[0]) {
        values.append(number_of(assertion));
        if (is_ok(assertion)) ++ok_count;
        if (is_ng(assertion)) ++ng_count;
    }
    show(self, "ui_single_item_ok_count", nb::int_(ok_count));
    show(self, "ui_single_item_ng_count", nb::int_(ng_count));
    const nb::object plot = field<"_TestDataViewerPanel__matplot_panel">(self);
    if (const long long total = ok_count + ng_count; total > 0) {
        const double yield = static_cast<double>(ok_count) / static_cast<double>(total) * 100.0;
        show(self, "ui_single_item_yield",
             nb::object(nb::str("%.02f%%").attr("__mod__")(nb::make_tuple(yield))));
        show_figures(self, values);
        plot_values(plot, values);
    } else {
        for (const char* attribute :
             {"ui_single_item_std_deviation", "ui_single_item_variance", "ui_single_item_average",
              "ui_single_item_middle", "ui_single_item_min", "ui_single_item_max"})
            show(self, attribute, nb::str(""));
        plot.attr("clear")();
    }
    plot.attr("draw")();
    return nb::none();
}

}  // namespace ats
