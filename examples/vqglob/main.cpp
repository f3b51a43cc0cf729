/* vqglob: the library's own command-line tool and its deployment commands. Its arguments are read by
 * the library's parser (commands and qualifiers abbreviate to any unique
 * prefix, "@file" inserts a file's words), and every failure prints the
 * thread's error stack. Exit status 0 on success, 1 on failure.
 *
 *   vqglob help [COMMAND]                   the commands' usage (also vqglob -help)
 *   vqglob crc FILE                         CRC-32 of a file
 *   vqglob match PATTERN NAME [-case]       wildcard match (status 1: no match)
 *   vqglob conf dump FILE                   a configuration file as the library writes it
 *   vqglob conf get FILE SECTION FIELD      one field's text
 *   vqglob conf set FILE SECTION FIELD VALUE
 *   vqglob trace CHANNELS [-text=T] [-output=FILE]   apply a channel list, trace a line
 *   vqglob errors [-facility=NAME]          the message table's codes and idents
 *   vqglob serve -config=FILE               the deployment daemon (serve.cpp)
 *   vqglob deploy DIR -to=HOST:PORT[,...] [-cert= -key= -ca= | -insecure] [-include=..] [-exclude=..]
 *                 [-delete] [-dry_run] [-release] [-no_cache]   send a tree to daemons (deploy.cpp)
 *   vqglob releases HOST:PORT [-cert -key -ca | -insecure]   a daemon's releases, "*" marks current
 *   vqglob rollback HOST:PORT [-cert -key -ca | -insecure]   current back to the release before it
 *   vqglob COMMAND -help                    usage of a command
 *
 * Files named on the command line are read only when they are regular files:
 * a fifo or a device would block the tool or never end. */
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "settings.h"
#include "tool.h"
#include "vq_glob.h"

using vqglob::fail;
using vqglob::require_regular_file;
using vqglob::value_of;

