// Reading a large configuration against two established INI readers:
//   - GLib's GKeyFile (g_key_file_load_from_data / g_key_file_load_from_file),
//     which keeps groups and keys in order with a hash index, like a handle;
//   - inih (ini_parse_string / ini_parse), a callback parser, with a handler
//     that stores every value into std::map<section, std::map<name, value>>
//     (the shape inih's own C++ INIReader keeps).
// All three read the same text: plain "name=value" lines under "[section]"
// headers, which every reader parses alike. Two shapes: many sections
// (2,000 x 20 fields) and one huge section (100,000 fields).
//
// The read rows repeat the read in one process, on a heap warmed by the
// reads before: a steady state, not what a program pays to read its
// configuration once at start-up (freed memory handed back to the system
// makes every first read fault its pages in again). conf_oneshot_bench
// measures that: whole fresh processes, wall and CPU time and peak RSS.
//
// Lookups: after one read, every field is found by section and name:
// conf_get_string_field per field (the value stays the handle's), against
// g_key_file_get_value (which copies it) and two map look-ups in the inih
// store.
#include <benchmark/benchmark.h>
#include <glib.h>
#include <ini.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "vq_glob/conf.h"

namespace {

struct Shape {
    const char *name;
    int sections;
    int fields;  // per section
};

constexpr Shape kShapes[] = {{"many_sections", 2000, 20}, {"one_section", 1, 100000}};

// One shape's text, its names in order, and the same text in a file.
struct Corpus {
    std::string text;
    std::vector<std::pair<std::string, std::vector<std::string>>> names;
    std::string path;
    int64_t fields = 0;
};

Corpus make_corpus(const Shape &shape) {
    Corpus c;
    char line[160];
    for (int s = 0; s < shape.sections; ++s) {
        std::string section = "section" + std::to_string(s);
        c.text += "[" + section + "]\n";
        std::vector<std::string> fields;
        fields.reserve(static_cast<size_t>(shape.fields));
        for (int f = 0; f < shape.fields; ++f) {
            std::snprintf(line, sizeof line, "field%d", f);
            fields.emplace_back(line);
            std::snprintf(line, sizeof line, "field%d=value %d of section %d, some text\n", f, f, s);
            c.text += line;
        }
        c.fields += shape.fields;
        c.names.emplace_back(std::move(section), std::move(fields));
    }
    c.path =
        (std::filesystem::temp_directory_path() / (std::string("conf_peer_bench_") + shape.name + ".conf"))
            .string();
    std::ofstream(c.path, std::ios::binary) << c.text;
    return c;
}

std::vector<Corpus> &corpora() {
    static std::vector<Corpus> all = [] {
        std::vector<Corpus> v;
        for (const Shape &s : kShapes) {
            v.push_back(make_corpus(s));
        }
        return v;
    }();
    return all;
}

void set_counters(benchmark::State &state, const Corpus &c) {
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(c.text.size()));
    state.SetItemsProcessed(state.iterations() * c.fields);
}

// ---- the three readers ----------------------------------------------------------------

void *read_ours(const Corpus &c, bool from_file) {
    void *h = nullptr;
    conf_allocate_handle(&h);
    int ok = from_file ? conf_read_file_to_handle(h, c.path.c_str())
                       : conf_read_buffer_to_handle(h, c.text.c_str());
    if (ok == 0) {
        conf_free_handle(&h);
    }
    return h;
}

GKeyFile *read_gkeyfile(const Corpus &c, bool from_file) {
    GKeyFile *kf = g_key_file_new();
    gboolean ok = from_file
                      ? g_key_file_load_from_file(kf, c.path.c_str(), G_KEY_FILE_NONE, nullptr)
                      : g_key_file_load_from_data(kf, c.text.data(), c.text.size(), G_KEY_FILE_NONE, nullptr);
    if (!ok) {
        g_key_file_free(kf);
        return nullptr;
    }
    return kf;
}

