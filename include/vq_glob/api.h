/* Process handles (api_): small integers naming entries of the calling
 * thread's table of process descriptions.
 *
 * An entry describes a program to run (image, command line, user, working
 * directory, log files, environment variables), follows it while it runs
 * (pid, pipes, exit code) and carries a store of typed parameters keyed by
 * integers; a handle also serves as a plain typed dictionary that never runs
 * anything (taking a general message apart fills one). Handles are valid
 * only on the thread that made them: handles start at 1, -1 means none.
 *
 * Every function returns 1 for success and 0 for failure, leaving coded
 * messages of the EXE facility on the error stack; a lookup that finds
 * nothing returns 0 without an error. Texts given to setters are copied;
 * texts and data returned by getters belong to the handle and stay valid
 * until the value is replaced or removed, or the handle is freed. */
#ifndef VQ_GLOB_API_H
#define VQ_GLOB_API_H

#include "vq_glob/err_codes.h"
#include "vq_glob/export.h"

VQ_EXTERN_C_BEGIN

/* Parameter types. */
#define API_PARAM_INT 1   /* int32_t */
#define API_PARAM_SHORT 2 /* int16_t */
#define API_PARAM_LONG 3  /* int32_t */
#define API_PARAM_VOID 4  /* bytes of a given size */
#define API_PARAM_STR 5   /* NUL-terminated text */
#define API_PARAM_CHAR 6  /* char */

/* The kind of a handle made by api_allocate_channel. */
#define API_KIND_CHANNEL 4

/* Bytes a unique process id needs: 32 hexadecimal digits and the NUL. */
#define API_UNIQUE_ID_SIZE 33

/* Codes this family leaves on the error stack: the ERR_EXE_... names of
 * vq_glob/err_codes.h (facility EXE, 0x1200), e.g. ERR_EXE_NOTACTIVE. */

/* ---- The handle table --------------------------------------------------------- */

/* Sets up the calling thread's table (done on demand by api_allocate_handle). */
VQ_API int api_init(void);
/* Frees the calling thread's table with every entry; a running child is left running. */
VQ_API int api_clean(void);
/* *handle becomes the lowest free handle, of the given kind; -1 on failure. */
VQ_API int api_allocate_handle(int32_t *handle, int32_t kind);
/* Frees the handle, its texts, parameters and pipes; freeing a free handle is
 * no error. The table itself goes when its last handle is freed. */
VQ_API int api_free_handle(int32_t handle);

/* ---- Typed parameters ----------------------------------------------------------- */

/* Stores a copy of the value under key (any key but -1). value points at the
 * scalar, the text or the bytes; size counts bytes for API_PARAM_VOID only.
 * A NULL value stores no data. The newest value of a key hides older ones. */
VQ_API int api_set_param(int32_t h, int32_t key, int32_t type, const void *value, int32_t size);
VQ_API int api_set_char_param(int32_t h, int32_t key, char v);
VQ_API int api_set_short_param(int32_t h, int32_t key, int16_t v);
VQ_API int api_set_int_param(int32_t h, int32_t key, int32_t v);
VQ_API int api_set_long_param(int32_t h, int32_t key, int32_t v);
/* Stores a copy of s (NULL stores a null text). */
VQ_API int api_set_str_param(int32_t h, int32_t key, const char *s);
/* Stores a copy of size bytes at data (NULL or size 0 stores no data). */
VQ_API int api_set_void_param(int32_t h, int32_t key, const void *data, int32_t size);

/* The newest value of key, when it has the given type: scalars are copied to
 * out, texts and bytes give their stored pointer in *(void **)out; *size
 * (when size is not NULL) receives the stored size. 0 without an error when
 * the key is missing or holds another type. */
VQ_API int api_get_param(int32_t h, int32_t key, int32_t type, void *out, int32_t *size);
VQ_API int api_get_char_param(int32_t h, int32_t key, char *out);
VQ_API int api_get_short_param(int32_t h, int32_t key, int16_t *out);
VQ_API int api_get_int_param(int32_t h, int32_t key, int32_t *out);
VQ_API int api_get_long_param(int32_t h, int32_t key, int32_t *out);
/* *out becomes the stored text (NULL for a null text). */
VQ_API int api_get_str_param(int32_t h, int32_t key, char **out);
/* *out becomes the stored bytes (NULL when no data was stored). */
VQ_API int api_get_void_param(int32_t h, int32_t key, void **out);
/* Removes the newest value of key, uncovering the one before it; 0 when none. */
VQ_API int api_remove_param(int32_t h, int32_t key);

