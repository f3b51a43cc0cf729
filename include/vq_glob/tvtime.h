/* Time stamps and their conversions.
 *
 * A point in time travels as a tvtime stamp: seconds since 1970-01-01 00:00:00
 * UTC and the UTC offset (zone) of the machine that made it, in seconds,
 * daylight saving included, positive east of Greenwich. Stamps compare by
 * their seconds only, read as a signed 32-bit number; zones never take part.
 *
 * Each thread computes its own zone once, on its first call that needs it,
 * and keeps it for the thread's life: stamps made on this thread carry it.
 *
 * Local times. Wherever a text or a broken-down time names a wall-clock time
 * without a zone (the digit-group dates, the words today/tomorrow/yesterday,
 * the display forms, struct tm), it is this machine's local time as the C
 * runtime's mktime/localtime see it, daylight saving by date.
 *
 * Range. Stamps that these functions compute from dates, texts, time values
 * or file times lie between get_min_date (0) and 2^31 - 1 seconds (early 2038);
 * anything beyond fails with ERR_GEN_ERRVAL or, for texts, ERR_GEN_TIMEFRMT
 * on the error stack. A NULL argument fails with ERR_GEN_PARAMS. Failures
 * return 0 (or NULL); 1 is success.
 *
 * time_t is the C runtime's type of the library's build: 64 bits on Linux and
 * on the x86_64 DLL, 32 bits on the i686 DLL (mingw-w64's msvcrt headers), so
 * a 32-bit Windows caller must compile with a 32-bit time_t as well.
 *
 * Texts returned by the conversions live in a per-thread buffer of each
 * function, overwritten by that function's next call on the same thread.
 * Parsing failures are traced on debug channel 0x800 (TIME). */
#ifndef VQ_GLOB_TVTIME_H
#define VQ_GLOB_TVTIME_H

#include <time.h>

#include "vq_glob/export.h"

VQ_EXTERN_C_BEGIN

/* The stamp: two 32-bit words, host byte order in memory. */
typedef struct {
    uint32_t seconds; /* since the epoch, UTC; compared as signed */
    int32_t zone;     /* the writer's local offset from UTC, seconds */
} tvtime;

/* The old stamp: a broken-down local time, the nine fields of a C struct tm
 * in their order (tm_sec 0-61, tm_min 0-59, tm_hour 0-23, tm_mday 1-31,
 * tm_mon 0-11, tm_year since 1900, tm_wday 0-6, tm_yday 0-365, tm_isdst
 * positive / 0 / negative for in effect / not / unknown). All of seconds,
 * minutes, hours, day, month and year zero means the smallest date. */
typedef struct {
    int32_t tm_sec;
    int32_t tm_min;
    int32_t tm_hour;
    int32_t tm_mday;
    int32_t tm_mon;
    int32_t tm_year;
    int32_t tm_wday;
    int32_t tm_yday;
    int32_t tm_isdst;
} tvtime_old;

/* A Windows file time: 100-nanosecond intervals since 1601-01-01 00:00:00
 * UTC, as the two 32-bit halves of the Win32 FILETIME, in its order (a
 * FILETIME may be passed for it). */
typedef struct {
    uint32_t low;
    uint32_t high;
} tv_nttime;

/* The largest date, seconds 2145923999 (2038-01-01 01:59:59 UTC), a fixed
 * constant of the stamp format. */
#define TVTIME_MAX_SECONDS 2145923999u

/* ---- The clock and the zone ------------------------------------------------ */

/* Now, with the thread's zone. */
VQ_API int get_system_time(tvtime *t);
/* The thread's zone in seconds: local minus UTC at the moment the thread
 * first asked, daylight saving included. 0 if the thread has no state and
 * the runtime cannot break the present down. */
VQ_API int32_t get_timezone(void);
/* Today's local midnight / now plus seconds (which may be negative). */
VQ_API int get_today(tvtime *t);
VQ_API int get_ahead_time(int32_t seconds, tvtime *t);
/* The largest / smallest date, with the thread's zone. */
VQ_API int get_max_date(tvtime *t);
VQ_API int get_min_date(tvtime *t);

/* ---- Comparing and shifting ------------------------------------------------ */

/* -1, 0 or 1 as a's seconds are below, equal to or above b's (zones ignored;
 * 0 with a PARAMS error for a NULL stamp). */
