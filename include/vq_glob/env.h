/* Environment queries (env_): who and where the process runs.
 *
 * Each function returns a text in a buffer of the calling thread's, valid
 * until the same function is called again on that thread (or the thread ends);
 * the caller never frees it; answers of other functions and of other threads
 * are kept apart. On failure the result is NULL with the cause on the error
 * stack: the system's message (ERR_SYS_ERRMSG), then the function's ERR_ENV_
 * line where it names one below. Nothing is ever cut short: a value of any
 * length is returned whole. */
#ifndef VQ_GLOB_ENV_H
#define VQ_GLOB_ENV_H

#include "vq_glob/export.h"

VQ_EXTERN_C_BEGIN

/* The name of the user the calling thread runs as (the effective user on
 * POSIX, from the account database; GetUserNameW on Windows). Fails with
 * ERR_ENV_GETPWUID naming the user id (alone when the id has no entry). */
VQ_API const char *env_get_user_name(void);
/* That user's home directory: the account database's entry on POSIX (HOME
 * only when the database has none), the user profile directory on Windows
 * (USERPROFILE when it cannot be had). Fails with ERR_ENV_GETHDIR. */
VQ_API const char *env_get_home_dir(void);
/* This machine's host name without its domain: gethostname cut at its first
 * dot / the DNS host name on Windows. Fails with ERR_ENV_GETHOSTNAME. */
VQ_API const char *env_get_host_name(void);
/* The DNS domain this machine belongs to (the part of its canonical name
 * after the first dot on POSIX, the primary DNS domain on Windows); an empty
 * text when it has none or the resolver does not know the host. A resolver
 * failure gives ERR_ENV_GETHOSTBYNAME naming the host. */
VQ_API const char *env_get_domain_name(void);
/* The operating system's name, release and version in one line, for example
 * "Linux 6.1.0-18-amd64 #1 SMP ... x86_64" or "Windows 10.0.19045". */
VQ_API const char *env_get_os_version(void);
/* The process's current directory, without a trailing separator except for a
 * root ("/" or "C:\"). A directory that has been removed fails with
 * ERR_ENV_GETCWD. */
VQ_API const char *env_get_cwd(void);

/* 1 when standard stream 0, 1 or 2 (input, output, error) of the process is
 * a terminal (a console on Windows), else 0: a file, a pipe, a closed stream
 * or a number outside 0-2. Never an error; for choosing between a progress
 * bar and plain lines, or whether to prompt. */
VQ_API int env_is_terminal(int32_t stream);
/* Fills *columns with the width of the terminal behind standard stream 0, 1
 * or 2; returns 1. A stream that is no terminal fails with the system's
 * reason (ERR_SYS_ERRMSG), a null columns with ERR_GEN_PARAMS. */
VQ_API int env_get_terminal_columns(int32_t stream, int32_t *columns);

VQ_EXTERN_C_END

#endif /* VQ_GLOB_ENV_H */