/* One stored parameter as the iterator reports it; value belongs to the handle. */
typedef struct {
    int32_t key;
    int32_t type;
    void *value;
    int32_t size;
    uint8_t flag;
} api_param;
/* Starts the calling thread's one parameter iterator on the handle. */
VQ_API int api_param_iterator_init(int32_t h);
/* Copies the next stored parameter, oldest first, into *entry; 0 at the end. */
VQ_API int api_param_iterator_next(api_param *entry);

/* ---- What to run, and how ----------------------------------------------------------- */

/* Called with the handle and its callback information while a run function
 * waits for the handle's child. */
typedef int (*api_monitor_routine)(int32_t handle, void *callback_info);

/* The shareable image and the number of the function in it to call. */
VQ_API int api_set_shr_image_name(int32_t h, const char *name);
/* *name becomes the shareable image name (NULL when unset). */
VQ_API int api_get_shr_image_name(int32_t h, char **name);
VQ_API int api_set_shr_function(int32_t h, int32_t function);
/* A name for the process, used in traces and messages. */
VQ_API int api_set_process_name(int32_t h, const char *name);
/* The user to run as and the working directory (either may be NULL); the
 * user is also stored as text parameter API_KEY_RUN_AS_USER. */
VQ_API int api_set_context(int32_t h, const char *user, const char *working_directory);
/* *user and *working_directory (either may be NULL) become the stored texts, NULL when unset. */
VQ_API int api_get_context(int32_t h, char **user, char **working_directory);
/* Non-zero: run under the caller's own identity whatever context is set. */
VQ_API int api_set_do_not_change_context(int32_t h, int32_t flag);
/* The user's password: kept only in memory, never traced or written out. */
VQ_API int api_set_password(int32_t h, const char *password);
/* Security flags checked before the image runs. */
VQ_API int api_set_image_sec_flags(int32_t h, uint32_t flags);
/* Flags passed to process creation (for example, start suspended). */
VQ_API int api_set_creation_flags(int32_t h, uint32_t flags);
/* The program to run. */
VQ_API int api_set_user_image_name(int32_t h, const char *path);
/* Its command-line parameters. */
VQ_API int api_set_user_image_params(int32_t h, const char *command_line);
/* The queue the image is submitted to. */
VQ_API int api_set_user_image_queue(int32_t h, const char *queue);
/* How a run function waits for the image. */
VQ_API int api_set_user_image_mode(int32_t h, int32_t mode);
/* The group the child belongs to. */
VQ_API int api_set_group_id(int32_t h, int32_t group_id);
/* Where the child's standard output / standard error go. */
VQ_API int api_set_log_filename(int32_t h, const char *path);
VQ_API int api_set_errlog_filename(int32_t h, const char *path);
/* Marks the ended child of the handle as seen by its owner: the ended-child
 * scans skip the handle until its next run. */
VQ_API int api_set_handle_processed(int32_t h);
/* API_KILL_LIST_NONE: the child is not put on the kill list, and freeing the
 * handle leaves it running; API_KILL_LIST_RECOVER (the default) or
 * API_KILL_LIST_NO_RECOVERY: it is (see the kill list); other values BADPAR. */
VQ_API int api_set_kill_list_ind(int32_t h, int32_t ind);
/* The child inherits none of the caller's inheritable handles. */
VQ_API int api_unset_inherit_handles_ind(int32_t h);
/* The routine called while waiting for the child (NULL for none). */
VQ_API int api_set_user_monitor_routine(int32_t h, api_monitor_routine routine);
/* The caller's pointer passed to the monitor routine. */
VQ_API int api_send_callback_info(int32_t h, void *callback_info);

/* ---- Environment variables for the child ------------------------------------------- */

/* Appends a copy of name (not empty, no '=') and value for the child's environment. */
VQ_API int api_add_env_var_to_handle(int32_t h, const char *name, const char *value);
/* Appends every "name=value" text of a NULL-terminated list (an ml_ list);
 * on a bad entry nothing of the list is added. */
VQ_API int api_add_env_var_list_to_handle(int32_t h, char **list);
/* *value becomes the value last added under name; 0 without an error when there is none. */
VQ_API int api_get_env_var_from_handle(int32_t h, const char *name, char **value);

/* ---- Copies ------------------------------------------------------------------------ */

/* Copies the parameters (oldest first, so the newest still wins) and the
 * application fields of one handle to another. */
