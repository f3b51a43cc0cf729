// Network sessions: the subsystem, name resolution, allocation, the
// session's fields and its socket options.
#include "sl_net/session.h"

#include <climits>
#include <cstdio>
#include <cstring>
#include <new>

#include "internal/checked_handle.h"
#include "vq_glob/err.h"

namespace vq::net {

Session *checked(void *handle, const char *function) {
    if (handle == nullptr) {
        raise(ERR_NET_BADSESS);
        return nullptr;
    }
    return tag::checked<Session>(handle, tag::Kind::net_session, raise::Report::add, function, "session");
}

Session *new_session(int32_t protocol) {
    auto *session = new (std::nothrow) Session;
    if (session == nullptr) {
        raise(ERR_NET_MALLOC);
        return nullptr;
    }
    session->protocol = protocol;
    return session;
}

// The layer behind the hooks ends its stream while the socket is still
// there to carry its last words, then every trace of it goes.
void release_layer(Session &session) {
    const sl_net_hook_release release = session.hook_release;
    session.hook_release = nullptr;
    if (release != nullptr) {
        release(&session, session.hook_data);
    }
    session.hook_state = 0;
    session.hook_data = nullptr;
    session.hooks[SL_NET_HOOK_SEND] = nullptr;
    session.hooks[SL_NET_HOOK_RECV] = nullptr;
    session.hook_pending = nullptr;
    session.stream_holder.clear();
}

void drop_socket(Session &session) {
    if (session.hook_release != nullptr) {
        release_layer(session);
    }
    if (session.socket != kPlatNoSocket) {
        if (!session.handed_over) {
            plat_socket_shutdown(session.socket);
        }
        plat_socket_close(session.socket);
        session.socket = kPlatNoSocket;
    }
    session.handed_over = false;
    session.state = kInactive;
}

int check_not_held(const Session &session) {
    if (session.stream_holder.empty()) {
        return 1;
    }
    err_add_error(ERR_NET_HELD, session.stream_holder.c_str());
    return 0;
}

int raise_socket(int32_t socket_error, uint32_t code) {
    err_add_system_error(socket_error);
    return raise(code);
}

int raise(uint32_t code) {
    err_add_error(code);
    return 0;
}

}  // namespace vq::net

namespace {

using vq::net::Session;

// The symbolic explanation of a WSAStartup result.
const char *startup_error_name(int32_t code) {
    switch (code) {
        case 10091:
            return "WSASYSNOTREADY-Indicates that the underlying network subsystem is not ready for network "
                   "communication";
        case 10092:
            return "WSAVERNOTSUPPORTED-The version of Windows Sockets support requested is not provided by this "
                   "particular Windows Sockets implementation";
        case 10036:
            return "WSAEINPROGRESS-A blocking Windows Sockets 1.1 operation is in progress";
        case 10067:
            return "WSAEPROCLIM-Limit on the number of tasks supported by the Windows Sockets implementation has "
                   "been reached";
        case 10014:
            return "WSAEFAULT-The lpWSAData is not a valid pointer";
        default:
            return "Unknown";
    }
}

// A dotted quad of four decimal numbers 0..255 and nothing else, as an
// address in network order.
bool parse_dotted_quad(const char *text, uint32_t *address) {
    unsigned char bytes[4];
    const char *at = text;
    for (int part = 0; part < 4; ++part) {
        if (part > 0 && *at++ != '.') {
            return false;
        }
        unsigned value = 0;
        int digits = 0;
        while (*at >= '0' && *at <= '9' && digits < 4) {
            value = value * 10 + static_cast<unsigned>(*at++ - '0');
            ++digits;
        }
        if (digits == 0 || digits > 3 || value > 255) {
            return false;
        }
        bytes[part] = static_cast<unsigned char>(value);
    }
    if (*at != '\0') {
        return false;
    }
    std::memcpy(address, bytes, sizeof bytes);
    return true;
}

// Copies text into target; a null or empty text clears it.
int copy_text(std::string &target, const char *text) {
    try {
        target.assign(text == nullptr ? "" : text);
    } catch (const std::bad_alloc &) {
        return vq::net::raise(ERR_NET_MALLOC);
    }
    return 1;
}

// The session of an option setter, which requires an active one.
Session *active(void *handle, const char *function) {
    Session *session = vq::net::checked(handle, function);
    if (session != nullptr && session->state != vq::net::kActive) {
        vq::net::raise(ERR_NET_NOTACT);
        return nullptr;
    }
    return session;
}

int set_option(void *handle, const char *function, PlatSocketOption option, int32_t value) {
    Session *session = active(handle, function);
    if (session == nullptr) {
        return 0;
    }
    if (value < 0) {
        return vq::net::raise(ERR_NET_BADPTR);
    }
    const int32_t error = plat_socket_set_option(session->socket, option, value);
    return error == 0 ? 1 : vq::net::raise_socket(error, ERR_NET_BADPTR);
}

// Stores a send or receive time-out and puts it on the socket; a time-out
// of 0 or less takes the socket's own time-out away again.
int set_timeout(void *handle, const char *function, int32_t Session::*field, PlatSocketOption option,
                int32_t seconds) {
    Session *session = active(handle, function);
    if (session == nullptr) {
        return 0;
    }
    session->*field = seconds;
    const int32_t whole = seconds > 0 ? seconds : 0;
    const int32_t milliseconds = whole > INT32_MAX / 1000 ? INT32_MAX / 1000 * 1000 : whole * 1000;
    const int32_t error = plat_socket_set_option(session->socket, option, milliseconds);
    return error == 0 ? 1 : vq::net::raise_socket(error, ERR_NET_BADPTR);
}

template <typename T>
int get_field(void *handle, const char *function, T Session::*field, T *out) {
    Session *session = vq::net::checked(handle, function);
    if (session == nullptr) {
        return 0;
    }
    if (out == nullptr) {
        return vq::net::raise(ERR_NET_BADPTR);
    }
    *out = session->*field;
    return 1;
}

template <typename T>
int set_field(void *handle, const char *function, T Session::*field, T value) {
    Session *session = vq::net::checked(handle, function);
    if (session == nullptr) {
        return 0;
    }
    session->*field = value;
    return 1;
}

// Copies text with its NUL into buffer of size bytes; a text that does not
// fit fails with ERR_NET_BADPTR rather than arriving cut short.
int copy_out(const std::string &text, char *buffer, int32_t size) {
    if (buffer == nullptr || size < 1) {
        return vq::net::raise(ERR_NET_BADPTR);
    }
    if (text.size() >= static_cast<size_t>(size)) {
        buffer[0] = '\0';
        return vq::net::raise(ERR_NET_BADPTR);
    }
    std::memcpy(buffer, text.c_str(), text.size() + 1);
    return 1;
}

// A text field for a look-up getter: 0 without an error when it is empty.
int get_text(void *handle, const char *function, std::string Session::*field, char *buffer, int32_t size) {
    Session *session = vq::net::checked(handle, function);
    if (session == nullptr) {
        return 0;
    }
    if (copy_out(session->*field, buffer, size) != 1) {
        return 0;
    }
    return (session->*field).empty() ? 0 : 1;
}

}  // namespace

