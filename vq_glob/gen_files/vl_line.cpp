// Variable-length line records on C runtime streams.
//
// A record is its body's length n as an unsigned 16-bit big-endian number,
// then the n body bytes, with nothing between records. The files come from
// other programs and other machines, so the reader believes no length: it
// reads the body with one call and fails cleanly when the stream holds less.
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "gen_files/gf_state.h"
#include "internal/raise.h"
#include "vq_glob/err.h"

namespace vq::gf {
namespace {

// The body is followed by this many NUL bytes, so that a text body can be
// used as a string.
constexpr size_t kSpareBytes = 3;

// errno's text under ERR_SYS_ERRMSG (the stream's own failure).
int raise_stream_error(int error) {
    char text[512];
    plat_file_error_text(PlatIo::crt, error, text, sizeof text);
    err_set_error(ERR_SYS_ERRMSG, text);
    return 0;
}

}  // namespace
}  // namespace vq::gf

using namespace vq::gf;

extern "C" {

VQ_API int gf_write_vl_line(FILE *stream, const char *line, uint16_t *length) {
    if (stream == nullptr || length == nullptr || line == nullptr) {
        err_set_error(ERR_FIL_MEMORY_1727, "gf_write_vl_line");
        return 0;
    }
    uint16_t n = *length;
    // The reader refuses an empty record, and every record behind it would be
    // lost with it: such a record is never written.
    if (n == 0) {
        err_set_error(ERR_FIL_BADPAR, "gf_write_vl_line", 3);
        return 0;
    }
    const unsigned char header[2] = {static_cast<unsigned char>(n >> 8),
                                     static_cast<unsigned char>(n & 0xFF)};
    errno = 0;
    if (std::fwrite(header, sizeof header, 1, stream) != 1) {
        return raise_stream_error(errno);
    }
    if (std::fwrite(line, n, 1, stream) != 1) {
        return raise_stream_error(errno);
    }
    return 1;
}

VQ_API int gf_read_vl_line(FILE *stream, char **line, uint16_t *length) {
    if (line != nullptr) {
        *line = nullptr;
    }
    if (stream == nullptr || line == nullptr || length == nullptr) {
        err_set_error(ERR_FIL_MEMORY_1727, "gf_read_vl_line");
        return 0;
    }
    unsigned char header[2];
    errno = 0;
    if (std::fread(header, sizeof header, 1, stream) != 1) {
        // The end of the file, also inside the length: no more records.
        if (std::feof(stream) != 0) {
            return 1;
        }
        return raise_stream_error(errno);
    }
    auto n = static_cast<uint16_t>(header[0] << 8 | header[1]);
    *length = n;
    auto *body = static_cast<char *>(std::calloc(size_t{n} + kSpareBytes, 1));
    if (body == nullptr) {
        return VQ_NO_MEMORY(vq::raise::Report::fresh, kModule);
    }
    if (n == 0 || std::fread(body, n, 1, stream) != 1) {
        std::free(body);
        if (n > 0 && std::ferror(stream) != 0) {
            return raise_stream_error(errno);
        }
        char text[128];
        if (n == 0) {
            std::snprintf(text, sizeof text, "empty variable-length record");
        } else {
            std::snprintf(text, sizeof text,
                          "variable-length record of %u bytes cut short by the end of the file",
                          static_cast<unsigned>(n));
        }
        err_set_error(ERR_SYS_ERRMSG, text);
        return 0;
    }
    *line = body;
    return 1;
}

}  // extern "C"
