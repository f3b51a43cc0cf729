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
// What keeps the usual cases linear: a run of "?" takes its characters in one
// step, and a star's attempts begin only where the first literal behind the
// run of "?" it is followed by sits that many characters ahead, which the C
// library's scans find. The product of the lengths remains for texts between
// stars that almost match at every place ("*aaab*" against "aaaa...").
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

using Byte = unsigned char;

constexpr char kSeparator = VQ_PATH_SEPARATOR;

// The path matcher traces on the FILTER channel, as its main user is the
// include/exclude filter.
constexpr int kTraceBit = DBG_BIT_FILTER;
static_assert(kTraceBit / 8 == 7, "the trace bit lies in the last channel byte");
constexpr unsigned char kTraceChannel[8] = {0, 0, 0, 0, 0, 0, 0, 1u << (kTraceBit % 8)};

struct Rules {
    bool fold_case;
    bool strike;
};

// The last c in [begin, end), or null. The C library's backward scan, where
// it has one, reads whole words at a time.
template <typename Char>
Char *find_last(Char *begin, Char *end, char c) {
#if defined(__GLIBC__)
    return static_cast<Char *>(memrchr(begin, c, static_cast<size_t>(end - begin)));
#else
    while (end != begin) {
        if (*--end == static_cast<Char>(c)) {
            return end;
        }
    }
    return nullptr;
#endif
}

// Whether one non-star pattern character matches the name character c.
inline bool matches_one(Byte p, Byte c, Rules rules) {
    if (p == '?') {
        return !(rules.strike && c == '*');
    }
    // Case folds by the ASCII rules: the result must not depend on the locale.
    return p == c || (rules.fold_case &&
                      ascii::to_upper(static_cast<char>(p)) == ascii::to_upper(static_cast<char>(c)));
}

size_t question_run(const Byte *p, const Byte *pattern_end) {
    const Byte *q = p;
    while (q != pattern_end && *q == '?') {
        ++q;
    }
    return static_cast<size_t>(q - p);
}

// The first name character among the count from n that a "?" may not
// stand for (a "*" under the strike rule), or null when all of them fit.
const Byte *question_blocker(const Byte *n, size_t count, Rules rules) {
    return rules.strike && count != 0 ? static_cast<const Byte *>(std::memchr(n, '*', count)) : nullptr;
}

// The first character in [from, end) that the literal pattern character p
// matches, or null.
const Byte *find_literal(const Byte *from, const Byte *end, Byte p, Rules rules) {
    if (!rules.fold_case || !ascii::is_alpha(static_cast<char>(p))) {
        return static_cast<const Byte *>(std::memchr(from, p, static_cast<size_t>(end - from)));
    }
    // Either case of a letter: the nearest places one by one (the two cases
    // differ only in bit 5), farther ones in one scan of the C library, whose
    // set-up costs more than a few bytes do. The name is NUL-terminated at
    // end (the path matcher cuts its elements before matching them).
    constexpr ptrdiff_t kNear = 16;
    const Byte lower = static_cast<Byte>(ascii::to_lower(static_cast<char>(p)));
    for (const Byte *near_end = end - from > kNear ? from + kNear : end; from != near_end; ++from) {
        if ((*from | 0x20) == lower) {
            return from;
        }
    }
    if (from == end) {
        return nullptr;
    }
    const char either[] = {ascii::to_upper(static_cast<char>(p)), static_cast<char>(lower), '\0'};
    return reinterpret_cast<const Byte *>(std::strpbrk(reinterpret_cast<const char *>(from), either));
}

// The last star passed and its current attempt: the pattern text behind it
// up to the next star (never up to the pattern's end: the text behind the
// last star is matched by match_tail), the length of the run of "?" that text
// begins with, and the name position the attempt places the text at.
struct Star {
    const Byte *segment = nullptr;
    size_t questions = 0;
    const Byte *start = nullptr;

    // Moves the attempt to the first place from `from` on where the segment
    // could begin; false when there is none. The leading "?" run only needs
    // that many characters, so the first literal behind it is searched for
    // that far ahead: the C library's scans skip the hopeless places much
    // faster than trying each of them would.
    bool place(const Byte *from, const Byte *name_end, Rules rules) {
        for (;;) {
            // Attempts start at characters of the name, never at its end.
            if (from == name_end || static_cast<size_t>(name_end - from) < questions) {
                return false;
            }
            start = from;
            if (segment[questions] != '*') {
                const Byte *literal = find_literal(from + questions, name_end, segment[questions], rules);
                if (literal == nullptr) {
                    return false;
                }
                start = literal - questions;
            }
            // A start before a character no "?" may stand for leaves it inside the run.
            const Byte *blocker = question_blocker(start, questions, rules);
            if (blocker == nullptr) {
                return true;
            }
            from = blocker + 1;
        }
    }
};

