// Whole-file reads, the same on both backends: the backend only opens the
// name without blocking; the kind check and the bounded read are shared.
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
    // Read in steps until end of file; one byte past the limit is enough to
    // know that the file is too large, whatever its size said when opened.
    char chunk[65536];
    for (;;) {
        size_t done = 0;
        int32_t read_error = plat_native_file_read(file.get(), chunk, sizeof chunk, &done);
        if (read_error != 0) {
            out.clear();
            *error = read_error;
            return PlatWholeRead::read_failed;
        }
        if (done == 0) {
            return PlatWholeRead::ok;
        }
        if (done > limit - out.size()) {
            out.clear();
            out.shrink_to_fit();
            return PlatWholeRead::too_large;
        }
        out.append(chunk, done);
    }
}
