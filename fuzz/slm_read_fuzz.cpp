// Typed message bodies arrive from the network: the input is wrapped as a
// received body twice, once as it is (its first four bytes must then be the
// signature) and once behind a signature computed for it, so that the
// readers see every input. The body is walked element by element: a code,
// then every getter of another type (each must fail and leave the cursor),
// then the getter of the element's type, and a skip when that one fails.
//
// The walk follows the body with a reference reading of its own, and checks
// what must hold whatever the input:
//  - a getter succeeds exactly when its element lies whole in the body (and
//    a string ends with its only NUL), and returns the bytes that are there;
//  - a getter of the wrong type fails with TYPMIS and moves nothing;
//  - every element read is written again into a new message, whose bytes
//    are those the elements were read from.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "vq_glob/err.h"
#include "vq_glob/hash.h"
#include "vq_glob/slm.h"

namespace {

void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

uint16_t be16(const uint8_t *p) { return static_cast<uint16_t>((p[0] << 8) | p[1]); }
uint32_t be32(const uint8_t *p) {
    return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | uint32_t{p[3]};
}

// The body's bytes beside the handle reading them: where the cursor must be,
// and the elements read so far, as a writer would write them again.
struct Walk {
    void *h;
    const uint8_t *body;
    size_t size;
    size_t at = 4;
    std::vector<uint8_t> rewritten;

