// General messages: the thread's message under construction and the one taken
// apart, the process-wide user routines, and the error stack's transfer.
//
// The writer appends elements (code byte, 16-bit big-endian length, type
// byte, data) at the thread's position. The reader turns each element into a
// typed parameter of a process handle (api.h), which the getters then look up
// by code; a stream arrives as one void parameter holding its members in host
// order. Everything the reader takes comes from another machine, so every
// length is checked against the bytes really given before it is used.
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "internal/frame.h"
#include "vq_glob/api.h"
#include "vq_glob/dbg.h"
#include "vq_glob/err.h"
#include "vq_glob/gm.h"

namespace vq::gm {
namespace {

constexpr int32_t kTraceChannel = DBG_CHANNEL_GMS;

// Element types on the wire.
enum ElementType : uint8_t {
    kChar = GM_TYPE_CHAR,
    kShort = GM_TYPE_SHORT,
    kInt = GM_TYPE_INT,
    kLong = GM_TYPE_LONG,
    kStr = GM_TYPE_STR,
    kVoid = GM_TYPE_VOID,
    kStream = GM_TYPE_STREAM,
    kStruct = GM_TYPE_STRUCT,
};

constexpr int32_t kNoHandle = -1;
constexpr int32_t kPlainHandle = 0;  // a handle used as a parameter store only

// The elements of a packed error stack.
constexpr int32_t kStackTag = 200;
constexpr int32_t kStackDepth = 201;
constexpr int32_t kStackCodes = 202;
constexpr int32_t kStackTexts = 203;

// The thread's message state. The open stream's and struct's heads are kept
// as offsets of their length fields in the buffer.
struct GmThreadState {
    uint32_t header_size = 0;
    unsigned char *buffer = nullptr;
    uint32_t position = 0;
    int32_t parse_handle = kNoHandle;
    uint16_t stream_count = 0;
    bool stream_open = false;
    uint32_t stream_head = 0;
    bool closed = false;
    int close_result = 0;
    uint16_t struct_count = 0;
    bool struct_open = false;
    uint32_t struct_head = 0;
    // The getters' struct (gm_start_struct): keys become struct_code << 8 |
    // code. Taking a message apart turns it off and never turns it on: the
    // reader follows the message's structs on its own.
    bool reading_struct = false;
    uint8_t struct_code = 0;
    // The bound of the message (GM_NO_BOUND: none) and whether it was hit.
    uint32_t capacity = GM_NO_BOUND;
    bool overflowed = false;
    // Where an add must end for its bytes to be written: the capacity while
    // the message can take more, 0 without a buffer or once it overflowed, so
    // every add decides with one comparison (room_for).
    uint64_t limit = 0;
    // Whether the message's adds trace: asked of the debug module when the
    // message starts, not again for each element.
    bool tracing = false;

