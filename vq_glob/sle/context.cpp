// Contexts: one side's settings of TLS, shared by the sessions attached from
// it.
#include <cstdio>
#include <cstring>
#include <new>

#include "internal/checked_handle.h"
#include "sle/tls_state.h"
#include "vq_glob/err.h"
#include "vq_glob/hex.h"
#include "vq_glob/sle.h"

namespace {

using vq::raise::Report;
using vq::sle::Context;

// TLS 1.2 suites: forward secrecy (ECDHE) and an AEAD cipher only. TLS 1.3
// suites are all AEAD; the order states the preference. AES-128-GCM comes
// first: 128-bit keys are beyond any search, every TLS 1.3 peer must offer
// it, and with AES instructions it costs about a seventh less than AES-256
// on bulk transfers. ChaCha20-Poly1305 serves peers without them.
constexpr const char *kTls12Ciphers =
    "ECDHE-ECDSA-AES128-GCM-SHA256:ECDHE-RSA-AES128-GCM-SHA256:"
    "ECDHE-ECDSA-AES256-GCM-SHA384:ECDHE-RSA-AES256-GCM-SHA384:"
    "ECDHE-ECDSA-CHACHA20-POLY1305:ECDHE-RSA-CHACHA20-POLY1305";
constexpr const char *kTls13Suites = "TLS_AES_128_GCM_SHA256:TLS_AES_256_GCM_SHA384:TLS_CHACHA20_POLY1305_SHA256";

// With read-ahead a receive takes whatever the socket holds, up to this
// many bytes, instead of a record's 5-byte header and then its body: about
// four records a system call rather than two calls a record.
constexpr size_t kReadAheadBytes = 64 * 1024;

// Keys are read without a password: an encrypted key fails to load instead
// of OpenSSL asking for its password on the terminal.
int no_password(char *, int, int, void *) { return 0; }

// The context behind a caller's pointer, or null with ERR_GEN_PARAMS.
Context *checked(void *handle, const char *function) {
    return vq::tag::checked<Context>(handle, vq::sle::kContextKind, Report::add, function, "ctx");
}

// Pushes OpenSSL's reasons and ERR_SLE_CONTEXT with what failed; returns 0.
int context_failed(const char *what) {
    vq::sle::push_error_queue();
    err_add_error(ERR_SLE_CONTEXT, what);
    return 0;
}

// The settings every context starts with; false when OpenSSL refused one.
bool configure(const vq::sle::Api &ssl, vq::sle::SslCtx *ctx) {
    ssl.SSL_CTX_set_default_passwd_cb(ctx, no_password);
    ssl.SSL_CTX_set_options(ctx, vq::sle::kOpCipherServerPreference | vq::sle::kOpNoRenegotiation);
    // No resumption: every session runs a full handshake and so a full
    // verification of its peer; the server keeps no session cache and sends
    // no tickets.
    ssl.SSL_CTX_ctrl(ctx, vq::sle::kCtrlSetSessCacheMode, 0, nullptr);
    // Reading ahead is safe while TLS owns the stream: the peer sends plain
    // bytes only after both close_notify alerts, and a detach turns it off
    // before it sends its own.
    ssl.SSL_CTX_ctrl(ctx, vq::sle::kCtrlSetReadAhead, 1, nullptr);
    ssl.SSL_CTX_set_default_read_buffer_len(ctx, kReadAheadBytes);
    return ssl.SSL_CTX_ctrl(ctx, vq::sle::kCtrlSetMinProtoVersion, vq::sle::kTls12Version, nullptr) == 1 &&
           ssl.SSL_CTX_set_cipher_list(ctx, kTls12Ciphers) == 1 &&
           ssl.SSL_CTX_set_ciphersuites(ctx, kTls13Suites) == 1 && ssl.SSL_CTX_set_num_tickets(ctx, 0) == 1;
}

// A text argument that must be given.
bool has_text(const char *text) { return text != nullptr && *text != '\0'; }

// Runs change on the context under its lock when handle is one.
template <typename Change>
int change_context(void *handle, const char *function, Change change) {
    Context *context = checked(handle, function);
    if (context == nullptr) {
        return 0;
    }
    std::lock_guard<std::mutex> hold(context->lock);
    vq::sle::api().ERR_clear_error();
    return change(*context);
}

vq::sle::SslCtx *new_ssl_ctx(int32_t role) {
    const vq::sle::Api &ssl = vq::sle::api();
    return ssl.SSL_CTX_new(role == vq::sle::kClient ? ssl.TLS_client_method() : ssl.TLS_server_method());
}

bool load_certificate(vq::sle::SslCtx *ctx, const char *cert_pem_file, const char *key_pem_file) {
    const vq::sle::Api &ssl = vq::sle::api();
    return ssl.SSL_CTX_use_certificate_chain_file(ctx, cert_pem_file) == 1 &&
           ssl.SSL_CTX_use_PrivateKey_file(ctx, key_pem_file, vq::sle::kFiletypePem) == 1 &&
           ssl.SSL_CTX_check_private_key(ctx) == 1;
}

// Loads the pair into a scratch context first, so that a bad pair leaves the
// context's own certificate and key as they were.
bool try_certificate(int32_t role, const char *cert_pem_file, const char *key_pem_file) {
    const vq::sle::Api &ssl = vq::sle::api();
    vq::sle::SslCtx *scratch = new_ssl_ctx(role);
    if (scratch == nullptr) {
        return false;
    }
    ssl.SSL_CTX_set_default_passwd_cb(scratch, no_password);
    const bool loaded = load_certificate(scratch, cert_pem_file, key_pem_file);
    ssl.SSL_CTX_free(scratch);
    return loaded;
}

// A setter that belongs to one role only.
int wrong_role(const char *function, int32_t role) {
    char what[160];
    std::snprintf(what, sizeof what, "%s applies to a %s context only", function,
                  role == vq::sle::kClient ? "server" : "client");
    err_add_error(ERR_SLE_CONTEXT, what);
    return 0;
}

}  // namespace

