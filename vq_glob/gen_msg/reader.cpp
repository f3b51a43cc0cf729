// General messages, reading: a message taken apart into the parameters of
// the thread's parse handle, and the getters that look them up.
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

#include "gen_msg/gm_state.h"
#include "general_api/param_store.h"
#include "vq_glob/err.h"

namespace vq::gm {

void release_parse_handle(GmThreadState &st) {
    if (st.parse_handle != kNoHandle) {
        api_free_handle(st.parse_handle);
        st.parse_handle = kNoHandle;
    }
}

namespace {

// The getters: a lookup of the parse handle under the code's key. No parse
// handle is a plain miss, as a missing key is.
template <typename T>
int get_param(int32_t code, T *out, int (*getter)(int32_t, int32_t, T *)) {
    GmThreadState *st = state();
    if (st == nullptr || st->parse_handle == kNoHandle || out == nullptr) {
        return 0;
    }
    return getter(st->parse_handle, key_of(*st, code), out);
}

// The message being taken apart and where the reader stands in it.
struct Reader {
    const unsigned char *message;
    uint32_t length;
    api::ParamStore *store;  // the parse handle's
    size_t *cursor;          // the thread's parameter iterator when it is on the parse handle
    bool on;
    // The struct whose members are being read: its code and how many of the
    // elements its head announced are still to come (0: none is open). The
    // writer counts every element added while a struct is open, a stream's
    // head and members included, so the reader counts them all the same way.
    uint8_t struct_code = 0;
    uint16_t struct_remaining = 0;

    // The key an element of code is filed under; inside a struct the element
    // is one of its members.
    [[nodiscard]] int32_t member_key(uint8_t code) {
        if (struct_remaining == 0) {
            return code;
        }
        pass_members(1);
        return (static_cast<int32_t>(struct_code) << 8) | code;
    }

    // Elements read past inside the open struct; more than it announced
    // ends it.
    void pass_members(uint32_t elements) {
        struct_remaining = elements < struct_remaining ? static_cast<uint16_t>(struct_remaining - elements) : 0;
    }

    [[nodiscard]] uint32_t left(uint32_t p) const { return p < length ? length - p : 0; }

