// Elements of typed messages: the writers that append them, signing, and the
// readers that walk the cursor over them.
//
// Writers append at the end of the message and leave the cursor there; each
// makes room once for the whole element, so growing never allocates per
// element and a failure writes nothing.
//
// Readers take bytes that came from another machine. The element at the
// cursor is checked to lie whole inside the message before a byte of it is
// used, and a reader that fails leaves the cursor where it was, so that the
// caller may try another reader or step over the element. A reader of a
// value expects the cursor on the element's type byte, that is after
// slm_get_code took its code; slm_skip_element likewise steps over the type
// and value of the element whose code was read.
//
// A string element is accepted only when its one NUL is its last byte: a
// length that does not cover the NUL, or an earlier NUL that would cut the
// text short, fails with ERR_MSG_BADMSG.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "internal/raise.h"
#include "internal/trace.h"
#include "sl_messages/handle.h"
#include "vq_glob/err.h"
#include "vq_glob/hash.h"
#include "vq_glob/slm.h"

namespace vq::slm {
namespace {

constexpr uint32_t kCodeSize = 2;
constexpr uint32_t kTypeSize = 1;
constexpr uint32_t kLengthSize = 4;
constexpr uint32_t kSignatureSize = 4;

// Value sizes of the fixed-size types, by type byte (0 for the sized ones).
constexpr uint32_t kValueSize[] = {4, 1, 0, 0, 4, 2, 4};
constexpr uint8_t kTypeCount = sizeof kValueSize / sizeof kValueSize[0];

constexpr const char *kCutShort[] = {
    "int element cut short",          "bool element cut short",         "string element cut short",
    "void element cut short",         "attachment reference cut short", "short element cut short",
    "attachment reference cut short",
};

constexpr int kTraceBit = debug::kChannelNetwork;

int malformed(const char *what) {
    err_add_error(ERR_MSG_BADMSG, what);
    return 0;
}

int type_mismatch(int found, int expected) {
    err_add_error(ERR_MSG_TYPMIS, found, expected);
    return 0;
}

// ---- writing ---------------------------------------------------------------------------

// Room for an element of n bytes at the end: where to write it, or null with
// the error raised. The element then counts as written.
unsigned char *append(Handle &h, uint32_t n, const char *function) {
    if (!make_room(h, n, function)) {
        return nullptr;
    }
    unsigned char *p = h.buffer + h.size;
    h.size += n;
    h.position = h.size;
    return p;
}

// Room for code, type and value_size bytes: where the value goes, or null.
unsigned char *append_element(void *handle, uint16_t code, uint8_t type, uint32_t value_size,
                              const char *function) {
    Handle *h = checked(handle, function, "handle");
    if (h == nullptr) {
        return nullptr;
    }
    if (value_size > UINT32_MAX - kCodeSize - kTypeSize) {
        no_memory(function, __LINE__);
        return nullptr;
    }
    unsigned char *p = append(*h, kCodeSize + kTypeSize + value_size, function);
    if (p == nullptr) {
        return nullptr;
    }
    store_be16(p, code);
    p[kCodeSize] = type;
    return p + kCodeSize + kTypeSize;
}

// A sized element: length, then the bytes (none for a null data pointer).
int append_sized(void *handle, uint16_t code, uint8_t type, const void *data, uint32_t length,
                 const char *function) {
    if (length > UINT32_MAX - kLengthSize) {
        return no_memory(function, __LINE__);
    }
    unsigned char *p = append_element(handle, code, type, kLengthSize + length, function);
    if (p == nullptr) {
        return 0;
    }
    store_be32(p, length);
    if (length != 0) {
        std::memcpy(p + kLengthSize, data, length);
    }
    return 1;
}

// ---- reading ---------------------------------------------------------------------------

uint32_t left(const Handle &h) { return h.size - h.position; }

// The type byte at the cursor, or -1 with BADMSG raised at the end.
int type_at_cursor(const Handle &h) {
    if (left(h) < kTypeSize) {
        malformed("element type missing");
        return -1;
    }
    return h.buffer[h.position];
}

// The value of a fixed-size element of the expected type at the cursor, its
// whole value inside the message; null with the error raised.
const unsigned char *fixed_value(const Handle &h, uint8_t expected) {
    const int found = type_at_cursor(h);
    if (found < 0) {
        return nullptr;
    }
    if (found != expected) {
        type_mismatch(found, expected);
        return nullptr;
    }
    if (left(h) - kTypeSize < kValueSize[expected]) {
        malformed(kCutShort[expected]);
        return nullptr;
    }
    return h.buffer + h.position + kTypeSize;
}

// A sized element (string or void) of the expected type at the cursor.
struct Sized {
    const unsigned char *data = nullptr;
    uint32_t length = 0;
};

bool sized_value(const Handle &h, uint8_t expected, Sized &out) {
    const int found = type_at_cursor(h);
    if (found < 0) {
        return false;
    }
    if (found != expected) {
        return type_mismatch(found, expected) != 0;
    }
    const uint32_t after_type = left(h) - kTypeSize;
    if (after_type < kLengthSize) {
        return malformed(kCutShort[expected]) != 0;
    }
    const unsigned char *p = h.buffer + h.position + kTypeSize;
    const uint32_t length = load_be32(p);
    if (length > after_type - kLengthSize) {
        return malformed(expected == SLM_TYPE_STRING ? "string longer than the message"
                                                     : "void longer than the message") != 0;
    }
    out.data = p + kLengthSize;
    out.length = length;
    return true;
}

// A string element at the cursor; a null string has data null.
bool string_value(const Handle &h, Sized &out) {
    if (!sized_value(h, SLM_TYPE_STRING, out)) {
        return false;
    }
    if (out.length == 0) {
        out.data = nullptr;
        return true;
    }
    if (std::memchr(out.data, 0, out.length) != out.data + out.length - 1) {
        return malformed("string not ended by its only NUL") != 0;
    }
    return true;
}

void step_over_fixed(Handle &h, uint8_t type) { h.position += kTypeSize + kValueSize[type]; }
void step_over_sized(Handle &h, const Sized &value) { h.position += kTypeSize + kLengthSize + value.length; }

// A code read where wanted was asked for: the cursor goes back to start and
// the read fails.
int refuse_code(Handle &h, uint32_t start, uint16_t found, uint16_t wanted) {
    h.position = start;
    char what[64];
    std::snprintf(what, sizeof what, "element code %u where %u was expected", static_cast<unsigned>(found),
                  static_cast<unsigned>(wanted));
    return malformed(what);
}

bool read_code(Handle &h, uint16_t &code) {
    if (left(h) < kCodeSize) {
        return malformed("element code missing") != 0;
    }
    code = load_be16(h.buffer + h.position);
    h.position += kCodeSize;
    return true;
}

bool read_int(Handle &h, int32_t &value) {
    const unsigned char *p = fixed_value(h, SLM_TYPE_INT);
    if (p == nullptr) {
        return false;
    }
    value = static_cast<int32_t>(load_be32(p));
    step_over_fixed(h, SLM_TYPE_INT);
    return true;
}

bool read_bool(Handle &h, int32_t &value) {
    const unsigned char *p = fixed_value(h, SLM_TYPE_BOOL);
    if (p == nullptr) {
        return false;
    }
    value = *p != 0 ? 1 : 0;  // as the writer: any non-zero byte is true
    step_over_fixed(h, SLM_TYPE_BOOL);
    return true;
}

bool read_short(Handle &h, int16_t &value) {
    const unsigned char *p = fixed_value(h, SLM_TYPE_SHORT);
    if (p == nullptr) {
        return false;
    }
    value = static_cast<int16_t>(load_be16(p));
    step_over_fixed(h, SLM_TYPE_SHORT);
    return true;
}

bool read_string(Handle &h, char *&text, const char *function) {
    Sized value;
    if (!string_value(h, value)) {
        return false;
    }
    char *copy = nullptr;
    if (value.data != nullptr) {
        copy = static_cast<char *>(std::malloc(value.length));
        if (copy == nullptr) {
            return no_memory(function, __LINE__) != 0;
        }
        std::memcpy(copy, value.data, value.length);
    }
    text = copy;
    step_over_sized(h, value);
    return true;
}

bool read_string_into(Handle &h, char *buffer, uint32_t size) {
    Sized value;
    if (!string_value(h, value)) {
        return false;
    }
    const uint32_t needed = value.data != nullptr ? value.length : 1;
    if (needed > size) {
        err_add_error(ERR_MSG_SMALLBUF, size, needed);
        return false;
    }
    if (value.data != nullptr) {
        std::memcpy(buffer, value.data, value.length);
    } else {
        buffer[0] = '\0';
    }
    step_over_sized(h, value);
    return true;
}

// The attachment entry behind the reference element at the cursor, and
// whether the element marks it binary; the cursor moves past the element.
const Attachment *read_reference(Handle &h) {
    const int found = type_at_cursor(h);
    if (found < 0) {
        return nullptr;
    }
    if (found != SLM_TYPE_TEXT_ATT && found != SLM_TYPE_BINARY_ATT) {
        type_mismatch(found, SLM_TYPE_TEXT_ATT);
        return nullptr;
    }
    if (left(h) - kTypeSize < kValueSize[found]) {
        malformed(kCutShort[found]);
        return nullptr;
    }
    const uint32_t number = load_be32(h.buffer + h.position + kTypeSize);
    if (number >= h.attachments.size()) {
        err_add_error(ERR_MSG_NOATT, static_cast<int>(number));
        return nullptr;
    }
    step_over_fixed(h, found);
    h.last_reference = static_cast<int32_t>(number);
    return h.attachments[number].get();
}

// An allocated copy of text into *out (when out is given).
bool copy_out(const std::string &text, char **out, const char *function) {
    if (out == nullptr) {
        return true;
    }
    auto *copy = static_cast<char *>(std::malloc(text.size() + 1));
    if (copy == nullptr) {
        return no_memory(function, __LINE__) != 0;
    }
    std::memcpy(copy, text.c_str(), text.size() + 1);
    *out = copy;
    return true;
}

// Reads a code that must equal wanted (else traces as function and fails),
// then the value with read; on any failure the cursor goes back to where the
// code began.
template <typename Read>
int read_by_code(Handle &h, uint16_t wanted, const char *function, Read read) {
    const uint32_t start = h.position;
    uint16_t code = 0;
    if (!read_code(h, code)) {
        return 0;
    }
    if (code != wanted) {
        debug::trace_bit(kTraceBit, "%s : got code <%d> instead of <%d>\n", function, static_cast<int>(code),
                         static_cast<int>(wanted));
        return refuse_code(h, start, code, wanted);
    }
    if (!read(h)) {
        h.position = start;
        return 0;
    }
    return 1;
}

// A public reader of one value: checks handle and output, then reads.
template <typename T>
int read_value(void *handle, T *out, const char *function, const char *out_name,
               bool (*read)(Handle &, T &)) {
    Handle *h = checked(handle, out, function, out_name);
    return h != nullptr && read(*h, *out) ? 1 : 0;
}

// The same after a code that must equal code.
template <typename T>
int read_value_by_code(void *handle, uint16_t code, T *out, const char *function,
                       bool (*read)(Handle &, T &)) {
    Handle *h = checked(handle, out, function, "value");
    if (h == nullptr) {
        return 0;
    }
    return read_by_code(*h, code, function, [out, read](Handle &r) { return read(r, *out); });
}

}  // namespace
}  // namespace vq::slm

