// The error stack: formatting, the nine-entry rule, per-thread state, stack
// transfer between threads, logging.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "vq_glob/err.h"
#include "vq_glob/gf.h"
#include "vq_glob/gf_path.h"

namespace {

class ErrorStack : public ::testing::Test {
protected:
    void SetUp() override {
        err_clear_error_stack();
        err_set_log_interactive(0);
        err_set_log_syslog(0);
    }
};

// Text mode: log files are text files, with CRLF line ends on Windows.
std::string read_file(const std::string &path) {
    std::ifstream in(path);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

TEST_F(ErrorStack, CodedEntriesFormatAsFacilitySeverityIdentText) {
    err_set_error(ERR_GEN_MEMORY, "conf_read", "vq_config", 120);
    EXPECT_STREQ(err_get_error_msg(), "GEN-F-MEMORY, out of memory (conf_read at vq_config-120)");
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_MEMORY);
    EXPECT_EQ(err_get_error_severity(0), 4u);
    EXPECT_EQ(err_get_error_facility(0), ERR_FAC_GEN);
    EXPECT_STREQ(err_get_error_text(0), "out of memory (conf_read at vq_config-120)");

    // Rows of other facilities, found through the guessed index or the scan.
    const struct {
        uint32_t code;
        const char *line;
    } rows[] = {
        {0x1101, "CLI-E-NOERR, no error !!!!"},
        {0x100c, "GEN-F-CORRUPT, memory corrupted (at x)"},
        {0x1012, "GEN-E-HASHDUP, Failed to insert duplicate key into hash table <x>"},
        {0x1e01, "NET-E-BADPTR, invalid argument"},
        {0x2001, "FS-E-SRCMIS, source file does not exist <x>"},
        {0x3141, "TV-E-SUBM, Tolvenar submission failed"},
        {0x8201, "CNF-F-NOTFOUND, Failed to retrieve convertion table entry. The entry <x> does not exist"},
    };
    for (const auto &row : rows) {
        err_set_error(row.code, "x");
        EXPECT_STREQ(err_get_error_msg(), row.line) << std::hex << row.code;
        EXPECT_EQ(err_get_error_code(0), row.code);
    }
}

TEST_F(ErrorStack, UnknownCodesPrintAsTheCatchAll) {
    for (uint32_t code : {0x0u, 0x1000u, 0x10ffu, 0x1f7fu, 0xfffffff0u}) {
        err_set_error(code, "ignored");
        EXPECT_STREQ(err_get_error_msg(), "UNKNWN-E-UNKNWN, Unknown error") << std::hex << code;
        EXPECT_EQ(err_get_error_code(0), 0xffffu);
        EXPECT_EQ(err_get_error_severity(0), 3u);
        EXPECT_EQ(err_get_error_facility(0), 0x300u);
    }
}

// The table read by position agrees with what the stack prints for each
// code, and the walk ends before the catch-all.
TEST_F(ErrorStack, TableWalkAgreesWithTheStack) {
    uint32_t code = 0, severity = 9;
    const char *facility = nullptr, *ident = nullptr, *text = nullptr;
    int32_t count = 0;
    const char *letters = "SIWEF";
    for (; err_get_table_message(count, &code, &severity, &facility, &ident, &text) == 1; ++count) {
        ASSERT_LT(severity, 5u);
        if (std::strchr(text, '%') != nullptr) {
            continue;  // a template whose arguments the stack would need
        }
        err_set_error(code);
        std::string expected = std::string(facility) + "-" + letters[severity] + "-" + ident + ", " + text;
        ASSERT_EQ(std::string(err_get_error_msg()), expected) << std::hex << code;
    }
    EXPECT_EQ(count, 1341);
    EXPECT_EQ(err_get_table_message(count, &code, nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(err_get_table_message(-1, nullptr, nullptr, nullptr, nullptr, nullptr), 0);
    bool found = false;
    for (int32_t i = 0; err_get_table_message(i, &code, nullptr, &facility, nullptr, &text) == 1; ++i) {
        if (code == 0x8205u) {
            found = true;
            EXPECT_STREQ(facility, "CNF");
            EXPECT_STREQ(text, "encryption failed on <%s>");
        }
    }
    EXPECT_TRUE(found);
}

TEST_F(ErrorStack, DescriptionListsNewestFirst) {
    err_add_error(ERR_GEN_PARAMS, "f", "a");
    err_add_text_error("plain words");
    err_add_error(ERR_GEN_GENERAL, "top");
    EXPECT_STREQ(err_get_error_msg(),
                 "GEN-E-GENERAL, top\n -plain words\n -GEN-E-PARAMS, invalid function parameter (<f>/<a>)");
    EXPECT_EQ(err_get_stack_depth(), 3);

    err_set_error(ERR_GEN_GENERAL, "only");
    EXPECT_EQ(err_get_stack_depth(), 1);
    EXPECT_STREQ(err_get_error_msg(), "GEN-E-GENERAL, only");

    err_clear_error_stack();
    EXPECT_EQ(err_get_stack_depth(), 0);
    EXPECT_STREQ(err_get_error_msg(), "");
    EXPECT_EQ(err_get_error_code(0), 0u);
    EXPECT_STREQ(err_get_error_text(0), "");
    EXPECT_EQ(err_get_max_error_severity(), 0);
}

TEST_F(ErrorStack, KeepsOnlyTheNineNewestEntries) {
    for (int i = 1; i <= 10; ++i) {
        err_add_error(ERR_GEN_GENERAL, std::to_string(i).c_str());
    }
    EXPECT_EQ(err_get_stack_depth(), 9);
    EXPECT_STREQ(err_get_error_text(0), "10");
    EXPECT_STREQ(err_get_error_text(8), "2");
    EXPECT_STREQ(err_get_error_text(99), "2");  // past the oldest: the oldest
    EXPECT_STREQ(err_get_error_text(-5), "10");
    EXPECT_EQ(std::string(err_get_error_msg()).find("GENERAL, 1\n"), std::string::npos);

    // Raw entries come out oldest first however often the stack wrapped.
    for (int i = 11; i <= 14; ++i) {
        err_add_error(ERR_GEN_GENERAL, std::to_string(i).c_str());
    }
    void *raw = nullptr;
    int32_t size = 0, depth = 0;
    ASSERT_EQ(err_get_stack_desc(&raw, &size, &depth), 1);
    ASSERT_EQ(depth, 9);
    const auto *entries = static_cast<const err_entry *>(raw);
    for (int i = 0; i < 9; ++i) {
        EXPECT_STREQ(entries[i].text, std::to_string(6 + i).c_str());
    }
    err_add_error(ERR_GEN_GENERAL, "15");
    EXPECT_STREQ(err_get_error_text(8), "7");
}

TEST_F(ErrorStack, IndexPastOldestGivesOldest) {
    err_add_error(ERR_GEN_MEMORY, "a", "b", 1);
    err_add_text_error("middle");
    err_add_error(ERR_GEN_GENERAL, "new");
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_GENERAL);
    EXPECT_EQ(err_get_error_code(99), ERR_GEN_MEMORY);
    EXPECT_EQ(err_get_max_error_severity(), 4);
}

TEST_F(ErrorStack, OverlongTextsAreCutWithDots) {
    std::string huge(70000, 'x');
    err_set_error(ERR_GEN_GENERAL, huge.c_str());
    std::string text = err_get_error_text(0);
    ASSERT_EQ(text.size(), 5119u);
    EXPECT_EQ(text.substr(5116), "...");
    // 5,119 characters and the terminator fill the entry exactly and stay whole.
    err_set_error(ERR_GEN_GENERAL, std::string(5120, 'y').c_str());
    EXPECT_EQ(std::string(err_get_error_text(0)), std::string(5116, 'y') + "...");
    err_set_error(ERR_GEN_GENERAL, std::string(5119, 'z').c_str());
    EXPECT_EQ(std::string(err_get_error_text(0)), std::string(5119, 'z'));
    // Nine maximal entries still make one bounded description.
    for (int i = 0; i < 9; ++i) {
        err_add_text_error(huge.c_str());
    }
    EXPECT_LT(std::strlen(err_get_error_msg()), 5376u);
}

TEST_F(ErrorStack, SystemTextsWithPlatformTagsLeadTheLine) {
    err_set_error(ERR_SYS_ERRMSG, "W_CreateFile: access denied");
    EXPECT_STREQ(err_get_error_msg(), "W_CreateFile:SYS-E-ERRMSG, access denied");
    err_set_error(ERR_SYS_ERRMSG, "LNX_open failed");
    EXPECT_STREQ(err_get_error_msg(), "LNX_openSYS-E-ERRMSG, failed");
    err_set_error(ERR_SYS_ERRMSG, "disk full");
    EXPECT_STREQ(err_get_error_msg(), "SYS-E-ERRMSG, disk full");
    err_set_error(ERR_SYS_ERRMSG, "UNIX_ is not a tag");
    EXPECT_STREQ(err_get_error_msg(), "SYS-E-ERRMSG, UNIX_ is not a tag");
}

TEST_F(ErrorStack, SystemErrorsCarryTheSystemText) {
    err_set_system_error(2);  // no such file on both platforms
    EXPECT_EQ(err_get_error_code(0), ERR_SYS_ERRMSG);
    std::string line = err_get_error_msg();
    EXPECT_EQ(line.rfind("SYS-E-ERRMSG, ", 0), 0u) << line;
    EXPECT_GT(line.size(), 16u);
    EXPECT_EQ(line.find('\n'), std::string::npos);
    EXPECT_EQ(is_file_not_found_error(2), 1);
#ifdef _WIN32
    EXPECT_EQ(is_access_error(5), 1);
#else
    EXPECT_EQ(is_access_error(13), 1);
#endif
    EXPECT_EQ(is_access_error(2), 0);
    EXPECT_EQ(is_error_type_error(0), 0);
    EXPECT_EQ(is_error_type_error(2), 1);
    EXPECT_STREQ(get_system_error_message(2), err_get_error_text(0));
}

TEST_F(ErrorStack, TextBeforeStackPrintsAfterTheOldDescription) {
    err_set_error(ERR_GEN_GENERAL, "old");
    err_add_text_error_before_stack("context");
    EXPECT_EQ(err_get_stack_depth(), 2);
    EXPECT_STREQ(err_get_error_msg(), "GEN-E-GENERAL, old\n -context");
}

TEST_F(ErrorStack, FacilityRenamesArePerThreadAndBounded) {
    err_change_facility(ERR_FAC_GEN, "REPL");
    err_set_error(ERR_GEN_GENERAL, "x");
    EXPECT_STREQ(err_get_error_msg(), "REPL-E-GENERAL, x");
    std::string other;
    std::thread([&] {
        err_set_log_interactive(0);
        err_set_error(ERR_GEN_GENERAL, "x");
        other = err_get_error_msg();
    }).join();
    EXPECT_EQ(other, "GEN-E-GENERAL, x");

    // After a hundred renames further ones are ignored.
    for (int i = 0; i < 100; ++i) {
        err_change_facility(ERR_FAC_NET, "NETX");
    }
    err_change_facility(ERR_FAC_REG, "IGNORED");
    err_set_error(ERR_REG_OPEN, "f");
    EXPECT_STREQ(err_get_error_msg(), "REG-E-OPEN, error opening registry file <f>");
    err_change_facility(ERR_FAC_GEN, nullptr);
    // A long name prints whole.
    std::string long_name(120, 'L');
    err_shutdown();
    err_change_facility(ERR_FAC_GEN, long_name.c_str());
    err_set_error(ERR_GEN_GENERAL, "x");
    EXPECT_EQ(err_get_error_msg(), long_name + "-E-GENERAL, x");
    err_shutdown();  // renames go with the stack
    err_set_error(ERR_GEN_GENERAL, "x");
    EXPECT_STREQ(err_get_error_msg(), "GEN-E-GENERAL, x");
    err_set_log_interactive(0);
}

TEST_F(ErrorStack, StacksAreIndependentPerThread) {
    auto worker = [](uint32_t code, int pushes, std::string *out) {
        err_set_log_interactive(0);
        for (int i = 0; i < pushes; ++i) {
            err_add_error(code, "w");
        }
        *out = std::to_string(err_get_stack_depth()) + ":" + std::to_string(err_get_error_code(0));
    };
    err_set_error(ERR_GEN_PARAMS, "main", "x");
    std::string a, b;
    std::thread ta(worker, ERR_GEN_GENERAL, 3, &a);
    std::thread tb(worker, ERR_NET_BADPTR, 5, &b);
    ta.join();
    tb.join();
    EXPECT_EQ(a, "3:" + std::to_string(ERR_GEN_GENERAL));
    EXPECT_EQ(b, "5:" + std::to_string(ERR_NET_BADPTR));
    EXPECT_EQ(err_get_stack_depth(), 1);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_PARAMS);
}

TEST_F(ErrorStack, StackTravelsBetweenThreadsAsRawEntries) {
    std::string packed;
    std::string description;
    std::thread([&] {
        err_set_log_interactive(0);
        err_change_facility(ERR_FAC_GEN, "SENDER");  // names are printed, not carried
        err_set_error(ERR_GEN_MEMORY, "f", "m", 1);
        err_add_text_error("free text");
        err_add_error(ERR_REG_OPEN, "reg.dat");
        void *entries = nullptr;
        int32_t size = 0, depth = 0;
        ASSERT_EQ(err_get_stack_desc(&entries, &size, &depth), 1);
        ASSERT_EQ(depth, 3);
        ASSERT_EQ(size, 3 * static_cast<int32_t>(sizeof(err_entry)));
        packed.assign(static_cast<const char *>(entries), static_cast<size_t>(size));
    }).join();

    ASSERT_EQ(err_set_stack_desc(packed.data(), static_cast<int32_t>(packed.size()), 3), 1);
    EXPECT_EQ(err_get_stack_depth(), 3);
    EXPECT_STREQ(err_get_error_msg(),
                 "REG-E-OPEN, error opening registry file <reg.dat>\n -free text\n -GEN-F-MEMORY, out of memory (f at m-1)");

    // A single entry added raw lands on top of what is there.
    err_entry entry;
    std::memcpy(&entry, packed.data(), sizeof entry);
    ASSERT_EQ(err_add_raw_error(&entry), 1);
    EXPECT_EQ(err_get_stack_depth(), 4);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_MEMORY);
}

