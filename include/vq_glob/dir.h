/* Directory walks, file lists and whole-tree operations.
 *
 * Common rules:
 *  - Paths are UTF-8, separated by VQ_PATH_SEPARATOR; a path beyond
 *    GF_MAX_PATH_LENGTH bytes fails with ERR_FIL_VLONGNAME and is never cut.
 *  - Functions return 1 for success and 0 for failure with the cause on the
 *    error stack: the system's message first (ERR_SYS_ERRMSG), then the code
 *    of the operation that failed with the name it failed on. A NULL argument
 *    is ERR_GEN_PARAMS.
 *  - A tree may change while it is walked: an entry that vanishes between
 *    being listed and being examined is left out with a trace on the GF
 *    channel, and the walk goes on.
 *  - Symbolic links: a walk lists a link as DIR_TYPE_LINK and never enters it
 *    unless links are followed (dir_set_follow_links_flag). The tree
 *    operations (gf_copy_dir, gf_remove_recursive) never follow a link below
 *    their root: they copy or remove the link itself, so they never act on
 *    anything outside the tree. They open each directory relative to its
 *    parent without following links, so a directory replaced by a link while
 *    they run is not entered either. */
#ifndef VQ_GLOB_DIR_H
#define VQ_GLOB_DIR_H

#include <stdint.h>

#include "vq_glob/export.h"

/* What a walk met. */
#define DIR_TYPE_FILE 1  /* a regular file (or a link to one, when links are followed) */
#define DIR_TYPE_DIR 2   /* a directory (or a link to one, when links are followed) */
#define DIR_TYPE_LINK 3  /* a symbolic link that is not followed, or a dangling one */
#define DIR_TYPE_OTHER 4 /* a device, fifo or socket: listed, never opened */

/* Flags of directory_build_list. */
#define DIR_LIST_FILES 0x1     /* list every object, not only the directories */
#define DIR_LIST_NO_RECURSE 0x2 /* only the root's own entries */

VQ_EXTERN_C_BEGIN

/* ---- Walks ---------------------------------------------------------------- */

/* Whether later walks of the calling thread follow symbolic links (1) or list
 * them as DIR_TYPE_LINK (0, the default). A followed link to a directory is
 * entered at most once per walk: a directory met again (same device and
 * inode: a link cycle, or a second link to it) is listed but not entered,
 * with a trace. 1, or 0 for a value other than 0 or 1 (ERR_FIL_BADPAR). */
VQ_API int dir_set_follow_links_flag(int32_t follow);

/* Walks root depth first and builds the list of what lies below it (root
 * itself is not listed): each directory's entries sorted by name (bytes
 * compared), a directory listed before its contents. Without DIR_LIST_FILES
 * only directories are listed. With filter (from init_filter, filter.h) each
 * object goes through Skip (type 2 for a directory, 1 for anything else) and
 * a skipped one is left out; a directory is entered only when
 * should_dig_into_dir agrees, so an excluded subtree is not read at all,
 * while a directory Skip leaves out may still be entered for what lies below
 * it. A root that is missing or no directory fails with ERR_MKL_BADDIR; an
 * unreadable directory below it fails the walk (ERR_FIL_OPENDIR or
 * ERR_FIL_DIRACC with its name), as does a filter failure
 * (ERR_FIL_SEARCH_1712 with the name). Each directory entered is traced on
 * the GF channel as "directory_build_list: entering <path>".
 * 1 with *list (free it with directory_free_list), or 0 with *list NULL.
 * The list functions below refuse a NULL, freed or foreign handle with
 * ERR_GEN_PARAMS; directory_free_list frees nothing for such a handle. */
VQ_API int directory_build_list(void **list, const char *root, void *filter, int32_t flags);
/* The next directory of the list in walk order, skipping other objects:
 * 1 with *path (list-owned, valid until the list is freed); 0 at the end,
 * without an error. */