    size_t left() const { return size - at; }
    int type() const { return left() > 0 ? body[at] : -1; }
};

// Bytes of the value after the type byte a whole element of type needs, or
// 0 when it is not whole (or of no known type). Strings and voids count their
// length field and data.
size_t whole_size(const Walk &w, int type) {
    static const size_t kFixed[] = {4, 1, 0, 0, 4, 2, 4};
    if (type < 0 || type > SLM_TYPE_BINARY_ATT || w.left() < 1) {
        return 0;
    }
    const size_t after_type = w.left() - 1;
    if (type != SLM_TYPE_STRING && type != SLM_TYPE_VOID) {
        return after_type >= kFixed[type] ? kFixed[type] : 0;
    }
    if (after_type < 4) {
        return 0;
    }
    const uint32_t length = be32(w.body + w.at + 1);
    return length <= after_type - 4 ? 4 + size_t{length} : 0;
}

bool string_well_ended(const Walk &w) {
    const uint32_t length = be32(w.body + w.at + 1);
    const auto *text = w.body + w.at + 5;
    return length == 0 || std::memchr(text, 0, length) == text + length - 1;
}

// Takes the element the reference reading stands on as read: its code and
// bytes (bool as written, 0 or 1) go to the rewritten message.
void take(Walk &w, uint16_t code, size_t value_size) {
    w.rewritten.push_back(static_cast<uint8_t>(code >> 8));
    w.rewritten.push_back(static_cast<uint8_t>(code));
    const uint8_t *element = w.body + w.at;
    w.rewritten.insert(w.rewritten.end(), element, element + 1 + value_size);
    if (element[0] == SLM_TYPE_BOOL) {
        w.rewritten.back() = element[1] != 0 ? 1 : 0;
    }
    w.at += 1 + value_size;
}

// A getter of strings beside the element types: the one into a caller's
// buffer.
constexpr int kNoallocString = 100;

// Calls the getter of type at the cursor; writes the value read into out.
int get(void *h, int type, void *out, uint16_t code) {
    int32_t i = 0;
    int16_t s = 0;
    char *text = nullptr;
    void *data = nullptr;
    uint32_t length = 0;
    char small[8];
    int ok = 0;
    switch (type) {
        case kNoallocString:
            ok = slm_get_string_noalloc(h, small, sizeof small);
            check(ok == 0 || std::memchr(small, 0, sizeof small) != nullptr);
            return ok;
        case SLM_TYPE_INT:
            ok = slm_get_int(h, &i);
            return ok == 1 && slm_set_int(out, code, i) == 1 ? 1 : ok;
        case SLM_TYPE_BOOL:
            ok = slm_get_bool(h, &i);
            check(ok == 0 || i == 0 || i == 1);
            return ok == 1 && slm_set_bool(out, code, i) == 1 ? 1 : ok;
        case SLM_TYPE_SHORT:
            ok = slm_get_short(h, &s);
            return ok == 1 && slm_set_short(out, code, s) == 1 ? 1 : ok;
        case SLM_TYPE_STRING:
            ok = slm_get_string(h, &text);
            if (ok == 1) {
                check(slm_set_string(out, code, text) == 1);
            }
            std::free(text);
            return ok;
        case SLM_TYPE_VOID:
            ok = slm_get_void(h, &data, &length);
            check(ok == 0 || (length == 0) == (data == nullptr));
            return ok == 1 && slm_set_void(out, code, data, length) == 1 ? 1 : ok;
        default:
            // An attachment reference: the table of a wrapped body is empty.
            ok = slm_get_att_and_status(h, nullptr, nullptr, nullptr, nullptr);
            check(ok == 0);
            return 0;
    }
}

// Every getter of another type than the element's fails and moves nothing;
// with a known type byte there, it fails as a type mismatch.
void try_wrong_getters(Walk &w, void *out) {
    const int getters[] = {SLM_TYPE_INT,  SLM_TYPE_BOOL,  SLM_TYPE_STRING,  kNoallocString,
                           SLM_TYPE_VOID, SLM_TYPE_SHORT, SLM_TYPE_TEXT_ATT};
    const int type = w.type();
    const bool reference = type == SLM_TYPE_TEXT_ATT || type == SLM_TYPE_BINARY_ATT;
    for (int getter : getters) {
        const bool string_getter = getter == kNoallocString && type == SLM_TYPE_STRING;
        if (getter == type || string_getter || (getter == SLM_TYPE_TEXT_ATT && reference)) {
            continue;
        }
        err_clear_error_stack();
        check(get(w.h, getter, out, 0) == 0);
        check(err_get_error_code(0) == (type < 0 ? ERR_MSG_BADMSG : ERR_MSG_TYPMIS));
    }
    err_clear_error_stack();
}

// A string that does not fit the caller's buffer by one byte is refused and
// stays where it is (a null string needs one byte, for its "").
void check_too_small_buffer(const Walk &w) {
    const uint32_t length = be32(w.body + w.at + 1);
    const uint32_t needed = length != 0 ? length : 1;
    std::vector<char> buffer(needed);
    err_clear_error_stack();
    check(slm_get_string_noalloc(w.h, buffer.data(), needed - 1) == 0);
    check(err_get_error_code(0) == ERR_MSG_SMALLBUF);
    err_clear_error_stack();
}

void walk(void *h, const uint8_t *body, size_t size) {
    void *out = nullptr;
    check(slm_allocate_handle(&out) == 1);
    Walk w{h, body, size, 4, {}};
    uint16_t code = 0;
    while (slm_get_code(h, &code) == 1) {
        check(w.left() >= 2 && code == be16(body + w.at));
        w.at += 2;
        try_wrong_getters(w, out);
        const int type = w.type();
        const size_t value_size = whole_size(w, type);
        const bool readable = value_size != 0 && (type != SLM_TYPE_STRING || string_well_ended(w));
        const bool reference = type == SLM_TYPE_TEXT_ATT || type == SLM_TYPE_BINARY_ATT;
        if (type == SLM_TYPE_STRING && readable) {
            check_too_small_buffer(w);
        }
        const int got = get(h, type, out, code);
        check(got == (readable && !reference ? 1 : 0));
        if (got == 1) {
            take(w, code, value_size);
            continue;
        }
        const int skipped = slm_skip_element(h);
        check(skipped == (value_size != 0 ? 1 : 0));
        if (skipped == 0) {
            break;
        }
        // Skipped elements are not written again: the message stays what
        // the reference reading took.
        w.at += 1 + value_size;
    }
    err_clear_error_stack();

    uint32_t out_size = 0;
    void *out_bytes = nullptr;
    check(slm_get_size(out, &out_size) == 1 && slm_get_message_ptr(out, &out_bytes) == 1);
    check(out_size - 4 == w.rewritten.size());
    check(w.rewritten.empty() ||
          std::memcmp(static_cast<uint8_t *>(out_bytes) + 4, w.rewritten.data(), w.rewritten.size()) == 0);
    slm_free_handle(&out);

    // Emptying a wrapped body starts its reading over.
    uint16_t first = 0;
    check(slm_init_handle(h) == 1);
    if (size >= 6) {
        check(slm_get_code(h, &first) == 1 && first == be16(body + 4));
    }
}

// Wraps size bytes held in a block of exactly that size (an overread is a
// sanitizer report) and walks them when their signature holds.
void read_body(const uint8_t *bytes, size_t size) {
    auto *block = static_cast<uint8_t *>(std::malloc(size == 0 ? 1 : size));
    check(block != nullptr);
    if (size != 0) {
        std::memcpy(block, bytes, size);
    }
    void *h = nullptr;
    if (slm_read_message_to_handle(&h, block, static_cast<uint32_t>(size)) == 1) {
        walk(h, block, size);
        slm_free_handle(&h);
    } else {
        check(h == nullptr);
        check(err_get_error_code(0) == (size < 4 ? ERR_MSG_BADMSG : ERR_MSG_CRC));
    }
    err_clear_error_stack();
    std::free(block);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > 65536) {
        return 0;
    }
    read_body(data, size);
    std::vector<uint8_t> signed_body(4 + size);
    if (size != 0) {
        std::memcpy(signed_body.data() + 4, data, size);
    }
    updcrc(nullptr, 0);
    const uint32_t crc = updcrc(data, static_cast<uint32_t>(size));
    signed_body[0] = static_cast<uint8_t>(crc >> 24);
    signed_body[1] = static_cast<uint8_t>(crc >> 16);
    signed_body[2] = static_cast<uint8_t>(crc >> 8);
    signed_body[3] = static_cast<uint8_t>(crc);
    read_body(signed_body.data(), signed_body.size());
    return 0;
}
