// String routines: the tokenizer's splitting, quoting and per-thread state,
// list and number conversions, trimming, path ordering and containment,
// replacing, reading lines and the daily time frame.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "vq_glob/dbg.h"
#include "vq_glob/err.h"
#include "vq_glob/mlist.h"
#include "vq_glob/str.h"

namespace {

using Strings = std::vector<std::string>;

// Every token of text under flag; at most 100, so a tokenizer that never
// ends fails instead of hanging.
Strings tokens(const std::string &text, int flag) {
    std::vector<char> buffer(text.begin(), text.end());
    buffer.push_back('\0');
    Strings out;
    if (str_init_tokens(buffer.data()) != 1) {
        return {"<init failed>"};
    }
    for (char *t = str_get_next_token(flag); t != nullptr && out.size() < 100; t = str_get_next_token(flag)) {
        out.emplace_back(t);
    }
    return out;
}

// A relative path written with "/" in the test, with the platform's separator.
std::string native(std::string path) {
    for (char &c : path) {
        c = c == '/' ? VQ_PATH_SEPARATOR : c;
    }
    return path;
}

Strings list_items(char **list) {
    Strings out;
    for (int32_t i = 0; i < ml_list_count(list); ++i) {
        out.emplace_back(list[i]);
    }
    return out;
}

// Takes a malloc'ed result, frees it and returns its text ("<null>" for NULL).
std::string take(char *text) {
    std::string out = text != nullptr ? text : "<null>";
    std::free(text);
    return out;
}

// Runs an in-place routine on a copy of text and returns the result.
template <typename Edit>
std::string edited(std::string text, Edit edit) {
    EXPECT_EQ(edit(text.data()), 1);
    text.resize(std::strlen(text.c_str()));
    return text;
}

class Str : public ::testing::Test {
protected:
    void SetUp() override { err_clear_error_stack(); }

    static bool last_error_is(uint32_t code) {
        bool is = err_get_stack_depth() > 0 && err_get_error_code(0) == code;
        err_clear_error_stack();
        return is;
    }
};

// ---- Tokenizer ------------------------------------------------------------

TEST_F(Str, TokensSplitAtBlanksTabsAndOneComma) {
    EXPECT_EQ(tokens("(CLI,GF,NOERROR)", 0), (Strings{"CLI", "GF", "NOERROR"}));
    for (const char *text : {"A , B", "A,B", "A B", "  A\t,\t B  ", "(A B)"}) {
        EXPECT_EQ(tokens(text, 0), (Strings{"A", "B"})) << text;
    }
    EXPECT_EQ(tokens(",A,,B ,, C", 0), (Strings{"", "A", "", "B", "", "C"}));
    EXPECT_EQ(tokens("((A))", 0), (Strings{"(A)"}));  // only one pair goes
    EXPECT_EQ(tokens("   ", 0), Strings{});
    EXPECT_EQ(tokens("()", 0), Strings{});
}

TEST_F(Str, QuotesAndEscapesKeptOrConsumedByFlag) {
    struct Case {
        const char *text;
        Strings value;  // flag 0
        Strings raw;    // flag 1
    };
    const Case cases[] = {
        {R"("a b",c)", {"a b", "c"}, {R"("a b")", "c"}},
        {R"(say\"hi\" x)", {R"(say"hi")", "x"}, {R"(say\"hi\")", "x"}},
        {R"("C:\dir\\" x)", {R"(C:\dir\)", "x"}, {R"("C:\dir\\")", "x"}},
        {R"(a\\\"b)", {R"(a\"b)"}, {R"(a\\\"b)"}},
        {R"(a\ b\,c d)", {"a b,c", "d"}, {R"(a\ b\,c)", "d"}},
        {R"(\\node\share C:\x\y)", {R"(\\node\share)", R"(C:\x\y)"}, {R"(\\node\share)", R"(C:\x\y)"}},
        {R"("" "open, to end)", {"", "open, to end"}, {R"("")", R"("open, to end)"}},
        {R"(x"a b"y)", {"xa by"}, {R"(x"a b"y)"}},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(tokens(c.text, 0), c.value) << c.text;
        EXPECT_EQ(tokens(c.text, 1), c.raw) << c.text;
    }
}