    // A length that runs past the end: the element is cut off.
    [[nodiscard]] bool truncated(uint32_t p, uint32_t need) const {
        if (need <= left(p)) {
            return false;
        }
        GM_TRACE(on, "gm_disassemble - element at offset %lu needs %lu bytes, the message has %lu\n",
                 static_cast<unsigned long>(p), static_cast<unsigned long>(need),
                 static_cast<unsigned long>(left(p)));
        return true;
    }
};

// Files one value as the newest parameter of key, copied into the parse
// handle's store; running out of memory is reported as a failed
// api_set_param would.
bool file_value(Reader &r, int32_t key, int32_t type, const void *value, int32_t size) {
    if (r.store->add(key, type, value, size, r.cursor)) {
        return true;
    }
    api::raise_param_memory();
    return false;
}

// Width of one member value in a stream's array (strings: their length).
uint32_t member_width(uint8_t type) { return type == kChar ? 1 : (type == kShort ? 2 : 4); }

// Takes apart the stream whose head has the code and announces count; p is
// the head's data byte. Files the members as one void parameter under the
// plain code, counts them as members of an open struct, and sets *skip to
// the bytes from the data byte on. A stream whose array would be empty files
// nothing and leaves *skip at 0, so the caller reads the data byte as the
// next element's code: a quirk of the format that readers on the other side
// share, kept as it is.
bool disassemble_stream(Reader &r, uint32_t p, uint8_t code, uint16_t count, uint32_t *skip) {
    if (r.truncated(p, 1)) {
        return false;
    }
    const uint8_t member = r.message[p];
    uint32_t size = 0;
    switch (member) {
    case kChar:
    case kStr:
        size = count;
        break;
    case kShort:
        size = 2u * count;
        break;
    case kInt:
    case kLong:
        size = 4u * count;
        break;
    default:
        return false;
    }
    if (size == 0) {
        GM_TRACE(r.on, "gm_disassemble_stream() - no elements in stream\n");
        return true;
    }
    GM_TRACE(r.on, "gm_disassemble_stream() - going to allocate %d bytes\n", static_cast<int>(size));
    std::unique_ptr<unsigned char[]> array(new (std::nothrow) unsigned char[size]);
    if (!array) {
        GM_TRACE(r.on, "gm_diassemble_stream() - memory allocation error\n");
        return false;
    }
    uint32_t q = p + 1;
    uint32_t taken = 0;
    uint32_t filled = 0;
    uint32_t elements = 0;
    while (taken < count && q < r.length) {
        if (r.truncated(q, 4)) {
            return false;
        }
        if (r.message[q] != code) {
            GM_TRACE(r.on, "Unexpected message %d in stream\n", static_cast<int>(r.message[q]));
            return false;
        }
        const uint16_t length = get16(r.message + q + 1);
        const uint8_t type = r.message[q + 3];
        if (type != member) {
            GM_TRACE(r.on, "Unexpected message type %d in stream\n", static_cast<int>(type));
            return false;
        }
        GM_TRACE(r.on, "gm_disassemble_stream - code is %d , type is %d , size is %d\n",
                 static_cast<int>(code), static_cast<int>(type), static_cast<int>(length));
        q += 4;
        const uint32_t width = member == kStr ? length : member_width(member);
        // The value must lie inside its element, and the array holds only
        // what the head announced.
        if (r.truncated(q, length) || length < width || width > size - filled) {
            return false;
        }
        const unsigned char *value = r.message + q;
        if (member == kShort) {
            const uint16_t v = get16(value);
            std::memcpy(array.get() + filled, &v, sizeof v);
        } else if (member == kInt || member == kLong) {
            const uint32_t v = get32(value);
            std::memcpy(array.get() + filled, &v, sizeof v);
        } else if (width != 0) {
            std::memcpy(array.get() + filled, value, width);
        }
        filled += width;
        taken += member == kStr ? length : 1;
        q += length;
        ++elements;
    }
    if (taken < count) {
        GM_TRACE(r.on, "gm_disassemble_stream - the message ends after %d of %d\n", static_cast<int>(taken),
                 static_cast<int>(count));
        return false;
    }
    const bool filed = file_value(r, code, API_PARAM_VOID, array.get(), static_cast<int32_t>(size));
    GM_TRACE(r.on, "exiting gm_disassemble_stream, freeing memory\n");
    r.pass_members(elements);
    *skip = q - p;
    return filed;
}

// Files one element whose data starts at p; *skip receives how far to move on.
bool file_element(Reader &r, uint32_t p, uint8_t code, int32_t key, uint8_t type, uint16_t length,
                  uint32_t *skip) {
    *skip = length;
    // The scalar types need their whole value inside the element.
    if (type <= kLong && length < member_width(type)) {
        GM_TRACE(r.on, "gm_disassemble - element of type %d holds %d bytes\n", static_cast<int>(type),
                 static_cast<int>(length));
        return false;
    }
    if (type <= kVoid && r.truncated(p, length)) {
        return false;
    }
    const unsigned char *data = r.message + p;
    switch (type) {
    case kChar: {
        const auto v = static_cast<char>(data[0]);
        GM_TRACE(r.on, "param is char, value is %d\n", static_cast<int>(v));
        return file_value(r, key, API_PARAM_CHAR, &v, sizeof v);
    }
    case kShort: {
        const auto v = static_cast<int16_t>(get16(data));
        GM_TRACE(r.on, "param is short, value is %d\n", static_cast<int>(v));
        return file_value(r, key, API_PARAM_SHORT, &v, sizeof v);
    }
    case kInt: {
        const auto v = static_cast<int32_t>(get32(data));
        GM_TRACE(r.on, "param is int, value is %d\n", static_cast<int>(v));
        return file_value(r, key, API_PARAM_INT, &v, sizeof v);
    }
    case kLong: {
        const auto v = static_cast<int32_t>(get32(data));
        GM_TRACE(r.on, "param is long, value is %d\n", static_cast<int>(v));
        return file_value(r, key, API_PARAM_LONG, &v, sizeof v);
    }
    case kStr: {
        if (length == 0) {
            GM_TRACE(r.on, "param is string, value is NULL\n");
            return file_value(r, key, API_PARAM_STR, nullptr, 0);
        }
        // The string is filed from the message itself, up to and with its
        // NUL, which must be there.
        const void *end = std::memchr(data, 0, length);
        if (end == nullptr) {
            GM_TRACE(r.on, "gm_disassemble - string of %d bytes without its terminator\n",
                     static_cast<int>(length));
            return false;
        }
        GM_TRACE(r.on, "param is string, value is %s\n", reinterpret_cast<const char *>(data));
        const auto size = static_cast<int32_t>(static_cast<const unsigned char *>(end) - data + 1);
        return file_value(r, key, API_PARAM_STR, data, size);
    }
    case kVoid:
        GM_TRACE(r.on, "param is void\n");
        return file_value(r, key, API_PARAM_VOID, length != 0 ? data : nullptr, length);
    case kStream:
        GM_TRACE(r.on, "param is stream, going to disassemble stream\n");
        *skip = 0;
        return disassemble_stream(r, p, code, length, skip);
    case kStruct:
        GM_TRACE(r.on, "param is a structure which has %d fields \n", static_cast<int>(length));
        if (r.truncated(p, 1)) {
            return false;
        }
        // A head that announces no members opens nothing.
        r.struct_code = code;
        r.struct_remaining = length;
        GM_TRACE(r.on, "gm_init_struct_disassembly() - struct code set to %d\n", static_cast<int>(code));
        *skip = 1;
        return true;
    default:
        return false;
    }
}

// The parse handle's store, emptied for a new message: the previous
// message's handle when it is still there (its store keeps its memory), else
// a new one. Null when no handle can be had.
api::ParamStore *fresh_parse_store(GmThreadState &st, size_t **cursor) {
    if (st.parse_handle != kNoHandle) {
        if (api::ParamStore *store = api::store_of_handle(st.parse_handle, cursor)) {
            store->empty(*cursor);
            return store;
        }
        release_parse_handle(st);
    }
    int32_t handle = kNoHandle;
    if (api_allocate_handle(&handle, kPlainHandle) != 1 || handle == kNoHandle) {
        return nullptr;
    }
    st.parse_handle = handle;
    return api::store_of_handle(handle, cursor);
}

// A message is filed as one run of the store: its index is built once, when
// the message is taken apart or has failed.
class StoreRun {
public:
    explicit StoreRun(api::ParamStore &store) : store_(store) { store_.begin_run(); }
    ~StoreRun() { store_.end_run(); }
    StoreRun(const StoreRun &) = delete;
    StoreRun &operator=(const StoreRun &) = delete;

private:
    api::ParamStore &store_;
};

}  // namespace
}  // namespace vq::gm

