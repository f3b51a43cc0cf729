// General messages: the bytes of every element kind, stream and struct
// counts, taking messages apart into typed parameters, the error stack's
// transfer between threads, time stamps, bounded messages, and hostile input.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support/gm_script.h"
#include "vq_glob/api.h"
#include "vq_glob/err.h"
#include "vq_glob/glob.h"
#include "vq_glob/gm.h"
#include "vq_glob/tvtime.h"

namespace {

using Bytes = std::vector<unsigned char>;

// Builds a message with fn into a fresh unbounded buffer and returns its bytes.
template <typename Fn>
Bytes build(Fn fn) {
    Bytes buffer(65536);
    gm_init_message(buffer.data());
    fn();
    buffer.resize(gm_end_message());
    return buffer;
}

int take_apart(const Bytes &m) { return gm_disassemble_message(m.data(), static_cast<uint32_t>(m.size())); }
int unpack(const Bytes &m) { return gm_unpack_error_stack(m.data(), static_cast<uint32_t>(m.size())); }

int g_sends = 0;
int32_t g_sent_length = -1;
unsigned char g_user_buffer[256];
int32_t g_init_args[3];

void *user_buffer() { return g_user_buffer; }
int user_init(void * /*buffer*/, int32_t code, int32_t type, int32_t zero) {
    g_init_args[0] = code;
    g_init_args[1] = type;
    g_init_args[2] = zero;
    return 1;
}
int user_send(void * /*buffer*/, int32_t length) {
    ++g_sends;
    g_sent_length = length;
    return 7;
}
void *no_buffer() { return nullptr; }

class GenMsg : public ::testing::Test {
protected:
    void SetUp() override {
        err_set_log_interactive(0);
        err_clear_error_stack();
    }
    void TearDown() override { gm_clean(); }
};

TEST_F(GenMsg, ElementBytes) {
    EXPECT_EQ(build([] { gm_add_str_to_message(3, nullptr); }), (Bytes{3, 0, 0, 4}));
    EXPECT_EQ(build([] { gm_add_str_to_message(3, ""); }), (Bytes{3, 0, 1, 4, 0}));
    EXPECT_EQ(build([] { gm_add_int_to_message(9, 0x01020304); }), (Bytes{9, 0, 4, 2, 1, 2, 3, 4}));
    EXPECT_EQ(build([] { gm_add_long_to_message(0x1FF, -2); }),
              (Bytes{0xFF, 0, 4, 3, 0xFF, 0xFF, 0xFF, 0xFE}));
    EXPECT_EQ(build([] { gm_add_short_to_message(1, -2); }), (Bytes{1, 0, 2, 1, 0xFF, 0xFE}));
    EXPECT_EQ(build([] { gm_add_char_to_message(2, 'x'); }), (Bytes{2, 0, 1, 0, 'x'}));
    EXPECT_EQ(build([] { gm_add_void_to_message(4, "ab", 2); }), (Bytes{4, 0, 2, 5, 'a', 'b'}));
    EXPECT_EQ(build([] { gm_add_void_to_message(4, nullptr, 9); }), (Bytes{4, 0, 0, 5}));
}

TEST_F(GenMsg, ScalarsStringsAndVoidsReadBack) {
    Bytes m = build([] {
        gm_add_char_to_message(1, 'q');
        gm_add_short_to_message(2, -300);
        gm_add_int_to_message(3, -70000);
        gm_add_long_to_message(4, 123456789);
        gm_add_str_to_message(5, "text");
        gm_add_str_to_message(6, nullptr);
        gm_add_void_to_message(7, "\x01\x00\x02", 3);
        gm_add_void_to_message(8, nullptr, 0);
    });
    ASSERT_EQ(take_apart(m), 1);
    char c = 0;
    int16_t s = 0;
    int32_t i = 0;
    int32_t l = 0;
    char *str = nullptr;
    void *v = nullptr;
    EXPECT_TRUE(gm_get_char_param(1, &c) == 1 && c == 'q');
    EXPECT_TRUE(gm_get_short_param(2, &s) == 1 && s == -300);
    EXPECT_TRUE(gm_get_int_param(3, &i) == 1 && i == -70000);
    EXPECT_TRUE(gm_get_long_param(4, &l) == 1 && l == 123456789);
    ASSERT_EQ(gm_get_str_param(5, &str), 1);
    EXPECT_STREQ(str, "text");
    str = &c;
    EXPECT_EQ(gm_get_str_param(6, &str), 1);
    EXPECT_EQ(str, nullptr);
    ASSERT_EQ(gm_get_void_param(7, &v), 1);
    EXPECT_EQ(std::memcmp(v, "\x01\x00\x02", 3), 0);
    EXPECT_EQ(gm_get_void_param(8, &v), 1);
    // Each getter asks for its own type: an int is not a long, a missing code is no error.
    EXPECT_EQ(gm_get_long_param(3, &l), 0);
    EXPECT_EQ(gm_get_int_param(99, &i), 0);
    EXPECT_EQ(err_get_stack_depth(), 0);
    gm_clean();
    EXPECT_EQ(gm_get_char_param(1, &c), 0);
}

// Voids and strings of every size up to well past the largest short copy:
// each element holds exactly its bytes, nothing after the message is
// written, and each value reads back whole.
TEST_F(GenMsg, ValuesOfEverySizeTravelByteForByte) {
    constexpr int kSizes = 100;
    auto data_of = [](int size) {
        std::string data(static_cast<size_t>(size), '\0');
        for (int i = 0; i < size; ++i) {
            data[static_cast<size_t>(i)] = static_cast<char>(1 + (i * 31 + size) % 250);
        }
        return data;
    };
    Bytes expected;
    auto expect_element = [&](int code, int type, const std::string &data) {
        const auto size = static_cast<uint16_t>(data.size());
        const unsigned char head[4] = {static_cast<unsigned char>(code), static_cast<unsigned char>(size >> 8),
                                       static_cast<unsigned char>(size), static_cast<unsigned char>(type)};
        expected.insert(expected.end(), head, head + 4);
        expected.insert(expected.end(), data.begin(), data.end());
    };
    Bytes buffer(65536, 0xAA);
    gm_init_message_ex(buffer.data(), static_cast<uint32_t>(buffer.size()));
    for (int size = 0; size < kSizes; ++size) {
        const std::string data = data_of(size);
        gm_add_void_to_message(size, data.data(), static_cast<uint16_t>(size));
        expect_element(size, GM_TYPE_VOID, data);
        gm_add_str_to_message(kSizes + size, data.c_str());
        expect_element(kSizes + size, GM_TYPE_STR, data + '\0');
    }
    const uint32_t length = gm_end_message();
    ASSERT_EQ(length, expected.size());
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), buffer.begin()));
    EXPECT_TRUE(
        std::all_of(buffer.begin() + length, buffer.end(), [](unsigned char b) { return b == 0xAA; }));

    ASSERT_EQ(gm_disassemble_message(buffer.data(), length), 1);
    for (int size = 1; size < kSizes; ++size) {
        const std::string data = data_of(size);
        void *v = nullptr;
        char *str = nullptr;
        ASSERT_EQ(gm_get_void_param(size, &v), 1) << size;
        EXPECT_EQ(std::string(static_cast<const char *>(v), data.size()), data) << size;
        ASSERT_EQ(gm_get_str_param(kSizes + size, &str), 1) << size;
        EXPECT_EQ(std::string(str), data) << size;
    }
    EXPECT_EQ(err_get_stack_depth(), 0);
}

