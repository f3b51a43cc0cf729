// The command-line parser against POSIX getopt_long, the parser a C program
// would otherwise use: one typical line with ten qualifiers, parsed by
// cli_dcl_parse (lookup by prefix, value checks, defaults), by the parse
// cache's hit path, and by getopt_long over the same words (split at blanks
// first, since getopt_long takes an argv, and then read with the same
// options; abbreviations are accepted by both).
#include <benchmark/benchmark.h>
#include <getopt.h>

#include <cstring>
#include <string>
#include <vector>

#include "vq_glob/cli.h"

namespace {

const cli_item kCopyItems[] = {
    {'P', "SOURCE", CLI_MUST | CLI_LIST, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr},
    {'P', "TARGET", 0, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr},
    {'Q', "MODE", CLI_VALUE_REQUIRED, "FAST|SAFE|SLOW", nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr},
    {'Q', "LOG", CLI_NEGATABLE | CLI_DEFAULT, nullptr, "copy.log", nullptr, nullptr, nullptr, 0, nullptr, nullptr},
    {'Q', "PORT", CLI_PORT, nullptr, nullptr, nullptr, "HOST", nullptr, 0, nullptr, nullptr},
    {'Q', "HOST", 0, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr},
    {'Q', "TIMEOUT", CLI_NUMBER, nullptr, "60", nullptr, nullptr, nullptr, 0, nullptr, nullptr},
    {'Q', "NOTIFY", CLI_LIST, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr},
    {'Q', "COUNT", CLI_NUMBER, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr},
    {'Q', "VERBOSE", 0, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr},
    {'Q', "VERIFY", CLI_NEGATABLE, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr},
    {'Q', "TAG", 0, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr},
    {0, nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr}};
const cli_command kCommands[] = {{"COPY", kCopyItems, nullptr}, {nullptr, nullptr, nullptr}};

const char *const kLine =
    "copy src1,src2 /srv/out -mode=fast -log=copy.log -port=8080 -host=server1 -timeout=90 "
    "-notify=start,stop -count=5 -verbose -verify -tag=nightly";

const option kOptions[] = {{"mode", required_argument, nullptr, 'm'},  {"log", optional_argument, nullptr, 'l'},
                           {"port", required_argument, nullptr, 'p'},  {"host", required_argument, nullptr, 'h'},
                           {"timeout", required_argument, nullptr, 't'}, {"notify", required_argument, nullptr, 'n'},
                           {"count", required_argument, nullptr, 'c'}, {"verbose", no_argument, nullptr, 'v'},
                           {"verify", no_argument, nullptr, 'V'},      {"tag", required_argument, nullptr, 'g'},
                           {nullptr, 0, nullptr, 0}};

void setup() {
    cli_init();
    cli_set_command_table(kCommands);
}

void BM_cli_dcl_parse(benchmark::State &state) {
    setup();
    for (auto _ : state) {
        if (cli_dcl_parse(kLine) != 1) {
            state.SkipWithError("parse failed");
            break;
        }
        char *v = nullptr;
        benchmark::DoNotOptimize(cli_get_value("PORT", 'Q', &v));
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_cc_dcl_parse_hit(benchmark::State &state) {
    setup();
    cc_set_command_table_cache("bench", 64);
    cc_dcl_parse(kLine);
    for (auto _ : state) {
        if (cc_dcl_parse(kLine) != 1) {
            state.SkipWithError("parse failed");
            break;
        }
        char *v = nullptr;
        benchmark::DoNotOptimize(cli_get_value("PORT", 'Q', &v));
    }
    state.SetItemsProcessed(state.iterations());
    cc_set_command_table_cache(nullptr, 0);
}

void BM_getopt_long(benchmark::State &state) {
    for (auto _ : state) {
        std::string copy = kLine;
        std::vector<char *> argv;
        for (char *word = std::strtok(copy.data(), " "); word != nullptr; word = std::strtok(nullptr, " ")) {
            argv.push_back(word);
        }
        argv.push_back(nullptr);
        optind = 1;
        opterr = 0;
        long port = 0;
        int c = 0;
        while ((c = getopt_long_only(static_cast<int>(argv.size() - 1), argv.data(), "", kOptions, nullptr)) != -1) {
            if (c == 'p') {
                port = std::strtol(optarg, nullptr, 10);
            }
        }
        benchmark::DoNotOptimize(port);
    }
    state.SetItemsProcessed(state.iterations());
}

}  // namespace

BENCHMARK(BM_cli_dcl_parse);
BENCHMARK(BM_cc_dcl_parse_hit);
BENCHMARK(BM_getopt_long);

BENCHMARK_MAIN();
