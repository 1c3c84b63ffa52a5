// debug_shell.cpp - the interactive prompt on a page of the cell.
#include "cell_panel/cell_panel.hpp"
#include "module/imports.hpp"
#include "module/scope_guard.hpp"

namespace ats {
namespace {

constexpr char kNoExit[] = "Close the station's window to leave the application.";

constexpr const char* kReplacedBuiltins[] = {"exit", "quit", "close"};

// The shell replaces these for the whole process; they are put back when it is built.
nb::object build_shell(nb::handle parent) {
    const nb::object builtins = python_module<"builtins">().attr("__dict__");
    const nb::object before = builtins.attr("copy")();
    const ScopeGuard put_back([&]() noexcept {
        for (const char* each : kReplacedBuiltins) {
            PyObject* kept = PyDict_GetItemString(before.ptr(), each);
            const int status = kept ? PyDict_SetItemString(builtins.ptr(), each, kept)
                                    : PyDict_DelItemString(builtins.ptr(), each);
            if (status < 0) PyErr_Clear();  // was not there and is not there
        }
    });
    return nb::module_::import_("wx.py.shell").attr("Shell")(parent);
}

// A namespace of the shell's own, with the cell, its frame and wx at hand, where the shell has such a thing.
void offer_names(nb::handle shell, nb::handle cell) {
    const nb::object interpreter = nb::getattr(shell, "interp", nb::none());
    if (!PyDict_Check(nb::object(nb::getattr(interpreter, "locals", nb::none())).ptr())) return;
    nb::dict space;
    space["__name__"] = "__console__";
    space["cell"] = cell;
    space["frame"] = cell.attr("main_frame");
    space["wx"] = python_module<"wx">();
    space["shell"] = shell;
    // Typed into the prompt, the interpreter's own would end the station.
    for (const char* each : kReplacedBuiltins) space[each] = kNoExit;
    nb::setattr(interpreter, "locals", space);
}

}  // namespace

void add_debug_shell(nb::handle cell) {
    const nb::object notebook = cell.attr("ui_view_notebook");
    const nb::object shell = build_shell(notebook);
    offer_names(shell, cell);
    notebook.attr("AddPage")(shell, "Debug Shell");
}

}  // namespace ats