// The parse handle is reused from one message to the next: each message
// taken apart holds its own elements only, the newest of a code wins over
// the older ones whether few or many were filed, and a message that fails
// leaves nothing of the one before.
TEST_F(GenMsg, EachMessageTakenApartHoldsOnlyItsOwnElements) {
    const Bytes first = build([] {
        for (int32_t code = 0; code < 60; ++code) {
            gm_add_int_to_message(code, code * 10);
        }
        gm_add_str_to_message(100, "first message");
        gm_init_message_stream(101, GM_TYPE_SHORT);
        gm_add_short_to_message(101, 7);
        gm_close_stream();
        for (int32_t v = 0; v < 100; ++v) {
            gm_add_int_to_message(7, v);
        }
    });
    const Bytes second = build([] {
        gm_add_int_to_message(1, -1);
        gm_add_str_to_message(2, "second");
        gm_add_char_to_message(5, 'a');
        gm_add_char_to_message(5, 'b');
    });
    int32_t i = 0;
    char c = 0;
    char *str = nullptr;
    void *v = nullptr;
    for (int round = 0; round < 2; ++round) {
        ASSERT_EQ(take_apart(first), 1);
        EXPECT_TRUE(gm_get_int_param(7, &i) == 1 && i == 99);
        EXPECT_TRUE(gm_get_int_param(59, &i) == 1 && i == 590);
        ASSERT_EQ(gm_get_str_param(100, &str), 1);
        EXPECT_STREQ(str, "first message");
        ASSERT_EQ(gm_get_void_param(101, &v), 1);
        int16_t member = 0;
        std::memcpy(&member, v, sizeof member);
        EXPECT_EQ(member, 7);

        ASSERT_EQ(take_apart(second), 1);
        EXPECT_TRUE(gm_get_int_param(1, &i) == 1 && i == -1);
        ASSERT_EQ(gm_get_str_param(2, &str), 1);
        EXPECT_STREQ(str, "second");
        EXPECT_TRUE(gm_get_char_param(5, &c) == 1 && c == 'b');
        for (int32_t code : {0, 7, 59}) {
            EXPECT_EQ(gm_get_int_param(code, &i), 0) << code;
        }
        EXPECT_EQ(gm_get_str_param(100, &str), 0);
        EXPECT_EQ(gm_get_void_param(101, &v), 0);

        // A char, then an int element cut short.
        const Bytes broken{9, 0, 1, 0, 'z', 3, 0, 4, 2, 0};
        EXPECT_EQ(take_apart(broken), 0);
        EXPECT_EQ(gm_get_int_param(1, &i), 0);
        EXPECT_EQ(gm_get_str_param(2, &str), 0);
        // The second round starts from a new parse handle.
        gm_clean();
    }
    EXPECT_EQ(err_get_stack_depth(), 0);
}

