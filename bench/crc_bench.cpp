// updcrc against zlib's crc32, the usual CRC-32 of C programs, on the same
// buffers: one short run, one page, a block that sits in the L2 cache and a
// 64 MiB buffer that streams from memory. Both give the same value (checked
// once before timing), so the figures compare equal work.
#include <benchmark/benchmark.h>
#include <zlib.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "vq_glob/hash.h"

namespace {

const std::vector<unsigned char> &buffer(size_t n) {
    static std::vector<unsigned char> data;
    if (data.size() < n) {
        data.resize(n);
        uint32_t x = 12345;
        for (auto &b : data) {
            x = x * 1103515245u + 12345u;
            b = static_cast<unsigned char>(x >> 16);
        }
    }
    return data;
}

void check_same(size_t n) {
    const auto &data = buffer(n);
    updcrc(nullptr, 0);
    uint32_t ours = updcrc(data.data(), static_cast<uint32_t>(n));
    uLong theirs = crc32(crc32(0, nullptr, 0), data.data(), static_cast<uInt>(n));
    if (ours != theirs) {
        std::fprintf(stderr, "updcrc and crc32 differ on %zu bytes\n", n);
        std::abort();
    }
}

void BM_updcrc(benchmark::State &state) {
    const auto n = static_cast<size_t>(state.range(0));
    check_same(n);
    const unsigned char *data = buffer(n).data();
    for (auto _ : state) {
        updcrc(nullptr, 0);
        benchmark::DoNotOptimize(updcrc(data, static_cast<uint32_t>(n)));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(n));
}

void BM_zlib_crc32(benchmark::State &state) {
    const auto n = static_cast<size_t>(state.range(0));
    const unsigned char *data = buffer(n).data();
    for (auto _ : state) {
        benchmark::DoNotOptimize(crc32(0, data, static_cast<uInt>(n)));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(n));
}

}  // namespace

BENCHMARK(BM_updcrc)->Arg(64)->Arg(4 << 10)->Arg(64 << 10)->Arg(64 << 20);
BENCHMARK(BM_zlib_crc32)->Arg(64)->Arg(4 << 10)->Arg(64 << 10)->Arg(64 << 20);

BENCHMARK_MAIN();
