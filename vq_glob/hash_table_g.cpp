// Hash table keyed by text: an array of rows, each row a locked list of
// entries {key copy, user data}.
//
// A key's row is |h| mod rows, h being the table's hash callback of the key
// or, by default, the CRC-32 of the key computed with the thread's running
// CRC register. Every operation holds only its row's lock, so threads on
// different rows do not wait for one another; a look-up and the change that
// depends on it (insert after "not found", remove after "found") happen under
// one hold of that lock.
//
// Each row keeps one iterator of its own, the row's cursor, used for look-ups
// and only while the row is locked, so that a look-up allocates nothing. A
// cursor left standing on an entry keeps that entry's list node (never the
// entry) alive until the row's next look-up moves it.
//
// Entries are freed as soon as they leave the table: a list node removed under
// another iterator stays until that iterator moves on, but the locked list
// never hands out a removed node's data, so nobody reads the freed entry.
#include "vq_glob/hash.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

#include "internal/checked_handle.h"
#include "internal/raise.h"
#include "vq_glob/dbg.h"
#include "vq_glob/err.h"
#include "vq_glob/llist.h"

namespace vq::crc {
// Defined with updcrc in crc.cpp: the register reset and fed in one call.
uint32_t crc_from_reset(const unsigned char *bytes, size_t length);
}  // namespace vq::crc

