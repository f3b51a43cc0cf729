// Typed message handles: making, wrapping, emptying and freeing them, their
// settings, and the buffer management the element and transfer code share.
//
// An owned buffer grows by doubling and always keeps 4 bytes spare at its
// end. A handle made by slm_read_message_to_handle reads the caller's body
// in place; its capacity is 0, so the first write (or signing) goes through
// make_room's slow path, which copies the body into a buffer of the handle's
// own. The caller's bytes are never written.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

#include "internal/checked_handle.h"
#include "internal/raise.h"
#include "internal/trace.h"
#include "sl_messages/handle.h"
#include "vq_glob/err.h"
#include "vq_glob/hash.h"
#include "vq_glob/slm.h"

namespace vq::slm {
namespace {

using raise::Report;

constexpr const char *kModule = "sl_messages";
constexpr uint32_t kSignatureSize = 4;
constexpr size_t kInitialAttachmentTable = 10;

// Frees a vector's storage, not only its elements (clear keeps the block).
template <typename T>
void release(std::vector<T> &v) {
    std::vector<T>().swap(v);
}

// The capacity that holds needed bytes: current doubled until it does,
// capped at the largest 32-bit size.
uint32_t grown_capacity(uint32_t current, uint64_t needed) {
    uint64_t capacity = std::max<uint64_t>(current, SLM_INITIAL_CAPACITY);
    while (capacity < needed) {
        capacity *= 2;
    }
    return static_cast<uint32_t>(std::min<uint64_t>(capacity, UINT32_MAX));
}

// make_room's slow path: a bigger owned buffer, or the first owned copy of a
// wrapped body.
bool grow(Handle &h, uint64_t needed, const char *function) {
    if (needed > UINT32_MAX) {
        return no_memory(function, __LINE__) != 0;
    }
    const uint32_t capacity = grown_capacity(h.capacity, needed);
    if (h.owns_buffer) {
        auto *bigger = static_cast<unsigned char *>(std::realloc(h.buffer, capacity));
        if (bigger == nullptr) {
            return no_memory(function, __LINE__) != 0;
        }
        h.buffer = bigger;
    } else {
        auto *copy = static_cast<unsigned char *>(std::malloc(capacity));
        if (copy == nullptr) {
            return no_memory(function, __LINE__) != 0;
        }
        std::memcpy(copy, h.buffer, h.size);
        h.buffer = copy;
        h.owns_buffer = true;
    }
    h.capacity = capacity;
    return true;
}

// A new handle with an owned buffer of the initial capacity, or null.
Handle *new_handle(const char *function) {
    auto *h = new (std::nothrow) Handle;
    if (h == nullptr) {
        no_memory(function, __LINE__);
        return nullptr;
    }
    h->buffer = static_cast<unsigned char *>(std::malloc(SLM_INITIAL_CAPACITY));
    if (h->buffer == nullptr) {
        delete h;
        no_memory(function, __LINE__);
        return nullptr;
    }
    h->capacity = SLM_INITIAL_CAPACITY;
    std::memset(h->buffer, 0, kSignatureSize);
    return h;
}

void delete_handle(Handle *h) {
    if (h->owns_buffer) {
        std::free(h->buffer);
    }
    delete h;
}

// Copies text (null: none) into a setting of the handle.
int store_setting(const char *text, bool &present, std::string &value, const char *function) {
    try {
        value = text != nullptr ? text : "";
    } catch (const std::bad_alloc &) {
        return no_memory(function, __LINE__);
    }
    present = text != nullptr;
    return 1;
}

}  // namespace

int no_memory(const char *function, int line) { return raise::memory(Report::add, function, kModule, line); }

Handle *checked(void *handle, const char *function, const char *argument) {
    return tag::checked<Handle>(handle, tag::Kind::message, Report::add, function, argument);
}

Handle *checked(void *handle, const void *output, const char *function, const char *output_name) {
    Handle *h = checked(handle, function, "handle");
    if (h != nullptr && output == nullptr) {
        raise::params(Report::add, function, output_name);
        return nullptr;
    }
    return h;
}

bool make_room(Handle &h, uint32_t n, const char *function) {
    const uint64_t needed = uint64_t{h.size} + n + kSignatureSize;
    if (needed <= h.capacity) {
        return true;
    }
    return grow(h, needed, function);
}

bool write_reference(Handle &h, uint16_t code, uint32_t number, bool binary, const char *function) {
    constexpr uint32_t kReferenceSize = 7;
    if (!make_room(h, kReferenceSize, function)) {
        return false;
    }
    unsigned char *p = h.buffer + h.size;
    store_be16(p, code);
    p[2] = binary ? SLM_TYPE_BINARY_ATT : SLM_TYPE_TEXT_ATT;
    store_be32(p + 3, number);
    h.size += kReferenceSize;
    h.position = h.size;
    return true;
}

bool adopt_body(Handle &h, const unsigned char *body, uint32_t length, const char *function) {
    if (length < kSignatureSize) {
        err_add_error(ERR_MSG_BADMSG, "body shorter than its signature");
        return false;
    }
    // Only the new body matters: an owned buffer too small is replaced, not
    // grown, so nothing of the old message is copied along.
    const uint64_t needed = uint64_t{length} + kSignatureSize;
    if (!h.owns_buffer || needed > h.capacity) {
        if (needed > UINT32_MAX) {
            return no_memory(function, __LINE__) != 0;
        }
        const uint32_t capacity = grown_capacity(0, needed);
        auto *fresh = static_cast<unsigned char *>(std::malloc(capacity));
        if (fresh == nullptr) {
            return no_memory(function, __LINE__) != 0;
        }
        if (h.owns_buffer) {
            std::free(h.buffer);
        }
        h.buffer = fresh;
        h.capacity = capacity;
        h.owns_buffer = true;
    }
    std::memcpy(h.buffer, body, length);
    h.size = length;
    h.position = kSignatureSize;
    return true;
}

bool signature_matches(const unsigned char *body, uint32_t length) {
    if (length < kSignatureSize) {
        return false;
    }
    updcrc(nullptr, 0);
    const uint32_t crc = updcrc(body + kSignatureSize, length - kSignatureSize);
    return crc == load_be32(body);
}

void reset(Handle &h) {
    h.position = kSignatureSize;
    if (h.owns_buffer) {
        h.size = kSignatureSize;
        if (h.capacity > SLM_SHRINK_CAPACITY) {
            // A failed shrink keeps the bigger buffer, which is still valid.
            auto *smaller = static_cast<unsigned char *>(std::realloc(h.buffer, SLM_SHRINK_CAPACITY));
            if (smaller != nullptr) {
                h.buffer = smaller;
                h.capacity = SLM_SHRINK_CAPACITY;
            }
        }
    }
    // A wrapped body keeps its size: the cursor starts over at its first
    // element.
    release(h.attachments);
    h.last_reference = -1;
    release(h.recv_buffer);
    release(h.att_buffer);
}

}  // namespace vq::slm

