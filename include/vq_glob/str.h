/* String utilities: trimming and in-place edits, tests, paths, conversions
 * between texts and string lists or numbers, the per-thread tokenizer, and
 * the per-thread time frame.
 *
 * Common rules:
 *  - "Blanks" are the blank and the tab; the trimming set of str_trim is the
 *    blank, tab, CR and LF. Letters are folded as ASCII only: bytes of 0x80
 *    and above never change case.
 *  - In-place routines take a writable NUL-terminated text and return 1, or
 *    0 with a PARAMS error (ERR_GEN_PARAMS) for a NULL text or bad argument.
 *  - Routines returning char * hand out a new malloc'ed text that the caller
 *    releases with free(); NULL means failure (PARAMS, or MEMORY:
 *    ERR_GEN_MEMORY).
 *  - Routines returning const char * use a buffer of the calling thread that
 *    the next call of the same routine on that thread overwrites.
 *  - String lists (char **) are in the ml_ format: malloc'ed array of
 *    strdup'ed texts ended by NULL, released with ml_free.
 *  - Path routines use VQ_PATH_SEPARATOR. */
#ifndef VQ_GLOB_STR_H
#define VQ_GLOB_STR_H

#include <stdio.h>

#include "vq_glob/export.h"


VQ_EXTERN_C_BEGIN

/* ---- Trimming and in-place edits ---------------------------------------- */

/* Removes blanks, tabs, CRs and LFs at both ends; the rest moves to text[0]. */
VQ_API int str_trim(char *text);
/* Removes every CR and LF at the end of text. */
VQ_API int str_trim_end_crlf(char *text);
/* Removes every CR and LF anywhere in text, joining its lines. */
VQ_API int str_remove_nl(char *text);
/* Shrinks every run of two or more blanks (not tabs) to one blank. */
VQ_API int str_handle_double_spaces(char *text);
/* Upper-cases the ASCII letters a-z in place. */
VQ_API int str_up_string(char *text);
/* Removes one sign from the end of text when text ends with it (1 either way);
 * a NUL sign is a PARAMS error. */
VQ_API int str_remove_end_sign(char *text, char sign);
/* Replaces every from with to; a NUL to removes the from characters instead.
 * A NUL from is a PARAMS error. */
VQ_API int str_replace_char_in_string(char *text, char from, char to);
/* Replaces every character found in charset with to; a NUL to removes them.
 * An empty charset changes nothing; a NULL charset is a PARAMS error. */
VQ_API int str_replace_charset_in_string(char *text, const char *charset, char to);
/* Replaces every "/" by VQ_PATH_SEPARATOR (nothing changes on POSIX). */
VQ_API int str_unix_to_native(char *path);
/* Appends text to the malloc'ed *target, growing it with realloc; a NULL
 * *target starts a new text. On failure (MEMORY) *target is left unchanged.
 * The caller frees *target with free(). */
VQ_API int str_cat_with_realloc(char **target, const char *text);

/* ---- Tests and counts ---------------------------------------------------- */

/* 1 when text is NULL, empty or holds only blanks, tabs, CRs and LFs, else 0. */
VQ_API int str_is_empty(const char *text);
/* The opposite of str_is_empty. */
VQ_API int str_is_not_empty(const char *text);
/* 1 when text begins / ends with the given bytes (an empty head or tail always
 * matches), else 0; case-sensitive. 0 with a PARAMS error for a NULL text. */
VQ_API int str_match_head(const char *text, const char *head);
VQ_API int str_match_tail(const char *text, const char *tail);
/* 1 when c occurs in text, else 0 (NUL never occurs); NULL text: 0, PARAMS. */
VQ_API int str_char_in_string(const char *text, char c);
/* Number of LF characters in text (a CRLF counts once); -1 with a PARAMS
 * error for NULL. */
VQ_API int32_t str_count_nl_in_string(const char *text);

/* ---- Paths ---------------------------------------------------------------- */

/* 1 when path lies strictly below dir: path starts with dir (trailing
 * separators of dir ignored), followed by a separator and at least one more
 * element. case_sensitive 0 folds ASCII letters. An empty dir contains
 * nothing. 0 otherwise, or with a PARAMS error for a NULL text. */
VQ_API int str_is_sub_dir_with_case_sensitive_option(const char *dir, const char *path,
                                                     int32_t case_sensitive);
/* As above; with equal_counts non-zero a path equal to dir (trailing
 * separators ignored on both) also gives 1. */
VQ_API int str_is_sub_dir_with_case_sensitive_and_equal_option(const char *dir, const char *path,
                                                                int32_t case_sensitive,
                                                                int32_t equal_counts);
/* Compares two paths as strcmp does, except that the separator sorts before
 * every other byte, so a directory's entries follow it directly (a < a/b <
 * a-b). -1, 0 or 1. A NULL text compares as empty, with a PARAMS error. */
VQ_API int32_t str_file_name_iterative_strcmp(const char *name1, const char *name2);
/* 1 when an element of path is "..", else 0 (NULL: 0 with a PARAMS error).
 * On Windows "/" also separates elements, as the system accepts it. */
VQ_API int str_relative_up_dir_included(const char *path);

/* ---- Lists and command lines --------------------------------------------- */

/* The list's texts joined by "," (or by sep, which may be any text) as a new
 * text; a NULL or empty list gives "". Caller frees the text with free(). */
VQ_API char *str_convert_list_to_string(char **list);
VQ_API char *str_convert_list_to_string_with_sep(char **list, const char *sep);
/* Splits text at every "," (or at every occurrence of sep, non-empty) into a
 * new string list stored in *list (an old *list is not freed); each element is
 * trimmed of blanks and tabs; an empty or blank text gives an empty list. The
 * caller frees the list with ml_free. 0 with PARAMS / MEMORY, *list untouched. */
