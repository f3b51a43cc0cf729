// POSIX backend, socket part: BSD sockets. Descriptors are created
// close-on-exec, sends carry MSG_NOSIGNAL so that a vanished peer is an
// EPIPE result rather than a signal, and interrupted calls are restarted
// (with what is left of their time-out).
#include "platform/platform.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <vector>

#include "platform/posix/monotonic.h"

namespace {

int fd_of(PlatSocket socket) { return static_cast<int>(socket); }

using vq::posix::monotonic_ms;

// poll() restarted after a signal with the time that is left; a negative
// timeout waits without limit. The result is poll's.
int poll_restarting(pollfd *fds, nfds_t count, int32_t timeout_ms) {
    const int64_t deadline = timeout_ms < 0 ? 0 : monotonic_ms() + timeout_ms;
    for (;;) {
        int left = -1;
        if (timeout_ms >= 0) {
            const int64_t remaining = deadline - monotonic_ms();
            left = remaining > 0 ? static_cast<int>(remaining) : 0;
        }
        const int result = poll(fds, count, left);
        if (result >= 0 || errno != EINTR) {
            return result;
        }
    }
}

sockaddr_in inet_address(uint32_t address, uint16_t port) {
    sockaddr_in where{};
    where.sin_family = AF_INET;
    where.sin_port = htons(port);
    where.sin_addr.s_addr = address;
    return where;
}

int32_t set_non_blocking(int fd, bool on) {
    const int flags = fcntl(fd, F_GETFL);
    if (flags < 0) {
        return errno;
    }
    const int wanted = on ? (flags | O_NONBLOCK) : (flags & ~O_NONBLOCK);
    return fcntl(fd, F_SETFL, wanted) == 0 ? 0 : errno;
}

// Waits for a connect in progress to end: 0 with *result the connect's own
// outcome (SO_ERROR), or ETIMEDOUT with *timed_out when timeout_ms passed.
int32_t finish_connect(int fd, int32_t timeout_ms, bool *timed_out, int32_t *result) {
    pollfd watch{fd, POLLOUT, 0};
    const int ready = poll_restarting(&watch, 1, timeout_ms);
    if (ready < 0) {
        return errno;
    }
    if (ready == 0) {
        *timed_out = true;
        return ETIMEDOUT;
    }
    int error = 0;
    socklen_t size = sizeof error;
    if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) != 0) {
        return errno;
    }
    *result = error;
    return 0;
}

int32_t connect_without_limit(int fd, const sockaddr_in &where) {
    if (connect(fd, reinterpret_cast<const sockaddr *>(&where), sizeof where) == 0) {
        return 0;
    }
    if (errno != EINTR) {
        return errno;
    }
    // An interrupted connect goes on in the background; wait for its end.
    bool timed_out = false;
    int32_t result = 0;
    const int32_t error = finish_connect(fd, -1, &timed_out, &result);
    return error != 0 ? error : result;
}

int32_t connect_within(int fd, const sockaddr_in &where, int32_t timeout_seconds, bool *timed_out) {
    int32_t error = set_non_blocking(fd, true);
    if (error != 0) {
        return error;
    }
    if (connect(fd, reinterpret_cast<const sockaddr *>(&where), sizeof where) != 0) {
        error = errno;
        if (error == EINPROGRESS || error == EINTR) {
            int32_t result = 0;
            error = finish_connect(fd, timeout_seconds * 1000, timed_out, &result);
            if (error == 0) {
                error = result;
            }
        }
    }
    const int32_t restored = set_non_blocking(fd, false);
    return error != 0 ? error : restored;
}

int32_t set_int(int fd, int level, int name, int value) {
    return setsockopt(fd, level, name, &value, sizeof value) == 0 ? 0 : errno;
}

int32_t set_time(int fd, int name, int32_t milliseconds) {
    timeval limit{};
    limit.tv_sec = milliseconds / 1000;
    limit.tv_usec = static_cast<suseconds_t>(milliseconds % 1000) * 1000;
    return setsockopt(fd, SOL_SOCKET, name, &limit, sizeof limit) == 0 ? 0 : errno;
}

