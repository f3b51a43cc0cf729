// The parser's value checkers and converters, saved contexts and handles,
// canonical lines, the INI dump and the parse cache.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "support/handle_checks.h"
#include "vq_glob/cli.h"
#include "vq_glob/dbg.h"
#include "vq_glob/err.h"
#include "vq_glob/llist.h"
#include "vq_glob/memory.h"

namespace {

const cli_bit_keyword kEvents[] = {{"START", 0}, {"STOP", 1}, {"ERROR", 9}, {"LAST", 319}, {nullptr, 0}};
const cli_item kSyncItems[] = {
    {'P', "SOURCE", CLI_MUST | CLI_LIST, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr},
    {'Q', "LOG", CLI_NEGATABLE | CLI_DEFAULT, nullptr, "sync.log", nullptr, nullptr, nullptr, 0, nullptr, nullptr},
    {'Q', "COUNT", CLI_NUMBER, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr},
    {'Q', "MODE", 0, "FAST|SAFE", "SAFE", nullptr, nullptr, nullptr, 0, nullptr, nullptr},
    {'Q', "NOTIFY", CLI_LIST, nullptr, "ERROR", nullptr, nullptr, nullptr, 0, kEvents, nullptr},
    {'Q', "TAG", 0, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr},
    {0, nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr}};
const cli_command kCommands[] = {{"SYNC", kSyncItems, nullptr}, {nullptr, nullptr, nullptr}};

class CliContext : public ::testing::Test {
protected:
    void SetUp() override {
        cli_clean_up();
        ASSERT_EQ(cli_init(), 1);
        ASSERT_EQ(cli_set_command_table(kCommands), 1);
    }
    void TearDown() override { cli_clean_up(); }

