/* vqglob: the library's own command-line tool. Its command line is read by
 * the library's parser (commands and qualifiers abbreviate to any unique
 * prefix, "@file" inserts a file's words), and every failure prints the
 * thread's error stack. Exit status 0 on success, 1 on failure.
 *
 *   vqglob crc FILE                         CRC-32 of a file
 *   vqglob match PATTERN NAME [-case]       wildcard match (status 1: no match)
 *   vqglob conf dump FILE                   a configuration file as the library writes it
 *   vqglob conf get FILE SECTION FIELD      one field's text
 *   vqglob conf set FILE SECTION FIELD VALUE
 *   vqglob trace CHANNELS [-text=T] [-output=FILE]   apply a channel list, trace a line
 *   vqglob errors [-facility=NAME]          the message table's codes and idents
 *   vqglob COMMAND -help                    usage of a command; vqglob -help: all */
#include <ctype.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "vq_glob.h"

#define HELP_ITEM {'Q', "HELP", CLI_NO_VALUE, NULL, NULL, NULL, NULL, NULL, 0, NULL, "show this usage"}
#define END_ITEM {0, NULL, 0, NULL, NULL, NULL, NULL, NULL, 0, NULL, NULL}

static const cli_item kCrcItems[] = {
    {'P', "FILE", CLI_MUST, NULL, NULL, NULL, NULL, NULL, 0, NULL, "the file to sum"}, HELP_ITEM, END_ITEM};
static const cli_item kMatchItems[] = {
    {'P', "PATTERN", CLI_MUST, NULL, NULL, NULL, NULL, NULL, 0, NULL, "pattern with * and ?"},
    {'P', "NAME", CLI_MUST, NULL, NULL, NULL, NULL, NULL, 0, NULL, "the name to test"},
    {'Q', "CASE", CLI_NEGATABLE | CLI_NO_VALUE, NULL, NULL, NULL, NULL, NULL, 0, NULL, "compare case-sensitively"},
    HELP_ITEM,
    END_ITEM};
static const cli_item kConfItems[] = {
    {'P', "ACTION", CLI_MUST, "DUMP|GET|SET", NULL, NULL, NULL, NULL, 0, NULL, "what to do"},
    {'P', "FILE", CLI_MUST, NULL, NULL, NULL, NULL, NULL, 0, NULL, "configuration file"},
    {'P', "SECTION", 0, NULL, NULL, NULL, NULL, NULL, 0, NULL, "section (get, set)"},
    {'P', "FIELD", 0, NULL, NULL, NULL, NULL, NULL, 0, NULL, "field (get, set)"},
    {'P', "VALUE", 0, NULL, NULL, NULL, NULL, NULL, 0, NULL, "new text (set)"},
    HELP_ITEM,
    END_ITEM};
static const cli_item kTraceItems[] = {
    {'P', "CHANNELS", CLI_MUST | CLI_LIST, NULL, NULL, NULL, NULL, NULL, 0, NULL, "channel names, NOname clears"},
    {'Q', "TEXT", CLI_VALUE_REQUIRED, NULL, NULL, NULL, NULL, NULL, 0, NULL, "a line to trace on them"},
    {'Q', "OUTPUT", CLI_VALUE_REQUIRED, NULL, NULL, NULL, NULL, NULL, 0, NULL, "trace file (default: stdout)"},
    HELP_ITEM,
    END_ITEM};
static const cli_item kErrorsItems[] = {
    {'Q', "FACILITY", CLI_VALUE_REQUIRED, NULL, NULL, NULL, NULL, NULL, 0, NULL, "only this facility (CLI, GEN...)"},
    HELP_ITEM,
    END_ITEM};
static const cli_command kCommands[] = {{"CRC", kCrcItems, "print the CRC-32 of a file"},
                                        {"MATCH", kMatchItems, "match a name against a wildcard pattern"},
                                        {"CONF", kConfItems, "dump, read or change a configuration file"},
                                        {"TRACE", kTraceItems, "set trace channels and write a trace line"},
                                        {"ERRORS", kErrorsItems, "list the message table"},
                                        {NULL, NULL, NULL}};

