// Network sessions and typed messages against raw TCP over the loopback
// interface, both sides in this process on two threads:
//  - one large file: the library sends it as an attachment (slm_set_att +
//    slm_send) and the receiver writes it with slm_recv into a temporary
//    directory on the same file system as the source; the peer copies the
//    same file with read() + send() and recv() + write() through the same
//    32 KiB buffer. Both received files are checked for size and CRC.
//  - round trips of small messages (10 elements, no attachment): the client
//    sends, the server answers with a message of the same shape; the peer
//    moves exactly the same bytes in the same number of send and recv calls
//    (10-byte header, then the body) and compares what it gets.
// The file size is VQ_NET_BENCH_BYTES (default 1 GiB), the directory
// VQ_NET_BENCH_DIR (default: the system's temporary directory), as
// net_bench_support.h reads them. Besides Google Benchmark's table, a
// summary gives MB/s, the library's share of the peer's speed and the
// process CPU time (all threads) per GiB.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstring>

#include "net_bench_support.h"

namespace {

using namespace vq_bench;

constexpr size_t kBufferSize = 32768;

void record_round_trips(benchmark::State &state, const std::string &name, const Stopwatch &watch) {
    const auto trips = static_cast<double>(state.iterations());
    Figures f{trips / watch.wall(), watch.cpu() / trips * 1e6};
    figures()[name] = f;
    state.counters["round_trips_per_s"] = f.rate;
    state.counters["cpu_us_per_round_trip"] = f.cpu_per_unit;
}

void BM_slm_send_file(benchmark::State &state) { library_file_transfer(state, "file: library"); }

// ---- Raw TCP --------------------------------------------------------------------------

int raw_listen(uint16_t &port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int one = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 || ::listen(fd, 4) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length) != 0) {
        die("raw listen");
    }
    port = ntohs(address.sin_port);
    return fd;
}

int raw_connect(uint16_t port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    if (fd < 0 || ::connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
        die("raw connect");
    }
    return fd;
}

void send_all(int fd, const unsigned char *data, size_t length) {
    while (length > 0) {
        const ssize_t n = ::send(fd, data, length, MSG_NOSIGNAL);
        if (n <= 0) {
            die("raw send");
        }
        data += n;
        length -= static_cast<size_t>(n);
    }
}

void recv_all(int fd, unsigned char *data, size_t length) {
    while (length > 0) {
        const ssize_t n = ::recv(fd, data, length, 0);
        if (n <= 0) {
            die("raw recv");
        }
        data += n;
        length -= static_cast<size_t>(n);
    }
}

void raw_receive_file(int fd, const fs::path &path) {
    const int out = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    Bytes buffer(kBufferSize);
    for (ssize_t n; (n = ::recv(fd, buffer.data(), buffer.size(), 0)) > 0;) {
        if (out < 0 || ::write(out, buffer.data(), static_cast<size_t>(n)) != n) {
            die("raw write");
        }
    }
    ::close(out);
}

void raw_send_file(int fd, const fs::path &path) {
    const int in = ::open(path.c_str(), O_RDONLY);
    Bytes buffer(kBufferSize);
    for (ssize_t n; (n = ::read(in, buffer.data(), buffer.size())) > 0;) {
        send_all(fd, buffer.data(), static_cast<size_t>(n));
    }
    ::close(in);
}

void BM_raw_tcp_send_file(benchmark::State &state) {
    const fs::path &source = source_file();
    const FileCheck &expected = source_check();
    uint16_t port = 0;
    const int listener = raw_listen(port);
    const fs::path received = work_dir() / "received" / "raw.bin";
    Stopwatch watch;
    for (auto _ : state) {
        watch.start();
        std::thread receiver([&] {
            const int fd = ::accept(listener, nullptr, nullptr);
            raw_receive_file(fd, received);
            ::close(fd);
        });
        const int fd = raw_connect(port);
        raw_send_file(fd, source);
        ::shutdown(fd, SHUT_WR);
        receiver.join();
        ::close(fd);
        watch.stop();
        state.PauseTiming();
        if (!(check_file(received) == expected)) {
            die("the raw copy differs from the source");
        }
        fs::remove(received);
        state.ResumeTiming();
    }
    ::close(listener);
    record_file(state, "file: raw TCP", state.iterations() * expected.size, watch);
}

// ---- Round trips of small messages ----------------------------------------------------

constexpr int32_t kStop = -1;

