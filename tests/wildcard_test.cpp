// Wildcard matching: the name matcher against a literal recursive reference,
// its edge rules, and the element-by-element path matcher with its rests.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <utility>
#include <vector>

#include "vq_glob/dbg.h"
#include "vq_glob/err.h"
#include "vq_glob/wildcard.h"

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

// Compares the library with the reference for every flag combination;
// returns the number of cases compared.
int compare_all_flags(const std::string &pattern, const std::string &name) {
    EXPECT_LE(pattern.size(), kReferenceLimit);
    EXPECT_LE(name.size(), kReferenceLimit);
    for (int flags = 0; flags < 4; ++flags) {
        bool cs = (flags & 1) != 0, strike = (flags & 2) != 0;
        EXPECT_EQ(match_wildcard_with_strike(pattern.c_str(), name.c_str(), cs, strike),
                  reference(pattern.c_str(), name.c_str(), cs, strike))
            << "pattern <" << pattern << "> name <" << name << "> case " << cs << " strike " << strike;
    }
    return 4;
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

TEST(NameMatch, AgreesWithTheRecursiveRules) {
    const std::string alphabet = "abA*?";
    int compared = 0;
    std::vector<std::string> texts = all_texts(alphabet, 4);
    for (const std::string &pattern : texts) {
        for (const std::string &name : texts) {
            compared += compare_all_flags(pattern, name);
        }
    }
    // Random longer texts, also with a second upper-case letter and a non-letter.
    const std::string wider = alphabet + "B.";
    std::mt19937 random(20240611);
    auto random_text = [&](size_t max_length) {
        std::string text(random() % (max_length + 1), ' ');
        for (char &c : text) {
            c = wider[random() % wider.size()];
        }
        return text;
    };
    for (int i = 0; i < 50000; ++i) {
        compared += compare_all_flags(random_text(9), random_text(kReferenceLimit));
    }
    ::testing::Test::RecordProperty("cases", compared);
}

TEST(NameMatch, MissingOperandsAndEmptyTexts) {
    EXPECT_EQ(match_wildcard(nullptr, "x", 1), 1);
    EXPECT_EQ(match_wildcard("x", nullptr, 1), 1);
    EXPECT_EQ(match_wildcard("", "", 1), 1);
    EXPECT_EQ(match_wildcard("", "a", 1), 0);
    EXPECT_EQ(match_wildcard("*", "", 1), 1);
    EXPECT_EQ(match_wildcard("?", "", 1), 0);
    EXPECT_EQ(match_wildcard("a*", "a", 1), 1);
    // A star reached at the end of the name matches only as the last character.
    EXPECT_EQ(match_wildcard("a**", "a", 1), 0);
    EXPECT_EQ(match_wildcard("a**", "ab", 1), 1);
    EXPECT_EQ(match_wildcard("**", "", 1), 0);
}

TEST(NameMatch, CaseFoldsAsciiLettersOnly) {
    EXPECT_EQ(match_wildcard("ABC", "abc", 0), 1);
    EXPECT_EQ(match_wildcard("ABC", "abc", 1), 0);
    EXPECT_EQ(match_wildcard("*Z", "xz", 0), 1);
    EXPECT_EQ(match_wildcard("\xC9t\xC9", "\xE9t\xE9", 0), 0);  // accented letters stay apart
    EXPECT_EQ(match_wildcard("@", "`", 0), 0);                  // nor do the letters' neighbours
    EXPECT_EQ(match_wildcard("[", "{", 0), 0);
}

TEST(NameMatch, NoEscapesAndStarsCrossSeparators) {
    EXPECT_EQ(match_wildcard("\\*", "\\abc", 1), 1);
    EXPECT_EQ(match_wildcard("1%0", "100", 1), 0);
    EXPECT_EQ(match_wildcard("[ab]", "a", 1), 0);
    EXPECT_EQ(match_wildcard("a*z", "a/b\\c/z", 1), 1);
}

TEST(NameMatch, StrikeKeepsQuestionMarksOffStars) {
    EXPECT_EQ(match_wildcard_with_strike("a?c", "a*c", 1, 1), 0);
    EXPECT_EQ(match_wildcard_with_strike("a?c", "a*c", 1, 0), 1);
    EXPECT_EQ(match_wildcard_with_strike("a*c", "a*c", 1, 1), 1);
    EXPECT_EQ(match_wildcard_with_strike("*?", "x*", 1, 1), 0);
}

TEST(NameMatch, ManyStarsAgainstALongNameStayPolynomial) {
    const char *pattern = "*a*a*a*a*a*a*a*a*a*a*b";
    std::string name(7800, 'a');
    EXPECT_EQ(match_wildcard(pattern, name.c_str(), 1), 0);
    name.back() = 'b';
    EXPECT_EQ(match_wildcard(pattern, name.c_str(), 1), 1);
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

TEST(PathMatch, ResultsAndRests) {
    PathMatch above = match_path(path("dir|*.txt"), "dir");
    EXPECT_EQ(above.result, WILDCARD_NAME_ABOVE);
    EXPECT_EQ(above.rest_pattern, "*.txt");
    EXPECT_EQ(above.rest_name, "-");
    EXPECT_EQ(above.pattern_buffer, "dir0*.txt");  // the separator was cut in place

    PathMatch below = match_path("dir", path("dir|sub|f"));
    EXPECT_EQ(below.result, WILDCARD_NAME_BELOW);
    EXPECT_EQ(below.rest_name, path("sub|f"));
    EXPECT_EQ(below.rest_pattern, "-");

    EXPECT_EQ(match_path(path("d*|*.txt"), path("dir|a.txt")).result, WILDCARD_MATCH);
    EXPECT_EQ(match_path(path("d*|*.txt"), path("dir|a.doc")).result, WILDCARD_NO_MATCH);
    EXPECT_EQ(match_path(path("d*|x"), path("other|x")).result, WILDCARD_NO_MATCH);
    EXPECT_EQ(match_path(path("dir|"), path("dir|x")).rest_name, "x");
    EXPECT_EQ(match_path("", "a").rest_name, "a");
    EXPECT_EQ(match_path("a", "").rest_pattern, "a");
    EXPECT_EQ(match_path("", "").result, WILDCARD_MATCH);
    // Only the platform's separator divides elements.
    EXPECT_EQ(match_path(std::string("dir") + kOtherSep + "*", "dir").result, WILDCARD_NO_MATCH);
}

TEST(PathMatch, CaseAndStrikeRules) {
    EXPECT_EQ(match_path(path("DIR|A*"), path("dir|a"), 0).result, WILDCARD_MATCH);
    EXPECT_EQ(match_path(path("DIR|A*"), path("dir|a"), 1).result, WILDCARD_NO_MATCH);
    EXPECT_EQ(match_path(path("a?c|x"), path("a*c|x"), 1, 1).result, WILDCARD_NO_MATCH);
    EXPECT_EQ(match_path(path("a?c|x"), path("a*c|x"), 1, 0).result, WILDCARD_MATCH);
    // The last elements of both paths are matched without the strike rule.
    EXPECT_EQ(match_path(path("x|a?c"), path("x|a*c"), 1, 1).result, WILDCARD_MATCH);
    EXPECT_EQ(match_path(path("x|a?c"), path("x|a*c|y"), 1, 1).result, WILDCARD_NO_MATCH);
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

TEST(PathMatch, TracesEachStepOnTheFilterChannel) {
    unsigned char filter[8] = {0, 0, 0, 0, 0, 0, 0, 0x01};  // channel 56
    dbg_set_debug_mask_value(filter);
    ::testing::internal::CaptureStdout();
    for (auto [pattern, name] : {std::pair{"d*", "dir"}, {"", ""}, {"x", "z"}}) {
        match_path(pattern, name);
    }
    std::string traced = ::testing::internal::GetCapturedStdout();
    dbg_clear_debug_mask();
    std::string expected;
    for (const char *line :
         {"going to check <d*> and <dir> \n", "<d*> and <dir> matches\n", "going to check <> and <> \n",
          "<> and <> are equal\n", "going to check <x> and <z> \n", "<x> do not match <z>\n"}) {
        expected += std::string("str_iterative_match_wildcard_with_strike : ") + line;
    }
    EXPECT_EQ(traced, expected);
}

}  // namespace
