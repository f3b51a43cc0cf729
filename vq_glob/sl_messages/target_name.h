// Received attachments with a name on the target: what their
// attachment-information message says, and whether and where the data is
// written.
#pragma once

#include <cstdint>
#include <string>

#include "sl_messages/handle.h"

namespace vq::slm {

// The contents of one attachment-information message.
struct AttachmentInfo {
    std::string name_on_target;
    int32_t replace = 0;
    bool has_unix_time = false;
    int32_t unix_time = 0;
    bool has_nt_time = false;
    uint32_t nt_low = 0;
    uint32_t nt_high = 0;
};

// Reads a signed attachment-information message of length bytes. False, with
// the error raised (CRC, TYPMIS, BADMSG...), for a bad signature, a missing
// end code, a value of the wrong type or a missing or empty name.
bool parse_attachment_info(const unsigned char *message, uint32_t length, AttachmentInfo *out);

// Where an attachment with a name on the target goes.
struct TargetDecision {
    std::string path;     // the root joined with the name; the name as received when refused
    bool write = false;   // false: the data is received and dropped
    std::string why_not;  // when not written
};

// Applies the target root, the newer-on-target rule and the replace rule to
// info; an existing file that is to be replaced is deleted here, so that the
// caller creates the file anew (exclusively). Refusals raise their error
// (TGTROOT, ATTDEL) and keep its text in why_not. False only when memory
// runs out (MEMORY raised).
bool decide_target(const Handle &h, const AttachmentInfo &info, TargetDecision *out);

}  // namespace vq::slm
