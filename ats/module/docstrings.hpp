// docstrings.hpp - the documentation of the module, taken from its type stub when the module is built.
#pragma once

#include <string_view>

namespace ats {

// The text for "Class" or "Class.member", UTF-8 and alive as long as the process; null for what has none.
const char* find_docstring(std::string_view qualified_name);

}  // namespace ats
