// The include/exclude filter: the header's worked example, how rule pairs fit,
// exclusion over inclusion, case, names at or outside the base directory,
// configuration failures, the POSIX keys on real files, the automatic
// exclusion file, the conversions between the two rule forms, and the wide
// forms. Configurations are real conf_ handles read from text.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "support/net_support.h"
#include "vq_glob/conf.h"
#include "vq_glob/dbg.h"
#include "vq_glob/err.h"
#include "vq_glob/filter.h"
#include "vq_glob/memory.h"
#include "vq_glob/mlist.h"

#ifndef _WIN32
#include <sys/stat.h>
#else
#include <windows.h>
#endif

namespace {

namespace fs = std::filesystem;

constexpr char kSep = VQ_PATH_SEPARATOR;
constexpr int32_t kFile = 1;
constexpr int32_t kDir = 2;

// A path written with "/" in the platform's separators.
std::string native(std::string path) {
    std::replace(path.begin(), path.end(), '/', kSep);
    return path;
}

#ifdef _WIN32
const std::string kBase = "C:\\data\\proj";
#else
const std::string kBase = "/data/proj";
#endif

std::string under(const std::string &base, const std::string &relative) { return base + kSep + native(relative); }

// "[Filter Params]" text with the given fields; rule lists become
// multi-line values.
struct Config {
    std::string base = kBase;
    std::vector<std::pair<std::string, std::string>> include, exclude;
    std::vector<std::string> extra;  // more "name=value" lines

