// Typed messages arrive from the network: the input is what the peer sent
// down a connection. It is written into one end of a socket pair whose
// writing side is then shut down, so the receiver always reaches the end of
// the data and never waits; the other end is a session that slm_recv reads a
// message from. A message received is walked element by element, attachments
// included, and its files are removed. Besides running under the sanitizers,
// the target checks what must hold whatever the input:
//  - a failed receive leaves no temporary file behind;
//  - every attachment a received message names went to the temporary
//    directory or, for a name on the target, below the target root;
//  - nothing is written beside those two directories.
//
// Two ways of reading the input, chosen by its first byte:
//  - raw: the rest goes down the connection as it is;
//  - parts: the rest is a list of parts, each a control byte (the part's
//    indication in the low four bits, 0x10 "leave the signature alone", 0x20
//    "end the message with the end code"), a two-byte big-endian length and
//    that many bytes. The 10-byte part headers are generated, and the body
//    and attachment-information messages get a correct signature over their
//    joined parts, so that the fuzzer reaches what lies behind the headers
//    and the checksum.
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "vq_glob/err.h"
#include "vq_glob/hash.h"
#include "vq_glob/sl_net.h"
#include "vq_glob/slm.h"

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;

// What goes down the connection at most: it must fit the socket buffer so
// that the whole input is written before the receive starts.
constexpr size_t kMaxWire = 96 * 1024;

void check(bool condition, const char *what) {
    if (!condition) {
        std::fprintf(stderr, "slm_recv_fuzz: %s\n", what);
        std::abort();
    }
}

// The directories of this process: temporary files and the root that names
// on the target are confined to (relative names are taken below it); nothing
// may appear beside them.
struct Dirs {
    fs::path root;
    fs::path temp;
    fs::path target;

    static const Dirs &get() {
        static const Dirs dirs = [] {
            char pattern[] = "/tmp/vq_slm_recv_fuzz_XXXXXX";
            check(mkdtemp(pattern) != nullptr, "mkdtemp");
            Dirs d;
            d.root = pattern;
            d.temp = d.root / "temp";
            d.target = d.root / "target";
            fs::create_directories(d.temp);
            fs::create_directories(d.target);
            std::atexit([] { fs::remove_all(Dirs::get().root); });
            return d;
        }();
        return dirs;
    }
};

void put16(Bytes &out, uint32_t v) {
    out.push_back(static_cast<uint8_t>(v >> 8));
    out.push_back(static_cast<uint8_t>(v));
}

void put32(Bytes &out, uint32_t v) {
    put16(out, v >> 16);
    put16(out, v);
}

void part_header(Bytes &out, uint32_t length, uint32_t indication) {
    put16(out, SLM_MSG_SIZE_CODE);
    put32(out, length);
    put16(out, SLM_LAST_MSG_CODE);
    put16(out, indication);
}

struct Part {
    uint32_t indication;
    bool keep_signature;
    Bytes body;
};

bool is_body(uint32_t indication) {
    return indication == SLM_PART_BODY_LAST || indication == SLM_PART_BODY_MORE;
}

bool is_att_info(uint32_t indication) {
    return indication == SLM_PART_ATT_INFO_MORE || indication == SLM_PART_ATT_INFO_LAST;
}

// Signs a run of body or attachment-information parts: the CRC of their
// joined bytes goes in front of the first one.
void sign_run(std::vector<Part> &parts, size_t first, size_t end) {
    if (first >= end || parts[end - 1].keep_signature) {
        return;
    }
    updcrc(nullptr, 0);
    uint32_t crc = 0;
    for (size_t n = first; n < end; ++n) {
        if (!parts[n].body.empty()) {
            crc = updcrc(parts[n].body.data(), static_cast<uint32_t>(parts[n].body.size()));
        }
    }
    Bytes signature;
    put32(signature, crc);
    parts[first].body.insert(parts[first].body.begin(), signature.begin(), signature.end());
}

// The parts mode: parts with generated headers and signatures.
Bytes wire_from_parts(const uint8_t *data, size_t size) {
    std::vector<Part> parts;
    size_t at = 0;
    while (at + 3 <= size) {
        const uint8_t control = data[at];
        size_t length = (static_cast<size_t>(data[at + 1]) << 8) | data[at + 2];
        at += 3;
        // Room for the signature: a part never passes 32768 bytes.
        length = std::min({length, size - at, size_t{SLM_MAX_PART_SIZE - 6}});
        Part p{static_cast<uint32_t>(control & 0x0F), (control & 0x10) != 0, Bytes(data + at, data + at + length)};
        at += length;
        if ((control & 0x20) != 0) {
            put16(p.body, SLM_END_CODE);
        }
        parts.push_back(std::move(p));
    }
    // A run of one kind ends with its last part or where another kind begins.
    size_t run_start = 0;
    for (size_t n = 0; n <= parts.size(); ++n) {
        const bool run_body = run_start < n && is_body(parts[run_start].indication);
        const bool run_info = run_start < n && is_att_info(parts[run_start].indication);
        const bool continues = n < parts.size() && ((run_body && is_body(parts[n].indication)) ||
                                                     (run_info && is_att_info(parts[n].indication)));
        if (continues) {
            const uint32_t ind = parts[n].indication;
            if (ind == SLM_PART_BODY_LAST || ind == SLM_PART_ATT_INFO_LAST) {
                sign_run(parts, run_start, n + 1);
                run_start = n + 1;
            }
            continue;
        }
        if (run_body || run_info) {
            sign_run(parts, run_start, n);
        }
        run_start = n;
        if (n < parts.size()) {
            const uint32_t ind = parts[n].indication;
            if (ind == SLM_PART_BODY_LAST || ind == SLM_PART_ATT_INFO_LAST) {
                sign_run(parts, n, n + 1);
                run_start = n + 1;
            } else if (!is_body(ind) && !is_att_info(ind)) {
                run_start = n + 1;
            }
        }
    }
    Bytes wire;
    for (const Part &p : parts) {
        part_header(wire, static_cast<uint32_t>(p.body.size()), p.indication);
        wire.insert(wire.end(), p.body.begin(), p.body.end());
    }
    return wire;
}

