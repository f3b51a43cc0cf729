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
 * "Matches" is the path matcher's whole match: a star never crosses a
 * separator, so R without a separator is a pattern for the object's name at
 * any depth below what N selected, and R = "logs/x*" for a name x* directly
 * in a directory logs. A directory is matched with a trailing separator, so a
 * pattern ending in one ("tmp/") fits directories only. N may be empty (the
 * base directory itself: R then applies at every level). A rule is invalid
 * when N or R is a full path or has a ".." element, or when R is empty: an
 * invalid include rule fails init_filter (ERR_FILTER_ILGSPEC), an invalid
 * exclude rule is traced and never fits. Rules are written "N|R" in traces,
 * messages and the automatic exclusion file.
 *
 * Object types: 2 and 8 are directories, every other value (1 in practice) a
 * file. A name with a ".." element is taken as lying outside the base
 * directory.
 *
 * Include-all. A pair whose N is empty or only stars and whose R is only
 * stars takes in every object (include_spec_is_all); with R only stars
 * followed by one separator (a star and VQ_PATH_SEPARATOR) it takes in every
 * directory. Such pairs
 * set the include-all-files / include-all-directories flags, which keep
 * objects without matching. With no include rule and neither flag, every
 * object is skipped.
 *
 * POSIX keys (Windows ignores them). "Ignore UNIX Hidden Files" skips an
 * object whose own name begins with "."; "Ignore UNIX Mount Points" skips a
 * directory whose device differs from its parent's (one stat of each, for
 * directories only); "Handling of UNIX Links to Files" and "... to
 * Directories" take the FILTER_LINKS_ values and cost one lstat per object
 * when either is not FILTER_LINKS_AS_TARGET. A name that cannot be examined
 * (gone, or never on disk) is neither a mount point nor a link. "Ignore
 * Invalid Windows Filenames", "USE UDL", "Follow UNIX Links to Directories",
 * "UL Input File" and "Case Sensitive" are read and kept for the callers; no
 * check depends on them.
 *
 * Windows system directories. With "Ignore Recycle Dir" TRUE, the directory
 * "\recycler" of an NTFS volume (and "\System Volume Information" there), or
 * "\recycled" of any other volume, is skipped and not created; with "Ignore
 * Config Dir" TRUE the system directory's "config" is. The comparison is on
 * the whole path without its drive ("C:"), ignoring case. These rules never
 * apply on POSIX.
 *
 * A filter is read, never changed, by the checks: several threads may ask
 * one filter at once. set_auto_exclude changes it and must not run beside
 * them.
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

/* The name of the automatic exclusion file set_auto_exclude reads.
 *
 * Format: text, one rule per line. Blanks and tabs around a line and around
 * each part, and a carriage return at its end, are ignored; empty lines and
 * lines whose first character is "#" are comments. A line "N|R" adds the
 * exclude pair (N, R); a line P without "|" adds (P, "*"): the objects P
 * selects and everything below them. Patterns are relative to the base
 * directory, as in the exclude lists. Example (POSIX separators):
 *
 *   # left alone by the controller
 *   tmp
 *   *|*.swp
 *   cache|*.bin
 *
 * excludes tmp with all below it, every "*.swp" at any depth, and every
 * "*.bin" at any level below cache. */
#define FILTER_AUTO_EXCLUDE_FILE "controller_ignore_list.rpl"

VQ_EXTERN_C_BEGIN

/* The filter's constant table (static, never freed) and its row count, 17. */
VQ_API const conf_table_row *vq_get_filter_cf_table(void);
VQ_API int32_t vq_get_filter_cf_keys_number(void);

/* Builds a filter from configuration (a conf_ handle bound to the table above,
 * or holding its fields by name; a field it lacks takes the table's default,
 * a missing "Filter Params" section fails). 1 with *filter set, or 0 with the
 * cause on the error stack (cleared first) and nothing left allocated:
 * ERR_GEN_PARAMS for a NULL argument, ERR_FILTER_SPEC_MISMATCH for uneven
 * rule lists, ERR_FILTER_ILGSPEC for an invalid include rule, the
 * configuration module's error for a field of another type,
 * ERR_FIL_GETVOLINF (over the system's reason) when the volume of the base
 * directory cannot be examined. Read on a configuration handle only; the
 * filter owns copies of everything it keeps. */
