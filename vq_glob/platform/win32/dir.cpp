// Win32 backend: directories read with FindFirstFileW/FindNextFileW and
// changed by long-path names. Windows has no calls relative to an open
// directory, so a PlatDir keeps its long-path wide name and its children are
// reached by joined names; where the caller does not follow links, reparse
// points (symbolic links and junctions) are refused or described as
// themselves (FILE_FLAG_OPEN_REPARSE_POINT) instead.
#include "platform/platform.h"
#include "platform/win32/wide_text.h"

#include <windows.h>
#include <winioctl.h>

#include <cstddef>
#include <cstring>
#include <new>
#include <string>
#include <vector>

struct PlatDir {
    std::string path;   // UTF-8, as the caller named it
    std::wstring wide;  // the long-path form
    HANDLE find = INVALID_HANDLE_VALUE;
    WIN32_FIND_DATAW data{};
    bool pending = false;  // data holds an entry not yet handed out
    bool ended = false;
};

namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// Windows' file times count 100 ns from 1601; ours from 1970.
constexpr int64_t kEpochDifference = 116444736000000000LL;

int32_t last_error() { return static_cast<int32_t>(GetLastError()); }

// A UTF-8 name element as UTF-16.
int32_t wide_of(const char *text, std::wstring *out) {
    std::wstring wide(std::strlen(text) + 1, L'\0');  // never more units than bytes
    if (int32_t error = plat_utf8_to_wide(text, wide.data(), wide.size()); error != 0) {
        return error;
    }
    wide.resize(wide.find(L'\0'));
    *out = std::move(wide);
    return 0;
}

// The long-path name of the entry name of dir.
int32_t child_name(const PlatDir *dir, const char *name, std::wstring *out) {
    std::wstring element;
    if (int32_t error = wide_of(name, &element); error != 0) {
        return error;
    }
    *out = dir->wide;
    if (out->empty() || out->back() != L'\\') {
        out->push_back(L'\\');
    }
    out->append(element);
    return 0;
}

// Opens name for queries, or for setting times with write_attributes; the
// name itself when it is a reparse point and follow is false.
HANDLE open_object(const std::wstring &name, bool follow, bool write_attributes) {
    DWORD access = FILE_READ_ATTRIBUTES | (write_attributes ? FILE_WRITE_ATTRIBUTES : 0);
    DWORD flags = FILE_FLAG_BACKUP_SEMANTICS | (follow ? 0 : FILE_FLAG_OPEN_REPARSE_POINT);
    return CreateFileW(name.c_str(), access, kShareAll, nullptr, OPEN_EXISTING, flags, nullptr);
}

