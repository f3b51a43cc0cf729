// The tracked allocation calls against their peer, the C library's malloc and
// free, for one block of 16, 256 and 4,096 bytes allocated and freed at once.
//
// With tracking off a tracked call should cost the plain call plus one flag
// test (the goal: within 10% of the peer). With tracking on each block also
// gets a record, a guard and a check at free; that figure is for information.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "vq_glob/memory.h"

namespace {

void BM_libc_malloc_free(benchmark::State &state) {
    auto size = static_cast<size_t>(state.range(0));
    for (auto _ : state) {
        void *block = std::malloc(size);
        benchmark::DoNotOptimize(block);
        std::free(block);
    }
}

void BM_sl_debug_malloc_free_tracking_off(benchmark::State &state) {
    auto size = static_cast<size_t>(state.range(0));
    for (auto _ : state) {
        void *block = sl_debug_malloc(__FILE__, __LINE__, size);
        benchmark::DoNotOptimize(block);
        sl_debug_free(__FILE__, __LINE__, block);
    }
}

void BM_sl_debug_malloc_free_tracking_on(benchmark::State &state) {
    std::string log = (std::filesystem::temp_directory_path() / "vq_memory_bench.log").string();
    sl_malloc_init(log.c_str());
    auto size = static_cast<size_t>(state.range(0));
    for (auto _ : state) {
        void *block = sl_debug_malloc(__FILE__, __LINE__, size);
        benchmark::DoNotOptimize(block);
        sl_debug_free(__FILE__, __LINE__, block);
    }
    sl_malloc_end();
    std::remove(log.c_str());
}

BENCHMARK(BM_libc_malloc_free)->Arg(16)->Arg(256)->Arg(4096);
BENCHMARK(BM_sl_debug_malloc_free_tracking_off)->Arg(16)->Arg(256)->Arg(4096);
BENCHMARK(BM_sl_debug_malloc_free_tracking_on)->Arg(16)->Arg(256)->Arg(4096);

}  // namespace

BENCHMARK_MAIN();
