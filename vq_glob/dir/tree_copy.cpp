// gf_copy_dir: copies a tree into another directory.
//
// Two DirChains go down side by side, the source's from its root, the
// target's from the target's parent, each directory opened relative to its
// parent without following links. A file is written under a temporary name
// in its target directory and renamed into place, so that no half-copied
// file is ever seen under its own name; a link is made anew with the same
// text (never followed); a directory gets its permission bits and time once
// its contents are complete.
#include <atomic>
#include <cstdint>
#include <cstdio>
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

// Directories are made private first; they get the source's bits at the end.
constexpr uint32_t kNewDirMode = 0700;

// A name for a file being copied, unique in this process and unlike the
// names users give.
std::string temporary_name() {
    static std::atomic<uint32_t> counter{0};
    char text[64];
    std::snprintf(text, sizeof text, ".vq_copy_%lu_%lu.tmp", static_cast<unsigned long>(plat_process_id()),
                  static_cast<unsigned long>(counter.fetch_add(1)));
    return text;
}

// Whether inner names a place inside outer (or outer itself), by their full
// paths as text.
bool lies_within(const char *inner, const char *outer) {
    std::string full_inner;
    std::string full_outer;
    if (plat_fs_full_path(inner, &full_inner) != 0 || plat_fs_full_path(outer, &full_outer) != 0) {
        return false;  // the opens that follow report what is wrong with the names
    }
    while (full_outer.size() > 1 && plat_path_is_separator(full_outer.back())) {
        full_outer.pop_back();
    }
    if (full_inner.compare(0, full_outer.size(), full_outer) != 0) {
        return false;
    }
    return full_inner.size() == full_outer.size() || plat_path_is_separator(full_inner[full_outer.size()]) ||
           plat_path_is_separator(full_outer.back());
}

class Copier {
public:
    Copier(bool overwrite, int32_t *copied) : overwrite_(overwrite), copied_(copied) {}

    int run(const char *source, const char *target);

private:
    int open_target(const char *target);
    int copy_entry(DirChain::Level &level);
    int copy_dir(const std::string &name, const std::string &source_path, const std::string &target_path);
    int copy_file(const std::string &name, const std::string &source_path, const std::string &target_path);
    int copy_link(const std::string &name, const std::string &source_path, const std::string &target_path);
    // Renames the temporary into name; on failure removes it and reports.
    int put_in_place(const std::string &temporary, const std::string &name, const std::string &source_path,
                     const std::string &target_path);
    int finish_dir();
    // The innermost source and target directories, open. 0 or the error.
    int32_t innermost_pair(PlatDir **from, PlatDir **to) {
        int32_t error = source_.top_dir(from);
        return error != 0 ? error : target_.top_dir(to);
    }
    void count() {
        if (copied_ != nullptr) {
            ++*copied_;
        }
    }

    bool overwrite_;
    int32_t *copied_;
    DirChain source_;
    DirChain target_;  // one level more: the target's parent is its root
    bool target_created_ = false;
    uint64_t target_device_ = 0;
    uint64_t target_inode_ = 0;
};

int Copier::run(const char *source, const char *target) {
    if (too_long(source) || too_long(target)) {
        return 0;
    }
    if (lies_within(target, source)) {
        err_add_error(ERR_FIL_BADPAR, "gf_copy_dir", 2);
        return 0;
    }
    if (int32_t error = source_.open_root(source, false); error != 0) {
        return raise_os(error, plat_dir_is_vanished_error(error) ? ERR_MKL_BADDIR : ERR_FIL_OPENDIR, source);
    }
    if (int32_t error = source_.read_entries(); error != 0) {
        return raise_os(error, ERR_FIL_DIRACC, source);
    }
    if (open_target(target) == 0) {
        return 0;
    }
    while (!source_.empty()) {
        DirChain::Level &level = source_.top();
        int done = level.next < level.entries.size() ? copy_entry(level) : finish_dir();
        if (done == 0) {
            return 0;
        }
    }
    return 1;
}

