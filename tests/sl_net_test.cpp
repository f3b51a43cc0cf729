// Network sessions over the loopback interface: connections and their
// failures, exact transfers and the rules for a closed peer, time-outs,
// hooks, selection groups, packed sessions and the handover of a socket to a
// child process. Every wait is on an event (data, a closed peer, a ready
// socket), never on a time window; the time-outs under test only decide
// that a call fails, not how long it took.
#include <gtest/gtest.h>

#ifdef _WIN32
#include <windows.h>
#else
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "support/handle_checks.h"
#include "vq_glob/err.h"
#include "vq_glob/sl_net.h"
#include "vq_glob/slm.h"

#ifndef _WIN32
extern char **environ;
#endif

namespace {

// The codes on the error stack, newest first.
std::vector<uint32_t> stack_codes() {
    std::vector<uint32_t> codes;
    for (int32_t i = 0; i < err_get_stack_depth(); ++i) {
        codes.push_back(err_get_error_code(i));
    }
    return codes;
}

void *new_session() {
    void *session = nullptr;
    EXPECT_EQ(sl_net_allocate_handle(SL_NET_TCP, &session), 1);
    return session;
}

void free_session(void *&session) {
    if (session != nullptr) {
        EXPECT_EQ(sl_net_free_handle(&session), 1);
    }
}

// A listener on 127.0.0.1 at a port the system picked.
struct Listener {
    void *session = nullptr;
    uint16_t port = 0;

    explicit Listener(int32_t backlog = 16) {
        session = new_session();
        EXPECT_EQ(sl_net_bind(session, "127.0.0.1", 0), 1) << err_get_error_msg();
        EXPECT_EQ(sl_net_listen(session, backlog), 1) << err_get_error_msg();
        EXPECT_EQ(sl_net_get_local_port(session, &port), 1) << err_get_error_msg();
        EXPECT_NE(port, 0);
    }
    ~Listener() { free_session(session); }
    Listener(const Listener &) = delete;
    Listener &operator=(const Listener &) = delete;
};

// A client session aimed at 127.0.0.1:port (not yet connected).
void *client_for(uint16_t port) {
    void *client = new_session();
    const sl_net_remote_info info{"127.0.0.1", nullptr, port};
    EXPECT_EQ(sl_net_set_remote_info(client, 0, &info), 1) << err_get_error_msg();
    return client;
}

// Both ends of one loopback connection.
struct Connection {
    Listener listener;
    void *client = nullptr;
    void *server = nullptr;

