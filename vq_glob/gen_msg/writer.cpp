// General messages, writing: the thread's message under construction, its
// bounds, streams and structs, and the process-wide user routines.
#include <atomic>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "gen_msg/gm_state.h"
#include "internal/small_copy.h"
#include "vq_glob/err.h"

namespace vq::gm {

constinit thread_local GmThreadState *t_writer GM_FAST_TLS = nullptr;

GmThreadState::~GmThreadState() {
    if (t_writer == this) {
        t_writer = nullptr;
    }
}

namespace {

// The user routines are the same for every thread. Each is one atomic
// pointer, so a reader never sees half of one; gm_init calls racing each
// other leave the routines of whichever stored last.
using BufferFn = void *(*)();
using InitFn = int (*)(void *, int32_t, int32_t, int32_t);
using SendFn = int (*)(void *, int32_t);
std::atomic<BufferFn> g_buffer_fn{nullptr};
std::atomic<InitFn> g_init_fn{nullptr};
std::atomic<SendFn> g_send_fn{nullptr};

// ---- writing --------------------------------------------------------------------------

// An element's code, length and type, stored at once.
// On a little-endian host the four bytes are put together as one word, the
// length swapped into place.
void put_head(unsigned char *out, int32_t code, ElementType type, uint16_t length) {
    if constexpr (std::endian::native == std::endian::little) {
        const auto swapped = static_cast<uint16_t>(length >> 8 | length << 8);
        const uint32_t head = static_cast<uint32_t>(static_cast<uint8_t>(code)) |
                              static_cast<uint32_t>(swapped) << 8 | static_cast<uint32_t>(type) << 24;
        std::memcpy(out, &head, sizeof head);
    } else {
        const unsigned char head[4] = {static_cast<unsigned char>(code),
                                       static_cast<unsigned char>(length >> 8),
                                       static_cast<unsigned char>(length), static_cast<unsigned char>(type)};
        std::memcpy(out, head, sizeof head);
    }
}

void set_capacity(GmThreadState &st, uint32_t capacity) {
    st.capacity = capacity;
    st.limit = st.buffer != nullptr && !st.overflowed ? capacity : 0;
    st.plain_limit = st.tracing ? 0 : st.limit;
}

void start_message(GmThreadState &st, unsigned char *buffer, uint32_t position, uint32_t capacity) {
    t_writer = &st;
    st.tracing = tracing();
    st.buffer = buffer;
    st.position = position;
    st.overflowed = false;
    st.closed = false;
    st.close_result = 0;
    st.stream_open = false;
    st.stream_count = 0;
    st.struct_open = false;
    st.struct_count = 0;
    set_capacity(st, capacity);
}

// Whether need more bytes fit. The first refusal of a message marks it and
// says so on the error stack; the message is dead from then on.
bool refuse(GmThreadState &st, int32_t code, uint32_t need);

inline bool room_for(GmThreadState &st, int32_t code, uint32_t need) {
    return static_cast<uint64_t>(st.position) + need <= st.limit || refuse(st, code, need);
}

// The slow side of room_for: the add does not fit, or the message has no
// buffer or is dead already.
bool refuse(GmThreadState &st, int32_t code, uint32_t need) {
    if (st.overflowed) {
        return false;
    }
    st.overflowed = true;
    st.limit = 0;
    st.plain_limit = 0;
    char what[128];
    if (st.buffer == nullptr) {
        std::snprintf(what, sizeof what, "general message without a buffer, element code %d",
                      static_cast<int>(code));
    } else {
        std::snprintf(what, sizeof what, "general message of %lu bytes, element code %d needs %lu at %lu",
                      static_cast<unsigned long>(st.capacity), static_cast<int>(code),
                      static_cast<unsigned long>(need), static_cast<unsigned long>(st.position));
    }
    err_add_error(ERR_GEN_ERRWRITEBUF, what);
    return false;
}

// The single routine behind every add, stream head and struct head. number
// carries the value of types 0-3, 6 and 7; bytes and size the data of types
// 4 and 5 (a null pointer gives no data, whatever the size). The element is
// put together in locals and the position moved once: the buffer's bytes
// could alias the state, so every store through it would otherwise force
// the position back to memory.
void add_element(GmThreadState &st, int32_t code, ElementType type, uint32_t number, const void *bytes,
                 uint32_t size) {
    const bool on = st.tracing;
    uint32_t data_size = 0;
    switch (type) {
    case kChar:
    case kStream:
    case kStruct:
        data_size = 1;
        break;
    case kShort:
        data_size = 2;
        break;
    case kInt:
    case kLong:
        data_size = 4;
        break;
    case kStr:
    case kVoid:
        data_size = bytes != nullptr ? size : 0;
        break;
    }
    GM_TRACE(on, "gm_add_to_message() - code is %d , type is %d , size is %d\n", static_cast<int>(code),
             static_cast<int>(type), static_cast<int>(data_size));
    // The length field is 16 bits: longer data wraps, and only what the
    // field announces is copied.
    const auto length = static_cast<uint16_t>(data_size);
    if (!room_for(st, code, 4u + length)) {
        return;
    }
    const bool has_bytes = type == kStr || type == kVoid;
    if (st.stream_open && !has_bytes) {
        ++st.stream_count;
        GM_TRACE(
            on, "gm_add_to_message() - adding an element to current stream. total number of elements is %d\n",
            static_cast<int>(st.stream_count));
    }
    if (st.struct_open) {
        ++st.struct_count;
        GM_TRACE(
            on, "gm_add_to_message() - adding an element to current struct. total number of elements is %d\n",
            static_cast<int>(st.struct_count));
    }
    const uint32_t at = st.position;
    if (type == kStream) {
        st.stream_head = at + 1;
    } else if (type == kStruct) {
        st.struct_head = at + 1;
    }
    if (st.stream_open && has_bytes) {
        st.stream_count = static_cast<uint16_t>(st.stream_count + length);
        GM_TRACE(on,
                 "gm_add_to_message() - adding an element to current stream. current bytes for this stream "
                 "is %d\n",
                 static_cast<int>(st.stream_count));
    }
    st.position = at + 4u + length;
    unsigned char *out = st.buffer + at;
    put_head(out, code, type, length);
    if (length == 0) {
        return;
    }
    switch (type) {
    case kShort:
        put16(out + 4, static_cast<uint16_t>(number));
        break;
    case kInt:
    case kLong:
        put32(out + 4, number);
        break;
    case kStr:
    case kVoid:
        std::memcpy(out + 4, bytes, length);
        break;
    default:
        out[4] = static_cast<unsigned char>(number);
        break;
    }
}

// The adds below write an element on their way when it fits under the plain
// limit, and leave everything else (no record yet, traces, no room) to the
// general routine, out of the way so that the common case is a handful of
// instructions. They count nothing: a stream or struct counts what it holds
// when it closes (count_members).
[[gnu::noinline]] void add_in_general(int32_t code, ElementType type, uint32_t number, const void *bytes,
                                      uint32_t size) {
    if (GmThreadState *st = writer()) {
        add_element(*st, code, type, number, bytes, size);
    }
}

// What the stream or struct whose head's length field is at head holds: the
// elements after the head up to the message's end, each counted once or, in
// a stream (bytes_by_length), a string or void by its length. The elements
// walked are the writer's own, all written since the head; a stream's or
// struct's head is always 5 bytes long, its length field holding a count
// once it is closed.
uint16_t count_members(const GmThreadState &st, uint32_t head, bool bytes_by_length) {
    uint16_t count = 0;
    for (uint32_t p = head + 4; p < st.position;) {
        const unsigned char *element = st.buffer + p;
        const uint8_t type = element[3];
        const uint32_t length = type == kStream || type == kStruct ? 1 : get16(element + 1);
        const bool by_length = bytes_by_length && (type == kStr || type == kVoid);
        count = static_cast<uint16_t>(count + (by_length ? length : 1));
        p += 4 + length;
    }
    return count;
}

// An element of kWidth bytes holding number, big-endian.
template <ElementType kType, uint32_t kWidth>
inline void add_number(int32_t code, uint32_t number) {
    if (GmThreadState *st = t_writer) {
        const uint32_t at = st->position;
        if (static_cast<uint64_t>(at) + 4u + kWidth <= st->plain_limit) {
            unsigned char element[4 + kWidth] = {static_cast<unsigned char>(code), 0, kWidth, kType};
            for (uint32_t i = 0; i < kWidth; ++i) {
                element[4 + i] = static_cast<unsigned char>(number >> (8 * (kWidth - 1 - i)));
            }
            unsigned char *out = st->buffer + at;
            st->position = at + sizeof element;
            std::memcpy(out, element, sizeof element);
            return;
        }
    }
    add_in_general(code, kType, number, nullptr, 0);
}

// A str or void element of size bytes (none for null bytes).
inline void add_bytes(int32_t code, ElementType type, const void *bytes, uint32_t size) {
    if (GmThreadState *st = t_writer) {
        const auto length = static_cast<uint16_t>(bytes != nullptr ? size : 0);
        const uint32_t at = st->position;
        if (static_cast<uint64_t>(at) + 4u + length <= st->plain_limit) {
            unsigned char *out = st->buffer + at;
            st->position = at + 4u + length;
            put_head(out, code, type, length);
            internal::small_copy(out + 4, bytes, length);
            return;
        }
    }
    add_in_general(code, type, 0, bytes, size);
}

}  // namespace
}  // namespace vq::gm

