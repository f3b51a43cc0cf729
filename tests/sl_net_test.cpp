// Network sessions over the loopback interface: connections and their
// failures, transfers and the closed-peer rules, time-outs, hooks, selection
// groups, packed sessions and the handover of a socket to a child process.
// Every wait is on an event; a time-out under test only decides that a call fails.
#include <gtest/gtest.h>

#ifdef _WIN32
#include <windows.h>
#else
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "support/handle_checks.h"
#include "support/net_support.h"
#include "vq_glob/err.h"
#include "vq_glob/sl_net.h"
#include "vq_glob/slm.h"

#ifndef _WIN32
extern char **environ;
#endif

namespace {

using namespace vq::test;
using SlNet = NetTest;

bool is_loopback(uint32_t address) {
    const unsigned char loopback[4] = {127, 0, 0, 1};
    return std::memcmp(&address, loopback, 4) == 0;
}

std::string refused_hint(const char *service, uint16_t port) {
    return std::string("> Make sure \"") + service + "\" is started on \"127.0.0.1\", listening to port " +
           std::to_string(port);
}

// A session bound to a port it does not listen on: connections to it are refused.
struct Deaf {
    void *session = new_session();
    uint16_t port = 0;
    Deaf() {
        EXPECT_EQ(sl_net_bind(session, "127.0.0.1", 0), 1) << err_get_error_msg();
        EXPECT_EQ(sl_net_get_local_port(session, &port), 1);
    }
    ~Deaf() { free_session(session); }
};

// A selection group freed with the object.
struct Group {
    void *group = nullptr;
    Group() { EXPECT_EQ(sl_net_allocate_selection_group(&group), 1); }
    ~Group() {
        if (group != nullptr) {
            sl_net_free_selection_group(&group);
        }
    }
    void add(void *session, int32_t events) const {
        EXPECT_EQ(sl_net_add_to_selection_group(group, session, events), 1) << err_get_error_msg();
    }
    int32_t select(int32_t timeout) const {
        int32_t ready = -1;
        EXPECT_EQ(sl_net_select(group, timeout, &ready), 1) << err_get_error_msg();
        return ready;
    }
    int32_t members() const {
        int32_t count = -1;
        EXPECT_EQ(sl_net_get_number_of_members(group, &count), 1);
        return count;
    }
    // The sessions get_next_event hands out until it reports the end.
    std::vector<void *> drain(int32_t wanted_events) const {
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
};

// ---- Sessions ------------------------------------------------------------------------

TEST_F(SlNet, NewSessionsStartSynchronousWithDefaultFlagsAndRefuseBadArguments) {
    void *session = nullptr;
    EXPECT_TRUE(fails_with(sl_net_allocate_handle(7, &session), ERR_NET_BADPROT));
    EXPECT_EQ(session, nullptr);
    EXPECT_TRUE(fails_with(sl_net_allocate_handle(SL_NET_TCP, nullptr), ERR_NET_BADPTR));

    session = new_session();
    uint32_t flags = 0;
    ASSERT_EQ(sl_net_get_flags(session, &flags), 1);
    EXPECT_EQ(flags, SL_NET_FLAG_DEFAULT);
    EXPECT_EQ(sl_net_is_active(session), 0);
    sl_net_socket socket = 0;
    ASSERT_EQ(sl_net_get_socket(session, &socket), 1);
    EXPECT_EQ(socket, SL_NET_NO_SOCKET);
    EXPECT_TRUE(fails_with(sl_net_set_io_mode(session, 3), ERR_NET_BADIO));
    EXPECT_TRUE(fails_with(sl_net_set_protocol(session, -1), ERR_NET_BADPROT));
    EXPECT_TRUE(fails_with(sl_net_set_recv_timeout(session, 1), ERR_NET_NOTACT))
        << "options need a connected socket";
    EXPECT_TRUE(fails_with_stack(sl_net_listen(session, 5), {ERR_NET_LISTEN, ERR_NET_NOTACT}));
    void *accepted = nullptr;
    EXPECT_TRUE(fails_with_stack(sl_net_accept(session, &accepted), {ERR_NET_ACCEPT, ERR_NET_NOTACT}));
    EXPECT_EQ(accepted, nullptr);
    Listener listener;
    EXPECT_TRUE(
        fails_with_stack(sl_net_bind(session, "127.0.0.1", listener.port), {ERR_NET_BIND, ERR_SYS_ERRMSG}))
        << "the port is taken";

    const struct {
        int32_t which;
        sl_net_remote_info info;
        uint32_t code;
        const char *text;
    } refusals[] = {
        {0, {nullptr, nullptr, 80}, ERR_NET_NOHOST, ""},
        {1, {nullptr, nullptr, 80}, ERR_NET_BADINFO, ""},
        {0, {"127.0.0.1", nullptr, 0}, ERR_NET_SERUNK, ""},
        {0, {"127.0.0.1", "no-such-service-here", 0}, ERR_NET_SERUNK, "<no-such-service-here>"},
    };
    for (const auto &r : refusals) {
        EXPECT_TRUE(fails_with(sl_net_set_remote_info(session, r.which, &r.info), r.code, r.text));
    }
    // A port given beside a service the system does not know is used.
    const sl_net_remote_info fallback{"127.0.0.1", "no-such-service-here", 4242};
    EXPECT_EQ(sl_net_set_remote_info(session, 0, &fallback), 1);
    EXPECT_EQ(err_get_stack_depth(), 0);

    EXPECT_EQ(sl_net_free_handle(&session), 1);
    EXPECT_EQ(session, nullptr);
}

TEST_F(SlNet, HostNamesAndDottedQuadsResolve) {
    uint32_t address = 0;
    ASSERT_EQ(sl_net_resolve_hostname("127.0.0.1", &address), 1);
    EXPECT_TRUE(is_loopback(address));
    address = 0;
    ASSERT_EQ(sl_net_resolve_hostname("localhost", &address), 1) << err_get_error_msg();
    EXPECT_EQ(reinterpret_cast<const unsigned char *>(&address)[0], 127);
    EXPECT_TRUE(fails_with(sl_net_resolve_hostname("256.1.1.1.invalid", &address), ERR_NET_RESHOST,
                           "<256.1.1.1.invalid>"));
}

TEST_F(SlNet, NullAndForeignHandlesAreRefused) {
    EXPECT_TRUE(fails_with(sl_net_send(nullptr, "x", 1, nullptr), ERR_NET_BADSESS));
    EXPECT_EQ(sl_net_is_active(nullptr), 0);
    int not_a_session = 0x12345678;
    EXPECT_EQ(sl_net_connect(&not_a_session), 0);
    EXPECT_TRUE(refused("sl_net_connect", "session"));
    if (!kFreedReadsReported) {
        void *session = new_session();
        void *stale = session;
        ASSERT_EQ(sl_net_free_handle(&session), 1);
        EXPECT_EQ(sl_net_set_user_context(stale, 1), 0);
        EXPECT_TRUE(refused("sl_net_set_user_context", "session"));
    }
}

// ---- Connections -----------------------------------------------------------------------

TEST_F(SlNet, RefusedAndTimedOutConnectionsPutTheHintUnderTheSocketError) {
    Deaf deaf;
    void *client = client_for(deaf.port);
    EXPECT_EQ(sl_net_connect(client), 0);
    ASSERT_EQ(err_get_stack_depth(), 3) << err_get_error_msg();
    EXPECT_EQ(err_get_error_code(0), ERR_NET_CONNF);
    EXPECT_EQ(err_get_error_code(1), ERR_SYS_ERRMSG);
    EXPECT_EQ(std::string(err_get_error_text(2)), refused_hint("server", deaf.port));
    EXPECT_EQ(sl_net_is_active(client), 0);
    free_session(client);
    err_clear_error_stack();

    // With a backlog of 0 the system queues one connection and drops the
    // next one's handshake; the listener turning readable shows the queue full.
    Listener listener(0);
    void *first = client_for(listener.port);
    ASSERT_EQ(sl_net_connect(first), 1) << err_get_error_msg();
    Group group;
    group.add(listener.session, SL_NET_EVENT_READ);
    ASSERT_EQ(group.select(-1), 1);

    void *second = client_for(listener.port);
    ASSERT_EQ(sl_net_set_connect_timeout(second, 1), 1);
    EXPECT_EQ(sl_net_connect(second), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_NET_CONNF) << err_get_error_msg();
    if (err_get_error_code(1) == ERR_TV_CONNTO) {
        EXPECT_NE(std::string(err_get_error_text(1)).find("(1 seconds)"), std::string::npos);
        EXPECT_EQ(err_get_error_code(2), ERR_SYS_ERRMSG);
        EXPECT_EQ(std::string(err_get_error_text(3)), "> Make sure port " + std::to_string(listener.port) +
                                                          " is open for connection to \"127.0.0.1\"");
    } else {
#ifdef _WIN32
        // Windows answers a full backlog with a refusal instead.
        EXPECT_NE(std::string(err_get_error_text(2)).find("listening to port"), std::string::npos);
#else
        ADD_FAILURE() << "no time-out: " << err_get_error_msg();
#endif
    }
    EXPECT_EQ(sl_net_is_active(second), 0);
    free_session(second);
    free_session(first);
}

TEST_F(SlNet, AcceptedSessionsAreActiveKnowTheirPeerAndReconnect) {
    Connection c;
    EXPECT_EQ(sl_net_is_active(c.client), 1);
    EXPECT_EQ(sl_net_is_active(c.server), 1);
    uint32_t peer = 0;
    ASSERT_EQ(sl_net_get_peer_address(c.server, &peer), 1);
    EXPECT_TRUE(is_loopback(peer));
    uint32_t flags = 0;
    ASSERT_EQ(sl_net_get_flags(c.server, &flags), 1);
    EXPECT_EQ(flags, SL_NET_FLAG_DEFAULT);

    for (int result : {sl_net_set_send_buffer_size(c.client, 65536), sl_net_set_recv_buffer_size(c.client, 65536),
                       sl_net_set_nolinger(c.client), sl_net_set_reuseaddr(c.client)}) {
        EXPECT_EQ(result, 1) << err_get_error_msg();
    }
    EXPECT_TRUE(fails_with(sl_net_set_send_buffer_size(c.client, -1), ERR_NET_BADPTR));

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

// ---- Transfers -------------------------------------------------------------------------

TEST_F(SlNet, ZeroLengthTransfersSucceedAtOnceAndAsynchronousModeIsRefused) {
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
    ASSERT_EQ(sl_net_set_io_mode(c.client, SL_NET_IO_ASYNC), 1);
    EXPECT_EQ(sl_net_send(c.client, "x", 1, nullptr), 0);
    char byte;
    EXPECT_EQ(sl_net_recv(c.client, &byte, 1, nullptr), 0);
}

TEST_F(SlNet, SynchronousTransfersMoveEveryByteInOrder) {
    Connection c;
    // More than the socket buffers hold, so both loops go round many times.
    const Bytes sent = pattern(4 * 1024 * 1024 + 7, 1);
    int sender_result = 0;
    int32_t sender_count = 0;
    std::thread sender([&] {
        sender_result = sl_net_send(c.client, sent.data(), static_cast<int32_t>(sent.size()), &sender_count);
    });
    Bytes received(sent.size());
    int32_t count = 0;
    EXPECT_EQ(sl_net_recv(c.server, received.data(), static_cast<int32_t>(received.size()), &count), 1);
    sender.join();
    EXPECT_EQ(sender_result, 1);
    EXPECT_EQ(sender_count, static_cast<int32_t>(sent.size()));
    EXPECT_EQ(count, static_cast<int32_t>(sent.size()));
    EXPECT_TRUE(received == sent);
}

TEST_F(SlNet, PartialFlagReturnsWhatTheFirstReceiveBrings) {
    Connection c;
    ASSERT_EQ(sl_net_send(c.server, "0123456789", 10, nullptr), 1);
    ASSERT_EQ(sl_net_add_flags(c.client, SL_NET_FLAG_PARTIAL_RECV), 1);
    // The ten bytes may come in pieces; each receive returns with what it found.
    char buffer[100] = {};
    std::string got;
    while (got.size() < 10) {
        int32_t count = 0;
        ASSERT_EQ(sl_net_recv(c.client, buffer, 100, &count), 1) << err_get_error_msg();
        ASSERT_GT(count, 0);
        got.append(buffer, static_cast<size_t>(count));
    }
    EXPECT_EQ(got, "0123456789");
}

TEST_F(SlNet, SynchronousReceiveFromAClosedOrSilentPeerLeavesTheSessionInactive) {
    for (const bool closes : {true, false}) {
        SCOPED_TRACE(closes ? "closed" : "silent");
        Connection c;
        if (closes) {
            ASSERT_EQ(sl_net_send(c.server, "abc", 3, nullptr), 1);
            free_session(c.server);
        } else {
            ASSERT_EQ(sl_net_set_recv_timeout(c.client, 1), 1) << err_get_error_msg();
        }
        char buffer[8] = {};
        int32_t count = -1;
        EXPECT_TRUE(
            fails_with_stack(sl_net_recv(c.client, buffer, 8, &count), {ERR_NET_RECV, ERR_SYS_ERRMSG}));
        EXPECT_EQ(count, closes ? 3 : 0);
        EXPECT_EQ(std::string(buffer), closes ? "abc" : "");
        EXPECT_EQ(sl_net_is_active(c.client), 0);
        EXPECT_TRUE(fails_with_stack(sl_net_send(c.client, "x", 1, nullptr), {ERR_NET_SEND, ERR_NET_NOTACT}));
    }
}

TEST_F(SlNet, AbortingFromAnotherThreadBreaksABlockedReceiveAndEveryLaterTransfer) {
    Connection c;
    // A broken abort shows as a failure after this, never as a hang.
    ASSERT_EQ(sl_net_set_recv_timeout(c.client, 60), 1);
    std::promise<void> first_part;
    int blocked_result = -1;
    std::thread receiver([&] {
        char buffer[8] = {};
        if (sl_net_recv(c.client, buffer, 3, nullptr) == 1) {
            first_part.set_value();
            blocked_result = sl_net_recv(c.client, buffer, 8, nullptr);
        }
    });
    ASSERT_EQ(sl_net_send(c.server, "abc", 3, nullptr), 1);
    first_part.get_future().wait();
    ASSERT_EQ(sl_net_abort(c.client), 1) << err_get_error_msg();
    receiver.join();
    EXPECT_EQ(blocked_result, 0);
    EXPECT_TRUE(fails_with(sl_net_send(c.client, "x", 1, nullptr), ERR_NET_SEND));
    // The peer sees the connection end.
    char byte = 0;
    EXPECT_EQ(sl_net_recv(c.server, &byte, 1, nullptr), 0);
    EXPECT_EQ(sl_net_abort(c.client), 1);
    EXPECT_TRUE(fails_with(sl_net_abort(nullptr), ERR_NET_BADSESS));
}

TEST_F(SlNet, SendingToAClosedPeerFailsWithoutKillingTheProcess) {
    Connection c;
    free_session(c.server);
    // The first bytes may still be buffered; the peer's reset fails a later
    // send (EPIPE on POSIX, which must not come as a signal).
    int result = 1;
    while (result == 1) {
        result = sl_net_send(c.client, "x", 1, nullptr);
    }
    EXPECT_TRUE(fails_with_stack(result, {ERR_NET_SEND, ERR_SYS_ERRMSG}));
}

TEST_F(SlNet, NonBlockingReceiveOfAClosedPeerFailsSilentlyAndKeepsTheState) {
    Connection c;
    ASSERT_EQ(sl_net_set_io_mode(c.client, SL_NET_IO_NON_BLOCKING), 1);
    char buffer[8] = {};
    int32_t count = -1;
    EXPECT_EQ(sl_net_recv(c.client, buffer, 8, &count), 1) << "nothing there yet";
    EXPECT_EQ(count, 0);
    ASSERT_EQ(sl_net_send(c.server, "hi", 2, nullptr), 1);
    free_session(c.server);
    Group group;
    group.add(c.client, SL_NET_EVENT_READ);
    std::string got;
    int result = 1;
    while (result == 1) {
        ASSERT_EQ(group.select(-1), 1);
        result = sl_net_recv(c.client, buffer, 8, &count);
        if (result == 1) {
            got.append(buffer, static_cast<size_t>(count));
        }
    }
    EXPECT_EQ(got, "hi");
    EXPECT_EQ(err_get_stack_depth(), 0) << err_get_error_msg();
    EXPECT_EQ(sl_net_is_active(c.client), 1);
}

// ---- Hooks -----------------------------------------------------------------------------

// Hooks that turn every byte with 0x5A, counting their calls in the session's hook data.
void scramble(void *session, void *buffer, int32_t length) {
    void *calls = nullptr;
    EXPECT_EQ(sl_net_get_hook_data(session, &calls), 1);
    ++*static_cast<int *>(calls);
    for (int32_t i = 0; i < length; ++i) {
        static_cast<unsigned char *>(buffer)[i] ^= 0x5A;
    }
}

int scrambling_send(void *session, void *buffer, int32_t length, int32_t *done) {
    Bytes out(static_cast<const unsigned char *>(buffer),
              static_cast<const unsigned char *>(buffer) + length);
    scramble(session, out.data(), length);
    return sl_net_send_sync(session, out.data(), length, done);
}

int unscrambling_recv(void *session, void *buffer, int32_t length, int32_t *done) {
    const int result = sl_net_recv_sync(session, buffer, length, done);
    scramble(session, buffer, length);
    return result;
}

TEST_F(SlNet, HooksCarryEverySendAndReceiveWhileSwitchedOn) {
    Connection c;
    int client_calls = 0;
    int server_calls = 0;
    ASSERT_EQ(sl_net_set_hook_data(c.client, &client_calls), 1);
    ASSERT_EQ(sl_net_set_hook_routine(c.client, SL_NET_HOOK_SEND, scrambling_send), 1);
    ASSERT_EQ(sl_net_set_hook_state(c.client, 1), 1);
    ASSERT_EQ(sl_net_set_hook_data(c.server, &server_calls), 1);
    ASSERT_EQ(sl_net_set_hook_routine(c.server, SL_NET_HOOK_RECV, unscrambling_recv), 1);

    // Server hooks off: the bytes arrive as the client's hook changed them.
    ASSERT_EQ(sl_net_send(c.client, "plain", 5, nullptr), 1);
    char raw[5];
    ASSERT_EQ(sl_net_recv(c.server, raw, 5, nullptr), 1);
    EXPECT_EQ(client_calls, 1);
    EXPECT_EQ(server_calls, 0);
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
    EXPECT_EQ(server_calls, 1);

    EXPECT_TRUE(fails_with(sl_net_set_hook_routine(c.client, 2, scrambling_send), ERR_NET_INVHC,
                           "hook code 2 is invalid"));
}

// The layer's state: how often its release ran and with which data.
struct Layer {
    int releases = 0;
    void *released_data = nullptr;
    int active_at_release = -1;
};

Layer *released_layer = nullptr;

void record_release(void *session, void *data) {
    ++released_layer->releases;
    released_layer->released_data = data;
    released_layer->active_at_release = sl_net_is_active(session);
}

TEST_F(SlNet, AHeldStreamIsReleasedOnceWithTheSocketAndCannotBeHandedOver) {
    Layer layer;
    released_layer = &layer;
    const std::string file = ::testing::TempDir() + "vq_sl_net_held.sock";
    std::remove(file.c_str());
    for (const bool by_free : {true, false}) {
        SCOPED_TRACE(by_free ? "freed" : "disconnected");
        layer = Layer{};
        Connection c;
        char holder[8] = "x";
        EXPECT_EQ(sl_net_get_stream_holder(c.client, holder, sizeof holder), 0);
        EXPECT_EQ(std::string(holder), "");
        EXPECT_EQ(err_get_stack_depth(), 0);
        ASSERT_EQ(sl_net_set_hook_data(c.client, &layer), 1);
        ASSERT_EQ(sl_net_set_hook_state(c.client, 1), 1);
        ASSERT_EQ(sl_net_set_hook_release(c.client, record_release), 1);
        ASSERT_EQ(sl_net_set_stream_holder(c.client, "TLS"), 1);
        ASSERT_EQ(sl_net_get_stream_holder(c.client, holder, sizeof holder), 1);
        EXPECT_EQ(std::string(holder), "TLS");
        EXPECT_TRUE(fails_with(sl_net_get_stream_holder(c.client, holder, 3), ERR_NET_BADPTR));

        void *buffer = nullptr;
        uint32_t length = 0;
        EXPECT_TRUE(fails_with(sl_net_pack_handle(c.client, &buffer, &length), ERR_NET_HELD,
                               "session's stream is held by TLS and cannot be handed to another process"));
        EXPECT_EQ(buffer, nullptr);
        EXPECT_TRUE(fails_with(sl_net_save_socket_for_process(c.client, 1, file.c_str()), ERR_NET_HELD));
        EXPECT_FALSE(std::filesystem::exists(file));

        // The release runs while the socket is still there, then every hook
        // setting is gone.
        if (by_free) {
            free_session(c.client);
        } else {
            ASSERT_EQ(sl_net_disconnect(c.client), 1);
            void *data = &layer;
            ASSERT_EQ(sl_net_get_hook_data(c.client, &data), 1);
            EXPECT_EQ(data, nullptr);
            EXPECT_EQ(sl_net_get_stream_holder(c.client, holder, sizeof holder), 0);
            ASSERT_EQ(sl_net_connect(c.client), 1) << err_get_error_msg();
            EXPECT_EQ(sl_net_disconnect(c.client), 1);
        }
        EXPECT_EQ(layer.releases, 1);
        EXPECT_EQ(layer.released_data, &layer);
        EXPECT_EQ(layer.active_at_release, 1);
    }
    // Cleared, the holder no longer stands in the way.
    Connection c;
    ASSERT_EQ(sl_net_set_stream_holder(c.client, "TLS"), 1);
    ASSERT_EQ(sl_net_set_stream_holder(c.client, nullptr), 1);
    void *buffer = nullptr;
    uint32_t length = 0;
    ASSERT_EQ(sl_net_pack_handle(c.client, &buffer, &length), 1) << err_get_error_msg();
    std::free(buffer);
}

TEST_F(SlNet, GettersReturnTheTimeOutsAndTheRemoteHostWhole) {
    Connection c;
    char host[16] = "x";
    EXPECT_EQ(sl_net_get_remote_host(c.server, host, sizeof host), 0) << "an accepted session has none";
    EXPECT_EQ(std::string(host), "");
    EXPECT_EQ(err_get_stack_depth(), 0);
    ASSERT_EQ(sl_net_get_remote_host(c.client, host, sizeof host), 1);
    EXPECT_EQ(std::string(host), "127.0.0.1");
    EXPECT_TRUE(fails_with(sl_net_get_remote_host(c.client, host, 9), ERR_NET_BADPTR));
    EXPECT_EQ(std::string(host), "");

    ASSERT_EQ(sl_net_set_connect_timeout(c.client, 7), 1);
    ASSERT_EQ(sl_net_set_send_timeout(c.client, 5), 1);
    ASSERT_EQ(sl_net_set_recv_timeout(c.client, 3), 1);
    int32_t connect = 0;
    int32_t send = 0;
    int32_t recv = 0;
    ASSERT_EQ(sl_net_get_connect_timeout(c.client, &connect), 1);
    ASSERT_EQ(sl_net_get_send_timeout(c.client, &send), 1);
    ASSERT_EQ(sl_net_get_recv_timeout(c.client, &recv), 1);
    EXPECT_EQ(connect, 7);
    EXPECT_EQ(send, 5);
    EXPECT_EQ(recv, 3);
    EXPECT_TRUE(fails_with(sl_net_get_recv_timeout(c.client, nullptr), ERR_NET_BADPTR));
}

// Switches session's receive hook on, counting its calls in calls.
void hook_receives(void *session, int &calls) {
    ASSERT_EQ(sl_net_set_hook_data(session, &calls), 1);
    ASSERT_EQ(sl_net_set_hook_routine(session, SL_NET_HOOK_RECV, unscrambling_recv), 1);
    ASSERT_EQ(sl_net_set_hook_state(session, 1), 1);
}

TEST_F(SlNet, PeekedBytesStayForTheNextReceiveAndAClosedPeerEndsThePeek) {
    Connection c;
    int calls = 0;
    ASSERT_NO_FATAL_FAILURE(hook_receives(c.client, calls));
    ASSERT_EQ(sl_net_send(c.server, "\x16rest", 5, nullptr), 1);
    char first = 0;
    int32_t count = 0;
    ASSERT_EQ(sl_net_peek(c.client, &first, 1, &count), 1) << err_get_error_msg();
    EXPECT_EQ(count, 1);
    EXPECT_EQ(first, '\x16');
    EXPECT_EQ(calls, 0) << "a peek sees the raw stream";
    ASSERT_EQ(sl_net_set_hook_state(c.client, 0), 1);
    char all[6] = {};
    ASSERT_EQ(sl_net_recv(c.client, all, 5, nullptr), 1);
    EXPECT_EQ(std::string(all), "\x16rest");

    free_session(c.server);
    EXPECT_TRUE(fails_with(sl_net_peek(c.client, &first, 1, &count), ERR_NET_RECV));
    EXPECT_EQ(sl_net_is_active(c.client), 0);
}

TEST_F(SlNet, ReceivingWhatIsAvailableBypassesTheHooksAndSetInactiveStopsTransfers) {
    Connection c;
    int calls = 0;
    ASSERT_NO_FATAL_FAILURE(hook_receives(c.client, calls));
    ASSERT_EQ(sl_net_send(c.server, "0123456789", 10, nullptr), 1);
    std::string got;
    while (got.size() < 10) {
        char buffer[100] = {};
        int32_t count = 0;
        ASSERT_EQ(sl_net_recv_available(c.client, buffer, 100, &count), 1) << err_get_error_msg();
        ASSERT_GT(count, 0);
        got.append(buffer, static_cast<size_t>(count));
    }
    EXPECT_EQ(got, "0123456789");
    EXPECT_EQ(calls, 0);

    ASSERT_EQ(sl_net_set_inactive(c.client), 1);
    EXPECT_EQ(sl_net_is_active(c.client), 0);
    EXPECT_TRUE(fails_with_stack(sl_net_send(c.client, "x", 1, nullptr), {ERR_NET_SEND, ERR_NET_NOTACT}));
}

// ---- Selection groups --------------------------------------------------------------------

TEST_F(SlNet, SelectionReportsReadableMembersOnceTheirPeerWrote) {
    Connection first;
    Connection second;
    Group g;
    g.add(first.client, SL_NET_EVENT_READ);
    g.add(second.client, SL_NET_EVENT_READ);
    EXPECT_EQ(g.select(0), 0) << "nobody wrote";
    EXPECT_TRUE(g.drain(0).empty());

    ASSERT_EQ(sl_net_send(second.server, "x", 1, nullptr), 1);
    EXPECT_EQ(g.select(-1), 1);
    EXPECT_EQ(g.drain(SL_NET_EVENT_READ), std::vector<void *>{second.client});

    // Adding a member again changes its events: one ready member with both bits.
    g.add(second.client, SL_NET_EVENT_READ | SL_NET_EVENT_WRITE);
    EXPECT_EQ(g.members(), 2);
    EXPECT_EQ(g.select(-1), 1);
    EXPECT_EQ(g.drain(SL_NET_EVENT_READ | SL_NET_EVENT_WRITE), std::vector<void *>{second.client});

    // A ready member removed before it was reported is not owed any more.
    ASSERT_EQ(g.select(-1), 1);
    ASSERT_EQ(sl_net_remove_from_selection_group(g.group, second.client), 1);
    EXPECT_TRUE(g.drain(0).empty());
    EXPECT_TRUE(fails_with(sl_net_remove_from_selection_group(g.group, second.client), ERR_NET_BADSESS));
    ASSERT_EQ(sl_net_free_selection_group(&g.group), 1);
    EXPECT_EQ(g.group, nullptr);
}

int32_t g_layer_holds = 0;

int32_t layer_holds(void *, void *) { return g_layer_holds; }

TEST_F(SlNet, ALayerHoldingReceivedBytesMakesItsSessionReadyWhileItsHooksAreOn) {
    Connection c;
    Group g;
    g.add(c.client, SL_NET_EVENT_READ);
    g_layer_holds = 1;
    ASSERT_EQ(sl_net_set_hook_pending(c.client, layer_holds), 1);
    EXPECT_EQ(g.select(0), 0) << "hooks off: only the socket counts";
    ASSERT_EQ(sl_net_set_hook_state(c.client, 1), 1);
    EXPECT_EQ(g.select(-1), 1);
    EXPECT_EQ(g.drain(SL_NET_EVENT_READ), std::vector<void *>{c.client});
    g_layer_holds = 0;
    EXPECT_EQ(g.select(0), 0);
    g_layer_holds = 1;
    ASSERT_EQ(sl_net_set_hook_pending(c.client, nullptr), 1);
    EXPECT_EQ(g.select(0), 0);
    EXPECT_TRUE(fails_with(sl_net_set_hook_pending(nullptr, layer_holds), ERR_NET_BADSESS));
}

TEST_F(SlNet, SelectionGroupsGrowAndReuseFreeSlotsInOrder) {
    constexpr int kSessions = 11;
    Listener listener;
    std::vector<void *> clients;
    std::vector<void *> servers;
    Group g;
    for (int i = 0; i < kSessions; ++i) {
        clients.push_back(client_for(listener.port));
        ASSERT_EQ(sl_net_connect(clients.back()), 1) << err_get_error_msg();
        servers.push_back(nullptr);
        ASSERT_EQ(sl_net_accept(listener.session, &servers.back()), 1);
        g.add(clients.back(), SL_NET_EVENT_WRITE);  // writable at once
    }
    EXPECT_EQ(g.members(), kSessions);
    EXPECT_EQ(g.select(-1), kSessions);
    EXPECT_EQ(g.drain(SL_NET_EVENT_WRITE), clients);

    // Slots 2 and 7 freed; the next two members take them, in that order.
    ASSERT_EQ(sl_net_remove_from_selection_group(g.group, clients[2]), 1);
    ASSERT_EQ(sl_net_remove_from_selection_group(g.group, clients[7]), 1);
    g.add(servers[0], SL_NET_EVENT_WRITE);
    g.add(servers[1], SL_NET_EVENT_WRITE);
    std::vector<void *> expected = clients;
    expected[2] = servers[0];
    expected[7] = servers[1];
    EXPECT_EQ(g.select(-1), kSessions);
    EXPECT_EQ(g.drain(SL_NET_EVENT_WRITE), expected);

    ASSERT_EQ(sl_net_init_selection_group(g.group), 1);
    EXPECT_EQ(g.members(), 0);
    EXPECT_EQ(g.select(0), 0);
    for (std::vector<void *> *sessions : {&clients, &servers}) {
        for (void *&session : *sessions) {
            free_session(session);
        }
    }
}

// ---- Packed sessions ---------------------------------------------------------------------

Bytes packed(void *session) {
    void *buffer = nullptr;
    uint32_t length = 0;
    EXPECT_EQ(sl_net_pack_handle(session, &buffer, &length), 1) << err_get_error_msg();
    const auto *bytes = static_cast<const unsigned char *>(buffer);
    Bytes copy(bytes, bytes + length);
    std::free(buffer);
    return copy;
}

void *unpacked(const Bytes &message) {
    void *session = reinterpret_cast<void *>(1);
    const int result =
        sl_net_unpack_to_handle(message.data(), static_cast<uint32_t>(message.size()), &session);
    EXPECT_EQ(result == 1, session != nullptr);
    return session;
}

TEST_F(SlNet, PackedSessionsRoundTripAndThoseThatDoNotCheckOutAreRefused) {
    // The refusal's hint shows the service, host and port the copy knows.
    Deaf deaf;
    void *original = client_for(deaf.port);
    ASSERT_EQ(sl_net_set_svc_name(original, "replicator"), 1);
    ASSERT_EQ(sl_net_set_io_mode(original, SL_NET_IO_NON_BLOCKING), 1);
    const Bytes message = packed(original);
    void *copy = unpacked(message);
    ASSERT_NE(copy, nullptr) << err_get_error_msg();
    EXPECT_EQ(packed(copy), message);
    EXPECT_EQ(sl_net_connect(copy), 0);
    EXPECT_EQ(std::string(err_get_error_text(2)), refused_hint("replicator", deaf.port));
    free_session(copy);

    // A socket number travels as it is: one far above any descriptor here.
    const sl_net_socket far_away = 0x7FFF0000;
    ASSERT_EQ(sl_net_override_socket(original, far_away), 1);
    copy = unpacked(packed(original));
    ASSERT_NE(copy, nullptr) << err_get_error_msg();
    sl_net_socket socket = 0;
    ASSERT_EQ(sl_net_get_socket(copy, &socket), 1);
    EXPECT_EQ(socket, far_away);
    EXPECT_EQ(sl_net_is_active(copy), 1);
    free_session(copy);
    free_session(original);

    const auto int_fields = [](std::vector<std::pair<uint16_t, int32_t>> fields) {
        return signed_message([&](void *h) {
            for (const auto &[code, value] : fields) {
                EXPECT_EQ(slm_set_int(h, code, value), 1);
            }
        });
    };
    Bytes broken = message;
    broken[0] ^= 0x01;
    const std::pair<Bytes, uint32_t> refusals[] = {
        {broken, ERR_MSG_CRC},
        {int_fields({{0, 1}, {11, 0}}), ERR_NET_INCNST},  // a code beyond the session's fields
        {int_fields({{2, 5}}), ERR_NET_BADPROT},
        {int_fields({{1, 3}}), ERR_NET_BADIO},
        {int_fields({{0, 2}}), ERR_NET_INCNST},   // a state that is neither
        {int_fields({{3, 80}}), ERR_MSG_TYPMIS},  // the port is not an int
    };
    for (const auto &[bytes, code] : refusals) {
        EXPECT_EQ(unpacked(bytes), nullptr);
        EXPECT_TRUE(stack_has(code)) << err_get_error_msg();
        err_clear_error_stack();
    }
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

TEST_F(SlNet, SocketFilesOfTheWrongSizeOrKindAreRefused) {
    sl_net_socket socket = SL_NET_NO_SOCKET;
    const std::string missing = temp_name("missing.sock");
    std::remove(missing.c_str());
    EXPECT_TRUE(fails_with_stack(sl_net_get_socket_from_file(&socket, missing.c_str()),
                                 {ERR_FIL_READ, ERR_SYS_ERRMSG}, missing));
    EXPECT_TRUE(fails_with(sl_net_get_socket_from_file(&socket, ::testing::TempDir().c_str()), ERR_FIL_READ))
        << "a directory";

    const std::string name = temp_name("sized.sock");
    for (size_t size :
         {size_t{0}, size_t{SL_NET_SOCKET_FILE_SIZE - 1}, size_t{SL_NET_SOCKET_FILE_SIZE + 1}}) {
        write_file(name, Bytes(size, 0));
        EXPECT_TRUE(fails_with(sl_net_get_socket_from_file(&socket, name.c_str()), ERR_FIL_READ)) << size;
    }
    // The right size, but nothing a socket can be made of.
    write_file(name, Bytes(SL_NET_SOCKET_FILE_SIZE, 'j'));
    EXPECT_TRUE(fails_with_stack(sl_net_get_socket_from_file(&socket, name.c_str()),
                                 {ERR_NET_CRESOCK, ERR_SYS_ERRMSG}));
#ifndef _WIN32
    // The descriptor a file names closed, or reused by another socket since.
    {
        Connection closed;
        ASSERT_EQ(sl_net_save_socket_for_process(closed.server, this_process(), name.c_str()), 1);
    }
    EXPECT_TRUE(fails_with_stack(sl_net_get_socket_from_file(&socket, name.c_str()),
                                 {ERR_NET_CRESOCK, ERR_SYS_ERRMSG}));
#endif
    std::remove(name.c_str());
    EXPECT_EQ(socket, SL_NET_NO_SOCKET);

    // A file that cannot be created leaves nothing behind.
    Connection c;
    const std::string nowhere = temp_name("no-such-dir/x.sock");
    EXPECT_TRUE(fails_with(sl_net_save_socket_for_process(c.server, this_process(), nowhere.c_str()),
                           ERR_SYS_ERRMSG));
    EXPECT_FALSE(std::filesystem::exists(nowhere));
    void *unconnected = new_session();
    EXPECT_TRUE(fails_with(
        sl_net_save_socket_for_process(unconnected, this_process(), temp_name("none.sock").c_str()),
        ERR_NET_NOTACT));
    free_session(unconnected);
}

// Starts the handover child on a socket file. The POSIX child inherits the
// socket, so the file is saved first; the Windows child starts suspended so
// that the file can name its process id.
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
        return waitpid(pid_, &status, 0) == pid_ && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
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
    EXPECT_EQ(std::filesystem::file_size(file), SL_NET_SOCKET_FILE_SIZE);
    // The session that handed its socket over closes its own without ending
    // the connection for the child that took it.
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
    EXPECT_TRUE(fails_with(sl_net_recv(c.client, &more, 1, nullptr), ERR_NET_RECV));
    std::remove(file.c_str());
}

}  // namespace