TEST_F(ErrorStack, HostileRawEntriesStayBounded) {
    err_entry bad[12];
    std::memset(bad, 'A', sizeof bad);  // no terminators anywhere
    for (auto &e : bad) {
        e.code = 0xFFFFFFFFu;
    }
    // depth larger than the bytes given: only whole entries count
    ASSERT_EQ(err_set_stack_desc(bad, static_cast<int32_t>(2 * sizeof(err_entry) + 7), 12), 1);
    EXPECT_EQ(err_get_stack_depth(), 2);
    EXPECT_EQ(std::strlen(err_get_error_text(0)), 5119u);
    ASSERT_EQ(err_set_stack_desc(bad, static_cast<int32_t>(sizeof bad), 12), 1);
    EXPECT_EQ(err_get_stack_depth(), 9);
    EXPECT_EQ(err_add_raw_error(&bad[0]), 1);
    EXPECT_EQ(std::strlen(err_get_error_text(0)), 5119u);

    EXPECT_EQ(err_set_stack_desc(nullptr, 100, 2), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_PARAMS);
    EXPECT_EQ(err_set_stack_desc(bad, -1, 1), 0);
    EXPECT_EQ(err_add_raw_error(nullptr), 0);
    EXPECT_EQ(err_set_stack_desc(bad, 0, 0), 1);
    EXPECT_EQ(err_get_stack_depth(), 0);
}

