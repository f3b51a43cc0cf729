// The few OpenSSL functions the secure layer calls, found at run time in the
// system's libssl and libcrypto (internal/openssl_lib.h). OpenSSL's own
// headers are not used (the Windows cross builds have none): its objects are
// opaque here, and the handful of constants below are OpenSSL 3's values,
// fixed by its ABI.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace vq::sle {

// OpenSSL's objects, only ever handled through pointers.
struct SslCtx;
struct Ssl;
struct SslMethod;
struct SslCipher;
struct X509Cert;
struct X509Name;
struct X509StoreCtx;
struct EvpMd;
struct Bio;
struct BioMethod;

inline constexpr int kSslErrorSsl = 1;
inline constexpr int kSslErrorSyscall = 5;
inline constexpr int kSslErrorZeroReturn = 6;
inline constexpr int kVerifyPeer = 0x01;
inline constexpr int kVerifyFailIfNoPeerCert = 0x02;
inline constexpr int kFiletypePem = 1;
inline constexpr long kTls12Version = 0x0303;
inline constexpr int kCtrlSetMinProtoVersion = 123;
inline constexpr int kCtrlSetSessCacheMode = 44;
inline constexpr int kCtrlSetTlsextHostname = 55;
inline constexpr int kCtrlSetReadAhead = 41;
inline constexpr long kTlsextNametypeHostName = 0;
inline constexpr uint64_t kOpCipherServerPreference = uint64_t{1} << 22;
inline constexpr uint64_t kOpNoRenegotiation = uint64_t{1} << 30;
inline constexpr int kNidCommonName = 13;
inline constexpr int kBioTypeSourceSink = 0x0400;
inline constexpr int kBioCtrlFlush = 11;
inline constexpr int kBioRetryFlags = 0x0F;  // read, write, special, should-retry
inline constexpr int kX509ErrApplication = 50;
inline constexpr int kX509ErrHostnameMismatch = 62;
// The reason of "peer did not return a certificate" in an error code.
inline constexpr unsigned long kReasonNoPeerCertificate = 199;
inline constexpr unsigned long kErrSystemFlag = 0x80000000ul;
inline constexpr unsigned long kErrReasonMask = 0x7FFFFFul;
inline constexpr unsigned kSha256Size = 32;

using VerifyCallback = int (*)(int preverify_ok, X509StoreCtx *store);
using PasswordCallback = int (*)(char *buffer, int size, int writing, void *data);
using BioWrite = int (*)(Bio *bio, const char *data, int size);
using BioRead = int (*)(Bio *bio, char *data, int size);
using BioCtrl = long (*)(Bio *bio, int command, long number, void *pointer);

