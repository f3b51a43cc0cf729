// Large sections: every field of a big section read, found and kept in
// order through removals, additions, cleaning and reading again; sections
// met again later in a text; values that span lines beside plain ones.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "vq_glob/conf.h"
#include "vq_glob/err.h"

namespace {

std::string value_of(int field) { return "value " + std::to_string(field) + " with some text"; }

std::string big_section(const char *name, int fields, int first = 0) {
    std::string text = std::string("[") + name + "]\n";
    for (int f = first; f < first + fields; ++f) {
        text += "field" + std::to_string(f) + "=" + value_of(f) + "\n";
    }
    return text;
}

std::vector<std::string> field_names(void *h, const char *section) {
    std::vector<std::string> names;
    void *context = nullptr;
    if (conf_init_field_search_context(h, section, &context) != 1) {
        return names;
    }
    char *name = nullptr;
    while (conf_get_next_field(context, &name) == 1) {
        names.emplace_back(name);
    }
    conf_free_search_context(context);
    return names;
}

std::string string_field(void *h, const char *section, const std::string &field) {
    char *value = nullptr;
    if (conf_get_string_field(h, section, field.c_str(), &value) != 1 || value == nullptr) {
        return "<missing>";
    }
    return value;
}

class LargeSection : public ::testing::Test {
protected:
    void SetUp() override {
        err_clear_error_stack();
        ASSERT_EQ(conf_allocate_handle(&h_), 1);
    }
    void TearDown() override { EXPECT_EQ(conf_free_handle(&h_), 1); }
    void *h_ = nullptr;
};

constexpr int kFields = 5000;

TEST_F(LargeSection, EveryFieldIsFoundInOrderThroughRemovalsAndAdditions) {
    std::string text = big_section("big", kFields) + big_section("small", 3);
    ASSERT_EQ(conf_read_buffer_to_handle(h_, text.c_str()), 1);
    std::vector<std::string> names = field_names(h_, "big");
    ASSERT_EQ(names.size(), static_cast<size_t>(kFields));
    for (int f = 0; f < kFields; ++f) {
        ASSERT_EQ(names[static_cast<size_t>(f)], "field" + std::to_string(f));
        ASSERT_EQ(string_field(h_, "big", names[static_cast<size_t>(f)]), value_of(f));
    }
    // Every even field out, then back in with new values: the odd ones keep
    // their order and the new ones follow, each found by its name.
    for (int f = 0; f < kFields; f += 2) {
        ASSERT_EQ(conf_remove_field(h_, "big", ("field" + std::to_string(f)).c_str()), 1);
    }
    for (int f = 0; f < kFields; f += 2) {
        std::string name = "field" + std::to_string(f);
        ASSERT_EQ(string_field(h_, "big", name), "<missing>");
        ASSERT_EQ(conf_add_field_to_section(h_, "big", name.c_str()), 1);
        ASSERT_EQ(conf_set_string_field(h_, "big", name.c_str(), ("new " + name).c_str()), 1);
    }
    names = field_names(h_, "big");
    ASSERT_EQ(names.size(), static_cast<size_t>(kFields));
    for (int i = 0; i < kFields / 2; ++i) {
        EXPECT_EQ(names[static_cast<size_t>(i)], "field" + std::to_string(2 * i + 1));
        EXPECT_EQ(names[static_cast<size_t>(kFields / 2 + i)], "field" + std::to_string(2 * i));
        EXPECT_EQ(string_field(h_, "big", "field" + std::to_string(2 * i)), "new field" + std::to_string(2 * i));
        EXPECT_EQ(string_field(h_, "big", "field" + std::to_string(2 * i + 1)), value_of(2 * i + 1));
    }
    EXPECT_EQ(string_field(h_, "small", "field2"), value_of(2));
}

TEST_F(LargeSection, ACleanedHandleReadsTheTextAgain) {
    std::string text = big_section("big", kFields);
    ASSERT_EQ(conf_read_buffer_to_handle(h_, text.c_str()), 1);
    ASSERT_EQ(conf_clean_handle(h_), 1);
    EXPECT_EQ(string_field(h_, "big", "field7"), "<missing>");
    EXPECT_TRUE(field_names(h_, "big").empty());
    ASSERT_EQ(conf_read_buffer_to_handle(h_, text.c_str()), 1);
    std::vector<std::string> names = field_names(h_, "big");
    ASSERT_EQ(names.size(), static_cast<size_t>(kFields));
    EXPECT_EQ(names.back(), "field" + std::to_string(kFields - 1));
    EXPECT_EQ(string_field(h_, "big", "field4321"), value_of(4321));
}

TEST_F(LargeSection, ASectionMetAgainTakesMoreFieldsAndNewValues) {
    // The section comes back twice, with new fields and a field read again,
    // among lines that are no fields (blank lines, a continued value).
    std::string text = big_section("s", 100) + big_section("t", 10) + big_section("s", 200, 50) +
                       "\n   [t]\nfield3=again\nlong=first\n second line\n third = line\n\n";
    ASSERT_EQ(conf_read_buffer_to_handle(h_, text.c_str()), 1);
    std::vector<std::string> names = field_names(h_, "s");
    ASSERT_EQ(names.size(), 250u);
    EXPECT_EQ(names[249], "field249");
    EXPECT_EQ(string_field(h_, "s", "field60"), value_of(60));
    EXPECT_EQ(string_field(h_, "s", "field249"), value_of(249));
    EXPECT_EQ(string_field(h_, "t", "field3"), "again");
    // "third = line" holds a "=", so it is a field of its own and ends the
    // continued value.
    char **lines = nullptr;
    ASSERT_EQ(conf_get_ml_string_field(h_, "t", "long", &lines), 1);
    ASSERT_NE(lines, nullptr);
    ASSERT_NE(lines[0], nullptr);
    EXPECT_STREQ(lines[0], "first");
    ASSERT_NE(lines[1], nullptr);
    EXPECT_STREQ(lines[1], "second line");
    EXPECT_EQ(lines[2], nullptr);
    EXPECT_EQ(string_field(h_, "t", "third "), " line");
}

TEST_F(LargeSection, EachHandleKeepsItsOwnFields) {
    // Two handles read different texts; freeing the first after the second
    // read leaves the second's fields intact (each handle owns its nodes).
    void *other = nullptr;
    ASSERT_EQ(conf_allocate_handle(&other), 1);
    std::string first = big_section("a", 1000);
    std::string second = big_section("a", 1000, 1000);
    ASSERT_EQ(conf_read_buffer_to_handle(other, first.c_str()), 1);
    ASSERT_EQ(conf_read_buffer_to_handle(h_, second.c_str()), 1);
    ASSERT_EQ(conf_free_handle(&other), 1);
    EXPECT_EQ(string_field(h_, "a", "field1999"), value_of(1999));
    EXPECT_EQ(string_field(h_, "a", "field999"), "<missing>");
    EXPECT_EQ(field_names(h_, "a").size(), 1000u);
}

}  // namespace
