// The locked list against its obvious peer, std::list<void*> behind a
// std::mutex: build a list of N items, walk it reading every item, drop it.
//
// The peer takes its mutex once per append and once for the whole walk, which
// is how such a list is normally used; the locked list takes its lock in every
// call, the price of letting other threads add and remove during a walk.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <list>
#include <mutex>
#include <vector>

#include "vq_glob/llist.h"

namespace {

std::vector<int> make_items(int64_t n) { return std::vector<int>(static_cast<size_t>(n), 1); }

void BM_lln_append_iterate(benchmark::State &state) {
    std::vector<int> items = make_items(state.range(0));
    for (auto _ : state) {
        void *list = lln_init_list();
        for (int &item : items) {
            lln_add_node_last(list, &item);
        }
        int64_t sum = 0;
        void *it = lln_get_list_iterator(list);
        for (lln_iterator_move_first(it); !lln_iterator_end(it); lln_iterator_move_next(it)) {
            sum += *static_cast<int *>(lln_iterator_get_data(it));
        }
        lln_free_list_iterator(it);
        lln_dispose_list(list);
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_std_list_mutex_append_iterate(benchmark::State &state) {
    std::vector<int> items = make_items(state.range(0));
    for (auto _ : state) {
        std::mutex mutex;
        std::list<void *> list;
        for (int &item : items) {
            std::lock_guard<std::mutex> guard(mutex);
            list.push_back(&item);
        }
        int64_t sum = 0;
        {
            std::lock_guard<std::mutex> guard(mutex);
            for (void *data : list) {
                sum += *static_cast<int *>(data);
            }
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

}  // namespace

BENCHMARK(BM_lln_append_iterate)->Arg(1 << 10)->Arg(1 << 16);
BENCHMARK(BM_std_list_mutex_append_iterate)->Arg(1 << 10)->Arg(1 << 16);

BENCHMARK_MAIN();
