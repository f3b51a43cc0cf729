// Directory walks: directory_build_list and the list it hands out.
//
// A walk goes down depth first through a DirChain, reading each directory
// whole and taking its entries in name order. The entry types come from the
// directory itself (d_type) wherever it tells them, so that a plain walk asks
// the system nothing per file; only links that are followed and entries of
// unknown type are examined. With links followed, every directory entered is
// remembered by device and inode, so a link cycle is entered only once.
#include <cstdint>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "dir/dir_chain.h"
#include "dir/dir_common.h"
#include "internal/checked_handle.h"
#include "internal/raise.h"
#include "vq_glob/dir.h"
#include "vq_glob/err.h"
#include "vq_glob/err_codes.h"
#include "vq_glob/filter.h"

namespace vq::dir {
namespace {

// Whether this thread's walks follow symbolic links.
thread_local bool follow_links = false;

// Object types the filter understands.
constexpr int32_t kFilterFile = 1;
constexpr int32_t kFilterDir = 2;

struct ListedObject {
    size_t offset;  // of the path in the list's text
    int32_t type;
};

// What directory_build_list hands out. The paths lie one after the other,
// each with its terminator, in one text that no longer changes once the walk
// is done, so the pointers handed out stay valid until the list is freed.
struct WalkList {
    tag::HandleTag tag{tag::Kind::dir_list};
    std::string text;
    std::vector<ListedObject> objects;
    int32_t directories = 0;
    size_t cursor = 0;
};

int32_t public_type(PlatDirType type) {
    switch (type) {
    case PlatDirType::file:
        return DIR_TYPE_FILE;
    case PlatDirType::dir:
        return DIR_TYPE_DIR;
    case PlatDirType::link:
        return DIR_TYPE_LINK;
    default:
        return DIR_TYPE_OTHER;
    }
}

using Identity = std::pair<uint64_t, uint64_t>;

class Walker {
public:
    Walker(void *filter, int32_t flags, WalkList *list)
        : filter_(filter), flags_(flags), follow_(follow_links), list_(list) {}

    int run(const char *root);

private:
    int step(DirChain::Level &level);
    // Whether the filter keeps path (always, without a filter): 1 with
    // *keep, or 0 when the filter failed.
    int filter_keeps(const std::string &path, bool is_dir, bool *keep);
    // Whether the walk goes into the directory path.
    int filter_digs(const std::string &path, bool *dig);
    // Opens the directory name as the next level and reads it.
    enum class Entered { yes, failed, vanished, met_before };
    Entered enter(const std::string &name, const std::string &path);
    void add(const std::string &path, PlatDirType type);

    void *filter_;
    int32_t flags_;
    bool follow_;
    WalkList *list_;
    DirChain chain_;
    std::set<Identity> entered_;
    std::string path_;  // the path of the entry at hand, its room reused
};

int Walker::run(const char *root) {
    if (too_long(root)) {
        return 0;
    }
    if (int32_t error = chain_.open_root(root, false); error != 0) {
        return raise_os(error, plat_dir_is_vanished_error(error) ? ERR_MKL_BADDIR : ERR_FIL_OPENDIR, root);
    }
    if (follow_) {
        if (int32_t error = chain_.identify_top(); error != 0) {
            return raise_os(error, ERR_FIL_GETINFO, root);
        }
        entered_.insert({chain_.top().device, chain_.top().inode});
    }
    if (int32_t error = chain_.read_entries(); error != 0) {
        return raise_os(error, ERR_FIL_DIRACC, root);
    }
    while (!chain_.empty()) {
        DirChain::Level &level = chain_.top();
        if (level.next == level.entries.size()) {
            chain_.leave();
            continue;
        }
        if (step(level) == 0) {
            return 0;
        }
    }
    return 1;
}

// Takes the next entry of level: lists it, and enters it when it is a
// directory to go into. 1 to go on, 0 on failure.
int Walker::step(DirChain::Level &level) {
    const PlatDirEntry &entry = level.entries[level.next++];
    std::string &path = path_;
    if (!join_path(chain_.path(), entry.name.c_str(), &path)) {
        return 0;
    }
    PlatDirType type = PlatDirType::unknown;
    PlatFsStatus status;
    if (int32_t error = chain_.entry_type_of(entry, follow_, &type, &status); error != 0) {
        if (plat_dir_is_vanished_error(error)) {
            debug::trace_bit(kTraceBit, "directory_build_list: <%s> vanished while listed - skipped\n", path.c_str());
            return 1;
        }
        return raise_os(error, ERR_FIL_GETINFO, path.c_str());
    }
    bool is_dir = type == PlatDirType::dir;
    bool keep = true;
    if (!filter_keeps(path, is_dir, &keep)) {
        return 0;
    }
    keep = keep && (is_dir || (flags_ & DIR_LIST_FILES) != 0);
    bool dig = is_dir && (flags_ & DIR_LIST_NO_RECURSE) == 0;
    if (dig && !filter_digs(path, &dig)) {
        return 0;
    }
    if (!dig) {
        if (keep) {
            add(path, type);
        }
        return 1;
    }
    std::string name = entry.name;  // the entry goes when the chain grows
    Entered entered = enter(name, path);
    if (entered == Entered::failed) {
        return 0;
    }
    if (keep && entered != Entered::vanished) {
        // Listed before its contents, which the next steps take; a directory
        // met before is listed too, but not entered again.
        add(path, type);
    }
    return 1;
}

int Walker::filter_keeps(const std::string &path, bool is_dir, bool *keep) {
    *keep = true;
    if (filter_ == nullptr) {
        return 1;
    }
    int32_t skip = 0;
    if (Skip(filter_, path.c_str(), is_dir ? kFilterDir : kFilterFile, &skip) == 0) {
        err_add_error(ERR_FIL_SEARCH_1712, path.c_str());
        return 0;
    }
    *keep = skip == 0;
    return 1;
}

int Walker::filter_digs(const std::string &path, bool *dig) {
    *dig = true;
    if (filter_ == nullptr) {
        return 1;
    }
    int32_t should_dig = 0;
    if (should_dig_into_dir(filter_, path.c_str(), &should_dig) == 0) {
        err_add_error(ERR_FIL_SEARCH_1712, path.c_str());
        return 0;
    }
    *dig = should_dig != 0;
    return 1;
}

Walker::Entered Walker::enter(const std::string &name, const std::string &path) {
    int32_t error = chain_.enter(name, !follow_);
    if (error != 0) {
        if (plat_dir_is_vanished_error(error)) {
            debug::trace_bit(kTraceBit, "directory_build_list: <%s> vanished or changed before it was entered - skipped\n",
                             path.c_str());
            return Entered::vanished;
        }
        raise_os(error, ERR_FIL_OPENDIR, path.c_str());
        return Entered::failed;
    }
    if (follow_ && (error = chain_.identify_top()) != 0) {
        raise_os(error, ERR_FIL_GETINFO, path.c_str());
        return Entered::failed;
    }
    if (follow_ && !entered_.insert({chain_.top().device, chain_.top().inode}).second) {
        debug::trace_bit(kTraceBit, "directory_build_list: <%s> was entered before - not entered again\n",
                         path.c_str());
        chain_.leave();
        return Entered::met_before;
    }
    debug::trace_bit(kTraceBit, "directory_build_list: entering <%s>\n", path.c_str());
    if (error = chain_.read_entries(); error != 0) {
        raise_os(error, ERR_FIL_DIRACC, path.c_str());
        return Entered::failed;
    }
    return Entered::yes;
}

void Walker::add(const std::string &path, PlatDirType type) {
    list_->objects.push_back({list_->text.size(), public_type(type)});
    list_->text.append(path.c_str(), path.size() + 1);
    if (type == PlatDirType::dir) {
        ++list_->directories;
    }
}

// The list behind a handle, or null with a PARAMS error naming function when
// the handle is null or no walk list (freed, or another kind of handle).
WalkList *walk_list(void *list, const char *function) {
    return tag::checked<WalkList>(list, tag::Kind::dir_list, raise::Report::add, function, "list");
}

}  // namespace
}  // namespace vq::dir

