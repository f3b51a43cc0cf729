// Typed messages under load: one server on 127.0.0.1 serves many clients at
// once, each on its own thread and connection, each sending a run of messages
// with attachments of every kind (files and caller buffers, binary and text,
// into temporary files or to names on the target inside the client's own
// directory) and sizes around the 32768-byte piece size. The server answers
// every message with the size, CRC and write status of each attachment as it
// found it on disk, and removes the temporary files it has read. Afterwards:
//  - every answer matches what the client sent, byte count and CRC;
//  - every name on the target holds what was sent to it;
//  - the temporary directory is empty and nothing else was written;
//  - no descriptor is left open (Linux, counted in /proc/self/fd);
//  - no allocation is left over (run under the asan preset: LeakSanitizer).
// Everything waits on events: joins, the messages themselves, and a
// connection count that tells the accepting thread when to stop.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "vq_glob/err.h"
#include "vq_glob/hash.h"
#include "vq_glob/sl_net.h"
#include "vq_glob/slm.h"

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<unsigned char>;

constexpr int kClients = 100;
constexpr int kMessagesPerClient = 50;
// A receive that sees no progress for this long fails instead of hanging the
// run when the other side has gone wrong; a working run never waits on it.
constexpr int32_t kStallSeconds = 120;

// Element codes of the test's own messages.
constexpr uint16_t kCodeClient = 1;
constexpr uint16_t kCodeIndex = 2;
constexpr uint16_t kCodeCount = 3;
constexpr uint16_t kCodeAttachment = 100;  // + the attachment's number
constexpr uint16_t kCodeCrc = 10;
constexpr uint16_t kCodeSize = 11;
constexpr uint16_t kCodeStatus = 12;
constexpr uint16_t kCodeMode = 13;
constexpr uint16_t kCodeWhere = 14;
constexpr int32_t kGoodbye = -1;

// Attachment sizes: empty, tiny, around one piece and two pieces, with the
// multiples of 32768 that end in an empty last piece. The large ones come up
// rarely enough to keep the run short under the sanitizers.
constexpr uint32_t kSizes[] = {0,    1,    7,     50,  100,   300,   1000,  2000,  4096, 12345,
                               0,    1,    100,   513, 32767, 32768, 32769, 65536, 64,   4000};
constexpr int kSizeCount = static_cast<int>(std::size(kSizes));

enum class Kind { BinaryFile, BinaryBuffer, TextBuffer, TextFile, FileToTarget };
constexpr int kKindCount = 5;

std::string library_errors() {
    std::string text = err_get_error_msg();
    err_clear_error_stack();
    return text;
}

// CRC-32 of a whole byte run, through the library's per-thread register (no
// other library call comes between the reset and the result).
uint32_t crc_of(const Bytes &data) {
    updcrc(nullptr, 0);
    return data.empty() ? 0 : updcrc(data.data(), static_cast<uint32_t>(data.size()));
}

Bytes read_file(const fs::path &path) {
    std::ifstream in(path, std::ios::binary | std::ios::ate);
    Bytes data(in ? static_cast<size_t>(in.tellg()) : 0);
    in.seekg(0);
    in.read(reinterpret_cast<char *>(data.data()), static_cast<std::streamsize>(data.size()));
    if (static_cast<size_t>(in.gcount()) != data.size()) {
        data.resize(static_cast<size_t>(in.gcount()));
    }
    return data;
}

void write_file(const fs::path &path, const Bytes &data) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char *>(data.data()), static_cast<std::streamsize>(data.size()));
}

// Content made from a seed: any bytes for binary data, printable characters
// without line ends for text, so that a text-mode write changes nothing on
// any system and the receiver's file equals the sender's bytes.
Bytes content(uint32_t size, uint32_t seed, bool text) {
    Bytes data(size);
    uint32_t x = seed * 2654435761u + 1;
    for (auto &b : data) {
        x = x * 1103515245u + 12345u;
        b = text ? static_cast<unsigned char>(' ' + (x >> 16) % 95) : static_cast<unsigned char>(x >> 16);
    }
    return data;
}

