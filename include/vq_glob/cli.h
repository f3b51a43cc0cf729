/* Command-line parsing: command tables, the qualifier parser, values and
 * iterators, saved parse contexts, the INI dump and the parse cache.
 *
 * A command line is a command word, positional parameters and qualifiers:
 *
 *     copy  a.txt,b.txt  /tmp/out  -mode=fast -nolog -files=(x, "y z") -pairs={a,b},{c,d}
 *
 * Lexical rules
 * - The line ends at a NUL or a line feed. Blanks and tabs separate tokens.
 * - A token that begins with the switch character (default '-') is a
 *   qualifier; any other token is a parameter. A qualifier's name runs to a
 *   blank, a comma, '=' or the end (and, when the switch character is not '-',
 *   to a further switch character: "/a/b" is two qualifiers, "-a-b" is one
 *   name). Its value follows the '='.
 * - A value (or a parameter) that starts with a double quote runs to the next
 *   double quote; one that starts with '(' runs to the next ')', blanks
 *   included: "-tag=(b c)" gives the value "b c" and "-tag=(a b, c )" the
 *   items "a b" and "c" (blanks next to the commas and parentheses are
 *   dropped). Inside both a backslash escapes the next character: with
 *   unescape on (the default) the backslash is dropped, with it off both
 *   characters are kept. Inside a plain word, double-quoted pieces are taken
 *   the same way, \" is a literal quote, and commas between '{' and '}'
 *   belong to the word.
 * - A comma continues a list: "a,b, c" gives the items a, b and c of one
 *   parameter or of one qualifier's value.
 * - A token "@name" is replaced by the contents of the file name (its line
 *   ends become blanks). References inside the inserted text are not expanded
 *   again. Only a regular file of at most CLI_MAX_FILE_LIST bytes is read (the
 *   open does not wait on a fifo), and the lists of one line take in at most
 *   16 * CLI_MAX_FILE_LIST bytes together. A file that cannot be opened, that
 *   is a directory, fifo or device, or that is too large fails with 0x1113,
 *   the reason (the system's text or the refusal) beneath it on the stack.
 * - A CLI_NUMBER or CLI_PORT value must fit in 32 bits (-2147483648 to
 *   2147483647); anything else fails with 0x1108 naming the value as
 *   written. A port outside 0 to 65535 fails with 0x111c.
 * - Command words, qualifier names and allowed values (keywords) match any
 *   unique case-insensitive prefix; there is no preference for an exact name,
 *   so no name of a table may be a prefix of another (COPY and COPYALL make
 *   "copy" ambiguous; "copya" selects COPYALL).
 * - "-noNAME" negates the qualifier NAME when its entry is CLI_NEGATABLE
 *   (a name that itself starts with NO is looked up as written first).
 * - A qualifier given twice adds the second value's items to the first; the
 *   last of "-x" / "-nox" decides the negation.
 *
 * Values and lists
 * - A value is kept as its items. cli_get_value joins them with the separator
 *   character (default ','); cli_init_qual_iterator splits such a text again.
 * - Multi-lists (CLI_MULTI_LIST with list_items = n) are written as elements
 *   in braces separated by commas: {a,b},{c,d} or ({a,b}, {c,d}). Every
 *   element holds 1 to n items: more fail with 0x110e, anything else that is
 *   not a braced element (text outside braces, "{}", an unclosed brace) fails
 *   with 0x110f.
 *
 * Presence tests (name and kind 'P' or 'Q'; the parsed result of the thread)
 *   cli_present                   1 when given or present by default, and not
 *                                 negated; 0 when absent or negated.
 *   cli_present_all               1 when given or present by default,
 *                                 CLI_NEGATED (2) when it stands negated, 0 when
 *                                 absent.
 *   cli_true_present              1 only when written on the command line (not
 *                                 negated); a value from the value default counts.
 *   cli_true_present_no_default   1 only when written on the command line with
 *                                 an explicit value.
 *
 * Errors (facility CLI 0x1100) go to the thread's error stack; the parser
 * stops at the first one and cli_get_err_code returns its code. All state is
 * per thread: two threads parse independently. Texts handed out belong to the
 * thread's parse state and stay valid until its next parse (or the next call
 * of the same function, for per-call buffers) unless said otherwise.
 */