namespace {

#define HELP_ITEM {'Q', "HELP", CLI_NO_VALUE, NULL, NULL, NULL, NULL, NULL, 0, NULL, "show this usage"}
#define END_ITEM {0, NULL, 0, NULL, NULL, NULL, NULL, NULL, 0, NULL, NULL}

const cli_item kCrcItems[] = {
    {'P', "FILE", CLI_MUST, NULL, NULL, NULL, NULL, NULL, 0, NULL, "the file to sum"}, HELP_ITEM, END_ITEM};
const cli_item kMatchItems[] = {
    {'P', "PATTERN", CLI_MUST, NULL, NULL, NULL, NULL, NULL, 0, NULL, "pattern with * and ?"},
    {'P', "NAME", CLI_MUST, NULL, NULL, NULL, NULL, NULL, 0, NULL, "the name to test"},
    {'Q', "CASE", CLI_NEGATABLE | CLI_NO_VALUE, NULL, NULL, NULL, NULL, NULL, 0, NULL, "compare case-sensitively"},
    HELP_ITEM,
    END_ITEM};
const cli_item kConfItems[] = {
    {'P', "ACTION", CLI_MUST, "DUMP|GET|SET", NULL, NULL, NULL, NULL, 0, NULL, "what to do"},
    {'P', "FILE", CLI_MUST, NULL, NULL, NULL, NULL, NULL, 0, NULL, "configuration file"},
    {'P', "SECTION", 0, NULL, NULL, NULL, NULL, NULL, 0, NULL, "section (get, set)"},
    {'P', "FIELD", 0, NULL, NULL, NULL, NULL, NULL, 0, NULL, "field (get, set)"},
    {'P', "VALUE", 0, NULL, NULL, NULL, NULL, NULL, 0, NULL, "new text (set)"},
    HELP_ITEM,
    END_ITEM};
const cli_item kTraceItems[] = {
    {'P', "CHANNELS", CLI_MUST | CLI_LIST, NULL, NULL, NULL, NULL, NULL, 0, NULL, "channel names, NOname clears"},
    {'Q', "TEXT", CLI_VALUE_REQUIRED, NULL, NULL, NULL, NULL, NULL, 0, NULL, "a line to trace on them"},
    {'Q', "OUTPUT", CLI_VALUE_REQUIRED, NULL, NULL, NULL, NULL, NULL, 0, NULL, "trace file (default: stdout)"},
    HELP_ITEM,
    END_ITEM};
const cli_item kErrorsItems[] = {
    {'Q', "FACILITY", CLI_VALUE_REQUIRED, NULL, NULL, NULL, NULL, NULL, 0, NULL, "only this facility (CLI, GEN...)"},
    HELP_ITEM,
    END_ITEM};
const cli_item kHelpItems[] = {
    {'P', "COMMAND", 0, NULL, NULL, NULL, NULL, NULL, 0, NULL, "the command to describe (default: all)"},
    HELP_ITEM,
    END_ITEM};
const cli_item kServeItems[] = {
    {'Q', "CONFIG", CLI_VALUE_REQUIRED, NULL, NULL, NULL, NULL, NULL, 0, NULL, "the daemon's configuration file"},
    HELP_ITEM,
    END_ITEM};
const cli_item kDeployItems[] = {
    {'P', "DIR", CLI_MUST, NULL, NULL, NULL, NULL, NULL, 0, NULL, "the directory to deploy"},
    {'Q', "TO", CLI_VALUE_REQUIRED | CLI_LIST, NULL, NULL, NULL, NULL, NULL, 0, NULL, "HOST:PORT[,HOST:PORT...]"},
    {'Q', "CERT", CLI_VALUE_REQUIRED, NULL, NULL, NULL, NULL, NULL, 0, NULL, "client certificate (TLS)"},
    {'Q', "KEY", CLI_VALUE_REQUIRED, NULL, NULL, NULL, NULL, NULL, 0, NULL, "client key (TLS)"},
    {'Q', "CA", CLI_VALUE_REQUIRED, NULL, NULL, NULL, NULL, NULL, 0, NULL, "CA of the daemons (TLS)"},
    {'Q', "INSECURE", CLI_NO_VALUE, NULL, NULL, NULL, NULL, NULL, 0, NULL, "plain mode, loopback targets only"},
    {'Q', "INCLUDE", CLI_VALUE_REQUIRED | CLI_LIST, NULL, NULL, NULL, NULL, NULL, 0, NULL, "only names matching"},
    {'Q', "EXCLUDE", CLI_VALUE_REQUIRED | CLI_LIST, NULL, NULL, NULL, NULL, NULL, 0, NULL, "leave names matching out"},
    {'Q', "DELETE", CLI_NO_VALUE, NULL, NULL, NULL, NULL, NULL, 0, NULL, "delete target files not in DIR"},
    {'Q', "DRY_RUN", CLI_NO_VALUE, NULL, NULL, NULL, NULL, NULL, 0, NULL, "show what would change, change nothing"},
    {'Q', "RELEASE", CLI_NO_VALUE, NULL, NULL, NULL, NULL, NULL, 0, NULL, "deploy as a new release"},
    {'Q', "NO_CACHE", CLI_NO_VALUE, NULL, NULL, NULL, NULL, NULL, 0, NULL,
     "read every file for its CRC, neither using nor keeping the local CRC cache"},
    HELP_ITEM,
    END_ITEM};
const cli_item kRemoteItems[] = {
    {'P', "TARGET", CLI_MUST, NULL, NULL, NULL, NULL, NULL, 0, NULL, "HOST:PORT of the daemon"},
    {'Q', "CERT", CLI_VALUE_REQUIRED, NULL, NULL, NULL, NULL, NULL, 0, NULL, "client certificate (TLS)"},
    {'Q', "KEY", CLI_VALUE_REQUIRED, NULL, NULL, NULL, NULL, NULL, 0, NULL, "client key (TLS)"},
    {'Q', "CA", CLI_VALUE_REQUIRED, NULL, NULL, NULL, NULL, NULL, 0, NULL, "CA of the daemon (TLS)"},
    {'Q', "INSECURE", CLI_NO_VALUE, NULL, NULL, NULL, NULL, NULL, 0, NULL, "plain mode, loopback only"},
    HELP_ITEM,
    END_ITEM};
const cli_command kCommands[] = {{"HELP", kHelpItems, "show the usage of the commands"},
                                        {"SERVE", kServeItems, "run the deployment daemon"},
                                        {"DEPLOY", kDeployItems, "send a directory to deployment daemons"},
                                        {"RELEASES", kRemoteItems, "list a daemon's releases"},
                                        {"ROLLBACK", kRemoteItems, "switch a daemon back to the previous release"},
                                        {"CRC", kCrcItems, "print the CRC-32 of a file"},
                                        {"MATCH", kMatchItems, "match a name against a wildcard pattern"},
                                        {"CONF", kConfItems, "dump, read or change a configuration file"},
                                        {"TRACE", kTraceItems, "set trace channels and write a trace line"},
                                        {"ERRORS", kErrorsItems, "list the message table"},
                                        {NULL, NULL, NULL}};

/* c with A-Z lower-cased; unlike tolower, the same under every locale. */
char ascii_lower(char c) { return c >= 'A' && c <= 'Z' ? (char)(c - 'A' + 'a') : c; }


/* The table the arguments are parsed against: kCommands with every parameter
 * optional, so that "-help" is answered whatever is missing, and a missing
 * parameter is reported by its own name (missing_parameter) rather than by
 * the parser's "qualifier ... can not be omitted". kCommands itself gives
 * the usage texts, which show what is required. */
#define MAX_ITEMS 16
#define COMMAND_COUNT (sizeof kCommands / sizeof kCommands[0])
cli_item relaxed_items[COMMAND_COUNT][MAX_ITEMS];
cli_command relaxed_commands[COMMAND_COUNT];

void build_relaxed_table(void) {
    for (size_t c = 0; c < COMMAND_COUNT; ++c) {
        relaxed_commands[c] = kCommands[c];
        if (kCommands[c].items == NULL) {
            continue;
        }
        size_t count = 0;
        while (kCommands[c].items[count].kind != 0) {
            ++count;
        }
        if (count >= MAX_ITEMS) {
            continue; /* kept strict: its parameters are checked by the parser */
        }
        for (size_t i = 0; i <= count; ++i) { /* the end item too */
            relaxed_items[c][i] = kCommands[c].items[i];
            if (relaxed_items[c][i].kind == 'P') {
                relaxed_items[c][i].flags &= ~CLI_MUST;
            }
        }
        relaxed_commands[c].items = relaxed_items[c];
    }
}

const cli_command *command_entry(const char *name) {
    for (size_t c = 0; kCommands[c].name != NULL; ++c) {
        if (strcmp(kCommands[c].name, name) == 0) {
            return &kCommands[c];
        }
    }
    return NULL;
}

/* Writes the library's usage text of command (NULL: every command) with
 * each "Usage: NAME" line naming the tool, as "Usage: vqglob name". 0 when
 * the command is unknown (the error on the stack). */
int print_usage(FILE *out, const char *command) {
    cli_set_command_table(kCommands);
    const char *text = cli_get_command_usage(command);
    cli_set_command_table(relaxed_commands);
    if (text == NULL) {
        return 0;
    }
    const char kUsage[] = "Usage: ";
    const size_t prefix = sizeof kUsage - 1;
    while (*text != '\0') {
        size_t length = strcspn(text, "\n");
        if (strncmp(text, kUsage, prefix) == 0) {
            fputs("Usage: vqglob ", out);
            text += prefix;
            length -= prefix;
            for (; *text != '\0' && *text != ' ' && *text != '\n'; ++text, --length) {
                fputc(ascii_lower(*text), out);
            }
        }
        fwrite(text, 1, length, out);
        fputc('\n', out);
        text += length;
        text += *text == '\n' ? 1 : 0;
    }
    if (command == NULL || strcmp(command, "SERVE") == 0) {
        fputs(vqglob::settings_usage(), out);
    }
    return 1;
}

/* A parameter the command needs that is not there: reported by its name,
 * with the command's usage. */
int missing(const char *command, const char *parameter) {
    char text[160];
    snprintf(text, sizeof text, "parameter %s is missing", parameter);
    err_set_error(ERR_GEN_GENERAL, text);
    err_print_error_msg();
    print_usage(stderr, command);
    return 1;
}

/* The first required parameter of command that was not given, or NULL. */
const char *missing_parameter(const char *command) {
    const cli_command *entry = command_entry(command);
    for (const cli_item *i = entry->items; i->kind != 0; ++i) {
        if (i->kind == 'P' && (i->flags & CLI_MUST) != 0 && !cli_present(i->name, 'P')) {
            return i->name;
        }
    }
    return NULL;
}

/* Whether arg is "-help" or a prefix of it ("-h"): asked before any command. */
int is_help_switch(const char *arg) {
    const char kHelp[] = "help";
    size_t n = strlen(arg);
    if (n < 2 || n > sizeof kHelp || arg[0] != '-') {
        return 0;
    }
    for (size_t i = 1; i < n; ++i) {
        if (ascii_lower(arg[i]) != kHelp[i - 1]) {
            return 0;
        }
    }
    return 1;
}

}  // namespace

