// Sending and receiving: the dispatch by hook and I/O mode, the synchronous
// loops that move exact byte counts, the single-attempt non-blocking calls.
#include <ctime>

#include "sl_net/session.h"
#include "vq_glob/err.h"

namespace {

using vq::net::Session;

// The two directions differ only in their system call, their error code,
// their time-out and what a failed receive does to the session.
struct Direction {
    uint32_t error_code;
    int32_t Session::*timeout;
    int (*attempt)(const Session &session, unsigned char *bytes, size_t size, bool wait, size_t *done);
    bool receiving;
    // A receive that returns with the first bytes whatever the session's
    // flags say.
    bool first_bytes = false;
};

int send_attempt(const Session &session, unsigned char *bytes, size_t size, bool wait, size_t *done) {
    return plat_socket_send(session.socket, bytes, size, wait, done);
}

int recv_attempt(const Session &session, unsigned char *bytes, size_t size, bool wait, size_t *done) {
    return plat_socket_recv(session.socket, bytes, size, wait, done);
}

int peek_attempt(const Session &session, unsigned char *bytes, size_t size, bool, size_t *done) {
    return plat_socket_peek(session.socket, bytes, size, done);
}

constexpr Direction kSend{ERR_NET_SEND, &Session::send_timeout, send_attempt, false};
constexpr Direction kRecv{ERR_NET_RECV, &Session::recv_timeout, recv_attempt, true};
constexpr Direction kRecvFirst{ERR_NET_RECV, &Session::recv_timeout, recv_attempt, true, true};
constexpr Direction kPeek{ERR_NET_RECV, &Session::recv_timeout, peek_attempt, true, true};

void report(int32_t *done_or_null, size_t done) {
    if (done_or_null != nullptr) {
        *done_or_null = static_cast<int32_t>(done);
    }
}

// The session of a transfer, which must be active; null with the reason
// (BADSESS, or NOTACT under the direction's error) raised.
Session *ready_session(void *handle, const char *function, const Direction &direction) {
    Session *session = vq::net::checked(handle, function);
    if (session != nullptr && session->state != vq::net::kActive) {
        vq::net::raise(ERR_NET_NOTACT);
        vq::net::raise(direction.error_code);
        return nullptr;
    }
    return session;
}

// The checks every transfer begins with: the session when there are bytes
// to move, else null with *result the call's result (1 for nothing to move,
// 0 with the reason raised).
Session *start_transfer(void *handle, const char *function, const Direction &direction, const unsigned char *bytes,
                        int32_t length, int32_t *done_or_null, int *result) {
    Session *session = ready_session(handle, function, direction);
    *result = 0;
    if (session == nullptr) {
        return nullptr;
    }
    if (length < 1) {
        report(done_or_null, 0);
        *result = 1;
        return nullptr;
    }
    if (bytes == nullptr) {
        vq::net::raise(ERR_NET_BADPTR);
        return nullptr;
    }
    return session;
}

// A failed synchronous transfer: the socket error under the direction's own,
// the count moved so far reported, and a receiving session left inactive.
int transfer_failed(Session &session, const Direction &direction, int32_t error, size_t done,
                    int32_t *done_or_null) {
    if (direction.receiving) {
        session.state = vq::net::kInactive;
    }
    report(done_or_null, done);
    return vq::net::raise_socket(error, direction.error_code);
}

// Moves every byte (a receive with SL_NET_FLAG_PARTIAL_RECV: what the first
// recv that brings any). Would-block is retried at once; when the
// direction's time-out is set and that many whole seconds have passed
// without progress the transfer fails. A socket's own time-out shows as
// would-block too, so a silent peer ends a receive in failure after the
// time-out rather than never.
int transfer_sync(void *handle, const char *function, const Direction &direction, unsigned char *bytes,
                  int32_t length, int32_t *done_or_null) {
    int result = 0;
    Session *session = start_transfer(handle, function, direction, bytes, length, done_or_null, &result);
    if (session == nullptr) {
        return result;
    }
    const int32_t timeout = session->*direction.timeout;
    const bool partial =
        direction.first_bytes || (direction.receiving && (session->flags & SL_NET_FLAG_PARTIAL_RECV) != 0);
    const size_t total = static_cast<size_t>(length);
    size_t done = 0;
    std::time_t last_progress = std::time(nullptr);
    while (done < total) {
        size_t moved = 0;
        const int32_t error = direction.attempt(*session, bytes + done, total - done, true, &moved);
        if (error != 0) {
            if (!plat_socket_would_block(error)) {
                return transfer_failed(*session, direction, error, done, done_or_null);
            }
            if (timeout > 0 && std::time(nullptr) - last_progress >= timeout) {
                return transfer_failed(*session, direction, error, done, done_or_null);
            }
            continue;
        }
        if (moved == 0) {
            if (direction.receiving) {
                return transfer_failed(*session, direction, plat_socket_peer_closed_error(), done, done_or_null);
            }
            continue;
        }
        done += moved;
        last_progress = std::time(nullptr);
        if (partial) {
            break;
        }
    }
    report(done_or_null, done);
    return 1;
}

// One attempt without waiting. Would-block is success with nothing moved; a
// receive that finds the peer closed fails without an error and leaves the
// session as it was.
int transfer_once(void *handle, const char *function, const Direction &direction, unsigned char *bytes,
                  int32_t length, int32_t *done_or_null) {
    int result = 0;
    Session *session = start_transfer(handle, function, direction, bytes, length, done_or_null, &result);
    if (session == nullptr) {
        return result;
    }
    size_t moved = 0;
    const int32_t error = direction.attempt(*session, bytes, static_cast<size_t>(length), false, &moved);
    if (error != 0 && !plat_socket_would_block(error)) {
        report(done_or_null, 0);
        return vq::net::raise_socket(error, direction.error_code);
    }
    report(done_or_null, moved);
    if (direction.receiving) {
        VQ_NET_TRACE("sl_net_recv_non_blocking - network gave %d bytes\n", static_cast<int>(moved));
        if (error == 0 && moved == 0) {
            return 0;
        }
    } else {
        VQ_NET_TRACE("sl_net_send_non_blocking : sent %d bytes\n", static_cast<int>(moved));
    }
    return 1;
}

// Hook routine index of a direction.
int hook_index(const Direction &direction) { return direction.receiving ? SL_NET_HOOK_RECV : SL_NET_HOOK_SEND; }

int dispatch(void *handle, const char *function, const Direction &direction, unsigned char *bytes, int32_t length,
             int32_t *done_or_null) {
    Session *session = ready_session(handle, function, direction);
    if (session == nullptr) {
        return 0;
    }
    const sl_net_hook_routine hook = session->hooks[hook_index(direction)];
    if (session->hook_state != 0 && hook != nullptr) {
        return hook(handle, bytes, length, done_or_null);
    }
    switch (session->io_mode) {
        case SL_NET_IO_ASYNC:
            return direction.receiving ? sl_net_recv_async(handle, bytes, length, done_or_null)
                                       : sl_net_send_async(handle, bytes, length, done_or_null);
        case SL_NET_IO_NON_BLOCKING:
            return transfer_once(handle, function, direction, bytes, length, done_or_null);
        default:
            return transfer_sync(handle, function, direction, bytes, length, done_or_null);
    }
}

// A send never writes to its buffer: the cast only lets both directions
// share one loop.
unsigned char *send_bytes(const void *buffer) { return static_cast<unsigned char *>(const_cast<void *>(buffer)); }

}  // namespace

