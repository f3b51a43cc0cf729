// Path routines of the strings module. They work on the texts alone, never
// on the file system, with the one separator of the platform.
#include <cstring>

#include "platform/platform.h"
#include "strings/strings_state.h"

namespace vq::strings {
namespace {

bool same_char(char a, char b, bool case_sensitive) {
    return case_sensitive ? a == b : ascii::to_upper(a) == ascii::to_upper(b);
}

// Where path stands relative to dir.
enum class Relation { outside, equal, below };

Relation relation(const char *dir, const char *path, bool case_sensitive) {
    size_t dir_len = std::strlen(dir);
    if (dir_len == 0) {
        return Relation::outside;
    }
    // A root of separators only keeps an empty prefix: every path that
    // starts with a separator then lies below it.
    while (dir_len > 0 && dir[dir_len - 1] == kSeparator) {
        --dir_len;
    }
    for (size_t i = 0; i < dir_len; ++i) {
        if (path[i] == '\0' || !same_char(dir[i], path[i], case_sensitive)) {
            return Relation::outside;
        }
    }
    const char *rest = path + dir_len;
    if (*rest == '\0') {
        return Relation::equal;
    }
    if (*rest != kSeparator) {
        return Relation::outside;  // dir "a/b" and path "a/bc"
    }
    while (*rest == kSeparator) {
        ++rest;
    }
    return *rest == '\0' ? Relation::equal : Relation::below;
}

int sub_dir(const char *fn, const char *dir, const char *path, int32_t case_sensitive, int32_t equal_counts) {
    if (dir == nullptr || path == nullptr) {
        return raise::params(raise::Report::add, fn, dir == nullptr ? "dir" : "path");
    }
    switch (relation(dir, path, case_sensitive != 0)) {
        case Relation::below:
            return 1;
        case Relation::equal:
            return equal_counts != 0 ? 1 : 0;
        case Relation::outside:
            break;
    }
    return 0;
}

// Sort rank of a byte: the end first, then the separator, then every other
// byte in unsigned order.
int rank(char c) {
    if (c == '\0') {
        return 0;
    }
    return c == kSeparator ? 1 : static_cast<unsigned char>(c) + 2;
}

}  // namespace
}  // namespace vq::strings

using namespace vq::strings;

extern "C" {

VQ_API int str_is_sub_dir_with_case_sensitive_option(const char *dir, const char *path,
                                                     int32_t case_sensitive) {
    return sub_dir("str_is_sub_dir_with_case_sensitive_option", dir, path, case_sensitive, 0);
}

VQ_API int str_is_sub_dir_with_case_sensitive_and_equal_option(const char *dir, const char *path,
                                                               int32_t case_sensitive, int32_t equal_counts) {
    return sub_dir("str_is_sub_dir_with_case_sensitive_and_equal_option", dir, path, case_sensitive,
                   equal_counts);
}

VQ_API int32_t str_file_name_iterative_strcmp(const char *name1, const char *name2) {
    if (name1 == nullptr || name2 == nullptr) {
        VQ_PARAMS(vq::raise::Report::add, name1 == nullptr ? "name1" : "name2");
        name1 = name1 != nullptr ? name1 : "";
        name2 = name2 != nullptr ? name2 : "";
    }
    for (;; ++name1, ++name2) {
        int a = rank(*name1);
        int b = rank(*name2);
        if (a != b) {
            return a < b ? -1 : 1;
        }
        if (a == 0) {
            return 0;
        }
    }
}

VQ_API int str_relative_up_dir_included(const char *path) {
    if (path == nullptr) {
        return VQ_PARAMS(vq::raise::Report::add, "path");
    }
    const char *element = path;
    for (const char *c = path;; ++c) {
        if (*c == '\0' || plat_path_is_separator(*c)) {
            if (c - element == 2 && element[0] == '.' && element[1] == '.') {
                return 1;
            }
            if (*c == '\0') {
                return 0;
            }
            element = c + 1;
        }
    }
}

VQ_API int str_unix_to_native(char *path) {
    if (path == nullptr) {
        return VQ_PARAMS(vq::raise::Report::add, "path");
    }
    for (; *path != '\0'; ++path) {
        if (*path == '/') {
            *path = kSeparator;
        }
    }
    return 1;
}

}  // extern "C"
