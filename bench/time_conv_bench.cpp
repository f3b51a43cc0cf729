// Cost of the time stamp's text forms against the C library doing the same
// work: the stamp form "G%luO%d" written with snprintf and read back with
// strtoul/strtol (with the same checks: the letters, the end, the ranges), and
// a digit-group date read with strptime and turned into seconds with mktime,
// as the library must also do for a local time.
#include <benchmark/benchmark.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "vq_glob/tvtime.h"

namespace {

const tvtime kStamp = {1700000000u, -18000};
const char *const kStampText = "G1700000000O-18000";
const char *const kDateText = "05032024140709";

void BM_conv_tvtime_to_string(benchmark::State &state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(conv_tvtime_to_string(&kStamp));
    }
}
BENCHMARK(BM_conv_tvtime_to_string);

void BM_peer_snprintf_stamp(benchmark::State &state) {
    char buffer[48];
    for (auto _ : state) {
        std::snprintf(buffer, sizeof buffer, "G%luO%d", static_cast<unsigned long>(kStamp.seconds),
                      static_cast<int>(kStamp.zone));
        benchmark::DoNotOptimize(buffer);
    }
}
BENCHMARK(BM_peer_snprintf_stamp);

void BM_conv_string_to_tvtime_stamp(benchmark::State &state) {
    tvtime t{};
    for (auto _ : state) {
        benchmark::DoNotOptimize(conv_string_to_tvtime(kStampText, &t));
    }
    benchmark::DoNotOptimize(t);
}
BENCHMARK(BM_conv_string_to_tvtime_stamp);

// strtoul/strtol with the checks the library makes: both letters, nothing
// left over, seconds within 32 bits, a zone below a day.
bool peer_read_stamp(const char *text, tvtime *t) {
    if (text[0] != 'G') {
        return false;
    }
    char *end = nullptr;
    errno = 0;
    unsigned long seconds = std::strtoul(text + 1, &end, 10);
    if (errno != 0 || end == text + 1 || *end != 'O' || seconds > 0xFFFFFFFFul) {
        return false;
    }
    const char *zone_text = end + 1;
    long zone = std::strtol(zone_text, &end, 10);
    if (errno != 0 || end == zone_text || *end != '\0' || zone <= -86400 || zone >= 86400) {
        return false;
    }
    t->seconds = static_cast<uint32_t>(seconds);
    t->zone = static_cast<int32_t>(zone);
    return true;
}

void BM_peer_strtoul_stamp(benchmark::State &state) {
    tvtime t{};
    for (auto _ : state) {
        benchmark::DoNotOptimize(peer_read_stamp(kStampText, &t));
    }
    benchmark::DoNotOptimize(t);
}
BENCHMARK(BM_peer_strtoul_stamp);

void BM_conv_string_to_tvtime_date(benchmark::State &state) {
    tvtime t{};
    for (auto _ : state) {
        benchmark::DoNotOptimize(conv_string_to_tvtime(kDateText, &t));
    }
    benchmark::DoNotOptimize(t);
}
BENCHMARK(BM_conv_string_to_tvtime_date);

void BM_peer_strptime_mktime_date(benchmark::State &state) {
    for (auto _ : state) {
        std::tm tm{};
        const char *end = strptime(kDateText, "%d%m%Y%H%M%S", &tm);
        tm.tm_isdst = -1;
        std::time_t t = end != nullptr && *end == '\0' ? std::mktime(&tm) : -1;
        benchmark::DoNotOptimize(t);
    }
}
BENCHMARK(BM_peer_strptime_mktime_date);

}  // namespace

BENCHMARK_MAIN();
