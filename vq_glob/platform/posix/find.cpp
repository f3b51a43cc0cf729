// POSIX backend of the name search: every entry of the directory, read
// through the directory layer (which opens paths beyond PATH_MAX piece by
// piece and never blocks on a fifo in the directory's place); the caller
// matches the names against its pattern.
#include <cerrno>
#include <new>

#include "platform/platform.h"

struct PlatFind {
    PlatDir *dir = nullptr;
    bool ended = false;
};

bool plat_find_matches_names() { return false; }

int32_t plat_find_open(const char *directory, const char * /*pattern*/, PlatFind **out) {
    *out = nullptr;
    auto *find = new (std::nothrow) PlatFind;
    if (find == nullptr) {
        return ENOMEM;
    }
    if (int32_t error = plat_dir_open(directory, false, &find->dir); error != 0) {
        delete find;
        return error;
    }
    *out = find;
    return 0;
}

int32_t plat_find_next(PlatFind *find, std::string *name, bool *end) {
    *end = find->ended;
    if (find->ended) {
        return 0;
    }
    PlatDirEntry entry;
    if (int32_t error = plat_dir_next(find->dir, &entry, end); error != 0) {
        return error;
    }
    if (*end) {
        find->ended = true;
        return 0;
    }
    name->swap(entry.name);
    return 0;
}

bool plat_find_is_no_file_error(int32_t code) { return code == ENOENT || code == ENOTDIR; }

void plat_find_close(PlatFind *find) {
    if (find == nullptr) {
        return;
    }
    plat_dir_close(find->dir);
    delete find;
}
