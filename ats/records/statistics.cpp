// statistics.cpp - counters of finished units, and the event that reports one counted unit.
#include "module/imports.hpp"
#include "records/native_type.hpp"
#include "records/records.hpp"

namespace ats {
namespace {

struct Statistics {
    PyObject_HEAD
    PyObject* ok;
    PyObject* ng;
    PyObject* dict;
    PyObject* weakrefs;

    static constexpr char kName[] = "Statistics";
    static constexpr Field<Statistics> kFields[] = {{"_ok", &Statistics::ok}, {"_ng", &Statistics::ng}};
};

using Type = NativeType<Statistics>;

Statistics* as_statistics(nb::handle self) { return reinterpret_cast<Statistics*>(self.ptr()); }

nb::object ok(nb::handle self, const Arguments&) { return Type::need<&Statistics::ok>(self); }
nb::object ng(nb::handle self, const Arguments&) { return Type::need<&Statistics::ng>(self); }

nb::object init(nb::handle self, const Arguments& args) {
    assign(as_statistics(self)->ok, args[0]);
    assign(as_statistics(self)->ng, args[1]);
    return nb::none();
}

nb::object get_total(nb::handle self, const Arguments& args) { return ok(self, args) + ng(self, args); }

// The integer 0 while nothing is counted, else a float that is not rounded here.
nb::object percent(nb::handle self, const nb::object& counter) {
    const nb::object total = self.attr("get_total")();
    if (total.equal(nb::int_(0))) return nb::int_(0);
    return counter / total * nb::int_(100);
}

nb::object get_ok_percent(nb::handle self, const Arguments& args) { return percent(self, ok(self, args)); }
nb::object get_ng_percent(nb::handle self, const Arguments& args) { return percent(self, ng(self, args)); }

nb::object clear(nb::handle self, const Arguments&) {
    assign(as_statistics(self)->ok, nb::int_(0));
    assign(as_statistics(self)->ng, nb::int_(0));
    return nb::none();
}

nb::object increase(nb::handle self, const Arguments& args) {
    const bool is_ok = args[0].ptr() == Py_True;
    const nb::object next = (is_ok ? ok(self, args) : ng(self, args)) + nb::int_(1);
    assign(is_ok ? as_statistics(self)->ok : as_statistics(self)->ng, next);
    return nb::none();
}

nb::object init_event(nb::handle self, const Arguments& args) {
    python_module<"wx">().attr("PyCommandEvent").attr("__init__")(self, args[0], args[1]);
    nb::setattr(self, "_result", args[2]);
    return nb::none();
}

nb::object get_result(nb::handle self, const Arguments&) { return self.attr("_result"); }

constexpr Member kStatistics[] = {
    method("__init__(ok: int = 0, ng: int = 0)", init),
    method("__getstate__()", Type::get_state),
    method("__setstate__(state)", Type::set_state),
    method("get_total()", get_total),
    method("get_ok()", ok),
    method("get_ng()", ng),
    method("get_ok_percent()", get_ok_percent),
    method("get_ng_percent()", get_ng_percent),
    method("clear()", clear),
    method("increase(ok: bool = True)", increase),
};

constexpr Member kEvent[] = {
    method("__init__(evt_type, evt_id, result: bool)", init_event),
    method("get_result()", get_result),
};

}  // namespace

void init_statistics(nb::module_& module) {
    PyTypeObject* type = Type::make("qon_ats.Statistics");
    publish_type(module, type, "Statistics", kStatistics);
    const nb::object wx = python_module<"wx">();
    build_class(module, "StatisticsUpdateEvent", nb::make_tuple(wx.attr("PyCommandEvent")), kEvent);
}

}  // namespace ats
