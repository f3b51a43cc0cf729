// The command-line parser: lookup by prefix and ambiguity, switch
// characters, quoting and escapes, "@" files, every check's error, values,
// presence tests, lists and multi-lists, walks, overrides and passwords.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#ifndef _WIN32
#include <sys/stat.h>
#endif

#include "vq_glob/cli.h"
#include "vq_glob/err.h"

namespace {

// A table with every kind of item. COPY and COPYALL share their items, so
// "copy" is ambiguous and "copya" selects COPYALL.
const cli_bit_keyword kEvents[] = {{"START", 0}, {"STOP", 1}, {"ERROR", 9}, {"LAST", 319}, {nullptr, 0}};
const cli_item kCopyItems[] = {
    {'P', "SOURCE", CLI_MUST | CLI_LIST, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, "files"},
    {'P', "TARGET", 0, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, "target"},
    {'Q', "MODE", CLI_VALUE_REQUIRED, "FAST|SAFE|SLOW", nullptr, nullptr, nullptr, nullptr, 0, nullptr, "mode"},
    {'Q', "LOG", CLI_NEGATABLE | CLI_DEFAULT, nullptr, "copy.log", nullptr, nullptr, nullptr, 0, nullptr, "log"},
    {'Q', "PORT", CLI_PORT, nullptr, nullptr, nullptr, "HOST|LOCAL", nullptr, 0, nullptr, "port"},
    {'Q', "HOST", 0, nullptr, nullptr, "LOCAL", nullptr, nullptr, 0, nullptr, "host"},
    {'Q', "LOCAL", CLI_NO_VALUE, nullptr, nullptr, "HOST", nullptr, nullptr, 0, nullptr, "local"},
    {'Q', "TIMEOUT", 0, nullptr, "60", nullptr, nullptr, cli_conv_string_to_seconds, 0, nullptr, "period"},
    {'Q', "NOTIFY", CLI_LIST, nullptr, "ERROR", nullptr, nullptr, nullptr, 0, kEvents, "events"},
    {'Q', "PAIRS", CLI_MULTI_LIST, nullptr, nullptr, nullptr, nullptr, nullptr, 2, nullptr, "pairs"},
    {'Q', "PASSWORD", CLI_HIDDEN | CLI_VALUE_REQUIRED, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr,
     nullptr},
    {'Q', "COUNT", CLI_NUMBER, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, "count"},
    {'Q', "SINCE", CLI_DATE, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, "date"},
    {'Q', "VERBOSE", 0, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, "chatty"},
    {'Q', "VERIFY", CLI_NEGATABLE, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, "verify"},
    {0, nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr}};
const cli_item kListItems[] = {
    {'Q', "FULL", 0, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr},
    {0, nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr}};
const cli_item kDeleteItems[] = {
    {'P', "FILE", CLI_MUST, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr},
    {0, nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr}};
const cli_command kCommands[] = {{"COPY", kCopyItems, "copy files"},
                                 {"COPYALL", kCopyItems, "copy everything"},
                                 {"LIST", kListItems, nullptr},
                                 {"DELETE", kDeleteItems, nullptr},
                                 {nullptr, nullptr, nullptr}};

class Cli : public ::testing::Test {
protected:
    void SetUp() override {
        cli_clean_up();
        ASSERT_EQ(cli_init(), 1);
        ASSERT_EQ(cli_set_command_table(kCommands), 1);
        err_clear_error_stack();
    }
    void TearDown() override {
        cli_clean_up();
        for (const std::string &p : files_) {
            std::remove(p.c_str());
        }
    }

    std::string write_file(const std::string &name, const std::string &text) {
        std::string path = ::testing::TempDir() + "vq_cli_" + name;
        std::ofstream(path, std::ios::binary) << text;
        files_.push_back(path);
        return path;
    }

    static std::string value(const char *name, char kind = 'Q') {
        char *v = nullptr;
        return cli_get_value(name, kind, &v) == 1 ? std::string(v) : std::string("<none>");
    }

