// File handles: opening, creating and closing files, reading and writing
// bytes and packets, positions and the end of file.
//
// I/O type 0 works on a C runtime descriptor, type 2 on the native handle;
// any other type makes these operations return 0 without an error. Every
// failure of the system leaves its text (ERR_SYS_ERRMSG) and the operation's own code
// with the file name on the error stack, and is marked on the handle.
#include <chrono>
#include <cstdint>
#include <cstring>
#include <string>

#include "gen_files/gf_state.h"
#include "internal/ascii.h"
#include "vq_glob/err.h"

namespace vq::gf {

// Eight letters and digits for a temporary name: splitmix64 over a per-thread
// counter whose start mixes the time, the process and the thread, so that
// neither threads nor processes repeat each other's names.
std::string random_suffix() {
    static constexpr char kChars[] = "abcdefghijklmnopqrstuvwxyz0123456789";
    thread_local uint64_t counter = static_cast<uint64_t>(
        std::chrono::steady_clock::now().time_since_epoch().count() ^
        (static_cast<uint64_t>(plat_process_id()) << 32) ^ reinterpret_cast<uintptr_t>(&counter));
    uint64_t z = (counter += 0x9E3779B97F4A7C15ULL);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    z ^= z >> 31;
    std::string out;
    for (int i = 0; i < 8; ++i) {
        out += kChars[z % (sizeof kChars - 1)];
        z /= sizeof kChars - 1;
    }
    return out;
}

namespace {

enum class OpenKind {
    open,       // an existing file, as the flags say
    create,     // create (or replace) the file
    create_new  // create a file that must not exist yet
};

bool known_type(const Entry &entry) { return entry.io_type == GF_IO_CRT || entry.io_type == GF_IO_NATIVE; }

const char *function_of(OpenKind kind) {
    return kind == OpenKind::open     ? "gf_open_file"
           : kind == OpenKind::create ? "gf_create_file"
                                      : "gf_create_temp";
}

// The C runtime flags and share mode of an open or create of type 0.
int crt_flags_for(const Entry &entry, OpenKind kind) {
    const PlatCrtOpenBits &bits = plat_crt_open_bits();
    if (kind == OpenKind::open) {
        return entry.real_open_flags;
    }
    if (kind == OpenKind::create_new) {
        return bits.read_write | bits.create | bits.exclusive | bits.binary;
    }
    // A file created only to be read would stay empty: creating gives write
    // access when the flags ask for none.
    int flags = entry.real_open_flags;
    if ((flags & (bits.write_only | bits.read_write)) == 0) {
        flags |= bits.read_write;
    }
    flags |= bits.create | bits.binary;
    if ((entry.open_flags & GF_KEEP_CONTENTS) == 0) {
        flags |= bits.truncate;
    }
    return flags;
}

// The native open of an open or create of type 2. Opening always takes an
// existing file; a create without a disposition replaces the file, or keeps
// its contents with GF_KEEP_CONTENTS.
PlatNativeOpen native_open_for(const Entry &entry, OpenKind kind) {
    PlatNativeOpen how = entry.native;
    switch (kind) {
        case OpenKind::open:
            how.disposition = PlatDisposition::open_existing;
            break;
        case OpenKind::create:
            if (how.disposition == PlatDisposition::none) {
                how.disposition = (entry.open_flags & GF_KEEP_CONTENTS) != 0 ? PlatDisposition::open_always
                                                                             : PlatDisposition::create_always;
            }
            break;
        case OpenKind::create_new:
            how.access = kPlatAccessRead | kPlatAccessWrite;
            how.disposition = PlatDisposition::create_new;
            break;
    }
    return how;
}

// Opens or creates the entry's file. With exists_error set, a create that
// finds the name taken returns 0 without raising anything and stores the
// system's error there.
int open_entry(FilesRecord &rec, int32_t h, Entry &entry, OpenKind kind, int32_t *exists_error = nullptr) {
    const char *name = entry.file_name.get();
    if (name == nullptr) {
        return raise_null_argument(rec, h, function_of(kind));
    }
    if (entry.opened != 0) {
        return raise_bad_parameter(rec, h, function_of(kind), 1);
    }
    if (std::strlen(name) > kPlatMaxFileName) {
        err_set_error(ERR_FIL_VLONGNAME, name);
        return raise_marked(rec, h, ERR_FIL_VLONGNAME);
    }
    uint32_t code = kind == OpenKind::open ? ERR_FIL_OPEN : ERR_FIL_CREATE;
    int mode = entry.protection != 0 ? entry.protection : kDefaultProtection;
    PlatIo io = io_of(entry);
    int32_t error = 0;
    int fd = -1;
    intptr_t native = kPlatNoFile;
    if (io == PlatIo::crt) {
        if (kind == OpenKind::create && (entry.open_flags & GF_OVERWRITE_READONLY) != 0) {
            plat_crt_file_make_writable(name);  // a missing file is no failure here
        }
        bool deny_writers = kind == OpenKind::open && (entry.open_flags & GF_DENY_WRITERS) != 0;
        error = plat_crt_file_open(name, crt_flags_for(entry, kind), mode, deny_writers, &fd);
        if (error == 0) {
            native = plat_crt_file_native(fd);
        }
    } else {
        error = plat_native_file_open(name, native_open_for(entry, kind), mode, &native);
    }
    if (error != 0) {
        if (exists_error != nullptr && plat_file_is_exists_error(io, error)) {
            *exists_error = error;
            return 0;
        }
        return raise_os_error(rec, h, io, error, code, name);
    }
    entry.descriptor = fd;
    entry.os_handle = native;
    entry.opened = 1;
    error = plat_file_set_inherit(native, entry.inherit);
    if (error != 0) {
        raise_os_error(rec, h, PlatIo::native, error, code, name);
        if (io == PlatIo::crt) {
            plat_crt_file_close(fd);
        } else {
            plat_native_file_close(native);
        }
        entry.descriptor = -1;
        entry.os_handle = kPlatNoFile;
        entry.opened = 0;
        return 0;
    }
    if (!copy_text(entry.res_file_name, name)) {
        close_entry(rec, h, entry);
        return raise_memory(rec, h, function_of(kind), __LINE__);
    }
    return 1;
}

// Reads until size bytes or the end of the file.
int read_entry(FilesRecord &rec, int32_t h, Entry &entry, void *buffer, int32_t size, int32_t *bytes_read,
               const char *function) {
    if (bytes_read == nullptr || (buffer == nullptr && size > 0)) {
        return raise_null_argument(rec, h, function);
    }
    *bytes_read = 0;
    if (size < 0) {
        return raise_bad_parameter(rec, h, function, 3);
    }
    if (!known_type(entry)) {
        return 0;
    }
    auto *bytes = static_cast<unsigned char *>(buffer);
    auto wanted = static_cast<size_t>(size);
    size_t total = 0;
    PlatIo io = io_of(entry);
    while (total < wanted) {
        size_t n = 0;
        int32_t error = io == PlatIo::native
                            ? plat_native_file_read(entry.os_handle, bytes + total, wanted - total, &n)
                            : plat_crt_file_read(entry.descriptor, bytes + total, wanted - total, &n);
        if (error != 0) {
            *bytes_read = static_cast<int32_t>(total);
            return raise_os_error(rec, h, io, error, ERR_FIL_READ, entry.file_name.get());
        }
        if (n == 0) {
            break;
        }
        total += n;
    }
    if (entry.tables) {
        apply_table(entry.tables->read, bytes, total);
    }
    *bytes_read = static_cast<int32_t>(total);
    return 1;
}

// Writes all size bytes, continuing after short writes.
int write_entry(FilesRecord &rec, int32_t h, Entry &entry, void *buffer, int32_t size, const char *function) {
    if (buffer == nullptr && size > 0) {
        return raise_null_argument(rec, h, function);
    }
    if (size < 0) {
        return raise_bad_parameter(rec, h, function, 3);
    }
    if (!known_type(entry)) {
        return 0;
    }
    auto *bytes = static_cast<unsigned char *>(buffer);
    auto wanted = static_cast<size_t>(size);
    if (entry.tables) {
        apply_table(entry.tables->write, bytes, wanted);
    }
    size_t total = 0;
    PlatIo io = io_of(entry);
    while (total < wanted) {
        size_t n = 0;
        int32_t error = io == PlatIo::native
                            ? plat_native_file_write(entry.os_handle, bytes + total, wanted - total, &n)
                            : plat_crt_file_write(entry.descriptor, bytes + total, wanted - total, &n);
        if (error == 0 && n == 0) {
            error = plat_file_no_space(io);  // a write that moves nothing and reports nothing
        }
        if (error != 0) {
            return raise_os_error(rec, h, io, error, ERR_FIL_WRITE, entry.file_name.get());
        }
        total += n;
    }
    if (io == PlatIo::crt && (entry.open_flags & GF_WRITE_THROUGH) != 0) {
        int32_t error = plat_crt_file_commit(entry.descriptor);
        if (error != 0) {
            return raise_os_error(rec, h, io, error, ERR_FIL_FLUSH, entry.file_name.get());
        }
    }
    return 1;
}

// A decimal size of 0 or more: blanks around it and a "+" are allowed.
bool parse_size(const char *text, int64_t *size) {
    const char *p = text;
    while (ascii::is_blank(*p)) {
        ++p;
    }
    if (*p == '+') {
        ++p;
    }
    if (!ascii::is_digit(*p)) {
        return false;
    }
    int64_t value = 0;
    for (; ascii::is_digit(*p); ++p) {
        int digit = *p - '0';
        if (value > (INT64_MAX - digit) / 10) {
            return false;
        }
        value = value * 10 + digit;
    }
    while (ascii::is_blank(*p) || *p == '\n' || *p == '\r') {
        ++p;
    }
    if (*p != '\0') {
        return false;
    }
    *size = value;
    return true;
}

// Whether a file name can follow dir as it is: the current directory (empty),
// a name ending in a separator, or a bare drive ("C:" names the drive's
// current directory).
bool takes_name_as_is(const std::string &dir) {
    return dir.empty() || plat_path_is_separator(dir.back()) || plat_path_drive_length(dir.c_str()) == dir.size();
}

// A prefix is part of one name: a separator in it would put the file into
// another directory ("../x"). Both separators are refused on every system,
// so that a prefix means the same wherever it is used.
bool names_one_element(const char *prefix) { return std::strpbrk(prefix, "/\\") == nullptr; }

constexpr int kTempAttempts = 100;

int create_temp(FilesRecord &rec, int32_t h, Entry &entry, const char *directory, const char *prefix) {
    if (directory == nullptr) {
        return raise_null_argument(rec, h, "gf_create_temp");
    }
    if (entry.opened != 0) {
        return raise_bad_parameter(rec, h, "gf_create_temp", 1);
    }
    if (prefix != nullptr && !names_one_element(prefix)) {
        return raise_bad_parameter(rec, h, "gf_create_temp", 3);
    }
    if (!known_type(entry)) {
        return 0;
    }
    std::string base;
    try {
        base = directory;
        if (!takes_name_as_is(base)) {
            base += VQ_PATH_SEPARATOR;
        }
        base += prefix != nullptr ? prefix : "vq";
    } catch (const std::bad_alloc &) {
        return raise_memory(rec, h, "gf_create_temp", __LINE__);
    }
    OwnedText previous = std::move(entry.file_name);
    std::string name;
    int32_t exists_error = 0;
    for (int attempt = 0; attempt < kTempAttempts; ++attempt) {
        try {
            name = base + random_suffix();
        } catch (const std::bad_alloc &) {
            entry.file_name = std::move(previous);
            return raise_memory(rec, h, "gf_create_temp", __LINE__);
        }
        if (!copy_text(entry.file_name, name.c_str())) {
            entry.file_name = std::move(previous);
            return raise_memory(rec, h, "gf_create_temp", __LINE__);
        }
        exists_error = 0;
        if (open_entry(rec, h, entry, OpenKind::create_new, &exists_error) != 0) {
            return 1;
        }
        if (exists_error == 0) {
            entry.file_name = std::move(previous);
            return 0;
        }
    }
    // Every name tried was taken: the directory is full of our names, or
    // something refuses every create without saying why.
    entry.file_name = std::move(previous);
    return raise_os_error(rec, h, io_of(entry), exists_error, ERR_FIL_CREATE, name.c_str());
}

}  // namespace

intptr_t native_of(const Entry &entry) {
    if (entry.io_type == GF_IO_NATIVE) {
        return entry.os_handle;
    }
    return entry.opened != 0 ? entry.os_handle : plat_crt_file_native(entry.descriptor);
}

int close_entry(FilesRecord &rec, int32_t h, Entry &entry) {
    if (entry.opened == 0) {
        return 1;
    }
    PlatIo io = io_of(entry);
    int32_t error = io == PlatIo::native ? plat_native_file_close(entry.os_handle)
                                         : plat_crt_file_close(entry.descriptor);
    entry.opened = 0;
    entry.descriptor = -1;
    entry.os_handle = kPlatNoFile;
    if (error != 0) {
        return raise_os_error(rec, h, io, error, ERR_FIL_CLOSE, entry.file_name.get());
    }
    return 1;
}

}  // namespace vq::gf

