// The chain of open directories of a walk; see dir_chain.h.
#include "dir/dir_chain.h"

#include <algorithm>
#include <memory>

#include "dir/dir_common.h"
#include "platform/fs.h"
#include "vq_glob/export.h"

namespace vq::dir {

namespace {

// How many levels below the root stay open at the most. Enough that the
// common tree never reopens anything, few enough that several walks at once
// stay far below a process's descriptor limit.
constexpr size_t kOpenBudget = 48;

struct DirCloser {
    void operator()(PlatDir *dir) const { plat_dir_close(dir); }
};

}  // namespace

DirChain::~DirChain() {
    for (Level &level : levels_) {
        close_level(level);
    }
}

void DirChain::close_level(Level &level) {
    if (level.dir != nullptr) {
        plat_dir_close(level.dir);
        level.dir = nullptr;
        --open_levels_;
    }
}

int32_t DirChain::push(PlatDir *dir, const std::string &name, bool no_follow) {
    std::unique_ptr<PlatDir, DirCloser> owned(dir);
    Level level;
    level.name = name;
    level.no_follow = no_follow;
    levels_.push_back(std::move(level));
    levels_.back().dir = owned.release();
    ++open_levels_;
    spare_descriptors();
    return 0;
}

int32_t DirChain::identify(Level &level) {
    if (level.identified) {
        return 0;
    }
    PlatFsStatus status;
    if (int32_t error = plat_dir_status(level.dir, &status); error != 0) {
        return error;
    }
    level.device = status.device;
    level.inode = status.inode;
    level.identified = true;
    return 0;
}

int32_t DirChain::entry_type_of(const PlatDirEntry &entry, bool follow, PlatDirType *type,
                                PlatFsStatus *status) {
    PlatDir *dir = nullptr;
    if (int32_t error = top_dir(&dir); error != 0) {
        return error;
    }
    return entry_type(dir, entry, follow, type, status);
}

int32_t DirChain::identify_top() { return identify(levels_.back()); }

// Closes the outermost open level below the root once too many are open.
void DirChain::spare_descriptors() {
    if (open_levels_ <= kOpenBudget + 1) {
        return;
    }
    for (size_t i = 1; i + 1 < levels_.size(); ++i) {
        if (levels_[i].dir != nullptr) {
            // Known by identity before it closes, so that opening it again
            // can tell whether the name still holds the same directory.
            identify(levels_[i]);
            close_level(levels_[i]);
            return;
        }
    }
}

int32_t DirChain::open_root(const char *path, bool no_follow) {
    PlatDir *dir = nullptr;
    if (int32_t error = plat_dir_open(path, no_follow, &dir); error != 0) {
        return error;
    }
    std::unique_ptr<PlatDir, DirCloser> owned(dir);
    path_.assign(path);
    if (int32_t error = push(owned.release(), path_, no_follow); error != 0) {
        return error;
    }
    levels_.back().path_length = path_.size();
    return 0;
}

int32_t DirChain::enter(const std::string &name, bool no_follow) {
    PlatDir *parent = nullptr;
    if (int32_t error = top_dir(&parent); error != 0) {
        return error;
    }
    PlatDir *dir = nullptr;
    if (int32_t error = plat_dir_open_child(parent, name.c_str(), no_follow, &dir); error != 0) {
        return error;
    }
    std::unique_ptr<PlatDir, DirCloser> owned(dir);
    size_t parent_length = path_.size();
    if (path_.empty() || !plat_path_is_separator(path_.back())) {
        path_.push_back(VQ_PATH_SEPARATOR);
    }
    path_.append(name);
    int32_t error = push(owned.release(), name, no_follow);
    if (error != 0) {
        path_.resize(parent_length);
        return error;
    }
    levels_.back().path_length = path_.size();
    return 0;
}

void DirChain::leave() {
    close_level(levels_.back());
    levels_.pop_back();
    path_.resize(levels_.empty() ? 0 : levels_.back().path_length);
}

int32_t DirChain::read_entries() {
    PlatDir *dir = nullptr;
    if (int32_t error = top_dir(&dir); error != 0) {
        return error;
    }
    Level &level = levels_.back();
    level.entries.clear();
    level.next = 0;
    PlatDirEntry entry;
    bool end = false;
    for (;;) {
        if (int32_t error = plat_dir_next(dir, &entry, &end); error != 0) {
            return error;
        }
        if (end) {
            break;
        }
        level.entries.push_back(std::move(entry));
    }
    std::sort(level.entries.begin(), level.entries.end(),
              [](const PlatDirEntry &a, const PlatDirEntry &b) { return a.name < b.name; });
    return 0;
}

int32_t DirChain::top_dir(PlatDir **dir) {
    size_t top_index = levels_.size() - 1;
    if (levels_[top_index].dir == nullptr) {
        // The root always stays open, so some level above is open.
        size_t open = top_index;
        while (levels_[open].dir == nullptr) {
            --open;
        }
        PlatDir *at = levels_[open].dir;
        for (size_t i = open + 1; i <= top_index; ++i) {
            Level &level = levels_[i];
            PlatDir *child = nullptr;
            int32_t error = plat_dir_open_child(at, level.name.c_str(), level.no_follow, &child);
            if (at != levels_[open].dir) {
                plat_dir_close(at);  // a level passed on the way: closed again at once
            }
            if (error != 0) {
                return error;
            }
            PlatFsStatus status;
            error = plat_dir_status(child, &status);
            if (error == 0 && level.identified && (status.device != level.device || status.inode != level.inode)) {
                error = plat_dir_missing_error();  // another directory took the name meanwhile
            }
            if (error != 0) {
                plat_dir_close(child);
                return error;
            }
            at = child;
        }
        levels_[top_index].dir = at;
        ++open_levels_;
        spare_descriptors();
    }
    *dir = levels_[top_index].dir;
    return 0;
}

}  // namespace vq::dir
