// The static message table and facility table behind the error stack.
// Both are read-only data; error_msg.cpp owns every lookup into them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vq::err {

// One message: code = facility + small number; severity 0..4 (S I W E F).
struct MessageRecord {
    uint32_t code;
    uint32_t facility;
    uint32_t severity;
    const char *ident;
    const char *text;  // printf template
};

// One facility: its code and the name printed in descriptions.
struct FacilityRecord {
    uint32_t code;
    const char *name;
};

// Messages grouped by facility, each facility's run contiguous; the last
// record is the catch-all {0xffff, 0x300, 3, "UNKNWN", "Unknown error"}.
extern const MessageRecord kMessageTable[];
extern const std::size_t kMessageCount;

// Facilities in the fixed order of the facility table.
extern const FacilityRecord kFacilityTable[];
extern const std::size_t kFacilityCount;

}  // namespace vq::err