    static std::string value(const char *name, char kind = 'Q') {
        char *v = nullptr;
        return cli_get_value(name, kind, &v) == 1 ? std::string(v) : std::string("<none>");
    }
};

// ---- checkers ---------------------------------------------------------------------

TEST(CliCheckers, NumbersCountDigitsAfterAnOptionalMinus) {
    EXPECT_EQ(cli_check_number("-12", 3), 2);
    EXPECT_EQ(cli_check_number("1a", 2), 0);
    EXPECT_EQ(cli_check_number("123", 2), 2);  // only length characters are looked at
    EXPECT_EQ(cli_check_number("12", 5), 0);   // the NUL is no digit: no overread
    EXPECT_EQ(cli_check_number("x", 0), 1);
}

TEST(CliCheckers, DatesTimesAndPeriods) {
    struct tm t {};
    ASSERT_EQ(cli_check_date(0, "05032024140709", &t), 1);
    EXPECT_EQ(t.tm_mday, 5);
    EXPECT_EQ(t.tm_mon, 2);
    EXPECT_EQ(t.tm_year, 124);
    EXPECT_EQ(t.tm_hour, 14);
    ASSERT_EQ(cli_asc_to_clidate("05032024140709", &t), 1);
    EXPECT_EQ(cli_check_date(0, "not a date", &t), 0);
    EXPECT_EQ(cli_check_date(1, "not a date", nullptr), 1);

    char time_text[] = "8:05";
    char bad_time[] = "25:00";
    EXPECT_EQ(cli_check_time_string_format(0, time_text), 1);
    EXPECT_EQ(cli_check_time_string_format(0, bad_time), 0);
    EXPECT_EQ(cli_check_time_string_format(1, bad_time), 1);

    char minutes[12] = "90";
    ASSERT_EQ(cli_conv_string_to_minutes(0, minutes), 1);
    EXPECT_STREQ(minutes, "90");
    std::strcpy(minutes, "150s");
    ASSERT_EQ(cli_conv_string_to_minutes(0, minutes), 1);
    EXPECT_STREQ(minutes, "2");
    char seconds[12] = "1h30m";
    ASSERT_EQ(cli_conv_string_to_seconds(0, seconds), 1);
    EXPECT_STREQ(seconds, "5400");
    std::strcpy(seconds, "soon");
    EXPECT_EQ(cli_conv_string_to_seconds(0, seconds), 0);
    EXPECT_STREQ(seconds, "soon");
}

TEST(CliCheckers, WeeklySchedulesAreReadAtTheirFixedStride) {
    EXPECT_STREQ(parse_weekly("(w:1 h:8 m:5)"), "Monday 08:05");
    // elements padded to 16 and then 17 characters
    std::string padded = "(w:1 h:08 m:05) " + std::string(" (w:3 h:17 m:30) ") + " (w:0 h:23 m:59)";
    EXPECT_STREQ(parse_weekly(padded.c_str()), "Monday 08:05, Wednesday 17:30, Sunday 23:59");
    // unpadded elements fall off the stride and are not read
    EXPECT_STREQ(parse_weekly("(w:1 h:8 m:5) (w:2 h:9 m:7)"), "Monday 08:05");
    EXPECT_STREQ(parse_weekly("every day"), "every day");
    EXPECT_STREQ(parse_weekly("(w:9 h:8 m:5)"), "(w:9 h:8 m:5)");
    std::string long_text = "(w:1 h:8 m:5)" + std::string(220, ' ');
    EXPECT_EQ(parse_weekly(long_text.c_str()), long_text.c_str());
}

TEST(CliCheckers, NamedBitMasksTakeTheDefaultListThenTheValue) {
    unsigned char *mask = nullptr;
    ASSERT_EQ(cli_user_bit_mask(0, "start,Last", &mask, &kSyncItems[4]), 1);
    ASSERT_NE(mask, nullptr);
    EXPECT_EQ(cli_user_bit_mask_test(0, mask), 1);
    EXPECT_EQ(cli_user_bit_mask_test(1, mask), 0);
    EXPECT_EQ(cli_user_bit_mask_test(9, mask), 1);  // from the default list
    EXPECT_EQ(cli_user_bit_mask_test(319, mask), 1);
    EXPECT_EQ(mask[39], 0x80);
    EXPECT_EQ(cli_user_bit_mask_test(320, mask), 0);
    std::free(mask);
    EXPECT_EQ(cli_user_bit_mask(0, "start,bogus", &mask, &kSyncItems[4]), 0);
    EXPECT_EQ(mask, nullptr);
    EXPECT_STREQ(err_get_error_text(0), "value 'bogus' is not allowed for qualifier 'NOTIFY'");
    char text[] = "MiXed z{\xC3\xA9}";  // UTF-8 bytes stay as they are
    EXPECT_STREQ(cli_to_upper(text), "MIXED Z{\xC3\xA9}");
}

// ---- contexts -----------------------------------------------------------------------

TEST_F(CliContext, SavedContextsLoadBackAndUnknownIdsKeepTheCurrentResult) {
    ASSERT_EQ(cli_dcl_parse("sync a -count=1"), 1);
    ASSERT_EQ(cli_save_context(7), 1);
    ASSERT_EQ(cli_dcl_parse("sync b -count=2"), 1);
    ASSERT_EQ(cli_save_context(8), 1);
    ASSERT_EQ(cli_load_context(7), 1);
    EXPECT_EQ(value("COUNT"), "1");
    EXPECT_EQ(cli_load_context(99), 0);
    EXPECT_EQ(value("SOURCE", 'P'), "a");
    ASSERT_EQ(cli_delete_context(7), 1);
    EXPECT_EQ(cli_delete_context(7), 0);
    EXPECT_EQ(cli_load_context(7), 0);
    ASSERT_EQ(cli_load_context(8), 1);
    EXPECT_EQ(value("COUNT"), "2");
    for (int32_t id = 100; id < 131; ++id) {
        ASSERT_EQ(cli_save_context(id), 1) << id;
    }
    EXPECT_EQ(cli_save_context(200), 0) << "32 places";
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_GENERAL);
    EXPECT_EQ(cli_save_context(8), 1) << "an id in use keeps its place";
    ASSERT_EQ(cli_clean_context(), 1);
    EXPECT_EQ(cli_load_context(8), 0);
}

TEST_F(CliContext, HandlesHoldAResultOfTheirOwn) {
    void *h = cli_get_context_handle();
    ASSERT_NE(h, nullptr);
    ASSERT_EQ(cli_dcl_parse("sync a -tag=one"), 1);
    ASSERT_EQ(cli_save_context_to_handle(h), 1);
    ASSERT_EQ(cli_dcl_parse("sync b -tag=two"), 1);
    ASSERT_EQ(cli_load_context_from_handle(h), 1);
    EXPECT_EQ(value("TAG"), "one");
    ASSERT_EQ(cli_dcl_parse("sync c"), 1);
    ASSERT_EQ(cli_truncate_handle(h), 1);
    ASSERT_EQ(cli_load_context_from_handle(h), 1);
    EXPECT_EQ(cli_get_command(), nullptr);
    EXPECT_EQ(value("TAG"), "<none>");
    EXPECT_EQ(cli_free_context_handle(h), 1);
}

