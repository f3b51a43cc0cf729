// Wildcard matching: the name matcher against a literal recursive reference,
// its edge rules, and the element-by-element path matcher with its rests; both
// against glibc's fnmatch where their rules agree, on short generated texts
// and on long adversarial ones.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "vq_glob/dbg.h"
#include "vq_glob/err.h"
#include "vq_glob/wildcard.h"

// The C library's matcher is the peer where it exists (not on Windows).
#if __has_include(<fnmatch.h>)
#include "support/wildcard_fnmatch.h"
#define VQ_TEST_FNMATCH 1
#endif

namespace {

constexpr char kSep = VQ_PATH_SEPARATOR;
constexpr char kOtherSep = kSep == '/' ? '\\' : '/';
constexpr size_t kReferenceLimit = 12;  // the reference is exponential in the stars

char fold(char c, bool case_sensitive) { return !case_sensitive && c >= 'a' && c <= 'z' ? c - 32 : c; }

// The matching rules written out as directly as possible: walk to a star, then
// retry the rest of the pattern from every remaining character of the name.
int reference(const char *p, const char *n, bool case_sensitive, bool strike) {
    for (; *p != '*'; ++p, ++n) {
        if (*p == '\0') {
            return *n == '\0' ? 1 : 0;
        }
        if (*p == '?' ? *n == '\0' || (strike && *n == '*')
                      : fold(*p, case_sensitive) != fold(*n, case_sensitive)) {
            return 0;
        }
    }
    if (*n == '\0') {
        return p[1] == '\0' ? 1 : 0;
    }
    if (*++p == '\0') {
        return 1;
    }
    for (; *n != '\0'; ++n) {
        if (reference(p, n, case_sensitive, strike) != 0) {
            return 1;
        }
    }
    return 0;
}

// Compares the library with the reference for every flag combination.
void compare_all_flags(const std::string &pattern, const std::string &name) {
    EXPECT_LE(pattern.size(), kReferenceLimit);
    EXPECT_LE(name.size(), kReferenceLimit);
    for (int flags = 0; flags < 4; ++flags) {
        bool cs = (flags & 1) != 0, strike = (flags & 2) != 0;
        EXPECT_EQ(match_wildcard_with_strike(pattern.c_str(), name.c_str(), cs, strike),
                  reference(pattern.c_str(), name.c_str(), cs, strike))
            << "pattern <" << pattern << "> name <" << name << "> case " << cs << " strike " << strike;
    }
}

// Every text over the alphabet up to max_length characters.
std::vector<std::string> all_texts(const std::string &alphabet, size_t max_length) {
    std::vector<std::string> texts{""};
    for (size_t start = 0; start < texts.size(); ++start) {
        if (texts[start].size() < max_length) {
            for (char c : alphabet) {
                texts.push_back(texts[start] + c);
            }
        }
    }
    return texts;
}

// Random texts over an alphabet, up to max_length characters.
class TextSource {
public:
    explicit TextSource(unsigned seed) : random_(seed) {}
    std::string operator()(const std::string &alphabet, size_t max_length) {
        std::string text(random_() % (max_length + 1), ' ');
        for (char &c : text) {
            c = alphabet[random_() % alphabet.size()];
        }
        return text;
    }