// ---- The subsystem ----------------------------------------------------------------

VQ_API int sl_net_init(void) {
    const int32_t code = plat_net_startup();
    if (code == 0) {
        return 1;
    }
    char text[512];
    std::snprintf(text, sizeof text, "WSAStartup Failed return code was %s (%d)\n", startup_error_name(code),
                  static_cast<int>(code));
    err_add_text_error(text);
    return 0;
}

VQ_API int sl_net_clean(void) {
    const int32_t error = plat_net_cleanup();
    if (error != 0) {
        err_add_system_error(error);
        return 0;
    }
    return 1;
}

VQ_API int sl_net_resolve_hostname(const char *name, uint32_t *address) {
    if (name == nullptr || address == nullptr) {
        return vq::net::raise(ERR_NET_BADPTR);
    }
    if (parse_dotted_quad(name, address)) {
        return 1;
    }
    if (*name == '\0' || plat_net_lookup_host(name, address) != 0) {
        err_add_error(ERR_NET_RESHOST, name);
        return 0;
    }
    return 1;
}

VQ_API int sl_net_resolve_service(const char *name, int32_t protocol, uint16_t *port) {
    if (name == nullptr || port == nullptr) {
        return vq::net::raise(ERR_NET_BADPTR);
    }
    if (!vq::net::valid_protocol(protocol)) {
        return vq::net::raise(ERR_NET_BADPROT);
    }
    const int32_t error = plat_net_lookup_service(name, protocol, port);
    if (error != 0) {
        return vq::net::raise_socket(error, ERR_NET_NOSERVICE);
    }
    VQ_NET_TRACE("resulting port is %d\n", static_cast<int>(*port));
    return 1;
}

// ---- Sessions ---------------------------------------------------------------------

VQ_API int sl_net_allocate_handle(int32_t protocol, void **session) {
    if (session == nullptr) {
        return vq::net::raise(ERR_NET_BADPTR);
    }
    *session = nullptr;
    if (!vq::net::valid_protocol(protocol)) {
        return vq::net::raise(ERR_NET_BADPROT);
    }
    *session = vq::net::new_session(protocol);
    return *session != nullptr ? 1 : 0;
}

