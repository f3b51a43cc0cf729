// The vqglob tool as a user meets it: the built program is run with
// arguments and its exit status and output are checked. Help and usage
// texts, missing parameters, whole arguments of any length, and named files
// that are no regular files.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#ifndef _WIN32
#include <sys/stat.h>
#include <sys/wait.h>
#endif

#include "vq_glob/gf.h"

namespace {

#ifdef VQ_GLOB_TOOL_PATH
const char *const kTool = VQ_GLOB_TOOL_PATH;
#else
const char *const kTool = nullptr;
#endif

struct ToolRun {
    int status = -1;
    std::string output;  // standard output and error together

    bool says(const std::string &text) const { return output.find(text) != std::string::npos; }
};

#ifdef _WIN32
// One argument as the C runtime splits a command line: in double quotes,
// with a quote inside written \" and the backslashes before a quote (the
// closing one included) doubled, so that "C:\dir\" stays one argument.
std::string quoted(const std::string &arg) {
    std::string out = "\"";
    size_t backslashes = 0;
    for (char c : arg) {
        if (c == '\\') {
            ++backslashes;
            continue;
        }
        out.append(c == '"' ? 2 * backslashes + 1 : backslashes, '\\');
        backslashes = 0;
        out += c;
    }
    out.append(2 * backslashes, '\\');
    return out + "\"";
}
#else
std::string quoted(const std::string &arg) {
    std::string out = "'";
    for (char c : arg) {
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return out + "'";
}
#endif

ToolRun run_tool(const std::vector<std::string> &args) {
    std::string command = quoted(kTool);
    for (const std::string &a : args) {
        command += " " + quoted(a);
    }
    command += " 2>&1";
#ifdef _WIN32
    // cmd /c takes the first and the last quote of a line that starts with
    // one away: a pair around the whole line keeps the quotes inside it.
    command = "\"" + command + "\"";
    FILE *pipe = _popen(command.c_str(), "r");
#else
    FILE *pipe = popen(command.c_str(), "r");
#endif
    ToolRun run;
    if (pipe == nullptr) {
        ADD_FAILURE() << "cannot run " << command;
        return run;
    }
    char chunk[4096];
    size_t n = 0;
    while ((n = std::fread(chunk, 1, sizeof chunk, pipe)) > 0) {
        run.output.append(chunk, n);
    }
#ifdef _WIN32
    run.status = _pclose(pipe);
#else
    int status = pclose(pipe);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
#endif
    return run;
}

class VqglobTool : public ::testing::Test {
protected:
    void SetUp() override {
        if (kTool == nullptr) {
            std::printf("skipped: VQ_GLOB_TOOL_PATH is not defined for this test program\n");
            GTEST_SKIP() << "VQ_GLOB_TOOL_PATH is not defined";
        }
        if (!std::ifstream(kTool).good()) {
            std::printf("skipped: the vqglob tool %s is not there (not built?)\n", kTool);
            GTEST_SKIP() << kTool << " does not exist";
        }
    }
    void TearDown() override {
        for (const std::string &p : files_) {
            std::remove(p.c_str());
        }
    }

    std::string write_file(const std::string &name, const std::string &text) {
        std::string path = ::testing::TempDir() + "vq_tool_" + name;
        std::ofstream(path, std::ios::binary) << text;
        files_.push_back(path);
        return path;
    }

    std::vector<std::string> files_;
};

TEST_F(VqglobTool, HelpListsEveryCommandUnderTheProgramsName) {
    for (const char *help : {"help", "-help", "-h", "-HELP"}) {
        ToolRun run = run_tool({help});
        EXPECT_EQ(run.status, 0) << help << "\n" << run.output;
        EXPECT_TRUE(run.says("Usage: vqglob crc FILE")) << help << "\n" << run.output;
        EXPECT_TRUE(run.says("Usage: vqglob match PATTERN NAME")) << run.output;
        EXPECT_TRUE(run.says("Usage: vqglob errors")) << run.output;
        EXPECT_FALSE(run.says("Usage: CRC")) << run.output;
    }
    ToolRun bare = run_tool({});
    EXPECT_EQ(bare.status, 1);
    EXPECT_TRUE(bare.says("Usage: vqglob crc FILE")) << bare.output;

    ToolRun one = run_tool({"help", "cr"});
    EXPECT_EQ(one.status, 0);
    EXPECT_TRUE(one.says("Usage: vqglob crc FILE")) << one.output;
    EXPECT_FALSE(one.says("Usage: vqglob match")) << one.output;
}

TEST_F(VqglobTool, CommandHelpNeedsNoneOfTheRequiredItems) {
    ToolRun crc = run_tool({"crc", "-help"});
    EXPECT_EQ(crc.status, 0) << crc.output;
    EXPECT_TRUE(crc.says("Usage: vqglob crc FILE")) << crc.output;
    EXPECT_FALSE(crc.says("missing")) << crc.output;
    ToolRun match = run_tool({"mat", "-h"});
    EXPECT_EQ(match.status, 0) << match.output;
    EXPECT_TRUE(match.says("Usage: vqglob match PATTERN NAME")) << match.output;
}

TEST_F(VqglobTool, AMissingParameterIsNamedAsAParameter) {
    struct Case {
        std::vector<std::string> args;
        const char *message;
        const char *usage;
    };
    const Case cases[] = {
        {{"crc"}, "parameter FILE is missing", "Usage: vqglob crc FILE"},
        {{"match", "a*"}, "parameter NAME is missing", "Usage: vqglob match PATTERN NAME"},
        {{"conf", "get", "x.conf"}, "parameter SECTION is missing", "Usage: vqglob conf ACTION FILE"},
        {{"conf", "set", "x.conf", "s", "f"}, "parameter VALUE is missing", "Usage: vqglob conf ACTION FILE"},
    };
    for (const Case &c : cases) {
        ToolRun run = run_tool(c.args);
        EXPECT_EQ(run.status, 1) << run.output;
        EXPECT_TRUE(run.says(c.message)) << run.output;
        EXPECT_TRUE(run.says(c.usage)) << run.output;
        EXPECT_FALSE(run.says("can not be omitted")) << run.output;
    }
}

TEST_F(VqglobTool, ArgumentsArriveWholeWhateverTheirLength) {
    ToolRun blanks = run_tool({"match", "a \"b\"*", "a \"b\" c"});
    EXPECT_EQ(blanks.status, 0) << blanks.output;
    EXPECT_EQ(blanks.output, "match\n");
#ifndef _WIN32  // a Windows command line holds at most 32,767 characters
    const std::string name = std::string(40000, 'a') + "b";
    ToolRun run = run_tool({"match", "*b", name});
    EXPECT_EQ(run.status, 0) << run.output.substr(0, 200);
    EXPECT_EQ(run.output, "match\n");
#endif
}

TEST_F(VqglobTool, CrcReadsRegularFilesAndRefusesOthers) {
    std::string file = write_file("crc.txt", "the quick brown fox\n");
    int32_t h = -1;
    uint32_t crc = 0;
    ASSERT_EQ(gf_allocate_handle(&h), 1);
    ASSERT_EQ(gf_set_file_name(h, file.c_str()), 1);
    ASSERT_EQ(gf_set_file_open_flags(h, GF_READ), 1);
    ASSERT_EQ(gf_calc_file_crc(h, &crc), 1);
    gf_free_handle(h);
    char expected[16];
    std::snprintf(expected, sizeof expected, "%08X  ", static_cast<unsigned>(crc));
    ToolRun run = run_tool({"crc", file});
    EXPECT_EQ(run.status, 0) << run.output;
    EXPECT_EQ(run.output, expected + file + "\n");

    std::vector<std::string> refused = {::testing::TempDir()};
#ifndef _WIN32
    std::string fifo = ::testing::TempDir() + "vq_tool_fifo";
    std::remove(fifo.c_str());
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    files_.push_back(fifo);
    refused.push_back(fifo);
    refused.push_back("/dev/zero");
#endif
    for (const std::string &name : refused) {
        ToolRun crc_run = run_tool({"crc", name});
        EXPECT_EQ(crc_run.status, 1) << name;
        EXPECT_TRUE(crc_run.says("not a regular file")) << crc_run.output;
        ToolRun list_run = run_tool({"crc", "@" + name});
        EXPECT_EQ(list_run.status, 1) << name;
        EXPECT_TRUE(list_run.says("error opening files list '" + name + "'")) << list_run.output;
        ToolRun conf_run = run_tool({"conf", "dump", name});
        EXPECT_EQ(conf_run.status, 1) << name;
        EXPECT_TRUE(conf_run.says("not a regular file")) << conf_run.output;
    }
}

}  // namespace