VQ_API int api_copy_handle(int32_t from, int32_t to);
/* Copies what describes the run (image, context, password, log files, flags,
 * environment variables, monitor routine), not the running state. */
VQ_API int api_copy_handle_app_params(int32_t from, int32_t to);

/* The pipe ends of a handle: [0] reading end, [1] writing end; -1 for none.
 * On POSIX they are file descriptors, on Windows HANDLE values. pipe1 carries
 * what the handle's owner sends, pipe2 what it receives. */
typedef struct {
    intptr_t pipe1[2];
    intptr_t pipe2[2];
} api_pipes;
/* The handle takes over the given ends, closing the ends it held. */
VQ_API int api_copy_pipes_to_handle(int32_t h, const api_pipes *pipes);
/* The caller takes over the handle's ends (and must close them); the handle keeps none. */
VQ_API int api_copy_pipes_from_handle(int32_t h, api_pipes *pipes);

/* ---- Channels ----------------------------------------------------------------------- */

/* *channel becomes a handle of kind API_KIND_CHANNEL on the owner's side of
 * the handle's pipes (pipes are created when the handle has none). */
VQ_API int api_allocate_channel(int32_t *channel, int32_t handle);
/* Frees a channel (a handle of another kind is refused). */
VQ_API int api_free_channel(int32_t channel);
/* Throws away whatever is waiting to be read on the channel, without blocking. */
VQ_API int api_clean_channel(int32_t channel);
/* Writes size bytes into the channel's sending pipe, blocking while it is full. */
VQ_API int api_write_to_channel(int32_t channel, const void *data, int32_t size);
/* Waits at most timeout_ms (negative: without limit) for data on the
 * channel's receiving pipe and reads up to size bytes; a time-out returns 1
 * with *received 0. 0 with PIPEREAD once every writer has gone. */
VQ_API int api_listen_on_channel(int32_t channel, void *buffer, int32_t size, int32_t *received,
                                 int32_t timeout_ms);

/* ---- Process identity ---------------------------------------------------------------- */

/* The process id the handle carries; 0 when it carries none or is not valid. */
VQ_API int32_t api_get_pid(int32_t h);
/* The calling process's id. */
VQ_API int32_t api_get_current_pid(void);
/* *handle becomes a new handle carrying pid, a process that must exist. */
VQ_API int api_create_handle_from_pid(int32_t pid, int32_t *handle);
/* Writes the 32 upper-case hexadecimal digits naming the handle's process for
 * as long as it lives (id, then creation time high and low words) and a NUL. */
VQ_API int api_get_process_unique_id(int32_t h, char *buffer /* at least 33 bytes */);
/* *handle becomes a new handle carrying the process of a unique id; refused
 * when the process is gone or its id now names a newer process. */
VQ_API int api_create_handle_from_unique_id(const char *id, int32_t *handle);

/* ---- The table's last error ------------------------------------------------------------ */

/* Code / text of the last error this family recorded on the calling thread (0 / "" for none);
 * the text changes with the next error. */
VQ_API uint32_t api_get_last_error_code(void);
VQ_API const char *api_get_last_error_msg(void);
/* System error number / text recorded with it (0 / "" for none). */
VQ_API int32_t api_get_last_system_error_code(void);
VQ_API const char *api_get_last_system_error_msg(void);

/* ---- Running images ----------------------------------------------------------------------
 *
 * A handle describes the child (api_set_user_image_name, api_set_user_image_params,
 * api_set_context, api_set_password, the log files, environment variables, creation flags);
 * api_run_user_image starts it and the functions below follow it to its end.
 *
 * - Parameters: one command-line text split at blanks (spaces and tabs); a double-quoted run
 *   belongs to the argument it stands in, without its quotes ("a b" -> a b, x"y z" -> xy z,
 *   "" -> an empty argument); an unbalanced quote is refused (BADPAR).
 * - An image whose path holds a blank is run from its own directory (any working directory of
 *   the handle is not used); the command line traced is "file" parameters.
 * - Log files: the log file receives the child's standard output, the error log file its
 *   standard error; both are opened by the caller before the child starts, created or emptied
 *   (truncated), so that each run starts a fresh log; one name given for both gives one file.
 *   A name that is a link, a directory, a device or a fifo is refused (LOGFILE / ERRLOGFILE);
 *   without a name the child shares the caller's output.
 * - Identity: the user is the newest API_KEY_RUN_AS_USER text (api_set_context sets it), unless
 *   api_set_do_not_change_context is set. With a password the user is authenticated (POSIX:
 *   PAM; Windows: LogonUserA) before anything is opened or started; a wrong password fails
 *   with CONCHG and starts nothing. Without a password only a caller that may switch users by
 *   itself (root on POSIX, running as a service) may run as another user; any other caller
 *   fails with CONCHG. The password is never traced, logged, put in an error text, the child's
 *   environment or its command line.
 * - The child's environment is the caller's with the handle's variables set over it; a child
 *   under another user also gets that user's HOME, USER, LOGNAME and SHELL.
 * - Administrative hold: while the environment variable VQ_SERVER_ALLOW_NEW_PROCS is exactly
 *   "FALSE", nothing starts: the run fails with MORINFO (naming API_ADMIN_HOLD_REFERENCE) under
 *   NONEWPROC.
 * - The end: a child that exits records its exit status, a child ended by a signal or killed
 *   records -1 (0xFFFFFFFF), in the handle's exit code and as int parameter API_KEY_EXIT_CODE.
 *   Ended children are reaped; none is left as a zombie.
 */