using vq::raise::Report;
using vq::slm::Handle;

VQ_API int slm_allocate_handle(void **handle) {
    if (handle == nullptr) {
        return VQ_PARAMS(Report::add, "handle");
    }
    *handle = nullptr;
    Handle *h = vq::slm::new_handle(__func__);
    if (h == nullptr) {
        return 0;
    }
    try {
        h->attachments.reserve(vq::slm::kInitialAttachmentTable);
    } catch (const std::bad_alloc &) {
        vq::slm::delete_handle(h);
        return vq::slm::no_memory(__func__, __LINE__);
    }
    *handle = h;
    return 1;
}

VQ_API int slm_read_message_to_handle(void **handle, const void *buffer, uint32_t length) {
    if (handle == nullptr) {
        return VQ_PARAMS(Report::add, "handle");
    }
    *handle = nullptr;
    if (buffer == nullptr) {
        return VQ_PARAMS(Report::add, "message_buf");
    }
    const auto *body = static_cast<const unsigned char *>(buffer);
    if (length < vq::slm::kSignatureSize) {
        err_add_error(ERR_MSG_BADMSG, "body shorter than its signature");
        return 0;
    }
    if (!vq::slm::signature_matches(body, length)) {
        err_add_error(ERR_MSG_CRC);
        return 0;
    }
    auto *h = new (std::nothrow) Handle;
    if (h == nullptr) {
        return vq::slm::no_memory(__func__, __LINE__);
    }
    // Read in place: never written through, since capacity 0 makes any write
    // copy the body first.
    h->owns_buffer = false;
    h->buffer = const_cast<unsigned char *>(body);
    h->size = length;
    h->capacity = 0;
    *handle = h;
    return 1;
}