// The inih store: sections by name, fields by name; the handler remembers the
// section it is filling, so a field costs one map insertion.
struct IniStore {
    std::map<std::string, std::map<std::string, std::string>> sections;
    std::map<std::string, std::string> *current = nullptr;
    std::string current_name;
};

int ini_store(void *user, const char *section, const char *name, const char *value) {
    auto *store = static_cast<IniStore *>(user);
    if (store->current == nullptr || store->current_name != section) {
        store->current_name = section;
        store->current = &store->sections[store->current_name];
    }
    (*store->current)[name] = value;
    return 1;
}

bool read_inih(const Corpus &c, bool from_file, IniStore &store) {
    int error = from_file ? ini_parse(c.path.c_str(), ini_store, &store)
                          : ini_parse_string(c.text.c_str(), ini_store, &store);
    return error == 0;
}

// ---- field counts as each reader sees them, so that a reader that parsed
// ---- the text differently is reported instead of timed -----------------------------------

int64_t count_ours(void *h) {
    int64_t n = 0;
    void *sections = nullptr;
    conf_init_section_search_context(h, &sections);
    char *section = nullptr;
    while (conf_get_next_section(sections, &section) == 1) {
        void *fields = nullptr;
        conf_init_field_search_context(h, section, &fields);
        char *field = nullptr;
        while (conf_get_next_field(fields, &field) == 1) {
            ++n;
        }
        conf_free_search_context(fields);
    }
    conf_free_search_context(sections);
    return n;
}

int64_t count_gkeyfile(GKeyFile *kf) {
    int64_t n = 0;
    gchar **groups = g_key_file_get_groups(kf, nullptr);
    for (gchar **g = groups; *g != nullptr; ++g) {
        gsize keys = 0;
        g_strfreev(g_key_file_get_keys(kf, *g, &keys, nullptr));
        n += static_cast<int64_t>(keys);
    }
    g_strfreev(groups);
    return n;
}

int64_t count_inih(const IniStore &store) {
    int64_t n = 0;
    for (const auto &section : store.sections) {
        n += static_cast<int64_t>(section.second.size());
    }
    return n;
}

// ---- reading ---------------------------------------------------------------------------

void BM_read_ours(benchmark::State &state, int shape, bool from_file) {
    const Corpus &c = corpora()[static_cast<size_t>(shape)];
    void *check = read_ours(c, from_file);
    if (check == nullptr || count_ours(check) != c.fields) {
        state.SkipWithError("vq_glob did not read every field");
        conf_free_handle(&check);
        return;
    }
    conf_free_handle(&check);
    for (auto _ : state) {
        void *h = read_ours(c, from_file);
        benchmark::DoNotOptimize(h);
        conf_free_handle(&h);
    }
    set_counters(state, c);
}

void BM_read_gkeyfile(benchmark::State &state, int shape, bool from_file) {
    const Corpus &c = corpora()[static_cast<size_t>(shape)];
    GKeyFile *check = read_gkeyfile(c, from_file);
    bool complete = check != nullptr && count_gkeyfile(check) == c.fields;
    if (check != nullptr) {
        g_key_file_free(check);
    }
    if (!complete) {
        state.SkipWithError("GKeyFile did not read every field");
        return;
    }
    for (auto _ : state) {
        GKeyFile *kf = read_gkeyfile(c, from_file);
        benchmark::DoNotOptimize(kf);
        g_key_file_free(kf);
    }
    set_counters(state, c);
}

void BM_read_inih(benchmark::State &state, int shape, bool from_file) {
    const Corpus &c = corpora()[static_cast<size_t>(shape)];
    {
        IniStore check;
        if (!read_inih(c, from_file, check) || count_inih(check) != c.fields) {
            state.SkipWithError("inih did not read every field");
            return;
        }
    }
    for (auto _ : state) {
        IniStore store;
        benchmark::DoNotOptimize(read_inih(c, from_file, store));
    }
    set_counters(state, c);
}

// ---- looking every field up after one read ------------------------------------------------

