// POSIX backend of the file part: descriptors for both kinds of open file,
// the platform layer's access, share and disposition values mapped onto
// open(), and the advisory lock that stands in for a deny-write share mode.
//
// Native opens (the files module's I/O type 2) map PlatNativeOpen so:
//   access       read -> O_RDONLY, write -> O_WRONLY, both -> O_RDWR; neither
//                -> O_RDONLY (reads work, writes fail with EBADF).
//   disposition  create_new -> O_CREAT|O_EXCL, create_always ->
//                O_CREAT|O_TRUNC, open_existing -> nothing, open_always ->
//                O_CREAT, truncate_existing -> O_TRUNC; none fails with
//                EINVAL, as CreateFileW does.
//   share        without kPlatShareWrite the open denies writers, exactly as a
//                crt open with deny_writers; read and delete sharing are not
//                mapped: readers are never refused, names can always go.
//   write_through -> O_DSYNC.
//
// Denying writers. Windows refuses an open that conflicts with the share modes
// of the opens already in place; POSIX has no such thing, so the library's own
// opens honour an advisory protocol of open-file-description locks (which
// belong to the open, not to the process, so two opens in one process see
// each other) on a range of bytes far beyond any file's data:
//  - an open that denies writers locks the whole range, shared when it only
//    reads, exclusively when it writes itself (it then also conflicts with the
//    other deny-writers, as on Windows);
//  - every other open with write access locks one byte of the range
//    exclusively, a byte no other writer holds.
// So a deny-writer open fails while a writer has the file open, and a writer
// fails while a deny-writer has it open; writers never refuse one another and
// readers are never refused. Locks go with the last descriptor of the open.
// The refusal is reported as EBUSY. On a file system without such locks the
// opens go ahead unprotected.
#include "platform/platform.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

static_assert(sizeof(off_t) == 8, "files beyond 4 GiB need a 64-bit off_t");

namespace {

constexpr int32_t kSharingViolation = EBUSY;

// ---- The deny-write protocol -----------------------------------------------------

constexpr off_t kShareBase = off_t{1} << 62;
constexpr off_t kShareSlots = 4096;

#if defined(F_OFD_SETLK)

bool lock_refused(int error) { return error == EAGAIN || error == EACCES; }

int ofd_lock(int fd, int command, struct flock *lock) {
    int rc = 0;
    do {
        rc = ::fcntl(fd, command, lock);
    } while (rc == -1 && errno == EINTR);
    return rc;
}

struct flock lock_range(short type, off_t start, off_t length) {
    struct flock lock;
    std::memset(&lock, 0, sizeof lock);
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = start;
    lock.l_len = length;
    lock.l_pid = 0;  // required for open-file-description locks
    return lock;
}

// A deny-writer open: the whole range.
int32_t lock_deny_writers(int fd, bool writes) {
    struct flock lock = lock_range(writes ? F_WRLCK : F_RDLCK, kShareBase, kShareSlots);
    if (ofd_lock(fd, F_OFD_SETLK, &lock) == 0) {
        return 0;
    }
    return lock_refused(errno) ? kSharingViolation : 0;
}

// A writer: one byte of the range that no other writer holds. Starting places
// are spread so that writers rarely meet; a byte another writer holds is
// stepped over, a region lock (a deny-writer) refuses the open.
int32_t lock_writer(int fd) {
    static std::atomic<uint32_t> spread{0};
    uint32_t start = (static_cast<uint32_t>(::getpid()) * 2654435761u) ^ (spread.fetch_add(1) * 40503u);
    int vanished = 0;
    for (off_t i = 0; i < kShareSlots; ++i) {
        off_t byte = kShareBase + static_cast<off_t>((start + static_cast<uint32_t>(i)) % kShareSlots);
        struct flock lock = lock_range(F_WRLCK, byte, 1);
        if (ofd_lock(fd, F_OFD_SETLK, &lock) == 0) {
            return 0;
        }
        if (!lock_refused(errno)) {
            return 0;  // no such locks here: go ahead unprotected
        }
        struct flock holder = lock_range(F_WRLCK, byte, 1);
        if (ofd_lock(fd, F_OFD_GETLK, &holder) != 0) {
            return 0;
        }
        if (holder.l_type == F_UNLCK && vanished++ < 8) {
            --i;  // released meanwhile: try the same byte again
            continue;
        }
        if (holder.l_type == F_RDLCK || holder.l_len != 1) {
            return kSharingViolation;
        }
    }
    return kSharingViolation;
}

#else

int32_t lock_deny_writers(int, bool) { return 0; }
int32_t lock_writer(int) { return 0; }

#endif

// Opens and takes the lock the open's share mode asks for.
int32_t open_shared(const char *name, int flags, int mode, bool deny_writers, int *fd) {
    int opened = -1;
    do {
        opened = ::open(name, flags | O_CLOEXEC, static_cast<mode_t>(mode));
    } while (opened == -1 && errno == EINTR);
    if (opened == -1) {
        return errno;
    }
    bool writes = (flags & O_ACCMODE) != O_RDONLY;
    int32_t refused = 0;
    if (deny_writers) {
        refused = lock_deny_writers(opened, writes);
    } else if (writes) {
        refused = lock_writer(opened);
    }
    if (refused != 0) {
        ::close(opened);
        return refused;
    }
    *fd = opened;
    return 0;
}

int32_t read_once(int fd, void *buffer, size_t size, size_t *done) {
    ssize_t n = 0;
    do {
        n = ::read(fd, buffer, size);
    } while (n == -1 && errno == EINTR);
    if (n < 0) {
        *done = 0;
        return errno;
    }
    *done = static_cast<size_t>(n);
    return 0;
}

int32_t write_once(int fd, const void *buffer, size_t size, size_t *done) {
    ssize_t n = 0;
    do {
        n = ::write(fd, buffer, size);
    } while (n == -1 && errno == EINTR);
    if (n < 0) {
        *done = 0;
        return errno;
    }
    *done = static_cast<size_t>(n);
    return 0;
}

int32_t seek_to(int fd, int64_t offset) {
    return ::lseek(fd, static_cast<off_t>(offset), SEEK_SET) == static_cast<off_t>(-1) ? errno : 0;
}

int32_t sync_fd(int fd) { return ::fsync(fd) == 0 ? 0 : errno; }

// close() is not restarted after EINTR: Linux has released the descriptor
// already, and a second close could hit a descriptor opened meanwhile.
int32_t close_fd(int fd) { return ::close(fd) == 0 || errno == EINTR ? 0 : errno; }

PlatFileKind kind_of(mode_t mode) {
    if (S_ISREG(mode)) {
        return PlatFileKind::regular;
    }
    if (S_ISDIR(mode)) {
        return PlatFileKind::directory;
    }
    if (S_ISLNK(mode)) {
        return PlatFileKind::link;
    }
    if (S_ISFIFO(mode)) {
        return PlatFileKind::fifo;
    }
#if defined(S_ISDOOR)
    if (S_ISDOOR(mode)) {
        return PlatFileKind::door;
    }
#endif
    return PlatFileKind::other;
}

int fd_of(intptr_t file) { return file < 0 || file > INT32_MAX ? -1 : static_cast<int>(file); }

}  // namespace

