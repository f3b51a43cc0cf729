// Typed configuration fields: binding constant tables, conversions and
// defaults, the three addressing forms and their errors, access checks, the
// hash index, dynamic tables, copies, conversion tables, comparisons, the
// multi-line and big-integer types, the library's own tables and a shared
// handle used by two threads.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "support/trace_capture.h"
#include "vq_glob/conf.h"
#include "vq_glob/dbg.h"
#include "vq_glob/err.h"
#include "vq_glob/slbn.h"

namespace {

enum : int32_t { kMain = 10, kName, kCount, kFlag, kTrueZero, kBig, kLines, kInts, kBools, kHidden, kFrozen };
enum : int32_t { kOther = 40, kPort };
enum : int32_t { kVault = 50, kSecret, kVaultNote };

const conf_table_row kTable[] = {
    {kMain, "main", 0, nullptr, 0, 0, nullptr},
    {kName, "name", CONF_TYPE_STRING, "anonymous", 0, 0, nullptr},
    {kCount, "count", CONF_TYPE_INT, nullptr, 7, 0, nullptr},
    {kFlag, "flag", CONF_TYPE_BOOL, "FALSE", 1, 0, nullptr},
    {kTrueZero, "true but zero", CONF_TYPE_BOOL, "TRUE", 0, 0, nullptr},
    {kBig, "big", CONF_TYPE_BIG_INT, "123456789012345678901234567890", 0, 0, nullptr},
    {kLines, "lines", CONF_TYPE_ML_TEXT, nullptr, 0, 0, nullptr},
    {kInts, "ints", CONF_TYPE_ML_INT, nullptr, 0, 0, nullptr},
    {kBools, "bools", CONF_TYPE_ML_BOOL, nullptr, 0, 0, nullptr},
    {kHidden, "", CONF_TYPE_INT, nullptr, 5, CONF_FLAG_DENY_READ, nullptr},
    {kFrozen, "frozen", CONF_TYPE_INT, nullptr, 6, CONF_FLAG_DENY_WRITE, nullptr},
    {kOther, "other", 0, nullptr, 0, 0, nullptr},
    {kPort, "port", CONF_TYPE_INT, nullptr, 80, 0, nullptr},
};
constexpr int32_t kRows = static_cast<int32_t>(std::size(kTable));

// Bound besides kTable by prefix: "vault" is taken, "spares" is not.
const conf_table_row kVaultTable[] = {
    {kVault, "vault", 0, nullptr, 0, 0, "sectionkey"},
    {kSecret, "secret", CONF_TYPE_STRING, nullptr, 0, CONF_FLAG_ENCRYPTED, "fieldkey"},
    {kVaultNote, "note", CONF_TYPE_STRING, nullptr, 0, 0, nullptr},
    {60, "spares", 0, nullptr, 0, 0, nullptr},
    {61, "spare", CONF_TYPE_INT, nullptr, 0, 0, nullptr},
};

void *bound_handle(bool use_cs = false) {
    void *h = nullptr;
    EXPECT_EQ(use_cs ? conf_allocate_handle_use_cs(&h) : conf_allocate_handle(&h), 1);
    EXPECT_EQ(conf_set_table(h, kTable, kRows), 1) << err_get_error_msg();
    return h;
}

std::string text_of(void *h) {
    char *buffer = nullptr;
    EXPECT_EQ(conf_write_buffer(h, &buffer), 1) << err_get_error_msg();
    std::string out = buffer != nullptr ? buffer : "";
    conf_free_buffer(buffer);
    return out;
}

// The error at depth n as "code text".
std::string error_at(int32_t n) {
    char code[16];
    std::snprintf(code, sizeof code, "%#x ", err_get_error_code(n));
    return code + std::string(err_get_error_text(n));
}

int32_t int_by_const(void *h, int32_t c) {
    int32_t v = -999;
    EXPECT_EQ(conf_get_int_field_by_const(h, c, &v), 1) << err_get_error_msg();
    return v;
}

std::string big_text(const slbn *n) {
    char *t = slbn_to_string(n);
    std::string out = t != nullptr ? t : "";
    std::free(t);
    return out;
}

std::string big_by_const(void *h, int32_t c) {
    slbn *n = nullptr;
    EXPECT_EQ(conf_get_big_int_field_by_const(h, c, &n), 1) << err_get_error_msg();
    std::string out = big_text(n);
    slbn_free(n);
    return out;
}

class Typed : public ::testing::Test {
protected:
    void SetUp() override { err_clear_error_stack(); }
    void TearDown() override {
        for (void *h : handles_) {
            conf_free_handle(&h);
        }
    }
    void *handle(bool use_cs = false) { return handles_.emplace_back(bound_handle(use_cs)); }
    // A handle without a table, freed after the test.
    void *unbound() {
        void *h = nullptr;
        EXPECT_EQ(conf_allocate_handle(&h), 1);
        return handles_.emplace_back(h);
    }
    std::vector<void *> handles_;
};

// ---- Binding, conversions and defaults ------------------------------------------------

TEST_F(Typed, BindingCreatesTypedFieldsWithDefaultsAndRefusesBadTables) {
    void *h = unbound();
    EXPECT_EQ(conf_set_table(h, kTable, 0), 1);
    EXPECT_EQ(text_of(h), "");

    ASSERT_EQ(conf_set_table(h, kTable, kRows), 1);
    EXPECT_EQ(text_of(h),
              "[main]\nname=anonymous\ncount=7\nflag=TRUE\ntrue but zero=FALSE\n"
              "big=123456789012345678901234567890\nlines=_ml_text_\n_ml_text_\nints=_ml_int_\n_ml_int_\n"
              "bools=_ml_bool_\n_ml_bool_\n=5\nfrozen=6\n[other]\nport=80\n");
    // A boolean's default comes from the integer column only.
    int32_t v = -1;
    ASSERT_EQ(conf_get_bool_field_by_const(h, kTrueZero, &v), 1);
    EXPECT_EQ(v, 0);
    EXPECT_EQ(big_by_const(h, kBig), "123456789012345678901234567890");

    const conf_table_row bad_type[] = {{1, "s", 0, nullptr, 0, 0, nullptr}, {2, "f", 9, nullptr, 0, 0, nullptr}};
    EXPECT_EQ(conf_set_table(h, bad_type, 2), 0);
    EXPECT_EQ(error_at(1), "0x8208 field type mismatch for const <2> (not a known constant).");
    EXPECT_EQ(error_at(0), "0x8209 no field type for field f");
    const conf_table_row orphan[] = {{2, "f", CONF_TYPE_INT, nullptr, 0, 0, nullptr}};
    EXPECT_EQ(conf_set_table(h, orphan, 1), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_PARAMS);
}

TEST_F(Typed, FieldsReadBeforeBindingAreConvertedAndEmptyValuesTakeDefaults) {
    void *h = unbound();
    ASSERT_EQ(conf_read_buffer_to_handle(h, "[main]\ncount=12abc\nflag=yes\nname=\nbig=\n[other]\nport=\n"), 1);
    ASSERT_EQ(conf_set_table(h, kTable, kRows), 1);
    EXPECT_EQ(int_by_const(h, kCount), 12);
    int32_t flag = -1;
    ASSERT_EQ(conf_get_bool_field_by_const(h, kFlag, &flag), 1);
    EXPECT_EQ(flag, 0);  // anything but TRUE is FALSE when binding
    char *name = nullptr;
    ASSERT_EQ(conf_get_string_field_by_const(h, kName, &name), 1);
    EXPECT_STREQ(name, "anonymous");
    EXPECT_EQ(big_by_const(h, kBig), "123456789012345678901234567890");
    EXPECT_EQ(int_by_const(h, kPort), 80);

    // Reading into bound fields: empty values are defaults, booleans strict.
    ASSERT_EQ(conf_read_buffer_to_handle(h, "[main]\ncount=\nflag=true\nbig=-99999999999999999999999\n"), 1);
    EXPECT_EQ(int_by_const(h, kCount), 7);
    ASSERT_EQ(conf_get_bool_field_by_const(h, kFlag, &flag), 1);
    EXPECT_EQ(flag, 1);
    EXPECT_EQ(big_by_const(h, kBig), "-99999999999999999999999");
    EXPECT_EQ(conf_read_buffer_to_handle(h, "[main]\nflag=yes\n"), 0);
    EXPECT_EQ(error_at(1), "0x8207 illegal value: field <flag>  value <yes>");
    EXPECT_EQ(conf_read_buffer_to_handle(h, "[main]\nbig=12x\n"), 0);
    EXPECT_EQ(error_at(1), "0x8207 illegal value: field <big>  value <12x>");
    EXPECT_EQ(error_at(0), "0x820b failed to read field <big>.");
    EXPECT_EQ(big_by_const(h, kBig), "-99999999999999999999999");

    // An untyped field takes the type of its first typed access.
    ASSERT_EQ(conf_read_buffer_to_handle(h, "[loose]\nn= 42\n"), 1);
    int32_t n = 0;
    ASSERT_EQ(conf_get_int_field(h, "loose", "n", &n), 1);
    EXPECT_EQ(n, 42);
    EXPECT_EQ(conf_get_string_field(h, "loose", "n", &name), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_CNF_TYPE);
}

// ---- Addressing and errors ---------------------------------------------------------------

TEST_F(Typed, ThreeAddressingFormsAndTheirErrors) {
    void *h = handle();
    ASSERT_EQ(conf_set_int_field(h, "main", "count", 1), 1);
    ASSERT_EQ(conf_set_int_field_by_section(h, "other", kPort, 2), 1);
    int32_t a = 0, b = 0, c = 0;
    ASSERT_EQ(conf_get_int_field_by_const(h, kCount, &a), 1);
    ASSERT_EQ(conf_get_int_field(h, "other", "port", &b), 1);
    ASSERT_EQ(conf_get_int_field_by_section(h, "main", kCount, &c), 1);
    EXPECT_EQ(a + 10 * b + 100 * c, 121);

    int32_t out = -5;
    char *text = nullptr;
    struct Case {
        int status;
        std::string error;
    };
    auto failing = [](int status) { return Case{status, status == 0 ? error_at(0) : std::string("succeeded")}; };
    const Case cases[] = {
        failing(conf_get_int_field(h, "nope", "count", &out)),
        failing(conf_get_int_field(h, "main", "nope", &out)),
        failing(conf_get_int_field_by_section(h, "main", kPort, &out)),
        failing(conf_get_int_field_by_section(h, "nope", kPort, &out)),
        failing(conf_get_int_field_by_const(h, 999, &out)),
        failing(conf_get_int_field_by_const(h, kName, &out)),
        failing(conf_get_string_field_by_const(h, kCount, &text)),
        failing(conf_set_bool_field_by_const(h, kCount, 1)),
        failing(conf_get_int_field_by_const(nullptr, kCount, &out)),
        failing(conf_get_int_field(h, nullptr, "count", &out)),
    };
    const char *expected[] = {
        "0x820a did not find section <nope>.",
        "0x820f did not find field by name <nope>.",
        "0x820e did not find field by section <main>.",
        "0x820a did not find section <nope>.",
        "0x820d configuration module mismatch fields. could not retrieve field constant <999>.",
        "0x8208 field type mismatch for const <11> (not integer).",
        "0x8208 field type mismatch for const <12> (not string).",
        "0x8208 field type mismatch for const <12> (not boolean).",
        "0x100e invalid function parameter (<conf_get_int_field_by_const>/<handle>)",
        "0x100e invalid function parameter (<conf_get_int_field>/<section>)",
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        EXPECT_EQ(cases[i].status, 0) << i;
        EXPECT_EQ(cases[i].error, expected[i]) << i;
    }
    EXPECT_EQ(out, -5);  // no failed getter touched its output
    EXPECT_EQ(text, nullptr);

    int32_t type = 0;
    char *name = nullptr;
    void *value = nullptr;
    ASSERT_EQ(conf_get_field_type(h, kBig, &type), 1);
    ASSERT_EQ(conf_get_field_name(h, kPort, &name), 1);
    ASSERT_EQ(conf_get_field_by_const(h, kCount, &value, &type), 1);
    EXPECT_EQ(*static_cast<int32_t *>(value), 1);
    EXPECT_STREQ(name, "port");
    EXPECT_EQ(type, CONF_TYPE_INT);
    int32_t index = -1;
    ASSERT_EQ(conf_get_field_index_by_const(kTable, kRows, kPort, &index), 1);
    EXPECT_EQ(index, kRows - 1);
    EXPECT_EQ(conf_get_field_index_by_const(kTable, kRows, 4, &index), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_CNF_FIND_820D);
}

TEST_F(Typed, AccessChecksDenyFlaggedFieldsOnlyWhenOn) {
    void *h = handle();
    int32_t v = -1;
    EXPECT_EQ(conf_is_check_read_write_access(h), 0);
    EXPECT_EQ(conf_get_int_field_by_const(h, kHidden, &v), 1);
    EXPECT_EQ(conf_set_int_field_by_const(h, kFrozen, 60), 1);
    ASSERT_EQ(conf_use_check_read_write_access(h, 1), 1);
    EXPECT_EQ(conf_is_check_read_write_access(h), 1);
    v = -1;
    EXPECT_EQ(conf_get_int_field_by_const(h, kHidden, &v), 0);
    EXPECT_EQ(error_at(1), "0x820b failed to read field <19>.");  // no name: the constant
    EXPECT_EQ(error_at(0), "0x8213 access field <19> is denied.");
    EXPECT_EQ(v, -1);
    EXPECT_EQ(conf_set_int_field(h, "main", "frozen", 61), 0);
    EXPECT_EQ(error_at(1), "0x820c failed to write field <frozen>.");
    EXPECT_EQ(error_at(0), "0x8213 access field <frozen> is denied.");
    EXPECT_EQ(conf_set_int_field_by_const(h, kHidden, 3), 1);  // writing it is allowed
    EXPECT_EQ(int_by_const(h, kFrozen), 60);
}

// ---- Hash index and dynamic tables --------------------------------------------------------

TEST_F(Typed, HashIndexGivesTheSameAnswersAndFollowsRemovals) {
    std::vector<conf_table_row> table;
    std::vector<std::string> names;
    names.reserve(3050);
    for (int s = 0; s < 50; ++s) {
        names.push_back("s" + std::to_string(s));
        table.push_back({100000 + s, names.back().c_str(), 0, nullptr, 0, 0, nullptr});
        for (int f = 0; f < 60; ++f) {
            names.push_back("f" + std::to_string(f));
            // Constants interleave across sections, so ranges overlap.
            table.push_back({f * 50 + s, names.back().c_str(), CONF_TYPE_INT, nullptr, f * 50 + s, 0, nullptr});
        }
    }
    void *plain = unbound();
    void *hashed = unbound();
    ASSERT_EQ(conf_set_table(plain, table.data(), static_cast<int32_t>(table.size())), 1);
    ASSERT_EQ(conf_use_hash_table(hashed, 1, 257), 1);
    ASSERT_EQ(conf_set_table(hashed, table.data(), static_cast<int32_t>(table.size())), 1);
    int mismatches = 0;
    for (int c = -1; c <= 3001; ++c) {
        int32_t a = -1, b = -1;
        int ra = conf_get_int_field_by_const(plain, c, &a);
        int rb = conf_get_int_field_by_const(hashed, c, &b);
        mismatches += (ra != rb || a != b || (ra == 1 && a != c)) ? 1 : 0;
    }
    EXPECT_EQ(mismatches, 0);
    // Removing a field must not leave the index pointing at it.
    ASSERT_EQ(conf_remove_field(hashed, "s3", "f2"), 1);
    int32_t v = 0;
    EXPECT_EQ(conf_get_int_field_by_const(hashed, 2 * 50 + 3, &v), 0);
    EXPECT_EQ(conf_get_int_field_by_section(hashed, "s4", 2 * 50 + 4, &v), 1);
    EXPECT_EQ(v, 104);
    EXPECT_EQ(conf_get_int_field_by_section(hashed, "s5", 2 * 50 + 4, &v), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_CNF_FIND_820E);
    ASSERT_EQ(conf_use_hash_table(hashed, 0, 0), 1);
    EXPECT_EQ(int_by_const(hashed, 2999), 2999);
    EXPECT_EQ(conf_use_hash_table(hashed, 1, 0), 0);
}

TEST_F(Typed, DynamicTablesKeepWantedRowsUnderTheirSections) {
    conf_table_row out[kRows];
    const int32_t same_section[] = {kFlag, kName};
    ASSERT_EQ(conf_create_dynamic_table(kTable, kRows, out, same_section, 2), 3);
    EXPECT_EQ(out[0].constant * 10000 + out[1].constant * 100 + out[2].constant, kMain * 10000 + kName * 100 + kFlag);
    const int32_t across[] = {kPort, kBig, 777};
    ASSERT_EQ(conf_create_dynamic_table(kTable, kRows, out, across, 3), 4);
    EXPECT_EQ(out[2].constant * 100 + out[3].constant, kOther * 100 + kPort);
    EXPECT_EQ(conf_create_dynamic_table(kTable, kRows, nullptr, across, 3), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_PARAMS);
}

// ---- Copies, conversions, comparisons -------------------------------------------------------

TEST_F(Typed, CopiesByFieldByTableAndByListedFields) {
    void *src = handle();
    void *dst = handle();
    ASSERT_EQ(conf_set_int_field_by_const(src, kCount, 3), 1);
    ASSERT_EQ(conf_set_string_field_by_const(src, kName, "copied"), 1);
    ASSERT_EQ(conf_set_ml_string_field_by_const_as_string(src, kLines, "a,b"), 1);
    const int32_t ints[] = {4, 5};
    ASSERT_EQ(conf_set_ml_int_field_by_const(src, kInts, ints, 2), 1);
    ASSERT_EQ(conf_set_int_field_by_const(src, kPort, 8080), 1);

    const int32_t listed[] = {kCount, kLines};
    ASSERT_EQ(conf_copy_handle_by_table_by_fields(src, dst, kTable, kRows, listed, 2), 1) << err_get_error_msg();
    EXPECT_EQ(int_by_const(dst, kCount), 3);
    EXPECT_EQ(int_by_const(dst, kPort), 80);  // not listed
    ASSERT_EQ(conf_copy_int_field_by_const(src, dst, kPort), 1);
    EXPECT_EQ(int_by_const(dst, kPort), 8080);
    EXPECT_EQ(conf_copy_string_field_by_const(src, dst, kCount), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_CNF_TYPE);

    ASSERT_EQ(conf_copy_handle_by_table(src, dst, kTable, kRows), 1) << err_get_error_msg();
    EXPECT_EQ(text_of(dst), text_of(src));
    ASSERT_EQ(conf_use_check_read_write_access(src, 1), 1);
    EXPECT_EQ(conf_copy_handle_by_table(src, dst, kTable, kRows), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_CNF_ACCESS);
}

TEST_F(Typed, ConversionTablesMapConstantsBothWays) {
    // The second table numbers the same settings 200 and up.
    const conf_table_row second[] = {
        {200, "new main", 0, nullptr, 0, 0, nullptr},
        {201, "new count", CONF_TYPE_INT, nullptr, -1, 0, nullptr},
        {202, "new name", CONF_TYPE_STRING, "kept", 0, 0, nullptr},
    };
    // Entries for constants 10 (section), 11 name, 12 count; offset 10.
    const conf_conversion_row conversion[] = {{kMain, 200}, {kName, CONF_NO_CONVERSION}, {kCount, 201}};
    const conf_table_row first[] = {kTable[0], kTable[1], kTable[2]};
    void *a = handle();
    void *b = unbound();
    ASSERT_EQ(conf_set_table(b, second, 3), 1);
    ASSERT_EQ(conf_set_int_field_by_const(a, kCount, 31), 1);
    ASSERT_EQ(conf_set_string_field_by_const(a, kName, "not copied"), 1);
    ASSERT_EQ(conf_copy_handle_consts_table_by_conversion_table(a, b, first, 3, conversion, 3, 10, 0), 1)
        << err_get_error_msg();
    EXPECT_EQ(int_by_const(b, 201), 31);
    char *name = nullptr;
    ASSERT_EQ(conf_get_string_field_by_const(b, 202, &name), 1);
    EXPECT_STREQ(name, "kept");  // the empty entry keeps the default

    ASSERT_EQ(conf_set_int_field_by_const(b, 201, 77), 1);
    ASSERT_EQ(conf_copy_handle_consts_table_by_conversion_table(b, a, first, 3, conversion, 3, 12345, 1), 1)
        << err_get_error_msg();
    EXPECT_EQ(int_by_const(a, kCount), 77);

    EXPECT_EQ(conf_copy_handle_consts_table_by_conversion_table(a, b, first, 3, conversion, 3, 9, 0), 0);
    EXPECT_STREQ(err_get_error_text(0), "Unsynchronized conversion tables.");
    EXPECT_EQ(conf_copy_handle_consts_table_by_conversion_table(a, b, first, 3, conversion, 3, 12, 0), 0);
    EXPECT_STREQ(err_get_error_text(0), "internal: a corrupted conversion table - param: offset.");
    EXPECT_EQ(conf_copy_handle_consts_table_by_conversion_table(a, b, first, 3, nullptr, 0, 10, 0), 0);
    EXPECT_STREQ(err_get_error_text(0), "internal: a corrupted conversion table.");
    const conf_conversion_row to_bool[] = {{kMain, 200}, {kName, CONF_NO_CONVERSION}, {kCount, 202}};
    EXPECT_EQ(conf_copy_handle_consts_table_by_conversion_table(a, b, first, 3, to_bool, 3, 10, 0), 0);
    EXPECT_STREQ(err_get_error_text(1), "Failed to copy between the configuration tables. Field name: count");
    EXPECT_EQ(error_at(0),
              "0x8212 Failed to copy between the configuration handles, from consts <12> to <202>");
}

TEST_F(Typed, DeferentFieldsMarkRowsAndKeepSecretsOutOfTheTrace) {
    void *a = handle();
    void *b = handle();
    ASSERT_EQ(conf_set_sections_by_prefix(a, kVaultTable, 5, "vault"), 1);
    ASSERT_EQ(conf_set_sections_by_prefix(b, kVaultTable, 5, "vault"), 1);
    void *search = nullptr;
    EXPECT_EQ(conf_init_field_search_context(a, "spares", &search), 0);  // not taken by the prefix
    EXPECT_EQ(err_get_error_code(0), ERR_CNF_SECTION);
    ASSERT_EQ(conf_set_int_field_by_const(b, kCount, 8), 1);
    ASSERT_EQ(conf_set_string_field_by_const(a, kSecret, "hunter2"), 1);
    ASSERT_EQ(conf_set_string_field_by_const(b, kSecret, "hunter3"), 1);
    const int32_t bools[] = {1, 0};
    ASSERT_EQ(conf_set_ml_bool_field_by_const(a, kBools, bools, 2), 1);
    std::vector<int32_t> marks(kRows, 7);
    std::vector<int32_t> vault_marks(3, 7);
    std::string traced = vq::test::traced_on("CONFIG", [&] {
        EXPECT_EQ(conf_get_deferent_fields(a, b, kTable, kRows, marks.data()), 1) << err_get_error_msg();
        EXPECT_EQ(conf_get_deferent_fields(a, b, kVaultTable, 3, vault_marks.data()), 1) << err_get_error_msg();
    });
    std::string expected(kRows, '0');
    expected[2] = expected[8] = '1';  // count, bools
    std::string got;
    for (int32_t m : marks) {
        got += static_cast<char>('0' + m);
    }
    EXPECT_EQ(got, expected);
    EXPECT_EQ(vault_marks, (std::vector<int32_t>{0, 1, 0}));
    EXPECT_EQ(traced.find("hunter"), std::string::npos) << traced;
    EXPECT_NE(traced.find("field <secret> differs: <***password1****> <***password2****>"), std::string::npos)
        << traced;
    EXPECT_NE(traced.find("field <count> differs: <7> <8>"), std::string::npos) << traced;

    const conf_table_row retyped[] = {kTable[0], kTable[1], {kCount, "count", CONF_TYPE_STRING, nullptr, 0, 0, nullptr}};
    void *c = unbound();
    ASSERT_EQ(conf_set_table(c, retyped, 3), 1);
    EXPECT_EQ(conf_get_deferent_fields(a, c, kTable, 3, marks.data()), 0);
    EXPECT_EQ(error_at(0), "0x8210 configuration files mismatch fields : 1st - <integer> , in the 2nd - <string>.");
    ASSERT_EQ(conf_remove_field(b, "other", "port"), 1);
    EXPECT_EQ(conf_get_deferent_fields(a, b, kTable, kRows, marks.data()), 0);
    EXPECT_EQ(error_at(1), "0x820f did not find field by name <port>.");
    EXPECT_EQ(error_at(0),
              "0x820d configuration module mismatch fields. could not retrieve field constant <41>.");
}

// ---- Multi-line, big integers, files -------------------------------------------------------

TEST_F(Typed, MultiLineFieldsAndTheirStringForms) {
    void *h = handle();
    ASSERT_EQ(conf_set_ml_string_field_by_section_as_string_with_sep(h, "main", kLines, " x ;y;; z", ";"), 1);
    char **list = nullptr;
    ASSERT_EQ(conf_get_ml_string_field_by_const(h, kLines, &list), 1);
    ASSERT_EQ(list[0] != nullptr && list[1] != nullptr && list[2] != nullptr && list[3] != nullptr, true);
    EXPECT_EQ(std::string(list[0]) + "|" + list[1] + "|" + list[2] + "|" + list[3], "x|y||z");
    EXPECT_EQ(list[4], nullptr);
    // Setting a field from the list it handed out.
    ASSERT_EQ(conf_set_ml_string_field(h, "main", "lines", list), 1);
    char *joined = nullptr;
    ASSERT_EQ(conf_get_ml_string_field_by_const_as_string_with_sep(h, kLines, &joined, " + "), 1);
    EXPECT_STREQ(joined, "x + y +  + z");
    conf_free_buffer(joined);
    ASSERT_EQ(conf_set_ml_string_field_by_const_as_string_by_separator(h, kLines, "1::2", "::"), 1);
    ASSERT_EQ(conf_get_ml_string_field_as_string(h, "main", "lines", &joined), 1);
    EXPECT_STREQ(joined, "1,2");
    conf_free_buffer(joined);

    const int32_t bools[] = {5, 0, -1};
    ASSERT_EQ(conf_set_ml_bool_field(h, "main", "bools", bools, 3), 1);
    ASSERT_EQ(conf_set_ml_int_field_by_section(h, "main", kInts, bools, 3), 1);
    int32_t *values = nullptr;
    int32_t count = 0;
    ASSERT_EQ(conf_get_ml_bool_field_by_section(h, "main", kBools, &values, &count), 1);
    ASSERT_EQ(count, 3);
    EXPECT_EQ(values[0] * 100 + values[1] * 10 + values[2], 101);
    EXPECT_EQ(conf_set_ml_int_field_by_const(h, kInts, nullptr, 2), 0);

    // Through the text form and back into a fresh handle.
    std::string text = text_of(h);
    EXPECT_NE(text.find("lines=_ml_text_\n1\n2\n_ml_text_\nints=_ml_int_\n5\n0\n-1\n_ml_int_\n"
                        "bools=_ml_bool_\nTRUE\nFALSE\nTRUE\n_ml_bool_\n"),
              std::string::npos)
        << text;
    void *back = handle();
    ASSERT_EQ(conf_read_buffer_to_handle(back, text.c_str()), 1) << err_get_error_msg();
    ASSERT_EQ(conf_get_ml_int_field_by_const(back, kInts, &values, &count), 1);
    ASSERT_EQ(count, 3);
    EXPECT_EQ(values[2], -1);
    ASSERT_EQ(conf_read_buffer_to_handle(back, "[main]\nints=\n"), 1);
    ASSERT_EQ(conf_get_ml_int_field_by_const(back, kInts, &values, &count), 1);
    EXPECT_EQ(count, 0);
}

TEST_F(Typed, BigIntegersBeyondSixtyFourBitsRoundTripThroughAFile) {
    void *h = handle();
    slbn *huge = slbn_from_string("-340282366920938463463374607431768211457");
    ASSERT_NE(huge, nullptr);
    ASSERT_EQ(conf_set_big_int_field(h, "main", "big", huge), 1);
    slbn_free(huge);  // the handle keeps its own copy
    std::string file = ::testing::TempDir() + "vq_conf_typed_big.cfg";
    ASSERT_EQ(conf_write(h, file.c_str()), 1) << err_get_error_msg();
    void *back = handle();
    ASSERT_EQ(conf_read_file_to_handle(back, file.c_str()), 1) << err_get_error_msg();
    std::filesystem::remove(file);
    slbn *got = nullptr;
    ASSERT_EQ(conf_get_big_int_field_by_section(back, "main", kBig, &got), 1);
    EXPECT_EQ(big_text(got), "-340282366920938463463374607431768211457");
    slbn_free(got);
    ASSERT_EQ(conf_copy_big_int_field_by_const(back, h, kBig), 1);
    EXPECT_EQ(big_by_const(h, kBig), "-340282366920938463463374607431768211457");
}

TEST_F(Typed, TableOnlyReadingAndWritingLeaveUnknownsOut) {
    void *h = handle();
    ASSERT_EQ(conf_use_only_table_on_read(h, 1), 1);
    ASSERT_EQ(conf_read_buffer_to_handle(h,
                                         "[main]\ncount=2\nstray=_ml_text_\nx=1\n_ml_text_\n"
                                         "[unknown]\ny=2\n[other]\nport=3\n"),
              1)
        << err_get_error_msg();
    EXPECT_EQ(int_by_const(h, kCount), 2);
    EXPECT_EQ(int_by_const(h, kPort), 3);
    std::string all = text_of(h);
    EXPECT_EQ(all.find("stray"), std::string::npos);
    EXPECT_EQ(all.find("x=1"), std::string::npos);
    EXPECT_EQ(all.find("unknown"), std::string::npos);

    ASSERT_EQ(conf_add_field_to_section(h, "main", "extra"), 1);
    ASSERT_EQ(conf_set_section(h, "added"), 1);
    EXPECT_NE(text_of(h).find("extra="), std::string::npos);
    ASSERT_EQ(conf_use_only_table_on_write(h, 1), 1);
    std::string written = text_of(h);
    EXPECT_EQ(written.find("extra"), std::string::npos);
    EXPECT_EQ(written.find("[added]"), std::string::npos);
    EXPECT_NE(written.find("[other]\nport=3\n"), std::string::npos);

    void *loose = unbound();  // without a table nothing is left out
    ASSERT_EQ(conf_use_only_table_on_read(loose, 1), 1);
    ASSERT_EQ(conf_use_only_table_on_write(loose, 1), 1);
    ASSERT_EQ(conf_read_buffer_to_handle(loose, "[any]\nx=1\n"), 1);
    EXPECT_EQ(text_of(loose), "[any]\nx=1\n");
}

TEST_F(Typed, EncryptedFieldsAreDecipheredOnRead) {
    void *h = handle();
    ASSERT_EQ(conf_set_sections_by_prefix(h, kVaultTable, 5, "vault"), 1);
    EXPECT_EQ(conf_read_buffer_to_handle(h, "[vault]\nnote=plain\nsecret=*not a cipher*\n"), 0);
    EXPECT_EQ(err_get_error_code(1), ERR_CNF_ENCRYPT);
    EXPECT_EQ(error_at(0), "0x820b failed to read field <secret>.");
    ASSERT_EQ(conf_set_string_field_by_const(h, kSecret, "s3cret value"), 1);
    char *buffer = nullptr;
    if (conf_write_buffer(h, &buffer) == 0) {
        GTEST_SKIP() << "values cannot be enciphered here: " << err_get_error_msg();
    }
    std::string text = buffer;
    conf_free_buffer(buffer);
    EXPECT_EQ(text.find("s3cret"), std::string::npos) << text;
    void *back = handle();
    ASSERT_EQ(conf_set_sections_by_prefix(back, kVaultTable, 5, "vault"), 1);
    ASSERT_EQ(conf_read_buffer_to_handle(back, text.c_str()), 1) << err_get_error_msg();
    char *plain = nullptr;
    ASSERT_EQ(conf_get_string_field_by_const(back, kSecret, &plain), 1);
    EXPECT_STREQ(plain, "s3cret value");
}

// ---- The library's own tables ------------------------------------------------------------------

TEST_F(Typed, PackAndKillListTablesBindAndRead) {
    void *h = unbound();
    ASSERT_EQ(vq_get_pack_cf_keys_number(), 19);
    ASSERT_EQ(conf_set_table(h, vq_get_pack_cf_table(), vq_get_pack_cf_keys_number()), 1) << err_get_error_msg();
    ASSERT_EQ(conf_read_buffer_to_handle(h,
                                         "[Pack Params]\nList Name=files.lst\nFile Indexes=_ml_int_\n3\n9\n_ml_int_\n"
                                         "[Processing Params]\nBytes Total=18446744073709551616\n"),
              1)
        << err_get_error_msg();
    int32_t buffer_size = 0, compress = -1, count = 0;
    int32_t *indexes = nullptr;
    char *list = nullptr;
    ASSERT_EQ(conf_get_int_field(h, "Pack Params", "Buffer size", &buffer_size), 1);
    ASSERT_EQ(conf_get_bool_field_by_const(h, 0x81, &compress), 1);
    ASSERT_EQ(conf_get_string_field_by_section(h, "Pack Params", 0x78, &list), 1);
    ASSERT_EQ(conf_get_ml_int_field_by_const(h, 0x7d, &indexes, &count), 1);
    EXPECT_EQ(buffer_size, 64000);
    EXPECT_EQ(compress, 0);  // "TRUE" in the string column, 0 in the integer one
    EXPECT_STREQ(list, "files.lst");
    ASSERT_EQ(count, 2);
    EXPECT_EQ(indexes[1], 9);
    EXPECT_EQ(big_by_const(h, 0x9c), "18446744073709551616");
    EXPECT_EQ(big_by_const(h, 0x9b), "0");

    ASSERT_EQ(vq_get_kill_list_cf_keys_number(), 2);
    ASSERT_EQ(conf_set_table(h, vq_get_kill_list_cf_table(), 2), 1);
    ASSERT_EQ(conf_set_ml_string_field_by_const_as_string(h, 0x2, "12 a.exe,13 b.exe"), 1);
    EXPECT_NE(text_of(h).find("[Kill List Params]\nKill List Unique Pids And Image Names=_ml_text_\n12 a.exe\n"),
              std::string::npos);
}

// ---- Threads ---------------------------------------------------------------------------------

TEST_F(Typed, SharedHandlesServeSettersGettersAndCrossedCopies) {
    void *a = handle(true);
    void *b = handle(true);
    ASSERT_EQ(conf_use_hash_table(b, 1, 31), 1);
    constexpr int kRounds = 400;
    std::atomic<int> failures{0};
    auto worker = [&](void *mine, void *theirs, int32_t base) {
        for (int i = 0; i < kRounds; ++i) {
            int32_t v = 0;
            slbn *n = slbn_from_int64(base + i);
            char *joined = nullptr;
            bool ok = conf_set_int_field_by_const(mine, kCount, base + i) == 1 &&
                      conf_get_int_field_by_const(mine, kCount, &v) == 1 &&
                      conf_set_big_int_field_by_const(mine, kBig, n) == 1 &&
                      conf_set_ml_string_field_by_const_as_string(mine, kLines, "p,q") == 1 &&
                      conf_get_ml_string_field_by_const_as_string(theirs, kLines, &joined) == 1 &&
                      conf_copy_handle_by_table(mine, theirs, kTable, 9) == 1 &&
                      conf_copy_int_field_by_const(theirs, mine, kPort) == 1;
            failures += ok ? 0 : 1;
            slbn_free(n);
            std::free(joined);
        }
    };
    std::thread one(worker, a, b, 1000);
    std::thread two(worker, b, a, 5000);
    one.join();
    two.join();
    EXPECT_EQ(failures.load(), 0) << err_get_error_msg();
    int32_t ca = int_by_const(a, kCount);
    int32_t cb = int_by_const(b, kCount);
    EXPECT_TRUE(ca == 1000 + kRounds - 1 || ca == 5000 + kRounds - 1) << ca;
    EXPECT_TRUE(cb == 1000 + kRounds - 1 || cb == 5000 + kRounds - 1) << cb;
}

}  // namespace