TEST_F(CliContext, CurrentResultsCanBeCopiedAndFreed) {
    ASSERT_EQ(cli_dcl_parse("sync a -tag=one"), 1);
    void *h = cli_get_context_handle();
    ASSERT_EQ(cli_save_context_to_handle(h), 1);
    const void *one = cli_get_current_res();
    ASSERT_EQ(cli_dcl_parse("sync b -tag=two"), 1);
    ASSERT_EQ(cli_set_current_res(one), 1);  // still alive: the handle holds it
    EXPECT_EQ(value("TAG"), "one");
    ASSERT_EQ(cli_free_context(), 1);
    EXPECT_EQ(cli_get_command(), nullptr);
    EXPECT_STREQ(cli_get_command_line(), "");
    // a context handle stands for its result too
    ASSERT_EQ(cli_set_current_res(h), 1);
    EXPECT_EQ(value("TAG"), "one");
    EXPECT_EQ(cli_free_context_handle(h), 1);
    EXPECT_EQ(value("TAG"), "one") << "the current result outlives the handle";
}

// Every function taking a context handle or a result, given a handle of
// another kind: refused with PARAMS, and the current result left alone.
TEST_F(CliContext, HandlesOfAnotherKindAreRefused) {
    void *list = ll_init_list();
    ASSERT_NE(list, nullptr);
    void *context = cli_get_context_handle();
    ASSERT_NE(context, nullptr);
    ASSERT_EQ(cli_dcl_parse("sync a -tag=kept"), 1);
    const void *result = cli_get_current_res();
    vq::test::expect_refused({
        {"cli_free_context_handle", "handle", [&] { return cli_free_context_handle(list) == 0; }},
        {"cli_truncate_handle", "handle", [&] { return cli_truncate_handle(list) == 0; }},
        {"cli_save_context_to_handle", "handle", [&] { return cli_save_context_to_handle(list) == 0; }},
        {"cli_load_context_from_handle", "handle", [&] { return cli_load_context_from_handle(list) == 0; }},
        {"cli_set_current_res", "result", [&] { return cli_set_current_res(list) == 0; }},
        // a result is no context handle
        {"cli_save_context_to_handle", "handle",
         [&] { return cli_save_context_to_handle(const_cast<void *>(result)) == 0; }},
        {"cli_free_context_handle", "handle",
         [&] { return cli_free_context_handle(const_cast<void *>(result)) == 0; }},
        {"sl_debug_cli_free_context_handle", "handle",
         [&] { return sl_debug_cli_free_context_handle("ctx.c", 1, list), true; }},
    });
    EXPECT_EQ(cli_get_current_res(), result);
    EXPECT_EQ(value("TAG"), "kept");
    EXPECT_EQ(ll_get_count(list), 0) << "the list is untouched";
    EXPECT_EQ(cli_free_context_handle(nullptr), 0);
    EXPECT_TRUE(vq::test::refused("cli_free_context_handle", "handle"));
    EXPECT_EQ(cli_free_context_handle(context), 1);
    ll_dispose_list(&list);
}

TEST_F(CliContext, FreedHandlesAndResultsAreRefused) {
    VQ_SKIP_UNDER_SANITIZER();
    void *context = cli_get_context_handle();
    ASSERT_NE(context, nullptr);
    ASSERT_EQ(cli_free_context_handle(context), 1);
    ASSERT_EQ(cli_dcl_parse("sync a -tag=gone"), 1);
    const void *stale = cli_get_current_res();
    ASSERT_EQ(cli_dcl_parse("sync b -tag=kept"), 1);  // nothing else held the first result
    vq::test::expect_refused({
        {"cli_free_context_handle", "handle", [&] { return cli_free_context_handle(context) == 0; }},
        {"cli_truncate_handle", "handle", [&] { return cli_truncate_handle(context) == 0; }},
        {"cli_save_context_to_handle", "handle", [&] { return cli_save_context_to_handle(context) == 0; }},
        {"cli_load_context_from_handle", "handle",
         [&] { return cli_load_context_from_handle(context) == 0; }},
        {"cli_set_current_res", "result", [&] { return cli_set_current_res(context) == 0; }},
        {"cli_set_current_res", "result", [&] { return cli_set_current_res(stale) == 0; }},
    });
    EXPECT_EQ(value("TAG"), "kept");
}

