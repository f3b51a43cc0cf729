// Received attachments with a name on the target: reading their
// attachment-information message, confining the name to the target root,
// and the rules that keep an existing file (replace value, newer on target).
#include "sl_messages/target_name.h"

#include <cstdlib>
#include <new>
#include <string>

#include "internal/raise.h"
#include "platform/platform.h"
#include "platform/resolve.h"
#include "sl_messages/transfer.h"
#include "vq_glob/err.h"
#include "vq_glob/gf_path.h"
#include "vq_glob/slm.h"

namespace vq::slm {
namespace {

constexpr int64_t kNtEpochOffset = 11644473600;
constexpr uint64_t kNtTicksPerSecond = 10000000;

// ---- The attachment-information message ------------------------------------------------

bool malformed_info(const char *what) {
    err_add_error(ERR_MSG_BADMSG, what);
    return false;
}

// Reads the element behind code into out; unknown codes are stepped over.
bool read_info_value(void *message, uint16_t code, AttachmentInfo *out) {
    switch (code) {
        case SLM_ATT_NAME_ON_TARGET_VALUE: {
            char *name = nullptr;
            if (slm_get_string(message, &name) != 1) {
                return false;
            }
            const bool named = name != nullptr && name[0] != '\0';
            if (named) {
                out->name_on_target = name;  // std::bad_alloc is caught by the caller
            }
            std::free(name);
            return named || malformed_info("attachment information with an empty name on the target");
        }
        case SLM_ATT_REPLACE_FILE_ON_TARGET_VALUE:
            return slm_get_int(message, &out->replace) == 1;
        case SLM_ATT_UNIX_MOD_TIME_VALUE:
            out->has_unix_time = true;
            return slm_get_int(message, &out->unix_time) == 1;
        case SLM_ATT_NT_LSB_MOD_TIME_VALUE:
        case SLM_ATT_NT_MSB_MOD_TIME_VALUE: {
            int32_t word = 0;
            if (slm_get_int(message, &word) != 1) {
                return false;
            }
            (code == SLM_ATT_NT_LSB_MOD_TIME_VALUE ? out->nt_low : out->nt_high) = static_cast<uint32_t>(word);
            out->has_nt_time = true;
            return true;
        }
        default:
            return slm_skip_element(message) == 1;
    }
}

bool read_info(void *message, AttachmentInfo *out) {
    for (;;) {
        uint16_t code = 0;
        if (slm_get_code(message, &code) != 1) {
            return malformed_info("attachment information without its end code");
        }
        if (code == SLM_END_CODE) {
            break;
        }
        if (!read_info_value(message, code, out)) {
            return malformed_info("bad value in attachment information");
        }
    }
    return !out->name_on_target.empty() || malformed_info("attachment information without a name on the target");
}

// ---- The target root -------------------------------------------------------------------

std::string joined(const std::string &directory, const std::string &name) {
    if (!directory.empty() && !plat_path_is_separator(directory.back())) {
        return directory + VQ_PATH_SEPARATOR + name;
    }
    return directory + name;
}

// True when name, joined to the root, stays inside it (gf_path_is_confined);
// a check that fails counts as leading outside.
bool stays_inside_root(const std::string &root, const std::string &name) {
    int32_t confined = 0;
    return gf_path_is_confined(root.c_str(), name.c_str(), &confined, nullptr) == 1 && confined == 1;
}

// ---- Keeping an existing file ----------------------------------------------------------

// Whether the file at path was written later than the source. Two Windows
// systems compare FILETIMEs; otherwise Unix seconds (derived from the
// FILETIME when the sender gave only that). Equal times are not newer.
bool target_is_newer(const std::string &path, const AttachmentInfo &info) {
    PlatWriteTimes target;
    if ((!info.has_unix_time && !info.has_nt_time) || plat_fs_write_times(path.c_str(), &target) != 0) {
        return false;
    }
    const uint64_t source_nt = (uint64_t{info.nt_high} << 32) | info.nt_low;
    if (plat_fs_nt_times_are_native() && info.has_nt_time) {
        return target.nt_time > source_nt;
    }
    const int64_t source_unix = info.has_unix_time
                                    ? info.unix_time
                                    : static_cast<int64_t>(source_nt / kNtTicksPerSecond) - kNtEpochOffset;
    return target.unix_seconds > source_unix;
}

// Raises code with its arguments and keeps its text as the reason.
template <typename... Args>
void refuse(TargetDecision *out, uint32_t code, Args... args) {
    err_add_error(code, args...);
    out->write = false;
    out->why_not = err_get_error_text(0);
}

void decide_existing(const AttachmentInfo &info, TargetDecision *out) {
    if (target_is_newer(out->path, info)) {
        out->write = false;
        out->why_not = "File on target is newer than the file on source - should not override it.";
        return;
    }
    if (info.replace != 1) {
        out->write = false;
        out->why_not = "File on target exists and is not to be replaced.";
        return;
    }
    if (int32_t error = plat_file_remove(out->path.c_str()); error != 0) {
        err_add_system_error(error);
        refuse(out, ERR_MSG_ATTDEL, out->path.c_str());
    }
}

}  // namespace

bool parse_attachment_info(const unsigned char *message, uint32_t length, AttachmentInfo *out) {
    void *reader = nullptr;
    if (slm_read_message_to_handle(&reader, message, length) != 1) {
        return false;
    }
    bool ok = false;
    try {
        ok = read_info(reader, out);
    } catch (const std::bad_alloc &) {
        no_memory("slm_recv", __LINE__);
    }
    slm_free_handle(&reader);
    return ok;
}

bool decide_target(const Handle &h, const AttachmentInfo &info, TargetDecision *out) {
    try {
        out->write = true;
        out->why_not.clear();
        out->path = info.name_on_target;
        if (h.has_target_root) {
            const std::string &name = info.name_on_target;
            if (!stays_inside_root(h.target_root, name)) {
                refuse(out, ERR_MSG_TGTROOT, name.c_str(), h.target_root.c_str());
                return true;
            }
            out->path = joined(h.target_root, name);
        }
        PlatFileKind kind;
        if (plat_file_kind_by_name(out->path.c_str(), false, &kind) == 0) {
            decide_existing(info, out);
        }
        return true;
    } catch (const std::bad_alloc &) {
        return no_memory("slm_recv", __LINE__) != 0;
    }
}

}  // namespace vq::slm
