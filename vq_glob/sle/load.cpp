// Loading OpenSSL for the secure layer: every function it calls is found at
// once, so that a library too old or incomplete makes TLS unavailable with
// the missing function's name instead of failing in the middle of a session.
#include <cstdio>
#include <string>

#include "internal/openssl_lib.h"
#include "internal/trace.h"
#include "sle/openssl_api.h"
#include "sle/tls_state.h"
#include "vq_glob/err.h"

namespace vq::sle {

namespace {

#define VQ_SLE_FIND(library, function) vq::openssl::find(library, #function, api.function, failure)

bool find_crypto(const vq::openssl::Loaded &crypto, Api &api, std::string *failure) {
    return VQ_SLE_FIND(crypto, ERR_get_error) && VQ_SLE_FIND(crypto, ERR_error_string_n) &&
           VQ_SLE_FIND(crypto, ERR_clear_error) && VQ_SLE_FIND(crypto, X509_free) &&
           VQ_SLE_FIND(crypto, X509_digest) && VQ_SLE_FIND(crypto, EVP_sha256) &&
           VQ_SLE_FIND(crypto, X509_get_subject_name) && VQ_SLE_FIND(crypto, X509_NAME_get_text_by_NID) &&
           VQ_SLE_FIND(crypto, X509_check_host) && VQ_SLE_FIND(crypto, X509_check_ip_asc) &&
           VQ_SLE_FIND(crypto, X509_verify_cert_error_string) &&
           VQ_SLE_FIND(crypto, X509_STORE_CTX_get_current_cert) && VQ_SLE_FIND(crypto, X509_STORE_CTX_get_error) &&
           VQ_SLE_FIND(crypto, X509_STORE_CTX_get_error_depth) && VQ_SLE_FIND(crypto, X509_STORE_CTX_set_error) &&
           VQ_SLE_FIND(crypto, X509_STORE_CTX_get_ex_data) && VQ_SLE_FIND(crypto, BIO_get_new_index) &&
           VQ_SLE_FIND(crypto, BIO_meth_new) && VQ_SLE_FIND(crypto, BIO_meth_set_write) &&
           VQ_SLE_FIND(crypto, BIO_meth_set_read) && VQ_SLE_FIND(crypto, BIO_meth_set_ctrl) &&
           VQ_SLE_FIND(crypto, BIO_new) && VQ_SLE_FIND(crypto, BIO_free) && VQ_SLE_FIND(crypto, BIO_set_data) &&
           VQ_SLE_FIND(crypto, BIO_get_data) && VQ_SLE_FIND(crypto, BIO_set_init) &&
           VQ_SLE_FIND(crypto, BIO_clear_flags);
}

bool find_ssl(const vq::openssl::Loaded &ssl, Api &api, std::string *failure) {
    return VQ_SLE_FIND(ssl, TLS_client_method) && VQ_SLE_FIND(ssl, TLS_server_method) &&
           VQ_SLE_FIND(ssl, SSL_CTX_new) && VQ_SLE_FIND(ssl, SSL_CTX_free) && VQ_SLE_FIND(ssl, SSL_CTX_ctrl) &&
           VQ_SLE_FIND(ssl, SSL_CTX_set_options) && VQ_SLE_FIND(ssl, SSL_CTX_set_cipher_list) &&
           VQ_SLE_FIND(ssl, SSL_CTX_set_ciphersuites) && VQ_SLE_FIND(ssl, SSL_CTX_set_num_tickets) &&
           VQ_SLE_FIND(ssl, SSL_CTX_set_default_read_buffer_len) && VQ_SLE_FIND(ssl, SSL_has_pending) &&
           VQ_SLE_FIND(ssl, SSL_CTX_set_default_passwd_cb) &&
           VQ_SLE_FIND(ssl, SSL_CTX_use_certificate_chain_file) && VQ_SLE_FIND(ssl, SSL_CTX_use_PrivateKey_file) &&
           VQ_SLE_FIND(ssl, SSL_CTX_check_private_key) && VQ_SLE_FIND(ssl, SSL_CTX_load_verify_locations) &&
           VQ_SLE_FIND(ssl, SSL_new) && VQ_SLE_FIND(ssl, SSL_free) && VQ_SLE_FIND(ssl, SSL_set_bio) &&
           VQ_SLE_FIND(ssl, SSL_set_verify) && VQ_SLE_FIND(ssl, SSL_set_connect_state) &&
           VQ_SLE_FIND(ssl, SSL_set_accept_state) && VQ_SLE_FIND(ssl, SSL_do_handshake) &&
           VQ_SLE_FIND(ssl, SSL_get_error) && VQ_SLE_FIND(ssl, SSL_read) && VQ_SLE_FIND(ssl, SSL_write) &&
           VQ_SLE_FIND(ssl, SSL_shutdown) && VQ_SLE_FIND(ssl, SSL_get1_peer_certificate) &&
           VQ_SLE_FIND(ssl, SSL_get_version) && VQ_SLE_FIND(ssl, SSL_get_current_cipher) &&
           VQ_SLE_FIND(ssl, SSL_CIPHER_get_name) && VQ_SLE_FIND(ssl, SSL_set_ex_data) &&
           VQ_SLE_FIND(ssl, SSL_get_ex_data) && VQ_SLE_FIND(ssl, SSL_get_ex_data_X509_STORE_CTX_idx) &&
           VQ_SLE_FIND(ssl, SSL_ctrl);
}

#undef VQ_SLE_FIND

// The method of the BIO that carries TLS records over a session's socket.
// Made once and never freed: every BIO made from it points to it.
BioMethod *socket_bio_method(const Api &api) {
    const int index = api.BIO_get_new_index();
    BioMethod *method = index > 0 ? api.BIO_meth_new(index | kBioTypeSourceSink, "vq_glob session") : nullptr;
    if (method == nullptr || api.BIO_meth_set_write(method, bio_write) != 1 ||
        api.BIO_meth_set_read(method, bio_read) != 1 || api.BIO_meth_set_ctrl(method, bio_ctrl) != 1) {
        return nullptr;
    }
    return method;
}

Loaded load() {
    Loaded result;
    const vq::openssl::Loaded &crypto = vq::openssl::crypto_library();
    const vq::openssl::Loaded &ssl = vq::openssl::ssl_library();
    if (!crypto.ready() || !ssl.ready()) {
        result.failure = crypto.ready() ? ssl.failure : crypto.failure;
    } else if (find_crypto(crypto, result.api, &result.failure) && find_ssl(ssl, result.api, &result.failure)) {
        result.bio_method = socket_bio_method(result.api);
        if (result.bio_method == nullptr) {
            result.failure = "no BIO method could be made";
        }
    }
    vq::debug::trace_bit(DBG_BIT_SLSEC, "sle: TLS %s%s\n", result.ready() ? "available" : "not available: ",
                         result.failure.c_str());
    return result;
}

}  // namespace

const Loaded &loaded() {
    static const Loaded once = load();
    return once;
}

bool available() {
    const Loaded &tls = loaded();
    if (!tls.ready()) {
        err_add_error(ERR_SLE_NOTAVAIL, tls.failure.c_str());
        return false;
    }
    return true;
}

bool push_error_queue(unsigned long reason_wanted) {
    const Api &ssl = api();
    std::string line;
    bool found = false;
    for (unsigned long code = ssl.ERR_get_error(); code != 0; code = ssl.ERR_get_error()) {
        const bool system = (code & kErrSystemFlag) != 0;
        if (!system && reason_wanted != 0 && (code & kErrReasonMask) == reason_wanted) {
            found = true;
        }
        char text[256];
        ssl.ERR_error_string_n(code, text, sizeof text);
        // A long queue is cut at a length that still fits one error entry.
        if (line.size() < 2048) {
            line += line.empty() ? "" : "; ";
            line += text;
        }
    }
    if (!line.empty()) {
        err_add_error(ERR_SYS_ERRMSG, line.c_str());
    }
    return found;
}

}  // namespace vq::sle
