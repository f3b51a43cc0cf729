// Fuzzes the reader of variable-length line records with arbitrary files.
// The input becomes a read-only memory stream; records are read until the
// reader reports the end or an error. Every record it returns must be the
// very bytes that follow its length in the input, and all of them together
// can never be more than the input holds. Each record read is written back
// with the writer, which must reproduce the input's bytes up to that point:
// whatever the reader accepts, the writer writes, and the other way round.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "vq_glob/gf.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    // fmemopen refuses an empty buffer; an empty file is read from /dev/null.
    std::FILE *stream =
        size > 0 ? fmemopen(const_cast<uint8_t *>(data), size, "rb") : std::fopen("/dev/null", "rb");
    if (stream == nullptr) {
        return 0;
    }
    char *echo = nullptr;
    size_t echo_size = 0;
    std::FILE *out = open_memstream(&echo, &echo_size);
    if (out == nullptr) {
        std::fclose(stream);
        return 0;
    }
    size_t offset = 0;
    for (;;) {
        char *line = nullptr;
        uint16_t length = 0;
        int ok = gf_read_vl_line(stream, &line, &length);
        if (ok == 0 || line == nullptr) {
            if (line != nullptr) {
                std::abort();  // a failure must not hand out a line
            }
            break;
        }
        if (offset + 2 + length > size || length == 0) {
            std::abort();
        }
        if (data[offset] != (length >> 8) || data[offset + 1] != (length & 0xFF) ||
            std::memcmp(line, data + offset + 2, length) != 0) {
            std::abort();
        }
        for (size_t i = length; i < size_t{length} + 3; ++i) {
            if (line[i] != '\0') {
                std::abort();
            }
        }
        if (gf_write_vl_line(out, line, &length) != 1) {
            std::abort();
        }
        offset += 2 + size_t{length};
        std::free(line);
    }
    std::fclose(stream);
    std::fclose(out);  // sets echo and echo_size
    if (echo_size != offset || (offset > 0 && std::memcmp(echo, data, offset) != 0)) {
        std::abort();
    }
    std::free(echo);
    return 0;
}
