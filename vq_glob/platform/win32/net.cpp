// Win32 backend, socket part: Windows Sockets 2. Sockets are made
// non-inheritable as soon as they exist; a socket goes to another process
// only through WSADuplicateSocketA.
#define FD_SETSIZE 1024  // must precede winsock2.h: the size of select's sets

#include "platform/platform.h"

#include <winsock2.h>
#include <windows.h>

#include <climits>
#include <cstring>
#include <new>

static_assert(sizeof(WSAPROTOCOL_INFOA) == kPlatSocketRecordSize, "a socket record is one WSAPROTOCOL_INFOA");
static_assert(FD_SETSIZE == kPlatSocketSetSize, "select's sets hold the documented number of sockets");

namespace {

SOCKET native(PlatSocket socket) { return static_cast<SOCKET>(socket); }

int32_t socket_error() { return static_cast<int32_t>(WSAGetLastError()); }

int32_t result_of(int status) { return status == 0 ? 0 : socket_error(); }

int32_t not_inherited(SOCKET socket) {
    if (!SetHandleInformation(reinterpret_cast<HANDLE>(socket), HANDLE_FLAG_INHERIT, 0)) {
        return static_cast<int32_t>(GetLastError());
    }
    return 0;
}

// A new socket handle that child processes do not inherit; on failure the
// socket is closed and the error returned.
int32_t adopt(SOCKET socket, PlatSocket *out) {
    const int32_t error = not_inherited(socket);
    if (error != 0) {
        closesocket(socket);
        return error;
    }
    *out = static_cast<PlatSocket>(socket);
    return 0;
}

sockaddr_in inet_address(uint32_t address, uint16_t port) {
    sockaddr_in where{};
    where.sin_family = AF_INET;
    where.sin_port = htons(port);
    where.sin_addr.s_addr = address;
    return where;
}

timeval time_value(int32_t milliseconds) {
    timeval limit{};
    limit.tv_sec = milliseconds / 1000;
    limit.tv_usec = (milliseconds % 1000) * 1000;
    return limit;
}

int32_t set_blocking(SOCKET socket, bool blocking) {
    u_long non_blocking = blocking ? 0 : 1;
    return ioctlsocket(socket, FIONBIO, &non_blocking) == 0 ? 0 : socket_error();
}

// Waits for a non-blocking connect: writable is success, the exception set
// carries the connect's own error, nothing within the time is a time-out.
int32_t finish_connect(SOCKET socket, int32_t timeout_seconds, bool *timed_out) {
    fd_set writable;
    fd_set failed;
    FD_ZERO(&writable);
    FD_ZERO(&failed);
    FD_SET(socket, &writable);
    FD_SET(socket, &failed);
    timeval limit{};
    limit.tv_sec = timeout_seconds;
    const int ready = select(0, nullptr, &writable, &failed, &limit);
    if (ready == SOCKET_ERROR) {
        return socket_error();
    }
    if (ready == 0) {
        *timed_out = true;
        return WSAETIMEDOUT;
    }
    if (FD_ISSET(socket, &failed)) {
        int error = 0;
        int size = sizeof error;
        if (getsockopt(socket, SOL_SOCKET, SO_ERROR, reinterpret_cast<char *>(&error), &size) != 0) {
            return socket_error();
        }
        return error != 0 ? error : WSAECONNREFUSED;
    }
    return 0;
}

// Whether one kind of event is there now, without waiting.
int32_t ready_now(SOCKET socket, bool for_writing) {
    fd_set set;
    FD_ZERO(&set);
    FD_SET(socket, &set);
    timeval now{};
    const int ready = select(0, for_writing ? nullptr : &set, for_writing ? &set : nullptr, nullptr, &now);
    if (ready == SOCKET_ERROR) {
        return socket_error();
    }
    return ready == 0 ? WSAEWOULDBLOCK : 0;
}

int set_int(SOCKET socket, int name, int value) {
    return setsockopt(socket, SOL_SOCKET, name, reinterpret_cast<const char *>(&value), sizeof value);
}

int set_milliseconds(SOCKET socket, int name, int32_t milliseconds) {
    const DWORD value = static_cast<DWORD>(milliseconds);
    return setsockopt(socket, SOL_SOCKET, name, reinterpret_cast<const char *>(&value), sizeof value);
}

int chunk(size_t size) { return size > static_cast<size_t>(INT_MAX) ? INT_MAX : static_cast<int>(size); }

}  // namespace

int32_t plat_net_startup() {
    WSADATA data;
    return WSAStartup(MAKEWORD(2, 2), &data);
}