VQ_API int init_filter(void **filter, void *configuration);
/* Frees a filter and everything it owns; NULL is ignored. */
VQ_API void close_filter(void *filter);

/* Whether the object name (a full path) of the given type is left out:
 * 1 with *skip 1 (leave out) or 0 (keep); 0 with ERR_GEN_PARAMS for a NULL
 * argument or a handle that is no filter, or with the matcher's error. */
VQ_API int Skip(void *filter, const char *name, int32_t type, int32_t *skip);
/* Skip for name, a path relative to the base directory given in wide
 * characters: the object's name is the base directory, VQ_PATH_SEPARATOR and
 * name in UTF-8. A name that is not valid UTF-16 (UTF-32 on POSIX) fails. */
VQ_API int WSkip(void *filter, const wchar_t *name, int32_t type, int32_t *skip);
/* The include half of Skip alone: *skip 1 when the object is not strictly
 * below the base directory or no include rule keeps it. Results as Skip. */
VQ_API int include_check(void *filter, const char *name, int32_t type, int32_t *skip);
/* include_check for a wide name relative to the base directory, as WSkip. */
VQ_API int W_include_check(void *filter, const wchar_t *name, int32_t type, int32_t *skip);
/* The exclude half alone: *skip 1 when an exclude rule, an automatic
 * exclusion, a system-directory rule or one of the POSIX keys (hidden files,
 * mount points, links) leaves the object out. Results as Skip. */
VQ_API int exclude_check(void *filter, const char *name, int32_t type, int32_t *skip);
/* exclude_check for a wide name relative to the base directory, as WSkip. */
VQ_API int W_exclude_check(void *filter, const wchar_t *name, int32_t type, int32_t *skip);
/* Whether the directory path (a full path) is to be created on a target: the
 * system-directory rules alone, so always 1 on POSIX. 1 with
 * *should_create set; 0 with ERR_GEN_PARAMS for a NULL argument. */
VQ_API int should_create_dir(void *filter, const char *path, int32_t *should_create);
/* Whether a walk descends into the directory path (a full path): 1 with
 * *should_dig 1 when some include rule could still fit an object below it
 * (its N matches the directory, a directory above it, or the directory lies
 * on the way to what N selects) and neither an exclude rule, an automatic
 * exclusion, a system-directory rule nor a POSIX key leaves the directory
 * out; a link to a directory handled as FILTER_LINKS_AS_FILE is never
 * entered. The base directory itself is entered when any include rule
 * exists; a path outside it never is. 0 with ERR_GEN_PARAMS for a NULL
 * argument. */
VQ_API int should_dig_into_dir(void *filter, const char *path, int32_t *should_dig);
/* Adds the exclusions listed in working_directory's FILTER_AUTO_EXCLUDE_FILE
 * (format below) to the filter, after its exclude rules. A missing file adds
 * nothing and succeeds. 0 with nothing added when the file cannot be read
 * (ERR_FIL_OPEN over the reason: not a regular file, larger than 1 MiB, no
 * access) or a line is not a valid rule (ERR_FILTER_ILGSPEC naming the file
 * and line), or with ERR_GEN_PARAMS for a NULL argument. */
VQ_API int set_auto_exclude(void *filter, const char *working_directory);

/* Whether the include pair (non_recursive, recursive) takes in every object
 * below the base directory: *is_all 1 when non_recursive is empty or only
 * stars and recursive is only stars (("*", "*") among them), else 0. 1, or 0
 * with ERR_GEN_PARAMS for a NULL argument. */
VQ_API int include_spec_is_all(const char *non_recursive, const char *recursive, int32_t *is_all);

