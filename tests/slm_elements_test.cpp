// Typed message elements: the bytes each writer puts on the wire, signing,
// buffer growth, and the readers' refusal of everything a peer may get wrong.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#if defined(_WIN32)
#include <malloc.h>
#define VQ_TEST_BLOCK_SIZE(p) _msize(p)
#else
#include <malloc.h>
#define VQ_TEST_BLOCK_SIZE(p) malloc_usable_size(p)
#endif

#include "support/handle_checks.h"
#include "vq_glob/err.h"
#include "vq_glob/slm.h"

namespace {

using Bytes = std::vector<unsigned char>;

// CRC-32 bit by bit (reflected 0xEDB88320, preset and result complemented),
// independent of the library's table and folding code.
uint32_t bitwise_crc32(const unsigned char *p, size_t n) {
    uint32_t reg = 0xFFFFFFFFu;
    for (size_t i = 0; i < n; ++i) {
        reg ^= p[i];
        for (int bit = 0; bit < 8; ++bit) {
            reg = (reg & 1u) != 0 ? (reg >> 1) ^ 0xEDB88320u : reg >> 1;
        }
    }
    return ~reg;
}

void put_be32(unsigned char *p, uint32_t v) {
    p[0] = static_cast<unsigned char>(v >> 24);
    p[1] = static_cast<unsigned char>(v >> 16);
    p[2] = static_cast<unsigned char>(v >> 8);
    p[3] = static_cast<unsigned char>(v);
}

// A body: 4 signature bytes (written by sign()) and the given element bytes.
Bytes body_of(const Bytes &elements) {
    Bytes body(4, 0);
    body.insert(body.end(), elements.begin(), elements.end());
    return body;
}

void sign(Bytes &body) { put_be32(body.data(), bitwise_crc32(body.data() + 4, body.size() - 4)); }

// The newest error's code; the stack is cleared for the next check.
uint32_t take_error() {
    uint32_t code = err_get_error_code(0);
    err_clear_error_stack();
    return code;
}

// A message under construction, freed at the end of the test.
class Writer {
public:
    Writer() { EXPECT_EQ(slm_allocate_handle(&h_), 1); }
    ~Writer() { slm_free_handle(&h_); }
    Writer(const Writer &) = delete;
    Writer &operator=(const Writer &) = delete;
    void *get() const { return h_; }
    Bytes bytes() const {
        uint32_t size = 0;
        void *p = nullptr;
        EXPECT_EQ(slm_get_size(h_, &size), 1);
        EXPECT_EQ(slm_get_message_ptr(h_, &p), 1);
        const auto *b = static_cast<const unsigned char *>(p);
        return Bytes(b, b + size);
    }
    Bytes elements() const {
        Bytes all = bytes();
        return Bytes(all.begin() + 4, all.end());
    }

private:
    void *h_ = nullptr;
};

// A received body held in a heap block of exactly its size, so that any read
// past its end is an overread the sanitizer reports, wrapped for reading.
class Reader {
public:
    explicit Reader(const Bytes &body)
        : block_(static_cast<unsigned char *>(std::malloc(body.empty() ? 1 : body.size()))) {
        if (!body.empty()) {
            std::memcpy(block_, body.data(), body.size());
        }
        ok_ = slm_read_message_to_handle(&h_, block_, static_cast<uint32_t>(body.size())) == 1;
    }
    ~Reader() {
        if (h_ != nullptr) {
            slm_free_handle(&h_);
        }
        std::free(block_);
    }
    Reader(const Reader &) = delete;
    Reader &operator=(const Reader &) = delete;
    bool ok() const { return ok_; }
    void *get() const { return h_; }
    uint16_t code() {
        uint16_t c = 0;
        EXPECT_EQ(slm_get_code(h_, &c), 1);
        return c;
    }

private:
    unsigned char *block_;
    void *h_ = nullptr;
    bool ok_ = false;
};

// Every element kind once, in a fixed order, with the values read back below.
void write_every_kind(void *h) {
    ASSERT_EQ(slm_set_int(h, 10, -123456789), 1);
    ASSERT_EQ(slm_set_bool(h, 11, 42), 1);
    ASSERT_EQ(slm_set_short(h, 12, -2), 1);
    ASSERT_EQ(slm_set_string(h, 13, "text"), 1);
    ASSERT_EQ(slm_set_string(h, 14, nullptr), 1);
    const unsigned char data[] = {0, 1, 2, 0xFF};
    ASSERT_EQ(slm_set_void(h, 15, data, sizeof data), 1);
    ASSERT_EQ(slm_insert_code(h, SLM_END_CODE), 1);
}

// Reads write_every_kind's elements in order until one fails; the number read.
int read_every_kind(void *h) {
    const std::function<bool()> steps[] = {
        [h] {
            int32_t i = 0;
            return slm_get_int_by_code(h, 10, &i) == 1 && i == -123456789;
        },
        [h] {
            int32_t b = 0;
            return slm_get_bool_by_code(h, 11, &b) == 1 && b == 1;
        },
        [h] {
            int16_t s = 0;
            return slm_get_short_by_code(h, 12, &s) == 1 && s == -2;
        },
        [h] {
            char *text = nullptr;
            const bool read = slm_get_string_by_code(h, 13, &text) == 1 && std::strcmp(text, "text") == 0;
            std::free(text);
            return read;
        },
        [h] {
            char sentinel = 0;
            char *text = &sentinel;  // must become null
            return slm_get_string_by_code(h, 14, &text) == 1 && text == nullptr;
        },
        [h] {
            uint16_t code = 0;
            void *data = nullptr;
            uint32_t length = 0;
            return slm_get_code(h, &code) == 1 && code == 15 && slm_get_void(h, &data, &length) == 1 &&
                   length == 4 && std::memcmp(data, "\0\1\2\xFF", 4) == 0;
        },
        [h] { return slm_verify_type(h, SLM_END_CODE) == 1; },
    };
    int read = 0;
    for (const auto &step : steps) {
        if (!step()) {
            break;
        }
        ++read;
    }
    return read;
}

TEST(SlmWriters, EachElementKindHasItsExactBytes) {
    Writer w;
    ASSERT_EQ(slm_set_int(w.get(), 0x0102, -2), 1);
    ASSERT_EQ(slm_set_bool(w.get(), 3, 5), 1);
    ASSERT_EQ(slm_set_bool(w.get(), 3, 0), 1);
    ASSERT_EQ(slm_set_bool(w.get(), 3, INT32_MIN), 1);
    ASSERT_EQ(slm_set_short(w.get(), 0xFFFE, -3), 1);
    ASSERT_EQ(slm_set_string(w.get(), 5, "ab"), 1);
    ASSERT_EQ(slm_set_string(w.get(), 7, nullptr), 1);
    ASSERT_EQ(slm_set_string(w.get(), 8, ""), 1);
    const unsigned char data[] = {9, 0, 8};
    ASSERT_EQ(slm_set_void(w.get(), 6, data, 3), 1);
    ASSERT_EQ(slm_set_void(w.get(), 6, nullptr, 0), 1);
    ASSERT_EQ(slm_insert_code(w.get(), 0xABCD), 1);
    const Bytes expected = {
        0x01, 0x02, 0, 0xFF, 0xFF, 0xFF, 0xFE,                                    // int
        0,    3,    1, 1,    0,    3,    1,    0,   0,   3, 1, 1,                 // bools: any non-zero is 1
        0xFF, 0xFE, 5, 0xFF, 0xFD,                                                // short
        0,    5,    2, 0,    0,    0,    3,    'a', 'b', 0,                       // string with its NUL
        0,    7,    2, 0,    0,    0,    0,                                       // null string
        0,    8,    2, 0,    0,    0,    1,    0,                                 // empty string
        0,    6,    3, 0,    0,    0,    3,    9,   0,   8, 0, 6, 3, 0, 0, 0, 0,  // voids
        0xAB, 0xCD,                                                               // bare code
    };
    EXPECT_EQ(w.elements(), expected);
}

TEST(SlmWriters, NewMessageSignedAtOnceIsSixBytes) {
    Writer w;
    ASSERT_EQ(slm_insert_code(w.get(), SLM_END_CODE), 1);
    ASSERT_EQ(slm_sign_message(w.get()), 1);
    const unsigned char end[] = {0xFF, 0xFE};
    Bytes expected(4);
    put_be32(expected.data(), bitwise_crc32(end, 2));
    expected.push_back(0xFF);
    expected.push_back(0xFE);
    EXPECT_EQ(w.bytes(), expected);
}

TEST(SlmWriters, EveryKindReadsBackThroughASignedMessage) {
    Writer w;
    write_every_kind(w.get());
    ASSERT_EQ(slm_sign_message(w.get()), 1);
    Bytes body = w.bytes();
    Bytes resigned = body;
    sign(resigned);
    EXPECT_EQ(body, resigned) << "signature differs from an independent CRC-32";
    Reader r(body);
    ASSERT_TRUE(r.ok());
    EXPECT_EQ(read_every_kind(r.get()), 7);
    uint16_t code = 0;
    EXPECT_EQ(slm_get_code(r.get(), &code), 0) << "read past the end";
    EXPECT_EQ(take_error(), ERR_MSG_BADMSG);
}

// Usable size of the message's block: the capacity the handle asked for.
size_t block_size(void *h) {
    void *p = nullptr;
    EXPECT_EQ(slm_get_message_ptr(h, &p), 1);
    return VQ_TEST_BLOCK_SIZE(p);
}

TEST(SlmWriters, BufferDoublesOnlyWhenFourSpareBytesWouldBeUsed) {
    Writer w;
    const Bytes filler(SLM_INITIAL_CAPACITY - 4 - 4 - 7, 0x5A);
    ASSERT_EQ(slm_set_void(w.get(), 1, filler.data(), static_cast<uint32_t>(filler.size())), 1);
    uint32_t size = 0;
    ASSERT_EQ(slm_get_size(w.get(), &size), 1);
    ASSERT_EQ(size, SLM_INITIAL_CAPACITY - 4);
    EXPECT_LT(block_size(w.get()), 2u * SLM_INITIAL_CAPACITY) << "grew while the element fitted";
    ASSERT_EQ(slm_set_bool(w.get(), 2, 1), 1);
    EXPECT_GE(block_size(w.get()), 2u * SLM_INITIAL_CAPACITY) << "wrote into the spare bytes";
}

TEST(SlmWriters, GrowthKeepsEveryValueAndInitShrinksTheBuffer) {
    Writer w;
    constexpr int32_t kCount = 100000;  // 700000 bytes: past 524288
    for (int32_t i = 0; i < kCount; ++i) {
        ASSERT_EQ(slm_set_int(w.get(), static_cast<uint16_t>(i), i * 7), 1);
    }
    ASSERT_EQ(slm_sign_message(w.get()), 1);
    {
        Reader r(w.bytes());
        ASSERT_TRUE(r.ok());
        for (int32_t i = 0; i < kCount; ++i) {
            int32_t value = 0;
            ASSERT_EQ(slm_get_int_by_code(r.get(), static_cast<uint16_t>(i), &value), 1) << i;
            ASSERT_EQ(value, i * 7);
        }
    }
    ASSERT_GT(block_size(w.get()), size_t{SLM_SHRINK_CAPACITY});
    ASSERT_EQ(slm_init_handle(w.get()), 1);
    uint32_t size = 0;
    ASSERT_EQ(slm_get_size(w.get(), &size), 1);
    EXPECT_EQ(size, 4u);
    EXPECT_GE(block_size(w.get()), size_t{SLM_SHRINK_CAPACITY});
    EXPECT_LT(block_size(w.get()), size_t{SLM_SHRINK_CAPACITY} * 2);
    // The emptied handle writes a new message from the start.
    ASSERT_EQ(slm_set_short(w.get(), 3, 4), 1);
    EXPECT_EQ(w.elements(), (Bytes{0, 3, 5, 0, 4}));
}

TEST(SlmWriters, WritingAWrappedBodyLeavesTheCallersBytesAlone) {
    Writer w;
    ASSERT_EQ(slm_set_int(w.get(), 1, 11), 1);
    ASSERT_EQ(slm_sign_message(w.get()), 1);
    const Bytes original = w.bytes();
    Bytes caller = original;
    void *h = nullptr;
    ASSERT_EQ(slm_read_message_to_handle(&h, caller.data(), static_cast<uint32_t>(caller.size())), 1);
    int32_t value = 0;
    ASSERT_EQ(slm_get_int_by_code(h, 1, &value), 1);
    ASSERT_EQ(slm_set_int(h, 2, 22), 1);
    ASSERT_EQ(slm_sign_message(h), 1);
    EXPECT_EQ(caller, original);
    uint32_t size = 0;
    void *p = nullptr;
    ASSERT_EQ(slm_get_size(h, &size), 1);
    ASSERT_EQ(slm_get_message_ptr(h, &p), 1);
    EXPECT_NE(p, static_cast<void *>(caller.data()));
    Bytes grown(static_cast<unsigned char *>(p), static_cast<unsigned char *>(p) + size);
    Reader again(grown);
    ASSERT_TRUE(again.ok()) << "signature of the copy";
    EXPECT_EQ(slm_get_int_by_code(again.get(), 1, &value), 1);
    EXPECT_EQ(slm_get_int_by_code(again.get(), 2, &value), 1);
    EXPECT_EQ(value, 22);
    slm_free_handle(&h);
}

TEST(SlmReaders, AnyNonZeroBoolByteReadsAsOne) {
    Bytes body = body_of({0, 1, SLM_TYPE_BOOL, 0x80, 0, 2, SLM_TYPE_BOOL, 0});
    sign(body);
    Reader r(body);
    ASSERT_TRUE(r.ok());
    int32_t value = -1;
    ASSERT_EQ(slm_get_bool_by_code(r.get(), 1, &value), 1);
    EXPECT_EQ(value, 1);
    ASSERT_EQ(slm_get_bool_by_code(r.get(), 2, &value), 1);
    EXPECT_EQ(value, 0);
}

TEST(SlmReaders, InitRewindsAWrappedBody) {
    Bytes body = body_of({0, 1, 0, 0, 0, 0, 9});
    sign(body);
    Reader r(body);
    ASSERT_TRUE(r.ok());
    int32_t value = 0;
    ASSERT_EQ(slm_get_int_by_code(r.get(), 1, &value), 1);
    ASSERT_EQ(slm_init_handle(r.get()), 1);
    value = 0;
    EXPECT_EQ(slm_get_int_by_code(r.get(), 1, &value), 1);
    EXPECT_EQ(value, 9);
}

TEST(SlmReaders, SignatureAndLengthAreCheckedBeforeAHandleIsMade) {
    Bytes body = body_of({0, 1, 1, 1});
    sign(body);
    for (size_t i = 0; i < body.size(); ++i) {
        Bytes bad = body;
        bad[i] ^= 0x10;
        Reader r(bad);
        EXPECT_FALSE(r.ok()) << "byte " << i;
        EXPECT_EQ(r.get(), nullptr);
        EXPECT_EQ(take_error(), ERR_MSG_CRC);
    }
    for (uint32_t length = 0; length < 4; ++length) {
        Reader r(Bytes(length, 0));
        EXPECT_FALSE(r.ok()) << length;
        EXPECT_EQ(r.get(), nullptr);
        EXPECT_EQ(take_error(), ERR_MSG_BADMSG);
    }
    // Four bytes are an empty message: the CRC of nothing is 0.
    Reader empty(Bytes(4, 0));
    ASSERT_TRUE(empty.ok());
    uint16_t code = 0;
    EXPECT_EQ(slm_get_code(empty.get(), &code), 0);
    EXPECT_EQ(take_error(), ERR_MSG_BADMSG);
}

TEST(SlmReaders, WrongTypeFailsWithTypmisAndLeavesTheCursor) {
    Writer w;
    write_every_kind(w.get());
    ASSERT_EQ(slm_sign_message(w.get()), 1);
    Reader r(w.bytes());
    ASSERT_TRUE(r.ok());
    // Element type of each of write_every_kind's typed elements, in order.
    const int types[] = {SLM_TYPE_INT,    SLM_TYPE_BOOL,   SLM_TYPE_SHORT,
                         SLM_TYPE_STRING, SLM_TYPE_STRING, SLM_TYPE_VOID};
    for (int type : types) {
        r.code();
        int32_t i = 0;
        int16_t s = 0;
        char *text = nullptr;
        char small[16];
        void *data = nullptr;
        uint32_t length = 0;
        const struct {
            int reads;
            std::function<int()> call;
        } getters[] = {
            {SLM_TYPE_INT, [&] { return slm_get_int(r.get(), &i); }},
            {SLM_TYPE_BOOL, [&] { return slm_get_bool(r.get(), &i); }},
            {SLM_TYPE_SHORT, [&] { return slm_get_short(r.get(), &s); }},
            {SLM_TYPE_STRING, [&] { return slm_get_string(r.get(), &text); }},
            {SLM_TYPE_STRING, [&] { return slm_get_string_noalloc(r.get(), small, sizeof small); }},
            {SLM_TYPE_VOID, [&] { return slm_get_void(r.get(), &data, &length); }},
            {SLM_TYPE_TEXT_ATT,
             [&] { return slm_get_att_and_status(r.get(), nullptr, nullptr, nullptr, nullptr); }},
        };
        for (const auto &g : getters) {
            if (g.reads == type) {
                continue;
            }
            EXPECT_EQ(g.call(), 0) << "type " << type << " read as " << g.reads;
            EXPECT_EQ(err_get_error_code(0), ERR_MSG_TYPMIS);
            EXPECT_EQ(std::string(err_get_error_text(0)), "current parameter is of type " +
                                                              std::to_string(type) + " and not type " +
                                                              std::to_string(g.reads));
            err_clear_error_stack();
        }
        ASSERT_EQ(slm_skip_element(r.get()), 1) << "cursor moved by a refused read of type " << type;
    }
    uint16_t end = 0;
    EXPECT_EQ(slm_get_code(r.get(), &end), 1);
    EXPECT_EQ(end, SLM_END_CODE);
}

// Every prefix of a message, signed as if whole, reads the complete elements
// and refuses the one cut short with BADMSG, never reading beyond the prefix.
TEST(SlmReaders, TruncatedMessagesFailAtTheCutElementWithoutOverread) {
    Writer w;
    write_every_kind(w.get());
    const Bytes full = w.bytes();
    // Offsets where each of write_every_kind's elements ends.
    const size_t ends[] = {4 + 7, 11 + 4, 15 + 5, 20 + 12, 32 + 7, 39 + 11, 50 + 2};
    ASSERT_EQ(full.size(), ends[6]);
    for (size_t cut = 4; cut < full.size(); ++cut) {
        Bytes prefix(full.begin(), full.begin() + static_cast<std::ptrdiff_t>(cut));
        sign(prefix);
        Reader r(prefix);
        ASSERT_TRUE(r.ok()) << cut;
        int whole = 0;
        while (whole < 7 && ends[whole] <= cut) {
            ++whole;
        }
        err_clear_error_stack();
        EXPECT_EQ(read_every_kind(r.get()), whole) << "cut at " << cut;
        EXPECT_EQ(take_error(), ERR_MSG_BADMSG) << "cut at " << cut;
    }
}

TEST(SlmReaders, ByCodeReadersRefuseAnotherCodeAndRestoreTheCursor) {
    Writer w;
    write_every_kind(w.get());
    ASSERT_EQ(slm_sign_message(w.get()), 1);
    Reader r(w.bytes());
    ASSERT_TRUE(r.ok());
    int32_t i = 0;
    int16_t s = 0;
    char *text = nullptr;
    char buffer[8];
    EXPECT_EQ(slm_get_int_by_code(r.get(), 99, &i), 0);
    EXPECT_EQ(take_error(), ERR_MSG_BADMSG);
    EXPECT_EQ(slm_get_bool_by_code(r.get(), 10, &i), 0) << "right code, wrong type";
    EXPECT_EQ(take_error(), ERR_MSG_TYPMIS);
    EXPECT_EQ(slm_verify_type(r.get(), 11), 0);
    EXPECT_EQ(take_error(), ERR_MSG_BADMSG);
    ASSERT_EQ(slm_verify_type(r.get(), 10), 1);
    ASSERT_EQ(slm_skip_element(r.get()), 1);
    EXPECT_EQ(slm_get_short_by_code(r.get(), 12, &s), 0);
    EXPECT_EQ(slm_get_string_by_code(r.get(), 11, &text), 0);
    EXPECT_EQ(take_error(), ERR_MSG_TYPMIS);
    EXPECT_EQ(slm_get_bool_by_code(r.get(), 11, &i), 1);
    EXPECT_EQ(slm_get_short_by_code(r.get(), 12, &s), 1);
    EXPECT_EQ(slm_get_string_noalloc_by_code(r.get(), 14, buffer, sizeof buffer), 0);
    EXPECT_EQ(slm_get_string_noalloc_by_code(r.get(), 13, buffer, 4), 0) << "text and NUL need 5 bytes";
    EXPECT_EQ(take_error(), ERR_MSG_SMALLBUF);
    ASSERT_EQ(slm_get_string_noalloc_by_code(r.get(), 13, buffer, 5), 1);
    EXPECT_STREQ(buffer, "text");
    ASSERT_EQ(slm_get_string_noalloc_by_code(r.get(), 14, buffer, 1), 1) << "a null string is \"\"";
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(read_every_kind(r.get()), 0) << "all read already";
}

TEST(SlmReaders, SkipStepsOverEveryTypeAndRefusesAnUnknownOne) {
    Bytes elements = {0, 1, SLM_TYPE_TEXT_ATT, 0, 0, 0, 3, 0, 2, SLM_TYPE_BINARY_ATT, 0, 0, 0, 4};
    Writer w;
    write_every_kind(w.get());
    const Bytes kinds = w.elements();
    elements.insert(elements.end(), kinds.begin(), kinds.end() - 2);  // without the end code
    elements.insert(elements.end(), {0, 9, 7, 0xAA});
    Bytes body = body_of(elements);
    sign(body);
    Reader r(body);
    ASSERT_TRUE(r.ok());
    const uint16_t codes[] = {1, 2, 10, 11, 12, 13, 14, 15};
    for (uint16_t code : codes) {
        EXPECT_EQ(r.code(), code);
        ASSERT_EQ(slm_skip_element(r.get()), 1) << code;
    }
    EXPECT_EQ(r.code(), 9);
    EXPECT_EQ(slm_skip_element(r.get()), 0);
    EXPECT_EQ(std::string(err_get_error_text(0)), "malformed message: unknown element type 7");
    err_clear_error_stack();
    EXPECT_EQ(slm_skip_element(r.get()), 0) << "the cursor stays on the unknown type";
    EXPECT_EQ(take_error(), ERR_MSG_BADMSG);
}

TEST(SlmReaders, StringsMustEndWithTheirOnlyNul) {
    const Bytes bad[] = {
        {0, 1, 2, 0, 0, 0, 3, 'a', 'b', 'c'},  // no NUL
        {0, 1, 2, 0, 0, 0, 3, 'a', 0, 'c'},    // NUL inside
        {0, 1, 2, 0, 0, 0, 9, 'a', 'b', 0},    // longer than the message
        {0, 1, 2, 0xFF, 0xFF, 0xFF, 0xFF, 0},  // length near 4 GiB
    };
    for (const Bytes &elements : bad) {
        Bytes body = body_of(elements);
        sign(body);
        Reader r(body);
        ASSERT_TRUE(r.ok());
        char *text = nullptr;
        char buffer[16];
        EXPECT_EQ(slm_get_string_by_code(r.get(), 1, &text), 0);
        EXPECT_EQ(take_error(), ERR_MSG_BADMSG);
        EXPECT_EQ(slm_get_string_noalloc_by_code(r.get(), 1, buffer, sizeof buffer), 0);
        EXPECT_EQ(take_error(), ERR_MSG_BADMSG);
        EXPECT_EQ(text, nullptr);
    }
}

TEST(SlmReaders, AttachmentReferencesNeedAnEntryAndAReferenceType) {
    Bytes body = body_of({0, 5, SLM_TYPE_BINARY_ATT, 0, 0, 0, 0, 0, 6, SLM_TYPE_INT, 0, 0, 0, 0});
    sign(body);
    Reader r(body);
    ASSERT_TRUE(r.ok());
    char *name = nullptr;
    int32_t binary = 0;
    EXPECT_EQ(slm_get_att(r.get(), 5, &name, &binary), 0) << "an empty attachment table";
    EXPECT_EQ(err_get_error_code(0), ERR_MSG_NOATT);
    EXPECT_STREQ(err_get_error_text(0), "attachment 0 was not found");
    err_clear_error_stack();
    ASSERT_EQ(r.code(), 5);
    EXPECT_EQ(slm_get_att_and_status(r.get(), &name, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(take_error(), ERR_MSG_NOATT);
    ASSERT_EQ(slm_skip_element(r.get()), 1);
    EXPECT_EQ(slm_get_att(r.get(), 6, &name, &binary), 0);
    EXPECT_STREQ(err_get_error_text(0), "current parameter is of type 0 and not type 4");
    err_clear_error_stack();
    EXPECT_EQ(name, nullptr);
}

TEST(SlmHandles, SettingsAndRefusedArguments) {
    Writer w;
    const char *dir = "unset";
    ASSERT_EQ(slm_get_temp_dir(w.get(), &dir), 1);
    EXPECT_EQ(dir, nullptr);
    ASSERT_EQ(slm_set_temp_dir(w.get(), "/tmp/x"), 1);
    ASSERT_EQ(slm_get_temp_dir(w.get(), &dir), 1);
    EXPECT_STREQ(dir, "/tmp/x");
    ASSERT_EQ(slm_set_temp_dir(w.get(), nullptr), 1);
    ASSERT_EQ(slm_get_temp_dir(w.get(), &dir), 1);
    EXPECT_EQ(dir, nullptr);

    int32_t i = 0;
    void *data = nullptr;
    void *other = nullptr;
    uint32_t not_a_handle = 0;
    vq::test::expect_refused({
        {"slm_set_int", "handle", [&] { return slm_set_int(nullptr, 1, 1) == 0; }},
        {"slm_set_string", "handle", [&] { return slm_set_string(&not_a_handle, 1, "x") == 0; }},
        {"slm_set_void", "data", [&] { return slm_set_void(w.get(), 1, nullptr, 3) == 0; }},
        {"slm_get_code", "item_code", [&] { return slm_get_code(w.get(), nullptr) == 0; }},
        {"slm_get_int", "value", [&] { return slm_get_int(w.get(), nullptr) == 0; }},
        {"slm_get_void", "length", [&] { return slm_get_void(w.get(), &data, nullptr) == 0; }},
        {"slm_get_int_by_code", "handle", [&] { return slm_get_int_by_code(nullptr, 1, &i) == 0; }},
        {"slm_set_att_buffer_size", "size", [&] { return slm_set_att_buffer_size(w.get(), 0) == 0; }},
        {"slm_get_size", "size", [&] { return slm_get_size(w.get(), nullptr) == 0; }},
        {"slm_read_message_to_handle", "message_buf",
         [&] { return slm_read_message_to_handle(&other, nullptr, 8) == 0 && other == nullptr; }},
        {"slm_free_handle", "handle", [&] { return slm_free_handle(nullptr) == 0; }},
        {"slm_skip_element", "handle", [&] { return slm_skip_element(&not_a_handle) == 0; }},
    });
}

}  // namespace
