/* Environment queries (env_): who and where the process runs.
 *
 * Each function returns a text in a buffer of the calling thread's, valid
 * until the same function is called again on that thread (or the thread ends);
 * the caller never frees it. On failure the result is NULL with the cause on
 * the error stack (the system's message, then ERR_GEN_PARAMS-style context as
 * the function says); nothing is ever cut short: a value of any length is
 * returned whole. */
#ifndef VQ_GLOB_ENV_H
#define VQ_GLOB_ENV_H

#include "vq_glob/export.h"

VQ_EXTERN_C_BEGIN

/* The name of the user the calling thread runs as (the effective user on
 * POSIX, from the account database; GetUserNameW on Windows). */
VQ_API const char *env_get_user_name(void);
/* That user's home directory: the account database's entry on POSIX (HOME
 * only when the database has none), the user profile directory on Windows. */
VQ_API const char *env_get_home_dir(void);
/* This machine's host name without its domain (gethostname / the NetBIOS-free
 * DNS host name on Windows). */
VQ_API const char *env_get_host_name(void);
/* The DNS domain this machine belongs to (the part of its canonical name
 * after the first dot on POSIX, the primary DNS domain on Windows); an empty
 * text when it has none. */
VQ_API const char *env_get_domain_name(void);
/* The operating system's name, release and version in one line, for example
 * "Linux 6.1.0-18-amd64 #1 SMP ... x86_64" or "Windows 10.0.19045". */
VQ_API const char *env_get_os_version(void);
/* The process's current directory, without a trailing separator except for a
 * root ("/" or "C:\"). */
VQ_API const char *env_get_cwd(void);

VQ_EXTERN_C_END

#endif /* VQ_GLOB_ENV_H */