using vq::gm::GmThreadState;
using vq::gm::state;

extern "C" {

// ---- taking apart -------------------------------------------------------------------------

VQ_API int gm_disassemble_message(const unsigned char *message, uint32_t length) {
    GmThreadState *st = state();
    if (st == nullptr || (message == nullptr && length != 0)) {
        return 0;
    }
    st->reading_struct = false;
    size_t *cursor = nullptr;
    vq::api::ParamStore *store = vq::gm::fresh_parse_store(*st, &cursor);
    if (store == nullptr) {
        return 0;
    }
    const vq::gm::StoreRun run(*store);
    vq::gm::Reader r{message, length, store, cursor, vq::gm::tracing()};
    uint32_t p = 0;
    while (p < length) {
        const uint8_t code = message[p];
        p += 1;
        const int32_t key = r.member_key(code);
        if (r.truncated(p, 3)) {
            return 0;
        }
        const uint16_t element_length = vq::gm::get16(message + p);
        p += 2;
        const uint8_t type = message[p];
        p += 1;
        GM_TRACE(r.on, "gm_disassemble - code is %d , type is %d , size is %d\n", static_cast<int>(code),
                 static_cast<int>(type), static_cast<int>(element_length));
        uint32_t skip = 0;
        if (!vq::gm::file_element(r, p, code, key, type, element_length, &skip)) {
            return 0;
        }
        p += skip;
    }
    GM_TRACE(r.on, "exiting successfully from gm_disassemble\n");
    return 1;
}

VQ_API int gm_get_char_param(int32_t code, char *out) {
    return vq::gm::get_param(code, out, api_get_char_param);
}

VQ_API int gm_get_short_param(int32_t code, int16_t *out) {
    return vq::gm::get_param(code, out, api_get_short_param);
}

VQ_API int gm_get_int_param(int32_t code, int32_t *out) {
    return vq::gm::get_param(code, out, api_get_int_param);
}

VQ_API int gm_get_long_param(int32_t code, int32_t *out) {
    return vq::gm::get_param(code, out, api_get_long_param);
}

VQ_API int gm_get_str_param(int32_t code, char **out) {
    return vq::gm::get_param(code, out, api_get_str_param);
}

VQ_API int gm_get_void_param(int32_t code, void **out) {
    return vq::gm::get_param(code, out, api_get_void_param);
}

VQ_API int gm_get_date_param(int32_t code, tvtime *out) {
    return out != nullptr ? get_tvtime_from_message(code, out) : 0;
}

VQ_API int gm_get_old_date_param(int32_t code, tvtime_old *out) {
    return out != nullptr ? get_tvtime_old_from_message(code, out) : 0;
}

VQ_API void gm_start_struct(int32_t code) {
    if (GmThreadState *st = state()) {
        st->reading_struct = true;
        st->struct_code = static_cast<uint8_t>(code);
    }
}

VQ_API void gm_stop_struct(void) {
    if (GmThreadState *st = state()) {
        st->reading_struct = false;
    }
}

VQ_API void gm_clean(void) {
    if (GmThreadState *st = state()) {
        vq::gm::release_parse_handle(*st);
    }
}

}  // extern "C"
