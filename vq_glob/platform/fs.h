// The narrow OS interface, file-system name part: included by platform.h.
//
// Names are UTF-8. On Windows they reach the OS as long-path wide names
// ("\\?\C:\..." or "\\?\UNC\node\...", made from the name's full path so that
// relative names work too); on POSIX they go to the OS as given. Operations
// return 0 or the platform's error number (errno / GetLastError values), so
// that callers never depend on errno or GetLastError surviving.
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
    // Of what the query describes (the link itself when it does not follow).
    // device and inode identify one object: st_dev/st_ino on POSIX, the
    // volume serial number and file index on Windows (filled by
    // plat_dir_child_status; plat_fs_status leaves them 0 on Windows, where
    // they cost an open). mode is the POSIX permission bits (0 on Windows);
    // modified is the last-write time in 100 ns units since 1970.
    uint64_t device = 0;
    uint64_t inode = 0;
    uint64_t size = 0;
    uint32_t mode = 0;
    int64_t modified = 0;
};

// Fills *status for an existing name (stat/lstat, GetFileAttributesW): 0, or
// the error number of the query (a missing name, no access, a name that
// cannot be converted...). Callers asking whether a name denotes something
// take any error for "no".
int32_t plat_fs_status(const char *name, PlatFsStatus *status);

// ---- One file by name: its full status, permissions, times, renames, links -----

enum class PlatFileType { file, dir, link, other };

// What plat_fs_file_status tells of one object.
struct PlatFileStatus {
    PlatFileType type = PlatFileType::other;  // link only when not followed
    uint64_t size = 0;
    int64_t modified_seconds = 0;      // last write, since 1970 UTC
    int32_t modified_nanoseconds = 0;  // 0 to 999,999,999 (100 ns steps on Windows)
    // POSIX permission bits; on Windows 0444 or 0666 from the read-only
    // attribute, with 0111 added for a directory.
    uint32_t mode = 0;
    // st_dev/st_ino on POSIX; the volume serial number and file index on Windows.
    uint64_t device = 0;
    uint64_t inode = 0;
    uint32_t links = 0;  // hard links to the object
    // Last status change: st_ctim on POSIX, ChangeTime of FileBasicInfo on Windows.
    int64_t changed_seconds = 0;
    int32_t changed_nanoseconds = 0;
};

// The status of name: with follow_links what a symbolic link (a reparse point
// on Windows) leads to, a dangling link failing; without, the link itself.
int32_t plat_fs_file_status(const char *name, bool follow_links, PlatFileStatus *status);

// Sets the permission bits of what name leads to (chmod); Windows sets the
// read-only attribute when the owner write bit (0200) is clear, else clears it.
int32_t plat_fs_set_mode(const char *name, uint32_t mode);

// Sets the last-write and last-access times of what name leads to, both to
// seconds since 1970 and nanoseconds (0 to 999,999,999; Windows keeps 100 ns
// steps and refuses times before 1601 as an invalid argument).
int32_t plat_fs_set_times(const char *name, int64_t seconds, int32_t nanoseconds);

// Renames from to to, both names of one file system. With replace an existing
// non-directory to is replaced in one step; without it an existing to fails
// with the error plat_fs_is_exists_error recognises and nothing changes
// (renameat2 RENAME_NOREPLACE, or a hard link and an unlink where the file
// system lacks it; MoveFileExW without MOVEFILE_REPLACE_EXISTING).
int32_t plat_fs_rename(const char *from, const char *to, bool replace);

// Makes new_name a hard link to existing (a symbolic link is linked as itself
// on POSIX). An existing new_name fails as plat_fs_is_exists_error tells.
int32_t plat_fs_hard_link(const char *existing, const char *new_name);

// True for the error of a rename or link between two file systems (EXDEV /
// ERROR_NOT_SAME_DEVICE): the caller has to copy instead.
bool plat_fs_is_cross_device_error(int32_t code);

// Makes link_name a symbolic link holding target as given. On Windows it is a
// directory link when target (relative to link_name's directory unless full)
// leads to a directory, which tells the two kinds apart there.
int32_t plat_fs_make_symlink(const char *target, const char *link_name);

// The text of the symbolic link name, whole and unchanged (readlink; the
// print or substitute name of a link or junction on Windows). A name that is
// no link fails (EINVAL / ERROR_NOT_A_REPARSE_POINT).
int32_t plat_fs_read_link(const char *name, std::string *target);

// The process's current directory, UTF-8, without a trailing separator
// (except for a root).
int32_t plat_fs_current_dir(std::string *out);

// The absolute form of name with "." and ".." resolved by text alone, no link
// followed, a trailing separator kept: GetFullPathNameW on Windows; on POSIX
// the current directory joined with a relative name, then normalised, with
// "//node/share" as the root of a remote name. An empty name is the current
// directory.
int32_t plat_fs_full_path(const char *name, std::string *out);

// Creates one directory whose parent exists, with the POSIX permission bits
// mode less the umask (Windows ignores mode). plat_fs_is_exists_error tells a
// failure because the name exists.
int32_t plat_fs_make_dir(const char *name, uint32_t mode = 0777);
bool plat_fs_is_exists_error(int32_t code);
// The error number of a name that exists already (EEXIST / ERROR_FILE_EXISTS),
// for a caller that finds it so before asking the system to create it.
int32_t plat_fs_exists_error();

// Removes the empty directory name. A directory with entries, a file and a
// symbolic link (a reparse point on Windows, junctions included) fail and are
// left as they were: a link is never followed nor removed.
int32_t plat_fs_remove_dir(const char *name);

// The short (8.3) form of an existing name (GetShortPathNameW); POSIX has no
// short names and returns an existing name unchanged.
int32_t plat_fs_short_path(const char *name, std::string *out);

// UTF-8 to the platform's wide characters (UTF-16 through code page 65001 on
// Windows, UTF-32 in wchar_t on POSIX), terminator included, into at most
// out_count wide characters. Invalid UTF-8 fails (ERROR_NO_UNICODE_TRANSLATION
// / EILSEQ), as does a result that does not fit (ERROR_INSUFFICIENT_BUFFER /
// ENAMETOOLONG); out then holds an empty text when out_count > 0.
int32_t plat_utf8_to_wide(const char *text, wchar_t *out, size_t out_count);
// The way back, into at most out_size bytes with the terminator. Unpaired
// surrogates and values beyond U+10FFFF fail; so does a result that does not fit.
int32_t plat_wide_to_utf8(const wchar_t *text, char *out, size_t out_size);

// ---- Path rules ---------------------------------------------------------------
//
// Where the two systems spell names differently. The separator itself is the
// public VQ_PATH_SEPARATOR ("\" on Windows, "/" on POSIX).

// True for a character that ends a path element: "\" and "/" on Windows,
// "/" on POSIX.
bool plat_path_is_separator(char c);
// Length of the drive at the start of name: 2 for an ASCII letter and a
// colon on Windows, else 0; always 0 on POSIX.
size_t plat_path_drive_length(const char *name);
// Whether name is a full path by its text: a drive, a colon and a backslash,
// or two backslashes on Windows; a leading "/" on POSIX.
bool plat_path_is_full(const char *name);
// The text that puts name into the OS's long-path form and how many of the
// name's leading characters it replaces: "\\?\UNC\" for two (a name
// beginning with two backslashes) or "\\?\" for none on Windows; "" and
// none on POSIX, whose names go to the OS as given.
const char *plat_path_long_prefix(const char *name, size_t *replaced);
