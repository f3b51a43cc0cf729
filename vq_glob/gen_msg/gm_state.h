// What the sources of general messages share: the thread's message record,
// the element types, traces and the byte order of the wire.
//
// The writer (writer.cpp) appends elements (code byte, 16-bit big-endian
// length, type byte, data) at the thread's position. The reader (reader.cpp)
// turns each element into a typed parameter of a process handle (api.h),
// which the getters then look up by code; a stream arrives as one void
// parameter holding its members in host order. Everything the reader takes
// comes from another machine, so every length is checked against the bytes
// really given before it is used. error_stack.cpp moves the error stack
// through a message.
#pragma once

#include <cstdint>

#include "internal/big_endian.h"
#include "internal/frame.h"
#include "vq_glob/api.h"
#include "vq_glob/dbg.h"
#include "vq_glob/gm.h"

namespace vq::gm {

inline constexpr int32_t kTraceChannel = DBG_CHANNEL_GMS;

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

inline constexpr int32_t kNoHandle = -1;
inline constexpr int32_t kPlainHandle = 0;  // a handle used as a parameter store only

// The thread's message state. The open stream's and struct's heads are kept
// as offsets of their length fields in the buffer (0: the head was not
// written). Their counts are taken when they close; while the adds trace,
// they also run along for the trace lines.
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
    // The same for the adds that need no trace: the limit while the message's
    // adds are not traced, else 0, so that the common add decides on its way
    // with one comparison too and every other one goes the general way.
    uint64_t plain_limit = 0;
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

inline GmThreadState *state() { return Frame::get(); }

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
extern constinit thread_local GmThreadState *t_writer GM_FAST_TLS;

inline GmThreadState *writer() {
    GmThreadState *st = t_writer;
    return st != nullptr ? st : state();
}

// Traces are decided once per call (once per message for its adds):
// formatting is skipped entirely when the channel is off, which is the common
// case on a busy connection.
inline bool tracing() { return dbg_check_mask(kTraceChannel) != 0; }

#define GM_TRACE(on, ...) ((on) ? new_dbg_str(::vq::gm::kTraceChannel, __VA_ARGS__) : (void)0)

// ---- byte order -------------------------------------------------------------------

inline void put16(unsigned char *p, uint16_t v) { be::store16(p, v); }
inline void put32(unsigned char *p, uint32_t v) { be::store32(p, v); }
inline uint16_t get16(const unsigned char *p) { return be::load16(p); }
inline uint32_t get32(const unsigned char *p) { return be::load32(p); }

// The key a getter looks a code up under: inside the getters' struct, the
// struct's code and the code.
inline int32_t key_of(const GmThreadState &st, int32_t code) {
    return st.reading_struct ? (static_cast<int32_t>(st.struct_code) << 8) | code : code;
}

// Frees the thread's parse handle, if it has one.
void release_parse_handle(GmThreadState &st);

}  // namespace vq::gm
