// File lists of one directory: gf_get_file_list, gf_get_file_list_as_buffer
// and gf_is_dir_has_children.
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "dir/dir_chain.h"
#include "dir/dir_common.h"
#include "internal/raise.h"
#include "vq_glob/dir.h"
#include "vq_glob/err.h"
#include "vq_glob/err_codes.h"
#include "vq_glob/memory.h"
#include "vq_glob/wildcard.h"

namespace vq::dir {
namespace {

// Names are compared as the system compares them.
#ifdef _WIN32
constexpr int kCaseSensitive = 0;
#else
constexpr int kCaseSensitive = 1;
#endif

// Opens directory as a chain's root and reads it; 1, or 0 with the cause on
// the stack (ERR_MKL_BADDIR for a name that is no directory).
int open_and_read(DirChain &chain, const char *directory) {
    if (too_long(directory)) {
        return 0;
    }
    if (int32_t error = chain.open_root(directory, false); error != 0) {
        return raise_os(error, plat_dir_is_vanished_error(error) ? ERR_MKL_BADDIR : ERR_FIL_OPENDIR, directory);
    }
    if (int32_t error = chain.read_entries(); error != 0) {
        return raise_os(error, ERR_FIL_DIRACC, directory);
    }
    return 1;
}

// The sorted names of directory's regular files that match pattern. 1 or 0.
int matching_files(const char *directory, const char *pattern, std::vector<const char *> *names,
                   DirChain &chain) {
    if (open_and_read(chain, directory) == 0) {
        return 0;
    }
    PlatDir *dir = nullptr;
    if (int32_t error = chain.top_dir(&dir); error != 0) {
        return raise_os(error, ERR_FIL_DIRACC, directory);
    }
    for (const PlatDirEntry &entry : chain.top().entries) {
        PlatDirType type = PlatDirType::unknown;
        PlatFsStatus status;
        int32_t error = entry_type(dir, entry, false, &type, &status);
        if (error != 0) {
            if (plat_dir_is_vanished_error(error)) {
                debug::trace_bit(kTraceBit, "gf_get_file_list: <%s> vanished while listed - skipped\n",
                                 entry.name.c_str());
                continue;
            }
            std::string path;
            join_path(chain.path(), entry.name.c_str(), &path);
            return raise_os(error, ERR_FIL_GETINFO, path.c_str());
        }
        if (type == PlatDirType::file &&
            (pattern == nullptr || match_wildcard(pattern, entry.name.c_str(), kCaseSensitive) == 1)) {
            names->push_back(entry.name.c_str());
        }
    }
    return 1;
}

// Runs deliver(names) with the sorted names of directory's regular files
// that match pattern; a memory failure is reported for function. 1 or 0.
template <typename Deliver>
int with_matching_files(const char *function, const char *directory, const char *pattern, Deliver deliver) {
    if (directory == nullptr) {
        return raise::params(raise::Report::add, function, "directory");
    }
    try {
        DirChain chain;  // owns the names until deliver is done
        std::vector<const char *> names;
        if (matching_files(directory, pattern, &names, chain) == 0) {
            return 0;
        }
        return deliver(names);
    } catch (const std::bad_alloc &) {
        return raise::memory(raise::Report::add, function, kModule, __LINE__);
    }
}

// An ml_ string list of names: an array of malloc'ed copies ending in NULL.
char **make_string_list(const std::vector<const char *> &names) {
    auto **list = static_cast<char **>(std::calloc(names.size() + 1, sizeof(char *)));
    if (list == nullptr) {
        throw std::bad_alloc();
    }
    for (size_t i = 0; i < names.size(); ++i) {
        list[i] = sl_strdup(names[i]);
        if (list[i] == nullptr) {
            for (size_t k = 0; k < i; ++k) {
                std::free(list[k]);
            }
            std::free(list);
            throw std::bad_alloc();
        }
    }
    return list;
}

}  // namespace
}  // namespace vq::dir

extern "C" {

VQ_API int gf_get_file_list(const char *directory, const char *pattern, char ***list) {
    if (list == nullptr) {
        return VQ_PARAMS(vq::raise::Report::add, "list");
    }
    *list = nullptr;
    return vq::dir::with_matching_files(__func__, directory, pattern, [&](const std::vector<const char *> &names) {
        *list = vq::dir::make_string_list(names);
        return 1;
    });
}

VQ_API int gf_get_file_list_as_buffer(const char *directory, const char *pattern, char **buffer,
                                      int32_t *length) {
    if (buffer == nullptr || length == nullptr) {
        return VQ_PARAMS(vq::raise::Report::add, buffer == nullptr ? "buffer" : "length");
    }
    *buffer = nullptr;
    *length = 0;
    return vq::dir::with_matching_files(__func__, directory, pattern, [&](const std::vector<const char *> &names) {
        std::string text;
        for (const char *name : names) {
            text.append(name);
            text.push_back('\n');
        }
        if (text.size() > INT32_MAX) {
            err_add_error(ERR_FIL_BUF, "gf_get_file_list_as_buffer");
            return 0;
        }
        auto *out = static_cast<char *>(std::malloc(text.size() + 1));
        if (out == nullptr) {
            throw std::bad_alloc();
        }
        std::memcpy(out, text.c_str(), text.size() + 1);
        *buffer = out;
        *length = static_cast<int32_t>(text.size());
        return 1;
    });
}

VQ_API int gf_is_dir_has_children(const char *directory, int32_t *has_children) {
    if (directory == nullptr || has_children == nullptr) {
        return VQ_PARAMS(vq::raise::Report::add, directory == nullptr ? "directory" : "has_children");
    }
    *has_children = 0;
    if (vq::dir::too_long(directory)) {
        return 0;
    }
    PlatDir *dir = nullptr;
    if (int32_t error = plat_dir_open(directory, false, &dir); error != 0) {
        return vq::dir::raise_os(error, plat_dir_is_vanished_error(error) ? ERR_MKL_BADDIR : ERR_FIL_OPENDIR,
                                 directory);
    }
    PlatDirEntry entry;
    bool end = false;
    int32_t error = plat_dir_next(dir, &entry, &end);  // reads one entry, not the whole directory
    plat_dir_close(dir);
    if (error != 0) {
        return vq::dir::raise_os(error, ERR_FIL_DIRACC, directory);
    }
    *has_children = end ? 0 : 1;
    return 1;
}

}  // extern "C"
