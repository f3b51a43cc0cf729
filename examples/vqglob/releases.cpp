// Release directories and the "current" link (see releases.h).
#include "releases.h"

#include <algorithm>
#include <atomic>
#include <cstdio>

#include "files.h"
#include "log.h"
#include "vq_glob/dir.h"
#include "vq_glob/err.h"
#include "vq_glob/gf_path.h"

namespace vqglob {
namespace {

std::atomic<unsigned> release_sequence{0};

// The text of a link under root leading to the directory target (under
// root). POSIX: relative to root, so that the root may move. Windows: the
// absolute name, which is what a junction (made where symbolic links need a
// privilege) holds, and the system must see at once that it is a directory.
std::string current_link_text(const std::string &root, const std::string &target) {
#ifdef _WIN32
    (void)root;
    return target;
#else
    return target.substr(std::min(root.size() + 1, target.size()));
#endif
}

}  // namespace

std::string new_release_id() {
    std::string stamp = utc_text("%Y%m%dT%H%M%SZ");
    char id[48];
    std::snprintf(id, sizeof id, "%s-%04u", stamp.c_str(), release_sequence.fetch_add(1) % 10000u);
    return id;
}

bool list_releases(const std::string &root, std::vector<std::string> &ids) {
    std::string dir = join_path(root, kReleasesDirName);
    if (gf_is_dir(dir.c_str()) != 1) {
        return true;
    }
    void *list = nullptr;
    if (directory_build_list(&list, dir.c_str(), nullptr, DIR_LIST_NO_RECURSE) != 1) {
        return false;
    }
    char *path = nullptr;
    while (directory_next_dir(list, &path) == 1) {
        ids.emplace_back(gf_extract_last_element_ptr(path, VQ_PATH_SEPARATOR));
    }
    directory_free_list(&list);
    std::sort(ids.begin(), ids.end());
    return true;
}

std::string current_release(const std::string &root) {
    std::string target;
    if (!read_symlink(join_path(root, kCurrentName), target)) {
        return "";
    }
    size_t separator = target.find_last_of("/\\");
    return separator == std::string::npos ? target : target.substr(separator + 1);
}

bool can_link_current(const std::string &root) {
    std::string tmp = join_path(root, kTempDirName);
    std::string probe = join_path(tmp, "link-probe-" + new_release_id());
    std::string text;
    bool ok = make_symlink(current_link_text(root, tmp), probe) && read_symlink(probe, text) && !text.empty();
    if (path_exists(probe)) {
        remove_path(probe);
    }
    if (!ok) {
        err_add_error(ERR_GEN_GENERAL,
                      "releases are refused: this system cannot make links, and \"current\" must be one");
    }
    return ok;
}

bool switch_current(const std::string &root, const std::string &id) {
    std::string link = join_path(join_path(root, kTempDirName), "current-" + new_release_id());
    std::string current = join_path(root, kCurrentName);
    if (!make_symlink(current_link_text(root, join_path(join_path(root, kReleasesDirName), id)), link)) {
        return false;
    }
#ifdef _WIN32
    // Windows renames nothing over a directory, and a link to one is a
    // directory too: the old "current" goes first, so between the two steps
    // there is none.
    if (!remove_path(current)) {
        remove_path(link);
        return false;
    }
#endif
    if (!rename_path(link, current)) {
        remove_path(link);
        return false;
    }
    return true;
}

}  // namespace vqglob