// The 10 elements of a request (or, with answer set, of an answer) for
// round trip number trip.
void write_small(void *message, int32_t trip, bool answer) {
    static const unsigned char kBlob[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    if (slm_init_handle(message) != 1 || slm_set_int(message, 1, trip) != 1 ||
        slm_set_int(message, 2, answer ? 200 : 100) != 1 || slm_set_short(message, 3, 7) != 1 ||
        slm_set_bool(message, 4, answer ? 1 : 0) != 1 ||
        slm_set_string(message, 5, answer ? "answer from the server" : "request of the client") != 1 ||
        slm_set_string(message, 6, "vq_glob") != 1 || slm_set_int(message, 7, 123456789) != 1 ||
        slm_set_short(message, 8, -2) != 1 || slm_set_void(message, 9, kBlob, sizeof kBlob) != 1 ||
        slm_set_int(message, 10, trip ^ 0x5A5A) != 1) {
        die("writing a small message");
    }
}

// Reads the 10 elements back and checks them against write_small's; returns
// the round trip number.
int32_t read_small(void *message, bool answer) {
    int32_t trip = 0;
    int32_t kind = 0;
    int16_t s3 = 0;
    int32_t b4 = 0;
    char text5[32];
    char text6[16];
    int32_t i7 = 0;
    int16_t s8 = 0;
    void *blob = nullptr;
    uint32_t blob_length = 0;
    int32_t check = 0;
    if (slm_get_int_by_code(message, 1, &trip) != 1 || slm_get_int_by_code(message, 2, &kind) != 1) {
        die("reading a small message");
    }
    if (trip == kStop) {
        return trip;
    }
    if (slm_get_short_by_code(message, 3, &s3) != 1 || slm_get_bool_by_code(message, 4, &b4) != 1 ||
        slm_get_string_noalloc_by_code(message, 5, text5, sizeof text5) != 1 ||
        slm_get_string_noalloc_by_code(message, 6, text6, sizeof text6) != 1 ||
        slm_get_int_by_code(message, 7, &i7) != 1 || slm_get_short_by_code(message, 8, &s8) != 1 ||
        slm_verify_type(message, 9) != 1 || slm_get_void(message, &blob, &blob_length) != 1 ||
        slm_get_int_by_code(message, 10, &check) != 1) {
        die("reading a small message");
    }
    if (kind != (answer ? 200 : 100) || s3 != 7 || b4 != (answer ? 1 : 0) || i7 != 123456789 || s8 != -2 ||
        blob_length != 16 || check != (trip ^ 0x5A5A) ||
        std::strcmp(text5, answer ? "answer from the server" : "request of the client") != 0 ||
        std::strcmp(text6, "vq_glob") != 0) {
        die("a small message arrived changed");
    }
    return trip;
}

void BM_slm_round_trip(benchmark::State &state) {
    Listener listener;
    std::thread server([&] {
        void *session = listener.accept();
        void *request = nullptr;
        void *answer = nullptr;
        if (slm_allocate_handle(&request) != 1 || slm_allocate_handle(&answer) != 1) {
            die("server handles");
        }
        for (;;) {
            if (slm_recv(request, session) != 1) {
                die("server slm_recv");
            }
            const int32_t trip = read_small(request, false);
            if (trip == kStop) {
                break;
            }
            write_small(answer, trip, true);
            if (slm_send(answer, session, 1) != 1) {
                die("server slm_send");
            }
        }
        slm_free_handle(&request);
        slm_free_handle(&answer);
        sl_net_free_handle(&session);
    });
    void *session = library_connect(listener.port);
    void *request = nullptr;
    void *answer = nullptr;
    if (slm_allocate_handle(&request) != 1 || slm_allocate_handle(&answer) != 1) {
        die("client handles");
    }
    Stopwatch watch;
    watch.start();
    int32_t trip = 0;
    for (auto _ : state) {
        write_small(request, trip, false);
        if (slm_send(request, session, 1) != 1 || slm_recv(answer, session) != 1) {
            die("client round trip");
        }
        if (read_small(answer, true) != trip) {
            die("an answer to another request");
        }
        ++trip;
    }
    watch.stop();
    write_small(request, kStop, false);
    if (slm_send(request, session, 1) != 1) {
        die("stop");
    }
    server.join();
    slm_free_handle(&request);
    slm_free_handle(&answer);
    sl_net_free_handle(&session);
    record_round_trips(state, "round trip: library", watch);
}

// A whole message as the library puts it on the wire: the 10-byte part
// header and the signed body, taken from the library's own writer. The
// library sends a part's header and data with one send and receives the
// header, then the data: the peer does the same.
struct Wire {
    Bytes header;
    Bytes body;
    Bytes part;  // header and body together, as sent
};

Wire small_on_wire(bool answer) {
    void *message = nullptr;
    if (slm_allocate_handle(&message) != 1) {
        die("wire handle");
    }
    write_small(message, 0, answer);
    void *data = nullptr;
    uint32_t size = 0;
    if (slm_insert_code(message, static_cast<uint16_t>(SLM_END_CODE)) != 1 || slm_sign_message(message) != 1 ||
        slm_get_message_ptr(message, &data) != 1 || slm_get_size(message, &size) != 1) {
        die("wire message");
    }
    Wire wire;
    wire.body.assign(static_cast<unsigned char *>(data), static_cast<unsigned char *>(data) + size);
    wire.header = {0, SLM_MSG_SIZE_CODE, static_cast<unsigned char>(size >> 24), static_cast<unsigned char>(size >> 16),
                   static_cast<unsigned char>(size >> 8), static_cast<unsigned char>(size), 0, SLM_LAST_MSG_CODE, 0,
                   SLM_PART_BODY_LAST};
    wire.part = wire.header;
    wire.part.insert(wire.part.end(), wire.body.begin(), wire.body.end());
    slm_free_handle(&message);
    return wire;
}

void raw_send_message(int fd, const Wire &wire, Bytes &scratch) {
    // The copy into one buffer is what the library does to send a part with
    // one call.
    std::memcpy(scratch.data(), wire.part.data(), wire.part.size());
    send_all(fd, scratch.data(), wire.part.size());
}

// Receives the other side's message (header, then body) and checks it byte
// for byte; false when the peer has closed instead.
bool raw_recv_message(int fd, const Wire &expected, Bytes &header, Bytes &body) {
    const ssize_t first = ::recv(fd, header.data(), header.size(), MSG_WAITALL);
    if (first == 0) {
        return false;
    }
    if (first != static_cast<ssize_t>(header.size())) {
        die("raw header");
    }
    recv_all(fd, body.data(), body.size());
    if (header != expected.header || body != expected.body) {
        die("a raw message arrived changed");
    }
    return true;
}

void BM_raw_tcp_round_trip(benchmark::State &state) {
    const Wire request = small_on_wire(false);
    const Wire answer = small_on_wire(true);
    uint16_t port = 0;
    const int listener = raw_listen(port);
    std::thread server([&] {
        const int fd = ::accept(listener, nullptr, nullptr);
        Bytes header(SLM_PART_HEADER_SIZE);
        Bytes body(request.body.size());
        Bytes scratch(answer.part.size());
        while (raw_recv_message(fd, request, header, body)) {
            raw_send_message(fd, answer, scratch);
        }
        ::close(fd);
    });
    const int fd = raw_connect(port);
    Bytes header(SLM_PART_HEADER_SIZE);
    Bytes body(answer.body.size());
    Bytes scratch(request.part.size());
    Stopwatch watch;
    watch.start();
    for (auto _ : state) {
        raw_send_message(fd, request, scratch);
        if (!raw_recv_message(fd, answer, header, body)) {
            die("the raw server closed");
        }
    }
    watch.stop();
    ::shutdown(fd, SHUT_WR);
    server.join();
    ::close(fd);
    ::close(listener);
    record_round_trips(state, "round trip: raw TCP", watch);
}

void print_summary() {
    std::printf("\n%-22s %14s %16s\n", "", "rate", "CPU per unit");
    for (const auto &[name, f] : figures()) {
        const bool file = name.rfind("file", 0) == 0;
        std::printf("%-22s %10.1f %-5s %10.3f %s\n", name.c_str(), f.rate, file ? "MB/s" : "rt/s",
                    f.cpu_per_unit, file ? "s/GiB" : "us/rt");
    }
    // The library's share of the peer's rate, where both ran.
    for (const char *what : {"file", "round trip"}) {
        const auto library = figures().find(std::string(what) + ": library");
        const auto peer = figures().find(std::string(what) + ": raw TCP");
        if (library != figures().end() && peer != figures().end() && peer->second.rate > 0) {
            std::printf("%s: library / raw TCP %.3f\n", what, library->second.rate / peer->second.rate);
        }
    }
    std::printf("(file of %llu bytes)\n", static_cast<unsigned long long>(file_size_setting()));
}

}  // namespace

// The large file goes a fixed number of times (a run of 1 GiB takes seconds);
// the round trips as many times as Google Benchmark decides.
BENCHMARK(BM_slm_send_file)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_raw_tcp_send_file)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_slm_round_trip)->UseRealTime();
BENCHMARK(BM_raw_tcp_round_trip)->UseRealTime();

int main(int argc, char **argv) {
    if (sl_net_init() != 1) {
        die("sl_net_init");
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    print_summary();
    remove_work_dir();
    sl_net_clean();
    return 0;
}
