// Win32 backend of the file part: the C runtime's descriptor I/O and the
// native CreateFileW handles, both reached through long-path names.
#include "platform/platform.h"

#include <windows.h>

#include <errno.h>
#include <fcntl.h>
#include <io.h>
#include <share.h>
#include <sys/stat.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <cwchar>

namespace {

// The long-path form of a UTF-8 name, written into a buffer on the stack:
// room for the longest name the files module passes, its prefix and the
// expansion of a relative name against the current directory.
constexpr size_t kWideName = kPlatMaxFileName + 512;

struct WideName {
    wchar_t text[kWideName];
};

// "\\?\" names bypass the Win32 name parsing, so the name is first made a
// full path with "/" turned into "\" and "." and ".." resolved
// (GetFullPathNameW); then a "\\node\share" name takes the "\\?\UNC\" prefix
// and any other the "\\?\" prefix. Names already in a raw form pass as they
// are. Returns 0 or the GetLastError value.
DWORD long_name(const char *name, WideName &out) {
    if (MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, name, -1, out.text, static_cast<int>(kWideName)) ==
        0) {
        return GetLastError();
    }
    if (std::wcsncmp(out.text, L"\\\\?\\", 4) == 0 || std::wcsncmp(out.text, L"\\\\.\\", 4) == 0) {
        return 0;
    }
    wchar_t full[kWideName];
    DWORD n = GetFullPathNameW(out.text[0] != L'\0' ? out.text : L".", static_cast<DWORD>(kWideName), full,
                               nullptr);
    if (n == 0) {
        return GetLastError();
    }
    if (n >= kWideName) {
        return ERROR_FILENAME_EXCED_RANGE;
    }
    const wchar_t *prefix = L"\\\\?\\";
    const wchar_t *rest = full;
    if (full[0] == L'\\' && full[1] == L'\\') {
        prefix = L"\\\\?\\UNC\\";
        rest = full + 2;
    }
    size_t prefix_length = std::wcslen(prefix);
    size_t rest_length = std::wcslen(rest);
    if (prefix_length + rest_length + 1 > kWideName) {
        return ERROR_FILENAME_EXCED_RANGE;
    }
    std::wmemcpy(out.text, prefix, prefix_length);
    std::wmemcpy(out.text + prefix_length, rest, rest_length + 1);
    return 0;
}

// The errno value closest to a name-conversion failure.
int32_t errno_of_name_error(DWORD error) {
    return error == ERROR_NO_UNICODE_TRANSLATION                                       ? EILSEQ
           : error == ERROR_FILENAME_EXCED_RANGE || error == ERROR_INSUFFICIENT_BUFFER ? ENAMETOOLONG
                                                                                       : EINVAL;
}

HANDLE handle_of(intptr_t file) { return reinterpret_cast<HANDLE>(file); }

DWORD clamp_dword(size_t size) { return size > 0x7FFFFFFFu ? 0x7FFFFFFFu : static_cast<DWORD>(size); }

int32_t seek_handle(HANDLE handle, int64_t offset) {
    LARGE_INTEGER distance;
    distance.QuadPart = offset;
    return SetFilePointerEx(handle, distance, nullptr, FILE_BEGIN) ? 0 : static_cast<int32_t>(GetLastError());
}

}  // namespace

const PlatCrtOpenBits &plat_crt_open_bits() {
    static constexpr PlatCrtOpenBits kBits{_O_RDONLY, _O_WRONLY, _O_RDWR,   _O_TRUNC,
                                           _O_EXCL,   _O_CREAT,  _O_APPEND, _O_BINARY};
    return kBits;
}

void plat_file_error_text(PlatIo io, int32_t code, char *buf, size_t size) {
    if (buf == nullptr || size == 0) {
        return;
    }
    if (io == PlatIo::native) {
        plat_system_error_text(code, buf, size);
        return;
    }
    if (strerror_s(buf, size, code) != 0 || buf[0] == '\0') {
        std::snprintf(buf, size, "system error %d", static_cast<int>(code));
    }
}

bool plat_file_is_exists_error(PlatIo io, int32_t code) {
    if (io == PlatIo::crt) {
        return code == EEXIST || code == EACCES;
    }
    return code == ERROR_FILE_EXISTS || code == ERROR_ALREADY_EXISTS || code == ERROR_ACCESS_DENIED ||
           code == ERROR_SHARING_VIOLATION;
}

int32_t plat_file_invalid_argument(PlatIo io) { return io == PlatIo::crt ? EINVAL : ERROR_INVALID_PARAMETER; }

int32_t plat_file_no_space(PlatIo io) { return io == PlatIo::crt ? ENOSPC : ERROR_DISK_FULL; }

// ---- C runtime descriptors ------------------------------------------------------------

