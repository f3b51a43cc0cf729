// The network session and what the files of the network module share:
// the entry check of a session handle, the raising of socket errors and the
// trace channel.
#pragma once

#include <cstdint>
#include <string>

#include "internal/handle_tag.h"
#include "internal/trace.h"
#include "platform/platform.h"
#include "vq_glob/sl_net.h"

namespace vq::net {

inline constexpr int32_t kActive = 1;
inline constexpr int32_t kInactive = 0;
inline constexpr int32_t kHookCount = 2;

struct Session {
    tag::HandleTag tag{tag::Kind::net_session};

    int32_t state = kInactive;
    int32_t io_mode = SL_NET_IO_SYNC;
    int32_t protocol = SL_NET_TCP;
    uint16_t port = 0;             // host order
    uint32_t remote_address = 0;   // network order
    uint32_t bind_address = 0;     // network order; 0 binds every address
    uint32_t peer_address = 0;     // network order, set by an accept
    std::string remote_host;       // empty: none
    std::string bind_host;         // empty: none
    PlatSocket socket = kPlatNoSocket;
    // Set once the socket was saved for another process: closing it then
    // must not shut the connection down under the process that took it.
    bool handed_over = false;
    uint32_t flags = SL_NET_FLAG_DEFAULT;
    std::string service;           // named in the connection-refused hint; empty: none

    int32_t hook_state = 0;
    void *hook_data = nullptr;
    sl_net_hook_routine hooks[kHookCount] = {nullptr, nullptr};
    // Called with the hook data when the socket goes, so that the layer
    // behind the hooks can end its stream and free its state.
    sl_net_hook_release hook_release = nullptr;
    // Asked by a selection group whether the layer holds received bytes
    // that its socket no longer shows.
    sl_net_hook_pending hook_pending = nullptr;
    // The layer whose state rides on the stream (empty: none); such a
    // session cannot be handed to another process.
    std::string stream_holder;

    int32_t connect_timeout = 0;   // seconds; 0 none
    int32_t send_timeout = 0;
    int32_t recv_timeout = 0;

    uint32_t user_context = 0;
    uint32_t user_flags = 0;
};

// The session behind a caller's pointer: null raises ERR_NET_BADSESS,
// another kind of handle (or a freed session) ERR_GEN_PARAMS naming function.
Session *checked(void *handle, const char *function);

// A new session of the given protocol in its starting state, or null with
// ERR_NET_MALLOC raised.
Session *new_session(int32_t protocol);

// Shuts the session's socket down (unless another process took it over)
// and closes it, if it has one, and marks the session inactive. A layer
// attached through the hooks is released first and its hooks removed.
void drop_socket(Session &session);

// Refuses (ERR_NET_HELD naming the holder) when a layer holds the session's
// stream, whose state cannot follow the socket into another process.
// Returns 1 when the stream is free.
int check_not_held(const Session &session);

// Pushes the system's text for a socket error, then code (which takes no
// arguments) on top. Returns 0, the failure status.
int raise_socket(int32_t socket_error, uint32_t code);
// Pushes code on top of the stack. Returns 0.
int raise(uint32_t code);

// Whether a protocol number is one the module knows.
inline bool valid_protocol(int32_t protocol) { return protocol == SL_NET_TCP || protocol == SL_NET_UDP; }

}  // namespace vq::net

#define VQ_NET_SESSION(handle) ::vq::net::checked((handle), __func__)
#define VQ_NET_TRACE(...) ::vq::debug::trace_bit(::vq::debug::kChannelNetwork, __VA_ARGS__)
