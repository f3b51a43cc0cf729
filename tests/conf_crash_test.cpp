// What a writer killed in the middle of conf_write leaves behind. A child
// process writes two large configurations, A and B, alternately to one file
// until the parent kills it at a random moment; the parent then inspects the
// file. Through "<file>.temp" the file must always be exactly A or exactly B;
// in place, a kill can leave the file cut short, which is recorded.
//
// POSIX only: the writer is a forked child killed with SIGKILL.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <random>
#include <sstream>
#include <string>

#include "vq_glob/conf.h"
#include "vq_glob/err.h"

#ifndef _WIN32
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace {

#ifdef _WIN32

constexpr const char *kNoFork =
    "the writer to kill is a forked child and Windows has no fork(), so this runs on POSIX only";

TEST(ConfCrash, PosixKillDuringWriteThroughTempLeavesOldOrNew) { GTEST_SKIP() << kNoFork; }
TEST(ConfCrash, PosixKillDuringWriteInPlaceMayCutTheFile) { GTEST_SKIP() << kNoFork; }

#else

constexpr int kFieldsPerSection = 50;
// A child that stops writing on its own has failed a write.
constexpr int kChildWriteFailed = 3;
// Sanitizers make every fork, write and read several times slower; those
// builds kill half as often to stay within the same time.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kKillsDivisor = 2;
#else
constexpr int kKillsDivisor = 1;
#endif

// Long values, about 520 bytes a line and 50 lines a section: 40 sections
// make 1 MB, so that one write takes long enough for kills to land inside
// it, while a read back (whose cost goes mostly by fields) stays quick.
std::string make_text(int sections, const char *label) {
    const std::string padding(480, label[0]);
    std::string text;
    char line[128];
    for (int s = 0; s < sections; ++s) {
        std::snprintf(line, sizeof line, "[section %d]\n", s);
        text += line;
        for (int f = 0; f < kFieldsPerSection; ++f) {
            std::snprintf(line, sizeof line, "field_%d=%s value of field %d in section %d ", f, label, f, s);
            text += line;
            text += padding;
            text += '\n';
        }
    }
    return text;
}

std::string read_all(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

bool exists(const std::string &path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0;
}

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
        ASSERT_NO_FATAL_FAILURE(build(a_, make_text(48, "alpha")));
        ASSERT_NO_FATAL_FAILURE(build(b_, make_text(40, "beta")));
        ASSERT_NE(a_.text, b_.text);
        seed_ = std::random_device{}();
        random_.seed(seed_);
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
        ASSERT_GT(c.text.size(), 1000000u);
    }

    // Writes A then B to the file as the test will (leaving A there) and
    // sets the range of kill delays to the time of such a pair of writes, so
    // that kills spread over whole writes however fast this build and this
    // machine are.
    void calibrate() {
        auto started = std::chrono::steady_clock::now();
        ASSERT_EQ(conf_write(a_.h, path_.c_str()), 1) << err_get_error_msg();
        ASSERT_EQ(conf_write(b_.h, path_.c_str()), 1) << err_get_error_msg();
        ASSERT_EQ(conf_write(a_.h, path_.c_str()), 1) << err_get_error_msg();
        auto elapsed = std::chrono::steady_clock::now() - started;
        int64_t pair_us = std::chrono::duration_cast<std::chrono::microseconds>(elapsed).count() * 2 / 3;
        max_delay_us_ = static_cast<int>(std::clamp<int64_t>(pair_us, 2000, 100000));
    }

    // Forks a child that writes first, then second, then first again, and so
    // on. The child's first write is slow (fork's copy-on-write makes it
    // touch fresh pages), so the child reports that it is running only once
    // that write is done; the parent then kills it a random moment later and
    // reaps it. Every write the child finished must have succeeded, so it
    // must die by the kill.
    void kill_writer(Config &first, Config &second, int *delay_us) {
        *delay_us = std::uniform_int_distribution<int>(0, max_delay_us_)(random_);
        int ready[2];
        ASSERT_EQ(::pipe(ready), 0);
        pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            ::close(ready[0]);
            char running = 1;
            if (conf_write(first.h, path_.c_str()) == 0 || ::write(ready[1], &running, 1) != 1) {
                ::_exit(kChildWriteFailed);
            }
            for (;;) {
                if (conf_write(second.h, path_.c_str()) == 0 || conf_write(first.h, path_.c_str()) == 0) {
                    ::_exit(kChildWriteFailed);
                }
            }
        }
        ::close(ready[1]);
        char running = 0;
        ssize_t got = ::read(ready[0], &running, 1);
        ::close(ready[0]);
        if (got == 1) {
            ::usleep(static_cast<useconds_t>(*delay_us));
        }
        ::kill(child, SIGKILL);
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL)
            << "the writer stopped by itself (a write failed), status " << status;
        ASSERT_EQ(got, 1);
    }

    // 'A' or 'B' when the file holds exactly that configuration byte for
    // byte and reads back to it through a fresh handle; otherwise '?' with
    // what was found in *detail.
    char classify(const std::string &bytes, std::string *detail) {
        const Config *match = bytes == a_.text ? &a_ : bytes == b_.text ? &b_ : nullptr;
        void *h = nullptr;
        if (conf_allocate_handle(&h) == 0) {
            *detail = "no handle";
            return '?';
        }
        char letter = '?';
        if (conf_read_file_to_handle(h, path_.c_str()) == 0) {
            *detail = std::string("read failed: ") + err_get_error_msg();
            err_clear_error_stack();
        } else {
            char *out = nullptr;
            if (conf_write_buffer(h, &out) == 1 && match != nullptr && match->text == out) {
                letter = match->letter;
            } else {
                *detail = std::to_string(bytes.size()) + " bytes that read as neither configuration";
            }
            conf_free_buffer(out);
        }
        conf_free_handle(&h);
        return letter;
    }

    void report(const char *what, const std::string &figures) {
        std::printf("%s (seed %u, kills up to %d us after the first write): %s\n", what, seed_, max_delay_us_,
                    figures.c_str());
        RecordProperty("figures", figures);
    }

    std::string path_;
    Config a_{'A'};
    Config b_{'B'};
    unsigned seed_ = 0;
    int max_delay_us_ = 0;
    std::mt19937 random_;
};

