// What a writer killed in the middle of conf_write leaves behind: a child
// process writes one configuration over another and is killed as it enters
// its first, second, ... call that can change files (support/kill_at_calls.h),
// until a child completes its write; every state a crash of the writer can
// leave is met, each once, whatever the speed of the machine.
//
// Linux only: the writer is a forked child stopped and killed through ptrace.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "vq_glob/conf.h"
#include "vq_glob/err.h"

#if defined(__linux__)
#include <unistd.h>

#include "support/file_bytes.h"
#include "support/kill_at_calls.h"
#endif

namespace {

#if !defined(__linux__)

constexpr const char *kNoPtrace =
    "the writer is a forked child stopped at each system call by ptrace, which only Linux has here";

TEST(ConfCrash, LinuxKillAtEveryFileCallThroughTempLeavesOldOrNew) { GTEST_SKIP() << kNoPtrace; }
TEST(ConfCrash, LinuxKillAtEveryFileCallInPlaceNeverCutsTheFile) { GTEST_SKIP() << kNoPtrace; }

#else

std::string make_text(int sections, const char *label) {
    std::string text;
    char line[160];
    for (int s = 0; s < sections; ++s) {
        std::snprintf(line, sizeof line, "[section %d]\n", s);
        text += line;
        for (int f = 0; f < 6; ++f) {
            std::snprintf(line, sizeof line, "field_%d=%s value of field %d in section %d\n", f, label, f, s);
            text += line;
        }
    }
    return text;
}

using vq::test::file_exists;
using vq::test::read_file;

struct Config {
    explicit Config(char l) : letter(l) {}
    char letter;
    void *h = nullptr;
    std::string text;  // exactly what conf_write puts in the file
};

class ConfCrash : public ::testing::Test {
protected:
    void SetUp() override {
        err_clear_error_stack();
        path_ = ::testing::TempDir() + "vq_conf_crash_" + std::to_string(::getpid()) + ".conf";
        remove_files();
        // Different lengths, so that either way round one text is the longer.
        ASSERT_NO_FATAL_FAILURE(build(a_, make_text(40, "alpha")));
        ASSERT_NO_FATAL_FAILURE(build(b_, make_text(30, "beta")));
        ASSERT_GT(a_.text.size(), b_.text.size());
    }
    void TearDown() override {
        conf_free_handle(&a_.h);
        conf_free_handle(&b_.h);
        remove_files();
    }

    void remove_files() {
        for (const char *suffix : {"", ".temp", ".lock"}) {
            std::remove((path_ + suffix).c_str());
        }
    }

    static void build(Config &c, const std::string &source) {
        ASSERT_EQ(conf_allocate_handle(&c.h), 1);
        ASSERT_EQ(conf_read_buffer_to_handle(c.h, source.c_str()), 1) << err_get_error_msg();
        char *out = nullptr;
        ASSERT_EQ(conf_write_buffer(c.h, &out), 1);
        c.text = out;
        conf_free_buffer(out);
    }

    // Puts old in the file as it stands before every round, with no
    // temporary file beside it.
    void reset(Config &old) {
        ASSERT_EQ(conf_write(old.h, path_.c_str()), 1) << err_get_error_msg();
        ASSERT_EQ(read_file(path_), old.text);
        ASSERT_FALSE(file_exists(path_ + ".temp"));
    }

    // Kills a writer of next over old at every file-changing call in turn,
    // and hands each state the file is left in to check(bytes, round).
    // Skips when this system does not let the test trace its child.
    template <typename Check>
    void kill_at_every_call(Config &old, Config &next, Check check) {
        auto reset_old = [&] { reset(old); };
        auto write_next = [&] { return conf_write(next.h, path_.c_str()) == 1; };
        auto check_file = [&](int round) { check(read_file(path_), round); };
        int calls = 0;
        ASSERT_NO_FATAL_FAILURE(vq::test::kill_at_every_call(reset_old, write_next, check_file, &calls));
        if (IsSkipped()) {
            return;
        }
        EXPECT_EQ(read_file(path_), next.text);
        EXPECT_FALSE(file_exists(path_ + ".temp"));
        std::printf("%c over %c: killed at each of %d calls that change files\n", next.letter, old.letter,
                    calls);
    }

