// Large sections: every field of a big section read, found and kept in
// order through removals, additions, cleaning and reading again; sections
// met again later in a text; values that span lines beside plain ones; a
// handle read several times, from files and from buffers the caller reuses;
// where names and values end on lines of every shape.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
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

TEST_F(LargeSection, AHandleReadAgainKeepsEveryValueItHolds) {
    // The first text comes from a file of several 64 KiB blocks, the next
    // two from one buffer the caller overwrites after each read; fields of
    // every read are changed, renamed with their section, removed and read
    // again between the reads.
    std::string first = big_section("a", kFields) + big_section("b", 50);
    std::string file = (std::filesystem::temp_directory_path() / "conf_large_read_again.conf").string();
    {
        std::ofstream out(file, std::ios::binary);
        out << first;
    }
    ASSERT_GT(first.size(), 2u * 65536u);
    ASSERT_EQ(conf_read_file_to_handle(h_, file.c_str()), 1) << err_get_error_msg();
    std::remove(file.c_str());
    ASSERT_EQ(conf_set_string_field(h_, "a", "field1", "set after the first read"), 1);
    ASSERT_EQ(conf_remove_field(h_, "a", "field2"), 1);

    std::string buffer = big_section("a", 100, kFields - 50) + "[c]\nx=from the second read\n";
    ASSERT_EQ(conf_read_buffer_to_handle(h_, buffer.c_str()), 1);
    std::fill(buffer.begin(), buffer.end(), '#');
    ASSERT_EQ(conf_rename_section(h_, "b", "renamed"), 1);
    ASSERT_EQ(conf_set_string_field(h_, "c", "x", "set after the second read"), 1);

    buffer = "[a]\nfield3=third\nfield2=back\n[c]\ny=new\n";
    ASSERT_EQ(conf_read_buffer_to_handle(h_, buffer.c_str()), 1);
    std::fill(buffer.begin(), buffer.end(), '#');

    std::vector<std::string> names = field_names(h_, "a");
    ASSERT_EQ(names.size(), static_cast<size_t>(kFields + 50));
    EXPECT_EQ(names[1], "field1");
    EXPECT_EQ(names[2], "field3");
    EXPECT_EQ(names.back(), "field2");
    EXPECT_EQ(string_field(h_, "a", "field0"), value_of(0));
    EXPECT_EQ(string_field(h_, "a", "field1"), "set after the first read");
    EXPECT_EQ(string_field(h_, "a", "field2"), "back");
    EXPECT_EQ(string_field(h_, "a", "field3"), "third");
    EXPECT_EQ(string_field(h_, "a", "field2345"), value_of(2345));
    EXPECT_EQ(string_field(h_, "a", "field" + std::to_string(kFields - 10)), value_of(kFields - 10));
    EXPECT_EQ(string_field(h_, "a", "field" + std::to_string(kFields + 49)), value_of(kFields + 49));
    EXPECT_EQ(string_field(h_, "renamed", "field49"), value_of(49));
    EXPECT_EQ(string_field(h_, "b", "field49"), "<missing>");
    EXPECT_EQ(string_field(h_, "c", "x"), "set after the second read");
    EXPECT_EQ(string_field(h_, "c", "y"), "new");
    EXPECT_EQ(field_names(h_, "renamed").size(), 50u);
}

TEST_F(LargeSection, NamesAndValuesEndWhereTheirLinesSayInEveryShape) {
    // Blanks around the "=" belong to the name and the value; trailing
    // blanks and carriage returns do not; a value may hold "="; the last
    // line needs no line feed. Each field is read back and written out.
    const char *text =
        "[s]\n"
        "spaced = value with blanks \t \r\n"
        "crlf=v\r\n"
        "=no name\n"
        "empty=\n"
        "eq=a=b==\n"
        "\t  indented=x  \n"
        "last=end";
    ASSERT_EQ(conf_read_buffer_to_handle(h_, text), 1) << err_get_error_msg();
    EXPECT_EQ(string_field(h_, "s", "spaced "), " value with blanks");
    EXPECT_EQ(string_field(h_, "s", "crlf"), "v");
    EXPECT_EQ(string_field(h_, "s", ""), "no name");
    EXPECT_EQ(string_field(h_, "s", "empty"), "");
    EXPECT_EQ(string_field(h_, "s", "eq"), "a=b==");
    EXPECT_EQ(string_field(h_, "s", "indented"), "x");
    EXPECT_EQ(string_field(h_, "s", "last"), "end");
    std::vector<std::string> expected = {"spaced ", "crlf", "", "empty", "eq", "indented", "last"};
    EXPECT_EQ(field_names(h_, "s"), expected);
}

}  // namespace
