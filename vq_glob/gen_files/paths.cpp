// Path strings taken apart and tested: file names, directories, extensions,
// parents, devices and remote specifications, element by element. Most work
// on the text alone; gf_extract_filename, gf_extract_file_extension,
// gf_extract_file_no_extension and gf_extract_path first ask whether the name
// is an existing directory, which changes what they produce.
#include <cstring>

#include "gen_files/paths_common.h"

namespace vq::gf::paths {
namespace {

// The last separator among the first len bytes of path, or null.
const char *last_sep_in(const char *path, size_t len, char separator) {
    for (size_t i = len; i > 0; --i) {
        if (path[i - 1] == separator) {
            return path + i - 1;
        }
    }
    return nullptr;
}

// The last element of a path: behind its last separator, or all of it.
const char *last_element(const char *path) {
    const char *sep = std::strrchr(path, kSep);
    return sep != nullptr ? sep + 1 : path;
}

// Where the extension of path starts (its last dot behind the last
// separator), or the terminator when it has none or is an existing directory.
const char *extension_start(const char *path) {
    const char *end = path + std::strlen(path);
    if (existing_dir(path)) {
        return end;
    }
    const char *dot = std::strrchr(last_element(path), '.');
    return dot != nullptr ? dot : end;
}

// Length of "<sep><sep>node<sep>share" at the start of path, or 0 when it is
// no remote specification; a specification without a share ends at its node.
size_t remote_root_length(const char *path) {
    if (path[0] != kSep || path[1] != kSep || path[2] == '\0' || path[2] == kSep) {
        return 0;
    }
    const char *node_end = std::strchr(path + 2, kSep);
    if (node_end == nullptr) {
        return std::strlen(path);
    }
    const char *share_end = std::strchr(node_end + 1, kSep);
    return share_end != nullptr ? static_cast<size_t>(share_end - path) : std::strlen(path);
}

int text_filename(const char *fn, const char *path, char *out, char separator) {
    if (path == nullptr || out == nullptr) {
        return vq::raise::params(Report::add, fn, path == nullptr ? "path" : "out");
    }
    if (separator == '\0') {
        return bad_value(fn, 3);
    }
    size_t len = std::strlen(path);
    if (len < 2) {
        return put(out, path, len);
    }
    const char *sep = std::strrchr(path, separator);
    const char *name = sep != nullptr ? sep + 1 : path;
    return put(out, name, std::strlen(name));
}

int text_path(const char *fn, const char *path, char *out, char separator) {
    if (path == nullptr || out == nullptr) {
        return vq::raise::params(Report::add, fn, path == nullptr ? "path" : "out");
    }
    if (separator == '\0') {
        return bad_value(fn, 3);
    }
    const char *sep = std::strrchr(path, separator);
    if (sep == nullptr) {
        out[0] = separator;
        out[1] = '\0';
        return 1;
    }
    return put(out, path, static_cast<size_t>(sep - path) + 1);
}

// Whether Windows stores name as written: not empty, no control character,
// no trailing dot or blank (the system drops them).
bool keeps_its_text(const char *name) {
    size_t length = std::strlen(name);
    for (size_t i = 0; i < length; ++i) {
        if (static_cast<unsigned char>(name[i]) < 0x20) {
            return false;
        }
    }
    return length > 0 && name[length - 1] != '.' && name[length - 1] != ' ';
}

// Whether the part of name before its first dot, blanks at its end left
// out, is a device name, which Windows opens instead of a file.
bool is_windows_device_name(const char *name) {
    size_t length = std::strcspn(name, ".");
    while (length > 0 && name[length - 1] == ' ') {
        --length;
    }
    char base[5] = "";
    if (length < 3 || length > 4) {
        return false;
    }
    for (size_t i = 0; i < length; ++i) {
        char c = name[i];
        base[i] = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    }
    if (length == 3) {
        return std::strcmp(base, "CON") == 0 || std::strcmp(base, "PRN") == 0 || std::strcmp(base, "AUX") == 0 ||
               std::strcmp(base, "NUL") == 0;
    }
    return (std::strncmp(base, "COM", 3) == 0 || std::strncmp(base, "LPT", 3) == 0) && base[3] >= '0' &&
           base[3] <= '9';
}

}  // namespace
}  // namespace vq::gf::paths

