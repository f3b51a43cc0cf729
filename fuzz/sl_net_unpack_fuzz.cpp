// A packed session comes from another process: the input after its first
// byte is unpacked into a session, either as it is (the first byte even) or,
// to get past the signature check to the fields behind it, with a correct
// signature put in front of it (the first byte odd). A session unpacked is packed again,
// which must succeed and unpack once more, and is freed. Besides running
// under the sanitizers, the target checks that a refused input leaves no
// session and an error on the stack.
//
// Freeing a session closes its socket, and the socket of an unpacked session
// is a number from the input: when that number is a descriptor this process
// has open (the fuzzer's own output, say), it is duplicated aside before the
// free and put back after it.
#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "vq_glob/err.h"
#include "vq_glob/hash.h"
#include "vq_glob/sl_net.h"

namespace {

void check(bool condition, const char *what) {
    if (!condition) {
        std::fprintf(stderr, "sl_net_unpack_fuzz: %s\n", what);
        std::abort();
    }
}

std::vector<uint8_t> signed_message(const uint8_t *data, size_t size) {
    updcrc(nullptr, 0);
    const uint32_t crc = size == 0 ? 0 : updcrc(data, static_cast<uint32_t>(size));
    std::vector<uint8_t> message{static_cast<uint8_t>(crc >> 24), static_cast<uint8_t>(crc >> 16),
                                 static_cast<uint8_t>(crc >> 8), static_cast<uint8_t>(crc)};
    message.insert(message.end(), data, data + size);
    return message;
}

// Frees the session without letting it close a descriptor it never owned.
void free_keeping_descriptors(void *session) {
    sl_net_socket socket = SL_NET_NO_SOCKET;
    check(sl_net_get_socket(session, &socket) == 1, "get socket");
    int saved = -1;
    const bool open_here = socket >= 0 && socket <= 0x7FFFFFFF && fcntl(static_cast<int>(socket), F_GETFD) != -1;
    if (open_here) {
        saved = fcntl(static_cast<int>(socket), F_DUPFD_CLOEXEC, 0);
        check(saved >= 0, "dup");
    }
    check(sl_net_free_handle(&session) == 1 && session == nullptr, "free session");
    if (open_here) {
        check(dup2(saved, static_cast<int>(socket)) == static_cast<int>(socket), "dup2");
        close(saved);
    }
}

void unpack(const void *buffer, size_t size) {
    void *session = nullptr;
    if (sl_net_unpack_to_handle(buffer, static_cast<uint32_t>(size), &session) != 1) {
        check(session == nullptr, "a refused input left a session");
        check(err_get_stack_depth() > 0, "refused without an error");
        return;
    }
    check(session != nullptr, "unpacked without a session");
    void *packed = nullptr;
    uint32_t length = 0;
    check(sl_net_pack_handle(session, &packed, &length) == 1 && packed != nullptr, "pack again");
    void *again = nullptr;
    check(sl_net_unpack_to_handle(packed, length, &again) == 1, "the packed session does not unpack");
    std::free(packed);
    free_keeping_descriptors(again);
    free_keeping_descriptors(session);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    err_set_log_interactive(0);
    err_clear_error_stack();
    if (size == 0) {
        return 0;
    }
    if ((data[0] & 1) != 0) {
        const std::vector<uint8_t> message = signed_message(data + 1, size - 1);
        unpack(message.data(), message.size());
    } else {
        unpack(data + 1, size - 1);
    }
    err_clear_error_stack();
    return 0;
}