TEST_F(ErrorStack, SavedErrorKeepsTheDescription) {
    err_set_error(ERR_GEN_GENERAL, "saved");
    err_save_error();
    err_set_error(ERR_GEN_GENERAL, "later");
    EXPECT_STREQ(err_get_saved_error(), "GEN-E-GENERAL, saved");
}

TEST_F(ErrorStack, PrintingAppendsToTheLogFile) {
    std::string path = ::testing::TempDir() + "vq_err_log_test.log";
    std::remove(path.c_str());
    err_set_log_file(path.c_str());
    err_set_error(ERR_GEN_GENERAL, "first");
    err_print_error_msg();
    err_set_error(ERR_GEN_GENERAL, "second");
    err_print_error_msg();
    err_set_log_file(nullptr);
    err_print_error_msg();  // file logging off: nothing more is written
    std::string hyphens(79, '-');
    EXPECT_EQ(read_file(path),
              hyphens + "\n\nGEN-E-GENERAL, first\n\n" + hyphens + "\n\nGEN-E-GENERAL, second\n\n");
    std::remove(path.c_str());

    // An unwritable log file is skipped silently.
    err_set_log_file((::testing::TempDir() + "no/such/dir/x.log").c_str());
    EXPECT_EQ(err_print_error_msg(), 1);
    err_set_log_file(nullptr);
}

