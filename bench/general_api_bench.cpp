// A handle's typed parameter store against std::unordered_map<int32_t, int32_t>:
// setting n int parameters on a fresh handle / map, then reading each back.
// Small counts are what a taken-apart message holds; at large counts the
// store runs on its hash index.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <unordered_map>

#include "vq_glob/api.h"

namespace {

void BM_ApiParamsSetGet(benchmark::State &state) {
    const auto n = static_cast<int32_t>(state.range(0));
    for (auto _ : state) {
        int32_t h = -1;
        api_allocate_handle(&h, 0);
        for (int32_t key = 0; key < n; ++key) {
            api_set_int_param(h, key, key);
        }
        int64_t sum = 0;
        for (int32_t key = 0; key < n; ++key) {
            int32_t v = 0;
            api_get_int_param(h, key, &v);
            sum += v;
        }
        benchmark::DoNotOptimize(sum);
        api_free_handle(h);
    }
    state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_ApiParamsSetGet)->Arg(10)->Arg(100)->Arg(1000);

void BM_UnorderedMapSetGet(benchmark::State &state) {
    const auto n = static_cast<int32_t>(state.range(0));
    for (auto _ : state) {
        std::unordered_map<int32_t, int32_t> map;
        for (int32_t key = 0; key < n; ++key) {
            map[key] = key;
        }
        int64_t sum = 0;
        for (int32_t key = 0; key < n; ++key) {
            sum += map.find(key)->second;
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_UnorderedMapSetGet)->Arg(10)->Arg(100)->Arg(1000);

}  // namespace

BENCHMARK_MAIN();