namespace vq::hash {
namespace {

using raise::Report;
using tag::Kind;

// The module traces on the ERROR channel, as the locked lists do.
constexpr int32_t kTraceChannel = DBG_CHANNEL_ERROR;
constexpr const char *kModule = "hash_table_g";

using CleanupFn = void (*)(void *user_data);
using HashFn = int32_t (*)(const char *key);

// One block: the record, then the key's characters, to which key points.
struct Entry {
    char *key;
    void *user_data;
    int32_t hash;  // compared before the key text
};

struct Table {
    uint32_t tag;  // Kind::hash_table while the table lives
    int32_t rows;
    void **row;        // rows locked lists
    int32_t reserved;  // always zero
    std::atomic<CleanupFn> cleanup;
    std::atomic<HashFn> hash;
    void **cursor;  // rows iterators, one per row, used under the row's lock
};

struct TableIterator {
    uint32_t tag;  // Kind::hash_iterator while the iterator lives
    Table *table;
    int32_t row;    // the row that current walks
    void *current;  // iterator of that row; null past the last entry
};

int null_param(const char *function, const char *argument) {
    new_dbg_str(kTraceChannel, "%s: %s is NULL, return 0...\n", function, argument);
    return raise::params(Report::add, function, argument);
}

// The table behind a handle, or null with a PARAMS error: traced as before
// for a null handle, refused for a handle of another kind or a freed table.
Table *as_table(void *table, const char *function) {
    if (table == nullptr) {
        null_param(function, "table");
        return nullptr;
    }
    return tag::checked<Table>(table, Kind::hash_table, Report::add, function, "table");
}

// The iterator behind a handle, or null: for a null handle with a traced
// PARAMS error, for a handle of another kind or a freed iterator with a
// PARAMS error. The read-only calls use walking (below), which takes a null
// iterator as one at the end.
TableIterator *walking(void *iterator, const char *function) {
    if (iterator == nullptr) {
        return nullptr;
    }
    return tag::checked<TableIterator>(iterator, Kind::hash_iterator, Report::add, function, "iterator");
}

TableIterator *as_iterator(void *iterator, const char *function) {
    if (iterator == nullptr) {
        null_param(function, "iterator");
    }
    return walking(iterator, function);
}

// Runs a callback of the caller's; a C++ exception thrown by it stops here
// instead of unwinding through C callers.
template <typename Fn>
bool guarded(const char *what, Fn &&fn) {
    try {
        fn();
        return true;
    } catch (...) {
        new_dbg_str(kTraceChannel, "hash table: %s threw an exception\n", what);
        return false;
    }
}

// The default hash: CRC-32 of the key text through the thread's register,
// reset first, exactly as updcrc(NULL, 0) then updcrc(key, strlen(key)).
int32_t crc_of_key(const char *key) {
    return static_cast<int32_t>(
        crc::crc_from_reset(reinterpret_cast<const unsigned char *>(key), std::strlen(key)));
}

// Hashes key and picks its row; false when the hash callback failed.
bool locate(Table *t, const char *key, int32_t *hash, int32_t *row) {
    HashFn cb = t->hash.load(std::memory_order_relaxed);
    int32_t h = 0;
    if (cb == nullptr) {
        h = crc_of_key(key);
    } else if (!guarded("hash callback", [&] { h = cb(key); })) {
        err_add_error(ERR_GEN_GENERAL, "hash table: the hash callback failed");
        return false;
    }
    // |h| in 64 bits: INT32_MIN has no 32-bit absolute value.
    int64_t magnitude = h < 0 ? -static_cast<int64_t>(h) : static_cast<int64_t>(h);
    *hash = h;
    *row = static_cast<int32_t>(magnitude % t->rows);
    return true;
}

// Walks the row (its lock held) with its cursor; returns key's entry, the
// cursor standing on it, or null. With the lock held nobody removes a node
// under the cursor, and every node holds an entry, so no data means the end.
Entry *find_in_row(Table *t, int32_t row, const char *key, int32_t hash) {
    void *cursor = t->cursor[row];
    Entry *entry = nullptr;
    for (lln_iterator_move_first(cursor);
         (entry = static_cast<Entry *>(lln_iterator_get_data(cursor))) != nullptr;
         lln_iterator_move_next(cursor)) {
        if (entry->hash == hash && std::strcmp(entry->key, key) == 0) {
            return entry;
        }
    }
    return nullptr;
}

Entry *make_entry(const char *key, void *user_data, int32_t hash) {
    size_t length = std::strlen(key);
    void *block = std::malloc(sizeof(Entry) + length + 1);
    if (block == nullptr) {
        return nullptr;
    }
    auto *entry = new (block) Entry{static_cast<char *>(block) + sizeof(Entry), user_data, hash};
    std::memcpy(entry->key, key, length + 1);
    return entry;
}

// Frees an entry that has left the table: its key, then the caller's
// clean-up of the user data.
void free_entry(Table *t, Entry *entry) {
    void *user_data = entry->user_data;
    std::free(entry);
    CleanupFn cb = t->cleanup.load(std::memory_order_relaxed);
    if (cb != nullptr) {
        guarded("clean-up callback", [&] { cb(user_data); });
    }
}

// Releases whatever part of a table exists (rows may be partly built).
void destroy_table(Table *t) {
    for (int32_t r = 0; r < t->rows; ++r) {
        if (t->cursor != nullptr && t->cursor[r] != nullptr) {
            lln_free_list_iterator(t->cursor[r]);
        }
        if (t->row != nullptr && t->row[r] != nullptr) {
            lln_dispose_list(t->row[r]);
        }
    }
    std::free(t->cursor);
    std::free(t->row);
    tag::erase(&t->tag);
    t->~Table();
    std::free(t);
}

// Locks key's row for a table operation; false (traced) when it cannot.
bool lock_row(Table *t, int32_t row, const char *operation) {
    if (lln_lock_list(t->row[row]) == 0) {
        new_dbg_str(kTraceChannel, "%s failed to lock list", operation);
        return false;
    }
    return true;
}

// Finds key's entry and hands its user data to use (row locked meanwhile).
template <typename Use>
int with_entry(Table *t, const char *key, const char *operation, Use &&use) {
    int32_t hash = 0;
    int32_t row = 0;
    if (!locate(t, key, &hash, &row) || !lock_row(t, row, operation)) {
        return 0;
    }
    Entry *entry = find_in_row(t, row, key, hash);
    if (entry != nullptr) {
        use(entry->user_data);
    }
    lln_unlock_list(t->row[row]);
    return entry != nullptr ? 1 : 0;
}

// Puts the iterator on the first entry at or after row from, or past the end;
// 0 (error pushed for function) when a row's iterator cannot be made.
int settle(TableIterator *it, int32_t from, const char *function) {
    Table *t = it->table;
    for (int32_t r = from; r < t->rows; ++r) {
        if (lln_get_count(t->row[r]) == 0) {
            continue;
        }
        void *walker = lln_get_list_iterator(t->row[r]);
        if (walker == nullptr) {
            return raise::memory(Report::add, function, kModule, __LINE__);
        }
        lln_iterator_move_first(walker);
        if (lln_iterator_end(walker) == 0) {
            it->row = r;
            it->current = walker;
            return 1;
        }
        lln_free_list_iterator(walker);
    }
    it->row = t->rows;
    return 1;
}

void drop_current(TableIterator *it) {
    if (it->current != nullptr) {
        lln_free_list_iterator(it->current);
        it->current = nullptr;
    }
}

// The iterator's current entry, read under its row's lock so that a remover
// on another thread cannot free it meanwhile; use runs under the lock too.
template <typename Use>
void with_current(TableIterator *it, Use &&use) {
    if (it == nullptr || it->current == nullptr) {
        return;
    }
    void *list = it->table->row[it->row];
    lln_lock_list(list);
    auto *entry = static_cast<Entry *>(lln_iterator_get_data(it->current));
    if (entry != nullptr) {
        use(entry);
    }
    lln_unlock_list(list);
}

}  // namespace
}  // namespace vq::hash