    Connection() {
        client = client_for(listener.port);
        EXPECT_EQ(sl_net_connect(client), 1) << err_get_error_msg();
        EXPECT_EQ(sl_net_accept(listener.session, &server), 1) << err_get_error_msg();
    }
    ~Connection() {
        free_session(client);
        free_session(server);
    }
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;
};

class SlNet : public ::testing::Test {
protected:
    void SetUp() override {
        err_set_log_interactive(0);
        ASSERT_EQ(sl_net_init(), 1);
        err_clear_error_stack();
    }
    void TearDown() override {
        err_clear_error_stack();
        sl_net_clean();
    }
};

// ---- Sessions ------------------------------------------------------------------------

TEST_F(SlNet, NewSessionsStartSynchronousWithDefaultFlagsAndRefuseBadArguments) {
    void *session = nullptr;
    EXPECT_EQ(sl_net_allocate_handle(7, &session), 0);
    EXPECT_EQ(session, nullptr);
    EXPECT_EQ(err_get_error_code(0), ERR_NET_BADPROT);
    EXPECT_EQ(sl_net_allocate_handle(SL_NET_TCP, nullptr), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_NET_BADPTR);

    session = new_session();
    uint32_t flags = 0;
    ASSERT_EQ(sl_net_get_flags(session, &flags), 1);
    EXPECT_EQ(flags, SL_NET_FLAG_DEFAULT);
    EXPECT_EQ(sl_net_is_active(session), 0);
    sl_net_socket socket = 0;
    ASSERT_EQ(sl_net_get_socket(session, &socket), 1);
    EXPECT_EQ(socket, SL_NET_NO_SOCKET);

    EXPECT_EQ(sl_net_set_io_mode(session, 3), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_NET_BADIO);
    EXPECT_EQ(sl_net_set_protocol(session, -1), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_NET_BADPROT);
    const sl_net_remote_info no_host{nullptr, nullptr, 80};
    EXPECT_EQ(sl_net_set_remote_info(session, 0, &no_host), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_NET_NOHOST);
    EXPECT_EQ(sl_net_set_remote_info(session, 1, &no_host), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_NET_BADINFO);
    const sl_net_remote_info no_port{"127.0.0.1", nullptr, 0};
    EXPECT_EQ(sl_net_set_remote_info(session, 0, &no_port), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_NET_SERUNK);
    const sl_net_remote_info unknown_service{"127.0.0.1", "no-such-service-here", 0};
    EXPECT_EQ(sl_net_set_remote_info(session, 0, &unknown_service), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_NET_SERUNK);
    EXPECT_NE(std::string(err_get_error_text(0)).find("<no-such-service-here>"), std::string::npos);
    // A port given beside a service the system does not know is used.
    const sl_net_remote_info fallback{"127.0.0.1", "no-such-service-here", 4242};
    err_clear_error_stack();
    EXPECT_EQ(sl_net_set_remote_info(session, 0, &fallback), 1);
    EXPECT_EQ(err_get_stack_depth(), 0);

    EXPECT_EQ(sl_net_add_flags(session, SL_NET_FLAG_PARTIAL_RECV), 1);
    ASSERT_EQ(sl_net_get_flags(session, &flags), 1);
    EXPECT_EQ(flags, SL_NET_FLAG_DEFAULT | SL_NET_FLAG_PARTIAL_RECV);
    EXPECT_EQ(sl_net_clear_flags(session, SL_NET_FLAG_DEFAULT), 1);
    ASSERT_EQ(sl_net_get_flags(session, &flags), 1);
    EXPECT_EQ(flags, SL_NET_FLAG_PARTIAL_RECV);

    // Options need a socket that is connected.
    EXPECT_EQ(sl_net_set_recv_timeout(session, 1), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_NET_NOTACT);

    EXPECT_EQ(sl_net_free_handle(&session), 1);
    EXPECT_EQ(session, nullptr);
}

TEST_F(SlNet, HostNamesAndDottedQuadsResolve) {
    uint32_t address = 0;
    ASSERT_EQ(sl_net_resolve_hostname("127.0.0.1", &address), 1);
    const unsigned char loopback[4] = {127, 0, 0, 1};
    EXPECT_EQ(std::memcmp(&address, loopback, 4), 0);
    address = 0;
    ASSERT_EQ(sl_net_resolve_hostname("localhost", &address), 1) << err_get_error_msg();
    EXPECT_EQ(reinterpret_cast<const unsigned char *>(&address)[0], 127);
    EXPECT_EQ(sl_net_resolve_hostname("256.1.1.1.invalid", &address), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_NET_RESHOST);
    EXPECT_NE(std::string(err_get_error_text(0)).find("<256.1.1.1.invalid>"), std::string::npos);
}

TEST_F(SlNet, NullAndForeignHandlesAreRefused) {
    EXPECT_EQ(sl_net_send(nullptr, "x", 1, nullptr), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_NET_BADSESS);
    EXPECT_EQ(sl_net_is_active(nullptr), 0);
    int not_a_session = 0x12345678;
    err_clear_error_stack();
    EXPECT_EQ(sl_net_connect(&not_a_session), 0);
    EXPECT_TRUE(vq::test::refused("sl_net_connect", "session"));
    if (!vq::test::kFreedReadsReported) {
        void *session = new_session();
        void *stale = session;
        ASSERT_EQ(sl_net_free_handle(&session), 1);
        EXPECT_EQ(sl_net_set_user_context(stale, 1), 0);
        EXPECT_TRUE(vq::test::refused("sl_net_set_user_context", "session"));
    }
}

// ---- Connections -----------------------------------------------------------------------

TEST_F(SlNet, RefusedConnectionPutsTheHintUnderTheSocketError) {
    // A socket bound to a port but not listening on it refuses connections.
    void *bound = new_session();
    ASSERT_EQ(sl_net_bind(bound, "127.0.0.1", 0), 1) << err_get_error_msg();
    uint16_t port = 0;
    ASSERT_EQ(sl_net_get_local_port(bound, &port), 1);

    void *client = client_for(port);
    EXPECT_EQ(sl_net_connect(client), 0);
    const std::string server_hint =
        "> Make sure \"server\" is started on \"127.0.0.1\", listening to port " + std::to_string(port);
    ASSERT_EQ(err_get_stack_depth(), 3) << err_get_error_msg();
    EXPECT_EQ(err_get_error_code(0), ERR_NET_CONNF);
    EXPECT_EQ(err_get_error_code(1), ERR_SYS_ERRMSG);
    EXPECT_EQ(std::string(err_get_error_text(2)), server_hint);
    EXPECT_EQ(sl_net_is_active(client), 0);

    err_clear_error_stack();
    ASSERT_EQ(sl_net_set_svc_name(client, "replicator"), 1);
    EXPECT_EQ(sl_net_connect(client), 0);
    EXPECT_EQ(std::string(err_get_error_text(2)),
              "> Make sure \"replicator\" is started on \"127.0.0.1\", listening to port " + std::to_string(port));
    free_session(client);
    free_session(bound);
}

TEST_F(SlNet, ConnectionToAFullBacklogTimesOut) {
    // With a backlog of 0 the system queues one connection and drops the
    // next one's handshake, which never completes while the first waits.
    Listener listener(0);
    void *first = client_for(listener.port);
    ASSERT_EQ(sl_net_connect(first), 1) << err_get_error_msg();
    // The queued connection makes the listener readable: only then is the
    // queue known to be full.
    void *group = nullptr;
    ASSERT_EQ(sl_net_allocate_selection_group(&group), 1);
    ASSERT_EQ(sl_net_add_to_selection_group(group, listener.session, SL_NET_EVENT_READ), 1);
    int32_t ready = 0;
    ASSERT_EQ(sl_net_select(group, -1, &ready), 1);
    ASSERT_EQ(ready, 1);

    void *second = client_for(listener.port);
    ASSERT_EQ(sl_net_set_connect_timeout(second, 1), 1);
    EXPECT_EQ(sl_net_connect(second), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_NET_CONNF) << err_get_error_msg();
    if (err_get_error_code(1) == ERR_TV_CONNTO) {
        EXPECT_NE(std::string(err_get_error_text(1)).find("(1 seconds)"), std::string::npos);
        EXPECT_EQ(err_get_error_code(2), ERR_SYS_ERRMSG);
        EXPECT_EQ(std::string(err_get_error_text(3)),
                  "> Make sure port " + std::to_string(listener.port) + " is open for connection to \"127.0.0.1\"");
    } else {
#ifdef _WIN32
        // Windows answers a full backlog with a refusal instead.
        EXPECT_NE(std::string(err_get_error_text(2)).find("listening to port"), std::string::npos);
#else
        ADD_FAILURE() << "no time-out: " << err_get_error_msg();
#endif
    }
    EXPECT_EQ(sl_net_is_active(second), 0);
    sl_net_free_selection_group(&group);
    free_session(second);
    free_session(first);
}

TEST_F(SlNet, AcceptedSessionsAreActiveAndKnowTheirPeer) {
    Connection c;
    EXPECT_EQ(sl_net_is_active(c.client), 1);
    EXPECT_EQ(sl_net_is_active(c.server), 1);
    uint32_t peer = 0;
    ASSERT_EQ(sl_net_get_peer_address(c.server, &peer), 1);
    const unsigned char loopback[4] = {127, 0, 0, 1};
    EXPECT_EQ(std::memcmp(&peer, loopback, 4), 0);
    uint32_t flags = 0;
    ASSERT_EQ(sl_net_get_flags(c.server, &flags), 1);
    EXPECT_EQ(flags, SL_NET_FLAG_DEFAULT);

    EXPECT_EQ(sl_net_set_send_buffer_size(c.client, 65536), 1) << err_get_error_msg();
    EXPECT_EQ(sl_net_set_recv_buffer_size(c.client, 65536), 1) << err_get_error_msg();
    EXPECT_EQ(sl_net_set_nolinger(c.client), 1) << err_get_error_msg();
    EXPECT_EQ(sl_net_set_reuseaddr(c.client), 1) << err_get_error_msg();
    EXPECT_EQ(sl_net_set_send_buffer_size(c.client, -1), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_NET_BADPTR);

    // A disconnected session is inactive and can connect again.
    ASSERT_EQ(sl_net_disconnect(c.client), 1);
    EXPECT_EQ(sl_net_is_active(c.client), 0);
    ASSERT_EQ(sl_net_connect(c.client), 1) << err_get_error_msg();
    void *again = nullptr;
    ASSERT_EQ(sl_net_accept(c.listener.session, &again), 1);
    ASSERT_EQ(sl_net_send(c.client, "ok", 2, nullptr), 1);
    char got[2] = {};
    ASSERT_EQ(sl_net_recv(again, got, 2, nullptr), 1);
    EXPECT_EQ(std::memcmp(got, "ok", 2), 0);
    free_session(again);
}

TEST_F(SlNet, ListenAndAcceptNeedABoundSocket) {
    void *session = new_session();
    EXPECT_EQ(sl_net_listen(session, 5), 0);
    EXPECT_EQ(stack_codes(), (std::vector<uint32_t>{ERR_NET_LISTEN, ERR_NET_NOTACT}));
    err_clear_error_stack();
    void *accepted = nullptr;
    EXPECT_EQ(sl_net_accept(session, &accepted), 0);
    EXPECT_EQ(accepted, nullptr);
    EXPECT_EQ(stack_codes(), (std::vector<uint32_t>{ERR_NET_ACCEPT, ERR_NET_NOTACT}));
    err_clear_error_stack();
    // A second bind of a port that is being listened on fails.
    Listener listener;
    EXPECT_EQ(sl_net_bind(session, "127.0.0.1", listener.port), 0);
    EXPECT_EQ(stack_codes(), (std::vector<uint32_t>{ERR_NET_BIND, ERR_SYS_ERRMSG}));
    free_session(session);
}

// ---- Transfers -------------------------------------------------------------------------

TEST_F(SlNet, ZeroLengthTransfersSucceedAtOnce) {
    Connection c;
    for (int32_t mode : {SL_NET_IO_SYNC, SL_NET_IO_NON_BLOCKING}) {
        ASSERT_EQ(sl_net_set_io_mode(c.client, mode), 1);
        int32_t count = -1;
        EXPECT_EQ(sl_net_send(c.client, "", 0, &count), 1);
        EXPECT_EQ(count, 0);
        count = -1;
        char none[1];
        EXPECT_EQ(sl_net_recv(c.client, none, 0, &count), 1);
        EXPECT_EQ(count, 0);
        EXPECT_EQ(sl_net_is_active(c.client), 1);
    }
}

TEST_F(SlNet, SynchronousTransfersMoveEveryByteInOrder) {
    Connection c;
    // More than the socket buffers hold, so both loops go round many times.
    std::vector<unsigned char> sent(4 * 1024 * 1024 + 7);
    for (size_t i = 0; i < sent.size(); ++i) {
        sent[i] = static_cast<unsigned char>(i * 7 + i / 251);
    }
    int sender_result = 0;
    int32_t sender_count = 0;
    std::thread sender([&] {
        sender_result = sl_net_send(c.client, sent.data(), static_cast<int32_t>(sent.size()), &sender_count);
    });
    std::vector<unsigned char> received(sent.size());
    int32_t count = 0;
    const int result = sl_net_recv(c.server, received.data(), static_cast<int32_t>(received.size()), &count);
    sender.join();
    EXPECT_EQ(sender_result, 1);
    EXPECT_EQ(sender_count, static_cast<int32_t>(sent.size()));
    EXPECT_EQ(result, 1);
    EXPECT_EQ(count, static_cast<int32_t>(sent.size()));
    EXPECT_TRUE(received == sent);
}

TEST_F(SlNet, PartialFlagReturnsWhatTheFirstReceiveBrings) {
    Connection c;
    ASSERT_EQ(sl_net_send(c.server, "0123456789", 10, nullptr), 1);
    ASSERT_EQ(sl_net_add_flags(c.client, SL_NET_FLAG_PARTIAL_RECV), 1);
    char buffer[100] = {};
    int32_t count = 0;
    // The ten bytes may arrive in more than one piece; each receive returns
    // with what it found, and together they are the ten.
    std::string got;
    while (got.size() < 10) {
        ASSERT_EQ(sl_net_recv(c.client, buffer, 100, &count), 1) << err_get_error_msg();
        ASSERT_GT(count, 0);
        got.append(buffer, static_cast<size_t>(count));
    }
    EXPECT_EQ(got, "0123456789");
}

TEST_F(SlNet, SynchronousReceiveFromAClosedPeerLeavesTheSessionInactive) {
    Connection c;
    ASSERT_EQ(sl_net_send(c.server, "abc", 3, nullptr), 1);
    free_session(c.server);
    char buffer[8] = {};
    int32_t count = -1;
    EXPECT_EQ(sl_net_recv(c.client, buffer, 8, &count), 0);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(std::memcmp(buffer, "abc", 3), 0);
    EXPECT_EQ(stack_codes(), (std::vector<uint32_t>{ERR_NET_RECV, ERR_SYS_ERRMSG}));
    EXPECT_EQ(sl_net_is_active(c.client), 0);
    err_clear_error_stack();
    EXPECT_EQ(sl_net_send(c.client, "x", 1, nullptr), 0);
    EXPECT_EQ(stack_codes(), (std::vector<uint32_t>{ERR_NET_SEND, ERR_NET_NOTACT}));
}

TEST_F(SlNet, SendingToAClosedPeerFailsWithoutKillingTheProcess) {
    Connection c;
    free_session(c.server);
    // The first bytes may still be taken into the send buffer; the peer's
    // reset to them makes a later send fail (with EPIPE on POSIX, which
    // must not come as a signal).
    int result = 1;
    int sends = 0;
    while (result == 1) {
        result = sl_net_send(c.client, "x", 1, nullptr);
        ++sends;
    }
    EXPECT_GE(sends, 1);
    EXPECT_EQ(stack_codes(), (std::vector<uint32_t>{ERR_NET_SEND, ERR_SYS_ERRMSG}));
}

TEST_F(SlNet, NonBlockingReceiveOfAClosedPeerFailsSilentlyAndKeepsTheState) {
    Connection c;
    ASSERT_EQ(sl_net_set_io_mode(c.client, SL_NET_IO_NON_BLOCKING), 1);
    char buffer[8] = {};
    int32_t count = -1;
    // Nothing there yet: success with nothing.
    EXPECT_EQ(sl_net_recv(c.client, buffer, 8, &count), 1);
    EXPECT_EQ(count, 0);
    ASSERT_EQ(sl_net_send(c.server, "hi", 2, nullptr), 1);
    free_session(c.server);
    // Readable once the data (and the end of the stream behind it) is there.
    void *group = nullptr;
    ASSERT_EQ(sl_net_allocate_selection_group(&group), 1);
    ASSERT_EQ(sl_net_add_to_selection_group(group, c.client, SL_NET_EVENT_READ), 1);
    int32_t ready = 0;
    ASSERT_EQ(sl_net_select(group, -1, &ready), 1);
    std::string got;
    int result = 1;
    while (result == 1) {
        ASSERT_EQ(sl_net_select(group, -1, &ready), 1);
        count = -1;
        result = sl_net_recv(c.client, buffer, 8, &count);
        if (result == 1) {
            got.append(buffer, static_cast<size_t>(count));
        }
    }
    EXPECT_EQ(got, "hi");
    EXPECT_EQ(err_get_stack_depth(), 0) << err_get_error_msg();
    EXPECT_EQ(sl_net_is_active(c.client), 1);
    sl_net_free_selection_group(&group);
}

TEST_F(SlNet, SilentPeerEndsAReceiveAfterItsTimeOut) {
    Connection c;
    ASSERT_EQ(sl_net_set_recv_timeout(c.client, 1), 1) << err_get_error_msg();
    char buffer[4];
    int32_t count = -1;
    EXPECT_EQ(sl_net_recv(c.client, buffer, 4, &count), 0);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(stack_codes(), (std::vector<uint32_t>{ERR_NET_RECV, ERR_SYS_ERRMSG}));
    EXPECT_EQ(sl_net_is_active(c.client), 0);
}

TEST_F(SlNet, AsynchronousModeIsNotProvided) {
    Connection c;
    ASSERT_EQ(sl_net_set_io_mode(c.client, SL_NET_IO_ASYNC), 1);
    EXPECT_EQ(sl_net_send(c.client, "x", 1, nullptr), 0);
    char byte;
    EXPECT_EQ(sl_net_recv(c.client, &byte, 1, nullptr), 0);
}

// ---- Hooks -----------------------------------------------------------------------------

struct Scrambler {
    unsigned char key;
    int calls = 0;
};

Scrambler *scrambler_of(void *session) {
    void *data = nullptr;
    EXPECT_EQ(sl_net_get_hook_data(session, &data), 1);
    return static_cast<Scrambler *>(data);
}

int scrambling_send(void *session, void *buffer, int32_t length, int32_t *done) {
    Scrambler *s = scrambler_of(session);
    ++s->calls;
    std::vector<unsigned char> out(static_cast<const unsigned char *>(buffer),
                                   static_cast<const unsigned char *>(buffer) + length);
    for (unsigned char &byte : out) {
        byte ^= s->key;
    }
    return sl_net_send_sync(session, out.data(), length, done);
}

int unscrambling_recv(void *session, void *buffer, int32_t length, int32_t *done) {
    Scrambler *s = scrambler_of(session);
    ++s->calls;
    const int result = sl_net_recv_sync(session, buffer, length, done);
    for (int32_t i = 0; i < length; ++i) {
        static_cast<unsigned char *>(buffer)[i] ^= s->key;
    }
    return result;
}

TEST_F(SlNet, HooksCarryEverySendAndReceiveWhileSwitchedOn) {
    Connection c;
    Scrambler client_key{0x5A};
    Scrambler server_key{0x5A};
    ASSERT_EQ(sl_net_set_hook_data(c.client, &client_key), 1);
    ASSERT_EQ(sl_net_set_hook_routine(c.client, SL_NET_HOOK_SEND, scrambling_send), 1);
    ASSERT_EQ(sl_net_set_hook_state(c.client, 1), 1);
    ASSERT_EQ(sl_net_set_hook_data(c.server, &server_key), 1);
    ASSERT_EQ(sl_net_set_hook_routine(c.server, SL_NET_HOOK_RECV, unscrambling_recv), 1);

    // Server hooks off: the bytes arrive as the client's hook changed them.
    ASSERT_EQ(sl_net_send(c.client, "plain", 5, nullptr), 1);
    char raw[5];
    ASSERT_EQ(sl_net_recv(c.server, raw, 5, nullptr), 1);
    EXPECT_EQ(client_key.calls, 1);
    EXPECT_EQ(server_key.calls, 0);
    EXPECT_EQ(static_cast<unsigned char>(raw[0]), 'p' ^ 0x5A);

    // Both on: the receiving hook undoes the sending one.
    ASSERT_EQ(sl_net_set_hook_state(c.server, 1), 1);
    int32_t count = 0;
    ASSERT_EQ(sl_net_send(c.client, "secret", 6, &count), 1);
    EXPECT_EQ(count, 6);
    char got[6];
    ASSERT_EQ(sl_net_recv(c.server, got, 6, &count), 1);
    EXPECT_EQ(count, 6);
    EXPECT_EQ(std::memcmp(got, "secret", 6), 0);
    EXPECT_EQ(server_key.calls, 1);

    EXPECT_EQ(sl_net_set_hook_routine(c.client, 2, scrambling_send), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_NET_INVHC);
    EXPECT_EQ(std::string(err_get_error_text(0)), "hook code 2 is invalid");
}

// ---- Selection groups --------------------------------------------------------------------

// The sessions get_next_event hands out until it reports the end.
std::vector<void *> drain(void *group, int32_t wanted_events) {
    std::vector<void *> reported;
    for (;;) {
        void *session = nullptr;
        int32_t events = -1;
        EXPECT_EQ(sl_net_get_next_event(group, &session, &events), 1) << err_get_error_msg();
        if (session == nullptr) {
            return reported;
        }
        EXPECT_EQ(events, wanted_events);
        reported.push_back(session);
    }
}

TEST_F(SlNet, SelectionReportsReadableMembersOnceTheirPeerWrote) {
    Connection first;
    Connection second;
    void *group = nullptr;
    ASSERT_EQ(sl_net_allocate_selection_group(&group), 1);
    ASSERT_EQ(sl_net_add_to_selection_group(group, first.client, SL_NET_EVENT_READ), 1);
    ASSERT_EQ(sl_net_add_to_selection_group(group, second.client, SL_NET_EVENT_READ), 1);
    int32_t ready = -1;
    // Nobody wrote: a look without waiting finds nothing.
    ASSERT_EQ(sl_net_select(group, 0, &ready), 1);
    EXPECT_EQ(ready, 0);
    EXPECT_TRUE(drain(group, 0).empty());

    ASSERT_EQ(sl_net_send(second.server, "x", 1, nullptr), 1);
    ASSERT_EQ(sl_net_select(group, -1, &ready), 1);
    EXPECT_EQ(ready, 1);
    EXPECT_EQ(drain(group, SL_NET_EVENT_READ), std::vector<void *>{second.client});

    // Readable and writable at once is one ready member with both bits.
    ASSERT_EQ(sl_net_add_to_selection_group(group, second.client, SL_NET_EVENT_READ | SL_NET_EVENT_WRITE), 1);
    int32_t members = 0;
    ASSERT_EQ(sl_net_get_number_of_members(group, &members), 1);
    EXPECT_EQ(members, 2);
    ASSERT_EQ(sl_net_select(group, -1, &ready), 1);
    EXPECT_EQ(ready, 1);
    EXPECT_EQ(drain(group, SL_NET_EVENT_READ | SL_NET_EVENT_WRITE), std::vector<void *>{second.client});

    // A ready member removed before it was reported is not owed any more.
    ASSERT_EQ(sl_net_select(group, -1, &ready), 1);
    ASSERT_EQ(ready, 1);
    ASSERT_EQ(sl_net_remove_from_selection_group(group, second.client), 1);
    EXPECT_TRUE(drain(group, 0).empty());
    EXPECT_EQ(sl_net_remove_from_selection_group(group, second.client), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_NET_BADSESS);
    ASSERT_EQ(sl_net_free_selection_group(&group), 1);
    EXPECT_EQ(group, nullptr);
}

TEST_F(SlNet, SelectionGroupsGrowAndReuseFreeSlotsInOrder) {
    Listener listener;
    constexpr int kSessions = 11;
    std::vector<void *> clients;
    std::vector<void *> servers;
    void *group = nullptr;
    ASSERT_EQ(sl_net_allocate_selection_group(&group), 1);
    for (int i = 0; i < kSessions; ++i) {
        clients.push_back(client_for(listener.port));
        ASSERT_EQ(sl_net_connect(clients.back()), 1) << err_get_error_msg();
        void *server = nullptr;
        ASSERT_EQ(sl_net_accept(listener.session, &server), 1);
        servers.push_back(server);
        // A fresh connection can be written to at once.
        ASSERT_EQ(sl_net_add_to_selection_group(group, clients.back(), SL_NET_EVENT_WRITE), 1);
    }
    int32_t members = 0;
    ASSERT_EQ(sl_net_get_number_of_members(group, &members), 1);
    EXPECT_EQ(members, kSessions);
    int32_t ready = 0;
    ASSERT_EQ(sl_net_select(group, -1, &ready), 1);
    EXPECT_EQ(ready, kSessions);
    EXPECT_EQ(drain(group, SL_NET_EVENT_WRITE), clients);

    // Slots 2 and 7 freed; the next two members take them, in that order.
    ASSERT_EQ(sl_net_remove_from_selection_group(group, clients[2]), 1);
    ASSERT_EQ(sl_net_remove_from_selection_group(group, clients[7]), 1);
    ASSERT_EQ(sl_net_add_to_selection_group(group, servers[0], SL_NET_EVENT_WRITE), 1);
    ASSERT_EQ(sl_net_add_to_selection_group(group, servers[1], SL_NET_EVENT_WRITE), 1);
    std::vector<void *> expected = clients;
    expected[2] = servers[0];
    expected[7] = servers[1];
    ASSERT_EQ(sl_net_select(group, -1, &ready), 1);
    EXPECT_EQ(ready, kSessions);
    EXPECT_EQ(drain(group, SL_NET_EVENT_WRITE), expected);

    ASSERT_EQ(sl_net_init_selection_group(group), 1);
    ASSERT_EQ(sl_net_get_number_of_members(group, &members), 1);
    EXPECT_EQ(members, 0);
    ASSERT_EQ(sl_net_select(group, 0, &ready), 1);
    EXPECT_EQ(ready, 0);
    ASSERT_EQ(sl_net_free_selection_group(&group), 1);
    for (void *session : clients) {
        free_session(session);
    }
    for (void *session : servers) {
        free_session(session);
    }
}

// ---- Packed sessions ---------------------------------------------------------------------

std::vector<unsigned char> packed(void *session) {
    void *buffer = nullptr;
    uint32_t length = 0;
    EXPECT_EQ(sl_net_pack_handle(session, &buffer, &length), 1) << err_get_error_msg();
    const auto *bytes = static_cast<const unsigned char *>(buffer);
    std::vector<unsigned char> copy(bytes, bytes + length);
    std::free(buffer);
    return copy;
}

void *unpacked(const std::vector<unsigned char> &message) {
    void *session = nullptr;
    EXPECT_EQ(sl_net_unpack_to_handle(message.data(), static_cast<uint32_t>(message.size()), &session), 1)
        << err_get_error_msg();
    return session;
}

TEST_F(SlNet, UnpackedSessionsKeepHostServicePortAndSocket) {
    // A port bound but not listened on refuses, and the refusal's hint shows
    // what the unpacked session knows.
    void *bound = new_session();
    ASSERT_EQ(sl_net_bind(bound, "127.0.0.1", 0), 1) << err_get_error_msg();
    uint16_t port = 0;
    ASSERT_EQ(sl_net_get_local_port(bound, &port), 1);
    void *original = client_for(port);
    ASSERT_EQ(sl_net_set_svc_name(original, "replicator"), 1);
    ASSERT_EQ(sl_net_set_io_mode(original, SL_NET_IO_NON_BLOCKING), 1);
    const std::vector<unsigned char> message = packed(original);
    void *copy = unpacked(message);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(packed(copy), message);
    EXPECT_EQ(sl_net_connect(copy), 0);
    EXPECT_EQ(std::string(err_get_error_text(2)),
              "> Make sure \"replicator\" is started on \"127.0.0.1\", listening to port " + std::to_string(port));
    free_session(copy);

    // A socket number travels as it is: one far above any descriptor here.
    const sl_net_socket far_away = 0x7FFF0000;
    ASSERT_EQ(sl_net_override_socket(original, far_away), 1);
    copy = unpacked(packed(original));
    ASSERT_NE(copy, nullptr);
    sl_net_socket socket = 0;
    ASSERT_EQ(sl_net_get_socket(copy, &socket), 1);
    EXPECT_EQ(socket, far_away);
    EXPECT_EQ(sl_net_is_active(copy), 1);
    free_session(copy);
    free_session(original);
    free_session(bound);
}

// A signed message of codes and int values, as another process might send.
std::vector<unsigned char> message_of(const std::vector<std::pair<uint16_t, int32_t>> &fields) {
    void *message = nullptr;
    EXPECT_EQ(slm_allocate_handle(&message), 1);
    for (const auto &[code, value] : fields) {
        EXPECT_EQ(slm_set_int(message, code, value), 1);
    }
    EXPECT_EQ(slm_insert_code(message, static_cast<uint16_t>(SLM_END_CODE)), 1);
    EXPECT_EQ(slm_sign_message(message), 1);
    uint32_t size = 0;
    void *bytes = nullptr;
    EXPECT_EQ(slm_get_size(message, &size), 1);
    EXPECT_EQ(slm_get_message_ptr(message, &bytes), 1);
    std::vector<unsigned char> copy(static_cast<unsigned char *>(bytes), static_cast<unsigned char *>(bytes) + size);
    slm_free_handle(&message);
    return copy;
}

TEST_F(SlNet, PackedSessionsThatDoNotCheckOutAreRefused) {
    void *session = new_session();
    std::vector<unsigned char> message = packed(session);
    free_session(session);
    message.back() ^= 0x01;
    void *copy = reinterpret_cast<void *>(1);
    EXPECT_EQ(sl_net_unpack_to_handle(message.data(), static_cast<uint32_t>(message.size()), &copy), 0);
    EXPECT_EQ(copy, nullptr);
    EXPECT_EQ(err_get_error_code(0), ERR_MSG_CRC);

    struct Case {
        std::vector<std::pair<uint16_t, int32_t>> fields;
        uint32_t error;
    };
    const std::vector<Case> cases = {
        {{{0, 1}, {11, 0}}, ERR_NET_INCNST},  // a code beyond the session's fields
        {{{2, 5}}, ERR_NET_BADPROT},
        {{{1, 3}}, ERR_NET_BADIO},
        {{{0, 2}}, ERR_NET_INCNST},           // a state that is neither
    };
    for (const Case &c : cases) {
        err_clear_error_stack();
        const std::vector<unsigned char> bad = message_of(c.fields);
        copy = reinterpret_cast<void *>(1);
        EXPECT_EQ(sl_net_unpack_to_handle(bad.data(), static_cast<uint32_t>(bad.size()), &copy), 0);
        EXPECT_EQ(copy, nullptr);
        EXPECT_EQ(err_get_error_code(0), c.error) << err_get_error_msg();
    }
    // A port written as an int is the wrong type for its code.
    err_clear_error_stack();
    const std::vector<unsigned char> mistyped = message_of({{3, 80}});
    EXPECT_EQ(sl_net_unpack_to_handle(mistyped.data(), static_cast<uint32_t>(mistyped.size()), &copy), 0);
    EXPECT_EQ(copy, nullptr);
}

// ---- Socket files --------------------------------------------------------------------------

std::string temp_name(const char *leaf) { return ::testing::TempDir() + "vq_sl_net_" + leaf; }

uint32_t this_process() {
#ifdef _WIN32
    return static_cast<uint32_t>(GetCurrentProcessId());
#else
    return static_cast<uint32_t>(getpid());
#endif
}

void write_file(const std::string &name, const std::string &bytes) {
    std::FILE *file = std::fopen(name.c_str(), "wb");
    ASSERT_NE(file, nullptr);
    ASSERT_EQ(std::fwrite(bytes.data(), 1, bytes.size(), file), bytes.size());
    ASSERT_EQ(std::fclose(file), 0);
}

long file_size(const std::string &name) {
    std::FILE *file = std::fopen(name.c_str(), "rb");
    if (file == nullptr) {
        return -1;
    }
    std::fseek(file, 0, SEEK_END);
    const long size = std::ftell(file);
    std::fclose(file);
    return size;
}

TEST_F(SlNet, ASocketTakenFromAFileWorksInAnotherSession) {
    Connection c;
    const std::string file = temp_name("own.sock");
    ASSERT_EQ(sl_net_save_socket_for_process(c.server, this_process(), file.c_str()), 1) << err_get_error_msg();
    EXPECT_EQ(file_size(file), SL_NET_SOCKET_FILE_SIZE);
    sl_net_socket socket = SL_NET_NO_SOCKET;
    ASSERT_EQ(sl_net_get_socket_from_file(&socket, file.c_str()), 1) << err_get_error_msg();
    void *adopter = new_session();
    ASSERT_EQ(sl_net_override_socket(adopter, socket), 1);
    EXPECT_EQ(sl_net_is_active(adopter), 1);
    // The session that handed its socket over closes its own without ending
    // the connection for the one that took it.
    free_session(c.server);

    ASSERT_EQ(sl_net_send(c.client, "adopted", 7, nullptr), 1);
    char got[7];
    ASSERT_EQ(sl_net_recv(adopter, got, 7, nullptr), 1) << err_get_error_msg();
    EXPECT_EQ(std::memcmp(got, "adopted", 7), 0);
    ASSERT_EQ(sl_net_send(adopter, "back", 4, nullptr), 1) << err_get_error_msg();
    ASSERT_EQ(sl_net_recv(c.client, got, 4, nullptr), 1) << err_get_error_msg();
    EXPECT_EQ(std::memcmp(got, "back", 4), 0);
    free_session(adopter);
    std::remove(file.c_str());
}

TEST_F(SlNet, SocketFilesOfTheWrongSizeOrKindAreRefused) {
    sl_net_socket socket = SL_NET_NO_SOCKET;
    const std::string missing = temp_name("missing.sock");
    std::remove(missing.c_str());
    EXPECT_EQ(sl_net_get_socket_from_file(&socket, missing.c_str()), 0);
    EXPECT_EQ(stack_codes(), (std::vector<uint32_t>{ERR_FIL_READ, ERR_SYS_ERRMSG}));
    EXPECT_NE(std::string(err_get_error_text(0)).find(missing), std::string::npos);

    for (size_t size : {size_t{0}, size_t{SL_NET_SOCKET_FILE_SIZE - 1}, size_t{SL_NET_SOCKET_FILE_SIZE + 1}}) {
        err_clear_error_stack();
        const std::string name = temp_name("sized.sock");
        write_file(name, std::string(size, '\0'));
        EXPECT_EQ(sl_net_get_socket_from_file(&socket, name.c_str()), 0) << size;
        EXPECT_EQ(err_get_error_code(0), ERR_FIL_READ) << size;
        std::remove(name.c_str());
    }
    err_clear_error_stack();
    EXPECT_EQ(sl_net_get_socket_from_file(&socket, ::testing::TempDir().c_str()), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_FIL_READ);

    // The right size, but nothing a socket can be made of.
    err_clear_error_stack();
    const std::string junk = temp_name("junk.sock");
    write_file(junk, std::string(SL_NET_SOCKET_FILE_SIZE, 'j'));
    EXPECT_EQ(sl_net_get_socket_from_file(&socket, junk.c_str()), 0);
    EXPECT_EQ(stack_codes(), (std::vector<uint32_t>{ERR_NET_CRESOCK, ERR_SYS_ERRMSG}));
    std::remove(junk.c_str());
    EXPECT_EQ(socket, SL_NET_NO_SOCKET);

    // A file that cannot be created leaves nothing behind.
    Connection c;
    err_clear_error_stack();
    const std::string nowhere = temp_name("no-such-dir/x.sock");
    EXPECT_EQ(sl_net_save_socket_for_process(c.server, this_process(), nowhere.c_str()), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_SYS_ERRMSG);
    EXPECT_EQ(file_size(nowhere), -1);
    void *unconnected = new_session();
    EXPECT_EQ(sl_net_save_socket_for_process(unconnected, this_process(), temp_name("none.sock").c_str()), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_NET_NOTACT);
    free_session(unconnected);
}

#ifndef _WIN32
TEST_F(SlNet, SocketFileOfAClosedSocketIsRefusedOnPosix) {
    const std::string file = temp_name("closed.sock");
    {
        Connection c;
        ASSERT_EQ(sl_net_save_socket_for_process(c.server, this_process(), file.c_str()), 1) << err_get_error_msg();
    }
    // The descriptor the file names is closed now, or (reused since) no
    // longer the same socket.
    sl_net_socket socket = SL_NET_NO_SOCKET;
    EXPECT_EQ(sl_net_get_socket_from_file(&socket, file.c_str()), 0);
    EXPECT_EQ(stack_codes(), (std::vector<uint32_t>{ERR_NET_CRESOCK, ERR_SYS_ERRMSG}));
    std::remove(file.c_str());
}
#endif

// Starts the handover child on a socket file; the POSIX child inherits the
// socket, so the file is saved before it starts; the Windows child is
// started suspended so that the file can name its process id first.
class Child {
public:
    bool start(void *session, const std::string &file) {
#ifdef _WIN32
        std::string line = std::string("\"") + VQ_NET_SOCKET_CHILD + "\" \"" + file + "\"";
        STARTUPINFOA startup{};
        startup.cb = sizeof startup;
        if (!CreateProcessA(nullptr, line.data(), nullptr, nullptr, FALSE, CREATE_SUSPENDED, nullptr, nullptr,
                            &startup, &process_)) {
            return false;
        }
        const bool saved = sl_net_save_socket_for_process(session, process_.dwProcessId, file.c_str()) == 1;
        ResumeThread(process_.hThread);
        return saved;
#else
        if (sl_net_save_socket_for_process(session, 0, file.c_str()) != 1) {
            return false;
        }
        std::string path = VQ_NET_SOCKET_CHILD;
        std::string argument = file;
        char *argv[] = {path.data(), argument.data(), nullptr};
        return posix_spawn(&pid_, path.c_str(), nullptr, nullptr, argv, environ) == 0;
#endif
    }