    std::string text() const {
        std::string out = "[Filter Params]\nBase Directory=" + base + "\n";
        auto list = [&out](const char *name, const std::vector<std::pair<std::string, std::string>> &pairs,
                           bool first) {
            out += std::string(name) + "=_ml_text_\n";
            for (const auto &pair : pairs) {
                out += native(first ? pair.first : pair.second) + "\n";
            }
            out += "_ml_text_\n";
        };
        list("Include Non Recursive Part List", include, true);
        list("Include Recursive Part List", include, false);
        list("Exclude Non Recursive Part List", exclude, true);
        list("Exclude Recursive Part List", exclude, false);
        for (const std::string &line : extra) {
            out += line + "\n";
        }
        return out;
    }
};

struct FilterCloser {
    void operator()(void *filter) const { close_filter(filter); }
};
using FilterPtr = std::unique_ptr<void, FilterCloser>;

struct ConfCloser {
    void operator()(void *h) const { conf_free_handle(&h); }
};
using ConfPtr = std::unique_ptr<void, ConfCloser>;

ConfPtr read_config(const std::string &text) {
    void *h = nullptr;
    EXPECT_EQ(conf_allocate_handle(&h), 1);
    EXPECT_EQ(conf_read_buffer_to_handle(h, text.c_str()), 1) << err_get_error_msg();
    return ConfPtr(h);
}

FilterPtr make_filter(const Config &config) {
    ConfPtr conf = read_config(config.text());
    void *filter = nullptr;
    EXPECT_EQ(init_filter(&filter, conf.get()), 1) << err_get_error_msg();
    return FilterPtr(filter);
}

// Skip's verdict on base/relative: 1 skipped, 0 kept, -1 when Skip failed.
int skipped(void *filter, const std::string &name, int32_t type) {
    int32_t skip = -1;
    return Skip(filter, name.c_str(), type, &skip) == 1 ? skip : -1;
}

int dig(void *filter, const std::string &path) {
    int32_t should = -1;
    return should_dig_into_dir(filter, path.c_str(), &should) == 1 ? should : -1;
}

// One expected verdict on base/relative; dig is only asked when not -1.
struct Verdict {
    const char *relative;
    int32_t type;
    int skip;
    int dig = -1;
};

void expect_verdicts(void *filter, const std::vector<Verdict> &rows, const std::string &base = kBase) {
    for (const Verdict &row : rows) {
        std::string name = under(base, row.relative);
        EXPECT_EQ(skipped(filter, name, row.type), row.skip) << row.relative << " as type " << row.type;
        if (row.dig >= 0) {
            EXPECT_EQ(dig(filter, name), row.dig) << row.relative;
        }
    }
}

// init_filter's failure on the configuration: the codes on the stack, newest first.
std::vector<uint32_t> init_failure(const std::string &text) {
    ConfPtr conf = read_config(text);
    void *filter = reinterpret_cast<void *>(0x1);  // must be left alone
    EXPECT_EQ(init_filter(&filter, conf.get()), 0);
    EXPECT_EQ(filter, reinterpret_cast<void *>(0x1));
    std::vector<uint32_t> codes;
    for (int32_t i = 0; i < err_get_stack_depth(); ++i) {
        codes.push_back(err_get_error_code(i));
    }
    err_clear_error_stack();
    return codes;
}

Config worked_example() {
    Config config;
    config.include = {{"src", "*.c"}, {"src", "*.h"}, {"docs", "*"}, {"*.txt", "*"}};
    config.exclude = {{"docs/old", "*"}, {"*", "*.log"}};
    return config;
}

TEST(FilterExample, EveryObjectOfTheHeaderExampleAsDocumented) {
    FilterPtr filter = make_filter(worked_example());
    const Verdict rows[] = {
        {"README.txt", kFile, 0, -1},        {"notes.log", kFile, 1, -1},      {"src", kDir, 1, 1},
        {"src/main.c", kFile, 0, -1},      {"src/main.o", kFile, 1, -1},     {"src/readme.txt", kFile, 1, -1},
        {"src/util", kDir, 1, 1},          {"src/util/str.c", kFile, 0, -1}, {"src/util/str.h", kFile, 0, -1},
        {"build", kDir, 1, 0},             {"build/app", kFile, 1, -1},      {"docs", kDir, 0, 1},
        {"docs/guide.txt", kFile, 0, -1},  {"docs/today.log", kFile, 1, -1}, {"docs/old", kDir, 1, 0},
        {"docs/old/draft.txt", kFile, 1, -1},
    };
    expect_verdicts(filter.get(), {std::begin(rows), std::end(rows)});
    for (const Verdict &row : rows) {
        if (row.dig >= 0) {
            std::string name = under(kBase, row.relative) + kSep;
            EXPECT_EQ(skipped(filter.get(), name, row.type), row.skip) << row.relative << " with separator";
        }
    }
    // Type 8 is a directory too: "docs/old" is excluded whole either way.
    EXPECT_EQ(skipped(filter.get(), under(kBase, "docs/old"), 8), 1);
    EXPECT_EQ(skipped(filter.get(), kBase, kDir), 1);
    EXPECT_EQ(skipped(filter.get(), kBase.substr(0, kBase.rfind(kSep)), kDir), 1);
    EXPECT_EQ(dig(filter.get(), kBase), 1);
    EXPECT_EQ(dig(filter.get(), kBase.substr(0, kBase.rfind(kSep))), 0);
}

TEST(FilterRules, ExclusionWinsAndEachHalfAnswersAlone) {
    FilterPtr filter = make_filter(worked_example());
    // An object no exclude rule names passes the exclude half whatever the include rules say.
    for (const auto &[check, relative, skip] :
         {std::tuple{&include_check, "docs/today.log", 0}, std::tuple{&exclude_check, "docs/today.log", 1},
          std::tuple{&exclude_check, "build/app", 0}, std::tuple{&include_check, "build/app", 1}}) {
        int32_t got = -1;
        ASSERT_EQ(check(filter.get(), under(kBase, relative).c_str(), kFile, &got), 1) << relative;
        EXPECT_EQ(got, skip) << relative;
    }
}

TEST(FilterRules, RecursivePartsWithSeparatorsAndDirectoryOnlyPatterns) {
    Config config;
    config.include = {{"proj", "logs/*.log"}, {"", "*.md"}, {"tmp/", "*"}, {"*", "*/"}};
    config.exclude = {{"proj/keep", "*"}};
    FilterPtr filter = make_filter(config);
    expect_verdicts(filter.get(), {
        // R with a separator fits the path's tail below what N selected, at any depth.
        {"proj/logs/a.log", kFile, 0}, {"proj/x/y/logs/b.log", kFile, 0}, {"proj/logs/a.txt", kFile, 1},
        {"proj/logs/deeper/a.log", kFile, 1}, {"proj/keep/logs/a.log", kFile, 1},
        // An empty N is the base directory itself: R applies at every level.
        {"README.md", kFile, 0}, {"a/b/c/NOTES.MD", kFile, 0},
        // A pattern ending in a separator selects directories only; ("*", "*/") every directory, no file.
        {"tmp", kDir, 0}, {"tmp", kFile, 1}, {"tmp/inside", kFile, 0}, {"a/b/c", kDir, 0}, {"a/b/c.txt", kFile, 1},
        // The walk enters the directories the include parts lead through.
        {"proj/logs", kDir, 0, 1}, {"proj/keep", kDir, 1, 0},
    });
}

TEST(FilterRules, WalksEnterOnlyDirectoriesOnTheWayToOrBelowWhatIsIncluded) {
    Config config;
    config.include = {{"src/util", "*.c"}};
    config.exclude = {{"src/util/old", "*"}};
    FilterPtr filter = make_filter(config);
    expect_verdicts(filter.get(), {{"src", kDir, 1, 1}, {"src/util", kDir, 1, 1}, {"src/util/x/y", kDir, 1, 1},
                                   {"src/util/old", kDir, 1, 0}, {"src/other", kDir, 1, 0}, {"docs", kDir, 1, 0},
                                   {"srcx", kDir, 1, 0}, {"src/util/x/y/a.c", kFile, 0}, {"src/a.c", kFile, 1}});
}

TEST(FilterRules, LetterCaseNeverMattersEvenWhenConfiguredSensitive) {
    Config config = worked_example();
    config.extra = {"Case Sensitive=TRUE"};
    FilterPtr filter = make_filter(config);
    std::string upper_base = kBase;
    std::transform(upper_base.begin(), upper_base.end(), upper_base.begin(), ::toupper);
    EXPECT_EQ(skipped(filter.get(), under(upper_base, "SRC/Main.C"), kFile), 0);
    EXPECT_EQ(skipped(filter.get(), under(kBase, "Docs/Today.LOG"), kFile), 1);
    EXPECT_EQ(skipped(filter.get(), under(kBase, "DOCS/OLD"), kDir), 1);
    EXPECT_EQ(dig(filter.get(), under(upper_base, "Src/UTIL")), 1);
}

TEST(FilterRules, NamesAtOrOutsideTheBaseAreSkippedEvenWithEverythingIncluded) {
    Config config;
    config.include = {{"*", "*"}};
    FilterPtr filter = make_filter(config);
    expect_verdicts(filter.get(), {{"a/b", kFile, 0}, {"a", kDir, 0}});
    const std::string outside[] = {kBase, kBase + kSep, kBase + "x" + kSep + "a", native("data/proj/a"),
                                   under(kBase, "../etc/passwd"), under(kBase, "a/../../b"), ""};
    for (const std::string &name : outside) {
        EXPECT_EQ(skipped(filter.get(), name, kFile), 1) << name;
        EXPECT_EQ(dig(filter.get(), name), name == kBase || name == kBase + kSep ? 1 : 0) << name;
    }
}

TEST(FilterRules, WithoutIncludeRulesEverythingIsSkipped) {
    Config config;
    config.exclude = {{"*", "*.o"}};
    FilterPtr filter = make_filter(config);
    expect_verdicts(filter.get(), {{"a.c", kFile, 1}, {"src", kDir, 1, 0}});
    EXPECT_EQ(dig(filter.get(), kBase), 0);
}

TEST(FilterRules, IncludeSpecIsAllAcceptsOnlyStarPairs) {
    struct Case {
        const char *non_recursive, *recursive;
        int32_t all;
    };
    const Case cases[] = {{"*", "*", 1},  {"", "*", 1},  {"**", "*", 1}, {"*", "**", 1}, {"src", "*", 0},
                          {"*", "*.c", 0}, {"*", "", 0}, {"*?", "*", 0}};
    for (const Case &c : cases) {
        int32_t all = -1;
        ASSERT_EQ(include_spec_is_all(c.non_recursive, c.recursive, &all), 1);
        EXPECT_EQ(all, c.all) << c.non_recursive << "|" << c.recursive;
    }
    int32_t all = 0;
    EXPECT_EQ(include_spec_is_all(nullptr, "*", &all), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_PARAMS);
    EXPECT_EQ(include_spec_is_all("*", "*", nullptr), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_PARAMS);
    err_clear_error_stack();
}

TEST(FilterInit, UnevenOrInvalidRulesFailWithTheirCodes) {
    Config config;
    config.include = {{"a", "*"}, {"b", "*"}};
    std::string text = config.text();
    // Three recursive parts for two non-recursive ones.
    std::string uneven = text;
    uneven.replace(uneven.find("*\n*\n"), 4, "*\n*\n*\n");
    EXPECT_EQ(init_failure(uneven), std::vector<uint32_t>{ERR_FILTER_SPEC_MISMATCH});
    Config excludes;
    excludes.exclude = {{"a", "*"}};
    std::string uneven_exclude = excludes.text();
    uneven_exclude.replace(uneven_exclude.rfind("*\n_ml_text_"), 2, "");
    EXPECT_EQ(init_failure(uneven_exclude), std::vector<uint32_t>{ERR_FILTER_SPEC_MISMATCH});

    for (const char *bad : {"../up", "/abs"}) {
        Config invalid;
        invalid.include = {{"a", "*"}, {bad, "*"}};
        EXPECT_EQ(init_failure(invalid.text()), std::vector<uint32_t>{ERR_FILTER_ILGSPEC}) << bad;
    }
    // An invalid exclude pair is accepted and never fits.
    Config exclude_invalid;
    exclude_invalid.include = {{"*", "*"}};
    exclude_invalid.exclude = {{"../*", "*"}, {"*", "*.o"}};
    FilterPtr filter = make_filter(exclude_invalid);
    expect_verdicts(filter.get(), {{"a.c", kFile, 0}, {"a.o", kFile, 1}});
}

TEST(FilterInit, HandleBoundToTheFilterTableWorksThroughTypedSetters) {
    ASSERT_EQ(vq_get_filter_cf_keys_number(), FILTER_CF_KEYS);
    const conf_table_row *table = vq_get_filter_cf_table();
    void *h = nullptr;
    ASSERT_EQ(conf_allocate_handle(&h), 1);
    ConfPtr conf(h);
    ASSERT_EQ(conf_set_table(h, table, vq_get_filter_cf_keys_number()), 1) << err_get_error_msg();
    // The defaults of the keys that act without being set.
    const std::pair<int32_t, int32_t> defaults[] = {{FILTER_CF_IGNORE_HIDDEN_FILES, 1},
                                                    {FILTER_CF_IGNORE_MOUNT_POINTS, 1},
                                                    {FILTER_CF_IGNORE_RECYCLE_DIR, 0},
                                                    {FILTER_CF_CASE_SENSITIVE, 0}};
    for (const auto &[constant, value] : defaults) {
        int32_t got = -1;
        ASSERT_EQ(conf_get_bool_field_by_const(h, constant, &got), 1) << table[constant].name;
        EXPECT_EQ(got, value) << table[constant].name;
    }
    ASSERT_EQ(conf_set_string_field_by_const(h, FILTER_CF_BASE_DIRECTORY, (kBase + kSep).c_str()), 1);
    std::string docs = "docs";
    char *non_recursive[] = {docs.data(), nullptr};
    char star[] = "*";
    char *recursive[] = {star, nullptr};
    ASSERT_EQ(conf_set_ml_string_field_by_const(h, FILTER_CF_INCLUDE_NON_RECURSIVE, non_recursive), 1);
    ASSERT_EQ(conf_set_ml_string_field_by_const(h, FILTER_CF_INCLUDE_RECURSIVE, recursive), 1);
    void *filter = nullptr;
    ASSERT_EQ(init_filter(&filter, h), 1) << err_get_error_msg();
    FilterPtr owned(filter);
    EXPECT_EQ(skipped(filter, under(kBase, "docs/a"), kFile), 0);  // the trailing separator of the base is cut
    EXPECT_EQ(skipped(filter, under(kBase, "src/a"), kFile), 1);
#ifndef _WIN32
    EXPECT_EQ(skipped(filter, under(kBase, "docs/.a"), kFile), 1);  // hidden files are left out by default
#endif
}

TEST(FilterInit, ConfigurationProblemsFail) {
    EXPECT_EQ(init_failure("[Other]\nx=1\n"), std::vector<uint32_t>{ERR_CNF_SECTION});
    Config typed;
    typed.extra = {"Handling of UNIX Links to Files=7"};
    EXPECT_EQ(init_failure(typed.text()).front(), ERR_CNF_VALUE);
    // A relative base directory that does not exist has no volume to examine.
    Config no_volume;
    no_volume.base = "no-such-directory-for-the-filter";
    std::vector<uint32_t> codes = init_failure(no_volume.text());
    ASSERT_EQ(codes.size(), 2u);
    EXPECT_EQ(codes[0], ERR_FIL_GETVOLINF);
    EXPECT_EQ(codes[1], ERR_SYS_ERRMSG);
}

TEST(FilterInit, NullArgumentsAndForeignHandlesAreRefused) {
    void *none = nullptr;
    EXPECT_EQ(init_filter(nullptr, nullptr), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_PARAMS);
    EXPECT_EQ(init_filter(&none, nullptr), 0);
    EXPECT_EQ(none, nullptr);
    close_filter(nullptr);
    FilterPtr filter = make_filter(worked_example());
    std::string name = under(kBase, "src/main.c");
    int32_t out = 7;
    void *conf = nullptr;
    ASSERT_EQ(conf_allocate_handle(&conf), 1);
    char **list = nullptr;
    ASSERT_EQ(ml_init_list(0, &list), 1);
    // A handle of another kind is refused by the configuration reads.
    EXPECT_EQ(init_filter(&none, list), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_PARAMS);
    ml_free(list);
    for (void *handle : {static_cast<void *>(nullptr), conf}) {
        EXPECT_EQ(Skip(handle, name.c_str(), kFile, &out), 0);
        EXPECT_EQ(include_check(handle, name.c_str(), kFile, &out), 0);
        EXPECT_EQ(exclude_check(handle, name.c_str(), kFile, &out), 0);
        EXPECT_EQ(WSkip(handle, L"a", kFile, &out), 0);
        EXPECT_EQ(should_dig_into_dir(handle, name.c_str(), &out), 0);
        EXPECT_EQ(should_create_dir(handle, name.c_str(), &out), 0);
        EXPECT_EQ(set_auto_exclude(handle, "."), 0);
        EXPECT_EQ(err_get_error_code(0), ERR_GEN_PARAMS);
    }
    EXPECT_EQ(Skip(filter.get(), nullptr, kFile, &out), 0);
    EXPECT_EQ(Skip(filter.get(), name.c_str(), kFile, nullptr), 0);
    EXPECT_EQ(W_include_check(filter.get(), nullptr, kFile, &out), 0);
    EXPECT_EQ(should_dig_into_dir(filter.get(), nullptr, &out), 0);
    EXPECT_EQ(set_auto_exclude(filter.get(), nullptr), 0);
    EXPECT_EQ(out, 7);
    conf_free_handle(&conf);
    err_clear_error_stack();
}

TEST(FilterInit, SkipTracesTheExcludedElementOnTheFilterChannel) {
    FilterPtr filter = make_filter(worked_example());
    std::string name = under(kBase, "docs/today.log");
    unsigned char mask[8] = {0, 0, 0, 0, 0, 0, 0, 0x01};  // bit 56
    dbg_set_debug_mask_value(mask);
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(skipped(filter.get(), name, kFile), 1);
    std::string trace = ::testing::internal::GetCapturedStdout();
    dbg_clear_debug_mask();
    EXPECT_NE(trace.find("Skip : element <" + name + "> didn't pass the exclude check - skipping...\n"),
              std::string::npos)
        << trace;
    EXPECT_NE(trace.find("check_skip_by_lists: element <" + name + "> fits the current spec <" +
                         under(kBase, "*") + ">, <*.log> - exiting...\n"),
              std::string::npos)
        << trace;
}

TEST(FilterWide, WideFormsNameObjectsBelowTheBase) {
    FilterPtr filter = make_filter(worked_example());
    using WideCheck = decltype(&WSkip);
    const struct {
        WideCheck check;
        const wchar_t *name;
        int32_t skip;
    } cases[] = {
        {WSkip, kSep == '/' ? L"src/main.c" : L"src\\main.c", 0}, {WSkip, L"notes.log", 1},
        {W_include_check, L"README.txt", 0}, {W_exclude_check, L"README.log", 1},
        // Non-ASCII names arrive as UTF-8: the rule "*.txt" fits "\u00e9t\u00e9.txt".
        {WSkip, L"\u00e9t\u00e9.txt", 0},
    };
    int32_t skip = -1;
    for (const auto &c : cases) {
        ASSERT_EQ(c.check(filter.get(), c.name, kFile, &skip), 1);
        EXPECT_EQ(skip, c.skip) << static_cast<const void *>(c.name);
    }
    // A name that is no valid wide text fails instead of being guessed at.
    const wchar_t broken[] = {L'a', static_cast<wchar_t>(0xD800), L'b', 0};
    skip = -1;
    EXPECT_EQ(WSkip(filter.get(), broken, kFile, &skip), 0);
    EXPECT_EQ(skip, -1);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_PARAMS);
    err_clear_error_stack();
}

