// File-system helpers. Status, modes, times, renames, links, copies and the
// creation and removal of directories go through the library's calls by name;
// walks, CRCs and removal of trees through its directory and file calls.
#include "files.h"

#include <algorithm>

#include "vq_glob/conf.h"
#include "vq_glob/dir.h"
#include "vq_glob/err.h"
#include "vq_glob/filter.h"
#include "vq_glob/gf.h"
#include "vq_glob/gf_path.h"

namespace vqglob {
namespace {

bool refuse_name(const std::string &name, const char *why) {
    std::string text = "refused file name <" + name + ">: " + why;
    err_set_error(ERR_GEN_GENERAL, text.c_str());
    return false;
}

// Runs call, a library call returning 1 on success, without leaving its
// failure on the stack: for questions whose "no" is an answer, not an error.
template <typename Call>
bool quietly(Call call) {
    void *entries = nullptr;
    int32_t size = 0;
    int32_t depth = 0;
    err_get_stack_desc(&entries, &size, &depth);
    std::string saved(static_cast<const char *>(entries), entries != nullptr ? static_cast<size_t>(size) : 0u);
    if (call() == 1) {
        return true;
    }
    err_set_stack_desc(saved.data(), static_cast<int32_t>(saved.size()), depth);
    return false;
}

// gf_get_file_status (links followed or not), quietly.
bool quiet_status(const std::string &path, gf_file_status &status, bool follow_links = false) {
    return quietly([&] { return gf_get_file_status(path.c_str(), follow_links ? 1 : 0, &status); });
}

std::string relative_of(const std::string &root, const char *path) {
    std::string rel = path + std::min(root.size() + 1, std::char_traits<char>::length(path));
#ifdef _WIN32
    std::replace(rel.begin(), rel.end(), '\\', '/');
#endif
    return rel;
}

// The entry's size, time and mode from the file's status, and its CRC when
// crc is given (from the same status).
bool fill_entry(const std::string &path, const CrcSource *crc, FileEntry &entry) {
    if (crc == nullptr) {
        return stat_file(path, entry);
    }
    gf_file_status status{};
    return (*crc)(entry.name, path, status, entry.crc) && entry_from_status(status, entry);
}

bool add_file(const std::string &root, const char *path, const CrcSource *crc, std::vector<FileEntry> &entries) {
    FileEntry entry;
    entry.name = relative_of(root, path);
    if (!fill_entry(path, crc, entry)) {
        return false;
    }
    entries.push_back(std::move(entry));
    return true;
}

// Every regular file of the walk of dir (recursive unless flat).
bool walk(const std::string &root, const std::string &dir, void *filter, bool flat, const CrcSource *crc,
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
            ok = add_file(root, path, crc, entries);
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
    gf_file_status status{};
    return file_status(path, status) && entry_from_status(status, entry);
}

bool file_status(const std::string &path, gf_file_status &status) {
    if (gf_get_file_status(path.c_str(), 1, &status) != 1) {
        return false;
    }
    return status.type == GF_TYPE_FILE || refuse_name(path, "not a regular file");
}

bool entry_from_status(const gf_file_status &status, FileEntry &entry) {
    entry.size = status.size;
    entry.mtime = status.modified_seconds;  // nanoseconds are never negative: this is the floor
    entry.mode = status.mode & 07777u;
#ifdef _WIN32
    // Windows tells only read-only (0444) or not (0666): a file sent from it
    // is writable by its owner alone, as a usual umask of 022 would leave it.
    entry.mode &= ~022u;
#endif
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
    return gf_set_file_mode(path.c_str(), mode & 07777u) == 1 && gf_set_file_times(path.c_str(), mtime, 0) == 1;
}

bool rename_path(const std::string &from, const std::string &to) {
    return gf_rename_file(from.c_str(), to.c_str(), 1) == 1;
}

bool remove_path(const std::string &path) { return gf_remove_recursive(path.c_str(), nullptr) == 1; }

// A copy (with the file's mode and time) is made only when the two names lie
// on different file systems.
bool link_or_copy(const std::string &from, const std::string &to) {
    if (gf_link_file(from.c_str(), to.c_str()) == 1) {
        return true;
    }
    if (gf_is_cross_device_error(gf_get_last_system_error(-1)) != 1) {
        return false;
    }
    return gf_copy_file(from.c_str(), to.c_str(), 1) == 1;
}

bool make_symlink(const std::string &target, const std::string &path) {
    return gf_make_symlink(target.c_str(), path.c_str()) == 1;
}

bool read_symlink(const std::string &path, std::string &target) {
    gf_file_status status{};
    if (!quiet_status(path, status) || status.type != GF_TYPE_LINK) {
        return false;
    }
    std::vector<char> buffer(GF_MAX_PATH_LENGTH + 1);
    if (gf_read_symlink(path.c_str(), buffer.data(), static_cast<int32_t>(buffer.size())) != 1) {
        return false;
    }
    target = buffer.data();
#ifdef _WIN32
    std::replace(target.begin(), target.end(), '\\', '/');
#endif
    return true;
}

// A release directory must be new: an existing one fails, whatever it is.
bool make_new_directory(const std::string &path) { return gf_make_dir(path.c_str(), 0777) == 1; }

bool path_exists(const std::string &path) {
    gf_file_status status{};
    return quiet_status(path, status);
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
#ifdef _WIN32
        // Windows would store such an element under another name (a trailing
        // dot or blank dropped, a colon opening a stream) or open a device.
        if (gf_windows_keeps_filename(element.c_str()) != 1) {
            return refuse_name(name, "Windows cannot hold it as written (a reserved character or device name, "
                                     "or a trailing dot or blank)");
        }
#endif
        start = end + 1;
    }
    return true;
}

bool prepare_parent(const std::string &root, const std::string &name, bool create) {
    size_t slash = name.rfind('/');
    if (slash != std::string::npos) {
        std::string parent = name.substr(0, slash);
        int32_t confined = 0;
        const char *why = nullptr;
        if (gf_path_is_confined(root.c_str(), parent.c_str(), &confined, &why) != 1) {
            return false;
        }
        if (confined != 1) {
            return refuse_name(name, why);
        }
        // Confined, so a link on the way leads to a directory below root.
        std::string dir = join_path(root, parent);
        gf_file_status status{};
        if (quiet_status(dir, status, true) ? status.type != GF_TYPE_DIR
                                            : create && gf_make_dirs(dir.c_str(), 0777) != 1) {
            return refuse_name(name, "a file stands where its directory should be");
        }
    }
    gf_file_status status{};
    if (quiet_status(join_path(root, name), status) && status.type == GF_TYPE_DIR) {
        return refuse_name(name, "a directory has that name on the target");
    }
    return true;
}

void remove_empty_parents(const std::string &root, const std::string &name) {
    std::string rel = name;
    for (size_t slash = rel.rfind('/'); slash != std::string::npos; slash = rel.rfind('/')) {
        rel.resize(slash);
        // Only an empty directory goes, so a file another connection has
        // just put there keeps its directory; the first refusal ends it.
        const std::string dir = join_path(root, rel);
        if (!quietly([&] { return gf_remove_dir(dir.c_str()); })) {
            return;
        }
    }
}

bool list_tree(const std::string &root, void *filter, bool (*skip_top)(const std::string &), const CrcSource *crc,
               std::vector<FileEntry> &entries) {
    std::vector<FileEntry> top;
    std::vector<std::string> subdirs;
    // The root's own files are read only once skip_top has kept them.
    if (!walk(root, root, filter, true, nullptr, top, &subdirs)) {
        return false;
    }
    for (FileEntry &entry : top) {
        if (skip_top != nullptr && skip_top(entry.name)) {
            continue;
        }
        if (crc != nullptr && !fill_entry(join_path(root, entry.name), crc, entry)) {
            return false;
        }
        entries.push_back(std::move(entry));
    }
    for (const std::string &dir : subdirs) {
        int32_t dig = 1;
        if ((skip_top != nullptr && skip_top(relative_of(root, dir.c_str()))) ||
            (filter != nullptr && should_dig_into_dir(filter, dir.c_str(), &dig) == 1 && dig == 0)) {
            continue;
        }
        if (!walk(root, dir, filter, false, crc, entries, nullptr)) {
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
