// Certificates for the secure-session tests, fuzz target and benchmark, made
// at run time with libcrypto (Linux only): a CA, the certificates it signs and
// a few that must be refused, each as an unencrypted PEM certificate and key
// file (EC P-256, mode 0600) with its SHA-256 fingerprint and common name.
//
// Every leaf is valid from an hour ago for 30 days unless said otherwise; the
// leaves carry basicConstraints CA:FALSE and no extended key usage, so any of
// them serves as a server or as a client certificate.
#pragma once

#include <filesystem>
#include <string>

namespace vq::test {

struct TestCert {
    std::filesystem::path cert;  // <name>.pem: the certificate
    std::filesystem::path key;   // <name>.key: its private key, PKCS#8 without a pass phrase
    std::string fingerprint;     // SHA-256 of the DER form, 64 lower-case hex digits
    std::string common_name;
};

struct TestPki {
    std::filesystem::path dir;
    TestCert ca;           // ca: the CA the others are signed by, CN "vq test CA"
    TestCert server;       // server: CN "localhost", SAN DNS:localhost and IP:127.0.0.1
    TestCert client;       // client: CN "deploy-client", no SAN
    TestCert expired;      // expired: as server, but its notAfter was a day ago
    TestCert other_host;   // other_host: CN and SAN DNS "other.example" only, no IP
    TestCert self_signed;  // self_signed: CN "localhost", SAN as server, its own issuer
    TestCert other_ca;     // other_ca: a second CA unrelated to ca, CN "vq unrelated CA"
    TestCert unknown_ca;   // unknown_ca: as server, but signed by other_ca
};

// Makes the whole set in dir (created when missing) and returns it. A process
// makes it once per directory: later calls with the same directory return the
// same object while dir/ca.pem is still there, and make a fresh set (in the
// same object) once it is gone. The files stay until the caller removes dir.
// Thread-safe. Throws std::runtime_error naming the step and libcrypto's error
// when a step fails.
const TestPki &make_test_pki(const std::filesystem::path &dir);

}  // namespace vq::test
