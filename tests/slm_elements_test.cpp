// Typed message elements: the bytes each writer puts on the wire, signing,
// buffer growth, and the readers' refusal of everything a peer may get wrong.
#include <gtest/gtest.h>

#include <malloc.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "support/handle_checks.h"
#include "support/net_support.h"
#include "vq_glob/err.h"
#include "vq_glob/slm.h"

namespace {

using namespace vq::test;

// The usable size of a heap block: the capacity the handle asked for.
size_t block_size(void *h) {
    void *p = nullptr;
    EXPECT_EQ(slm_get_message_ptr(h, &p), 1);
#ifdef _WIN32
    return _msize(p);
#else
    return malloc_usable_size(p);
#endif
}

// A body: 4 signature bytes and the given elements, signed independently.
Bytes signed_body(const Bytes &elements) {
    Bytes body(4, 0);
    body.insert(body.end(), elements.begin(), elements.end());
    put_be32(body.data(), crc32_of(body.data() + 4, body.size() - 4));
    return body;
}

Bytes elements_of(const Message &m) {
    const Bytes all = m.bytes();
    return Bytes(all.begin() + 4, all.end());
}

// A received body in a heap block of exactly its size, so that a read past
// its end is an overread the sanitizer reports, wrapped for reading.
class Reader {
public:
    explicit Reader(const Bytes &body)
        : block_(static_cast<unsigned char *>(std::malloc(body.empty() ? 1 : body.size()))) {
        if (!body.empty()) {
            std::memcpy(block_, body.data(), body.size());
        }
        result_ = slm_read_message_to_handle(&h_, block_, static_cast<uint32_t>(body.size()));
    }
    ~Reader() {
        if (h_ != nullptr) {
            slm_free_handle(&h_);
        }
        std::free(block_);
    }
    Reader(const Reader &) = delete;
    Reader &operator=(const Reader &) = delete;
    bool ok() const { return result_ == 1; }
    int result() const { return result_; }
    void *get() const { return h_; }
    uint16_t code() const {
        uint16_t c = 0;
        EXPECT_EQ(slm_get_code(h_, &c), 1);
        return c;
    }

private:
    unsigned char *block_;
    void *h_ = nullptr;
    int result_ = 0;
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

// Offsets in the message where each of write_every_kind's elements ends.
constexpr size_t kEveryKindEnds[] = {11, 15, 20, 32, 39, 50, 52};

Bytes every_kind_signed() {
    return signed_message([](void *h) { write_every_kind(h); }, false);
}

// Reads write_every_kind's elements in order until one fails; the number read.
int read_every_kind(void *h) {
    int32_t i = 0;
    int16_t s = 0;
    char *text = nullptr;
    char sentinel = 0;
    char *null_text = &sentinel;  // must become null
    uint16_t code = 0;
    void *data = nullptr;
    uint32_t length = 0;
    int read = 0;
    (void)(slm_get_int_by_code(h, 10, &i) == 1 && i == -123456789 && ++read &&
           slm_get_bool_by_code(h, 11, &i) == 1 && i == 1 && ++read &&
           slm_get_short_by_code(h, 12, &s) == 1 && s == -2 && ++read &&
           slm_get_string_by_code(h, 13, &text) == 1 && std::strcmp(text, "text") == 0 && ++read &&
           slm_get_string_by_code(h, 14, &null_text) == 1 && null_text == nullptr && ++read &&
           slm_get_code(h, &code) == 1 && code == 15 && slm_get_void(h, &data, &length) == 1 && length == 4 &&
           std::memcmp(data, "\0\1\2\xFF", 4) == 0 && ++read && slm_verify_type(h, SLM_END_CODE) == 1 &&
           ++read);
    std::free(text);
    return read;
}

TEST(SlmWriters, EachElementKindHasItsExactBytes) {
    Message w;
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
    EXPECT_EQ(elements_of(w), expected);
}

TEST(SlmWriters, NewMessageSignedAtOnceIsSixBytes) {
    Message w;
    ASSERT_EQ(slm_insert_code(w.get(), SLM_END_CODE), 1);
    ASSERT_EQ(slm_sign_message(w.get()), 1);
    EXPECT_EQ(w.bytes(), signed_body({0xFF, 0xFE}));
}

TEST(SlmWriters, BufferDoublesOnlyWhenFourSpareBytesWouldBeUsed) {
    Message w;
    const Bytes filler(SLM_INITIAL_CAPACITY - 4 - 4 - 7, 0x5A);
    ASSERT_EQ(slm_set_void(w.get(), 1, filler.data(), static_cast<uint32_t>(filler.size())), 1);
    ASSERT_EQ(w.bytes().size(), SLM_INITIAL_CAPACITY - 4);
    EXPECT_LT(block_size(w.get()), 2u * SLM_INITIAL_CAPACITY) << "grew while the element fitted";
    ASSERT_EQ(slm_set_bool(w.get(), 2, 1), 1);
    EXPECT_GE(block_size(w.get()), 2u * SLM_INITIAL_CAPACITY) << "wrote into the spare bytes";
}

TEST(SlmWriters, GrowthKeepsEveryValueAndInitShrinksTheBuffer) {
    Message w;
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
    EXPECT_EQ(w.bytes().size(), 4u);
    EXPECT_GE(block_size(w.get()), size_t{SLM_SHRINK_CAPACITY});
    EXPECT_LT(block_size(w.get()), size_t{SLM_SHRINK_CAPACITY} * 2);
    ASSERT_EQ(slm_set_short(w.get(), 3, 4), 1);
    EXPECT_EQ(elements_of(w), (Bytes{0, 3, 5, 0, 4})) << "the emptied handle writes from the start";
}

TEST(SlmWriters, WritingAWrappedBodyLeavesTheCallersBytesAlone) {
    const Bytes original = signed_message([](void *h) { slm_set_int(h, 1, 11); }, false);
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
    Reader again(Bytes(static_cast<unsigned char *>(p), static_cast<unsigned char *>(p) + size));
    ASSERT_TRUE(again.ok()) << "signature of the copy";
    EXPECT_EQ(slm_get_int_by_code(again.get(), 1, &value), 1);
    EXPECT_EQ(slm_get_int_by_code(again.get(), 2, &value), 1);
    EXPECT_EQ(value, 22);
    slm_free_handle(&h);
}

TEST(SlmReaders, AnyNonZeroBoolByteReadsAsOneAndInitRewinds) {
    Reader r(signed_body({0, 1, SLM_TYPE_BOOL, 0x80, 0, 2, SLM_TYPE_BOOL, 0}));
    ASSERT_TRUE(r.ok());
    for (int pass = 0; pass < 2; ++pass) {
        int32_t value = -1;
        ASSERT_EQ(slm_get_bool_by_code(r.get(), 1, &value), 1) << pass;
        EXPECT_EQ(value, 1);
        ASSERT_EQ(slm_get_bool_by_code(r.get(), 2, &value), 1) << pass;
        EXPECT_EQ(value, 0);
        ASSERT_EQ(slm_init_handle(r.get()), 1);
    }
}

TEST(SlmReaders, SignatureAndLengthAreCheckedBeforeAHandleIsMade) {
    const Bytes body = signed_body({0, 1, 1, 1});
    for (size_t i = 0; i < body.size(); ++i) {
        Bytes bad = body;
        bad[i] ^= 0x10;
        Reader r(bad);
        EXPECT_TRUE(fails_with(r.result(), ERR_MSG_CRC)) << "byte " << i;
        EXPECT_EQ(r.get(), nullptr);
    }
    for (uint32_t length = 0; length < 4; ++length) {
        Reader r(Bytes(length, 0));
        EXPECT_TRUE(fails_with(r.result(), ERR_MSG_BADMSG)) << length;
        EXPECT_EQ(r.get(), nullptr);
    }
    // Four bytes are an empty message: the CRC of nothing is 0.
    Reader empty(Bytes(4, 0));
    ASSERT_TRUE(empty.ok());
    uint16_t code = 0;
    EXPECT_TRUE(fails_with(slm_get_code(empty.get(), &code), ERR_MSG_BADMSG));
}

TEST(SlmReaders, WrongTypeFailsWithTypmisAndLeavesTheCursor) {
    Reader r(every_kind_signed());
    ASSERT_TRUE(r.ok());
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
    // The type of each of write_every_kind's typed elements, in order.
    for (int type :
         {SLM_TYPE_INT, SLM_TYPE_BOOL, SLM_TYPE_SHORT, SLM_TYPE_STRING, SLM_TYPE_STRING, SLM_TYPE_VOID}) {
        r.code();
        for (const auto &g : getters) {
            if (g.reads == type) {
                continue;
            }
            EXPECT_TRUE(fails_with(g.call(), ERR_MSG_TYPMIS,
                                   "current parameter is of type " + std::to_string(type) + " and not type " +
                                       std::to_string(g.reads)));
        }
        ASSERT_EQ(slm_skip_element(r.get()), 1) << "cursor moved by a refused read of type " << type;
    }
    EXPECT_EQ(r.code(), SLM_END_CODE);
}

// Every prefix of a message, signed as if whole, reads the complete elements
// and refuses the cut one (or a read past the whole) without reading beyond it.
TEST(SlmReaders, EveryKindReadsBackAndTruncatedMessagesFailAtTheCutElementWithoutOverread) {
    const Bytes full = every_kind_signed();
    ASSERT_EQ(full, signed_body(Bytes(full.begin() + 4, full.end()))) << "signature";
    ASSERT_EQ(full.size(), kEveryKindEnds[6]);
    for (size_t cut = 4; cut <= full.size(); ++cut) {
        Reader r(signed_body(Bytes(full.begin() + 4, full.begin() + static_cast<std::ptrdiff_t>(cut))));
        ASSERT_TRUE(r.ok()) << cut;
        int whole = 0;
        while (whole < 7 && kEveryKindEnds[whole] <= cut) {
            ++whole;
        }
        EXPECT_EQ(read_every_kind(r.get()), whole) << "cut at " << cut;
        uint16_t code = 0;
        EXPECT_TRUE(fails_with(whole < 7 ? 0 : slm_get_code(r.get(), &code), ERR_MSG_BADMSG))
            << "cut at " << cut;
    }
}

TEST(SlmReaders, ByCodeReadersRefuseAnotherCodeAndRestoreTheCursor) {
    Reader r(every_kind_signed());
    ASSERT_TRUE(r.ok());
    int32_t i = 0;
    int16_t s = 0;
    char *text = nullptr;
    char buffer[8];
    EXPECT_TRUE(fails_with(slm_get_int_by_code(r.get(), 99, &i), ERR_MSG_BADMSG));
    EXPECT_TRUE(fails_with(slm_get_bool_by_code(r.get(), 10, &i), ERR_MSG_TYPMIS))
        << "right code, wrong type";
    EXPECT_TRUE(fails_with(slm_verify_type(r.get(), 11), ERR_MSG_BADMSG));
    ASSERT_EQ(slm_verify_type(r.get(), 10), 1);
    ASSERT_EQ(slm_skip_element(r.get()), 1);
    EXPECT_EQ(slm_get_short_by_code(r.get(), 12, &s), 0);
    EXPECT_TRUE(fails_with(slm_get_string_by_code(r.get(), 11, &text), ERR_MSG_TYPMIS));
    EXPECT_EQ(slm_get_bool_by_code(r.get(), 11, &i), 1);
    EXPECT_EQ(slm_get_short_by_code(r.get(), 12, &s), 1);
    EXPECT_EQ(slm_get_string_noalloc_by_code(r.get(), 14, buffer, sizeof buffer), 0);
    EXPECT_TRUE(fails_with(slm_get_string_noalloc_by_code(r.get(), 13, buffer, 4), ERR_MSG_SMALLBUF))
        << "text and NUL need 5 bytes";
    ASSERT_EQ(slm_get_string_noalloc_by_code(r.get(), 13, buffer, 5), 1);
    EXPECT_STREQ(buffer, "text");
    ASSERT_EQ(slm_get_string_noalloc_by_code(r.get(), 14, buffer, 1), 1) << "a null string is \"\"";
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(read_every_kind(r.get()), 0) << "all read already";
}

TEST(SlmReaders, SkipStepsOverEveryTypeAndRefusesAnUnknownOne) {
    Bytes elements = {0, 1, SLM_TYPE_TEXT_ATT, 0, 0, 0, 3, 0, 2, SLM_TYPE_BINARY_ATT, 0, 0, 0, 4};
    const Bytes kinds = every_kind_signed();
    elements.insert(elements.end(), kinds.begin() + 4, kinds.end() - 2);  // without the end code
    elements.insert(elements.end(), {0, 9, 7, 0xAA});
    Reader r(signed_body(elements));
    ASSERT_TRUE(r.ok());
    for (uint16_t code : {1, 2, 10, 11, 12, 13, 14, 15}) {
        EXPECT_EQ(r.code(), code);
        ASSERT_EQ(slm_skip_element(r.get()), 1) << code;
    }
    EXPECT_EQ(r.code(), 9);
    EXPECT_TRUE(
        fails_with(slm_skip_element(r.get()), ERR_MSG_BADMSG, "malformed message: unknown element type 7"));
    EXPECT_TRUE(fails_with(slm_skip_element(r.get()), ERR_MSG_BADMSG, "unknown element type 7"))
        << "the cursor stays on the unknown type";
}

TEST(SlmReaders, StringsMustEndWithTheirOnlyNul) {
    const Bytes bad[] = {
        {0, 1, 2, 0, 0, 0, 3, 'a', 'b', 'c'},  // no NUL
        {0, 1, 2, 0, 0, 0, 3, 'a', 0, 'c'},    // NUL inside
        {0, 1, 2, 0, 0, 0, 9, 'a', 'b', 0},    // longer than the message
        {0, 1, 2, 0xFF, 0xFF, 0xFF, 0xFF, 0},  // length near 4 GiB
    };
    for (const Bytes &elements : bad) {
        Reader r(signed_body(elements));
        ASSERT_TRUE(r.ok());
        char *text = nullptr;
        char buffer[16];
        EXPECT_TRUE(fails_with(slm_get_string_by_code(r.get(), 1, &text), ERR_MSG_BADMSG));
        EXPECT_TRUE(
            fails_with(slm_get_string_noalloc_by_code(r.get(), 1, buffer, sizeof buffer), ERR_MSG_BADMSG));
        EXPECT_EQ(text, nullptr);
    }
}

TEST(SlmReaders, AttachmentReferencesNeedAnEntryAndAReferenceType) {
    Reader r(signed_body({0, 5, SLM_TYPE_BINARY_ATT, 0, 0, 0, 0, 0, 6, SLM_TYPE_INT, 0, 0, 0, 0}));
    ASSERT_TRUE(r.ok());
    char *name = nullptr;
    int32_t binary = 0;
    EXPECT_TRUE(
        fails_with(slm_get_att(r.get(), 5, &name, &binary), ERR_MSG_NOATT, "attachment 0 was not found"))
        << "an empty attachment table";
    ASSERT_EQ(r.code(), 5);
    EXPECT_TRUE(fails_with(slm_get_att_and_status(r.get(), &name, nullptr, nullptr, nullptr), ERR_MSG_NOATT));
    ASSERT_EQ(slm_skip_element(r.get()), 1);
    EXPECT_TRUE(fails_with(slm_get_att(r.get(), 6, &name, &binary), ERR_MSG_TYPMIS,
                           "current parameter is of type 0 and not type 4"));
    EXPECT_EQ(name, nullptr);
}

TEST(SlmHandles, RefusedArguments) {
    Message w;
    int32_t i = 0;
    void *data = nullptr;
    void *other = nullptr;
    uint32_t not_a_handle = 0;
    expect_refused({
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
