// signature_check.hpp - what a signature text may hold, checked by the compiler: a wrong table is not built.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace ats {

inline constexpr std::size_t kMaxParameters = 10;
inline constexpr std::size_t kMaxOwned = 4;  // arguments that a call may convert or collect

namespace signature_check {

constexpr std::string_view strip(std::string_view text) {
    while (text.starts_with(' ')) text.remove_prefix(1);
    while (text.ends_with(' ')) text.remove_suffix(1);
    return text;
}

constexpr bool is_name(std::string_view text) {
    if (text.empty() || (text[0] >= '0' && text[0] <= '9')) return false;
    for (const char c : text)
        if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_'))
            return false;
    return true;
}

constexpr bool is_number(std::string_view text) {
    if (text.starts_with('-')) text.remove_prefix(1);
    for (const char c : text)
        if (!((c >= '0' && c <= '9') || c == '.')) return false;
    return !text.empty();
}

// A quoted text without a quotation mark inside.  Commas end a parameter, also there: none is allowed.
constexpr bool is_text(std::string_view text) {
    return text.size() >= 2 && text.front() == '\'' && text.back() == '\'' &&
           text.substr(1, text.size() - 2).find('\'') == std::string_view::npos;
}

// Whether the default fits the type that callers are held to.
constexpr bool default_fits(std::string_view type, std::string_view value) {
    if (value == "None") return true;
    if (type == "str") return is_text(value) || (is_name(value) && value.starts_with('_'));
    if (type == "bool") return value == "True" || value == "False";
    if (type == "int") return is_number(value) && value.find('.') == std::string_view::npos;
    if (type == "float") return is_number(value) && value.find('.') != std::string_view::npos;
    return is_text(value) || is_number(value) || is_name(value);
}

struct Counts {
    std::size_t parameters = 0;
    std::size_t owned = 0;  // converted or collected
    bool has_default = false, has_rest = false, has_keywords = false;
};

constexpr const char* fault_of_parameter(std::string_view text, Counts& counts) {
    const bool keywords = text.starts_with("**");
    const bool rest = !keywords && text.starts_with("*");
    text.remove_prefix(keywords ? 2 : rest ? 1 : 0);
    if (++counts.parameters > kMaxParameters) return "too many parameters";
    if (counts.has_keywords || (counts.has_rest && !keywords)) return "a parameter behind *args or **kwargs";
    counts.has_keywords = keywords;
    counts.has_rest = counts.has_rest || rest;
    counts.owned += keywords || rest;

    const auto equals = text.find('=');
    const bool has_default = equals != std::string_view::npos;
    if (has_default && (keywords || rest)) return "*args and **kwargs have no default";
    if (!has_default && counts.has_default && !keywords && !rest)
        return "a default before a required parameter";
    counts.has_default = counts.has_default || has_default;

    const std::string_view declared = strip(text.substr(0, equals));
    const auto colon = declared.find(':');
    if (!is_name(strip(declared.substr(0, colon)))) return "not a parameter's name; a comma in a default?";
    std::string_view type;
    if (colon != std::string_view::npos) {
        type = strip(declared.substr(colon + 1));
        if (type.ends_with('?')) type.remove_suffix(1);
        counts.owned += type == "float";
        if (type == "float!") type.remove_suffix(1);
        if (type != "str" && type != "int" && type != "bool" && type != "float") return "an unknown type";
    }
    if (counts.owned > kMaxOwned) return "too many arguments to convert or collect";
    if (has_default && !default_fits(type, strip(text.substr(equals + 1))))
        return "a default that its type does not admit, or with a comma in it";
    return nullptr;
}

constexpr const char* fault_of_parameters(std::string_view rest) {
    Counts counts;
    for (rest = strip(rest); !rest.empty();) {
        const auto comma = rest.find(',');
        if (const char* fault = fault_of_parameter(strip(rest.substr(0, comma)), counts)) return fault;
        if (comma == std::string_view::npos) break;
        rest = strip(rest.substr(comma + 1));
        if (rest.empty()) return "a comma at the end";
    }
    return nullptr;
}

// Null for a text that can be parsed and does what it says; else what is wrong with it.
constexpr const char* fault_of(std::string_view text) {
    const auto open = text.find('(');
    if (open == std::string_view::npos || !text.ends_with(')')) return "a signature without parentheses";
    if (!is_name(text.substr(0, open))) return "not a function's name";
    return fault_of_parameters(text.substr(open + 1, text.size() - open - 2));
}

static_assert(!fault_of("f()") && !fault_of("f(a, b: str? = '', c: float = 0.1, *args, **kwargs)"));
static_assert(fault_of("f(a: Text)") && fault_of("f(a: str = 5)") && fault_of("f(a: float = 1)"));
static_assert(fault_of("f(a = ', ')") && fault_of("f(a = (1, 2))") && fault_of("f(a = 1, b)"));
static_assert(fault_of("f(a: float, b: float, c: float, d: float, e: float)") && fault_of("f(a,)"));

}  // namespace signature_check

}  // namespace ats
