// Secure sessions against the clear transfer of the same library, over the
// loopback interface, both sides in this process on two threads:
//  - one large file: the client sends it as an attachment (slm_set_att +
//    slm_send) and the server writes it with slm_recv into a temporary
//    directory on the same file system as the source, over TLS (both
//    sessions attached with sle_attach after the connection, detached before
//    they are freed: the figures include each connection's handshake and
//    close_notify) and in the clear (the same sessions and calls without
//    sle_attach). The two transfers alternate over several rounds
//    (VQ_SLE_BENCH_ROUNDS, default 5), so that a change in the machine's
//    load falls on both sides; the summary gives the medians of the rounds
//    and the median of the rounds' TLS/clear ratios. Every received file is
//    checked for size and CRC. Before the benchmarks, one traced handshake
//    checks that the contexts negotiate TLS 1.3 with an AES-GCM suite, which
//    is what the file goes through.
//  - full handshakes (no session is resumed: the server issues no tickets):
//    the client connects and times its sle_attach while the server accepts
//    and attaches; then the client sends the handshake's number, the server
//    echoes it and the client checks the echo and the server certificate's
//    fingerprint. The median of 200 (VQ_SLE_BENCH_HANDSHAKES) is reported.
// The server presents the test CA's "localhost" certificate (EC P-256),
// which the client verifies against the CA and the address 127.0.0.1; the
// client sends no certificate. The file size is VQ_NET_BENCH_BYTES (default
// 1 GiB), the directory VQ_NET_BENCH_DIR (see net_bench_support.h). Besides
// Google Benchmark's table, a summary gives MB/s both ways, the TLS
// transfer's share of the clear one's rate (the goal is at least 0.7), the
// process CPU time (both threads) per GiB and the handshake median.
#include <algorithm>
#include <cstring>
#include <fstream>

#include "net_bench_support.h"
#include "support/test_pki.h"
#include "vq_glob/dbg.h"
#include "vq_glob/sle.h"

