/* Path handling (gf_): taking narrow path strings apart, testing, comparing
 * and converting them, and making directories.
 *
 * Common rules:
 *  - Paths are UTF-8 texts separated by VQ_PATH_SEPARATOR ("\" on Windows,
 *    "/" on POSIX). A full path is a letter, ":" and "\" or begins with "\\"
 *    on Windows; on POSIX it begins with "/" (or "//"). A remote specification
 *    is "\\node\rest" on Windows and "//node/rest" on POSIX.
 *  - Functions return 1 for success and 0 for failure with the cause on the
 *    error stack: a NULL argument is ERR_GEN_PARAMS, a bad value is
 *    ERR_FIL_BADPAR, a path beyond GF_MAX_PATH_LENGTH bytes given to the OS
 *    is ERR_FIL_VLONGNAME or, when creating, ERR_FIL_LONGCREATE_1730.
 *  - Output buffers are the caller's. "out: n bytes" is the least size the
 *    caller must supply; no function writes more. The result may be written
 *    over the input (out == path).
 *  - Functions marked "consults the file system" look the name up: whether it
 *    is an existing directory changes what they produce. The others work on
 *    the text alone. */
#ifndef VQ_GLOB_GF_PATH_H
#define VQ_GLOB_GF_PATH_H

#include "vq_glob/export.h"

/* Longest path, in bytes of UTF-8, that goes to the operating system. */
#define GF_MAX_PATH_LENGTH 7800
/* Wide characters of a gf_path_to_wpath buffer: the longest path behind the
 * "\\?\UNC\" prefix (which replaces the path's own "\\"), plus the terminator. */
#define GF_WPATH_SIZE (GF_MAX_PATH_LENGTH + 7)
/* Bytes of a gf_wpath_to_path buffer. */
#define GF_PATH_SIZE 15610

VQ_EXTERN_C_BEGIN

/* ---- Tests ---------------------------------------------------------------- */

/* 1 when path is a full path (see above), else 0 without an error (a NULL
 * path is 0 with PARAMS). */
VQ_API int gf_is_full_path(const char *path);
/* 1 when name holds none of \ / : * ? " < > | (identical on every platform:
 * the test is for one element of a Windows name; reserved device names and
 * trailing dots or blanks pass). Otherwise 0 with ERR_FIL_WINVALID. */
VQ_API int gf_is_windows_filename_valid(const char *name);
/* 1 when name, one element of a path, names a file on Windows exactly as
 * written: gf_is_windows_filename_valid holds, it is not empty, holds no control
 * character, does not end in a dot or blank (which Windows drops) and is no
 * device name (CON, PRN, AUX, NUL, COM0-9, LPT0-9 in any case, alone or before
 * a dot). Otherwise 0 with ERR_FIL_WINVALID naming it. The same on every platform. */
VQ_API int gf_windows_keeps_filename(const char *name);
/* 1 when name is an existing directory / regular file / symbolic link, else 0
 * without an error. Directory and regular file describe what a link points
 * to. A NULL name is PARAMS, a name beyond GF_MAX_PATH_LENGTH is VLONGNAME. */
VQ_API int gf_is_dir(const char *name);
VQ_API int gf_is_regular(const char *name);
VQ_API int gf_is_link(const char *name);

/* 1 with *confined 1 when relative_name, joined to the existing directory
 * root, stays below it; 1 with *confined 0 and *reason (optional; a static
 * text) for a name that is empty or absolute, holds an empty, "." or ".."
 * element, a backslash (POSIX) or an element ending in a dot or blank
 * (Windows), or whose existing part leads out through a symbolic link
 * (dangling ones included). Consults the file system. 0: PARAMS, VLONGNAME,
 * or ERR_FIL_EXPAND for a root that cannot be resolved. */
VQ_API int gf_path_is_confined(const char *root, const char *relative_name, int32_t *confined,
                               const char **reason);

/* ---- Pointers into a text ------------------------------------------------- */

/* The first separator in text, or NULL when there is none (or for a NULL
 * text, with PARAMS). */
VQ_API char *gf_extract_first_element_ptr(const char *text, char separator);
/* Just behind the last separator in text; text itself when it has none. */
VQ_API char *gf_extract_last_element_ptr(const char *text, char separator);

/* ---- Extraction: out needs strlen(path) + 1 bytes unless stated ----------- */

/* The part behind the last separator, by text alone; a path shorter than two
 * characters is copied whole. */
VQ_API int gf_extract_text_filename(const char *path, char *out);
VQ_API int gf_extract_text_filename_with_sep(const char *path, char *out, char separator);
/* Everything up to and including the last separator, by text alone; the
 * separator alone when there is none. out: strlen(path) + 2 bytes. */