using namespace vq::gf::paths;

extern "C" {

VQ_API int gf_is_full_path(const char *path) {
    if (path == nullptr) {
        return vq::raise::params(Report::add, "gf_is_full_path", "path");
    }
    return plat_path_is_full(path) ? 1 : 0;
}

VQ_API int gf_is_windows_filename_valid(const char *name) {
    if (name == nullptr) {
        return vq::raise::params(Report::add, "gf_is_windows_filename_valid", "name");
    }
    if (name[std::strcspn(name, "\\/:*?\"<>|")] != '\0') {
        err_add_error(ERR_FIL_WINVALID, name);
        return 0;
    }
    return 1;
}

VQ_API int gf_windows_keeps_filename(const char *name) {
    if (name == nullptr) {
        return vq::raise::params(Report::add, "gf_windows_keeps_filename", "name");
    }
    if (gf_is_windows_filename_valid(name) != 1) {
        return 0;
    }
    if (is_windows_device_name(name) || !keeps_its_text(name)) {
        err_add_error(ERR_FIL_WINVALID, name);
        return 0;
    }
    return 1;
}

VQ_API char *gf_extract_first_element_ptr(const char *text, char separator) {
    if (text == nullptr) {
        vq::raise::params(Report::add, "gf_extract_first_element_ptr", "text");
        return nullptr;
    }
    if (separator == '\0') {
        bad_value("gf_extract_first_element_ptr", 2);
        return nullptr;
    }
    return const_cast<char *>(std::strchr(text, separator));
}

VQ_API char *gf_extract_last_element_ptr(const char *text, char separator) {
    if (text == nullptr) {
        vq::raise::params(Report::add, "gf_extract_last_element_ptr", "text");
        return nullptr;
    }
    if (separator == '\0') {
        bad_value("gf_extract_last_element_ptr", 2);
        return nullptr;
    }
    const char *sep = std::strrchr(text, separator);
    return const_cast<char *>(sep != nullptr ? sep + 1 : text);
}

VQ_API int gf_extract_text_filename(const char *path, char *out) {
    return text_filename("gf_extract_text_filename", path, out, kSep);
}

VQ_API int gf_extract_text_filename_with_sep(const char *path, char *out, char separator) {
    return text_filename("gf_extract_text_filename_with_sep", path, out, separator);
}

VQ_API int gf_extract_text_path(const char *path, char *out) {
    return text_path("gf_extract_text_path", path, out, kSep);
}

VQ_API int gf_extract_text_path_with_sep(const char *path, char *out, char separator) {
    return text_path("gf_extract_text_path_with_sep", path, out, separator);
}

VQ_API int gf_extract_filename(const char *path, char *out) {
    if (path == nullptr || out == nullptr) {
        return vq::raise::params(Report::add, "gf_extract_filename", path == nullptr ? "path" : "out");
    }
    if (existing_dir(path)) {
        return put(out, "", 0);
    }
    const char *name = last_element(path);
    return put(out, name, std::strlen(name));
}

VQ_API int gf_extract_file_extension(const char *path, char *out) {
    if (path == nullptr || out == nullptr) {
        return vq::raise::params(Report::add, "gf_extract_file_extension", path == nullptr ? "path" : "out");
    }
    const char *ext = extension_start(path);
    return put(out, ext, std::strlen(ext));
}

VQ_API int gf_extract_file_no_extension(const char *path, char *out) {
    if (path == nullptr || out == nullptr) {
        return vq::raise::params(Report::add, "gf_extract_file_no_extension",
                                 path == nullptr ? "path" : "out");
    }
    return put(out, path, static_cast<size_t>(extension_start(path) - path));
}

VQ_API int gf_extract_path(const char *path, char *out) {
    if (path == nullptr || out == nullptr) {
        return vq::raise::params(Report::add, "gf_extract_path", path == nullptr ? "path" : "out");
    }
    if (existing_dir(path)) {
        return put(out, path, std::strlen(path));
    }
    const char *sep = std::strrchr(path, kSep);
    return put(out, path, sep != nullptr ? static_cast<size_t>(sep - path) + 1 : 0);
}

VQ_API int gf_extract_dir_name(const char *path, char *out) {
    if (path == nullptr || out == nullptr) {
        return vq::raise::params(Report::add, "gf_extract_dir_name", path == nullptr ? "path" : "out");
    }
    size_t len = std::strlen(path);
    while (len > 0 && path[len - 1] == kSep) {
        --len;
    }
    const char *sep = last_sep_in(path, len, kSep);
    size_t start = sep != nullptr ? static_cast<size_t>(sep - path) + 1 : 0;
    return put(out, path + start, len - start);
}

VQ_API int gf_extract_prev_dir(const char *path, char *out) {
    if (path == nullptr || out == nullptr) {
        return vq::raise::params(Report::add, "gf_extract_prev_dir", path == nullptr ? "path" : "out");
    }
    size_t len = std::strlen(path);
    if (len > 1 && path[len - 1] == kSep) {
        --len;  // "a/b/" is the directory "a/b"
    }
    const char *sep = last_sep_in(path, len, kSep);
    if (sep == nullptr) {
        return put(out, "", 0);
    }
    // A separator in front is the root: its parent is itself.
    return put(out, path, sep == path ? 1 : static_cast<size_t>(sep - path));
}

VQ_API int gf_extract_device_name(const char *path, char *out) {
    if (path == nullptr || out == nullptr) {
        return vq::raise::params(Report::add, "gf_extract_device_name", path == nullptr ? "path" : "out");
    }
    size_t drive = plat_path_drive_length(path);
    return put(out, path, drive > 0 ? drive : remote_root_length(path));
}

VQ_API int gf_extract_remote_filespec(const char *spec, char *out) {
    if (spec == nullptr || out == nullptr) {
        return vq::raise::params(Report::add, "gf_extract_remote_filespec", spec == nullptr ? "spec" : "out");
    }
    const char doubled[] = {kSep, kSep, '\0'};
    const char *start = std::strstr(spec, doubled);
    if (start == nullptr) {
        return put(out, spec, std::strlen(spec));
    }
    const char *rest = std::strchr(start + 2, kSep);
    return rest != nullptr ? put(out, rest, std::strlen(rest)) : put(out, "", 0);
}

VQ_API int gf_extract_remote_node_name(const char *spec, char *out) {
    if (spec == nullptr || out == nullptr) {
        return vq::raise::params(Report::add, "gf_extract_remote_node_name",
                                 spec == nullptr ? "spec" : "out");
    }
    if (spec[0] == kSep && spec[1] == kSep) {
        const char *node = spec + 2;
        size_t len = std::strcspn(node, VQ_PATH_SEPARATOR_TEXT);
        if (len > 0) {
            return put(out, node, len);
        }
    }
    put(out, "", 0);
    return 0;
}

VQ_API int gf_get_n_first_elements_str(const char *path, int32_t n, char *out) {
    if (path == nullptr || out == nullptr) {
        return vq::raise::params(Report::add, "gf_get_n_first_elements_str",
                                 path == nullptr ? "path" : "out");
    }
    if (n < 1) {
        return bad_value("gf_get_n_first_elements_str", 2);
    }
    size_t i = 0;
    for (int32_t count = 0; path[i] != '\0';) {
        while (path[i] == kSep) {
            ++i;
        }
        if (path[i] == '\0') {
            break;
        }
        while (path[i] != '\0' && path[i] != kSep) {
            ++i;
        }
        if (++count == n) {
            return put(out, path, i);
        }
    }
    return put(out, path, i);
}

VQ_API int gf_get_next_partial_path(const char *base, const char *full, char *out, char separator) {
    if (base == nullptr || full == nullptr || out == nullptr) {
        return vq::raise::params(Report::add, "gf_get_next_partial_path",
                                 base == nullptr   ? "base"
                                 : full == nullptr ? "full"
                                                   : "out");
    }
    if (separator == '\0') {
        return bad_value("gf_get_next_partial_path", 4);
    }
    size_t base_len = std::strlen(base);
    size_t full_len = std::strlen(full);
    if (full_len <= base_len) {
        out[0] = '\0';
        return 0;
    }
    size_t start = base_len;
    if (base_len > 0 && base[base_len - 1] != separator) {
        ++start;  // the separator between the base and the next element
    }
    if (start >= full_len) {
        return put(out, "", 0);
    }
    const char *next = std::strchr(full + start, separator);
    return put(out, full, next != nullptr ? static_cast<size_t>(next - full) : full_len);
}

}  // extern "C"
