// Whether a relative name received from elsewhere stays below a directory:
// first by its text (no absolute names, no "..", nothing the system would
// read differently), then by where its existing part really leads once
// symbolic links are followed.
#include <string>
#include <string_view>

#include "gen_files/paths_common.h"
#include "platform/resolve.h"

namespace vq::gf::paths {
namespace {

// Windows reads a backslash as a separator; POSIX as part of a name.
constexpr bool kBackslashSeparates = kSep == '\\';

// A name that does not stay below the directory it is joined to: a full path,
// or (Windows) one that starts at a drive or at the root of the current drive.
bool is_rooted(const char *name) {
    return plat_path_is_full(name) || plat_path_drive_length(name) > 0 || plat_path_is_separator(name[0]);
}

// Why one element cannot be used, or nullptr when it can.
const char *element_fault(std::string_view element) {
    if (element.empty()) {
        return "an empty element";
    }
    if (element == "." || element == "..") {
        return "a \".\" or \"..\" element";
    }
    // Windows drops trailing dots and blanks, so that ".. " would climb and
    // "name." would be another file's name.
    if (kBackslashSeparates && (element.back() == '.' || element.back() == ' ')) {
        return "an element ending in a dot or blank";
    }
    return nullptr;
}

// Why name cannot be used by its text alone, or nullptr when it can.
const char *text_fault(const char *name) {
    if (name[0] == '\0') {
        return "an empty name";
    }
    if (is_rooted(name)) {
        return "an absolute name";
    }
    const std::string_view text(name);
    if (!kBackslashSeparates && text.find('\\') != std::string_view::npos) {
        return "a backslash, a separator on Windows";
    }
    size_t start = 0;
    for (size_t i = 0; i <= text.size(); ++i) {
        if (i == text.size() || plat_path_is_separator(text[i])) {
            if (const char *fault = element_fault(text.substr(start, i - start)); fault != nullptr) {
                return fault;
            }
            start = i + 1;
        }
    }
    return nullptr;
}

// Where path really leads: the real path of the name itself when it exists
// (a link is followed, a dangling one fails), else of its deepest existing
// parent, which is where a create would put it; never shorter than stop
// bytes (the root). 0, or the error number.
int32_t real_location(std::string path, size_t stop, std::string *out) {
    for (;;) {
        PlatFileKind kind;
        if (plat_file_kind_by_name(path.c_str(), false, &kind) == 0 || path.size() <= stop) {
            return plat_fs_real_path(path.c_str(), out);
        }
        size_t cut = path.size() - 1;
        while (cut > 0 && !plat_path_is_separator(path[cut])) {
            --cut;
        }
        path.resize(cut > stop ? cut : stop);
    }
}

bool is_within(const std::string &real, const std::string &root) {
    if (real.compare(0, root.size(), root) != 0) {
        return false;
    }
    return real.size() == root.size() || plat_path_is_separator(root.back()) ||
           plat_path_is_separator(real[root.size()]);
}

std::string joined(const std::string &directory, const char *name) {
    if (!directory.empty() && !plat_path_is_separator(directory.back())) {
        return directory + kSep + name;
    }
    return directory + name;
}

// The check behind gf_path_is_confined, its arguments checked.
int check(const char *root, const char *name, int32_t *confined, const char **reason) {
    *confined = 0;
    if (const char *fault = text_fault(name); fault != nullptr) {
        *reason = fault;
        return 1;
    }
    const std::string path = joined(root, name);
    if (path.size() > GF_MAX_PATH_LENGTH) {
        err_add_error(ERR_FIL_VLONGNAME, path.c_str());
        return 0;
    }
    std::string real_root;
    if (int32_t code = plat_fs_real_path(root, &real_root); code != 0) {
        vq::raise::system(Report::add, code);
        err_add_error(ERR_FIL_EXPAND, root);
        return 0;
    }
    std::string real;
    if (real_location(path, std::string_view(root).size(), &real) != 0) {
        *reason = "a symbolic link on its way that leads nowhere";
        return 1;
    }
    if (!is_within(real, real_root)) {
        *reason = "a symbolic link on its way that leads outside the root";
        return 1;
    }
    *confined = 1;
    *reason = "";
    return 1;
}

}  // namespace
}  // namespace vq::gf::paths

using namespace vq::gf::paths;

extern "C" {

VQ_API int gf_path_is_confined(const char *root, const char *relative_name, int32_t *confined,
                               const char **reason) {
    constexpr const char *fn = "gf_path_is_confined";
    if (root == nullptr || relative_name == nullptr || confined == nullptr) {
        return vq::raise::params(Report::add, fn,
                                 root == nullptr            ? "root"
                                 : relative_name == nullptr ? "relative_name"
                                                            : "confined");
    }
    const char *ignored = nullptr;
    try {
        return check(root, relative_name, confined, reason != nullptr ? reason : &ignored);
    } catch (...) {
        *confined = 0;
        return no_memory(fn, __LINE__);
    }
}

}  // extern "C"
