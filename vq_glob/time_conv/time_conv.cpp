// Time stamps: the module's frame and per-thread record, the thread's zone,
// comparisons, byte order, conversions to and from time values, broken-down
// times and file times, and the per-thread stopwatch. The text forms live in
// time_text.cpp.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "internal/big_endian.h"
#include "platform/platform.h"
#include "time_conv/time_conv.h"
#include "vq_glob/dbg.h"
#include "vq_glob/err.h"

namespace vq::frame {
constinit const Module kTimeModule =
    ModuleFrame<timeconv::TimeRecord, kSlotTime, OnDemand::yes>::module("conv");
}  // namespace vq::frame

namespace vq::timeconv {
namespace {

// Seconds from 1601-01-01 (file times) to 1970-01-01.
constexpr int64_t kFileTimeEpoch = 11644473600LL;
constexpr int64_t kFileTimeUnits = 10000000;  // 100 ns per unit

// Local minus UTC now, as mktime sees both break-downs of the present: the UTC
// fields read as standard local time give the standard offset, and an hour is
// added while daylight saving is in effect.
int32_t compute_zone(std::tm *moment) {
    int64_t now = now_seconds();
    std::tm local{};
    std::tm utc{};
    if (plat_localtime(now, &local) != 0 || plat_gmtime(now, &utc) != 0) {
        return 0;
    }
    if (moment != nullptr) {
        *moment = local;
    }
    std::tm local_copy = local;
    int64_t local_seconds = 0;
    int64_t utc_seconds = 0;
    if (plat_mktime(&local_copy, &local_seconds) != 0 || plat_mktime(&utc, &utc_seconds) != 0) {
        return 0;
    }
    int64_t zone = local_seconds - utc_seconds;
    if (local.tm_isdst > 0) {
        zone += 3600;
    }
    return static_cast<int32_t>(zone);
}

bool is_leap(int64_t year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

// Days from 1970-01-01 to a proleptic Gregorian date (month 1-12).
int64_t days_from_civil(int64_t year, int64_t month, int64_t day) {
    year -= month <= 2 ? 1 : 0;
    int64_t era = (year >= 0 ? year : year - 399) / 400;
    int64_t year_of_era = year - era * 400;
    int64_t day_of_year = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    int64_t day_of_era = year_of_era * 365 + year_of_era / 4 - year_of_era / 100 + day_of_year;
    return era * 146097 + day_of_era - 719468;
}

// Checks the fields of a broken-down time against the C tm ranges, the day
// against the length of its month.
bool valid_fields(const std::tm &tm) {
    if (tm.tm_sec < 0 || tm.tm_sec > 61 || tm.tm_min < 0 || tm.tm_min > 59 || tm.tm_hour < 0 ||
        tm.tm_hour > 23 || tm.tm_mon < 0 || tm.tm_mon > 11 || tm.tm_wday < 0 || tm.tm_wday > 6 ||
        tm.tm_yday < 0 || tm.tm_yday > 365) {
        return false;
    }
    int64_t year = static_cast<int64_t>(tm.tm_year) + 1900;
    return tm.tm_mday >= 1 && tm.tm_mday <= days_in_month(year, tm.tm_mon);
}

bool all_zero_date(const std::tm &tm) {
    return tm.tm_sec == 0 && tm.tm_min == 0 && tm.tm_hour == 0 && tm.tm_mday == 0 && tm.tm_mon == 0 &&
           tm.tm_year == 0;
}

// The old stamp's rule, also applied to a C tm: all-zero date and time fields
// are the smallest date; otherwise the fields are range-checked and read as
// local time, tm_isdst deciding an hour that occurs twice.
int broken_down_to_stamp(std::tm fields, const char *what, tvtime *out) {
    if (all_zero_date(fields)) {
        make_stamp(0, out);
        return 1;
    }
    fields.tm_isdst = fields.tm_isdst > 0 ? 1 : (fields.tm_isdst == 0 ? 0 : -1);
    int64_t seconds = 0;
    if (!valid_fields(fields) || !local_to_seconds(fields, &seconds)) {
        return bad_value(what, static_cast<long long>(fields.tm_year) + 1900);
    }
    make_stamp(seconds, out);
    return 1;
}

// The field's bytes in memory become the value's big-endian bytes, which is
// what htonl does on any host; the reverse reads them back.
void to_wire(uint32_t *field) {
    unsigned char bytes[4];
    be::store32(bytes, *field);
    std::memcpy(field, bytes, sizeof bytes);
}

void from_wire(uint32_t *field) {
    unsigned char bytes[4];
    std::memcpy(bytes, field, sizeof bytes);
    *field = be::load32(bytes);
}

void zone_to_wire(int32_t *zone) {
    uint32_t v = 0;
    std::memcpy(&v, zone, sizeof v);
    to_wire(&v);
    std::memcpy(zone, &v, sizeof v);
}

void zone_from_wire(int32_t *zone) {
    uint32_t v = 0;
    std::memcpy(&v, zone, sizeof v);
    from_wire(&v);
    std::memcpy(zone, &v, sizeof v);
}

}  // namespace

int bad_text(const char *text) {
    err_add_error(ERR_GEN_TIMEFRMT, text);
    return 0;
}

int bad_value(const char *what, long long value) {
    char text[64];
    std::snprintf(text, sizeof text, "%s %lld", what, value);
    err_add_error(ERR_GEN_ERRVAL, text);
    return 0;
}

int32_t thread_zone() {
    TimeRecord *rec = Frame::get();
    if (rec == nullptr) {
        return compute_zone(nullptr);
    }
    if (!rec->zone_known) {
        rec->zone = compute_zone(&rec->zone_moment);
        rec->zone_known = true;
    }
    return rec->zone;
}

void make_stamp(int64_t seconds, tvtime *out) {
    out->seconds = static_cast<uint32_t>(seconds);
    out->zone = thread_zone();
}

int days_in_month(int64_t year, int month0) {
    static constexpr int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month0 == 1 && is_leap(year) ? 29 : kDays[month0];
}

bool local_to_seconds(std::tm tm, int64_t *out) {
    int64_t seconds = 0;
    if (plat_mktime(&tm, &seconds) != 0 || !in_stamp_range(seconds)) {
        return false;
    }
    *out = seconds;
    return true;
}

bool local_date_to_seconds(int year, int month, int day, int hour, int minute, int second, int64_t *out) {
    std::tm tm{};
    tm.tm_year = year - 1900;
    tm.tm_mon = month - 1;
    tm.tm_mday = day;
    tm.tm_hour = hour;
    tm.tm_min = minute;
    tm.tm_sec = second;
    tm.tm_isdst = -1;
    return local_to_seconds(tm, out);
}

// Moves that leave the stamp range fail before any arithmetic can overflow.
bool shift_days(int64_t t, int64_t days, int64_t *out) {
    std::tm tm{};
    if (days < -30000 || days > 30000 || plat_localtime(t, &tm) != 0) {
        return false;
    }
    tm.tm_mday += static_cast<int>(days);
    tm.tm_isdst = -1;
    return local_to_seconds(tm, out);
}

bool shift_months(int64_t t, int64_t months, int64_t *out) {
    std::tm tm{};
    if (months < -1200 || months > 1200 || plat_localtime(t, &tm) != 0) {
        return false;
    }
    int64_t total = static_cast<int64_t>(tm.tm_year) * 12 + tm.tm_mon + months;
    int64_t year = total >= 0 ? total / 12 : (total - 11) / 12;
    auto month0 = static_cast<int>(total - year * 12);
    tm.tm_year = static_cast<int>(year);
    tm.tm_mon = month0;
    int last = days_in_month(year + 1900, month0);
    if (tm.tm_mday > last) {
        tm.tm_mday = last;
    }
    tm.tm_isdst = -1;
    return local_to_seconds(tm, out);
}

bool local_midnight(int64_t t, int64_t days, int64_t *out) {
    std::tm tm{};
    if (plat_localtime(t, &tm) != 0) {
        return false;
    }
    tm.tm_hour = 0;
    tm.tm_min = 0;
    tm.tm_sec = 0;
    tm.tm_isdst = -1;
    int64_t midnight = 0;
    if (!local_to_seconds(tm, &midnight)) {
        return false;
    }
    if (days != 0) {
        return shift_days(midnight, days, out);
    }
    *out = midnight;
    return true;
}

bool set_time_of_day(int64_t t, int hour, int minute, int second, int64_t *out) {
    std::tm tm{};
    if (plat_localtime(t, &tm) != 0) {
        return false;
    }
    tm.tm_hour = hour;
    tm.tm_min = minute;
    tm.tm_sec = second;
    tm.tm_isdst = -1;
    return local_to_seconds(tm, out);
}

}  // namespace vq::timeconv

using namespace vq::timeconv;

extern "C" {

// ---- the clock and the zone ------------------------------------------------------------

VQ_API int get_system_time(tvtime *t) {
    if (t == nullptr) {
        return VQ_PARAMS(Report::add, "t");
    }
    t->seconds = static_cast<uint32_t>(now_seconds());
    t->zone = thread_zone();
    return 1;
}

VQ_API int32_t get_timezone(void) { return thread_zone(); }

VQ_API int get_today(tvtime *t) {
    if (t == nullptr) {
        return VQ_PARAMS(Report::add, "t");
    }
    int64_t midnight = 0;
    if (!local_midnight(now_seconds(), 0, &midnight)) {
        return bad_value("today from time value", static_cast<long long>(now_seconds()));
    }
    make_stamp(midnight, t);
    return 1;
}

VQ_API int get_ahead_time(int32_t seconds, tvtime *t) {
    if (t == nullptr) {
        return VQ_PARAMS(Report::add, "t");
    }
    int64_t ahead = now_seconds() + seconds;
    if (!in_stamp_range(ahead)) {
        return bad_value("ahead time", static_cast<long long>(ahead));
    }
    make_stamp(ahead, t);
    return 1;
}

VQ_API int get_max_date(tvtime *t) {
    if (t == nullptr) {
        return VQ_PARAMS(Report::add, "t");
    }
    make_stamp(TVTIME_MAX_SECONDS, t);
    return 1;
}

VQ_API int get_min_date(tvtime *t) {
    if (t == nullptr) {
        return VQ_PARAMS(Report::add, "t");
    }
    make_stamp(0, t);
    return 1;
}

// ---- comparing and shifting ---------------------------------------------------------------

VQ_API int tolv_difftime(const tvtime *a, const tvtime *b) {
    if (a == nullptr || b == nullptr) {
        return VQ_PARAMS(Report::add, a == nullptr ? "a" : "b");
    }
    int64_t sa = signed_seconds(*a);
    int64_t sb = signed_seconds(*b);
    return sa < sb ? -1 : (sa > sb ? 1 : 0);
}

VQ_API int32_t get_tolvenar_time_diff(const tvtime *a, const tvtime *b) {
    if (a == nullptr || b == nullptr) {
        return VQ_PARAMS(Report::add, a == nullptr ? "a" : "b");
    }
    return static_cast<int32_t>(a->seconds - b->seconds);
}

VQ_API tvtime *min_time(tvtime *a, tvtime *b) {
    if (a == nullptr || b == nullptr) {
        VQ_PARAMS(Report::add, a == nullptr ? "a" : "b");
        return nullptr;
    }
    return signed_seconds(*a) < signed_seconds(*b) ? a : b;
}

VQ_API int add_seconds_to_tolvenar(tvtime *t, int32_t n) {
    if (t == nullptr) {
        return VQ_PARAMS(Report::add, "t");
    }
    t->seconds += static_cast<uint32_t>(n);
    return 1;
}

// ---- byte order ------------------------------------------------------------------------------

VQ_API int hton_time(tvtime *t) {
    if (t == nullptr) {
        return VQ_PARAMS(Report::add, "t");
    }
    to_wire(&t->seconds);
    zone_to_wire(&t->zone);
    return 1;
}

VQ_API int ntoh_time(tvtime *t) {
    if (t == nullptr) {
        return VQ_PARAMS(Report::add, "t");
    }
    from_wire(&t->seconds);
    zone_from_wire(&t->zone);
    return 1;
}

// ---- conversions ------------------------------------------------------------------------------

VQ_API int conv_sys_to_tolvenar(const time_t *in, tvtime *out) {
    if (in == nullptr || out == nullptr) {
        return VQ_PARAMS(Report::add, in == nullptr ? "in" : "out");
    }
    auto seconds = static_cast<int64_t>(*in);
    if (!in_stamp_range(seconds)) {
        return bad_value("time value", static_cast<long long>(seconds));
    }
    make_stamp(seconds, out);
    return 1;
}

VQ_API int conv_sys_to_gmt_tolvenar(const time_t *in, tvtime *out) {
    if (in == nullptr || out == nullptr) {
        return VQ_PARAMS(Report::add, in == nullptr ? "in" : "out");
    }
    auto seconds = static_cast<int64_t>(*in);
    if (!in_stamp_range(seconds)) {
        return bad_value("time value", static_cast<long long>(seconds));
    }
    out->seconds = static_cast<uint32_t>(seconds);
    out->zone = 0;
    return 1;
}

VQ_API time_t conv_tolvenar_to_sys(const tvtime *t) {
    if (t == nullptr) {
        return VQ_PARAMS(Report::add, "t");
    }
    return static_cast<time_t>(signed_seconds(*t));
}

VQ_API int conv_tolvenar_to_tm(const tvtime *t, struct tm *out) {
    if (t == nullptr || out == nullptr) {
        return VQ_PARAMS(Report::add, t == nullptr ? "t" : "out");
    }
    if (plat_localtime(signed_seconds(*t), out) != 0) {
        return bad_value("stamp seconds", static_cast<long long>(signed_seconds(*t)));
    }
    return 1;
}

VQ_API int conv_tm_to_tolvenar(const struct tm *in, tvtime *out) {
    if (in == nullptr || out == nullptr) {
        return VQ_PARAMS(Report::add, in == nullptr ? "in" : "out");
    }
    return broken_down_to_stamp(*in, "broken-down time of year", out);
}

VQ_API int conv_nttime_to_tolvenar(const tv_nttime *in, tvtime *out) {
    if (in == nullptr || out == nullptr) {
        return VQ_PARAMS(Report::add, in == nullptr ? "in" : "out");
    }
    uint64_t units = (static_cast<uint64_t>(in->high) << 32) | in->low;
    int64_t seconds = static_cast<int64_t>(units / kFileTimeUnits) - kFileTimeEpoch;
    if (!in_stamp_range(seconds)) {
        return bad_value("file time seconds", static_cast<long long>(seconds));
    }
    make_stamp(seconds, out);
    return 1;
}

VQ_API int conv_gmtime_to_nttime(const struct tm *gmt, tv_nttime *out) {
    if (gmt == nullptr || out == nullptr) {
        return VQ_PARAMS(Report::add, gmt == nullptr ? "gmt" : "out");
    }
    int64_t year = static_cast<int64_t>(gmt->tm_year) + 1900;
    if (!valid_fields(*gmt) || year < 1601 || year > 9999) {
        return bad_value("broken-down time of year", static_cast<long long>(year));
    }
    int64_t seconds = days_from_civil(year, gmt->tm_mon + 1, gmt->tm_mday) * 86400 + gmt->tm_hour * 3600 +
                      gmt->tm_min * 60 + gmt->tm_sec;
    auto units = static_cast<uint64_t>(seconds + kFileTimeEpoch) * static_cast<uint64_t>(kFileTimeUnits);
    out->low = static_cast<uint32_t>(units);
    out->high = static_cast<uint32_t>(units >> 32);
    return 1;
}

VQ_API int conv_tolvenar_old_to_new(const tvtime_old *old, tvtime *out) {
    if (old == nullptr || out == nullptr) {
        return VQ_PARAMS(Report::add, old == nullptr ? "old" : "out");
    }
    std::tm fields{};  // the C tm may hold further fields of its own
    fields.tm_sec = old->tm_sec;
    fields.tm_min = old->tm_min;
    fields.tm_hour = old->tm_hour;
    fields.tm_mday = old->tm_mday;
    fields.tm_mon = old->tm_mon;
    fields.tm_year = old->tm_year;
    fields.tm_wday = old->tm_wday;
    fields.tm_yday = old->tm_yday;
    fields.tm_isdst = old->tm_isdst;
    return broken_down_to_stamp(fields, "old stamp of year", out);
}

VQ_API int conv_tolvenar_new_to_old(const tvtime *t, tvtime_old *out) {
    if (t == nullptr || out == nullptr) {
        return VQ_PARAMS(Report::add, t == nullptr ? "t" : "out");
    }
    if (t->seconds == 0) {
        *out = tvtime_old{};
        return 1;
    }
    std::tm tm{};
    if (plat_localtime(signed_seconds(*t), &tm) != 0) {
        return bad_value("stamp seconds", static_cast<long long>(signed_seconds(*t)));
    }
    *out = tvtime_old{tm.tm_sec, tm.tm_min, tm.tm_hour, tm.tm_mday, tm.tm_mon,
                      tm.tm_year, tm.tm_wday, tm.tm_yday, tm.tm_isdst};
    return 1;
}

// ---- the stopwatch -------------------------------------------------------------------------------

VQ_API int start_seconds_timer(void) {
    TimeRecord *rec = Frame::get();
    if (rec == nullptr) {
        return VQ_NO_MEMORY(Report::add, kModule);
    }
    rec->timer_start = static_cast<int32_t>(now_seconds());
    return 1;
}

VQ_API int end_seconds_timer(void) {
    TimeRecord *rec = Frame::get();
    if (rec == nullptr) {
        return VQ_NO_MEMORY(Report::add, kModule);
    }
    rec->timer_end = static_cast<int32_t>(now_seconds());
    return 1;
}

VQ_API int set_delta_time(void) {
    TimeRecord *rec = Frame::get();
    if (rec == nullptr) {
        return VQ_NO_MEMORY(Report::add, kModule);
    }
    rec->timer_delta = static_cast<int32_t>(static_cast<int64_t>(rec->timer_end) - rec->timer_start);
    vq::debug::trace_bit(vq::debug::kChannelTime, "timer: start-%d,end-%d,delta-%d\n", static_cast<int>(rec->timer_start),
                static_cast<int>(rec->timer_end), static_cast<int>(rec->timer_delta));
    return 1;
}

VQ_API int32_t get_delta_time(void) {
    TimeRecord *rec = Frame::get();
    return rec != nullptr ? rec->timer_delta : 0;
}

VQ_API int32_t get_stoper_time(void) {
    TimeRecord *rec = Frame::get();
    return rec != nullptr ? static_cast<int32_t>(now_seconds() - rec->timer_start) : 0;
}

}  // extern "C"
