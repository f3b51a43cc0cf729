// What a writer killed in the middle of conf_write leaves behind. A child
// process writes one configuration over another while the parent traces its
// system calls (ptrace); in round n the parent kills the child as it enters
// its n-th call that can change files, for n = 1, 2, ... until a child
// completes its write. Files change only through those calls, and the
// library makes the same ones in the same order every time, so the rounds
// meet every state a crash of the writer can leave, each once, whatever the
// speed of the machine: the test fails only when the library is wrong.
//
// Linux only: the writer is a forked child stopped and killed through ptrace.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

#include "vq_glob/conf.h"
#include "vq_glob/err.h"

#if defined(__linux__)
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace {

#if !defined(__linux__)

constexpr const char *kNoPtrace =
    "the writer is a forked child stopped at each system call by ptrace, which only Linux has here";

TEST(ConfCrash, LinuxKillAtEveryFileCallThroughTempLeavesOldOrNew) { GTEST_SKIP() << kNoPtrace; }
TEST(ConfCrash, LinuxKillAtEveryFileCallInPlaceNeverCutsTheFile) { GTEST_SKIP() << kNoPtrace; }

#else

// Exit statuses of a child that did not get to be killed.
constexpr int kChildWriteFailed = 3;
constexpr int kChildNotTraced = 4;
// Far more calls than one write makes: a child still running after these
// is stuck.
constexpr int kMaxStops = 1000;

// Whether system call nr can change what a file holds or which file a name
// stands for. Only these count as stops: the calls in between (memory for
// the allocator, a sanitizer's above all) vary from one child to the next.
bool changes_files(uint64_t nr) {
    static constexpr long kCalls[] = {
        SYS_openat,    SYS_write,     SYS_pwrite64, SYS_writev,   SYS_pwritev,  SYS_fsync,    SYS_fdatasync,
        SYS_fallocate, SYS_ftruncate, SYS_truncate, SYS_renameat, SYS_renameat2, SYS_unlinkat,
#if defined(SYS_open)
        SYS_open,      SYS_creat,     SYS_rename,   SYS_unlink,
#endif
    };
    return std::find(std::begin(kCalls), std::end(kCalls), static_cast<long>(nr)) != std::end(kCalls);
}

// The number of the system call the stopped child is entering; -1 at an exit.
long entering(pid_t child) {
    __ptrace_syscall_info info{};
    long size = ::ptrace(PTRACE_GET_SYSCALL_INFO, child, reinterpret_cast<void *>(sizeof info), &info);
    if (size <= 0 || info.op != PTRACE_SYSCALL_INFO_ENTRY) {
        return -1;
    }
    return static_cast<long>(info.entry.nr);
}

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

enum class Ending { killed, finished, not_traced };

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

    // Forks a child that writes next to the file and kills it as it enters
    // its stops-th call that changes files (the call is not made), or lets
    // it finish when it makes fewer. Signals are passed on to the child.
    void write_killed_at(Config &next, int stops, Ending *ending) {
        // Nothing buffered for the child to write out again when it exits.
        std::fflush(nullptr);
        pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
                ::_exit(kChildNotTraced);
            }
            ::raise(SIGSTOP);  // wait for the parent to set the options
            ::_exit(conf_write(next.h, path_.c_str()) == 1 ? 0 : kChildWriteFailed);
        }
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        if (WIFEXITED(status) && WEXITSTATUS(status) == kChildNotTraced) {
            *ending = Ending::not_traced;
            return;
        }
        ASSERT_TRUE(WIFSTOPPED(status)) << "status " << status;
        long options = PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL;
        ASSERT_EQ(::ptrace(PTRACE_SETOPTIONS, child, nullptr, reinterpret_cast<void *>(options)), 0);
        int seen = 0;
        long pass = 0;
        for (;;) {
            ASSERT_EQ(::ptrace(PTRACE_SYSCALL, child, nullptr, reinterpret_cast<void *>(pass)), 0);
            ASSERT_EQ(::waitpid(child, &status, 0), child);
            if (WIFEXITED(status)) {
                ASSERT_EQ(WEXITSTATUS(status), 0) << "the writer's conf_write failed";
                *ending = Ending::finished;
                return;
            }
            ASSERT_TRUE(WIFSTOPPED(status)) << "the writer died by signal " << WTERMSIG(status);
            pass = 0;
            if (WSTOPSIG(status) != (SIGTRAP | 0x80)) {
                pass = WSTOPSIG(status);
                continue;
            }
            long nr = entering(child);
            if (nr < 0 || !changes_files(static_cast<uint64_t>(nr))) {
                continue;
            }
            ++seen;
            if (seen == stops) {
                ::kill(child, SIGKILL);
                ASSERT_EQ(::waitpid(child, &status, 0), child);
                ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "status " << status;
                *ending = Ending::killed;
                return;
            }
        }
    }

    // Puts old in the file as it stands before every round, with no
    // temporary file beside it.
    void reset(Config &old) {
        ASSERT_EQ(conf_write(old.h, path_.c_str()), 1) << err_get_error_msg();
        ASSERT_EQ(read_all(path_), old.text);
        ASSERT_FALSE(exists(path_ + ".temp"));
    }

    // Kills a writer of next over old at every system call in turn, and
    // hands each state the file is left in to check(bytes, round). Skips
    // when this system does not let the test trace its child.
    template <typename Check>
    void kill_at_every_stop(Config &old, Config &next, Check check) {
        Ending ending = Ending::killed;
        int round = 1;
        for (; round <= kMaxStops; ++round) {
            ASSERT_NO_FATAL_FAILURE(reset(old));
            ASSERT_NO_FATAL_FAILURE(write_killed_at(next, round, &ending));
            if (ending == Ending::not_traced) {
                GTEST_SKIP() << "this system does not let a child be traced (ptrace refused)";
            }
            if (ending == Ending::finished) {
                break;
            }
            ASSERT_NO_FATAL_FAILURE(check(read_all(path_), round)) << "killed entering call " << round;
        }
        ASSERT_EQ(ending, Ending::finished) << "the writer was still running after " << kMaxStops << " calls";
        EXPECT_EQ(read_all(path_), next.text);
        EXPECT_FALSE(exists(path_ + ".temp"));
        std::printf("%c over %c: killed at each of %d calls that change files\n", next.letter, old.letter, round - 1);
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
            stale_temp += exists(path_ + ".temp") ? 1 : 0;
            const Config &found = bytes == old->text ? *old : next;
            ASSERT_EQ(bytes, found.text) << bytes.size() << " bytes that are neither configuration";
            ASSERT_TRUE(reads_as(path_, found));
            // The file changes once, from the old text to the new.
            if (&found == &next && first_new == 0) {
                first_new = round;
            }
            ASSERT_TRUE(first_new == 0 || &found == &next) << "the old text came back after the new one";
        };
        ASSERT_NO_FATAL_FAILURE(kill_at_every_stop(*old, next, check));
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
        ASSERT_NO_FATAL_FAILURE(kill_at_every_stop(*old, next, check));
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