size_t open_descriptors() {
#ifdef __linux__
    return static_cast<size_t>(std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
#else
    return 0;
#endif
}

// The directories of one run: incoming temporary files, the clients' source
// files, and one directory per client for names on the target.
struct Dirs {
    fs::path root;
    fs::path incoming;
    fs::path sources;
    fs::path targets;

    fs::path source_dir(int client) const { return sources / std::to_string(client); }
    fs::path target_dir(int client) const { return targets / std::to_string(client); }
};

// What a client expects the server to report for one attachment.
struct Expected {
    uint32_t size = 0;
    uint32_t crc = 0;
    int32_t mode = 0;
    std::string target;  // empty: a temporary file
};

// One attachment as the server found it.
struct Found {
    uint32_t size = 0;
    uint32_t crc = 0;
    int32_t status = 0;
    int32_t mode = 0;
    std::string where;
};

// ---- Server -------------------------------------------------------------------------

class Server {
public:
    explicit Server(const Dirs &dirs) : dirs_(dirs) {}

    ~Server() {
        if (listener_ != nullptr) {
            sl_net_free_handle(&listener_);
        }
    }

    // Binds to a port of the system's choosing on the loopback address.
    bool start(std::string &error) {
        if (sl_net_allocate_handle(SL_NET_TCP, &listener_) != 1 || sl_net_bind(listener_, "127.0.0.1", 0) != 1 ||
            sl_net_listen(listener_, 128) != 1 || sl_net_get_local_port(listener_, &port_) != 1) {
            error = library_errors();
            return false;
        }
        return true;
    }

    uint16_t port() const { return port_; }

    // Accepts sessions until expected have come, each served on a thread of
    // its own; returns when every one of them has ended.
    void serve(int expected) {
        std::vector<std::thread> handlers;
        for (int n = 0; n < expected; ++n) {
            void *session = nullptr;
            if (sl_net_accept(listener_, &session) != 1) {
                note("accept: " + library_errors());
                break;
            }
            handlers.emplace_back([this, session] { serve_session(session); });
        }
        for (auto &t : handlers) {
            t.join();
        }
        sl_net_free_handle(&listener_);
    }

    std::vector<std::string> errors() const {
        std::lock_guard lock(mutex_);
        return errors_;
    }

    int sessions_served() const { return served_.load(); }

private:
    void note(const std::string &text) {
        std::lock_guard lock(mutex_);
        errors_.push_back(text);
    }

    void serve_session(void *session) {
        void *request = nullptr;
        void *answer = nullptr;
        std::string failure;
        if (sl_net_set_recv_timeout(session, kStallSeconds) != 1 || slm_allocate_handle(&request) != 1 ||
            slm_allocate_handle(&answer) != 1 || slm_set_temp_dir(request, dirs_.incoming.string().c_str()) != 1) {
            failure = "session set-up: " + library_errors();
        }
        bool goodbye = false;
        while (failure.empty() && !goodbye) {
            failure = serve_message(session, request, answer, goodbye);
        }
        if (!failure.empty()) {
            note(failure);
        } else {
            ++served_;
        }
        slm_free_handle(&request);
        slm_free_handle(&answer);
        sl_net_free_handle(&session);
    }

    // Receives one message and answers it; an empty text on success.
    std::string serve_message(void *session, void *request, void *answer, bool &goodbye) {
        int32_t full_success = -1;
        if (slm_recv_with_success_indication(request, session, &full_success) != 1) {
            return "receive: " + library_errors();
        }
        int32_t client = 0;
        int32_t index = 0;
        int32_t count = 0;
        if (slm_get_int_by_code(request, kCodeClient, &client) != 1 ||
            slm_get_int_by_code(request, kCodeIndex, &index) != 1) {
            return "request head: " + library_errors();
        }
        if (index == kGoodbye) {
            goodbye = true;
            return {};
        }
        const std::string what = "client " + std::to_string(client) + " message " + std::to_string(index);
        if (slm_get_int_by_code(request, kCodeCount, &count) != 1) {
            return what + ": attachment count: " + library_errors();
        }
        int32_t attachments = -1;
        if (slm_get_number_of_attachments(request, &attachments) != 1 || attachments != count) {
            return what + ": " + std::to_string(attachments) + " attachments received, " + std::to_string(count) +
                   " sent";
        }
        std::vector<Found> found;
        for (int32_t n = 0; n < count; ++n) {
            Found f;
            std::string error = take_attachment(request, static_cast<uint16_t>(kCodeAttachment + n), f);
            if (!error.empty()) {
                return what + " attachment " + std::to_string(n) + ": " + error;
            }
            found.push_back(f);
        }
        if (full_success != 1) {
            return what + ": the receive says not every attachment was written";
        }
        return answer_message(session, answer, client, index, found);
    }

    // Reads the attachment reference under code, and the file it names; a
    // temporary file is removed once read.
    std::string take_attachment(void *request, uint16_t code, Found &f) {
        char *name = nullptr;
        char *why_not = nullptr;
        if (slm_verify_type(request, code) != 1 ||
            slm_get_att_and_status(request, &name, &f.mode, &f.status, &why_not) != 1) {
            return library_errors();
        }
        std::unique_ptr<char, decltype(&std::free)> name_owner(name, &std::free);
        std::unique_ptr<char, decltype(&std::free)> why_owner(why_not, &std::free);
        if (name == nullptr) {
            return "no file name";
        }
        if (f.status != 1) {
            return std::string("not written: ") + (why_not != nullptr ? why_not : "(no reason)");
        }
        f.where = name;
        const fs::path path(name);
        std::error_code ec;
        if (!fs::is_regular_file(path, ec)) {
            return "no file at " + f.where;
        }
        const Bytes data = read_file(path);
        f.size = static_cast<uint32_t>(data.size());
        f.crc = crc_of(data);
        if (fs::equivalent(path.parent_path(), dirs_.incoming, ec) && !fs::remove(path, ec)) {
            return "cannot remove " + f.where;
        }
        return {};
    }

    static std::string answer_message(void *session, void *answer, int32_t client, int32_t index,
                                      const std::vector<Found> &found) {
        bool built = slm_init_handle(answer) == 1 && slm_set_int(answer, kCodeClient, client) == 1 &&
                     slm_set_int(answer, kCodeIndex, index) == 1 &&
                     slm_set_int(answer, kCodeCount, static_cast<int32_t>(found.size())) == 1;
        for (const Found &f : found) {
            built = built && slm_set_int(answer, kCodeSize, static_cast<int32_t>(f.size)) == 1 &&
                    slm_set_int(answer, kCodeCrc, static_cast<int32_t>(f.crc)) == 1 &&
                    slm_set_int(answer, kCodeStatus, f.status) == 1 && slm_set_int(answer, kCodeMode, f.mode) == 1 &&
                    slm_set_string(answer, kCodeWhere, f.where.c_str()) == 1;
        }
        if (!built || slm_send(answer, session, 1) != 1) {
            return "answer: " + library_errors();
        }
        return {};
    }

    const Dirs &dirs_;
    void *listener_ = nullptr;
    uint16_t port_ = 0;
    mutable std::mutex mutex_;
    std::vector<std::string> errors_;
    std::atomic<int> served_{0};
};

// ---- Client -------------------------------------------------------------------------

class Client {
public:
    Client(int id, const Dirs &dirs, uint16_t port) : id_(id), dirs_(dirs), port_(port) {}

    // Connects (counting the connection in connected), sends every message
    // and checks every answer; the failures found, empty when all went well.
    std::vector<std::string> run(std::atomic<int> &connected) {
        if (!prepare_sources() || !connect()) {
            return errors_;
        }
        ++connected;
        void *message = nullptr;
        void *answer = nullptr;
        if (slm_allocate_handle(&message) != 1 || slm_allocate_handle(&answer) != 1) {
            fail("handles: " + library_errors());
        }
        for (int index = 0; index < kMessagesPerClient && errors_.empty(); ++index) {
            exchange(message, answer, index);
        }
        if (errors_.empty()) {
            say_goodbye(message);
        }
        slm_free_handle(&message);
        slm_free_handle(&answer);
        sl_net_free_handle(&session_);
        return errors_;
    }

    // Every name on the target this client wrote, with the bytes it must hold.
    const std::map<fs::path, Bytes> &targets() const { return targets_; }

private:
    void fail(const std::string &text) {
        errors_.push_back("client " + std::to_string(id_) + ": " + text);
    }

    fs::path source(uint32_t size, bool text) const {
        return dirs_.source_dir(id_) / ((text ? "t" : "b") + std::to_string(size));
    }

    // One source file per size and mode, seeded by the client, so that files
    // of two clients never hold the same bytes.
    bool prepare_sources() {
        std::error_code ec;
        fs::create_directories(dirs_.source_dir(id_), ec);
        fs::create_directories(dirs_.target_dir(id_), ec);
        if (ec) {
            fail("directories: " + ec.message());
            return false;
        }
        for (uint32_t size : kSizes) {
            for (bool text : {false, true}) {
                Bytes data = content(size, static_cast<uint32_t>(id_) * 977u + size + (text ? 1u : 0u), text);
                write_file(source(size, text), data);
                sources_[{size, text}] = std::move(data);
            }
        }
        return true;
    }

    bool connect() {
        const sl_net_remote_info info{"127.0.0.1", nullptr, port_};
        if (sl_net_allocate_handle(SL_NET_TCP, &session_) != 1 || sl_net_set_remote_info(session_, 0, &info) != 1 ||
            sl_net_connect(session_) != 1 || sl_net_set_recv_timeout(session_, kStallSeconds) != 1) {
            fail("connect: " + library_errors());
            if (session_ != nullptr) {
                sl_net_free_handle(&session_);
            }
            return false;
        }
        return true;
    }

    // One to three attachments per message; kinds and sizes rotate with the
    // client and the message so that every pairing comes up.
    void exchange(void *message, void *answer, int index) {
        const int count = 1 + (id_ + index) % 3;
        std::vector<Bytes> buffers(static_cast<size_t>(count));  // must live until sent
        std::vector<Expected> expected;
        bool built = slm_init_handle(message) == 1 && slm_set_int(message, kCodeClient, id_) == 1 &&
                     slm_set_int(message, kCodeIndex, index) == 1 && slm_set_int(message, kCodeCount, count) == 1;
        for (int n = 0; n < count && built; ++n) {
            const auto kind = static_cast<Kind>((id_ + index * 2 + n) % kKindCount);
            const uint32_t size = kSizes[(id_ * 7 + index * 3 + n * 5) % kSizeCount];
            const auto code = static_cast<uint16_t>(kCodeAttachment + n);
            const uint32_t seed = static_cast<uint32_t>(id_ * 100000 + index * 10 + n);
            Expected e;
            e.size = size;
            e.mode = (kind == Kind::TextBuffer || kind == Kind::TextFile) ? 0 : 1;
            switch (kind) {
            case Kind::BinaryFile:
            case Kind::TextFile:
                e.crc = crc_of(sources_.at({size, e.mode == 0}));
                built = slm_set_att(message, code, source(size, e.mode == 0).string().c_str(), e.mode) == 1;
                break;
            case Kind::BinaryBuffer:
            case Kind::TextBuffer:
                buffers[static_cast<size_t>(n)] = content(size, seed, e.mode == 0);
                e.crc = crc_of(buffers[static_cast<size_t>(n)]);
                built = slm_set_buffer_as_att(message, code, buffers[static_cast<size_t>(n)].data(), size, e.mode) == 1;
                break;
            case Kind::FileToTarget: {
                const fs::path target = dirs_.target_dir(id_) / ("m" + std::to_string(index) + "_" + std::to_string(n));
                e.target = target.string();
                e.crc = crc_of(sources_.at({size, false}));
                targets_[target] = sources_.at({size, false});
                built = slm_set_att_with_target_fn(message, code, source(size, false).string().c_str(),
                                                   e.target.c_str(), 1, 0, 0, 0, 0, 1) == 1;
                break;
            }
            }
            expected.push_back(e);
        }
        const std::string what = "message " + std::to_string(index);
        if (!built || slm_send(message, session_, 1) != 1) {
            fail(what + " not sent: " + library_errors());
            return;
        }
        if (slm_recv(answer, session_) != 1) {
            fail(what + " not answered: " + library_errors());
            return;
        }
        check_answer(answer, index, expected);
    }

    void check_answer(void *answer, int index, const std::vector<Expected> &expected) {
        const std::string what = "message " + std::to_string(index);
        int32_t client = -1;
        int32_t echoed = -1;
        int32_t count = -1;
        if (slm_get_int_by_code(answer, kCodeClient, &client) != 1 ||
            slm_get_int_by_code(answer, kCodeIndex, &echoed) != 1 ||
            slm_get_int_by_code(answer, kCodeCount, &count) != 1) {
            fail(what + " answer head: " + library_errors());
            return;
        }
        if (client != id_ || echoed != index || count != static_cast<int32_t>(expected.size())) {
            fail(what + " answered as client " + std::to_string(client) + " message " + std::to_string(echoed) +
                 " with " + std::to_string(count) + " attachments");
            return;
        }
        for (size_t n = 0; n < expected.size(); ++n) {
            const Expected &e = expected[n];
            int32_t size = 0;
            int32_t crc = 0;
            Found f;
            char *where = nullptr;
            if (slm_get_int_by_code(answer, kCodeSize, &size) != 1 || slm_get_int_by_code(answer, kCodeCrc, &crc) != 1 ||
                slm_get_int_by_code(answer, kCodeStatus, &f.status) != 1 ||
                slm_get_int_by_code(answer, kCodeMode, &f.mode) != 1 ||
                slm_get_string_by_code(answer, kCodeWhere, &where) != 1) {
                fail(what + " answer attachment " + std::to_string(n) + ": " + library_errors());
                return;
            }
            f.where = where != nullptr ? where : "";
            std::free(where);
            const std::string att = what + " attachment " + std::to_string(n) + " (" + std::to_string(e.size) +
                                    " bytes, mode " + std::to_string(e.mode) + ")";
            if (static_cast<uint32_t>(size) != e.size || static_cast<uint32_t>(crc) != e.crc) {
                fail(att + " arrived as " + std::to_string(static_cast<uint32_t>(size)) + " bytes with CRC " +
                     std::to_string(static_cast<uint32_t>(crc)) + ", sent CRC " + std::to_string(e.crc));
            }
            if (f.mode != e.mode) {
                fail(att + " arrived in mode " + std::to_string(f.mode));
            }
            if (!e.target.empty() && f.where != e.target) {
                fail(att + " went to " + f.where + " instead of " + e.target);
            }
            if (e.target.empty() &&
                fs::path(f.where).parent_path().lexically_normal() != dirs_.incoming.lexically_normal()) {
                fail(att + " went to " + f.where + " outside the temporary directory");
            }
        }
    }

    void say_goodbye(void *message) {
        if (slm_init_handle(message) != 1 || slm_set_int(message, kCodeClient, id_) != 1 ||
            slm_set_int(message, kCodeIndex, kGoodbye) != 1 || slm_send(message, session_, 1) != 1) {
            fail("goodbye: " + library_errors());
        }
    }

    const int id_;
    const Dirs &dirs_;
    const uint16_t port_;
    void *session_ = nullptr;
    std::map<std::pair<uint32_t, bool>, Bytes> sources_;
    std::map<fs::path, Bytes> targets_;
    std::vector<std::string> errors_;
};

// A connection that sends nothing: wakes the accepting thread for a client
// that could not connect, so that it is never left waiting.
void connect_and_leave(uint16_t port) {
    void *session = nullptr;
    const sl_net_remote_info info{"127.0.0.1", nullptr, port};
    if (sl_net_allocate_handle(SL_NET_TCP, &session) == 1) {
        sl_net_set_remote_info(session, 0, &info);
        sl_net_connect(session);
        sl_net_free_handle(&session);
    }
}

std::set<fs::path> files_below(const fs::path &dir) {
    std::set<fs::path> files;
    for (const auto &entry : fs::recursive_directory_iterator(dir)) {
        if (!entry.is_directory()) {
            files.insert(entry.path());
        }
    }
    return files;
}

class SlmLoad : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(sl_net_init(), 1) << library_errors();
        dirs_.root = fs::path(::testing::TempDir()) / ("vq_slm_load_" + std::to_string(std::random_device()()));
        dirs_.incoming = dirs_.root / "incoming";
        dirs_.sources = dirs_.root / "sources";
        dirs_.targets = dirs_.root / "targets";
        fs::remove_all(dirs_.root);
        fs::create_directories(dirs_.incoming);
        fs::create_directories(dirs_.sources);
        fs::create_directories(dirs_.targets);
    }

    void TearDown() override {
        std::error_code ec;
        fs::remove_all(dirs_.root, ec);
        sl_net_clean();
    }

    Dirs dirs_;
};

