// POSIX backend: ending a process that need not be a child, by pid and
// creation time together.
#include "platform/platform.h"

#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

namespace {

// A pidfd holds on to the process it was opened for, whatever later takes
// its number; -1 when the system has none (errno tells why).
int open_process(pid_t pid) {
#ifdef SYS_pidfd_open
    return static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
#else
    (void)pid;
    errno = ENOSYS;
    return -1;
#endif
}

int32_t send_kill(int pidfd, pid_t pid) {
#ifdef SYS_pidfd_send_signal
    if (pidfd >= 0) {
        return syscall(SYS_pidfd_send_signal, pidfd, SIGKILL, nullptr, 0) == 0 ? 0 : errno;
    }
#else
    (void)pidfd;
#endif
    return kill(pid, SIGKILL) == 0 ? 0 : errno;
}

}  // namespace

int32_t plat_process_kill_if_created(uint32_t pid, uint64_t creation_time) {
    if (pid == 0 || pid > static_cast<uint32_t>(INT_MAX)) {
        return ESRCH;
    }
    // The pidfd is taken before the start time is read: should the process
    // end and its number be reused in between, either the time read is the
    // newer process's and differs, or the signal through the pidfd finds the
    // old process gone; the newer process is never hit.
    int pidfd = open_process(static_cast<pid_t>(pid));
    if (pidfd < 0 && errno == ESRCH) {
        return ESRCH;
    }
    uint64_t now_created = 0;
    int32_t error = plat_process_creation_time(pid, &now_created);
    if (error == 0) {
        error = now_created == creation_time ? send_kill(pidfd, static_cast<pid_t>(pid)) : ESRCH;
    }
    if (pidfd >= 0) {
        close(pidfd);
    }
    return error;
}
