// Big numbers: reading and printing decimal text, strictness, 64-bit
// conversions at their limits, ordering, and sums checked against 64-bit
// arithmetic and against each other for numbers far beyond 64 bits.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "support/handle_checks.h"
#include "vq_glob/err.h"
#include "vq_glob/llist.h"
#include "vq_glob/slbn.h"

namespace {

struct Free {
    void operator()(slbn *n) const { slbn_free(n); }
};
using Number = std::unique_ptr<slbn, Free>;

Number parse(const std::string &text) { return Number(slbn_from_string(text.c_str())); }

std::string text_of(const slbn *n) {
    char *text = slbn_to_string(n);
    if (text == nullptr) {
        return "<null>";
    }
    std::string out(text);
    std::free(text);
    return out;
}

std::string round_trip(const std::string &text) {
    Number n = parse(text);
    return n ? text_of(n.get()) : "<rejected>";
}

class Slbn : public ::testing::Test {
protected:
    void SetUp() override { err_clear_error_stack(); }

    static bool failed_with(uint32_t code) {
        bool is = err_get_stack_depth() > 0 && err_get_error_code(0) == code;
        err_clear_error_stack();
        return is;
    }
};

TEST_F(Slbn, DecimalTextRoundTrip) {
    // Signs and leading zeros, and numbers around the nine-digit groups they are stored in.
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"0", "0"},
        {"-0", "0"},
        {"+0000", "0"},
        {"+12", "12"},
        {"-000123", "-123"},
        {"999999999", "999999999"},
        {"1000000000", "1000000000"},
        {"-100000000000000000", "-100000000000000000"},
        {"0001000000000000000000", "1000000000000000000"},
        {"123456789012345678901234567890", "123456789012345678901234567890"}};
    for (const auto &[text, printed] : cases) {
        EXPECT_EQ(round_trip(text), printed);
    }
    const std::string long_digits = "000" + std::string(40, '9') + "0123456789" + std::string(27, '0');
    EXPECT_EQ(round_trip("-" + long_digits), "-" + long_digits.substr(3));
    EXPECT_EQ(err_get_stack_depth(), 0);

    Number zero(slbn_new());
    ASSERT_TRUE(zero);
    EXPECT_EQ(text_of(zero.get()), "0");
    EXPECT_EQ(slbn_sign(zero.get()), 0);
}

TEST_F(Slbn, StrictTextIsRequired) {
    for (const char *text : {"", "+", "-", " 1", "1 ", "1\n", "1a", "0x10", "--1", "+-1", "1.0", "1e5",
                             "1,000", "\xEF\xBC\x91"}) {
        EXPECT_EQ(round_trip(text), "<rejected>") << text;
        EXPECT_TRUE(failed_with(ERR_GEN_GENERAL)) << text;
    }
    EXPECT_EQ(slbn_from_string(nullptr), nullptr);
    EXPECT_TRUE(failed_with(ERR_GEN_PARAMS));

    // A failed set leaves the number as it was; a good one replaces it.
    Number n = parse("42");
    EXPECT_EQ(slbn_set_string(n.get(), "4 2"), 0);
    EXPECT_TRUE(failed_with(ERR_GEN_GENERAL));
    EXPECT_EQ(slbn_set_string(n.get(), nullptr), 0);
    EXPECT_TRUE(failed_with(ERR_GEN_PARAMS));
    EXPECT_EQ(text_of(n.get()), "42");
    EXPECT_EQ(slbn_set_string(n.get(), "-98765432109876543210"), 1);
    EXPECT_EQ(text_of(n.get()), "-98765432109876543210");

    // The error names a long bad text without copying all of it.
    std::string long_bad(10000, '7');
    long_bad += 'x';
    EXPECT_EQ(parse(long_bad), nullptr);
    ASSERT_GT(err_get_stack_depth(), 0);
    EXPECT_LT(std::string(err_get_error_text(0)).size(), 200u);
    err_clear_error_stack();
}

