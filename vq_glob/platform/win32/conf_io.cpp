// Win32 backend of the configuration module's replace-by-rename.
#include "platform/conf_io.h"

#include <windows.h>

#include <string>

namespace {

// The UTF-16 form of a UTF-8 name, with the long-path prefix for full paths
// so that names beyond MAX_PATH work.
bool wide_name(const char *name, std::wstring &out) {
    int n = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, name, -1, nullptr, 0);
    if (n <= 0) {
        return false;
    }
    std::wstring wide(static_cast<size_t>(n), L'\0');
    MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, name, -1, wide.data(), n);
    wide.resize(static_cast<size_t>(n - 1));
    for (wchar_t &c : wide) {
        if (c == L'/') {
            c = L'\\';
        }
    }
    DWORD full = GetFullPathNameW(wide.c_str(), 0, nullptr, nullptr);
    if (full == 0) {
        return false;
    }
    std::wstring path(full, L'\0');
    DWORD got = GetFullPathNameW(wide.c_str(), full, path.data(), nullptr);
    if (got == 0 || got >= full) {
        return false;
    }
    path.resize(got);
    if (path.rfind(L"\\\\?\\", 0) == 0) {
        out = path;
    } else if (path.rfind(L"\\\\", 0) == 0) {
        out = L"\\\\?\\UNC\\" + path.substr(2);
    } else {
        out = L"\\\\?\\" + path;
    }
    return true;
}

}  // namespace

int32_t plat_conf_replace_file(const char *source, const char *target) {
    std::wstring from;
    std::wstring to;
    if (!wide_name(source, from) || !wide_name(target, to)) {
        return static_cast<int32_t>(GetLastError());
    }
    if (!MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
        return static_cast<int32_t>(GetLastError());
    }
    return 0;
}