    // A name the pattern is likely to match: stars stand for up to three
    // characters of the alphabet, "?" for one, letters for themselves in
    // either case; now and then one character is changed.
    std::string name_for(const std::string &pattern, const std::string &alphabet) {
        std::string name;
        for (char c : pattern) {
            if (c == '*') {
                name += (*this)(alphabet, 3);
            } else if (c == '?') {
                name += alphabet[random_() % alphabet.size()];
            } else {
                name += random_() % 2 != 0 && c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
            }
        }
        if (!name.empty() && random_() % 4 == 0) {
            name[random_() % name.size()] = alphabet[random_() % alphabet.size()];
        }
        return name;
    }

private:
    std::mt19937 random_;
};

TEST(NameMatch, AgreesWithTheRecursiveRules) {
    const std::string alphabet = "abA*?";
    std::vector<std::string> texts = all_texts(alphabet, 4);
    for (const std::string &pattern : texts) {
        for (const std::string &name : texts) {
            compare_all_flags(pattern, name);
        }
    }
    // Random longer texts, also with a second upper-case letter and a non-letter.
    const std::string wider = alphabet + "B.";
    TextSource text(20240611);
    for (int i = 0; i < 50000; ++i) {
        compare_all_flags(text(wider, 9), text(wider, kReferenceLimit));
    }
}

// Counts the answers of a differential check, to show that both kinds were compared.
struct Tally {
    int compared = 0, matched = 0;
    void count(int result) {
        ++compared;
        matched += result;
    }
    ~Tally() {
        EXPECT_GT(matched, 10000) << "too few matches to compare";
        EXPECT_GT(compared - matched, 10000) << "too few mismatches to compare";
    }
};

#ifdef VQ_TEST_FNMATCH
// ---- Against fnmatch ------------------------------------------------------
// The rules both share and how they are compared: support/wildcard_fnmatch.h.

using vq_test::fnmatch_pattern;
using vq_test::fnmatch_result;

// The alphabets of generated pairs: every text up to 4 characters over the
// short alphabets, random texts up to the lengths given over the others, and
// names derived from their pattern over `derived_names`.
struct Alphabets {
    std::string short_patterns, short_names;
    std::string patterns, names, derived_names;
    size_t pattern_length, name_length;
};

// Calls compare(pattern, name) on every pair of short texts, then on 100,000
// random pairs, half of them with a name derived from the pattern.
template <typename Compare>
void over_generated_pairs(const Alphabets &alphabets, unsigned seed, Compare compare) {
    const std::vector<std::string> short_patterns = all_texts(alphabets.short_patterns, 4);
    const std::vector<std::string> short_names = all_texts(alphabets.short_names, 4);
    for (const std::string &pattern : short_patterns) {
        for (const std::string &name : short_names) {
            compare(pattern, name);
        }
    }
    TextSource text(seed);
    for (int i = 0; i < 100000; ++i) {
        std::string pattern = text(alphabets.patterns, alphabets.pattern_length);
        compare(pattern, i % 2 == 0 ? text(alphabets.names, alphabets.name_length)
                                    : text.name_for(pattern, alphabets.derived_names));
    }
}

TEST(AgainstFnmatch, NamesAgreeWithFlagsZero) {
    const std::string patterns = "ab*?./";
    const std::string names = "abB*?./";
    Tally tally;
    auto compare = [&](const std::string &pattern, const std::string &name) {
        for (int cs = 0; cs < 2; ++cs) {
            int ours = match_wildcard(pattern.c_str(), name.c_str(), cs);
            ASSERT_EQ(ours, fnmatch_result(fnmatch_pattern(pattern, '\0'), name, cs, 0))
                << "pattern <" << pattern << "> name <" << name << "> case " << cs;
            tally.count(ours);
        }
    };
    over_generated_pairs({patterns, "aB*/", patterns, names, names, 14, 24}, 20241124, compare);
}

// Long adversarial texts, where the recursive reference would take forever.
TEST(AgainstFnmatch, LongAdversarialNames) {
    auto repeat = [](const std::string &unit, size_t times) {
        std::string text;
        for (size_t i = 0; i < times; ++i) {
            text += unit;
        }
        return text;
    };
    const std::string as(10000, 'a');
    const std::vector<std::pair<std::string, std::string>> cases = {
        {std::string(10000, '?'), std::string(10000, 'q')},
        {std::string(10000, '?'), std::string(9999, 'q')},
        {repeat("*a", 5000) + "*b", as},
        {repeat("*a", 5000) + "*b", as + "b"},
        {"*" + std::string(5000, '?') + "b*", as},
        {"*" + std::string(5000, '?') + "b*", as + "b"},
        {"*" + std::string(5000, '?') + "b*", "b" + as},
        {repeat("*??", 2500) + "b", as},
        {repeat("*??", 2500) + "b", as + "b"},
        {repeat("*?a", 3000) + "*", as},
        {repeat("*A?", 3000) + "*", as},
        // Letters far behind a star, in either case.
        {"*b?*", std::string(40, 'a') + "Bc"},
        {"*B*x", std::string(30, 'a') + "b" + std::string(30, 'a') + "x"},
        {"*Bx*", std::string(30, 'a') + "b" + std::string(30, 'a') + "BX"},
    };
    for (const auto &[pattern, name] : cases) {
        for (int cs = 0; cs < 2; ++cs) {
            EXPECT_EQ(match_wildcard(pattern.c_str(), name.c_str(), cs), fnmatch_result(pattern, name, cs, 0))
                << "pattern of " << pattern.size() << " beginning <" << pattern.substr(0, 8) << "> case " << cs;
        }
    }
}

#endif  // VQ_TEST_FNMATCH

// The rules the generated texts do not reach: missing operands, folding
// beyond ASCII letters, bytes that are no wildcards, long names.
TEST(NameMatch, EdgeRules) {
    const std::string as(7800, 'a'), asb = as + "b";
    const std::string many_stars = "*a*a*a*a*a*a*a*a*a*a*b";
    struct Case {
        const char *pattern, *name;
        int case_sensitive, expected;
    };
    const Case cases[] = {
        {nullptr, "x", 1, 1},
        {"x", nullptr, 1, 1},
        // A star reached at the end of the name matches only as the last character.
        {"a**", "a", 1, 0},
        {"\xC9t\xC9", "\xE9t\xE9", 0, 0},  // accented letters stay apart
        {"@", "`", 0, 0},                    // nor do the letters' neighbours
        {"[", "{", 0, 0},
        {"\\*", "\\abc", 1, 1},  // no escapes, no brackets, no SQL wildcards
        {"1%0", "100", 1, 0},
        {"[ab]", "a", 1, 0},
        {"a*z", "a/b\\c/z", 1, 1},  // stars cross separators
        // Many stars against a long name stay polynomial.
        {many_stars.c_str(), as.c_str(), 1, 0},
        {many_stars.c_str(), asb.c_str(), 1, 1},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string("pattern <") + std::string(c.pattern ? c.pattern : "null").substr(0, 30) +
                     "> name <" + std::string(c.name ? c.name : "null").substr(0, 30) + ">");
        EXPECT_EQ(match_wildcard(c.pattern, c.name, c.case_sensitive), c.expected);
        EXPECT_EQ(match_wildcard_with_strike(c.pattern, c.name, c.case_sensitive, 1), c.expected);
    }
}