VQ_API int gf_extract_text_path(const char *path, char *out);
VQ_API int gf_extract_text_path_with_sep(const char *path, char *out, char separator);
/* Empty for an existing directory; otherwise the part behind the last
 * separator, or the whole path. Consults the file system. */
VQ_API int gf_extract_filename(const char *path, char *out);
/* Empty for an existing directory; otherwise from the last dot of the last
 * element, the dot included (empty without one). Consults the file system. */
VQ_API int gf_extract_file_extension(const char *path, char *out);
/* The path without what gf_extract_file_extension takes. Consults the file system. */
VQ_API int gf_extract_file_no_extension(const char *path, char *out);
/* The whole path for an existing directory; otherwise up to and including the
 * last separator (empty without one). Consults the file system. */
VQ_API int gf_extract_path(const char *path, char *out);
/* The last element of a directory path, trailing separators ignored. */
VQ_API int gf_extract_dir_name(const char *path, char *out);
/* The parent: one trailing separator ignored, then the text before the last
 * separator; the separator alone when that is the first character. */
VQ_API int gf_extract_prev_dir(const char *path, char *out);
/* The device: "X:" of a drive path (Windows), the "\\node\share" root of a
 * remote specification; empty otherwise. */
VQ_API int gf_extract_device_name(const char *path, char *out);
/* The rest of a remote specification from the separator behind its node
 * (found at the first doubled separator); all of spec when it has none. */
VQ_API int gf_extract_remote_filespec(const char *spec, char *out);
/* 1 with the node of a specification that begins with a doubled separator
 * and names a node; 0 with an empty out (no error) otherwise. */
VQ_API int gf_extract_remote_node_name(const char *spec, char *out);
/* The path up to the end of its n-th element (n >= 1, else BADPAR); a leading
 * root stays in front; the whole path when it has fewer elements. */
VQ_API int gf_get_n_first_elements_str(const char *path, int32_t n, char *out);
/* full cut at the end of the next element behind base: 1; 0 (no error) when
 * full is not longer than base. out: strlen(full) + 1 bytes. */
VQ_API int gf_get_next_partial_path(const char *base, const char *full, char *out, char separator);

/* ---- Full paths and comparison -------------------------------------------- */

/* The absolute form of path ("." and ".." resolved by text) into *buffer, a
 * malloc'ed block of *size bytes or NULL, grown with realloc when too short
 * (*size then tells the new size; free the block with free()). On failure
 * *buffer stays valid: ERR_FIL_EXPAND, or MEMORY with ERR_FIL_MEMORY_1701. */
VQ_API int gf_expand_full_path(const char *path, char **buffer, int32_t *size);
/* *equal = 1 when both names expand to the same full path (one trailing
 * separator ignored), compared exactly, letter case included; else 0. */
VQ_API int gf_compare_file_names(const char *name1, const char *name2, int32_t *equal);
/* The short (8.3) form of an existing path into out of size bytes (BUF,
 * ERR_FIL_BUF, when it does not fit); POSIX has no short names: path itself. */
VQ_API int gf_get_short_path(const char *path, char *out, int32_t size);

/* ---- Making directories --------------------------------------------------- */

/* Creates every missing directory of path (relative to the current one when
 * not full); ERR_FIL_MAKDIR, or ERR_FIL_MKDFEX where a file is in the way. */
VQ_API int gf_make_path(const char *path);
/* As gf_make_path for the path made of a string list's elements, joined with
 * the separator where an element does not already end with one. */
VQ_API int gf_make_path_from_list(char **elements);

/* ---- Conversion at the operating-system boundary -------------------------- */

/* Windows: "\\?\UNC\" + path from its third character when it begins with
 * "\\", else "\\?\" + path, as UTF-16; POSIX: path as wchar_t (UTF-32), no
 * prefix. path: at most GF_MAX_PATH_LENGTH bytes. out: GF_WPATH_SIZE wide
 * characters. Invalid UTF-8 is the system error ERR_SYS_ERRMSG. */
VQ_API int gf_path_to_wpath(const char *path, wchar_t *out);
/* The UTF-8 form of wpath, prefix unchanged. out: GF_PATH_SIZE bytes; a
 * result that does not fit or an unpaired surrogate is the system error ERR_SYS_ERRMSG. */
VQ_API int gf_wpath_to_path(const wchar_t *wpath, char *out);

VQ_EXTERN_C_END

#endif /* VQ_GLOB_GF_PATH_H */
