// Win32 backend: status queries by name, the current directory and full-path
// expansion, directory creation, short names, attributes, times, renames and
// hard links by name, and the UTF-8 <-> UTF-16 conversions (code page 65001). Every name goes to the OS in its long-path
// form, so that names beyond MAX_PATH work.
#include "platform/platform.h"

#include "internal/ascii.h"

#include <windows.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

namespace {

constexpr std::wstring_view kLongPrefix = L"\\\\?\\";
constexpr std::wstring_view kLongUncPrefix = L"\\\\?\\UNC\\";
constexpr std::wstring_view kDevicePrefix = L"\\\\.\\";

int clamp_count(size_t count) { return count > INT_MAX ? INT_MAX : static_cast<int>(count); }

// The error number of the call that just failed.
int32_t last_error() { return static_cast<int32_t>(GetLastError()); }

// UTF-8 to UTF-16 of any length: 0, or the error (invalid UTF-8 fails).
int32_t to_wide(const char *text, std::wstring *out) {
    int n = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text, -1, nullptr, 0);
    if (n <= 0) {
        return last_error();
    }
    out->assign(static_cast<size_t>(n), L'\0');
    if (MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text, -1, out->data(), n) != n) {
        return last_error();
    }
    out->resize(static_cast<size_t>(n) - 1);
    return 0;
}

// UTF-16 to UTF-8 of any length: 0, or the error (unpaired surrogates fail).
int32_t to_utf8(const wchar_t *text, std::string *out) {
    int n = WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, text, -1, nullptr, 0, nullptr, nullptr);
    if (n <= 0) {
        return last_error();
    }
    out->assign(static_cast<size_t>(n), '\0');
    if (WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, text, -1, out->data(), n, nullptr, nullptr) != n) {
        return last_error();
    }
    out->resize(static_cast<size_t>(n) - 1);
    return 0;
}

// GetFullPathNameW into a string sized by a first call: 0, or the error.
int32_t full_wide(const std::wstring &name, std::wstring *out) {
    const wchar_t *input = name.empty() ? L"." : name.c_str();
    DWORD needed = GetFullPathNameW(input, 0, nullptr, nullptr);
    if (needed == 0) {
        return last_error();
    }
    out->assign(needed, L'\0');
    DWORD written = GetFullPathNameW(input, needed, out->data(), nullptr);
    if (written == 0) {
        return last_error();
    }
    if (written >= needed) {
        return ERROR_INSUFFICIENT_BUFFER;  // the current directory changed between the calls
    }
    out->resize(written);
    return 0;
}

// The long-path form of a UTF-8 name: its full path behind "\\?\", or a UNC
// name behind "\\?\UNC\". Names already in a raw form stay as they are.
// 0, or the error of the conversion or the expansion.
int32_t long_name(const char *name, std::wstring *out) {
    std::wstring wide;
    if (int32_t error = to_wide(name, &wide); error != 0) {
        return error;
    }
    if (wide.starts_with(kLongPrefix) || wide.starts_with(kDevicePrefix)) {
        *out = std::move(wide);
        return 0;
    }
    std::wstring full;
    if (int32_t error = full_wide(wide, &full); error != 0) {
        return error;
    }
    if (full.starts_with(L"\\\\")) {
        *out = std::wstring(kLongUncPrefix) + full.substr(2);
    } else {
        *out = std::wstring(kLongPrefix) + full;
    }
    return 0;
}

// The ordinary form of a long-path name.
std::wstring strip_long_prefix(const std::wstring &name) {
    if (name.starts_with(kLongUncPrefix)) {
        return L"\\\\" + name.substr(kLongUncPrefix.size());
    }
    if (name.starts_with(kLongPrefix)) {
        return name.substr(kLongPrefix.size());
    }
    return name;
}

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
// FILETIMEs count 100 ns steps from 1601; Unix times seconds from 1970.
constexpr int64_t kSecondsFrom1601To1970 = 11644473600LL;
constexpr int64_t kTicksPerSecond = 10000000;