using vq::hash::Entry;
using vq::hash::kModule;
using vq::hash::kTraceChannel;
using vq::hash::Table;
using vq::hash::TableIterator;
using vq::raise::Report;

// ---- Table -------------------------------------------------------------------------

extern "C" VQ_API void *slh_allocate_hash_table(int32_t rows) {
    if (rows <= 0) {
        new_dbg_str(kTraceChannel, "slh_allocate_hash_table: invalid number of rows %d\n",
                    static_cast<int>(rows));
        VQ_PARAMS(Report::add, "rows");
        return nullptr;
    }
    void *block = std::malloc(sizeof(Table));
    if (block == nullptr) {
        VQ_NO_MEMORY(Report::add, kModule);
        return nullptr;
    }
    auto *t = new (block) Table{0, rows, nullptr, 0, nullptr, nullptr, nullptr};
    vq::tag::stamp(&t->tag, vq::tag::Kind::hash_table);
    t->row = static_cast<void **>(std::calloc(static_cast<size_t>(rows), sizeof(void *)));
    t->cursor = static_cast<void **>(std::calloc(static_cast<size_t>(rows), sizeof(void *)));
    bool built = t->row != nullptr && t->cursor != nullptr;
    for (int32_t r = 0; built && r < rows; ++r) {
        t->row[r] = lln_init_list();
        t->cursor[r] = t->row[r] != nullptr ? lln_get_list_iterator(t->row[r]) : nullptr;
        built = t->cursor[r] != nullptr;
    }
    if (!built) {
        vq::hash::destroy_table(t);
        VQ_NO_MEMORY(Report::add, kModule);
        return nullptr;
    }
    return t;
}

// Clean-up callbacks run under each row's lock here: the table is going, and
// no other thread may be using it.
extern "C" VQ_API int slh_free_hash_table(void *table) {
    Table *t = vq::hash::as_table(table, __func__);
    if (t == nullptr) {
        return 0;
    }
    for (int32_t r = 0; r < t->rows; ++r) {
        void *cursor = t->cursor[r];
        lln_lock_list(t->row[r]);
        for (lln_iterator_move_first(cursor); lln_iterator_end(cursor) == 0; lln_iterator_move_next(cursor)) {
            auto *entry = static_cast<Entry *>(lln_iterator_get_data(cursor));
            if (entry != nullptr) {
                vq::hash::free_entry(t, entry);
            }
        }
        lln_unlock_list(t->row[r]);
    }
    vq::hash::destroy_table(t);
    return 1;
}