VQ_API int slm_init_handle(void *handle) {
    Handle *h = vq::slm::checked(handle, __func__, "handle");
    if (h == nullptr) {
        return 0;
    }
    vq::slm::reset(*h);
    return 1;
}

VQ_API int slm_free_handle(void **handle) {
    if (handle == nullptr) {
        return VQ_PARAMS(Report::add, "handle");
    }
    Handle *h = vq::slm::checked(*handle, __func__, "handle");
    if (h == nullptr) {
        return 0;
    }
    vq::slm::delete_handle(h);
    *handle = nullptr;
    return 1;
}

VQ_API int slm_get_size(void *handle, uint32_t *size) {
    Handle *h = vq::slm::checked(handle, size, __func__, "size");
    if (h == nullptr) {
        return 0;
    }
    *size = h->size;
    return 1;
}

VQ_API int slm_get_message_ptr(void *handle, void **buffer) {
    Handle *h = vq::slm::checked(handle, buffer, __func__, "message_buf");
    if (h == nullptr) {
        return 0;
    }
    *buffer = h->buffer;
    return 1;
}

VQ_API int slm_get_number_of_attachments(void *handle, int32_t *count) {
    Handle *h = vq::slm::checked(handle, count, __func__, "count");
    if (h == nullptr) {
        return 0;
    }
    *count = static_cast<int32_t>(h->attachments.size());
    return 1;
}

VQ_API int slm_get_att_crc(void *handle, int32_t index, uint64_t *size, uint32_t *crc) {
    Handle *h = vq::slm::checked(handle, __func__, "handle");
    if (h == nullptr) {
        return 0;
    }
    if (index == SLM_LAST_REFERENCE) {
        index = h->last_reference;
    }
    if (index < 0 || static_cast<size_t>(index) >= h->attachments.size()) {
        err_add_error(ERR_MSG_NOATT, static_cast<int>(index));
        return 0;
    }
    const vq::slm::Attachment &entry = *h->attachments[static_cast<size_t>(index)];
    if (size != nullptr) {
        *size = entry.received_bytes;
    }
    if (crc != nullptr) {
        *crc = entry.received_crc;
    }
    return 1;
}

VQ_API int slm_set_temp_dir(void *handle, const char *dir) {
    Handle *h = vq::slm::checked(handle, __func__, "handle");
    if (h == nullptr) {
        return 0;
    }
    return vq::slm::store_setting(dir, h->has_temp_dir, h->temp_dir, __func__);
}

VQ_API int slm_get_temp_dir(void *handle, const char **dir) {
    Handle *h = vq::slm::checked(handle, dir, __func__, "dir");
    if (h == nullptr) {
        return 0;
    }
    *dir = h->has_temp_dir ? h->temp_dir.c_str() : nullptr;
    return 1;
}

VQ_API int slm_set_progress_routine(void *handle, slm_progress_routine routine, void *data) {
    Handle *h = vq::slm::checked(handle, __func__, "handle");
    if (h == nullptr) {
        return 0;
    }
    h->progress = routine;
    h->progress_data = routine != nullptr ? data : nullptr;
    return 1;
}

VQ_API int slm_set_att_buffer_size(void *handle, uint32_t size) {
    Handle *h = vq::slm::checked(handle, __func__, "handle");
    if (h == nullptr) {
        return 0;
    }
    // Pieces of no bytes would never finish an attachment.
    if (size == 0) {
        return VQ_PARAMS(Report::add, "size");
    }
    if (size > h->att_buffer_size && !h->att_buffer.empty()) {
        vq::debug::trace_bit(vq::debug::kChannelNetwork,
                             "reallocating att buffer ( size changed from %d to %d )\n",
                             static_cast<int>(h->att_buffer_size), static_cast<int>(size));
        try {
            h->att_buffer.resize(size);
        } catch (const std::bad_alloc &) {
            return vq::slm::no_memory(__func__, __LINE__);
        }
    }
    h->att_buffer_size = size;
    return 1;
}

VQ_API int slm_set_remote_version(void *handle, double version) {
    Handle *h = vq::slm::checked(handle, __func__, "handle");
    if (h == nullptr) {
        return 0;
    }
    h->remote_version = version;
    return 1;
}

VQ_API int slm_set_target_root(void *handle, const char *dir) {
    Handle *h = vq::slm::checked(handle, __func__, "handle");
    if (h == nullptr) {
        return 0;
    }
    return vq::slm::store_setting(dir, h->has_target_root, h->target_root, __func__);
}
