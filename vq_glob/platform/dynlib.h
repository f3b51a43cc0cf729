// The narrow OS interface, dynamic-library part: loading a shared library by
// name at run time and finding its functions (dlopen/dlsym/dlclose on POSIX,
// LoadLibraryW/GetProcAddress/FreeLibrary on Windows). The library uses it for
// optional dependencies such as libcrypto, so that a machine without them
// still loads the library and only the features that need them fail.
#pragma once

#include <cstddef>

// A loaded library; opaque to the modules.
struct PlatDynlib;

// The generic type of a function found in a library. Callers convert it to
// the function's real type before calling; void (*)(void) is the type that
// converts to any other function pointer type without a warning.
using PlatDynlibFunction = void (*)(void);

// Loads the library named name (a UTF-8 file name, looked for where the
// system looks for shared libraries). Null when it cannot be loaded; then
// why, when given, holds the system's reason (always NUL-terminated).
PlatDynlib *plat_dynlib_open(const char *name, char *why, size_t why_size);
// The function called name in the library, or null when it has none.
PlatDynlibFunction plat_dynlib_function(PlatDynlib *lib, const char *name);
// Unloads the library (null is ignored); its functions must not be used after.
void plat_dynlib_close(PlatDynlib *lib);
