// Killing a writer at each of its file-changing system calls in turn. A
// forked child runs the work while the parent traces its system calls
// (ptrace); in round n the parent kills the child as it enters its n-th call
// that can change files (the call is not made). Files change only through
// those calls, and the library makes the same ones in the same order every
// time, so rounds 1, 2, ... meet every state a crash of the writer can leave,
// each once, whatever the speed of the machine: a test built on this fails
// only when the library is wrong.
//
// Linux only (ptrace).
#pragma once

#if defined(__linux__)

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string>

namespace vq::test {

// Far more file-changing calls than one piece of work makes: a child still
// running after these is stuck.
inline constexpr int kMaxKilledCalls = 1000;

enum class KillEnding { killed, finished, not_traced, failed };

// How a traced child ended; for failed, what went wrong.
struct KillRun {
    KillEnding ending = KillEnding::failed;
    std::string what;
};

// Whether system call nr can change what a file holds or which file a name
// stands for. Only these count: the calls in between (memory for the
// allocator, a sanitizer's above all) vary from one child to the next.
inline bool changes_files(uint64_t nr) {
    static constexpr long kCalls[] = {
        SYS_openat,    SYS_write,     SYS_pwrite64, SYS_writev,   SYS_pwritev,   SYS_fsync,   SYS_fdatasync,
        SYS_fallocate, SYS_ftruncate, SYS_truncate, SYS_renameat, SYS_renameat2, SYS_unlinkat, SYS_mkdirat,
#if defined(SYS_open)
        SYS_open,      SYS_creat,     SYS_rename,   SYS_unlink,   SYS_mkdir,
#endif
    };
    return std::find(std::begin(kCalls), std::end(kCalls), static_cast<long>(nr)) != std::end(kCalls);
}

// The number of the system call the stopped child is entering; -1 at an exit.
inline long entering_call(pid_t child) {
    __ptrace_syscall_info info{};
    long size = ::ptrace(PTRACE_GET_SYSCALL_INFO, child, reinterpret_cast<void *>(sizeof info), &info);
    if (size <= 0 || info.op != PTRACE_SYSCALL_INFO_ENTRY) {
        return -1;
    }
    return static_cast<long>(info.entry.nr);
}

// waitpid for one child, over interruptions.
inline bool wait_for(pid_t child, int *status) {
    pid_t got = -1;
    do {
        got = ::waitpid(child, status, 0);
    } while (got < 0 && errno == EINTR);
    return got == child;
}

inline std::string status_text(int status) {
    if (WIFEXITED(status)) {
        return "exit status " + std::to_string(WEXITSTATUS(status));
    }
    if (WIFSIGNALED(status)) {
        return "killed by signal " + std::to_string(WTERMSIG(status));
    }
    return "wait status " + std::to_string(status);
}

// A failed run, the child killed and reaped so that none is left behind.
inline KillRun abandon(pid_t child, const char *step) {
    int error = errno;
    int status = 0;
    ::kill(child, SIGKILL);
    wait_for(child, &status);
    return {KillEnding::failed, std::string(step) + " failed: " + std::strerror(error)};
}

// Runs work (true when it succeeded) in a traced child and kills the child
// as it enters its stops-th file-changing call, or lets it finish when it
// makes fewer. Signals other than the trace stops are passed on.
template <typename Work>
KillRun run_killed_at(int stops, Work work) {
    constexpr int kWorkFailed = 3;
    constexpr int kNotTraced = 4;
    std::fflush(nullptr);  // nothing buffered for the child to write again
    pid_t child = ::fork();
    if (child < 0) {
        return {KillEnding::failed, std::string("fork failed: ") + std::strerror(errno)};
    }
    if (child == 0) {
        if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
            ::_exit(kNotTraced);
        }
        ::raise(SIGSTOP);  // wait for the parent to set the options
        ::_exit(work() ? 0 : kWorkFailed);
    }
    int status = 0;
    if (!wait_for(child, &status)) {
        return abandon(child, "waitpid");
    }
    if (WIFEXITED(status) && WEXITSTATUS(status) == kNotTraced) {
        return {KillEnding::not_traced, {}};
    }
    if (!WIFSTOPPED(status)) {
        return {KillEnding::failed, "the child ended before its work: " + status_text(status)};
    }
    long options = PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL;
    if (::ptrace(PTRACE_SETOPTIONS, child, nullptr, reinterpret_cast<void *>(options)) != 0) {
        return abandon(child, "PTRACE_SETOPTIONS");
    }
    int seen = 0;
    long pass = 0;
    for (;;) {
        if (::ptrace(PTRACE_SYSCALL, child, nullptr, reinterpret_cast<void *>(pass)) != 0) {
            return abandon(child, "PTRACE_SYSCALL");
        }
        if (!wait_for(child, &status)) {
            return abandon(child, "waitpid");
        }
        if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
            return {KillEnding::finished, {}};
        }
        if (!WIFSTOPPED(status)) {
            const char *why = WIFEXITED(status) && WEXITSTATUS(status) == kWorkFailed
                                  ? "the child's work failed"
                                  : "the child ended";
            return {KillEnding::failed, std::string(why) + " after " + std::to_string(seen) +
                                            " file-changing calls: " + status_text(status)};
        }
        pass = 0;
        if (WSTOPSIG(status) != (SIGTRAP | 0x80)) {
            pass = WSTOPSIG(status);
            continue;
        }
        long nr = entering_call(child);
        if (nr < 0 || !changes_files(static_cast<uint64_t>(nr)) || ++seen != stops) {
            continue;
        }
        ::kill(child, SIGKILL);
        if (!wait_for(child, &status)) {
            return {KillEnding::failed,
                    std::string("waitpid after the kill failed: ") + std::strerror(errno)};
        }
        if (!WIFSIGNALED(status) || WTERMSIG(status) != SIGKILL) {
            return {KillEnding::failed, "the killed child ended otherwise: " + status_text(status)};
        }
        return {KillEnding::killed, {}};
    }
}

// Rounds 1, 2, ...: reset() puts the files as they are before the work, a
// child doing work is killed entering its round-th file-changing call, and
// check(round) looks at what it left; until a child finishes its work,
// whose result the caller then checks. reset and check report through
// GoogleTest assertions. *calls is the number of calls killed at. Skips the
// test (the caller sees IsSkipped()) when this system does not let a child
// be traced.
template <typename Reset, typename Work, typename Check>
void kill_at_every_call(Reset reset, Work work, Check check, int *calls) {
    *calls = 0;
    for (int round = 1; round <= kMaxKilledCalls; ++round) {
        SCOPED_TRACE("round " + std::to_string(round) +
                     ": the child is killed entering that file-changing call");
        ASSERT_NO_FATAL_FAILURE(reset());
        KillRun run = run_killed_at(round, work);
        if (run.ending == KillEnding::not_traced) {
            GTEST_SKIP() << "this system does not let a child be traced (ptrace refused)";
        }
        ASSERT_NE(run.ending, KillEnding::failed) << run.what;
        if (run.ending == KillEnding::finished) {
            *calls = round - 1;
            return;
        }
        ASSERT_NO_FATAL_FAILURE(check(round));
    }
    FAIL() << "the work was still running after " << kMaxKilledCalls << " file-changing calls";
}

}  // namespace vq::test

#endif  // __linux__
