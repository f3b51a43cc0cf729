// File handles against the plain system calls they wrap, on a 256 MiB file
// written once into the temporary directory and then read from the page
// cache:
//  - gf_calc_file_crc against open() + read() + zlib's crc32 over the same
//    file (both give the same value, checked once before timing);
//  - gf_read_packet against read() with the same buffer size;
//  - gf_write_packet against write() with the same buffer size, each
//    iteration writing 64 MiB into a truncated file.
// Arguments are the buffer (packet) size in bytes.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "vq_glob/gf.h"

namespace {

constexpr size_t kFileSize = size_t{256} << 20;
constexpr size_t kWriteSize = size_t{64} << 20;

std::string temp_name(const char *name) { return (std::filesystem::temp_directory_path() / name).string(); }

// The input file, written on first use and removed at exit.
const std::string &input_file() {
    static const std::string name = [] {
        std::string path = temp_name("vq_gf_bench_input.bin");
        std::FILE *f = std::fopen(path.c_str(), "wb");
        if (f == nullptr) {
            std::perror(path.c_str());
            std::abort();
        }
        std::vector<unsigned char> block(size_t{1} << 20);
        uint32_t x = 12345;
        for (size_t written = 0; written < kFileSize; written += block.size()) {
            for (auto &b : block) {
                x = x * 1103515245u + 12345u;
                b = static_cast<unsigned char>(x >> 16);
            }
            std::fwrite(block.data(), 1, block.size(), f);
        }
        std::fclose(f);
        std::atexit([] { std::remove(temp_name("vq_gf_bench_input.bin").c_str()); });
        return path;
    }();
    return name;
}

int32_t gf_handle(const std::string &name, uint32_t flags, int32_t packet) {
    int32_t h = -1;
    if (gf_allocate_handle(&h) == 0 || gf_set_file_name(h, name.c_str()) == 0 ||
        gf_set_file_open_flags(h, flags) == 0 || gf_set_file_packet_size(h, packet) == 0) {
        std::abort();
    }
    return h;
}

uint32_t zlib_file_crc(const std::string &name, std::vector<unsigned char> &buffer) {
    int fd = ::open(name.c_str(), O_RDONLY);
    if (fd < 0) {
        std::abort();
    }
    uLong crc = crc32(0, nullptr, 0);
    for (;;) {
        ssize_t n = ::read(fd, buffer.data(), buffer.size());
        if (n <= 0) {
            break;
        }
        crc = crc32(crc, buffer.data(), static_cast<uInt>(n));
    }
    ::close(fd);
    return static_cast<uint32_t>(crc);
}

void BM_gf_calc_file_crc(benchmark::State &state) {
    const std::string &name = input_file();
    int32_t h = gf_handle(name, GF_READ, 0);
    uint32_t crc = 0;
    std::vector<unsigned char> buffer(256 << 10);
    if (gf_calc_file_crc(h, &crc) == 0 || crc != zlib_file_crc(name, buffer)) {
        std::fprintf(stderr, "gf_calc_file_crc and crc32 differ\n");
        std::abort();
    }
    for (auto _ : state) {
        gf_calc_file_crc(h, &crc);
        benchmark::DoNotOptimize(crc);
    }
    gf_free_handle(h);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kFileSize));
}

void BM_read_zlib_crc32(benchmark::State &state) {
    const std::string &name = input_file();
    std::vector<unsigned char> buffer(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        benchmark::DoNotOptimize(zlib_file_crc(name, buffer));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kFileSize));
}

void BM_gf_read_packet(benchmark::State &state) {
    const std::string &name = input_file();
    auto packet = static_cast<int32_t>(state.range(0));
    std::vector<unsigned char> buffer(static_cast<size_t>(packet));
    int32_t h = gf_handle(name, GF_READ, packet);
    for (auto _ : state) {
        gf_open_file(h);
        int32_t n = 0;
        while (gf_read_packet(h, buffer.data(), &n) != 0 && n > 0) {
            benchmark::DoNotOptimize(buffer.data());
        }
        gf_close_file(h);
    }
    gf_free_handle(h);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kFileSize));
}

void BM_plain_read(benchmark::State &state) {
    const std::string &name = input_file();
    std::vector<unsigned char> buffer(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        int fd = ::open(name.c_str(), O_RDONLY);
        while (::read(fd, buffer.data(), buffer.size()) > 0) {
            benchmark::DoNotOptimize(buffer.data());
        }
        ::close(fd);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kFileSize));
}

void BM_gf_write_packet(benchmark::State &state) {
    std::string name = temp_name("vq_gf_bench_output.bin");
    auto packet = static_cast<int32_t>(state.range(0));
    std::vector<unsigned char> buffer(static_cast<size_t>(packet), 0x5A);
    int32_t h = gf_handle(name, GF_WRITE | GF_CREATE | GF_TRUNCATE, packet);
    for (auto _ : state) {
        gf_open_file(h);
        for (size_t done = 0; done < kWriteSize; done += buffer.size()) {
            gf_write_packet(h, buffer.data());
        }
        gf_close_file(h);
    }
    gf_free_handle(h);
    std::remove(name.c_str());
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kWriteSize));
}

void BM_plain_write(benchmark::State &state) {
    std::string name = temp_name("vq_gf_bench_output.bin");
    std::vector<unsigned char> buffer(static_cast<size_t>(state.range(0)), 0x5A);
    for (auto _ : state) {
        int fd = ::open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
        for (size_t done = 0; done < kWriteSize; done += buffer.size()) {
            if (::write(fd, buffer.data(), buffer.size()) < 0) {
                std::abort();
            }
        }
        ::close(fd);
    }
    std::remove(name.c_str());
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kWriteSize));
}

}  // namespace

BENCHMARK(BM_gf_calc_file_crc)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_read_zlib_crc32)->Arg(64 << 10)->Arg(256 << 10)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_gf_read_packet)->Arg(64 << 10)->Arg(1 << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_plain_read)->Arg(64 << 10)->Arg(1 << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_gf_write_packet)->Arg(64 << 10)->Arg(1 << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_plain_write)->Arg(64 << 10)->Arg(1 << 20)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