VQ_API int sl_net_send(void *session, const void *buffer, int32_t length, int32_t *sent_or_null) {
    return dispatch(session, __func__, kSend, send_bytes(buffer), length, sent_or_null);
}

VQ_API int sl_net_recv(void *session, void *buffer, int32_t length, int32_t *received_or_null) {
    return dispatch(session, __func__, kRecv, static_cast<unsigned char *>(buffer), length, received_or_null);
}

VQ_API int sl_net_send_sync(void *session, const void *buffer, int32_t length, int32_t *sent_or_null) {
    return transfer_sync(session, __func__, kSend, send_bytes(buffer), length, sent_or_null);
}

VQ_API int sl_net_recv_sync(void *session, void *buffer, int32_t length, int32_t *received_or_null) {
    return transfer_sync(session, __func__, kRecv, static_cast<unsigned char *>(buffer), length, received_or_null);
}

VQ_API int sl_net_recv_available(void *session, void *buffer, int32_t length, int32_t *received_or_null) {
    return transfer_sync(session, __func__, kRecvFirst, static_cast<unsigned char *>(buffer), length,
                         received_or_null);
}

VQ_API int sl_net_peek(void *session, void *buffer, int32_t length, int32_t *received_or_null) {
    return transfer_sync(session, __func__, kPeek, static_cast<unsigned char *>(buffer), length, received_or_null);
}

VQ_API int sl_net_send_non_blocking(void *session, const void *buffer, int32_t length, int32_t *sent_or_null) {
    return transfer_once(session, __func__, kSend, send_bytes(buffer), length, sent_or_null);
}

VQ_API int sl_net_recv_non_blocking(void *session, void *buffer, int32_t length, int32_t *received_or_null) {
    return transfer_once(session, __func__, kRecv, static_cast<unsigned char *>(buffer), length, received_or_null);
}

VQ_API int sl_net_send_async(void *, const void *, int32_t, int32_t *) {
    VQ_NET_TRACE("sl_net_send_async - must be a mistake\n");
    return 0;
}

VQ_API int sl_net_recv_async(void *, void *, int32_t, int32_t *) {
    VQ_NET_TRACE("sl_net_recv_async - must be a mistake\n");
    return 0;
}