    GmThreadState() = default;
    GmThreadState(const GmThreadState &) = delete;
    GmThreadState &operator=(const GmThreadState &) = delete;
    ~GmThreadState();
};

// The parse handle is not freed with the record: the process-handle module,
// cleaned up after this one, releases the thread's whole handle table.
using Frame = frame::ModuleFrame<GmThreadState, frame::kSlotMessages, frame::OnDemand::yes>;

GmThreadState *state() { return Frame::get(); }

// The record of the thread's message under construction, found once when the
// message starts rather than through the frame on every add. The record's
// destructor (run on its own thread by the frame's thread clean-up) forgets it.
// Where the platform allows, the pointer sits in the library's static TLS
// block, reached without a call.
#if defined(__ELF__)
#define GM_FAST_TLS __attribute__((tls_model("initial-exec")))
#else
#define GM_FAST_TLS
#endif
thread_local GmThreadState *t_writer GM_FAST_TLS = nullptr;

GmThreadState::~GmThreadState() {
    if (t_writer == this) {
        t_writer = nullptr;
    }
}

GmThreadState *writer() {
    GmThreadState *st = t_writer;
    return st != nullptr ? st : state();
}

// The user routines are the same for every thread. Each is one atomic
// pointer, so a reader never sees half of one; gm_init calls racing each
// other leave the routines of whichever stored last.
using BufferFn = void *(*)();
using InitFn = int (*)(void *, int32_t, int32_t, int32_t);
using SendFn = int (*)(void *, int32_t);
std::atomic<BufferFn> g_buffer_fn{nullptr};
std::atomic<InitFn> g_init_fn{nullptr};
std::atomic<SendFn> g_send_fn{nullptr};

// Traces are decided once per call (once per message for its adds):
// formatting is skipped entirely when the channel is off, which is the common
// case on a busy connection.
bool tracing() { return dbg_check_mask(kTraceChannel) != 0; }

#define GM_TRACE(on, ...) ((on) ? new_dbg_str(::vq::gm::kTraceChannel, __VA_ARGS__) : (void)0)

// ---- byte order -------------------------------------------------------------------

void put16(unsigned char *p, uint16_t v) {
    p[0] = static_cast<unsigned char>(v >> 8);
    p[1] = static_cast<unsigned char>(v);
}

void put32(unsigned char *p, uint32_t v) {
    p[0] = static_cast<unsigned char>(v >> 24);
    p[1] = static_cast<unsigned char>(v >> 16);
    p[2] = static_cast<unsigned char>(v >> 8);
    p[3] = static_cast<unsigned char>(v);
}

uint16_t get16(const unsigned char *p) { return static_cast<uint16_t>((p[0] << 8) | p[1]); }

uint32_t get32(const unsigned char *p) {
    return (static_cast<uint32_t>(p[0]) << 24) | (static_cast<uint32_t>(p[1]) << 16) |
           (static_cast<uint32_t>(p[2]) << 8) | static_cast<uint32_t>(p[3]);
}

// ---- writing --------------------------------------------------------------------------

// An element's code, length and type, stored at once.
void put_head(unsigned char *out, int32_t code, ElementType type, uint16_t length) {
    const unsigned char head[4] = {static_cast<unsigned char>(code), static_cast<unsigned char>(length >> 8),
                                   static_cast<unsigned char>(length), static_cast<unsigned char>(type)};
    std::memcpy(out, head, sizeof head);
}

void set_capacity(GmThreadState &st, uint32_t capacity) {
    st.capacity = capacity;
    st.limit = st.buffer != nullptr && !st.overflowed ? capacity : 0;
}

void start_message(GmThreadState &st, unsigned char *buffer, uint32_t position, uint32_t capacity) {
    t_writer = &st;
    st.tracing = tracing();
    st.buffer = buffer;
    st.position = position;
    st.overflowed = false;
    set_capacity(st, capacity);
    st.closed = false;
    st.close_result = 0;
    st.stream_open = false;
    st.stream_count = 0;
    st.struct_open = false;
    st.struct_count = 0;
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

// Whether an add can skip the general routine: nothing to trace or count.
bool plain_add(const GmThreadState &st) { return !st.tracing && !st.stream_open && !st.struct_open; }

// An element of kWidth bytes holding number, big-endian; the common case
// written in one go.
template <ElementType kType, uint32_t kWidth>
void add_number(int32_t code, uint32_t number) {
    GmThreadState *st = writer();
    if (st == nullptr) {
        return;
    }
    if (!plain_add(*st)) {
        add_element(*st, code, kType, number, nullptr, 0);
        return;
    }
    if (!room_for(*st, code, 4u + kWidth)) {
        return;
    }
    unsigned char element[4 + kWidth] = {static_cast<unsigned char>(code), 0, kWidth, kType};
    for (uint32_t i = 0; i < kWidth; ++i) {
        element[4 + i] = static_cast<unsigned char>(number >> (8 * (kWidth - 1 - i)));
    }
    const uint32_t at = st->position;
    st->position = at + sizeof element;
    std::memcpy(st->buffer + at, element, sizeof element);
}

// A str or void element of size bytes (none for null bytes).
void add_bytes(int32_t code, ElementType type, const void *bytes, uint32_t size) {
    GmThreadState *st = writer();
    if (st == nullptr) {
        return;
    }
    if (!plain_add(*st)) {
        add_element(*st, code, type, 0, bytes, size);
        return;
    }
    const auto length = static_cast<uint16_t>(bytes != nullptr ? size : 0);
    if (!room_for(*st, code, 4u + length)) {
        return;
    }
    const uint32_t at = st->position;
    st->position = at + 4u + length;
    unsigned char *out = st->buffer + at;
    put_head(out, code, type, length);
    if (length != 0) {
        std::memcpy(out + 4, bytes, length);
    }
}

// ---- reading ----------------------------------------------------------------------------

void release_parse_handle(GmThreadState &st) {
    if (st.parse_handle != kNoHandle) {
        api_free_handle(st.parse_handle);
        st.parse_handle = kNoHandle;
    }
}

int32_t key_of(const GmThreadState &st, int32_t code) {
    return st.reading_struct ? (static_cast<int32_t>(st.struct_code) << 8) | code : code;
}

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
    int32_t handle;
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
    const int filed = api_set_void_param(r.handle, code, array.get(), static_cast<int32_t>(size));
    GM_TRACE(r.on, "exiting gm_disassemble_stream, freeing memory\n");
    r.pass_members(elements);
    *skip = q - p;
    return filed == 1;
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
    case kChar:
        GM_TRACE(r.on, "param is char, value is %d\n", static_cast<int>(static_cast<char>(data[0])));
        return api_set_char_param(r.handle, key, static_cast<char>(data[0])) == 1;
    case kShort: {
        const auto v = static_cast<int16_t>(get16(data));
        GM_TRACE(r.on, "param is short, value is %d\n", static_cast<int>(v));
        return api_set_short_param(r.handle, key, v) == 1;
    }
    case kInt: {
        const auto v = static_cast<int32_t>(get32(data));
        GM_TRACE(r.on, "param is int, value is %d\n", static_cast<int>(v));
        return api_set_int_param(r.handle, key, v) == 1;
    }
    case kLong: {
        const auto v = static_cast<int32_t>(get32(data));
        GM_TRACE(r.on, "param is long, value is %d\n", static_cast<int>(v));
        return api_set_long_param(r.handle, key, v) == 1;
    }
    case kStr:
        if (length == 0) {
            GM_TRACE(r.on, "param is string, value is NULL\n");
            return api_set_str_param(r.handle, key, nullptr) == 1;
        }
        // The string is filed from the message itself: its NUL must be there.
        if (std::memchr(data, 0, length) == nullptr) {
            GM_TRACE(r.on, "gm_disassemble - string of %d bytes without its terminator\n",
                     static_cast<int>(length));
            return false;
        }
        GM_TRACE(r.on, "param is string, value is %s\n", reinterpret_cast<const char *>(data));
        return api_set_str_param(r.handle, key, reinterpret_cast<const char *>(data)) == 1;
    case kVoid:
        GM_TRACE(r.on, "param is void\n");
        return api_set_void_param(r.handle, key, length != 0 ? data : nullptr, length) == 1;
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
    st->stream_count = static_cast<uint16_t>(st->stream_count - 1);
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
    st->struct_count = static_cast<uint16_t>(st->struct_count - 1);
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

// ---- taking apart -------------------------------------------------------------------------

VQ_API int gm_disassemble_message(const unsigned char *message, uint32_t length) {
    GmThreadState *st = state();
    if (st == nullptr || (message == nullptr && length != 0)) {
        return 0;
    }
    st->reading_struct = false;
    vq::gm::release_parse_handle(*st);
    int32_t handle = vq::gm::kNoHandle;
    if (api_allocate_handle(&handle, vq::gm::kPlainHandle) != 1 || handle == vq::gm::kNoHandle) {
        return 0;
    }
    st->parse_handle = handle;
    vq::gm::Reader r{message, length, handle, vq::gm::tracing()};
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