using vq::raise::Report;
using vq::slm::Handle;

// ---- writers ---------------------------------------------------------------------------------

VQ_API int slm_set_int(void *handle, uint16_t code, int32_t value) {
    unsigned char *p = vq::slm::append_element(handle, code, SLM_TYPE_INT, 4, __func__);
    if (p == nullptr) {
        return 0;
    }
    vq::slm::store_be32(p, static_cast<uint32_t>(value));
    return 1;
}

VQ_API int slm_set_bool(void *handle, uint16_t code, int32_t value) {
    unsigned char *p = vq::slm::append_element(handle, code, SLM_TYPE_BOOL, 1, __func__);
    if (p == nullptr) {
        return 0;
    }
    *p = value != 0 ? 1 : 0;
    return 1;
}

VQ_API int slm_set_short(void *handle, uint16_t code, int16_t value) {
    unsigned char *p = vq::slm::append_element(handle, code, SLM_TYPE_SHORT, 2, __func__);
    if (p == nullptr) {
        return 0;
    }
    vq::slm::store_be16(p, static_cast<uint16_t>(value));
    return 1;
}

VQ_API int slm_set_string(void *handle, uint16_t code, const char *text) {
    if (text == nullptr) {
        return vq::slm::append_sized(handle, code, SLM_TYPE_STRING, nullptr, 0, __func__);
    }
    const size_t length = std::strlen(text) + 1;
    if (length > UINT32_MAX) {
        return vq::slm::no_memory(__func__, __LINE__);
    }
    return vq::slm::append_sized(handle, code, SLM_TYPE_STRING, text, static_cast<uint32_t>(length),
                                 __func__);
}

