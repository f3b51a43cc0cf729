// Win32 backend of resolve.h: the final name and the last-write time of a
// handle opened on what a name leads to. Names reach the system in their long-path
// form, built through the backend's own path functions.
#include "platform/resolve.h"

#include "platform/platform.h"
#include "platform/win32/wide_text.h"

#include <windows.h>

#include <string>
#include <string_view>

namespace {

using vq::win32::long_wide_name;

constexpr int64_t kNtEpochOffset = 11644473600;
constexpr uint64_t kNtTicksPerSecond = 10000000;

constexpr std::wstring_view kLongPrefix = L"\\\\?\\";
constexpr std::wstring_view kLongUncPrefix = L"\\\\?\\UNC\\";

// The ordinary form of a name GetFinalPathNameByHandleW gives.
std::wstring without_long_prefix(const std::wstring &name) {
    if (name.starts_with(kLongUncPrefix)) {
        return L"\\\\" + name.substr(kLongUncPrefix.size());
    }
    if (name.starts_with(kLongPrefix)) {
        return name.substr(kLongPrefix.size());
    }
    return name;
}

int32_t final_name(HANDLE file, std::wstring *out) {
    const DWORD flags = FILE_NAME_NORMALIZED | VOLUME_NAME_DOS;
    DWORD needed = GetFinalPathNameByHandleW(file, nullptr, 0, flags);
    if (needed == 0) {
        return static_cast<int32_t>(GetLastError());
    }
    std::wstring name(needed, L'\0');
    DWORD written = GetFinalPathNameByHandleW(file, name.data(), needed, flags);
    if (written == 0 || written >= needed) {
        return written == 0 ? static_cast<int32_t>(GetLastError()) : ERROR_INSUFFICIENT_BUFFER;
    }
    name.resize(written);
    *out = without_long_prefix(name);
    return 0;
}

// Opens what a name leads to (links followed) for queries only: no access
// asked, so that nothing is held back; backup semantics let a directory open
// too. INVALID_HANDLE_VALUE with *error set on failure.
HANDLE open_for_query(const char *name, int32_t *error) {
    std::wstring wide;
    if (*error = long_wide_name(name, &wide); *error != 0) {
        return INVALID_HANDLE_VALUE;
    }
    HANDLE file = CreateFileW(wide.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                              OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        *error = static_cast<int32_t>(GetLastError());
    }
    return file;
}

}  // namespace

bool plat_fs_nt_times_are_native() { return true; }

int32_t plat_fs_real_path(const char *name, std::string *out) {
    try {
        int32_t error = 0;
        HANDLE file = open_for_query(name, &error);
        if (file == INVALID_HANDLE_VALUE) {
            return error;
        }
        std::wstring resolved;
        error = final_name(file, &resolved);
        CloseHandle(file);
        if (error != 0) {
            return error;
        }
        // Each UTF-16 unit becomes at most three bytes of UTF-8.
        std::string utf8(resolved.size() * 3 + 1, '\0');
        if (error = plat_wide_to_utf8(resolved.c_str(), utf8.data(), utf8.size()); error != 0) {
            return error;
        }
        utf8.resize(utf8.find('\0'));
        *out = std::move(utf8);
        return 0;
    } catch (...) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

int32_t plat_fs_write_times(const char *name, PlatWriteTimes *out) {
    try {
        int32_t error = 0;
        HANDLE file = open_for_query(name, &error);
        if (file == INVALID_HANDLE_VALUE) {
            return error;
        }
        FILETIME written;
        const bool got = GetFileTime(file, nullptr, nullptr, &written) != 0;
        error = got ? 0 : static_cast<int32_t>(GetLastError());
        CloseHandle(file);
        if (!got) {
            return error;
        }
        out->nt_time = (static_cast<uint64_t>(written.dwHighDateTime) << 32) | written.dwLowDateTime;
        out->unix_seconds = static_cast<int64_t>(out->nt_time / kNtTicksPerSecond) - kNtEpochOffset;
        return 0;
    } catch (...) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}