TEST(Wildcards, FoundInText) {
    EXPECT_NE(str_contain_wildcards("a*b"), 0);
    EXPECT_NE(str_contain_wildcards("a?"), 0);
    EXPECT_EQ(str_contain_wildcards("a%[b]"), 0);
    err_clear_error_stack();
    EXPECT_EQ(str_contain_wildcards(nullptr), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_PARAMS);
}

// ---- Path matching ---------------------------------------------------------

// A path from elements joined with the platform's separator ('|' stands for it).
std::string path(std::string text) {
    for (char &c : text) {
        c = c == '|' ? kSep : c;
    }
    return text;
}

struct PathMatch {
    int result;
    std::string rest_pattern;  // "-" when left untouched
    std::string rest_name;
    std::string pattern_buffer;  // the caller's buffer afterwards, NULs shown as '0'
};

PathMatch match_path(const std::string &pattern, const std::string &name, int case_sensitive = 1,
                     int strike = 0) {
    std::vector<char> p(pattern.begin(), pattern.end()), n(name.begin(), name.end());
    p.push_back('\0');
    n.push_back('\0');
    char untouched[] = "-";
    char *rest_pattern = untouched, *rest_name = untouched;
    PathMatch m;
    m.result = str_iterative_match_wildcard_with_strike(p.data(), n.data(), case_sensitive, &rest_pattern,
                                                        &rest_name, strike);
    // A rest that was set points into the caller's own buffer.
    EXPECT_TRUE(rest_pattern == untouched ||
                (rest_pattern >= p.data() && rest_pattern < p.data() + p.size()));
    EXPECT_TRUE(rest_name == untouched || (rest_name >= n.data() && rest_name < n.data() + n.size()));
    m.rest_pattern = rest_pattern;
    m.rest_name = rest_name;
    for (size_t i = 0; i + 1 < p.size(); ++i) {
        m.pattern_buffer += p[i] == '\0' ? '0' : p[i];
    }
    return m;
}

