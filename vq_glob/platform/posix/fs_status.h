// POSIX backend: filling a PlatFsStatus from a stat record, shared by the
// name queries (fs.cpp) and the directory-relative ones (dir.cpp).
#pragma once

#include <sys/stat.h>

#include "platform/fs.h"

// Sets the identity (device, inode), size, permission bits and last-write
// time of status from record; the type flags are the caller's.
void plat_fs_fill_identity(const struct stat &record, PlatFsStatus *status);
