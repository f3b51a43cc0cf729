/* The include/exclude filter: which objects of a tree take part.
 *
 * A filter is built once from a configuration handle whose section
 * "Filter Params" holds the keys of vq_get_filter_cf_table (init_filter), is
 * asked once per object (Skip), and is released with close_filter. An object
 * is kept only when it lies strictly below the base directory, is included by
 * an include rule, and is neither excluded by an exclude rule nor by the
 * built-in system-directory rules. Exclusion wins over inclusion. Every
 * comparison ignores letter case (ASCII letters), whatever "Case Sensitive"
 * says.
 *
 * Rules. A rule is a pair: element i of a "Non Recursive Part List" and
 * element i of the matching "Recursive Part List" (both lists of one side
 * must have the same length). Patterns use the wildcards of wildcard.h and
 * separate elements with VQ_PATH_SEPARATOR. For an object whose path relative
 * to the base directory is e1/e2/.../en, the pair (N, R) fits when
 *  - N matches the whole relative path and R matches the object's name en, or
 *  - N matches a leading directory e1/.../ek (k < n) and R matches the rest
 *    e(k+1)/.../en, or the rest below some deeper directory ej/.../en (j > k+1).
 * An object whose path N matches neither wholly nor through a leading
 * directory fits no pair. The first fitting pair of a side decides.
 *
 * Object types: 2 and 8 are directories, every other value (1 in practice) a
 * file.
 *
 * (The worked example of a tree and a rule set is below the declarations.) */
#ifndef VQ_GLOB_FILTER_H
#define VQ_GLOB_FILTER_H

#include <stddef.h>
#include <stdint.h>

#include "vq_glob/conf.h"
#include "vq_glob/export.h"

/* Constants of the filter's configuration table, in its order. */
#define FILTER_CF_SECTION 0                /* "Filter Params" */
#define FILTER_CF_EXCLUDE_NON_RECURSIVE 1  /* "Exclude Non Recursive Part List" */
#define FILTER_CF_EXCLUDE_RECURSIVE 2      /* "Exclude Recursive Part List" */
#define FILTER_CF_IGNORE_RECYCLE_DIR 3     /* "Ignore Recycle Dir" */
#define FILTER_CF_IGNORE_CONFIG_DIR 4      /* "Ignore Config Dir" */
#define FILTER_CF_IGNORE_MOUNT_POINTS 5    /* "Ignore UNIX Mount Points" */
#define FILTER_CF_IGNORE_HIDDEN_FILES 6    /* "Ignore UNIX Hidden Files" */
#define FILTER_CF_LINKS_TO_FILES 7         /* "Handling of UNIX Links to Files" */
#define FILTER_CF_LINKS_TO_DIRS 8          /* "Handling of UNIX Links to Directories" */
#define FILTER_CF_FOLLOW_LINKS_TO_DIRS 9   /* "Follow UNIX Links to Directories" */
#define FILTER_CF_CASE_SENSITIVE 10        /* "Case Sensitive" (has no effect) */
#define FILTER_CF_IGNORE_INVALID_NAMES 11  /* "Ignore Invalid Windows Filenames" */
#define FILTER_CF_INCLUDE_NON_RECURSIVE 12 /* "Include Non Recursive Part List" */
#define FILTER_CF_INCLUDE_RECURSIVE 13     /* "Include Recursive Part List" */
#define FILTER_CF_BASE_DIRECTORY 14        /* "Base Directory" */
#define FILTER_CF_USE_UDL 15               /* "USE UDL" */
#define FILTER_CF_UL_INPUT_FILE 16         /* "UL Input File" */
#define FILTER_CF_KEYS 17

/* Values of the two link-handling keys (POSIX; an empty value is 0). */
#define FILTER_LINKS_AS_TARGET 0 /* a link is judged as the object it points to */
#define FILTER_LINKS_SKIP 1      /* links are left out */
#define FILTER_LINKS_AS_FILE 2   /* a link is judged as a file of its own, never entered */

