// POSIX backend of the configuration module's replace-by-rename.
#include "platform/conf_io.h"

#include <fcntl.h>
#include <unistd.h>

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

}  // namespace

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