// Opens the target's parent, creates the target when it is missing and opens it.
int Copier::open_target(const char *target) {
    std::string parent;
    std::string name;
    if (!split_last_element(target, "gf_copy_dir", &parent, &name)) {
        return 0;
    }
    if (int32_t error = target_.open_root(parent.c_str(), false); error != 0) {
        return raise_os(error, ERR_FIL_OPENDIR, parent.c_str());
    }
    PlatDir *dir = nullptr;
    target_.top_dir(&dir);  // the root level is always open
    int32_t error = plat_dir_make_child(dir, name.c_str(), kNewDirMode);
    if (error != 0 && !plat_fs_is_exists_error(error)) {
        return raise_os(error, ERR_FIL_MAKDIR, target);
    }
    target_created_ = error == 0;
    if (error = target_.enter(name, false); error != 0) {
        return raise_os(error, plat_dir_is_vanished_error(error) ? ERR_FIL_MKDFEX : ERR_FIL_OPENDIR, target);
    }
    if (error = target_.identify_top(); error != 0) {
        return raise_os(error, ERR_FIL_GETINFO, target);
    }
    target_device_ = target_.top().device;
    target_inode_ = target_.top().inode;
    return 1;
}

int Copier::copy_entry(DirChain::Level &level) {
    const PlatDirEntry &entry = level.entries[level.next++];
    std::string source_path;
    std::string target_path;
    if (!join_path(source_.path(), entry.name.c_str(), &source_path) ||
        !join_path(target_.path(), entry.name.c_str(), &target_path)) {
        return 0;
    }
    PlatDirType type = PlatDirType::unknown;
    PlatFsStatus status;
    if (int32_t error = source_.entry_type_of(entry, false, &type, &status); error != 0) {
        if (plat_dir_is_vanished_error(error)) {
            debug::trace_bit(kTraceBit, "gf_copy_dir: <%s> vanished meanwhile - skipped\n", source_path.c_str());
            return 1;
        }
        return raise_os(error, ERR_FIL_GETINFO, source_path.c_str());
    }
    std::string name = entry.name;  // the entry goes when the chain grows
    switch (type) {
    case PlatDirType::dir:
        return copy_dir(name, source_path, target_path);
    case PlatDirType::file:
        return copy_file(name, source_path, target_path);
    case PlatDirType::link:
        return copy_link(name, source_path, target_path);
    default:
        debug::trace_bit(kTraceBit, "gf_copy_dir: <%s> is no file, directory or link - left out\n",
                         source_path.c_str());
        return 1;
    }
}

int Copier::copy_dir(const std::string &name, const std::string &source_path, const std::string &target_path) {
    if (int32_t error = source_.enter(name, true); error != 0) {
        if (plat_dir_is_vanished_error(error)) {
            debug::trace_bit(kTraceBit, "gf_copy_dir: <%s> vanished or changed meanwhile - skipped\n",
                             source_path.c_str());
            return 1;
        }
        return raise_os(error, ERR_FIL_OPENDIR, source_path.c_str());
    }
    if (int32_t error = source_.identify_top(); error != 0) {
        return raise_os(error, ERR_FIL_GETINFO, source_path.c_str());
    }
    if (source_.top().device == target_device_ && source_.top().inode == target_inode_) {
        debug::trace_bit(kTraceBit, "gf_copy_dir: <%s> is the target itself - not copied\n", source_path.c_str());
        source_.leave();
        return 1;
    }
    if (int32_t error = source_.read_entries(); error != 0) {
        return raise_os(error, ERR_FIL_DIRACC, source_path.c_str());
    }
    PlatDir *dir = nullptr;
    int32_t error = target_.top_dir(&dir);
    if (error != 0) {
        return raise_os(error, ERR_FIL_DIRACC, target_.path().c_str());
    }
    error = plat_dir_make_child(dir, name.c_str(), kNewDirMode);
    if (error != 0 && !plat_fs_is_exists_error(error)) {
        return raise_os(error, ERR_FIL_MAKDIR, target_path.c_str());
    }
    int32_t exists_error = error;
    if (error = target_.enter(name, true); error != 0) {
        if (exists_error != 0 && plat_dir_is_vanished_error(error)) {
            return raise_os(exists_error, ERR_FIL_MKDFEX, target_path.c_str());  // a file or link has the name
        }
        return raise_os(error, ERR_FIL_OPENDIR, target_path.c_str());
    }
    return 1;
}

