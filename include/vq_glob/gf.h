/* File handles: packet I/O on files through small integer handles, variable-
 * length line records, the CRC of a file, lock files and the file status record
 * carried in general messages; and, by name, a file's status, permissions,
 * times, renames, links and copies, and single directories made or removed.
 *
 * A handle is an index into the calling thread's table, valid only on that
 * thread; -1 means none. The table grows by five entries whenever every entry
 * is in use, and a freed number is reused lowest first. Every function that
 * takes a handle first checks it: a number outside the table or a free entry
 * gives error ERR_FIL_NOTACTIVE, the thread's last status becomes that code
 * and the function returns 0.
 *
 * I/O types. Type 0 (GF_IO_CRT, the default) works on a C runtime descriptor;
 * the open flags become the runtime's _O_* (POSIX O_*) flags. Type 2
 * (GF_IO_NATIVE) works on the system's own handle: on Windows CreateFileW with
 * the access, share, disposition and flag fields the open flags map to; on
 * POSIX a descriptor whose open() flags come from those same fields:
 *   access       read -> O_RDONLY, write -> O_WRONLY, both -> O_RDWR;
 *   disposition  (used by gf_create_file only) CREATE_NEW -> O_CREAT|O_EXCL,
 *                CREATE_ALWAYS -> O_CREAT|O_TRUNC, OPEN_ALWAYS -> O_CREAT,
 *                TRUNCATE_EXISTING -> O_TRUNC;
 *   share        without FILE_SHARE_WRITE (the default share mode is 0) the
 *                open denies writers, as GF_DENY_WRITERS does for type 0;
 *   flags        write-through -> O_DSYNC.
 * Any other type makes every open, read, write, seek and close return 0
 * without an error. Flags are mapped when they are set, so set the I/O type
 * first.
 *
 * Denying writers on POSIX is an advisory lock honoured by this library's own
 * opens: a deny-writer open fails while a writer has the file open through
 * the library and the other way round (error EBUSY); other programs are not
 * held back.
 *
 * Failures of the operating system leave two entries on the error stack: the
 * system's text (ERR_SYS_ERRMSG), then the module's own code with the file
 * name (ERR_FIL_OPEN, ERR_FIL_CREATE, ERR_FIL_READ, ERR_FIL_WRITE, ERR_FIL_SEEK,
 * ERR_FIL_TRUNC, ERR_FIL_CLOSE, ERR_FIL_FLUSH). The code and the system's
 * error number are kept on the handle (or on the thread for failures without
 * a handle) with copies of the stack's text, for the gf_get_last_ functions.
 *
 * Names are UTF-8; on Windows they reach the system in the long-path form
 * ("\\?\" or "\\?\UNC\" before the full path). Names longer than 7,800
 * bytes (GF_MAX_PATH_LENGTH of gf_path.h) fail with ERR_FIL_VLONGNAME
 * before any system call. */
#ifndef VQ_GLOB_GF_H
#define VQ_GLOB_GF_H

#include <stdio.h>

#include "vq_glob/export.h"

VQ_EXTERN_C_BEGIN

/* Open flags. */
#define GF_READ 0x0001u               /* read access */
#define GF_WRITE 0x0002u              /* write access */
#define GF_READ_WRITE 0x0004u         /* read and write access */
#define GF_TRUNCATE 0x0008u           /* cut the file to 0 bytes at open */
#define GF_EXCLUSIVE 0x0010u          /* with GF_CREATE: fail when the file exists */
#define GF_CREATE 0x0020u             /* create a missing file at open */
#define GF_APPEND 0x0040u             /* every write goes to the end (type 0) */
#define GF_WRITE_THROUGH 0x0080u      /* commit after every write / write-through handle */
#define GF_OVERWRITE_READONLY 0x0200u /* gf_create_file first makes an existing file writable (type 0) */
#define GF_KEEP_CONTENTS 0x0800u      /* gf_create_file does not truncate (type 0) */
#define GF_DENY_WRITERS 0x1000u       /* gf_open_file refuses other writers while open (type 0) */

/* I/O types. */
#define GF_IO_CRT 0
#define GF_IO_NATIVE 2

