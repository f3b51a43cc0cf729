/* The per-thread error stack, the message table behind it, and logging.
 *
 * Every library function reports failure by returning 0 (or NULL) and leaving
 * coded messages on the calling thread's stack. The stack keeps the nine
 * newest entries; each entry's text is cut at 5,119 characters ending in
 * "...". Codes are facility + number (0x1001 is GEN MEMORY, ERR_GEN_MEMORY in
 * err_codes.h, which names every code); an unknown code
 * prints as the catch-all UNKNWN entry. Severities: 0 S, 1 I, 2 W, 3 E, 4 F.
 * Texts returned by these functions belong to the thread's stack and change
 * with its next update. */
#ifndef VQ_GLOB_ERR_H
#define VQ_GLOB_ERR_H

#include "vq_glob/err_codes.h"
#include "vq_glob/export.h"

VQ_EXTERN_C_BEGIN

/* Every code of the message table has a name in vq_glob/err_codes.h. The
 * codes shared by every module: ERR_SYS_ERRMSG (an operating-system text),
 * ERR_GEN_MEMORY (function, module, line), ERR_GEN_GENERAL ("%s") and
 * ERR_GEN_PARAMS (function, argument). */
#define ERR_UNKNOWN ERR_UNKNWN_UNKNWN /* the catch-all entry */

/* One stack entry as it travels between threads and processes. */
typedef struct {
    char text[5120];
    uint32_t code; /* table code, or 0xFFFFFFFF for a free-text entry */
} err_entry;

/* Allocates the stack and resets logging settings; 1 (at once when already
 * initialised), 0 when out of memory. Every other call initialises on demand. */
VQ_API int err_init(void);
/* Frees the stack; the next call starts afresh. 1. */
VQ_API int err_shutdown(void);

/* Empties the stack, then pushes code's message formatted with the arguments. */
VQ_API int err_set_error(uint32_t code, ...);
/* Pushes code's message formatted with the arguments (printf rules). */
VQ_API int err_add_error(uint32_t code, ...);
/* Pushes a copy of a prepared entry (for example one unpacked from a message). */
VQ_API int err_add_raw_error(const err_entry *entry);
/* Pushes a free-text entry. */
VQ_API int err_add_text_error(const char *text);
/* Replaces the stack by two entries: text, then the previous description as
 * one free-text entry, so the old description prints first. */
VQ_API int err_add_text_error_before_stack(const char *text);
/* Pushes the system's text for sys_errno under ERR_SYS_ERRMSG. */
VQ_API int err_add_system_error(int32_t sys_errno);
/* Empties the stack, then as err_add_system_error. */
VQ_API int err_set_system_error(int32_t sys_errno);
/* Empties the stack, then pushes the system's text for a socket error. */
VQ_API int err_set_network_error(int32_t socket_errno);
/* Empties the stack and its description. */
VQ_API int err_clear_error_stack(void);

/* The description: entries newest first, one per line joined by "\n -";
 * coded ones as FACILITY-S-IDENT, text. Empty for an empty stack. */
VQ_API const char *err_get_error_msg(void);
/* Code / severity / facility / own text of entry n (0 = newest; an n past the
 * oldest means the oldest). 0 (or "") for an empty stack. */
VQ_API uint32_t err_get_error_code(int32_t n);
VQ_API uint32_t err_get_error_severity(int32_t n);
VQ_API uint32_t err_get_error_facility(int32_t n);
VQ_API const char *err_get_error_text(int32_t n);
/* Number of entries (0 to 9). */
VQ_API int32_t err_get_stack_depth(void);
/* Highest severity over all entries; 0 when empty. */
VQ_API int32_t err_get_max_error_severity(void);

/* Exposes the raw entries, oldest first: *entries points into the stack,
 * *size = depth * sizeof(err_entry). Valid until the stack changes. */
VQ_API int err_get_stack_desc(void **entries, int32_t *size, int32_t *depth);
/* Replaces the stack by depth raw entries (size bytes; depth is cut to the
 * whole entries that size holds and to nine) and rebuilds the description.
 * 0 with a PARAMS error for a NULL pointer or negative numbers. */
