// Typed messages under load: one server on 127.0.0.1 serves many clients at
// once, each sending runs of messages with attachments of every kind and sizes
// around the 32768-byte piece, with the size, CRC and mode of each beside it.
// The server checks every attachment as it finds it and answers each message.
// Afterwards nothing may be left: no temporary file, no descriptor (Linux), no
// allocation (asan preset).
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "support/net_support.h"
#include "vq_glob/err.h"
#include "vq_glob/sl_net.h"
#include "vq_glob/slm.h"

namespace fs = std::filesystem;

namespace {

using namespace vq::test;

constexpr int kClients = 100;
constexpr int kMessagesPerClient = 50;
// A receive with no progress for this long fails instead of hanging a broken run.
constexpr int32_t kStallSeconds = 120;
constexpr int32_t kGoodbye = -1;
// Element codes of the test's messages; each attachment reference is followed
// by its size, CRC, mode and name on the target ("" for a temporary file).
enum : uint16_t { kClient = 1, kIndex, kCount, kSize, kCrc, kMode, kTarget, kAttachment = 100 };

// Sizes around one and two pieces, with the multiples that end in an empty last piece.
constexpr uint32_t kSizes[] = {0, 1, 7,   50,  100,   300,   1000,  2000,  4096, 12345,
                               0, 1, 100, 513, 32767, 32768, 32769, 65536, 64,   4000};
enum Kind { kBinaryFile, kBinaryBuffer, kTextBuffer, kTextFile, kFileToTarget, kKinds };

struct Dirs {
    fs::path incoming, sources, targets;
};

int32_t int_at(void *message, uint16_t code) {
    int32_t value = -1;
    EXPECT_EQ(slm_get_int_by_code(message, code, &value), 1) << code << ": " << err_get_error_msg();
    return value;
}

std::string string_at(void *message, uint16_t code) {
    char *text = nullptr;
    EXPECT_EQ(slm_get_string_by_code(message, code, &text), 1) << code << ": " << err_get_error_msg();
    const std::string copy = text != nullptr ? text : "";
    std::free(text);
    return copy;
}

// Checks the attachment under code against what its sender wrote beside it,
// and removes it when it is a temporary file.
void check_attachment(void *request, uint16_t code, const Dirs &dirs) {
    char *name = nullptr;
    int32_t mode = -1;
    int32_t status = -1;
    EXPECT_EQ(slm_verify_type(request, code), 1);
    EXPECT_EQ(slm_get_att_and_status(request, &name, &mode, &status, nullptr), 1) << err_get_error_msg();
    const fs::path path(name != nullptr ? name : "");
    std::free(name);
    const Bytes data = read_file(path);
    EXPECT_EQ(status, 1);
    EXPECT_EQ(data.size(), static_cast<uint32_t>(int_at(request, kSize))) << path;
    EXPECT_EQ(crc32_of(data), static_cast<uint32_t>(int_at(request, kCrc))) << path;
    EXPECT_EQ(mode, int_at(request, kMode)) << path;
    const std::string target = string_at(request, kTarget);
    if (target.empty()) {
        EXPECT_EQ(path.parent_path().lexically_normal(), dirs.incoming.lexically_normal());
        EXPECT_TRUE(fs::remove(path)) << path;
    } else {
        EXPECT_EQ(path.string(), target);
    }
}

// Receives and checks messages until the client's goodbye, answering each.
void serve_session(void *session, const Dirs &dirs) {
    Message request;
    Message answer;
    EXPECT_EQ(sl_net_set_recv_timeout(session, kStallSeconds), 1);
    EXPECT_EQ(slm_set_temp_dir(request.get(), dirs.incoming.string().c_str()), 1);
    for (;;) {
        int32_t full = -1;
        if (slm_recv_with_success_indication(request.get(), session, &full) != 1) {
            ADD_FAILURE() << "receive: " << err_get_error_msg();
            break;
        }
        const int32_t client = int_at(request.get(), kClient);
        const int32_t index = int_at(request.get(), kIndex);
        if (index == kGoodbye) {
            break;
        }
        SCOPED_TRACE("client " + std::to_string(client) + " message " + std::to_string(index));
        EXPECT_EQ(full, 1);
        const int32_t count = int_at(request.get(), kCount);
        int32_t attachments = -1;
        EXPECT_EQ(slm_get_number_of_attachments(request.get(), &attachments), 1);
        EXPECT_EQ(attachments, count);
        for (int32_t n = 0; n < count; ++n) {
            check_attachment(request.get(), static_cast<uint16_t>(kAttachment + n), dirs);
        }
        slm_init_handle(answer.get());
        slm_set_int(answer.get(), kClient, client);
        slm_set_int(answer.get(), kIndex, index);
        if (slm_send(answer.get(), session, 1) != 1) {
            ADD_FAILURE() << "answer: " << err_get_error_msg();
            break;
        }
    }
    free_session(session);
}

// Accepts expected sessions, each served on a thread of its own, and returns
// when all have ended.
void serve(Listener &listener, int expected, const Dirs &dirs) {
    std::vector<std::thread> handlers;
    for (int n = 0; n < expected; ++n) {
        void *session = nullptr;
        if (sl_net_accept(listener.session, &session) != 1) {
            ADD_FAILURE() << "accept: " << err_get_error_msg();
            break;
        }
        handlers.emplace_back(serve_session, session, std::cref(dirs));
    }
    for (std::thread &t : handlers) {
        t.join();
    }
}

class Client {
public:
    Client(int id, const Dirs &dirs) : id_(id), dirs_(dirs) {}

