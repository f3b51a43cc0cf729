// Network sessions over the loopback interface: connections and their
// failures, exact transfers and the rules for a closed peer, time-outs,
// hooks, selection groups, packed sessions and the handover of a socket to a
// child process. Every wait is on an event (data, a closed peer, a ready
// socket), never on a time window; the time-outs under test only decide
// that a call fails, not how long it took.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "support/handle_checks.h"
#include "vq_glob/err.h"
#include "vq_glob/sl_net.h"

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

}  // namespace
