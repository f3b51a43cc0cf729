// Win32 backend of the OpenSSL library names: the DLL names of the OpenSSL
// builds for Windows, which carry the release and, on 64-bit, the machine.
#include "platform/openssl_names.h"

std::span<const PlatOpensslNames> plat_openssl_library_names() {
#if defined(_WIN64)
    static constexpr PlatOpensslNames kNames[] = {
        {"libcrypto-3-x64.dll", "libssl-3-x64.dll"},
        {"libcrypto-1_1-x64.dll", "libssl-1_1-x64.dll"},
    };
#else
    static constexpr PlatOpensslNames kNames[] = {
        {"libcrypto-3.dll", "libssl-3.dll"},
        {"libcrypto-1_1.dll", "libssl-1_1.dll"},
    };
#endif
    return kNames;
}