// The text behind the pattern's last star can only match the end of the name,
// so it is compared there once instead of being tried at every position.
bool match_tail(const Byte *p, const Byte *pattern_end, const Byte *n, const Byte *name_end, Rules rules) {
    const auto pattern_length = static_cast<size_t>(pattern_end - p);
    if (static_cast<size_t>(name_end - n) < pattern_length) {
        return false;
    }
    for (n = name_end - pattern_length; p != pattern_end; ++p, ++n) {
        if (!matches_one(*p, *n, rules)) {
            return false;
        }
    }
    return true;
}


// Matches [p, pattern_end) against [n, name_end); neither range holds a NUL.
bool match_name(const Byte *p, const Byte *pattern_end, const Byte *n, const Byte *name_end, Rules rules) {
    const Byte *last_star = find_last(p, pattern_end, '*');
    Star star;
    for (;;) {
        if (p == pattern_end) {
            if (n == name_end) {
                return true;
            }
        } else if (*p == '*') {
            const Byte *after = p;
            while (after != pattern_end && *after == '*') {
                ++after;
            }
            if (after == pattern_end) {
                // A lone trailing star takes any remainder; a longer trailing
                // run needs one character, and less name is all a retry gives.
                if (after - p == 1 || n != name_end) {
                    return true;
                }
            } else if (after == last_star + 1) {
                // Where the name ends here, what follows cannot match.
                return n != name_end && match_tail(after, pattern_end, n, name_end, rules);
            } else if (n != name_end) {
                star.segment = after;
                star.questions = question_run(after, pattern_end);
                if (!star.place(n, name_end, rules)) {
                    return false;  // a later start for an earlier star leaves even less name
                }
                p = after + star.questions;
                n = star.start + star.questions;
                continue;
            }
            // The name ended at a star that something follows: this attempt fails.
        } else if (*p == '?') {
            // A run of "?" takes exactly as many characters, in one step.
            size_t count = question_run(p, pattern_end);
            if (static_cast<size_t>(name_end - n) >= count && question_blocker(n, count, rules) == nullptr) {
                p += count;
                n += count;
                continue;
            }
        } else if (n != name_end && matches_one(*p, *n, rules)) {
            ++p;
            ++n;
            continue;
        }
        // Mismatch: the last star takes more characters, up to the next place
        // where what follows it could start. Its attempts start only at
        // characters of the name, never at its end.
        if (star.segment == nullptr || !star.place(star.start + 1, name_end, rules)) {
            return false;
        }
        p = star.segment + star.questions;
        n = star.start + star.questions;
    }
}

const Byte *bytes(const char *text) { return reinterpret_cast<const Byte *>(text); }

int match_names(const char *pattern, const char *name, int case_sensitive, int strike) {
    if (pattern == nullptr || name == nullptr) {
        return 1;  // a missing operand matches, so that an unset filter passes everything
    }
    Rules rules{case_sensitive == 0, strike != 0};
    return match_name(bytes(pattern), bytes(pattern) + std::strlen(pattern), bytes(name),
                      bytes(name) + std::strlen(name), rules)
               ? 1
               : 0;
}

void set_rest(char **rest, char *value) {
    if (rest != nullptr) {
        *rest = value;
    }
}

// Whether the calling thread traces on the FILTER channel, by the test
// large_dbg_str applies. Asked once per path match, so that a match with the
// channel off makes no trace call at all.
bool tracing_filter() {
    const unsigned char *mask = dbg_get_debug_mask();
    return dbg_get_debug_flag() != 0 || (mask != nullptr && (mask[kTraceBit / 8] & kTraceChannel[kTraceBit / 8]) != 0);
}

// How many characters both texts end with alike (case as the flag says).
size_t common_suffix(const char *a, const char *a_end, const char *b, const char *b_end, bool fold_case) {
    size_t same = 0;
    for (; a_end - same != a && b_end - same != b; ++same) {
        const char x = *(a_end - same - 1);
        const char y = *(b_end - same - 1);
        if (x != y && !(fold_case && ascii::to_upper(x) == ascii::to_upper(y))) {
            break;
        }
    }
    return same;
}

// One side of a path match: the remainder still to match, and the end and the
// last separator of the whole text, measured once.
struct PathText {
    char *rest;
    char *end;
    char *last_separator;

    PathText(char *text, char *text_end)
        : rest(text), end(text_end), last_separator(find_last(text, text_end, kSeparator)) {}

    size_t left() const { return static_cast<size_t>(end - rest); }
    bool on_last_element() const { return last_separator == nullptr || rest > last_separator; }

    // The separator ending the remainder's first element, searched for from
    // `from` inside that element; null when it is the last one.
    char *separator_from(char *from) const {
        if (on_last_element()) {
            return nullptr;
        }
        return *from == kSeparator ? from : static_cast<char *>(std::memchr(from, kSeparator, end - from));
    }
};

// The first elements of both remainders, cut off in place.
struct Elements {
    char *pattern_separator;  // where the cuts were made, or null at a last element
    char *name_separator;
    bool matched;
};