TEST_F(ErrorStack, LogLinesGoWhereDescriptionsGoAndLeaveTheStackAlone) {
    std::string path = ::testing::TempDir() + "vq_err_line_test.log";
    std::remove(path.c_str());
    err_set_log_file(path.c_str());
    err_set_error(ERR_GEN_GENERAL, "kept");
    err_set_log_interactive(1);
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(err_log_line(1, "deployment 7 committed"), 1);
    EXPECT_EQ(err_log_line(3, "client refused"), 1);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "client refused\n");
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "deployment 7 committed\n");
    err_set_log_interactive(0);
    EXPECT_EQ(err_get_stack_depth(), 1);
    EXPECT_STREQ(err_get_error_msg(), "GEN-E-GENERAL, kept");
    err_print_error_msg();
    err_set_log_file(nullptr);
    EXPECT_EQ(read_file(path), "deployment 7 committed\nclient refused\n" + std::string(79, '-') +
                                   "\n\nGEN-E-GENERAL, kept\n\n");
    std::remove(path.c_str());

    EXPECT_EQ(err_log_line(5, "x"), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_PARAMS);
    EXPECT_EQ(err_log_line(0, nullptr), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_PARAMS);
}

// Reads a file through the library's own file layer, which takes names of
// any length on every platform.
std::string read_long_named(const std::string &path) {
    int32_t h = -1;
    std::string text;
    if (gf_allocate_handle(&h) != 1) {
        return text;
    }
    gf_set_file_name(h, path.c_str());
    gf_set_file_open_flags(h, GF_READ);
    if (gf_open_file(h) == 1) {
        char buffer[4096];
        int32_t n = 0;
        while (gf_read_file(h, buffer, sizeof buffer, &n) == 1 && n > 0) {
            text.append(buffer, static_cast<size_t>(n));
        }
        gf_close_file(h);
    }
    gf_free_handle(h);
    return text;
}

