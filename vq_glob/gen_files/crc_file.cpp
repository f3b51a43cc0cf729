// The CRC-32 of a whole file, read through its handle.
#include <memory>
#include <new>

#include "gen_files/gf_state.h"
#include "vq_glob/hash.h"

namespace vq::gf {
namespace {

// Bytes read per call. Large enough that the cost of a call vanishes beside
// the copy and the checksum, small enough that the chunk stays in the second-
// level cache between the copy out of the page cache and the checksum.
constexpr int32_t kChunk = 256 * 1024;

}  // namespace
}  // namespace vq::gf

using namespace vq::gf;

extern "C" {

VQ_API int gf_calc_file_crc(int32_t h, uint32_t *crc) {
    if (checked_entry(h) == nullptr) {
        return 0;
    }
    if (crc == nullptr) {
        return raise_null_argument(*state(), h, "gf_calc_file_crc");
    }
    // The chunk lives on the heap: thread stacks may be small.
    std::unique_ptr<unsigned char[]> buffer(new (std::nothrow) unsigned char[kChunk]);
    if (!buffer) {
        return raise_memory(*state(), h, "gf_calc_file_crc", __LINE__);
    }
    if (gf_open_file(h) == 0) {
        vq::debug::trace_bit(kTraceBit, "calc_file_crc : failed in gf_open_file() with error <%s>\n",
                             gf_get_last_error_msg(h));
        return 0;
    }
    updcrc(nullptr, 0);
    for (;;) {
        int32_t n = 0;
        if (gf_read_file(h, buffer.get(), kChunk, &n) == 0) {
            vq::debug::trace_bit(kTraceBit, "calc_file_crc : failed to read from file with error <%s>\n",
                                 gf_get_last_error_msg(h));
            gf_close_file(h);
            return 0;
        }
        if (n == 0) {
            break;
        }
        *crc = updcrc(buffer.get(), static_cast<uint32_t>(n));
    }
    vq::debug::trace_bit(kTraceBit, "calc_file_crc : reached the end of file\n");
    return gf_close_file(h);
}

}  // extern "C"
