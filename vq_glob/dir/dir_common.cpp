// The directory module's shared helpers: error reports and path joining.
#include "dir/dir_common.h"

#include <algorithm>
#include <cstring>

#include "internal/raise.h"
#include "vq_glob/err.h"
#include "vq_glob/err_codes.h"
#include "vq_glob/export.h"
#include "vq_glob/gf_path.h"

namespace vq::dir {

int raise_os(int32_t error, uint32_t code, const char *name) {
    err_add_system_error(error);
    err_add_error(code, name);
    return 0;
}

int raise_os2(int32_t error, uint32_t code, const char *first, const char *second) {
    err_add_system_error(error);
    err_add_error(code, first, second);
    return 0;
}

int raise_memory(const char *function, int line) {
    return raise::memory(raise::Report::add, function, kModule, line);
}

bool too_long(const char *text) {
    if (std::strlen(text) <= GF_MAX_PATH_LENGTH) {
        return false;
    }
    err_add_error(ERR_FIL_VLONGNAME, text);
    return true;
}

bool join_path(const std::string &path, const char *name, std::string *out) {
    out->assign(path);
    if (out->empty() || !plat_path_is_separator(out->back())) {
        out->push_back(VQ_PATH_SEPARATOR);
    }
    out->append(name);
    if (out->size() <= GF_MAX_PATH_LENGTH) {
        return true;
    }
    err_add_error(ERR_FIL_VLONGNAME, out->c_str());
    return false;
}

std::string without_trailing_separators(const char *path) {
    std::string text(path);
    while (text.size() > 1 && plat_path_is_separator(text.back()) &&
           !(text.size() == plat_path_drive_length(text.c_str()) + 1)) {
        text.pop_back();
    }
    return text;
}

bool split_last_element(const char *path, const char *function, std::string *parent, std::string *name) {
    std::string whole = without_trailing_separators(path);
    size_t at = whole.size();
    while (at > 0 && !plat_path_is_separator(whole[at - 1])) {
        --at;
    }
    at = std::max(at, plat_path_drive_length(whole.c_str()));
    name->assign(whole, at);
    if (name->empty() || *name == "." || *name == "..") {
        err_add_error(ERR_FIL_BADPAR, function, 1);
        return false;
    }
    parent->assign(at == 0 ? std::string(".") : whole.substr(0, at));
    return true;
}

int32_t entry_type(PlatDir *dir, const PlatDirEntry &entry, bool follow, PlatDirType *type,
                   PlatFsStatus *status) {
    *type = entry.type;
    if (entry.type != PlatDirType::unknown && !(follow && entry.type == PlatDirType::link)) {
        return 0;  // the directory told, and nothing is to be followed: no system call
    }
    if (int32_t error = plat_dir_child_status(dir, entry.name.c_str(), follow, status); error != 0) {
        return error;
    }
    if (status->is_dir) {
        *type = PlatDirType::dir;
    } else if (status->is_regular) {
        *type = PlatDirType::file;
    } else if (status->is_link) {
        *type = PlatDirType::link;  // not followed, or dangling
    } else {
        *type = PlatDirType::other;
    }
    return 0;
}

}  // namespace vq::dir
