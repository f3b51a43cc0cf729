// Sending a typed message: its attachments first, each behind its
// attachment-information message when it has a name on the target, then the
// body, every piece as a part behind the 10-byte header. A send that fails
// part way tells a peer of a version that knows it with a restart part.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>

#include "internal/raise.h"
#include "internal/trace.h"
#include "platform/platform.h"
#include "sl_messages/handle.h"
#include "sl_messages/transfer.h"
#include "vq_glob/err.h"
#include "vq_glob/gf.h"
#include "vq_glob/sl_net.h"
#include "vq_glob/slm.h"

namespace vq::slm {
namespace {

using raise::Report;

// Every part goes out in one send of header and data together: a lone
// 10-byte header followed by a small body is the write-write-read pattern
// that Nagle's algorithm and delayed acknowledgements turn into a stall.
// The handle's attachment buffer stages the part: the header slot, then up to
// SLM_MAX_PART_SIZE bytes of data.
class PartSender {
public:
    PartSender(Handle &h, void *session) : h_(h), session_(session) {}

    // Where the data of the next part goes (room for length bytes); null with
    // MEMORY raised when the staging buffer cannot grow.
    unsigned char *stage(uint32_t length) {
        const size_t needed = SLM_PART_HEADER_SIZE + size_t{length};
        if (h_.att_buffer.size() < needed) {
            try {
                h_.att_buffer.resize(needed);
            } catch (const std::bad_alloc &) {
                no_memory("slm_send", __LINE__);
                return nullptr;
            }
        }
        return h_.att_buffer.data() + SLM_PART_HEADER_SIZE;
    }

    // Sends the part whose length bytes of data were staged. Failures leave
    // the network layer's errors; the caller adds its own.
    bool send_staged(uint32_t length, uint16_t indication) {
        unsigned char *part = h_.att_buffer.data();
        encode_part_header(length, indication, part);
        return sl_net_send(session_, part, static_cast<int32_t>(SLM_PART_HEADER_SIZE + length), nullptr) == 1;
    }

    // Stages a copy of data, then sends it.
    bool send_part(const unsigned char *data, uint32_t length, uint16_t indication) {
        unsigned char *slot = stage(length);
        if (slot == nullptr) {
            return false;
        }
        if (length != 0) {
            std::memcpy(slot, data, length);
        }
        return send_staged(length, indication);
    }

    // Sends size bytes as parts of at most SLM_MAX_PART_SIZE: indication more
    // for each part but the last, last for the last one.
    bool send_in_parts(const unsigned char *data, uint32_t size, uint16_t more, uint16_t last) {
        while (size > SLM_MAX_PART_SIZE) {
            if (!send_part(data, SLM_MAX_PART_SIZE, more)) {
                return false;
            }
            data += SLM_MAX_PART_SIZE;
            size -= SLM_MAX_PART_SIZE;
        }
        return send_part(data, size, last);
    }

    // Sends the pieces fill(slot, piece, &length) puts into the staging slot,
    // of at most piece bytes each: a short piece (an empty one too) is the
    // last, so data of an exact multiple of the piece size ends with an
    // empty last piece.
    template <typename Fill>
    bool send_pieces(int32_t attachment, bool binary, uint32_t piece, Fill fill) {
        const uint16_t more = binary ? SLM_PART_BINARY_MORE : SLM_PART_TEXT_MORE;
        const uint16_t last = binary ? SLM_PART_BINARY_LAST : SLM_PART_TEXT_LAST;
        for (;;) {
            unsigned char *slot = stage(piece);
            uint32_t length = 0;
            if (slot == nullptr || !fill(slot, piece, &length)) {
                return false;
            }
            const bool is_last = length < piece;
            if (!send_staged(length, is_last ? last : more)) {
                return false;
            }
            if (h_.progress != nullptr && length != 0) {
                h_.progress(h_.progress_data, attachment, length);
            }
            if (is_last) {
                return true;
            }
        }
    }