#ifndef VQ_GLOB_CLI_H
#define VQ_GLOB_CLI_H

#include <time.h>

#include "vq_glob/export.h"

VQ_EXTERN_C_BEGIN

/* ---- Command tables -------------------------------------------------------- */

/* The largest files list an "@name" token may insert, in bytes (1 MiB). */
#define CLI_MAX_FILE_LIST 1048576

/* Item flags. Items without CLI_MUST may be omitted. */
#define CLI_NEGATABLE 0x001u      /* "-noNAME" is allowed */
#define CLI_VALUE_REQUIRED 0x002u /* a value must be given (or come from default_value) */
#define CLI_MUST 0x004u           /* the item can not be omitted (0x1109) */
#define CLI_LIST 0x008u           /* the value may be a comma list (parameters: 0x1119 without it) */
#define CLI_HIDDEN 0x010u         /* left out of cli_print_usage / cli_get_command_usage */
#define CLI_NUMBER 0x020u         /* the value is a (signed) decimal number; dumped as VALUE=%d */
#define CLI_PORT 0x040u           /* a number from 0 to 65535 (0x111c) */
#define CLI_DATE 0x080u           /* every item must pass cli_check_date */
#define CLI_DEFAULT 0x100u        /* present by default (with default_value) when not given */
#define CLI_NO_VALUE 0x200u       /* takes no value: "-x=v" is a syntax error (0x1112) */
#define CLI_MULTI_LIST 0x400u     /* braced elements of list_items items each */

/* A value hook: called with flag 0 and each item of the qualifier's value in a
 * writable buffer of at least 32 bytes (or the item's length + 1, if more); it
 * may rewrite the item in place. 0 fails the parse with 0x1108.
 * cli_check_time_string_format, cli_conv_string_to_seconds and
 * cli_conv_string_to_minutes are hooks of this form. */
typedef int (*cli_value_hook)(int32_t flag, char *value);

/* A keyword of a named bit mask: bit 0 to 319. Tables end with {NULL, 0}. */
typedef struct {
    const char *keyword;
    int32_t bit;
} cli_bit_keyword;

/* A parameter or qualifier of a command. Lists end with an item of kind 0. */
typedef struct {
    char kind;                   /* 'P' positional parameter, 'Q' qualifier, 0 ends */
    const char *name;            /* upper-case by convention; matched ignoring case */
    uint32_t flags;              /* CLI_ flags above */
    const char *allowed;         /* allowed values "FAST|SLOW|AUTO" (abbreviable), or NULL */
    const char *default_value;   /* value when given without one / when CLI_DEFAULT, or NULL */
    const char *excludes;        /* qualifiers that can not go with this one, "A|B" (0x110a) */
    const char *needs_one_of;    /* one of these must be given too, "A|B" (0x110b) */
    cli_value_hook hook;         /* checks / converts each value item, or NULL */
    int32_t list_items;          /* CLI_MULTI_LIST: at most this many items per element */
    const cli_bit_keyword *bits; /* keywords for cli_user_bit_mask, or NULL */
    const char *help;            /* one line for the usage text, or NULL */
} cli_item;

/* A command. The table is an array that ends with a NULL name. */
typedef struct {
    const char *name;
    const cli_item *items;
    const char *help; /* one line for the usage text, or NULL */
} cli_command;

