// Shared pieces of the network benchmarks: the large source file and its
// check, CPU and wall time of the measured stretches, the figures of the
// summary, loopback sessions of the library and the timed transfer of the
// large file as a typed message's attachment.
//
// The file size is VQ_NET_BENCH_BYTES (default 1 GiB), the directory
// VQ_NET_BENCH_DIR (default: the system's temporary directory); each program
// works in a directory of its own below it, which main removes at the end
// (remove_work_dir).
#pragma once

#include <benchmark/benchmark.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "vq_glob/err.h"
#include "vq_glob/hash.h"
#include "vq_glob/sl_net.h"
#include "vq_glob/slm.h"

namespace vq_bench {

namespace fs = std::filesystem;
using Bytes = std::vector<unsigned char>;

inline constexpr double kGiB = 1024.0 * 1024.0 * 1024.0;

// Stops the benchmark with what went wrong and the library's error stack.
[[noreturn]] inline void die(const std::string &what) {
    std::fprintf(stderr, "%s: %s\n%s\n", program_invocation_short_name, what.c_str(), err_get_error_msg());
    std::abort();
}

inline uint64_t file_size_setting() {
    const char *text = std::getenv("VQ_NET_BENCH_BYTES");
    if (text == nullptr || *text == '\0') {
        return uint64_t{1} << 30;
    }
    char *end = nullptr;
    const unsigned long long value = std::strtoull(text, &end, 10);
    if (*end != '\0' || value == 0) {
        die(std::string("VQ_NET_BENCH_BYTES is not a positive number: ") + text);
    }
    return value;
}

// The directory of the source and received files: vq_<program>_<pid>.
inline const fs::path &work_dir() {
    static const fs::path dir = [] {
        const char *text = std::getenv("VQ_NET_BENCH_DIR");
        fs::path d = (text != nullptr && *text != '\0') ? fs::path(text) : fs::temp_directory_path();
        d /= std::string("vq_") + program_invocation_short_name + "_" + std::to_string(getpid());
        fs::create_directories(d / "received");
        return d;
    }();
    return dir;
}

inline void remove_work_dir() {
    std::error_code ignored;
    fs::remove_all(work_dir(), ignored);
}

inline double process_cpu_seconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

struct FileCheck {
    uint64_t size = 0;
    uint32_t crc = 0;
    bool operator==(const FileCheck &) const = default;
};

inline FileCheck check_file(const fs::path &path) {
    const int fd = ::open(path.c_str(), O_RDONLY);
    if (fd < 0) {
        die("cannot open " + path.string());
    }
    Bytes buffer(1 << 20);
    FileCheck result;
    updcrc(nullptr, 0);
    for (ssize_t n; (n = ::read(fd, buffer.data(), buffer.size())) > 0;) {
        result.crc = updcrc(buffer.data(), static_cast<uint32_t>(n));
        result.size += static_cast<uint64_t>(n);
    }
    ::close(fd);
    return result;
}

// The source file, written once, and what its receivers must end up with.
inline const fs::path &source_file() {
    static const fs::path path = [] {
        fs::path p = work_dir() / "source.bin";
        const int fd = ::open(p.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        Bytes block(1 << 20);
        uint32_t x = 12345;
        for (uint64_t left = file_size_setting(); left > 0;) {
            for (auto &b : block) {
                x = x * 1103515245u + 12345u;
                b = static_cast<unsigned char>(x >> 16);
            }
            const size_t n = static_cast<size_t>(std::min<uint64_t>(left, block.size()));
            if (fd < 0 || ::write(fd, block.data(), n) != static_cast<ssize_t>(n)) {
                die("cannot write " + p.string());
            }
            left -= n;
        }
        ::close(fd);
        return p;
    }();
    return path;
}

inline const FileCheck &source_check() {
    static const FileCheck check = check_file(source_file());
    return check;
}

// Wall and process CPU time of the measured stretches only (the checks of
// the results between them are left out).
class Stopwatch {
public:
    void start() {
        wall_start_ = std::chrono::steady_clock::now();
        cpu_start_ = process_cpu_seconds();
    }
    void stop() {
        wall_ += std::chrono::duration<double>(std::chrono::steady_clock::now() - wall_start_).count();
        cpu_ += process_cpu_seconds() - cpu_start_;
    }
    double wall() const { return wall_; }
    double cpu() const { return cpu_; }

private:
    std::chrono::steady_clock::time_point wall_start_;
    double cpu_start_ = 0;
    double wall_ = 0;
    double cpu_ = 0;
};

// Figures for the summary: the rate (MB/s, or operations a second) and the
// CPU time per unit (GiB, or operation), by benchmark.
struct Figures {
    double rate = 0;
    double cpu_per_unit = 0;
};

inline std::map<std::string, Figures> &figures() {
    static std::map<std::string, Figures> all;
    return all;
}

inline void record_file(benchmark::State &state, const std::string &name, uint64_t bytes, const Stopwatch &watch) {
    Figures f{static_cast<double>(bytes) / 1e6 / watch.wall(), watch.cpu() / (static_cast<double>(bytes) / kGiB)};
    figures()[name] = f;
    state.SetBytesProcessed(static_cast<int64_t>(bytes));
    state.counters["cpu_s_per_GiB"] = f.cpu_per_unit;
}

// ---- Library sessions ---------------------------------------------------------------

// A listening session on 127.0.0.1 and a port of the system's choosing.
struct Listener {
    void *session = nullptr;
    uint16_t port = 0;

    Listener() {
        if (sl_net_allocate_handle(SL_NET_TCP, &session) != 1 || sl_net_bind(session, "127.0.0.1", 0) != 1 ||
            sl_net_listen(session, 16) != 1 || sl_net_get_local_port(session, &port) != 1) {
            die("listen");
        }
    }
    ~Listener() { sl_net_free_handle(&session); }
    Listener(const Listener &) = delete;
    Listener &operator=(const Listener &) = delete;

    void *accept() const {
        void *accepted = nullptr;
        if (sl_net_accept(session, &accepted) != 1) {
            die("accept");
        }
        return accepted;
    }
};

inline void *library_connect(uint16_t port) {
    void *session = nullptr;
    const sl_net_remote_info info{"127.0.0.1", nullptr, port};
    if (sl_net_allocate_handle(SL_NET_TCP, &session) != 1 || sl_net_set_remote_info(session, 0, &info) != 1 ||
        sl_net_connect(session) != 1) {
        die("connect");
    }
    return session;
}

// Receives one message with one attachment and returns the file it went to.
inline fs::path library_receive_file(void *session) {
    void *message = nullptr;
    if (slm_allocate_handle(&message) != 1 || slm_set_temp_dir(message, (work_dir() / "received").c_str()) != 1 ||
        slm_recv(message, session) != 1) {
        die("slm_recv");
    }
    char *name = nullptr;
    int32_t binary = 0;
    if (slm_get_att(message, 1, &name, &binary) != 1 || name == nullptr || binary != 1) {
        die("slm_get_att");
    }
    fs::path path = name;
    std::free(name);
    slm_free_handle(&message);
    return path;
}

// What happens to a new connection's sessions before the transfer (true for
// the accepting side) and to each before it is freed; the clear transfer
// leaves both empty.
struct SessionSetup {
    std::function<void(void *session, bool server)> opened;
    std::function<void(void *session, bool server)> closing;
};

// Each iteration connects, sends the source file as the attachment of one
// message (slm_set_att + slm_send) and receives it on a thread (slm_recv into
// a temporary directory on the source's file system); the received file is
// checked for size and CRC outside the measured stretch. Records the figures
// under name.
inline void library_file_transfer(benchmark::State &state, const std::string &name, const SessionSetup &setup = {}) {
    const fs::path &source = source_file();
    const FileCheck &expected = source_check();
    Listener listener;
    Stopwatch watch;
    const auto apply = [](const std::function<void(void *, bool)> &step, void *session, bool server) {
        if (step) {
            step(session, server);
        }
    };
    for (auto _ : state) {
        watch.start();
        fs::path received;
        std::thread receiver([&] {
            void *session = listener.accept();
            apply(setup.opened, session, true);
            received = library_receive_file(session);
            apply(setup.closing, session, true);
            sl_net_free_handle(&session);
        });
        void *session = library_connect(listener.port);
        apply(setup.opened, session, false);
        void *message = nullptr;
        if (slm_allocate_handle(&message) != 1 || slm_set_att(message, 1, source.c_str(), 1) != 1 ||
            slm_send(message, session, 1) != 1) {
            die("slm_send");
        }
        slm_free_handle(&message);
        apply(setup.closing, session, false);
        receiver.join();
        sl_net_free_handle(&session);
        watch.stop();
        state.PauseTiming();
        if (!(check_file(received) == expected)) {
            die("the received file differs from the source: " + received.string());
        }
        fs::remove(received);
        state.ResumeTiming();
    }
    record_file(state, name, state.iterations() * expected.size, watch);
}

}  // namespace vq_bench
