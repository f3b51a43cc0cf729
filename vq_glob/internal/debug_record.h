// The debug module's per-thread record: trace settings and output, and the
// allocation tracker's state, which shares the slot.
#pragma once

#include <cstdint>
#include <cstdio>

#include "internal/frame.h"
#include "internal/tracker_state.h"

namespace vq::debug {

inline constexpr int kMaskBytes = 8;
inline constexpr int kPushDepth = 9;
inline constexpr int kIndentMax = 128;

struct DebugRecord {
    int32_t debug_flag = 0;
    char indent[kIndentMax + 1] = {0};
    std::FILE *output = nullptr;  // null: standard output
    unsigned char mask[kMaskBytes] = {0};
    unsigned char scratch_mask[kMaskBytes] = {0};
    unsigned char saved_masks[kPushDepth + 1][kMaskBytes] = {};
    int32_t depth = 0;
    char path_buffer[265] = {0};
    memory::TrackerState tracker;
};

using Frame = frame::ModuleFrame<DebugRecord, frame::kSlotDebug>;

// The calling thread's record, or null.
inline DebugRecord *record() { return Frame::get(); }

}  // namespace vq::debug