// ---- Conversions ------------------------------------------------------------------

struct Lists {
    char **non_recursive = nullptr;
    char **recursive = nullptr;
    ~Lists() {
        ml_free(non_recursive);
        ml_free(recursive);
    }
    std::vector<std::string> first() const { return {non_recursive, non_recursive + ml_list_count(non_recursive)}; }
    std::vector<std::string> second() const { return {recursive, recursive + ml_list_count(recursive)}; }
};

std::string old_form(char **non_recursive, char **recursive, const char *base, int32_t *flag) {
    char *text = nullptr;
    EXPECT_EQ(convert_include_new_to_old(non_recursive, recursive, base, &text, flag), 1) << err_get_error_msg();
    std::string out = text != nullptr ? text : "<none>";
    sl_free(text);
    return out;
}

TEST(FilterConvert, OldAndNewFormsRoundTrip) {
    std::string base = native(kBase);
    std::string old_spec = under(base, "src/*.c") + "," + under(base, "docs") + "," + under(base, "a b");
    Lists lists;
    ASSERT_EQ(convert_include_old_to_new(old_spec.c_str(), base.c_str(), 0, &lists.non_recursive, &lists.recursive), 1);
    EXPECT_EQ(lists.first(), (std::vector<std::string>{native("src/*.c"), "docs", "a b"}));
    EXPECT_EQ(lists.second(), (std::vector<std::string>{"*", "*", "*"}));
    int32_t flag = -1;
    EXPECT_EQ(old_form(lists.non_recursive, lists.recursive, base.c_str(), &flag), old_spec);
    EXPECT_EQ(flag, 0);

    Lists recursive;
    ASSERT_EQ(convert_exclude_old_to_new("*.o, *.tmp", nullptr, 1, &recursive.non_recursive, &recursive.recursive), 1);
    EXPECT_EQ(recursive.first(), (std::vector<std::string>{"*", "*"}));
    EXPECT_EQ(recursive.second(), (std::vector<std::string>{"*.o", "*.tmp"}));
    EXPECT_EQ(old_form(recursive.non_recursive, recursive.recursive, nullptr, &flag), "*.o,*.tmp");
    EXPECT_EQ(flag, 1);
    char *text = nullptr;
    ASSERT_EQ(convert_exclude_new_to_old(recursive.non_recursive, recursive.recursive, "", &text, &flag), 1);
    EXPECT_STREQ(text, "*.o,*.tmp");
    sl_free(text);

    // New to old to new keeps the lists.
    Lists again;
    std::string back = old_form(lists.non_recursive, lists.recursive, base.c_str(), &flag);
    ASSERT_EQ(convert_include_old_to_new(back.c_str(), base.c_str(), flag, &again.non_recursive, &again.recursive), 1);
    EXPECT_EQ(again.first(), lists.first());
    EXPECT_EQ(again.second(), lists.second());

    Lists empty;
    ASSERT_EQ(convert_include_old_to_new(nullptr, base.c_str(), 0, &empty.non_recursive, &empty.recursive), 1);
    ASSERT_NE(empty.non_recursive, nullptr);
    EXPECT_EQ(ml_list_count(empty.non_recursive) + ml_list_count(empty.recursive), 0);
    EXPECT_EQ(old_form(empty.non_recursive, empty.recursive, base.c_str(), &flag), "");
    EXPECT_EQ(flag, 0);
}

