// What sending and receiving typed messages share: the 10-byte part header
// and a file handle of the files module that is freed on every path.
#pragma once

#include <cstdint>

#include "sl_messages/handle.h"
#include "vq_glob/gf.h"
#include "vq_glob/slm.h"

namespace vq::slm {

// One part header as it travels, fields in host order.
struct PartHeader {
    uint16_t size_code = SLM_MSG_SIZE_CODE;
    uint32_t length = 0;
    uint16_t last_code = SLM_LAST_MSG_CODE;
    uint16_t indication = 0;
};

inline void encode_part_header(uint32_t length, uint16_t indication, unsigned char out[SLM_PART_HEADER_SIZE]) {
    store_be16(out, SLM_MSG_SIZE_CODE);
    store_be32(out + 2, length);
    store_be16(out + 6, SLM_LAST_MSG_CODE);
    store_be16(out + 8, indication);
}

inline PartHeader decode_part_header(const unsigned char in[SLM_PART_HEADER_SIZE]) {
    PartHeader header;
    header.size_code = load_be16(in);
    header.length = load_be32(in + 2);
    header.last_code = load_be16(in + 6);
    header.indication = load_be16(in + 8);
    return header;
}

// A handle of the calling thread's file table, freed (and its file closed)
// when this goes out of scope.
class GfFile {
public:
    GfFile() = default;
    GfFile(const GfFile &) = delete;
    GfFile &operator=(const GfFile &) = delete;
    ~GfFile() { release(); }

    // Takes a fresh handle; false with the files module's error raised.
    bool allocate() {
        release();
        return gf_allocate_handle(&handle_) == 1;
    }
    void release() {
        if (handle_ >= 0) {
            gf_free_handle(handle_);
            handle_ = -1;
        }
    }
    [[nodiscard]] int32_t get() const { return handle_; }

private:
    int32_t handle_ = -1;
};

}  // namespace vq::slm