namespace vq::frame {
constinit const Module kMessagesModule =
    ModuleFrame<gm::GmThreadState, kSlotMessages, OnDemand::yes>::module("gm");
}  // namespace vq::frame

using vq::gm::GmThreadState;
using vq::gm::state;

extern "C" {

// ---- setting up -------------------------------------------------------------------------

VQ_API void gm_init(void *(*buffer_fn)(), int (*init_fn)(void *buf, int32_t code, int32_t type, int32_t zero),
                    int (*send_fn)(void *buf, int32_t length), int32_t header_size) {
    vq::gm::g_buffer_fn.store(buffer_fn, std::memory_order_release);
    vq::gm::g_init_fn.store(init_fn, std::memory_order_release);
    vq::gm::g_send_fn.store(send_fn, std::memory_order_release);
    GmThreadState *st = state();
    if (st == nullptr) {
        return;
    }
    st->header_size = static_cast<uint32_t>(header_size);
    new_dbg_str(vq::gm::kTraceChannel, "gm_set_header_size() - header size set to %d\n",
                static_cast<int>(header_size));
}

VQ_API void gm_init_message(void *buffer) {
    if (GmThreadState *st = state()) {
        vq::gm::start_message(*st, static_cast<unsigned char *>(buffer), 0, GM_NO_BOUND);
    }
}

VQ_API void gm_init_message_ex(void *buffer, uint32_t capacity) {
    if (GmThreadState *st = state()) {
        vq::gm::start_message(*st, static_cast<unsigned char *>(buffer), 0, capacity);
    }
}

VQ_API int gm_init_message_buf(int32_t code, int32_t type) {
    GmThreadState *st = state();
    if (st == nullptr) {
        return 0;
    }
    const bool on = vq::gm::tracing();
    GM_TRACE(on, "init_message_buf() - message code is %d , message type is %d\n", static_cast<int>(code),
             static_cast<int>(type));
    auto buffer_fn = vq::gm::g_buffer_fn.load(std::memory_order_acquire);
    void *buffer = buffer_fn != nullptr ? buffer_fn() : nullptr;
    if (buffer == nullptr) {
        GM_TRACE(on, "gm_get_user_buffer() - No buffer space available. aborting...\n");
        return 0;
    }
    if (auto init_fn = vq::gm::g_init_fn.load(std::memory_order_acquire)) {
        init_fn(buffer, code, type, 0);
    }
    vq::gm::start_message(*st, static_cast<unsigned char *>(buffer), st->header_size, GM_NO_BOUND);
    return 1;
}

VQ_API void gm_set_message_capacity(uint32_t capacity) {
    if (GmThreadState *st = vq::gm::writer()) {
        vq::gm::set_capacity(*st, capacity);
    }
}

VQ_API int gm_message_overflowed(void) {
    GmThreadState *st = vq::gm::writer();
    return st != nullptr && st->overflowed ? 1 : 0;
}

// ---- adding -------------------------------------------------------------------------------

VQ_API void gm_add_char_to_message(int32_t code, char v) {
    vq::gm::add_number<vq::gm::kChar, 1>(code, static_cast<unsigned char>(v));
}

VQ_API void gm_add_short_to_message(int32_t code, int16_t v) {
    vq::gm::add_number<vq::gm::kShort, 2>(code, static_cast<uint16_t>(v));
}

VQ_API void gm_add_int_to_message(int32_t code, int32_t v) {
    vq::gm::add_number<vq::gm::kInt, 4>(code, static_cast<uint32_t>(v));
}

VQ_API void gm_add_long_to_message(int32_t code, int32_t v) {
    vq::gm::add_number<vq::gm::kLong, 4>(code, static_cast<uint32_t>(v));
}

VQ_API void gm_add_str_to_message(int32_t code, const char *s) {
    const auto size = s != nullptr ? static_cast<uint32_t>(std::strlen(s) + 1) : 0u;
    vq::gm::add_bytes(code, vq::gm::kStr, s, size);
}

VQ_API void gm_add_void_to_message(int32_t code, const void *data, uint16_t size) {
    vq::gm::add_bytes(code, vq::gm::kVoid, data, size);
}

VQ_API void gm_add_date_to_message(int32_t code, const tvtime *t) {
    if (t != nullptr) {
        add_tvtime_to_message(code, t);
    }
}

VQ_API void gm_add_old_date_to_message(int32_t code, const tvtime_old *t) {
    if (t != nullptr) {
        add_tvtime_old_to_message(code, t);
    }
}

// The head is added with the stream already open, so it counts itself; the
// close takes it off again.
VQ_API void gm_init_message_stream(int32_t code, int32_t member_type) {
    GmThreadState *st = vq::gm::writer();
    if (st == nullptr) {
        return;
    }
    st->stream_count = 0;
    st->stream_head = 0;
    st->stream_open = true;
    new_dbg_str(vq::gm::kTraceChannel, "init_message_stream() - starting stream with code %d , type is %d\n",
                static_cast<int>(code), static_cast<int>(member_type));
    vq::gm::add_element(*st, code, vq::gm::kStream, static_cast<uint8_t>(member_type), nullptr, 0);
}

VQ_API void gm_close_stream(void) {
    GmThreadState *st = vq::gm::writer();
    if (st == nullptr || !st->stream_open) {
        return;
    }
    st->stream_count = st->stream_head != 0 ? vq::gm::count_members(*st, st->stream_head, true) : 0;
    new_dbg_str(vq::gm::kTraceChannel, "gm_close_stream() - final number of elements is %d\n",
                static_cast<int>(st->stream_count));
    st->stream_open = false;
    if (!st->overflowed) {
        vq::gm::put16(st->buffer + st->stream_head, st->stream_count);
    }
}

VQ_API void gm_init_struct(int32_t code, int32_t value) {
    GmThreadState *st = vq::gm::writer();
    if (st == nullptr) {
        return;
    }
    st->struct_count = 0;
    st->struct_head = 0;
    st->struct_open = true;
    new_dbg_str(vq::gm::kTraceChannel, "gm_init_struct() - struct of param with code %d\n",
                static_cast<int>(code));
    vq::gm::add_element(*st, code, vq::gm::kStruct, static_cast<uint8_t>(value), nullptr, 0);
}

VQ_API void gm_close_struct(void) {
    GmThreadState *st = vq::gm::writer();
    if (st == nullptr || !st->struct_open) {
        return;
    }
    st->struct_count = st->struct_head != 0 ? vq::gm::count_members(*st, st->struct_head, false) : 0;
    new_dbg_str(vq::gm::kTraceChannel, "gm_close_struct() - final number of elements is %d\n",
                static_cast<int>(st->struct_count));
    st->struct_open = false;
    if (!st->overflowed) {
        vq::gm::put16(st->buffer + st->struct_head, st->struct_count);
    }
}

// ---- ending ---------------------------------------------------------------------------------

// The closed flag is set before the send routine runs, so a routine that
// closes the message itself cannot send it twice.
VQ_API int gm_close_message(void) {
    GmThreadState *st = vq::gm::writer();
    if (st == nullptr) {
        return 0;
    }
    if (st->closed) {
        return st->close_result;
    }
    new_dbg_str(vq::gm::kTraceChannel, "gm_close_message() - total message len is %d\n",
                static_cast<int>(st->position));
    st->closed = true;
    int result = 0;
    auto send_fn = vq::gm::g_send_fn.load(std::memory_order_acquire);
    if (!st->overflowed && send_fn != nullptr) {
        result = send_fn(st->buffer, static_cast<int32_t>(st->position));
    }
    st->close_result = result;
    return result;
}

VQ_API uint32_t gm_end_message(void) {
    GmThreadState *st = vq::gm::writer();
    if (st == nullptr) {
        return 0;
    }
    new_dbg_str(vq::gm::kTraceChannel, "gm_close_message() - total message len is %d\n",
                static_cast<int>(st->position));
    st->closed = true;
    st->close_result = st->overflowed ? 0 : 1;
    return st->overflowed ? 0 : st->position;
}

VQ_API void *gm_get_message_buf(void) {
    GmThreadState *st = vq::gm::writer();
    return st != nullptr ? st->buffer : nullptr;
}

VQ_API uint32_t gm_get_message_len(void) {
    GmThreadState *st = vq::gm::writer();
    return st != nullptr ? st->position : 0;
}

}  // extern "C"
