// The wildcard matchers' rules stated in glibc fnmatch's terms, for the
// differential checks of the unit test and of the fuzz target.
//
// Where the rules agree: fnmatch knows brackets and the backslash escape, so
// texts compared hold neither ("[" and "\" are plain bytes to the library).
// Its "*" also matches nothing at the end of the name where the library needs
// a character behind a run of two or more stars ("a**" does not match "a"):
// such a run at the end of the pattern, or in the path form at the end of an
// element, means "?*" and is handed to fnmatch that way. Case folding compares
// with FNM_CASEFOLD, which in the C locale folds ASCII letters only.
#pragma once

#include <fnmatch.h>

#include <string>

namespace vq_test {

// Whether fnmatch can judge the text by the library's rules.
inline bool fnmatch_comparable(const std::string &text) { return text.find_first_of("[\\") == std::string::npos; }

// The pattern written for fnmatch; with a separator, a run of stars before it
// ends an element too (pass '\0' for the name form).
inline std::string fnmatch_pattern(const std::string &pattern, char separator) {
    std::string out;
    for (size_t i = 0; i < pattern.size();) {
        size_t run_end = pattern.find_first_not_of('*', i);
        run_end = run_end == std::string::npos ? pattern.size() : run_end;
        const bool ends_element =
            run_end == pattern.size() || (separator != '\0' && pattern[run_end] == separator);
        if (pattern[i] == '*' && run_end - i >= 2 && ends_element) {
            out += "?*";
            i = run_end;
        } else {
            out += pattern[i++];
        }
    }
    return out;
}

// fnmatch's answer as the library gives it: 1 for a match, 0 for none, -1
// for an error of fnmatch's own. flags gets FNM_CASEFOLD added when not
// case-sensitive.
inline int fnmatch_result(const std::string &pattern, const std::string &name, int case_sensitive, int flags) {
    flags |= case_sensitive != 0 ? 0 : FNM_CASEFOLD;
    const int result = fnmatch(pattern.c_str(), name.c_str(), flags);
    return result == 0 ? 1 : (result == FNM_NOMATCH ? 0 : -1);
}

// Whether a full path match (result 1) can be compared with fnmatch's
// FNM_PATHNAME match: not for names that are empty or end with a separator,
// where an empty name remainder meets a pattern remainder and the path
// matcher answers 3 (the name is an ancestor of what the pattern selects)
// whatever that remainder is, while fnmatch lets a "*" match the empty last
// element ("a/*" against "a/").
inline bool path_comparable(const std::string &name, char separator) {
    return !name.empty() && name.back() != separator;
}

}  // namespace vq_test