// ---- The socket record ----------------------------------------------------------
//
// A socket handed to another process travels by inheritance: the saving
// process clears close-on-exec, and the record tells the process that
// inherits the descriptor which one it is. Layout (big-endian), the rest of
// the 372 bytes zero:
//   0  4  magic "VQSK"
//   4  4  layout version, 1
//   8  4  descriptor number
//  12  4  id of the saving process
//  16  4  id of the process it was meant for (as the caller gave it)
//  20  8  st_dev of the socket
//  28  8  st_ino of the socket
constexpr unsigned char kRecordMagic[4] = {'V', 'Q', 'S', 'K'};
constexpr uint32_t kRecordVersion = 1;
constexpr size_t kRecordUsed = 36;

void put32(unsigned char *at, uint32_t value) {
    for (int i = 0; i < 4; ++i) {
        at[i] = static_cast<unsigned char>(value >> (24 - 8 * i));
    }
}

void put64(unsigned char *at, uint64_t value) {
    put32(at, static_cast<uint32_t>(value >> 32));
    put32(at + 4, static_cast<uint32_t>(value));
}

uint32_t get32(const unsigned char *at) {
    return static_cast<uint32_t>(at[0]) << 24 | static_cast<uint32_t>(at[1]) << 16 |
           static_cast<uint32_t>(at[2]) << 8 | at[3];
}

uint64_t get64(const unsigned char *at) { return static_cast<uint64_t>(get32(at)) << 32 | get32(at + 4); }

bool record_well_formed(const unsigned char *record) {
    if (std::memcmp(record, kRecordMagic, sizeof kRecordMagic) != 0 || get32(record + 4) != kRecordVersion ||
        get32(record + 8) > 0x7FFFFFFFu) {
        return false;
    }
    for (size_t i = kRecordUsed; i < kPlatSocketRecordSize; ++i) {
        if (record[i] != 0) {
            return false;
        }
    }
    return true;
}

}  // namespace

int32_t plat_net_startup() { return 0; }

int32_t plat_net_cleanup() { return 0; }

int32_t plat_net_lookup_service(const char *name, int32_t protocol, uint16_t *port) {
    servent entry{};
    servent *found = nullptr;
    char scratch[1024];
    const int error = getservbyname_r(name, protocol == kPlatSocketUdp ? "udp" : "tcp", &entry, scratch,
                                      sizeof scratch, &found);
    if (error != 0) {
        return error;
    }
    if (found == nullptr) {
        return ENODATA;
    }
    *port = ntohs(static_cast<uint16_t>(found->s_port));
    return 0;
}

bool plat_socket_would_block(int32_t code) { return code == EAGAIN || code == EWOULDBLOCK; }

bool plat_socket_is_refused(int32_t code) { return code == ECONNREFUSED; }

bool plat_socket_is_timed_out(int32_t code) { return code == ETIMEDOUT; }

int32_t plat_socket_timed_out_error() { return ETIMEDOUT; }

int32_t plat_socket_peer_closed_error() { return ECONNRESET; }

int32_t plat_socket_open(int32_t protocol, PlatSocket *socket) {
    const bool udp = protocol == kPlatSocketUdp;
    const int fd = ::socket(AF_INET, (udp ? SOCK_DGRAM : SOCK_STREAM) | SOCK_CLOEXEC, udp ? IPPROTO_UDP : IPPROTO_TCP);
    if (fd < 0) {
        return errno;
    }
    *socket = fd;
    return 0;
}

int32_t plat_socket_shutdown(PlatSocket socket) {
    if (shutdown(fd_of(socket), SHUT_RDWR) == 0 || errno == ENOTCONN) {
        return 0;
    }
    return errno;
}

int32_t plat_socket_close(PlatSocket socket) {
    // Linux releases the descriptor even when close reports EINTR, so a
    // retry could close a descriptor another thread has just been given.
    if (close(fd_of(socket)) == 0 || errno == EINTR) {
        return 0;
    }
    return errno;
}

