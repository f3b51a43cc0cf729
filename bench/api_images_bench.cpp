// Starting and reaping a child: /bin/true run to its end through
// api_sync_execute_user_image (one handle, run again and again, its exit
// code recorded each time) against posix_spawn + waitpid, the least a
// program can do to run a child and collect its status.
#include <benchmark/benchmark.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cstdint>

#include "vq_glob/api.h"
#include "vq_glob/err.h"

extern char **environ;

namespace {

constexpr const char *kImage = "/bin/true";

void BM_ApiSyncExecute(benchmark::State &state) {
    int32_t h = -1;
    if (api_allocate_handle(&h, 0) != 1 || api_set_user_image_name(h, kImage) != 1) {
        state.SkipWithError("cannot set up the handle");
        return;
    }
    for (auto _ : state) {
        if (api_sync_execute_user_image(h) != 1) {
            state.SkipWithError(err_get_error_msg());
            break;
        }
    }
    api_free_handle(h);
}
BENCHMARK(BM_ApiSyncExecute)->UseRealTime();

void BM_PosixSpawnWaitpid(benchmark::State &state) {
    char *argv[] = {const_cast<char *>(kImage), nullptr};
    for (auto _ : state) {
        pid_t pid = 0;
        int status = 0;
        if (posix_spawn(&pid, kImage, nullptr, nullptr, argv, environ) != 0 || waitpid(pid, &status, 0) != pid ||
            !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            state.SkipWithError("posix_spawn/waitpid failed");
            break;
        }
    }
}
BENCHMARK(BM_PosixSpawnWaitpid)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