TEST_F(Slbn, Int64Limits) {
    constexpr int64_t kMin = std::numeric_limits<int64_t>::min();
    constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
    for (int64_t v : {kMin, kMin + 1, int64_t{-1000000000}, int64_t{-1}, int64_t{0}, int64_t{999999999},
                      int64_t{1000000000}, kMax - 1, kMax}) {
        Number n(slbn_from_int64(v));
        ASSERT_TRUE(n);
        EXPECT_EQ(text_of(n.get()), std::to_string(v));
        int64_t back = 7;
        EXPECT_EQ(slbn_to_int64(parse(std::to_string(v)).get(), &back), 1);
        EXPECT_EQ(back, v);
    }
    for (const char *text :
         {"9223372036854775808", "-9223372036854775809", "18446744073709551615", "18446744073709551616",
          "-1000000000000000000000000000000000000000000000000000000"}) {
        int64_t value = 7;
        EXPECT_EQ(slbn_to_int64(parse(text).get(), &value), 0) << text;
        EXPECT_EQ(value, 7);
        EXPECT_TRUE(failed_with(ERR_GEN_GENERAL)) << text;
    }
    int64_t value = 0;
    EXPECT_EQ(slbn_to_int64(nullptr, &value), 0);
    EXPECT_TRUE(failed_with(ERR_GEN_PARAMS));
}

TEST_F(Slbn, Ordering) {
    // Ascending, including numbers that differ only in length or in sign.
    const std::vector<std::string> sorted = {"-100000000000000000000",
                                             "-99999999999999999999",
                                             "-1000000000",
                                             "-999999999",
                                             "-1",
                                             "0",
                                             "1",
                                             "999999999",
                                             "1000000000",
                                             "1000000001",
                                             "99999999999999999999",
                                             "100000000000000000000"};
    for (size_t i = 0; i < sorted.size(); ++i) {
        for (size_t j = 0; j < sorted.size(); ++j) {
            int32_t expected = i < j ? -1 : i > j ? 1 : 0;
            EXPECT_EQ(slbn_compare(parse(sorted[i]).get(), parse(sorted[j]).get()), expected)
                << sorted[i] << " vs " << sorted[j];
        }
    }
    EXPECT_EQ(slbn_compare(parse("-0").get(), parse("+000").get()), 0);

    Number one = parse("1");
    EXPECT_EQ(slbn_compare(nullptr, one.get()), -1);
    EXPECT_TRUE(failed_with(ERR_GEN_PARAMS));
    EXPECT_EQ(slbn_compare(one.get(), nullptr), 1);
    EXPECT_TRUE(failed_with(ERR_GEN_PARAMS));
}

TEST_F(Slbn, CopiesAreIndependent) {
    Number a = parse("-123456789012345678901234567890");
    Number b(slbn_copy(a.get()));
    ASSERT_TRUE(b);
    EXPECT_EQ(slbn_compare(a.get(), b.get()), 0);
    ASSERT_EQ(slbn_add_int64(b.get(), 1), 1);
    EXPECT_EQ(text_of(a.get()), "-123456789012345678901234567890");
    EXPECT_EQ(text_of(b.get()), "-123456789012345678901234567889");
    EXPECT_EQ(slbn_copy(nullptr), nullptr);
    EXPECT_TRUE(failed_with(ERR_GEN_PARAMS));
    slbn_free(nullptr);
}

