// POSIX backend of the configuration module's file operations.
#include "platform/conf_io.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>

namespace {

// fsync of an open-for-reading name; directories open O_RDONLY too.
int32_t sync_name(const char *name, int extra_flags) {
    int fd = -1;
    do {
        fd = ::open(name, O_RDONLY | O_CLOEXEC | extra_flags);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) {
        return errno;
    }
    int32_t error = 0;
    if (::fsync(fd) != 0 && errno != EINVAL) {
        error = errno;  // EINVAL: the file system cannot sync this object
    }
    ::close(fd);
    return error;
}

std::string directory_of(const char *name) {
    std::string path(name);
    size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

// Claims the blocks from old_size to size by writing zero bytes there: the
// way to reserve room where the file system has no allocation call. The
// bytes before old_size are the file's own and are already on the device.
int32_t extend_with_zeros(int fd, off_t old_size, off_t size) {
    static const char zeros[65536] = {};
    off_t at = old_size;
    while (at < size) {
        size_t step = static_cast<size_t>(std::min<off_t>(size - at, static_cast<off_t>(sizeof zeros)));
        ssize_t done = ::pwrite(fd, zeros, step, at);
        if (done < 0 && errno == EINTR) {
            continue;
        }
        if (done <= 0) {
            return done < 0 ? errno : ENOSPC;
        }
        at += done;
    }
    return 0;
}

int32_t allocate(int fd, off_t old_size, off_t size) {
    int error = 0;
    do {
        error = ::posix_fallocate(fd, 0, size);
    } while (error == EINTR);
    // glibc already writes the blocks itself where the file system cannot
    // allocate; EOPNOTSUPP is what is left when that cannot be done either
    // (and what other C libraries report at once). Reserving by writing
    // keeps the promise there instead of going on without room.
    if (error == EOPNOTSUPP || error == ENOSYS) {
        error = extend_with_zeros(fd, old_size, size);
    }
    return error;
}

}  // namespace

int32_t plat_conf_reserve(int fd, uint64_t size) {
    struct stat st;
    if (::fstat(fd, &st) != 0) {
        return errno;
    }
    // Only a regular file has a length and old bytes to protect.
    if (!S_ISREG(st.st_mode) || size == 0) {
        return 0;
    }
    if (size > static_cast<uint64_t>(INT64_MAX)) {
        return EFBIG;
    }
    int32_t error = allocate(fd, st.st_size, static_cast<off_t>(size));
    if (error != 0) {
        // A partial allocation or a partial zero fill may have lengthened
        // the file: give it back its old length (the old bytes are untouched).
        struct stat now;
        if (::fstat(fd, &now) == 0 && now.st_size > st.st_size) {
            while (::ftruncate(fd, st.st_size) != 0 && errno == EINTR) {
            }
        }
    }
    return error;
}

bool plat_conf_text_uses_crlf() { return false; }

int32_t plat_conf_replace_file(const char *source, const char *target) {
    int32_t error = sync_name(source, 0);
    if (error != 0) {
        return error;
    }
    if (::rename(source, target) != 0) {
        return errno;
    }
    // The rename itself stands; a directory that cannot be synced only loses
    // durability across a crash, so that is not reported as a failure.
    sync_name(directory_of(target).c_str(), O_DIRECTORY);
    return 0;
}