TEST(FilterConvert, WhatCannotBeConvertedIsNamedAndNothingReturned) {
    std::string base = native(kBase);
    std::string old_spec = native("ok,/elsewhere/x,a/../b,") + base;
    Lists lists;
    EXPECT_EQ(convert_include_old_to_new(old_spec.c_str(), base.c_str(), 0, &lists.non_recursive, &lists.recursive), 0);
    EXPECT_EQ(lists.non_recursive, nullptr);
    ASSERT_EQ(err_get_stack_depth(), 3);
    EXPECT_EQ(err_get_error_code(0), ERR_FILTER_FAIL_CNV_INC);
    EXPECT_NE(std::string(err_get_error_text(0)).find("<" + base + ">"), std::string::npos);
    EXPECT_NE(std::string(err_get_error_text(2)).find(native("</elsewhere/x>")), std::string::npos);
    err_clear_error_stack();

    auto new_to_old_fails = [](std::vector<const char *> first, std::vector<const char *> second, uint32_t code) {
        first.push_back(nullptr);
        second.push_back(nullptr);
        char *text = nullptr;
        int32_t flag = -1;
        EXPECT_EQ(convert_exclude_new_to_old(const_cast<char **>(first.data()), const_cast<char **>(second.data()),
                                             nullptr, &text, &flag),
                  0);
        EXPECT_EQ(text, nullptr);
        EXPECT_EQ(flag, -1);
        uint32_t got = err_get_error_code(0);
        std::string message = err_get_error_text(0);
        err_clear_error_stack();
        EXPECT_EQ(got, code);
        return message;
    };
    EXPECT_NE(new_to_old_fails({"src", "*"}, {"*.c", "*.o"}, ERR_FILTER_FAIL_CNV_EXC).find("<src|*.c>"),
              std::string::npos);
    EXPECT_NE(new_to_old_fails({"src", "*"}, {"*", "*.o"}, ERR_FILTER_FAIL_CNV_EXC).find("<src|*,*|*.o>"),
              std::string::npos);
    new_to_old_fails({"a,b"}, {"*"}, ERR_FILTER_FAIL_CNV_EXC);
    new_to_old_fails({"a", "b"}, {"*", "*", "*"}, ERR_FILTER_SPEC_MISMATCH);
}