TEST_F(Str, LongTokensGrowTheBuffer) {
    std::string word(2000, 'w');
    std::string quoted(700, ' ');
    quoted[0] = 'q';
    EXPECT_EQ(tokens(word + " \"" + quoted + "\" z", 0), (Strings{word, quoted, "z"}));
    // Growth in the middle of an escape run.
    std::string escapes;
    for (int i = 0; i < 300; ++i) {
        escapes += "\\\"";
    }
    EXPECT_EQ(tokens(escapes, 0), Strings{std::string(300, '"')});
    EXPECT_EQ(tokens(escapes, 1), Strings{escapes});
}

TEST_F(Str, ExhaustedOrMissingTextGivesNullUntilInit) {
    char text[] = "one";
    ASSERT_EQ(str_init_tokens(text), 1);
    ASSERT_STREQ(str_get_next_token(0), "one");
    EXPECT_EQ(str_get_next_token(0), nullptr);
    EXPECT_EQ(str_get_next_token(0), nullptr);  // the state is gone

    unsigned char standard[8] = {0x08};  // the tokenizer's trace channel
    dbg_set_debug_mask_value(standard);
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(str_get_next_token(1), nullptr);
    std::string trace = ::testing::internal::GetCapturedStdout();
    dbg_clear_debug_mask();
    EXPECT_EQ(trace, "start: (null)\n<error - no init>\n");

    EXPECT_EQ(str_init_tokens(nullptr), 0);
    EXPECT_TRUE(last_error_is(ERR_GEN_PARAMS));
    char again[] = " two ";
    ASSERT_EQ(str_init_tokens(again), 1);
    EXPECT_STREQ(again, "two");  // trimmed in place
    EXPECT_STREQ(str_get_next_token(0), "two");

    // A thread that never initialised has nothing to read.
    char *seen = reinterpret_cast<char *>(1);
    std::thread([&seen] { seen = str_get_next_token(0); }).join();
    EXPECT_EQ(seen, nullptr);
}

TEST_F(Str, EachThreadTokenisesItsOwnText) {
    // Two threads take turns, one call each, so that every step of one runs
    // between steps of the other; a thread that has finished stops taking turns.
    std::atomic<int> turn{0};
    std::atomic<int> finished{0};
    auto run = [&turn, &finished](int me, std::string text, Strings *got) {
        std::vector<char> buffer(text.begin(), text.end());
        buffer.push_back('\0');
        for (bool first = true;; first = false) {
            while (turn.load() != me && (finished.load() & (1 << (1 - me))) == 0) {
                std::this_thread::yield();
            }
            bool ready = !first || str_init_tokens(buffer.data()) == 1;
            char *t = ready ? str_get_next_token(0) : nullptr;
            got->emplace_back(t != nullptr ? t : "<end>");
            turn.store(1 - me);
            if (t == nullptr) {
                break;
            }
        }
        finished.fetch_or(1 << me);
    };
    Strings a;
    Strings b;
    std::thread first(run, 0, "a1 a2,a3 a4", &a);
    std::thread second(run, 1, "(b1 \"b 2\" b3)", &b);
    first.join();
    second.join();
    EXPECT_EQ(a, (Strings{"a1", "a2", "a3", "a4", "<end>"}));
    EXPECT_EQ(b, (Strings{"b1", "b 2", "b3", "<end>"}));
}

// ---- Lists and command lines ---------------------------------------------------

TEST_F(Str, ListsToTextsAndBack) {
    char **list = nullptr;
    ASSERT_EQ(str_convert_string_to_list(" a , b ,,c\t", &list), 1);
    EXPECT_EQ(list_items(list), (Strings{"a", "b", "", "c"}));
    EXPECT_EQ(take(str_convert_list_to_string(list)), "a,b,,c");
    EXPECT_EQ(take(str_convert_list_to_string_with_sep(list, " | ")), "a | b |  | c");
    ml_free(list);

    ASSERT_EQ(str_convert_string_to_list_with_sep("x::y:z::", "::", &list), 1);
    EXPECT_EQ(list_items(list), (Strings{"x", "y:z", ""}));
    ml_free(list);
    ASSERT_EQ(str_convert_string_to_list(" \t ", &list), 1);
    EXPECT_EQ(ml_list_count(list), 0);
    ml_free(list);
    EXPECT_EQ(take(str_convert_list_to_string(nullptr)), "");

    char **untouched = nullptr;
    EXPECT_EQ(str_convert_string_to_list_with_sep("a", "", &untouched), 0);
    EXPECT_TRUE(last_error_is(ERR_GEN_PARAMS));
    EXPECT_EQ(str_convert_string_to_list(nullptr, &untouched), 0);
    EXPECT_TRUE(last_error_is(ERR_GEN_PARAMS));
    EXPECT_EQ(untouched, nullptr);
    EXPECT_EQ(str_convert_list_to_string_with_sep(nullptr, nullptr), nullptr);
    EXPECT_TRUE(last_error_is(ERR_GEN_PARAMS));
}