TEST_F(GenMsg, StreamsCountMembersOrBytesAndReadBackAsOneVoid) {
    Bytes ints = build([] {
        gm_init_message_stream(202, GM_TYPE_INT);
        for (int32_t v : {1, -2, 0x01020304}) {
            gm_add_int_to_message(202, v);
        }
        gm_close_stream();
    });
    ASSERT_EQ(ints.size(), 5u + 3 * 8);
    EXPECT_EQ(Bytes(ints.begin(), ints.begin() + 5), (Bytes{202, 0, 3, 6, 2}));
    EXPECT_EQ(Bytes(ints.begin() + 5, ints.begin() + 13), (Bytes{202, 0, 4, 2, 0, 0, 0, 1}));
    ASSERT_EQ(take_apart(ints), 1);
    void *array = nullptr;
    ASSERT_EQ(gm_get_void_param(202, &array), 1);
    const int32_t host_order[3] = {1, -2, 0x01020304};
    EXPECT_EQ(std::memcmp(array, host_order, sizeof host_order), 0);

    Bytes strings = build([] {
        gm_init_message_stream(17, GM_TYPE_STR);
        gm_add_str_to_message(17, "ab");
        gm_add_str_to_message(17, "c");
        gm_close_stream();
    });
    EXPECT_EQ(Bytes(strings.begin(), strings.begin() + 5), (Bytes{17, 0, 5, 6, 4}));
    ASSERT_EQ(take_apart(strings), 1);
    ASSERT_EQ(gm_get_void_param(17, &array), 1);
    EXPECT_EQ(std::memcmp(array, "ab\0c", 5), 0);
}

