// Reading configuration text against an obvious peer: std::getline over a
// std::istringstream, splitting "name=value" lines into an ordered map per
// section, which is how a small INI reader is usually written. Both read one
// section of N fields; the library also keeps file order and types the fields
// by their values. Writing is measured against the peer's streaming back out.
//
// Typed get by constant (2,000 fields over 50 sections, constants visited in
// a scattered order) is measured walking the sections and through the hash
// index, against a std::unordered_map<int, std::string> lookup, which is what
// a program keeping its settings by number would write. The library's calls
// also check the arguments, the access flags and the type.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <map>
#include <unordered_map>
#include <vector>
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

constexpr int kSections = 50;
constexpr int kFieldsPerSection = 40;
constexpr int kFields = kSections * kFieldsPerSection;

// A table of kSections sections of kFieldsPerSection string fields each;
// field constants are 0 .. kFields-1, section constants 100000 and up. In
// order, each section holds a run of constants; interleaved, section s holds
// s, s + kSections, ..., so that every section's range spans nearly all.
struct BigTable {
    std::vector<std::string> names;
    std::vector<conf_table_row> rows;
    explicit BigTable(bool interleaved) {
        names.reserve(kSections + kFields);
        for (int s = 0; s < kSections; ++s) {
            names.push_back("section " + std::to_string(s));
            rows.push_back({100000 + s, names.back().c_str(), 0, nullptr, 0, 0, nullptr});
            for (int f = 0; f < kFieldsPerSection; ++f) {
                int32_t constant = interleaved ? f * kSections + s : s * kFieldsPerSection + f;
                names.push_back("field " + std::to_string(constant));
                rows.push_back({constant, names.back().c_str(), CONF_TYPE_STRING, "value", 0, 0, nullptr});
            }
        }
    }
};

// The constants in a scattered order, so that neither side is helped by
// visiting neighbours.
std::vector<int32_t> scattered() {
    std::vector<int32_t> order;
    for (int i = 0; i < kFields; ++i) {
        order.push_back(static_cast<int32_t>((i * 769) % kFields));
    }
    return order;
}

void get_by_const(benchmark::State &state, bool hashed) {
    BigTable table(state.range(0) != 0);
    void *h = nullptr;
    conf_allocate_handle(&h);
    if (hashed) {
        conf_use_hash_table(h, 1, 4099);
    }
    conf_set_table(h, table.rows.data(), static_cast<int32_t>(table.rows.size()));
    std::vector<int32_t> order = scattered();
    size_t i = 0;
    for (auto _ : state) {
        char *value = nullptr;
        benchmark::DoNotOptimize(conf_get_string_field_by_const(h, order[i], &value));
        benchmark::DoNotOptimize(value);
        i = i + 1 == order.size() ? 0 : i + 1;
    }
    conf_free_handle(&h);
    state.SetItemsProcessed(state.iterations());
}

void BM_conf_get_string_by_const_walk(benchmark::State &state) { get_by_const(state, false); }
void BM_conf_get_string_by_const_hashed(benchmark::State &state) { get_by_const(state, true); }

void BM_unordered_map_int_string_find(benchmark::State &state) {
    std::unordered_map<int, std::string> settings;
    for (int c = 0; c < kFields; ++c) {
        settings.emplace(c, "value");
    }
    std::vector<int32_t> order = scattered();
    size_t i = 0;
    for (auto _ : state) {
        auto it = settings.find(order[i]);
        benchmark::DoNotOptimize(it->second.data());
        i = i + 1 == order.size() ? 0 : i + 1;
    }
    state.SetItemsProcessed(state.iterations());
}

}  // namespace

// Argument: 0 constants in runs per section, 1 interleaved over the sections.
BENCHMARK(BM_conf_get_string_by_const_walk)->Arg(0)->Arg(1);
BENCHMARK(BM_conf_get_string_by_const_hashed)->Arg(0)->Arg(1);
BENCHMARK(BM_unordered_map_int_string_find);
BENCHMARK(BM_conf_read_buffer)->Arg(100)->Arg(100000);
BENCHMARK(BM_getline_map_read)->Arg(100)->Arg(100000);
BENCHMARK(BM_conf_write_buffer)->Arg(100)->Arg(100000);
BENCHMARK(BM_ostringstream_map_write)->Arg(100)->Arg(100000);

BENCHMARK_MAIN();
