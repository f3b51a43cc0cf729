// Reading and writing single values of a file registry of 1,000 values
// (10 keys of 100 values: strings, 32-bit numbers and 24-byte binaries),
// against GLib's GKeyFile keeping the same values in an INI file (groups for
// keys, numbers in decimal, binaries as hex text).
//
// Both sides do per operation what a process that shares the file must do:
//  - read: load the whole file and take one value out
//    (new_reg_get_key_value + new_reg_free, against g_key_file_load_from_file
//    + g_key_file_get_value);
//  - write: load the file, change one value and put a new file in its place
//    (new_reg_set_key_value, against load + g_key_file_set_value +
//    g_key_file_save_to_file, which writes a temporary file, syncs it and
//    renames it, as the registry does). The registry also takes and releases
//    its lock file around each write, which GKeyFile has no counterpart for.
// Every value read is checked against what was written, on both sides, and
// after the write runs both files are read back whole and compared with
// what the runs wrote last.
#include <benchmark/benchmark.h>
#include <glib.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "vq_glob/err.h"
#include "vq_glob/reg.h"

namespace {

constexpr int kKeys = 10;
constexpr int kValuesPerKey = 100;

struct Entry {
    std::string key;    // registry key path, INI group
    std::string name;
    uint32_t type = REG_TYPE_STRING;
    std::string bytes;  // as the registry stores them
    std::string text;   // as the INI file stores them
};

std::string hex_of(const std::string &bytes) {
    static const char kDigits[] = "0123456789abcdef";
    std::string text;
    for (unsigned char c : bytes) {
        text += kDigits[c >> 4];
        text += kDigits[c & 0xf];
    }
    return text;
}

// Entry n with data of generation g, so that every write changes the value.
void fill(Entry &e, int n, unsigned g) {
    switch (n % 3) {
        case 0:
            e.type = REG_TYPE_STRING;
            e.text = "value " + std::to_string(n) + " generation " + std::to_string(g) + " of some settings text";
            e.bytes = e.text + '\0';
            break;
        case 1: {
            e.type = REG_TYPE_DWORD;
            uint32_t number = static_cast<uint32_t>(n) * 7919u + g;
            e.bytes.assign(4, '\0');
            for (int i = 0; i < 4; ++i) {
                e.bytes[static_cast<size_t>(i)] = static_cast<char>((number >> (8 * i)) & 0xff);
            }
            e.text = std::to_string(number);
            break;
        }
        default:
            e.type = REG_TYPE_BINARY;
            e.bytes.clear();
            for (int i = 0; i < 24; ++i) {
                e.bytes += static_cast<char>((n * 31 + i * 7 + static_cast<int>(g)) & 0xff);
            }
            e.text = hex_of(e.bytes);
            break;
    }
}

struct Corpus {
    std::vector<Entry> entries;
    std::string reg_path;
    std::string ini_path;
    unsigned generation = 0;
};

bool reg_writes(const Entry &e);

bool write_ini(Corpus &c) {
    GKeyFile *kf = g_key_file_new();
    for (const Entry &e : c.entries) {
        g_key_file_set_value(kf, e.key.c_str(), e.name.c_str(), e.text.c_str());
    }
    gboolean ok = g_key_file_save_to_file(kf, c.ini_path.c_str(), nullptr);
    g_key_file_free(kf);
    return ok != FALSE;
}

Corpus &corpus() {
    static Corpus c = [] {
        Corpus made;
        std::filesystem::path dir = std::filesystem::temp_directory_path();
        made.reg_path = (dir / "registry_bench.reg").string();
        made.ini_path = (dir / "registry_bench.ini").string();
        for (const char *suffix : {"", ".lock", ".temp"}) {
            std::remove((made.reg_path + suffix).c_str());
        }
        for (int k = 0; k < kKeys; ++k) {
            for (int v = 0; v < kValuesPerKey; ++v) {
                Entry e;
                e.key = "SOFTWARE\\Velquist\\Bench\\Key" + std::to_string(k);
                e.name = "Value" + std::to_string(v);
                fill(e, k * kValuesPerKey + v, 0);
                made.entries.push_back(e);
            }
        }
        new_reg_set_filename(made.reg_path.c_str());
        for (const Entry &e : made.entries) {
            if (!reg_writes(e)) {
                std::fprintf(stderr, "registry setup failed: %s\n", err_get_error_msg());
                std::exit(1);
            }
        }
        if (!write_ini(made)) {
            std::fprintf(stderr, "INI setup failed\n");
            std::exit(1);
        }
        return made;
    }();
    new_reg_set_filename(c.reg_path.c_str());
    return c;
}

bool reg_reads(const Entry &e) {
    void *data = nullptr;
    uint32_t length = 0;
    bool same = new_reg_get_key_value(e.key.c_str(), e.name.c_str(), &data, &length, 0) == 1 &&
                std::string(static_cast<char *>(data), length) == e.bytes;
    new_reg_free(&data);
    return same;
}

bool ini_reads(const Corpus &c, const Entry &e) {
    GKeyFile *kf = g_key_file_new();
    bool same = false;
    if (g_key_file_load_from_file(kf, c.ini_path.c_str(), G_KEY_FILE_NONE, nullptr)) {
        gchar *value = g_key_file_get_value(kf, e.key.c_str(), e.name.c_str(), nullptr);
        same = value != nullptr && e.text == value;
        g_free(value);
    }
    g_key_file_free(kf);
    return same;
}

bool ini_writes(const Corpus &c, const Entry &e) {
    GKeyFile *kf = g_key_file_new();
    bool ok = g_key_file_load_from_file(kf, c.ini_path.c_str(), G_KEY_FILE_KEEP_COMMENTS, nullptr) != FALSE;
    if (ok) {
        g_key_file_set_value(kf, e.key.c_str(), e.name.c_str(), e.text.c_str());
        ok = g_key_file_save_to_file(kf, c.ini_path.c_str(), nullptr) != FALSE;
    }
    g_key_file_free(kf);
    return ok;
}

void BM_RegistryRead(benchmark::State &state) {
    Corpus &c = corpus();
    size_t n = 0;
    for (auto _ : state) {
        if (!reg_reads(c.entries[n])) {
            state.SkipWithError("a registry value read back wrong");
            break;
        }
        n = (n + 37) % c.entries.size();
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_GKeyFileRead(benchmark::State &state) {
    Corpus &c = corpus();
    size_t n = 0;
    for (auto _ : state) {
        if (!ini_reads(c, c.entries[n])) {
            state.SkipWithError("an INI value read back wrong");
            break;
        }
        n = (n + 37) % c.entries.size();
    }
    state.SetItemsProcessed(state.iterations());
}

// Both write runs change the same values in the same order, then every
// value of both files is read back.
// Returns the entries changed.
template <typename Write, typename Read>
std::vector<size_t> run_writes(benchmark::State &state, Write write, Read read) {
    Corpus &c = corpus();
    std::vector<size_t> changed;
    size_t n = 0;
    ++c.generation;
    for (auto _ : state) {
        Entry &e = c.entries[n];
        fill(e, static_cast<int>(n), c.generation);
        changed.push_back(n);
        if (!write(e)) {
            state.SkipWithError("a write failed");
            break;
        }
        n = (n + 37) % c.entries.size();
    }
    state.SetItemsProcessed(state.iterations());
    for (const Entry &e : c.entries) {
        if (!read(e)) {
            state.SkipWithError("a value written is not in the file");
            break;
        }
    }
    return changed;
}

bool reg_writes(const Entry &e) {
    return new_reg_set_key_value(e.key.c_str(), e.name.c_str(), e.bytes.data(), static_cast<uint32_t>(e.bytes.size()),
                                 e.type, 0) == 1;
}

void BM_RegistryWrite(benchmark::State &state) {
    run_writes(state, reg_writes, reg_reads);
    // The INI file gets the same values, outside the timing, for the next run.
    write_ini(corpus());
}

void BM_GKeyFileWrite(benchmark::State &state) {
    Corpus &c = corpus();
    std::vector<size_t> changed = run_writes(
        state, [&](const Entry &e) { return ini_writes(c, e); }, [&](const Entry &e) { return ini_reads(c, e); });
    // The registry gets the same values, outside the timing, for the next run.
    for (size_t n : changed) {
        reg_writes(c.entries[n]);
    }
}

}  // namespace

BENCHMARK(BM_RegistryRead);
BENCHMARK(BM_GKeyFileRead);
BENCHMARK(BM_RegistryWrite)->Iterations(300);
BENCHMARK(BM_GKeyFileWrite)->Iterations(300);

BENCHMARK_MAIN();
