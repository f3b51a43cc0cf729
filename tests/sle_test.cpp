// Secure sessions over loopback connections: which peers the handshake
// refuses and why, pinned and unverified peers, typed messages with
// attachments over TLS both ways, the peer's identity, detaching back to
// plain traffic, the refused handover, and peers that send garbage, stop in
// the middle of the handshake or close in the middle of a record. The
// certificates are made at run time (support/test_pki.h, POSIX only); under
// Windows builds without OpenSSL only the "not available" error is checked.
// A time-out under test only decides that a call fails, never how long it
// took.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/net_support.h"
#include "vq_glob/err.h"
#include "vq_glob/sl_net.h"
#include "vq_glob/sle.h"
#include "vq_glob/slm.h"

#ifndef _WIN32
#include "support/test_pki.h"
#endif

namespace {

using namespace vq::test;
namespace fs = std::filesystem;

TEST(SleLoading, InitAnswersTheSameEveryTimeAndUnavailableTlsIsAClearError) {
    err_set_log_interactive(0);
    err_clear_error_stack();
    const int first = sle_init();
    const std::string why = err_get_error_msg();
    err_clear_error_stack();
    EXPECT_EQ(sle_init(), first);
    if (first == 1) {
        EXPECT_EQ(err_get_stack_depth(), 0) << err_get_error_msg();
        return;
    }
    // Without OpenSSL: the reason names the library looked for, every time,
    // and nothing can be made.
    EXPECT_NE(why.find("TLS is not available"), std::string::npos) << why;
    EXPECT_NE(why.find("libcrypto"), std::string::npos) << why;
    EXPECT_TRUE(fails_with(0, ERR_SLE_NOTAVAIL, "libcrypto"));
    void *ctx = &ctx;
    EXPECT_TRUE(fails_with(sle_allocate_context(&ctx, SLE_CLIENT), ERR_SLE_NOTAVAIL));
    EXPECT_EQ(ctx, nullptr);
    GTEST_SKIP() << "TLS is not available here, so no session can be secured: " << why;
}

#ifndef _WIN32

// ---- Helpers ---------------------------------------------------------------------------------

const TestPki &pki() {
    static ScratchDir dir("vq_sle_pki_");
    return make_test_pki(dir.path());
}

// A context freed with the object.
class Context {
public:
    explicit Context(int32_t role) { EXPECT_EQ(sle_allocate_context(&ctx_, role), 1) << err_get_error_msg(); }
    ~Context() {
        if (ctx_ != nullptr) {
            sle_free_context(&ctx_);
        }
    }
    Context(const Context &) = delete;
    Context &operator=(const Context &) = delete;
    void *get() const { return ctx_; }
    void free() { EXPECT_EQ(sle_free_context(&ctx_), 1); }
    Context &certificate(const TestCert &cert) {
        EXPECT_EQ(sle_set_certificate(ctx_, cert.cert.string().c_str(), cert.key.string().c_str()), 1)
            << err_get_error_msg();
        return *this;
    }
    Context &ca(const TestCert &ca) {
        EXPECT_EQ(sle_set_ca_file(ctx_, ca.cert.string().c_str()), 1) << err_get_error_msg();
        return *this;
    }

private:
    void *ctx_ = nullptr;
};

// The usual pair: a server with the CA's server certificate and a client
// that trusts the CA.
struct Contexts {
    Context server{SLE_SERVER};
    Context client{SLE_CLIENT};
    Contexts() {
        server.certificate(pki().server).ca(pki().ca);
        client.ca(pki().ca);
    }
};

// One side's outcome with its error stack, taken on its own thread.
struct Side {
    int result = -1;
    std::vector<uint32_t> codes;  // newest first
    std::string message;
    bool has(uint32_t code) const { return std::find(codes.begin(), codes.end(), code) != codes.end(); }
    bool top(uint32_t code) const { return !codes.empty() && codes.front() == code; }
};

Side side(int result) {
    Side s;
    s.result = result;
    for (int32_t i = 0; i < err_get_stack_depth(); ++i) {
        s.codes.push_back(err_get_error_code(i));
    }
    s.message = err_get_error_msg();
    err_clear_error_stack();
    return s;
}

// A connection whose both ends give up a wait after a while, so that no
// failure here can hang the test.
struct Link : Connection {
    explicit Link(int32_t seconds = 30) {
        for (void *end : {client, server}) {
            EXPECT_EQ(sl_net_set_recv_timeout(end, seconds), 1);
            EXPECT_EQ(sl_net_set_send_timeout(end, seconds), 1);
        }
    }
};

struct Attach {
    Side client;
    Side server;
};

// Attaches both ends at once, the server on a thread of its own.
Attach attach_both(void *client_ctx, void *server_ctx, Connection &c) {
    Attach a;
    std::thread server([&] { a.server = side(sle_attach(server_ctx, c.server)); });
    a.client = side(sle_attach(client_ctx, c.client));
    server.join();
    return a;
}

// Attaches both ends of c with the usual contexts; both must succeed.
void attach_pair(Contexts &x, Connection &c) {
    const Attach a = attach_both(x.client.get(), x.server.get(), c);
    ASSERT_EQ(a.client.result, 1) << a.client.message;
    ASSERT_EQ(a.server.result, 1) << a.server.message;
}

// Runs work on a thread of its own while the caller goes on; join() waits.
class Peer {
public:
    template <typename Work>
    explicit Peer(Work work) : thread_([this, work] { result_ = side(work()); }) {}
    ~Peer() {
        if (thread_.joinable()) {
            thread_.join();
        }
    }
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;
    const Side &join() {
        thread_.join();
        return result_;
    }

private:
    Side result_;
    std::thread thread_;
};

std::string upper(std::string text) {
    for (char &c : text) {
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    return text;
}

class Sle : public NetTest {
protected:
    void SetUp() override {
        NetTest::SetUp();
        if (sle_init() != 1) {
            GTEST_SKIP() << "TLS is not available: " << err_get_error_msg();
        }
        pki();
    }
};

std::string peer_name(void *session) {
    char name[256] = "?";
    EXPECT_EQ(sle_get_peer_name(session, name, sizeof name), 1) << err_get_error_msg();
    return name;
}

std::string peer_fingerprint(void *session) {
    char fingerprint[SLE_FINGERPRINT_SIZE] = "?";
    EXPECT_EQ(sle_get_peer_fingerprint(session, fingerprint), 1) << err_get_error_msg();
    return fingerprint;
}

// ---- Contexts ----------------------------------------------------------------------------------

TEST_F(Sle, ContextSettingsRefuseWhatCannotWorkAndNameTheFiles) {
    void *ctx = &ctx;
    EXPECT_TRUE(fails_with(sle_allocate_context(&ctx, 2), ERR_GEN_PARAMS));
    EXPECT_EQ(ctx, nullptr);
    EXPECT_TRUE(fails_with(sle_allocate_context(nullptr, SLE_CLIENT), ERR_GEN_PARAMS));

    Context client(SLE_CLIENT);
    Context server(SLE_SERVER);
    const TestPki &p = pki();
    server.certificate(p.server);
    client.ca(p.ca);
    const std::string missing = (p.dir / "missing.pem").string();
    EXPECT_TRUE(fails_with(sle_set_certificate(server.get(), missing.c_str(), p.server.key.string().c_str()),
                           ERR_SLE_CERTFILE, missing));
    // A key that is not the certificate's.
    EXPECT_TRUE(fails_with(
        sle_set_certificate(server.get(), p.other_host.cert.string().c_str(), p.client.key.string().c_str()),
        ERR_SLE_CERTFILE, p.client.key.string()));
    EXPECT_TRUE(fails_with(sle_set_ca_file(client.get(), missing.c_str()), ERR_SLE_CAFILE, missing));
    // The refused files changed nothing: the server still shows its own pair.
    {
        Link c;
        const Attach a = attach_both(client.get(), server.get(), c);
        ASSERT_EQ(a.client.result, 1) << a.client.message;
        ASSERT_EQ(a.server.result, 1) << a.server.message;
        EXPECT_EQ(peer_fingerprint(c.client), p.server.fingerprint);
    }
    EXPECT_TRUE(fails_with(sle_set_require_peer_certificate(client.get(), 1), ERR_SLE_CONTEXT, "server"));
    EXPECT_TRUE(fails_with(sle_set_expected_host(server.get(), "localhost"), ERR_SLE_CONTEXT, "client"));

    // A pin is exactly 64 hex digits, either case.
    const std::string good = p.server.fingerprint;
    for (const std::string &bad : {std::string("abc"), good.substr(1), good + "0", good.substr(1) + "g"}) {
        EXPECT_TRUE(fails_with(sle_pin_peer_fingerprint(client.get(), bad.c_str()), ERR_SLE_BADPIN, bad)) << bad;
    }
    EXPECT_EQ(sle_pin_peer_fingerprint(client.get(), upper(good).c_str()), 1);
    EXPECT_EQ(sle_pin_peer_fingerprint(client.get(), good.c_str()), 1);

    // A session is no context, a context no session.
    Connection c;
    EXPECT_TRUE(fails_with(sle_set_verify_peer(c.client, 0), ERR_GEN_PARAMS));
    EXPECT_TRUE(fails_with(sle_attach(c.client, c.server), ERR_GEN_PARAMS));
    EXPECT_TRUE(fails_with(sle_detach(client.get()), ERR_GEN_PARAMS));
    EXPECT_TRUE(fails_with(sle_detach(c.client), ERR_SLE_NOTATTACHED));
    char name[64];
    EXPECT_TRUE(fails_with(sle_get_peer_name(c.client, name, sizeof name), ERR_SLE_NOTATTACHED));
}

// ---- The handshake's verdicts ----------------------------------------------------------------------

TEST_F(Sle, EachWrongServerIsRefusedByTheClientWithItsReason) {
    const TestPki &p = pki();
    const struct {
        const char *what;
        const TestCert &cert;
        const char *expected_host;  // null: the session's remote host, 127.0.0.1
        uint32_t code;
        std::string text;
    } cases[] = {
        {"unknown CA", p.unknown_ca, nullptr, ERR_SLE_VERIFY, "unable to get local issuer certificate"},
        {"expired", p.expired, nullptr, ERR_SLE_VERIFY, "certificate has expired"},
        {"self-signed", p.self_signed, nullptr, ERR_SLE_VERIFY, "self"},
        {"other host", p.other_host, nullptr, ERR_SLE_HOSTMISMATCH, "<127.0.0.1>"},
        {"expected name", p.server, "other.example", ERR_SLE_HOSTMISMATCH, "<other.example>"},
    };
    for (const auto &k : cases) {
        SCOPED_TRACE(k.what);
        Context server(SLE_SERVER);
        server.certificate(k.cert);
        Context client(SLE_CLIENT);
        client.ca(p.ca);
        if (k.expected_host != nullptr) {
            ASSERT_EQ(sle_set_expected_host(client.get(), k.expected_host), 1);
        }
        Link c;
        const Attach a = attach_both(client.get(), server.get(), c);
        EXPECT_EQ(a.client.result, 0);
        EXPECT_TRUE(a.client.top(k.code)) << a.client.message;
        EXPECT_TRUE(a.client.has(ERR_SLE_HANDSHAKE)) << a.client.message;
        EXPECT_NE(a.client.message.find(k.text), std::string::npos) << a.client.message;
        // The server hears of it through the client's alert.
        EXPECT_EQ(a.server.result, 0);
        EXPECT_TRUE(a.server.top(ERR_SLE_HANDSHAKE)) << a.server.message;
        // Nothing stays attached: plain traffic still flows.
        ASSERT_EQ(sl_net_send(c.client, "p", 1, nullptr), 1);
        EXPECT_TRUE(fails_with(sle_detach(c.client), ERR_SLE_NOTATTACHED));
    }
}

TEST_F(Sle, ThePeerNamedByThePinIsAcceptedAndNoOther) {
    const TestPki &p = pki();
    const struct {
        const char *what;
        const TestCert &cert;
        std::string pin;
        bool verify;
        bool accepted;
    } cases[] = {
        {"self-signed pinned", p.self_signed, upper(p.self_signed.fingerprint), true, true},
        {"CA-signed but another pinned", p.server, p.self_signed.fingerprint, true, false},
        {"pin holds with verification off", p.server, p.client.fingerprint, false, false},
        {"verification off takes anything", p.unknown_ca, "", false, true},
    };
    for (const auto &k : cases) {
        SCOPED_TRACE(k.what);
        Context server(SLE_SERVER);
        server.certificate(k.cert);
        Context client(SLE_CLIENT);  // no CA at all
        ASSERT_EQ(sle_pin_peer_fingerprint(client.get(), k.pin.c_str()), 1);
        ASSERT_EQ(sle_set_verify_peer(client.get(), k.verify ? 1 : 0), 1);
        Link c;
        const Attach a = attach_both(client.get(), server.get(), c);
        EXPECT_EQ(a.client.result, k.accepted ? 1 : 0) << a.client.message;
        EXPECT_EQ(a.server.result, k.accepted ? 1 : 0) << a.server.message;
        if (k.accepted) {
            EXPECT_EQ(peer_fingerprint(c.client), k.cert.fingerprint);
        } else {
            EXPECT_TRUE(a.client.top(ERR_SLE_PINMISMATCH)) << a.client.message;
        }
    }
}

TEST_F(Sle, AServerThatRequiresCertificatesRefusesClientsWithoutOne) {
    const TestPki &p = pki();
    for (const bool required : {true, false}) {
        SCOPED_TRACE(required ? "required" : "optional");
        Contexts x;
        ASSERT_EQ(sle_set_require_peer_certificate(x.server.get(), required ? 1 : 0), 1);
        Link c;
        const Attach a = attach_both(x.client.get(), x.server.get(), c);
        if (!required) {
            // Accepted, but the server has no name to authorise.
            ASSERT_EQ(a.server.result, 1) << a.server.message;
            ASSERT_EQ(a.client.result, 1) << a.client.message;
            char name[64];
            char fingerprint[SLE_FINGERPRINT_SIZE];
            EXPECT_TRUE(fails_with(sle_get_peer_name(c.server, name, sizeof name), ERR_SLE_NOPEERCERT));
            EXPECT_TRUE(fails_with(sle_get_peer_fingerprint(c.server, fingerprint), ERR_SLE_NOPEERCERT));
            EXPECT_EQ(peer_name(c.client), p.server.common_name);
            continue;
        }
        EXPECT_EQ(a.server.result, 0);
        EXPECT_TRUE(a.server.top(ERR_SLE_NOPEERCERT)) << a.server.message;
        // Under TLS 1.3 the client finishes first; the server's alert then
        // fails its first receive.
        if (a.client.result == 1) {
            char byte = 0;
            EXPECT_TRUE(fails_with(sl_net_recv(c.client, &byte, 1, nullptr), ERR_SLE_RECV));
            EXPECT_EQ(sl_net_is_active(c.client), 0);
        } else {
            EXPECT_TRUE(a.client.has(ERR_SLE_HANDSHAKE)) << a.client.message;
        }
    }
}

TEST_F(Sle, AClientWithoutAHostNameToCheckIsRefusedBeforeTheHandshake) {
    Context client(SLE_CLIENT);
    client.ca(pki().ca);
    Link c;
    // The accepted end knows no remote host name.
    EXPECT_TRUE(fails_with(sle_attach(client.get(), c.server), ERR_SLE_NOHOST));
    ASSERT_EQ(sle_set_expected_host(client.get(), "localhost"), 1);
    Context server(SLE_SERVER);
    server.certificate(pki().server);
    const Attach a = attach_both(client.get(), server.get(), c);
    EXPECT_EQ(a.client.result, 1) << a.client.message;
    EXPECT_EQ(a.server.result, 1) << a.server.message;
}

// ---- Secured traffic --------------------------------------------------------------------------------

// Sends a message with an int, a file and a buffer as attachments.
int send_message(void *session, const fs::path &file, const Bytes &buffer, int32_t value) {
    Message out;
    if (slm_set_int(out.get(), 1, value) != 1 || slm_set_att(out.get(), 2, file.string().c_str(), 1) != 1 ||
        slm_set_buffer_as_att(out.get(), 3, buffer.data(), static_cast<uint32_t>(buffer.size()), 1) != 1) {
        return 0;
    }
    return slm_send(out.get(), session, 1);
}

// Receives such a message; the attachments' contents in order.
std::vector<Bytes> recv_message(void *session, const fs::path &temp, int32_t value) {
    Message in;
    EXPECT_EQ(slm_set_temp_dir(in.get(), temp.string().c_str()), 1);
    std::vector<Bytes> attachments;
    if (slm_recv(in.get(), session) != 1) {
        ADD_FAILURE() << "receive: " << err_get_error_msg();
        return attachments;
    }
    int32_t got = 0;
    EXPECT_EQ(slm_get_int_by_code(in.get(), 1, &got), 1);
    EXPECT_EQ(got, value);
    for (uint16_t code : {2, 3}) {
        char *name = nullptr;
        int32_t binary = 0;
        EXPECT_EQ(slm_get_att(in.get(), code, &name, &binary), 1) << err_get_error_msg();
        attachments.push_back(name != nullptr ? read_file(name) : Bytes{});
        std::free(name);
    }
    return attachments;
}

TEST_F(Sle, MutuallyAuthenticatedPeersExchangeMessagesWithAttachmentsBothWays) {
    const TestPki &p = pki();
    Contexts x;
    x.client.certificate(p.client);
    ASSERT_EQ(sle_set_require_peer_certificate(x.server.get(), 1), 1);
    Link c;
    const Attach a = attach_both(x.client.get(), x.server.get(), c);
    ASSERT_EQ(a.client.result, 1) << a.client.message;
    ASSERT_EQ(a.server.result, 1) << a.server.message;
    EXPECT_EQ(peer_name(c.server), "deploy-client");
    EXPECT_EQ(peer_fingerprint(c.server), p.client.fingerprint);
    EXPECT_EQ(peer_name(c.client), p.server.common_name);
    EXPECT_EQ(peer_fingerprint(c.client), p.server.fingerprint);
    char small[9];
    EXPECT_TRUE(fails_with(sle_get_peer_name(c.server, small, sizeof small), ERR_SLE_SMALLBUF));
    EXPECT_EQ(std::string(small), "");

    ScratchDir dir("vq_sle_files_");
    const fs::path temp = dir.path() / "in";
    fs::create_directories(temp);
    // More than one part and more than one TLS record each way.
    const Bytes file_data = pattern(100000, 1);
    const Bytes buffer = pattern(40000, 2);
    write_file(dir.path() / "out.bin", file_data);
    for (void *sender : {c.client, c.server}) {
        void *receiver = sender == c.client ? c.server : c.client;
        Peer send([&] { return send_message(sender, dir.path() / "out.bin", buffer, 42); });
        const std::vector<Bytes> got = recv_message(receiver, temp, 42);
        EXPECT_EQ(send.join().result, 1) << send.join().message;
        ASSERT_EQ(got.size(), 2u);
        EXPECT_TRUE(got[0] == file_data);
        EXPECT_TRUE(got[1] == buffer);
    }

    // What the hooks send is TLS: read past them, the bytes are an
    // application-data record, not the text.
    ASSERT_EQ(sl_net_send(c.client, "plain text", 10, nullptr), 1);
    unsigned char header[5] = {0};
    ASSERT_EQ(sl_net_recv_sync(c.server, header, 5, nullptr), 1);
    EXPECT_EQ(header[0], 0x17);
    EXPECT_EQ(header[1], 0x03);
}

TEST_F(Sle, OneServerContextServesSessionsOnManyThreadsAndMayBeFreedUnderThem) {
    constexpr int kSessions = 4;
    Contexts x;
    std::vector<std::unique_ptr<Link>> links;
    for (int i = 0; i < kSessions; ++i) {
        links.push_back(std::make_unique<Link>());
    }
    std::vector<Side> servers(kSessions);
    std::vector<Side> clients(kSessions);
    std::vector<std::thread> threads;
    for (int i = 0; i < kSessions; ++i) {
        threads.emplace_back([&, i] { servers[i] = side(sle_attach(x.server.get(), links[i]->server)); });
        threads.emplace_back([&, i] { clients[i] = side(sle_attach(x.client.get(), links[i]->client)); });
    }
    for (std::thread &t : threads) {
        t.join();
    }
    x.server.free();
    x.client.free();
    for (int i = 0; i < kSessions; ++i) {
        SCOPED_TRACE(i);
        ASSERT_EQ(servers[i].result, 1) << servers[i].message;
        ASSERT_EQ(clients[i].result, 1) << clients[i].message;
        const std::string text = "session " + std::to_string(i);
        ASSERT_EQ(sl_net_send(links[i]->client, text.data(), static_cast<int32_t>(text.size()), nullptr), 1);
        std::string got(text.size(), '\0');
        ASSERT_EQ(sl_net_recv(links[i]->server, got.data(), static_cast<int32_t>(got.size()), nullptr), 1)
            << err_get_error_msg();
        EXPECT_EQ(got, text);
    }
}

TEST_F(Sle, DetachedSessionsCarryPlainTrafficAndOnlyThenCanBeHandedOver) {
    Contexts x;
    Link c;
    ASSERT_NO_FATAL_FAILURE(attach_pair(x, c));

    // Attached: no handover, no second layer.
    void *packed = nullptr;
    uint32_t length = 0;
    EXPECT_TRUE(fails_with(sl_net_pack_handle(c.server, &packed, &length), ERR_NET_HELD, "held by TLS"));
    const std::string file = (pki().dir / "held.sock").string();
    EXPECT_TRUE(fails_with(sl_net_save_socket_for_process(c.server, 1, file.c_str()), ERR_NET_HELD));
    EXPECT_FALSE(fs::exists(file));
    EXPECT_TRUE(fails_with(sle_attach(x.server.get(), c.server), ERR_SLE_ATTACHED, "TLS"));

    // Secured data still waiting when the peer detaches is read first.
    ASSERT_EQ(sl_net_send(c.client, "secured", 7, nullptr), 1);
    char got[8] = {};
    ASSERT_EQ(sl_net_recv(c.server, got, 7, nullptr), 1) << err_get_error_msg();
    EXPECT_EQ(std::string(got), "secured");
    Peer server([&] { return sle_detach(c.server); });
    EXPECT_EQ(sle_detach(c.client), 1) << err_get_error_msg();
    EXPECT_EQ(server.join().result, 1) << server.join().message;

    EXPECT_EQ(sl_net_is_active(c.client), 1);
    ASSERT_EQ(sl_net_send(c.client, "plain", 5, nullptr), 1);
    char plain[6] = {};
    ASSERT_EQ(sl_net_recv_sync(c.server, plain, 5, nullptr), 1) << err_get_error_msg();
    EXPECT_EQ(std::string(plain), "plain");
    ASSERT_EQ(sl_net_pack_handle(c.server, &packed, &length), 1) << err_get_error_msg();
    std::free(packed);
    EXPECT_TRUE(fails_with(sle_detach(c.client), ERR_SLE_NOTATTACHED));
}

TEST_F(Sle, BytesTheLayerAlreadyHoldsMakeTheSessionReadyInASelectionGroup) {
    Contexts x;
    Link c;
    ASSERT_NO_FATAL_FAILURE(attach_pair(x, c));
    ASSERT_EQ(sl_net_send(c.client, "0123456789", 10, nullptr), 1);
    ASSERT_EQ(sl_net_send(c.client, "ABCDE", 5, nullptr), 1);

    // A short read leaves the rest of the record inside TLS, where the
    // socket shows nothing: the group must still report the session.
    char got[16] = {};
    ASSERT_EQ(sl_net_recv(c.server, got, 4, nullptr), 1) << err_get_error_msg();
    void *group = nullptr;
    ASSERT_EQ(sl_net_allocate_selection_group(&group), 1);
    ASSERT_EQ(sl_net_add_to_selection_group(group, c.server, SL_NET_EVENT_READ), 1);
    int32_t ready = 0;
    ASSERT_EQ(sl_net_select(group, 20000, &ready), 1) << err_get_error_msg();
    EXPECT_EQ(ready, 1);
    void *session = nullptr;
    int32_t events = 0;
    ASSERT_EQ(sl_net_get_next_event(group, &session, &events), 1);
    EXPECT_EQ(session, c.server);
    EXPECT_EQ(events & SL_NET_EVENT_READ, SL_NET_EVENT_READ);

    ASSERT_EQ(sl_net_recv(c.server, got + 4, 11, nullptr), 1) << err_get_error_msg();
    EXPECT_EQ(std::string(got), "0123456789ABCDE");
    // Everything taken: nothing held and nothing on the socket.
    ASSERT_EQ(sl_net_select(group, 0, &ready), 1);
    EXPECT_EQ(ready, 0);
    sl_net_free_selection_group(&group);
}

TEST_F(Sle, DetachingDiscardsNothingSilently) {
    Contexts x;
    Link c;
    ASSERT_NO_FATAL_FAILURE(attach_pair(x, c));
    // The server sends, then detaches; the client detaches without reading.
    ASSERT_EQ(sl_net_send(c.server, "unread", 6, nullptr), 1);
    Peer server([&] { return sle_detach(c.server); });
    EXPECT_TRUE(fails_with(sle_detach(c.client), ERR_SLE_CLOSE, "127.0.0.1"));
    EXPECT_EQ(server.join().result, 1) << server.join().message;
}

// ---- Hostile and broken peers ----------------------------------------------------------------------

TEST_F(Sle, GarbageOrASilencedHandshakeFailsCleanlyWithinTheTimeOut) {
    Contexts x;
    const struct {
        const char *what;
        bool server_side;   // the attaching side under test is the server
        std::string sent;   // what the raw peer sends first
    } cases[] = {
        {"HTTP at a server", true, "GET / HTTP/1.0\r\n\r\n"},
        {"HTTP at a client", false, "HTTP/1.0 200 OK\r\n\r\n"},
        {"half a record header at a client", false, std::string("\x16\x03\x03", 3)},
        {"a record cut short at a server", true, std::string("\x16\x03\x01\x00\x80\x01\x00\x00\x7c", 9)},
        {"nothing at a client", false, ""},
    };
    for (const auto &k : cases) {
        SCOPED_TRACE(k.what);
        Link c(1);
        void *tested = k.server_side ? c.server : c.client;
        void *raw = k.server_side ? c.client : c.server;
        if (!k.sent.empty()) {
            ASSERT_EQ(sl_net_send(raw, k.sent.data(), static_cast<int32_t>(k.sent.size()), nullptr), 1);
        }
        const Side s = side(sle_attach(k.server_side ? x.server.get() : x.client.get(), tested));
        EXPECT_EQ(s.result, 0);
        EXPECT_TRUE(s.top(ERR_SLE_HANDSHAKE)) << s.message;
        EXPECT_TRUE(fails_with(sle_detach(tested), ERR_SLE_NOTATTACHED));
    }
}

TEST_F(Sle, APeerThatClosesEndsTheReceiveAndLeavesTheSessionInactive) {
    for (const bool mid_record : {false, true}) {
        SCOPED_TRACE(mid_record ? "in the middle of a record" : "with close_notify");
        Contexts x;
        Link c;
        const Attach a = attach_both(x.client.get(), x.server.get(), c);
        ASSERT_EQ(a.client.result, 1);
        ASSERT_EQ(a.server.result, 1);
        if (mid_record) {
            // A record header promising more than follows, straight past the hooks.
            const unsigned char part[] = {0x17, 0x03, 0x03, 0x00, 0x40, 1, 2, 3};
            ASSERT_EQ(sl_net_send_sync(c.server, part, sizeof part, nullptr), 1);
        }
        free_session(c.server);  // sends close_notify first unless cut short
        char buffer[16];
        int32_t count = -1;
        const Side s = side(sl_net_recv(c.client, buffer, sizeof buffer, &count));
        EXPECT_EQ(s.result, 0);
        EXPECT_TRUE(s.top(ERR_SLE_RECV)) << s.message;
        EXPECT_EQ(count, 0);
        EXPECT_EQ(sl_net_is_active(c.client), 0);
        EXPECT_TRUE(fails_with_stack(sl_net_send(c.client, "x", 1, nullptr), {ERR_NET_SEND, ERR_NET_NOTACT}));
    }
}

#endif  // !_WIN32

}  // namespace
