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

// The open directory's own status (fstat): identity, permission bits and
// last-write time of the directory itself.
int32_t plat_dir_status(PlatDir *dir, PlatFsStatus *status);

// True for the errors that mean an entry is no longer what the directory
// listed: gone, or replaced by another kind of object (a file where a
// directory was, a link where no link is followed). A walk steps over them.
bool plat_dir_is_vanished_error(int32_t code);
// The error number that reports a missing name (ENOENT / ERROR_PATH_NOT_FOUND),
// for a directory found replaced by another one when it is opened again.
int32_t plat_dir_missing_error();

// ---- Changing a tree relative to an open directory ----------------------------

// Creates the directory name in dir with the POSIX permission bits mode (less
// the umask; Windows ignores mode). An existing name fails with the error
// plat_fs_is_exists_error recognises.
int32_t plat_dir_make_child(PlatDir *dir, const char *name, uint32_t mode);

// The text of the symbolic link name in dir, whole and unchanged (readlinkat;
// the substitute name of a symbolic-link reparse point on Windows).
int32_t plat_dir_read_link(PlatDir *dir, const char *name, std::string *target);

// Creates the symbolic link name in dir holding target. to_directory makes a
// directory link on Windows, which tells the two kinds apart; POSIX ignores it.
int32_t plat_dir_make_link(PlatDir *dir, const char *name, const char *target, bool to_directory);

// Copies the regular file name of from into the new file new_name of to:
// contents, permission bits and last-write time (nanoseconds where the system
// keeps them). The source is opened without blocking (a name replaced by a
// fifo or a device is refused, not read) and, unless follow_link, without
// following a link; new_name must not exist. On failure new_name is removed
// again.
int32_t plat_dir_copy_file(PlatDir *from, const char *name, PlatDir *to, const char *new_name,
                           bool follow_link = false);

// Gives the directory to the permission bits and last-write time of from.
// Called after to's contents are complete, since adding entries changes its
// time and read-only bits could refuse them.
int32_t plat_dir_copy_attributes(PlatDir *from, PlatDir *to);

// Renames the entry from of dir to to in the same directory. With replace an
// existing non-directory to is replaced in one step; without it an existing
// to fails with the error plat_fs_is_exists_error recognises.
int32_t plat_dir_rename_child(PlatDir *dir, const char *from, const char *to, bool replace);

// The name of the file system that holds path: 0 with *name set, or the
// error number. On Windows path must be a volume root as the caller formed
// it ("C:\", "\\node\share\"), given to GetVolumeInformationW, and the
// name is the volume's own ("NTFS", "FAT32"...). On POSIX any existing path
// will do (statfs), and the name is the statfs type's when known ("ext4",
// "tmpfs", "xfs", "ntfs"...), else "unknown".
int32_t plat_fs_volume_name(const char *path, std::string *name);

// Whether the Windows file-system rules of the filter apply (the recycler,
// "System Volume Information" and the system configuration directory):
// true on Windows, false on POSIX, where the filter's UNIX keys (hidden
// files, mount points, links) act instead.
bool plat_fs_has_system_dir_rules();
