// POSIX backend: directories read and changed relative to an open directory
// descriptor (openat, fstatat, unlinkat, mkdirat, readlinkat, symlinkat,
// renameat2), so that names longer than PATH_MAX work and a name replaced by
// a symbolic link is never followed where the caller said not to.
#include "platform/platform.h"
#include "platform/posix/at_names.h"
#include "platform/posix/fs_status.h"

#include <dirent.h>
#include <stddef.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <string>
#include <vector>

// Entries are read with getdents64 into the directory's own buffer: a DIR
// stream would cost an fstat and two fcntl calls per directory, which a walk
// of many small directories feels.
struct PlatDir {
    int fd = -1;
    std::string path;
    size_t filled = 0;  // bytes of buffer the last read gave
    size_t offset = 0;  // the next record in buffer
    alignas(8) char buffer[32768];
};


namespace {

constexpr int kDirFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

// Closes fd keeping the errno of the failure that made the caller give up.
void close_quietly(int fd) {
    int saved = errno;
    ::close(fd);
    errno = saved;
}

// Opens path as a directory (flags add O_NOFOLLOW when asked). A path of
// PATH_MAX bytes or more is opened part by part, each part relative to the
// directory the previous one opened, so that deep trees can be reached.
int open_directory_path(const char *path, int flags) {
    size_t length = std::strlen(path);
    if (length < PATH_MAX) {
        return ::open(path, flags);
    }
    int at = AT_FDCWD;
    size_t start = 0;
    while (length - start >= PATH_MAX) {
        // The longest leading part that ends at a separator and fits.
        size_t cut = start + PATH_MAX - 1;
        while (cut > start && path[cut] != '/') {
            --cut;
        }
        if (cut == start) {
            if (at != AT_FDCWD) {
                close_quietly(at);
            }
            errno = ENAMETOOLONG;  // one element longer than the system allows
            return -1;
        }
        char part[PATH_MAX];
        std::memcpy(part, path + start, cut - start);
        part[cut - start] = '\0';
        int next = ::openat(at, part, kDirFlags);
        if (at != AT_FDCWD) {
            close_quietly(at);
        }
        if (next < 0) {
            return -1;
        }
        at = next;
        start = cut + 1;
    }
    int fd = ::openat(at, path + start, flags);
    close_quietly(at);
    return fd;
}

// Wraps an open directory descriptor; takes fd over (closed on failure).
int32_t wrap_descriptor(int fd, std::string path, PlatDir **out) {
    auto *dir = new (std::nothrow) PlatDir;
    if (dir == nullptr) {
        ::close(fd);
        return ENOMEM;
    }
    dir->fd = fd;
    try {
        dir->path = std::move(path);
    } catch (...) {
        plat_dir_close(dir);
        return ENOMEM;
    }
    *out = dir;
    return 0;
}

PlatDirType type_of(unsigned char d_type) {
    switch (d_type) {
    case DT_REG:
        return PlatDirType::file;
    case DT_DIR:
        return PlatDirType::dir;
    case DT_LNK:
        return PlatDirType::link;
    case DT_UNKNOWN:
        return PlatDirType::unknown;
    default:
        return PlatDirType::other;
    }
}

// Writes all of size bytes: 0, or the error.
int32_t write_all(int fd, const char *data, size_t size) {
    while (size > 0) {
        ssize_t n = ::write(fd, data, size);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            return errno;
        }
        data += n;
        size -= static_cast<size_t>(n);
    }
    return 0;
}

// Copies the whole contents of in to out: copy_file_range where the kernel
// offers it (no copy through user space), read and write otherwise.
int32_t copy_contents(int in, int out) {
    for (;;) {
        ssize_t n = ::copy_file_range(in, nullptr, out, nullptr, 1u << 30, 0);
        if (n == 0) {
            return 0;
        }
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            if (errno == EXDEV || errno == ENOSYS || errno == EINVAL || errno == EOPNOTSUPP) {
                break;  // not for this pair of files: copy by hand from where it stopped
            }
            return errno;
        }
    }
    std::vector<char> buffer;
    try {
        buffer.resize(1u << 17);
    } catch (...) {
        return ENOMEM;
    }
    for (;;) {
        ssize_t n = ::read(in, buffer.data(), buffer.size());
        if (n == 0) {
            return 0;
        }
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            return errno;
        }
        if (int32_t error = write_all(out, buffer.data(), static_cast<size_t>(n)); error != 0) {
            return error;
        }
    }
}

// Gives to the permission bits and the modification time (to the nanosecond)
// of the stat record from; the access time is kept too, so that the copy
// looks untouched.
int32_t copy_mode_and_times(const struct stat &from, int to) {
    if (::fchmod(to, from.st_mode & 07777) != 0) {
        return errno;
    }
    const struct timespec times[2] = {from.st_atim, from.st_mtim};
    if (::futimens(to, times) != 0) {
        return errno;
    }
    return 0;
}

// Copies an open regular file into an open new file.
int32_t copy_open_file(int in, int out) {
    struct stat record {};
    if (::fstat(in, &record) != 0) {
        return errno;
    }
    if (!S_ISREG(record.st_mode)) {
        return EINVAL;  // the name no longer holds a regular file
    }
    if (int32_t error = copy_contents(in, out); error != 0) {
        return error;
    }
    return copy_mode_and_times(record, out);
}

}  // namespace

int32_t plat_dir_open(const char *path, bool no_follow, PlatDir **out) {
    *out = nullptr;
    int fd = open_directory_path(path, kDirFlags | (no_follow ? O_NOFOLLOW : 0));
    if (fd < 0) {
        return errno;
    }
    try {
        return wrap_descriptor(fd, std::string(path), out);
    } catch (...) {
        ::close(fd);
        return ENOMEM;
    }
}

