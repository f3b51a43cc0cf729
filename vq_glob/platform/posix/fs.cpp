// POSIX backend: status queries by name, the current directory and full-path
// expansion, directory creation, permissions, times, renames and links by
// name, and the UTF-8 <-> wchar_t (UTF-32) conversions.
#include "platform/platform.h"
#include "platform/posix/fs_status.h"
#include "platform/posix/at_names.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace {

// Decodes one UTF-8 sequence at text[i], advancing i. Refuses what RFC 3629
// refuses: stray continuation bytes, truncated and overlong sequences,
// surrogates and values beyond U+10FFFF.
bool decode_utf8(const unsigned char *text, size_t &i, uint32_t &value) {
    unsigned char lead = text[i];
    size_t extra = 0;
    uint32_t minimum = 0;
    if (lead < 0x80) {
        value = lead;
        ++i;
        return true;
    }
    if (lead >= 0xC2 && lead <= 0xDF) {
        extra = 1;
        minimum = 0x80;
        value = lead & 0x1Fu;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        extra = 2;
        minimum = 0x800;
        value = lead & 0x0Fu;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        extra = 3;
        minimum = 0x10000;
        value = lead & 0x07u;
    } else {
        return false;
    }
    for (size_t k = 1; k <= extra; ++k) {
        unsigned char c = text[i + k];  // the terminator stops this: it is no continuation byte
        if ((c & 0xC0) != 0x80) {
            return false;
        }
        value = (value << 6) | (c & 0x3Fu);
    }
    if (value < minimum || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) {
        return false;
    }
    i += extra + 1;
    return true;
}

// Appends the UTF-8 form of a Unicode scalar value to out[n], bounded by size
// (one byte is kept for the terminator). False when it does not fit.
bool encode_utf8(uint32_t value, char *out, size_t size, size_t &n) {
    unsigned char bytes[4];
    size_t count = 0;
    if (value < 0x80) {
        bytes[count++] = static_cast<unsigned char>(value);
    } else if (value < 0x800) {
        bytes[count++] = static_cast<unsigned char>(0xC0 | (value >> 6));
        bytes[count++] = static_cast<unsigned char>(0x80 | (value & 0x3F));
    } else if (value < 0x10000) {
        bytes[count++] = static_cast<unsigned char>(0xE0 | (value >> 12));
        bytes[count++] = static_cast<unsigned char>(0x80 | ((value >> 6) & 0x3F));
        bytes[count++] = static_cast<unsigned char>(0x80 | (value & 0x3F));
    } else {
        bytes[count++] = static_cast<unsigned char>(0xF0 | (value >> 18));
        bytes[count++] = static_cast<unsigned char>(0x80 | ((value >> 12) & 0x3F));
        bytes[count++] = static_cast<unsigned char>(0x80 | ((value >> 6) & 0x3F));
        bytes[count++] = static_cast<unsigned char>(0x80 | (value & 0x3F));
    }
    if (size - n <= count) {
        return false;
    }
    std::memcpy(out + n, bytes, count);
    n += count;
    return true;
}

// The root of an absolute name and where its elements start: "//node/share"
// for a remote name (two separators, then a node), "/" for any other.
size_t root_length(std::string_view name) {
    if (name.size() > 2 && name[0] == '/' && name[1] == '/' && name[2] != '/') {
        size_t node_end = name.find('/', 2);
        if (node_end == std::string_view::npos) {
            return name.size();
        }
        size_t share_end = name.find('/', node_end + 1);
        return share_end == std::string_view::npos ? name.size() : share_end;
    }
    return 1;
}

}  // namespace

// The identity, size, permission bits and last-write time of a stat record.
void plat_fs_fill_identity(const struct stat &record, PlatFsStatus *status) {
    status->device = static_cast<uint64_t>(record.st_dev);
    status->inode = static_cast<uint64_t>(record.st_ino);
    status->size = static_cast<uint64_t>(record.st_size);
    status->mode = static_cast<uint32_t>(record.st_mode & 07777);
    status->modified = static_cast<int64_t>(record.st_mtim.tv_sec) * 10000000 + record.st_mtim.tv_nsec / 100;
}

