// File-system helpers. The library has no calls for a file's size, time and
// mode, for setting them, for renames or for links, so these go through
// std::filesystem; walks, CRCs, directory creation and removal go through
// the library.
#include "files.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <system_error>

#include "vq_glob/conf.h"
#include "vq_glob/dir.h"
#include "vq_glob/err.h"
#include "vq_glob/filter.h"
#include "vq_glob/gf.h"
#include "vq_glob/gf_path.h"

namespace fs = std::filesystem;

namespace vqglob {
namespace {

bool system_failure(const std::error_code &error, const std::string &what) {
    err_set_system_error(error.value());
    err_add_error(ERR_GEN_GENERAL, what.c_str());
    return false;
}

bool refuse_name(const std::string &name, const char *why) {
    std::string text = "refused file name <" + name + ">: " + why;
    err_set_error(ERR_GEN_GENERAL, text.c_str());
    return false;
}

std::string relative_of(const std::string &root, const char *path) {
    std::string rel = path + std::min(root.size() + 1, std::char_traits<char>::length(path));
#ifdef _WIN32
    std::replace(rel.begin(), rel.end(), '\\', '/');
#endif
    return rel;
}

bool add_file(const std::string &root, const char *path, bool with_crc, std::vector<FileEntry> &entries) {
    FileEntry entry;
    entry.name = relative_of(root, path);
    if (!stat_file(path, entry) || (with_crc && !file_crc(path, entry.crc))) {
        return false;
    }
    entries.push_back(std::move(entry));
    return true;
}

// Every regular file of the walk of dir (recursive unless flat).
bool walk(const std::string &root, const std::string &dir, void *filter, bool flat, bool with_crc,
          std::vector<FileEntry> &entries, std::vector<std::string> *subdirs) {
    void *list = nullptr;
    int32_t flags = DIR_LIST_FILES | (flat ? DIR_LIST_NO_RECURSE : 0);
    if (directory_build_list(&list, dir.c_str(), flat ? nullptr : filter, flags) != 1) {
        return false;
    }
    bool ok = true;
    char *path = nullptr;
    int32_t type = 0;
    while (ok && directory_next_entry(list, &path, &type) == 1) {
        if (type == DIR_TYPE_DIR && subdirs != nullptr) {
            subdirs->push_back(path);
            continue;
        }
        if (type != DIR_TYPE_FILE) {
            continue;  // links are not followed, devices and fifos never sent
        }
        int32_t skip = 0;
        if (flat && filter != nullptr && Skip(filter, path, 1, &skip) != 1) {
            ok = false;
        } else if (skip == 0) {
            ok = add_file(root, path, with_crc, entries);
        }
    }
    directory_free_list(&list);
    return ok;
}

}  // namespace

std::string join_path(const std::string &base, const std::string &relative) {
    std::string rel = relative;
#ifdef _WIN32
    std::replace(rel.begin(), rel.end(), '/', '\\');
    return base + "\\" + rel;
#else
    return base + "/" + rel;
#endif
}

bool stat_file(const std::string &path, FileEntry &entry) {
    std::error_code error;
    fs::path p(path);
    auto status = fs::status(p, error);
    if (!error && !fs::is_regular_file(status)) {
        return refuse_name(path, "not a regular file");
    }
    uintmax_t size = error ? 0 : fs::file_size(p, error);
    auto when = error ? fs::file_time_type() : fs::last_write_time(p, error);
    if (error) {
        return system_failure(error, "cannot examine <" + path + ">");
    }
    auto seconds = std::chrono::floor<std::chrono::seconds>(std::chrono::file_clock::to_sys(when));
    entry.size = size;
    entry.mtime = seconds.time_since_epoch().count();
    entry.mode = static_cast<uint32_t>(status.permissions() & fs::perms::mask);
    return true;
}

bool file_crc(const std::string &path, uint32_t &crc) {
    int32_t h = -1;
    crc = 0;
    if (gf_allocate_handle(&h) != 1) {
        return false;
    }
    bool ok = gf_set_file_name(h, path.c_str()) == 1 && gf_set_file_open_flags(h, GF_READ) == 1 &&
              gf_calc_file_crc(h, &crc) == 1;
    gf_free_handle(h);
    return ok;
}

bool set_mode_and_time(const std::string &path, uint32_t mode, int64_t mtime) {
    std::error_code error;
    fs::permissions(path, static_cast<fs::perms>(mode) & fs::perms::mask, error);
    if (!error) {
        std::chrono::sys_seconds when{std::chrono::seconds(mtime)};
        fs::last_write_time(path, std::chrono::file_clock::from_sys(when), error);
    }
    return !error || system_failure(error, "cannot set the mode and time of <" + path + ">");
}

bool rename_path(const std::string &from, const std::string &to) {
    std::error_code error;
    fs::rename(from, to, error);
    return !error || system_failure(error, "cannot rename <" + from + "> to <" + to + ">");
}

bool remove_path(const std::string &path) { return gf_remove_recursive(path.c_str(), nullptr) == 1; }

bool link_or_copy(const std::string &from, const std::string &to) {
    std::error_code error;
    fs::create_hard_link(from, to, error);
    if (error) {
        error.clear();
        fs::copy_file(from, to, fs::copy_options::overwrite_existing, error);
        FileEntry entry;
        if (!error && stat_file(from, entry)) {
            return set_mode_and_time(to, entry.mode, entry.mtime);
        }
    }
    return !error || system_failure(error, "cannot link or copy <" + from + "> to <" + to + ">");
}

bool make_symlink(const std::string &target, const std::string &path) {
    std::error_code error;
    fs::create_symlink(target, path, error);
    return !error || system_failure(error, "cannot make the link <" + path + ">");
}

bool read_symlink(const std::string &path, std::string &target) {
    std::error_code error;
    fs::path text = fs::read_symlink(path, error);
    if (error) {
        return false;
    }
    target = text.generic_string();
    return true;
}

bool make_new_directory(const std::string &path) {
    std::error_code error;
    if (fs::create_directory(path, error)) {
        return true;
    }
    return system_failure(error ? error : std::make_error_code(std::errc::file_exists),
                          "cannot create the directory <" + path + ">");
}

bool path_exists(const std::string &path) {
    std::error_code error;
    return fs::exists(fs::symlink_status(path, error));
}

bool valid_relative_name(const std::string &name) {
    if (name.empty() || name.size() > kMaxNameBytes) {
        return refuse_name(name, "empty or too long");
    }
    if (name.front() == '/' || (name.size() > 1 && name[1] == ':')) {
        return refuse_name(name, "an absolute name");
    }
    for (unsigned char c : name) {
        if (c < 0x20 || c == '\\') {
            return refuse_name(name, "a control character or backslash");
        }
    }
    size_t start = 0;
    while (start <= name.size()) {
        size_t end = name.find('/', start);
        end = end == std::string::npos ? name.size() : end;
        std::string element = name.substr(start, end - start);
        if (element.empty() || element == "." || element == "..") {
            return refuse_name(name, "an empty, \".\" or \"..\" element");
        }
        start = end + 1;
    }
    return true;
}

bool prepare_parent(const std::string &root, const std::string &name, bool create) {
    std::string dir = root;
    size_t start = 0;
    for (size_t slash = name.find('/'); slash != std::string::npos; slash = name.find('/', start)) {
        dir = join_path(dir, name.substr(start, slash - start));
        start = slash + 1;
        std::error_code error;
        auto status = fs::symlink_status(dir, error);
        if (fs::is_symlink(status)) {
            return refuse_name(name, "a directory on its way is a symbolic link");
        }
        if (fs::exists(status) && !fs::is_directory(status)) {
            return refuse_name(name, "a file stands where its directory should be");
        }
        if (!fs::exists(status) && create && gf_make_path(dir.c_str()) != 1) {
            return false;
        }
    }
    std::error_code error;
    if (fs::is_directory(fs::symlink_status(join_path(root, name), error))) {
        return refuse_name(name, "a directory has that name on the target");
    }
    return true;
}

void remove_empty_parents(const std::string &root, const std::string &name) {
    std::string rel = name;
    for (size_t slash = rel.rfind('/'); slash != std::string::npos; slash = rel.rfind('/')) {
        rel.resize(slash);
        std::error_code error;
        if (!fs::is_empty(join_path(root, rel), error) || error || !fs::remove(join_path(root, rel), error)) {
            return;
        }
    }
}

bool list_tree(const std::string &root, void *filter, bool (*skip_top)(const std::string &), bool with_crc,
               std::vector<FileEntry> &entries) {
    std::vector<FileEntry> top;
    std::vector<std::string> subdirs;
    if (!walk(root, root, filter, true, with_crc, top, &subdirs)) {
        return false;
    }
    for (FileEntry &entry : top) {
        if (skip_top == nullptr || !skip_top(entry.name)) {
            entries.push_back(std::move(entry));
        }
    }
    for (const std::string &dir : subdirs) {
        int32_t dig = 1;
        if ((skip_top != nullptr && skip_top(relative_of(root, dir.c_str()))) ||
            (filter != nullptr && should_dig_into_dir(filter, dir.c_str(), &dig) == 1 && dig == 0)) {
            continue;
        }
        if (!walk(root, dir, filter, false, with_crc, entries, nullptr)) {
            return false;
        }
    }
    std::sort(entries.begin(), entries.end(), [](const FileEntry &a, const FileEntry &b) { return a.name < b.name; });
    return true;
}

bool make_filter(void *configuration, const std::string &base, void **filter) {
    *filter = nullptr;
    // The table gives the fields the configuration lacks their defaults, so
    // that the base directory can be set whether it was written or not.
    return conf_set_table(configuration, vq_get_filter_cf_table(), vq_get_filter_cf_keys_number()) == 1 &&
           conf_set_string_field(configuration, "Filter Params", "Base Directory", base.c_str()) == 1 &&
           init_filter(filter, configuration) == 1;
}

}  // namespace vqglob