int32_t plat_socket_set_inheritable(PlatSocket socket, bool inheritable) {
    const int flags = fcntl(fd_of(socket), F_GETFD);
    if (flags < 0) {
        return errno;
    }
    const int wanted = inheritable ? (flags & ~FD_CLOEXEC) : (flags | FD_CLOEXEC);
    return fcntl(fd_of(socket), F_SETFD, wanted) == 0 ? 0 : errno;
}

int32_t plat_socket_connect(PlatSocket socket, uint32_t address, uint16_t port, int32_t timeout_seconds,
                            bool *timed_out) {
    *timed_out = false;
    const sockaddr_in where = inet_address(address, port);
    if (timeout_seconds > 0) {
        return connect_within(fd_of(socket), where, timeout_seconds, timed_out);
    }
    return connect_without_limit(fd_of(socket), where);
}

int32_t plat_socket_bind(PlatSocket socket, uint32_t address, uint16_t port) {
    const sockaddr_in where = inet_address(address, port);
    return bind(fd_of(socket), reinterpret_cast<const sockaddr *>(&where), sizeof where) == 0 ? 0 : errno;
}

int32_t plat_socket_listen(PlatSocket socket, int32_t backlog) {
    return listen(fd_of(socket), backlog) == 0 ? 0 : errno;
}

int32_t plat_socket_accept(PlatSocket socket, PlatSocket *accepted, uint32_t *peer_address) {
    for (;;) {
        sockaddr_in peer{};
        socklen_t size = sizeof peer;
        const int fd = accept4(fd_of(socket), reinterpret_cast<sockaddr *>(&peer), &size, SOCK_CLOEXEC);
        if (fd >= 0) {
            *accepted = fd;
            *peer_address = peer.sin_family == AF_INET ? peer.sin_addr.s_addr : 0;
            return 0;
        }
        if (errno != EINTR) {
            return errno;
        }
    }
}

int32_t plat_socket_local_port(PlatSocket socket, uint16_t *port) {
    sockaddr_in local{};
    socklen_t size = sizeof local;
    if (getsockname(fd_of(socket), reinterpret_cast<sockaddr *>(&local), &size) != 0) {
        return errno;
    }
    *port = ntohs(local.sin_port);
    return 0;
}

int32_t plat_socket_send(PlatSocket socket, const void *data, size_t size, bool wait, size_t *done) {
    *done = 0;
    const int flags = MSG_NOSIGNAL | (wait ? 0 : MSG_DONTWAIT);
    for (;;) {
        const ssize_t n = send(fd_of(socket), data, size, flags);
        if (n >= 0) {
            *done = static_cast<size_t>(n);
            return 0;
        }
        if (errno != EINTR) {
            return errno;
        }
    }
}

namespace {

int32_t recv_with(PlatSocket socket, void *data, size_t size, int flags, size_t *done) {
    *done = 0;
    for (;;) {
        const ssize_t n = recv(fd_of(socket), data, size, flags);
        if (n >= 0) {
            *done = static_cast<size_t>(n);
            return 0;
        }
        if (errno != EINTR) {
            return errno;
        }
    }
}

}  // namespace

int32_t plat_socket_recv(PlatSocket socket, void *data, size_t size, bool wait, size_t *done) {
    return recv_with(socket, data, size, wait ? 0 : MSG_DONTWAIT, done);
}

int32_t plat_socket_peek(PlatSocket socket, void *data, size_t size, size_t *done) {
    return recv_with(socket, data, size, MSG_PEEK, done);
}

int32_t plat_socket_set_option(PlatSocket socket, PlatSocketOption option, int32_t value) {
    const int fd = fd_of(socket);
    switch (option) {
        case PlatSocketOption::send_buffer:
            return set_int(fd, SOL_SOCKET, SO_SNDBUF, value);
        case PlatSocketOption::recv_buffer:
            return set_int(fd, SOL_SOCKET, SO_RCVBUF, value);
        case PlatSocketOption::send_timeout_ms:
            return set_time(fd, SO_SNDTIMEO, value);
        case PlatSocketOption::recv_timeout_ms:
            return set_time(fd, SO_RCVTIMEO, value);
        case PlatSocketOption::reuse_address:
            return set_int(fd, SOL_SOCKET, SO_REUSEADDR, value);
    }
    return EINVAL;
}