struct Api {
    // libcrypto
    unsigned long (*ERR_get_error)();
    void (*ERR_error_string_n)(unsigned long code, char *buffer, size_t size);
    void (*ERR_clear_error)();
    void (*X509_free)(X509Cert *cert);
    int (*X509_digest)(const X509Cert *cert, const EvpMd *type, unsigned char *digest, unsigned *size);
    const EvpMd *(*EVP_sha256)();
    X509Name *(*X509_get_subject_name)(const X509Cert *cert);
    int (*X509_NAME_get_text_by_NID)(const X509Name *name, int nid, char *buffer, int size);
    int (*X509_check_host)(X509Cert *cert, const char *name, size_t size, unsigned flags, char **peer_name);
    int (*X509_check_ip_asc)(X509Cert *cert, const char *address, unsigned flags);
    const char *(*X509_verify_cert_error_string)(long error);
    X509Cert *(*X509_STORE_CTX_get_current_cert)(const X509StoreCtx *store);
    int (*X509_STORE_CTX_get_error)(const X509StoreCtx *store);
    int (*X509_STORE_CTX_get_error_depth)(const X509StoreCtx *store);
    void (*X509_STORE_CTX_set_error)(X509StoreCtx *store, int error);
    void *(*X509_STORE_CTX_get_ex_data)(const X509StoreCtx *store, int index);
    int (*BIO_get_new_index)();
    BioMethod *(*BIO_meth_new)(int type, const char *name);
    int (*BIO_meth_set_write)(BioMethod *method, BioWrite write);
    int (*BIO_meth_set_read)(BioMethod *method, BioRead read);
    int (*BIO_meth_set_ctrl)(BioMethod *method, BioCtrl ctrl);
    Bio *(*BIO_new)(const BioMethod *method);
    int (*BIO_free)(Bio *bio);
    void (*BIO_set_data)(Bio *bio, void *data);
    void *(*BIO_get_data)(Bio *bio);
    void (*BIO_set_init)(Bio *bio, int init);
    void (*BIO_clear_flags)(Bio *bio, int flags);
    // libssl
    const SslMethod *(*TLS_client_method)();
    const SslMethod *(*TLS_server_method)();
    SslCtx *(*SSL_CTX_new)(const SslMethod *method);
    void (*SSL_CTX_free)(SslCtx *ctx);
    long (*SSL_CTX_ctrl)(SslCtx *ctx, int command, long number, void *pointer);
    uint64_t (*SSL_CTX_set_options)(SslCtx *ctx, uint64_t options);
    int (*SSL_CTX_set_cipher_list)(SslCtx *ctx, const char *list);
    int (*SSL_CTX_set_ciphersuites)(SslCtx *ctx, const char *list);
    int (*SSL_CTX_set_num_tickets)(SslCtx *ctx, size_t count);
    void (*SSL_CTX_set_default_read_buffer_len)(SslCtx *ctx, size_t length);
    void (*SSL_CTX_set_default_passwd_cb)(SslCtx *ctx, PasswordCallback callback);
    int (*SSL_CTX_use_certificate_chain_file)(SslCtx *ctx, const char *file);
    int (*SSL_CTX_use_PrivateKey_file)(SslCtx *ctx, const char *file, int type);
    int (*SSL_CTX_check_private_key)(const SslCtx *ctx);
    int (*SSL_CTX_load_verify_locations)(SslCtx *ctx, const char *file, const char *path);
    Ssl *(*SSL_new)(SslCtx *ctx);
    void (*SSL_free)(Ssl *ssl);
    void (*SSL_set_bio)(Ssl *ssl, Bio *read, Bio *write);
    void (*SSL_set_verify)(Ssl *ssl, int mode, VerifyCallback callback);
    void (*SSL_set_connect_state)(Ssl *ssl);
    void (*SSL_set_accept_state)(Ssl *ssl);
    int (*SSL_do_handshake)(Ssl *ssl);
    int (*SSL_get_error)(const Ssl *ssl, int result);
    int (*SSL_read)(Ssl *ssl, void *buffer, int size);
    int (*SSL_write)(Ssl *ssl, const void *buffer, int size);
    int (*SSL_shutdown)(Ssl *ssl);
    int (*SSL_has_pending)(const Ssl *ssl);
    X509Cert *(*SSL_get1_peer_certificate)(const Ssl *ssl);
    const char *(*SSL_get_version)(const Ssl *ssl);
    const SslCipher *(*SSL_get_current_cipher)(const Ssl *ssl);
    const char *(*SSL_CIPHER_get_name)(const SslCipher *cipher);
    int (*SSL_set_ex_data)(Ssl *ssl, int index, void *data);
    void *(*SSL_get_ex_data)(const Ssl *ssl, int index);
    int (*SSL_get_ex_data_X509_STORE_CTX_idx)();
    long (*SSL_ctrl)(Ssl *ssl, int command, long number, void *pointer);
};

// The loaded functions and the socket BIO's method, made once per process.
struct Loaded {
    Api api{};
    BioMethod *bio_method = nullptr;
    std::string failure;  // empty when TLS is available

    bool ready() const { return failure.empty(); }
};

// Loads OpenSSL on the first call (any thread; the others wait) and returns
// the same result ever after.
const Loaded &loaded();

// The functions, for code that only runs once loaded() is ready.
inline const Api &api() { return loaded().api; }

// Raises ERR_SLE_NOTAVAIL with the reason when TLS is unavailable; returns
// whether it is available.
bool available();

// Pushes the text of OpenSSL's error queue for this thread (when it holds
// anything) as one line and empties the queue; whether an entry carried the
// given reason code.
bool push_error_queue(unsigned long reason_wanted = 0);

}  // namespace vq::sle
