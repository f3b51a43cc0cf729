// Attaching TLS to a session and taking it off again: the handshake with the
// checks of the peer's certificate, the hooks, close_notify.
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "internal/checked_handle.h"
#include "sle/tls_state.h"
#include "vq_glob/err.h"
#include "vq_glob/sl_net.h"
#include "vq_glob/sle.h"

namespace vq::sle {

Tls *attached_tls(void *session) {
    void *data = nullptr;
    if (sl_net_get_hook_data(session, &data) != 1) {
        return nullptr;
    }
    Tls *tls = const_cast<Tls *>(tag::as<Tls>(data, kTlsKind));
    if (tls == nullptr) {
        err_add_error(ERR_SLE_NOTATTACHED);
    }
    return tls;
}

bool certificate_digest(X509Cert *cert, unsigned char (&digest)[kSha256Size]) {
    const Api &ssl = api();
    unsigned size = 0;
    return ssl.X509_digest(cert, ssl.EVP_sha256(), digest, &size) == 1 && size == kSha256Size;
}

}  // namespace vq::sle

namespace {

using vq::raise::Report;
using vq::sle::Api;
using vq::sle::Checks;
using vq::sle::Context;
using vq::sle::Refusal;
using vq::sle::Tls;

// The ex-data slot of a connection object that points to its Tls (slot 0 is
// the application's own, which nothing else in the process can see).
constexpr int kTlsSlot = 0;
// The receive time-out of a handshake or a close on a session without one:
// a peer that never answers must not hold the caller for ever.
constexpr int32_t kDefaultTimeout = 60;

void destroy(Tls *tls) {
    if (tls != nullptr) {
        if (tls->ssl != nullptr) {
            vq::sle::api().SSL_free(tls->ssl);  // frees the BIO too
        }
        delete tls;
    }
}

struct Destroy {
    void operator()(Tls *tls) const { destroy(tls); }
};
using TlsPtr = std::unique_ptr<Tls, Destroy>;

// ---- Verification of the peer ------------------------------------------------------

bool matches_pin(const Checks &checks, vq::sle::X509Cert *cert) {
    unsigned char digest[vq::sle::kSha256Size];
    return cert != nullptr && vq::sle::certificate_digest(cert, digest) &&
           std::memcmp(digest, checks.pin, sizeof digest) == 0;
}

// An address (IPv4 or IPv6) is looked for among the certificate's IP
// addresses, anything else among its DNS names (or its common name when it
// has none).
bool names_host(vq::sle::X509Cert *cert, const std::string &host) {
    const Api &ssl = vq::sle::api();
    int result = ssl.X509_check_ip_asc(cert, host.c_str(), 0);
    if (result == -2) {  // not an address
        result = ssl.X509_check_host(cert, host.data(), host.size(), 0, nullptr);
    }
    return result == 1;
}

int refuse(Tls &tls, vq::sle::X509StoreCtx *store, Refusal refusal, int error) {
    tls.refusal = refusal;
    vq::sle::api().X509_STORE_CTX_set_error(store, error);
    return 0;
}

// Called by OpenSSL for every certificate of the peer's chain, from the top
// down to the peer's own at depth 0, and for every fault found on the way;
// its answer decides.
int verify_peer(int ok, vq::sle::X509StoreCtx *store) {
    const Api &ssl = vq::sle::api();
    auto *connection =
        static_cast<vq::sle::Ssl *>(ssl.X509_STORE_CTX_get_ex_data(store, ssl.SSL_get_ex_data_X509_STORE_CTX_idx()));
    Tls *tls = connection != nullptr ? static_cast<Tls *>(ssl.SSL_get_ex_data(connection, kTlsSlot)) : nullptr;
    if (tls == nullptr) {
        return 0;
    }
    const int depth = ssl.X509_STORE_CTX_get_error_depth(store);
    if (tls->checks.pinned) {
        if (depth > 0 || matches_pin(tls->checks, ssl.X509_STORE_CTX_get_current_cert(store))) {
            return 1;
        }
        return refuse(*tls, store, Refusal::pin, vq::sle::kX509ErrApplication);
    }
    if (!tls->checks.verify) {
        return 1;
    }
    if (ok == 0) {
        const int error = ssl.X509_STORE_CTX_get_error(store);
        tls->reason = ssl.X509_verify_cert_error_string(error);
        tls->refusal = Refusal::verify;
        return 0;
    }
    if (depth == 0 && tls->checks.role == vq::sle::kClient &&
        !names_host(ssl.X509_STORE_CTX_get_current_cert(store), tls->host)) {
        return refuse(*tls, store, Refusal::host, vq::sle::kX509ErrHostnameMismatch);
    }
    return 1;
}

// ---- Setting a session up ------------------------------------------------------------

// The peer as messages name it: the remote host name, else the address an
// accept recorded.
std::string peer_label(void *session) {
    char host[1024];
    if (sl_net_get_remote_host(session, host, sizeof host) == 1) {
        return host;
    }
    uint32_t address = 0;
    if (sl_net_get_peer_address(session, &address) == 1 && address != 0) {
        const auto *b = reinterpret_cast<const unsigned char *>(&address);
        char text[16];
        std::snprintf(text, sizeof text, "%u.%u.%u.%u", b[0], b[1], b[2], b[3]);
        return text;
    }
    return "peer";
}

// Whether a host is an IP address, which a client must not name in SNI.
bool is_address(const std::string &host) {
    return host.find(':') != std::string::npos ||
           host.find_first_not_of("0123456789.") == std::string::npos;
}

// The name the server's certificate must carry: the expected host, else the
// session's remote host name. Empty when the certificate is not checked
// against a name (a server, a pin, verification off).
bool choose_host(Tls &tls) {
    if (tls.checks.role != vq::sle::kClient || tls.checks.pinned || !tls.checks.verify) {
        return true;
    }
    if (!tls.checks.expected_host.empty()) {
        tls.host = tls.checks.expected_host;
        return true;
    }
    char host[1024];
    if (sl_net_get_remote_host(tls.session, host, sizeof host) != 1) {
        err_add_error(ERR_SLE_NOHOST);
        return false;
    }
    tls.host = host;
    return true;
}

// The TLS state of a new connection from context on session, or null with
// the reason raised.
TlsPtr make_tls(Context &context, void *session) {
    const Api &ssl = vq::sle::api();
    TlsPtr tls(new (std::nothrow) Tls);
    if (!tls) {
        VQ_NO_MEMORY(Report::add, "sle");
        return nullptr;
    }
    tls->session = session;
    try {
        std::lock_guard<std::mutex> hold(context.lock);
        tls->checks = context.checks;
        tls->ssl = ssl.SSL_new(context.ctx);
        tls->label = peer_label(session);
    } catch (const std::bad_alloc &) {
        VQ_NO_MEMORY(Report::add, "sle");
        return nullptr;
    }
    vq::sle::Bio *bio = tls->ssl != nullptr ? ssl.BIO_new(vq::sle::loaded().bio_method) : nullptr;
    if (bio == nullptr) {
        vq::sle::push_error_queue();
        err_add_error(ERR_SLE_CONTEXT, "no TLS connection could be made");
        return nullptr;
    }
    ssl.BIO_set_data(bio, tls.get());
    ssl.BIO_set_init(bio, 1);
    ssl.SSL_set_bio(tls->ssl, bio, bio);
    ssl.SSL_set_ex_data(tls->ssl, kTlsSlot, tls.get());
    const int mode = vq::sle::kVerifyPeer | (tls->checks.require_certificate ? vq::sle::kVerifyFailIfNoPeerCert : 0);
    ssl.SSL_set_verify(tls->ssl, mode, verify_peer);
    if (!choose_host(*tls)) {
        return nullptr;
    }
    if (tls->checks.role == vq::sle::kClient) {
        if (!tls->host.empty() && !is_address(tls->host)) {
            ssl.SSL_ctrl(tls->ssl, vq::sle::kCtrlSetTlsextHostname, vq::sle::kTlsextNametypeHostName,
                         const_cast<char *>(tls->host.c_str()));
        }
        ssl.SSL_set_connect_state(tls->ssl);
    } else {
        ssl.SSL_set_accept_state(tls->ssl);
    }
    return tls;
}

// Runs work with a receive time-out on the session: its own, or the default
// for as long as work runs when it has none.
template <typename Work>
int within_recv_timeout(void *session, Work work) {
    int32_t timeout = 0;
    sl_net_get_recv_timeout(session, &timeout);
    const bool borrowed = timeout <= 0 && sl_net_set_recv_timeout(session, kDefaultTimeout) == 1;
    const int result = work();
    if (borrowed && sl_net_is_active(session) == 1) {
        sl_net_set_recv_timeout(session, 0);
    }
    return result;
}

void report_handshake_failure(const Tls &tls) {
    const bool no_certificate = vq::sle::push_error_queue(vq::sle::kReasonNoPeerCertificate);
    err_add_error(ERR_SLE_HANDSHAKE, tls.label.c_str());
    switch (tls.refusal) {
        case Refusal::verify:
            err_add_error(ERR_SLE_VERIFY, tls.label.c_str(), tls.reason.c_str());
            break;
        case Refusal::host:
            err_add_error(ERR_SLE_HOSTMISMATCH, tls.host.c_str());
            break;
        case Refusal::pin:
            err_add_error(ERR_SLE_PINMISMATCH, tls.label.c_str());
            break;
        case Refusal::none:
            if (no_certificate) {
                err_add_error(ERR_SLE_NOPEERCERT);
            }
            break;
    }
}

void trace_peer(const Tls &tls) {
    const Api &ssl = vq::sle::api();
    VQ_SLE_TRACE("sle_attach: handshake with <%s> done: %s, %s\n", tls.label.c_str(), ssl.SSL_get_version(tls.ssl),
                 ssl.SSL_CIPHER_get_name(ssl.SSL_get_current_cipher(tls.ssl)));
    vq::sle::X509Cert *cert = ssl.SSL_get1_peer_certificate(tls.ssl);
    if (cert == nullptr) {
        VQ_SLE_TRACE("sle_attach: peer without a certificate\n");
        return;
    }
    std::string name;
    char fingerprint[SLE_FINGERPRINT_SIZE] = {0};
    vq::sle::common_name(cert, &name);
    vq::sle::fingerprint_hex(cert, fingerprint);
    VQ_SLE_TRACE("sle_attach: peer <%s> sha256 %s\n", name.c_str(), fingerprint);
    ssl.X509_free(cert);
}

bool handshake(Tls &tls) {
    const Api &ssl = vq::sle::api();
    ssl.ERR_clear_error();
    VQ_SLE_TRACE("sle_attach: handshake with <%s> as %s\n", tls.label.c_str(),
                 tls.checks.role == vq::sle::kClient ? "client" : "server");
    const int result = within_recv_timeout(tls.session, [&] { return ssl.SSL_do_handshake(tls.ssl); });
    if (result == 1 && vq::sle::flush_records(tls)) {
        return true;
    }
    tls.broken = true;
    report_handshake_failure(tls);
    VQ_SLE_TRACE("sle_attach: handshake with <%s> failed\n", tls.label.c_str());
    return false;
}

// Ends the TLS stream: sends close_notify unless the stream already broke,
// and with wait_for_peer also reads the peer's.
int close_stream(Tls &tls, bool wait_for_peer) {
    if (tls.broken || sl_net_is_active(tls.session) != 1) {
        return 1;
    }
    const Api &ssl = vq::sle::api();
    ssl.ERR_clear_error();
    // From here on records are read one by one, so that nothing after the
    // peer's close_notify (the plain bytes that may follow a detach) is
    // taken from the socket.
    ssl.SSL_ctrl(tls.ssl, vq::sle::kCtrlSetReadAhead, 0, nullptr);
    const int sent = ssl.SSL_shutdown(tls.ssl);
    // The close_notify may still wait in the record batch.
    if (!vq::sle::flush_records(tls)) {
        err_add_error(ERR_SLE_CLOSE, tls.label.c_str());
        return 0;
    }
    if (sent == 1 || (sent == 0 && !wait_for_peer)) {
        return 1;
    }
    long discarded = 0;
    const bool closed = sent == 0 && within_recv_timeout(tls.session, [&] {
        char scratch[4096];
        for (;;) {
            const int got = ssl.SSL_read(tls.ssl, scratch, sizeof scratch);
            if (got > 0) {
                discarded += got;
                continue;
            }
            return ssl.SSL_get_error(tls.ssl, got) == vq::sle::kSslErrorZeroReturn ? 1 : 0;
        }
    }) == 1;
    // Bytes read ahead past the close_notify could only come from a peer
    // that went on before it had this side's alert; they would be lost.
    const bool read_past = closed && ssl.SSL_has_pending(tls.ssl) != 0;
    if (!closed) {
        vq::sle::push_error_queue();
    } else if (discarded > 0) {
        char text[160];
        std::snprintf(text, sizeof text, "%ld bytes the peer sent before its close_notify were discarded",
                      discarded);
        err_add_text_error(text);
    } else if (read_past) {
        err_add_text_error("the peer sent bytes after its close_notify before it had this side's");
    }
    if (!closed || discarded > 0 || read_past) {
        err_add_error(ERR_SLE_CLOSE, tls.label.c_str());
        return 0;
    }
    return 1;
}

// The session goes while TLS is attached: a close_notify tells the peer the
// stream ended cleanly, and whatever it costs leaves the caller's error stack
// as it was (the session's end is no failure of the caller's).
void release_tls(void *, void *data) {
    Tls *tls = const_cast<Tls *>(vq::tag::as<Tls>(data, vq::sle::kTlsKind));
    if (tls == nullptr) {
        return;
    }
    void *entries = nullptr;
    int32_t size = 0;
    int32_t depth = 0;
    std::vector<unsigned char> saved;
    if (err_get_stack_desc(&entries, &size, &depth) == 1 && size > 0) {
        const auto *bytes = static_cast<const unsigned char *>(entries);
        saved.assign(bytes, bytes + size);
    }
    close_stream(*tls, false);
    destroy(tls);
    err_set_stack_desc(saved.data(), static_cast<int32_t>(saved.size()), depth);
}

bool install(void *session, Tls *tls) {
    return sl_net_set_hook_data(session, tls) == 1 &&
           sl_net_set_hook_routine(session, SL_NET_HOOK_SEND, vq::sle::hook_send) == 1 &&
           sl_net_set_hook_routine(session, SL_NET_HOOK_RECV, vq::sle::hook_recv) == 1 &&
           sl_net_set_hook_release(session, release_tls) == 1 &&
           sl_net_set_hook_pending(session, vq::sle::hook_pending) == 1 &&
           sl_net_set_stream_holder(session, vq::sle::kHolderName) == 1 && sl_net_set_hook_state(session, 1) == 1;
}

void uninstall(void *session) {
    sl_net_set_hook_release(session, nullptr);
    sl_net_set_hook_pending(session, nullptr);
    sl_net_set_hook_state(session, 0);
    sl_net_set_hook_routine(session, SL_NET_HOOK_SEND, nullptr);
    sl_net_set_hook_routine(session, SL_NET_HOOK_RECV, nullptr);
    sl_net_set_hook_data(session, nullptr);
    sl_net_set_stream_holder(session, nullptr);
}

// Whether the session is free for TLS: active, no hook data and no holder.
bool session_free(void *session) {
    void *data = nullptr;
    if (sl_net_get_hook_data(session, &data) != 1) {
        return false;
    }
    // A holder's name too long for the buffer still holds the stream.
    char holder[256];
    const int32_t depth = err_get_stack_depth();
    const bool held = sl_net_get_stream_holder(session, holder, sizeof holder) == 1 || err_get_stack_depth() > depth;
    if (held || data != nullptr) {
        err_add_error(ERR_SLE_ATTACHED, holder[0] == '\0' ? "another layer" : holder);
        return false;
    }
    if (sl_net_is_active(session) != 1) {
        err_add_error(ERR_NET_NOTACT);
        return false;
    }
    return true;
}

}  // namespace

VQ_API int sle_attach(void *ctx, void *session) {
    Context *context = vq::tag::checked<Context>(ctx, vq::sle::kContextKind, Report::add, __func__, "ctx");
    if (context == nullptr || !session_free(session)) {
        return 0;
    }
    TlsPtr tls = make_tls(*context, session);
    if (!tls || !handshake(*tls)) {
        return 0;
    }
    if (!install(session, tls.get())) {
        uninstall(session);
        return 0;
    }
    trace_peer(*tls.release());
    return 1;
}

VQ_API int sle_detach(void *session) {
    Tls *tls = vq::sle::attached_tls(session);
    if (tls == nullptr) {
        return 0;
    }
    TlsPtr owned(tls);
    uninstall(session);
    const int result = close_stream(*owned, true);
    VQ_SLE_TRACE("sle_detach: TLS with <%s> ended\n", owned->label.c_str());
    return result;
}