TEST_F(Str, PackedCommandLineSplitsBackToItsArguments) {
    const char *args[] = {"plain",      "two words", "",    R"(say "hi")", R"(trail\)",
                          R"(C:\dir\)", "a,b",       "(x)", R"(back\\"q)", R"(\\node\share)"};
    auto argc = static_cast<int32_t>(std::size(args));
    std::string line = take(str_pack_command_line(argc, const_cast<char *const *>(args)));
    EXPECT_EQ(line.substr(0, 30), R"(plain "two words" "" "say \"hi)");
    EXPECT_EQ(tokens(line, 0), Strings(args, args + argc));
    EXPECT_EQ(take(str_pack_command_line(0, nullptr)), "");
    const char *with_null[] = {"a", nullptr};
    EXPECT_EQ(str_pack_command_line(2, const_cast<char *const *>(with_null)), nullptr);
    EXPECT_TRUE(last_error_is(ERR_GEN_PARAMS));
}

TEST_F(Str, EscapingAndWrapping) {
    EXPECT_EQ(take(str_re_escape(R"(a.b*c(1)[x]{2}+?|^$\z)")), R"(a\.b\*c\(1\)\[x\]\{2\}\+\?\|\^\$\\z)");
    EXPECT_EQ(take(str_wrap_for_cli("aaa bbb ccc", 7)), "aaa bbb\nccc");
    EXPECT_EQ(take(str_wrap_for_cli("ab   cd    ef", 9)), "ab   cd\nef");
    EXPECT_EQ(take(str_wrap_for_cli("x abcdefghij", 4)), "x\nabcd\nefgh\nij");
    EXPECT_EQ(take(str_wrap_for_cli("  indented line\n\nnext", 0)), "  indented line\n\nnext");
    std::string prose;
    for (int i = 0; i < 60; ++i) {
        prose += "word" + std::to_string(i * 37) + (i % 7 == 0 ? "  " : " ");
    }
    std::string wrapped = take(str_wrap_for_cli(prose.c_str(), 20));
    size_t start = 0;
    for (size_t end = wrapped.find('\n'); end != std::string::npos; end = wrapped.find('\n', start)) {
        EXPECT_LE(end - start, 20u);
        EXPECT_NE(wrapped[start], ' ');
        start = end + 1;
    }
    EXPECT_EQ(str_wrap_for_cli("x", -1), nullptr);
    EXPECT_TRUE(last_error_is(ERR_GEN_PARAMS));
}

// ---- Trimming and in-place edits ------------------------------------------------

TEST_F(Str, TrimmingSets) {
    EXPECT_EQ(edited(" \t\r\nab c \n", str_trim), "ab c");
    EXPECT_EQ(edited(" \t\r\n", str_trim), "");
    EXPECT_EQ(edited("a \r\n\n", str_trim_end_crlf), "a ");
    EXPECT_EQ(edited("\na\r\nb\nc", str_remove_nl), "abc");
    EXPECT_EQ(edited("  a   b\t\t c ", str_handle_double_spaces), " a b\t\t c ");
    EXPECT_EQ(edited("ab\xE9z-", str_up_string), "AB\xE9Z-");
    EXPECT_EQ(edited("dir//", [](char *t) { return str_remove_end_sign(t, '/'); }), "dir/");
    EXPECT_EQ(edited("dir", [](char *t) { return str_remove_end_sign(t, '/'); }), "dir");
    EXPECT_EQ(str_is_empty(nullptr), 1);
    EXPECT_EQ(str_is_empty(" \t\r\n"), 1);
    EXPECT_EQ(str_is_not_empty(" x "), 1);
    EXPECT_EQ(str_is_not_empty(""), 0);
    EXPECT_EQ(str_trim(nullptr), 0);
    EXPECT_TRUE(last_error_is(ERR_GEN_PARAMS));
}

// ---- Replacing, counting, appending ------------------------------------------------

