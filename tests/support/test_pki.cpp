// Test certificates made with libcrypto; see test_pki.h.
#include "support/test_pki.h"

#include <fcntl.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>

namespace vq::test {
namespace {

namespace fs = std::filesystem;

template <auto Free>
struct Freer {
    template <class T>
    void operator()(T *p) const {
        Free(p);
    }
};
using CertPtr = std::unique_ptr<X509, Freer<X509_free>>;
using KeyPtr = std::unique_ptr<EVP_PKEY, Freer<EVP_PKEY_free>>;

constexpr long kHour = 3600;
constexpr long kDay = 24 * kHour;

[[noreturn]] void fail(const std::string &step) {
    char text[256] = "no libcrypto error";
    if (const unsigned long code = ERR_get_error(); code != 0) {
        ERR_error_string_n(code, text, sizeof text);
    }
    ERR_clear_error();
    throw std::runtime_error("test PKI: " + step + ": " + text);
}

void require(bool ok, const std::string &step) {
    if (!ok) {
        fail(step);
    }
}

// What one certificate is made of; the issuer is the certificate itself when
// issuer_cert is null.
struct CertSpec {
    const char *name;        // file names <name>.pem and <name>.key
    const char *common_name;
    const char *alt_names;   // subjectAltName value, or null for none
    bool ca;
    long not_before;         // seconds from now
    long not_after;
};

// A leaf as the CA issues it by default.
CertSpec leaf(const char *name, const char *common_name, const char *alt_names) {
    return {name, common_name, alt_names, false, -kHour, 30 * kDay};
}

CertSpec authority(const char *name, const char *common_name) {
    return {name, common_name, nullptr, true, -kHour, 30 * kDay};
}

constexpr const char *kLocalNames = "DNS:localhost,IP:127.0.0.1";

KeyPtr new_p256_key() {
    KeyPtr key(EVP_EC_gen("P-256"));
    require(key != nullptr, "EC P-256 key");
    return key;
}

void add_extension(X509 *cert, X509V3_CTX *context, int nid, const char *value) {
    X509_EXTENSION *extension = X509V3_EXT_conf_nid(nullptr, context, nid, value);
    require(extension != nullptr, std::string("extension ") + OBJ_nid2sn(nid));
    const int added = X509_add_ext(cert, extension, -1);
    X509_EXTENSION_free(extension);
    require(added == 1, std::string("adding extension ") + OBJ_nid2sn(nid));
}

void set_random_serial(X509 *cert) {
    uint64_t serial = 0;
    require(RAND_bytes(reinterpret_cast<unsigned char *>(&serial), sizeof serial) == 1, "serial");
    // Positive and never zero.
    serial = (serial >> 1) | 1;
    require(ASN1_INTEGER_set_uint64(X509_get_serialNumber(cert), serial) == 1, "serial");
}

CertPtr issue(const CertSpec &spec, EVP_PKEY *key, X509 *issuer_cert, EVP_PKEY *issuer_key) {
    CertPtr cert(X509_new());
    require(cert != nullptr, "X509_new");
    X509 *x = cert.get();
    require(X509_set_version(x, X509_VERSION_3) == 1, "version");
    set_random_serial(x);
    require(X509_gmtime_adj(X509_getm_notBefore(x), spec.not_before) != nullptr, "notBefore");
    require(X509_gmtime_adj(X509_getm_notAfter(x), spec.not_after) != nullptr, "notAfter");
    X509_NAME *subject = X509_get_subject_name(x);
    require(X509_NAME_add_entry_by_txt(subject, "O", MBSTRING_ASC,
                                       reinterpret_cast<const unsigned char *>("vq_glob tests"), -1, -1, 0) == 1 &&
                X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC,
                                           reinterpret_cast<const unsigned char *>(spec.common_name), -1, -1,
                                           0) == 1,
            "subject");
    require(X509_set_issuer_name(x, issuer_cert != nullptr ? X509_get_subject_name(issuer_cert) : subject) == 1,
            "issuer");
    require(X509_set_pubkey(x, key) == 1, "public key");

    // The subject key identifier comes first: a self-signed certificate's
    // authority key identifier is taken from it.
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer_cert != nullptr ? issuer_cert : x, x, nullptr, nullptr, 0);
    add_extension(x, &context, NID_subject_key_identifier, "hash");
    add_extension(x, &context, NID_authority_key_identifier, "keyid:always");
    if (spec.ca) {
        add_extension(x, &context, NID_basic_constraints, "critical,CA:TRUE");
        add_extension(x, &context, NID_key_usage, "critical,keyCertSign,cRLSign");
    } else {
        add_extension(x, &context, NID_basic_constraints, "critical,CA:FALSE");
        add_extension(x, &context, NID_key_usage, "critical,digitalSignature");
    }
    if (spec.alt_names != nullptr) {
        add_extension(x, &context, NID_subject_alt_name, spec.alt_names);
    }
    require(X509_sign(x, issuer_key != nullptr ? issuer_key : key, EVP_sha256()) > 0, "signing");
    return cert;
}