static int fail(void) {
    err_print_error_msg();
    return 1;
}

static const char *value_of(const char *name, char kind) {
    char *value = NULL;
    return cli_get_value(name, kind, &value) == 1 ? value : NULL;
}

/* One argument as the parser reads it back: quoted where it holds blanks or
 * quotes; for "-name=value" only the value is quoted. */
static void append_argument(char *line, size_t size, const char *arg) {
    const char *value = arg;
    size_t used = strlen(line);
    if (used > 0 && used + 1 < size) {
        line[used++] = ' ';
        line[used] = '\0';
    }
    if (arg[0] == '-' && strchr(arg, '=') != NULL) {
        value = strchr(arg, '=') + 1;
        size_t head = (size_t)(value - arg);
        if (used + head < size) {
            memcpy(line + used, arg, head);
            used += head;
            line[used] = '\0';
        }
    }
    int quote = value[0] == '\0' || strpbrk(value, " \t\",()") != NULL;
    if (!quote) {
        snprintf(line + used, size - used, "%s", value);
        return;
    }
    if (used + 1 < size) {
        line[used++] = '"';
    }
    for (const char *p = value; *p != '\0' && used + 3 < size; ++p) {
        if (*p == '"' || *p == '\\') {
            line[used++] = '\\';
        }
        line[used++] = *p;
    }
    if (used + 1 < size) {
        line[used++] = '"';
    }
    line[used < size ? used : size - 1] = '\0';
}

/* Whether a "-h..." qualifier is among the arguments: asked for before the
 * full parse, whose checks a help request need not pass. */
static int wants_help(int argc, char **argv) {
    for (int i = 1; i < argc; ++i) {
        size_t n = strlen(argv[i]);
        if (n >= 2 && argv[i][0] == '-' && n - 1 <= 4 && strncmp(argv[i] + 1, "help", n - 1) == 0) {
            return 1;
        }
    }
    return 0;
}

static int run_crc(void) {
    int32_t h = -1;
    uint32_t crc = 0;
    const char *file = value_of("FILE", 'P');
    if (gf_allocate_handle(&h) != 1) {
        return fail();
    }
    int ok = gf_set_file_name(h, file) == 1 && gf_set_file_open_flags(h, GF_READ) == 1 &&
             gf_calc_file_crc(h, &crc) == 1;
    gf_free_handle(h);
    if (!ok) {
        return fail();
    }
    printf("%08X  %s\n", (unsigned)crc, file);
    return 0;
}

static int run_match(void) {
    int case_sensitive = cli_present("CASE", 'Q');
    int matched = match_wildcard(value_of("PATTERN", 'P'), value_of("NAME", 'P'), case_sensitive);
    printf("%s\n", matched == 1 ? "match" : "no match");
    return matched == 1 ? 0 : 1;
}

static int conf_dump(void *h) {
    char *buffer = NULL;
    if (conf_write_buffer(h, &buffer) != 1) {
        return fail();
    }
    fputs(buffer, stdout);
    conf_free_buffer(buffer);
    return 0;
}

static int run_conf(void) {
    const char *action = value_of("ACTION", 'P');
    const char *file = value_of("FILE", 'P');
    const char *section = value_of("SECTION", 'P');
    const char *field = value_of("FIELD", 'P');
    const char *value = value_of("VALUE", 'P');
    int want_field = strcmp(action, "DUMP") != 0;
    int want_value = strcmp(action, "SET") == 0;
    int usage_error = 1;
    if (want_field && (section == NULL || field == NULL)) {
        err_set_error(0x1109u, section == NULL ? "SECTION" : "FIELD"); /* "... can not be omitted!" */
    } else if (want_value && value == NULL) {
        err_set_error(0x1109u, "VALUE");
    } else if ((!want_field && section != NULL) || (!want_value && value != NULL)) {
        err_set_error(0x110du); /* "too many parameters specified" */
    } else {
        usage_error = 0;
    }
    if (usage_error) {
        return fail();
    }
    void *h = NULL;
    if (conf_allocate_handle(&h) != 1) {
        return fail();
    }
    int status = 0;
    if (conf_read_file_to_handle(h, file) != 1) {
        status = fail();
    } else if (!want_field) {
        status = conf_dump(h);
    } else if (!want_value) {
        char *text = NULL;
        status = conf_get_string_field(h, section, field, &text) == 1 ? (printf("%s\n", text), 0) : fail();
    } else {
        status = conf_set_string_field(h, section, field, value) == 1 && conf_write(h, file) == 1 ? 0 : fail();
    }
    conf_free_handle(&h);
    return status;
}

