// Release directories and the "current" link (see releases.h).
#include "releases.h"

#include <algorithm>
#include <atomic>
#include <cstdio>

#include "files.h"
#include "log.h"
#include "vq_glob/dir.h"
#include "vq_glob/gf_path.h"

namespace vqglob {
namespace {

std::atomic<unsigned> release_sequence{0};

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
    size_t slash = target.rfind('/');
    return slash == std::string::npos ? target : target.substr(slash + 1);
}

bool switch_current(const std::string &root, const std::string &id) {
    std::string link = join_path(join_path(root, kTempDirName), "current-" + new_release_id());
    std::string text = std::string(kReleasesDirName) + "/" + id;
    if (!make_symlink(text, link)) {
        return false;
    }
    if (!rename_path(link, join_path(root, kCurrentName))) {
        remove_path(link);
        return false;
    }
    return true;
}

}  // namespace vqglob