/* The file status record carried in messages; the library gives its fields
 * no meaning of its own. */
typedef struct gfs {
    char flag;
    int32_t value1;
    int32_t value2;
} gfs;

/* ---- The handle table -------------------------------------------------------------- */

/* Sets up the calling thread's empty table (nothing when it already is). 1,
 * or 0 when the thread's state cannot be had. */
VQ_API int gf_init(void);
/* Frees every handle of the thread (closing their open files) and leaves an
 * empty, set-up table. 1. */
VQ_API int gf_clean(void);
/* Takes the lowest free entry with its defaults into use (growing the table by
 * five when full). 1, or 0 with *handle = -1 (ERR_GEN_MEMORY /
 * ERR_FIL_MEMORY_1701 when out of memory). */
VQ_API int gf_allocate_handle(int32_t *handle);
/* Closes the handle's file if it is open, frees its names, texts and tables and
 * frees the entry. Freeing a free entry (within the table) only traces. */
VQ_API int gf_free_handle(int32_t h);

/* Copies name as the file to open / gives the stored copy (NULL when none). */
VQ_API int gf_set_file_name(int32_t h, const char *name);
VQ_API int gf_get_file_name(int32_t h, char **name);
/* The name of the file actually opened; set to the file name by every open or
 * create. Handle-owned. */
VQ_API int gf_set_res_file_name(int32_t h, const char *name);
VQ_API int gf_get_res_file_name(int32_t h, char **name);

/* Replaces / adds to the open flags (GF_*), mapping them for the handle's I/O
 * type at once: type 0 rebuilds (set) or extends (add) the _O_* flags, always
 * with binary mode; type 2 only ever ors bits into the native fields, except
 * that GF_READ_WRITE assigns both access bits and GF_EXCLUSIVE assigns CREATE_NEW. */
VQ_API int gf_set_file_open_flags(int32_t h, uint32_t flags);
VQ_API int gf_add_file_open_flags(int32_t h, uint32_t flags);
VQ_API int gf_get_file_open_flags(int32_t h, uint32_t *flags);
/* Replaces the C runtime open flags (_O_* / O_*) of a type 0 handle; a
 * success without effect for other types. */
VQ_API int gf_set_real_open_flags(int32_t h, int32_t flags);
/* The I/O type, stored as given (GF_IO_CRT or GF_IO_NATIVE). */
VQ_API int gf_set_file_io_type(int32_t h, int32_t type);
VQ_API int gf_get_file_io_type(int32_t h, int32_t *type);
/* Bytes moved by one packet, and the unit of the file position; stored as given. */
VQ_API int gf_set_file_packet_size(int32_t h, int32_t bytes);
VQ_API int gf_get_file_packet_size(int32_t h, int32_t *bytes);
/* Permission mode of files the handle creates; 0 (the default) means 0666
 * less the umask (read and write on Windows). */
VQ_API int gf_set_file_protection(int32_t h, int32_t mode);
VQ_API int gf_get_file_protection(int32_t h, int32_t *mode);
/* The C runtime descriptor of a type 0 handle, read or written directly. A
 * descriptor set here is the caller's: it is closed only by gf_close_file of
 * an opened handle. */
VQ_API int gf_set_file_handle(int32_t h, int32_t fd);
VQ_API int gf_get_file_handle(int32_t h, int32_t *fd);
/* Whether child processes inherit the file opened next (default: no). */
VQ_API int gf_set_handle_inherit_mode(int32_t h, int32_t inherit);
/* 1 when the handle's file is open, else 0. */
VQ_API int gf_is_file_opened(int32_t h);

/* ---- Contents ------------------------------------------------------------------------ */

/* Opens the named file as the flags say (no creation unless GF_CREATE, type 0).
 * Opening an open handle fails with ERR_FIL_BADPAR. */
VQ_API int gf_open_file(int32_t h);
/* Creates the named file: type 0 with the _O_* flags plus create, read-write
 * access when the flags give no write access, and truncation unless
 * GF_KEEP_CONTENTS; type 2 with the handle's disposition (CREATE_ALWAYS, or
 * OPEN_ALWAYS with GF_KEEP_CONTENTS, when none is set). */