/* Between the old single-specification form and the pair-of-lists form.
 * old_spec is split into elements by str_convert_string_to_list; base is the
 * base directory the old elements may begin with (NULL: none); recursive
 * says whether the old specification applied at every level. The lists are
 * ml_ string lists, created by the _old_to_new functions (ml_free them); a
 * NULL or blank old_spec gives two empty lists. The _new_to_old functions
 * give *old_spec (sl_free it) and *recursive.
 *
 * Old to new: a leading "base" and separator is removed from an element;
 * with recursive 0 the element x becomes the pair (x, "*"), the objects x
 * selects and everything below them; with recursive 1 the element y becomes
 * ("*", y), the names y at every level. An element that is empty, equal to
 * base, a full path outside base or has a ".." element cannot be converted:
 * each one is put on the error stack (ERR_FILTER_FAIL_CNV_INC /
 * ERR_FILTER_FAIL_CNV_EXC) and the conversion fails with no list made.
 *
 * New to old: pairs all of the form (x, "*") give "x1,x2,..." with
 * *recursive 0, pairs all of the form ("*", y) give "y1,y2,..." with
 * *recursive 1 (all pairs ("*", "*") count as the first form); base and a
 * separator are put in front of every element when base is neither NULL nor
 * empty. Empty lists give "" with *recursive 0. A pair of neither form, a
 * mix of the two forms, or an element that the old form cannot carry (empty,
 * holding a ",", or beginning or ending with a blank or tab) fails with
 * ERR_FILTER_FAIL_CNV_INC / _EXC naming it ("N|R"); lists of different
 * lengths fail with ERR_FILTER_SPEC_MISMATCH. Nothing is returned on failure.
 *
 * Round trips hold: new -> old -> new gives the same lists (with the same
 * base), old -> new -> old the same elements in the same order, once each
 * element of the old text is trimmed and has the base in front (base NULL:
 * relative elements as they were). NULL list addresses or outputs are
 * ERR_GEN_PARAMS; NULL lists are empty. */
VQ_API int convert_include_old_to_new(const char *old_spec, const char *base, int32_t recursive,
                                      char ***non_recursive, char ***recursive_list);
VQ_API int convert_exclude_old_to_new(const char *old_spec, const char *base, int32_t recursive,
                                      char ***non_recursive, char ***recursive_list);
VQ_API int convert_include_new_to_old(char **non_recursive, char **recursive_list, const char *base,
                                      char **old_spec, int32_t *recursive);
VQ_API int convert_exclude_new_to_old(char **non_recursive, char **recursive_list, const char *base,
                                      char **old_spec, int32_t *recursive);

VQ_EXTERN_C_END

/* Worked example (POSIX separators; on Windows read "\" for "/").
 *
 *   [Filter Params]
 *   Base Directory=/data/proj
 *   Include Non Recursive Part List=_ml_text_
 *   src
 *   src
 *   docs
 *   *.txt
 *   _ml_text_
 *   Include Recursive Part List=_ml_text_
 *   *.c
 *   *.h
 *   *
 *   *
 *   _ml_text_
 *   Exclude Non Recursive Part List=_ml_text_
 *   docs/old
 *   *
 *   _ml_text_
 *   Exclude Recursive Part List=_ml_text_
 *   *
 *   *.log
 *   _ml_text_
 *
 * Include pairs: i1 src|*.c (C files at every level below src), i2 src|*.h,
 * i3 docs|* (docs and everything in it), i4 *.txt|* (".txt" objects directly
 * in the base directory). Exclude pairs: x1 docs/old|* (docs/old and all in
 * it), x2 *|*.log (".log" names at every level). Under /data/proj:
 *
 *   object               Skip     why                            dig into
 *   README.txt           kept     i4
 *   notes.log            skipped  no include pair fits
 *   src/                 skipped  i1, i2 name files, not src     yes (i1)
 *   src/main.c           kept     i1
 *   src/main.o           skipped  no include pair fits
 *   src/readme.txt       skipped  i4 is for the base level only
 *   src/util/            skipped  as src/                        yes (i1)
 *   src/util/str.c       kept     i1, one level deeper
 *   src/util/str.h       kept     i2
 *   build/               skipped  no include pair fits           no
 *   build/app            skipped  no include pair fits
 *   docs/                kept     i3                             yes
 *   docs/guide.txt       kept     i3
 *   docs/today.log       skipped  x2 wins over i3
 *   docs/old/            skipped  x1 wins over i3                no
 *   docs/old/draft.txt   skipped  x1 wins over i3
 *
 * /data/proj itself and /data are skipped: neither lies strictly below the
 * base directory. */

#endif /* VQ_GLOB_FILTER_H */