/* Example:
 *
 *   static const cli_bit_keyword kEvents[] = {{"START", 0}, {"STOP", 1}, {"ERROR", 7}, {NULL, 0}};
 *   static const cli_item kCopyItems[] = {
 *       {'P', "SOURCE", CLI_MUST | CLI_LIST, NULL, NULL, NULL, NULL, NULL, 0, NULL, "files to copy"},
 *       {'P', "TARGET", CLI_MUST, NULL, NULL, NULL, NULL, NULL, 0, NULL, "target directory"},
 *       {'Q', "MODE", CLI_VALUE_REQUIRED, "FAST|SAFE", NULL, NULL, NULL, NULL, 0, NULL, "copy mode"},
 *       {'Q', "LOG", CLI_NEGATABLE | CLI_DEFAULT, NULL, "copy.log", NULL, NULL, NULL, 0, NULL, "log file"},
 *       {'Q', "PORT", CLI_PORT, NULL, NULL, NULL, "HOST", NULL, 0, NULL, "server port"},
 *       {'Q', "HOST", 0, NULL, NULL, "LOCAL", NULL, NULL, 0, NULL, "server host"},
 *       {'Q', "LOCAL", CLI_NO_VALUE, NULL, NULL, "HOST", NULL, NULL, 0, NULL, "copy locally"},
 *       {'Q', "TIMEOUT", 0, NULL, "60", NULL, NULL, cli_conv_string_to_seconds, 0, NULL, "period"},
 *       {'Q', "NOTIFY", CLI_LIST, NULL, "ERROR", NULL, NULL, NULL, 0, kEvents, "events"},
 *       {'Q', "PAIRS", CLI_MULTI_LIST, NULL, NULL, NULL, NULL, NULL, 2, NULL, "{from,to},..."},
 *       {'Q', "PASSWORD", CLI_HIDDEN | CLI_VALUE_REQUIRED, NULL, NULL, NULL, NULL, NULL, 0, NULL, NULL},
 *       {0}};
 *   static const cli_command kCommands[] = {{"COPY", kCopyItems, "copy files"},
 *                                           {"MOVE", kCopyItems, "move files"}, {NULL, NULL, NULL}};
 *
 *   cli_set_command_table(kCommands);
 *   if (!cli_dcl_parse("copy a,b /tmp -mode=f -port=99 -host=srv")) err_print_error_msg();
 *   char *mode; cli_get_value("MODE", 'Q', &mode);            -> "FAST"
 */

/* Parse modes. */
#define CLI_MODE_COMMAND 0    /* the first token is the command word (default) */
#define CLI_MODE_NO_COMMAND 1 /* no command word: the table's first command applies */
#define CLI_MODE_STANDARD 2   /* tokens only, no table: read with the cli_std_ walks */

/* cli_present_all's answer for a negated item. */
#define CLI_NEGATED 2

/* A caller's value for a qualifier, applied by the overriding parses. A NULL
 * value means "given without a value"; a name "NOx" negates x. */
typedef struct {
    const char *name;
    const char *value;
} cli_override;

/* ---- Settings and parsing -------------------------------------------------- */

/* Creates the thread's parse state once: switch '-', separator ',', unescape
 * on, mode CLI_MODE_COMMAND, error code 0x1101, empty context store. 1. */
VQ_API int cli_init(void);
/* The character that begins a qualifier (not blank, comma, quote, '(' or '='). */
VQ_API int cli_set_switch_char(char c);
VQ_API char cli_get_switch_char(void);
/* The character that separates the items of a value list. */
VQ_API int cli_set_separator_char(char c);
VQ_API char cli_get_separator_char(void);
/* One of the CLI_MODE_ values; 0 with a PARAMS error for others. */
VQ_API int cli_set_parse_mode(int32_t mode);
VQ_API int32_t cli_get_parse_mode(void);
/* On (non-zero): a backslash in quotes and parentheses is removed. */
VQ_API int cli_set_unescape(int32_t on);
/* The command table of the following parses (not copied: keep it alive). */
VQ_API int cli_set_command_table(const cli_command *table);
/* Marks the qualifier name (full name, any case) hidden on this thread, in
 * every command of the current table. 0 when no command has it. */
VQ_API int cli_hide(const char *name);
/* The number of changes made to the settings above on this thread; a saved
 * result is served by the parse cache only under the count it was made with. */
VQ_API int32_t cli_get_context_changes(void);

/* Parses line against the current table (initialising the state if needed).
 * 1, or 0 with the error on the stack and an empty current result. */