const PlatCrtOpenBits &plat_crt_open_bits() {
    static constexpr PlatCrtOpenBits kBits{O_RDONLY, O_WRONLY, O_RDWR, O_TRUNC, O_EXCL, O_CREAT, O_APPEND, 0};
    return kBits;
}

void plat_file_error_text(PlatIo /*io*/, int32_t code, char *buf, size_t size) {
    plat_system_error_text(code, buf, size);
}

bool plat_file_is_exists_error(PlatIo /*io*/, int32_t code) { return code == EEXIST; }

int32_t plat_file_invalid_argument(PlatIo /*io*/) { return EINVAL; }

int32_t plat_file_no_space(PlatIo /*io*/) { return ENOSPC; }

// ---- C runtime descriptors ------------------------------------------------------------

int32_t plat_crt_file_open(const char *name, int flags, int mode, bool deny_writers, int *fd) {
    return open_shared(name, flags, mode, deny_writers, fd);
}

int32_t plat_crt_file_read(int fd, void *buffer, size_t size, size_t *done) {
    return read_once(fd, buffer, size, done);
}

int32_t plat_crt_file_write(int fd, const void *buffer, size_t size, size_t *done) {
    return write_once(fd, buffer, size, done);
}

int32_t plat_crt_file_seek(int fd, int64_t offset) { return seek_to(fd, offset); }

int32_t plat_crt_file_commit(int fd) { return sync_fd(fd); }

int32_t plat_crt_file_close(int fd) { return close_fd(fd); }

intptr_t plat_crt_file_native(int fd) { return fd < 0 ? kPlatNoFile : static_cast<intptr_t>(fd); }

// Windows makes a file writable by clearing its read-only attribute; here
// the owner gets write permission and the other bits stay as they were.
int32_t plat_crt_file_make_writable(const char *name) {
    struct stat st;
    if (::stat(name, &st) != 0) {
        return errno;
    }
    if ((st.st_mode & S_IWUSR) != 0) {
        return 0;
    }
    return ::chmod(name, (st.st_mode & 07777) | S_IWUSR) == 0 ? 0 : errno;
}