    // Connects (counted in connected), sends every message and checks each answer.
    void run(uint16_t port, std::atomic<int> &connected) {
        fs::create_directories(dirs_.sources / std::to_string(id_));
        fs::create_directories(dirs_.targets / std::to_string(id_));
        void *session = client_for(port);
        if (sl_net_connect(session) != 1) {
            ADD_FAILURE() << "client " << id_ << " connect: " << err_get_error_msg();
            free_session(session);
            return;
        }
        ++connected;
        EXPECT_EQ(sl_net_set_recv_timeout(session, kStallSeconds), 1);
        Message message;
        Message answer;
        for (int index = 0; index < kMessagesPerClient && !::testing::Test::HasFailure(); ++index) {
            exchange(session, message.get(), answer.get(), index);
        }
        slm_init_handle(message.get());
        slm_set_int(message.get(), kClient, id_);
        slm_set_int(message.get(), kIndex, kGoodbye);
        EXPECT_EQ(slm_send(message.get(), session, 1), 1) << err_get_error_msg();
        free_session(session);
    }

    // Every name on the target this client wrote, with the bytes it must hold.
    const std::map<fs::path, Bytes> &targets() const { return targets_; }

private:
    Bytes content(uint32_t size, bool text) const {
        return pattern(size, static_cast<uint32_t>(id_) * 977u + size + (text ? 1u : 0u), text);
    }

    // File kinds send the same bytes from a source file, written once.
    std::string source(uint32_t size, bool text) const {
        const fs::path path =
            dirs_.sources / std::to_string(id_) / ((text ? "t" : "b") + std::to_string(size));
        if (!fs::exists(path)) {
            write_file(path, content(size, text));
        }
        return path.string();
    }

