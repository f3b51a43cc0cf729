// Numbers as the library's wire formats hold them: big-endian, at any
// alignment (general messages, typed messages, time stamps on the wire).
#pragma once

#include <cstdint>

namespace vq::be {

inline void store16(unsigned char *p, uint16_t v) {
    p[0] = static_cast<unsigned char>(v >> 8);
    p[1] = static_cast<unsigned char>(v);
}

inline void store32(unsigned char *p, uint32_t v) {
    p[0] = static_cast<unsigned char>(v >> 24);
    p[1] = static_cast<unsigned char>(v >> 16);
    p[2] = static_cast<unsigned char>(v >> 8);
    p[3] = static_cast<unsigned char>(v);
}

inline uint16_t load16(const unsigned char *p) { return static_cast<uint16_t>((p[0] << 8) | p[1]); }

inline uint32_t load32(const unsigned char *p) {
    return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | uint32_t{p[3]};
}

}  // namespace vq::be
