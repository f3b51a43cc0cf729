// Loading the system's OpenSSL libraries once per process.
#include "internal/openssl_lib.h"

#include <cstddef>

#include "internal/trace.h"
#include "platform/openssl_names.h"

namespace vq::openssl {

namespace {

struct Crypto {
    Loaded loaded;
    size_t release = 0;  // index of the names it was found under
};

Crypto load_crypto() {
    Crypto crypto;
    const std::span<const PlatOpensslNames> names = plat_openssl_library_names();
    crypto.loaded.failure = "no OpenSSL library names on this system";
    for (size_t i = 0; i < names.size(); ++i) {
        char why[512] = {0};
        PlatDynlib *lib = plat_dynlib_open(names[i].crypto, why, sizeof why);
        if (lib == nullptr) {
            // The first (newest) name's reason is the one worth reading.
            if (i == 0) {
                crypto.loaded.failure = std::string(names[i].crypto) + " could not be loaded: " + why;
            }
            continue;
        }
        crypto.loaded = Loaded{lib, names[i].crypto, {}};
        crypto.release = i;
        vq::debug::trace_bit(DBG_BIT_SLSEC, "openssl: <%s> loaded\n", names[i].crypto);
        return crypto;
    }
    return crypto;
}

const Crypto &crypto() {
    static const Crypto loaded = load_crypto();
    return loaded;
}

Loaded load_ssl() {
    const Crypto &found = crypto();
    if (!found.loaded.ready()) {
        return Loaded{nullptr, {}, found.loaded.failure};
    }
    const char *name = plat_openssl_library_names()[found.release].ssl;
    char why[512] = {0};
    PlatDynlib *lib = plat_dynlib_open(name, why, sizeof why);
    if (lib == nullptr) {
        return Loaded{nullptr, name, std::string(name) + " could not be loaded: " + why};
    }
    vq::debug::trace_bit(DBG_BIT_SLSEC, "openssl: <%s> loaded\n", name);
    return Loaded{lib, name, {}};
}

}  // namespace

const Loaded &crypto_library() { return crypto().loaded; }

const Loaded &ssl_library() {
    static const Loaded loaded = load_ssl();
    return loaded;
}

}  // namespace vq::openssl