// ---- Rules on real files ---------------------------------------------------------------

// A scratch directory below the system's temporary directory.
struct ScratchDir : vq::test::ScratchDir {
    ScratchDir() : vq::test::ScratchDir("vq_filter_test_") {}
    std::string str() const { return path().string(); }
    std::string at(const std::string &relative) const { return under(str(), relative); }
    void write(const std::string &relative, const std::string &text) const {
        fs::create_directories(fs::path(at(relative)).parent_path());
        std::ofstream(at(relative), std::ios::binary) << text;
    }
};

TEST(FilterAutoExclude, RulesFromTheFileAreAddedBehindTheExcludeRules) {
    ScratchDir work;
    Config config;
    config.include = {{"*", "*"}};
    FilterPtr filter = make_filter(config);
    ASSERT_EQ(set_auto_exclude(filter.get(), work.str().c_str()), 1);  // no file: nothing added
    EXPECT_EQ(skipped(filter.get(), under(kBase, "tmp/a"), kFile), 0);

    work.write(FILTER_AUTO_EXCLUDE_FILE, native("# left alone\r\n\r\n  tmp  \r\n*|*.swp\ncache | *.bin\n#x|*\n"));
    ASSERT_EQ(set_auto_exclude(filter.get(), work.str().c_str()), 1) << err_get_error_msg();
    expect_verdicts(filter.get(), {{"tmp", kDir, 1, 0}, {"tmp/a", kFile, 1}, {"x/y/a.swp", kFile, 1},
                                   {"cache/d/e.bin", kFile, 1}, {"x", kDir, 0}, {"e.bin", kFile, 0}});

    // A bad line refuses the whole file: its good lines are not added either.
    ScratchDir bad;
    bad.write(FILTER_AUTO_EXCLUDE_FILE, native("more\n../up|*\n"));
    EXPECT_EQ(set_auto_exclude(filter.get(), bad.str().c_str()), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_FILTER_ILGSPEC);
    EXPECT_NE(std::string(err_get_error_text(0)).find("line 2"), std::string::npos);
    EXPECT_EQ(skipped(filter.get(), under(kBase, "more"), kFile), 0);

    // Something that is no regular file is refused with its reason; a fifo
    // without a writer is refused instead of waited on.
    ScratchDir odd;
    fs::create_directories(odd.at(FILTER_AUTO_EXCLUDE_FILE));
    EXPECT_EQ(set_auto_exclude(filter.get(), odd.str().c_str()), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_FIL_OPEN);
    err_clear_error_stack();
#ifndef _WIN32
    ScratchDir fifo;
    ASSERT_EQ(::mkfifo(fifo.at(FILTER_AUTO_EXCLUDE_FILE).c_str(), 0600), 0);
    EXPECT_EQ(set_auto_exclude(filter.get(), fifo.str().c_str()), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_FIL_OPEN);
    err_clear_error_stack();
#endif
}