TEST_F(GenMsg, StructMembersAreKeyedByTheStructCode) {
    Bytes m = build([] {
        gm_init_struct(5, 0x101);
        gm_add_long_to_message(0, 11);
        gm_add_int_to_message(1, 22);
        gm_close_struct();
        gm_add_long_to_message(0, 33);
    });
    EXPECT_EQ(Bytes(m.begin(), m.begin() + 5), (Bytes{5, 0, 2, 7, 1}));
    ASSERT_EQ(take_apart(m), 1);
    int32_t l = 0;
    int32_t i = 0;
    EXPECT_TRUE(gm_get_long_param(0, &l) == 1 && l == 33);  // after the struct: plain code 0
    gm_start_struct(5);
    EXPECT_TRUE(gm_get_long_param(0, &l) == 1 && l == 11);  // key 0x500
    EXPECT_TRUE(gm_get_int_param(1, &i) == 1 && i == 22);
    gm_stop_struct();
    EXPECT_EQ(gm_get_int_param(1, &i), 0);
    // The parameter store sees the key itself: on a fresh thread the parse
    // handle is its first handle, 1.
    std::thread([&m] {
        ASSERT_EQ(take_apart(m), 1);
        int32_t value = 0;
        EXPECT_TRUE(api_get_long_param(1, 0x500, &value) == 1 && value == 11);
        EXPECT_TRUE(api_get_int_param(1, 0x501, &value) == 1 && value == 22);
        gm_clean();
    }).join();
}

// Where a struct ends the reader is back on plain codes: after an empty
// struct, after a stream that was the struct's last member, and after a
// message whose last struct head announces members that never came.
TEST_F(GenMsg, StructsEndWhereTheirMembersEnd) {
    int32_t v = 0;
    Bytes empty = build([] {
        gm_init_struct(5, 1);
        gm_close_struct();
        gm_add_int_to_message(3, 42);
    });
    EXPECT_EQ(Bytes(empty.begin(), empty.begin() + 5), (Bytes{5, 0, 0, 7, 1}));
    ASSERT_EQ(take_apart(empty), 1);
    EXPECT_TRUE(gm_get_int_param(3, &v) == 1 && v == 42);
    gm_start_struct(5);
    EXPECT_EQ(gm_get_int_param(3, &v), 0);
    gm_stop_struct();

    Bytes nested = build([] {
        gm_init_struct(6, 1);
        gm_add_char_to_message(0, 'm');
        gm_init_message_stream(2, GM_TYPE_STR);
        gm_add_str_to_message(2, "ab");
        gm_add_str_to_message(2, "c");
        gm_close_stream();
        gm_close_struct();
        gm_add_int_to_message(3, 43);
        gm_add_int_to_message(4, 44);
    });
    EXPECT_EQ(nested[2], 4);  // the char, the stream's head and its two members
    ASSERT_EQ(take_apart(nested), 1);
    EXPECT_TRUE(gm_get_int_param(3, &v) == 1 && v == 43);
    EXPECT_TRUE(gm_get_int_param(4, &v) == 1 && v == 44);
    void *array = nullptr;
    EXPECT_EQ(gm_get_void_param(2, &array), 1);  // a stream keeps its plain code
    char c = 0;
    gm_start_struct(6);
    EXPECT_TRUE(gm_get_char_param(0, &c) == 1 && c == 'm');
    EXPECT_EQ(gm_get_int_param(3, &v), 0);
    gm_stop_struct();

    // A packed stack followed by an open struct's head still unpacks, and
    // the getters answer plain codes.
    Bytes trailing = build([] {
        err_set_error(ERR_SYS_ERRMSG, "remote");
        gm_pack_error_stack(nullptr, 0);
        gm_init_struct(9, 1);
    });
    EXPECT_EQ(Bytes(trailing.end() - 5, trailing.end()), (Bytes{9, 0, 1, 7, 1}));
    ASSERT_EQ(take_apart(trailing), 1);
    EXPECT_TRUE(gm_get_int_param(201, &v) == 1 && v == 1);
    err_clear_error_stack();
    ASSERT_EQ(unpack(trailing), 1);
    EXPECT_STREQ(err_get_error_text(0), "remote");
}