int32_t plat_net_cleanup() { return result_of(WSACleanup()); }

int32_t plat_net_lookup_service(const char *name, int32_t protocol, uint16_t *port) {
    const servent *found = getservbyname(name, protocol == kPlatSocketUdp ? "udp" : "tcp");
    if (found == nullptr) {
        const int32_t error = socket_error();
        return error != 0 ? error : WSANO_DATA;
    }
    *port = ntohs(static_cast<u_short>(found->s_port));
    return 0;
}

bool plat_socket_would_block(int32_t code) { return code == WSAEWOULDBLOCK || code == WSAETIMEDOUT; }

bool plat_socket_is_refused(int32_t code) { return code == WSAECONNREFUSED; }

bool plat_socket_is_timed_out(int32_t code) { return code == WSAETIMEDOUT; }

int32_t plat_socket_timed_out_error() { return WSAETIMEDOUT; }

int32_t plat_socket_peer_closed_error() { return WSAECONNRESET; }

int32_t plat_socket_open(int32_t protocol, PlatSocket *socket) {
    const bool udp = protocol == kPlatSocketUdp;
    const SOCKET created = ::socket(AF_INET, udp ? SOCK_DGRAM : SOCK_STREAM, udp ? IPPROTO_UDP : IPPROTO_TCP);
    if (created == INVALID_SOCKET) {
        return socket_error();
    }
    return adopt(created, socket);
}

int32_t plat_socket_shutdown(PlatSocket socket) {
    if (shutdown(native(socket), SD_BOTH) == 0) {
        return 0;
    }
    const int32_t error = socket_error();
    return error == WSAENOTCONN ? 0 : error;
}

int32_t plat_socket_close(PlatSocket socket) { return result_of(closesocket(native(socket))); }

int32_t plat_socket_set_inheritable(PlatSocket socket, bool inheritable) {
    if (!SetHandleInformation(reinterpret_cast<HANDLE>(native(socket)), HANDLE_FLAG_INHERIT,
                              inheritable ? HANDLE_FLAG_INHERIT : 0)) {
        return static_cast<int32_t>(GetLastError());
    }
    return 0;
}

int32_t plat_socket_connect(PlatSocket socket, uint32_t address, uint16_t port, int32_t timeout_seconds,
                            bool *timed_out) {
    *timed_out = false;
    const SOCKET s = native(socket);
    const sockaddr_in where = inet_address(address, port);
    const auto *target = reinterpret_cast<const sockaddr *>(&where);
    if (timeout_seconds <= 0) {
        return result_of(connect(s, target, sizeof where));
    }
    int32_t error = set_blocking(s, false);
    if (error != 0) {
        return error;
    }
    if (connect(s, target, sizeof where) != 0) {
        error = socket_error();
        if (error == WSAEWOULDBLOCK) {
            error = finish_connect(s, timeout_seconds, timed_out);
        }
    }
    const int32_t restored = set_blocking(s, true);
    return error != 0 ? error : restored;
}

int32_t plat_socket_bind(PlatSocket socket, uint32_t address, uint16_t port) {
    const sockaddr_in where = inet_address(address, port);
    return result_of(bind(native(socket), reinterpret_cast<const sockaddr *>(&where), sizeof where));
}

int32_t plat_socket_listen(PlatSocket socket, int32_t backlog) { return result_of(listen(native(socket), backlog)); }

int32_t plat_socket_accept(PlatSocket socket, PlatSocket *accepted, uint32_t *peer_address) {
    sockaddr_in peer{};
    int size = sizeof peer;
    const SOCKET created = accept(native(socket), reinterpret_cast<sockaddr *>(&peer), &size);
    if (created == INVALID_SOCKET) {
        return socket_error();
    }
    *peer_address = peer.sin_family == AF_INET ? peer.sin_addr.s_addr : 0;
    return adopt(created, accepted);
}

int32_t plat_socket_local_port(PlatSocket socket, uint16_t *port) {
    sockaddr_in local{};
    int size = sizeof local;
    if (getsockname(native(socket), reinterpret_cast<sockaddr *>(&local), &size) != 0) {
        return socket_error();
    }
    *port = ntohs(local.sin_port);
    return 0;
}

int32_t plat_socket_send(PlatSocket socket, const void *data, size_t size, bool wait, size_t *done) {
    *done = 0;
    if (!wait) {
        const int32_t error = ready_now(native(socket), true);
        if (error != 0) {
            return error;
        }
    }
    const int sent = send(native(socket), static_cast<const char *>(data), chunk(size), 0);
    if (sent == SOCKET_ERROR) {
        return socket_error();
    }
    *done = static_cast<size_t>(sent);
    return 0;
}

