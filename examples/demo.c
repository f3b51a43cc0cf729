/* A first look at the library from a plain C program: the library starts by
 * itself, a failing operation leaves a stack of coded messages that prints as
 * one description, and trace lines go out on the channels the thread asked for. */
#include <stdio.h>

#include "vq_glob.h"

#define DEMO_CHANNEL_FLOW 0x800 /* bit 11 */

static int open_settings(const char *name) {
    /* What a library call does when it fails: the system's reason first,
     * then the module's own message on top. */
    err_set_system_error(2);
    err_add_error(0x1709u, name); /* FIL OPEN */
    return 0;
}

int main(void) {
    unsigned char mask[8] = {0};
    void *list;
    int32_t i;

    printf("library started; this thread's error stack holds %d entries\n", err_get_stack_depth());

    mask[1] = 0x08; /* channel bit 11 */
    dbg_set_debug_mask_value(mask);
    new_dbg_str(DEMO_CHANNEL_FLOW, "trace: reading settings from <%s>\n", "replicator.cfg");
    new_dbg_str(0x1, "trace: this line is on a channel that is off and never shows\n");

    if (!open_settings("replicator.cfg")) {
        err_add_error(0x1001u, "open_settings", "demo", 27);
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
    return 0;
}
