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
/* The user to run as and the working directory (either may be NULL). */
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
/* Marks the ended child of the handle as seen by its owner. */
VQ_API int api_set_handle_processed(int32_t h);
/* 0: the child is not put on the kill list, and freeing the handle leaves it
 * running; non-zero (the default): it is. */
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

/* ---- Running images: arriving with a later issue --------------------------------------------
 *
 * int api_run_user_image(int32_t h);  int api_check_user_image(int32_t h);
 * int api_get_image_state_and_exit_code(int32_t h, int32_t *state, int32_t *exit_code);
 * int api_get_child_exit_status(int32_t h, int32_t *exit_code);
 * int api_scan_for_ended_child(int32_t *handle);
 * int api_kill_process(int32_t h, int32_t mode);
 * int api_sync_execute_user_image_with_timeout(int32_t h, int32_t timeout_seconds);
 */

VQ_EXTERN_C_END

#endif /* VQ_GLOB_API_H */
