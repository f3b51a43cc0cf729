#include "support/net_support.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <random>

#include "vq_glob/err.h"
#include "vq_glob/sl_net.h"
#include "vq_glob/slm.h"

namespace fs = std::filesystem;

namespace vq::test {

namespace {

// The codes on the error stack, newest first.
std::vector<uint32_t> stack_codes() {
    std::vector<uint32_t> codes;
    for (int32_t i = 0; i < err_get_stack_depth(); ++i) {
        codes.push_back(err_get_error_code(i));
    }
    return codes;
}

::testing::AssertionResult failure_check(int result, bool codes_wanted, const std::string &text) {
    ::testing::AssertionResult check = ::testing::AssertionSuccess();
    if (result != 0 || !codes_wanted || std::string(err_get_error_text(0)).find(text) == std::string::npos) {
        check = ::testing::AssertionFailure() << "result " << result << ", stack: " << err_get_error_msg();
    }
    err_clear_error_stack();
    return check;
}

}  // namespace

bool stack_has(uint32_t code) {
    const std::vector<uint32_t> codes = stack_codes();
    return std::find(codes.begin(), codes.end(), code) != codes.end();
}

::testing::AssertionResult fails_with(int result, uint32_t code, const std::string &text) {
    return failure_check(result, err_get_stack_depth() > 0 && err_get_error_code(0) == code, text);
}

::testing::AssertionResult fails_with_stack(int result, const std::vector<uint32_t> &codes,
                                            const std::string &text) {
    return failure_check(result, stack_codes() == codes, text);
}

uint32_t crc32_of(const unsigned char *data, size_t size) {
    static const std::array<uint32_t, 256> table = [] {
        std::array<uint32_t, 256> t{};
        for (uint32_t n = 0; n < 256; ++n) {
            uint32_t reg = n;
            for (int bit = 0; bit < 8; ++bit) {
                reg = (reg & 1u) != 0 ? (reg >> 1) ^ 0xEDB88320u : reg >> 1;
            }
            t[n] = reg;
        }
        return t;
    }();
    uint32_t reg = 0xFFFFFFFFu;
    for (size_t i = 0; i < size; ++i) {
        reg = table[(reg ^ data[i]) & 0xFFu] ^ (reg >> 8);
    }
    return ~reg;
}

void put_be32(unsigned char *p, uint32_t value) {
    for (int i = 0; i < 4; ++i) {
        p[i] = static_cast<unsigned char>(value >> (24 - 8 * i));
    }
}

Bytes pattern(size_t size, uint32_t seed, bool printable) {
    Bytes bytes(size);
    uint32_t x = seed * 2654435761u + 1;
    for (unsigned char &b : bytes) {
        x = x * 1103515245u + 12345u;
        b = printable ? static_cast<unsigned char>(' ' + (x >> 16) % 95)
                      : static_cast<unsigned char>(x >> 16);
    }
    return bytes;
}

void write_file(const fs::path &path, const Bytes &bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    EXPECT_TRUE(out.good()) << path.string();
}

Bytes read_file(const fs::path &path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

size_t files_in(const fs::path &dir) {
    return static_cast<size_t>(std::distance(fs::directory_iterator(dir), fs::directory_iterator()));
}

ScratchDir::ScratchDir(const std::string &prefix)
    : path_(fs::temp_directory_path() / (prefix + std::to_string(std::random_device()()))) {
    fs::create_directories(path_);
}

ScratchDir::~ScratchDir() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
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

void *client_for(uint16_t port) {
    void *client = new_session();
    const sl_net_remote_info info{"127.0.0.1", nullptr, port};
    EXPECT_EQ(sl_net_set_remote_info(client, 0, &info), 1) << err_get_error_msg();
    return client;
}

Listener::Listener(int32_t backlog) : session(new_session()) {
    EXPECT_EQ(sl_net_bind(session, "127.0.0.1", 0), 1) << err_get_error_msg();
    EXPECT_EQ(sl_net_listen(session, backlog), 1) << err_get_error_msg();
    EXPECT_EQ(sl_net_get_local_port(session, &port), 1) << err_get_error_msg();
    EXPECT_NE(port, 0);
}

// The system completes the connection before the accept.
Connection::Connection() : client(client_for(listener.port)) {
    EXPECT_EQ(sl_net_connect(client), 1) << err_get_error_msg();
    EXPECT_EQ(sl_net_accept(listener.session, &server), 1) << err_get_error_msg();
}

Connection::~Connection() {
    free_session(client);
    free_session(server);
}

void NetTest::SetUp() {
    err_set_log_interactive(0);
    ASSERT_EQ(sl_net_init(), 1);
    err_clear_error_stack();
}

void NetTest::TearDown() {
    err_clear_error_stack();
    sl_net_clean();
}

Message::Message() { EXPECT_EQ(slm_allocate_handle(&handle_), 1); }

Message::~Message() { slm_free_handle(&handle_); }

Bytes Message::bytes() const {
    uint32_t size = 0;
    void *p = nullptr;
    EXPECT_EQ(slm_get_size(handle_, &size), 1);
    EXPECT_EQ(slm_get_message_ptr(handle_, &p), 1);
    const auto *b = static_cast<const unsigned char *>(p);
    return Bytes(b, b + size);
}

Bytes signed_message(const std::function<void(void *)> &fill, bool end) {
    Message m;
    fill(m.get());
    if (end) {
        EXPECT_EQ(slm_insert_code(m.get(), static_cast<uint16_t>(SLM_END_CODE)), 1);
    }
    EXPECT_EQ(slm_sign_message(m.get()), 1);
    return m.bytes();
}

Bytes part_header(uint16_t first, uint32_t length, uint16_t third, uint16_t indication) {
    Bytes header(SLM_PART_HEADER_SIZE);
    header[0] = static_cast<unsigned char>(first >> 8);
    header[1] = static_cast<unsigned char>(first);
    put_be32(&header[2], length);
    header[6] = static_cast<unsigned char>(third >> 8);
    header[7] = static_cast<unsigned char>(third);
    header[8] = static_cast<unsigned char>(indication >> 8);
    header[9] = static_cast<unsigned char>(indication);
    return header;
}

Bytes raw_part(uint16_t indication, const Bytes &data) {
    Bytes part =
        part_header(SLM_MSG_SIZE_CODE, static_cast<uint32_t>(data.size()), SLM_LAST_MSG_CODE, indication);
    part.insert(part.end(), data.begin(), data.end());
    return part;
}

RawPart read_part(void *session) {
    unsigned char header[SLM_PART_HEADER_SIZE];
    RawPart part;
    if (sl_net_recv(session, header, SLM_PART_HEADER_SIZE, nullptr) != 1) {
        ADD_FAILURE() << "no part header: " << err_get_error_msg();
        return part;
    }
    EXPECT_EQ((header[0] << 8) | header[1], SLM_MSG_SIZE_CODE);
    EXPECT_EQ((header[6] << 8) | header[7], SLM_LAST_MSG_CODE);
    part.length =
        (uint32_t{header[2]} << 24) | (uint32_t{header[3]} << 16) | (uint32_t{header[4]} << 8) | header[5];
    part.indication = static_cast<uint16_t>((header[8] << 8) | header[9]);
    if (part.length > SLM_MAX_PART_SIZE) {
        ADD_FAILURE() << "part of " << part.length << " bytes";
        return part;
    }
    part.data.resize(part.length);
    if (part.length != 0 &&
        sl_net_recv(session, part.data.data(), static_cast<int32_t>(part.length), nullptr) != 1) {
        ADD_FAILURE() << "part data missing: " << err_get_error_msg();
    }
    return part;
}

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

}  // namespace vq::test