VQ_API int directory_next_dir(void *list, char **path);
/* The next object of any type, as directory_next_dir. */
VQ_API int directory_next_entry(void *list, char **path, int32_t *type);
/* Starts directory_next_dir / directory_next_entry again from the first object. */
VQ_API int directory_rewind(void *list);
/* The number of objects listed, and of them the directories (either may be NULL). */
VQ_API int directory_list_count(void *list, int32_t *objects, int32_t *directories);
/* Frees a list and sets *list to NULL; NULL or a NULL *list is ignored. */
VQ_API void directory_free_list(void **list);

/* ---- File lists ----------------------------------------------------------- */

/* The names (one element each, not paths) of the regular files in directory
 * whose names match pattern (match_wildcard; case-sensitive on POSIX,
 * ignoring case on Windows; NULL matches every name), sorted by name.
 * Subdirectories are not entered; links are not followed, so a link is no
 * regular file. 1 with *list (an ml_ string list, possibly empty; ml_free
 * it), or 0 with *list NULL: ERR_MKL_BADDIR for a directory that is missing
 * or no directory. */
VQ_API int gf_get_file_list(const char *directory, const char *pattern, char ***list);
/* The same names in one buffer, each followed by "\n"; *length bytes without
 * the terminating NUL. 1 with *buffer (sl_free it), or 0 with *buffer NULL. */
VQ_API int gf_get_file_list_as_buffer(const char *directory, const char *pattern, char **buffer,
                                      int32_t *length);
/* *has_children = 1 when directory holds any entry besides "." and "..",
 * else 0; reads one entry, not the whole directory. 1, or 0 with
 * ERR_MKL_BADDIR for a directory that is missing or no directory. */
VQ_API int gf_is_dir_has_children(const char *directory, int32_t *has_children);

/* ---- Whole trees ---------------------------------------------------------- */

/* Copies the tree source into target (created when missing, its parent must
 * exist; an existing target is merged into, and with overwrite 0 an existing
 * file of the same name fails the copy with ERR_FIL_COPY, the system's
 * "exists" message first). Files keep their permission bits and modification
 * times (to the nanosecond where the system keeps them); directories get
 * theirs once their contents are complete (an existing target root keeps its
 * own). A symbolic link is copied as a link (its text unchanged, never
 * followed); devices, fifos and sockets are left out with a trace. A target
 * inside source fails with ERR_FIL_BADPAR before anything is made; a source
 * that is no directory with ERR_MKL_BADDIR; a file or link where a directory
 * must be made with ERR_FIL_MKDFEX. Stops at the first failure with its cause
 * on the stack; each file is written under a temporary name and renamed, so
 * no half-copied file is left under its own name. *copied (may be NULL) is
 * the number of files and links copied, also on failure. */
VQ_API int gf_copy_dir(const char *source, const char *target, int32_t overwrite, int32_t *copied);
/* Removes path and, when it is a directory, everything below it; a symbolic
 * link (also path itself) is removed as a link, never followed. A missing
 * path succeeds with nothing removed; a path with no last element of its own
 * (a root, "." or "..") fails with ERR_FIL_BADPAR. Stops at the first failure
 * with its cause on the stack (ERR_FIL_DELETE_170B, ERR_FIL_DELETE_1736 for a
 * link, ERR_FIL_DELDIR_1721, ERR_FIL_VLONGNAME...). *removed (may be NULL) is
 * the number of objects removed, also on failure. */
VQ_API int gf_remove_recursive(const char *path, int32_t *removed);
/* Removes each file named in list (an ml_ string list of full paths;
 * directories are refused by the system) and writes one line per name to
 * report_file (created, or replaced): "deleted <name>", "missing <name>" for
 * a name already gone, or "failed <name>: <system message>". Goes on past
 * failures, each leaving ERR_FIL_DELETE_170B on the stack; the result is 1
 * only when every name was deleted or missing. The report is created before
 * anything is removed: one that cannot be created or written fails with
 * ERR_MKL_FPRINTF. *deleted (may be NULL) counts the deleted files. A NULL
 * report_file writes no report. */
VQ_API int gf_delete_from_list_make_report(char **list, const char *report_file, int32_t *deleted);

VQ_EXTERN_C_END

#endif /* VQ_GLOB_DIR_H */