// Sums within +-2^62 are checked against int64 arithmetic, longer ones against
// each other: (x + y) - y == x and (y - x) + (x - y) == 0.
TEST_F(Slbn, Sums) {
    std::mt19937_64 gen(9);  // NOLINT(cert-msc32-c,cert-msc51-cpp): fixed seed, so a failure reproduces
    auto draw = [&gen]() {
        // Many values near 10^9 and 10^18, so that carries and borrows cross limbs.
        switch (gen() % 3) {
            case 0:
                return static_cast<int64_t>(gen() % 2000000001) - 1000000000;
            case 1:
                return (gen() % 2 != 0 ? -1 : 1) * static_cast<int64_t>(1000000000000000000 - gen() % 3);
            default:
                return static_cast<int64_t>(gen() >> 1) - (int64_t{1} << 62);
        }
    };
    Number r(slbn_new());
    for (int i = 0; i < 2000; ++i) {
        const int64_t x = draw();
        const int64_t y = draw();
        Number a(slbn_from_int64(x));
        Number b(slbn_from_int64(y));
        int64_t sum = 0;
        int64_t difference = 0;
        ASSERT_EQ(slbn_add(r.get(), a.get(), b.get()), 1);
        ASSERT_EQ(slbn_to_int64(r.get(), &sum), 1);
        ASSERT_EQ(slbn_subtract(r.get(), a.get(), b.get()), 1);
        ASSERT_EQ(slbn_to_int64(r.get(), &difference), 1);
        ASSERT_EQ(sum, x + y) << x << " + " << y;
        ASSERT_EQ(difference, x - y) << x << " - " << y;
        ASSERT_EQ(slbn_add_int64(a.get(), y), 1);
        ASSERT_EQ(text_of(a.get()), std::to_string(x + y));
    }

    auto random_text = [&gen]() {
        std::string text = gen() % 2 != 0 ? "-" : "";
        for (size_t length = 1 + gen() % 60; length > 0; --length) {
            text += gen() % 3 == 0 ? '9' : static_cast<char>('0' + gen() % 10);
        }
        return text;
    };
    Number zero(slbn_new());
    for (int i = 0; i < 500; ++i) {
        Number x = parse(random_text());
        Number y = parse(random_text());
        Number forward(slbn_new());
        ASSERT_EQ(slbn_add(r.get(), x.get(), y.get()), 1);
        ASSERT_EQ(slbn_compare(r.get(), x.get()), slbn_sign(y.get()));
        ASSERT_EQ(slbn_subtract(r.get(), r.get(), y.get()), 1);  // result aliasing a
        ASSERT_EQ(text_of(r.get()), text_of(x.get()));
        ASSERT_EQ(slbn_subtract(forward.get(), x.get(), y.get()), 1);
        ASSERT_EQ(slbn_subtract(r.get(), y.get(), r.get()), 1);  // result aliasing b
        ASSERT_EQ(slbn_add(r.get(), r.get(), forward.get()), 1);
        ASSERT_EQ(slbn_compare(r.get(), zero.get()), 0);  // zero, never a negative zero
    }
    const std::string nines(100, '9');
    Number one = parse("1");
    ASSERT_EQ(slbn_add(r.get(), parse(nines).get(), one.get()), 1);
    EXPECT_EQ(text_of(r.get()), "1" + std::string(100, '0'));
    ASSERT_EQ(slbn_add_int64(r.get(), std::numeric_limits<int64_t>::min()), 1);
    ASSERT_EQ(slbn_add(r.get(), r.get(), r.get()), 1);
    EXPECT_EQ(text_of(r.get()), "1" + std::string(80, '9') + "81553255926290448384");

    EXPECT_EQ(slbn_add(nullptr, one.get(), one.get()), 0);
    EXPECT_TRUE(failed_with(ERR_GEN_PARAMS));
    EXPECT_EQ(slbn_subtract(r.get(), one.get(), nullptr), 0);
    EXPECT_TRUE(failed_with(ERR_GEN_PARAMS));
    EXPECT_EQ(slbn_add_int64(nullptr, 1), 0);
    EXPECT_TRUE(failed_with(ERR_GEN_PARAMS));
}

// Another family's handle passed as a number is refused by every function,
// which returns what it returns for NULL.
TEST_F(Slbn, AHandleOfAnotherKindIsRefused) {
    void *list = lln_init_list();
    ASSERT_NE(list, nullptr);
    auto *alien = static_cast<slbn *>(list);
    Number one = parse("1");
    int64_t value = 42;
    vq::test::expect_refused({
        {"slbn_copy", "number", [&] { return slbn_copy(alien) == nullptr; }},
        {"slbn_free", "number", [&] { return slbn_free(alien), true; }},
        {"slbn_set_string", "number", [&] { return slbn_set_string(alien, "2") == 0; }},
        {"slbn_to_string", "number", [&] { return slbn_to_string(alien) == nullptr; }},
        {"slbn_to_int64", "number", [&] { return slbn_to_int64(alien, &value) == 0 && value == 42; }},
        {"slbn_compare", "a", [&] { return slbn_compare(alien, one.get()) == -1; }},
        {"slbn_compare", "b", [&] { return slbn_compare(one.get(), alien) == 1; }},
        {"slbn_sign", "number", [&] { return slbn_sign(alien) == 0; }},
        {"slbn_add", "result", [&] { return slbn_add(alien, one.get(), one.get()) == 0; }},
        {"slbn_subtract", "b", [&] { return slbn_subtract(one.get(), one.get(), alien) == 0; }},
        {"slbn_add_int64", "number", [&] { return slbn_add_int64(alien, 1) == 0; }},
    });
    EXPECT_EQ(text_of(one.get()), "1");
    EXPECT_EQ(lln_get_count(list), 0u);  // slbn_free left the list alone
    lln_dispose_list(list);
}

TEST_F(Slbn, AFreedNumberIsRefused) {
    VQ_SKIP_UNDER_SANITIZER();
    slbn *number = slbn_from_int64(-5);
    ASSERT_NE(number, nullptr);
    slbn_free(number);
    EXPECT_EQ(slbn_sign(number), 0);
    EXPECT_TRUE(vq::test::refused("slbn_sign", "number"));
}

}  // namespace