using namespace vq::gf;

namespace {

}  // namespace

extern "C" {

VQ_API int gf_open_file(int32_t h) {
    return with_entry(h, [&](FilesRecord &rec, Entry &entry) {
        return known_type(entry) ? open_entry(rec, h, entry, OpenKind::open) : 0;
    });
}

VQ_API int gf_create_file(int32_t h) {
    return with_entry(h, [&](FilesRecord &rec, Entry &entry) {
        return known_type(entry) ? open_entry(rec, h, entry, OpenKind::create) : 0;
    });
}

VQ_API int gf_create_temp(int32_t h, const char *directory, const char *prefix) {
    return with_entry(
        h, [&](FilesRecord &rec, Entry &entry) { return create_temp(rec, h, entry, directory, prefix); });
}

VQ_API int gf_close_file(int32_t h) {
    return with_entry(h, [&](FilesRecord &rec, Entry &entry) {
        return known_type(entry) ? close_entry(rec, h, entry) : 0;
    });
}

VQ_API int gf_flush_file(int32_t h) {
    return with_entry(h, [&](FilesRecord &rec, Entry &entry) {
        if (!known_type(entry)) {
            return 0;
        }
        PlatIo io = io_of(entry);
        int32_t error = io == PlatIo::native ? plat_native_file_flush(entry.os_handle)
                                             : plat_crt_file_commit(entry.descriptor);
        return error == 0 ? 1 : raise_os_error(rec, h, io, error, ERR_FIL_FLUSH, entry.file_name.get());
    });
}

VQ_API int gf_read_packet(int32_t h, void *buffer, int32_t *bytes_read) {
    return with_entry(h, [&](FilesRecord &rec, Entry &entry) {
        return read_entry(rec, h, entry, buffer, entry.packet_size, bytes_read, "gf_read_packet");
    });
}

VQ_API int gf_write_packet(int32_t h, void *buffer) {
    return with_entry(h, [&](FilesRecord &rec, Entry &entry) {
        return write_entry(rec, h, entry, buffer, entry.packet_size, "gf_write_packet");
    });
}

VQ_API int gf_read_file(int32_t h, void *buffer, int32_t size, int32_t *bytes_read) {
    return with_entry(h, [&](FilesRecord &rec, Entry &entry) {
        return read_entry(rec, h, entry, buffer, size, bytes_read, "gf_read_file");
    });
}

VQ_API int gf_write_file(int32_t h, void *buffer, int32_t size) {
    return with_entry(h, [&](FilesRecord &rec, Entry &entry) {
        return write_entry(rec, h, entry, buffer, size, "gf_write_file");
    });
}

VQ_API int gf_set_file_position(int32_t h, int32_t packets) {
    return with_entry(h, [&](FilesRecord &rec, Entry &entry) {
        if (!known_type(entry)) {
            return 0;
        }
        int64_t offset = int64_t{entry.packet_size} * packets;
        PlatIo io = io_of(entry);
        int32_t error = io == PlatIo::native ? plat_native_file_seek(entry.os_handle, offset)
                                             : plat_crt_file_seek(entry.descriptor, offset);
        if (error != 0) {
            return raise_os_error(rec, h, io, error, ERR_FIL_SEEK, entry.file_name.get());
        }
        entry.position = packets;
        return 1;
    });
}

VQ_API int gf_get_file_position(int32_t h, int32_t *packets) {
    return with_entry(h, [&](FilesRecord &rec, Entry &entry) {
        if (packets == nullptr) {
            return raise_null_argument(rec, h, "gf_get_file_position");
        }
        *packets = entry.position;
        return 1;
    });
}

VQ_API int gf_truncate_file(int32_t h, const char *decimal_size) {
    return with_entry(h, [&](FilesRecord &rec, Entry &entry) {
        if (decimal_size == nullptr) {
            return raise_null_argument(rec, h, "gf_truncate_file");
        }
        int64_t size = 0;
        if (!parse_size(decimal_size, &size)) {
            return raise_bad_parameter(rec, h, "gf_truncate_file", 2);
        }
        intptr_t native = native_of(entry);
        int32_t error = native == kPlatNoFile ? plat_file_invalid_argument(PlatIo::native)
                                              : plat_file_truncate(native, size);
        if (error != 0) {
            return raise_os_error(rec, h, PlatIo::native, error, ERR_FIL_TRUNC, entry.file_name.get());
        }
        return 1;
    });
}

}  // extern "C"