/* Reserved parameter keys. */
#define API_KEY_RUN_AS_USER 10010 /* text: the user the child runs as (set by api_set_context) */
#define API_KEY_EXIT_CODE 10017   /* int: the child's exit code once its end is recorded */
#define API_KEY_SCAN_MARKER 10021 /* int: the running child's pid, matched by the scans */

/* Image modes (api_set_user_image_mode) and how long api_check_user_image waits in each. */
#define API_IMAGE_MODE_ASYNC 0      /* only looks whether the child has ended */
#define API_IMAGE_MODE_SYNC 1       /* waits until the child ends */
#define API_IMAGE_MODE_SETTLE 2     /* waits a little: a child that fails at once is seen ended */
#define API_IMAGE_ASYNC_WAIT_MS 0
#define API_IMAGE_SYNC_WAIT_MS (-1) /* without limit */
#define API_IMAGE_SETTLE_WAIT_MS 2000

/* Image states reported by api_get_image_state_and_exit_code. */
#define API_IMAGE_STATE_NONE 0    /* never started, or its start failed */
#define API_IMAGE_STATE_RUNNING 2 /* from a successful start until its end is recorded */
#define API_IMAGE_STATE_ENDED 3   /* exited by itself */
#define API_IMAGE_STATE_KILLED 4  /* ended by a signal or killed */

/* Kill modes of api_kill_process. */
#define API_KILL_ONLY 0       /* kill and keep the handle, with the end recorded */
#define API_KILL_AND_DELETE 1 /* kill and free the handle */

/* Kill-list indications of api_set_kill_list_ind. */
#define API_KILL_LIST_NONE 0        /* not on the kill list; freeing the handle leaves the child running */
#define API_KILL_LIST_RECOVER 1     /* on the kill list and in its file (the default) */
#define API_KILL_LIST_NO_RECOVERY 2 /* on the kill list, never in its file */

/* Creation flag: the child starts suspended until api_resume (Windows' CREATE_SUSPENDED). */
#define API_CREATE_SUSPENDED 0x00000004u

/* The support reference that MORINFO names while new processes are refused. */
#define API_ADMIN_HOLD_REFERENCE "Administration Guide, chapter Administrative Hold"

/* Starts the handle's image; 1 once the child runs (the exec itself succeeded). Failures
 * start nothing: BADPAR (no image, unbalanced quote, a running child, unknown mode), NONEWPROC,
 * CONCHG, LOGFILE, ERRLOGFILE, SETCWD, UEXECVP, FORK, each under the system's message. */
VQ_API int api_run_user_image(int32_t h);
/* Lets a child started with API_CREATE_SUSPENDED run. NOTACTIVE when none runs. */
VQ_API int api_resume(int32_t h);
/* Waits for the child as the handle's image mode says and records its end when it came;
 * 1 whether it ended or still runs, 0 with WAIT (or NOTACTIVE when no child was started). */
VQ_API int api_check_user_image(int32_t h);
/* *state becomes the image state (API_IMAGE_STATE_...), *exit_code the recorded exit code
 * (0 while none is recorded). Reports only what is recorded; never waits. */
VQ_API int api_get_image_state_and_exit_code(int32_t h, int32_t *state, int32_t *exit_code);
/* *exit_code becomes the recorded exit code; 0 with PARNOTFOUND while no end is recorded. */
VQ_API int api_get_child_exit_status(int32_t h, int32_t *exit_code);
/* Looks, without waiting, whether the child has ended, recording its end: *running 1 or 0,
 * *exit_code the exit code once ended (either pointer may be NULL). */