VQ_API int gf_create_file(int32_t h);
/* Creates and opens a new file of a unique name "<directory>/<prefix>XXXXXXXX"
 * (prefix "vq" when NULL) that did not exist before, for data received from
 * elsewhere such as message attachments; the name becomes the handle's file
 * name. The handle's I/O type, protection and inherit mode apply. A prefix
 * holding "/" or "\" fails with ERR_FIL_BADPAR before anything is created. */
VQ_API int gf_create_temp(int32_t h, const char *directory, const char *prefix);
/* Closes the file if open (a handle that is not open succeeds at once). The
 * handle is marked closed even when the system reports an error. */
VQ_API int gf_close_file(int32_t h);
/* Commits written data to the device (_commit / fsync / FlushFileBuffers). */
VQ_API int gf_flush_file(int32_t h);
/* Reads up to the packet size; *bytes_read is less only at the end of the
 * file (0 there). Only the bytes read pass through the read table. */
VQ_API int gf_read_packet(int32_t h, void *buffer, int32_t *bytes_read);
/* Writes exactly the packet size from buffer, which the write table
 * translates in place first (the caller's data changes). */
VQ_API int gf_write_packet(int32_t h, void *buffer);
/* Reads up to size bytes, stopping early only at the end of the file. */
VQ_API int gf_read_file(int32_t h, void *buffer, int32_t size, int32_t *bytes_read);
/* Writes all size bytes (after translating buffer in place); short writes of
 * the system are continued, so success means every byte was written. */
VQ_API int gf_write_file(int32_t h, void *buffer, int32_t size);
/* Seeks to packet size x packets bytes from the start (64-bit) and stores the
 * position / gives the position last stored, in packets. */
VQ_API int gf_set_file_position(int32_t h, int32_t packets);
VQ_API int gf_get_file_position(int32_t h, int32_t *packets);
/* Sets the end of the open file at decimal_size bytes (a decimal text, 64-bit,
 * so sizes beyond 4 GiB work), leaving the file position there. A text that is
 * not a decimal number of 0 or more fails with ERR_FIL_BADPAR. */
VQ_API int gf_truncate_file(int32_t h, const char *decimal_size);

/* ---- Translation tables ---------------------------------------------------------------- */

/* Gives the handle a byte translation built from table256: direction 0 reads
 * byte b as table256[b] and writes table256[b] for b; any other direction the
 * reverse. Bytes the table never yields stay unchanged on the way back. A
 * NULL name removes the handle's translation. */
VQ_API int gf_set_translation_table(int32_t h, const char *name, const unsigned char *table256,
                                    int32_t direction);
/* Makes handle to use the tables of handle from (not its name); the tables
 * live as long as any handle uses them. */
VQ_API int gf_copy_translation_tables(int32_t from, int32_t to);
/* Apply the read table / the write table to count bytes of buffer in place
 * (nothing when the handle has none). */
VQ_API int gf_post_read_operations(int32_t h, void *buffer, int32_t count);
VQ_API int gf_pre_write_operations(int32_t h, void *buffer, int32_t count);

/* ---- Last errors ------------------------------------------------------------------------- */

/* The handle's last error code / system error number (-1 when none); the
 * thread's for h = -1 or a handle that is not valid (after the check has
 * recorded ERR_FIL_NOTACTIVE). */
VQ_API int32_t gf_get_last_error(int32_t h);
VQ_API int32_t gf_get_last_system_error(int32_t h);
/* The error stack's text at the handle's (or the thread's) last failure / at
 * its last failure that carried a system error; "" when none. Handle-owned. */
VQ_API const char *gf_get_last_error_msg(int32_t h);
VQ_API const char *gf_get_last_system_msg(int32_t h);
/* The handle's last error code, or -1 for a handle that is not valid. */
VQ_API int32_t gf_get_last_status(int32_t h);
/* The handle's last system error number / its third status word (always -1). */
VQ_API int gf_get_last_os_status(int32_t h, int32_t *status);
VQ_API int gf_get_last_os_status_1(int32_t h, int32_t *status);

/* ---- What an open file or its name is ----------------------------------------------------- */