VQ_API int sl_net_free_handle(void **session) {
    if (session == nullptr) {
        return vq::net::raise(ERR_NET_BADPTR);
    }
    Session *own = VQ_NET_SESSION(*session);
    if (own == nullptr) {
        return 0;
    }
    vq::net::drop_socket(*own);
    delete own;
    *session = nullptr;
    return 1;
}

VQ_API int sl_net_set_protocol(void *session, int32_t protocol) {
    Session *own = VQ_NET_SESSION(session);
    if (own == nullptr) {
        return 0;
    }
    if (!vq::net::valid_protocol(protocol)) {
        return vq::net::raise(ERR_NET_BADPROT);
    }
    own->protocol = protocol;
    return 1;
}

VQ_API int sl_net_set_io_mode(void *session, int32_t mode) {
    Session *own = VQ_NET_SESSION(session);
    if (own == nullptr) {
        return 0;
    }
    if (mode < SL_NET_IO_SYNC || mode > SL_NET_IO_NON_BLOCKING) {
        return vq::net::raise(ERR_NET_BADIO);
    }
    own->io_mode = mode;
    return 1;
}

VQ_API int sl_net_set_flags(void *session, uint32_t flags) {
    return set_field(session, __func__, &Session::flags, flags);
}

VQ_API int sl_net_add_flags(void *session, uint32_t flags) {
    Session *own = VQ_NET_SESSION(session);
    if (own == nullptr) {
        return 0;
    }
    own->flags |= flags;
    return 1;
}

VQ_API int sl_net_clear_flags(void *session, uint32_t flags) {
    Session *own = VQ_NET_SESSION(session);
    if (own == nullptr) {
        return 0;
    }
    own->flags &= ~flags;
    return 1;
}

VQ_API int sl_net_get_flags(void *session, uint32_t *flags) {
    return get_field(session, __func__, &Session::flags, flags);
}

VQ_API int sl_net_set_svc_name(void *session, const char *name) {
    Session *own = VQ_NET_SESSION(session);
    return own == nullptr ? 0 : copy_text(own->service, name);
}

VQ_API int sl_net_set_connect_timeout(void *session, int32_t seconds) {
    Session *own = VQ_NET_SESSION(session);
    if (own == nullptr) {
        return 0;
    }
    if (seconds >= 0) {
        own->connect_timeout = seconds;
    }
    return 1;
}

VQ_API int sl_net_get_connect_timeout(void *session, int32_t *seconds) {
    return get_field(session, __func__, &Session::connect_timeout, seconds);
}

VQ_API int sl_net_get_send_timeout(void *session, int32_t *seconds) {
    return get_field(session, __func__, &Session::send_timeout, seconds);
}

VQ_API int sl_net_get_recv_timeout(void *session, int32_t *seconds) {
    return get_field(session, __func__, &Session::recv_timeout, seconds);
}

VQ_API int sl_net_get_remote_host(void *session, char *buffer, int32_t size) {
    return get_text(session, __func__, &Session::remote_host, buffer, size);
}

VQ_API int sl_net_set_remote_info(void *session, int32_t info_type, const sl_net_remote_info *info) {
    Session *own = VQ_NET_SESSION(session);
    if (own == nullptr) {
        return 0;
    }
    if (info_type != 0) {
        return vq::net::raise(ERR_NET_BADINFO);
    }
    if (info == nullptr) {
        return vq::net::raise(ERR_NET_BADPTR);
    }
    if (info->host == nullptr || *info->host == '\0') {
        return vq::net::raise(ERR_NET_NOHOST);
    }
    uint32_t address = 0;
    if (sl_net_resolve_hostname(info->host, &address) != 1) {
        return 0;
    }
    // The service decides the port when it resolves; the given port is the
    // fallback, so a service this system does not know is no error while a
    // port was given too.
    uint16_t port = info->port;
    int32_t lookup_error = 0;
    const bool has_service = info->service != nullptr && *info->service != '\0';
    if (has_service) {
        uint16_t service_port = 0;
        lookup_error = plat_net_lookup_service(info->service, own->protocol, &service_port);
        if (lookup_error == 0) {
            port = service_port;
        }
    }
    if (port == 0) {
        if (lookup_error != 0) {
            err_add_system_error(lookup_error);
        }
        err_add_error(ERR_NET_SERUNK, has_service ? info->service : "");
        return 0;
    }
    if (copy_text(own->remote_host, info->host) != 1) {
        return 0;
    }
    own->remote_address = address;
    own->port = port;
    VQ_NET_TRACE("sl_net_set_remote_info: host <%s> port %d\n", info->host, static_cast<int>(port));
    return 1;
}

// ---- Socket options ----------------------------------------------------------------

VQ_API int sl_net_set_send_buffer_size(void *session, int32_t bytes) {
    return set_option(session, __func__, PlatSocketOption::send_buffer, bytes);
}

