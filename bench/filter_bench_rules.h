// The rule set of the filter benchmarks: ten include/exclude pairs of the
// kind a replication job of a source tree carries (sources and headers in,
// documentation in, build outputs, logs and temporaries out), and the
// "[Filter Params]" text that configures a filter with them over a base
// directory. Shared by every benchmark that puts a filter to work, so that
// their figures are for the same rules.
//
// Every recursive part is a single name pattern, so the rules mean the same
// under glibc's fnmatch(FNM_PATHNAME | FNM_CASEFOLD): a pair (N, R) fits an
// object when N matches a leading part e1/.../ek of its relative path (k up
// to all of it) and R matches its name.
#pragma once

#include <string>

#include "vq_glob/export.h"

namespace vq_bench {

struct FilterRulePair {
    const char *non_recursive;
    const char *recursive;
};

inline constexpr FilterRulePair kFilterIncludeRules[] = {
    {"src", "*.c"},     {"src", "*.h"}, {"src", "*.cpp"},
    {"include", "*.h"}, {"docs", "*"},  {"*", "Makefile"},
};

inline constexpr FilterRulePair kFilterExcludeRules[] = {
    {"*", "*.o"},
    {"build", "*"},
    {"*", "*.log"},
    {"*", "*.tmp"},
};

// Patterns are written with "/"; the platform's separator replaces it.
inline std::string filter_bench_native(const char *pattern) {
    std::string text(pattern);
    for (char &c : text) {
        if (c == '/') {
            c = VQ_PATH_SEPARATOR;
        }
    }
    return text;
}

// The configuration text: the rules above over base, with the POSIX keys
// that would examine the file system switched off (the hidden-file key only
// looks at the name, but is off too so that the rules alone decide).
inline std::string filter_bench_config(const std::string &base) {
    std::string text = "[Filter Params]\nBase Directory=" + base + "\n";
    auto list = [&text](const char *name, auto const &pairs, bool first) {
        text += std::string(name) + "=_ml_text_\n";
        for (const FilterRulePair &pair : pairs) {
            text += filter_bench_native(first ? pair.non_recursive : pair.recursive) + "\n";
        }
        text += "_ml_text_\n";
    };
    list("Include Non Recursive Part List", kFilterIncludeRules, true);
    list("Include Recursive Part List", kFilterIncludeRules, false);
    list("Exclude Non Recursive Part List", kFilterExcludeRules, true);
    list("Exclude Recursive Part List", kFilterExcludeRules, false);
    text += "Ignore UNIX Hidden Files=FALSE\nIgnore UNIX Mount Points=FALSE\n";
    return text;
}

}  // namespace vq_bench
