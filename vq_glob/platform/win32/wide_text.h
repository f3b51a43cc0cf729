// Win32 backend: UTF-8 names and texts to and from the wide forms the
// system's W functions take, of any length, built on the backend's own
// conversions (plat_utf8_to_wide / plat_wide_to_utf8, code page 65001).
#pragma once

#include "platform/platform.h"

#include <windows.h>

#include <cwchar>
#include <string>

namespace vq::win32 {

// The long-path wide form of a UTF-8 name: its full path (GetFullPathNameW,
// which leaves wildcards alone) behind "\\?\", or "\\?\UNC\" for a
// "\\node\share" name. 0, or the error number.
inline int32_t long_wide_name(const char *name, std::wstring *out) {
    try {
        std::string full;
        if (int32_t error = plat_fs_full_path(name, &full); error != 0) {
            return error;
        }
        size_t replaced = 0;
        const char *prefix = plat_path_long_prefix(full.c_str(), &replaced);
        const std::string long_name = std::string(prefix) + full.substr(replaced);
        // UTF-16 never needs more units than UTF-8 has bytes.
        std::wstring wide(long_name.size() + 1, L'\0');
        if (int32_t error = plat_utf8_to_wide(long_name.c_str(), wide.data(), wide.size()); error != 0) {
            return error;
        }
        wide.resize(wide.find(L'\0'));
        *out = std::move(wide);
        return 0;
    } catch (...) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

// The UTF-8 form of a wide text: 0, or the error number (an unpaired
// surrogate fails).
inline int32_t utf8_of(const wchar_t *text, std::string *out) {
    try {
        // Three bytes of UTF-8 at most for each UTF-16 unit.
        std::string narrow(std::wcslen(text) * 3 + 1, '\0');
        if (int32_t error = plat_wide_to_utf8(text, narrow.data(), narrow.size()); error != 0) {
            return error;
        }
        narrow.resize(narrow.find('\0'));
        *out = std::move(narrow);
        return 0;
    } catch (...) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

}  // namespace vq::win32
