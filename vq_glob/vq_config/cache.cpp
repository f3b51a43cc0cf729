// The process-wide cache of configuration handles: a hash table keyed by file
// name whose entries hold a reference count, a critical section, the shared
// handle and the last-write time of the file when it was last read.
//
// Locks, always taken in this order: the removal lock (only by the calls that
// free entries or walk all of them), the hash row of the name, the entry's
// critical section. Every path that finds an entry by its name enters the
// entry while it holds the row, and an entry leaves the table only while its
// row is held and nobody is inside it; so an entry out of the table has no
// waiter and no finder left, and is freed after every lock is released. The
// walks get their entries from the table's iterator without the row; they
// hold the removal lock, so that no entry is freed under them.
//
// A reload never writes into the shared handle while reading: the file is
// read into a private handle with the same settings and table, and only a
// complete read is swapped in, under the shared handle's critical section.
#include <atomic>
#include <cstdio>
#include <ctime>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "platform/resolve.h"
#include "vq_config/conf_state.h"
#include "vq_glob/cconf.h"
#include "vq_glob/hash.h"
#include "vq_glob/mlist.h"

namespace vq::conf {
namespace {

// Holds a re-entrant lock for a scope.
class LockHold {
public:
    explicit LockHold(PlatLock &lock) : lock_(lock) { plat_lock_enter(&lock_); }
    ~LockHold() { plat_lock_leave(&lock_); }
    LockHold(const LockHold &) = delete;
    LockHold &operator=(const LockHold &) = delete;

private:
    PlatLock &lock_;
};

struct CacheEntry {
    std::string name;  // the key, compared on every fetch
    void *handle = nullptr;
    int32_t references = 0;
    bool remove = false;  // drop once unused, or the last read failed
    uint32_t write_low = 0;
    uint32_t write_high = 0;
    int64_t loaded_at = 0;  // seconds since 1970 of the last read
    PlatLock cs{};

    CacheEntry() { plat_lock_init(&cs); }
    ~CacheEntry() {
        if (handle != nullptr) {
            conf_free_handle(&handle);
        }
        plat_lock_destroy(&cs);
    }
    CacheEntry(const CacheEntry &) = delete;
    CacheEntry &operator=(const CacheEntry &) = delete;

    // Drops one reference; the count never goes below 0.
    void release() {
        if (references > 0) {
            --references;
        }
    }
    uint64_t write_time() const { return (static_cast<uint64_t>(write_high) << 32) | write_low; }
    void set_write_time(uint64_t time) {
        write_low = static_cast<uint32_t>(time);
        write_high = static_cast<uint32_t>(time >> 32);
    }
};

// The cache's table (null until cconf_init) and the process-wide settings.
std::atomic<void *> g_table{nullptr};
std::atomic<bool> g_use_cs{false};
std::atomic<bool> g_only_table{false};

// Serialises the freeing of entries with the walks over all of them. Made on
// first use and never destroyed, so that it outlives every caller.
PlatLock &removal_lock() {
    struct Made {
        PlatLock lock{};
        Made() { plat_lock_init(&lock); }
    };
    static Made *made = new Made();
    return made->lock;
}

// Holds the row of key (a copy kept by the caller) until released.
class RowHold {
public:
    RowHold(void *table, const char *key) : table_(table), key_(key) {
        held_ = slh_lock_row(table_, key_) == 1;
    }
    ~RowHold() { release(); }
    RowHold(const RowHold &) = delete;
    RowHold &operator=(const RowHold &) = delete;

