/* Debug tracing: per-thread channel masks and trace output.
 *
 * A trace line is written when its channels share a bit with the thread's
 * 64-bit mask, when the thread's debug flag is set, or when its channels are
 * 0. Lines go to the thread's output stream (standard output by default),
 * exactly as formatted by the caller, and are flushed at once.
 *
 * Channels have names (CLI 0, CLI_DUMP 1, STANDARD 3, ENV 4, GMS 5, API 6,
 * COMPRESSION 7, PARSE 8, FLOW 11, ERROR 14, ERRMSG 41, GF 43, CONFIG 52,
 * NETWORK 55, FILTER 56, ...; the DBG_BIT_ and DBG_CHANNEL_ constants below).
 * Programs of the product reuse bits under names of their own; a name means
 * the bit of its first row in the channel table. */
#ifndef VQ_GLOB_DBG_H
#define VQ_GLOB_DBG_H

#include <stdio.h>

#include "vq_glob/export.h"

/* ---- Channels ---- */

/* Bits of the library's own channels, the numbers dbg_mkone, dbg_mklist and
 * dbg_get_channel_bit deal in; each is the first table row of its name, so
 * dbg_get_channel_bit("CONFIG") == DBG_BIT_CONFIG. FLOW and ERROR are the
 * program channels on which the containers trace. */
#define DBG_BIT_CLI 0
#define DBG_BIT_CLI_DUMP 1
#define DBG_BIT_STANDARD 3
#define DBG_BIT_ENV 4
#define DBG_BIT_GMS 5
#define DBG_BIT_API 6
#define DBG_BIT_COMPRESSION 7
#define DBG_BIT_FLOW 11
#define DBG_BIT_ERROR 14
#define DBG_BIT_ERRMSG 41
#define DBG_BIT_PROXY 42
#define DBG_BIT_GF 43
#define DBG_BIT_API_DUMP 44
#define DBG_BIT_TIME 45
#define DBG_BIT_SEMAPH 46
#define DBG_BIT_CLI_CACHE 47
#define DBG_BIT_CRYPT 48
#define DBG_BIT_MISC 49
#define DBG_BIT_SLSEC 50
#define DBG_BIT_SHM 51
#define DBG_BIT_CONFIG 52
#define DBG_BIT_CYCLIC 53
#define DBG_BIT_CCONF 54
#define DBG_BIT_NETWORK 55
#define DBG_BIT_FILTER 56
#define DBG_BIT_VQ_UPD_PASSWD 57
#define DBG_BIT_TOLV 58

/* The same channels below bit 32 as the 32-bit values new_dbg_str,
 * new_dbg_void and dbg_check_mask take (1 shifted by the bit); OR them to
 * name several. The others are reached through large_dbg_str only. */
#define DBG_CHANNEL_CLI 0x1u
#define DBG_CHANNEL_CLI_DUMP 0x2u
#define DBG_CHANNEL_STANDARD 0x8u
#define DBG_CHANNEL_ENV 0x10u
#define DBG_CHANNEL_GMS 0x20u
#define DBG_CHANNEL_API 0x40u
#define DBG_CHANNEL_COMPRESSION 0x80u
#define DBG_CHANNEL_FLOW 0x800u
#define DBG_CHANNEL_ERROR 0x4000u

VQ_EXTERN_C_BEGIN

/* Stores the debug flag; 1 also sets every channel, any other value clears them. */
VQ_API void dbg_set_debug(int flag);
VQ_API int dbg_get_debug_flag(void);
/* The mask becomes / is cleared / is ORed with the 8 given bytes (bit n is
 * byte n/8, bit n%8). */
VQ_API void dbg_set_debug_mask_value(const unsigned char *mask8);
VQ_API void dbg_clear_debug_mask(void);
VQ_API void dbg_or_debug_mask(const unsigned char *mask8);
/* Pointer to the thread's 8 mask bytes (NULL if the thread has no state). */
VQ_API const unsigned char *dbg_get_debug_mask(void);
/* Applies one channel name (case-insensitive): "ALL" sets every channel,
 * "NONE" and "NOALL" clear them, "NO<name>" clears the named channel, any
 * other known name sets it; unknown names change nothing. */
