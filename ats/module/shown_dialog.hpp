// shown_dialog.hpp - a dialog that is destroyed on every way out.  GUI thread.
#pragma once

#include "module/scope_guard.hpp"

namespace ats {

class ShownDialog {
  public:
    explicit ShownDialog(nb::object dialog) : dialog_(std::move(dialog)) {}
    // Only where something raised: an orderly end is `destroy`, whose own failure is told.
    ~ShownDialog() {
        if (dialog_.is_valid()) call_quietly(dialog_, name<"Destroy">());
    }
    ShownDialog(const ShownDialog&) = delete;
    ShownDialog& operator=(const ShownDialog&) = delete;

    const nb::object& get() const { return dialog_; }
    nb::object show() const { return dialog_.attr("ShowModal")(); }
    void destroy() {
        const nb::object dialog = std::move(dialog_);
        dialog.attr("Destroy")();
    }

  private:
    nb::object dialog_;
};

}  // namespace ats
