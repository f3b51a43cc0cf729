// Killing a writer at each of its file-changing system calls in turn. A
// forked child runs the work while the parent traces its system calls
// (ptrace); in round n the parent kills the child as it enters its n-th call
// that can change files (the call is not made). Files change only through
// those calls, and the library makes the same ones in the same order every
// time, so rounds 1, 2, ... meet every state a crash of the writer can leave,
// each once, whatever the speed of the machine.
//
// Linux only (ptrace).
#pragma once

#if defined(__linux__)

#include <signal.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <iterator>

namespace vq::test {

enum class KillEnding { killed, finished, not_traced, work_failed, lost };

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

// Runs work (true when it succeeded) in a traced child and kills the child
// as it enters its stops-th file-changing call, or lets it finish when it
// makes fewer. Signals other than the trace stops are passed on.
template <typename Work>
KillEnding run_killed_at(int stops, Work work) {
    constexpr int kFailed = 3;
    constexpr int kNotTraced = 4;
    std::fflush(nullptr);  // nothing buffered for the child to write again
    pid_t child = ::fork();
    if (child < 0) {
        return KillEnding::lost;
    }
    if (child == 0) {
        if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
            ::_exit(kNotTraced);
        }
        ::raise(SIGSTOP);  // wait for the parent to set the options
        ::_exit(work() ? 0 : kFailed);
    }
    int status = 0;
    if (::waitpid(child, &status, 0) != child) {
        return KillEnding::lost;
    }
    if (WIFEXITED(status)) {
        return WEXITSTATUS(status) == kNotTraced ? KillEnding::not_traced : KillEnding::lost;
    }
    long options = PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL;
    if (::ptrace(PTRACE_SETOPTIONS, child, nullptr, reinterpret_cast<void *>(options)) != 0) {
        ::kill(child, SIGKILL);
        ::waitpid(child, &status, 0);
        return KillEnding::lost;
    }
    int seen = 0;
    long pass = 0;
    for (;;) {
        if (::ptrace(PTRACE_SYSCALL, child, nullptr, reinterpret_cast<void *>(pass)) != 0 ||
            ::waitpid(child, &status, 0) != child) {
            return KillEnding::lost;
        }
        if (WIFEXITED(status)) {
            return WEXITSTATUS(status) == 0 ? KillEnding::finished : KillEnding::work_failed;
        }
        if (!WIFSTOPPED(status)) {
            return KillEnding::lost;
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
        ::waitpid(child, &status, 0);
        return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL ? KillEnding::killed : KillEnding::lost;
    }
}

}  // namespace vq::test

#endif  // __linux__