int32_t plat_fs_status(const char *name, PlatFsStatus *status) {
    struct stat own {};
    if (::lstat(name, &own) != 0) {
        return errno;
    }
    *status = PlatFsStatus{};
    status->is_link = S_ISLNK(own.st_mode);
    struct stat target = own;
    if (status->is_link && ::stat(name, &target) != 0) {
        return 0;  // a dangling link exists, but denotes nothing
    }
    status->is_dir = S_ISDIR(target.st_mode);
    status->is_regular = S_ISREG(target.st_mode);
    plat_fs_fill_identity(target, status);
    return 0;
}

namespace {

PlatFileType type_of(mode_t mode) {
    if (S_ISREG(mode)) {
        return PlatFileType::file;
    }
    if (S_ISDIR(mode)) {
        return PlatFileType::dir;
    }
    return S_ISLNK(mode) ? PlatFileType::link : PlatFileType::other;
}

}  // namespace

int32_t plat_fs_file_status(const char *name, bool follow_links, PlatFileStatus *status) {
    struct stat record {};
    if ((follow_links ? ::stat(name, &record) : ::lstat(name, &record)) != 0) {
        return errno;
    }
    *status = PlatFileStatus{};
    status->type = type_of(record.st_mode);
    status->size = static_cast<uint64_t>(record.st_size);
    status->modified_seconds = static_cast<int64_t>(record.st_mtim.tv_sec);
    status->modified_nanoseconds = static_cast<int32_t>(record.st_mtim.tv_nsec);
    status->mode = static_cast<uint32_t>(record.st_mode & 07777);
    status->device = static_cast<uint64_t>(record.st_dev);
    status->inode = static_cast<uint64_t>(record.st_ino);
    status->links = static_cast<uint32_t>(record.st_nlink);
    status->changed_seconds = static_cast<int64_t>(record.st_ctim.tv_sec);
    status->changed_nanoseconds = static_cast<int32_t>(record.st_ctim.tv_nsec);
    return 0;
}

int32_t plat_fs_set_mode(const char *name, uint32_t mode) {
    return ::chmod(name, static_cast<mode_t>(mode & 07777)) == 0 ? 0 : errno;
}

int32_t plat_fs_set_times(const char *name, int64_t seconds, int32_t nanoseconds) {
    struct timespec when {};
    when.tv_sec = static_cast<time_t>(seconds);
    when.tv_nsec = nanoseconds;
    const struct timespec times[2] = {when, when};
    return ::utimensat(AT_FDCWD, name, times, 0) == 0 ? 0 : errno;
}

int32_t plat_fs_rename(const char *from, const char *to, bool replace) {
    return plat_posix_rename_at(AT_FDCWD, from, AT_FDCWD, to, replace);
}

int32_t plat_fs_hard_link(const char *existing, const char *new_name) {
    return ::linkat(AT_FDCWD, existing, AT_FDCWD, new_name, 0) == 0 ? 0 : errno;
}

bool plat_fs_is_cross_device_error(int32_t code) { return code == EXDEV; }

int32_t plat_fs_make_symlink(const char *target, const char *link_name) {
    return ::symlink(target, link_name) == 0 ? 0 : errno;
}

int32_t plat_fs_read_link(const char *name, std::string *target) {
    return plat_posix_read_link_at(AT_FDCWD, name, target);
}

int32_t plat_fs_current_dir(std::string *out) {
    try {
        std::vector<char> buffer(256);
        while (::getcwd(buffer.data(), buffer.size()) == nullptr) {
            if (errno != ERANGE) {
                return errno;
            }
            buffer.resize(buffer.size() * 2);
        }
        out->assign(buffer.data());
        return 0;
    } catch (...) {
        return ENOMEM;
    }
}