int32_t plat_socket_set_no_linger(PlatSocket socket) {
    linger off{};
    return setsockopt(fd_of(socket), SOL_SOCKET, SO_LINGER, &off, sizeof off) == 0 ? 0 : errno;
}

int32_t plat_socket_wait(PlatSocketWatch *watches, size_t count, int32_t timeout_ms) {
    // poll() rather than select(): a descriptor of FD_SETSIZE or above cannot
    // go into an fd_set without writing past it.
    if (count == 0) {
        return 0;
    }
    std::vector<pollfd> fds(count);
    for (size_t i = 0; i < count; ++i) {
        const int32_t interest = watches[i].interest;
        fds[i].fd = fd_of(watches[i].socket);
        fds[i].events = static_cast<short>(((interest & kPlatSocketRead) != 0 ? POLLIN : 0) |
                                           ((interest & kPlatSocketWrite) != 0 ? POLLOUT : 0) |
                                           ((interest & kPlatSocketException) != 0 ? POLLPRI : 0));
        watches[i].ready = 0;
    }
    if (poll_restarting(fds.data(), count, timeout_ms) < 0) {
        return errno;
    }
    for (size_t i = 0; i < count; ++i) {
        const short found = fds[i].revents;
        if ((found & POLLNVAL) != 0) {
            return EBADF;
        }
        const int32_t interest = watches[i].interest;
        const bool failed = (found & (POLLHUP | POLLERR)) != 0;
        int32_t ready = 0;
        if ((interest & kPlatSocketRead) != 0 && ((found & POLLIN) != 0 || failed)) {
            ready |= kPlatSocketRead;
        }
        if ((interest & kPlatSocketWrite) != 0 && ((found & POLLOUT) != 0 || (found & POLLERR) != 0)) {
            ready |= kPlatSocketWrite;
        }
        if ((interest & kPlatSocketException) != 0 && (found & POLLPRI) != 0) {
            ready |= kPlatSocketException;
        }
        watches[i].ready = ready;
    }
    return 0;
}

int32_t plat_socket_export(PlatSocket socket, uint32_t process_id, unsigned char (&record)[kPlatSocketRecordSize]) {
    struct stat status{};
    if (fstat(fd_of(socket), &status) != 0) {
        return errno;
    }
    if (!S_ISSOCK(status.st_mode)) {
        return ENOTSOCK;
    }
    const int32_t error = plat_socket_set_inheritable(socket, true);
    if (error != 0) {
        return error;
    }
    std::memset(record, 0, sizeof record);
    std::memcpy(record, kRecordMagic, sizeof kRecordMagic);
    put32(record + 4, kRecordVersion);
    put32(record + 8, static_cast<uint32_t>(fd_of(socket)));
    put32(record + 12, static_cast<uint32_t>(getpid()));
    put32(record + 16, process_id);
    put64(record + 20, static_cast<uint64_t>(status.st_dev));
    put64(record + 28, static_cast<uint64_t>(status.st_ino));
    return 0;
}

int32_t plat_socket_import(const unsigned char (&record)[kPlatSocketRecordSize], PlatSocket *socket) {
    if (!record_well_formed(record)) {
        return EINVAL;
    }
    const int fd = static_cast<int>(get32(record + 8));
    struct stat status{};
    if (fstat(fd, &status) != 0) {
        return errno;
    }
    if (!S_ISSOCK(status.st_mode)) {
        return ENOTSOCK;
    }
    if (static_cast<uint64_t>(status.st_dev) != get64(record + 20) ||
        static_cast<uint64_t>(status.st_ino) != get64(record + 28)) {
        return EBADF;
    }
    const int copy = fcntl(fd, F_DUPFD_CLOEXEC, 0);
    if (copy < 0) {
        return errno;
    }
    // An inheriting process takes the socket over: the inherited descriptor
    // goes, so that closing the copy really ends this process's hold on the
    // connection. The saving process keeps its own.
    if (get32(record + 12) != static_cast<uint32_t>(getpid())) {
        close(fd);
    }
    *socket = copy;
    return 0;
}
