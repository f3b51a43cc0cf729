// Debug tracing: which lines pass the mask, the push/pop stack, output streams.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "vq_glob/dbg.h"
#include "vq_glob/err.h"
#include "vq_glob/hex.h"

#ifdef _WIN32
#include <windows.h>
#endif

namespace {

class Tracing : public ::testing::Test {
protected:
    void SetUp() override {
        dbg_set_debug(0);
        dbg_clear_debug_mask();
        dbg_set_debug_output(nullptr);
    }
};

std::string traced(void (*emit)()) {
    ::testing::internal::CaptureStdout();
    emit();
    return ::testing::internal::GetCapturedStdout();
}

TEST_F(Tracing, LinesPassByChannelFlagOrChannelZero) {
    unsigned char mask[8] = {0};
    mask[1] = 0x08;  // channel bit 11
    dbg_set_debug_mask_value(mask);
    EXPECT_EQ(traced([] {
                  new_dbg_str(DBG_CHANNEL_FLOW, "on %d\n", 11);
                  new_dbg_str(0x400, "off\n");
                  new_dbg_str(0, "always\n");
                  dbg_str("flag only\n");
              }),
              "on 11\nalways\n");
    EXPECT_EQ(dbg_check_mask(DBG_CHANNEL_FLOW), 1);
    EXPECT_EQ(dbg_check_mask(0x1000), 0);

    // Channels 32..63 only through the eight-byte form.
    EXPECT_EQ(traced([] { large_dbg_str(dbg_mkone(55), "net\n"); }), "");
    unsigned char high[8] = {0};
    high[6] = 0x80;  // bit 55
    dbg_or_debug_mask(high);
    EXPECT_EQ(traced([] { large_dbg_str(dbg_mkone(55), "net\n"); }), "net\n");
    EXPECT_EQ(dbg_get_debug_mask()[1], 0x08);  // OR kept the earlier bit

    dbg_set_debug(1);  // everything on, the flag lines too
    EXPECT_EQ(traced([] {
                  dbg_str("flag\n");
                  new_dbg_str(DBG_CHANNEL_CLI_DUMP, "any\n");
              }),
              "flag\nany\n");
    EXPECT_EQ(dbg_get_debug_mask()[7], 0xFF);
    dbg_set_debug(0);
    EXPECT_EQ(dbg_get_debug_mask()[1], 0x00);
}

// Checks stay off without looking at the thread's settings until some
// setting turns tracing on. Each way of turning it on runs in a fresh
// process, where nothing has been turned on before, and must take effect at
// once on the thread that made it.
#ifndef _WIN32
TEST(TracingFirstUse, EverySetterTakesEffectInAFreshProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const unsigned char bit_11[8] = {0, 0x08, 0, 0, 0, 0, 0, 0};
    auto exits_zero_when_on = [](bool on) { std::_Exit(on ? 0 : 1); };
    EXPECT_EXIT(
        {
            dbg_set_debug(1);
            exits_zero_when_on(dbg_check_mask(DBG_CHANNEL_FLOW) == 1);
        },
        ::testing::ExitedWithCode(0), "");
    EXPECT_EXIT(
        {
            dbg_set_debug_mask_value(bit_11);
            exits_zero_when_on(dbg_check_mask(DBG_CHANNEL_FLOW) == 1 && dbg_check_mask(DBG_CHANNEL_CLI) == 0);
        },
        ::testing::ExitedWithCode(0), "");
    EXPECT_EXIT(
        {
            dbg_or_debug_mask(bit_11);
            exits_zero_when_on(dbg_check_mask(DBG_CHANNEL_FLOW) == 1);
        },
        ::testing::ExitedWithCode(0), "");
    EXPECT_EXIT(
        {
            dbg_add_debug_mask("ALL");
            exits_zero_when_on(dbg_check_mask(DBG_CHANNEL_CLI) == 1);
        },
        ::testing::ExitedWithCode(0), "");
    EXPECT_EXIT(
        {
            // Off before anything is on, and a line on channel zero still passes.
            exits_zero_when_on(dbg_check_mask(DBG_CHANNEL_FLOW) == 0 && dbg_check_mask(0) == 1);
        },
        ::testing::ExitedWithCode(0), "");
}
#endif

TEST_F(Tracing, PushStackHoldsNineAndOverwritesTheTenth) {
    unsigned char mask[8] = {0};
    for (int i = 1; i <= 11; ++i) {
        mask[0] = static_cast<unsigned char>(i);
        dbg_set_debug_mask_value(mask);
        dbg_push_debug_mask();
    }
    // The first pop restores the ninth push's mask, the ninth pop the first's.
    dbg_pop_debug_mask();
    EXPECT_EQ(dbg_get_debug_mask()[0], 9);
    for (int i = 0; i < 8; ++i) {
        dbg_pop_debug_mask();
    }
    EXPECT_EQ(dbg_get_debug_mask()[0], 1);
    dbg_clear_debug_mask();
    dbg_pop_debug_mask();  // depth 0: nothing changes
    EXPECT_EQ(dbg_get_debug_mask()[0], 0);
}

TEST_F(Tracing, MasksArePerThread) {
    unsigned char mask[8] = {0xFF, 0, 0, 0, 0, 0, 0, 0};
    dbg_set_debug_mask_value(mask);
    int other = -1;
    std::thread([&] { other = dbg_check_mask(DBG_CHANNEL_CLI); }).join();
    EXPECT_EQ(other, 0);
    EXPECT_EQ(dbg_check_mask(DBG_CHANNEL_CLI), 1);
}

TEST_F(Tracing, OutputFileReceivesLinesUnchanged) {
    std::string path = ::testing::TempDir() + "vq_dbg_output_test.txt";
    ASSERT_EQ(dbg_set_debug_output_filename(path.c_str()), 1);
    dbg_inc();
    dbg_inc();
    new_dbg_str(0, "%sindented\n", dbg_get_indent());
    dbg_dec();
    new_dbg_str(0, "%s|\n", dbg_get_indent());
    new_dbg_void(0, "abc", 3);
    dbg_close_debug_output();
    dbg_set_debug_output(nullptr);
    std::ifstream in(path);
    std::stringstream content;
    content << in.rdbuf();
    EXPECT_EQ(content.str(), "    indented\n  |\nabc\n");
    std::remove(path.c_str());
    EXPECT_EQ(dbg_set_debug_output_filename((::testing::TempDir() + "no/such/dir/t.txt").c_str()), 0);
}

bool bit_set(int bit) { return (dbg_get_debug_mask()[bit / 8] >> (bit % 8) & 1) != 0; }

TEST_F(Tracing, ChannelNamesSetAndClearTheirFirstRowsBit) {
    EXPECT_EQ(dbg_get_channel_bit("NETWORK"), 55);  // first row wins over 8 and 11
    EXPECT_EQ(dbg_get_channel_bit("flow"), 11);
    EXPECT_EQ(dbg_get_channel_bit("ERROR"), 14);
    EXPECT_EQ(dbg_get_channel_bit("gms"), 5);
    EXPECT_EQ(dbg_get_channel_bit("EM_API"), -1);  // its bit lies beyond the mask
    EXPECT_EQ(dbg_get_channel_bit("NOSUCH"), -1);

    dbg_set_debug_mask_string("(cli, GF,NETWORK  FILTER)");
    EXPECT_TRUE(bit_set(0) && bit_set(43) && bit_set(55) && bit_set(56));
    EXPECT_STREQ(dbg_get_debug_mask_hex(), "0100000000088001");

    dbg_add_debug_mask("NOGF");
    EXPECT_FALSE(bit_set(43));
    dbg_add_debug_mask("NO");         // too short to be a negation, and no channel
    dbg_add_debug_mask("NOSUCHONE");  // negation of an unknown channel
    dbg_add_debug_mask("EM_API");
    EXPECT_STREQ(dbg_get_debug_mask_hex(), "0100000000008001");

    dbg_add_debug_mask("all");
    EXPECT_STREQ(dbg_get_debug_mask_hex(), "FFFFFFFFFFFFFFFF");
    dbg_set_debug_mask_string("(NOALL,ERROR)");
    EXPECT_STREQ(dbg_get_debug_mask_hex(), "0040000000000000");
    dbg_add_debug_mask("NONE");
    EXPECT_STREQ(dbg_get_debug_mask_hex(), "0000000000000000");
}

// The named constants of dbg.h are the bits their names look up, and the
// 32-bit values pass exactly the line of the channel the name turns on.
TEST_F(Tracing, NamedChannelsMatchTheirTableRows) {
    struct Named {
        const char *name;
        int bit;
        uint32_t value;  // 0 for bits beyond new_dbg_str's 32
    };
#define VQ_LOW(name) \
    { #name, DBG_BIT_##name, DBG_CHANNEL_##name }
#define VQ_HIGH(name) \
    { #name, DBG_BIT_##name, 0 }
    const Named channels[] = {
        VQ_LOW(CLI),         VQ_LOW(CLI_DUMP),
        VQ_LOW(STANDARD),    VQ_LOW(ENV),
        VQ_LOW(GMS),         VQ_LOW(API),
        VQ_LOW(COMPRESSION), VQ_LOW(FLOW),
        VQ_LOW(ERROR),       VQ_HIGH(ERRMSG),
        VQ_HIGH(PROXY),      VQ_HIGH(GF),
        VQ_HIGH(API_DUMP),   VQ_HIGH(TIME),
        VQ_HIGH(SEMAPH),     VQ_HIGH(CLI_CACHE),
        VQ_HIGH(CRYPT),      VQ_HIGH(MISC),
        VQ_HIGH(SLSEC),      VQ_HIGH(SHM),
        VQ_HIGH(CONFIG),     VQ_HIGH(CYCLIC),
        VQ_HIGH(CCONF),      VQ_HIGH(NETWORK),
        VQ_HIGH(FILTER),     VQ_HIGH(VQ_UPD_PASSWD),
        VQ_HIGH(TOLV),
    };
#undef VQ_LOW
#undef VQ_HIGH
    uint32_t seen_values = 0;
    for (const Named &c : channels) {
        EXPECT_EQ(dbg_get_channel_bit(c.name), c.bit) << c.name;
        dbg_clear_debug_mask();
        dbg_add_debug_mask(c.name);
        std::string turned_on = dbg_get_debug_mask_hex();  // the hex texts share one buffer
        std::string only_bit = dbg_convert_debug_to_hex(dbg_mkone(c.bit));
        EXPECT_EQ(turned_on, only_bit) << c.name;
        if (c.value != 0) {
            EXPECT_EQ(dbg_check_mask(static_cast<int32_t>(c.value)), 1) << c.name;
            EXPECT_EQ(dbg_check_mask(static_cast<int32_t>(~c.value)), 0) << c.name;
            EXPECT_EQ(seen_values & c.value, 0u) << c.name << " shares a bit with another channel";
            seen_values |= c.value;
        } else {
            EXPECT_GE(c.bit, 32) << c.name;
        }
    }
}

TEST_F(Tracing, ScratchMasksNameChannelsForWideLines) {
    const unsigned char *one = dbg_mkone(63);
    EXPECT_STREQ(dbg_convert_debug_to_hex(one), "0000000000000080");
    const unsigned char *list = dbg_mklist(0, 9, 70, 41, 0, 5);  // stops at the 0; 70 is beyond the mask
    EXPECT_STREQ(dbg_convert_debug_to_hex(list), "0102000000020000");
    dbg_set_debug_mask_value(list);
    EXPECT_EQ(traced([] { large_dbg_str(dbg_mkone(41), "errmsg\n"); }), "errmsg\n");
    EXPECT_EQ(traced([] { large_dbg_str(dbg_mkone(5), "gms\n"); }), "");
}

TEST_F(Tracing, SettingsComeFromTheEnvironmentThenTheSystemFile) {
    const char *name = "VQ_DBG_SETTINGS_TEST";
#ifdef _WIN32
    _putenv_s(name, "(CONFIG,TIME)");
#else
    setenv(name, "(CONFIG,TIME)", 1);
#endif
    dbg_push_debug_mask();
    dbg_init_debug(name);  // also resets the push depth
    EXPECT_TRUE(bit_set(52) && bit_set(45));
    dbg_pop_debug_mask();  // depth is 0 again: nothing to restore
    EXPECT_TRUE(bit_set(52));

#ifdef _WIN32
    _putenv_s(name, "DEBUG");
#else
    setenv(name, "DEBUG", 1);
#endif
    dbg_init_debug(name);
    EXPECT_EQ(dbg_get_debug_flag(), 1);
#ifdef _WIN32
    _putenv_s(name, "ENABLE");
#else
    setenv(name, "ENABLE", 1);
#endif
    dbg_init_debug(name);
    EXPECT_EQ(dbg_get_debug_flag(), 0);

    // The settings file in the system directory is read after the variable and wins.
#ifdef _WIN32
    char dir[MAX_PATH];
    GetSystemDirectoryA(dir, MAX_PATH);
    std::string path = std::string(dir) + "\\" + name;
#else
    std::string path = std::string("/etc/") + name;
#endif
    std::FILE *file = std::fopen(path.c_str(), "w");
    if (file == nullptr) {
        GTEST_SKIP() << "cannot write " << path << " here";
    }
    std::fputs("(FILTER)\r\nsecond line is ignored\n", file);
    std::fclose(file);
#ifdef _WIN32
    _putenv_s(name, "(CLI)");
#else
    setenv(name, "(CLI)", 1);
#endif
    dbg_clear_debug_mask();
    dbg_init_debug(name);
    std::remove(path.c_str());
    EXPECT_TRUE(bit_set(0) && bit_set(56));
    EXPECT_STREQ(dbg_get_debug_mask_hex(), "0100000000000001");
}

TEST_F(Tracing, TimingSummaryReportsCountsAndShares) {
    double sum = 0;
    int32_t count = 0;
    int32_t start = dbg_time_get_start_time();
    dbg_time_sum_duration_and_appearances_by_start_time(&sum, &count, start - 500);
    dbg_time_sum_duration_and_appearances_by_start_time(&sum, &count, start - 1500);
    EXPECT_EQ(count, 2);
    EXPECT_GE(sum, 2.0);
    std::string out = traced([] { dbg_time_all_summary("copy_file", 2.0, 4, 8.0); });
    EXPECT_EQ(out,
              "\n==================\nSummary for function copy_file:\n\toccured - 4 times\n"
              "\tduration summary - 2.000000 seconds\n\taverage - 0.500000 seconds per function\n"
              "\tpartial time - 2.000000 seconds out of 8.000000 (25%)\n");
}

TEST(Hex, ConvertsBothWaysAndRejectsBadText) {
    const unsigned char bytes[] = {0x00, 0x7F, 0xA5, 0xFF};
    EXPECT_STREQ(convert_to_hex(bytes, 4), "007FA5FF");
    EXPECT_STREQ(convert_to_hex(bytes, 0), "");
    unsigned char out[4] = {1, 2, 3, 4};
    int32_t count = 0;
    ASSERT_EQ(convert_from_hex("007fA5ff", out, 4, &count), 1);
    EXPECT_EQ(count, 4);
    EXPECT_EQ(std::memcmp(out, bytes, 4), 0);
    unsigned char untouched[2] = {9, 9};
    EXPECT_EQ(convert_from_hex("0g", untouched, 2, &count), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_PARAMS);
    EXPECT_EQ(convert_from_hex("abc", untouched, 2, &count), 0);
    EXPECT_EQ(convert_from_hex("aabbcc", untouched, 2, &count), 0);
    EXPECT_EQ(untouched[0], 9);
}

}  // namespace