VQ_API int err_set_stack_desc(const void *entries, int32_t size, int32_t depth);

/* Prints facility under another name on this thread; at most 100 renames
 * (more are ignored); a NULL name prints as empty. */
VQ_API int err_change_facility(uint32_t facility, const char *name);
/* Reads the message table by position, index 0 upwards: the record's code,
 * severity (0-4: S I W E F), facility name, ident and printf template, all
 * static texts (any out pointer may be NULL). 0 past the last record; the
 * catch-all "Unknown error" record is not listed. */
VQ_API int err_get_table_message(int32_t index, uint32_t *code, uint32_t *severity, const char **facility,
                                 const char **ident, const char **text);
/* Copies the description aside / returns the copy. */
VQ_API int err_save_error(void);
VQ_API const char *err_get_saved_error(void);

/* Prints the description to the console (stderr for W/E/F, else stdout) and
 * appends it to the log file when file logging is on. */
VQ_API int err_print_error_msg(void);
/* Writes one line of the program's own, not an error stack, to the outputs
 * err_print_error_msg uses: the console when on (stderr for severity 2-4,
 * else stdout), the log file when on, the system log when on and severity is
 * at least err_set_syslog_severity's. severity is 0-4 (S I W E F); text is
 * written as given. The error stack is not touched. 0 with ERR_GEN_PARAMS
 * for a null text or a severity outside 0-4. */
VQ_API int err_log_line(int32_t severity, const char *text);
/* NULL switches file logging off; a name (UTF-8, any length, copied whole)
 * switches it on. 0 with MEMORY on the stack, and the previous setting kept,
 * when the copy cannot be made. */
VQ_API int err_set_log_file(const char *name);
/* Console printing on (non-zero) or off. */
VQ_API int err_set_log_interactive(int32_t flag);
/* System-log reporting on (non-zero) or off. */
VQ_API int err_set_log_syslog(int32_t flag);
/* Lowest severity reported to the system log. */
VQ_API int err_set_syslog_severity(int32_t severity);

/* Job kinds and statuses for err_event_report. */
#define ERR_JOB_INTERNAL 0     /* "Internal Process" */
#define ERR_JOB_DISTRIBUTION 1 /* "Distribution Job" */
#define ERR_JOB_REPLICATION 2  /* "Replication Job" */
#define ERR_JOB_DEPLOYMENT 3   /* "Deployment Job" */
#define ERR_JOB_COLLECTION 4   /* "Collection Job" */
#define ERR_JOB_SCHEDULED 5    /* "Scheduled Job" */
#define ERR_STATUS_SUCCESS 0
#define ERR_STATUS_WARNING 1
#define ERR_STATUS_ERROR 2
#define ERR_STATUS_ABORT 3
/* Reports the description to the system event log (source "Velquist") as
 * "<job name> <STATUS>: <description>". 1, or 0 with the system's reason
 * pushed on the stack. Unknown kinds report as "Internal Process". */
VQ_API int err_event_report(int32_t job_kind, int32_t status);

/* The module's frame functions (run by the library frame). */
VQ_API int err_init_process(uint32_t tls_index);
VQ_API int err_clean_process(void);
VQ_API int err_init_thread(void **slot);
VQ_API int err_clean_thread(void **slot);

/* ---- System messages ------------------------------------------------------- */

/* The operating system's text for an error number, in a per-thread buffer
 * overwritten by the next call. */
VQ_API const char *get_system_error_message(int32_t sys_errno);
/* 1 when the number reports a failure (not success, not an informational
 * status such as "no more data" or "would block"). */
VQ_API int is_error_type_error(int32_t sys_errno);
/* 1 when the number means access was denied (or the target is read-only). */
VQ_API int is_access_error(int32_t sys_errno);
/* 1 when the number means the file or its directory does not exist. */
VQ_API int is_file_not_found_error(int32_t sys_errno);
/* Set up / release the thread's last-message buffer (done by the frame). */
VQ_API int sys_msg_init(void);
VQ_API int sys_msg_clean(void);

VQ_EXTERN_C_END

#endif /* VQ_GLOB_ERR_H */
