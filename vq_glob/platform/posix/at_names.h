// POSIX backend: renames and link texts relative to a directory descriptor
// (or AT_FDCWD), shared by the calls by name (fs.cpp) and the calls relative
// to an open directory (dir.cpp).
#pragma once

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

// Renames from (relative to the directory from_dir, or AT_FDCWD) to to
// (relative to to_dir). With replace an existing to is replaced in one step
// (renameat). Without it an existing to fails with EEXIST and nothing changes:
// renameat2 with RENAME_NOREPLACE, or, on a file system that refuses that
// flag, a hard link (which refuses an existing name just as well) and the
// removal of the old name. 0, or the error number.
inline int32_t plat_posix_rename_at(int from_dir, const char *from, int to_dir, const char *to, bool replace) {
    if (replace) {
        return ::renameat(from_dir, from, to_dir, to) == 0 ? 0 : errno;
    }
    if (::renameat2(from_dir, from, to_dir, to, RENAME_NOREPLACE) == 0) {
        return 0;
    }
    if (errno != EINVAL && errno != ENOSYS) {
        return errno;
    }
    if (::linkat(from_dir, from, to_dir, to, 0) != 0) {
        return errno;
    }
    return ::unlinkat(from_dir, from, 0) == 0 ? 0 : errno;
}

// The text of the symbolic link name in dir, whole and unchanged (readlinkat,
// asked again with more room while the text may have been cut). 0, or the
// error number (EINVAL for a name that is not a link).
inline int32_t plat_posix_read_link_at(int dir, const char *name, std::string *target) {
    try {
        std::vector<char> buffer(256);
        for (;;) {
            ssize_t n = ::readlinkat(dir, name, buffer.data(), buffer.size());
            if (n < 0) {
                return errno;
            }
            if (static_cast<size_t>(n) < buffer.size()) {
                target->assign(buffer.data(), static_cast<size_t>(n));
                return 0;
            }
            buffer.resize(buffer.size() * 2);
        }
    } catch (...) {
        return ENOMEM;
    }
}