int32_t plat_crt_file_open(const char *name, int flags, int mode, bool deny_writers, int *fd) {
    WideName wide;
    DWORD name_error = long_name(name, wide);
    if (name_error != 0) {
        return errno_of_name_error(name_error);
    }
    int opened = deny_writers ? _wsopen(wide.text, flags, _SH_DENYWR, mode) : _wopen(wide.text, flags, mode);
    if (opened == -1) {
        return errno;
    }
    *fd = opened;
    return 0;
}

int32_t plat_crt_file_read(int fd, void *buffer, size_t size, size_t *done) {
    int n = _read(fd, buffer, static_cast<unsigned>(size > INT_MAX ? INT_MAX : size));
    if (n < 0) {
        *done = 0;
        return errno;
    }
    *done = static_cast<size_t>(n);
    return 0;
}

int32_t plat_crt_file_write(int fd, const void *buffer, size_t size, size_t *done) {
    int n = _write(fd, buffer, static_cast<unsigned>(size > INT_MAX ? INT_MAX : size));
    if (n < 0) {
        *done = 0;
        return errno;
    }
    *done = static_cast<size_t>(n);
    return 0;
}

int32_t plat_crt_file_seek(int fd, int64_t offset) {
    return _lseeki64(fd, offset, SEEK_SET) == -1 ? errno : 0;
}

int32_t plat_crt_file_commit(int fd) { return _commit(fd) == 0 ? 0 : errno; }

int32_t plat_crt_file_close(int fd) { return _close(fd) == 0 ? 0 : errno; }

intptr_t plat_crt_file_native(int fd) { return fd < 0 ? kPlatNoFile : _get_osfhandle(fd); }

int32_t plat_crt_file_make_writable(const char *name) {
    WideName wide;
    DWORD name_error = long_name(name, wide);
    if (name_error != 0) {
        return errno_of_name_error(name_error);
    }
    int32_t error = _wchmod(wide.text, _S_IREAD | _S_IWRITE) == 0 ? 0 : errno;
    SetFileAttributesW(wide.text, FILE_ATTRIBUTE_NORMAL);
    return error;
}

// ---- Native handles -------------------------------------------------------------------

namespace {

DWORD access_of(uint32_t access) {
    return ((access & kPlatAccessRead) != 0 ? GENERIC_READ : 0u) |
           ((access & kPlatAccessWrite) != 0 ? GENERIC_WRITE : 0u);
}

DWORD share_of(uint32_t share) {
    return ((share & kPlatShareRead) != 0 ? FILE_SHARE_READ : 0u) |
           ((share & kPlatShareWrite) != 0 ? FILE_SHARE_WRITE : 0u) |
           ((share & kPlatShareDelete) != 0 ? FILE_SHARE_DELETE : 0u);
}

// CreateFileW's creation disposition; 0, which it refuses, for none.
DWORD disposition_of(PlatDisposition disposition) {
    switch (disposition) {
        case PlatDisposition::create_new:
            return CREATE_NEW;
        case PlatDisposition::create_always:
            return CREATE_ALWAYS;
        case PlatDisposition::open_existing:
            return OPEN_EXISTING;
        case PlatDisposition::open_always:
            return OPEN_ALWAYS;
        case PlatDisposition::truncate_existing:
            return TRUNCATE_EXISTING;
        case PlatDisposition::none:
            break;
    }
    return 0;
}

}  // namespace

int32_t plat_native_file_open(const char *name, const PlatNativeOpen &how, int /*mode*/, intptr_t *file) {
    WideName wide;
    DWORD name_error = long_name(name, wide);
    if (name_error != 0) {
        return static_cast<int32_t>(name_error);
    }
    DWORD disposition = disposition_of(how.disposition);
    if (disposition == 0) {
        return ERROR_INVALID_PARAMETER;
    }
    HANDLE handle = CreateFileW(wide.text, access_of(how.access), share_of(how.share), nullptr, disposition,
                                how.write_through ? FILE_FLAG_WRITE_THROUGH : 0u, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        return static_cast<int32_t>(GetLastError());
    }
    *file = reinterpret_cast<intptr_t>(handle);
    return 0;
}

int32_t plat_native_file_read(intptr_t file, void *buffer, size_t size, size_t *done) {
    DWORD n = 0;
    if (!ReadFile(handle_of(file), buffer, clamp_dword(size), &n, nullptr)) {
        *done = 0;
        DWORD error = GetLastError();
        return error == ERROR_HANDLE_EOF || error == ERROR_BROKEN_PIPE ? 0 : static_cast<int32_t>(error);
    }
    *done = n;
    return 0;
}

int32_t plat_native_file_write(intptr_t file, const void *buffer, size_t size, size_t *done) {
    DWORD n = 0;
    if (!WriteFile(handle_of(file), buffer, clamp_dword(size), &n, nullptr)) {
        *done = 0;
        return static_cast<int32_t>(GetLastError());
    }
    *done = n;
    return 0;
}

int32_t plat_native_file_seek(intptr_t file, int64_t offset) { return seek_handle(handle_of(file), offset); }