VQ_API int cli_dcl_parse(const char *line);
/* Parses a program's arguments as cli_dcl_parse parses a line, against the
 * same table and thread state: argv[0] (the program's name) is skipped and
 * argv[1] to argv[argc - 1] are joined by single blanks into the line, each
 * argument written so that it stays one token, as the shell split them:
 * - An argument without blanks, tabs and double quotes is written as it is,
 *   so it means what it means on a line: "a,b" is a list, "-x=(a,b)" and
 *   "-p={a,b},{c}" are values, "@list" reads a files list, a backslash
 *   outside quotes and parentheses is text ("C:\dir"), and a comma at its end
 *   continues the list into the next argument ("a," "b" is the list a,b).
 * - For one with a blank, tab or double quote, the part after "-name=" (the
 *   whole argument for a parameter) is put in double quotes with a backslash
 *   before each double quote and backslash: it becomes one item as it is,
 *   commas, parentheses, braces and a leading "@" included ("a b,c" is one
 *   item). A value in parentheses with no other ')' and no double quote,
 *   "-x=(a b, c)", is written as it is: it runs to its ')' on a line too.
 *   With unescape off the added backslashes stay in the value, as on a line.
 * - An empty argument is written "" (an empty parameter).
 * - A qualifier's name (up to '=') holding a blank, tab or double quote, and
 *   an argument holding a line feed, fail with 0x1112.
 * The line is kept as cli_get_command_line shows it. 0 with PARAMS for a
 * negative argc or a null argv or argument; argc below 2 fails with 0x1118. */
VQ_API int cli_dcl_parse_argv(int argc, const char *const *argv);
/* As cli_dcl_parse with count overrides applied after the line's own
 * qualifiers: replace non-zero makes them win over the line, zero applies
 * them only to qualifiers the line left out. Refuse to run before cli_init. */
VQ_API int cli_dcl_parse_intern(const char *line, const cli_override *overrides, int32_t count, int32_t replace);
/* cli_dcl_parse_intern with replace = 1 / replace = 0. */
VQ_API int cli_dcl_parse_overriden(const char *line, const cli_override *overrides, int32_t count);
VQ_API int cli_dcl_parse_overridden_new(const char *line, const cli_override *overrides, int32_t count);
/* The error code of the last parse; 0x1101 (NOERR) before any error and after
 * a successful parse. */
VQ_API uint32_t cli_get_err_code(void);

/* The parsed command's full name, or NULL. */
VQ_API const char *cli_get_command(void);
/* The usage text of command (any unique prefix; NULL: the parsed command, else
 * every command) without hidden items, in a per-thread buffer; NULL when
 * unknown. */
VQ_API const char *cli_get_command_usage(const char *command);
/* Prints cli_get_command_usage(command) to standard output; 0 when unknown. */
VQ_API int cli_print_usage(const char *command);
/* The kept copy of the parsed line (after "@" expansion) and its length. */
VQ_API const char *cli_get_command_line(void);
VQ_API int32_t cli_get_command_line_len(void);
/* Masks the value of the qualifier name (its full name: every abbreviation
 * written on the line is found) on the kept command line: the value text as
 * written, quotes and list included, becomes "********" (eight asterisks,
 * whatever its length). The parsed value itself is unchanged. 1 when a value
 * was masked, else 0. */
VQ_API int cli_subst_password(const char *name);
/* Replaces every "@file" token of line by the file's contents (line ends as
 * blanks) into *result, to free with free(). 0 with 0x1113 when a file
 * cannot be read, under the same rules as a parse. */
VQ_API int cli_subst_shtrudel(const char *line, char **result);
/* The current result as an opaque pointer (NULL when none), valid while the
 * result lives: until the next parse unless a context or handle keeps it. */
VQ_API const void *cli_get_current_res(void);
/* Makes a copy of a result from cli_get_current_res current, or the result of
 * a context handle (as cli_load_context_from_handle); NULL empties the current
 * result. 1; 0 with PARAMS (cli_set_current_res/result) for anything else or
 * a result already freed (see "Handles" below). */
VQ_API int cli_set_current_res(const void *result);
/* Frees the current result and the kept line. 1. */
VQ_API int cli_free_context(void);
/* Frees the whole parse state (result, contexts, cache) and returns the
 * settings to their defaults; cli_init is needed again. 1. */
VQ_API int cli_clean_up(void);

/* ---- Values ---------------------------------------------------------------- */

/* Presence tests: see the top of this header. 0 before cli_init. */
VQ_API int cli_present(const char *name, char kind);
VQ_API int cli_present_all(const char *name, char kind);
VQ_API int cli_true_present(const char *name, char kind);
VQ_API int cli_true_present_no_default(const char *name, char kind);
/* *value = the item's items joined by the separator; the text stays valid
 * until the thread's current result changes (a parse, a load, ...), so values
 * of several items can be held at once. 0 when the item is absent, negated or
 * has no value. Asking for a parameter also restarts cli_iterator_next's walk. */