int Copier::copy_file(const std::string &name, const std::string &source_path, const std::string &target_path) {
    PlatDir *from = nullptr;
    PlatDir *to = nullptr;
    int32_t error = innermost_pair(&from, &to);
    std::string temporary = temporary_name();
    if (error == 0) {
        error = plat_dir_copy_file(from, name.c_str(), to, temporary.c_str());
    }
    if (error != 0) {
        if (plat_dir_is_vanished_error(error)) {
            debug::trace_bit(kTraceBit, "gf_copy_dir: <%s> vanished or changed meanwhile - skipped\n",
                             source_path.c_str());
            return 1;
        }
        return raise_os2(error, ERR_FIL_COPY, source_path.c_str(), target_path.c_str());
    }
    return put_in_place(temporary, name, source_path, target_path);
}

int Copier::copy_link(const std::string &name, const std::string &source_path, const std::string &target_path) {
    PlatDir *from = nullptr;
    PlatDir *to = nullptr;
    int32_t error = innermost_pair(&from, &to);
    std::string text;
    if (error == 0 && (error = plat_dir_read_link(from, name.c_str(), &text)) != 0) {
        if (plat_dir_is_vanished_error(error)) {
            debug::trace_bit(kTraceBit, "gf_copy_dir: <%s> vanished meanwhile - skipped\n", source_path.c_str());
            return 1;
        }
        return raise_os(error, ERR_FIL_BADLINK, source_path.c_str());
    }
    if (error != 0) {
        return raise_os(error, ERR_FIL_DIRACC, source_path.c_str());
    }
    PlatFsStatus pointed;
    bool to_directory = plat_dir_child_status(from, name.c_str(), true, &pointed) == 0 && pointed.is_dir;
    std::string temporary = temporary_name();
    if (error = plat_dir_make_link(to, temporary.c_str(), text.c_str(), to_directory); error != 0) {
        return raise_os(error, ERR_FIL_LINK, target_path.c_str());
    }
    return put_in_place(temporary, name, source_path, target_path);
}

int Copier::put_in_place(const std::string &temporary, const std::string &name, const std::string &source_path,
                         const std::string &target_path) {
    PlatDir *to = nullptr;
    target_.top_dir(&to);  // open: the caller has just written into it
    int32_t error = plat_dir_rename_child(to, temporary.c_str(), name.c_str(), overwrite_);
    if (error == 0) {
        count();
        return 1;
    }
    plat_dir_remove_child(to, temporary.c_str(), false);
    if (plat_fs_is_exists_error(error)) {
        return raise_os2(error, ERR_FIL_COPY, source_path.c_str(), target_path.c_str());
    }
    std::string temporary_path;
    join_path(target_.path(), temporary.c_str(), &temporary_path);
    return raise_os2(error, ERR_FIL_RENAME, temporary_path.c_str(), target_path.c_str());
}

// The innermost source directory is done: its copy gets its bits and time,
// and both chains go up. The target root keeps its own unless this call
// created it.
int Copier::finish_dir() {
    bool root = source_.depth() == 0;
    if (!root || target_created_) {
        PlatDir *from = nullptr;
        PlatDir *to = nullptr;
        int32_t error = innermost_pair(&from, &to);
        if (error == 0) {
            error = plat_dir_copy_attributes(from, to);
        }
        if (error != 0) {
            return raise_os(error, ERR_FIL_SETPROT, target_.path().c_str());
        }
    }
    source_.leave();
    target_.leave();
    return 1;
}

}  // namespace
}  // namespace vq::dir

extern "C" {

VQ_API int gf_copy_dir(const char *source, const char *target, int32_t overwrite, int32_t *copied) {
    if (copied != nullptr) {
        *copied = 0;
    }
    if (source == nullptr || target == nullptr) {
        return VQ_PARAMS(vq::raise::Report::add, source == nullptr ? "source" : "target");
    }
    try {
        vq::dir::Copier copier(overwrite != 0, copied);
        return copier.run(source, target);
    } catch (const std::bad_alloc &) {
        return vq::dir::raise_memory(__func__, __LINE__);
    }
}

}  // extern "C"
