// Secure sessions against the clear transfer of the same library, over the
// loopback interface, both sides in this process on two threads:
//  - one large file: the client sends it as an attachment (slm_set_att +
//    slm_send) and the server writes it with slm_recv into a temporary
//    directory on the same file system as the source, once over TLS (both
//    sessions attached with sle_attach after the connection, detached before
//    they are freed: the figures include each connection's handshake and
//    close_notify) and once in the clear (the same sessions and calls without
//    sle_attach). Both received files are checked for size and CRC. Before
//    the benchmarks, one traced handshake checks that the contexts negotiate
//    TLS 1.3 with an AES-GCM suite, which is what the file goes through.
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

int handshake_count() {
    const char *text = std::getenv("VQ_SLE_BENCH_HANDSHAKES");
    if (text == nullptr || *text == '\0') {
        return 200;
    }
    const int count = std::atoi(text);
    if (count <= 0) {
        die(std::string("VQ_SLE_BENCH_HANDSHAKES is not a positive number: ") + text);
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

void BM_tls_send_file(benchmark::State &state) { library_file_transfer(state, "file: TLS", kTlsSetup); }

void BM_clear_send_file(benchmark::State &state) { library_file_transfer(state, "file: clear"); }

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
    std::vector<double> sorted = g_handshake_seconds;
    std::sort(sorted.begin(), sorted.end());
    g_handshake_median_ms = sorted.empty() ? 0 : sorted[sorted.size() / 2] * 1e3;
    state.counters["median_ms"] = g_handshake_median_ms;
}

void print_summary() {
    const auto &all = figures();
    std::printf("\n%-12s %12s %14s\n", "", "rate", "CPU per GiB");
    for (const char *name : {"file: TLS", "file: clear"}) {
        if (const auto f = all.find(name); f != all.end()) {
            std::printf("%-12s %7.1f MB/s %10.3f s\n", name, f->second.rate, f->second.cpu_per_unit);
        }
    }
    const auto tls = all.find("file: TLS");
    const auto clear = all.find("file: clear");
    if (tls != all.end() && clear != all.end() && clear->second.rate > 0) {
        std::printf("file: TLS / clear %.3f (goal >= 0.7)\n", tls->second.rate / clear->second.rate);
    }
    if (!g_handshake_seconds.empty()) {
        std::printf("full handshake: median %.3f ms over %zu\n", g_handshake_median_ms, g_handshake_seconds.size());
    }
    std::printf("(file of %llu bytes; %s)\n", static_cast<unsigned long long>(file_size_setting()), g_suite.c_str());
}

}  // namespace

// The large file goes a fixed number of times (a run of 1 GiB takes seconds).
BENCHMARK(BM_tls_send_file)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_clear_send_file)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_tls_handshake)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(handshake_count());

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
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    print_summary();
    sle_free_context(&g_tls.server);
    sle_free_context(&g_tls.client);
    remove_work_dir();
    sl_net_clean();
    return 0;
}
