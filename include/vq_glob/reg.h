/* Registry access: machine-wide switches and product settings kept in the
 * local machine's hive (HKEY_LOCAL_MACHINE) or the current user's
 * (HKEY_CURRENT_USER).
 *
 * Two families. The reg_ family places a key of level below 10 under the
 * product root "SOFTWARE\Teldrani\" (REG_PRODUCT_ROOT) and takes any other
 * key as given; its hive is the thread's user mode. The new_reg_ family
 * takes full key paths, or the thread's default key for a NULL key, and a
 * user argument (0: the machine hive, non-zero: the user hive). Key paths
 * separate their keys with "\"; a NULL or empty value name stands for the
 * key's default (unnamed) value. Key paths and value names compare without
 * regard to ASCII case, and keep the spelling they were created with.
 *
 * Values: any type number travels to the Windows registry; the file
 * registry stores REG_TYPE_STRING (1), REG_TYPE_BINARY (3) and
 * REG_TYPE_DWORD (4) and refuses others with ERR_REG_UNKTYP (so
 * ERR_REG_NOBINSUP is never raised). A value reads back with exactly the
 * bytes and length it was written with, whatever its type: a string's
 * length is the one passed, its terminating NUL included when it was
 * passed. A 32-bit number is 4 bytes, least significant first, as Windows
 * stores a REG_DWORD. On Windows, strings (types 1, 2 and 7) are UTF-8 here
 * and UTF-16 in the registry; their bytes must be valid UTF-8.
 *
 * Failures return 0 and leave the system's text first (ERR_SYS_ERRMSG; for
 * the file registry a line saying what was wrong), then the module's code:
 * ERR_REG_OPENKEY (key missing or not openable), ERR_REG_GETVAL (value
 * missing, or larger than the caller's buffer), ERR_REG_SETKEY (key not
 * created or value not set), ERR_REG_FLSKEY, ERR_REG_DELVAL, and for the
 * file registry ERR_REG_OPEN, ERR_REG_LOCK, ERR_REG_READ, ERR_REG_WRITE,
 * ERR_REG_UNKTYP naming the file or key. Bad arguments give ERR_GEN_PARAMS.
 *
 * Where the values live. Windows uses its registry. A system without one
 * (POSIX) keeps each hive in a file, and so does any thread that names a
 * file with new_reg_set_filename, on every system:
 *  - with new_reg_set_filename(name): the machine hive is the file name, the
 *    user hive "<name>.user";
 *  - otherwise, when the environment variable VQ_GLOB_REGISTRY names a file
 *    (read with secure_getenv, so a set-id program ignores it): that file
 *    and "<file>.user";
 *  - otherwise /var/lib/vq_glob/registry (its directory is created on the
 *    first write) and ".vq_glob_registry" in the home directory of the
 *    effective user (from the account database, HOME when it has none).
 * Beside each hive file live "<file>.lock", which a writer holds while it
 * changes the file, and "<file>.temp", the new file before it takes the old
 * one's place. A new hive file is created with mode 0644 (machine) or 0600
 * (user), less the umask.
 *
 * Readers take no lock: a writer builds the whole new file as "<file>.temp",
 * syncs it and renames it over the old one, so a reader, or a writer killed
 * at any moment, leaves the old file or the new one, never a mix. Every
 * change is a read-modify-write under the lock file (gf_lock_wait_file), so
 * writers of all threads and processes take turns and no change is lost. A
 * writer waits for the lock at most VQ_GLOB_REGISTRY_LOCK_WAIT milliseconds
 * (environment; default 60000, a negative number waits without a limit),
 * then fails with ERR_REG_LOCK. A lock file left by a writer that was killed
 * stays until an operator removes it.
 *
 * The file format: text an operator can read and edit, one line each,
 * lines ending in "\n" (a "\r" before it and blanks at a line's end are
 * ignored):
 *  - the first line is exactly "vq_glob registry hive 1";
 *  - "boot <id>": the system boot the file was written in (Linux: the boot
 *    id); optional, at most one, before the first key;
 *  - blank lines, and comment lines beginning with ";" or "#";
 *  - "[<key path>]" opens a key, "[<key path>] volatile" a volatile one;
 *    the path has no control characters, no empty key names and no name
 *    longer than 255 bytes; keys missing above a key exist implicitly;
 *  - a value line belongs to the key above it: the value name, "@" for the
 *    default value or a quoted name, then "=" and the data, no blanks
 *    between:
 *      "<text>"          string (1) of the text and a terminating NUL
 *      str:"<text>"      string (1) of the text alone, no NUL added
 *      dword:<8 hex>     32-bit number (4), 4 bytes, written as a number
 *      hex:<h>,<h>,...   binary (3), bytes as two hex digits each, or none
 *      hex(<type>):...   the bytes of a value of type 1, 3 or 4 that fits
 *                        none of the forms above (a 32-bit value not 4
 *                        bytes long)
 *    In quoted text \\ is a backslash, \" a quote and \xHH (two hex
 *    digits) any byte; other bytes stand for themselves except control
 *    characters, which are written \xHH.
 * For example:
 *
 *   vq_glob registry hive 1
 *   boot 0b3c5a0e-7d7f-4b27-9e0c-2f5e1b1a8c44
 *
 *   [SOFTWARE\Velquist]
 *   "DuplicateSocket"=dword:00000001
 *   "Server"="node1.example.com"
 *   "Key"=hex:00,1f,a0
 *
 *   [SOFTWARE\Teldrani\Session] volatile
 *   @=str:"no NUL\x0aat the end"
 *
 * The parse is strict: a file that breaks any rule above, names a key or a
 * value twice, holds another type number, or exceeds a limit is refused
 * whole with ERR_REG_READ (ERR_REG_UNKTYP for an unknown type) and a line
 * "line <n>: <what is wrong>", never read in part; a writer leaves such a
 * file as it is. Volatile keys, and every key below them, last until the
 * system restarts: a reader of a file written in another boot (a different
 * boot line, or none) no longer sees them; on Windows, where no boot id is
 * read, a file hive keeps them. A key created below a volatile key must be
 * volatile too.
 *
 * Limits of the file registry: a hive file of at most 16 MiB
 * (REG_MAX_FILE_BYTES), a value of at most 1 MiB (REG_MAX_VALUE_BYTES), a
 * value name of at most 16383 bytes, a key path of at most 32767 bytes.
 * Longer files are refused when read, larger values and names when written. */
