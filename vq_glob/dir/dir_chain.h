// The chain of directories from a walk's root down to where it stands, each
// opened relative to its parent, with the entries each one listed.
//
// Going down by open directories instead of whole paths is what lets a walk
// reach names longer than the system's own path limit and never leave the
// tree through a name replaced by a link. A deep tree would need one open
// directory per level, more than a process may hold; so only the innermost
// levels stay open, and an outer level the walk returns to is opened again
// by its names from the nearest open one, and checked to be the same
// directory (device and inode) as before.
//
// Running out of memory throws std::bad_alloc; the module's exported
// functions turn it into ERR_GEN_MEMORY.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/platform.h"

namespace vq::dir {

class DirChain {
public:
    struct Level {
        PlatDir *dir = nullptr;  // null while closed to spare descriptors
        std::string name;        // the element in the parent (the root's whole path)
        size_t path_length = 0;  // of the path up to and including this level
        bool no_follow = true;   // how it was (and is again) opened
        bool identified = false;  // device and inode known (asked only when needed)
        uint64_t device = 0;
        uint64_t inode = 0;
        std::vector<PlatDirEntry> entries;  // sorted by name (bytes compared)
        size_t next = 0;                    // the first entry not yet taken
    };

    DirChain() = default;
    DirChain(const DirChain &) = delete;
    DirChain &operator=(const DirChain &) = delete;
    ~DirChain();

    // Opens path as the root (level 0); no_follow refuses a link as its last
    // element. 0 or the error of the open.
    int32_t open_root(const char *path, bool no_follow);
    // Opens the entry name of the innermost level as the next level down. 0
    // or the error (plat_dir_is_vanished_error for a name gone or changed).
    int32_t enter(const std::string &name, bool no_follow);
    // Closes the innermost level and goes back up.
    void leave();
    // Reads every entry of the innermost level, sorted. 0 or the error.
    int32_t read_entries();

    // The innermost level's open directory, opened again when it had been
    // closed: 0, or the error (a directory found replaced since: the
    // missing-name error).
    int32_t top_dir(PlatDir **dir);

    // Fills the innermost level's device and inode when they are not known
    // yet. 0 or the error.
    int32_t identify_top();

    // What entry of the innermost level is (entry_type, dir_common.h).
    int32_t entry_type_of(const PlatDirEntry &entry, bool follow, PlatDirType *type, PlatFsStatus *status);

    Level &top() { return levels_.back(); }
    size_t depth() const { return levels_.empty() ? 0 : levels_.size() - 1; }
    bool empty() const { return levels_.empty(); }
    // The path of the innermost level.
    const std::string &path() const { return path_; }

private:
    int32_t push(PlatDir *dir, const std::string &name, bool no_follow);
    static int32_t identify(Level &level);
    void spare_descriptors();
    void close_level(Level &level);

    std::vector<Level> levels_;
    std::string path_;
    size_t open_levels_ = 0;
};

}  // namespace vq::dir