    // The child's exit status, once it has ended.
    int wait() {
#ifdef _WIN32
        WaitForSingleObject(process_.hProcess, INFINITE);
        DWORD code = 1;
        GetExitCodeProcess(process_.hProcess, &code);
        CloseHandle(process_.hThread);
        CloseHandle(process_.hProcess);
        return static_cast<int>(code);
#else
        int status = 0;
        if (waitpid(pid_, &status, 0) != pid_ || !WIFEXITED(status)) {
            return -1;
        }
        return WEXITSTATUS(status);
#endif
    }

private:
#ifdef _WIN32
    PROCESS_INFORMATION process_{};
#else
    pid_t pid_ = -1;
#endif
};

TEST_F(SlNet, AChildProcessTakesTheSocketOverFromAFile) {
    Connection c;
    const std::string file = temp_name("child.sock");
    Child child;
    ASSERT_TRUE(child.start(c.server, file)) << err_get_error_msg();
    // The parent lets go of its end; the child's hold keeps it open.
    free_session(c.server);

    char ready[11];
    ASSERT_EQ(sl_net_recv(c.client, ready, 11, nullptr), 1) << err_get_error_msg();
    EXPECT_EQ(std::string(ready, 11), "child:ready");
    ASSERT_EQ(sl_net_send(c.client, "ping!", 5, nullptr), 1);
    char answer[10];
    ASSERT_EQ(sl_net_recv(c.client, answer, 10, nullptr), 1) << err_get_error_msg();
    EXPECT_EQ(std::string(answer, 10), "pong:ping!");
    EXPECT_EQ(child.wait(), 0);
    // With the child gone nobody holds the other end any more.
    char more;
    EXPECT_EQ(sl_net_recv(c.client, &more, 1, nullptr), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_NET_RECV);
    std::remove(file.c_str());
}

}  // namespace