int32_t plat_native_file_flush(intptr_t file) {
    return FlushFileBuffers(handle_of(file)) ? 0 : static_cast<int32_t>(GetLastError());
}

int32_t plat_native_file_close(intptr_t file) {
    return CloseHandle(handle_of(file)) ? 0 : static_cast<int32_t>(GetLastError());
}

// ---- Either kind ------------------------------------------------------------------------

int32_t plat_file_set_inherit(intptr_t file, bool inherit) {
    return SetHandleInformation(handle_of(file), HANDLE_FLAG_INHERIT, inherit ? HANDLE_FLAG_INHERIT : 0)
               ? 0
               : static_cast<int32_t>(GetLastError());
}

int32_t plat_file_truncate(intptr_t file, int64_t size) {
    HANDLE handle = handle_of(file);
    int32_t error = seek_handle(handle, size);
    if (error != 0) {
        return error;
    }
    return SetEndOfFile(handle) ? 0 : static_cast<int32_t>(GetLastError());
}

namespace {

PlatFileKind kind_of_attributes(DWORD attributes, bool follow_links) {
    if (!follow_links && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
        return PlatFileKind::link;
    }
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
        return PlatFileKind::directory;
    }
    if ((attributes & FILE_ATTRIBUTE_DEVICE) != 0) {
        return PlatFileKind::other;
    }
    return PlatFileKind::regular;
}

}  // namespace

int32_t plat_file_kind(intptr_t file, PlatFileKind *kind) {
    HANDLE handle = handle_of(file);
    SetLastError(ERROR_SUCCESS);
    DWORD type = GetFileType(handle);
    switch (type) {
        case FILE_TYPE_PIPE:
            *kind = PlatFileKind::fifo;
            return 0;
        case FILE_TYPE_CHAR:
            *kind = PlatFileKind::other;
            return 0;
        case FILE_TYPE_DISK: {
            BY_HANDLE_FILE_INFORMATION info;
            if (!GetFileInformationByHandle(handle, &info)) {
                return static_cast<int32_t>(GetLastError());
            }
            // An open handle stands for what a link points to.
            *kind = kind_of_attributes(info.dwFileAttributes, true);
            return 0;
        }
        default: {
            DWORD error = GetLastError();
            if (error != ERROR_SUCCESS) {
                return static_cast<int32_t>(error);
            }
            *kind = PlatFileKind::other;
            return 0;
        }
    }
}

int32_t plat_file_size(intptr_t file, uint64_t *size) {
    LARGE_INTEGER bytes;
    if (!GetFileSizeEx(handle_of(file), &bytes)) {
        return static_cast<int32_t>(GetLastError());
    }
    *size = bytes.QuadPart > 0 ? static_cast<uint64_t>(bytes.QuadPart) : 0;
    return 0;
}

int32_t plat_file_kind_by_name(const char *name, bool follow_links, PlatFileKind *kind) {
    WideName wide;
    DWORD name_error = long_name(name, wide);
    if (name_error != 0) {
        return static_cast<int32_t>(name_error);
    }
    DWORD attributes = GetFileAttributesW(wide.text);
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        return static_cast<int32_t>(GetLastError());
    }
    if (follow_links && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
        // The target's own attributes: open it (a directory needs backup
        // semantics to be opened at all) and ask the handle.
        HANDLE handle = CreateFileW(wide.text, FILE_READ_ATTRIBUTES,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                    OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
        if (handle == INVALID_HANDLE_VALUE) {
            return static_cast<int32_t>(GetLastError());
        }
        int32_t error = plat_file_kind(reinterpret_cast<intptr_t>(handle), kind);
        CloseHandle(handle);
        return error;
    }
    *kind = kind_of_attributes(attributes, follow_links);
    return 0;
}

int32_t plat_file_remove(const char *name) {
    WideName wide;
    DWORD name_error = long_name(name, wide);
    if (name_error != 0) {
        return static_cast<int32_t>(name_error);
    }
    return DeleteFileW(wide.text) ? 0 : static_cast<int32_t>(GetLastError());
}

int32_t plat_default_ansi_code_page(char *buf, size_t size) {
    if (GetLocaleInfoA(LOCALE_SYSTEM_DEFAULT, LOCALE_IDEFAULTANSICODEPAGE, buf, static_cast<int>(size)) ==
        0) {
        return static_cast<int32_t>(GetLastError());
    }
    return 0;
}

int32_t plat_open_for_whole_read(const char *name, intptr_t *file) {
    WideName wide;
    DWORD name_error = long_name(name, wide);
    if (name_error != 0) {
        return static_cast<int32_t>(name_error);
    }
    // Backup semantics let a directory open, so that it is refused by its
    // kind rather than by an access-denied error that hides what it is.
    HANDLE handle = CreateFileW(wide.text, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        return static_cast<int32_t>(GetLastError());
    }
    *file = reinterpret_cast<intptr_t>(handle);
    return 0;
}
