// "%" variable substitution: the expansion rules, long expansions, the
// copying forms and their bounds, and bad arguments.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "vq_glob/err.h"
#include "vq_glob/rep_var.h"

namespace {

class RepVar : public ::testing::Test {
protected:
    void SetUp() override { err_clear_error_stack(); }

    // The expansion as a std::string, or "<null>" when it failed.
    static std::string expand(const char *text, const std::vector<rep_var> &table) {
        char *out = dyn_replace_variables(text, table.data(), static_cast<int32_t>(table.size()));
        if (out == nullptr) {
            return "<null>";
        }
        std::string result(out);
        std::free(out);
        return result;
    }

    // True when the newest entry has code; clears the stack.
    static bool failed_with(uint32_t code) {
        bool is = err_get_stack_depth() > 0 && err_get_error_code(0) == code;
        err_clear_error_stack();
        return is;
    }
};

TEST_F(RepVar, ExpansionRules) {
    const std::vector<rep_var> table = {{'d', "/data"}, {'u', "user"}, {'d', "second"}, {'p', "50%d"}};
    EXPECT_EQ(expand("%d/x", table), "/data/x");  // the first pair for d wins
    EXPECT_EQ(expand("100%%", table), "100%");
    EXPECT_EQ(expand("%q", table), "%q");            // no pair for q
    EXPECT_EQ(expand("cost 5%", table), "cost 5%");  // lone "%" at the end
    EXPECT_EQ(expand("%", table), "%");
    EXPECT_EQ(expand("%%d", table), "%d");  // "%%" is consumed before d is seen
    EXPECT_EQ(expand("%%%d", table), "%/data");
    EXPECT_EQ(expand("%p", table), "50%d");  // values are not expanded again
    EXPECT_EQ(expand("%u@%d:%u", table), "user@/data:user");
    EXPECT_EQ(expand("", table), "");
    EXPECT_EQ(expand("plain text", {}), "plain text");
    EXPECT_EQ(expand("%d and %%", {}), "%d and %");  // empty table
    EXPECT_EQ(expand("[%e]", {{'e', ""}}), "[]");

    // Only the key's low byte counts, signed or not, for bytes of 0x80 and up.
    const std::vector<rep_var> keys = {{0x100 + 'a', "A"}, {-23, "e-acute"}, {0x7FFFFF00 + 'b', "B"}};
    EXPECT_EQ(expand("%a%b%\xE9", keys), "ABe-acute");
    // A key of "%" can never be reached, and one of 0 never matches the end.
    EXPECT_EQ(expand("%%x%", {{'%', "pct"}, {0, "nul"}}), "%x%");
    EXPECT_EQ(err_get_stack_depth(), 0);
}

// Long values and long outputs cross the growth points of the output buffer
// (a random comparison against the rules runs in the fuzz target).
TEST_F(RepVar, LongExpansions) {
    const std::string long_value(1000, 'v');
    const std::vector<rep_var> table = {{'l', long_value.c_str()}, {'s', "ab"}, {'e', ""}};
    EXPECT_EQ(expand("x%ly", table), "x" + long_value + "y");
    EXPECT_EQ(expand("%l%l%l", table), long_value + long_value + long_value);

    std::string text;
    std::string expected;
    for (int i = 0; i < 400; ++i) {
        text += i % 3 == 0 ? "%s" : i % 3 == 1 ? "%e%%" : "%q";
        expected += i % 3 == 0 ? "ab" : i % 3 == 1 ? "%" : "%q";
        ASSERT_EQ(expand(text.c_str(), table), expected) << i;
    }
}

TEST_F(RepVar, CopyingForms) {
    const std::vector<rep_var> table = {{'d', "/data"}};
    char target[32];
    std::memset(target, '#', sizeof target);
    ASSERT_EQ(replace_variables(target, "%d/x", table.data(), 1), 1);
    EXPECT_STREQ(target, "/data/x");
    EXPECT_EQ(target[8], '#');  // nothing after the NUL

    // The bounded form fits exactly, reports the size it needs, and never
    // writes into a target that is one byte short.
    size_t needed = 99;
    std::memset(target, '#', sizeof target);
    ASSERT_EQ(replace_variables_n(target, 8, "%d/x", table.data(), 1, &needed), 1);
    EXPECT_STREQ(target, "/data/x");
    EXPECT_EQ(needed, 8u);

    std::memset(target, '#', sizeof target);
    EXPECT_EQ(replace_variables_n(target, 7, "%d/x", table.data(), 1, &needed), 0);
    EXPECT_EQ(needed, 8u);
    EXPECT_EQ(std::string(target, sizeof target), std::string(sizeof target, '#'));
    EXPECT_TRUE(failed_with(ERR_GEN_GENERAL));
    EXPECT_EQ(replace_variables_n(target, 0, "", nullptr, 0, nullptr), 0);
    EXPECT_TRUE(failed_with(ERR_GEN_GENERAL));
    EXPECT_EQ(replace_variables_n(target, 1, "", nullptr, 0, nullptr), 1);
    EXPECT_STREQ(target, "");
}

TEST_F(RepVar, BadArgumentsFailWithoutWriting) {
    const std::vector<rep_var> table = {{'d', "/data"}, {'n', nullptr}};
    char target[16] = "unchanged";
    size_t needed = 99;

    EXPECT_EQ(dyn_replace_variables(nullptr, table.data(), 2), nullptr);
    EXPECT_TRUE(failed_with(ERR_GEN_PARAMS));
    EXPECT_EQ(dyn_replace_variables("%d", table.data(), -1), nullptr);
    EXPECT_TRUE(failed_with(ERR_GEN_PARAMS));
    EXPECT_EQ(dyn_replace_variables("%d", nullptr, 1), nullptr);
    EXPECT_TRUE(failed_with(ERR_GEN_PARAMS));
    // A NULL value is an error only where its pair is used.
    EXPECT_EQ(expand("%d", table), "/data");
    EXPECT_EQ(expand("%d%n", table), "<null>");
    EXPECT_TRUE(failed_with(ERR_GEN_PARAMS));

    EXPECT_EQ(replace_variables(target, "%n", table.data(), 2), 0);
    EXPECT_TRUE(failed_with(ERR_GEN_PARAMS));
    EXPECT_EQ(replace_variables(nullptr, "%d", table.data(), 2), 0);
    EXPECT_TRUE(failed_with(ERR_GEN_PARAMS));
    EXPECT_EQ(replace_variables_n(target, sizeof target, "%n", table.data(), 2, &needed), 0);
    EXPECT_EQ(needed, 0u);
    EXPECT_TRUE(failed_with(ERR_GEN_PARAMS));
    EXPECT_EQ(replace_variables_n(nullptr, 4, "x", nullptr, 0, nullptr), 0);
    EXPECT_TRUE(failed_with(ERR_GEN_PARAMS));
    EXPECT_STREQ(target, "unchanged");
}

}  // namespace