// Opens path for writing with mode 0600, whatever the umask or an older file.
std::unique_ptr<FILE, Freer<std::fclose>> open_private(const fs::path &path) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    require(fd >= 0 && ::fchmod(fd, 0600) == 0, "creating " + path.string());
    FILE *file = ::fdopen(fd, "w");
    if (file == nullptr) {
        ::close(fd);
        fail("fdopen " + path.string());
    }
    return std::unique_ptr<FILE, Freer<std::fclose>>(file);
}

std::string fingerprint_of(X509 *cert) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    require(X509_digest(cert, EVP_sha256(), digest, &length) == 1 && length == 32, "fingerprint");
    static const char kHex[] = "0123456789abcdef";
    std::string hex;
    for (unsigned int n = 0; n < length; ++n) {
        hex += kHex[digest[n] >> 4];
        hex += kHex[digest[n] & 0x0F];
    }
    return hex;
}

// One certificate with its key, kept in memory while the set is made so
// that it can sign the others.
struct Made {
    TestCert files;
    KeyPtr key;
    CertPtr cert;
};

Made make(const fs::path &dir, const CertSpec &spec, const Made *issuer) {
    Made made;
    made.key = new_p256_key();
    made.cert = issue(spec, made.key.get(), issuer != nullptr ? issuer->cert.get() : nullptr,
                      issuer != nullptr ? issuer->key.get() : nullptr);
    made.files.cert = dir / (std::string(spec.name) + ".pem");
    made.files.key = dir / (std::string(spec.name) + ".key");
    made.files.fingerprint = fingerprint_of(made.cert.get());
    made.files.common_name = spec.common_name;
    {
        auto file = open_private(made.files.cert);
        require(PEM_write_X509(file.get(), made.cert.get()) == 1, "writing " + made.files.cert.string());
        require(std::fflush(file.get()) == 0, "writing " + made.files.cert.string());
    }
    {
        auto file = open_private(made.files.key);
        require(PEM_write_PrivateKey(file.get(), made.key.get(), nullptr, nullptr, 0, nullptr, nullptr) == 1,
                "writing " + made.files.key.string());
        require(std::fflush(file.get()) == 0, "writing " + made.files.key.string());
    }
    return made;
}

TestPki generate(const fs::path &dir) {
    fs::create_directories(dir);
    TestPki pki;
    pki.dir = dir;
    const Made ca = make(dir, authority("ca", "vq test CA"), nullptr);
    const Made other_ca = make(dir, authority("other_ca", "vq unrelated CA"), nullptr);
    pki.ca = ca.files;
    pki.other_ca = other_ca.files;
    pki.server = make(dir, leaf("server", "localhost", kLocalNames), &ca).files;
    pki.client = make(dir, leaf("client", "deploy-client", nullptr), &ca).files;
    CertSpec expired = leaf("expired", "localhost", kLocalNames);
    expired.not_before = -30 * kDay;
    expired.not_after = -kDay;
    pki.expired = make(dir, expired, &ca).files;
    pki.other_host = make(dir, leaf("other_host", "other.example", "DNS:other.example"), &ca).files;
    pki.self_signed = make(dir, leaf("self_signed", "localhost", kLocalNames), nullptr).files;
    pki.unknown_ca = make(dir, leaf("unknown_ca", "localhost", kLocalNames), &other_ca).files;
    return pki;
}

}  // namespace

const TestPki &make_test_pki(const fs::path &dir) {
    static std::mutex mutex;
    static std::map<fs::path, TestPki> made;
    const std::lock_guard<std::mutex> lock(mutex);
    // One key per directory however it is spelled: "d", "d/" and "d/." alike.
    fs::path key = fs::absolute(dir).lexically_normal();
    if (!key.has_filename()) {
        key = key.parent_path();
    }
    auto found = made.find(key);
    if (found != made.end() && fs::exists(found->second.ca.cert)) {
        return found->second;
    }
    TestPki pki = generate(key);
    if (found != made.end()) {
        found->second = std::move(pki);
        return found->second;
    }
    return made.emplace(key, std::move(pki)).first->second;
}

}  // namespace vq::test