// ---- Native handles -------------------------------------------------------------------

namespace {

// The access mode of a native open; no access reads.
int access_flags(uint32_t access) {
    bool reads = (access & kPlatAccessRead) != 0;
    bool writes = (access & kPlatAccessWrite) != 0;
    if (reads && writes) {
        return O_RDWR;
    }
    return writes ? O_WRONLY : O_RDONLY;
}

// The creation flags of a disposition; false for none.
bool disposition_flags(PlatDisposition disposition, int *flags) {
    switch (disposition) {
        case PlatDisposition::create_new:
            *flags = O_CREAT | O_EXCL;
            return true;
        case PlatDisposition::create_always:
            *flags = O_CREAT | O_TRUNC;
            return true;
        case PlatDisposition::open_existing:
            *flags = 0;
            return true;
        case PlatDisposition::open_always:
            *flags = O_CREAT;
            return true;
        case PlatDisposition::truncate_existing:
            *flags = O_TRUNC;
            return true;
        case PlatDisposition::none:
            break;
    }
    return false;
}

}  // namespace

int32_t plat_native_file_open(const char *name, const PlatNativeOpen &how, int mode, intptr_t *file) {
    int creation = 0;
    if (!disposition_flags(how.disposition, &creation)) {
        return EINVAL;
    }
    int flags = access_flags(how.access) | creation;
    if (how.write_through) {
        flags |= O_DSYNC;
    }
    int fd = -1;
    int32_t error = open_shared(name, flags, mode, (how.share & kPlatShareWrite) == 0, &fd);
    if (error == 0) {
        *file = fd;
    }
    return error;
}

int32_t plat_native_file_read(intptr_t file, void *buffer, size_t size, size_t *done) {
    return read_once(fd_of(file), buffer, size, done);
}

int32_t plat_native_file_write(intptr_t file, const void *buffer, size_t size, size_t *done) {
    return write_once(fd_of(file), buffer, size, done);
}

int32_t plat_native_file_seek(intptr_t file, int64_t offset) { return seek_to(fd_of(file), offset); }

int32_t plat_native_file_flush(intptr_t file) { return sync_fd(fd_of(file)); }

int32_t plat_native_file_close(intptr_t file) { return close_fd(fd_of(file)); }

// ---- Either kind ------------------------------------------------------------------------

int32_t plat_file_set_inherit(intptr_t file, bool inherit) {
    int fd = fd_of(file);
    int flags = ::fcntl(fd, F_GETFD);
    if (flags == -1) {
        return errno;
    }
    int wanted = inherit ? flags & ~FD_CLOEXEC : flags | FD_CLOEXEC;
    if (wanted == flags) {
        return 0;
    }
    return ::fcntl(fd, F_SETFD, wanted) == 0 ? 0 : errno;
}

int32_t plat_file_truncate(intptr_t file, int64_t size) {
    int fd = fd_of(file);
    if (size < 0) {
        return EINVAL;
    }
    int rc = 0;
    do {
        rc = ::ftruncate(fd, static_cast<off_t>(size));
    } while (rc == -1 && errno == EINTR);
    if (rc != 0) {
        return errno;
    }
    return seek_to(fd, size);
}

int32_t plat_file_kind(intptr_t file, PlatFileKind *kind) {
    struct stat st;
    if (::fstat(fd_of(file), &st) != 0) {
        return errno;
    }
    *kind = kind_of(st.st_mode);
    return 0;
}

int32_t plat_file_size(intptr_t file, uint64_t *size) {
    struct stat st;
    if (::fstat(fd_of(file), &st) != 0) {
        return errno;
    }
    *size = st.st_size > 0 ? static_cast<uint64_t>(st.st_size) : 0;
    return 0;
}

int32_t plat_file_kind_by_name(const char *name, bool follow_links, PlatFileKind *kind) {
    struct stat st;
    int rc = follow_links ? ::stat(name, &st) : ::lstat(name, &st);
    if (rc != 0) {
        return errno;
    }
    *kind = kind_of(st.st_mode);
    return 0;
}

int32_t plat_file_remove(const char *name) { return ::unlink(name) == 0 ? 0 : errno; }

int32_t plat_default_ansi_code_page(char *buf, size_t size) {
    std::snprintf(buf, size, "65001");
    return 0;
}

int32_t plat_open_for_whole_read(const char *name, intptr_t *file) {
    // O_NONBLOCK: opening a fifo without a writer returns at once; the kind
    // check that follows refuses it before any read could wait.
    int fd = -1;
    do {
        fd = ::open(name, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) {
        return errno;
    }
    *file = fd;
    return 0;
}