namespace vqglob {

int fail() {
    err_print_error_msg();
    return 1;
}

const char *value_of(const char *name, char kind) {
    char *value = NULL;
    return cli_get_value(name, kind, &value) == 1 ? value : NULL;
}

/* Refuses a name that is not a regular file before anything opens it: a
 * fifo would block the open, a device such as /dev/zero would never end. */
bool require_regular_file(const char *file) {
    int32_t h = -1;
    if (gf_allocate_handle(&h) != 1) {
        return 0;
    }
    err_clear_error_stack();
    int regular = gf_set_file_name(h, file) == 1 && gf_is_handle_regular(h) == 1;
    gf_free_handle(h);
    if (!regular && err_get_stack_depth() == 0) {
        err_set_error(ERR_GEN_GENERAL, "not a regular file (a directory, fifo or device)");
        err_add_error(ERR_GEN_ERROPEN, file);
    }
    return regular;
}

}  // namespace vqglob

namespace {

int run_crc(void) {
    int32_t h = -1;
    uint32_t crc = 0;
    const char *file = value_of("FILE", 'P');
    if (!require_regular_file(file) || gf_allocate_handle(&h) != 1) {
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

int run_match(void) {
    int case_sensitive = cli_present("CASE", 'Q');
    int matched = match_wildcard(value_of("PATTERN", 'P'), value_of("NAME", 'P'), case_sensitive);
    printf("%s\n", matched == 1 ? "match" : "no match");
    return matched == 1 ? 0 : 1;
}

int conf_dump(void *h) {
    char *buffer = NULL;
    if (conf_write_buffer(h, &buffer) != 1) {
        return fail();
    }
    fputs(buffer, stdout);
    conf_free_buffer(buffer);
    return 0;
}

int run_conf(void) {
    const char *action = value_of("ACTION", 'P');
    const char *file = value_of("FILE", 'P');
    const char *section = value_of("SECTION", 'P');
    const char *field = value_of("FIELD", 'P');
    const char *value = value_of("VALUE", 'P');
    int want_field = strcmp(action, "DUMP") != 0;
    int want_value = strcmp(action, "SET") == 0;
    if (want_field && (section == NULL || field == NULL)) {
        return missing("CONF", section == NULL ? "SECTION" : "FIELD");
    }
    if (want_value && value == NULL) {
        return missing("CONF", "VALUE");
    }
    if ((!want_field && section != NULL) || (!want_value && value != NULL)) {
        err_set_error(ERR_CLI_TOOMANYP);
        return fail();
    }
    if (!require_regular_file(file)) {
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

/* Whether output names an existing fifo, whose open for writing waits. */
int output_would_block(const char *output) {
    int32_t h = -1;
    if (gf_allocate_handle(&h) != 1) {
        return 0;
    }
    int fifo = gf_set_file_name(h, output) == 1 && gf_is_handle_fifo(h) == 1;
    gf_free_handle(h);
    err_clear_error_stack(); /* a missing file is no fifo: it is created */
    return fifo;
}

int run_trace(void) {
    const char *output = value_of("OUTPUT", 'Q');
    const char *text = value_of("TEXT", 'Q');
    if (output != NULL && output_would_block(output)) {
        err_set_error(ERR_GEN_GENERAL, "the trace output is a fifo: opening it would wait for a reader");
        err_add_error(ERR_GEN_ERROPEN, output);
        return fail();
    }
    if (output != NULL && dbg_set_debug_output_filename(output) != 1) {
        err_set_error(ERR_GEN_GENERAL, "cannot open the trace output file");
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
            err_set_error(ERR_CLI_INVVAL, item, "CHANNELS");
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
int same_name(const char *a, const char *b) {
    for (; *a != '\0' && *b != '\0'; ++a, ++b) {
        if (ascii_lower(*a) != ascii_lower(*b)) {
            return 0;
        }
    }
    return *a == *b;
}

/* Every message of the table, one line each: code, facility-severity-ident
 * as descriptions print them, and the message template. */
int run_errors(void) {
    const char kSeverities[] = "SIWEF";
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
        err_set_error(ERR_CLI_INVVAL, only != NULL ? only : "", "FACILITY");
        return fail();
    }
    return 0;
}

int run_help(void) {
    if (!print_usage(stdout, value_of("COMMAND", 'P'))) {
        return fail();
    }
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    cli_init();
    build_relaxed_table();
    if (argc < 2 || is_help_switch(argv[1])) {
        print_usage(argc < 2 ? stderr : stdout, NULL);
        return argc < 2 ? 1 : 0;
    }
    cli_set_command_table(relaxed_commands);
    if (cli_dcl_parse_argv(argc, (const char *const *)argv) != 1) {
        return fail();
    }
    const char *command = cli_get_command();
    if (strcmp(command, "HELP") == 0) {
        return run_help();
    }
    if (cli_present("HELP", 'Q')) {
        print_usage(stdout, command);
        return 0;
    }
    const char *parameter = missing_parameter(command);
    if (parameter != NULL) {
        return missing(command, parameter);
    }
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
    if (strcmp(command, "SERVE") == 0) {
        return vqglob::run_serve();
    }
    if (strcmp(command, "DEPLOY") == 0) {
        return vqglob::run_deploy();
    }
    if (strcmp(command, "RELEASES") == 0) {
        return vqglob::run_releases();
    }
    if (strcmp(command, "ROLLBACK") == 0) {
        return vqglob::run_rollback();
    }
    return run_errors();
}
