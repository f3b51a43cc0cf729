// Per-thread state of the allocation tracker. It lives inside the debug
// module's record (the tracker shares the tracing module's slot) and is owned
// by vq_memory/tracker.cpp: no other module reads its fields.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace vq::memory {

struct TrackRecord;  // one tracked object; defined in vq_memory/tracker.cpp

struct TrackerState {
    int32_t tracking = 0;                // 0 off, 1 on
    int32_t current_bytes = 0;           // tracked bytes now
    int32_t peak_bytes = 0;              // highest current_bytes seen
    int32_t node_counter = 0;            // records created since sl_malloc_init
    TrackRecord *chain = nullptr;        // newest record first
    TrackRecord *prev_record = nullptr;  // the record made last, while it lives
    std::FILE *file = nullptr;           // the debug malloc file
    std::string file_name;
    int32_t dump_level = 0;     // 0: dumps off
    uint32_t live_records = 0;  // records on the chain; bounds every walk

    TrackerState() = default;
    TrackerState(const TrackerState &) = delete;
    TrackerState &operator=(const TrackerState &) = delete;

    // Turns tracking off, closes the file and frees the chain's records (not
    // the tracked objects).
    void release();
    ~TrackerState() { release(); }
};

// The tracker's records of parser context handles, for the tracked context
// handle calls (vq_memory/cli_context.cpp): record a new handle / drop the
// record of one about to be freed (an unknown or null one is reported).
void track_context_handle(const char *file, int32_t line, void *handle);
void forget_context_handle(const char *file, int32_t line, const void *handle);

}  // namespace vq::memory
