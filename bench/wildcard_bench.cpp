// The name matcher against glibc's fnmatch (flags 0), the matcher a POSIX
// program would otherwise call: typical file-selection patterns, path-like
// names, and a many-star pattern that makes naive backtracking explode.
//
// The two differ in small rules (fnmatch knows brackets and escapes, and "**"
// at the end), none of which the patterns here use, so both answer the same.
#include <benchmark/benchmark.h>
#include <fnmatch.h>

#include <string>

#include "vq_glob/wildcard.h"

namespace {

struct Case {
    const char *pattern;
    std::string name;
};

Case make_case(int64_t which) {
    switch (which) {
        case 0:
            return {"*.txt", "report_2024.txt"};
        case 1:
            return {"data_??_*.csv", "data_07_summary_final.csv"};
        case 2:
            return {"/home/*/projects/*/src/*.cpp", "/home/alice/projects/replicator/src/file_transfer.cpp"};
        case 3:
            return {"*/build/*", "/home/alice/projects/replicator/src/file_transfer.cpp"};
        case 4:
            return {"*a*a*a*a*a*a*a*a*a*a*b", std::string(4000, 'a')};
        case 5:  // the trailing star leaves the backtracking to the "b"
            return {"*a*a*a*a*a*a*a*a*a*a*b*", std::string(4000, 'a')};
        default:  // the matcher's worst case: 30 steps at each of 4,000 places
            return {"*aaaaaaaaaaaaaaaaaaaaaaaaaaaaaab*", std::string(4000, 'a')};
    }
}

const char *case_label(int64_t which) {
    constexpr const char *kLabels[] = {"*.txt",
                                       "data_??_*.csv",
                                       "path",
                                       "path miss",
                                       "*a*...*b vs 4000 a",
                                       "*a*...*b* vs 4000 a",
                                       "*a{30}b* vs 4000 a"};
    return kLabels[which];
}

void BM_match_wildcard(benchmark::State &state) {
    Case c = make_case(state.range(0));
    for (auto _ : state) {
        benchmark::DoNotOptimize(match_wildcard(c.pattern, c.name.c_str(), 1));
    }
    state.SetLabel(case_label(state.range(0)));
}

void BM_fnmatch(benchmark::State &state) {
    Case c = make_case(state.range(0));
    for (auto _ : state) {
        benchmark::DoNotOptimize(fnmatch(c.pattern, c.name.c_str(), 0));
    }
    state.SetLabel(case_label(state.range(0)));
}

// Case folding: the library folds ASCII letters itself, fnmatch by its
// GNU FNM_CASEFOLD flag through the locale's tables.
void BM_match_wildcard_nocase(benchmark::State &state) {
    Case c = make_case(state.range(0));
    for (auto _ : state) {
        benchmark::DoNotOptimize(match_wildcard(c.pattern, c.name.c_str(), 0));
    }
    state.SetLabel(case_label(state.range(0)));
}

void BM_fnmatch_casefold(benchmark::State &state) {
    Case c = make_case(state.range(0));
    for (auto _ : state) {
        benchmark::DoNotOptimize(fnmatch(c.pattern, c.name.c_str(), FNM_CASEFOLD));
    }
    state.SetLabel(case_label(state.range(0)));
}

}  // namespace

BENCHMARK(BM_match_wildcard)->DenseRange(0, 6);
BENCHMARK(BM_fnmatch)->DenseRange(0, 6);
BENCHMARK(BM_match_wildcard_nocase)->DenseRange(0, 2);
BENCHMARK(BM_fnmatch_casefold)->DenseRange(0, 2);

BENCHMARK_MAIN();
