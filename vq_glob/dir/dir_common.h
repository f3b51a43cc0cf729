// What the directory module's walks, lists and tree operations share: error
// reports, path joining under the length limit, entry types and traces.
#pragma once

#include <cstdint>
#include <string>

#include "internal/trace.h"
#include "platform/platform.h"

namespace vq::dir {

// This module's trace lines go to channel GF, as the files module's do.
inline constexpr int kTraceBit = debug::kChannelGf;

// The module's name in out-of-memory reports.
inline constexpr const char *kModule = "dir";

// The system's text for error under ERR_SYS_ERRMSG, then code with name.
// Returns 0, the failure status.
int raise_os(int32_t error, uint32_t code, const char *name);
// The same for a code that names two paths (a copy, a rename).
int raise_os2(int32_t error, uint32_t code, const char *first, const char *second);
// ERR_GEN_MEMORY for function. 0.
int raise_memory(const char *function, int line);

// path + separator + name into out; false after ERR_FIL_VLONGNAME (with the
// joined name, whole) when it is longer than GF_MAX_PATH_LENGTH.
bool join_path(const std::string &path, const char *name, std::string *out);

// Whether text is longer than GF_MAX_PATH_LENGTH; raises ERR_FIL_VLONGNAME.
bool too_long(const char *text);

// path without trailing separators (a root such as "/" stays whole).
std::string without_trailing_separators(const char *path);

// Splits path into the directory that holds its last element and that
// element: "a/b/c" into "a/" and "c", "c" into "." and "c". False after
// ERR_FIL_BADPAR for function when path has no element of its own (a root,
// "." or "..").
bool split_last_element(const char *path, const char *function, std::string *parent, std::string *name);

// What the entry name of dir is, without following a link when follow is
// false: its type from the directory, asked of the system only when the
// directory did not tell (or a link is to be followed). 0 or the error.
int32_t entry_type(PlatDir *dir, const PlatDirEntry &entry, bool follow, PlatDirType *type,
                   PlatFsStatus *status);

}  // namespace vq::dir