    // One to three attachments; kinds and sizes rotate so that every pairing comes up.
    void exchange(void *session, void *message, void *answer, int index) {
        const int count = 1 + (id_ + index) % 3;
        std::vector<Bytes> buffers(static_cast<size_t>(count));  // they must live until sent
        slm_init_handle(message);
        slm_set_int(message, kClient, id_);
        slm_set_int(message, kIndex, index);
        slm_set_int(message, kCount, count);
        for (int n = 0; n < count; ++n) {
            const int kind = (id_ + index * 2 + n) % kKinds;
            const uint32_t size = kSizes[(id_ * 7 + index * 3 + n * 5) % std::size(kSizes)];
            const auto code = static_cast<uint16_t>(kAttachment + n);
            const bool text = kind == kTextBuffer || kind == kTextFile;
            Bytes &data = buffers[static_cast<size_t>(n)] = content(size, text);
            std::string target;
            int result = 0;
            if (kind == kBinaryBuffer || kind == kTextBuffer) {
                result = slm_set_buffer_as_att(message, code, data.data(), size, !text);
            } else if (kind == kFileToTarget) {
                const fs::path path = dirs_.targets / std::to_string(id_) /
                                      ("m" + std::to_string(index) + "_" + std::to_string(n));
                target = path.string();
                targets_[path] = data;
                result = slm_set_att_with_target_fn(message, code, source(size, false).c_str(),
                                                    target.c_str(), 1, 0, 0, 0, 0, 1);
            } else {
                result = slm_set_att(message, code, source(size, text).c_str(), !text);
            }
            ASSERT_EQ(result, 1) << err_get_error_msg();
            slm_set_int(message, kSize, static_cast<int32_t>(size));
            slm_set_int(message, kCrc, static_cast<int32_t>(crc32_of(data)));
            slm_set_int(message, kMode, text ? 0 : 1);
            slm_set_string(message, kTarget, target.c_str());
        }
        ASSERT_EQ(slm_send(message, session, 1), 1) << "client " << id_ << ": " << err_get_error_msg();
        ASSERT_EQ(slm_recv(answer, session), 1) << "client " << id_ << ": " << err_get_error_msg();
        EXPECT_EQ(int_at(answer, kClient), id_);
        EXPECT_EQ(int_at(answer, kIndex), index);
    }

    const int id_;
    const Dirs &dirs_;
    std::map<fs::path, Bytes> targets_;
};

using SlmLoad = NetTest;

TEST_F(SlmLoad, ManyClientsAtOnceGetEveryByteAndLeaveNothingBehind) {
    const ScratchDir scratch("vq_slm_load_");
    const Dirs dirs{scratch.path() / "incoming", scratch.path() / "sources", scratch.path() / "targets"};
    for (const fs::path &dir : {dirs.incoming, dirs.sources, dirs.targets}) {
        fs::create_directories(dir);
    }
#ifdef __linux__
    const size_t descriptors_before = files_in("/proc/self/fd");
#endif
    {
        Listener listener(128);
        std::thread accepting(serve, std::ref(listener), kClients, std::cref(dirs));
        std::atomic<int> connected{0};
        std::vector<Client> clients;
        for (int id = 0; id < kClients; ++id) {
            clients.emplace_back(id, dirs);
        }
        std::vector<std::thread> threads;
        for (Client &client : clients) {
            threads.emplace_back(&Client::run, &client, listener.port, std::ref(connected));
        }
        for (std::thread &t : threads) {
            t.join();
        }
        // Connections that send nothing wake the accepting thread for clients that could not connect.
        for (int missing = connected.load(); missing < kClients; ++missing) {
            void *session = client_for(listener.port);
            sl_net_connect(session);
            free_session(session);
        }
        accepting.join();
        EXPECT_EQ(connected.load(), kClients);

        // Every name on the target holds what was sent; nothing else is left beside the sources.
        std::set<fs::path> expected;
        for (const Client &client : clients) {
            for (const auto &[path, data] : client.targets()) {
                expected.insert(path);
                EXPECT_EQ(read_file(path), data) << path.string();
            }
        }
        EXPECT_FALSE(expected.empty());
        for (const auto &entry : fs::recursive_directory_iterator(scratch.path())) {
            const bool source = entry.path().parent_path().parent_path() == dirs.sources;
            if (!entry.is_directory() && !source) {
                EXPECT_EQ(expected.count(entry.path()), 1u) << "left behind: " << entry.path().string();
            }
        }
    }
    EXPECT_TRUE(fs::is_empty(dirs.incoming));
#ifdef __linux__
    EXPECT_EQ(files_in("/proc/self/fd"), descriptors_before) << "descriptors left open";
#endif
}

}  // namespace