namespace {

using namespace vq_bench;

// The contexts of both sides, made in main.
struct Contexts {
    void *server = nullptr;
    void *client = nullptr;
    std::string server_fingerprint;
};
Contexts g_tls;

// A positive count from the environment variable name, else fallback.
int count_setting(const char *name, int fallback) {
    const char *text = std::getenv(name);
    if (text == nullptr || *text == '\0') {
        return fallback;
    }
    const int count = std::atoi(text);
    if (count <= 0) {
        die(std::string(name) + " is not a positive number: " + text);
    }
    return count;
}

void make_contexts() {
    const vq::test::TestPki &pki = vq::test::make_test_pki(work_dir() / "pki");
    if (sle_allocate_context(&g_tls.server, SLE_SERVER) != 1 ||
        sle_set_certificate(g_tls.server, pki.server.cert.c_str(), pki.server.key.c_str()) != 1 ||
        sle_allocate_context(&g_tls.client, SLE_CLIENT) != 1 ||
        sle_set_ca_file(g_tls.client, pki.ca.cert.c_str()) != 1) {
        die("TLS contexts");
    }
    g_tls.server_fingerprint = pki.server.fingerprint;
}

void attach(void *session, bool server) {
    if (sle_attach(server ? g_tls.server : g_tls.client, session) != 1) {
        die(server ? "server sle_attach" : "client sle_attach");
    }
}

// The client's view of the server: the certificate the PKI helper made.
void check_server_certificate(void *client_session) {
    char fingerprint[SLE_FINGERPRINT_SIZE];
    char name[64];
    if (sle_get_peer_fingerprint(client_session, fingerprint) != 1 ||
        sle_get_peer_name(client_session, name, sizeof name) != 1) {
        die("peer certificate");
    }
    if (g_tls.server_fingerprint != fingerprint || std::strcmp(name, "localhost") != 0) {
        die(std::string("the client saw another server certificate: ") + name + " " + fingerprint);
    }
}

const SessionSetup kTlsSetup{
    [](void *session, bool server) {
        attach(session, server);
        if (!server) {
            check_server_certificate(session);
        }
    },
    [](void *session, bool server) {
        if (sle_detach(session) != 1) {
            die(server ? "server sle_detach" : "client sle_detach");
        }
    }};

// Runs one handshake with the client's SLSEC trace on and returns the line
// naming the protocol and suite.
std::string traced_handshake() {
    Listener listener;
    std::thread server([&] {
        void *session = listener.accept();
        attach(session, true);
        sle_detach(session);
        sl_net_free_handle(&session);
    });
    const fs::path trace = work_dir() / "handshake.trace";
    void *session = library_connect(listener.port);
    if (dbg_set_debug_output_filename(trace.c_str()) != 1) {
        die("trace file");
    }
    dbg_add_debug_mask("SLSEC");
    attach(session, false);
    dbg_add_debug_mask("NOSLSEC");
    dbg_close_debug_output();
    dbg_set_debug_output(nullptr);
    sle_detach(session);
    server.join();
    sl_net_free_handle(&session);
    std::ifstream in(trace);
    for (std::string line; std::getline(in, line);) {
        if (line.find("handshake with") != std::string::npos && line.find(" done: ") != std::string::npos) {
            return line.substr(line.find(" done: ") + 7);
        }
    }
    die("no handshake line in the SLSEC trace " + trace.string());
}

std::string g_suite;

void check_suite() {
    g_suite = traced_handshake();
    if (g_suite.find("TLSv1.3") == std::string::npos || g_suite.find("_GCM_") == std::string::npos) {
        die("the contexts negotiate " + g_suite + ", not TLS 1.3 with AES-GCM");
    }
}

// The figures of each round, by transfer ("file: TLS", "file: clear").
std::map<std::string, std::vector<Figures>> g_rounds;

void send_file_round(benchmark::State &state, const std::string &name, const SessionSetup &setup) {
    library_file_transfer(state, name, setup);
    g_rounds[name].push_back(figures()[name]);
}

void register_file_rounds() {
    const int rounds = count_setting("VQ_SLE_BENCH_ROUNDS", 5);
    for (int round = 1; round <= rounds; ++round) {
        const std::string suffix = "/round:" + std::to_string(round);
        benchmark::RegisterBenchmark(("BM_tls_send_file" + suffix).c_str(),
                                     [](benchmark::State &state) { send_file_round(state, "file: TLS", kTlsSetup); })
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime()
            ->Iterations(1);
        benchmark::RegisterBenchmark(("BM_clear_send_file" + suffix).c_str(),
                                     [](benchmark::State &state) { send_file_round(state, "file: clear", {}); })
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime()
            ->Iterations(1);
    }
}

double median(std::vector<double> values) {
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    const size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

// The median of one figure over the rounds of a transfer.
double round_median(const std::string &name, double Figures::*figure) {
    std::vector<double> values;
    for (const Figures &f : g_rounds[name]) {
        values.push_back(f.*figure);
    }
    return median(values);
}

// ---- Handshakes ---------------------------------------------------------------------------

std::vector<double> g_handshake_seconds;
double g_handshake_median_ms = 0;

void exchange(void *session, uint32_t number, bool server) {
    uint32_t got = 0;
    if (server) {
        if (sl_net_recv(session, &got, sizeof got, nullptr) != 1 || sl_net_send(session, &got, sizeof got, nullptr) != 1) {
            die("server echo");
        }
        return;
    }
    if (sl_net_send(session, &number, sizeof number, nullptr) != 1 ||
        sl_net_recv(session, &got, sizeof got, nullptr) != 1) {
        die("client echo");
    }
    if (got != number) {
        die("the echo of handshake " + std::to_string(number) + " came back as " + std::to_string(got));
    }
}

void BM_tls_handshake(benchmark::State &state) {
    Listener listener;
    const auto count = static_cast<uint32_t>(state.max_iterations);
    std::thread server([&] {
        for (uint32_t n = 0; n < count; ++n) {
            void *session = listener.accept();
            attach(session, true);
            exchange(session, n, true);
            sle_detach(session);
            sl_net_free_handle(&session);
        }
    });
    g_handshake_seconds.clear();
    uint32_t number = 0;
    for (auto _ : state) {
        void *session = library_connect(listener.port);
        const auto start = std::chrono::steady_clock::now();
        attach(session, false);
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        state.SetIterationTime(seconds);
        g_handshake_seconds.push_back(seconds);
        check_server_certificate(session);
        exchange(session, number++, false);
        sle_detach(session);
        sl_net_free_handle(&session);
    }
    server.join();
    const std::vector<double> &sorted = g_handshake_seconds;
    g_handshake_median_ms = median(sorted) * 1e3;
    state.counters["median_ms"] = g_handshake_median_ms;
}

void print_summary() {
    std::printf("\n%-12s %12s %14s   (medians of %zu rounds)\n", "", "rate", "CPU per GiB",
                g_rounds["file: TLS"].size());
    for (const char *name : {"file: TLS", "file: clear"}) {
        std::printf("%-12s %7.1f MB/s %10.3f s\n", name, round_median(name, &Figures::rate),
                    round_median(name, &Figures::cpu_per_unit));
    }
    const std::vector<Figures> &tls = g_rounds["file: TLS"];
    const std::vector<Figures> &clear = g_rounds["file: clear"];
    std::vector<double> ratios;
    std::string listed;
    for (size_t round = 0; round < tls.size() && round < clear.size(); ++round) {
        ratios.push_back(tls[round].rate / clear[round].rate);
        char one[16];
        std::snprintf(one, sizeof one, " %.2f", ratios.back());
        listed += one;
    }
    if (!ratios.empty()) {
        std::printf("file: TLS / clear %.3f, median of the rounds' ratios (goal >= 0.7); rounds:%s\n",
                    median(ratios), listed.c_str());
    }
    if (!g_handshake_seconds.empty()) {
        std::printf("full handshake: median %.3f ms over %zu\n", g_handshake_median_ms, g_handshake_seconds.size());
    }
    std::printf("(file of %llu bytes; %s)\n", static_cast<unsigned long long>(file_size_setting()), g_suite.c_str());
}

}  // namespace


int main(int argc, char **argv) {
    if (sl_net_init() != 1) {
        die("sl_net_init");
    }
    if (sle_init() != 1) {
        die("TLS is not available");
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    make_contexts();
    check_suite();
    register_file_rounds();
    benchmark::RegisterBenchmark("BM_tls_handshake", BM_tls_handshake)
        ->Unit(benchmark::kMillisecond)
        ->UseManualTime()
        ->Iterations(count_setting("VQ_SLE_BENCH_HANDSHAKES", 200));
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    print_summary();
    sle_free_context(&g_tls.server);
    sle_free_context(&g_tls.client);
    remove_work_dir();
    sl_net_clean();
    return 0;
}