// A log name is used whole, however long: a name cut short would send the
// log to another file.
TEST_F(ErrorStack, LongLogFileNameIsUsedWhole) {
    std::string top = ::testing::TempDir() + "vq_err_long";
    std::string dir = top;
    for (int i = 0; i < 5; ++i) {
        dir += VQ_PATH_SEPARATOR_TEXT + std::string(200, 'd');
    }
    ASSERT_EQ(gf_make_path(dir.c_str()), 1) << err_get_error_msg();
    std::string path = dir + VQ_PATH_SEPARATOR_TEXT + "x.log";
    ASSERT_GT(path.size(), 1024u);
    ASSERT_EQ(err_set_log_file(path.c_str()), 1);
    err_set_error(ERR_GEN_GENERAL, "long");
    err_print_error_msg();
    err_set_log_file(nullptr);
    std::string logged = read_long_named(path);
    EXPECT_NE(logged.find("GEN-E-GENERAL, long"), std::string::npos) << logged;
    std::error_code ec;
    std::filesystem::remove_all(top, ec);
}

TEST_F(ErrorStack, ConsolePrintingChoosesTheStreamBySeverity) {
    err_set_log_interactive(1);
    err_set_error(ERR_GEN_GENERAL, "to stderr");
    ::testing::internal::CaptureStderr();
    err_print_error_msg();
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "GEN-E-GENERAL, to stderr\n");
    err_set_error(ERR_GEN_MORINFO, "docs");  // MORINFO: information
    ::testing::internal::CaptureStdout();
    err_print_error_msg();
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), std::string(err_get_error_msg()) + "\n");
    err_set_log_interactive(0);
}

}  // namespace