TEST_F(CliContext, TrackedHandlesShowInTheTrackerReport) {
    std::string path = ::testing::TempDir() + "vq_cli_tracked.txt";
    std::remove(path.c_str());
    sl_malloc_init(path.c_str());
    void *kept = sl_debug_cli_get_context_handle("ctx.c", 10);
    void *freed = sl_debug_cli_get_context_handle("ctx.c", 20);
    ASSERT_NE(kept, nullptr);
    ASSERT_EQ(cli_dcl_parse("sync a"), 1);
    ASSERT_EQ(cli_save_context_to_handle(freed), 1);
    sl_debug_cli_free_context_handle("ctx.c", 21, freed);
    sl_malloc_dump_info("check");
    sl_debug_cli_free_context_handle("ctx.c", 30, cli_get_context_handle());  // unknown: reported, still freed
    sl_malloc_end();
    std::stringstream text;
    text << std::ifstream(path).rdbuf();
    char line[128];
    std::snprintf(line, sizeof line, "%-30s %5d unfreed context handle \n", "ctx.c/10", 1);
    EXPECT_NE(text.str().find(line), std::string::npos) << text.str();
    EXPECT_EQ(text.str().find("ctx.c/20"), std::string::npos);
    EXPECT_NE(text.str().find("free on unallocated context handle line ctx.c/30"), std::string::npos);
    EXPECT_EQ(cli_free_context_handle(kept), 1);
    std::remove(path.c_str());
}

// ---- canonical lines ------------------------------------------------------------

TEST_F(CliContext, CanonicalLinesReadBackToTheSameResult) {
    ASSERT_EQ(cli_dcl_parse("sy \"a b\",\"-x\",,\"@y\" -co=3 -nolog -tag=\"q\\\"uote\" -mode -tag=(p\\)q)"), 1);
    std::string canon = cli_get_canon_command_line();
    EXPECT_EQ(canon, "SYNC \"a b\",\"-x\",\"\",\"@y\" -COUNT=3 -NOLOG -TAG=\"q\\\"uote\",\"p)q\" -MODE=SAFE");
    char *lean = cli_new_get_canon_command_line(1);
    ASSERT_NE(lean, nullptr);
    EXPECT_STREQ(lean, "SYNC \"a b\",\"-x\",\"\",\"@y\" -COUNT=3 -NOLOG -TAG=\"q\\\"uote\",\"p)q\" -MODE");
    ASSERT_EQ(cli_dcl_parse(lean), 1);
    std::free(lean);
    EXPECT_EQ(cli_get_canon_command_line(), canon);
    EXPECT_EQ(value("SOURCE", 'P'), "a b,-x,,@y");

    ASSERT_EQ(cli_dcl_parse("sync a"), 1);
    EXPECT_STREQ(cli_get_canon_command_line(), "SYNC a -LOG=sync.log");
    ASSERT_EQ(cli_remove_defaults(), 1);
    EXPECT_STREQ(cli_get_canon_command_line(), "SYNC a");
    EXPECT_EQ(cli_present("LOG", 'Q'), 0);
}

// ---- INI dump -----------------------------------------------------------------------

TEST_F(CliContext, IniDumpWritesOneSectionPerQualifierAndALinePerItem) {
    std::string path = ::testing::TempDir() + "vq_cli_dump.ini";
    std::remove(path.c_str());
    ASSERT_EQ(cli_dcl_parse("sync a -nolog -count=7 -mode -tag"), 1);
    ASSERT_EQ(cli_dump_to_ini(path.c_str(), 5), 1);
    ASSERT_EQ(cli_dcl_parse("sync a"), 1);
    ASSERT_EQ(cli_dump_to_ini(path.c_str(), 12), 1);
    std::stringstream text;
    text << std::ifstream(path).rdbuf();
    EXPECT_EQ(text.str(),
              "\n"
              "[LOG_005]\nNAME=LOG\nNEGATED=1\nVALUE=\n\n"
              "[COUNT_005]\nNAME=COUNT\nVALUE=7\n\n"
              "[MODE_005]\nNAME=MODE\nVALUE_DEFAULT=1\nVALUE=SAFE\n\n"
              "[TAG_005]\nNAME=TAG\nVALUE=\n\n"
              "\n"
              "[LOG_012]\nNAME=LOG\nDEFAULT=1\nVALUE_DEFAULT=1\nVALUE=sync.log\n\n");
    std::remove(path.c_str());
    EXPECT_EQ(cli_dump_to_ini((::testing::TempDir() + "no/such/dir/x.ini").c_str(), 1), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_GENERAL);
}

// ---- parse cache ----------------------------------------------------------------------

