// Time stamps as text: the stamp form, digit-group dates, day words, periods,
// times of day, zones, the display and compact forms, and relative dates.
//
// Every parser here reads outside text (command lines, configuration files,
// messages): it walks the NUL-terminated text once, counts digits before it
// converts them so that no number can overflow, checks every field's range,
// and refuses anything left over.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "internal/ascii.h"
#include "platform/platform.h"
#include "time_conv/time_conv.h"
#include "vq_glob/dbg.h"
#include "vq_glob/err.h"

namespace vq::timeconv {
namespace {

// A UTC offset is less than a day; real ones are at most 14 hours.
constexpr int64_t kMaxStoredZone = 86399;
constexpr int64_t kMaxZoneText = 14 * 3600;

using ascii::is_alpha;
using ascii::is_digit;

void skip_blanks(const char *&p) {
    while (ascii::is_blank(*p)) {
        ++p;
    }
}

// Length of the run of characters at p that pass test, counting no further
// than limit + 1 (enough to tell that a run is too long).
template <typename Test>
size_t run_length(const char *p, size_t limit, Test test) {
    size_t n = 0;
    while (n <= limit && test(p[n])) {
        ++n;
    }
    return n;
}

// Value of n digits at p (n at most 18, so it cannot overflow).
int64_t digits_value(const char *p, size_t n) {
    int64_t value = 0;
    for (size_t i = 0; i < n; ++i) {
        value = value * 10 + (p[i] - '0');
    }
    return value;
}

// Reads a number of 1 to max_digits digits at p and steps past it.
bool read_number(const char *&p, size_t max_digits, int64_t *value) {
    size_t n = run_length(p, max_digits, is_digit);
    if (n == 0 || n > max_digits) {
        return false;
    }
    *value = digits_value(p, n);
    p += n;
    return true;
}

// Case-insensitive comparison of the n characters at p with a word.
bool word_is(const char *p, size_t n, const char *word) { return ascii::equal_nocase({p, n}, word); }

// The longest word a date text may start with ("yesterday").
constexpr size_t kLongestDayWord = 9;

// "today", "tomorrow" or "yesterday" as the n letters at p: how many days
// from today they name.
bool day_word(const char *p, size_t n, int64_t *days) {
    static constexpr struct {
        const char *word;
        int64_t days;
    } kWords[] = {{"today", 0}, {"tomorrow", 1}, {"yesterday", -1}};
    for (const auto &entry : kWords) {
        if (word_is(p, n, entry.word)) {
            *days = entry.days;
            return true;
        }
    }
    return false;
}

char *put_digits(char *p, uint64_t value) {
    char reversed[20];
    int n = 0;
    do {
        reversed[n++] = static_cast<char>('0' + value % 10);
        value /= 10;
    } while (value != 0);
    while (n > 0) {
        *p++ = reversed[--n];
    }
    return p;
}

char *put_fixed(char *p, int value, int width) {
    for (int i = width - 1; i >= 0; --i) {
        p[i] = static_cast<char>('0' + value % 10);
        value /= 10;
    }
    return p + width;
}

// ---- periods -----------------------------------------------------------------

enum class Unit { seconds, minutes, hours, days, weeks, months, years };

struct UnitName {
    const char *name;
    Unit unit;
};

constexpr UnitName kUnitNames[] = {
    {"s", Unit::seconds},   {"sec", Unit::seconds},  {"secs", Unit::seconds},   {"second", Unit::seconds},
    {"seconds", Unit::seconds}, {"m", Unit::minutes}, {"min", Unit::minutes},   {"mins", Unit::minutes},
    {"minute", Unit::minutes}, {"minutes", Unit::minutes}, {"h", Unit::hours},  {"hr", Unit::hours},
    {"hrs", Unit::hours},   {"hour", Unit::hours},   {"hours", Unit::hours},    {"d", Unit::days},
    {"day", Unit::days},    {"days", Unit::days},    {"w", Unit::weeks},        {"wk", Unit::weeks},
    {"wks", Unit::weeks},   {"week", Unit::weeks},   {"weeks", Unit::weeks},    {"mon", Unit::months},
    {"mons", Unit::months}, {"month", Unit::months}, {"months", Unit::months},  {"y", Unit::years},
    {"yr", Unit::years},    {"yrs", Unit::years},    {"year", Unit::years},     {"years", Unit::years},
};
constexpr size_t kLongestUnit = 7;

int64_t unit_seconds(Unit unit) {
    switch (unit) {
    case Unit::seconds: return 1;
    case Unit::minutes: return 60;
    case Unit::hours: return 3600;
    case Unit::days: return 86400;
    case Unit::weeks: return 7 * 86400;
    case Unit::months: return 30 * 86400;
    case Unit::years: return 365 * 86400;
    }
    return 0;
}

// Reads a unit word at p and steps past it.
bool read_unit(const char *&p, Unit *unit) {
    size_t n = run_length(p, kLongestUnit, is_alpha);
    if (n == 0 || n > kLongestUnit) {
        return false;
    }
    for (const UnitName &entry : kUnitNames) {
        if (word_is(p, n, entry.name)) {
            *unit = entry.unit;
            p += n;
            return true;
        }
    }
    return false;
}

// One period term "<number> [blanks] <unit>"; numbers of up to ten digits,
// so that count times a year's seconds stays far inside 64 bits.
bool read_term(const char *&p, int64_t *count, Unit *unit) {
    if (!read_number(p, 10, count)) {
        return false;
    }
    skip_blanks(p);
    return read_unit(p, unit);
}

bool parse_period(const char *text, int64_t *total) {
    const char *p = text;
    skip_blanks(p);
    // A lone number is seconds.
    const char *number_end = p;
    int64_t value = 0;
    if (read_number(number_end, 10, &value)) {
        const char *rest = number_end;
        skip_blanks(rest);
        if (*rest == '\0') {
            *total = value;
            return value <= kMaxStamp;
        }
    }
    int64_t sum = 0;
    do {
        int64_t count = 0;
        Unit unit = Unit::seconds;
        if (!read_term(p, &count, &unit)) {
            return false;
        }
        sum += count * unit_seconds(unit);
        if (sum > kMaxStamp) {
            return false;
        }
        skip_blanks(p);
    } while (*p != '\0');
    *total = sum;
    return true;
}

// ---- times of day and digit-group dates ----------------------------------------

struct Clock {
    int hour = 0;
    int minute = 0;
    int second = 0;
};

// "h:mm" or "h:mm:ss" at p, hours of one or two digits; steps past it. The
// clock must not run on into further digits or colons.
bool read_clock(const char *&p, Clock *clock) {
    const char *q = p;
    size_t hour_digits = run_length(q, 2, is_digit);
    if (hour_digits == 0 || hour_digits > 2 || q[hour_digits] != ':') {
        return false;
    }
    clock->hour = static_cast<int>(digits_value(q, hour_digits));
    q += hour_digits + 1;
    if (run_length(q, 2, is_digit) != 2) {
        return false;
    }
    clock->minute = static_cast<int>(digits_value(q, 2));
    q += 2;
    clock->second = 0;
    if (*q == ':') {
        ++q;
        if (run_length(q, 2, is_digit) != 2) {
            return false;
        }
        clock->second = static_cast<int>(digits_value(q, 2));
        q += 2;
    }
    if (is_digit(*q) || *q == ':' || clock->hour > 23 || clock->minute > 59 || clock->second > 59) {
        return false;
    }
    p = q;
    return true;
}

// A digit-group date of n digits at p (all digits, checked by the caller) as
// local time.
bool digit_groups_to_seconds(const char *p, size_t n, int64_t *out) {
    auto two = [p](size_t at) { return static_cast<int>(digits_value(p + at, 2)); };
    int day = 0;
    int month = 0;
    int year = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
    if (n < 4) {
        return false;
    }
    day = two(0);
    month = two(2);
    size_t rest = 4;
    switch (n) {
    case 4: {
        std::tm now{};
        if (plat_localtime(now_seconds(), &now) != 0) {
            return false;
        }
        year = now.tm_year + 1900;
        break;
    }
    case 6:
    case 10:
        year = two(4);
        year += year < 70 ? 2000 : 1900;
        rest = 6;
        break;
    case 8:
    case 12:
    case 14:
        year = static_cast<int>(digits_value(p + 4, 4));
        rest = 8;
        break;
    default: return false;
    }
    if (n >= 10) {
        hour = two(rest);
        minute = two(rest + 2);
    }
    if (n == 14) {
        second = two(rest + 4);
    }
    if (month < 1 || month > 12 || year < 1900 || day < 1 || day > days_in_month(year, month - 1) ||
        hour > 23 || minute > 59 || second > 59) {
        return false;
    }
    return local_date_to_seconds(year, month, day, hour, minute, second, out);
}

// A text that must be a digit-group date through and through.
bool parse_digit_date(const char *text, int64_t *out) {
    for (const char *p = text; *p != '\0'; ++p) {
        if (!is_digit(*p)) {
            vq::debug::trace_bit(vq::debug::kChannelTime, "unknown date format - <%s> (<%c> is not a digit)\n", text, *p);
            return false;
        }
    }
    return digit_groups_to_seconds(text, std::strlen(text), out);
}

// ---- the stamp form -------------------------------------------------------------

bool parse_stamp_form(const char *text, tvtime *out) {
    const char *p = text;
    if (*p++ != 'G') {
        return false;
    }
    int64_t seconds = 0;
    if (!read_number(p, 10, &seconds) || seconds > std::numeric_limits<uint32_t>::max() || *p++ != 'O') {
        return false;
    }
    bool negative = *p == '-';
    if (negative) {
        ++p;
    }
    int64_t zone = 0;
    if (!read_number(p, 5, &zone) || zone > kMaxStoredZone || *p != '\0') {
        return false;
    }
    out->seconds = static_cast<uint32_t>(seconds);
    out->zone = static_cast<int32_t>(negative ? -zone : zone);
    return true;
}

// ---- relative dates -------------------------------------------------------------

bool apply_offset(int64_t t, int64_t count, Unit unit, int64_t *out) {
    switch (unit) {
    case Unit::seconds:
    case Unit::minutes:
    case Unit::hours: *out = t + count * unit_seconds(unit); return in_stamp_range(*out);
    case Unit::days: return shift_days(t, count, out);
    case Unit::weeks: return count >= -10000 && count <= 10000 && shift_days(t, count * 7, out);
    case Unit::months: return shift_months(t, count, out);
    case Unit::years: return count >= -100 && count <= 100 && shift_months(t, count * 12, out);
    }
    return false;
}

bool parse_relative(const char *text, int64_t base, int64_t *out) {
    const char *p = text;
    int64_t t = base;
    bool any = false;
    skip_blanks(p);
    // The anchor: a word or a digit-group date (digits not followed by a colon).
    if (is_alpha(*p)) {
        size_t n = run_length(p, kLongestDayWord, is_alpha);
        int64_t days = 0;
        if (word_is(p, n, "now")) {
            t = base;
        } else if (!day_word(p, n, &days) || !local_midnight(base, days, &t)) {
            return false;
        }
        p += n;
        any = true;
    } else if (is_digit(*p)) {
        size_t n = run_length(p, 14, is_digit);
        if (p[n] != ':') {
            if (n > 14 || !digit_groups_to_seconds(p, n, &t)) {
                return false;
            }
            p += n;
            any = true;
        }
    }
    skip_blanks(p);
    // The clock.
    if (is_digit(*p)) {
        Clock clock;
        if (!read_clock(p, &clock) || !set_time_of_day(t, clock.hour, clock.minute, clock.second, &t)) {
            return false;
        }
        any = true;
        skip_blanks(p);
    }
    // Offsets: a sign and one or more terms.
    while (*p == '+' || *p == '-') {
        int64_t sign = *p == '-' ? -1 : 1;
        ++p;
        skip_blanks(p);
        do {
            int64_t count = 0;
            Unit unit = Unit::seconds;
            if (!read_term(p, &count, &unit) || !apply_offset(t, sign * count, unit, &t)) {
                return false;
            }
            skip_blanks(p);
        } while (is_digit(*p));
        any = true;
    }
    if (*p != '\0' || !any || !in_stamp_range(t)) {
        return false;
    }
    *out = t;
    return true;
}

// ---- zones in text -----------------------------------------------------------------

bool parse_zone(const char *text, int32_t *zone) {
    const char *p = text;
    size_t n = run_length(p, 3, is_alpha);
    if (n == 1 && word_is(p, 1, "z") && p[1] == '\0') {
        *zone = 0;
        return true;
    }
    if (n == 3 && (word_is(p, 3, "utc") || word_is(p, 3, "gmt"))) {
        p += 3;
        if (*p == '\0') {
            *zone = 0;
            return true;
        }
    } else if (n != 0) {
        return false;
    }
    if (*p != '+' && *p != '-') {
        return false;
    }
    int64_t sign = *p++ == '-' ? -1 : 1;
    size_t digits = run_length(p, 4, is_digit);
    int64_t hours = 0;
    int64_t minutes = 0;
    if (digits == 4 && p[4] == '\0') {
        hours = digits_value(p, 2);
        minutes = digits_value(p + 2, 2);
        p += 4;
    } else if (digits == 1 || digits == 2) {
        hours = digits_value(p, digits);
        p += digits;
        if (*p == ':') {
            ++p;
            if (run_length(p, 2, is_digit) != 2) {
                return false;
            }
            minutes = digits_value(p, 2);
            p += 2;
        }
    } else {
        return false;
    }
    int64_t seconds = hours * 3600 + minutes * 60;
    if (*p != '\0' || minutes > 59 || seconds > kMaxZoneText) {
        return false;
    }
    *zone = static_cast<int32_t>(sign * seconds);
    return true;
}

// "dd-MON-yyyy hh:mm:ss" of t's local time into buf.
bool display_form(int64_t t, char *buf) {
    std::tm tm{};
    if (plat_localtime(t, &tm) != 0 || tm.tm_year < -1900 || tm.tm_year > 9999 - 1900) {
        return false;
    }
    char *p = put_fixed(buf, tm.tm_mday, 2);
    *p++ = '-';
    std::memcpy(p, kMonthNames[tm.tm_mon], 3);
    p += 3;
    *p++ = '-';
    p = put_fixed(p, tm.tm_year + 1900, 4);
    *p++ = ' ';
    p = put_fixed(p, tm.tm_hour, 2);
    *p++ = ':';
    p = put_fixed(p, tm.tm_min, 2);
    *p++ = ':';
    p = put_fixed(p, tm.tm_sec, 2);
    *p = '\0';
    return true;
}

}  // namespace
}  // namespace vq::timeconv