using vq::dir::WalkList;

extern "C" {

VQ_API int dir_set_follow_links_flag(int32_t follow) {
    if (follow != 0 && follow != 1) {
        err_add_error(ERR_FIL_BADPAR, __func__, 1);
        return 0;
    }
    vq::dir::follow_links = follow == 1;
    return 1;
}

VQ_API int directory_build_list(void **list, const char *root, void *filter, int32_t flags) {
    if (list == nullptr) {
        return VQ_PARAMS(vq::raise::Report::add, "list");
    }
    *list = nullptr;
    if (root == nullptr) {
        return VQ_PARAMS(vq::raise::Report::add, "root");
    }
    try {
        auto built = std::make_unique<WalkList>();
        vq::dir::Walker walker(filter, flags, built.get());
        if (walker.run(root) == 0) {
            return 0;
        }
        *list = built.release();
        return 1;
    } catch (const std::bad_alloc &) {
        return vq::dir::raise_memory(__func__, __LINE__);
    }
}

VQ_API int directory_next_entry(void *list, char **path, int32_t *type) {
    WalkList *walk = vq::dir::walk_list(list, __func__);
    if (walk == nullptr) {
        return 0;
    }
    if (path == nullptr) {
        return VQ_PARAMS(vq::raise::Report::add, "path");
    }
    if (walk->cursor == walk->objects.size()) {
        return 0;
    }
    auto &object = walk->objects[walk->cursor++];
    *path = walk->text.data() + object.offset;
    if (type != nullptr) {
        *type = object.type;
    }
    return 1;
}

VQ_API int directory_next_dir(void *list, char **path) {
    WalkList *walk = vq::dir::walk_list(list, __func__);
    if (walk == nullptr) {
        return 0;
    }
    if (path == nullptr) {
        return VQ_PARAMS(vq::raise::Report::add, "path");
    }
    while (walk->cursor < walk->objects.size()) {
        auto &object = walk->objects[walk->cursor++];
        if (object.type == DIR_TYPE_DIR) {
            *path = walk->text.data() + object.offset;
            return 1;
        }
    }
    return 0;
}

VQ_API int directory_rewind(void *list) {
    WalkList *walk = vq::dir::walk_list(list, __func__);
    if (walk == nullptr) {
        return 0;
    }
    walk->cursor = 0;
    return 1;
}

VQ_API int directory_list_count(void *list, int32_t *objects, int32_t *directories) {
    WalkList *walk = vq::dir::walk_list(list, __func__);
    if (walk == nullptr) {
        return 0;
    }
    if (objects != nullptr) {
        *objects = static_cast<int32_t>(walk->objects.size());
    }
    if (directories != nullptr) {
        *directories = walk->directories;
    }
    return 1;
}

VQ_API void directory_free_list(void **list) {
    // A handle that is no walk list (already freed, or of another kind) is
    // left alone rather than freed twice.
    if (list != nullptr && *list != nullptr) {
        delete vq::dir::walk_list(*list, __func__);
        *list = nullptr;
    }
}

}  // extern "C"