VQ_API int slm_set_void(void *handle, uint16_t code, const void *data, uint32_t length) {
    if (data == nullptr && length != 0) {
        // Checked first so that a bad handle is still named as such.
        if (vq::slm::checked(handle, __func__, "handle") == nullptr) {
            return 0;
        }
        return VQ_PARAMS(Report::add, "data");
    }
    return vq::slm::append_sized(handle, code, SLM_TYPE_VOID, data, length, __func__);
}

VQ_API int slm_insert_code(void *handle, uint16_t code) {
    Handle *h = vq::slm::checked(handle, __func__, "handle");
    if (h == nullptr) {
        return 0;
    }
    unsigned char *p = vq::slm::append(*h, vq::slm::kCodeSize, __func__);
    if (p == nullptr) {
        return 0;
    }
    vq::slm::store_be16(p, code);
    return 1;
}

VQ_API int slm_sign_message(void *handle) {
    Handle *h = vq::slm::checked(handle, __func__, "handle");
    if (h == nullptr) {
        return 0;
    }
    // Signing writes the signature slot: a wrapped body is copied first.
    if (!vq::slm::make_room(*h, 0, __func__)) {
        return 0;
    }
    updcrc(nullptr, 0);
    const uint32_t crc = updcrc(h->buffer + vq::slm::kSignatureSize, h->size - vq::slm::kSignatureSize);
    vq::slm::store_be32(h->buffer, crc);
    uint32_t net = 0;
    std::memcpy(&net, h->buffer, sizeof net);
    vq::debug::trace_bit(vq::slm::kTraceBit, "signed message of length %d with %X(net %X)\n",
                         static_cast<int>(h->size), crc, net);
    return 1;
}

