// POSIX backend of the dynamic-library interface: dlopen, dlsym, dlclose.
#include "platform/dynlib.h"

#include <dlfcn.h>

#include <cstdio>

namespace {

// dlerror's text is per thread and cleared by reading it; copied out at once.
void copy_reason(char *why, size_t why_size) {
    if (why == nullptr || why_size == 0) {
        return;
    }
    const char *text = ::dlerror();
    std::snprintf(why, why_size, "%s", text != nullptr ? text : "unknown dlopen failure");
}

}  // namespace

PlatDynlib *plat_dynlib_open(const char *name, char *why, size_t why_size) {
    // RTLD_LOCAL: the library's symbols serve only the lookups made here and
    // never resolve the symbols of libraries loaded later.
    void *lib = ::dlopen(name, RTLD_NOW | RTLD_LOCAL);
    if (lib == nullptr) {
        copy_reason(why, why_size);
    }
    return static_cast<PlatDynlib *>(lib);
}

PlatDynlibFunction plat_dynlib_function(PlatDynlib *lib, const char *name) {
    if (lib == nullptr) {
        return nullptr;
    }
    return reinterpret_cast<PlatDynlibFunction>(::dlsym(lib, name));
}

void plat_dynlib_close(PlatDynlib *lib) {
    if (lib != nullptr) {
        ::dlclose(lib);
    }
}
