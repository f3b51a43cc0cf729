/* Memory allocation with optional per-thread tracking.
 *
 * Tracking is off by default: every sl_debug_ call is then the plain C library
 * call it wraps. After sl_malloc_init on a thread, every block, list handle,
 * stream and descriptor that thread makes through these functions is recorded
 * with the caller's source file and line, so that a report can list what is
 * still unfreed. Tracking is per thread: an object made on one thread and freed
 * on another is not found on the second thread's records and is reported there.
 *
 * A tracked block carries ten guard bytes after the caller's bytes; a damaged
 * guard is reported when the block is freed or reallocated. Findings go to the
 * debug malloc file named at sl_malloc_init, dumps to standard output. The
 * tracker never fails a call beyond the plain call's own failure: after a
 * finding the free or close goes on, so an object the tracker does not know
 * (made while tracking was off, on another thread, or not by this library at
 * all) is reported and then handed to the plain call; that it really belongs to
 * that call is the caller's responsibility.
 *
 * Dump levels: a dump is made only when the thread's dump level is non-zero
 * and the dump's own level is at least the dump level. Failure dumps have level
 * 100, the chain-length dump made at every 10,000th record level 50, the
 * chain-length history dump level -2; so a dump level of 51 to 100 shows
 * failures only, 1 to 50 (or -1) adds the chain-length dumps, and -2 or below
 * shows them all.
 *
 * Objects made while tracking is on go back through the matching sl_debug_
 * call. A tracked block is the start of the C library's own block, so once
 * tracking is off the plain free (and sl_debug_free, which is then plain)
 * releases it.
 */
#ifndef VQ_GLOB_MEMORY_H
#define VQ_GLOB_MEMORY_H

#include <stdio.h>
#include <wchar.h>

#include "vq_glob/export.h"

VQ_EXTERN_C_BEGIN

/* ---- Tracker control ---------------------------------------------------- */

/* Turns tracking on for the calling thread, forgets earlier records (not their
 * objects) and opens file_name for appending as the debug malloc file. When it
 * cannot be opened, prints "error opening debug malloc file" with perror;
 * tracking stays on but file findings are dropped. */
VQ_API void sl_malloc_init(const char *file_name);
/* Sets the thread's dump level (0: no dumps); ignored while tracking is off. */
VQ_API void sl_malloc_set_dump(int32_t level);
/* Writes the report of unfreed objects, grouped by caller place and kind with
 * counts and bytes, under reason to the debug malloc file (nothing when off). */
VQ_API void sl_malloc_dump_info(const char *reason);
/* When tracking is on: writes a summary header, the report and the end line,
 * closes the file, forgets the records, clears the dump level, turns it off.
 * A thread that ends while tracking closes its file without a report. */
VQ_API void sl_malloc_end(void);
/* Appends a process memory snapshot ("ps" of this process id) to the debug
 * malloc file, announced with the caller's place. POSIX only, and only while
 * tracking is on with a file whose name needs no shell quoting; on Windows it
 * writes nothing. */
VQ_API void sl_malloc_ps(const char *file, int32_t line);

/* ---- Blocks ------------------------------------------------------------- */

/* Tracked malloc: the block, or NULL. Free with sl_debug_free. Sizes above
 * 4,294,967,195 bytes fail when tracking is on (the record holds 32 bits). */
VQ_API void *sl_debug_malloc(const char *file, int32_t line, size_t size);
/* Tracked realloc: NULL block allocates; on failure NULL and block stays valid.
 * The record follows the block and keeps the place of its first allocation. */
VQ_API void *sl_debug_realloc(const char *file, int32_t line, void *block, size_t size);
/* Tracked strdup: a copy of text to free with sl_debug_free; NULL for a NULL
 * text or no memory. */
VQ_API char *sl_debug_strdup(const char *file, int32_t line, const char *text);
/* Tracked free: checks the block's guard and record, then frees it. NULL is
 * reported and ignored; an unknown block is reported, then freed plainly. */
VQ_API void sl_debug_free(const char *file, int32_t line, void *block);
/* As sl_debug_free, for blocks handed out by the string / registry modules. */
VQ_API void sl_debug_sl_free(const char *file, int32_t line, void *block);
VQ_API void sl_debug_new_reg_free(const char *file, int32_t line, void *block);
/* Tracked tempnam: a new temporary file name (the file is not created) in
 * dir or the system's temporary directory, starting with up to five characters
 * of prefix; free with sl_debug_free. NULL on failure. */
VQ_API char *sl_debug_tempnam(const char *file, int32_t line, const char *dir, const char *prefix);

/* Plain free and strdup through the C library (sl_strdup(NULL) is NULL). */
VQ_API void sl_free(void *block);
VQ_API char *sl_strdup(const char *text);

/* ---- Streams and descriptors ------------------------------------------- */

/* Tracked fopen: the stream, or NULL (also for a NULL name or mode). */
VQ_API FILE *sl_debug_fopen(const char *file, int32_t line, const char *name, const char *mode);
/* Tracked open: flags as open's; a mode argument (int) follows when flags hold
 * O_CREAT. The descriptor, or -1. Close with sl_debug_close. */
VQ_API int sl_debug_open(const char *file, int32_t line, const char *name, int flags, ...);
/* Tracked fdopen: the stream, or NULL. The stream takes over fd: a tracked
 * descriptor's record passes to the stream, so close it with sl_debug_fclose. */
VQ_API FILE *sl_debug_fdopen(const char *file, int32_t line, int fd, const char *mode);
/* As sl_debug_open / sl_debug_fopen for a wide name (and mode); on POSIX both
 * are converted to UTF-8 first (an invalid character fails with EILSEQ). */
VQ_API int sl_debug_wopen(const char *file, int32_t line, const wchar_t *name, int flags, ...);
VQ_API FILE *sl_debug_wfopen(const char *file, int32_t line, const wchar_t *name, const wchar_t *mode);
/* Tracked _fsopen: on Windows opens with the share flag (_SH_DENYWR, ...); on
 * POSIX it is fopen and share is ignored. */
VQ_API FILE *sl_debug_fsopen(const char *file, int32_t line, const char *name, const char *mode, int share);
/* Tracked fclose: fclose's result. NULL is reported and fails (EOF); an
 * unknown stream is reported, then closed. */
VQ_API int sl_debug_fclose(const char *file, int32_t line, FILE *stream);
/* Tracked close of a descriptor: close's result; a negative fd fails (-1). */
VQ_API int sl_debug_close(const char *file, int32_t line, int fd);

/* ---- List handles ------------------------------------------------------- */

/* Tracked ll_init_list: the new list, or NULL. */
VQ_API void *sl_debug_ll_init_list(const char *file, int32_t line);
/* Tracked ll_dispose_list: disposes *list and sets it to NULL; an unknown
 * handle is reported, then disposed. */
VQ_API void sl_debug_ll_dispose_list(const char *file, int32_t line, void **list);

/* ---- Parser context handles ------------------------------------------ */

/* Tracked cli_get_context_handle: a new empty context handle, or NULL.
 * Unfreed ones are reported as "unfreed context handle". */
VQ_API void *sl_debug_cli_get_context_handle(const char *file, int32_t line);
/* Tracked cli_free_context_handle: frees handle; one the tracker does not know
 * is reported as "free on unallocated context handle", then freed. A pointer
 * that is not a live context handle is refused with ERR_GEN_PARAMS, not freed. */
VQ_API void sl_debug_cli_free_context_handle(const char *file, int32_t line, void *handle);

VQ_EXTERN_C_END

#endif /* VQ_GLOB_MEMORY_H */