int32_t plat_socket_recv(PlatSocket socket, void *data, size_t size, bool wait, size_t *done) {
    *done = 0;
    if (!wait) {
        const int32_t error = ready_now(native(socket), false);
        if (error != 0) {
            return error;
        }
    }
    const int received = recv(native(socket), static_cast<char *>(data), chunk(size), 0);
    if (received == SOCKET_ERROR) {
        return socket_error();
    }
    *done = static_cast<size_t>(received);
    return 0;
}

int32_t plat_socket_peek(PlatSocket socket, void *data, size_t size, size_t *done) {
    *done = 0;
    const int received = recv(native(socket), static_cast<char *>(data), chunk(size), MSG_PEEK);
    if (received == SOCKET_ERROR) {
        return socket_error();
    }
    *done = static_cast<size_t>(received);
    return 0;
}

int32_t plat_socket_set_option(PlatSocket socket, PlatSocketOption option, int32_t value) {
    const SOCKET s = native(socket);
    switch (option) {
        case PlatSocketOption::send_buffer:
            return result_of(set_int(s, SO_SNDBUF, value));
        case PlatSocketOption::recv_buffer:
            return result_of(set_int(s, SO_RCVBUF, value));
        case PlatSocketOption::send_timeout_ms:
            return result_of(set_milliseconds(s, SO_SNDTIMEO, value));
        case PlatSocketOption::recv_timeout_ms:
            return result_of(set_milliseconds(s, SO_RCVTIMEO, value));
        case PlatSocketOption::reuse_address:
            return result_of(set_int(s, SO_REUSEADDR, value));
    }
    return WSAEINVAL;
}

int32_t plat_socket_set_no_linger(PlatSocket socket) {
    linger off{};
    return result_of(setsockopt(native(socket), SOL_SOCKET, SO_LINGER, reinterpret_cast<const char *>(&off),
                                sizeof off));
}

int32_t plat_socket_wait(PlatSocketWatch *watches, size_t count, int32_t timeout_ms) {
    // select() refuses three empty sets, so an empty group returns here.
    if (count == 0) {
        return 0;
    }
    // The sets are large: off the stack.
    struct Sets {
        fd_set read, write, exception;
    };
    auto *sets = new (std::nothrow) Sets;
    if (sets == nullptr) {
        return WSA_NOT_ENOUGH_MEMORY;
    }
    FD_ZERO(&sets->read);
    FD_ZERO(&sets->write);
    FD_ZERO(&sets->exception);
    for (size_t i = 0; i < count; ++i) {
        const SOCKET s = native(watches[i].socket);
        if ((watches[i].interest & kPlatSocketRead) != 0) {
            FD_SET(s, &sets->read);
        }
        if ((watches[i].interest & kPlatSocketWrite) != 0) {
            FD_SET(s, &sets->write);
        }
        if ((watches[i].interest & kPlatSocketException) != 0) {
            FD_SET(s, &sets->exception);
        }
        watches[i].ready = 0;
    }
    timeval limit = time_value(timeout_ms);
    const int ready = select(0, &sets->read, &sets->write, &sets->exception, timeout_ms < 0 ? nullptr : &limit);
    int32_t error = 0;
    if (ready == SOCKET_ERROR) {
        error = socket_error();
    } else {
        for (size_t i = 0; i < count; ++i) {
            const SOCKET s = native(watches[i].socket);
            watches[i].ready = (FD_ISSET(s, &sets->read) ? kPlatSocketRead : 0) |
                               (FD_ISSET(s, &sets->write) ? kPlatSocketWrite : 0) |
                               (FD_ISSET(s, &sets->exception) ? kPlatSocketException : 0);
        }
    }
    delete sets;
    return error;
}

int32_t plat_socket_export(PlatSocket socket, uint32_t process_id, unsigned char (&record)[kPlatSocketRecordSize]) {
    WSAPROTOCOL_INFOA info{};
    if (WSADuplicateSocketA(native(socket), process_id, &info) != 0) {
        return socket_error();
    }
    std::memcpy(record, &info, sizeof record);
    return 0;
}

int32_t plat_socket_import(const unsigned char (&record)[kPlatSocketRecordSize], PlatSocket *socket) {
    WSAPROTOCOL_INFOA info;
    std::memcpy(&info, record, sizeof info);
    const SOCKET created = WSASocketA(AF_INET, SOCK_STREAM, IPPROTO_TCP, &info, 0, 0);
    if (created == INVALID_SOCKET) {
        return socket_error();
    }
    return adopt(created, socket);
}