// Messages written by random runs of the writer calls take apart into
// exactly what was written.
TEST_F(GenMsg, WrittenMessagesTakeApartIntoWhatWasWritten) {
    std::mt19937 random(20240611);
    std::uniform_int_distribution<int> byte(0, 255);
    std::uniform_int_distribution<size_t> script_size(0, 600);
    for (int round = 0; round < 2000; ++round) {
        std::vector<uint8_t> script(script_size(random));
        for (uint8_t &b : script) {
            b = static_cast<uint8_t>(byte(random));
        }
        const vq::test::GmScript written(script.data(), script.size());
        ASSERT_EQ(written.check_round_trip(), "") << "round " << round;
    }
    EXPECT_EQ(err_get_stack_depth(), 0);
}

// A stream with nothing to take apart leaves the reader on the head's data
// byte, which it then reads as the next element's code.
TEST_F(GenMsg, EmptyStreamDataByteIsReadAsTheNextCode) {
    const Bytes m{7, 0, 0, 6, 2, 0, 4, 2, 0, 0, 0, 42};
    ASSERT_EQ(take_apart(m), 1);
    int32_t v = 0;
    void *array = nullptr;
    EXPECT_TRUE(gm_get_int_param(2, &v) == 1 && v == 42);
    EXPECT_EQ(gm_get_void_param(7, &array), 0);

    Bytes empty = build([] {
        gm_init_message_stream(9, GM_TYPE_INT);
        gm_close_stream();
    });
    EXPECT_EQ(empty, (Bytes{9, 0, 0, 6, 2}));
    EXPECT_EQ(take_apart(empty), 0);
}

TEST_F(GenMsg, UserRoutinesBufferInitAndSendOnce) {
    gm_init(user_buffer, user_init, user_send, 12);
    g_sends = 0;
    ASSERT_EQ(gm_init_message_buf(40, 2), 1);
    EXPECT_EQ(g_init_args[0], 40);
    EXPECT_EQ(g_init_args[1], 2);
    EXPECT_EQ(g_init_args[2], 0);
    EXPECT_EQ(gm_get_message_buf(), static_cast<void *>(g_user_buffer));
    gm_add_int_to_message(1, 5);
    EXPECT_EQ(gm_get_message_len(), 20u);
    EXPECT_EQ(gm_close_message(), 7);
    EXPECT_EQ(gm_close_message(), 7);
    EXPECT_EQ(g_sends, 1);
    EXPECT_EQ(g_sent_length, 20);
    EXPECT_EQ(std::memcmp(g_user_buffer + 12, "\x01\x00\x04\x02\x00\x00\x00\x05", 8), 0);

    gm_init(no_buffer, user_init, user_send, 12);
    EXPECT_EQ(gm_init_message_buf(40, 2), 0);
    gm_init(nullptr, nullptr, nullptr, 0);
}

TEST_F(GenMsg, EmptyErrorStackPacksToSixteenBytes) {
    unsigned char buffer[64];
    ASSERT_EQ(gm_pack_error_stack(buffer, 1), 16);
    EXPECT_EQ(std::memcmp(buffer, "\xC8\x00\x04\x02\x00\x00\x00\x00\xC9\x00\x04\x02\x00\x00\x00\x00", 16), 0);
    EXPECT_EQ(gm_unpack_error_stack(buffer, 16), 1);
    EXPECT_EQ(err_get_stack_depth(), 0);
}

