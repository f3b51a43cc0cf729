// Attachments of an outgoing message: each setter adds an entry to the
// handle's attachment table and writes the reference element that carries the
// entry's number. Nothing is opened here; slm_send reads the files.
#include <memory>
#include <new>

#include "internal/raise.h"
#include "sl_messages/handle.h"
#include "sl_messages/transfer.h"
#include "vq_glob/err.h"
#include "vq_glob/slm.h"

namespace vq::slm {
namespace {

using raise::Report;

constexpr const char *kBufferAttachmentName = "__ATT_AS_A_BUFFER__";

// Appends entry to the table and writes its reference under code. On failure
// the table is as it was and the error is raised.
int add_attachment(Handle &h, uint16_t code, std::unique_ptr<Attachment> entry, const char *function) {
    if (h.attachments.size() >= static_cast<size_t>(SLM_MAX_ATTACHMENTS)) {
        err_add_error(ERR_MSG_TOOMANY, SLM_MAX_ATTACHMENTS);
        return 0;
    }
    const auto number = static_cast<uint32_t>(h.attachments.size());
    const bool binary = entry->binary;
    try {
        h.attachments.push_back(std::move(entry));
    } catch (const std::bad_alloc &) {
        return no_memory(function, __LINE__);
    }
    if (!write_reference(h, code, number, binary, function)) {
        h.attachments.pop_back();
        return 0;
    }
    return 1;
}

// A file attachment, with or without a name on the target.
struct FileAttachment {
    const char *file_name;
    const char *name_on_target;  // null: none
    int32_t replace;
    int32_t time_block;
    int32_t unix_time;
    uint32_t nt_low;
    uint32_t nt_high;
    int32_t binary;
};

int set_file_attachment(void *handle, uint16_t code, const FileAttachment &in, const char *function) {
    Handle *h = checked(handle, function, "handle");
    if (h == nullptr) {
        return 0;
    }
    if (in.file_name == nullptr || in.file_name[0] == '\0') {
        return raise::params(Report::add, function, "file_name");
    }
    if (in.name_on_target != nullptr && in.name_on_target[0] == '\0') {
        return raise::params(Report::add, function, "name_on_target");
    }
    try {
        auto entry = std::make_unique<Attachment>();
        entry->file_name = in.file_name;
        entry->binary = in.binary != 0;
        if (in.name_on_target != nullptr) {
            entry->has_target = true;
            entry->name_on_target = in.name_on_target;
            entry->replace = in.replace;
        }
        // Without a time block the receiver has nothing to compare.
        entry->consider_times = in.time_block != 0;
        if (entry->consider_times) {
            entry->unix_time = in.unix_time;
            entry->nt_low = in.nt_low;
            entry->nt_high = in.nt_high;
        }
        return add_attachment(*h, code, std::move(entry), function);
    } catch (const std::bad_alloc &) {
        return no_memory(function, __LINE__);
    }
}

}  // namespace
}  // namespace vq::slm

using vq::raise::Report;
using vq::slm::Attachment;
using vq::slm::Handle;

extern "C" {

VQ_API int slm_set_att(void *handle, uint16_t code, const char *file_name, int32_t binary) {
    const vq::slm::FileAttachment in{file_name, nullptr, 0, 0, 0, 0, 0, binary};
    return vq::slm::set_file_attachment(handle, code, in, __func__);
}

VQ_API int slm_set_att_with_target_fn(void *handle, uint16_t code, const char *file_name, const char *name_on_target,
                                      int32_t replace, int32_t time_block, int32_t unix_time, uint32_t nt_low,
                                      uint32_t nt_high, int32_t binary) {
    const vq::slm::FileAttachment in{file_name, name_on_target, replace, time_block,
                                     unix_time, nt_low,         nt_high, binary};
    return vq::slm::set_file_attachment(handle, code, in, __func__);
}

VQ_API int slm_set_buffer_as_att(void *handle, uint16_t code, const void *buffer, uint32_t length, int32_t binary) {
    Handle *h = vq::slm::checked(handle, __func__, "handle");
    if (h == nullptr) {
        return 0;
    }
    if (buffer == nullptr && length != 0) {
        return VQ_PARAMS(Report::add, "buffer");
    }
    try {
        auto entry = std::make_unique<Attachment>();
        entry->file_name = vq::slm::kBufferAttachmentName;
        entry->binary = binary != 0;
        entry->is_buffer = true;
        entry->buffer = static_cast<const unsigned char *>(buffer);
        entry->buffer_length = length;
        return vq::slm::add_attachment(*h, code, std::move(entry), __func__);
    } catch (const std::bad_alloc &) {
        return vq::slm::no_memory(__func__, __LINE__);
    }
}

}  // extern "C"
