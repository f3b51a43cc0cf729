// Paths where they meet the operating system: status queries by name,
// full-path expansion and the comparison built on it, short names, creating
// the directories of a path, and the conversion of names to and from the wide
// form the OS calls take.
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "gen_files/gf_state.h"
#include "gen_files/paths_common.h"
#include "vq_glob/dbg.h"

namespace vq::gf::paths {
namespace {

// The GF trace channel (43) as an 8-byte mask: byte 5, bit 3.
constexpr unsigned char kTraceGf[8] = {0, 0, 0, 0, 0, 0x08, 0, 0};

// Records a failure that belongs to no handle as the thread's last status of
// the files module (gf_get_last_error(-1) and friends read it back).
void mark_thread(uint32_t code, int32_t os_error) {
    if (vq::gf::FilesRecord *rec = vq::gf::state(); rec != nullptr) {
        vq::gf::mark_error(*rec, vq::gf::kNoHandle, code, os_error);
    }
}

int query(const char *fn, const char *name, bool PlatFsStatus::*what) {
    if (name == nullptr) {
        return vq::raise::params(Report::add, fn, "name");
    }
    if (too_long(name)) {
        err_add_error(ERR_FIL_VLONGNAME, name);
        return 0;
    }
    PlatFsStatus status;
    return plat_fs_status(name, &status) == 0 && status.*what ? 1 : 0;
}

// Where the elements that gf_make_path may have to create begin: behind a
// drive ("X:") or the "node" and "share" of a remote specification, neither
// of which can be made.
size_t creatable_start(const std::string &path) {
    size_t i = plat_path_drive_length(path.c_str());
    if (i == 0 && path.size() > 2 && path[0] == kSep && path[1] == kSep && path[2] != kSep) {
        size_t node_end = path.find(kSep, 2);
        size_t share_end = node_end == std::string::npos ? node_end : path.find(kSep, node_end + 1);
        i = share_end == std::string::npos ? path.size() : share_end;
    }
    return i;
}

// One directory: present already, or made now with the permission bits mode.
bool ensure_dir(const std::string &name, uint32_t mode) {
    PlatFsStatus status;
    if (plat_fs_status(name.c_str(), &status) == 0) {
        if (status.is_dir) {
            return true;
        }
        err_add_error(ERR_FIL_MKDFEX, name.c_str());
        return false;
    }
    int32_t code = plat_fs_make_dir(name.c_str(), mode);
    if (code == 0) {
        return true;
    }
    // Another process may have made it between the look and the attempt.
    if (plat_fs_is_exists_error(code) && plat_fs_status(name.c_str(), &status) == 0 && status.is_dir) {
        return true;
    }
    vq::raise::system(Report::add, code);
    err_add_error(ERR_FIL_MAKDIR, name.c_str());
    return false;
}

int make_path(const char *fn, const std::string &path, uint32_t mode = 0777) {
    if (path.empty()) {
        return bad_value(fn, 1);
    }
    if (path.size() > GF_MAX_PATH_LENGTH) {
        err_add_error(ERR_FIL_LONGCREATE_1730, path.c_str());
        return 0;
    }
    try {
        // Each prefix that ends an element, shortest first.
        for (size_t i = creatable_start(path); i < path.size();) {
            if (path[i] == kSep) {
                ++i;
                continue;
            }
            size_t end = path.find(kSep, i);
            end = end == std::string::npos ? path.size() : end;
            if (!ensure_dir(path.substr(0, end), mode)) {
                return 0;
            }
            i = end;
        }
        return 1;
    } catch (...) {
        return no_memory(fn, __LINE__);
    }
}

}  // namespace
}  // namespace vq::gf::paths

using namespace vq::gf::paths;

