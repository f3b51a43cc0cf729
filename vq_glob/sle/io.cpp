// Moving bytes: the BIO under OpenSSL, which carries TLS records over the
// session's socket, and the hook routines over OpenSSL, which give the
// session's callers their plain bytes.
#include <climits>
#include <new>

#include "sle/tls_state.h"
#include "vq_glob/err.h"
#include "vq_glob/sl_net.h"

namespace vq::sle {

namespace {

Tls *bio_tls(Bio *bio) {
    const Api &ssl = api();
    // No retry is ever asked for: a record moves whole within the session's
    // time-outs, or the stream fails.
    ssl.BIO_clear_flags(bio, kBioRetryFlags);
    return static_cast<Tls *>(ssl.BIO_get_data(bio));
}

void report(int32_t *done_or_null, int32_t done) {
    if (done_or_null != nullptr) {
        *done_or_null = done;
    }
}

// A failed transfer: OpenSSL's reasons under code; a fatal error leaves the
// stream unusable.
int transfer_failed(Tls &tls, int result, uint32_t code, int32_t done, int32_t *done_or_null) {
    const int error = api().SSL_get_error(tls.ssl, result);
    if (error == kSslErrorSsl || error == kSslErrorSyscall) {
        tls.broken = true;
    }
    push_error_queue();
    if (error == kSslErrorZeroReturn) {
        err_add_text_error("the peer closed its TLS stream");
    }
    err_add_error(code, tls.label.c_str());
    report(done_or_null, done);
    return 0;
}

// At most what one SSL_read or SSL_write takes.
int step(int32_t remaining) { return remaining > INT_MAX ? INT_MAX : static_cast<int>(remaining); }

// Records gather until a flush; a batch this large goes at once, so that a
// long send never holds more than this in memory.
constexpr size_t kFlushThreshold = 256 * 1024;

}  // namespace

bool flush_records(Tls &tls) {
    if (tls.pending.empty()) {
        return true;
    }
    int32_t sent = 0;
    const bool done = sl_net_send_sync(tls.session, tls.pending.data(), static_cast<int32_t>(tls.pending.size()),
                                       &sent) == 1;
    tls.pending.clear();
    if (!done) {
        tls.broken = true;
    }
    return done;
}

int bio_write(Bio *bio, const char *data, int size) {
    Tls *tls = bio_tls(bio);
    if (tls == nullptr || size < 0) {
        return -1;
    }
    try {
        // Same element type on both sides, so that the copy is one memmove
        // and not a conversion byte by byte.
        const auto *bytes = reinterpret_cast<const unsigned char *>(data);
        tls->pending.insert(tls->pending.end(), bytes, bytes + size);
    } catch (const std::bad_alloc &) {
        return -1;
    }
    if (tls->pending.size() >= kFlushThreshold && !flush_records(*tls)) {
        return -1;
    }
    return size;
}

int bio_read(Bio *bio, char *data, int size) {
    Tls *tls = bio_tls(bio);
    int32_t received = 0;
    if (tls == nullptr || sl_net_recv_available(tls->session, data, size, &received) != 1) {
        return -1;
    }
    return received;
}

long bio_ctrl(Bio *bio, int command, long, void *) {
    // OpenSSL flushes after each handshake flight and alert; nothing else is
    // supported.
    if (command != kBioCtrlFlush) {
        return 0;
    }
    Tls *tls = bio_tls(bio);
    return tls != nullptr && flush_records(*tls) ? 1 : 0;
}

int hook_send(void *session, void *buffer, int32_t length, int32_t *sent_or_null) {
    Tls *tls = attached_tls(session);
    report(sent_or_null, 0);
    if (tls == nullptr) {
        return 0;
    }
    const Api &ssl = api();
    const auto *bytes = static_cast<const unsigned char *>(buffer);
    int32_t done = 0;
    while (done < length) {
        ssl.ERR_clear_error();
        const int sent = ssl.SSL_write(tls->ssl, bytes + done, step(length - done));
        if (sent <= 0) {
            return transfer_failed(*tls, sent, ERR_SLE_SEND, done, sent_or_null);
        }
        done += sent;
    }
    if (!flush_records(*tls)) {
        err_add_error(ERR_SLE_SEND, tls->label.c_str());
        return 0;
    }
    report(sent_or_null, done);
    return 1;
}

int32_t hook_pending(void *, void *data) {
    const Tls *tls = tag::as<Tls>(data, kTlsKind);
    return tls != nullptr && !tls->broken && api().SSL_has_pending(tls->ssl) != 0 ? 1 : 0;
}

// As sl_net_recv_sync: every byte, or with SL_NET_FLAG_PARTIAL_RECV what the
// first read brings; a failure, the peer's close_notify included, leaves the
// session inactive.
int hook_recv(void *session, void *buffer, int32_t length, int32_t *received_or_null) {
    Tls *tls = attached_tls(session);
    report(received_or_null, 0);
    if (tls == nullptr) {
        return 0;
    }
    uint32_t flags = 0;
    sl_net_get_flags(session, &flags);
    const bool partial = (flags & SL_NET_FLAG_PARTIAL_RECV) != 0;
    const Api &ssl = api();
    auto *bytes = static_cast<unsigned char *>(buffer);
    int32_t done = 0;
    // Whatever OpenSSL still holds to send (an answer to the peer's key
    // update) leaves before this side waits for the peer.
    if (!flush_records(*tls)) {
        sl_net_set_inactive(session);
        err_add_error(ERR_SLE_RECV, tls->label.c_str());
        report(received_or_null, 0);
        return 0;
    }
    while (done < length) {
        ssl.ERR_clear_error();
        const int received = ssl.SSL_read(tls->ssl, bytes + done, step(length - done));
        if (received <= 0) {
            sl_net_set_inactive(session);
            return transfer_failed(*tls, received, ERR_SLE_RECV, done, received_or_null);
        }
        done += received;
        if (partial) {
            break;
        }
    }
    report(received_or_null, done);
    return 1;
}

}  // namespace vq::sle
