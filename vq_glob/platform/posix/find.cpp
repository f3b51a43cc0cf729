// POSIX backend of the name search: every entry of the directory through
// opendir / readdir; the caller matches the names against its pattern.
#include "platform/platform.h"

#include <dirent.h>

#include <cerrno>
#include <cstring>
#include <new>

struct PlatFind {
    DIR *dir = nullptr;
    bool ended = false;
};

namespace {

bool is_dot_or_dot_dot(const char *name) {
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

}  // namespace

bool plat_find_matches_names() { return false; }

int32_t plat_find_open(const char *directory, const char * /*pattern*/, PlatFind **out) {
    *out = nullptr;
    auto *find = new (std::nothrow) PlatFind;
    if (find == nullptr) {
        return ENOMEM;
    }
    // opendir opens with O_DIRECTORY: a fifo or a device in the directory's
    // place fails at once with ENOTDIR instead of blocking the open.
    find->dir = ::opendir(directory);
    if (find->dir == nullptr) {
        int32_t error = errno;
        delete find;
        return error;
    }
    *out = find;
    return 0;
}

int32_t plat_find_next(PlatFind *find, std::string *name, bool *end) {
    *end = false;
    while (!find->ended) {
        // readdir reports its failures only through errno, and leaves it
        // alone at the end of the directory.
        errno = 0;
        const dirent *entry = ::readdir(find->dir);
        if (entry == nullptr) {
            if (errno != 0) {
                return errno;
            }
            find->ended = true;
            break;
        }
        if (is_dot_or_dot_dot(entry->d_name)) {
            continue;
        }
        try {
            name->assign(entry->d_name);
        } catch (const std::bad_alloc &) {
            return ENOMEM;
        }
        return 0;
    }
    *end = true;
    return 0;
}

bool plat_find_is_no_file_error(int32_t code) { return code == ENOENT || code == ENOTDIR; }

void plat_find_close(PlatFind *find) {
    if (find == nullptr) {
        return;
    }
    ::closedir(find->dir);
    delete find;
}
