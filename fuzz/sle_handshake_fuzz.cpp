// The server side of a secure session's handshake meets whatever a client
// sends: the input is the client's bytes. They are written into one end of a
// socket pair whose writing side is then shut down, so the server always
// reaches the end of the data and never waits for more; the other end is the
// socket of a session that sle_attach starts the server's handshake on. The
// server's own answers go into the pair's buffer, which nobody reads.
//
// Besides running under the sanitizers (a leak of the TLS objects counts),
// the target checks what must hold whatever the input:
//  - the handshake ends, successfully or with 0 and its cause on the error
//    stack;
//  - a handshake that failed leaves the session without hooks, so a send
//    afterwards goes to the socket in the clear;
//  - a handshake that succeeded (a client would have to finish it) detaches.
//
// The certificates are made once at start-up in a temporary directory that
// is removed at exit. TLS comes from the system's libssl at run time; a
// process where it cannot be loaded stops at start-up rather than fuzzing
// nothing.
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "support/test_pki.h"
#include "vq_glob/err.h"
#include "vq_glob/sl_net.h"
#include "vq_glob/sle.h"

namespace {

namespace fs = std::filesystem;

// What goes down the connection at most: it must fit the socket buffer so
// that the whole input is written before the handshake starts.
constexpr size_t kMaxWire = 64 * 1024;

void check(bool condition, const char *what) {
    if (!condition) {
        std::fprintf(stderr, "sle_handshake_fuzz: %s\n%s\n", what, err_get_error_msg());
        std::abort();
    }
}

fs::path g_pki_dir;
void *g_server = nullptr;

void clean_up() {
    sle_free_context(&g_server);
    std::error_code ignored;
    fs::remove_all(g_pki_dir, ignored);
}

void *session_over(int fd) {
    void *session = nullptr;
    check(sl_net_allocate_handle(SL_NET_TCP, &session) == 1, "allocate session");
    check(sl_net_override_socket(session, fd) == 1, "override socket");
    // The writing side is shut down, so the handshake ends on the data; the
    // time-outs only guard a wait that would happen anyway.
    check(sl_net_set_recv_timeout(session, 2) == 1, "receive time-out");
    check(sl_net_set_send_timeout(session, 2) == 1, "send time-out");
    return session;
}

// After a failed handshake the session is the plain one it was: a send goes
// to the socket as it is. The handshake usually ends on the end of the data,
// which leaves the session inactive; it is made active again on the same
// socket. The probe is read back from the other end behind whatever the
// server wrote during the handshake.
void check_left_in_the_clear(void *session, int own, int peer) {
    static const char kProbe[] = "clear";
    sl_net_socket socket = SL_NET_NO_SOCKET;
    check(sl_net_get_socket(session, &socket) == 1, "get socket");
    if (socket != own) {
        return;  // the session let its socket go; nothing to send on
    }
    check(sl_net_override_socket(session, own) == 1, "reactivate the session");
    int32_t sent = 0;
    check(sl_net_send(session, kProbe, sizeof kProbe, &sent) == 1, "a send after a failed handshake");
    check(sent == static_cast<int32_t>(sizeof kProbe), "a short send after a failed handshake");
    char buffer[4096];
    size_t total = 0;
    char tail[sizeof kProbe] = {};
    for (ssize_t n; (n = recv(peer, buffer, sizeof buffer, MSG_DONTWAIT)) > 0;) {
        // Keep the last bytes seen: the probe comes last.
        for (ssize_t i = 0; i < n; ++i) {
            std::copy(tail + 1, tail + sizeof tail, tail);
            tail[sizeof tail - 1] = buffer[i];
        }
        total += static_cast<size_t>(n);
    }
    check(total >= sizeof kProbe && std::equal(tail, tail + sizeof tail, kProbe),
          "a send after a failed handshake did not go out in the clear");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    err_set_log_interactive(0);
    check(sl_net_init() == 1, "sl_net_init");
    check(sle_init() == 1, "TLS is not available (libssl.so.3)");
    char pattern[] = "/tmp/vq_sle_handshake_fuzz_XXXXXX";
    check(mkdtemp(pattern) != nullptr, "mkdtemp");
    g_pki_dir = pattern;
    std::atexit(clean_up);
    const vq::test::TestPki &pki = vq::test::make_test_pki(g_pki_dir);
    check(sle_allocate_context(&g_server, 1) == 1, "server context");
    check(sle_set_certificate(g_server, pki.server.cert.c_str(), pki.server.key.c_str()) == 1, "certificate");
    check(sle_set_ca_file(g_server, pki.ca.cert.c_str()) == 1, "CA file");
    err_clear_error_stack();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > kMaxWire) {
        return -1;  // not worth keeping: it would not fit the socket buffer
    }
    err_clear_error_stack();
    int fds[2];
    check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) == 0, "socketpair");
    const int buffer = 4 * static_cast<int>(kMaxWire);
    setsockopt(fds[0], SOL_SOCKET, SO_SNDBUF, &buffer, sizeof buffer);
    setsockopt(fds[0], SOL_SOCKET, SO_RCVBUF, &buffer, sizeof buffer);
    setsockopt(fds[1], SOL_SOCKET, SO_SNDBUF, &buffer, sizeof buffer);
    setsockopt(fds[1], SOL_SOCKET, SO_RCVBUF, &buffer, sizeof buffer);
    size_t written = 0;
    while (written < size) {
        const ssize_t n = send(fds[0], data + written, size - written, MSG_DONTWAIT | MSG_NOSIGNAL);
        check(n > 0, "the input does not fit the socket buffer");
        written += static_cast<size_t>(n);
    }
    shutdown(fds[0], SHUT_WR);

    void *session = session_over(fds[1]);
    const int attached = sle_attach(g_server, session);
    check(attached == 0 || attached == 1, "sle_attach returned neither 0 nor 1");
    if (attached == 1) {
        check(sle_detach(session) == 1, "sle_detach after a handshake that succeeded");
    } else {
        check(err_get_stack_depth() > 0, "a failed handshake left no cause on the error stack");
        check_left_in_the_clear(session, fds[1], fds[0]);
    }
    sl_net_free_handle(&session);
    close(fds[0]);
    err_clear_error_stack();
    return 0;
}
