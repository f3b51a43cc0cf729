// Trace lines on a named channel bit, for modules whose channel lies above
// the 32 bits that new_dbg_str can name.
#pragma once

#include <cstdint>

#include "vq_glob/dbg.h"
#include "vq_glob/export.h"

namespace vq::debug {

// Channel bits of the library's own modules.
inline constexpr int kChannelErrmsg = DBG_BIT_ERRMSG;
inline constexpr int kChannelGf = DBG_BIT_GF;
inline constexpr int kChannelTime = DBG_BIT_TIME;
inline constexpr int kChannelConfig = DBG_BIT_CONFIG;
inline constexpr int kChannelNetwork = DBG_BIT_NETWORK;
inline constexpr int kChannelFilter = DBG_BIT_FILTER;

// Writes the line when bit is set in the thread's mask or the debug flag is
// on, exactly as large_dbg_str does, without touching the scratch mask.
void trace_bit(int bit, const char *format, ...) VQ_PRINTF(2, 3);

}  // namespace vq::debug
