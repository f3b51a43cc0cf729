// Cost of pushing onto the error stack, against formatting the same message
// with snprintf into a buffer of the same size (the least any push must do).
#include <benchmark/benchmark.h>

#include <cstdio>

#include "vq_glob/err.h"

namespace {

void BM_err_add_error(benchmark::State &state) {
    err_set_log_interactive(0);
    err_clear_error_stack();
    for (auto _ : state) {
        err_add_error(ERR_GEN_MEMORY, "conf_read_file_to_handle", "vq_config", 1234);
    }
    benchmark::DoNotOptimize(err_get_stack_depth());
}
BENCHMARK(BM_err_add_error);

void BM_err_set_error(benchmark::State &state) {
    for (auto _ : state) {
        err_set_error(ERR_GEN_MEMORY, "conf_read_file_to_handle", "vq_config", 1234);
    }
}
BENCHMARK(BM_err_set_error);

// A push followed by reading the nine-entry description it changed.
void BM_err_add_error_then_read(benchmark::State &state) {
    err_clear_error_stack();
    for (auto _ : state) {
        err_add_error(ERR_GEN_MEMORY, "conf_read_file_to_handle", "vq_config", 1234);
        benchmark::DoNotOptimize(err_get_error_msg());
    }
}
BENCHMARK(BM_err_add_error_then_read);

void BM_peer_snprintf(benchmark::State &state) {
    static char buffer[5120];
    for (auto _ : state) {
        std::snprintf(buffer, sizeof buffer, "out of memory (%s at %s-%d)", "conf_read_file_to_handle", "vq_config",
                      1234);
        benchmark::DoNotOptimize(buffer);
    }
}
BENCHMARK(BM_peer_snprintf);

}  // namespace

BENCHMARK_MAIN();