#ifndef _WIN32

TEST(FilterPosixKeys, PosixHiddenFilesByTheirOwnName) {
    Config config;
    config.include = {{"*", "*"}};
    FilterPtr hiding = make_filter(config);
    config.extra = {"Ignore UNIX Hidden Files=FALSE"};
    FilterPtr showing = make_filter(config);
    for (const char *name : {".profile", "a/.git", "a/.b/c"}) {
        bool hidden = std::string(name) != "a/.b/c";  // only the object's own name counts
        EXPECT_EQ(skipped(hiding.get(), under(kBase, name), kFile), hidden ? 1 : 0) << name;
        EXPECT_EQ(skipped(showing.get(), under(kBase, name), kFile), 0) << name;
    }
    EXPECT_EQ(dig(hiding.get(), under(kBase, "a/.git")), 0);
    EXPECT_EQ(dig(showing.get(), under(kBase, "a/.git")), 1);
}

TEST(FilterPosixKeys, PosixMountPointsAreDirectoriesOnAnotherDevice) {
    struct stat root {}, proc {};
    if (::stat("/", &root) != 0 || ::stat("/proc", &proc) != 0 || root.st_dev == proc.st_dev) {
        GTEST_SKIP() << "/proc is not a separate file system here";
    }
    ScratchDir work;
    fs::create_directories(work.at("plain"));
    Config config;
    config.base = "/";
    config.include = {{"*", "*"}};
    FilterPtr ignoring = make_filter(config);
    config.extra = {"Ignore UNIX Mount Points=FALSE"};
    FilterPtr keeping = make_filter(config);
    EXPECT_EQ(skipped(ignoring.get(), "/proc", kDir), 1);
    EXPECT_EQ(dig(ignoring.get(), "/proc"), 0);
    EXPECT_EQ(skipped(keeping.get(), "/proc", kDir), 0);
    // Only directories are examined, and an ordinary directory is no mount point.
    EXPECT_EQ(skipped(ignoring.get(), "/proc", kFile), 0);
    EXPECT_EQ(skipped(ignoring.get(), work.at("plain"), kDir), 0);
    EXPECT_EQ(dig(ignoring.get(), work.at("plain")), 1);
}

