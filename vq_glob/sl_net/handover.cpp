// Handing a session to another process: its fields packed into a signed
// typed message, and its socket through a file the other process reads.
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "sl_net/session.h"
#include "vq_glob/err.h"
#include "vq_glob/slm.h"

namespace {

using vq::net::Session;

// Element codes of a packed session.
enum PackedCode : uint16_t {
    kState = 0,
    kIoMode = 1,
    kProtocol = 2,
    kPort = 3,
    kRemoteAddress = 4,
    kBindAddress = 5,
    kPeerAddress = 6,
    kRemoteHost = 7,
    kBindHost = 8,
    kSocket = 9,
    kService = 10,
};

// An empty name travels as a null string.
const char *packed_text(const std::string &text) { return text.empty() ? nullptr : text.c_str(); }

// The packed address fields are the 32 bits as a signed number.
int32_t packed_bits(uint32_t value) { return static_cast<int32_t>(value); }

bool write_fields(void *message, const Session &session) {
    return slm_set_int(message, kState, session.state) == 1 && slm_set_int(message, kIoMode, session.io_mode) == 1 &&
           slm_set_int(message, kProtocol, session.protocol) == 1 &&
           slm_set_short(message, kPort, static_cast<int16_t>(session.port)) == 1 &&
           slm_set_int(message, kRemoteAddress, packed_bits(session.remote_address)) == 1 &&
           slm_set_int(message, kBindAddress, packed_bits(session.bind_address)) == 1 &&
           slm_set_int(message, kPeerAddress, packed_bits(session.peer_address)) == 1 &&
           slm_set_string(message, kRemoteHost, packed_text(session.remote_host)) == 1 &&
           slm_set_string(message, kBindHost, packed_text(session.bind_host)) == 1 &&
           slm_set_int(message, kSocket, static_cast<int32_t>(session.socket)) == 1 &&
           slm_set_string(message, kService, packed_text(session.service)) == 1 &&
           slm_insert_code(message, static_cast<uint16_t>(SLM_END_CODE)) == 1 && slm_sign_message(message) == 1;
}

// The signed message as a malloc'ed copy for the caller.
int hand_out(void *message, void **buffer, uint32_t *length) {
    uint32_t size = 0;
    void *bytes = nullptr;
    if (slm_get_size(message, &size) != 1 || slm_get_message_ptr(message, &bytes) != 1) {
        return 0;
    }
    void *copy = std::malloc(size);
    if (copy == nullptr) {
        return vq::net::raise(ERR_NET_MALLOC);
    }
    std::memcpy(copy, bytes, size);
    *buffer = copy;
    *length = size;
    return 1;
}

int read_int(void *message, int32_t *value) { return slm_get_int(message, value); }

int read_bits(void *message, uint32_t *value) {
    int32_t bits = 0;
    if (slm_get_int(message, &bits) != 1) {
        return 0;
    }
    *value = static_cast<uint32_t>(bits);
    return 1;
}

int read_text(void *message, std::string *text) {
    char *copy = nullptr;
    if (slm_get_string(message, &copy) != 1) {
        return 0;
    }
    int result = 1;
    try {
        text->assign(copy == nullptr ? "" : copy);
    } catch (const std::bad_alloc &) {
        result = vq::net::raise(ERR_NET_MALLOC);
    }
    std::free(copy);
    return result;
}

// Reads the value of one element into its field; an unknown code is an
// inconsistent message.
int read_field(void *message, uint16_t code, Session &session) {
    switch (code) {
        case kState:
            return read_int(message, &session.state);
        case kIoMode:
            return read_int(message, &session.io_mode);
        case kProtocol:
            return read_int(message, &session.protocol);
        case kPort: {
            int16_t port = 0;
            if (slm_get_short(message, &port) != 1) {
                return 0;
            }
            session.port = static_cast<uint16_t>(port);
            return 1;
        }
        case kRemoteAddress:
            return read_bits(message, &session.remote_address);
        case kBindAddress:
            return read_bits(message, &session.bind_address);
        case kPeerAddress:
            return read_bits(message, &session.peer_address);
        case kRemoteHost:
            return read_text(message, &session.remote_host);
        case kBindHost:
            return read_text(message, &session.bind_host);
        case kSocket: {
            int32_t socket = 0;
            if (slm_get_int(message, &socket) != 1) {
                return 0;
            }
            session.socket = static_cast<PlatSocket>(socket);
            return 1;
        }
        case kService:
            return read_text(message, &session.service);
        default:
            return vq::net::raise(ERR_NET_INCNST);
    }
}

// The fields up to the end code, each checked as its setter checks it.
int read_fields(void *message, Session &session) {
    for (;;) {
        uint16_t code = 0;
        if (slm_get_code(message, &code) != 1) {
            return 0;
        }
        if (code == SLM_END_CODE) {
            break;
        }
        if (read_field(message, code, session) != 1) {
            return 0;
        }
    }
    if (!vq::net::valid_protocol(session.protocol)) {
        return vq::net::raise(ERR_NET_BADPROT);
    }
    if (session.io_mode < SL_NET_IO_SYNC || session.io_mode > SL_NET_IO_NON_BLOCKING) {
        return vq::net::raise(ERR_NET_BADIO);
    }
    if (session.state != vq::net::kActive && session.state != vq::net::kInactive) {
        return vq::net::raise(ERR_NET_INCNST);
    }
    return 1;
}

// Writes the whole record to a new file; on any failure the file is removed
// again, so that no short record is left for a reader to trip over.
int write_record(const char *file_name, const unsigned char (&record)[kPlatSocketRecordSize]) {
    PlatNativeOpen how;
    how.access = kPlatAccessWrite;
    how.share = kPlatShareRead;
    how.disposition = PlatDisposition::create_always;
    intptr_t file = kPlatNoFile;
    const int32_t open_error = plat_native_file_open(file_name, how, 0644, &file);
    if (open_error != 0) {
        err_add_system_error(open_error);
        return 0;
    }
    size_t done = 0;
    int32_t error = plat_native_file_write(file, record, sizeof record, &done);
    if (error == 0 && done != sizeof record) {
        error = plat_file_no_space(PlatIo::native);
    }
    const int32_t close_error = plat_native_file_close(file);
    if (error == 0) {
        error = close_error;
    }
    if (error != 0) {
        plat_file_remove(file_name);
        err_add_system_error(error);
        err_add_error(ERR_FIL_WRITE, file_name);
        return 0;
    }
    return 1;
}

}  // namespace