VQ_API int sle_init(void) { return vq::sle::available() ? 1 : 0; }

VQ_API int sle_allocate_context(void **ctx, int32_t role) {
    if (ctx == nullptr) {
        return VQ_PARAMS(Report::add, "ctx");
    }
    *ctx = nullptr;
    if (role != vq::sle::kClient && role != vq::sle::kServer) {
        return VQ_PARAMS(Report::add, "role");
    }
    if (!vq::sle::available()) {
        return 0;
    }
    const vq::sle::Api &ssl = vq::sle::api();
    ssl.ERR_clear_error();
    auto *context = new (std::nothrow) Context;
    if (context == nullptr) {
        return VQ_NO_MEMORY(Report::add, "sle");
    }
    context->checks.role = role;
    context->ctx = new_ssl_ctx(role);
    if (context->ctx == nullptr || !configure(ssl, context->ctx)) {
        if (context->ctx != nullptr) {
            ssl.SSL_CTX_free(context->ctx);
        }
        delete context;
        return context_failed("the TLS context could not be set up");
    }
    *ctx = context;
    VQ_SLE_TRACE("sle_allocate_context: %s context\n", role == vq::sle::kClient ? "client" : "server");
    return 1;
}

VQ_API int sle_free_context(void **ctx) {
    if (ctx == nullptr) {
        return VQ_PARAMS(Report::add, "ctx");
    }
    Context *context = checked(*ctx, __func__);
    if (context == nullptr) {
        return 0;
    }
    // Sessions made from it hold their own reference to the TLS context.
    vq::sle::api().SSL_CTX_free(context->ctx);
    delete context;
    *ctx = nullptr;
    return 1;
}

VQ_API int sle_set_certificate(void *ctx, const char *cert_pem_file, const char *key_pem_file) {
    if (!has_text(cert_pem_file) || !has_text(key_pem_file)) {
        return VQ_PARAMS(Report::add, has_text(cert_pem_file) ? "key_pem_file" : "cert_pem_file");
    }
    return change_context(ctx, __func__, [&](Context &context) {
        if (!try_certificate(context.checks.role, cert_pem_file, key_pem_file) ||
            !load_certificate(context.ctx, cert_pem_file, key_pem_file)) {
            vq::sle::push_error_queue();
            err_add_error(ERR_SLE_CERTFILE, cert_pem_file, key_pem_file);
            return 0;
        }
        VQ_SLE_TRACE("sle_set_certificate: <%s>\n", cert_pem_file);
        return 1;
    });
}

VQ_API int sle_set_ca_file(void *ctx, const char *ca_pem_file) {
    if (!has_text(ca_pem_file)) {
        return VQ_PARAMS(Report::add, "ca_pem_file");
    }
    return change_context(ctx, __func__, [&](Context &context) {
        if (vq::sle::api().SSL_CTX_load_verify_locations(context.ctx, ca_pem_file, nullptr) != 1) {
            vq::sle::push_error_queue();
            err_add_error(ERR_SLE_CAFILE, ca_pem_file);
            return 0;
        }
        return 1;
    });
}

VQ_API int sle_set_verify_peer(void *ctx, int32_t on) {
    return change_context(ctx, __func__, [&](Context &context) {
        context.checks.verify = on != 0;
        return 1;
    });
}

VQ_API int sle_set_require_peer_certificate(void *ctx, int32_t on) {
    return change_context(ctx, __func__, [&](Context &context) {
        if (context.checks.role != vq::sle::kServer) {
            return wrong_role("sle_set_require_peer_certificate", context.checks.role);
        }
        context.checks.require_certificate = on != 0;
        return 1;
    });
}

VQ_API int sle_set_expected_host(void *ctx, const char *host) {
    return change_context(ctx, __func__, [&](Context &context) {
        if (context.checks.role != vq::sle::kClient) {
            return wrong_role("sle_set_expected_host", context.checks.role);
        }
        try {
            context.checks.expected_host.assign(host == nullptr ? "" : host);
        } catch (const std::bad_alloc &) {
            return VQ_NO_MEMORY(Report::add, "sle");
        }
        return 1;
    });
}

VQ_API int sle_pin_peer_fingerprint(void *ctx, const char *sha256_hex) {
    return change_context(ctx, __func__, [&](Context &context) {
        if (sha256_hex == nullptr || *sha256_hex == '\0') {
            context.checks.pinned = false;
            return 1;
        }
        unsigned char pin[vq::sle::kSha256Size];
        int32_t count = 0;
        if (std::strlen(sha256_hex) != 2 * vq::sle::kSha256Size ||
            convert_from_hex(sha256_hex, pin, sizeof pin, &count) != 1 || count != sizeof pin) {
            err_add_error(ERR_SLE_BADPIN, sha256_hex);
            return 0;
        }
        std::memcpy(context.checks.pin, pin, sizeof pin);
        context.checks.pinned = true;
        return 1;
    });
}