/* The name of the automatic exclusion file set_auto_exclude reads. */
#define FILTER_AUTO_EXCLUDE_FILE "controller_ignore_list.rpl"

VQ_EXTERN_C_BEGIN

/* The filter's constant table (static, never freed) and its row count, 17. */
VQ_API const conf_table_row *vq_get_filter_cf_table(void);
VQ_API int32_t vq_get_filter_cf_keys_number(void);

/* Builds a filter from configuration (a conf_ handle bound to the table above,
 * or holding its fields by name). 1 with *filter set, or 0 with the cause on
 * the error stack and nothing left allocated: ERR_GEN_PARAMS for a
 * NULL filter, ERR_FILTER_SPEC_MISMATCH for uneven rule lists,
 * ERR_FIL_GETVOLINF when the base directory's volume cannot be examined. */
VQ_API int init_filter(void **filter, void *configuration);
/* Frees a filter and everything it owns; NULL is ignored. */
VQ_API void close_filter(void *filter);

/* Whether the object name (a full path) of the given type is left out:
 * 1 with *skip 1 (leave out) or 0 (keep); 0 only for NULL arguments or a
 * matcher failure. */
VQ_API int Skip(void *filter, const char *name, int32_t type, int32_t *skip);
/* Skip for one element of the base directory, given as a wide name. */
VQ_API int WSkip(void *filter, const wchar_t *name, int32_t type, int32_t *skip);
/* The include half of Skip alone: *skip 1 when no include rule keeps the object. */
VQ_API int include_check(void *filter, const char *name, int32_t type, int32_t *skip);
VQ_API int W_include_check(void *filter, const wchar_t *name, int32_t type, int32_t *skip);
/* The exclude half alone: *skip 1 when an exclude rule, a system-directory
 * rule or one of the POSIX keys (hidden files, mount points, links) leaves
 * the object out. */
VQ_API int exclude_check(void *filter, const char *name, int32_t type, int32_t *skip);
VQ_API int W_exclude_check(void *filter, const wchar_t *name, int32_t type, int32_t *skip);
/* Whether the directory path is to be created on a target: the
 * system-directory rules alone (never apply on POSIX). */
VQ_API int should_create_dir(void *filter, const char *path, int32_t *should_create);
/* Whether a walk descends into the directory path: *should_dig 1 when some
 * include rule could still fit an object below it and no exclude rule fits
 * the directory itself (see the example below). */
VQ_API int should_dig_into_dir(void *filter, const char *path, int32_t *should_dig);
/* Adds the exclusions listed in working_directory's FILTER_AUTO_EXCLUDE_FILE
 * (format below) to the filter. A missing file adds nothing and succeeds. */
VQ_API int set_auto_exclude(void *filter, const char *working_directory);

/* Whether the include pair (non_recursive, recursive) takes in every object
 * below the base directory: *is_all 1 for ("*", "*"), see below. */
VQ_API int include_spec_is_all(const char *non_recursive, const char *recursive, int32_t *is_all);

/* Between the old single-specification form and the pair-of-lists form.
 * old_spec is split into elements by str_convert_string_to_list; base is the
 * base directory the old elements may begin with; recursive says whether the
 * old specification applied at every level. The lists are ml_ string lists,
 * created empty by the _old_to_new functions (ml_free them); a NULL old_spec
 * gives two empty lists. The _new_to_old functions give *old_spec (sl_free
 * it) and *recursive. */
VQ_API int convert_include_old_to_new(const char *old_spec, const char *base, int32_t recursive,
                                      char ***non_recursive, char ***recursive_list);
VQ_API int convert_exclude_old_to_new(const char *old_spec, const char *base, int32_t recursive,
                                      char ***non_recursive, char ***recursive_list);
VQ_API int convert_include_new_to_old(char **non_recursive, char **recursive_list, const char *base,
                                      char **old_spec, int32_t *recursive);
VQ_API int convert_exclude_new_to_old(char **non_recursive, char **recursive_list, const char *base,
                                      char **old_spec, int32_t *recursive);

VQ_EXTERN_C_END

#endif /* VQ_GLOB_FILTER_H */
