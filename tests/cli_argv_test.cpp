// Parsing a program's argument vector: each argument against the line it is
// documented to stand for, the arguments the line would split or read as
// quoting, and the arguments refused.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "vq_glob/cli.h"
#include "vq_glob/err.h"

namespace {

const cli_item kSendItems[] = {
    {'P', "FILES", CLI_MUST | CLI_LIST, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr},
    {'P', "TARGET", 0, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr},
    {'Q', "TAGS", CLI_LIST, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr},
    {'Q', "MODE", 0, "FAST|SAFE", nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr},
    {'Q', "PAIRS", CLI_MULTI_LIST, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr},
    {'Q', "QUIET", CLI_NO_VALUE, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr},
    {0, nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr}};
const cli_command kCommands[] = {{"SEND", kSendItems, nullptr}, {nullptr, nullptr, nullptr}};

class CliArgv : public ::testing::Test {
protected:
    void SetUp() override {
        cli_clean_up();
        ASSERT_EQ(cli_init(), 1);
        ASSERT_EQ(cli_set_command_table(kCommands), 1);
    }
    void TearDown() override {
        cli_clean_up();
        std::remove(list_.c_str());
    }

    // Parses the arguments after a program name.
    static int parse(std::vector<std::string> args) {
        args.insert(args.begin(), "/usr/local/bin/prog");
        std::vector<const char *> argv;
        for (const std::string &a : args) {
            argv.push_back(a.c_str());
        }
        argv.push_back(nullptr);
        return cli_dcl_parse_argv(static_cast<int>(args.size()), argv.data());
    }

    // Everything a caller can read back of the current result.
    static std::string result() {
        std::string out = cli_get_command() != nullptr ? cli_get_command() : "<none>";
        char *name = nullptr;
        char *v = nullptr;
        char kind = 0;
        cli_init_iterator();
        while (cli_iterator_next(&name, &kind, &v) == 1) {
            out += std::string(" ") + kind + name + "=[" + (v != nullptr ? v : "<null>") + "]";
        }
        return out;
    }

    static std::string value(const char *name, char kind) {
        char *v = nullptr;
        return cli_get_value(name, kind, &v) == 1 ? std::string(v) : std::string("<none>");
    }

    std::string list_ = ::testing::TempDir() + "vq_cli_argv_list.txt";
};

struct Equivalent {
    std::vector<std::string> args;
    std::string line;
};

TEST_F(CliArgv, EachArgumentReadsAsItsDocumentedLine) {
    std::ofstream(list_, std::ios::binary) << "x y\n-quiet\n";
    const std::string at = "@" + list_;
    const Equivalent cases[] = {
        // blanks, tabs and quotes: quoted after "-name=", one item as written
        {{"send", "a b", "-tags=x\ty"}, "send \"a b\" -tags=\"x\ty\""},
        {{"send", "say \"hi\"", "-mode=f"}, "send \"say \\\"hi\\\"\" -mode=f"},
        {{"send", "a b,c", "-tags=(p, q"}, "send \"a b,c\" -tags=\"(p, q\""},
        {{"send", "C:\\Program Files\\x", "C:\\dir\\y"}, "send \"C:\\\\Program Files\\\\x\" C:\\dir\\y"},
        {{"send", "@not a list"}, "send \"@not a list\""},
        // everything else as written: lists, parentheses, braces, files lists
        {{"send", "a,b", "-tags=s,t", "-pairs={a,b},{c}"}, "send a,b -tags=s,t -pairs={a,b},{c}"},
        {{"send", "a", "-tags=(one two, three)"}, "send a -tags=(one two, three)"},
        {{"send", "a,", "b"}, "send a, b"},
        {{"send", at}, "send " + at},
        {{"send", "", "-tags="}, "send \"\" -tags="},
        {{"s", "a", "-q"}, "s a -q"},
    };
    for (const Equivalent &c : cases) {
        ASSERT_EQ(cli_dcl_parse(c.line.c_str()), 1) << c.line << ": " << err_get_error_msg();
        std::string from_line = result();
        ASSERT_EQ(parse(c.args), 1) << c.line << ": " << err_get_error_msg();
        EXPECT_EQ(result(), from_line) << c.line;
    }
}

TEST_F(CliArgv, ArgumentsKeepTheirBlanksQuotesAndBackslashes) {
    ASSERT_EQ(parse({"send", "a \"b\" c", "C:\\Program Files\\", "-tags=(one two, three)"}), 1);
    EXPECT_EQ(value("FILES", 'P'), "a \"b\" c");
    EXPECT_EQ(value("TARGET", 'P'), "C:\\Program Files\\");
    EXPECT_EQ(value("TAGS", 'Q'), "one two,three");
    EXPECT_STREQ(cli_get_command_line(), "send \"a \\\"b\\\" c\" \"C:\\\\Program Files\\\\\" -tags=(one two, three)");
    // a blank makes the whole value one item: its commas and parentheses are text
    ASSERT_EQ(parse({"send", "x", "-tags=(a b) c,d"}), 1);
    EXPECT_EQ(value("TAGS", 'Q'), "(a b) c,d");
    // a files list's words are tokens of their own
    std::ofstream(list_, std::ios::binary) << "x,y -quiet\n";
    ASSERT_EQ(parse({"send", "@" + list_}), 1);
    EXPECT_EQ(value("FILES", 'P'), "x,y");
    EXPECT_EQ(cli_present("QUIET", 'Q'), 1);
}

TEST_F(CliArgv, RefusedArgumentsFailWithTheirCodes) {
    EXPECT_EQ(parse({"send", "a\nb"}), 0);
    EXPECT_EQ(cli_get_err_code(), ERR_CLI_SYNERR);
    EXPECT_STREQ(err_get_error_text(0), "syntax error near 'a\nb'");
    EXPECT_EQ(parse({"send", "a", "-ta gs=x"}), 0);
    EXPECT_EQ(cli_get_err_code(), ERR_CLI_SYNERR);
    EXPECT_EQ(cli_get_command(), nullptr);
    EXPECT_EQ(parse({}), 0);
    EXPECT_EQ(cli_get_err_code(), ERR_CLI_EMPSTR);
    EXPECT_EQ(parse({"send", "-tags=(a,b"}), 0);
    EXPECT_EQ(cli_get_err_code(), ERR_CLI_MISSPART);

    err_clear_error_stack();
    const char *with_null[] = {"prog", nullptr, "x"};
    EXPECT_EQ(cli_dcl_parse_argv(3, with_null), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_PARAMS);
    EXPECT_EQ(cli_dcl_parse_argv(2, nullptr), 0);
    EXPECT_EQ(cli_dcl_parse_argv(-1, with_null), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_PARAMS);
}

TEST_F(CliArgv, TheSwitchCharacterDecidesWhatIsAQualifier) {
    ASSERT_EQ(cli_set_switch_char('/'), 1);
    ASSERT_EQ(parse({"send", "-x y", "/tags=a b"}), 1);
    EXPECT_EQ(value("FILES", 'P'), "-x y");
    EXPECT_EQ(value("TAGS", 'Q'), "a b");
    EXPECT_EQ(parse({"send", "/tmp/my dir"}), 0);  // a qualifier's name holds no blank
    EXPECT_EQ(cli_get_err_code(), ERR_CLI_SYNERR);
}

}  // namespace