static int run_trace(void) {
    const char *output = value_of("OUTPUT", 'Q');
    const char *text = value_of("TEXT", 'Q');
    if (output != NULL && dbg_set_debug_output_filename(output) != 1) {
        err_set_error(0x1002u, "cannot open the trace output file");
        return fail();
    }
    char *channels = NULL;
    char *item = NULL;
    cli_get_value("CHANNELS", 'P', &channels);
    cli_init_qual_iterator(channels);
    while (cli_qual_iterator_next(&item) == 1) {
        cli_to_upper(item);
        const char *name = strncmp(item, "NO", 2) == 0 && item[2] != '\0' ? item + 2 : item;
        if (strcmp(item, "ALL") != 0 && strcmp(item, "NONE") != 0 && dbg_get_channel_bit(name) < 0) {
            err_set_error(0x1108u, item, "CHANNELS");
            return fail();
        }
        dbg_add_debug_mask(item);
    }
    printf("mask %s\n", dbg_get_debug_mask_hex());
    if (text != NULL) {
        large_dbg_str(dbg_get_debug_mask(), "%s\n", text);
    }
    if (output != NULL) {
        dbg_close_debug_output();
        dbg_set_debug_output(NULL);
    }
    return 0;
}

/* Whether two names are equal ignoring the case of ASCII letters. */
static int same_name(const char *a, const char *b) {
    for (; *a != '\0' && *b != '\0'; ++a, ++b) {
        if (toupper((unsigned char)*a) != toupper((unsigned char)*b)) {
            return 0;
        }
    }
    return *a == *b;
}

/* Every message of the table, one line each: code, facility-severity-ident
 * as descriptions print them, and the message template. */
static int run_errors(void) {
    static const char kSeverities[] = "SIWEF";
    const char *only = value_of("FACILITY", 'Q');
    const char *facility, *ident, *text;
    uint32_t code, severity;
    int listed = 0;
    for (int32_t i = 0; err_get_table_message(i, &code, &severity, &facility, &ident, &text); ++i) {
        if (only != NULL && !same_name(only, facility)) {
            continue;
        }
        printf("0x%04X  %s-%c-%-10s %s\n", (unsigned)code, facility, severity < 5 ? kSeverities[severity] : '?', ident,
               text);
        ++listed;
    }
    if (listed == 0) {
        err_set_error(0x1108u, only != NULL ? only : "", "FACILITY");
        return fail();
    }
    return 0;
}

int main(int argc, char **argv) {
    static char line[32768];
    for (int i = 1; i < argc; ++i) {
        append_argument(line, sizeof line, argv[i]);
    }
    cli_init();
    cli_set_command_table(kCommands);
    if (argc < 2 || (argv[1][0] == '-' && wants_help(argc, argv))) {
        cli_print_usage(NULL);
        return argc < 2 ? 1 : 0;
    }
    if (wants_help(argc, argv)) {
        if (cli_print_usage(argv[1]) != 1) {
            return fail();
        }
        return 0;
    }
    if (cli_dcl_parse(line) != 1) {
        return fail();
    }
    const char *command = cli_get_command();
    if (strcmp(command, "CRC") == 0) {
        return run_crc();
    }
    if (strcmp(command, "MATCH") == 0) {
        return run_match();
    }
    if (strcmp(command, "CONF") == 0) {
        return run_conf();
    }
    if (strcmp(command, "TRACE") == 0) {
        return run_trace();
    }
    return run_errors();
}