// '|' stands for the platform's separator; "-" for a rest left untouched.
TEST(PathMatch, ResultsAndRests) {
    struct Case {
        std::string pattern, name;
        int case_sensitive, strike, result;
        std::string rest_pattern, rest_name;
    };
    const Case cases[] = {
        {"dir|*.txt", "dir", 1, 0, WILDCARD_NAME_ABOVE, "*.txt", "-"},
        {"dir", "dir|sub|f", 1, 0, WILDCARD_NAME_BELOW, "-", "sub|f"},
        {"d*|*.txt", "dir|a.txt", 1, 0, WILDCARD_MATCH, "-", "-"},
        {"d*|*.txt", "dir|a.doc", 1, 0, WILDCARD_NO_MATCH, "-", "-"},
        {"d*|x", "other|x", 1, 0, WILDCARD_NO_MATCH, "-", "-"},
        {"dir|", "dir|x", 1, 0, WILDCARD_NAME_BELOW, "-", "x"},
        {"", "a", 1, 0, WILDCARD_NAME_BELOW, "-", "a"},
        {"a", "", 1, 0, WILDCARD_NAME_ABOVE, "a", "-"},
        {"", "", 1, 0, WILDCARD_MATCH, "-", "-"},
        {"DIR|A*", "dir|a", 0, 0, WILDCARD_MATCH, "-", "-"},
        {"DIR|A*", "dir|a", 1, 0, WILDCARD_NO_MATCH, "-", "-"},
        {"a?c|x", "a*c|x", 1, 1, WILDCARD_NO_MATCH, "-", "-"},
        {"a?c|x", "a*c|x", 1, 0, WILDCARD_MATCH, "-", "-"},
        // The last elements of both paths are matched without the strike rule.
        {"x|a?c", "x|a*c", 1, 1, WILDCARD_MATCH, "-", "-"},
        {"x|a?c", "x|a*c|y", 1, 1, WILDCARD_NO_MATCH, "-", "-"},
        // Only the platform's separator divides elements.
        {std::string("dir") + kOtherSep + "*", "dir", 1, 0, WILDCARD_NO_MATCH, "-", "-"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE("pattern <" + c.pattern + "> name <" + c.name + ">");
        PathMatch m = match_path(path(c.pattern), path(c.name), c.case_sensitive, c.strike);
        EXPECT_EQ(m.result, c.result);
        EXPECT_EQ(m.rest_pattern, path(c.rest_pattern));
        EXPECT_EQ(m.rest_name, path(c.rest_name));
    }
    EXPECT_EQ(match_path(path("dir|*.txt"), "dir").pattern_buffer, "dir0*.txt");  // the separator cut in place
}

TEST(PathMatch, NullTextsFailWithAnErrorAndNullRestsAreNotWritten) {
    char name[] = "a";
    err_clear_error_stack();
    EXPECT_EQ(str_iterative_match_wildcard(nullptr, name, 1, nullptr, nullptr), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_PARAMS);
    char pattern[] = "a";
    char empty[] = "";
    EXPECT_EQ(str_iterative_match_wildcard(pattern, empty, 1, nullptr, nullptr), WILDCARD_NAME_ABOVE);
}

#ifdef VQ_TEST_FNMATCH
// A full match of the path matcher (result 1) is fnmatch's match with
// FNM_PATHNAME, element by element, except for the names path_comparable
// leaves out.
TEST(AgainstFnmatch, FullPathMatchesAgreeWithPathnameFlag) {
    const std::string patterns = path("aA*?|");
    const std::string names = path("ab*|");
    Tally tally;
    auto compare = [&](const std::string &pattern, const std::string &name) {
        if (!vq_test::path_comparable(name, kSep)) {
            return;
        }
        for (int cs = 0; cs < 2; ++cs) {
            int result = match_path(pattern, name, cs).result;
            ASSERT_EQ(result == WILDCARD_MATCH ? 1 : 0,
                      fnmatch_result(fnmatch_pattern(pattern, kSep), name, cs, FNM_PATHNAME))
                << "pattern <" << pattern << "> name <" << name << "> case " << cs << " result " << result;
            tally.count(result == WILDCARD_MATCH ? 1 : 0);
        }
    };
    // Stars stand for no separator in derived names, so that most of them match.
    over_generated_pairs({path("a*?|"), path("aB|"), patterns, names, "ab*", 16, 24}, 20241125, compare);
}

#endif  // VQ_TEST_FNMATCH

// The path rules step by step, as plainly as they can be written: whole-text
// checks, then the first elements cut at their separators and matched by the
// name matcher; every round searches and compares the whole remainders.
int path_steps(char *pattern, char *name, int case_sensitive, char **rest_pattern, char **rest_name, int strike) {
    auto equal = [&](const char *a, const char *b) {
        for (; *a != '\0' && fold(*a, case_sensitive != 0) == fold(*b, case_sensitive != 0); ++a, ++b) {
        }
        return *a == *b;
    };
    for (;;) {
        char *pattern_sep = std::strchr(pattern, kSep);
        char *name_sep = std::strchr(name, kSep);
        if (pattern_sep == nullptr && name_sep == nullptr && *pattern != '\0' && *name != '\0' &&
            match_wildcard(pattern, name, case_sensitive) != 0) {
            return WILDCARD_MATCH;
        }
        if (equal(pattern, name)) {
            return WILDCARD_MATCH;
        }
        if (*pattern == '\0') {
            *rest_name = name;
            return WILDCARD_NAME_BELOW;
        }
        if (*name == '\0') {
            *rest_pattern = pattern;
            return WILDCARD_NAME_ABOVE;
        }
        for (char *sep : {pattern_sep, name_sep}) {
            if (sep != nullptr) {
                *sep = '\0';
            }
        }
        if (match_wildcard_with_strike(pattern, name, case_sensitive, strike) == 0) {
            return WILDCARD_NO_MATCH;
        }
        if (pattern_sep == nullptr && name_sep == nullptr) {
            return WILDCARD_MATCH;
        }
        if (pattern_sep == nullptr) {
            *rest_name = name_sep + 1;
            return WILDCARD_NAME_BELOW;
        }
        if (name_sep == nullptr) {
            *rest_pattern = pattern_sep + 1;
            return WILDCARD_NAME_ABOVE;
        }
        pattern = pattern_sep + 1;
        name = name_sep + 1;
    }
}

// Runs the library and the plain steps on copies of the same texts and
// compares the results, the rests (as offsets) and both buffers afterwards.
void compare_with_steps(const std::string &pattern, const std::string &name, int case_sensitive, int strike) {
    std::vector<char> p1(pattern.c_str(), pattern.c_str() + pattern.size() + 1), p2 = p1;
    std::vector<char> n1(name.c_str(), name.c_str() + name.size() + 1), n2 = n1;
    char *rest_pattern1 = nullptr, *rest_name1 = nullptr, *rest_pattern2 = nullptr, *rest_name2 = nullptr;
    int ours = str_iterative_match_wildcard_with_strike(p1.data(), n1.data(), case_sensitive, &rest_pattern1,
                                                        &rest_name1, strike);
    int steps = path_steps(p2.data(), n2.data(), case_sensitive, &rest_pattern2, &rest_name2, strike);
    auto offset = [](const char *rest, const std::vector<char> &buffer) {
        return rest == nullptr ? -1L : static_cast<long>(rest - buffer.data());
    };
    std::string where = "pattern <" + pattern.substr(0, 40) + "> name <" + name.substr(0, 40) + "> case " +
                        std::to_string(case_sensitive) + " strike " + std::to_string(strike);
    ASSERT_EQ(ours, steps) << where;
    ASSERT_EQ(offset(rest_pattern1, p1), offset(rest_pattern2, p2)) << where;
    ASSERT_EQ(offset(rest_name1, n1), offset(rest_name2, n2)) << where;
    ASSERT_TRUE(p1 == p2 && n1 == n2) << "the separators cut differ: " << where;
}

TEST(PathMatch, AgreesWithThePlainSteps) {
    const std::string alphabet = path("aA*?|");
    std::vector<std::string> texts = all_texts(alphabet, 3);
    for (const std::string &pattern : texts) {
        for (const std::string &name : texts) {
            for (int flags = 0; flags < 4; ++flags) {
                compare_with_steps(pattern, name, flags & 1, flags >> 1);
            }
        }
    }
    TextSource text(20241126);
    const std::string wider = path("aAbB*?|||");
    for (int i = 0; i < 40000; ++i) {
        std::string pattern = text(wider, 14);
        // Shared endings exercise the equal-remainder shortcut.
        std::string ending = text(wider, 6);
        compare_with_steps(pattern + ending, text(wider, 14) + ending, i & 1, (i >> 1) & 1);
    }
}

TEST(PathMatch, LongPathsKeepResultsRestsAndCuts) {
    auto elements = [](const std::string &element, size_t count, const std::string &last) {
        std::string text;
        for (size_t i = 0; i < count; ++i) {
            text += element + kSep;
        }
        return text + last;
    };
    const std::vector<std::pair<std::string, std::string>> cases = {
        {elements("a", 10000, "y"), elements("a", 10000, "x")},
        {elements("a", 10000, "x"), elements("A", 10000, "x")},
        {elements("*", 10000, "*x"), elements("a", 10000, "ay")},
        {elements("*", 10000, "*x"), elements("a", 10000, "ax")},
        {elements("?*?", 2500, "x"), elements("abc", 2500, "x")},
        {elements("a", 5000, "b"), elements("a", 8000, "b")},
        {elements("a", 8000, "b"), elements("a", 5000, "b")},
        {elements("a", 5000, "b*"), elements("a", 5000, "b") + kSep},
        {std::string(10000, '?'), std::string(10000, 'q')},
        {std::string(10000, '?'), elements("q", 10, std::string(10000, 'q'))},
    };
    for (const auto &[pattern, name] : cases) {
        for (int flags = 0; flags < 4; ++flags) {
            compare_with_steps(pattern, name, flags & 1, flags >> 1);
        }
    }
}

// Each step is traced on the FILTER channel (56), or with the debug flag on;
// nothing is written otherwise.
TEST(PathMatch, TracesOnlyWhenTheFilterChannelOrTheFlagIsOn) {
    auto traced_by = [](auto set_up) {
        set_up();
        ::testing::internal::CaptureStdout();
        for (auto [pattern, name] : {std::pair{"d*", "dir"}, {"", ""}, {"x", "z"}}) {
            match_path(pattern, name);
        }
        std::string traced = ::testing::internal::GetCapturedStdout();
        dbg_set_debug(0);
        dbg_clear_debug_mask();
        return traced;
    };
    std::string expected;
    for (const char *line :
         {"going to check <d*> and <dir> \n", "<d*> and <dir> matches\n", "going to check <> and <> \n",
          "<> and <> are equal\n", "going to check <x> and <z> \n", "<x> do not match <z>\n"}) {
        expected += std::string("str_iterative_match_wildcard_with_strike : ") + line;
    }
    const unsigned char filter[8] = {0, 0, 0, 0, 0, 0, 0, 0x01};
    const unsigned char network[8] = {0, 0, 0, 0, 0, 0, 0x80, 0};  // channel 55, the neighbour
    const unsigned char filter_and_more[8] = {0xFF, 0, 0, 0, 0, 0, 0, 0x03};
    EXPECT_EQ(traced_by([&] { dbg_set_debug_mask_value(filter); }), expected);
    EXPECT_EQ(traced_by([&] { dbg_set_debug_mask_value(filter_and_more); }), expected);
    EXPECT_EQ(traced_by([] { dbg_set_debug(2); }), expected);  // the flag alone, every channel bit clear
    EXPECT_EQ(traced_by([&] { dbg_set_debug_mask_value(network); }), "");
    EXPECT_EQ(traced_by([] {}), "");
}

}  // namespace
