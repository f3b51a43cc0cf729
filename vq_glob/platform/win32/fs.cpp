// Win32 backend: status queries by name, the current directory and full-path
// expansion, directory creation, short names, and the UTF-8 <-> UTF-16
// conversions (code page 65001). Every name goes to the OS in its long-path
// form, so that names beyond MAX_PATH work.
#include "platform/platform.h"

#include "internal/ascii.h"

#include <windows.h>

#include <cerrno>
#include <climits>
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

}  // namespace

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

int32_t plat_fs_make_dir(const char *name) {
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