TEST_F(Str, ReplaceAndCount) {
    EXPECT_EQ(take(str_replace_string_in_string("aaa", "a", "bb")), "bbbbbb");
    EXPECT_EQ(take(str_replace_string_in_string("aaaa", "aa", "b")), "bb");
    EXPECT_EQ(take(str_replace_string_in_string("abcabc", "bc", "")), "aa");
    EXPECT_EQ(take(str_replace_string_in_string("xyz", "q", "r")), "xyz");
    EXPECT_EQ(str_replace_string_in_string("abc", "", "x"), nullptr);  // refused, not looped on
    EXPECT_TRUE(last_error_is(ERR_GEN_PARAMS));

    EXPECT_EQ(edited("a.b.c", [](char *t) { return str_replace_char_in_string(t, '.', '/'); }), "a/b/c");
    EXPECT_EQ(edited("a.b.c", [](char *t) { return str_replace_char_in_string(t, '.', '\0'); }), "abc");
    EXPECT_EQ(edited("a:b*c?", [](char *t) { return str_replace_charset_in_string(t, ":*?", '_'); }),
              "a_b_c_");
    EXPECT_EQ(edited("a:b*c?", [](char *t) { return str_replace_charset_in_string(t, ":*?", '\0'); }), "abc");
    EXPECT_EQ(str_replace_char_in_string(nullptr, 'a', 'b'), 0);
    EXPECT_TRUE(last_error_is(ERR_GEN_PARAMS));

    EXPECT_EQ(str_count_nl_in_string("a\r\nb\n\nc"), 3);
    EXPECT_EQ(str_count_nl_in_string(nullptr), -1);
    EXPECT_TRUE(last_error_is(ERR_GEN_PARAMS));
    EXPECT_EQ(str_match_head("prefix.rest", "prefix"), 1);
    EXPECT_EQ(str_match_head("pre", "prefix"), 0);
    EXPECT_EQ(str_match_tail("name.txt", ".txt"), 1);
    EXPECT_EQ(str_match_tail("txt", ".txt"), 0);
    EXPECT_EQ(str_match_tail("x", ""), 1);
    EXPECT_EQ(str_char_in_string("abc", 'c'), 1);
    EXPECT_EQ(str_char_in_string("abc", '\0'), 0);

    char *grown = nullptr;
    for (const char *part : {"ab", "", "cd"}) {
        ASSERT_EQ(str_cat_with_realloc(&grown, part), 1);
    }
    EXPECT_EQ(take(grown), "abcd");
}

// ---- Paths -----------------------------------------------------------------------------

TEST_F(Str, SubDirectoriesWithCaseAndEqualOptions) {
    auto below = [](const std::string &dir, const std::string &path, int cs, int equal) {
        return str_is_sub_dir_with_case_sensitive_and_equal_option(native(dir).c_str(), native(path).c_str(),
                                                                   cs, equal);
    };
    EXPECT_EQ(below("a/b", "a/b/c", 1, 0), 1);
    EXPECT_EQ(below("a/b/", "a/b/c/d", 1, 0), 1);
    EXPECT_EQ(below("a/b", "a/bc", 1, 1), 0);
    EXPECT_EQ(below("a/b", "a", 1, 1), 0);
    EXPECT_EQ(below("a/b", "a/b", 1, 0), 0);
    EXPECT_EQ(below("a/b", "a/b/", 1, 1), 1);
    EXPECT_EQ(below("a/b/", "a/b", 1, 1), 1);
    EXPECT_EQ(below("A/B", "a/b/c", 1, 0), 0);
    EXPECT_EQ(below("A/B", "a/b/c", 0, 0), 1);
    EXPECT_EQ(below("/", "/x", 1, 0), 1);
    EXPECT_EQ(below("", "x", 1, 1), 0);
    EXPECT_EQ(str_is_sub_dir_with_case_sensitive_option(native("a").c_str(), native("a/b").c_str(), 1), 1);
    EXPECT_EQ(str_is_sub_dir_with_case_sensitive_option(native("a").c_str(), native("a").c_str(), 1), 0);
    EXPECT_EQ(str_is_sub_dir_with_case_sensitive_option(nullptr, "a", 1), 0);
    EXPECT_TRUE(last_error_is(ERR_GEN_PARAMS));
}

