// Reading configuration text against an obvious peer: std::getline over a
// std::istringstream, splitting "name=value" lines into an ordered map per
// section, which is how a small INI reader is usually written. Both read one
// section of N fields; the library also keeps file order and types the fields
// by their values. Writing is measured against the peer's streaming back out.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <map>
#include <sstream>
#include <string>

#include "vq_glob/conf.h"

namespace {

std::string make_text(int64_t n) {
    std::string text = "[section]\n";
    for (int64_t i = 0; i < n; ++i) {
        text += "field" + std::to_string(i) + "=value " + std::to_string(i) + "\n";
    }
    return text;
}

void BM_conf_read_buffer(benchmark::State &state) {
    std::string text = make_text(state.range(0));
    for (auto _ : state) {
        void *h = nullptr;
        conf_allocate_handle(&h);
        benchmark::DoNotOptimize(conf_read_buffer_to_handle(h, text.c_str()));
        conf_free_handle(&h);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_getline_map_read(benchmark::State &state) {
    std::string text = make_text(state.range(0));
    for (auto _ : state) {
        std::map<std::string, std::map<std::string, std::string>> sections;
        std::istringstream in(text);
        std::string line;
        std::map<std::string, std::string> *current = nullptr;
        while (std::getline(in, line)) {
            if (!line.empty() && line[0] == '[') {
                current = &sections[line.substr(1, line.find(']') - 1)];
            } else if (current != nullptr) {
                size_t eq = line.find('=');
                if (eq != std::string::npos) {
                    (*current)[line.substr(0, eq)] = line.substr(eq + 1);
                }
            }
        }
        benchmark::DoNotOptimize(sections.size());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_conf_write_buffer(benchmark::State &state) {
    std::string text = make_text(state.range(0));
    void *h = nullptr;
    conf_allocate_handle(&h);
    conf_read_buffer_to_handle(h, text.c_str());
    for (auto _ : state) {
        char *out = nullptr;
        conf_write_buffer(h, &out);
        benchmark::DoNotOptimize(out);
        conf_free_buffer(out);
    }
    conf_free_handle(&h);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_ostringstream_map_write(benchmark::State &state) {
    std::map<std::string, std::string> fields;
    for (int64_t i = 0; i < state.range(0); ++i) {
        fields["field" + std::to_string(i)] = "value " + std::to_string(i);
    }
    for (auto _ : state) {
        std::ostringstream out;
        out << "[section]\n";
        for (const auto &[name, value] : fields) {
            out << name << '=' << value << '\n';
        }
        benchmark::DoNotOptimize(out.str().size());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

}  // namespace

BENCHMARK(BM_conf_read_buffer)->Arg(100)->Arg(100000);
BENCHMARK(BM_getline_map_read)->Arg(100)->Arg(100000);
BENCHMARK(BM_conf_write_buffer)->Arg(100)->Arg(100000);
BENCHMARK(BM_ostringstream_map_write)->Arg(100)->Arg(100000);

BENCHMARK_MAIN();