// The packed stack lists the entries newest first, and the receiver pushes
// them in that order: one hop turns the stack over, a second hop restores it.
TEST_F(GenMsg, ErrorStackPacksNewestFirst) {
    err_set_error(ERR_SYS_ERRMSG, "old");
    err_add_text_error("new");
    unsigned char buffer[128];
    ASSERT_EQ(gm_pack_error_stack(buffer, 1), 58);
    const Bytes expected{
        200, 0, 4, 2, 0,    0,    0,    0,     // tag
        201, 0, 4, 2, 0,    0,    0,    2,     // depth
        202, 0, 2, 6, 2,                       // codes: two ints
        202, 0, 4, 2, 0xFF, 0xFF, 0xFF, 0xFF,  // "new", free text
        202, 0, 4, 2, 0,    0,    2,    3,     // "old", SYS ERRMSG
        203, 0, 8, 6, 4,                       // texts: 4 + 4 bytes
        203, 0, 4, 4, 'n',  'e',  'w',  0,     // "new"
        203, 0, 4, 4, 'o',  'l',  'd',  0,     // "old"
    };
    EXPECT_EQ(Bytes(buffer, buffer + 58), expected);
    err_clear_error_stack();
    ASSERT_EQ(gm_unpack_error_stack(buffer, 58), 1);
    ASSERT_EQ(err_get_stack_depth(), 2);
    EXPECT_STREQ(err_get_error_text(0), "old");
    EXPECT_EQ(err_get_error_code(0), ERR_SYS_ERRMSG);
    EXPECT_STREQ(err_get_error_text(1), "new");
}

std::vector<std::string> lines_of(const std::string &description) {
    std::vector<std::string> lines;
    size_t from = 0;
    for (size_t at; (at = description.find("\n -", from)) != std::string::npos; from = at + 3) {
        lines.push_back(description.substr(from, at - from));
    }
    lines.push_back(description.substr(from));
    return lines;
}

TEST_F(GenMsg, ErrorStackTravelsBetweenThreads) {
    std::vector<unsigned char> message(GM_ERROR_STACK_MAX_SIZE);
    std::string sent;
    std::string received;
    std::string returned;
    int32_t length = 0;
    std::thread([&] {
        err_set_log_interactive(0);
        err_set_error(ERR_GEN_MEMORY, "f", "module", 12);
        err_add_text_error("free text");
        err_add_error(ERR_GEN_ERROPEN, std::string(6000, 'x').c_str());  // cut to 5,119 characters
        sent = err_get_error_msg();
        length = gm_pack_error_stack(message.data(), 1);
    }).join();
    ASSERT_GT(length, 16);
    std::thread([&] {
        err_set_log_interactive(0);
        EXPECT_EQ(gm_unpack_error_stack(message.data(), static_cast<uint32_t>(length)), 1);
        EXPECT_EQ(err_get_stack_depth(), 3);
        EXPECT_EQ(err_get_error_code(0), ERR_GEN_MEMORY);  // the sender's oldest, pushed last
        EXPECT_EQ(err_get_error_code(2), ERR_GEN_ERROPEN);
        received = err_get_error_msg();
        length = gm_pack_error_stack(message.data(), 1);
    }).join();
    std::thread([&] {
        err_set_log_interactive(0);
        EXPECT_EQ(gm_unpack_error_stack(message.data(), static_cast<uint32_t>(length)), 1);
        returned = err_get_error_msg();
    }).join();
    std::vector<std::string> turned = lines_of(sent);
    std::reverse(turned.begin(), turned.end());
    EXPECT_EQ(lines_of(received), turned);
    EXPECT_EQ(returned, sent);
}

TEST_F(GenMsg, TimeStampsTravelAsStructs) {
    const tvtime t{4000000000u, -18000};
    const tvtime_old old{1, 2, 3, 4, 5, 106, 6, 7, -1};
    Bytes m = build([&] {
        EXPECT_EQ(add_tvtime_to_message(30, &t), 1);
        gm_add_old_date_to_message(31, &old);
        gm_add_date_to_message(32, &t);
    });
    EXPECT_EQ(Bytes(m.begin(), m.begin() + 21), (Bytes{30,   0,    2, 7, 1, 0, 0,    4,    3,    0xEE, 0x6B,
                                                       0x28, 0x00, 1, 0, 4, 2, 0xFF, 0xFF, 0xB9, 0xB0}));
    ASSERT_EQ(take_apart(m), 1);
    tvtime back{};
    tvtime_old old_back{};
    ASSERT_EQ(gm_get_date_param(32, &back), 1);
    EXPECT_EQ(back.seconds, t.seconds);
    EXPECT_EQ(back.zone, t.zone);
    ASSERT_EQ(get_tvtime_old_from_message(31, &old_back), 1);
    EXPECT_EQ(std::memcmp(&old_back, &old, sizeof old), 0);
    EXPECT_EQ(gm_get_date_param(31, &back), 0);  // an old stamp has no long member 0
    EXPECT_EQ(get_tvtime_from_message(33, &back), 0);
    EXPECT_EQ(err_get_stack_depth(), 0);
}

