// Whole-file reads, the same on both backends: the backend only opens the
// name without blocking; the kind check and the bounded read are shared.
#include <algorithm>
#include <cstdint>

#include "platform/platform.h"

namespace {

// Closes the handle on every way out of the read.
class OpenFile {
public:
    explicit OpenFile(intptr_t file) : file_(file) {}
    ~OpenFile() { plat_native_file_close(file_); }
    OpenFile(const OpenFile &) = delete;
    OpenFile &operator=(const OpenFile &) = delete;
    intptr_t get() const { return file_; }

private:
    intptr_t file_;
};

// The most room a read needs: one byte past the limit is enough to know
// that the file is too large.
size_t most_room(size_t limit) { return limit == SIZE_MAX ? limit : limit + 1; }

// The room for the first read: the size the file reports, and one byte
// more, so that the read which finds the end (or finds that the file grew)
// has room; no more than most_room.
size_t first_room(intptr_t file, size_t limit) {
    uint64_t size = 0;
    if (plat_file_size(file, &size) != 0) {
        size = 0;  // the reads find the size
    }
    size_t most = most_room(limit);
    return size < most ? static_cast<size_t>(size) + 1 : most;
}

// Reads the open file to its end straight into out, which starts at the
// size the file reports and grows (doubling, from 64 KiB) only for a file
// that reports no size or grew while being read.
PlatWholeRead read_bounded(intptr_t file, size_t limit, std::string &out, int32_t *error) {
    constexpr size_t kLeastGrowth = 65536;
    size_t have = 0;
    out.resize(first_room(file, limit));
    for (;;) {
        if (have == out.size()) {
            out.resize(std::min(most_room(limit), std::max(out.size() * 2, kLeastGrowth)));
        }
        size_t done = 0;
        int32_t read_error = plat_native_file_read(file, out.data() + have, out.size() - have, &done);
        if (read_error != 0) {
            out.clear();
            out.shrink_to_fit();
            *error = read_error;
            return PlatWholeRead::read_failed;
        }
        if (done == 0) {
            out.resize(have);
            return PlatWholeRead::ok;
        }
        have += done;
        if (have > limit) {
            out.clear();
            out.shrink_to_fit();
            return PlatWholeRead::too_large;
        }
    }
}

}  // namespace

PlatWholeRead plat_read_regular_file(const char *name, size_t limit, std::string &out, int32_t *error) {
    *error = 0;
    out.clear();
    intptr_t handle = kPlatNoFile;
    int32_t open_error = plat_open_for_whole_read(name, &handle);
    if (open_error != 0) {
        *error = open_error;
        return PlatWholeRead::open_failed;
    }
    OpenFile file(handle);
    PlatFileKind kind = PlatFileKind::other;
    int32_t kind_error = plat_file_kind(file.get(), &kind);
    if (kind_error != 0) {
        *error = kind_error;
        return PlatWholeRead::read_failed;
    }
    if (kind != PlatFileKind::regular) {
        return PlatWholeRead::not_regular;
    }
    return read_bounded(file.get(), limit, out, error);
}
