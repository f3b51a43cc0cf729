/* Linked lists: the plain list with one built-in cursor (ll_), the locked
 * list with reference-counted nodes and any number of iterators (lln_), and
 * the re-entrant critical-section wrappers both use (cs_).
 *
 * Both lists hold the caller's data pointers and are safe to share between
 * threads: every call holds the list's critical section for its whole length.
 * The plain list's cursor is shared by all its users, so one thread at a time
 * walks it.
 *
 * Handle checks: every ll_ function checks that its list is a plain list from
 * ll_init_list not yet disposed, every lln_ function that its list is a
 * locked list from lln_init_list not yet released, or its iterator one from
 * lln_get_list_iterator not yet freed. Any other handle (a locked list given
 * to ll_, an iterator given where a list belongs, a handle of another family)
 * is refused with ERR_GEN_PARAMS naming the function and the argument, and the
 * function's failure result. A NULL handle is treated as each function says.
 * Not detected: a pointer to unreadable memory or to memory that never was a
 * handle but begins with a list's tag, and a released handle whose memory was
 * given to a new handle of the same kind. */
#ifndef VQ_GLOB_LLIST_H
#define VQ_GLOB_LLIST_H

#include "vq_glob/export.h"

VQ_EXTERN_C_BEGIN

/* ---- Critical sections ---------------------------------------------------- */

/* Storage for one re-entrant lock: a critical section on Windows, a recursive
 * mutex on POSIX. The owner thread may enter it again without blocking. */
typedef union cs_critical_section {
    unsigned char storage[64];
    long long align_ll;
    void *align_ptr;
    double align_d;
} cs_critical_section;

/* Initialise / enter / leave / delete a critical section the caller owns. */
VQ_API void cs_initialize_critical_section(cs_critical_section *cs);
VQ_API void cs_enter_critical_section(cs_critical_section *cs);
VQ_API void cs_leave_critical_section(cs_critical_section *cs);
VQ_API void cs_delete_critical_section(cs_critical_section *cs);

/* ---- Plain list ------------------------------------------------------------ */

/* A node of the plain list; callers read data (and may follow next/prev). */
typedef struct ll_node {
    struct ll_node *next, *prev;
    void *data;
} ll_node;

/* New empty list, or NULL (out of memory: ERR_GEN_MEMORY on the stack). */
VQ_API void *ll_init_list(void);
/* Frees every node (never the data) and the list, and sets *list to NULL. */
VQ_API void ll_dispose_list(void **list);
/* Appends a node for data and returns it; NULL for a NULL list or no memory. */
VQ_API ll_node *ll_add_node_last(void *list, void *data);
/* Unlinks and frees node (not its data); a node of another list is ignored.
 * Freeing the cursor's node steps the cursor back to the previous node, so a
 * forward walk that frees as it goes continues with the following node. */
VQ_API void ll_free_node(void *list, ll_node *node);
/* Set the cursor to the first / last node and return it (NULL when empty). */
VQ_API ll_node *ll_get_first_node(void *list);
VQ_API ll_node *ll_get_last_node(void *list);
/* Move the cursor forward: from "before the start" to the first node, from
 * the last node to "before the start" (returning NULL, so the next call
 * starts over). */
VQ_API ll_node *ll_get_next_node(void *list);
/* Move the cursor backward: from "before the start" to the last node, from
 * the first node to "before the start" (returning NULL). */
VQ_API ll_node *ll_get_prev_node(void *list);
/* Number of nodes; 0 for a NULL list. */
VQ_API int32_t ll_get_count(void *list);

/* ---- Locked list ------------------------------------------------------------ */

/* New empty locked list, or NULL when out of memory. */
VQ_API void *lln_init_list(void);
/* Callback called with a node's data when the node is freed (may be NULL).
 * With the free-data flag set the data is freed first and cb receives NULL. */
VQ_API void lln_set_cb(void *list, void (*cb)(void *data));
/* Non-zero: the list frees each node's data with free() when freeing it. */
VQ_API void lln_set_free_data_flag(void *list, int32_t flag);
/* Appends data (not NULL); returns data, or NULL for a NULL or disposed list
 * or no memory. */
VQ_API void *lln_add_node_last(void *list, void *data);
/* Removes the first node holding data, as an iterator removal would (freed
 * at once unless an iterator stands on it). 1, or 0 when not found. */
VQ_API int lln_free_node(void *list, void *data);
/* Removes every node (those under an iterator when the iterator leaves) and
 * refuses further additions and iterators. The list itself, with its critical
 * section, is freed at once when no iterator is open (inside an lln_lock_list
 * bracket: at the bracket's last lln_unlock_list), else by the last
 * lln_free_list_iterator; the list pointer must not be used after that. */
VQ_API void lln_dispose_list(void *list);
/* Enter / leave the list's critical section to make several calls atomic;
 * 1, or 0 with ERR_GEN_PARAMS for a NULL list. */
VQ_API int lln_lock_list(void *list);
VQ_API int lln_unlock_list(void *list);
/* Number of nodes (including nodes removed but still under an iterator); 0
 * for a NULL list. */
VQ_API uint32_t lln_get_count(void *list);
/* New iterator standing before the start, or NULL for a NULL or disposed list.
 * Free it with lln_free_list_iterator. */
VQ_API void *lln_get_list_iterator(void *list);
/* Releases the iterator's hold on its node and frees it; 1 (0 for NULL). */
VQ_API int lln_free_list_iterator(void *it);
/* Move to the first / next node not removed. A walk starts with move_first;
 * move_next on an iterator at the end (or never moved) leaves it there. */
VQ_API void lln_iterator_move_first(void *it);
VQ_API void lln_iterator_move_next(void *it);
/* 1 when the iterator is past the end (or NULL), else 0. */
VQ_API int lln_iterator_end(void *it);
/* The current node's data; NULL at the end or when the node was removed. */
VQ_API void *lln_iterator_get_data(void *it);
/* Removes the current node and moves to the next one; 1 (0 at the end). */
VQ_API int lln_iterator_remove_node_move_next(void *it);
/* Writes the list's nodes, reference counts and flags to the debug trace. */
VQ_API void lln_dump_list(void *list);

VQ_EXTERN_C_END

#endif /* VQ_GLOB_LLIST_H */