TEST_F(SlmLoad, ManyClientsAtOnceGetEveryByteAndLeaveNothingBehind) {
    const size_t descriptors_before = open_descriptors();

    Server server(dirs_);
    std::string error;
    ASSERT_TRUE(server.start(error)) << error;
    const uint16_t port = server.port();
    std::thread accepting([&server] { server.serve(kClients); });

    std::atomic<int> connected{0};
    std::vector<std::unique_ptr<Client>> clients;
    std::vector<std::vector<std::string>> client_errors(kClients);
    std::vector<std::thread> threads;
    for (int id = 0; id < kClients; ++id) {
        clients.push_back(std::make_unique<Client>(id, dirs_, port));
    }
    for (int id = 0; id < kClients; ++id) {
        threads.emplace_back([&, id] { client_errors[static_cast<size_t>(id)] = clients[static_cast<size_t>(id)]->run(connected); });
    }
    for (auto &t : threads) {
        t.join();
    }
    for (int missing = connected.load(); missing < kClients; ++missing) {
        connect_and_leave(port);
    }
    accepting.join();

    for (const auto &errors : client_errors) {
        for (const std::string &e : errors) {
            ADD_FAILURE() << e;
        }
    }
    for (const std::string &e : server.errors()) {
        ADD_FAILURE() << "server: " << e;
    }
    EXPECT_EQ(connected.load(), kClients);
    EXPECT_EQ(server.sessions_served(), kClients);

    // Every name on the target holds what was sent; nothing else is left.
    std::set<fs::path> expected_files;
    for (const auto &client : clients) {
        for (const auto &[path, data] : client->targets()) {
            expected_files.insert(path);
            EXPECT_EQ(read_file(path), data) << path.string();
        }
    }
    EXPECT_FALSE(expected_files.empty());
    std::set<fs::path> left;
    for (const fs::path &p : files_below(dirs_.root)) {
        if (!std::equal(dirs_.sources.begin(), dirs_.sources.end(), p.begin())) {
            left.insert(p);
        }
    }
    std::vector<fs::path> unexpected;
    std::set_difference(left.begin(), left.end(), expected_files.begin(), expected_files.end(),
                        std::back_inserter(unexpected));
    for (const fs::path &p : unexpected) {
        ADD_FAILURE() << "left behind: " << p.string();
    }
    EXPECT_TRUE(fs::is_empty(dirs_.incoming));

#ifdef __linux__
    EXPECT_EQ(open_descriptors(), descriptors_before) << "descriptors left open";
#else
    (void)descriptors_before;
    std::printf("descriptor count skipped: no /proc/self/fd on this system\n");
#endif
}

}  // namespace