extern "C" {

VQ_API int gf_is_dir(const char *name) { return query("gf_is_dir", name, &PlatFsStatus::is_dir); }

VQ_API int gf_is_regular(const char *name) { return query("gf_is_regular", name, &PlatFsStatus::is_regular); }

VQ_API int gf_is_link(const char *name) { return query("gf_is_link", name, &PlatFsStatus::is_link); }

VQ_API int gf_expand_full_path(const char *path, char **buffer, int32_t *size) {
    if (path == nullptr || buffer == nullptr || size == nullptr) {
        return vq::raise::params(Report::add, "gf_expand_full_path",
                                 path == nullptr     ? "path"
                                 : buffer == nullptr ? "buffer"
                                                     : "size");
    }
    if (*size < 0) {
        return bad_value("gf_expand_full_path", 3);
    }
    std::string full;
    if (int32_t code = plat_fs_full_path(path, &full); code != 0) {
        vq::raise::system(Report::add, code);
        err_add_error(ERR_FIL_EXPAND, path);
        mark_thread(ERR_FIL_EXPAND, code);
        return 0;
    }
    if (full.size() >= INT32_MAX) {
        err_add_error(ERR_FIL_EXPAND, path);
        mark_thread(ERR_FIL_EXPAND, vq::gf::kNoOsError);
        return 0;
    }
    size_t needed = full.size() + 1;
    if (*buffer == nullptr || needed > static_cast<size_t>(*size)) {
        auto *grown = static_cast<char *>(std::realloc(*buffer, needed));
        if (grown == nullptr) {
            no_memory("gf_expand_full_path", __LINE__);
            mark_thread(ERR_FIL_MEMORY_1701, vq::gf::kNoOsError);
            return 0;
        }
        *buffer = grown;
        *size = static_cast<int32_t>(needed);
    }
    std::memcpy(*buffer, full.c_str(), needed);
    return 1;
}

VQ_API int gf_compare_file_names(const char *name1, const char *name2, int32_t *equal) {
    constexpr const char *fn = "gf_compare_file_names";
    if (name1 == nullptr || name2 == nullptr || equal == nullptr) {
        return vq::raise::params(Report::add, fn,
                                 name1 == nullptr   ? "name1"
                                 : name2 == nullptr ? "name2"
                                                    : "equal");
    }
    *equal = 0;
    const char *names[2] = {name1, name2};
    char *expanded[2] = {nullptr, nullptr};
    int ok = 1;
    for (int k = 0; k < 2 && ok == 1; ++k) {
        size_t len = std::strlen(names[k]);
        if (len > INT32_MAX - 256) {
            ok = bad_value(fn, k + 1);
            break;
        }
        auto size = static_cast<int32_t>(len + 256);
        expanded[k] = static_cast<char *>(std::malloc(static_cast<size_t>(size)));
        if (expanded[k] == nullptr) {
            ok = no_memory(fn, __LINE__);
            break;
        }
        ok = gf_expand_full_path(names[k], &expanded[k], &size);
        if (ok == 1) {
            size_t n = std::strlen(expanded[k]);
            if (n > 0 && expanded[k][n - 1] == kSep) {
                expanded[k][n - 1] = '\0';
            }
        }
    }
    if (ok == 1) {
        // Exact: two spellings of one name on a case-blind file system differ.
        *equal = std::strcmp(expanded[0], expanded[1]) == 0 ? 1 : 0;
    }
    std::free(expanded[0]);
    std::free(expanded[1]);
    return ok;
}

VQ_API int gf_get_short_path(const char *path, char *out, int32_t size) {
    if (path == nullptr || out == nullptr) {
        return vq::raise::params(Report::add, "gf_get_short_path", path == nullptr ? "path" : "out");
    }
    if (size < 1) {
        return bad_value("gf_get_short_path", 3);
    }
    if (too_long(path)) {
        err_add_error(ERR_FIL_VLONGNAME, path);
        return 0;
    }
    std::string short_path;
    if (int32_t code = plat_fs_short_path(path, &short_path); code != 0) {
        vq::raise::system(Report::add, code);
        err_add_error(ERR_FIL_GETINFO, path);
        return 0;
    }
    if (short_path.size() >= static_cast<size_t>(size)) {
        err_add_error(ERR_FIL_BUF, "gf_get_short_path");
        return 0;
    }
    return put(out, short_path.c_str(), short_path.size());
}

VQ_API int gf_make_path(const char *path) {
    if (path == nullptr) {
        return vq::raise::params(Report::add, "gf_make_path", "path");
    }
    try {
        return make_path("gf_make_path", path);
    } catch (...) {
        return no_memory("gf_make_path", __LINE__);
    }
}

VQ_API int gf_make_dirs(const char *path, uint32_t mode) {
    if (path == nullptr) {
        return vq::raise::params(Report::add, "gf_make_dirs", "path");
    }
    if (mode > 07777) {
        return bad_value("gf_make_dirs", 2);
    }
    try {
        return make_path("gf_make_dirs", path, mode);
    } catch (...) {
        return no_memory("gf_make_dirs", __LINE__);
    }
}

VQ_API int gf_make_path_from_list(char **elements) {
    constexpr const char *fn = "gf_make_path_from_list";
    if (elements == nullptr) {
        return vq::raise::params(Report::add, fn, "elements");
    }
    try {
        std::string path;
        for (char **e = elements; *e != nullptr; ++e) {
            // One separator between elements, added only where neither has one.
            if (!path.empty() && path.back() != kSep && (*e)[0] != kSep && (*e)[0] != '\0') {
                path += kSep;
            }
            path += *e;
        }
        return make_path(fn, path);
    } catch (...) {
        return no_memory(fn, __LINE__);
    }
}

VQ_API int gf_path_to_wpath(const char *path, wchar_t *out) {
    if (path == nullptr || out == nullptr) {
        return vq::raise::params(Report::add, "gf_path_to_wpath", path == nullptr ? "path" : "out");
    }
    size_t len = std::strlen(path);
    if (len > GF_MAX_PATH_LENGTH) {
        out[0] = L'\0';
        err_add_error(ERR_FIL_VLONGNAME, path);
        return 0;
    }
    // Formatted on the stack: the name and the longest prefix always fit.
    size_t replaced = 0;
    const char *prefix = plat_path_long_prefix(path, &replaced);
    char prefixed[GF_MAX_PATH_LENGTH + 16];
    std::snprintf(prefixed, sizeof prefixed, "%s%s", prefix, path + replaced);
    if (int32_t code = plat_utf8_to_wide(prefixed, out, GF_WPATH_SIZE); code != 0) {
        vq::raise::system(Report::add, code);
        return 0;
    }
    return 1;
}

VQ_API int gf_wpath_to_path(const wchar_t *wpath, char *out) {
    if (wpath == nullptr || out == nullptr) {
        return vq::raise::params(Report::add, "gf_wpath_to_path", wpath == nullptr ? "wpath" : "out");
    }
    if (int32_t code = plat_wide_to_utf8(wpath, out, GF_PATH_SIZE); code != 0) {
        vq::raise::system(Report::add, code);
        char text[512];
        plat_system_error_text(code, text, sizeof text);
        large_dbg_str(kTraceGf, "convertWchar2Char: Failed in WideCharToMultiByte, error: <%s>\n", text);
        return 0;
    }
    return 1;
}

}  // extern "C"