// Cuts the first element off each remainder (its separator becomes NUL) and
// matches the two. The element's head up to its first star is walked along
// the name first: that finds both separators in the same pass for elements
// without a star, the usual case of long paths, where each element would
// otherwise be searched for its end and then walked once more to match it.
Elements cut_and_match_first_elements(const PathText &pattern, const PathText &name, Rules rules) {
    char *p = pattern.rest;
    char *n = name.rest;
    while (p != pattern.end && *p != kSeparator && *p != '*' && n != name.end && *n != kSeparator &&
           matches_one(static_cast<Byte>(*p), static_cast<Byte>(*n), rules)) {
        ++p;
        ++n;
    }
    Elements cut{pattern.separator_from(p), name.separator_from(n), false};
    char *pattern_cut = pattern.end;
    if (cut.pattern_separator != nullptr) {
        *cut.pattern_separator = '\0';
        pattern_cut = cut.pattern_separator;
    }
    char *name_cut = name.end;
    if (cut.name_separator != nullptr) {
        *cut.name_separator = '\0';
        name_cut = cut.name_separator;
    }
    // What the walk passed matched character by character, before any star:
    // the rest of the two elements decides.
    cut.matched = p == pattern_cut ? n == name_cut : match_name(bytes(p), bytes(pattern_cut), bytes(n), bytes(name_cut), rules);
    return cut;
}

#define TRACE_PREFIX "str_iterative_match_wildcard_with_strike : "

// One element per round: whole-text shortcuts first, then the first element of
// each side is cut off (its separator becomes NUL) and matched. The lengths of
// both texts, their last separators and the length of their common end are
// measured once. Every remainder runs to the end of its text, so two
// remainders are equal exactly when they are as long as each other and no
// longer than that common end, and a remainder is a last element when it
// begins behind its text's last separator: no round compares or searches the
// remainders again.
int match_paths(const char *function, char *pattern_text, char *name_text, int case_sensitive,
                char **rest_pattern, char **rest_name, int strike) {
    if (pattern_text == nullptr || name_text == nullptr) {
        raise::params(raise::Report::add, function, pattern_text == nullptr ? "pattern" : "name");
        return WILDCARD_NO_MATCH;
    }
    const bool fold_case = case_sensitive == 0;
    const bool tracing = tracing_filter();
    PathText pattern(pattern_text, pattern_text + std::strlen(pattern_text));
    PathText name(name_text, name_text + std::strlen(name_text));
    const size_t same_end = common_suffix(pattern.rest, pattern.end, name.rest, name.end, fold_case);
    for (;;) {
        if (tracing) {
            large_dbg_str(kTraceChannel, TRACE_PREFIX "going to check <%s> and <%s> \n", pattern.rest, name.rest);
        }
        const size_t pattern_left = pattern.left();
        const size_t name_left = name.left();
        // The last elements of both paths: plain matching, deliberately
        // without the strike rule even when the caller asked for it.
        const bool last_elements =
            pattern.on_last_element() && name.on_last_element() && pattern_left != 0 && name_left != 0;
        if (last_elements && match_name(bytes(pattern.rest), bytes(pattern.end), bytes(name.rest),
                                        bytes(name.end), Rules{fold_case, false})) {
            if (tracing) {
                large_dbg_str(kTraceChannel, TRACE_PREFIX "<%s> and <%s> matches\n", pattern.rest, name.rest);
            }
            return WILDCARD_MATCH;
        }
        if (pattern_left == name_left && same_end >= pattern_left) {
            if (tracing) {
                large_dbg_str(kTraceChannel, TRACE_PREFIX "<%s> and <%s> are equal\n", pattern.rest, name.rest);
            }
            return WILDCARD_MATCH;
        }
        if (pattern_left == 0 && name_left != 0) {
            set_rest(rest_name, name.rest);
            return WILDCARD_NAME_BELOW;
        }
        if (name_left == 0 && pattern_left != 0) {
            set_rest(rest_pattern, pattern.rest);
            return WILDCARD_NAME_ABOVE;
        }
        // Two last elements have failed above already, and the strike rule
        // only ever takes matches away.
        Elements cut{nullptr, nullptr, false};
        if (!last_elements) {
            cut = cut_and_match_first_elements(pattern, name, Rules{fold_case, strike != 0});
        }
        if (!cut.matched) {
            if (tracing) {
                large_dbg_str(kTraceChannel, TRACE_PREFIX "<%s> do not match <%s>\n", pattern.rest, name.rest);
            }
            return WILDCARD_NO_MATCH;
        }
        if (tracing) {
            large_dbg_str(kTraceChannel, TRACE_PREFIX "<%s> and <%s> matches\n", pattern.rest, name.rest);
        }
        if (cut.pattern_separator == nullptr) {
            if (cut.name_separator == nullptr) {
                return WILDCARD_MATCH;
            }
            set_rest(rest_name, cut.name_separator + 1);
            return WILDCARD_NAME_BELOW;
        }
        if (cut.name_separator == nullptr) {
            set_rest(rest_pattern, cut.pattern_separator + 1);
            return WILDCARD_NAME_ABOVE;
        }
        pattern.rest = cut.pattern_separator + 1;
        name.rest = cut.name_separator + 1;
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