VQ_API int cli_get_value(const char *name, char kind, char **value);
/* Restarts the walk over all parsed items (cli_iterator_next). 1. */
VQ_API int cli_reset_get_all(void);

/* Walks the items of a list text: *item = the next item (per-thread buffer),
 * split at the separator character; an item that starts with a double quote
 * loses its quotes and escapes. "a,b,,c" gives a, b, "" and c; "" gives none.
 * 0 after the last item. */
VQ_API int cli_init_qual_iterator(const char *value);
VQ_API int cli_qual_iterator_next(char **item);
/* Walks a multi-list text "{a,b},{c}" element by element: *element = the
 * element's inner text ("a,b"), ready for cli_init_qual_iterator. Init fails
 * with 0x110e / 0x110f when an element has more than items_per_element items
 * (0: no limit) or the text is not braced elements. */
VQ_API int cli_init_qual_multi_list_iterator(const char *value, int32_t items_per_element);
VQ_API int cli_qual_multi_list_iterator_next(char **element);

/* Walks the parsed items in order (parameters and qualifiers, defaults last):
 * name, kind and joined value (NULL when none; negated items have kind 'Q'
 * and a value of NULL, see cli_present_all). 0 after the last. */
VQ_API int cli_init_iterator(void);
VQ_API int cli_iterator_next(char **name, char *kind, char **value);
/* Saves / restores the walk position (at most 16 deep). 0 when full / empty. */
VQ_API int cli_push_iterator(void);
VQ_API int cli_pop_iterator(void);
/* Moves the walk to the parameter name, so that cli_iterator_next returns it
 * next. 0 when not given. */
VQ_API int cli_goto_param(const char *name);

/* The walks over the tokens as written (every mode, also CLI_MODE_STANDARD):
 * cli_std_iterate gives the next token's text (a qualifier's name as written,
 * without the switch, or a parameter's first item) and kind; cli_std_iterate_pos
 * jumps to token pos (0 = the first, the command word in command mode);
 * cli_std_token_get_next_value gives the current token's value items one by one
 * (a parameter's items after the first); cli_std_get_qual_name the current
 * token's name when it is a qualifier. 0 at the end / when there is none. */
VQ_API int cli_std_init_iterator(void);
VQ_API int cli_std_iterate(char **text, char *kind);
VQ_API int cli_std_iterate_pos(int32_t pos, char **text, char *kind);
VQ_API int cli_std_token_get_next_value(char **value);
VQ_API int cli_std_get_qual_name(char **name);

/* ---- Checkers and converters ---------------------------------------------- */

/* Checks length characters of text: an optional leading '-', then digits.
 * The number of digits checked (at least 1; 1 when length < 1), or 0 at the
 * first character that is not a digit (the NUL included). */
VQ_API int32_t cli_check_number(const char *text, int32_t length);
/* Dates as conv_string_to_tvtime reads them, into local broken-down time
 * (out may be NULL). flag != 0 accepts at once without looking. */
VQ_API int cli_check_date(int32_t flag, const char *text, struct tm *out);
VQ_API int cli_asc_to_clidate(const char *text, struct tm *out);
/* 1 when text is a time of day "h:mm" or "h:mm:ss"; flag != 0 accepts at once. */
VQ_API int cli_check_time_string_format(int32_t flag, char *text);
/* Rewrites a period ("90m", "1h30m", ...) in place as decimal seconds / as
 * decimal minutes (all-digit text is already minutes and stays). The buffer
 * must hold 12 bytes. flag != 0 accepts at once. */
VQ_API int cli_conv_string_to_seconds(int32_t flag, char *text);
VQ_API int cli_conv_string_to_minutes(int32_t flag, char *text);
/* "(w:1 h:8 m:5)" -> "Monday 08:05"; further elements " (w:%d h:%d m:%d)"
 * are read at the fixed stride 16 + 17 * (n - 1), so writers pad them to those
 * widths; they are appended as ", Day hh:mm". Text over 226 characters or not
 * starting with an element comes back unchanged. Per-thread buffer. */
VQ_API const char *parse_weekly(const char *text);
/* Sets in a new zeroed 40-byte mask (*mask, free() it) the bits of
 * item->default_value's items and then of value's items, each keyword looked
 * up ignoring case in item->bits. 0 with 0x1108 (and *mask NULL) for an
 * unknown keyword. flag != 0 accepts at once and leaves *mask as it is. */