VQ_API int tolv_difftime(const tvtime *a, const tvtime *b);
/* a's seconds minus b's (0 for a NULL stamp). */
VQ_API int32_t get_tolvenar_time_diff(const tvtime *a, const tvtime *b);
/* a when a is strictly earlier, else b: equal stamps give b. NULL for a NULL
 * argument. */
VQ_API tvtime *min_time(tvtime *a, tvtime *b);
/* seconds += n, modulo 2^32. */
VQ_API int add_seconds_to_tolvenar(tvtime *t, int32_t n);

/* ---- Byte order ------------------------------------------------------------ */

/* Both fields to / from network byte order (big-endian), in place. */
VQ_API int hton_time(tvtime *t);
VQ_API int ntoh_time(tvtime *t);

/* ---- Conversions ----------------------------------------------------------- */

/* A time value (0 to 2^31 - 1) to a stamp with the thread's zone / with
 * zone 0. */
VQ_API int conv_sys_to_tolvenar(const time_t *in, tvtime *out);
VQ_API int conv_sys_to_gmt_tolvenar(const time_t *in, tvtime *out);
/* The stamp's seconds as a time value (read as signed); 0 for NULL. */
VQ_API time_t conv_tolvenar_to_sys(const tvtime *t);
/* The stamp as local broken-down time (localtime). */
VQ_API int conv_tolvenar_to_tm(const tvtime *t, struct tm *out);
/* Local broken-down time to a stamp with the thread's zone. The fields are
 * range-checked as the old stamp's (tm_wday and tm_yday are ignored); all
 * zero gives the smallest date. */
VQ_API int conv_tm_to_tolvenar(const struct tm *in, tvtime *out);
/* A file time to a stamp with the thread's zone; fractions of a second are
 * dropped. */
VQ_API int conv_nttime_to_tolvenar(const tv_nttime *in, tvtime *out);
/* Broken-down UTC (as gmtime gives it; years 1601 to 9999) to a file time. */
VQ_API int conv_gmtime_to_nttime(const struct tm *gmt, tv_nttime *out);
/* Old to new: all-zero date and time fields give seconds 0; otherwise every
 * field is range-checked and the local time converted (tm_isdst decides an
 * hour that occurs twice). New to old: the local broken-down time; seconds 0
 * gives the all-zero record. */
VQ_API int conv_tolvenar_old_to_new(const tvtime_old *old, tvtime *out);
VQ_API int conv_tolvenar_new_to_old(const tvtime *t, tvtime_old *out);

/* ---- Texts ------------------------------------------------------------------
 *
 * Stamp form: "G<seconds>O<zone>", as printf's "G%luO%d" writes it: seconds
 * 0 to 4294967295, zone an optional "-" and digits, its size below 86400.
 *
 * Digit-group dates, local time, exactly these lengths and nothing else:
 *   ddmm            day and month of the current year, 00:00:00
 *   ddmmyy          yy 70-99 is 19yy, 00-69 is 20yy
 *   ddmmyyyy
 *   ddmmyyhhmm
 *   ddmmyyyyhhmm
 *   ddmmyyyyhhmmss
 * Months 01-12, days 01 to the month's length, hours 00-23, minutes and
 * seconds 00-59. A time the local clock skips (daylight saving) is moved on
 * by the C runtime.
 *
 * Periods: one or more terms "<number> <unit>", the blank optional and
 * allowed between terms ("90 minutes", "1h30m", "2 days 12 hours"); a text
 * that is a single number is seconds. Units, case-insensitive:
 *   seconds  s sec secs second seconds      minutes  m min mins minute minutes
 *   hours    h hr hrs hour hours            days     d day days
 *   weeks    w wk wks week weeks            months   mon mons month months
 *   years    y yr yrs year years
 * A month is 30 days, a year 365 days; the total must stay below 2^31. */

/* "G%luO%d" of the stamp. */
VQ_API const char *conv_tvtime_to_string(const tvtime *t);
/* Reads the stamp form (seconds and zone as written) or a digit-group date
 * (the thread's zone). */
VQ_API int conv_string_to_tvtime(const char *text, tvtime *t);
/* Reads "today", "tomorrow", "yesterday" (local midnight; case-insensitive)
 * or a digit-group date, with the thread's zone. */
