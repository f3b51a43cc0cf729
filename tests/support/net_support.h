// Shared pieces of the network and typed-message tests: loopback connections,
// message and part bytes built by hand, an independent CRC-32, files.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace vq::test {

using Bytes = std::vector<unsigned char>;

// Whether code is anywhere on the error stack.
bool stack_has(uint32_t code);
// Whether result is the failure 0 with code newest on the stack (or the
// whole stack codes, newest first) and the newest text holding text; the
// stack is cleared for the next check.
::testing::AssertionResult fails_with(int result, uint32_t code, const std::string &text = "");
::testing::AssertionResult fails_with_stack(int result, const std::vector<uint32_t> &codes,
                                            const std::string &text = "");

// CRC-32 (reflected 0xEDB88320, preset and result complemented) by a table of
// its own, independent of the library's.
uint32_t crc32_of(const unsigned char *data, size_t size);
inline uint32_t crc32_of(const Bytes &data) { return crc32_of(data.data(), data.size()); }

void put_be32(unsigned char *p, uint32_t value);

// Bytes made from a seed; printable ones hold no line ends, so that a text
// mode write changes nothing on any system.
Bytes pattern(size_t size, uint32_t seed, bool printable = false);

void write_file(const std::filesystem::path &path, const Bytes &bytes);
Bytes read_file(const std::filesystem::path &path);
size_t files_in(const std::filesystem::path &dir);

// A fresh directory of its own under the system's temporary directory,
// removed with everything in it.
class ScratchDir {
public:
    explicit ScratchDir(const std::string &prefix);
    ~ScratchDir();
    ScratchDir(const ScratchDir &) = delete;
    ScratchDir &operator=(const ScratchDir &) = delete;
    const std::filesystem::path &path() const { return path_; }

private:
    std::filesystem::path path_;
};

// A new TCP session; freeing one sets the pointer to null.
void *new_session();
void free_session(void *&session);
// A client session aimed at 127.0.0.1:port, not yet connected.
void *client_for(uint16_t port);

// A listener on 127.0.0.1 at a port the system picked.
struct Listener {
    void *session = nullptr;
    uint16_t port = 0;
    explicit Listener(int32_t backlog = 16);
    ~Listener() { free_session(session); }
    Listener(const Listener &) = delete;
    Listener &operator=(const Listener &) = delete;
};

// Both ends of one loopback connection.
struct Connection {
    Listener listener;
    void *client = nullptr;
    void *server = nullptr;
    Connection();
    ~Connection();
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;
};

// Starts and ends the network layer around each test, on a clear stack.
class NetTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
};

// A message handle, freed with the object.
class Message {
public:
    Message();
    ~Message();
    Message(const Message &) = delete;
    Message &operator=(const Message &) = delete;
    void *get() const { return handle_; }
    // The whole message as it stands, signature bytes first.
    Bytes bytes() const;

private:
    void *handle_ = nullptr;
};

// The signed bytes of the message fill writes; end adds the end code first.
Bytes signed_message(const std::function<void(void *)> &fill, bool end = true);

Bytes part_header(uint16_t first, uint32_t length, uint16_t third, uint16_t indication);
// A well-formed header and the data behind it.
Bytes raw_part(uint16_t indication, const Bytes &data);

struct RawPart {
    uint32_t length = 0;
    uint16_t indication = 0xFFFF;
    Bytes data;
};

// Reads one part as the bytes are, checking its fixed header fields.
RawPart read_part(void *session);
// Reads parts, checks their (length, indication) pairs; their data joined.
Bytes expect_parts(void *session, const std::vector<std::pair<uint32_t, uint16_t>> &wanted);

}  // namespace vq::test