// The entry is built before the row is locked, to hold the lock briefly; a
// duplicate costs one allocation thrown away.
extern "C" VQ_API int slh_insert_to_table(void *table, const char *key, void *user_data) {
    Table *t = vq::hash::as_table(table, __func__);
    if (t == nullptr) {
        return 0;
    }
    if (key == nullptr) {
        return vq::hash::null_param(__func__, "key");
    }
    int32_t hash = 0;
    int32_t row = 0;
    if (!vq::hash::locate(t, key, &hash, &row)) {
        return 0;
    }
    Entry *entry = vq::hash::make_entry(key, user_data, hash);
    if (entry == nullptr) {
        return VQ_NO_MEMORY(Report::add, kModule);
    }
    if (!vq::hash::lock_row(t, row, "slh_insert_to_table")) {
        std::free(entry);
        return 0;
    }
    bool duplicate = vq::hash::find_in_row(t, row, key, hash) != nullptr;
    bool added = !duplicate && lln_add_node_last(t->row[row], entry) != nullptr;
    lln_unlock_list(t->row[row]);
    if (added) {
        return 1;
    }
    std::free(entry);
    if (duplicate) {
        new_dbg_str(kTraceChannel, "slh_insert_to_table - ERROR - key <%s> already exist\n", key);
        err_add_error(ERR_GEN_HASHDUP, key);
        return 0;
    }
    return VQ_NO_MEMORY(Report::add, kModule);
}

extern "C" VQ_API int slh_remove_from_table(void *table, const char *key) {
    Table *t = vq::hash::as_table(table, __func__);
    if (t == nullptr) {
        return 0;
    }
    if (key == nullptr) {
        return vq::hash::null_param(__func__, "key");
    }
    int32_t hash = 0;
    int32_t row = 0;
    if (!vq::hash::locate(t, key, &hash, &row) || !vq::hash::lock_row(t, row, "slh_remove_from_table")) {
        return 0;
    }
    Entry *entry = vq::hash::find_in_row(t, row, key, hash);
    if (entry != nullptr) {
        lln_iterator_remove_node_move_next(t->cursor[row]);
    }
    lln_unlock_list(t->row[row]);
    if (entry == nullptr) {
        return 0;
    }
    // Out of the row now: nobody else can reach the entry.
    vq::hash::free_entry(t, entry);
    return 1;
}

extern "C" VQ_API int slh_find_element(void *table, const char *key, void **user_data) {
    Table *t = vq::hash::as_table(table, __func__);
    if (t == nullptr) {
        return 0;
    }
    if (key == nullptr) {
        return vq::hash::null_param(__func__, "key");
    }
    if (user_data == nullptr) {
        return vq::hash::null_param(__func__, "user_data");
    }
    return vq::hash::with_entry(t, key, "slh_find_element", [&](void *data) { *user_data = data; });
}

extern "C" VQ_API void *slh_get_user_data(void *table, const char *key) {
    Table *t = vq::hash::as_table(table, __func__);
    if (t == nullptr) {
        return nullptr;
    }
    if (key == nullptr) {
        vq::hash::null_param(__func__, "key");
        return nullptr;
    }
    void *found = nullptr;
    vq::hash::with_entry(t, key, "slh_get_user_data", [&](void *data) { found = data; });
    return found;
}

extern "C" VQ_API int slh_lock_row(void *table, const char *key) {
    Table *t = vq::hash::as_table(table, __func__);
    if (t == nullptr) {
        return 0;
    }
    if (key == nullptr) {
        return vq::hash::null_param(__func__, "key");
    }
    int32_t hash = 0;
    int32_t row = 0;
    if (!vq::hash::locate(t, key, &hash, &row)) {
        return 0;
    }
    return vq::hash::lock_row(t, row, "slh_lock_row") ? 1 : 0;
}

extern "C" VQ_API int slh_release_row(void *table, const char *key) {
    Table *t = vq::hash::as_table(table, __func__);
    if (t == nullptr) {
        return 0;
    }
    if (key == nullptr) {
        return vq::hash::null_param(__func__, "key");
    }
    int32_t hash = 0;
    int32_t row = 0;
    if (!vq::hash::locate(t, key, &hash, &row)) {
        return 0;
    }
    if (lln_unlock_list(t->row[row]) == 0) {
        new_dbg_str(kTraceChannel, "slh_release_row failed to unlock list");
        return 0;
    }
    return 1;
}

extern "C" VQ_API int32_t slh_get_size(void *table) {
    Table *t = vq::hash::as_table(table, __func__);
    if (t == nullptr) {
        return 0;
    }
    new_dbg_str(kTraceChannel, "slh_get_size - size is %d\n", static_cast<int>(t->rows));
    return t->rows;
}

extern "C" VQ_API int slh_set_appl_cleanup_cb(void *table, void (*cb)(void *user_data)) {
    Table *t = vq::hash::as_table(table, __func__);
    if (t == nullptr) {
        return 0;
    }
    t->cleanup.store(cb, std::memory_order_relaxed);
    return 1;
}

