// What the two halves of the time module share: the per-thread record, the
// zone, the stamp range, the error helpers and the local-time calendar.
#pragma once

#include "internal/trace.h"

#include <cstdint>
#include <ctime>
#include <limits>

#include "internal/frame.h"
#include "internal/raise.h"
#include "vq_glob/tvtime.h"

namespace vq::timeconv {

using raise::Report;

inline constexpr const char *kModule = "time_conv";

// Stamps computed here stay where signed comparison still orders them.
inline constexpr int64_t kMaxStamp = std::numeric_limits<int32_t>::max();

inline constexpr size_t kTextSize = 48;

inline constexpr const char *kMonthNames[12] = {"JAN", "FEB", "MAR", "APR", "MAY", "JUN",
                                                "JUL", "AUG", "SEP", "OCT", "NOV", "DEC"};

struct TimeRecord {
    // The zone is taken on the thread's first call that needs it, together
    // with the local broken-down time of that moment, and never again.
    bool zone_known = false;
    int32_t zone = 0;
    std::tm zone_moment{};
    // One result buffer per text conversion.
    char stamp_text[kTextSize] = {0};
    char digits_text[kTextSize] = {0};
    char display_text[kTextSize] = {0};
    char time_text[kTextSize] = {0};
    char vms_text[kTextSize] = {0};
    // The stopwatch, in whole seconds of the time value.
    int32_t timer_start = 0;
    int32_t timer_end = 0;
    int32_t timer_delta = 0;
};

using Frame = frame::ModuleFrame<TimeRecord, frame::kSlotTime, frame::OnDemand::yes>;

// ---- errors of this module: each pushes its entry and returns 0 ----------------
// (bad arguments and a missing thread record go through internal/raise.h)

// GEN TIMEFRMT naming the text that is no time.
int bad_text(const char *text);
// GEN ERRVAL naming what was out of range and its value.
int bad_value(const char *what, long long value);

// ---- the zone and stamps ------------------------------------------------------

// The calling thread's zone, taken once per thread.
int32_t thread_zone();

inline int64_t now_seconds() { return static_cast<int64_t>(std::time(nullptr)); }

inline bool in_stamp_range(int64_t seconds) { return seconds >= 0 && seconds <= kMaxStamp; }

// A stamp of seconds with the thread's zone.
void make_stamp(int64_t seconds, tvtime *out);

// The stamp's seconds as comparisons read them.
inline int64_t signed_seconds(const tvtime &t) { return static_cast<int32_t>(t.seconds); }

// ---- the local-time calendar ----------------------------------------------------

// Days of a month (0-11) of a year.
int days_in_month(int64_t year, int month0);
// Local broken-down time to seconds, within the stamp range.
bool local_to_seconds(std::tm tm, int64_t *out);
// A calendar date (month 1-12) and time of day in local time to seconds.
bool local_date_to_seconds(int year, int month, int day, int hour, int minute, int second, int64_t *out);
// Moves a local time by whole days or months, keeping the time of day; a
// month move keeps the day of month, cut to the length of the target month.
bool shift_days(int64_t t, int64_t days, int64_t *out);
bool shift_months(int64_t t, int64_t months, int64_t *out);
// Local midnight of t's day, moved by days.
bool local_midnight(int64_t t, int64_t days, int64_t *out);
// Sets the local time of day of t's day.
bool set_time_of_day(int64_t t, int hour, int minute, int second, int64_t *out);

}  // namespace vq::timeconv