bool below(const fs::path &path, const fs::path &dir) {
    const fs::path normal = fs::weakly_canonical(path);
    const fs::path base = fs::weakly_canonical(dir);
    auto [end, ignored] = std::mismatch(base.begin(), base.end(), normal.begin(), normal.end());
    (void)ignored;
    return end == base.end();
}

// Reads every element of a received message in order, each by the getter of
// its type (a wrong getter fails and leaves the cursor in place), and checks
// where its attachments went.
void walk(void *handle) {
    for (int guard = 0; guard < 100000; ++guard) {
        uint16_t code = 0;
        if (slm_get_code(handle, &code) != 1 || code == SLM_END_CODE) {
            return;
        }
        int32_t i = 0;
        int16_t s = 0;
        char *text = nullptr;
        void *bytes = nullptr;
        uint32_t length = 0;
        char small[16];
        if (slm_get_int(handle, &i) == 1 || slm_get_bool(handle, &i) == 1 || slm_get_short(handle, &s) == 1) {
            continue;
        }
        if (slm_get_string(handle, &text) == 1) {
            check(text == nullptr || std::strlen(text) < SLM_MAX_BODY_SIZE, "string length");
            std::free(text);
            continue;
        }
        if (slm_get_void(handle, &bytes, &length) == 1) {
            check(length == 0 || bytes != nullptr, "void without data");
            continue;
        }
        char *name = nullptr;
        char *why_not = nullptr;
        int32_t mode = -1;
        int32_t status = -1;
        if (slm_get_att_and_status(handle, &name, &mode, &status, &why_not) == 1) {
            check(mode == 0 || mode == 1, "attachment mode");
            check(status == 0 || status == 1, "attachment status");
            if (name != nullptr && status == 1) {
                check(below(name, Dirs::get().temp) || below(name, Dirs::get().target), "attachment outside");
            }
            std::free(name);
            std::free(why_not);
            continue;
        }
        // Neither: an unknown type or a truncated element; the noalloc getter
        // must refuse a string that does not fit rather than overrun.
        slm_get_string_noalloc(handle, small, sizeof small);
        return;
    }
}

// Removes the files in dir and reports whether there were any.
bool empty_out(const fs::path &dir) {
    bool any = false;
    for (const auto &entry : fs::directory_iterator(dir)) {
        any = true;
        fs::remove_all(entry.path());
    }
    return any;
}

// Only the two directories may stand in the root.
void check_nothing_beside(const Dirs &dirs) {
    for (const auto &entry : fs::directory_iterator(dirs.root)) {
        check(entry.path() == dirs.temp || entry.path() == dirs.target, "a file written beside the directories");
    }
}

void *session_over(int fd) {
    void *session = nullptr;
    check(sl_net_allocate_handle(SL_NET_TCP, &session) == 1, "allocate session");
    check(sl_net_override_socket(session, fd) == 1, "override socket");
    // Belt and braces: the writing side is shut down, so the receive ends on
    // the data; the time-out only guards a receive that would wait anyway.
    check(sl_net_set_recv_timeout(session, 5) == 1, "receive time-out");
    return session;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const Dirs &dirs = Dirs::get();
    err_set_log_interactive(0);
    err_clear_error_stack();

    const Bytes wire = (data[0] & 1) != 0 ? wire_from_parts(data + 1, size - 1) : Bytes(data + 1, data + size);
    if (wire.size() > kMaxWire) {
        return -1;  // not worth keeping: it would not fit the socket buffer
    }
    int fds[2];
    check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) == 0, "socketpair");
    const int buffer = 4 * static_cast<int>(kMaxWire);
    setsockopt(fds[0], SOL_SOCKET, SO_SNDBUF, &buffer, sizeof buffer);
    setsockopt(fds[1], SOL_SOCKET, SO_RCVBUF, &buffer, sizeof buffer);
    size_t written = 0;
    while (written < wire.size()) {
        const ssize_t n = send(fds[0], wire.data() + written, wire.size() - written, MSG_DONTWAIT | MSG_NOSIGNAL);
        check(n > 0, "the input does not fit the socket buffer");
        written += static_cast<size_t>(n);
    }
    shutdown(fds[0], SHUT_WR);

    void *session = session_over(fds[1]);
    void *handle = nullptr;
    check(slm_allocate_handle(&handle) == 1, "allocate message");
    check(slm_set_temp_dir(handle, dirs.temp.c_str()) == 1, "temp dir");
    check(slm_set_target_root(handle, dirs.target.c_str()) == 1, "target root");
    int32_t full_success = -1;
    if (slm_recv_with_success_indication(handle, session, &full_success) == 1) {
        check(full_success == 0 || full_success == 1, "success indication");
        walk(handle);
        empty_out(dirs.temp);
    } else {
        check(!empty_out(dirs.temp), "a failed receive left a temporary file");
    }
    empty_out(dirs.target);
    slm_free_handle(&handle);
    sl_net_free_handle(&session);
    close(fds[0]);
    err_clear_error_stack();
    check_nothing_beside(dirs);
    return 0;
}