VQ_API int conv_string_to_tolv(const char *text, tvtime *t);
/* The 14-digit group form ddmmyyyyhhmmss of the stamp, local time; both
 * readers above read it back. */
VQ_API const char *conv_tolv_to_ascii(const tvtime *t);
/* Display forms "dd-MON-yyyy hh:mm:ss" in local time ("05-MAR-2024
 * 14:07:09") of a stamp / of a time value. */
VQ_API const char *conv_tolvenar_to_ascii(const tvtime *t);
VQ_API const char *conv_time_to_string(const time_t *t);
/* The compact form "%02d%s%04d%02d%02d": day, upper-case month name, year,
 * hours, minutes of the local time ("05MAR20241407"). */
VQ_API const char *conv_time_to_vms_string(const time_t *t);
/* Reads that form (13 characters; the month name in any case) as local time,
 * seconds 0. */
VQ_API int conv_vms_string_to_time_t(const char *text, time_t *out);
/* A UTC offset: "Z", "UTC", "GMT", or a sign and hours with optional minutes
 * ("+02", "-0530", "+05:30"), optionally after "UTC"/"GMT" ("GMT+1"); at most
 * 14 hours. Seconds, positive east. */
VQ_API int conv_string_to_timezone(const char *text, int32_t *zone);
/* A period (grammar above) in seconds. */
VQ_API int conv_string_to_seconds(const char *text, int32_t *seconds);
/* 1 when text is a time of day "h:mm" or "h:mm:ss" (hours of one or two
 * digits 0-23, minutes and seconds of two digits 0-59), else 0. */
VQ_API int check_time_string_format(const char *text);

/* A date relative to base (NULL: now):
 *
 *   text   := [anchor] [clock] { offset }        at least one of the three;
 *                                                blanks allowed between parts
 *   anchor := "now" | "today" | "tomorrow" | "yesterday" | digit-group date
 *   clock  := a time of day as check_time_string_format accepts it
 *   offset := ("+" | "-") number unit             one period term with a sign
 *
 * "now" (or no anchor) starts at base; "today" at base's local midnight,
 * "tomorrow" and "yesterday" one day after or before it; a date at that date.
 * A clock sets the local time of day of the anchor's day. Offsets apply in
 * order: seconds, minutes and hours add exact seconds; days and weeks move
 * the local calendar date and keep the time of day; months and years move
 * the calendar month or year and keep the day, cut to the length of the
 * target month (31 January + 1 month is the last day of February). Words and
 * units are case-insensitive. Examples: "+3days", "-2 hours", "today+1day",
 * "tomorrow 08:30", "01022024 -1 month". The result has the thread's zone. */
VQ_API int compute_relative_date_with_base(const char *text, const tvtime *base, tvtime *out);

/* ---- Stopwatch (per thread, whole seconds) --------------------------------- */

/* Records now as the start / the end. */
VQ_API int start_seconds_timer(void);
VQ_API int end_seconds_timer(void);
/* delta = end - start; traces "timer: start-%d,end-%d,delta-%d\n". */
VQ_API int set_delta_time(void);
/* The delta of the last set_delta_time. */
VQ_API int32_t get_delta_time(void);
/* Seconds from the start to now, without stopping the watch. */
VQ_API int32_t get_stoper_time(void);

/* ---- Stamps inside general messages (gm.h) ----------------------------------
 *
 * The message is the calling thread's message under construction (adding) or
 * the one last taken apart (reading). Adding returns 1 when the whole struct
 * was written, 0 when a bounded message has no room for it. Reading returns 0,
 * without an error, unless every member is present with its type. */

/* Appends a struct under code (value 1) of two members: code 0 a long holding
 * the seconds, code 1 an int holding the zone. */
VQ_API int add_tvtime_to_message(int32_t code, const tvtime *t);
/* Reads that struct back. */
VQ_API int get_tvtime_from_message(int32_t code, tvtime *t);
/* Appends the old stamp as a struct under code (value 1) of nine int members,
 * codes 0 to 8, the fields in their order. */
VQ_API int add_tvtime_old_to_message(int32_t code, const tvtime_old *t);
/* Reads that struct back. */
VQ_API int get_tvtime_old_from_message(int32_t code, tvtime_old *t);

VQ_EXTERN_C_END

#endif /* VQ_GLOB_TVTIME_H */