// Opens name for its attributes (reading them, or with write also setting
// its times); the name itself when it is a reparse point and follow is false.
// INVALID_HANDLE_VALUE on failure, with the error in *error.
HANDLE open_attributes(const char *name, bool follow, bool write, int32_t *error) {
    std::wstring wide;
    if (*error = long_name(name, &wide); *error != 0) {
        return INVALID_HANDLE_VALUE;
    }
    const DWORD access = FILE_READ_ATTRIBUTES | (write ? FILE_WRITE_ATTRIBUTES : 0);
    const DWORD flags = FILE_FLAG_BACKUP_SEMANTICS | (follow ? 0 : FILE_FLAG_OPEN_REPARSE_POINT);
    HANDLE handle = CreateFileW(wide.c_str(), access, kShareAll, nullptr, OPEN_EXISTING, flags, nullptr);
    *error = handle == INVALID_HANDLE_VALUE ? last_error() : 0;
    return handle;
}

// Ticks from 1601 are never negative: split before moving the epoch, so
// that times before 1970 keep their nanoseconds positive too.
void unix_time_of(int64_t ticks, int64_t *seconds, int32_t *nanoseconds) {
    *seconds = ticks / kTicksPerSecond - kSecondsFrom1601To1970;
    *nanoseconds = static_cast<int32_t>((ticks % kTicksPerSecond) * 100);
}

PlatFileType type_of(DWORD attributes, bool follow) {
    if (!follow && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
        return PlatFileType::link;
    }
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
        return PlatFileType::dir;
    }
    return (attributes & FILE_ATTRIBUTE_DEVICE) != 0 ? PlatFileType::other : PlatFileType::file;
}