    Handle &handle() { return h_; }

private:
    Handle &h_;
    void *session_;
};

// The attachment-information message of an entry with a name on the target:
// its own signed message, sent with indications 6 and 7.
bool send_attachment_info(PartSender &sender, const Attachment &entry) {
    void *info = nullptr;
    if (slm_allocate_handle(&info) != 1) {
        return false;
    }
    bool ok = slm_set_string(info, SLM_ATT_NAME_ON_TARGET_VALUE, entry.name_on_target.c_str()) == 1 &&
              slm_set_int(info, SLM_ATT_REPLACE_FILE_ON_TARGET_VALUE, entry.replace) == 1;
    if (ok && entry.consider_times && entry.unix_time != 0) {
        ok = slm_set_int(info, SLM_ATT_UNIX_MOD_TIME_VALUE, entry.unix_time) == 1;
    }
    if (ok && entry.consider_times && entry.nt_low != 0) {
        ok = slm_set_int(info, SLM_ATT_NT_LSB_MOD_TIME_VALUE, static_cast<int32_t>(entry.nt_low)) == 1 &&
             slm_set_int(info, SLM_ATT_NT_MSB_MOD_TIME_VALUE, static_cast<int32_t>(entry.nt_high)) == 1;
    }
    ok = ok && slm_insert_code(info, static_cast<uint16_t>(SLM_END_CODE)) == 1 && slm_sign_message(info) == 1;
    void *bytes = nullptr;
    uint32_t size = 0;
    ok = ok && slm_get_message_ptr(info, &bytes) == 1 && slm_get_size(info, &size) == 1 &&
         sender.send_in_parts(static_cast<const unsigned char *>(bytes), size, SLM_PART_ATT_INFO_MORE,
                              SLM_PART_ATT_INFO_LAST);
    slm_free_handle(&info);
    return ok;
}

// Opens an attachment's file for reading (not inherited). A missing name, or
// one that is not a regular file (a fifo or a device would block or never
// end), is refused before anything is opened.
bool open_attachment(GfFile &file, const Attachment &entry) {
    const char *name = entry.file_name.c_str();
    PlatFsStatus status;
    if (int32_t error = plat_fs_status(name, &status); error != 0) {
        if (plat_is_file_not_found_error(error)) {
            err_add_text_error("slm_send_att - file does not exist !!!!\n");
        } else {
            err_add_system_error(error);
        }
        err_add_error(ERR_MSG_ATTOPEN, name);
        return false;
    }
    if (!status.is_regular) {
        err_add_text_error("slm_send_att - not a regular file\n");
        err_add_error(ERR_MSG_ATTOPEN, name);
        return false;
    }
    if (!file.allocate() || gf_set_file_name(file.get(), name) != 1 ||
        gf_set_file_open_flags(file.get(), GF_READ) != 1 || gf_set_handle_inherit_mode(file.get(), 0) != 1 ||
        gf_open_file(file.get()) != 1) {
        err_add_error(ERR_MSG_ATTOPEN, name);
        return false;
    }
    return true;
}

// The size of the pieces attachments go in: the attachment buffer size,
// never more than a part holds.
uint32_t piece_size(const Handle &h) { return std::clamp<uint32_t>(h.att_buffer_size, 1, SLM_MAX_PART_SIZE); }

bool send_file_attachment(PartSender &sender, int32_t index, const Attachment &entry) {
    GfFile file;
    if (!open_attachment(file, entry)) {
        return false;
    }
    if (entry.has_target && !send_attachment_info(sender, entry)) {
        return false;
    }
    // Straight from the file into the staged part.
    auto fill = [&](unsigned char *slot, uint32_t wanted, uint32_t *length) {
        int32_t got = 0;
        if (gf_read_file(file.get(), slot, static_cast<int32_t>(wanted), &got) != 1) {
            err_add_error(ERR_MSG_ATTREAD, entry.file_name.c_str());
            return false;
        }
        *length = static_cast<uint32_t>(got);
        return true;
    };
    return sender.send_pieces(index, entry.binary, piece_size(sender.handle()), fill);
}

bool send_buffer_attachment(PartSender &sender, int32_t index, const Attachment &entry) {
    if (entry.has_target && !send_attachment_info(sender, entry)) {
        return false;
    }
    uint32_t offset = 0;
    auto fill = [&](unsigned char *slot, uint32_t wanted, uint32_t *length) {
        *length = std::min(wanted, entry.buffer_length - offset);
        if (*length != 0) {
            std::memcpy(slot, entry.buffer + offset, *length);
        }
        offset += *length;
        return true;
    };
    return sender.send_pieces(index, entry.binary, piece_size(sender.handle()), fill);
}

bool send_attachments(PartSender &sender) {
    int32_t index = 0;
    for (const auto &entry : sender.handle().attachments) {
        const bool sent = entry->is_buffer ? send_buffer_attachment(sender, index, *entry)
                                           : send_file_attachment(sender, index, *entry);
        ++index;
        if (!sent) {
            return false;
        }
    }
    return true;
}

}  // namespace
}  // namespace vq::slm

using vq::raise::Report;
using vq::slm::Handle;

extern "C" {

VQ_API int slm_send(void *handle, void *session, int32_t sign) {
    Handle *h = vq::slm::checked(handle, __func__, "handle");
    if (h == nullptr) {
        return 0;
    }
    if (session == nullptr) {
        return VQ_PARAMS(Report::add, "session");
    }
    if (sign != 0 &&
        (slm_insert_code(handle, static_cast<uint16_t>(SLM_END_CODE)) != 1 || slm_sign_message(handle) != 1)) {
        return 0;  // nothing has gone out yet
    }
    vq::slm::PartSender sender(*h, session);
    if (vq::slm::send_attachments(sender) &&
        sender.send_in_parts(h->buffer, h->size, SLM_PART_BODY_MORE, SLM_PART_BODY_LAST)) {
        return 1;
    }
    // A peer of our version or later drops what it has of this message.
    if (SLM_LOCAL_VERSION <= h->remote_version) {
        vq::debug::trace_bit(vq::debug::kChannelNetwork, "slm_send : sending restart part\n");
        sender.send_part(nullptr, 0, SLM_PART_RESTART);
    }
    err_add_error(ERR_MSG_SEND);
    return 0;
}

}  // extern "C"