TEST(CliCache, HashSamplesWordsOneTwoFourAndSoOn) {
    EXPECT_EQ(cc_hash_command_line("ab", 2), 2u ^ 0x6162u);
    EXPECT_EQ(cc_hash_command_line("\x80", 1), 1u ^ 0xFFFFFF80u);  // sign-extended byte
    EXPECT_EQ(cc_hash_command_line("abcdefgh", 8), 8u ^ 0x68676665u);  // word 2 lies past the end
    EXPECT_EQ(cc_hash_command_line("abcdefghijkl", 12), 12u ^ 0x68676665u ^ 0x6C6B6A69u);
    std::string line(40, 'x');
    line[4 * 3] = 'y';  // word 3 is not sampled
    EXPECT_EQ(cc_hash_command_line(line.c_str(), 40), cc_hash_command_line(std::string(40, 'x').c_str(), 40));
    line[4 * 8] = 'y';  // word 8 is
    EXPECT_NE(cc_hash_command_line(line.c_str(), 40), cc_hash_command_line(std::string(40, 'x').c_str(), 40));
}

TEST_F(CliContext, CacheServesRepeatedLinesAndTheNewestLineWinsASlot) {
    int32_t lookups = 0;
    int32_t hits = 0;
    int32_t rate = 0;
    EXPECT_EQ(cc_get_cache_statistics(&lookups, &hits, &rate), 0);
    ASSERT_EQ(cc_set_command_table_cache("test", 7), 1);
    ASSERT_EQ(cc_dcl_parse("sync a -count=1"), 1);
    const void *first = cli_get_current_res();
    ASSERT_EQ(cc_dcl_parse("sync a -count=1"), 1);
    EXPECT_EQ(cli_get_current_res(), first) << "served from the slot, not parsed";
    ASSERT_EQ(cc_get_cache_statistics(&lookups, &hits, &rate), 1);
    EXPECT_EQ(lookups, 2);
    EXPECT_EQ(hits, 1);
    EXPECT_EQ(rate, 50);

    // "SYNC" and "sync" differ in the first four bytes only: same hash, same slot
    ASSERT_EQ(cc_hash_command_line("SYNC a -count=1", 15), cc_hash_command_line("sync a -count=1", 15));
    ASSERT_EQ(cc_dcl_parse("SYNC a -count=1"), 1);
    EXPECT_NE(cli_get_current_res(), first);
    ASSERT_EQ(cc_dcl_parse("sync a -count=1"), 1);  // replaced: parsed again
    ASSERT_EQ(cc_get_cache_statistics(&lookups, &hits, nullptr), 1);
    EXPECT_EQ(lookups, 4);
    EXPECT_EQ(hits, 1);

    // a failed parse leaves the slot as it was
    const void *kept = cli_get_current_res();
    ASSERT_EQ(cc_dcl_parse("sync a -count=1x"), 0);
    ASSERT_EQ(cc_dcl_parse("sync a -count=1"), 1);
    EXPECT_EQ(cli_get_current_res(), kept);

    // a change of settings makes the saved results stale
    int32_t changes = cli_get_context_changes();
    ASSERT_EQ(cli_set_unescape(1), 1);
    EXPECT_EQ(cli_get_context_changes(), changes + 1);
    ASSERT_EQ(cc_dcl_parse("sync a -count=1"), 1);
    EXPECT_NE(cli_get_current_res(), kept);
    ASSERT_EQ(cc_get_cache_statistics(&lookups, &hits, nullptr), 1);
    EXPECT_EQ(lookups, 7);
    EXPECT_EQ(hits, 2);
}

TEST_F(CliContext, CacheTracesEachLookup) {
    std::string path = ::testing::TempDir() + "vq_cli_cache_trace.txt";
    ASSERT_EQ(dbg_set_debug_output_filename(path.c_str()), 1);
    dbg_push_debug_mask();
    dbg_set_debug_mask_string("CLI_CACHE");
    ASSERT_EQ(cc_set_command_table_cache("traced", 5), 1);
    ASSERT_EQ(cc_dcl_parse("sync a"), 1);
    dbg_pop_debug_mask();
    dbg_close_debug_output();
    dbg_set_debug_output(nullptr);
    std::stringstream text;
    text << std::ifstream(path).rdbuf();
    uint32_t hash = cc_hash_command_line("sync a", 6);
    std::string expected = "in cc_dcl_parse(): cache_id=<traced> salt=<" + std::to_string(static_cast<int>(hash)) +
                           "> idx=<" + std::to_string(hash % 5) + "> line=<sync a>\n";
    EXPECT_EQ(text.str(), expected);
    std::remove(path.c_str());
}

}  // namespace