VQ_API int sl_net_pack_handle(void *session, void **buffer, uint32_t *length) {
    Session *own = VQ_NET_SESSION(session);
    if (own == nullptr) {
        return 0;
    }
    if (buffer == nullptr || length == nullptr) {
        return vq::net::raise(ERR_NET_BADPTR);
    }
    *buffer = nullptr;
    *length = 0;
    if (vq::net::check_not_held(*own) != 1) {
        return 0;
    }
    void *message = nullptr;
    if (slm_allocate_handle(&message) != 1) {
        return 0;
    }
    const int result = write_fields(message, *own) ? hand_out(message, buffer, length) : 0;
    slm_free_handle(&message);
    return result;
}

VQ_API int sl_net_unpack_to_handle(const void *buffer, uint32_t length, void **session) {
    if (session == nullptr || buffer == nullptr) {
        return vq::net::raise(ERR_NET_BADPTR);
    }
    *session = nullptr;
    void *message = nullptr;
    if (slm_read_message_to_handle(&message, buffer, length) != 1) {
        return 0;
    }
    Session *own = vq::net::new_session(SL_NET_TCP);
    if (own != nullptr && read_fields(message, *own) != 1) {
        // The socket number came with the refused message: not this
        // session's to close.
        delete own;
        own = nullptr;
    }
    slm_free_handle(&message);
    *session = own;
    return own != nullptr ? 1 : 0;
}

VQ_API int sl_net_save_socket_for_process(void *session, uint32_t process_id, const char *file_name) {
    Session *own = VQ_NET_SESSION(session);
    if (own == nullptr) {
        return 0;
    }
    if (file_name == nullptr || *file_name == '\0') {
        return vq::net::raise(ERR_NET_BADPTR);
    }
    if (own->socket == kPlatNoSocket) {
        return vq::net::raise(ERR_NET_NOTACT);
    }
    if (vq::net::check_not_held(*own) != 1) {
        return 0;
    }
    unsigned char record[kPlatSocketRecordSize];
    const int32_t error = plat_socket_export(own->socket, process_id, record);
    if (error != 0) {
        return vq::net::raise_socket(error, ERR_NET_CRESOCK);
    }
    if (write_record(file_name, record) != 1) {
        return 0;
    }
    own->handed_over = true;
    VQ_NET_TRACE("sl_net_save_socket_for_process: socket for process %u saved in <%s>\n",
                 static_cast<unsigned>(process_id), file_name);
    return 1;
}

VQ_API int sl_net_get_socket_from_file(sl_net_socket *socket, const char *file_name) {
    if (socket == nullptr || file_name == nullptr) {
        return vq::net::raise(ERR_NET_BADPTR);
    }
    std::string bytes;
    int32_t error = 0;
    PlatWholeRead how = PlatWholeRead::read_failed;
    try {
        how = plat_read_regular_file(file_name, kPlatSocketRecordSize, bytes, &error);
    } catch (const std::bad_alloc &) {
        return vq::net::raise(ERR_NET_MALLOC);
    }
    if (how != PlatWholeRead::ok || bytes.size() != kPlatSocketRecordSize) {
        if (error != 0) {
            err_add_system_error(error);
        }
        err_add_error(ERR_FIL_READ, file_name);
        return 0;
    }
    unsigned char record[kPlatSocketRecordSize];
    std::memcpy(record, bytes.data(), sizeof record);
    PlatSocket taken = kPlatNoSocket;
    error = plat_socket_import(record, &taken);
    if (error != 0) {
        return vq::net::raise_socket(error, ERR_NET_CRESOCK);
    }
    *socket = taken;
    VQ_NET_TRACE("sl_net_get_socket_from_file: socket taken from <%s>\n", file_name);
    return 1;
}