TEST_F(ConfCrash, PosixKillDuringWriteThroughTempLeavesOldOrNew) {
    constexpr int kKills = 200 / kKillsDivisor;
    constexpr int kWanted = kKills / 10;  // kills that must land inside the window
    // A loaded machine shifts the timing: kill on, up to four times as
    // often, until enough kills have landed where they matter.
    constexpr int kMaxKills = 4 * kKills;
    ASSERT_EQ(conf_enable_write_with_temp(a_.h), 1);
    ASSERT_EQ(conf_enable_write_with_temp(b_.h), 1);
    ASSERT_NO_FATAL_FAILURE(calibrate());
    const std::string temp = path_ + ".temp";

    auto started = std::chrono::steady_clock::now();
    int seen_a = 0, seen_b = 0, in_window = 0;
    int round = 0;
    for (; round < kMaxKills && (round < kKills || in_window < kWanted || seen_a == 0 || seen_b == 0); ++round) {
        // Alternating the child's first configuration has both written whole
        // and both cut by kills.
        Config &first = round % 2 == 0 ? b_ : a_;
        Config &second = round % 2 == 0 ? a_ : b_;
        int delay_us = 0;
        ASSERT_NO_FATAL_FAILURE(kill_writer(first, second, &delay_us));
        // A temporary file left behind means that the kill landed between its
        // creation and its move into place. It stays for the next round,
        // whose child must write over it successfully (kill_writer checks).
        bool temp_left = exists(temp);
        in_window += temp_left ? 1 : 0;
        std::string detail;
        char found = classify(read_all(path_), &detail);
        ASSERT_NE(found, '?') << "round " << round << ", killed " << delay_us << " us after the first write"
                              << (temp_left ? " with the temporary file present" : "") << ": " << detail;
        (found == 'A' ? seen_a : seen_b)++;
    }
    ASSERT_EQ(conf_write(a_.h, path_.c_str()), 1) << err_get_error_msg();
    EXPECT_FALSE(exists(temp));
    auto seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    report("write through temp", std::to_string(round) + " kills: " + std::to_string(seen_a) + " A, " +
                                     std::to_string(seen_b) + " B, " + std::to_string(in_window) +
                                     " with a stale temporary file, " + std::to_string(seconds) + " s");
    // Both outcomes prove that writes completed between kills; the stale
    // temporary files prove that kills landed inside the dangerous window.
    EXPECT_GT(seen_a, 0);
    EXPECT_GT(seen_b, 0);
    EXPECT_GE(in_window, kWanted);
}

TEST_F(ConfCrash, PosixKillDuringWriteInPlaceMayCutTheFile) {
    constexpr int kKills = 60 / kKillsDivisor;
    ASSERT_NO_FATAL_FAILURE(calibrate());

    int seen_a = 0, seen_b = 0, empty = 0, cut_readable = 0, cut_unreadable = 0;
    for (int round = 0; round < kKills; ++round) {
        int delay_us = 0;
        ASSERT_NO_FATAL_FAILURE(kill_writer(round % 2 == 0 ? b_ : a_, round % 2 == 0 ? a_ : b_, &delay_us));
        std::string bytes = read_all(path_);
        std::string detail;
        char found = classify(bytes, &detail);
        if (found != '?') {
            (found == 'A' ? seen_a : seen_b)++;
            continue;
        }
        // In place the file is truncated and rewritten from its start, so
        // whatever a kill leaves is the beginning of one configuration.
        ASSERT_TRUE(a_.text.compare(0, bytes.size(), bytes) == 0 ||
                    b_.text.compare(0, bytes.size(), bytes) == 0)
            << "round " << round << ": " << bytes.size() << " bytes that begin neither configuration";
        if (bytes.empty()) {
            ++empty;
        } else if (detail.rfind("read failed", 0) == 0) {
            ++cut_unreadable;
        } else {
            ++cut_readable;
        }
    }
    report("write in place", std::to_string(kKills) + " kills: " + std::to_string(seen_a) + " A, " +
                                 std::to_string(seen_b) + " B, " + std::to_string(empty) + " empty, " +
                                 std::to_string(cut_readable) + " cut short but read with success, " +
                                 std::to_string(cut_unreadable) + " cut short and unreadable");
}

#endif  // _WIN32

}  // namespace