TEST_F(Str, IterativeCompareKeepsEntriesAfterTheirDirectory) {
    Strings names = {"a.txt", "a-b", "a/c", "a/b/c", "a", "a/b"};
    for (std::string &n : names) {
        n = native(n);
    }
    std::sort(names.begin(), names.end(), [](const std::string &x, const std::string &y) {
        return str_file_name_iterative_strcmp(x.c_str(), y.c_str()) < 0;
    });
    Strings expected = {"a", "a/b", "a/b/c", "a/c", "a-b", "a.txt"};
    for (std::string &n : expected) {
        n = native(n);
    }
    EXPECT_EQ(names, expected);
    EXPECT_EQ(str_file_name_iterative_strcmp("same", "same"), 0);
    EXPECT_EQ(str_file_name_iterative_strcmp("\xE9", "z"), 1);  // unsigned bytes
}

TEST_F(Str, UpDirectoryElementsAndNativeSeparators) {
    EXPECT_EQ(str_relative_up_dir_included(native("a/../b").c_str()), 1);
    EXPECT_EQ(str_relative_up_dir_included(".."), 1);
    EXPECT_EQ(str_relative_up_dir_included(native("a/..").c_str()), 1);
    EXPECT_EQ(str_relative_up_dir_included(native("a/..b/...").c_str()), 0);
    EXPECT_EQ(str_relative_up_dir_included(native("b../.").c_str()), 0);
    EXPECT_EQ(edited("a/b/c", str_unix_to_native), native("a/b/c"));
}

// ---- Numbers -------------------------------------------------------------------------------

TEST_F(Str, NumbersRoundTrip) {
    for (int32_t v : {0, -1, 42, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()}) {
        int32_t back = 7;
        ASSERT_EQ(str_atol(str_ltoa(v), &back), 1) << v;
        EXPECT_EQ(back, v);
    }
    for (double v : {0.1, -1e-300, 1e300, 5e-324, 123456789.125, DBL_MAX, -0.0, 1.0 / 3}) {
        double back = 7;
        ASSERT_EQ(str_atod(str_dtoa(v), &back), 1) << v;
        EXPECT_EQ(back, v) << str_dtoa(v);
        EXPECT_EQ(std::signbit(back), std::signbit(v)) << str_dtoa(v);
    }
    EXPECT_STREQ(str_dtoa(0.1), "0.1");
    EXPECT_STREQ(str_dtoa(-std::numeric_limits<double>::infinity()), "-inf");
    EXPECT_STREQ(str_dtoa(-std::numeric_limits<double>::quiet_NaN()), "nan");
    EXPECT_STREQ(str_conv_addr_to_string(0x7F000001u), "127.0.0.1");
    EXPECT_STREQ(str_conv_addr_to_string(0xC0A8FF0Au), "192.168.255.10");

    int32_t l = 0;
    EXPECT_EQ(str_atol(" +7\t", &l), 1);
    EXPECT_EQ(l, 7);
    double d = 0;
    EXPECT_EQ(str_atod(" -2.5e3 ", &d), 1);
    EXPECT_EQ(d, -2500.0);
}

TEST_F(Str, BadNumbersAreRefusedAndLeaveTheValue) {
    for (const char *text : {"", "  ", "12x", "2147483648", "-2147483649", "+-1", "1 2", "0x10", "--1"}) {
        int32_t l = 99;
        EXPECT_EQ(str_atol(text, &l), 0) << text;
        EXPECT_EQ(l, 99);
        EXPECT_TRUE(last_error_is(ERR_GEN_GENERAL)) << text;
    }
    for (const char *text : {"", "1e400", "1,5", "1.5.2", "0x1p3", "e5", "+-2"}) {
        double d = 99;
        EXPECT_EQ(str_atod(text, &d), 0) << text;
        EXPECT_EQ(d, 99);
        EXPECT_TRUE(last_error_is(ERR_GEN_GENERAL)) << text;
    }
    EXPECT_EQ(str_atol(nullptr, nullptr), 0);
    EXPECT_TRUE(last_error_is(ERR_GEN_PARAMS));
}

// ---- Reading lines -----------------------------------------------------------------------------

class StrLines : public Str {
protected:
    // A stream holding content, read from its start.
    std::FILE *stream(const char *content) {
        path_ = ::testing::TempDir() + "vq_str_lines.txt";
        std::FILE *f = std::fopen(path_.c_str(), "w+b");
        if (f != nullptr) {
            std::fputs(content, f);
            std::rewind(f);
        }
        return f;
    }
    void TearDown() override { std::remove(path_.c_str()); }

