// What the files of the secure layer share: the context, the per-session TLS
// state behind a session's hooks, and the socket BIO's routines.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "internal/handle_tag.h"
#include "internal/trace.h"
#include "sle/openssl_api.h"

namespace vq::sle {

// Handle tags of this layer's objects ("SLEC", "SLET" in a memory dump).
inline constexpr tag::Kind kContextKind = tag::Kind::sle_context;
inline constexpr tag::Kind kTlsKind = tag::Kind::sle_tls;

inline constexpr int32_t kClient = 0;
inline constexpr int32_t kServer = 1;

// The name the stream holder carries while TLS is attached.
inline constexpr const char *kHolderName = "TLS";

// What a session checks of its peer. Each attach takes its own copy, so the
// checks of a session never change under it.
struct Checks {
    int32_t role = kClient;
    bool verify = true;
    bool require_certificate = false;
    bool pinned = false;
    unsigned char pin[kSha256Size] = {0};
    std::string expected_host;  // empty: the session's remote host name
};

struct Context {
    tag::HandleTag tag{kContextKind};
    SslCtx *ctx = nullptr;
    // Held by the setters and by an attach while it copies the checks and
    // makes its connection object, so that a context shared between threads
    // is never changed while a session is being made from it.
    std::mutex lock;
    Checks checks;
};

// Why the verification of the peer's certificate refused it.
enum class Refusal { none, verify, host, pin };

struct Tls {
    tag::HandleTag tag{kTlsKind};
    void *session = nullptr;
    Ssl *ssl = nullptr;
    Checks checks;
    std::string host;   // the name the peer's certificate must carry
    std::string label;  // the peer as messages name it
    Refusal refusal = Refusal::none;
    std::string reason;  // the verifier's reason for a Refusal::verify
    // A fatal TLS error happened: the stream can carry nothing more, not even
    // a close_notify.
    bool broken = false;
    // Records OpenSSL wrote and the socket has not taken yet: the records of
    // one hook send (a part's header and body, each cut into records) leave
    // in one socket send instead of one each.
    std::vector<unsigned char> pending;
};

// Sends the records waiting in tls.pending; false (the socket's error on the
// stack) when the socket refused them, which breaks the stream.
bool flush_records(Tls &tls);

// The TLS state attached to a session, or null with ERR_SLE_NOTATTACHED (or
// the network layer's error for a bad session) raised.
Tls *attached_tls(void *session);

// The SHA-256 of a certificate's DER form.
bool certificate_digest(X509Cert *cert, unsigned char (&digest)[kSha256Size]);
// The same as 64 lower-case hex digits and a NUL; false when it cannot be had.
bool fingerprint_hex(X509Cert *cert, char *buffer);
// The common name of a certificate's subject; false when it has none.
bool common_name(X509Cert *cert, std::string *name);

// The socket BIO's routines: records go straight to the session's socket,
// within the session's time-outs, never through its hooks.
int bio_write(Bio *bio, const char *data, int size);
int bio_read(Bio *bio, char *data, int size);
long bio_ctrl(Bio *bio, int command, long number, void *pointer);

// The hook routines installed on an attached session.
int hook_send(void *session, void *buffer, int32_t length, int32_t *sent_or_null);
int hook_recv(void *session, void *buffer, int32_t length, int32_t *received_or_null);
// Non-zero while OpenSSL holds received bytes (read ahead or decrypted) that
// the socket no longer shows.
int32_t hook_pending(void *session, void *data);

}  // namespace vq::sle

#define VQ_SLE_TRACE(...) ::vq::debug::trace_bit(DBG_BIT_SLSEC, __VA_ARGS__)
