// The wildcard matchers against glibc's fnmatch, the matcher a POSIX program
// would otherwise call: the name matcher against fnmatch with flags 0, the
// path matcher against fnmatch with FNM_PATHNAME (a star or "?" never crosses
// a "/", elements line up one to one). Besides typical file-selection
// patterns, the cases are the adversarial ones: long paths, long runs of "?",
// many stars, each with and without case folding.
//
// The two differ in small rules (fnmatch knows brackets and escapes, and "**"
// at the end), none of which the patterns here use. Before timing, each case
// checks that both sides give the result the case expects, so the figures
// compare equal work. The path matcher overwrites separators in its inputs, so
// its loop copies both texts into writable buffers first, as a caller that
// keeps its own texts has to; that copy is part of its figure.
#include <benchmark/benchmark.h>
#include <fnmatch.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "vq_glob/wildcard.h"

namespace {

struct Case {
    const char *label;
    std::string pattern;
    std::string name;
    bool matches;
};

std::string repeat(const std::string &unit, size_t times) {
    std::string text;
    text.reserve(unit.size() * times);
    for (size_t i = 0; i < times; ++i) {
        text += unit;
    }
    return text;
}

// Cases for the name matcher (fnmatch flags 0).
Case name_case(int64_t which) {
    const std::string as(4000, 'a');
    switch (which) {
        case 0:
            return {"*.txt", "*.txt", "report_2024.txt", true};
        case 1:
            return {"data_??_*.csv", "data_??_*.csv", "data_07_summary_final.csv", true};
        case 2:
            return {"path", "/home/*/projects/*/src/*.cpp", "/home/alice/projects/replicator/src/file_transfer.cpp",
                    true};
        case 3:
            return {"path miss", "*/build/*", "/home/alice/projects/replicator/src/file_transfer.cpp", false};
        case 4:
            return {"*a*...*b vs 4000 a", "*a*a*a*a*a*a*a*a*a*a*b", as, false};
        case 5:  // the trailing star leaves the backtracking to the "b"
            return {"*a*...*b* vs 4000 a", "*a*a*a*a*a*a*a*a*a*a*b*", as, false};
        case 6:  // the classic worst case of both: 30 steps at each of 4,000 places
            return {"*a{30}b* vs 4000 a", "*" + std::string(30, 'a') + "b*", as, false};
        case 7:
            return {"?{10000} vs 10000 letters", std::string(10000, '?'), std::string(10000, 'q'), true};
        case 8:
            return {"(*a){5000}*b vs 10000 a", repeat("*a", 5000) + "*b", std::string(10000, 'a'), false};
        case 9:  // the "?" behind the star need 5,000 characters at every start
            return {"*?{5000}b* vs 10000 a", "*" + std::string(5000, '?') + "b*", std::string(10000, 'a'), false};
        default:
            return {"(*?\?\?){2500}b vs 10000 a", repeat("*???", 2500) + "b", std::string(10000, 'a'), false};
    }
}
constexpr int64_t kNameCases = 11;

// Cases for the path matcher (fnmatch FNM_PATHNAME).
Case path_case(int64_t which) {
    switch (which) {
        case 0:
            return {"path", "/home/*/projects/*/src/*.cpp", "/home/alice/projects/replicator/src/file_transfer.cpp",
                    true};
        case 1:  // equal up to the last character
            return {"(a/){10000}y vs (a/){10000}x", repeat("a/", 10000) + "y", repeat("a/", 10000) + "x", false};
        case 2:  // fnmatch recurses at every star and runs out of stack at a few thousand
            return {"(*/){1000}*x vs (a/){1000}ay", repeat("*/", 1000) + "*x", repeat("a/", 1000) + "ay", false};
        case 3:
            return {"?{10000} vs 10000 letters", std::string(10000, '?'), std::string(10000, 'q'), true};
        case 4:
            return {"(?*?/){2500}x vs (abc/){2500}x", repeat("?*?/", 2500) + "x", repeat("abc/", 2500) + "x", true};
        case 5:
            return {"(*a){5000}*b vs 10000 a", repeat("*a", 5000) + "*b", std::string(10000, 'a'), false};
        default:
            return {"*?{5000}b* vs 10000 a", "*" + std::string(5000, '?') + "b*", std::string(10000, 'a'), false};
    }
}
constexpr int64_t kPathCases = 7;

// The case-blind variants match an upper-cased pattern against the same name.
Case folded(Case c) {
    for (char &ch : c.pattern) {
        if (ch >= 'a' && ch <= 'z') {
            ch = static_cast<char>(ch - 'a' + 'A');
        }
    }
    return c;
}

// Runs the path matcher on copies of the texts, which it is allowed to change.
class PathRun {
public:
    explicit PathRun(const Case &c)
        : pattern_(c.pattern.c_str(), c.pattern.c_str() + c.pattern.size() + 1),
          name_(c.name.c_str(), c.name.c_str() + c.name.size() + 1),
          p_(pattern_.size()),
          n_(name_.size()) {}