/* 1 when the handle's name is a symbolic link (the name itself, not its target). */
VQ_API int gf_is_handle_link(int32_t h);
/* 1 when the handle's open file (or, when not open, what its name leads to) is
 * a fifo or pipe / a door (never on Linux and Windows) / a directory / a
 * regular file. 0 otherwise, also on failure (with ERR_FIL_GETINFO on the stack). */
VQ_API int gf_is_handle_fifo(int32_t h);
VQ_API int gf_is_handle_door(int32_t h);
VQ_API int gf_is_handle_dir(int32_t h);
VQ_API int gf_is_handle_regular(int32_t h);

/* ---- Records and whole files --------------------------------------------------------------- */

/* Writes one record: *length as 16-bit big-endian, then *length bytes of line.
 * A length of 0 is refused with ERR_FIL_BADPAR and nothing is written, since
 * gf_read_vl_line refuses such a record; NULL arguments fail with
 * ERR_FIL_MEMORY_1727. */
VQ_API int gf_write_vl_line(FILE *stream, const char *line, uint16_t *length);
/* Reads one record into *line (malloc'ed, free() it; n + 3 bytes, the body
 * followed by NUL bytes) and *length. At a clean end of file, or one inside
 * the length field: 1 with *line NULL. A body cut short, or of 0 bytes, fails
 * with *line NULL. */
VQ_API int gf_read_vl_line(FILE *stream, char **line, uint16_t *length);
/* Opens the handle's file (name and flags set, not open), stores the CRC-32 of
 * its contents (as updcrc computes it, through the read table) in *crc, and
 * closes it. An empty file leaves *crc untouched. */
VQ_API int gf_calc_file_crc(int32_t h, uint32_t *crc);

/* ---- Search streams ----------------------------------------------------------------------- */
/* A handle whose file name is a pattern with wildcards yields, one call
 * at a time, the full names that match it, in its result file name
 * (gf_get_res_file_name). The handle's last status is the search's state:
 * ERR_FIL_SEARCHI after gf_init_search, ERR_FIL_SSEARCH after each name,
 * ERR_FIL_NMFILES at the end. The end is not an error: gf_next_file returns 0
 * with last status ERR_FIL_NMFILES and nothing on the error stack.
 *
 *   gf_set_file_name(h, "/data/in/x*.csv");
 *   if (gf_init_search(h))
 *       while (gf_next_file(h)) { gf_get_res_file_name(h, &name); ... }
 *   if (gf_get_last_status(h) != ERR_FIL_NMFILES) ... a real failure ...
 *   gf_close_search(h);
 */

#define GF_SEARCH_DIRECTORY 0 /* the names of a directory that match the pattern */
#define GF_SEARCH_LIST_FILE 1 /* the lines of a list file that match it */

/* The kind of search gf_init_search starts (stored unchecked; other values
 * make gf_init_search and gf_next_file fail with ERR_FIL_BADPAR). */
VQ_API int gf_set_search_type(int32_t h, int32_t type);
/* List-file searches: the text put, with a separator, before every listed
 * name; one trailing separator of prefix is dropped. NULL clears it. */
VQ_API int gf_set_search_prefix(int32_t h, const char *prefix);
/* List-file searches: the file holding one name per line (LF or CR LF, the
 * last line with or without one). Lines are selected by the handle's file name
 * as a pattern, letter case ignored; blank lines are passed over. A line
 * longer than GF_SEARCH_MAX_LINE bytes or holding a NUL byte fails its
 * gf_next_file with ERR_FIL_SEAFILOP_171F (the reason beneath it); the next
 * call goes on with the line after it. Only a regular file is read: a
 * directory, fifo or device fails gf_init_search with ERR_FIL_SEAFILOP_171E. */
VQ_API int gf_set_search_file(int32_t h, const char *list_file_path);
#define GF_SEARCH_MAX_LINE 65536
/* Starts (or restarts) the search. Directory searches look in the
 * pattern's directory, or in the current directory (env_get_cwd) when
 * it has none, and fail with ERR_FIL_NOFILEFND (last status ERR_FIL_NMFILES)
 * when nothing matches; "." and ".." never match. On POSIX names are matched
 * with match_wildcard, case-sensitively; on Windows by FindFirstFileW. A handle
 * without a file name fails with ERR_FIL_NFNAM; a list file that cannot be
 * opened with ERR_FIL_SEAFILOP_171E, a type other than the two with
 * ERR_FIL_BADPAR. A running search is ended first. */
