// docstrings.cpp - looking up the texts of the generated table.
#include "module/docstrings.hpp"

#include <algorithm>

namespace ats {
namespace {

struct Entry {
    std::string_view qualified_name;
    const char* text;
};

constexpr Entry kTable[] = {
#include "docstring_table.inc"
};

static_assert(std::ranges::is_sorted(kTable, {}, &Entry::qualified_name));

}  // namespace

const char* find_docstring(std::string_view qualified_name) {
    const Entry* entry = std::ranges::lower_bound(kTable, qualified_name, {}, &Entry::qualified_name);
    const bool found = entry != std::end(kTable) && entry->qualified_name == qualified_name;
    return found ? entry->text : nullptr;
}

}  // namespace ats
