// Wildcard matching of names ("?" and "*") and of separator-separated paths.
//
// The name matcher walks pattern and name once, remembering only the last star
// it passed and the name position that star's current attempt began at. On a
// mismatch it lets that star swallow more of the name and resumes behind it.
// A single resume point is enough because each non-star pattern character
// matches exactly one name character: when the text between two stars matched
// at the earliest possible place, every later placement could only leave less
// name for the rest of the pattern, which the next star can make up for
// anyway. So no state ever needs revisiting, and the worst case is the
// product of the two lengths instead of the exponential cost of trying every
// split of the name between the stars. The text behind the last star is not
// searched for at all: it can only match the end of the name.
//
// One rule is not shell globbing: a star reached when the name is already
// used up matches only if it is the pattern's last character. A single
// trailing star therefore matches an empty remainder, but a trailing run of
// two or more stars needs at least one character, and "a**" does not match
// "a". The matcher treats such a run as "one character, then anything".
#include "vq_glob/wildcard.h"

#include <cstring>

#include "internal/ascii.h"
#include "internal/raise.h"
#include "vq_glob/dbg.h"
#include "vq_glob/err.h"

namespace vq::wildcard {
namespace {

constexpr char kSeparator = VQ_PATH_SEPARATOR;

// The path matcher traces on the FILTER channel (bit 56: byte 7, bit 0), as
// its main user is the include/exclude filter.
constexpr unsigned char kTraceChannel[8] = {0, 0, 0, 0, 0, 0, 0, 0x01};

struct Rules {
    bool fold_case;
    bool strike;
};

// Whether one non-star pattern character matches the name character c (not NUL).
inline bool matches_one(unsigned char p, unsigned char c, Rules rules) {
    if (p == '?') {
        return !(rules.strike && c == '*');
    }
    // Case folds by the ASCII rules: the result must not depend on the locale.
    return p == c || (rules.fold_case &&
                      ascii::to_upper(static_cast<char>(p)) == ascii::to_upper(static_cast<char>(c)));
}

// The first place from n on where the pattern character p (not a star) could
// match, or null. A star's attempts start only there: the C library's scans
// skip the hopeless places much faster than trying each of them would.
const unsigned char *next_start(const unsigned char *n, unsigned char p, Rules rules) {
    if (p == '?') {
        return *n != '\0' ? n : nullptr;
    }
    const char *text = reinterpret_cast<const char *>(n);
    const char *found = nullptr;
    const char c = static_cast<char>(p);
    if (rules.fold_case && ascii::is_alpha(c)) {
        const char either[] = {ascii::to_upper(c), ascii::to_lower(c), '\0'};
        found = std::strpbrk(text, either);
    } else {
        found = std::strchr(text, c);
    }
    return reinterpret_cast<const unsigned char *>(found);
}

size_t length(const unsigned char *text) { return std::strlen(reinterpret_cast<const char *>(text)); }

// The text behind the pattern's last star can only match the end of the name,
// so it is compared there once instead of being tried at every position.
bool match_tail(const unsigned char *p, const unsigned char *n, Rules rules) {
    size_t pattern_length = length(p);
    size_t name_length = length(n);
    if (name_length < pattern_length) {
        return false;
    }
    for (n += name_length - pattern_length; *p != '\0'; ++p, ++n) {
        if (!matches_one(*p, *n, rules)) {
            return false;
        }
    }
    return true;
}

bool match_name(const unsigned char *p, const unsigned char *n, Rules rules) {
    const auto *last_star =
        reinterpret_cast<const unsigned char *>(std::strrchr(reinterpret_cast<const char *>(p), '*'));
    const unsigned char *resume_pattern = nullptr;  // just behind the last star run passed
    const unsigned char *resume_name = nullptr;     // where that run's current attempt began
    for (;;) {
        if (*p == '*') {
            const unsigned char *after = p;
            while (*after == '*') {
                ++after;
            }
            if (*after == '\0') {
                // A lone trailing star takes any remainder; a longer trailing
                // run needs one character, and less name is all a retry gives.
                if (after - p == 1 || *n != '\0') {
                    return true;
                }
            } else if (after == last_star + 1) {
                // Where the name ends here, what follows cannot match.
                return *n != '\0' && match_tail(after, n, rules);
            } else if (*n != '\0') {
                p = resume_pattern = after;
                n = resume_name = next_start(n, *after, rules);
                if (n == nullptr) {
                    return false;  // a later start for an earlier star leaves even less name
                }
                continue;
            }
            // The name ended at a star that something follows: this attempt fails.
        } else if (*p == '\0') {
            if (*n == '\0') {
                return true;
            }
        } else if (*n != '\0' && matches_one(*p, *n, rules)) {
            ++p;
            ++n;
            continue;
        }
        // Mismatch: the last star takes more characters, up to the next place
        // where what follows it could start. Its attempts start only at
        // characters of the name, never at its end.
        if (resume_pattern == nullptr) {
            return false;
        }
        resume_name = next_start(resume_name + 1, *resume_pattern, rules);
        if (resume_name == nullptr) {
            return false;
        }
        p = resume_pattern;
        n = resume_name;
    }
}

bool texts_equal(const char *a, const char *b, bool fold_case) {
    return fold_case ? ascii::equal_nocase(a, b) : std::strcmp(a, b) == 0;
}

int match_names(const char *pattern, const char *name, int case_sensitive, int strike) {
    if (pattern == nullptr || name == nullptr) {
        return 1;  // a missing operand matches, so that an unset filter passes everything
    }
    Rules rules{case_sensitive == 0, strike != 0};
    return match_name(reinterpret_cast<const unsigned char *>(pattern),
                      reinterpret_cast<const unsigned char *>(name), rules)
               ? 1
               : 0;
}

void set_rest(char **rest, char *value) {
    if (rest != nullptr) {
        *rest = value;
    }
}

#define TRACE_PREFIX "str_iterative_match_wildcard_with_strike : "

// One element per round: whole-text shortcuts first, then the first element of
// each side is cut off (its separator becomes NUL) and matched.
int match_paths(const char *function, char *pattern, char *name, int case_sensitive, char **rest_pattern,
                char **rest_name, int strike) {
    if (pattern == nullptr || name == nullptr) {
        raise::params(raise::Report::add, function, pattern == nullptr ? "pattern" : "name");
        return WILDCARD_NO_MATCH;
    }
    const bool fold_case = case_sensitive == 0;
    for (;;) {
        large_dbg_str(kTraceChannel, TRACE_PREFIX "going to check <%s> and <%s> \n", pattern, name);
        char *pattern_sep = std::strchr(pattern, kSeparator);
        char *name_sep = std::strchr(name, kSeparator);
        // The last elements of both paths: plain matching, deliberately
        // without the strike rule even when the caller asked for it.
        if (pattern_sep == nullptr && name_sep == nullptr && *pattern != '\0' && *name != '\0' &&
            match_names(pattern, name, case_sensitive, 0) != 0) {
            large_dbg_str(kTraceChannel, TRACE_PREFIX "<%s> and <%s> matches\n", pattern, name);
            return WILDCARD_MATCH;
        }
        if (texts_equal(pattern, name, fold_case)) {
            large_dbg_str(kTraceChannel, TRACE_PREFIX "<%s> and <%s> are equal\n", pattern, name);
            return WILDCARD_MATCH;
        }
        if (*pattern == '\0' && *name != '\0') {
            set_rest(rest_name, name);
            return WILDCARD_NAME_BELOW;
        }
        if (*name == '\0' && *pattern != '\0') {
            set_rest(rest_pattern, pattern);
            return WILDCARD_NAME_ABOVE;
        }
        if (pattern_sep != nullptr) {
            *pattern_sep = '\0';
        }
        if (name_sep != nullptr) {
            *name_sep = '\0';
        }
        if (match_names(pattern, name, case_sensitive, strike) == 0) {
            large_dbg_str(kTraceChannel, TRACE_PREFIX "<%s> do not match <%s>\n", pattern, name);
            return WILDCARD_NO_MATCH;
        }
        large_dbg_str(kTraceChannel, TRACE_PREFIX "<%s> and <%s> matches\n", pattern, name);
        if (pattern_sep == nullptr) {
            if (name_sep == nullptr) {
                return WILDCARD_MATCH;
            }
            set_rest(rest_name, name_sep + 1);
            return WILDCARD_NAME_BELOW;
        }
        if (name_sep == nullptr) {
            set_rest(rest_pattern, pattern_sep + 1);
            return WILDCARD_NAME_ABOVE;
        }
        pattern = pattern_sep + 1;
        name = name_sep + 1;
    }
}

#undef TRACE_PREFIX

}  // namespace
}  // namespace vq::wildcard