VQ_API int gf_init_search(int32_t h);
/* 1 with the next full name as the result file name; 0 at the end (see
 * above) or on a failure (ERR_FIL_SEARCH_1712 after the system's message;
 * ERR_FIL_SEARCH_1712 alone when no search is running). Names are returned in
 * the order the system lists them; a name removed since its directory was
 * listed is not returned. */
VQ_API int gf_next_file(int32_t h);
/* As gf_next_file, but a name holding any byte of 0x80 or above (a name the
 * ANSI code page cannot hold on Windows) fails with ERR_FIL_NOUNICOD; the
 * next call goes on with the following name. */
VQ_API int gf_next_file_check_unicode(int32_t h);
/* Ends the search: releases the directory and the list file (as
 * gf_free_handle and gf_clean do). The handle keeps its names and can search
 * again; gf_next_file fails until it does. */
VQ_API int gf_close_search(int32_t h);
/* The list-file forms behind gf_init_search and gf_next_file for type 1. */
VQ_API int gf_init_file_search(int32_t h);
VQ_API int gf_file_search_next_file(int32_t h);

/* ---- One file by name: status, permissions, times, renames, links, copies, directories ------ */
/* These act on names, not handles. A failure leaves the system's text
 * (ERR_SYS_ERRMSG) and the code given below with the name(s) on the stack and
 * is recorded as the thread's last status and system error
 * (gf_get_last_error(-1), gf_get_last_system_error(-1)). A NULL argument fails
 * with ERR_FIL_MEMORY_1727, a name beyond GF_MAX_PATH_LENGTH with ERR_FIL_VLONGNAME,
 * a value out of range with ERR_FIL_BADPAR, all before any system call. */

/* What a name is (the values of DIR_TYPE_* in dir.h). */
#define GF_TYPE_FILE 1  /* a regular file */
#define GF_TYPE_DIR 2   /* a directory */
#define GF_TYPE_LINK 3  /* a symbolic link not followed (any reparse point on Windows) */
#define GF_TYPE_OTHER 4 /* a device, fifo or socket */

typedef struct gf_file_status {
    int32_t type;                 /* GF_TYPE_* */
    uint64_t size;                /* in bytes */
    int64_t modified_seconds;     /* last write, seconds since 1970 UTC */
    int32_t modified_nanoseconds; /* 0 to 999,999,999 (100 ns steps on Windows) */
    uint32_t mode;                /* POSIX permission bits; Windows: 0444 or 0666 by the read-only
                                     attribute, plus 0111 for a directory */
    uint64_t device;              /* device and inode tell one object (Windows: volume serial, file index) */
    uint64_t inode;
    uint32_t links;               /* hard links to the object */
    int64_t changed_seconds;      /* last status change (POSIX st_ctim, Windows ChangeTime): moves
                                     with every write, rename, link or change of mode or times, and
                                     cannot be set back, so a rewrite hidden by a restored
                                     modification time still shows here; seconds since 1970 UTC */
    int32_t changed_nanoseconds;  /* 0 to 999,999,999 (100 ns steps on Windows) */
} gf_file_status;

/* Fills *status for name: with follow_links != 0 what a symbolic link leads
 * to (a dangling link fails), else the link itself. ERR_FIL_GETINFO. */
VQ_API int gf_get_file_status(const char *name, int32_t follow_links, gf_file_status *status);
/* Sets the permission bits (mode at most 07777) of what name leads to; on
 * Windows the read-only attribute, set when the owner write bit 0200 is clear. ERR_FIL_SETPROT. */
VQ_API int gf_set_file_mode(const char *name, uint32_t mode);
/* Sets the last-write and last-access times of what name leads to: seconds
 * since 1970 UTC and nanoseconds (0 to 999,999,999). ERR_FIL_SETTIME. */
VQ_API int gf_set_file_times(const char *name, int64_t seconds, int32_t nanoseconds);
/* Renames from to to on one file system. replace 1 replaces an existing file to
 * in one step; replace 0 fails when to exists (the system's "exists" text), leaving
 * both files as they were. ERR_FIL_RENAME. */