using namespace vq::timeconv;

extern "C" {

// ---- texts --------------------------------------------------------------------------------------

VQ_API const char *conv_tvtime_to_string(const tvtime *t) {
    if (t == nullptr) {
        VQ_PARAMS(Report::add, "t");
        return nullptr;
    }
    TimeRecord *rec = Frame::get();
    if (rec == nullptr) {
        VQ_NO_MEMORY(Report::add, kModule);
        return nullptr;
    }
    char *p = rec->stamp_text;
    *p++ = 'G';
    p = put_digits(p, t->seconds);
    *p++ = 'O';
    int64_t zone = t->zone;
    if (zone < 0) {
        *p++ = '-';
        zone = -zone;
    }
    p = put_digits(p, static_cast<uint64_t>(zone));
    *p = '\0';
    return rec->stamp_text;
}

VQ_API int conv_string_to_tvtime(const char *text, tvtime *t) {
    if (text == nullptr || t == nullptr) {
        return VQ_PARAMS(Report::add, text == nullptr ? "text" : "t");
    }
    if (text[0] == 'G') {
        return parse_stamp_form(text, t) ? 1 : bad_text(text);
    }
    int64_t seconds = 0;
    if (!parse_digit_date(text, &seconds)) {
        return bad_text(text);
    }
    make_stamp(seconds, t);
    return 1;
}

VQ_API int conv_string_to_tolv(const char *text, tvtime *t) {
    if (text == nullptr || t == nullptr) {
        return VQ_PARAMS(Report::add, text == nullptr ? "text" : "t");
    }
    size_t n = run_length(text, kLongestDayWord, is_alpha);
    int64_t seconds = 0;
    bool ok = false;
    if (n > 0 && text[n] == '\0') {
        int64_t days = 0;
        if (day_word(text, n, &days)) {
            ok = local_midnight(now_seconds(), days, &seconds);
        } else {
            vq::debug::trace_bit(vq::debug::kChannelTime, "unknown date format - <%s> (<%c> is not a digit)\n", text, text[0]);
        }
    } else {
        ok = parse_digit_date(text, &seconds);
    }
    if (!ok) {
        return bad_text(text);
    }
    make_stamp(seconds, t);
    return 1;
}

VQ_API const char *conv_tolv_to_ascii(const tvtime *t) {
    if (t == nullptr) {
        VQ_PARAMS(Report::add, "t");
        return nullptr;
    }
    TimeRecord *rec = Frame::get();
    if (rec == nullptr) {
        VQ_NO_MEMORY(Report::add, kModule);
        return nullptr;
    }
    std::tm tm{};
    if (plat_localtime(signed_seconds(*t), &tm) != 0 || tm.tm_year < -1900 || tm.tm_year > 9999 - 1900) {
        bad_value("stamp seconds", static_cast<long long>(signed_seconds(*t)));
        return nullptr;
    }
    char *p = put_fixed(rec->digits_text, tm.tm_mday, 2);
    p = put_fixed(p, tm.tm_mon + 1, 2);
    p = put_fixed(p, tm.tm_year + 1900, 4);
    p = put_fixed(p, tm.tm_hour, 2);
    p = put_fixed(p, tm.tm_min, 2);
    p = put_fixed(p, tm.tm_sec > 59 ? 59 : tm.tm_sec, 2);
    *p = '\0';
    return rec->digits_text;
}

VQ_API const char *conv_tolvenar_to_ascii(const tvtime *t) {
    if (t == nullptr) {
        VQ_PARAMS(Report::add, "t");
        return nullptr;
    }
    TimeRecord *rec = Frame::get();
    if (rec == nullptr) {
        VQ_NO_MEMORY(Report::add, kModule);
        return nullptr;
    }
    if (!display_form(signed_seconds(*t), rec->display_text)) {
        bad_value("stamp seconds", static_cast<long long>(signed_seconds(*t)));
        return nullptr;
    }
    return rec->display_text;
}

VQ_API const char *conv_time_to_string(const time_t *t) {
    if (t == nullptr) {
        VQ_PARAMS(Report::add, "t");
        return nullptr;
    }
    TimeRecord *rec = Frame::get();
    if (rec == nullptr) {
        VQ_NO_MEMORY(Report::add, kModule);
        return nullptr;
    }
    if (!display_form(static_cast<int64_t>(*t), rec->time_text)) {
        bad_value("time value", static_cast<long long>(*t));
        return nullptr;
    }
    return rec->time_text;
}

VQ_API const char *conv_time_to_vms_string(const time_t *t) {
    if (t == nullptr) {
        VQ_PARAMS(Report::add, "t");
        return nullptr;
    }
    TimeRecord *rec = Frame::get();
    if (rec == nullptr) {
        VQ_NO_MEMORY(Report::add, kModule);
        return nullptr;
    }
    std::tm tm{};
    if (plat_localtime(static_cast<int64_t>(*t), &tm) != 0 || tm.tm_year < -1900 || tm.tm_year > 9999 - 1900) {
        bad_value("time value", static_cast<long long>(*t));
        return nullptr;
    }
    std::snprintf(rec->vms_text, sizeof rec->vms_text, "%02d%s%04d%02d%02d", tm.tm_mday,
                  kMonthNames[tm.tm_mon], tm.tm_year + 1900, tm.tm_hour, tm.tm_min);
    return rec->vms_text;
}

VQ_API int conv_vms_string_to_time_t(const char *text, time_t *out) {
    if (text == nullptr || out == nullptr) {
        return VQ_PARAMS(Report::add, text == nullptr ? "text" : "out");
    }
    // Two digits, three letters, eight digits, and the end.
    const char *p = text;
    if (run_length(p, 2, is_digit) != 2 || run_length(p + 2, 3, is_alpha) != 3 ||
        run_length(p + 5, 8, is_digit) != 8 || p[13] != '\0') {
        return bad_text(text);
    }
    int month = 0;
    while (month < 12 && !word_is(p + 2, 3, kMonthNames[month])) {
        ++month;
    }
    auto day = static_cast<int>(digits_value(p, 2));
    auto year = static_cast<int>(digits_value(p + 5, 4));
    auto hour = static_cast<int>(digits_value(p + 9, 2));
    auto minute = static_cast<int>(digits_value(p + 11, 2));
    int64_t seconds = 0;
    if (month == 12 || year < 1900 || day < 1 || day > days_in_month(year, month) || hour > 23 ||
        minute > 59 || !local_date_to_seconds(year, month + 1, day, hour, minute, 0, &seconds)) {
        return bad_text(text);
    }
    *out = static_cast<time_t>(seconds);
    return 1;
}

VQ_API int conv_string_to_timezone(const char *text, int32_t *zone) {
    if (text == nullptr || zone == nullptr) {
        return VQ_PARAMS(Report::add, text == nullptr ? "text" : "zone");
    }
    return parse_zone(text, zone) ? 1 : bad_text(text);
}

VQ_API int conv_string_to_seconds(const char *text, int32_t *seconds) {
    if (text == nullptr || seconds == nullptr) {
        return VQ_PARAMS(Report::add, text == nullptr ? "text" : "seconds");
    }
    int64_t total = 0;
    if (!parse_period(text, &total)) {
        vq::debug::trace_bit(vq::debug::kChannelTime, "error parsing time period '%s'\n", text);
        return bad_text(text);
    }
    *seconds = static_cast<int32_t>(total);
    return 1;
}

VQ_API int check_time_string_format(const char *text) {
    if (text == nullptr) {
        return VQ_PARAMS(Report::add, "text");
    }
    const char *p = text;
    Clock clock;
    if (!read_clock(p, &clock) || *p != '\0') {
        vq::debug::trace_bit(vq::debug::kChannelTime, "error parsing time format '%s'\n", text);
        return bad_text(text);
    }
    return 1;
}

VQ_API int compute_relative_date_with_base(const char *text, const tvtime *base, tvtime *out) {
    if (text == nullptr || out == nullptr) {
        return VQ_PARAMS(Report::add, text == nullptr ? "text" : "out");
    }
    int64_t start = base != nullptr ? signed_seconds(*base) : now_seconds();
    if (!in_stamp_range(start)) {
        return bad_value("base seconds", static_cast<long long>(start));
    }
    int64_t seconds = 0;
    if (!parse_relative(text, start, &seconds)) {
        return bad_text(text);
    }
    make_stamp(seconds, out);
    return 1;
}

}  // extern "C"
