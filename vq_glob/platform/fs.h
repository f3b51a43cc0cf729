// The narrow OS interface, file-system name part: included by platform.h.
//
// Names are UTF-8. On Windows they reach the OS as long-path wide names
// ("\\?\C:\..." or "\\?\UNC\node\...", made from the name's full path so that
// relative names work too); on POSIX they go to the OS as given. Failures leave
// the platform's error number for plat_last_error() (errno / GetLastError).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// What one name denotes. is_dir and is_regular describe what a symbolic link
// points to (a dangling link is neither); is_link describes the name itself
// (on Windows: any reparse point, junctions included).
struct PlatFsStatus {
    bool is_dir = false;
    bool is_regular = false;
    bool is_link = false;
};

// Fills *status for an existing name (stat/lstat, GetFileAttributesW). False
// when the name does not exist or cannot be queried.
bool plat_fs_status(const char *name, PlatFsStatus *status);

// The process's current directory, UTF-8, without a trailing separator
// (except for a root). False when it cannot be read.
bool plat_fs_current_dir(std::string *out);

// The absolute form of name with "." and ".." resolved by text alone, no link
// followed, a trailing separator kept: GetFullPathNameW on Windows; on POSIX
// the current directory joined with a relative name, then normalised, with
// "//node/share" as the root of a remote name. An empty name is the current
// directory.
bool plat_fs_full_path(const char *name, std::string *out);

// Creates one directory whose parent exists (mode 0777 less the umask on
// POSIX). plat_fs_is_exists_error tells a failure because the name exists.
bool plat_fs_make_dir(const char *name);
bool plat_fs_is_exists_error(int32_t code);

// The short (8.3) form of an existing name (GetShortPathNameW); POSIX has no
// short names and returns an existing name unchanged.
bool plat_fs_short_path(const char *name, std::string *out);

// UTF-8 to the platform's wide characters (UTF-16 through code page 65001 on
// Windows, UTF-32 in wchar_t on POSIX), terminator included, into at most
// out_count wide characters. Invalid UTF-8 fails (ERROR_NO_UNICODE_TRANSLATION
// / EILSEQ), as does a result that does not fit (ERROR_INSUFFICIENT_BUFFER /
// ENAMETOOLONG); out then holds an empty text when out_count > 0.
bool plat_utf8_to_wide(const char *text, wchar_t *out, size_t out_count);
// The way back, into at most out_size bytes with the terminator. Unpaired
// surrogates and values beyond U+10FFFF fail; so does a result that does not fit.
bool plat_wide_to_utf8(const wchar_t *text, char *out, size_t out_size);