#ifndef VQ_GLOB_REG_H
#define VQ_GLOB_REG_H

#include <stdint.h>

#include "vq_glob/export.h"

VQ_EXTERN_C_BEGIN

#define REG_PRODUCT_ROOT "SOFTWARE\\Teldrani\\"
#define REG_PRODUCT_KEY "SOFTWARE\\Velquist"
/* Levels from this one up take reg_ keys as given. */
#define REG_LEVEL_ABSOLUTE 10

#define REG_TYPE_STRING 1u
#define REG_TYPE_BINARY 3u
#define REG_TYPE_DWORD 4u

#define REG_MAX_FILE_BYTES (16u * 1024u * 1024u)
#define REG_MAX_VALUE_BYTES (1024u * 1024u)

/* ---- The reg_ family --------------------------------------------------------------------- */

/* Chooses the hive of the calling thread's reg_ calls: 0 (the default) or
 * less the machine hive, above 0 the user hive. 1. */
VQ_API int reg_set_user_mode(int32_t mode);
/* Reads value_name of key (below the product root for a level below 10)
 * into buffer, which holds *size bytes; *size becomes the value's length and
 * *type, when type is not NULL, its type. A NULL buffer only asks for the
 * length. A value longer than *size fails with ERR_REG_GETVAL, *size set to
 * its length. 1 on success. */
VQ_API int reg_get_key_value(const char *key, const char *value_name, void *buffer, uint32_t *size, uint32_t *type,
                             int32_t level);
/* Creates key (and the keys above it) when missing, volatile when
 * volatile_key is non-zero, and sets value_name to length bytes of data of
 * the given type; the key is flushed to the disk afterwards. 1 on success. */
VQ_API int reg_set_key_value(const char *key, const char *value_name, const void *data, uint32_t length,
                             uint32_t type, int32_t volatile_key, int32_t level);
/* Deletes value_name of key; a missing key or value fails
 * (ERR_REG_OPENKEY, ERR_REG_DELVAL). 1 on success. */
VQ_API int reg_delete_value(const char *key, const char *value_name, int32_t level);

/* ---- The new_reg_ family ----------------------------------------------------------------- */

/* Copies default_key_path as the calling thread's default key, replacing
 * the previous one; NULL removes it. 1, or 0 with ERR_GEN_MEMORY. */
VQ_API int new_reg_set_key(const char *default_key_path);
/* Copies name as the calling thread's registry file: from now on the
 * thread's machine hive is that file and its user hive "<name>.user", on
 * every system. NULL or "" goes back to the system's registry (or the
 * default files). 1, or 0 with ERR_GEN_MEMORY. */
VQ_API int new_reg_set_filename(const char *name);
/* Reads value_name of key (NULL: the thread's default key; without either
 * it fails with ERR_GEN_PARAMS) from the user hive when user is non-zero,
 * else the machine hive. *data receives a new buffer of *length bytes,
 * followed by one NUL byte that the length does not count, for the caller
 * to release with new_reg_free; an empty value gives a NULL *data and a
 * *length of 0, with success. Both are NULL and 0 on failure. 1 on success. */
VQ_API int new_reg_get_key_value(const char *key, const char *value_name, void **data, uint32_t *length,
                                 int32_t user);
/* Sets value_name of key (NULL: the thread's default key) to length bytes of
 * data of the given type (1 string, 3 binary, 4 32-bit number), creating the
 * key and the keys above it when missing; the key is flushed afterwards.
 * data may be NULL only for length 0. 1 on success. */
VQ_API int new_reg_set_key_value(const char *key, const char *value_name, const void *data, uint32_t length,
                                 uint32_t type, int32_t user);
/* Deletes value_name of key (NULL: the thread's default key). 1 on success. */
VQ_API int new_reg_delete_value(const char *key, const char *value_name, int32_t user);
/* Frees a buffer returned by new_reg_get_key_value and sets *data to NULL;
 * a NULL data or *data does nothing. */
VQ_API void new_reg_free(void **data);
/* 1 when the value "DuplicateSocket" of the product key in the machine hive
 * is exactly 4 bytes long and its first byte is 1; 0 otherwise, a missing
 * key or value included. Leaves the error stack as it found it. */
VQ_API int new_reg_should_work_advance_socket(void);

VQ_EXTERN_C_END

#endif /* VQ_GLOB_REG_H */
