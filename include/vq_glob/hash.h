/* The library's CRC-32 routine and the hash table keyed by text (slh_).
 *
 * updcrc computes the standard CRC-32 (reflected polynomial 0xEDB88320, as in
 * zlib, PNG and Ethernet) with its running register kept per thread, so that
 * a long input may be fed in pieces and threads never disturb one another.
 *
 * A hash table is an array of rows, each a locked list (llist.h) of entries
 * {copy of the key, user data}. Every call locks only the row its key hashes
 * to, so threads working on different rows run side by side. Keys compare
 * exactly (case-sensitive). The table owns its key copies; the user data stays
 * the caller's unless the clean-up callback frees it.
 *
 * Handle checks: every slh_ function checks that its table comes from
 * slh_allocate_hash_table and is not yet freed, or its iterator from
 * slh_get_iterator and not yet freed. Any other handle (an iterator given as a
 * table, a list, a handle of another family) is refused with ERR_GEN_PARAMS
 * naming the function and the argument, and the function's failure result. A
 * NULL handle is treated as each function says. Not detected: a pointer to
 * unreadable memory or to memory that never was a handle but begins with a
 * table's tag, and a freed handle whose memory was given to a new handle of
 * the same kind. */
#ifndef VQ_GLOB_HASH_H
#define VQ_GLOB_HASH_H

#include "vq_glob/export.h"

VQ_EXTERN_C_BEGIN

/* ---- CRC-32 ------------------------------------------------------------------ */

/* NULL buffer: resets the thread's register to all ones and returns 0.
 * Otherwise feeds length bytes and returns the CRC-32 of all bytes fed since
 * the last reset (the register's complement). */
VQ_API uint32_t updcrc(const unsigned char *buffer, uint32_t length);
/* The same CRC-32 without a register: the CRC of the bytes crc covered
 * followed by length bytes at bytes (start with crc 0; a NULL bytes returns
 * crc). It keeps no state, so any number of CRCs may run at once on one
 * thread, and lengths beyond 4 GiB are fine. */
VQ_API uint32_t crc32_continue(uint32_t crc, const void *bytes, size_t length);

/* ---- Hash table -------------------------------------------------------------- */

/* New table with rows (> 0) empty rows; NULL with ERR_GEN_PARAMS for rows <= 0,
 * or ERR_GEN_MEMORY when out of memory (nothing is left allocated). */
VQ_API void *slh_allocate_hash_table(int32_t rows);
/* Frees every entry (key copy freed, clean-up callback called with the user
 * data), every row and the table. Free the table's iterators first. 1, or 0
 * for a NULL table. */
VQ_API int slh_free_hash_table(void *table);

/* Adds key (copied) with user_data; a key already present is refused with
 * ERR_GEN_HASHDUP. The check and the addition are one step under the row's lock.
 * 1, or 0 (duplicate, NULL table or key, no memory). */
VQ_API int slh_insert_to_table(void *table, const char *key, void *user_data);
/* Removes key's entry: frees the key copy and calls the clean-up callback with
 * its user data. 1, or 0 when the key is not in the table. */
VQ_API int slh_remove_from_table(void *table, const char *key);
/* Stores key's user data in *user_data; 1 when found, 0 (nothing stored) when not. */
VQ_API int slh_find_element(void *table, const char *key, void **user_data);
/* key's user data; NULL when the key is not in the table. */
VQ_API void *slh_get_user_data(void *table, const char *key);

/* Lock / release the row that key hashes to, so that a find-then-change
 * sequence on that key is atomic. Locks are re-entrant: the table's own calls
 * on that row still work from the locking thread. 1, or 0 on failure. */
VQ_API int slh_lock_row(void *table, const char *key);
VQ_API int slh_release_row(void *table, const char *key);

/* The number of rows given at creation (0 for a NULL table). */
VQ_API int32_t slh_get_size(void *table);
/* Callback called with an entry's user data whenever the entry is freed. */
VQ_API int slh_set_appl_cleanup_cb(void *table, void (*cb)(void *user_data));
/* Replaces the default hash (CRC-32 of the key) by cb; NULL restores the
 * default. Set it before the first insertion: entries are not moved. */
VQ_API int slh_set_hash_cb(void *table, int32_t (*cb)(const char *key));

/* ---- Iteration ------------------------------------------------------------------ */

/* New iterator over every entry, row by row, standing before the start (at
 * the end until moved); NULL for a NULL table or no memory. Entries added or
 * removed by other threads during a walk follow the locked list's rules. */
VQ_API void *slh_get_iterator(void *table);
/* Frees the iterator. 1, or 0 for NULL. */
VQ_API int slh_free_iterator(void *iterator);
/* Move to the first entry of the table / the next entry. 1, or 0 for a NULL
 * iterator or when out of memory (the iterator is then at the end). */
VQ_API int slh_iterator_move_first(void *iterator);
VQ_API int slh_iterator_move_next(void *iterator);
/* Removes the current entry as slh_remove_from_table does and moves to the
 * next one. 1, or 0 when there is no current entry. */
VQ_API int slh_iterator_remove_node_move_next(void *iterator);
/* 1 when the iterator is past the last entry (or NULL, or not an iterator),
 * else 0. */
VQ_API int slh_iterator_is_eol(void *iterator);
/* The current entry's key / user data; NULL at the end or when the entry was
 * removed meanwhile. The key stays valid until the entry is removed. */
VQ_API const char *slh_iterator_get_key(void *iterator);
VQ_API void *slh_iterator_get_user_data(void *iterator);

VQ_EXTERN_C_END

#endif /* VQ_GLOB_HASH_H */