extern "C" {

VQ_API int match_wildcard(const char *pattern, const char *name, int case_sensitive) {
    return vq::wildcard::match_names(pattern, name, case_sensitive, 0);
}

VQ_API int match_wildcard_with_strike(const char *pattern, const char *name, int case_sensitive, int strike) {
    return vq::wildcard::match_names(pattern, name, case_sensitive, strike);
}

VQ_API int str_iterative_match_wildcard(char *pattern, char *name, int case_sensitive, char **rest_pattern,
                                        char **rest_name) {
    return vq::wildcard::match_paths("str_iterative_match_wildcard", pattern, name, case_sensitive,
                                     rest_pattern, rest_name, 0);
}

VQ_API int str_iterative_match_wildcard_with_strike(char *pattern, char *name, int case_sensitive,
                                                    char **rest_pattern, char **rest_name, int strike) {
    return vq::wildcard::match_paths("str_iterative_match_wildcard_with_strike", pattern, name,
                                     case_sensitive, rest_pattern, rest_name, strike);
}

VQ_API int str_contain_wildcards(const char *text) {
    if (text == nullptr) {
        return VQ_PARAMS(vq::raise::Report::add, "text");
    }
    return std::strpbrk(text, "*?") != nullptr ? 1 : 0;
}

}  // extern "C"
