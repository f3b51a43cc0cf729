// The named trace channels.
#pragma once

#include <cstdint>

namespace vq::debug {

struct ChannelRow {
    int32_t value;  // 1 << bit for bits below 32, else 0
    const char *name;
    int32_t bit;    // 0..63 (one row carries a value beyond the mask)
};

// The first row whose name equals name ignoring ASCII case, or null.
const ChannelRow *find_channel(const char *name);

}  // namespace vq::debug
