// General messages, the error stack: packed into a message newest entry
// first, and pushed again from a message taken apart.
#include <cstdint>
#include <cstring>

#include "gen_msg/gm_state.h"
#include "vq_glob/err.h"

namespace vq::gm {
namespace {

// The elements of a packed error stack.
constexpr int32_t kStackTag = 200;
constexpr int32_t kStackDepth = 201;
constexpr int32_t kStackCodes = 202;
constexpr int32_t kStackTexts = 203;

// A void parameter of the parse handle with its size.
bool get_void_sized(const GmThreadState &st, int32_t code, const unsigned char **data, int32_t *size) {
    void *value = nullptr;
    *size = 0;
    if (st.parse_handle == kNoHandle ||
        api_get_param(st.parse_handle, key_of(st, code), API_PARAM_VOID, &value, size) != 1) {
        return false;
    }
    *data = static_cast<const unsigned char *>(value);
    return *size >= 0 && (value != nullptr || *size == 0);
}

// Unpacking always ends by freeing the parse handle.
int finish_unpack(int result) {
    gm_clean();
    return result;
}

}  // namespace
}  // namespace vq::gm

using vq::gm::GmThreadState;
using vq::gm::state;

extern "C" {

// ---- the error stack ----------------------------------------------------------------------

// The entries go newest first (the raw stack holds them oldest first). The
// receiver pushes them in the order they come, so the sender's newest entry
// becomes the receiver's oldest.
VQ_API int32_t gm_pack_error_stack(void *buffer, int32_t own_message) {
    GmThreadState *st = state();
    if (st == nullptr || (own_message != 0 && buffer == nullptr)) {
        return 0;
    }
    if (own_message != 0) {
        gm_init_message(buffer);
    }
    void *raw = nullptr;
    int32_t size = 0;
    int32_t depth = 0;
    if (err_get_stack_desc(&raw, &size, &depth) != 1 || raw == nullptr) {
        depth = 0;
    }
    gm_add_int_to_message(vq::gm::kStackTag, 0);
    gm_add_int_to_message(vq::gm::kStackDepth, depth);
    if (depth > 0) {
        // An overflow pushes its own entry, which moves the stack under the
        // loops: they stop at once, as nothing more would be written anyway.
        const auto *entries = static_cast<const err_entry *>(raw);
        gm_init_message_stream(vq::gm::kStackCodes, vq::gm::kInt);
        for (int32_t i = depth - 1; i >= 0 && !st->overflowed; --i) {
            gm_add_int_to_message(vq::gm::kStackCodes, static_cast<int32_t>(entries[i].code));
        }
        gm_close_stream();
        gm_init_message_stream(vq::gm::kStackTexts, vq::gm::kStr);
        for (int32_t i = depth - 1; i >= 0 && !st->overflowed; --i) {
            gm_add_str_to_message(vq::gm::kStackTexts, entries[i].text);
        }
        gm_close_stream();
    }
    return own_message != 0 ? static_cast<int32_t>(gm_end_message()) : 0;
}

VQ_API int gm_unpack_error_stack(const unsigned char *message, uint32_t length) {
    if (message != nullptr) {
        const int taken_apart = gm_disassemble_message(message, length);
        if (taken_apart != 1) {
            return vq::gm::finish_unpack(taken_apart);
        }
    }
    GmThreadState *st = state();
    int32_t depth = 0;
    if (st == nullptr || gm_get_int_param(vq::gm::kStackDepth, &depth) != 1 || depth < 0) {
        return vq::gm::finish_unpack(0);
    }
    if (depth == 0) {
        return vq::gm::finish_unpack(1);
    }
    const unsigned char *codes = nullptr;
    const unsigned char *texts = nullptr;
    int32_t codes_size = 0;
    int32_t texts_size = 0;
    if (!vq::gm::get_void_sized(*st, vq::gm::kStackCodes, &codes, &codes_size) ||
        !vq::gm::get_void_sized(*st, vq::gm::kStackTexts, &texts, &texts_size)) {
        return vq::gm::finish_unpack(0);
    }
    // Every entry must lie within what arrived before any is pushed: depth
    // codes, and depth strings each ending in its NUL inside the texts.
    if (codes_size / 4 < depth) {
        return vq::gm::finish_unpack(0);
    }
    size_t offset = 0;
    for (int32_t i = 0; i < depth; ++i) {
        const size_t rest = static_cast<size_t>(texts_size) - offset;
        const void *end = rest > 0 ? std::memchr(texts + offset, 0, rest) : nullptr;
        if (end == nullptr) {
            return vq::gm::finish_unpack(0);
        }
        offset = static_cast<size_t>(static_cast<const unsigned char *>(end) - texts) + 1;
    }
    err_entry entry;
    offset = 0;
    for (int32_t i = 0; i < depth; ++i) {
        int32_t code = 0;
        std::memcpy(&code, codes + 4 * static_cast<size_t>(i), sizeof code);
        const char *text = reinterpret_cast<const char *>(texts + offset);
        const size_t text_length = std::strlen(text);
        const size_t copied = text_length < sizeof entry.text - 1 ? text_length : sizeof entry.text - 1;
        std::memcpy(entry.text, text, copied);
        entry.text[copied] = '\0';
        entry.code = static_cast<uint32_t>(code);
        err_add_raw_error(&entry);
        offset += text_length + 1;
    }
    return vq::gm::finish_unpack(1);
}

}  // extern "C"