    bool held() const { return held_; }
    void release() {
        if (held_) {
            slh_release_row(table_, key_);
            held_ = false;
        }
    }

private:
    void *table_;
    const char *key_;
    bool held_ = false;
};

// Frees the iterator at the end of its scope.
struct IteratorHold {
    void *it;
    explicit IteratorHold(void *table) : it(slh_get_iterator(table)) {}
    ~IteratorHold() {
        if (it != nullptr) {
            slh_free_iterator(it);
        }
    }
    IteratorHold(const IteratorHold &) = delete;
    IteratorHold &operator=(const IteratorHold &) = delete;
};

const char *truth(bool on) { return on ? "TRUE" : "FALSE"; }

// The cache's table, or null with ERR_GEN_GENERAL when cconf_init has not run.
void *cache_table(const char *function) {
    void *table = g_table.load(std::memory_order_acquire);
    if (table == nullptr) {
        std::string text = std::string(function) + ": the configuration cache is not set up (cconf_init)";
        err_set_error(ERR_GEN_GENERAL, text.c_str());
    }
    return table;
}

// The cache's table for a call on file_name: null with ERR_GEN_PARAMS for a
// null or empty name, or as cache_table.
void *table_for(const char *file_name, const char *function) {
    if (file_name == nullptr || *file_name == '\0') {
        raise::params(Report::fresh, function, "file_name");
        return nullptr;
    }
    return cache_table(function);
}

// With name's row held: *out = its entry, or null when there is none. 0 with
// ERR_GEN_GENERAL when the table gave an entry stored under another name.
int find_entry(void *table, const char *name, CacheEntry **out) {
    void *data = nullptr;
    *out = slh_find_element(table, name, &data) == 1 ? static_cast<CacheEntry *>(data) : nullptr;
    if (*out != nullptr && (*out)->name != name) {
        std::string text = "wrong entry fetched for key <" + std::string(name) + ">, exiting";
        err_set_error(ERR_GEN_GENERAL, text.c_str());
        *out = nullptr;
        return 0;
    }
    return 1;
}

// Holds name's row and finds its entry there (null when there is none);
// found() is false, with the cause on the stack, when the lookup failed.
class RowLookup {
public:
    RowLookup(void *table, const char *name) : row_(table, name) {
        ok_ = row_.held() && find_entry(table, name, &entry_) != 0;
    }
    bool ok() const { return ok_; }
    CacheEntry *entry() const { return entry_; }
    void release() { row_.release(); }

private:
    RowHold row_;
    CacheEntry *entry_ = nullptr;
    bool ok_ = false;
};

// The last-write time of the file in 100 ns units, 0 when it cannot be had.
uint64_t last_write_time(const std::string &name) {
    PlatWriteTimes times;
    return plat_fs_write_times(name.c_str(), &times) == 0 ? times.nt_time : 0;
}

bool file_exists(const std::string &name) {
    PlatFsStatus status;
    return plat_fs_status(name.c_str(), &status) == 0 && status.is_regular;
}

// A new entry for name whose handle has the process-wide settings and the
// caller's table; null with the cause on the stack.
CacheEntry *make_entry(const char *name, const conf_table_row *table, int32_t rows) {
    std::unique_ptr<CacheEntry> e(new (std::nothrow) CacheEntry());
    try {
        if (e == nullptr) {
            throw std::bad_alloc();
        }
        e->name = name;
    } catch (const std::bad_alloc &) {
        raise::memory(Report::fresh, "cconf_allocate_handle", kModule, __LINE__);
        return nullptr;
    }
    bool only_table = g_only_table.load(std::memory_order_relaxed);
    int ok = g_use_cs.load(std::memory_order_relaxed) ? conf_allocate_handle_use_cs(&e->handle)
                                                      : conf_allocate_handle(&e->handle);
    ok = ok && conf_enable_write_with_temp(e->handle);
    ok = ok && (!only_table ||
                (conf_use_only_table_on_read(e->handle, 1) && conf_use_only_table_on_write(e->handle, 1)));
    ok = ok && (rows < 1 || conf_set_table(e->handle, table, rows));
    return ok ? e.release() : nullptr;
}

// *fresh = a new private handle that reads as the shared one does: its key,
// lock-file use, table-only reading and table binding.
int make_reader_like(Handle &shared, void **fresh) {
    if (conf_allocate_handle(fresh) == 0) {
        return 0;
    }
    Handle &f = *static_cast<Handle *>(*fresh);
    const conf_table_row *table = nullptr;
    int32_t rows = 0;
    bool bound = false;
    try {
        Guard guard(&shared, __LINE__);
        f.key = shared.key;
        f.key_set = shared.key_set;
        f.lock_use = shared.lock_use;
        f.only_table_on_read = shared.only_table_on_read;
        table = shared.table;
        rows = shared.table_rows;
        bound = shared.bound;
    } catch (const std::bad_alloc &) {
        conf_free_handle(fresh);
        return raise::memory(Report::fresh, "cconf_allocate_handle", kModule, __LINE__);
    }
    if (bound && conf_set_table(*fresh, table, rows) == 0) {
        conf_free_handle(fresh);
        return 0;
    }
    return 1;
}

// Puts what fresh read in the shared handle's place, in one step under its
// critical section; fresh is left with the old sections.
void swap_in(Handle &shared, Handle &fresh) {
    Guard guard(&shared, __LINE__);
    std::swap(shared.sections, fresh.sections);
    std::swap(shared.version, fresh.version);
    std::swap(shared.version_taken, fresh.version_taken);
    shared.file_name.swap(fresh.file_name);
    shared.changed = false;
    // Every old section and field is gone: search walks end and the hash
    // index over the fields is built again.
    ++shared.removals;
}

// Reads the entry's file whole into a private handle and swaps it in; the
// shared handle is untouched on failure.
int reload(CacheEntry &e) {
    vq::debug::trace_bit(kTraceBit, "cconf: reading <%s>\n", e.name.c_str());
    Handle &shared = *static_cast<Handle *>(e.handle);
    void *fresh = nullptr;
    int ok = make_reader_like(shared, &fresh) && conf_read_file_to_handle(fresh, e.name.c_str());
    if (ok) {
        swap_in(shared, *static_cast<Handle *>(fresh));
    }
    if (fresh != nullptr) {
        conf_free_handle(&fresh);  // the old sections, or the failed read
    }
    return ok;
}

// With the entry held: reads the file when its last-write time is not the
// stored one. 0 with ERR_CNF_GENERAL over the reader's errors.
int refresh(CacheEntry &e) {
    uint64_t written = last_write_time(e.name);
    if (written == e.write_time()) {
        return 1;
    }
    if (reload(e) == 0) {
        err_add_error(ERR_CNF_GENERAL, "failed to load the cached configuration", e.name.c_str());
        return 0;
    }
    e.set_write_time(written);
    e.loaded_at = static_cast<int64_t>(std::time(nullptr));
    return 1;
}

// Finds or makes name's entry with its row held and enters it, then lets
// the row go; null with the cause on the stack.
CacheEntry *enter_entry_for_fetch(void *table, const char *name, const conf_table_row *rows_table,
                                  int32_t rows) {
    RowLookup at(table, name);
    if (!at.ok()) {
        return nullptr;
    }
    CacheEntry *e = at.entry();
    if (e == nullptr) {
        e = make_entry(name, rows_table, rows);
        if (e == nullptr) {
            return nullptr;
        }
        if (slh_insert_to_table(table, name, e) == 0) {
            delete e;
            return nullptr;
        }
    }
    plat_lock_enter(&e->cs);
    return e;  // the row is released on return
}

// Runs use(entry) under the entry's lock for name's entry: the row is held
// to find and enter it, then let go. found tells whether there was one.
template <typename Use>
int with_entry(const char *file_name, const char *function, bool &found, Use use) {
    found = false;
    void *table = table_for(file_name, function);
    if (table == nullptr) {
        return 0;
    }
    RowLookup at(table, file_name);
    if (!at.ok() || at.entry() == nullptr) {
        return at.ok() ? 1 : 0;
    }
    found = true;
    LockHold hold(at.entry()->cs);
    at.release();
    return use(*at.entry());
}

// What a visit of walk_entries did: leave the iterator to the walk, move it
// itself, or fail.
enum class Step { next, moved, failed };

// Calls visit(entry, iterator) for every entry of the table under the
// removal lock, so that no entry is freed meanwhile but by visit itself. 0
// with ERR_GEN_MEMORY when a visit fails or the walk cannot go on.
template <typename Visit>
int walk_entries(void *table, const char *function, Visit visit) {
    LockHold removal(removal_lock());
    IteratorHold walk(table);
    bool going = walk.it != nullptr && slh_iterator_move_first(walk.it) != 0;
    while (going && slh_iterator_is_eol(walk.it) == 0) {
        auto *e = static_cast<CacheEntry *>(slh_iterator_get_user_data(walk.it));
        Step step = e != nullptr ? visit(*e, walk.it) : Step::next;
        going = step == Step::moved || (step == Step::next && slh_iterator_move_next(walk.it) != 0);
    }
    return going ? 1 : raise::memory(Report::add, function, kModule, __LINE__);
}

// Frees every entry of a table no one else uses, then the table.
void free_cache_table(void *table) {
    slh_set_appl_cleanup_cb(table, [](void *data) { delete static_cast<CacheEntry *>(data); });
    slh_free_hash_table(table);
}

}  // namespace
}  // namespace vq::conf