VQ_API int cli_user_bit_mask(int32_t flag, const char *value, unsigned char **mask, const cli_item *item);
/* 1 when bit (0..319) is set in mask (byte bit / 8, bit bit % 8). */
VQ_API int cli_user_bit_mask_test(int32_t bit, const unsigned char *mask);
/* Upper-cases text in place (ASCII) and returns it. */
VQ_API char *cli_to_upper(char *text);

/* ---- Contexts --------------------------------------------------------------- */

/* Handles. Context handles and the results of cli_get_current_res carry a
 * type tag in their first bytes, set when they are made and overwritten when
 * they are freed. Every function taking one checks the tag first: NULL,
 * another kind of handle (a list, a configuration, ...) or one already freed
 * gives 0 and PARAMS naming the function and the argument, and nothing is
 * touched. What cannot be detected: a pointer to memory that cannot be read,
 * or that happens to begin with a valid tag without being a handle, and a
 * freed handle whose memory has since become a new handle of the same kind
 * (it is then taken for that one). */

/* Sets up / empties the thread's store of 32 saved results. 1. */
VQ_API int cli_context_init(void);
VQ_API int cli_clean_context(void);
/* Saves the current result under id (replacing an earlier one); 0 when all
 * 32 places are taken. */
VQ_API int cli_save_context(int32_t id);
/* Makes the result saved under id current; 0 (current result kept) when unknown. */
VQ_API int cli_load_context(int32_t id);
VQ_API int cli_delete_context(int32_t id);
/* A caller-owned context: a new empty one (NULL when out of memory), freed
 * with cli_free_context_handle; emptied; filled from / made current. Each
 * returns 1, or 0 with PARAMS (function/handle) for a handle that is not a
 * live context handle (see "Handles" above). */
VQ_API void *cli_get_context_handle(void);
VQ_API int cli_free_context_handle(void *handle);
VQ_API int cli_truncate_handle(void *handle);
VQ_API int cli_save_context_to_handle(void *handle);
VQ_API int cli_load_context_from_handle(void *handle);

/* The current result as a canonical line: command, parameters in order,
 * qualifiers in order, full upper-case names with the switch character,
 * "NO" for negation, values quoted where needed ("-MODE=FAST -FILES=a,\"b c\"").
 * Parsing it again gives the same result. cli_get_canon_command_line uses a
 * per-thread buffer; cli_new_get_canon_command_line returns a copy to free()
 * and, with without_defaults non-zero, leaves out what came from defaults. */
VQ_API const char *cli_get_canon_command_line(void);
VQ_API char *cli_new_get_canon_command_line(int32_t without_defaults);
/* Drops the qualifiers present only by default from the current result. 1. */
VQ_API int cli_remove_defaults(void);
/* Appends the qualifiers of the current result to file as INI sections
 * "[NAME_nnn]" with NAME=, DEFAULT=1, NEGATED=1, VALUE_DEFAULT=1 and VALUE=
 * lines and an empty line after every item (parameters too). 0 with 0x1002
 * when the file cannot be written. */
VQ_API int cli_dump_to_ini(const char *file, int32_t number);
/* Writes the current result to the trace (channel CLI_DUMP). */
VQ_API int cli_dbg_dump(void);

/* ---- Parse cache ------------------------------------------------------------ */

/* Gives the thread a parse cache named cache_id for the current command table,
 * with the smallest prime number of slots >= size (at most 65,521); size 0
 * removes it. Results are kept per slot, the newest line wins a slot. */
VQ_API int cc_set_command_table_cache(const char *cache_id, int32_t size);
/* cli_dcl_parse through the cache (directly when there is none, or when the
 * current table is not the cache's). */
VQ_API int cc_dcl_parse(const char *line);
/* Lookups, hits and hits * 100 / lookups (0 without lookups); any may be NULL. */
VQ_API int cc_get_cache_statistics(int32_t *lookups, int32_t *hits, int32_t *hit_rate);
/* The cache's hash of a line of length bytes. */
VQ_API uint32_t cc_hash_command_line(const char *line, int32_t length);

VQ_EXTERN_C_END

#endif /* VQ_GLOB_CLI_H */