    // Whether the file, byte for byte, reads back as exactly c.
    static bool reads_as(const std::string &path, const Config &c) {
        void *h = nullptr;
        if (conf_allocate_handle(&h) == 0) {
            return false;
        }
        bool same = false;
        if (conf_read_file_to_handle(h, path.c_str()) == 1) {
            char *out = nullptr;
            same = conf_write_buffer(h, &out) == 1 && c.text == out;
            conf_free_buffer(out);
        }
        err_clear_error_stack();
        conf_free_handle(&h);
        return same;
    }

    std::string path_;
    Config a_{'A'};
    Config b_{'B'};
};

TEST_F(ConfCrash, LinuxKillAtEveryFileCallThroughTempLeavesOldOrNew) {
    ASSERT_EQ(conf_enable_write_with_temp(a_.h), 1);
    ASSERT_EQ(conf_enable_write_with_temp(b_.h), 1);
    for (Config *old : {&a_, &b_}) {
        Config &next = old == &a_ ? b_ : a_;
        int first_new = 0;  // the first round that found the new file
        int stale_temp = 0;
        auto check = [&](const std::string &bytes, int round) {
            stale_temp += file_exists(path_ + ".temp") ? 1 : 0;
            const Config &found = bytes == old->text ? *old : next;
            ASSERT_EQ(bytes, found.text) << bytes.size() << " bytes that are neither configuration";
            ASSERT_TRUE(reads_as(path_, found));
            // The file changes once, from the old text to the new.
            if (&found == &next && first_new == 0) {
                first_new = round;
            }
            ASSERT_TRUE(first_new == 0 || &found == &next) << "the old text came back after the new one";
        };
        ASSERT_NO_FATAL_FAILURE(kill_at_every_call(*old, next, check));
        if (IsSkipped()) {
            return;
        }
        // Kills landed between the temporary file's creation and its move
        // into place, and after it.
        EXPECT_GT(stale_temp, 0);
        EXPECT_GT(first_new, 0);
    }
}

TEST_F(ConfCrash, LinuxKillAtEveryFileCallInPlaceNeverCutsTheFile) {
    for (Config *old : {&a_, &b_}) {
        Config &next = old == &a_ ? b_ : a_;
        // The old text padded with zero bytes to the longer length: the room
        // reserved past its end reads as zeros until the new text fills it.
        std::string old_padded = old->text;
        old_padded.resize(std::max(old->text.size(), next.text.size()), '\0');
        int mixed = 0;
        auto check = [&](const std::string &bytes, int) {
            // Never shorter than the shorter text: the old one is not cut
            // before the new one is whole.
            ASSERT_GE(bytes.size(), std::min(old->text.size(), next.text.size()));
            ASSERT_LE(bytes.size(), old_padded.size());
            if (bytes == old->text || bytes == next.text) {
                return;
            }
            // Otherwise the new text's beginning over the old file's rest.
            size_t same = 0;
            while (same < bytes.size() && same < next.text.size() && bytes[same] == next.text[same]) {
                ++same;
            }
            ASSERT_EQ(bytes.compare(same, std::string::npos, old_padded, same, bytes.size() - same), 0)
                << bytes.size() << " bytes that are not the new text over the old";
            ++mixed;
        };
        ASSERT_NO_FATAL_FAILURE(kill_at_every_call(*old, next, check));
        if (IsSkipped()) {
            return;
        }
        // Either the reserved room (zeros past the old end) or the old tail
        // past the new end was seen.
        EXPECT_GT(mixed, 0);
    }
}

#endif  // __linux__

}  // namespace