using namespace vq::conf;

extern "C" {

VQ_API int cconf_init(int32_t size) {
    if (size <= 0) {
        return VQ_PARAMS(Report::fresh, "size");
    }
    void *table = slh_allocate_hash_table(size);
    if (table == nullptr) {
        return 0;
    }
    LockHold removal(removal_lock());
    void *old = g_table.exchange(table, std::memory_order_acq_rel);
    if (old != nullptr) {
        free_cache_table(old);
    }
    return 1;
}

VQ_API int cconf_cleanup(void) {
    LockHold removal(removal_lock());
    void *old = g_table.exchange(nullptr, std::memory_order_acq_rel);
    if (old != nullptr) {
        free_cache_table(old);
    }
    return 1;
}

VQ_API int cconf_allocate_handle(void **handle, const char *file_name, const conf_table_row *table,
                                 int32_t rows) {
    if (handle == nullptr) {
        return VQ_PARAMS(Report::fresh, "handle");
    }
    *handle = nullptr;
    if (rows > 0 && table == nullptr) {
        return VQ_PARAMS(Report::fresh, "table");
    }
    void *cache = table_for(file_name, "cconf_allocate_handle");
    if (cache == nullptr) {
        return 0;
    }
    CacheEntry *e = enter_entry_for_fetch(cache, file_name, table, rows);
    if (e == nullptr) {
        return 0;
    }
    int ok = refresh(*e);
    e->remove = ok == 0;
    if (ok != 0) {
        ++e->references;
        *handle = e->handle;
    }
    plat_lock_leave(&e->cs);
    return ok;
}

VQ_API int cconf_free_handle(const char *file_name) {
    bool found = false;
    return with_entry(file_name, "cconf_free_handle", found, [](CacheEntry &e) {
        e.release();
        return 1;
    });
}

VQ_API int cconf_remove_handle(const char *file_name) {
    void *table = table_for(file_name, "cconf_remove_handle");
    if (table == nullptr) {
        return 0;
    }
    std::unique_ptr<CacheEntry> dropped;  // freed after every lock below is let go
    LockHold removal(removal_lock());
    RowLookup at(table, file_name);
    CacheEntry *e = at.entry();
    if (!at.ok() || e == nullptr) {
        return at.ok() ? 1 : 0;
    }
    bool unused = false;
    {
        LockHold hold(e->cs);
        e->release();
        e->remove = true;
        unused = e->references == 0;
    }
    if (unused) {
        // Nobody is inside the entry and, with the row held, nobody can
        // find it before it is out of the table.
        slh_remove_from_table(table, file_name);
        dropped.reset(e);
    }
    return 1;
}

VQ_API int cconf_write_handle(const char *file_name) {
    bool found = false;
    int status = with_entry(file_name, "cconf_write_handle", found,
                            [](CacheEntry &e) { return conf_write(e.handle, e.name.c_str()); });
    if (status != 0 && !found) {
        err_set_error(ERR_CNF_GENERAL, "no cached configuration for", file_name);
        return 0;
    }
    if (status == 0 && found) {
        err_add_error(ERR_CNF_GENERAL, "failed to write the cached configuration", file_name);
    }
    return status;
}

VQ_API int cconf_scan_and_clean(char ***list) {
    if (list != nullptr && ml_init_list(0, list) == 0) {
        return 0;
    }
    void *table = cache_table("cconf_scan_and_clean");
    if (table == nullptr) {
        return 0;
    }
    int32_t removed = 0;
    int status = walk_entries(table, "cconf_scan_and_clean", [&](CacheEntry &e, void *it) {
        std::unique_ptr<CacheEntry> dropped;  // freed after the row is let go
        RowHold row(table, e.name.c_str());
        bool unused = false;
        {
            LockHold hold(e.cs);
            if (!file_exists(e.name)) {
                e.remove = true;
                unused = e.references == 0;
            }
        }
        if (!unused) {
            return Step::next;
        }
        if (list != nullptr && ml_add_element(list, e.name.c_str()) == 0) {
            return Step::failed;  // the entry stays rather than leave without its name
        }
        vq::debug::trace_bit(kTraceBit, "cconf_scan_and_clean() - dropping <%s>\n", e.name.c_str());
        // Out of the table even when moving on fails.
        int moved = slh_iterator_remove_node_move_next(it);
        dropped.reset(&e);
        ++removed;
        return moved != 0 ? Step::moved : Step::failed;
    });
    vq::debug::trace_bit(kTraceBit, "cconf_scan_and_clean() - %d entries removed\n",
                         static_cast<int>(removed));
    return status;
}

VQ_API void cconf_set_lock_critical_section(int32_t on) {
    g_use_cs.store(on != 0, std::memory_order_relaxed);
    vq::debug::trace_bit(kTraceBit, "cconf_set_lock_critical_section(%s)-->\n", truth(on != 0));
}

VQ_API void cconf_use_only_table(int32_t on) {
    g_only_table.store(on != 0, std::memory_order_relaxed);
    vq::debug::trace_bit(kTraceBit, "cconf_use_only_table(%s)-->\n", truth(on != 0));
}

VQ_API int cconf_dump(void) {
    void *table = cache_table("cconf_dump");
    if (table == nullptr) {
        return 0;
    }
    int count = 0;
    int status = walk_entries(table, "cconf_dump", [&count](CacheEntry &e, void *) {
        LockHold hold(e.cs);
        vq::debug::trace_bit(kTraceBit,
                             "cconf_dump() - <%s> references=%d remove=%s last_write=%08X:%08X loaded=%lld "
                             "handle=<%p>\n",
                             e.name.c_str(), static_cast<int>(e.references), truth(e.remove),
                             static_cast<unsigned>(e.write_high), static_cast<unsigned>(e.write_low),
                             static_cast<long long>(e.loaded_at), e.handle);
        ++count;
        return Step::next;
    });
    vq::debug::trace_bit(kTraceBit, "cconf_dump() - %d entries\n", count);
    return status;
}

}  // extern "C"
