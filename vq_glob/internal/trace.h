// Trace lines on a named channel bit, for modules whose channel lies above
// the 32 bits that new_dbg_str can name.
#pragma once

#include <cstdint>

#include "vq_glob/export.h"

namespace vq::debug {

// Channel bits of the library's own modules.
inline constexpr int kChannelErrmsg = 41;
inline constexpr int kChannelGf = 43;
inline constexpr int kChannelTime = 45;
inline constexpr int kChannelConfig = 52;
inline constexpr int kChannelNetwork = 55;
inline constexpr int kChannelFilter = 56;

// Writes the line when bit is set in the thread's mask or the debug flag is
// on, exactly as large_dbg_str does, without touching the scratch mask.
void trace_bit(int bit, const char *format, ...) VQ_PRINTF(2, 3);

}  // namespace vq::debug