// Runs call(first, second) on the long-path forms of two names: 0 when it
// succeeds, else the error of the conversion or of the call.
template <typename Call>
int32_t with_long_names(const char *first, const char *second, Call call) {
    try {
        std::wstring first_wide;
        std::wstring second_wide;
        if (int32_t error = long_name(first, &first_wide); error != 0) {
            return error;
        }
        if (int32_t error = long_name(second, &second_wide); error != 0) {
            return error;
        }
        return call(first_wide.c_str(), second_wide.c_str()) ? 0 : last_error();
    } catch (...) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

// The full path of name cut into its directory and its last element, which
// the directory calls take (a root has no last element and fails).
int32_t split_last(const char *name, std::string *parent, std::string *element) {
    std::string full;
    if (int32_t error = plat_fs_full_path(name, &full); error != 0) {
        return error;
    }
    const size_t cut = full.find_last_of("\\/");
    if (cut == std::string::npos || cut + 1 == full.size()) {
        return ERROR_INVALID_NAME;
    }
    *element = full.substr(cut + 1);
    // A drive root keeps its separator: "C:" alone is the drive's current directory.
    full.resize(cut == 2 && plat_path_drive_length(full.c_str()) == 2 ? cut + 1 : cut);
    *parent = std::move(full);
    return 0;
}

// Runs action(dir, element) on the open directory of name's last element.
template <typename Action>
int32_t in_parent(const char *name, Action action) {
    try {
        std::string parent;
        std::string element;
        if (int32_t error = split_last(name, &parent, &element); error != 0) {
            return error;
        }
        PlatDir *dir = nullptr;
        if (int32_t error = plat_dir_open(parent.c_str(), false, &dir); error != 0) {
            return error;
        }
        int32_t error = action(dir, element, parent);
        plat_dir_close(dir);
        return error;
    } catch (...) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

}  // namespace

int32_t plat_fs_make_symlink(const char *target, const char *link_name) {
    return in_parent(link_name, [target](PlatDir *dir, const std::string &element, const std::string &parent) {
        // What the link will lead to: a relative text counts from the link's directory.
        const bool relative = !plat_path_is_full(target) && plat_path_drive_length(target) == 0 &&
                              !plat_path_is_separator(target[0]);
        const std::string destination = relative ? parent + "\\" + target : std::string(target);
        PlatFsStatus status;
        const bool to_directory = plat_fs_status(destination.c_str(), &status) == 0 && status.is_dir;
        return plat_dir_make_link(dir, element.c_str(), target, to_directory);
    });
}

int32_t plat_fs_read_link(const char *name, std::string *target) {
    return in_parent(name, [target](PlatDir *dir, const std::string &element, const std::string & /*parent*/) {
        return plat_dir_read_link(dir, element.c_str(), target);
    });
}

int32_t plat_fs_file_status(const char *name, bool follow_links, PlatFileStatus *status) {
    try {
        int32_t error = 0;
        HANDLE handle = open_attributes(name, follow_links, false, &error);
        if (handle == INVALID_HANDLE_VALUE) {
            return error;
        }
        BY_HANDLE_FILE_INFORMATION info{};
        FILE_BASIC_INFO basic{};  // the only source of the change time
        const bool got = GetFileInformationByHandle(handle, &info) != 0 &&
                         GetFileInformationByHandleEx(handle, FileBasicInfo, &basic, sizeof basic) != 0;
        error = got ? 0 : last_error();
        CloseHandle(handle);
        if (!got) {
            return error;
        }
        *status = PlatFileStatus{};
        status->type = type_of(info.dwFileAttributes, follow_links);
        status->size = (static_cast<uint64_t>(info.nFileSizeHigh) << 32) | info.nFileSizeLow;
        const int64_t ticks = static_cast<int64_t>((static_cast<uint64_t>(info.ftLastWriteTime.dwHighDateTime) << 32) |
                                                   info.ftLastWriteTime.dwLowDateTime);
        unix_time_of(ticks, &status->modified_seconds, &status->modified_nanoseconds);
        unix_time_of(basic.ChangeTime.QuadPart, &status->changed_seconds, &status->changed_nanoseconds);
        const bool read_only = (info.dwFileAttributes & FILE_ATTRIBUTE_READONLY) != 0;
        status->mode = (read_only ? 0444u : 0666u) | (status->type == PlatFileType::dir ? 0111u : 0u);
        status->device = info.dwVolumeSerialNumber;
        status->inode = (static_cast<uint64_t>(info.nFileIndexHigh) << 32) | info.nFileIndexLow;
        status->links = info.nNumberOfLinks;
        return 0;
    } catch (...) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

int32_t plat_fs_set_mode(const char *name, uint32_t mode) {
    try {
        std::wstring wide;
        if (int32_t error = long_name(name, &wide); error != 0) {
            return error;
        }
        DWORD attributes = GetFileAttributesW(wide.c_str());
        if (attributes == INVALID_FILE_ATTRIBUTES) {
            return last_error();
        }
        if ((mode & 0200u) != 0) {
            attributes &= ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY);
        } else {
            attributes |= FILE_ATTRIBUTE_READONLY;
        }
        // The attributes GetFileAttributesW reports but SetFileAttributesW
        // does not take are dropped; none left means a normal file.
        attributes &= ~static_cast<DWORD>(FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT |
                                          FILE_ATTRIBUTE_DEVICE | FILE_ATTRIBUTE_COMPRESSED |
                                          FILE_ATTRIBUTE_ENCRYPTED | FILE_ATTRIBUTE_SPARSE_FILE);
        if (attributes == 0) {
            attributes = FILE_ATTRIBUTE_NORMAL;
        }
        return SetFileAttributesW(wide.c_str(), attributes) != 0 ? 0 : last_error();
    } catch (...) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

int32_t plat_fs_set_times(const char *name, int64_t seconds, int32_t nanoseconds) {
    constexpr int64_t kLatest = INT64_MAX / kTicksPerSecond - kSecondsFrom1601To1970 - 1;
    if (seconds < -kSecondsFrom1601To1970 || seconds > kLatest || nanoseconds < 0 || nanoseconds > 999999999) {
        return ERROR_INVALID_PARAMETER;
    }
    const auto ticks =
        static_cast<uint64_t>((seconds + kSecondsFrom1601To1970) * kTicksPerSecond + nanoseconds / 100);
    FILETIME when{};
    when.dwLowDateTime = static_cast<DWORD>(ticks & 0xFFFFFFFFu);
    when.dwHighDateTime = static_cast<DWORD>(ticks >> 32);
    try {
        int32_t error = 0;
        HANDLE handle = open_attributes(name, true, true, &error);
        if (handle == INVALID_HANDLE_VALUE) {
            return error;
        }
        error = SetFileTime(handle, nullptr, &when, &when) != 0 ? 0 : last_error();
        CloseHandle(handle);
        return error;
    } catch (...) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

int32_t plat_fs_rename(const char *from, const char *to, bool replace) {
    return with_long_names(from, to, [replace](const wchar_t *old_name, const wchar_t *new_name) {
        return MoveFileExW(old_name, new_name, replace ? MOVEFILE_REPLACE_EXISTING : 0) != 0;
    });
}

int32_t plat_fs_hard_link(const char *existing, const char *new_name) {
    return with_long_names(existing, new_name, [](const wchar_t *target, const wchar_t *link) {
        return CreateHardLinkW(link, target, nullptr) != 0;
    });
}

bool plat_fs_is_cross_device_error(int32_t code) { return code == ERROR_NOT_SAME_DEVICE; }

int32_t plat_fs_status(const char *name, PlatFsStatus *status) {
    try {
        std::wstring wide;
        if (int32_t error = long_name(name, &wide); error != 0) {
            return error;
        }
        WIN32_FILE_ATTRIBUTE_DATA data{};
        if (GetFileAttributesExW(wide.c_str(), GetFileExInfoStandard, &data) == 0) {
            return last_error();
        }
        // A directory link carries the directory attribute, a file link not:
        // the attributes of the name itself already tell what it points to.
        // Size and time are the name's own (a link's, not its target's).
        const DWORD attributes = data.dwFileAttributes;
        *status = PlatFsStatus{};
        status->is_dir = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        status->is_regular = (attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_DEVICE)) == 0;
        status->is_link = (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
        status->size = (static_cast<uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
        // 100 ns units from 1601 to 100 ns units from 1970.
        const uint64_t written =
            (static_cast<uint64_t>(data.ftLastWriteTime.dwHighDateTime) << 32) | data.ftLastWriteTime.dwLowDateTime;
        status->modified = static_cast<int64_t>(written) - 116444736000000000LL;
        return 0;
    } catch (...) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

int32_t plat_fs_current_dir(std::string *out) {
    try {
        DWORD needed = GetCurrentDirectoryW(0, nullptr);
        if (needed == 0) {
            return last_error();
        }
        std::wstring wide(needed, L'\0');
        DWORD written = GetCurrentDirectoryW(needed, wide.data());
        if (written == 0) {
            return last_error();
        }
        if (written >= needed) {
            return ERROR_INSUFFICIENT_BUFFER;  // the current directory changed between the calls
        }
        wide.resize(written);
        return to_utf8(wide.c_str(), out);
    } catch (...) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

int32_t plat_fs_full_path(const char *name, std::string *out) {
    try {
        std::wstring wide;
        std::wstring full;
        int32_t error = to_wide(name, &wide);
        if (error == 0) {
            error = full_wide(wide, &full);
        }
        return error == 0 ? to_utf8(full.c_str(), out) : error;
    } catch (...) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

int32_t plat_fs_make_dir(const char *name, uint32_t /*mode*/) {
    try {
        std::wstring wide;
        if (int32_t error = long_name(name, &wide); error != 0) {
            return error;
        }
        return CreateDirectoryW(wide.c_str(), nullptr) != 0 ? 0 : last_error();
    } catch (...) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

bool plat_fs_is_exists_error(int32_t code) {
    return code == ERROR_ALREADY_EXISTS || code == ERROR_FILE_EXISTS;
}

int32_t plat_fs_exists_error() { return ERROR_FILE_EXISTS; }

// RemoveDirectoryW would remove a directory link or junction itself, so the
// object is opened as itself, looked at, and marked for deletion through that
// same handle: what was looked at is what goes, and only when it is a real
// directory (the system refuses one with entries: ERROR_DIR_NOT_EMPTY).
int32_t plat_fs_remove_dir(const char *name) {
    try {
        std::wstring wide;
        if (int32_t error = long_name(name, &wide); error != 0) {
            return error;
        }
        HANDLE handle = CreateFileW(wide.c_str(), DELETE | FILE_READ_ATTRIBUTES, kShareAll, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
        if (handle == INVALID_HANDLE_VALUE) {
            return last_error();
        }
        BY_HANDLE_FILE_INFORMATION info{};
        int32_t error = GetFileInformationByHandle(handle, &info) != 0 ? 0 : last_error();
        const DWORD attributes = info.dwFileAttributes;
        if (error == 0 && ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0 ||
                           (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)) {
            error = ERROR_DIRECTORY;  // a file or a link: "the directory name is invalid"
        }
        if (error == 0) {
            FILE_DISPOSITION_INFO disposition{};
            disposition.DeleteFile = TRUE;
            if (SetFileInformationByHandle(handle, FileDispositionInfo, &disposition, sizeof disposition) == 0) {
                error = last_error();
            }
        }
        CloseHandle(handle);
        return error;
    } catch (...) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

int32_t plat_fs_short_path(const char *name, std::string *out) {
    try {
        // Short names keep a relative name relative; only names too long for
        // the plain call take the long-path form.
        std::wstring wide;
        if (int32_t error = to_wide(name, &wide); error != 0) {
            return error;
        }
        bool long_form = wide.size() >= MAX_PATH;
        if (int32_t error = long_form ? long_name(name, &wide) : 0; error != 0) {
            return error;
        }
        DWORD needed = GetShortPathNameW(wide.c_str(), nullptr, 0);
        if (needed == 0) {
            return last_error();
        }
        std::wstring result(needed, L'\0');
        DWORD written = GetShortPathNameW(wide.c_str(), result.data(), needed);
        if (written == 0) {
            return last_error();
        }
        if (written >= needed) {
            return ERROR_INSUFFICIENT_BUFFER;
        }
        result.resize(written);
        if (long_form) {
            result = strip_long_prefix(result);
        }
        return to_utf8(result.c_str(), out);
    } catch (...) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

int32_t plat_utf8_to_wide(const char *text, wchar_t *out, size_t out_count) {
    if (out_count == 0) {
        return ERROR_INSUFFICIENT_BUFFER;
    }
    if (MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text, -1, out, clamp_count(out_count)) == 0) {
        int32_t error = last_error();
        out[0] = L'\0';
        return error;
    }
    return 0;
}

int32_t plat_wide_to_utf8(const wchar_t *text, char *out, size_t out_size) {
    if (out_size == 0) {
        return ERROR_INSUFFICIENT_BUFFER;
    }
    if (WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, text, -1, out, clamp_count(out_size), nullptr,
                            nullptr) == 0) {
        int32_t error = last_error();
        out[0] = '\0';
        return error;
    }
    return 0;
}

// ---- Path rules: drives, two separators, the long-path prefixes -----------------

bool plat_path_is_separator(char c) { return c == '\\' || c == '/'; }

size_t plat_path_drive_length(const char *name) {
    return vq::ascii::is_alpha(name[0]) && name[1] == ':' ? 2 : 0;
}

bool plat_path_is_full(const char *name) {
    if (plat_path_drive_length(name) == 2 && name[2] == '\\') {
        return true;
    }
    return name[0] == '\\' && name[1] == '\\';
}

const char *plat_path_long_prefix(const char *name, size_t *replaced) {
    // The prefix takes the name past the MAX_PATH limit and past the name
    // parsing of the Win32 layer; a UNC name drops its own two backslashes.
    if (name[0] == '\\' && name[1] == '\\') {
        *replaced = 2;
        return "\\\\?\\UNC\\";
    }
    *replaced = 0;
    return "\\\\?\\";
}

int32_t plat_open_log_file(const char *name, std::FILE **stream) {
    *stream = nullptr;
    try {
        // The long-path form, so that the log name may pass MAX_PATH as every
        // other name of the library may.
        std::wstring wide;
        if (int32_t error = long_name(name, &wide); error != 0) {
            return error == ERROR_NO_UNICODE_TRANSLATION ? EILSEQ : EINVAL;
        }
        *stream = _wfopen(wide.c_str(), L"a");
        return *stream != nullptr ? 0 : errno;
    } catch (...) {
        return ENOMEM;
    }
}