VQ_API int api_check_async_image_status(int32_t h, int32_t *running, int32_t *exit_code);

/* Looks at every running child of the calling thread, recording the ends that came, and sets
 * *handle to the lowest handle whose child has ended and that is not yet marked processed
 * (api_set_handle_processed), or -1 and returns 0 without an error when there is none. */
VQ_API int api_scan_for_ended_child(int32_t *handle);
/* Restarts the search of api_get_next_ended_child at the lowest handle. */
VQ_API int api_init_search(void);
/* The next handle, upwards, whose child has ended (its end recorded now or before) and that is
 * not marked processed; 0 without an error at the end of the table. */
VQ_API int api_get_next_ended_child(int32_t *handle);
/* Restarts the search of api_get_next_active_child at the lowest handle. */
VQ_API int api_init_active_search(void);
/* The next handle, upwards, whose child runs as far as recorded (nothing is waited for); 0
 * without an error at the end. */
VQ_API int api_get_next_active_child(int32_t *handle);

/* Kills the handle's child (SIGKILL / TerminateProcess) and reaps it within 2 seconds,
 * recording -1 as its exit code; a child that has already ended is not signalled (its pid may
 * belong to another process by now). API_KILL_AND_DELETE then frees the handle; API_KILL_ONLY
 * keeps it. 0 with TERMPRC or WAIT when the child could not be ended; the handle then stays. */
VQ_API int api_kill_process(int32_t h, int32_t mode);
/* As api_kill_process; *was_running (may be NULL) becomes 1 when a running child was killed,
 * 0 when there was none to kill. Only this handle's own child is ever signalled: a handle made
 * from a pid or a unique id is refused (BADPAR). */
VQ_API int api_kill_process_with_protect(int32_t h, int32_t mode, int32_t *was_running);

/* ---- The kill list ----------------------------------------------------------------------
 *
 * Every child started with a kill-list indication is listed process-wide (pid, creation time,
 * image) until its end is recorded or it is killed. With a kill-list file, the list of the
 * API_KILL_LIST_RECOVER children is written there (section "Kill List Params" of the kill-list
 * configuration table, one line "<unique process id> <image>" each) after every change, so
 * that a successor of a process that died can end the children it left. */

/* Saves the kill list to path (copied) now and after every change; NULL stops saving. 0 with
 * the configuration module's errors when the file cannot be written. */
VQ_API int api_set_kill_list_file(const char *path);
/* Kills every process listed in the kill-list file at path whose pid and creation time still
 * match (a reused pid is left alone) and that is not on this process's own list; *killed (may
 * be NULL) counts them. A missing file kills nothing and succeeds. */
VQ_API int api_kill_listed_processes(const char *path, int32_t *killed);
/* The number of children on the process-wide kill list. */
VQ_API int32_t api_get_kill_list_size(void);

/* ---- Running in one call -------------------------------------------------------------------- */

/* Runs the handle's image and waits for its end: 1 when it exited with 0; 0 with USRIMGFAIL
 * (exit code in API_KEY_EXIT_CODE) or IMGUNEXPTERM (killed), or a start failure. */
VQ_API int api_sync_execute_user_image(int32_t h);
/* Runs the handle's image without waiting; follow it with api_check_async_image_status. */
VQ_API int api_async_execute_user_image(int32_t h);
/* As api_sync_execute_user_image with at most timeout_seconds (1 or more) of waiting; on the
 * time-out the child is killed and reaped (-1 recorded) and the call fails with TIMEOUT. */
VQ_API int api_sync_execute_user_image_with_timeout(int32_t h, int32_t timeout_seconds);
/* Runs a command line through the system's shell (/bin/sh -c, cmd.exe /c) under the caller's
 * identity and waits: *exit_code (may be NULL) becomes its exit code; 1 when that is 0, else
 * as api_sync_execute_user_image. */
VQ_API int api_system_command(const char *command, int32_t *exit_code);
/* Runs image with its command line (may be NULL) under the caller's identity and waits, as
 * api_system_command does. */
VQ_API int api_run_local_image(const char *image, const char *command_line, int32_t *exit_code);
/* Writes the recorded exit code of the handle's child as one decimal line to path, replacing
 * the file; PARNOTFOUND while no end is recorded, GENERAL under the system's message when the
 * file cannot be written. */
VQ_API int api_write_exit_file(int32_t h, const char *path);

VQ_EXTERN_C_END

#endif /* VQ_GLOB_API_H */
