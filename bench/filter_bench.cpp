// Skip decisions per second: a filter with the ten-pair rule set of
// filter_bench_rules.h (six include pairs, four exclude pairs) asked about
// each of 200,000 generated paths below its base directory, files and
// directories up to seven levels deep, without touching the file system.
//
// The peer is what a POSIX program would write without the library: the same
// rules evaluated with glibc's fnmatch(FNM_PATHNAME | FNM_CASEFOLD) in a
// straightforward loop. A pair fits when its non-recursive part matches some
// leading part of the relative path (cut at each separator in turn) and its
// recursive part the object's name; an object is kept when some include pair
// fits and no exclude pair does. Before anything is timed, both sides decide
// every path and the program stops when they differ anywhere.
#include <benchmark/benchmark.h>
#include <fnmatch.h>

#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "filter_bench_rules.h"
#include "vq_glob/conf.h"
#include "vq_glob/err.h"
#include "vq_glob/filter.h"

namespace {

constexpr size_t kPaths = 200000;
constexpr int kFnmatchFlags = FNM_PATHNAME | FNM_CASEFOLD;
const std::string kBase = "/srv/replica/project";

struct Object {
    std::string path;  // full path below kBase
    int32_t type;      // 1 file, 2 directory
};

// A source tree's shape: top-level folders, nested folders, and names with
// the extensions such a tree holds, in rough proportion.
std::vector<Object> generate_paths() {
    const char *tops[] = {"src", "include", "docs", "build", "tests", "tools", "third_party", "Src", "scripts"};
    const char *folders[] = {"core", "net", "util", "io", "detail", "impl", "v2", "old", "x86_64", "Debug"};
    const char *stems[] = {"main", "parser", "buffer", "socket", "config", "readme", "notes", "run", "a", "CamelCase"};
    const char *extensions[] = {".c", ".h", ".cpp", ".o", ".log", ".tmp", ".txt", ".md", ".py", "", ".H", ".C"};
    std::mt19937 random(20240611u);
    auto pick = [&random](const auto &items) {
        return items[random() % (sizeof items / sizeof items[0])];
    };
    std::vector<Object> objects;
    objects.reserve(kPaths);
    while (objects.size() < kPaths) {
        std::string path = kBase + "/" + pick(tops);
        size_t depth = random() % 6;
        for (size_t level = 0; level < depth; ++level) {
            path += std::string("/") + pick(folders);
        }
        if (random() % 10 == 0) {
            objects.push_back({path, 2});
            continue;
        }
        std::string stem = random() % 40 == 0 ? std::string("Makefile") : std::string(pick(stems)) + pick(extensions);
        objects.push_back({path + "/" + stem + (random() % 7 == 0 ? std::to_string(random() % 100) : ""), 1});
    }
    return objects;
}

// ---- The peer ---------------------------------------------------------------------

bool pair_fits(const vq_bench::FilterRulePair &pair, char *relative, const char *name) {
    for (char *cut = relative;; ++cut) {
        cut = std::strchr(cut, '/');
        if (cut != nullptr) {
            *cut = '\0';
        }
        bool leading = fnmatch(pair.non_recursive, relative, kFnmatchFlags) == 0;
        if (cut != nullptr) {
            *cut = '/';
        }
        if (leading) {
            return fnmatch(pair.recursive, name, kFnmatchFlags) == 0;
        }
        if (cut == nullptr) {
            return false;
        }
    }
}

template <size_t kCount>
bool any_fits(const vq_bench::FilterRulePair (&pairs)[kCount], char *relative, const char *name) {
    for (const vq_bench::FilterRulePair &pair : pairs) {
        if (pair_fits(pair, relative, name)) {
            return true;
        }
    }
    return false;
}

// 1 to leave the object out, as Skip answers.
int32_t fnmatch_skip(const std::string &path, std::string &scratch) {
    if (path.size() <= kBase.size() + 1 || strncasecmp(path.c_str(), kBase.c_str(), kBase.size()) != 0 ||
        path[kBase.size()] != '/') {
        return 1;
    }
    scratch.assign(path, kBase.size() + 1);
    char *relative = scratch.data();
    const char *slash = std::strrchr(relative, '/');
    const char *name = slash != nullptr ? slash + 1 : relative;
    if (!any_fits(vq_bench::kFilterIncludeRules, relative, name)) {
        return 1;
    }
    return any_fits(vq_bench::kFilterExcludeRules, relative, name) ? 1 : 0;
}

// ---- Set-up and the agreement check -----------------------------------------------

struct Fixture {
    std::vector<Object> objects = generate_paths();
    void *filter = nullptr;

    Fixture() {
        void *conf = nullptr;
        std::string text = vq_bench::filter_bench_config(kBase);
        if (conf_allocate_handle(&conf) != 1 || conf_read_buffer_to_handle(conf, text.c_str()) != 1 ||
            init_filter(&filter, conf) != 1) {
            std::fprintf(stderr, "filter set-up failed: %s\n", err_get_error_msg());
            std::exit(1);
        }
        conf_free_handle(&conf);
    }
    ~Fixture() { close_filter(filter); }
};

Fixture &fixture() {
    static Fixture instance;
    return instance;
}

// Both sides decide every path; any difference stops the program.
void check_agreement() {
    Fixture &f = fixture();
    std::string scratch;
    size_t kept = 0;
    size_t differences = 0;
    for (const Object &object : f.objects) {
        int32_t skip = -1;
        if (Skip(f.filter, object.path.c_str(), object.type, &skip) != 1) {
            std::fprintf(stderr, "Skip failed on %s: %s\n", object.path.c_str(), err_get_error_msg());
            std::exit(1);
        }
        if (skip != fnmatch_skip(object.path, scratch) && ++differences <= 10) {
            std::fprintf(stderr, "differ on %s (type %d): Skip %d\n", object.path.c_str(), object.type, skip);
        }
        kept += skip == 0 ? 1 : 0;
    }
    if (differences != 0) {
        std::fprintf(stderr, "%zu of %zu decisions differ\n", differences, f.objects.size());
        std::exit(1);
    }
    std::printf("agreement: %zu paths, %zu kept and %zu skipped by both\n", f.objects.size(), kept,
                f.objects.size() - kept);
}

void BM_vq_glob_Skip(benchmark::State &state) {
    Fixture &f = fixture();
    int64_t kept = 0;
    for (auto _ : state) {
        for (const Object &object : f.objects) {
            int32_t skip = 1;
            Skip(f.filter, object.path.c_str(), object.type, &skip);
            kept += skip == 0 ? 1 : 0;
        }
    }
    benchmark::DoNotOptimize(kept);
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(f.objects.size()));
}

void BM_fnmatch_loop(benchmark::State &state) {
    Fixture &f = fixture();
    std::string scratch;
    int64_t kept = 0;
    for (auto _ : state) {
        for (const Object &object : f.objects) {
            kept += fnmatch_skip(object.path, scratch) == 0 ? 1 : 0;
        }
    }
    benchmark::DoNotOptimize(kept);
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(f.objects.size()));
}

BENCHMARK(BM_vq_glob_Skip)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_fnmatch_loop)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char **argv) {
    check_agreement();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
