// Removing trees and listed files: gf_remove_recursive and
// gf_delete_from_list_make_report.
//
// gf_remove_recursive opens the root's parent, then goes down by directories
// opened relative to their parents without following links, and removes each
// entry relative to the directory that holds it (unlinkat). A link is thus
// only ever removed itself: nothing outside the tree is reached, even when a
// directory is replaced by a link while the removal runs.
#include <cstdint>
#include <cstring>
#include <new>
#include <string>

#include "dir/dir_chain.h"
#include "dir/dir_common.h"
#include "internal/raise.h"
#include "vq_glob/dir.h"
#include "vq_glob/err.h"
#include "vq_glob/err_codes.h"

namespace vq::dir {
namespace {

class Remover {
public:
    explicit Remover(int32_t *removed) : removed_(removed) {}

    int run(const char *path);

private:
    int remove_entry(DirChain::Level &level);
    int remove_innermost();
    void count() {
        if (removed_ != nullptr) {
            ++*removed_;
        }
    }

    DirChain chain_;
    int32_t *removed_;
};

int Remover::run(const char *path) {
    if (too_long(path)) {
        return 0;
    }
    std::string parent;
    std::string name;
    if (!split_last_element(path, "gf_remove_recursive", &parent, &name)) {
        return 0;
    }
    std::string root = without_trailing_separators(path);
    if (int32_t error = chain_.open_root(parent.c_str(), false); error != 0) {
        if (plat_dir_is_vanished_error(error)) {
            return 1;  // no parent: nothing to remove
        }
        return raise_os(error, ERR_FIL_OPENDIR, parent.c_str());
    }
    PlatDir *dir = nullptr;
    chain_.top_dir(&dir);  // the root level is always open
    PlatFsStatus status;
    if (int32_t error = plat_dir_child_status(dir, name.c_str(), false, &status); error != 0) {
        return plat_dir_is_vanished_error(error) ? 1 : raise_os(error, ERR_FIL_GETINFO, root.c_str());
    }
    if (!status.is_dir) {
        if (int32_t error = plat_dir_remove_child(dir, name.c_str(), false); error != 0) {
            return plat_dir_is_vanished_error(error)
                       ? 1
                       : raise_os(error, status.is_link ? ERR_FIL_DELETE_1736 : ERR_FIL_DELETE_170B, root.c_str());
        }
        count();
        return 1;
    }
    if (int32_t error = chain_.enter(name, true); error != 0) {
        return plat_dir_is_vanished_error(error) ? 1 : raise_os(error, ERR_FIL_OPENDIR, root.c_str());
    }
    if (int32_t error = chain_.read_entries(); error != 0) {
        return raise_os(error, ERR_FIL_DIRACC, root.c_str());
    }
    while (chain_.depth() > 0) {
        DirChain::Level &level = chain_.top();
        int done = level.next < level.entries.size() ? remove_entry(level) : remove_innermost();
        if (done == 0) {
            return 0;
        }
    }
    return 1;
}

// Removes the next entry of level, or goes down into it when it is a directory.
int Remover::remove_entry(DirChain::Level &level) {
    std::string name = level.entries[level.next++].name;
    std::string path;
    if (!join_path(chain_.path(), name.c_str(), &path)) {
        return 0;
    }
    PlatDir *dir = nullptr;
    PlatDirType type = PlatDirType::unknown;
    PlatFsStatus status;
    int32_t error = chain_.top_dir(&dir);
    if (error == 0) {
        error = entry_type(dir, level.entries[level.next - 1], false, &type, &status);
    }
    if (error == 0 && type == PlatDirType::dir) {
        error = chain_.enter(name, true);
        if (error == 0) {
            debug::trace_bit(kTraceBit, "gf_remove_recursive: entering <%s>\n", path.c_str());
            if ((error = chain_.read_entries()) != 0) {
                return raise_os(error, ERR_FIL_DIRACC, path.c_str());
            }
        }
    } else if (error == 0) {
        error = plat_dir_remove_child(dir, name.c_str(), false);
        if (error == 0) {
            count();
        }
    }
    if (error == 0) {
        return 1;
    }
    if (plat_dir_is_vanished_error(error)) {
        debug::trace_bit(kTraceBit, "gf_remove_recursive: <%s> vanished meanwhile - skipped\n", path.c_str());
        return 1;
    }
    uint32_t code = type == PlatDirType::dir    ? ERR_FIL_OPENDIR
                    : type == PlatDirType::link ? ERR_FIL_DELETE_1736
                                                : ERR_FIL_DELETE_170B;
    return raise_os(error, code, path.c_str());
}

// Removes the innermost directory, now empty, from its parent.
int Remover::remove_innermost() {
    std::string name = chain_.top().name;
    std::string path = chain_.path();
    chain_.leave();
    PlatDir *parent = nullptr;
    int32_t error = chain_.top_dir(&parent);
    if (error == 0) {
        error = plat_dir_remove_child(parent, name.c_str(), true);
    }
    if (error == 0) {
        count();
        return 1;
    }
    if (plat_dir_is_vanished_error(error)) {
        return 1;
    }
    return raise_os(error, ERR_FIL_DELDIR_1721, path.c_str());
}

}  // namespace
}  // namespace vq::dir

extern "C" {

VQ_API int gf_remove_recursive(const char *path, int32_t *removed) {
    if (removed != nullptr) {
        *removed = 0;
    }
    if (path == nullptr) {
        return VQ_PARAMS(vq::raise::Report::add, "path");
    }
    try {
        vq::dir::Remover remover(removed);
        return remover.run(path);
    } catch (const std::bad_alloc &) {
        return vq::dir::raise_memory(__func__, __LINE__);
    }
}

}  // extern "C"
