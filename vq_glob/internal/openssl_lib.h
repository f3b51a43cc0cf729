// The system's OpenSSL, loaded at run time: libcrypto for the ciphers of
// encrypted configuration fields, libssl for secure sessions. Each library is
// loaded once per process, on first use by whichever thread comes first, and
// stays loaded for the life of the process (other threads may be inside it
// at any moment; the system unloads it at exit). A machine without OpenSSL
// still runs the library: only the features that need it fail, with the
// reason these functions keep.
#pragma once

#include <span>
#include <string>

#include "platform/dynlib.h"

namespace vq::openssl {

// A loaded library, or why there is none.
struct Loaded {
    PlatDynlib *lib = nullptr;
    std::string name;     // the file name it was loaded under
    std::string failure;  // empty when loaded

    bool ready() const { return lib != nullptr; }
};

// libcrypto, tried under the system's names newest release first.
const Loaded &crypto_library();
// libssl of the release crypto_library() found (loading libcrypto first).
const Loaded &ssl_library();

// The function name of library as a Fn, or null.
template <typename Fn>
Fn function_of(const Loaded &library, const char *name) {
    return reinterpret_cast<Fn>(plat_dynlib_function(library.lib, name));
}

// Sets fn to the function name of library; false, with "<library> has no
// function <name>" in *failure, when it has none.
template <typename Fn>
bool find(const Loaded &library, const char *name, Fn &fn, std::string *failure) {
    fn = function_of<Fn>(library, name);
    if (fn == nullptr) {
        *failure = library.name + " has no function " + name;
        return false;
    }
    return true;
}

}  // namespace vq::openssl
