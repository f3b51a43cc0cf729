// The hash table against std::unordered_map<std::string, void *> behind one
// std::mutex, the usual way to share a map between threads.
//
// Each thread works on keys of its own (so mostly on rows of its own): look-ups
// of present keys, and insert-then-remove pairs. With two threads the table's
// per-row locks let both run at once, while the peer's one mutex makes them
// take turns; figures are items per second of wall-clock time over all
// threads, so scaling shows directly.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "vq_glob/hash.h"

namespace {

constexpr size_t kKeysPerThread = 4096;
constexpr int kMaxThreads = 2;

std::vector<std::string> keys_of(int thread, const char *prefix) {
    std::vector<std::string> keys;
    keys.reserve(kKeysPerThread);
    for (size_t n = 0; n < kKeysPerThread; ++n) {
        keys.push_back(std::string(prefix) + std::to_string(thread) + "/" + std::to_string(n));
    }
    return keys;
}

// The peer: one map, one mutex.
struct LockedMap {
    std::mutex mutex;
    std::unordered_map<std::string, void *> map;

    bool insert(const std::string &key, void *data) {
        std::lock_guard<std::mutex> guard(mutex);
        return map.emplace(key, data).second;
    }
    void *find(const std::string &key) {
        std::lock_guard<std::mutex> guard(mutex);
        auto it = map.find(key);
        return it != map.end() ? it->second : nullptr;
    }
    bool remove(const std::string &key) {
        std::lock_guard<std::mutex> guard(mutex);
        return map.erase(key) != 0;
    }
};

void *g_table = nullptr;
LockedMap *g_map = nullptr;
int g_value = 0;

// Thread 0 builds the shared container holding every thread's "present" keys
// before the timed loop starts (the framework waits for all threads there).
void set_up(const benchmark::State &state, bool table) {
    if (state.thread_index() != 0) {
        return;
    }
    if (table) {
        g_table = slh_allocate_hash_table(static_cast<int32_t>(kMaxThreads * kKeysPerThread * 2));
    } else {
        g_map = new LockedMap;
        g_map->map.reserve(kMaxThreads * kKeysPerThread * 2);
    }
    for (int t = 0; t < kMaxThreads; ++t) {
        for (const std::string &key : keys_of(t, "present/")) {
            table ? (void)slh_insert_to_table(g_table, key.c_str(), &g_value)
                  : (void)g_map->insert(key, &g_value);
        }
    }
}

void tear_down(const benchmark::State &state) {
    if (state.thread_index() != 0) {
        return;
    }
    if (g_table != nullptr) {
        slh_free_hash_table(g_table);
        g_table = nullptr;
    }
    delete g_map;
    g_map = nullptr;
}

void BM_slh_find(benchmark::State &state) {
    set_up(state, true);
    const std::vector<std::string> keys = keys_of(state.thread_index(), "present/");
    size_t n = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(slh_get_user_data(g_table, keys[n].c_str()));
        n = (n + 1) % keys.size();
    }
    state.SetItemsProcessed(state.iterations());
    tear_down(state);
}

void BM_mutex_map_find(benchmark::State &state) {
    set_up(state, false);
    const std::vector<std::string> keys = keys_of(state.thread_index(), "present/");
    size_t n = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(g_map->find(keys[n]));
        n = (n + 1) % keys.size();
    }
    state.SetItemsProcessed(state.iterations());
    tear_down(state);
}

// One item is an insert of a new key followed by its removal.
void BM_slh_insert_remove(benchmark::State &state) {
    set_up(state, true);
    const std::vector<std::string> keys = keys_of(state.thread_index(), "new/");
    size_t n = 0;
    for (auto _ : state) {
        slh_insert_to_table(g_table, keys[n].c_str(), &g_value);
        slh_remove_from_table(g_table, keys[n].c_str());
        n = (n + 1) % keys.size();
    }
    state.SetItemsProcessed(state.iterations());
    tear_down(state);
}

void BM_mutex_map_insert_remove(benchmark::State &state) {
    set_up(state, false);
    const std::vector<std::string> keys = keys_of(state.thread_index(), "new/");
    size_t n = 0;
    for (auto _ : state) {
        g_map->insert(keys[n], &g_value);
        g_map->remove(keys[n]);
        n = (n + 1) % keys.size();
    }
    state.SetItemsProcessed(state.iterations());
    tear_down(state);
}

}  // namespace

BENCHMARK(BM_slh_find)->Threads(1)->Threads(kMaxThreads)->UseRealTime();
BENCHMARK(BM_mutex_map_find)->Threads(1)->Threads(kMaxThreads)->UseRealTime();
BENCHMARK(BM_slh_insert_remove)->Threads(1)->Threads(kMaxThreads)->UseRealTime();
BENCHMARK(BM_mutex_map_insert_remove)->Threads(1)->Threads(kMaxThreads)->UseRealTime();

BENCHMARK_MAIN();
