// File-system work of both ends: walking a tree into manifest entries,
// checking relative names a peer sends, and putting received files in place.
// Every function that returns false leaves its reason on the error stack.
#ifndef VQGLOB_FILES_H
#define VQGLOB_FILES_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "protocol.h"
#include "vq_glob/gf.h"

namespace vqglob {

// base + "/" + relative (relative uses '/'; converted to the native separator).
std::string join_path(const std::string &base, const std::string &relative);

// Size, modification time (Unix seconds, truncated) and permission bits of a
// regular file (links followed); crc is left alone.
bool stat_file(const std::string &path, FileEntry &entry);
// The full status of a regular file (links followed); false for anything else.
bool file_status(const std::string &path, gf_file_status &status);
// Size, whole-second modification time and permission bits of status into entry.
bool entry_from_status(const gf_file_status &status, FileEntry &entry);
// The library's CRC-32 of a file's contents (0 for an empty file).
bool file_crc(const std::string &path, uint32_t &crc);
// Sets permission bits and modification time (whole seconds).
bool set_mode_and_time(const std::string &path, uint32_t mode, int64_t mtime);
// Renames from to to, replacing a file (or link) there.
bool rename_path(const std::string &from, const std::string &to);
// Removes a file, link or whole directory; a missing one is no error.
bool remove_path(const std::string &path);
// Makes a hard link, or a copy keeping mode and time when the two names are
// on different file systems.
bool link_or_copy(const std::string &from, const std::string &to);
// Makes a symbolic link at path whose text is target.
bool make_symlink(const std::string &target, const std::string &path);
// The text of a symbolic link; false (no error) when path is no link.
bool read_symlink(const std::string &path, std::string &target);
// Creates directory path (its parent must exist); false when it exists.
bool make_new_directory(const std::string &path);
// Whether path exists (a dangling link counts).
bool path_exists(const std::string &path);

// Whether name is a relative name a peer may use: '/'-separated, not empty,
// no empty, "." or ".." element, no backslash, no drive, no control byte,
// at most kMaxNameBytes; false with the reason naming the file otherwise.
bool valid_relative_name(const std::string &name);
// Makes sure the directories leading to root/name stay below root (no
// symbolic link on the way leads out) and are directories, and that
// root/name is no directory; with create, the missing directories are made.
// false (nothing made past the refusal) otherwise.
bool prepare_parent(const std::string &root, const std::string &name, bool create);
// Removes the directories that became empty above root/name, up to root.
void remove_empty_parents(const std::string &root, const std::string &name);

// Takes the status and the CRC of the regular file at path, whose name
// relative to the listed root is name (one status serves both the entry and
// the CRC's remembering); false with the reason on the stack.
using CrcSource =
    std::function<bool(const std::string &name, const std::string &path, gf_file_status &status, uint32_t &crc)>;

// The regular files below root as entries (names relative, '/'-separated),
// sorted by name, with CRCs from crc when it is given (else 0). Entries of
// root for whose names skip_top (may be NULL) says true are left out with
// everything below them; filter (filter.h, may be NULL) decides on the rest.
// Links are not followed.
bool list_tree(const std::string &root, void *filter, bool (*skip_top)(const std::string &), const CrcSource *crc,
               std::vector<FileEntry> &entries);

// A filter (filter.h) from configuration (a conf_ handle holding "Filter
// Params") whose base directory becomes base; *filter is NULL on failure.
bool make_filter(void *configuration, const std::string &base, void **filter);

}  // namespace vqglob

#endif
