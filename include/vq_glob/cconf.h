/* The cached configuration (cconf_): one configuration handle (conf.h) per
 * file name for the whole process, shared by reference count, read again when
 * the file's last-write time changes, and dropped once its file is gone and
 * nobody holds it.
 *
 * Every function returns 1 on success and 0 on failure with the cause on the
 * thread's error stack. A NULL or empty file name fails with ERR_GEN_PARAMS
 * naming "file_name"; every call but cconf_init, cconf_cleanup and the two
 * settings fails with ERR_GEN_GENERAL while the cache is not set up.
 *
 * Last-write time: the file's modification time as a 64-bit count of 100 ns
 * units (on POSIX with its nanoseconds, so that two writes within one second
 * differ), 0 when the file cannot be queried (a missing file). A fetch reads
 * the file when that time differs from the one stored at the last load; a
 * file that is missing at its first fetch therefore gives the table's
 * defaults, and a file that disappears after a load fails its fetches.
 *
 * How a reload stays whole: the file is read into a new private handle with
 * the shared handle's settings and table, and only a complete read replaces
 * the shared handle's sections and fields, in one step under the handle's
 * critical section. A reader therefore sees either the old or the new
 * configuration, never a part of one nor fields the new file no longer has;
 * a failed read changes nothing (the handle keeps the last good
 * configuration), marks the entry and fails the fetch, and the next fetch
 * tries again. The handle keeps its address, so holders need not fetch again.
 * Consequences for holders:
 *  - a handle is read by several threads only when cconf_set_lock_critical_
 *    section was on when it was made: each conf_ call is then whole against a
 *    reload. A sequence of calls may straddle a reload; one call that reads
 *    everything (conf_write_buffer) gives one consistent picture;
 *  - texts and lists handed out by the handle live until the next reload,
 *    which a fetch on any thread may start: copy what you keep;
 *  - changes made to the shared handle are lost at the next reload unless
 *    cconf_write_handle wrote them to the file first.
 *
 * Locks: each entry has its own critical section; a fetch takes the hash row
 * of the name, then the entry, then lets the row go, so fetches of different
 * files run side by side and a fetch of an unchanged file costs one query of
 * the file and two locks. Removals of entries and walks over all entries are
 * serialised with one process-wide lock.
 *
 * References are counted per entry, not per thread: release only references
 * you took. cconf_init and cconf_cleanup must not run while other threads use
 * the cache; they free every handle, held or not. */
#ifndef VQ_GLOB_CCONF_H
#define VQ_GLOB_CCONF_H

#include "vq_glob/conf.h"
#include "vq_glob/export.h"

VQ_EXTERN_C_BEGIN

/* Creates the cache with a hash table of size rows (> 0, else
 * ERR_GEN_PARAMS); a cache already set up is freed first, once the new table
 * exists (a failure keeps the old cache). */
VQ_API int cconf_init(int32_t size);
/* Frees the cache with every entry and handle; 1 also when there is none. */
VQ_API int cconf_cleanup(void);

/* *handle = the shared handle of file_name with one more reference. The
 * first fetch of a name makes the handle (critical section and table-only
 * reading and writing as the process-wide settings say, writes through
 * "<file>.temp") and binds table (rows rows; rows < 1 binds nothing; a NULL
 * table with rows > 0 is ERR_GEN_PARAMS); later fetches keep that binding.
 * Reads the file when its last-write time changed (see above). On failure
 * *handle = NULL, no reference is taken, and a failed read leaves
 * ERR_CNF_GENERAL over the reader's errors and marks the entry. The handle
 * belongs to the cache: never free it with conf_free_handle. */
VQ_API int cconf_allocate_handle(void **handle, const char *file_name, const conf_table_row *table,
                                 int32_t rows);
/* Drops one reference (never below 0). The entry stays, even at 0 and
 * marked: cconf_scan_and_clean drops it once its file is gone. An unknown
 * name is no error. */
VQ_API int cconf_free_handle(const char *file_name);
/* Drops one reference and marks the entry; at 0 references the entry and
 * its handle are freed at once. A later fetch while references remain clears
 * the mark. An unknown name is no error. */
VQ_API int cconf_remove_handle(const char *file_name);
/* Writes the shared handle to its file through "<file>.temp" (conf_write),
 * under the entry's lock so that no reload runs meanwhile; the next fetch
 * then reads the file back. ERR_CNF_GENERAL for a name not in the cache or a
 * failed write (the writer's errors below). */
VQ_API int cconf_write_handle(const char *file_name);
/* Walks every entry: one whose file is gone (no regular file by that name,
 * links followed) is marked, and, when unreferenced, taken out and freed,
 * its name added to *list. list may be NULL; otherwise *list becomes a new
 * string list (mlist.h; the old one is not freed) that the caller releases
 * with ml_free, also after a failure, when it holds the names dropped until
 * then. 1, or 0 with ERR_GEN_MEMORY. */
VQ_API int cconf_scan_and_clean(char ***list);

/* Whether handles made from now on carry a critical section (on: non-zero),
 * as conf_allocate_handle_use_cs; off by default. Handles already made keep
 * theirs. Traced on the CONFIG channel as
 * "cconf_set_lock_critical_section(TRUE)-->" (or FALSE). */
VQ_API void cconf_set_lock_critical_section(int32_t on);
/* Whether handles made from now on read and write only the sections and
 * fields of their table (conf_use_only_table_on_read / _on_write); off by
 * default. Traced as "cconf_use_only_table(TRUE)-->" (or FALSE). */
VQ_API void cconf_use_only_table(int32_t on);

/* Traces every entry on the CONFIG channel, one line each, then the total:
 *   "cconf_dump() - <%s> references=%d remove=%s last_write=%08X:%08X loaded=%lld handle=<%p>\n"
 *   "cconf_dump() - %d entries\n"
 * with the file name, the reference count, the remove mark (TRUE or FALSE),
 * the stored last-write time's high and low 32-bit words, the time of the
 * last load in seconds since 1970 (0 before the first read) and the handle.
 * Each line is taken under its entry's lock. 1, or 0 when the cache is not
 * set up. */
VQ_API int cconf_dump(void);

VQ_EXTERN_C_END

#endif /* VQ_GLOB_CCONF_H */
