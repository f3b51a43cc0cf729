// Win32 backend of the name search: FindFirstFileW / FindNextFileW on the
// long-path wide form of the directory and pattern; the system matches the
// names itself.
#include "platform/platform.h"

#include "platform/win32/wide_text.h"

#include <windows.h>

#include <new>
#include <string>

struct PlatFind {
    HANDLE handle = INVALID_HANDLE_VALUE;
    WIN32_FIND_DATAW record{};
    bool record_unread = false;  // the record FindFirstFileW returned
    bool ended = false;
};

namespace {

bool is_dot_or_dot_dot(const wchar_t *name) {
    return name[0] == L'.' && (name[1] == L'\0' || (name[1] == L'.' && name[2] == L'\0'));
}

}  // namespace

bool plat_find_matches_names() { return true; }

int32_t plat_find_open(const char *directory, const char *pattern, PlatFind **out) {
    *out = nullptr;
    std::wstring wide;
    try {
        const std::string spec = std::string(directory) + pattern;
        if (int32_t error = vq::win32::long_wide_name(spec.c_str(), &wide); error != 0) {
            return error;
        }
    } catch (const std::bad_alloc &) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    auto *find = new (std::nothrow) PlatFind;
    if (find == nullptr) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    find->handle = FindFirstFileW(wide.c_str(), &find->record);
    if (find->handle == INVALID_HANDLE_VALUE) {
        auto error = static_cast<int32_t>(GetLastError());
        delete find;
        return error;
    }
    find->record_unread = true;
    *out = find;
    return 0;
}

int32_t plat_find_next(PlatFind *find, std::string *name, bool *end) {
    *end = false;
    while (!find->ended) {
        if (!find->record_unread && FindNextFileW(find->handle, &find->record) == 0) {
            DWORD error = GetLastError();
            if (error != ERROR_NO_MORE_FILES) {
                return static_cast<int32_t>(error);
            }
            find->ended = true;
            break;
        }
        find->record_unread = false;
        if (is_dot_or_dot_dot(find->record.cFileName)) {
            continue;
        }
        return vq::win32::utf8_of(find->record.cFileName, name);
    }
    *end = true;
    return 0;
}

bool plat_find_is_no_file_error(int32_t code) {
    return code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND;
}

void plat_find_close(PlatFind *find) {
    if (find == nullptr) {
        return;
    }
    FindClose(find->handle);
    delete find;
}
