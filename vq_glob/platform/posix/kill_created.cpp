// POSIX backend: ending a process that need not be a child, by pid and
// creation time together.
#include "platform/platform.h"
#include "platform/posix/pidfd.h"

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

int32_t plat_process_kill_if_created(uint32_t pid, uint64_t creation_time) {
    if (pid == 0 || pid > static_cast<uint32_t>(INT_MAX)) {
        return ESRCH;
    }
    // The pidfd is taken before the start time is read: should the process
    // end and its number be reused in between, either the time read is the
    // newer process's and differs, or the signal through the pidfd finds the
    // old process gone; the newer process is never hit.
    int pidfd = vq::posix::open_pidfd(static_cast<pid_t>(pid));
    if (pidfd < 0 && errno == ESRCH) {
        return ESRCH;
    }
    uint64_t now_created = 0;
    int32_t error = plat_process_creation_time(pid, &now_created);
    if (error == 0) {
        error = now_created == creation_time ? vq::posix::signal_process(pidfd, static_cast<pid_t>(pid), SIGKILL) : ESRCH;
    }
    if (pidfd >= 0) {
        close(pidfd);
    }
    return error;
}
