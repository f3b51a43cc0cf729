// The test certificates load back as written and verify (or fail to) as the
// secure-session tests count on, checked with libcrypto's own verifier.
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "support/net_support.h"
#include "support/test_pki.h"

namespace {

namespace fs = std::filesystem;
using vq::test::ScratchDir;
using vq::test::TestCert;
using vq::test::TestPki;

struct CertFree {
    void operator()(X509 *cert) const { X509_free(cert); }
};
using CertPtr = std::unique_ptr<X509, CertFree>;

CertPtr load_cert(const fs::path &path) {
    FILE *file = std::fopen(path.c_str(), "r");
    if (file == nullptr) {
        return nullptr;
    }
    CertPtr cert(PEM_read_X509(file, nullptr, nullptr, nullptr));
    std::fclose(file);
    return cert;
}

EVP_PKEY *load_key(const fs::path &path) {
    FILE *file = std::fopen(path.c_str(), "r");
    if (file == nullptr) {
        return nullptr;
    }
    // No pass phrase callback: an encrypted key would fail to load.
    EVP_PKEY *key = PEM_read_PrivateKey(file, nullptr, nullptr, const_cast<char *>(""));
    std::fclose(file);
    return key;
}

unsigned mode_of(const fs::path &path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 ? (info.st_mode & 07777) : 0;
}

// SHA-256 of the DER bytes, digested here rather than by X509_digest.
std::string der_sha256_hex(X509 *cert) {
    unsigned char *der = nullptr;
    const int length = i2d_X509(cert, &der);
    unsigned char digest[32];
    unsigned int size = 0;
    const int ok = EVP_Digest(der, static_cast<size_t>(length), digest, &size, EVP_sha256(), nullptr);
    OPENSSL_free(der);
    std::string hex;
    char pair[3];
    for (unsigned int n = 0; ok == 1 && n < size; ++n) {
        std::snprintf(pair, sizeof pair, "%02x", digest[n]);
        hex += pair;
    }
    return hex;
}

std::string common_name_of(X509 *cert) {
    char name[256] = "";
    X509_NAME_get_text_by_NID(X509_get_subject_name(cert), NID_commonName, name, sizeof name);
    return name;
}

// X509_verify_cert's verdict on cert with anchor as the only trusted
// certificate, as a TLS client checks a server: the SSL server purpose, and
// the host name or IP address when given.
int verify(const TestCert &cert, const TestCert &anchor, const char *host = nullptr, const char *ip = nullptr) {
    CertPtr leaf = load_cert(cert.cert);
    CertPtr trusted = load_cert(anchor.cert);
    X509_STORE *store = X509_STORE_new();
    X509_STORE_CTX *context = X509_STORE_CTX_new();
    X509_STORE_add_cert(store, trusted.get());
    X509_STORE_CTX_init(context, store, leaf.get(), nullptr);
    X509_STORE_CTX_set_purpose(context, X509_PURPOSE_SSL_SERVER);
    X509_VERIFY_PARAM *param = X509_STORE_CTX_get0_param(context);
    if (host != nullptr) {
        X509_VERIFY_PARAM_set1_host(param, host, 0);
    }
    if (ip != nullptr) {
        X509_VERIFY_PARAM_set1_ip_asc(param, ip);
    }
    const int result = X509_verify_cert(context) == 1 ? X509_V_OK : X509_STORE_CTX_get_error(context);
    X509_STORE_CTX_free(context);
    X509_STORE_free(store);
    return result;
}

TEST(TestPki, FilesLoadBackWithTheirKeysFingerprintsAndNames) {
    ScratchDir dir("vq_test_pki_");
    const TestPki &pki = vq::test::make_test_pki(dir.path());
    const std::vector<std::pair<const TestCert *, std::string>> certs = {
        {&pki.ca, "vq test CA"},      {&pki.server, "localhost"},        {&pki.client, "deploy-client"},
        {&pki.expired, "localhost"},  {&pki.other_host, "other.example"}, {&pki.self_signed, "localhost"},
        {&pki.other_ca, "vq unrelated CA"}, {&pki.unknown_ca, "localhost"}};
    std::vector<std::string> fingerprints;
    for (const auto &[cert, name] : certs) {
        SCOPED_TRACE(cert->cert.string());
        EXPECT_EQ(cert->cert.parent_path(), fs::absolute(dir.path()));
        EXPECT_EQ(mode_of(cert->cert), 0600u);
        EXPECT_EQ(mode_of(cert->key), 0600u);
        CertPtr loaded = load_cert(cert->cert);
        EVP_PKEY *key = load_key(cert->key);
        ASSERT_NE(loaded, nullptr);
        ASSERT_NE(key, nullptr);
        EXPECT_EQ(X509_check_private_key(loaded.get(), key), 1);
        EXPECT_TRUE(EVP_PKEY_is_a(key, "EC"));
        EVP_PKEY_free(key);
        EXPECT_EQ(cert->fingerprint, der_sha256_hex(loaded.get()));
        EXPECT_EQ(cert->common_name, name);
        EXPECT_EQ(common_name_of(loaded.get()), name);
        fingerprints.push_back(cert->fingerprint);
    }
    std::sort(fingerprints.begin(), fingerprints.end());
    EXPECT_EQ(std::unique(fingerprints.begin(), fingerprints.end()), fingerprints.end());
}

TEST(TestPki, ChainsVerifyOnlyWhereTheyShould) {
    ScratchDir dir("vq_test_pki_");
    const TestPki &pki = vq::test::make_test_pki(dir.path());
    EXPECT_EQ(verify(pki.server, pki.ca, "localhost"), X509_V_OK);
    EXPECT_EQ(verify(pki.server, pki.ca, nullptr, "127.0.0.1"), X509_V_OK);
    EXPECT_EQ(verify(pki.client, pki.ca), X509_V_OK);
    EXPECT_EQ(verify(pki.self_signed, pki.self_signed, "localhost"), X509_V_OK);
    EXPECT_EQ(verify(pki.self_signed, pki.self_signed, nullptr, "127.0.0.1"), X509_V_OK);
    EXPECT_EQ(verify(pki.unknown_ca, pki.other_ca, "localhost"), X509_V_OK);
    EXPECT_EQ(verify(pki.other_host, pki.ca, "other.example"), X509_V_OK);

    EXPECT_EQ(verify(pki.expired, pki.ca, "localhost"), X509_V_ERR_CERT_HAS_EXPIRED);
    EXPECT_EQ(verify(pki.other_host, pki.ca, "localhost"), X509_V_ERR_HOSTNAME_MISMATCH);
    EXPECT_EQ(verify(pki.other_host, pki.ca, nullptr, "127.0.0.1"), X509_V_ERR_IP_ADDRESS_MISMATCH);
    EXPECT_EQ(verify(pki.self_signed, pki.ca, "localhost"), X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT);
    EXPECT_EQ(verify(pki.unknown_ca, pki.ca, "localhost"), X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY);
    EXPECT_EQ(verify(pki.server, pki.other_ca, "localhost"), X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY);
}

TEST(TestPki, MadeOncePerDirectoryUntilTheDirectoryGoes) {
    ScratchDir dir("vq_test_pki_");
    const TestPki &first = vq::test::make_test_pki(dir.path());
    const std::string fingerprint = first.server.fingerprint;
    const TestPki &again = vq::test::make_test_pki(dir.path() / ".");
    EXPECT_EQ(&again, &first);
    EXPECT_EQ(again.server.fingerprint, fingerprint);

    fs::remove_all(dir.path());
    const TestPki &fresh = vq::test::make_test_pki(dir.path());
    EXPECT_TRUE(fs::exists(fresh.server.cert));
    EXPECT_NE(fresh.server.fingerprint, fingerprint);
    EXPECT_EQ(fresh.server.fingerprint, der_sha256_hex(load_cert(fresh.server.cert).get()));
}

}  // namespace
