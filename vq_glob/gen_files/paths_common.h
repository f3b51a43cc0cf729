// What the path sources of the files module share: the separator, the FIL
// codes they raise, error reports and the bounded copy into a caller's buffer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platform/platform.h"
#include "vq_glob/err.h"
#include "vq_glob/gf_path.h"

namespace vq::gf::paths {

inline constexpr char kSep = VQ_PATH_SEPARATOR;
inline constexpr const char *kModule = "gen_files";

// FIL facility codes raised here (texts in the message table).
inline constexpr uint32_t kErrFilMemory = 0x1701;  // "error allocating dynamic memory"
inline constexpr uint32_t kErrExpand = 0x1705;     // "error expanding <%s> to full path"
inline constexpr uint32_t kErrGetInfo = 0x1711;    // "error retrieving information on file <%s>"
inline constexpr uint32_t kErrMakeDir = 0x1723;    // "failed to create directory <%s>"
inline constexpr uint32_t kErrBadPar = 0x1728;     // "bad parameter ( function <%s> , parameter %d )"
inline constexpr uint32_t kErrBuffer = 0x172B;     // "buffer too short ( function <%s> )"
inline constexpr uint32_t kErrWinInvalid = 0x172E;
inline constexpr uint32_t kErrLongName = 0x172F;    // "... the path is too long. <%s>"
inline constexpr uint32_t kErrLongCreate = 0x1730;  // "failed to create ... the path is too long. <%s>"
inline constexpr uint32_t kErrFileInWay = 0x173C;   // "failed to create directory <%s>. A file ..."

// PARAMS naming the function and the NULL argument; 0 for the caller.
inline int null_param(const char *function, const char *argument) {
    err_add_error(ERR_GEN_PARAMS, function, argument);
    return 0;
}

// BADPAR naming the function and the argument's position (from 1); 0.
inline int bad_value(const char *function, int position) {
    err_add_error(kErrBadPar, function, position);
    return 0;
}

// MEMORY with the function and line, then the module's own memory code; 0.
inline int no_memory(const char *function, int line) {
    err_add_error(ERR_GEN_MEMORY, function, kModule, line);
    err_add_error(kErrFilMemory);
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
    return !too_long(name) && plat_fs_status(name, status);
}

inline bool existing_dir(const char *name) {
    PlatFsStatus status;
    return quiet_status(name, &status) && status.is_dir;
}

}  // namespace vq::gf::paths
