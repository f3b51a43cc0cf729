// ASCII character rules shared by every parser of the library. They never
// consult the C locale: names, keywords and values compare the same way
// whatever locale the calling program has set, and bytes of 0x80 and above
// (UTF-8) are left alone.
#pragma once

#include <cstddef>
#include <string_view>

namespace vq::ascii {

// A blank separates words: space or horizontal tab (not line ends).
constexpr bool is_blank(char c) { return c == ' ' || c == '\t'; }

constexpr bool is_digit(char c) { return c >= '0' && c <= '9'; }

constexpr bool is_alpha(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

constexpr char to_upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

constexpr char to_lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// a and b are equal ignoring ASCII case.
constexpr bool equal_nocase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (to_upper(a[i]) != to_upper(b[i])) {
            return false;
        }
    }
    return true;
}

// text begins with prefix, ignoring ASCII case.
constexpr bool starts_with_nocase(std::string_view text, std::string_view prefix) {
    return text.size() >= prefix.size() && equal_nocase(text.substr(0, prefix.size()), prefix);
}

// <0, 0, >0 as a sorts before, with or after b, comparing upper-cased bytes
// as unsigned values (the order of _stricmp on ASCII names).
constexpr int compare_nocase(std::string_view a, std::string_view b) {
    std::size_t n = a.size() < b.size() ? a.size() : b.size();
    for (std::size_t i = 0; i < n; ++i) {
        auto ca = static_cast<unsigned char>(to_upper(a[i]));
        auto cb = static_cast<unsigned char>(to_upper(b[i]));
        if (ca != cb) {
            return ca < cb ? -1 : 1;
        }
    }
    return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}

static_assert(equal_nocase("Section", "SECTION") && !equal_nocase("a", "ab"));
static_assert(compare_nocase("abc", "ABD") < 0 && compare_nocase("b", "A") > 0 && compare_nocase("x", "X") == 0);

}  // namespace vq::ascii
