/* A first look at the library from a plain C program: the library starts by
 * itself, a failing operation leaves a stack of coded messages that prints as
 * one description, trace lines go out on the channels the thread asked for,
 * and a configuration file is read, changed and written back, as text and as
 * XML. The one argument names the directory for the demo's files (default: .). */
#include <stdio.h>
#include <string.h>

#include "vq_glob.h"

static int open_settings(const char *name) {
    /* What a library call does when it fails: the system's reason first,
     * then the module's own message on top. */
    err_set_system_error(2);
    err_add_error(ERR_FIL_OPEN, name);
    return 0;
}

/* The settings this program knows: a section row, then its fields. The
 * password is stored enciphered in the file. */
enum { kReplication = 100, kTarget, kRetries, kCompress, kHosts, kPassword };
static const conf_table_row kSettings[] = {
    {kReplication, "Replication", 0, NULL, 0, 0, NULL},
    {kTarget, "Target Path", CONF_TYPE_STRING, "/srv/replica", 0, 0, NULL},
    {kRetries, "Retries", CONF_TYPE_INT, NULL, 3, 0, NULL},
    {kCompress, "Compress Data", CONF_TYPE_BOOL, "TRUE", 0, 0, NULL},
    {kHosts, "Hosts", CONF_TYPE_ML_TEXT, NULL, 0, 0, NULL},
    {kPassword, "Password", CONF_TYPE_STRING, NULL, 0, 0x2, NULL},
};

static int print_file(const char *name) {
    char line[512];
    FILE *file = fopen(name, "r");
    if (file == NULL) {
        return 0;
    }
    while (fgets(line, sizeof line, file) != NULL) {
        printf("    | %s", line);
    }
    fclose(file);
    return 1;
}

static int fail(const char *what) {
    printf("%s failed:\n%s\n", what, err_get_error_msg());
    return 1;
}

static int show_configuration(const char *dir) {
    char cfg[1024], xml[1024];
    void *h = NULL;
    char *target = NULL, *text = NULL;
    char **hosts = NULL;
    int32_t retries = 0, compress = 0;
    FILE *file;

    snprintf(cfg, sizeof cfg, "%s/demo.cfg", dir);
    snprintf(xml, sizeof xml, "%s/demo.xml", dir);
    file = fopen(cfg, "w");
    if (file == NULL) {
        printf("cannot create %s\n", cfg);
        return 1;
    }
    fputs("[Replication]\nTarget Path=\nRetries=5\nHosts=_ml_text_\nalpha\nbeta\n_ml_text_\n", file);
    fclose(file);
    printf("\nthe configuration file %s as written by hand:\n", cfg);
    print_file(cfg);

    if (!conf_allocate_handle(&h) || !conf_set_table(h, kSettings, (int32_t)(sizeof kSettings / sizeof kSettings[0])) ||
        !conf_read_file_to_handle(h, cfg)) {
        return fail("reading the configuration");
    }
    if (!conf_get_string_field(h, "Replication", "Target Path", &target) ||
        !conf_get_int_field_by_const(h, kRetries, &retries) || !conf_get_bool_field(h, "Replication", "Compress Data", &compress) ||
        !conf_get_ml_string_field(h, "Replication", "Hosts", &hosts)) {
        return fail("reading the settings");
    }
    printf("read: Target Path=%s (the default), Retries=%d, Compress Data=%s (the default), %d hosts\n", target, retries,
           compress ? "TRUE" : "FALSE", ml_list_count(hosts));

    ml_init_list(0, &hosts);
    ml_add_element(&hosts, "alpha");
    ml_add_element(&hosts, "gamma");
    if (!conf_set_int_field(h, "Replication", "Retries", retries + 1) ||
        !conf_set_bool_field(h, "Replication", "Compress Data", 1) ||
        !conf_set_ml_string_field(h, "Replication", "Hosts", hosts) ||
        !conf_set_string_field(h, "Replication", "Password", "s3cret")) {
        ml_free(hosts);
        return fail("changing the settings");
    }
    ml_free(hosts);
    conf_enable_write_with_temp(h);
    if (!conf_write(h, cfg)) {
        return fail("writing the configuration");
    }
    printf("changed and written back through a temporary file (the password is enciphered):\n");
    print_file(cfg);

    conf_set_use_write_to_XML(h, 1);
    conf_set_write_XML_header(h, 0);
    if (!conf_write_buffer(h, &text)) {
        return fail("writing XML");
    }
    printf("the same configuration as XML:\n%s", text);
    conf_free_buffer(text);
    conf_set_write_XML_header(h, 1);
    if (!conf_write(h, xml)) {
        return fail("writing the XML file");
    }
    printf("and written with its header to %s\n", xml);
    conf_free_handle(&h);
    return 0;
}

int main(int argc, char **argv) {
    unsigned char mask[8] = {0};
    void *list;
    int32_t i;

    printf("library started; this thread's error stack holds %d entries\n", err_get_stack_depth());

    mask[1] = 0x08; /* channel bit 11 */
    dbg_set_debug_mask_value(mask);
    new_dbg_str(DBG_CHANNEL_FLOW, "trace: reading settings from <%s>\n", "replicator.cfg");
    new_dbg_str(0x1, "trace: this line is on a channel that is off and never shows\n");

    if (!open_settings("replicator.cfg")) {
        err_add_error(ERR_GEN_MEMORY, "open_settings", "demo", 27);
        printf("\nthe failure as a description (%d entries, newest first):\n", err_get_stack_depth());
        err_set_log_interactive(0);
        printf("%s\n\n", err_get_error_msg());
        for (i = 0; i < err_get_stack_depth(); ++i) {
            printf("  entry %d: code 0x%X severity %u facility 0x%X\n", i, err_get_error_code(i),
                   err_get_error_severity(i), err_get_error_facility(i));
        }
    }

    list = lln_init_list();
    lln_add_node_last(list, "first");
    lln_add_node_last(list, "second");
    printf("\na locked list with %u nodes, dumped to the trace:\n", lln_get_count(list));
    dbg_set_debug(1);
    lln_dump_list(list);
    dbg_set_debug(0);
    lln_dispose_list(list);
    err_clear_error_stack();
    return show_configuration(argc > 1 ? argv[1] : ".");
}
