/* String lists (ml_): NULL-terminated arrays of heap texts, shaped like a
 * program's argument vector, so callers walk them with an index.
 *
 * A list of n texts is an array of n + 1 pointers from malloc whose last entry
 * is NULL; every text is the list's own copy, also from malloc. ml_free
 * releases a list; texts and arrays may equally be released with free().
 * Every function reading a list takes a NULL list as an empty one. Appending
 * walks the list to count it, so building a list of n texts costs n * n / 2
 * steps: the format is meant for short lists.
 *
 * Out of memory leaves ERR_GEN_MEMORY on the stack, returns 0 (or NULL), and
 * leaves the list valid with its old contents. A NULL address or text where
 * one is required is ERR_GEN_PARAMS. Text comparisons without case fold the
 * ASCII letters only. A list is a plain array, not a tagged handle: nothing
 * can tell a list from another pointer, so only NULL is refused. */
#ifndef VQ_GLOB_MLIST_H
#define VQ_GLOB_MLIST_H

#include "vq_glob/export.h"

VQ_EXTERN_C_BEGIN

/* *list becomes a new array of n + 1 NULL entries (the old list is not freed);
 * returns n + 1, or 0 for a negative n or no memory (nothing on the stack). */
VQ_API int32_t ml_init(int32_t n, char ***list);
/* As ml_init, reporting failures on the error stack; 1 or 0. */
VQ_API int ml_init_list(int32_t n, char ***list);

/* Appends a copy of text (a NULL *list starts a new list); 1, or 0 on failure
 * with nothing on the error stack. */
VQ_API int ml_add(char ***list, const char *text);
/* Appends a copy of text (a NULL *list starts a new list); 1 or 0. */
VQ_API int ml_add_element(char ***list, const char *text);
/* As ml_add_element; with check_dup non-zero an equal text already in the list
 * (ignoring ASCII case when case_sensitive is 0) is not added again: 1. */
VQ_API int ml_add_element_ex(char ***list, const char *text, int32_t check_dup, int32_t case_sensitive);

/* Number of texts; 0 for a NULL list. */
VQ_API int32_t ml_list_count(char **list);
/* Frees the first text and moves the later entries, terminator included, down. */
VQ_API void ml_remove(char **list);
/* Removes the first text equal to text (case-sensitive); *found tells whether
 * one was there. 1, or 0 for a NULL text or found. */
VQ_API int ml_remove_item(char **list, const char *text, int32_t *found);

/* *found = 1 when a text equal to text (case-sensitive) is in the list, else 0.
 * 1, or 0 for a NULL text or found. */
VQ_API int ml_find_item(char **list, const char *text, int32_t *found);
/* As ml_find_item, ignoring ASCII case. */
VQ_API int ml_find_insensitive_item(char **list, const char *text, int32_t *found);
/* *index = position of the first text equal to text (case-sensitive), or -1.
 * 1 when found; 0 when not found (no error) or for a NULL text or index. */
VQ_API int ml_find_index(char **list, const char *text, int32_t *index);

/* New list of the texts of a, in a's order, that are not empty and not in b
 * (case-sensitive); NULL when out of memory. Free it with ml_free. */
VQ_API char **ml_diff(char **a, char **b);
/* New list with copies of every text; NULL when out of memory. */
VQ_API char **ml_dup(char **list);
/* *target becomes a copy of source (the old *target is not freed); 1, or 0
 * with *target unchanged. */
VQ_API int ml_copy(char ***target, char **source);

/* Traces every entry as "ml_print:: <index> - <text>" on DBG_CHANNEL_FLOW. */
VQ_API void ml_print(char **list);
/* Frees every text and leaves the array holding only NULL entries. */
VQ_API void ml_free_list_items(char **list);
/* Frees every text, then the array; NULL is ignored. */
VQ_API void ml_free(char **list);

/* *text = a copy of the last text (release it with free()); 1. For an empty
 * list *text = NULL and 0 without an error. */
VQ_API int ml_get_last_item(char **list, char **text);
/* *is_empty = 1 when every text is empty (also for an empty list), else 0;
 * 1, or 0 with a PARAMS error for a NULL list or is_empty. */
VQ_API int is_list_of_empty_strs(char **list, int32_t *is_empty);

VQ_EXTERN_C_END

#endif /* VQ_GLOB_MLIST_H */