// ---- readers ---------------------------------------------------------------------------------

VQ_API int slm_get_code(void *handle, uint16_t *code) {
    return vq::slm::read_value(handle, code, __func__, "item_code", vq::slm::read_code);
}

VQ_API int slm_get_int(void *handle, int32_t *value) {
    return vq::slm::read_value(handle, value, __func__, "value", vq::slm::read_int);
}

VQ_API int slm_get_bool(void *handle, int32_t *value) {
    return vq::slm::read_value(handle, value, __func__, "value", vq::slm::read_bool);
}

VQ_API int slm_get_short(void *handle, int16_t *value) {
    return vq::slm::read_value(handle, value, __func__, "value", vq::slm::read_short);
}

VQ_API int slm_get_string(void *handle, char **text) {
    Handle *h = vq::slm::checked(handle, text, __func__, "value");
    if (h == nullptr) {
        return 0;
    }
    return vq::slm::read_string(*h, *text, __func__) ? 1 : 0;
}

VQ_API int slm_get_string_noalloc(void *handle, char *buffer, uint32_t size) {
    Handle *h = vq::slm::checked(handle, buffer, __func__, "value");
    if (h == nullptr) {
        return 0;
    }
    return vq::slm::read_string_into(*h, buffer, size) ? 1 : 0;
}

VQ_API int slm_get_void(void *handle, void **data, uint32_t *length) {
    Handle *h = vq::slm::checked(handle, data, __func__, "value");
    if (h == nullptr) {
        return 0;
    }
    if (length == nullptr) {
        return VQ_PARAMS(Report::add, "length");
    }
    vq::slm::Sized value;
    if (!vq::slm::sized_value(*h, SLM_TYPE_VOID, value)) {
        return 0;
    }
    *data = value.length != 0 ? const_cast<unsigned char *>(value.data) : nullptr;
    *length = value.length;
    vq::slm::step_over_sized(*h, value);
    return 1;
}

VQ_API int slm_skip_element(void *handle) {
    Handle *h = vq::slm::checked(handle, __func__, "handle");
    if (h == nullptr) {
        return 0;
    }
    const int type = vq::slm::type_at_cursor(*h);
    if (type < 0) {
        return 0;
    }
    if (type >= vq::slm::kTypeCount) {
        vq::debug::trace_bit(vq::slm::kTraceBit, "unknown slm type %d\n", type);
        char what[32];
        std::snprintf(what, sizeof what, "unknown element type %d", type);
        return vq::slm::malformed(what);
    }
    const auto known = static_cast<uint8_t>(type);
    if (known == SLM_TYPE_STRING || known == SLM_TYPE_VOID) {
        // A string is stepped over by its length alone: what its bytes hold
        // matters only to the one who reads it.
        vq::slm::Sized value;
        if (!vq::slm::sized_value(*h, known, value)) {
            return 0;
        }
        vq::slm::step_over_sized(*h, value);
        return 1;
    }
    if (vq::slm::fixed_value(*h, known) == nullptr) {
        return 0;
    }
    vq::slm::step_over_fixed(*h, known);
    return 1;
}

