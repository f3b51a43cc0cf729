// The library frame: lazy per-thread blocks, thread clean-up, repeated start-up.
#include <gtest/gtest.h>

#include <thread>

#include "vq_glob/err.h"
#include "vq_glob/glob.h"

namespace {

TEST(Frame, ThreadsGetTheirBlockOnFirstCall) {
    int depth = -1;
    uint32_t code = 0;
    std::thread([&] {
        err_set_log_interactive(0);
        err_set_error(ERR_GEN_GENERAL, "in a new thread");
        depth = err_get_stack_depth();
        code = err_get_error_code(0);
    }).join();
    EXPECT_EQ(depth, 1);
    EXPECT_EQ(code, ERR_GEN_GENERAL);
}

TEST(Frame, CleaningAThreadTwiceFindsNoBlockTheSecondTime) {
    int first = -1, second = -1, depth_after = -1;
    std::thread([&] {
        err_set_error(ERR_GEN_GENERAL, "gone with the block");
        first = clean_glob_thread();
        second = clean_glob_thread();
        // The next call builds a fresh block with an empty stack.
        depth_after = err_get_stack_depth();
    }).join();
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 0);
    EXPECT_EQ(depth_after, 0);
}

TEST(Frame, StartingAgainKeepsTheCurrentThreadsState) {
    err_set_error(ERR_GEN_GENERAL, "kept");
    EXPECT_EQ(init_glob(), 1);
    EXPECT_EQ(err_get_stack_depth(), 1);
    EXPECT_STREQ(err_get_error_text(0), "kept");
}

TEST(Frame, ManyShortLivedThreadsCleanUpAfterThemselves) {
    // Each thread leaves its block behind at exit; the sanitizer builds turn a
    // missing thread clean-up into a leak report.
    for (int round = 0; round < 4; ++round) {
        std::thread workers[8];
        for (auto &w : workers) {
            w = std::thread([] {
                err_add_error(ERR_GEN_GENERAL, "x");
                EXPECT_EQ(err_get_stack_depth(), 1);
            });
        }
        for (auto &w : workers) {
            w.join();
        }
    }
}

}  // namespace
