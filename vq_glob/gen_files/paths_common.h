// What the path sources of the files module share: the separator, error
// reports and the bounded copy into a caller's buffer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "gen_files/gf_state.h"
#include "internal/raise.h"
#include "platform/platform.h"
#include "vq_glob/err.h"
#include "vq_glob/gf_path.h"

namespace vq::gf::paths {

inline constexpr char kSep = VQ_PATH_SEPARATOR;
// Path functions add their lines to what is on the stack: a caller that
// built the path from its own calls keeps their explanation underneath.
using vq::raise::Report;

// BADPAR naming the function and the argument's position (from 1); 0.
inline int bad_value(const char *function, int position) {
    err_add_error(ERR_FIL_BADPAR, function, position);
    return 0;
}

// MEMORY with the function and line, then the module's own memory code; 0.
inline int no_memory(const char *function, int line) {
    vq::raise::memory(Report::add, function, kModule, line);
    err_add_error(ERR_FIL_MEMORY_1701);
    return 0;
}

// out becomes the len bytes at text and a terminator. The two may overlap:
// results are often written over the path they come from.
inline int put(char *out, const char *text, size_t len) {
    std::memmove(out, text, len);
    out[len] = '\0';
    return 1;
}

inline bool too_long(const char *name) { return std::strlen(name) > GF_MAX_PATH_LENGTH; }

// Status of a name without any report: a name too long for the OS, or one
// that cannot be queried, denotes nothing.
inline bool quiet_status(const char *name, PlatFsStatus *status) {
    return !too_long(name) && plat_fs_status(name, status) == 0;
}

inline bool existing_dir(const char *name) {
    PlatFsStatus status;
    return quiet_status(name, &status) && status.is_dir;
}

}  // namespace vq::gf::paths