VQ_API int sl_net_set_recv_buffer_size(void *session, int32_t bytes) {
    return set_option(session, __func__, PlatSocketOption::recv_buffer, bytes);
}

VQ_API int sl_net_set_send_timeout(void *session, int32_t seconds) {
    return set_timeout(session, __func__, &Session::send_timeout, PlatSocketOption::send_timeout_ms, seconds);
}

VQ_API int sl_net_set_recv_timeout(void *session, int32_t seconds) {
    return set_timeout(session, __func__, &Session::recv_timeout, PlatSocketOption::recv_timeout_ms, seconds);
}

VQ_API int sl_net_set_nolinger(void *session) {
    Session *own = active(session, __func__);
    if (own == nullptr) {
        return 0;
    }
    const int32_t error = plat_socket_set_no_linger(own->socket);
    return error == 0 ? 1 : vq::net::raise_socket(error, ERR_NET_BADPTR);
}

VQ_API int sl_net_set_reuseaddr(void *session) {
    return set_option(session, __func__, PlatSocketOption::reuse_address, 1);
}

// ---- Hooks -------------------------------------------------------------------------

VQ_API int sl_net_set_hook_state(void *session, int32_t on) {
    return set_field(session, __func__, &Session::hook_state, on != 0 ? 1 : 0);
}

VQ_API int sl_net_set_hook_routine(void *session, int32_t index, sl_net_hook_routine routine) {
    Session *own = VQ_NET_SESSION(session);
    if (own == nullptr) {
        return 0;
    }
    if (index < 0 || index >= vq::net::kHookCount) {
        err_add_error(ERR_NET_INVHC, static_cast<int>(index));
        return 0;
    }
    own->hooks[index] = routine;
    return 1;
}

VQ_API int sl_net_set_hook_data(void *session, void *data) {
    return set_field(session, __func__, &Session::hook_data, data);
}

VQ_API int sl_net_get_hook_data(void *session, void **data) {
    return get_field(session, __func__, &Session::hook_data, data);
}

VQ_API int sl_net_set_hook_release(void *session, sl_net_hook_release routine) {
    return set_field(session, __func__, &Session::hook_release, routine);
}

VQ_API int sl_net_set_hook_pending(void *session, sl_net_hook_pending routine) {
    return set_field(session, __func__, &Session::hook_pending, routine);
}

VQ_API int sl_net_set_stream_holder(void *session, const char *holder) {
    Session *own = VQ_NET_SESSION(session);
    return own == nullptr ? 0 : copy_text(own->stream_holder, holder);
}

VQ_API int sl_net_get_stream_holder(void *session, char *buffer, int32_t size) {
    return get_text(session, __func__, &Session::stream_holder, buffer, size);
}

// ---- Session fields ----------------------------------------------------------------

VQ_API int sl_net_get_socket(void *session, sl_net_socket *socket) {
    return get_field(session, __func__, &Session::socket, socket);
}

VQ_API int sl_net_override_socket(void *session, sl_net_socket socket) {
    Session *own = VQ_NET_SESSION(session);
    if (own == nullptr) {
        return 0;
    }
    if (own->socket != socket) {
        vq::net::drop_socket(*own);
    }
    own->socket = socket;
    own->state = vq::net::kActive;
    return 1;
}

VQ_API int sl_net_set_inactive(void *session) {
    return set_field(session, __func__, &Session::state, vq::net::kInactive);
}

VQ_API int sl_net_is_active(void *session) {
    Session *own = VQ_NET_SESSION(session);
    return own != nullptr && own->state == vq::net::kActive ? 1 : 0;
}

VQ_API int sl_net_get_peer_address(void *session, uint32_t *address) {
    return get_field(session, __func__, &Session::peer_address, address);
}

VQ_API int sl_net_get_local_port(void *session, uint16_t *port) {
    Session *own = VQ_NET_SESSION(session);
    if (own == nullptr) {
        return 0;
    }
    if (port == nullptr) {
        return vq::net::raise(ERR_NET_BADPTR);
    }
    if (own->socket == kPlatNoSocket) {
        return vq::net::raise(ERR_NET_NOTACT);
    }
    const int32_t error = plat_socket_local_port(own->socket, port);
    return error == 0 ? 1 : vq::net::raise_socket(error, ERR_NET_BIND);
}

VQ_API int sl_net_set_user_context(void *session, uint32_t context) {
    return set_field(session, __func__, &Session::user_context, context);
}

VQ_API int sl_net_get_user_context(void *session, uint32_t *context) {
    return get_field(session, __func__, &Session::user_context, context);
}

VQ_API int sl_net_set_user_flags(void *session, uint32_t flags) {
    return set_field(session, __func__, &Session::user_flags, flags);
}

VQ_API int sl_net_get_user_flags(void *session, uint32_t *flags) {
    return get_field(session, __func__, &Session::user_flags, flags);
}