int32_t plat_dir_open_child(PlatDir *parent, const char *name, bool no_follow, PlatDir **out) {
    *out = nullptr;
    int fd = ::openat(parent->fd, name, kDirFlags | (no_follow ? O_NOFOLLOW : 0));
    if (fd < 0) {
        return errno;
    }
    try {
        std::string path = parent->path;
        if (path.empty() || path.back() != '/') {
            path += '/';
        }
        path += name;
        return wrap_descriptor(fd, std::move(path), out);
    } catch (...) {
        ::close(fd);
        return ENOMEM;
    }
}

int32_t plat_dir_next(PlatDir *dir, PlatDirEntry *entry, bool *end) {
    for (;;) {
        if (dir->offset >= dir->filled) {
            ssize_t n = ::syscall(SYS_getdents64, dir->fd, dir->buffer, sizeof dir->buffer);
            if (n < 0) {
                if (errno == EINTR) {
                    continue;
                }
                return errno;
            }
            if (n == 0) {
                *end = true;
                return 0;
            }
            dir->filled = static_cast<size_t>(n);
            dir->offset = 0;
        }
        // The kernel's records are laid out as glibc's struct dirent64.
        const char *record = dir->buffer + dir->offset;
        unsigned short length = 0;
        std::memcpy(&length, record + offsetof(struct dirent64, d_reclen), sizeof length);
        const unsigned char d_type = static_cast<unsigned char>(record[offsetof(struct dirent64, d_type)]);
        const char *name = record + offsetof(struct dirent64, d_name);
        dir->offset += length;
        if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'))) {
            continue;
        }
        try {
            entry->name.assign(name);
        } catch (...) {
            return ENOMEM;
        }
        entry->type = type_of(d_type);
        *end = false;
        return 0;
    }
}

int32_t plat_dir_rewind(PlatDir *dir) {
    if (::lseek(dir->fd, 0, SEEK_SET) < 0) {
        return errno;
    }
    dir->filled = 0;
    dir->offset = 0;
    return 0;
}

int32_t plat_dir_child_status(PlatDir *dir, const char *name, bool follow, PlatFsStatus *status) {
    struct stat own {};
    if (::fstatat(dir->fd, name, &own, AT_SYMLINK_NOFOLLOW) != 0) {
        return errno;
    }
    *status = PlatFsStatus{};
    status->is_link = S_ISLNK(own.st_mode);
    struct stat described = own;
    if (status->is_link) {
        if (!follow || ::fstatat(dir->fd, name, &described, 0) != 0) {
            plat_fs_fill_identity(own, status);  // the link itself: not followed, or dangling
            return 0;
        }
    }
    status->is_dir = S_ISDIR(described.st_mode);
    status->is_regular = S_ISREG(described.st_mode);
    plat_fs_fill_identity(described, status);
    return 0;
}

int32_t plat_dir_remove_child(PlatDir *dir, const char *name, bool is_dir) {
    return ::unlinkat(dir->fd, name, is_dir ? AT_REMOVEDIR : 0) == 0 ? 0 : errno;
}

const std::string &plat_dir_path(const PlatDir *dir) { return dir->path; }

void plat_dir_close(PlatDir *dir) {
    if (dir == nullptr) {
        return;
    }
    if (dir->fd >= 0) {
        ::close(dir->fd);
    }
    delete dir;
}

int32_t plat_dir_status(PlatDir *dir, PlatFsStatus *status) {
    struct stat record {};
    if (::fstat(dir->fd, &record) != 0) {
        return errno;
    }
    *status = PlatFsStatus{};
    status->is_dir = S_ISDIR(record.st_mode);
    plat_fs_fill_identity(record, status);
    return 0;
}

bool plat_dir_is_vanished_error(int32_t code) { return code == ENOENT || code == ENOTDIR || code == ELOOP; }

int32_t plat_dir_missing_error() { return ENOENT; }

int32_t plat_dir_make_child(PlatDir *dir, const char *name, uint32_t mode) {
    return ::mkdirat(dir->fd, name, static_cast<mode_t>(mode)) == 0 ? 0 : errno;
}

int32_t plat_dir_read_link(PlatDir *dir, const char *name, std::string *target) {
    return plat_posix_read_link_at(dir->fd, name, target);
}

int32_t plat_dir_make_link(PlatDir *dir, const char *name, const char *target, bool /*to_directory*/) {
    return ::symlinkat(target, dir->fd, name) == 0 ? 0 : errno;
}

int32_t plat_dir_copy_file(PlatDir *from, const char *name, PlatDir *to, const char *new_name, bool follow_link) {
    int in = ::openat(from->fd, name, O_RDONLY | (follow_link ? 0 : O_NOFOLLOW) | O_NONBLOCK | O_CLOEXEC);
    if (in < 0) {
        return errno;
    }
    int out = ::openat(to->fd, new_name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (out < 0) {
        int error = errno;
        ::close(in);
        return error;
    }
    int32_t error = copy_open_file(in, out);
    ::close(in);
    if (::close(out) != 0 && error == 0) {
        error = errno;  // a write the file system only reports now
    }
    if (error != 0) {
        ::unlinkat(to->fd, new_name, 0);
    }
    return error;
}

int32_t plat_dir_copy_attributes(PlatDir *from, PlatDir *to) {
    struct stat record {};
    if (::fstat(from->fd, &record) != 0) {
        return errno;
    }
    return copy_mode_and_times(record, to->fd);
}

int32_t plat_dir_rename_child(PlatDir *dir, const char *from, const char *to, bool replace) {
    return plat_posix_rename_at(dir->fd, from, dir->fd, to, replace);
}