TEST_F(GenMsg, BoundedMessageRefusesWhatDoesNotFit) {
    unsigned char buffer[32];
    std::memset(buffer, 0xAA, sizeof buffer);
    gm_init(user_buffer, user_init, user_send, 0);
    g_sends = 0;
    gm_init_message_ex(buffer, 13);
    gm_add_int_to_message(1, 1);     // 8 bytes
    gm_add_char_to_message(2, 'a');  // 5 bytes: exactly full
    EXPECT_EQ(gm_message_overflowed(), 0);
    gm_init_message_stream(3, GM_TYPE_INT);
    gm_add_int_to_message(3, 1);
    gm_close_stream();
    EXPECT_EQ(gm_message_overflowed(), 1);
    EXPECT_EQ(gm_get_message_len(), 13u);
    EXPECT_EQ(buffer[13], 0xAA);
    EXPECT_EQ(err_get_stack_depth(), 1);  // one error for the message, not one per add
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_ERRWRITEBUF);
    EXPECT_EQ(gm_close_message(), 0);
    EXPECT_EQ(g_sends, 0);
    EXPECT_EQ(gm_end_message(), 0u);

    // A capacity set after the start bounds the message too; no buffer at all never writes.
    gm_init_message(buffer);
    gm_set_message_capacity(16);
    EXPECT_EQ(gm_pack_error_stack(nullptr, 0), 0);
    EXPECT_EQ(gm_message_overflowed(), 1);
    gm_init_message(nullptr);
    gm_add_str_to_message(1, "x");
    EXPECT_EQ(gm_end_message(), 0u);
    gm_init(nullptr, nullptr, nullptr, 0);
}

// The thread's message record may be released between two adds (the thread
// cleans its library state up): the next add starts from a fresh record with
// no buffer, writing nothing into the old one.
TEST_F(GenMsg, AddsAfterTheThreadsCleanUpWriteNothing) {
    unsigned char buffer[32];
    std::memset(buffer, 0xAA, sizeof buffer);
    gm_init_message(buffer);
    gm_add_int_to_message(1, 5);
    ASSERT_EQ(gm_get_message_len(), 8u);
    clean_glob_thread();
    err_set_log_interactive(0);
    gm_add_int_to_message(2, 6);
    gm_add_str_to_message(3, "abc");
    EXPECT_EQ(gm_get_message_len(), 0u);
    EXPECT_EQ(gm_message_overflowed(), 1);
    EXPECT_EQ(buffer[8], 0xAA);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_ERRWRITEBUF);
}

// A reference message holding every element kind, and where its elements end.
Bytes reference(std::vector<size_t> *ends) {
    std::vector<size_t> boundaries;
    Bytes m = build([&] {
        gm_add_char_to_message(1, 'c');
        boundaries.push_back(gm_get_message_len());
        gm_add_str_to_message(2, "hello");
        boundaries.push_back(gm_get_message_len());
        gm_add_void_to_message(3, "\0\1\2", 3);
        boundaries.push_back(gm_get_message_len());
        gm_init_message_stream(4, GM_TYPE_STR);
        gm_add_str_to_message(4, "ab");
        gm_add_str_to_message(4, "c");
        gm_close_stream();
        boundaries.push_back(gm_get_message_len());
        // A struct's head and members are elements of their own.
        gm_init_struct(5, 1);
        boundaries.push_back(gm_get_message_len());
        gm_add_long_to_message(0, 1);
        boundaries.push_back(gm_get_message_len());
        gm_add_int_to_message(1, 2);
        boundaries.push_back(gm_get_message_len());
        gm_close_struct();
    });
    *ends = boundaries;
    return m;
}