TEST(FilterPosixKeys, PosixLinksUnderEachHandlingValue) {
    ScratchDir work;
    work.write("file", "x");
    fs::create_directories(work.at("dir"));
    fs::create_symlink(work.at("file"), work.at("to_file"));
    fs::create_directory_symlink(work.at("dir"), work.at("to_dir"));
    fs::create_symlink(work.at("missing"), work.at("dangling"));
    struct Case {
        int files, dirs;
        int to_dir, dig_to_dir;  // Skip and should_dig of the link to a directory
    };
    // Directories are included by a directories-only pair, so a link to a
    // directory judged as a file is skipped; the real objects never change.
    const Case cases[] = {
        {FILTER_LINKS_AS_TARGET, FILTER_LINKS_AS_TARGET, 0, 1},
        {FILTER_LINKS_SKIP, FILTER_LINKS_AS_TARGET, 0, 1},
        {FILTER_LINKS_AS_TARGET, FILTER_LINKS_SKIP, 1, 0},
        {FILTER_LINKS_AS_TARGET, FILTER_LINKS_AS_FILE, 1, 0},
        {FILTER_LINKS_AS_FILE, FILTER_LINKS_AS_TARGET, 0, 1},
    };
    for (const Case &c : cases) {
        Config config;
        config.base = work.str();
        config.include = {{"*", "*/"}, {"*", "file"}, {"*", "to_file"}, {"*", "dangling"}};
        config.extra = {"Handling of UNIX Links to Files=" + std::to_string(c.files),
                        "Handling of UNIX Links to Directories=" + std::to_string(c.dirs)};
        FilterPtr filter = make_filter(config);
        std::string label = std::to_string(c.files) + "/" + std::to_string(c.dirs);
        int link_file_skip = c.files == FILTER_LINKS_SKIP ? 1 : 0;
        EXPECT_EQ(skipped(filter.get(), work.at("to_file"), kFile), link_file_skip) << label;
        EXPECT_EQ(skipped(filter.get(), work.at("dangling"), kFile), link_file_skip) << label;
        EXPECT_EQ(skipped(filter.get(), work.at("to_dir"), kDir), c.to_dir) << label;
        EXPECT_EQ(dig(filter.get(), work.at("to_dir")), c.dig_to_dir) << label;
        EXPECT_EQ(skipped(filter.get(), work.at("file"), kFile), 0) << label;
        EXPECT_EQ(skipped(filter.get(), work.at("dir"), kDir), 0) << label;
        EXPECT_EQ(dig(filter.get(), work.at("dir")), 1) << label;
    }
}