VQ_API int slm_verify_type(void *handle, uint16_t code) {
    Handle *h = vq::slm::checked(handle, __func__, "handle");
    if (h == nullptr) {
        return 0;
    }
    const uint32_t start = h->position;
    uint16_t found = 0;
    if (!vq::slm::read_code(*h, found)) {
        return 0;
    }
    if (found != code) {
        vq::debug::trace_bit(vq::slm::kTraceBit,
                             "slm_verify_type : got code <%d> instead of requested <%d>\n",
                             static_cast<int>(found), static_cast<int>(code));
        return vq::slm::refuse_code(*h, start, found, code);
    }
    return 1;
}

VQ_API int slm_get_int_by_code(void *handle, uint16_t code, int32_t *value) {
    return vq::slm::read_value_by_code(handle, code, value, __func__, vq::slm::read_int);
}

VQ_API int slm_get_bool_by_code(void *handle, uint16_t code, int32_t *value) {
    return vq::slm::read_value_by_code(handle, code, value, __func__, vq::slm::read_bool);
}

VQ_API int slm_get_short_by_code(void *handle, uint16_t code, int16_t *value) {
    return vq::slm::read_value_by_code(handle, code, value, __func__, vq::slm::read_short);
}

VQ_API int slm_get_string_by_code(void *handle, uint16_t code, char **text) {
    Handle *h = vq::slm::checked(handle, text, __func__, "value");
    if (h == nullptr) {
        return 0;
    }
    const char *function = __func__;
    return vq::slm::read_by_code(
        *h, code, function, [text, function](Handle &r) { return vq::slm::read_string(r, *text, function); });
}

VQ_API int slm_get_string_noalloc_by_code(void *handle, uint16_t code, char *buffer, uint32_t size) {
    Handle *h = vq::slm::checked(handle, buffer, __func__, "value");
    if (h == nullptr) {
        return 0;
    }
    return vq::slm::read_by_code(
        *h, code, __func__, [buffer, size](Handle &r) { return vq::slm::read_string_into(r, buffer, size); });
}

VQ_API int slm_get_att(void *handle, uint16_t code, char **file_name, int32_t *binary) {
    Handle *h = vq::slm::checked(handle, file_name, __func__, "file_name");
    if (h == nullptr) {
        return 0;
    }
    if (binary == nullptr) {
        return VQ_PARAMS(Report::add, "binary");
    }
    const char *function = __func__;
    return vq::slm::read_by_code(*h, code, function, [file_name, binary, function](Handle &r) {
        const uint32_t start = r.position;
        const vq::slm::Attachment *entry = vq::slm::read_reference(r);
        if (entry == nullptr) {
            return false;
        }
        if (!vq::slm::copy_out(entry->file_name, file_name, function)) {
            r.position = start;
            return false;
        }
        *binary = entry->binary ? 1 : 0;
        return true;
    });
}

VQ_API int slm_get_att_and_status(void *handle, char **file_name, int32_t *mode, int32_t *status,
                                  char **error_text) {
    Handle *h = vq::slm::checked(handle, __func__, "handle");
    if (h == nullptr) {
        return 0;
    }
    const uint32_t start = h->position;
    const vq::slm::Attachment *entry = vq::slm::read_reference(*h);
    if (entry == nullptr) {
        return 0;
    }
    char *name = nullptr;
    if (!vq::slm::copy_out(entry->file_name, file_name != nullptr ? &name : nullptr, __func__)) {
        h->position = start;
        return 0;
    }
    char *why = nullptr;
    if (!entry->written &&
        !vq::slm::copy_out(entry->error_text, error_text != nullptr ? &why : nullptr, __func__)) {
        std::free(name);
        h->position = start;
        return 0;
    }
    if (file_name != nullptr) {
        *file_name = name;
    }
    if (mode != nullptr) {
        *mode = entry->binary ? 1 : 0;
    }
    if (status != nullptr) {
        *status = entry->written ? 1 : 0;
    }
    if (error_text != nullptr) {
        *error_text = why;
    }
    return 1;
}
