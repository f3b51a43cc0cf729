// POSIX backend, process part: pipes with time-outs and process creation times.
#include "platform/platform.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "platform/posix/monotonic.h"

namespace {

int fd_of(PlatHandle handle) { return static_cast<int>(handle); }

using vq::posix::monotonic_ms;

// Keeps SIGPIPE away from the process while one thread writes to a pipe
// whose reader may have gone: the signal is blocked for this thread only,
// and a SIGPIPE that the write itself raised is taken off the thread again
// before the old mask returns, so the caller only ever sees EPIPE. A signal
// that was already pending before the write is left alone.
class SigpipeBlock {
public:
    SigpipeBlock() {
        sigemptyset(&pipe_set_);
        sigaddset(&pipe_set_, SIGPIPE);
        sigset_t pending;
        sigemptyset(&pending);
        already_pending_ = sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
        if (!already_pending_) {
            pthread_sigmask(SIG_BLOCK, &pipe_set_, &old_mask_);
        }
    }

    ~SigpipeBlock() {
        if (already_pending_) {
            return;
        }
        int saved = errno;
        if (raised_) {
            timespec zero{};
            while (sigtimedwait(&pipe_set_, nullptr, &zero) == -1 && errno == EINTR) {
            }
        }
        pthread_sigmask(SIG_SETMASK, &old_mask_, nullptr);
        errno = saved;
    }

    void note_broken_pipe() { raised_ = true; }

    SigpipeBlock(const SigpipeBlock &) = delete;
    SigpipeBlock &operator=(const SigpipeBlock &) = delete;

private:
    sigset_t pipe_set_{};
    sigset_t old_mask_{};
    bool already_pending_ = false;
    bool raised_ = false;
};

// Index just past the end of the command field of a stat line: the name may
// itself hold blanks and parentheses, so the last ')' ends it.
const char *after_command(const char *line) {
    const char *close = std::strrchr(line, ')');
    return close == nullptr ? nullptr : close + 1;
}

}  // namespace

int32_t plat_pipe_create(PlatHandle *read_end, PlatHandle *write_end) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        return errno;
    }
    *read_end = fds[0];
    *write_end = fds[1];
    return 0;
}

int32_t plat_handle_duplicate(PlatHandle handle, PlatHandle *copy) {
    int fd = fcntl(fd_of(handle), F_DUPFD_CLOEXEC, 0);
    if (fd < 0) {
        return errno;
    }
    *copy = fd;
    return 0;
}

int32_t plat_handle_close(PlatHandle handle) {
    // Linux releases the descriptor even when close reports EINTR, so a
    // retry could close a descriptor another thread has just been given.
    if (close(fd_of(handle)) == 0 || errno == EINTR) {
        return 0;
    }
    return errno;
}

int32_t plat_pipe_write(PlatHandle write_end, const void *data, size_t size) {
    SigpipeBlock guard;
    const auto *bytes = static_cast<const unsigned char *>(data);
    while (size > 0) {
        ssize_t n = write(fd_of(write_end), bytes, size);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            int32_t error = errno;
            if (error == EPIPE) {
                guard.note_broken_pipe();
            }
            return error;
        }
        bytes += n;
        size -= static_cast<size_t>(n);
    }
    return 0;
}

PlatWait plat_pipe_read(PlatHandle read_end, void *buffer, size_t size, int32_t timeout_ms,
                        size_t *received, int32_t *error) {
    *received = 0;
    *error = 0;
    const int64_t deadline = timeout_ms < 0 ? -1 : monotonic_ms() + timeout_ms;
    for (;;) {
        int wait = -1;
        if (deadline >= 0) {
            int64_t left = deadline - monotonic_ms();
            wait = left > 0 ? static_cast<int>(left) : 0;
        }
        pollfd p{fd_of(read_end), POLLIN, 0};
        int rc = poll(&p, 1, wait);
        if (rc < 0) {
            if (errno == EINTR) {
                continue;
            }
            *error = errno;
            return PlatWait::failed;
        }
        if (rc == 0) {
            return PlatWait::timed_out;
        }
        if ((p.revents & POLLNVAL) != 0) {
            *error = EBADF;
            return PlatWait::failed;
        }
        ssize_t n = read(fd_of(read_end), buffer, size);
        if (n > 0) {
            *received = static_cast<size_t>(n);
            return PlatWait::ready;
        }
        if (n == 0) {
            return PlatWait::closed;
        }
        if (errno != EINTR && errno != EAGAIN) {
            *error = errno;
            return PlatWait::failed;
        }
    }
}

int32_t plat_process_creation_time(uint32_t pid, uint64_t *out) {
    if (pid == 0) {
        return ESRCH;
    }
    char path[64];
    std::snprintf(path, sizeof path, "/proc/%u/stat", static_cast<unsigned>(pid));
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return errno == ENOENT ? ESRCH : errno;
    }
    // One read: the kernel produces the whole line at once, and it is far
    // shorter than this buffer.
    char line[4096];
    ssize_t n;
    do {
        n = read(fd, line, sizeof line - 1);
    } while (n < 0 && errno == EINTR);
    int saved = errno;
    close(fd);
    if (n <= 0) {
        return n == 0 ? ESRCH : saved;
    }
    line[n] = '\0';
    // The command is field 2; after it come field 3 (state) and onwards, so
    // the start time, field 22, is the 20th blank-separated field after it.
    const char *p = after_command(line);
    for (int field = 3; p != nullptr && field < 22; ++field) {
        p = std::strchr(p + 1, ' ');
    }
    if (p == nullptr) {
        return EINVAL;
    }
    char *end = nullptr;
    errno = 0;
    unsigned long long ticks = std::strtoull(p + 1, &end, 10);
    if (end == p + 1 || errno != 0) {
        return EINVAL;
    }
    *out = ticks;
    return 0;
}
