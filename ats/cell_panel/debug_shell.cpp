// debug_shell.cpp - the interactive prompt on a page of the cell.
#include "cell_panel/cell_panel.hpp"
#include "module/imports.hpp"

namespace ats {
namespace {

constexpr char kNoExit[] = "Close the station's window to leave the application.";

// The shell replaces these builtins for the whole process; they are put back when it is built.
class KeptBuiltins {
  public:
    KeptBuiltins() : builtins_(python_module<"builtins">().attr("__dict__")) {
        for (std::size_t i = 0; i < 3; ++i) kept_[i] = builtins_.attr("get")(kNames[i]);
    }
    ~KeptBuiltins() {
        for (std::size_t i = 0; i < 3; ++i) {
            const int status = kept_[i].is_none()
                                   ? PyDict_DelItemString(builtins_.ptr(), kNames[i])
                                   : PyDict_SetItemString(builtins_.ptr(), kNames[i], kept_[i].ptr());
            if (status < 0) PyErr_Clear();  // was not there and is not there
        }
    }
    KeptBuiltins(const KeptBuiltins&) = delete;
    KeptBuiltins& operator=(const KeptBuiltins&) = delete;

  private:
    static constexpr const char* kNames[] = {"exit", "quit", "close"};
    nb::object builtins_;
    nb::object kept_[3];
};

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
    for (const char* each : {"exit", "quit", "close"}) space[each] = kNoExit;
    nb::setattr(interpreter, "locals", space);
}

}  // namespace

void add_debug_shell(nb::handle cell) {
    const nb::object notebook = cell.attr("ui_view_notebook");
    nb::object shell;
    {
        const KeptBuiltins kept;
        shell = nb::module_::import_("wx.py.shell").attr("Shell")(notebook);
    }
    offer_names(shell, cell);
    notebook.attr("AddPage")(shell, "Debug Shell");
}

}  // namespace ats
