// The narrow OS interface, OpenSSL part: the file names the system's
// OpenSSL libraries go by, for plat_dynlib_open.
#pragma once

#include <span>

// The libcrypto and libssl of one OpenSSL release.
struct PlatOpensslNames {
    const char *crypto;
    const char *ssl;
};

// The releases to try, newest first: OpenSSL 3 (libcrypto.so.3 / libssl.so.3;
// libcrypto-3-x64.dll / libssl-3-x64.dll on 64-bit Windows, libcrypto-3.dll /
// libssl-3.dll on 32-bit), then older ones that still carry the low-level
// ciphers.
std::span<const PlatOpensslNames> plat_openssl_library_names();