    // Parses a line that must fail; the code and text it failed with.
    static std::pair<uint32_t, std::string> failure(const char *line) {
        EXPECT_EQ(cli_dcl_parse(line), 0) << line;
        return {cli_get_err_code(), err_get_error_text(0)};
    }

    std::vector<std::string> files_;
};

// ---- lookup ------------------------------------------------------------------

TEST_F(Cli, CommandsAbbreviateToAUniquePrefixWithoutPreferringExactNames) {
    EXPECT_EQ(failure("COPY a"), std::make_pair(ERR_CLI_AMBCOM, std::string("command COPY is ambiguous")));
    ASSERT_EQ(cli_dcl_parse("copya a"), 1);
    EXPECT_STREQ(cli_get_command(), "COPYALL");
    ASSERT_EQ(cli_dcl_parse("de x"), 1);
    EXPECT_STREQ(cli_get_command(), "DELETE");
    EXPECT_EQ(failure("move a"), std::make_pair(ERR_CLI_CNOTFOUND, std::string("command move is unknown")));
    EXPECT_EQ(err_get_error_code(0), ERR_CLI_CNOTFOUND);
    EXPECT_STREQ(err_get_error_msg(), "CLI-E-CNOTFOUND, command move is unknown");
}

TEST_F(Cli, QualifiersAndKeywordsAbbreviateAndNegate) {
    ASSERT_EQ(cli_dcl_parse("copya a -mo=sa -cou=3 -noverify"), 1);
    EXPECT_EQ(value("MODE"), "SAFE");
    EXPECT_EQ(value("count"), "3");
    EXPECT_EQ(cli_present_all("VERIFY", 'Q'), CLI_NEGATED);
    EXPECT_EQ(failure("copya a -ver"),
              std::make_pair(ERR_CLI_AMBQUAL, std::string("qualifier 'ver' is ambiguous")));
    EXPECT_EQ(failure("copya a -bogus"),
              std::make_pair(ERR_CLI_QNOTFOUND, std::string("qualifier 'bogus' is not valid")));
    EXPECT_EQ(failure("copya a -mode=s"),
              std::make_pair(ERR_CLI_AMBKEYW, std::string("keyword 's' is ambiguous")));
    EXPECT_EQ(failure("copya a -nonotify"),
              std::make_pair(ERR_CLI_QNOTNEG, std::string("qualifier 'NOTIFY' cannot be negated!")));
    // "-no" alone is the prefix of NOTIFY, not a negation
    ASSERT_EQ(cli_dcl_parse("copya a -no=start"), 1);
    EXPECT_EQ(value("NOTIFY"), "start");
}

TEST_F(Cli, SwitchCharacterSplitsNamesOnlyWhenItIsNotADash) {
    EXPECT_EQ(failure("copya a -local-verbose").first, ERR_CLI_QNOTFOUND);  // one name "local-verbose"
    ASSERT_EQ(cli_set_switch_char('/'), 1);
    ASSERT_EQ(cli_dcl_parse("copya a /local/verbose /count=2"), 1);
    EXPECT_EQ(cli_present("LOCAL", 'Q'), 1);
    EXPECT_EQ(cli_present("VERBOSE", 'Q'), 1);
    EXPECT_EQ(value("COUNT"), "2");
    // with "/" the dash starts no qualifier: -x is a parameter
    ASSERT_EQ(cli_dcl_parse("copya -x"), 1);
    EXPECT_EQ(value("SOURCE", 'P'), "-x");
    EXPECT_EQ(cli_get_switch_char(), '/');
}

// ---- quoting, escapes, files -----------------------------------------------------

TEST_F(Cli, QuotesParenthesesAndEscapesFollowTheUnescapeSetting) {
    ASSERT_EQ(cli_dcl_parse(R"(copya "a b" -host=(a\)b) -mode="fa"st -password=x\"y)"), 1);
    EXPECT_EQ(value("SOURCE", 'P'), "a b");
    EXPECT_EQ(value("HOST"), "a)b");
    EXPECT_EQ(value("MODE"), "FAST");
    EXPECT_EQ(value("PASSWORD"), "x\"y");
    ASSERT_EQ(cli_set_unescape(0), 1);
    ASSERT_EQ(cli_dcl_parse(R"(copya a -host=(a\)b) -timeout="1\"0")"), 0);  // the kept escape is no period
    ASSERT_EQ(cli_dcl_parse(R"(copya a -host=(a\)b) -password="p\"q")"), 1);
    EXPECT_EQ(value("HOST"), "a\\)b");
    EXPECT_EQ(value("PASSWORD"), "p\\\"q");
    EXPECT_EQ(failure("copya \"a b").first, ERR_CLI_MISSQ);
    EXPECT_EQ(failure("copya a -host=(a,b").first, ERR_CLI_MISSPART);
    EXPECT_EQ(err_get_error_text(0), std::string("unclosed parentheses"));
}

TEST_F(Cli, LineEndsAtALineFeedAndEmptyLinesFail) {
    ASSERT_EQ(cli_dcl_parse("copya a\n-bogus"), 1);
    EXPECT_STREQ(cli_get_command_line(), "copya a");
    EXPECT_EQ(failure("   "), std::make_pair(ERR_CLI_EMPSTR, std::string("empty string was passed to CLI")));
    EXPECT_EQ(failure("").first, ERR_CLI_EMPSTR);
    EXPECT_EQ(failure(nullptr).first, ERR_CLI_EMPSTR);
}

TEST_F(Cli, AtFilesAreExpandedOnceAndMissingOnesFail) {
    std::string list = write_file("list.txt", "b\r\n-count=3\n-notify=@inner\n");
    ASSERT_EQ(cli_dcl_parse(("copya @" + list + " -mode=fast").c_str()), 1);
    EXPECT_EQ(value("SOURCE", 'P'), "b");
    EXPECT_EQ(value("COUNT"), "3");
    EXPECT_EQ(value("MODE"), "FAST");
    std::string nested = write_file("nested.txt", "@no_such_file_here");
    ASSERT_EQ(cli_dcl_parse(("copya @" + nested).c_str()), 1);  // not expanded again
    EXPECT_EQ(value("SOURCE", 'P'), "@no_such_file_here");
    std::string missing = ::testing::TempDir() + "vq_cli_missing.txt";
    auto [code, text] = failure(("copya @" + missing).c_str());
    EXPECT_EQ(code, ERR_CLI_FILELIST);
    EXPECT_EQ(text, "error opening files list '" + missing + "'");

    char *out = nullptr;
    ASSERT_EQ(cli_subst_shtrudel(("x @" + nested + " \"@not\"").c_str(), &out), 1);
    EXPECT_STREQ(out, "x @no_such_file_here \"@not\"");
    std::free(out);
    EXPECT_EQ(cli_subst_shtrudel(("x @" + missing).c_str(), &out), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_CLI_FILELIST);
}

TEST_F(Cli, ParenthesisedValuesRunOverBlanksToTheClosingParenthesis) {
    ASSERT_EQ(cli_dcl_parse("copya a -host=(b c)"), 1);
    EXPECT_EQ(value("HOST"), "b c");
    ASSERT_EQ(cli_dcl_parse("copya a -notify=(  one two ,  three\\ ,four  ) -count=1"), 1);
    EXPECT_EQ(value("NOTIFY"), "one two,three ,four");  // an escaped blank stays
    EXPECT_EQ(value("COUNT"), "1");
    // the canonical line reads back to the same value
    ASSERT_EQ(cli_dcl_parse("copya a -host=(x  y)"), 1);
    std::string canon = cli_get_canon_command_line();
    ASSERT_EQ(cli_dcl_parse(canon.c_str()), 1) << canon;
    EXPECT_EQ(value("HOST"), "x  y");
    EXPECT_EQ(failure("copya a -host=(b c").first, ERR_CLI_MISSPART);
}

#ifndef _WIN32
TEST_F(Cli, AtFilesThatAreNoRegularFilesFailWithoutReading) {
    std::string fifo = ::testing::TempDir() + "vq_cli_fifo";
    std::remove(fifo.c_str());
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    files_.push_back(fifo);
    for (const std::string &name : {fifo, std::string("/dev/zero"), ::testing::TempDir()}) {
        auto [code, text] = failure(("copya @" + name).c_str());
        EXPECT_EQ(code, ERR_CLI_FILELIST) << name;
        EXPECT_EQ(text, "error opening files list '" + name + "'");
        EXPECT_EQ(std::string(err_get_error_text(1)), name + " is not a regular file");
    }
}
#endif

TEST_F(Cli, AtFilesAreBoundedEachAndTogether) {
    const std::string blanks(CLI_MAX_FILE_LIST, ' ');
    std::string full = write_file("full.txt", blanks.substr(1) + "b");
    ASSERT_EQ(cli_dcl_parse(("copya @" + full).c_str()), 1);
    EXPECT_EQ(value("SOURCE", 'P'), "b");
    std::string over = write_file("over.txt", blanks + "b");
    auto [code, text] = failure(("copya a @" + over).c_str());
    EXPECT_EQ(code, ERR_CLI_FILELIST);
    EXPECT_EQ(text, "error opening files list '" + over + "'");
    EXPECT_EQ(std::string(err_get_error_text(1)),
              over + " is larger than " + std::to_string(CLI_MAX_FILE_LIST) + " bytes");

    std::string many = "copya a";
    std::string empty_list = write_file("blanks.txt", blanks);
    for (int i = 0; i < 17; ++i) {
        many += " @" + empty_list;
    }
    EXPECT_EQ(failure(many.c_str()).first, ERR_CLI_FILELIST);
    EXPECT_EQ(std::string(err_get_error_text(1)), "the files lists of one line are larger than " +
                                                      std::to_string(16 * CLI_MAX_FILE_LIST) + " bytes together");
    ASSERT_EQ(cli_dcl_parse(("copya a @" + empty_list + " @" + empty_list).c_str()), 1);
}

// ---- checks -------------------------------------------------------------------------

struct CheckCase {
    const char *line;
    uint32_t code;
    const char *text;
};

TEST_F(Cli, EveryCheckFailsWithItsCodeAndText) {
    const CheckCase cases[] = {
        {"copya a -mode", ERR_CLI_QMUSTVAL, "qualifier 'MODE' must have a value!"},
        {"copya a -count=1x", ERR_CLI_INVVAL, "value '1x' is not allowed for qualifier 'COUNT'"},
        {"copya a -count=-", ERR_CLI_INVVAL, "value '-' is not allowed for qualifier 'COUNT'"},
        {"copya a -since=yesterdayish", ERR_CLI_INVVAL,
         "value 'yesterdayish' is not allowed for qualifier 'SINCE'"},
        {"copya a -timeout=soon", ERR_CLI_INVVAL, "value 'soon' is not allowed for qualifier 'TIMEOUT'"},
        {"copya -count=1", ERR_CLI_QMUST, "qualifier 'SOURCE' can not be omitted!"},
        {"copya a -host=h -local", ERR_CLI_INVQCOMB,
         "qualifiers 'HOST' and 'LOCAL' can not be specified together"},
        {"copya a -port=80", ERR_CLI_BQMUST,
         "qualifier 'PORT' must be specified with one of the following qualifiers 'HOST, LOCAL'"},
        {"copya a b c", ERR_CLI_TOOMANYP, "too many parameters specified"},
        {"copya a -pairs={a,b,c}", ERR_CLI_INVALMML,
         "Too many items were specified in element no. 1, between the curly brackets. There should be "
         "maximum 2 items in each element."},
        {"copya a -pairs={a,b},{c,d,e}", ERR_CLI_INVALMML,
         "Too many items were specified in element no. 2, between the curly brackets. There should be "
         "maximum 2 items in each element."},
        {"copya a -pairs=a,b", ERR_CLI_INVASMML,
         "invalid lists were specified for this qualifier. There should be 2 items in each element."},
        {"copya a -pairs={}", ERR_CLI_INVASMML,
         "invalid lists were specified for this qualifier. There should be 2 items in each element."},
        {"list x", ERR_CLI_PARAMNOT, "Parameters are not allowed in this command"},
        {"copya a -nomode", ERR_CLI_QNOTNEG, "qualifier 'MODE' cannot be negated!"},
        {"copya a -local=yes", ERR_CLI_SYNERR, "syntax error near '-local=yes'"},
        {"copya a -count=1,", ERR_CLI_SYNERR, "syntax error near ','"},
        {"copya a, -local", ERR_CLI_SYNERR, "syntax error near '-local'"},
        {"copya a -=1", ERR_CLI_SYNERR, "syntax error near '-=1'"},
        {"copya a b,c", ERR_CLI_PARAMNOTLIST, "parameter number 2 can not be a list of values"},
        {"copya a -mode=quick", ERR_CLI_INVALP,
         "value 'quick' is not allowed for qualifier 'MODE'.Allowed values are: FAST, SAFE, SLOW."},
        {"copya a -host=h -port=65536", ERR_CLI_NOVALPO,
         "value '65536' is not allowed port number. Allowed values are: 0 - 65535."},
        {"copya a -host=h -port=-1", ERR_CLI_NOVALPO,
         "value '-1' is not allowed port number. Allowed values are: 0 - 65535."},
        // numbers beyond 32 bits, and ports whose number would not print as typed, name the text
        {"copya a -count=2147483648", ERR_CLI_INVVAL,
         "value '2147483648' is not allowed for qualifier 'COUNT'"},
        {"copya a -count=-2147483649", ERR_CLI_INVVAL,
         "value '-2147483649' is not allowed for qualifier 'COUNT'"},
        {"copya a -count=99999999999999999999999", ERR_CLI_INVVAL,
         "value '99999999999999999999999' is not allowed for qualifier 'COUNT'"},
        {"copya a -host=h -port=4294967296", ERR_CLI_INVVAL,
         "value '4294967296' is not allowed for qualifier 'PORT'"},
        {"copya a -host=h -port=070000", ERR_CLI_INVVAL,
         "value '070000' is not allowed for qualifier 'PORT'"},
    };
    for (const CheckCase &c : cases) {
        auto [code, text] = failure(c.line);
        EXPECT_EQ(code, c.code) << c.line;
        EXPECT_EQ(text, c.text) << c.line;
        EXPECT_EQ(err_get_stack_depth(), 1) << c.line;
        EXPECT_EQ(cli_get_command(), nullptr) << "a failed parse leaves no result: " << c.line;
    }
    // the thread is ready for the next parse, whose code is NOERR again
    ASSERT_EQ(cli_dcl_parse("copya a -host=h -port=65535"), 1);
    EXPECT_EQ(cli_get_err_code(), ERR_CLI_NOERR);
    EXPECT_EQ(value("PORT"), "65535");
    ASSERT_EQ(cli_dcl_parse("copya a -count=2147483647 -count=-2147483648 -count=-0"), 1);
    EXPECT_EQ(value("COUNT"), "2147483647,-2147483648,-0");
}

// ---- values and presence --------------------------------------------------------

TEST_F(Cli, PresenceTestsTellDefaultsValuesAndNegationApart) {
    ASSERT_EQ(cli_dcl_parse("copya a -timeout -verify"), 1);
    // LOG is on by default, TIMEOUT given without value takes its default value
    EXPECT_EQ(cli_present("LOG", 'Q'), 1);
    EXPECT_EQ(cli_present_all("LOG", 'Q'), 1);
    EXPECT_EQ(cli_true_present("LOG", 'Q'), 0);
    EXPECT_EQ(value("LOG"), "copy.log");
    EXPECT_EQ(cli_true_present("TIMEOUT", 'Q'), 1);
    EXPECT_EQ(cli_true_present_no_default("TIMEOUT", 'Q'), 0);
    EXPECT_EQ(value("TIMEOUT"), "60");
    EXPECT_EQ(cli_true_present("VERIFY", 'Q'), 1);
    EXPECT_EQ(cli_true_present_no_default("VERIFY", 'Q'), 0);  // given, but without a value
    EXPECT_EQ(cli_present("MODE", 'Q'), 0);
    EXPECT_EQ(cli_present("SOURCE", 'P'), 1);
    EXPECT_EQ(cli_present("SOURCE", 'Q'), 0);

    ASSERT_EQ(cli_dcl_parse("copya a -nolog -timeout=2m -count=4 -count=5"), 1);
    EXPECT_EQ(cli_present("LOG", 'Q'), 0);
    EXPECT_EQ(cli_present_all("LOG", 'Q'), CLI_NEGATED);
    EXPECT_EQ(value("LOG"), "<none>");
    EXPECT_EQ(cli_true_present_no_default("TIMEOUT", 'Q'), 1);
    EXPECT_EQ(value("TIMEOUT"), "120");  // the hook converted it
    EXPECT_EQ(value("COUNT"), "4,5");    // given twice, the items add up
    // values handed out stay valid together until the result changes
    char *timeout = nullptr;
    char *count = nullptr;
    ASSERT_EQ(cli_get_value("TIMEOUT", 'Q', &timeout), 1);
    for (const char *name : {"COUNT", "SOURCE", "LOG", "NOTIFY", "MODE", "TIMEOUT", "PORT"}) {
        cli_get_value(name, 'Q', &count);
    }
    ASSERT_EQ(cli_get_value("COUNT", 'Q', &count), 1);
    EXPECT_STREQ(timeout, "120");
    EXPECT_STREQ(count, "4,5");
    EXPECT_EQ(timeout, (cli_get_value("TIMEOUT", 'Q', &count), count));
    // the last of -x and -nox decides
    ASSERT_EQ(cli_dcl_parse("copya a -nolog -log=x.log"), 1);
    EXPECT_EQ(value("LOG"), "x.log");
}

TEST_F(Cli, ListsIterateItemByItemIncludingEmptyItems) {
    ASSERT_EQ(cli_dcl_parse("copya a,b,,\"c d\" -notify=(start, stop)"), 1);
    std::string joined = value("SOURCE", 'P');
    EXPECT_EQ(joined, "a,b,,c d");
    ASSERT_EQ(cli_init_qual_iterator(joined.c_str()), 1);
    std::vector<std::string> items;
    char *item = nullptr;
    while (cli_qual_iterator_next(&item) == 1) {
        items.emplace_back(item);
    }
    EXPECT_EQ(items, (std::vector<std::string>{"a", "b", "", "c d"}));
    EXPECT_EQ(value("NOTIFY"), "start,stop");

    ASSERT_EQ(cli_init_qual_iterator(""), 1);
    EXPECT_EQ(cli_qual_iterator_next(&item), 0);
    ASSERT_EQ(cli_init_qual_iterator("\"x;y\";z"), 1);
    ASSERT_EQ(cli_set_separator_char(';'), 1);
    ASSERT_EQ(cli_qual_iterator_next(&item), 1);
    EXPECT_STREQ(item, "x");  // split at every separator first, then cleaned
    ASSERT_EQ(cli_dcl_parse("copya a,b"), 1);
    EXPECT_EQ(value("SOURCE", 'P'), "a;b");
}

TEST_F(Cli, MultiListsWalkElementByElement) {
    ASSERT_EQ(cli_dcl_parse("copya a -pairs=({a,b}, {c}) -noverify"), 1);
    std::string text = value("PAIRS");
    EXPECT_EQ(text, "{a,b},{c}");
    ASSERT_EQ(cli_init_qual_multi_list_iterator(text.c_str(), 2), 1);
    std::vector<std::string> elements;
    char *element = nullptr;
    while (cli_qual_multi_list_iterator_next(&element) == 1) {
        elements.emplace_back(element);
    }
    EXPECT_EQ(elements, (std::vector<std::string>{"a,b", "c"}));
    ASSERT_EQ(cli_dcl_parse("copya a -pairs={x,y},{z,w}"), 1);
    EXPECT_EQ(value("PAIRS"), "{x,y},{z,w}");
    EXPECT_EQ(cli_init_qual_multi_list_iterator("{a},b", 2), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_CLI_INVASMML);
    EXPECT_EQ(cli_init_qual_multi_list_iterator("{a,b,c}", 0), 1);  // no limit
}

TEST_F(Cli, WalksVisitItemsInOrderWithPushPopAndGotoParam) {
    ASSERT_EQ(cli_dcl_parse("copya a -count=1 b -nolog"), 1);
    ASSERT_EQ(cli_init_iterator(), 1);
    std::vector<std::string> seen;
    char *name = nullptr;
    char *val = nullptr;
    char kind = 0;
    ASSERT_EQ(cli_iterator_next(&name, &kind, &val), 1);
    EXPECT_EQ(std::string(name) + kind + val, "SOURCEPa");
    ASSERT_EQ(cli_push_iterator(), 1);
    while (cli_iterator_next(&name, &kind, &val) == 1) {
        seen.push_back(std::string(name) + kind + (val != nullptr ? val : "-"));
    }
    EXPECT_EQ(seen, (std::vector<std::string>{"COUNTQ1", "TARGETPb", "LOGQ-"}));
    ASSERT_EQ(cli_pop_iterator(), 1);
    ASSERT_EQ(cli_iterator_next(&name, &kind, &val), 1);
    EXPECT_STREQ(name, "COUNT");
    EXPECT_EQ(cli_pop_iterator(), 0);
    ASSERT_EQ(cli_goto_param("target"), 1);
    ASSERT_EQ(cli_iterator_next(&name, &kind, &val), 1);
    EXPECT_STREQ(name, "TARGET");
    EXPECT_EQ(cli_goto_param("NOPE"), 0);
    // asking for a parameter's value starts the walk again
    value("SOURCE", 'P');
    ASSERT_EQ(cli_iterator_next(&name, &kind, &val), 1);
    EXPECT_STREQ(name, "SOURCE");
}

TEST_F(Cli, StandardModeKeepsTheTokensAsWritten) {
    ASSERT_EQ(cli_set_parse_mode(CLI_MODE_STANDARD), 1);
    ASSERT_EQ(cli_set_command_table(nullptr), 1);
    ASSERT_EQ(cli_dcl_parse("run x,y -Quick=1,2 -flag"), 1);
    EXPECT_EQ(value("P2", 'P'), "x,y");
    EXPECT_EQ(value("QUICK"), "1,2");
    ASSERT_EQ(cli_std_init_iterator(), 1);
    char *text = nullptr;
    char *v = nullptr;
    char kind = 0;
    ASSERT_EQ(cli_std_iterate(&text, &kind), 1);
    EXPECT_EQ(std::string(text) + kind, "runP");
    ASSERT_EQ(cli_std_iterate(&text, &kind), 1);
    ASSERT_EQ(cli_std_token_get_next_value(&v), 1);
    EXPECT_STREQ(v, "y");
    EXPECT_EQ(cli_std_token_get_next_value(&v), 0);
    EXPECT_EQ(cli_std_get_qual_name(&text), 0);
    ASSERT_EQ(cli_std_iterate(&text, &kind), 1);
    EXPECT_EQ(std::string(text) + kind, "QuickQ");
    std::string values;
    while (cli_std_token_get_next_value(&v) == 1) {
        values += v;
    }
    EXPECT_EQ(values, "12");
    ASSERT_EQ(cli_std_iterate_pos(3, &text, &kind), 1);
    ASSERT_EQ(cli_std_get_qual_name(&text), 1);
    EXPECT_STREQ(text, "flag");
    EXPECT_EQ(cli_std_iterate(&text, &kind), 0);
    EXPECT_EQ(cli_set_parse_mode(7), 0);
}

TEST_F(Cli, NoCommandModeUsesTheFirstCommand) {
    ASSERT_EQ(cli_set_parse_mode(CLI_MODE_NO_COMMAND), 1);
    ASSERT_EQ(cli_dcl_parse("a b -count=2"), 1);
    EXPECT_STREQ(cli_get_command(), "COPY");
    EXPECT_EQ(value("TARGET", 'P'), "b");
}

// ---- overrides, passwords, usage -------------------------------------------------

TEST_F(Cli, OverridesReplaceOrOnlyFillIn) {
    const cli_override ov[] = {{"COUNT", "5"}, {"nolog", nullptr}, {"mode", "safe"}};
    ASSERT_EQ(cli_dcl_parse_overriden("copya a -count=1", ov, 3), 1);
    EXPECT_EQ(value("COUNT"), "5");
    EXPECT_EQ(cli_present_all("LOG", 'Q'), CLI_NEGATED);
    EXPECT_EQ(value("MODE"), "SAFE");  // overrides pass the same checks
    ASSERT_EQ(cli_dcl_parse_overridden_new("copya a -count=1", ov, 3), 1);
    EXPECT_EQ(value("COUNT"), "1");
    EXPECT_EQ(value("MODE"), "SAFE");
    const cli_override bad[] = {{"COUNT", "x"}};
    EXPECT_EQ(cli_dcl_parse_intern("copya a", bad, 1, 1), 0);
    EXPECT_EQ(cli_get_err_code(), ERR_CLI_INVVAL);

    int refused = -1;
    std::thread([&refused, &ov]() { refused = cli_dcl_parse_overridden_new("copya a", ov, 3); }).join();
    EXPECT_EQ(refused, 0) << "a thread without cli_init is refused";
}

TEST_F(Cli, PasswordsAreMaskedOnTheKeptLineOnly) {
    ASSERT_EQ(cli_dcl_parse("copya a -pass=\"se cret\" -count=1 -passw=x,y"), 1);
    EXPECT_EQ(cli_subst_password("PASSWORD"), 1);
    EXPECT_STREQ(cli_get_command_line(), "copya a -pass=******** -count=1 -passw=********");
    EXPECT_EQ(cli_get_command_line_len(), static_cast<int32_t>(std::strlen(cli_get_command_line())));
    EXPECT_EQ(value("PASSWORD"), "se cret,x,y");
    EXPECT_EQ(cli_subst_password("MODE"), 0);
}

TEST_F(Cli, UsageLeavesHiddenQualifiersOut) {
    std::string usage = cli_get_command_usage("copya");
    EXPECT_NE(usage.find("Usage: COPYALL SOURCE[,...] [TARGET] [qualifiers]"), std::string::npos) << usage;
    EXPECT_NE(usage.find("-MODE=value"), std::string::npos);
    EXPECT_NE(usage.find("values: FAST, SAFE, SLOW"), std::string::npos);
    EXPECT_NE(usage.find("-[NO]LOG[=value]"), std::string::npos);
    EXPECT_EQ(usage.find("PASSWORD"), std::string::npos);
    ASSERT_NE(usage.find("VERBOSE"), std::string::npos);
    ASSERT_EQ(cli_hide("verbose"), 1);
    usage = cli_get_command_usage("copya");
    EXPECT_EQ(usage.find("VERBOSE"), std::string::npos);
    EXPECT_EQ(cli_hide("NOSUCH"), 0);
    EXPECT_EQ(cli_get_command_usage("copy"), nullptr);  // ambiguous
    EXPECT_NE(std::string(cli_get_command_usage(nullptr)).find("Usage: DELETE FILE"), std::string::npos);
}

// ---- threads -----------------------------------------------------------------------

TEST(CliThreads, TwoThreadsParseIndependently) {
    auto worker = [](char sw, const char *line, const char *expected, int *failures) {
        cli_init();
        cli_set_command_table(kCommands);
        cli_set_switch_char(sw);
        for (int i = 0; i < 300; ++i) {
            char *v = nullptr;
            if (cli_dcl_parse(line) != 1 || cli_get_value("COUNT", 'Q', &v) != 1 ||
                std::strcmp(v, expected) != 0 || cli_dcl_parse("copya") != 0 ||
                cli_get_err_code() != ERR_CLI_QMUST) {
                ++*failures;
            }
        }
        cli_clean_up();
    };
    int failures_a = 0;
    int failures_b = 0;
    std::thread a(worker, '/', "copya x /count=1 /mode=fast", "1", &failures_a);
    std::thread b(worker, '-', "copya y -count=2 -nolog", "2", &failures_b);
    a.join();
    b.join();
    EXPECT_EQ(failures_a, 0);
    EXPECT_EQ(failures_b, 0);
}

}  // namespace
