// Connections: connect with its time-out and hints, disconnect, bind,
// listen and accept.
#include <cstdio>
#include <new>

#include "sl_net/session.h"
#include "vq_glob/err.h"

namespace {

using vq::net::Session;

// A fresh socket of the session's protocol in place of any it had.
int create_socket(Session &session) {
    vq::net::drop_socket(session);
    const int32_t error = plat_socket_open(session.protocol, &session.socket);
    if (error != 0) {
        session.socket = kPlatNoSocket;
        return vq::net::raise_socket(error, ERR_NET_CRESOCK);
    }
    return 1;
}

// The line that tells the operator what to check, under the socket error of
// a connection that was refused or ran out of time.
void push_hint(const Session &session, int32_t error, bool timed_out) {
    char hint[1024];
    if (timed_out || plat_socket_is_timed_out(error)) {
        std::snprintf(hint, sizeof hint, "> Make sure port %d is open for connection to \"%s\"",
                      static_cast<int>(session.port), session.remote_host.c_str());
    } else if (plat_socket_is_refused(error)) {
        std::snprintf(hint, sizeof hint, "> Make sure \"%s\" is started on \"%s\", listening to port %d",
                      session.service.empty() ? "server" : session.service.c_str(), session.remote_host.c_str(),
                      static_cast<int>(session.port));
    } else {
        return;
    }
    err_add_text_error(hint);
}

int connect_failed(Session &session, int32_t error, bool timed_out) {
    push_hint(session, error, timed_out);
    err_add_system_error(error);
    if (timed_out) {
        err_add_error(ERR_TV_CONNTO, static_cast<int>(session.connect_timeout));
    }
    err_add_error(ERR_NET_CONNF);
    vq::net::drop_socket(session);
    return 0;
}

}  // namespace

VQ_API int sl_net_connect(void *session) {
    Session *own = VQ_NET_SESSION(session);
    if (own == nullptr) {
        return 0;
    }
    if (own->remote_host.empty()) {
        return vq::net::raise(ERR_NET_NOHOST);
    }
    if (create_socket(*own) != 1) {
        return 0;
    }
    bool timed_out = false;
    const int32_t error =
        plat_socket_connect(own->socket, own->remote_address, own->port, own->connect_timeout, &timed_out);
    if (error != 0) {
        VQ_NET_TRACE("sl_net_connect: connection to <%s> port %d failed (%d)\n", own->remote_host.c_str(),
                     static_cast<int>(own->port), static_cast<int>(error));
        return connect_failed(*own, error, timed_out);
    }
    own->state = vq::net::kActive;
    VQ_NET_TRACE("sl_net_connect: connected to <%s> port %d\n", own->remote_host.c_str(), static_cast<int>(own->port));
    return 1;
}

VQ_API int sl_net_disconnect(void *session) {
    Session *own = VQ_NET_SESSION(session);
    if (own == nullptr) {
        return 0;
    }
    vq::net::drop_socket(*own);
    return 1;
}

VQ_API int sl_net_abort(void *session) {
    Session *own = VQ_NET_SESSION(session);
    if (own == nullptr) {
        return 0;
    }
    // Only the shutdown: closing would free the descriptor number under the
    // blocked thread, and the system could hand it to another file.
    if (own->socket != kPlatNoSocket) {
        plat_socket_shutdown(own->socket);
    }
    return 1;
}

VQ_API int sl_net_bind(void *session, const char *host_or_null, uint16_t port) {
    Session *own = VQ_NET_SESSION(session);
    if (own == nullptr) {
        return 0;
    }
    uint32_t address = 0;
    const bool has_host = host_or_null != nullptr && *host_or_null != '\0';
    if (has_host && sl_net_resolve_hostname(host_or_null, &address) != 1) {
        return vq::net::raise(ERR_NET_BIND);
    }
    try {
        own->bind_host.assign(has_host ? host_or_null : "");
    } catch (const std::bad_alloc &) {
        return vq::net::raise(ERR_NET_MALLOC);
    }
    own->bind_address = address;
    own->port = port;
    if (create_socket(*own) != 1) {
        return 0;
    }
    int32_t error = plat_socket_set_option(own->socket, PlatSocketOption::reuse_address, 1);
    if (error == 0) {
        error = plat_socket_bind(own->socket, address, port);
    }
    if (error != 0) {
        vq::net::drop_socket(*own);
        return vq::net::raise_socket(error, ERR_NET_BIND);
    }
    VQ_NET_TRACE("sl_net_bind: bound to <%s> port %d\n", has_host ? host_or_null : "*", static_cast<int>(port));
    return 1;
}

VQ_API int sl_net_listen(void *session, int32_t backlog) {
    Session *own = VQ_NET_SESSION(session);
    if (own == nullptr) {
        return 0;
    }
    if (own->socket == kPlatNoSocket) {
        vq::net::raise(ERR_NET_NOTACT);
        return vq::net::raise(ERR_NET_LISTEN);
    }
    const int32_t error = plat_socket_listen(own->socket, backlog);
    return error == 0 ? 1 : vq::net::raise_socket(error, ERR_NET_LISTEN);
}

VQ_API int sl_net_accept(void *listening, void **new_session) {
    Session *listener = VQ_NET_SESSION(listening);
    if (listener == nullptr) {
        return 0;
    }
    if (new_session == nullptr) {
        return vq::net::raise(ERR_NET_BADPTR);
    }
    *new_session = nullptr;
    if (listener->socket == kPlatNoSocket) {
        vq::net::raise(ERR_NET_NOTACT);
        return vq::net::raise(ERR_NET_ACCEPT);
    }
    PlatSocket accepted = kPlatNoSocket;
    uint32_t peer = 0;
    const int32_t error = plat_socket_accept(listener->socket, &accepted, &peer);
    if (error != 0) {
        return vq::net::raise_socket(error, ERR_NET_ACCEPT);
    }
    Session *session = vq::net::new_session(listener->protocol);
    if (session == nullptr) {
        plat_socket_close(accepted);
        return vq::net::raise(ERR_NET_ACCEPT);
    }
    session->socket = accepted;
    session->peer_address = peer;
    session->state = vq::net::kActive;
    *new_session = session;
    VQ_NET_TRACE("sl_net_accept: new session\n");
    return 1;
}
