// Debug tracing: which lines pass the mask, the push/pop stack, output streams.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "vq_glob/dbg.h"

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
                  new_dbg_str(0x800, "on %d\n", 11);
                  new_dbg_str(0x400, "off\n");
                  new_dbg_str(0, "always\n");
                  dbg_str("flag only\n");
              }),
              "on 11\nalways\n");
    EXPECT_EQ(dbg_check_mask(0x800), 1);
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
                  new_dbg_str(0x2, "any\n");
              }),
              "flag\nany\n");
    EXPECT_EQ(dbg_get_debug_mask()[7], 0xFF);
    dbg_set_debug(0);
    EXPECT_EQ(dbg_get_debug_mask()[1], 0x00);
}

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
    std::thread([&] { other = dbg_check_mask(0x1); }).join();
    EXPECT_EQ(other, 0);
    EXPECT_EQ(dbg_check_mask(0x1), 1);
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

}  // namespace