    std::string path_;
};

TEST_F(StrLines, PlainAndMeaningfulLines) {
    const char *content = "first\r\n\n  # note\n  second  \nlast";
    std::FILE *f = stream(content);
    ASSERT_NE(f, nullptr);
    char line[32];
    Strings plain;
    while (str_read_next_plain_line(f, line, sizeof line) == 1) {
        plain.emplace_back(line);
    }
    EXPECT_EQ(plain, (Strings{"first", "", "  # note", "  second  ", "last"}));
    EXPECT_EQ(err_get_stack_depth(), 0);  // the end of the file is no error

    std::rewind(f);
    Strings meaningful;
    while (str_read_next_line(f, line, sizeof line) == 1) {
        meaningful.emplace_back(line);
    }
    EXPECT_EQ(meaningful, (Strings{"first", "second", "last"}));
    std::fclose(f);
}

TEST_F(StrLines, LongLinesAreReportedAndSkipped) {
    std::FILE *f = stream("abcdef\nabc\r\nxy\n");
    ASSERT_NE(f, nullptr);
    char line[4];
    EXPECT_EQ(str_read_next_plain_line(f, line, sizeof line), 0);
    EXPECT_STREQ(line, "abc");
    EXPECT_TRUE(last_error_is(ERR_GEN_GENERAL));
    EXPECT_EQ(str_read_next_plain_line(f, line, sizeof line), 1);  // the CR of CRLF did not need room
    EXPECT_STREQ(line, "abc");
    EXPECT_EQ(str_read_next_plain_line(f, line, sizeof line), 1);
    EXPECT_STREQ(line, "xy");
    EXPECT_EQ(str_read_next_plain_line(f, line, 0), 0);
    EXPECT_TRUE(last_error_is(ERR_GEN_PARAMS));
    std::fclose(f);
}

// ---- Time frames ------------------------------------------------------------------------------------

uint32_t at(int hours, int minutes) {
    return 20000u * 86400u + static_cast<uint32_t>(hours * 3600 + minutes * 60);
}

TEST_F(Str, TimeFrameAcrossMidnight) {
    ASSERT_EQ(tframe("22:00 - 6:00"), 1);
    EXPECT_EQ(tframe_time(at(23, 30), 0), 1);
    EXPECT_EQ(tframe_time(at(5, 59), 0), 1);
    EXPECT_EQ(tframe_time(at(6, 0), 0), 0);  // the end is excluded
    EXPECT_EQ(tframe_time(at(12, 0), 0), 0);
    EXPECT_EQ(tframe_time(at(20, 30), 2 * 3600), 1);  // 22:30 local
    EXPECT_EQ(tframe_time(at(0, 30), -3600), 1);      // 23:30 the day before
    int32_t order = 0;
    ASSERT_EQ(compare_two("23:00", "01:00", &order), 1);
    EXPECT_EQ(order, -1);
    ASSERT_EQ(compare_two("21:59", "22:00", &order), 1);
    EXPECT_EQ(order, 1);  // 21:59 is the frame's last minute of the cycle

    EXPECT_EQ(tframe("25:00-01:00"), 0);
    EXPECT_TRUE(last_error_is(ERR_GEN_PARAMS));
    EXPECT_EQ(tframe_time(at(23, 0), 0), 1);  // the old frame stays
    EXPECT_EQ(compare_two("1:5", "01:00", &order), 0);
    EXPECT_TRUE(last_error_is(ERR_GEN_PARAMS));

    ASSERT_EQ(tframe(nullptr), 1);
    ASSERT_EQ(compare_two("23:00", "01:00", &order), 1);
    EXPECT_EQ(order, 1);
    ASSERT_EQ(tframe("08:00-17:00"), 1);
    EXPECT_EQ(tframe_time(at(8, 0), 0), 1);
    EXPECT_EQ(tframe_time(at(17, 0), 0), 0);
    for (const char *whole_day : {"00:00-24:00", "08:00-08:00"}) {
        ASSERT_EQ(tframe(whole_day), 1);
        EXPECT_EQ(tframe_time(at(3, 0), 0), 1);
        EXPECT_EQ(tframe_time(at(23, 59), 0), 1);
    }
    tframe(nullptr);
}

}  // namespace
