// Process descriptors (pidfds) for the POSIX backend: a pidfd holds on to the
// process it was opened for, so a signal sent through it can never reach a
// process that later took the same number.
#pragma once

#include <signal.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>

namespace vq::posix {

// A pidfd for pid, or -1 (errno tells why; ENOSYS where the system has none).
inline int open_pidfd(pid_t pid) {
#ifdef SYS_pidfd_open
    long fd = syscall(SYS_pidfd_open, pid, 0);
    return fd < 0 ? -1 : static_cast<int>(fd);
#else
    (void)pid;
    errno = ENOSYS;
    return -1;
#endif
}

// Sends signal_number through pidfd when there is one (>= 0), else to the
// bare pid. 0 or the system's error number.
inline int signal_process(int pidfd, pid_t pid, int signal_number) {
#ifdef SYS_pidfd_send_signal
    if (pidfd >= 0) {
        return syscall(SYS_pidfd_send_signal, pidfd, signal_number, nullptr, 0) == 0 ? 0 : errno;
    }
#else
    (void)pidfd;
#endif
    return kill(pid, signal_number) == 0 ? 0 : errno;
}

}  // namespace vq::posix