void BM_lookup_ours(benchmark::State &state, int shape) {
    const Corpus &c = corpora()[static_cast<size_t>(shape)];
    void *h = read_ours(c, false);
    if (h == nullptr) {
        state.SkipWithError("vq_glob read failed");
        return;
    }
    // Every field by section and field name, its value handed out as the
    // handle's own text (the first pass types the untyped fields as strings).
    int64_t found = 0;
    for (auto _ : state) {
        for (const auto &[section, fields] : c.names) {
            for (const std::string &field : fields) {
                char *value = nullptr;
                if (conf_get_string_field(h, section.c_str(), field.c_str(), &value) == 1) {
                    benchmark::DoNotOptimize(value);
                    ++found;
                }
            }
        }
    }
    conf_free_handle(&h);
    if (found != state.iterations() * c.fields) {
        state.SkipWithError("vq_glob lookups missed fields");
    }
    state.SetItemsProcessed(state.iterations() * c.fields);
}

void BM_lookup_gkeyfile(benchmark::State &state, int shape) {
    const Corpus &c = corpora()[static_cast<size_t>(shape)];
    GKeyFile *kf = read_gkeyfile(c, false);
    if (kf == nullptr) {
        state.SkipWithError("GKeyFile read failed");
        return;
    }
    int64_t found = 0;
    for (auto _ : state) {
        for (const auto &[section, fields] : c.names) {
            for (const std::string &field : fields) {
                gchar *value = g_key_file_get_value(kf, section.c_str(), field.c_str(), nullptr);
                found += value != nullptr;
                g_free(value);
            }
        }
    }
    g_key_file_free(kf);
    if (found != state.iterations() * c.fields) {
        state.SkipWithError("GKeyFile lookups missed fields");
    }
    state.SetItemsProcessed(state.iterations() * c.fields);
}

void BM_lookup_inih(benchmark::State &state, int shape) {
    const Corpus &c = corpora()[static_cast<size_t>(shape)];
    IniStore store;
    if (!read_inih(c, false, store)) {
        state.SkipWithError("inih read failed");
        return;
    }
    int64_t found = 0;
    for (auto _ : state) {
        for (const auto &[section, fields] : c.names) {
            auto s = store.sections.find(section);
            if (s == store.sections.end()) {
                continue;
            }
            for (const std::string &field : fields) {
                auto f = s->second.find(field);
                if (f != s->second.end()) {
                    benchmark::DoNotOptimize(f->second.data());
                    ++found;
                }
            }
        }
    }
    if (found != state.iterations() * c.fields) {
        state.SkipWithError("inih lookups missed fields");
    }
    state.SetItemsProcessed(state.iterations() * c.fields);
}

void register_all() {
    for (int shape = 0; shape < static_cast<int>(std::size(kShapes)); ++shape) {
        std::string s = kShapes[shape].name;
        for (bool file : {false, true}) {
            std::string from = file ? "/file" : "/buffer";
            benchmark::RegisterBenchmark(("read/" + s + from + "/vq_glob").c_str(), BM_read_ours, shape, file)
                ->Unit(benchmark::kMillisecond);
            benchmark::RegisterBenchmark(("read/" + s + from + "/gkeyfile").c_str(), BM_read_gkeyfile, shape,
                                         file)
                ->Unit(benchmark::kMillisecond);
            benchmark::RegisterBenchmark(("read/" + s + from + "/inih_map").c_str(), BM_read_inih, shape,
                                         file)
                ->Unit(benchmark::kMillisecond);
        }
        benchmark::RegisterBenchmark(("lookup/" + s + "/vq_glob").c_str(), BM_lookup_ours,
                                     shape)
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("lookup/" + s + "/gkeyfile").c_str(), BM_lookup_gkeyfile, shape)
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("lookup/" + s + "/inih_map").c_str(), BM_lookup_inih, shape)
            ->Unit(benchmark::kMillisecond);
    }
}

}  // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    register_all();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    for (const Corpus &c : corpora()) {
        std::error_code ec;
        std::filesystem::remove(c.path, ec);
    }
    return 0;
}