VQ_API void dbg_add_debug_mask(const char *name);
/* Applies every name of a list such as "(CLI,GF,NOERROR)": one pair of
 * parentheses is dropped, names are split at blanks, tabs and commas. Uses
 * the thread's string tokenizer, so it ends any tokenizing in progress. */
VQ_API void dbg_set_debug_mask_string(const char *text);
/* Reads the settings named name: the environment variable name, then the
 * first line of the file name in the system directory (/etc on POSIX), which
 * wins. A value starting with "E" switches tracing off, "D" fully on, "("
 * applies it as a channel list; anything else is ignored. Resets the push depth. */
VQ_API void dbg_init_debug(const char *name);
/* The bit of a channel name (first matching row), or -1 when unknown. */
VQ_API int32_t dbg_get_channel_bit(const char *name);
/* The thread's mask / the given 8 bytes as 16 upper-case hexadecimal digits
 * in the hex conversion's per-thread buffer (overwritten by its next call). */
VQ_API const char *dbg_get_debug_mask_hex(void);
VQ_API const char *dbg_convert_debug_to_hex(const unsigned char *mask8);
/* Saves the mask (at most nine deep; deeper pushes overwrite the top) / restores
 * the last saved one (nothing at depth 0). */
VQ_API void dbg_push_debug_mask(void);
VQ_API void dbg_pop_debug_mask(void);

/* Opens path for writing (truncating) as the thread's output; 1, or 0 when it
 * cannot be opened. The previous stream is not closed. */
VQ_API int dbg_set_debug_output_filename(const char *path);
/* Sets the output stream; NULL means standard output. */
VQ_API void dbg_set_debug_output(FILE *stream);
/* Closes the output stream if one is set; set a new output before tracing again. */
VQ_API void dbg_close_debug_output(void);

/* Writes only when the debug flag is set. */
VQ_API void dbg_str(const char *format, ...) VQ_PRINTF(1, 2);
/* Writes when channels (bits 0..31) is 0, the flag is set, or it shares a bit
 * with the mask. */
VQ_API void new_dbg_str(int32_t channels, const char *format, ...) VQ_PRINTF(2, 3);
/* The same test over 8 channel bytes (channels 0..63). */
VQ_API void large_dbg_str(const unsigned char *channels, const char *format, ...) VQ_PRINTF(2, 3);
/* Writes count bytes one by one, then a line end, under new_dbg_str's test. */
VQ_API void new_dbg_void(int32_t channels, const void *bytes, int32_t count);
/* 1 when new_dbg_str(channels, ...) would write. */
VQ_API int dbg_check_mask(int32_t channels);
/* Clears the thread's scratch mask, sets one bit (0..63) and returns it. */
VQ_API unsigned char *dbg_mkone(int bit);
/* Clears the scratch mask and sets bit and each further argument up to a
 * terminating 0 (at most eleven in all; bits of 64 and above are ignored).
 * The first argument is always applied, so channel 0 may be named first. */
VQ_API unsigned char *dbg_mklist(int bit, ...);
/* Adds / removes two blanks of indentation; dbg_get_indent returns the run. */
VQ_API void dbg_inc(void);
VQ_API void dbg_dec(void);
VQ_API const char *dbg_get_indent(void);

/* ---- Timing summaries ---- */

/* The processor clock (the C runtime's clock()) in milliseconds. */
VQ_API int32_t dbg_time_get_start_time(void);
/* Adds the seconds since start (a dbg_time_get_start_time value) to *sum and
 * counts one more call in *count. */
VQ_API void dbg_time_sum_duration_and_appearances_by_start_time(double *sum, int32_t *count, int32_t start);
/* Writes the summary of one function's calls (count, total and average
 * seconds) to the output stream; with total > 0 also its share of that
 * enclosing total. */
VQ_API void dbg_time_all_summary(const char *function, double sum, int32_t count, double total);

VQ_EXTERN_C_END

#endif /* VQ_GLOB_DBG_H */
