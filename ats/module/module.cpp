// module.cpp - entry point of qon_ats.
#include "cell_panel/cell_panel.hpp"
#include "engine/engine.hpp"
#include "main_frame/main_frame.hpp"
#include "module/imports.hpp"
#include "module/method.hpp"
#include "records/records.hpp"
#include "script_api/script_api.hpp"
#include "viewer/viewer.hpp"

namespace {

// What `from qon_ats import *` brings.
constexpr const char* kDocumented[] = {
    "ATSFrame",
    "Assertion",
    "CallUserFunctionInfo",
    "Cell",
    "CellBase",
    "CellRunnerBase",
    "EVT_STATISTICS_UPDATE_EVENT",
    "ManualOperationDialog",
    "Statistics",
    "StatisticsUpdateEvent",
    "TestDataViewerFrame",
    "TestDataViewerPanel",
    "TestItem",
    "UUT",
};

}  // namespace

NB_MODULE(qon_ats, module) {
    using namespace ats;
    module.doc() = "Framework of an automated test station: cells, test threads, records and windows.";
    init_method_type();
    import_names(module);  // before everything that derives from an imported class

    init_assertion(module);  // argument checks know the record types from here on
    init_uut(module);
    init_control(module);
    init_statistics(module);
    init_test_item(module);

    init_assertion_queue(module);
    init_cell_base(module);

    init_user_calls(module);
    init_runner(module);

    init_cell(module);
    init_viewer_panel(module);
    init_viewer_frame(module);
    init_manual_operation_dialog(module);
    init_frame(module);

    nb::list documented;
    for (const char* each : kDocumented) documented.append(each);
    nb::setattr(module, "__all__", documented);
}