int64_t unix_time_of(const FILETIME &time) {
    int64_t ticks = static_cast<int64_t>((static_cast<uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime);
    return ticks - kEpochDifference;
}

void fill_status(const BY_HANDLE_FILE_INFORMATION &info, bool as_link, PlatFsStatus *status) {
    *status = PlatFsStatus{};
    status->is_link = (info.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 || as_link;
    bool is_dir = (info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    if (!as_link) {
        status->is_dir = is_dir;
        status->is_regular = (info.dwFileAttributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_DEVICE)) == 0;
    }
    status->device = info.dwVolumeSerialNumber;
    status->inode = (static_cast<uint64_t>(info.nFileIndexHigh) << 32) | info.nFileIndexLow;
    status->size = (static_cast<uint64_t>(info.nFileSizeHigh) << 32) | info.nFileSizeLow;
    status->modified = unix_time_of(info.ftLastWriteTime);
}

// Describes name: itself, or with follow what a reparse point leads to (a
// dangling one is described as itself).
int32_t describe(const std::wstring &name, bool follow, PlatFsStatus *status) {
    HANDLE own = open_object(name, false, false);
    if (own == INVALID_HANDLE_VALUE) {
        return last_error();
    }
    BY_HANDLE_FILE_INFORMATION info{};
    bool got = GetFileInformationByHandle(own, &info) != 0;
    int32_t error = got ? 0 : last_error();
    CloseHandle(own);
    if (!got) {
        return error;
    }
    bool is_link = (info.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    if (!is_link || !follow) {
        fill_status(info, is_link, status);
        return 0;
    }
    HANDLE target = open_object(name, true, false);
    BY_HANDLE_FILE_INFORMATION pointed{};
    if (target == INVALID_HANDLE_VALUE || GetFileInformationByHandle(target, &pointed) == 0) {
        if (target != INVALID_HANDLE_VALUE) {
            CloseHandle(target);
        }
        fill_status(info, true, status);  // dangling
        return 0;
    }
    CloseHandle(target);
    fill_status(pointed, false, status);
    status->is_link = true;
    return 0;
}

// Opens the directory with the long-path name wide.
int32_t open_wide(std::wstring wide, std::string path, bool no_follow, PlatDir **out) {
    DWORD attributes = GetFileAttributesW(wide.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        return last_error();
    }
    if (no_follow && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
        return ERROR_CANT_ACCESS_FILE;
    }
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
        return ERROR_DIRECTORY;
    }
    auto *dir = new PlatDir;
    dir->wide = std::move(wide);
    dir->path = std::move(path);
    *out = dir;
    return 0;
}

PlatDirType type_of(const WIN32_FIND_DATAW &data) {
    if ((data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
        return PlatDirType::link;
    }
    if ((data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
        return PlatDirType::dir;
    }
    if ((data.dwFileAttributes & FILE_ATTRIBUTE_DEVICE) != 0) {
        return PlatDirType::other;
    }
    return PlatDirType::file;
}

bool is_dot_name(const wchar_t *name) {
    return name[0] == L'.' && (name[1] == L'\0' || (name[1] == L'.' && name[2] == L'\0'));
}

// The reparse data of a symbolic link or a junction, as the system lays it out.
struct ReparseData {
    ULONG tag;
    USHORT data_length;
    USHORT reserved;
    USHORT substitute_offset;
    USHORT substitute_length;
    USHORT print_offset;
    USHORT print_length;
};

// The link text from reparse data: the print name, or the substitute name
// when the print name is empty. Offsets count bytes from the path buffer,
// which follows a flags word for symbolic links only.
int32_t link_text(const std::vector<BYTE> &buffer, DWORD size, std::wstring *text) {
    if (size < sizeof(ReparseData)) {
        return ERROR_INVALID_DATA;
    }
    ReparseData head;
    std::memcpy(&head, buffer.data(), sizeof head);
    size_t paths = sizeof head;
    if (head.tag == IO_REPARSE_TAG_SYMLINK) {
        paths += sizeof(ULONG);
    } else if (head.tag != IO_REPARSE_TAG_MOUNT_POINT) {
        return ERROR_NOT_A_REPARSE_POINT;
    }
    USHORT offset = head.print_length != 0 ? head.print_offset : head.substitute_offset;
    USHORT length = head.print_length != 0 ? head.print_length : head.substitute_length;
    if (paths + offset + length > size) {
        return ERROR_INVALID_DATA;
    }
    text->assign(length / sizeof(wchar_t), L'\0');
    std::memcpy(text->data(), buffer.data() + paths + offset, length);
    return 0;
}

// Whether name exists as a reparse point (a link or a junction).
bool is_reparse_point(const std::wstring &name) {
    DWORD attributes = GetFileAttributesW(name.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

// Makes the symbolic link wide holding text. Developer mode lets
// unprivileged users make links; older systems refuse the flag itself, so it
// is tried first and then left out. Some systems (Wine) report a link made
// without making anything: that counts as links not being supported.
int32_t make_symbolic_link(const std::wstring &wide, const std::wstring &text, bool to_directory) {
    DWORD flags = to_directory ? SYMBOLIC_LINK_FLAG_DIRECTORY : 0;
    constexpr DWORD kUnprivileged = 0x2;
    bool made = CreateSymbolicLinkW(wide.c_str(), text.c_str(), flags | kUnprivileged) != 0;
    if (!made && GetLastError() == ERROR_INVALID_PARAMETER) {
        made = CreateSymbolicLinkW(wide.c_str(), text.c_str(), flags) != 0;
    }
    if (!made) {
        return last_error();
    }
    return is_reparse_point(wide) ? 0 : ERROR_NOT_SUPPORTED;
}

// The absolute DOS name of text, counted from the directory parent (a
// long-path name) when relative; empty when it has none.
std::wstring absolute_target(const std::wstring &parent, const std::wstring &text) {
    const bool absolute = text.size() >= 3 && text[1] == L':' && (text[2] == L'\\' || text[2] == L'/');
    std::wstring joined = absolute ? text : parent + L"\\" + text;
    const std::wstring long_prefix = L"\\\\?\\";
    if (joined.compare(0, long_prefix.size(), long_prefix) == 0) {
        joined.erase(0, long_prefix.size());
    }
    DWORD size = GetFullPathNameW(joined.c_str(), 0, nullptr, nullptr);
    if (size == 0) {
        return {};
    }
    std::wstring full(size, L'\0');
    DWORD length = GetFullPathNameW(joined.c_str(), size, full.data(), nullptr);
    if (length == 0 || length >= size) {
        return {};
    }
    full.resize(length);
    // A junction leads to a drive's directory only.
    return full.size() >= 3 && full[1] == L':' && full[2] == L'\\' ? full : std::wstring();
}

// Makes wide a junction to the directory text (relative to parent). A
// junction holds the absolute name; the new directory goes again when the
// reparse data is refused. The data: the header, then the substitute and
// print names, each ending in a null.
int32_t make_junction(const std::wstring &parent, const std::wstring &wide, const std::wstring &text) {
    const std::wstring print = absolute_target(parent, text);
    if (print.empty()) {
        return ERROR_INVALID_NAME;
    }
    const std::wstring substitute = L"\\??\\" + print;
    const size_t names = (substitute.size() + 1 + print.size() + 1) * sizeof(wchar_t);
    if (sizeof(ReparseData) + names > MAXIMUM_REPARSE_DATA_BUFFER_SIZE) {
        return ERROR_FILENAME_EXCED_RANGE;
    }
    ReparseData head{};
    head.tag = IO_REPARSE_TAG_MOUNT_POINT;
    head.data_length = static_cast<USHORT>(names + 8);
    head.substitute_length = static_cast<USHORT>(substitute.size() * sizeof(wchar_t));
    head.print_offset = static_cast<USHORT>(head.substitute_length + sizeof(wchar_t));
    head.print_length = static_cast<USHORT>(print.size() * sizeof(wchar_t));
    std::vector<BYTE> buffer(sizeof head + names, 0);
    std::memcpy(buffer.data(), &head, sizeof head);
    std::memcpy(buffer.data() + sizeof head, substitute.c_str(), head.substitute_length);
    std::memcpy(buffer.data() + sizeof head + head.print_offset, print.c_str(), head.print_length);
    if (CreateDirectoryW(wide.c_str(), nullptr) == 0) {
        return last_error();
    }
    HANDLE handle = CreateFileW(wide.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    int32_t error = handle == INVALID_HANDLE_VALUE ? last_error() : 0;
    if (error == 0) {
        DWORD returned = 0;
        if (DeviceIoControl(handle, FSCTL_SET_REPARSE_POINT, buffer.data(), static_cast<DWORD>(buffer.size()), nullptr,
                            0, &returned, nullptr) == 0) {
            error = last_error();
        }
        CloseHandle(handle);
    }
    if (error == 0 && !is_reparse_point(wide)) {
        error = ERROR_NOT_SUPPORTED;
    }
    if (error != 0) {
        RemoveDirectoryW(wide.c_str());
    }
    return error;
}

}  // namespace

int32_t plat_dir_open(const char *path, bool no_follow, PlatDir **out) {
    *out = nullptr;
    try {
        std::wstring wide;
        if (int32_t error = vq::win32::long_wide_name(path, &wide); error != 0) {
            return error;
        }
        return open_wide(std::move(wide), path, no_follow, out);
    } catch (...) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

int32_t plat_dir_open_child(PlatDir *parent, const char *name, bool no_follow, PlatDir **out) {
    *out = nullptr;
    try {
        std::wstring wide;
        if (int32_t error = child_name(parent, name, &wide); error != 0) {
            return error;
        }
        std::string path = parent->path;
        if (path.empty() || !plat_path_is_separator(path.back())) {
            path.push_back('\\');
        }
        path.append(name);
        return open_wide(std::move(wide), std::move(path), no_follow, out);
    } catch (...) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

int32_t plat_dir_next(PlatDir *dir, PlatDirEntry *entry, bool *end) {
    try {
        for (;;) {
            if (dir->ended) {
                *end = true;
                return 0;
            }
            if (dir->find == INVALID_HANDLE_VALUE) {
                std::wstring pattern = dir->wide;
                if (pattern.empty() || pattern.back() != L'\\') {
                    pattern.push_back(L'\\');
                }
                pattern.push_back(L'*');
                dir->find = FindFirstFileW(pattern.c_str(), &dir->data);
                if (dir->find == INVALID_HANDLE_VALUE) {
                    int32_t error = last_error();
                    if (error != ERROR_FILE_NOT_FOUND) {
                        return error;
                    }
                    dir->ended = true;
                    continue;
                }
                dir->pending = true;
            }
            if (!dir->pending && FindNextFileW(dir->find, &dir->data) == 0) {
                int32_t error = last_error();
                if (error != ERROR_NO_MORE_FILES) {
                    return error;
                }
                dir->ended = true;
                continue;
            }
            dir->pending = false;
            if (is_dot_name(dir->data.cFileName)) {
                continue;
            }
            if (int32_t error = vq::win32::utf8_of(dir->data.cFileName, &entry->name); error != 0) {
                return error;
            }
            entry->type = type_of(dir->data);
            *end = false;
            return 0;
        }
    } catch (...) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

int32_t plat_dir_rewind(PlatDir *dir) {
    if (dir->find != INVALID_HANDLE_VALUE) {
        FindClose(dir->find);
        dir->find = INVALID_HANDLE_VALUE;
    }
    dir->pending = false;
    dir->ended = false;
    return 0;
}

int32_t plat_dir_child_status(PlatDir *dir, const char *name, bool follow, PlatFsStatus *status) {
    try {
        std::wstring wide;
        if (int32_t error = child_name(dir, name, &wide); error != 0) {
            return error;
        }
        return describe(wide, follow, status);
    } catch (...) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

int32_t plat_dir_remove_child(PlatDir *dir, const char *name, bool /*is_dir*/) {
    try {
        std::wstring wide;
        if (int32_t error = child_name(dir, name, &wide); error != 0) {
            return error;
        }
        // A directory link carries the directory attribute and goes with
        // RemoveDirectoryW, which removes the link and never its target.
        DWORD attributes = GetFileAttributesW(wide.c_str());
        if (attributes == INVALID_FILE_ATTRIBUTES) {
            return last_error();
        }
        bool removed = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? RemoveDirectoryW(wide.c_str()) != 0
                                                                      : DeleteFileW(wide.c_str()) != 0;
        return removed ? 0 : last_error();
    } catch (...) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

const std::string &plat_dir_path(const PlatDir *dir) { return dir->path; }

void plat_dir_close(PlatDir *dir) {
    if (dir == nullptr) {
        return;
    }
    if (dir->find != INVALID_HANDLE_VALUE) {
        FindClose(dir->find);
    }
    delete dir;
}

int32_t plat_dir_status(PlatDir *dir, PlatFsStatus *status) {
    try {
        return describe(dir->wide, true, status);
    } catch (...) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

bool plat_dir_is_vanished_error(int32_t code) {
    return code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND || code == ERROR_DIRECTORY ||
           code == ERROR_CANT_ACCESS_FILE;
}

int32_t plat_dir_missing_error() { return ERROR_PATH_NOT_FOUND; }

int32_t plat_dir_make_child(PlatDir *dir, const char *name, uint32_t /*mode*/) {
    try {
        std::wstring wide;
        if (int32_t error = child_name(dir, name, &wide); error != 0) {
            return error;
        }
        return CreateDirectoryW(wide.c_str(), nullptr) != 0 ? 0 : last_error();
    } catch (...) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

int32_t plat_dir_read_link(PlatDir *dir, const char *name, std::string *target) {
    try {
        std::wstring wide;
        if (int32_t error = child_name(dir, name, &wide); error != 0) {
            return error;
        }
        HANDLE link = CreateFileW(wide.c_str(), 0, kShareAll, nullptr, OPEN_EXISTING,
                                  FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
        if (link == INVALID_HANDLE_VALUE) {
            return last_error();
        }
        std::vector<BYTE> buffer(MAXIMUM_REPARSE_DATA_BUFFER_SIZE);
        DWORD size = 0;
        bool got = DeviceIoControl(link, FSCTL_GET_REPARSE_POINT, nullptr, 0, buffer.data(),
                                   static_cast<DWORD>(buffer.size()), &size, nullptr) != 0;
        int32_t error = got ? 0 : last_error();
        CloseHandle(link);
        if (!got) {
            return error;
        }
        std::wstring text;
        if (error = link_text(buffer, size, &text); error != 0) {
            return error;
        }
        return vq::win32::utf8_of(text.c_str(), target);
    } catch (...) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

int32_t plat_dir_make_link(PlatDir *dir, const char *name, const char *target, bool to_directory) {
    try {
        std::wstring wide;
        std::wstring text;
        if (int32_t error = child_name(dir, name, &wide); error != 0) {
            return error;
        }
        if (int32_t error = wide_of(target, &text); error != 0) {
            return error;
        }
        int32_t error = make_symbolic_link(wide, text, to_directory);
        // Without the privilege (no developer mode) a directory can still be
        // reached through a junction, which any user may make.
        if (to_directory && (error == ERROR_PRIVILEGE_NOT_HELD || error == ERROR_NOT_SUPPORTED)) {
            int32_t junction_error = make_junction(dir->wide, wide, text);
            return junction_error == 0 ? 0 : error;
        }
        return error;
    } catch (...) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

int32_t plat_dir_copy_file(PlatDir *from, const char *name, PlatDir *to, const char *new_name, bool follow_link) {
    try {
        std::wstring source;
        std::wstring target;
        if (int32_t error = child_name(from, name, &source); error != 0) {
            return error;
        }
        if (int32_t error = child_name(to, new_name, &target); error != 0) {
            return error;
        }
        // CopyFileExW keeps the attributes and the last-write time; unless
        // asked to follow, a link is copied as a link.
        DWORD flags = COPY_FILE_FAIL_IF_EXISTS | (follow_link ? 0 : COPY_FILE_COPY_SYMLINK);
        if (CopyFileExW(source.c_str(), target.c_str(), nullptr, nullptr, nullptr, flags) != 0) {
            return 0;
        }
        int32_t error = last_error();
        DeleteFileW(target.c_str());
        return error;
    } catch (...) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

int32_t plat_dir_copy_attributes(PlatDir *from, PlatDir *to) {
    HANDLE source = open_object(from->wide, true, false);
    if (source == INVALID_HANDLE_VALUE) {
        return last_error();
    }
    FILETIME accessed{};
    FILETIME written{};
    bool got = GetFileTime(source, nullptr, &accessed, &written) != 0;
    int32_t error = got ? 0 : last_error();
    CloseHandle(source);
    if (!got) {
        return error;
    }
    HANDLE target = open_object(to->wide, true, true);
    if (target == INVALID_HANDLE_VALUE) {
        return last_error();
    }
    error = SetFileTime(target, nullptr, &accessed, &written) != 0 ? 0 : last_error();
    CloseHandle(target);
    return error;
}

int32_t plat_dir_rename_child(PlatDir *dir, const char *from, const char *to, bool replace) {
    try {
        std::wstring old_name;
        std::wstring new_name;
        if (int32_t error = child_name(dir, from, &old_name); error != 0) {
            return error;
        }
        if (int32_t error = child_name(dir, to, &new_name); error != 0) {
            return error;
        }
        return MoveFileExW(old_name.c_str(), new_name.c_str(), replace ? MOVEFILE_REPLACE_EXISTING : 0) != 0
                   ? 0
                   : last_error();
    } catch (...) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}
