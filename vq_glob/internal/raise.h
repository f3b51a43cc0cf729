// Raising the errors that every module shares: a bad parameter (0x100E), no
// memory (0x1001) and a system error (0x203 with the system's own text).
//
// Every raise says whether it starts a fresh report or adds to one, as the
// calling module's functions have always behaved:
//  - Report::fresh clears the calling thread's error stack first, so the
//    failure is reported alone (the configuration and command-line modules
//    do this for a bad argument at their entry points);
//  - Report::add pushes on top of what is there, so that lines a callee left
//    stay underneath the caller's own line (the other modules).
// Each returns 0, the failure status, so that `return VQ_PARAMS(...)` reads
// as the failure it is. The macros name the function from __func__: call
// them in the exported function itself, or pass the name to the functions.
#pragma once

#include <cstdint>

#include "vq_glob/err.h"

namespace vq::raise {

enum class Report { fresh, add };

// 0x100E "invalid function parameter (<function>/<argument>)".
inline int params(Report report, const char *function, const char *argument) {
    if (report == Report::fresh) {
        err_set_error(ERR_GEN_PARAMS, function, argument);
    } else {
        err_add_error(ERR_GEN_PARAMS, function, argument);
    }
    return 0;
}

// 0x1001 "out of memory (<function> at <module>-<line>)".
inline int memory(Report report, const char *function, const char *module, int line) {
    if (report == Report::fresh) {
        err_set_error(ERR_GEN_MEMORY, function, module, line);
    } else {
        err_add_error(ERR_GEN_MEMORY, function, module, line);
    }
    return 0;
}

// 0x203 with the system's text for sys_errno (errno, or GetLastError()).
inline int system(Report report, int32_t sys_errno) {
    if (report == Report::fresh) {
        err_set_system_error(sys_errno);
    } else {
        err_add_system_error(sys_errno);
    }
    return 0;
}

}  // namespace vq::raise

#define VQ_PARAMS(report, argument) ::vq::raise::params((report), __func__, (argument))
#define VQ_NO_MEMORY(report, module) ::vq::raise::memory((report), __func__, (module), __LINE__)
