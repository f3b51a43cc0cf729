// Win32 backend of the configuration module's file operations.
#include "platform/conf_io.h"

#include <io.h>
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

namespace {

// Whether the system took no allocation request at all (FAT, some network
// redirectors, Wine), as opposed to having no room.
bool allocation_unsupported(DWORD error) {
    return error == ERROR_INVALID_PARAMETER || error == ERROR_NOT_SUPPORTED || error == ERROR_INVALID_FUNCTION ||
           error == ERROR_CALL_NOT_IMPLEMENTED;
}

// Lengthens the file to size bytes: the file system must find the clusters
// at once, and fails with ERROR_DISK_FULL when it cannot, leaving the length
// as it was. The file pointer, which the C runtime's writes use, is put back.
int32_t extend_end_of_file(HANDLE file, int64_t size) {
    LARGE_INTEGER none{};
    LARGE_INTEGER was{};
    if (!SetFilePointerEx(file, none, &was, FILE_CURRENT)) {
        return static_cast<int32_t>(GetLastError());
    }
    LARGE_INTEGER end{};
    end.QuadPart = size;
    DWORD error = 0;
    if (!SetFilePointerEx(file, end, nullptr, FILE_BEGIN) || !SetEndOfFile(file)) {
        error = GetLastError();
    }
    if (!SetFilePointerEx(file, was, nullptr, FILE_BEGIN) && error == 0) {
        error = GetLastError();
    }
    return static_cast<int32_t>(error);
}

}  // namespace

int32_t plat_conf_reserve(int fd, uint64_t size) {
    HANDLE file = reinterpret_cast<HANDLE>(_get_osfhandle(fd));
    if (file == INVALID_HANDLE_VALUE) {
        return ERROR_INVALID_HANDLE;
    }
    // Only a disk file has a length and old bytes to protect.
    if (GetFileType(file) != FILE_TYPE_DISK) {
        return 0;
    }
    if (size > static_cast<uint64_t>(INT64_MAX)) {
        return ERROR_FILE_TOO_LARGE;
    }
    LARGE_INTEGER old{};
    if (!GetFileSizeEx(file, &old)) {
        return static_cast<int32_t>(GetLastError());
    }
    auto wanted = static_cast<int64_t>(size);
    if (wanted <= old.QuadPart) {
        return 0;  // the file's own clusters hold the new text
    }
    // The allocation stays with the open file (up to its close), so the
    // write that follows lands in clusters already taken; the length and the
    // bytes are left alone.
    FILE_ALLOCATION_INFO allocation{};
    allocation.AllocationSize.QuadPart = wanted;
    if (SetFileInformationByHandle(file, FileAllocationInfo, &allocation, sizeof allocation)) {
        return 0;
    }
    DWORD error = GetLastError();
    if (!allocation_unsupported(error)) {
        return static_cast<int32_t>(error);
    }
    return extend_end_of_file(file, wanted);
}

bool plat_conf_text_uses_crlf() { return true; }