VQ_API int gf_rename_file(const char *from, const char *to, int32_t replace);
/* Makes new_name a hard link to the file existing (a symbolic link is linked
 * as itself on POSIX); an existing new_name fails. ERR_FIL_LINK naming new_name. */
VQ_API int gf_link_file(const char *existing, const char *new_name);
/* 1 when sys_error (gf_get_last_system_error(-1) after gf_link_file or
 * gf_rename_file failed) says the names are on two file systems, so that the caller copies; else 0. */
VQ_API int gf_is_cross_device_error(int32_t sys_error);
/* Copies the regular file from (a symbolic link followed) to to: its contents,
 * permission bits and last-write time (nanoseconds where the system keeps
 * them; Windows: the read-only attribute). The copy is written under a
 * temporary name in to's directory and renamed into place, so that to is never
 * seen in part and a failure leaves nothing behind; replace 0 fails when to
 * exists (the system's "exists" text), replace 1 replaces a file. A directory,
 * fifo or device as from is refused without being read. ERR_FIL_COPY naming
 * both; a name ending in a separator ERR_FIL_BADPAR. */
VQ_API int gf_copy_file(const char *from, const char *to, int32_t replace);
/* Creates the one directory path, whose parent must exist, with the permission
 * bits mode (at most 07777) less the umask. An existing name, a directory too,
 * fails with the system's "exists" text, so that success means the caller made
 * the name. ERR_FIL_MAKDIR. */
VQ_API int gf_make_dir(const char *path, uint32_t mode);
/* Removes the empty directory path. One with entries, a file and a symbolic
 * link (any reparse point on Windows) fail with the system's reason and stay as
 * they were; a link is never followed. ERR_FIL_DELDIR_1721. */
VQ_API int gf_remove_dir(const char *path);
/* Makes link_name a symbolic link holding target unchanged (a relative target
 * counts from the link's directory); on Windows a directory link when target
 * leads to a directory, or where the user may not make links a junction holding
 * target's absolute name. An existing link_name fails, and so does a system that
 * reports a link made without making it (Wine). ERR_FIL_LINK naming link_name. */
VQ_API int gf_make_symlink(const char *target, const char *link_name);
/* Copies the whole text of the symbolic link name into buffer (size bytes,
 * terminator included). A text that does not fit fails with ERR_FIL_BUF and
 * leaves "" (never a cut text); other failures, a name that is no link among them, ERR_FIL_BADLINK. */
VQ_API int gf_read_symlink(const char *name, char *buffer, int32_t size);
/* Creates every missing directory of path with the permission bits mode (at
 * most 07777) less the umask; existing ones are kept. Reports as gf_make_path, on the
 * stack only (ERR_GEN_PARAMS for NULL, ERR_FIL_MKDFEX for a non-directory in the way, ERR_FIL_MAKDIR). */
VQ_API int gf_make_dirs(const char *path, uint32_t mode);

/* ---- Lock files ---------------------------------------------------------------------------- */

/* Takes the lock lock_name (for example "<file>.lock") by creating that file,
 * which must not exist; while it exists, retries until timeout_ms have passed
 * (0: one attempt, negative: no limit). 1 when taken; 0 with ERR_FIL_LOCK
 * on timeout or when the file cannot be created. */
VQ_API int gf_lock_wait_file(const char *lock_name, int32_t timeout_ms);
/* Releases a lock taken with gf_lock_wait_file by removing the file. */
VQ_API int gf_unlock_file(const char *lock_name);

/* ---- The status record in general messages (gm.h) ------------------------------------------- */

/* Appends record as a struct under code (head value 2): member 0 the char,
 * members 1 and 2 the two values as longs. 0 for a NULL record. */
VQ_API int add_gfs_to_message(int32_t code, const gfs *record);
/* Reads such a struct of the message last taken apart into record; 0, with
 * record untouched, when a member is missing. */
VQ_API int get_gfs_from_message(int32_t code, gfs *record);

VQ_EXTERN_C_END

#endif /* VQ_GLOB_GF_H */