TEST_F(GenMsg, TruncatedMessagesFailExceptAtElementEnds) {
    std::vector<size_t> ends;
    const Bytes m = reference(&ends);
    ends.insert(ends.begin(), 0);
    // Every cut is given in a buffer of its own size, so a read past the end is caught.
    for (size_t cut = 0; cut <= m.size(); ++cut) {
        std::vector<unsigned char> part(m.begin(), m.begin() + static_cast<long>(cut));
        int result = gm_disassemble_message(part.data(), static_cast<uint32_t>(cut));
        bool at_end = std::find(ends.begin(), ends.end(), cut) != ends.end();
        EXPECT_EQ(result, at_end ? 1 : 0) << "cut at " << cut;
        EXPECT_EQ(gm_unpack_error_stack(part.data(), static_cast<uint32_t>(cut)), 0);
    }
    EXPECT_EQ(err_get_stack_depth(), 0);
}

TEST_F(GenMsg, MalformedElementsFail) {
    const std::vector<Bytes> bad = {
        {1, 0, 3, 4, 'a', 'b', 'c'},               // string without its NUL
        {1, 0, 0, 2},                              // int without its value
        {1, 0, 0, 8, 0},                           // unknown type
        {1, 0, 1, 6, 5, 1, 0, 0, 5},               // stream of a member type above 4
        {1, 0, 1, 6, 2, 9, 0, 4, 2, 0, 0, 0, 1},   // member of another code
        {1, 0, 1, 6, 2, 1, 0, 2, 1, 0, 1},         // member of another type
        {1, 0, 2, 6, 4, 1, 0, 3, 4, 'a', 'b', 0},  // strings longer than the count
        {1, 0, 2, 6, 2, 1, 0, 4, 2, 0, 0, 0, 1},   // fewer members than the count
        {7, 0, 1},                                 // cut inside the header
    };
    for (const Bytes &m : bad) {  // each in a buffer of its exact size
        EXPECT_EQ(take_apart(m), 0);
    }
}

// Packed stacks whose entries do not lie inside their elements push nothing.
TEST_F(GenMsg, MalformedErrorStacksPushNothing) {
    auto stack = [](int32_t depth, int codes, const char *texts, uint16_t texts_size) {
        return build([=] {
            gm_add_int_to_message(201, depth);
            gm_init_message_stream(202, GM_TYPE_INT);
            for (int i = 0; i < codes; ++i) {
                gm_add_int_to_message(202, ERR_GEN_MEMORY);
            }
            gm_close_stream();
            gm_add_void_to_message(203, texts, texts_size);
        });
    };
    for (const Bytes &m : {stack(2, 2, "one\0two", 7), stack(3, 2, "a\0b\0c", 6), stack(-1, 1, "a", 2),
                           stack(1, 1, nullptr, 0)}) {
        EXPECT_EQ(unpack(m), 0);
        EXPECT_EQ(err_get_stack_depth(), 0);
    }
    Bytes good = stack(2, 2, "one\0two", 8);
    EXPECT_EQ(unpack(good), 1);
    EXPECT_STREQ(err_get_error_text(0), "two");
}

// Threads build their own messages side by side, while gm_init stores the
// shared routines from each of them.
TEST_F(GenMsg, ThreadsBuildIndependently) {
    std::vector<Bytes> results(4);
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int n = 0; n < 4; ++n) {
        threads.emplace_back([n, &results] {
            gm_init(user_buffer, user_init, nullptr, n);
            results[n] = build([n] {
                for (int i = 0; i < 5; ++i) {
                    gm_add_int_to_message(n, i);
                }
            });
        });
    }
    for (int n = 0; n < 4; ++n) {
        threads[n].join();
    }
    for (int n = 0; n < 4; ++n) {
        ASSERT_EQ(results[n].size(), 40u);
        EXPECT_EQ(results[n][32], n);
    }
    gm_init(nullptr, nullptr, nullptr, 0);
}

}  // namespace
