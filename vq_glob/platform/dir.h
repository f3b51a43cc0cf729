// The narrow OS interface, directory part: included by platform.h.
//
// Directories are read and changed relative to an open directory (openat,
// fstatat, unlinkat on POSIX), so that a walk that goes down by names never
// leaves the tree when a name it met is replaced by a symbolic link before it
// is opened: a child is opened without following a link, and what the walk
// examined is what it enters. Windows has no such calls; its backend keeps the
// directory's path and opens children by joined names, refusing reparse points
// (links and junctions) when asked not to follow.
//
// Names are UTF-8; errors are the platform's own numbers, as everywhere here.
#pragma once

#include <cstdint>
#include <string>

struct PlatFsStatus;

// What a directory entry is, as far as the directory itself tells
// (d_type / the find record's attributes). unknown means the caller must ask
// plat_dir_child_status; link is a symbolic link (any reparse point on Windows).
enum class PlatDirType { unknown, file, dir, link, other };

struct PlatDirEntry {
    std::string name;  // one element, never "." or ".."
    PlatDirType type = PlatDirType::unknown;
};

// An open directory; opaque.
struct PlatDir;

// Opens path for reading its entries. With no_follow, a path whose last
// element is a symbolic link (a reparse point) is refused (ELOOP /
// ERROR_CANT_ACCESS_FILE); links above the last element are followed.
// 0 with *out set, or the error number with *out null.
int32_t plat_dir_open(const char *path, bool no_follow, PlatDir **out);

// Opens the entry name of an open directory as a directory, relative to it.
// no_follow as above; a name that is not a directory fails (ENOTDIR /
// ERROR_DIRECTORY).
int32_t plat_dir_open_child(PlatDir *parent, const char *name, bool no_follow, PlatDir **out);

// The next entry, "." and ".." left out: 0 with *entry filled and *end false;
// 0 with *end true after the last one; or the error number.
int32_t plat_dir_next(PlatDir *dir, PlatDirEntry *entry, bool *end);

// Starts the entries again from the first one.
int32_t plat_dir_rewind(PlatDir *dir);

// What the entry name of dir denotes (fstatat); with follow false a symbolic
// link is described as itself (is_link set, is_dir and is_regular false).
int32_t plat_dir_child_status(PlatDir *dir, const char *name, bool follow, PlatFsStatus *status);

// Removes the entry name of dir: an empty directory when is_dir, otherwise
// the file or the link itself (never what a link points to).
int32_t plat_dir_remove_child(PlatDir *dir, const char *name, bool is_dir);

// The path dir was opened by (the parent's path joined with the child's
// name for plat_dir_open_child), for messages and for the Windows backend.
const std::string &plat_dir_path(const PlatDir *dir);

// Closes dir; a null dir is ignored.
void plat_dir_close(PlatDir *dir);

// The name of the file system that holds path (GetVolumeInformationA on the
// volume root on Windows, such as "NTFS" or "FAT32"; on POSIX the name of the
// statfs type when known, such as "ext4", "tmpfs", "xfs", else "unknown").
int32_t plat_fs_volume_name(const char *path, std::string *name);

// Whether the Windows file-system rules of the filter apply (the recycler,
// "System Volume Information" and the system configuration directory):
// true on Windows, false on POSIX.
bool plat_fs_has_system_dir_rules();
