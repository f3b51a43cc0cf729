// POSIX backend of the OpenSSL library names.
#include "platform/openssl_names.h"

std::span<const PlatOpensslNames> plat_openssl_library_names() {
    // The unversioned names last: they exist only where the development
    // package is installed, and may be any release.
    static constexpr PlatOpensslNames kNames[] = {
        {"libcrypto.so.3", "libssl.so.3"},
        {"libcrypto.so.1.1", "libssl.so.1.1"},
        {"libcrypto.so", "libssl.so"},
    };
    return kNames;
}
