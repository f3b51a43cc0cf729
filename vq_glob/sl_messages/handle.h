// The typed message handle, shared by the element code (handle.cpp,
// elements.cpp) and the transfer code (attachments, sending, receiving).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "internal/big_endian.h"
#include "internal/handle_tag.h"
#include "vq_glob/slm.h"

namespace vq::slm {

// One attachment. The sending side fills the first group of fields; the
// receiving side fills file_name with the file the data went to (temporary
// file or name on the target) and the write status.
struct Attachment {
    std::string file_name;  // "__ATT_AS_A_BUFFER__" for a buffer attachment
    bool binary = false;
    bool is_buffer = false;
    const unsigned char *buffer = nullptr;  // the caller's, not owned
    uint32_t buffer_length = 0;

    bool has_target = false;
    int32_t replace = 0;
    std::string name_on_target;
    bool consider_times = false;
    int32_t unix_time = 0;
    uint32_t nt_low = 0;
    uint32_t nt_high = 0;

    // Receiving side.
    bool written = false;
    uint64_t received_bytes = 0;
    uint32_t received_crc = 0;  // crc32_continue over the bytes received
    std::string error_text;  // why it was not written; empty when written
};

struct Handle {
    tag::HandleTag tag{tag::Kind::message};

    bool owns_buffer = true;
    unsigned char *buffer = nullptr;  // malloc'd when owned
    uint32_t position = 4;            // the cursor, as an offset into buffer
    uint32_t size = 4;                // bytes used, signature slot included
    uint32_t capacity = 0;            // bytes allocated (owned buffers); 0 while the
                                      // buffer is the caller's, so that the first
                                      // write takes make_room's copying path

    uint32_t att_buffer_size = 32768;
    // Told of every piece of attachment data slm_send gets out.
    slm_progress_routine progress = nullptr;
    void *progress_data = nullptr;
    bool has_temp_dir = false;
    std::string temp_dir;
    bool has_target_root = false;
    std::string target_root;
    std::vector<unsigned char> att_buffer;   // allocated on first attachment send
    std::vector<unsigned char> recv_buffer;  // the body of the last part received
    std::vector<std::unique_ptr<Attachment>> attachments;
    // The table index of the attachment whose reference was read last; -1: none.
    int32_t last_reference = -1;
    double remote_version = 0.0;
};

// Numbers as the message holds them: big-endian, at any alignment.
inline void store_be16(unsigned char *p, uint16_t v) { be::store16(p, v); }
inline void store_be32(unsigned char *p, uint32_t v) { be::store32(p, v); }
inline uint16_t load_be16(const unsigned char *p) { return be::load16(p); }
inline uint32_t load_be32(const unsigned char *p) { return be::load32(p); }

// Raises ERR_GEN_MEMORY for function at line of this module; returns 0.
int no_memory(const char *function, int line);

// The handle behind a caller's pointer, or null with ERR_GEN_PARAMS naming
// function and argument raised.
Handle *checked(void *handle, const char *function, const char *argument);

// The same for a function with an output pointer: null with ERR_GEN_PARAMS
// naming output_name when output is null.
Handle *checked(void *handle, const void *output, const char *function, const char *output_name);

// Makes room for n more bytes at the end of the message (doubling; the last 4
// bytes of the capacity stay unused). A handle still reading the caller's
// buffer first takes a copy of its own, so make_room(h, 0, ...) makes any
// handle writable. False with ERR_GEN_MEMORY raised for function when it
// cannot; the message is then as it was.
bool make_room(Handle &h, uint32_t n, const char *function);

// Appends an attachment reference element (type 6 when binary, else 4)
// carrying number. False with the error raised.
bool write_reference(Handle &h, uint16_t code, uint32_t number, bool binary, const char *function);

// Makes an owned handle hold the given body for reading (buffer replaced,
// cursor at 4, size = body length); the body's signature has been checked by
// the caller. False with ERR_GEN_MEMORY raised.
bool adopt_body(Handle &h, const unsigned char *body, uint32_t length, const char *function);

// Whether the first 4 bytes of a body of length bytes (at least 4) are the
// CRC of the rest.
bool signature_matches(const unsigned char *body, uint32_t length);

// Frees what a reused handle no longer needs and empties it (slm_init_handle).
void reset(Handle &h);

}  // namespace vq::slm