    int operator()(int case_sensitive) {
        std::memcpy(p_.data(), pattern_.data(), p_.size());
        std::memcpy(n_.data(), name_.data(), n_.size());
        char *rest_pattern = nullptr;
        char *rest_name = nullptr;
        return str_iterative_match_wildcard(p_.data(), n_.data(), case_sensitive, &rest_pattern, &rest_name);
    }

private:
    std::vector<char> pattern_, name_, p_, n_;
};

// Both sides must give the expected result before their times mean anything.
bool check(benchmark::State &state, const Case &c, int ours, int fnmatch_flags) {
    int theirs = fnmatch(c.pattern.c_str(), c.name.c_str(), fnmatch_flags);
    if (ours != (c.matches ? 1 : 0) || (theirs == 0) != c.matches) {
        state.SkipWithError("the library and fnmatch do not both give the expected result");
        return false;
    }
    state.SetLabel(c.label);
    return true;
}

void BM_match_wildcard(benchmark::State &state, int case_sensitive) {
    Case c = name_case(state.range(0));
    c = case_sensitive != 0 ? c : folded(c);
    if (!check(state, c, match_wildcard(c.pattern.c_str(), c.name.c_str(), case_sensitive),
               case_sensitive != 0 ? 0 : FNM_CASEFOLD)) {
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(match_wildcard(c.pattern.c_str(), c.name.c_str(), case_sensitive));
    }
}

void BM_fnmatch(benchmark::State &state, int flags) {
    Case c = name_case(state.range(0));
    c = (flags & FNM_CASEFOLD) == 0 ? c : folded(c);
    if (!check(state, c, match_wildcard(c.pattern.c_str(), c.name.c_str(), (flags & FNM_CASEFOLD) == 0), flags)) {
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(fnmatch(c.pattern.c_str(), c.name.c_str(), flags));
    }
}

void BM_str_iterative_match_wildcard(benchmark::State &state, int case_sensitive) {
    Case c = path_case(state.range(0));
    c = case_sensitive != 0 ? c : folded(c);
    PathRun run(c);
    if (!check(state, c, run(case_sensitive), FNM_PATHNAME | (case_sensitive != 0 ? 0 : FNM_CASEFOLD))) {
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(run(case_sensitive));
    }
}

void BM_fnmatch_pathname(benchmark::State &state, int flags) {
    Case c = path_case(state.range(0));
    c = (flags & FNM_CASEFOLD) == 0 ? c : folded(c);
    PathRun run(c);
    if (!check(state, c, run((flags & FNM_CASEFOLD) == 0), flags)) {
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(fnmatch(c.pattern.c_str(), c.name.c_str(), flags));
    }
}

}  // namespace

BENCHMARK_CAPTURE(BM_match_wildcard, case, 1)->DenseRange(0, kNameCases - 1);
BENCHMARK_CAPTURE(BM_fnmatch, case, 0)->DenseRange(0, kNameCases - 1);
BENCHMARK_CAPTURE(BM_match_wildcard, nocase, 0)->DenseRange(0, kNameCases - 1);
BENCHMARK_CAPTURE(BM_fnmatch, nocase, FNM_CASEFOLD)->DenseRange(0, kNameCases - 1);
BENCHMARK_CAPTURE(BM_str_iterative_match_wildcard, case, 1)->DenseRange(0, kPathCases - 1);
BENCHMARK_CAPTURE(BM_fnmatch_pathname, case, FNM_PATHNAME)->DenseRange(0, kPathCases - 1);
BENCHMARK_CAPTURE(BM_str_iterative_match_wildcard, nocase, 0)->DenseRange(0, kPathCases - 1);
BENCHMARK_CAPTURE(BM_fnmatch_pathname, nocase, FNM_PATHNAME | FNM_CASEFOLD)->DenseRange(0, kPathCases - 1);

BENCHMARK_MAIN();
