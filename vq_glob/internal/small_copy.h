// Copies of a few bytes whose count is only known at run time. Message
// elements and parameter values are mostly a few dozen bytes, where a call to
// memcpy costs more than the copy: up to 32 bytes are moved as two fixed-width
// loads and stores that overlap in the middle, never touching a byte outside
// either range.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace vq::internal {

// The first and last width bytes of from, stored at the same places of to;
// together they cover counts from width to 2 * width.
template <size_t kWidth>
inline void copy_ends(unsigned char *to, const unsigned char *from, size_t count) noexcept {
    unsigned char head[kWidth];
    unsigned char tail[kWidth];
    std::memcpy(head, from, kWidth);
    std::memcpy(tail, from + count - kWidth, kWidth);
    std::memcpy(to, head, kWidth);
    std::memcpy(to + count - kWidth, tail, kWidth);
}

// Copies count bytes; the ranges must not overlap.
inline void small_copy(void *to, const void *from, size_t count) noexcept {
    auto *out = static_cast<unsigned char *>(to);
    const auto *in = static_cast<const unsigned char *>(from);
    if (count >= 16) {
        if (count <= 32) {
            copy_ends<16>(out, in, count);
        } else {
            std::memcpy(out, in, count);
        }
    } else if (count >= 8) {
        copy_ends<8>(out, in, count);
    } else if (count >= 4) {
        copy_ends<4>(out, in, count);
    } else if (count != 0) {
        // One to three bytes: the first, the middle and the last.
        const unsigned char first = in[0];
        const unsigned char middle = in[count / 2];
        const unsigned char last = in[count - 1];
        out[0] = first;
        out[count / 2] = middle;
        out[count - 1] = last;
    }
}

}  // namespace vq::internal
