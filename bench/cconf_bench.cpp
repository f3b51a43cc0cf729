// The cached configuration against its peer, reading the file each time: a
// fetch and release of an unchanged cached file (cconf_allocate_handle +
// cconf_free_handle: one query of the file's last-write time and two locks)
// against conf_allocate_handle + conf_read_file_to_handle + conf_free_handle
// of the same file, on one and on two threads. Both sides check the value of
// one field of what they got on every round.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>

#include "vq_glob/cconf.h"
#include "vq_glob/conf.h"

namespace {

constexpr int32_t kAnswer = 2;
constexpr int32_t kAnswerValue = 4242;
const conf_table_row kTable[] = {
    {1, "Settings", CONF_TYPE_SECTION, nullptr, 0, 0, nullptr},
    {kAnswer, "answer", CONF_TYPE_INT, nullptr, 0, 0, nullptr},
};

// A settings file of 40 text fields and the checked number, made once; the
// cache is set up once for all runs.
const std::string &settings_file() {
    static std::once_flag once;
    static std::string path;
    std::call_once(once, [] {
        path = (std::filesystem::temp_directory_path() / "vq_cconf_bench.cfg").string();
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out << "[Settings]\n";
        for (int i = 0; i < 40; ++i) {
            out << "field" << i << "=some value number " << i << "\n";
        }
        out << "answer=" << kAnswerValue << "\n";
        cconf_set_lock_critical_section(1);
        cconf_init(64);
    });
    return path;
}

bool answer_is_right(void *h) {
    int32_t value = 0;
    return conf_get_int_field_by_const(h, kAnswer, &value) == 1 && value == kAnswerValue;
}

void BM_cconf_fetch_unchanged(benchmark::State &state) {
    const std::string &path = settings_file();
    for (auto _ : state) {
        void *h = nullptr;
        if (cconf_allocate_handle(&h, path.c_str(), kTable, 2) != 1 || !answer_is_right(h) ||
            cconf_free_handle(path.c_str()) != 1) {
            state.SkipWithError("cached fetch failed or gave a wrong value");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_conf_read_each_time(benchmark::State &state) {
    const std::string &path = settings_file();
    for (auto _ : state) {
        void *h = nullptr;
        bool ok = conf_allocate_handle(&h) == 1 && conf_set_table(h, kTable, 2) == 1 &&
                  conf_read_file_to_handle(h, path.c_str()) == 1 && answer_is_right(h);
        if (h != nullptr) {
            conf_free_handle(&h);
        }
        if (!ok) {
            state.SkipWithError("reading the file failed or gave a wrong value");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK(BM_cconf_fetch_unchanged)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(BM_conf_read_each_time)->Threads(1)->Threads(2)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