extern "C" VQ_API int slh_set_hash_cb(void *table, int32_t (*cb)(const char *key)) {
    Table *t = vq::hash::as_table(table, __func__);
    if (t == nullptr) {
        return 0;
    }
    t->hash.store(cb, std::memory_order_relaxed);
    return 1;
}

// ---- Iteration ---------------------------------------------------------------------

extern "C" VQ_API void *slh_get_iterator(void *table) {
    Table *t = vq::hash::as_table(table, __func__);
    if (t == nullptr) {
        return nullptr;
    }
    void *block = std::malloc(sizeof(TableIterator));
    if (block == nullptr) {
        VQ_NO_MEMORY(Report::add, kModule);
        return nullptr;
    }
    auto *it = new (block) TableIterator{0, t, t->rows, nullptr};
    vq::tag::stamp(&it->tag, vq::tag::Kind::hash_iterator);
    return it;
}

extern "C" VQ_API int slh_free_iterator(void *iterator) {
    TableIterator *it = vq::hash::as_iterator(iterator, __func__);
    if (it == nullptr) {
        return 0;
    }
    vq::hash::drop_current(it);
    vq::tag::erase(&it->tag);
    it->~TableIterator();
    std::free(it);
    return 1;
}

extern "C" VQ_API int slh_iterator_move_first(void *iterator) {
    TableIterator *it = vq::hash::as_iterator(iterator, __func__);
    if (it == nullptr) {
        return 0;
    }
    vq::hash::drop_current(it);
    return vq::hash::settle(it, 0, "slh_iterator_move_first");
}

// Past the last entry of a row the walk goes on with the next row that has
// one; an iterator at the end (or never moved) stays there.
extern "C" VQ_API int slh_iterator_move_next(void *iterator) {
    TableIterator *it = vq::hash::as_iterator(iterator, __func__);
    if (it == nullptr) {
        return 0;
    }
    if (it->current == nullptr) {
        return 1;
    }
    lln_iterator_move_next(it->current);
    if (lln_iterator_end(it->current) == 0) {
        return 1;
    }
    vq::hash::drop_current(it);
    return vq::hash::settle(it, it->row + 1, "slh_iterator_move_next");
}

// Marking the node and taking the entry happen under the row's lock, so that
// an entry removed at the same time through its key is freed exactly once.
// When another thread removed the current entry first, the iterator still
// moves on, and 0 says that this call removed nothing.
extern "C" VQ_API int slh_iterator_remove_node_move_next(void *iterator) {
    TableIterator *it = vq::hash::as_iterator(iterator, __func__);
    if (it == nullptr || it->current == nullptr) {
        return 0;
    }
    Table *t = it->table;
    void *list = t->row[it->row];
    lln_lock_list(list);
    auto *entry = static_cast<Entry *>(lln_iterator_get_data(it->current));
    lln_iterator_remove_node_move_next(it->current);
    lln_unlock_list(list);
    if (entry != nullptr) {
        vq::hash::free_entry(t, entry);
    }
    if (lln_iterator_end(it->current) != 0) {
        vq::hash::drop_current(it);
        if (vq::hash::settle(it, it->row + 1, "slh_iterator_remove_node_move_next") == 0) {
            return 0;
        }
    }
    return entry != nullptr ? 1 : 0;
}

// A null iterator reads as one at the end, without an error.
extern "C" VQ_API int slh_iterator_is_eol(void *iterator) {
    const TableIterator *it = vq::hash::walking(iterator, __func__);
    return it == nullptr || it->current == nullptr ? 1 : 0;
}

extern "C" VQ_API const char *slh_iterator_get_key(void *iterator) {
    const char *key = nullptr;
    vq::hash::with_current(vq::hash::walking(iterator, __func__), [&](Entry *entry) { key = entry->key; });
    return key;
}

extern "C" VQ_API void *slh_iterator_get_user_data(void *iterator) {
    void *data = nullptr;
    vq::hash::with_current(vq::hash::walking(iterator, __func__),
                           [&](Entry *entry) { data = entry->user_data; });
    return data;
}