VQ_API int str_convert_string_to_list(const char *text, char ***list);
VQ_API int str_convert_string_to_list_with_sep(const char *text, const char *sep, char ***list);
/* Joins argv[0..argc-1] with single blanks into a new command line. An
 * argument that is empty, ends in "\" or holds a blank, tab, LF, comma,
 * parenthesis or double quote is put in double quotes; inside, a quote gets a
 * backslash and backslashes before a quote (or the closing one) are doubled,
 * so that Windows programs and str_get_next_token(0) split it back unchanged.
 * Caller frees the text with free(). */
VQ_API char *str_pack_command_line(int32_t argc, char *const *argv);
/* A copy of text with a backslash before each of \ ^ $ . | ? * + ( ) [ ] { },
 * so that a regular expression matches it literally. Caller frees it. */
VQ_API char *str_re_escape(const char *text);
/* A copy of text broken into lines of at most width columns (0: 79) at
 * blanks, which are dropped at the breaks; a longer word is cut at width, and
 * line ends already in text are kept. Negative width: PARAMS. Caller frees it. */
VQ_API char *str_wrap_for_cli(const char *text, int32_t width);
/* Returns a copy of text in which every occurrence of from (non-empty),
 * scanned left to right without overlaps, is replaced by to. Caller frees it. */
VQ_API char *str_replace_string_in_string(const char *text, const char *from, const char *to);

/* ---- Numbers ------------------------------------------------------------- */

/* Decimal text of value / the shortest text that reads back as exactly value
 * ("inf", "-inf", "nan" for those), in a per-thread buffer (NULL without one). */
VQ_API const char *str_ltoa(int32_t value);
VQ_API const char *str_dtoa(double value);
/* The IPv4 address held in address, first byte most significant (host
 * order: 0x7F000001 is "127.0.0.1"), in a per-thread buffer. */
VQ_API const char *str_conv_addr_to_string(uint32_t address);
/* Reads the whole text, blanks around it allowed, as a decimal number with an
 * optional sign: str_atol into a 32-bit integer, str_atod into a double
 * (C-locale form, exponent allowed, "inf"/"nan" accepted). 1, or 0 with a
 * GENERAL error (ERR_GEN_GENERAL) naming the text when it is no such number or out of
 * range, *value then unchanged. */
VQ_API int str_atol(const char *text, int32_t *value);
VQ_API int str_atod(const char *text, double *value);

/* ---- Reading lines ------------------------------------------------------- */

/* Reads the next line of stream into buffer (size bytes, at least 1) without
 * its LF or CRLF. 1 for a line; 0 without an error at end of file; 0 with a
 * GENERAL error for a line that does not fit (the line's first size-1 bytes
 * are kept and the rest is skipped, so the next call reads the next line). */
VQ_API int str_read_next_plain_line(FILE *stream, char *buffer, int32_t size);
/* As str_read_next_plain_line, but skips lines that are blank or whose first
 * non-blank character is "#", and returns the line trimmed (str_trim). */
VQ_API int str_read_next_line(FILE *stream, char *buffer, int32_t size);

/* ---- Tokenizer (state per thread) ----------------------------------------- */

/* Starts tokenising text, which the caller keeps alive and unchanged until the
 * tokens are read: trims it in place (str_trim), cuts one trailing ")" and
 * skips one leading "(", and (re)allocates the thread's 255-byte token buffer.
 * 1, or 0 with PARAMS (NULL text) / MEMORY; failure forgets earlier text. */
VQ_API int str_init_tokens(char *text);
/* The next token in the thread's buffer (valid until the next call), or NULL
 * when the text is exhausted (the state is then dropped: call str_init_tokens
 * again) or was never given. Outside double quotes a token ends at a blank,
 * tab or comma; blanks after a token and then one comma are skipped, so
 * "A , B", "A,B" and "A B" give A and B, and ",A" gives "" and A.
 * Escapes: a backslash right before a blank, tab or comma outside quotes makes
 * it part of the token; before a double quote, backslashes pair into one
 * backslash each and an odd one left makes the quote literal (an even run
 * leaves the quote opening or closing a quoted run); other backslashes are
 * plain characters (paths pass unchanged). flag non-zero returns the token as
 * written, quotes and escaping backslashes kept; 0 returns its value, with
 * them consumed. An unclosed quote runs to the end of the text. */
VQ_API char *str_get_next_token(int flag);

/* ---- Time frames (state per thread) ---------------------------------------- */

/* Sets the thread's daily time frame from "HH:MM-HH:MM" (blanks allowed around
 * the parts; end may be 24:00): from start up to but excluding end, past
 * midnight when end is earlier, the whole day when both are equal. NULL clears
 * the frame. 0 with a PARAMS error for a bad text, the old frame kept. */
VQ_API int tframe(const char *text);
/* 1 when the time of day of seconds (since 1970 UTC) + zone (local minus UTC,
 * in seconds) falls in the thread's frame, else 0; always 1 without a frame. */
VQ_API int tframe_time(uint32_t seconds, int32_t zone);
/* Compares two clock times "HH:MM" in the order of the thread's frame, which
 * starts at its start time (00:00 without a frame): in 22:00-06:00, 23:00
 * comes before 01:00. *result is -1, 0 or 1. 0 with a PARAMS error for a
 * bad text or NULL argument. */
VQ_API int compare_two(const char *time1, const char *time2, int32_t *result);

VQ_EXTERN_C_END

#endif /* VQ_GLOB_STR_H */
