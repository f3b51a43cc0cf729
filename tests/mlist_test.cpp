// String lists: growth and the terminator, duplicate checks with and without
// case, removal, the copying functions, and argument errors.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "vq_glob/dbg.h"
#include "vq_glob/err.h"
#include "vq_glob/mlist.h"

namespace {

using Texts = std::vector<std::string>;

// The texts of a list, checking that it ends where ml_list_count says.
Texts texts(char **list) {
    Texts out;
    for (int32_t i = 0; list != nullptr && list[i] != nullptr; ++i) {
        out.emplace_back(list[i]);
    }
    EXPECT_EQ(ml_list_count(list), static_cast<int32_t>(out.size()));
    return out;
}

char **make(std::initializer_list<const char *> items) {
    char **list = nullptr;
    EXPECT_EQ(ml_init_list(0, &list), 1);
    for (const char *item : items) {
        EXPECT_EQ(ml_add_element(&list, item), 1);
    }
    return list;
}

// What f writes with the FLOW and ERROR trace channels (bits 11 and 14) on.
template <typename F>
std::string traced(F f) {
    unsigned char mask[8] = {0, 0x48, 0, 0, 0, 0, 0, 0};
    dbg_set_debug_mask_value(mask);
    ::testing::internal::CaptureStdout();
    f();
    dbg_clear_debug_mask();
    return ::testing::internal::GetCapturedStdout();
}

TEST(StringList, InitAndGrowth) {
    char **list = nullptr;
    EXPECT_EQ(ml_init(3, &list), 4);
    EXPECT_EQ(texts(list), Texts{});
    EXPECT_EQ(list[3], nullptr);
    ml_free(list);
    err_clear_error_stack();
    EXPECT_EQ(ml_init_list(-1, &list), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_PARAMS);

    list = nullptr;  // a NULL list starts a new one
    Texts expected;
    for (int i = 0; i < 200; ++i) {
        expected.push_back("item" + std::to_string(i));
        ASSERT_EQ(i % 2 == 0 ? ml_add_element(&list, expected.back().c_str())
                             : ml_add(&list, expected.back().c_str()),
                  1);
    }
    EXPECT_EQ(texts(list), expected);
    ml_free(list);
}

TEST(StringList, DuplicateChecksFollowTheCaseFlagAndFoldAsciiOnly) {
    char **list = make({"abc"});
    EXPECT_EQ(traced([&] { EXPECT_EQ(ml_add_element_ex(&list, "ABC", 1, 0), 1); }),
              "<-ml_add_element (), item exists.\n");
    EXPECT_EQ(ml_add_element_ex(&list, "ABC", 1, 1), 1);
    EXPECT_EQ(ml_add_element_ex(&list, "abc", 0, 1), 1);
    for (const char *text : {"\xE9", "\xC9", "@", "`"}) {
        EXPECT_EQ(ml_add_element_ex(&list, text, 1, 0), 1);
    }
    EXPECT_EQ(texts(list), (Texts{"abc", "ABC", "abc", "\xE9", "\xC9", "@", "`"}));
    int32_t found = -1, index = 0;
    EXPECT_EQ(ml_find_insensitive_item(list, "aBc", &found), 1);
    EXPECT_EQ(found, 1);
    EXPECT_EQ(ml_find_item(list, "aBc", &found), 1);
    EXPECT_EQ(found, 0);
    EXPECT_EQ(ml_find_index(list, "ABC", &index), 1);
    EXPECT_EQ(index, 1);
    EXPECT_EQ(ml_find_index(list, "none", &index), 0);
    EXPECT_EQ(index, -1);
    ml_free(list);
}

TEST(StringList, RemovalMovesTheTerminatorDown) {
    char **list = make({"only"});
    ml_remove(list);
    EXPECT_EQ(texts(list), Texts{});
    ml_free(list);

    list = make({"a", "b", "a", "c"});
    int32_t found = -1;
    EXPECT_EQ(ml_remove_item(list, "a", &found), 1);
    EXPECT_EQ(found, 1);
    EXPECT_EQ(ml_remove_item(list, "x", &found), 1);
    EXPECT_EQ(found, 0);
    EXPECT_EQ(texts(list), (Texts{"b", "a", "c"}));
    ml_remove(list);
    EXPECT_EQ(texts(list), (Texts{"a", "c"}));
    ml_free_list_items(list);
    EXPECT_EQ(list[1], nullptr);
    ml_free(list);
}

TEST(StringList, CopiesOwnTheirTexts) {
    char **a = make({"x", "", "y", "z", "y"});
    char **b = make({"z", "Y"});
    char **diff = ml_diff(a, b);
    EXPECT_EQ(texts(diff), (Texts{"x", "y", "y"}));  // empty texts skipped, a's order kept
    char **dup = ml_dup(a);
    char **copy = nullptr;
    EXPECT_EQ(ml_copy(&copy, b), 1);
    ml_free(b);
    ml_free(a);
    EXPECT_EQ(texts(dup), (Texts{"x", "", "y", "z", "y"}));
    EXPECT_EQ(texts(copy), (Texts{"z", "Y"}));

    char *last = nullptr;
    EXPECT_EQ(ml_get_last_item(copy, &last), 1);
    EXPECT_STREQ(last, "Y");
    std::free(last);
    EXPECT_EQ(ml_get_last_item(diff + 3, &last), 0);  // diff's terminator: an empty list
    EXPECT_EQ(last, nullptr);
    for (char **list : {diff, dup, copy}) {
        ml_free(list);
    }
}

TEST(StringList, EmptyTextsAndPrinting) {
    char **list = make({"", ""});
    int32_t empty = -1;
    EXPECT_EQ(is_list_of_empty_strs(list, &empty), 1);
    EXPECT_EQ(empty, 1);
    EXPECT_EQ(ml_add_element(&list, "x"), 1);
    EXPECT_EQ(is_list_of_empty_strs(list, &empty), 1);
    EXPECT_EQ(empty, 0);
    EXPECT_EQ(traced([&] { ml_print(list); }), "ml_print:: 0 - \nml_print:: 1 - \nml_print:: 2 - x\n");
    EXPECT_EQ(traced([&] { EXPECT_EQ(is_list_of_empty_strs(nullptr, &empty), 0); }),
              "is_list_of_empty_strs: NULL list");
    EXPECT_EQ(traced([&] { EXPECT_EQ(is_list_of_empty_strs(list, nullptr), 0); }),
              "is_list_of_empty_strs: NULL is_empty_strs_list");
    ml_free(list);
}

TEST(StringList, BadArgumentsAreReportedAndLeaveTheListAlone) {
    char **list = make({"a"});
    int32_t found = 0;
    err_clear_error_stack();
    EXPECT_EQ(ml_add_element(&list, nullptr), 0);
    EXPECT_EQ(ml_add_element(nullptr, "b"), 0);
    EXPECT_EQ(ml_find_item(list, nullptr, &found), 0);
    EXPECT_EQ(ml_remove_item(list, "a", nullptr), 0);
    EXPECT_EQ(is_list_of_empty_strs(nullptr, &found), 0);
    ASSERT_EQ(err_get_stack_depth(), 5);
    for (int32_t n = 0; n < 5; ++n) {
        EXPECT_EQ(err_get_error_code(n), ERR_GEN_PARAMS);
    }
    err_clear_error_stack();
    EXPECT_EQ(ml_add(&list, nullptr), 0);  // the quiet form reports nothing
    EXPECT_EQ(err_get_stack_depth(), 0);
    EXPECT_EQ(texts(list), Texts{"a"});
    ml_free(list);
}

}  // namespace
