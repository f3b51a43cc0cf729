// Typed messages over a loopback connection: the parts that go on the wire,
// what the receiver makes of them (attachments in temporary files or under
// their names on the target), and what it refuses from a hostile peer.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support/handle_checks.h"
#include "vq_glob/err.h"
#include "vq_glob/sl_net.h"
#include "vq_glob/slm.h"

namespace fs = std::filesystem;

namespace {

using Bytes = std::vector<unsigned char>;

// ---- Files ------------------------------------------------------------------------------

Bytes pattern(size_t size, unsigned seed) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<unsigned char>((i * 31 + seed * 7 + i / 251) & 0xFF);
    }
    return bytes;
}

void write_file(const fs::path &path, const Bytes &bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

Bytes read_file(const fs::path &path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

size_t files_in(const fs::path &dir) {
    size_t count = 0;
    for ([[maybe_unused]] const auto &entry : fs::directory_iterator(dir)) {
        ++count;
    }
    return count;
}

void set_write_time(const fs::path &path, int64_t unix_seconds) {
    const auto when = std::chrono::system_clock::time_point(std::chrono::seconds(unix_seconds));
    fs::last_write_time(path, std::chrono::file_clock::from_sys(when));
}

// The FILETIME of a Unix time.
uint64_t nt_time(int64_t unix_seconds) { return static_cast<uint64_t>(unix_seconds + 11644473600LL) * 10000000u; }

// ---- The error stack ----------------------------------------------------------------------

bool stack_has(uint32_t code) {
    for (int32_t i = 0; i < err_get_stack_depth(); ++i) {
        if (err_get_error_code(i) == code) {
            return true;
        }
    }
    return false;
}

// ---- Connections ------------------------------------------------------------------------

// A connected TCP pair on 127.0.0.1: the client end sends, the server end
// receives (the kernel completes the connection before the accept).
class Link {
public:
    Link() {
        uint16_t port = 0;
        EXPECT_EQ(sl_net_allocate_handle(SL_NET_TCP, &listener_), 1);
        EXPECT_EQ(sl_net_bind(listener_, "127.0.0.1", 0), 1);
        EXPECT_EQ(sl_net_listen(listener_, 1), 1);
        EXPECT_EQ(sl_net_get_local_port(listener_, &port), 1);
        EXPECT_EQ(sl_net_allocate_handle(SL_NET_TCP, &client_), 1);
        const sl_net_remote_info info{"127.0.0.1", nullptr, port};
        EXPECT_EQ(sl_net_set_remote_info(client_, 0, &info), 1);
        EXPECT_EQ(sl_net_connect(client_), 1);
        EXPECT_EQ(sl_net_accept(listener_, &server_), 1);
    }
    Link(const Link &) = delete;
    Link &operator=(const Link &) = delete;
    ~Link() {
        for (void **session : {&client_, &server_, &listener_}) {
            if (*session != nullptr) {
                sl_net_free_handle(session);
            }
        }
    }

    void *client() const { return client_; }
    void *server() const { return server_; }
    void close_client() { sl_net_free_handle(&client_); }
    void close_server() { sl_net_free_handle(&server_); }

private:
    void *listener_ = nullptr;
    void *client_ = nullptr;
    void *server_ = nullptr;
};

// slm_send on a thread of its own, so that a message larger than the socket
// buffers does not wait for a receiver on the same thread. The error codes
// of a failed send (the stack is per thread) are kept.
class AsyncSend {
public:
    AsyncSend(void *message, void *session, int32_t sign)
        : thread_([this, message, session, sign] {
              result_ = slm_send(message, session, sign);
              for (int32_t i = 0; i < err_get_stack_depth(); ++i) {
                  codes_.push_back(err_get_error_code(i));
                  texts_.emplace_back(err_get_error_text(i));
              }
          }) {}
    AsyncSend(const AsyncSend &) = delete;
    AsyncSend &operator=(const AsyncSend &) = delete;
    ~AsyncSend() {
        if (thread_.joinable()) {
            thread_.join();
        }
    }

    int wait() {
        thread_.join();
        return result_;
    }
    // Codes newest first, as the sending thread's stack held them.
    const std::vector<uint32_t> &codes() const { return codes_; }
    bool has_text(const std::string &text) const {
        for (const std::string &t : texts_) {
            if (t == text) {
                return true;
            }
        }
        return false;
    }

private:
    int result_ = 0;
    std::vector<uint32_t> codes_;
    std::vector<std::string> texts_;
    std::thread thread_;
};

// ---- Raw parts ------------------------------------------------------------------------------

struct RawPart {
    uint32_t length = 0;
    uint16_t indication = 0xFFFF;
    Bytes data;
};

// Reads one part off the wire as the bytes are, checking the fixed fields.
RawPart read_part(void *session) {
    unsigned char header[SLM_PART_HEADER_SIZE];
    RawPart part;
    if (sl_net_recv(session, header, SLM_PART_HEADER_SIZE, nullptr) != 1) {
        ADD_FAILURE() << "no part header: " << err_get_error_msg();
        return part;
    }
    EXPECT_EQ((header[0] << 8) | header[1], SLM_MSG_SIZE_CODE);
    EXPECT_EQ((header[6] << 8) | header[7], SLM_LAST_MSG_CODE);
    part.length = (uint32_t{header[2]} << 24) | (uint32_t{header[3]} << 16) | (uint32_t{header[4]} << 8) | header[5];
    part.indication = static_cast<uint16_t>((header[8] << 8) | header[9]);
    if (part.length > SLM_MAX_PART_SIZE) {
        ADD_FAILURE() << "part of " << part.length << " bytes";
        return part;
    }
    part.data.resize(part.length);
    if (part.length != 0 && sl_net_recv(session, part.data.data(), static_cast<int32_t>(part.length), nullptr) != 1) {
        ADD_FAILURE() << "part data missing: " << err_get_error_msg();
    }
    return part;
}

// Reads parts, checks their (length, indication) pairs and gives their data
// end to end.
Bytes expect_parts(void *session, const std::vector<std::pair<uint32_t, uint16_t>> &wanted) {
    Bytes data;
    for (size_t i = 0; i < wanted.size(); ++i) {
        const RawPart part = read_part(session);
        EXPECT_EQ(part.length, wanted[i].first) << "part " << i;
        EXPECT_EQ(part.indication, wanted[i].second) << "part " << i;
        data.insert(data.end(), part.data.begin(), part.data.end());
    }
    return data;
}

Bytes header_bytes(uint16_t first, uint32_t length, uint16_t third, uint16_t indication) {
    return Bytes{static_cast<unsigned char>(first >> 8),      static_cast<unsigned char>(first),
                 static_cast<unsigned char>(length >> 24),    static_cast<unsigned char>(length >> 16),
                 static_cast<unsigned char>(length >> 8),     static_cast<unsigned char>(length),
                 static_cast<unsigned char>(third >> 8),      static_cast<unsigned char>(third),
                 static_cast<unsigned char>(indication >> 8), static_cast<unsigned char>(indication)};
}

Bytes raw_part(uint16_t indication, const Bytes &data) {
    Bytes part = header_bytes(SLM_MSG_SIZE_CODE, static_cast<uint32_t>(data.size()), SLM_LAST_MSG_CODE, indication);
    part.insert(part.end(), data.begin(), data.end());
    return part;
}

Bytes joined(const std::vector<Bytes> &pieces) {
    Bytes all;
    for (const Bytes &piece : pieces) {
        all.insert(all.end(), piece.begin(), piece.end());
    }
    return all;
}

void send_raw(void *session, const Bytes &bytes) {
    ASSERT_EQ(sl_net_send(session, bytes.data(), static_cast<int32_t>(bytes.size()), nullptr), 1);
}

// The bytes of a message that fill writes; end adds the end code before signing.
Bytes message_bytes(const std::function<void(void *)> &fill, bool end = true) {
    void *h = nullptr;
    EXPECT_EQ(slm_allocate_handle(&h), 1);
    fill(h);
    if (end) {
        EXPECT_EQ(slm_insert_code(h, static_cast<uint16_t>(SLM_END_CODE)), 1);
    }
    EXPECT_EQ(slm_sign_message(h), 1);
    void *buffer = nullptr;
    uint32_t size = 0;
    EXPECT_EQ(slm_get_message_ptr(h, &buffer), 1);
    EXPECT_EQ(slm_get_size(h, &size), 1);
    Bytes bytes(static_cast<unsigned char *>(buffer), static_cast<unsigned char *>(buffer) + size);
    slm_free_handle(&h);
    return bytes;
}

Bytes info_bytes(const std::string &name, int32_t replace) {
    return message_bytes([&](void *h) {
        slm_set_string(h, SLM_ATT_NAME_ON_TARGET_VALUE, name.c_str());
        slm_set_int(h, SLM_ATT_REPLACE_FILE_ON_TARGET_VALUE, replace);
    });
}

Bytes small_body() {
    return message_bytes([](void *h) { slm_set_int(h, 1, 42); });
}

// ---- Fixture --------------------------------------------------------------------------------

// Each test has a directory of its own: the receiver's temp dir, with the
// files to send and the targets beside it.
class SlmTransfer : public ::testing::Test {
protected:
    static void SetUpTestSuite() { ASSERT_EQ(sl_net_init(), 1); }
    static void TearDownTestSuite() { sl_net_clean(); }

    void SetUp() override {
        std::random_device random;
        base_ = fs::temp_directory_path() / ("vq_slm_transfer_" + std::to_string(random()));
        temp_ = base_ / "temp";
        files_ = base_ / "files";
        fs::create_directories(temp_);
        fs::create_directories(files_);
        ASSERT_EQ(slm_allocate_handle(&out_), 1);
        ASSERT_EQ(slm_allocate_handle(&in_), 1);
        ASSERT_EQ(slm_set_temp_dir(in_, temp_.string().c_str()), 1);
        err_clear_error_stack();
    }
    void TearDown() override {
        slm_free_handle(&out_);
        slm_free_handle(&in_);
        std::error_code ignored;
        fs::remove_all(base_, ignored);
    }

    fs::path file(const std::string &name, const Bytes &bytes) {
        fs::path path = files_ / name;
        write_file(path, bytes);
        return path;
    }

    // Sends out_ (signed) and receives it into in_; the success indication.
    int32_t transfer(Link &link) {
        AsyncSend send(out_, link.client(), 1);
        int32_t full = -1;
        EXPECT_EQ(slm_recv_with_success_indication(in_, link.server(), &full), 1) << err_get_error_msg();
        EXPECT_EQ(send.wait(), 1);
        return full;
    }

    // The receiver fails on what the peer sent, and leaves no file behind.
    void expect_refused(Link &link, uint32_t code) {
        EXPECT_EQ(slm_recv(in_, link.server()), 0);
        EXPECT_TRUE(stack_has(code)) << err_get_error_msg();
        EXPECT_EQ(files_in(temp_), 0u);
        err_clear_error_stack();
    }

    struct Received {
        std::string name;
        int32_t mode = -1;
        int32_t status = -1;
        std::string why_not;
    };

    // Reads the attachment reference under code at the cursor of in_.
    Received next_attachment(uint16_t code) {
        Received got;
        uint16_t read_code = 0;
        EXPECT_EQ(slm_get_code(in_, &read_code), 1);
        EXPECT_EQ(read_code, code);
        char *name = nullptr;
        char *why = nullptr;
        EXPECT_EQ(slm_get_att_and_status(in_, &name, &got.mode, &got.status, &why), 1) << err_get_error_msg();
        got.name = name != nullptr ? name : "";
        got.why_not = why != nullptr ? why : "";
        std::free(name);
        std::free(why);
        return got;
    }

    // Sends out_, whose attachments carry codes 1, 2, ..., and checks which
    // were written; the references as received.
    std::vector<Received> transfer_expecting(Link &link, const std::vector<bool> &written) {
        bool all = true;
        for (const bool w : written) {
            all = all && w;
        }
        EXPECT_EQ(transfer(link), all ? 1 : 0);
        std::vector<Received> got;
        for (size_t i = 0; i < written.size(); ++i) {
            got.push_back(next_attachment(static_cast<uint16_t>(i + 1)));
            EXPECT_EQ(got.back().status, written[i] ? 1 : 0) << "attachment " << i + 1;
            EXPECT_EQ(got.back().why_not.empty(), written[i]) << "attachment " << i + 1;
        }
        return got;
    }

    fs::path base_;
    fs::path temp_;
    fs::path files_;
    void *out_ = nullptr;
    void *in_ = nullptr;
};

// ---- The body -------------------------------------------------------------------------------

TEST_F(SlmTransfer, ElementsArriveIntactAndAReusedHandleHoldsOnlyTheNewMessage) {
    Link link;
    const Bytes blob = pattern(70000, 1);  // three parts on the wire, joined again
    ASSERT_EQ(slm_set_int(out_, 10, -5), 1);
    ASSERT_EQ(slm_set_string(out_, 13, "hello"), 1);
    ASSERT_EQ(slm_set_void(out_, 15, blob.data(), static_cast<uint32_t>(blob.size())), 1);
    EXPECT_EQ(transfer(link), 1);

    int32_t i = 0;
    char *text = nullptr;
    EXPECT_EQ(slm_get_int_by_code(in_, 10, &i), 1);
    EXPECT_EQ(i, -5);
    EXPECT_EQ(slm_get_string_by_code(in_, 13, &text), 1);
    EXPECT_STREQ(text, "hello");
    std::free(text);
    uint16_t code = 0;
    void *data = nullptr;
    uint32_t length = 0;
    EXPECT_EQ(slm_get_code(in_, &code), 1);
    EXPECT_EQ(code, 15);
    ASSERT_EQ(slm_get_void(in_, &data, &length), 1);
    ASSERT_EQ(length, blob.size());
    EXPECT_EQ(std::memcmp(data, blob.data(), length), 0);
    EXPECT_EQ(slm_get_code(in_, &code), 1);
    EXPECT_EQ(code, SLM_END_CODE);

    // The same receiving handle again: nothing of the first message is left.
    ASSERT_EQ(slm_init_handle(out_), 1);
    ASSERT_EQ(slm_set_int(out_, 20, 99), 1);
    EXPECT_EQ(transfer(link), 1);
    uint32_t size = 0;
    EXPECT_EQ(slm_get_size(in_, &size), 1);
    EXPECT_EQ(size, 4u + 7u + 2u);
    EXPECT_EQ(slm_get_int_by_code(in_, 20, &i), 1);
    EXPECT_EQ(i, 99);
}

TEST_F(SlmTransfer, BodySplitsIntoPartsOfAtMost32768Bytes) {
    Link link;
    // A void of n bytes makes a signed message of 4 + 7 + n + 2 bytes.
    struct Case {
        uint32_t void_size;
        std::vector<std::pair<uint32_t, uint16_t>> parts;
    };
    const Case cases[] = {
        {32755, {{32768, SLM_PART_BODY_LAST}}},
        {32756, {{32768, SLM_PART_BODY_MORE}, {1, SLM_PART_BODY_LAST}}},
        {65524, {{32768, SLM_PART_BODY_MORE}, {32768, SLM_PART_BODY_MORE}, {1, SLM_PART_BODY_LAST}}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.void_size);
        ASSERT_EQ(slm_init_handle(out_), 1);
        const Bytes blob = pattern(c.void_size, 2);
        ASSERT_EQ(slm_set_void(out_, 3, blob.data(), c.void_size), 1);
        AsyncSend send(out_, link.client(), 1);
        const Bytes body = expect_parts(link.server(), c.parts);
        ASSERT_EQ(send.wait(), 1);
        void *buffer = nullptr;
        uint32_t size = 0;
        ASSERT_EQ(slm_get_message_ptr(out_, &buffer), 1);
        ASSERT_EQ(slm_get_size(out_, &size), 1);
        EXPECT_EQ(body, Bytes(static_cast<unsigned char *>(buffer), static_cast<unsigned char *>(buffer) + size));
    }
    // Nothing followed the last part: the next thing on the wire is the next message.
    ASSERT_EQ(slm_init_handle(out_), 1);
    AsyncSend send(out_, link.client(), 1);
    expect_parts(link.server(), {{6, SLM_PART_BODY_LAST}});
    EXPECT_EQ(send.wait(), 1);
}

// ---- Attachments on the wire ----------------------------------------------------------------

TEST_F(SlmTransfer, AttachmentsGoAheadOfTheBodyInTableOrderWithTheirKindsIndications) {
    Link link;
    const Bytes text = {'a', 'b', '\n', 'c', 'd'};
    const Bytes buffer = pattern(10, 3);
    ASSERT_EQ(slm_set_att(out_, 1, file("t.txt", text).string().c_str(), 0), 1);
    ASSERT_EQ(slm_set_att(out_, 2, file("e.bin", {}).string().c_str(), 1), 1);
    ASSERT_EQ(slm_set_att(out_, 3, file("m.bin", pattern(65536, 4)).string().c_str(), 1), 1);
    ASSERT_EQ(slm_set_buffer_as_att(out_, 4, buffer.data(), 10, 0), 1);
    int32_t count = 0;
    EXPECT_EQ(slm_get_number_of_attachments(out_, &count), 1);
    EXPECT_EQ(count, 4);

    AsyncSend send(out_, link.client(), 1);
    RawPart first = read_part(link.server());
    EXPECT_EQ(first.indication, SLM_PART_TEXT_LAST);
    EXPECT_EQ(first.data, text);
    // An empty file is one empty last piece; a multiple of the piece size
    // ends with one too.
    expect_parts(link.server(), {{0, SLM_PART_BINARY_LAST},
                                 {32768, SLM_PART_BINARY_MORE},
                                 {32768, SLM_PART_BINARY_MORE},
                                 {0, SLM_PART_BINARY_LAST}});
    RawPart last = read_part(link.server());
    EXPECT_EQ(last.indication, SLM_PART_TEXT_LAST);
    EXPECT_EQ(last.data, buffer);
    RawPart body = read_part(link.server());
    EXPECT_EQ(body.indication, SLM_PART_BODY_LAST);
    // Four references (types 4, 6, 6, 4 with numbers 0-3) and the end code.
    EXPECT_EQ(body.length, 4u + 4 * 7u + 2u);
    ASSERT_EQ(body.data.size(), body.length);
    EXPECT_EQ(body.data[4 + 2], SLM_TYPE_TEXT_ATT);
    EXPECT_EQ(body.data[4 + 7 + 2], SLM_TYPE_BINARY_ATT);
    EXPECT_EQ(body.data[4 + 21 + 6], 3);  // the last reference carries number 3
    EXPECT_EQ(send.wait(), 1);
}

TEST_F(SlmTransfer, PiecesFollowTheAttachmentBufferSizeButNeverExceedAPart) {
    Link link;
    struct Case {
        uint32_t buffer_size;
        size_t file_size;
        std::vector<std::pair<uint32_t, uint16_t>> parts;
    };
    const Case cases[] = {
        {1000, 2500, {{1000, SLM_PART_BINARY_MORE}, {1000, SLM_PART_BINARY_MORE}, {500, SLM_PART_BINARY_LAST}}},
        {1000, 2000, {{1000, SLM_PART_BINARY_MORE}, {1000, SLM_PART_BINARY_MORE}, {0, SLM_PART_BINARY_LAST}}},
        {100000,
         70000,
         {{32768, SLM_PART_BINARY_MORE}, {32768, SLM_PART_BINARY_MORE}, {4464, SLM_PART_BINARY_LAST}}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.buffer_size);
        ASSERT_EQ(slm_init_handle(out_), 1);
        ASSERT_EQ(slm_set_att_buffer_size(out_, c.buffer_size), 1);
        const Bytes data = pattern(c.file_size, 5);
        ASSERT_EQ(slm_set_att(out_, 1, file("p.bin", data).string().c_str(), 1), 1);
        AsyncSend send(out_, link.client(), 1);
        EXPECT_EQ(expect_parts(link.server(), c.parts), data);
        EXPECT_EQ(read_part(link.server()).indication, SLM_PART_BODY_LAST);
        EXPECT_EQ(send.wait(), 1);
    }
}

TEST_F(SlmTransfer, AttachmentInformationPrecedesTheDataOfANamedAttachment) {
    Link link;
    const std::string target = (base_ / "target.bin").string();
    ASSERT_EQ(slm_set_att_with_target_fn(out_, 1, file("s.bin", pattern(3, 6)).string().c_str(), target.c_str(), 1, 1,
                                         1234, 0x89ABCDEFu, 0x01234567u, 1),
              1);
    AsyncSend send(out_, link.client(), 1);
    RawPart info = read_part(link.server());
    EXPECT_EQ(info.indication, SLM_PART_ATT_INFO_LAST);
    void *reader = nullptr;
    ASSERT_EQ(slm_read_message_to_handle(&reader, info.data.data(), info.length), 1);
    char *name = nullptr;
    int32_t value = 0;
    EXPECT_EQ(slm_get_string_by_code(reader, SLM_ATT_NAME_ON_TARGET_VALUE, &name), 1);
    EXPECT_EQ(name != nullptr ? std::string(name) : std::string(), target);
    std::free(name);
    EXPECT_EQ(slm_get_int_by_code(reader, SLM_ATT_REPLACE_FILE_ON_TARGET_VALUE, &value), 1);
    EXPECT_EQ(value, 1);
    EXPECT_EQ(slm_get_int_by_code(reader, SLM_ATT_UNIX_MOD_TIME_VALUE, &value), 1);
    EXPECT_EQ(value, 1234);
    EXPECT_EQ(slm_get_int_by_code(reader, SLM_ATT_NT_LSB_MOD_TIME_VALUE, &value), 1);
    EXPECT_EQ(static_cast<uint32_t>(value), 0x89ABCDEFu);
    EXPECT_EQ(slm_get_int_by_code(reader, SLM_ATT_NT_MSB_MOD_TIME_VALUE, &value), 1);
    EXPECT_EQ(static_cast<uint32_t>(value), 0x01234567u);
    uint16_t code = 0;
    EXPECT_EQ(slm_get_code(reader, &code), 1);
    EXPECT_EQ(code, SLM_END_CODE);
    slm_free_handle(&reader);
    expect_parts(link.server(), {{3, SLM_PART_BINARY_LAST}});
    EXPECT_EQ(read_part(link.server()).indication, SLM_PART_BODY_LAST);
    EXPECT_EQ(send.wait(), 1);
}

// ---- Attachments received ---------------------------------------------------------------------

TEST_F(SlmTransfer, ReceivedAttachmentsGoToTemporaryFilesUnderTheSendersNumbers) {
    Link link;
    const Bytes text = pattern(40000, 7);
    const Bytes buffer = pattern(32768, 8);
    ASSERT_EQ(slm_set_att(out_, 1, file("a.txt", text).string().c_str(), 0), 1);
    ASSERT_EQ(slm_set_buffer_as_att(out_, 2, buffer.data(), static_cast<uint32_t>(buffer.size()), 1), 1);
    ASSERT_EQ(slm_set_att(out_, 3, file("empty", {}).string().c_str(), 1), 1);
    EXPECT_EQ(transfer(link), 1);

    int32_t count = 0;
    EXPECT_EQ(slm_get_number_of_attachments(in_, &count), 1);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(files_in(temp_), 3u);
    const Bytes wanted[] = {text, buffer, {}};
    for (uint16_t code = 1; code <= 3; ++code) {
        SCOPED_TRACE(code);
        const Received got = next_attachment(code);
        EXPECT_EQ(got.mode, code == 1 ? 0 : 1);
        EXPECT_EQ(got.status, 1);
        EXPECT_EQ(got.why_not, "");
        const fs::path path(got.name);
        EXPECT_EQ(fs::canonical(path.parent_path()), fs::canonical(temp_));
        EXPECT_EQ(path.filename().string().rfind("slm", 0), 0u) << got.name;
        EXPECT_EQ(read_file(path), wanted[code - 1]);
    }
}

TEST_F(SlmTransfer, NamesOnTheTargetKeepAnExistingFileUnlessReplaceIsOne) {
    Link link;
    const fs::path fresh = base_ / "fresh.bin";
    const fs::path kept = base_ / "kept.bin";
    const fs::path replaced = base_ / "replaced.bin";
    write_file(kept, {'o', 'l', 'd'});
    write_file(replaced, {'o', 'l', 'd'});
    const Bytes data = pattern(5000, 9);
    const std::string source = file("src.bin", data).string();
    ASSERT_EQ(slm_set_att_with_target_fn(out_, 1, source.c_str(), fresh.string().c_str(), 0, 0, 0, 0, 0, 1), 1);
    ASSERT_EQ(slm_set_att_with_target_fn(out_, 2, source.c_str(), kept.string().c_str(), 0, 0, 0, 0, 0, 1), 1);
    ASSERT_EQ(slm_set_att_with_target_fn(out_, 3, source.c_str(), replaced.string().c_str(), 1, 0, 0, 0, 0, 1), 1);
    const std::vector<Received> got = transfer_expecting(link, {true, false, true});
    EXPECT_EQ(got[0].name, fresh.string());
    EXPECT_EQ(got[1].name, kept.string());
    EXPECT_EQ(read_file(fresh), data);
    EXPECT_EQ(read_file(kept), (Bytes{'o', 'l', 'd'}));
    EXPECT_EQ(read_file(replaced), data);
    EXPECT_EQ(files_in(temp_), 0u);  // names on the target need no temporary file

    // Every attachment written: full success.
    ASSERT_EQ(slm_init_handle(out_), 1);
    fs::remove(fresh);
    ASSERT_EQ(slm_set_att_with_target_fn(out_, 1, source.c_str(), fresh.string().c_str(), 0, 0, 0, 0, 0, 1), 1);
    transfer_expecting(link, {true});
}

TEST_F(SlmTransfer, AFileOnTheTargetNewerThanTheSourceIsKept) {
    Link link;
    const int64_t target_time = 1600000000;
    const Bytes data = pattern(100, 10);
    const std::string source = file("src.bin", data).string();
    struct Case {
        const char *name;
        int64_t source_time;
        bool written;
    };
    const Case cases[] = {{"older_source", target_time - 100, false},
                          {"equal_times", target_time, true},
                          {"newer_source", target_time + 100, true}};
    uint16_t code = 1;
    for (const Case &c : cases) {
        const fs::path target = base_ / c.name;
        write_file(target, {'o', 'l', 'd'});
        set_write_time(target, target_time);
        const uint64_t nt = nt_time(c.source_time);
        ASSERT_EQ(slm_set_att_with_target_fn(out_, code++, source.c_str(), target.string().c_str(), 1, 1,
                                             static_cast<int32_t>(c.source_time), static_cast<uint32_t>(nt),
                                             static_cast<uint32_t>(nt >> 32), 1),
                  1);
    }
    const std::vector<Received> got = transfer_expecting(link, {false, true, true});
    EXPECT_NE(got[0].why_not.find("newer"), std::string::npos) << got[0].why_not;
    for (const Case &c : cases) {
        EXPECT_EQ(read_file(base_ / c.name), c.written ? data : Bytes({'o', 'l', 'd'})) << c.name;
    }
}

// ---- Target root ------------------------------------------------------------------------------

TEST_F(SlmTransfer, TargetRootRefusesNamesLeadingOutsideItAndGoesOn) {
    Link link;
    const fs::path root = base_ / "root";
    fs::create_directories(root / "sub");
    ASSERT_EQ(slm_set_target_root(in_, root.string().c_str()), 1);
    const Bytes data = pattern(64, 11);
    const std::string source = file("src.bin", data).string();
    const fs::path outside = base_ / "outside.bin";
    struct Case {
        std::string name;
        bool written;
    };
    std::vector<Case> cases = {
        {"inside.bin", true},
        {(fs::path("sub") / "deeper.bin").string(), true},
        {outside.string(), false},  // absolute
        {(fs::path("..") / "outside.bin").string(), false},
        {(fs::path("sub") / ".." / ".." / "outside.bin").string(), false},
    };
#ifndef _WIN32
    // Symbolic links: one leading out of the root (a directory, and a file as
    // the last element), one staying inside it.
    fs::create_directories(base_ / "elsewhere");
    fs::create_directory_symlink(base_ / "elsewhere", root / "escape");
    write_file(base_ / "victim.bin", {'v'});
    fs::create_symlink(base_ / "victim.bin", root / "victim.bin");
    fs::create_directory_symlink(root / "sub", root / "inner");
    cases.push_back({"escape/evil.bin", false});
    cases.push_back({"victim.bin", false});
    cases.push_back({"inner/fine.bin", true});
#endif
    uint16_t code = 1;
    for (const Case &c : cases) {
        ASSERT_EQ(slm_set_att_with_target_fn(out_, code++, source.c_str(), c.name.c_str(), 1, 0, 0, 0, 0, 1), 1);
    }
    std::vector<bool> written;
    for (const Case &c : cases) {
        written.push_back(c.written);
    }
    const std::vector<Received> got = transfer_expecting(link, written);
    for (size_t i = 0; i < cases.size(); ++i) {
        SCOPED_TRACE(cases[i].name);
        if (cases[i].written) {
            EXPECT_EQ(read_file(root / cases[i].name), data);
        } else {
            EXPECT_NE(got[i].why_not.find("is outside the target root"), std::string::npos) << got[i].why_not;
        }
    }
    EXPECT_FALSE(fs::exists(outside));
#ifndef _WIN32
    EXPECT_FALSE(fs::exists(base_ / "elsewhere" / "evil.bin"));
    EXPECT_EQ(read_file(base_ / "victim.bin"), Bytes{'v'});
    EXPECT_EQ(read_file(root / "sub" / "fine.bin"), data);
#endif
    EXPECT_EQ(files_in(temp_), 0u);
}

// ---- Failed sends and restarts -------------------------------------------------------------

TEST_F(SlmTransfer, AFailedSendSendsARestartOnlyToAPeerOfTheSameVersionOrLater) {
    Link link;
    const Bytes buffer = pattern(20, 12);
    const std::string missing = (files_ / "missing.bin").string();
    for (const double remote : {SLM_LOCAL_VERSION, 1.0}) {
        SCOPED_TRACE(remote);
        ASSERT_EQ(slm_init_handle(out_), 1);
        ASSERT_EQ(slm_set_remote_version(out_, remote), 1);
        ASSERT_EQ(slm_set_buffer_as_att(out_, 1, buffer.data(), 20, 1), 1);
        ASSERT_EQ(slm_set_att(out_, 2, missing.c_str(), 1), 1);
        AsyncSend failing(out_, link.client(), 1);
        EXPECT_EQ(failing.wait(), 0);
        ASSERT_FALSE(failing.codes().empty());
        EXPECT_EQ(failing.codes().front(), ERR_MSG_SEND);
        EXPECT_TRUE(failing.has_text("slm_send_att - file does not exist !!!!\n"));
        EXPECT_NE(std::find(failing.codes().begin(), failing.codes().end(), ERR_MSG_ATTOPEN), failing.codes().end());

        // Then a good message: after the first attachment comes the restart
        // part or, for an older peer, straight the next message.
        void *next = nullptr;
        ASSERT_EQ(slm_allocate_handle(&next), 1);
        AsyncSend good(next, link.client(), 1);
        expect_parts(link.server(), {{20, SLM_PART_BINARY_LAST}});
        if (remote == SLM_LOCAL_VERSION) {
            expect_parts(link.server(), {{0, SLM_PART_RESTART}});
        }
        expect_parts(link.server(), {{6, SLM_PART_BODY_LAST}});
        EXPECT_EQ(good.wait(), 1);
        slm_free_handle(&next);
    }
}

TEST_F(SlmTransfer, TheReceiverDropsARestartedMessageAndReceivesTheNextOne) {
    Link link;
    const Bytes dropped = pattern(3000, 13);
    const Bytes kept = pattern(70000, 14);
    ASSERT_EQ(slm_set_remote_version(out_, SLM_LOCAL_VERSION), 1);
    ASSERT_EQ(slm_set_buffer_as_att(out_, 1, dropped.data(), static_cast<uint32_t>(dropped.size()), 1), 1);
    ASSERT_EQ(slm_set_att(out_, 2, (files_ / "missing.bin").string().c_str(), 1), 1);
    void *good = nullptr;
    ASSERT_EQ(slm_allocate_handle(&good), 1);
    ASSERT_EQ(slm_set_buffer_as_att(good, 7, kept.data(), static_cast<uint32_t>(kept.size()), 1), 1);
    ASSERT_EQ(slm_set_int(good, 8, 77), 1);

    // One thread sends both, in order: the receiver must pass the restart.
    int results[2] = {-1, -1};
    std::thread sender([&] {
        results[0] = slm_send(out_, link.client(), 1);
        results[1] = slm_send(good, link.client(), 1);
    });
    int32_t full = -1;
    EXPECT_EQ(slm_recv_with_success_indication(in_, link.server(), &full), 1) << err_get_error_msg();
    sender.join();
    EXPECT_EQ(results[0], 0);
    EXPECT_EQ(results[1], 1);
    EXPECT_EQ(full, 1);

    int32_t count = 0;
    EXPECT_EQ(slm_get_number_of_attachments(in_, &count), 1);
    EXPECT_EQ(count, 1);
    const Received got = next_attachment(7);
    EXPECT_EQ(read_file(got.name), kept);
    int32_t value = 0;
    EXPECT_EQ(slm_get_int_by_code(in_, 8, &value), 1);
    EXPECT_EQ(value, 77);
    EXPECT_EQ(files_in(temp_), 1u);  // the dropped message's file is gone
    slm_free_handle(&good);
}

// ---- What a hostile peer sends -------------------------------------------------------------

TEST_F(SlmTransfer, BadPartHeadersAreRefused) {
    struct Case {
        Bytes header;
        uint32_t code;
        const char *text;
    };
    const Case cases[] = {
        {header_bytes(7, 0, SLM_LAST_MSG_CODE, 0), ERR_MSG_BADHEAD, "got code <7> instead <SLM_MSG_SIZE_CODE>"},
        {header_bytes(SLM_MSG_SIZE_CODE, 0, 3, 0), ERR_MSG_BADHEAD, "got code <3> instead <SLM_LAST_MSG_CODE>"},
        {header_bytes(SLM_MSG_SIZE_CODE, 0, SLM_LAST_MSG_CODE, 9), ERR_MSG_UNKTYP, "unknown message type (9)"},
        // Lengths beyond a part are refused from the header alone: the peer
        // closes without sending them, and nothing waits for or allocates them.
        {header_bytes(SLM_MSG_SIZE_CODE, 32769, SLM_LAST_MSG_CODE, 0), ERR_MSG_TOOBIG, "32768"},
        {header_bytes(SLM_MSG_SIZE_CODE, 0xFFFFFFF0u, SLM_LAST_MSG_CODE, 4), ERR_MSG_TOOBIG, "32768"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.text);
        Link link;
        send_raw(link.client(), c.header);
        link.close_client();
        EXPECT_EQ(slm_recv(in_, link.server()), 0);
        EXPECT_EQ(err_get_error_code(0), c.code) << err_get_error_msg();
        EXPECT_NE(std::string(err_get_error_text(0)).find(c.text), std::string::npos) << err_get_error_text(0);
        err_clear_error_stack();
    }
}

TEST_F(SlmTransfer, PartsOutOfOrderOrMalformedAreRefusedWithoutLeavingFiles) {
    const Bytes data = pattern(100, 15);
    const Bytes info = info_bytes((base_ / "named.bin").string(), 1);
    Bytes bad_crc = info;
    bad_crc[0] ^= 0x01;
    Bytes bad_body = small_body();
    bad_body.back() ^= 0x01;
    const Bytes no_end = message_bytes(
        [&](void *h) { slm_set_string(h, SLM_ATT_NAME_ON_TARGET_VALUE, (base_ / "x.bin").string().c_str()); },
        false);
    const Bytes no_name = message_bytes([](void *h) { slm_set_int(h, SLM_ATT_REPLACE_FILE_ON_TARGET_VALUE, 1); });
    const Bytes big(32768, 0);
    struct Case {
        const char *what;
        std::vector<Bytes> parts;
        uint32_t code;
    };
    const std::vector<Case> cases = {
        {"binary part in a text attachment",
         {raw_part(SLM_PART_TEXT_MORE, data), raw_part(SLM_PART_BINARY_LAST, data)},
         ERR_MSG_BADMSG},
        {"text part in a binary attachment",
         {raw_part(SLM_PART_BINARY_LAST, data), raw_part(SLM_PART_BINARY_MORE, data), raw_part(SLM_PART_TEXT_LAST, data)},
         ERR_MSG_BADMSG},
        {"body inside an attachment",
         {raw_part(SLM_PART_BINARY_MORE, data), raw_part(SLM_PART_BODY_LAST, small_body())},
         ERR_MSG_BADMSG},
        {"body right after attachment information",
         {raw_part(SLM_PART_ATT_INFO_LAST, info), raw_part(SLM_PART_BODY_LAST, small_body())},
         ERR_MSG_BADMSG},
        {"two attachment informations",
         {raw_part(SLM_PART_ATT_INFO_LAST, info), raw_part(SLM_PART_ATT_INFO_LAST, info)},
         ERR_MSG_BADMSG},
        {"attachment part inside attachment information",
         {raw_part(SLM_PART_ATT_INFO_MORE, info), raw_part(SLM_PART_BINARY_LAST, data)},
         ERR_MSG_BADMSG},
        {"attachment part inside the body",
         {raw_part(SLM_PART_BODY_MORE, small_body()), raw_part(SLM_PART_BINARY_LAST, data)},
         ERR_MSG_BADMSG},
        {"attachment information with a bad signature", {raw_part(SLM_PART_ATT_INFO_LAST, bad_crc)}, ERR_MSG_CRC},
        {"attachment information without its end code", {raw_part(SLM_PART_ATT_INFO_LAST, no_end)}, ERR_MSG_BADMSG},
        {"attachment information without a name", {raw_part(SLM_PART_ATT_INFO_LAST, no_name)}, ERR_MSG_BADMSG},
        {"attachment information over its limit",
         {raw_part(SLM_PART_ATT_INFO_MORE, big), raw_part(SLM_PART_ATT_INFO_MORE, big),
          raw_part(SLM_PART_ATT_INFO_LAST, big)},
         ERR_MSG_TOOBIG},
        {"body with a bad signature",
         {raw_part(SLM_PART_BINARY_LAST, data), raw_part(SLM_PART_BODY_LAST, bad_body)},
         ERR_MSG_CRC},
        {"body shorter than a signature", {raw_part(SLM_PART_BODY_LAST, {1, 2, 3})}, ERR_MSG_BADMSG},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        Link link;
        // The peer sends on a thread of its own (the parts may exceed the
        // socket buffers) and then closes: a receiver that waited for more
        // would fail with RECV instead of the refusal.
        std::thread peer([&] {
            for (const Bytes &part : c.parts) {
                if (sl_net_send(link.client(), part.data(), static_cast<int32_t>(part.size()), nullptr) != 1) {
                    break;  // the receiver gave up first
                }
            }
            link.close_client();
        });
        expect_refused(link, c.code);
        link.close_server();  // ends a send still waiting for the receiver
        peer.join();
        EXPECT_FALSE(fs::exists(base_ / "named.bin"));
    }
}

TEST_F(SlmTransfer, APeerClosingMidAttachmentLeavesNoTemporaryFile) {
    Link link;
    const Bytes data = pattern(1000, 16);
    send_raw(link.client(), joined({raw_part(SLM_PART_BINARY_LAST, data), raw_part(SLM_PART_TEXT_MORE, data)}));
    link.close_client();
    expect_refused(link, ERR_MSG_RECV);
}

TEST_F(SlmTransfer, APeerClosingMidNamedAttachmentLeavesNoHalfFileOnTheTarget) {
    Link link;
    const fs::path target = base_ / "half.bin";
    const Bytes data = pattern(1000, 17);
    send_raw(link.client(),
             joined({raw_part(SLM_PART_ATT_INFO_LAST, info_bytes(target.string(), 1)),
                     raw_part(SLM_PART_BINARY_MORE, data)}));
    link.close_client();
    expect_refused(link, ERR_MSG_RECV);
    EXPECT_FALSE(fs::exists(target));
}

TEST_F(SlmTransfer, ASilentPeerFailsTheReceiveAfterTheReceiveTimeOut) {
    Link link;
    ASSERT_EQ(sl_net_set_recv_timeout(link.server(), 1), 1);
    send_raw(link.client(), raw_part(SLM_PART_BINARY_MORE, pattern(100, 18)));
    // The client stays connected and says nothing more.
    expect_refused(link, ERR_MSG_RECV);
}

// ---- Arguments -----------------------------------------------------------------------------

TEST_F(SlmTransfer, ArgumentsAreChecked) {
    Link link;
    EXPECT_EQ(slm_send(nullptr, link.client(), 1), 0);
    EXPECT_TRUE(vq::test::refused("slm_send", "handle"));
    EXPECT_EQ(slm_send(out_, nullptr, 1), 0);
    EXPECT_TRUE(vq::test::refused("slm_send", "session"));
    EXPECT_EQ(slm_recv(in_, nullptr), 0);
    EXPECT_TRUE(vq::test::refused("slm_recv", "session"));
    EXPECT_EQ(slm_recv_with_success_indication(in_, link.server(), nullptr), 0);
    EXPECT_TRUE(vq::test::refused("slm_recv_with_success_indication", "full_success"));
    EXPECT_EQ(slm_set_att(out_, 1, nullptr, 0), 0);
    EXPECT_TRUE(vq::test::refused("slm_set_att", "file_name"));
    EXPECT_EQ(slm_set_att_with_target_fn(out_, 1, "x", "", 0, 0, 0, 0, 0, 0), 0);
    EXPECT_TRUE(vq::test::refused("slm_set_att_with_target_fn", "name_on_target"));
    EXPECT_EQ(slm_set_buffer_as_att(out_, 1, nullptr, 5, 0), 0);
    EXPECT_TRUE(vq::test::refused("slm_set_buffer_as_att", "buffer"));
    // Nothing was added by the refused calls.
    int32_t count = -1;
    EXPECT_EQ(slm_get_number_of_attachments(out_, &count), 1);
    EXPECT_EQ(count, 0);
}

TEST_F(SlmTransfer, AMessageHoldsAtMostTheLimitOfAttachments) {
    const unsigned char byte = 1;
    for (int i = 0; i < SLM_MAX_ATTACHMENTS; ++i) {
        ASSERT_EQ(slm_set_buffer_as_att(out_, 1, &byte, 1, 1), 1) << i;
    }
    uint32_t size_before = 0;
    EXPECT_EQ(slm_get_size(out_, &size_before), 1);
    EXPECT_EQ(slm_set_buffer_as_att(out_, 1, &byte, 1, 1), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_MSG_TOOMANY);
    uint32_t size_after = 0;
    EXPECT_EQ(slm_get_size(out_, &size_after), 1);
    EXPECT_EQ(size_after, size_before);  // no reference written for it
    int32_t count = 0;
    EXPECT_EQ(slm_get_number_of_attachments(out_, &count), 1);
    EXPECT_EQ(count, SLM_MAX_ATTACHMENTS);
}

}  // namespace