int32_t plat_fs_full_path(const char *name, std::string *out) {
    try {
        std::string absolute;
        if (name[0] == '/') {
            absolute = name;
        } else {
            if (int32_t error = plat_fs_current_dir(&absolute); error != 0) {
                return error;
            }
            if (absolute.empty() || absolute.back() != '/') {
                absolute += '/';
            }
            absolute += name;
        }
        size_t root = root_length(absolute);
        std::string result = absolute.substr(0, root);
        size_t kept_root = result.size();
        std::string_view rest = std::string_view(absolute).substr(root);
        while (!rest.empty()) {
            size_t end = rest.find('/');
            std::string_view element = rest.substr(0, end);
            rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
            if (element.empty() || element == ".") {
                continue;
            }
            if (element == "..") {
                // Drop the last element; never climb above the root.
                size_t cut = result.find_last_of('/');
                if (result.size() > kept_root && cut != std::string::npos) {
                    result.resize(cut >= kept_root ? cut : kept_root);
                }
                continue;
            }
            if (result.back() != '/') {
                result += '/';
            }
            result += element;
        }
        if (absolute.back() == '/' && result.back() != '/') {
            result += '/';
        }
        *out = std::move(result);
        return 0;
    } catch (...) {
        return ENOMEM;
    }
}

int32_t plat_fs_make_dir(const char *name, uint32_t mode) {
    return ::mkdir(name, static_cast<mode_t>(mode & 07777)) == 0 ? 0 : errno;
}

bool plat_fs_is_exists_error(int32_t code) { return code == EEXIST; }

int32_t plat_fs_exists_error() { return EEXIST; }

// rmdir never follows a link: one in the last element fails with ENOTDIR.
int32_t plat_fs_remove_dir(const char *name) { return ::rmdir(name) == 0 ? 0 : errno; }

int32_t plat_fs_short_path(const char *name, std::string *out) {
    // No short names here; the name must still exist, as on Windows.
    struct stat own {};
    if (::lstat(name, &own) != 0) {
        return errno;
    }
    try {
        out->assign(name);
        return 0;
    } catch (...) {
        return ENOMEM;
    }
}

int32_t plat_utf8_to_wide(const char *text, wchar_t *out, size_t out_count) {
    if (out_count == 0) {
        return ENAMETOOLONG;
    }
    const auto *bytes = reinterpret_cast<const unsigned char *>(text);
    size_t n = 0;
    for (size_t i = 0; bytes[i] != 0;) {
        uint32_t value = 0;
        if (!decode_utf8(bytes, i, value)) {
            out[0] = L'\0';
            return EILSEQ;
        }
        if (n + 1 >= out_count) {
            out[0] = L'\0';
            return ENAMETOOLONG;
        }
        out[n++] = static_cast<wchar_t>(value);
    }
    out[n] = L'\0';
    return 0;
}

int32_t plat_wide_to_utf8(const wchar_t *text, char *out, size_t out_size) {
    if (out_size == 0) {
        return ENAMETOOLONG;
    }
    size_t n = 0;
    for (; *text != L'\0'; ++text) {
        // wchar_t is signed here: a negative value becomes one beyond U+10FFFF.
        auto value = static_cast<uint32_t>(static_cast<std::make_unsigned_t<wchar_t>>(*text));
        if (value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) {
            out[0] = '\0';
            return EILSEQ;
        }
        if (!encode_utf8(value, out, out_size, n)) {
            out[0] = '\0';
            return ENAMETOOLONG;
        }
    }
    out[n] = '\0';
    return 0;
}

// ---- Path rules: one separator, no drives, no long-path form ----------------

bool plat_path_is_separator(char c) { return c == '/'; }

size_t plat_path_drive_length(const char * /*name*/) { return 0; }

bool plat_path_is_full(const char *name) { return name[0] == '/'; }

const char *plat_path_long_prefix(const char * /*name*/, size_t *replaced) {
    *replaced = 0;
    return "";
}

int32_t plat_open_log_file(const char *name, std::FILE **stream) {
    *stream = std::fopen(name, "a");
    return *stream != nullptr ? 0 : errno;
}