TEST(FilterSystemRules, PosixNeverAppliesTheWindowsDirectoryRules) {
    Config config;
    config.base = "/";
    config.include = {{"*", "*"}};
    config.extra = {"Ignore Recycle Dir=TRUE", "Ignore Config Dir=TRUE"};
    FilterPtr filter = make_filter(config);
    for (const char *path : {"/recycler", "/recycled", "/System Volume Information", "/etc/config"}) {
        int32_t create = -1;
        ASSERT_EQ(should_create_dir(filter.get(), path, &create), 1);
        EXPECT_EQ(create, 1) << path;
        EXPECT_EQ(skipped(filter.get(), path, kDir), 0) << path;
    }
}

#else

// The rules that follow what the volume of the base directory reports; each
// drive wine offers is tried, so both kinds are covered where they exist.
TEST(FilterSystemRules, WindowsRecycleAndConfigDirectoriesFollowTheVolume) {
    int kinds_seen = 0;
    for (const char *drive : {"C:", "Z:"}) {
        char file_system[MAX_PATH + 1] = "";
        std::string root = std::string(drive) + "\\";
        if (!GetVolumeInformationA(root.c_str(), nullptr, 0, nullptr, nullptr, nullptr, file_system,
                                   sizeof file_system)) {
            continue;
        }
        bool ntfs = _stricmp(file_system, "ntfs") == 0;
        kinds_seen |= ntfs ? 1 : 2;
        Config config;
        config.base = std::string(drive) + "\\data";
        config.include = {{"*", "*"}};
        config.extra = {"Ignore Recycle Dir=TRUE", "Ignore Config Dir=TRUE"};
        FilterPtr filter = make_filter(config);
        char system[MAX_PATH + 1];
        ASSERT_GT(GetSystemDirectoryA(system, sizeof system), 0u);
        struct Case {
            std::string path;
            int create;
        };
        const Case cases[] = {{std::string(drive) + "\\RECYCLER", ntfs ? 0 : 1},
                              {std::string(drive) + "\\recycled\\", ntfs ? 1 : 0},
                              {std::string(drive) + "\\system volume information", ntfs ? 0 : 1},
                              {std::string(system) + "\\CONFIG", 0},
                              {std::string(drive) + "\\data\\x", 1}};
        for (const Case &c : cases) {
            int32_t create = -1;
            ASSERT_EQ(should_create_dir(filter.get(), c.path.c_str(), &create), 1);
            EXPECT_EQ(create, c.create) << c.path << " on " << file_system;
            int32_t skip = -1;
            ASSERT_EQ(exclude_check(filter.get(), c.path.c_str(), kDir, &skip), 1);
            EXPECT_EQ(skip, 1 - c.create) << c.path;
        }
    }
    if (kinds_seen != 3) {
        std::printf("note: only %s volumes were found; the other branch went unexercised\n",
                    kinds_seen == 1 ? "NTFS" : "non-NTFS");
    }
    EXPECT_NE(kinds_seen, 0);
}

#endif

}  // namespace
