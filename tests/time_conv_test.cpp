// Time stamps: ordering, wire order, the per-thread zone, the text forms and
// their parsers, relative dates, broken-down and file times, the stopwatch.
//
// Local-time expectations are computed with the C runtime's mktime/localtime,
// which is the library's documented rule for texts without a zone, so the
// tests hold in any machine zone; absolute values in a fixed zone are checked
// where the zone can be set (TZ on POSIX).
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <string>
#include <thread>

#include "vq_glob/dbg.h"
#include "vq_glob/err.h"
#include "vq_glob/tvtime.h"

namespace {

// Seconds of a local wall-clock time as mktime gives it.
int64_t local_seconds(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
    std::tm tm{};
    tm.tm_year = year - 1900;
    tm.tm_mon = month - 1;
    tm.tm_mday = day;
    tm.tm_hour = hour;
    tm.tm_min = minute;
    tm.tm_sec = second;
    tm.tm_isdst = -1;
    return static_cast<int64_t>(std::mktime(&tm));
}

std::tm local_fields(const tvtime &t) {
    std::tm tm{};
    EXPECT_EQ(conv_tolvenar_to_tm(&t, &tm), 1);
    return tm;
}

tvtime stamp(uint32_t seconds, int32_t zone = 0) { return tvtime{seconds, zone}; }

// How far seconds lies from the present.
long long off_now(int64_t seconds) { return std::llabs(seconds - static_cast<int64_t>(std::time(nullptr))); }

// Captures what the TIME channel writes while fn runs.
template <typename Fn>
std::string traced(Fn fn) {
    dbg_clear_debug_mask();
    dbg_add_debug_mask("TIME");
    ::testing::internal::CaptureStdout();
    fn();
    std::string out = ::testing::internal::GetCapturedStdout();
    dbg_clear_debug_mask();
    return out;
}

class TimeConv : public ::testing::Test {
protected:
    void SetUp() override {
        err_set_log_interactive(0);
        err_clear_error_stack();
    }
    // A failing call leaves exactly one entry of the given code.
    static void expect_error(uint32_t code) {
        EXPECT_EQ(err_get_stack_depth(), 1);
        EXPECT_EQ(err_get_error_code(0), code) << err_get_error_msg();
        err_clear_error_stack();
    }
};

// ---- ordering, limits, wire order -----------------------------------------------

TEST_F(TimeConv, StampsCompareBySignedSecondsOnly) {
    tvtime east = stamp(1000, 7200), west = stamp(1000, -18000), later = stamp(1001, 0);
    EXPECT_EQ(tolv_difftime(&east, &west), 0);
    EXPECT_EQ(get_tolvenar_time_diff(&east, &west), 0);
    EXPECT_EQ(tolv_difftime(&east, &later), -1);
    EXPECT_EQ(tolv_difftime(&later, &east), 1);
    EXPECT_EQ(get_tolvenar_time_diff(&east, &later), -1);
    tvtime high_bit = stamp(0x80000000u);  // negative when read as signed
    tvtime zero = stamp(0);
    EXPECT_EQ(tolv_difftime(&high_bit, &zero), -1);

    // Ties give the second argument, strictly earlier the first.
    EXPECT_EQ(min_time(&east, &west), &west);
    EXPECT_EQ(min_time(&west, &east), &east);
    EXPECT_EQ(min_time(&east, &later), &east);
    EXPECT_EQ(min_time(&later, &east), &east);

    tvtime t = stamp(100);
    EXPECT_EQ(add_seconds_to_tolvenar(&t, -101), 1);
    EXPECT_EQ(t.seconds, 0xFFFFFFFFu);

    EXPECT_EQ(get_max_date(&t), 1);
    EXPECT_EQ(t.seconds, 2145923999u);
    EXPECT_EQ(get_min_date(&t), 1);
    EXPECT_EQ(t.seconds, 0u);
    EXPECT_EQ(t.zone, get_timezone());
}

TEST_F(TimeConv, WireOrderIsBigEndianAndRoundTrips) {
    tvtime t = stamp(1, -3600);
    ASSERT_EQ(hton_time(&t), 1);
    unsigned char bytes[8];
    std::memcpy(bytes, &t, sizeof bytes);
    const unsigned char expected[8] = {0x00, 0x00, 0x00, 0x01, 0xFF, 0xFF, 0xF1, 0xF0};
    EXPECT_EQ(std::memcmp(bytes, expected, sizeof bytes), 0);
    ASSERT_EQ(ntoh_time(&t), 1);
    EXPECT_EQ(t.seconds, 1u);
    EXPECT_EQ(t.zone, -3600);

    tvtime mixed = stamp(0x12345678u, 0x0A0B0C0D);
    hton_time(&mixed);
    std::memcpy(bytes, &mixed, sizeof bytes);
    const unsigned char mixed_wire[8] = {0x12, 0x34, 0x56, 0x78, 0x0A, 0x0B, 0x0C, 0x0D};
    EXPECT_EQ(std::memcmp(bytes, mixed_wire, sizeof bytes), 0);
}

TEST_F(TimeConv, NullArgumentsFailWithAParameterError) {
    tvtime t = stamp(1);
    EXPECT_EQ(hton_time(nullptr), 0);
    expect_error(ERR_GEN_PARAMS);
    EXPECT_EQ(min_time(&t, nullptr), nullptr);
    expect_error(ERR_GEN_PARAMS);
    EXPECT_EQ(conv_string_to_tvtime(nullptr, &t), 0);
    expect_error(ERR_GEN_PARAMS);
    EXPECT_EQ(conv_tvtime_to_string(nullptr), nullptr);
    expect_error(ERR_GEN_PARAMS);
    EXPECT_EQ(compute_relative_date_with_base("+1d", &t, nullptr), 0);
    expect_error(ERR_GEN_PARAMS);
    EXPECT_EQ(get_system_time(nullptr), 0);
    expect_error(ERR_GEN_PARAMS);
}

// ---- the zone ---------------------------------------------------------------------

// The UTC offset at t as the local wall clock shows it, without mktime.
int64_t offset_at(std::time_t t, bool *dst) {
    std::tm local = *std::localtime(&t);
    std::tm utc = *std::gmtime(&t);
    *dst = local.tm_isdst > 0;
    int64_t days = local.tm_yday - utc.tm_yday;
    if (local.tm_year != utc.tm_year) {
        days = local.tm_year > utc.tm_year ? 1 : -1;
    }
    return days * 86400 + (local.tm_hour - utc.tm_hour) * 3600 + (local.tm_min - utc.tm_min) * 60 +
           (local.tm_sec - utc.tm_sec);
}

// The zone's rule: the standard offset, plus one hour while daylight saving
// is in effect (whatever the zone's own saving is). The standard offset is
// read half a year away when saving is in effect now.
int64_t expected_zone() {
    std::time_t now = std::time(nullptr);
    bool dst = false;
    int64_t offset = offset_at(now, &dst);
    if (!dst) {
        return offset;
    }
    for (std::time_t other : {now + 182 * 86400, now - 182 * 86400}) {
        bool other_dst = true;
        int64_t standard = offset_at(other, &other_dst);
        if (!other_dst) {
            return standard + 3600;
        }
    }
    return offset;
}

TEST_F(TimeConv, ZoneIsTheLocalOffsetAndStampsCarryIt) {
    EXPECT_EQ(get_timezone(), expected_zone());
    tvtime now{};
    ASSERT_EQ(get_system_time(&now), 1);
    EXPECT_EQ(now.zone, get_timezone());
    EXPECT_LE(off_now(now.seconds), 2);

    int32_t zones[2] = {1, 1};
    std::thread first([&] { zones[0] = get_timezone(); });
    std::thread second([&] { zones[1] = get_timezone(); });
    first.join();
    second.join();
    EXPECT_EQ(zones[0], get_timezone());
    EXPECT_EQ(zones[1], get_timezone());
}

#ifndef _WIN32
void set_tz(const char *tz) {
    if (tz != nullptr) {
        setenv("TZ", tz, 1);
    } else {
        unsetenv("TZ");
    }
    tzset();
}
#endif

TEST_F(TimeConv, ZoneIsTakenOncePerThreadPosix) {
#ifdef _WIN32
    GTEST_SKIP() << "the Windows runtime takes its zone from the system settings, not from TZ";
#else
    const char *saved = std::getenv("TZ");
    std::string saved_tz = saved != nullptr ? saved : "";
    int32_t before = 1, after = 1, fresh = 0;
    tvtime parsed{};
    std::thread([&] {
        set_tz("UTC0");
        before = get_timezone();
        set_tz("XXX-3");  // three hours east, no daylight saving
        after = get_timezone();
    }).join();
    std::thread([&] {
        fresh = get_timezone();
        conv_string_to_tvtime("05032024140709", &parsed);
    }).join();
    set_tz(saved != nullptr ? saved_tz.c_str() : nullptr);
    EXPECT_EQ(before, 0);
    EXPECT_EQ(after, 0);  // not recomputed within the thread
    EXPECT_EQ(fresh, 3 * 3600);
    EXPECT_EQ(parsed.seconds, 1709647629u - 3 * 3600);  // 2024-03-05 14:07:09 at UTC+3
    EXPECT_EQ(parsed.zone, 3 * 3600);
#endif
}

// ---- texts ---------------------------------------------------------------------------

TEST_F(TimeConv, StampFormRoundTripsAndRejectsMalformedText) {
    tvtime t = stamp(1700000000u, 7200);
    EXPECT_STREQ(conv_tvtime_to_string(&t), "G1700000000O7200");
    const tvtime cases[] = {stamp(0, 0), stamp(0xFFFFFFFFu, -43200), stamp(1, 86399), stamp(2145923999u, -1)};
    for (const tvtime &c : cases) {
        tvtime back{};
        const char *text = conv_tvtime_to_string(&c);
        ASSERT_EQ(conv_string_to_tvtime(text, &back), 1) << text;
        EXPECT_EQ(back.seconds, c.seconds);
        EXPECT_EQ(back.zone, c.zone);
    }
    // One buffer per thread, overwritten by the next call.
    tvtime other = stamp(5, 0);
    const char *first = conv_tvtime_to_string(&t);
    conv_tvtime_to_string(&other);
    EXPECT_STREQ(first, "G5O0");

    const char *bad[] = {"G",         "GO0",           "G12O",           "G1O",    "g1O0",
                         "G1O0x",     "G 1O0",         "G1O+1",          "G1O--1", "G1O86400",
                         "G1O-86400", "G4294967296O0", "G12345678901O0", "G1o0"};
    for (const char *text : bad) {
        EXPECT_EQ(conv_string_to_tvtime(text, &t), 0) << text;
        expect_error(ERR_GEN_TIMEFRMT);
    }
}

TEST_F(TimeConv, DigitGroupDatesAreLocalTimesOfFixedLengths) {
    tvtime t{};
    ASSERT_EQ(conv_string_to_tvtime("05032024140709", &t), 1);
    EXPECT_EQ(static_cast<int64_t>(t.seconds), local_seconds(2024, 3, 5, 14, 7, 9));
    EXPECT_EQ(t.zone, get_timezone());
    std::tm tm = local_fields(t);
    EXPECT_EQ(tm.tm_mday, 5);
    EXPECT_EQ(tm.tm_mon, 2);
    EXPECT_EQ(tm.tm_year, 124);
    EXPECT_EQ(tm.tm_sec, 9);

    struct Case {
        const char *text;
        int64_t seconds;
    } cases[] = {
        {"050324", local_seconds(2024, 3, 5)},
        {"050399", local_seconds(1999, 3, 5)},
        {"05032024", local_seconds(2024, 3, 5)},
        {"0503241407", local_seconds(2024, 3, 5, 14, 7)},
        {"050320241407", local_seconds(2024, 3, 5, 14, 7)},
        {"29022024", local_seconds(2024, 2, 29)},
    };
    for (const Case &c : cases) {
        ASSERT_EQ(conv_string_to_tolv(c.text, &t), 1) << c.text;
        EXPECT_EQ(static_cast<int64_t>(t.seconds), c.seconds) << c.text;
    }
    std::time_t now = std::time(nullptr);
    ASSERT_EQ(conv_string_to_tvtime("0101", &t), 1);
    EXPECT_EQ(static_cast<int64_t>(t.seconds), local_seconds(std::localtime(&now)->tm_year + 1900, 1, 1));

    // The digit form written back reads back to the same second.
    ASSERT_EQ(conv_string_to_tvtime("15012024103005", &t), 1);
    EXPECT_STREQ(conv_tolv_to_ascii(&t), "15012024103005");
    EXPECT_STREQ(conv_tolvenar_to_ascii(&t), "15-JAN-2024 10:30:05");
    std::time_t as_time = conv_tolvenar_to_sys(&t);
    EXPECT_STREQ(conv_time_to_string(&as_time), "15-JAN-2024 10:30:05");

    const char *bad[] = {"",
                         "050",
                         "0503202",
                         "29022023",
                         "31042024",
                         "00012024",
                         "01132024",
                         "0101202424",
                         "010120242400",
                         "01012024126000",
                         "01012024120060",
                         "010119691200",
                         "01012099",
                         "010120241200000",
                         "0503 2024"};
    for (const char *text : bad) {
        EXPECT_EQ(conv_string_to_tvtime(text, &t), 0) << text;
        expect_error(ERR_GEN_TIMEFRMT);
    }
    EXPECT_EQ(traced([&] { conv_string_to_tolv("12a4", &t); }),
              "unknown date format - <12a4> (<a> is not a digit)\n");
    expect_error(ERR_GEN_TIMEFRMT);
}

TEST_F(TimeConv, DayWordsNameLocalMidnights) {
    tvtime today{}, tomorrow{}, yesterday{}, from_get{};
    ASSERT_EQ(conv_string_to_tolv("today", &today), 1);
    ASSERT_EQ(conv_string_to_tolv("Tomorrow", &tomorrow), 1);
    ASSERT_EQ(conv_string_to_tolv("YESTERDAY", &yesterday), 1);
    ASSERT_EQ(get_today(&from_get), 1);
    EXPECT_EQ(today.seconds, from_get.seconds);

    std::time_t now = std::time(nullptr);
    std::tm now_tm = *std::localtime(&now);
    int year = now_tm.tm_year + 1900, month = now_tm.tm_mon + 1, day = now_tm.tm_mday;
    EXPECT_EQ(static_cast<int64_t>(today.seconds), local_seconds(year, month, day));
    EXPECT_EQ(static_cast<int64_t>(tomorrow.seconds), local_seconds(year, month, day + 1));
    EXPECT_EQ(static_cast<int64_t>(yesterday.seconds), local_seconds(year, month, day - 1));

    tvtime t{};
    for (const char *text : {"now", "todayx", "to", "today ", "yesterdays"}) {
        EXPECT_EQ(conv_string_to_tolv(text, &t), 0) << text;
        expect_error(ERR_GEN_TIMEFRMT);
    }
}

TEST_F(TimeConv, PeriodsReadNumbersWithUnits) {
    struct Case {
        const char *text;
        int32_t seconds;
    } cases[] = {
        {"90", 90},
        {"90 minutes", 5400},
        {"1h30m", 5400},
        {"2 days 12 hours", 216000},
        {" 1 WEEK ", 604800},
        {"1 month", 2592000},
        {"1yr", 31536000},
        {"3 Seconds", 3},
        {"0 d", 0},
        {"68 years", 2144448000},
        {"2147483647", 2147483647},
        {"1 mon 1 min", 2592060},
    };
    for (const Case &c : cases) {
        int32_t seconds = -1;
        ASSERT_EQ(conv_string_to_seconds(c.text, &seconds), 1) << c.text;
        EXPECT_EQ(seconds, c.seconds) << c.text;
    }
    const char *bad[] = {"",         "abc",           "5 fortnights", "5 minutes 3", "-5 s",  "2147483648",
                         "69 years", "99999999999 s", "1h30",         "5 minutesx",  "1.5 h", "h"};
    for (const char *text : bad) {
        int32_t seconds = 0;
        EXPECT_EQ(conv_string_to_seconds(text, &seconds), 0) << text;
        expect_error(ERR_GEN_TIMEFRMT);
    }
    int32_t seconds = 0;
    EXPECT_EQ(traced([&] { conv_string_to_seconds("5 fortnights", &seconds); }),
              "error parsing time period '5 fortnights'\n");
    expect_error(ERR_GEN_TIMEFRMT);
}

TEST_F(TimeConv, TimesOfDayAndZonesAreChecked) {
    for (const char *text : {"0:00", "23:59", "09:30:15", "7:05"}) {
        EXPECT_EQ(check_time_string_format(text), 1) << text;
    }
    for (const char *text : {"24:00", "12:60", "12:5", "123:00", "12:00:60", "12:00:", "12:00x", "", ":30"}) {
        EXPECT_EQ(check_time_string_format(text), 0) << text;
        expect_error(ERR_GEN_TIMEFRMT);
    }
    EXPECT_EQ(traced([] { check_time_string_format("25:00"); }), "error parsing time format '25:00'\n");
    expect_error(ERR_GEN_TIMEFRMT);

    struct Case {
        const char *text;
        int32_t zone;
    } zones[] = {{"Z", 0},          {"utc", 0},      {"+02", 7200},  {"-0530", -19800},
                 {"+05:30", 19800}, {"GMT+1", 3600}, {"+14", 50400}, {"UTC-3:00", -10800}};
    for (const Case &c : zones) {
        int32_t zone = 1;
        ASSERT_EQ(conv_string_to_timezone(c.text, &zone), 1) << c.text;
        EXPECT_EQ(zone, c.zone) << c.text;
    }
    for (const char *text : {"+15", "+1401", "+0560", "0200", "+2:3", "UTC+", "x", "+123", "Z0", "GMT+01:"}) {
        int32_t zone = 0;
        EXPECT_EQ(conv_string_to_timezone(text, &zone), 0) << text;
        expect_error(ERR_GEN_TIMEFRMT);
    }
}

TEST_F(TimeConv, CompactFormWithMonthNames) {
    time_t t = 0;
    ASSERT_EQ(conv_vms_string_to_time_t("05MAR20241407", &t), 1);
    EXPECT_EQ(static_cast<int64_t>(t), local_seconds(2024, 3, 5, 14, 7));
    EXPECT_STREQ(conv_time_to_vms_string(&t), "05MAR20241407");
    ASSERT_EQ(conv_vms_string_to_time_t("31dec20372359", &t), 1);
    EXPECT_EQ(static_cast<int64_t>(t), local_seconds(2037, 12, 31, 23, 59));

    for (const char *text : {"05XYZ20241407", "5MAR20241407", "05MAR2024140", "05MAR202414070",
                             "30FEB20241407", "05MAR20242407", "05MAR20241460", "05MA120241407", ""}) {
        EXPECT_EQ(conv_vms_string_to_time_t(text, &t), 0) << text;
        expect_error(ERR_GEN_TIMEFRMT);
    }
}

// ---- relative dates -----------------------------------------------------------------

TEST_F(TimeConv, RelativeDatesFollowTheCalendar) {
    tvtime base{};
    ASSERT_EQ(conv_string_to_tvtime("15012024103000", &base), 1);
    struct Case {
        const char *text;
        int64_t seconds;
    } cases[] = {
        {"now", local_seconds(2024, 1, 15, 10, 30)},
        {"+3days", local_seconds(2024, 1, 18, 10, 30)},
        {"-2 hours", local_seconds(2024, 1, 15, 8, 30)},
        {"today+1day", local_seconds(2024, 1, 16)},
        {"tomorrow 08:30", local_seconds(2024, 1, 16, 8, 30)},
        {"  Yesterday -1 week ", local_seconds(2024, 1, 7)},
        {"+1h30m", local_seconds(2024, 1, 15, 12, 0)},
        {"14:45:10", local_seconds(2024, 1, 15, 14, 45, 10)},
        {"31012024 +1 month", local_seconds(2024, 2, 29)},
        {"31032024-1mon", local_seconds(2024, 2, 29)},
        {"29022024 +1 year", local_seconds(2025, 2, 28)},
        {"01022024 12:00 -1 d +30 min", local_seconds(2024, 1, 31, 12, 30)},
    };
    for (const Case &c : cases) {
        tvtime out{};
        ASSERT_EQ(compute_relative_date_with_base(c.text, &base, &out), 1) << c.text;
        EXPECT_EQ(static_cast<int64_t>(out.seconds), c.seconds) << c.text;
        EXPECT_EQ(out.zone, get_timezone());
    }

    tvtime out{};
    ASSERT_EQ(compute_relative_date_with_base("+0s", nullptr, &out), 1);  // no base: now
    EXPECT_LE(off_now(out.seconds), 2);

    tvtime epoch = stamp(0);
    const char *bad[] = {"",
                         "+",
                         "+3",
                         "+3 fortnights",
                         "today today",
                         "soon",
                         "08:30 today",
                         "+1day 08:30",
                         "today +99999 years",
                         "+1d x",
                         "25:00",
                         "+ -1d",
                         "31012024 32:00",
                         "1501202410300012"};
    for (const char *text : bad) {
        EXPECT_EQ(compute_relative_date_with_base(text, &base, &out), 0) << text;
        expect_error(ERR_GEN_TIMEFRMT);
    }
    EXPECT_EQ(compute_relative_date_with_base("-1 day", &epoch, &out), 0);  // before the smallest date
    expect_error(ERR_GEN_TIMEFRMT);
    tvtime negative = stamp(0x80000000u);
    EXPECT_EQ(compute_relative_date_with_base("now", &negative, &out), 0);
    expect_error(ERR_GEN_ERRVAL);
}

TEST_F(TimeConv, CalendarStepsKeepTheWallClockAcrossDaylightSavingPosix) {
#ifdef _WIN32
    GTEST_SKIP() << "the zone is set through TZ, which the Windows runtime does not follow";
#else
    const char *saved = std::getenv("TZ");
    std::string saved_tz = saved != nullptr ? saved : "";
    // Central Europe: clocks go from 02:00 to 03:00 on 2024-03-31.
    tvtime base{}, day{}, hours{}, skipped{};
    std::thread([&] {
        set_tz("CET-1CEST,M3.5.0,M10.5.0/3");
        conv_string_to_tvtime("30032024120000", &base);
        compute_relative_date_with_base("+1 day", &base, &day);
        compute_relative_date_with_base("+24 hours", &base, &hours);
        compute_relative_date_with_base("tomorrow 02:30", &base, &skipped);  // a skipped hour moves on
    }).join();
    set_tz(saved != nullptr ? saved_tz.c_str() : nullptr);
    EXPECT_EQ(base.seconds, 1711796400u);              // 11:00 UTC
    EXPECT_EQ(day.seconds, base.seconds + 23 * 3600);  // 12:00 CEST
    EXPECT_EQ(hours.seconds, base.seconds + 24 * 3600);
    EXPECT_EQ(skipped.seconds, 1711848600u);  // 03:30 CEST = 01:30 UTC
#endif
}

// ---- broken-down and file times ---------------------------------------------------------

TEST_F(TimeConv, OldFormConvertsWithRangeChecks) {
    tvtime_old zero{};
    tvtime t = stamp(99);
    ASSERT_EQ(conv_tolvenar_old_to_new(&zero, &t), 1);
    EXPECT_EQ(t.seconds, 0u);
    tvtime_old old{};
    old.tm_sec = 5;  // any non-zero field makes it a real date
    ASSERT_EQ(conv_tolvenar_new_to_old(&t, &old), 1);
    EXPECT_EQ(old.tm_sec, 0);
    EXPECT_EQ(old.tm_year, 0);

    ASSERT_EQ(conv_string_to_tvtime("15072024103005", &t), 1);  // summer: tm_isdst may be set
    ASSERT_EQ(conv_tolvenar_new_to_old(&t, &old), 1);
    EXPECT_EQ(old.tm_mday, 15);
    EXPECT_EQ(old.tm_mon, 6);
    EXPECT_EQ(old.tm_year, 124);
    EXPECT_EQ(old.tm_hour, 10);
    tvtime back{};
    ASSERT_EQ(conv_tolvenar_old_to_new(&old, &back), 1);
    EXPECT_EQ(back.seconds, t.seconds);

    int32_t tvtime_old::*fields[] = {&tvtime_old::tm_sec,  &tvtime_old::tm_min, &tvtime_old::tm_hour,
                                     &tvtime_old::tm_mday, &tvtime_old::tm_mon, &tvtime_old::tm_wday,
                                     &tvtime_old::tm_mday, &tvtime_old::tm_yday};
    const int32_t bad_values[] = {62, 60, 24, 32, 12, 7, 0, 366};
    for (size_t i = 0; i < std::size(fields); ++i) {
        tvtime_old broken = old;
        broken.*fields[i] = bad_values[i];
        EXPECT_EQ(conv_tolvenar_old_to_new(&broken, &back), 0) << i;
        expect_error(ERR_GEN_ERRVAL);
    }
    tvtime_old feb30 = old;
    feb30.tm_mon = 1;
    feb30.tm_mday = 30;
    EXPECT_EQ(conv_tolvenar_old_to_new(&feb30, &back), 0);
    expect_error(ERR_GEN_ERRVAL);

    std::tm tm = local_fields(t);
    ASSERT_EQ(conv_tm_to_tolvenar(&tm, &back), 1);
    EXPECT_EQ(back.seconds, t.seconds);
}

TEST_F(TimeConv, FileTimesAndTimeValues) {
    std::tm gmt{};
    gmt.tm_year = 124;
    gmt.tm_mday = 1;  // 2024-01-01 00:00:00 UTC
    tv_nttime ft{};
    ASSERT_EQ(conv_gmtime_to_nttime(&gmt, &ft), 1);
    EXPECT_EQ(ft.high, 0x01DA3C45u);
    EXPECT_EQ(ft.low, 0x7689C000u);
    ft.low += 9999999;  // fractions of a second are dropped
    tvtime t{};
    ASSERT_EQ(conv_nttime_to_tolvenar(&ft, &t), 1);
    EXPECT_EQ(t.seconds, 1704067200u);
    EXPECT_EQ(t.zone, get_timezone());

    gmt.tm_year = 1600 - 1900;
    EXPECT_EQ(conv_gmtime_to_nttime(&gmt, &ft), 0);
    expect_error(ERR_GEN_ERRVAL);
    tv_nttime before_1970 = {0xD53E7FFFu, 0x019DB1DEu};
    EXPECT_EQ(conv_nttime_to_tolvenar(&before_1970, &t), 0);
    expect_error(ERR_GEN_ERRVAL);

    time_t value = 1704067200;
    ASSERT_EQ(conv_sys_to_gmt_tolvenar(&value, &t), 1);
    EXPECT_EQ(t.zone, 0);
    ASSERT_EQ(conv_sys_to_tolvenar(&value, &t), 1);
    EXPECT_EQ(t.zone, get_timezone());
    EXPECT_EQ(conv_tolvenar_to_sys(&t), value);
    value = -1;
    EXPECT_EQ(conv_sys_to_tolvenar(&value, &t), 0);
    expect_error(ERR_GEN_ERRVAL);
}

// ---- stopwatch --------------------------------------------------------------------------

TEST_F(TimeConv, StopwatchTracesItsDelta) {
    ASSERT_EQ(start_seconds_timer(), 1);
    ASSERT_EQ(end_seconds_timer(), 1);
    std::string line = traced([] { set_delta_time(); });
    int start = 0, end = 0, delta = -1;
    ASSERT_EQ(std::sscanf(line.c_str(), "timer: start-%d,end-%d,delta-%d\n", &start, &end, &delta), 3)
        << line;
    EXPECT_EQ(delta, end - start);
    EXPECT_EQ(get_delta_time(), delta);
    EXPECT_LE(off_now(start), 2);
    EXPECT_GE(get_stoper_time(), 0);
    EXPECT_LE(get_stoper_time(), 2);

    // Each thread has its own watch.
    int32_t other_delta = -1;
    std::thread([&] { other_delta = get_delta_time(); }).join();
    EXPECT_EQ(other_delta, 0);
}

}  // namespace
