// The verified peer: its certificate's common name and fingerprint, for the
// caller's authorisation decisions.
#include <cstring>
#include <new>
#include <string>

#include "internal/raise.h"
#include "sle/tls_state.h"
#include "vq_glob/err.h"
#include "vq_glob/sle.h"

namespace vq::sle {

bool fingerprint_hex(X509Cert *cert, char *buffer) {
    static constexpr char kDigits[] = "0123456789abcdef";
    unsigned char digest[kSha256Size];
    if (!certificate_digest(cert, digest)) {
        return false;
    }
    for (unsigned i = 0; i < kSha256Size; ++i) {
        buffer[2 * i] = kDigits[digest[i] >> 4];
        buffer[2 * i + 1] = kDigits[digest[i] & 0x0F];
    }
    buffer[2 * kSha256Size] = '\0';
    return true;
}

bool common_name(X509Cert *cert, std::string *name) {
    const Api &ssl = api();
    const X509Name *subject = ssl.X509_get_subject_name(cert);
    // Asked for its length first: OpenSSL would cut a name silently to fit.
    const int length = subject != nullptr ? ssl.X509_NAME_get_text_by_NID(subject, kNidCommonName, nullptr, 0) : -1;
    if (length < 0) {
        return false;
    }
    name->assign(static_cast<size_t>(length) + 1, '\0');
    ssl.X509_NAME_get_text_by_NID(subject, kNidCommonName, name->data(), length + 1);
    name->resize(static_cast<size_t>(length));
    return true;
}

}  // namespace vq::sle

namespace {

// The attached session's peer certificate (the caller frees it with
// X509_free), or null with the reason raised.
vq::sle::X509Cert *peer_certificate(void *session) {
    const vq::sle::Tls *tls = vq::sle::attached_tls(session);
    if (tls == nullptr) {
        return nullptr;
    }
    vq::sle::X509Cert *cert = vq::sle::api().SSL_get1_peer_certificate(tls->ssl);
    if (cert == nullptr) {
        err_add_error(ERR_SLE_NOPEERCERT);
    }
    return cert;
}

}  // namespace

VQ_API int sle_get_peer_name(void *session, char *buffer, int32_t size) {
    if (buffer == nullptr || size < 1) {
        return VQ_PARAMS(vq::raise::Report::add, "buffer");
    }
    buffer[0] = '\0';
    vq::sle::X509Cert *cert = peer_certificate(session);
    if (cert == nullptr) {
        return 0;
    }
    int result = 0;
    try {
        std::string name;
        if (!vq::sle::common_name(cert, &name)) {
            err_add_error(ERR_SLE_NOPEERCERT);
        } else if (name.size() >= static_cast<size_t>(size)) {
            err_add_error(ERR_SLE_SMALLBUF, static_cast<int>(size), static_cast<int>(name.size() + 1),
                          "the peer's name");
        } else {
            std::memcpy(buffer, name.c_str(), name.size() + 1);
            result = 1;
        }
    } catch (const std::bad_alloc &) {
        VQ_NO_MEMORY(vq::raise::Report::add, "sle");
    }
    vq::sle::api().X509_free(cert);
    return result;
}

VQ_API int sle_get_peer_fingerprint(void *session, char *buffer) {
    if (buffer == nullptr) {
        return VQ_PARAMS(vq::raise::Report::add, "buffer");
    }
    buffer[0] = '\0';
    vq::sle::X509Cert *cert = peer_certificate(session);
    if (cert == nullptr) {
        return 0;
    }
    const bool done = vq::sle::fingerprint_hex(cert, buffer);
    vq::sle::api().X509_free(cert);
    if (!done) {
        vq::sle::push_error_queue();
        err_add_error(ERR_SLE_NOPEERCERT);
        return 0;
    }
    return 1;
}
